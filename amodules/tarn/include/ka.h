/* libKa: memory storages and pools.
 *
 * A storage record lies in its user's memory (usually on the stack) and hands out blocks that die with it. A storage
 * may have a parent: its memory then comes from the parent and dies with the parent at the latest. A pool hands out
 * objects of one size from a storage. Storages and pools both begin with a KaMEMSTG, so one function destroys either.
 * No function here is thread-safe on one record; different records may be used from different threads.
 *
 * Functions that fail return null and put the code of the failure (QUEL_E_NOMEM, or QUEL_E_OPTION for a bad argument)
 * into the low 16 bits of the error context's status word; they make no error value, since only their caller knows what
 * the memory was for. The error context may be null everywhere.
 */
#ifndef TARN_KA_H
#define TARN_KA_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define KA_EXPORT __declspec(dllexport)
#define KA_API __declspec(dllimport)
#else
#define KA_EXPORT __attribute__((visibility("default")))
#define KA_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct QuelERR;

/* What storages and pools have in common. Every member belongs to the library. */
typedef struct KaMEMSTG {
    uint64_t tag;            /* which kind of record this is, 0 when closed */
    struct KaMEMSTG* parent; /* the storage that pays, null for the heap */
    struct KaMEMSTG* child;  /* first record that draws on this one */
    struct KaMEMSTG* next;   /* siblings under one parent */
    struct KaMEMSTG* prev;
    void* blocks; /* pieces in use (storage) or slabs (pool) */
} KaMEMSTG;

/* A storage: blocks of any size. */
typedef struct KaSMEMSTG {
    KaMEMSTG base;
    uint64_t block_size; /* smallest piece that is asked of the parent, 0: exact sizes */
    uint64_t used;       /* bytes handed out and not given back */
    uint64_t live;       /* blocks handed out and not given back */
    void* idle;          /* pieces that hold no block, kept for the next ones */
    uint64_t idle_bytes;
    uint64_t idle_count;
} KaSMEMSTG;

/* A pool: objects of one size. */
typedef struct KaPOOL {
    KaMEMSTG base;
    uint64_t object_size;
    uint64_t alignment;
    uint8_t* next_object;
    uint8_t* slab_end;
    uint64_t slab_objects; /* objects in the next slab; doubles up to a limit */
    uint64_t reserved[2];
} KaPOOL;

/* Opens a storage in the caller's record.
 *   storage     record to fill; must not be open
 *   parent      storage that pays for the blocks, or null for the heap
 *   block_size  smallest piece in bytes to ask of the parent at once, 0 for none
 * Returns storage, or null. Destroy it with KaMEMSTGdestroy(&storage->base). */
KA_API KaSMEMSTG* KaSMEMSTGopen(KaSMEMSTG* storage, KaSMEMSTG* parent, uint64_t block_size, struct QuelERR* err);

/* Gives back every block of the storage and destroys what draws on it; the storage stays open. The memory is kept for
 * the next blocks (up to 16 pieces and 256 MiB, the newest), so that a storage cleared step after step doesn't go to
 * the heap. */
KA_API void KaSMEMSTGclear(KaSMEMSTG* storage);

/* Allocates size bytes (16-byte aligned, not cleared; size 0 gives a unique address).
 *   flags  bit 0: clear the bytes to zero; other bits are ignored
 * Returns the block, or null. */
KA_API void* KaSMEMSTGalloc(KaSMEMSTG* storage, uint64_t size, uint32_t flags, struct QuelERR* err);

/* The same at a multiple of alignment bytes, a power of two up to 4096. */
KA_API void* KaSMEMSTGaalloc(KaSMEMSTG* storage, uint64_t size, uint64_t alignment, uint32_t flags,
                             struct QuelERR* err);

/* Gives one block back; null is ignored. A block that this storage didn't hand out, or that was given back already,
 * ends the process with a message. */
KA_API void KaSMEMSTGfree(KaSMEMSTG* storage, void* block);

/* Destroys a storage or a pool: everything in it, everything that draws on it, then the record itself. Null and a
 * closed record are ignored. */
KA_API void KaMEMSTGdestroy(KaMEMSTG* storage);

/* Opens a pool in the caller's record.
 *   storage      storage that pays for the slabs, or null for the heap
 *   object_size  bytes of one object, above 0
 *   alignment    power of two up to 4096
 * Returns pool, or null. Destroy it with KaMEMSTGdestroy(&pool->base). */
KA_API KaPOOL* KaPOOLopen(KaPOOL* pool, KaSMEMSTG* storage, uint64_t object_size, uint64_t alignment,
                          struct QuelERR* err);

/* Takes one object (not cleared) from the pool; null when memory is out. Objects die with the pool. */
KA_API void* KaPOOLget(KaPOOL* pool, struct QuelERR* err);

#ifdef __cplusplus
}
#endif
#endif

// Storages. A storage asks its parent, or the heap, for pieces and places blocks in them: one block a piece when its
// block size is 0, else as many as fit. A piece whose blocks are all given back becomes idle and is used again before
// the parent is asked, so that scratch memory taken and freed image after image costs no page faults. A small header in
// front of every block leads to its piece.
#include "ka/memory.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include "quel/host.h"

namespace ka {
namespace {

struct Piece {
    Piece* next;
    Piece* prev;
    KaSMEMSTG* owner;
    uint64_t capacity;  // bytes behind this header
    uint64_t cursor;    // bytes of them that are taken
    uint64_t live;      // blocks in it
};
static_assert(sizeof(Piece) % kAlignment == 0);

enum : uint64_t {
    kBlockMark = 0x6b636f6c62734b41,
    kInternalMark = 0x6b636f6c62694b41,
    kFreedMark = 0x6465657266734b41
};

struct Block {
    Piece* piece;
    uint64_t size;
    uint64_t mark;
    uint64_t reserved;
};
static_assert(sizeof(Block) % kAlignment == 0);

// Under the address sanitizer nothing is kept idle, and every block has a forbidden stretch in front of it.
constexpr uint64_t kIdlePieces = KA_ASAN ? 0 : 16;
constexpr uint64_t kIdleBytes = KA_ASAN ? 0 : UINT64_C(256) << 20;
constexpr uint64_t kFront = sizeof(Block) + (KA_ASAN ? 32 : 0);

// From this size on heaps give back to the system what is freed, so that a temporary is new memory in every call, and
// the first touch of each of its pages takes longer than many operations on the pixels there. Such pieces are asked for
// in huge pages.
constexpr uint64_t kHugePage = UINT64_C(2) << 20, kHuge = UINT64_C(32) << 20;

uint8_t* payload(Piece* piece) { return reinterpret_cast<uint8_t*>(piece + 1); }

void link_piece(void** list, Piece* piece) {
    piece->prev = nullptr;
    piece->next = static_cast<Piece*>(*list);
    if (piece->next) piece->next->prev = piece;
    *list = piece;
}

void unlink_piece(void** list, Piece* piece) {
    if (piece->next) piece->next->prev = piece->prev;
    if (piece->prev)
        piece->prev->next = piece->next;
    else
        *list = piece->next;
}

void release_piece(Piece* piece) {
    show(payload(piece), piece->capacity);
    give_back(reinterpret_cast<KaSMEMSTG*>(piece->owner->base.parent), piece);
}

void drop_idle(KaSMEMSTG* storage, Piece* piece) {
    unlink_piece(&storage->idle, piece);
    storage->idle_bytes -= piece->capacity;
    storage->idle_count -= 1;
}

// Moves a piece without blocks to the idle ones; the oldest go back when they are too many.
void make_idle(KaSMEMSTG* storage, Piece* piece) {
    unlink_piece(&storage->base.blocks, piece);
    piece->live = 0;
    piece->cursor = 0;
    hide(payload(piece), piece->capacity);
    link_piece(&storage->idle, piece);
    storage->idle_bytes += piece->capacity;
    storage->idle_count += 1;
    while (storage->idle_count > kIdlePieces || storage->idle_bytes > kIdleBytes) {
        Piece* oldest = static_cast<Piece*>(storage->idle);
        while (oldest->next) oldest = oldest->next;
        drop_idle(storage, oldest);
        release_piece(oldest);
    }
}

// The smallest idle piece with this much room, if it isn't far too large to be spent on it.
Piece* find_idle(KaSMEMSTG* storage, uint64_t room) {
    uint64_t too_large = room < 16384 ? 65536 : 4 * room;
    if (too_large < storage->block_size) too_large = storage->block_size;
    Piece* best = nullptr;
    for (Piece* piece = static_cast<Piece*>(storage->idle); piece; piece = piece->next)
        if (piece->capacity >= room && piece->capacity <= too_large && (!best || piece->capacity < best->capacity))
            best = piece;
    if (best) drop_idle(storage, best);
    return best;
}

Piece* new_piece(KaSMEMSTG* storage, uint64_t room) {
    const uint64_t capacity = room > storage->block_size ? room : storage->block_size;
    KaSMEMSTG* parent = reinterpret_cast<KaSMEMSTG*>(storage->base.parent);
    Piece* piece = static_cast<Piece*>(obtain(parent, sizeof(Piece) + capacity));
    if (!piece) return nullptr;
    *piece = {nullptr, nullptr, storage, capacity, 0, 0};
    hide(payload(piece), capacity);
    return piece;
}

// A block in this piece, or null when there is no room for it.
void* place(Piece* piece, uint64_t size, uint64_t alignment, uint64_t mark) {
    const uint64_t base = reinterpret_cast<uint64_t>(payload(piece));
    const uint64_t start = round_up(round_up(base + piece->cursor, kAlignment) + kFront, alignment);
    if (start - base > piece->capacity || size > piece->capacity - (start - base)) return nullptr;
    piece->cursor = start - base + size;
    piece->live += 1;
    uint8_t* data = payload(piece) + (start - base);
    Block* block = reinterpret_cast<Block*>(data - kFront);
    show(block, sizeof(Block));
    *block = {piece, size, mark, 0};
    show(data, size);
    return data;
}

void* take(KaSMEMSTG* storage, uint64_t size, uint64_t alignment, uint64_t mark) {
    if (size > kLargestSize) return nullptr;
    if (alignment < kAlignment) alignment = kAlignment;
    Piece* front = static_cast<Piece*>(storage->base.blocks);
    if (storage->block_size && front)
        if (void* data = place(front, size, alignment, mark)) return data;
    const uint64_t room = kFront + size + (alignment - kAlignment);
    Piece* piece = find_idle(storage, room);
    if (!piece) piece = new_piece(storage, room);
    if (!piece) return nullptr;
    link_piece(&storage->base.blocks, piece);
    if (front && room > storage->block_size) {
        // A piece filled by one large block: the next small ones go on in the piece that they were in.
        unlink_piece(&storage->base.blocks, front);
        link_piece(&storage->base.blocks, front);
    }
    return place(piece, size, alignment, mark);
}

[[noreturn]] void die(const char* text) {
    fprintf(stderr, "libKa: %s\n", text);
    abort();
}

void put_back(KaSMEMSTG* storage, void* data, uint64_t mark) {
    Block* block = reinterpret_cast<Block*>(static_cast<uint8_t*>(data) - kFront);
    if (block->mark == kFreedMark) die("a block was given back twice");
    if (block->mark != mark || block->piece->owner != storage || block->piece->live == 0)
        die("a block was given back to a storage that didn't hand it out");
    block->mark = kFreedMark;
    Piece* piece = block->piece;
    hide(data, block->size);
    if (--piece->live == 0) make_idle(storage, piece);
}

void forget(KaSMEMSTG* storage, uint64_t blocks, uint64_t bytes) {
    storage->live -= blocks;
    storage->used -= bytes;
    count_live(0, -int64_t(blocks), -int64_t(bytes));
}

bool is_storage(const KaSMEMSTG* storage) { return storage && storage->base.tag == kStorageTag; }

// Destroys everything that draws on a record, the youngest first; no recursion, so any depth is well.
void destroy_children(KaMEMSTG* top) {
    while (top->child) {
        KaMEMSTG* leaf = top->child;
        while (leaf->child) leaf = leaf->child;
        KaMEMSTGdestroy(leaf);
    }
}

}  // namespace

void* obtain(KaSMEMSTG* parent, uint64_t size) {
    if (parent) return take(parent, size, kAlignment, kInternalMark);
    if (size < kHuge) return malloc(size);
    void* memory = aligned_alloc(kHugePage, size_t(round_up(size, kHugePage)));
#ifdef MADV_HUGEPAGE
    if (memory) madvise(memory, size, MADV_HUGEPAGE);
#endif
    return memory;
}

void give_back(KaSMEMSTG* parent, void* memory) {
    if (parent)
        put_back(parent, memory, kInternalMark);
    else
        free(memory);
}

void open_record(KaMEMSTG* record, uint64_t tag, KaSMEMSTG* parent) {
    *record = {tag, parent ? &parent->base : nullptr, nullptr, nullptr, nullptr, nullptr};
    if (parent) {
        record->next = parent->base.child;
        if (record->next) record->next->prev = record;
        parent->base.child = record;
    }
    count_live(1, 0, 0);
}

void close_record(KaMEMSTG* record) {
    if (record->next) record->next->prev = record->prev;
    if (record->prev)
        record->prev->next = record->next;
    else if (record->parent)
        record->parent->child = record->next;
    *record = {};
    count_live(-1, 0, 0);
}

}  // namespace ka

using namespace ka;

KaSMEMSTG* KaSMEMSTGopen(KaSMEMSTG* storage, KaSMEMSTG* parent, uint64_t block_size, QuelERR* err) {
    if (!storage || (parent && !is_storage(parent))) return fail(err, QUEL_E_OPTION);
    if (block_size > kLargestSize) return fail(err, QUEL_E_NOMEM);
    memset(storage, 0, sizeof *storage);
    open_record(&storage->base, kStorageTag, parent);
    storage->block_size = block_size;
    return storage;
}

void KaSMEMSTGclear(KaSMEMSTG* storage) {
    if (!is_storage(storage)) return;
    destroy_children(&storage->base);
    forget(storage, storage->live, storage->used);
    while (storage->base.blocks) make_idle(storage, static_cast<Piece*>(storage->base.blocks));
}

void* KaSMEMSTGalloc(KaSMEMSTG* storage, uint64_t size, uint32_t flags, QuelERR* err) {
    return KaSMEMSTGaalloc(storage, size, kAlignment, flags, err);
}

void* KaSMEMSTGaalloc(KaSMEMSTG* storage, uint64_t size, uint64_t alignment, uint32_t flags, QuelERR* err) {
    if (!is_storage(storage) || !good_alignment(alignment)) return fail(err, QUEL_E_OPTION);
    void* data = count_allocation() ? take(storage, size, alignment, kBlockMark) : nullptr;
    if (!data) return fail(err, QUEL_E_NOMEM);
    storage->live += 1;
    storage->used += size;
    count_live(0, 1, int64_t(size));
    if (flags & 1) memset(data, 0, size);
    return data;
}

void KaSMEMSTGfree(KaSMEMSTG* storage, void* data) {
    if (!data || !is_storage(storage)) return;
    const uint64_t size = reinterpret_cast<Block*>(static_cast<uint8_t*>(data) - kFront)->size;
    put_back(storage, data, kBlockMark);
    forget(storage, 1, size);
}

void KaMEMSTGdestroy(KaMEMSTG* record) {
    if (!record || (record->tag != kStorageTag && record->tag != kPoolTag)) return;
    if (record->tag == kPoolTag) {
        release_slabs(reinterpret_cast<KaPOOL*>(record));
    } else {
        KaSMEMSTG* storage = reinterpret_cast<KaSMEMSTG*>(record);
        KaSMEMSTGclear(storage);
        while (Piece* piece = static_cast<Piece*>(storage->idle)) {
            drop_idle(storage, piece);
            release_piece(piece);
        }
    }
    close_record(record);
}

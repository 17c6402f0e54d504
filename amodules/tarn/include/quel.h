/* The host's module system: the records that a module and its host exchange, and the error makers.
 *
 * Record layouts are fixed; offsets are given where the other side relies on them. The functions live in libKa.
 */
#ifndef TARN_QUEL_H
#define TARN_QUEL_H

#include "ka.h"

#ifdef __cplusplus
extern "C" {
#endif

struct QuelCALL;
struct QuelERR;

/* Any function; cast to the operation's own type before calling. */
typedef void (*QuelENTRY)(void);

/* Operation slot, 56 bytes. entry: the operation, or QUEL_ENTRY_DECLARED, or null for a reserved slot. */
typedef struct QuelSLOT {
    const char* name;      /* "add_c" */
    const char* qualified; /* "tarn::add-c" */
    const char* signature; /* "P,P" in every slot; describes nothing */
    QuelENTRY entry;
    uint64_t code_a; /* why a declared slot has no function */
    uint64_t code_b;
    uint64_t zero;
} QuelSLOT;

/* The entry of a slot that is declared but not implemented by this module. */
#define QUEL_ENTRY_DECLARED ((QuelENTRY)1)

#define QUEL_IFACE_SLOTS 200

/* Interface record: an operation table and its names. */
typedef struct QuelIFACE {
    uint64_t host[8];                 /* 0x000: the host's own */
    uint64_t format;                  /* 0x040 */
    const char* path;                 /* 0x048: "operations/tarn/Tarnipp" */
    const char* name;                 /* 0x050: "tarn/Tarnipp" */
    const char* family;               /* 0x058: "tarn" */
    uint64_t packed_code;             /* 0x060: the top 16 bits are the interface code */
    uint64_t version;                 /* 0x068 */
    uint64_t reserved[9];             /* 0x070 */
    uint64_t slot_count;              /* 0x0b8 */
    QuelSLOT slots[QUEL_IFACE_SLOTS]; /* 0x0c0 */
} QuelIFACE;

/* One entry of the host's list of registered interfaces: a block of words of which word 12 (the thirteenth) is the
 * address of the interface record. The meaning of the others is the host's. */
typedef uint64_t QuelREGENTRY;

/* Growing list of entries, the host's own. */
typedef struct QuelSELIST {
    const void** entries;
    uint64_t count;
    uint64_t capacity;
} QuelSELIST;

/* What the host hands to a module's attach function. */
typedef struct QuelMODCTX {
    void* host;            /* the host's own */
    QuelSELIST interfaces; /* registered interfaces: entries that attach functions append */
} QuelMODCTX;

/* Names of the modules that a module depends on. */
typedef struct QuelDEPLIST {
    uint64_t count;
    const char* names[1];
} QuelDEPLIST;

/* Module descriptor, 496 bytes: what the exported symbol points to. */
typedef struct QuelMODULE {
    uint64_t host[8];    /* 0x000: the host's own */
    uint64_t format;     /* 0x040 */
    const char* path;    /* 0x048: "modules/tarn-ipp" */
    const char* name;    /* 0x050 */
    const char* name2;   /* 0x058 */
    uint64_t type_code;  /* 0x060 */
    uint64_t unused1[6]; /* 0x068 */
    /* 0x098: called by the host; the second and third arguments are the host's own. Returns 0. */
    int64_t (*attach)(QuelMODCTX* context, void* unused1, void* unused2, void* pass);
    uint64_t hooks1[29];                      /* 0x0a0 */
    const char* name3;                        /* 0x188 */
    uint64_t hooks2[5];                       /* 0x190 */
    const QuelDEPLIST* (*dependencies)(void); /* 0x1b8 */
    uint64_t attached;                        /* 0x1c0: 1 after attach */
    QuelIFACE* const* cell; /* 0x1c8: set by attach to the cell that holds the interface record's address */
    uint64_t unused2[2];    /* 0x1d0 */
    uint64_t one;           /* 0x1e0: 1 */
    const char* build_date; /* 0x1e8 */
} QuelMODULE;

/* First argument of every operation. */
typedef struct QuelCALL {
    void* host[3];          /* the host's own */
    const QuelIFACE* iface; /* 24: the table that the operation was found in; sibling calls go through it */
    int32_t slot;           /* 32: which slot is being called */
    int32_t pad;
} QuelCALL;

/* An error value: what went wrong, for programs (codes) and for people (text). */
typedef struct QuelERRVAL {
    uint32_t iface; /* interface code of the operation that failed */
    uint32_t code;  /* QUEL_E_... */
    uint32_t cls;   /* QUEL_C_... */
    uint32_t form;  /* which message form made the text, 0 for a printf text */
    char text[480]; /* readable message, NUL-terminated, cut when longer */
} QuelERRVAL;

/* Error context: collects error values. A zeroed record is empty and ready. */
typedef struct QuelERR {
    uint64_t count;  /*  0: error values made since the record was cleared */
    void* host[2];   /*  8: the host's own */
    uint64_t status; /* 24: bits 0-15 code of the last failure, bits 16-31 interface code of who reported it */
    QuelERRVAL last; /* 32: the newest error value; meaningful when count is above 0 */
} QuelERR;

/* Error codes and classes in use. */
enum {
    QUEL_E_OPTION = 259,    /* option or shape out of range */
    QUEL_E_TYPE = 1029,     /* element type or channel count not supported, or a kernel failed */
    QUEL_E_NOMEM = 32773,   /* out of memory */
    QUEL_E_UNSERVED = 1030, /* no loaded module serves the operation, or another that it is made of */
    QUEL_E_MODULE = 1031,   /* made by the host: a module can't be loaded */
    QUEL_C_NOMEM = 12,
    QUEL_C_ARGUMENT = 22,
    QUEL_C_UNSUPPORTED = 129
};

/* Builds an error value from a message form.
 *   err    context that receives it; null: nothing happens
 *   iface  interface code; code, cls: see above
 *   form   which arguments follow (all const char*):
 *          1: operation name                           "NAME: out of memory; ..."
 *          3: family, operation name, argument text    "FAMILY::NAME: TEXT is out of range; ..."
 *          6: family, operation name, argument text    "FAMILY::NAME: unsupported TEXT; ..."
 *          any other form: none                        "error CODE of class CLS from interface IFACE"
 *          "..." says what to do. A text too long for the record ends in "...".
 * The arguments called zero are 0. Returns -1, so that `return QuelMkerr(...)` reads well. */
KA_API int64_t QuelMkerr(uint64_t zero1, QuelERR* err, uint64_t zero2, uint64_t zero3, uint64_t zero4, uint32_t iface,
                         uint32_t code, uint32_t cls, uint32_t form, ...);

/* The same with a printf text of its own. */
KA_API int64_t QuelMkerr_u(QuelERR* err, uint64_t zero1, uint64_t zero2, uint64_t zero3, uint32_t iface, uint32_t code,
                           uint32_t cls, const char* format, ...);

/* Appends an entry (kept by address, not copied) to a list.
 *   zero  0
 *   pass  the caller's fourth attach argument, handed through; not used
 * Returns 0, or -1 when memory is out. Not locked: the host attaches modules one at a time. */
KA_API int64_t _QuelSelistPushback_nlk(QuelSELIST* list, const void* entry, uint64_t zero, void* pass);

#ifdef __cplusplus
}
#endif
#endif

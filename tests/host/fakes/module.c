/* A small module for the loader's tests. FAULT (or WITHOUT_SYMBOL) gives it one fault; COMPANION makes it the companion. */
#include <string.h>

#include "quel.h"

/* Faults of the descriptor, of attaching, and of the interface. */
enum { NONE, NULL_DESCRIPTOR, WRONG_FORMAT, NO_NAME, NO_ATTACH };
enum { ATTACH_FAILS = 10, NOT_ATTACHED, NO_CELL, UNREGISTERED };
enum {
    WRONG_IFACE_FORMAT = 20,
    OTHER_FAMILY,
    NO_FAMILY,
    WRONG_SLOT_COUNT,
    UNNAMED_SLOT,
    NO_INIT,
    INIT_FAILS,
    OTHER_FIRST
};
#ifndef FAULT
#define FAULT NONE
#endif
#define HAS(fault) ((int)FAULT == (int)fault)
#ifndef COMPANION
#define COMPANION 0
#endif

enum { FORMAT = 0x02040000 };

static int init_calls;
static int* fini_counter;

static int64_t init_once(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage) {
    (void)err, (void)storage;
    if (call->slot != 0 || strcmp(call->iface->slots[0].name, "init_once") != 0) return -1;
    ++init_calls;
    return HAS(INIT_FAILS) ? -1 : 0;
}

static int64_t fini_once(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage) {
    (void)call, (void)err, (void)storage;
    if (fini_counter) ++*fini_counter;
    return 0;
}

/* The companion's: says whose table it was called through, and how often its module was initialised. */
static int64_t sum(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, int64_t a, int64_t b) {
    (void)err, (void)storage;
    return strcmp(call->iface->path, "fake/good") == 0 && init_calls == 1 ? a + b : -2;
}

static int64_t watch(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, int* counter) {
    (void)call, (void)err, (void)storage;
    fini_counter = counter;
    return init_calls;
}

/* Calls its sibling as operations do: through the table, with its own call record. */
static int64_t forward(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, int64_t a, int64_t b) {
    typedef int64_t (*Sum)(const QuelCALL*, QuelERR*, KaSMEMSTG*, int64_t, int64_t);
    return ((Sum)call->iface->slots[6].entry)(call, err, storage, a, b);
}

static QuelIFACE iface = {
    .format = HAS(WRONG_IFACE_FORMAT) ? 7 : FORMAT,
    .path = COMPANION ? "fake/tarn-c" : "fake/good",
    .name = COMPANION ? "tarn-c" : "good",
    .family = HAS(NO_FAMILY)      ? 0
              : HAS(OTHER_FAMILY) ? "heron"
                                  : "tarn",
    .packed_code = 0x05e70003ffff0003,
    .slot_count = HAS(WRONG_SLOT_COUNT) ? 199 : 200,
};
static QuelIFACE* cell;
static uint64_t registration[40];

static void slot(int number, const char* name, const char* qualified, QuelENTRY entry) {
    const QuelSLOT filled = {name, qualified, "P,P", entry, entry == QUEL_ENTRY_DECLARED, 0, 0};
    iface.slots[number] = filled;
}

static const QuelDEPLIST* dependencies(void) {
    static const QuelDEPLIST list = {1, {"tarn-c"}};
    return &list;
}

static int64_t attach(QuelMODCTX* context, void* unused1, void* unused2, void* pass);

static QuelMODULE descriptor = {
    .format = HAS(WRONG_FORMAT) ? 7 : FORMAT,
    .path = COMPANION ? "modules/tarn-c" : "modules/good",
    .name = HAS(NO_NAME) ? 0
            : COMPANION  ? "tarn-c"
                         : "good",
    .attach = HAS(NO_ATTACH) ? 0 : attach,
    .dependencies = dependencies,
    .one = 1,
};

static int64_t attach(QuelMODCTX* context, void* unused1, void* unused2, void* pass) {
    (void)unused1, (void)unused2;
    for (int i = 0; i < QUEL_IFACE_SLOTS; ++i) slot(i, "reserved", "tarn::reserved", 0);
    if (HAS(UNNAMED_SLOT)) iface.slots[30].name = 0;
    if (!HAS(NO_INIT)) slot(0, HAS(OTHER_FIRST) ? "first" : "init_once", "init-once", (QuelENTRY)init_once);
    slot(1, "fini_once", "fini-once", (QuelENTRY)fini_once);
    if (COMPANION) {
        slot(20, "sum", HAS(OTHER_FAMILY) ? "heron::sum" : "tarn::sum", (QuelENTRY)sum);
        slot(21, "gone", "tarn::gone", QUEL_ENTRY_DECLARED);
    } else {
        slot(5, "watch", "tarn::watch-it", (QuelENTRY)watch);
        slot(6, "sum", "tarn::sum", QUEL_ENTRY_DECLARED);
        slot(7, "forward", "tarn::deep::forward", (QuelENTRY)forward);
        slot(8, "gone", "tarn::gone", QUEL_ENTRY_DECLARED);
        slot(9, "gone_too", "tarn::watch", QUEL_ENTRY_DECLARED);
    }
    descriptor.attached = !HAS(NOT_ATTACHED);
    if (!HAS(NO_CELL)) cell = &iface;
    descriptor.cell = &cell;
    registration[0] = 9;
    if (!HAS(UNREGISTERED)) registration[12] = (uint64_t)&iface;
    _QuelSelistPushback_nlk(&context->interfaces, registration, 0, pass);
    return HAS(ATTACH_FAILS) ? -1 : 0;
}

#ifdef WITHOUT_SYMBOL
#define _G_quel_module not_a_module
#endif
extern KA_EXPORT QuelMODULE* const _G_quel_module;
QuelMODULE* const _G_quel_module = HAS(NULL_DESCRIPTOR) ? 0 : &descriptor;

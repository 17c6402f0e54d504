/* A small module for the loader's tests. A definition gives it one fault, or makes it the companion. What some fault
 * leaves unused is not static, to build without a warning. */
#include <string.h>

#include "quel.h"

#ifdef COMPANION
#define MODULE_NAME "tarn-c"
#else
#define MODULE_NAME "good"
#endif
#ifdef OTHER_FAMILY
#define FAMILY "heron"
#else
#define FAMILY "tarn"
#endif
#ifdef WRONG_SLOT_COUNT
#define SLOT_COUNT 199
#else
#define SLOT_COUNT 200
#endif

enum { FORMAT = 0x02040000 };

static int init_calls;
static int* fini_counter;

int64_t init_once(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage) {
    (void)err, (void)storage;
    if (call->slot != 0 || strcmp(call->iface->slots[0].name, "init_once") != 0) return -1;
    ++init_calls;
#ifdef INIT_FAILS
    return -1;
#else
    return 0;
#endif
}

static int64_t fini_once(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage) {
    (void)call, (void)err, (void)storage;
    if (fini_counter) ++*fini_counter;
    return 0;
}

#ifdef COMPANION
/* Says whose table it was called through, and how often its module was initialised. */
static int64_t sum(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, int64_t a, int64_t b) {
    (void)err, (void)storage;
    return strcmp(call->iface->path, "fake/good") == 0 && init_calls == 1 ? a + b : -2;
}
#else
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
#endif

#ifdef WRONG_IFACE_FORMAT
#define IFACE_FORMAT 7
#else
#define IFACE_FORMAT FORMAT
#endif
#ifdef NO_FAMILY
#define IFACE_FAMILY 0
#else
#define IFACE_FAMILY FAMILY
#endif

static QuelIFACE iface = {
    .format = IFACE_FORMAT,
    .path = "fake/" MODULE_NAME,
    .name = MODULE_NAME,
    .family = IFACE_FAMILY,
    .packed_code = 0x05e70003ffff0003,
    .slot_count = SLOT_COUNT,
    .slots =
        {
#ifndef NO_INIT
            [0] = {"init_once", "init-once", "P,P", (QuelENTRY)init_once, 0, 0, 0},
#endif
            [1] = {"fini_once", "fini-once", "P,P", (QuelENTRY)fini_once, 0, 0, 0},
#ifdef COMPANION
            [20] = {"sum", FAMILY "::sum", "P,P", (QuelENTRY)sum, 0, 0, 0},
            [21] = {"gone", FAMILY "::gone", "P,P", QUEL_ENTRY_DECLARED, 1, 0, 0},
#else
            [5] = {"watch", "tarn::watch-it", "P,P", (QuelENTRY)watch, 0, 0, 0},
            [6] = {"sum", "tarn::sum", "P,P", QUEL_ENTRY_DECLARED, 1, 0, 0},
            [7] = {"forward", "tarn::deep::forward", "P,P", (QuelENTRY)forward, 0, 0, 0},
            [8] = {"gone", "tarn::gone", "P,P", QUEL_ENTRY_DECLARED, 1, 0, 0},
            [9] = {"gone_too", "tarn::watch", "P,P", QUEL_ENTRY_DECLARED, 1, 0, 0},
#endif
        },
};

static QuelIFACE* cell;
static uint64_t registration[40];
int64_t attach(QuelMODCTX* context, void* unused1, void* unused2, void* pass);

static const QuelDEPLIST* dependencies(void) {
    static const QuelDEPLIST list = {1, {"tarn-c"}};
    return &list;
}

QuelMODULE descriptor = {
#ifdef WRONG_FORMAT
    .format = 7,
#else
    .format = FORMAT,
#endif
    .path = "modules/" MODULE_NAME,
#ifndef NO_NAME
    .name = MODULE_NAME,
#endif
#ifndef NO_ATTACH
    .attach = attach,
#endif
    .dependencies = dependencies,
    .one = 1,
};

int64_t attach(QuelMODCTX* context, void* unused1, void* unused2, void* pass) {
    (void)unused1, (void)unused2;
    for (int i = 0; i < QUEL_IFACE_SLOTS; ++i)
        if (!iface.slots[i].name) {
            iface.slots[i].name = "reserved";
            iface.slots[i].qualified = "tarn::reserved";
        }
#ifdef UNNAMED_SLOT
    iface.slots[30].name = 0;
#endif
#ifndef NOT_ATTACHED
    descriptor.attached = 1;
#endif
#ifndef NO_CELL
    cell = &iface;
#endif
    descriptor.cell = &cell;
    registration[0] = 9;
#ifndef UNREGISTERED
    registration[12] = (uint64_t)&iface;
#endif
    _QuelSelistPushback_nlk(&context->interfaces, registration, 0, pass);
#ifdef ATTACH_FAILS
    return -1;
#else
    return 0;
#endif
}

#ifdef NO_SYMBOL
#define _G_quel_module not_a_module
#endif
extern KA_EXPORT QuelMODULE* const _G_quel_module;
#ifdef NULL_DESCRIPTOR
QuelMODULE* const _G_quel_module = 0;
#else
QuelMODULE* const _G_quel_module = &descriptor;
#endif

// A module of the interface with one operation, and one fault: what `tarn check` has to find.
#include <string.h>
#include <unistd.h>

#include "ipp/frame.h"
#include "kernels/base/runtime.h"
#include "tarn.h"

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

enum Fault {
    NONE,
    DESCRIPTOR,
    REGISTRATION,
    ATTACH_CRASHES,
    ATTACH_ONCE,
    VERSION,
    RESERVED_FUNCTION,
    CODES,
    INIT_ONCE,
    THREADS,
    LEVEL,
    OUTSIDE,
    KEEPS,
    UNCHECKED,
    IN_SILENCE,
    FLOATS
};
#ifndef FAULT
#define FAULT NONE
#endif

// Read by their symbols.
namespace tarn::k {
int active_level = 1;
const char* const kLevelNames[kLevelCount] = {"low", "high"};
}  // namespace tarn::k

#ifdef EXPORTS
extern "C" KA_EXPORT int helper(void);
int helper() { return 0; }
#endif

namespace tarn::ipp {
namespace {

int64_t init_once(const QuelCALL*, QuelERR*, KaSMEMSTG*) {
    static int calls, inside;
    if (FAULT == INIT_ONCE && ++calls > 1) return -1;
    if (FAULT == THREADS) {
        const bool alone = __atomic_add_fetch(&inside, 1, __ATOMIC_SEQ_CST) == 1;
        usleep(100);
        __atomic_sub_fetch(&inside, 1, __ATOMIC_SEQ_CST);
        return alone ? 0 : -1;
    }
    return 0;
}
int64_t fini_once(const QuelCALL*, QuelERR*, KaSMEMSTG*) { return 0; }

// Through a row in memory of its own.
int64_t copy(const QuelCALL*, QuelERR* err, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src) {
    const uint32_t kind = dst->elemtype >> 8 & 15, channels = dst->elemtype >> 12 & 15;
    if (kind < LUMO_KIND_U8 || kind > LUMO_KIND_F32 || src->width <= 0 || src->height <= 0) return 0;
    const size_t row = size_t(src->width) * channels * LumoELEMTYPEsizeof(dst->elemtype & 0xf00);
    KaSMEMSTG storage = {};
    KaSMEMSTGopen(&storage, nullptr, 0, err);
    void* block = KaSMEMSTGalloc(&storage, row, 0, err);
    if (!block && FAULT != UNCHECKED) {
        KaMEMSTGdestroy(&storage.base);
        return FAULT == IN_SILENCE ? 0 : -1;
    }
    for (int64_t y = 0; y < src->height; ++y) {
        memcpy(block, static_cast<const uint8_t*>(src->data) + y * src->stride, row);
        uint8_t* to = static_cast<uint8_t*>(dst->data) + y * dst->stride;
        memcpy(to, block, row);
        if (FAULT == LEVEL && k::active_level == 1 && src->width > 16) to[16] ^= 1;
        if (FAULT == OUTSIDE) to[row] = 0;
    }
#if defined(__x86_64__)
    if (FAULT == FLOATS) _mm_setcsr(_mm_getcsr() | 0x8000);
#endif
    if (FAULT != KEEPS) KaMEMSTGdestroy(&storage.base);
    return 0;
}

#define WITH(name, qualified, function, a, b) \
    {name, qualified, kSignature, reinterpret_cast<QuelENTRY>(function), a, b, 0},
#define SLOT(number, name, qualified, function, Type) \
    WITH(name, qualified,                             \
         (number == 0    ? (void*)init_once           \
          : number == 1  ? (void*)fini_once           \
          : number == 57 ? (void*)copy                \
                         : (void*)1),                 \
         number < 2 || number == 57 ? 0 : kInterfaceCode, number < 2 || number == 57 ? 0 : 0x606)
#define COMPANION(number, name, qualified) WITH(name, qualified, 1, kInterfaceCode, 0x606)
#define ABSENT(number, name, qualified) \
    WITH(name, qualified, 1, FAULT == CODES ? kInterfaceCode : 0x0001000300060003, 0)
#define NAMED(number, name, qualified) WITH(name, qualified, 0, 0, 0)
#define RESERVED(number)                               \
    WITH("reserved" #number, "tarn::reserved" #number, \
         FAULT == RESERVED_FUNCTION && number == 44 ? (void*)copy : nullptr, 0, 0)

QuelIFACE interface_record = {TARN_INTERFACE_HEAD,
                              {
#include "ipp/slots.def"
                              }};
QuelIFACE* interface_cell = nullptr;
Registration registration = registration_of(&interface_record, {});
const QuelDEPLIST* dependencies() { return &registration.dependencies; }

extern QuelMODULE module_descriptor;
int64_t attach(QuelMODCTX* context, void*, void*, void* pass) {
    if (FAULT == ATTACH_CRASHES) *static_cast<volatile int*>(nullptr) = 1;
    if (FAULT == ATTACH_ONCE && module_descriptor.attached) return 0;
    if (FAULT == REGISTRATION) registration.words1[9] = 0x0000060605e70003;
    if (FAULT == VERSION) interface_record.version = 0x0606;
    return attach_to(context, pass, module_descriptor, interface_cell, registration);
}
QuelMODULE module_descriptor =
    module_of(FAULT == DESCRIPTOR ? "modules/other" : "modules/wrong", "wrong", attach, dependencies);

}  // namespace
}  // namespace tarn::ipp

extern "C" KA_EXPORT QuelMODULE* const _G_quel_module;
QuelMODULE* const _G_quel_module = &tarn::ipp::module_descriptor;

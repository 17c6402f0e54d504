// The module's frame: the descriptor that the host finds, the interface record with its operation table, and the two
// hooks that tie them together. Layouts and values are the host's and are checked here at compile time; the records are
// writable, since the host keeps state of its own in their reserved areas.
#include "ipp/frame.h"

#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

#define ENTRY(function) reinterpret_cast<QuelENTRY>(function)
#define SLOT(number, name, qualified, function, Type) {name, qualified, kSignature, ENTRY(function), 0, 0, 0},
#define COMPANION(number, name, qualified) {name, qualified, kSignature, QUEL_ENTRY_DECLARED, kInterfaceCode, 0x606, 0},
#define ABSENT(number, name, qualified) {name, qualified, kSignature, QUEL_ENTRY_DECLARED, 0x0001000300060003, 0, 0},
#define NAMED(number, name, qualified) {name, qualified, kSignature, nullptr, 0, 0, 0},
#define RESERVED(number) {"reserved" #number, "tarn::reserved" #number, kSignature, nullptr, 0, 0, 0},

QuelIFACE interface_record = {TARN_INTERFACE_HEAD,
                              {
#include "ipp/slots.def"
                              }};

#undef ENTRY

// The rows of the table stand at their own numbers.
#define SLOT(number, ...) number,
#define OTHER(number, ...) number,
constexpr int kNumbers[] = {
#include "ipp/slots.def"
};
constexpr bool in_order() {
    for (int i = 0; i < QUEL_IFACE_SLOTS; ++i)
        if (kNumbers[i] != i) return false;
    return true;
}
static_assert(sizeof kNumbers == QUEL_IFACE_SLOTS * sizeof(int) && in_order(), "slots.def: one row per slot, in order");

// The interface cell: null until the module is attached.
QuelIFACE* interface_cell = nullptr;

constinit Registration registration = registration_of(&interface_record, {1, {"tarn-c"}});

const QuelDEPLIST* dependencies() { return &registration.dependencies; }

extern QuelMODULE module_descriptor;
int64_t attach(QuelMODCTX* context, void*, void*, void* pass) {
    return attach_to(context, pass, module_descriptor, interface_cell, registration);
}

constinit QuelMODULE module_descriptor = module_of("modules/tarn-ipp", "tarn-ipp", attach, dependencies);

}  // namespace

// Chooses the processor level. A level that can't be determined is level 0, never an error.
int64_t op_init_once(const QuelCALL*, QuelERR*, KaSMEMSTG*) {
    k::select_level();
    return 0;
}

int64_t op_fini_once(const QuelCALL*, QuelERR*, KaSMEMSTG*) { return 0; }

}  // namespace tarn::ipp

extern "C" KA_EXPORT QuelMODULE* const _G_quel_module;
QuelMODULE* const _G_quel_module = &tarn::ipp::module_descriptor;

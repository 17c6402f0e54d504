// The companion module's frame: a module like tarn-ipp, of the same interface. It has the operations that tarn-ipp
// declares and leaves to it, and declares the others.
#include "ipp/frame.h"

#include "tarn-c/operations.h"

namespace tarn::ipp {
namespace {

int64_t init_once(const QuelCALL*, QuelERR*, KaSMEMSTG*) {
    k::select_level();
    return 0;
}
int64_t fini_once(const QuelCALL*, QuelERR*, KaSMEMSTG*) { return 0; }

// The entries of the slots that both modules have.
template <int kNumber>
constexpr TarnOnce kOnce = nullptr;
template <>
constexpr TarnOnce kOnce<0> = init_once;
template <>
constexpr TarnOnce kOnce<1> = fini_once;

#define ENTRY(function) reinterpret_cast<QuelENTRY>(function)
#define SLOT(number, name, qualified, function, Type) \
    {name, qualified, kSignature, kOnce<number> ? ENTRY(kOnce<number>) : QUEL_ENTRY_DECLARED, 0, 0, 0},
#define SERVED(number, name, qualified, function, Type) {name, qualified, kSignature, ENTRY(function), 0, 0, 0},
#define COMPANION(number, name, qualified) {name, qualified, kSignature, QUEL_ENTRY_DECLARED, 0, 0, 0},
#define ABSENT COMPANION
#define NAMED(number, name, qualified) {name, qualified, kSignature, nullptr, 0, 0, 0},
#define RESERVED(number) {"reserved" #number, "tarn::reserved" #number, kSignature, nullptr, 0, 0, 0},

QuelIFACE interface_record = {TARN_INTERFACE_HEAD,
                              {
#include "ipp/slots.def"
                              }};

QuelIFACE* interface_cell = nullptr;

constinit Registration registration = registration_of(&interface_record, {});

const QuelDEPLIST* dependencies() { return &registration.dependencies; }

extern QuelMODULE module_descriptor;
int64_t attach(QuelMODCTX* context, void*, void*, void* pass) {
    return attach_to(context, pass, module_descriptor, interface_cell, registration);
}

constinit QuelMODULE module_descriptor = module_of("modules/tarn-c", "tarn-c", attach, dependencies);

}  // namespace
}  // namespace tarn::ipp

extern "C" KA_EXPORT QuelMODULE* const _G_quel_module;
QuelMODULE* const _G_quel_module = &tarn::ipp::module_descriptor;

// The module's frame: the descriptor that the host finds, the interface record with its operation table, and the two
// hooks that tie them together. Layouts and values are the host's and are checked here at compile time; the records are
// writable, since the host keeps state of its own in their reserved areas.
#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

constexpr uint64_t kFormat = 0x0000000002040000;
constexpr char kModuleName[] = "tarn-ipp";
constexpr char kCompanionName[] = "tarn-c";
constexpr char kSignature[] = "P,P";

#define ENTRY(function) reinterpret_cast<QuelENTRY>(function)
#define SLOT(number, name, qualified, function, Type) {name, qualified, kSignature, ENTRY(function), 0, 0, 0},
#define LATER(number, name, qualified) {name, qualified, kSignature, ENTRY(op_later), 0, 0, 0},
#define COMPANION(number, name, qualified) \
    {name, qualified, kSignature, QUEL_ENTRY_DECLARED, 0x05e70003ffff0003, 0x606, 0},
#define ABSENT(number, name, qualified) {name, qualified, kSignature, QUEL_ENTRY_DECLARED, 0x0001000300060003, 0, 0},
#define NAMED(number, name, qualified) {name, qualified, kSignature, nullptr, 0, 0, 0},
#define RESERVED(number) {"reserved" #number, "tarn::reserved" #number, kSignature, nullptr, 0, 0, 0},

QuelIFACE interface_record = {{},                         // host
                              kFormat,                    //
                              "operations/tarn/Tarnipp",  //
                              "tarn/Tarnipp",             //
                              "tarn",                     //
                              0x05e70003ffff0003,         // packed code
                              0x0607,                     // version
                              {},                         //
                              QUEL_IFACE_SLOTS,           //
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

// What the attach function hands to the host's list, and the dependency list right behind it.
struct {
    uint64_t words1[12];
    QuelIFACE* interface;
    uint64_t words2[25];
    QuelDEPLIST dependencies;
} registration = {{9, 0, 0, 0, 0, 0, 0, 3, 0xffff000300000008, 0x0000060705e70003, 0, 0},
                  &interface_record,
                  {0, 0, 0, 0xffff000300000008, 0x0000000803ee0003, 0, 0, 1, 0x03ee0003ffff0003, 8, 0,
                   0xffff000300000008, 0x0000000503ed0003, 0, 0x1e0, 1, 0x03ed0003ffff0003, 5},
                  {1, {kCompanionName}}};

extern QuelMODULE module_descriptor;

int64_t attach(QuelMODCTX* context, void*, void*, void* pass) {
    module_descriptor.attached = 1;
    interface_cell = &interface_record;
    module_descriptor.cell = &interface_cell;
    _QuelSelistPushback_nlk(&context->interfaces, &registration, 0, pass);
    return 0;  // deliberate: whether the host could take the entry is the host's to know
}

const QuelDEPLIST* dependencies() { return &registration.dependencies; }

QuelMODULE module_descriptor = {{},                  // host
                                kFormat,             //
                                "modules/tarn-ipp",  //
                                kModuleName,         //
                                kModuleName,         //
                                0x05ec0005ffff0002,  // type code
                                {},                  //
                                attach,              //
                                {},                  //
                                kModuleName,         //
                                {},                  //
                                dependencies,        //
                                0,                   // attached
                                nullptr,             // cell
                                {},                  //
                                1,                   //
                                "Jan 16 2026"};

static_assert(sizeof(QuelSLOT) == 56 && offsetof(QuelIFACE, format) == 0x40 &&
              offsetof(QuelIFACE, slot_count) == 0xb8 && offsetof(QuelIFACE, slots) == 0xc0);
static_assert(sizeof(QuelMODULE) == 0x1f0 && offsetof(QuelMODULE, attach) == 0x98 &&
              offsetof(QuelMODULE, name3) == 0x188 && offsetof(QuelMODULE, dependencies) == 0x1b8 &&
              offsetof(QuelMODULE, attached) == 0x1c0 && offsetof(QuelMODULE, cell) == 0x1c8 &&
              offsetof(QuelMODULE, one) == 0x1e0);
static_assert(offsetof(QuelCALL, iface) == 24 && offsetof(QuelCALL, slot) == 32);

}  // namespace

// Chooses the processor level. A level that can't be determined is level 0, never an error.
int64_t op_init_once(const QuelCALL*, QuelERR*, KaSMEMSTG*) {
    k::select_level();
    return 0;
}

int64_t op_fini_once(const QuelCALL*, QuelERR*, KaSMEMSTG*) { return 0; }

int64_t op_later(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage) {
    return report(Context(call, err, storage), k::kNoKernel);
}

}  // namespace tarn::ipp

extern "C" KA_EXPORT QuelMODULE* const _G_quel_module;
QuelMODULE* const _G_quel_module = &tarn::ipp::module_descriptor;

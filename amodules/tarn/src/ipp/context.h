// One call of an operation: its record, where errors go, what pays for scratch memory. Statuses become error values
// here, and siblings are called from here.
#pragma once

#include "ipp/tables.h"
#include "kernels/base/runtime.h"
#include "tarn.h"

namespace tarn::ipp {

// ---- Storage ------------------------------------------------------------------------------------------------------

// A storage that dies with its scope, once it has been opened.
struct ScopedStorage {
    ScopedStorage() = default;
    ~ScopedStorage() {
        if (opened) KaMEMSTGdestroy(&record.base);
    }
    ScopedStorage(const ScopedStorage&) = delete;
    ScopedStorage& operator=(const ScopedStorage&) = delete;

    // Opens the storage, on another or with null on the heap. Null when that fails.
    KaSMEMSTG* open(KaSMEMSTG* parent, uint64_t piece, QuelERR* err) {
        opened = KaSMEMSTGopen(&record, parent, piece, err) != nullptr;
        return opened ? &record : nullptr;
    }

    KaSMEMSTG record = {};
    bool opened = false;
};

// A call. Scratch memory comes from the caller's storage, or from one of the call's own that is opened when first
// needed.
struct Context {
    Context(const QuelCALL* call, QuelERR* err, KaSMEMSTG* given) : call(call), err(err), payer(given) {}

    // The storage to allocate from; null when none could be opened.
    KaSMEMSTG* storage();
    // Scratch memory for kernels, from the same storage.
    k::Allocator allocator();

    const QuelCALL* call;
    QuelERR* err;
    KaSMEMSTG* payer;
    ScopedStorage own;
};

// A matrix in a call's scratch memory, given back on every path: to the caller's storage; the call's own dies as a
// whole.
struct Temporary {
    Temporary() = default;
    ~Temporary() {
        if (mat.data && storage) _LumoARRfree(&mat, storage);
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    // Makes the matrix, its rows without gaps. False when there is no memory, or a row has more than 2^31 - 1 bytes.
    bool make(Context& context, LumoELEMTYPE type, k::Size size);

    LumoMAT mat = {};
    KaSMEMSTG* storage = nullptr;  // the caller's, when the matrix is in it
};

// ---- Results ------------------------------------------------------------------------------------------------------

// The status of an operation that could not make a temporary.
inline constexpr k::Status kNoTemporary = -1000;

inline constexpr char kTextTypes[] = "@src(.elem-type, .nchannels) -> @dst(.elem-type, .nchannels)";

// Turns a status into the operation's result: 0 for kOk, else -1. kNoMemory makes the out-of-memory error value, any
// other status the type error value that names the arguments in text; kNoTemporary makes none, but the error context's
// status word gets the interface code in bits 16 to 31 beside the low half that the host has set.
int64_t report(const Context& context, k::Status status, const char* text = kTextTypes);

// Makes an error value of message form `form` (3 or 6) with the operation's names and an argument text; returns -1.
int64_t refuse(const Context& context, uint32_t code, uint32_t cls, uint32_t form, const char* text);

// Makes an error value of a printf text and its values; returns -1.
uint32_t interface_code(const QuelCALL* call);
template <class... Values>
int64_t refuse_text(const Context& context, uint32_t code, uint32_t cls, const char* format, Values... values) {
    QuelMkerr_u(context.err, 0, 0, 0, interface_code(context.call), code, cls, format, values...);
    return -1;
}

// Ends the process after a line in the log: the operation has no kernel for the type and no error value to say so.
[[noreturn]] void unsupported(const QuelCALL* call, LumoELEMTYPE type);

// The kernel for a type; the process ends when there is none.
template <class Fn>
const k::Kernel<Fn>& kernel_for(const QuelCALL* call, const TypeMap& map, const k::KernelSet<Fn>& set,
                                LumoELEMTYPE type) {
    const auto* kernel = map.find(set, type);
    if (!kernel) unsupported(call, type);
    return *kernel;
}

// ---- Siblings -----------------------------------------------------------------------------------------------------

// A slot of the operation table and the type of the operation in it. Those of this module: operations.h.
template <class Fn>
struct Slot {
    int number;
};

// Makes the error value of a table that has no function in the sibling's slot.
void refuse_unserved(const Context& context, const QuelSLOT& sibling);

// What an operation returns that failed: -1, or no number.
template <class T>
constexpr T kFailed = T(-1);
template <>
inline constexpr float kFailed<float> = __builtin_nanf("");

// Calls another operation through the table that this call came by, with this call's record, errors and storage. A host
// that routes declared slots has put functions there; other tables hold this module's own marks.
template <class Fn, class... Args>
auto call_sibling(Context& context, Slot<Fn> slot, Args... args) {
    const QuelSLOT& sibling = context.call->iface->slots[slot.number];
    const auto operation = reinterpret_cast<Fn>(sibling.entry);
    using Result = decltype(operation(context.call, context.err, context.storage(), args...));
    if (!sibling.entry || sibling.entry == QUEL_ENTRY_DECLARED) {
        refuse_unserved(context, sibling);
        return kFailed<Result>;
    }
    return operation(context.call, context.err, context.storage(), args...);
}

// ---- Float unit ---------------------------------------------------------------------------------------------------

// Operations on floats run with the default state of the float unit, whatever the caller's thread has set.
struct FloatState {
    FloatState() : saved(k::set_float_state()) {}
    ~FloatState() { k::restore_float_state(saved); }
    FloatState(const FloatState&) = delete;
    FloatState& operator=(const FloatState&) = delete;
    uint32_t saved;
};

}  // namespace tarn::ipp

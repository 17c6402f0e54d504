// What operations share: fields of the type word, the kernel size with its halving for two channels, statuses turned
// into error values, and the guard of a call's own storage.
#pragma once

#include "kernels/base/kernel.h"
#include "kernels/base/runtime.h"
#include "tarn.h"

// ---- The type word ------------------------------------------------------------------------------------------------

// Element kind: 1 u8, 2 s16, 3 s32, 4 u32, 5 f32.
constexpr int kind_of(LumoELEMTYPE type) { return int(type >> 8 & 15); }
constexpr int channels_of(LumoELEMTYPE type) { return int(type >> 12 & 15); }
// Kind and channel count in one number, 0x101 to 0x504, for operations that choose with a switch.
constexpr int key_of(LumoELEMTYPE type) { return int(type & 0xf00) | channels_of(type); }
// Channel form: the channel count, except that four channels, whose kernels leave the fourth alone, are form 5. Any
// other count is form 0, which no table serves.
constexpr int form_of(LumoELEMTYPE type) {
    const int channels = channels_of(type);
    return channels == 4 ? 5 : channels < 4 ? channels : 0;
}
// Bytes of one element of a kind; 0 where there is none. Kind 4 has none here, deliberately: only copies serve it.
constexpr int element_bytes(int kind) {
    constexpr int kBytes[] = {0, 1, 2, 4, 0, 4, 8};
    return kind >= 0 && kind <= 6 ? kBytes[kind] : 0;
}
// Channels as the pixel's size counts them: codes 1 to 7 as they stand, 8 for one.
constexpr int size_channels(LumoELEMTYPE type) { return (channels_of(type) & 7) + (channels_of(type) >> 3); }

// Two-channel rows are processed as rows of four-element pixels of half the width, truncated: an odd last pixel is
// left, deliberately.
constexpr int32_t kernel_width(int32_t width, LumoELEMTYPE type) { return channels_of(type) == 2 ? width / 2 : width; }
constexpr tarn::k::Size kernel_size(const LumoMAT& mat, LumoELEMTYPE type) {
    return {kernel_width(mat.width, type), mat.height};
}

// Address of pixel (x, y), in 64 bits.
inline uint8_t* pixel_at(const LumoMAT& mat, int64_t x, int64_t y, int64_t pixel_bytes) {
    return static_cast<uint8_t*>(mat.data) + y * mat.stride + x * pixel_bytes;
}

// ---- Kernel tables ------------------------------------------------------------------------------------------------

// Rows: element kinds 1 to 5. Columns: 1, 2, 3 channels, a copy of the second that no rule selects, 4 channels.
template <class Fn>
struct KernelTable {
    const tarn::k::Kernel<Fn>* cells[5][5];

    // Null where the combination is not supported.
    constexpr const tarn::k::Kernel<Fn>* find(int kind, int form) const {
        if (kind < 1 || kind > 5 || form < 1 || form > 5) return nullptr;
        return cells[kind - 1][form - 1];
    }
    constexpr const tarn::k::Kernel<Fn>* find(LumoELEMTYPE type) const { return find(kind_of(type), form_of(type)); }
};

// ---- Errors -------------------------------------------------------------------------------------------------------

inline constexpr char kTextTypes[] = "@src(.elem-type, .nchannels) -> @dst(.elem-type, .nchannels)";

// Turns a kernel's status into the operation's result: 0 for status 0; otherwise makes the out-of-memory error value
// (status -4) or the type error value that names the arguments in text (any other status), and returns -1.
int64_t report(const QuelCALL* call, QuelERR* err, tarn::k::Status status, const char* text);

// Makes an error value of message form `form` (3 or 6) with the operation's names and an argument text; returns -1.
int64_t refuse(const QuelCALL* call, QuelERR* err, uint32_t code, uint32_t cls, uint32_t form, const char* text);

// A temporary could not be made: no error value, but the error context's status word gets the interface code in bits 16
// to 31 beside the low half that the host has set. Returns -1.
int64_t mark_failed(const QuelCALL* call, QuelERR* err);

// Ends the process after a line in the log: the operation has no kernel for the type and no error value to say so.
[[noreturn]] void unsupported(const QuelCALL* call, LumoELEMTYPE type);

// ---- Storage ------------------------------------------------------------------------------------------------------

// The scratch storage of a call: the caller's, or one of its own that is opened when first needed and destroyed on
// every path.
struct Storage {
    explicit Storage(KaSMEMSTG* given) : caller(given) {}
    ~Storage() {
        if (opened) KaMEMSTGdestroy(&own.base);
    }
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;

    // The storage to allocate from; null when none could be opened.
    KaSMEMSTG* get(QuelERR* err);
    bool callers() const { return caller != nullptr; }

    KaSMEMSTG* caller;
    KaSMEMSTG own = {};
    bool opened = false;
};

// Kernel scratch memory from a storage.
tarn::k::Allocator kernel_allocator(KaSMEMSTG* storage);

// ---- Float unit ---------------------------------------------------------------------------------------------------

// Operations on floats run with the default state of the float unit, whatever the caller's thread has set.
struct FloatState {
    FloatState() : saved(tarn::k::set_float_state()) {}
    ~FloatState() { tarn::k::restore_float_state(saved); }
    FloatState(const FloatState&) = delete;
    FloatState& operator=(const FloatState&) = delete;
    uint32_t saved;
};

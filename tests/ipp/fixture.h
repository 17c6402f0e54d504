// Operations as a user calls them: the module loaded by the reference host, arrays with guarded padding.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "ka/test.h"
#include "quel/host.h"
#include "tarn.h"

namespace tarn::test {

// The host with the module loaded; one for the process.
QuelHOST* host();

// An operation by name, ready to be called.
QuelOP find(const char* name);

// Calls an operation: call<TarnCopy>("copy", err, storage, &dst, &src).
template <class Fn, class... Args>
int64_t call(const char* name, QuelERR* err, KaSMEMSTG* storage, Args... args) {
    QuelOP op = find(name);
    return reinterpret_cast<Fn>(op.entry)(&op.call, err, storage, args...);
}

// The same without an error context and a storage.
template <class Fn, class... Args>
int64_t run(const char* name, Args... args) {
    return call<Fn>(name, nullptr, nullptr, args...);
}

// A storage, open while it lives.
struct Storage : KaSMEMSTG {
    Storage() { KaSMEMSTGopen(this, nullptr, 0, nullptr); }
    ~Storage() { KaMEMSTGdestroy(&base); }
    Storage(const Storage&) = delete;
};

// An array with its memory: `padding` bytes behind each row, optionally upwards (negative stride). Padding and
// surroundings hold 0xa5 and are checked by intact().
struct Array {
    Array(LumoELEMTYPE type, int width, int height, int padding = 0, bool upwards = false);
    Array(const Array& other);
    Array(Array&&) = default;
    LumoMAT* operator&() { return &mat; }
    const LumoMAT* operator&() const { return &mat; }
    template <class T>
    T* row(int y) const {
        return reinterpret_cast<T*>(static_cast<uint8_t*>(mat.data) + int64_t(y) * mat.stride);
    }
    template <class T>
    T& at(int x, int y, int c = 0) const {
        return row<T>(y)[x * channels + c];
    }
    // Random bytes (floats: -1000..1000) from a seed.
    void fill(unsigned seed);
    Array filled(unsigned seed) && { return fill(seed), std::move(*this); }
    // Every element to one value.
    template <class T>
    void set(T value) {
        for (int y = 0; y < mat.height; ++y)
            for (int x = 0; x < mat.width * channels; ++x) row<T>(y)[x] = value;
    }
    // True when nothing outside of the pixels was written.
    bool intact() const;
    // True when both have the same pixels, bit for bit.
    bool same_pixels(const Array& other) const;
    // The pixels, packed.
    std::vector<uint8_t> pixels() const;

    LumoMAT mat = {};
    int channels, element_bytes;
    std::vector<uint8_t> memory;
};

// What "tarn::initmorphstate" reads of a region.
LumoARRAY region_of(LumoELEMTYPE type, int32_t width, int32_t height);

// A random destination and source, differently laid out, and what the destination was.
struct Operands {
    explicit Operands(LumoELEMTYPE type) : Operands(type, type) {}
    Operands(LumoELEMTYPE to, LumoELEMTYPE from, bool upwards = true)
        : dst(Array(to, 5, 3, 7, upwards).filled(1)), src(Array(from, 5, 3, 1, !upwards).filled(2)), before(dst) {}
    Array dst, src, before;
};

inline LumoELEMTYPE u8(int channels) { return LUMO_U8 | LUMO_CHANNELS(channels); }
inline LumoELEMTYPE s16(int channels) { return LUMO_S16 | LUMO_CHANNELS(channels); }
inline LumoELEMTYPE s32(int channels) { return LUMO_S32 | LUMO_CHANNELS(channels); }
inline LumoELEMTYPE u32(int channels) { return LUMO_U32 | LUMO_CHANNELS(channels); }
inline LumoELEMTYPE f32(int channels) { return LUMO_F32 | LUMO_CHANNELS(channels); }

// "s16 x 3".
std::string show(LumoELEMTYPE type);

// What becomes of a number in an element of a kind: rounded and saturated; its low bits.
double fit(LumoELEMTYPE type, double value);
double wrapped(LumoELEMTYPE type, int64_t value);

// One element of any kind as a number; put() stores what fits.
double get(const LumoMAT* m, int x, int y, int c = 0);
void put(const LumoMAT* m, int x, int y, int c, double value);
void put_all(const LumoMAT* m, double value);

// Expects value(x, y, channel) as it fits, to the tolerance, everywhere but in what stays: the fourth of four channels,
// the odd last pixel of two.
template <class Fn>
void expect_pixels(const Array& got, const Array& before, Fn value, double tolerance = 0, bool fourth_stays = true) {
    const int width = got.channels == 2 ? got.mat.width / 2 * 2 : got.mat.width;
    for (int y = 0; y < got.mat.height; ++y)
        for (int x = 0; x < got.mat.width; ++x)
            for (int c = 0; c < got.channels; ++c) {
                const bool stays = (c == 3 && fourth_stays) || x >= width;
                const double want = stays ? get(&before, x, y, c) : fit(got.mat.elemtype, value(x, y, c));
                ASSERT_NEAR(get(&got, x, y, c), want, stays ? 0 : tolerance)
                    << show(got.mat.elemtype) << " at " << x << ", " << y << ", channel " << c;
            }
    EXPECT_TRUE(got.intact());
}

// body(type) for each kind with each number of channels.
template <class Fn>
void each_type(std::initializer_list<LumoELEMTYPE> kinds, std::initializer_list<int> channels, Fn body) {
    for (const LumoELEMTYPE kind : kinds)
        for (const int n : channels) {
            SCOPED_TRACE(show(kind | LUMO_CHANNELS(n)));
            body(kind | LUMO_CHANNELS(n));
        }
}

// What errors say of a source and a destination whose types do not go together.
inline constexpr char kTypesOfBoth[] = "@src(.elem-type, .nchannels) -> @dst(.elem-type, .nchannels)";

// Expects that an operation made one error value with these codes, naming this text, and returned -1.
void expect_error(int64_t result, const QuelERR& err, uint32_t code, uint32_t cls, const std::string& text);

// Expects that run(error context) refuses its arrays for their types or sizes with this text, and leaves all bytes of
// dst.
template <class Run>
void expect_refused(const Array& dst, const char* text, Run run) {
    const std::vector<uint8_t> before = dst.memory;
    QuelERR err = {};
    expect_error(run(&err), err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, text);
    EXPECT_EQ(dst.memory, before);
}

// Expects that memory was out: told by an error value of this operation, or, of a temporary (true), by the status
// alone.
bool out_of_memory_of_a_temporary(int64_t result, const QuelERR& err, const char* operation);

// Expects of run(destination) the same pixels whatever the caller's rounding mode is, and that the mode stays.
void expect_rounding_of_its_own(const Array& dst, const std::function<int64_t(LumoMAT*)>& run);

// Runs body (which makes one call and returns its result) with the first, second, ... allocation failing, until none is
// left to fail. check(result) is called for every failed one. Expects that nothing stays allocated. Returns how many
// allocations there were to fail.
template <class Body, class CheckFn>
int each_allocation_failing(Body body, CheckFn check) {
    const KaTESTLIVE before = KaTESTlive();
    for (int n = 1;; ++n) {
        KaTESTfailnth(uint64_t(n));
        const int64_t result = body();
        const uint64_t made = KaTESTfailnth(0);
        const KaTESTLIVE after = KaTESTlive();
        EXPECT_EQ(after.storages, before.storages) << "allocation " << n << " failing";
        EXPECT_EQ(after.blocks, before.blocks) << "allocation " << n << " failing";
        EXPECT_EQ(after.bytes, before.bytes) << "allocation " << n << " failing";
        if (made < uint64_t(n)) return n - 1;
        check(result);
        if (n > 10000) {
            ADD_FAILURE() << "too many allocations";
            return n;
        }
    }
}

// Runs body(error context) with each allocation failing, as above; each must give an out-of-memory error of this
// operation and leave all bytes of dst.
template <class Body>
int each_allocation_reported(const std::string& operation, Array& dst, Body body) {
    const std::vector<uint8_t> before = dst.memory;
    QuelERR err;
    const auto once = [&] {
        err = {};
        dst.memory.assign(before.begin(), before.end());
        return body(&err);
    };
    return each_allocation_failing(once, [&](int64_t result) {
        expect_error(result, err, QUEL_E_NOMEM, QUEL_C_NOMEM, operation);
        EXPECT_EQ(dst.memory, before);
    });
}

}  // namespace tarn::test

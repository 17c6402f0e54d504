// For the warp sources only: the source positions of a run of destination pixels, many at a time.
//
// A position in double plus 1.5 x 2^20 has a last place of 2^-32: the sum's upper 32 bits are then the whole part and a
// constant, its lower ones the fraction. Whole parts are counted from a corner of the source near the run, so that this
// holds for planes of any size and what a run's pixels are away from the corner fits 32 bits.
#pragma once

#include "kernels/simd/simd.h"
#include "kernels/warp/job.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr double kMagic = 0x1.8p20;
constexpr uint32_t kMagicUpper = 0x41380000;

// Columns that are worked on at a time at most.
constexpr int64_t kMostColumns = 256;

// The products of a strip's columns with the axes' steps, in the order that makes even32 and odd32 of two vectors of
// positions elements in order.
struct Columns {
    alignas(64) double x[kMostColumns], y[kMostColumns];

    void fill(const Job& j, int64_t first, int64_t count) {
        constexpr int kHalf = kLanes<double>;
        F64 order[2];
        for (int i = 0; i < 2 * kHalf; ++i) order[i % 4 / 2][i / 4 * 2 + i % 2] = i;
        for (int64_t i = 0; i < count; i += 2 * kHalf)
            for (int half = 0; half < 2; ++half) {
                const F64 column = splat(double(first + i)) + order[half];
                store(x + i + half * kHalf, splat(j.x.step) * column);
                store(y + i + half * kHalf, splat(j.y.step) * column);
            }
    }
};

// Of a run's pixels, by their places in the strip: how many bytes the pixel with the position's whole parts is from the
// corner, and the fractions in 32 bits. What lies around them is written to as well.
struct Points {
    static constexpr int64_t kRoom = kMostColumns + 2 * kLanes<float>;
    alignas(64) int32_t at_[kRoom];
    alignas(64) uint32_t x_[kRoom], y_[kRoom];
    int32_t* at() { return at_ + kLanes<float>; }
    uint32_t* x() { return x_; }
    uint32_t* y() { return y_; }

    // Gives the elements beside [from, to) in its first and last vector the addresses of neighbours.
    void close(int64_t from, int64_t to) {
        store(at() + from - kLanes<float>, splat(at()[from]));
        store(at() + to, splat(at()[to - 1]));
    }
};

// A pixel of the source, as whole parts are counted from it.
struct Corner {
    int64_t x, y;
};

// What is added to positions: they become fixed-point numbers from the corner, rounded to a weight's last place (or to
// the nearest pixel) by the bias.
struct Frame {
    double vx, vy, x, y;
    Frame(const Job& j, int64_t line, Corner corner, double bias_x, double bias_y)
        : vx(j.x.offset(line)),
          vy(j.y.offset(line)),
          x(kMagic + (bias_x - double(corner.x))),
          y(kMagic + (bias_y - double(corner.y))) {}
    // The whole parts of a column's position.
    Corner whole(const Job& j, int64_t column) const {
        const auto upper = [](double v) {
            return int32_t(uint32_t(__builtin_bit_cast(uint64_t, v) >> 32) - kMagicUpper);
        };
        return {upper(j.x.at(column, vx) + x), upper(j.y.at(column, vy) + y)};
    }
};

// The points of the whole vectors around places [from, to) of a strip.
template <int kPixel, bool kFractions>
[[gnu::noinline]] void find_points(const Columns& c, int64_t from, int64_t to, const Frame& f, int32_t stride,
                                   Points& p) {
    constexpr int kStep = kLanes<float>, kHalf = kLanes<double>;
    const F64 vx = splat(f.vx), vy = splat(f.vy), fx = splat(f.x), fy = splat(f.y);
    const U32 line = splat(uint32_t(stride)), pixel = splat(uint32_t(kPixel));
    const U32 magic = splat(kMagicUpper * uint32_t(stride) + kMagicUpper * uint32_t(kPixel));
    for (int64_t i = from & -kStep; i < to; i += kStep) {
        const F64 xa = (load<F64>(c.x + i) + vx) + fx, xb = (load<F64>(c.x + i + kHalf) + vx) + fx;
        const F64 ya = (load<F64>(c.y + i) + vy) + fy, yb = (load<F64>(c.y + i + kHalf) + vy) + fy;
        const U32 x = (U32)odd32((Bytes)xa, (Bytes)xb), y = (U32)odd32((Bytes)ya, (Bytes)yb);
        store(p.at() + i, y * line + x * pixel - magic);
        if constexpr (kFractions) {
            store(p.x() + i, even32((Bytes)xa, (Bytes)xb));
            store(p.y() + i, even32((Bytes)ya, (Bytes)yb));
        }
    }
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

// The matrix product of a fully connected layer. Samples and weights both run along k, so an output is a dot product of
// two rows. Its order of summation is fixed: sixteen lanes, each a chain of fused multiply-adds, then one tree. A
// lane's chain does not depend on the tile that an output is computed in, which gives a sample the same bits alone and
// in any batch, and on every processor.
//
// A tile is four samples by six neurons, or by the last four; or one sample by sixteen neurons. The neurons' weights
// stay in the first-level cache while a group of samples passes by, the group in the second while all neurons do.
#include "kernels/net/net.h"

#include "kernels/net/sixteen.h"
#include "kernels/plane/plane.h"
#include "kernels/simd/fused.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Samples whose lanes are in registers at a time. With half as many neurons again there are enough chains for the
// latency of the multiply-add, and more multiply-adds than loads.
constexpr int kRowsAtOnce = kLanes<float> / 4;
constexpr int kSingle = 16, kWide = 6, kNarrow = 4;  // neurons of a tile

// Lanes 8 apart added, then 4 apart, until a vector is left.
inline F32 fold(F32x16 s) {
    for (int half = kVectors / 2; half > 0; half /= 2)
        for (int i = 0; i < half; ++i) s.v[i] += s.v[i + half];
    return s.v[0];
}

// Rows of elements along k: where each begins, and sixteen floats of each, its elements beyond the last whole sixteen
// and zeros behind them.
struct Operand {
    const float* const* whole;
    const float* rest;
};

// Where among a tile's outputs the one of a row and a neuron stands. Of six neurons the first four of each row, then
// the last two of each: what is stored as one piece then never lies in two vectors.
template <int kRows, int kPerRow>
constexpr int place(int r, int n) {
    if (kPerRow != kWide) return r * kPerRow + n;
    return n < 4 ? r * 4 + n : kRows * 4 + r * (kWide - 4) + n - 4;
}

// The sums of kRows x kNeurons outputs over k elements, folded to a vector each, into acc[at(row, neuron)].
template <int kRows, int kNeurons, class At>
inline void accumulate(Operand x, Operand w, int64_t k, F32* acc, At at) {
    F32 s[kVectors][kRows][kNeurons];
#pragma GCC unroll 4
    for (int v = 0; v < kVectors; ++v)
#pragma GCC unroll 4
        for (int r = 0; r < kRows; ++r)
#pragma GCC unroll 8
            for (int n = 0; n < kNeurons; ++n) s[v][r][n] = F32{};
    // A vector of the sixteen at a time: all of them would need more registers than there are.
    const auto step = [&](auto get) __attribute__((always_inline)) {
#pragma GCC unroll 4
        for (int v = 0; v < kVectors; ++v) {
            F32 xs[kRows];
#pragma GCC unroll 4
            for (int r = 0; r < kRows; ++r) xs[r] = get(x, r, v);
#pragma GCC unroll 8
            for (int n = 0; n < kNeurons; ++n) {
                const F32 ws = in_register(get(w, n, v));
#pragma GCC unroll 4
                for (int r = 0; r < kRows; ++r) s[v][r][n] = mul_add(xs[r], ws, s[v][r][n]);
            }
        }
    };
    for (int64_t i = 0; i + 16 <= k; i += 16)
        step([i](Operand rows, int r, int v) { return load<F32>(rows.whole[r] + i + v * kLanes<float>); });
    if (k % 16) step([](Operand rows, int r, int v) { return load<F32>(rows.rest + r * 16 + v * kLanes<float>); });
#pragma GCC unroll 4
    for (int r = 0; r < kRows; ++r)
#pragma GCC unroll 8
        for (int n = 0; n < kNeurons; ++n) {
            F32x16 sum;
#pragma GCC unroll 4
            for (int v = 0; v < kVectors; ++v) sum.v[v] = s[v][r][n];
            acc[at(r, n)] = fold(sum);
        }
}

// The biases of a tile's outputs, the first `neurons` of each row. None: -0, which changes no sum.
template <int kRows, int kPerRow>
constexpr int kOutputs = (kRows * kPerRow + kLanes<float> - 1) / kLanes<float>* kLanes<float>;  // whole vectors of them
template <int kRows, int kPerRow>
struct Biases {
    float of[kOutputs<kRows, kPerRow>];
    Biases(const float* bias, int64_t neurons) {
        for (float& b : of) b = -0.0f;
        for (int r = 0; r < kRows && bias; ++r)
            for (int n = 0; n < neurons; ++n) memcpy(of + place<kRows, kPerRow>(r, n), bias + n, sizeof(float));
    }
};

// Sums each output's lanes, adds the bias and stores the outputs of a tile: `rows` rows, the first `neurons` of each.
template <int kRows, int kPerRow>
inline void finish(const F32* acc, const Biases<kRows, kPerRow>& biases, float* const* y, int rows, int64_t neurons) {
    constexpr int kWidth = kLanes<float>, kAll = kOutputs<kRows, kPerRow>;
    float all[kAll];
    for (int i = 0; i < kAll; i += kWidth) {
        F32 lanes[kWidth];
        for (int j = 0; j < kWidth; ++j) lanes[j] = acc[i + j];
        store(all + i, settle_nan(sums_of_each(lanes) + load<F32>(biases.of + i)));
    }
    for (int r = 0; r < rows; ++r)
        if (neurons == kPerRow) {
            constexpr int kFirst = kPerRow == kWide ? 4 : kPerRow;
            memcpy(y[r], all + place<kRows, kPerRow>(r, 0), kFirst * sizeof(float));
            memcpy(y[r] + kFirst, all + place<kRows, kPerRow>(r, kFirst), (kPerRow - kFirst) * sizeof(float));
        } else {
            for (int n = 0; n < neurons; ++n) memcpy(y[r] + n, all + place<kRows, kPerRow>(r, n), sizeof(float));
        }
}

// A tile of kRows samples by kPerRow neurons. x, w and y hold an address for each of its rows; those beyond `rows` and
// `neurons` repeat another one and are not stored. Not inlined: its loops need all the registers.
template <int kRows, int kPerRow>
[[gnu::noinline]] void tile(Operand x, Operand w, const Biases<kRows, kPerRow>& biases, float* const* y, int64_t column,
                            int64_t k, int rows, int64_t neurons) {
    constexpr int kStepRows = min(kRows, kRowsAtOnce), kStepNeurons = kRows == 1         ? kRowsAtOnce * 2
                                                                      : kPerRow == kWide ? kRowsAtOnce * 3 / 2
                                                                                         : kRowsAtOnce;
    F32 acc[kOutputs<kRows, kPerRow>];
    for (int i = kRows * kPerRow; i < kOutputs<kRows, kPerRow>; ++i) acc[i] = F32{};
#pragma GCC unroll 4
    for (int r = 0; r < kRows; r += kStepRows)
#pragma GCC unroll 4
        for (int n = 0; n < kPerRow; n += kStepNeurons)
            accumulate<kStepRows, kStepNeurons>({x.whole + r, x.rest + r * 16}, {w.whole + n, w.rest + n * 16}, k, acc,
                                                [&](int dr, int dn) { return place<kRows, kPerRow>(r + dr, n + dn); });
    float* ys[kRows];
    for (int r = 0; r < kRows; ++r) ys[r] = y[r] + column;
    finish(acc, biases, ys, rows, neurons);
}

// Addresses of rows first, first + 1, ... of a plane of `height` rows; the last one repeats.
template <class T, class Void>
inline void addresses(Void* data, int32_t stride, int64_t first, int64_t height, int count, T** out) {
    for (int i = 0; i < count; ++i) out[i] = row<T>(data, stride, min(first + i, height - 1));
}

// What lies beyond the last whole sixteen elements of each row, if anything does.
inline void take_rests(const float* const* rows, int count, int64_t k, float* rests) {
    if (k % 16)
        for (int r = 0; r < count; ++r) store16(rests + r * 16, load16_n(rows[r] + k / 16 * 16, k % 16));
}

// An output of elements `step` floats apart: each sixteen of them gathered first.
void strided_output(const float* x, const float* w, const float* bias, float* y, int64_t k, int64_t step) {
    F32x16 sums = {};
    F32 acc[kSingle] = {};
    for (int64_t i = 0; i < k; i += 16) {
        const int64_t n = min<int64_t>(k - i, 16);
        const F32x16 xs = gather16(x + i * step, step, n), ws = gather16(w + i * step, step, n);
        sums = each_of_16([&](int v) { return mul_add(xs.v[v], ws.v[v], sums.v[v]); });
    }
    acc[0] = fold(sums);
    finish(acc, Biases<1, kSingle>(bias, 1), &y, 1, 1);
}

// Prefetches of rows first..last - 1 the part from `begin` to `end` of `all` into the second-level cache.
inline void prefetch(const void* data, int32_t stride, int64_t first, int64_t last, int64_t row_bytes, int64_t begin,
                     int64_t end, int64_t all) {
    constexpr int64_t kLine = 64;
    const int64_t lines = (row_bytes + kLine - 1) / kLine, last_line = lines * end / all;
    for (int64_t line = lines * begin / all; line < last_line; ++line)
        for (int64_t y = first; y < last; ++y) __builtin_prefetch(row<char>(data, stride, y) + line * kLine, 0, 2);
}

template <int kCount>
inline bool astray(const float* const (&rows)[kCount]) {
    bool any = false;
    for (const float* row : rows) any |= uintptr_t(row) % kVector != 0;
    return any;
}

// Copies the whole sixteens of rows of k elements to where no vector of them crosses a line.
template <int kCount>
inline void align(const float* (&rows)[kCount], int64_t k, float* aligned) {
    for (const float*& row : rows) {
        const float* from = row;
        row = aligned;
        for (int64_t i = 0; i + 16 <= k; i += 16, aligned += 16) store16(aligned, load16(from + i));
    }
}

// A number known when compiled.
template <int kValue>
struct Const {
    constexpr operator int() const { return kValue; }
};

}  // namespace

Status net_product_f32(const void* x, int32_t x_stride, const void* w, int32_t w_stride, const void* bias, void* y,
                       int32_t y_stride, int32_t element_stride, int32_t k, Size size) {
    if (Status s = k > 0 ? check(size, x, w, y) : check(size, y)) return s;
    if (k < 0) return kBadSize;
    if (element_stride <= 0 || element_stride % 4) return kBadArg;
    const float* b = static_cast<const float*>(bias);
    if (element_stride != 4) {
        const int64_t step = element_stride / 4;
        for (int64_t r = 0; r < size.height; ++r)
            for (int64_t j = 0; j < size.width; ++j)
                strided_output(row<float>(x, x_stride, r), row<float>(w, w_stride, j), b ? b + j * step : nullptr,
                               row<float>(y, y_stride, r) + j * step, k, step);
        return clean(kOk);
    }
    if (size.height == 1) {
        const float *xs[] = {row<float>(x, x_stride, 0)}, *ws[kSingle];
        float* ys[] = {row<float>(y, y_stride, 0)};
        float x_rest[16], w_rests[kSingle * 16];
        take_rests(xs, 1, k, x_rest);
        for (int64_t j = 0; j < size.width; j += kSingle) {
            const int64_t neurons = min<int64_t>(size.width - j, kSingle);
            addresses(w, w_stride, j, size.width, kSingle, ws);
            take_rests(ws, kSingle, k, w_rests);
            tile<1, kSingle>({xs, x_rest}, {ws, w_rests}, {b ? b + j : nullptr, neurons}, ys, j, k, 1, neurons);
        }
        return clean(kOk);
    }
    // A group is what leaves room in the smallest second-level caches; from 50 KB to this a classifier takes the same
    // time to 3 %. Of short samples 64: each weight is then loaded for so many that larger groups, whose addresses
    // would have to be kept, gain nothing.
    constexpr int64_t kGroupBytes = 200 << 10, kMostRows = 64;
    // From so many samples on the weights that they share are aligned first: every second vector of others crosses a
    // line, which costs another load. Worth 1.05 to 1.15. Longer rows are left where they are: the copy, which lies on
    // the stack, would be larger than the first-level cache.
    constexpr int64_t kManyRows = 24, kMostAligned = 1024;
    const int64_t group = clamp<int64_t>(kGroupBytes / (int64_t(k) * 4 + 1) / 4 * 4, 4, kMostRows);
    const float* xs[kMostRows];
    float* ys[kMostRows];
    alignas(64) float x_rests[kMostRows * 16];
    for (int64_t top = 0; top < size.height; top += group) {
        const int64_t count = min<int64_t>(group, size.height - top), next = top + count;
        addresses(x, x_stride, top, size.height, int((count + 3) / 4 * 4), xs);
        addresses(y, y_stride, top, size.height, int((count + 3) / 4 * 4), ys);
        take_rests(xs, int((count + 3) / 4 * 4), k, x_rests);
        const auto neurons_at = [&](auto wide, int64_t j) {
            constexpr int kPerRow = wide;
            const int64_t neurons = min<int64_t>(size.width - j, kPerRow);
            const float* ws[kPerRow];
            addresses(w, w_stride, j, size.width, kPerRow, ws);
            // The next group comes in by and by: in a batch of 1024 worth 2 %.
            prefetch(x, x_stride, next, min<int64_t>(next + group, size.height), int64_t(k) * 4, j, j + neurons,
                     size.width);
            alignas(64) float aligned[kPerRow * kMostAligned], w_rests[kPerRow * 16];
            take_rests(ws, kPerRow, k, w_rests);
            if (count >= kManyRows && k <= kMostAligned && astray(ws)) align(ws, k, aligned);
            const Biases<4, kPerRow> biases(b ? b + j : nullptr, neurons);
            for (int64_t r = 0; r < count; r += 4)
                tile<4, kPerRow>({xs + r, x_rests + r * 16}, {ws, w_rests}, biases, ys + r, j, k,
                                 int(min<int64_t>(count - r, 4)), neurons);
        };
        int64_t j = 0;
        for (; j + kWide <= size.width; j += kWide) neurons_at(Const<kWide>{}, j);
        for (; j < size.width; j += kNarrow) neurons_at(Const<kNarrow>{}, j);
    }
    return clean(kOk);
}

}  // namespace tarn::k::TARN_LEVEL

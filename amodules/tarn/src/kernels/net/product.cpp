// The matrix product of a fully connected layer. Samples and weights both run along k, so an output is a dot product of
// two rows. Its order of summation is fixed: sixteen lanes, each a chain of fused multiply-adds, then one tree. A
// lane's chain does not depend on the tile that an output is computed in, which gives a sample the same bits alone and
// in any batch, and on every processor.
//
// Sixteen outputs make a tile: four samples by four neurons, or one sample by sixteen neurons. The rows of a tile are
// used by as many tiles as the first-level cache allows.
#include "kernels/net/net.h"

#include "kernels/net/sixteen.h"
#include "kernels/plane/plane.h"
#include "kernels/simd/fused.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kTile = 16;
// Outputs whose lanes are in registers at a time: rows, and neurons in a tile of several rows.
constexpr int kRowsAtOnce = kLanes<float> / 4, kNeuronsAtOnce = kRowsAtOnce;

inline F32x16 mul_add(const F32x16& a, const F32x16& b, const F32x16& c) {
    return each_of_16([&](int i) { return mul_add(a.v[i], b.v[i], c.v[i]); });
}

// The sums of kRows x kNeurons outputs over k elements, into acc[row * stride + neuron].
template <int kRows, int kNeurons>
inline void accumulate(const float* const* x, const float* const* w, int64_t k, F32x16* acc, int stride) {
    F32x16 s[kRows][kNeurons] = {};
    const auto step = [&](auto get) {
        F32x16 xs[kRows];
        for (int r = 0; r < kRows; ++r) xs[r] = get(x[r]);
        for (int n = 0; n < kNeurons; ++n) {
            const F32x16 ws = get(w[n]);
            for (int r = 0; r < kRows; ++r) s[r][n] = mul_add(xs[r], ws, s[r][n]);
        }
    };
    int64_t i = 0;
    for (; i + 16 <= k; i += 16) step([i](const float* p) { return load16(p + i); });
    if (i < k) step([i, k](const float* p) { return load16_n(p + i, k - i); });
    for (int r = 0; r < kRows; ++r)
        for (int n = 0; n < kNeurons; ++n) acc[r * stride + n] = s[r][n];
}

// Lanes 8 apart added, then 4 apart, until a vector is left.
inline F32 fold(F32x16 s) {
    for (int half = kVectors / 2; half > 0; half /= 2)
        for (int i = 0; i < half; ++i) s.v[i] += s.v[i + half];
    return s.v[0];
}

// Sums each output's lanes, adds the bias and stores the outputs of a tile: kPerRow to a row, `rows` rows, the first
// `neurons` of each.
template <int kPerRow>
inline void finish(const F32x16* acc, const float* bias, float* const* y, int rows, int neurons) {
    constexpr int kWidth = kLanes<float>;
    const int64_t bytes = neurons * int64_t(sizeof(float));
    float four[4] = {};
    if (kPerRow == 4 && bias && neurons < 4) {
        copy_bytes(four, bias, bytes);
        bias = four;
    }
    for (int i = 0; i < kTile; i += kWidth) {
        const int64_t part = clamp<int64_t>(bytes - 4 * i, 0, kVector);  // of a row of sixteen
        F32 folded[kWidth];
        for (int j = 0; j < kWidth; ++j) folded[j] = fold(acc[i + j]);
        F32 sums = sums_of_each(folded);
        if (bias) sums += kPerRow == 4 ? (F32)every_group(bias) : load_n<F32>(bias + i, part);
        sums = settle_nan(sums);
        if (kPerRow == kTile) {
            store_n(y[0] + i, sums, part);
        } else {
            float all[kWidth];
            store(all, sums);
            for (int j = 0; j < kWidth && i + j < 4 * rows; j += 4)
                if (neurons == 4)
                    memcpy(y[(i + j) / 4], all + j, 16);
                else
                    copy_bytes(y[(i + j) / 4], all + j, bytes);
        }
    }
}

// A tile of kRows samples by kPerRow neurons. x, w and y hold an address for each of its rows; those beyond `rows` and
// `neurons` repeat another one and are not stored.
template <int kRows, int kPerRow>
inline void tile(const float* const* x, const float* const* w, const float* bias, float* const* y, int64_t column,
                 int64_t k, int rows, int neurons) {
    static_assert(kRows * kPerRow == kTile);
    constexpr int kStepRows = min(kRows, kRowsAtOnce), kStepNeurons = kRows == 1 ? kNeuronsAtOnce * 2 : kNeuronsAtOnce;
    F32x16 acc[kTile];
    for (int r = 0; r < kRows; r += kStepRows)
        for (int n = 0; n < kPerRow; n += kStepNeurons)
            accumulate<kStepRows, kStepNeurons>(x + r, w + n, k, acc + r * kPerRow + n, kPerRow);
    float* ys[kRows];
    for (int r = 0; r < kRows; ++r) ys[r] = y[r] + column;
    finish<kPerRow>(acc, bias, ys, rows, neurons);
}

// Addresses of rows first, first + 1, ... of a plane of `height` rows; the last one repeats.
template <class T, class Void>
inline void addresses(Void* data, int32_t stride, int64_t first, int64_t height, int count, T** out) {
    for (int i = 0; i < count; ++i) out[i] = row<T>(data, stride, min(first + i, height - 1));
}

// An output of elements `step` floats apart: each sixteen of them gathered first.
void strided_output(const float* x, const float* w, const float* bias, float* y, int64_t k, int64_t step) {
    F32x16 acc[kTile] = {};
    for (int64_t i = 0; i < k; i += 16) {
        const int64_t n = min<int64_t>(k - i, 16);
        const F32x16 xs = gather16(x + i * step, step, n), ws = gather16(w + i * step, step, n);
        acc[0] = mul_add(xs, ws, acc[0]);
    }
    finish<kTile>(acc, bias, &y, 1, 1);
}

// Prefetches part `part` of `parts` of rows first..last - 1 into the second-level cache.
inline void prefetch(const void* data, int32_t stride, int64_t first, int64_t last, int64_t row_bytes, int64_t part,
                     int64_t parts) {
    constexpr int64_t kLine = 64;
    const int64_t lines = (row_bytes + kLine - 1) / kLine, end = lines * (part + 1) / parts;
    for (int64_t line = lines * part / parts; line < end; ++line)
        for (int64_t y = first; y < last; ++y) __builtin_prefetch(row<char>(data, stride, y) + line * kLine, 0, 2);
}

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
        const float *xs[] = {row<float>(x, x_stride, 0)}, *ws[kTile];
        float* ys[] = {row<float>(y, y_stride, 0)};
        for (int64_t j = 0; j < size.width; j += kTile) {
            addresses(w, w_stride, j, size.width, kTile, ws);
            tile<1, kTile>(xs, ws, b ? b + j : nullptr, ys, j, k, 1, int(min<int64_t>(size.width - j, kTile)));
        }
        return clean(kOk);
    }
    // A group of samples stays in the first-level cache while all weights pass by. Of its 32 KB most, since a group uses
    // no weight twice; a classifier of 784 inputs takes the same time to 3 % from 13 KB to 48 KB. Of short samples 64:
    // each weight is then loaded for so many that larger groups, whose addresses would have to be kept, gain nothing.
    constexpr int64_t kGroupBytes = 26 << 10, kMostRows = 64;
    const int64_t group = clamp<int64_t>(kGroupBytes / (int64_t(k) * 4 + 1) / 4 * 4, 4, kMostRows);
    const float *xs[kMostRows], *ws[4];
    float* ys[kMostRows];
    for (int64_t top = 0; top < size.height; top += group) {
        const int64_t count = min<int64_t>(group, size.height - top), next = top + count;
        addresses(x, x_stride, top, size.height, int((count + 3) / 4 * 4), xs);
        addresses(y, y_stride, top, size.height, int((count + 3) / 4 * 4), ys);
        for (int64_t j = 0; j < size.width; j += 4) {
            addresses(w, w_stride, j, size.width, 4, ws);
            // The next group comes in by and by: in a batch of 1024 worth 2 %.
            prefetch(x, x_stride, next, min<int64_t>(next + group, size.height), int64_t(k) * 4, j / 4,
                     (size.width + 3) / 4);
            for (int64_t r = 0; r < count; r += 4)
                tile<4, 4>(xs + r, ws, b ? b + j : nullptr, ys + r, j, k, int(min<int64_t>(count - r, 4)),
                           int(min<int64_t>(size.width - j, 4)));
        }
    }
    return clean(kOk);
}

}  // namespace tarn::k::TARN_LEVEL

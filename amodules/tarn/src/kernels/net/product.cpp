// The matrix product of a fully connected layer. Samples and weights both run along k, so an output is a dot product of
// two rows. Its order of summation is fixed: sixteen lanes, each a chain of fused multiply-adds, then one tree. A
// lane's chain does not depend on the tile that an output is computed in, which gives a sample the same bits alone and
// in any batch, and on every processor.
//
// Sixteen outputs make a tile: four samples by four neurons, or one sample by sixteen neurons. One AVX-512 register
// holds the lanes of an output. The rows of a tile are used by as many tiles as the first-level cache allows.
#include "kernels/net/net.h"

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kLanes = 16;
constexpr int kTile = 16;

// ---- Lanes: the partial sums of one output, or sixteen elements of a row ------------------------------------------

#if defined(__AVX512F__)

constexpr int kRowsAtOnce = 4, kNeuronsAtOnce = 4;  // outputs whose lanes are in registers at a time
struct Lanes {
    __m512 v;
};
inline Lanes zero() { return {_mm512_setzero_ps()}; }
inline Lanes load(const float* p) { return {_mm512_loadu_ps(p)}; }
inline Lanes load_part(const float* p, int64_t n) { return {_mm512_maskz_loadu_ps(__mmask16((1u << n) - 1), p)}; }
inline Lanes fma(Lanes a, Lanes b, Lanes c) { return {_mm512_fmadd_ps(a.v, b.v, c.v)}; }

#elif defined(__AVX2__) && defined(__FMA__)

constexpr int kRowsAtOnce = 2, kNeuronsAtOnce = 2;
struct Lanes {
    __m256 lo, hi;
};
alignas(32) constexpr int32_t kFirst[] = {-1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 0, 0, 0, 0, 0, 0};
inline __m256 load_half(const float* p, int64_t n) {
    if (n <= 0) return _mm256_setzero_ps();
    const int32_t* mask = kFirst + 8 - min<int64_t>(n, 8);
    return _mm256_maskload_ps(p, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(mask)));
}
inline Lanes zero() { return {_mm256_setzero_ps(), _mm256_setzero_ps()}; }
inline Lanes load(const float* p) { return {_mm256_loadu_ps(p), _mm256_loadu_ps(p + 8)}; }
inline Lanes load_part(const float* p, int64_t n) {
    return {load_half(p, n), n > 8 ? load_half(p + 8, n - 8) : _mm256_setzero_ps()};
}
inline Lanes fma(Lanes a, Lanes b, Lanes c) {
    return {_mm256_fmadd_ps(a.lo, b.lo, c.lo), _mm256_fmadd_ps(a.hi, b.hi, c.hi)};
}
inline float sum(Lanes a) {
    const __m256 by8 = _mm256_add_ps(a.lo, a.hi);
    const __m128 by4 = _mm_add_ps(_mm256_castps256_ps128(by8), _mm256_extractf128_ps(by8, 1));
    const __m128 by2 = _mm_add_ps(by4, _mm_movehl_ps(by4, by4));
    return _mm_cvtss_f32(_mm_add_ss(by2, _mm_movehdup_ps(by2)));
}

#else

constexpr int kRowsAtOnce = 1, kNeuronsAtOnce = 1;
struct Lanes {
    float v[kLanes];
};
inline Lanes zero() { return {}; }
inline Lanes load(const float* p) {
    Lanes a;
    memcpy(a.v, p, sizeof a.v);
    return a;
}
inline Lanes load_part(const float* p, int64_t n) {
    Lanes a = {};
    memcpy(a.v, p, size_t(n) * sizeof(float));
    return a;
}
// A fused multiply-add without the instruction (Boldo and Melquiond, 2008): the product is exact in double; the sum,
// rounded to odd with the help of its own error (Knuth's two-sum), keeps enough to be narrowed as if it had been exact.
inline Lanes fma_by_rounding_to_odd(Lanes a, Lanes b, Lanes c) {
    Lanes r;
    for (int i = 0; i < kLanes; ++i) {
        const double p = double(a.v[i]) * double(b.v[i]), q = c.v[i];
        const double s = p + q, t = s - p;
        const double e = (p - (s - t)) + (q - t);
        const int64_t bits = __builtin_bit_cast(int64_t, s);
        // Towards the error where it is not zero and the last bit is even; an infinite or NaN sum has a NaN error.
        const int64_t step = 1 - 2 * int64_t(uint64_t(bits ^ __builtin_bit_cast(int64_t, e)) >> 63);
        const int64_t inexact = e < 0 || e > 0 ? -1 : 0;
        const int64_t odd = bits + (step & inexact & ((bits & 1) - 1));
        r.v[i] = float(__builtin_bit_cast(double, odd));
    }
    return r;
}
#if defined(__SSE2__)
// The plain sum in double, narrowed, is the same unless it lies half-way between two floats, where its own rounding may
// have brought it, or narrows to a denormal, which has other half-ways.
inline Lanes fma(Lanes a, Lanes b, Lanes c) {
    const __m128i dropped = _mm_set1_epi64x(0x1fffffff);
    const __m128i half_way = _mm_set1_epi64x(0x1'10000000);  // the upper half never matches
    const __m128d least_normal = _mm_set1_pd(0x1p-126), sign = _mm_set1_pd(-0.0), nothing = _mm_setzero_pd();
    Lanes r;
    __m128i doubtful = _mm_setzero_si128();
    const auto two = [&](__m128 x, __m128 y, __m128 z) {
        const __m128d s = _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(x), _mm_cvtps_pd(y)), _mm_cvtps_pd(z));
        const __m128i tie = _mm_cmpeq_epi32(_mm_and_si128(_mm_castpd_si128(s), dropped), half_way);
        const __m128d small = _mm_and_pd(_mm_cmplt_pd(_mm_andnot_pd(sign, s), least_normal), _mm_cmpneq_pd(s, nothing));
        doubtful = _mm_or_si128(doubtful, _mm_or_si128(tie, _mm_castpd_si128(small)));
        return _mm_cvtpd_ps(s);
    };
    for (int i = 0; i < kLanes; i += 4) {
        const __m128 x = _mm_loadu_ps(a.v + i), y = _mm_loadu_ps(b.v + i), z = _mm_loadu_ps(c.v + i);
        const __m128 low = two(x, y, z), high = two(_mm_movehl_ps(x, x), _mm_movehl_ps(y, y), _mm_movehl_ps(z, z));
        _mm_storeu_ps(r.v + i, _mm_movelh_ps(low, high));
    }
    return _mm_movemask_epi8(doubtful) ? fma_by_rounding_to_odd(a, b, c) : r;
}
#else
inline Lanes fma(Lanes a, Lanes b, Lanes c) { return fma_by_rounding_to_odd(a, b, c); }
#endif
inline float sum(Lanes a) {
    for (int apart = kLanes / 2; apart > 0; apart /= 2)
        for (int i = 0; i < apart; ++i) a.v[i] += a.v[i + apart];
    return a.v[0];
}

#endif

// ---- Tiles --------------------------------------------------------------------------------------------------------

// The sums of kRows x kNeurons outputs over k elements, into acc[row * stride + neuron].
template <int kRows, int kNeurons>
inline void accumulate(const float* const* x, const float* const* w, int64_t k, Lanes* acc, int stride) {
    Lanes s[kRows][kNeurons];
    for (int r = 0; r < kRows; ++r)
        for (int n = 0; n < kNeurons; ++n) s[r][n] = zero();
    const auto step = [&](auto get) {
        Lanes xs[kRows];
        for (int r = 0; r < kRows; ++r) xs[r] = get(x[r]);
        for (int n = 0; n < kNeurons; ++n) {
            const Lanes ws = get(w[n]);
            for (int r = 0; r < kRows; ++r) s[r][n] = fma(xs[r], ws, s[r][n]);
        }
    };
    int64_t i = 0;
    for (; i + kLanes <= k; i += kLanes) step([i](const float* p) { return load(p + i); });
    if (i < k) step([i, k](const float* p) { return load_part(p + i, k - i); });
    for (int r = 0; r < kRows; ++r)
        for (int n = 0; n < kNeurons; ++n) acc[r * stride + n] = s[r][n];
}

constexpr uint32_t kNan = 0x7fc00000;

// Sums each output's lanes, adds the bias and stores the outputs of a tile: kPerRow to a row, `rows` rows, the first
// `neurons` of each.
#if defined(__AVX512F__)

// Adds to each lane its partner: lanes of a where the mask is 0, lanes of b where it is 1. `other` brings the partners.
inline __m512 fold(__m512 a, __m512 b, __mmask16 mask, __m512i other) {
    return _mm512_add_ps(_mm512_mask_blend_ps(mask, a, b), _mm512_permutex2var_ps(a, other, b));
}

template <int kPerRow>
inline void finish(const Lanes* acc, const float* bias, float* const* y, int rows, int neurons) {
    const __m512i by8 = _mm512_setr_epi32(8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23);
    const __m512i by4 = _mm512_setr_epi32(4, 5, 6, 7, 16, 17, 18, 19, 12, 13, 14, 15, 24, 25, 26, 27);
    const __m512i by2 = _mm512_setr_epi32(2, 3, 16, 17, 6, 7, 20, 21, 10, 11, 24, 25, 14, 15, 28, 29);
    const __m512i by1 = _mm512_setr_epi32(1, 16, 3, 18, 5, 20, 7, 22, 9, 24, 11, 26, 13, 28, 15, 30);
    __m512 a[8];
    for (int i = 0; i < 8; ++i) a[i] = fold(acc[i].v, acc[i + 8].v, 0xff00, by8);
    for (int i = 0; i < 4; ++i) a[i] = fold(a[i], a[i + 4], 0xf0f0, by4);
    for (int i = 0; i < 2; ++i) a[i] = fold(a[i], a[i + 2], 0xcccc, by2);
    __m512 sums = fold(a[0], a[1], 0xaaaa, by1);  // output i in lane i
    // All elements by the masked forms: the plain ones start from undefined registers, which GCC 12 warns of.
    constexpr __mmask16 kAll = 0xffff;
    constexpr __mmask8 kQuad = 0xf;
    const __mmask16 used = __mmask16((1u << neurons) - 1);
    if (bias) {
        if constexpr (kPerRow == kTile)
            sums = _mm512_add_ps(sums, _mm512_maskz_loadu_ps(used, bias));
        else
            sums = _mm512_add_ps(sums, _mm512_maskz_broadcast_f32x4(kAll, _mm_maskz_loadu_ps(__mmask8(used), bias)));
    }
    const __m512 nan = _mm512_castsi512_ps(_mm512_set1_epi32(kNan));
    sums = _mm512_mask_blend_ps(_mm512_cmp_ps_mask(sums, sums, _CMP_UNORD_Q), sums, nan);
    if constexpr (kPerRow == kTile) {
        _mm512_mask_storeu_ps(y[0], used, sums);
    } else if (neurons == 4) {
        _mm_storeu_ps(y[0], _mm512_maskz_extractf32x4_ps(kQuad, sums, 0));
        if (rows > 1) _mm_storeu_ps(y[1], _mm512_maskz_extractf32x4_ps(kQuad, sums, 1));
        if (rows > 2) _mm_storeu_ps(y[2], _mm512_maskz_extractf32x4_ps(kQuad, sums, 2));
        if (rows > 3) _mm_storeu_ps(y[3], _mm512_maskz_extractf32x4_ps(kQuad, sums, 3));
    } else {
        // Not by a masked store: GCC makes one instruction of it and the extraction, which faults for masked elements.
        float all[kTile];
        _mm512_storeu_ps(all, sums);
        for (int r = 0; r < rows; ++r) memcpy(y[r], all + r * kPerRow, size_t(neurons) * sizeof(float));
    }
}

#else

inline float output(float sum, const float* bias) {
    if (bias) sum += *bias;
    return sum != sum ? __builtin_bit_cast(float, kNan) : sum;
}

template <int kPerRow>
inline void finish(const Lanes* acc, const float* bias, float* const* y, int rows, int neurons) {
    for (int r = 0; r < rows; ++r)
        for (int n = 0; n < neurons; ++n) y[r][n] = output(sum(acc[r * kPerRow + n]), bias ? bias + n : nullptr);
}

#endif

// A tile of kRows samples by kPerRow neurons. x, w and y hold an address for each of its rows; those beyond `rows` and
// `neurons` repeat another one and are not stored.
template <int kRows, int kPerRow>
inline void tile(const float* const* x, const float* const* w, const float* bias, float* const* y, int64_t column,
                 int64_t k, int rows, int neurons) {
    static_assert(kRows * kPerRow == kTile);
    constexpr int kStepRows = min(kRows, kRowsAtOnce), kStepNeurons = kRows == 1 ? kNeuronsAtOnce * 2 : kNeuronsAtOnce;
    Lanes acc[kTile];
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

// Elements `step` floats apart: each sixteen of them collected first.
float strided_output(const float* x, const float* w, const float* bias, int64_t k, int64_t step) {
    Lanes acc[kTile] = {};
    for (int64_t i = 0; i < k; i += kLanes) {
        float xs[kLanes] = {}, ws[kLanes] = {};
        for (int64_t l = 0; l < min<int64_t>(k - i, kLanes); ++l) {
            xs[l] = x[(i + l) * step];
            ws[l] = w[(i + l) * step];
        }
        acc[0] = fma(load(xs), load(ws), acc[0]);
    }
    float result, *y = &result;
    finish<kTile>(acc, bias, &y, 1, 1);
    return result;
}

// Asks for part `part` of `parts` of the bytes of rows first..last - 1, to be in the second-level cache when they are
// needed.
inline void ask_for(const void* data, int32_t stride, int64_t first, int64_t last, int64_t row_bytes, int64_t part,
                    int64_t parts) {
    constexpr int64_t kLine = 64;
    const int64_t lines = (row_bytes + kLine - 1) / kLine, end = (last - first) * lines * (part + 1) / parts;
    for (int64_t i = (last - first) * lines * part / parts; i < end; ++i)
        __builtin_prefetch(row<char>(data, stride, first + i / lines) + i % lines * kLine, 0, 2);
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
                row<float>(y, y_stride, r)[j * step] = strided_output(
                    row<float>(x, x_stride, r), row<float>(w, w_stride, j), b ? b + j * step : nullptr, k, step);
        return kOk;
    }
    if (size.height == 1) {
        const float *xs[] = {row<float>(x, x_stride, 0)}, *ws[kTile];
        float* ys[] = {row<float>(y, y_stride, 0)};
        for (int64_t j = 0; j < size.width; j += kTile) {
            addresses(w, w_stride, j, size.width, kTile, ws);
            tile<1, kTile>(xs, ws, b ? b + j : nullptr, ys, j, k, 1, int(min<int64_t>(size.width - j, kTile)));
        }
        return kOk;
    }
    // Samples that stay in the first-level cache while all weights pass by.
    constexpr int64_t kNear = 26 << 10, kMost = 64;
    const int64_t near = clamp<int64_t>(kNear / (int64_t(k) * 4 + 1) / 4 * 4, 4, kMost);
    const float *xs[kMost], *ws[4];
    float* ys[kMost];
    for (int64_t top = 0; top < size.height; top += near) {
        const int64_t count = min<int64_t>(near, size.height - top);
        addresses(x, x_stride, top, size.height, int((count + 3) / 4 * 4), xs);
        addresses(y, y_stride, top, size.height, int((count + 3) / 4 * 4), ys);
        for (int64_t j = 0; j < size.width; j += 4) {
            addresses(w, w_stride, j, size.width, 4, ws);
            const int neurons = int(min<int64_t>(size.width - j, 4));
            ask_for(x, x_stride, top + count, min<int64_t>(top + 2 * count, size.height), int64_t(k) * 4, j,
                    size.width);
            for (int64_t r = 0; r < count; r += 4)
                tile<4, 4>(xs + r, ws, b ? b + j : nullptr, ys + r, j, k, int(min<int64_t>(count - r, 4)), neurons);
        }
    }
    return kOk;
}

}  // namespace tarn::k::TARN_LEVEL

// For the resize sources only: the separable resampling with a fixed number of taps that linear, cubic and Lanczos
// share.
//
// A strip of columns at a time, narrow enough that its tables and rows stay in the first-level cache. Per strip a ring
// holds the last kTaps source rows, resampled horizontally, as floats; an output row is their weighted sum, rounded
// once. Source rows that no output needs are never read. Horizontally the taps of neighbouring outputs are fetched by
// permutes from a row converted to floats, or, where the image shrinks to less than half (and below AVX2), gathered one
// by one into a plane per tap.
//
// Sums are chains of fused multiply-adds in one order, exact in software where the processor has none, so all levels
// give the same bits. For 8-bit sources the horizontal weights are multiples of 2^-15 whose sum is exactly 1: with 9
// bits of pixel sums the result fits the 24 bits of a float and nothing is ever rounded, so there a product and an
// addition do as well.
//
// A filter is a type with
//   kTaps                                     2, 4 or 6
//   weights(const double* f, double (*w)[kBlock])   for kBlock positions at once: the weights of the taps around a
//   position that lies f
//                                             (0 <= f < 1) to the right of tap kTaps / 2 - 1; their sum is 1
//   half(const Job&)                          with 2 taps: one channel at exactly half the size
#pragma once

#include "kernels/plane/taps.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kBlock = 64;  // positions whose weights are computed together

// ---- Elements -----------------------------------------------------------------------------------------------------

template <class T>
struct Element {
    static constexpr bool kExact = false;
};
template <>
struct Element<uint8_t> {
    static constexpr bool kExact = true;  // horizontal sums
};

[[maybe_unused]] inline int32_t nearest_even(float v) {
    // Adding 1.5 * 2^23 leaves the nearest integer (ties to even) in the low bits: |v| < 2^22.
    return __builtin_bit_cast(int32_t, v + 12582912.0f) - 0x4b400000;
}
[[maybe_unused]] inline void store(uint8_t* to, float v) { *to = uint8_t(nearest_even(clamp(v, 0.0f, 255.0f))); }
[[maybe_unused]] inline void store(int16_t* to, float v) { *to = int16_t(nearest_even(clamp(v, -32768.0f, 32767.0f))); }
// Which operand's NaN a sum hands on depends on the compiler, so NaN gets one pattern.
[[maybe_unused]] inline void store(float* to, float v) { *to = v == v ? v : __builtin_nanf(""); }

// ---- Vectors ------------------------------------------------------------------------------------------------------

#if defined(__AVX512F__)
constexpr int kLanes = 16;
using Lanes = __m512;
using Index = __m512i;
inline Lanes load(const float* p) { return _mm512_loadu_ps(p); }
inline Index load(const int32_t* p) { return _mm512_loadu_si512(p); }
inline Index later(Index at, int elements) { return _mm512_add_epi32(at, _mm512_set1_epi32(elements)); }
inline void store(float* p, Lanes v) { _mm512_storeu_ps(p, v); }
inline Lanes fused(Lanes a, Lanes b, Lanes c) { return _mm512_fmadd_ps(a, b, c); }
inline Lanes pick(Lanes window, Index at) { return _mm512_permutexvar_ps(at, window); }
inline Lanes pick(Lanes low, Lanes high, Index at) { return _mm512_permutex2var_ps(low, at, high); }
#elif defined(__AVX2__)
constexpr int kLanes = 8;
using Lanes = __m256;
using Index = __m256i;
inline Lanes load(const float* p) { return _mm256_loadu_ps(p); }
inline Index load(const int32_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline Index later(Index at, int elements) { return _mm256_add_epi32(at, _mm256_set1_epi32(elements)); }
inline void store(float* p, Lanes v) { _mm256_storeu_ps(p, v); }
inline Lanes fused(Lanes a, Lanes b, Lanes c) { return _mm256_fmadd_ps(a, b, c); }
inline Lanes pick(Lanes window, Index at) { return _mm256_permutevar8x32_ps(window, at); }
inline Lanes pick(Lanes low, Lanes high, Index at) {
    const Lanes second = _mm256_castsi256_ps(_mm256_slli_epi32(at, 28));  // bit 3: from the second window
    return _mm256_blendv_ps(pick(low, at), pick(high, at), second);
}
#else
constexpr int kLanes = 8;
#endif

// ---- Sums ---------------------------------------------------------------------------------------------------------

// a * b + c, rounded once.
[[maybe_unused]] inline float fused(float a, float b, float c) {
#if defined(__FMA__) || defined(__FP_FAST_FMAF)
    return __builtin_fmaf(a, b, c);
#else
    // The product of two floats is exact in double precision. The sum is rounded to double, then to float: wrong only
    // where the first rounding ends halfway between two floats, or below the normal floats. There it is rounded to odd
    // first (S. Boldo and G. Melquiond, "Emulation of FMA and correctly rounded sums", 2008).
    const double product = double(a) * double(b);
    double sum = product + double(c);
    uint64_t bits = __builtin_bit_cast(uint64_t, sum);
    const bool halfway = (bits & 0x1fffffff) == 0x10000000;
    const bool tiny = (bits << 1) - 1 < (uint64_t(1023 - 126) << 53) - 1;  // but not zero
    if (__builtin_expect(halfway || tiny, 0)) {
        const double added = sum - product, error = (product - (sum - added)) + (double(c) - added);
        if ((error > 0 || error < 0) && bits % 2 == 0) {
            bits += (error > 0) == (sum > 0) ? uint64_t(1) : ~uint64_t(0);
            sum = __builtin_bit_cast(double, bits);
        }
    }
    return float(sum);
#endif
}

// The sum of kTaps products, from the small outer ones to the inner ones. kExact: nothing is rounded.
template <int kTaps, bool kExact, class Tap, class Weight>
inline auto sum_of(Tap tap, Weight weight) {
    auto sum = tap(0) * weight(0);
#pragma GCC unroll 6
    for (int i = 1; i < kTaps; ++i) {
        const int k = i % 2 ? kTaps - 1 - i / 2 : i / 2;
        if constexpr (kExact && sizeof sum == sizeof(float))
            sum = tap(k) * weight(k) + sum;
        else
            sum = fused(tap(k), weight(k), sum);
    }
    return sum;
}

// The first output of a block and the weights of kBlock outputs: first[i] is the source pixel of tap 0.
template <class Filter, bool kExact>
void block_of_weights(Walk& walk, int64_t* first, float (*weight)[kBlock]) {
    constexpr int kTaps = Filter::kTaps;
    double f[kBlock], w[kTaps][kBlock];
    for (int i = 0; i < kBlock; ++i, walk.next()) {
        first[i] = walk.whole - (kTaps / 2 - 1);
        f[i] = double(walk.rest);
    }
    const double denominator = double(walk.denominator);
    for (int i = 0; i < kBlock; ++i) f[i] = f[i] / denominator;
    Filter::weights(f, w);
    if (kExact) {
        for (int i = 0; i < kBlock; ++i) {
            double sum = 0;
            for (int k = 0; k < kTaps; ++k) {
                constexpr double kNearest = 1.5 * 4503599627370496.0;  // rounds to an integer
                w[k][i] = (w[k][i] * 32768.0 + kNearest) - kNearest;
                sum += w[k][i];
            }
            const double rest = 32768.0 - sum;
            w[kTaps / 2 - 1][i] += f[i] < 0.5 ? rest : 0.0;
            w[kTaps / 2][i] += f[i] < 0.5 ? 0.0 : rest;
        }
    }
    for (int k = 0; k < kTaps; ++k)
        for (int i = 0; i < kBlock; ++i) weight[k][i] = float(kExact ? w[k][i] / 32768.0 : w[k][i]);
}

// ---- Strips -------------------------------------------------------------------------------------------------------

// Elements of a strip at most: multiples of 16 and 3.
template <int kTaps>
constexpr int64_t kStripElements = kTaps == 2   ? 1536
                                   : kTaps == 4 ? 960
                                                : 1248;

// Rows whose strips are made before those of the rows below. A row of a strip is short and lies in memory pages of its
// own: of a tall image a whole strip would touch more of them than the processor keeps translated.
constexpr int64_t kBandRows = 512;

enum class Fetch { planes, one_window, two_windows };

// What a strip's rows are made with. Elements: outputs times channels, then up to a whole vector more of no meaning.
struct Strip {
    int64_t pixels, elements;
    float* weight;   // plane after plane of kStripElements: the taps' weights per element
    int64_t* first;  // source pixel of tap 0 per pixel, from the region's left
    Fetch fetch;
    int64_t row_from;    // permutes: first source pixel of the converted row, from the region's left
    int64_t row_pixels;  // and how many it has
    int32_t* base;       // per vector of outputs: where its window begins in the converted row
    int32_t* index;      // per output: tap 0 in the window
    int32_t reach;       // the largest index
};

// Widens n elements to floats.
template <class T>
void to_floats(const T* TARN_RESTRICT s, int64_t n, float* TARN_RESTRICT to) {
    int64_t i = 0;
#if defined(__AVX512F__)
    if constexpr (sizeof(T) < 4) {
        for (; i + kLanes <= n; i += kLanes) {
            const __m512i wide =
                sizeof(T) == 1 ? _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i)))
                               : _mm512_cvtepi16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i)));
            _mm512_storeu_ps(to + i, _mm512_cvtepi32_ps(wide));
        }
    }
#endif
    for (; i < n; ++i) to[i] = float(s[i]);
}

// Converts `count` pixels from pixel `from` on to floats, repeating the edge pixels of the row.
template <class T>
void convert_row(const T* s, int64_t width, int channels, int64_t from, int64_t count, float* to) {
    const int64_t left = clamp<int64_t>(-from, 0, count), right = clamp<int64_t>(from + count - width, 0, count);
    for (int64_t x = 0; x < left; ++x)
        for (int c = 0; c < channels; ++c) to[x * channels + c] = float(s[c]);
    to_floats(s + (from + left) * channels, (count - left - right) * channels, to + left * channels);
    for (int64_t x = count - right; x < count; ++x)
        for (int c = 0; c < channels; ++c) to[x * channels + c] = float(s[(width - 1) * channels + c]);
}

// Gathers the taps of every output of a strip, a plane of kStripElements per tap.
template <int kTaps, int kChannels, class T>
void gather_taps(const T* s, int64_t width, int64_t left, const Strip& strip, float* planes) {
    for (int64_t x = 0; x < strip.pixels; ++x) {
        const int64_t at = left + strip.first[x];
        const bool inside = at >= 0 && at + kTaps <= width;
        for (int k = 0; k < kTaps; ++k) {
            const T* pixel = s + (inside ? at + k : clamp<int64_t>(at + k, 0, width - 1)) * kChannels;
            float* to = planes + k * kStripElements<kTaps> + x * kChannels;
            for (int c = 0; c < kChannels; ++c) to[c] = float(pixel[c]);
        }
    }
}

template <int kTaps, bool kExact>
void weigh_planes(const Strip& strip, const float* TARN_RESTRICT planes, float* TARN_RESTRICT out) {
    const float* TARN_RESTRICT weight = strip.weight;
    constexpr int64_t kPitch = kStripElements<kTaps>;
    for (int64_t i = 0; i < strip.elements; ++i)
        out[i] = sum_of<kTaps, kExact>([&](int k) { return planes[k * kPitch + i]; },
                                       [&](int k) { return weight[k * kPitch + i]; });
}

#if defined(__AVX2__)

// kWindows: how many vectors of the converted row hold the taps of a vector of outputs; kShare: for how many taps in
// turn one load of them serves.
template <int kTaps, bool kExact, int kWindows, int kShare>
void weigh_windows(const Strip& strip, const float* row, int channels, float* out) {
    for (int64_t g = 0; g * kLanes < strip.elements; ++g) {
        const Index first = load(strip.index + g * kLanes);
        const float* from = row + strip.base[g];
        const float* weight = strip.weight + g * kLanes;
        Lanes tap[kTaps], low{}, high{};
#pragma GCC unroll 6
        for (int k = 0; k < kTaps; ++k) {
            if (k % kShare == 0) {
                low = load(from + k * channels);
                if (kWindows == 2) high = load(from + k * channels + kLanes);
            }
            const Index at = k % kShare ? later(first, k % kShare * channels) : first;
            tap[k] = kWindows == 2 ? pick(low, high, at) : pick(low, at);
        }
        const Lanes sum = sum_of<kTaps, kExact>([&](int k) { return tap[k]; },
                                                [&](int k) { return load(weight + k * kStripElements<kTaps>); });
        store(out + g * kLanes, sum);
    }
}

// As many taps from one load as the windows hold.
template <int kTaps, bool kExact, int kWindows>
void weigh_windows(const Strip& strip, const float* row, int channels, float* out) {
    const int more = (kWindows * kLanes - 1 - strip.reach) / channels;  // taps beyond the first within the windows
    if (more >= kTaps - 1)
        weigh_windows<kTaps, kExact, kWindows, kTaps>(strip, row, channels, out);
    else if (kTaps > 2 && more >= kTaps / 2 - 1)
        weigh_windows<kTaps, kExact, kWindows, kTaps / 2>(strip, row, channels, out);
    else if (kTaps == 6 && more >= 1)
        weigh_windows<kTaps, kExact, kWindows, 2>(strip, row, channels, out);
    else
        weigh_windows<kTaps, kExact, kWindows, 1>(strip, row, channels, out);
}

// Prepares the permutes of a strip; leaves it to planes when an output lies beyond two windows of its vector.
template <int kTaps>
void find_windows(Strip& strip, int channels) {
    strip.row_from = strip.first[0];
    strip.reach = 0;
    int64_t x = 0, c = 0;
    int32_t last = 0;
    for (int64_t g = 0; g * kLanes < strip.elements; ++g) {
        int32_t at[kLanes], least = 0x7fffffff, most = 0;
        for (int i = 0; i < kLanes; ++i) {
            const bool real = x < strip.pixels;  // outputs of no meaning repeat the last one
            at[i] = last = real ? int32_t(strip.first[x] - strip.row_from) * channels + int32_t(c) : last;
            least = min(least, at[i]), most = max(most, at[i]);
            if (real && ++c == channels) c = 0, ++x;
        }
        if (most - least >= 2 * kLanes) {
            strip.fetch = Fetch::planes;
            return;
        }
        strip.reach = max(strip.reach, most - least);
        strip.base[g] = least;
        for (int i = 0; i < kLanes; ++i) strip.index[g * kLanes + i] = at[i] - least;
    }
    // Two windows may hold all taps where one does not. Picking from two is one instruction in the widest registers
    // only.
    const int all = strip.reach + (kTaps - 1) * channels;
    const bool one = kLanes == 16 ? strip.reach < kLanes && (all < kLanes || all >= 2 * kLanes) : strip.reach < kLanes;
    strip.fetch = one ? Fetch::one_window : Fetch::two_windows;
}
constexpr bool kPermutes = true;

#else

template <int kTaps, bool kExact, int kWindows>
void weigh_windows(const Strip&, const float*, int, float*) {}
template <int kTaps>
void find_windows(Strip&, int) {}
constexpr bool kPermutes = false;

#endif

// Sets a strip of outputs up: `walk` stands at its first.
template <class Filter, bool kExact>
void prepare(Strip& strip, Walk walk, int64_t pixels, int channels, bool may_permute) {
    constexpr int kTaps = Filter::kTaps;
    strip.pixels = pixels;
    strip.elements = (pixels * channels + kLanes - 1) / kLanes * kLanes;
    for (int64_t done = 0; done < pixels; done += kBlock) {
        int64_t first[kBlock];
        float weight[kTaps][kBlock];
        block_of_weights<Filter, kExact>(walk, first, weight);
        const int64_t n = min<int64_t>(kBlock, pixels - done);
        memcpy(strip.first + done, first, size_t(n) * sizeof first[0]);
        for (int k = 0; k < kTaps; ++k) {
            float* to = strip.weight + k * kStripElements<kTaps> + done * channels;
            for (int64_t i = 0; i < n; ++i)
                for (int c = 0; c < channels; ++c) to[i * channels + c] = weight[k][i];
        }
    }
    for (int k = 0; k < kTaps; ++k)
        for (int64_t i = pixels * channels; i < strip.elements; ++i) strip.weight[k * kStripElements<kTaps> + i] = 0;
    strip.fetch = Fetch::planes;
    if (may_permute) find_windows<kTaps>(strip, channels);
    strip.row_pixels = strip.first[pixels - 1] - strip.first[0] + kTaps;
}

// One source row, resampled: `row` is room for the converted row or the planes.
template <int kTaps, class T>
void resample_row(const Strip& strip, const T* s, int64_t width, int64_t left, int channels, float* row, float* out) {
    constexpr bool kExact = Element<T>::kExact;
    if (strip.fetch != Fetch::planes) {
        convert_row(s, width, channels, left + strip.row_from, strip.row_pixels, row);
        if (strip.fetch == Fetch::one_window)
            weigh_windows<kTaps, kExact, 1>(strip, row, channels, out);
        else
            weigh_windows<kTaps, kExact, 2>(strip, row, channels, out);
        return;
    }
    if (channels == 1)
        gather_taps<kTaps, 1>(s, width, left, strip, row);
    else if (channels == 3)
        gather_taps<kTaps, 3>(s, width, left, strip, row);
    else
        gather_taps<kTaps, 4>(s, width, left, strip, row);
    weigh_planes<kTaps, kExact>(strip, row, out);
}

// ---- Output rows --------------------------------------------------------------------------------------------------

#if defined(__AVX512F__)

// Stores 64 rounded elements, or those of a mask.
inline void store_rounded(uint8_t* to, const Lanes* v, __mmask64 mask) {
    const __m512i low = _mm512_packs_epi32(_mm512_cvtps_epi32(v[0]), _mm512_cvtps_epi32(v[1]));
    const __m512i high = _mm512_packs_epi32(_mm512_cvtps_epi32(v[2]), _mm512_cvtps_epi32(v[3]));
    // Packing works within quarters of the register: put their pieces in order.
    const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    _mm512_mask_storeu_epi8(to, mask, _mm512_permutexvar_epi32(order, _mm512_packus_epi16(low, high)));
}
inline void store_rounded(int16_t* to, const Lanes* v, __mmask64 mask) {
    const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    for (int i = 0; i < 2; ++i) {
        const __m512i both = _mm512_packs_epi32(_mm512_cvtps_epi32(v[2 * i]), _mm512_cvtps_epi32(v[2 * i + 1]));
        _mm512_mask_storeu_epi16(to + 32 * i, __mmask32(mask >> (32 * i)), _mm512_permutexvar_epi64(order, both));
    }
}
inline void store_rounded(float* to, const Lanes* v, __mmask64 mask) {
    const Lanes nan = _mm512_set1_ps(__builtin_nanf(""));
    for (int i = 0; i < 4; ++i)
        _mm512_mask_storeu_ps(to + 16 * i, __mmask16(mask >> (16 * i)),
                              _mm512_mask_mov_ps(v[i], _mm512_cmp_ps_mask(v[i], v[i], _CMP_UNORD_Q), nan));
}

// Rows must be readable up to a multiple of 64 elements. Inlined: handed over in memory, the rows' addresses would be
// read before they have got there.
template <int kTaps, bool kKept, class T>
[[gnu::always_inline]] inline void blend_rows(const float* const* rows, const float* weight, int64_t n, T* dst) {
    const float* r[kTaps];
    Lanes w[kTaps];
    for (int k = 0; k < kTaps; ++k) r[k] = rows[k], w[k] = _mm512_set1_ps(weight[k]);
    const __mmask64 carried = kKept ? 0x7777777777777777 : ~__mmask64(0);
    const auto blend = [&](int64_t i, __mmask64 mask) {
        Lanes v[4];
#pragma GCC unroll 4
        for (int part = 0; part < 4; ++part)
            v[part] =
                sum_of<kTaps, false>([&](int k) { return load(r[k] + i + 16 * part); }, [&](int k) { return w[k]; });
        store_rounded(dst + i, v, mask);
    };
    int64_t i = 0;
    for (; n - i >= 64; i += 64) blend(i, carried);
    if (i < n) blend(i, carried & ((__mmask64(1) << (n - i)) - 1));
}

#else

template <int kTaps, bool kKept, class T>
void blend_rows(const float* const* rows, const float* weight, int64_t n, T* TARN_RESTRICT dst) {
    const float* r[kTaps];
    float w[kTaps];
    for (int k = 0; k < kTaps; ++k) r[k] = rows[k], w[k] = weight[k];
    const auto at = [&](int64_t i) {
        return sum_of<kTaps, false>([&](int k) { return r[k][i]; }, [&](int k) { return w[k]; });
    };
    if (kKept) {
        // Blocks of whole pixels through a buffer: the sums as vectors, the three channels one by one.
        T block[64];
        for (int64_t i = 0; i < n; i += 64) {
            const int64_t count = min<int64_t>(64, n - i);
            for (int64_t e = 0; e < count; ++e) store(block + e, at(i + e));
            for (int64_t e = 0; e < count; e += 4)
                for (int c = 0; c < 3; ++c) dst[i + e + c] = block[e + c];
        }
    } else {
        for (int64_t i = 0; i < n; ++i) store(dst + i, at(i));
    }
}

#endif

// Which source rows an output row is made of.
template <int kTaps>
struct Line {
    int64_t first;  // of tap 0, from the region's top
    float weight[kTaps];
};

template <class Filter, class T, bool kKept>
Status resample(const Job& j, int channels) {
    constexpr int kTaps = Filter::kTaps;
    constexpr int64_t kElements = kStripElements<kTaps>;
    constexpr int64_t kRow = 6 * kElements + 256;  // planes; or twice a strip, the taps, and two windows more
    if (Status s = check(j)) return s;
    if constexpr (kTaps == 2)
        if (channels == 1 && halves(j)) return Filter::template half<T>(j);
    const int64_t width = j.dst_size.width, height = j.dst_size.height;

    Scratch scratch(j.allocator);
    scratch.want<Line<kTaps>>(height + kBlock);
    scratch.want<float>(kTaps * kElements);       // weights
    scratch.want<float>(kTaps * kElements + 64);  // ring, read up to a multiple of 64
    scratch.want<float>(kRow);
    scratch.want<int64_t>(kElements);
    scratch.want<int32_t>(kElements);
    scratch.want<int32_t>(kElements / kLanes);
    if (!scratch.allocate()) return kNoMemory;
    Line<kTaps>* lines = scratch.take<Line<kTaps>>(height + kBlock);
    Strip strip{};
    strip.weight = scratch.take<float>(kTaps * kElements);
    float* ring = scratch.take<float>(kTaps * kElements + 64);
    float* row_space = scratch.take<float>(kRow);
    strip.first = scratch.take<int64_t>(kElements);
    strip.index = scratch.take<int32_t>(kElements);
    strip.base = scratch.take<int32_t>(kElements / kLanes);
    memset(row_space, 0, sizeof(float) * kRow);

    Walk line(j.region.height, height, height, 0);
    for (int64_t y = 0; y < height; y += kBlock) {
        int64_t first[kBlock];
        float weight[kTaps][kBlock];
        block_of_weights<Filter, false>(line, first, weight);
        for (int i = 0; i < kBlock; ++i) {
            lines[y + i].first = first[i];
            for (int k = 0; k < kTaps; ++k) lines[y + i].weight[k] = weight[k][i];
        }
    }

    // Strips of nearly equal width, in steps that leave no vector half used in the inner ones.
    const int64_t most = kElements / channels;
    const int64_t strips = (width + most - 1) / most;
    const int64_t step = min(most, ((width + strips - 1) / strips + 15) & ~int64_t(15));
    for (int64_t top = 0; top < height; top += kBandRows)
        for (int64_t x = 0; x < width; x += step) {
            const int64_t pixels = min(step, width - x);
            prepare<Filter, Element<T>::kExact>(strip, Walk(j.region.width, width, width, x), pixels, channels,
                                                kPermutes && j.region.width <= 2 * width);
            int64_t held[kTaps];  // the source row in each slot of the ring
            for (int64_t& h : held) h = -1;
            for (int64_t y = top; y < min(height, top + kBandRows); ++y) {
                const float* rows[kTaps];
                for (int k = 0; k < kTaps; ++k) {
                    const int64_t source = clamp<int64_t>(j.region.y + lines[y].first + k, 0, j.src_size.height - 1);
                    const int slot = int(source % kTaps);
                    if (held[slot] != source) {
                        resample_row<kTaps>(strip, row<T>(j.src, j.src_stride, source), j.src_size.width, j.region.x,
                                            channels, row_space, ring + slot * kElements);
                        held[slot] = source;
                    }
                    rows[k] = ring + slot * kElements;
                }
                blend_rows<kTaps, kKept>(rows, lines[y].weight, pixels * channels,
                                         row<T>(j.dst, j.dst_stride, y) + x * channels);
            }
        }
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

// A kernel of a filter: planes of equal size are copied.
#define TARN_RESIZE(mode, suffix, Filter, T, channels, kept)                                                         \
    Status resize_##mode##_##suffix(const void* src, int32_t src_stride, Size src_size, Region region, void* dst,    \
                                    int32_t dst_stride, Size dst_size, const Allocator& allocator) {                 \
        const Job j{src, src_stride, src_size, region, dst, dst_stride, dst_size, allocator};                        \
        if (same_size(j))                                                                                            \
            return resize_nearest_##suffix(src, src_stride, src_size, region, dst, dst_stride, dst_size, allocator); \
        return resample<Filter, T, kept>(j, channels);                                                               \
    }
#define TARN_RESIZES_OF(mode, type, Filter, T)        \
    TARN_RESIZE(mode, type##_c1, Filter, T, 1, false) \
    TARN_RESIZE(mode, type##_c3, Filter, T, 3, false) \
    TARN_RESIZE(mode, type##_c4, Filter, T, 4, false) \
    TARN_RESIZE(mode, type##_c3x, Filter, T, 4, true)

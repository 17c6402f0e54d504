// Linear resize of 8-bit pixels, in 16-bit fixed point: twice as many outputs to a register as the float pipeline has.
//
// Source rows are resampled horizontally into a ring of two rows with 7 fraction bits; an output row is made of both
// and rounded once. With f the distance from the left (upper) of the two pixels a and b, rounded to 16 bits (15
// vertically):
//   f < 1/2:  a + f (b - a)        else:  b + (f - 1) (b - a)
// where the product is rounded to 7 fraction bits. The choice keeps the factor within a signed 16-bit fraction.
// Errors: of f 255 * 2^-17 and 255 * 2^-16, of the two roundings 2^-8 each: below 1/64 together. Fractions up to 7
// bits, hence every factor of a power of two to 64, lose nothing.
//
// Horizontally 8 outputs find their pixels in one or two 16-byte windows of the source row; where they reach further,
// and below SSSE3, pixel by pixel.
#include "kernels/resize/half_u8.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kStripElements = 2016;  // at most; tables and ring stay in the first-level cache
constexpr int64_t kRingElements = 2048;   // a ring row, readable by whole vectors
constexpr int kGroup = 8;                 // outputs that share windows
#if defined(TARN_VECTORS)
constexpr int kGroups = kLanes / kGroup;  // of a register
constexpr bool kHasWindows = true;
#else
constexpr int kGroups = 1;
constexpr bool kHasWindows = false;
#endif

// What the rows of a strip of columns are made with.
struct Strip {
    int64_t pixels, elements, groups;
    int32_t *left, *right;  // per pixel: source pixels a and b
    int16_t* fraction;      // per element: f, or f - 1 when negative, in 2^-16
    bool windows;           // the tables below are in use
    bool two_windows;       // some group takes bytes beyond its first window
    int64_t* from;          // per group: first byte of the windows in the source row
    uint8_t *low, *high;    // 16 per group: a and b of each output in the first and in the second window, 0x80 for none
    int8_t* base;           // 16 per group: -128 at that of a and b that the sum starts from
};

// ---- Rows ---------------------------------------------------------------------------------------------------------

void resample_by_pixel(const Strip& strip, const uint8_t* s, int channels, int16_t* out) {
    int64_t e = 0;
    for (int64_t x = 0; x < strip.pixels; ++x) {
        const uint8_t *a = s + int64_t(strip.left[x]) * channels, *b = s + int64_t(strip.right[x]) * channels;
        for (int c = 0; c < channels; ++c, ++e) {
            const int32_t f = strip.fraction[e], start = f < 0 ? b[c] : a[c];
            out[e] = int16_t(start * 128 + multiply(64 * (b[c] - a[c]), f));
        }
    }
}

#if defined(TARN_VECTORS)

template <bool kTwo>
void resample_by_windows(const Strip& strip, const uint8_t* s, int16_t* out) {
    const Vector difference = all16(64 << 8 | (-64 & 0xff));
    for (int64_t g = 0; g < strip.groups; g += kGroups) {
        Vector pairs = shuffle(windows(s, strip.from + g), load(strip.low + g * 16));
        if (kTwo) pairs = either(pairs, shuffle(windows(s + 16, strip.from + g), load(strip.high + g * 16)));
        const Vector start = weigh_pairs(pairs, load(strip.base + g * 16));  // -128 times
        const Vector more = multiply(weigh_pairs(pairs, difference), load(strip.fraction + g * kGroup));
        store(out + g * kGroup, sub16(more, start));
    }
}

// kKept: the fourth of four bytes of the destination stays.
template <bool kKept>
void blend_rows(const int16_t* upper, const int16_t* lower, int32_t fraction, int64_t n, uint8_t* dst) {
    const int16_t* start = fraction < 0 ? lower : upper;
    const Vector factor = all16(fraction);
    const auto rounded = [&](int64_t i) {
        const Vector more = multiply(sub16(load(lower + i), load(upper + i)), factor);
        return round_even<7>(add16(load(start + i), more));
    };
    int64_t i = 0;
    if (!kKept)
        for (; n - i >= kBytes; i += kBytes) store(dst + i, to_bytes(rounded(i), rounded(i + kLanes)));
    for (; i < n; i += kBytes) store_some<kKept>(dst + i, to_bytes(rounded(i), rounded(i + kLanes)), n - i);
}

#else

template <bool kTwo>
void resample_by_windows(const Strip&, const uint8_t*, int16_t*) {}

template <bool kKept>
void blend_rows(const int16_t* TARN_RESTRICT upper, const int16_t* TARN_RESTRICT lower, int32_t fraction, int64_t n,
                uint8_t* TARN_RESTRICT dst) {
    const int16_t* TARN_RESTRICT start = fraction < 0 ? lower : upper;
    for (int64_t i = 0; i < n; ++i)
        if (!kKept || i % 4 != 3) dst[i] = uint8_t(round_even<7>(start[i] + multiply(lower[i] - upper[i], fraction)));
}

#endif

// ---- Tables -------------------------------------------------------------------------------------------------------

// The two source pixels of an output, not yet cut to the source, and its fraction in 2^-kBits, from -1/2 to 1/2.
template <int kBits>
inline int64_t split(const Walk& walk, int32_t* fraction) {
    constexpr int32_t kOne = 1 << kBits;
    int32_t f = int32_t(double(walk.rest) / double(walk.denominator) * kOne + 0.5);
    int64_t a = walk.whole;
    if (f == kOne) f = 0, ++a;
    *fraction = f < kOne / 2 ? f : f - kOne;
    return a;
}

// Fills the tables of windows that together have `bytes` bytes; false when a group reaches beyond them.
bool find_windows(Strip& strip, int channels, int64_t src_row_bytes, int bytes) {
    if (src_row_bytes < bytes) return false;
    int64_t x = 0;
    int c = 0;
    for (int64_t g = 0; g < strip.groups; ++g) {
        int64_t at[2 * kGroup], first = src_row_bytes - bytes;
        for (int i = 0; i < kGroup; ++i) {
            at[2 * i] = int64_t(strip.left[x]) * channels + c;
            at[2 * i + 1] = int64_t(strip.right[x]) * channels + c;
            first = min(first, at[2 * i]);
            if (x * channels + c + 1 < strip.elements && ++c == channels) c = 0, ++x;  // past the end: the last again
        }
        strip.from[g] = first;
        for (int i = 0; i < 2 * kGroup; ++i) {
            const int64_t byte = at[i] - first;
            if (byte >= bytes) return false;
            strip.low[g * 16 + i] = byte < 16 ? uint8_t(byte) : 0x80;
            strip.high[g * 16 + i] = byte < 16 ? 0x80 : uint8_t(byte - 16);
            strip.base[g * 16 + i] = (strip.fraction[g * kGroup + i / 2] < 0) == (i % 2 == 1) ? -128 : 0;
        }
    }
    return true;
}

void prepare(Strip& strip, const Job& j, int64_t x, int64_t pixels, int channels) {
    strip.pixels = pixels;
    strip.elements = pixels * channels;
    strip.groups = (strip.elements + kGroup * kGroups - 1) / (kGroup * kGroups) * kGroups;
    Walk walk(j.region.width, j.dst_size.width, j.dst_size.width, x);
    for (int64_t i = 0; i < pixels; ++i, walk.next()) {
        int32_t fraction;
        const int64_t a = j.region.x + split<16>(walk, &fraction);
        strip.left[i] = int32_t(clamp<int64_t>(a, 0, j.src_size.width - 1));
        strip.right[i] = int32_t(clamp<int64_t>(a + 1, 0, j.src_size.width - 1));
        for (int c = 0; c < channels; ++c) strip.fraction[i * channels + c] = int16_t(fraction);
    }
    for (int64_t e = strip.elements; e < strip.groups * kGroup; ++e) strip.fraction[e] = 0;
    const int64_t src_row_bytes = int64_t(j.src_size.width) * channels;
    strip.two_windows = !find_windows(strip, channels, src_row_bytes, 16);
    strip.windows = kHasWindows && (!strip.two_windows || find_windows(strip, channels, src_row_bytes, 32));
}

template <bool kKept>
Status linear(const Job& j, int channels) {
    if (Status s = check(j)) return s;
    if (halves(j)) return channels == 1 ? half<1, false>(j) : channels == 3 ? half<3, false>(j) : half<4, kKept>(j);
    const int64_t width = j.dst_size.width, height = j.dst_size.height;
    Scratch scratch(j.allocator);
    for (int i = 0; i < 2; ++i) scratch.want<int16_t>(kRingElements);
    for (int i = 0; i < 2; ++i) scratch.want<int32_t>(kRingElements);
    scratch.want<int16_t>(kRingElements);
    scratch.want<int64_t>(kRingElements / kGroup);
    for (int i = 0; i < 3; ++i) scratch.want<uint8_t>(2 * kRingElements);
    if (!scratch.allocate()) return kNoMemory;
    int16_t* ring[2];
    for (int i = 0; i < 2; ++i) ring[i] = scratch.take<int16_t>(kRingElements);
    Strip strip{};
    strip.left = scratch.take<int32_t>(kRingElements);
    strip.right = scratch.take<int32_t>(kRingElements);
    strip.fraction = scratch.take<int16_t>(kRingElements);
    strip.from = scratch.take<int64_t>(kRingElements / kGroup);
    strip.low = scratch.take<uint8_t>(2 * kRingElements);
    strip.high = scratch.take<uint8_t>(2 * kRingElements);
    strip.base = scratch.take<int8_t>(2 * kRingElements);

    // Strips of nearly equal width.
    const int64_t most = kStripElements / channels, strips = (width + most - 1) / most;
    const int64_t step = min(most, ((width + strips - 1) / strips + 31) & ~int64_t(31));
    for (int64_t x = 0; x < width; x += step) {
        const int64_t pixels = min(step, width - x);
        prepare(strip, j, x, pixels, channels);
        int64_t held[2] = {-1, -1};  // the source row in each half of the ring
        const auto row_of = [&](int64_t y) {
            const int64_t source = clamp<int64_t>(j.region.y + y, 0, j.src_size.height - 1);
            int16_t* out = ring[source & 1];
            if (held[source & 1] != source) {
                const uint8_t* s = row<uint8_t>(j.src, j.src_stride, source);
                if (!strip.windows)
                    resample_by_pixel(strip, s, channels, out);
                else if (strip.two_windows)
                    resample_by_windows<true>(strip, s, out);
                else
                    resample_by_windows<false>(strip, s, out);
                held[source & 1] = source;
            }
            return out;
        };
        Walk line(j.region.height, height, height, 0);
        for (int64_t y = 0; y < height; ++y, line.next()) {
            int32_t fraction;
            const int64_t upper = split<15>(line, &fraction);
            const int16_t *r0 = row_of(upper), *r1 = row_of(upper + 1);
            blend_rows<kKept>(r0, r1, fraction, strip.elements, row<uint8_t>(j.dst, j.dst_stride, y) + x * channels);
        }
    }
    return kOk;
}

}  // namespace

#define LINEAR(suffix, channels, kept)                                                                               \
    Status resize_linear_##suffix(const void* src, int32_t src_stride, Size src_size, Region region, void* dst,      \
                                  int32_t dst_stride, Size dst_size, const Allocator& allocator) {                   \
        const Job j{src, src_stride, src_size, region, dst, dst_stride, dst_size, allocator};                        \
        if (same_size(j))                                                                                            \
            return resize_nearest_##suffix(src, src_stride, src_size, region, dst, dst_stride, dst_size, allocator); \
        return linear<kept>(j, channels);                                                                            \
    }
LINEAR(u8_c1, 1, false)
LINEAR(u8_c3, 3, false)
LINEAR(u8_c4, 4, false)
LINEAR(u8_c3x, 4, true)
#undef LINEAR

}  // namespace tarn::k::TARN_LEVEL

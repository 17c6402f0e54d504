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
// Horizontally 8 outputs find their pixels in one or two windows of the source row; where they reach further, and
// without look-ups, pixel by pixel.
#include "kernels/plane/ring.h"
#include "kernels/plane/strips.h"
#include "kernels/plane/taps.h"
#include "kernels/resize/half.h"
#include "kernels/resize/windows.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kStripElements = 2016;  // at most; tables and ring stay in the first-level cache
constexpr int64_t kRingElements = 2048;   // a ring row, readable by whole vectors
constexpr int kGroup = 8;                 // outputs of a group of windows

// What the rows of a strip of columns are made with.
struct StripTables {
    int64_t pixels, elements;
    int32_t *left, *right;  // per pixel: source pixels a and b
    int16_t* fraction;      // per element: f, or f - 1 when negative, in 2^-16
    bool in_windows;        // the tables below are in use
    Windows windows;        // 16 per group: a and b of each output
    int8_t* base;           // 16 per group: -128 at that of a and b that the sum starts from
};

// The source bytes of a strip, a and b of each element; past the end the last again.
template <int kChannels>
struct BytesOfPairs {
    const int32_t *left, *right;
    int64_t last, x = 0;
    int32_t c = 0;
    void next(int32_t* at) {
        for (int i = 0; i < kWindow; i += 2) {
            at[i] = left[x] * kChannels + c;
            at[i + 1] = right[x] * kChannels + c;
            if (c < kChannels - 1)
                ++c;
            else if (x < last)
                c = 0, ++x;
        }
    }
};

// ---- Rows ---------------------------------------------------------------------------------------------------------
// Not inlined: constants would be taken out of the loop over rows, and from there to memory.

void resample_by_pixel(const StripTables& t, const uint8_t* s, int channels, int16_t* out) {
    int64_t e = 0;
    for (int64_t x = 0; x < t.pixels; ++x) {
        const uint8_t *a = s + int64_t(t.left[x]) * channels, *b = s + int64_t(t.right[x]) * channels;
        for (int c = 0; c < channels; ++c, ++e) {
            const int32_t f = t.fraction[e], start = f < 0 ? b[c] : a[c];
            out[e] = int16_t(start * 128 + ((64 * (b[c] - a[c]) * f + 0x4000) >> 15));
        }
    }
}

template <bool kTwo>
[[gnu::noinline]] void resample_by_windows(const StripTables& t, const uint8_t* s, int16_t* out) {
    const S8 difference = (S8)splat(int16_t(64 << 8 | (-64 & 0xff)));
    const StripTables u = t;  // in registers
    for (int64_t g = 0; g * kGroup < u.elements; g += kGroups) {
        const Bytes pairs = pick<kTwo>(u.windows, s, g);
        const S16 start = mul_add_pairs(pairs, load<S8>(u.base + g * kWindow));  // -128 times
        const S16 more = mul_fixed15(mul_add_pairs(pairs, difference), load<S16>(u.fraction + g * kGroup));
        store(out + g * kGroup, (U16)more - (U16)start);
    }
}

// kKept: the fourth of four bytes of the destination stays.
template <bool kKept>
[[gnu::noinline]] void blend_rows(const int16_t* upper, const int16_t* lower, int32_t fraction, int64_t n,
                                  uint8_t* dst) {
    const int16_t* start = fraction < 0 ? lower : upper;
    const S16 factor = splat(int16_t(fraction));
    const Bytes mask = colour_mask<uint8_t>();
    // Behind a row stands anything: what comes of that is not kept, and may wrap around.
    const auto rounded = [&](int64_t i) {
        const S16 more = mul_fixed15((S16)(load<U16>(lower + i) - load<U16>(upper + i)), factor);
        return round_even<7>(load<U16>(start + i) + (U16)more);
    };
    each_overlapped(n, [&](auto io, int64_t i) {
        const Bytes v = in_order_once((Bytes)narrow_groups_u8(rounded(i), rounded(i + kLanes<int16_t>)));
        store_form_where<kKept>(io, dst + i, v, mask);
    });
}

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

template <int kChannels>
void prepare(StripTables& t, const Job& j, int64_t x, int64_t pixels) {
    t.pixels = pixels;
    t.elements = pixels * kChannels;
    Walk walk(j.region.width, j.dst_size.width, j.dst_size.width, x);
    for (int64_t i = 0; i < pixels; ++i, walk.next()) {
        int32_t fraction;
        const int64_t a = j.region.x + split<16>(walk, &fraction);
        t.left[i] = int32_t(clamp<int64_t>(a, 0, j.src_size.width - 1));
        t.right[i] = int32_t(clamp<int64_t>(a + 1, 0, j.src_size.width - 1));
        for (int c = 0; c < kChannels; ++c) t.fraction[i * kChannels + c] = int16_t(fraction);
    }
    const int64_t padded = (t.elements + kLanes<int16_t> - 1) / kLanes<int16_t> * kLanes<int16_t>;
    for (int64_t e = t.elements; e < padded; ++e) t.fraction[e] = 0;
    for (int64_t e = 0; e < padded; ++e) {
        t.base[2 * e] = t.fraction[e] < 0 ? 0 : -128;
        t.base[2 * e + 1] = t.fraction[e] < 0 ? -128 : 0;
    }
    t.in_windows = find_windows(t.windows, padded / kGroup, int64_t(j.src_size.width) * kChannels,
                                BytesOfPairs<kChannels>{t.left, t.right, pixels - 1});
}

template <bool kKept>
Status in_strips(const Job& j, int channels) {
    const int64_t width = j.dst_size.width, height = j.dst_size.height;
    StripTables t{};
    int16_t* ring_rows;
    Scratch scratch(j.allocator);
    const auto arrays = [&](auto part) {
        part(ring_rows, 2 * kRingElements);
        part(t.left, kRingElements), part(t.right, kRingElements), part(t.fraction, kRingElements);
        t.windows.carve(part, kRingElements / kGroup);
        part(t.base, 2 * kRingElements);
    };
    if (!scratch.carve(arrays)) return kNoMemory;
    Ring<int16_t, 2> ring(ring_rows, kRingElements);

    each_tile(width, j.bottom - j.top, kStripElements / channels, 32, [&](Tile tile) {
        (channels == 1 ? prepare<1> : channels == 3 ? prepare<3> : prepare<4>)(t, j, tile.x, tile.width);
        ring.forget();
        const auto resampled = [&](int64_t y) {
            const int64_t source = j.row_within(y);
            return ring.row(source, [&](int16_t* out) {
                const uint8_t* s = j.src_row<uint8_t>(source);
                if (!t.in_windows)
                    resample_by_pixel(t, s, channels, out);
                else if (t.windows.two)
                    resample_by_windows<true>(t, s, out);
                else
                    resample_by_windows<false>(t, s, out);
            });
        };
        Walk line(j.region.height, height, height, j.top + tile.top);
        for (int64_t y = j.top + tile.top; y < j.top + tile.bottom; ++y, line.next()) {
            int32_t fraction;
            const int64_t upper = split<15>(line, &fraction);
            const int16_t *r0 = resampled(upper), *r1 = resampled(upper + 1);
            blend_rows<kKept>(r0, r1, fraction, t.elements, j.dst_row<uint8_t>(y) + tile.x * channels);
        }
    });
    return kOk;
}

template <Form kForm>
Status linear(const Job& j) {
    return halves(j) ? half<uint8_t, kForm>(j) : in_strips<kept(kForm)>(j, channels(kForm));
}

}  // namespace

TARN_BODIES(resize_linear, Resize, u8, c1_c3_c4_c3x, resize<linear<kForm>, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

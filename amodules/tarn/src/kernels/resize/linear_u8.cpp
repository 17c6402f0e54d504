// Linear resize of 8-bit pixels, in 16-bit fixed point: twice as many outputs to a register as the float pipeline has.
//
// Source rows are resampled horizontally into a ring of two rows with 7 fraction bits; an output row is made of both
// and rounded once. With f the distance from the left (upper) of the two pixels a and b, rounded to 16 bits (15
// vertically):
//   f < 1/2:  a + f (b - a)        else:  b + (f - 1) (b - a)
// where the product is rounded to 7 fraction bits: from the nearer pixel, less than half-way or just so, to the other.
// So the factor stays within a signed 16-bit fraction.
// Errors: of f 255 * 2^-17 and 255 * 2^-16, of the two roundings 2^-8 each: below 1/64 together. Fractions up to 7
// bits, hence every factor of a power of two to 64, lose nothing.
//
// Horizontally 8 outputs find their pixels in one or two windows of the source row; where they reach further, and
// without look-ups, each output loads its own few bytes.
#include "kernels/plane/ring.h"
#include "kernels/plane/strips.h"
#include "kernels/plane/taps.h"
#include "kernels/resize/half.h"
#include "kernels/resize/linear_rows.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Elements of a strip at most: so many that nearly every image is one strip. Tables and ring then come from the
// second-level cache, one behind the other; rows of several strips would come from a page each, which costs more.
constexpr int64_t kStripElements = 16128;

// The row between two, so far from the nearer one, in 2^-15. kKept: the fourth of four bytes of the destination stays.
template <bool kKept>
[[gnu::noinline]] void blend_rows(const int16_t* near, const int16_t* other, int32_t fraction, int64_t n,
                                  uint8_t* dst) {
    // Of 16 bits, which take fewer steps where products of 15 are made of others, a half fits if it is negative.
    const S16 factor = splat(int16_t(kHasLookup ? fraction : -2 * fraction));
    const Bytes mask = colour_mask<uint8_t>();
    // Behind a row stands anything: what comes of that is not kept, and may wrap around.
    const auto rounded = [&](int64_t i) {
        const U16 start = load<U16>(near + i), end = load<U16>(other + i);
        const S16 more = kHasLookup ? mul_fixed15((S16)(end - start), factor) : mul_fixed16((S16)(start - end), factor);
        return round_even<7>(start + (U16)more);
    };
    each_overlapped(n, [&](auto io, int64_t i) {
        const Bytes v = in_order_once((Bytes)narrow_groups_u8(rounded(i), rounded(i + kLanes<int16_t>)));
        store_form_where<kKept>(io, dst + i, v, mask);
    });
}

// ---- Tables -------------------------------------------------------------------------------------------------------

// How far an output lies from the left (upper) of its two source pixels, in 2^-kBits: from 0 to 1.
template <int kBits>
inline int32_t fraction_of(const Walk& walk) {
    return int32_t(double(walk.rest) / double(walk.denominator) * (1 << kBits) + 0.5);
}

inline int64_t whole_vectors(int64_t slots) {
    return (slots + kLanes<int16_t> - 1) / kLanes<int16_t> * kLanes<int16_t>;
}
// The fractions of the slots: slot_pixel(slot) is the pixel of a slot, at most the last.
template <class Pixel>
void fill_fractions(StripTables& t, Pixel slot_pixel) {
    for (int64_t e = 0; e < t.slots; ++e) t.fraction[e] = t.pixel_fraction[min(slot_pixel(e), t.pixels - 1)];
}

// Prepares loads of both pixels of every output. At an edge of the source, where they are one, it is the first of the
// two, or the second.
template <int kChannels>
bool find_side_by_side(StripTables& t, int32_t src_width) {
    constexpr int kSlots = kChannels == 1 ? 1 : 4;
    const int64_t src_row_bytes = int64_t(src_width) * kChannels;
    if (src_width < 2 || src_row_bytes > INT32_MAX) return false;
    t.whole = 0;
    for (int64_t x = 0; x < t.pixels; ++x) {
        const int32_t a = min(min(t.near[x], t.other[x]), src_width - 2);
        const bool one = t.near[x] == t.other[x], b_nearer = t.near[x] > a;
        const int32_t from_a = (one ? 0 : t.pixel_fraction[x]) * (b_nearer ? 1 : -1) + (b_nearer ? 0x10000 : 0);
        t.at[x] = a * kChannels;
        if (a * kChannels + (kChannels == 1 ? 2 : 8) <= src_row_bytes) t.whole = x + 1;
        // All the way to the second is a last place too far, which no product shows.
        const int16_t factor = int16_t(min(from_a, 0xffff) - 0x8000);
        for (int i = 0; i < kSlots; ++i) t.fraction[x * kSlots + i] = factor;
    }
    return true;
}

// Prepares loads for every output; false when rows are too short or too long for them.
template <int kChannels>
bool find_apart(StripTables& t, int64_t src_row_bytes) {
    constexpr int kLoaded = kChannels == 1 ? 4 : 8, kPixels = kChannels == 1 ? 8 : 2;  // of a group
    if (src_row_bytes < kLoaded || src_row_bytes > INT32_MAX) return false;
    constexpr auto slot_pixel = [](int64_t e) {
        return kChannels == 3 ? e / kGroup * 2 + (e % kGroup >= 3) : e / kChannels;
    };
    t.slots = whole_vectors((t.pixels + kPixels - 1) / kPixels * kGroup);
    fill_fractions(t, slot_pixel);
    memset(t.windows.low, 0x80, size_t(2 * t.slots));
    memset(t.windows.high, 0x80, size_t(2 * t.slots));
    const int32_t last = int32_t(src_row_bytes) - kLoaded;
    for (int64_t e = 0; e < t.slots; ++e) {
        if (kChannels == 3 && e % kGroup >= 6) continue;
        const int c = kChannels == 3 ? int(e % kGroup % 3) : int(e % kChannels);
        const int64_t x = min(slot_pixel(e), t.pixels - 1), lane = e % (kGroups * kGroup);
        // One channel: the lower halves of all groups first.
        const int64_t load =
            kChannels > 1 ? slot_pixel(e) : e - lane + lane % kGroup / 4 * kLanes<int32_t> + lane / kGroup * 4 + e % 4;
        const int32_t at = min(min(t.near[x], t.other[x]) * kChannels, last);
        const int64_t in_group = kChannels > 1 ? load % 2 * kLoaded : e % 4 * kLoaded;
        uint8_t* pick = (kChannels == 1 && e % kGroup >= 4 ? t.windows.high : t.windows.low) + 2 * e;
        t.at[load] = at;
        pick[0] = uint8_t(in_group + t.near[x] * kChannels + c - at);
        pick[1] = uint8_t(in_group + t.other[x] * kChannels + c - at);
    }
    return true;
}

// The two source pixels of every output, cut to the source, and its fraction.
void find_pairs(StripTables& t, const Job& j, int64_t x) {
    const int32_t edge = j.src_size.width - 1;
    Walk walk(j.region.width, j.dst_size.width, j.dst_size.width, x);
    for (int64_t i = 0; i < t.pixels; ++i, walk.next()) {
        const int32_t left = int32_t(j.region.x + walk.whole);
        const int32_t f = fraction_of<16>(walk), upper = f >= 0x8000;
        t.near[i] = clamp(left + upper, 0, edge);
        t.other[i] = clamp(left + 1 - upper, 0, edge);
        t.pixel_fraction[i] = int16_t(upper ? f - 0x10000 : -f);
    }
}

template <int kChannels>
void prepare(StripTables& t, const Job& j, int64_t x, int64_t pixels) {
    t.pixels = pixels;
    t.elements = pixels * kChannels;
    find_pairs(t, j, x);
    if constexpr (!kHasLookup) {
        t.fetch = find_side_by_side<kChannels>(t, j.src_size.width) ? Fetch::apart : Fetch::by_pixel;
        return;
    }
    t.slots = whole_vectors(t.elements);
    const int64_t src_row_bytes = int64_t(j.src_size.width) * kChannels;
    const BytesOfPairs<kChannels> bytes{t.near, t.other, pixels - 1};
    if (!find_windows(t.windows, t.slots / kGroup, src_row_bytes, bytes)) {
        t.fetch = find_apart<kChannels>(t, src_row_bytes) ? Fetch::apart : Fetch::by_pixel;
        return;
    }
    t.fetch = t.windows.two ? Fetch::two_windows : Fetch::one_window;
    fill_fractions(t, [](int64_t e) { return e / kChannels; });
    find_repeats(t.windows, t.slots / kLanes<int16_t>, [&](int64_t v, int64_t u) {
        return equal(t.fraction + v * kLanes<int16_t>, t.fraction + u * kLanes<int16_t>);
    });
}

template <int kChannels, bool kKept>
Status in_strips(const Job& j) {
    const int64_t width = j.dst_size.width, height = j.dst_size.height;
    StripTables t{};
    int16_t* ring_rows;
    constexpr int64_t kMost = kStripElements / kChannels, kUnit = 32;
    const int64_t pixels = strip_width(width, kMost, kUnit), pitch = pixels * kChannels + 64;  // read by whole vectors
    const int64_t slots = pitch * 4 / 3;  // three channels of pixels apart leave a quarter of them unused
    Scratch scratch(j.allocator);
    const auto arrays = [&](auto part) {
        part(ring_rows, 2 * pitch);
        part(t.near, pixels), part(t.other, pixels), part(t.pixel_fraction, pixels);
        part(t.fraction, slots), part(t.at, slots);
        t.windows.carve(part, slots / kGroup + 1);
    };
    if (!scratch.carve(arrays)) return kNoMemory;
    Ring<int16_t, 2> ring(ring_rows, pitch);

    each_tile(width, j.bottom - j.top, kMost, kUnit, [&](Tile tile) {
        prepare<kChannels>(t, j, tile.x, tile.width);
        ring.forget();
        const Ahead ahead(j, tile.width);
        const auto resampled = [&](int64_t y) {
            const int64_t source = j.row_within(y);
            return ring.row(source, [&](int16_t* out) {
                ahead.fetch(source, int64_t(t.near[0]) * kChannels, int64_t(t.near[tile.width - 1]) * kChannels);
                resample_row<kChannels>(t, j.src_row<uint8_t>(source), out);
            });
        };
        Walk line(j.region.height, height, height, j.top + tile.top);
        int32_t f = fraction_of<15>(line);
        for (int64_t y = j.top + tile.top; y < j.top + tile.bottom; ++y) {
            // A row that has no part in the result is not made.
            const int16_t* upper = f < 0x8000 ? resampled(line.whole) : nullptr;
            const int16_t* lower = f > 0 ? resampled(line.whole + 1) : upper;
            if (!upper) upper = lower;
            uint8_t* dst = j.dst_row<uint8_t>(y) + tile.x * kChannels;
            line.next();
            const int32_t next = fraction_of<15>(line);  // before the row: the division's wait is over when it is done
            if (f < 0x4000)
                blend_rows<kKept>(upper, lower, f, t.elements, dst);
            else
                blend_rows<kKept>(lower, upper, 0x8000 - f, t.elements, dst);
            f = next;
        }
    });
    return kOk;
}

template <Form kForm>
Status linear(const Job& j) {
    return halves(j) ? half<uint8_t, kForm>(j) : in_strips<channels(kForm), kept(kForm)>(j);
}

}  // namespace

TARN_BODIES(resize_linear, Resize, u8, c1_c3_c4_c3x, resize<linear<kForm>, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

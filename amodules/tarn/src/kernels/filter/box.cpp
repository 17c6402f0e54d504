// Means under a mask, by the way that its type and size take. Integers are summed exactly: under small masks in twice
// their bits (box_small.h), others in as many as they need by sums brought from place to place (box_lanes.h). Where 32
// bits do not hold them, plainly, in 64. Floats: box_floats.h.
#include "kernels/filter/box_floats.h"
#include "kernels/filter/box_lanes.h"
#include "kernels/filter/box_small.h"
#include "kernels/filter/window.h"
#include "kernels/plane/scratch.h"
#include "kernels/plane/strips.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kLargeStrip = 1536;  // elements

// d := n results. The fourth of every four elements stays where it is kept.
template <class T, bool kKept>
void put_row(uint8_t* d, const T* results, int64_t n) {
    const uint8_t* from = reinterpret_cast<const uint8_t*>(results);
    store_each<kKept>(d, n * int64_t(sizeof(T)), colour_mask<T>(),
                      [=](auto io, int64_t i) { return io.load(from + i); });
}

// ---- Integers -----------------------------------------------------------------------------------------------------

// Quotients of a correctly rounded division are on the side of a half that they belong to as long as the area is below
// 2^36; 1.5 x 2^52 has a last place of 1.
template <class T, class Sum>
void divide_row(const Sum* sums, double area, T* means, int64_t n) {
    constexpr double kNearest = 6755399441055744.0;
    for (int64_t i = 0; i < n; ++i) means[i] = T(int32_t(double(sums[i]) / area + kNearest - kNearest));
}

// Sums of `columns` pixels each.
template <class Sum>
void sum_row(const Sum* column, Sum* sums, int64_t n, int64_t columns, int64_t channels) {
    for (int64_t c = 0; c < channels; ++c) {
        Sum sum = 0;
        for (int64_t i = 0; i < columns - 1; ++i) sum += column[c + i * channels];
        for (int64_t i = c; i < n; i += channels) {
            sum += column[i + (columns - 1) * channels];
            sums[i] = sum;
            sum -= column[i];
        }
    }
}

template <class T, bool kKept, class Sum>
Status box_large(const Window& w, const Allocator& allocator) {
    const int64_t strip = strip_width(w.width, kLargeStrip, kStripUnit), most = min(strip, w.width);
    Scratch scratch(allocator);
    Sum *column = nullptr, *sums = nullptr;
    T* means = nullptr;
    if (!scratch.carve([&](auto part) { part(column, most + w.reach), part(sums, most), part(means, most); }))
        return kNoMemory;
    const double area = double(w.columns) * double(w.rows);
    for (int64_t x = 0; x < w.width; x += strip) {
        const int64_t width = min(strip, w.width - x), n = width + w.reach;
        const auto source = [=](int64_t y) { return reinterpret_cast<const Loose<T>*>(w.src + y * w.src_stride) + x; };
        memset(column, 0, size_t(n) * sizeof(Sum));
        for (int64_t y = 0; y < w.rows - 1; ++y) {
            const Loose<T>* enters = source(y);
            for (int64_t i = 0; i < n; ++i) column[i] += enters[i];
        }
        for (int64_t y = 0; y < w.height; ++y) {
            const Loose<T>*enters = source(y + w.rows - 1), *leaves = source(y);
            for (int64_t i = 0; i < n; ++i) column[i] += enters[i];
            sum_row(column, sums, width, w.columns, w.channels);
            for (int64_t i = 0; i < n; ++i) column[i] -= leaves[i];
            divide_row(sums, area, means, width);
            put_row<T, kKept>(w.dst + y * w.dst_stride + x * int64_t(sizeof(T)), means, width);
        }
    }
    return kOk;
}

bool is_small(const Window& w) { return w.columns <= 7 && w.rows >= 2; }

// Small masks of odd areas, the usual widths of them by loops of their own.
template <class T, bool kKept, class Divide>
Status box_odd(const Window& w, const Divide& divide, const Allocator& allocator) {
    if (w.columns == 5) return box_small<T, kKept, 5, false>(w, divide, allocator);
    if (w.columns == 7) return box_small<T, kKept, 7, false>(w, divide, allocator);
    return box_small<T, kKept, 0, false>(w, divide, allocator);
}

// Bytes, areas from 2 to kMostDivisor16.
template <bool kKept, int kChannels, bool kOdd>
Status box_bytes(const Window& w, int32_t area, const Allocator& allocator) {
    const Divide16<kOdd> divide(area);
    if (!is_small(w)) return box_lanes<kKept, kChannels>(w, Sums16<kOdd>{divide}, allocator);
    if (w.columns == 3 && w.rows == 3) return box_small<uint8_t, kKept, 3, true>(w, Multiply16(area), allocator);
    if constexpr (kOdd)
        return box_odd<uint8_t, kKept>(w, divide, allocator);
    else
        return box_small<uint8_t, kKept, 0, false>(w, divide, allocator);
}

// 16-bit elements, areas below 32768.
template <bool kKept, int kChannels>
Status box_words(const Window& w, int32_t area, const Allocator& allocator) {
    const auto lanes = [&](const auto& divide) {
        return box_lanes<kKept, kChannels>(w, Sums32<int16_t, std::decay_t<decltype(divide)>>{divide}, allocator);
    };
    if (area % 2 == 0 || area >= 170) return lanes(Divide32<true>(area));
    const MultiplyFloat divide(area);
    if (!is_small(w)) return lanes(divide);
    return w.columns == 3 && w.rows == 3 ? box_small<int16_t, kKept, 3, true>(w, divide, allocator)
                                         : box_odd<int16_t, kKept>(w, divide, allocator);
}

template <class T, bool kKept, int kChannels>
Status box_integers(const Window& w, const Allocator& allocator) {
    const auto lanes = [&](const auto& how) { return box_lanes<kKept, kChannels>(w, how, allocator); };
    constexpr int64_t kMost = sizeof(T) == 1 ? 16000000 : 65000;
    if (w.columns > kMost / w.rows) return box_large<T, kKept, int64_t>(w, allocator);
    const int32_t area = int32_t(w.columns * w.rows);
    if constexpr (sizeof(T) == 1) {
        if (area > 1 && area <= kMostDivisor16)
            return area % 2 ? box_bytes<kKept, kChannels, true>(w, area, allocator)
                            : box_bytes<kKept, kChannels, false>(w, area, allocator);
        Sums16Twice<true> odd;
        if (area % 2 && odd.fit(w.columns, w.rows)) return lanes(odd);
        Sums16Twice<false> even;
        if (area % 2 == 0 && even.fit(w.columns, w.rows)) return lanes(even);
        if (w.rows <= 256)
            return area % 2 && area < 43000 ? lanes(Sums16In32<MultiplyFloat>{MultiplyFloat(area)})
                                            : lanes(Sums16In32<Divide32<>>{Divide32<>(area)});
    }
    if constexpr (sizeof(T) == 2)
        if (area < 32768) return box_words<kKept, kChannels>(w, area, allocator);
    return lanes(Sums32<T, Divide32<>>{Divide32<>(area)});
}

template <class T, Form kForm>
Status box(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask, Offset anchor,
           const Allocator& allocator) {
    if (Status s = check_filter(src, dst, size, mask, anchor)) return s;
    const Window w = window_of<T, kForm>(src, src_stride, dst, dst_stride, size, mask, anchor);
    if constexpr (sizeof(T) == 4) {
        return box_floats<kept(kForm), channels(kForm)>(w, allocator);
    } else {
        return box_integers<T, kept(kForm), channels(kForm)>(w, allocator);
    }
}

}  // namespace

TARN_BODIES(box, Filter, u8_s16_f32, c1_c3_c4_c3x, box<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

// Borders. Each row of the destination is the nearest row of the source, lengthened; the rows above and below read one
// source row again and again, which stays in the cache. Left and right go by whole vectors of the repeated pixel that
// run on into the middle, which is copied over them then: stores of parts of vectors take longer than the row's copy. A
// source that overlaps the destination is first copied to its place, and the border is made from there.
#include "kernels/border/border.h"

#include "kernels/plane/move.h"
#include "kernels/plane/pattern.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Bytes of a destination row.
struct Span {
    int64_t left, middle, right;
    int64_t all() const { return left + middle + right; }
};

// ---- Pixels repeated ----------------------------------------------------------------------------------------------

// For each byte of three vectors of pixels of three channels, its place in the pixel.
template <int64_t kBytes>
struct PlaceInPixel {
    uint8_t v[3][kVector];
    constexpr PlaceInPixel() : v{} {
        for (int64_t i = 0; i < 3 * kVector; ++i) v[i / kVector][i % kVector] = uint8_t(i % kBytes);
    }
};

// The pixel at p, of which `before` bytes before it may be read too, and so many behind it that there are sixteen.
template <class T, Form kForm>
inline Pattern repeat(const uint8_t* p, int64_t before) {
    constexpr int64_t kBytes = kPixelBytes<T, kForm>;
    if constexpr (kBytes == 16) {
        const Bytes all = every_group(p);
        return {{all, all, all}};
    } else if constexpr (kBytes == 1 || kBytes == 2 || kBytes == 4 || kBytes == 8) {
        constexpr uint64_t kOnes = ~uint64_t(0);
        uint64_t pixel = 0;
        memcpy(&pixel, p, kBytes);
        const Bytes all = (Bytes)splat(pixel * (kOnes / (kOnes >> (64 - 8 * kBytes))));
        return {{all, all, all}};
    } else if constexpr (kHasLookup) {
        static constexpr PlaceInPixel<kBytes> place;
        const Bytes group = every_group(p - before), shift = splat(uint8_t(before));
        const auto vector = [&](int i) { return lookup(group, load<Bytes>(place.v[i]) + shift); };
        return {{vector(0), vector(1), vector(2)}};
    } else if constexpr (kBytes == 3) {
        // Words of eight bytes: what overlaps in them is equal.
        uint64_t first = 0;
        memcpy(&first, p, kBytes);
        first *= 0x1000001000001;
        const uint64_t second = first >> 16 | first << 32, third = first >> 8 | first << 40;
        return {{(Bytes)U64{first, second}, (Bytes)U64{third, first}, (Bytes)U64{second, third}}};
    } else {
        return pattern_of_constants<T, kForm>(p);
    }
}

// What stands left and right of a source row of n bytes, and above and below.
template <class T, Form kForm>
struct Replicated {
    static constexpr int64_t kBytes = kPixelBytes<T, kForm>;
    static constexpr bool kOutside = false;  // rows above and below are as the first and the last
    Pattern alone(const uint8_t* pixel) const {
        uint8_t group[16] = {};
        memcpy(group, pixel, kBytes);
        return repeat<T, kForm>(group, 0);
    }
    Pattern left(const uint8_t* s, int64_t n) const { return n < 16 ? alone(s) : repeat<T, kForm>(s, 0); }
    Pattern right(const uint8_t* s, int64_t n) const {
        const uint8_t* pixel = s + n - kBytes;
        return n < 16 ? alone(pixel) : repeat<T, kForm>(pixel, 16 - kBytes);
    }
};
struct Constant {
    static constexpr bool kOutside = true;
    Pattern pattern;
    const Pattern& left(const uint8_t*, int64_t) const { return pattern; }
    const Pattern& right(const uint8_t*, int64_t) const { return pattern; }
};

// ---- Rows ---------------------------------------------------------------------------------------------------------

// n bytes of a pattern.
template <bool kKept>
inline void fill(uint8_t* d, int64_t n, const Pattern& p, Bytes colours) {
    store_each_phase<kKept>(d, n, colours, [&](auto, int64_t, auto phase) { return p.v[phase.index]; });
}

// The same in whole vectors, of which the last stands over by less than a vector: from d on, or up to d.
template <bool kKept>
inline void fill_from(uint8_t* d, int64_t n, const Pattern& p, Bytes colours) {
    for (int64_t i = 0; i < n; i += 3 * kVector)
        for (int v = 0; v < 3 && i + v * kVector < n; ++v)
            store_form<kKept>(Whole{}, d + i + v * kVector, p.v[v], colours);
}
template <bool kKept>
inline void fill_to(uint8_t* d, int64_t n, const Pattern& p, Bytes colours) {
    for (int64_t i = 0; i < n; i += 3 * kVector)
        for (int v = 0; v < 3 && i + v * kVector < n; ++v)
            store_form<kKept>(Whole{}, d - i - (v + 1) * kVector, p.v[2 - v], colours);
}

// What there is to do in rows: everything, in vectors that stand over, or byte for byte, or by way of a line where a
// row is made as a whole; or all but the middle.
enum class Way { standing_over, exact, by_line, streamed, border };
constexpr int64_t kLine = 4 * kVector;  // bytes of a row that is made in a line, at most

// A middle of a vector at least. The first vector and the last stand over the others, which are stored aligned; where a
// channel is kept they begin with a pixel.
template <bool kKept>
inline void copy_middle(uint8_t* d, const uint8_t* s, int64_t n, Bytes colours) {
    const auto copy = [&](int64_t i) { store_form<kKept>(Whole{}, d + i, load<Bytes>(s + i), colours); };
    const int64_t last = n - kVector;
    copy(0);
    int64_t i = kKept ? kVector : -reinterpret_cast<intptr_t>(d) & (kVector - 1);
#pragma GCC unroll 4
    for (; i < last; i += kVector) copy(i);
    copy(last);
}

template <Way kWay, bool kKept, class Edge>
void extend_rows(uint8_t* d, int64_t dst_step, const uint8_t* s, int64_t src_step, int64_t count, Span n,
                 const Edge& edge, Bytes colours) {
    uint8_t line[kWay == Way::by_line ? kLine + kVector : 1];
    for (int64_t y = 0; y < count; ++y, d += dst_step, s += src_step) {
        uint8_t* middle = d + n.left;
        uint8_t* right = middle + n.middle;
        if constexpr (kWay == Way::standing_over) {
            fill_from<kKept>(d, n.left, edge.left(s, n.middle), colours);
            fill_to<kKept>(right + n.right, n.right, edge.right(s, n.middle), colours);
            copy_middle<kKept>(middle, s, n.middle, colours);
        } else if constexpr (kWay == Way::by_line) {
            if (y == 0 || src_step) {
                fill_from<false>(line, n.left, edge.left(s, n.middle), colours);
                copy_bytes(line + n.left, s, n.middle);
                fill_from<false>(line + n.left + n.middle, n.right, edge.right(s, n.middle), colours);
            }
            store_each<kKept>(d, n.all(), colours, [&](auto, int64_t i) { return load<Bytes>(line + i); });
        } else {
            fill<kKept>(d, n.left, edge.left(s, n.middle), colours);
            if constexpr (kWay == Way::streamed)
                stream_row(middle, s, n.middle);
            else if constexpr (kWay == Way::exact)
                store_each<kKept>(middle, n.middle, colours, [=](auto io, int64_t i) { return io.load(s + i); });
            fill<kKept>(right, n.right, edge.right(s, n.middle), colours);
        }
    }
}

template <bool kKept, class Edge>
Status extend(const void* src, int32_t src_stride, Size src_size, void* dst, int32_t dst_stride, Size dst_size,
              Offset corner, int64_t pixel_bytes, const Edge& edge, Bytes colours) {
    if (corner.x < 0 || corner.y < 0) return kBadArg;
    const int64_t right = int64_t(dst_size.width) - src_size.width - corner.x;
    if (right < 0 || int64_t(dst_size.height) - src_size.height < corner.y) return kBadSize;
    const Span n{corner.x * pixel_bytes, src_size.width * pixel_bytes, right * pixel_bytes};

    void* place = row<uint8_t>(dst, dst_stride, corner.y) + n.left;
    bool in_place = src == place && src_stride == dst_stride;
    const Extent source(src, src_stride, src_size, pixel_bytes), all(dst, dst_stride, dst_size, pixel_bytes);
    if (!in_place && !source.apart_from(all)) {
        if constexpr (kKept)
            copy_rows_c3x(src, src_stride, place, dst_stride, src_size, pixel_bytes, colours);
        else
            copy_rows(src, src_stride, place, dst_stride, src_size, pixel_bytes);
        src = place, src_stride = dst_stride, in_place = true;
    }
    const bool streamed = !kKept && n.middle >= kLeastStreamed && streams(2 * n.all() * dst_size.height);
    const auto make = streamed              ? extend_rows<Way::streamed, kKept, Edge>
                      : n.middle >= kVector ? extend_rows<Way::standing_over, kKept, Edge>
                      : n.all() <= kLine    ? extend_rows<Way::by_line, kKept, Edge>
                                            : extend_rows<Way::exact, kKept, Edge>;
    const auto make_outside = [&](int64_t y, int64_t count, int64_t nearest) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y);
        const uint8_t* s = row<uint8_t>(src, src_stride, nearest);
        if constexpr (Edge::kOutside)
            for (; count > 0; --count, d += dst_stride) fill<kKept>(d, n.all(), edge.left(s, n.middle), colours);
        else
            make(d, dst_stride, s, 0, count, n, edge, colours);
    };
    const int64_t below = int64_t(corner.y) + src_size.height;
    make_outside(0, corner.y, 0);
    (in_place ? extend_rows<Way::border, kKept, Edge> : make)(row<uint8_t>(dst, dst_stride, corner.y), dst_stride,
                                                              row<uint8_t>(src, src_stride, 0), src_stride,
                                                              src_size.height, n, edge, colours);
    make_outside(below, dst_size.height - below, src_size.height - 1);
    if (streamed) stream_fence();
    return kOk;
}

template <class T, Form kForm>
Status replicate(const void* src, int32_t src_stride, Size src_size, void* dst, int32_t dst_stride, Size dst_size,
                 Offset corner) {
    if (Status s = check(src_size, src, dst)) return s;
    return extend<kept(kForm)>(src, src_stride, src_size, dst, dst_stride, dst_size, corner, kPixelBytes<T, kForm>,
                               Replicated<T, kForm>{}, colour_mask<T>());
}

template <class T, Form kForm>
Status constant(const void* src, int32_t src_stride, Size src_size, void* dst, int32_t dst_stride, Size dst_size,
                Offset corner, const void* values) {
    if (Status s = check(src_size, src, dst, values)) return s;
    return extend<kept(kForm)>(src, src_stride, src_size, dst, dst_stride, dst_size, corner, kPixelBytes<T, kForm>,
                               Constant{pattern_of_constants<T, kForm>(values)}, colour_mask<T>());
}

}  // namespace

TARN_BODIES(border_replicate, Border, u8_s16_s32, c1_c3_c4_c3x, replicate<T, kForm>)
TARN_BODIES(border_constant, ConstantBorder, u8_s16_s32, c1_c3_c4_c3x, constant<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

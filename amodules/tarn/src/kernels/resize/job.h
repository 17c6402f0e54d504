// For the resize sources only: what a call is made of, and the door that all kernels go through.
#pragma once

#include "kernels/plane/move.h"
#include "kernels/plane/scratch.h"
#include "kernels/resize/resize.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The arguments of a call.
struct Job {
    const void* src;
    int32_t src_stride;
    Size src_size;
    Region region;
    void* dst;
    int32_t dst_stride;
    Size dst_size;
    int64_t top, bottom;  // the destination's rows that are made
    const Allocator& allocator;

    // Row y of the source, from the plane's left; row y of the destination, one of those that are made.
    template <class T>
    const T* src_row(int64_t y) const {
        return row<T>(src, src_stride, y);
    }
    template <class T>
    T* dst_row(int64_t y) const {
        return row<T>(dst, dst_stride, y - top);
    }
    // The source's row nearest to row y, which is counted from the region's top.
    int64_t row_within(int64_t y) const { return clamp<int64_t>(region.y + y, 0, src_size.height - 1); }
};

// Fetches pixels of a source row ahead of their use, into the second-level cache: rows of large planes often share
// their places in the first. Of a strip of columns every row lies on another page, whither the processor's own fetching
// does not follow. A single strip is whole rows, and needs none of this; nor does an image that shrinks so much that it
// leaves most lines out.
class Ahead {
public:
    // As many rows as some outputs are apart, at least three.
    Ahead(const Job& j, int64_t strip)
        : job_(j), wanted_(strip < j.dst_size.width && j.region.width / 16 <= j.dst_size.width) {
        const int64_t from = j.region.height, to = j.dst_size.height;
        const int64_t outputs = (3 * to + from - 1) / from;
        rows_ = (outputs * from + to / 2) / to;
    }
    // The bytes [from, to) of the row as far below `number`, which counts from the source's top.
    void fetch(int64_t number, int64_t from, int64_t to) const {
        if (!wanted_ || number + rows_ >= job_.src_size.height) return;
        const uint8_t* s = job_.src_row<uint8_t>(number + rows_);
        for (int64_t i = from; i < to; i += 64) __builtin_prefetch(s + i, 0, 2);
    }

private:
    const Job& job_;
    int64_t rows_;
    bool wanted_;
};

inline Status check(const Job& j) {
    if (Status s = check(j.src_size, j.src, j.dst)) return s;
    const Region& r = j.region;
    if (j.dst_size.width <= 0 || j.dst_size.height <= 0 || r.width <= 0 || r.height <= 0) return kBadSize;
    const bool inside =
        r.x >= 0 && r.y >= 0 && r.width <= j.src_size.width - r.x && r.height <= j.src_size.height - r.y;
    return inside && j.top >= 0 && j.top < j.bottom && j.bottom <= j.dst_size.height ? kOk : kBadArg;
}

inline bool halves_width(const Job& j) { return j.region.width == 2 * int64_t(j.dst_size.width); }
inline bool halves(const Job& j) { return halves_width(j) && j.region.height == 2 * int64_t(j.dst_size.height); }

template <class T, Form kForm>
Status copy_region(const Job& j) {
    constexpr int64_t kBytes = kPixelBytes<T, kForm>;
    const uint8_t* s = j.src_row<uint8_t>(j.region.y + j.top) + j.region.x * kBytes;
    uint8_t* d = j.dst_row<uint8_t>(j.top);
    const Size size{j.dst_size.width, int32_t(j.bottom - j.top)};
    if constexpr (kept(kForm))
        return copy_rows_c3x(s, j.src_stride, d, j.dst_stride, size, kBytes, colour_mask<T>());
    else
        return copy_rows(s, j.src_stride, d, j.dst_stride, size, kBytes);
}

// A kernel: checks its arguments, and leaves the rest to kBody.
template <auto kBody>
Status checked(const void* src, int32_t src_stride, Size src_size, Region region, void* dst, int32_t dst_stride,
               PlaneRows rows, const Allocator& allocator) {
    const Job j{src, src_stride, src_size, region, dst, dst_stride, rows.size, rows.top, rows.bottom, allocator};
    const Status s = check(j);
    return s ? s : kBody(j);
}

// A kernel of one type: planes of equal size are copied.
template <auto kBody, class T, Form kForm>
Status copy_or_resize(const Job& j) {
    const bool equal = j.dst_size.width == j.region.width && j.dst_size.height == j.region.height;
    return equal ? copy_region<T, kForm>(j) : kBody(j);
}
template <auto kBody, class T, Form kForm>
Status resize(const void* src, int32_t src_stride, Size src_size, Region region, void* dst, int32_t dst_stride,
              PlaneRows rows, const Allocator& allocator) {
    return checked<copy_or_resize<kBody, T, kForm>>(src, src_stride, src_size, region, dst, dst_stride, rows,
                                                    allocator);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

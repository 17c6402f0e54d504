// Minimum and maximum under a mask. Small square ones: extreme_small.h. Others by strips: extreme.h.
#include "kernels/filter/extreme.h"
#include "kernels/filter/extreme_small.h"
#include "kernels/filter/window.h"
#include "kernels/plane/scratch.h"
#include "kernels/plane/strips.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kBlockBytes = 256 << 10;  // of a strip's block of rows, for the second-level cache
constexpr int64_t kStripMost = 8192, kStripLeast = 576, kStripUnit = 192;  // elements

template <class Op, class T, Form kForm>
Status extreme(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, Size mask, Offset anchor,
               const Allocator& allocator) {
    if (Status s = check_filter(src, dst, size, mask, anchor)) return s;
    const Window w = window_of<T, kForm>(src, src_stride, dst, dst_stride, size, mask, anchor);
    if (is_small<3>(w, sizeof(T))) return extreme_small<Op, T, kForm, 3>(w, allocator);
    if (is_small<5>(w, sizeof(T))) return extreme_small<Op, T, kForm, 5>(w, allocator);
    // Seven joins along a row are many where each is made of several steps.
    if constexpr (kHasMinMax32 || sizeof(T) < sizeof(float))
        if (is_small<7>(w, sizeof(T))) return extreme_small<Op, T, kForm, 7>(w, allocator);
    using Fold = ExtremeFold<Op, T>;
    using E = typename Fold::E;
    const int64_t rows = min(w.rows, w.height);  // of a block
    const int64_t fit = kBlockBytes / int64_t(sizeof(E)) / rows - w.reach;
    const int64_t most = max(min(fit, kStripMost), max(w.reach, kStripLeast)) / kStripUnit * kStripUnit;
    const int64_t strip = strip_width(w.width, most, kStripUnit);
    const int64_t pitch = (min(strip, w.width) + w.reach + 5 * kLanes<E>) / kLanes<E> * kLanes<E>;
    Scratch scratch(allocator);
    E* block = nullptr;
    if (!scratch.carve([&](auto part) { part(block, rows * pitch); })) return kNoMemory;
    for (int64_t x = 0; x < w.width; x += strip) {
        const int64_t width = min(strip, w.width - x);
        for (int64_t y = 0; y < w.height; y += rows) {
            const int64_t count = min(rows, w.height - y);
            const uint8_t* s = w.src + y * w.src_stride + x * int64_t(sizeof(T));
            fold_columns<Fold>(StridedRows{s, w.src_stride}, width + w.reach, w.rows, count, block, pitch);
            for (int64_t j = 0; j < count; ++j)
                extreme_row<Op, T, kept(kForm)>(block + j * pitch,
                                                w.dst + (y + j) * w.dst_stride + x * int64_t(sizeof(T)), width,
                                                w.columns, w.channels);
        }
    }
    return kOk;
}

}  // namespace

TARN_BODIES(filter_min, Filter, u8_s16_f32, c1_c3_c4_c3x, extreme<Minimum, T, kForm>)
TARN_BODIES(filter_max, Filter, u8_s16_f32, c1_c3_c4_c3x, extreme<Maximum, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

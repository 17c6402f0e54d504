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

// A part of the results, of so many rows and columns as the window says.
template <class Op, class T, bool kKept, class Order>
void extreme_part(const Window& w, typename Order::E* block, int64_t pitch) {
    fold_columns<ExtremeFold<Op, T, Order>>(StridedRows{w.src, w.src_stride}, w.width + w.reach, w.rows, w.height,
                                            block, pitch);
    for (int64_t j = 0; j < w.height; ++j)
        extreme_row<Op, T, kKept, Order>(block + j * pitch, w.dst + j * w.dst_stride, w.width, w.columns, w.channels);
}

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
    using E = typename Ordered<T>::E;
    const int64_t rows = min(w.rows, w.height);  // of a block
    const int64_t fit = kBlockBytes / int64_t(sizeof(E)) / rows - w.reach;
    const int64_t most = max(min(fit, kStripMost), max(w.reach, kStripLeast)) / kStripUnit * kStripUnit;
    const int64_t strip = strip_width(w.width, most, kStripUnit);
    const int64_t pitch = (min(strip, w.width) + w.reach + 5 * kLanes<E>) / kLanes<E> * kLanes<E>;
    Scratch scratch(allocator);
    E* block = nullptr;
    if (!scratch.carve([&](auto part) { part(block, rows * pitch); })) return kNoMemory;
    [[maybe_unused]] OrdinaryBlocks blocks;
    for (int64_t x = 0; x < w.width; x += strip) {
        Window part = w;
        part.width = min(strip, w.width - x);
        for (int64_t y = 0; y < w.height; y += rows) {
            part.src = w.src + y * w.src_stride + x * int64_t(sizeof(T));
            part.dst = w.dst + y * w.dst_stride + x * int64_t(sizeof(T));
            part.height = min(rows, w.height - y);
            if constexpr (kFloatsPay<T>) {
                const int64_t n = (part.width + w.reach) * int64_t(sizeof(T));
                if (y == 0) blocks.begin(part.src, w.src_stride, n, w.rows);
                if (blocks.both(part.src + w.rows * w.src_stride, w.src_stride, n, min(w.rows, w.height - 1 - y))) {
                    extreme_part<Op, T, kept(kForm), AsFloats>(part, reinterpret_cast<float*>(block), pitch);
                    continue;
                }
            }
            extreme_part<Op, T, kept(kForm), Ordered<T>>(part, block, pitch);
        }
    }
    return kOk;
}

}  // namespace

TARN_BODIES(filter_min, Filter, u8_s16_f32, c1_c3_c4_c3x, extreme<Minimum, T, kForm>)
TARN_BODIES(filter_max, Filter, u8_s16_f32, c1_c3_c4_c3x, extreme<Maximum, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

// For the filter sources only: rows walked along side by side, a lane of a vector each, so that what an element takes
// from the one before it is one plain operation on vectors, at any distance. Columns are turned into vectors and back
// in the registers, group by group.
#pragma once

#include "kernels/plane/store.h"
#include "kernels/plane/transpose.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The rows and columns that the lanes of elements E begin at, and where they write, in bytes; [lane of a group][group].
template <class E>
struct Lanes {
    int64_t row[kLanes<E>], x[kLanes<E>];
    int64_t to[kGroupLanes<E>][kGroups];
    int64_t width;  // elements of each lane
};

// The lanes of `count` rows of `width` elements, `parts` for each row, which overlap at its end. Lanes that are left
// over are the first once more.
template <class T, class E>
Lanes<E> lanes_of(int64_t count, int64_t parts, int64_t width, int64_t channels, int64_t dst_stride) {
    Lanes<E> lanes;
    const int64_t pixels = width / channels;
    lanes.width = (pixels + parts - 1) / parts * channels;
    for (int64_t i = 0; i < kLanes<E>; ++i) {
        const int64_t lane = i < parts * count ? i : 0, row = lane % count;
        const int64_t x = min(lane / count * lanes.width, width - lanes.width);
        lanes.row[i] = row, lanes.x[i] = x;
        lanes.to[i % kGroupLanes<E>][i / kGroupLanes<E>] = row * dst_stride + x * int64_t(sizeof(T));
    }
    return lanes;
}

// The 16 bytes of results at d, and the first n elements of fewer.
template <class T, bool kKept, class E>
[[gnu::always_inline]] inline void store_results(const Lanes<E>& lanes, uint8_t* d, const Bytes (&v)[kGroupLanes<E>]) {
    const Bytes mask = colour_mask<T>();
    for (int j = 0; j < kGroupLanes<E>; ++j)
        store_groups(d, lanes.to[j], kKept ? select(mask, v[j], load_groups(d, lanes.to[j])) : v[j]);
}
template <class T, bool kKept, class E>
[[gnu::noinline]] void store_results(const Lanes<E>& lanes, uint8_t* d, const Bytes (&v)[kGroupLanes<E>], int64_t n) {
    for (int j = 0; j < kGroupLanes<E>; ++j)
        for (int g = 0; g < kGroups; ++g) {
            uint8_t* to = d + lanes.to[j][g];
            const uint8_t* from = reinterpret_cast<const uint8_t*>(v + j) + 16 * g;
            if (!kKept) {
                copy_bytes(to, from, n * int64_t(sizeof(T)));
                continue;
            }
            for (int64_t i = 0; i < n; i += 4)
                copy_bytes(to + i * int64_t(sizeof(T)), from + i * int64_t(sizeof(T)), 3 * sizeof(T));
        }
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

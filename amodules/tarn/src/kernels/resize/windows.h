// For the resize sources only: bytes of a source row brought together by look-ups. 16 bytes that are needed side by
// side stand near each other in the source, within a window of 16 bytes or within two that follow each other; a group
// of a vector loads its windows and picks from them.
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kWindow = 16;  // bytes

// The tables, one entry or 16 per group.
struct Windows {
    bool two;             // some group picks from its second window
    int64_t* from;        // first byte of the first window in the source row
    uint8_t *low, *high;  // the byte of the first, and of the second window; 0x80 for none

    template <class Part>
    void carve(Part part, int64_t groups) {
        part(from, groups), part(low, groups * kWindow), part(high, groups * kWindow);
    }
};

// The bytes of the groups of a vector, from group g on.
template <bool kTwo>
inline Bytes pick(const Windows& w, const uint8_t* s, int64_t g) {
    Bytes v = lookup(load_groups(s, w.from + g), load<Bytes>(w.low + g * kWindow));
    if (kTwo) v |= lookup(load_groups(s + kWindow, w.from + g), load<Bytes>(w.high + g * kWindow));
    return v;
}

// Fills the tables of so many groups; false when a group reaches beyond its one or two windows. positions.next(at)
// gives the 16 bytes that the next group needs.
template <bool kTwo, class Positions>
bool fill_windows(Windows& w, int64_t groups, int64_t src_row_bytes, Positions positions) {
    constexpr int kBytes = kTwo ? 2 * kWindow : kWindow;
    if (src_row_bytes < kBytes || src_row_bytes > INT32_MAX) return false;
    uint8_t *low = w.low, *high = w.high;
    for (int64_t g = 0; g < groups; ++g, low += kWindow, high += kWindow) {
        int32_t at[kWindow], first = int32_t(src_row_bytes) - kBytes, last = 0;
        positions.next(at);
        for (int i = 0; i < kWindow; ++i) first = min(first, at[i]), last = max(last, at[i]);
        if (last - first >= kBytes) return false;
        w.from[g] = first;
        for (int i = 0; i < kWindow; ++i) {
            const uint8_t byte = uint8_t(at[i] - first);
            low[i] = byte < kWindow ? byte : 0x80;
            if (kTwo) high[i] = byte < kWindow ? 0x80 : byte - kWindow;
        }
    }
    w.two = kTwo;
    return true;
}

// Finds the windows of a row; false when two don't hold all that is needed.
template <class Positions>
bool find_windows(Windows& w, int64_t groups, int64_t src_row_bytes, Positions positions) {
    return kHasLookup && (fill_windows<false>(w, groups, src_row_bytes, positions) ||
                          fill_windows<true>(w, groups, src_row_bytes, positions));
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

// For the resize sources only: bytes of a source row brought together by look-ups. 16 bytes that are needed side by
// side stand near each other in the source, within a window of 16 bytes or within two that follow each other; a group
// of a vector loads its windows and picks from them.
#pragma once

#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kWindow = 16;  // bytes

// Vectors [from, to) that pick as those a period of so many vectors before do, but `step` bytes further in the source.
// A multiple of the period, the first one included. Period 0: none.
struct Repeats {
    int period;
    int64_t from, to, step;
};

// The tables, one entry or 16 per group.
struct Windows {
    bool two;             // some group picks from its second window
    int64_t* from;        // first byte of the first window in the source row
    uint8_t *low, *high;  // the byte of the first, and of the second window; 0x80 for none
    Repeats repeats;

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

// Whether the vectors at two addresses are equal.
inline bool equal(const void* a, const void* b) { return differing_bits(load<U64>(a), load<U64>(b)) == 0; }

// The tables of a period's vectors, to stay in registers.
template <int kPeriod, bool kTwo>
struct Period {
    Bytes low[kPeriod], high[kPeriod];
    int64_t from[kPeriod * kGroups];

    [[gnu::always_inline]] explicit Period(const Windows& w) {
#pragma GCC unroll 3
        for (int k = 0; k < kPeriod; ++k) {
            const int64_t g = (w.repeats.from + k) * kGroups;
            low[k] = load<Bytes>(w.low + g * kWindow);
            if (kTwo) high[k] = load<Bytes>(w.high + g * kWindow);
#pragma GCC unroll 4
            for (int i = 0; i < kGroups; ++i) from[k * kGroups + i] = w.from[g + i];
        }
    }
    // The bytes of the groups of the k-th.
    Bytes pick(const uint8_t* s, int k) const {
        Bytes v = lookup(load_groups(s, from + k * kGroups), low[k]);
        if (kTwo) v |= lookup(load_groups(s + kWindow, from + k * kGroups), high[k]);
        return v;
    }
};

// Looks for the vectors that repeat: nearly all where a factor's period is short. The first one may be left out, for it
// may have pixels of the source's edge. same(v, u): whether what else belongs to two vectors is the same.
template <class Same>
void find_repeats(Windows& w, int64_t vectors, Same same) {
    const auto repeats = [&](int64_t v, int64_t u, int64_t step) {
        for (int g = 0; g < kGroups; ++g)
            if (w.from[v * kGroups + g] - w.from[u * kGroups + g] != step) return false;
        return equal(w.low + v * kVector, w.low + u * kVector) &&
               (!w.two || equal(w.high + v * kVector, w.high + u * kVector)) && same(v, u);
    };
    for (int i = 0; i < 4; ++i) {
        const int period = i < 2 ? 1 : 3, first = i % 2, second = first + period;
        if (vectors < 4 * period) break;
        Repeats r{period, first, second, w.from[second * kGroups] - w.from[first * kGroups]};
        while (r.to < vectors && repeats(r.to, r.to - period, r.step)) ++r.to;
        r.to -= (r.to - r.from) % period;
        w.repeats = r;
        if (r.to - r.from >= 3 * period) return;
    }
    w.repeats = {};
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

// For the resize sources only: bytes of a source row brought together by look-ups. 16 bytes that are needed side by
// side stand near each other in the source, within a window of 16 bytes or within some that follow each other; a group
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
    uint8_t *low, *high;  // the byte of the first, and of the second window; top bit: none
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

// What a group needs: 16 bytes, counted from the first one that it loads. Eight to a word: loads of vectors would wait
// for bytes that are stored one by one.
struct Group {
    int32_t first, reach;  // in the source row; from there to the last one needed
    uint64_t bytes[2];

    static constexpr uint64_t kOnes = 0x0101010101010101;
    // Which of them the window-th window has, for look-ups, whose indices have the top bit where it has none.
    void fill(uint8_t* table, int64_t window) const {
        for (int i = 0; i < 2; ++i) {
            const uint64_t other_window = (bytes[i] >> 4 & 0x0f * kOnes) ^ uint64_t(window) * kOnes;
            const uint64_t picked = (bytes[i] & 0x0f * kOnes) | ((other_window + 0x7f * kOnes) & 0x80 * kOnes);
            memcpy(table + 8 * i, &picked, sizeof picked);
        }
    }
};

// Fills the tables of so many groups; false when a group reaches beyond its one or two windows. positions.next(latest)
// is what the next group needs, whose first window begins at `latest` at the latest.
template <bool kTwo, class Positions>
bool fill_windows(Windows& w, int64_t groups, int64_t src_row_bytes, Positions positions) {
    constexpr int kBytes = kTwo ? 2 * kWindow : kWindow;
    if (src_row_bytes < kBytes || src_row_bytes > INT32_MAX) return false;
    for (int64_t g = 0; g < groups; ++g) {
        const Group group = positions.next(int32_t(src_row_bytes) - kBytes);
        if (group.reach >= kBytes) return false;
        w.from[g] = group.first;
        group.fill(w.low + g * kWindow, 0);
        if (kTwo) group.fill(w.high + g * kWindow, 1);
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

// Groups whose bytes lie further apart: each is picked from whole vectors that follow each other, of as many bytes as a
// byte counts at most.
constexpr int64_t kLongestSegment = 256;
struct Segments {
    int64_t count;    // vectors of a group, at least one
    int64_t* from;    // of a group: first byte of its first vector in the source row
    uint8_t* tables;  // of a group: as many vectors, of 16 entries for each window in them

    template <class Part>
    void carve(Part part, int64_t groups) {
        part(from, groups), part(tables, groups * count * kVector);
    }
};

// Fills the tables of so many groups, none of which reaches beyond its vectors, of rows of as many at least and less
// than 2 GB.
template <class Positions>
void fill_segments(Segments& w, int64_t groups, int64_t src_row_bytes, Positions positions) {
    uint8_t* table = w.tables;
    for (int64_t g = 0; g < groups; ++g) {
        const Group group = positions.next(int32_t(src_row_bytes - w.count * kVector));
        w.from[g] = group.first;
        for (int64_t k = 0; k < w.count * kGroups; ++k, table += kWindow) group.fill(table, k);
    }
}

// Group i of the result has the bits of all groups of v[i].
template <int kCount>
inline Bytes joined_groups(const Bytes (&v)[kCount]) {
    if constexpr (kCount == 1) {
        return v[0];
    } else {
        const auto two = [](auto a, auto b) { return even_groups(a, b) | odd_groups(a, b); };
        if constexpr (kCount == 2)
            return two(v[0], v[1]);
        else
            return two(two(v[0], v[1]), two(v[2], v[3]));
    }
}

// The bytes of the groups of the v-th vector. kCount: vectors of a group; 0: as many as are told.
template <int kCount>
inline Bytes pick(const Segments& w, const uint8_t* s, int64_t v) {
    const int64_t* from = w.from + v * kGroups;
    const int64_t bytes = (kCount ? kCount : w.count) * kVector;
    const uint8_t* table = w.tables + v * kGroups * bytes;
    Bytes all[kGroups];
#pragma GCC unroll 4
    for (int i = 0; i < kGroups; ++i, table += bytes) {
        all[i] = lookup(load<Bytes>(s + from[i]), load<Bytes>(table));
#pragma GCC unroll 4
        for (int64_t k = kVector; k < bytes; k += kVector)
            all[i] |= lookup(load<Bytes>(s + from[i] + k), load<Bytes>(table + k));
    }
    return joined_groups(all);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

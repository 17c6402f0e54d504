// Tracing. On the line between two rows, outlines run along the stretches where the rows differ. Each stretch has two
// ends, and each end goes on up, where an open contour's end arrives, or down, where one leaves. So a stretch joins two
// open ends, moves one, or starts a contour, and the ends that run straight down are not touched at all. Where four
// edges meet, the diagonal rule says which two belong together.
#include <stddef.h>

#include "ipp/contour.h"

namespace tarn::ipp {
namespace {

// What a stretch has made.
struct Joined {
    TarnCONTOUR* contour;
    bool closed;
};

// A pair from the free list, linked.
inline TarnPOINT* take_pair(Search& s, int32_t x1, int32_t x2, int32_t y) {
    TarnPOINT *first = s.free_pairs, *second = first + 1;
    s.free_pairs = second->next;
    __builtin_prefetch(s.free_pairs, 1);  // often points of a contour delivered long ago
    --s.free_pair_count;
    first->next = second;
    first->x = x1;
    second->x = x2;
    first->y = second->y = y;
    second->prev = first;
    return first;
}

TarnCONTOUR* new_contour(Search& s, uint32_t value_bit) {
    TarnCONTOUR* c = s.free_contours;
    s.free_contours = c->next;
    __builtin_prefetch(s.free_contours, 1);
    __builtin_prefetch(reinterpret_cast<char*>(s.free_contours) + 64, 1);
    --s.free_contour_count;
    init_contour(c, value_bit);
    append(s.open, c);
    return c;
}

// Merges `second`, whose points follow those of `first`, into it.
void merge(Search& s, TarnCONTOUR* first, TarnCONTOUR* second) {
    splice(first->points, second->points);
    splice(first->children[0], second->children[0]);
    splice(first->children[1], second->children[1]);
    first->right = second->right;
    *first->right = first;
    unlink(s.open, second);
    second->next = s.free_contours;
    s.free_contours = second;
    ++s.free_contour_count;
}

// Starts a contour on a stretch: both ends go downwards.
TarnCONTOUR* start(Search& s, Tracer& t, TarnPOINT* first) {
    TarnPOINT* second = first + 1;
    TarnCONTOUR* c = new_contour(s, t.value_bit);
    first->prev = second->next = nullptr;
    c->points = {first, second, 2};
    c->left = &t.ends[first->x];
    c->right = &t.ends[second->x];
    *c->left = *c->right = c;
    return c;
}

// Two ends arrive, the tail of one contour and the head of the same or another one.
Joined join_ends(Search& s, TarnCONTOUR* arriving, TarnCONTOUR* leaving, TarnPOINT* first) {
    TarnPOINT* second = first + 1;
    TarnPOINTLIST& points = arriving->points;
    points.count += 2;
    first->prev = points.tail;
    points.tail->next = first;
    if (arriving == leaving) {
        // Closed: the pair's first becomes the last point, its second the first.
        first->next = nullptr;
        points.tail = first;
        second->prev = nullptr;
        second->next = points.head;
        points.head->prev = second;
        points.head = second;
        return {arriving, true};
    }
    points.tail = second;
    second->next = nullptr;
    merge(s, arriving, leaving);
    return {arriving, false};
}

inline TarnPOINT*& next_or_prev(TarnPOINT* p, bool prev) { return prev ? p->prev : p->next; }
inline TarnPOINT*& head_or_tail(TarnCONTOUR* c, bool tail) { return tail ? c->points.tail : c->points.head; }
inline TarnCONTOUR**& left_or_right(TarnCONTOUR* c, bool right) { return right ? c->right : c->left; }

// Joins a stretch of line y to what it meets. at: the contours whose ends arrive from above at its two ends, if it goes
// on upwards there. An outline keeps its region to the right, so it runs west when the region is above the stretch.
inline Joined join(Search& s, Tracer& t, const k::Stretch& stretch, TarnCONTOUR* const (&at)[2], int32_t y) {
    const int west = stretch.above, up = stretch.up[0];
    TarnPOINT* pair = take_pair(s, stretch.x[west], stretch.x[1 - west], y);
    if (up == stretch.up[1]) return up ? join_ends(s, at[west], at[1 - west], pair) : Joined{start(s, t, pair), false};
    // One end moves, from the corner `up` to the other: nearly always so, and no branch tells which of the four ways it
    // is.
    TarnCONTOUR* c = at[1 - up];
    const bool tail = up != west;
    TarnPOINT *joined = pair + !tail, *moved = pair + tail;
    TarnPOINT*& end = head_or_tail(c, tail);
    next_or_prev(joined, tail) = end;
    next_or_prev(end, !tail) = joined;
    next_or_prev(moved, !tail) = nullptr;
    end = moved;
    TarnCONTOUR** to = &t.ends[stretch.x[up]];
    left_or_right(c, tail) = to;
    *to = c;
    c->points.count += 2;
    return {c, false};
}

// The contour whose end arrives at the start of a stretch. Where it meets the stretch before it, that one may have
// moved its own end there since; displaced is what was there before.
inline TarnCONTOUR* arriving_at_start(const Tracer& t, int64_t i, TarnCONTOUR* displaced) {
    const k::Stretch* stretch = t.stretches + i;
    return i && stretch[-1].x[1] == stretch->x[0] ? displaced : t.ends[stretch->x[0]];
}

// The contour at the last edge of the row below at or before x: it is the nearest one around what ends there. The root
// when there is none. Called with growing x along a line; no word of the row is looked at twice in search of an edge.
TarnCONTOUR* contour_before(Search& s, Tracer& t, int32_t x) {
    const auto edges = [&](int32_t w) {
        const uint64_t before = w ? t.below[w - 1] >> 63 : 0;
        return t.below[w] ^ (t.below[w] << 1 | before);
    };
    const auto last_of = [](int32_t w, uint64_t bits) { return w * 64 + 63 - __builtin_clzll(bits); };
    const int32_t word = x / 64;
    if (const uint64_t here = edges(word) & (~uint64_t(0) >> (63 - x % 64))) return t.ends[last_of(word, here)];
    for (int32_t w = word - 1; w >= t.searched_words; --w)
        if (const uint64_t bits = edges(w)) {
            t.last_edge = last_of(w, bits);
            break;
        }
    t.searched_words = word;
    return t.last_edge < 0 ? &s.root : t.ends[t.last_edge];
}

void start_line(Tracer& t) {
    t.searched_words = 0;
    t.last_edge = -1;
}

}  // namespace

bool reserve_line(Search& s, int64_t stretches) {
    while (s.free_pair_count < stretches) {
        TarnPOINT* block = static_cast<TarnPOINT*>(KaPOOLget(&s.point_pool, s.err));
        if (!block) return false;
        for (int i = 0; i < 2 * kPoolBatch; ++i) block[i].next = block + i + 1;
        block[2 * kPoolBatch - 1].next = s.free_pairs;
        s.free_pairs = block;
        s.free_pair_count += kPoolBatch;
    }
    while (s.free_contour_count < stretches) {
        TarnCONTOUR* block = static_cast<TarnCONTOUR*>(KaPOOLget(&s.contour_pool, s.err));
        if (!block) return false;
        for (int i = 0; i < kPoolBatch; ++i) block[i].next = block + i + 1;
        block[kPoolBatch - 1].next = s.free_contours;
        s.free_contours = block;
        s.free_contour_count += kPoolBatch;
    }
    return true;
}

int64_t trace_line(Search& s, Tracer& t, int32_t y) {
    start_line(t);
    TarnCONTOUR* at[2] = {};
    for (int64_t i = 0; i < t.stretch_count; ++i) {
        const k::Stretch& stretch = t.stretches[i];
        at[0] = arriving_at_start(t, i, at[1]);
        at[1] = t.ends[stretch.x[1]];
        const Joined joined = join(s, t, stretch, at, y);
        if (!joined.closed) continue;
        TarnCONTOUR* parent = contour_before(s, t, stretch.x[0]);
        const int64_t status =
            stretch.above ? deliver_outer(s, joined.contour, parent) : deliver_hole(s, joined.contour, parent);
        if (status < 0) return status;
    }
    return 0;
}

int64_t trace_line(Search& s, Tracer& ones, Tracer& zeros, int32_t y) {
    start_line(ones);
    start_line(zeros);
    // Inside of the image both have the same stretches; on each, one has its region above, the other below.
    const bool crossing = ones.diagonal && zeros.diagonal;
    TarnCONTOUR *at1[2] = {}, *at0[2] = {};
    for (int64_t i = 0; i < ones.stretch_count; ++i) {
        const k::Stretch &stretch1 = ones.stretches[i], &stretch0 = zeros.stretches[i];
        at1[0] = arriving_at_start(ones, i, at1[1]);
        at0[0] = arriving_at_start(zeros, i, at0[1]);
        at1[1] = ones.ends[stretch1.x[1]];
        at0[1] = zeros.ends[stretch0.x[1]];
        const Joined joined1 = join(s, ones, stretch1, at1, y);
        const Joined joined0 = join(s, zeros, stretch0, at0, y);
        if (!joined1.closed && !joined0.closed) continue;

        // The outline of the region above can close as an outer one here, that of the region below as a hole.
        const bool one_above = stretch1.above;
        Tracer &over = one_above ? ones : zeros, &under = one_above ? zeros : ones;
        const Joined &outer = one_above ? joined1 : joined0, &hole = one_above ? joined0 : joined1;
        // A region that ends on this stretch lies next to the outline under it.
        TarnCONTOUR* outer_parent = crossing ? contour_before(s, over, stretch1.x[0]) : hole.contour;
        TarnCONTOUR* hole_parent = contour_before(s, under, stretch1.x[0]);
        const int64_t status = !hole.closed ? deliver_outer(s, outer.contour, outer_parent)
                               : !outer.closed
                                   ? deliver_hole(s, hole.contour, hole_parent)
                                   : deliver_both(s, hole.contour, hole_parent, outer.contour, outer_parent);
        if (status < 0) return status;
    }
    return 0;
}

}  // namespace tarn::ipp

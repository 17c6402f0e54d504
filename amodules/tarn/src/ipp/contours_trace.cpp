// Tracing. On the line between two rows, outlines run along the stretches where the rows differ. Each stretch has two ends,
// and each end goes on up, where an open contour's end arrives, or down, where one leaves. So a stretch joins two open
// ends, moves one, or starts a contour, and the ends that run straight down are not touched at all. Where four edges meet, the
// diagonal rule says which two belong together.
#include "ipp/contours.h"

namespace k = tarn::k;

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

// Joins a stretch of line y to what it meets. at_x1, at_x2: the contours whose ends arrive from above there, if it goes on upwards.
// An outline keeps its region to the right, so it comes `from` the right end of the stretch when the region is above.
inline Joined join(Search& s, Tracer& t, const k::Stretch& stretch, TarnCONTOUR* at_x1, TarnCONTOUR* at_x2, int32_t y) {
    const bool west = stretch.above;
    const int32_t from = west ? stretch.x2 : stretch.x1, to = west ? stretch.x1 : stretch.x2;
    TarnCONTOUR* arriving = west ? at_x2 : at_x1;  // its tail is at `from`
    TarnCONTOUR* leaving = west ? at_x1 : at_x2;   // its head is at `to`
    const bool arrives = west ? stretch.up2 : stretch.up1, leaves = west ? stretch.up1 : stretch.up2;
    TarnPOINT* first = take_pair(s, from, to, y);
    TarnPOINT* second = first->next;
    if (!arrives && !leaves) {
        first->prev = second->next = nullptr;
        TarnCONTOUR* c = new_contour(s, t.value_bit);
        c->points = {first, second, 2};
        t.ends[from] = t.ends[to] = c;
        c->left = &t.ends[from];
        c->right = &t.ends[to];
        return {c, false};
    }
    if (!arrives) {
        TarnPOINTLIST& points = leaving->points;
        first->prev = nullptr;
        second->next = points.head;
        points.head->prev = second;
        points.head = first;
        points.count += 2;
        t.ends[from] = leaving;
        leaving->left = &t.ends[from];
        return {leaving, false};
    }
    TarnPOINTLIST& points = arriving->points;
    first->prev = points.tail;
    points.tail->next = first;
    points.count += 2;
    if (leaves && arriving == leaving) {
        // Closed: `from` becomes the last point and `to` the first.
        first->next = nullptr;
        points.tail = first;
        second->prev = nullptr;
        second->next = points.head;
        points.head->prev = second;
        points.head = second;
        return {arriving, true};
    }
    second->next = nullptr;
    points.tail = second;
    if (leaves) {
        merge(s, arriving, leaving);
    } else {
        t.ends[to] = arriving;
        arriving->right = &t.ends[to];
    }
    return {arriving, false};
}

// The contour whose end arrives at the start of a stretch. Where it meets the stretch before it, that one may have
// moved its own end there since; displaced is what was there before.
inline TarnCONTOUR* arriving_at_start(const Tracer& t, int64_t i, TarnCONTOUR* displaced) {
    const k::Stretch* stretch = t.stretches + i;
    return i && stretch[-1].x2 == stretch->x1 ? displaced : t.ends[stretch->x1];
}

// The contour at the last edge of the row below at or before x: it is the nearest one around what ends there. The root
// when there is none. Called with growing x along a line, so that it looks at each word of the row once or twice.
TarnCONTOUR* contour_before(Search& s, Tracer& t, int32_t x) {
    const auto edges = [&](int32_t w) {
        const uint64_t before = w ? t.below[w - 1] >> 63 : 0;
        return t.below[w] ^ (t.below[w] << 1 | before);
    };
    const auto last_of = [](int32_t w, uint64_t bits) { return w * 64 + 63 - __builtin_clzll(bits); };
    const int32_t word = x / 64;
    for (; t.searched_words < word; ++t.searched_words)
        if (const uint64_t bits = edges(t.searched_words)) t.last_edge = last_of(t.searched_words, bits);
    const uint64_t here = edges(word) & (~uint64_t(0) >> (63 - x % 64));
    const int32_t edge = here ? last_of(word, here) : t.last_edge;
    return edge < 0 ? &s.root : t.ends[edge];
}

void start_line(Tracer& t) {
    t.searched_words = 0;
    t.last_edge = -1;
}

}  // namespace

bool reserve_line(Search& s, int64_t corners) {
    // A stretch ends at a corner, takes a pair of points and starts one contour at most.
    while (s.free_pair_count < corners) {
        TarnPOINT* pair = static_cast<TarnPOINT*>(KaPOOLget(&s.point_pool, s.err));
        if (!pair) return false;
        pair[0].next = pair + 1;
        pair[1].next = s.free_pairs;
        s.free_pairs = pair;
        ++s.free_pair_count;
    }
    while (s.free_contour_count < corners) {
        TarnCONTOUR* c = static_cast<TarnCONTOUR*>(KaPOOLget(&s.contour_pool, s.err));
        if (!c) return false;
        c->next = s.free_contours;
        s.free_contours = c;
        ++s.free_contour_count;
    }
    return true;
}

int64_t trace_line(Search& s, Tracer& t, int32_t y) {
    start_line(t);
    TarnCONTOUR* at_x2 = nullptr;
    for (int64_t i = 0; i < t.stretch_count; ++i) {
        const k::Stretch& stretch = t.stretches[i];
        TarnCONTOUR* at_x1 = arriving_at_start(t, i, at_x2);
        at_x2 = t.ends[stretch.x2];
        const Joined joined = join(s, t, stretch, at_x1, at_x2, y);
        if (!joined.closed) continue;
        TarnCONTOUR* parent = contour_before(s, t, stretch.x1);
        const int64_t status = stretch.above ? deliver_outer(s, joined.contour, parent)
                                             : deliver_hole(s, joined.contour, parent);
        if (status < 0) return status;
    }
    return 0;
}

int64_t trace_line(Search& s, Tracer& ones, Tracer& zeros, int32_t y) {
    start_line(ones);
    start_line(zeros);
    // Inside of the image both have the same stretches; on each, one has its region above, the other below.
    const bool crossing = ones.diagonal && zeros.diagonal;
    TarnCONTOUR *ones_at_x2 = nullptr, *zeros_at_x2 = nullptr;
    for (int64_t i = 0; i < ones.stretch_count; ++i) {
        const k::Stretch &stretch1 = ones.stretches[i], &stretch0 = zeros.stretches[i];
        TarnCONTOUR *ones_at_x1 = arriving_at_start(ones, i, ones_at_x2), *zeros_at_x1 = arriving_at_start(zeros, i, zeros_at_x2);
        ones_at_x2 = ones.ends[stretch1.x2];
        zeros_at_x2 = zeros.ends[stretch0.x2];
        const Joined joined1 = join(s, ones, stretch1, ones_at_x1, ones_at_x2, y);
        const Joined joined0 = join(s, zeros, stretch0, zeros_at_x1, zeros_at_x2, y);
        if (!joined1.closed && !joined0.closed) continue;

        // The outline of the region above can close as an outer one here, that of the region below as a hole.
        const bool one_above = stretch1.above;
        Tracer &over = one_above ? ones : zeros, &under = one_above ? zeros : ones;
        const Joined &outer = one_above ? joined1 : joined0, &hole = one_above ? joined0 : joined1;
        // A region that ends on this stretch lies next to the outline under it.
        TarnCONTOUR* outer_parent = crossing ? contour_before(s, over, stretch1.x1) : hole.contour;
        TarnCONTOUR* hole_parent = contour_before(s, under, stretch1.x1);
        const int64_t status = !hole.closed    ? deliver_outer(s, outer.contour, outer_parent)
                               : !outer.closed ? deliver_hole(s, hole.contour, hole_parent)
                                               : deliver_both(s, hole.contour, hole_parent, outer.contour, outer_parent);
        if (status < 0) return status;
    }
    return 0;
}

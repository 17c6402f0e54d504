// Tracing. On the line between two rows, outlines run along the stretches where the rows differ. Each stretch has two ends,
// and each end goes on up, where an open contour's end arrives, or down, where one leaves. So a stretch joins two open
// ends, moves one, or starts a contour, and the ends that run straight down are not touched at all. Where four edges meet, the
// diagonal rule says which two belong together.
#include "ipp/contours.h"

namespace k = tarn::k;

namespace {

// The stretch of line y that is being followed: from x1 to the next corner.
struct Stretch {
    int32_t x1;
    TarnCONTOUR* at_x1;  // the contour whose end arrives from above at x1; null: an end leaves downwards
    bool run_above;      // the region is above the stretch, else below
};

// What a stretch has made.
struct Joined {
    TarnCONTOUR* contour;
    bool closed;
};

// Two linked points from the free list.
inline TarnPOINT* take_pair(Search& s, int32_t x1, int32_t x2, int32_t y) {
    TarnPOINT *first = s.free_points, *second = first->next;
    s.free_points = second->next;
    s.free_point_count -= 2;
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

// Ends a stretch at x2, where the end of at_x2 arrives from above or, if that is null, an end leaves downwards. The outline
// keeps its region to the right, so it comes `from` the right end of the stretch when the region is above.
inline Joined join(Search& s, Tracer& t, const Stretch& stretch, int32_t x2, TarnCONTOUR* at_x2, int32_t y) {
    const bool west = stretch.run_above;
    const int32_t from = west ? x2 : stretch.x1, to = west ? stretch.x1 : x2;
    TarnCONTOUR* arriving = west ? at_x2 : stretch.at_x1;  // its tail is at `from`
    TarnCONTOUR* leaving = west ? stretch.at_x1 : at_x2;   // its head is at `to`
    TarnPOINT* first = take_pair(s, from, to, y);
    TarnPOINT* second = first->next;
    if (arriving) {
        TarnPOINTLIST& points = arriving->points;
        if (arriving == leaving) {
            // Closed: `from` becomes the last point and `to` the first.
            first->prev = points.tail;
            points.tail->next = first;
            first->next = nullptr;
            second->next = points.head;
            points.head->prev = second;
            second->prev = nullptr;
            points.head = second;
            points.tail = first;
            points.count += 2;
            return {arriving, true};
        }
        first->prev = points.tail;
        points.tail->next = first;
        second->next = nullptr;
        points.tail = second;
        points.count += 2;
        if (leaving) {
            merge(s, arriving, leaving);
        } else {
            t.ends[to] = arriving;
            arriving->right = &t.ends[to];
        }
        return {arriving, false};
    }
    first->prev = nullptr;
    if (leaving) {
        TarnPOINTLIST& points = leaving->points;
        second->next = points.head;
        points.head->prev = second;
        points.head = first;
        points.count += 2;
        t.ends[from] = leaving;
        leaving->left = &t.ends[from];
        return {leaving, false};
    }
    second->next = nullptr;
    TarnCONTOUR* c = new_contour(s, t.value_bit);
    c->points = {first, second, 2};
    t.ends[from] = t.ends[to] = c;
    c->left = &t.ends[from];
    c->right = &t.ends[to];
    return {c, false};
}

// True when the stretch that ends at this corner goes on upwards. Where it meets another stretch, four edges meet.
inline bool left_goes_up(const Tracer& t, const k::Corner& c) {
    if (!(c.edges & k::kEdgeRight)) return c.edges & k::kEdgeUp;
    return !(c.edges & k::kAboveSet) != t.diagonal;
}

// A line's state at one corner: the end of the stretch before it and the start of the one behind it.
struct Step {
    TarnCONTOUR* at_end;
    Stretch next;
};
inline Step step(const Tracer& t, const k::Corner& c) {
    const bool left_up = (c.edges & k::kEdgeLeft) && left_goes_up(t, c);
    const bool right_up = (c.edges & k::kEdgeLeft) ? !left_up : bool(c.edges & k::kEdgeUp);
    TarnCONTOUR* here = t.ends[c.x];
    return {left_up ? here : nullptr, {c.x, right_up ? here : nullptr, bool(c.edges & k::kAboveSet)}};
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
    // A stretch ends at a corner, takes two points and starts one contour at most.
    while (s.free_point_count < 2 * corners) {
        TarnPOINT* p = static_cast<TarnPOINT*>(KaPOOLget(&s.point_pool, s.err));
        if (!p) return false;
        p->next = s.free_points;
        s.free_points = p;
        ++s.free_point_count;
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
    Stretch stretch = {};
    for (int64_t i = 0; i < t.corner_count; ++i) {
        const k::Corner& corner = t.corners[i];
        const Step here = step(t, corner);
        if (corner.edges & k::kEdgeLeft) {
            const Joined joined = join(s, t, stretch, corner.x, here.at_end, y);
            if (joined.closed) {
                TarnCONTOUR* parent = contour_before(s, t, stretch.x1);
                const int64_t status = stretch.run_above ? deliver_outer(s, joined.contour, parent)
                                                         : deliver_hole(s, joined.contour, parent);
                if (status < 0) return status;
            }
        }
        stretch = here.next;
    }
    return 0;
}

int64_t trace_line(Search& s, Tracer& ones, Tracer& zeros, int32_t y) {
    start_line(ones);
    start_line(zeros);
    // Inside of the image both see the same corners. On each stretch one has its region above, the other below.
    const bool crossing = ones.diagonal && zeros.diagonal;
    Stretch stretch1 = {}, stretch0 = {};
    for (int64_t i = 0; i < ones.corner_count; ++i) {
        const k::Corner& corner = ones.corners[i];
        const Step here1 = step(ones, corner), here0 = step(zeros, zeros.corners[i]);
        if (corner.edges & k::kEdgeLeft) {
            const Joined joined1 = join(s, ones, stretch1, corner.x, here1.at_end, y);
            const Joined joined0 = join(s, zeros, stretch0, corner.x, here0.at_end, y);
            const bool one_above = stretch1.run_above;
            const Joined &over = one_above ? joined1 : joined0, &under = one_above ? joined0 : joined1;
            // A region that ends on this stretch lies next to the outline under it.
            int64_t status = 0;
            if (over.closed || under.closed) {
                Tracer &top = one_above ? ones : zeros, &bottom = one_above ? zeros : ones;
                TarnCONTOUR* outer_parent = crossing ? contour_before(s, top, stretch1.x1) : under.contour;
                TarnCONTOUR* hole_parent = contour_before(s, bottom, stretch1.x1);
                status = !under.closed  ? deliver_outer(s, over.contour, outer_parent)
                         : !over.closed ? deliver_hole(s, under.contour, hole_parent)
                                        : deliver_both(s, under.contour, hole_parent, over.contour, outer_parent);
            }
            if (status < 0) return status;
        }
        stretch1 = here1.next;
        stretch0 = here0.next;
    }
    return 0;
}

// Contour find from the inside: the search, its two halves (tracing, delivery) and what they share.
#pragma once

#include <string.h>

#include "ipp/context.h"
#include "kernels/contour/contour.h"
#include "tarn_contour.h"

namespace tarn::ipp {

// What traces the outlines of the regions of one value, between two rows of bits that are set where a pixel has that
// value.
struct Tracer {
    bool diagonal;       // pixels that touch at a corner belong together
    uint32_t value_bit;  // TARN_CONTOUR_VALUE for value 1
    uint64_t *above, *below;
    // By x: the open contour whose end runs down the vertical edge at x, where there is one. A run's left end is the
    // head of a contour's point list, its right end the tail of one.
    TarnCONTOUR** ends;
    k::Stretch* stretches;  // of the line between the two rows
    int32_t stretch_count;
    // How many words of `below` have been searched for the last edge in them, and that edge, -1 for none.
    int32_t searched_words, last_edge;
};

// Contours and pairs of points are taken from the pools so many at a time.
constexpr int kPoolBatch = 16;

// One call.
struct Search {
    TarnCONTOURS* output;
    QuelERR* err;
    int32_t width, height;
    KaPOOL contour_pool, point_pool;
    TarnCONTOUR* free_contours;
    // Points come and go in pairs that lie side by side: the two corners of a stretch of outline along one line.
    TarnPOINT* free_pairs;
    int64_t free_contour_count, free_pair_count;
    TarnCONTOURLIST open;  // contours that are not closed
    TarnCONTOUR root;      // stands for the frame; what no contour encloses are its children
    TarnPOINT frame[4];
};

// ---- Lists --------------------------------------------------------------------------------------------------------

inline void append(TarnCONTOURLIST& list, TarnCONTOUR* c) {
    c->next = nullptr;
    c->prev = list.tail;
    (list.tail ? list.tail->next : list.head) = c;
    list.tail = c;
    ++list.count;
}

inline void unlink(TarnCONTOURLIST& list, TarnCONTOUR* c) {
    (c->prev ? c->prev->next : list.head) = c->next;
    (c->next ? c->next->prev : list.tail) = c->prev;
    --list.count;
}

// Moves all of `from` behind `to`.
template <class List>
inline void splice(List& to, List& from) {
    if (!from.head) return;
    from.head->prev = to.tail;
    (to.tail ? to.tail->next : to.head) = from.head;
    to.tail = from.tail;
    to.count += from.count;
    from = {};
}

// An empty contour: its tag and flags, all else zero.
inline void init_contour(TarnCONTOUR* c, uint32_t bits) {
    *c = {};
    memcpy(c->tag, "clp", 4);
    c->flags = TARN_CONTOUR_BASE | bits;
}

// ---- Tracing (contour_trace.cpp) ---------------------------------------------------------------------------------

// Takes from the pools what one line can need at most: a pair of points and a contour for each stretch. False when
// memory is out.
bool reserve_line(Search& s, int64_t stretches);

// Follows the outlines along line y, between the tracer's two rows. Returns 0, or a callback's negative status.
int64_t trace_line(Search& s, Tracer& t, int32_t y);

// The same for both values at once, on a line inside of the image.
int64_t trace_line(Search& s, Tracer& ones, Tracer& zeros, int32_t y);

// ---- Delivery (contour_deliver.cpp) ------------------------------------------------------------------------------

// Makes the root of a search.
void make_root(Search& s);

// A contour is complete: hangs it under parent and delivers it. Returns 0, or the callback's negative status.
int64_t deliver_outer(Search& s, TarnCONTOUR* contour, TarnCONTOUR* parent);
int64_t deliver_hole(Search& s, TarnCONTOUR* contour, TarnCONTOUR* parent);

// A hole and the outer outline of the region in it are complete. outer_parent: where the outer one hangs if the two are
// not the same.
int64_t deliver_both(Search& s, TarnCONTOUR* hole, TarnCONTOUR* hole_parent, TarnCONTOUR* outer,
                     TarnCONTOUR* outer_parent);

// Tells the output object what lies in no other contour. Returns 0, or the callback's negative status.
int64_t notify_top(Search& s);

// After a failure: releases every handle that the output object has made and not taken over.
void release_all(Search& s);

}  // namespace tarn::ipp

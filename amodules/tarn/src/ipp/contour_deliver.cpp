// Closing, delivery and release. A contour's child lists collect what was closed next to it while it was open: holes of
// its own region, and regions on its other side. Which of the two lie inside is known when it closes: an outer outline
// keeps the holes, a hole keeps the regions, and the other list goes on to the parent. Trees are walked without
// recursion, however deep.
#include "ipp/contour.h"

namespace tarn::ipp {
namespace {

// Hangs a closed contour under its parent, with those of its children that lie beside it.
void hang(Search& s, TarnCONTOUR* c, int kind, TarnCONTOUR* parent) {
    unlink(s.open, c);
    if (kind) c->flags = (c->flags | TARN_CONTOUR_HOLE) ^ TARN_CONTOUR_VALUE;
    splice(parent->children[kind], c->children[kind]);
    append(parent->children[kind], c);
    c->flags |= TARN_CONTOUR_CLOSED;
}

void free_points(Search& s, TarnCONTOUR* c) {
    // The pair that closed the contour has its first point at the tail and its second at the head; turned by one, the
    // list is one of whole pairs.
    TarnPOINT *head = c->points.head, *tail = c->points.tail;
    tail->next = head;
    TarnPOINT* pairs = head->next;
    head->next = s.free_pairs;
    s.free_pairs = pairs;
    s.free_pair_count += int64_t(c->points.count / 2);
    c->points.head = c->points.tail = nullptr;
}

int64_t deliver(Search& s, TarnCONTOUR* c) {
    const int64_t status = s.output->deliver(s.output, c, &c->handle, s.err);
    if (status < 0) return status;
    c->output = s.output;
    free_points(s, c);
    return 0;
}

bool is_frame(const Search& s, const TarnCONTOUR* c) {
    if (c->points.count != s.root.points.count) return false;
    const TarnPOINT* p = c->points.head;
    for (const TarnPOINT* q = s.root.points.head; q; q = q->next, p = p->next)
        if (p->x != q->x || p->y != q->y) return false;
    return true;
}

// The same outline, seen from its two sides: the points of one are those of the other backwards.
bool same_outline(const TarnCONTOUR* hole, const TarnCONTOUR* outer) {
    if (hole->points.count != outer->points.count) return false;
    const TarnPOINT* p = hole->points.tail;
    for (const TarnPOINT* q = outer->points.head; q; q = q->next, p = p->prev)
        if (p->x != q->x || p->y != q->y) return false;
    return true;
}

}  // namespace

void make_root(Search& s) {
    const int32_t x[] = {0, 0, s.width, s.width}, y[] = {s.height, 0, 0, s.height};
    for (int i = 0; i < 4; ++i)
        s.frame[i] = {x[i], y[i], i < 3 ? &s.frame[i + 1] : nullptr, i > 0 ? &s.frame[i - 1] : nullptr};
    init_contour(&s.root, 0);
    s.root.points = {&s.frame[0], &s.frame[3], 4};
}

int64_t deliver_outer(Search& s, TarnCONTOUR* c, TarnCONTOUR* parent) {
    if (parent == &s.root && is_frame(s, c)) {
        // The region holds the whole border: not delivered, and what lies in it lies in the image.
        unlink(s.open, c);
        splice(s.root.children[0], c->children[0]);
        splice(s.root.children[1], c->children[1]);
        free_points(s, c);
        return 0;
    }
    hang(s, c, 0, parent);
    return deliver(s, c);
}

int64_t deliver_hole(Search& s, TarnCONTOUR* c, TarnCONTOUR* parent) {
    hang(s, c, 1, parent);
    return deliver(s, c);
}

int64_t deliver_both(Search& s, TarnCONTOUR* hole, TarnCONTOUR* hole_parent, TarnCONTOUR* outer,
                     TarnCONTOUR* outer_parent) {
    if (!same_outline(hole, outer)) {
        const int64_t status = deliver_outer(s, outer, outer_parent);
        return status < 0 ? status : deliver_hole(s, hole, hole_parent);
    }
    // One outline. What regions that cross at corners have left in the hole lies in the outer one as well.
    splice(outer->children[1], hole->children[0]);
    const int64_t status = deliver_outer(s, outer, outer_parent);
    if (status < 0) return status;
    // The hole stands for both from here on, with what lies inside.
    unlink(outer_parent->children[0], outer);
    splice(hole->children[0], outer->children[1]);
    hole->output = outer->output;
    hole->handle = outer->handle;
    free_points(s, hole);
    hang(s, hole, 1, hole_parent);
    return 0;
}

int64_t notify_top(Search& s) {
    for (TarnCONTOURLIST& list : s.root.children)
        while (TarnCONTOUR* c = list.head) {
            const int64_t status = s.output->notice_top(s.output, 1, c->handle, s.err);
            if (status < 0) return status;
            list.head = c->next;
        }
    return 0;
}

void release_all(Search& s) {
    // Depth-first: the children of the first take its place at the front of what is left to do.
    TarnCONTOURLIST left = {};
    splice(left, s.open);
    splice(left, s.root.children[0]);
    splice(left, s.root.children[1]);
    while (TarnCONTOUR* c = left.head) {
        unlink(left, c);
        if (c->output) s.output->release(s.output, c->handle);
        TarnCONTOURLIST inside = {};
        splice(inside, c->children[0]);
        splice(inside, c->children[1]);
        splice(inside, left);
        left = inside;
    }
}

}  // namespace tarn::ipp

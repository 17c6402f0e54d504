// What the tests of contour find share: an output object that checks every contour as it comes, and pictures.
#pragma once

#include <algorithm>
#include <cstring>
#include <random>
#include <set>

#include "ipp/contours_reference.h"
#include "ipp/fixture.h"

namespace tarn::test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSlowBuild = true;
#else
inline constexpr bool kSlowBuild = false;
#endif

// Collects contours; checks each as it comes.
struct Collector : TarnCONTOURS {
    struct Node {
        Outline outline;
        bool clockwise;
        std::vector<int> children;
        bool top = false;
        int parent = -1;
        Points as_delivered;
    };
    Collector() : TarnCONTOURS{on_release, on_deliver, on_top} {}

    std::vector<Node> nodes;
    std::set<int> held;          // handles given out, not yet released, and in no contour that reached the top
    int calls = 0, fail_at = 0;  // callbacks so far, and the one that fails

    static void on_release(TarnCONTOURS* self, void* handle) {
        Collector& o = *static_cast<Collector*>(self);
        const int node = int(intptr_t(handle)) - 1, parent = o.nodes[size_t(node)].parent;
        EXPECT_EQ(o.held.erase(node), 1u) << "released twice, or never delivered";
        EXPECT_FALSE(parent >= 0 && o.held.count(parent)) << "released before the outline around it";
    }
    static int64_t on_deliver(TarnCONTOURS* self, TarnCONTOUR* c, void** handle, QuelERR*) {
        return static_cast<Collector*>(self)->deliver(c, handle);
    }
    static int64_t on_top(TarnCONTOURS* self, int32_t one, void* handle, QuelERR*) {
        Collector& o = *static_cast<Collector*>(self);
        EXPECT_EQ(one, 1);
        if (++o.calls == o.fail_at) return -77;
        // What lies in it goes with it.
        std::vector<int> todo = {int(intptr_t(handle)) - 1};
        o.nodes[size_t(todo[0])].top = true;
        while (!todo.empty()) {
            const int n = todo.back();
            todo.pop_back();
            EXPECT_EQ(o.held.erase(n), 1u);
            for (int child : o.nodes[size_t(n)].children) todo.push_back(child);
        }
        return 0;
    }

    int64_t deliver(TarnCONTOUR* c, void** handle) {
        if (++calls == fail_at) return -77;
        EXPECT_STREQ(c->tag, "clp");
        EXPECT_EQ(c->flags & ~uint32_t(TARN_CONTOUR_HOLE | TARN_CONTOUR_VALUE),
                  uint32_t(TARN_CONTOUR_BASE | TARN_CONTOUR_CLOSED));
        Node node;
        Points points;
        const TarnPOINT* before = nullptr;
        for (const TarnPOINT* p = c->points.head; p; before = p, p = p->next) {
            EXPECT_EQ(p->prev, before);
            points.push_back({p->x, p->y});
        }
        EXPECT_EQ(before, c->points.tail);
        EXPECT_EQ(points.size(), c->points.count);
        // Sides in turn horizontal and vertical, the last one too: rectilinear, closed, nothing collinear.
        const size_t n = points.size();
        EXPECT_TRUE(n >= 4 && n % 2 == 0);
        for (size_t i = 0; i < n; ++i) {
            const auto [x1, y1] = points[i];
            const auto [x2, y2] = points[(i + 1) % n];
            EXPECT_TRUE(i % 2 ? y1 == y2 && x1 != x2 : x1 == x2 && y1 != y2) << "side " << i;
        }
        const bool hole = c->flags & TARN_CONTOUR_HOLE;
        node.clockwise = twice_area(points) > 0;
        EXPECT_NE(node.clockwise, hole);
        node.as_delivered = points;
        node.outline = {canonical(points), (c->flags & TARN_CONTOUR_VALUE) != 0, hole, {}};
        const int self = int(nodes.size());
        for (const TarnCONTOURLIST& list : c->children) {
            uint64_t count = 0;
            for (TarnCONTOUR* child = list.head; child; child = child->next, ++count) {
                const int index = int(intptr_t(child->handle)) - 1;
                EXPECT_EQ(nodes[size_t(index)].parent, -1) << "in two outlines";
                nodes[size_t(index)].parent = self;
                node.children.push_back(index);
            }
            EXPECT_EQ(count, list.count);
        }
        nodes.push_back(node);
        held.insert(self);
        *handle = reinterpret_cast<void*>(intptr_t(self + 1));
        return 0;
    }

    // What was found, in the reference's form.
    std::vector<Outline> outlines() {
        std::vector<Outline> all;
        for (Node& n : nodes) {
            EXPECT_EQ(n.top, n.parent < 0) << "an outline that lies in no other, or in one, and the notice";
            if (n.parent >= 0) n.outline.parent = nodes[size_t(n.parent)].outline.points;
            all.push_back(n.outline);
        }
        std::sort(all.begin(), all.end());
        return all;
    }
};

inline int64_t find_contours(TarnCONTOURS* out, const Bitmap& m, uint32_t flags, KaSMEMSTG* storage = nullptr,
                             QuelERR* err = nullptr) {
    static const QuelOP op = find("tarn::contour::find");
    const LumoMAT mat = {nullptr, LUMO_U8 | LUMO_CHANNELS(1),           m.width, m.height,
                         m.width, const_cast<uint8_t*>(m.pixels.data())};
    return reinterpret_cast<TarnContourFind>(op.entry)(&op.call, err, storage, out, &mat, flags);
}

// All that the slot distinguishes: three choices of values, four of adjacency.
inline constexpr uint32_t kContourFlags[] = {1, 5, 9, 13, 2, 6, 10, 14, 0, 4, 8, 12};

inline Bitmap picture(std::initializer_list<const char*> rows) {
    Bitmap m{int(strlen(*rows.begin())), int(rows.size()), {}};
    for (const char* r : rows)
        for (const char* p = r; *p; ++p) m.pixels.push_back(*p == '#');
    return m;
}

inline Bitmap noise(int width, int height, double density, unsigned seed) {
    std::mt19937 rng(seed);
    Bitmap m{width, height, std::vector<uint8_t>(size_t(width) * height)};
    for (uint8_t& p : m.pixels) p = rng() < density * 4294967296.0 ? uint8_t(1 + rng() % 255) : 0;
    return m;
}

template <class Fn>
Bitmap drawn(int width, int height, Fn set) {
    Bitmap m{width, height, std::vector<uint8_t>(size_t(width) * height)};
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) m.pixels[size_t(y) * width + x] = set(x, y);
    return m;
}

}  // namespace tarn::test

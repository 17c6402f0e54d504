// For the morphology sources only: an element taken apart into steps.
//
// Along a row the element is a few runs of cells. The extreme over a run comes from one or two windows of a power of
// two of pixels, of which tables are made once for every image row (E. R. Urbach and M. H. F. Wilkinson, "Efficient 2-D
// grayscale morphological transformations with arbitrary flat structuring elements", 2008). Down the columns, an
// element whose rows are single runs, each within the next towards a middle (rectangle, ellipse, cross, diamond), is a
// tower of rectangles: the outermost run's extremes are spread over as many rows as that rectangle is higher than the
// next one, joined with the next run's, and so on, so that each run is looked up once, however many rows it stands in.
// Other elements join run by run. A single rectangle is one step, of its own kind. Small elements of few cells, and the
// smallest squares, need neither tables nor towers: their steps are their cells (near.h).
#pragma once

#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The extremes of rows so far are spread upwards by `rise` rows (joined with those of `rise` rows before) and then
// joined with one window or two. The first step of a plan has a window and no rise.
struct Step {
    int32_t x, row;  // of the first window's left pixel, from the anchor, in the bottom row that it stands for
    int32_t second;  // how far right of it the second one is; 0: there is none
    int32_t rise;
    int32_t level;  // 2^level pixels; kNoWindow; kRectangle: `second` pixels, with `rise` rows above the bottom one
    static constexpr int32_t kNoWindow = -1, kRectangle = -2;
    bool joins() const { return level != kNoWindow; }
    bool is_rectangle() const { return level == kRectangle; }
    int64_t columns() const { return is_rectangle() ? second : second + (int64_t(1) << level); }
};

struct Run {
    int64_t first, count;
    int64_t end() const { return first + count; }
    bool within(Run other) const { return first >= other.first && end() <= other.end(); }
    bool operator==(Run other) const { return first == other.first && count == other.count; }
};

constexpr int kLevels = 31;
constexpr int64_t kNearCells = 128, kNearTower = 64, kNearRows = 15;  // of a small element, at most
inline int level_of(int64_t count) { return 63 - __builtin_clzll(uint64_t(count)); }

class Element {
public:
    Element(const void* mask, int32_t stride, Size size) : mask_(mask), stride_(stride), size_(size) {
        while (top_ < size_.height && !run(top_).count) ++top_;
        bottom_ = size_.height;
        while (bottom_ > top_ && !run(bottom_ - 1).count) --bottom_;
    }

    // add(step) for every step of the plan, from the mask's corner. cells: they may be the steps of a small element,
    // among rectangles of squares up to a side of `square`.
    template <class Add>
    void plan(bool cells, int64_t square, Add add) const {
        const bool tower = is_tower();
        if (is_rectangle() && !(cells && is_square(square))) {
            const Run r = run(top_);
            const int64_t above = bottom_ - 1 - top_;
            add(Step{int32_t(r.first), int32_t(bottom_ - 1), int32_t(r.count), int32_t(above), Step::kRectangle});
            return;
        }
        if (cells && is_small(tower ? kNearTower : kNearCells)) {
            each_run([&](Run r, int64_t y) { join(1, r, y, 0, add); });
            return;
        }
        // Which windows are worth tables.
        int64_t wanted[kLevels + 1] = {};
        if (tower)
            peel([&](Run r, int64_t, int64_t) { ++wanted[level_of(r.count)]; });
        else
            each_run([&](Run r, int64_t) { ++wanted[level_of(r.count)]; });
        uint64_t levels = 1;
        for (int l = kLevels; l > 0; --l) {
            const bool above = levels >> (l + 1);
            if (wanted[l] > (l == 1 ? 2 : l == 2 && !above ? 1 : 0)) levels |= uint64_t(1) << l;
        }
        if (tower)
            plan_tower(levels, add);
        else
            each_run([&](Run r, int64_t y) { join(levels, r, y, 0, add); });
    }

private:
    // The first run of row y that begins at `from` or behind.
    Run run(int64_t y, int64_t from = 0) const {
        const uint8_t* cells = row<uint8_t>(mask_, stride_, y);
        while (from < size_.width && !cells[from]) ++from;
        int64_t end = from;
        while (end < size_.width && cells[end]) ++end;
        return {from, end - from};
    }
    template <class F>
    void each_run(F f) const {
        for (int64_t y = top_; y < bottom_; ++y)
            for (Run r = run(y); r.count; r = run(y, r.end())) f(r, y);
    }

    // f(run, top, bottom) for each rectangle of a tower, the narrowest first, rows [top, bottom). False: two ends of
    // which neither is within the other.
    template <class F>
    bool peel(F f) const {
        int64_t top = top_, bottom = bottom_;
        while (top < bottom) {
            const Run upper = run(top), lower = run(bottom - 1);
            const Run narrow = upper.within(lower) ? upper : lower;
            if (!narrow.within(upper)) return false;
            f(narrow, top, bottom);
            while (top < bottom && run(top) == narrow) ++top;
            while (top < bottom && run(bottom - 1) == narrow) --bottom;
        }
        return true;
    }
    bool is_tower() const {
        bool narrows = false;
        Run before = {};
        for (int64_t y = top_; y < bottom_; ++y) {
            const Run r = run(y);
            if (!r.count || run(y, r.end()).count) return false;
            if (y > top_ && !before.within(r)) narrows = true;
            if (narrows && !r.within(before)) return false;
            before = r;
        }
        return peel([](Run, int64_t, int64_t) {});
    }

    bool is_small(int64_t most) const {
        if (bottom_ - top_ > kNearRows) return false;
        int64_t cells = 0;
        each_run([&](Run r, int64_t) { cells += r.count; });
        return cells <= most;
    }
    // Of a rectangle: whether it is a square of 3 or 5, as far as so many are wanted.
    bool is_square(int64_t most) const {
        const int64_t side = bottom_ - top_;
        return (side == 3 || side == 5) && side <= most && run(top_).count == side;
    }
    bool is_rectangle() const {
        for (int64_t y = top_; y < bottom_; ++y)
            if (const Run r = run(y); !(r == run(top_)) || run(y, r.end()).count) return false;
        return top_ < bottom_;
    }

    template <class Add>
    void plan_tower(uint64_t levels, Add add) const {
        int64_t top = top_, bottom = bottom_;
        bool first = true;
        peel([&](Run r, int64_t inner_top, int64_t inner_bottom) {
            const int64_t above = inner_top - top, below = bottom - inner_bottom;
            const int64_t last = first ? 0 : spread(above + below, above == below, add);
            join(levels, r, inner_bottom - 1, last, add);
            top = inner_top, bottom = inner_bottom;
            first = false;
        });
        if (bottom > top)
            if (const int64_t last = spread(bottom - top - 1, false, add)) add(rising(last));
    }

    static Step rising(int64_t rows) { return {0, 0, 0, int32_t(rows), Step::kNoWindow}; }
    // Spreads over so many rows more, of which the middle one may be left out; the last rise is returned.
    template <class Add>
    static int64_t spread(int64_t rows, bool open, Add add) {
        if (rows == 0) return 0;
        int64_t covered = 1, target = rows + 1, last = 0;
        if (open && rows <= 4) {
            target = rows / 2;
            last = rows / 2 + 1;
        }
        while (covered < target) {
            const int64_t rise = min(covered, target - covered);
            covered += rise;
            if (covered == target && !last) return rise;
            add(rising(rise));
        }
        return last;
    }

    // Joins a run, by as large windows as there are.
    template <class Add>
    static void join(uint64_t levels, Run r, int64_t y, int64_t rise, Add add) {
        const int level = level_of(int64_t(levels & ((uint64_t(2) << level_of(r.count)) - 1)));
        const int64_t window = int64_t(1) << level, last = r.end() - window;
        for (int64_t x = r.first;; x = min(x + 2 * window, last)) {
            const int64_t second = min(window, last - x);
            add(Step{int32_t(x), int32_t(y), int32_t(second), int32_t(rise), level});
            if (x + second == last) break;
            rise = 0;
        }
    }

    const void* mask_;
    int32_t stride_;
    Size size_;
    int64_t top_ = 0, bottom_ = 0;
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

// For the morphology sources only: what stands in a state, and where. A state is its header, the plan's steps and
// scratch memory, whose layout is computed anew at every call from the header's numbers and the steps, never read.
#pragma once

#include "kernels/morph/element.h"
#include "kernels/morph/morph.h"
#include "kernels/plane/strips.h"
#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kBlock = 8;                 // rows that are worked on in registers
constexpr int64_t kBand = 32;                 // rows of a strip at a time
constexpr int64_t kLine = 64;                 // bytes: what scratch is aligned to, and the widest vector
constexpr int64_t kNear = 4;                  // the largest rise that stays in registers
constexpr int64_t kScratchBytes = 160 << 10;  // of a strip, for the second-level cache
constexpr int64_t kStripMost = 4032, kStripLeast = 384, kStripUnit = 192;  // elements
constexpr int64_t kRectMost = 8064, kRectLeast = 576;                      // of strips of rectangles

template <class I>
inline I round_up(I n, int64_t unit) {
    return (n + (unit - 1)) / unit * unit;
}

// How far a plan reaches, as its steps come.
struct Extent {
    int64_t steps = 0, windows = 0, risen = 0, history = 0;
    int64_t left = INT64_MAX, right = INT64_MIN;        // columns of the windows
    int64_t lowest = INT64_MIN, highest = INT64_MAX;    // bottom rows of the windows
    int64_t low_top = INT64_MIN, high_top = INT64_MAX;  // their top rows, from the plan's whole rise on
    uint64_t levels = 0;
    bool rectangle = false;

    // A step's rows kept from block to block: those of a far rise go round in a ring, behind the place where it is.
    static int64_t history_of(int64_t rise) { return rise <= kNear ? rise : round_up(rise, kBlock) + kBlock + 1; }
    void add(const Step& s) {
        ++steps;
        risen += s.rise;
        history += history_of(s.rise);
        if (!s.joins()) return;
        windows += s.second ? 2 : 1;
        if (s.is_rectangle())
            rectangle = true;
        else
            levels |= uint64_t(1) << s.level;
        left = min<int64_t>(left, s.x);
        right = max(right, int64_t(s.x) + s.columns());
        lowest = max<int64_t>(lowest, s.row);
        highest = min<int64_t>(highest, s.row);
        low_top = max(low_top, s.row + risen);
        high_top = min(high_top, s.row + risen);
    }
    int64_t columns() const { return steps ? right - left : 1; }
    // Whether the steps are the cells of a small element.
    bool is_near() const { return levels == 1 && !risen && windows <= kNearCells && rows() < kNearRows; }
    // Rows of the tables beyond those of the result, for the element as it is and reflected.
    int64_t rows() const { return steps ? max(lowest - highest, low_top - high_top) : 0; }
};

// A step as it is carried out: byte offsets in a pass's tables and history.
struct BoundStep {
    int64_t first, second, history;
    int32_t rise;
    int32_t windows;
};

// What stands where in the scratch. Sizes in bytes, but for strip (elements) and rows.
struct Layout {
    int64_t strip = 0, pitch = 0, rows = 0, history_rows = 0, tables = 0;
    int64_t bound = 0, tables_bytes = 0, history_bytes = 0, results_bytes = 0, edges_bytes = 0, pass = 0;
    int64_t all = 0;  // of the state; 0: not to be counted

    Layout() = default;
    // passes: 1 or 2; the second works on the first one's results.
    Layout(const Extent& e, int64_t width, int64_t channels, int64_t element_bytes, int64_t passes) {
        if (e.rectangle) {
            of_rectangle(e, width, channels, element_bytes, passes);
            return;
        }
        constexpr int64_t kMostSteps = int64_t(1) << 48;
        if (e.steps > kMostSteps || e.risen > INT32_MAX || e.history > kMostSteps) return;
        const int64_t reach = (e.columns() - 1) * channels, elements = width * channels;
        tables = count_bits(e.levels);
        rows = e.rows() * (e.is_near() ? passes : 1) + kBand;  // near: what a second pass sees of a first one's band
        history_rows = e.history;
        const int64_t fit = kScratchBytes / (element_bytes * (tables * rows + history_rows + 1));
        const int64_t most = max(min(fit, kStripMost) - reach, max(min(reach, kStripMost), kStripLeast));
        strip = min(strip_width(elements, most / kStripUnit * kStripUnit, kStripUnit), elements);
        const int64_t widest = strip + (passes - 1) * reach;  // the first of two passes
        pitch = round_up((widest + reach) * element_bytes, kLine) + 2 * kLine;
        if (pitch % (2 * kLine) == 0) pitch += kLine;  // rows spread over the sets of the caches
        if (double(tables * rows + 2 * history_rows + kBand + 1) * double(pitch) > 0x1p60) return;
        bound = round_up(e.steps * int64_t(sizeof(BoundStep)), kLine);
        tables_bytes = (tables * rows + 1) * pitch;  // and a line of those that are made on the way
        history_bytes = history_rows * round_up(widest * element_bytes, kLine);
        results_bytes = passes > 1 ? kBand * pitch : 0;
        edges_bytes = e.is_near() ? rows * 6 * kLine : 0;
        pass = bound + tables_bytes + history_bytes + results_bytes + edges_bytes;
        all = round_up(int64_t(sizeof(MorphHeader)) + e.steps * int64_t(sizeof(Step)), kLine) + kLine + passes * pass;
    }
    // Copies of rows' ends, of small elements (near.h).
    uint8_t* edges(uint8_t* scratch) const { return scratch + pass - edges_bytes; }
    // A band of the first pass's results, in the scratch.
    uint8_t* results(uint8_t* scratch) const { return scratch + pass - edges_bytes - results_bytes; }

private:
    // A block as high as the rectangle, and of two passes two such blocks of the first one's results.
    void of_rectangle(const Extent& e, int64_t width, int64_t channels, int64_t element_bytes, int64_t passes) {
        const int64_t reach = min(e.columns() - 1, 2 * (width - 1)) * channels, elements = width * channels;
        rows = e.risen + 1;
        const int64_t fit = kScratchBytes / (element_bytes * rows * (2 * passes - 1)) - reach;
        const int64_t most = max(min(fit, kRectMost), max(min(reach, kStripMost), kRectLeast));
        strip = min(strip_width(elements, most / kStripUnit * kStripUnit, kStripUnit), elements);
        pitch = round_up((strip + passes * reach) * element_bytes, kLine) + 5 * kLine;
        if (double(3 * rows) * double(pitch) > 0x1p60) return;
        tables_bytes = rows * pitch;
        results_bytes = passes > 1 ? 2 * rows * pitch : 0;
        pass = tables_bytes + results_bytes;
        all = round_up(int64_t(sizeof(MorphHeader) + sizeof(Step)), kLine) + kLine + pass;
    }
};

// A hash of the state's bytes between the check and the scratch.
inline uint64_t check_of(const MorphHeader& h, const uint8_t* steps) {
    uint64_t hash = 0xcbf29ce484222325;
    const auto add = [&](uint32_t word) {
        hash = (hash ^ word) * 0x9fb21c651e98df25;
        hash ^= hash >> 29;
    };
    uint32_t words[sizeof h / 4];
    memcpy(words, &h, sizeof h);
    for (uint64_t i = 4; i < sizeof h / 4; ++i) add(words[i]);
    for (uint64_t i = 0; i < h.steps * sizeof(Step); i += 4) {
        uint32_t word;
        memcpy(&word, steps + i, 4);
        add(word);
    }
    return hash;
}

inline int passes_of(uint32_t category) { return category == kMorphBasic ? 1 : 2; }
inline bool is_category(uint32_t category) { return category >= kMorphBasic && category <= kMorphFloats; }

// A state that serves a call, with its steps looked through.
struct State {
    MorphHeader header;
    const uint8_t* steps;
    uint8_t* scratch;
    Extent extent;
    Layout layout;

    // Whether it is whole and made for calls of that kind.
    bool read(void* state, int64_t element_bytes, int64_t channels, Size size, bool advanced) {
        memcpy(&header, state, sizeof header);
        const MorphHeader& h = header;
        if (h.magic != kMorphMagic || h.reserved || !is_category(h.category)) return false;
        if ((h.category != kMorphBasic) != advanced || h.channels != channels) return false;
        const bool floats = h.category == kMorphFloats && h.element_bytes == sizeof(float);
        if (h.element_bytes != uint64_t(element_bytes) && !floats) return false;
        if (h.region.width != size.width || h.region.height != (advanced ? size.height : 0)) return false;
        if (h.bytes > INT64_MAX || h.bytes < sizeof h || h.steps > (h.bytes - sizeof h) / sizeof(Step)) return false;
        steps = static_cast<const uint8_t*>(state) + sizeof h;
        if (check_of(h, steps) != h.check) return false;
        for (uint64_t i = 0; i < h.steps; ++i) {
            Step s;
            memcpy(&s, steps + i * sizeof s, sizeof s);
            if (s.rise < 0 || s.second < 0 || s.level < Step::kRectangle || s.level > kLevels) return false;
            if (s.is_rectangle() ? h.steps > 1 || !s.second : i == 0 && (s.rise || !s.joins())) return false;
            extent.add(s);
        }
        const uintptr_t end = reinterpret_cast<uintptr_t>(steps + h.steps * sizeof(Step));
        scratch = reinterpret_cast<uint8_t*>(round_up<uintptr_t>(end, kLine));
        layout = Layout(extent, size.width, channels, h.element_bytes, passes_of(h.category));
        return layout.all == int64_t(h.bytes);
    }
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

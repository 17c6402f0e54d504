// For the warp sources only: quarter turns and transposes. Blocks are turned in the registers: a vector's groups are
// loaded from the rows that lie side by side in the destination, so that no step crosses groups and whole vectors are
// stored. Blocks go by tiles of whole cache lines, tiles by squares, so that few pages are in use at a time; what fits
// the caches goes straight from plane to plane, what does not by way of buffers that are read and written in long
// pieces, and around the cache.
#pragma once

#include "kernels/plane/transpose.h"
#include "kernels/simd/stream.h"
#include "kernels/warp/put.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kLine = 64;

// How pixels are turned: as elements, of which a group has a power of two; those of three parts as four, one of them
// empty.
template <int kPixel>
struct Turn {
    static constexpr bool kThrees = kPixel % 3 == 0, kByBlocks = !kThrees || kHasLookup;
    static constexpr int kElement = kThrees ? kPixel / 3 * 4 : kPixel;
    using Element = typename Bits<kElement>::Type;

    // A block: rows of the destination, and columns, which fill a vector but for the empty parts.
    static constexpr int64_t kRows = kGroupLanes<Element>, kColumns = kRows * kGroups;
    // Bytes of a group's pixels, and what is loaded with them.
    static constexpr int kTaken = int(kRows) * kPixel, kMore = 16 - kTaken;
    // Rows that a tile must have.
    static constexpr int64_t kLeastRows = kThrees ? 2 * kRows : kRows;
    // The side of a tile: whole lines, of threes three.
    static constexpr int64_t kSide = kThrees ? 3 * kLine / kPixel : max<int64_t>(kLine / kPixel, 16);

    // The bytes of a group's pixels as elements, loaded with more behind them or before them, and back.
    struct Order {
        alignas(16) uint8_t spread[2][16];
        alignas(16) uint8_t together[16];
        constexpr Order() : spread{}, together{} {
            for (int i = 0; i < 16; ++i) {
                const int byte = i % kElement, at = i / kElement * kPixel + byte;
                for (int before = 0; before < 2; ++before)
                    spread[before][i] = uint8_t(byte < kPixel ? at + before * kMore : 128);
                together[i] = uint8_t(i < kTaken ? i / kPixel * kElement + i % kPixel : 128);
            }
        }
    };

    // A block, the first column from s on, each next from `step` on. Of threes more than the block is loaded, from
    // before it or from behind it, and more is stored behind it unless that is `exact`.
    [[gnu::always_inline]] static void block(const uint8_t* s, int64_t step, bool before, uint8_t* d, int64_t pitch,
                                             bool exact) {
        static constexpr Order order;
        int64_t from[kGroups];
        for (int g = 0; g < kGroups; ++g) from[g] = g * kRows * step;
        if (kThrees && before) s -= kMore;
        Bytes v[kRows];
        for (int k = 0; k < kRows; ++k, s += step) v[k] = load_groups(s, from);
        if constexpr (kThrees)
            for (Bytes& each : v) each = lookup(each, every_group(order.spread[before]));
        transpose_groups<Element>(v);
        if constexpr (kThrees)
            for (Bytes& each : v) each = join_twelves(lookup(each, every_group(order.together)));
        for (int k = 0; k < kRows; ++k, d += pitch)
            if (kThrees && exact)
                memcpy(d, &v[k], size_t(kGroups * kTaken));
            else
                store(d, v[k]);
    }

    // A tile: `rows` x `columns` pixels, the first column from s on, each next from `step` on. The last blocks overlap
    // those before.
    [[gnu::always_inline]] static void tile(const uint8_t* s, int64_t step, int64_t columns, int64_t rows, uint8_t* d,
                                            int64_t pitch) {
        if (!kByBlocks || columns < kColumns || rows < kLeastRows) {
            for (int64_t x = 0; x < columns; ++x)
                for (int64_t y = 0; y < rows; ++y)
                    memcpy(d + y * pitch + x * kPixel, s + x * step + y * kPixel, kPixel);
            return;
        }
        for (int64_t i = 0; i < rows; i += kRows)
            for (int64_t j = 0; j < columns; j += kColumns) {
                const int64_t y = min(i, rows - kRows), x = min(j, columns - kColumns);
                const bool before = (rows - y - kRows) * kPixel < kMore, exact = columns - x < 2 * kColumns;
                block(s + x * step + y * kPixel, step, before, d + y * pitch + x * kPixel, pitch, exact);
            }
    }
};

// Where a turn's pixels come from and go to. Rows that the source has backward are made from the last on, so that tiles
// begin where their bytes do.
template <int kPixel>
struct Route {
    const Carry& c;
    bool backward = c.step_y < 0;
    int64_t pitch = backward ? -int64_t(c.dst_stride) : c.dst_stride;

    // The first of so many rows from y on.
    int64_t first(int64_t y, int64_t rows) const { return backward ? y + rows - 1 : y; }
    const uint8_t* from(int64_t x, int64_t y) const { return c.src + x * c.step_x + y * c.step_y; }
    uint8_t* to(int64_t x, int64_t y) const { return row<uint8_t>(c.dst, c.dst_stride, y) + x * kPixel; }

    // f(x, y) for every tile of columns [left, right).
    template <class F>
    void each_tile(int64_t left, int64_t right, int64_t columns, int64_t rows, F f) const {
        constexpr int64_t kSquare = 512;
        const int64_t height = c.size.height, across = kSquare / columns * columns, down = kSquare / rows * rows;
        for (int64_t top = 0; top < height; top += down)
            for (int64_t first = left; first < right; first += across)
                for (int64_t y = top; y < min(top + down, height); y += rows)
                    for (int64_t x = first; x < min(first + across, right); x += columns) f(x, y);
    }
};

// Columns [left, right), tile by tile right into the destination, by way of a buffer where what is put is not what is
// there.
template <int kPixel>
[[gnu::noinline]] void turn_near(const Route<kPixel>& r, int64_t left, int64_t right) {
    using T = Turn<kPixel>;
    constexpr int64_t kSide = T::kSide;
    constexpr int64_t kFar = 1 << 20;  // bytes of a plane that the nearer caches don't hold
    alignas(64) uint8_t buffer[kSide * kSide * kPixel];
    const Carry& c = r.c;
    const Put put(c);
    // Rows that meet in the same sets would only push each other out.
    const bool prefetches = c.step_x % 1024 && int64_t(c.size.width) * c.size.height * kPixel > kFar;
    r.each_tile(left, right, kSide, kSide, [&](int64_t x, int64_t y) {
        // No tile is smaller than a block where there is room for one.
        x = max(left, min(x, right - T::kColumns)), y = max<int64_t>(0, min(y, c.size.height - T::kLeastRows));
        const int64_t columns = min(kSide, right - x), rows = min(kSide, c.size.height - y), first = r.first(y, rows);
        const uint8_t* s = r.from(x, first);
        uint8_t* d = r.to(x, first);
        if (prefetches)
            for (int64_t i = 0; i < min(kSide, right - x - kSide); ++i)
                for (int64_t j = 0; j < kSide * kPixel; j += kLine) __builtin_prefetch(s + (kSide + i) * c.step_x + j);
        if (!c.kept && !c.settled) return T::tile(s, c.step_x, columns, rows, d, r.pitch);
        T::tile(s, c.step_x, columns, rows, buffer, kSide * kPixel);
        for (int64_t i = 0; i < rows; ++i) put(d + i * r.pitch, buffer + i * kSide * kPixel, columns * kPixel);
    });
}

// A tile that goes around the cache: bytes of a piece of the destination's rows and of the source's, and of all.
constexpr int64_t kFarPiece = 512, kFarLoaded = 256, kFarBytes = 32 << 10;
template <int kPixel>
constexpr int64_t kFarColumns = kPixel % 3 ? kFarPiece / kPixel : 3 * Turn<kPixel>::kSide;
template <int kPixel>
constexpr int64_t kFarRows = max(min(kFarLoaded, kFarBytes / kFarColumns<kPixel>) / kPixel / Turn<kPixel>::kSide,
                                 int64_t(1)) *
                             Turn<kPixel>::kSide;

// Columns [left, right), which are whole lines and tiles, around the cache. Long pieces of many rows are loaded at a
// time, so that memory is busy and a power of two between the rows is no matter, and long pieces are stored.
template <int kPixel>
[[gnu::noinline]] void turn_far(const Route<kPixel>& r, int64_t left, int64_t right) {
    using T = Turn<kPixel>;
    constexpr int64_t kSide = T::kSide, kPart = kSide / 2;
    constexpr int64_t kColumns = kFarColumns<kPixel>, kRows = kFarRows<kPixel>;
    alignas(64) uint8_t loaded[kColumns * kRows * kPixel], turned[kPart * kColumns * kPixel];
    r.each_tile(left, right, kColumns, kRows, [&](int64_t x, int64_t y) {
        const int64_t columns = min(kColumns, right - x), first = r.first(min(y, r.c.size.height - kRows), kRows);
        const uint8_t* s = r.from(x, first);
        uint8_t* d = r.to(x, first);
        for (int64_t i = 0; i < columns; ++i, s += r.c.step_x)
            for (int64_t j = 0; j < kRows * kPixel; j += kVector)
                store(loaded + i * kRows * kPixel + j, load<Bytes>(s + j));
        for (int64_t part = 0; part < kRows; part += kPart) {
            for (int64_t i = 0; i < columns; i += kSide)
                T::tile(loaded + (i * kRows + part) * kPixel, kRows * kPixel, kSide, kPart, turned + i * kPixel,
                        kColumns * kPixel);
            for (int64_t i = 0; i < kPart; ++i, d += r.pitch)
                stream_row(d, turned + i * kColumns * kPixel, columns * kPixel);
        }
    });
    stream_fence();
}

template <int kPixel>
void carry_turned(const Carry& c) {
    const Route<kPixel> r{c};
    const int64_t width = c.size.width, height = c.size.height;
    // The columns before the first line that begins with a pixel.
    int64_t head = 0;
    while (head < kLine && (reinterpret_cast<intptr_t>(c.dst) + head * kPixel) % kLine) ++head;
    const bool lines = !c.kept && !c.settled && c.dst_stride % kLine == 0 && head < kLine;
    if (!lines || width < head + kFarColumns<kPixel> || height < kFarRows<kPixel> ||
        !streams(2 * kPixel * width * height))
        return turn_near(r, 0, width);
    constexpr int64_t kSide = Turn<kPixel>::kSide;
    const int64_t tail = head + (width - head) / kSide * kSide;
    turn_far(r, head, tail);
    if (head > 0) turn_near(r, 0, kSide);
    if (tail < width) turn_near(r, width - kSide, width);
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

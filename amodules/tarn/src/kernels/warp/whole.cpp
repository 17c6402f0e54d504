// Whole pixels carried onto whole pixels. Rows that stay rows are copied or reversed. Quarter turns and transposes go by
// tiles, which are turned in a buffer, blocks of them in the registers: so each of the source's and the destination's
// cache lines is touched once, whatever the strides. Tiles are taken in squares, so that few pages are in use at a time.
#include "kernels/warp/whole.h"

#include "kernels/plane/move.h"
#include "kernels/plane/transpose.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// An unsigned integer of so many bytes.
template <int kBytes>
struct Bits;
template <>
struct Bits<1> {
    using Type = uint8_t;
};
template <>
struct Bits<2> {
    using Type = uint16_t;
};
template <>
struct Bits<4> {
    using Type = uint32_t;
};
template <>
struct Bits<8> {
    using Type = uint64_t;
};

// Puts pixels into the destination as the warp's form and type have it.
class Put {
public:
    explicit Put(const Carry& c)
        : colours_(c.pixel_bytes == 4   ? colour_mask<uint8_t>()
                   : c.pixel_bytes == 8 ? colour_mask<int16_t>()
                                        : colour_mask<float>()),
          kept_(c.kept),
          settled_(c.settled) {}

    void operator()(uint8_t* d, const uint8_t* s, int64_t n) const {
        if (settled_) return kept_ ? put<true, true>(d, s, n) : put<false, true>(d, s, n);
        if (kept_) return put<true, false>(d, s, n);
        memcpy(d, s, size_t(n));
    }

private:
    template <bool kKept, bool kSettled>
    void put(uint8_t* d, const uint8_t* s, int64_t n) const {
        each_vector(n, [=, this](auto io, int64_t i) {
            const Bytes v = io.load(s + i);
            store_form<kKept>(io, d + i, kSettled ? (Bytes)settle_nan((F32)v) : v, colours_);
        });
    }

    Bytes colours_;
    bool kept_, settled_;
};

// ---- Rows that stay rows ------------------------------------------------------------------------------------------

void carry_rows(const Carry& c) {
    const int64_t n = c.size.width * int64_t(c.pixel_bytes);
    if (!c.kept && !c.settled && c.step_y == int32_t(c.step_y)) {
        copy_rows(c.src, int32_t(c.step_y), c.dst, c.dst_stride, c.size, c.pixel_bytes);
        return;
    }
    const Put put(c);
    for (int64_t y = 0; y < c.size.height; ++y) put(row<uint8_t>(c.dst, c.dst_stride, y), c.src + y * c.step_y, n);
}

// Pixels that are no power of two are moved as the next larger one, whose end is overwritten by the next.
template <int kPixel>
constexpr int kMoved = kPixel % 3 ? kPixel : kPixel / 3 * 4;

// n pixels from s backward. Of three bytes five at a time are turned in a group.
template <int kPixel>
void reverse(const uint8_t* s, int64_t n, uint8_t* d) {
    if constexpr (kPixel < 16 && kPixel % 3) {
        using T = typename Bits<kPixel>::Type;
        Loose<T>* to = reinterpret_cast<Loose<T>*>(d);
        const Loose<T>* from = reinterpret_cast<const Loose<T>*>(s) - (n - 1);
        for (int64_t i = 0; i < n; ++i) to[i] = T(from[n - 1 - i]);
        return;
    }
    int64_t i = 0;
    if constexpr (kHasLookup && kPixel == 3) {
        alignas(16) static constexpr uint8_t index[] = {13, 14, 15, 10, 11, 12, 7, 8, 9, 4, 5, 6, 1, 2, 3, 128};
        const Bytes backward = every_group(index);
        int64_t from[kGroups], to[kGroups];
        for (int g = 0; g < kGroups; ++g) from[g] = -13 - 15 * g, to[g] = 15 * g;
        for (; i + 5 * kGroups < n; i += 5 * kGroups)
            store_groups(d + 3 * i, to, lookup(load_groups(s - 3 * i, from), backward));
    }
    // What is read too much belongs to the pixel before, which the first one lacks.
    if (i == 0 && n > 0) memcpy(d, s, kPixel), i = 1;
    for (; i < n; ++i) memcpy(d + i * kPixel, s - i * kPixel, kMoved<kPixel>);
}

template <int kPixel>
void carry_reversed(const Carry& c) {
    constexpr int64_t kPiece = 1024 / kPixel;
    alignas(64) uint8_t buffer[kPiece * kPixel + 16];
    const Put put(c);
    for (int64_t y = 0; y < c.size.height; ++y)
        for (int64_t x = 0; x < c.size.width; x += kPiece) {
            const int64_t n = min(kPiece, c.size.width - x);
            reverse<kPixel>(c.src + y * c.step_y + x * c.step_x, n, buffer);
            put(row<uint8_t>(c.dst, c.dst_stride, y) + x * kPixel, buffer, n * kPixel);
        }
}

// ---- Rows that become columns -------------------------------------------------------------------------------------

// Pixels on a side of a tile: lines of 64 bytes or two.
template <int kPixel>
constexpr int kTile = kPixel == 1  ? 64
                      : kPixel < 8 ? 32
                                   : 16;

// Bytes from one row of a tile's buffer to the next: with room for what is moved behind the last pixel.
template <int kPixel>
constexpr int kTilePitch = kTile<kPixel>* kPixel + (kPixel % 3 ? 0 : 16);

// A tile: `rows` x `columns` pixels, the first column from s on, each next from `step` on, to a buffer.
template <int kPixel>
void turn(const uint8_t* s, int64_t step, int64_t columns, int64_t rows, uint8_t* buffer) {
    constexpr int64_t kPitch = kTilePitch<kPixel>;
    if constexpr (kPixel < 16 && kPixel % 3) {
        using T = typename Bits<kPixel>::Type;
        constexpr int kBlock = kGroupLanes<T>;
        if (columns >= kBlock && rows >= kBlock) {
            // Groups of a vector are blocks below each other; the last ones overlap.
            for (int64_t y = 0; y < rows; y += kBlock * kGroups) {
                int64_t from[kGroups], to[kGroups];
                for (int g = 0; g < kGroups; ++g) {
                    const int64_t first = min(y + g * kBlock, rows - kBlock);
                    from[g] = first * kPixel, to[g] = first * kPitch;
                }
                for (int64_t i = 0; i < columns; i += kBlock) {
                    const int64_t x = min(i, columns - kBlock);
                    Bytes v[kBlock];
                    for (int k = 0; k < kBlock; ++k) v[k] = load_groups(s + (x + k) * step, from);
                    transpose_groups<T>(v);
                    for (int k = 0; k < kBlock; ++k) store_groups(buffer + k * kPitch + x * kPixel, to, v[k]);
                }
            }
            return;
        }
    }
    for (int64_t x = 0; x < columns; ++x) {
        const uint8_t* from = s + x * step;
        uint8_t* to = buffer + x * kPixel;
        for (int64_t y = 0; y < rows - 1; ++y) memcpy(to + y * kPitch, from + y * kPixel, kMoved<kPixel>);
        memcpy(to + (rows - 1) * kPitch, from + (rows - 1) * kPixel, kPixel);
    }
}

template <int kPixel>
void carry_turned(const Carry& c) {
    constexpr int64_t kSide = kTile<kPixel>, kSquare = 8 * kSide;
    alignas(64) uint8_t buffer[kSide * kTilePitch<kPixel>];
    const Put put(c);
    const bool backward = c.step_y < 0;
    const auto tile = [&](int64_t x, int64_t y) {
        const int64_t columns = min(kSide, c.size.width - x), rows = min(kSide, c.size.height - y);
        const int64_t lowest = backward ? y + rows - 1 : y;
        turn<kPixel>(c.src + x * c.step_x + lowest * c.step_y, c.step_x, columns, rows, buffer);
        for (int64_t i = 0; i < rows; ++i)
            put(row<uint8_t>(c.dst, c.dst_stride, backward ? lowest - i : y + i) + x * kPixel,
                buffer + i * kTilePitch<kPixel>, columns * kPixel);
    };
    for (int64_t top = 0; top < c.size.height; top += kSquare)
        for (int64_t left = 0; left < c.size.width; left += kSquare)
            for (int64_t y = top; y < min<int64_t>(top + kSquare, c.size.height); y += kSide)
                for (int64_t x = left; x < min<int64_t>(left + kSquare, c.size.width); x += kSide) tile(x, y);
}

template <int kPixel>
void carry_pixels(const Carry& c) {
    if (c.step_y == kPixel || c.step_y == -kPixel) return carry_turned<kPixel>(c);
    return carry_reversed<kPixel>(c);
}

}  // namespace

void carry(const Carry& c) {
    if (c.step_x == c.pixel_bytes) return carry_rows(c);
    switch (c.pixel_bytes) {
        case 1:
            return carry_pixels<1>(c);
        case 2:
            return carry_pixels<2>(c);
        case 3:
            return carry_pixels<3>(c);
        case 4:
            return carry_pixels<4>(c);
        case 6:
            return carry_pixels<6>(c);
        case 8:
            return carry_pixels<8>(c);
        case 12:
            return carry_pixels<12>(c);
        default:
            return carry_pixels<16>(c);
    }
}

}  // namespace tarn::k::TARN_LEVEL

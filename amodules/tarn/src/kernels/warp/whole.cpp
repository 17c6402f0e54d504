// Whole pixels carried onto whole pixels. Rows that stay rows are copied or reversed; rows that become columns:
// turned.h.
#include "kernels/warp/whole.h"

#include "kernels/plane/move.h"
#include "kernels/warp/turned.h"

namespace tarn::k::TARN_LEVEL {
namespace {

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
    if (kMoved<kPixel> == kPixel && !c.kept && !c.settled) {  // nothing is moved behind the last
        for (int64_t y = 0; y < c.size.height; ++y)
            reverse<kPixel>(c.src + y * c.step_y, c.size.width, row<uint8_t>(c.dst, c.dst_stride, y));
        return;
    }
    for (int64_t y = 0; y < c.size.height; ++y)
        for (int64_t x = 0; x < c.size.width; x += kPiece) {
            const int64_t n = min(kPiece, c.size.width - x);
            reverse<kPixel>(c.src + y * c.step_y + x * c.step_x, n, buffer);
            put(row<uint8_t>(c.dst, c.dst_stride, y) + x * kPixel, buffer, n * kPixel);
        }
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

// Rows as bits, 64 pixels a word: ends of runs are then the set bits of the row XORed with itself shifted by one, found
// by counting trailing zeros, and words that equal those of the row above are skipped whole. Between two rows, outlines
// run where they differ, and turn where they begin or cease to, or where they differ and both change.
#include "kernels/contour/contour.h"

#include "kernels/plane/plane.h"
#include "kernels/plane/store.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Bit i: p[i] > 0, for 64 pixels.
inline uint64_t bits_of_64(const uint8_t* p) {
    uint64_t bits = 0;
    for (int64_t i = 0; i < 64; i += kVector) bits |= nonzero_bits(load<U8>(p + i)) << i;
    return bits;
}

inline uint64_t load_word(const void* row, int64_t w) {
    return load<uint64_t>(static_cast<const uint8_t*>(row) + 8 * w);
}

inline int trailing_zeros(uint64_t word) { return __builtin_ctzll(word); }

// Bit i: word base + i of the rows differs, for up to 64 words.
inline uint64_t differing_words(const void* above, const void* below, int64_t base, int64_t n) {
    const uint8_t *a = static_cast<const uint8_t*>(above) + 8 * base,
                  *b = static_cast<const uint8_t*>(below) + 8 * base;
    uint64_t differing = 0;
    each_vector(8 * n, [&](auto io, int64_t i) {
        const auto va = io.template load<U64>(a + i), vb = io.template load<U64>(b + i);
        differing |= differing_bits(va, vb) << i / 8;
    });
    return differing;
}

}  // namespace

Status binarise_u8_c1(const void* src, int32_t src_stride, void* bits, int32_t bits_stride, Size size, int32_t value) {
    if (Status s = check(size, src, bits)) return s;
    const uint64_t flip = value ? 0 : ~uint64_t(0);
    const int64_t whole = size.width / 64, rest = size.width % 64;
    for (int64_t y = 0; y < size.height; ++y) {
        const uint8_t* s = row<uint8_t>(src, src_stride, y);
        uint8_t* d = row<uint8_t>(bits, bits_stride, y);
        for (int64_t w = 0; w < whole; ++w) store(d + 8 * w, bits_of_64(s + 64 * w) ^ flip);
        if (rest) {
            uint8_t last[64] = {};
            memcpy(last, s + 64 * whole, size_t(rest));
            store(d + 8 * whole, (bits_of_64(last) ^ flip) & ((uint64_t(1) << rest) - 1));
        }
    }
    return kOk;
}

Status find_stretches(const void* above, const void* below, int32_t width, int32_t diagonal, Stretch* stretches,
                      int32_t* count) {
    if (Status s = check({width, 1}, above, below, stretches, count)) return s;
    const uint64_t join = diagonal ? ~uint64_t(0) : 0;
    const int64_t whole = width / 64, words = (int64_t(width) + 63) / 64;
    const uint64_t inside_last = (uint64_t(1) << width % 64) - 1;
    const auto load = [&](const void* row, int64_t w) {
        return w < whole ? load_word(row, w) : w < words ? load_word(row, w) & inside_last : 0;
    };
    Stretch *start = stretches, *end = stretches;  // whose start, whose end comes next
    uint64_t ending = 0;                           // a stretch may end in the first word of the next 64
    for (int64_t base = 0; base <= whole; base += 64) {
        const uint64_t differing = differing_words(above, below, base, min<int64_t>(words - base, 64));
        uint64_t todo = differing | differing << 1 | ending;
        ending = differing >> 63;
        for (; todo; todo &= todo - 1) {
            const int64_t w = base + trailing_zeros(todo);
            if (w > whole) break;
            const uint64_t a = load(above, w), differ = a ^ load(below, w);
            const uint64_t a_before = w ? load_word(above, w - 1) >> 63 : 0;
            const uint64_t differ_before = w ? (load_word(above, w - 1) ^ load_word(below, w - 1)) >> 63 : 0;
            // Bit i speaks of the corner left of pixel i.
            const uint64_t left = differ << 1 | differ_before, up = a ^ (a << 1 | a_before);
            const uint64_t four = differ & left & up;
            const uint64_t end_up = (up & ~four) | (four & (join ^ ~a)), start_up = (up & ~four) | (four & ~end_up);
            const int32_t x = int32_t(64 * w);
            for (uint64_t starts = (differ & ~left) | four; starts; starts &= starts - 1, ++start) {
                const int i = trailing_zeros(starts);
                start->x[0] = x + i;
                start->up[0] = uint8_t(start_up >> i & 1);
                start->above = uint8_t(a >> i & 1);
            }
            for (uint64_t ends = (left & ~differ) | four; ends; ends &= ends - 1, ++end) {
                const int i = trailing_zeros(ends);
                end->x[1] = x + i;
                end->up[1] = uint8_t(end_up >> i & 1);
                end->unused = 0;
            }
        }
    }
    *count = int32_t(end - stretches);
    return kOk;
}

}  // namespace tarn::k::TARN_LEVEL

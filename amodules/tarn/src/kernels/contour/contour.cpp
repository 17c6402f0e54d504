// Rows as bits, 64 pixels a word: ends of runs are then the set bits of the row XORed with itself shifted by one, found
// by counting trailing zeros, and words that equal those of the row above are skipped whole. Between two rows, outlines
// run where they differ, and turn where they begin or cease to, or where they differ and both change.
#include "kernels/contour/contour.h"

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Bit i: p[i] > 0, for 64 pixels.
inline uint64_t bits_of_64(const uint8_t* p) {
#if defined(__AVX512BW__)
    const __m512i v = _mm512_loadu_si512(p);
    return _mm512_test_epi8_mask(v, v);
#elif defined(__AVX2__)
    const __m256i zero = _mm256_setzero_si256();
    const auto half = [&](const uint8_t* q) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q));
        return uint64_t(uint32_t(~_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, zero))));
    };
    return half(p) | half(p + 32) << 32;
#elif defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    const auto quarter = [&](const uint8_t* q) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
        return uint64_t(uint16_t(~_mm_movemask_epi8(_mm_cmpeq_epi8(v, zero))));
    };
    return quarter(p) | quarter(p + 16) << 16 | quarter(p + 32) << 32 | quarter(p + 48) << 48;
#else
    uint64_t bits = 0;
    for (int i = 0; i < 64; ++i) bits |= uint64_t(p[i] > 0) << i;
    return bits;
#endif
}

inline uint64_t load_word(const void* row, int64_t w) {
    uint64_t word;
    memcpy(&word, static_cast<const uint8_t*>(row) + 8 * w, 8);
    return word;
}

inline int trailing_zeros(uint64_t word) { return __builtin_ctzll(word); }

// Bit i: word base + i of the rows differs, for up to 64 words.
inline uint64_t differing_words(const void* above, const void* below, int64_t base, int64_t n) {
    const uint8_t *a = static_cast<const uint8_t*>(above) + 8 * base,
                  *b = static_cast<const uint8_t*>(below) + 8 * base;
    uint64_t differing = 0;
    int64_t i = 0;
#if defined(__AVX512F__)
    for (; i < n; i += 8) {
        const __mmask8 some = n - i < 8 ? __mmask8((1 << (n - i)) - 1) : __mmask8(-1);
        const __m512i va = _mm512_maskz_loadu_epi64(some, a + 8 * i), vb = _mm512_maskz_loadu_epi64(some, b + 8 * i);
        differing |= uint64_t(_mm512_cmpneq_epi64_mask(va, vb)) << i;
    }
#elif defined(__AVX2__)
    for (; i + 4 <= n; i += 4) {
        const __m256i va = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(a + 8 * i));
        const __m256i vb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b + 8 * i));
        differing |= uint64_t(_mm256_movemask_pd(_mm256_castsi256_pd(_mm256_cmpeq_epi64(va, vb))) ^ 15) << i;
    }
#endif
    for (; i < n; ++i) differing |= uint64_t(load_word(a, i) != load_word(b, i)) << i;
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
        for (int64_t w = 0; w < whole; ++w) {
            const uint64_t word = bits_of_64(s + 64 * w) ^ flip;
            memcpy(d + 8 * w, &word, 8);
        }
        if (rest) {
            uint8_t last[64] = {};
            memcpy(last, s + 64 * whole, size_t(rest));
            const uint64_t word = (bits_of_64(last) ^ flip) & ((uint64_t(1) << rest) - 1);
            memcpy(d + 8 * whole, &word, 8);
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

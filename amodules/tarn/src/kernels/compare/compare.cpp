// Comparisons, a block of as many pixels as a vector has bytes at a time: first the answer of every element, then one
// of every pixel. Where the processor has masks of bits, answers are bits, and those of a pixel's channels are joined
// by shifts; elsewhere they are bytes, ones or zeros, packed down from wider elements.
#include "kernels/compare/known.h"
#include "kernels/plane/channels.h"
#include "kernels/plane/pattern.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Vectors of a block's second operand: from memory, or the constants' pattern.
struct FromMemory {
    static constexpr bool kMemory = true;
    const uint8_t* p;
    Bytes operator()(int v) const { return load<Bytes>(p + v * kVector); }
    FromMemory at(int64_t offset) const { return {p + offset}; }
};
struct FromPattern {
    static constexpr bool kMemory = false;
    Pattern pattern;
    Bytes operator()(int v) const { return pattern.v[v % 3]; }
    const FromPattern& at(int64_t) const { return *this; }
};

// ---- Answers as bits ----------------------------------------------------------------------------------------------

// Those of 64 elements, the n-th of the block.
template <class T, int kComparison, class B>
[[gnu::always_inline]] inline auto bits_of(const uint8_t* a, const B& b, int n) {
    constexpr int kVectors = int(sizeof(T));
    uint64_t bits = 0;
    for (int v = 0; v < kVectors; ++v) {
        const int i = n * kVectors + v;
        bits |= compare_bits<kComparison>(load<Vec<T>>(a + 64 * i), (Vec<T>)b(i)) << v * (64 / kVectors & 63);
    }
    asm("" : "+r"(bits));  // once into a general register, where each use would fetch them from the mask register
    return bits;
}

// Those of 16 pixels of four elements.
template <class T, int kComparison, Form kForm, class B>
[[gnu::always_inline]] inline auto bits_of_fours(const uint8_t* a, const B& b, int n) {
    const auto w = bits_of<T, kComparison>(a, b, n);
    return extract_bits(w & w >> 1 & w >> 2 & (kForm == Form::c4 ? w >> 3 : ~uint64_t(0)), 0x1111111111111111);
}

template <class T, int kComparison, Form kForm, class B>
[[gnu::always_inline]] inline Bytes block_by_bits(const uint8_t* a, const B& b) {
    if constexpr (kForm == Form::c1) {
        return bytes_of_bits(bits_of<T, kComparison>(a, b, 0));
    } else if constexpr (kForm == Form::c3) {
        const auto w0 = bits_of<T, kComparison>(a, b, 0), w1 = bits_of<T, kComparison>(a, b, 1),
                   w2 = bits_of<T, kComparison>(a, b, 2);
        // Bit i of all0 joins the elements i, i + 1 and i + 2; only a pixel's first element counts.
        const auto all0 = w0 & (w0 >> 1 | w1 << 63) & (w0 >> 2 | w1 << 62);
        const auto all1 = w1 & (w1 >> 1 | w2 << 63) & (w1 >> 2 | w2 << 62);
        const auto all2 = w2 & w2 >> 1 & w2 >> 2;
        // Pixels begin at 0, 3, ... of the first word, at 2 and 1 of the others.
        constexpr uint64_t kFirst = 0x9249249249249249;
        return bytes_of_bits(extract_bits(all0, kFirst) | extract_bits(all1, kFirst << 2) << 22 |
                             extract_bits(all2, kFirst << 1) << 43);
    } else {
        return bytes_of_bits(
            bits_of_fours<T, kComparison, kForm>(a, b, 0) | bits_of_fours<T, kComparison, kForm>(a, b, 1) << 16 |
            bits_of_fours<T, kComparison, kForm>(a, b, 2) << 32 | bits_of_fours<T, kComparison, kForm>(a, b, 3) << 48);
    }
}

// ---- Answers as bytes ---------------------------------------------------------------------------------------------

// Those of as many elements as a vector has bytes, the n-th of the block.
template <class T, int kComparison, class B>
[[gnu::always_inline]] inline Bytes bytes_of(const uint8_t* a, const B& b, int n) {
    constexpr int kVectors = int(sizeof(T));
    Bytes r[kVectors];
    for (int v = 0; v < kVectors; ++v) {
        const int i = n * kVectors + v;
        r[v] = (Bytes)holds<kComparison>(load<Vec<T>>(a + kVector * i), (Vec<T>)b(i));
    }
    if constexpr (kVectors == 1)
        return r[0];
    else if constexpr (kVectors == 2)
        return in_order_once((Bytes)narrow_groups((S16)r[0], (S16)r[1]));
    else
        return in_order_twice(
            (Bytes)narrow_groups(narrow_groups((S32)r[0], (S32)r[1]), narrow_groups((S32)r[2], (S32)r[3])));
}

template <class T, int kComparison, Form kForm, class B>
[[gnu::always_inline]] inline Bytes block_by_bytes(const uint8_t* a, const B& b) {
    if constexpr (kForm == Form::c1) {
        return bytes_of<T, kComparison>(a, b, 0);
    } else if constexpr (kForm == Form::c3) {
        Bytes c0 = bytes_of<T, kComparison>(a, b, 0), c1 = bytes_of<T, kComparison>(a, b, 1),
              c2 = bytes_of<T, kComparison>(a, b, 2);
        deinterleave3(c0, c1, c2);
        return c0 & c1 & c2;
    } else {
        // Four answers at once: an integer of nothing but ones.
        const U32 unlooked = splat<uint32_t>(kForm == Form::c4 ? 0 : 0xff000000);
        S32 r[4];
        for (int n = 0; n < 4; ++n) r[n] = (S32)(((U32)bytes_of<T, kComparison>(a, b, n) | unlooked) == ~U32{});
        return in_order_twice((Bytes)narrow_groups(narrow_groups(r[0], r[1]), narrow_groups(r[2], r[3])));
    }
}

// ---- Planes -------------------------------------------------------------------------------------------------------

template <class T, int kComparison, Form kForm, class B>
[[gnu::always_inline]] inline Bytes block(const uint8_t* a, const B& b) {
    if constexpr (kHasLaneBits)
        return block_by_bits<T, kComparison, kForm>(a, b);
    else
        return block_by_bytes<T, kComparison, kForm>(a, b);
}

// Rows of a block at least; b is what the first one is compared with.
template <class B>
using CompareRows = void(const void* a, int32_t a_stride, const B& b, int32_t b_stride, void* dst, int32_t dst_stride,
                         Rows rows);
template <class T, int kComparison, Form kForm, class B>
[[gnu::noinline]] void compare_rows(const void* a, int32_t a_stride, const B& b, int32_t b_stride, void* dst,
                                    int32_t dst_stride, Rows rows) {
    constexpr int64_t kBytes = kPixelBytes<T, kForm>;
    // Blocks of few steps four at a time, which costs the loop less; and the last one first: see store_each.
    constexpr int kTogether = kBytes <= 2 ? 4 : 1;
    const B first = b;  // in registers
    for (int64_t y = 0; y < rows.count; ++y) {
        const uint8_t* p = row<uint8_t>(a, a_stride, y);
        const auto& q = first.at(y * b_stride);
        store_each<false, kTogether>(
            row<uint8_t>(dst, dst_stride, y), rows.pixels,
            Bytes{}, [&](auto, int64_t x) __attribute__((always_inline)) {
                return block<T, kComparison, kForm>(p + x * kBytes, q.at(x * kBytes));
            });
    }
}

// Rows of less than a block: many are brought together. What lies behind them is compared to no effect.
template <int64_t kBytes, class B>
[[gnu::noinline]] void compare_narrow(CompareRows<B>* compare, const void* a, int32_t a_stride, const B& b,
                                      int32_t b_stride, void* dst, int32_t dst_stride, Rows rows) {
    constexpr int64_t kTogether = 256;  // pixels
    uint8_t as[kTogether * kBytes], bs[B::kMemory ? kTogether * kBytes : 1], answers[kTogether];
    const int64_t n = rows.pixels;
    for (int64_t y = 0, count; y < rows.count; y += count) {
        count = min(kTogether / n, rows.count - y);
        for (int64_t i = 0; i < count; ++i) {
            copy_short(as + i * n * kBytes, row<uint8_t>(a, a_stride, y + i), n * kBytes);
            if constexpr (B::kMemory) copy_short(bs + i * n * kBytes, b.at((y + i) * b_stride).p, n * kBytes);
        }
        const Rows one{1, max(count * n, kVector)};
        if constexpr (B::kMemory)
            compare(as, 0, B{bs}, 0, answers, 0, one);
        else
            compare(as, 0, b, 0, answers, 0, one);
        for (int64_t i = 0; i < count; ++i) copy_short(row<uint8_t>(dst, dst_stride, y + i), answers + i * n, n);
    }
}

template <int64_t kBytes, class B>
Status compare_planes(CompareRows<B>* compare, const void* a, int32_t a_stride, const B& b, int32_t b_stride, void* dst,
                      int32_t dst_stride, Rows rows) {
    if (rows.pixels < kVector)
        compare_narrow<kBytes>(compare, a, a_stride, b, b_stride, dst, dst_stride, rows);
    else
        compare(a, a_stride, b, b_stride, dst, dst_stride, rows);
    return kOk;
}

template <class T, Form kForm>
Status compare(const void* a, int32_t a_stride, const void* b, int32_t b_stride, void* dst, int32_t dst_stride,
               Size size, int32_t comparison) {
    if (Status s = check(size, a, b, dst)) return s;
    constexpr int64_t kBytes = kPixelBytes<T, kForm>;
    const Rows rows = rows_of(size, Pitch{a_stride, kBytes}, Pitch{b_stride, kBytes}, Pitch{dst_stride, 1});
    const FromMemory from_a{static_cast<const uint8_t*>(a)}, from_b{static_cast<const uint8_t*>(b)};
    CompareRows<FromMemory>* compare = nullptr;
    const Status known = with_known(comparison, [&](auto known) {
        constexpr int32_t kTurned = known.value < kEqual ? kGreater - known.value : known.value;
        compare = compare_rows<T, kTurned, kForm, FromMemory>;
    });
    if (known) return known;
    return comparison < kEqual  // a < b is b > a
               ? compare_planes<kBytes>(compare, b, b_stride, from_a, a_stride, dst, dst_stride, rows)
               : compare_planes<kBytes>(compare, a, a_stride, from_b, b_stride, dst, dst_stride, rows);
}

template <class T, Form kForm>
Status compare_constant(const void* src, int32_t src_stride, const void* constant, void* dst, int32_t dst_stride,
                        Size size, int32_t comparison) {
    if (Status s = check(size, src, constant, dst)) return s;
    const FromPattern pattern{pattern_of_constants<T, kForm>(constant)};
    const Rows rows = rows_of(size, Pitch{src_stride, kPixelBytes<T, kForm>}, Pitch{dst_stride, 1});
    CompareRows<FromPattern>* compare = nullptr;
    const Status known =
        with_known(comparison, [&](auto known) { compare = compare_rows<T, known.value, kForm, FromPattern>; });
    if (known) return known;
    return compare_planes<kPixelBytes<T, kForm>>(compare, src, src_stride, pattern, 0, dst, dst_stride, rows);
}

}  // namespace

TARN_BODIES(cmp, Compare, u8_s16_f32, c1_c3_c4_c3x, compare<T, kForm>)
TARN_BODIES(cmp_c, CompareConstant, u8_s16_f32, c1_c3_c3x, compare_constant<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

// Comparisons, a block of as many pixels as a vector has bytes at a time: first the answer of every element, then one
// of every pixel. With AVX-512 answers are bits, and those of a pixel's channels are picked apart with bit extraction;
// elsewhere they are bytes (-1 and 0, packed down to 8 bits), which plain loops join.
#include "kernels/compare/compare.h"

#include "kernels/simd/vectors.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Every channel of `channels` compared, or the first three of four.
enum class Form { c1, c3, c4, c3x };
constexpr int channels_of(Form form) { return form == Form::c1 ? 1 : form == Form::c3 ? 3 : 4; }

// Vectors of a block's second operand: from memory, or the constants' pattern.
struct FromMemory {
    static constexpr bool kMemory = true;
    const uint8_t* p;
    Bytes operator()(int v) const { return Whole{}.load(p + v * kVector); }
    FromMemory at(int64_t offset) const { return {p + offset}; }
};
struct FromPattern {
    static constexpr bool kMemory = false;
    Pattern pattern;
    Bytes operator()(int v) const { return pattern.v[v % 3]; }
    const FromPattern& at(int64_t) const { return *this; }
};

#if defined(__AVX512BW__)

template <class T, int kComparison>
uint64_t holds(Bytes a, Bytes b) {
    constexpr int kIntegers[] = {_MM_CMPINT_LT, _MM_CMPINT_LE, _MM_CMPINT_EQ, _MM_CMPINT_NLT, _MM_CMPINT_NLE};
    constexpr int kFloats[] = {_CMP_LT_OQ, _CMP_LE_OQ, _CMP_EQ_OQ, _CMP_GE_OQ, _CMP_GT_OQ};
    constexpr int kInteger = kIntegers[kComparison], kFloat = kFloats[kComparison];  // immediates
    if constexpr (sizeof(T) == 1)
        return _mm512_cmp_epu8_mask((__m512i)a, (__m512i)b, kInteger);
    else if constexpr (sizeof(T) == 2)
        return _mm512_cmp_epi16_mask((__m512i)a, (__m512i)b, kInteger);
    else
        return _mm512_cmp_ps_mask((__m512)a, (__m512)b, kFloat);
}

// The answers of 64 elements.
template <class T, int kComparison, class B>
[[gnu::always_inline]] inline uint64_t word(const uint8_t* a, const B& b, int n) {
    constexpr int kVectors = int(sizeof(T)), kLanes = 64 / kVectors;
    uint64_t bits = 0;
    for (int v = 0; v < kVectors; ++v)
        bits |= holds<T, kComparison>(Whole{}.load(a + 64 * (n * kVectors + v)), b(n * kVectors + v))
                << v * (kLanes & 63);
    asm("" : "+r"(bits));  // once into a general register, where each use would fetch them from the mask register
    return bits;
}

template <class T, int kComparison, Form form, class B>
[[gnu::always_inline]] inline Bytes block(const uint8_t* a, const B& b) {
    uint64_t pixels;
    if constexpr (form == Form::c1) {
        pixels = word<T, kComparison>(a, b, 0);
    } else if constexpr (form == Form::c3) {
        const uint64_t w0 = word<T, kComparison>(a, b, 0), w1 = word<T, kComparison>(a, b, 1),
                       w2 = word<T, kComparison>(a, b, 2);
        // Bit i of all0 joins the elements i, i + 1 and i + 2; only a pixel's first element counts.
        const uint64_t all0 = w0 & (w0 >> 1 | w1 << 63) & (w0 >> 2 | w1 << 62);
        const uint64_t all1 = w1 & (w1 >> 1 | w2 << 63) & (w1 >> 2 | w2 << 62);
        const uint64_t all2 = w2 & w2 >> 1 & w2 >> 2;
        constexpr uint64_t kFirst =
            0x9249249249249249;  // pixels begin at 0, 3, ... of the first word, at 2 and 1 of the others
        pixels = _pext_u64(all0, kFirst) | _pext_u64(all1, kFirst << 2) << 22 | _pext_u64(all2, kFirst << 1) << 43;
    } else {
        pixels = 0;
        for (int n = 0; n < 4; ++n) {
            uint64_t w = word<T, kComparison>(a, b, n);
            w &= w >> 1 & w >> 2 & (form == Form::c4 ? w >> 3 : ~uint64_t(0));
            pixels |= _pext_u64(w, 0x1111111111111111) << 16 * n;
        }
    }
    return (Bytes)_mm512_movm_epi8(pixels);
}

#else

template <class T, int kComparison>
Bytes holds(Bytes a, Bytes b) {
    const Vec<T> x = (Vec<T>)a, y = (Vec<T>)b;
    switch (kComparison) {
        case kLess:
            return (Bytes)(x < y);
        case kLessEqual:
            return (Bytes)(x <= y);
        case kEqual:
            return (Bytes)(x == y);
        case kGreaterEqual:
            return (Bytes)(x >= y);
        default:
            return (Bytes)(x > y);
    }
}

// Packs of 16-byte groups give the groups in the order 0 2 .. 1 3 ..; this puts them right.
Bytes in_order(Bytes v, [[maybe_unused]] int packs) {
#if defined(__AVX2__)
    return packs == 1 ? (Bytes)_mm256_permute4x64_epi64((__m256i)v, 0xd8)
                      : (Bytes)_mm256_permutevar8x32_epi32((__m256i)v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
#else
    return v;
#endif
}

// The answers of as many elements as a vector has bytes.
template <class T, int kComparison, class B>
[[gnu::always_inline]] inline Bytes word(const uint8_t* a, const B& b, int n) {
    constexpr int kVectors = int(sizeof(T));
    Bytes r[kVectors];
    for (int v = 0; v < kVectors; ++v)
        r[v] = holds<T, kComparison>(Whole{}.load(a + kVector * (n * kVectors + v)), b(n * kVectors + v));
    if constexpr (kVectors == 1)
        return r[0];
    else if constexpr (kVectors == 2)
        return in_order(pack_s16_s8(r[0], r[1]), 1);
    else
        return in_order(pack_s16_s8(pack_s32_s16(r[0], r[1]), pack_s32_s16(r[2], r[3])), 2);
}

template <class T, int kComparison, Form form, class B>
[[gnu::always_inline]] inline Bytes block(const uint8_t* a, const B& b) {
    if constexpr (form == Form::c1) {
        return word<T, kComparison>(a, b, 0);
    } else {
        constexpr int kChannels = channels_of(form);
        uint8_t elements[kVector * kChannels], pixels[kVector];
        for (int n = 0; n < kChannels; ++n) Whole{}.store(elements + kVector * n, word<T, kComparison>(a, b, n));
        for (int i = 0; i < kVector; ++i) {
            const uint8_t* e = elements + kChannels * i;
            pixels[i] = e[0] & e[1] & e[2] & (form == Form::c4 ? e[3] : 255);
        }
        return Whole{}.load(pixels);
    }
}

#endif

template <class T, int kComparison, Form form, class B>
void compare_row(uint8_t* d, const uint8_t* a, const B& b, int64_t n) {
    constexpr int64_t kPixel = channels_of(form) * sizeof(T);
    int64_t x = 0;
    for (; x + kVector <= n; x += kVector)
        Whole{}.store(d + x, block<T, kComparison, form>(a + x * kPixel, b.at(x * kPixel)));
    if (x == n) return;
    // The rest through buffers of a whole block.
    uint8_t rest[2][kVector * kPixel] = {};
    const size_t bytes = size_t((n - x) * kPixel);
    memcpy(rest[0], a + x * kPixel, bytes);
    Bytes r;
    if constexpr (B::kMemory) {
        memcpy(rest[1], b.p + x * kPixel, bytes);
        r = block<T, kComparison, form>(rest[0], FromMemory{rest[1]});
    } else {
        r = block<T, kComparison, form>(rest[0], b);
    }
    Part{n - x}.store(d + x, r);
}

template <class T, int kComparison, Form form>
void compare_planes(const void* a, int32_t a_stride, const void* b, int32_t b_stride, void* dst, int32_t dst_stride,
                    Rows rows) {
    for (int64_t y = 0; y < rows.count; ++y)
        compare_row<T, kComparison, form>(row<uint8_t>(dst, dst_stride, y), row<uint8_t>(a, a_stride, y),
                                          FromMemory{row<uint8_t>(b, b_stride, y)}, rows.length);
}

template <class T, Form form>
Status compare(const void* a, int32_t a_stride, const void* b, int32_t b_stride, void* dst, int32_t dst_stride,
               Size size, int32_t comparison) {
    if (Status s = check(size, a, b, dst)) return s;
    constexpr int64_t kPixel = channels_of(form) * sizeof(T);
    const int64_t row_bytes = size.width * kPixel;
    const bool packed = a_stride == row_bytes && b_stride == row_bytes && dst_stride == size.width;
    const Rows rows = packed ? Rows{1, int64_t(size.width) * size.height} : Rows{size.height, size.width};
    // a < b is b > a.
    switch (comparison) {
        case kLess:
            compare_planes<T, kGreater, form>(b, b_stride, a, a_stride, dst, dst_stride, rows);
            return kOk;
        case kLessEqual:
            compare_planes<T, kGreaterEqual, form>(b, b_stride, a, a_stride, dst, dst_stride, rows);
            return kOk;
        case kEqual:
            compare_planes<T, kEqual, form>(a, a_stride, b, b_stride, dst, dst_stride, rows);
            return kOk;
        case kGreaterEqual:
            compare_planes<T, kGreaterEqual, form>(a, a_stride, b, b_stride, dst, dst_stride, rows);
            return kOk;
        case kGreater:
            compare_planes<T, kGreater, form>(a, a_stride, b, b_stride, dst, dst_stride, rows);
            return kOk;
        default:
            return kBadArg;
    }
}

template <class T, int kComparison, Form form>
void compare_constant_plane(const void* src, int32_t src_stride, const Pattern& constant, void* dst, int32_t dst_stride,
                            Rows rows) {
    for (int64_t y = 0; y < rows.count; ++y)
        compare_row<T, kComparison, form>(row<uint8_t>(dst, dst_stride, y), row<uint8_t>(src, src_stride, y),
                                          FromPattern{constant}, rows.length);
}

template <class T, Form form>
Status compare_constant(const void* src, int32_t src_stride, const void* constant, void* dst, int32_t dst_stride,
                        Size size, int32_t comparison) {
    if (Status s = check(size, src, constant, dst)) return s;
    constexpr int kChannels = channels_of(form);
    T pixel[4] = {};
    memcpy(pixel, constant, min(kChannels, 3) * sizeof(T));
    const Pattern pattern = pattern_of<T, kChannels>(pixel);
    const bool packed = src_stride == size.width * int64_t(kChannels * sizeof(T)) && dst_stride == size.width;
    const Rows rows = packed ? Rows{1, int64_t(size.width) * size.height} : Rows{size.height, size.width};
    switch (comparison) {
        case kLess:
            compare_constant_plane<T, kLess, form>(src, src_stride, pattern, dst, dst_stride, rows);
            return kOk;
        case kLessEqual:
            compare_constant_plane<T, kLessEqual, form>(src, src_stride, pattern, dst, dst_stride, rows);
            return kOk;
        case kEqual:
            compare_constant_plane<T, kEqual, form>(src, src_stride, pattern, dst, dst_stride, rows);
            return kOk;
        case kGreaterEqual:
            compare_constant_plane<T, kGreaterEqual, form>(src, src_stride, pattern, dst, dst_stride, rows);
            return kOk;
        case kGreater:
            compare_constant_plane<T, kGreater, form>(src, src_stride, pattern, dst, dst_stride, rows);
            return kOk;
        default:
            return kBadArg;
    }
}

}  // namespace

#define COMPARE(type, form, T)                                                                              \
    Status cmp_##type##_##form(const void* a, int32_t a_stride, const void* b, int32_t b_stride, void* dst, \
                               int32_t dst_stride, Size size, int32_t comparison) {                         \
        return compare<T, Form::form>(a, a_stride, b, b_stride, dst, dst_stride, size, comparison);         \
    }
#define CONSTANT(type, form, T)                                                                               \
    Status cmp_c_##type##_##form(const void* src, int32_t src_stride, const void* constant, void* dst,        \
                                 int32_t dst_stride, Size size, int32_t comparison) {                         \
        return compare_constant<T, Form::form>(src, src_stride, constant, dst, dst_stride, size, comparison); \
    }
#define FORMS(type, T)   \
    COMPARE(type, c1, T) \
    COMPARE(type, c3, T) \
    COMPARE(type, c4, T) COMPARE(type, c3x, T) CONSTANT(type, c1, T) CONSTANT(type, c3, T) CONSTANT(type, c3x, T)
FORMS(u8, uint8_t)
FORMS(s16, int16_t)
FORMS(f32, float)
#undef FORMS
#undef CONSTANT
#undef COMPARE

}  // namespace tarn::k::TARN_LEVEL

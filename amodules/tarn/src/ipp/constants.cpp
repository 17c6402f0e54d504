// Element-wise operations with one constant per channel. Constants are cut to the element's width by keeping their low
// bits, deliberately: callers rely on the wrap-around.
#include <math.h>
#include <string.h>

#include "ipp/elementwise.h"
#include "ipp/operations.h"
#include "kernels/arith/arith.h"
#include "kernels/compare/compare.h"
#include "kernels/logic/logic.h"
#include "kernels/set/set.h"

namespace k = tarn::k;

namespace {

// Constants as a kernel reads them, whatever their element type: up to kMost.
constexpr int kMost = 4;
struct Constants {
    uint8_t bytes[kMost * 4] = {};
    template <class T>
    void put(int channel, T value) {
        memcpy(bytes + channel * int(sizeof(T)), &value, sizeof(T));
    }
};

// Low 8, 16 or 32 bits of each of n whole numbers.
template <class Number>
Constants cut(int kind, int n, Number number) {
    Constants c;
    for (int i = 0; i < n && i < kMost; ++i) switch (kind) {
            case 1:
                c.put(i, uint8_t(number(i)));
                break;
            case 2:
                c.put(i, uint16_t(number(i)));
                break;
            default:
                c.put(i, uint32_t(number(i)));
        }
    return c;
}

// Floats as they are.
Constants floats(const float* values, int n) {
    Constants c;
    for (int i = 0; i < n && i < kMost; ++i) c.put(i, values[i]);
    return c;
}

// The largest integer not above the value; what 32 bits don't hold is the smallest integer.
int32_t floor_to_int(float value) {
    const float whole = floorf(value);
    return whole >= -2147483648.0f && whole < 2147483648.0f ? int32_t(whole) : INT32_MIN;
}

// The nearest integer, halves away from zero; what 64 bits don't hold is the smallest integer.
int64_t round_to_int(float value) { return value >= -0x1p63f && value < 0x1p63f ? int64_t(lroundf(value)) : INT64_MIN; }

Constants floored(int kind, const float* values, int n) {
    return kind == 5 ? floats(values, n) : cut(kind, n, [=](int i) { return floor_to_int(values[i]); });
}

int three_or_one(LumoELEMTYPE type) { return channels_of(type) == 1 ? 1 : 3; }

// ---- Logic --------------------------------------------------------------------------------------------------------

// 8 bits with four channels keep the fourth; 16 and 32 bits combine it with a constant of its own, deliberately.
#define LOGIC(op)                                                                                   \
    {                                                                                               \
        {                                                                                           \
            {&k::op##_c_u8_c1, nullptr, &k::op##_c_u8_c3, nullptr, &k::op##_c_u8_c3x},              \
                {&k::op##_c_s16_c1, nullptr, &k::op##_c_s16_c3, nullptr, &k::op##_c_s16_c4},        \
                {&k::op##_c_s32_c1, nullptr, &k::op##_c_s32_c3, nullptr, &k::op##_c_s32_c4}, {}, {} \
        }                                                                                           \
    }
constexpr KernelTable<k::WithConstant> kAnd = LOGIC(and), kOr = LOGIC(or), kXor = LOGIC(xor);
#undef LOGIC

int64_t logic(const KernelTable<k::WithConstant>& table, const QuelCALL* call, LumoMAT* dst, const LumoMAT* src,
              const uint32_t* constants) {
    if (!src) src = dst;
    const LumoELEMTYPE type = dst->elemtype;
    if (!constants) {
        if (src->data != dst->data)
            copy_plane(kind_of(type), form_of(type), src->data, src->stride, dst->data, dst->stride,
                       {dst->width, dst->height});
        return 0;
    }
    const auto* kernel = table.find(type);
    if (!kernel) unsupported(call, type);
    const int n = kind_of(type) == 1 ? three_or_one(type) : channels_of(type);
    const Constants c = cut(kind_of(type), n, [=](int i) { return constants[i]; });
    (*kernel)(src->data, src->stride, c.bytes, dst->data, dst->stride, k::Size{dst->width, dst->height});
    return 0;
}

// ---- Set, compare, arithmetic -------------------------------------------------------------------------------------

#define FORMS(op, type) \
    { &k::op##_##type##_c1, nullptr, &k::op##_##type##_c3, nullptr, &k::op##_##type##_c3x }
constexpr KernelTable<k::Fill> kSet = {{FORMS(set, u8), FORMS(set, s16), FORMS(set, s32), {}, FORMS(set, s32)}};
constexpr KernelTable<k::MaskedSet> kMaskedSet = {
    {FORMS(set_m, u8), FORMS(set_m, s16), FORMS(set_m, s32), {}, FORMS(set_m, s32)}};
constexpr KernelTable<k::CompareConstant> kCompare = {{FORMS(cmp_c, u8), FORMS(cmp_c, s16), {}, {}, FORMS(cmp_c, f32)}};

// Whatever is neither s16 nor f32 is processed as bytes, deliberately.
#define ARITH(op)                                                                       \
    {                                                                                   \
        { FORMS(op, u8), FORMS(op, s16), FORMS(op, u8), FORMS(op, u8), FORMS(op, f32) } \
    }
constexpr KernelTable<k::WithConstantInPlace> kAdd = ARITH(add_c), kSub = ARITH(sub_c), kMul = ARITH(mul_c);
#undef ARITH
#undef FORMS

int64_t arithmetic(const KernelTable<k::WithConstantInPlace>& table, LumoMAT* dst, const LumoMAT* src,
                   const float* constants) {
    const LumoELEMTYPE type = dst->elemtype;
    const k::Size size{dst->width, dst->height};
    if (src && src->data != dst->data)
        copy_plane(kind_of(type), form_of(type), src->data, src->stride, dst->data, dst->stride, size);
    if (!constants) return 0;
    const int kind = kind_of(type) == 2 || kind_of(type) == 5 ? kind_of(type) : 1;
    const auto* kernel = table.find(kind, form_of(type));
    if (!kernel) return 1;
    const FloatState state;
    (*kernel)(floored(kind, constants, three_or_one(type)).bytes, dst->data, dst->stride, size);
    return 1;
}

}  // namespace

// "tarn::and-c", "tarn::or-c", "tarn::xor-c": dst := src op constants over dst's size.
//   dst        its type word chooses the kernel
//   src        null: dst
//   constants  words, cut to the element's width; null: dst := src as "copy" does it
// Returns 0; an unsupported type ends the process.
int64_t op_and_c(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                 const uint32_t* constants) {
    return logic(kAnd, call, dst, src, constants);
}
int64_t op_or_c(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                const uint32_t* constants) {
    return logic(kOr, call, dst, src, constants);
}
int64_t op_xor_c(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                 const uint32_t* constants) {
    return logic(kXor, call, dst, src, constants);
}

// "tarn::set": dst := constants, or only the pixels that the mask selects.
//   constants  floats, floored and cut to the element's width; null: zeros
//   mask       8-bit, one channel, at least dst's size; not zero selects. null: every pixel
// Returns 0; an unsupported type ends the process.
int64_t op_set(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const float* constants, const LumoMAT* mask) {
    constexpr float kZeros[3] = {};
    const LumoELEMTYPE type = dst->elemtype;
    const k::Size size{dst->width, dst->height};
    if (!kSet.find(type)) unsupported(call, type);
    const FloatState state;
    const Constants c = floored(kind_of(type), constants ? constants : kZeros, three_or_one(type));
    if (mask)
        (*kMaskedSet.find(type))(c.bytes, dst->data, dst->stride, size, mask->data, mask->stride);
    else
        (*kSet.find(type))(c.bytes, dst->data, dst->stride, size);
    return 0;
}

// "tarn::cmp-c": dst (8-bit) := 255 where src compared with the constants holds, else 0, over dst's size.
//   src         its type word chooses the kernel
//   constants   floats; for integers rounded and cut to the element's width
//   comparison  3 <, 4 <=, 5 ==, 6 >=, 7 >; any other writes nothing
// Returns 0; an unsupported type ends the process.
int64_t op_cmp_c(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants,
                 uint32_t comparison) {
    const LumoELEMTYPE type = src->elemtype;
    const auto* kernel = kCompare.find(type);
    if (!kernel) unsupported(call, type);
    if (!constants) return 0;
    const FloatState state;
    const int n = three_or_one(type);
    const Constants c = kind_of(type) == 5 ? floats(constants, n)
                                           : cut(kind_of(type), n, [=](int i) { return round_to_int(constants[i]); });
    (*kernel)(src->data, src->stride, c.bytes, dst->data, dst->stride, k::Size{dst->width, dst->height},
              kernel_comparison(comparison));
    return 0;
}

// "tarn::add-c", "tarn::sub-c", "tarn::mul-c": dst := src op constants, in place once src has been copied to dst.
//   src        null, or with dst's data pointer: already in place
//   constants  floats, for integers floored and cut to the element's width; null: only the copy
// Channel counts other than 1, 3 and 4 are left as copied. Returns 1, or 0 without constants.
int64_t op_add_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants) {
    return arithmetic(kAdd, dst, src, constants);
}
int64_t op_sub_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants) {
    return arithmetic(kSub, dst, src, constants);
}
int64_t op_mul_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants) {
    return arithmetic(kMul, dst, src, constants);
}

// Element-wise operations over whole planes. Each reads one type word, picks one kernel and calls it once; none of them
// compares its arrays with each other or looks at the kernel's status: what can't be done leaves the destination as it
// is. In place needs no form of its own: every kernel here takes a source that is the destination.
#include "ipp/elementwise.h"

#include "ipp/operations.h"
#include "kernels/compare/compare.h"
#include "kernels/logic/logic.h"

namespace k = tarn::k;

constexpr KernelTable<k::Unary> kCopy = {{
    {&k::copy_u8_c1, &k::copy_u8_c4, &k::copy_u8_c3, &k::copy_u8_c4, &k::copy_u8_c3x},
    {&k::copy_s16_c1, &k::copy_s16_c4, &k::copy_s16_c3, &k::copy_s16_c4, &k::copy_s16_c3x},
    {&k::copy_s32_c1, &k::copy_s32_c4, &k::copy_s32_c3, &k::copy_s32_c4, &k::copy_s32_c3x},
    {&k::copy_s32_c1, &k::copy_s32_c4, &k::copy_s32_c3, &k::copy_s32_c4, &k::copy_s32_c3x},
    {&k::copy_s32_c1, &k::copy_s32_c4, &k::copy_s32_c3, &k::copy_s32_c4, &k::copy_s32_c3x},
}};

k::Status copy_plane(int kind, int form, const void* src, int32_t src_stride, void* dst, int32_t dst_stride,
                     k::Size size) {
    const auto* copy = kCopy.find(kind, form);
    if (!copy) return k::kNoKernel;
    if (form == 2) size.width /= 2;
    return (*copy)(src, src_stride, dst, dst_stride, size);
}

// "tarn::copy": dst := src over the source's size.
//   dst  its type word chooses the kernel; the fourth channel of four stays as it is
//   src  as many pixels as its width and height say; may overlap dst when both have one stride
// An unsupported type copies nothing and is no error. Returns 0.
int64_t op_copy(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src) {
    copy_plane(kind_of(dst->elemtype), form_of(dst->elemtype), src->data, src->stride, dst->data, dst->stride,
               {src->width, src->height});
    return 0;
}

namespace {

#define FORMS(op, type) \
    { &k::op##_##type##_c1, nullptr, &k::op##_##type##_c3, nullptr, &k::op##_##type##_c3x }
#define LOGIC(op)                                                 \
    {                                                             \
        {                                                         \
            FORMS(op, u8), FORMS(op, s16), FORMS(op, s32), {}, {} \
        }                                                         \
    }
constexpr KernelTable<k::Binary> kAnd = LOGIC(and), kOr = LOGIC(or), kXor = LOGIC(xor);
constexpr KernelTable<k::Unary> kNot = {{FORMS(not, u8), {}, {}, {}, {}}};
#undef LOGIC
#undef FORMS

// Two channels are compared in units of four elements; four channels by the first three.
#define FORMS(type) \
    { &k::cmp_##type##_c1, &k::cmp_##type##_c4, &k::cmp_##type##_c3, &k::cmp_##type##_c4, &k::cmp_##type##_c3x }
constexpr KernelTable<k::Compare> kCompare = {{FORMS(u8), FORMS(s16), {}, {}, FORMS(f32)}};
#undef FORMS

int64_t logic(const KernelTable<k::Binary>& table, const QuelCALL* call, LumoMAT* dst, const LumoMAT* a,
              const LumoMAT* b) {
    const auto* kernel = table.find(dst->elemtype);
    if (!kernel) unsupported(call, dst->elemtype);
    if (!a && !b) return 0;
    const LumoMAT* first = a && b ? a : dst;
    const LumoMAT* second = b ? b : a;
    (*kernel)(second->data, second->stride, first->data, first->stride, dst->data, dst->stride,
              k::Size{first->width, first->height});
    return 0;
}

}  // namespace

// "tarn::and", "tarn::or", "tarn::xor": dst := a op b over the first operand's size.
//   dst   its type word chooses the kernel; the fourth channel of four stays as it is
//   a, b  one may be null: dst is then the first operand, the other the second. Both null: nothing is done.
// Returns 0; an unsupported type ends the process.
int64_t op_and(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b) {
    return logic(kAnd, call, dst, a, b);
}
int64_t op_or(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b) {
    return logic(kOr, call, dst, a, b);
}
int64_t op_xor(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b) {
    return logic(kXor, call, dst, a, b);
}

// "tarn::not": dst := the complement of src over the source's size; src null: dst itself. 8 bits only; returns 0, an
// unsupported type ends the process.
int64_t op_not(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src) {
    if (!src) src = dst;
    const auto* kernel = kNot.find(dst->elemtype);
    if (!kernel) unsupported(call, dst->elemtype);
    (*kernel)(src->data, src->stride, dst->data, dst->stride, k::Size{src->width, src->height});
    return 0;
}

int32_t kernel_comparison(uint32_t code) {
    constexpr int32_t kNumbers[8] = {-1, -1, -1, k::kLess, k::kLessEqual, k::kEqual, k::kGreaterEqual, k::kGreater};
    return kNumbers[code < 8 ? code : 0];
}

// "tarn::cmp": dst (8-bit) := 255 where a compared with b holds, else 0, over dst's size.
//   a           its type word chooses the kernel; an unsupported type writes nothing
//   comparison  3 <, 4 <=, 5 ==, 6 >=, 7 >; any other writes nothing
// Returns 0.
int64_t op_cmp(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b,
               uint32_t comparison) {
    const auto* kernel = kCompare.find(a->elemtype);
    if (!kernel) return 0;
    const FloatState state;
    (*kernel)(a->data, a->stride, b->data, b->stride, dst->data, dst->stride, kernel_size(*dst, a->elemtype),
              kernel_comparison(comparison));
    return 0;
}

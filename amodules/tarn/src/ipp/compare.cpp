// Comparisons of two arrays, and of an array with constants.
#include "kernels/compare/compare.h"

#include "ipp/constants.h"
#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

// The kernels' number of a comparison code; -1, which they refuse, for a code that is none.
int32_t kernel_comparison(uint32_t code) {
    switch (code) {
        case TARN_LESS:
            return k::kLess;
        case TARN_LESS_EQUAL:
            return k::kLessEqual;
        case TARN_EQUAL:
            return k::kEqual;
        case TARN_GREATER_EQUAL:
            return k::kGreaterEqual;
        case TARN_GREATER:
            return k::kGreater;
        default:
            return -1;
    }
}

}  // namespace

int64_t op_cmp(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b,
               uint32_t comparison) {
    const auto* kernel = kPaired.find(k::cmp_kernels, a->elemtype);
    if (!kernel) return 0;
    const FloatState float_state;
    (*kernel)(a->data, a->stride, b->data, b->stride, dst->data, dst->stride, kernel_size(size_of(*dst), a->elemtype),
              kernel_comparison(comparison));
    return 0;
}

int64_t op_cmp_c(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants,
                 uint32_t comparison) {
    const LumoELEMTYPE type = src->elemtype;
    const auto& kernel = kernel_for(call, kTyped, k::cmp_c_kernels, type);
    if (!constants) return 0;
    const FloatState float_state;
    const Constants c = rounded(kTyped.type(type), k::used(kTyped.form(type)), constants);
    kernel(src->data, src->stride, c.bytes, dst->data, dst->stride, size_of(*dst), kernel_comparison(comparison));
    return 0;
}

}  // namespace tarn::ipp

// Fills with one constant per channel.
#include "kernels/set/set.h"

#include "ipp/constants.h"
#include "ipp/operations.h"

namespace tarn::ipp {

int64_t op_set(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const float* constants, const LumoMAT* mask) {
    constexpr float kZeros[3] = {};
    const LumoELEMTYPE type = dst->elemtype;
    const auto& set = kernel_for(call, kFills, k::set_kernels, type);
    const auto& masked_set = kernel_for(call, kFills, k::set_m_kernels, type);
    const FloatState float_state;
    const Constants c = floored(kTyped.type(type), k::used(kFills.form(type)), constants ? constants : kZeros);
    if (mask)
        masked_set(c.bytes, dst->data, dst->stride, size_of(*dst), mask->data, mask->stride);
    else
        set(c.bytes, dst->data, dst->stride, size_of(*dst));
    return 0;
}

}  // namespace tarn::ipp

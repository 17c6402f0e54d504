// Statistics: numbers per channel of one plane, into vectors of the caller's. None makes an error value; a type without
// a kernel ends the process, and a plane without pixels leaves the vectors as they are.
#include "kernels/stats/stats.h"

#include <float.h>

#include "ipp/constants.h"
#include "ipp/operations.h"

namespace tarn::ipp {

int64_t op_minmax(const QuelCALL* call, QuelERR*, KaSMEMSTG*, float* smallest, float* largest, const LumoMAT* src) {
    const auto& minmax = kernel_for(call, kTyped, k::minmax_kernels, src->elemtype);
    const FloatState float_state;
    minmax(src->data, src->stride, size_of(*src), smallest, largest);
    return 0;
}

int64_t op_countinrange(const QuelCALL* call, QuelERR*, KaSMEMSTG*, int32_t* counts, const LumoMAT* src,
                        const float* lower, const float* upper) {
    const auto& count = kernel_for(call, kTyped, k::count_in_range_kernels, src->elemtype);
    const FloatState float_state;
    const k::Type type = kTyped.type(src->elemtype);
    const int n = k::used(kTyped.form(src->elemtype));
    // Where the caller gives no bounds: every finite value of the type.
    const float least = type == f32 ? -FLT_MAX : 0, most = type == f32 ? FLT_MAX : 255;
    const float lowest[3] = {least, least, least}, highest[3] = {most, most, most};
    count(src->data, src->stride, size_of(*src), floored(type, n, lower ? lower : lowest).bytes,
          floored(type, n, upper ? upper : highest).bytes, counts);
    return 0;
}

int64_t op_mean(const QuelCALL* call, QuelERR*, KaSMEMSTG*, float* means, const LumoMAT* src) {
    const auto& mean = kernel_for(call, kTyped, k::plane_mean_kernels, src->elemtype);
    const FloatState float_state;
    double results[3];
    if (mean(src->data, src->stride, size_of(*src), results) != k::kOk) return 0;
    for (int c = 0; c < k::used(kTyped.form(src->elemtype)); ++c) means[c] = float(results[c]);
    return 0;
}

}  // namespace tarn::ipp

// The origin of rows. Elements count only by their size.
#include "kernels/mirror/mirror.h"

#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

void reverse_rows(const LumoMAT& array) {
    const auto* mirror = kMirrors.find(k::mirror_kernels, array.elemtype);
    if (!mirror) return;  // deliberate: an unsupported type stays as it is and is no error
    (*mirror)(array.data, array.stride, kernel_size(size_of(array), array.elemtype), 0);
}

}  // namespace

int64_t op_cvtorigin(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* array, uint32_t from, uint32_t to) {
    if (from != to) reverse_rows(*array);
    return 0;
}

int64_t op_cvtorigin_n(const QuelCALL*, QuelERR*, KaSMEMSTG*, uint64_t n, LumoMAT* const* arrays, uint32_t from,
                       uint32_t to) {
    if (from == to) return 0;
    for (uint64_t i = 0; i < n; ++i) reverse_rows(*arrays[i]);
    return int64_t(uint32_t(n));
}

}  // namespace tarn::ipp

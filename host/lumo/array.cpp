// Arrays of up to four dimensions: parameters, arrays in storages, projections.
#include <string.h>

#include "ka/fail.h"
#include "lumo_array.h"

const int64_t _G_Lumo_strides_corder[LUMO_DIMS] = {-1, -1, -1, -1};  // known by its address; the values are never read

namespace {

constexpr int64_t kLargestArray = INT64_C(1) << 62;

int dim_of(char letter) {
    switch (letter) {
        case 'W':
            return LUMO_DIM_W;
        case 'H':
            return LUMO_DIM_H;
        case 'C':
            return LUMO_DIM_C;
        case 'N':
            return LUMO_DIM_N;
        default:
            return -1;
    }
}

bool good_dim(int32_t dim) { return dim >= 0 && dim < LUMO_DIMS; }

// Number of dimensions, or -1 when it is not a layout.
int32_t count_dims(const LumoARRLO& layout) {
    return *LumoARRLOshow(&layout) == '?' ? -1 : int32_t(strlen(layout.dims));
}

// Bytes from an array's first element to the end of its last, for strides that are not negative; -1 when that is too
// many.
int64_t extent(const LumoARRAY& parms) {
    const int64_t element = int64_t(LumoELEMTYPEsizeof(parms.elemtype));
    int64_t bytes = element;
    for (int dim = 0; dim < LUMO_DIMS; ++dim) {
        if (parms.size[dim] == 0) return 0;
        int64_t step;
        if (__builtin_mul_overflow(int64_t(parms.size[dim] - 1), parms.stride[dim], &step) ||
            __builtin_add_overflow(bytes, step, &bytes) || bytes > kLargestArray)
            return -1;
    }
    return bytes;
}

bool fill(LumoARRAY& parms, int32_t ndims, const int32_t* sizes, const int64_t* strides) {
    for (int dim = 0; dim < LUMO_DIMS; ++dim) {
        parms.size[dim] = 1;
        parms.stride[dim] = 0;
    }
    int64_t packed = int64_t(LumoELEMTYPEsizeof(parms.elemtype));
    for (int32_t i = ndims - 1; i >= 0; --i) {
        const int dim = dim_of(parms.layout.dims[i]);
        if (sizes[i] < 0) return false;
        parms.size[dim] = sizes[i];
        parms.stride[dim] = strides == _G_Lumo_strides_corder ? packed : strides[i];
        if (__builtin_mul_overflow(packed, int64_t(sizes[i]), &packed) || packed > kLargestArray) return false;
    }
    return true;
}

void drop_dim(LumoARRAY& parms, int dim) {
    char* out = parms.layout.dims;
    for (const char* in = parms.layout.dims; *in; ++in)
        if (dim_of(*in) != dim) *out++ = *in;
    while (out < parms.layout.dims + sizeof parms.layout.dims) *out++ = 0;
    parms.size[dim] = 1;
    parms.stride[dim] = 0;
}

}  // namespace

LumoARRAY* LumoARRPARMS(LumoARRAY* parms, int32_t ndims, const int32_t* sizes, const int64_t* strides,
                        const LumoARRLO* layout, LumoELEMTYPE elemtype, uint32_t cls) {
    LumoARRAY result = {};
    result.elemtype = elemtype;
    result.cls = cls;
    result.layout = *layout;
    const bool good = LumoELEMTYPEsizeof(elemtype) != 0 && ndims >= 0 && ndims == count_dims(*layout) &&
                      fill(result, ndims, sizes, strides);
    *parms = good ? result : LumoARRAY{};
    return good ? parms : nullptr;
}

int LumoARRPARMSnull(const LumoARRAY* parms) {
    return !parms || parms->size[LUMO_DIM_W] <= 0 || parms->size[LUMO_DIM_H] <= 0 || parms->size[LUMO_DIM_C] <= 0;
}

LumoARRAY* LumoARRPARMSmodify(LumoARRAY* result, const LumoARRAY* parms, const LumoARRLO* layout,
                              const int64_t* strides) {
    const LumoARRAY from = *parms;
    const LumoARRLO to = layout ? *layout : from.layout;
    const int32_t ndims = count_dims(to);
    int32_t sizes[LUMO_DIMS] = {};
    bool kept[LUMO_DIMS] = {};
    for (int32_t i = 0; i < ndims; ++i) {
        const int dim = dim_of(to.dims[i]);
        sizes[i] = from.size[dim];
        kept[dim] = true;
    }
    for (int dim = 0; dim < LUMO_DIMS; ++dim)
        if (!kept[dim] && from.size[dim] != 1) {
            *result = {};
            return nullptr;
        }
    return LumoARRPARMS(result, ndims, sizes, strides, &to, from.elemtype, from.cls);
}

int32_t LumoARRPARMSsizedim(const LumoARRAY* parms, int32_t dim) { return good_dim(dim) ? parms->size[dim] : 1; }

int64_t LumoARRPARMSstridedim(const LumoARRAY* parms, int32_t dim) { return good_dim(dim) ? parms->stride[dim] : 0; }

void LumoARRPARMSsqueezeI(LumoARRAY* parms) {
    for (int dim = 0; dim < LUMO_DIMS; ++dim)
        if (parms->size[dim] == 1) drop_dim(*parms, dim);
}

LumoARRAY* LumoARRAYinit_memstg(LumoARRAY* array, const LumoARRAY* parms, KaSMEMSTG* storage, QuelERR* err) {
    LumoARRAY result = *parms;
    if (LumoELEMTYPEsizeof(result.elemtype) == 0) return ka::fail(err, QUEL_E_TYPE);
    for (int dim = 0; dim < LUMO_DIMS; ++dim)
        if (result.size[dim] < 0 || result.stride[dim] < 0) return ka::fail(err, QUEL_E_OPTION);
    const int64_t bytes = extent(result);
    if (bytes < 0) return ka::fail(err, QUEL_E_NOMEM);
    result.data = KaSMEMSTGaalloc(storage, uint64_t(bytes), 64, 0, err);
    if (!result.data) return nullptr;
    *array = result;
    return array;
}

LumoARRAY* LumoARRAYprojdim(LumoARRAY* result, const LumoARRAY* array, int32_t dim, int32_t index) {
    if (!good_dim(dim) || index < 0 || (index > 0 && index >= array->size[dim])) return nullptr;
    LumoARRAY part = *array;
    if (index) part.data = static_cast<uint8_t*>(part.data) + index * array->stride[dim];
    drop_dim(part, dim);
    *result = part;
    return result;
}

void LumoARRAYsqueezeI(LumoARRAY* array) { LumoARRPARMSsqueezeI(array); }

// 2-D array views. A view's class word is copied but never looked at: a view filled in by hand may hold anything there.
#include "ka/fail.h"
#include "lumo.h"
#include "lumo_array.h"

namespace {

// What the class word of a matrix made here points to.
const char kMatrixClass[] = "am";

uint64_t pixel_bytes(LumoELEMTYPE type) { return LumoELEMTYPEsizeof(type) * (type >> 12 & 15); }

}  // namespace

LumoMAT* _LumoMATinit(LumoMAT* mat, const LumoMATPARM* parm, KaSMEMSTG* storage, QuelERR* err) {
    const LumoMATPARM p = *parm;
    const uint64_t pixel = pixel_bytes(p.elemtype);
    if (pixel == 0) return ka::fail(err, QUEL_E_TYPE);
    if (p.width < 0 || p.height < 0 || (p.row_align & (p.row_align - 1))) return ka::fail(err, QUEL_E_OPTION);
    const uint64_t row = pixel * uint64_t(p.width), align = p.row_align ? p.row_align : 1;
    const uint64_t stride = (row + align - 1) & ~(align - 1);
    if (stride > INT32_MAX) return ka::fail(err, QUEL_E_OPTION);
    // Up to the last pixel and no further, so that a memory checker sees a read beyond it.
    const uint64_t size = p.height ? stride * uint64_t(p.height - 1) + row : 0;
    void* data = KaSMEMSTGaalloc(storage, size, 64, 0, err);
    if (!data) return nullptr;
    *mat = {kMatrixClass, p.elemtype, p.width, p.height, int32_t(stride), data};
    return mat;
}

LumoMAT* _LumoMATof(LumoMAT* view, const LumoMAT* mat, const LumoRECT* region) {
    LumoRECT part = *region, whole;
    _LumoARRroi(&whole, mat);
    LumoRECTintersecI(&part, &whole);
    LumoMAT result = *mat;
    result.width = LumoRECTwidth(&part);
    result.height = LumoRECTheight(&part);
    if (!LumoRECTnull(&part)) {
        const int64_t offset =
            int64_t(part.top) * mat->stride + int64_t(part.left) * int64_t(pixel_bytes(mat->elemtype));
        result.data = static_cast<uint8_t*>(mat->data) + offset;
    }
    *view = result;
    return view;
}

void _LumoARRroi(LumoRECT* roi, const LumoMAT* mat) {
    *roi = {0, 0, mat->width > 0 ? mat->width : 0, mat->height > 0 ? mat->height : 0};
}

void _LumoARRfree(LumoMAT* mat, KaSMEMSTG* storage) {
    if (!mat) return;
    KaSMEMSTGfree(storage, mat->data);
    mat->data = nullptr;
}

void _LumoARRdestroy(LumoMAT* mat, KaSMEMSTG* storage) {
    if (!mat) return;
    _LumoARRfree(mat, storage);
    *mat = {};
}

void _LumoARRmatgenparm(LumoMATPARM* parm, const LumoMAT* mat) { *parm = {mat->elemtype, mat->width, mat->height, 0}; }

/* libLumo: whole arrays of up to four dimensions (width, height, channels, batch) and their layouts.
 *
 * One record is both an array's parameters and the array: parameters describe type, sizes, strides and layout; with
 * its data pointer set the same record is the array. A zeroed record is null: it describes nothing.
 */
#ifndef TARN_LUMO_ARRAY_H
#define TARN_LUMO_ARRAY_H

#include "lumo.h"

#ifdef __cplusplus
extern "C" {
#endif

/* dimension numbers */
enum { LUMO_DIM_W = 0, LUMO_DIM_H = 1, LUMO_DIM_C = 2, LUMO_DIM_N = 3, LUMO_DIMS = 4 };

/* ---- Layouts -------------------------------------------------------------------------------------------------- */

/* A layout: the letters of its dimensions, slowest first, each at most once: "HWC", "NCHW", "HW". Empty for a single
 * element. */
typedef struct LumoARRLO {
    char dims[8]; /* NUL-terminated */
} LumoARRLO;

extern KA_API const LumoARRLO _G_Lumo_HWC_arrlo;
extern KA_API const LumoARRLO _G_Lumo_NHWC_arrlo;
extern KA_API const LumoARRLO _G_Lumo_NCHW_arrlo;

/* 1 when a's dimensions are some or all of b's, in b's order: HW is a sub-layout of HWC and of NCHW, CHW of NCHW only.
 * */
KA_API int LumoARRLOsub(const LumoARRLO* a, const LumoARRLO* b);
/* 1 when both have the same dimensions in the same order. */
KA_API int LumoARRLOsame(const LumoARRLO* a, const LumoARRLO* b);
/* The layout's text, "NHWC"; "?" when it is not a layout. Lives as long as the record. */
KA_API const char* LumoARRLOshow(const LumoARRLO* layout);

/* ---- Colour classes ------------------------------------------------------------------------------------------- */

enum { LUMO_CLASS_UNKNOWN = 0, LUMO_CLASS_GREY = 1, LUMO_CLASS_RGB = 2, LUMO_CLASS_BGR = 3, LUMO_CLASS_BGRA = 4 };

/* Channels of a colour class: 1, 3, 3, 4; 0 for any other class. */
KA_API int32_t LumoARRCLSnchannels(uint32_t cls);

/* ---- Arrays --------------------------------------------------------------------------------------------------- */

/* Array parameters, and with data set the array. Sizes and strides are by dimension number; a dimension that the
 * layout lacks has size 1 and stride 0. The channel bits of the type word don't describe the array (its C dimension
 * does) and take no part in sizes; operations that read them say so. */
struct LumoARRPARMS {
    LumoELEMTYPE elemtype;     /*  0 */
    uint32_t cls;              /*  4: colour class, LUMO_CLASS_... */
    LumoARRLO layout;          /*  8 */
    int32_t size[LUMO_DIMS];   /* 16: elements */
    int64_t stride[LUMO_DIMS]; /* 32: bytes, signed */
    void* data;                /* 64: the element at index 0 of every dimension */
};
/* The record's name in declarations: LumoARRPARMS itself is the function below. */
typedef struct LumoARRPARMS LumoARRAY;

/* Stands for strides without gaps, the layout's last dimension fastest. */
extern KA_API const int64_t _G_Lumo_strides_corder[LUMO_DIMS];

/* Fills array parameters; data becomes null.
 *   ndims     dimensions in the layout
 *   sizes     one size for each, in the layout's order, 0 or more
 *   strides   one stride in bytes for each, in the layout's order, or _G_Lumo_strides_corder
 *   elemtype  element type; its channel bits are kept as they are
 *   cls       colour class
 * Returns parms; or null, and parms null, when an argument is out of range or the array is beyond 2^62 bytes. */
KA_API LumoARRAY* LumoARRPARMS(LumoARRAY* parms, int32_t ndims, const int32_t* sizes, const int64_t* strides,
                               const LumoARRLO* layout, LumoELEMTYPE elemtype, uint32_t cls);
/* 1 when parms is a null pointer, or its width, height or channel count is 0 (as in a zeroed record). A batch of 0
 * images is not null. */
KA_API int LumoARRPARMSnull(const LumoARRAY* parms);
/* The same array parameters in another layout or with other strides; data becomes null.
 *   layout   null for parms' own; must have every dimension of parms that has a size other than 1
 *   strides  as in LumoARRPARMS
 * result may be parms. Returns result, or null as LumoARRPARMS does. */
KA_API LumoARRAY* LumoARRPARMSmodify(LumoARRAY* result, const LumoARRAY* parms, const LumoARRLO* layout,
                                     const int64_t* strides);
/* Size in elements of a dimension; 1 when the array doesn't have it. */
KA_API int32_t LumoARRPARMSsizedim(const LumoARRAY* parms, int32_t dim);
/* Stride in bytes of a dimension; 0 when the array doesn't have it. */
KA_API int64_t LumoARRPARMSstridedim(const LumoARRAY* parms, int32_t dim);
/* Takes the dimensions of size 1 out of the layout. */
KA_API void LumoARRPARMSsqueezeI(LumoARRAY* parms);

/* Makes an array in a storage: array becomes parms with data of its own, aligned to 64 bytes, not cleared. Strides
 * must not be negative. Give the data back with the storage, or with KaSMEMSTGfree(storage, array->data).
 * Returns array, or null with the code of the failure in the low half of the error context's status word. */
KA_API LumoARRAY* LumoARRAYinit_memstg(LumoARRAY* array, const LumoARRAY* parms, KaSMEMSTG* storage, QuelERR* err);
/* The part of array at one index of a dimension: shares array's data, and no longer has the dimension. An array
 * without the dimension, or with size 0 in it, has index 0. result may be array. Returns result, or null when there is
 * no such index. */
KA_API LumoARRAY* LumoARRAYprojdim(LumoARRAY* result, const LumoARRAY* array, int32_t dim, int32_t index);
/* Takes the dimensions of size 1 out of the layout. */
KA_API void LumoARRAYsqueezeI(LumoARRAY* array);

/* ---- Matrices as arrays --------------------------------------------------------------------------------------- */

/* What _LumoMATinit needs to make a matrix of mat's type and size; rows without gaps. */
KA_API void _LumoARRmatgenparm(LumoMATPARM* parm, const LumoMAT* mat);
/* As _LumoARRfree, and mat becomes a zeroed record. */
KA_API void _LumoARRdestroy(LumoMAT* mat, KaSMEMSTG* storage);

#ifdef __cplusplus
}
#endif
#endif

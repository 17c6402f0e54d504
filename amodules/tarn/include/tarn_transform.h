/* Copy-transform: one array into another of any other shape. Included by tarn.h.
 *
 *     // a frame of a camera (u8, BGR, HWC) as the first picture of a network's input (f32, RGB, NCHW, 0..1)
 *     const int32_t from[] = {1080, 1920, 3}, to[] = {1, 3, 640, 640};
 *     const int64_t* tight = _G_Lumo_strides_corder;
 *     LumoARRPARMS(&frame, 3, from, tight, &_G_Lumo_HWC_arrlo, LUMO_U8, LUMO_CLASS_BGR);
 *     LumoARRPARMS(&input, 4, to, tight, &_G_Lumo_NCHW_arrlo, LUMO_F32, LUMO_CLASS_RGB);
 *     frame.data = ..., input.data = ...;
 *     const TarnRANGE unit = {TARN_RANGE_OF_ALL, 0.0f, 1.0f};
 *     ((TarnCopyTransform)op.entry)(&op.call, &err, NULL, &input, &frame, &unit, TARN_LINEAR);
 */
#ifndef TARN_TARN_TRANSFORM_H
#define TARN_TARN_TRANSFORM_H

#include "lumo_array.h"

#ifdef __cplusplus
extern "C" {
#endif

/* How the bounds of a range are given; any other kind ends the process. Both give the same values here, where all
 * channels have one pair of bounds. */
enum { TARN_RANGE_OF_ALL = 0, TARN_RANGE_OF_EACH = 1 };

/* A range of values that each channel of a picture is stretched to: its smallest value becomes lo, its largest hi. */
typedef struct TarnRANGE {
    int32_t kind; /* TARN_RANGE_... */
    float lo, hi;
} TarnRANGE;

/* "tarn::copy-transform": dst := src, picture by picture, with whatever of this the two arrays differ in, in this
 * order:
 *   elements  integers saturate; floats go to the nearest integer, ties to the even one, NaN to the smallest; 32-bit
 *             integers to the nearest float. u8, s16, s32, f32
 *   size      resampled as by "tarn::scale-resize", with all four channels of four. u8, s16, f32
 *   colours   where channels differ, or both classes are known and differ. Grey is 0.299 R + 0.587 G + 0.114 B; grey to
 *             colour repeats it; a fourth channel becomes 255. By element codes: to and from grey u8, u16, s16, f32
 *             (grey to three channels s32 too); between RGB and BGR these and the 32-bit integers; to and from four
 *             channels u8
 *   range     as by "tarn::cvtvrange-n", with all four channels of four. u8, s16, f32
 *   layout    to planes or from planes (first of all, when anything else is to be done): 3 or 4 channels of 1, 2 or 4
 *             bytes
 * Nothing to do is a copy: u8, s16, s32, u32, f32 with 1 to 4 channels, or any number of planes.
 *   dst, src       layouts of NHWC or NCHW, or parts of them; batches of one size. The pixels of a row without gaps,
 *                  and the channels of a pixel; strides of rows, of planes and of pictures are free. Their memory must
 *                  not overlap. A null array: nothing is done
 *   range          null: values stay
 *   interpolation  TARN_NEAREST, TARN_LINEAR, TARN_CUBIC; TARN_CUBIC_ALIAS is TARN_CUBIC. Looked at when sizes differ
 * The type word says the element by its code; a kind beside it must be of that size, and channel bits are not looked
 * at. Two channels go in pairs of pixels, also when the picture is resampled: an odd last column is left, but not of
 * planes.
 *
 * Returns 0; or -1 with an error value, with the pictures before the one at fault done:
 *   QUEL_E_OPTION  batches of different sizes; colours to change that are unknown, or of other numbers of channels
 *   QUEL_E_TYPE    layouts, strides; "got IPP error code N": -1 no data, -2 less than a pair of pixels of two channels,
 *                  -3 rows too far apart to be resampled or mapped (2^31 bytes), -4 out of memory, -5 elements,
 *                  channels or interpolation not served, -9999 not served by a change of colours or layout */
typedef int64_t (*TarnCopyTransform)(const QuelCALL*, QuelERR*, KaSMEMSTG*, const LumoARRAY* dst, const LumoARRAY* src,
                                     const TarnRANGE* range, int32_t interpolation);

#ifdef __cplusplus
}
#endif
#endif

/* tarn-ipp's own records and the types of its operations.
 *
 * Every operation takes the call record, an error context (may be null), a scratch storage (may be null: the operation then
 * opens its own), and its own arguments, destinations before sources.
 */
#ifndef TARN_TARN_H
#define TARN_TARN_H

#include "lumo.h"
#include "tarn_net.h"
#include "tarn_contour.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What the module exports: the address of its descriptor. Look it up in the loaded library. */
#define TARN_MODULE_SYMBOL "_G_quel_module"

/* Interpolation codes. */
enum {
    TARN_NEAREST = 3,
    TARN_LINEAR = 4,
    TARN_CUBIC = 5, /* 2 is read as 5 */
    TARN_LANCZOS = 6
};

/* "init-once", "fini-once": no arguments of their own. Return 0. */
typedef int64_t (*TarnOnce)(const QuelCALL*, QuelERR*, KaSMEMSTG*);

/* "tarn::copy": dst := src over the source's size, the fourth channel kept. Kinds u8, s16, s32, u32, f32 (the
 * destination's); any other type copies nothing. Always returns 0. */
typedef int64_t (*TarnCopy)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src);

/* "tarn::scale-resize": resamples a region of src to the whole of dst.
 *   region         part of src, or null for all; cut to src
 *   value_range    lo and hi (two floats), or null: dst's values are stretched to lo..hi afterwards
 *   interpolation  TARN_NEAREST, ...
 * Kinds u8, s16, f32, any pair of them; as many channels in both. Four channels: the fourth of dst stays when the image is
 * resampled and is copied when region and dst have one size. Alpha is not looked at: colours of transparent pixels blend in.
 * Returns 0 (with a value range: 1), or -1 with an error value: QUEL_E_TYPE (types, sizes or interpolation not supported),
 * QUEL_E_NOMEM. A temporary that can't be had makes no error value but marks the error context. */
typedef int64_t (*TarnScaleResize)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                                   const LumoRECT* region, const uint32_t* value_range, uint32_t interpolation);

#ifdef __cplusplus
}
#endif
#endif

/* tarn-ipp's own records and the types of its operations.
 *
 * Every operation takes the call record, an error context (may be null), a scratch storage (may be null: the operation
 * then opens its own), and its own arguments, destinations before sources.
 *
 * An array's type word says its element kind and channels; which array's type chooses the kernel is said in brackets.
 * Arrays are not compared with each other: where their types or sizes must be equal, that is the caller's to see to.
 * Two channels, where they are served, go in pairs of pixels: an odd last pixel of each row is left. Where there
 * are no pixels nothing is written.
 */
#ifndef TARN_TARN_H
#define TARN_TARN_H

#include "lumo_array.h"
#include "tarn_net.h"
#include "tarn_contour.h"
#include "tarn_threshold.h"
#include "tarn_transform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What the module exports: the address of its descriptor. Look it up in the loaded library. */
#define TARN_MODULE_SYMBOL "_G_quel_module"

/* Interpolation codes. */
enum {
    TARN_CUBIC_ALIAS = 2, /* read as TARN_CUBIC */
    TARN_NEAREST = 3,
    TARN_LINEAR = 4,
    TARN_CUBIC = 5,
    TARN_LANCZOS = 6
};

/* "init-once", "fini-once": no arguments of their own. Return 0. */
typedef int64_t (*TarnOnce)(const QuelCALL*, QuelERR*, KaSMEMSTG*);

/* "tarn::copy": dst := src over the source's size, the fourth channel kept. The two may overlap when they have one
 * stride. Kinds u8, s16, s32, u32, f32 with 1 to 4 channels (dst's); any other type copies nothing. Always returns
 * 0. */
typedef int64_t (*TarnCopy)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src);

/* "tarn::and", "tarn::or", "tarn::xor": dst := a op b, bit by bit, over the size of the first operand; dst's fourth
 * channel is kept. One of a and b may be null: then dst := dst op the other; both null: nothing is done. a or b may be
 * dst. Kinds u8, s16, s32 with 1, 3 or 4 channels (dst's); any other type ends the process. Always returns 0. */
typedef int64_t (*TarnLogic)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b);

/* "tarn::not": dst := the complement of src (null: of dst) over the source's size, the fourth channel kept. u8 with 1,
 * 3 or 4 channels (dst's); any other type ends the process. Always returns 0. */
typedef int64_t (*TarnNot)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src);

/* Comparison codes of "tarn::cmp" and "tarn::cmp-c"; with any other nothing is written. */
enum { TARN_LESS = 3, TARN_LESS_EQUAL = 4, TARN_EQUAL = 5, TARN_GREATER_EQUAL = 6, TARN_GREATER = 7 };

/* "tarn::cmp": dst (u8, one channel) := 255 where a compared with b holds in every channel, else 0, over dst's size.
 * Four channels: the first three count. Two channels: one result for two pixels. Nothing holds for a NaN. Kinds u8,
 * s16, f32 (a's); any other type writes nothing. Always returns 0. */
typedef int64_t (*TarnCmp)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b,
                           uint32_t comparison);

/* "tarn::and-c", "tarn::or-c", "tarn::xor-c": dst := src op constants over dst's size; src null: dst.
 *   constants  one word per channel, its low 8 or 16 bits or all 32 (null: dst := src, of any type that
 *              "tarn::copy" serves). u8 with four channels reads three and keeps the fourth channel; s16 and s32 with
 *              four channels read four.
 * Kinds u8, s16, s32 with 1, 3 or 4 channels (dst's); any other type ends the process. Always returns 0. */
typedef int64_t (*TarnLogicC)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                              const uint32_t* constants);

/* "tarn::set": dst := constants, everywhere or where mask (u8, one channel, at least dst's size; may be null) is
 * not zero.
 *   constants  one float for one channel, three for three and four (the fourth channel is kept); null: zeros. Integers
 *              take the floor, cut to the element's low bits: 256 is 0 and -1 is 255 for u8.
 * Kinds u8, s16, s32, f32 with 1, 3 or 4 channels; any other type ends the process. Always returns 0. */
typedef int64_t (*TarnSet)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const float* constants,
                           const LumoMAT* mask);

/* "tarn::cmp-c": as "tarn::cmp", with constants as second operand: one float for one channel, three for three and four;
 * null: nothing is written. Integers take the nearest integer (halves away from zero), cut to the element's low bits:
 * 300 is 44 for u8. Kinds u8, s16, f32 with 1, 3 or 4 channels (src's); any other type ends the process. Always returns
 * 0. */
typedef int64_t (*TarnCmpC)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                            const float* constants, uint32_t comparison);

/* "tarn::add-c", "tarn::sub-c", "tarn::mul-c": dst := src op constants over dst's size, saturated; src null: dst. src
 * is copied into dst first unless both have one data pointer.
 *   constants  one float for one channel, three for three and four (the fourth channel is kept); null: only the copy.
 *              Integers take the floor, cut to the element's low bits: -1 is 255 for u8.
 * Kinds s16 and f32 (dst's); any other is processed as u8. Channel counts other than 1, 3 and 4 are left after the
 * copy. Where a pixel and its constant are both NaN, the pixel's NaN stays. Returns 1, or 0 without constants. */
typedef int64_t (*TarnArithC)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                              const float* constants);

/* "tarn::add-n", "tarn::sub-n", "tarn::mul-n": dst := ((source 0 op source 1) op source 2) ..., integers saturated
 * after every step, over dst's size, the fourth channel kept. dst may be among the sources: it then takes part with
 * what the steps before have made of it. Kinds s16 and f32 (dst's); any other is processed as u8. Channel counts other
 * than 1, 3 and 4 end the process when count is 2 or more. count 1 copies; 0 and less, and sources null, do nothing.
 * Returns count.
 *
 * "tarn::avgarith-n": dst := the mean of the sources, nearest, ties to even. u8: of the exact sum (up to 65793
 * sources; a float sum beyond). s16: of the sum saturated after every step, divided by the low 16 bits of count. f32:
 * of the float sum. Any other kind is left alone. A source of s16 or f32 is dst itself or lies apart from it. u8 uses
 * scratch memory, and a plane of dst's size where a source lies across dst. Returns count, or -1 without an error value
 * when these can't be had, for want of memory or because a row of the plane would have more than 2^31 - 1 bytes: the
 * error context's status word then names the interface in bits 16 to 31. */
typedef int64_t (*TarnArithN)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count,
                              const LumoMAT* const* sources);

/* "tarn::scale-resize": resamples a region of src to the whole of dst.
 *   region         part of src, or null for all; cut to src before anything else
 *   value_range    lo and hi (two floats), or null: dst's values are mapped to lo..hi afterwards by "tarn::cvtvrange-n"
 *   interpolation  TARN_NEAREST, ...; looked at only when region and dst differ in size
 * Kinds u8, s16, f32, any pair of them; a source of another kind is converted before it is resampled. As many channels
 * in both. Four channels: the fourth of dst stays when the
 * image is resampled and is copied when region and dst have one size. Alpha is not looked at: colours of transparent
 * pixels blend in. Returns 0 (1 when resampled with a value range), or -1 with an error value: QUEL_E_TYPE (types,
 * sizes or interpolation not supported), QUEL_E_NOMEM. A temporary that can't be had makes no error value but marks the
 * error context. */
typedef int64_t (*TarnScaleResize)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                                   const LumoRECT* region, const uint32_t* value_range, uint32_t interpolation);

/* "tarn::warp-affine": dst's pixels become those of src at the places that the warp carries onto them. Pixel centres
 * have whole coordinates; a pixel whose place lies outside of the outermost centres of src by more than 2^-20 stays as
 * it is.
 *   src            must not overlap dst. Has as many channels as dst or more; its elements are taken for pixels of as
 *                  many
 *   warp           from src to dst
 *   interpolation  TARN_NEAREST, ...
 * Places are computed in double and to 2^-32 of a pixel. Interpolation sees the edge of src repeated beyond it. Alpha
 * is not looked at; the fourth channel of dst stays. Two channels: pairs of pixels are what the warp counts.
 * Kinds u8, s16, f32, any pair of them; a source of another kind (s32 too) is converted before it is warped, the part
 * of it that lands in dst with 8 pixels around it. Returns 1; 0 when nothing of src lands in dst, or src has a width or
 * height of 0; or -1 with an error value: QUEL_E_TYPE (types, sizes or interpolation not supported, a warp that is
 * singular or not finite). A temporary that can't be had makes no error value but marks the error context. */
typedef int64_t (*TarnWarpAffine)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                                  const LumoAWARP* warp, uint32_t interpolation);

/* A quadrangle: its corners top left, top right, bottom right, bottom left. */
typedef struct TarnCORNER {
    double x, y;
} TarnCORNER;
typedef struct TarnQUAD {
    TarnCORNER corners[4];
} TarnQUAD;

/* "tarn::warp-affine-quad": "tarn::warp-affine" by the warp that carries the first three corners of a quadrangle of
 * src onto those of one of dst.
 *   from, to  null: the corner pixels of src, of dst
 * Fourth corners that do not fit are no error. An edge without length in both quadrangles, as in arrays of one column,
 * is taken for one pixel. A source of another kind is converted as a whole. Returns 0, also when nothing lands in dst;
 * or -1 as "tarn::warp-affine" does, also for a src without pixels and for corners on one line. */
typedef int64_t (*TarnWarpAffineQuad)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                                      const TarnQUAD* from, const TarnQUAD* to, uint32_t interpolation);

/* "tarn::minmax": the smallest and largest value of each channel.
 *   smallest, largest  one float, or three for 3 and 4 channels; either may be null
 *   src                u8, s16, f32 with 1, 3 or 4 channels (the fourth is passed over); anything else ends the process
 * NaN is passed over; nothing but NaN gives NaN; a zero is +0. Returns 0. */
typedef int64_t (*TarnMinMax)(const QuelCALL*, QuelERR*, KaSMEMSTG*, float* smallest, float* largest,
                              const LumoMAT* src);

/* "tarn::count-in-range": how many pixels of each channel have lower <= value <= upper.
 *   counts        one, or three for 3 and 4 channels; 2147483647 at most
 *   src           u8 or f32 with 1, 3 or 4 channels (the fourth is passed over); anything else ends the process
 *   lower, upper  a float a channel; for u8 floored, then cut to 8 bits: 256 is 0 and -1 is 255. Null: all finite
 *                 values
 * Returns 0. */
typedef int64_t (*TarnCountInRange)(const QuelCALL*, QuelERR*, KaSMEMSTG*, int32_t* counts, const LumoMAT* src,
                                    const float* lower, const float* upper);

/* "tarn::mean": the mean of each channel. Integers are summed exactly, floats in double.
 *   means  one float, or three for 3 and 4 channels
 *   src    u8, s16, f32 with 1, 3 or 4 channels (the fourth is passed over); anything else ends the process
 * Returns 0. */
typedef int64_t (*TarnMean)(const QuelCALL*, QuelERR*, KaSMEMSTG*, float* means, const LumoMAT* src);

/* "tarn::convert-scale": dst := src x scale + offset, converted to dst's kind. In float: the product is rounded, then
 * the sum; to integers the nearest, ties to the even one, saturated, NaN the smallest.
 *   dst            its channel count counts; the fourth of four channels stays as it is
 *   src            gives the size; null: dst. In place when both have one kind
 *   scale, offset  a float a channel, four for four channels; null: 1 and 0
 * Any pair of the kinds u8, s16, f32. Where scale is 1 and offset 0 to the float epsilon nothing is computed: pixels
 * are copied (u32 too), or converted between u8, s16, s32, f32. Returns 0, or -1 with an error value: QUEL_E_TYPE,
 * QUEL_E_NOMEM. */
typedef int64_t (*TarnConvertScale)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                                    const float* scale, const float* offset);

/* "tarn::cvtvrange-v": maps each row of an array in place, so that the row's smallest value becomes lo and its
 * largest hi, per channel. A row of one value becomes lo. NaN is passed over.
 *   array  u8, s16, f32; any other stays as it is; the fourth of four channels stays too
 *   range  lo, hi
 * Returns 0, or -1 with QUEL_E_NOMEM; the rows above are mapped by then. */
typedef int64_t (*TarnCvtvrangeV)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* array, const float* range);

/* "tarn::cvtvrange-n": the same for n arrays, each as a whole. Returns n, or -1 with QUEL_E_NOMEM; the arrays before
 * are mapped by then. */
typedef int64_t (*TarnCvtvrangeN)(const QuelCALL*, QuelERR*, KaSMEMSTG*, uint64_t n, LumoMAT* const* arrays,
                                  const float* range);

/* "tarn::cvtorigin": reverses the order of an array's rows in place when the two origin codes differ.
 *   array  kinds 1 to 5 and 8 to 11 (taken for s8, u16, u64, s64), all channels; any other stays as it is
 * Returns 0. */
typedef int64_t (*TarnCvtorigin)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* array, uint32_t from, uint32_t to);

/* "tarn::cvtorigin-n": the same for n arrays. Returns n; 0 when the codes are equal. */
typedef int64_t (*TarnCvtoriginN)(const QuelCALL*, QuelERR*, KaSMEMSTG*, uint64_t n, LumoMAT* const* arrays,
                                  uint32_t from, uint32_t to);

/* "tarn::reshape": copies the pixels of src in the order of its rows into dst of another shape with as many pixels.
 *   dst           its type gives the bytes of a pixel
 *   order_method  4 is refused (QUEL_E_TYPE); any other is the order of the rows
 * Where the two differ in pixels, what the smaller of them holds is copied. A dst with one row, or with rows as long as
 * src's, is filled by typed copies, if there are any for its type: of two channels in pairs of pixels, and with rows as
 * long as src's the fourth of four channels stays. Returns 0, or -1 with an error value. */
typedef int64_t (*TarnReshape)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                               uint32_t order_method);

/* Border kinds; 2 and 5 to 8 are read as TARN_BORDER_REPLICATE. */
enum { TARN_BORDER_CONSTANT = 3, TARN_BORDER_REPLICATE = 4 };

/* A border's widths in pixels. A negative right is read as left, a negative bottom as top. */
typedef struct TarnBORDER {
    int32_t left, top, right, bottom;
    float values[4]; /* of a constant border: one for each channel, three for four; not read otherwise */
} TarnBORDER;

/* "tarn::copymkb": src into the middle of dst, at left and top, with a border around it: of the nearest pixels of src,
 * or of values, which integers take as "tarn::set" takes its constants.
 *   dst     at least as large as src with its border, and written so far; the fourth of four channels stays, in the
 *           border too
 *   src     of dst's type; may lie in dst: at its place with dst's stride only the border is made, elsewhere the two
 *           are copied as by "tarn::copy". Null: dst
 *   border  null, or src null: src is copied as by "tarn::copy", unless both have one data pointer
 * Two channels: widths are halved, left counts pairs of pixels, and both must be room enough still: right less than
 * left is refused. Kinds u8, s16, s32, f32 with 1 to 4 channels (dst's). Returns 0, or -1 with QUEL_E_TYPE (types,
 * kind, a negative left or top, sizes). */
typedef int64_t (*TarnCopymkb)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, uint32_t kind,
                               const TarnBORDER* border);

/* Filter kinds; with any other nothing is filtered. */
enum {
    TARN_FILTER_BOX_ALIAS = 2, /* read as TARN_FILTER_BOX */
    TARN_FILTER_BOX = 3,       /* mean; of integers the nearest, ties to the even one */
    TARN_FILTER_MIN = 4,
    TARN_FILTER_MAX = 5,
    TARN_FILTER_MEDIAN = 6 /* of an even number of pixels the lower of the two in the middle */
};

/* A filter's mask: which pixels around one are taken, 0 <= anchor < size. */
typedef struct TarnMASK {
    uint32_t anchor_x, anchor_y; /* the cell of the mask that lies on the pixel */
    uint32_t width, height;
} TarnMASK;

/* "tarn::filter": each pixel of a region of src becomes the mean, minimum, maximum or median of the pixels under a
 * mask, channel by channel; written to dst from its first pixel on.
 *   dst     at least as large as the region; the fourth of four channels stays
 *   src     of dst's type; may overlap dst. Null: dst, filtered in place
 *   region  part of src, or null for all
 *   mask    null: 3 x 3, anchored at its centre
 * Neighbours are src's pixels where src has a border of max(anchor, size - anchor) pixels around the region on every
 * side; otherwise the region's own nearest pixels stand for all that is outside of it. Two channels: pairs of pixels
 * are filtered as pixels of four channels, and the mask counts pairs, across and from the region's left on. Floats: a
 * minimum and a maximum order NaN by their bits, negative ones below and positive ones above everything else; a mean
 * with a NaN or infinities of both signs is NaN.
 * Kinds u8, s16, f32 with 1 to 4 channels (dst's), the median u8 and s16. Makes a temporary of the region and the
 * border where neighbours are lacking or dst is src. Returns 0, or -1 with an error value: QUEL_E_TYPE (types, an empty
 * region or one that is not in src, mask, sizes), QUEL_E_NOMEM. A temporary that can't be had makes no error value but
 * marks the error context. */
typedef int64_t (*TarnFilter)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                              const LumoRECT* region, uint32_t kind, const TarnMASK* mask);

/* Categories of morphology states: which operations a state serves. */
enum {
    TARN_MORPH_BASIC = 3,    /* erosion and dilation, of regions of its width and any height */
    TARN_MORPH_ADVANCED = 4, /* the other five, of regions of its size */
    TARN_MORPH_FLOATS = 5    /* these, of u8 and of f32, whatever kind the region has */
};

/* Operations on a picture and a structuring element. Pixels beyond the region are its edge pixels repeated. */
enum {
    TARN_MORPH_ERODE = 3,    /* the minimum of the pixels under the element */
    TARN_MORPH_DILATE = 4,   /* the maximum of those under the element reflected in its anchor */
    TARN_MORPH_OPEN = 5,     /* the erosion dilated: bright parts go that the element doesn't fit into */
    TARN_MORPH_CLOSE = 6,    /* the dilation eroded: dark ones go */
    TARN_MORPH_TOPHAT = 7,   /* the picture less its opening */
    TARN_MORPH_BLACKHAT = 8, /* the closing less the picture */
    TARN_MORPH_GRADIENT = 9  /* the dilation less the erosion */
};

/* The cell of a structuring element that lies on the pixel, 0 <= x < width; TARN_ANCHOR_CENTRE: size / 2. */
typedef struct TarnANCHOR {
    uint32_t x, y;
} TarnANCHOR;
#define TARN_ANCHOR_CENTRE 0xffffffffu

/* "tarn::initmorphstate": the state that "tarn::morphop-n" needs: what of an element can be worked out once, and
 * scratch memory. It belongs to the caller, serves one call at a time, and only regions of the size and type that it
 * was made for.
 *   storage   pays for the state of an empty record; it, not one of the call's own
 *   state     null: only the state's size is wanted, and nothing allocated. An empty record (cls null) becomes an array
 *             of so many bytes, made in storage. Any other is an array that is large enough, at any address, and made
 *             anew; its category is TARN_MORPH_BASIC, or else TARN_MORPH_ADVANCED
 *   category  TARN_MORPH_BASIC, ...
 *   region    of it are read the type word, channel bits and all, the width and the height
 *   element   u8 with 1 channel: cells that are not 0 are its members. Null: 3 x 3, all of them
 *   anchor    null: the centre
 * Kinds u8 and f32 with 1, 2 and 3 channels (region's); two channels are taken in pairs of pixels as four, and the
 * element counts pairs. Of other types a state has 0 bytes and none is made. Returns the state's size in bytes, 0 for a
 * record that was not empty, or -1 with an error value: QUEL_E_OPTION (category), QUEL_E_TYPE (element or anchor, a
 * region without pixels, an array too small for the state). An allocation that fails makes no error value but marks the
 * error context. */
typedef int64_t (*TarnInitmorphstate)(const QuelCALL*, QuelERR*, KaSMEMSTG* storage, LumoMAT* state, uint32_t category,
                                      const LumoARRAY* region, const LumoMAT* element, const TarnANCHOR* anchor);

/* "tarn::morphop-n": one operation on each of a list of pictures, channel by channel.
 *   state      as "tarn::initmorphstate" has made it for such an operation, region and type; any other is refused
 *   operation  TARN_MORPH_ERODE, ...
 *   dsts       count arrays, of one type, at least as large as the region, and written from their first pixel on
 *   srcs       count arrays of that type; each may overlap its dst, and is then copied by "tarn::copy" first
 *   region     part of every src; null: all of the first one
 * Differences of u8 are not below 0. Floats are ordered as by "tarn::filter"; differences of NaN are NaN. An element
 * without members gives the largest value for a minimum (255, infinity) and the smallest for a maximum (0, -infinity).
 * Kinds u8 and f32 with 1, 2 and 3 channels (the first dst's). Returns 0, or -1 with QUEL_E_TYPE: types, operation,
 * state, region, sizes; pictures before the one at fault are done. A temporary that can't be had makes no error value
 * but marks the error context. A negative result of the copy ends the call with it. */
typedef int64_t (*TarnMorphopN)(const QuelCALL*, QuelERR*, KaSMEMSTG*, const LumoMAT* state, uint32_t operation,
                                int64_t count, LumoMAT* const* dsts, const LumoMAT* const* srcs,
                                const LumoRECT* region);

#ifdef __cplusplus
}
#endif
#endif

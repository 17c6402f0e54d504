/* Thresholds: the records and types of "tarn::threshold" and of the three operations that it is made of, which the
 * companion module tarn-c serves. Included by tarn.h.
 */
#ifndef TARN_THRESHOLD_H
#define TARN_THRESHOLD_H

#include "lumo.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What becomes of the elements of one channel, or of every channel: they are compared with a threshold, and take one
 * value where the comparison holds and another where it does not. 40 bytes. */
typedef struct TarnTHRSPEC {
    uint32_t
        comparison;  /* TARN_LESS to TARN_GREATER (tarn.h): of the element with the threshold. NaN: it does not hold */
    int32_t channel; /* the channel that is meant, from 0; TARN_ALL_CHANNELS: all of them */
    float value;     /* the threshold; not read by "tarn::threshold-adapt" */
    float offset;    /* "tarn::threshold-adapt": added to the reference; not read otherwise */
    const LumoMAT*
        reference; /* "tarn::threshold-adapt": of the source's type and at least its size; not read otherwise */
    float holds,
        fails;     /* the values taken; for integers the nearest, ties to the even one, saturated, NaN the smallest */
    uint32_t keep; /* TARN_KEEP_HOLDS, TARN_KEEP_FAILS: there elements stay as they are, the value is not read */
    uint32_t zero; /* 0 */
} TarnTHRSPEC;
enum { TARN_ALL_CHANNELS = -1, TARN_KEEP_HOLDS = 1, TARN_KEEP_FAILS = 2 };

/* "tarn::threshold-imm": dst := src by n specifications, one after the other: the first reads src, each other one what
 * those before it have left. Channels that no record names are copied. Integers are compared exactly, with any
 * threshold.
 *   dst    of src's type and at least its size; the fourth of four channels stays
 *   src    null: dst
 *   specs  n of them; none: src is copied as by "tarn::copy"
 * Kinds u8, s16, f32 with 1 to 4 channels. Returns 0, or -1 with QUEL_E_TYPE (types, sizes), QUEL_E_OPTION (a
 * comparison or a channel that there is not); nothing is written then. */
typedef int64_t (*TarnThresholdImm)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, uint64_t n,
                                    const TarnTHRSPEC* specs);

/* "tarn::threshold-adapt": the same, but each element's threshold is the reference's element + offset: of integers
 * exactly, of floats rounded to float. dst may be src or the reference. */
typedef TarnThresholdImm TarnThresholdAdapt;

/* "tarn::calcthresh-otsu": the threshold that parts the elements of src, of all channels but a fourth, into two classes
 * with the greatest variance between them (N. Otsu, "A threshold selection method from gray-level histograms", 1979).
 *   bounds  lower and upper: the histogram's intervals divide them evenly, lower <= value < upper, the last with its
 *           upper bound too. Elements outside of them, and NaN, are not counted
 *   bins    intervals, 1 to 65536
 * Of the intervals that the lower class may end with the first of those with the greatest variance is taken, compared
 * exactly; the result is the greatest number of src's kind in it, so that the upper class is what is TARN_GREATER.
 * Where there is but one class, or none, that is the first interval.
 * Kinds u8, s16, f32 with 1 to 4 channels. Returns the threshold, or NaN with an error value: QUEL_E_TYPE (type, an
 * empty array), QUEL_E_OPTION (bounds, bins), QUEL_E_NOMEM. */
typedef float (*TarnCalcthreshOtsu)(const QuelCALL*, QuelERR*, KaSMEMSTG*, const LumoMAT* src, const float* bounds,
                                    int32_t bins);

/* Methods of "tarn::threshold"; any other applies the specifications as they are. */
enum { TARN_THRESHOLD_OTSU = 3, TARN_THRESHOLD_ADAPTIVE = 4 };

/* A whole-region threshold, or a lower bound, that asks for the default: the smallest normal float, bits 0x00800000. */
#define TARN_THRESHOLD_COMPUTE 1.17549435e-38f

/* Options, eight words of 32 bits. */
typedef struct TarnTHROPTIONS {
    uint32_t method;
    union {
        struct {
            int32_t anchor_x, anchor_y; /* the cell that lies on the pixel */
            int32_t width, height;      /* 3 x 3 at least */
            int32_t unused[3];
        } adaptive; /* the neighbourhood whose mean is the reference */
        struct {
            int32_t width, height; /* of a tile, 3 x 3 at least; not read when its weight is 0 */
            uint16_t tile_weight, whole_weight;
            int32_t bins;
            float lower, upper; /* lower TARN_THRESHOLD_COMPUTE, or all three 0: the default bounds and bins */
            float whole;        /* the whole region's threshold, or TARN_THRESHOLD_COMPUTE */
        } otsu;
    } of;
} TarnTHROPTIONS;

/* "tarn::threshold": thresholds a region of src, by the methods
 *   otsu      each tile by the mean of its own threshold and of the whole region's, by their weights. Both weights 0:
 *             the whole region's alone when the region is all of src, else the region as one tile. The last tiles of a
 *             row and of a column take in what would be less than a tile. At most two specifications are used, and
 *             their values are set
 *   adaptive  each element by the mean of its neighbourhood ("tarn::filter"), plus the offset of its record
 *   others    the specifications as they are
 *   dst       written from its first pixel on; the region is cut to its size
 *   src       of dst's type. Null: dst
 *   region    cut to what src has; null: all of src. An empty one: nothing is done
 *   options   null: all zero. Histogram by default: u8 and s16 256 intervals of 0 to 255, f32 384 of -1 to 1
 * Works through the operations 41 to 43 and "tarn::filter" of the table that it is called by. Returns 0, what
 * "threshold-imm" returned where it is called once, or -1 with an error value: QUEL_E_OPTION (sizes, anchor), what the
 * other operations make. A temporary that can't be had makes no error value but marks the error context. */
typedef int64_t (*TarnThreshold)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                                 const LumoRECT* region, const TarnTHROPTIONS* options, uint64_t n, TarnTHRSPEC* specs);

#ifdef __cplusplus
}
#endif
#endif

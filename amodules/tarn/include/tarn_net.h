/* Fully connected networks: the layer record and the type of the operation. Included by tarn.h. */
#ifndef TARN_TARN_NET_H
#define TARN_TARN_NET_H

#include "lumo.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Activations. Any other code ends the process. */
enum {
    TARN_ACTIVATION_NONE = 0,
    TARN_ACTIVATION_MIRRORED_SIGMOID = 3, /* 1 / (1 + e^x) */
    TARN_ACTIVATION_SIGMOID = 4,          /* 1 / (1 + e^-x), the logistic function */
    TARN_ACTIVATION_RECTIFIER = 5,        /* x below 0 becomes 0 */
    TARN_ACTIVATION_LEAKY_RECTIFIER = 6,  /* x below 0 becomes 0.01 x */
    TARN_ACTIVATION_SOFTMAX = 7           /* e^x divided by the sum of e^x over the row */
};

/* One layer: y = activation(x weights^T + bias). Three 64-bit words. */
typedef struct TarnLayer {
    const LumoMAT* weights; /* a row per neuron, as wide as the layer's input */
    const LumoMAT* bias;    /* a row of one value per neuron, or null */
    int32_t activation;     /* TARN_ACTIVATION_... */
    int32_t reserved;
} TarnLayer;

/* "tarn::multi-line-neuronet": evaluates a network on a matrix of samples.
 *   output  as many rows as input, as many columns as the last layer has neurons. When its first word is null it is
 *           made in the storage (which may then not be null); otherwise it is used as it stands and must not share
 *           memory with input
 *   input   a sample per row; one channel of 32-bit floats
 *   count   number of layers; with 0 nothing is done
 *   layers  first layer first
 * Widths are not compared: weights must be as wide as their input, a bias must hold a value per neuron. Results do not
 * depend on the processor or on how many samples are given at once. A NaN result is always the quiet NaN 0x7fc00000.
 * Matrices of other element kinds are read as floats at the kind's element stride (s32, f64), or not computed at all
 * (u8, s16, u32).
 * Returns 0, or -1 when a matrix could not be made: no error value, but the code in the low half of the error context's
 * status. */
typedef int64_t (*TarnMultiLineNeuronet)(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* output, const LumoMAT* input,
                                         uint64_t count, const TarnLayer* layers);

#ifdef __cplusplus
}
#endif
#endif

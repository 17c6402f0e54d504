// The functions behind the operation table's slots, and what they all use.
#pragma once

#include "ipp/arguments.h"
#include "kernels/base/runtime.h"
#include "tarn.h"

// Every implemented operation, by its slot name. Types of the arguments: tarn.h.
int64_t op_init_once(const QuelCALL*, QuelERR*, KaSMEMSTG*);
int64_t op_fini_once(const QuelCALL*, QuelERR*, KaSMEMSTG*);
int64_t op_later(const QuelCALL*, QuelERR*, KaSMEMSTG*);
int64_t op_copy(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src);
int64_t op_and(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b);
int64_t op_or(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b);
int64_t op_xor(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b);
int64_t op_not(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src);
int64_t op_cmp(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b,
               uint32_t comparison);
int64_t op_and_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const uint32_t* constants);
int64_t op_or_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const uint32_t* constants);
int64_t op_xor_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const uint32_t* constants);
int64_t op_set(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const float* constants, const LumoMAT* mask);
int64_t op_cmp_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants,
                 uint32_t comparison);
int64_t op_add_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants);
int64_t op_sub_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants);
int64_t op_mul_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants);
int64_t op_add_n(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count, const LumoMAT* const* sources);
int64_t op_sub_n(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count, const LumoMAT* const* sources);
int64_t op_mul_n(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count, const LumoMAT* const* sources);
int64_t op_avgarith_n(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count,
                      const LumoMAT* const* sources);
int64_t op_scaleresize(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const LumoRECT* region,
                       const uint32_t* value_range, uint32_t interpolation);
int64_t op_mlnn(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* output, const LumoMAT* input, uint64_t count,
                const TarnLayer* layers);
int64_t op_contr_find(const QuelCALL*, QuelERR*, KaSMEMSTG*, TarnCONTOURS* output, const LumoMAT* image,
                      uint32_t flags);
int64_t op_minmax(const QuelCALL*, QuelERR*, KaSMEMSTG*, float* smallest, float* largest, const LumoMAT* src);
int64_t op_countinrange(const QuelCALL*, QuelERR*, KaSMEMSTG*, int32_t* counts, const LumoMAT* src, const float* lower,
                        const float* upper);
int64_t op_mean(const QuelCALL*, QuelERR*, KaSMEMSTG*, float* means, const LumoMAT* src);
int64_t op_convscale(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* scale,
                     const float* offset);
int64_t op_cvtvrange_v(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* array, const float* range);
int64_t op_cvtvrange_n(const QuelCALL*, QuelERR*, KaSMEMSTG*, uint64_t n, LumoMAT* const* arrays, const float* range);
int64_t op_cvtorigin(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* array, uint32_t from, uint32_t to);
int64_t op_cvtorigin_n(const QuelCALL*, QuelERR*, KaSMEMSTG*, uint64_t n, LumoMAT* const* arrays, uint32_t from,
                       uint32_t to);
int64_t op_reshape(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, uint32_t order_method);

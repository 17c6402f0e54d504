/* Which types each operation takes, and what it does with others, as data: look before the call.
 *
 *     const TarnKINDS* row = TarnKINDSfind("tarn::not", 0);
 *     if (TarnKINDSother(row, picture.elemtype)) ...   // TARN_OTHERS_END: the call would end the process
 *
 * The module is compiled with this list, and only if its tables of kernels agree with it.
 */
#ifndef TARN_TARN_KINDS_H
#define TARN_TARN_KINDS_H

#include <string.h>

#include "lumo.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Channel forms, as bits. */
enum {
    TARN_OF_0 = 0,
    TARN_OF_1 = 1 << 1,
    TARN_OF_2 = 1 << 2, /* in pairs of pixels: an odd last pixel of a row is left */
    TARN_OF_3 = 1 << 3,
    TARN_OF_4 = 1 << 4,      /* all four */
    TARN_OF_4_LESS = 1 << 5, /* three of four: the destination's fourth stays, a source's is not looked at */
    TARN_OF_134 = TARN_OF_1 | TARN_OF_3 | TARN_OF_4_LESS,
    TARN_OF_1234 = TARN_OF_134 | TARN_OF_2,
    TARN_OF_134_ALL = TARN_OF_1 | TARN_OF_3 | TARN_OF_4,
    TARN_OF_123 = TARN_OF_1 | TARN_OF_2 | TARN_OF_3,
    TARN_OF_1234_ALL = TARN_OF_134_ALL | TARN_OF_2
};

/* What becomes of a call with another type; the greater, the worse. */
enum {
    TARN_OTHERS_ERROR = 1,   /* an error value; nothing is written */
    TARN_OTHERS_NOTHING = 2, /* nothing, and no error value */
    TARN_OTHERS_COPY = 3,    /* what "tarn::copy" does with the type; no error value */
    TARN_OTHERS_WRONG = 4, /* something else than is asked for, such as the same on the array's bytes; no error value */
    TARN_OTHERS_END = 5    /* the process ends, by abort() */
};

typedef struct TarnKINDS {
    const char* operation; /* "tarn::copy" */
    const char* calls;     /* "": every call; else those that take fewer, which the row is about: "kind median" */
    const char* array;     /* whose type it is: the argument's name in tarn.h */
    int32_t argument;      /* the same by its place among the operation's own arguments, from 0 on; a list of arrays:
                              each of them */
    uint8_t forms[6];      /* by kind, LUMO_KIND_U8 to LUMO_KIND_F32: TARN_OF_...; 0: the kind is not served */
    uint8_t other_kind;    /* TARN_OTHERS_...: what becomes of a kind that is not served, */
    uint8_t other_count;   /* of a number of channels that its kind is not served with */
} TarnKINDS;

/* ROW(operation, calls, array, argument, u8, s16, s32, u32, f32, other kind, other number of channels), in the order of
 * the slots. Each array of a call is served by its own row; where their types must be equal, tarn.h says so.
 * "tarn::cvtorigin" takes the kinds 8 to 11 too, "tarn::convert-scale" more where it only converts;
 * "tarn::copy-transform" goes by element codes, and tarn_transform.h tells its changes of colours and layout. */
/* clang-format off */
#define TARN_KINDS(ROW)                                                                                              \
    ROW("tarn::avgarith-n", "", "dst", 0, 134, 134, 0, 0, 134, NOTHING, END)                                         \
    ROW("tarn::cvtvrange-v", "", "array", 0, 1234, 1234, 0, 0, 1234, NOTHING, NOTHING)                               \
    ROW("tarn::cvtvrange-n", "", "arrays", 1, 1234, 1234, 0, 0, 1234, NOTHING, NOTHING)                              \
    ROW("tarn::add-c", "", "dst", 0, 134, 134, 0, 0, 134, WRONG, COPY)                                               \
    ROW("tarn::sub-c", "", "dst", 0, 134, 134, 0, 0, 134, WRONG, COPY)                                               \
    ROW("tarn::mul-c", "", "dst", 0, 134, 134, 0, 0, 134, WRONG, COPY)                                               \
    ROW("tarn::add-n", "", "dst", 0, 134, 134, 0, 0, 134, WRONG, END)                                                \
    ROW("tarn::sub-n", "", "dst", 0, 134, 134, 0, 0, 134, WRONG, END)                                                \
    ROW("tarn::mul-n", "", "dst", 0, 134, 134, 0, 0, 134, WRONG, END)                                                \
    ROW("tarn::and-c", "", "dst", 0, 134, 134_ALL, 134_ALL, 0, 0, END, END)                                          \
    ROW("tarn::or-c", "", "dst", 0, 134, 134_ALL, 134_ALL, 0, 0, END, END)                                           \
    ROW("tarn::xor-c", "", "dst", 0, 134, 134_ALL, 134_ALL, 0, 0, END, END)                                          \
    ROW("tarn::and", "", "dst", 0, 134, 134, 134, 0, 0, END, END)                                                    \
    ROW("tarn::or", "", "dst", 0, 134, 134, 134, 0, 0, END, END)                                                     \
    ROW("tarn::xor", "", "dst", 0, 134, 134, 134, 0, 0, END, END)                                                    \
    ROW("tarn::not", "", "dst", 0, 134, 0, 0, 0, 0, END, END)                                                        \
    ROW("tarn::set", "", "dst", 0, 134, 134, 134, 0, 134, END, END)                                                  \
    ROW("tarn::minmax", "", "src", 2, 134, 134, 0, 0, 134, END, END)                                                 \
    ROW("tarn::count-in-range", "", "src", 1, 134, 0, 0, 0, 134, END, END)                                           \
    ROW("tarn::mean", "", "src", 1, 134, 134, 0, 0, 134, END, END)                                                   \
    ROW("tarn::threshold", "", "dst", 0, 1234, 1234, 0, 0, 1234, ERROR, ERROR)                                       \
    ROW("tarn::calcthresh-otsu", "", "src", 0, 1234, 1234, 0, 0, 1234, ERROR, ERROR)                                 \
    ROW("tarn::threshold-imm", "", "dst", 0, 1234, 1234, 0, 0, 1234, ERROR, ERROR)                                   \
    ROW("tarn::threshold-adapt", "", "dst", 0, 1234, 1234, 0, 0, 1234, ERROR, ERROR)                                 \
    ROW("tarn::cmp", "", "a", 1, 1234, 1234, 0, 0, 1234, NOTHING, NOTHING)                                           \
    ROW("tarn::cmp-c", "", "src", 1, 134, 134, 0, 0, 134, END, END)                                                  \
    ROW("tarn::cvtorigin", "", "array", 0, 1234_ALL, 1234_ALL, 1234_ALL, 1234_ALL, 1234_ALL, NOTHING, NOTHING)       \
    ROW("tarn::cvtorigin-n", "", "arrays", 1, 1234_ALL, 1234_ALL, 1234_ALL, 1234_ALL, 1234_ALL, NOTHING, NOTHING)    \
    ROW("tarn::scale-resize", "", "dst", 0, 1234, 1234, 0, 0, 1234, ERROR, ERROR)                                    \
    ROW("tarn::scale-resize", "", "src", 1, 1234, 1234, 1234, 0, 1234, ERROR, ERROR)                                 \
    ROW("tarn::reshape", "", "dst", 0, 1234_ALL, 1234_ALL, 1234_ALL, 0, 1234_ALL, WRONG, WRONG)                      \
    ROW("tarn::warp-affine", "", "dst", 0, 1234, 1234, 0, 0, 1234, ERROR, ERROR)                                     \
    ROW("tarn::warp-affine", "", "src", 1, 1234, 1234, 1234, 0, 1234, ERROR, ERROR)                                  \
    ROW("tarn::warp-affine-quad", "", "dst", 0, 1234, 1234, 0, 0, 1234, ERROR, ERROR)                                \
    ROW("tarn::warp-affine-quad", "", "src", 1, 1234, 1234, 1234, 0, 1234, ERROR, ERROR)                             \
    ROW("tarn::convert-scale", "", "dst", 0, 1234, 1234, 0, 0, 1234, ERROR, ERROR)                                   \
    ROW("tarn::convert-scale", "", "src", 1, 1234, 1234, 0, 0, 1234, ERROR, ERROR)                                   \
    ROW("tarn::copy", "", "dst", 0, 1234, 1234, 1234, 1234, 1234, NOTHING, NOTHING)                                  \
    ROW("tarn::copymkb", "", "dst", 0, 1234, 1234, 1234, 0, 1234, ERROR, ERROR)                                      \
    ROW("tarn::copy-transform", "", "src", 1, 1234_ALL, 1234_ALL, 1234_ALL, 1234_ALL, 1234_ALL, ERROR, ERROR)        \
    ROW("tarn::copy-transform", "another size or range", "src", 1, 1234_ALL, 1234_ALL, 0, 0, 1234_ALL, ERROR, ERROR) \
    ROW("tarn::filter", "", "dst", 0, 1234, 1234, 0, 0, 1234, ERROR, ERROR)                                          \
    ROW("tarn::filter", "median", "dst", 0, 1234, 1234, 0, 0, 0, ERROR, ERROR)                                       \
    ROW("tarn::initmorphstate", "", "region", 2, 123, 0, 0, 0, 123, NOTHING, NOTHING)                                \
    ROW("tarn::morphop-n", "", "dsts", 3, 123, 0, 0, 0, 123, ERROR, ERROR)                                           \
    ROW("tarn::contour::find", "", "src", 1, 1, 0, 0, 0, 0, ERROR, ERROR)                                            \
    ROW("tarn::multi-line-neuronet", "", "input", 1, 0, 0, 0, 0, 1, WRONG, WRONG)
/* The same as the members of a record. */
#define TARN_KINDS_ROW(operation, calls, array, argument, u8, s16, s32, u32, f32, kind, count)        \
    {operation, calls, array, argument,                                                              \
     {0, TARN_OF_##u8, TARN_OF_##s16, TARN_OF_##s32, TARN_OF_##u32, TARN_OF_##f32},                  \
     TARN_OTHERS_##kind, TARN_OTHERS_##count},
/* clang-format on */

/* All rows. */
static inline const TarnKINDS* TarnKINDStable(uint64_t* count) {
    static const TarnKINDS rows[] = {TARN_KINDS(TARN_KINDS_ROW)};
    *count = sizeof rows / sizeof rows[0];
    return rows;
}

/* The row of an operation's argument that is about every call; null when there is none. */
static inline const TarnKINDS* TarnKINDSfind(const char* operation, int32_t argument) {
    uint64_t count;
    const TarnKINDS* rows = TarnKINDStable(&count);
    for (uint64_t i = 0; i < count; ++i)
        if (rows[i].argument == argument && !*rows[i].calls && strcmp(rows[i].operation, operation) == 0)
            return &rows[i];
    return NULL;
}

/* 0 when the row's operation serves the type, else what becomes of a call: the greater TARN_OTHERS_... of two. */
static inline int TarnKINDSother(const TarnKINDS* row, LumoELEMTYPE type) {
    const uint32_t kind = type >> 8 & 15, channels = type >> 12 & 15;
    const uint32_t served = kind <= LUMO_KIND_F32 ? row->forms[kind] : 0;
    uint32_t forms = served, bits = channels == 4 ? TARN_OF_4 | TARN_OF_4_LESS : channels < 4 ? 1u << channels : 0;
    for (int i = 1; !served && i <= LUMO_KIND_F32; ++i) forms |= row->forms[i];
    const int of_kind = served ? 0 : row->other_kind, of_count = forms & bits ? 0 : row->other_count;
    return of_kind > of_count ? of_kind : of_count;
}

#ifdef __cplusplus
}
#endif
#endif

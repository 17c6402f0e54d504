/* libLumo: element types, 2-D array views, rectangles, affine warps and the log.
 *
 * Whole multi-dimensional arrays and their layouts are in lumo_array.h.
 */
#ifndef TARN_LUMO_H
#define TARN_LUMO_H

#include "quel.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Element types -------------------------------------------------------------------------------------------- */

/* Element type word: bits 0-7 element code, bits 8-11 element kind, bits 12-15 channel count. */
typedef uint32_t LumoELEMTYPE;

/* element kinds */
enum {
    LUMO_KIND_U8 = 1,
    LUMO_KIND_S16 = 2,
    LUMO_KIND_S32 = 3,
    LUMO_KIND_U32 = 4,
    LUMO_KIND_F32 = 5,
    LUMO_KIND_F64 = 6
};

/* element codes */
enum {
    LUMO_CODE_U8 = 0,
    LUMO_CODE_S8 = 1,
    LUMO_CODE_U16 = 2,
    LUMO_CODE_S16 = 3,
    LUMO_CODE_U32 = 4,
    LUMO_CODE_S32 = 5,
    LUMO_CODE_U64 = 6,
    LUMO_CODE_S64 = 7,
    LUMO_CODE_F32 = 8,
    LUMO_CODE_F64 = 9
};

/* The type words of one channel; | LUMO_CHANNELS(n) gives n channels. */
#define LUMO_U8 ((LumoELEMTYPE)(LUMO_KIND_U8 << 8 | LUMO_CODE_U8))
#define LUMO_S16 ((LumoELEMTYPE)(LUMO_KIND_S16 << 8 | LUMO_CODE_S16))
#define LUMO_S32 ((LumoELEMTYPE)(LUMO_KIND_S32 << 8 | LUMO_CODE_S32))
#define LUMO_U32 ((LumoELEMTYPE)(LUMO_KIND_U32 << 8 | LUMO_CODE_U32))
#define LUMO_F32 ((LumoELEMTYPE)(LUMO_KIND_F32 << 8 | LUMO_CODE_F32))
#define LUMO_F64 ((LumoELEMTYPE)(LUMO_KIND_F64 << 8 | LUMO_CODE_F64))
#define LUMO_CHANNELS(n) ((LumoELEMTYPE)(n) << 12)

/* Bytes of one element (not of a pixel), by kind, or by code when the word has no kind; 0 for an unknown type. */
KA_API uint64_t LumoELEMTYPEsizeof(LumoELEMTYPE type);
/* Alignment in bytes of one element; 1 for an unknown type. */
KA_API uint64_t LumoELEMTYPEalignof(LumoELEMTYPE type);
/* The type's name: "u8", "s16", ...; "?" for an unknown type. A static string. */
KA_API const char* LumoELEMTYPEshow(LumoELEMTYPE type);
/* The element kind that an element code (the word's low byte) stands for: u8 1, s16 2, s32 3, u32 4, f32 5; any other
 * code gives 0. */
KA_API uint32_t _LumoELEMTYPEto_old(LumoELEMTYPE type);

/* ---- Rectangles ----------------------------------------------------------------------------------------------- */

/* Pixels left <= x < right, top <= y < bottom. Edges saturate at the ends of the 32-bit range. */
typedef struct LumoRECT {
    int32_t left, top, right, bottom;
} LumoRECT;

typedef struct LumoSIZE {
    int32_t width, height;
} LumoSIZE;

KA_API int32_t LumoRECTwidth(const LumoRECT* rect);  /* right - left, saturated */
KA_API int32_t LumoRECTheight(const LumoRECT* rect); /* bottom - top, saturated */
KA_API LumoSIZE LumoRECTsize(const LumoRECT* rect);  /* both */
KA_API int LumoRECTnull(const LumoRECT* rect);       /* 1 when it holds no pixel */
KA_API int LumoRECTequ(const LumoRECT* a, const LumoRECT* b);
KA_API int LumoRECTprosub(const LumoRECT* a, const LumoRECT* b); /* 1 when a lies in b and is not b */
/* a becomes the part of a that lies in b; a rectangle without pixels at a's corner when there is none. */
KA_API void LumoRECTintersecI(LumoRECT* a, const LumoRECT* b);
KA_API void _LumoRECTextendI(LumoRECT* rect, int32_t dx,
                             int32_t dy); /* dx more on the left and right, dy above and below */
KA_API void _LumoRECTmovetoltI(LumoRECT* rect, int32_t left, int32_t top); /* same size, other corner */
KA_API void _LumoRECTmoveleftI(LumoRECT* rect, int32_t left);              /* same size, other left */
KA_API void _LumoRECTwidthsetlI(LumoRECT* rect, int32_t width);            /* sets the width, left stays */
KA_API void _LumoRECTheightsettI(LumoRECT* rect, int32_t height);          /* sets the height, top stays */
KA_API void _LumoRECTwidthcutiflI(LumoRECT* rect, int32_t width);   /* sets the width when it is larger, left stays */
KA_API void _LumoRECTheightcutiftI(LumoRECT* rect, int32_t height); /* sets the height when it is larger, top stays */
/* Extends by dx and dy on every side, then cuts to an image of width x height pixels at the origin. */
KA_API void _LumoExtendROI(LumoRECT* rect, int32_t dx, int32_t dy, int32_t width, int32_t height);

/* ---- 2-D array views ------------------------------------------------------------------------------------------ */

/* A 2-D array view. */
typedef struct LumoMAT {
    const void* cls;       /*  0: set by _LumoMATinit; a view filled in by hand may leave it null */
    LumoELEMTYPE elemtype; /*  8 */
    int32_t width;         /* 12: pixels in a row */
    int32_t height;        /* 16: rows */
    int32_t stride;        /* 20: bytes from a row to the next; negative for rows that go upwards */
    void* data;            /* 24: first element of the first row */
} LumoMAT;

/* What _LumoMATinit makes. */
typedef struct LumoMATPARM {
    LumoELEMTYPE elemtype; /* kind and channels; the code may be 0 */
    int32_t width;         /* pixels, 0 or more */
    int32_t height;        /* rows, 0 or more */
    uint32_t row_align;    /* rows start at multiples of so many bytes (a power of two); 0 for element alignment */
} LumoMATPARM;

/* Makes a matrix in a storage: fills mat, data aligned to 64 bytes, not cleared. Returns mat, or null with the code of
 * the failure in the low half of the error context's status word (out of memory, a stride beyond 32 bits, an unknown
 * type). */
KA_API LumoMAT* _LumoMATinit(LumoMAT* mat, const LumoMATPARM* parm, KaSMEMSTG* storage, QuelERR* err);
/* A view of the pixels of region, which must lie in mat; shares mat's data. Returns view. */
KA_API LumoMAT* _LumoMATof(LumoMAT* view, const LumoMAT* mat, const LumoRECT* region);
/* The whole of mat as a rectangle at the origin. */
KA_API void _LumoARRroi(LumoRECT* roi, const LumoMAT* mat);
/* Gives the data of a matrix made by _LumoMATinit back to its storage; data becomes null. */
KA_API void _LumoARRfree(LumoMAT* mat, KaSMEMSTG* storage);

/* ---- Affine warps --------------------------------------------------------------------------------------------- */

/* x' = a x + b y + tx, y' = c x + d y + ty. */
typedef struct LumoAWARP {
    double a, b, tx, c, d, ty;
} LumoAWARP;

KA_API void _LumoAWARPshift(LumoAWARP* warp, double dx, double dy);       /* warp becomes a translation */
KA_API int64_t _LumoAWARPback(LumoAWARP* inverse, const LumoAWARP* warp); /* 0, or -1 when warp is singular */
KA_API void _LumoAWARPaddI(LumoAWARP* warp, const LumoAWARP* then);       /* warp becomes: warp first, then `then` */
/* The smallest rectangle of whole pixels that holds the image of every pixel centre of rect under warp. */
KA_API void _LumoAWARPrect(LumoRECT* result, const LumoRECT* rect, const LumoAWARP* warp);

/* ---- Log ------------------------------------------------------------------------------------------------------ */

typedef struct LumoLOGGER {
    int32_t level; /* lines above this level are dropped: 1 fatal, 2 error, 3 warning, 4 information */
    int32_t pad;
    void (*write)(void* context, int32_t level, const char* line); /* null: standard error */
    void* context;
} LumoLOGGER;

extern KA_API LumoLOGGER* _G_Lumo_default_logger;

/* Writes one line (printf format, no newline at its end) to a logger. */
KA_API void LumoLOGprintf(LumoLOGGER* logger, int32_t level, const char* format, ...);

#ifdef __cplusplus
}
#endif
#endif

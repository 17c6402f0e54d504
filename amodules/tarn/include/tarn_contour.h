/* Contours: the records that "tarn::contour::find" exchanges with its caller, and its type.
 *
 *     static int64_t deliver(TarnCONTOURS* out, TarnCONTOUR* c, void** handle, QuelERR* err)
 *     {
 *         for (const TarnPOINT* p = c->points.head; p; p = p->next) ...   // the closed polygon, vertex by vertex
 *         for (int kind = 0; kind < 2; ++kind)
 *             for (TarnCONTOUR* in = c->children[kind].head; in; in = in->next) ...   // in->handle lies inside
 *         *handle = ...;
 *         return 0;
 *     }
 */
#ifndef TARN_TARN_CONTOUR_H
#define TARN_TARN_CONTOUR_H

#include "lumo.h"

#ifdef __cplusplus
extern "C" {
#endif

struct TarnCONTOUR;
struct TarnCONTOURS;

/* A vertex in pixel-corner coordinates: x from 0 to the image's width, y from 0 to its height. */
typedef struct TarnPOINT {
    int32_t x, y;
    struct TarnPOINT *next, *prev; /* null at the ends of the list */
} TarnPOINT;

typedef struct TarnPOINTLIST {
    TarnPOINT *head, *tail;
    uint64_t count;
} TarnPOINTLIST;

typedef struct TarnCONTOURLIST {
    struct TarnCONTOUR *head, *tail;
    uint64_t count;
} TarnCONTOURLIST;

/* flags of a contour */
enum {
    TARN_CONTOUR_BASE = 0x535,   /* set in every contour */
    TARN_CONTOUR_HOLE = 0x1000,  /* kind of closing: 1 the outline of a hole, 0 the outer outline of a region */
    TARN_CONTOUR_VALUE = 0x2000, /* value (0 or 1) of the region that the outline encloses */
    TARN_CONTOUR_CLOSED = 0x4000 /* closed and delivered */
};

/* One closed outline of a region: a rectilinear polygon on pixel corners, closed from its last vertex to its first,
 * without collinear vertices. The region lies to the right of the direction of travel, with y downwards: outer
 * outlines run clockwise as seen, holes counter-clockwise. A pixel at (x, y): (x, y + 1), (x, y), (x + 1, y),
 * (x + 1, y + 1). */
typedef struct TarnCONTOUR {
    char tag[8];    /* "clp" */
    uint32_t flags; /* TARN_CONTOUR_... */
    uint32_t reserved;
    struct TarnCONTOUR *next, *prev;    /* siblings */
    struct TarnCONTOURS* output;        /* who received it; null before that */
    void* handle;                       /* what the receiver made of it */
    struct TarnCONTOUR **left, **right; /* the run ends that carry the outline while it is open; the module's own */
    TarnPOINTLIST points;               /* valid while the contour is being delivered; afterwards only the count is */
    TarnCONTOURLIST children[2];        /* outlines directly inside, by their kind of closing */
} TarnCONTOUR;

/* Receives contours: the three functions, then whatever the owner keeps behind them (derive a larger record). */
typedef struct TarnCONTOURS {
    /* The call fails: what deliver made is to be undone. Once for every handle that has not reached notice_top, outer
     * contours before those inside. */
    void (*release)(struct TarnCONTOURS* output, void* handle);
    /* A contour is complete. Contours inside it have been delivered before, so its children's handles are known.
     * Stores the receiver's own handle (null when it stores none). Returns 0, or a negative status to end the call. */
    int64_t (*deliver)(struct TarnCONTOURS* output, TarnCONTOUR* contour, void** handle, QuelERR* err);
    /* At the end, for every contour that lies in no other. one: 1. Returns as deliver does. */
    int64_t (*notice_top)(struct TarnCONTOURS* output, int32_t one, void* handle, QuelERR* err);
} TarnCONTOURS;

/* flags of tarn::contour::find; neither of the first two: the outlines of both values */
enum {
    TARN_CONTOURS_OF_ONES = 1,        /* of the regions of nonzero pixels; wins over the next */
    TARN_CONTOURS_OF_ZEROS = 2,       /* of the regions of zero pixels */
    TARN_CONTOURS_DIAGONAL_ZEROS = 4, /* zero pixels that touch at a corner belong together */
    TARN_CONTOURS_DIAGONAL_ONES = 8   /* nonzero pixels that do */
};

/* "tarn::contour::find": the outlines of the regions of a picture, each once, nested as the regions are, in one pass.
 *   output  receives them: inner before outer, rows from top to bottom
 *   image   one channel of u8; a pixel is 1 where it is not zero
 *   flags   TARN_CONTOURS_...
 * The outline of a region that is the frame of the image itself is not delivered; what lies in the region becomes
 * topmost. With both values an outline that is a region's hole and the outer outline of the region in it is delivered
 * once, as the latter, and listed as the former (kind 1) among the children of the contour around it. Where both
 * values connect diagonally, regions may cross at a corner, and an outer outline is nested within outlines of its own
 * value only. Returns 0; a callback's negative status; -1 with an error value QUEL_E_TYPE for another type; -1 when
 * memory is out. After a failure every handle has been released that notice_top did not take.
 *
 * Memory of a call: 20.25 bytes for each column and each of the values asked for, taken at the start whatever is found,
 * so 41 MB for both values of a row of a million pixels and 87 GB for one of 2^31 - 1; then 136 bytes for every outline
 * and 24 for every vertex of those that are open. */
typedef int64_t (*TarnContourFind)(const QuelCALL*, QuelERR*, KaSMEMSTG*, TarnCONTOURS* output, const LumoMAT* image,
                                   uint32_t flags);

#ifdef __cplusplus
}
#endif
#endif

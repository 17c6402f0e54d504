// "tarn::contour::find": the outlines of the regions of a binary image, in one pass over its rows. Rows become bits,
// one row of 64-bit words after the other; the lines between them, with an empty row before the first and behind the
// last, are traced from left to right. An outline is held as a list of vertices with two ends that run down to the
// line, so memory is that of a few rows and of the vertices of what is open.
#include "ipp/contour.h"

#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

constexpr uint64_t kSmallestPiece = 4096, kLargestPiece = 4 << 20;

// Which values' outlines to find, as bits: 1 for zeros, 2 for ones.
uint32_t value_mask(uint32_t flags) {
    if (flags & TARN_CONTOURS_OF_ONES) return 2;  // deliberate: also when zeros are asked for
    return flags & TARN_CONTOURS_OF_ZEROS ? 1 : 3;
}

// The rows, ends and stretches of a tracer. False when memory is out.
bool open_tracer(Tracer& t, KaSMEMSTG* storage, int32_t width, int value, uint32_t flags, QuelERR* err) {
    const uint64_t words = (uint64_t(width) + 63) / 64, positions = uint64_t(width) + 1;
    t = {};
    t.diagonal = flags & (value ? TARN_CONTOURS_DIAGONAL_ONES : TARN_CONTOURS_DIAGONAL_ZEROS);
    t.value_bit = value ? TARN_CONTOUR_VALUE : 0;
    t.above = static_cast<uint64_t*>(KaSMEMSTGaalloc(storage, 2 * words * 8, 8, 1, err));
    t.ends = static_cast<TarnCONTOUR**>(KaSMEMSTGaalloc(storage, positions * sizeof *t.ends, 8, 1, err));
    t.stretches = static_cast<k::Stretch*>(KaSMEMSTGaalloc(storage, uint64_t(width) * sizeof *t.stretches, 8, 0, err));
    t.below = t.above + words;
    return t.above && t.ends && t.stretches;
}

// Fills the row below line y from the image, or clears it behind the last row, and finds the line's stretches.
void read_line(Tracer& t, const LumoMAT& image, int value, int32_t y) {
    const uint64_t words = (uint64_t(image.width) + 63) / 64;
    if (y < image.height)
        k::binarise_u8_c1(row_at(image, y), image.stride, t.below, int32_t(words * 8), k::Size{image.width, 1}, value);
    else
        for (uint64_t w = 0; w < words; ++w) t.below[w] = 0;
    k::find_stretches(t.above, t.below, image.width, int32_t(t.diagonal), t.stretches, &t.stretch_count);
}

void next_line(Tracer& t) {
    uint64_t* row = t.above;
    t.above = t.below;
    t.below = row;
}

// The pass itself: one tracer for one value, both for both.
int64_t find(Search& s, Tracer* tracers, uint32_t mask, const LumoMAT& image) {
    for (int32_t y = 0;; ++y) {
        int64_t stretches = 0;
        for (int v = 0; v < 2; ++v)
            if (mask >> v & 1) {
                read_line(tracers[v], image, v, y);
                stretches += tracers[v].stretch_count;
            }
        if (!reserve_line(s, stretches)) return -1;
        int64_t status = 0;
        if (mask == 3 && y > 0 && y < image.height)
            status = trace_line(s, tracers[1], tracers[0], y);
        else
            for (int v = 1; v >= 0 && status >= 0; --v)
                if (mask >> v & 1) status = trace_line(s, tracers[v], y);
        if (status < 0) return status;
        if (y == image.height) return notify_top(s);
        next_line(tracers[0]);
        next_line(tracers[1]);
    }
}

}  // namespace

int64_t op_contr_find(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, TarnCONTOURS* output,
                      const LumoMAT* image, uint32_t flags) {
    if (kind_of(image->elemtype) != LUMO_KIND_U8 || channels_of(image->elemtype) != 1)
        return refuse({call, err, storage}, QUEL_E_TYPE, QUEL_C_ARGUMENT, 6, "@arr(.elem-type, .nchannels)");
    if (image->width <= 0 || image->height <= 0) return 0;  // no pixel, no outline

    Search s = {};
    s.output = output;
    s.err = err;
    s.width = image->width;
    s.height = image->height;
    make_root(s);
    // In few large pieces, so that a caller's storage keeps them for the next picture.
    const uint64_t pixels = uint64_t(image->width) * uint64_t(image->height);
    const uint64_t piece = pixels < kSmallestPiece ? kSmallestPiece : pixels > kLargestPiece ? kLargestPiece : pixels;
    ScopedStorage scratch;  // the pools are destroyed with it
    KaSMEMSTG* pieces = scratch.open(storage, piece, err);
    if (!pieces) return -1;
    const uint32_t mask = value_mask(flags);
    Tracer tracers[2] = {};
    bool ready = KaPOOLopen(&s.contour_pool, pieces, kPoolBatch * sizeof(TarnCONTOUR), 8, err) &&
                 KaPOOLopen(&s.point_pool, pieces, kPoolBatch * 2 * sizeof(TarnPOINT), 8, err);
    for (int v = 0; v < 2; ++v)
        if (mask >> v & 1) ready = ready && open_tracer(tracers[v], pieces, image->width, v, flags, err);
    const int64_t status = ready ? find(s, tracers, mask, *image) : -1;
    if (status < 0) release_all(s);
    return status;
}

}  // namespace tarn::ipp

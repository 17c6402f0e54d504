// For kernel sources only: the rows under a mask folded column by column, at a cost that does not grow with their
// number. Rows are taken in blocks as high as the mask (M. van Herk, "A fast algorithm for local minimum and maximum
// filters", 1992; J. Gil and M. Werman, 1993): a window is the end of one block and the beginning of the next, and both
// are folded on from row to row. Nothing is ever taken back, so this serves minima and sums of floats alike, and the
// order of the fold is the same for every vector width.
//
// source(j): the beginning of row j. Fold: its vectors V of kStep elements E in the block, load(io, p, n) of kStep
// elements of type T or the first n, and join(a, b).
#pragma once

#include "kernels/plane/store.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The rows are too many for the processor to foresee that each goes on to the right: bytes fetched ahead.
constexpr int64_t kFoldAhead = 384;

// Rows one below the other.
struct StridedRows {
    const uint8_t* s;
    int64_t stride;
    const uint8_t* operator()(int64_t j) const { return s + j * stride; }
};

// block[j] := rows j to j + rows - 1 of a source, for j < count <= rows: kVectors vectors of them, `at` bytes from the
// rows' beginnings.
template <int kVectors, class Fold, class Io, class Source>
inline void fold_vectors(Io io, int64_t n, const Source& source, int64_t at, int64_t rows, int64_t count,
                         typename Fold::E* block, int64_t pitch) {
    using V = typename Fold::V;
    constexpr int64_t kStep = Fold::kStep;
    const auto row = [=](const uint8_t* s, int v) {
        return Fold::load(io, s + v * kStep * int64_t(sizeof(typename Fold::T)), n);
    };
    const uint8_t* s = source(rows - 1) + at;
    V folded[kVectors];
    for (int v = 0; v < kVectors; ++v) folded[v] = row(s, v);
    for (int64_t j = rows - 1;;) {
        if (j < count)
            for (int v = 0; v < kVectors; ++v) store(block + j * pitch + v * kStep, folded[v]);
        if (--j < 0) break;
        s = source(j) + at;
        for (int v = 0; v < kVectors; ++v) folded[v] = Fold::join(row(s, v), folded[v]);
    }
    for (int64_t j = 1; j < count; ++j) {
        s = source(rows + j - 1) + at;
        for (int v = 0; v < kVectors; ++v) {
            typename Fold::E* end = block + j * pitch + v * kStep;
            folded[v] = j == 1 ? row(s, v) : Fold::join(folded[v], row(s, v));
            store(end, Fold::join(load<V>(end), folded[v]));
            __builtin_prefetch(s + v * kVector + kFoldAhead);
        }
    }
}

// The same for n elements of each row.
template <class Fold, class Source>
void fold_columns(const Source& source, int64_t n, int64_t rows, int64_t count, typename Fold::E* block,
                  int64_t pitch) {
    constexpr int64_t kStep = Fold::kStep, kGroup = 4 * kStep;
    constexpr int64_t kElement = sizeof(typename Fold::T);
    // The last vectors overlap those before, from the sources on.
    if (n < kStep) {
        fold_vectors<1, Fold>(Part{n * kElement}, n, source, 0, rows, count, block, pitch);
    } else if (n < kGroup) {
        for (int64_t i = 0; i < n; i += kStep) {
            const int64_t at = min(i, n - kStep);
            fold_vectors<1, Fold>(Whole{}, kStep, source, at * kElement, rows, count, block + at, pitch);
        }
    } else {
        for (int64_t i = 0; i < n; i += kGroup) {
            const int64_t at = min(i, n - kGroup);
            fold_vectors<4, Fold>(Whole{}, kStep, source, at * kElement, rows, count, block + at, pitch);
        }
    }
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

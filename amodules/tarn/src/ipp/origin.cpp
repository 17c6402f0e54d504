// Moves of whole rows and bytes, without arithmetic: the origin of rows, and reshaping. Elements count only by their
// size.
#include "ipp/origin.h"

#include <string.h>

#include "ipp/elementwise.h"
#include "ipp/operations.h"
#include "kernels/mirror/mirror.h"

namespace k = tarn::k;

namespace {

// Rows: elements of 1, 2, 4, 8 bytes. Columns: channel forms; all channels move in every one of them.
#define CELLS(type)                                                                                     \
    {                                                                                                   \
        &k::mirror_##type##_c1, &k::mirror_##type##_c4, &k::mirror_##type##_c3, &k::mirror_##type##_c4, \
            &k::mirror_##type##_c4                                                                      \
    }
constexpr const k::Kernel<k::Mirror>* kMirror[4][5] = {CELLS(u8), CELLS(s16), CELLS(s32), CELLS(s64)};
#undef CELLS

// The row of kMirror for an element kind, or -1. Kinds 8 to 11 are taken for the element codes that have no kind among
// the first five: s8, u16, u64, s64. Kinds 6 and 7 are not mirrored.
int mirror_row(int kind) {
    constexpr int kRows[16] = {-1, 0, 1, 2, 2, 2, -1, -1, 0, 1, 3, 3, -1, -1, -1, -1};
    return kRows[kind & 15];
}

void reverse_rows(const LumoMAT& array) {
    const int row = mirror_row(kind_of(array.elemtype)), form = form_of(array.elemtype);
    if (row < 0 || form < 1) return;  // deliberate: an unsupported type stays as it is and is no error
    (*kMirror[row][form - 1])(array.data, array.stride, kernel_size(array, array.elemtype), 0);
}

template <class T>
constexpr T min(T a, T b) {
    return b < a ? b : a;
}

// Where a stream of bytes stands in the rows of an array.
struct RowStream {
    uint8_t* row;       // start of the current row
    int64_t stride;     // bytes from row to row
    int64_t row_bytes;  // of the stream in each row, above 0
    int64_t at = 0;     // bytes of the current row that are done

    int64_t left() const { return row_bytes - at; }
    void advance(int64_t n) {
        at += n;
        if (at == row_bytes) {
            row += stride;
            at = 0;
        }
    }
};

// Moves bytes from one stream to another, in the longest runs that both have.
void pour(RowStream to, RowStream from, int64_t bytes) {
    while (bytes > 0) {
        const int64_t n = min(bytes, min(to.left(), from.left()));
        memmove(to.row + to.at, from.row + from.at, size_t(n));
        to.advance(n);
        from.advance(n);
        bytes -= n;
    }
}

}  // namespace

// Four channels and three of four are carried whole alike.
#define CELLS(type) \
    { &k::copy_##type##_c1, &k::copy_##type##_c4, &k::copy_##type##_c3, &k::copy_##type##_c4, &k::copy_##type##_c4 }
k::Status packed_copy_plane(int kind, int form, const void* src, int32_t src_stride, void* dst, int32_t dst_stride,
                            k::Size size) {
    constexpr const k::Kernel<k::Unary>* kCopies[3][5] = {CELLS(u8), CELLS(s16), CELLS(s32)};
    constexpr int kRows[16] = {-1, 0, 1, 2, 2, 2, -1, 0, -1, -1, -1, -1, -1, -1, -1, -1};  // kind 7 is taken for bytes
    const int row = kRows[kind & 15];
    if (row < 0 || form < 1 || form > 5) return k::kNoKernel;
    if (form == 2) size.width /= 2;
    return (*kCopies[row][form - 1])(src, src_stride, dst, dst_stride, size);
}
#undef CELLS

// "tarn::cvtorigin": reverses the rows of an array in place when the two origin codes differ.
//   array     kinds 1 to 5 and 8 to 11; any other stays as it is; two channels go in pairs of pixels, an odd last
//             column stays
//   from, to  origin codes, compared with each other only
// Returns 0.
int64_t op_cvtorigin(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* array, uint32_t from, uint32_t to) {
    if (from != to) reverse_rows(*array);
    return 0;
}

// "tarn::cvtorigin-n": the same for n arrays. Returns the number of arrays visited: n, or 0 when the codes are equal.
int64_t op_cvtorigin_n(const QuelCALL*, QuelERR*, KaSMEMSTG*, uint64_t n, LumoMAT* const* arrays, uint32_t from,
                       uint32_t to) {
    if (from == to) return 0;
    for (uint64_t i = 0; i < n; ++i) reverse_rows(*arrays[i]);
    return int64_t(uint32_t(n));
}

// "tarn::reshape": copies the pixels of src, as one stream of bytes in the order of its rows, into dst of another
// shape.
//   dst           its type gives the size of a pixel; as many pixels as src
//   src           where dst has one row or rows as long as src's, only types with a copy kernel are copied
//   order_method  order of the elements; 4 is refused, any other is the order of the rows
// When the two differ in pixels, what the smaller of them holds is copied. Returns 0, or -1 after an error value.
int64_t op_reshape(const QuelCALL* call, QuelERR* err, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                   uint32_t order_method) {
    if (order_method == 4) return refuse(call, err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, 6, "@ArrOrderMethod");
    const int kind = kind_of(dst->elemtype), form = form_of(dst->elemtype);
    const int64_t pixel = int64_t(element_bytes(kind)) * size_channels(dst->elemtype);
    const int64_t dst_row = dst->width * pixel, src_row = src->width * pixel;
    const int32_t width = min(src->width, dst->width), height = min(src->height, dst->height);
    if (dst->height == 1) {
        // A kind without a size has rows of no bytes, which are laid over each other, deliberately.
        const int32_t rows = src_row > 0 ? int32_t(min(dst_row / src_row, int64_t(src->height))) : src->height;
        packed_copy_plane(kind, form, src->data, src->stride, dst->data, int32_t(src_row), {width, rows});
        return 0;
    }
    if (dst_row == src_row) {
        copy_plane(kind, form, src->data, src->stride, dst->data, dst->stride, {width, height});
        return 0;
    }
    if (dst_row <= 0 || src_row <= 0 || dst->height <= 0 || src->height <= 0) return 0;
    const int64_t bytes = min(dst->height * dst_row, src->height * src_row);
    if (dst->stride == dst_row && src->stride == src_row)
        memmove(dst->data, src->data, size_t(bytes));
    else
        pour({static_cast<uint8_t*>(dst->data), dst->stride, dst_row},
             {static_cast<uint8_t*>(src->data), src->stride, src_row}, bytes);
    return 0;
}

// Copies of planes, and of all pixels into another shape. Elements count only by their size.
#include "ipp/copy.h"

#include "ipp/operations.h"
#include "kernels/copy/copy.h"

namespace tarn::ipp {
namespace {

k::Status copy(const TypeMap& map, const LumoMAT& dst, const LumoMAT& src, k::Size size) {
    const auto* kernel = map.find(k::copy_kernels, dst.elemtype);
    if (!kernel) return k::kNoKernel;
    return (*kernel)(src.data, src.stride, dst.data, dst.stride, kernel_size(size, dst.elemtype));
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

// Moves bytes from one stream to another, in the longest runs that both have and a kernel takes.
void move_bytes(RowStream to, RowStream from, int64_t bytes) {
    while (bytes > 0) {
        const int64_t n = min(min(bytes, int64_t(1) << 30), min(to.left(), from.left()));
        k::copy_u8_c1(from.row + from.at, 0, to.row + to.at, 0, {int32_t(n), 1});
        to.advance(n);
        from.advance(n);
        bytes -= n;
    }
}

}  // namespace

k::Status copy_plane(const LumoMAT& dst, const LumoMAT& src, k::Size size) { return copy(kCopies, dst, src, size); }
k::Status packed_copy_plane(const LumoMAT& dst, const LumoMAT& src, k::Size size) {
    return copy(kPacked, dst, src, size);
}

int64_t op_copy(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src) {
    copy_plane(*dst, *src, size_of(*src));
    return 0;
}

int64_t op_reshape(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                   uint32_t order_method) {
    if (order_method == 4) return refuse({call, err, storage}, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, 6, "@ArrOrderMethod");
    const int64_t dst_row = dst->width * pixel_bytes(dst->elemtype), src_row = src->width * pixel_bytes(dst->elemtype);
    const int32_t width = min(src->width, dst->width), height = min(src->height, dst->height);
    if (dst->height == 1) {
        // A kind without a size has rows of no bytes, which are laid over each other, deliberately.
        const int32_t rows = src_row > 0 ? int32_t(min(dst_row / src_row, int64_t(src->height))) : src->height;
        LumoMAT in_rows = *dst;
        in_rows.stride = int32_t(src_row);
        packed_copy_plane(in_rows, *src, {width, rows});
        return 0;
    }
    if (dst_row == src_row) {
        copy_plane(*dst, *src, {width, height});
        return 0;
    }
    if (dst_row <= 0 || src_row <= 0 || dst->height <= 0 || src->height <= 0) return 0;
    const int64_t bytes = min(dst->height * dst_row, src->height * src_row);
    if (dst->stride == dst_row && src->stride == src_row)
        move_bytes({row_at(*dst, 0), 0, bytes}, {row_at(*src, 0), 0, bytes}, bytes);
    else
        move_bytes({row_at(*dst, 0), dst->stride, dst_row}, {row_at(*src, 0), src->stride, src_row}, bytes);
    return 0;
}

}  // namespace tarn::ipp

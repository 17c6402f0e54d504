// Arithmetic with constants, and over lists of planes. What the lists promise is a sequence: the first source copied
// into the destination, then each further source taken into it. The kernels fold whole lists strip by strip instead,
// which gives the same bits wherever no source but the first shares memory with the destination; where one does, the
// sequence is run as promised.
#include "kernels/arith/arith.h"

#include "ipp/constants.h"
#include "ipp/copy.h"
#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

// ---- Constants ----------------------------------------------------------------------------------------------------

int64_t with_constants(const k::KernelSet<k::WithConstantInPlace>& kernels, LumoMAT* dst, const LumoMAT* src,
                       const float* constants) {
    if (src && src->data != dst->data) copy_plane(*dst, *src, size_of(*dst));
    if (!constants) return 0;
    const LumoELEMTYPE type = dst->elemtype;
    const auto* kernel = kAnyKind.find(kernels, type);
    if (!kernel) return 1;
    const FloatState float_state;
    const Constants c = floored(kAnyKind.type(type), k::used(kAnyKind.form(type)), constants);
    (*kernel)(c.bytes, dst->data, dst->stride, size_of(*dst));
    return 1;
}

// ---- Lists --------------------------------------------------------------------------------------------------------

// The caller's list as kernels read it. A null record is a plane without pixels.
k::Source source_at(const void* list, int32_t i) {
    const LumoMAT* mat = static_cast<const LumoMAT* const*>(list)[i];
    return mat ? k::Source{mat->data, mat->stride} : k::Source{nullptr, 0};
}

// Two planes, or the first of them alone.
k::Source pair_at(const void* pair, int32_t i) { return static_cast<const k::Source*>(pair)[i]; }

bool same_plane(const LumoMAT& a, const k::Source& b) { return a.data == b.data && a.stride == b.stride; }

// Whether a source of dst's type and size shares bytes with dst.
bool overlap(const LumoMAT& dst, const k::Source& source) {
    const int64_t row = int64_t(dst.width) * channels_of(dst.elemtype) * element_bytes(kind_of(dst.elemtype));
    const auto first = [&](const void* data, int32_t stride) {
        return reinterpret_cast<intptr_t>(data) + (stride < 0 ? int64_t(stride) * (dst.height - 1) : 0);
    };
    const auto bytes = [&](int32_t stride) {
        return (stride < 0 ? -int64_t(stride) : stride) * (dst.height - 1) + row;
    };
    const int64_t shift = first(source.data, source.stride) - first(dst.data, dst.stride);
    if (shift >= bytes(dst.stride) || -shift >= bytes(source.stride)) return false;
    const int64_t pitch = dst.stride < 0 ? -int64_t(dst.stride) : dst.stride;
    if (pitch < row || (source.stride != dst.stride && source.stride != -int64_t(dst.stride))) return true;
    // Columns of one image: the rows interleave but may not meet.
    const int64_t column = (shift % pitch + pitch) % pitch;
    return column < row || column + row > pitch;
}

// Whether folding the list strip by strip gives what the sequence gives.
bool foldable(const LumoMAT& dst, int32_t count, const LumoMAT* const* sources) {
    if (dst.width <= 0 || dst.height <= 0) return false;
    for (int32_t i = 0; i < count; ++i) {
        const k::Source s = source_at(sources, i);
        if (!s.data || (overlap(dst, s) && !(i == 0 && same_plane(dst, s)))) return false;
    }
    return true;
}

// The first source into dst, unless it is dst's own record.
void copy_first(LumoMAT* dst, const LumoMAT* first) {
    if (first && first != dst) copy_plane(*dst, *first, size_of(*dst));
}

// The sequence, source by source.
void fold_in_sequence(const k::Kernel<k::Fold>& kernel, LumoMAT* dst, int32_t count, const LumoMAT* const* sources) {
    copy_first(dst, sources[0]);
    for (int32_t i = 1; i < count; ++i) {
        const k::Source pair[2] = {{dst->data, dst->stride}, source_at(sources, i)};
        const k::Sources both{pair_at, pair, 2};
        kernel(&both, dst->data, dst->stride, size_of(*dst));
    }
}

int64_t fold(const k::KernelSet<k::Fold>& kernels, const QuelCALL* call, LumoMAT* dst, int32_t count,
             const LumoMAT* const* sources) {
    if (count <= 0 || !sources) return count;
    if (count == 1) {
        copy_first(dst, sources[0]);
        return count;
    }
    const auto& kernel = kernel_for(call, kAnyKind, kernels, dst->elemtype);
    const bool typed = kTyped.find(kernels, dst->elemtype);  // else the copy and the kernels differ in a row's bytes
    const FloatState float_state;
    const k::Sources list{source_at, sources, count};
    if (typed && foldable(*dst, count, sources))
        kernel(&list, dst->data, dst->stride, size_of(*dst));
    else
        fold_in_sequence(kernel, dst, count, sources);
    return count;
}

// 8 bits. The kernel may write a strip before it has read all of a source that lies across dst, so such a call goes
// through a plane of its own.
k::Status average_u8(Context& context, const k::Kernel<k::Average>& kernel, LumoMAT* dst, int32_t count,
                     const LumoMAT* const* sources) {
    bool across = false;
    for (int32_t i = 0; i < count; ++i) {
        const k::Source s = source_at(sources, i);
        across |= s.data && dst->width > 0 && dst->height > 0 && overlap(*dst, s) && !same_plane(*dst, s);
    }
    Temporary scratch, plane;
    if (!scratch.make(context, LUMO_U8 | LUMO_CHANNELS(1), {k::kAverageScratch, 1})) return kNoTemporary;
    if (across && !plane.make(context, dst->elemtype, size_of(*dst))) return kNoTemporary;
    const LumoMAT& to = across ? plane.mat : *dst;
    const k::Sources list{source_at, sources, count};
    const k::Status status = kernel(&list, count, to.data, to.stride, size_of(*dst), scratch.mat.data);
    if (across && status == k::kOk) copy_plane(*dst, to, size_of(*dst));
    return k::kOk;
}

}  // namespace

int64_t op_add_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants) {
    return with_constants(k::add_c_kernels, dst, src, constants);
}
int64_t op_sub_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants) {
    return with_constants(k::sub_c_kernels, dst, src, constants);
}
int64_t op_mul_c(const QuelCALL*, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src, const float* constants) {
    return with_constants(k::mul_c_kernels, dst, src, constants);
}

int64_t op_add_n(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count,
                 const LumoMAT* const* sources) {
    return fold(k::add_n_kernels, call, dst, count, sources);
}
int64_t op_sub_n(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count,
                 const LumoMAT* const* sources) {
    return fold(k::sub_n_kernels, call, dst, count, sources);
}
int64_t op_mul_n(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count,
                 const LumoMAT* const* sources) {
    return fold(k::mul_n_kernels, call, dst, count, sources);
}

int64_t op_avgarith_n(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, int32_t count,
                      const LumoMAT* const* sources) {
    if (count <= 0 || !sources) return count;
    if (count == 1) {
        copy_first(dst, sources[0]);
        return count;
    }
    const auto& add = kernel_for(call, kAnyKind, k::add_n_kernels, dst->elemtype);
    const auto* average = kTyped.find(k::avg_n_kernels, dst->elemtype);
    if (!average) return count;
    const FloatState float_state;
    if (kTyped.type(dst->elemtype) == u8) {
        Context context(call, err, storage);
        const k::Status status = average_u8(context, *average, dst, count, sources);
        return status == k::kOk ? count : report(context, status);
    }
    k::Sources list{source_at, sources, count};
    const k::Source sum{dst->data, dst->stride};
    if (!foldable(*dst, count, sources)) {
        fold_in_sequence(add, dst, count, sources);
        list = {pair_at, &sum, 1};
    }
    (*average)(&list, count, dst->data, dst->stride, size_of(*dst), nullptr);
    return count;
}

}  // namespace tarn::ipp

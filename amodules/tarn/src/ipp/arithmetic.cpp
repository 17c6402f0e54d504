// Arithmetic over lists of planes. What the operations promise is a sequence: the first source copied into the
// destination, then each further source taken into it. The kernels fold whole lists strip by strip instead, which gives
// the same bits wherever no source but the first shares memory with the destination; where one does, the sequence is
// run as promised.
#include "ipp/elementwise.h"
#include "ipp/operations.h"
#include "kernels/arith/arith.h"

namespace k = tarn::k;

namespace {

#define FORMS(op, type) \
    { &k::op##_##type##_c1, nullptr, &k::op##_##type##_c3, nullptr, &k::op##_##type##_c3x }
// Whatever is neither s16 nor f32 is processed as bytes, deliberately.
#define FOLD(op)                                                                        \
    {                                                                                   \
        { FORMS(op, u8), FORMS(op, s16), FORMS(op, u8), FORMS(op, u8), FORMS(op, f32) } \
    }
constexpr KernelTable<k::Fold> kAdd = FOLD(add_n), kSub = FOLD(sub_n), kMul = FOLD(mul_n);
#undef FOLD
constexpr KernelTable<k::Average> kAverage = {{FORMS(avg_n, u8), FORMS(avg_n, s16), {}, {}, FORMS(avg_n, f32)}};
#undef FORMS

// The caller's list as kernels read it. A null record is a plane without pixels.
k::Source source_at(const void* list, int32_t i) {
    const LumoMAT* mat = static_cast<const LumoMAT* const*>(list)[i];
    return mat ? k::Source{mat->data, mat->stride} : k::Source{nullptr, 0};
}

// Two planes, or the first of them alone.
k::Source pair_at(const void* pair, int32_t i) { return static_cast<const k::Source*>(pair)[i]; }

k::Size size_of(const LumoMAT& mat) { return {mat.width, mat.height}; }

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
    if (!first || first == dst) return;
    copy_plane(kind_of(dst->elemtype), form_of(dst->elemtype), first->data, first->stride, dst->data, dst->stride,
               size_of(*dst));
}

// The sequence, source by source.
void fold_in_sequence(const k::Kernel<k::Fold>& kernel, LumoMAT* dst, int32_t count, const LumoMAT* const* sources) {
    for (int32_t i = 1; i < count; ++i) {
        const k::Source pair[2] = {{dst->data, dst->stride}, source_at(sources, i)};
        const k::Sources both{pair_at, pair, 2};
        kernel(&both, dst->data, dst->stride, size_of(*dst));
    }
}

int64_t fold(const KernelTable<k::Fold>& table, const QuelCALL* call, LumoMAT* dst, int32_t count,
             const LumoMAT* const* sources) {
    if (count <= 0 || !sources) return count;
    const int kind = kind_of(dst->elemtype);
    const auto* kernel = table.find(kind == 2 || kind == 5 ? kind : 1, form_of(dst->elemtype));
    const bool typed = kind == 1 || kind == 2 || kind == 5;  // else the copy and the kernels differ in a row's bytes
    if (count > 1 && kernel && typed && foldable(*dst, count, sources)) {
        const FloatState state;
        const k::Sources list{source_at, sources, count};
        (*kernel)(&list, dst->data, dst->stride, size_of(*dst));
        return count;
    }
    copy_first(dst, sources[0]);
    if (count == 1) return count;
    if (!kernel) unsupported(call, dst->elemtype);
    const FloatState state;
    fold_in_sequence(*kernel, dst, count, sources);
    return count;
}

// A plane of dst's type and size in scratch memory.
struct Scratch {
    Storage storage;
    void* block = nullptr;
    explicit Scratch(KaSMEMSTG* given) : storage(given) {}
    ~Scratch() {
        if (block && storage.callers()) KaSMEMSTGfree(storage.caller, block);
    }
    void* get(int64_t bytes, QuelERR* err) {
        KaSMEMSTG* from = storage.get(err);
        block = from ? KaSMEMSTGaalloc(from, uint64_t(bytes), 16, 0, err) : nullptr;
        return block;
    }
};

// 8 bits. The kernel may write a strip before it has read all of a source that lies across dst, so such a call goes
// through a plane of its own.
int64_t average_u8(const k::Kernel<k::Average>& kernel, const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage,
                   LumoMAT* dst, int32_t count, const LumoMAT* const* sources) {
    bool across = false;
    for (int32_t i = 0; i < count; ++i) {
        const k::Source s = source_at(sources, i);
        across |= s.data && dst->width > 0 && dst->height > 0 && overlap(*dst, s) && !same_plane(*dst, s);
    }
    const int32_t stride = dst->width * channels_of(dst->elemtype);
    Scratch scratch(storage);
    auto* memory =
        static_cast<uint8_t*>(scratch.get(k::kAverageScratch + (across ? int64_t(stride) * dst->height : 0), err));
    if (!memory) return mark_failed(call, err);
    const k::Sources list{source_at, sources, count};
    uint8_t* plane = memory + k::kAverageScratch;
    const k::Status status =
        kernel(&list, count, across ? plane : dst->data, across ? stride : dst->stride, size_of(*dst), memory);
    if (across && status == k::kOk)
        copy_plane(1, form_of(dst->elemtype), plane, stride, dst->data, dst->stride, size_of(*dst));
    return count;
}

}  // namespace

// "tarn::add-n", "tarn::sub-n", "tarn::mul-n": dst := ((source 0 op source 1) op source 2) ..., saturated after every
// step.
//   dst      its type word chooses the kernel, its size is every source's; the fourth channel of four stays as it is
//   count    length of the list; 0 and less: nothing is done; 1: dst := source 0
//   sources  records (null: nothing is done); one may be dst, or view its memory
// Returns count; an unsupported channel count ends the process when count is above 1.
int64_t op_add_n(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count,
                 const LumoMAT* const* sources) {
    return fold(kAdd, call, dst, count, sources);
}
int64_t op_sub_n(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count,
                 const LumoMAT* const* sources) {
    return fold(kSub, call, dst, count, sources);
}
int64_t op_mul_n(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, int32_t count,
                 const LumoMAT* const* sources) {
    return fold(kMul, call, dst, count, sources);
}

// "tarn::avgarith-n": dst := the mean of the sources, nearest, ties to even. Arguments as for "add-n". 16 bits and
// floats divide the sum that "add-n" makes (16 bits by the low 16 bits of count); kinds without a kernel are left
// alone. Returns count, or -1 with the error context's status marked when scratch memory can't be had.
int64_t op_avgarith_n(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, int32_t count,
                      const LumoMAT* const* sources) {
    if (count <= 0 || !sources) return count;
    const LumoELEMTYPE type = dst->elemtype;
    if (count == 1) {
        copy_first(dst, sources[0]);
        return count;
    }
    if (!kAdd.find(1, form_of(type))) unsupported(call, type);
    const auto* kernel = kAverage.find(type);
    if (!kernel) return count;
    const FloatState state;
    if (kind_of(type) == 1) return average_u8(*kernel, call, err, storage, dst, count, sources);
    k::Sources list{source_at, sources, count};
    const k::Source sum{dst->data, dst->stride};
    if (!foldable(*dst, count, sources)) {
        copy_first(dst, sources[0]);
        fold_in_sequence(*kAdd.find(type), dst, count, sources);
        list = {pair_at, &sum, 1};
    }
    (*kernel)(&list, count, dst->data, dst->stride, size_of(*dst), nullptr);
    return count;
}

// "tarn::copy-transform": a batch of pictures into another of any other shape. What the two arrays differ in says which
// steps lead from one to the other. A picture goes through them in bands of rows that stay in the cache between the
// steps, so memory is read and written once.
#include "ipp/transform.h"

#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

static_assert(sizeof(TarnRANGE) == 12);

// Statuses that are error values of their own.
constexpr k::Status kColourUnknown = -1001, kColourChannels = -1002;

int64_t report_step(const Context& context, k::Status status) {
    switch (status) {
        case k::kOk:
            return 0;
        case kColourUnknown:
            return refuse_text(context, QUEL_E_OPTION, QUEL_C_ARGUMENT, "source/destination colorspace is unknown");
        case kColourChannels:
            return refuse_text(context, QUEL_E_OPTION, QUEL_C_ARGUMENT, "colorspace/nchannels mismatch");
        default:
            return refuse_text(context, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, "got IPP error code %d", status);
    }
}

// ---- Checks ---------------------------------------------------------------------------------------------------------

bool is_served(const LumoARRLO& layout) {
    return LumoARRLOsub(&layout, &_G_Lumo_NHWC_arrlo) || LumoARRLOsub(&layout, &_G_Lumo_NCHW_arrlo);
}

int64_t refuse_stride(const Context& context, int64_t stride, char dim, int64_t wanted) {
    return refuse_text(context, QUEL_E_TYPE, QUEL_C_UNSUPPORTED,
                       "%lld stride in %c-dim does not support (should be %lld)", (long long)(stride), dim,
                       (long long)(wanted));
}

// Rows have no gaps, nor have pixels of several channels.
int64_t check_strides(const Context& context, const LumoARRAY& a) {
    const int64_t element = int64_t(LumoELEMTYPEsizeof(a.elemtype));
    int64_t pixel = element;
    if (LumoARRLOsub(&a.layout, &_G_Lumo_NHWC_arrlo)) {
        if (channels_of(a) > 1 && plane_stride_of(a) != element)
            return refuse_stride(context, plane_stride_of(a), 'C', element);
        pixel = element * channels_of(a);
    }
    const int64_t stride = LumoARRPARMSstridedim(&a, LUMO_DIM_W);
    return width_of(a) < 2 || stride == pixel ? 0 : refuse_stride(context, stride, 'W', pixel);
}

int64_t check_arrays(const Context& context, const LumoARRAY& dst, const LumoARRAY& src) {
    const int32_t from = LumoARRPARMSsizedim(&src, LUMO_DIM_N), to = LumoARRPARMSsizedim(&dst, LUMO_DIM_N);
    if (from != to)
        return refuse_text(context, QUEL_E_OPTION, QUEL_C_ARGUMENT, "%d/%d: source/destination batch size mismatch",
                           from, to);
    if (!is_served(dst.layout))
        return refuse_text(context, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, "%s: destination layout does not support",
                           LumoARRLOshow(&dst.layout));
    if (!is_served(src.layout))
        return refuse_text(context, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, "%s: source layout does not support",
                           LumoARRLOshow(&src.layout));
    const int64_t result = check_strides(context, dst);
    return result ? result : check_strides(context, src);
}

// ---- Steps ----------------------------------------------------------------------------------------------------------

// A step, and what it makes: without data, null when it is beyond any memory. One that is refused ends the picture.
struct Step {
    StepFn* run;
    LumoARRAY makes;
    k::Status refused;
};

// The steps from one picture to another.
struct Plan {
    Plan(const LumoARRAY& dst, const LumoARRAY& src, bool mapped, uint32_t interpolation);
    void add(StepFn* run, k::Status refused = k::kOk);
    // The number of a step; -1 where there is none such.
    int find(StepFn* run) const;
    // The same without a step.
    Plan without(int step) const;

    Step steps[6];
    int count = 0;

private:
    // What the steps so far make.
    LumoELEMTYPE type;
    int32_t width, height, channels;
    uint32_t cls;
};

void Plan::add(StepFn* run, k::Status refused) {
    Step& step = steps[count++];
    step.run = run;
    step.refused = refused;
    const int32_t sizes[] = {height, width, channels};
    if (LumoARRPARMS(&step.makes, 3, sizes, _G_Lumo_strides_corder, &_G_Lumo_HWC_arrlo, type, cls))
        LumoARRPARMSsqueezeI(&step.makes);
}

int Plan::find(StepFn* run) const {
    for (int i = 0; i < count; ++i)
        if (steps[i].run == run) return i;
    return -1;
}

Plan Plan::without(int step) const {
    Plan plan = *this;
    for (int i = step + 1; i < count; ++i) plan.steps[i - 1] = steps[i];
    --plan.count;
    return plan;
}

k::Status check_colours(const LumoARRAY& dst, const LumoARRAY& src) {
    if (src.cls == LUMO_CLASS_UNKNOWN || dst.cls == LUMO_CLASS_UNKNOWN) return kColourUnknown;
    const bool match =
        channels_of(src) == LumoARRCLSnchannels(src.cls) && channels_of(dst) == LumoARRCLSnchannels(dst.cls);
    return match ? k::kOk : kColourChannels;
}

// Kinds that can be resampled.
bool resamples(int kind) { return kind == LUMO_KIND_U8 || kind == LUMO_KIND_S16 || kind == LUMO_KIND_F32; }

Plan::Plan(const LumoARRAY& dst, const LumoARRAY& src, bool mapped, uint32_t interpolation)
    : type(src.elemtype), width(width_of(src)), height(height_of(src)), channels(channels_of(src)), cls(src.cls) {
    const bool converted = ((src.elemtype ^ dst.elemtype) & 0xfff) != 0;
    const bool resized = width_of(src) != width_of(dst) || height_of(src) != height_of(dst);
    const bool coloured = channels_of(src) != channels_of(dst) || (src.cls && dst.cls && src.cls != dst.cls);
    const bool changed = converted || resized || coloured || mapped;
    // Elements change before sizes, and rows may lie anywhere. Of rows that resampling can reach: where whole pixels
    // are moved the other order gives the same and changes fewer; bytes are widened by the resampling itself.
    const int from = kind_of(kernel_word(src)), to = kind_of(kernel_word(dst));
    const bool near = is_planar(src) || fits_kernels(row_stride_of(src));
    const bool both = converted && resized && near && resamples(from) && resamples(to);
    const bool late = both && interpolation == TARN_NEAREST;
    const bool widened = both && !late && from == LUMO_KIND_U8;
    // Only pixels are changed. A single channel is no planes, whatever its layout.
    if (changed && is_planar(src)) add(gather_planes);
    if (converted && !late) {
        type = dst.elemtype;
        if (!widened) add(convert_elements);
    }
    if (resized) {
        width = width_of(dst), height = height_of(dst);
        add(resample);
    }
    if (late) {
        type = dst.elemtype;
        add(convert_elements);
    }
    if (coloured) {
        channels = channels_of(dst), cls = dst.cls;
        add(change_colours, check_colours(dst, src));
    }
    if (mapped) add(map_range);
    if (is_planar(dst) != (is_planar(src) && !changed)) add(is_planar(dst) ? spread_planes : gather_planes);
    if (count == 0) add(copy_picture);
}

// ---- Bands ----------------------------------------------------------------------------------------------------------

// What the pictures and bands between the steps lie in: two storages that take turns. Kernels have their scratch memory
// from the first.
struct Between {
    ScopedStorage storages[2];
    int turn = 0;

    // Before another picture.
    void clear() {
        for (ScopedStorage& s : storages) KaSMEMSTGclear(&s.record);
    }
    // An array; false when there is no memory.
    bool make(LumoARRAY* array, const LumoARRAY& parms, QuelERR* err) {
        ScopedStorage& storage = storages[turn];
        turn ^= 1;
        return !LumoARRPARMSnull(&parms) && LumoARRAYinit_memstg(array, &parms, &storage.record, err);
    }
};

// Bytes of a strip, which a band between two steps lies in: two stay in half of a small second-level cache.
constexpr int64_t kStripBytes = 128 << 10;
// Rows of a band that is resampled, at least: the tables of its columns are made for each band.
constexpr int32_t kResampledRows = 32;

int64_t row_bytes(const LumoARRAY& a) {
    return int64_t(width_of(a)) * channels_of(a) * int64_t(LumoELEMTYPEsizeof(a.elemtype));
}

LumoARRAY band_of(const LumoARRAY& picture, int32_t top, int32_t rows) {
    LumoARRAY band = picture;
    if (top) band.data = row_at(picture, top);
    band.size[LUMO_DIM_H] = rows;
    return band;
}

// So many steps, from one picture to another. By bands: what one step makes the next finds in the cache.
struct Run {
    const Job& job;
    Between& between;
    QuelERR* err;
    const Step* steps;
    int count;

    // The values that the first `looked` steps make are looked at, by way of `mapping`. Without dst, what the last step
    // makes is not kept.
    k::Status operator()(const LumoARRAY* dst, const LumoARRAY& src, Mapping* mapping = nullptr, int looked = 0) const {
        const Step& last = steps[count - 1];
        const int strips_used = dst ? count - 1 : count;
        int64_t widest = row_bytes(last.makes);
        for (int i = 0; i < strips_used; ++i) {
            if (LumoARRPARMSnull(&steps[i].makes)) return k::kNoMemory;
            if (row_bytes(steps[i].makes) > widest) widest = row_bytes(steps[i].makes);
        }
        const int32_t height = height_of(dst ? *dst : last.makes);
        int64_t rows = kStripBytes / widest;
        if (steps[0].run == resample && rows < kResampledRows) rows = kResampledRows;
        if (rows < 1) rows = 1;
        if (rows > height || (count == 1 && !mapping)) rows = height;

        LumoARRAY strips[2];
        for (int s = 0; s < 2 && s < strips_used; ++s) {
            LumoARRAY parms = steps[s].makes;
            for (int i = s; i < strips_used; i += 2)
                if (row_bytes(steps[i].makes) > row_bytes(parms)) parms = steps[i].makes;
            if (!between.make(&strips[s], band_of(parms, 0, int32_t(rows)), err)) return k::kNoMemory;
        }
        for (int32_t top = 0; top < height; top += int32_t(rows)) {
            const int32_t n = height - top < rows ? height - top : int32_t(rows);
            LumoARRAY from = steps[0].run == resample ? src : band_of(src, top, n);
            for (int i = 0; i < count; ++i) {
                if (steps[i].refused) return steps[i].refused;
                LumoARRAY to = i < strips_used ? band_of(steps[i].makes, 0, n) : band_of(*dst, top, n);
                if (i < strips_used) to.data = strips[i % 2].data;
                if (const k::Status status = steps[i].run(job, to, from, {top, height})) return status;
                if (i + 1 == looked)
                    if (const k::Status status = look_at(*mapping, to)) return status;
                from = to;
            }
        }
        return k::kOk;
    }
};

k::Status transform_picture(Context& scratch, Between& between, const LumoARRAY& dst, const LumoARRAY& src,
                            const TarnRANGE* range, uint32_t interpolation) {
    const Plan plan(dst, src, range != nullptr, interpolation);
    Mapping mapping{range};
    const Job job{mapping, interpolation, scratch.allocator()};
    between.clear();

    // Resampling sees all of what it resamples.
    int first = plan.find(resample);
    if (first < 0) first = 0;
    LumoARRAY from = src;
    if (first > 0) {
        LumoARRAY picture;
        if (!between.make(&picture, plan.steps[first - 1].makes, scratch.err)) return k::kNoMemory;
        if (const k::Status status = Run{job, between, scratch.err, plan.steps, first}(&picture, src)) return status;
        from = picture;
    }
    const Run all{job, between, scratch.err, plan.steps + first, plan.count - first};
    if (!range) return all(&dst, from);

    // Mapping sees all of what it maps, before it maps the first. What is resampled is made in the destination and
    // mapped there; the rest is made twice, which costs less than memory does.
    const int before = plan.find(map_range) - first;
    if (before > 0 && all.steps[0].run == resample) {
        const Plan unmapped = plan.without(first + before);
        const Run run{job, between, scratch.err, unmapped.steps + first, all.count - 1};
        const k::Status status = run(&dst, from, &mapping, before);
        return status ? status : map_in_place(job, dst);
    }
    k::Status status = k::kOk;
    if (before == 0)
        status = look_at(mapping, from);
    else
        status = Run{job, between, scratch.err, all.steps, before}(nullptr, from, &mapping, before);
    return status ? status : all(&dst, from);
}

// The first picture of a batch.
LumoARRAY first_of(const LumoARRAY& batch) {
    LumoARRAY picture;
    LumoARRAYprojdim(&picture, &batch, LUMO_DIM_N, 0);
    LumoARRAYsqueezeI(&picture);
    return picture;
}

void advance(LumoARRAY& picture, const LumoARRAY& batch) {
    picture.data = static_cast<uint8_t*>(picture.data) + LumoARRPARMSstridedim(&batch, LUMO_DIM_N);
}

}  // namespace

int64_t op_copytransform(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, const LumoARRAY* dst,
                         const LumoARRAY* src, const TarnRANGE* range, int32_t interpolation) {
    if (LumoARRPARMSnull(dst) || LumoARRPARMSnull(src)) return 0;
    Context context(call, err, storage);
    if (const int64_t refused = check_arrays(context, *dst, *src)) return refused;

    const FloatState float_state;
    Between between;
    for (ScopedStorage& s : between.storages)
        if (!s.open(storage, 0, err)) return report_step(context, k::kNoMemory);
    Context scratch(call, err, &between.storages[0].record);
    LumoARRAY to = first_of(*dst), from = first_of(*src);
    for (int32_t n = LumoARRPARMSsizedim(dst, LUMO_DIM_N); n > 0; --n) {
        if (const k::Status status = transform_picture(scratch, between, to, from, range, uint32_t(interpolation)))
            return report_step(context, status);
        if (n == 1) break;
        advance(to, *dst);
        advance(from, *src);
    }
    return 0;
}

}  // namespace tarn::ipp

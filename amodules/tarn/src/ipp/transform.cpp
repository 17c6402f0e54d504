// "tarn::copy-transform": a batch of pictures into another of any other shape. What the two arrays differ in says which steps
// lead from one to the other; each picture goes through them in turn, between two storages, so that what a step reads stays
// while its result is made.
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
    Plan(const LumoARRAY& dst, const LumoARRAY& src, bool mapped);
    void add(StepFn* run, k::Status refused = k::kOk);

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

k::Status check_colours(const LumoARRAY& dst, const LumoARRAY& src) {
    if (src.cls == LUMO_CLASS_UNKNOWN || dst.cls == LUMO_CLASS_UNKNOWN) return kColourUnknown;
    const bool match =
        channels_of(src) == LumoARRCLSnchannels(src.cls) && channels_of(dst) == LumoARRCLSnchannels(dst.cls);
    return match ? k::kOk : kColourChannels;
}

Plan::Plan(const LumoARRAY& dst, const LumoARRAY& src, bool mapped)
    : type(src.elemtype), width(width_of(src)), height(height_of(src)), channels(channels_of(src)), cls(src.cls) {
    const bool converted = ((src.elemtype ^ dst.elemtype) & 0xfff) != 0;
    const bool resized = width_of(src) != width_of(dst) || height_of(src) != height_of(dst);
    const bool coloured = channels_of(src) != channels_of(dst) || (src.cls && dst.cls && src.cls != dst.cls);
    const bool changed = converted || resized || coloured || mapped;
    // Only pixels are changed. A single channel is no planes, whatever its layout.
    if (changed && is_planar(src)) add(gather_planes);
    if (converted) {
        type = dst.elemtype;
        add(convert_elements);
    }
    if (resized) {
        width = width_of(dst), height = height_of(dst);
        add(resample);
    }
    if (coloured) {
        channels = channels_of(dst), cls = dst.cls;
        add(change_colours, check_colours(dst, src));
    }
    if (mapped) add(map_range);
    if (is_planar(dst) != (is_planar(src) && !changed)) add(is_planar(dst) ? spread_planes : gather_planes);
    if (count == 0) add(copy_picture);
}

// What the pictures between the steps lie in: two storages that take turns. Kernels have their scratch memory from the first.
struct Between {
    ScopedStorage storages[2];
    LumoARRAY arrays[2];
    int turn = 0;

    // An array; null when there is no memory. What was made two turns ago is gone.
    const LumoARRAY* make(const LumoARRAY& parms, QuelERR* err) {
        const int at = turn;
        turn ^= 1;
        if (LumoARRPARMSnull(&parms)) return nullptr;
        KaSMEMSTGclear(&storages[at].record);
        return LumoARRAYinit_memstg(&arrays[at], &parms, &storages[at].record, err);
    }
};

k::Status transform_picture(const Job& job, Between& between, QuelERR* err, const LumoARRAY& dst,
                            const LumoARRAY& src) {
    const Plan plan(dst, src, job.range != nullptr);
    const LumoARRAY* from = &src;
    for (int i = 0; i < plan.count; ++i) {
        const Step& step = plan.steps[i];
        if (step.refused) return step.refused;
        const LumoARRAY* to = i + 1 == plan.count ? &dst : between.make(step.makes, err);
        if (!to) return k::kNoMemory;
        if (const k::Status status = step.run(job, *to, *from)) return status;
        from = to;
    }
    return k::kOk;
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
    const Job job{range, uint32_t(interpolation), scratch.allocator()};
    LumoARRAY to = first_of(*dst), from = first_of(*src);
    for (int32_t n = LumoARRPARMSsizedim(dst, LUMO_DIM_N); n > 0; --n) {
        if (const k::Status status = transform_picture(job, between, err, to, from))
            return report_step(context, status);
        if (n == 1) break;
        advance(to, *dst);
        advance(from, *src);
    }
    return 0;
}

}  // namespace tarn::ipp

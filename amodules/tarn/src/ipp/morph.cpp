// "tarn::initmorphstate" and "tarn::morphop-n": morphology with any structuring element. What depends on the element is
// worked out once, into a state; what a state's bytes are worth the kernels look at, and here how many of them there
// are.
#include "kernels/morph/morph.h"

#include <string.h>

#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

constexpr char kTextState[] = "@arr(.elem-type, .nchannels)";
constexpr char kTextLists[] = "(@arrvSrc[i](.elem-type, .nchannels), @roi) -> @arrvDst[i](.elem-type, .nchannels)";

// A record that has not been made: its memory is to be had here.
bool is_empty(const LumoMAT& mat) { return !mat.cls; }

// Bytes of a state's array: of its first row, or of all when they lie together.
uint64_t bytes_of(const LumoMAT& state) {
    if (!state.data || state.width <= 0 || state.height <= 0) return 0;
    const int64_t row = state.width * pixel_bytes(state.elemtype);
    return uint64_t(row * (state.stride == row ? state.height : 1));
}

// ---- States -------------------------------------------------------------------------------------------------------

// What a state is made for.
struct Plan {
    LumoELEMTYPE type;
    uint32_t category;
    k::Size region;
    LumoMAT element;
    k::Offset anchor;

    // bytes stays 0 where there is no kernel.
    k::Status size(uint64_t* bytes) const {
        const auto* kernel = kPaired.find(k::morph_size_kernels, type);
        if (!kernel) return k::kOk;
        return (*kernel)(category, region, element.data, element.stride, size_of(element), bytes);
    }
    k::Status make(void* state) const {
        const auto* kernel = kPaired.find(k::morph_init_kernels, type);
        if (!kernel) return k::kOk;
        return (*kernel)(state, category, region, element.data, element.stride, size_of(element), anchor);
    }
};

// One of an anchor's numbers; the middle where none is given.
int32_t anchor_at(uint32_t given, int32_t size) { return given == TARN_ANCHOR_CENTRE ? size / 2 : int32_t(given); }

// ---- Operations ---------------------------------------------------------------------------------------------------

const k::KernelSet<k::Morph>* kernels_of(uint32_t operation) {
    switch (operation) {
        case TARN_MORPH_ERODE:
            return &k::erode_kernels;
        case TARN_MORPH_DILATE:
            return &k::dilate_kernels;
        case TARN_MORPH_OPEN:
            return &k::morph_open_kernels;
        case TARN_MORPH_CLOSE:
            return &k::morph_close_kernels;
        case TARN_MORPH_TOPHAT:
            return &k::tophat_kernels;
        case TARN_MORPH_BLACKHAT:
            return &k::blackhat_kernels;
        case TARN_MORPH_GRADIENT:
            return &k::gradient_kernels;
        default:
            return nullptr;
    }
}

// Whether all the bytes are there that a state says it has.
bool is_whole(const LumoMAT* state) {
    k::MorphHeader header;
    const uint64_t bytes = state ? bytes_of(*state) : 0;
    if (bytes < sizeof header) return false;
    memcpy(&header, state->data, sizeof header);
    return header.bytes <= bytes;
}

// One of a list's pictures. Returns the result of the copy, where one was made.
int64_t apply(Context& context, const k::Kernel<k::Morph>& kernel, LumoELEMTYPE type, const LumoMAT* dst,
              const LumoMAT* src, const LumoRECT& region, void* state) {
    if (!dst || !src || !same_type(dst->elemtype, type) || !same_type(src->elemtype, type) || LumoRECTnull(&region) ||
        !lies_in(region, *src) || LumoRECTwidth(&region) > dst->width || LumoRECTheight(&region) > dst->height)
        return report(context, k::kBadArg, kTextLists);
    LumoMAT source;
    _LumoMATof(&source, src, &region);
    const LumoMAT written{dst->cls, type, source.width, source.height, dst->stride, dst->data};
    Temporary copied;
    if (!apart(written, source)) {
        if (!copied.make(context, type, size_of(source))) return report(context, kNoTemporary);
        const int64_t result = call_sibling(context, slot::op_copy, &copied.mat, static_cast<const LumoMAT*>(&source));
        if (result < 0) return result;
        source = copied.mat;
    }
    const FloatState float_state;
    return report(context,
                  kernel(source.data, source.stride, dst->data, dst->stride, kernel_size(size_of(source), type),
                         k::kMorphReplicate, state),
                  kTextLists);
}

}  // namespace

int64_t op_initmorphstate(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* state, uint32_t category,
                          const LumoARRAY* region, const LumoMAT* element, const TarnANCHOR* anchor) {
    const Context context(call, err, storage);
    uint8_t ones[16];
    memset(ones, 1, sizeof ones);
    const LumoELEMTYPE cells = LUMO_U8 | LUMO_CHANNELS(1);
    Plan plan{region->elemtype, category, {}, {"am", cells, 3, 3, 3, ones}, {}};
    plan.region =
        kernel_size({LumoARRPARMSsizedim(region, LUMO_DIM_W), LumoARRPARMSsizedim(region, LUMO_DIM_H)}, plan.type);
    if (element) plan.element = *element;
    const TarnANCHOR at = anchor ? *anchor : TarnANCHOR{TARN_ANCHOR_CENTRE, TARN_ANCHOR_CENTRE};
    plan.anchor = {anchor_at(at.x, plan.element.width), anchor_at(at.y, plan.element.height)};

    const bool sized = !state || is_empty(*state);
    if (sized && (category < TARN_MORPH_BASIC || category > TARN_MORPH_FLOATS))
        return refuse(context, QUEL_E_OPTION, QUEL_C_ARGUMENT, 3, "@morph-category");
    if (!same_type(plan.element.elemtype, cells)) return report(context, k::kBadArg, kTextState);
    // A state that is there is made for its region's own kind, and for all operations unless it is a basic one.
    if (!sized && category != TARN_MORPH_BASIC) plan.category = TARN_MORPH_ADVANCED;
    if (plan.category == TARN_MORPH_FLOATS) plan.type = (plan.type & ~0xf00u) | (LUMO_F32 & 0xf00);
    uint64_t bytes = 0;
    if (const k::Status s = plan.size(&bytes)) return report(context, s, kTextState);
    if (!state || bytes == 0) return int64_t(bytes);

    if (!sized) {
        const k::Status status = bytes_of(*state) < bytes ? k::kBadArg : plan.make(state->data);
        return report(context, status, kTextState);
    }
    const LumoMATPARM parm{cells, bytes > INT32_MAX ? -1 : int32_t(bytes), 1, 0};
    if (!storage || !_LumoMATinit(state, &parm, storage, err)) return report(context, kNoTemporary);
    const k::Status status = plan.make(state->data);
    if (status == k::kOk) return int64_t(bytes);
    _LumoARRdestroy(state, storage);
    return report(context, status, kTextState);
}

int64_t op_morphop_n(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, const LumoMAT* state, uint32_t operation,
                     int64_t count, LumoMAT* const* dsts, const LumoMAT* const* srcs, const LumoRECT* region) {
    if (count <= 0) return 0;
    Context context(call, err, storage);
    const auto* kernels = kernels_of(operation);
    if (!kernels || !dsts || !srcs || !dsts[0] || !srcs[0] || !is_whole(state))
        return report(context, k::kBadArg, kTextLists);
    const LumoELEMTYPE type = dsts[0]->elemtype;
    const auto* kernel = kPaired.find(*kernels, type);
    if (!kernel) return report(context, k::kNoKernel, kTextLists);
    LumoRECT part;
    _LumoARRroi(&part, srcs[0]);
    if (region) part = *region;
    for (int64_t i = 0; i < count; ++i)
        if (const int64_t result = apply(context, *kernel, type, dsts[i], srcs[i], part, state->data); result < 0)
            return result;
    return 0;
}

}  // namespace tarn::ipp

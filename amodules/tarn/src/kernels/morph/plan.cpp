// Morphology: the making of states. Their length comes of the steps that an element is taken apart into, counted as
// they come; it is the same at every level.
#include "kernels/morph/state.h"

namespace tarn::k::TARN_LEVEL {
namespace {

Status check_making(const void* p, uint32_t category, Size region, const void* mask, Size mask_size) {
    if (!p || !mask) return kNull;
    if (mask_size.width <= 0 || mask_size.height <= 0 || region.width <= 0) return kBadSize;
    if (category != kMorphBasic && region.height <= 0) return kBadSize;
    return is_category(category) ? kOk : kBadArg;
}

// Of the elements in a call's pixels: what a state depends on.
struct Pixel {
    int64_t element_bytes, channels;
};

// Whether cells may be steps: where the operation that joins them as they lie serves (near.h), by the vectors of most
// processors and an anchor in the middle. Others would take longer by cells.
bool takes_cells(Pixel pixel, Size region, Size mask_size) {
    const int64_t bytes = pixel.element_bytes * pixel.channels;
    return region.width * bytes >= 4 * kLine && mask_size.width / 2 * bytes <= kLine / 2;
}

// The largest square whose cells are joined faster as they lie than down its columns and along its rows.
int64_t largest_square(Pixel pixel) { return pixel.element_bytes == 1 ? 5 : 3; }

template <auto kMake, class T, Form kForm, class... Args>
Status of_pixels(Args... args) {
    return kMake(Pixel{sizeof(T), channels(kForm)}, args...);
}

[[gnu::noinline]] Status size_state(Pixel pixel, uint32_t category, Size region, const void* mask, int32_t mask_stride,
                                    Size mask_size, uint64_t* bytes) {
    if (Status s = check_making(bytes, category, region, mask, mask_size)) return s;
    Extent extent;
    const bool cells = takes_cells(pixel, region, mask_size);
    Element(mask, mask_stride, mask_size).plan(cells, largest_square(pixel), [&](const Step& s) { extent.add(s); });
    const Layout layout(extent, region.width, pixel.channels, pixel.element_bytes, passes_of(category));
    *bytes = uint64_t(layout.all);
    return layout.all ? kOk : kBadSize;
}

[[gnu::noinline]] Status init_state(Pixel pixel, void* state, uint32_t category, Size region, const void* mask,
                                    int32_t mask_stride, Size mask_size, Offset anchor) {
    if (Status s = check_making(state, category, region, mask, mask_size)) return s;
    if (anchor.x < 0 || anchor.x >= mask_size.width || anchor.y < 0 || anchor.y >= mask_size.height) return kBadArg;
    uint8_t* steps = static_cast<uint8_t*>(state) + sizeof(MorphHeader);
    Extent extent;
    const bool cells = takes_cells(pixel, region, mask_size);
    Element(mask, mask_stride, mask_size).plan(cells, largest_square(pixel), [&](Step s) {
        if (s.joins()) s.x -= anchor.x, s.row -= anchor.y;
        memcpy(steps + extent.steps * int64_t(sizeof s), &s, sizeof s);
        extent.add(s);
    });
    const Layout layout(extent, region.width, pixel.channels, pixel.element_bytes, passes_of(category));
    if (!layout.all) return kBadSize;
    MorphHeader h = {};
    h.magic = kMorphMagic;
    h.bytes = uint64_t(layout.all);
    h.steps = uint64_t(extent.steps);
    h.category = category;
    h.element_bytes = uint32_t(pixel.element_bytes);
    h.channels = uint32_t(pixel.channels);
    h.region = {region.width, category == kMorphBasic ? 0 : region.height};
    h.mask = mask_size;
    h.anchor = anchor;
    h.check = check_of(h, steps);
    memcpy(state, &h, sizeof h);
    return kOk;
}

}  // namespace

TARN_BODIES(morph_size, MorphSize, u8_f32, c1_c3_c4, of_pixels<size_state, T, kForm>)
TARN_BODIES(morph_init, MorphInit, u8_f32, c1_c3_c4, of_pixels<init_state, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

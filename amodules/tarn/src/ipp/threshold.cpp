// "tarn::threshold": the region, the options and the tiles of a threshold. The work is done by siblings, of which three
// are the companion module's.
#include <float.h>
#include <string.h>

#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

static_assert(sizeof(TarnTHROPTIONS) == 32 && offsetof(TarnTHRSPEC, value) == 8 &&
              offsetof(TarnTHRSPEC, reference) == 16);

constexpr char kTextTile[] = "@options(.mtho_ksize)";
constexpr char kTextAnchor[] = "@options(.mtho_selshape.sel_anchor)";
constexpr char kTextSelection[] = "@thopts(.mtho_selshape.sel_size)";

int64_t refuse_option(const Context& context, const char* text) {
    return refuse(context, QUEL_E_OPTION, QUEL_C_ARGUMENT, 3, text);
}

int32_t at_most(int32_t value, int32_t most) { return value < most ? value : most; }

// What is thresholded: a region of the source that the destination has room for.
struct Subject {
    LumoMAT* dst;
    LumoMAT src;
    LumoRECT all, region;
    bool is_all() const { return LumoRECTequ(&region, &all) != 0; }
    LumoMAT source() const { return part_of(src, region); }
};

// ---- Adaptive -------------------------------------------------------------------------------------------------------

// Copies of the specifications, in the call's scratch memory.
struct Specs {
    explicit Specs(const k::Allocator& a) : allocator(a) {}
    ~Specs() {
        if (first) allocator.release(allocator.context, first);
    }
    Specs(const Specs&) = delete;
    Specs& operator=(const Specs&) = delete;
    bool copy(uint64_t n, const TarnTHRSPEC* specs) {
        if (n == 0) return true;
        if (n > UINT64_MAX / sizeof *specs) return false;
        first = static_cast<TarnTHRSPEC*>(allocator.allocate(allocator.context, n * sizeof *specs));
        if (first) memcpy(first, specs, n * sizeof *specs);
        return first != nullptr;
    }
    k::Allocator allocator;
    TarnTHRSPEC* first = nullptr;
};

int64_t adaptive(Context& context, const Subject& s, const TarnTHROPTIONS& options, uint64_t n,
                 const TarnTHRSPEC* specs) {
    const auto& shape = options.of.adaptive;
    if (shape.width < 3 || shape.height < 3) return refuse_option(context, kTextSelection);
    if (shape.anchor_x < 0 || shape.anchor_x >= shape.width || shape.anchor_y < 0 || shape.anchor_y >= shape.height)
        return refuse_option(context, kTextAnchor);
    const k::Size size{LumoRECTwidth(&s.region), LumoRECTheight(&s.region)};
    const int32_t width = at_most(shape.width, size.width), height = at_most(shape.height, size.height);
    // The anchor goes along with a size that is clipped.
    const TarnMASK mask{uint32_t(at_most(shape.anchor_x, width - 1)), uint32_t(at_most(shape.anchor_y, height - 1)),
                        uint32_t(width), uint32_t(height)};

    Temporary temporary;
    LumoMAT* means = s.dst;
    if (s.dst->data == s.src.data) {
        if (!temporary.make(context, s.src.elemtype, size)) return report(context, kNoTemporary);
        means = &temporary.mat;
    }
    const LumoRECT* region = s.is_all() ? nullptr : &s.region;
    const int64_t filtered =
        call_sibling(context, slot::op_filter, means, &s.src, region, uint32_t(TARN_FILTER_BOX), &mask);
    if (filtered < 0) return filtered;
    Specs copies(context.allocator());
    if (!copies.copy(n, specs)) return report(context, kNoTemporary);
    for (uint64_t i = 0; i < n; ++i) {
        copies.first[i].value = FLT_MAX;
        copies.first[i].reference = means;
    }
    const LumoMAT source = s.source();
    const int64_t result = call_sibling(context, slot::op_threshold_adapt, s.dst, &source, n, copies.first);
    return result < 0 ? result : 0;
}

// ---- Otsu -----------------------------------------------------------------------------------------------------------

// A sibling's threshold. False where it made an error value, or gave no number.
bool otsu_of(Context& context, const LumoMAT& source, const float (&bounds)[2], int32_t bins, float* threshold) {
    const uint64_t before = context.err ? context.err->count : 0;
    *threshold = call_sibling(context, slot::op_calcthresh_otsu, &source, bounds, bins);
    return *threshold == *threshold && (!context.err || context.err->count == before);
}

bool asks_to_compute(float value) {
    const float marker = TARN_THRESHOLD_COMPUTE;
    return memcmp(&value, &marker, sizeof value) == 0;
}

// The length of the tile at a place: what would remain after it and is less than a tile belongs to it.
int32_t tile_length(int32_t left, int32_t tile) { return left - tile < tile ? left : tile; }

int64_t otsu(Context& context, const Subject& s, TarnTHROPTIONS options, bool defaults, uint64_t n,
             TarnTHRSPEC* specs) {
    const FloatState float_state;
    auto& o = options.of.otsu;
    const int32_t width = LumoRECTwidth(&s.region), height = LumoRECTheight(&s.region);
    if (o.tile_weight == 0 && o.whole_weight == 0) {
        if (s.is_all()) {
            o.whole_weight = 1;
            o.whole = TARN_THRESHOLD_COMPUTE;
        } else {
            o.tile_weight = 1;
            o.width = width, o.height = height;
        }
    }
    if (o.tile_weight == 0) {
        o.width = width, o.height = height;
    } else {
        if (o.width < 3 || o.height < 3) return refuse_option(context, kTextTile);
        o.width = at_most(o.width, width), o.height = at_most(o.height, height);
    }
    if (defaults || asks_to_compute(o.lower) || (o.bins == 0 && o.lower == 0 && o.upper == 0)) {
        const bool floats = kind_of(s.src.elemtype) == 5;
        o.bins = floats ? 384 : 256;
        o.lower = floats ? -1.0f : 0.0f, o.upper = floats ? 1.0f : 255.0f;
    }
    const float bounds[2] = {o.lower, o.upper};
    if (n > 2) n = 2;

    float whole = o.whole_weight ? o.whole : 0;
    if (o.whole_weight && asks_to_compute(whole) && !otsu_of(context, s.source(), bounds, o.bins, &whole)) return -1;
    for (LumoRECT tile = s.region; tile.top < s.region.bottom; tile.top = tile.bottom) {
        tile.bottom = tile.top + tile_length(s.region.bottom - tile.top, o.height);
        for (tile.left = s.region.left; tile.left < s.region.right; tile.left = tile.right) {
            tile.right = tile.left + tile_length(s.region.right - tile.left, o.width);
            const LumoMAT source = part_of(s.src, tile);
            float own = 0;
            if (o.tile_weight && !otsu_of(context, source, bounds, o.bins, &own)) return -1;
            const float sum = float(o.tile_weight) * own + float(o.whole_weight) * whole;
            const float threshold = sum / float(o.tile_weight + o.whole_weight);
            for (uint64_t i = 0; i < n; ++i) specs[i].value = threshold;
            LumoRECT to = tile;
            _LumoRECTmovetoltI(&to, tile.left - s.region.left, tile.top - s.region.top);
            LumoMAT target = part_of(*s.dst, to);
            const int64_t result = call_sibling(context, slot::op_threshold_imm, &target, &source, n, specs);
            if (result < 0) return result;
        }
    }
    return 0;
}

}  // namespace

int64_t op_threshold(const QuelCALL* call, QuelERR* err, KaSMEMSTG* storage, LumoMAT* dst, const LumoMAT* src,
                     const LumoRECT* region, const TarnTHROPTIONS* options, uint64_t n, TarnTHRSPEC* specs) {
    Context context(call, err, storage);
    Subject s{dst, src ? *src : *dst, {}, {}};
    _LumoARRroi(&s.all, &s.src);
    s.region = s.all;
    if (region) LumoRECTintersecI(&s.region, region);
    _LumoRECTwidthcutiflI(&s.region, dst->width);
    _LumoRECTheightcutiftI(&s.region, dst->height);
    if (LumoRECTnull(&s.region)) return 0;

    const TarnTHROPTIONS given = options ? *options : TarnTHROPTIONS{};
    if (given.method == TARN_THRESHOLD_ADAPTIVE) return adaptive(context, s, given, n, specs);
    if (given.method == TARN_THRESHOLD_OTSU) return otsu(context, s, given, !options, n, specs);
    const LumoMAT source = LumoRECTprosub(&s.region, &s.all) ? s.source() : s.src;
    return call_sibling(context, slot::op_threshold_imm, dst, &source, n, specs);
}

}  // namespace tarn::ipp

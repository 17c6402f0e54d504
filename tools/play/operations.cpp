// How operations are called at random: within their contracts, to the ends of these. One line for each operation of the
// table.
#include <algorithm>
#include <cstring>

#include "play/play.h"
#include "kernels/morph/morph.h"

namespace tarn::play {
namespace {

constexpr uint32_t kByte = LUMO_U8 | LUMO_CHANNELS(1), kFloat = LUMO_F32 | LUMO_CHANNELS(1);
#define MAPPED \
    { LUMO_U8, LUMO_S16, LUMO_F32 }
#define BITS \
    { LUMO_U8, LUMO_S16, LUMO_S32 }
#define ANY \
    { LUMO_U8, LUMO_S16, LUMO_F32, LUMO_S32, LUMO_U32 }

int channels_of(uint32_t type) { return int(type >> 12 & 15); }
// How many constants and results an operation has that leaves a fourth channel.
int used(uint32_t type) { return channels_of(type) == 1 ? 1 : 3; }
// A code, most often one of these.
uint32_t code(Play& p, uint32_t low, uint32_t high) {
    return p.chance(16) ? p.of({0, 1, 99, ~0u}) : low + p.pick(high - low + 1);
}

// ---- Elementwise ----------------------------------------------------------------------------------------------------

void copy(Play& p, const char* name) {
    const uint32_t type = p.type(ANY);
    const Size n = p.size();
    if (p.chance(4)) {
        const auto [dst, src] = p.overlapping(type, n);
        p.call<TarnCopy>(name, dst, src);
    } else {
        const Place dst = p.dst(type, n);
        p.call<TarnCopy>(name, dst, p.operand(dst, type, n, false));
    }
}

void logic(Play& p, const char* name) {
    const uint32_t type = p.type(BITS);
    const Size n = p.size();
    const Place dst = p.plane_of(type, n, out), a = p.operand(dst, type, n), b = p.operand(dst, type, n);
    p.call<TarnLogic>(name, dst, a, b);
}

void logic_not(Play& p, const char* name) {
    const uint32_t type = p.type({LUMO_U8});
    const Size n = p.size();
    const Place dst = p.plane_of(type, n, out);
    p.call<TarnNot>(name, dst, p.operand(dst, type, n));
}

void logic_constants(Play& p, const char* name) {
    const uint32_t type = p.type(BITS);
    const Size n = p.size();
    const Place dst = p.plane_of(type, n, out), src = p.operand(dst, type, n);
    const bool four = channels_of(type) == 4 && (type >> 8 & 15) != LUMO_KIND_U8;
    p.call<TarnLogicC>(name, dst, src, p.reals_or_null(four ? 4 : used(type)));
}

void arithmetic_constants(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED);
    const Size n = p.size();
    const Place dst = p.plane_of(type, n, out), src = p.operand(dst, type, n);
    p.call<TarnArithC>(name, dst, src, p.reals_or_null(used(type)));
}

void arithmetic_list(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED);
    const Size n = p.size();
    // Only the mean of bytes promises something of a source that lies across dst.
    const bool across =
        !strcmp(name, "avgarith_n") && (type >> 8 & 15) == LUMO_KIND_U8 && p.chance(3) && n.width > 0 && n.height > 0;
    Play::Pair pair;
    if (across) pair = p.overlapping(type, n);
    const Place dst = across ? pair.dst : p.plane_of(type, n, out);
    std::vector<Place> sources;
    for (int i = int(p.pick(5)); i > 0; --i)
        sources.push_back(across && i == 1 ? pair.src : p.operand(dst, type, n, false));
    const int count = p.chance(12) ? -int(p.pick(2)) : int(sources.size());
    p.call<TarnArithN>(name, dst, count, p.chance(16) ? Place() : p.list(sources));
}

void compare(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED);
    const Size n = p.size();
    const Place dst = p.plane_of(kByte, n, out), a = p.src(type, n), b = p.operand(a, type, n, false);
    p.call<TarnCmp>(name, dst, a, b, code(p, TARN_LESS, TARN_GREATER));
}

void compare_constants(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED);
    const Size n = p.size();
    const Place dst = p.plane_of(kByte, n, out), src = p.src(type, n), constants = p.reals_or_null(used(type));
    p.call<TarnCmpC>(name, dst, src, constants, code(p, TARN_LESS, TARN_GREATER));
}

void set(Play& p, const char* name) {
    const uint32_t type = p.type({LUMO_U8, LUMO_S16, LUMO_S32, LUMO_F32});
    const Size n = p.size();
    const Place dst = p.plane_of(type, n, out), constants = p.reals_or_null(used(type));
    p.call<TarnSet>(name, dst, constants, p.chance(2) ? p.plane_of(kByte, n, in, 2) : Place());
}

// ---- Statistics -----------------------------------------------------------------------------------------------------

Place results(Play& p, uint32_t type) { return p.words(std::vector<uint32_t>(size_t(used(type)), 77), out); }

void minmax(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED);
    const Place src = p.src(type, p.size());
    const Place smallest = p.chance(4) ? Place() : results(p, type), largest = p.chance(4) ? Place() : results(p, type);
    p.call<TarnMinMax>(name, smallest, largest, src);
}

void count_in_range(Play& p, const char* name) {
    const uint32_t type = p.type({LUMO_U8, LUMO_F32});
    const Place src = p.src(type, p.size()), lower = p.reals_or_null(used(type)), upper = p.reals_or_null(used(type));
    p.call<TarnCountInRange>(name, results(p, type), src, lower, upper);
}

void mean(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED);
    const Place src = p.src(type, p.size());
    p.call<TarnMean>(name, results(p, type), src);
}

// ---- Thresholds -----------------------------------------------------------------------------------------------------

std::vector<uint32_t> spec_words(Play& p, uint32_t type) {
    std::vector<uint32_t> words;
    for (int i = int(p.pick(4)); i > 0; --i) {
        const uint32_t channel = p.pick(uint32_t(channels_of(type)) + 1 + p.chance(20)) - 1;
        for (const uint32_t word :
             {code(p, TARN_LESS, TARN_GREATER), channel, p.real(), p.real(), p.real(), p.real(), p.pick(4)})
            words.push_back(word);
    }
    return words;
}

void threshold_part(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED);
    const Size n = p.size();
    const Place dst = p.dst(type, n), src = p.operand(dst, type, n),
                reference = p.plane_of(type, {n.width + 4, n.height + 3}, in);
    const std::vector<uint32_t> words = spec_words(p, type);
    p.call<TarnThresholdImm>(name, dst, src, words.size() / 7, p.specs(words, p.chance(8) ? dst : reference));
}

void otsu(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED);
    const Place src = p.src(type, p.size()), bounds = p.chance(2) ? p.words({0, 0x437f0000}) : p.words(p.reals(2));
    p.call<TarnCalcthreshOtsu>(name, src, bounds,
                               p.chance(8) ? int(p.of({0, ~0u, 65537, 65536})) : 1 + int(p.pick(400)));
}

void threshold(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED);
    const Size n = p.size();
    const Place dst = p.plane_of(type, n, out), src = p.operand(dst, type, n), region = p.region_of(n);
    std::vector<uint32_t> options(8);
    options[0] = p.pick(6);
    if (options[0] == TARN_THRESHOLD_ADAPTIVE)
        for (int i = 1; i < 5; ++i)
            options[size_t(i)] = p.chance(20) ? p.of({0, 2, ~0u, 0x7fffffff}) : i < 3 ? p.pick(3) : 3 + p.pick(9);
    if (options[0] == TARN_THRESHOLD_OTSU) {
        options = {3, 2 + p.pick(40), 2 + p.pick(40), p.of({0, 1, 0x10000, 0x20001, 0xffffffff}),
                   p.of({0, 1, 2, 256, 1000})};
        const bool given = options[4] != 0;
        for (const uint32_t word : {given ? p.of({0x00800000, 0, 0xbf800000}) : 0,
                                    given ? p.of({0x437f0000, 0x3f800000}) : 0, p.chance(2) ? 0x00800000 : p.real()})
            options.push_back(word);
    }
    const std::vector<uint32_t> words = spec_words(p, type);
    const Place given = p.chance(6) ? Place() : p.words(options);
    p.call<TarnThreshold>(name, dst, src, region, given, words.size() / 7, p.specs(words, p.src(type, n)));
}

// ---- Values and places ----------------------------------------------------------------------------------------------

void convert_scale(Play& p, const char* name) {
    const uint32_t type = p.type(ANY), from = p.chance(2) ? type : p.type(ANY, false);
    const uint32_t source = type == from ? type : (from & 0xfff) | (type & 0xf000);
    const Size n = p.size();
    const Place dst = p.dst(type, n), src = source == type ? p.operand(dst, type, n) : p.src(source, n);
    const Place scale = p.reals_or_null(channels_of(type)), offset = p.reals_or_null(channels_of(type));
    p.call<TarnConvertScale>(name, dst, src, scale, offset);
}

void map_rows(Play& p, const char* name) {
    const Place array = p.plane_of(p.type(MAPPED), p.size(), out);
    p.call<TarnCvtvrangeV>(name, array, p.words(p.reals(2)));
}

std::vector<Place> arrays(Play& p) {
    std::vector<Place> all;
    for (int i = int(p.pick(4)); i > 0; --i) {
        const uint32_t type = p.type(ANY);
        all.push_back(p.plane_of(type, p.size(), out));
    }
    return all;
}

void map_list(Play& p, const char* name) {
    const std::vector<Place> all = arrays(p);
    const Place list = p.list(all);
    p.call<TarnCvtvrangeN>(name, uint64_t(all.size()), list, p.words(p.reals(2)));
}

void turn(Play& p, const char* name) {
    const uint32_t from = p.pick(3), to = p.pick(3);
    const uint32_t type = p.type(ANY);
    p.call<TarnCvtorigin>(name, p.plane_of(type, p.size(), out), from, to);
}

void turn_list(Play& p, const char* name) {
    const std::vector<Place> all = arrays(p);
    const uint32_t from = p.pick(3), to = p.pick(3);
    p.call<TarnCvtoriginN>(name, uint64_t(all.size()), p.list(all), from, to);
}

// A source's type for a destination's: any kind, as many channels.
uint32_t source_type(Play& p, uint32_t type) {
    return p.chance(2) ? type : (p.type(ANY, false) & 0xfff) | (type & 0xf000);
}

void resize(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED), source = source_type(p, type);
    const Size n = p.size(), from = p.size();
    const Place dst = p.plane_of(type, n, out), src = p.src(source, from), region = p.region_of(from);
    const Place range = p.chance(4) ? p.words(p.reals(2)) : Place();
    p.call<TarnScaleResize>(name, dst, src, region, range, code(p, TARN_CUBIC_ALIAS, TARN_LANCZOS));
}

void reshape(Play& p, const char* name) {
    const uint32_t type = p.type(ANY);
    const int width = int(p.pick(30)), height = int(p.pick(12)), factor = 1 + int(p.pick(4));
    const Size n = p.chance(4)   ? p.size()
                   : p.chance(4) ? Size{width * factor * height, 1}
                                 : Size{width * factor, height};
    const Place dst = p.plane_of(type, n, out), src = p.src(type, {width, factor * height});
    p.call<TarnReshape>(name, dst, src, p.pick(6));
}

double number(Play& p, double scale) {
    if (p.chance(40)) return __builtin_bit_cast(float, p.real());
    return p.chance(2) ? double(int(p.pick(5)) - 2) : (double(p.pick(4001)) - 2000) / 2000 * scale;
}

void warp(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED), source = source_type(p, type);
    const Size n = p.size();
    const Place dst = p.plane_of(type, n, out), src = p.src(source, p.size());
    std::vector<double> all;
    for (const double scale : {2.0, 1.0, 40.0, 1.0, 2.0, 40.0}) all.push_back(number(p, scale));
    const Place warp = p.doubles(all);
    p.call<TarnWarpAffine>(name, dst, src, warp, code(p, TARN_CUBIC_ALIAS, TARN_LANCZOS));
}

void warp_quad(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED), source = source_type(p, type);
    const Size n = p.size();
    const Place dst = p.plane_of(type, n, out), src = p.src(source, p.size());
    const auto quad = [&] {
        if (p.chance(3)) return Place();
        std::vector<double> all;
        for (int i = 0; i < 8; ++i) all.push_back(number(p, 40) + (i == 2 || i == 4 || i == 5 || i == 7 ? 30 : 0));
        return p.doubles(all);
    };
    const Place from = quad(), to = quad();
    p.call<TarnWarpAffineQuad>(name, dst, src, from, to, code(p, TARN_CUBIC_ALIAS, TARN_LANCZOS));
}

// ---- Neighbours -----------------------------------------------------------------------------------------------------

void border(Play& p, const char* name) {
    const uint32_t type = p.type({LUMO_U8, LUMO_S16, LUMO_S32, LUMO_F32});
    const Size n = p.size();
    std::vector<uint32_t> words;
    for (int i = 0; i < 4; ++i) words.push_back(p.chance(30) ? p.of({~0u, 0x7fffffff, 0x80000000, 90}) : p.pick(9));
    const int left = int(words[0]), top = int(words[1]);
    for (const uint32_t real : p.reals(4)) words.push_back(real);
    const Size large = {std::max(n.width, 0) + 18 + int(p.pick(3)), std::max(n.height, 0) + 18};
    const bool within = left >= 0 && left < 9 && top >= 0 && top < 9 && n.width > 0 && n.height > 0;
    const Place dst = p.plane_of(type, large, out);
    const uint32_t which = p.pick(6);
    Place src = which == 5 ? Place() : which < 3 || !within ? p.src(type, n) : Place();
    if (which > 2 && which < 5 && within)
        src = p.view(dst, left * (channels_of(type) == 2 && which == 3 ? 2 : 1), top, n.width, n.height, in);
    const Place border = p.chance(10) ? Place() : p.words(words);
    p.call<TarnCopymkb>(name, dst, src, code(p, 2, 8), border);
}

void filter(Play& p, const char* name) {
    const uint32_t type = p.type(MAPPED);
    const Size n = p.size();
    Play::Pair pair;
    const bool across = p.chance(5) && n.width > 0 && n.height > 0;
    if (across) pair = p.overlapping(type, n);
    const Place dst = across ? pair.dst : p.dst(type, n), src = across ? pair.src : p.operand(dst, type, n);
    const Place region = p.region_of(n);
    std::vector<uint32_t> mask(4);
    for (size_t i = 2; i < 4; ++i) {
        mask[i] = p.chance(40) ? p.of({0, ~0u, 0x7fffffff, 0x80000000}) : 1 + p.pick(p.chance(4) ? 24 : 7);
        mask[i - 2] = p.chance(40) ? p.of({~0u, 30, 0x80000000}) : p.pick(mask[i] ? std::min(mask[i], 30u) : 1);
    }
    const Place given = p.chance(4) ? Place() : p.words(mask);
    p.call<TarnFilter>(name, dst, src, region, code(p, TARN_FILTER_BOX_ALIAS, TARN_FILTER_MEDIAN), given);
}

// A state's size, the state, and pictures; or a state that is none, cut or changed, which is to be refused.
void morph(Play& p, const char* name) {
    const uint32_t type = p.type({LUMO_U8, LUMO_F32}, false),
                   operation = code(p, TARN_MORPH_ERODE, TARN_MORPH_GRADIENT);
    const Size n = p.size(), cells = {1 + int(p.pick(9)), 1 + int(p.pick(9))};
    const Place dst = p.dst(type, n), dst2 = p.plane_of(type, n, out), src = p.operand(dst, type, n, false),
                src2 = p.src(type, n);
    const Place region = p.array(src2, "HWC", type, 0, n, channels_of(type), 1);
    const Place element = p.chance(3) ? Place() : p.plane_of(kByte, cells, in, 2);
    const Place anchor =
        p.chance(2) ? Place() : p.words({p.pick(uint32_t(cells.width) + p.chance(20)), p.pick(uint32_t(cells.height))});
    const uint32_t category = operation < TARN_MORPH_OPEN ? TARN_MORPH_BASIC : TARN_MORPH_ADVANCED;
    const uint32_t made_for = p.chance(12) ? code(p, TARN_MORPH_BASIC, TARN_MORPH_FLOATS) : category;
    const bool last = name[0] == 'i';  // the state is what is looked at
    const int64_t bytes = p.call<TarnInitmorphstate>("initmorphstate", Place(), made_for, region, element, anchor);
    if (bytes <= 0 || bytes > 1 << 20) return;
    const uint32_t harm = last ? 0 : p.pick(12);
    const bool bad = harm > 8;
    // In an array that is given a state for floats is made as one of its kind alone, which is smaller.
    const auto made = made_for == TARN_MORPH_FLOATS ? uint32_t(TARN_MORPH_ADVANCED) : made_for;
    int64_t used = bytes;
    if (harm == 9) used = p.call<TarnInitmorphstate>("initmorphstate", Place(), made, region, element, anchor);
    if (used <= 0) return;
    const int kept = harm == 9 ? int(p.pick(uint32_t(used))) : int(bytes);
    const int layout = int(p.pick(32));
    const Place state = p.plane(kByte, int(bytes), 1, layout, p.pick(1000), scratch);
    if (harm != 10 && p.call<TarnInitmorphstate>("initmorphstate", state, made_for, region, element, anchor) < 0)
        return;
    if (harm == 11) p.poke(state, p.pick(sizeof(k::MorphHeader)), p.pick(255));
    const Place given = harm == 9 ? p.view(state, 0, 0, kept, 1, in) : state;
    const Place dsts = p.list({dst, dst2}), srcs = p.list({src, src2}), part = p.chance(8) ? p.region_of(n) : Place();
    if (bad) p.must_refuse();
    p.call<TarnMorphopN>("morphop_n", given, operation, int64_t(1 + p.pick(2)), dsts, srcs, part);
}

// ---- Others ---------------------------------------------------------------------------------------------------------

void transform(Play& p, const char* name) {
    static constexpr const char* kLayouts[] = {"HWC", "NHWC", "NCHW", "CHW"};
    static constexpr uint32_t kClasses[] = {0, LUMO_CLASS_GREY, 0, LUMO_CLASS_RGB, LUMO_CLASS_BGRA};
    const int batch = 1 + int(p.pick(2));
    const uint32_t common = p.of(ANY);
    const int channels = 1 + int(p.pick(4));
    const Size size = p.size();
    const auto array = [&](Role role) {
        const int which = int(p.pick(4)), many = p.chance(4) ? 1 + int(p.pick(6)) : channels;
        const int pictures = kLayouts[which][0] == 'N' ? (p.chance(20) ? 2 : batch) : 1;
        const uint32_t type =
            p.chance(4) ? p.of({LUMO_U8, LUMO_S16, LUMO_S32, LUMO_U32, LUMO_F32, LUMO_CODE_U16}) : common;
        const uint32_t cls = p.chance(10) ? p.pick(5) : many < 5 ? kClasses[many] + (many == 3 && p.chance(3)) : 0;
        const Size n = p.chance(4) ? Size{1 + int(p.pick(70)), 1 + int(p.pick(20))}
                                   : Size{std::max(size.width, 0), std::max(size.height, 0)};
        const uint32_t kind = type == LUMO_CODE_U16 ? LUMO_S16 : type;
        const bool planar = which > 1;
        const Place plane = p.plane_of(kind | LUMO_CHANNELS(planar ? 1 : many),
                                       {n.width, n.height * pictures * (planar ? many : 1)}, role);
        return p.array(plane, kLayouts[which], type, cls, n, many, pictures);
    };
    const Place dst = array(out), src = array(in);
    const std::vector<uint32_t> bounds = p.reals(2);
    const Place range = p.chance(4) ? p.words({p.chance(20) ? 7 : p.pick(2), bounds[0], bounds[1]}) : Place();
    p.call<TarnCopyTransform>(name, dst, src, range, int32_t(code(p, TARN_CUBIC_ALIAS, TARN_CUBIC)));
}

void contours(Play& p, const char* name) {
    const uint32_t type = p.chance(20) ? p.type(ANY) : kByte;
    const Place image = p.plane_of(type, p.size(), in, p.pick(4) ? 2 : 3);
    const Place receiver = p.receiver(p.chance(3) ? int(p.pick(40)) : -1);
    p.call<TarnContourFind>(name, receiver, image, p.pick(16));
}

void network(Play& p, const char* name) {
    const int rows = int(p.pick(40));
    int width = 1 + int(p.pick(40));
    const Place input = p.src(kFloat, {width, rows});
    std::vector<Place> weights, biases;
    std::vector<uint32_t> codes;
    for (int i = int(p.pick(4)); i > 0; --i) {
        const int neurons = 1 + int(p.pick(40));
        weights.push_back(p.src(kFloat, {width, neurons}));
        biases.push_back(p.chance(2) ? p.src(kFloat, {neurons, 1}) : Place());
        codes.push_back(p.chance(30) ? p.pick(10) : p.of({5, 0, 3, 4, 6, 7}));
        width = neurons;
    }
    const Place output = p.plane_of(kFloat, {width, rows}, out);
    for (const uint32_t activation : codes)
        if (activation > TARN_ACTIVATION_SOFTMAX || activation == 1 || activation == 2) p.may_end();
    p.call<TarnMultiLineNeuronet>(name, output, input, uint64_t(codes.size()), p.layers(weights, biases, codes));
}

}  // namespace

const std::vector<Operation> kOperations = {
    {"avgarith_n", arithmetic_list},
    {"cvtvrange_v", map_rows},
    {"cvtvrange_n", map_list},
    {"add_c", arithmetic_constants},
    {"sub_c", arithmetic_constants},
    {"mul_c", arithmetic_constants},
    {"add_n", arithmetic_list},
    {"sub_n", arithmetic_list},
    {"mul_n", arithmetic_list},
    {"and_c", logic_constants},
    {"or_c", logic_constants},
    {"xor_c", logic_constants},
    {"and", logic},
    {"or", logic},
    {"xor", logic},
    {"not", logic_not},
    {"set", set},
    {"minmax", minmax},
    {"countinrange", count_in_range},
    {"mean", mean},
    {"threshold", threshold},
    {"calcthresh_otsu", otsu},
    {"threshold_imm", threshold_part},
    {"threshold_adapt", threshold_part},
    {"cmp", compare},
    {"cmp_c", compare_constants},
    {"cvtorigin", turn},
    {"cvtorigin_n", turn_list},
    {"scaleresize", resize},
    {"reshape", reshape},
    {"warpaffine", warp},
    {"warpaffine4", warp_quad},
    {"convscale", convert_scale},
    {"copy", copy},
    {"copymkb", border},
    {"copytransform", transform},
    {"filter", filter},
    {"initmorphstate", morph},
    {"morphop_n", morph},
    {"contr_find", contours},
    {"mlnn", network},
};

}  // namespace tarn::play

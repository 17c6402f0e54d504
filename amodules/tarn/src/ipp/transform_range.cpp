// The step of copy-transform that maps values to a range. What a picture's smallest and largest values are is found
// band by band, while they are near. One pair of bounds for all channels is one for each: the extremes are each
// channel's own.
#include "ipp/mapping.h"
#include "ipp/transform.h"
#include "kernels/stats/stats.h"

namespace tarn::ipp {
namespace {

// Elements of a pixel as kernels see it: two channels are pixels of four elements, two pixels.
constexpr int elements_of(int channels) { return channels == 2 ? 4 : channels; }

// Maps a picture by constants; without them, a channel that is flat to the lower bound.
k::Status map_by(const Job& job, const LumoARRAY& to, const LumoARRAY& from, const float* scale, const float* offset) {
    const LumoELEMTYPE word = kernel_word(to);
    const auto* map = kWhole.find(kScale, word, kernel_word(from));
    if (!map) return k::kNoKernel;
    if (!fits_kernels(row_stride_of(from)) || !fits_kernels(row_stride_of(to))) return k::kBadArg;
    const auto run = [&](const auto& kernel, const auto&... how) {
        return kernel(from.data, int32_t(row_stride_of(from)), to.data, int32_t(row_stride_of(to)),
                      kernel_size(size_of(from), word), how..., job.scratch);
    };
    const TarnRANGE& range = *job.mapping.range;
    return scale ? run(*map, scale, offset) : run(*kWholeRanges.find(kRange, word, word), range.lo, range.hi);
}

bool find_constants(const Mapping& m, int channels, float* scale, float* offset) {
    return k::range_constants(m.smallest, m.largest, elements_of(channels), m.range->lo, m.range->hi, scale, offset);
}

}  // namespace

k::Status look_at(Mapping& mapping, const LumoARRAY& part) {
    if (mapping.range->kind != TARN_RANGE_OF_ALL && mapping.range->kind != TARN_RANGE_OF_EACH) unreachable(__LINE__);
    const LumoELEMTYPE word = kernel_word(part);
    const auto* minmax = kWhole.find(k::minmax_kernels, word);
    if (!minmax) return k::kNoKernel;
    if (!fits_kernels(row_stride_of(part))) return k::kBadArg;
    float smallest[4], largest[4];
    if (const k::Status status =
            (*minmax)(part.data, int32_t(row_stride_of(part)), kernel_size(size_of(part), word), smallest, largest))
        return status;
    const int channels = channels_of(part);
    for (int i = 0; i < elements_of(channels); ++i) {
        const int c = i % channels;
        const bool first = !mapping.any && i < channels;
        mapping.smallest[c] = first ? smallest[i] : k::smaller(mapping.smallest[c], smallest[i]);
        mapping.largest[c] = first ? largest[i] : k::larger(mapping.largest[c], largest[i]);
    }
    for (int c = channels; c < elements_of(channels); ++c) {
        mapping.smallest[c] = mapping.smallest[c - channels];
        mapping.largest[c] = mapping.largest[c - channels];
    }
    mapping.any = true;
    return k::kOk;
}

k::Status map_range(const Job& job, const LumoARRAY& to, const LumoARRAY& from, Rows) {
    float scale[4], offset[4];
    const bool constants = find_constants(job.mapping, channels_of(from), scale, offset);
    return map_by(job, to, from, constants ? scale : nullptr, offset);
}

k::Status map_in_place(const Job& job, const LumoARRAY& picture) {
    float scale[4], offset[4];
    const bool constants = find_constants(job.mapping, channels_of(picture), scale, offset);
    if (!is_planar(picture)) return map_by(job, picture, picture, constants ? scale : nullptr, offset);
    LumoARRAY plane = picture;
    plane.size[LUMO_DIM_C] = 1;
    for (int32_t c = 0; c < channels_of(picture); ++c) {
        plane.data = plane_at(picture, c);
        if (const k::Status status = map_by(job, plane, plane, scale + c, offset + c)) return status;
    }
    return k::kOk;
}

}  // namespace tarn::ipp

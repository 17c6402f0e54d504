// Linear mappings. A block is widened to floats, mapped and narrowed in registers: the bits are those of a mapping by
// way of a float plane, without its traffic. Three vectors of scales and offsets hold the period of any channel count,
// so channels are never taken apart. A range costs a pass for the minimum and maximum and one to map.
#include "kernels/mapping/mapping.h"

#include "kernels/plane/blocks.h"
#include "kernels/plane/scratch.h"
#include "kernels/stats/stats.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The scales and offsets of a pixel's elements, repeated over three vectors.
struct ChannelLine {
    F32 scale[3], offset[3];
    [[gnu::noinline]] ChannelLine(const float* s, const float* o, int channels) {
        if (channels == 1) {
            for (int j = 0; j < 3; ++j) scale[j] = splat(*s), offset[j] = splat(*o);
            return;
        }
        const auto repeated = [=](const float* pixel) {
            return channels == 3 ? pattern_of<float, Form::c3>(pixel) : pattern_of<float, Form::c4>(pixel);
        };
        const Pattern scales = repeated(s), offsets = repeated(o);
        for (int j = 0; j < 3; ++j) scale[j] = (F32)scales.v[j], offset[j] = (F32)offsets.v[j];
    }
};

// Whether every element of S is mapped to what fits 32 bits; not so with NaN.
template <class S>
bool results_fit(const float* scale, const float* offset, int channels) {
    constexpr float kMost = sizeof(S) == 1 ? 255 : 32768;
    bool fit = true;
    for (int c = 0; c < channels; ++c)
        fit = fit && __builtin_fabsf(scale[c]) * kMost + __builtin_fabsf(offset[c]) < 2e9f;
    return fit;
}

// kFit: results are known to fit 32 bits, and none is cut off before packing.
template <class D, bool kFit>
struct MapFloats {
    static constexpr int kPeriod = 3;
    const ChannelLine line;
    // The block's first vector meets entry phase of the line, and the next block's the entry after that.
    template <class S, class P>
    [[gnu::always_inline]] Block<D> operator()(const S* s, P phase) const {
        F32 v[4];
        load_f32_four(s, v);
        for (int i = 0; i < 4; ++i) {
            const int at = (phase.index + i) % 3;
            v[i] = v[i] * line.scale[at] + line.offset[at];
        }
        if constexpr (kFit)
            return round_to_within32<D>(v[0], v[1], v[2], v[3]);
        else
            return round_to<D>(v[0], v[1], v[2], v[3]);
    }
};

// Bytes to bytes, where arithmetic and not memory is the limit. A byte v under the bits of 2^23 is the float 2^23 + v,
// and mul_add(2^23 + v, scale, -2^23 scale) is v * scale rounded once, as the product alone would be: that saves the
// conversion. Results must fit 32 bits. A vector of floats takes four bytes of each group, so that packing puts them
// back in order. V is F32; levels without mul_add never look inside.
template <class V>
struct MapBytes {
    static constexpr int kPeriod = 3;
    V scale[3], back[3], offset[3];
    explicit MapBytes(const ChannelLine& line) {
        constexpr int kPeriodElements = 3 * kLanes<float>;
        float s[kPeriodElements], o[kPeriodElements];
        memcpy(s, line.scale, sizeof s);
        memcpy(o, line.offset, sizeof o);
        for (int j = 0; j < 3; ++j)
            for (int e = 0; e < kLanes<float>; ++e) {
                const int i = (16 * (e / 4) + 4 * j + e % 4) % kPeriodElements;
                scale[j][e] = s[i];
                back[j][e] = -8388608.0f * s[i];
                offset[j][e] = o[i];
            }
    }
    template <class S, class P>
    [[gnu::always_inline]] Block<S> operator()(const S* s, P phase) const {
        alignas(16) static constexpr uint32_t kIndex[4] = {0x80808000, 0x80808001, 0x80808002, 0x80808003};
        const auto v = load<Vec<S>>(s);
        const auto mapped = [&](int part) {
            const int at = int(phase.index * kVector + part) % 3;
            const auto index = (Bytes)((U32)every_group(kIndex) + uint32_t(4 * part));
            const auto shifted = (F32)lookup_or(v, index, (Bytes)splat(0x4b000000));
            return nearest_int(mul_add(shifted, scale[at], back[at]) + offset[at]);
        };
        const S16 ab = narrow_groups(mapped(0), mapped(1)), cd = narrow_groups(mapped(2), mapped(3));
        return {{(Bytes)narrow_groups_u8(ab, cd)}};
    }
};

// A channel of nothing but the value.
template <class D>
[[gnu::noinline]] void fill(void* dst, int32_t stride, Size size, int channels, int channel, D value) {
    for (int64_t y = 0; y < size.height; ++y) {
        Loose<D>* d = row<Loose<D>>(dst, stride, y);
        for (int64_t x = 0; x < size.width; ++x) d[x * channels + channel] = value;
    }
}

// Elements from which the constants of MapBytes are worth making.
constexpr int64_t kManyBytes = 2048;

// scale, offset: one an element of a pixel. strip: as map_blocks takes it.
template <bool kKept, class S, class D>
void map_plane(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, int channels,
               const float* scale, const float* offset, D* strip) {
    // Made where it stays: a copy by parts would have to reach the cache before whole vectors of it can be loaded.
    const auto line = [=] { return ChannelLine(scale, offset, channels); };
    const auto map = [&](const auto& f) {
        map_blocks<kKept, S>(src, src_stride, dst, dst_stride, size, channels, strip, f);
    };
    if constexpr (sizeof(S) < 4 && sizeof(D) < 4)
        if (results_fit<S>(scale, offset, channels)) {
            if constexpr (kHasMulAdd && sizeof(S) == 1 && sizeof(D) == 1)
                if (int64_t(size.width) * size.height * channels >= kManyBytes) return map(MapBytes<F32>(line()));
            return map(MapFloats<D, true>{line()});
        }
    map(MapFloats<D, false>{line()});
    // Where a constant is NaN, so is every result; which NaN would depend on the operands' order, so it is set.
    if constexpr (sizeof(D) == 4)
        for (int c = 0; c < channels - kKept; ++c)
            if (scale[c] != scale[c] || offset[c] != offset[c])
                fill<D>(dst, dst_stride, size, channels, c, __builtin_nanf(""));
}

// Whether a mapped plane goes around the cache. Narrow vectors take longer to map integers than memory does to move
// them, and the strip would come on top.
template <bool kKept, class S, class D>
bool streams_map(const void* src, const void* dst, Size size, int channels) {
    return (kVector > 16 || sizeof(S) == 4) && streams_blocks<kKept, S, D>(src, dst, size, channels);
}

// A strip of scratch, or null.
template <class D>
D* take_strip(Scratch& scratch) {
    D* strip;
    return scratch.carve([&](auto part) { part(strip, kStrip); }) ? strip : nullptr;
}

template <class S, class D, Form kForm>
Status scale_map(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, const float* scale,
                 const float* offset, Allocator allocator) {
    if (Status s = check(size, src, dst, scale, offset)) return s;
    Scratch scratch(allocator);
    D* strip = nullptr;
    if (streams_map<kept(kForm), S, D>(src, dst, size, channels(kForm)) && !(strip = take_strip<D>(scratch)))
        return kNoMemory;
    float scales[4], offsets[4];
    read_constants<float, kForm>(scale, scales);
    read_constants<float, kForm>(offset, offsets);
    map_plane<kept(kForm), S>(src, src_stride, dst, dst_stride, size, channels(kForm), scales, offsets, strip);
    return kOk;
}

// The minimum and maximum at this level, by the channels of a pixel.
template <class S>
struct MinMaxOf;
template <>
struct MinMaxOf<uint8_t> {
    static constexpr MinMax* of[] = {nullptr, minmax_u8_c1, nullptr, minmax_u8_c3, minmax_u8_c4};
};
template <>
struct MinMaxOf<int16_t> {
    static constexpr MinMax* of[] = {nullptr, minmax_s16_c1, nullptr, minmax_s16_c3, minmax_s16_c4};
};
template <>
struct MinMaxOf<float> {
    static constexpr MinMax* of[] = {nullptr, minmax_f32_c1, nullptr, minmax_f32_c3, minmax_f32_c4};
};

// The smallest and largest values of each channel. pairs: the elements of a pixel are two pixels of two channels.
[[gnu::noinline]] void find_extremes(MinMax* minmax, const void* src, int32_t stride, Size size, bool pairs,
                                     float* smallest, float* largest) {
    minmax(src, stride, size, smallest, largest);
    for (int c = 0; pairs && c < 2; ++c) {
        smallest[c] = smallest[c + 2] = smaller(smallest[c], smallest[c + 2]);
        largest[c] = largest[c + 2] = larger(largest[c], largest[c + 2]);
    }
}

template <class S, class D, Form kForm>
Status range_map(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, float lo, float hi,
                 Allocator allocator) {
    if (Status s = check(size, src, dst)) return s;
    Scratch scratch(allocator);
    D* strip = take_strip<D>(scratch);
    if (!strip) return kNoMemory;
    constexpr int kChannels = channels(kForm);
    if (!streams_map<kept(kForm), S, D>(src, dst, size, kChannels)) strip = nullptr;
    float smallest[4], largest[4], scale[4], offset[4];
    find_extremes(MinMaxOf<S>::of[kChannels], src, src_stride, size, kForm == Form::c2, smallest, largest);
    if (range_constants(smallest, largest, kChannels, lo, hi, scale, offset))
        map_plane<kept(kForm), S>(src, src_stride, dst, dst_stride, size, kChannels, scale, offset, strip);
    else
        fill<D>(dst, dst_stride, size, 1, 0, round_to<D>(lo));
    return kOk;
}

}  // namespace

TARN_BODIES(scale_u8, ScaleMap, u8_s16_f32, c1_c3_c4_c3x, scale_map<uint8_t, T, kForm>)
TARN_BODIES(scale_s16, ScaleMap, u8_s16_f32, c1_c3_c4_c3x, scale_map<int16_t, T, kForm>)
TARN_BODIES(scale_f32, ScaleMap, u8_s16_f32, c1_c3_c4_c3x, scale_map<float, T, kForm>)
TARN_BODIES(range_u8, RangeMap, u8_s16_f32, c1_c2_c3_c4_c3x, range_map<uint8_t, T, kForm>)
TARN_BODIES(range_s16, RangeMap, u8_s16_f32, c1_c2_c3_c4_c3x, range_map<int16_t, T, kForm>)
TARN_BODIES(range_f32, RangeMap, u8_s16_f32, c1_c2_c3_c4_c3x, range_map<float, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

// Linear mappings. A block of four vectors at a time is widened to float, mapped and narrowed in registers: the bits are those
// of a mapping by way of a float plane, without its traffic. Three vectors of scales and offsets hold the period of any
// channel count, so channels are never taken apart. A range costs a pass for the minimum and maximum and one to map.
#include "kernels/mapping.h"

#include "kernels/body.h"
#include "kernels/floats.h"
#include "kernels/stats.h"
#include "kernels/stream.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int kBlock = 4 * kFloats;
// Elements of a strip: whole pixels of any channel count, whole blocks, and little enough for the nearest cache.
constexpr int64_t kStrip = 1536;

// Scales and offsets of three vectors in a row, from those of the channels.
struct Line {
    Floats scale[3], offset[3];
    Line(const float* s, const float* o, int channels) {
        float scales[3 * kFloats], offsets[3 * kFloats];
        for (int e = 0; e < 3 * kFloats; ++e) {
            scales[e] = s[e % channels];
            offsets[e] = o[e % channels];
        }
        for (int j = 0; j < 3; ++j) {
            scale[j] = load(scales + j * kFloats);
            offset[j] = load(offsets + j * kFloats);
        }
    }
};

// Maps four vectors, of which the first meets entry j of the line.
template <class S, class D>
inline void map_block(const S* s, D* d, const Line& line, int j) {
    const auto mapped = [&](int v) {
        const int at = (j + v) % 3;
        return add(mul(load(s + v * kFloats), line.scale[at]), line.offset[at]);
    };
    const Floats a = mapped(0), b = mapped(1), c = mapped(2), e = mapped(3);
    store4(d, a, b, c, e);
}

// Maps n elements from the first channel on.
template <class S, class D>
void map_strip(const S* s, D* d, int64_t n, const Line& line) {
    int64_t i = 0;
    for (; i + 3 * kBlock <= n; i += 3 * kBlock) {
        map_block(s + i, d + i, line, 0);
        map_block(s + i + kBlock, d + i + kBlock, line, 1);
        map_block(s + i + 2 * kBlock, d + i + 2 * kBlock, line, 2);
    }
    // Four vectors on, the line is one entry further.
    for (int j = 0; j < 3 && i < n; ++j, i += kBlock) {
        if (i + kBlock <= n) {
            map_block(s + i, d + i, line, j);
        } else {
            S in[kBlock] = {};
            D out[kBlock];
            memcpy(in, s + i, size_t(n - i) * sizeof(S));
            map_block(in, out, line, j);
            memcpy(d + i, out, size_t(n - i) * sizeof(D));
        }
    }
}

// Where a constant is NaN, so is every result; which NaN would depend on the operands' order, so it is set.
void settle_nan(float* d, int64_t n, const float* scale, const float* offset, int channels) {
    for (int c = 0; c < channels; ++c)
        if (scale[c] != scale[c] || offset[c] != offset[c])
            for (int64_t i = c; i < n; i += channels) d[i] = __builtin_nanf("");
}
template <class D>
void settle_nan(D*, int64_t, const float*, const float*, int) {}

// A strip of scratch, given back at the end.
template <class D>
struct Strip {
    explicit Strip(const Allocator& from)
        : allocator(from), data(static_cast<D*>(from.allocate(from.context, kStrip * sizeof(D)))) {}
    ~Strip() {
        if (data) allocator.release(allocator.context, data);
    }
    Strip(const Strip&) = delete;
    Strip& operator=(const Strip&) = delete;
    const Allocator& allocator;
    D* data;
};

// kept: of four channels, the destination's fourth stays.
template <class S, class D, int kChannels, bool kKept>
void map_plane(D* strip, const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, const float* scale,
               const float* offset) {
    const Line line(scale, offset, kChannels);
    const int64_t elements = int64_t(size.width) * kChannels;
    const bool packed = src_stride == elements * int64_t(sizeof(S)) && dst_stride == elements * int64_t(sizeof(D));
    const Rows rows = packed ? Rows{1, elements * size.height} : Rows{size.height, elements};
    const bool streamed = !kKept && src != dst && rows.count * rows.length * int64_t(sizeof(D)) >= kStreamBytes;
    for (int64_t y = 0; y < rows.count; ++y) {
        const S* s = row<S>(src, src_stride, y);
        D* d = row<D>(dst, dst_stride, y);
        if (!kKept && !streamed) {
            map_strip(s, d, rows.length, line);
            settle_nan(d, rows.length, scale, offset, kChannels);
            continue;
        }
        for (int64_t i = 0; i < rows.length; i += kStrip) {
            const int64_t n = min(kStrip, rows.length - i);
            map_strip(s + i, strip, n, line);
            settle_nan(strip, n, scale, offset, kChannels);
            if (kKept) blend_c3x(strip, d + i, n / 4);
            else stream_row(reinterpret_cast<uint8_t*>(d + i), reinterpret_cast<const uint8_t*>(strip), n * int64_t(sizeof(D)));
        }
    }
    if (streamed) stream_end();
}

template <class S, class D, int kChannels, bool kKept>
Status scale_map(const Allocator& scratch, const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size,
                 const float* scale, const float* offset) {
    if (Status s = check(size, src, dst, scale, offset)) return s;
    const Strip<D> strip(scratch);
    if (!strip.data) return kNoMemory;
    // The fourth channel of four has no constants when it is kept.
    float s[kChannels], o[kChannels];
    for (int c = 0; c < kChannels; ++c) {
        const bool used = !kKept || c < 3;
        s[c] = used ? scale[c] : 1.0f;
        o[c] = used ? offset[c] : 0.0f;
    }
    map_plane<S, D, kChannels, kKept>(strip.data, src, src_stride, dst, dst_stride, size, s, o);
    return kOk;
}

template <class D>
void fill(void* dst, int32_t stride, Size size, D value) {
    for (int64_t y = 0; y < size.height; ++y) {
        D* d = row<D>(dst, stride, y);
        for (int64_t x = 0; x < size.width; ++x) d[x] = value;
    }
}

// Minimum and maximum by source type and channel count, at this level.
inline Status minmax(const uint8_t*, int channels, const void* s, int32_t stride, Size n, float* lo, float* hi) {
    return (channels == 1 ? minmax_u8_c1 : channels == 3 ? minmax_u8_c3 : minmax_u8_c4)(s, stride, n, lo, hi);
}
inline Status minmax(const int16_t*, int channels, const void* s, int32_t stride, Size n, float* lo, float* hi) {
    return (channels == 1 ? minmax_s16_c1 : channels == 3 ? minmax_s16_c3 : minmax_s16_c4)(s, stride, n, lo, hi);
}
inline Status minmax(const float*, int channels, const void* s, int32_t stride, Size n, float* lo, float* hi) {
    return (channels == 1 ? minmax_f32_c1 : channels == 3 ? minmax_f32_c3 : minmax_f32_c4)(s, stride, n, lo, hi);
}

// kPairs: the four elements of a pixel are two pixels of two channels.
template <class S, class D, int kChannels, bool kKept, bool kPairs>
Status range_map(const Allocator& scratch, const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size,
                 float lo, float hi) {
    if (Status s = check(size, src, dst)) return s;
    const Strip<D> strip(scratch);
    if (!strip.data) return kNoMemory;
    float smallest[kChannels], largest[kChannels], scale[kChannels], offset[kChannels];
    minmax(static_cast<const S*>(nullptr), kChannels, src, src_stride, size, smallest, largest);
    for (int c = 0; kPairs && c < 2; ++c) {
        // One of the two may be NaN, when its pixels are nothing else.
        const float s = smallest[c + 2], l = largest[c + 2];
        smallest[c] = smallest[c + 2] = s < smallest[c] || smallest[c] != smallest[c] ? s : smallest[c];
        largest[c] = largest[c + 2] = l > largest[c] || largest[c] != largest[c] ? l : largest[c];
    }
    for (int c = 0; c < kChannels; ++c) {
        const bool flat = !(largest[c] - smallest[c] > kFlat);
        if (flat && kChannels == 1) {
            fill(dst, dst_stride, size, saturate<D, float>(lo));
            return kOk;
        }
        scale[c] = flat ? 0.0f : (hi - lo) / (largest[c] - smallest[c]);
        offset[c] = flat ? lo : lo - scale[c] * smallest[c];
    }
    map_plane<S, D, kChannels, kKept>(strip.data, src, src_stride, dst, dst_stride, size, scale, offset);
    return kOk;
}

}  // namespace

#define SCALE(name, S, D, channels, kept)                                                                                   \
    Status name(const Allocator& scratch, const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size,    \
                const float* scale, const float* offset) {                                                                 \
        return scale_map<S, D, channels, kept>(scratch, src, src_stride, dst, dst_stride, size, scale, offset);             \
    }
#define RANGE(name, S, D, channels, kept, pairs)                                                                            \
    Status name(const Allocator& scratch, const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size,    \
                float lo, float hi) {                                                                                      \
        return range_map<S, D, channels, kept, pairs>(scratch, src, src_stride, dst, dst_stride, size, lo, hi);             \
    }
#define PAIR(S, s, D, d)                            \
    SCALE(scale_##s##_##d##_c1, S, D, 1, false)      \
    SCALE(scale_##s##_##d##_c3, S, D, 3, false)      \
    SCALE(scale_##s##_##d##_c4, S, D, 4, false)      \
    SCALE(scale_##s##_##d##_c3x, S, D, 4, true)      \
    RANGE(range_##s##_##d##_c1, S, D, 1, false, false) \
    RANGE(range_##s##_##d##_c2, S, D, 4, false, true)  \
    RANGE(range_##s##_##d##_c3, S, D, 3, false, false) \
    RANGE(range_##s##_##d##_c4, S, D, 4, false, false) \
    RANGE(range_##s##_##d##_c3x, S, D, 4, true, false)
PAIR(uint8_t, u8, uint8_t, u8)
PAIR(uint8_t, u8, int16_t, s16)
PAIR(uint8_t, u8, float, f32)
PAIR(int16_t, s16, uint8_t, u8)
PAIR(int16_t, s16, int16_t, s16)
PAIR(int16_t, s16, float, f32)
PAIR(float, f32, uint8_t, u8)
PAIR(float, f32, int16_t, s16)
PAIR(float, f32, float, f32)
#undef PAIR
#undef SCALE
#undef RANGE

}  // namespace tarn::k::TARN_LEVEL

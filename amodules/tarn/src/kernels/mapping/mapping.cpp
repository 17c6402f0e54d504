// Linear mappings. A block of four vectors at a time is widened to float, mapped and narrowed in registers: the bits
// are those of a mapping by way of a float plane, without its traffic. Three vectors of scales and offsets hold the
// period of any channel count, so channels are never taken apart. A range costs a pass for the minimum and maximum and
// one to map.
#include "kernels/mapping/mapping.h"

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"
#include "kernels/simd/floats.h"
#include "kernels/stats/stats.h"
#include "kernels/simd/stream.h"

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

#if defined(__AVX2__)
// Bytes to bytes, where arithmetic and not memory is the limit. A byte v under the bits of 2^23 is the float 2^23 + v,
// and fma(2^23 + v, scale, -2^23 scale) is v * scale rounded once, as the product alone would be: that saves the
// conversion. With results known to fit 32 bits none is cut off before packing. Bytes are spread so that packing puts
// them back in order.
struct ByteLine {
    Floats scale[3], back[3], offset[3];
    bool fits = true;
    ByteLine(const float* s, const float* o, int channels) {
        for (int c = 0; c < channels; ++c) {
            const float reach = (s[c] < 0 ? -s[c] : s[c]) * 255 + (o[c] < 0 ? -o[c] : o[c]);
            fits = fits && reach < 2e9f;  // not so with NaN
        }
        for (int j = 0; j < 3; ++j) {
            float scales[kFloats], backs[kFloats], offsets[kFloats];
            for (int e = 0; e < kFloats; ++e) {
                const int c = (16 * (e / 4) + 4 * j + e % 4) % channels;
                scales[e] = s[c];
                backs[e] = -8388608.0f * s[c];
                offsets[e] = o[c];
            }
            scale[j] = load(scales);
            back[j] = load(backs);
            offset[j] = load(offsets);
        }
    }
};

#if defined(__AVX512BW__)
// Bytes 4 at .. 4 at + 3 of each 128-bit lane, each as 2^23 + v.
inline Floats spread(Ints v, int at) {
    const Ints from = _mm512_add_epi8(_mm512_set4_epi32(3, 2, 1, 0), _mm512_set1_epi32(4 * at));
    return _mm512_castsi512_ps(_mm512_mask_shuffle_epi8(_mm512_set1_epi32(0x4b000000), 0x1111111111111111, v, from));
}
inline Ints rounded(Floats v, Floats scale, Floats back, Floats offset) {
    return _mm512_cvtps_epi32(_mm512_add_ps(_mm512_fmadd_ps(v, scale, back), offset));
}
inline Ints load_bytes(const uint8_t* s) { return _mm512_loadu_si512(s); }
inline Ints packed(Ints a, Ints b, Ints c, Ints d) {
    return _mm512_packus_epi16(_mm512_packs_epi32(a, b), _mm512_packs_epi32(c, d));
}
#else
inline Floats spread(Ints v, int at) {
    const Ints from =
        _mm256_add_epi32(_mm256_set_epi32(int(0x80808003), int(0x80808002), int(0x80808001), int(0x80808000),
                                          int(0x80808003), int(0x80808002), int(0x80808001), int(0x80808000)),
                         _mm256_set1_epi32(4 * at));
    return _mm256_castsi256_ps(_mm256_or_si256(_mm256_shuffle_epi8(v, from), _mm256_set1_epi32(0x4b000000)));
}
inline Ints rounded(Floats v, Floats scale, Floats back, Floats offset) {
    return _mm256_cvtps_epi32(_mm256_add_ps(_mm256_fmadd_ps(v, scale, back), offset));
}
inline Ints load_bytes(const uint8_t* s) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)); }
inline Ints packed(Ints a, Ints b, Ints c, Ints d) {
    return _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_packs_epi32(c, d));
}
#endif

// A block of which the first bytes meet entry j of the line; the next block is kBlock % 3 entries further.
inline void map_bytes(const uint8_t* s, uint8_t* d, const ByteLine& line, int j) {
    const Ints v = load_bytes(s);
    const auto mapped = [&](int at) {
        const int l = (j + at) % 3;
        return rounded(spread(v, at), line.scale[l], line.back[l], line.offset[l]);
    };
    const Ints a = mapped(0), b = mapped(1), c = mapped(2), e = mapped(3);
    store(d, packed(a, b, c, e));
}

void map_strip(const uint8_t* s, uint8_t* d, int64_t n, const ByteLine& line) {
    constexpr int kNext = kBlock % 3;
    int64_t i = 0;
    for (; i + 3 * kBlock <= n; i += 3 * kBlock) {
        map_bytes(s + i, d + i, line, 0);
        map_bytes(s + i + kBlock, d + i + kBlock, line, kNext);
        map_bytes(s + i + 2 * kBlock, d + i + 2 * kBlock, line, 2 * kNext);
    }
    for (int j = 0; i < n; j += kNext, i += kBlock) {
        if (i + kBlock <= n) {
            map_bytes(s + i, d + i, line, j);
        } else {
            uint8_t block[kBlock] = {};
            memcpy(block, s + i, size_t(n - i));
            map_bytes(block, block, line, j);
            memcpy(d + i, block, size_t(n - i));
        }
    }
}

#endif

// The mapping of strips: by bytes where that serves.
template <class S, class D>
struct Mapping {
    Mapping(const float* s, const float* o, int channels) : line(s, o, channels) {}
    void operator()(const S* s, D* d, int64_t n) const { map_strip(s, d, n, line); }
    Line line;
};
#if defined(__AVX2__)
template <>
struct Mapping<uint8_t, uint8_t> {
    Mapping(const float* s, const float* o, int channels) : line(s, o, channels), bytes(s, o, channels) {}
    void operator()(const uint8_t* s, uint8_t* d, int64_t n) const {
        if (bytes.fits)
            map_strip(s, d, n, bytes);
        else
            map_strip(s, d, n, line);
    }
    Line line;
    ByteLine bytes;
};
#endif

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
void map_plane(D* strip, const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size,
               const float* scale, const float* offset) {
    const Mapping<S, D> map(scale, offset, kChannels);
    const int64_t elements = int64_t(size.width) * kChannels;
    const bool packed = src_stride == elements * int64_t(sizeof(S)) && dst_stride == elements * int64_t(sizeof(D));
    const Rows rows = packed ? Rows{1, elements * size.height} : Rows{size.height, elements};
    const bool streamed = !kKept && src != dst && streams(rows.count * rows.length * int64_t(sizeof(D)));
    for (int64_t y = 0; y < rows.count; ++y) {
        const S* s = row<S>(src, src_stride, y);
        D* d = row<D>(dst, dst_stride, y);
        if (!kKept && !streamed) {
            map(s, d, rows.length);
            settle_nan(d, rows.length, scale, offset, kChannels);
            continue;
        }
        for (int64_t i = 0; i < rows.length; i += kStrip) {
            const int64_t n = min(kStrip, rows.length - i);
            map(s + i, strip, n);
            settle_nan(strip, n, scale, offset, kChannels);
            if (kKept)
                blend_c3x(strip, d + i, n / 4);
            else
                stream_row(d + i, strip, n * int64_t(sizeof(D)));
        }
    }
    if (streamed) stream_fence();
}

template <class S, class D, int kChannels, bool kKept>
Status scale_map(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, const float* scale,
                 const float* offset, const Allocator& scratch) {
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
Status range_map(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, float lo, float hi,
                 const Allocator& scratch) {
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

#define SCALE(name, S, D, channels, kept)                                                                          \
    Status name(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, const float* scale, \
                const float* offset, Allocator scratch) {                                                          \
        return scale_map<S, D, channels, kept>(src, src_stride, dst, dst_stride, size, scale, offset, scratch);    \
    }
#define RANGE(name, S, D, channels, kept, pairs)                                                                   \
    Status name(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, float lo, float hi, \
                Allocator scratch) {                                                                               \
        return range_map<S, D, channels, kept, pairs>(src, src_stride, dst, dst_stride, size, lo, hi, scratch);    \
    }
#define PAIR(S, s, D, d)                               \
    SCALE(scale_##s##_##d##_c1, S, D, 1, false)        \
    SCALE(scale_##s##_##d##_c3, S, D, 3, false)        \
    SCALE(scale_##s##_##d##_c4, S, D, 4, false)        \
    SCALE(scale_##s##_##d##_c3x, S, D, 4, true)        \
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

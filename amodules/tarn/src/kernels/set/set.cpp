// Fills. The constants' pattern spans three vectors, so every form is a stream of whole vectors. A mask is spread from
// pixels to elements: as bits for stores under a mask where the processor has them, else as bytes, by look-up, which
// say where the destination is blended.
#include "kernels/set/set.h"

#include "kernels/plane/channels.h"
#include "kernels/plane/pattern.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <bool kKept>
Status set_rows(Pattern constant, void* dst, int32_t dst_stride, Size size, int64_t pixel_bytes, Bytes colours) {
    const Rows rows = rows_of(size, Pitch{dst_stride, pixel_bytes});
    for (int64_t y = 0; y < rows.count; ++y) {
        store_each_phase<kKept>(row<uint8_t>(dst, dst_stride, y), rows.pixels * pixel_bytes, colours,
                                [&constant](auto, int64_t, auto phase) { return constant.v[phase.index]; });
    }
    return kOk;
}

template <class T, Form kForm>
Status set(const void* constant, void* dst, int32_t dst_stride, Size size) {
    if (Status s = check(size, constant, dst)) return s;
    return set_rows<kept(kForm)>(pattern_of_constants<T, kForm>(constant), dst, dst_stride, size, kPixelBytes<T, kForm>,
                                 colour_mask<T>());
}

// ---- Pixels that a mask selects -----------------------------------------------------------------------------------

// The n-th 64 elements from p on, as far as their bits are set.
template <class T>
void store_word(uint8_t* p, int n, auto bits, const Pattern& constant) {
    constexpr int kVectors = int(sizeof(T));
    for (int v = 0; v < kVectors; ++v) {
        const int i = n * kVectors + v;
        store_lanes<T>(p + 64 * i, bits >> v * (64 / kVectors & 63), constant.v[i % 3]);
    }
}

// With masks of bits: 64 mask bytes select the elements of as many words of 64 as a pixel has channels. The bits of the
// pixels are put at their first elements, then copied upwards over the channels that are set.
template <class T, Form kForm, class Mask>
void set_row_by_bits(uint8_t* d, const Mask* mask, int64_t n, const Pattern& constant) {
    constexpr uint64_t kUsed = (1 << used(kForm)) - 1;
    for (int64_t x = 0; x < n; x += 64) {
        const auto bits = nonzero_bits(load_n<Vec<Mask>>(mask + x, min<int64_t>(64, n - x)));
        if (bits == 0) continue;
        uint8_t* p = d + x * kPixelBytes<T, kForm>;
        if constexpr (kForm == Form::c1) {
            store_word<T>(p, 0, bits, constant);
        } else if constexpr (kForm == Form::c3) {
            // 21 pixels and a third fill a word: three words begin at channel 0, 1 and 2 of a pixel.
            constexpr uint64_t kFirst = 0x9249249249249249;
            store_word<T>(p, 0, deposit_bits(bits, kFirst) * kUsed, constant);
            store_word<T>(p, 1, deposit_bits(bits >> 22, kFirst << 2) * kUsed | (bits >> 21 & 1) * 3, constant);
            store_word<T>(p, 2, deposit_bits(bits >> 43, kFirst << 1) * kUsed | (bits >> 42 & 1), constant);
        } else {
            for (int word = 0; word < 4; ++word)
                store_word<T>(p, word, deposit_bits(bits >> word * 16, 0x1111111111111111) * kUsed, constant);
        }
    }
}

// For each byte of three vectors of pixels, its pixel, counted from the first in the vector; nothing for a channel that
// stays.
template <class T, Form kForm>
struct PixelIndex {
    uint8_t v[3][kVector];
    constexpr PixelIndex() : v{} {
        constexpr int64_t kBytes = kPixelBytes<T, kForm>;
        for (int64_t phase = 0; phase < 3; ++phase)
            for (int64_t j = 0; j < kVector; ++j) {
                const int64_t byte = phase * kVector + j;
                const bool stays = kept(kForm) && byte % kBytes / int64_t(sizeof(T)) == 3;
                v[phase][j] = stays ? 0x80 : uint8_t(byte / kBytes - phase * kVector / kBytes);
            }
    }
};

// Without look-up. The mask bytes of as many pixels as a vector has bytes, spread to the pixels' bytes: doubled by
// interleaving until there is a threefold left. kSize: bytes of each by now.
template <int kBytes, int kSize = 1>
inline void spread_mask(uint8_t* spread, Bytes mask) {
    if constexpr (kBytes == 1) {
        store(spread, mask);
    } else if constexpr (kBytes == 3) {
        Bytes v[] = {mask, mask, mask};
        together<kSize>(v);
        for (int i = 0; i < 3; ++i) store(spread + i * kVector, v[i]);
    } else {
        spread_mask<kBytes / 2, 2 * kSize>(spread, interleave_lower8(mask, mask));
        spread_mask<kBytes / 2, 2 * kSize>(spread + kVector * kBytes / 2, interleave_upper8(mask, mask));
    }
}

// With masks of bytes: n pixels, no more than a vector has bytes. Reads up to 16 mask bytes from any pixel on.
template <class T, Form kForm>
inline void set_pixels(uint8_t* d, const uint8_t* mask, int64_t n, const Pattern& constant) {
    static constexpr PixelIndex<T, kForm> index;
    constexpr int64_t kBytes = kPixelBytes<T, kForm>;
    [[maybe_unused]] uint8_t spread[kVector * kBytes];
    if constexpr (!kHasLookup) spread_mask<kBytes>(spread, load<Bytes>(mask));
    each_phase(n * kBytes, [&](auto io, int64_t i, auto phase) {
        Bytes chosen;
        if constexpr (!kHasLookup) {
            chosen = load<Bytes>(spread + i);
            if constexpr (kept(kForm)) chosen &= colour_mask<T>();
        } else if constexpr (kBytes == 1) {
            chosen = load<Bytes>(mask + i);
        } else {
            const int64_t three = i - phase.index * kVector, first = three / kBytes + phase.index * kVector / kBytes;
            chosen = lookup(every_group(mask + first), load<Bytes>(index.v[phase.index]));
        }
        io.store(d + i, select((Bytes)(chosen == Bytes{}), io.load(d + i), constant.v[phase.index]));
    });
}
template <class T, Form kForm, class Mask>
void set_row_by_bytes(uint8_t* d, const Mask* mask, int64_t n, const Pattern& constant) {
    constexpr int64_t kBytes = kPixelBytes<T, kForm>, kRead = kBytes == 1 || !kHasLookup ? kVector : kVector + 16;
    int64_t x = 0;
    for (; n - x >= kRead; x += kVector)
        if (!all_zero(load<Vec<Mask>>(mask + x))) set_pixels<T, kForm>(d + x * kBytes, mask + x, kVector, constant);
    for (; x < n; x += kVector) {  // the last vector overlaps the one before it
        const int64_t from = overlapped(x, n);
        if (n >= kRead && kRead == kVector)
            return set_pixels<T, kForm>(d + from * kBytes, mask + from, kVector, constant);
        uint8_t rest[kVector + 16] = {};
        if (n >= kVector)
            memcpy(rest, mask + from, kVector);
        else if constexpr (kBytes <= 6)
            store(rest, load_n<Bytes>(mask, n));
        else  // larger pixels read it so often that most loads would wait for that store
            memcpy(rest, mask, size_t(n));
        set_pixels<T, kForm>(d + from * kBytes, rest, min(kVector, n), constant);
    }
}

template <class T, Form kForm>
Status masked_set(const void* constant, void* dst, int32_t dst_stride, Size size, const void* mask,
                  int32_t mask_stride) {
    if (Status s = check(size, constant, dst, mask)) return s;
    const Pattern pattern = pattern_of_constants<T, kForm>(constant);
    const Rows rows = rows_of(size, Pitch{dst_stride, kPixelBytes<T, kForm>}, Pitch{mask_stride, 1});
    for (int64_t y = 0; y < rows.count; ++y) {
        uint8_t* d = row<uint8_t>(dst, dst_stride, y);
        const uint8_t* m = row<uint8_t>(mask, mask_stride, y);
        if constexpr (kHasLaneBits)
            set_row_by_bits<T, kForm>(d, m, rows.pixels, pattern);
        else
            set_row_by_bytes<T, kForm>(d, m, rows.pixels, pattern);
    }
    return kOk;
}

}  // namespace

TARN_BODIES(set, Fill, u8_s16_s32, c1_c3_c3x, set<T, kForm>)
TARN_BODIES(set_m, MaskedSet, u8_s16_s32, c1_c3_c3x, masked_set<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

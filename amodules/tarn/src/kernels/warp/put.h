// For the warp sources only: pixels that are moved whole: as integers, and put where they go.
#pragma once

#include "kernels/plane/store.h"
#include "kernels/warp/whole.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// An unsigned integer of so many bytes.
template <int kBytes>
struct Bits;
template <>
struct Bits<1> {
    using Type = uint8_t;
};
template <>
struct Bits<2> {
    using Type = uint16_t;
};
template <>
struct Bits<4> {
    using Type = uint32_t;
};
template <>
struct Bits<8> {
    using Type = uint64_t;
};
template <>
struct Bits<16> {
    struct Type {
        uint64_t halves[2];
    };
};

// Puts pixels into the destination as the warp's form and type have it.
class Put {
public:
    explicit Put(const Carry& c)
        : colours_(c.pixel_bytes == 4   ? colour_mask<uint8_t>()
                   : c.pixel_bytes == 8 ? colour_mask<int16_t>()
                                        : colour_mask<float>()),
          kept_(c.kept),
          settled_(c.settled) {}

    void operator()(uint8_t* d, const uint8_t* s, int64_t n) const {
        if (settled_) return kept_ ? put<true, true>(d, s, n) : put<false, true>(d, s, n);
        if (kept_) return put<true, false>(d, s, n);
        memcpy(d, s, size_t(n));
    }

private:
    template <bool kKept, bool kSettled>
    void put(uint8_t* d, const uint8_t* s, int64_t n) const {
        store_each<kKept>(d, n, colours_, [=](auto io, int64_t i) {
            const Bytes v = io.load(s + i);
            return kSettled ? (Bytes)settle_nan((F32)v) : v;
        });
    }

    Bytes colours_;
    bool kept_, settled_;
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

// For the resize sources only: where outputs lie in the source, what a call is made of, and its scratch memory.
#pragma once

#include "kernels/body.h"
#include "kernels/resize.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The arguments of a call.
struct Job {
    const void* src;
    int32_t src_stride;
    Size src_size;
    Region region;
    void* dst;
    int32_t dst_stride;
    Size dst_size;
    const Allocator& allocator;
};

[[maybe_unused]] inline Status check(const Job& j) {
    if (Status s = check(j.src_size, j.src, j.dst)) return s;
    const Region& r = j.region;
    if (j.dst_size.width <= 0 || j.dst_size.height <= 0 || r.width <= 0 || r.height <= 0) return kBadSize;
    const bool inside =
        r.x >= 0 && r.y >= 0 && r.width <= j.src_size.width - r.x && r.height <= j.src_size.height - r.y;
    return inside ? kOk : kBadArg;
}

[[maybe_unused]] inline bool same_size(const Job& j) {
    return j.dst_size.width == j.region.width && j.dst_size.height == j.region.height;
}

[[maybe_unused]] inline bool halves(const Job& j) {
    return j.region.width == 2 * int64_t(j.dst_size.width) && j.region.height == 2 * int64_t(j.dst_size.height);
}

// Positions of consecutive outputs d on an axis that maps `from` source pixels to `to` outputs, relative to the
// region's first pixel: ((2d + 1) from - offset) / (2 to), as a whole number and a rest below `denominator`. offset 0
// gives (d + 0.5) / factor, offset `to` that less 0.5. All in integers, so no step loses anything: the product stays
// below 2^63.
struct Walk {
    int64_t whole, rest, step_whole, step_rest, denominator;

    Walk(int64_t from, int64_t to, int64_t offset, int64_t first)
        : step_whole(from / to), step_rest(2 * (from % to)), denominator(2 * to) {
        const int64_t at = (2 * first + 1) * from - offset;
        whole = at >= 0 ? at / denominator : -1;  // offset <= to: never below -1/2
        rest = at - whole * denominator;
    }
    void next() {
        whole += step_whole;
        rest += step_rest;
        if (rest >= denominator) {
            rest -= denominator;
            ++whole;
        }
    }
};

// Scratch memory, carved from one block. First add up what is wanted, then allocate, then take in the same order.
class Scratch {
public:
    explicit Scratch(const Allocator& a) : allocator_(a) {}
    ~Scratch() {
        if (block_) allocator_.release(allocator_.context, block_);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    template <class T>
    void want(int64_t count) {
        bytes_ += padded(count * int64_t(sizeof(T)));
    }
    bool allocate() {
        block_ = static_cast<uint8_t*>(allocator_.allocate(allocator_.context, uint64_t(bytes_)));
        return block_ != nullptr;
    }
    template <class T>
    T* take(int64_t count) {
        uint8_t* at = block_ + taken_;
        taken_ += padded(count * int64_t(sizeof(T)));
        return reinterpret_cast<T*>(at);
    }

private:
    static int64_t padded(int64_t bytes) { return (bytes + 63) & ~int64_t(63); }
    const Allocator& allocator_;
    uint8_t* block_ = nullptr;
    int64_t bytes_ = 0, taken_ = 0;
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

// For kernel sources only: a kernel's scratch memory, carved from one block of the caller's allocator. First add up what is
// wanted, then allocate, then take in the same order. Given back at the end; 64-byte aligned, not cleared.
#pragma once

#include "kernels/base/body.h"

namespace tarn::k::TARN_LEVEL {
namespace {

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

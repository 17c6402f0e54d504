// For kernel sources only: a kernel's scratch memory, arrays carved from one block of the caller's allocator. Given
// back at the end; 64-byte aligned, not cleared.
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

    // arrays(part) calls part(pointer, count) for each array, whose pointer is then set; false when there is no memory.
    template <class Arrays>
    bool carve(Arrays arrays) {
        int64_t bytes = 0;
        arrays([&](auto*& p, int64_t count) { bytes += padded(count * int64_t(sizeof *p)); });
        block_ = static_cast<uint8_t*>(allocator_.allocate(allocator_.context, uint64_t(bytes)));
        if (!block_) return false;
        uint8_t* next = block_;
        arrays([&](auto*& p, int64_t count) {
            p = reinterpret_cast<decltype(&*p)>(next);
            next += padded(count * int64_t(sizeof *p));
        });
        return true;
    }

private:
    static int64_t padded(int64_t bytes) { return (bytes + 63) & ~int64_t(63); }
    const Allocator& allocator_;
    uint8_t* block_ = nullptr;
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

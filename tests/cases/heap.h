// Scratch memory for kernels that take some. It is full of what no kernel wrote.
#pragma once

#include <cstdlib>
#include <cstring>

#include "kernels/base/kernel.h"

namespace tarn::cases {

inline k::Allocator heap() {
    const auto allocate = [](void*, uint64_t bytes) {
        const size_t whole = size_t((bytes + 63) & ~uint64_t(63));
        void* block = std::aligned_alloc(64, whole);
        return block ? std::memset(block, 0xa5, whole) : nullptr;
    };
    return {allocate, [](void*, void* block) { std::free(block); }, nullptr};
}

}  // namespace tarn::cases

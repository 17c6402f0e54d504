// Scratch memory for kernels that take some.
#pragma once

#include <cstdlib>

#include "kernels/base/kernel.h"

namespace tarn::cases {

inline k::Allocator heap() {
    return {[](void*, uint64_t bytes) { return std::aligned_alloc(64, size_t((bytes + 63) & ~uint64_t(63))); },
            [](void*, void* block) { std::free(block); }, nullptr};
}

}  // namespace tarn::cases

// For kernel sources only: stores that go around the cache. They pay where so much is read and written that it would
// evict everything anyway (stream_bytes, runtime.h), and lose below that.
#pragma once

#include "kernels/base/runtime.h"
#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Whether the output goes around the cache where so many bytes are read and written altogether. To be asked once per
// call.
inline bool streams(int64_t bytes) { return bytes >= stream_bytes; }

// Copies a row around the cache, in whole lines: one that is stored half around the cache and half into it costs 0.2
// us. Source and destination must not overlap. Behind the last row: stream_fence().
[[maybe_unused]] void stream_row(void* TARN_RESTRICT dst, const void* TARN_RESTRICT src, int64_t n) {
    uint8_t* d = static_cast<uint8_t*>(dst);
    const uint8_t* s = static_cast<const uint8_t*>(src);
    constexpr int64_t kLine = 64;
    int64_t i = min<int64_t>(n, -reinterpret_cast<intptr_t>(d) & (kLine - 1));
    memcpy(d, s, size_t(i));
    for (; i + kLine <= n; i += kLine)
        for (int64_t j = i; j < i + kLine; j += kVector) stream(d + j, load<Bytes>(s + j));
    memcpy(d + i, s + i, size_t(n - i));
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

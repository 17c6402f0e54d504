// For kernel sources only: stores that go around the cache. They pay where the output is so large that it would evict
// everything anyway, and lose below that.
#pragma once

#include "kernels/base/body.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Outputs of at least so many bytes bypass the cache.
constexpr int64_t kStreamBytes = int64_t(16) << 20;

// Copies a row past the cache. Source and destination must not overlap. Finish a plane with stream_end.
[[maybe_unused]] void stream_row(uint8_t* TARN_RESTRICT dst, const uint8_t* TARN_RESTRICT src, int64_t n) {
#if defined(__AVX512F__)
    constexpr int64_t kStep = 64;
#define TARN_STREAM(d, s) _mm512_stream_si512(reinterpret_cast<__m512i*>(d), _mm512_loadu_si512(s))
#elif defined(__AVX2__)
    constexpr int64_t kStep = 32;
#define TARN_STREAM(d, s) \
    _mm256_stream_si256(reinterpret_cast<__m256i*>(d), _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)))
#elif defined(__SSE2__)
    constexpr int64_t kStep = 16;
#define TARN_STREAM(d, s) \
    _mm_stream_si128(reinterpret_cast<__m128i*>(d), _mm_loadu_si128(reinterpret_cast<const __m128i*>(s)))
#else
    constexpr int64_t kStep = 1;
#define TARN_STREAM(d, s) *(d) = *(s)
#endif
    const int64_t head = min<int64_t>(n, -reinterpret_cast<intptr_t>(dst) & (kStep - 1));
    memcpy(dst, src, size_t(head));
    int64_t i = head;
    for (; i + kStep <= n; i += kStep) TARN_STREAM(dst + i, src + i);
    memcpy(dst + i, src + i, size_t(n - i));
#undef TARN_STREAM
}

// Makes streamed rows visible before whatever follows.
[[maybe_unused]] inline void stream_end() {
#if defined(__SSE2__)
    _mm_sfence();
#endif
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

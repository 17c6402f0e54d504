// Nearest-neighbour warp. It moves whole pixels, so one body per pixel size serves all element types.
#include "kernels/warp/walk.h"

namespace tarn::k::TARN_LEVEL {
namespace {

template <int kBytes, bool kFourthStays>
struct Nearest {
    static constexpr bool kKept = kFourthStays, kSettled = false;
    static constexpr int kPixel = kBytes, kTaps = 1;
    static constexpr double kBiasX = 0.5, kBiasY = 0.5;
    static constexpr bool kFractions = false;
    // Pixels of 3, 6 and 12 bytes are moved as 4, 8 and 16, whose end the next pixel overwrites.
    static constexpr bool kThrees = kBytes % 3 == 0;
    static constexpr int kBeyond = kThrees ? 1 : 0;
    using Rows = int;

    void run(const uint8_t* base, int64_t, Points& points, int64_t from, int64_t to, uint8_t* d) const {
        constexpr int kMoved = kThrees ? kBytes / 3 * 4 : kKept ? kBytes / 4 * 3 : kBytes;
        const int32_t* at = points.at();
        int64_t i = from;
#pragma GCC unroll 4
        for (; i < to - 1; ++i, d += kBytes) memcpy(d, base + at[i], kMoved);
        memcpy(d, base + at[i], kThrees ? kBytes : kMoved);
    }
};

}  // namespace

TARN_BODIES(warp_nearest, Warp, u8_s16_f32, c1_c3_c4_c3x,
            warp<walk<Nearest<channels(kForm) * int(sizeof(T)), kept(kForm)>>>)

}  // namespace tarn::k::TARN_LEVEL

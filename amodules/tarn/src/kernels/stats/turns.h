// For the statistics' sources only: rows walked in turns of several vectors. When a turn holds whole pixels, a lane
// always meets the same channel, and channels need not be taken apart before the end. The end of a row is filled up to
// a turn.
#pragma once

#include "kernels/plane/plane.h"
#include "kernels/simd/simd.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// The vectors of a turn, under one set of names: a whole one, and the end of a row, of which `bytes` are there.
struct WholeTurn {
    const uint8_t* p;
    template <class V>
    V vector(int j, V) const {
        return load<V>(p + j * kVector);
    }
};
struct LastTurn {
    const uint8_t* p;
    int64_t bytes;
    template <class V>
    V vector(int j, V fill) const {
        const int64_t n = min(bytes - j * kVector, kVector);
        return n > 0 ? load_n(p + j * kVector, n, fill) : fill;
    }
};

// take(turn) for every kVectors vectors of every row; empty() before lanes have taken more than `rounds` turns, and at
// the end.
template <int kVectors, class Take, class Empty>
inline void each_turn(const void* src, int32_t stride, int64_t row_count, int64_t row_bytes, int64_t rounds, Take take,
                      Empty empty) {
    constexpr int64_t kTurn = kVectors * kVector;
    int64_t room = rounds;
    const auto taken = [&](int64_t turns) {
        if ((room -= turns) == 0) {
            empty();
            room = rounds;
        }
    };
    for (int64_t y = 0; y < row_count; ++y) {
        const uint8_t* s = row<uint8_t>(src, stride, y);
        int64_t left = row_bytes;
        while (left >= kTurn) {
            const int64_t turns = min(left / kTurn, room);
            for (const uint8_t* end = s + turns * kTurn; s != end; s += kTurn) take(WholeTurn{s});
            left -= turns * kTurn;
            taken(turns);
        }
        if (left) {
            take(LastTurn{s, left});
            taken(1);
        }
    }
    empty();
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

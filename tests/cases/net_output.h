// One output of a fully connected layer, in the order that the product is defined by.
#pragma once

#include <cmath>

namespace tarn::cases {

// step: floats from one element to the next. std::fma is exact with or without the instruction.
inline float net_output(const float* x, const float* w, int k, int step = 1) {
    float lanes[16] = {};
    for (int i = 0; i < (k + 15) / 16 * 16; ++i)
        lanes[i % 16] = std::fma(i < k ? x[i * step] : 0.0f, i < k ? w[i * step] : 0.0f, lanes[i % 16]);
    for (int apart = 8; apart > 0; apart /= 2)
        for (int l = 0; l < apart; ++l) lanes[l] += lanes[l + apart];
    return lanes[0];
}

}  // namespace tarn::cases

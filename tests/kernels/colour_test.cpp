// Grey of every colour of bytes: the one place where a rounding is right by enumeration only.
#include <gtest/gtest.h>

#include "cases/colour.h"
#include "kernels/check.h"

using namespace tarn;

TEST(grey, of_every_colour_is_the_nearest_with_ties_to_even) {
    std::vector<uint8_t> pixels(3 * 65536), rgb(65536), bgr(65536);
    test::at_every_level([&](int level) {
        int64_t wrong = 0;
        for (int g = 0; g < 256; ++g) {
            for (int i = 0; i < 65536; ++i) {
                uint8_t* p = &pixels[size_t(3 * i)];
                p[0] = uint8_t(i >> 8), p[1] = uint8_t(g), p[2] = uint8_t(i);
            }
            k::rgb_to_grey_u8_c3(pixels.data(), 3 * 256, rgb.data(), 256, {256, 256});
            k::bgr_to_grey_u8_c3(pixels.data(), 3 * 256, bgr.data(), 256, {256, 256});
            for (int i = 0; i < 65536; ++i)
                wrong += rgb[size_t(i)] != cases::grey_of(i >> 8, g, i & 255) ||
                         bgr[size_t(i)] != cases::grey_of(i & 255, g, i >> 8);
        }
        EXPECT_EQ(wrong, 0) << "level " << level;
    });
}

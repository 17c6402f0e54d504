// Contour find against another way to find outlines (contours_reference.h): on every small image, on random ones, on
// real pictures.
#include "ipp/contours_collector.h"

#include "image.h"

using namespace tarn::test;

namespace {

std::string show(const Bitmap& m) {
    if (m.width > 70 || m.height > 70) return {};
    std::string text;
    for (int y = 0; y < m.height; ++y, text += '\n')
        for (int x = 0; x < m.width; ++x) text += m.at(x, y) ? '#' : '.';
    return text;
}
// Finds outlines and compares them with the reference's. True when all is well.
bool matches_reference(const Bitmap& m, uint32_t flags) {
    Collector out;
    EXPECT_EQ(find_contours(&out, m, flags), 0);
    EXPECT_TRUE(out.held.empty());
    const auto got = out.outlines(), want = reference_outlines(m, flags);
    const bool same = got == want && !testing::Test::HasFailure();
    EXPECT_TRUE(same) << "flags " << flags << ": " << got.size() << " outlines, should be " << want.size()
                      << ", first other one "
                      << std::mismatch(got.begin(), got.end(), want.begin(), want.end()).first - got.begin() << "\n"
                      << show(m);
    return same;
}

}  // namespace

TEST(contours, of_every_image_up_to_4_x_4) {
    const int step = kSlowBuild ? 61 : 1;
    for (int h = 1; h <= 4; ++h)
        for (int w = 1; w <= 4; ++w)
            for (int bits = 0; bits<1 << (w * h); bits += w * h> 9 ? step : 1) {
                Bitmap m{w, h, std::vector<uint8_t>(size_t(w * h))};
                for (int i = 0; i < w * h; ++i) m.pixels[size_t(i)] = bits >> i & 1;
                for (uint32_t flags : kContourFlags)
                    if (!matches_reference(m, flags)) return;
            }
}

TEST(contours, of_random_images_of_every_width_and_density) {
    unsigned seed = 1;
    for (int w = 1; w <= 70; w += kSlowBuild ? 9 : 1)
        for (double density : {0.05, 0.2, 0.35, 0.5, 0.65, 0.8, 0.95}) {
            ++seed;
            const Bitmap m = noise(w, 1 + int(seed % 23), density, seed);
            const Bitmap row = noise(w, 1, density, seed), column = noise(1, w, density, seed);
            for (uint32_t flags : kContourFlags)
                if (!matches_reference(m, flags) || !matches_reference(row, flags) || !matches_reference(column, flags))
                    return;
        }
    for (double density : {0.3, 0.42, 0.5, 0.6}) {
        seed += 2;
        // Blocks make larger regions, with more in them, than single pixels do.
        const Bitmap fine = noise(kSlowBuild ? 40 : 131, 60, density, seed), coarse = noise(40, 40, density, seed + 1);
        const Bitmap blocks = drawn(
            80, 70, [&](int x, int y) { return coarse.at(x / 2, y / 2) ^ fine.at(x / 2, y % 60) * (x % 7 == 0); });
        for (uint32_t flags : kContourFlags)
            if (!matches_reference(fine, flags) || !matches_reference(blocks, flags)) return;
    }
}

TEST(contours, of_real_pictures) {
    for (const char* name : {"coffee.png", "horse.png", "rocket.jpg"}) {
        const auto image = tarn::tool::read_image(std::string(TARN_SAMPLES) + "/" + name);
        const int channels = image.shape.channels;
        for (int threshold : {60, 120, 180}) {
            const Bitmap m = drawn(image.width(), image.height() / (kSlowBuild ? 4 : 1),
                                   [&](int x, int y) { return image.row(y)[x * channels] > threshold; });
            for (uint32_t flags : {1u, 9u, 2u, 0u, 4u, 8u})
                if (!matches_reference(m, flags)) return;
        }
    }
}

TEST(contours, begin_and_run_as_documented) {
    // A pixel at (2, 1).
    Collector pixel;
    ASSERT_EQ(find_contours(&pixel, picture({"....", "..#.", "...."}), TARN_CONTOURS_OF_ONES), 0);
    ASSERT_EQ(pixel.nodes.size(), 1u);
    EXPECT_EQ(pixel.nodes[0].as_delivered, (Points{{2, 2}, {2, 1}, {3, 1}, {3, 2}}));
    EXPECT_EQ(pixel.nodes[0].outline.value, 1);

    // The frame is no outline, and pixels that touch at a corner are one region or two.
    for (const auto& [image, flags, outlines] : {std::tuple{picture({"##", "##"}), 1u, 0u},
                                                 {picture({"##", "##"}), 2u, 0u},
                                                 {picture({"#.", ".#"}), 5u, 2u},
                                                 {picture({"#.", ".#"}), 9u, 1u},
                                                 {picture({"#.", ".#"}), 0u, 4u},
                                                 {picture({"#.", ".#"}), 12u, 2u}}) {
        Collector out;
        ASSERT_EQ(find_contours(&out, image, flags), 0);
        EXPECT_EQ(out.nodes.size(), outlines) << show(image) << "flags " << flags;
    }

    // A ring: its hole is value 0 and comes first, since it closes first; with both values once, as the region's own
    // outline.
    const Bitmap ring = picture({".....", ".###.", ".#.#.", ".###.", "....."});
    for (uint32_t flags : {1u, 3u, 0u}) {
        Collector out;
        ASSERT_EQ(find_contours(&out, ring, flags), 0);
        ASSERT_EQ(out.nodes.size(), 2u) << flags;
        EXPECT_EQ(out.nodes[0].outline.value, 0);
        EXPECT_EQ(out.nodes[0].outline.kind, flags ? 1 : 0);
        EXPECT_EQ(out.nodes[0].parent, 1);
        EXPECT_EQ(out.nodes[1].outline.value, 1);
        EXPECT_TRUE(out.nodes[1].top);
        EXPECT_EQ(out.nodes[0].as_delivered,
                  flags ? (Points{{3, 3}, {3, 2}, {2, 2}, {2, 3}}) : (Points{{2, 3}, {2, 2}, {3, 2}, {3, 3}}));
    }
}

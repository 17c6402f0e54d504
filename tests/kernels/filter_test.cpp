// What the filters' cases leave open: masks and anchors that are refused, memory that can't be had, sums and counts
// under masks so large that those of the cases' masks would not hold their cells, images higher than those of the
// cases.
#include "kernels/filter/filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include "cases/filter.h"
#include "kernels/check.h"

namespace {

using namespace tarn;

template <class F>
void each_kernel(F f) {
    for (const auto* set : {&k::box_kernels, &k::filter_min_kernels, &k::filter_max_kernels, &k::median_kernels})
        for (const auto& forms : set->cells)
            for (const k::Kernel<k::Filter>* kernel : forms)
                if (kernel) f(*kernel);
}

TEST(filter, refuses_masks_without_cells_and_anchors_outside) {
    each_kernel([](const k::Kernel<k::Filter>& kernel) {
        std::vector<uint8_t> src(4096), dst(64, 7);
        const auto call = [&](k::Size mask, k::Offset anchor, const k::Allocator& a) {
            return kernel(src.data() + 2048, 32, dst.data(), 16, k::Size{1, 1}, mask, anchor, a);
        };
        for (const k::Size mask : {k::Size{0, 3}, {3, 0}, {-1, 3}, {3, INT32_MIN}})
            EXPECT_EQ(call(mask, {0, 0}, cases::heap()), k::kBadArg);
        for (const k::Offset anchor : {k::Offset{3, 0}, {-1, 0}, {0, 2}, {0, -1}})
            EXPECT_EQ(call({3, 2}, anchor, cases::heap()), k::kBadArg);
        const k::Allocator none{[](void*, uint64_t) -> void* { return nullptr; }, [](void*, void*) {}, nullptr};
        EXPECT_EQ(call({40, 40}, {0, 0}, none), k::kNoMemory);
        EXPECT_EQ(std::count(dst.begin(), dst.end(), 7), 64);
    });
}

// A source whose rows are all the same memory can be as high as one likes. All elements are `most` but every `step`th,
// which are zero.
template <class T>
void check_huge(const k::Kernel<k::Filter>& kernel, T most, k::Size mask, int step) {
    constexpr int kWidth = 37;
    std::vector<T> src(size_t(mask.width + kWidth - 1), most), dst(kWidth);
    for (size_t i = 0; i < src.size(); i += size_t(step)) src[i] = 0;
    test::at_every_level([&](int level) {
        ASSERT_EQ(kernel(src.data(), 0, dst.data(), 0, k::Size{kWidth, 1}, mask, k::Offset{0, 0}, cases::heap()),
                  k::kOk);
        for (int x = 0; x < kWidth; ++x) {
            const auto zeros = std::count(src.begin() + x, src.begin() + x + mask.width, T(0));
            // Not a tie: the width is odd.
            const double mean = double(most) * double(mask.width - zeros) / mask.width;
            ASSERT_EQ(dst[size_t(x)], T(std::nearbyint(mean))) << "level " << level << ", pixel " << x;
        }
    });
}

TEST(filter, box_sums_beyond_32_bits) {
    check_huge<uint8_t>(k::box_u8_c1, 255, {4099, 4100}, 3);
    check_huge<int16_t>(k::box_s16_c1, -32768, {401, 400}, 7);
    check_huge<int16_t>(k::box_s16_c1, 32767, {401, 400}, 400);
}

// Rows that begin a mask's width on from each other are one: the sums under the mask are those of so many neighbours.
// Of values that stay for as many, every sum there is.
template <class T>
void check_every_sum(const k::Kernel<k::Filter>& box, k::Size mask) {
    constexpr int kLeast = std::numeric_limits<T>::min(), kMost = std::numeric_limits<T>::max();
    const int area = mask.width * mask.height, width = (kMost - kLeast) * area + 1;
    std::vector<T> src(size_t(width + area)), wanted(size_t(width), 0), out(wanted);
    for (size_t i = 0; i < src.size(); ++i) src[i] = T(std::min(kLeast + int64_t(i) / area, int64_t(kMost)));
    for (int sum = 0; sum < width; ++sum) {
        const int rest = sum % area * 2, lower = kLeast + sum / area;
        wanted[size_t(sum)] = T(lower + (rest > area || (rest == area && lower % 2)));
    }
    test::at_every_level([&](int level) {
        ASSERT_EQ(box(src.data(), mask.width * int32_t(sizeof(T)), out.data(), 0, k::Size{width, 1}, mask,
                      k::Offset{0, 0}, cases::heap()),
                  k::kOk);
        EXPECT_TRUE(out == wanted) << mask.width << " x " << mask.height << " at level " << level;
    });
}

TEST(filter, box_means_of_every_sum) {
    for (const k::Size mask : {k::Size{8, 23},
                               {17, 11},
                               {15, 15},
                               {16, 16},
                               {2, 257},
                               {40, 9},
                               {201, 3},
                               {31, 31},
                               {64, 64},
                               {63, 257},
                               {65, 254},
                               {127, 129},
                               {128, 128}})
        check_every_sum<uint8_t>(k::box_u8_c1, mask);
    for (const k::Size mask : {k::Size{13, 13}, {2, 85}, {57, 3}}) check_every_sum<int16_t>(k::box_s16_c1, mask);
}

// Rows of values that go up by steps: the median is the middle column's.
template <class T>
void median_of_steps(const k::Kernel<k::Filter>& median, k::Size mask) {
    constexpr int kWidth = 40;
    const int columns = kWidth + mask.width - 1, step = columns / 120 + 1;
    std::vector<T> row;
    for (int x = 0; x < columns; ++x) row.push_back(T(x / step));
    test::at_every_level([&](int level) {
        T result[2][kWidth] = {};
        ASSERT_EQ(median(row.data(), 0, result, sizeof result[0], {kWidth, 2}, mask, {0, 0}, cases::heap()), k::kOk);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < kWidth; ++x)
                ASSERT_EQ(result[y][x], T((x + (mask.width - 1) / 2) / step))
                    << "level " << level << ", mask " << mask.width << " x " << mask.height << " at " << x << ", " << y;
    });
}

// A case at a size of its own, over these elements.
template <class T>
void check_on(std::vector<T>& in, k::Size size, const cases::Case& c) {
    const int channels = c.planes[0].elements;
    std::vector<T> out(size_t(size.width * size.height * channels)), wanted(out);
    const auto views = [&](std::vector<T>& results) {
        const auto view = [=](std::vector<T>& v, k::Size n) {
            return cases::View{reinterpret_cast<uint8_t*>(v.data()), int32_t(n.width * channels * sizeof(T)), n};
        };
        return std::vector{view(in, c.planes[0].size(size)), view(results, size)};
    };
    c.expect(views(wanted).data(), size);
    test::at_every_level([&](int level) {
        ASSERT_EQ(c.run(views(out).data(), size), k::kOk);
        EXPECT_EQ(out, wanted) << c.name << " at level " << level;
    });
}

// One of one channel, over runs of equal elements.
template <class T>
void check_at(k::Size size, const cases::Case& c) {
    const k::Size source = c.planes[0].size(size);
    std::mt19937 rng(1);
    std::vector<T> in(size_t(source.width * source.height));
    for (T& v : in) v = T(rng() % 3 ? rng() >> 4 : 7);
    check_on(in, size, c);
}

// More rows, or pixels in a row, than are worked on at a time.
TEST(filter, medians_of_many_rows) {
    const auto check = [](k::Size size, k::Size mask) {
        const cases::Mask at = {mask, {mask.width / 2, 0}};
        const auto median = cases::LowerMedian{};
        check_at<uint8_t>(size, cases::filter_case<uint8_t>("u8", k::median_u8_c1, 1, false, at, median));
        check_at<int16_t>(size, cases::filter_case<int16_t>("s16", k::median_s16_c1, 1, false, at, median));
    };
    check({5, 700}, {9, 5});
    for (const int side : {7, 9, 11, 13}) check({83, 75}, {side, side});
}

TEST(filter, means_of_many_rows_and_long_ones) {
    for (const k::Size mask : {k::Size{9, 4}, {30, 9}}) {
        const cases::Mask at = {mask, {0, 0}};
        check_at<uint8_t>({6200, 35}, cases::filter_case<uint8_t>("u8", k::box_u8_c1, 1, false, at, cases::Mean{}));
        check_at<int16_t>({6200, 35}, cases::filter_case<int16_t>("s16", k::box_s16_c1, 1, false, at, cases::Mean{}));
    }
}

// Sums of whole numbers are exact, in any order.
TEST(filter, float_means_of_many_rows_and_long_ones) {
    const auto mean = [](const std::vector<float>& w) {
        return float(std::accumulate(w.begin(), w.end(), 0.0) * (1.0 / double(w.size())));
    };
    for (const k::Size mask : {k::Size{9, 6}, {7, 28}, {12, 35}})
        check_at<float>({620, 45}, cases::filter_case<float>("f32", k::box_f32_c1, 1, false, {mask, {0, 0}}, mean));
}

TEST(filter, minima_of_long_rows) {
    const auto least = [](const std::vector<int16_t>& w) { return *std::min_element(w.begin(), w.end()); };
    for (const k::Size mask : {k::Size{3, 3}, {9, 4}})
        check_at<int16_t>({25000, 5},
                          cases::filter_case<int16_t>("s16", k::filter_min_s16_c1, 1, false, {mask, {0, 0}}, least));
}

TEST(filter, medians_of_more_than_65535) {
    for (const k::Size mask : {k::Size{260, 255}, {257, 255}, {255, 256}, {700, 300}, {3, 70000}, {40000, 2}}) {
        median_of_steps<uint8_t>(k::median_u8_c1, mask);
        median_of_steps<int16_t>(k::median_s16_c1, mask);
    }
}

// Floats by their bits: ordinary ones, and a few that processors order otherwise, anywhere and at the ends of rows.
TEST(filter, extremes_where_few_floats_are_not_ordinary) {
    const auto ordered = [](int32_t a, int32_t b) {
        const auto key = [](int32_t v) { return v ^ (v >> 31 & INT32_MAX); };
        return key(a) < key(b);
    };
    const auto least = [=](const std::vector<int32_t>& w) { return *std::min_element(w.begin(), w.end(), ordered); };
    const auto greatest = [=](const std::vector<int32_t>& w) { return *std::max_element(w.begin(), w.end(), ordered); };
    const uint32_t others[] = {0x7fc00000, 0xffc00000, 0x80000000, 0x7fffff};
    const k::Size size{40, 36};
    std::mt19937 random(5);
    for (const int side : {3, 5, 7, 15})
        for (const int channels : {1, 3})
            for (int round = 0; round < 24; ++round) {
                const cases::Mask mask{{side, side - round % 2}, {side / 2, 0}};
                const k::Size source{size.width + mask.size.width - 1, size.height + mask.size.height - 1};
                const uint32_t row = uint32_t(source.width * channels);
                std::vector<int32_t> in(row * size_t(source.height));
                for (int32_t& v : in) v = int32_t((random() % 9 ? 0x3f800000 : 0xbf800000) + (random() >> 9));
                for (int n = 0; n < round % 5; ++n) {
                    in[random() % in.size()] = int32_t(others[random() % 4]);
                    const uint32_t y = random() % uint32_t(n % 2 ? source.height : 3);
                    in[y * row + row - 1 - random() % 6] = int32_t(others[random() % 4]);
                }
                const auto check = [&](const k::Kernel<k::Filter>& kernel, auto value) {
                    check_on(in, size, cases::filter_case<int32_t>("f32", kernel, channels, false, mask, value));
                };
                check(channels == 1 ? k::filter_min_f32_c1 : k::filter_min_f32_c3, least);
                check(channels == 1 ? k::filter_max_f32_c1 : k::filter_max_f32_c3, greatest);
            }
}

}  // namespace

// Resizes against the real values: every mode, type and form over many factors, tiny sources and hard images.
#include "kernels/resize/resize.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include "cases/resize.h"
#include "kernels/check.h"

namespace {

using namespace tarn;
using cases::heap;
using k::Region;
using k::Size;

enum Mode { nearest, linear, cubic, lanczos };
constexpr const char* kModeNames[] = {"nearest", "linear", "cubic", "lanczos"};

double sinc(double x) { return x == 0 ? 1 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x); }

// One axis of the plain resize: the pixels of an output, their weights, clamped to the source.
struct Taps {
    std::vector<int64_t> pixel;
    std::vector<double> weight;
    Taps(Mode mode, int64_t d, int64_t from, int64_t to, int64_t offset, int64_t size) {
        if (mode == nearest) {
            pixel = {offset + (2 * d + 1) * from / (2 * to)};
            weight = {1};
            return;
        }
        const int64_t at = (2 * d + 1) * from - to;
        const int64_t whole = at >= 0 ? at / (2 * to) : -1;
        const double f = double(at - whole * 2 * to) / double(2 * to);
        const int lobes = mode == linear ? 1 : mode == cubic ? 2 : 3;
        double sum = 0;
        for (int k = 1 - lobes; k <= lobes; ++k) {
            const double x = std::fabs(f - k);
            const double w = mode == linear    ? 1 - x
                             : mode == lanczos ? sinc(x) * sinc(x / 3)
                             : x < 1           ? 1.5 * x * x * x - 2.5 * x * x + 1
                                               : -0.5 * x * x * x + 2.5 * x * x - 4 * x + 2;
            pixel.push_back(std::clamp<int64_t>(offset + whole + k, 0, size - 1));
            weight.push_back(w);
            sum += w;
        }
        for (double& w : weight) w /= sum;
    }
};

struct Kernels {
    const k::Kernel<k::Resize>* forms[4];  // c1, c3, c4, c3x
};
constexpr int kElements[] = {1, 3, 4, 4};

template <class T>
Kernels kernels_of(Mode mode);
#define KERNELS(T, type)                                                                                        \
    template <>                                                                                                 \
    Kernels kernels_of<T>(Mode mode) {                                                                          \
        static constexpr Kernels all[] = {{{&k::resize_nearest_##type##_c1, &k::resize_nearest_##type##_c3,     \
                                            &k::resize_nearest_##type##_c4, &k::resize_nearest_##type##_c3x}},  \
                                          {{&k::resize_linear_##type##_c1, &k::resize_linear_##type##_c3,       \
                                            &k::resize_linear_##type##_c4, &k::resize_linear_##type##_c3x}},    \
                                          {{&k::resize_cubic_##type##_c1, &k::resize_cubic_##type##_c3,         \
                                            &k::resize_cubic_##type##_c4, &k::resize_cubic_##type##_c3x}},      \
                                          {{&k::resize_lanczos_##type##_c1, &k::resize_lanczos_##type##_c3,     \
                                            &k::resize_lanczos_##type##_c4, &k::resize_lanczos_##type##_c3x}}}; \
        return all[mode];                                                                                       \
    }
KERNELS(uint8_t, u8)
KERNELS(int16_t, s16)
KERNELS(float, f32)
#undef KERNELS

enum class Image { noise, impulses, checkerboard, extremes, steps, flat };

template <class T>
std::vector<T> make_image(Image image, Size size, int channels, std::mt19937& rng) {
    const bool real = std::is_same_v<T, float>;
    const double low = real ? -1000 : std::numeric_limits<T>::min(), high = real ? 1000 : std::numeric_limits<T>::max();
    std::vector<T> all;
    const double level = low + (high - low) * double(rng() % 1024) / 1023;
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            for (int c = 0; c < channels; ++c) {
                double v = level;
                switch (image) {
                    case Image::noise:
                        v = low + (high - low) * double(rng()) / 4294967295.0;
                        break;
                    case Image::impulses:
                        v = rng() % 7 == 0 ? high : low;
                        break;
                    case Image::checkerboard:
                        v = (x + y + c) % 2 ? high : low;
                        break;
                    case Image::extremes:
                        v = rng() % 2 ? high : low;
                        break;
                    case Image::steps:
                        v = rng() % 2;
                        break;  // many ties
                    case Image::flat:
                        break;
                }
                all.push_back(real ? T(v) : T(std::floor(v)));
            }
    return all;
}

// How far results of a type may lie from the real value, in steps of an integer type.
template <class T>
double slack() {
    return std::is_same_v<T, uint8_t> ? 0.5 + 1.0 / 32 : 0.5 + 1.0 / 16;
}

struct Axis {
    int from, to, before, behind;
};

template <class T>
void check_resize(Mode mode, int form, Image image, Axis ax, Axis ay, unsigned seed) {
    std::mt19937 rng(seed);
    const int channels = kElements[form];
    const Size src_size{ax.before + ax.from + ax.behind, ay.before + ay.from + ay.behind}, dst_size{ax.to, ay.to};
    const std::vector<T> src = make_image<T>(image, src_size, channels, rng);
    std::vector<T> dst(size_t(ax.to) * ay.to * channels, T(77));
    const Region region{ax.before, ay.before, ax.from, ay.from};
    const int32_t src_stride = int32_t(src_size.width * channels * sizeof(T)),
                  dst_stride = int32_t(ax.to * channels * sizeof(T));
    ASSERT_EQ(k::kOk, (*kernels_of<T>(mode).forms[form])(src.data(), src_stride, src_size, region, dst.data(),
                                                         dst_stride, dst_size, heap()));
    std::vector<Taps> columns;
    for (int x = 0; x < ax.to; ++x) columns.emplace_back(mode, x, ax.from, ax.to, ax.before, src_size.width);
    for (int y = 0; y < ay.to; ++y) {
        const Taps rows(mode, y, ay.from, ay.to, ay.before, src_size.height);
        for (int x = 0; x < ax.to; ++x)
            for (int c = 0; c < channels; ++c) {
                const T got = dst[(size_t(y) * ax.to + x) * channels + c];
                double real = 0, largest = 1e-30;
                for (size_t i = 0; i < rows.pixel.size(); ++i) {
                    double sum = 0;
                    for (size_t k = 0; k < columns[x].pixel.size(); ++k) {
                        const double pixel = src[(rows.pixel[i] * src_size.width + columns[x].pixel[k]) * channels + c];
                        sum += columns[x].weight[k] * pixel;
                        largest = std::max(largest, std::fabs(pixel));
                    }
                    real += rows.weight[i] * sum;
                    largest = std::max(largest, std::fabs(sum));
                }
                const std::string where = std::string(kModeNames[mode]) + " form " + std::to_string(form) + " image " +
                                          std::to_string(int(image)) + " " + std::to_string(ax.from) + "x" +
                                          std::to_string(ay.from) + " to " + std::to_string(ax.to) + "x" +
                                          std::to_string(ay.to) + " at " + std::to_string(x) + "," + std::to_string(y);
                if (form == 3 && c == 3) {
                    ASSERT_EQ(T(77), got) << where;
                } else if constexpr (std::is_same_v<T, float>) {
                    const double ulp = std::ldexp(1.0, std::ilogb(std::max(largest, std::fabs(real))) - 23);
                    ASSERT_LE(std::fabs(got - real), 4 * ulp) << where;
                } else {
                    const double lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
                    ASSERT_LE(std::fabs(got - std::clamp(real, lo, hi)), slack<T>()) << where << " real " << real;
                }
            }
    }
}

template <class T>
void check_all() {
    // Lengths from the region to the destination, with pixels before and behind the region.
    const Axis axes[] = {{1, 1, 0, 0},   {1, 5, 0, 0},    {2, 3, 0, 0},     {5, 5, 1, 1},
                         {5, 13, 2, 0},  {16, 32, 0, 0},  {64, 32, 0, 0},   {48, 36, 3, 5},
                         {40, 5, 0, 1},  {7, 56, 0, 0},   {37, 101, 4, 9},  {101, 37, 0, 7},
                         {97, 50, 1, 2}, {10, 200, 3, 3}, {300, 290, 1, 0}, {33, 32, 0, 0}};
    unsigned seed = 1;
    for (Mode mode : {nearest, linear, cubic, lanczos})
        for (int form = 0; form < 4; ++form)
            for (const Axis& ax : axes) {
                const Axis& ay = axes[seed * 7 % std::size(axes)];
                const Axis short_ay = ay.to > 60 ? Axis{4, 3, 1, 2} : ay;
                check_resize<T>(mode, form, Image(seed % 6), ax, short_ay, seed);
                if (testing::Test::HasFatalFailure()) return;
                ++seed;
            }
}

TEST(resize, lies_within_the_stated_distance_of_the_real_value_u8) { check_all<uint8_t>(); }
TEST(resize, lies_within_the_stated_distance_of_the_real_value_s16) { check_all<int16_t>(); }
TEST(resize, lies_within_the_stated_distance_of_the_real_value_f32) { check_all<float>(); }

// To exactly half the size, which linear resizes do without the general tables.
template <class T>
void check_halves() {
    unsigned seed = 1;
    for (int form = 0; form < 4; ++form)
        for (const int width : {1, 7, 33, 75}) {
            const Axis columns{2 * width, width, 1, 2}, rows{10, 5, 2, 1};
            test::at_every_level([&](int) { check_resize<T>(linear, form, Image(seed % 6), columns, rows, seed); });
            if (testing::Test::HasFatalFailure()) return;
            ++seed;
        }
}

TEST(resize, to_exactly_half_lies_as_near_u8) { check_halves<uint8_t>(); }
TEST(resize, to_exactly_half_lies_as_near_s16) { check_halves<int16_t>(); }
TEST(resize, to_exactly_half_lies_as_near_f32) { check_halves<float>(); }

// Tiles whose corners fall on whole source pixels, one by one and all at once: wide and tall enough for strips of columns
// and bands of rows, which begin elsewhere in a tile.
template <class T>
void check_tiles(Mode mode, int numerator, int denominator) {
    constexpr int kForm = 1, kChannels = 3;
    const Size dst_size{700, 1100};
    const auto source = [=](int length) { return length * denominator / numerator; };
    const Size src_size{source(dst_size.width), source(dst_size.height)};
    std::mt19937 rng(11);
    const std::vector<T> src = make_image<T>(Image::noise, src_size, kChannels, rng);
    std::vector<T> whole(size_t(dst_size.width) * dst_size.height * kChannels), tiles(whole.size(), T(77));
    const int32_t src_stride = int32_t(src_size.width * kChannels * sizeof(T)),
                  dst_stride = int32_t(dst_size.width * kChannels * sizeof(T));
    const auto& kernel = *kernels_of<T>(mode).forms[kForm];
    ASSERT_EQ(k::kOk, kernel(src.data(), src_stride, src_size, Region{0, 0, src_size.width, src_size.height},
                             whole.data(), dst_stride, dst_size, heap()));
    for (const Region& tile : {Region{0, 0, 280, 440}, Region{280, 0, 420, 440}, Region{0, 440, 700, 660}}) {
        const Region from{source(tile.x), source(tile.y), source(tile.width), source(tile.height)};
        T* to = tiles.data() + (size_t(tile.y) * dst_size.width + tile.x) * kChannels;
        ASSERT_EQ(k::kOk, kernel(src.data(), src_stride, src_size, from, to, dst_stride, Size{tile.width, tile.height},
                                 heap()));
    }
    for (size_t i = 0; i < whole.size(); ++i)
        ASSERT_EQ(whole[i], tiles[i]) << kModeNames[mode] << " " << numerator << "/" << denominator << " at "
                                      << i / kChannels % dst_size.width << "," << i / kChannels / dst_size.width;
}

template <class T>
void check_all_tiles() {
    for (Mode mode : {linear, cubic, lanczos}) {
        check_tiles<T>(mode, 4, 5);
        check_tiles<T>(mode, 5, 2);
    }
}

TEST(resize, of_a_region_is_the_part_of_the_whole_u8) {
    test::at_every_level([](int) { check_all_tiles<uint8_t>(); });
}
TEST(resize, of_a_region_is_the_part_of_the_whole_s16) { check_all_tiles<int16_t>(); }
TEST(resize, of_a_region_is_the_part_of_the_whole_f32) { check_all_tiles<float>(); }

// Factors whose weights are short binary fractions: the real value is known exactly, and a half goes to the even
// number.
TEST(resize, rounds_exact_ties_to_even) {
    struct Row {
        Mode mode;
        int from, to;
    };
    int ties = 0;
    for (const Row& r : {Row{linear, 32, 16}, Row{linear, 16, 32}, Row{linear, 16, 64}, Row{linear, 8, 64},
                         Row{linear, 64, 16}, Row{cubic, 32, 16}, Row{cubic, 16, 32}}) {
        std::mt19937 rng(5);
        const Size src_size{r.from, r.from}, dst_size{r.to, r.to};
        const std::vector<uint8_t> src = make_image<uint8_t>(Image::noise, src_size, 1, rng);
        std::vector<uint8_t> dst(size_t(r.to) * r.to);
        ASSERT_EQ(k::kOk,
                  (*kernels_of<uint8_t>(r.mode).forms[0])(src.data(), r.from, src_size, Region{0, 0, r.from, r.from},
                                                          dst.data(), r.to, dst_size, heap()));
        for (int y = 0; y < r.to; ++y)
            for (int x = 0; x < r.to; ++x) {
                const Taps rows(r.mode, y, r.from, r.to, 0, r.from), columns(r.mode, x, r.from, r.to, 0, r.from);
                double real = 0;
                for (size_t i = 0; i < rows.pixel.size(); ++i)
                    for (size_t k = 0; k < columns.pixel.size(); ++k)
                        real +=
                            rows.weight[i] * columns.weight[k] * src[size_t(rows.pixel[i] * r.from + columns.pixel[k])];
                real = std::clamp(real, 0.0, 255.0);
                if (real - std::floor(real) != 0.5) continue;
                ++ties;
                ASSERT_EQ(std::nearbyint(real), dst[size_t(y) * r.to + x])
                    << kModeNames[r.mode] << " " << r.from << " to " << r.to << " at " << x << "," << y << ": " << real;
            }
    }
    EXPECT_GT(ties, 100);
}

TEST(resize, of_a_flat_8_bit_image_is_flat) {
    for (Mode mode : {nearest, linear, cubic, lanczos})
        for (int value = 0; value < 256; value += 5) {
            const std::vector<uint8_t> src(size_t(23) * 7, uint8_t(value));
            std::vector<uint8_t> dst(size_t(31) * 17);
            ASSERT_EQ(k::kOk, (*kernels_of<uint8_t>(mode).forms[0])(src.data(), 23, Size{23, 7}, Region{0, 0, 23, 7},
                                                                    dst.data(), 31, Size{31, 17}, heap()));
            for (uint8_t v : dst) ASSERT_EQ(value, v) << kModeNames[mode];
        }
}

TEST(resize, refuses_bad_sizes_and_regions) {
    std::vector<uint8_t> src(100), dst(100);
    struct Row {
        Size src;
        Region region;
        Size dst;
        k::Status status;
    };
    constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
    for (const Row& r :
         {Row{{10, 10}, {0, 0, 0, 5}, {5, 5}, k::kBadSize}, Row{{10, 10}, {0, 0, 5, -5}, {5, 5}, k::kBadSize},
          Row{{0, 10}, {0, 0, 5, 5}, {5, 5}, k::kBadSize}, Row{{10, 10}, {6, 0, 5, 5}, {5, 5}, k::kBadArg},
          Row{{10, 10}, {-1, 0, 5, 5}, {6, 5}, k::kBadArg}, Row{{10, 10}, {0, 1, 5, kMax}, {5, 5}, k::kBadArg}})
        for (Mode mode : {nearest, linear, cubic, lanczos})
            EXPECT_EQ(r.status, (*kernels_of<uint8_t>(mode).forms[0])(src.data(), 10, r.src, r.region, dst.data(), 10,
                                                                      r.dst, heap()));
}

TEST(resize, reports_scratch_memory_that_cannot_be_had) {
    std::vector<float> src(100), dst(400);
    const k::Allocator none{[](void*, uint64_t) -> void* { return nullptr; }, [](void*, void*) { FAIL(); }, nullptr};
    for (Mode mode : {nearest, linear, cubic, lanczos})
        EXPECT_EQ(k::kNoMemory, (*kernels_of<float>(mode).forms[0])(src.data(), 40, Size{10, 10}, Region{0, 0, 10, 10},
                                                                    dst.data(), 80, Size{20, 20}, none));
}

}  // namespace

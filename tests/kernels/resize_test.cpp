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
using k::Form;
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

const k::KernelSet<k::Resize>* const kKernels[] = {&k::resize_nearest_kernels, &k::resize_linear_kernels,
                                                   &k::resize_cubic_kernels, &k::resize_lanczos_kernels};
constexpr Form kFormsOfAll[] = {Form::c1, Form::c3, Form::c4, Form::c3x};
const auto kNone =
    k::Allocator{[](void*, uint64_t) -> void* { return nullptr; }, [](void*, void*) { FAIL(); }, nullptr};

template <class T>
const k::Kernel<k::Resize>& kernel_of(Mode mode, Form form) {
    return *kKernels[mode]->find(std::is_same_v<T, uint8_t>   ? k::Type::u8
                                 : std::is_same_v<T, int16_t> ? k::Type::s16
                                                              : k::Type::f32,
                                 form);
}

// Packed planes of pixels.
template <class T>
struct Pixels {
    Size size;
    int channels;
    std::vector<T> all = std::vector<T>(size_t(size.width) * size.height * channels, T(77));
    int32_t stride() const { return int32_t(size.width * channels * sizeof(T)); }
    size_t place(int64_t x, int64_t y) const { return size_t((y * size.width + x) * channels); }
};

// From a region of src into a region of dst.
template <class T>
k::Status resize(Mode mode, Form form, const Pixels<T>& src, Region from, Pixels<T>& dst, Region to) {
    return kernel_of<T>(mode, form)(src.all.data(), src.stride(), src.size, from, &dst.all[dst.place(to.x, to.y)],
                                    dst.stride(), Size{to.width, to.height}, heap());
}

enum class Image { noise, impulses, checkerboard, extremes, steps, flat };

template <class T>
Pixels<T> make_image(Image image, Size size, Form form, unsigned seed) {
    std::mt19937 rng(seed);
    const bool real = std::is_same_v<T, float>;
    const double low = real ? -1000 : std::numeric_limits<T>::min(), high = real ? 1000 : std::numeric_limits<T>::max();
    const double level = low + (high - low) * double(rng() % 1024) / 1023;
    Pixels<T> pixels{size, channels(form)};
    for (size_t i = 0; i < pixels.all.size(); ++i) {
        const auto pixel = i / size_t(pixels.channels), x = pixel % size_t(size.width), y = pixel / size_t(size.width);
        const double v = image == Image::noise          ? low + (high - low) * double(rng()) / 4294967295.0
                         : image == Image::impulses     ? rng() % 7 == 0 ? high : low
                         : image == Image::checkerboard ? (x + y + i % size_t(pixels.channels)) % 2 ? high : low
                         : image == Image::extremes     ? rng() % 2 ? high : low
                         : image == Image::steps        ? rng() % 2  // many ties
                                                        : level;
        pixels.all[i] = real ? T(v) : T(std::floor(v));
    }
    return pixels;
}

// The real value of an element from the pixels and weights of both axes; largest: of all that was added up.
template <class T>
double real_value(const Pixels<T>& src, const Taps& columns, const Taps& rows, int c, double& largest) {
    double real = 0;
    for (size_t i = 0; i < rows.pixel.size(); ++i) {
        double sum = 0;
        for (size_t k = 0; k < columns.pixel.size(); ++k) {
            const double pixel = src.all[src.place(columns.pixel[k], rows.pixel[i]) + size_t(c)];
            sum += columns.weight[k] * pixel;
            largest = std::max(largest, std::fabs(pixel));
        }
        real += rows.weight[i] * sum;
        largest = std::max(largest, std::fabs(sum));
    }
    return real;
}

struct Axis {
    int from, to, before, behind;
    int source() const { return before + from + behind; }
};

// Expects right(channel, result, real value, largest) of every element of an image's resize.
template <class T, class Right>
void expect_each(Mode mode, Form form, Image image, Axis ax, Axis ay, unsigned seed, Right right) {
    const Pixels<T> src = make_image<T>(image, {ax.source(), ay.source()}, form, seed);
    Pixels<T> dst{{ax.to, ay.to}, src.channels};
    ASSERT_EQ(k::kOk, resize(mode, form, src, {ax.before, ay.before, ax.from, ay.from}, dst, {0, 0, ax.to, ay.to}));
    std::vector<Taps> columns;
    for (int x = 0; x < ax.to; ++x) columns.emplace_back(mode, x, ax.from, ax.to, ax.before, src.size.width);
    for (int y = 0; y < ay.to; ++y) {
        const Taps rows(mode, y, ay.from, ay.to, ay.before, src.size.height);
        cases::each_element({ax.to, 1}, src.channels, [&](int x, int, int c) {
            double largest = 1e-30;
            const double real = real_value(src, columns[size_t(x)], rows, c, largest);
            const T got = dst.all[dst.place(x, y) + size_t(c)];
            ASSERT_TRUE(right(c, got, real, largest))
                << kModeNames[mode] << " form " << int(form) << " image " << int(image) << " " << ax.from << "x"
                << ay.from << " to " << ax.to << "x" << ay.to << " at " << x << "," << y << "," << c << ": " << +got
                << " for " << real;
        });
    }
}

// Whether an element of this channel lies as near as is stated: 16 bits to a sixteenth of a step beyond its half, 8
// bits to half of that, floats to four units of the last place of the largest value.
template <class T>
bool lies_near(Form form, int c, T got, double real, double largest) {
    if (kept(form) && c == 3) return got == T(77);
    if (std::is_same_v<T, float>)
        return std::fabs(got - real) <= std::ldexp(4, std::ilogb(std::max(largest, std::fabs(real))) - 23);
    real = std::clamp<double>(real, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    return std::fabs(got - real) <= 0.5 + 1.0 / (sizeof(T) == 1 ? 32 : 16);
}

template <class T>
class resize_of : public testing::Test {};
using Types = testing::Types<uint8_t, int16_t, float>;
TYPED_TEST_SUITE(resize_of, Types);

TYPED_TEST(resize_of, any_size_lies_within_the_stated_distance_of_the_real_value) {
    // Lengths from the region to the destination, with pixels before and behind the region.
    const Axis axes[] = {{1, 1, 0, 0},    {1, 5, 0, 0},    {2, 3, 0, 0},   {5, 5, 1, 1},    {5, 13, 2, 0},
                         {16, 32, 0, 0},  {64, 32, 0, 0},  {48, 36, 3, 5}, {40, 5, 0, 1},   {7, 56, 0, 0},
                         {37, 101, 4, 9}, {101, 37, 0, 7}, {97, 50, 1, 2}, {10, 200, 3, 3}, {300, 290, 1, 0},
                         {33, 32, 0, 0},  {512, 384, 1, 2}};
    unsigned seed = 1;
    for (const Form form : kFormsOfAll) {
        const auto check = [&](Mode mode, Axis ax, Axis ay) {
            if (this->HasFailure()) return;
            expect_each<TypeParam>(mode, form, Image(seed % 6), ax, ay, seed,
                                   [&](auto... result) { return lies_near<TypeParam>(form, result...); });
            ++seed;
        };
        for (Mode mode : {nearest, linear, cubic, lanczos})
            for (const Axis& ax : axes) {
                const Axis& ay = axes[seed * 7 % std::size(axes)];
                check(mode, ax, ay.to > 60 ? Axis{4, 3, 1, 2} : ay);
            }
        // To exactly half the size, which linear resizes do without the general tables.
        for (const int width : {1, 7, 33, 75}) check(linear, {2 * width, width, 1, 2}, {10, 5, 2, 1});
    }
}

// Nearest resizes of many rows bring the bytes of several pixels together: from segments that are whole vectors, and
// from those of one byte more; at the source's end, and before it.
TYPED_TEST(resize_of, nearest_brings_together_what_lies_apart) {
    const Axis axes[] = {{64, 30, 0, 0},  {96, 90, 0, 1},  {97, 61, 2, 0},  {128, 30, 0, 0}, {128, 31, 3, 0},
                         {160, 64, 0, 5}, {195, 65, 1, 0}, {300, 41, 0, 0}, {90, 7, 0, 0},   {1100, 90, 0, 0}};
    unsigned seed = 1;
    test::at_every_level([&](int level) {
        SCOPED_TRACE(level);
        for (const Form form : kFormsOfAll) {
            const auto right = [&](int c, TypeParam got, double real, double) {
                return got == (kept(form) && c == 3 ? TypeParam(77) : TypeParam(real));
            };
            for (const Axis& ax : axes)
                if (!this->HasFailure())
                    expect_each<TypeParam>(nearest, form, Image::noise, ax, {67, 62, 1, 2}, ++seed, right);
        }
    });
}

// Tiles whose corners fall on whole source pixels, one by one and all at once: wide and tall enough for strips of
// columns and bands of rows, which begin elsewhere in a tile.
TYPED_TEST(resize_of, a_region_is_the_part_of_the_whole) {
    constexpr int kWidth = sizeof(TypeParam) < 4 ? 5600 : 1800, kHeight = 600;
    for (Mode mode : {linear, cubic, lanczos})
        for (const std::pair<int, int>& factor : {std::pair{4, 5}, {5, 2}}) {
            const auto source = [=](int length) { return length * factor.second / factor.first; };
            const auto src = make_image<TypeParam>(Image::noise, {source(kWidth), source(kHeight)}, Form::c3, 11);
            const auto check = [&](int level) {
                Pixels<TypeParam> whole{{kWidth, kHeight}, 3}, tiles = whole;
                ASSERT_EQ(k::kOk, resize(mode, Form::c3, src, {0, 0, src.size.width, src.size.height}, whole,
                                         {0, 0, kWidth, kHeight}));
                const int x = kWidth / 5 * 2, y = kHeight / 5 * 2;
                for (const Region& t :
                     {Region{0, 0, x, y}, Region{x, 0, kWidth - x, y}, Region{0, y, kWidth, kHeight - y}})
                    ASSERT_EQ(k::kOk, resize(mode, Form::c3, src,
                                             {source(t.x), source(t.y), source(t.width), source(t.height)}, tiles, t));
                const auto at = std::mismatch(whole.all.begin(), whole.all.end(), tiles.all.begin()).first;
                const auto pixel = (at - whole.all.begin()) / 3;
                EXPECT_EQ(at, whole.all.end())
                    << kModeNames[mode] << " by " << factor.first << "/" << factor.second << " at " << pixel % kWidth
                    << "," << pixel / kWidth << ", level " << level;
            };
            if (sizeof(TypeParam) == 1)
                test::at_every_level(check);
            else
                check(k::active_level);
        }
}

// Made by bands of rows, and of several strips of columns, a plane has the bits that it has when made at once.
TYPED_TEST(resize_of, bands_of_rows_are_those_of_the_whole) {
    for (Mode mode : {nearest, linear, cubic, lanczos})
        for (const Form form : {Form::c1, Form::c3})
            for (const Size to : {Size{700, 41}, Size{35, 20}, Size{90, 9}}) {
                const auto src = make_image<TypeParam>(Image::noise, {70, 40}, form, 3);
                Pixels<TypeParam> whole{to, src.channels}, bands = whole;
                const auto& kernel = kernel_of<TypeParam>(mode, form);
                const auto make = [&](Pixels<TypeParam>& dst, int32_t top, int32_t bottom) {
                    return kernel(src.all.data(), src.stride(), src.size, {0, 0, 70, 40}, &dst.all[dst.place(0, top)],
                                  dst.stride(), {to, top, bottom}, heap());
                };
                ASSERT_EQ(k::kOk, make(whole, 0, to.height));
                for (int32_t top = 0, bottom; top < to.height; top = bottom) {
                    bottom = std::min(to.height, top + 1 + top % 4);
                    ASSERT_EQ(k::kOk, make(bands, top, bottom));
                }
                EXPECT_EQ(whole.all, bands.all) << kModeNames[mode] << " form " << int(form) << " to " << to.width;
                for (const auto& [top, bottom] : {std::pair{-1, 3}, {2, 2}, {5, to.height + 1}})
                    EXPECT_EQ(k::kBadArg, kernel(src.all.data(), src.stride(), src.size, {0, 0, 70, 40},
                                                 bands.all.data(), bands.stride(), {to, top, bottom}, heap()));
            }
}

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
        const Axis both{r.from, r.to, 0, 0};
        expect_each<uint8_t>(r.mode, Form::c1, Image::noise, both, both, 5, [&](int, uint8_t got, double real, double) {
            real = std::clamp(real, 0.0, 255.0);
            const bool tie = real - std::floor(real) == 0.5;
            ties += tie;
            return !tie || got == std::nearbyint(real);
        });
    }
    EXPECT_GT(ties, 100);
}

TEST(resize, refuses_bad_sizes_and_regions_and_reports_scratch_memory_that_cannot_be_had) {
    std::vector<float> src(100), dst(400);
    struct Row {
        Size src;
        Region region;
        Size dst;
        k::Status status;
    };
    constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
    for (Mode mode : {nearest, linear, cubic, lanczos}) {
        const auto& kernel = kernel_of<uint8_t>(mode, Form::c1);
        for (const Row& r :
             {Row{{10, 10}, {0, 0, 0, 5}, {5, 5}, k::kBadSize}, Row{{10, 10}, {0, 0, 5, -5}, {5, 5}, k::kBadSize},
              Row{{0, 10}, {0, 0, 5, 5}, {5, 5}, k::kBadSize}, Row{{10, 10}, {6, 0, 5, 5}, {5, 5}, k::kBadArg},
              Row{{10, 10}, {-1, 0, 5, 5}, {6, 5}, k::kBadArg}, Row{{10, 10}, {0, 1, 5, kMax}, {5, 5}, k::kBadArg}})
            EXPECT_EQ(r.status, kernel(src.data(), 10, r.src, r.region, dst.data(), 10, r.dst, heap()));
        EXPECT_EQ(k::kNoMemory, kernel_of<float>(mode, Form::c1)(src.data(), 40, {10, 10}, {0, 0, 10, 10}, dst.data(),
                                                                 80, Size{20, 20}, kNone));
    }
}

}  // namespace

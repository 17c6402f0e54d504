// Warps against the real values: every mode, type and form over random transforms, regions and tiny sources; transforms
// and sources at the bounds of what fits; and what many warps one after the other leave of a picture.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <utility>

#include "cases/warp.h"
#include "kernels/base/runtime.h"
#include "kernels/check.h"

namespace {

using namespace tarn;
using k::Affine;
using k::Form;
using k::Region;
using k::Size;

enum Mode { nearest, linear, cubic, lanczos };
constexpr Mode kModes[] = {nearest, linear, cubic, lanczos};
constexpr const char* kModeNames[] = {"nearest", "linear", "cubic", "lanczos"};
const k::KernelSet<k::Warp>* const kKernels[] = {&k::warp_nearest_kernels, &k::warp_linear_kernels,
                                                 &k::warp_cubic_kernels, &k::warp_lanczos_kernels};
constexpr Form kFormsOfAll[] = {Form::c1, Form::c3, Form::c4, Form::c3x};

template <class T>
const k::Kernel<k::Warp>& kernel_of(Mode mode, Form form) {
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
    std::vector<T> all = std::vector<T>(size_t(size.width) * size_t(size.height) * size_t(channels), T(77));
    int32_t stride() const { return int32_t(size_t(size.width) * size_t(channels) * sizeof(T)); }
    size_t place(int64_t x, int64_t y) const { return size_t((y * size.width + x) * channels); }
    Region region() const { return {0, 0, size.width, size.height}; }
};

template <class T>
k::Status warp(Mode mode, Form form, const Pixels<T>& src, Region from, Pixels<T>& dst, Region to, const Affine& m) {
    return kernel_of<T>(mode, form)(src.all.data(), src.stride(), src.size, from, dst.all.data(), dst.stride(), to, m);
}

template <class T>
Pixels<T> noise(Size size, int channels, unsigned seed) {
    std::mt19937 rng(seed);
    const bool real = std::is_same_v<T, float>;
    const double low = real ? -1000 : std::numeric_limits<T>::min(), high = real ? 1000 : std::numeric_limits<T>::max();
    Pixels<T> pixels{size, channels};
    for (T& v : pixels.all) {
        const double x = seed % 3 == 0 ? rng() % 2 : double(rng()) / 4294967295.0;  // every third of extremes only
        v = real ? T(low + (high - low) * x) : T(std::floor(low + (high - low) * x));
    }
    return pixels;
}

// The weights of an axis' pixels around a position, from the first.
std::vector<double> weights(Mode mode, double fraction) {
    const double t = fraction, u = 1 - fraction;
    if (mode == nearest) return {1};
    if (mode == linear) return {u, t};
    if (mode == cubic)
        return {-t * u * u / 2, 1 + t * t * (1.5 * t - 2.5), 1 + u * u * (1.5 * u - 2.5), -u * t * t / 2};
    const double pi = std::acos(-1.0);
    std::vector<double> w;
    for (int k = -2; k <= 3; ++k) {
        const double d = pi * (k - t);
        w.push_back(d == 0 ? 1 : 3 * std::sin(d) * std::sin(d / 3) / (d * d));
    }
    const double sum = std::accumulate(w.begin(), w.end(), 0.0);
    for (double& v : w) v /= sum;
    return w;
}

// The real value at a position, and the largest of all that was added up. Pixels of weight 0 take no part: sines of
// whole turns are not quite 0, and the smallest other weight is 2^-33.
template <class T>
double real_value(Mode mode, const Pixels<T>& src, cases::Position p, int c, double& largest) {
    const double half = mode == nearest ? 0.5 : 0;
    const double x = cases::Position::rounded(p.x) + half, y = cases::Position::rounded(p.y) + half;
    const auto wx = weights(mode, x - std::floor(x)), wy = weights(mode, y - std::floor(y));
    const auto taps = int64_t(wx.size()), left = int64_t(std::floor(x)) - (taps - 1) / 2,
               top = int64_t(std::floor(y)) - (taps - 1) / 2;
    const auto takes_part = [](double weight) { return std::fabs(weight) > 0x1p-40; };
    double real = 0;
    for (int64_t i = 0; i < taps; ++i) {
        if (!takes_part(wy[size_t(i)])) continue;
        double sum = 0;
        for (int64_t k = 0; k < taps; ++k) {
            if (!takes_part(wx[size_t(k)])) continue;
            const double pixel = src.all[src.place(std::clamp<int64_t>(left + k, 0, src.size.width - 1),
                                                   std::clamp<int64_t>(top + i, 0, src.size.height - 1)) +
                                         size_t(c)];
            sum += wx[size_t(k)] * pixel;
            largest = std::max(largest, std::fabs(pixel));
        }
        real += wy[size_t(i)] * sum;
        largest = std::max(largest, std::fabs(sum));
    }
    return real;
}

// Whether an element lies as near as is stated: 16 bits to a sixteenth of a step beyond its half, 8 bits to half of
// that, floats to four units of the last place of the largest value.
template <class T>
bool lies_near(Mode mode, T got, double real, double largest) {
    if (real != real) return got != got;
    if (mode == nearest) return got == T(real);
    if (std::is_same_v<T, float>)
        return std::fabs(got - real) <= std::ldexp(4, std::ilogb(std::max({largest, std::fabs(real), 1e-30})) - 23);
    real = std::clamp<double>(real, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    return std::fabs(got - real) <= 0.5 + 1.0 / (sizeof(T) == 1 ? 32 : 16);
}

// Expects of every element of a warp what it must be, and of the status that it tells of nothing written.
template <class T>
void expect_each(Mode mode, Form form, const Pixels<T>& src, Region from, Size size, Region to, const Affine& m) {
    Pixels<T> dst{size, src.channels};
    const k::Status status = warp(mode, form, src, from, dst, to, m);
    const cases::Back back(m);
    bool any = false;
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
            const cases::Position p = back(x, y);
            const bool mapped = x >= to.x && x < to.x + to.width && y >= to.y && y < to.y + to.height && p.within(from);
            any |= mapped;
            for (int c = 0; c < src.channels; ++c) {
                const T got = dst.all[dst.place(x, y) + size_t(c)];
                double largest = 0, real = 77;
                const bool touched = mapped && c < k::used(form);
                if (touched) real = real_value(mode, src, p, c, largest);
                ASSERT_TRUE(touched ? lies_near(mode, got, real, largest) : got == T(77))
                    << kModeNames[mode] << " form " << int(form) << " source " << src.size.width << "x"
                    << src.size.height << " warp " << m.a << " " << m.b << " " << m.tx << " " << m.c << " " << m.d
                    << " " << m.ty << " at " << x << "," << y << "," << c << ": " << +got << " for " << real << " of "
                    << p.x << "," << p.y;
            }
        }
    EXPECT_EQ(status, any ? k::kOk : k::kNothingMapped);
}

template <class T>
class warp_of : public testing::Test {};
using Types = testing::Types<uint8_t, int16_t, float>;
TYPED_TEST_SUITE(warp_of, Types);

TYPED_TEST(warp_of, any_transform_lies_within_the_stated_distance_of_the_real_value) {
    std::mt19937 rng(1);
    const auto between = [&](double lo, double hi) { return lo + (hi - lo) * double(rng()) / 4294967295.0; };
    const auto length = [&](int most) { return 1 + int(rng() % unsigned(most)); };
    for (unsigned round = 0; round < 300; ++round) {
        const Form form = kFormsOfAll[round % 4];
        const Mode mode = Mode(round / 4 % 4);
        const bool tiny = round % 5 == 0;
        const Size from_size{length(tiny ? 3 : 60), length(tiny ? 3 : 60)}, size{length(300), length(70)};
        const int before = int(rng() % 3), behind = int(rng() % 3);
        const Region from{before, behind, from_size.width, from_size.height};
        const int inset = size.width > 4 && size.height > 4 ? int(rng() % 3) : 0;
        const Region to{inset, inset, size.width - 2 * inset, size.height - 2 * inset};
        const auto src = noise<TypeParam>({before + from_size.width + behind, behind + from_size.height + before},
                                          channels(form), round);
        // Any turn and size, sheared and mirrored; every seventh with whole coefficients.
        const double scale = std::exp2(between(-3, 4));
        Affine m = cases::turn(between(0, 360), scale, between(0, from_size.width), between(0, from_size.height),
                               between(0, size.width), between(0, size.height));
        m.a *= between(0.5, 1) * (rng() % 2 ? 1 : -1), m.b += between(-0.3, 0.3) * scale;
        if (round % 7 == 0) m = {double(length(3)), 0, double(length(9)), 0, -double(length(3)), double(length(50))};
        expect_each<TypeParam>(mode, form, src, from, size, to, m);
        if (this->HasFailure()) return;
    }
}

// Whole positions give the pixels there, whatever stands beside them: shifts, turns by quarters, flips; of floats,
// blends give one NaN for all.
TYPED_TEST(warp_of, whole_positions_give_the_pixels_themselves) {
    constexpr bool kFloats = std::is_same_v<TypeParam, float>;
    const auto bits = [](TypeParam v) {
        uint32_t b = 0;
        std::memcpy(&b, &v, sizeof v);
        return b;
    };
    const auto settled = [&](Mode mode, TypeParam v) {
        if constexpr (kFloats) return mode != nearest && v != v ? std::numeric_limits<float>::quiet_NaN() : v;
        return v;
    };
    const auto expect_moved = [&](Size size, Form form, int quarter) {
        auto src = noise<TypeParam>(size, channels(form), 3);
        if constexpr (kFloats)
            for (size_t i = 0; i < src.all.size(); i += 3)
                src.all[i] = i % 2 ? -0.0f : i % 4 ? -std::nanf("7") : std::numeric_limits<float>::infinity();
        // Turned by the machine's own sines, which are no whole numbers.
        const int x = size.width / 3, y = size.height / 2;
        Affine m = cases::turn(90.0 * (quarter % 4), 1, x, y, x + 2, y - 1);
        if (quarter >= 4) m.a = -m.a, m.b = -m.b, m.tx = size.width - m.tx;
        const Region from{1, 0, size.width - 1, size.height - 1}, to{2, 1, size.width - 3, size.height - 1};
        const cases::Back back(m);
        for (const Mode mode : kModes) {
            Pixels<TypeParam> want{size, channels(form)};
            for (int v = to.y; v < to.y + to.height; ++v)
                for (int u = to.x; u < to.x + to.width; ++u)
                    if (const cases::Position p = back(u, v); p.within(from))
                        for (int c = 0; c < k::used(form); ++c)
                            want.all[want.place(u, v) + size_t(c)] =
                                settled(mode, src.all[src.place(std::lround(p.x), std::lround(p.y)) + size_t(c)]);
            test::at_every_level([&](int level) {
                Pixels<TypeParam> dst{size, channels(form)};
                ASSERT_EQ(k::kOk, warp(mode, form, src, from, dst, to, m));
                const auto same = [&](TypeParam a, TypeParam b) { return bits(a) == bits(b); };
                const auto at = std::mismatch(want.all.begin(), want.all.end(), dst.all.begin(), same).first;
                const auto pixel = (at - want.all.begin()) / channels(form);
                EXPECT_EQ(at, want.all.end())
                    << kModeNames[mode] << " form " << int(form) << " quarter " << quarter << " at "
                    << pixel % size.width << "," << pixel / size.width << ", level " << level;
            });
        }
    };
    for (int quarter = 0; quarter < 8; ++quarter) {
        for (const Form form : kFormsOfAll)
            for (const Size size : {Size{83, 41}, Size{9, 38}}) expect_moved(size, form, quarter);
        expect_moved({150, 540}, Form::c1, quarter);  // more than one square of tiles
    }
    const int64_t before = std::exchange(k::stream_bytes, 0);
    for (const int quarter : {1, 3})
        for (const Form form : {Form::c1, Form::c3, Form::c4}) expect_moved({704, 704}, form, quarter);
    k::stream_bytes = before;
}

// Every other column, or row, is NaN: results are numbers only where it has no weight. Positions are whole in every
// other place of a vector, in one axis, or in every other line.
TEST(warp, pixels_of_weight_0_take_no_part) {
    const Affine warps[] = {{2, 0, 0, 0, 2, 0}, {1, 0, 0, 0.25, 1, 0}, {1, 0.25, 0, 0, 1, 0}, {2, 0.5, 1, 0.5, 2, 1}};
    for (const bool rows : {false, true})
        for (const Form form : kFormsOfAll) {
            auto src = noise<float>({40, 30}, channels(form), 4);
            for (int y = 0; y < 30; ++y)
                for (int x = 0; x < 40; ++x)
                    if ((rows ? y : x) % 2)
                        std::fill_n(&src.all[src.place(x, y)], src.channels, std::numeric_limits<float>::quiet_NaN());
            for (const Mode mode : {linear, cubic, lanczos})
                for (const Affine& m : warps)
                    test::at_every_level([&](int level) {
                        SCOPED_TRACE(level);
                        expect_each<float>(mode, form, src, src.region(), {75, 55}, {0, 0, 75, 55}, m);
                    });
        }
}

// A destination filled in pieces is the same as filled at once, at every level.
TYPED_TEST(warp_of, a_region_is_the_part_of_the_whole) {
    constexpr int kWidth = 700, kHeight = 300;
    const auto src = noise<TypeParam>({500, 400}, 3, 11);
    for (const Mode mode : kModes)
        for (const double degrees : {3.0, 50.0, 91.0}) {
            const Affine m = cases::turn(degrees, 1.3, 250, 200, kWidth / 2.0, kHeight / 2.0);
            test::at_every_level([&](int level) {
                Pixels<TypeParam> whole{{kWidth, kHeight}, 3}, parts = whole;
                ASSERT_EQ(k::kOk, warp(mode, Form::c3, src, src.region(), whole, whole.region(), m));
                for (const Region& t : {Region{0, 0, 280, 130}, Region{280, 0, 420, 130}, Region{0, 130, 700, 170}})
                    ASSERT_EQ(k::kOk, warp(mode, Form::c3, src, src.region(), parts, t, m));
                const auto at = std::mismatch(whole.all.begin(), whole.all.end(), parts.all.begin()).first;
                const auto pixel = (at - whole.all.begin()) / 3;
                EXPECT_EQ(at, whole.all.end()) << kModeNames[mode] << " " << degrees << " degrees at " << pixel % kWidth
                                               << "," << pixel / kWidth << ", level " << level;
            });
        }
}

// Rows that are weighed once for all that they serve make the same as if each were for itself: as they are for a warp
// that turns by so little that no position changes.
TYPED_TEST(warp_of, scaling_alone_changes_no_bit) {
    constexpr int kWidth = 610, kHeight = 150;
    struct Scale {
        double x, y;
    };
    for (const Form form : kFormsOfAll) {
        auto src = noise<TypeParam>({300, 110}, k::channels(form), 7);
        if constexpr (std::is_same_v<TypeParam, float>)
            for (size_t i = 100; i < src.all.size(); i += 4321) src.all[i] = i % 2 ? NAN : INFINITY;
        for (const Mode mode : kModes)
            for (const Scale& s : {Scale{1.1, 0.93}, {2, 2}, {-1.7, 1.4}, {1.9, -0.7}, {5, 0.4}}) {
                const auto scaled = [&](double turn) {
                    Pixels<TypeParam> dst{{kWidth, kHeight}, k::channels(form)};
                    const Affine m{s.x, turn, kWidth / 2 - s.x * 149.3, turn, s.y, kHeight / 2 - s.y * 54.9};
                    EXPECT_EQ(k::kOk, warp(mode, form, src, src.region(), dst, dst.region(), m));
                    return dst.all;
                };
                test::at_every_level([&](int level) {
                    const auto once = scaled(0), each = scaled(1e-300);
                    EXPECT_EQ(0, std::memcmp(once.data(), each.data(), once.size() * sizeof once[0]))
                        << kModeNames[mode] << " by " << s.x << ", " << s.y << ", level " << level;
                });
            }
    }
}

// Sources whose rows meet in the same sets of a cache are read through a copy, which is the same as reading others.
TYPED_TEST(warp_of, a_power_of_two_between_rows_changes_no_bit) {
    for (const Form form : {Form::c1, Form::c3}) {
        const int channels = k::channels(form);
        const auto src = noise<TypeParam>({1024, 1100}, channels, 5);
        const int32_t packed = src.stride(), padded = packed + 36;
        std::vector<uint8_t> apart(size_t(padded) * 1100);
        for (size_t y = 0; y < 1100; ++y)
            std::memcpy(&apart[y * size_t(padded)], &src.all[src.place(0, int64_t(y))], size_t(packed));
        for (const Mode mode : kModes)
            for (const double degrees : {30.0, 89.0, -120.0}) {
                const Affine m = cases::turn(degrees, 1, 60, 1020, 140, 90);  // to the source's corner
                // As wide as it is, and a pixel wider than a line of the cache.
                const auto warped = [&](const void* pixels, int32_t stride, int32_t width) {
                    Pixels<TypeParam> dst{{300, 200}, channels};
                    EXPECT_EQ(k::kOk,
                              kernel_of<TypeParam>(mode, form)(pixels, stride, {width, 1100}, {0, 0, width, 1100},
                                                               dst.all.data(), dst.stride(), dst.region(), m));
                    return dst.all;
                };
                test::at_every_level([&](int level) {
                    for (const int32_t width : {1024, 65})
                        EXPECT_EQ(warped(src.all.data(), packed, width), warped(apart.data(), padded, width))
                            << kModeNames[mode] << " " << degrees << " degrees, width " << width << ", level " << level;
                });
            }
    }
}

// Planes so wide that not everything fits one run's 32 bits: shrunk to a few pixels, and looked at from near.
TEST(warp, reaches_every_part_of_a_very_wide_source) {
    const auto src = noise<uint8_t>({3000000, 3}, 1, 1);
    for (const Affine& m : {Affine{1.0 / 700000, 0, 0, 0, 1, 0}, Affine{1, 0, -2999700.25, 0, 1, 0.5},
                            Affine{-0.001, 0, 2000, 0, 4, 1}, Affine{0, 3, 0, -0.00002, 0, 60}})
        for (const Mode mode : kModes)
            expect_each<uint8_t>(mode, Form::c1, src, src.region(), {300, 62}, {0, 0, 300, 62}, m);
    // And of one so large that lines are fetched before: these lie further apart than 64 bits of bytes reach.
    const auto large = noise<float>({1100, 1000}, 1, 1);
    for (const Mode mode : kModes)
        expect_each<float>(mode, Form::c1, large, large.region(), {300, 4}, {0, 0, 300, 4},
                           {4, -2, 0, -1e-19, 1e-19, 0});
}

TEST(warp, takes_any_coefficients) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity(),
                     kNan = std::numeric_limits<double>::quiet_NaN();
    const auto src = noise<float>({9, 7}, 1, 1);
    const auto status = [&](Mode mode, const Affine& m) {
        Pixels<float> dst{{40, 30}, 1};
        const k::Status s = warp(mode, Form::c1, src, src.region(), dst, dst.region(), m);
        const bool untouched = std::all_of(dst.all.begin(), dst.all.end(), [](float v) { return v == 77; });
        EXPECT_EQ(untouched, s != k::kOk);
        return s;
    };
    for (const Mode mode : kModes) {
        for (const Affine& m :
             {Affine{0, 0, 0, 0, 0, 0}, Affine{1, 2, 0, 2, 4, 0}, Affine{0.1, 0.3, 5, 0.7, 2.1, 0},
              Affine{kNan, 0, 0, 0, 1, 0}, Affine{1, 0, kNan, 0, 1, 0}, Affine{1, 0, 0, 0, kInfinity, 0},
              Affine{1, 0, 0, 0, 1, -kInfinity}, Affine{1e-320, 0, 0, 0, 1e-320, 0}, Affine{1e200, 0, 0, 0, 1e200, 0}})
            EXPECT_EQ(k::kBadArg, status(mode, m)) << m.a << " " << m.b << " " << m.tx;
        for (const Affine& m :
             {Affine{1, 0, 1e12, 0, 1, 0}, Affine{1, 0, 0, 0, 1, -5e9}, Affine{1e-9, 0, 0.5, 0, 1e-9, 0.5},
              Affine{1, 0, 1e300, 0, 1, 1e300}, Affine{1e-150, 0, 0.3, 0, 1e-150, 0.3}, Affine{1, 1e300, 0, 0, 1, 0.5},
              Affine{1e30, 0, -4e30, 0, 1e30, -9e30}})
            EXPECT_EQ(k::kNothingMapped, status(mode, m)) << m.a << " " << m.b << " " << m.tx;
        for (const Affine& m :
             {Affine{1e9, 0, -4e9, 0, 1e9, -3e9}, Affine{1e100, 0, 0, 0, 1e100, 0}, Affine{1e-12, 0, 20, 0, 1e-12, 10},
              Affine{1, 0, 31, 0, 1, 23}, Affine{1, 0, -8, 0, 1, -6}})
            EXPECT_EQ(k::kOk, status(mode, m)) << m.a << " " << m.b << " " << m.tx;
    }
}

TEST(warp, refuses_regions_outside_of_the_source) {
    const auto src = noise<uint8_t>({10, 10}, 1, 1);
    Pixels<uint8_t> dst{{5, 5}, 1};
    constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
    for (const Region& from : {Region{6, 0, 5, 5}, Region{-1, 0, 5, 5}, Region{0, 1, 5, kMax}, Region{0, 6, 5, 5}})
        EXPECT_EQ(k::kBadArg, warp(linear, Form::c1, src, from, dst, dst.region(), {1, 0, 0, 0, 1, 0}));
    EXPECT_EQ(k::kBadSize, warp(linear, Form::c1, src, {0, 0, 5, 0}, dst, dst.region(), {1, 0, 0, 0, 1, 0}));
    EXPECT_EQ(k::kBadSize, warp(linear, Form::c1, src, src.region(), dst, {0, 0, -5, 5}, {1, 0, 0, 0, 1, 0}));
}

// A smooth picture turned 36 times by 10 degrees is still that picture.
TEST(warp, full_turns_keep_a_picture) {
    constexpr int kSide = 201, kRadius = 90;
    Pixels<uint8_t> src{{kSide, kSide}, 1};
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x)
            src.all[src.place(x, y)] = uint8_t(128 + 60 * std::sin(x / 9.0) + 60 * std::cos(y / 13.0 + x / 40.0));
    for (const auto& [mode, most] : {std::pair{nearest, 9.0}, {linear, 2.0}, {cubic, 1.0}, {lanczos, 2.0}}) {
        Pixels<uint8_t> turned = src, next = src;
        for (int i = 0; i < 36; ++i) {
            warp(mode, Form::c1, turned, turned.region(), next, next.region(),
                 cases::turn(10, 1, kSide / 2, kSide / 2, kSide / 2, kSide / 2));
            std::swap(turned, next);
        }
        double sum = 0;
        int count = 0;
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x)
                if (std::hypot(x - kSide / 2, y - kSide / 2) < kRadius) {
                    sum += std::fabs(double(src.all[src.place(x, y)]) - turned.all[src.place(x, y)]);
                    ++count;
                }
        EXPECT_LT(sum / count, most) << kModeNames[mode];
        std::printf("%s: mean difference %.3f\n", kModeNames[mode], sum / count);
    }
}

}  // namespace

// Values of the arithmetic kernels that random planes may miss: every pair of 8-bit values, the corners of 16 bits,
// every sum and count of the 8-bit mean, NaN in both operands, planes that reach beyond 4 GiB.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include "cases/arith.h"
#include "cases/compare.h"
#include "cases/logic.h"
#include "cases/set.h"
#include "kernels/check.h"

using namespace tarn;
using cases::View;
using test::at_every_level;

namespace {

// Every 8-bit value, or the corners of 16 bits.
template <class T>
std::vector<T> corners() {
    if constexpr (sizeof(T) == 2)
        return {0, 1, -1, 2, -2, 127, 128, 181, 182, 255, 256, -181, -182, 16384, -16384, 32766, 32767, -32767, -32768};
    std::vector<T> all(256);
    std::iota(all.begin(), all.end(), T(0));
    return all;
}

template <class T, class Op>
void fold_pairs(const char* name, const k::Kernel<k::Fold>& kernel, Op op) {
    std::vector<T> a, b;
    for (const T x : corners<T>())
        for (const T y : corners<T>()) a.push_back(x), b.push_back(y);
    std::vector<T> d(a.size());
    const k::Size size{int(a.size()), 1};
    const View views[2] = {{reinterpret_cast<uint8_t*>(a.data()), 0, size},
                           {reinterpret_cast<uint8_t*>(b.data()), 0, size}};
    const cases::ViewList list(views, 2);
    at_every_level([&](int level) {
        ASSERT_EQ(kernel(&list.sources, d.data(), 0, size), k::kOk);
        for (size_t i = 0; i < a.size(); ++i)
            ASSERT_EQ(int(d[i]), int(cases::arith_step(op, a[i], b[i])))
                << name << " of " << int(a[i]) << " and " << int(b[i]) << " at level " << level;
    });
}

// Every value with every constant of 8 bits, or with corner constants of 16.
template <class T, class Op>
void constant_pairs(const char* name, const k::Kernel<k::WithConstantInPlace>& kernel, Op op) {
    at_every_level([&](int level) {
        const int first = sizeof(T) == 1 ? 0 : -32768, last = sizeof(T) == 1 ? 255 : 32767,
                  step = sizeof(T) == 1 ? 1 : 257;
        for (int c = first; c <= last; c += step) {
            std::vector<T> d;
            for (int v = first; v <= last; ++v) d.push_back(T(v));
            const T constant = T(c);
            ASSERT_EQ(kernel(&constant, d.data(), 0, k::Size{int(d.size()), 1}), k::kOk);
            for (int v = first; v <= last; ++v)
                ASSERT_EQ(int(d[size_t(v - first)]), int(cases::arith_step(op, T(v), constant)))
                    << name << " of " << v << " and " << c << " at level " << level;
        }
    });
}

}  // namespace

TEST(elementwise_values, every_pair_of_8_bits_and_the_corners_of_16) {
    fold_pairs<uint8_t>("add", k::add_n_u8_c1, cases::Add{});
    fold_pairs<uint8_t>("sub", k::sub_n_u8_c1, cases::Sub{});
    fold_pairs<uint8_t>("mul", k::mul_n_u8_c1, cases::Mul{});
    fold_pairs<int16_t>("add", k::add_n_s16_c1, cases::Add{});
    fold_pairs<int16_t>("sub", k::sub_n_s16_c1, cases::Sub{});
    fold_pairs<int16_t>("mul", k::mul_n_s16_c1, cases::Mul{});
    constant_pairs<uint8_t>("add", k::add_c_u8_c1, cases::Add{});
    constant_pairs<uint8_t>("sub", k::sub_c_u8_c1, cases::Sub{});
    constant_pairs<uint8_t>("mul", k::mul_c_u8_c1, cases::Mul{});
    constant_pairs<int16_t>("add", k::add_c_s16_c1, cases::Add{});
    constant_pairs<int16_t>("sub", k::sub_c_s16_c1, cases::Sub{});
    constant_pairs<int16_t>("mul", k::mul_c_s16_c1, cases::Mul{});
}

TEST(elementwise_values, mean_of_8_bits_is_exact_for_every_sum_and_count) {
    // Pixel s of the planes holds s in all: the planes up to s / 255 hold 255, the next one the rest.
    struct Planes {
        std::vector<std::vector<uint8_t>> rows;
        static k::Source at(const void* list, int32_t i) {
            return {static_cast<const Planes*>(list)->rows[size_t(i)].data(), 0};
        }
    };
    alignas(64) static uint8_t scratch[k::kAverageScratch];
    std::vector<int> counts(130);
    std::iota(counts.begin(), counts.end(), 1);
    counts.insert(counts.end(), {200, 255, 256, 257, 300});
    for (const int count : counts) {
        const int sums = 255 * count + 1;
        Planes planes{std::vector<std::vector<uint8_t>>(size_t(count), std::vector<uint8_t>(size_t(sums)))};
        for (int i = 0; i < count; ++i)
            for (int s = 0; s < sums; ++s) planes.rows[size_t(i)][size_t(s)] = uint8_t(std::clamp(s - 255 * i, 0, 255));
        const k::Sources list{Planes::at, &planes, count};
        std::vector<uint8_t> d(static_cast<size_t>(sums));
        at_every_level([&](int level) {
            ASSERT_EQ(k::avg_n_u8_c1(&list, count, d.data(), 0, k::Size{sums, 1}, scratch), k::kOk);
            for (int s = 0; s < sums; ++s)
                ASSERT_EQ(int(d[size_t(s)]), int(std::nearbyint(double(s) / count)))
                    << s << " / " << count << " at level " << level;
        });
    }
}

TEST(elementwise_values, mean_of_16_bits_is_exact_for_every_sum_and_any_divisor) {
    std::vector<int16_t> all;
    for (int v = -32768; v <= 32767; ++v) all.push_back(int16_t(v));
    const k::Size size{65536, 1};
    for (const int divisor : {1, 2, 3, 4, 5, 6, 7, 10, 100, 255, 256, 1000, 32767, 32768, 65535, 65539, 100000}) {
        const double by = int16_t(divisor);
        at_every_level([&](int level) {
            std::vector<int16_t> d = all;
            const View v{reinterpret_cast<uint8_t*>(d.data()), 0, size};
            const cases::ViewList list(&v, 1);
            ASSERT_EQ(k::avg_n_s16_c1(&list.sources, divisor, d.data(), 0, size, nullptr), k::kOk);
            for (size_t i = 0; i < all.size(); ++i)
                ASSERT_EQ(int(d[i]), int(std::min(std::nearbyint(all[i] / by), 32767.0)))
                    << all[i] << " / " << by << " at level " << level;
        });
    }
    std::vector<int16_t> d = all;
    const View v{reinterpret_cast<uint8_t*>(d.data()), 0, size};
    const cases::ViewList list(&v, 1);
    EXPECT_EQ(k::avg_n_s16_c1(&list.sources, 65536, d.data(), 0, size, nullptr), k::kBadArg);
    EXPECT_EQ(d, all);
}

TEST(elementwise_values, of_two_nan_the_first_operand_s_is_kept_quieted) {
    const uint32_t first[] = {0x7fc00001, 0xffc00002, 0x7f800003, 0x3f800000, 0x7f800000, 0xff800000};
    const uint32_t second[] = {0x7fc00011, 0xffc00012, 0xff800013, 0x40000000, 0xff800000, 0x00000000};
    std::vector<float> a, b, d;
    for (int repeat = 0; repeat < 5; ++repeat)
        for (const uint32_t x : first)
            for (const uint32_t y : second) a.push_back(std::bit_cast<float>(x)), b.push_back(std::bit_cast<float>(y));
    d.resize(a.size());
    const k::Size size{int(a.size()), 1};
    const auto is_nan = [](float f) { return (std::bit_cast<uint32_t>(f) & 0x7fffffff) > 0x7f800000; };
    const auto check = [&](const char* name, int level) {
        for (size_t i = 0; i < a.size(); ++i) {
            if (!is_nan(a[i]) && !is_nan(b[i])) continue;
            const uint32_t want = std::bit_cast<uint32_t>(is_nan(a[i]) ? a[i] : b[i]) | 0x00400000;
            EXPECT_EQ(std::bit_cast<uint32_t>(d[i]), want) << name << " at level " << level << ", pair " << i;
        }
    };
    const std::pair<const char*, const k::Kernel<k::Fold>*> folds[] = {
        {"add", &k::add_n_f32_c1}, {"sub", &k::sub_n_f32_c1}, {"mul", &k::mul_n_f32_c1}};
    const std::pair<const char*, const k::Kernel<k::WithConstantInPlace>*> constants[] = {
        {"add_c", &k::add_c_f32_c1}, {"sub_c", &k::sub_c_f32_c1}, {"mul_c", &k::mul_c_f32_c1}};
    at_every_level([&](int level) {
        for (const auto& [name, kernel] : folds) {
            const View views[2] = {{reinterpret_cast<uint8_t*>(a.data()), 0, size},
                                   {reinterpret_cast<uint8_t*>(b.data()), 0, size}};
            const cases::ViewList list(views, 2);
            ASSERT_EQ((*kernel)(&list.sources, d.data(), 0, size), k::kOk);
            check(name, level);
        }
        for (const auto& [name, kernel] : constants)
            for (size_t j = 0; j < 6; ++j) {
                const std::vector<float> kept = b;
                std::fill(b.begin(), b.end(), kept[j]);
                d = a;
                ASSERT_EQ((*kernel)(b.data(), d.data(), 0, size), k::kOk);
                check(name, level);
                b = kept;
            }
    });
}

TEST(elementwise_values, rows_beyond_four_gigabytes) {
    // Rows a gigabyte apart: only their pixels get memory.
    constexpr int32_t kStride = 1 << 30;
    constexpr k::Size size{70, 6};
    const size_t bytes = size_t(kStride) * 5 + 4096;
    const auto map = [&] {
        return static_cast<uint8_t*>(
            mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    };
    uint8_t *a = map(), *d = map();
    ASSERT_NE(a, MAP_FAILED);
    ASSERT_NE(d, MAP_FAILED);
    uint8_t* last = d + size_t(kStride) * 5;
    at_every_level([&](int level) {
        for (int y = 0; y < 6; ++y) {
            memset(a + size_t(kStride) * size_t(y), 16 + y, 70);
            memset(d + size_t(kStride) * size_t(y), 1, 70);
        }
        const uint8_t c = 3;
        EXPECT_EQ(k::xor_u8_c1(a, kStride, d, kStride, d, kStride, size), k::kOk);
        EXPECT_EQ(last[69], 1 ^ 21) << level;
        EXPECT_EQ(k::add_c_u8_c1(&c, last, -kStride, size), k::kOk);
        EXPECT_EQ(d[69], (1 ^ 16) + 3) << level;
        EXPECT_EQ(k::cmp_u8_c1(a, kStride, d, kStride, d, kStride, size, k::kLess), k::kOk);
        EXPECT_EQ(last[69], 16 + 5 < (1 ^ 21) + 3 ? 255 : 0) << level;
        const View views[2] = {{a, kStride, size}, {a, kStride, size}};
        const cases::ViewList list(views, 2);
        EXPECT_EQ(k::add_n_u8_c1(&list.sources, d, kStride, size), k::kOk);
        EXPECT_EQ(last[69], 42) << level;
        EXPECT_EQ(k::set_m_u8_c1(&c, d, kStride, size, a, kStride), k::kOk);
        EXPECT_EQ(last[69], 3) << level;
        EXPECT_EQ(last[70], 0) << level;
    });
    munmap(a, bytes);
    munmap(d, bytes);
}

// What the cases have no plane for; sizes and planes are theirs.
TEST(elementwise_values, missing_constants_and_unknown_comparisons_are_refused) {
    uint8_t a[16] = {1}, d[16] = {7};
    const k::Size one{1, 1};
    EXPECT_EQ(k::and_c_u8_c3(a, 4, nullptr, d, 4, one), k::kNull);
    EXPECT_EQ(k::add_c_u8_c1(nullptr, d, 4, one), k::kNull);
    EXPECT_EQ(k::set_u8_c1(nullptr, d, 4, one), k::kNull);
    EXPECT_EQ(k::set_m_u8_c1(nullptr, d, 4, one, a, 4), k::kNull);
    EXPECT_EQ(k::cmp_c_u8_c1(a, 4, nullptr, d, 4, one, k::kEqual), k::kNull);
    EXPECT_EQ(k::add_n_u8_c1(nullptr, d, 4, one), k::kNull);
    for (const int32_t comparison : {-1, 5, 100}) {
        EXPECT_EQ(k::cmp_u8_c1(a, 4, a, 4, d, 4, one, comparison), k::kBadArg);
        EXPECT_EQ(k::cmp_c_u8_c1(a, 4, a, d, 4, one, comparison), k::kBadArg);
    }
    EXPECT_EQ(d[0], 7);
}

// Values of the arithmetic kernels that random planes may miss: every pair of 8-bit values, the corners of 16 bits,
// every sum and count of the 8-bit mean, NaN in both operands, planes that reach beyond 4 GiB, rows copied by any
// distance.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "cases/arith.h"
#include "cases/compare.h"
#include "cases/copy.h"
#include "cases/heap.h"
#include "cases/logic.h"
#include "cases/mapping.h"
#include "cases/set.h"
#include "cases/threshold.h"
#include "kernels/check.h"

using namespace tarn;
using cases::View;
using test::at_every_level;

namespace {

template <class T>
View row_of(std::vector<T>& elements) {
    return {reinterpret_cast<uint8_t*>(elements.data()), 0, {int(elements.size()), 1}};
}

// Every value with every value of 8 bits, or with the corners of 16, as a list of two and as a constant.
template <class T>
void pairs(const char* name, const k::Kernel<k::Fold>& fold, const k::Kernel<k::WithConstantInPlace>& with_constant,
           auto op) {
    std::vector<T> all;
    for (int v = std::numeric_limits<T>::min(); v <= std::numeric_limits<T>::max(); ++v) all.push_back(T(v));
    std::vector<T> second = all;
    if (sizeof(T) == 2)
        second = {T(0),   T(1),    T(-1),   T(2),     T(-2),     T(127),   T(128),   T(181),    T(182),   T(255),
                  T(256), T(-181), T(-182), T(16384), T(-16384), T(32766), T(32767), T(-32767), T(-32768)};
    for (const T c : second) {
        std::vector<T> constants(all.size(), c);
        const View views[2] = {row_of(all), row_of(constants)};
        const cases::ViewList list(views, 2);
        at_every_level([&](int level) {
            std::vector<T> folded(all.size()), in_place = all;
            ASSERT_EQ(fold(&list.sources, folded.data(), 0, views[0].size), k::kOk);
            ASSERT_EQ(with_constant(&c, in_place.data(), 0, views[0].size), k::kOk);
            for (size_t i = 0; i < all.size(); ++i) {
                const int want = cases::arith_step(op, all[i], c);
                ASSERT_EQ(folded[i], want) << name << " of " << +all[i] << " and " << +c << " at level " << level;
                ASSERT_EQ(in_place[i], want) << name << " of " << +all[i] << " and " << +c << " at level " << level;
            }
        });
    }
}

}  // namespace

TEST(elementwise_values, every_pair_of_8_bits_and_the_corners_of_16) {
    pairs<uint8_t>("add", k::add_n_u8_c1, k::add_c_u8_c1, cases::Add{});
    pairs<uint8_t>("sub", k::sub_n_u8_c1, k::sub_c_u8_c1, cases::Sub{});
    pairs<uint8_t>("mul", k::mul_n_u8_c1, k::mul_c_u8_c1, cases::Mul{});
    pairs<int16_t>("add", k::add_n_s16_c1, k::add_c_s16_c1, cases::Add{});
    pairs<int16_t>("sub", k::sub_n_s16_c1, k::sub_c_s16_c1, cases::Sub{});
    pairs<int16_t>("mul", k::mul_n_s16_c1, k::mul_c_s16_c1, cases::Mul{});
}

TEST(elementwise_values, mean_of_8_bits_is_exact_for_every_sum_and_count) {
    alignas(64) static uint8_t scratch[k::kAverageScratch];
    std::vector<int> counts = {200, 255, 256, 257, 300};
    for (int count = 1; count <= 130; ++count) counts.push_back(count);
    for (const int count : counts) {
        // Pixel s of the planes holds s in all: the planes up to s / 255 hold 255, the next one the rest.
        const k::Size size{255 * count + 1, 1};
        std::vector<std::vector<uint8_t>> planes(static_cast<size_t>(count));
        std::vector<View> views;
        for (int i = 0; i < count; ++i) {
            for (int s = 0; s < size.width; ++s) planes[size_t(i)].push_back(uint8_t(std::clamp(s - 255 * i, 0, 255)));
            views.push_back(row_of(planes[size_t(i)]));
        }
        const cases::ViewList list(views.data(), count);
        std::vector<uint8_t> d(size_t(size.width));
        at_every_level([&](int level) {
            ASSERT_EQ(k::avg_n_u8_c1(&list.sources, count, d.data(), 0, size, scratch), k::kOk);
            for (int s = 0; s < size.width; ++s)
                ASSERT_EQ(d[size_t(s)], std::nearbyint(double(s) / count)) << s << " / " << count << ", " << level;
        });
    }
}

TEST(elementwise_values, mean_of_16_bits_is_exact_for_every_sum_and_any_divisor) {
    std::vector<int16_t> all;
    for (int v = -32768; v <= 32767; ++v) all.push_back(int16_t(v));
    const View row = row_of(all);
    const cases::ViewList list(&row, 1);
    std::vector<int16_t> d = all;
    for (const int divisor : {1, 2, 3, 4, 5, 6, 7, 10, 100, 255, 256, 1000, 32767, 32768, 65535, 65539, 100000}) {
        const double by = int16_t(divisor);
        at_every_level([&](int level) {
            ASSERT_EQ(k::avg_n_s16_c1(&list.sources, divisor, d.data(), 0, row.size, nullptr), k::kOk);
            for (size_t i = 0; i < all.size(); ++i)
                ASSERT_EQ(d[i], std::min(std::nearbyint(all[i] / by), 32767.0))
                    << all[i] << " / " << by << " at level " << level;
        });
    }
    EXPECT_EQ(k::avg_n_s16_c1(&list.sources, 65536, d.data(), 0, row.size, nullptr), k::kBadArg);
    EXPECT_EQ(d, all);  // the sum
}

TEST(elementwise_values, of_two_nan_the_first_operand_s_is_kept_quieted) {
    const uint32_t first[] = {0x7fc00001, 0xffc00002, 0x7f800003, 0x3f800000, 0x7f800000, 0xff800000};
    const uint32_t second[] = {0x7fc00011, 0xffc00012, 0xff800013, 0x40000000, 0xff800000, 0x00000000};
    const struct {
        const k::Kernel<k::Fold>& fold;
        const k::Kernel<k::WithConstantInPlace>& with_constant;
    } operations[] = {
        {k::add_n_f32_c1, k::add_c_f32_c1}, {k::sub_n_f32_c1, k::sub_c_f32_c1}, {k::mul_n_f32_c1, k::mul_c_f32_c1}};
    const auto is_nan = [](uint32_t f) { return (f & 0x7fffffff) > 0x7f800000; };
    for (const auto& [fold, with_constant] : operations)
        for (const uint32_t x : first)
            for (const uint32_t y : second) {
                if (!is_nan(x) && !is_nan(y)) continue;
                std::vector<uint32_t> a(37, x), b(37, y);
                const std::vector<uint32_t> want(37, (is_nan(x) ? x : y) | 0x00400000);
                const View views[2] = {row_of(a), row_of(b)};
                const cases::ViewList list(views, 2);
                at_every_level([&, &fold = fold, &with_constant = with_constant](int level) {
                    std::vector<uint32_t> folded(37), in_place = a;
                    ASSERT_EQ(fold(&list.sources, folded.data(), 0, views[0].size), k::kOk);
                    ASSERT_EQ(with_constant(b.data(), in_place.data(), 0, views[0].size), k::kOk);
                    EXPECT_EQ(folded, want) << "operation " << &fold - &operations[0].fold << ", level " << level;
                    EXPECT_EQ(in_place, want) << "operation " << &fold - &operations[0].fold << ", level " << level;
                });
            }
}

TEST(elementwise_values, rows_beyond_four_gigabytes) {
    // Rows a gigabyte apart: only their pixels get memory.
    constexpr int32_t kStride = 1 << 30;
    constexpr k::Size size{70, 6};
    const size_t bytes = size_t(kStride) * 5 + 4096;
    void* both = mmap(nullptr, 2 * bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(both, MAP_FAILED);
    uint8_t *a = static_cast<uint8_t*>(both), *d = a + bytes, *last = d + size_t(kStride) * 5;
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
    munmap(both, 2 * bytes);
}

TEST(elementwise_values, planes_are_their_rows_and_the_destination_may_be_a_source) {
    // Where rows are no whole number of vectors, their last one is made of pixels that are already done; narrow rows
    // are brought together, many at a time.
    for (int width = 1; width < 140; ++width) {
        const int height = width < 20 ? 120 : 3, stride = width * 4 + 4;
        std::vector<uint8_t> a(size_t(stride * height)), b(a.size());
        for (size_t i = 0; i < a.size(); ++i) a[i] = uint8_t(i * i >> 3), b[i] = uint8_t(i * 37);
        const float scale = 0.7f, offset = 20;
        // run(source, other source, destination, size)
        const auto same = [&](const char* name, auto run) {
            at_every_level([&](int level) {
                std::vector<uint8_t> apart = a, in_place = a, by_rows = a;
                const k::Size size{width, height};
                ASSERT_EQ(run(a.data(), b.data(), apart.data(), size), k::kOk);
                ASSERT_EQ(run(in_place.data(), b.data(), in_place.data(), size), k::kOk);
                for (size_t at = 0; at < a.size(); at += size_t(stride))
                    ASSERT_EQ(run(&a[at], &b[at], &by_rows[at], k::Size{width, 1}), k::kOk);
                ASSERT_EQ(apart, by_rows) << name << " of " << width << " pixels at level " << level;
                ASSERT_EQ(in_place, by_rows) << name << " of " << width << " pixels at level " << level;
            });
        };
        same("scale_u8_u8", [&](uint8_t* s, uint8_t*, uint8_t* d, k::Size size) {
            return k::scale_u8_u8_c1(s, stride, d, stride, size, &scale, &offset, cases::heap());
        });
        same("scale_f32_f32", [&](uint8_t* s, uint8_t*, uint8_t* d, k::Size size) {
            return k::scale_f32_f32_c1(s, stride, d, stride, size, &scale, &offset, cases::heap());
        });
        same("cmp_u8", [&](uint8_t* s, uint8_t* other, uint8_t* d, k::Size size) {
            return k::cmp_u8_c1(s, stride, other, stride, d, stride, size, k::kLess);
        });
        for (const int planes : {2, 3, 6}) {
            const auto list_of = [&](uint8_t* first, uint8_t* other) {
                std::vector<View> views(size_t(planes), View{other, stride, {width, height}});
                views[0].data = first;
                return views;
            };
            same("add_n_u8", [&](uint8_t* s, uint8_t* other, uint8_t* d, k::Size size) {
                const auto views = list_of(s, other);
                const cases::ViewList list(views.data(), planes);
                return k::add_n_u8_c1(&list.sources, d, stride, size);
            });
            same("avg_n_u8", [&](uint8_t* s, uint8_t* other, uint8_t* d, k::Size size) {
                const auto views = list_of(s, other);
                std::vector<uint8_t> scratch(k::kAverageScratch);
                const cases::ViewList list(views.data(), planes);
                return k::avg_n_u8_c1(&list.sources, planes, d, stride, size, scratch.data());
            });
        }
    }
}

TEST(elementwise_values, rows_copied_by_any_distance) {
    // Long rows a few bytes ahead of their source within a page go another way, whether they overlap or not.
    std::vector<uint8_t> before(42000);
    for (size_t i = 0; i < before.size(); ++i) before[i] = uint8_t(i * i >> 5);
    at_every_level([&](int level) {
        for (const int n : {2047, 2048, 2049, 2500, 4111, 9000})
            for (const int pages : {-4, -3, -1, 0, 1, 3, 4})
                for (const int ahead : {-1, 1, 5, 31, 32, 63, 64}) {
                    const int distance = pages * 4096 + ahead;
                    std::vector<uint8_t> memory = before, want = before;
                    uint8_t* source = memory.data() + 16500;
                    memmove(want.data() + 16500 + distance, want.data() + 16500, size_t(n));
                    ASSERT_EQ(k::copy_u8_c1(source, 0, source + distance, 0, {n, 1}), k::kOk);
                    ASSERT_EQ(memory, want) << n << " bytes by " << distance << " at level " << level;
                }
    });
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
    for (int missing = 0; missing < 5; ++missing) {
        const int32_t words[4] = {};
        const void* parts[] = {words, words, words, words, words};
        parts[missing] = nullptr;
        const k::Thresholds t{k::kLess, parts[0], {parts[1], parts[2]}, {parts[3], parts[4]}};
        EXPECT_EQ(k::threshold_u8_c1(a, 4, d, 4, one, &t), k::kNull) << missing;
    }
    EXPECT_EQ(d[0], 7);
}

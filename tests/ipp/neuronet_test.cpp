// "tarn::multi-line-neuronet" through the module.
#include "cases/net_output.h"
#include "ipp/fixture.h"

#include <bit>
#include <cmath>
#include <limits>

using namespace tarn::test;

namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr uint32_t kNan = 0x7fc00000;

int64_t mlnn(LumoMAT* out, const LumoMAT* in, const std::vector<TarnLayer>& layers, KaSMEMSTG* storage = nullptr,
             QuelERR* err = nullptr) {
    return call<TarnMultiLineNeuronet>("mlnn", err, storage, out, in, uint64_t(layers.size()), layers.data());
}

// A caller's output counts as a matrix when its first word is set.
Array output(int width, int height, int padding = 0, bool upwards = false) {
    Array a(f32(1), width, height, padding, upwards);
    static const char kMatrix = 0;
    a.mat.cls = &kMatrix;
    a.set(-7.0f);
    return a;
}

Array row_of(const std::vector<float>& values) {
    Array a(f32(1), int(values.size()), 1);
    memcpy(a.mat.data, values.data(), values.size() * 4);
    return a;
}

Array random(int width, int height, unsigned seed, float scale, int padding = 0, bool upwards = false) {
    Array a(f32(1), width, height, padding, upwards);
    std::mt19937 rng(seed);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) a.at<float>(x, y) = (float(rng() >> 8) / float(1 << 23) - 1) * scale;
    return a;
}

// The activation of one row: through a layer whose weights are the identity.
std::vector<float> activate(const std::vector<float>& values, int32_t activation) {
    const int n = int(values.size());
    Array in = row_of(values), identity(f32(1), n, n), out = output(n, 1);
    identity.set(0.0f);
    for (int i = 0; i < n; ++i) identity.at<float>(i, i) = 1;
    EXPECT_EQ(mlnn(&out, &in, {{&identity, nullptr, activation, 0}}), 0);
    EXPECT_TRUE(out.intact());
    const float* p = out.row<float>(0);
    return {p, p + n};
}
// The same of each value alone, so that infinities and NaN meet no zero weight.
float activate_one(float value, int32_t activation) { return activate({value}, activation)[0]; }

double ulps(double value, double expected) {
    const float e = float(expected);
    return std::fabs(value - expected) / (double(std::nextafter(std::fabs(e), kInf)) - std::fabs(double(e)));
}

}  // namespace

// Which activation a number is; their values in full: cases/net.h.
TEST(mlnn, activations_by_their_numbers) {
    struct Row {
        int32_t activation;
        float value;
        double expected;
    };
    const double e1 = std::exp(-2.0), e2 = std::exp(-1.0), sum = 1 + e1 + e2;
    for (const Row& r : {Row{0, -3.5f, -3.5}, Row{3, 2.0f, 1 / (1 + std::exp(2.0))},
                         Row{4, 2.0f, 1 / (1 + std::exp(-2.0))}, Row{4, -88.0f, 1 / (1 + std::exp(88.0))},
                         Row{5, -3.0f, 0}, Row{5, 3.0f, 3}, Row{6, -3.0f, -0.03f}, Row{6, 3.0f, 3}, Row{7, -1e30f, 1}})
        EXPECT_LE(ulps(activate_one(r.value, r.activation), r.expected), 2) << r.activation << " of " << r.value;
    const auto of123 = activate({1, 2, 3}, 7);
    for (size_t i = 0; i < 3; ++i) EXPECT_LE(ulps(of123[i], (i == 0 ? e1 : i == 1 ? e2 : 1) / sum), 2) << i;
    // No overflow: the largest is subtracted first.
    EXPECT_EQ(activate({1000, 1000}, 7), (std::vector<float>{0.5f, 0.5f}));
    EXPECT_EQ(activate({1000, -1000}, 7), (std::vector<float>{1, 0}));
    // A sum starts at +0 and keeps denormals.
    EXPECT_FALSE(std::signbit(activate_one(-0.0f, 0)));
    EXPECT_EQ(activate_one(0x1p-149f, 0), 0x1p-149f);
    // NaN stays NaN, whatever its payload was, as one quiet NaN; so do a softmax's undefined shares, and products.
    for (const int32_t activation : {0, 3, 4, 5, 6, 7})
        for (const uint32_t nan : {0x7fc00000u, 0xffc12345u, 0x7f800001u, 0xff800001u})
            EXPECT_EQ(std::bit_cast<uint32_t>(activate_one(std::bit_cast<float>(nan), activation)), kNan) << activation;
    for (const float infinity : {kInf, -kInf}) EXPECT_EQ(std::bit_cast<uint32_t>(activate_one(infinity, 7)), kNan);
    EXPECT_EQ(std::bit_cast<uint32_t>(activate({kInf, 1}, 0)[1]), kNan);
}

TEST(mlnn, softmax_gives_shares_that_add_up_to_one) {
    std::mt19937 rng(3);
    for (int n = 1; n <= 300; n += n / 9 + 1) {
        std::vector<float> values;
        for (int i = 0; i < n; ++i) values.push_back(float(rng() % 4000) / 100 - 20);
        double total = 0;
        for (const float v : activate(values, 7)) total += v;
        EXPECT_LE(std::fabs(total - 1), std::ldexp(1, -23)) << n;  // two units of the last place below 1
    }
}

TEST(mlnn, unknown_activations_end_the_process) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const int32_t activation : {1, 2, 8, 9, -1, std::numeric_limits<int32_t>::min()})
        EXPECT_EXIT(activate_one(0, activation), testing::KilledBySignal(SIGABRT), "") << activation;
}

TEST(mlnn, without_layers_does_nothing) {
    Array in = random(3, 2, 1, 1);
    LumoMAT out = {};
    EXPECT_EQ(mlnn(&out, &in, {}), 0);
    EXPECT_EQ(out.cls, nullptr);
    EXPECT_EQ(out.data, nullptr);
    Array given = output(3, 2);
    const auto before = given.pixels();
    EXPECT_EQ(mlnn(&given, &in, {}), 0);
    EXPECT_EQ(given.pixels(), before);
}

TEST(mlnn, layers_in_turn_give_their_sums_to_the_bit) {
    // Shapes around the tiles and blocks, up to thousands; a sample alone and in batches; rows padded and upwards; with
    // and without bias; one to four layers.
    struct Row {
        int samples;
        std::vector<int> widths;
    };
    const Row rows[] = {{1, {1, 1}},
                        {5, {1, 3, 1}},
                        {1, {16, 16}},
                        {3, {17, 5, 33}},
                        {4, {784, 256, 128, 10}},
                        {1, {784, 256, 128, 10}},
                        {67, {31, 9, 15, 7, 2}},
                        {2, {3001, 2, 1500}},
                        {2050, {3, 2}},
                        {131, {2000, 37, 11}},
                        {130, {64, 19}}};
    for (const auto& [samples, widths] : rows)
        for (const bool upwards : {false, true}) {
            SCOPED_TRACE(testing::Message() << samples << " samples, " << widths[0] << " columns, upwards " << upwards);
            const size_t count = widths.size() - 1;
            Array in = random(widths[0], samples, 5, 1, 12, upwards), out = output(widths.back(), samples, 8, upwards);
            std::vector<Array> arrays;
            arrays.reserve(2 * count);
            std::vector<TarnLayer> layers;
            for (size_t i = 0; i < count; ++i) {
                Array& weights = arrays.emplace_back(random(widths[i], widths[i + 1], unsigned(i), 1, 4, !upwards));
                Array& bias = arrays.emplace_back(random(widths[i + 1], 1, unsigned(i + 9), 1));
                layers.push_back({&weights, i % 2 ? nullptr : &bias, i + 1 == count ? 0 : 6, 0});
            }
            ASSERT_EQ(mlnn(&out, &in, layers), 0);
            EXPECT_TRUE(out.intact());
            EXPECT_TRUE(in.intact());
            for (int s = 0; s<samples; s += samples> 100 ? 13 : 1) {
                std::vector<float> x(in.row<float>(s), in.row<float>(s) + widths[0]);
                for (size_t i = 0; i < count; ++i) {
                    std::vector<float> y;
                    for (int j = 0; j < widths[i + 1]; ++j) {
                        float v = tarn::cases::net_output(x.data(), arrays[2 * i].row<float>(j), int(x.size()));
                        if (layers[i].bias) v += arrays[2 * i + 1].at<float>(j, 0);
                        y.push_back(layers[i].activation == 6 && v < 0 ? 0.01f * v : v);
                    }
                    x = y;
                }
                ASSERT_EQ(memcmp(out.row<float>(s), x.data(), 4 * x.size()), 0) << "sample " << s;
            }
        }
}

// Three layers, and what they make of a batch.
struct Network : testing::Test {
    Array in = random(20, 9, 1, 1), w1 = random(20, 8, 2, 1), w2 = random(8, 6, 3, 1), w3 = random(6, 5, 4, 1);
    std::vector<TarnLayer> layers = {{&w1, nullptr, 5, 0}, {&w2, nullptr, 5, 0}, {&w3, nullptr, 0, 0}};
    Array given = output(5, 9);
    Storage storage;
    LumoMAT made = {};
};
using mlnn_of_three_layers = Network;

TEST_F(mlnn_of_three_layers, makes_the_output_in_the_callers_storage_and_leaves_nothing_else) {
    ASSERT_EQ(mlnn(&given, &in, layers), 0);
    const KaTESTLIVE before = KaTESTlive();
    ASSERT_EQ(mlnn(&made, &in, layers, &storage), 0);
    EXPECT_EQ(made.width, 5);
    EXPECT_EQ(made.height, 9);
    EXPECT_EQ(made.elemtype, in.mat.elemtype);
    for (int y = 0; y < 9; ++y)
        EXPECT_EQ(memcmp(static_cast<uint8_t*>(made.data) + y * made.stride, given.row<float>(y), 20), 0);
    EXPECT_EQ(KaTESTlive().storages, before.storages);
    EXPECT_EQ(KaTESTlive().blocks, before.blocks + 1);
}

TEST_F(mlnn_of_three_layers, that_cannot_make_a_matrix_returns_minus_one_without_an_error_value) {
    QuelERR err;
    const auto once = [&] {
        err = {}, made = {};
        const int64_t result = mlnn(&made, &in, layers, &storage, &err);
        KaSMEMSTGclear(&storage);
        return result;
    };
    const int allocations = each_allocation_failing(once, [&](int64_t result) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(err.count, 0u);
        EXPECT_EQ(err.status & 0xffff, QUEL_E_NOMEM);
    });
    EXPECT_EQ(allocations, 3);  // two matrices between the layers and the output
    w1.mat.height = -1;         // a size that no matrix can have
    EXPECT_EQ(mlnn(&given, &in, layers), -1);
}

TEST(mlnn, of_other_element_kinds_writes_no_byte_outside_of_its_output) {
    for (const LumoELEMTYPE type : {LUMO_U8, LUMO_S16, LUMO_S32, LUMO_U32, LUMO_F64}) {
        const LumoELEMTYPE one = type | LUMO_CHANNELS(1);
        Array in = Array(one, 5, 3).filled(1), w = Array(one, 5, 4).filled(2), out = Array(one, 4, 3, 8).filled(3);
        out.mat.cls = &in;
        const auto before = out.pixels();
        EXPECT_EQ(mlnn(&out, &in, {{&w, nullptr, 7, 0}}), 0);
        EXPECT_TRUE(out.intact()) << LumoELEMTYPEshow(type);
        const bool computed = type == LUMO_S32 || type == LUMO_F64;
        EXPECT_EQ(out.pixels() != before, computed) << LumoELEMTYPEshow(type);
    }
}

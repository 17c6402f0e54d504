#include "ipp/fixture.h"

#include <algorithm>
#include <cfenv>
#include <limits>

namespace tarn::test {

namespace {
constexpr int kAround = 64;  // bytes before the first and behind the last row

// Rows may start at any byte, and do so in the tests. The undefined-behaviour sanitizer would stop at the tests' own
// typed access to them, so its builds have rows that start at whole elements.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kWholeElements = true;
#else
constexpr bool kWholeElements = false;
#endif
}  // namespace

QuelHOST* host() {
    static QuelHOST* loaded = [] {
        QuelERR err = {};
        QuelHOST* h = QuelHOSTopen(&err);
        if (!h || QuelHOSTload(h, TARN_MODULE_FILE, &err) != 0) {
            ADD_FAILURE() << "the module can't be loaded: " << err.last.text;
            abort();
        }
        return h;
    }();
    return loaded;
}

QuelOP find(const char* name) {
    QuelERR err = {};
    QuelOP op = {};
    if (QuelHOSTfind(host(), name, &op, &err) != 0) {
        ADD_FAILURE() << err.last.text;
        abort();
    }
    return op;
}

LumoARRAY region_of(LumoELEMTYPE type, int32_t width, int32_t height) {
    LumoARRAY parms;
    const int32_t sizes[] = {height, width};
    EXPECT_TRUE(LumoARRPARMS(&parms, 2, sizes, _G_Lumo_strides_corder, &(const LumoARRLO&)LumoARRLO{"HW"}, type, 0));
    return parms;
}

Array::Array(LumoELEMTYPE type, int width, int height, int padding, bool upwards)
    : channels(int(type >> 12 & 15)), element_bytes(int(LumoELEMTYPEsizeof(type))) {
    if (kWholeElements && element_bytes > 1) padding = (padding + element_bytes - 1) / element_bytes * element_bytes;
    const int pitch = width * channels * element_bytes + padding;
    memory.assign(size_t(pitch) * size_t(height > 0 ? height : 0) + 2 * kAround, 0xa5);
    uint8_t* lowest = memory.data() + kAround;
    mat = {
        nullptr, type, width, height, upwards ? -pitch : pitch, lowest + (upwards ? int64_t(pitch) * (height - 1) : 0)};
}

Array::Array(const Array& other)
    : mat(other.mat), channels(other.channels), element_bytes(other.element_bytes), memory(other.memory) {
    mat.data = memory.data() + (static_cast<uint8_t*>(other.mat.data) - other.memory.data());
}

void Array::fill(unsigned seed) {
    std::mt19937 rng(seed);
    const bool floats = (mat.elemtype >> 8 & 15) == LUMO_KIND_F32;
    for (int y = 0; y < mat.height; ++y)
        for (int i = 0; i < mat.width * channels * element_bytes; ++i)
            if (!floats)
                row<uint8_t>(y)[i] = uint8_t(rng() >> 13);
            else if (i % 4 == 0)
                row<float>(y)[i / 4] = float(rng() % 2000001) / 1000 - 1000;
}

bool Array::intact() const {
    std::vector<uint8_t> around = memory;
    for (int y = 0; y < mat.height; ++y) {
        const int64_t at = row<uint8_t>(y) - memory.data();
        std::fill_n(around.begin() + at, mat.width * channels * element_bytes, 0xa5);
    }
    return std::all_of(around.begin(), around.end(), [](uint8_t byte) { return byte == 0xa5; });
}

std::vector<uint8_t> Array::pixels() const {
    std::vector<uint8_t> all;
    for (int y = 0; y < mat.height; ++y)
        all.insert(all.end(), row<uint8_t>(y), row<uint8_t>(y) + mat.width * channels * element_bytes);
    return all;
}

bool Array::same_pixels(const Array& other) const { return pixels() == other.pixels(); }

std::string show(LumoELEMTYPE type) {
    return LumoELEMTYPEshow(type & 0xfff) + std::string(" x ") + std::to_string(type >> 12);
}

namespace {
// f(T{}) with the C++ type of a kind's elements.
template <class F>
auto with_type(LumoELEMTYPE type, F f) {
    const auto kind = type >> 8 & 15;
    if (kind == LUMO_KIND_S16) return f(int16_t());
    if (kind == LUMO_KIND_S32) return f(int32_t());
    if (kind == LUMO_KIND_U32) return f(uint32_t());
    if (kind == LUMO_KIND_F32) return f(float());
    EXPECT_EQ(kind, LUMO_KIND_U8) << "no element of " << show(type);
    return f(uint8_t());
}
uint8_t* element(const LumoMAT* m, int x, int y, int c, size_t bytes) {
    return static_cast<uint8_t*>(m->data) + int64_t(y) * m->stride + (x * int(m->elemtype >> 12 & 15) + c) * int(bytes);
}
}  // namespace

double fit(LumoELEMTYPE type, double value) {
    return with_type(type, [&](auto t) {
        using Limits = std::numeric_limits<decltype(t)>;
        if (!Limits::is_integer) return double(float(value));
        return std::fmin(std::fmax(std::nearbyint(value), double(Limits::min())), double(Limits::max()));
    });
}
double wrapped(LumoELEMTYPE type, int64_t value) {
    return with_type(type, [&](auto t) { return double(decltype(t)(value)); });
}

double get(const LumoMAT* m, int x, int y, int c) {
    return with_type(m->elemtype, [&](auto t) {
        memcpy(&t, element(m, x, y, c, sizeof t), sizeof t);
        return double(t);
    });
}
void put(const LumoMAT* m, int x, int y, int c, double value) {
    with_type(m->elemtype, [&](auto t) {
        t = decltype(t)(fit(m->elemtype, value));
        memcpy(element(m, x, y, c, sizeof t), &t, sizeof t);
    });
}
void put_all(const LumoMAT* m, double value) {
    for (int y = 0; y < m->height; ++y)
        for (int i = 0; i < m->width * int(m->elemtype >> 12 & 15); ++i) put(m, 0, y, i, value);
}

void expect_error(int64_t result, const QuelERR& err, uint32_t code, uint32_t cls, const std::string& text) {
    EXPECT_EQ(result, -1);
    EXPECT_EQ(err.count, 1u);
    EXPECT_EQ(err.last.code, code);
    EXPECT_EQ(err.last.cls, cls);
    EXPECT_EQ(err.last.iface, 0x05e7u);
    EXPECT_NE(std::string(err.last.text).find(text), std::string::npos) << err.last.text;
}

bool out_of_memory_of_a_temporary(int64_t result, const QuelERR& err, const char* operation) {
    if (err.count) return expect_error(result, err, QUEL_E_NOMEM, QUEL_C_NOMEM, operation), false;
    EXPECT_EQ(result, -1);
    EXPECT_EQ(err.status, 0x05e70000u | QUEL_E_NOMEM);
    return true;
}

void expect_rounding_of_its_own(const Array& dst, const std::function<int64_t(LumoMAT*)>& run) {
    Array nearest = dst, upward = dst;
    EXPECT_EQ(run(&nearest), 0);
    std::fesetround(FE_UPWARD);
    EXPECT_EQ(run(&upward), 0);
    EXPECT_EQ(std::fegetround(), FE_UPWARD);
    std::fesetround(FE_TONEAREST);
    EXPECT_TRUE(upward.same_pixels(nearest));
}

}  // namespace tarn::test

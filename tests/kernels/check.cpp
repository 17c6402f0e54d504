#include "kernels/check.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "kernels/base/runtime.h"

namespace tarn::test {

using namespace cases;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSlowBuild = true;
#else
constexpr bool kSlowBuild = false;
#endif

char place[256] = "outside of a kernel";

void on_fault(int signal) {
    // Only async-signal-safe calls here.
    const char text[] = "kernel touched memory that is not its own: ";
    (void)!write(2, text, sizeof text - 1);
    (void)!write(2, place, strlen(place));
    (void)!write(2, "\n", 1);
    ::signal(signal, SIG_DFL);
    raise(signal);
}

// Memory with an inaccessible page on either side.
class Arena {
public:
    explicit Arena(size_t bytes) {
        const size_t page = size_t(sysconf(_SC_PAGESIZE));
        bytes_ = (bytes + page - 1) / page * page;
        map_ = static_cast<uint8_t*>(
            mmap(nullptr, bytes_ + 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        data_ = map_ + page;
        mprotect(map_, page, PROT_NONE);
        mprotect(data_ + bytes_, page, PROT_NONE);
    }
    uint8_t* begin() const { return data_; }
    uint8_t* end() const { return data_ + bytes_; }

private:
    uint8_t *map_, *data_;
    size_t bytes_;
};

constexpr size_t kArenaBytes = size_t(2) << 20;
constexpr int kMaxPlanes = 8;

Arena& arena(int i) {
    static std::vector<Arena> arenas = [] {
        std::vector<Arena> all;
        for (int j = 0; j < kMaxPlanes; ++j) all.emplace_back(kArenaBytes);
        signal(SIGSEGV, on_fault);
        signal(SIGBUS, on_fault);
        return all;
    }();
    return arenas[size_t(i)];
}

struct Layout {
    const char* name;
    int padding;    // bytes between rows, in elements of the plane
    bool upwards;   // negative stride
    bool at_start;  // first byte at the page's start, else the last byte at the page's end
};
constexpr Layout kLayouts[] = {
    {"packed, page behind", 0, false, false},
    {"padded, page before", 3, false, true},
    {"upwards, page behind", 5, true, false},
    {"padded, page behind", 16, false, false},
};

template <class T>
T random_value(std::mt19937& rng, Values) {
    static constexpr T kEdges[] = {
        std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), 0, 1, T(-1), T(-2), 127, 2};
    const uint32_t r = rng();
    return r % 4 == 0 ? kEdges[r >> 8 & 7] : T(rng());
}
template <class T>
T random_float(std::mt19937& rng, Values values) {
    const double unit = double(rng()) / 4294967296.0 * 2 - 1;
    const uint32_t r = rng();
    if (values == Values::unit) return T(unit);
    if (r % 16 == 0 && values == Values::any) {
        static const T special[] = {std::numeric_limits<T>::quiet_NaN(),  std::numeric_limits<T>::infinity(),
                                    -std::numeric_limits<T>::infinity(),  T(-0.0),
                                    std::numeric_limits<T>::denorm_min(), std::numeric_limits<T>::max(),
                                    std::numeric_limits<T>::lowest(),     T(0.0)};
        return special[r >> 8 & 7];
    }
    switch (r >> 4 & 3) {
        case 0:
            return T(int32_t(rng() % 512) - 256) / 2;  // halves: ties when rounded
        case 1:
            return T(unit * 70000);
        case 2:
            return T(unit);
        default:
            return T(std::ldexp(unit, int(rng() % 60) - 30));
    }
}
template <>
float random_value<float>(std::mt19937& rng, Values v) {
    return random_float<float>(rng, v);
}
template <>
double random_value<double>(std::mt19937& rng, Values v) {
    return random_float<double>(rng, v);
}

template <class T>
void fill(std::vector<uint8_t>& bytes, std::mt19937& rng, Values values) {
    T* e = reinterpret_cast<T*>(bytes.data());
    for (size_t i = 0; i < bytes.size() / sizeof(T); ++i) e[i] = random_value<T>(rng, values);
}

void fill(std::vector<uint8_t>& bytes, Type type, std::mt19937& rng, Values values) {
    switch (type) {
        case Type::u8:
            return fill<uint8_t>(bytes, rng, values);
        case Type::s16:
            return fill<int16_t>(bytes, rng, values);
        case Type::s32:
            return fill<int32_t>(bytes, rng, values);
        case Type::u32:
            return fill<uint32_t>(bytes, rng, values);
        case Type::f32:
            return fill<float>(bytes, rng, values);
        case Type::f64:
            return fill<double>(bytes, rng, values);
    }
}

// The distance of two elements: steps for integers, units in the last place for floats; 0 for two NaN.
template <class F, class I>
double float_distance(const uint8_t* a, const uint8_t* b) {
    F x, y;
    memcpy(&x, a, sizeof x);
    memcpy(&y, b, sizeof y);
    if (std::isnan(x) || std::isnan(y)) return std::isnan(x) && std::isnan(y) ? 0 : HUGE_VAL;
    const auto order = [](F f) {
        const I i = std::bit_cast<I>(f);
        return i < 0 ? double(std::numeric_limits<I>::min()) - double(i) : double(i);
    };
    if (x == y) return std::signbit(x) == std::signbit(y) ? 0 : 0.5;
    return std::max(1.0, std::fabs(order(x) - order(y)));
}
template <class T>
double int_distance(const uint8_t* a, const uint8_t* b) {
    T x, y;
    memcpy(&x, a, sizeof x);
    memcpy(&y, b, sizeof y);
    return std::fabs(double(x) - double(y));
}
double distance(Type type, const uint8_t* a, const uint8_t* b) {
    switch (type) {
        case Type::u8:
            return int_distance<uint8_t>(a, b);
        case Type::s16:
            return int_distance<int16_t>(a, b);
        case Type::s32:
            return int_distance<int32_t>(a, b);
        case Type::u32:
            return int_distance<uint32_t>(a, b);
        case Type::f32:
            return float_distance<float, int32_t>(a, b);
        case Type::f64:
            return float_distance<double, int64_t>(a, b);
    }
    return 0;
}

std::string show(Type type, const uint8_t* p) {
    switch (type) {
        case Type::u8:
            return std::to_string(*p);
        case Type::s16: {
            int16_t v;
            memcpy(&v, p, 2);
            return std::to_string(v);
        }
        case Type::s32: {
            int32_t v;
            memcpy(&v, p, 4);
            return std::to_string(v);
        }
        case Type::u32: {
            uint32_t v;
            memcpy(&v, p, 4);
            return std::to_string(v);
        }
        case Type::f32: {
            float v;
            memcpy(&v, p, 4);
            char t[64];
            snprintf(t, sizeof t, "%.9g (%a)", v, v);
            return t;
        }
        case Type::f64: {
            double v;
            memcpy(&v, p, 8);
            char t[64];
            snprintf(t, sizeof t, "%.17g (%a)", v, v);
            return t;
        }
    }
    return {};
}

// One plane of one trial: packed contents and its place in an arena.
struct Placed {
    const Plane* plane;
    std::vector<uint8_t> contents;  // packed, before the call
    int64_t row_bytes;
    View packed(std::vector<uint8_t>& bytes, Size n) const {
        return {bytes.data(), int32_t(row_bytes), plane->size(n)};
    }
};

struct Trial {
    const Case& c;
    Size n;
    unsigned seed;
    std::vector<Placed> planes;
    std::vector<std::vector<uint8_t>> expected;  // packed outputs, from the expectation or from level 0

    Trial(const Case& c, Size n, unsigned seed) : c(c), n(n), seed(seed) {
        std::mt19937 rng(seed);
        for (const Plane& p : c.planes) {
            const Size s = p.size(n);
            Placed placed{&p, {}, int64_t(s.width) * p.elements * bytes_of(p.type)};
            placed.contents.resize(size_t(placed.row_bytes * s.height));
            fill(placed.contents, p.type, rng, c.values);
            planes.push_back(std::move(placed));
        }
        for (const Placed& p : planes) expected.push_back(p.contents);
        if (c.expect) {
            std::vector<View> views;
            for (size_t i = 0; i < planes.size(); ++i) views.push_back(planes[i].packed(expected[i], n));
            c.expect(views.data(), n);
        }
    }

    std::string where(int level, const Layout& layout) const {
        char text[200];
        snprintf(text, sizeof text, "%s at level %d (%s), %d x %d, %s, seed %u", c.name.c_str(), level,
                 k::kLevelNames[level], n.width, n.height, layout.name, seed);
        return text;
    }

    // Runs the kernel once; true when all is well.
    bool run(int level, const Layout& layout) {
        std::vector<View> views;
        std::vector<std::pair<uint8_t*, uint8_t*>> used;  // what of each arena is looked at
        for (size_t i = 0; i < planes.size(); ++i) {
            const Placed& p = planes[i];
            const Size s = p.plane->size(n);
            const int64_t pitch = p.row_bytes + layout.padding * bytes_of(p.plane->type);
            const int64_t span = pitch * (s.height - 1) + p.row_bytes;
            if (span > int64_t(kArenaBytes)) {
                ADD_FAILURE() << c.name << ": plane too large for the test's memory";
                return false;
            }
            Arena& a = arena(int(i));
            uint8_t* lowest = layout.at_start ? a.begin() : a.end() - span;
            uint8_t* from = std::max(a.begin(), lowest - 256);
            uint8_t* to = std::min(a.end(), lowest + span + 256);
            memset(from, 0xa5, size_t(to - from));
            used.push_back({from, to});
            View v{layout.upwards ? lowest + pitch * (s.height - 1) : lowest, int32_t(layout.upwards ? -pitch : pitch),
                   s};
            if (p.plane->role != Role::out)
                for (int y = 0; y < s.height; ++y)
                    memcpy(v.row<uint8_t>(y), p.contents.data() + y * p.row_bytes, size_t(p.row_bytes));
            views.push_back(v);
        }
        snprintf(place, sizeof place, "%s", where(level, layout).c_str());
        const Status status = c.run(views.data(), n);
        snprintf(place, sizeof place, "outside of a kernel");
        if (status != k::kOk) {
            ADD_FAILURE() << where(level, layout) << ": status " << status;
            return false;
        }
        for (size_t i = 0; i < planes.size(); ++i)
            if (!compare(i, views[i], used[i].first, used[i].second, level, layout)) return false;
        return true;
    }

private:
    // Checks one plane's pixels and the bytes around them; level 0's first result becomes what the others must equal.
    bool compare(size_t i, const View& v, uint8_t* from, uint8_t* to, int level, const Layout& layout) {
        const Placed& p = planes[i];
        const bool first = level == 0 && layout.name == kLayouts[0].name;
        const double tolerance = first && p.plane->role != Role::in ? (c.expect ? c.tolerance : HUGE_VAL) : 0;
        const int eb = bytes_of(p.plane->type);
        for (int y = 0; y < v.size.height; ++y) {
            uint8_t* got = v.row<uint8_t>(y);
            uint8_t* want = expected[i].data() + y * p.row_bytes;
            if (memcmp(got, want, size_t(p.row_bytes)) != 0 && tolerance != HUGE_VAL)
                for (int64_t e = 0; e < p.row_bytes; e += eb)
                    if (!(distance(p.plane->type, got + e, want + e) <= tolerance)) {
                        ADD_FAILURE() << where(level, layout) << ": plane " << i << " row " << y << " pixel "
                                      << e / eb / p.plane->elements << " channel " << e / eb % p.plane->elements
                                      << " is " << show(p.plane->type, got + e) << ", should be "
                                      << show(p.plane->type, want + e);
                        return false;
                    }
            if (first)
                memcpy(want, got, size_t(p.row_bytes));
            else if (memcmp(got, want, size_t(p.row_bytes)) != 0) {
                ADD_FAILURE() << where(level, layout) << ": plane " << i << " row " << y
                              << " has other NaN bits than level 0";
                return false;
            }
            memset(got, 0xa5, size_t(p.row_bytes));
        }
        for (uint8_t* b = from; b < to; ++b)
            if (*b != 0xa5) {
                ADD_FAILURE() << where(level, layout) << ": plane " << i << ": wrote outside of its pixels, "
                              << b - v.data << " bytes from the first";
                return false;
            }
        return true;
    }
};

std::vector<std::string> checked;

}  // namespace

void Check::operator()(const Case& c) const {
    checked.push_back(c.name.substr(0, c.name.find(' ')));
    std::vector<Size> sizes;
    for (int w = 1; w <= 70; w += kSlowBuild && w > 20 ? 7 : 1) sizes.push_back({w, w % 3 + 1});
    for (int w : {127, 128, 129, 191, 255, 256, 257}) sizes.push_back({w, 2});
    sizes.push_back({16, 16});
    sizes.push_back({33, 9});
    sizes.push_back({1, 40});
    sizes.push_back({1031, 3});
    unsigned seed = 1;
    for (const Size n : sizes) {
        ++seed;
        if (n.width < c.least.width || n.height < c.least.height) continue;
        Trial trial(c, n, seed);
        for (int level = 0; level <= highest_level(); ++level) {
            k::active_level = level;
            for (const Layout& layout : kLayouts)
                if (!trial.run(level, layout)) {
                    k::active_level = highest_level();
                    return;
                }
        }
    }
    k::active_level = highest_level();
}

const std::vector<std::string>& checked_kernels() { return checked; }

const std::vector<std::string>& all_kernels() {
#define KERNEL(name, Fn) #name,
#define KERNELS(op, Fn, types, forms) TARN_NAMES(op, Fn, types, forms)
    static const std::vector<std::string> names = {
#include "kernel_names.inc"
    };
#undef KERNEL
#undef KERNELS
    return names;
}

int highest_level() {
    static const int level = [] {
        k::select_level();
        return k::active_level;
    }();
    return level;
}

}  // namespace tarn::test

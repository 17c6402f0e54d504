#include "kernels/check.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>

#include "kernels/base/runtime.h"
#include "play/memory.h"

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

// Whether the upper halves of wide registers are in use, where the processor tells: narrow code then runs slower.
bool wide_registers_in_use() {
#if defined(__x86_64__)
    unsigned a, b, c, d;
    if (!__get_cpuid_count(13, 1, &a, &b, &c, &d) || !(a & 4)) return false;
    asm volatile("xgetbv" : "=a"(a), "=d"(d) : "c"(1));
    return a & 4;
#else
    return false;
#endif
}

// Bytes that no kernel wrote, where the next call's buffers will lie: what one forgets to write is not what the level
// before it has left there.
[[gnu::noinline]] void litter_stack() {
    unsigned char bytes[48 << 10];
    memset(bytes, 0xa5, sizeof bytes);
    asm volatile("" : : "r"(bytes) : "memory");
}

constexpr size_t kArenaBytes = size_t(2) << 20;
constexpr int kMaxPlanes = 8;

play::Arena& arena(int i) {
    static std::vector<play::Arena> arenas = [] {
        std::vector<play::Arena> all;
        for (int j = 0; j < kMaxPlanes; ++j) all.emplace_back(kArenaBytes);
        signal(SIGSEGV, on_fault);
        signal(SIGBUS, on_fault);
        return all;
    }();
    return arenas[size_t(i)];
}

struct Layout {
    const char* name;
    int padding;    // between rows, in elements of the plane
    bool upwards;   // negative stride
    bool at_start;  // first byte at the page's start, else the last byte at the page's end
    int shift;      // bytes that the start, and each row behind the one before, are off an element's place
};
constexpr Layout kLayouts[] = {
    {"packed, page behind", 0, false, false, 0},      {"padded, page before", 3, false, true, 0},
    {"upwards, page behind", 5, true, false, 0},      {"padded, page behind", 16, false, false, 0},
    {"at odd bytes, page before", 2, false, true, 1},
};

// f(T{}) with the C++ type of elements.
template <class F>
auto with_type(Type type, F f) {
    if (type == Type::u8) return f(uint8_t());
    if (type == Type::s16) return f(int16_t());
    if (type == Type::u16) return f(uint16_t());
    if (type == Type::s32) return f(int32_t());
    if (type == Type::u32) return f(uint32_t());
    return type == Type::f32 ? f(float()) : f(double());
}

void fill(std::vector<uint8_t>& bytes, Type type, std::mt19937& rng, Values values) {
    with_type(type, [&]<class T>(T) {
        T* e = reinterpret_cast<T*>(bytes.data());
        for (size_t i = 0; i < bytes.size() / sizeof(T); ++i)
            e[i] = std::is_floating_point_v<T> && values == Values::unit
                       ? T(double(rng()) / 2147483648.0 - 1)
                       : play::random_value<T>(rng, values == Values::finite);
    });
}

template <class T>
T element(const uint8_t* p) {
    T v;
    memcpy(&v, p, sizeof v);
    return v;
}

// The distance of two elements: steps for integers, units in the last place for floats; 0 for two NaN.
template <class T>
double distance_of(T x, T y) {
    if constexpr (std::is_integral_v<T>) return std::fabs(double(x) - double(y));
    if (std::isnan(x) || std::isnan(y)) return std::isnan(x) && std::isnan(y) ? 0 : HUGE_VAL;
    if (x == y) return std::signbit(x) == std::signbit(y) ? 0 : 0.5;
    using I = std::conditional_t<sizeof(T) == 4, int32_t, int64_t>;
    const auto order = [](T f) {
        const I i = element<I>(reinterpret_cast<const uint8_t*>(&f));
        return i < 0 ? double(std::numeric_limits<I>::min()) - double(i) : double(i);
    };
    return std::max(1.0, std::fabs(order(x) - order(y)));
}
double distance(Type type, const uint8_t* a, const uint8_t* b) {
    return with_type(type, [&](auto t) { return distance_of(element<decltype(t)>(a), element<decltype(t)>(b)); });
}

std::string show(Type type, const uint8_t* p) {
    char text[64];
    with_type(type, [&](auto t) {
        const auto v = element<decltype(t)>(p);
        if constexpr (std::is_integral_v<decltype(t)>)
            snprintf(text, sizeof text, "%lld", static_cast<long long>(v));
        else if constexpr (sizeof t == 4)
            snprintf(text, sizeof text, "%.9g (%08x)", double(v), element<uint32_t>(p));
        else
            snprintf(text, sizeof text, "%.17g (%016llx)", v, element<unsigned long long>(p));
    });
    return text;
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

// The first seed: 1, or what the environment says.
unsigned first_seed() {
    const char* given = getenv("TARN_SEED");
    return given ? unsigned(strtoul(given, nullptr, 0)) : 1;
}

constexpr uint8_t kGuard = 0xa5;

struct Trial {
    const Case& c;
    Size n;
    std::vector<Placed> planes;
    std::vector<std::vector<uint8_t>> expected;  // packed outputs, from the expectation or from level 0

    Trial(const Case& c, Size n, unsigned seed) : c(c), n(n) {
        std::mt19937 rng(seed);
        for (const Plane& p : c.planes) {
            const Size s = p.size(n);
            Placed placed{&p, {}, int64_t(s.width) * p.elements * bytes_of(p.type)};
            placed.contents.resize(size_t(placed.row_bytes * s.height));
            fill(placed.contents, p.type, rng, c.values);
            planes.push_back(std::move(placed));
        }
        const auto packed = [&](auto bytes_of_plane) {
            std::vector<View> views;
            for (size_t i = 0; i < planes.size(); ++i) views.push_back(planes[i].packed(bytes_of_plane(i), n));
            return views;
        };
        if (c.prepare) c.prepare(packed([&](size_t i) -> auto& { return planes[i].contents; }).data(), n);
        for (const Placed& p : planes) expected.push_back(p.contents);
        if (c.expect) c.expect(packed([&](size_t i) -> auto& { return expected[i]; }).data(), n);
    }

    // Runs the kernel once; true when all is well.
    bool run(int level, const Layout& layout) {
        const std::string where = about(level, layout, n);
        std::vector<std::pair<uint8_t*, uint8_t*>> used;
        const std::vector<View> views = lay_out(layout, &used);
        if (const Status status = call(where, views, n); status != k::kOk) {
            ADD_FAILURE() << where << ": status " << status;
            return false;
        }
        for (size_t i = 0; i < planes.size(); ++i)
            if (!compare(i, views[i], used[i].first, used[i].second, where, level == 0 && &layout == kLayouts))
                return false;
        return true;
    }

    // Calls that a kernel must refuse, with nothing written: a size that is not positive, and each plane missing. True
    // when all is well.
    bool refuses(int level) {
        const int32_t least = std::numeric_limits<int32_t>::min();
        for (const Size bad : {Size{0, n.height}, {-1, n.height}, {n.width, 0}, {n.width, least}})
            if (!(c.one_row && bad.width > 0) && !refuses(level, bad, planes.size(), k::kBadSize)) return false;
        for (size_t i = 0; i < planes.size(); ++i)
            if (!refuses(level, n, i, planes[i].plane->optional ? k::kOk : k::kNull)) return false;
        return true;
    }

private:
    std::string about(int level, const Layout& layout, Size size) const {
        char text[240];
        snprintf(text, sizeof text, "%s at level %d (%s), %d x %d, %s, TARN_SEED=%u", c.name.c_str(), level,
                 k::kLevelNames[level], size.width, size.height, layout.name, first_seed());
        return text;
    }

    Status call(const std::string& where, const std::vector<View>& views, Size size) const {
        snprintf(place, sizeof place, "%s", where.c_str());
        litter_stack();
        const Status status = c.run(views.data(), size);
        EXPECT_FALSE(wide_registers_in_use()) << where;
        snprintf(place, sizeof place, "outside of a kernel");
        return status;
    }

    // Puts the planes into their arenas among guard bytes; used: what of each arena is looked at.
    std::vector<View> lay_out(const Layout& layout, std::vector<std::pair<uint8_t*, uint8_t*>>* used) const {
        std::vector<View> views;
        for (const Placed& p : planes) {
            const Size s = p.plane->size(n);
            const int shift = p.plane->aligned ? 0 : layout.shift;
            const int64_t pitch = p.row_bytes + layout.padding * bytes_of(p.plane->type) + shift;
            const int64_t span = pitch * (s.height - 1) + p.row_bytes;
            const play::Arena& a = arena(int(views.size()));
            if (span + shift > a.end() - a.begin()) throw std::length_error("plane too large for the test's memory");
            uint8_t* lowest = layout.at_start ? a.begin() + shift : a.end() - span;
            uint8_t* from = std::max(a.begin(), lowest - 256);
            uint8_t* to = std::min(a.end(), lowest + span + 256);
            memset(from, kGuard, size_t(to - from));
            used->push_back({from, to});
            const View v{layout.upwards ? lowest + pitch * (s.height - 1) : lowest,
                         int32_t(layout.upwards ? -pitch : pitch), s};
            if (p.plane->role != Role::out)
                for (int y = 0; y < s.height; ++y)
                    memcpy(v.row<uint8_t>(y), p.contents.data() + y * p.row_bytes, size_t(p.row_bytes));
            views.push_back(v);
        }
        return views;
    }

    bool refuses(int level, Size size, size_t missing, Status wanted) const {
        std::vector<std::pair<uint8_t*, uint8_t*>> used;
        std::vector<View> views = lay_out(kLayouts[0], &used);
        std::vector<std::vector<uint8_t>> before;
        for (const auto& [from, to] : used) before.emplace_back(from, to);
        std::string where = about(level, kLayouts[0], size);
        if (missing < views.size()) {
            views[missing].data = nullptr;
            where += ", plane " + std::to_string(missing) + " null";
        }
        const Status status = call(where, views, size);
        bool good = status == wanted;
        if (!good) ADD_FAILURE() << where << ": status " << status << ", should be " << wanted;
        for (size_t i = 0; i < planes.size() && wanted != k::kOk; ++i)
            if (memcmp(used[i].first, before[i].data(), before[i].size()) != 0) {
                ADD_FAILURE() << where << ": plane " << i << " was written to";
                good = false;
            }
        return good;
    }

    // Checks one plane's pixels and the bytes around them. first: against the expectation; what comes out is then what
    // all other runs must equal.
    bool compare(size_t i, const View& v, uint8_t* from, uint8_t* to, const std::string& where, bool first) {
        const Plane& plane = *planes[i].plane;
        const int64_t row_bytes = planes[i].row_bytes;
        const int eb = bytes_of(plane.type);
        const bool any = first && plane.role != Role::in && !c.expect;
        const double tolerance = first && plane.role != Role::in ? c.tolerance : 0;
        const auto wanted = [&](int y) { return expected[i].data() + y * row_bytes; };
        const auto bad = [&](int y, int64_t e) {
            const uint8_t *got = v.row<uint8_t>(y) + e * eb, *want = wanted(y) + e * eb;
            return first ? !(distance(plane.type, got, want) <= tolerance) : memcmp(got, want, size_t(eb)) != 0;
        };
        for (int y = 0; y < v.size.height; ++y) {
            uint8_t* got = v.row<uint8_t>(y);
            if (!any && memcmp(got, wanted(y), size_t(row_bytes)) != 0)
                for (int64_t e = 0; e < row_bytes / eb; ++e)
                    if (bad(y, e)) {
                        ADD_FAILURE() << where << ": plane " << i << " row " << y << " pixel " << e / plane.elements
                                      << " channel " << e % plane.elements << " is " << show(plane.type, got + e * eb)
                                      << ", should be " << show(plane.type, wanted(y) + e * eb)
                                      << map_of(plane, v.size, {int(e / plane.elements), y}, bad);
                        return false;
                    }
            if (first) memcpy(wanted(y), got, size_t(row_bytes));
        }
        for (int y = 0; y < v.size.height; ++y) memset(v.row<uint8_t>(y), kGuard, size_t(row_bytes));
        for (uint8_t* b = from; b < to; ++b)
            if (*b != kGuard) {
                ADD_FAILURE() << where << ": plane " << i << ": wrote outside of its pixels, " << b - v.data
                              << " bytes from the first";
                return false;
            }
        return true;
    }

    // The part of a plane that begins with the first bad row: '.' a good pixel, 'X' a bad one.
    struct At {
        int x, y;
    };
    template <class Bad>
    static std::string map_of(const Plane& plane, Size size, At first, Bad bad) {
        const int left = first.x / 64 * 64, right = std::min(size.width, left + 64);
        const int bottom = std::min(size.height, first.y + 16);
        std::string map = "\nfrom pixel " + std::to_string(left) + ", row " + std::to_string(first.y) + ":";
        for (int y = first.y; y < bottom; ++y) {
            map += "\n  ";
            for (int x = left; x < right; ++x) {
                bool any = false;
                for (int ch = 0; ch < plane.elements; ++ch) any |= bad(y, int64_t(x) * plane.elements + ch);
                map += any ? 'X' : '.';
            }
        }
        return map;
    }
};

}  // namespace

void Check::operator()(const Case& c) const {
    std::vector<Size> sizes;
    for (int w = 1; w <= 70; w += kSlowBuild && w > 20 ? 7 : 1) sizes.push_back({w, w % 3 + 1});
    for (int w : {127, 128, 129, 191, 255, 256, 257}) sizes.push_back({w, 2});
    for (const Size n : {Size{16, 16}, {33, 9}, {1, 40}, {13, 40}, {1031, 3}}) sizes.push_back(n);
    unsigned seed = first_seed();
    bool good = true;
    for (const Size n : sizes) {
        Trial trial(c, n, ++seed);
        at_every_level([&](int level) {
            for (const Layout& layout : kLayouts) good = good && trial.run(level, layout);
            if (n.width == 5) good = good && trial.refuses(level);
        });
        if (!good) return;
    }
}

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

const std::vector<int>& checked_levels() {
    static const std::vector<int> levels = [] {
        const char* which = getenv("TARN_LEVELS");
        const bool ends = which && strcmp(which, "ends") == 0;
        std::vector<int> all;
        for (int level = 0; level <= highest_level(); ++level)
            if (!ends || level == 0 || level == highest_level()) all.push_back(level);
        return all;
    }();
    return levels;
}

}  // namespace tarn::test

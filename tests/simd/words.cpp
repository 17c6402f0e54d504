// Every word of the vector vocabulary against a plain expression. Compiled once per level with that level's flags, into
// that level's namespace, and once portable; so nothing of the standard library's templates here.
//
// A line: the result's type, the word, its arguments' types, and element i of the result from the arguments a, b, c, d.
// A word that the level lacks is passed over; words_test.py looks for words without a line.
#pragma GCC diagnostic ignored "-Wunused-parameter"
#if !defined(__clang__)  // of vectors filled element by element
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "simd/words.h"

#include "kernels/simd/fused.h"
#include "kernels/simd/round.h"
#include "kernels/simd/stream.h"

namespace tarn::k::TARN_LEVEL {

int check_words(test::WrongWord* wrong, const char* at);

namespace {

constexpr int kRounds = 3000;

// ---- Elements -----------------------------------------------------------------------------------------------------

// The type of a vector's elements; of a scalar's only one.
template <class T>
T plain(const T&);
template <class V>
auto element_of(V v, int) -> decltype(plain(v[0]));
template <class V>
V element_of(V, long);
template <class T>
T element_of(Block<T>, int);
template <class V>
using Element = decltype(element_of(V(), 0));

uint64_t random() {
    static uint64_t state = 1;
    state = state * 6364136223846793005u + 1442695040888963407u;
    return state >> 29;
}

// Random elements, half of them hard ones.
template <class T>
T hard() {
    const uint64_t r = random();
    if constexpr (T(0.5) == 0) {
        const T edges[] = {
            0, 1, 2, T(-1), T(-2), 127, T(128), T(~(T(1) << (8 * sizeof(T) - 1))), T(T(1) << (8 * sizeof(T) - 1))};
        return r & 1 ? edges[(r >> 1) % 9] : T(r >> 1);
    } else {
        constexpr float kNan = __builtin_nanf("7"), kInf = __builtin_inff();
        constexpr float kEdges[][8] = {
            {0.0f, 0.5f, 1.5f, 2.5f, 127.5f, 254.5f, 255.5f, 32766.5f},
            {-0.0f, -0.5f, -2.5f, -32768.5f, 8388607.5f, kNan, -kNan, 0x1p-149f},
            {kInf, -kInf, 0x1.fffffep127f, -0x1.fffffep127f, 0x1p31f, -0x1p31f, 0x1.fffffep30f, -0x1.000002p31f}};
        if (r & 1) return kEdges[(r >> 1) % 3][(r >> 8) % 8];
        return T(int32_t(r >> 1)) * __builtin_ldexpf(1, int(r >> 8) % 40 - 36);
    }
}
template <class V>
void fill(V& v) {
    Element<V> e[sizeof(V) / sizeof(Element<V>)];
    for (auto& one : e) one = hard<Element<V>>();
    memcpy(&v, e, sizeof v);
}
void fill(uint16_t& one_bit) { one_bit = uint16_t(1 << random() % 16); }

// What a fused multiply-add rounds hard, never to NaN: sums beside a half-way between two floats, too near it for a
// double to tell (the product is half of z's last place but for a rest of up to 2^-24 of it), what is left when most of
// a product is taken off, and floats of any exponents; in denormals too.
void fill_hard_sum(float& x, float& y, float& z) {
    const auto any = [](int exponent) { return __builtin_ldexpf(float(random() & 0xffffff), exponent); };
    const int last = random() % 2 ? -149 : int(random() % 200) - 149, kind = int(random() % 4);
    x = __builtin_ldexpf(float((random() & 0x7fffff) + 0x800000), last / 2) * (random() % 2 ? 1.0f : -1.0f);
    y = kind < 2 ? float(__builtin_ldexp(1, last - 1) / double(x)) : any(int(random() % 250) - 150);
    z = kind < 2 ? any(last) : kind == 2 ? -(x * y) : any(int(random() % 250) - 150);
}

// A stretch of random memory and what words move between it and vectors. The words' memory starts at odd bytes.
struct State {
    alignas(64) uint8_t p[8 * kVector], q[8 * kVector];
    Bytes v, mask;
    F32 f, x, y, z;
    int64_t n, at[kGroups];
    int32_t each[kLanes<uint16_t>];
};
void fill(State& s) {
    for (uint8_t& byte : s.p) byte = uint8_t(random());
    for (uint8_t& byte : s.q) byte = uint8_t(random());
    fill(s.v), fill(s.mask), fill(s.f);
    for (int i = 0; i < kLanes<float>; ++i) {
        float x, y, z;
        fill_hard_sum(x, y, z);
        s.x[i] = x, s.y[i] = y, s.z[i] = z;
    }
    s.mask = (Bytes)((S8)s.mask < 0);
    s.n = int64_t(random() % (kVector + 1));
    for (int64_t& at : s.at) at = int64_t(random() % (4 * kVector));
    for (int32_t& each : s.each) each = int32_t(random() % (4 * kVector));
}

// ---- The check ----------------------------------------------------------------------------------------------------

struct Checker {
    test::WrongWord* wrong;
    const char* at;
    int checked = 0;

    // got(arguments) against want(element, result's element, arguments).
    template <class R, class... Args>
    void operator()(const char* word, auto got, auto want, void (*)(Args...)) {
        if constexpr (requires(const Args&... args) { got(args...); }) {
            ++checked;
            for (int round = 0; round < kRounds; ++round)
                if (!right<R>(word, got, want, Args{}...)) return;
        }
    }
    template <class R, class... Args>
    bool right(const char* word, auto got, auto want, Args... args) const {
        (fill(args), ...);
        const R r = got(args...);
        Element<R> elements[sizeof(R) / sizeof(Element<R>)];
        memcpy(elements, &r, sizeof r);
        for (int i = 0; i < int(sizeof(R) / sizeof(Element<R>)); ++i) {
            const Element<R> wanted = want(i, elements[i], args..., 0, 0, 0);
            if (memcmp(&elements[i], &wanted, sizeof wanted))
                return wrong(at, word, i, double(elements[i]), double(wanted)), false;
        }
        return true;
    }

    // got and want change equal states.
    template <class Got, class Want>
    void memory(const char* word, Got got, Want want) {
        ++checked;
        for (int round = 0; round < kRounds; ++round) {
            State s;
            memset(&s, 0, sizeof s);
            fill(s);
            State wanted = s;
            got(s), want(wanted);
            const auto *x = reinterpret_cast<uint8_t*>(&s), *y = reinterpret_cast<uint8_t*>(&wanted);
            for (size_t i = 0; i < sizeof s; ++i)
                if (x[i] != y[i]) return wrong(at, word, int(i), x[i], y[i]);
        }
    }
};

#define WORD(R, word, types, want)                                                                                   \
    check.template operator()<R>(                                                                                    \
        #word #types, [](const auto&... args) -> decltype(word(args...)) { return word(args...); },                  \
        [](int i, Element<R> r, const auto& a, const auto& b, const auto& c, const auto& d, auto...) -> Element<R> { \
            return want;                                                                                             \
        },                                                                                                           \
        static_cast<void(*) types>(nullptr));
// Words over memory: what the word does, and what it must, with a state's members.
#define MEMBERS [[maybe_unused]] auto& [p, q, v, mask, f, x, y, z, n, at, each] = s;
#define MEMORY(name, got, want) \
    check.memory(               \
        name, [](State& s) { MEMBERS got; }, [](State& s) { MEMBERS want; });
#define EACH_FLOAT for (int i = 0; i < kLanes<float>; ++i)

// ---- Plain formulas -----------------------------------------------------------------------------------------------

// Not (second ? b : a)[i], which GCC 12 takes from elsewhere where it is sanitized.
template <class V>
auto either(const V& a, const V& b, bool second, int i) {
    return second ? b[i] : a[i];
}
template <class T>
T cut(int64_t v) {
    constexpr int64_t most = T(-1) < 0 ? (int64_t(1) << (8 * sizeof(T) - 1)) - 1 : (int64_t(1) << 8 * sizeof(T)) - 1,
                      least = T(-1) < 0 ? -most - 1 : 0;
    return T(v < least ? least : v > most ? most : v);
}
int32_t nearest(float v) {
    return v >= -2147483648.0f && v < 2147483648.0f ? int32_t(__builtin_nearbyint(double(v))) : INT32_MIN;
}
template <class T>
T rounded(float v) {
    if constexpr (T(0.5) != 0)
        return v;
    else
        return cut<T>(v >= 2147483648.0f ? INT64_MAX : nearest(v));
}
// Element i of four vectors one after the other.
template <class V>
Element<V> of_four(const V& a, const V& b, const V& c, const V& d, int i) {
    constexpr int n = int(sizeof(V) / sizeof(Element<V>));
    const V& v = i < n ? a : i < 2 * n ? b : i < 3 * n ? c : d;
    return v[i % n];
}
uint64_t sum_of_8(const U8& v, int from) {
    uint64_t sum = 0;
    for (int i = 0; i < 8; ++i) sum += v[from + i];
    return sum;
}
// Element i of pairs in turn from a and b, of groups of `group` elements, from element `from` of each.
template <class V>
Element<V> interleaved(const V& a, const V& b, int i, int group, int from) {
    const int at = i / group * group + from + i % group / 2;
    return i % 2 ? b[at] : a[at];
}
// Element i of each group of the narrowed a, then of b; they have `group` elements in a group.
template <class V>
Element<V> grouped(const V& a, const V& b, int i, int group) {
    const int at = i / (2 * group) * group + i % group;
    return i % (2 * group) < group ? a[at] : b[at];
}
template <class T>
uint8_t bytes_of(T v, int i) {
    return uint8_t(v >> i % int(sizeof v) * 8);
}
// Bit j is set where holds(j).
uint64_t bits_where(int n, auto holds) {
    uint64_t bits = 0;
    for (int j = 0; j < n; ++j) bits |= uint64_t(holds(j)) << j;
    return bits;
}
[[maybe_unused]] uint64_t deposited(uint64_t bits, uint64_t places) {
    uint64_t r = 0;
    for (int i = 0, from = 0; i < 64; ++i)
        if (places >> i & 1) r |= (bits >> from++ & 1) << i;
    return r;
}
[[maybe_unused]] uint64_t extracted(uint64_t bits, uint64_t places) {
    uint64_t r = 0;
    for (int i = 0, to = 0; i < 64; ++i)
        if (places >> i & 1) r |= (bits >> i & 1) << to++;
    return r;
}
// Element i of vector j, and the sum of a vector's: halves added until one is left.
float tenths(const uint8_t* p, int j, int i) { return float(p[j * kLanes<float> + i]) * 0.1f; }
float sum_of_tenths(const uint8_t* p, int j) {
    float s[kLanes<float>];
    for (int i = 0; i < kLanes<float>; ++i) s[i] = tenths(p, j, i);
    for (int apart = kLanes<float> / 2; apart > 0; apart /= 2)
        for (int i = 0; i < apart; ++i) s[i] += s[i + apart];
    return s[0];
}
template <class V>
void put(Bytes& v, V part) {
    v = Bytes{};
    memcpy(&v, &part, sizeof part);
}
void put_doubles(Bytes& v, const uint8_t* floats, int64_t n) {
    double d[kLanes<double>] = {};
    for (int64_t i = 0; i < n; ++i) {
        float one;
        memcpy(&one, floats + 4 * i, sizeof one);
        d[i] = double(one);
    }
    memcpy(&v, d, sizeof v);
}
template <class To, class From>
void widen(Bytes& v, const uint8_t* p) {
    To to[kLanes<To>];
    From from[kLanes<To>];
    memcpy(from, p, sizeof from);
    for (int i = 0; i < kLanes<To>; ++i) to[i] = from[i];
    memcpy(&v, to, sizeof v);
}
// Which NaN a NaN is, is not told.
[[maybe_unused]] float any_nan(float wanted, float got) { return wanted != wanted && got != got ? got : wanted; }

}  // namespace

int check_words(test::WrongWord* wrong, const char* at) {
    Checker check{wrong, at};

    // simd.h
    MEMORY("load(const void*)", v = load<Bytes>(p + 1), memcpy(&v, p + 1, kVector))
    MEMORY("store(void*, V)", store(p + 1, v), memcpy(p + 1, &v, kVector))
    MEMORY("copy_bytes(void*, const void*, int64_t)", copy_bytes(p + 1, q + 3, n % kVector),
           memcpy(p + 1, q + 3, size_t(n % kVector)))
    WORD(U8, splat, (uint8_t), a)
    WORD(U16, splat, (uint16_t), a)
    WORD(F32, splat, (float), a)
    WORD(U16, select, (Bytes, U16, U16), uint16_t((((U16)a)[i] & b[i]) | (~((U16)a)[i] & c[i])))

    // Parts
    MEMORY("load_n(const void*, int64_t)", v = load_n<Bytes>(p + 1, n), v = Bytes{}; memcpy(&v, p + 1, size_t(n)))
    MEMORY("load_n(const void*, int64_t, V)", v = load_n(p + 1, n, v), memcpy(&v, p + 1, size_t(n)))
    MEMORY("store_n(void*, V, int64_t)", store_n(p + 1, v, n), memcpy(p + 1, &v, size_t(n)))
    MEMORY("store_where(void*, Bytes, V)", store_where(p + 1, mask, v),
           for (int i = 0; i < kVector; ++i) if (mask[i]) p[1 + i] = v[i])
    MEMORY("store_where_n(void*, Bytes, V, int64_t)", store_where_n(p + 1, mask, v, n),
           for (int i = 0; i < n; ++i) if (mask[i]) p[1 + i] = v[i])
    MEMORY("load_groups(const uint8_t*, const int64_t*)", v = load_groups(p + 1, at),
           for (int i = 0; i < kVector; ++i) v[i] = p[1 + at[i / 16] + i % 16])
    MEMORY("store_groups(uint8_t*, const int64_t*, Bytes)", store_groups(p + 1, at, v),
           for (int i = 0; i < kVector; ++i) p[1 + at[i / 16] + i % 16] = v[i])
    const auto step = int32_t(kLanes<float> / kGroups);
    MEMORY("load_groups(const uint8_t*, const int32_t*, int)", v = load_groups(p + 1, each, step),
           for (int i = 0; i < kVector; ++i) v[i] = p[1 + each[i / 16 * step] + i % 16])
    MEMORY("load_halves(const uint8_t*, const int32_t*, int)", v = load_halves(p + 1, each, step),
           for (int i = 0; i < kVector; ++i) v[i] = p[1 + each[i / 16 * step + i / 8 % 2] + i % 8])
    MEMORY("load_quarters(const uint8_t*, const int32_t*)", v = load_quarters(p + 1, each),
           for (int i = 0; i < kVector; ++i) v[i] = p[1 + each[i / 4] + i % 4])
    MEMORY("load_eighths(const uint8_t*, const int32_t*)", v = load_eighths(p + 1, each),
           for (int i = 0; i < kVector; ++i) v[i] = p[1 + each[i / 2] + i % 2])
    MEMORY("load_pairs(const uint8_t*, const int32_t*)", v = (Bytes)load_pairs(p + 1, each),
           for (int i = 0; i < kVector; ++i) v[i] = i % 2 ? 0 : p[1 + each[i / 4] + i / 2 % 2])
    MEMORY("every_group(const void*)", v = every_group(p + 1), for (int i = 0; i < kVector; ++i) v[i] = p[1 + i % 16])
    MEMORY("stream(void*, Bytes)", stream(p, v), memcpy(p, &v, kVector))
    MEMORY("stream_groups(uint8_t*, const int64_t*, Bytes)", for (int64_t& to
                                                                  : at) to &= ~15;
           stream_groups(p, at, v), for (int64_t& to
                                         : at) to &= ~15;
           for (int i = 0; i < kVector; ++i) p[at[i / 16] + i % 16] = v[i])
    MEMORY("stream_fence()", stream_fence(), )
    MEMORY("stream_row(void*, const void*, int64_t)", stream_row(p + at[0], q + 1, n + 2 * kVector),
           memcpy(p + at[0], q + 1, size_t(n + 2 * kVector)))

    // Arithmetic
    WORD(U8, saturated_add, (U8, U8), cut<uint8_t>(a[i] + b[i]))
    WORD(S16, saturated_add, (S16, S16), cut<int16_t>(a[i] + b[i]))
    WORD(U8, saturated_sub, (U8, U8), cut<uint8_t>(a[i] - b[i]))
    WORD(S16, saturated_sub, (S16, S16), cut<int16_t>(a[i] - b[i]))
    WORD(U32, in_register, (U32), a[i])
    WORD(U8, min, (U8, U8), a[i] < b[i] ? a[i] : b[i])
    WORD(U8, max, (U8, U8), a[i] > b[i] ? a[i] : b[i])
    WORD(S16, min, (S16, S16), a[i] < b[i] ? a[i] : b[i])
    WORD(S16, max, (S16, S16), a[i] > b[i] ? a[i] : b[i])
    WORD(U16, min, (U16, U16), a[i] < b[i] ? a[i] : b[i])
    WORD(S32, min, (S32, S32), a[i] < b[i] ? a[i] : b[i])
    WORD(S32, max, (S32, S32), a[i] > b[i] ? a[i] : b[i])
    WORD(U32, max, (U32, U32), a[i] > b[i] ? a[i] : b[i])
    WORD(F32, min, (F32, F32), a[i] < b[i] ? a[i] : b[i])
    WORD(F32, max, (F32, F32), a[i] > b[i] ? a[i] : b[i])
    WORD(F64, min, (F64, F64), a[i] < b[i] ? a[i] : b[i])
    WORD(F64, max, (F64, F64), a[i] > b[i] ? a[i] : b[i])
    WORD(F32, add_ordered, (F32, F32), a[i] != a[i] ? a[i] + a[i] : a[i] + b[i])
    WORD(F32, mul_ordered, (F32, F32), a[i] != a[i] ? a[i] + a[i] : a[i] * b[i])
    WORD(U8, average, (U8, U8), uint8_t((a[i] + b[i] + 1) >> 1))
    WORD(S16, mul_high, (S16, S16), int16_t(a[i] * b[i] >> 16))
    WORD(U16, mul_high, (U16, U16), uint16_t(uint32_t(a[i]) * b[i] >> 16))
    WORD(S16, mul_fixed15, (S16, S16), int16_t((a[i] * b[i] + 0x4000) >> 15))
    WORD(S16, mul_fixed16, (S16, S16), int16_t((a[i] * b[i] + 0x8000) >> 16))
    WORD(S16, mul_add_pairs, (U8, S8), cut<int16_t>(a[2 * i] * b[2 * i] + a[2 * i + 1] * b[2 * i + 1]))
    WORD(S32, mul_add_pairs, (S16, S16), int32_t(uint32_t(a[2 * i] * b[2 * i]) + uint32_t(a[2 * i + 1] * b[2 * i + 1])))
    WORD(U16, widening_add_lower, (U8, U8), uint16_t(a[i / 8 * 16 + i % 8] + b[i / 8 * 16 + i % 8]))
    WORD(U16, widening_add_upper, (U8, U8), uint16_t(a[i / 8 * 16 + 8 + i % 8] + b[i / 8 * 16 + 8 + i % 8]))
    WORD(U64, sums_of_8, (U8), sum_of_8(a, 8 * i))
    MEMORY(kLanes<float> == 16  ? "sums_of_each(const F32 (&)[16])"
           : kLanes<float> == 8 ? "sums_of_each(const F32 (&)[8])"
                                : "sums_of_each(const F32 (&)[4])",
           F32 e[kLanes<float>];
           memset(e, 0, sizeof e);
           for (int j = 0; j < kLanes<float>; ++j) for (int i = 0; i < kLanes<float>; ++i) e[j][i] = tenths(p, j, i);
           f = sums_of_each(e), for (int j = 0; j < kLanes<float>; ++j) f[j] = sum_of_tenths(p, j))
    WORD(bool, all_zero, (Bytes), bits_where(kVector, [&](int j) { return a[j] != 0; }) == 0)
    for (int more = 0; more < 20; ++more) {
        MEMORY("mul_add(F32, F32, F32)", f = mul_add(x, y, z), EACH_FLOAT f[i] = __builtin_fmaf(x[i], y[i], z[i]))
        MEMORY("mul_add(float, float, float)", EACH_FLOAT f[i] = mul_add(x[i], y[i], z[i]),
               EACH_FLOAT f[i] = __builtin_fmaf(x[i], y[i], z[i]))
    }
    WORD(F32, mul_add, (F32, F32, F32), any_nan(__builtin_fmaf(a[i], b[i], c[i]), r))
    WORD(float, mul_add, (float, float, float), any_nan(__builtin_fmaf(a, b, c), r))
    WORD(U8, count_le, (U8, U8, U8), uint8_t(a[i] + (b[i] <= c[i])))
    WORD(U32, count_within, (U32, F32, F32, F32), a[i] + (b[i] >= c[i] && b[i] <= d[i]))
    WORD(U16, add_and_carry, (U16, uint16_t, uint16_t), uint16_t(a[i] + b + ((a[i] & c) != 0)))
    WORD(float, settle_nan, (float), a == a ? a : __builtin_nanf(""))
    WORD(F32, settle_nan, (F32), a[i] == a[i] ? a[i] : __builtin_nanf(""))

    // Moves
    WORD(Bytes, interleave_lower8, (Bytes, Bytes), interleaved(a, b, i, 16, 0))
    WORD(Bytes, interleave_upper8, (Bytes, Bytes), interleaved(a, b, i, 16, 8))
    WORD(Bytes, interleave_lower16, (Bytes, Bytes), bytes_of(interleaved((U16)a, (U16)b, i / 2, 8, 0), i))
    WORD(Bytes, interleave_upper16, (Bytes, Bytes), bytes_of(interleaved((U16)a, (U16)b, i / 2, 8, 4), i))
    WORD(Bytes, interleave_lower32, (Bytes, Bytes), bytes_of(interleaved((U32)a, (U32)b, i / 4, 4, 0), i))
    WORD(Bytes, interleave_upper32, (Bytes, Bytes), bytes_of(interleaved((U32)a, (U32)b, i / 4, 4, 2), i))
    WORD(Bytes, interleave_lower64, (Bytes, Bytes), bytes_of(interleaved((U64)a, (U64)b, i / 8, 2, 0), i))
    WORD(Bytes, interleave_upper64, (Bytes, Bytes), bytes_of(interleaved((U64)a, (U64)b, i / 8, 2, 1), i))
    WORD(Bytes, even32, (Bytes, Bytes), either(a, b, i & 8, i / 16 * 16 + i % 8 / 4 * 8 + i % 4))
    WORD(Bytes, odd32, (Bytes, Bytes), either(a, b, i & 8, i / 16 * 16 + i % 8 / 4 * 8 + 4 + i % 4))
    WORD(Bytes, repeat32<1>, (Bytes), a[i / 16 * 16 + 4 + i % 4])
    WORD(Bytes, repeat32<2>, (Bytes), a[i / 16 * 16 + 8 + i % 4])
    WORD(U8, narrow_groups_u8, (S16, S16), cut<uint8_t>(grouped(a, b, i, 8)))
    WORD(S8, narrow_groups, (S16, S16), cut<int8_t>(grouped(a, b, i, 8)))
    WORD(S16, narrow_groups, (S32, S32), cut<int16_t>(grouped(a, b, i, 4)))
    MEMORY("blend(Bytes, Bytes, Bytes)", store(p, blend(mask, v, load<Bytes>(q))),
           for (int i = 0; i < kVector; ++i) p[i] = mask[i] ? v[i] : q[i])
    WORD(Bytes, lookup, (Bytes, Bytes), b[i] & 0x80 ? 0 : a[i / 16 * 16 + b[i] % 16])
    // Where the index picks, the rest is zero.
    WORD(Bytes, lookup_or, (Bytes, Bytes, Bytes), b[i] & 0x80 ? c[i] : c[i] ? r : a[i / 16 * 16 + b[i] % 16])
    WORD(F32, permute, (F32, S32), a[b[i] & (kLanes<float> - 1)])
    WORD(F32, permute, (F32, F32, S32),
         c[i] & kLanes<float> ? b[c[i] & (kLanes<float> - 1)] : a[c[i] & (kLanes<float> - 1)])
    WORD(Bytes, in_order_once, (Bytes), a[i / 8 % kGroups * 16 + i / 8 / kGroups * 8 + i % 8])
    WORD(Bytes, in_order_twice, (Bytes), a[i / 4 % kGroups * 16 + i / 4 / kGroups * 4 + i % 4])
    WORD(Bytes, even_groups, (Bytes, Bytes),
         i < kVector / 2 ? a[i / 16 * 2 * 16 + i % 16] : b[(i / 16 * 2 - kGroups) * 16 + i % 16])
    WORD(Bytes, odd_groups, (Bytes, Bytes),
         i < kVector / 2 ? a[(i / 16 * 2 + 1) * 16 + i % 16] : b[(i / 16 * 2 + 1 - kGroups) * 16 + i % 16])
    WORD(Bytes, join_twelves, (Bytes), i < 12 * kGroups ? a[i / 12 * 16 + i % 12] : r)  // the rest is not told

    // Bits
    WORD(int64_t, count_bits, (uint64_t), [=] {
        int n = 0;
        for (int j = 0; j < 64; ++j) n += int(a >> j & 1);
        return n;
    }())
    WORD(uint64_t, negative_bits, (S8), bits_where(kLanes<int8_t>, [&](int j) { return a[j] < 0; }))
    WORD(uint64_t, nonzero_bits, (U8), bits_where(kLanes<uint8_t>, [&](int j) { return a[j] != 0; }))
    WORD(uint64_t, differing_bits, (U64, U64), bits_where(kLanes<uint64_t>, [&](int j) { return a[j] != b[j]; }))
    WORD(uint64_t, compare_bits<0>, (U8, U8), bits_where(kLanes<uint8_t>, [&](int j) { return a[j] < b[j]; }))
    WORD(uint64_t, compare_bits<1>, (S16, S16), bits_where(kLanes<int16_t>, [&](int j) { return a[j] <= b[j]; }))
    WORD(uint64_t, compare_bits<3>, (F32, F32), bits_where(kLanes<float>, [&](int j) { return a[j] >= b[j]; }))
    WORD(Bytes, bytes_of_bits, (uint64_t), a >> i & 1 ? 255 : 0)
    WORD(uint64_t, deposit_bits, (uint64_t, uint64_t), deposited(a, b))
    WORD(uint64_t, extract_bits, (uint64_t, uint64_t), extracted(a, b))

    // Types
    WORD(F64, widen_lower, (F32), double(a[i]))
    WORD(F64, widen_upper, (F32), double(a[i + kLanes<double>]))
    WORD(F32, narrow, (F64, F64), float(i < kLanes<double> ? a[i] : b[i - kLanes<double>]))
    WORD(F32, narrow_groups, (F64, F64), float(grouped(a, b, i, 2)))
    MEMORY("widening_add(U16x16, const uint8_t*)", store(p, widening_add(load<U16x16>(p), q + 1)), uint16_t e[16];
           memcpy(e, p, 32); for (int i = 0; i < 16; ++i) e[i] = uint16_t(e[i] + q[1 + i]); memcpy(p, e, 32))
    MEMORY("widening_exchange(U16x16, const uint8_t*, const uint8_t*)",
           store(p, widening_exchange(load<U16x16>(p), q + 1, q + 18)), uint16_t e[16];
           memcpy(e, p, 32); for (int i = 0; i < 16; ++i) e[i] = uint16_t(e[i] + q[1 + i] - q[18 + i]);
           memcpy(p, e, 32))
    MEMORY("count_up_to(U16x16, uint16_t)", uint16_t limit; memcpy(&limit, p + n % 16 * 2, 2);
           n = count_up_to(load<U16x16>(p), limit), uint16_t e[16]; memcpy(e, p, 32); int64_t up_to = 0;
           for (int i = 0; i < 16; ++i) up_to += e[i] <= e[n % 16]; n = up_to)
    MEMORY("load_f64(const void*)", put(v, load_f64(p + 1)), put_doubles(v, p + 1, kVector == 16 ? 2 : 4))
    MEMORY("load_f64_n(const void*, int64_t)", put(v, load_f64_n(p + 1, kVector == 16 ? 1 : 1 + n % 3)),
           put_doubles(v, p + 1, kVector == 16 ? 1 : 1 + n % 3))
    MEMORY("load_s16(const uint8_t*)", v = (Bytes)load_s16(p + 1), (widen<int16_t, uint8_t>(v, p + 1)))
    MEMORY("load_s32(const uint8_t*)", v = (Bytes)load_s32(p + 1), (widen<int32_t, uint8_t>(v, p + 1)))
    MEMORY("load_s32(const int16_t*)", v = (Bytes)load_s32(reinterpret_cast<const int16_t*>(p + 1)),
           (widen<int32_t, int16_t>(v, p + 1)))
    MEMORY("load_difference(const int16_t*, const int16_t*)",
           v = (Bytes)load_difference(reinterpret_cast<const int16_t*>(p + 1), reinterpret_cast<const int16_t*>(q + 1)),
           (widen<int32_t, int16_t>(v, p + 1));
           Bytes w; (widen<int32_t, int16_t>(w, q + 1)); v = (Bytes)((S32)v - (S32)w))
    MEMORY("load_s32(const int32_t*)", v = (Bytes)load_s32(reinterpret_cast<const int32_t*>(p + 1)),
           memcpy(&v, p + 1, kVector))
    MEMORY("load_f32(const uint8_t*)", f = load_f32(p + 1), for (int i = 0; i < kLanes<float>; ++i) f[i] = p[1 + i])
    MEMORY("load_f32(const int16_t*)", f = load_f32(reinterpret_cast<const int16_t*>(p + 1)), int16_t e[kLanes<float>];
           memcpy(e, p + 1, sizeof e); for (int i = 0; i < kLanes<float>; ++i) f[i] = e[i])
    MEMORY("load_f32(const float*)", f = load_f32(reinterpret_cast<const float*>(p + 1)), memcpy(&f, p + 1, kVector))
    MEMORY("load_four(const uint8_t*)", store(q, load_four(p + 1)),
           for (int i = 0; i < 4; ++i) reinterpret_cast<float*>(q)[i] = p[1 + i])
    MEMORY("load_four(const int16_t*)", store(q, load_four(reinterpret_cast<const int16_t*>(p + 1))), int16_t e[4];
           memcpy(e, p + 1, sizeof e); for (int i = 0; i < 4; ++i) reinterpret_cast<float*>(q)[i] = e[i])
    MEMORY("load_four(const float*)", store(q, load_four(reinterpret_cast<const float*>(p + 1))), memcpy(q, p + 1, 16))
    MEMORY("load_f32_four(const uint8_t*, F32 (&)[4])", F32 four[4]; load_f32_four(p + 1, four);
           memcpy(q, four, sizeof four), for (int i = 0; i < kVector; ++i) reinterpret_cast<float*>(q)[i] = p[1 + i])
    MEMORY("load_f32_four(const int16_t*, F32 (&)[4])", F32 four[4];
           load_f32_four(reinterpret_cast<const int16_t*>(p + 1), four);
           memcpy(q, four, sizeof four), int16_t e[kVector]; memcpy(e, p + 1, sizeof e);
           for (int i = 0; i < kVector; ++i) reinterpret_cast<float*>(q)[i] = e[i])
    WORD(S32, nearest_int, (F32), nearest(a[i]))
    WORD(S32, nearest_int_saturated, (F32), rounded<int32_t>(a[i]))

    // round.h
    WORD(uint8_t, round_to<uint8_t>, (float), rounded<uint8_t>(a))
    WORD(int16_t, round_to<int16_t>, (float), rounded<int16_t>(a))
    WORD(int32_t, round_to<int32_t>, (float), rounded<int32_t>(a))
    WORD(float, round_to<float>, (float), a)
    WORD(Block<uint8_t>, pack<uint8_t>, (S32, S32, S32, S32), cut<uint8_t>(of_four(a, b, c, d, i)))
    WORD(Block<int16_t>, pack<int16_t>, (S32, S32, S32, S32), cut<int16_t>(of_four(a, b, c, d, i)))
    WORD(Block<int16_t>, round_to_within32<int16_t>, (F32, F32, F32, F32),
         of_four(a, b, c, d, i) < 2147483648.0f ? rounded<int16_t>(of_four(a, b, c, d, i)) : r)
    WORD(Block<uint8_t>, round_to<uint8_t>, (F32, F32, F32, F32), rounded<uint8_t>(of_four(a, b, c, d, i)))
    WORD(Block<int16_t>, round_to<int16_t>, (F32, F32, F32, F32), rounded<int16_t>(of_four(a, b, c, d, i)))
    WORD(Block<int32_t>, round_to<int32_t>, (F32, F32, F32, F32), rounded<int32_t>(of_four(a, b, c, d, i)))
    WORD(Block<float>, round_to<float>, (F32, F32, F32, F32), of_four(a, b, c, d, i))
    return check.checked;
}

}  // namespace tarn::k::TARN_LEVEL

// Thresholds: the answer of a vector's comparisons is a mask, by which its bits are chosen. A comparison of integers is
// "above the level" or "equal to it": the level is moved by one and the choices are swapped for the others. Constants
// of channels are patterns, so that channels are never taken apart.
#include "kernels/threshold/threshold.h"

#include "kernels/compare/known.h"
#include "kernels/plane/pattern.h"
#include "kernels/plane/plane.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// ---- A call's constants ---------------------------------------------------------------------------------------------

// What becomes of elements, by channel; stays: whether some choice keeps elements.
template <class T>
struct Choices {
    T keep[4], value[4];
};
template <class T, Form kForm>
inline Choices<T> choices_of(const Choice& choice) {
    Choices<T> c = {};
    read_constants<T, kForm>(choice.keep, c.keep);
    read_constants<T, kForm>(choice.value, c.value);
    return c;
}
template <class T>
inline void take_over(Choices<T>& to, const Choices<T>& from, int channel) {
    to.keep[channel] = from.keep[channel];
    to.value[channel] = from.value[channel];
}

// Integers: the comparison as kGreater or kEqual, and one level per channel.
template <class T, Form kForm>
struct Plan {
    int comparison;
    int64_t level[4] = {};
    Choices<T> holds, fails;

    explicit Plan(const Thresholds& t)
        : comparison(t.comparison == kEqual ? kEqual : kGreater),
          holds(choices_of<T, kForm>(t.holds)),
          fails(choices_of<T, kForm>(t.fails)) {
        int32_t levels[4];
        read_constants<int32_t, kForm>(t.levels, levels);
        const bool excluded = t.comparison == kLess || t.comparison == kGreaterEqual;
        for (int c = 0; c < used(kForm); ++c) level[c] = int64_t(levels[c]) - excluded;
        if (t.comparison < kEqual) {
            const Choices<T> swapped = holds;
            holds = fails;
            fails = swapped;
        }
    }
    // Levels that no element can reach, from above or below, are answered here: the others lie in lowest..highest.
    void clip(int64_t lowest, int64_t highest) {
        for (int c = 0; c < used(kForm); ++c) {
            const bool below = level[c]<lowest, above = level[c]> highest;
            if (below && comparison == kGreater)
                take_over(fails, holds, c);
            else if (below || above)
                take_over(holds, fails, c);
            level[c] = below ? lowest : above ? highest : level[c];
        }
    }
};

// The choices as patterns.
struct Outcome {
    Pattern keep, value;
};
template <class T, Form kForm>
inline Outcome outcome_of(const Choices<T>& c) {
    return {pattern_of<T, kForm>(c.keep), pattern_of<T, kForm>(c.value)};
}
template <class T, Form kForm>
inline bool keeps(const Choices<T>& c) {
    const T none[4] = {};
    return memcmp(c.keep, none, used(kForm) * sizeof(T)) != 0;
}

// ---- Tests: where a vector's comparison holds -----------------------------------------------------------------------
// A row's test refers to the patterns: copies that are read at once, as other words than were written, would cost more
// than short rows.

template <class T, int kComparison>
struct AgainstLevel {
    Pattern level;
    const AgainstLevel& at(int64_t) const { return *this; }
    template <class Io>
    Bytes operator()(Io, Vec<T> v, int64_t, int phase) const {
        return (Bytes)holds<kComparison>(v, (Vec<T>)level.v[phase]);
    }
};

// a - b, or 0 where b is larger.
inline U8 excess(U8 a, U8 b) { return saturated_sub(a, b); }
inline U16 excess(U16 a, U16 b) { return a - min(a, b); }
inline U8 in_order(U8 v) { return v; }
inline U16 in_order(S16 v) { return (U16)v ^ splat<uint16_t>(0x8000); }

// Against reference + offset. The offset of an integer is plus - minus, of which one is zero: the difference of the
// elements is compared with it on the side where it lies, so that nothing has to be wider than the elements.
template <class T, int kComparison>
struct AgainstReference {
    const uint8_t* reference;
    int64_t stride;
    const Pattern &plus, &minus;
    AgainstReference at(int64_t y) const { return {reference + y * stride, stride, plus, minus}; }
    template <class Io>
    Bytes operator()(Io io, Vec<T> element, int64_t i, int phase) const {
        const auto v = in_order(element), r = in_order(io.template load<Vec<T>>(reference + i));
        using V = decltype(in_order(element));
        const V over = excess(v, r), under = excess(r, v), p = (V)plus.v[phase], m = (V)minus.v[phase];
        if constexpr (kComparison == kEqual)
            return (Bytes)(over == p) & (Bytes)(under == m);
        else
            return (Bytes)((excess(over, p) | excess(m, under)) != 0);
    }
};
template <int kComparison>
struct AgainstReference<float, kComparison> {
    const uint8_t* reference;
    int64_t stride;
    const Pattern& offset;
    AgainstReference at(int64_t y) const { return {reference + y * stride, stride, offset}; }
    template <class Io>
    Bytes operator()(Io io, F32 v, int64_t i, int phase) const {
        return (Bytes)holds<kComparison>(v, io.template load<F32>(reference + i) + (F32)offset.v[phase]);
    }
};

// ---- Planes ---------------------------------------------------------------------------------------------------------

template <class T, bool kKept, bool kKeeps, class Test>
void choose_rows(const uint8_t* src, int32_t src_stride, uint8_t* dst, int32_t dst_stride, Rows rows, int64_t row_bytes,
                 const Test& given, const Outcome& holds, const Outcome& fails) {
    const Test test = given;
    const Outcome yes = holds, no = fails;
    const Bytes mask = colour_mask<T>();
    for (int64_t y = 0; y < rows.count; ++y) {
        const uint8_t* s = src + y * src_stride;
        uint8_t* d = dst + y * dst_stride;
        const auto& here = test.at(y);
        store_each_phase<kKept>(d, row_bytes, mask, [=, &here, &yes, &no](auto io, int64_t i, auto phase) {
            const Bytes v = io.load(s + i);
            Bytes a = yes.value.v[phase.index], b = no.value.v[phase.index];
            if constexpr (kKeeps) a |= v & yes.keep.v[phase.index], b |= v & no.keep.v[phase.index];
            return select(here(io, (Vec<T>)v, i, phase.index), a, b);
        });
    }
}

template <class T, Form kForm, class Test>
Status choose(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Rows rows, const Test& test,
              const Choices<T>& holds, const Choices<T>& fails) {
    const Outcome yes = outcome_of<T, kForm>(holds), no = outcome_of<T, kForm>(fails);
    const int64_t row_bytes = rows.pixels * kPixelBytes<T, kForm>;
    const uint8_t* s = static_cast<const uint8_t*>(src);
    uint8_t* d = static_cast<uint8_t*>(dst);
    if (keeps<T, kForm>(holds) || keeps<T, kForm>(fails))
        choose_rows<T, kept(kForm), true>(s, src_stride, d, dst_stride, rows, row_bytes, test, yes, no);
    else
        choose_rows<T, kept(kForm), false>(s, src_stride, d, dst_stride, rows, row_bytes, test, yes, no);
    return kOk;
}

inline Status check_thresholds(Size size, const void* src, void* dst, const Thresholds* t) {
    if (Status s = check(size, src, dst, t)) return s;
    if (!t->levels || !t->holds.keep || !t->holds.value || !t->fails.keep || !t->fails.value) return kNull;
    return t->comparison >= kLess && t->comparison <= kGreater ? kOk : kBadArg;
}

template <class T, Form kForm>
Status threshold(const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size, const Thresholds* t) {
    if (Status s = check_thresholds(size, src, dst, t)) return s;
    constexpr int64_t kBytes = kPixelBytes<T, kForm>;
    const Rows rows = rows_of(size, Pitch{src_stride, kBytes}, Pitch{dst_stride, kBytes});
    const auto run = [&](const auto& test, const Choices<T>& holds, const Choices<T>& fails) {
        return choose<T, kForm>(src, src_stride, dst, dst_stride, rows, test, holds, fails);
    };
    if constexpr (sizeof(T) == 4) {
        const Pattern level = pattern_of_constants<T, kForm>(t->levels);
        const Choices<T> holds = choices_of<T, kForm>(t->holds), fails = choices_of<T, kForm>(t->fails);
        return with_known(t->comparison, [&](auto known) { run(AgainstLevel<T, known.value>{level}, holds, fails); });
    } else {
        Plan<T, kForm> plan(*t);
        plan.clip(sizeof(T) == 1 ? 0 : INT16_MIN, sizeof(T) == 1 ? UINT8_MAX : INT16_MAX);
        T levels[4] = {};
        for (int c = 0; c < 4; ++c) levels[c] = T(plan.level[c]);
        const Pattern level = pattern_of<T, kForm>(levels);
        return plan.comparison == kEqual ? run(AgainstLevel<T, kEqual>{level}, plan.holds, plan.fails)
                                         : run(AgainstLevel<T, kGreater>{level}, plan.holds, plan.fails);
    }
}

template <class T, Form kForm>
Status threshold_by(const void* src, int32_t src_stride, const void* reference, int32_t reference_stride, void* dst,
                    int32_t dst_stride, Size size, const Thresholds* t) {
    if (!reference) return kNull;
    if (Status s = check_thresholds(size, src, dst, t)) return s;
    constexpr int64_t kBytes = kPixelBytes<T, kForm>;
    const Rows rows =
        rows_of(size, Pitch{src_stride, kBytes}, Pitch{reference_stride, kBytes}, Pitch{dst_stride, kBytes});
    const uint8_t* r = static_cast<const uint8_t*>(reference);
    const auto run = [&](const auto& test, const Choices<T>& holds, const Choices<T>& fails) {
        return choose<T, kForm>(src, src_stride, dst, dst_stride, rows, test, holds, fails);
    };
    if constexpr (sizeof(T) == 4) {
        const Pattern offset = pattern_of_constants<T, kForm>(t->levels);
        const Choices<T> holds = choices_of<T, kForm>(t->holds), fails = choices_of<T, kForm>(t->fails);
        return with_known(t->comparison, [&](auto known) {
            run(AgainstReference<T, known.value>{r, reference_stride, offset}, holds, fails);
        });
    } else {
        constexpr int64_t kMost = sizeof(T) == 1 ? UINT8_MAX : UINT16_MAX;  // difference of two elements
        Plan<T, kForm> plan(*t);
        plan.clip(-kMost, kMost);
        T plus[4], minus[4];
        for (int c = 0; c < 4; ++c) {
            plus[c] = T(max<int64_t>(plan.level[c], 0));
            minus[c] = T(max<int64_t>(-plan.level[c], 0));
        }
        const Pattern p = pattern_of<T, kForm>(plus), m = pattern_of<T, kForm>(minus);
        if (plan.comparison == kEqual)
            return run(AgainstReference<T, kEqual>{r, reference_stride, p, m}, plan.holds, plan.fails);
        return run(AgainstReference<T, kGreater>{r, reference_stride, p, m}, plan.holds, plan.fails);
    }
}

}  // namespace

TARN_BODIES(threshold, ThresholdLevel, u8_s16_f32, c1_c3_c4_c3x, threshold<T, kForm>)
TARN_BODIES(threshold_by, ThresholdBy, u8_s16_f32, c1_c3_c4_c3x, threshold_by<T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

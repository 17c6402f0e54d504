// For the morphology sources only: a plan carried out over a strip of columns. In bands of rows: first the tables of
// windows of the band's image rows, then, column by column of vectors, eight result rows at a time in registers through
// all of the plan's steps. What a step hands to the rows below it stays from block to block in the column's history.
#pragma once

#include "kernels/filter/extreme.h"
#include "kernels/filter/running.h"
#include "kernels/morph/state.h"

namespace tarn::k::TARN_LEVEL {
namespace {

struct Erosion {
    using Extreme = Minimum;
    static constexpr bool kReflected = false;
    template <class V>
    static V join(V a, V b) {
        return min(a, b);
    }
    static uint8_t nothing(uint8_t) { return 255; }
    static int32_t nothing(int32_t) { return 0x7f800000; }  // infinity
};
struct Dilation {
    using Extreme = Maximum;
    static constexpr bool kReflected = true;
    template <class V>
    static V join(V a, V b) {
        return max(a, b);
    }
    static uint8_t nothing(uint8_t) { return 0; }
    static int32_t nothing(int32_t) { return int32_t(0x807fffff); }  // -infinity
};

template <class V>
struct Block {
    V v[kBlock];
};

// Joins every row of the block with that kRise rows before; history: the last kRise rows of the block before.
template <class Op, int kRise, class V>
[[gnu::always_inline]] inline void rise_near(Block<V>& u, uint8_t* history) {
    V before[kRise];
    for (int i = 0; i < kRise; ++i) before[i] = load<V>(history + i * kVector);
    for (int i = 0; i < kRise; ++i) store(history + i * kVector, u.v[kBlock - kRise + i]);
    for (int i = kBlock - 1; i >= kRise; --i) u.v[i] = Op::join(u.v[i], u.v[i - kRise]);
    for (int i = 0; i < kRise; ++i) u.v[i] = Op::join(u.v[i], before[i]);
}
// The same through a ring of rows.
template <class Op, class V>
[[gnu::always_inline]] inline void rise_far(Block<V>& u, uint8_t* history, int64_t rise) {
    const int64_t ring = round_up(rise, kBlock) + kBlock;
    int64_t place;
    memcpy(&place, history, sizeof place);
    uint8_t* rows = history + kVector;
    for (int i = 0; i < kBlock; ++i) store(rows + (place + i) * kVector, u.v[i]);
    int64_t from = place - rise;
    from += from < 0 ? ring : 0;
    place = place + kBlock == ring ? 0 : place + kBlock;
    memcpy(history, &place, sizeof place);
    for (int i = 0; i < kBlock; ++i) {
        u.v[i] = Op::join(u.v[i], load<V>(rows + from * kVector));
        from = from + 1 == ring ? 0 : from + 1;
    }
}

// Eight rows of results from the tables at t, which has `stride` bytes from row to row.
template <class Op, class V>
[[gnu::always_inline]] inline Block<V> carry_out(const BoundStep* steps, int64_t count, const uint8_t* t,
                                                 int64_t stride, uint8_t* history) {
    Block<V> u;
    const auto first = [=](const BoundStep& s, int i) { return load<V>(t + s.first + i * stride); };
    const auto both = [=](const BoundStep& s, int i) {
        return Op::join(first(s, i), load<V>(t + s.first + s.second + i * stride));
    };
    if (steps->windows == 1)
        for (int i = 0; i < kBlock; ++i) u.v[i] = first(*steps, i);
    else
        for (int i = 0; i < kBlock; ++i) u.v[i] = both(*steps, i);
    for (const BoundStep* s = steps + 1; s < steps + count; ++s) {
        uint8_t* h = history + s->history;
        switch (s->rise) {
            case 0:
                break;
            case 1:
                rise_near<Op, 1>(u, h);
                break;
            case 2:
                rise_near<Op, 2>(u, h);
                break;
            case 3:
                rise_near<Op, 3>(u, h);
                break;
            case 4:
                rise_near<Op, 4>(u, h);
                break;
            default:
                rise_far<Op>(u, h, s->rise);
        }
        if (s->windows == 2)
            for (int i = 0; i < kBlock; ++i) u.v[i] = Op::join(u.v[i], both(*s, i));
        else if (s->windows == 1)
            for (int i = 0; i < kBlock; ++i) u.v[i] = Op::join(u.v[i], first(*s, i));
    }
    return u;
}

// The same of a plan in which nothing rises: windows at these places.
template <class Op, class V>
[[gnu::always_inline]] inline Block<V> join_windows(const int64_t* places, int64_t count, const uint8_t* t,
                                                    int64_t stride) {
    Block<V> u;
    for (int i = 0; i < kBlock; ++i) u.v[i] = load<V>(t + *places + i * stride);
    for (const int64_t* at = places + 1; at < places + count; ++at) {
        const uint8_t* p = t + *at;
#pragma GCC unroll 8
        for (int i = 0; i < kBlock; ++i) u.v[i] = Op::join(u.v[i], load<V>(p + i * stride));
    }
    return u;
}

template <class Op, class T>
class Pass {
public:
    using E = typename Ordered<T>::E;
    using V = Vec<E>;

    // Takes its part of the state's scratch, `memory`, and binds the steps to it.
    Pass(uint8_t* memory, const Layout& l, const Extent& e, const uint8_t* steps, int64_t channels, Size region)
        : steps_(reinterpret_cast<BoundStep*>(memory)),
          count_(e.steps),
          tables_(memory + l.bound),
          line_(tables_ + l.tables * l.rows * l.pitch),
          history_(line_ + l.pitch),
          pitch_(l.pitch),
          stride_(l.tables * l.pitch),
          history_bytes_(l.history_rows * kVector),
          levels_(e.levels),
          channels_(channels),
          elements_(region.width * channels),
          height_(region.height) {
        if (!e.steps) return;
        const int64_t leftmost = Op::kReflected ? 1 - e.right : e.left;
        span_ = Op::kReflected ? e.low_top - e.high_top : e.lowest - e.highest;
        top_ = Op::kReflected ? e.risen - e.low_top : e.highest;
        left_ = -leftmost * channels;
        reach_ = (e.columns() - 1) * channels;
        before_ = round_up(e.risen, kBlock);
        int64_t risen = 0, history = 0;
        for (int64_t i = 0; i < count_; ++i) {
            Step s;
            memcpy(&s, steps + i * int64_t(sizeof s), sizeof s);
            risen += s.rise;
            BoundStep& b = steps_[i];
            b = {0, 0, history, s.rise, s.joins() ? s.second ? 2 : 1 : 0};
            history += Extent::history_of(s.rise) * kVector;
            if (!s.joins()) continue;
            const int64_t wide = s.second + (int64_t(1) << s.level);
            const int64_t x = Op::kReflected ? 1 - (s.x + wide) : s.x;
            const int64_t y = Op::kReflected ? e.risen - (s.row + risen) : s.row;
            const int64_t table = count_bits(e.levels & ((uint64_t(1) << s.level) - 1));
            b.first = (y - top_) * stride_ + table * pitch_ + (x - leftmost) * channels * int64_t(sizeof(E));
            b.second = s.second * channels * int64_t(sizeof(E));
        }
        if (e.risen) return;
        // In the place of the steps, each of which has room for two.
        places_ = reinterpret_cast<int64_t*>(memory);
        for (int64_t i = 0; i < count_; ++i) {
            BoundStep b;
            memcpy(&b, memory + i * int64_t(sizeof b), sizeof b);
            const int64_t both[] = {b.first, b.first + b.second};
            memcpy(memory + windows_ * int64_t(sizeof *both), both, size_t(b.windows) * sizeof *both);
            windows_ += b.windows;
        }
    }

    // Begins a strip: results of elements [x, x + width). source(y, from, count, to) gives elements of image rows; rows
    // are asked for in order.
    template <class Source>
    void start(int64_t x, int64_t width, const Source& source) {
        x_ = x, width_ = width;
        next_ = -before_;
        for (int64_t i = 0; !places_ && i < count_; ++i)
            if (steps_[i].rise > kNear)
                for (int64_t c = 0; c * kLanes<E> < width; ++c)
                    memset(history_ + c * history_bytes_ + steps_[i].history, 0, sizeof(int64_t));
        for (int64_t i = 0; i < span_; ++i) prepare(i, source);
        while (next_ < 0) band(min(kBand, -next_), source, [](const Block<V>&, int64_t, int64_t) {});
    }
    // The elements that results [x, end) are made of: [reads_from(x), reads_to(end)).
    int64_t reads_from(int64_t x) const { return x - left_; }
    int64_t reads_to(int64_t end) const { return end - left_ + reach_; }

    // The next rows' results, so many as a multiple of kBlock, at most kBand: sink(block, element of the strip, row)
    // for each block. Of strips that are narrower than a vector only the first elements are results.
    template <class Source, class Sink>
    void band(int64_t rows, const Source& source, Sink sink) {
        for (int64_t i = 0; i < rows; ++i) prepare(span_ + i, source);
        for (int64_t c = 0; c * kLanes<E> < width_; ++c) {
            const int64_t at = max<int64_t>(min(c * kLanes<E>, width_ - kLanes<E>), 0);
            uint8_t* history = history_ + c * history_bytes_;
            const uint8_t* t = tables_ + at * int64_t(sizeof(E));
            for (int64_t y = 0; y < rows; y += kBlock, t += kBlock * stride_)
                sink(!count_   ? nothing()
                     : places_ ? join_windows<Op, V>(places_, windows_, t, stride_)
                               : carry_out<Op, V>(steps_, count_, t, stride_, history),
                     at, next_ + y);
        }
        memmove(tables_, tables_ + rows * stride_, size_t(span_ * stride_));
        next_ += rows;
    }

private:
    static Block<V> nothing() {
        Block<V> u;
        for (V& v : u.v) v = splat(Op::nothing(E()));
        return u;
    }

    // The tables of the image row that belongs there.
    template <class Source>
    void prepare(int64_t slot, const Source& source) {
        const int64_t y = clamp<int64_t>(next_ + top_ + slot, 0, height_ - 1), n = width_ + reach_;
        uint8_t* table = tables_ + slot * stride_;
        const auto place = [&](int level) {
            if (!(levels_ >> level & 1)) return reinterpret_cast<E*>(line_);
            return reinterpret_cast<E*>(table + count_bits(levels_ & ((uint64_t(1) << level) - 1)) * pitch_);
        };
        const E* have = place(0);
        source(y, x_ - left_, n, place(0));
        for (int level = 0, to; levels_ >> (level + 1); level = to) {
            // By four where nothing between is wanted.
            to = level + (levels_ >> (level + 1) & 1 ? 1 : 2);
            E* made = place(to);
            const int64_t apart = channels_ << level, count = n - ((channels_ << to) - channels_);
            if (to == level + 1)
                for (int64_t i = 0; i < count; i += kLanes<E>)
                    store(made + i, Op::join(load<V>(have + i), load<V>(have + i + apart)));
            else
                for (int64_t i = 0; i < count; i += kLanes<E>)
                    store(made + i, Op::join(Op::join(load<V>(have + i), load<V>(have + i + apart)),
                                             Op::join(load<V>(have + i + 2 * apart), load<V>(have + i + 3 * apart))));
            have = made;
        }
    }

    BoundStep* steps_;
    int64_t count_;
    int64_t* places_ = nullptr;  // of a plan in which nothing rises, instead of the steps
    int64_t windows_ = 0;
    uint8_t *tables_, *line_, *history_;
    int64_t pitch_, stride_;  // from table to table, and from row to row
    int64_t history_bytes_;   // of a column
    uint64_t levels_;
    int64_t channels_, elements_, height_;
    int64_t left_ = 0,
            reach_ = 0;  // elements before a result's that its row begins with, and in all that are more than results
    int64_t top_ = 0, span_ = 0;  // the same of rows
    int64_t before_ = 0;          // rows before the first that the history comes from
    int64_t x_ = 0, width_ = 0, next_ = 0;
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

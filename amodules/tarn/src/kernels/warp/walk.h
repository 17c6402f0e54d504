// For the warp sources only: the order in which a destination is filled, and which pixels need care.
//
// Bands of rows, in them strips of columns, narrow where a row of the destination crosses many rows of the source: so
// the source's cache lines, each used by many rows, stay where they are near. Of each row the mapped columns are found
// beforehand, and of those the inner ones, whose taps all lie in the source: loops over them test nothing. The others
// take their taps from small copies of the source with the edge repeated. Where a strip crosses rows that the caches
// bear badly, what it takes is copied first, and read from there (Tile), or fetched some lines before.
//
// A sampler is a type with
//   kKept, kSettled             as in Carry
//   kPixel, kTaps, kBeyond      bytes of a pixel; taps on each axis; pixels behind the last tap that may be read
//   kBiasX, kBiasY, kFractions  as Frame and find_points take them
//   run(base, stride, points, from, to, dst)   fills pixels [from, to) of a strip to dst, from base + points
//   Rows, run(rows, ...)        as scale.h tells; int where the sampler has no way of its own for warps that only scale
#pragma once

#include "kernels/plane/store.h"
#include "kernels/warp/points.h"
#include "kernels/warp/whole.h"

namespace tarn::k::TARN_LEVEL {
namespace {

constexpr int64_t kBandLines = 64;

// Columns of a strip: few enough that not more than some hundred rows of the source are crossed.
inline int64_t strip_columns(const Job& j) {
    const double most = 128 / (magnitude(j.y.step) + 0x1p-10);
    return most >= double(kMostColumns) ? kMostColumns : most >= 128 ? 128 : 64;
}

// The pixels of the source that the positions of a strip's lines lie among, as far as it has them.
struct Box {
    Span across, down;

    // With so many pixels before and behind.
    Box(const Job& j, Span columns, Span lines, int64_t before, int64_t behind) {
        const auto reach = [=](const Axis& a, int64_t size) {
            const double x[] = {a.step * double(columns.from), a.step * double(columns.to - 1)};
            const double y[] = {a.offset(lines.from), a.offset(lines.to - 1)};
            const double least = min(x[0], x[1]) + min(y[0], y[1]), most = max(x[0], x[1]) + max(y[0], y[1]);
            return Span{int64_t(bounded(least - double(before) - 1, 0, double(size))),
                        int64_t(bounded(most + double(behind) + 2, 0, double(size)))};
        };
        across = reach(j.x, j.src_size.width), down = reach(j.y, j.src_size.height);
    }
};

// A box of the source, copied to where its rows neither meet in the same cache sets nor lie on pages of their own.
struct Tile {
    static constexpr int64_t kBytes = 48 << 10, kLine = 64, kLarge = 1 << 20;
    alignas(64) uint8_t pixels[kBytes];
    intptr_t origin;  // where the source's first pixel would be
    int32_t stride;

    // Where a line of a strip crosses several rows of a source that the cache does not hold: rows that meet in a set
    // are copied, and small pixels, whose boxes are small, unless each row serves a line of its own anyway.
    static bool serves(const Job& j, int64_t pixel) {
        const bool large = magnitude(j.src_stride) * j.src_size.height > double(kLarge);
        const bool meet = j.src_stride % 1024 == 0, small = pixel <= 2 && magnitude(j.x.step) > 0.5;
        return large && magnitude(j.y.step) * 64 > 8 && (meet || small);
    }
    // False where there is no room.
    bool take(const Job& j, const Box& box, int64_t pixel) {
        const int64_t bytes = (box.across.to - box.across.from) * pixel, rows = box.down.to - box.down.from;
        stride = int32_t(((bytes + kLine - 1) / kLine | 1) * kLine);
        if (bytes < kVector || rows <= 0 || rows * stride > kBytes) return false;
        const uint8_t* s = row<uint8_t>(j.src, j.src_stride, box.down.from) + box.across.from * pixel;
        for (uint8_t* d = pixels; d < pixels + rows * stride; d += stride, s += j.src_stride)
            each_overlapped(bytes, [=](auto io, int64_t i) { io.store(d + i, io.template load<Bytes>(s + i)); });
        origin = reinterpret_cast<intptr_t>(pixels) - box.down.from * stride - box.across.from * pixel;
        return true;
    }
};

template <class Sampler>
class Walk {
public:
    explicit Walk(const Job& job)
        : j(job), scales_(j.x.row == 0 && j.y.step == 0 && magnitude(j.y.row) < 0.6 * Sampler::kTaps) {
        // Runs of so many columns at most, so that their extent in the source fits. Usually the whole source does.
        const int64_t stride = max<int64_t>(magnitude(j.src_stride), 1);
        const double reach = double(0x40000000 / stride);
        near_ = max(j.src_size.width, j.src_size.height) < 0x70000 && j.src_size.height < reach;
        if (!near_)
            longest_ =
                int64_t(bounded(min(0x40000 / (magnitude(j.x.step) + 1), (reach - 2) / (magnitude(j.y.step) + 1)), 1.0,
                                double(kMostColumns)));
    }

    Status operator()() { return near_ && Tile::serves(j, Sampler::kPixel) ? through_tile() : fill_bands(); }

private:
    static constexpr int kLead = (Sampler::kTaps - 1) / 2, kTrail = Sampler::kTaps / 2;
    static constexpr bool kHasRows = sizeof(typename Sampler::Rows) > sizeof(int);

    // With room on the stack that others do without.
    [[gnu::noinline]] Status through_tile() {
        Tile tile;
        tile_ = &tile;
        return fill_bands();
    }
    [[gnu::noinline]] Status fill_bands() {
        const int64_t left = j.to.x, right = left + j.to.width, top = j.to.y, bottom = top + j.to.height;
        const int64_t width = strip_columns(j);
        bool any = false;
        for (int64_t band = top; band < bottom; band += kBandLines) {
            const int64_t end = min(band + kBandLines, bottom);
            Span mapped[kBandLines], inner[kBandLines], all{right, left};
            for (int64_t line = band; line < end; ++line) {
                Span& m = mapped[line - band];
                m = j.mapped(line);
                inner[line - band] = inner_of(line, m);
                if (m.from < m.to) all = {min(all.from, m.from), max(all.to, m.to)};
            }
            any |= all.from < all.to;
            for (first_ = all.from; first_ < all.to; first_ += width) {
                columns_.fill(j, first_, width);
                origin_ = reinterpret_cast<intptr_t>(j.src), stride_ = j.src_stride;
                if (tile_) {
                    const Box box(j, {first_, min(first_ + width, all.to)}, {band, end}, kLead,
                                  kTrail + Sampler::kBeyond);
                    if (tile_->take(j, box, Sampler::kPixel)) origin_ = tile_->origin, stride_ = tile_->stride;
                }
                ahead_ = stride_ == j.src_stride && fetches() ? ahead() : 0;
                if constexpr (kHasRows) rows_.forget();
                for (int64_t line = band; line < end; ++line) {
                    const Span &m = mapped[line - band], &in = inner[line - band];
                    const int64_t from = max(m.from, first_), to = min(m.to, first_ + width);
                    if (from >= to) continue;
                    const Span core{clamp(in.from, from, to), clamp(in.to, from, to)};
                    fill_row(line, {from, to}, core.from < core.to ? core : Span{from, from});
                }
            }
        }
        return any ? kOk : kNothingMapped;
    }

    // Whether the lines to come are fetched: where each crosses many rows, processors don't foresee which pieces of
    // them come next. What the cache behind gives, pixels that are only moved don't wait for; nor do columns, whose
    // pieces serve many lines.
    bool fetches() const {
        constexpr double kLarge = Sampler::kTaps > 1 ? 1 << 20 : 4 << 20, kHuge = 16 << 20, kTurned = 0.125;
        const double bytes = magnitude(j.src_stride) * j.src_size.height;
        return near_ && Sampler::kPixel > 1 && magnitude(j.y.step) > kTurned &&
               bytes > (magnitude(j.x.step) > kTurned ? kLarge : kHuge);
    }
    // From a line's pixels in the source to those of the line that is fetched beside it, in bytes.
    int64_t ahead() const {
        constexpr double kLines = 16, kFar = 1 << 20;  // beyond is nothing to fetch
        const auto pixels = [](double v) { return int64_t(bounded(v * kLines, -kFar, kFar)); };
        return pixels(j.y.row) * j.src_stride + pixels(j.x.row) * Sampler::kPixel;
    }
    // A part of a line's pixels, the next part beside the next line, for a cache line serves several lines. A call that
    // only fetches is nothing to a compiler and may be left out: inline.
    [[gnu::always_inline]] void fetch(int64_t line, Span s, intptr_t base) {
        constexpr int64_t kParts = 4;
        const int32_t* at = points_.at();
        const int64_t part = (s.to - s.from + kParts - 1) / kParts, from = s.from + (line & (kParts - 1)) * part;
        for (int64_t x = from; x < min(from + part, s.to); ++x)
            __builtin_prefetch(reinterpret_cast<const void*>(base + at[x - first_]));
    }

    // Those of a row's mapped columns whose taps lie in the source, perhaps without the outermost.
    Span inner_of(int64_t line, Span mapped) const {
        if (Sampler::kTaps == 1 && Sampler::kBeyond == 0) return mapped;
        constexpr double kMargin = 0x1p-10, kNearest = Sampler::kTaps == 1 ? 0.5 : 0;
        return j.columns_within(line, mapped, kLead - kNearest + kMargin, kLead - kNearest + kMargin,
                                j.src_size.width - Sampler::kBeyond - kTrail - kNearest - kMargin,
                                j.src_size.height - kTrail - kNearest - kMargin);
    }

    void fill_row(int64_t line, Span mapped, Span inner) {
        for (int64_t from = mapped.from, to; from < mapped.to; from = to) {
            to = min(mapped.to, from + longest_);
            Corner corner{0, 0};
            if (!near_) {
                corner = {int64_t(j.x.at(from, j.x.offset(line))), int64_t(j.y.at(from, j.y.offset(line)))};
                const Corner more = Frame(j, line, corner, Sampler::kBiasX, Sampler::kBiasY).whole(j, from);
                corner = {corner.x + more.x, corner.y + more.y};
            }
            const Frame frame(j, line, corner, Sampler::kBiasX, Sampler::kBiasY);
            if constexpr (kHasRows)
                if (scales_ && near_ && inner.from < inner.to) {
                    fill_scaled(line, inner, frame);
                    edge_alone(line, {from, inner.from}, frame);
                    edge_alone(line, {inner.to, to}, frame);
                    continue;
                }
            find_points<Sampler::kPixel, Sampler::kFractions>(columns_, from - first_, to - first_, frame, stride_,
                                                              points_);
            const Span core{clamp(inner.from, from, to), clamp(inner.to, from, to)};
            if (core.from < core.to) {
                // Of tap 0; it may lie outside of the source where no pixel's is.
                const intptr_t base =
                    origin_ + (corner.y - kLead) * int64_t(stride_) + (corner.x - kLead) * Sampler::kPixel;
                if (ahead_) fetch(line, core, base + ahead_);
                fill(line, core, reinterpret_cast<const uint8_t*>(base), stride_);
            }
            // Behind the inner ones, since runs change the points beside them.
            edge(line, {from, core.from}, frame, corner);
            edge(line, {core.to, to}, frame, corner);
        }
    }

    // Pixels of a warp that only scales: the places of their columns are the same for all lines.
    void fill_scaled(int64_t line, Span s, const Frame& frame) {
        const int64_t from = s.from - first_, to = s.to - first_;
        if (from != rows_.from || to != rows_.to) {
            rows_.forget();
            find_points<Sampler::kPixel, true>(columns_, from, to, frame, 0, rows_.points);
            rows_.points.close(from, to);
            rows_.from = from, rows_.to = to;
        }
        const uint64_t y = __builtin_bit_cast(uint64_t, j.y.at(s.from, frame.vy) + frame.y);
        const int64_t number = int32_t(uint32_t(y >> 32) - kMagicUpper) - kLead;
        const intptr_t base = reinterpret_cast<intptr_t>(j.src) + number * j.src_stride - kLead * Sampler::kPixel;
        sampler_.run(rows_, reinterpret_cast<const uint8_t*>(base), j.src_stride, number, uint32_t(y),
                     j.dst_pixel<uint8_t>(s.from, line, Sampler::kPixel));
    }

    void fill(int64_t line, Span s, const uint8_t* base, int64_t stride) {
        sampler_.run(base, stride, points_, s.from - first_, s.to - first_,
                     j.dst_pixel<uint8_t>(s.from, line, Sampler::kPixel));
    }

    void edge_alone(int64_t line, Span s, const Frame& frame) {
        if (s.from >= s.to) return;
        find_points<Sampler::kPixel, Sampler::kFractions>(columns_, s.from - first_, s.to - first_, frame, j.src_stride,
                                                          points_);
        edge(line, s, frame, {0, 0});
    }

    // Pixels some of whose taps lie outside of the source: their taps are copied, the nearest in place of those that
    // are not there.
    void edge(int64_t line, Span s, const Frame& frame, Corner corner) {
        constexpr int kPixel = Sampler::kPixel, kTaps = Sampler::kTaps, kAtOnce = 16;
        constexpr int kLine = (kTaps + 1) * kPixel, kPatch = kLine * kTaps;
        uint8_t patches[kAtOnce * kPatch + 16];
        for (int64_t from = s.from; from < s.to; from += kAtOnce) {
            const int64_t to = min(s.to, from + kAtOnce);
            uint8_t* patch = patches;
            for (int64_t x = from; x < to; ++x, patch += kPatch) {
                const Corner whole = frame.whole(j, x);
                points_.at()[x - first_] = int32_t(patch - patches);
                int64_t across[kTaps];
                for (int t = 0; t < kTaps; ++t)
                    across[t] = clamp<int64_t>(corner.x + whole.x + t - kLead, 0, j.src_size.width - 1) * kPixel;
                for (int t = 0; t < kTaps; ++t) {
                    const int64_t sy = clamp<int64_t>(corner.y + whole.y + t - kLead, 0, j.src_size.height - 1);
                    const uint8_t* taps = row<uint8_t>(j.src, j.src_stride, sy);
                    for (int i = 0; i < kTaps; ++i) memcpy(patch + t * kLine + i * kPixel, taps + across[i], kPixel);
                }
            }
            fill(line, {from, to}, patches, kLine);
        }
    }

    const Job& j;
    bool near_;
    bool scales_;  // and does not turn, so that most source rows serve several lines
    Tile* tile_ = nullptr;
    intptr_t origin_ = 0;  // of the source or its tile
    int32_t stride_ = 0;
    int64_t ahead_ = 0;  // bytes, 0: nothing is fetched
    int64_t longest_ = kMostColumns, first_ = 0;
    Sampler sampler_;
    Columns columns_;
    Points points_;
    typename Sampler::Rows rows_;
};

template <class Sampler>
Status walk(const Job& j) {
    Carry c{};
    if (!is_carry(j, Sampler::kPixel, c)) return Walk<Sampler>(j)();
    c.kept = Sampler::kKept, c.settled = Sampler::kSettled;
    if (c.size.width == 0 || c.size.height == 0) return kNothingMapped;
    carry(c);
    return kOk;
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

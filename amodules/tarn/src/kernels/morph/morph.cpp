// Morphology by the plans of states. An operation of two passes runs them strip by strip: the second one takes its rows
// from a band of the first one's results as it comes to them, so that no more than a band of a strip stands between.
#include "kernels/morph/near.h"
#include "kernels/morph/rect.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// A call whose state serves it.
template <class T>
struct Call {
    using E = typename Ordered<T>::E;
    using V = Vec<E>;

    Status status;
    int64_t channels, elements, height;
    Picture<T> picture;
    uint8_t* dst;
    int64_t dst_stride;
    Size size;
    State state = {};

    Call(int64_t channels, bool advanced, const void* src, int32_t src_stride, void* dst, int32_t dst_stride, Size size,
         int32_t border, void* bytes)
        : status(check(size, src, dst, bytes)),
          channels(channels),
          elements(size.width * channels),
          height(size.height),
          picture{src, src_stride, size.width, channels, kRowsAhead},
          dst(static_cast<uint8_t*>(dst)),
          dst_stride(dst_stride),
          size(size) {
        if (status) return;
        if (border != kMorphReplicate || !state.read(bytes, sizeof(T), channels, size, advanced)) status = kBadArg;
    }

    template <class Op>
    Pass<Op, T> pass(int i) const {
        uint8_t* memory = state.scratch + i * state.layout.pass;
        return Pass<Op, T>(memory, state.layout, state.extent, state.steps, channels, size);
    }
    // f(x, width) for every strip.
    template <class F>
    void each_strip(F f) const {
        const int64_t strip = state.layout.strip;
        for (int64_t x = 0; x < elements; x += strip) f(x, min(strip, elements - x));
    }
    // f(y, rows) for every band: whole blocks of rows.
    template <class F>
    void each_band(F f) const {
        for (int64_t y = 0; y < height; y += kBand) f(y, band_rows(y));
    }
    int64_t band_rows(int64_t y) const { return round_up(min(kBand, height - y), kBlock); }
    uint8_t* at(int64_t x, int64_t y) const { return dst + y * dst_stride + x * int64_t(sizeof(T)); }
    // Where a block's part of the destination is, of which strip it is of.
    Place<T> place(int64_t strip, int64_t width, int64_t x, int64_t y) const {
        return {at(strip + x, y), dst_stride, min(width * int64_t(sizeof(T)), kVector), min(kBlock, height - y)};
    }
};

// What is stored of two passes' results.
enum class Last { result, source_less_result, result_less_source };

// d := d less s, or s less d.
template <class T>
void subtract_row(uint8_t* d, const uint8_t* s, int64_t width, bool s_less) {
    using V = Vec<typename Ordered<T>::E>;
    store_each<false, 1>(d, width * int64_t(sizeof(T)), Bytes{}, [=](auto io, int64_t i) {
        const V a = io.template load<V>(d + i), b = io.template load<V>(s + i);
        return s_less ? less(b, a) : less(a, b);
    });
}

// Rectangles: the same operations by the rectangle's own pass.
template <class T>
HeldRows image_rows(const Call<T>& call, int64_t x) {
    return {call.picture.at(0) + x * int64_t(sizeof(T)), call.picture.stride, 0, call.height, 0, 0};
}
template <class Op, class T>
Status one_rect(const Call<T>& call) {
    RectPass<Op, T> pass(call.state, call.channels, call.size);
    call.each_strip([&](int64_t x, int64_t width) {
        const HeldRows source = image_rows(call, pass.reads(x, width).first);
        for (int64_t y = 0; y < call.height; y += pass.rows())
            pass.block(source, x, width, y, min(pass.rows(), call.height - y), call.at(x, y), call.dst_stride,
                       [](uint8_t*, int64_t) {});
    });
    return kOk;
}
// The second pass is a block behind the first one, at the rows that end with the first one's: so it needs two blocks.
template <class First, class Second, class T>
Status two_rects(const Call<T>& call, Last last) {
    RectPass<First, T> first(call.state, call.channels, call.size);
    RectPass<Second, T> second(call.state, call.channels, call.size);
    const int64_t rows = first.rows(), pitch = call.state.layout.pitch;
    uint8_t* results = call.state.layout.results(call.state.scratch);
    call.each_strip([&](int64_t x, int64_t width) {
        const Columns made = second.reads(x, width);
        const int64_t made_width = made.end - made.first;
        const HeldRows source = image_rows(call, first.reads(made.first, made_width).first);
        HeldRows held{results, pitch, 0, call.height, 0, 2 * rows};
        int64_t next = 0;  // row of the first pass
        for (int64_t y = -second.bottom() % rows - rows; y < call.height; y += rows) {
            const int64_t from = max<int64_t>(y, 0), count = min(y + rows, call.height) - from;
            if (count <= 0) continue;
            for (; next <= clamp<int64_t>(y + rows - 1 + second.bottom(), 0, call.height - 1); next += rows) {
                first.block(source, made.first, made_width, next, min(rows, call.height - next),
                            results + next / rows % 2 * rows * pitch, pitch, [](uint8_t*, int64_t) {});
                held.base = next - next / rows % 2 * rows;
            }
            second.block(held, x, width, from, count, call.at(x, from), call.dst_stride, [&](uint8_t* d, int64_t j) {
                if (last == Last::result) return;
                const uint8_t* pixels = call.picture.at(from + j) + x * int64_t(sizeof(T));
                subtract_row<T>(d, pixels, width, last == Last::source_less_result);
            });
        }
    });
    return kOk;
}
template <class T>
Status both_rects(const Call<T>& call) {
    RectPass<Erosion, T> least(call.state, call.channels, call.size);
    RectPass<Dilation, T> most(call.state, call.channels, call.size);
    const int64_t rows = least.rows(), pitch = call.state.layout.pitch;
    uint8_t* results = call.state.layout.results(call.state.scratch);
    call.each_strip([&](int64_t x, int64_t width) {
        const HeldRows below = image_rows(call, least.reads(x, width).first);
        const HeldRows above = image_rows(call, most.reads(x, width).first);
        for (int64_t y = 0; y < call.height; y += rows) {
            const int64_t count = min(rows, call.height - y);
            least.block(below, x, width, y, count, results, pitch, [](uint8_t*, int64_t) {});
            most.block(above, x, width, y, count, call.at(x, y), call.dst_stride,
                       [&](uint8_t* d, int64_t j) { subtract_row<T>(d, results + j * pitch, width, false); });
        }
    });
    return kOk;
}

// Small elements, joined as they lie. False: this call's are not.
template <class Op, class T>
bool one_near(const Call<T>& call) {
    const Near<Op, T> pass(call.state, call.picture, call.height);
    if (!pass.fits()) return false;
    pass(0, call.height, 0, call.elements * int64_t(sizeof(T)), call.dst, call.dst_stride);
    return true;
}
// f(x, end, y, rows) for every band of strips whose ends are those of rows or kEnd bytes off them at least.
template <class T, class Start, class F>
void each_near_band(const Call<T>& call, Start start, F f) {
    const int64_t all = call.elements * int64_t(sizeof(T)), strip = call.state.layout.strip * int64_t(sizeof(T));
    for (int64_t end = 0; end < all;) {
        const int64_t x = min(end, all - strip);
        end = x + strip > all - kEnd ? all : x + strip;
        start(x, end);
        for (int64_t y = 0; y < call.height; y += kBand) f(x, end, y, min(kBand, call.height - y));
    }
}
template <class First, class Second, class T>
bool two_near(const Call<T>& call, Last last) {
    const Near<First, T> first(call.state, call.picture, call.height);
    const Cells<Second, T> second(call.state, call.channels * int64_t(sizeof(T)));
    if (!first.fits() || !second.fits()) return false;
    const Layout& layout = call.state.layout;
    NearResults<First, Second, T> results(first, second, call.picture, call.height, call.state.scratch + layout.pass,
                                          layout.pitch);
    const auto taps = second.taps(layout.pitch);
    const auto start = [&](int64_t x, int64_t end) { results.start(x, end); };
    each_near_band(call, start, [&](int64_t x, int64_t end, int64_t y, int64_t rows) {
        uint8_t* d = call.dst + y * call.dst_stride + x;
        second.block(taps, results.band(y, rows), layout.pitch, d, call.dst_stride, end - x, rows);
        if (last == Last::result) return;
        for (int64_t i = 0; i < rows; ++i)
            subtract_row<T>(d + i * call.dst_stride, call.picture.at(y + i) + x, (end - x) / int64_t(sizeof(T)),
                            last == Last::source_less_result);
    });
    return true;
}
template <class T>
bool both_near(const Call<T>& call) {
    const Near<Erosion, T> least(call.state, call.picture, call.height);
    const Near<Dilation, T> most(call.state, call.picture, call.height);
    if (!least.fits() || !most.fits()) return false;
    const int64_t pitch = call.state.layout.pitch;
    uint8_t* results = call.state.scratch + call.state.layout.pass;
    each_near_band(
        call, [](int64_t, int64_t) {},
        [&](int64_t x, int64_t end, int64_t y, int64_t rows) {
            uint8_t* d = call.dst + y * call.dst_stride + x;
            least(y, rows, x, end, results, pitch);
            most(y, rows, x, end, d, call.dst_stride);
            for (int64_t i = 0; i < rows; ++i)
                subtract_row<T>(d + i * call.dst_stride, results + i * pitch, (end - x) / int64_t(sizeof(T)), false);
        });
    return true;
}

template <class Op, class T>
[[gnu::noinline]] Status one_pass(const Call<T>& call) {
    using V = typename Call<T>::V;
    if (call.status) return call.status;
    if (call.state.extent.rectangle) return one_rect<Op>(call);
    if (call.state.extent.is_near() && one_near<Op>(call)) return kOk;
    auto pass = call.template pass<Op>(0);
    call.each_strip([&](int64_t strip, int64_t width) {
        const auto sink = [&](const Block<V>& u, int64_t x, int64_t y) {
            call.place(strip, width, x, y).store(u);
            call.picture.fetch(y + kBand, strip + x);
        };
        pass.start(strip, width, call.picture);
        call.each_band([&](int64_t, int64_t rows) { pass.band(rows, call.picture, sink); });
    });
    return kOk;
}

template <class First, class Second, class T>
[[gnu::noinline]] Status two_passes(const Call<T>& call, Last last) {
    using E = typename Call<T>::E;
    using V = typename Call<T>::V;
    if (call.status) return call.status;
    if (call.state.extent.rectangle) return two_rects<First, Second>(call, last);
    if (call.state.extent.is_near() && two_near<First, Second>(call, last)) return kOk;
    auto first = call.template pass<First>(0);
    auto second = call.template pass<Second>(1);
    const Layout& layout = call.state.layout;
    uint8_t* results = layout.results(call.state.scratch);
    call.each_strip([&](int64_t strip, int64_t width) {
        // The first pass's strip: of what the second one reads, what lies in the region, and a pixel at least.
        const int64_t from = clamp<int64_t>(second.reads_from(strip), 0, call.elements - call.channels);
        const int64_t end = clamp<int64_t>(second.reads_to(strip + width), from + call.channels, call.elements);
        const Picture<E> made{results, layout.pitch, (end - from) / call.channels, call.channels, 0};
        int64_t next = 0;
        const auto keep = [&](const Block<V>& u, int64_t x, int64_t y) {
            uint8_t* to = results + y % kBand * layout.pitch + x * int64_t(sizeof(E));
            for (int i = 0; i < kBlock; ++i) store(to + i * layout.pitch, u.v[i]);
        };
        // Rows are asked for in order: of those before the band none is needed any more.
        const auto source = [&](int64_t y, int64_t x, int64_t count, E* to) {
            for (; next <= y; next += kBand) first.band(call.band_rows(next), call.picture, keep);
            made(y % kBand, x - from, count, to);
        };
        const auto sink = [&](const Block<V>& u, int64_t x, int64_t y) {
            const Place<T> place = call.place(strip, width, x, y);
            const uint8_t* pixels = call.picture.at(y) + (strip + x) * int64_t(sizeof(T));
            if (last == Last::result)
                place.store(u);
            else
                place.store_difference(u, pixels, call.picture.stride, last == Last::source_less_result);
        };
        first.start(from, end - from, call.picture);
        second.start(strip, width, source);
        call.each_band([&](int64_t, int64_t rows) { second.band(rows, source, sink); });
    });
    return kOk;
}

// Dilation less erosion, side by side.
template <class T>
[[gnu::noinline]] Status both_passes(const Call<T>& call) {
    using V = typename Call<T>::V;
    if (call.status) return call.status;
    if (call.state.extent.rectangle) return both_rects(call);
    if (call.state.extent.is_near() && both_near(call)) return kOk;
    auto least = call.template pass<Erosion>(0);
    auto most = call.template pass<Dilation>(1);
    const int64_t pitch = call.state.layout.pitch;
    uint8_t* results = call.state.layout.results(call.state.scratch);
    call.each_strip([&](int64_t strip, int64_t width) {
        const auto at = [&](int64_t x, int64_t y) { return results + y % kBand * pitch + x * int64_t(sizeof(T)); };
        const auto keep = [&](const Block<V>& u, int64_t x, int64_t y) {
            Place<T>{at(x, y), pitch, kVector, kBlock}.store(u);
        };
        const auto sink = [&](const Block<V>& u, int64_t x, int64_t y) {
            call.place(strip, width, x, y).store_difference(u, at(x, y), pitch, false);
        };
        least.start(strip, width, call.picture);
        most.start(strip, width, call.picture);
        call.each_band([&](int64_t, int64_t rows) {
            least.band(rows, call.picture, keep);
            most.band(rows, call.picture, sink);
        });
    });
    return kOk;
}

template <class Op, class T, Form kForm, class... Args>
Status single(Args... args) {
    return one_pass<Op>(Call<T>(channels(kForm), false, args...));
}
template <class First, class Second, Last kLast, class T, Form kForm, class... Args>
Status composite(Args... args) {
    return two_passes<First, Second>(Call<T>(channels(kForm), true, args...), kLast);
}
template <class T, Form kForm, class... Args>
Status difference(Args... args) {
    return both_passes(Call<T>(channels(kForm), true, args...));
}

}  // namespace

// clang-format off
TARN_BODIES(erode, Morph, u8_f32, c1_c3_c4, single<Erosion, T, kForm>)
TARN_BODIES(dilate, Morph, u8_f32, c1_c3_c4, single<Dilation, T, kForm>)
TARN_BODIES(morph_open, Morph, u8_f32, c1_c3_c4, composite<Erosion, Dilation, Last::result, T, kForm>)
TARN_BODIES(morph_close, Morph, u8_f32, c1_c3_c4, composite<Dilation, Erosion, Last::result, T, kForm>)
TARN_BODIES(tophat, Morph, u8_f32, c1_c3_c4, composite<Erosion, Dilation, Last::source_less_result, T, kForm>)
TARN_BODIES(blackhat, Morph, u8_f32, c1_c3_c4, composite<Dilation, Erosion, Last::result_less_source, T, kForm>)
TARN_BODIES(gradient, Morph, u8_f32, c1_c3_c4, difference<T, kForm>)
// clang-format on

}  // namespace tarn::k::TARN_LEVEL

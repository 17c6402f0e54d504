// Morphology by the plans of states. An operation of two passes runs them strip by strip: the second one takes its rows
// from a band of the first one's results as it comes to them, so that no more than a band of a strip stands between.
#include "kernels/morph/rows.h"

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
          picture{src, src_stride, size.width, channels},
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
    // Where a block's part of the destination is, of which strip it is of.
    Place<T> place(int64_t strip, int64_t width, int64_t x, int64_t y) const {
        return {dst + y * dst_stride + (strip + x) * int64_t(sizeof(T)), dst_stride,
                min(width * int64_t(sizeof(T)), kVector), min(kBlock, height - y)};
    }
};

template <class Op, class T>
[[gnu::noinline]] Status one_pass(const Call<T>& call) {
    using V = typename Call<T>::V;
    if (call.status) return call.status;
    auto pass = call.template pass<Op>(0);
    call.each_strip([&](int64_t strip, int64_t width) {
        const auto sink = [&](const Block<V>& u, int64_t x, int64_t y) { call.place(strip, width, x, y).store(u); };
        pass.start(strip, width, call.picture);
        call.each_band([&](int64_t, int64_t rows) { pass.band(rows, call.picture, sink); });
    });
    return kOk;
}

// What is stored of two passes' results.
enum class Last { result, source_less_result, result_less_source };

template <class First, class Second, class T>
[[gnu::noinline]] Status two_passes(const Call<T>& call, Last last) {
    using E = typename Call<T>::E;
    using V = typename Call<T>::V;
    if (call.status) return call.status;
    auto first = call.template pass<First>(0);
    auto second = call.template pass<Second>(1);
    const Layout& layout = call.state.layout;
    uint8_t* results = layout.results(call.state.scratch);
    call.each_strip([&](int64_t strip, int64_t width) {
        // The first pass's strip: of what the second one reads, what lies in the region, and a pixel at least.
        const int64_t from = clamp<int64_t>(second.reads_from(strip), 0, call.elements - call.channels);
        const int64_t end = clamp<int64_t>(second.reads_to(strip + width), from + call.channels, call.elements);
        const Picture<E> made{results, layout.pitch, (end - from) / call.channels, call.channels};
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

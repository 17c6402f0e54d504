// Morphology by the plans of states.
#include "kernels/morph/pass.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// Rows of the region, in the order that they are compared in, and beyond its edges.
template <class T>
struct Picture {
    const void* src;
    int64_t stride, width, channels;
    template <class E>
    void operator()(int64_t y, int64_t from, int64_t count, E* to) const {
        const T* s = reinterpret_cast<const T*>(static_cast<const uint8_t*>(src) + y * stride);
        replicate_row(s, width, int(channels), from / channels, count / channels, reinterpret_cast<T*>(to));
        if constexpr (!__is_same(T, E))
            for (int64_t i = 0; i < count; i += kLanes<E>) store(to + i, Ordered<T>::of(load<Vec<E>>(to + i)));
    }
};

// A state that serves a call, with its steps looked through.
struct State {
    MorphHeader header;
    const uint8_t* steps;
    uint8_t* scratch;
    Extent extent;

    // Whether it is whole and made for calls of that kind.
    bool read(void* state, int64_t element_bytes, int64_t channels, Size size, bool advanced) {
        memcpy(&header, state, sizeof header);
        const MorphHeader& h = header;
        if (h.magic != kMorphMagic || h.reserved || !is_category(h.category)) return false;
        if ((h.category != kMorphBasic) != advanced || h.channels != channels) return false;
        const bool floats = h.category == kMorphFloats && h.element_bytes == sizeof(float);
        if (h.element_bytes != uint64_t(element_bytes) && !floats) return false;
        if (h.region.width != size.width || h.region.height != (advanced ? size.height : 0)) return false;
        if (h.bytes > INT64_MAX || h.bytes < sizeof h || h.steps > (h.bytes - sizeof h) / sizeof(Step)) return false;
        steps = static_cast<const uint8_t*>(state) + sizeof h;
        if (check_of(h, steps) != h.check) return false;
        for (uint64_t i = 0; i < h.steps; ++i) {
            Step s;
            memcpy(&s, steps + i * sizeof s, sizeof s);
            if (s.rise < 0 || s.second < 0 || s.level < Step::kNoWindow || s.level > kLevels) return false;
            if (i == 0 && (s.rise || !s.joins())) return false;
            extent.add(s);
        }
        const uintptr_t end = reinterpret_cast<uintptr_t>(steps + h.steps * sizeof(Step));
        scratch = reinterpret_cast<uint8_t*>(round_up<uintptr_t>(end, kLine));
        return layout().all == int64_t(h.bytes);
    }
    Layout layout() const {
        return Layout(extent, header.region.width, header.channels, header.element_bytes, passes_of(header.category));
    }
};

// Stores a block's rows that the region has.
template <class T, class V>
struct Store {
    uint8_t* dst;
    int64_t stride, width, height;
    void operator()(const Block<V>& u, int64_t x, int64_t y) const {
        uint8_t* d = dst + y * stride + x * int64_t(sizeof(T));
        const int64_t rows = min(kBlock, height - y), n = width * int64_t(sizeof(T));
        if (n >= kVector && rows == kBlock) {
            for (int i = 0; i < kBlock; ++i) store(d + i * stride, Ordered<T>::of(u.v[i]));
        } else {
            for (int64_t i = 0; i < rows; ++i) store_n(d + i * stride, Ordered<T>::of(u.v[i]), min(n, kVector));
        }
    }
};

template <class Op, class T>
[[gnu::noinline]] Status single_of(int64_t channels, const void* src, int32_t src_stride, void* dst, int32_t dst_stride,
                                   Size size, int32_t border, void* state) {
    if (Status s = check(size, src, dst, state)) return s;
    State st;
    if (border != kMorphReplicate || !st.read(state, sizeof(T), channels, size, false)) return kBadArg;
    const Layout layout = st.layout();
    const Picture<T> picture{src, src_stride, size.width, channels};
    Pass<Op, T> pass(st.scratch, layout, st.extent, st.steps, channels, size);
    const int64_t elements = size.width * channels;
    for (int64_t x = 0; x < elements; x += layout.strip) {
        const int64_t width = min(layout.strip, elements - x);
        const Store<T, typename Pass<Op, T>::V> store{static_cast<uint8_t*>(dst) + x * int64_t(sizeof(T)), dst_stride,
                                                      width, size.height};
        pass.start(x, width, picture);
        for (int64_t y = 0; y < size.height; y += kBand)
            pass.band(round_up(min<int64_t>(kBand, size.height - y), kBlock), picture, store);
    }
    return kOk;
}

template <class Op, class T, Form kForm, class... Args>
Status single(Args... args) {
    return single_of<Op, T>(channels(kForm), args...);
}

}  // namespace

TARN_BODIES(erode, Morph, u8_f32, c1_c3_c4, single<Erosion, T, kForm>)
TARN_BODIES(dilate, Morph, u8_f32, c1_c3_c4, single<Dilation, T, kForm>)

}  // namespace tarn::k::TARN_LEVEL

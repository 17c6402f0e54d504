// For the resize sources only: a source row resampled horizontally, as floats, for a strip of outputs.
//
// The taps of neighbouring outputs are fetched by permutes from a row of floats where the processor has those of two
// registers. Else each output of one channel loads its own, and pixels of more are made one by one, a channel to a
// lane.
#pragma once

#include "kernels/plane/border.h"
#include "kernels/plane/strips.h"
#include "kernels/plane/taps.h"
#include "kernels/resize/apart.h"
#include "kernels/resize/job.h"
#include "kernels/resize/sums.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// ---- Tables -------------------------------------------------------------------------------------------------------

// Elements of a strip at most: so many that nearly every image is one strip, since the rows of several come from far
// away, a page each; of floats so that what they read and write leaves tables and rows in the second-level cache.
// Multiples of 16 and 3.
template <int kTaps, class S>
constexpr int64_t kStripElements = sizeof(S) < 4 ? 12288
                                   : kTaps == 2  ? 4608
                                   : kTaps == 4  ? 3840
                                                 : 4992;

enum class Fetch { by_pixel, apart, one_window, two_windows };

// What a strip's rows are made with. Elements: outputs times channels, then up to a whole vector more of no meaning,
// for which whatever stands in the scratch is read.
struct StripTables {
    int64_t pixels, elements;
    int64_t pitch;   // elements of a plane or row, and how far the next one is
    float* weight;   // plane after plane: the taps' weights per element
    int64_t* first;  // source pixel of tap 0 per pixel, from the region's left
    float* row;      // the row of floats; or bytes by pixel, a plane per tap
    Fetch fetch;
    int64_t row_from;              // permutes: first source pixel of the row of floats, from the region's left
    int64_t row_pixels;            // and how many it has
    int32_t* base;                 // per vector of outputs: where its window begins in the row of floats
    int32_t* index;                // per output: tap 0 in the window; apart, by pixel: its first byte in the source row
    int32_t reach;                 // the largest index
    int more;                      // permutes: taps beyond the first that the windows hold
    int64_t whole_from, whole_to;  // apart: the outputs, whole vectors, that may load from the source row
    bool indexed;                  // by pixel: there is an index

    // For strips of so many elements. Rows as far apart as pages are would share their places in the first-level cache.
    void set_pitch(int64_t most) {
        pitch = (most + 15) / 16 * 16;
        if (pitch % 256 == 0) pitch += 16;
    }
    // Room for a row of floats: twice a strip, the taps, and two windows more.
    template <int kTaps, class Part>
    void carve(Part part) {
        part(weight, kTaps * pitch), part(row, 2 * pitch + 256), part(first, pitch);
        part(index, pitch), part(base, pitch / kLanes<float> + 1);
    }
};

// Each weight of a block as many times as there are channels.
inline void repeat_channels(const float* from, int channels, float* to) {
    if (channels == 1) {
        memcpy(to, from, kTapBlock * sizeof *to);
    } else {
        for (int i = 0; i < kTapBlock; ++i, to += channels) {
            for (int c = 0; c < 3; ++c) to[c] = from[i];
            if (channels == 4) to[3] = from[i];
        }
    }
}

// Prepares the permutes of a strip; leaves it when an output lies beyond two windows of its vector.
template <int kTaps>
void find_windows(StripTables& t, int channels) {
    constexpr int kWindow = kLanes<float>;
    t.row_from = t.first[0];
    int64_t e = 0;
    for (int64_t x = 0; x < t.pixels; ++x) {
        const int32_t at = int32_t(t.first[x] - t.row_from) * channels;
        t.index[e++] = at;
        for (int c = 1; c < channels; ++c) t.index[e++] = at + c;
    }
    for (; e < t.elements; ++e) t.index[e] = t.index[e - 1];  // outputs of no meaning repeat the last one
    t.reach = 0;
    for (int64_t g = 0; g * kWindow < t.elements; ++g) {
        int32_t *at = t.index + g * kWindow, least = at[0], most = at[0];
        for (int i = 1; i < kWindow; ++i) least = min(least, at[i]), most = max(most, at[i]);
        for (int i = 0; i < kWindow; ++i) at[i] -= least;
        t.base[g] = least;
        t.reach = max(t.reach, most - least);
    }
    // Two windows may hold all taps where one does not.
    const int all = t.reach + (kTaps - 1) * channels;
    const bool worth_two = all >= kWindow && all < 2 * kWindow;
    if (t.reach >= 2 * kWindow) return;
    t.fetch = t.reach < kWindow && !worth_two ? Fetch::one_window : Fetch::two_windows;
    t.more = ((t.fetch == Fetch::one_window ? 1 : 2) * kWindow - 1 - t.reach) / channels;
}

// Prepares loads of every output's own taps of T, for a source row of so many elements.
template <int kTaps, class T>
void find_apart(StripTables& t, int64_t width, int64_t left) {
    constexpr int64_t kStep = kLanes<float>, kLoaded = kTapWords<kTaps, T> * 4 / int(sizeof(T));
    const int64_t last = t.pixels - 1;
    t.fetch = Fetch::apart;
    for (int64_t i = 0; i < t.elements; ++i) t.index[i] = int32_t((left + t.first[min(i, last)]) * int64_t(sizeof(T)));
    t.whole_from = 0, t.whole_to = t.elements;
    while (t.whole_from < t.elements && left + t.first[t.whole_from] < 0) t.whole_from += kStep;
    while (t.whole_to > 0 && left + t.first[min(t.whole_to - 1, last)] + kLoaded > width) t.whole_to -= kStep;
    if (width * int64_t(sizeof(T)) > INT32_MAX) t.whole_to = 0;  // further than an index reaches
}

// Prepares loads of every pixel's taps, for a source row of so many bytes.
void find_pixels(StripTables& t, int64_t row_bytes, int64_t left, int64_t pixel_bytes) {
    t.indexed = row_bytes <= INT32_MAX;
    if (!t.indexed) return;
    for (int64_t x = 0; x < t.pixels; ++x) t.index[x] = int32_t((left + t.first[x]) * pixel_bytes);
}

// Sets a strip of outputs of S up.
template <class Filter, bool kExact, class S>
void prepare(StripTables& t, const Job& j, const Tile& tile, int channels) {
    constexpr int kTaps = Filter::kTaps;
    const int64_t width = j.dst_size.width, pixels = tile.width;
    Walk walk(j.region.width, width, width, tile.x);
    t.pixels = pixels;
    t.elements = (pixels * channels + kLanes<float> - 1) / kLanes<float> * kLanes<float>;
    for (int64_t done = 0; done * channels < t.elements; done += kTapBlock) {
        TapBlock<kTaps> taps;
        find_taps<Filter, kExact>(walk, taps);
        memcpy(t.first + done, taps.first, sizeof taps.first);
        for (int k = 0; k < kTaps; ++k)
            repeat_channels(taps.weight[k], channels, t.weight + k * t.pitch + done * channels);
    }
    t.fetch = Fetch::by_pixel;
    if (kHasPermute && j.region.width <= kPermuted * width) find_windows<kTaps>(t, channels);
    const int64_t pixel_bytes = channels * int64_t(sizeof(S));
    if (t.fetch == Fetch::by_pixel && channels == 1)
        find_apart<kTaps, S>(t, j.src_size.width, j.region.x);
    else if (t.fetch == Fetch::by_pixel && kTaps * pixel_bytes <= 8)
        find_pixels(t, j.src_size.width * pixel_bytes, j.region.x, pixel_bytes);
    t.row_pixels = t.first[pixels - 1] - t.first[0] + kTaps;
}

// ---- Rows ---------------------------------------------------------------------------------------------------------

// Two taps of whole vectors of pixels, as many as there are in [begin, end): 8 bytes of each. Returns the first pixel
// that is left.
template <int kChannels>
int64_t gather_pairs(const uint8_t* s, const uint8_t* next, const StripTables& t, int64_t begin, int64_t end) {
    constexpr int kPixels = kVector / 8;
    // Of a group, which has two pixels: their first taps, then their second ones.
    uint8_t order[kVector];
    for (int i = 0; i < kVector; ++i) {
        const int tap = i % 16 / 8, byte = i % 8;
        order[i] = byte < 2 * kChannels ? uint8_t(byte / kChannels * 8 + tap * kChannels + byte % kChannels) : 0x80;
    }
    const Bytes pick = load<Bytes>(order);
    const int32_t* at = t.index;
    const int64_t pitch = t.pitch;
    uint8_t* planes = reinterpret_cast<uint8_t*>(t.row);
    for (; begin + kPixels <= end; begin += kPixels) {
        __builtin_prefetch(next + at[begin]);
        __builtin_prefetch(next + at[begin + kPixels / 2]);
        const U64 halves = (U64)lookup(load_halves(s, at + begin, 2), pick);
        for (int i = 0; i < kPixels; ++i) {
            const uint64_t half = halves[i];
            memcpy(planes + i % 2 * pitch + (begin + i / 2 * 2) * kChannels, &half, 8);
        }
    }
    return begin;
}

// Two taps of bytes of all pixels in [begin, end) but the last few, whole vectors of them: gathered as they are, a
// plane per tap, and weighed. Returns the first pixel that is left; of the others some outputs have no meaning.
template <bool kExact, int kChannels>
int64_t weigh_pairs(const uint8_t* s, const uint8_t* next, const StripTables& t, int64_t begin, int64_t end,
                    float* out) {
    const int64_t left = gather_pairs<kChannels>(s, next, t, begin, end);
    const uint8_t* planes = reinterpret_cast<const uint8_t*>(t.row);
    const float* weight = t.weight;
    const int64_t pitch = t.pitch;
    for (int64_t i = 0, n = t.elements; i < n; i += kLanes<float>)
        store(out + i, sum_of<2, kExact>([&](int k) { return load_f32(planes + k * pitch + i); },
                                         [&](int k) { return load<F32>(weight + k * pitch + i); }));
    return left;
}

// Pixels of several channels, each by itself. Within the source a pixel is four elements, of which one too many is
// overwritten by the next. Meanwhile the same pixels of row `next` are fetched.
template <int kTaps, bool kExact, int kChannels, class T>
[[gnu::noinline]] void weigh_pixels(const StripTables& t, const T* s, const T* next, int64_t width, int64_t left,
                                    float* out) {
    const int64_t *first = t.first, n = t.pixels, pitch = t.pitch;
    const float* weights = t.weight;
    int64_t begin = 0, end = n - 1;
    while (begin < n && left + first[begin] < 0) ++begin;
    while (end > begin && left + first[end - 1] + kTaps >= width) --end;
    int64_t x = begin;
    if constexpr (kHasLookup && kTaps == 2 && sizeof(T) == 1)
        if (t.indexed) x = weigh_pairs<kExact, kChannels>(s, next, t, begin, end, out);

    // Of three channels the fourth weight is the next pixel's, or what stands behind the weights.
    const auto weigh = [=](int64_t pixel, auto tap) {
        Four sum{};
#pragma GCC unroll 6
        for (int i = 0; i < kTaps; ++i) {
            const int k = outer_first(i, kTaps);
            const Four product = tap(k) * load<Four>(weights + k * pitch + pixel * kChannels);
            sum = i ? product + sum : product;
        }
        return sum;
    };
    // Behind the source's last pixel of three channels nothing may be read.
    const T* last_pixel = s + (width - 1) * kChannels;
    const auto* e = reinterpret_cast<const Loose<T>*>(last_pixel);
    const Four last = kChannels == 4 ? load_four(last_pixel) : Four{float(e[0]), float(e[1]), float(e[2]), 0};
    const auto at_edge = [&](int64_t pixel) {
        const Four sum = weigh(pixel, [&](int k) {
            const int64_t at = clamp<int64_t>(left + first[pixel] + k, 0, width - 1);
            return at < width - 1 ? load_four(s + at * kChannels) : last;
        });
        memcpy(out + pixel * kChannels, &sum, kChannels * sizeof(float));
    };
    for (int64_t i = 0; i < begin; ++i) at_edge(i);
    for (; x < end; ++x) {
        const int64_t at = (left + first[x]) * kChannels;
        __builtin_prefetch(next + at);
        store(out + x * kChannels, weigh(x, [=](int k) { return load_four(s + at + k * kChannels); }));
    }
    for (x = max(begin, end); x < n; ++x) at_edge(x);
}

// Vectors of outputs that reach beyond the source row take their taps from a copy of them. Meanwhile row `next` is
// fetched.
template <int kTaps, bool kExact, class T>
void weigh_apart(const StripTables& t, const T* s, const T* next, int64_t width, int64_t left, float* out) {
    constexpr int kStep = kLanes<float>, kWords = kTapWords<kTaps, T>, kCopied = kWords * 4 / int(sizeof(T));
    const StripTables u = t;  // in registers
    const auto weigh = [&](const void* base, const int32_t* at, int64_t i) {
        Bytes w[kWords];
        load_words(static_cast<const uint8_t*>(base), at, w);
        store(out + i, sum_of<kTaps, kExact>([&](int k) { return tap_of<T>(w, k); },
                                             [&](int k) { return load<F32>(u.weight + k * u.pitch + i); }));
    };
    const auto copied = [&](int64_t from, int64_t to) {
        T taps[kStep][kCopied] = {};
        int32_t at[kStep];
        for (int64_t i = from; i < to; i += kStep) {
            for (int64_t e = 0; e < kStep; ++e) {
                const int64_t first = left + u.first[min(i + e, u.pixels - 1)];
                at[e] = int32_t(e * int64_t(sizeof taps[0]));
                for (int k = 0; k < kTaps; ++k)
                    memcpy(&taps[e][k], s + clamp<int64_t>(first + k, 0, width - 1), sizeof(T));
            }
            weigh(taps, at, i);
        }
    };
    const int64_t from = u.whole_from, to = max(u.whole_to, from);
    copied(0, from);
    const uint8_t* ahead = reinterpret_cast<const uint8_t*>(next);
    for (int64_t i = from; i < to; i += kStep) {
        if (sizeof(T) > 1)  // of bytes several outputs share a line
            for (int64_t e = 0; e < kStep; e += kStep / 2) __builtin_prefetch(ahead + u.index[i + e]);
        weigh(s, u.index + i, i);
    }
    copied(to, u.elements);
}

// kWindows: how many vectors of the row of floats hold the taps of a vector of outputs; kShare: for how many taps in
// turn one load of them serves. next: the source row that will be made a row of floats after this one; it is fetched.
template <int kTaps, bool kExact, int kWindows, int kShare, class T>
void weigh_windows(const StripTables& t, int channels, const T* next, float* out) {
    constexpr int kWindow = kLanes<float>;
    const int64_t elements = t.elements, pitch = t.pitch;
    const int32_t *index = t.index, *base = t.base;
    const float *row = t.row, *weights = t.weight;
    for (int64_t g = 0; g * kWindow < elements; ++g) {
        const S32 first = load<S32>(index + g * kWindow);
        const float* from = row + base[g];
        __builtin_prefetch(next + base[g]);
        const float* weight = weights + g * kWindow;
        F32 tap[kTaps], low{}, high{};
#pragma GCC unroll 6
        for (int k = 0; k < kTaps; ++k) {
            if (k % kShare == 0) {
                low = load<F32>(from + k * channels);
                if (kWindows == 2) high = load<F32>(from + k * channels + kWindow);
            }
            const S32 at = k % kShare ? first + splat(k % kShare * channels) : first;
            tap[k] = kWindows == 2 ? permute(low, high, at) : permute(low, at);
        }
        const F32 sum =
            sum_of<kTaps, kExact>([&](int k) { return tap[k]; }, [&](int k) { return load<F32>(weight + k * pitch); });
        store(out + g * kWindow, sum);
    }
}

// As many taps from one load as the windows hold.
template <int kTaps, bool kExact, int kWindows, class T>
void weigh_windows(const StripTables& t, int channels, const T* next, float* out) {
    if (t.more >= kTaps - 1)
        weigh_windows<kTaps, kExact, kWindows, kTaps>(t, channels, next, out);
    else if (kTaps > 2 && t.more >= kTaps / 2 - 1)
        weigh_windows<kTaps, kExact, kWindows, kTaps / 2>(t, channels, next, out);
    else if (kTaps == 6 && t.more >= 1)
        weigh_windows<kTaps, kExact, kWindows, 2>(t, channels, next, out);
    else
        weigh_windows<kTaps, kExact, kWindows, 1>(t, channels, next, out);
}

// One source row, resampled. next: the one that will be after it.
template <int kTaps, bool kExact, class T>
void resample_row(const StripTables& t, const T* s, const T* next, int64_t width, int64_t left, int channels,
                  float* out) {
    if (t.fetch == Fetch::by_pixel) {
        if (channels == 3)
            weigh_pixels<kTaps, kExact, 3>(t, s, next, width, left, out);
        else
            weigh_pixels<kTaps, kExact, 4>(t, s, next, width, left, out);
    } else if (t.fetch == Fetch::apart) {
        weigh_apart<kTaps, kExact>(t, s, next, width, left, out);
    } else if constexpr (kHasPermute) {
        replicate_row(s, width, channels, left + t.row_from, t.row_pixels, t.row);
        next += max<int64_t>(left + t.row_from, 0) * channels;
        if (t.fetch == Fetch::one_window)
            weigh_windows<kTaps, kExact, 1>(t, channels, next, out);
        else
            weigh_windows<kTaps, kExact, 2>(t, channels, next, out);
    }
}

}  // namespace
}  // namespace tarn::k::TARN_LEVEL

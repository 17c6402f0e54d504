// "tarn::copy-transform" through the module: any shape to any other against the single operations on planes, one after
// the other, and plain loops where there is none; refusals; memory.
#include <sys/mman.h>

#include <algorithm>
#include <cfenv>
#include <memory>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

int64_t transform(const LumoARRAY* dst, const LumoARRAY* src, const TarnRANGE* range = nullptr,
                  int32_t mode = TARN_LINEAR, QuelERR* err = nullptr, KaSMEMSTG* storage = nullptr) {
    return call<TarnCopyTransform>("tarn::copy-transform", err, storage, dst, src, range, mode);
}

constexpr LumoELEMTYPE kU16 = LUMO_CODE_U16, kS8 = LUMO_CODE_S8;

// f(T{}) with the C++ type of an element code.
template <class F>
auto with_code(LumoELEMTYPE type, F f) {
    switch (type & 255) {
        case LUMO_CODE_U8:
            return f(uint8_t());
        case LUMO_CODE_S8:
            return f(int8_t());
        case LUMO_CODE_U16:
            return f(uint16_t());
        case LUMO_CODE_S16:
            return f(int16_t());
        case LUMO_CODE_U32:
            return f(uint32_t());
        case LUMO_CODE_S32:
            return f(int32_t());
        default:
            return f(float());
    }
}

struct Shape {
    LumoELEMTYPE type;
    uint32_t cls;
    std::string layout;
    int n, h, w, c;
    int of(char dim) const { return dim == 'N' ? n : dim == 'H' ? h : dim == 'W' ? w : c; }
};

// An array in memory with gaps after rows, planes and pictures, rows upwards or not; gaps and surroundings are watched.
struct Batch : LumoARRAY {
    Batch(const Shape& s, int gap, bool upwards = false) : LumoARRAY{}, shape(s) {
        int64_t strides[4] = {}, pitch = int64_t(LumoELEMTYPEsizeof(s.type)), upward = 0;
        int32_t sizes[4];
        const int dims = int(s.layout.size());
        for (int i = dims - 1; i >= 0; --i) {
            const char dim = s.layout[size_t(i)];
            const bool tight = dim == 'W' || (dim == 'C' && i == dims - 1);
            sizes[i] = s.of(dim);
            strides[i] = pitch += tight ? 0 : gap;
            pitch *= sizes[i];
            if (dim == 'H' && upwards) upward = (sizes[i] - 1) * strides[i], strides[i] = -strides[i];
        }
        LumoARRLO order = {};
        s.layout.copy(order.dims, sizeof order.dims);
        EXPECT_TRUE(::LumoARRPARMS(this, dims, sizes, strides, &order, s.type, s.cls));
        memory.assign(size_t(pitch) + 128, 0xa5);
        data = memory.data() + 64 + upward;
    }
    Batch(const Batch& b) : LumoARRAY(b), shape(b.shape), memory(b.memory) {
        data = memory.data() + (static_cast<uint8_t*>(b.data) - b.memory.data());
    }
    uint8_t* at(int n, int c, int y, int x) const {
        return static_cast<uint8_t*>(data) + n * stride[LUMO_DIM_N] + c * stride[LUMO_DIM_C] + y * stride[LUMO_DIM_H] +
               x * stride[LUMO_DIM_W];
    }
    double get(int n, int c, int y, int x) const {
        return with_code(elemtype, [&](auto t) { return memcpy(&t, at(n, c, y, x), sizeof t), double(t); });
    }
    void put(int n, int c, int y, int x, double value) {
        with_code(elemtype, [&](auto t) { t = decltype(t)(value), memcpy(at(n, c, y, x), &t, sizeof t); });
    }
    template <class F>
    void each(F f) const {
        for (int n = 0; n < shape.n; ++n)
            for (int c = 0; c < shape.c; ++c)
                for (int y = 0; y < shape.h; ++y)
                    for (int x = 0; x < shape.w; ++x) f(n, c, y, x);
    }
    Batch filled(std::mt19937& rng) && {
        each([&](int n, int c, int y, int x) {
            const double value =
                (elemtype & 255) == LUMO_CODE_F32 ? float(rng() % 2000001) / 1000 - 1000 : double(int32_t(rng()));
            put(n, c, y, x, with_code(elemtype, [&](auto t) {
                    return std::is_same_v<decltype(t), float> ? value : double(decltype(t)(int64_t(value)));
                }));
        });
        return *this;
    }
    bool intact() const {
        std::vector<uint8_t> around = memory;
        each([&](int n, int c, int y, int x) {
            memset(around.data() + (at(n, c, y, x) - memory.data()), 0xa5, LumoELEMTYPEsizeof(elemtype));
        });
        return std::all_of(around.begin(), around.end(), [](uint8_t byte) { return byte == 0xa5; });
    }
    // Whether channels are apart: they come before rows or columns, or are no neighbours in the one pixel there is.
    bool planar() const {
        if (shape.c == 1) return false;
        if (shape.w * shape.h == 1) return stride[LUMO_DIM_C] != int64_t(LumoELEMTYPEsizeof(elemtype));
        const size_t at = shape.layout.find('C');
        return (shape.h > 1 && shape.layout.find('H') > at) || (shape.w > 1 && shape.layout.find('W') > at);
    }
    Shape shape;
    std::vector<uint8_t> memory;
};

// ---- The chain ------------------------------------------------------------------------------------------------------

// One picture, channel by channel.
struct Picture {
    LumoELEMTYPE type;
    uint32_t cls;
    int w, h, c;
    std::vector<double> values;
    double& at(int ch, int y, int x) { return values[(size_t(ch) * size_t(h) + size_t(y)) * size_t(w) + size_t(x)]; }
    // Made anew as f(channel, y, x).
    template <class F>
    void become(int width, int height, int channels, F f) {
        Picture made = {type, cls, width, height, channels, {}};
        made.values.resize(size_t(width) * size_t(height) * size_t(channels));
        for (int ch = 0; ch < channels; ++ch)
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) made.at(ch, y, x) = f(ch, y, x);
        *this = made;
    }
};

bool is_one_of(LumoELEMTYPE type, std::initializer_list<LumoELEMTYPE> types) {
    return std::find(types.begin(), types.end(), type) != types.end();
}
std::string status(int n) { return "got IPP error code " + std::to_string(n); }

// Every channel through an operation on arrays of one channel. Two channels are pairs of pixels: four elements to each.
template <class Op>
void by_planes(Picture& p, LumoELEMTYPE type, int w, int h, bool pairs, Op op) {
    const int lanes = pairs && p.c == 2 ? 4 : p.c, step = pairs && p.c == 2 ? 2 : 1;
    std::vector<std::unique_ptr<Array>> results;
    for (int lane = 0; lane < lanes; ++lane) {
        Array from(p.type | LUMO_CHANNELS(1), p.w / step, p.h);
        for (int y = 0; y < p.h; ++y)
            for (int x = 0; x < p.w / step; ++x) put(&from, x, y, 0, p.at(lane % p.c, y, x * step + lane / p.c));
        results.push_back(std::make_unique<Array>(type | LUMO_CHANNELS(1), w / step, h));
        op(&*results.back(), &from);
    }
    p.type = type;
    p.become(w, h, p.c, [&](int c, int y, int x) {
        return x / step < w / step ? get(&*results[size_t(c + x % step * p.c)], x / step, y) : 0;
    });
}

double grey_of(LumoELEMTYPE type, double r, double g, double b) {
    if (type == LUMO_F32) return float(float(float(r) * 0.299f + float(g) * 0.587f) + float(b) * 0.114f);
    return std::nearbyint((299 * r + 587 * g + 114 * b) / 1000);  // exact but for the quotient, which has no near ties
}

std::string change_colours(Picture& p, uint32_t cls, int channels) {
    constexpr int kChannels[] = {0, 1, 3, 3, 4};
    if (!p.cls || !cls) return "source/destination colorspace is unknown";
    if (kChannels[p.cls] != p.c || kChannels[cls] != channels) return "colorspace/nchannels mismatch";
    const bool four = p.cls == LUMO_CLASS_BGRA || cls == LUMO_CLASS_BGRA;
    const bool grey = p.cls == LUMO_CLASS_GREY || cls == LUMO_CLASS_GREY;
    if (four   ? p.type != LUMO_U8
        : grey ? !is_one_of(p.type, {LUMO_U8, kU16, LUMO_S16, LUMO_F32}) && (p.type != LUMO_S32 || p.c != 1)
               : p.type == kS8)
        return status(-9999);
    Picture from = p;
    const bool rgb = p.cls == LUMO_CLASS_RGB;
    p.cls = cls;
    p.become(p.w, p.h, channels, [&](int c, int y, int x) {
        if (c == 3) return 255.0;
        if (from.c == 1) return from.at(0, y, x);
        const double r = from.at(rgb ? 0 : 2, y, x), g = from.at(1, y, x), b = from.at(rgb ? 2 : 0, y, x);
        if (channels == 1) return grey_of(from.type, r, g, b);
        return c == 1 ? g : (c == 0) == (cls == LUMO_CLASS_RGB) ? r : b;
    });
    return "";
}

// What becomes of a picture, or the text of the error.
std::string chain(Picture& p, bool planar, const Batch& dst, const TarnRANGE* range, int mode) {
    const auto planes = [&] {
        const bool served = (p.c == 3 || p.c == 4) && (p.type & 255) <= LUMO_CODE_F32;
        return served ? "" : status(-9999);
    };
    const bool convert = p.type != dst.elemtype, resize = p.w != dst.shape.w || p.h != dst.shape.h;
    const bool colour = p.c != dst.shape.c || (p.cls && dst.cls && p.cls != dst.cls);
    const bool change = convert || resize || colour || range;
    const auto bad = [&](std::initializer_list<LumoELEMTYPE> types) { return p.c > 4 || !is_one_of(p.type, types); };
    const auto no_pair = [&] { return p.c == 2 && (p.w < 2 || dst.shape.w < 2); };
    if (change && planar)
        if (const auto text = planes(); !text.empty()) return text;
    if (convert) {
        const auto types = {LUMO_U8, LUMO_S16, LUMO_S32, LUMO_F32};
        if (bad(types) || !is_one_of(dst.elemtype, types)) return status(-5);
        if (p.c == 2 && p.w < 2) return status(-2);
        by_planes(p, dst.elemtype, p.w, p.h, false, [](LumoMAT* to, const LumoMAT* from) {
            EXPECT_EQ(run<TarnConvertScale>("convscale", to, from, nullptr, nullptr), 0);
        });
    }
    if (resize) {
        if (bad({LUMO_U8, LUMO_S16, LUMO_F32}) || mode < 2 || mode > 5) return status(-5);
        if (no_pair()) return status(-2);
        by_planes(p, p.type, dst.shape.w, dst.shape.h, true, [&](LumoMAT* to, const LumoMAT* from) {
            EXPECT_EQ(run<TarnScaleResize>("scaleresize", to, from, nullptr, nullptr, uint32_t(mode == 2 ? 5 : mode)),
                      0);
        });
    }
    if (colour)
        if (const auto text = change_colours(p, dst.cls, dst.shape.c); !text.empty()) return text;
    if (range) {
        if (bad({LUMO_U8, LUMO_S16, LUMO_F32})) return status(-5);
        if (no_pair()) return status(-2);
        const int used = p.c == 2 ? p.w / 2 * 2 : p.w;
        p.become(used, p.h, p.c, [from = p](int c, int y, int x) mutable { return from.at(c, y, x); });
        by_planes(p, p.type, used, p.h, false, [&](LumoMAT* to, const LumoMAT* from) {
            for (int y = 0; y < to->height; ++y)
                for (int x = 0; x < to->width; ++x) put(to, x, y, 0, get(from, x, y));
            EXPECT_EQ(run<TarnCvtvrangeN>("cvtvrange_n", uint64_t(1), &to, &range->lo), 1);
        });
    }
    if (dst.planar() != (planar && !change))
        if (const auto text = planes(); !text.empty()) return text;
    if (change || dst.planar() != planar) return "";
    // A copy: planes of any number, each a picture of one channel.
    if (!is_one_of(p.type, {LUMO_U8, LUMO_S16, LUMO_S32, LUMO_U32, LUMO_F32}) || (!planar && p.c > 4))
        return status(-5);
    return !planar && no_pair() ? status(-2) : "";
}

// Expects of a call what the chain gives, picture by picture. Returns whether it was no error.
bool expect_chain(const Batch& dst, const Batch& src, const TarnRANGE* range, int mode) {
    Batch got = dst;
    QuelERR err = {};
    const KaTESTLIVE before = KaTESTlive();
    const int64_t result = transform(&got, &src, range, mode, &err);
    EXPECT_EQ(KaTESTlive().storages, before.storages);
    EXPECT_TRUE(got.intact());
    const Shape &s = src.shape, &d = dst.shape;
    for (int n = 0; n < s.n; ++n) {
        Picture p = {s.type, s.cls, s.w, s.h, s.c, {}};
        p.become(s.w, s.h, s.c, [&](int c, int y, int x) { return src.get(n, c, y, x); });
        const std::string text = chain(p, src.planar(), dst, range, mode);
        if (!text.empty()) {
            const bool option = text.find("color") != std::string::npos;
            expect_error(result, err, option ? QUEL_E_OPTION : QUEL_E_TYPE,
                         option ? QUEL_C_ARGUMENT : QUEL_C_UNSUPPORTED, text);
            EXPECT_EQ(text, err.last.text);
            return false;
        }
        EXPECT_EQ(result, 0) << err.last.text;
        // An odd last column of two channels stays, but in planes.
        const int width = d.c == 2 && !dst.planar() ? d.w / 2 * 2 : d.w;
        for (int c = 0; c < d.c; ++c)
            for (int y = 0; y < d.h; ++y)
                for (int x = 0; x < d.w; ++x) {
                    const double want = x < width ? p.at(c, y, x) : dst.get(n, c, y, x);
                    if (got.get(n, c, y, x) == want) continue;
                    ADD_FAILURE() << got.get(n, c, y, x) << " is not " << want << " at picture " << n << ", " << x
                                  << ", " << y << ", channel " << c;
                    return false;
                }
    }
    return true;
}

// Random layouts, of which dimensions of size 1 may be missing.
std::string random_layout(std::mt19937& rng, const Shape& s, bool planes) {
    std::string layout = planes ? "NCHW" : "NHWC";
    std::erase_if(layout, [&](char dim) { return s.of(dim) == 1 && rng() % 2; });
    return layout;
}

std::ostream& operator<<(std::ostream& out, const Shape& s) {
    return out << LumoELEMTYPEshow(s.type) << " " << s.layout << " " << s.n << "x" << s.h << "x" << s.w << "x" << s.c
               << " of class " << s.cls;
}

Batch plain(LumoELEMTYPE type, uint32_t cls, const char* layout, int n, int h, int w, int c) {
    std::mt19937 rng(unsigned(w * 7 + h));
    return Batch({type, cls, layout, n, h, w, c}, 0).filled(rng);
}

}  // namespace

TEST(transform, equals_the_chain_of_single_operations_and_their_refusals) {
    constexpr int kCalls = 6000;
    constexpr int kChannels[] = {1, 3, 3, 4};
    std::mt19937 rng(1);
    const auto often = [&](unsigned percent) { return rng() % 100 < percent; };
    const auto type = [&] {
        constexpr LumoELEMTYPE kUsual[] = {LUMO_U8, LUMO_S16, LUMO_F32},
                               kAll[] = {LUMO_U8, LUMO_S16, LUMO_F32, LUMO_S32, LUMO_U32, kU16, kS8};
        return often(75) ? kUsual[rng() % 3] : kAll[rng() % 7];
    };
    const auto colours = [&](Shape& s) {
        s.cls = 1 + rng() % 4, s.c = kChannels[s.cls - 1];
        if (often(10)) s.cls = rng() % 5;
        if (often(15)) s.c = 1 + int(rng() % 5), s.cls = 0;
    };
    int fine = 0;
    for (int i = 0; i < kCalls; ++i) {
        const auto length = [&] { return often(15) ? 1 : int(1 + rng() % (often(10) ? 70 : 12)); };
        Shape s = {type(), 0, "", int(1 + rng() % 3), length(), length(), 0};
        colours(s);
        Shape d = s;
        if (often(40)) d.type = type();
        if (often(40)) d.w = length(), d.h = length();
        if (often(1)) {  // of several bands
            const bool same = d.h == s.h && d.w == s.w;
            s.w = 50 + int(rng() % 80), s.h = 150 + int(rng() % 500);
            d.w = same ? s.w : 90 + int(rng() % 80), d.h = same ? s.h : 150 + int(rng() % 400);
        }
        if (often(50)) colours(d);
        s.layout = random_layout(rng, s, often(40)), d.layout = random_layout(rng, d, often(40));
        const TarnRANGE given = {int32_t(rng() % 2), often(80) ? 10.f : 300.f, 200.5f};
        const TarnRANGE* range = often(35) ? &given : nullptr;
        const int mode = often(95) ? int(2 + rng() % 4) : int(rng() % 8);
        SCOPED_TRACE(testing::Message() << "call " << i << ": " << s << " to " << d << (range ? ", range" : "")
                                        << ", mode " << mode);
        const Batch src = Batch(s, int(rng() % 3) * 5, often(20)).filled(rng);
        const Batch dst = Batch(d, int(rng() % 3) * 3, often(20)).filled(rng);
        fine += expect_chain(dst, src, range, mode);
        if (HasFailure()) return;
    }
    EXPECT_GT(fine, kCalls / 3);
}

TEST(transform, refuses_arrays_that_do_not_go_together_or_have_gaps) {
    const Batch frame = plain(LUMO_U8, 2, "NHWC", 2, 4, 5, 3), planes = plain(LUMO_F32, 2, "NCHW", 2, 4, 5, 3);
    const auto with = [](Batch b, auto change) { return change(b), b; };
    const auto stride = [&](const Batch& b, int dim, int64_t bytes) {
        return with(b, [=](Batch& c) { c.stride[dim] = bytes; });
    };
    const auto layout = [&](const Batch& b, const char* dims) {
        return with(b, [=](Batch& c) { c.layout = {}, strcpy(c.layout.dims, dims); });
    };
    struct Row {
        Batch dst, src;
        const char* text;
        uint32_t code = QUEL_E_TYPE, cls = QUEL_C_UNSUPPORTED;
    };
    for (const Row& r : {
             Row{plain(LUMO_U8, 2, "NHWC", 3, 4, 5, 3), frame, "2/3: source/destination batch size mismatch",
                 QUEL_E_OPTION, QUEL_C_ARGUMENT},
             Row{layout(frame, "NWHC"), layout(frame, "CWHN"), "NWHC: destination layout does not support"},
             Row{frame, layout(frame, "CWHN"), "CWHN: source layout does not support"},
             Row{frame, layout(frame, "HWXC"), "?: source layout does not support"},
             Row{stride(frame, LUMO_DIM_C, 2), stride(frame, LUMO_DIM_C, 5),
                 "2 stride in C-dim does not support (should be 1)"},
             Row{frame, stride(frame, LUMO_DIM_C, -1), "-1 stride in C-dim does not support (should be 1)"},
             Row{stride(frame, LUMO_DIM_W, 4), frame, "4 stride in W-dim does not support (should be 3)"},
             Row{frame, stride(frame, LUMO_DIM_W, (INT64_C(1) << 32) + 3),
                 "4294967299 stride in W-dim does not support (should be 3)"},
             Row{planes, stride(planes, LUMO_DIM_W, 12), "12 stride in W-dim does not support (should be 4)"},
         }) {
        SCOPED_TRACE(r.text);
        const std::vector<uint8_t> before = r.dst.memory;
        QuelERR err = {};
        expect_error(transform(&r.dst, &r.src, nullptr, TARN_LINEAR, &err), err, r.code, r.cls, r.text);
        EXPECT_STREQ(err.last.text, r.text);
        EXPECT_EQ(r.dst.memory, before);
    }
    // Of one column no stride is looked at.
    const Batch column = stride(plain(LUMO_U8, 1, "HW", 1, 6, 1, 1), LUMO_DIM_W, 77);
    EXPECT_TRUE(expect_chain(column, column, nullptr, TARN_LINEAR));
}

TEST(transform, of_nothing_does_nothing) {
    const Batch frame = plain(LUMO_U8, 2, "NHWC", 2, 4, 5, 3), none = plain(LUMO_F32, 1, "NHWC", 2, 0, 5, 1);
    const std::vector<uint8_t> before = frame.memory;
    EXPECT_EQ(transform(&frame, nullptr), 0);
    EXPECT_EQ(transform(nullptr, &frame), 0);
    EXPECT_EQ(transform(&frame, &none), 0);
    EXPECT_EQ(transform(&none, &frame), 0);
    EXPECT_EQ(frame.memory, before);
    const Batch empty = plain(LUMO_U8, 2, "NHWC", 0, 4, 5, 3);
    EXPECT_EQ(transform(&empty, &empty), 0);
    QuelERR err = {};
    LumoARRAY lost = frame;
    lost.data = nullptr;
    for (const TarnRANGE& range : {TarnRANGE{0, 0, 1}, TarnRANGE{1, 0, 1}}) {
        err = {};
        expect_error(transform(&frame, &lost, &range, TARN_LINEAR, &err), err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED,
                     status(-1));
    }
    EXPECT_EQ(frame.memory, before);
}

// Words whose kind is not the code's: never more than the row has is read.
TEST(transform, refuses_elements_longer_or_shorter_than_their_code) {
    const Batch grey = plain(LUMO_U8, 1, "HW", 1, 4, 5, 1);
    for (const LumoELEMTYPE type : {LUMO_KIND_U8 << 8 | LUMO_CODE_F32, LUMO_KIND_S16 << 8 | LUMO_CODE_U8, 0x10a}) {
        LumoARRAY odd = grey;
        odd.elemtype = type;
        odd.stride[LUMO_DIM_W] = int64_t(LumoELEMTYPEsizeof(type));
        QuelERR err = {};
        expect_error(transform(&odd, &odd, nullptr, TARN_LINEAR, &err), err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED,
                     status(-5));
    }
    LumoARRAY no_kind = grey;  // the code alone is enough
    no_kind.elemtype = LUMO_CODE_U8;
    Batch to = grey;
    EXPECT_EQ(transform(&to, &no_kind), 0);
    EXPECT_EQ(to.memory, grey.memory);
}

TEST(transform, logs_odd_planes_and_ends_the_process_where_nothing_can_be_meant) {
    static std::string line;
    LumoLOGGER& log = *_G_Lumo_default_logger;
    const LumoLOGGER before = log;
    log = {3, 0, [](void*, int32_t level, const char* text) { line = std::to_string(level) + " " + text; }, nullptr};
    const Batch planes = plain(kS8, 0, "NCHW", 1, 4, 5, 3), pixels = plain(kS8, 0, "NHWC", 1, 4, 5, 3);
    EXPECT_TRUE(expect_chain(pixels, planes, nullptr, TARN_LINEAR));
    EXPECT_TRUE(line.starts_with("3 amodules/tarn/src/ipp/im_copytrans:")) << line;
    EXPECT_TRUE(line.ends_with(": unsupported elemtype s8")) << line;
    log = before;

    const char* dies = "amodules/tarn/src/ipp/im_copytrans:[0-9]+: unreachable";
    const TarnRANGE third = {2, 0, 1};
    const Batch grey = plain(LUMO_U8, 1, "HW", 1, 4, 5, 1), colour = plain(LUMO_U8, 2, "HWC", 1, 4, 5, 3);
    EXPECT_DEATH(transform(&grey, &grey, &third), dies);
    LumoARRAY no_code = grey, to = colour;
    no_code.elemtype = to.elemtype = 0x10a;  // bytes by their kind, of no known code
    EXPECT_DEATH(transform(&to, &no_code), dies);
}

TEST(transform, with_any_allocation_failing_says_so_and_keeps_the_pictures_before) {
    const Batch src = plain(LUMO_U8, 4, "NCHW", 2, 12, 10, 4);
    const TarnRANGE unit = {0, 0, 1};
    struct Row {
        Batch dst;
        const TarnRANGE* range;
    };
    for (const Row& r :
         {Row{plain(LUMO_F32, 4, "NCHW", 2, 300, 60, 4), &unit}, Row{plain(LUMO_U8, 1, "NHWC", 2, 12, 10, 1), &unit},
          Row{plain(LUMO_U8, 2, "NCHW", 2, 8, 10, 3), nullptr},
          Row{plain(LUMO_U8, 2, "NHWC", 2, 12, 10, 3), nullptr}}) {
        Batch done = r.dst;
        ASSERT_EQ(transform(&done, &src, r.range), 0);
        const size_t half = size_t(done.stride[LUMO_DIM_N]) + 64;
        Batch got = r.dst;
        QuelERR err;
        int failed = 0, first_done = 0;
        const int made = each_allocation_failing(
            [&] {
                got.memory = r.dst.memory, got.data = got.memory.data() + 64;
                return err = {}, transform(&got, &src, r.range, TARN_LINEAR, &err);
            },
            [&](int64_t result) {
                expect_error(result, err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, status(-4));
                ++failed;
                first_done += std::equal(got.memory.begin(), got.memory.begin() + int64_t(half), done.memory.begin());
            });
        EXPECT_GT(made, 1);
        EXPECT_EQ(first_done, made / 2);
        EXPECT_EQ(got.memory, done.memory);
    }
    // A storage of the caller's pays, and gets everything back.
    Storage storage;
    const Batch dst = plain(LUMO_F32, 4, "NCHW", 2, 9, 14, 4);
    const KaTESTLIVE before = KaTESTlive();
    EXPECT_EQ(transform(&dst, &src, &unit, TARN_CUBIC, nullptr, &storage), 0);
    EXPECT_EQ(KaTESTlive().blocks, before.blocks);
    EXPECT_EQ(KaTESTlive().storages, before.storages);
}

TEST(transform, serves_rows_and_planes_more_than_31_bits_apart) {
    const int64_t apart = (INT64_C(1) << 32) + 96;
    void* room =
        mmap(nullptr, size_t(3 * apart), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (room == MAP_FAILED) GTEST_SKIP() << "no room for it";
    const Batch frame = plain(LUMO_U8, 2, "HWC", 1, 2, 9, 3);
    for (const char* layout : {"HWC", "CHW"}) {
        Batch far = plain(LUMO_U8, 2, layout, 1, 2, 9, 3), back = frame;
        far.data = room, back.each([&](int n, int c, int y, int x) { back.put(n, c, y, x, 0); });
        far.stride[LUMO_DIM_H] = apart;
        if (*layout == 'C') far.stride[LUMO_DIM_C] = 16;
        EXPECT_EQ(transform(&far, &frame), 0);
        EXPECT_EQ(transform(&back, &far), 0);
        EXPECT_EQ(back.memory, frame.memory);
        far.cls = LUMO_CLASS_BGR;
        Batch reversed = back;
        EXPECT_EQ(transform(&reversed, &far), 0);
        frame.each([&](int n, int c, int y, int x) { EXPECT_EQ(reversed.get(n, 2 - c, y, x), frame.get(n, c, y, x)); });
        const Batch large = plain(LUMO_U8, 3, "HWC", 1, 5, 20, 3), floats = plain(LUMO_F32, 3, "HWC", 1, 5, 20, 3);
        QuelERR err = {};
        const int64_t result = transform(&large, &far, nullptr, TARN_LINEAR, &err);
        if (*layout == 'H')
            expect_error(result, err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, status(-3));
        else
            EXPECT_EQ(result, 0);                // pixels are made of the planes first, and these are near
        EXPECT_EQ(transform(&floats, &far), 0);  // and so are converted ones
    }
    munmap(room, size_t(3 * apart));
}

TEST(transform, does_not_depend_on_the_callers_rounding_mode) {
    const Batch src = plain(LUMO_F32, 2, "NCHW", 1, 13, 17, 3);
    const TarnRANGE range = {0, -3, 77.7f};
    Batch dst = plain(LUMO_F32, 1, "HW", 1, 9, 8, 1);
    const auto memory_after = [&](int mode) {
        Batch got = dst;
        std::fesetround(mode);
        EXPECT_EQ(transform(&got, &src, &range, TARN_CUBIC), 0);
        EXPECT_EQ(std::fegetround(), mode);
        std::fesetround(FE_TONEAREST);
        return got.memory;
    };
    EXPECT_EQ(memory_after(FE_UPWARD), memory_after(FE_TONEAREST));
}

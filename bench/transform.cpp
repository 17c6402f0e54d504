// Copy-transform beside OpenCV's chain of calls, and its maker of network inputs, as whole operations: the ways that
// camera frames go into networks, and changes of layout and colour alone. OpenCV resizes bytes before it widens them;
// we widen first, which is closer.
#include <opencv2/dnn.hpp>
#include <random>

#include "bench.h"
#include "host.h"
#include "lumo_array.h"
#include "peer_opencv.h"
#include "tarn.h"

namespace tarn::bench {
namespace {

// An array with its memory, without gaps, of random bytes or floats.
struct Batch : LumoARRAY {
    Batch(LumoELEMTYPE type, uint32_t cls, const LumoARRLO& layout, int n, int h, int w, int c) : LumoARRAY{} {
        const bool planes = layout.dims[1] == 'C';
        const int32_t in_pixels[] = {n, h, w, c}, in_planes[] = {n, c, h, w};
        if (!::LumoARRPARMS(this, 4, planes ? in_planes : in_pixels, _G_Lumo_strides_corder, &layout, type, cls))
            throw std::runtime_error("no such array");
        memory.resize(size_t(n) * size_t(h) * size_t(w) * size_t(c) * LumoELEMTYPEsizeof(type));
        std::mt19937 rng(7);
        if (type == LUMO_F32)
            for (size_t i = 0; i < memory.size(); i += 4) {
                const float v = float(rng() % 256);
                memcpy(&memory[i], &v, sizeof v);
            }
        else
            for (uint8_t& byte : memory) byte = uint8_t(rng() >> 9);
        data = memory.data();
    }
    Batch(const Batch&) = delete;
    // Picture n as pixels; plane c of picture n.
    cv::Mat picture(int n) { return mat(n * stride[LUMO_DIM_N], size[LUMO_DIM_C]); }
    cv::Mat plane(int n, int c) { return mat(n * stride[LUMO_DIM_N] + c * stride[LUMO_DIM_C], 1); }
    std::vector<cv::Mat> planes(int n) { return {plane(n, 0), plane(n, 1), plane(n, 2)}; }
    Stream stream() { return {memory.data(), int64_t(memory.size())}; }
    cv::Mat mat(int64_t at, int channels) {
        return cv::Mat(size[LUMO_DIM_H], size[LUMO_DIM_W], CV_MAKETYPE(elemtype == LUMO_F32 ? CV_32F : CV_8U, channels),
                       memory.data() + at);
    }
    std::vector<uint8_t> memory;
};

struct Chain {
    const char* name;
    Batch &dst, &src;
    std::function<void()> opencv;
    const TarnRANGE* range = nullptr;
    std::function<void()> blob = nullptr;
};

// Of pictures that shrink the two source rows that a row of the result is made of, and the result.
void limit(Batch& dst, Batch& src) {
    const int64_t from = src.size[LUMO_DIM_H], to = dst.size[LUMO_DIM_H], n = dst.size[LUMO_DIM_N];
    if (from == to) return copy_streams({src.stream()}, {dst.stream()});
    const int64_t row = src.stride[LUMO_DIM_H], part = dst.stream().bytes / (n * to);
    for (int64_t i = 0; i < n; ++i)
        for (int64_t y = 0; y < to; ++y)
            copy_streams({{src.memory.data() + i * src.stride[LUMO_DIM_N] + ((2 * y + 1) * from - to) / (2 * to) * row,
                           2 * row}},
                         {{dst.memory.data() + (i * to + y) * part, part}});
}

void row(Bench& b, Host& host, Chain c) {
    const QuelOP op = host.find("tarn::copy-transform");
    const int n = c.dst.size[LUMO_DIM_N], w = c.dst.size[LUMO_DIM_W], h = c.dst.size[LUMO_DIM_H];
    std::vector<Contender> contenders = {{"ours",
                                          [&] {
                                              const int64_t result = reinterpret_cast<TarnCopyTransform>(op.entry)(
                                                  &op.call, nullptr, nullptr, &c.dst, &c.src, c.range, TARN_LINEAR);
                                              if (result) throw std::runtime_error(c.name);
                                          }},
                                         {"OpenCV", c.opencv},
                                         {"limit", [&] { limit(c.dst, c.src); }}};
    if (c.blob) contenders.push_back({"OpenCV blob", c.blob});
    b.row(c.name, std::to_string(w) + " x " + std::to_string(h) + (n > 1 ? " x " + std::to_string(n) : ""),
          double(w) * h * n, contenders);
}

// Frames into a network.
void into_networks(Bench& b, Host& host, int n, int side) {
    Batch src(LUMO_U8, LUMO_CLASS_RGB, _G_Lumo_NHWC_arrlo, n, 1080, 1920, 3);
    Batch dst(LUMO_F32, LUMO_CLASS_RGB, _G_Lumo_NCHW_arrlo, n, side, side, 3);
    const TarnRANGE unit = {TARN_RANGE_OF_EACH, 0, 1};
    cv::Mat sized, floats, blob;
    std::vector<cv::Mat> frames;
    for (int i = 0; i < n; ++i) frames.push_back(src.picture(i));
    const auto chain = [&](bool mapped) {
        for (int i = 0; i < n; ++i) {
            cv::resize(frames[size_t(i)], sized, {side, side}, 0, 0, cv::INTER_LINEAR);
            sized.convertTo(floats, CV_32F);
            std::vector<cv::Mat> planes = dst.planes(i);
            cv::split(floats, planes);
            if (mapped)
                for (cv::Mat& plane : planes) cv::normalize(plane, plane, 0, 1, cv::NORM_MINMAX);
        }
    };
    row(b, host,
        {"u8 HWC to f32 NCHW, sized", dst, src, [&] { chain(false); }, nullptr,
         [&] {
             cv::dnn::blobFromImages(frames, blob, 1, {side, side}, {}, false, false);
         }});
    row(b, host, {"u8 HWC to f32 NCHW, sized, range", dst, src, [&] { chain(true); }, &unit});
}

void layouts_and_colours(Bench& b, Host& host, int w, int h) {
    const auto make = [&](LumoELEMTYPE type, uint32_t cls, const LumoARRLO& layout, int c = 3) {
        return std::make_unique<Batch>(type, cls, layout, 1, h, w, c);
    };
    const auto rgb = make(LUMO_U8, LUMO_CLASS_RGB, _G_Lumo_NHWC_arrlo);
    const auto bgr = make(LUMO_U8, LUMO_CLASS_BGR, _G_Lumo_NHWC_arrlo);
    const auto grey = make(LUMO_U8, LUMO_CLASS_GREY, _G_Lumo_NHWC_arrlo, 1);
    const auto planes = make(LUMO_U8, LUMO_CLASS_RGB, _G_Lumo_NCHW_arrlo);
    const auto floats = make(LUMO_F32, LUMO_CLASS_RGB, _G_Lumo_NCHW_arrlo);
    const auto pixels = make(LUMO_F32, LUMO_CLASS_RGB, _G_Lumo_NHWC_arrlo);
    const TarnRANGE unit = {TARN_RANGE_OF_EACH, 0, 1};
    cv::Mat from = rgb->picture(0), reversed = bgr->picture(0), one = grey->picture(0), wide, packed, blob;
    const auto bytes_to_floats = [&](bool mapped) {
        std::vector<cv::Mat> to = floats->planes(0);
        from.convertTo(wide, CV_32F);
        cv::split(wide, to);
        if (mapped)
            for (cv::Mat& plane : to) cv::normalize(plane, plane, 0, 1, cv::NORM_MINMAX);
    };
    row(b, host, {"u8 HWC to NCHW", *planes, *rgb, [&] {
                      std::vector<cv::Mat> to = planes->planes(0);
                      cv::split(from, to);
                  }});
    row(b, host, {"f32 HWC to NCHW", *floats, *pixels, [&] {
                      std::vector<cv::Mat> to = floats->planes(0);
                      cv::split(pixels->picture(0), to);
                  }});
    row(b, host,
        {"u8 HWC to f32 NCHW", *floats, *rgb, [&] { bytes_to_floats(false); }, nullptr,
         [&] { cv::dnn::blobFromImage(from, blob, 1, {}, {}, false, false); }});
    row(b, host, {"u8 HWC to f32 NCHW, range", *floats, *rgb, [&] { bytes_to_floats(true); }, &unit});
    row(b, host, {"f32 NCHW to u8 HWC", *bgr, *floats, [&] {
                      cv::merge(floats->planes(0), wide);
                      wide.convertTo(packed, CV_8U);
                      cv::cvtColor(packed, reversed, cv::COLOR_RGB2BGR);
                  }});
    row(b, host, {"BGR to RGB", *rgb, *bgr, [&] { cv::cvtColor(reversed, from, cv::COLOR_BGR2RGB); }});
    row(b, host, {"RGB to grey", *grey, *rgb, [&] { cv::cvtColor(from, one, cv::COLOR_RGB2GRAY); }});
}

void run(Bench& b) {
    Host host;
    layouts_and_colours(b, host, 256, 256);
    layouts_and_colours(b, host, 1920, 1080);
    into_networks(b, host, 1, 640);
    into_networks(b, host, 1, 224);
    into_networks(b, host, 16, 224);
}

const Family family{"transform", run};

}  // namespace
}  // namespace tarn::bench

// Resizes beside OpenCV's, libyuv's (linear and nearest, 8-bit) and zimg's (one channel; it widens its kernel when it
// shrinks). Sources of 256 x 256 and 1920 x 1080 at factors from 1/10 to 4, for linear and cubic some of 4096 x 4096.
#include "cases/resize.h"

#include <libyuv/scale.h>
#include <libyuv/scale_argb.h>
#include <zimg.h>

#include <cstdlib>

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

// A zimg graph with planes of its own, since it wants aligned rows.
class Zimg {
public:
    Zimg(Size src, Size dst, zimg_pixel_type_e type, int bytes, zimg_resample_filter_e filter) {
        zimg_image_format from, to;
        zimg_image_format_default(&from, ZIMG_API_VERSION);
        from.width = unsigned(src.width), from.height = unsigned(src.height);
        from.pixel_type = type;
        from.depth = unsigned(bytes * 8);
        from.pixel_range = ZIMG_RANGE_FULL;
        to = from;
        to.width = unsigned(dst.width), to.height = unsigned(dst.height);
        zimg_graph_builder_params params;
        zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
        params.resample_filter = filter;
        if (filter == ZIMG_RESIZE_BICUBIC) params.filter_param_a = 0, params.filter_param_b = 0.5;
        params.cpu_type = ZIMG_CPU_AUTO_64B;
        graph_ = zimg_filter_graph_build(&from, &to, &params);
        size_t scratch = 0;
        zimg_filter_graph_get_tmp_size(graph_, &scratch);
        scratch_ = std::aligned_alloc(64, (scratch + 63) & ~size_t(63));
        in_ = plane(src, bytes), out_ = plane(dst, bytes);
    }
    void run() const {
        zimg_image_buffer_const in = {ZIMG_API_VERSION, {{in_.data, in_.stride, ZIMG_BUFFER_MAX}}};
        zimg_image_buffer out = {ZIMG_API_VERSION, {{out_.data, out_.stride, ZIMG_BUFFER_MAX}}};
        zimg_filter_graph_process(graph_, &in, &out, scratch_, nullptr, nullptr, nullptr, nullptr);
    }
    ~Zimg() {
        zimg_filter_graph_free(graph_);
        std::free(scratch_), std::free(in_.data), std::free(out_.data);
    }
    Zimg(const Zimg&) = delete;
    Zimg& operator=(const Zimg&) = delete;

private:
    struct Plane {
        void* data;
        ptrdiff_t stride;
    };
    static Plane plane(Size n, int bytes) {
        const ptrdiff_t stride = (ptrdiff_t(n.width) * bytes + 63) & ~ptrdiff_t(63);
        void* data = std::aligned_alloc(64, size_t(stride) * size_t(n.height));
        std::memset(data, 100, size_t(stride) * size_t(n.height));
        return {data, stride};
    }
    zimg_filter_graph* graph_;
    void* scratch_;
    Plane in_, out_;
};

struct Mode {
    const char* name;
    int opencv;
    zimg_resample_filter_e zimg;
};
constexpr Mode kModes[] = {{"nearest", cv::INTER_NEAREST, ZIMG_RESIZE_POINT},
                           {"linear", cv::INTER_LINEAR, ZIMG_RESIZE_BILINEAR},
                           {"cubic", cv::INTER_CUBIC, ZIMG_RESIZE_BICUBIC},
                           {"lanczos", cv::INTER_LANCZOS4, ZIMG_RESIZE_LANCZOS}};

struct Form {
    const char* name;
    int opencv;
};
constexpr Form kForms[] = {{"u8_c1", CV_8UC1},   {"u8_c3", CV_8UC3},   {"u8_c4", CV_8UC4},   {"s16_c1", CV_16SC1},
                           {"s16_c3", CV_16SC3}, {"f32_c1", CV_32FC1}, {"f32_c3", CV_32FC3}, {"u8_c3x", CV_8UC4}};

void peers(Bench& b, const std::string& shape) {
    for (const Mode& mode : kModes)
        for (const Form& form : kForms) {
            const std::string name = std::string("resize_") + mode.name + "_" + form.name + " " + shape;
            b.peer(name, "OpenCV", [=](const View* v, Size) {
                cv::Mat dst = mat(v[1], form.opencv);
                cv::resize(mat(v[0], form.opencv), dst, dst.size(), 0, 0, mode.opencv);
            });
            const bool fast = mode.zimg == ZIMG_RESIZE_BILINEAR || mode.zimg == ZIMG_RESIZE_POINT;
            const libyuv::FilterMode filter =
                mode.zimg == ZIMG_RESIZE_POINT ? libyuv::kFilterNone : libyuv::kFilterBilinear;
            if (fast && form.opencv == CV_8UC1)
                b.peer(name, "libyuv", [=](const View* v, Size n) {
                    libyuv::ScalePlane(v[0].data, v[0].stride, v[0].size.width, v[0].size.height, v[1].data,
                                       v[1].stride, n.width, n.height, filter);
                });
            if (fast && form.opencv == CV_8UC4)
                b.peer(name, "libyuv", [=](const View* v, Size n) {
                    libyuv::ARGBScale(v[0].data, v[0].stride, v[0].size.width, v[0].size.height, v[1].data, v[1].stride,
                                      n.width, n.height, filter);
                });
            if (CV_MAT_CN(form.opencv) != 1) continue;
            b.peer(name, "zimg", [=, graph = std::shared_ptr<Zimg>(), made = Size{}](const View* v, Size n) mutable {
                const int depth = CV_MAT_DEPTH(form.opencv);
                const auto type = depth == CV_8U    ? ZIMG_PIXEL_BYTE
                                  : depth == CV_16S ? ZIMG_PIXEL_WORD
                                                    : ZIMG_PIXEL_FLOAT;
                const int bytes = depth == CV_8U ? 1 : depth == CV_16S ? 2 : 4;
                if (made.width != n.width)
                    graph = std::make_shared<Zimg>(v[0].size, n, type, bytes, mode.zimg), made = n;
                graph->run();
            });
        }
}

const std::vector<cases::Shape> kShapes = {
    {"twice", 1, 2, 0, 0, 0, 0},      {"half", 2, 1, 0, 0, 0, 0}, {"three quarters", 4, 3, 0, 0, 0, 0},
    {"0.99", 100, 99, 0, 0, 0, 0},    {"1/3", 3, 1, 0, 0, 0, 0},  {"1/10", 10, 1, 0, 0, 0, 0},
    {"four times", 1, 4, 0, 0, 0, 0},
};

void run(Bench& b) {
    for (const cases::Shape& shape : kShapes) {
        const std::string name = shape.name;
        peers(b, name);
        const auto destination_of = [&](int width, int height) {
            return Size{width * shape.denominator / shape.numerator, height * shape.denominator / shape.numerator};
        };
        const bool large = name == "half" || name == "three quarters";
        cases::resize_cases(
            [&](const Case& c) {
                std::vector<Size> sizes = {destination_of(256, 256), destination_of(1920, 1080)};
                if (name == "four times") sizes.back() = {1920, 1080};
                if (large && (c.name.starts_with("resize_linear_") || c.name.starts_with("resize_cubic_")))
                    sizes.push_back(destination_of(4096, 4096));
                b.row(c, sizes);
            },
            {shape});
    }
}

const Family family{"resize", run};

}  // namespace
}  // namespace tarn::bench

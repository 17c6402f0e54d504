// Borders beside OpenCV's, and beside a copy of the whole destination's bytes.
#include "kernels/border/border.h"

#include <cstring>
#include <vector>

#include "bench.h"
#include "kernels/copy/copy.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

struct Form {
    const char* name;
    k::Type type;
    k::Form form;
    int cv_type;
};

void run(Bench& b) {
    constexpr int kWidth = 8;  // of the border
    const Form forms[] = {{"u8_c1", k::Type::u8, k::Form::c1, CV_8UC1},
                          {"u8_c3", k::Type::u8, k::Form::c3, CV_8UC3},
                          {"s16_c1", k::Type::s16, k::Form::c1, CV_16SC1},
                          {"s32_c3", k::Type::s32, k::Form::c3, CV_32SC3}};
    for (const Form& f : forms)
        for (const Size n : b.sizes_of({{256, 256}, {1920, 1080}, {4096, 4096}})) {
            const Size larger{n.width + 2 * kWidth, n.height + 2 * kWidth};
            const int64_t pixel = CV_ELEM_SIZE(f.cv_type);
            const int32_t src_row = int32_t(n.width * pixel) + b.options().padding,
                          dst_row = int32_t(larger.width * pixel) + b.options().padding;
            std::vector<uint8_t> from(size_t(dst_row) * larger.height, 3), to(size_t(dst_row) * larger.height, 1);
            const View src{from.data(), src_row, n}, dst{to.data(), dst_row, larger};
            const int32_t values[4] = {9, 4, 251, 0};
            const auto* replicate = k::border_replicate_kernels.find(f.type, f.form);
            const auto* constant = k::border_constant_kernels.find(f.type, f.form);
            const auto* copy = k::copy_kernels.find(f.type, f.form);
            const auto opencv = [&](int kind) {
                cv::Mat out = mat(dst, f.cv_type);
                cv::copyMakeBorder(mat(src, f.cv_type), out, kWidth, kWidth, kWidth, kWidth, kind,
                                   cv::Scalar(9, 4, 251));
            };
            const Contender limit{"limit", [&] { (*copy)(from.data(), dst_row, dst.data, dst_row, larger); }};
            const std::string size = std::to_string(n.width) + " x " + std::to_string(n.height);
            const double pixels = double(larger.width) * larger.height;
            b.row("border_replicate_" + std::string(f.name), size, pixels,
                  {{"ours",
                    [&] {
                        (*replicate)(src.data, src_row, n, dst.data, dst_row, larger, {kWidth, kWidth});
                    }},
                   limit,
                   {"OpenCV", [&] { opencv(cv::BORDER_REPLICATE); }}});
            b.row("border_constant_" + std::string(f.name), size, pixels,
                  {{"ours",
                    [&] {
                        (*constant)(src.data, src_row, n, dst.data, dst_row, larger, {kWidth, kWidth}, values);
                    }},
                   limit,
                   {"OpenCV", [&] { opencv(cv::BORDER_CONSTANT); }}});
        }
}

const Family family{"border", run};

}  // namespace
}  // namespace tarn::bench

// Box, minimum and maximum filters beside OpenCV's, which gets the same: a region within a larger image, whose pixels
// around the region it reads as we do; no border is made on either side.
#include "cases/filter.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

using cases::Mask;

// The cases of kernels that have OpenCV's types beside them: one and three channels.
template <class Peer>
auto rows(Bench& b, const std::vector<int>& sides, Peer peer) {
    return [&b, sides, peer](const std::string& name) {
        std::vector<Mask> masks;
        if (!name.ends_with("_c1") && !name.ends_with("_c3")) return masks;
        const int depth = name.find("_u8_") != name.npos ? CV_8U : name.find("_s16_") != name.npos ? CV_16S : CV_32F;
        const int type = CV_MAKETYPE(depth, name.ends_with("_c1") ? 1 : 3);
        for (const int side : sides) {
            const int before = (side - 1) / 2;
            masks.push_back({{side, side}, {before, before}});
            const std::string at = std::to_string(before) + ", " + std::to_string(before);
            b.peer(name + " " + std::to_string(side) + " x " + std::to_string(side) + " at " + at, "OpenCV",
                   [=](const View* v, Size n) {
                       const cv::Mat src = mat(v[0], type)(cv::Rect(before, before, n.width, n.height));
                       cv::Mat dst = mat(v[1], type);
                       peer(name, src, dst, cv::Size(side, side));
                   });
        }
        return masks;
    };
}

void run(Bench& b) {
    const Measure measure{b, {{256, 256}, {1920, 1080}}};
    cases::box_cases(rows(b, {3, 7, 31, 101},
                          [](const std::string&, const cv::Mat& src, cv::Mat& dst, cv::Size mask) {
                              cv::boxFilter(src, dst, -1, mask);
                          }),
                     measure);
    cases::extreme_cases(rows(b, {3, 7, 15, 63},
                              [](const std::string& name, const cv::Mat& src, cv::Mat& dst, cv::Size mask) {
                                  const cv::Mat all = cv::Mat::ones(mask, CV_8U);
                                  name.starts_with("filter_min") ? cv::erode(src, dst, all) : cv::dilate(src, dst, all);
                              }),
                         measure);
}

const Family family{"filter", run};

}  // namespace
}  // namespace tarn::bench

// Linear mappings beside OpenCV's.
#include "cases/mapping.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

void run(Bench& b) {
    // One scale for all channels: the best it has in one call.
    for (const Element& from : kElements)
        for (const Element& to : kElements)
            for (const PixelForm& form : kPixelForms) {
                const std::string name = std::string("scale_") + from.name + "_" + to.name + "_" + form.name;
                const int src = CV_MAKETYPE(from.depth, form.channels), dst = CV_MAKETYPE(to.depth, form.channels);
                b.peer(name, "OpenCV", [=](const View* v, Size) {
                    cv::Mat d = mat(v[1], dst);
                    mat(v[0], src).convertTo(d, CV_MAT_DEPTH(dst), 0.5, 0.25);
                });
            }
    const auto range = [&](const char* name, int src, int dst) {
        b.peer(name, "OpenCV", [=](const View* v, Size) {
            cv::Mat d = mat(v[1], dst);
            cv::normalize(mat(v[0], src), d, -10.5, 200, cv::NORM_MINMAX, CV_MAT_DEPTH(dst));
        });
    };
    range("range_u8_u8_c1", CV_8UC1, CV_8UC1);
    range("range_s16_u8_c1", CV_16SC1, CV_8UC1);
    range("range_f32_f32_c1", CV_32FC1, CV_32FC1);
    cases::mapping_cases(Measure{b});
}

const Family family{"mapping", run};

}  // namespace
}  // namespace tarn::bench

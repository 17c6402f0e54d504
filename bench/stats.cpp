// Statistics beside OpenCV's.
#include "cases/stats.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

void run(Bench& b) {
    // One channel by minMaxLoc without locations; several by a reduction of the plane seen as rows of one column each.
    const auto minmax = [&](const char* name, int type) {
        b.peer(name, "OpenCV", [=](const View* v, Size) {
            const cv::Mat src = mat(v[0], type);
            if (CV_MAT_CN(type) == 1) {
                double lo, hi;
                cv::minMaxLoc(src, &lo, &hi);
                v[1].row<float>(0)[0] = float(lo);
                v[2].row<float>(0)[0] = float(hi);
                return;
            }
            std::vector<cv::Mat> planes;
            cv::split(src, planes);
            for (int c = 0; c < CV_MAT_CN(type); ++c) {
                double lo, hi;
                cv::minMaxLoc(planes[size_t(c)], &lo, &hi);
                v[1].row<float>(0)[c] = float(lo);
                v[2].row<float>(0)[c] = float(hi);
            }
        });
    };
    minmax("minmax_u8_c1", CV_8UC1);
    minmax("minmax_u8_c3", CV_8UC3);
    minmax("minmax_s16_c1", CV_16SC1);
    minmax("minmax_f32_c1", CV_32FC1);
    const auto count = [&](const char* name, int type) {
        b.peer(name, "OpenCV", [=](const View* v, Size) {
            cv::Mat in;
            cv::inRange(mat(v[0], type), cv::Scalar(50), cv::Scalar(200), in);
            v[3].row<int32_t>(0)[0] = cv::countNonZero(in);
        });
    };
    count("count_in_range_u8_c1", CV_8UC1);
    count("count_in_range_f32_c1", CV_32FC1);
    const auto mean = [&](const char* name, int type) {
        b.peer(name, "OpenCV", [=](const View* v, Size) { v[1].row<double>(0)[0] = cv::mean(mat(v[0], type))[0]; });
    };
    mean("plane_mean_u8_c1", CV_8UC1);
    mean("plane_mean_u8_c3", CV_8UC3);
    mean("plane_mean_s16_c1", CV_16SC1);
    mean("plane_mean_f32_c1", CV_32FC1);
    cases::stats_cases(Measure{b});
}

const Family family{"stats", run};

}  // namespace
}  // namespace tarn::bench

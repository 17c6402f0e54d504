// Plane copies beside OpenCV's.
#include "cases/copy.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

void run(Bench& b) {
    b.peer("copy_u8_c1", "OpenCV", [](const View* v, Size) { mat(v[0], CV_8UC1).copyTo(mat(v[1], CV_8UC1)); });
    b.peer("copy_u8_c3", "OpenCV", [](const View* v, Size) { mat(v[0], CV_8UC3).copyTo(mat(v[1], CV_8UC3)); });
    b.peer("copy_u8_c3x", "OpenCV", [](const View* v, Size) {
        const cv::Mat src = mat(v[0], CV_8UC4);
        cv::Mat dst = mat(v[1], CV_8UC4);
        static const int kFromTo[] = {0, 0, 1, 1, 2, 2};
        cv::mixChannels(&src, 1, &dst, 1, kFromTo, 3);
    });
    b.peer("copy_s32_c1", "OpenCV", [](const View* v, Size) { mat(v[0], CV_32SC1).copyTo(mat(v[1], CV_32SC1)); });
    b.peer("copy_s32_c3x", "OpenCV", [](const View* v, Size) {
        const cv::Mat src = mat(v[0], CV_32SC4);
        cv::Mat dst = mat(v[1], CV_32SC4);
        static const int kFromTo[] = {0, 0, 1, 1, 2, 2};
        cv::mixChannels(&src, 1, &dst, 1, kFromTo, 3);
    });
    cases::copy_cases(Measure{b});

    // A region of half the width and height in the middle of a larger plane.
    Case region = cases::copy_case<uint8_t>("copy_u8_c1 region", k::copy_u8_c1, 1);
    region.run = [](const View* v, Size n) {
        return k::copy_u8_c1(v[0].row<uint8_t>(n.height / 4) + n.width / 4, v[0].stride,
                             v[1].row<uint8_t>(n.height / 4) + n.width / 4, v[1].stride, {n.width / 2, n.height / 2});
    };
    b.peer(region.name, "OpenCV", [](const View* v, Size n) {
        const cv::Rect r(n.width / 4, n.height / 4, n.width / 2, n.height / 2);
        mat(v[0], CV_8UC1)(r).copyTo(mat(v[1], CV_8UC1)(r));
    });
    b.row(region);
}

const Family family{"copy", run};

}  // namespace
}  // namespace tarn::bench

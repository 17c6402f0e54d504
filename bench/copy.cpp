// Plane copies beside OpenCV's.
#include "cases/copy.h"

#include <cstring>

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

    // A region of half the width and height in the middle of a larger plane, whose rows are not one run of bytes.
    for (const Size n : {Size{256, 256}, Size{1920, 1080}, Size{4096, 4096}}) {
        std::vector<uint8_t> from(size_t(n.width) * n.height, 1), to(from.size());
        const Size half{n.width / 2, n.height / 2};
        const int64_t corner = int64_t(n.height / 4) * n.width + n.width / 4;
        const View src{from.data() + corner, n.width, half}, dst{to.data() + corner, n.width, half};
        b.row("copy_u8_c1 region", std::to_string(half.width) + " x " + std::to_string(half.height),
              double(half.width) * half.height,
              {{"ours", [&] { k::copy_u8_c1(src.data, src.stride, dst.data, dst.stride, half); }},
               {"limit",
                [&] {
                    for (int y = 0; y < half.height; ++y)
                        memcpy(dst.row<uint8_t>(y), src.row<uint8_t>(y), size_t(half.width));
                }},
               {"OpenCV", [&] { mat(src, CV_8UC1).copyTo(mat(dst, CV_8UC1)); }}});
    }
}

const Family family{"copy", run};

}  // namespace
}  // namespace tarn::bench

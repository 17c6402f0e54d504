// The median beside OpenCV's, which has square masks of odd sides, 16 bits without sign, and those for sides 3 and 5
// only.
#include "cases/filter.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

template <class T>
void rows(Bench& b, const char* name, const k::Kernel<k::Filter>& kernel, int channels) {
    for (const int side : {3, 5, 7, 9, 15, 51}) {
        const int half = side / 2;
        const Case c =
            cases::filter_case<T>(name, kernel, channels, false, {{side, side}, {half, half}}, cases::LowerMedian{});
        if (sizeof(T) == 1 || side <= 5)
            b.peer(c.name, "OpenCV", [=](const View* v, Size n) {
                const cv::Rect region(half, half, n.width, n.height);
                const int type = CV_MAKETYPE(sizeof(T) == 1 ? CV_8U : CV_16U, channels);
                cv::Mat out = mat(v[1], type);
                cv::medianBlur(mat(v[0], type)(region), out, side);
            });
        b.row(c, {{256, 256}, {1920, 1080}}, true);
    }
}

void run(Bench& b) {
    rows<uint8_t>(b, "median_u8_c1", k::median_u8_c1, 1);
    rows<uint8_t>(b, "median_u8_c3", k::median_u8_c3, 3);
    rows<int16_t>(b, "median_s16_c1", k::median_s16_c1, 1);
    rows<int16_t>(b, "median_s16_c3", k::median_s16_c3, 3);
}

const Family family{"median", run};

}  // namespace
}  // namespace tarn::bench

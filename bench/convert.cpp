// Plane conversions beside OpenCV's.
#include "cases/convert.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

void run(Bench& b) {
    const auto peer = [&](const char* name, int src, int dst) {
        b.peer(name, "OpenCV", [=](const View* v, Size) {
            cv::Mat d = mat(v[1], dst);
            mat(v[0], src).convertTo(d, CV_MAT_DEPTH(dst));
        });
    };
    peer("convert_u8_f32_c1", CV_8UC1, CV_32FC1);
    peer("convert_f32_u8_c1", CV_32FC1, CV_8UC1);
    peer("convert_s16_u8_c1", CV_16SC1, CV_8UC1);
    peer("convert_u8_s16_c3", CV_8UC3, CV_16SC3);
    peer("convert_f32_s16_c1", CV_32FC1, CV_16SC1);
    peer("convert_f32_s32_c1", CV_32FC1, CV_32SC1);
    peer("convert_s32_f32_c1", CV_32SC1, CV_32FC1);
    peer("convert_s32_u8_c1", CV_32SC1, CV_8UC1);
    cases::convert_cases(Measure{b});
}

const Family family{"convert", run};

}  // namespace
}  // namespace tarn::bench

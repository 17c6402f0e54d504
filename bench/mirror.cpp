// Mirrors in place beside OpenCV's.
#include "cases/mirror.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

void run(Bench& b) {
    const auto peer = [&](const char* name, int type) {
        b.peer(name, "OpenCV", [=](const View* v, Size) {
            cv::Mat m = mat(v[0], type);
            cv::flip(m, m, 0);
        });
    };
    peer("mirror_u8_c1", CV_8UC1);
    peer("mirror_u8_c3", CV_8UC3);
    peer("mirror_s32_c1", CV_32SC1);
    cases::mirror_cases(Measure{b});
}

const Family family{"mirror", run};

}  // namespace
}  // namespace tarn::bench

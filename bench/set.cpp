// Fills beside OpenCV's.
#include "cases/set.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

void run(Bench& b) {
    for (const auto& [form, type] : {std::pair{"u8_c1", CV_8UC1},
                                     {"u8_c3", CV_8UC3},
                                     {"s16_c3", CV_16SC3},
                                     {"s32_c1", CV_32SC1},
                                     {"s32_c3", CV_32SC3}}) {
        b.peer(std::string("set_") + form, "OpenCV",
               [type](const View* v, Size) { mat(v[0], type).setTo(cv::Scalar(9, 4, 251)); });
        b.peer(std::string("set_m_") + form, "OpenCV",
               [type](const View* v, Size) { mat(v[0], type).setTo(cv::Scalar(9, 4, 251), mat(v[1], CV_8UC1)); });
    }
    cases::set_cases(Measure{b});
}

const Family family{"set", run};

}  // namespace
}  // namespace tarn::bench

// Comparisons beside OpenCV's, which compares channel by channel: it has no peer for several channels in one byte.
#include "cases/compare.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

void run(Bench& b) {
    for (const auto& [kind, type] : {std::pair{"u8", CV_8UC1}, {"s16", CV_16SC1}, {"f32", CV_32FC1}})
        for (const auto& [name, code] :
             {std::pair{" greater", cv::CMP_GT}, {" less or equal", cv::CMP_LE}, {" equal", cv::CMP_EQ}}) {
            b.peer(std::string("cmp_") + kind + "_c1" + name, "OpenCV", [type, code](const View* v, Size) {
                cv::Mat dst = mat(v[2], CV_8UC1);
                cv::compare(mat(v[0], type), mat(v[1], type), dst, code);
            });
            b.peer(std::string("cmp_c_") + kind + "_c1" + name, "OpenCV", [type, code](const View* v, Size) {
                cv::Mat dst = mat(v[1], CV_8UC1);
                cv::compare(mat(v[0], type), 127, dst, code);
            });
        }
    // Three channels in range, which is two comparisons: the nearest that it has.
    for (const auto& [name, type] :
         {std::pair{"cmp_c_u8_c3 less or equal", CV_8UC3}, {"cmp_c_f32_c3 less or equal", CV_32FC3}})
        b.peer(name, "OpenCV", [type](const View* v, Size) {
            cv::Mat dst = mat(v[1], CV_8UC1);
            cv::inRange(mat(v[0], type), cv::Scalar::all(0), cv::Scalar(127, 2, 0), dst);
        });
    cases::compare_cases(Measure{b});
}

const Family family{"compare", run};

}  // namespace
}  // namespace tarn::bench

// Arithmetic with constants and over lists beside OpenCV's, which has no lists: its way is one call per source.
#include "cases/arith.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

constexpr std::pair<const char*, int> kForms[] = {{"u8_c1", CV_8UC1},   {"u8_c3", CV_8UC3},   {"s16_c1", CV_16SC1},
                                                  {"s16_c3", CV_16SC3}, {"f32_c1", CV_32FC1}, {"f32_c3", CV_32FC3}};

template <class Op>
void peers(Bench& b, const std::string& op, Op cv_op) {
    for (const auto& [form, type] : kForms) {
        b.peer(op + "_c_" + form, "OpenCV", [cv_op, type](const View* v, Size) {
            cv::Mat dst = mat(v[0], type);
            cv_op(dst, cv::Scalar(3, 200, 1), dst);
        });
        for (const int count : {2, 4})
            b.peer(op + "_n_" + form + " of " + std::to_string(count), "OpenCV",
                   [cv_op, type, count](const View* v, Size) {
                       cv::Mat dst = mat(v[count], type);
                       cv_op(mat(v[0], type), mat(v[1], type), dst);
                       for (int i = 2; i < count; ++i) cv_op(dst, mat(v[i], type), dst);
                   });
    }
}

void run(Bench& b) {
    peers(b, "add", [](const auto& x, const auto& y, cv::Mat& d) { cv::add(x, y, d); });
    peers(b, "sub", [](const auto& x, const auto& y, cv::Mat& d) { cv::subtract(x, y, d); });
    peers(b, "mul", [](const auto& x, const auto& y, cv::Mat& d) { cv::multiply(x, y, d); });
    for (const auto& [form, type] : kForms)
        for (const int count : {2, 4})
            b.peer(std::string("avg_n_") + form + " of " + std::to_string(count), "OpenCV",
                   [type, count](const View* v, Size) {
                       static cv::Mat sum;
                       mat(v[0], type).convertTo(sum, CV_32F);
                       for (int i = 1; i < count; ++i) {
                           if (CV_MAT_DEPTH(type) == CV_16S)
                               cv::add(sum, mat(v[i], type), sum, cv::noArray(), CV_32F);  // no accumulate for s16
                           else
                               cv::accumulate(mat(v[i], type), sum);
                       }
                       cv::Mat dst = mat(v[count], type);
                       sum.convertTo(dst, CV_MAT_DEPTH(type), 1.0 / count);
                   });
    cases::arith_cases(Measure{b});
}

const Family family{"arith", run};

}  // namespace
}  // namespace tarn::bench

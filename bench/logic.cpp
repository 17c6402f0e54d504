// Bitwise kernels beside OpenCV's.
#include "cases/logic.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

template <class Op>
void binary(Bench& b, const std::string& op, Op cv_op) {
    for (const auto& [form, type] :
         {std::pair{"_u8_c1", CV_8UC1}, {"_u8_c3", CV_8UC3}, {"_s16_c1", CV_16SC1}, {"_s32_c3", CV_32SC3}})
        b.peer(op + form, "OpenCV", [cv_op, type](const View* v, Size) {
            cv::Mat dst = mat(v[2], type);
            cv_op(mat(v[0], type), mat(v[1], type), dst);
        });
}

template <class Op>
void constant(Bench& b, const std::string& op, Op cv_op) {
    for (const auto& [form, type] : {std::pair{"_u8_c1", CV_8UC1}, {"_u8_c3", CV_8UC3}, {"_s16_c4", CV_16SC4}})
        b.peer(op + form, "OpenCV", [cv_op, type](const View* v, Size) {
            cv::Mat dst = mat(v[1], type);
            cv_op(mat(v[0], type), cv::Scalar(0xa7, 0x78, 1, 0xfe), dst);
        });
}

void run(Bench& b) {
    const auto both = [](const auto& x, const auto& y, cv::Mat& d) { cv::bitwise_and(x, y, d); };
    const auto either = [](const auto& x, const auto& y, cv::Mat& d) { cv::bitwise_or(x, y, d); };
    const auto one = [](const auto& x, const auto& y, cv::Mat& d) { cv::bitwise_xor(x, y, d); };
    binary(b, "and", both);
    binary(b, "or", either);
    binary(b, "xor", one);
    constant(b, "and_c", both);
    constant(b, "or_c", either);
    constant(b, "xor_c", one);
    for (const auto& [name, type] : {std::pair{"not_u8_c1", CV_8UC1}, {"not_u8_c3", CV_8UC3}})
        b.peer(name, "OpenCV", [type](const View* v, Size) {
            cv::Mat dst = mat(v[1], type);
            cv::bitwise_not(mat(v[0], type), dst);
        });
    cases::logic_cases(Measure{b});
}

const Family family{"logic", run};

}  // namespace
}  // namespace tarn::bench

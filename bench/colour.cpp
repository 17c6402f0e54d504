// Colours and layouts beside OpenCV's.
#include "cases/colour.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

void run(Bench& b) {
    const auto convert = [&](const char* name, int src, int dst, int code) {
        b.peer(name, "OpenCV", [=](const View* v, Size) {
            cv::Mat d = mat(v[1], dst);
            cv::cvtColor(mat(v[0], src), d, code);
        });
    };
    convert("rgb_to_grey_u8_c3", CV_8UC3, CV_8UC1, cv::COLOR_RGB2GRAY);
    convert("rgb_to_grey_u16_c3", CV_16UC3, CV_16UC1, cv::COLOR_RGB2GRAY);
    convert("rgb_to_grey_f32_c3", CV_32FC3, CV_32FC1, cv::COLOR_RGB2GRAY);
    convert("grey_to_three_u8_c3", CV_8UC1, CV_8UC3, cv::COLOR_GRAY2BGR);
    convert("grey_to_three_s16_c3", CV_16UC1, CV_16UC3, cv::COLOR_GRAY2BGR);
    convert("grey_to_three_s32_c3", CV_32FC1, CV_32FC3, cv::COLOR_GRAY2BGR);
    convert("reverse_channels_u8_c3", CV_8UC3, CV_8UC3, cv::COLOR_BGR2RGB);
    convert("reverse_channels_s16_c3", CV_16UC3, CV_16UC3, cv::COLOR_BGR2RGB);
    convert("reverse_channels_s32_c3", CV_32FC3, CV_32FC3, cv::COLOR_BGR2RGB);
    convert("three_to_four_u8_c3", CV_8UC3, CV_8UC4, cv::COLOR_BGR2BGRA);
    convert("four_to_three_u8_c3", CV_8UC4, CV_8UC3, cv::COLOR_BGRA2BGR);
    // The planes stand behind the pixels, as many as a pixel has elements.
    const auto layout = [&](const std::string& name, int pixels, int plane) {
        const auto planes = [=](const View* v) {
            std::vector<cv::Mat> all;
            for (int c = 0; c < CV_MAT_CN(pixels); ++c) all.push_back(mat(v[1 + c], plane));
            return all;
        };
        b.peer("interleave_" + name, "OpenCV", [=](const View* v, Size) {
            cv::Mat d = mat(v[0], pixels);
            cv::merge(planes(v), d);
        });
        b.peer("deinterleave_" + name, "OpenCV", [=](const View* v, Size) {
            std::vector<cv::Mat> d = planes(v);
            cv::split(mat(v[0], pixels), d);
        });
    };
    layout("u8_c3", CV_8UC3, CV_8UC1);
    layout("u8_c4", CV_8UC4, CV_8UC1);
    layout("s16_c3", CV_16SC3, CV_16SC1);
    layout("s16_c4", CV_16SC4, CV_16SC1);
    layout("s32_c3", CV_32FC3, CV_32FC1);
    layout("s32_c4", CV_32FC4, CV_32FC1);
    cases::colour_cases(Measure{b});
}

const Family family{"colour", run};

}  // namespace
}  // namespace tarn::bench

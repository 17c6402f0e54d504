// A view as an OpenCV matrix over the same memory.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "cases/case.h"

namespace tarn::bench {

inline cv::Mat mat(const cases::View& v, int type) {
    return cv::Mat(v.size.height, v.size.width, type, v.data, size_t(v.stride));
}

// Element types and forms of pixels, as kernels' names and OpenCV have them. A kept fourth channel is one like any
// other there.
struct Element {
    const char* name;
    int depth;
};
inline constexpr Element kElements[] = {{"u8", CV_8U}, {"s16", CV_16S}, {"s32", CV_32S}, {"f32", CV_32F}};
struct PixelForm {
    const char* name;
    int channels;
};
inline constexpr PixelForm kPixelForms[] = {{"c1", 1}, {"c3", 3}, {"c4", 4}, {"c3x", 4}};

}  // namespace tarn::bench

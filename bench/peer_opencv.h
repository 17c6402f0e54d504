// A view as an OpenCV matrix over the same memory.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "cases/case.h"

namespace tarn::bench {

inline cv::Mat mat(const cases::View& v, int type) {
    return cv::Mat(v.size.height, v.size.width, type, v.data, size_t(v.stride));
}

}  // namespace tarn::bench

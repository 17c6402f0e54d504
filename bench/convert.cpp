// Plane conversions beside OpenCV's.
#include "cases/convert.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

void run(Bench& b) {
    for (const Element& from : kElements)
        for (const Element& to : kElements)
            for (const PixelForm& form : kPixelForms) {
                if (from.depth == to.depth) continue;
                const std::string name = std::string("convert_") + from.name + "_" + to.name + "_" + form.name;
                const int src = CV_MAKETYPE(from.depth, form.channels), dst = CV_MAKETYPE(to.depth, form.channels);
                b.peer(name, "OpenCV", [=](const View* v, Size) {
                    cv::Mat d = mat(v[1], dst);
                    mat(v[0], src).convertTo(d, CV_MAT_DEPTH(dst));
                });
            }
    cases::convert_cases(Measure{b});
}

const Family family{"convert", run};

}  // namespace
}  // namespace tarn::bench

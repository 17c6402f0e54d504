// Morphology beside OpenCV's, which gets the same elements and the same border.
#include "cases/morph.h"

#include "bench.h"
#include "peer_opencv.h"

namespace tarn::bench {
namespace {

using cases::Element;

void run(Bench& b) {
    const auto centred = [](const char* shape, int side) { return Element(shape, {side, side}, {side / 2, side / 2}); };
    const auto elements = [&](const std::string& name) {
        std::vector<Element> list;
        const bool erodes = name.starts_with("erode"), opens = name.starts_with("morph_open");
        if (!name.ends_with("_c1") || !(erodes || opens || name.starts_with("gradient"))) return list;
        const int type = name.find("_u8_") != name.npos ? CV_8U : CV_32F;
        const int op = erodes ? cv::MORPH_ERODE : opens ? cv::MORPH_OPEN : cv::MORPH_GRADIENT;
        for (const int side : {3, 15, 63}) list.push_back(centred("rect", side));
        for (const int side : {5, 15, 31, 63}) list.push_back(centred("ellipse", side));
        list.push_back(centred("cross", 15));
        list.push_back(centred("random", 11));
        for (const Element& e : list)
            b.peer(name + " " + e.name, "OpenCV", [=](const View* v, Size) {
                const cv::Mat src = mat(v[0], type);
                cv::Mat dst = mat(v[1], type);
                const cv::Mat cells(e.size.height, e.size.width, CV_8U, const_cast<uint8_t*>(e.cells.data()));
                cv::morphologyEx(src, dst, op, cells, {e.anchor.x, e.anchor.y}, 1, cv::BORDER_REPLICATE);
            });
        return list;
    };
    cases::morph_cases(elements, Measure{b, {{256, 256}, {1920, 1080}}});
}

const Family family{"morph", run};

}  // namespace
}  // namespace tarn::bench

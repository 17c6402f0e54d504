// Erosion's time against the side of the element: that any element costs little more than a rectangle shows in a plot.
#include "cases/morph.h"

#include "bench.h"
#include "peer_opencv.h"
#include "plot.h"

namespace tarn::bench {
namespace {

using cases::Element;

void run(Bench& b) {
    struct Line {
        const char *kernel, *shape, *colour;
    };
    std::vector<Series> series;
    for (const Line& line : {Line{"erode_u8_c1", "rect", "#1f77b4"}, Line{"erode_u8_c1", "ellipse", "#d62728"},
                             Line{"erode_u8_c1", "cross", "#2ca02c"}, Line{"erode_u8_c1", "random", "#9467bd"},
                             Line{"erode_f32_c1", "ellipse", "#ff7f0e"}}) {
        const bool bytes = std::string(line.kernel) == "erode_u8_c1";
        const std::string name = std::string(bytes ? "u8 " : "f32 ") + line.shape;
        Series ours{name, line.colour, false, {}}, theirs{"OpenCV " + name, line.colour, true, {}};
        const int type = bytes ? CV_8U : CV_32F;
        for (const int side : {3, 5, 7, 9, 11, 15, 21, 31, 45, 63}) {
            const Element e(line.shape, {side, side}, {side / 2, side / 2});
            const std::string row = line.kernel + (" " + e.name);
            b.peer(row, "OpenCV", [=](const View* v, Size) {
                cv::Mat dst = mat(v[1], type);
                const cv::Mat cells(side, side, CV_8U, const_cast<uint8_t*>(e.cells.data()));
                cv::erode(mat(v[0], type), dst, cells, {e.anchor.x, e.anchor.y}, 1, cv::BORDER_REPLICATE);
            });
            const auto elements = [&](const std::string& kernel) {
                return kernel == line.kernel ? std::vector{e} : std::vector<Element>{};
            };
            cases::morph_cases(elements, Measure{b, {{640, 480}}});
            if (const double ns = b.figure(row, "ours")) ours.points.push_back({side, ns});
            if (const double ns = b.figure(row, "OpenCV")) theirs.points.push_back({side, ns});
        }
        for (Series& s : {std::ref(ours), std::ref(theirs)})
            if (s.points.size() > 1) series.push_back(s);
    }
    if (b.options().write && series.size() > 1)
        write_plot(b.options().folder() + "/elements.svg", "Erosion, 640 x 480, one thread",
                   "side of the element, pixels", "ns per pixel", series);
}

const Family family{"elements", run};

}  // namespace
}  // namespace tarn::bench

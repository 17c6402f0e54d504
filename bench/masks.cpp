// The neighbourhood filters' time against the side of the mask: that it stays flat shows in a plot.
#include "cases/filter.h"

#include "bench.h"
#include "peer_opencv.h"
#include "plot.h"

namespace tarn::bench {
namespace {

using Peer = std::function<void(const cv::Mat& src, cv::Mat& dst, int side)>;

struct Lines {
    Bench& bench;
    std::vector<Series> series = {};

    // One kernel of one channel at every side, beside its peer if there is one.
    template <class T>
    void add(const char* name, const k::Kernel<k::Filter>& kernel, const char* colour, int type, const Peer& peer) {
        Series ours{name, colour, false, {}}, theirs{std::string("OpenCV ") + name, colour, true, {}};
        for (const int side : {3, 5, 7, 9, 11, 15, 21, 31, 51, 75, 101, 151, 201}) {
            const Case c = cases::filter_case<T>(name, kernel, 1, false, {{side, side}, {side / 2, side / 2}},
                                                 [](const std::vector<T>& w) { return w[0]; });
            if (peer)
                bench.peer(c.name, "OpenCV", [=](const View* v, Size n) {
                    cv::Mat dst = mat(v[1], type);
                    peer(mat(v[0], type)(cv::Rect(side / 2, side / 2, n.width, n.height)), dst, side);
                });
            bench.row(c, {{640, 480}}, true);
            if (const double ns = bench.figure(c.name, "ours")) ours.points.push_back({side, ns});
            if (const double ns = bench.figure(c.name, "OpenCV")) theirs.points.push_back({side, ns});
        }
        for (Series& s : {std::ref(ours), std::ref(theirs)})
            if (s.points.size() > 1) series.push_back(s);
    }
};

void run(Bench& b) {
    Lines lines{b};
    const Peer box = [](const cv::Mat& s, cv::Mat& d, int side) { cv::boxFilter(s, d, -1, {side, side}); };
    const Peer least = [](const cv::Mat& s, cv::Mat& d, int side) {
        cv::erode(s, d, cv::Mat::ones(side, side, CV_8U));
    };
    const Peer median = [](const cv::Mat& s, cv::Mat& d, int side) { cv::medianBlur(s, d, side); };
    lines.add<uint8_t>("box_u8_c1", k::box_u8_c1, "#1f77b4", CV_8UC1, box);
    lines.add<float>("box_f32_c1", k::box_f32_c1, "#17becf", CV_32FC1, box);
    lines.add<uint8_t>("filter_min_u8_c1", k::filter_min_u8_c1, "#2ca02c", CV_8UC1, least);
    lines.add<uint8_t>("median_u8_c1", k::median_u8_c1, "#d62728", CV_8UC1, median);
    lines.add<int16_t>("median_s16_c1", k::median_s16_c1, "#9467bd", CV_16SC1, {});
    if (b.options().write && lines.series.size() > 1)
        write_plot(b.options().folder() + "/masks.svg", "Filters, 640 x 480, one thread", "side of the mask, pixels",
                   "ns per pixel", lines.series);
}

const Family family{"masks", run};

}  // namespace
}  // namespace tarn::bench

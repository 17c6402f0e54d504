// Thresholds beside OpenCV's, as whole operations: on a photograph and on noise, of which the histogram's counts are
// spread.
#include <cfloat>
#include <random>

#include "bench.h"
#include "host.h"
#include "image.h"
#include "peer_opencv.h"
#include "tarn.h"

namespace tarn::bench {
namespace {

cv::Mat photograph(cv::Size size) {
    const tool::Image sample = tool::read_image(TARN_SAMPLES "/rocket.jpg");
    const cv::Mat colour(sample.height(), sample.width(), CV_8UC3, const_cast<uint8_t*>(sample.row(0)),
                         size_t(sample.stride));
    cv::Mat grey, sized;
    cv::cvtColor(colour, grey, cv::COLOR_RGB2GRAY);
    cv::resize(grey, sized, size, 0, 0, cv::INTER_CUBIC);
    return sized;
}

cv::Mat noise(cv::Size size) {
    cv::Mat image(size, CV_8UC1);
    std::mt19937 rng(4);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) image.at<uint8_t>(y, x) = uint8_t(rng() >> 9);
    return image;
}

void rows(Bench& b, Host& host, const char* what, const cv::Mat& src) {
    cv::Mat dst(src.size(), CV_8UC1), other(src.size(), CV_8UC1);
    const auto view = [](const cv::Mat& m) {
        return LumoMAT{nullptr, LUMO_U8 | LUMO_CHANNELS(1), m.cols, m.rows, int32_t(m.step), m.data};
    };
    const LumoMAT from = view(src);
    LumoMAT to = view(dst);
    const QuelOP threshold = host.find("threshold"), level = host.find("calcthresh_otsu");
    const auto ours = [&](const TarnTHROPTIONS& options, float value, float offset = 0) {
        return Contender{"ours", [&, options, value, offset] {
                             TarnTHRSPEC spec = {TARN_GREATER, TARN_ALL_CHANNELS, value, offset, nullptr, 255, 0, 0, 0};
                             reinterpret_cast<TarnThreshold>(threshold.entry)(&threshold.call, nullptr, nullptr, &to,
                                                                              &from, nullptr, &options, 1, &spec);
                         }};
    };
    const std::string size = std::to_string(src.cols) + " x " + std::to_string(src.rows);
    const double pixels = double(src.cols) * src.rows;
    const int64_t bytes = int64_t(src.total());
    const Contender limit{"limit", [&] { copy_streams({{src.data, bytes}}, {{dst.data, bytes}}); }};
    const auto row = [&](const std::string& name, const Contender& a, std::function<void()> peer) {
        if (b.wants(name)) b.row(name + ", " + what, size, pixels, {a, {"OpenCV", std::move(peer)}, limit});
    };
    row("Otsu's level",
        {"ours",
         [&] {
             const float bounds[] = {0, 255};
             reinterpret_cast<TarnCalcthreshOtsu>(level.entry)(&level.call, nullptr, nullptr, &from, bounds, 256);
         }},
        [&] {
            const int channel = 0, bins = 256;
            const float range[] = {0, 256}, *ranges = range;
            cv::Mat counts;
            cv::calcHist(&src, 1, &channel, {}, counts, 1, &bins, &ranges);
        });
    row("fixed", ours({}, 100), [&] { cv::threshold(src, other, 100, 255, cv::THRESH_BINARY); });
    TarnTHROPTIONS otsu = {TARN_THRESHOLD_OTSU, {}};
    row("Otsu", ours(otsu, 0), [&] { cv::threshold(src, other, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU); });
    otsu.of.otsu = {64, 64, 1, 0, 256, 0, 255, 0};
    row("Otsu, tiles of 64", ours(otsu, 0), [&] {
        for (int y = 0; y < src.rows; y += 64)
            for (int x = 0; x < src.cols; x += 64) {
                const cv::Rect tile = cv::Rect(x, y, 64, 64) & cv::Rect(0, 0, src.cols, src.rows);
                cv::Mat part = other(tile);
                cv::threshold(src(tile), part, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
            }
    });
    for (const int side : {15, 51}) {
        TarnTHROPTIONS adaptive = {TARN_THRESHOLD_ADAPTIVE, {}};
        adaptive.of.adaptive = {side / 2, side / 2, side, side, {}};
        row("adaptive mean " + std::to_string(side), ours(adaptive, 0, -5), [&, side] {
            cv::adaptiveThreshold(src, other, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, side, 5);
        });
    }
}

void run(Bench& b) {
    Host host;
    for (const Size n : b.sizes_of({{256, 256}, {1920, 1080}})) {
        const cv::Size size(n.width, n.height);
        rows(b, host, "photograph", photograph(size));
        rows(b, host, "noise", noise(size));
    }
}

const Family family{"threshold", run};

}  // namespace
}  // namespace tarn::bench

// Warps beside OpenCV's: turns about the middle at five angles and three scales, and the time against the angle. OpenCV
// leaves what is not mapped alone, as the kernels do, and is given the way back, so that it need not invert.
#include "cases/warp.h"

#include "bench.h"
#include "peer_opencv.h"
#include "plot.h"

namespace tarn::bench {
namespace {

struct Mode {
    const char* name;
    const k::KernelSet<k::Warp>& kernels;
    int opencv;
    const char* colour;
};
const Mode kModes[] = {{"nearest", k::warp_nearest_kernels, cv::INTER_NEAREST, "#2ca02c"},
                       {"linear", k::warp_linear_kernels, cv::INTER_LINEAR, "#1f77b4"},
                       {"cubic", k::warp_cubic_kernels, cv::INTER_CUBIC, "#d62728"},
                       {"lanczos", k::warp_lanczos_kernels, cv::INTER_LANCZOS4, "#9467bd"}};

struct Type {
    const char* name;
    k::Type type;
    k::Form form;
    int opencv;
};
constexpr Type kTypes[] = {{"u8_c1", k::Type::u8, k::Form::c1, CV_8UC1},
                           {"u8_c3", k::Type::u8, k::Form::c3, CV_8UC3},
                           {"u8_c4", k::Type::u8, k::Form::c4, CV_8UC4},
                           {"s16_c1", k::Type::s16, k::Form::c1, CV_16SC1},
                           {"f32_c1", k::Type::f32, k::Form::c1, CV_32FC1}};

// One kernel turning by an angle and a scale, source and destination of one size, beside OpenCV.
template <class T>
void turn_row(Bench& b, const Mode& mode, const Type& type, double degrees, double scale, std::vector<Size> sizes) {
    char shape[40];
    snprintf(shape, sizeof shape, " %g degrees x %g", degrees, scale);
    const std::string name = std::string("warp_") + mode.name + "_" + type.name + shape;
    if (!b.wants(name)) return;
    const auto by = [=](Size n) {
        const double x = (n.width - 1) / 2.0, y = (n.height - 1) / 2.0;
        return cases::turn(degrees, scale, x, y, x, y);
    };
    const int channels = k::channels(type.form);
    const k::Kernel<k::Warp>& kernel = *mode.kernels.find(type.type, type.form);
    const Case c{name,
                 {cases::in<T>(channels), cases::inout<T>(channels)},
                 [=, &kernel](const View* v, Size n) {
                     const k::Region all{0, 0, n.width, n.height};
                     return kernel(v[0].data, v[0].stride, n, all, v[1].data, v[1].stride, all, by(n));
                 },
                 {}};
    b.peer(name, "OpenCV", [=, interpolation = mode.opencv, opencv = type.opencv](const View* v, Size n) {
        const cases::Back m(by(n));
        cv::Mat dst = mat(v[1], opencv);
        cv::warpAffine(mat(v[0], opencv), dst, cv::Matx23d(m.a, m.b, m.tx, m.c, m.d, m.ty), dst.size(),
                       interpolation | cv::WARP_INVERSE_MAP, cv::BORDER_TRANSPARENT);
    });
    b.row(c, sizes);
}

void turn_row(Bench& b, const Mode& mode, const Type& type, double degrees, double scale, std::vector<Size> sizes) {
    switch (type.type) {
        case k::Type::s16:
            return turn_row<int16_t>(b, mode, type, degrees, scale, sizes);
        case k::Type::f32:
            return turn_row<float>(b, mode, type, degrees, scale, sizes);
        default:
            return turn_row<uint8_t>(b, mode, type, degrees, scale, sizes);
    }
}

// The time of the first kernel of each mode at many angles, as a plot.
void against_the_angle(Bench& b) {
    std::vector<Series> series;
    for (const Mode& mode : kModes) {
        Series ours{std::string("warp_") + mode.name, mode.colour, false, {}},
            theirs{std::string("OpenCV ") + mode.name, mode.colour, true, {}};
        for (const double degrees : {0, 1, 5, 10, 17, 25, 35, 45, 55, 65, 75, 80, 85, 89, 90}) {
            turn_row(b, mode, kTypes[0], degrees, 1, {{1920, 1080}});
            char shape[40];
            snprintf(shape, sizeof shape, " %g degrees x 1", degrees);
            const std::string name = std::string("warp_") + mode.name + "_" + kTypes[0].name + shape;
            if (const double ns = b.figure(name, "ours")) ours.points.push_back({degrees, ns});
            if (const double ns = b.figure(name, "OpenCV")) theirs.points.push_back({degrees, ns});
        }
        for (Series& s : {std::ref(ours), std::ref(theirs)})
            if (s.points.size() > 1) series.push_back(s);
    }
    if (b.options().write && !series.empty())
        write_plot(b.options().folder() + "/warp.svg",
                   "Warps of 8-bit grey turned about the middle, 1920 x 1080, one thread", "degrees", "ns per pixel",
                   series, false);
}

void run(Bench& b) {
    for (const Mode& mode : kModes)
        for (const Type& type : kTypes)
            for (const double degrees : {0, 1, 17, 45, 89, 90})
                for (const double scale : {0.5, 0.9, 2.0})
                    turn_row(b, mode, type, degrees, scale, {{512, 512}, {1920, 1080}});
    // Moves of whole pixels, the same in every mode.
    for (const Type& type : kTypes)
        for (const double degrees : {0, 90, 180})
            turn_row(b, kModes[0], type, degrees, 1, {{512, 512}, {1920, 1080}, {4096, 4096}});
    against_the_angle(b);
}

const Family family{"warp", run};

}  // namespace
}  // namespace tarn::bench

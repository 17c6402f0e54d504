// Whole operations on small pictures, as callers of many small ones see them: what a call costs before its first pixel.
#include "bench.h"
#include "host.h"
#include "peer_opencv.h"
#include "tarn.h"

namespace tarn::bench {
namespace {

struct Type {
    const char* name;
    LumoELEMTYPE lumo;
    int opencv;
};
constexpr Type kTypes[] = {{"u8_c1", LUMO_U8 | LUMO_CHANNELS(1), CV_8UC1},
                           {"u8_c3", LUMO_U8 | LUMO_CHANNELS(3), CV_8UC3},
                           {"f32_c1", LUMO_F32 | LUMO_CHANNELS(1), CV_32FC1}};

LumoMAT view(const cv::Mat& m, LumoELEMTYPE type) { return {nullptr, type, m.cols, m.rows, int32_t(m.step), m.data}; }

// Pictures of a type and size, as both sides see them. Both write the same results, but for those of half the size.
struct Pictures {
    Pictures(const Type& type, int side)
        : a(side, side, type.opencv), b(side, side, type.opencv), half(side / 2, side / 2, type.opencv) {
        cv::randu(a, 0, 255), cv::randu(b, 0, 255);
        to = a.clone(), small = half.clone(), mask = cv::Mat(side, side, CV_8UC1);
        va = view(a, type.lumo), vb = view(b, type.lumo), vto = view(to, type.lumo), vsmall = view(half, type.lumo);
        vmask = view(mask, LUMO_U8 | LUMO_CHANNELS(1));
        bytes = cv::Mat(side, side, CV_MAKETYPE(CV_8U, a.channels()));
        vbytes = view(bytes, LUMO_U8 | LUMO_CHANNELS(a.channels()));
    }
    cv::Mat a, b, half, to, small, mask, bytes;
    LumoMAT va, vb, vto, vsmall, vmask, vbytes;
};

class Calls {
public:
    Calls(Bench& bench, Host& host, const Type& type, int side)
        : bench_(bench), host_(host), type_(type), side_(side) {}

    template <class Fn, class F, class... Args>
    void row(const char* operation, const std::string& how, F opencv, Args... args) {
        const QuelOP op = host_.find(("tarn::" + std::string(operation)).c_str());
        const auto ours = [&] { reinterpret_cast<Fn>(op.entry)(&op.call, nullptr, nullptr, args...); };
        bench_.row(std::string(operation) + how + " " + type_.name,
                   std::to_string(side_) + " x " + std::to_string(side_), 1, {{"ours", ours}, {"OpenCV", opencv}});
    }

private:
    Bench& bench_;
    Host& host_;
    const Type& type_;
    int side_;
};

void calls_of(Bench& b, Host& host, const Type& type, int side) {
    Pictures p(type, side);
    Calls calls(b, host, type, side);
    const bool floats = p.a.depth() == CV_32F;
    const float constants[] = {9, 4, 7}, scale[] = {.5f, .5f, .5f}, offset[] = {1, 1, 1};
    const cv::Scalar scalar(9, 4, 7);
    const LumoMAT* sources[] = {&p.va, &p.vb};
    cv::Mat to = p.to, small = p.small, bytes = p.bytes, mask = p.mask;

    calls.row<TarnCopy>(
        "copy", "", [&] { p.a.copyTo(to); }, &p.vto, &p.va);
    calls.row<TarnSet>(
        "set", "", [&] { to.setTo(scalar); }, &p.vto, constants, nullptr);
    if (!floats)
        calls.row<TarnLogic>(
            "and", "", [&] { cv::bitwise_and(p.a, p.b, to); }, &p.vto, &p.va, &p.vb);
    if (p.a.channels() == 1)
        calls.row<TarnCmp>(
            "cmp", "", [&] { cv::compare(p.a, p.b, mask, cv::CMP_GT); }, &p.vmask, &p.va, &p.vb, TARN_GREATER);
    calls.row<TarnArithC>(
        "add-c", "", [&] { cv::add(p.a, scalar, to); }, &p.vto, &p.va, constants);
    calls.row<TarnArithN>(
        "add-n", "", [&] { cv::add(p.a, p.b, to); }, &p.vto, 2, sources);
    cv::Scalar mean;
    float means[3], largest[3];
    double least, most;
    calls.row<TarnMean>(
        "mean", "", [&] { mean = cv::mean(p.a); }, means, &p.va);
    if (p.a.channels() == 1)
        calls.row<TarnMinMax>(
            "minmax", "", [&] { cv::minMaxLoc(p.a, &least, &most); }, means, largest, &p.va);
    calls.row<TarnConvertScale>(
        "convert-scale", "", [&] { p.a.convertTo(bytes, CV_8U, .5, 1); }, &p.vbytes, &p.va, scale, offset);
    const std::pair<const char*, std::pair<uint32_t, int>> modes[] = {{" nearest", {TARN_NEAREST, cv::INTER_NEAREST}},
                                                                      {" linear", {TARN_LINEAR, cv::INTER_LINEAR}},
                                                                      {" cubic", {TARN_CUBIC, cv::INTER_CUBIC}},
                                                                      {" Lanczos", {TARN_LANCZOS, cv::INTER_LANCZOS4}}};
    LumoAWARP warp;
    _LumoAWARPshift(&warp, .25, .25);
    warp.a = warp.d = .9, warp.b = .1, warp.c = -.1;
    const double forward[] = {warp.a, warp.b, warp.tx, warp.c, warp.d, warp.ty};
    const cv::Mat matrix(2, 3, CV_64F, const_cast<double*>(forward));
    for (const auto& [name, mode] : modes) {
        calls.row<TarnScaleResize>(
            "scale-resize", name + std::string(", half"),
            [&, m = mode.second] { cv::resize(p.a, small, small.size(), 0, 0, m); }, &p.vsmall, &p.va, nullptr, nullptr,
            mode.first);
        calls.row<TarnScaleResize>(
            "scale-resize", name + std::string(", to twice"),
            [&, m = mode.second] { cv::resize(small, to, to.size(), 0, 0, m); }, &p.vto, &p.vsmall, nullptr, nullptr,
            mode.first);
        calls.row<TarnWarpAffine>(
            "warp-affine", name,
            [&, m = mode.second] { cv::warpAffine(p.a, to, matrix, to.size(), m, cv::BORDER_TRANSPARENT); }, &p.vto,
            &p.va, &warp, mode.first);
    }
    const TarnMASK three = {1, 1, 3, 3};
    calls.row<TarnFilter>(
        "filter", " box 3 x 3",
        [&] {
            cv::blur(p.a, to, {3, 3}, {-1, -1}, cv::BORDER_REPLICATE);
        },
        &p.vto, &p.va, nullptr, TARN_FILTER_BOX, &three);
    calls.row<TarnFilter>(
        "filter", " min 3 x 3",
        [&] {
            cv::erode(p.a, to, cv::Mat(), {-1, -1}, 1, cv::BORDER_REPLICATE);
        },
        &p.vto, &p.va, nullptr, TARN_FILTER_MIN, &three);
    if (!floats)
        calls.row<TarnFilter>(
            "filter", " median 3 x 3", [&] { cv::medianBlur(p.a, to, 3); }, &p.vto, &p.va, nullptr, TARN_FILTER_MEDIAN,
            &three);
}

void run(Bench& b) {
    Host host;
    for (const int side : {8, 64})
        for (const Type& type : kTypes) calls_of(b, host, type, side);
}

const Family family{"calls", run};

}  // namespace
}  // namespace tarn::bench

// Commands of the affine warps. Alpha is warped by itself, as one more channel; where nothing of the picture lands is
// background.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <utility>

#include "batch.h"
#include "commands.h"
#include "error.h"
#include "kinds.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {
namespace {

struct WarpOptions {
    Files files;
    std::string size, background, interpolation = "linear", depth = "same";
};

void add_warp_options(CLI::App& app, WarpOptions& options) {
    add_pictures(app, options.files);
    add_option(app, "--size", options.size, "width and height of the result (default: the picture's)").type_name("WxH");
    add_option(app, "--background", options.background,
               "where nothing lands: one value for all colour channels or one for each, then one for alpha "
               "(default: opaque); without it all are 0, so that alpha is transparent there")
        .type_name("V[,V,V,A]");
    add_option(app, "--interpolation", options.interpolation, "nearest, linear (default), cubic or lanczos")
        .type_name("MODE");
    add_option(app, "--depth", options.depth,
               "samples of the result: same (default), u8, u16, s16 or f32; values saturate")
        .type_name("TYPE");
}

// Reads the picture, gives its size to frame(width, height), which says the result's shape and may choose the warp by
// it, and warps part by part: warp(operation text, dst, src, interpolation) calls the operation and says whether
// anything landed in the result.
template <class Frame, class Warp>
void run_warp(const WarpOptions& options, const char* operation, const std::string& subject, Frame&& frame,
              Warp&& warp) {
    const Files& files = options.files;
    const uint32_t interpolation = parse_interpolation(options.interpolation);
    const std::optional<Sample> depth = parse_depth(options.depth);

    ImageOutput out(files);
    Image source = read_input(files);
    require_samples(source, files.inputs[0], operation + 6, samples_of(operation));
    Shape shape = source.shape;
    frame(shape);
    if (depth) shape.sample = *depth;
    if (shape.sample == Sample::s16 || shape.sample == Sample::f32) shape.white_is_zero = false;
    out.check(shape);
    auto background = options.background.empty()
                          ? std::vector<float>(size_t(shape.channels), shape.sample == Sample::u16 ? -kOffset16 : 0)
                          : parse_pixel(options.background, "--background", shape);
    // What changes the type is worked out in floats where 16 bits without a sign come or go.
    Shape worked = shape;
    if (depth && source.shape.sample == Sample::u16) source = as_floats(source);
    if (depth && shape.sample == Sample::u16) {
        worked.sample = Sample::f32;
        for (float& value : background) value += kOffset16;
    }

    const Module module;
    Timing filling, timing{files.time};
    Operation set(module, "tarn::set", filling), call(module, operation, timing);
    const Progress progress("warping " + files.inputs[0]);
    Image result = by_parts(source, worked, subject, [&](Image& to, const Image& from, bool alpha) {
        LumoMAT dst = to.view();
        const LumoMAT src = from.view();
        const std::string given = describe(from.shape) + " to " + describe(to.shape);
        set.call<TarnSet>(given, &dst, background.data() + (alpha ? shape.channels - 1 : 0),
                          static_cast<const LumoMAT*>(nullptr));
        warp(call, given, &dst, &src, interpolation);
    });
    out.write(from_floats(std::move(result), shape));
    print_time(files, timing);
}

// ---- By coefficients ----------------------------------------------------------------------------------------------

struct WarpAffine : WarpOptions {
    std::string matrix, rotate, scale, center;
    bool fit = false;
};

// Whether it carries the plane onto a line or a point.
bool is_singular(double a, double b, double c, double d) {
    return !(std::abs(a * d - b * c) > 0x1p-50 * (std::abs(a * d) + std::abs(b * c)));
}

// A turn counter-clockwise as seen, y downwards, in place; quarter turns are exact.
LumoAWARP turn(double degrees, double scale) {
    degrees = std::fmod(degrees, 360);
    const double rest = std::remainder(degrees, 90), angle = rest * std::acos(-1.0) / 180;
    double c = std::cos(angle), s = std::sin(angle);
    for (int quarters = int(std::lround((degrees - rest) / 90)) & 3; quarters > 0; --quarters)
        c = std::exchange(s, c), c = -c;
    return {c * scale, s * scale, 0, -s * scale, c * scale, 0};
}

// The linear part of the warp, and with --matrix its shift.
LumoAWARP parse_warp(const WarpAffine& options) {
    const bool turned = !options.rotate.empty() || !options.scale.empty();
    if (options.matrix.empty()) {
        if (!turned) usage("--matrix", "is missing", "give --matrix a,b,tx,c,d,ty or --rotate DEGREES or --scale F");
        const double factor = options.scale.empty() ? 1 : parse_number(options.scale, "--scale");
        if (factor <= 0) usage("--scale", "'" + options.scale + "' is not above 0", "give a factor such as 0.5");
        return turn(options.rotate.empty() ? 0 : parse_number(options.rotate, "--rotate"), factor);
    }
    if (turned || !options.center.empty())
        usage(!options.rotate.empty()  ? "--rotate"
              : !options.scale.empty() ? "--scale"
                                       : "--center",
              "can't go with --matrix, which has it all", "leave one of them out");
    const auto m = parse_numbers(options.matrix, "--matrix", 6);
    if (is_singular(m[0], m[1], m[3], m[4]))
        usage("--matrix", "'" + options.matrix + "' carries the picture onto a line or a point",
              "give one whose a x d is not b x c");
    return {m[0], m[1], m[2], m[3], m[4], m[5]};
}

// Shifts a warp so that a point is carried to a point.
void carry(LumoAWARP& warp, TarnCORNER from, TarnCORNER to) {
    warp.tx = to.x - (warp.a * from.x + warp.b * from.y);
    warp.ty = to.y - (warp.c * from.x + warp.d * from.y);
}

// The middle of a picture, where pixel centres have whole coordinates.
TarnCORNER middle(int64_t width, int64_t height) { return {double(width - 1) / 2, double(height - 1) / 2}; }

// How many columns or rows hold all that the centres of the picture's pixels span when it is carried.
int64_t spanned(double across, double down) {
    // The least that is lost would be a column's edge that lies on the last centre but for rounding.
    const double span = std::floor(std::abs(across) + std::abs(down) + 1e-6);
    if (!(span < INT32_MAX))
        fail("--fit", "makes more than 2147483647 pixels a side", "choose a smaller factor, or --size");
    return int64_t(span) + 1;
}

void run_warp_affine(const WarpAffine& options) {
    LumoAWARP by = parse_warp(options);
    if (options.fit && (!options.size.empty() || !options.center.empty()))
        usage("--fit", std::string("can't go with ") + (options.size.empty() ? "--center" : "--size"),
              "it chooses size and place itself; leave one of them out");
    const PixelSize size = options.size.empty() ? PixelSize{} : parse_size(options.size, "--size");
    const auto center = options.center.empty() ? std::vector<double>{} : parse_numbers(options.center, "--center", 2);
    const char* subject = options.fit ? "--fit" : "--size";
    const auto frame = [&](Shape& shape) {
        const int64_t width = shape.width, height = shape.height;
        if (!options.size.empty()) shape.width = size.width, shape.height = size.height;
        if (options.fit) {
            shape.width = spanned(by.a * double(width - 1), by.b * double(height - 1));
            shape.height = spanned(by.c * double(width - 1), by.d * double(height - 1));
        }
        if (!center.empty())
            carry(by, {center[0], center[1]}, {center[0], center[1]});
        else if (options.matrix.empty() || options.fit)
            carry(by, middle(width, height), middle(shape.width, shape.height));
    };
    run_warp(options, "tarn::warp-affine", subject, frame,
             [&](Operation& call, const std::string& given, LumoMAT* dst, const LumoMAT* src, uint32_t interpolation) {
                 if (call.call<TarnWarpAffine>(given, dst, src, &by, interpolation)) return;
                 fail(options.files.output,
                      "would be nothing but background: no pixel of " + options.files.inputs[0] + " is carried into it",
                      "change the warp, or let --fit choose size and place");
             });
}

// ---- By corners ---------------------------------------------------------------------------------------------------

struct WarpAffineQuad : WarpOptions {
    std::string from, to;
};

std::optional<TarnQUAD> parse_quad(const std::string& text, const char* option) {
    if (text.empty()) return {};
    const auto v = parse_numbers(text, option, 8);
    const TarnQUAD quad = {{{v[0], v[1]}, {v[2], v[3]}, {v[4], v[5]}, {v[6], v[7]}}};
    if (is_singular(v[2] - v[0], v[4] - v[2], v[3] - v[1], v[5] - v[3]))
        usage(option, "the first three corners of '" + text + "' lie on a line",
              "give the corners of a parallelogram: top left, top right, bottom right, bottom left");
    return quad;
}

TarnQUAD corners(const Shape& shape) {
    const double right = double(shape.width - 1), bottom = double(shape.height - 1);
    return {{{0, 0}, {right, 0}, {right, bottom}, {0, bottom}}};
}

// How far the fourth corner lies from where the warp of the first three puts it: (u, v) are its steps along the edges.
double misfit(const TarnQUAD& from, const TarnQUAD& to) {
    const auto &s = from.corners, &d = to.corners;
    const double ux = s[1].x - s[0].x, uy = s[1].y - s[0].y, vx = s[2].x - s[1].x, vy = s[2].y - s[1].y;
    const double px = s[3].x - s[0].x, py = s[3].y - s[0].y, determinant = ux * vy - uy * vx;
    const double u = (px * vy - py * vx) / determinant, v = (ux * py - uy * px) / determinant;
    return std::hypot(d[0].x + u * (d[1].x - d[0].x) + v * (d[2].x - d[1].x) - d[3].x,
                      d[0].y + u * (d[1].y - d[0].y) + v * (d[2].y - d[1].y) - d[3].y);
}

void run_warp_affine_quad(const WarpAffineQuad& options) {
    const auto from = parse_quad(options.from, "--from"), to = parse_quad(options.to, "--to");
    if (!from && !to)
        usage(
            "--from", "is missing, and --to is too",
            "give the corners in the picture, in the result, or both: top left, top right, bottom right, bottom left");
    const PixelSize size = options.size.empty() ? PixelSize{} : parse_size(options.size, "--size");
    double beside = 0;
    const auto frame = [&](Shape& shape) {
        const TarnQUAD of_picture = corners(shape);
        if (!options.size.empty()) shape.width = size.width, shape.height = size.height;
        beside = misfit(from.value_or(of_picture), to.value_or(corners(shape)));
    };
    run_warp(options, "tarn::warp-affine-quad", "--size", frame,
             [&](Operation& call, const std::string& given, LumoMAT* dst, const LumoMAT* src, uint32_t interpolation) {
                 call.call<TarnWarpAffineQuad>(given, dst, src, from ? &*from : nullptr, to ? &*to : nullptr,
                                               interpolation);
             });
    // Corners are often given as whole pixels, so that less than one says nothing.
    if (beside > 1)
        std::cerr << "tarn: " << (to ? "--to" : "--from") << ": the fourth corner lies " << std::round(beside * 10) / 10
                  << " pixels beside where the first three put it; it was not looked at: an affine warp keeps "
                     "parallels\n";
}

}  // namespace

Run setup_warp_affine(CLI::App& app) {
    const auto options = std::make_shared<WarpAffine>();
    add_warp_options(app, *options);
    add_option(app, "--matrix", options->matrix,
               "where the picture's pixel x,y goes: x' = a x + b y + tx, y' = c x + d y + ty; the centre of the "
               "first pixel is 0,0")
        .type_name("A,B,TX,C,D,TY");
    add_option(app, "--rotate", options->rotate, "turn counter-clockwise by so many degrees").type_name("DEG");
    add_option(app, "--scale", options->scale, "enlarge by a factor, also with --rotate").type_name("F");
    add_option(app, "--center", options->center,
               "pixel that --rotate and --scale leave where it is (default: the picture's middle comes to the "
               "result's)")
        .type_name("X,Y");
    add_flag(app, "--fit", options->fit, "the result holds the whole picture, no more and no less");
    return each_picture(options->files, [options] { run_warp_affine(*options); });
}

Run setup_warp_affine_quad(CLI::App& app) {
    const auto options = std::make_shared<WarpAffineQuad>();
    add_warp_options(app, *options);
    add_option(app, "--from", options->from,
               "corners in the picture: top left, top right, bottom right, bottom left; the first three count "
               "(default: the picture's corner pixels)")
        .type_name("X,Y,X,Y,X,Y,X,Y");
    add_option(app, "--to", options->to,
               "the same in the result: where these corners go (default: the result's corner pixels)")
        .type_name("X,Y,X,Y,X,Y,X,Y");
    return each_picture(options->files, [options] { run_warp_affine_quad(*options); });
}

}  // namespace tarn::tool

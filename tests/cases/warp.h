// Cases of the warps: every kernel over turns, shears and scales, from and to whole planes and regions. Nearest is
// compared with a plain loop; the others between levels here, and with the real values in kernels/warp_test.cpp.
#pragma once

#include <cmath>
#include <cstring>

#include "cases/case.h"
#include "kernels/warp/warp.h"

namespace tarn::cases {

// Where a destination pixel comes from.
struct Position {
    double x, y;
    // c: a region's pixel centres, with the tolerance.
    bool within(const k::Region& c) const {
        constexpr double kTolerance = 1.0 / (1 << 20);
        return x >= c.x - kTolerance && x <= c.x + c.width - 1.0 + kTolerance && y >= c.y - kTolerance &&
               y <= c.y + c.height - 1.0 + kTolerance;
    }
    // To 2^-32 of a pixel.
    static double rounded(double v) { return std::nearbyint(v * 4294967296.0) / 4294967296.0; }
};

// The way back from the destination, in double, one operation after the other.
struct Back {
    double a, b, tx, c, d, ty;
    explicit Back(const k::Affine& m) {
        const double determinant = m.a * m.d - m.b * m.c;
        a = m.d / determinant, b = -m.b / determinant, tx = (m.b * m.ty - m.d * m.tx) / determinant;
        c = -m.c / determinant, d = m.a / determinant, ty = (m.c * m.tx - m.a * m.ty) / determinant;
    }
    Position operator()(double x, double y) const { return {a * x + (b * y + tx), c * x + (d * y + ty)}; }
};

// A turn in degrees, scaled, that carries a point of the source to one of the destination.
inline k::Affine turn(double degrees, double scale, double x, double y, double to_x, double to_y) {
    const double angle = degrees * std::acos(-1.0) / 180, c = std::cos(angle) * scale, s = std::sin(angle) * scale;
    return {c, -s, to_x - (c * x - s * y), s, c, to_y - (s * x + c * y)};
}

struct WarpShape {
    const char* name;
    double degrees, scale, shear;
    int margin;  // pixels around the regions of source and destination

    Size source(Size n) const {
        const bool aside = degrees > 45 && degrees < 135;
        return {(aside ? n.height : n.width) + 2 * margin, (aside ? n.width : n.height) + 2 * margin};
    }
    k::Region from(Size n) const {
        const Size s = source(n);
        return {margin, margin, s.width - 2 * margin, s.height - 2 * margin};
    }
    Size destination(Size n) const { return n; }
    k::Region to(Size n) const {
        const int by = margin && n.width > 2 && n.height > 2 ? 1 : 0;
        return {by, by, n.width - 2 * by, n.height - 2 * by};
    }
    k::Affine warp(Size n) const {
        const Size s = source(n);
        const auto middle = [](int32_t side) { return (side - 1.0) / 2; };
        k::Affine m = turn(degrees, scale, middle(s.width), middle(s.height), middle(n.width), middle(n.height));
        m.b += shear;
        return m;
    }
};
inline const std::vector<WarpShape>& warp_shapes() {
    static const std::vector<WarpShape> all = {{"17 degrees", 17, 0.9, 0, 0}, {"89 degrees", 89, 1, 0, 3},
                                               {"90 degrees", 90, 1, 0, 0},   {"sheared", -3, 1.1, 0.4, 2},
                                               {"twice", 0, 2, 0, 0},         {"135 degrees", 135, 0.5, 0, 0}};
    return all;
}

template <class T>
void nearest_expected(const View& s, const View& d, const WarpShape& shape, Size n, const k::Affine& warp, int channels,
                      int used) {
    const Back back(warp);
    const k::Region to = shape.to(n);
    for (int y = to.y; y < to.y + to.height; ++y)
        for (int x = to.x; x < to.x + to.width; ++x) {
            const Position p = back(x, y);
            if (!p.within(shape.from(n))) continue;
            const auto sx = int(std::floor(Position::rounded(p.x) + 0.5)),
                       sy = int(std::floor(Position::rounded(p.y) + 0.5));
            std::memcpy(d.row<T>(y) + x * channels, s.row<T>(sy) + sx * channels, size_t(used) * sizeof(T));
        }
}

template <class Visit>
void warp_cases(Visit&& visit) {
    const auto mode = [&](const char* name, const k::KernelSet<k::Warp>& kernels, bool nearest) {
        each_kernel<uint8_t, int16_t, float>(name, kernels, [&]<class T>(T, const Listed<k::Warp>& k) {
            for (const WarpShape& shape : warp_shapes()) {
                Case c{k.name + " " + shape.name, {in<T>(k.channels), inout<T>(k.channels)}, {}, {}};
                c.planes[0].size_of = [shape](Size n) { return shape.source(n); };
                c.run = [k, shape](const View* v, Size n) {
                    const Status s = k(v[0].data, v[0].stride, v[0].size, shape.from(n), v[1].data, v[1].stride,
                                       shape.to(n), shape.warp(n));
                    return s == k::kNothingMapped ? k::kOk : s;
                };
                if (nearest)
                    c.expect = [k, shape](const View* v, Size n) {
                        nearest_expected<T>(v[0], v[1], shape, n, shape.warp(n), k.channels, k.used);
                    };
                visit(c);
            }
        });
    };
    mode("warp_nearest", k::warp_nearest_kernels, true);
    mode("warp_linear", k::warp_linear_kernels, false);
    mode("warp_cubic", k::warp_cubic_kernels, false);
    mode("warp_lanczos", k::warp_lanczos_kernels, false);
}

}  // namespace tarn::cases

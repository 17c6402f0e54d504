// Affine warps as 2 x 3 matrices.
#include <math.h>

#include <initializer_list>

#include "lumo.h"

void _LumoAWARPshift(LumoAWARP* warp, double dx, double dy) { *warp = {1, 0, dx, 0, 1, dy}; }

int64_t _LumoAWARPback(LumoAWARP* inverse, const LumoAWARP* warp) {
    const LumoAWARP w = *warp;
    const double determinant = w.a * w.d - w.b * w.c;
    if (determinant == 0 || !isfinite(determinant)) return -1;
    const double a = w.d / determinant, b = -w.b / determinant, c = -w.c / determinant, d = w.a / determinant;
    const double tx = -(a * w.tx + b * w.ty), ty = -(c * w.tx + d * w.ty);
    // A determinant close to nothing leaves no usable numbers either.
    for (const double value : {a, b, tx, c, d, ty})
        if (!isfinite(value)) return -1;
    *inverse = {a, b, tx, c, d, ty};
    return 0;
}

void _LumoAWARPaddI(LumoAWARP* warp, const LumoAWARP* then) {
    const LumoAWARP w = *warp, t = *then;
    *warp = {t.a * w.a + t.b * w.c, t.a * w.b + t.b * w.d, t.a * w.tx + t.b * w.ty + t.tx,
             t.c * w.a + t.d * w.c, t.c * w.b + t.d * w.d, t.c * w.tx + t.d * w.ty + t.ty};
}

void _LumoAWARPrect(LumoRECT* result, const LumoRECT* rect, const LumoAWARP* warp) {
    const LumoAWARP w = *warp;
    if (LumoRECTnull(rect)) {
        *result = {0, 0, 0, 0};
        return;
    }
    // An affine image of a rectangle is spanned by its corners: here the centres of the four corner pixels.
    const double xs[2] = {double(rect->left), double(rect->right) - 1};
    const double ys[2] = {double(rect->top), double(rect->bottom) - 1};
    double left = INFINITY, top = INFINITY, right = -INFINITY, bottom = -INFINITY;
    for (double x : xs)
        for (double y : ys) {
            const double u = w.a * x + w.b * y + w.tx, v = w.c * x + w.d * y + w.ty;
            if (isnan(u) || isnan(v)) {
                *result = {0, 0, 0, 0};
                return;
            }
            left = fmin(left, u);
            right = fmax(right, u);
            top = fmin(top, v);
            bottom = fmax(bottom, v);
        }
    const auto edge = [](double value) {
        return value >= INT32_MAX ? INT32_MAX : value <= INT32_MIN ? INT32_MIN : int32_t(value);
    };
    *result = {edge(floor(left)), edge(floor(top)), edge(ceil(right) + 1), edge(ceil(bottom) + 1)};
}

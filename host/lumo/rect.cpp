// Rectangles. Every sum is made in 64 bits and saturated, so that no size or position overflows.
#include "lumo.h"

namespace {

int32_t saturate(int64_t value) {
    return value > INT32_MAX ? INT32_MAX : value < INT32_MIN ? INT32_MIN : int32_t(value);
}

int64_t width_of(const LumoRECT& rect) { return int64_t(rect.right) - rect.left; }
int64_t height_of(const LumoRECT& rect) { return int64_t(rect.bottom) - rect.top; }

}  // namespace

int32_t LumoRECTwidth(const LumoRECT* rect) { return saturate(width_of(*rect)); }

int32_t LumoRECTheight(const LumoRECT* rect) { return saturate(height_of(*rect)); }

LumoSIZE LumoRECTsize(const LumoRECT* rect) { return {LumoRECTwidth(rect), LumoRECTheight(rect)}; }

int LumoRECTnull(const LumoRECT* rect) { return rect->left >= rect->right || rect->top >= rect->bottom; }

int LumoRECTequ(const LumoRECT* a, const LumoRECT* b) {
    return a->left == b->left && a->top == b->top && a->right == b->right && a->bottom == b->bottom;
}

int LumoRECTprosub(const LumoRECT* a, const LumoRECT* b) {
    return a->left >= b->left && a->top >= b->top && a->right <= b->right && a->bottom <= b->bottom &&
           !LumoRECTequ(a, b);
}

void LumoRECTintersecI(LumoRECT* a, const LumoRECT* b) {
    const LumoRECT common = {a->left > b->left ? a->left : b->left, a->top > b->top ? a->top : b->top,
                             a->right < b->right ? a->right : b->right, a->bottom < b->bottom ? a->bottom : b->bottom};
    *a = LumoRECTnull(&common) ? LumoRECT{a->left, a->top, a->left, a->top} : common;
}

void _LumoRECTextendI(LumoRECT* rect, int32_t dx, int32_t dy) {
    rect->left = saturate(int64_t(rect->left) - dx);
    rect->top = saturate(int64_t(rect->top) - dy);
    rect->right = saturate(int64_t(rect->right) + dx);
    rect->bottom = saturate(int64_t(rect->bottom) + dy);
}

void _LumoRECTmovetoltI(LumoRECT* rect, int32_t left, int32_t top) {
    const int64_t height = height_of(*rect);
    _LumoRECTmoveleftI(rect, left);
    rect->top = top;
    rect->bottom = saturate(top + height);
}

void _LumoRECTmoveleftI(LumoRECT* rect, int32_t left) {
    const int64_t width = width_of(*rect);
    rect->left = left;
    rect->right = saturate(left + width);
}

void _LumoRECTwidthsetlI(LumoRECT* rect, int32_t width) { rect->right = saturate(int64_t(rect->left) + width); }

void _LumoRECTheightsettI(LumoRECT* rect, int32_t height) { rect->bottom = saturate(int64_t(rect->top) + height); }

void _LumoRECTwidthcutiflI(LumoRECT* rect, int32_t width) {
    if (width_of(*rect) > width) _LumoRECTwidthsetlI(rect, width);
}

void _LumoRECTheightcutiftI(LumoRECT* rect, int32_t height) {
    if (height_of(*rect) > height) _LumoRECTheightsettI(rect, height);
}

void _LumoExtendROI(LumoRECT* rect, int32_t dx, int32_t dy, int32_t width, int32_t height) {
    const LumoRECT image = {0, 0, width, height};
    _LumoRECTextendI(rect, dx, dy);
    LumoRECTintersecI(rect, &image);
}

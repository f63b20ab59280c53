#pragma once

// Pixel work shared by the texture exports: walking the pixels of a triangle,
// the affine map between two pixel triangles, bilinear reads, and the growth
// that pads texture islands so that filtering never reads unset pixels.
// Pictures are 8-bit RGBA with rows top-down, positions continuous (pixel
// (x, y) covers [x, x + 1) x [y, y + 1)).

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "scene/KvoTypes.h"

namespace kvo {

// x' = m[0] x + m[1] y + m[2], y' = m[3] x + m[4] y + m[5].
struct QV_EXPORT KvoAffine2d {
    double m[6] = {1, 0, 0, 0, 1, 0};
    XPnt2d apply(double x, double y) const { return XPnt2d(m[0] * x + m[1] * y + m[2], m[3] * x + m[4] * y + m[5]); }
};

// The exact affine map taking from[i] to to[i]; false when from is degenerate.
QV_EXPORT bool getAffineTransformationMatrix(const XPnt2d from[3], const XPnt2d to[3], KvoAffine2d& out);

// Calls fn(x, y) for each pixel of the w x h picture that belongs to the
// triangle: its centre lies in it (edges included) or, when conservative, the
// pixel's square touches it. Conservative covers thin triangles too, which
// matters where a texture is cut out and later sampled bilinearly.
template <class F> void forEachPixelInTriangle(const XPnt2d t[3], long w, long h, bool conservative, F&& fn)
{
    double minX = std::min({t[0].x, t[1].x, t[2].x}), maxX = std::max({t[0].x, t[1].x, t[2].x});
    double minY = std::min({t[0].y, t[1].y, t[2].y}), maxY = std::max({t[0].y, t[1].y, t[2].y});
    if (!(maxX >= 0 && maxY >= 0 && minX <= double(w) && minY <= double(h)))
        return;
    long x0 = std::max(0L, long(std::floor(minX - 0.5))), x1 = std::min(w - 1, long(std::floor(maxX + 0.5)));
    long y0 = std::max(0L, long(std::floor(minY - 0.5))), y1 = std::min(h - 1, long(std::floor(maxY + 0.5)));
    double area = (t[1].x - t[0].x) * (t[2].y - t[0].y) - (t[1].y - t[0].y) * (t[2].x - t[0].x);
    const double s = area < 0 ? -1.0 : 1.0;
    // Edge i runs from t[i] to t[i+1]; e_i(p) >= 0 inside for a positive turn.
    double a[3], b[3], c[3], slack[3];
    for (int i = 0; i < 3; ++i) {
        const XPnt2d& p = t[i];
        const XPnt2d& q = t[(i + 1) % 3];
        a[i] = s * -(q.y - p.y);
        b[i] = s * (q.x - p.x);
        c[i] = -(a[i] * p.x + b[i] * p.y);
        slack[i] = conservative ? 0.5 * (std::fabs(a[i]) + std::fabs(b[i])) : 0.0;
    }
    const double eps = 1e-9 * (std::fabs(area) + 1.0);
    if (area == 0 && !conservative)
        return;
    for (long y = y0; y <= y1; ++y) {
        const double cy = double(y) + 0.5;
        for (long x = x0; x <= x1; ++x) {
            const double cx = double(x) + 0.5;
            bool in = true;
            for (int i = 0; i < 3 && in; ++i)
                in = a[i] * cx + b[i] * cy + c[i] + slack[i] >= -eps;
            if (in && conservative && area == 0) {
                // A degenerate triangle is a segment: keep the pixels its box touches.
                in = cx + 0.5 >= minX && cx - 0.5 <= maxX && cy + 0.5 >= minY && cy - 0.5 <= maxY;
            }
            if (in)
                fn(x, y);
        }
    }
}

// Bilinear read at a continuous position (pixel centres at +0.5), clamped to the picture.
inline void sampleBilinear(const uint8_t* rgba, long w, long h, long stride, double x, double y, uint8_t out[4])
{
    double fx = std::clamp(x - 0.5, 0.0, double(w - 1)), fy = std::clamp(y - 0.5, 0.0, double(h - 1));
    long ix = std::min(long(fx), w - 1), iy = std::min(long(fy), h - 1);
    long jx = std::min(ix + 1, w - 1), jy = std::min(iy + 1, h - 1);
    double ax = fx - double(ix), ay = fy - double(iy);
    const uint8_t* p00 = rgba + iy * stride + ix * 4;
    const uint8_t* p01 = rgba + iy * stride + jx * 4;
    const uint8_t* p10 = rgba + jy * stride + ix * 4;
    const uint8_t* p11 = rgba + jy * stride + jx * 4;
    for (int k = 0; k < 4; ++k) {
        double top = p00[k] + (p01[k] - p00[k]) * ax;
        double bottom = p10[k] + (p11[k] - p10[k]) * ax;
        out[k] = uint8_t(std::lround(std::clamp(top + (bottom - top) * ay, 0.0, 255.0)));
    }
}

// Colours the pixels around the coloured ones, layer by layer, up to n pixels
// out. mask holds 0 on pixels with colour and n + 1 elsewhere; it is used up.
// A grown pixel takes the mean colour of its neighbours of earlier layers and
// alpha 255; pixels beyond the band stay as they are.
QV_EXPORT void growImage(uint8_t* rgba, long w, long h, long stride, uint8_t* mask, int n);

} // namespace kvo

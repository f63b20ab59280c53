#pragma once

// Texture coordinates and pixel positions. UV (0, 0) is the picture's
// bottom-left corner and (1, 1) its top-right one, while pixel rows run
// top-down: pixel (x, y) covers [x, x + 1) x [y, y + 1) and its centre is
// (x + 0.5, y + 0.5). These two functions are the one place where the flip
// happens, so every caller agrees on it.

#include "scene/KvoTypes.h"

namespace kvo {

// Continuous pixel position of a UV in a w x h picture.
inline XPnt2d uvToPixel(double u, double v, double w, double h)
{
    return XPnt2d(u * w, (1.0 - v) * h);
}

// The UV of a continuous pixel position in a w x h picture.
inline XPnt2d pixelToUv(double x, double y, double w, double h)
{
    return XPnt2d(w > 0 ? x / w : 0.0, h > 0 ? 1.0 - y / h : 0.0);
}

} // namespace kvo

#pragma once

#include <cstdint>

#include "scene/KvoTypes.h"

namespace kvo {

// Flag of a point pair that a pick made, and of an empty pair.
constexpr int32_t kPickedPointFlag = int32_t(0x80000001u);

// A pair of an image position and a model position: an adjust point or a
// match point. Image positions are fractions of the image, y upward.
struct QV_EXPORT POINT_POINT {
    XPnt2d uv{-1.0, -1.0};
    XPnt3d world = XPnt3d::invalidPnt();
    int32_t flag = kPickedPointFlag;
    XPnt2d error{-1.0, -1.0};

    bool operator==(const POINT_POINT& o) const
    {
        auto same = [](double a, double b) { return a == b || (a != a && b != b); };
        return uv == o.uv && same(world.x, o.world.x) && same(world.y, o.world.y) && same(world.z, o.world.z) &&
               flag == o.flag && error == o.error;
    }
};

} // namespace kvo

// The virtual camera of one image, kept per image in the store.
struct QV_EXPORT ZebQVVCParam {
    XPnt3d eye;
    XPnt3d center;
    XPnt3d up{0.0, 0.0, 1.0};
    double fovY = 27.0;        // degrees across the image's shorter side
    double transparency = 0.6; // opacity of the photograph over the model
    double zoom = 0.7;         // ratio of the view to the frame

    bool operator==(const ZebQVVCParam& o) const
    {
        return eye == o.eye && center == o.center && up == o.up && fovY == o.fovY && transparency == o.transparency &&
               zoom == o.zoom;
    }
};

namespace zebUI {

// The frame of a virtual camera: the photograph as a rectangle in space, and the eye.
struct QV_EXPORT _ZebVCMapParam_ {
    XPnt3d rightTop;
    XPnt3d leftBottom;
    XPnt3d leftTop;
    XPnt3d rightBottom;
    XPnt3d eye;
};

} // namespace zebUI

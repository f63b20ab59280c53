#pragma once

#include "scene/KvoArray.h"

namespace kvo {

// Plane a x + b y + c z + d = 0 with (a, b, c) of unit length when made from points.
struct QV_EXPORT kvoPlaneParam {
    double a = 0, b = 0, c = 1, d = 0;
    kvoPlaneParam() = default;
    kvoPlaneParam(double a_, double b_, double c_, double d_) : a(a_), b(b_), c(c_), d(d_) {}
    XPnt3d normal() const { return XPnt3d(a, b, c); }
    // Signed distance for a unit normal.
    double distance(const XPnt3d& p) const { return a * p.x + b * p.y + c * p.z + d; }
    bool isValid() const { return a * a + b * b + c * c > 0; }
    // A vertical plane: its normal lies within tolerance degrees of horizontal.
    bool isVer(double tolerance) const;
};

QV_EXPORT XPnt3d getPoint(const XPnt3d& a, const XPnt3d& b, double t);
QV_EXPORT XPnt3d getPointByDir(const XPnt3d& origin, const XPnt3d& direction, double distance);
QV_EXPORT double dist(const XPnt3d& a, const XPnt3d& b);
QV_EXPORT double dist2(const XPnt3d& a, const XPnt3d& b);
QV_EXPORT double dist(const XPnt2d& a, const XPnt2d& b);
QV_EXPORT double dist2(const XPnt2d& a, const XPnt2d& b);
QV_EXPORT double dot(const XPnt3d& a, const XPnt3d& b);
QV_EXPORT XPnt3d cross(const XPnt3d& a, const XPnt3d& b);
QV_EXPORT double length(const XPnt3d& v);
QV_EXPORT XPnt3d midPnt(const XPnt3d& a, const XPnt3d& b);
QV_EXPORT XPnt2d midPnt(const XPnt2d& a, const XPnt2d& b);
// Area of the triangle a, b, c in space.
QV_EXPORT double area3d(const XPnt3d& a, const XPnt3d& b, const XPnt3d& c);
// The point lies in the 2-D triangle (border included).
QV_EXPORT bool isInTriangle(const XPnt2d& p, const XPnt2d& a, const XPnt2d& b, const XPnt2d& c);
// The point lies in the space triangle: close to its plane and inside its edges.
QV_EXPORT bool PntInTri(const XPnt3d& p, const XPnt3d& a, const XPnt3d& b, const XPnt3d& c, double tolerance = 1e-6);
// Even-odd rule over x, y of the polygon's points (closed or not).
QV_EXPORT bool PntInPolygon(double x, double y, const XPnt3d* points, long count);
QV_EXPORT bool PntInPolygon(double x, double y, const XPnt2d* points, long count);
// Plane through three points; invalid (all zero) when they are collinear.
QV_EXPORT kvoPlaneParam getPlaneParam(const XPnt3d& p0, const XPnt3d& p1, const XPnt3d& p2);
QV_EXPORT bool isInPlane(const XPnt3d& p, const kvoPlaneParam& plane, double tolerance);
// Where the line through p0 and p1 meets the plane; false when parallel.
QV_EXPORT bool intersect(const XPnt3d& p0, const XPnt3d& p1, const kvoPlaneParam& plane, XPnt3d& out);
// Where segments a0-a1 and b0-b1 cross in 2-D; false when they do not.
QV_EXPORT bool intersect(const XPnt2d& a0, const XPnt2d& a1, const XPnt2d& b0, const XPnt2d& b1, XPnt2d& out);

// Heron's formula from the side lengths; 0 when a side is not shorter than the other two together.
QV_EXPORT float calArea(const XPnt2f* a, const XPnt2f* b, const XPnt2f* c);
QV_EXPORT float calArea(const XPnt3f* a, const XPnt3f* b, const XPnt3f* c);
QV_EXPORT float calDis(const XPnt2f* a, const XPnt2f* b);
QV_EXPORT float calDis(const XPnt3f* a, const XPnt3f* b);
// Signed direction of a UV triangle: positive counter-clockwise (twice its signed area).
QV_EXPORT float qvUVDirection(const XPnt2f* a, const XPnt2f* b, const XPnt2f* c);

// The transform that takes the frame q0, q1, q2 onto the frame p0, p1, p2
// (origin at the first point, x toward the second, z the normal). False for collinear frames.
QV_EXPORT bool pntRegByQuad(const XPnt3d& p0, const XPnt3d& p1, const XPnt3d& p2, const XPnt3d& q0, const XPnt3d& q1,
                            const XPnt3d& q2, KvoMatrix4d& out);

} // namespace kvo

#include "scene/KvoGeometry.h"

#include <algorithm>
#include <cmath>

namespace kvo {

namespace {

// Area from three side lengths in Kahan's arrangement of Heron's formula: the
// sides are sorted and the brackets ordered so that needle-shaped triangles
// (common in photogrammetric meshes) keep their digits.
double heron(double a, double b, double c)
{
    if (a >= b + c || b >= a + c || c >= a + b)
        return 0.0;
    if (a < b)
        std::swap(a, b);
    if (a < c)
        std::swap(a, c);
    if (b < c)
        std::swap(b, c);
    double p = (a + (b + c)) * (c - (a - b)) * (c + (a - b)) * (a + (b - c));
    return p > 0 ? 0.25 * std::sqrt(p) : 0.0;
}

// A right-handed orthonormal frame at o: x toward a, z the normal of (o, a, b).
// Written as the matrix that takes frame coordinates to world coordinates.
bool makeFrame(const XPnt3d& o, const XPnt3d& a, const XPnt3d& b, KvoMatrix4d& frame)
{
    XPnt3d ex = a - o;
    XPnt3d eb = b - o;
    double lx = ex.norm(), lb = eb.norm();
    if (!(lx > 0) || !(lb > 0))
        return false;
    XPnt3d ez = ex.cross(eb);
    // The sine of the angle at o: below this the third point fixes no plane.
    if (!(ez.norm() > 1e-12 * lx * lb))
        return false;
    ex.normalize();
    ez.normalize();
    XPnt3d ey = ez.cross(ex);
    frame.setIdentity();
    const XPnt3d axes[3] = {ex, ey, ez};
    for (int c = 0; c < 3; ++c) {
        frame.m[0][c] = axes[c].x;
        frame.m[1][c] = axes[c].y;
        frame.m[2][c] = axes[c].z;
    }
    frame.m[0][3] = o.x;
    frame.m[1][3] = o.y;
    frame.m[2][3] = o.z;
    return true;
}

template <class P> bool evenOdd(double x, double y, const P* points, long count)
{
    if (!points || count < 3)
        return false;
    bool inside = false;
    // A repeated closing point forms an edge of zero length, which never
    // straddles the horizontal through y, so closed and open input agree.
    for (long i = 0, j = count - 1; i < count; j = i++) {
        double xi = points[i].x, yi = points[i].y;
        double xj = points[j].x, yj = points[j].y;
        if ((yi > y) != (yj > y)) {
            double xc = xi + (y - yi) * (xj - xi) / (yj - yi);
            if (x < xc)
                inside = !inside;
        }
    }
    return inside;
}

} // namespace

bool kvoPlaneParam::isVer(double tolerance) const
{
    double n = std::sqrt(a * a + b * b + c * c);
    if (!(n > 0))
        return false;
    // The angle between the normal and the horizontal, in degrees.
    const double angle = std::asin(std::min(1.0, std::fabs(c) / n)) * 180.0 / M_PI;
    return angle <= tolerance;
}

XPnt3d getPoint(const XPnt3d& a, const XPnt3d& b, double t)
{
    return a + (b - a) * t;
}

XPnt3d getPointByDir(const XPnt3d& origin, const XPnt3d& direction, double distance)
{
    XPnt3d d = direction;
    d.normalize();
    return origin + d * distance;
}

double dist(const XPnt3d& a, const XPnt3d& b)
{
    return (b - a).norm();
}

double dist2(const XPnt3d& a, const XPnt3d& b)
{
    return (b - a).norm2();
}

double dist(const XPnt2d& a, const XPnt2d& b)
{
    return (b - a).norm();
}

double dist2(const XPnt2d& a, const XPnt2d& b)
{
    return (b - a).norm2();
}

double dot(const XPnt3d& a, const XPnt3d& b)
{
    return a.dot(b);
}

XPnt3d cross(const XPnt3d& a, const XPnt3d& b)
{
    return a.cross(b);
}

double length(const XPnt3d& v)
{
    return v.norm();
}

XPnt3d midPnt(const XPnt3d& a, const XPnt3d& b)
{
    return XPnt3d((a.x + b.x) / 2, (a.y + b.y) / 2, (a.z + b.z) / 2);
}

XPnt2d midPnt(const XPnt2d& a, const XPnt2d& b)
{
    return XPnt2d((a.x + b.x) / 2, (a.y + b.y) / 2);
}

double area3d(const XPnt3d& a, const XPnt3d& b, const XPnt3d& c)
{
    return 0.5 * (b - a).cross(c - a).norm();
}

bool isInTriangle(const XPnt2d& p, const XPnt2d& a, const XPnt2d& b, const XPnt2d& c)
{
    auto side = [](const XPnt2d& o, const XPnt2d& e, const XPnt2d& q) {
        return (e.x - o.x) * (q.y - o.y) - (e.y - o.y) * (q.x - o.x);
    };
    double d1 = side(a, b, p), d2 = side(b, c, p), d3 = side(c, a, p);
    // Points computed onto an edge land a rounding error off it; the slack
    // is relative to the triangle's size so that it means the same at any scale.
    double eps = 1e-12 * (dist2(a, b) + dist2(b, c) + dist2(c, a));
    bool neg = d1 < -eps || d2 < -eps || d3 < -eps;
    bool pos = d1 > eps || d2 > eps || d3 > eps;
    return !(neg && pos);
}

bool PntInTri(const XPnt3d& p, const XPnt3d& a, const XPnt3d& b, const XPnt3d& c, double tolerance)
{
    XPnt3d n = (b - a).cross(c - a);
    double ln = n.norm();
    if (!(ln > 0))
        return false;
    n = n / ln;
    if (std::fabs((p - a).dot(n)) > tolerance)
        return false;
    // Signed in-plane distance to each edge line, positive on the inner side.
    const XPnt3d v[3] = {a, b, c};
    for (int i = 0; i < 3; ++i) {
        XPnt3d e = v[(i + 1) % 3] - v[i];
        double le = e.norm();
        if (!(le > 0))
            return false;
        if (e.cross(p - v[i]).dot(n) / le < -tolerance)
            return false;
    }
    return true;
}

bool PntInPolygon(double x, double y, const XPnt3d* points, long count)
{
    return evenOdd(x, y, points, count);
}

bool PntInPolygon(double x, double y, const XPnt2d* points, long count)
{
    return evenOdd(x, y, points, count);
}

kvoPlaneParam getPlaneParam(const XPnt3d& p0, const XPnt3d& p1, const XPnt3d& p2)
{
    XPnt3d u = p1 - p0, v = p2 - p0;
    XPnt3d n = u.cross(v);
    double ln = n.norm();
    if (!(ln > 1e-12 * u.norm() * v.norm()) || !std::isfinite(ln))
        return kvoPlaneParam(0, 0, 0, 0);
    n = n / ln;
    return kvoPlaneParam(n.x, n.y, n.z, -n.dot(p0));
}

bool isInPlane(const XPnt3d& p, const kvoPlaneParam& plane, double tolerance)
{
    if (!plane.isValid())
        return false;
    double n = plane.normal().norm();
    return std::fabs(plane.distance(p)) / n <= tolerance;
}

bool intersect(const XPnt3d& p0, const XPnt3d& p1, const kvoPlaneParam& plane, XPnt3d& out)
{
    XPnt3d dir = p1 - p0;
    XPnt3d n = plane.normal();
    double denom = n.dot(dir);
    if (!(std::fabs(denom) > 1e-12 * n.norm() * dir.norm()))
        return false;
    double t = -plane.distance(p0) / denom;
    out = p0 + dir * t;
    return true;
}

bool intersect(const XPnt2d& a0, const XPnt2d& a1, const XPnt2d& b0, const XPnt2d& b1, XPnt2d& out)
{
    XPnt2d r = a1 - a0, s = b1 - b0, w = b0 - a0;
    double denom = r.x * s.y - r.y * s.x;
    // Parallel or overlapping segments have no single crossing point.
    if (denom == 0)
        return false;
    double t = (w.x * s.y - w.y * s.x) / denom;
    double u = (w.x * r.y - w.y * r.x) / denom;
    if (t < 0 || t > 1 || u < 0 || u > 1)
        return false;
    out = a0 + r * t;
    return true;
}

float calArea(const XPnt2f* a, const XPnt2f* b, const XPnt2f* c)
{
    double ax = a->x, ay = a->y, bx = b->x, by = b->y, cx = c->x, cy = c->y;
    // Float coordinates multiply exactly in double, so this tells exactly
    // collinear corners apart even when the rounded side lengths do not.
    if ((bx - ax) * (cy - ay) - (by - ay) * (cx - ax) == 0)
        return 0.0f;
    // Float input cannot overflow a double square, so plain sqrt is safe and
    // much cheaper than hypot in per-face loops.
    auto side = [](double dx, double dy) { return std::sqrt(dx * dx + dy * dy); };
    double ab = side(bx - ax, by - ay);
    double bc = side(cx - bx, cy - by);
    double ca = side(ax - cx, ay - cy);
    return float(heron(ab, bc, ca));
}

float calArea(const XPnt3f* a, const XPnt3f* b, const XPnt3f* c)
{
    XPnt3d pa = a->to3d(), pb = b->to3d(), pc = c->to3d();
    XPnt3d n = (pb - pa).cross(pc - pa);
    if (n.x == 0 && n.y == 0 && n.z == 0)
        return 0.0f;
    return float(heron(dist(pa, pb), dist(pb, pc), dist(pc, pa)));
}

float calDis(const XPnt2f* a, const XPnt2f* b)
{
    double dx = double(b->x) - a->x, dy = double(b->y) - a->y;
    return float(std::sqrt(dx * dx + dy * dy));
}

float calDis(const XPnt3f* a, const XPnt3f* b)
{
    return float(dist(a->to3d(), b->to3d()));
}

float qvUVDirection(const XPnt2f* a, const XPnt2f* b, const XPnt2f* c)
{
    double ux = double(b->x) - a->x, uy = double(b->y) - a->y;
    double vx = double(c->x) - a->x, vy = double(c->y) - a->y;
    return float(ux * vy - uy * vx);
}

bool pntRegByQuad(const XPnt3d& p0, const XPnt3d& p1, const XPnt3d& p2, const XPnt3d& q0, const XPnt3d& q1,
                  const XPnt3d& q2, KvoMatrix4d& out)
{
    KvoMatrix4d fp, fq;
    if (!makeFrame(p0, p1, p2, fp) || !makeFrame(q0, q1, q2, fq))
        return false;
    // The inverse of a rigid frame is its transposed rotation and the
    // rotated, negated origin; no general inversion needed.
    KvoMatrix4d fqInv = fq.transposed();
    fqInv.m[3][0] = fqInv.m[3][1] = fqInv.m[3][2] = 0;
    XPnt3d t = fqInv.rotate(q0);
    fqInv.m[0][3] = -t.x;
    fqInv.m[1][3] = -t.y;
    fqInv.m[2][3] = -t.z;
    out = fp * fqInv;
    return true;
}

} // namespace kvo

#include "scene/KvoTypes.h"

#include <cmath>

namespace {

constexpr double kPi = 3.14159265358979323846;

// Any unit vector perpendicular to v (v need not be unit, but must not be zero).
XPnt3d anyPerpendicular(const XPnt3d& v)
{
    // Crossing with the axis least aligned with v keeps the result well away from zero.
    double ax = std::fabs(v.x), ay = std::fabs(v.y), az = std::fabs(v.z);
    XPnt3d axis = (ax <= ay && ax <= az) ? XPnt3d(1, 0, 0) : (ay <= az ? XPnt3d(0, 1, 0) : XPnt3d(0, 0, 1));
    XPnt3d p = v.cross(axis);
    return p.normalize();
}

} // namespace

KvoMatrix4d KvoMatrix4d::operator*(const KvoMatrix4d& o) const
{
    KvoMatrix4d r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double s = 0;
            for (int k = 0; k < 4; ++k)
                s += m[i][k] * o.m[k][j];
            r.m[i][j] = s;
        }
    return r;
}

XPnt3d KvoMatrix4d::operator*(const XPnt3d& p) const
{
    double x = m[0][0] * p.x + m[0][1] * p.y + m[0][2] * p.z + m[0][3];
    double y = m[1][0] * p.x + m[1][1] * p.y + m[1][2] * p.z + m[1][3];
    double z = m[2][0] * p.x + m[2][1] * p.y + m[2][2] * p.z + m[2][3];
    double w = m[3][0] * p.x + m[3][1] * p.y + m[3][2] * p.z + m[3][3];
    // Affine matrices leave w at exactly 1; skipping the divide then keeps results bit-exact.
    if (w != 1.0 && w != 0.0) {
        x /= w;
        y /= w;
        z /= w;
    }
    return XPnt3d(x, y, z);
}

XPnt3d KvoMatrix4d::rotate(const XPnt3d& v) const
{
    return XPnt3d(m[0][0] * v.x + m[0][1] * v.y + m[0][2] * v.z, m[1][0] * v.x + m[1][1] * v.y + m[1][2] * v.z,
                  m[2][0] * v.x + m[2][1] * v.y + m[2][2] * v.z);
}

KvoMatrix4d KvoMatrix4d::transposed() const
{
    KvoMatrix4d r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = m[j][i];
    return r;
}

bool KvoMatrix4d::inverse(KvoMatrix4d& out) const
{
    // Gauss-Jordan with partial pivoting on [A | I].
    double a[4][8];
    double scale = 0;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            a[i][j] = m[i][j];
            a[i][j + 4] = (i == j) ? 1.0 : 0.0;
            scale = std::max(scale, std::fabs(m[i][j]));
        }
    if (!(scale > 0) || !std::isfinite(scale))
        return false;
    // Pivots this far below the largest entry mean the rows are dependent up to rounding.
    const double tiny = scale * 1e-14;

    for (int col = 0; col < 4; ++col) {
        int pivot = col;
        for (int r = col + 1; r < 4; ++r)
            if (std::fabs(a[r][col]) > std::fabs(a[pivot][col]))
                pivot = r;
        if (std::fabs(a[pivot][col]) <= tiny)
            return false;
        if (pivot != col)
            for (int j = 0; j < 8; ++j)
                std::swap(a[col][j], a[pivot][j]);
        double inv = 1.0 / a[col][col];
        for (int j = 0; j < 8; ++j)
            a[col][j] *= inv;
        for (int r = 0; r < 4; ++r) {
            if (r == col || a[r][col] == 0)
                continue;
            double f = a[r][col];
            for (int j = 0; j < 8; ++j)
                a[r][j] -= f * a[col][j];
        }
    }
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            out.m[i][j] = a[i][j + 4];
    return true;
}

KvoMatrix4d KvoMatrix4d::translation(double x, double y, double z)
{
    KvoMatrix4d r;
    r.m[0][3] = x;
    r.m[1][3] = y;
    r.m[2][3] = z;
    return r;
}

KvoMatrix4d KvoMatrix4d::scaling(double sx, double sy, double sz)
{
    KvoMatrix4d r;
    r.m[0][0] = sx;
    r.m[1][1] = sy;
    r.m[2][2] = sz;
    return r;
}

void KvoQuad::setValue(const XPnt3d& axis, double angle)
{
    XPnt3d n = axis;
    if (!(n.norm2() > 0)) {
        w = 1;
        x = y = z = 0;
        return;
    }
    n.normalize();
    double s = std::sin(angle / 2);
    w = std::cos(angle / 2);
    x = n.x * s;
    y = n.y * s;
    z = n.z * s;
}

void KvoQuad::setValue(const XPnt3d& from, const XPnt3d& to)
{
    XPnt3d a = from, b = to;
    if (!(a.norm2() > 0) || !(b.norm2() > 0)) {
        w = 1;
        x = y = z = 0;
        return;
    }
    a.normalize();
    b.normalize();
    double d = a.dot(b);
    if (d < -1.0 + 1e-12) {
        // Opposite directions: every axis perpendicular to them is a shortest
        // rotation, and the half-angle formula below would divide by nearly zero.
        setValue(anyPerpendicular(a), kPi);
        return;
    }
    // (1 + a.b, a x b) is the rotation from a to b scaled by 2 cos(angle / 2),
    // so normalising it gives the rotation without any trigonometry.
    XPnt3d c = a.cross(b);
    w = 1.0 + d;
    x = c.x;
    y = c.y;
    z = c.z;
    normalize();
}

XPnt3d KvoQuad::rotate(const XPnt3d& p) const
{
    return toMatrix().rotate(p);
}

KvoMatrix4d KvoQuad::toMatrix() const
{
    KvoMatrix4d r;
    double n2 = w * w + x * x + y * y + z * z;
    // Dividing by the squared norm makes a slightly denormalised quaternion
    // still produce a pure rotation.
    double s = n2 > 0 ? 2.0 / n2 : 0.0;
    double xx = x * x * s, yy = y * y * s, zz = z * z * s;
    double xy = x * y * s, xz = x * z * s, yz = y * z * s;
    double wx = w * x * s, wy = w * y * s, wz = w * z * s;
    r.m[0][0] = 1 - (yy + zz);
    r.m[0][1] = xy - wz;
    r.m[0][2] = xz + wy;
    r.m[1][0] = xy + wz;
    r.m[1][1] = 1 - (xx + zz);
    r.m[1][2] = yz - wx;
    r.m[2][0] = xz - wy;
    r.m[2][1] = yz + wx;
    r.m[2][2] = 1 - (xx + yy);
    return r;
}

KvoQuad KvoQuad::operator*(const KvoQuad& o) const
{
    return KvoQuad(w * o.w - x * o.x - y * o.y - z * o.z, w * o.x + x * o.w + y * o.z - z * o.y,
                   w * o.y - x * o.z + y * o.w + z * o.x, w * o.z + x * o.y - y * o.x + z * o.w);
}

void KvoQuad::normalize()
{
    double n = std::sqrt(w * w + x * x + y * y + z * z);
    if (!(n > 0) || !std::isfinite(n)) {
        w = 1;
        x = y = z = 0;
        return;
    }
    w /= n;
    x /= n;
    y /= n;
    z /= n;
}

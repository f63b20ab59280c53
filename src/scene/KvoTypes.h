#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "scene/KvoExport.h"

// Plain value types of the scene: points, triples, boxes, colours, matrices.
// Invalid points use NaN so that any arithmetic on them stays invalid.

template <class T> struct PT2 {
    T x = 0, y = 0;
    PT2() = default;
    PT2(T x_, T y_) : x(x_), y(y_) {}
    bool operator==(const PT2& o) const { return x == o.x && y == o.y; }
    bool operator!=(const PT2& o) const { return !(*this == o); }
};

struct XPnt2d;
struct XPnt3d;

struct QV_EXPORT XPnt2i {
    int x = 0, y = 0;
    XPnt2i() = default;
    XPnt2i(int x_, int y_) : x(x_), y(y_) {}
    bool operator==(const XPnt2i& o) const { return x == o.x && y == o.y; }
    bool operator!=(const XPnt2i& o) const { return !(*this == o); }
};

template <class T, class Self> struct XPnt2Base {
    T x, y;
    XPnt2Base() : x(0), y(0) {}
    XPnt2Base(T x_, T y_) : x(x_), y(y_) {}

    static Self invalidPnt()
    {
        Self p;
        p.setInvalid();
        return p;
    }
    void setInvalid() { x = y = std::numeric_limits<T>::quiet_NaN(); }
    bool isValid() const { return std::isfinite(x) && std::isfinite(y); }

    T norm2() const { return x * x + y * y; }
    T norm() const { return std::sqrt(norm2()); }

    Self operator+(const Self& o) const { return Self(x + o.x, y + o.y); }
    Self operator-(const Self& o) const { return Self(x - o.x, y - o.y); }
    Self operator*(T s) const { return Self(x * s, y * s); }
    Self operator/(T s) const { return Self(x / s, y / s); }
    Self& operator+=(const Self& o)
    {
        x += o.x;
        y += o.y;
        return static_cast<Self&>(*this);
    }
    Self& operator-=(const Self& o)
    {
        x -= o.x;
        y -= o.y;
        return static_cast<Self&>(*this);
    }
    bool operator==(const Self& o) const { return x == o.x && y == o.y; }
    bool operator!=(const Self& o) const { return !(*this == o); }
};

struct QV_EXPORT XPnt2f : XPnt2Base<float, XPnt2f> {
    using XPnt2Base::XPnt2Base;
    XPnt2f() = default;
    XPnt2d to2d() const;
    XPnt2f to2f() const { return *this; }
};

struct QV_EXPORT XPnt2d : XPnt2Base<double, XPnt2d> {
    using XPnt2Base::XPnt2Base;
    XPnt2d() = default;
    XPnt2f to2f() const { return XPnt2f(float(x), float(y)); }
    XPnt2d to2d() const { return *this; }
};

inline XPnt2d XPnt2f::to2d() const
{
    return XPnt2d(x, y);
}

template <class T, class Self> struct XPnt3Base {
    T x, y, z;
    XPnt3Base() : x(0), y(0), z(0) {}
    XPnt3Base(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}

    static Self invalidPnt()
    {
        Self p;
        p.setInvalid();
        return p;
    }
    void setInvalid() { x = y = z = std::numeric_limits<T>::quiet_NaN(); }
    bool isValid() const { return std::isfinite(x) && std::isfinite(y) && std::isfinite(z); }

    T norm2() const { return x * x + y * y + z * z; }
    T norm() const { return std::sqrt(norm2()); }
    // Scales to unit length; a zero vector stays zero.
    Self& normalize()
    {
        T n = norm();
        if (n > 0) {
            x /= n;
            y /= n;
            z /= n;
        }
        return static_cast<Self&>(*this);
    }
    T dot(const Self& o) const { return x * o.x + y * o.y + z * o.z; }
    Self cross(const Self& o) const { return Self(y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x); }

    Self operator+(const Self& o) const { return Self(x + o.x, y + o.y, z + o.z); }
    Self operator-(const Self& o) const { return Self(x - o.x, y - o.y, z - o.z); }
    Self operator-() const { return Self(-x, -y, -z); }
    Self operator*(T s) const { return Self(x * s, y * s, z * s); }
    Self operator/(T s) const { return Self(x / s, y / s, z / s); }
    Self& operator+=(const Self& o)
    {
        x += o.x;
        y += o.y;
        z += o.z;
        return static_cast<Self&>(*this);
    }
    Self& operator-=(const Self& o)
    {
        x -= o.x;
        y -= o.y;
        z -= o.z;
        return static_cast<Self&>(*this);
    }
    Self& operator*=(T s)
    {
        x *= s;
        y *= s;
        z *= s;
        return static_cast<Self&>(*this);
    }
    bool operator==(const Self& o) const { return x == o.x && y == o.y && z == o.z; }
    bool operator!=(const Self& o) const { return !(*this == o); }
};

struct QV_EXPORT XPnt3f : XPnt3Base<float, XPnt3f> {
    using XPnt3Base::XPnt3Base;
    XPnt3f() = default;
    XPnt3d to3d() const;
    XPnt2d to2d() const;
};

struct QV_EXPORT XPnt3d : XPnt3Base<double, XPnt3d> {
    using XPnt3Base::XPnt3Base;
    XPnt3d() = default;
    XPnt3f to3f() const { return XPnt3f(float(x), float(y), float(z)); }
    XPnt2d to2d() const { return XPnt2d(x, y); }
};

inline XPnt3d XPnt3f::to3d() const
{
    return XPnt3d(x, y, z);
}
inline XPnt2d XPnt3f::to2d() const
{
    return XPnt2d(x, y);
}

// Three vertex indices. normalize() sorts them, so that a set of normalised
// triples names triangles whatever the order of their corners.
template <class T = unsigned> struct XTrip {
    T v[3] = {0, 0, 0};
    XTrip() = default;
    XTrip(T a, T b, T c) : v{a, b, c} {}
    T& operator[](int i) { return v[i]; }
    const T& operator[](int i) const { return v[i]; }
    XTrip& normalize()
    {
        if (v[0] > v[1])
            std::swap(v[0], v[1]);
        if (v[1] > v[2])
            std::swap(v[1], v[2]);
        if (v[0] > v[1])
            std::swap(v[0], v[1]);
        return *this;
    }
    XTrip normalized() const
    {
        XTrip t = *this;
        return t.normalize();
    }
    bool operator<(const XTrip& o) const
    {
        if (v[0] != o.v[0])
            return v[0] < o.v[0];
        if (v[1] != o.v[1])
            return v[1] < o.v[1];
        return v[2] < o.v[2];
    }
    bool operator==(const XTrip& o) const { return v[0] == o.v[0] && v[1] == o.v[1] && v[2] == o.v[2]; }
    bool operator!=(const XTrip& o) const { return !(*this == o); }
};

// Axis-aligned 2-D box. A new box is invalid (empty) until a point is added.
struct QV_EXPORT Enve2d {
    double minX, minY, maxX, maxY;
    Enve2d() { reset(); }
    Enve2d(double x0, double y0, double x1, double y1) { SetBox(x0, y0, x1, y1); }

    void reset()
    {
        minX = minY = std::numeric_limits<double>::max();
        maxX = maxY = -std::numeric_limits<double>::max();
    }
    void SetBox(double x0, double y0, double x1, double y1)
    {
        minX = std::min(x0, x1);
        maxX = std::max(x0, x1);
        minY = std::min(y0, y1);
        maxY = std::max(y0, y1);
    }
    void add(double x, double y)
    {
        minX = std::min(minX, x);
        maxX = std::max(maxX, x);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
    }
    void add(const XPnt2d& p) { add(p.x, p.y); }
    void add(const Enve2d& o)
    {
        if (o.isValid()) {
            add(o.minX, o.minY);
            add(o.maxX, o.maxY);
        }
    }
    bool isValid() const { return minX <= maxX && minY <= maxY; }
    double Width() const { return isValid() ? maxX - minX : 0; }
    double Hight() const { return isValid() ? maxY - minY : 0; }
    XPnt2d MidPoint() const { return XPnt2d((minX + maxX) / 2, (minY + maxY) / 2); }
    XPnt2d getMinPnt() const { return XPnt2d(minX, minY); }
    XPnt2d getMaxPnt() const { return XPnt2d(maxX, maxY); }
    // Corner i counter-clockwise from (min, min).
    XPnt2d corner(int i) const
    {
        switch (i & 3) {
        case 0: return XPnt2d(minX, minY);
        case 1: return XPnt2d(maxX, minY);
        case 2: return XPnt2d(maxX, maxY);
        default: return XPnt2d(minX, maxY);
        }
    }
    bool contains(double x, double y) const { return x >= minX && x <= maxX && y >= minY && y <= maxY; }
    // This box covers the other one entirely.
    bool isCover(const Enve2d& o) const
    {
        return isValid() && o.isValid() && o.minX >= minX && o.maxX <= maxX && o.minY >= minY && o.maxY <= maxY;
    }
    bool isIntersect(const Enve2d& o) const
    {
        return isValid() && o.isValid() && o.minX <= maxX && o.maxX >= minX && o.minY <= maxY && o.maxY >= minY;
    }
};

// Axis-aligned 3-D box.
struct QV_EXPORT Enve3d {
    double minX, minY, minZ, maxX, maxY, maxZ;
    Enve3d() { reset(); }
    Enve3d(const XPnt3d& a, const XPnt3d& b) { SetBox(a, b); }

    void reset()
    {
        minX = minY = minZ = std::numeric_limits<double>::max();
        maxX = maxY = maxZ = -std::numeric_limits<double>::max();
    }
    void SetBox(const XPnt3d& a, const XPnt3d& b)
    {
        minX = std::min(a.x, b.x);
        maxX = std::max(a.x, b.x);
        minY = std::min(a.y, b.y);
        maxY = std::max(a.y, b.y);
        minZ = std::min(a.z, b.z);
        maxZ = std::max(a.z, b.z);
    }
    void add(double x, double y, double z)
    {
        minX = std::min(minX, x);
        maxX = std::max(maxX, x);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
        minZ = std::min(minZ, z);
        maxZ = std::max(maxZ, z);
    }
    void add(const XPnt3d& p) { add(p.x, p.y, p.z); }
    void add(const XPnt3f& p) { add(p.x, p.y, p.z); }
    void add(const Enve3d& o)
    {
        if (o.isValid()) {
            add(o.minX, o.minY, o.minZ);
            add(o.maxX, o.maxY, o.maxZ);
        }
    }
    bool isValid() const { return minX <= maxX && minY <= maxY && minZ <= maxZ; }
    double Width() const { return isValid() ? maxX - minX : 0; }
    double Hight() const { return isValid() ? maxY - minY : 0; }
    double Depth() const { return isValid() ? maxZ - minZ : 0; }
    XPnt3d MidPoint() const { return XPnt3d((minX + maxX) / 2, (minY + maxY) / 2, (minZ + maxZ) / 2); }
    XPnt3d getMinPnt() const { return XPnt3d(minX, minY, minZ); }
    XPnt3d getMaxPnt() const { return XPnt3d(maxX, maxY, maxZ); }
    // Corner i, bit 0 picks max x, bit 1 max y, bit 2 max z.
    XPnt3d corner(int i) const { return XPnt3d((i & 1) ? maxX : minX, (i & 2) ? maxY : minY, (i & 4) ? maxZ : minZ); }
    Enve2d getEnve2d() const
    {
        Enve2d e;
        if (isValid())
            e.SetBox(minX, minY, maxX, maxY);
        return e;
    }
    bool contains(const XPnt3d& p) const
    {
        return p.x >= minX && p.x <= maxX && p.y >= minY && p.y <= maxY && p.z >= minZ && p.z <= maxZ;
    }
    bool isCover(const Enve3d& o) const
    {
        return isValid() && o.isValid() && o.minX >= minX && o.maxX <= maxX && o.minY >= minY && o.maxY <= maxY &&
               o.minZ >= minZ && o.maxZ <= maxZ;
    }
    bool isIntersect(const Enve3d& o) const
    {
        return isValid() && o.isValid() && o.minX <= maxX && o.maxX >= minX && o.minY <= maxY && o.maxY >= minY &&
               o.minZ <= maxZ && o.maxZ >= minZ;
    }
};

struct QV_EXPORT KvoColor4b {
    uint8_t r = 0, g = 0, b = 0, a = 255;
    KvoColor4b() = default;
    KvoColor4b(uint8_t r_, uint8_t g_, uint8_t b_, uint8_t a_ = 255) : r(r_), g(g_), b(b_), a(a_) {}
    bool operator==(const KvoColor4b& o) const { return r == o.r && g == o.g && b == o.b && a == o.a; }
    bool operator!=(const KvoColor4b& o) const { return !(*this == o); }
};

struct QV_EXPORT KvoColor3f {
    float r = 0, g = 0, b = 0;
    KvoColor3f() = default;
    KvoColor3f(float r_, float g_, float b_) : r(r_), g(g_), b(b_) {}
};

// 4x4 matrix of doubles, row-major: m[row][col]. Applied to a point as
// M * (x, y, z, 1) with the homogeneous divide.
struct QV_EXPORT KvoMatrix4d {
    double m[4][4];
    KvoMatrix4d() { setIdentity(); }
    void setIdentity()
    {
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                m[r][c] = (r == c) ? 1.0 : 0.0;
    }
    double* operator[](int r) { return m[r]; }
    const double* operator[](int r) const { return m[r]; }
    KvoMatrix4d operator*(const KvoMatrix4d& o) const;
    XPnt3d operator*(const XPnt3d& p) const;
    // Applies only the upper 3x3 part (directions).
    XPnt3d rotate(const XPnt3d& v) const;
    KvoMatrix4d transposed() const;
    // False, leaving out unchanged, when the matrix is singular.
    bool inverse(KvoMatrix4d& out) const;
    static KvoMatrix4d translation(double x, double y, double z);
    static KvoMatrix4d scaling(double sx, double sy, double sz);
};

// Unit quaternion of a rotation: w + xi + yj + zk.
struct QV_EXPORT KvoQuad {
    double w = 1, x = 0, y = 0, z = 0;
    KvoQuad() = default;
    KvoQuad(double w_, double x_, double y_, double z_) : w(w_), x(x_), y(y_), z(z_) {}
    // Rotation by angle (radians) about axis.
    void setValue(const XPnt3d& axis, double angle);
    // Shortest rotation that takes direction from onto direction to.
    void setValue(const XPnt3d& from, const XPnt3d& to);
    XPnt3d rotate(const XPnt3d& p) const;
    KvoMatrix4d toMatrix() const;
    KvoQuad operator*(const KvoQuad& o) const;
    KvoQuad conjugate() const { return KvoQuad(w, -x, -y, -z); }
    void normalize();
};

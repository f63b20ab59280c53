#include "platform/KvoCameraMath.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kvo {

void identityMatrix(double m[16])
{
    for (int i = 0; i < 16; ++i)
        m[i] = (i % 5 == 0) ? 1.0 : 0.0;
}

void multiplyMatrix(const double a[16], const double b[16], double out[16])
{
    double r[16];
    for (int c = 0; c < 4; ++c)
        for (int row = 0; row < 4; ++row) {
            double s = 0;
            for (int k = 0; k < 4; ++k)
                s += a[k * 4 + row] * b[c * 4 + k];
            r[c * 4 + row] = s;
        }
    std::memcpy(out, r, sizeof(r));
}

bool invertMatrix(const double m[16], double out[16])
{
    // Gauss-Jordan with partial pivoting on a row-major copy.
    double a[4][8];
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) {
            a[r][c] = m[c * 4 + r];
            a[r][c + 4] = (r == c) ? 1.0 : 0.0;
        }
    for (int col = 0; col < 4; ++col) {
        int pivot = col;
        for (int r = col + 1; r < 4; ++r)
            if (std::fabs(a[r][col]) > std::fabs(a[pivot][col]))
                pivot = r;
        if (a[pivot][col] == 0.0)
            return false;
        if (pivot != col)
            for (int c = 0; c < 8; ++c)
                std::swap(a[pivot][c], a[col][c]);
        const double inv = 1.0 / a[col][col];
        for (int c = 0; c < 8; ++c)
            a[col][c] *= inv;
        for (int r = 0; r < 4; ++r)
            if (r != col && a[r][col] != 0.0) {
                const double f = a[r][col];
                for (int c = 0; c < 8; ++c)
                    a[r][c] -= f * a[col][c];
            }
    }
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            out[c * 4 + r] = a[r][c + 4];
    return true;
}

void perspectiveMatrix(double fovyDeg, double aspect, double zNear, double zFar, double m[16])
{
    const double radians = fovyDeg / 2 * M_PI / 180;
    const double sine = std::sin(radians), deltaZ = zFar - zNear;
    identityMatrix(m);
    if (deltaZ == 0 || sine == 0 || aspect == 0)
        return;
    const double cotangent = std::cos(radians) / sine;
    m[0] = cotangent / aspect;
    m[5] = cotangent;
    m[10] = -(zFar + zNear) / deltaZ;
    m[11] = -1;
    m[14] = -2 * zNear * zFar / deltaZ;
    m[15] = 0;
}

void pinholeGlMatrices(const double K[9], const double R[9], const double t[3], int width, int height, double zNear,
                       double zFar, double mv[16], double pr[16])
{
    // GL's eye looks down -z with y up: the camera's y and z turned over.
    std::fill(mv, mv + 16, 0.0);
    std::fill(pr, pr + 16, 0.0);
    const double flip[3] = {1, -1, -1};
    for (int r = 0; r < 3; ++r) {
        for (int k = 0; k < 3; ++k)
            mv[k * 4 + r] = flip[r] * R[3 * r + k];
        mv[12 + r] = flip[r] * t[r];
    }
    mv[15] = 1;
    const double w = width, h = height;
    pr[0] = 2 * K[0] / w;
    pr[4] = -2 * K[1] / w;
    pr[8] = 1 - 2 * K[2] / w;
    pr[5] = 2 * K[4] / h;
    pr[9] = 2 * K[5] / h - 1;
    pr[10] = -(zFar + zNear) / (zFar - zNear);
    pr[14] = -2 * zFar * zNear / (zFar - zNear);
    pr[11] = -1;
}

void lookAtMatrix(const XPnt3d& eye, const XPnt3d& center, const XPnt3d& up, double m[16])
{
    XPnt3d forward = center - eye;
    forward.normalize();
    XPnt3d side = forward.cross(up);
    side.normalize();
    const XPnt3d u = side.cross(forward);
    identityMatrix(m);
    m[0] = side.x, m[4] = side.y, m[8] = side.z;
    m[1] = u.x, m[5] = u.y, m[9] = u.z;
    m[2] = -forward.x, m[6] = -forward.y, m[10] = -forward.z;
    double t[16];
    identityMatrix(t);
    t[12] = -eye.x, t[13] = -eye.y, t[14] = -eye.z;
    multiplyMatrix(m, t, m);
}

namespace {
void transform(const double m[16], const double in[4], double out[4])
{
    for (int i = 0; i < 4; ++i)
        out[i] = in[0] * m[0 * 4 + i] + in[1] * m[1 * 4 + i] + in[2] * m[2 * 4 + i] + in[3] * m[3 * 4 + i];
}
} // namespace

bool projectPoint(const XPnt3d& obj, const double model[16], const double proj[16], const int viewport[4], XPnt3d& win)
{
    double in[4] = {obj.x, obj.y, obj.z, 1.0}, eye[4], clip[4];
    transform(model, in, eye);
    transform(proj, eye, clip);
    if (clip[3] == 0.0)
        return false;
    for (int i = 0; i < 3; ++i)
        clip[i] /= clip[3];
    win.x = viewport[0] + (clip[0] * 0.5 + 0.5) * viewport[2];
    win.y = viewport[1] + (clip[1] * 0.5 + 0.5) * viewport[3];
    win.z = clip[2] * 0.5 + 0.5;
    return true;
}

bool unprojectPoint(const XPnt3d& win, const double model[16], const double proj[16], const int viewport[4],
                    XPnt3d& obj)
{
    double final[16], inv[16];
    multiplyMatrix(proj, model, final);
    if (!invertMatrix(final, inv))
        return false;
    double in[4] = {(win.x - viewport[0]) / viewport[2] * 2 - 1, (win.y - viewport[1]) / viewport[3] * 2 - 1,
                    win.z * 2 - 1, 1.0};
    double out[4];
    transform(inv, in, out);
    if (out[3] == 0.0)
        return false;
    obj = XPnt3d(out[0] / out[3], out[1] / out[3], out[2] / out[3]);
    return true;
}

} // namespace kvo

#include "platform/KvoRasterizer.h"

#include <omp.h>

#include <algorithm>
#include <cmath>

namespace kvo {

namespace {

constexpr int kSub = 256;       // subpixel steps a pixel
constexpr double kGuard = 4096; // |x|, |y| <= kGuard * w keeps snapped positions small
constexpr int kBand = 16;       // rows a band of the parallel raster

// Planes of the clip volume as a . (x, y, z, w) >= 0.
const double kPlanes[6][4] = {
    {0, 0, 1, 1},       // near: z >= -w
    {0, 0, -1, 1},      // far: z <= w
    {1, 0, 0, kGuard},  // x >= -G w
    {-1, 0, 0, kGuard}, // x <= G w
    {0, 1, 0, kGuard},  {0, -1, 0, kGuard},
};

double planeDist(const double* p, const double* c)
{
    return p[0] * c[0] + p[1] * c[1] + p[2] * c[2] + p[3] * c[3];
}

} // namespace

void KvoRasterizer::setCamera(const double mv[16], const double pr[16], int width, int height)
{
    // mvp = pr * mv, column-major
    for (int c = 0; c < 4; ++c)
        for (int r = 0; r < 4; ++r) {
            double s = 0;
            for (int k = 0; k < 4; ++k)
                s += pr[k * 4 + r] * mv[c * 4 + k];
            m_mvp[c * 4 + r] = s;
        }
    m_width = std::max(0, width);
    m_height = std::max(0, height);
    setRegion(0, 0, m_width, m_height);
}

void KvoRasterizer::setRegion(int x0, int y0, int x1, int y1)
{
    m_rx0 = std::clamp(std::min(x0, x1), 0, m_width);
    m_rx1 = std::clamp(std::max(x0, x1), 0, m_width);
    m_ry0 = std::clamp(std::min(y0, y1), 0, m_height);
    m_ry1 = std::clamp(std::max(y0, y1), 0, m_height);
    clear();
}

void KvoRasterizer::clear()
{
    const size_t n = size_t(m_width) * size_t(m_height);
    m_depth.assign(n, 1.0f);
    m_face.assign(n, -1);
    m_mesh.assign(n, -1);
}

float KvoRasterizer::depthAt(int x, int y) const
{
    if (x < 0 || y < 0 || x >= m_width || y >= m_height)
        return 1.0f;
    return m_depth[size_t(y) * size_t(m_width) + size_t(x)];
}

KvoRasterizer::Hit KvoRasterizer::triangleAt(int x, int y) const
{
    Hit h;
    if (x < 0 || y < 0 || x >= m_width || y >= m_height)
        return h;
    const size_t i = size_t(y) * size_t(m_width) + size_t(x);
    h.mesh = m_mesh[i];
    h.face = m_face[i];
    return h;
}

bool KvoRasterizer::project(const XPnt3d& p, XPnt3d& win) const
{
    const double* m = m_mvp;
    const double x = m[0] * p.x + m[4] * p.y + m[8] * p.z + m[12];
    const double y = m[1] * p.x + m[5] * p.y + m[9] * p.z + m[13];
    const double z = m[2] * p.x + m[6] * p.y + m[10] * p.z + m[14];
    const double w = m[3] * p.x + m[7] * p.y + m[11] * p.z + m[15];
    if (!(w > 0))
        return false;
    win = XPnt3d((x / w + 1) * 0.5 * m_width, (1 - y / w) * 0.5 * m_height, (z / w + 1) * 0.5);
    return true;
}

void KvoRasterizer::emitClipped(const double clip[][4], int n, int32_t mesh, int32_t face, bool cull,
                                std::vector<ScreenTri>& out) const
{
    int64_t X[8], Y[8];
    float Z[8];
    for (int i = 0; i < n; ++i) {
        const double w = clip[i][3];
        X[i] = std::llround((clip[i][0] / w + 1) * 0.5 * m_width * kSub);
        Y[i] = std::llround((1 - clip[i][1] / w) * 0.5 * m_height * kSub);
        Z[i] = float(std::clamp((clip[i][2] / w + 1) * 0.5, 0.0, 1.0));
    }
    for (int k = 1; k + 1 < n; ++k) {
        int a = 0, b = k, c = k + 1;
        const int64_t area = (X[b] - X[a]) * (Y[c] - Y[a]) - (Y[b] - Y[a]) * (X[c] - X[a]);
        // GL's front faces turn counter-clockwise with y up: area < 0 here, y down.
        if (area == 0 || (cull && area > 0))
            continue;
        if (area < 0)
            std::swap(b, c);
        ScreenTri t;
        const int idx[3] = {a, b, c};
        int64_t lo = INT64_MAX, hi = INT64_MIN;
        for (int j = 0; j < 3; ++j) {
            t.x[j] = X[idx[j]];
            t.y[j] = Y[idx[j]];
            t.z[j] = Z[idx[j]];
            lo = std::min(lo, t.y[j]);
            hi = std::max(hi, t.y[j]);
        }
        // Rows whose centre (y * 256 + 128) lies in [lo, hi].
        const int64_t rowLo = (lo - kSub / 2 + kSub - 1) >= 0 ? (lo - kSub / 2 + kSub - 1) / kSub : 0;
        const int64_t rowHi = hi - kSub / 2 >= 0 ? (hi - kSub / 2) / kSub : -1;
        t.yMin = int(std::max<int64_t>(rowLo, m_ry0));
        t.yMax = int(std::min<int64_t>(rowHi, m_ry1 - 1));
        if (t.yMin > t.yMax)
            continue;
        t.mesh = mesh;
        t.face = face;
        out.push_back(t);
    }
}

namespace {

// A vertex in the window, when it lies inside every clip plane.
struct WinVertex {
    int64_t x, y; // 1/256 pixel, y down
    float z;
    uint8_t code; // planes it is outside of
};

int firstRow(int64_t lo)
{
    // The first row whose centre (row * 256 + 128) is at or below lo.
    const int64_t v = lo - kSub / 2 + kSub - 1;
    return v >= 0 ? int(v / kSub) : 0;
}

int lastRow(int64_t hi)
{
    const int64_t v = hi - kSub / 2;
    return v >= 0 ? int(v / kSub) : -1;
}

} // namespace

void KvoRasterizer::rasterRows(const int64_t* X, const int64_t* Y, const float* Z, int32_t mesh, int32_t face, int rowA,
                               int rowB)
{
    const int64_t xlo = std::min({X[0], X[1], X[2]}), xhi = std::max({X[0], X[1], X[2]});
    const int colA = std::max(firstRow(xlo), m_rx0), colB = std::min(lastRow(xhi), m_rx1 - 1);
    if (colA > colB)
        return;
    // Edge k runs from corner k to corner k+1; inside is E >= 0 (area > 0
    // here), and a pixel centre exactly on an edge belongs to the triangle
    // when the edge is a top or a left one.
    int64_t dxE[3], dyE[3], bias[3];
    for (int k = 0; k < 3; ++k) {
        const int j = k == 2 ? 0 : k + 1;
        dxE[k] = X[j] - X[k];
        dyE[k] = Y[j] - Y[k];
        bias[k] = (dyE[k] < 0 || (dyE[k] == 0 && dxE[k] > 0)) ? 0 : -1;
    }
    const int64_t area = dxE[0] * (Y[2] - Y[0]) - dyE[0] * (X[2] - X[0]);
    // Depth: z0 + (z1 - z0) E2 / area + (z2 - z0) E0 / area, E2 being the edge
    // opposite corner 1 and E0 the one opposite corner 2.
    const double za = double(Z[1] - Z[0]) / double(area), zb = double(Z[2] - Z[0]) / double(area);
    const int64_t px0 = int64_t(colA) * kSub + kSub / 2;
    const int64_t stepX[3] = {dyE[0] * kSub, dyE[1] * kSub, dyE[2] * kSub};
    for (int row = rowA; row <= rowB; ++row) {
        const int64_t py = int64_t(row) * kSub + kSub / 2;
        int64_t e0 = dxE[0] * (py - Y[0]) - dyE[0] * (px0 - X[0]) + bias[0];
        int64_t e1 = dxE[1] * (py - Y[1]) - dyE[1] * (px0 - X[1]) + bias[1];
        int64_t e2 = dxE[2] * (py - Y[2]) - dyE[2] * (px0 - X[2]) + bias[2];
        const size_t rowBase = size_t(row) * size_t(m_width);
        for (int col = colA; col <= colB; ++col, e0 -= stepX[0], e1 -= stepX[1], e2 -= stepX[2]) {
            if ((e0 | e1 | e2) < 0)
                continue;
            const float z = float(Z[0] + za * double(e2 - bias[2]) + zb * double(e0 - bias[0]));
            const size_t i = rowBase + size_t(col);
            if (z < m_depth[i]) {
                m_depth[i] = z;
                m_face[i] = face;
                m_mesh[i] = mesh;
            }
        }
    }
}

void KvoRasterizer::draw(const XPnt3f* v, long nv, const unsigned* t, long nf, int32_t mesh, bool cull)
{
    if (!v || !t || nv <= 0 || nf <= 0 || m_rx0 >= m_rx1 || m_ry0 >= m_ry1)
        return;
    // Each vertex is transformed and placed in the window once, however many
    // triangles share it.
    std::vector<double> clip(size_t(nv) * 4);
    std::vector<WinVertex> win(static_cast<size_t>(nv));
    const double* m = m_mvp;
    const double W = m_width, H = m_height;
#pragma omp parallel for schedule(static)
    for (long i = 0; i < nv; ++i) {
        const double x = v[i].x, y = v[i].y, z = v[i].z;
        double* c = &clip[size_t(i) * 4];
        c[0] = m[0] * x + m[4] * y + m[8] * z + m[12];
        c[1] = m[1] * x + m[5] * y + m[9] * z + m[13];
        c[2] = m[2] * x + m[6] * y + m[10] * z + m[14];
        c[3] = m[3] * x + m[7] * y + m[11] * z + m[15];
        WinVertex& w = win[size_t(i)];
        w.code = 0;
        for (int pl = 0; pl < 6; ++pl)
            if (!(planeDist(kPlanes[pl], c) >= 0))
                w.code |= uint8_t(1u << pl);
        if (w.code == 0) {
            w.x = std::llround((c[0] / c[3] + 1) * 0.5 * W * kSub);
            w.y = std::llround((1 - c[1] / c[3]) * 0.5 * H * kSub);
            w.z = float(std::clamp((c[2] / c[3] + 1) * 0.5, 0.0, 1.0));
        }
    }
    // Triangles that cross a clip plane are cut here, in face order; all the
    // others go straight from the window vertices.
    std::vector<ScreenTri> cut;
    for (long f = 0; f < nf; ++f) {
        const unsigned a = t[f * 3], b = t[f * 3 + 1], c = t[f * 3 + 2];
        if (long(a) >= nv || long(b) >= nv || long(c) >= nv)
            continue;
        const unsigned any = win[a].code | win[b].code | win[c].code;
        if (!any || (win[a].code & win[b].code & win[c].code))
            continue;
        double poly[2][9][4];
        const double* p[3] = {&clip[size_t(a) * 4], &clip[size_t(b) * 4], &clip[size_t(c) * 4]};
        int n = 3, cur = 0;
        for (int k = 0; k < 3; ++k)
            std::copy(p[k], p[k] + 4, poly[0][k]);
        for (int pl = 0; pl < 6 && n >= 3; ++pl) {
            if (!(any & (1u << pl)))
                continue;
            int m2 = 0;
            for (int k = 0; k < n; ++k) {
                const double* A = poly[cur][k];
                const double* B = poly[cur][(k + 1) % n];
                const double da = planeDist(kPlanes[pl], A), db = planeDist(kPlanes[pl], B);
                if (da >= 0)
                    std::copy(A, A + 4, poly[1 - cur][m2++]);
                if ((da >= 0) != (db >= 0)) {
                    const double s = da / (da - db);
                    for (int j = 0; j < 4; ++j)
                        poly[1 - cur][m2][j] = A[j] + (B[j] - A[j]) * s;
                    ++m2;
                }
            }
            n = m2;
            cur = 1 - cur;
        }
        if (n >= 3)
            emitClipped(poly[cur], n, mesh, int32_t(f), cull, cut);
    }

    // Bands of rows are dealt out to the threads; each thread walks all the
    // triangles in face order and draws the rows of its own bands, so the
    // buffers come out the same whatever the number of threads.
    const int firstBand = m_ry0 / kBand;
#pragma omp parallel
    {
        const int T = omp_get_num_threads(), me = omp_get_thread_num();
        auto drawTri = [&](const int64_t* X, const int64_t* Y, const float* Z, int32_t face, int yMin, int yMax) {
            const int b0 = yMin / kBand, b1 = yMax / kBand;
            for (int b = b0; b <= b1; ++b) {
                if ((b - firstBand) % T != me)
                    continue;
                rasterRows(X, Y, Z, mesh, face, std::max(yMin, b * kBand), std::min(yMax, b * kBand + kBand - 1));
            }
        };
        size_t next = 0;
        for (long f = 0; f < nf; ++f) {
            const unsigned a = t[f * 3], b = t[f * 3 + 1], c = t[f * 3 + 2];
            if (long(a) >= nv || long(b) >= nv || long(c) >= nv)
                continue;
            const WinVertex &A = win[a], &B = win[b], &C = win[c];
            if (A.code | B.code | C.code) {
                for (; next < cut.size() && cut[next].face == int32_t(f); ++next)
                    drawTri(cut[next].x, cut[next].y, cut[next].z, cut[next].face, cut[next].yMin, cut[next].yMax);
                continue;
            }
            const int64_t area = (B.x - A.x) * (C.y - A.y) - (B.y - A.y) * (C.x - A.x);
            if (area == 0 || (cull && area > 0))
                continue;
            const int yMin = std::max(firstRow(std::min({A.y, B.y, C.y})), m_ry0);
            const int yMax = std::min(lastRow(std::max({A.y, B.y, C.y})), m_ry1 - 1);
            if (yMin > yMax)
                continue;
            // Counter-clockwise on screen (area < 0 with y down) is turned so
            // that the inside has positive edge values.
            const WinVertex& P1 = area < 0 ? C : B;
            const WinVertex& P2 = area < 0 ? B : C;
            const int64_t X[3] = {A.x, P1.x, P2.x}, Y[3] = {A.y, P1.y, P2.y};
            const float Z[3] = {A.z, P1.z, P2.z};
            drawTri(X, Y, Z, int32_t(f), yMin, yMax);
        }
    }
}

void KvoRasterizer::markShown(int x0, int y0, int x1, int y1, std::vector<std::vector<uint8_t>>& flags) const
{
    x0 = std::clamp(x0, 0, m_width);
    x1 = std::clamp(x1, 0, m_width);
    y0 = std::clamp(y0, 0, m_height);
    y1 = std::clamp(y1, 0, m_height);
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) {
            const size_t i = size_t(y) * size_t(m_width) + size_t(x);
            const int32_t mesh = m_mesh[i], face = m_face[i];
            if (mesh >= 0 && size_t(mesh) < flags.size() && face >= 0 && size_t(face) < flags[size_t(mesh)].size())
                flags[size_t(mesh)][size_t(face)] = 1;
        }
}

} // namespace kvo

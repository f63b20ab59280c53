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

void KvoRasterizer::emit(const double clip[][4], int n, int32_t mesh, int32_t face, bool cull,
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

void KvoRasterizer::setup(const XPnt3f* v, long nv, const unsigned* t, long nf, int32_t mesh, bool cull,
                          std::vector<ScreenTri>& out) const
{
    // Each vertex is transformed once, however many triangles share it.
    std::vector<double> clip(size_t(nv) * 4);
    const double* m = m_mvp;
#pragma omp parallel for schedule(static)
    for (long i = 0; i < nv; ++i) {
        const double x = v[i].x, y = v[i].y, z = v[i].z;
        double* c = &clip[size_t(i) * 4];
        c[0] = m[0] * x + m[4] * y + m[8] * z + m[12];
        c[1] = m[1] * x + m[5] * y + m[9] * z + m[13];
        c[2] = m[2] * x + m[6] * y + m[10] * z + m[14];
        c[3] = m[3] * x + m[7] * y + m[11] * z + m[15];
    }
    const int threads = std::max(1, omp_get_max_threads());
    std::vector<std::vector<ScreenTri>> parts(static_cast<size_t>(threads));
#pragma omp parallel num_threads(threads)
    {
        const int id = omp_get_thread_num(), count = omp_get_num_threads();
        const long begin = nf * id / count, end = nf * (id + 1) / count;
        std::vector<ScreenTri>& local = parts[size_t(id)];
        double poly[2][9][4];
        for (long f = begin; f < end; ++f) {
            const unsigned a = t[f * 3], b = t[f * 3 + 1], c = t[f * 3 + 2];
            if (long(a) >= nv || long(b) >= nv || long(c) >= nv)
                continue;
            const double* p[3] = {&clip[size_t(a) * 4], &clip[size_t(b) * 4], &clip[size_t(c) * 4]};
            unsigned allOut = 0x3f, anyOut = 0;
            for (int k = 0; k < 3; ++k) {
                unsigned code = 0;
                for (int pl = 0; pl < 6; ++pl)
                    if (!(planeDist(kPlanes[pl], p[k]) >= 0))
                        code |= 1u << pl;
                allOut &= code;
                anyOut |= code;
            }
            if (allOut)
                continue;
            if (!anyOut) {
                const double tri[3][4] = {{p[0][0], p[0][1], p[0][2], p[0][3]},
                                          {p[1][0], p[1][1], p[1][2], p[1][3]},
                                          {p[2][0], p[2][1], p[2][2], p[2][3]}};
                emit(tri, 3, mesh, int32_t(f), cull, local);
                continue;
            }
            // Sutherland-Hodgman in homogeneous coordinates, against the
            // planes that some corner is outside of.
            int n = 3, cur = 0;
            for (int k = 0; k < 3; ++k)
                std::copy(p[k], p[k] + 4, poly[0][k]);
            for (int pl = 0; pl < 6 && n >= 3; ++pl) {
                if (!(anyOut & (1u << pl)))
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
                emit(poly[cur], n, mesh, int32_t(f), cull, local);
        }
    }
    size_t total = 0;
    for (auto& part : parts)
        total += part.size();
    out.reserve(out.size() + total);
    for (auto& part : parts)
        out.insert(out.end(), part.begin(), part.end());
}

void KvoRasterizer::rasterBand(const std::vector<const ScreenTri*>& tris, int y0, int y1)
{
    const int W = m_width;
    for (const ScreenTri* tp : tris) {
        const ScreenTri& t = *tp;
        const int rowA = std::max(t.yMin, y0), rowB = std::min(t.yMax, y1 - 1);
        if (rowA > rowB)
            continue;
        const int64_t xlo = std::min({t.x[0], t.x[1], t.x[2]}), xhi = std::max({t.x[0], t.x[1], t.x[2]});
        const int64_t colLo = (xlo - kSub / 2 + kSub - 1) >= 0 ? (xlo - kSub / 2 + kSub - 1) / kSub : 0;
        const int64_t colHi = xhi - kSub / 2 >= 0 ? (xhi - kSub / 2) / kSub : -1;
        const int colA = int(std::max<int64_t>(colLo, m_rx0)), colB = int(std::min<int64_t>(colHi, m_rx1 - 1));
        if (colA > colB)
            continue;
        // Edge k runs from corner k to corner k+1; inside is E >= 0 (area > 0
        // here), and a pixel centre exactly on an edge belongs to the
        // triangle when the edge is a top or a left one.
        int64_t dxE[3], dyE[3], bias[3];
        for (int k = 0; k < 3; ++k) {
            const int j = (k + 1) % 3;
            dxE[k] = t.x[j] - t.x[k];
            dyE[k] = t.y[j] - t.y[k];
            const bool topLeft = dyE[k] < 0 || (dyE[k] == 0 && dxE[k] > 0);
            bias[k] = topLeft ? 0 : -1;
        }
        const int64_t area = dxE[0] * (t.y[2] - t.y[0]) - dyE[0] * (t.x[2] - t.x[0]);
        // Depth: z0 + (z1 - z0) * E1 / area + (z2 - z0) * E2 / area, where E1 is
        // the edge opposite corner 1 (edge 2) and E2 the one opposite corner 2 (edge 0).
        const double za = double(t.z[1] - t.z[0]) / double(area), zb = double(t.z[2] - t.z[0]) / double(area);
        const int64_t px0 = int64_t(colA) * kSub + kSub / 2;
        for (int row = rowA; row <= rowB; ++row) {
            const int64_t py = int64_t(row) * kSub + kSub / 2;
            int64_t e[3];
            for (int k = 0; k < 3; ++k)
                e[k] = dxE[k] * (py - t.y[k]) - dyE[k] * (px0 - t.x[k]);
            const size_t rowBase = size_t(row) * size_t(W);
            for (int col = colA; col <= colB; ++col) {
                if (e[0] + bias[0] >= 0 && e[1] + bias[1] >= 0 && e[2] + bias[2] >= 0) {
                    const float z = float(t.z[0] + za * double(e[2]) + zb * double(e[0]));
                    const size_t i = rowBase + size_t(col);
                    if (z < m_depth[i]) {
                        m_depth[i] = z;
                        m_face[i] = t.face;
                        m_mesh[i] = t.mesh;
                    }
                }
                for (int k = 0; k < 3; ++k)
                    e[k] -= dyE[k] * kSub;
            }
        }
    }
}

void KvoRasterizer::draw(const XPnt3f* vertices, long vertexCount, const unsigned* triangles, long faceCount,
                         int32_t mesh, bool cullBackFaces)
{
    if (!vertices || !triangles || vertexCount <= 0 || faceCount <= 0 || m_rx0 >= m_rx1 || m_ry0 >= m_ry1)
        return;
    std::vector<ScreenTri> tris;
    setup(vertices, vertexCount, triangles, faceCount, mesh, cullBackFaces, tris);
    // Bin by bands of rows, keeping draw order inside each band.
    const int bands = (m_ry1 - m_ry0 + kBand - 1) / kBand;
    std::vector<std::vector<const ScreenTri*>> bins(static_cast<size_t>(bands));
    for (const ScreenTri& t : tris) {
        const int b0 = (t.yMin - m_ry0) / kBand, b1 = (t.yMax - m_ry0) / kBand;
        for (int b = b0; b <= b1; ++b)
            bins[size_t(b)].push_back(&t);
    }
#pragma omp parallel for schedule(dynamic, 1)
    for (int b = 0; b < bands; ++b) {
        const int y0 = m_ry0 + b * kBand;
        rasterBand(bins[size_t(b)], y0, std::min(m_ry1, y0 + kBand));
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

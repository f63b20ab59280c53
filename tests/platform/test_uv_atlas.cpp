// The UV layout of whole meshes: every face inside its sheet, no two faces on
// one pixel, charts kept apart by the gutter, faces neither mirrored nor
// scaled unevenly, and the sheets well used on the bundled sample.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "modelio/KvoObjReader.h"
#include "scene/KvoUVAtlas.h"

using Rec3D::RecMesh::calUVForMesh;
using Rec3D::RecMesh::KvoUVLayout;

namespace {

struct Mesh {
    std::vector<XPnt3f> v;
    std::vector<unsigned> t;
    long faces() const { return long(t.size() / 3); }
};

Mesh sphere(int rings, int segments, float r)
{
    Mesh m;
    const double pi = std::acos(-1.0);
    for (int i = 0; i <= rings; ++i)
        for (int j = 0; j < segments; ++j) {
            const double th = pi * i / rings, ph = 2 * pi * j / segments;
            m.v.emplace_back(float(r * std::sin(th) * std::cos(ph)), float(r * std::sin(th) * std::sin(ph)),
                             float(r * std::cos(th)));
        }
    auto id = [&](int i, int j) { return unsigned(i * segments + (j % segments)); };
    for (int i = 0; i < rings; ++i)
        for (int j = 0; j < segments; ++j) {
            // Outward-facing: counter-clockwise seen from outside.
            if (i > 0)
                m.t.insert(m.t.end(), {id(i, j), id(i + 1, j), id(i, j + 1)});
            if (i + 1 < rings)
                m.t.insert(m.t.end(), {id(i, j + 1), id(i + 1, j), id(i + 1, j + 1)});
        }
    return m;
}

// A bumpy terrain whose steep slopes face many ways.
Mesh terrain(int n, unsigned seed)
{
    Mesh m;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> noise(-0.4f, 0.4f);
    for (int y = 0; y <= n; ++y)
        for (int x = 0; x <= n; ++x)
            m.v.emplace_back(float(x), float(y), 3.0f * std::sin(x * 0.7f) * std::cos(y * 0.5f) + noise(rng));
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
            const unsigned a = unsigned(y * (n + 1) + x), b = a + 1, c = a + unsigned(n + 1), d = c + 1;
            m.t.insert(m.t.end(), {a, b, d, a, d, c});
        }
    return m;
}

Mesh sampleModel()
{
    kvo::QvObjModel obj;
    Mesh m;
    if (kvo::readObjFile(obj, QUOVARA_SOURCE_DIR "/samples/building/model.obj", nullptr) != 0)
        return m;
    m.v = obj.vertices->vec();
    for (const auto& tri : obj.triangles)
        for (int k = 0; k < 3; ++k)
            m.t.push_back(tri.vindices[k]);
    return m;
}

double area3(const Mesh& m, long f)
{
    const XPnt3f &a = m.v[m.t[3 * f]], &b = m.v[m.t[3 * f + 1]], &c = m.v[m.t[3 * f + 2]];
    const double ux = b.x - a.x, uy = b.y - a.y, uz = b.z - a.z, vx = c.x - a.x, vy = c.y - a.y, vz = c.z - a.z;
    const double nx = uy * vz - uz * vy, ny = uz * vx - ux * vz, nz = ux * vy - uy * vx;
    return 0.5 * std::sqrt(nx * nx + ny * ny + nz * nz);
}

// Signed area of a face's UV triangle, in pixels of its sheet.
double uvArea(const KvoUVLayout& l, long f, long side)
{
    const XPnt2f &a = l.uvs[l.cornerUVs[3 * f]], &b = l.uvs[l.cornerUVs[3 * f + 1]], &c = l.uvs[l.cornerUVs[3 * f + 2]];
    return 0.5 * (double(b.x - a.x) * double(c.y - a.y) - double(b.y - a.y) * double(c.x - a.x)) * double(side) *
           double(side);
}

// Faces that share a UV point must be in one chart.
void expectChartsHoldTheirPoints(const KvoUVLayout& l, long faces)
{
    std::vector<long> chartOfPoint(l.uvs.size(), -1);
    for (long f = 0; f < faces; ++f)
        for (int k = 0; k < 3; ++k) {
            long& c = chartOfPoint[l.cornerUVs[3 * f + k]];
            if (c < 0)
                c = long(l.charts[size_t(f)]);
            ASSERT_EQ(c, long(l.charts[size_t(f)])) << "face " << f;
        }
}

// Whether a triangle (pixel coordinates) meets the open square of a pixel.
bool touchesPixel(const double* x, const double* y, int px, int py)
{
    const double sx[4] = {double(px), double(px + 1), double(px + 1), double(px)};
    const double sy[4] = {double(py), double(py), double(py + 1), double(py + 1)};
    const double e = 1e-9;
    if (std::max({x[0], x[1], x[2]}) <= px + e || std::min({x[0], x[1], x[2]}) >= px + 1 - e ||
        std::max({y[0], y[1], y[2]}) <= py + e || std::min({y[0], y[1], y[2]}) >= py + 1 - e)
        return false;
    for (int k = 0; k < 3; ++k) {
        const double nx = y[(k + 1) % 3] - y[k], ny = x[k] - x[(k + 1) % 3];
        const double len = std::hypot(nx, ny);
        if (len == 0)
            continue;
        double tmin = 1e300, tmax = -1e300, smin = 1e300, smax = -1e300;
        for (int i = 0; i < 3; ++i) {
            const double t = (x[i] * nx + y[i] * ny) / len;
            tmin = std::min(tmin, t);
            tmax = std::max(tmax, t);
        }
        for (int i = 0; i < 4; ++i) {
            const double s = (sx[i] * nx + sy[i] * ny) / len;
            smin = std::min(smin, s);
            smax = std::max(smax, s);
        }
        if (tmax <= smin + e || smax <= tmin + e)
            return false;
    }
    return true;
}

// Checks the layout's invariants on every sheet by rasterising it.
void expectSoundLayout(const Mesh& m, const KvoUVLayout& l, long side, long gutter)
{
    const long faces = m.faces();
    ASSERT_EQ(l.cornerUVs.size(), size_t(3 * faces));
    ASSERT_EQ(l.sheets.size(), size_t(faces));
    ASSERT_GE(l.sheetCount, 1);
    for (const XPnt2f& uv : l.uvs) {
        ASSERT_GE(uv.x, 0.f);
        ASSERT_LE(uv.x, 1.f);
        ASSERT_GE(uv.y, 0.f);
        ASSERT_LE(uv.y, 1.f);
    }
    ASSERT_EQ(l.charts.size(), size_t(faces));
    expectChartsHoldTheirPoints(l, faces);
    const std::vector<unsigned>& chart = l.charts;
    std::vector<long> sheetOfChart(size_t(l.chartCount), -1);
    for (long f = 0; f < faces; ++f) {
        ASSERT_LT(long(l.sheets[size_t(f)]), l.sheetCount);
        ASSERT_LT(long(chart[size_t(f)]), l.chartCount);
        // A chart lies on one sheet.
        long& s = sheetOfChart[chart[size_t(f)]];
        if (s < 0)
            s = long(l.sheets[size_t(f)]);
        ASSERT_EQ(s, long(l.sheets[size_t(f)]));
    }

    // Texture is neither mirrored nor stretched unevenly: every face keeps its
    // orientation, and its pixels per square metre stay within what a
    // projection inside the charts' cone allows.
    double lo = 1e300, hi = 0;
    for (long f = 0; f < faces; ++f) {
        const double a = area3(m, f);
        if (a < 1e-9)
            continue;
        const double u = uvArea(l, f, side);
        EXPECT_GT(u, 0) << "face " << f << " is mirrored or flat in UV";
        lo = std::min(lo, u / a);
        hi = std::max(hi, u / a);
    }
    EXPECT_LT(hi / lo, 1.0 / 0.63) << "uneven texel density";

    // Pixel centres: no two faces claim one. Touched pixels: different charts
    // keep more than the gutter apart.
    for (long s = 0; s < l.sheetCount; ++s) {
        std::vector<int> centreOwner(size_t(side * side), -1), chartAt(size_t(side * side), -1);
        long overlaps = 0;
        for (long f = 0; f < faces; ++f) {
            if (long(l.sheets[size_t(f)]) != s)
                continue;
            double x[3], y[3];
            for (int k = 0; k < 3; ++k) {
                const XPnt2f& uv = l.uvs[l.cornerUVs[3 * f + k]];
                x[k] = double(uv.x) * double(side);
                y[k] = double(uv.y) * double(side);
            }
            const int x0 = std::max(0, int(std::floor(std::min({x[0], x[1], x[2]}))));
            const int x1 = std::min(int(side) - 1, int(std::floor(std::max({x[0], x[1], x[2]}))));
            const int y0 = std::max(0, int(std::floor(std::min({y[0], y[1], y[2]}))));
            const int y1 = std::min(int(side) - 1, int(std::floor(std::max({y[0], y[1], y[2]}))));
            const double orient = (x[1] - x[0]) * (y[2] - y[0]) - (y[1] - y[0]) * (x[2] - x[0]);
            for (int py = y0; py <= y1; ++py)
                for (int px = x0; px <= x1; ++px) {
                    if (touchesPixel(x, y, px, py)) {
                        int& c = chartAt[size_t(py * side + px)];
                        if (c >= 0 && c != int(chart[size_t(f)]))
                            ++overlaps;
                        c = int(chart[size_t(f)]);
                    }
                    const double cx = px + 0.5, cy = py + 0.5;
                    bool inside = orient != 0;
                    for (int k = 0; k < 3 && inside; ++k) {
                        const double e = (x[(k + 1) % 3] - x[k]) * (cy - y[k]) - (y[(k + 1) % 3] - y[k]) * (cx - x[k]);
                        inside = orient > 0 ? e > 1e-9 : e < -1e-9;
                    }
                    if (inside) {
                        int& o = centreOwner[size_t(py * side + px)];
                        if (o >= 0)
                            ++overlaps;
                        o = int(f);
                    }
                }
        }
        EXPECT_EQ(overlaps, 0) << "sheet " << s;
        long tooClose = 0, edge = 0;
        for (long py = 0; py < side; ++py)
            for (long px = 0; px < side; ++px) {
                const int c = chartAt[size_t(py * side + px)];
                if (c < 0)
                    continue;
                if (px < gutter || py < gutter || px >= side - gutter || py >= side - gutter)
                    ++edge;
                for (long dy = -gutter; dy <= gutter; ++dy)
                    for (long dx = -gutter; dx <= gutter; ++dx) {
                        const long qx = px + dx, qy = py + dy;
                        if (qx < 0 || qy < 0 || qx >= side || qy >= side)
                            continue;
                        const int d = chartAt[size_t(qy * side + qx)];
                        tooClose += d >= 0 && d != c;
                    }
            }
        EXPECT_EQ(tooClose, 0) << "charts closer than the gutter on sheet " << s;
        EXPECT_EQ(edge, 0) << "charts within the gutter of the sheet's border on sheet " << s;
    }
}

} // namespace

TEST(UVAtlas, CurvedAndBumpySurfacesLayOutWithoutOverlapAndWithTheGutter)
{
    struct Case {
        Mesh mesh;
        long side, gutter;
    } cases[] = {{sphere(24, 48, 2.f), 512, 5}, {terrain(40, 7), 512, 3}, {sphere(6, 8, 1.f), 256, 8}};
    for (const Case& c : cases) {
        KvoUVLayout l;
        ASSERT_EQ(calUVForMesh(c.mesh.v.data(), long(c.mesh.v.size()), c.mesh.t.data(), c.mesh.faces(), c.side,
                               c.gutter, 1000, nullptr, l, nullptr),
                  0);
        EXPECT_EQ(l.sheetCount, 1);
        EXPECT_GT(l.chartCount, 1);
        expectSoundLayout(c.mesh, l, c.side, c.gutter);
        EXPECT_GT(l.efficiency, 0.3);
    }
}

TEST(UVAtlas, TheSampleSceneUsesMostOfItsSheet)
{
    const Mesh m = sampleModel();
    ASSERT_GT(m.faces(), 1000);
    KvoUVLayout l;
    ASSERT_EQ(calUVForMesh(m.v.data(), long(m.v.size()), m.t.data(), m.faces(), 512, 5, 1000, nullptr, l, nullptr), 0);
    expectSoundLayout(m, l, 512, 5);
    std::printf("sample: %ld faces, %ld charts, %ld sheet(s) of 512, efficiency %.1f %%\n", m.faces(), l.chartCount,
                l.sheetCount, 100 * l.efficiency);
    EXPECT_GT(l.efficiency, 0.6);
}

// The photographs' resolution asks for more sheets; the limit caps them.
TEST(UVAtlas, SourceResolutionChoosesTheSheetCountUpToTheLimit)
{
    const Mesh m = terrain(30, 3);
    double total = 0;
    for (long f = 0; f < m.faces(); ++f)
        total += area3(m, f);
    // About six sheets' worth of texels, spread by area.
    std::vector<float> texels(size_t(m.faces()));
    for (long f = 0; f < m.faces(); ++f)
        texels[size_t(f)] = float(6.0 * 256 * 256 * area3(m, f) / total);
    KvoUVLayout l;
    ASSERT_EQ(
        calUVForMesh(m.v.data(), long(m.v.size()), m.t.data(), m.faces(), 256, 4, 1000, texels.data(), l, nullptr), 0);
    EXPECT_GE(l.sheetCount, 6);
    EXPECT_LE(l.sheetCount, 30);
    expectSoundLayout(m, l, 256, 4);
    // At least the photographs' resolution, short of what the projection on a
    // chart's plane takes away.
    double covered = 0;
    for (long f = 0; f < m.faces(); ++f)
        covered += uvArea(l, f, 256);
    EXPECT_GE(covered, 0.64 * 6.0 * 256 * 256);

    ASSERT_EQ(calUVForMesh(m.v.data(), long(m.v.size()), m.t.data(), m.faces(), 256, 4, 2, texels.data(), l, nullptr),
              0);
    EXPECT_EQ(l.sheetCount, 2);
    expectSoundLayout(m, l, 256, 4);
}

TEST(UVAtlas, BadInputIsRefused)
{
    Mesh m = sphere(4, 6, 1.f);
    KvoUVLayout l;
    const long nv = long(m.v.size());
    EXPECT_EQ(calUVForMesh(nullptr, nv, m.t.data(), m.faces(), 512, 5, 1000, nullptr, l, nullptr), -1);
    EXPECT_EQ(calUVForMesh(m.v.data(), nv, m.t.data(), 0, 512, 5, 1000, nullptr, l, nullptr), -1);
    EXPECT_EQ(calUVForMesh(m.v.data(), nv, m.t.data(), m.faces(), 8, 1, 1000, nullptr, l, nullptr), -3);
    EXPECT_EQ(calUVForMesh(m.v.data(), nv, m.t.data(), m.faces(), 512, 5, 0, nullptr, l, nullptr), -3);
    m.t[4] = unsigned(nv);
    EXPECT_EQ(calUVForMesh(m.v.data(), nv, m.t.data(), m.faces(), 512, 5, 1000, nullptr, l, nullptr), -2);

    // A thousand loose triangles cannot keep a gutter on one small sheet.
    Mesh loose;
    for (unsigned i = 0; i < 1000; ++i) {
        loose.v.emplace_back(float(i), 0.f, 0.f);
        loose.v.emplace_back(float(i) + 0.5f, 0.f, 0.f);
        loose.v.emplace_back(float(i), 0.5f, 0.f);
        loose.t.insert(loose.t.end(), {3 * i, 3 * i + 1, 3 * i + 2});
    }
    EXPECT_EQ(calUVForMesh(loose.v.data(), long(loose.v.size()), loose.t.data(), loose.faces(), 64, 2, 1, nullptr, l,
                           nullptr),
              -4);
    // With room for more sheets it goes in.
    ASSERT_EQ(calUVForMesh(loose.v.data(), long(loose.v.size()), loose.t.data(), loose.faces(), 64, 2, 1000, nullptr, l,
                           nullptr),
              0);
    EXPECT_EQ(l.chartCount, 1000);
    expectSoundLayout(loose, l, 64, 2);
}

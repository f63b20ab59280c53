// The visibility engine against a ray-casting oracle that shares none of its
// code: for every pixel centre, the nearest triangle the ray meets.

#include <omp.h>

#include <cmath>
#include <random>

#include "platform/KvoCameraMath.h"
#include "platform/KvoRasterizer.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

struct Scene {
    std::vector<XPnt3f> v;
    std::vector<unsigned> t;
};

struct View {
    double mv[16], pr[16];
    int w, h;
    double zNear, zFar;
    XPnt3d eye;
};

View makeView(const XPnt3d& eye, const XPnt3d& centre, int w, int h, double zNear, double zFar)
{
    View v;
    lookAtMatrix(eye, centre, XPnt3d(0, 0, 1), v.mv);
    perspectiveMatrix(40, double(w) / h, zNear, zFar, v.pr);
    v.w = w;
    v.h = h;
    v.zNear = zNear;
    v.zFar = zFar;
    v.eye = eye;
    return v;
}

// Window position (y down) of a point, through the same GLU-equivalent math.
XPnt3d toWindow(const View& view, const XPnt3d& p)
{
    const int vp[4] = {0, 0, view.w, view.h};
    XPnt3d win;
    projectPoint(p, view.mv, view.pr, vp, win);
    return XPnt3d(win.x, view.h - win.y, win.z);
}

// The ray through a window position, as two points on the near and far planes.
void ray(const View& view, double x, double y, XPnt3d& a, XPnt3d& b)
{
    const int vp[4] = {0, 0, view.w, view.h};
    unprojectPoint(XPnt3d(x, view.h - y, 0), view.mv, view.pr, vp, a);
    unprojectPoint(XPnt3d(x, view.h - y, 1), view.mv, view.pr, vp, b);
}

// Nearest hit between the near and far planes, front faces only when culling.
long oracle(const Scene& s, const View& view, double x, double y, bool cull, double& depth)
{
    XPnt3d a, b;
    ray(view, x, y, a, b);
    const XPnt3d d = b - a;
    long best = -1;
    double bestT = 2;
    for (size_t f = 0; f * 3 < s.t.size(); ++f) {
        const XPnt3f &p0 = s.v[s.t[f * 3]], &p1 = s.v[s.t[f * 3 + 1]], &p2 = s.v[s.t[f * 3 + 2]];
        const XPnt3d v0(p0.x, p0.y, p0.z), e1 = XPnt3d(p1.x, p1.y, p1.z) - v0, e2 = XPnt3d(p2.x, p2.y, p2.z) - v0;
        const XPnt3d pv(d.y * e2.z - d.z * e2.y, d.z * e2.x - d.x * e2.z, d.x * e2.y - d.y * e2.x);
        const double det = e1.x * pv.x + e1.y * pv.y + e1.z * pv.z;
        if (std::abs(det) < 1e-18)
            continue;
        // Seen from the eye, a front face winds counter-clockwise: det < 0
        // for a ray running away from the eye.
        if (cull && det < 0)
            continue;
        const XPnt3d tv = a - v0;
        const double u = (tv.x * pv.x + tv.y * pv.y + tv.z * pv.z) / det;
        const XPnt3d q(tv.y * e1.z - tv.z * e1.y, tv.z * e1.x - tv.x * e1.z, tv.x * e1.y - tv.y * e1.x);
        const double w = (d.x * q.x + d.y * q.y + d.z * q.z) / det;
        const double t = (e2.x * q.x + e2.y * q.y + e2.z * q.z) / det;
        if (u < 0 || w < 0 || u + w > 1 || t < 0 || t > 1)
            continue;
        if (t < bestT) {
            bestT = t;
            best = long(f);
        }
    }
    if (best >= 0)
        depth = toWindow(view, a + d * bestT).z;
    return best;
}

// Distance in pixels from a window position to the nearest edge of a face's
// window-space triangle (clipped faces are not looked at: large distance).
double edgeDistance(const Scene& s, const View& view, long f, double x, double y)
{
    XPnt3d w[3];
    for (int k = 0; k < 3; ++k) {
        const XPnt3f& p = s.v[s.t[size_t(f) * 3 + size_t(k)]];
        w[k] = toWindow(view, XPnt3d(p.x, p.y, p.z));
        if (w[k].z < 0 || w[k].z > 1)
            return 0;
    }
    double best = 1e300;
    for (int k = 0; k < 3; ++k) {
        const XPnt3d &a = w[k], &b = w[(k + 1) % 3];
        const double dx = b.x - a.x, dy = b.y - a.y, len2 = dx * dx + dy * dy;
        double t = len2 > 0 ? ((x - a.x) * dx + (y - a.y) * dy) / len2 : 0;
        t = std::clamp(t, 0.0, 1.0);
        best = std::min(best, std::hypot(x - (a.x + t * dx), y - (a.y + t * dy)));
    }
    return best;
}

// Random triangles in a box, some large, some crossing the near plane.
Scene randomScene(std::mt19937& rng, int count, double spread)
{
    Scene s;
    std::uniform_real_distribution<float> c(-float(spread), float(spread)), off(-2.f, 2.f);
    for (int i = 0; i < count; ++i) {
        const XPnt3f centre(c(rng), c(rng), c(rng));
        for (int k = 0; k < 3; ++k) {
            s.v.push_back(centre + XPnt3f(off(rng), off(rng), off(rng)));
            s.t.push_back(unsigned(s.v.size() - 1));
        }
    }
    return s;
}

} // namespace

TEST(Rasterizer, EveryPixelShowsTheNearestTriangleTheRayMeets)
{
    std::mt19937 rng(21);
    for (int round = 0; round < 4; ++round) {
        const bool cull = round % 2 == 1;
        const Scene s = randomScene(rng, 120, 6);
        // Rounds 2 and 3 put the eye among the triangles: near clipping matters.
        const XPnt3d eye = round < 2 ? XPnt3d(3, -25, 6) : XPnt3d(0.5, -1, 0.2);
        const View view = makeView(eye, XPnt3d(0, 0, 0), 160, 120, round < 2 ? 5.0 : 0.5, 40.0);
        KvoRasterizer r;
        r.setCamera(view.mv, view.pr, view.w, view.h);
        r.draw(s.v.data(), long(s.v.size()), s.t.data(), long(s.t.size() / 3), 7, cull);
        int covered = 0, edgeCases = 0;
        for (int y = 0; y < view.h; ++y)
            for (int x = 0; x < view.w; ++x) {
                double depth = 1;
                const long want = oracle(s, view, x + 0.5, y + 0.5, cull, depth);
                const KvoRasterizer::Hit got = r.triangleAt(x, y);
                if (want >= 0)
                    ++covered;
                if (got.face == want) {
                    if (want >= 0) {
                        EXPECT_EQ(got.mesh, 7);
                        EXPECT_NEAR(r.depthAt(x, y), depth, 2e-4) << x << "," << y;
                    } else {
                        EXPECT_EQ(r.depthAt(x, y), 1.0f);
                    }
                    continue;
                }
                // Only where a pixel centre lies on an edge (to the snapping
                // of 1/256 pixel) may the two answers differ.
                const double d = std::min(want >= 0 ? edgeDistance(s, view, want, x + 0.5, y + 0.5) : 1e300,
                                          got.face >= 0 ? edgeDistance(s, view, got.face, x + 0.5, y + 0.5) : 1e300);
                EXPECT_LT(d, 0.01) << "round " << round << " pixel " << x << "," << y << " shows " << got.face
                                   << ", the ray meets " << want;
                ++edgeCases;
            }
        EXPECT_GT(covered, view.w * view.h / 10) << "round " << round;
        EXPECT_LT(edgeCases, 10);
    }
}

TEST(Rasterizer, SharedEdgesGiveEachPixelToExactlyOneTriangle)
{
    // A fan of 24 triangles around a centre that sits on a pixel corner, with
    // spokes through pixel centres: the hardest case for a fill rule.
    const View view = makeView(XPnt3d(0, -10, 0), XPnt3d(0, 0, 0), 64, 64, 1, 100);
    KvoRasterizer probe;
    probe.setCamera(view.mv, view.pr, view.w, view.h);
    Scene fan;
    fan.v.push_back(XPnt3f(0, 0, 0));
    const int n = 24;
    for (int i = 0; i < n; ++i) {
        const double a = 2 * M_PI * i / n;
        fan.v.push_back(XPnt3f(float(3 * std::cos(a)), 0, float(3 * std::sin(a))));
    }
    std::vector<int> coverage(size_t(view.w * view.h), 0);
    for (int i = 0; i < n; ++i) {
        const unsigned tri[3] = {0, unsigned(1 + i), unsigned(1 + (i + 1) % n)};
        KvoRasterizer r;
        r.setCamera(view.mv, view.pr, view.w, view.h);
        r.draw(fan.v.data(), long(fan.v.size()), tri, 1, 0, false);
        for (int p = 0; p < view.w * view.h; ++p)
            if (r.faceBuffer()[p] >= 0)
                ++coverage[size_t(p)];
    }
    int inside = 0;
    for (int y = 0; y < view.h; ++y)
        for (int x = 0; x < view.w; ++x) {
            const int c = coverage[size_t(y * view.w + x)];
            EXPECT_LE(c, 1) << x << "," << y;
            inside += c;
        }
    // The whole fan drawn at once covers exactly the same pixels.
    std::vector<unsigned> all;
    for (int i = 0; i < n; ++i)
        all.insert(all.end(), {0u, unsigned(1 + i), unsigned(1 + (i + 1) % n)});
    probe.draw(fan.v.data(), long(fan.v.size()), all.data(), n, 0, false);
    int together = 0;
    for (int p = 0; p < view.w * view.h; ++p) {
        const bool hit = probe.faceBuffer()[p] >= 0;
        together += hit;
        EXPECT_EQ(hit, coverage[size_t(p)] == 1);
    }
    EXPECT_EQ(together, inside);
    EXPECT_GT(inside, 200);
}

TEST(Rasterizer, CullingRegionAndThreadCountBehave)
{
    const View view = makeView(XPnt3d(0, -10, 0), XPnt3d(0, 0, 0), 80, 60, 1, 100);
    // Seen from -y with z up: (0,0,0) -> (1,0,0) -> (0,0,1) turns counter-clockwise.
    const std::vector<XPnt3f> v = {{-2, 0, -2}, {2, 0, -2}, {0, 0, 2}};
    const unsigned front[3] = {0, 1, 2}, back[3] = {0, 2, 1};
    KvoRasterizer r;
    r.setCamera(view.mv, view.pr, view.w, view.h);
    r.draw(v.data(), 3, back, 1, 0, true);
    EXPECT_FALSE(r.triangleAt(40, 30).valid()) << "a back face is culled";
    r.draw(v.data(), 3, front, 1, 0, true);
    EXPECT_TRUE(r.triangleAt(40, 30).valid());
    r.clear();
    r.draw(v.data(), 3, back, 1, 0, false);
    EXPECT_TRUE(r.triangleAt(40, 30).valid()) << "without culling both sides draw";
    XPnt3d win;
    ASSERT_TRUE(r.project(XPnt3d(0, 0, 0), win));
    EXPECT_NEAR(win.x, 40, 1e-9);
    EXPECT_NEAR(win.y, 30, 1e-9);
    EXPECT_NEAR(r.depthAt(40, 30), win.z, 1e-6);
    EXPECT_FALSE(r.project(XPnt3d(0, -20, 0), win)) << "behind the eye";

    r.setRegion(36, 30, 41, 35);
    r.draw(v.data(), 3, front, 1, 0, false);
    int drawn = 0;
    for (int y = 0; y < view.h; ++y)
        for (int x = 0; x < view.w; ++x)
            if (r.triangleAt(x, y).valid()) {
                ++drawn;
                EXPECT_TRUE(x >= 36 && x < 41 && y >= 30 && y < 35);
            }
    EXPECT_EQ(drawn, 25);
    std::vector<std::vector<uint8_t>> flags(1, std::vector<uint8_t>(1, 0));
    r.markShown(0, 0, view.w, view.h, flags);
    EXPECT_EQ(flags[0][0], 1);

    // The same buffers whatever the number of threads.
    std::mt19937 rng(5);
    const Scene s = randomScene(rng, 3000, 8);
    const View big = makeView(XPnt3d(2, -30, 4), XPnt3d(0, 0, 0), 300, 200, 5, 60);
    auto render = [&](int threads) {
        omp_set_num_threads(threads);
        KvoRasterizer k;
        k.setCamera(big.mv, big.pr, big.w, big.h);
        k.draw(s.v.data(), long(s.v.size()), s.t.data(), long(s.t.size() / 3), 0, true);
        return std::vector<int32_t>(k.faceBuffer(), k.faceBuffer() + big.w * big.h);
    };
    const int saved = omp_get_max_threads();
    EXPECT_EQ(render(1), render(4));
    omp_set_num_threads(saved);
}

// A pinhole camera with unequal focal lengths, skew and an off-centre
// principal point: the rasteriser's window positions are its pixel positions.
TEST(Rasterizer, PinholeMatricesPutPointsWhereTheCameraDoes)
{
    const double K[9] = {812.5, 3.25, 301.0, 0, 790.0, 255.5, 0, 0, 1};
    // A turn about y, then about x.
    const double a = 0.4, b = -0.25;
    const double Ry[9] = {std::cos(a), 0, std::sin(a), 0, 1, 0, -std::sin(a), 0, std::cos(a)};
    const double Rx[9] = {1, 0, 0, 0, std::cos(b), -std::sin(b), 0, std::sin(b), std::cos(b)};
    double Rn[9];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            Rn[3 * i + j] = Rx[3 * i] * Ry[j] + Rx[3 * i + 1] * Ry[3 + j] + Rx[3 * i + 2] * Ry[6 + j];
    const double t[3] = {0.3, -0.2, 6.0};
    double mv[16], pr[16];
    kvo::pinholeGlMatrices(K, Rn, t, 640, 480, 0.1, 100, mv, pr);
    kvo::KvoRasterizer r;
    r.setCamera(mv, pr, 640, 480);
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-2, 2);
    for (int i = 0; i < 200; ++i) {
        const XPnt3d X(u(rng), u(rng), u(rng));
        double q[3];
        for (int k = 0; k < 3; ++k)
            q[k] = Rn[3 * k] * X.x + Rn[3 * k + 1] * X.y + Rn[3 * k + 2] * X.z + t[k];
        const double x = (K[0] * q[0] + K[1] * q[1]) / q[2] + K[2], y = K[4] * q[1] / q[2] + K[5];
        XPnt3d w;
        ASSERT_TRUE(r.project(X, w));
        EXPECT_NEAR(w.x, x, 1e-9 * (1 + std::fabs(x)));
        EXPECT_NEAR(w.y, y, 1e-9 * (1 + std::fabs(y)));
        EXPECT_GT(w.z, 0);
        EXPECT_LT(w.z, 1);
    }
}

#include <gtest/gtest.h>

#include "support/TestSupport.h"

#include <cmath>
#include <random>

#include "scene/KvoGeometry.h"

using namespace kvo;

namespace {

constexpr double kPi = 3.14159265358979323846;

void expectNear(const XPnt3d& a, const XPnt3d& b, double tol)
{
    EXPECT_NEAR(a.x, b.x, tol);
    EXPECT_NEAR(a.y, b.y, tol);
    EXPECT_NEAR(a.z, b.z, tol);
}

TEST(GeometryArea, HeronGivesSixForThreeFourFive)
{
    XPnt2f a(0, 0), b(3, 0), c(0, 4);
    EXPECT_FLOAT_EQ(calArea(&a, &b, &c), 6.0f);
    EXPECT_FLOAT_EQ(calArea(&c, &a, &b), 6.0f);
    XPnt3f a3(1, 1, 1), b3(4, 1, 1), c3(1, 1, 5);
    EXPECT_FLOAT_EQ(calArea(&a3, &b3, &c3), 6.0f);
}

TEST(GeometryArea, CollinearAndRepeatedCornersGiveZero)
{
    XPnt2f a(0, 0), b(1, 1), c(2, 2);
    EXPECT_EQ(calArea(&a, &b, &c), 0.0f);
    EXPECT_EQ(calArea(&a, &a, &c), 0.0f);
    // Side lengths that round: sqrt(10) + sqrt(90) need not equal sqrt(160) in
    // floating point, yet the corners lie exactly on one line.
    XPnt2f d(0, 0), e(1, 3), f(3, 9);
    EXPECT_EQ(calArea(&d, &e, &f), 0.0f);
    XPnt2f g(7, 1), h(10, 2), k(19, 5);
    EXPECT_EQ(calArea(&g, &h, &k), 0.0f);
    XPnt3f p(0, 0, 0), q(1, 2, 3), r(3, 6, 9);
    EXPECT_EQ(calArea(&p, &q, &r), 0.0f);
    EXPECT_EQ(calArea(&p, &p, &p), 0.0f);
}

TEST(GeometryArea, MatchesTheCrossProductOnRandomTriangles)
{
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> u(-100, 100);
    for (int i = 0; i < 200; ++i) {
        XPnt3f a(u(rng), u(rng), u(rng)), b(u(rng), u(rng), u(rng)), c(u(rng), u(rng), u(rng));
        double expected = area3d(a.to3d(), b.to3d(), c.to3d());
        EXPECT_NEAR(calArea(&a, &b, &c), expected, 1e-5 * expected + 1e-4);
        XPnt2f a2(a.x, a.y), b2(b.x, b.y), c2(c.x, c.y);
        double twice = std::fabs(qvUVDirection(&a2, &b2, &c2));
        EXPECT_NEAR(calArea(&a2, &b2, &c2), twice / 2, 1e-5 * twice + 1e-4);
    }
}

TEST(GeometryArea, NeedleTriangleKeepsItsArea)
{
    // Base 1000, height 0.001: naive Heron loses every digit here.
    XPnt2f a(0, 0), b(1000, 0), c(500, 0.001f);
    EXPECT_NEAR(calArea(&a, &b, &c), 0.5 * 1000 * double(0.001f), 1e-4);
}

TEST(GeometryArea, DistanceAndUVDirection)
{
    XPnt2f a(1, 1), b(4, 5);
    EXPECT_FLOAT_EQ(calDis(&a, &b), 5.0f);
    XPnt3f p(1, 2, 3), q(3, 5, 9);
    EXPECT_FLOAT_EQ(calDis(&p, &q), 7.0f);

    XPnt2f o(0, 0), x(2, 0), y(0, 3);
    EXPECT_FLOAT_EQ(qvUVDirection(&o, &x, &y), 6.0f);  // counter-clockwise
    EXPECT_FLOAT_EQ(qvUVDirection(&o, &y, &x), -6.0f); // clockwise
    EXPECT_EQ(qvUVDirection(&o, &x, &x), 0.0f);
}

TEST(GeometryPolygon, EvenOddOnAConcavePolygon)
{
    // A "U": the notch between the arms is outside.
    const XPnt3d u[] = {{0, 0, 0}, {3, 0, 0}, {3, 3, 0}, {2, 3, 0}, {2, 1, 0}, {1, 1, 0}, {1, 3, 0}, {0, 3, 0}};
    EXPECT_TRUE(PntInPolygon(0.5, 2.5, u, 8));  // left arm
    EXPECT_TRUE(PntInPolygon(2.5, 2.5, u, 8));  // right arm
    EXPECT_TRUE(PntInPolygon(1.5, 0.5, u, 8));  // base
    EXPECT_FALSE(PntInPolygon(1.5, 2.0, u, 8)); // notch
    EXPECT_FALSE(PntInPolygon(-1, 1, u, 8));
    EXPECT_FALSE(PntInPolygon(4, 1, u, 8));
    EXPECT_FALSE(PntInPolygon(1.5, 3.5, u, 8));

    const XPnt2d u2[] = {{0, 0}, {3, 0}, {3, 3}, {2, 3}, {2, 1}, {1, 1}, {1, 3}, {0, 3}, {0, 0}};
    EXPECT_TRUE(PntInPolygon(0.5, 2.5, u2, 9));
    EXPECT_FALSE(PntInPolygon(1.5, 2.0, u2, 9));
    EXPECT_FALSE(PntInPolygon(0.5, 0.5, u2, 2));
    EXPECT_FALSE(PntInPolygon(0.5, 0.5, static_cast<const XPnt2d*>(nullptr), 0));
}

TEST(GeometryPolygon, TriangleTestsIncludeTheBorder)
{
    XPnt2d a(0, 0), b(4, 0), c(0, 4);
    EXPECT_TRUE(isInTriangle(XPnt2d(1, 1), a, b, c));
    EXPECT_TRUE(isInTriangle(XPnt2d(2, 2), a, b, c)); // on the hypotenuse
    EXPECT_TRUE(isInTriangle(XPnt2d(0, 0), a, b, c));
    EXPECT_FALSE(isInTriangle(XPnt2d(2.1, 2.1), a, b, c));
    EXPECT_TRUE(isInTriangle(XPnt2d(1, 1), a, c, b)); // either winding

    XPnt3d p(0, 0, 1), q(4, 0, 1), r(0, 4, 1);
    EXPECT_TRUE(PntInTri(XPnt3d(1, 1, 1), p, q, r));
    EXPECT_FALSE(PntInTri(XPnt3d(1, 1, 1.1), p, q, r));
    EXPECT_TRUE(PntInTri(XPnt3d(1, 1, 1.1), p, q, r, 0.2));
    EXPECT_FALSE(PntInTri(XPnt3d(3, 3, 1), p, q, r));
}

TEST(GeometryPlane, PlaneThroughThreePoints)
{
    kvoPlaneParam pl = getPlaneParam(XPnt3d(0, 0, 2), XPnt3d(1, 0, 2), XPnt3d(0, 1, 2));
    ASSERT_TRUE(pl.isValid());
    EXPECT_NEAR(pl.a, 0, 1e-15);
    EXPECT_NEAR(pl.b, 0, 1e-15);
    EXPECT_NEAR(pl.c, 1, 1e-15);
    EXPECT_NEAR(pl.d, -2, 1e-15);
    EXPECT_NEAR(pl.distance(XPnt3d(5, 5, 7)), 5, 1e-12);
    EXPECT_TRUE(isInPlane(XPnt3d(9, -3, 2), pl, 1e-9));
    EXPECT_FALSE(isInPlane(XPnt3d(9, -3, 2.1), pl, 1e-3));
    EXPECT_FALSE(pl.isVer(1.0));

    // Arbitrary points: unit normal, and each point on the plane.
    XPnt3d a(1.5, -2, 0.3), b(4, 1, -2), c(-3, 0.5, 1);
    kvoPlaneParam g = getPlaneParam(a, b, c);
    EXPECT_NEAR(g.normal().norm(), 1, 1e-12);
    for (const XPnt3d& p : {a, b, c})
        EXPECT_NEAR(g.distance(p), 0, 1e-12);
}

TEST(GeometryPlane, DegenerateTriplesGiveTheZeroPlane)
{
    kvoPlaneParam line = getPlaneParam(XPnt3d(0, 0, 0), XPnt3d(1, 1, 1), XPnt3d(3, 3, 3));
    EXPECT_FALSE(line.isValid());
    EXPECT_EQ(line.a, 0);
    EXPECT_EQ(line.b, 0);
    EXPECT_EQ(line.c, 0);
    EXPECT_EQ(line.d, 0);
    kvoPlaneParam dup = getPlaneParam(XPnt3d(1, 2, 3), XPnt3d(1, 2, 3), XPnt3d(0, 0, 1));
    EXPECT_FALSE(dup.isValid());
}

TEST(GeometryPlane, VerticalPlanes)
{
    // The tolerance is an angle in degrees. A wall x = 3, and the same wall
    // with a normal that is not unit and leans by 0.29 degrees.
    EXPECT_TRUE(kvoPlaneParam(1, 0, 0, -3).isVer(1e-9));
    EXPECT_TRUE(kvoPlaneParam(10, 0, 0.05, -30).isVer(0.3));
    EXPECT_FALSE(kvoPlaneParam(10, 0, 0.05, -30).isVer(0.25));
    // Tilted by 10 degrees from vertical.
    double t = 10 * kPi / 180;
    kvoPlaneParam tilted(std::cos(t), 0, std::sin(t), 0);
    EXPECT_TRUE(tilted.isVer(10.001));
    EXPECT_FALSE(tilted.isVer(9.999));
    EXPECT_FALSE(kvoPlaneParam(0, 0, 1, 0).isVer(1.0)) << "a floor";
    EXPECT_FALSE(kvoPlaneParam(0, 0, 0, 0).isVer(90));
}

TEST(GeometryIntersect, LineMeetsPlane)
{
    kvoPlaneParam floor(0, 0, 1, -1); // z = 1
    XPnt3d hit;
    ASSERT_TRUE(intersect(XPnt3d(0, 0, 5), XPnt3d(2, 4, 3), floor, hit));
    expectNear(hit, XPnt3d(4, 8, 1), 1e-12); // beyond the second point: a line, not a segment
    EXPECT_FALSE(intersect(XPnt3d(0, 0, 5), XPnt3d(2, 4, 5), floor, hit));
}

TEST(GeometryIntersect, SegmentsCrossIn2D)
{
    XPnt2d out;
    ASSERT_TRUE(intersect(XPnt2d(0, 0), XPnt2d(4, 4), XPnt2d(0, 4), XPnt2d(4, 0), out));
    EXPECT_NEAR(out.x, 2, 1e-12);
    EXPECT_NEAR(out.y, 2, 1e-12);
    // Touching at an end counts.
    ASSERT_TRUE(intersect(XPnt2d(0, 0), XPnt2d(2, 0), XPnt2d(2, -1), XPnt2d(2, 1), out));
    EXPECT_NEAR(out.x, 2, 1e-12);
    // The lines cross, the segments do not.
    EXPECT_FALSE(intersect(XPnt2d(0, 0), XPnt2d(1, 1), XPnt2d(0, 4), XPnt2d(4, 0), out));
    // Parallel.
    EXPECT_FALSE(intersect(XPnt2d(0, 0), XPnt2d(1, 0), XPnt2d(0, 1), XPnt2d(1, 1), out));
}

TEST(GeometryBasics, PointsAlongLines)
{
    XPnt3d a(1, 2, 3), b(5, 2, 0);
    expectNear(getPoint(a, b, 0.5), midPnt(a, b), 1e-15);
    expectNear(getPoint(a, b, 2), XPnt3d(9, 2, -3), 1e-15);
    expectNear(getPointByDir(a, XPnt3d(0, 0, 10), 2), XPnt3d(1, 2, 5), 1e-15);
    EXPECT_DOUBLE_EQ(dist(a, b), 5);
    EXPECT_DOUBLE_EQ(dist2(a, b), 25);
    EXPECT_DOUBLE_EQ(dist(XPnt2d(0, 0), XPnt2d(3, 4)), 5);
    EXPECT_DOUBLE_EQ(area3d(XPnt3d(0, 0, 0), XPnt3d(3, 0, 0), XPnt3d(0, 0, 4)), 6);
}

TEST(GeometryRegistration, RecoversAKnownRigidTransform)
{
    std::mt19937 rng(2024);
    std::uniform_real_distribution<double> u(-1, 1);
    for (int trial = 0; trial < 20; ++trial) {
        KvoMatrix4d truth = qvtest::rigidTransform(XPnt3d(u(rng), u(rng), u(rng) + 1.2), 3 * u(rng),
                                                   XPnt3d(50 * u(rng), 50 * u(rng), 50 * u(rng)));
        XPnt3d q0(u(rng), u(rng), u(rng)), q1(u(rng) + 3, u(rng), u(rng)), q2(u(rng), u(rng) + 3, u(rng));
        XPnt3d p0 = truth * q0, p1 = truth * q1, p2 = truth * q2;
        KvoMatrix4d out;
        ASSERT_TRUE(pntRegByQuad(p0, p1, p2, q0, q1, q2, out));
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c)
                EXPECT_NEAR(out[r][c], truth[r][c], 1e-9) << "trial " << trial << " at " << r << "," << c;
        // Any other point follows the same transform.
        XPnt3d extra(u(rng) * 10, u(rng) * 10, u(rng) * 10);
        expectNear(out * extra, truth * extra, 1e-8);
    }
}

TEST(GeometryRegistration, MapsFrameOntoFrameWhenShapesDiffer)
{
    // The q triangle is larger than the p triangle: only the frames align.
    XPnt3d p0(1, 1, 1), p1(2, 1, 1), p2(1, 2, 1);
    XPnt3d q0(0, 0, 0), q1(0, 0, 5), q2(0, 7, 3);
    KvoMatrix4d out;
    ASSERT_TRUE(pntRegByQuad(p0, p1, p2, q0, q1, q2, out));
    expectNear(out * q0, p0, 1e-12);
    // q1 lands on the ray from p0 through p1, at its own distance.
    expectNear(out * q1, XPnt3d(6, 1, 1), 1e-12);
    // q2 lands in the p plane, on the same side of the x axis as p2.
    XPnt3d m2 = out * q2;
    EXPECT_NEAR(m2.z, 1, 1e-12);
    EXPECT_GT(m2.y, 1);
}

TEST(GeometryRegistration, CollinearFramesFail)
{
    KvoMatrix4d out = KvoMatrix4d::translation(1, 2, 3);
    XPnt3d a(0, 0, 0), b(1, 0, 0), c(0, 1, 0);
    EXPECT_FALSE(pntRegByQuad(a, b, XPnt3d(2, 0, 0), a, b, c, out));
    EXPECT_FALSE(pntRegByQuad(a, b, c, a, a, c, out));
    EXPECT_EQ(out[0][3], 1);
}

} // namespace

#include <gtest/gtest.h>

#include "support/TestSupport.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "scene/KvoTypes.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

void expectNear(const XPnt3d& a, const XPnt3d& b, double tol = 1e-9)
{
    EXPECT_NEAR(a.x, b.x, tol);
    EXPECT_NEAR(a.y, b.y, tol);
    EXPECT_NEAR(a.z, b.z, tol);
}

void expectIdentity(const KvoMatrix4d& m, double tol)
{
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(m[r][c], r == c ? 1.0 : 0.0, tol) << "at " << r << "," << c;
}

TEST(KvoMatrix4d, TranslationAndScalingMovePoints)
{
    XPnt3d p(1, 2, 3);
    expectNear(KvoMatrix4d::translation(10, -20, 0.5) * p, XPnt3d(11, -18, 3.5), 0);
    expectNear(KvoMatrix4d::scaling(2, 3, -1) * p, XPnt3d(2, 6, -3), 0);
    // Matrices compose right to left: scale first, then translate.
    KvoMatrix4d m = KvoMatrix4d::translation(1, 1, 1) * KvoMatrix4d::scaling(2, 2, 2);
    expectNear(m * p, XPnt3d(3, 5, 7), 0);
    // Directions ignore the translation.
    expectNear(m.rotate(p), XPnt3d(2, 4, 6), 0);
}

TEST(KvoMatrix4d, PointProductDividesByW)
{
    // A projective matrix whose w row doubles the weight.
    KvoMatrix4d m;
    m[3][3] = 2;
    expectNear(m * XPnt3d(4, 6, 8), XPnt3d(2, 3, 4), 0);
    // w taken from z, as a perspective projection does.
    KvoMatrix4d persp;
    persp[3][2] = 1;
    persp[3][3] = 0;
    expectNear(persp * XPnt3d(4, 6, 2), XPnt3d(2, 3, 1), 0);
}

TEST(KvoMatrix4d, TransposedSwapsRowsAndColumns)
{
    KvoMatrix4d m;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            m[r][c] = r * 4 + c;
    KvoMatrix4d t = m.transposed();
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_EQ(t[r][c], m[c][r]);
}

TEST(KvoMatrix4d, InverseRoundTripOnRandomRigidScaleTransforms)
{
    std::mt19937 rng(1234);
    std::uniform_real_distribution<double> u(-1, 1);
    std::uniform_real_distribution<double> sc(0.2, 5);
    for (int trial = 0; trial < 50; ++trial) {
        KvoMatrix4d m = KvoMatrix4d::translation(100 * u(rng), 100 * u(rng), 100 * u(rng)) *
                        qvtest::rigidTransform(XPnt3d(u(rng), u(rng), u(rng) + 1.5), kPi * u(rng)) *
                        KvoMatrix4d::scaling(sc(rng), sc(rng), sc(rng));
        KvoMatrix4d inv;
        ASSERT_TRUE(m.inverse(inv));
        expectIdentity(m * inv, 1e-10);
        expectIdentity(inv * m, 1e-10);
        XPnt3d p(u(rng) * 50, u(rng) * 50, u(rng) * 50);
        expectNear(inv * (m * p), p, 1e-9);
    }
}

TEST(KvoMatrix4d, InverseNeedsPivoting)
{
    // A zero on the diagonal: plain elimination without row swaps would fail.
    KvoMatrix4d m;
    m[0][0] = 0;
    m[0][1] = 1;
    m[1][0] = 1;
    m[1][1] = 0;
    KvoMatrix4d inv;
    ASSERT_TRUE(m.inverse(inv));
    expectIdentity(m * inv, 0);
}

TEST(KvoMatrix4d, SingularInverseFailsAndLeavesOutput)
{
    KvoMatrix4d flat = KvoMatrix4d::scaling(1, 1, 0);
    KvoMatrix4d out = KvoMatrix4d::translation(7, 8, 9);
    EXPECT_FALSE(flat.inverse(out));
    EXPECT_EQ(out[0][3], 7);
    EXPECT_EQ(out[1][3], 8);
    EXPECT_EQ(out[2][3], 9);

    // Two equal rows.
    KvoMatrix4d dup;
    for (int c = 0; c < 4; ++c)
        dup[1][c] = dup[0][c] = c + 1;
    EXPECT_FALSE(dup.inverse(out));

    KvoMatrix4d zero;
    zero[0][0] = zero[1][1] = zero[2][2] = zero[3][3] = 0;
    EXPECT_FALSE(zero.inverse(out));
}

TEST(KvoQuad, NinetyDegreesAboutZTakesXToY)
{
    KvoQuad q;
    q.setValue(XPnt3d(0, 0, 5), kPi / 2); // axis length must not matter
    expectNear(q.rotate(XPnt3d(1, 0, 0)), XPnt3d(0, 1, 0), 1e-12);
    expectNear(q.rotate(XPnt3d(0, 1, 0)), XPnt3d(-1, 0, 0), 1e-12);
    expectNear(q.rotate(XPnt3d(0, 0, 1)), XPnt3d(0, 0, 1), 1e-12);
    EXPECT_NEAR(q.w, std::sqrt(0.5), 1e-15);
    EXPECT_NEAR(q.z, std::sqrt(0.5), 1e-15);
}

TEST(KvoQuad, RotateMatchesItsMatrixAndRodrigues)
{
    std::mt19937 rng(99);
    std::uniform_real_distribution<double> u(-1, 1);
    for (int trial = 0; trial < 30; ++trial) {
        XPnt3d axis(u(rng), u(rng), u(rng) + 2);
        double angle = 3 * u(rng);
        KvoQuad q;
        q.setValue(axis, angle);
        KvoMatrix4d m = q.toMatrix();
        KvoMatrix4d r = qvtest::rigidTransform(axis, angle);
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                EXPECT_NEAR(m[i][j], r[i][j], 1e-12);
        XPnt3d p(u(rng) * 10, u(rng) * 10, u(rng) * 10);
        expectNear(q.rotate(p), m * p, 1e-12);
        expectNear(q.rotate(p), r * p, 1e-12);
    }
}

TEST(KvoQuad, ProductComposesRotations)
{
    KvoQuad a, b;
    a.setValue(XPnt3d(1, 0, 0), 0.7);
    b.setValue(XPnt3d(0.3, -1, 0.2), -1.9);
    XPnt3d p(0.5, -2, 3);
    // (a * b) rotates by b first, then by a.
    expectNear((a * b).rotate(p), a.rotate(b.rotate(p)), 1e-12);
    KvoMatrix4d ab = a.toMatrix() * b.toMatrix();
    KvoMatrix4d qab = (a * b).toMatrix();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_NEAR(qab[i][j], ab[i][j], 1e-12);
    // The conjugate undoes the rotation.
    expectNear(a.conjugate().rotate(a.rotate(p)), p, 1e-12);
    // i * j = k.
    KvoQuad k = KvoQuad(0, 1, 0, 0) * KvoQuad(0, 0, 1, 0);
    EXPECT_EQ(k.w, 0);
    EXPECT_EQ(k.x, 0);
    EXPECT_EQ(k.y, 0);
    EXPECT_EQ(k.z, 1);
}

TEST(KvoQuad, ShortestRotationBetweenDirections)
{
    KvoQuad q;
    q.setValue(XPnt3d(2, 0, 0), XPnt3d(0, 0, 3));
    expectNear(q.rotate(XPnt3d(1, 0, 0)), XPnt3d(0, 0, 1), 1e-12);
    // The shortest turn is about the axis perpendicular to both, so y stays put.
    expectNear(q.rotate(XPnt3d(0, 1, 0)), XPnt3d(0, 1, 0), 1e-12);

    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-1, 1);
    for (int trial = 0; trial < 30; ++trial) {
        XPnt3d from(u(rng), u(rng), u(rng)), to(u(rng), u(rng), u(rng));
        q.setValue(from, to);
        XPnt3d got = q.rotate(from);
        expectNear(got / got.norm(), to / to.norm(), 1e-12);
        EXPECT_NEAR(got.norm(), from.norm(), 1e-12);
        // The rotation angle equals the angle between the directions.
        double between = std::acos(std::clamp(from.dot(to) / (from.norm() * to.norm()), -1.0, 1.0));
        EXPECT_NEAR(2 * std::acos(std::clamp(std::fabs(q.w), 0.0, 1.0)), between, 1e-7);
    }
}

TEST(KvoQuad, OppositeDirectionsTurnHalfway)
{
    for (const XPnt3d& d : {XPnt3d(1, 0, 0), XPnt3d(0, 0, -1), XPnt3d(0.3, -0.4, 0.866)}) {
        KvoQuad q;
        q.setValue(d, -d * 2.0);
        expectNear(q.rotate(d), -d, 1e-12);
        EXPECT_NEAR(q.w, 0, 1e-12);
        // The axis must be perpendicular to the direction.
        EXPECT_NEAR(XPnt3d(q.x, q.y, q.z).dot(d), 0, 1e-12);
    }
    KvoQuad same;
    same.setValue(XPnt3d(0, 1, 0), XPnt3d(0, 4, 0));
    EXPECT_NEAR(same.w, 1, 1e-15);
}

TEST(KvoQuad, NormalizeMakesUnitAndKeepsTheRotation)
{
    KvoQuad q(2, 0, 0, 2); // 90 degrees about z, scaled
    q.normalize();
    EXPECT_NEAR(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z, 1, 1e-15);
    expectNear(q.rotate(XPnt3d(1, 0, 0)), XPnt3d(0, 1, 0), 1e-12);
    KvoQuad zero(0, 0, 0, 0);
    zero.normalize();
    expectNear(zero.rotate(XPnt3d(1, 2, 3)), XPnt3d(1, 2, 3), 0);
}

TEST(XPnt, InvalidPointsStayInvalidThroughArithmetic)
{
    XPnt3d bad = XPnt3d::invalidPnt();
    EXPECT_FALSE(bad.isValid());
    EXPECT_FALSE((bad + XPnt3d(1, 1, 1)).isValid());
    EXPECT_TRUE(XPnt3d(1, 2, 3).isValid());
    XPnt3d zero;
    zero.normalize();
    EXPECT_EQ(zero, XPnt3d(0, 0, 0));
}

} // namespace

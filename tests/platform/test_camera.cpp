#include <GL/glu.h>

#include <cmath>
#include <random>

#include "platform/KvoCameraMath.h"
#include "platform/KvoSampleScene.h"
#include "platform/KvoTrackBallImpl.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

// Agreement to 1e-9, relative once the values grow past 1.
::testing::AssertionResult near9(double ours, double reference)
{
    const double tol = 1e-9 * std::max(1.0, std::fabs(reference));
    if (std::fabs(ours - reference) <= tol)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << ours << " vs " << reference << " (off by " << ours - reference << ")";
}

::testing::AssertionResult samePoint(const XPnt3d& p, const XPnt3d& q, double tol)
{
    if ((p - q).norm() <= tol)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "(" << p.x << ", " << p.y << ", " << p.z << ") vs (" << q.x << ", " << q.y
                                         << ", " << q.z << "), apart " << (p - q).norm();
}

struct Rng {
    explicit Rng(unsigned seed) : gen(seed) {}
    double operator()(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(gen); }
    int integer(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen); }
    XPnt3d point(double r) { return XPnt3d((*this)(-r, r), (*this)(-r, r), (*this)(-r, r)); }
    std::mt19937 gen;
};

// A camera that looks at a random point from a random place, with a random
// perspective and viewport: the sort of matrices a view really has.
struct Camera {
    double model[16], proj[16];
    int viewport[4];
    XPnt3d eye, center;
};

Camera randomCamera(Rng& rng)
{
    Camera c;
    c.center = rng.point(50);
    XPnt3d dir = rng.point(1);
    dir.normalize();
    c.eye = c.center + dir * rng(2, 60);
    lookAtMatrix(c.eye, c.center, rng.point(1), c.model);
    perspectiveMatrix(rng(10, 120), rng(0.3, 3), rng(0.05, 2), rng(100, 500), c.proj);
    c.viewport[0] = rng.integer(-100, 100);
    c.viewport[1] = rng.integer(-100, 100);
    c.viewport[2] = rng.integer(1, 2500);
    c.viewport[3] = rng.integer(1, 2500);
    return c;
}

// Matrices with no structure at all, to check the arithmetic and not a special case of it.
void randomMatrix(Rng& rng, double m[16])
{
    for (int i = 0; i < 16; ++i)
        m[i] = rng(-2, 2);
}

// gluPerspective's matrix as its manual writes it, by rows: f = cot(fovy / 2).
void manualPerspective(double fovyDeg, double aspect, double zNear, double zFar, double m[16])
{
    const double f = 1.0 / std::tan(fovyDeg * M_PI / 360.0);
    const double rows[4][4] = {{f / aspect, 0, 0, 0},
                               {0, f, 0, 0},
                               {0, 0, (zFar + zNear) / (zNear - zFar), 2 * zFar * zNear / (zNear - zFar)},
                               {0, 0, -1, 0}};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            m[c * 4 + r] = rows[r][c];
}

// gluLookAt as its manual writes it: f the unit line of sight, s = f x UP',
// u = s' x f, the rows s, u, -f, then a translation by -eye.
void manualLookAt(const XPnt3d& eye, const XPnt3d& center, const XPnt3d& up, double m[16])
{
    XPnt3d f = center - eye, upN = up;
    f = f / f.norm();
    upN = upN / upN.norm();
    XPnt3d s = f.cross(upN);
    const XPnt3d u = (s / s.norm()).cross(f);
    s = s / s.norm();
    const XPnt3d rows[3] = {s, u, -f};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            m[c * 4 + r] = 0;
    for (int r = 0; r < 3; ++r) {
        m[0 * 4 + r] = rows[r].x;
        m[1 * 4 + r] = rows[r].y;
        m[2 * 4 + r] = rows[r].z;
        m[3 * 4 + r] = -rows[r].dot(eye);
    }
    m[15] = 1;
}

const double kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

} // namespace

TEST(CameraMath, ProjectAgreesWithGluProject)
{
    Rng rng(11);
    for (int structured = 0; structured < 2; ++structured)
        for (int i = 0; i < 2000; ++i) {
            Camera c = randomCamera(rng);
            if (!structured) {
                randomMatrix(rng, c.model);
                randomMatrix(rng, c.proj);
            }
            const XPnt3d p = structured ? c.center + rng.point(30) : rng.point(100);
            double gx, gy, gz;
            const bool gluOk = gluProject(p.x, p.y, p.z, c.model, c.proj, c.viewport, &gx, &gy, &gz) == GL_TRUE;
            XPnt3d win;
            ASSERT_EQ(projectPoint(p, c.model, c.proj, c.viewport, win), gluOk);
            ASSERT_TRUE(gluOk);
            ASSERT_TRUE(near9(win.x, gx)) << i;
            ASSERT_TRUE(near9(win.y, gy)) << i;
            ASSERT_TRUE(near9(win.z, gz)) << i;
        }
}

TEST(CameraMath, UnprojectAgreesWithGluUnProjectAndUndoesProject)
{
    Rng rng(12);
    for (int i = 0; i < 2000; ++i) {
        const Camera c = randomCamera(rng);
        const XPnt3d win(c.viewport[0] + rng(0, c.viewport[2]), c.viewport[1] + rng(0, c.viewport[3]), rng(0, 1));
        double gx, gy, gz;
        ASSERT_EQ(gluUnProject(win.x, win.y, win.z, c.model, c.proj, c.viewport, &gx, &gy, &gz), GL_TRUE);
        XPnt3d obj;
        ASSERT_TRUE(unprojectPoint(win, c.model, c.proj, c.viewport, obj));
        ASSERT_TRUE(near9(obj.x, gx)) << i;
        ASSERT_TRUE(near9(obj.y, gy)) << i;
        ASSERT_TRUE(near9(obj.z, gz)) << i;

        // A point in front of the camera comes back where it was.
        XPnt3d dir = c.center - c.eye;
        dir.normalize();
        const XPnt3d p = c.eye + dir * rng(1, 50) + rng.point(3);
        XPnt3d w, back;
        ASSERT_TRUE(projectPoint(p, c.model, c.proj, c.viewport, w));
        ASSERT_TRUE(unprojectPoint(w, c.model, c.proj, c.viewport, back));
        EXPECT_TRUE(samePoint(back, p, 1e-7 * std::max(1.0, p.norm()))) << i;
    }
    // Unstructured matrices, kept to well-conditioned results: there GLU and
    // we may round differently only in the last few bits.
    int compared = 0;
    for (int i = 0; i < 2000; ++i) {
        Camera c = randomCamera(rng);
        randomMatrix(rng, c.model);
        randomMatrix(rng, c.proj);
        const XPnt3d win(c.viewport[0] + rng(0, c.viewport[2]), c.viewport[1] + rng(0, c.viewport[3]), rng(0, 1));
        double gx, gy, gz;
        if (gluUnProject(win.x, win.y, win.z, c.model, c.proj, c.viewport, &gx, &gy, &gz) != GL_TRUE)
            continue;
        if (XPnt3d(gx, gy, gz).norm() > 1e3)
            continue;
        XPnt3d obj;
        ASSERT_TRUE(unprojectPoint(win, c.model, c.proj, c.viewport, obj));
        EXPECT_TRUE(samePoint(obj, XPnt3d(gx, gy, gz), 1e-9 * std::max(1.0, obj.norm()))) << i;
        ++compared;
    }
    EXPECT_GT(compared, 1500);
}

TEST(CameraMath, PointsWhereProjectionIsUndefinedFailLikeGlu)
{
    // A point in the eye's own plane has w = 0 under a perspective.
    double proj[16];
    perspectiveMatrix(45, 1.5, 1, 100, proj);
    const int vp[4] = {0, 0, 640, 480};
    double gx, gy, gz;
    EXPECT_EQ(gluProject(1, 2, 0, kIdentity, proj, vp, &gx, &gy, &gz), GL_FALSE);
    XPnt3d win(7, 7, 7);
    EXPECT_FALSE(projectPoint(XPnt3d(1, 2, 0), kIdentity, proj, vp, win));

    // A view that flattens everything onto a plane can't be undone.
    double flat[16];
    std::copy(kIdentity, kIdentity + 16, flat);
    flat[10] = 0;
    EXPECT_EQ(gluUnProject(10, 10, 0.5, flat, proj, vp, &gx, &gy, &gz), GL_FALSE);
    XPnt3d obj(7, 7, 7);
    EXPECT_FALSE(unprojectPoint(XPnt3d(10, 10, 0.5), flat, proj, vp, obj));
    EXPECT_EQ(obj, XPnt3d(7, 7, 7));
}

TEST(CameraMath, PerspectiveAndLookAtAreTheManualsMatrices)
{
    Rng rng(13);
    for (int i = 0; i < 500; ++i) {
        const double fovy = rng(1, 170), aspect = rng(0.1, 10), zNear = rng(0.01, 10), zFar = zNear + rng(0.1, 1e4);
        double ours[16], ref[16];
        perspectiveMatrix(fovy, aspect, zNear, zFar, ours);
        manualPerspective(fovy, aspect, zNear, zFar, ref);
        for (int k = 0; k < 16; ++k)
            ASSERT_TRUE(near9(ours[k], ref[k])) << "perspective element " << k << " case " << i;

        // Up need not be square to the line of sight, nor of unit length.
        const XPnt3d eye = rng.point(100), center = eye + rng.point(20), up = rng.point(5);
        lookAtMatrix(eye, center, up, ours);
        manualLookAt(eye, center, up, ref);
        for (int k = 0; k < 16; ++k)
            ASSERT_TRUE(near9(ours[k], ref[k])) << "look-at element " << k << " case " << i;
    }
    // What the two promise to a view: the eye goes to the origin, the centre
    // onto -z, up into the upper half of the picture, and the near and far
    // planes to depths 0 and 1.
    const XPnt3d eye(3, -4, 5), center(1, 2, 0), up(0, 0, 1);
    double mv[16], proj[16];
    lookAtMatrix(eye, center, up, mv);
    perspectiveMatrix(60, 2, 0.5, 50, proj);
    const int vp[4] = {0, 0, 200, 100};
    XPnt3d w;
    ASSERT_TRUE(projectPoint(center, mv, proj, vp, w));
    EXPECT_TRUE(samePoint(w, XPnt3d(100, 50, w.z), 1e-9));
    ASSERT_TRUE(projectPoint(center + up, mv, proj, vp, w));
    EXPECT_NEAR(w.x, 100, 1e-9);
    EXPECT_GT(w.y, 50);
    XPnt3d dir = center - eye;
    dir.normalize();
    ASSERT_TRUE(projectPoint(eye + dir * 0.5, mv, proj, vp, w));
    EXPECT_NEAR(w.z, 0, 1e-12);
    ASSERT_TRUE(projectPoint(eye + dir * 50, mv, proj, vp, w));
    EXPECT_NEAR(w.z, 1, 1e-12);
}

TEST(CameraMath, MultiplyComposesAsGlDoes)
{
    // Projecting through model b and projection a is projecting through a * b alone.
    Rng rng(14);
    for (int i = 0; i < 500; ++i) {
        double a[16], b[16], ab[16];
        randomMatrix(rng, a);
        randomMatrix(rng, b);
        multiplyMatrix(a, b, ab);
        const int vp[4] = {0, 0, 1000, 1000};
        const XPnt3d p = rng.point(10);
        double x1, y1, z1, x2, y2, z2;
        ASSERT_EQ(gluProject(p.x, p.y, p.z, b, a, vp, &x1, &y1, &z1), GL_TRUE);
        ASSERT_EQ(gluProject(p.x, p.y, p.z, kIdentity, ab, vp, &x2, &y2, &z2), GL_TRUE);
        // Far from w = 0 only: near it the division magnifies the rounding.
        if (std::max({std::fabs(x1), std::fabs(y1), std::fabs(z1)}) > 1e5)
            continue;
        EXPECT_NEAR(x1, x2, 1e-7);
        EXPECT_NEAR(y1, y2, 1e-7);
        EXPECT_NEAR(z1, z2, 1e-10);

        // The result may be written over either operand.
        double inA[16], inB[16];
        std::copy(a, a + 16, inA);
        std::copy(b, b + 16, inB);
        multiplyMatrix(inA, b, inA);
        multiplyMatrix(a, inB, inB);
        for (int k = 0; k < 16; ++k) {
            EXPECT_EQ(inA[k], ab[k]);
            EXPECT_EQ(inB[k], ab[k]);
        }
    }
}

TEST(CameraMath, InverseUndoesTheMatrixAndSingularMatricesAreRefused)
{
    Rng rng(15);
    for (int i = 0; i < 500; ++i) {
        double m[16], inv[16], prod[16];
        randomMatrix(rng, m);
        ASSERT_TRUE(invertMatrix(m, inv));
        for (const bool left : {false, true}) {
            multiplyMatrix(left ? inv : m, left ? m : inv, prod);
            double scale = 0;
            for (int k = 0; k < 16; ++k)
                scale = std::max(scale, std::fabs(inv[k]));
            for (int k = 0; k < 16; ++k)
                ASSERT_NEAR(prod[k], kIdentity[k], 1e-12 * std::max(1.0, scale)) << i;
        }
    }
    // The view matrices invert too, in place where asked.
    double mv[16], inv[16], prod[16];
    lookAtMatrix(XPnt3d(10, 20, 30), XPnt3d(0, 0, 0), XPnt3d(0, 0, 1), mv);
    std::copy(mv, mv + 16, inv);
    ASSERT_TRUE(invertMatrix(inv, inv));
    multiplyMatrix(mv, inv, prod);
    for (int k = 0; k < 16; ++k)
        EXPECT_NEAR(prod[k], kIdentity[k], 1e-12);

    // Exactly singular: a zero matrix, a zero column, a repeated row, a
    // flattening projection. Each is refused and the output is not touched.
    double zero[16] = {}, zeroColumn[16], repeatedRow[16], flatten[16];
    std::copy(kIdentity, kIdentity + 16, zeroColumn);
    zeroColumn[8] = zeroColumn[9] = zeroColumn[10] = zeroColumn[11] = 0;
    const double rows[4][4] = {{1, 2, 3, 4}, {2, 0, 1, 1}, {1, 2, 3, 4}, {0, 5, 1, 2}};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            repeatedRow[c * 4 + r] = rows[r][c];
    std::copy(kIdentity, kIdentity + 16, flatten);
    flatten[5] = 0;
    for (const double* singular : {zero, zeroColumn, repeatedRow, flatten}) {
        double out[16];
        std::fill(out, out + 16, 42.0);
        EXPECT_FALSE(invertMatrix(singular, out));
        for (double v : out)
            EXPECT_EQ(v, 42.0);
        // GLU refuses the same matrices.
        const int vp[4] = {0, 0, 10, 10};
        double gx, gy, gz;
        EXPECT_EQ(gluUnProject(5, 5, 0.5, singular, kIdentity, vp, &gx, &gy, &gz), GL_FALSE);
    }
}

// ---------------------------------------------------------------- trackball

namespace {

void randomView(Rng& rng, CKvoTrackBall& ball)
{
    const XPnt3d center = rng.point(30);
    XPnt3d dir = rng.point(1);
    dir.normalize();
    ball.setCamera(center + dir * rng(3, 80), center, rng.point(1));
    ball.setViewport(rng.integer(50, 1900), rng.integer(50, 1200));
    ball.setFovY(rng(15, 90));
    ball.setClip(rng(0.05, 1), rng(200, 1000));
}

XPnt3d windowOf(const CKvoTrackBall& ball, const XPnt3d& p)
{
    XPnt3d w;
    return ball.projectToWindow(w, p.x, p.y, p.z);
}

double eyeDistance(const CKvoTrackBall& ball)
{
    return (ball.getEye() - ball.getCenter()).norm();
}

} // namespace

TEST(TrackBall, ProjectionIsGluProjectOnItsOwnMatricesWithWindowYDown)
{
    Rng rng(21);
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    int seen = 0;
    for (int i = 0; i < 1000; ++i) {
        randomView(rng, *ball);
        double mv[16], pr[16];
        int vp[4];
        ball->getModelView(mv);
        ball->getProjection(pr);
        ball->getViewport(vp);
        const XPnt3d p = ball->getCenter() + rng.point(20);
        double gx, gy, gz;
        ASSERT_EQ(gluProject(p.x, p.y, p.z, mv, pr, vp, &gx, &gy, &gz), GL_TRUE);
        const XPnt3d w = windowOf(*ball, p);
        ASSERT_TRUE(near9(w.x, gx)) << i;
        ASSERT_TRUE(near9(w.y, vp[3] - gy)) << i;
        ASSERT_TRUE(near9(w.z, gz)) << i;

        // Unprojecting gives the point back, and gluUnProject agrees.
        XPnt3d back;
        ball->unprojectFromWindow(back, w.x, w.y, w.z);
        ASSERT_TRUE(samePoint(back, p, 1e-7 * std::max(1.0, p.norm()))) << i;
        double ux, uy, uz;
        ASSERT_EQ(gluUnProject(w.x, vp[3] - w.y, w.z, mv, pr, vp, &ux, &uy, &uz), GL_TRUE);
        ASSERT_TRUE(samePoint(back, XPnt3d(ux, uy, uz), 1e-9 * std::max(1.0, p.norm()))) << i;

        // The line of sight through the point's pixel passes through it, from
        // the near plane on, for a point between the clip planes.
        if (w.z <= 0 || w.z >= 1)
            continue;
        ++seen;
        XPnt3d origin, dir;
        ASSERT_TRUE(ball->getRay(w.x, w.y, origin, dir));
        EXPECT_NEAR(dir.norm(), 1, 1e-12);
        const XPnt3d toP = p - origin;
        const double along = toP.dot(dir);
        EXPECT_GT(along, 0) << i;
        EXPECT_TRUE(samePoint(origin + dir * along, p, 1e-7 * std::max(1.0, toP.norm()))) << i;
        EXPECT_NEAR(windowOf(*ball, origin).z, 0, 1e-9);
        EXPECT_GT(dir.dot(ball->getCenter() - ball->getEye()), 0);
    }
    EXPECT_GT(seen, 500);
    // Window y runs down: the model's up is toward smaller y.
    ball->setCamera(XPnt3d(0, -10, 0), XPnt3d(0, 0, 0), XPnt3d(0, 0, 1));
    ball->setViewport(400, 300);
    const XPnt3d above = windowOf(*ball, XPnt3d(0, 0, 1));
    EXPECT_NEAR(above.x, 200, 1e-9);
    EXPECT_LT(above.y, 150) << "up in the model is up on the screen";
    const XPnt3d right = windowOf(*ball, XPnt3d(1, 0, 0));
    EXPECT_GT(right.x, 200);
    EXPECT_NEAR(right.y, 150, 1e-9);
}

TEST(TrackBall, SetCameraSquaresUpToTheLineOfSight)
{
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    ball->setCamera(XPnt3d(0, -10, 0), XPnt3d(0, 0, 0), XPnt3d(0, 3, 3));
    EXPECT_TRUE(samePoint(ball->getUp(), XPnt3d(0, 0, 1), 1e-12));
    // An up along the line of sight still gives a proper camera.
    ball->setCamera(XPnt3d(0, 0, 10), XPnt3d(0, 0, 0), XPnt3d(0, 0, 1));
    EXPECT_NEAR(ball->getUp().norm(), 1, 1e-12);
    EXPECT_NEAR(ball->getUp().dot(XPnt3d(0, 0, 1)), 0, 1e-12);
    const XPnt3d w = windowOf(*ball, XPnt3d(0, 0, 0));
    EXPECT_TRUE(w.isValid());
}

TEST(TrackBall, RotationOrbitsTheCentreAndTwiceTheHeightIsAFullTurn)
{
    Rng rng(22);
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    for (int i = 0; i < 50; ++i) {
        randomView(rng, *ball);
        const XPnt3d center = ball->getCenter();
        const double distance = eyeDistance(*ball);
        for (int k = 0; k < 20; ++k) {
            ball->rotate(rng(-300, 300), rng(-300, 300));
            ASSERT_NEAR(eyeDistance(*ball), distance, 1e-9 * distance);
            ASSERT_EQ(ball->getCenter(), center);
            ASSERT_NEAR(ball->getUp().dot(ball->getCenter() - ball->getEye()), 0, 1e-9 * distance);
        }
    }

    // A half turn across the height: so a drag of twice the height, in any
    // number of steps, either way, brings the camera back where it was.
    for (const bool vertical : {false, true})
        for (const int steps : {1, 7, 40}) {
            randomView(rng, *ball);
            int vp[4];
            ball->getViewport(vp);
            const XPnt3d eye = ball->getEye(), up = ball->getUp();
            const double distance = eyeDistance(*ball);
            const double step = 2.0 * vp[3] / steps;
            for (int k = 0; k < steps; ++k)
                ball->rotate(vertical ? 0 : step, vertical ? step : 0);
            EXPECT_TRUE(samePoint(ball->getEye(), eye, 1e-9 * distance)) << vertical << " " << steps;
            EXPECT_TRUE(samePoint(ball->getUp(), up, 1e-9)) << vertical << " " << steps;
            // Half of it is half a turn: the eye on the other side.
            for (int k = 0; k < steps; ++k)
                ball->rotate(vertical ? 0 : step / 2, vertical ? step / 2 : 0);
            EXPECT_TRUE(samePoint(ball->getEye(), ball->getCenter() * 2 - eye, 1e-9 * distance));
        }
}

TEST(TrackBall, TheNearSideOfTheModelFollowsTheDrag)
{
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    ball->setViewport(800, 600);
    const XPnt3d nearSide(0, -3, 0);
    for (const XPnt2d drag : {XPnt2d(20, 0), XPnt2d(-20, 0), XPnt2d(0, 20), XPnt2d(0, -20)}) {
        ball->setCamera(XPnt3d(0, -10, 0), XPnt3d(0, 0, 0), XPnt3d(0, 0, 1));
        const XPnt3d before = windowOf(*ball, nearSide);
        ball->rotate(drag.x, drag.y);
        const XPnt3d after = windowOf(*ball, nearSide);
        EXPECT_GT((after.x - before.x) * drag.x + (after.y - before.y) * drag.y, 0) << drag.x << ", " << drag.y;
    }
}

TEST(TrackBall, PanMovesTheCentresDepthExactlyWithTheMouse)
{
    Rng rng(23);
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    for (int i = 0; i < 300; ++i) {
        randomView(rng, *ball);
        const XPnt3d center = ball->getCenter(), eye = ball->getEye();
        const XPnt3d before = windowOf(*ball, center);
        // Another point at the centre's depth follows the mouse too.
        XPnt3d side = ball->getUp().cross(center - eye);
        side.normalize();
        const XPnt3d other = center + side * rng(-2, 2) + ball->getUp() * rng(-2, 2);
        const XPnt3d otherBefore = windowOf(*ball, other);
        const double dx = rng(-200, 200), dy = rng(-200, 200);
        ball->pan(dx, dy);
        const XPnt3d after = windowOf(*ball, center), otherAfter = windowOf(*ball, other);
        ASSERT_NEAR(after.x - before.x, dx, 1e-9 * std::max(1.0, std::fabs(dx))) << i;
        ASSERT_NEAR(after.y - before.y, dy, 1e-9 * std::max(1.0, std::fabs(dy))) << i;
        ASSERT_NEAR(after.z, before.z, 1e-12);
        ASSERT_NEAR(otherAfter.x - otherBefore.x, dx, 1e-8 * std::max(1.0, std::fabs(dx))) << i;
        ASSERT_NEAR(otherAfter.y - otherBefore.y, dy, 1e-8 * std::max(1.0, std::fabs(dy))) << i;
        // The camera moves without turning.
        EXPECT_TRUE(samePoint(ball->getCenter() - ball->getEye(), center - eye, 1e-9 * eyeDistance(*ball)));
    }
}

TEST(TrackBall, ZoomMovesTheEyeAlongTheLineOfSight)
{
    Rng rng(24);
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    for (int i = 0; i < 100; ++i) {
        randomView(rng, *ball);
        const XPnt3d center = ball->getCenter(), eye = ball->getEye();
        const double factor = rng(1.01, 10), distance = eyeDistance(*ball);
        XPnt3d dir = eye - center;
        dir.normalize();
        ball->zoom(factor);
        EXPECT_NEAR(eyeDistance(*ball), distance / factor, 1e-9 * distance);
        EXPECT_TRUE(samePoint(ball->getEye(), center + dir * (distance / factor), 1e-9 * distance));
        EXPECT_EQ(ball->getCenter(), center);
        // Near enough that the centre is not cut away by the near plane.
        const XPnt3d w = windowOf(*ball, center);
        EXPECT_GT(w.z, 0);
        EXPECT_LT(w.z, 1);
        ball->zoom(1 / factor);
        EXPECT_NEAR(eyeDistance(*ball), distance, 1e-9 * distance);
    }
    // A fitted box stays between the clip planes however far one zooms out or in.
    for (int i = 0; i < 100; ++i) {
        randomView(rng, *ball);
        const XPnt3d a = rng.point(50);
        const Enve3d box(a, a + XPnt3d(rng(1, 30), rng(1, 30), rng(1, 30)));
        ball->fitToBox(box);
        const double factor = i % 2 ? rng(0.01, 0.5) : rng(1.5, 20);
        ball->zoom(factor);
        const XPnt3d c = windowOf(*ball, box.MidPoint());
        EXPECT_GT(c.z, 0) << i << " zoom " << factor;
        EXPECT_LT(c.z, 1) << i << " zoom " << factor;
        if (factor < 1)
            for (int k = 0; k < 8; ++k) {
                const XPnt3d w = windowOf(*ball, box.corner(k));
                EXPECT_GT(w.z, 0) << i << " corner " << k << " zoom " << factor;
                EXPECT_LT(w.z, 1) << i << " corner " << k << " zoom " << factor;
            }
    }
    const XPnt3d eye = ball->getEye();
    for (const double bad : {0.0, -2.0, std::nan("")}) {
        ball->zoom(bad);
        EXPECT_EQ(ball->getEye(), eye);
    }
}

TEST(TrackBall, FitToBoxShowsTheWholeBoxInsideTheClipPlanes)
{
    Rng rng(25);
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    for (int i = 0; i < 300; ++i) {
        randomView(rng, *ball);
        if (i % 3 == 0)
            ball->setViewport(rng.integer(50, 200), rng.integer(800, 1200)); // tall and narrow
        const XPnt3d a = rng.point(100);
        const Enve3d box(a, a + XPnt3d(rng(0.01, 50), rng(0.01, 50), rng(0, 50)));
        XPnt3d lineOfSight = ball->getCenter() - ball->getEye();
        lineOfSight.normalize();
        ball->fitToBox(box);
        EXPECT_TRUE(samePoint(ball->getCenter(), box.MidPoint(), 1e-9 * std::max(1.0, box.MidPoint().norm())));
        XPnt3d fitted = ball->getCenter() - ball->getEye();
        fitted.normalize();
        EXPECT_TRUE(samePoint(fitted, lineOfSight, 1e-9)) << "the view direction stays";
        int vp[4];
        ball->getViewport(vp);
        for (int k = 0; k < 8; ++k) {
            const XPnt3d w = windowOf(*ball, box.corner(k));
            EXPECT_GE(w.x, 0) << i << " corner " << k;
            EXPECT_LE(w.x, vp[2]) << i << " corner " << k;
            EXPECT_GE(w.y, 0) << i << " corner " << k;
            EXPECT_LE(w.y, vp[3]) << i << " corner " << k;
            EXPECT_GT(w.z, 0) << i << " corner " << k;
            EXPECT_LT(w.z, 1) << i << " corner " << k;
        }
    }
    // An invalid box changes nothing.
    const XPnt3d eye = ball->getEye();
    ball->fitToBox(Enve3d());
    EXPECT_EQ(ball->getEye(), eye);
}

namespace {
using TrackBallStore = qvtest::StoreTest;
}

TEST_F(TrackBallStore, ViewFromFrontLooksFromMinusYAndFitsTheModel)
{
    newProject();
    getMM()->setBareModel(makeSampleModel(4, 2));
    Enve3d box;
    getMM()->getModelEnvelope(box);
    ASSERT_TRUE(box.isValid());
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    ball->setCamera(XPnt3d(50, 50, -50), XPnt3d(1, 2, 3), XPnt3d(1, 0, 0));
    ball->viewFromFront();
    const XPnt3d center = ball->getCenter(), eye = ball->getEye();
    EXPECT_TRUE(samePoint(center, box.MidPoint(), 1e-9));
    EXPECT_NEAR(eye.x, center.x, 1e-9);
    EXPECT_LT(eye.y, center.y) << "in front is -y";
    EXPECT_GT(eye.z, center.z) << "and from above";
    EXPECT_GT(ball->getUp().z, 0) << "the model stands upright";
    int vp[4];
    ball->getViewport(vp);
    for (int k = 0; k < 8; ++k) {
        const XPnt3d w = windowOf(*ball, box.corner(k));
        EXPECT_TRUE(w.x >= 0 && w.x <= vp[2] && w.y >= 0 && w.y <= vp[3] && w.z > 0 && w.z < 1) << k;
    }
    // Drawn upright: the top of the building is above its foot on the screen.
    EXPECT_LT(windowOf(*ball, XPnt3d(0, -3, 8)).y, windowOf(*ball, XPnt3d(0, -3, 0)).y);

    // With no model it still looks from the front, at the origin.
    getMM()->closeProject();
    ball->viewFromFront();
    EXPECT_EQ(ball->getCenter(), XPnt3d(0, 0, 0));
    EXPECT_NEAR(ball->getEye().x, 0, 1e-12);
    EXPECT_LT(ball->getEye().y, 0);
}

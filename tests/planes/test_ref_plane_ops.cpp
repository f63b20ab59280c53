#include <cmath>

#include "planes/KvoRefPlaneOps.h"
#include "platform/KvoRefPlaneImpl.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

ref_ptr<Pnt3dArray> points(std::initializer_list<XPnt3d> list)
{
    ref_ptr<Pnt3dArray> a = newPnt3dArray();
    for (const XPnt3d& p : list)
        a->append(p);
    return a;
}

std::vector<XPnt3d> ringOf(const ref_ptr<IKvoQvRefPlane>& p)
{
    ref_ptr<IKvoRing> ring;
    p->getRing(ring);
    std::vector<XPnt3d> out;
    for (long i = 0; i < ring->getPointCount(); ++i)
        out.push_back(ring->getPoint(i));
    return out;
}

class RefPlaneOps : public qvtest::ViewerTest {
protected:
    CKvoQvRefPlaneMan planes;
    Enve3d box{XPnt3d(0, 0, 0), XPnt3d(10, 4, 2)}; // extents 10, 4, 2: half = 5
};

} // namespace

TEST_F(RefPlaneOps, ThreePointsMakeASquareOfTheModelsSizeTurnedToTheViewer)
{
    const XPnt3d a(1, 2, 0.5), b(4, 2, 0.7), c(2, 2, 1.9); // on the wall y = 2
    const long id = createPlaneFromThreePoints(planes, *points({a, b, c}), box);
    ASSERT_EQ(id, 1);
    EXPECT_EQ(planes.getActivePlaneId(), 1);
    ref_ptr<IKvoQvRefPlane> p;
    planes.getPlane(p, id);
    EXPECT_EQ(p->getName(), "Plane1");
    const XPnt3d centre = (a + b + c) * (1.0 / 3.0);
    EXPECT_LT(length(p->getOrigin() - centre), 1e-12);
    const std::vector<XPnt3d> r = ringOf(p);
    ASSERT_EQ(r.size(), 4u);
    for (const XPnt3d& q : r)
        EXPECT_NEAR(q.y, 2, 1e-9) << "the ring lies in the plane";
    // A square: equal sides, equal diagonals, centred on the points' mean.
    const double s = length(r[1] - r[0]);
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(length(r[(i + 1) % 4] - r[i]), s, 1e-9);
    EXPECT_NEAR(length(r[2] - r[0]), length(r[3] - r[1]), 1e-9);
    EXPECT_LT(length((r[0] + r[1] + r[2] + r[3]) * 0.25 - centre), 1e-9);
    EXPECT_NEAR(length(p->getXDir()), 1, 1e-12);
    EXPECT_NEAR(dot(p->getXDir(), p->getYDir()), 0, 1e-9);
    EXPECT_GE(p->getYDir().z, 0);

    // The orientation step: X horizontal, normal to the viewer, Y up.
    const XPnt3d eye(2, -10, 1);
    ASSERT_EQ(orientNewPlane(planes, eye), 0);
    EXPECT_LT(std::abs(p->getXDir().z), 0.002);
    EXPECT_GT(dot(cross(p->getXDir(), p->getYDir()), eye - p->getOrigin()), 0);
    EXPECT_GT(p->getYDir().z, 0.99);
    for (const XPnt3d& q : ringOf(p))
        EXPECT_NEAR(q.y, 2, 1e-9) << "turning in itself keeps the plane";
}

TEST_F(RefPlaneOps, DegenerateInputMakesNoPlane)
{
    EXPECT_EQ(createPlaneFromThreePoints(planes, *points({{0, 0, 0}, {0, 0, 0.00005}, {1, 0, 0}}), box), -1);
    EXPECT_EQ(createPlaneFromThreePoints(planes, *points({{0, 0, 0}, {1, 0, 0}}), box), -1);
    EXPECT_EQ(createPlaneFromThreePoints(planes, *points({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}), box), -1) << "collinear";
    EXPECT_EQ(createPlaneFromOnePoint(planes, XPnt3d(1, 1, 1), XPnt3d(0, 0, 0), box), -1) << "no normal";
    EXPECT_EQ(planes.getPlaneCount(), 0);
    EXPECT_FALSE(rotateActivePlane(planes, 2, 10)) << "no active plane";
    EXPECT_TRUE(rotateActivePlane(planes, 2, 0));
    EXPECT_FALSE(moveActivePlane(planes, XPnt3d(1, 2, 3)));
}

TEST_F(RefPlaneOps, OnePointOnAFloorAndTurningAllTheWayRound)
{
    // Looking down at the floor z = 0: the line of sight is the normal.
    const XPnt3d p(3, 1, 0), eye(3, 1, 10);
    const long id = createPlaneFromOnePoint(planes, p, p - eye, box);
    ASSERT_GT(id, 0);
    ref_ptr<IKvoQvRefPlane> plane;
    planes.getPlane(plane, id);
    EXPECT_NEAR(plane->getXDir().z, 0, 1e-12);
    EXPECT_NEAR(plane->getXDir().x, 1, 1e-12) << "the direction of x + 20 on the plane";
    const std::vector<XPnt3d> r = ringOf(plane);
    ASSERT_EQ(r.size(), 4u);
    EXPECT_LT(length(r[0] - (p + (plane->getXDir() + plane->getYDir()) * 5.0)), 1e-12);
    EXPECT_NEAR(length(r[1] - r[0]), 10, 1e-9) << "side 2 half";

    // 3600 turns of 0.1 degree about each axis come back to the start.
    for (int axis = 0; axis < 3; ++axis) {
        const XPnt3d x0 = plane->getXDir(), y0 = plane->getYDir();
        const std::vector<XPnt3d> r0 = ringOf(plane);
        for (int i = 0; i < 3600; ++i)
            ASSERT_TRUE(rotateActivePlane(planes, axis, 0.1));
        EXPECT_LT(length(plane->getXDir() - x0), 1e-9) << axis;
        EXPECT_LT(length(plane->getYDir() - y0), 1e-9) << axis;
        const std::vector<XPnt3d> r1 = ringOf(plane);
        for (size_t i = 0; i < r0.size(); ++i)
            EXPECT_LT(length(r1[i] - r0[i]), 1e-9) << axis;
    }
    // Moving carries the ring along.
    ASSERT_TRUE(moveActivePlane(planes, p + XPnt3d(0, 0, 2)));
    EXPECT_NEAR(ringOf(plane)[0].z, 2, 1e-12);
    EXPECT_NEAR(plane->getPlaneParam().distance(XPnt3d(7, 7, 2)), 0, 1e-12);

    // Ids come from the list: after deleting plane 2, the next is 3.
    createPlaneFromOnePoint(planes, XPnt3d(0, 0, 1), XPnt3d(0, 1, 0), box);
    planes.deletePlane(2);
    EXPECT_EQ(createPlaneFromOnePoint(planes, XPnt3d(0, 0, 1), XPnt3d(0, 1, 0), box), 3);
    ref_ptr<IKvoQvRefPlane> third;
    planes.getPlane(third, 3);
    EXPECT_EQ(third->getName(), "Plane3");
}

TEST_F(RefPlaneOps, ATiltedPlaneCopiedToAWall)
{
    // A wall leaning back by 20 degrees.
    const double t = 20 * M_PI / 180;
    const XPnt3d a(0, 0, 0), b(4, 0, 0), c(0, 3 * std::sin(t), 3 * std::cos(t));
    ASSERT_GT(createPlaneFromThreePoints(planes, *points({a, b, c}), box), 0);
    EXPECT_EQ(rotatePlaneCopyToWall(planes, 0), 1);
    EXPECT_EQ(presenter->lastText(), "Successful to rotate.");
    EXPECT_EQ(planes.getPlaneCount(), 2);
    ref_ptr<IKvoQvRefPlane> copy;
    planes.getPlane(copy, planes.getActivePlaneId());
    EXPECT_EQ(copy->getName(), "Plane1Copy");
    EXPECT_LT(std::abs(cross(copy->getXDir(), copy->getYDir()).z), 0.002) << "the copy stands upright";
    EXPECT_EQ(rotatePlaneCopyToWall(planes, 99), 0);
    EXPECT_EQ(presenter->lastText(), "Please check the plane again.");
}

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "scene/KvoRing.h"

using namespace kvo;

namespace {

ref_ptr<IKvoRing> makeRing(const std::vector<XPnt3d>& pts)
{
    ref_ptr<IKvoRing> r = newKvoRing();
    for (const XPnt3d& p : pts)
        r->addPoint(p);
    return r;
}

std::vector<XPnt3d> pointsOf(const ref_ptr<IKvoRing>& r)
{
    std::vector<XPnt3d> v;
    for (long i = 0; i < r->getPointCount(); ++i)
        v.push_back(r->getPoint(i));
    return v;
}

// An L-shaped hexagon (concave at (1, 1)), counter-clockwise.
const std::vector<XPnt3d> kEll = {{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {1, 1, 0}, {1, 2, 0}, {0, 2, 0}};

TEST(KvoRingContains, ConcaveRingOpenOrClosed)
{
    ref_ptr<IKvoRing> open = makeRing(kEll);
    ref_ptr<IKvoRing> closed = makeRing(kEll);
    closed->closeRing();
    ASSERT_FALSE(open->isClosed());
    ASSERT_TRUE(closed->isClosed());

    struct Probe {
        double x, y;
        bool inside;
    };
    const Probe probes[] = {
        {0.5, 0.5, true},   {1.5, 0.5, true},  {0.5, 1.5, true}, // the three squares of the L
        {1.5, 1.5, false},                                       // the missing square
        {-0.5, 0.5, false}, {2.5, 0.5, false}, {0.5, 2.5, false},
        {0.5, -0.1, false}, {1.9, 0.99, true}, {1.01, 1.01, false},
    };
    for (const Probe& p : probes) {
        EXPECT_EQ(open->contains(p.x, p.y), p.inside) << p.x << "," << p.y;
        EXPECT_EQ(closed->contains(p.x, p.y), p.inside) << p.x << "," << p.y;
    }
}

TEST(KvoRingContains, IgnoresZAndDegenerateRings)
{
    std::vector<XPnt3d> lifted = kEll;
    for (size_t i = 0; i < lifted.size(); ++i)
        lifted[i].z = double(i) * 10;
    ref_ptr<IKvoRing> r = makeRing(lifted);
    EXPECT_TRUE(r->contains(0.5, 1.5));
    EXPECT_FALSE(r->contains(1.5, 1.5));
    EXPECT_FALSE(newKvoRing()->contains(0, 0));
    EXPECT_FALSE(makeRing({{0, 0, 0}, {1, 1, 0}})->contains(0.5, 0.5));
}

TEST(KvoRingShape, CloseAndFinish)
{
    ref_ptr<IKvoRing> r = makeRing({{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {1, 1, 0}, {1, 1, 0}, {1, 1, 0}});
    r->closeRing();
    EXPECT_EQ(r->getPointCount(), 7);
    r->closeRing(); // already closed: unchanged
    EXPECT_EQ(r->getPointCount(), 7);

    ref_ptr<IKvoRing> f = makeRing({{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {1, 1, 0}, {1, 1, 0}, {1, 1, 0}});
    f->finishRing();
    const std::vector<XPnt3d> expected = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 0, 0}};
    EXPECT_EQ(pointsOf(f), expected);
    // A ring given closed, with its closing point repeated, ends up closed once.
    ref_ptr<IKvoRing> g = makeRing({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 0, 0}, {0, 0, 0}});
    g->finishRing();
    EXPECT_EQ(pointsOf(g), expected);

    ref_ptr<IKvoRing> empty = newKvoRing();
    empty->closeRing();
    empty->finishRing();
    EXPECT_EQ(empty->getPointCount(), 0);
    EXPECT_FALSE(empty->isClosed());
    EXPECT_FALSE(empty->getPoint(0).isValid());
}

TEST(KvoRingShape, PointsAreSharedCloneIsDeep)
{
    ref_ptr<IKvoRing> r = makeRing(kEll);
    ref_ptr<Pnt3dArray> pts;
    r->getPoints(pts);
    ASSERT_TRUE(pts);
    pts->setAt(0, XPnt3d(-1, -1, 0));
    EXPECT_EQ(r->getPoint(0), XPnt3d(-1, -1, 0));

    ref_ptr<IKvoRing> c = r->clone();
    c->addPoint(XPnt3d(5, 5, 5));
    pts->setAt(1, XPnt3d(9, 9, 9));
    EXPECT_EQ(r->getPointCount(), 6);
    EXPECT_EQ(c->getPointCount(), 7);
    EXPECT_EQ(c->getPoint(1), XPnt3d(2, 0, 0));

    ref_ptr<Pnt3dArray> mine = newPnt3dArray();
    mine->append(XPnt3d(1, 2, 3));
    r->setPoints(mine);
    EXPECT_EQ(r->getPointCount(), 1);
    r->clear();
    EXPECT_EQ(mine->getCount(), 0);
}

TEST(KvoRingShape, Envelope)
{
    ref_ptr<IKvoRing> r = makeRing({{1, -2, 3}, {4, 0, -1}, {2, 5, 0}});
    Enve3d e = r->getEnvelope();
    ASSERT_TRUE(e.isValid());
    EXPECT_EQ(e.getMinPnt(), XPnt3d(1, -2, -1));
    EXPECT_EQ(e.getMaxPnt(), XPnt3d(4, 5, 3));
    EXPECT_FALSE(newKvoRing()->getEnvelope().isValid());
}

// A 10 x 10 square traced with many points, each edge point pushed off the
// edge by less than 0.05; the corners are exact.
std::vector<XPnt3d> noisySquare(int perEdge, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> noise(-0.05, 0.05);
    const XPnt3d corners[4] = {{0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 10, 0}};
    std::vector<XPnt3d> pts;
    for (int e = 0; e < 4; ++e) {
        XPnt3d a = corners[e], b = corners[(e + 1) % 4];
        XPnt3d dir = b - a;
        XPnt3d perp(-dir.y / 10, dir.x / 10, 0);
        pts.push_back(a);
        for (int i = 1; i < perEdge; ++i)
            pts.push_back(a + dir * (double(i) / perEdge) + perp * noise(rng));
    }
    return pts;
}

TEST(KvoRingSimplify, NoisySquareKeepsItsCorners)
{
    const std::vector<XPnt3d> expected = {{0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 10, 0}, {0, 0, 0}};
    for (unsigned seed = 1; seed <= 5; ++seed) {
        std::vector<XPnt3d> pts = noisySquare(25, seed);
        ref_ptr<IKvoRing> open = makeRing(pts);
        open->simplify(0.1);
        EXPECT_EQ(pointsOf(open), expected) << "seed " << seed;

        ref_ptr<IKvoRing> closed = makeRing(pts);
        closed->closeRing();
        closed->simplify(0.1);
        EXPECT_EQ(pointsOf(closed), expected) << "seed " << seed;
    }
}

TEST(KvoRingSimplify, StartingMidEdgeStillFindsTheCorners)
{
    // The first point is a noise point in the middle of an edge; it must not
    // survive just because the ring happens to start there.
    std::vector<XPnt3d> pts = noisySquare(20, 11);
    std::rotate(pts.begin(), pts.begin() + 10, pts.end());
    ASSERT_NE(pts.front().y, 0);
    ref_ptr<IKvoRing> r = makeRing(pts);
    r->simplify(0.1);
    ASSERT_EQ(r->getPointCount(), 5);
    EXPECT_TRUE(r->isClosed());
    std::vector<XPnt3d> got = pointsOf(r);
    const XPnt3d corners[4] = {{0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 10, 0}};
    for (const XPnt3d& c : corners)
        EXPECT_NE(std::find(got.begin(), got.end(), c), got.end()) << c.x << "," << c.y;
    // The orientation of the input is kept: (10,0) comes right after (0,0) cyclically.
    auto at = std::find(got.begin(), got.end() - 1, XPnt3d(10, 0, 0)) - got.begin();
    EXPECT_EQ(got[size_t((at + 1) % 4)], XPnt3d(10, 10, 0));
}

TEST(KvoRingSimplify, ZeroToleranceDropsOnlyCollinearPoints)
{
    // Square with exact midpoints on two edges and one real notch.
    ref_ptr<IKvoRing> r = makeRing({{0, 0, 0},
                                    {2, 0, 0}, // collinear
                                    {4, 0, 0},
                                    {4, 2, 0}, // collinear
                                    {4, 4, 0},
                                    {2, 3.5, 0}, // notch: stays
                                    {0, 4, 0}});
    r->simplify(0);
    const std::vector<XPnt3d> expected = {{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {2, 3.5, 0}, {0, 4, 0}, {0, 0, 0}};
    EXPECT_EQ(pointsOf(r), expected);

    std::vector<XPnt3d> noisy = noisySquare(8, 3);
    ref_ptr<IKvoRing> n = makeRing(noisy);
    n->simplify(0);
    // No noise point lies exactly on its edge, so nothing goes.
    EXPECT_EQ(n->getPointCount(), long(noisy.size()) + 1);
}

TEST(KvoRingSimplify, NeverBelowATriangle)
{
    // A very flat triangle-ish ring: the tolerance would flatten it to a line.
    ref_ptr<IKvoRing> r = makeRing({{0, 0, 0}, {5, 0.01, 0}, {10, 0, 0}, {5, 0.02, 0}});
    r->simplify(1.0);
    ASSERT_EQ(r->getPointCount(), 4);
    EXPECT_TRUE(r->isClosed());
    std::vector<XPnt3d> got = pointsOf(r);
    EXPECT_NE(got[0], got[1]);
    EXPECT_NE(got[1], got[2]);
    EXPECT_NE(got[0], got[2]);

    ref_ptr<IKvoRing> tri = makeRing({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    tri->simplify(100);
    EXPECT_EQ(tri->getPointCount(), 4);
    EXPECT_TRUE(tri->isClosed());

    ref_ptr<IKvoRing> two = makeRing({{0, 0, 0}, {1, 0, 0}, {1, 0, 0}});
    two->simplify(0.1);
    EXPECT_EQ(two->getPointCount(), 3);
}

TEST(KvoRingSimplify, KeepsZOfTheKeptPoints)
{
    std::vector<XPnt3d> pts = noisySquare(10, 4);
    for (XPnt3d& p : pts)
        p.z = p.x + 100 * p.y;
    ref_ptr<IKvoRing> r = makeRing(pts);
    r->simplify(0.1);
    for (const XPnt3d& p : pointsOf(r))
        EXPECT_EQ(p.z, p.x + 100 * p.y);
}

} // namespace

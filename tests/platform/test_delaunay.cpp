// The Delaunay triangulation against oracles computed in quadruple precision
// (GCC's __float128), which shares no code with the exact predicates.

#include <quadmath.h>

#include <cmath>
#include <random>
#include <set>

#include "scene/KvoDelaunay.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

using Q = __float128;

// Exact where coordinates carry few significant bits (the dyadic grids and
// small offsets below): every intermediate fits in 113 bits. For random
// doubles it is right but for near-ties, which random draws do not make.
int qOrient(const XPnt3d& a, const XPnt3d& b, const XPnt3d& c)
{
    const Q d = (Q(a.x) - c.x) * (Q(b.y) - c.y) - (Q(a.y) - c.y) * (Q(b.x) - c.x);
    return d > 0 ? 1 : d < 0 ? -1 : 0;
}

int qInCircle(const XPnt3d& a, const XPnt3d& b, const XPnt3d& c, const XPnt3d& d)
{
    const Q adx = Q(a.x) - d.x, ady = Q(a.y) - d.y, bdx = Q(b.x) - d.x, bdy = Q(b.y) - d.y, cdx = Q(c.x) - d.x,
            cdy = Q(c.y) - d.y;
    const Q det = (adx * adx + ady * ady) * (bdx * cdy - bdy * cdx) +
                  (bdx * bdx + bdy * bdy) * (cdx * ady - cdy * adx) + (cdx * cdx + cdy * cdy) * (adx * bdy - ady * bdx);
    return det > 0 ? 1 : det < 0 ? -1 : 0;
}

const double kFrame = 2147483647.0;

// Every triangle counter-clockwise, none with a node strictly inside its circle.
void checkDelaunay(IKvoDelaunayDouble& tin, const std::vector<XPnt3d>& nodes, size_t inserted)
{
    long count = 0;
    tin.rewindTriangles();
    while (tind* t = tin.nextTriangle()) {
        ++count;
        ASSERT_EQ(qOrient(*t->nodes[0], *t->nodes[1], *t->nodes[2]), 1);
        if (tin.isFrameTriangle(t))
            continue;
        for (size_t i = 0; i < inserted; ++i)
            EXPECT_LE(qInCircle(*t->nodes[0], *t->nodes[1], *t->nodes[2], nodes[i]), 0)
                << "node " << i << " inside a circumcircle";
    }
    EXPECT_EQ(count, tin.getTriangleCount());
}

} // namespace

TEST(Delaunay, RandomNodesMakeAnEmptyCircleTriangulation)
{
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> d(0, 1);
    std::vector<XPnt3d> nodes(600);
    for (XPnt3d& p : nodes)
        p = XPnt3d(d(rng), d(rng), 0);
    ref_ptr<IKvoDelaunayDouble> tin = newKvoDelaunayDouble(0, -kFrame, -kFrame, kFrame, kFrame);
    for (const XPnt3d& p : nodes)
        ASSERT_TRUE(tin->addNode(&p, 0.0));
    // Four frame corners and n nodes: 2 (n + 4) - 2 - 4 triangles.
    EXPECT_EQ(tin->getTriangleCount(), long(2 * nodes.size() + 2));
    checkDelaunay(*tin, nodes, nodes.size());

    // find: the triangle it gives holds the point (brute force says so too).
    tin->rewindTriangles();
    tind* start = nullptr;
    while ((start = tin->nextTriangle()) && tin->isFrameTriangle(start)) {
    }
    ASSERT_NE(start, nullptr);
    for (int i = 0; i < 500; ++i) {
        const XPnt3d q(d(rng) * 1.2 - 0.1, d(rng) * 1.2 - 0.1, 0);
        tind* t = start->find(q.x, q.y);
        ASSERT_NE(t, nullptr);
        for (int k = 0; k < 3; ++k)
            EXPECT_GE(qOrient(*t->nodes[k], *t->nodes[(k + 1) % 3], q), 0);
    }
    EXPECT_EQ(start->find(3e9, 0), nullptr) << "outside the frame";
}

TEST(Delaunay, DegenerateSetsStayValid)
{
    // A grid: every cell's four corners lie on one circle.
    std::vector<XPnt3d> grid;
    for (int j = 0; j < 12; ++j)
        for (int i = 0; i < 12; ++i)
            grid.emplace_back(i / 16.0, j / 16.0, 0);
    ref_ptr<IKvoDelaunayDouble> tin = newKvoDelaunayDouble(0, -kFrame, -kFrame, kFrame, kFrame);
    for (const XPnt3d& p : grid)
        ASSERT_TRUE(tin->addNode(&p, 0.0));
    checkDelaunay(*tin, grid, grid.size());

    // Collinear nodes, then the same point again: refused, nothing changes.
    std::vector<XPnt3d> line;
    for (int i = 0; i < 50; ++i)
        line.emplace_back(0.3 + i * 0.01, 0.2 + i * 0.02, 0);
    line.push_back(line[7]);
    ref_ptr<IKvoDelaunayDouble> t2 = newKvoDelaunayDouble(0, -kFrame, -kFrame, kFrame, kFrame);
    for (size_t i = 0; i + 1 < line.size(); ++i)
        ASSERT_TRUE(t2->addNode(&line[i], 0.0));
    const long before = t2->getTriangleCount();
    EXPECT_FALSE(t2->addNode(&line.back(), 0.0)) << "a duplicate";
    EXPECT_EQ(t2->getTriangleCount(), before);
    checkDelaunay(*t2, line, line.size() - 1);
    XPnt3d near(line[3].x + 1e-9, line[3].y, 0), outside(3e9, 0, 0);
    EXPECT_FALSE(t2->addNode(&near, 1e-6)) << "within the tolerance";
    EXPECT_FALSE(t2->addNode(&outside, 0.0));

    // Nodes that differ in the last bits: the exact predicates keep it valid.
    std::vector<XPnt3d> close;
    for (int i = 0; i < 40; ++i)
        close.emplace_back(0.5 + std::ldexp(double(i % 7), -50), 0.5 + std::ldexp(double(i / 7), -50), 0);
    ref_ptr<IKvoDelaunayDouble> t3 = newKvoDelaunayDouble(0, -kFrame, -kFrame, kFrame, kFrame);
    size_t added = 0;
    for (const XPnt3d& p : close)
        added += t3->addNode(&p, 0.0);
    EXPECT_EQ(added, close.size());
    checkDelaunay(*t3, close, close.size());
}

TEST(Delaunay, PredicatesAreExactWhereRoundingLies)
{
    // Three points on a line, the middle one a hair off: doubles alone cannot tell.
    const double e = std::ldexp(1.0, -53); // one unit in the last place of 0.5
    EXPECT_EQ(orient2dSign(0, 0, 1, 1, 0.5, 0.5), 0);
    EXPECT_EQ(orient2dSign(0, 0, 1, 1, 0.5, 0.5 + e), 1);
    EXPECT_EQ(orient2dSign(0, 0, 1, 1, 0.5 + e, 0.5), -1);
    // Four points on the unit circle, and one just inside.
    EXPECT_EQ(inCircleSign(1, 0, 0, 1, -1, 0, 0, -1), 0);
    EXPECT_EQ(inCircleSign(1, 0, 0, 1, -1, 0, 0, -1 + e), 1);
    std::mt19937 rng(3);
    // Coordinates on a grid of 2^-20, many of them shared: degenerate cases abound.
    std::uniform_int_distribution<int> grid(-8, 8);
    auto d = [&](std::mt19937& r) { return std::ldexp(double(grid(r)), -3) + std::ldexp(double(grid(r)), -20); };
    for (int i = 0; i < 4000; ++i) {
        const XPnt3d a(d(rng), d(rng), 0), b(d(rng), d(rng), 0), c(d(rng), d(rng), 0), p(d(rng), d(rng), 0);
        EXPECT_EQ(orient2dSign(a.x, a.y, b.x, b.y, c.x, c.y), qOrient(a, b, c));
        if (qOrient(a, b, c) > 0) {
            EXPECT_EQ(inCircleSign(a.x, a.y, b.x, b.y, c.x, c.y, p.x, p.y), qInCircle(a, b, c, p));
        }
    }
}

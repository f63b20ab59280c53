#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <map>
#include <vector>

#include "scene/KvoDelaunay.h"

namespace kvo {

namespace {

// ---------------------------------------------------------------- exact arithmetic
// Numbers as expansions: sums of doubles that do not overlap, smallest first.
// Every operation below is exact; a sign is the sign of the largest term.

using Expansion = std::vector<double>;

inline void twoSum(double a, double b, double& x, double& y)
{
    x = a + b;
    const double bv = x - a, av = x - bv;
    y = (a - av) + (b - bv);
}

inline void twoDiff(double a, double b, double& x, double& y)
{
    x = a - b;
    const double bv = a - x, av = x + bv;
    y = (a - av) + (bv - b);
}

inline void twoProduct(double a, double b, double& x, double& y)
{
    x = a * b;
    y = std::fma(a, b, -x);
}

// e + b, one term at a time; zero terms are dropped.
Expansion grow(const Expansion& e, double b)
{
    Expansion h;
    h.reserve(e.size() + 1);
    double q = b;
    for (double ei : e) {
        double x, y;
        twoSum(q, ei, x, y);
        if (y != 0)
            h.push_back(y);
        q = x;
    }
    if (q != 0 || h.empty())
        h.push_back(q);
    return h;
}

Expansion sum(const Expansion& e, const Expansion& f)
{
    Expansion h = e;
    for (double fi : f)
        h = grow(h, fi);
    return h;
}

Expansion negate(Expansion e)
{
    for (double& x : e)
        x = -x;
    return e;
}

Expansion scale(const Expansion& e, double b)
{
    Expansion h{0.0};
    for (double ei : e) {
        double x, y;
        twoProduct(ei, b, x, y);
        h = grow(grow(h, y), x);
    }
    return h;
}

Expansion product(const Expansion& e, const Expansion& f)
{
    Expansion h{0.0};
    for (double fi : f)
        h = sum(h, scale(e, fi));
    return h;
}

int sign(const Expansion& e)
{
    for (auto it = e.rbegin(); it != e.rend(); ++it)
        if (*it != 0)
            return *it > 0 ? 1 : -1;
    return 0;
}

Expansion diff(double a, double b)
{
    double x, y;
    twoDiff(a, b, x, y);
    return y != 0 ? Expansion{y, x} : Expansion{x};
}

constexpr double kEps = std::numeric_limits<double>::epsilon() * 0.5;

} // namespace

int orient2dSign(double ax, double ay, double bx, double by, double cx, double cy)
{
    const double l = (ax - cx) * (by - cy), r = (ay - cy) * (bx - cx);
    const double det = l - r;
    // A forward error bound: beyond it the rounded sign is the true one.
    const double bound = (3.0 + 16.0 * kEps) * kEps * (std::abs(l) + std::abs(r));
    if (det > bound || -det > bound)
        return det > 0 ? 1 : -1;
    const Expansion e = sum(product(diff(ax, cx), diff(by, cy)), negate(product(diff(ay, cy), diff(bx, cx))));
    return sign(e);
}

int inCircleSign(double ax, double ay, double bx, double by, double cx, double cy, double dx, double dy)
{
    const double adx = ax - dx, ady = ay - dy, bdx = bx - dx, bdy = by - dy, cdx = cx - dx, cdy = cy - dy;
    const double alift = adx * adx + ady * ady, blift = bdx * bdx + bdy * bdy, clift = cdx * cdx + cdy * cdy;
    const double bc = bdx * cdy - bdy * cdx, ca = cdx * ady - cdy * adx, ab = adx * bdy - ady * bdx;
    const double det = alift * bc + blift * ca + clift * ab;
    const double permanent = (std::abs(bdx * cdy) + std::abs(bdy * cdx)) * alift +
                             (std::abs(cdx * ady) + std::abs(cdy * adx)) * blift +
                             (std::abs(adx * bdy) + std::abs(ady * bdx)) * clift;
    const double bound = (10.0 + 96.0 * kEps) * kEps * permanent;
    if (det > bound || -det > bound)
        return det > 0 ? 1 : -1;
    const Expansion ex = diff(ax, dx), ey = diff(ay, dy), fx = diff(bx, dx), fy = diff(by, dy), gx = diff(cx, dx),
                    gy = diff(cy, dy);
    const Expansion la = sum(product(ex, ex), product(ey, ey));
    const Expansion lb = sum(product(fx, fx), product(fy, fy));
    const Expansion lc = sum(product(gx, gx), product(gy, gy));
    const Expansion cbc = sum(product(fx, gy), negate(product(fy, gx)));
    const Expansion cca = sum(product(gx, ey), negate(product(gy, ex)));
    const Expansion cab = sum(product(ex, fy), negate(product(ey, fx)));
    return sign(sum(sum(product(la, cbc), product(lb, cca)), product(lc, cab)));
}

// ---------------------------------------------------------------- triangulation

class CKvoDelaunayDouble : public IKvoDelaunayDouble {
public:
    CKvoDelaunayDouble(double z, double minX, double minY, double maxX, double maxY)
    {
        m_corners[0] = XPnt3d(minX, minY, z);
        m_corners[1] = XPnt3d(maxX, minY, z);
        m_corners[2] = XPnt3d(maxX, maxY, z);
        m_corners[3] = XPnt3d(minX, maxY, z);
        m_minX = minX;
        m_minY = minY;
        m_maxX = maxX;
        m_maxY = maxY;
        tind* a = make(&m_corners[0], &m_corners[1], &m_corners[2]);
        tind* b = make(&m_corners[0], &m_corners[2], &m_corners[3]);
        // a's edge opposite corner 1 (0-2) is b's edge opposite corner 3 (node 2 of b).
        a->adj[1] = b;
        b->adj[2] = a;
        m_last = a;
    }

    tind* nextTriangle() override
    {
        while (m_cursor < m_tris.size()) {
            tind* t = &m_tris[m_cursor++];
            if (t->alive)
                return t;
        }
        return nullptr;
    }
    void rewindTriangles() override { m_cursor = 0; }
    bool isFrameTriangle(const tind* t) const override
    {
        for (const XPnt3d* n : t->nodes)
            if (n >= &m_corners[0] && n <= &m_corners[3])
                return true;
        return false;
    }
    long getTriangleCount() const override { return m_alive; }

    bool addNode(const XPnt3d* p, double tolerance) override
    {
        if (!p || !(p->x > m_minX && p->x < m_maxX && p->y > m_minY && p->y < m_maxY))
            return false;
        tind* t = walk(m_last, p->x, p->y);
        if (!t)
            return false;
        for (const XPnt3d* n : t->nodes) {
            const double dx = n->x - p->x, dy = n->y - p->y;
            if (std::sqrt(dx * dx + dy * dy) <= tolerance)
                return false;
        }
        // The cavity: every triangle whose circumcircle holds p, grown from t.
        std::vector<tind*> cavity{t}, stack{t};
        t->alive = false;
        while (!stack.empty()) {
            tind* c = stack.back();
            stack.pop_back();
            for (tind* n : c->adj)
                if (n && n->alive && inCircle(n, p) > 0) {
                    n->alive = false;
                    cavity.push_back(n);
                    stack.push_back(n);
                }
        }
        // Its boundary edges, each with the triangle beyond it.
        struct Edge {
            const XPnt3d *a, *b;
            tind* outside;
        };
        std::vector<Edge> boundary;
        for (tind* c : cavity)
            for (int k = 0; k < 3; ++k) {
                tind* n = c->adj[k];
                if (n && !n->alive)
                    continue;
                boundary.push_back({c->nodes[(k + 1) % 3], c->nodes[(k + 2) % 3], n});
            }
        // A node on the line of a boundary edge would make a flat triangle:
        // only possible for a node within rounding of a frame edge.
        for (const Edge& e : boundary)
            if (orient2dSign(e.a->x, e.a->y, e.b->x, e.b->y, p->x, p->y) <= 0) {
                for (tind* c : cavity)
                    c->alive = true;
                return false;
            }
        m_alive -= long(cavity.size());
        std::map<const XPnt3d*, tind*> byStart, byEnd;
        std::vector<tind*> made;
        for (const Edge& e : boundary) {
            tind* n = make(e.a, e.b, p);
            n->adj[2] = e.outside;
            if (e.outside)
                for (int k = 0; k < 3; ++k)
                    if (e.outside->nodes[(k + 1) % 3] == e.b && e.outside->nodes[(k + 2) % 3] == e.a)
                        e.outside->adj[k] = n;
            byStart[e.a] = n;
            byEnd[e.b] = n;
            made.push_back(n);
        }
        // Neighbours among the new triangles: (a, b, p) meets the one that
        // ends at a across edge p-a, and the one that starts at b across b-p.
        for (tind* n : made) {
            n->adj[1] = byEnd[n->nodes[0]];   // edge opposite node b: (p, a)
            n->adj[0] = byStart[n->nodes[1]]; // edge opposite node a: (b, p)
        }
        m_last = made.front();
        return true;
    }

    // Visibility walk with the exact orientation test.
    tind* walk(tind* from, double x, double y)
    {
        tind* t = from && from->alive ? from : firstAlive();
        unsigned seed = 12345;
        for (long steps = 0; t && steps < 4 * m_alive + 16; ++steps) {
            const int start = int((seed = seed * 1103515245u + 12345u) >> 16) % 3;
            bool moved = false;
            for (int i = 0; i < 3; ++i) {
                const int k = (start + i) % 3;
                const XPnt3d *a = t->nodes[(k + 1) % 3], *b = t->nodes[(k + 2) % 3];
                if (orient2dSign(a->x, a->y, b->x, b->y, x, y) < 0) {
                    t = t->adj[k];
                    moved = true;
                    break;
                }
            }
            if (!moved)
                return t;
        }
        return nullptr;
    }

private:
    tind* make(const XPnt3d* a, const XPnt3d* b, const XPnt3d* c)
    {
        m_tris.emplace_back();
        tind* t = &m_tris.back();
        t->nodes[0] = a;
        t->nodes[1] = b;
        t->nodes[2] = c;
        t->owner = this;
        ++m_alive;
        return t;
    }
    tind* firstAlive()
    {
        for (tind& t : m_tris)
            if (t.alive)
                return &t;
        return nullptr;
    }
    int inCircle(const tind* t, const XPnt3d* p) const
    {
        return inCircleSign(t->nodes[0]->x, t->nodes[0]->y, t->nodes[1]->x, t->nodes[1]->y, t->nodes[2]->x,
                            t->nodes[2]->y, p->x, p->y);
    }

    XPnt3d m_corners[4];
    double m_minX, m_minY, m_maxX, m_maxY;
    std::deque<tind> m_tris; // stable addresses; dead ones stay, marked
    long m_alive = 0;
    size_t m_cursor = 0;
    tind* m_last = nullptr;
};

tind* tind::find(double x, double y)
{
    return owner ? owner->walk(this, x, y) : nullptr;
}

ref_ptr<IKvoDelaunayDouble> newKvoDelaunayDouble(double z, double minX, double minY, double maxX, double maxY)
{
    return ref_ptr<IKvoDelaunayDouble>(new CKvoDelaunayDouble(z, minX, minY, maxX, maxY));
}

} // namespace kvo

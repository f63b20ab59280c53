#include "scene/KvoRing.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "scene/KvoGeometry.h"

namespace kvo {

namespace {

// Distance in x, y from p to the segment a-b.
double segmentDistance(const XPnt3d& p, const XPnt3d& a, const XPnt3d& b)
{
    double dx = b.x - a.x, dy = b.y - a.y;
    double px = p.x - a.x, py = p.y - a.y;
    double len2 = dx * dx + dy * dy;
    if (len2 > 0) {
        double t = std::clamp((px * dx + py * dy) / len2, 0.0, 1.0);
        px -= t * dx;
        py -= t * dy;
    }
    return std::sqrt(px * px + py * py);
}

double planarDist2(const XPnt3d& a, const XPnt3d& b)
{
    double dx = b.x - a.x, dy = b.y - a.y;
    return dx * dx + dy * dy;
}

// Marks in keep the points of pts[first..last] (indices modulo n) that
// Douglas-Peucker retains between the two kept ends. Iterative, so that long
// rings from contour tracing cannot exhaust the stack.
void douglasPeucker(const std::vector<XPnt3d>& pts, long first, long last, double tolerance, std::vector<char>& keep)
{
    const long n = long(pts.size());
    std::vector<std::pair<long, long>> todo{{first, last}};
    while (!todo.empty()) {
        auto [s, e] = todo.back();
        todo.pop_back();
        if (e - s < 2)
            continue;
        const XPnt3d& a = pts[size_t(s % n)];
        const XPnt3d& b = pts[size_t(e % n)];
        long far = -1;
        double farDist = tolerance;
        for (long i = s + 1; i < e; ++i) {
            double d = segmentDistance(pts[size_t(i % n)], a, b);
            if (d > farDist) {
                farDist = d;
                far = i;
            }
        }
        if (far < 0)
            continue;
        keep[size_t(far % n)] = 1;
        todo.emplace_back(s, far);
        todo.emplace_back(far, e);
    }
}

class CKvoRing : public IKvoRing {
public:
    CKvoRing() : m_points(newPnt3dArray()) {}
    explicit CKvoRing(const ref_ptr<Pnt3dArray>& points) : m_points(points) {}

    void addPoint(const XPnt3d& p) override { m_points->append(p); }
    long getPointCount() const override { return m_points->getCount(); }

    XPnt3d getPoint(long i) const override
    {
        if (i < 0 || i >= m_points->getCount())
            return XPnt3d::invalidPnt();
        return (*m_points)[i];
    }

    ref_ptr<Pnt3dArray>& getPoints(ref_ptr<Pnt3dArray>& out) const override
    {
        out = m_points;
        return out;
    }

    void setPoints(const ref_ptr<Pnt3dArray>& points) override
    {
        // The ring adopts the array itself, like getPoints hands it out: the
        // caller may keep editing it through its own pointer.
        m_points = points ? points : newPnt3dArray();
    }

    void clear() override { m_points->clear(); }

    void closeRing() override
    {
        std::vector<XPnt3d>& v = m_points->vec();
        if (!v.empty() && v.back() != v.front())
            v.push_back(v.front());
    }

    void finishRing() override
    {
        std::vector<XPnt3d>& v = m_points->vec();
        v.erase(std::unique(v.begin(), v.end()), v.end());
        closeRing();
    }

    bool isClosed() const override
    {
        const std::vector<XPnt3d>& v = m_points->vec();
        return v.size() > 1 && v.front() == v.back();
    }

    bool contains(double x, double y) const override
    {
        return PntInPolygon(x, y, m_points->getData(), m_points->getCount());
    }

    void simplify(double tolerance) override;

    Enve3d getEnvelope() const override
    {
        Enve3d e;
        for (const XPnt3d& p : m_points->vec())
            e.add(p);
        return e;
    }

    ref_ptr<IKvoRing> clone() const override { return ref_ptr<IKvoRing>(new CKvoRing(m_points->clone())); }

private:
    ref_ptr<Pnt3dArray> m_points;
};

void CKvoRing::simplify(double tolerance)
{
    std::vector<XPnt3d>& v = m_points->vec();
    tolerance = std::max(0.0, tolerance);

    // Work on the open cycle of distinct consecutive points.
    std::vector<XPnt3d> pts = v;
    pts.erase(std::unique(pts.begin(), pts.end()), pts.end());
    while (pts.size() > 1 && pts.back() == pts.front())
        pts.pop_back();
    const long n = long(pts.size());
    if (n < 4) {
        // Nothing can go without losing the ring's area.
        v = pts;
        closeRing();
        return;
    }

    // Anchor the cycle on two points far apart. They are hull points, so no
    // real corner gets traded for whatever point happened to come first.
    auto farthestFrom = [&](const XPnt3d& q) {
        long best = 0;
        double bestD = -1;
        for (long i = 0; i < n; ++i) {
            double d = planarDist2(pts[size_t(i)], q);
            if (d > bestD) {
                bestD = d;
                best = i;
            }
        }
        return best;
    };
    long a = farthestFrom(pts[0]);
    long b = farthestFrom(pts[size_t(a)]);
    if (a == b) {
        // Every point shares x, y; the plan view has nothing to simplify.
        v = pts;
        closeRing();
        return;
    }
    if (b < a)
        std::swap(a, b);

    std::vector<char> keep(size_t(n), 0);
    keep[size_t(a)] = keep[size_t(b)] = 1;
    douglasPeucker(pts, a, b, tolerance, keep);
    douglasPeucker(pts, b, a + n, tolerance, keep);

    long kept = long(std::count(keep.begin(), keep.end(), char(1)));
    if (kept < 3) {
        // A ring needs three corners: take the one that stands out most from
        // the chord, even if it lies within the tolerance.
        long best = -1;
        double bestD = -1;
        for (long i = 0; i < n; ++i) {
            if (keep[size_t(i)] || pts[size_t(i)] == pts[size_t(a)] || pts[size_t(i)] == pts[size_t(b)])
                continue;
            double d = segmentDistance(pts[size_t(i)], pts[size_t(a)], pts[size_t(b)]);
            if (d > bestD) {
                bestD = d;
                best = i;
            }
        }
        if (best >= 0)
            keep[size_t(best)] = 1;
    }

    // Kept points in their original order, so orientation is preserved.
    std::vector<XPnt3d> out;
    out.reserve(size_t(n) + 1);
    for (long i = 0; i < n; ++i)
        if (keep[size_t(i)])
            out.push_back(pts[size_t(i)]);
    v = std::move(out);
    closeRing();
}

} // namespace

ref_ptr<IKvoRing> newKvoRing()
{
    return ref_ptr<IKvoRing>(new CKvoRing());
}

} // namespace kvo

// The UV layout of a whole mesh on square texture sheets.
//
// Charts grow over edge-adjacent faces whose normals stay within a cone around
// the seed's normal, and each chart is flattened by projecting it on the plane
// across that normal. Inside the cone every face keeps its orientation in the
// projection; a face whose projection would overlap one already in the chart
// is left for a later chart, so no chart folds over itself. Charts are turned
// to their smallest bounding rectangle, cut in halves while one would not fit
// a sheet, and packed with a skyline packer. The common scale is the largest
// one at which everything fits the chosen number of sheets, so the sheets are
// used as fully as the packing allows.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <unordered_map>
#include <vector>

#include "scene/KvoMeshAdjacency.h"
#include "scene/KvoUVAtlas.h"

namespace Rec3D {
namespace RecMesh {
namespace {

struct V2 {
    double x, y;
};

struct V3 {
    double x, y, z;
};

inline V3 sub(const V3& a, const V3& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline V3 cross(const V3& a, const V3& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double dot(const V3& a, const V3& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline double cross2(const V2& o, const V2& a, const V2& b)
{
    return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

// Faces within this angle of the seed's normal may join its chart. At 50
// degrees the projection shrinks no face below cos(50) = 0.64 of its area.
const double kConeCos = 0.6428;

struct Chart {
    std::vector<unsigned> faces;
    std::vector<unsigned> corner; // three a face: index into pts
    std::vector<V2> pts;          // flattened, turned so that the bounding box is axis-aligned
    double minX = 0, minY = 0, w = 0, h = 0;
    // Placement.
    long sheet = -1;
    double px = 0, py = 0; // lower-left pixel of the content
    bool turned = false;   // placed a quarter turn round
};

// Interiors of two 2-D triangles overlap: no separating axis among the six
// edge normals. Touching along an edge or at a corner does not count.
bool interiorsOverlap(const V2* a, const V2* b, double eps)
{
    const V2* tri[2] = {a, b};
    for (int t = 0; t < 2; ++t)
        for (int e = 0; e < 3; ++e) {
            const V2& p = tri[t][e];
            const V2& q = tri[t][(e + 1) % 3];
            double nx = q.y - p.y, ny = p.x - q.x;
            const double len = std::sqrt(nx * nx + ny * ny);
            if (len <= 0)
                continue;
            nx /= len;
            ny /= len;
            double minA = 1e300, maxA = -1e300, minB = 1e300, maxB = -1e300;
            for (int k = 0; k < 3; ++k) {
                const double da = a[k].x * nx + a[k].y * ny;
                const double db = b[k].x * nx + b[k].y * ny;
                minA = std::min(minA, da);
                maxA = std::max(maxA, da);
                minB = std::min(minB, db);
                maxB = std::max(maxB, db);
            }
            if (maxA <= minB + eps || maxB <= minA + eps)
                return false;
        }
    return true;
}

// Convex hull (monotone chain), counter-clockwise, without repeated points.
std::vector<V2> convexHull(std::vector<V2> p)
{
    std::sort(p.begin(), p.end(), [](const V2& a, const V2& b) { return a.x < b.x || (a.x == b.x && a.y < b.y); });
    p.erase(std::unique(p.begin(), p.end(), [](const V2& a, const V2& b) { return a.x == b.x && a.y == b.y; }),
            p.end());
    if (p.size() < 3)
        return p;
    std::vector<V2> h(2 * p.size());
    size_t k = 0;
    for (size_t i = 0; i < p.size(); ++i) {
        while (k >= 2 && cross2(h[k - 2], h[k - 1], p[i]) <= 0)
            --k;
        h[k++] = p[i];
    }
    for (size_t i = p.size() - 1, t = k + 1; i > 0; --i) {
        while (k >= t && cross2(h[k - 2], h[k - 1], p[i - 1]) <= 0)
            --k;
        h[k++] = p[i - 1];
    }
    h.resize(k - 1);
    return h;
}

// Turns the chart so that its bounding rectangle is the smallest one, and
// moves it to the origin. The smallest rectangle has a side on a hull edge.
void fitRectangle(Chart& c)
{
    const std::vector<V2> hull = convexHull(c.pts);
    double bestArea = 1e300, bestC = 1, bestS = 0;
    for (size_t i = 0; i < hull.size() && hull.size() >= 3; ++i) {
        const V2& p = hull[i];
        const V2& q = hull[(i + 1) % hull.size()];
        const double dx = q.x - p.x, dy = q.y - p.y, len = std::sqrt(dx * dx + dy * dy);
        if (len <= 0)
            continue;
        const double cs = dx / len, sn = dy / len;
        double x0 = 1e300, x1 = -1e300, y0 = 1e300, y1 = -1e300;
        for (const V2& v : hull) {
            const double x = v.x * cs + v.y * sn, y = -v.x * sn + v.y * cs;
            x0 = std::min(x0, x);
            x1 = std::max(x1, x);
            y0 = std::min(y0, y);
            y1 = std::max(y1, y);
        }
        const double area = (x1 - x0) * (y1 - y0);
        if (area < bestArea * (1 - 1e-9)) {
            bestArea = area;
            bestC = cs;
            bestS = sn;
        }
    }
    double x0 = 1e300, x1 = -1e300, y0 = 1e300, y1 = -1e300;
    for (V2& v : c.pts) {
        const double x = v.x * bestC + v.y * bestS, y = -v.x * bestS + v.y * bestC;
        v = {x, y};
        x0 = std::min(x0, x);
        x1 = std::max(x1, x);
        y0 = std::min(y0, y);
        y1 = std::max(y1, y);
    }
    if (c.pts.empty())
        x0 = x1 = y0 = y1 = 0;
    for (V2& v : c.pts)
        v = {v.x - x0, v.y - y0};
    c.w = x1 - x0;
    c.h = y1 - y0;
    // Lying rectangles stack better on the packer's skyline.
    if (c.h > c.w) {
        for (V2& v : c.pts)
            v = {v.y, c.w - v.x};
        std::swap(c.w, c.h);
    }
}

// A chart's faces as a new chart of their own, with their own points.
Chart subChart(const Chart& c, const std::vector<unsigned>& faceSlots)
{
    Chart out;
    std::unordered_map<unsigned, unsigned> local;
    for (unsigned s : faceSlots) {
        out.faces.push_back(c.faces[s]);
        for (int k = 0; k < 3; ++k) {
            const unsigned p = c.corner[3 * s + unsigned(k)];
            auto it = local.find(p);
            if (it == local.end()) {
                it = local.emplace(p, unsigned(out.pts.size())).first;
                out.pts.push_back(c.pts[p]);
            }
            out.corner.push_back(it->second);
        }
    }
    fitRectangle(out);
    return out;
}

// Halves along the longer side by the faces' centres until every chart is
// at most `side` long in model units.
void splitLargeCharts(std::vector<Chart>& charts, double side)
{
    for (size_t i = 0; i < charts.size(); ++i) {
        while (charts[i].faces.size() > 1 && (charts[i].w > side || charts[i].h > side)) {
            const Chart& c = charts[i];
            std::vector<unsigned> slots(c.faces.size());
            std::iota(slots.begin(), slots.end(), 0u);
            const bool alongX = c.w >= c.h;
            std::vector<double> key(c.faces.size());
            for (size_t s = 0; s < slots.size(); ++s) {
                double sum = 0;
                for (int k = 0; k < 3; ++k) {
                    const V2& p = c.pts[c.corner[3 * s + size_t(k)]];
                    sum += alongX ? p.x : p.y;
                }
                key[s] = sum;
            }
            const size_t half = slots.size() / 2;
            std::nth_element(slots.begin(), slots.begin() + long(half), slots.end(),
                             [&](unsigned a, unsigned b) { return key[a] < key[b]; });
            std::vector<unsigned> lo(slots.begin(), slots.begin() + long(half));
            std::vector<unsigned> hi(slots.begin() + long(half), slots.end());
            Chart a = subChart(c, lo);
            Chart b = subChart(c, hi);
            charts[i] = std::move(a);
            charts.push_back(std::move(b));
        }
    }
}

// Skyline packing of rectangles into square bins.
class SkylinePacker {
public:
    SkylinePacker(long binSide, long maxBins) : m_side(binSide), m_maxBins(maxBins) {}

    // Places a w x h rectangle (either way round); false when no bin has room.
    bool place(long w, long h, long& bin, long& x, long& y, bool& turned)
    {
        for (size_t b = 0;; ++b) {
            if (b == m_bins.size()) {
                if (long(m_bins.size()) >= m_maxBins)
                    return false;
                m_bins.push_back({{0, 0, m_side}});
            }
            long bx = 0, by = 0, bestTop = -1;
            bool bestTurned = false;
            for (int r = 0; r < 2; ++r) {
                const long rw = r ? h : w, rh = r ? w : h;
                if (r && w == h)
                    break;
                long px = 0, py = 0;
                if (find(m_bins[b], rw, rh, px, py) && (bestTop < 0 || py + rh < bestTop)) {
                    bestTop = py + rh;
                    bx = px;
                    by = py;
                    bestTurned = r != 0;
                }
            }
            if (bestTop >= 0) {
                insert(m_bins[b], bx, by + (bestTurned ? w : h), bestTurned ? h : w);
                bin = long(b);
                x = bx;
                y = by;
                turned = bestTurned;
                return true;
            }
        }
    }

    long binCount() const { return long(m_bins.size()); }

private:
    struct Segment {
        long x, y, w;
    };

    // Lowest position, then leftmost, where the rectangle rests on the skyline.
    bool find(const std::vector<Segment>& sky, long w, long h, long& bestX, long& bestY) const
    {
        if (w > m_side || h > m_side)
            return false;
        bool found = false;
        for (size_t i = 0; i < sky.size(); ++i) {
            const long x = sky[i].x;
            if (x + w > m_side)
                break;
            long y = 0, reach = x + w;
            for (size_t j = i; j < sky.size() && sky[j].x < reach; ++j)
                y = std::max(y, sky[j].y);
            if (y + h > m_side)
                continue;
            if (!found || y < bestY) {
                found = true;
                bestX = x;
                bestY = y;
            }
        }
        return found;
    }

    static void insert(std::vector<Segment>& sky, long x, long top, long w)
    {
        std::vector<Segment> out;
        out.reserve(sky.size() + 2);
        const long end = x + w;
        bool added = false;
        for (const Segment& s : sky) {
            const long sEnd = s.x + s.w;
            if (sEnd <= x || s.x >= end) {
                if (s.x >= end && !added) {
                    out.push_back({x, top, w});
                    added = true;
                }
                out.push_back(s);
                continue;
            }
            if (s.x < x)
                out.push_back({s.x, s.y, x - s.x});
            if (!added) {
                out.push_back({x, top, w});
                added = true;
            }
            if (sEnd > end)
                out.push_back({end, s.y, sEnd - end});
        }
        if (!added)
            out.push_back({x, top, w});
        sky.clear();
        for (const Segment& s : out) {
            if (!sky.empty() && sky.back().y == s.y)
                sky.back().w += s.w;
            else
                sky.push_back(s);
        }
    }

    long m_side;
    long m_maxBins;
    std::vector<std::vector<Segment>> m_bins;
};

// The pixel size of a chart's content at a scale: the extent plus a pixel,
// so that the content sits half a pixel in from its box on every side.
inline long pixelSide(double extent, double scale)
{
    return long(std::ceil(extent * scale + 1.0));
}

// Packs every chart at a scale into at most maxSheets sheets; the placements
// are written into the charts only when all of them fit.
bool packAt(std::vector<Chart>& charts, const std::vector<unsigned>& order, double scale, long atlasSize, long gutter,
            long maxSheets, long* sheetsUsed)
{
    // A box is its content and one gutter to its left and below; the bin
    // leaves out one gutter at the right and top, so contents keep at least
    // a gutter from each other and from the sheet's edges.
    SkylinePacker packer(atlasSize - gutter, maxSheets);
    std::vector<long> bin(charts.size()), bx(charts.size()), by(charts.size());
    std::vector<char> turned(charts.size());
    for (unsigned i : order) {
        const long w = pixelSide(charts[i].w, scale) + gutter;
        const long h = pixelSide(charts[i].h, scale) + gutter;
        bool t = false;
        if (!packer.place(w, h, bin[i], bx[i], by[i], t))
            return false;
        turned[i] = t;
    }
    for (size_t i = 0; i < charts.size(); ++i) {
        charts[i].sheet = bin[i];
        charts[i].px = double(bx[i] + gutter);
        charts[i].py = double(by[i] + gutter);
        charts[i].turned = turned[i] != 0;
    }
    if (sheetsUsed)
        *sheetsUsed = packer.binCount();
    return true;
}

} // namespace

long calUVForMesh(const XPnt3f* vertices, long vertexCount, const unsigned* triangles, long triangleCount,
                  long atlasSize, long gutter, long limit, const float* texelArea, KvoUVLayout& out,
                  kvo::IKvoProgress* progress)
{
    out = KvoUVLayout();
    if (!vertices || !triangles || vertexCount <= 0 || triangleCount <= 0)
        return -1;
    if (atlasSize < 16 || gutter < 0 || 4 * gutter >= atlasSize || limit < 1)
        return -3;
    for (long i = 0; i < 3 * triangleCount; ++i)
        if (long(triangles[i]) >= vertexCount)
            return -2;

    const size_t nf = size_t(triangleCount);
    auto pos = [&](unsigned v) { return V3{vertices[v].x, vertices[v].y, vertices[v].z}; };

    // Face normals and areas.
    std::vector<V3> normal(nf);
    std::vector<double> area(nf);
    double edgeSum = 0;
    for (size_t f = 0; f < nf; ++f) {
        const V3 a = pos(triangles[3 * f]), b = pos(triangles[3 * f + 1]), c = pos(triangles[3 * f + 2]);
        const V3 n = cross(sub(b, a), sub(c, a));
        const double len = std::sqrt(dot(n, n));
        area[f] = 0.5 * len;
        normal[f] = len > 0 ? V3{n.x / len, n.y / len, n.z / len} : V3{0, 0, 0};
        const V3 e = sub(b, a);
        edgeSum += std::sqrt(dot(e, e));
    }
    const double meanEdge = edgeSum / double(nf);
    double totalArea = std::accumulate(area.begin(), area.end(), 0.0);
    if (!(totalArea > 0))
        return -1;

    std::vector<uint32_t> nbStart, nb;
    kvo::faceEdgeNeighbours(triangles, triangleCount, nbStart, nb);
    kvo::prgStep(progress, 0.2);

    // Chart growth.
    std::vector<Chart> charts;
    std::vector<int> chartOf(nf, -1);
    std::vector<unsigned> stamp(size_t(vertexCount), 0), localIndex(size_t(vertexCount), 0);
    unsigned stampNow = 0;
    const double cell = std::max(2.0 * meanEdge, 1e-12);
    std::unordered_map<uint64_t, std::vector<unsigned>> grid; // cell -> slots in the chart
    std::vector<unsigned> bigSlots;                           // slots too large for the grid
    std::vector<V2> projected;                                // three a slot
    std::vector<unsigned> queue;
    for (size_t seed = 0; seed < nf; ++seed) {
        if (chartOf[seed] >= 0)
            continue;
        const int id = int(charts.size());
        charts.emplace_back();
        Chart& c = charts.back();
        ++stampNow;
        // Clearing walks every bucket: after one large chart, start afresh.
        if (grid.bucket_count() > 1024 && grid.size() * 4 < grid.bucket_count())
            grid = std::unordered_map<uint64_t, std::vector<unsigned>>();
        else
            grid.clear();
        bigSlots.clear();
        projected.clear();

        V3 axis = normal[seed];
        if (dot(axis, axis) == 0)
            axis = {0, 0, 1};
        // Two directions across the axis.
        V3 t1 = std::fabs(axis.x) < 0.9 ? cross(axis, V3{1, 0, 0}) : cross(axis, V3{0, 1, 0});
        const double l1 = std::sqrt(dot(t1, t1));
        t1 = {t1.x / l1, t1.y / l1, t1.z / l1};
        const V3 t2 = cross(axis, t1);
        const V3 origin = pos(triangles[3 * seed]);
        auto flat = [&](unsigned v) {
            const V3 d = sub(pos(v), origin);
            return V2{dot(d, t1), dot(d, t2)};
        };
        auto cellOf = [&](double x, double y) {
            return std::pair<int64_t, int64_t>(int64_t(std::floor(x / cell)), int64_t(std::floor(y / cell)));
        };
        auto key = [](int64_t cx, int64_t cy) {
            return (uint64_t(uint32_t(int32_t(cx))) << 32) | uint32_t(int32_t(cy));
        };

        auto tryAdd = [&](unsigned f) -> bool {
            if (area[f] > 0 && dot(normal[f], axis) < kConeCos)
                return false;
            V2 tri[3];
            for (int k = 0; k < 3; ++k)
                tri[k] = flat(triangles[3 * f + unsigned(k)]);
            double x0 = std::min({tri[0].x, tri[1].x, tri[2].x}), x1 = std::max({tri[0].x, tri[1].x, tri[2].x});
            double y0 = std::min({tri[0].y, tri[1].y, tri[2].y}), y1 = std::max({tri[0].y, tri[1].y, tri[2].y});
            const double eps = 1e-7 * std::max({x1 - x0, y1 - y0, meanEdge});
            const bool flatFace = std::fabs(cross2(tri[0], tri[1], tri[2])) <= eps * eps;
            auto lo = cellOf(x0, y0), hi = cellOf(x1, y1);
            const bool big = (hi.first - lo.first + 1) * (hi.second - lo.second + 1) > 64;
            if (!flatFace) {
                for (unsigned s : bigSlots)
                    if (interiorsOverlap(tri, &projected[3 * s], eps))
                        return false;
                if (big) {
                    // Rare: a face much larger than the mesh's edges; test it against all.
                    for (size_t s = 0; s < projected.size() / 3; ++s)
                        if (interiorsOverlap(tri, &projected[3 * s], eps))
                            return false;
                } else {
                    for (int64_t cx = lo.first; cx <= hi.first; ++cx)
                        for (int64_t cy = lo.second; cy <= hi.second; ++cy) {
                            auto it = grid.find(key(cx, cy));
                            if (it == grid.end())
                                continue;
                            for (unsigned s : it->second)
                                if (interiorsOverlap(tri, &projected[3 * s], eps))
                                    return false;
                        }
                }
            }
            const unsigned slot = unsigned(projected.size() / 3);
            projected.insert(projected.end(), tri, tri + 3);
            if (big)
                bigSlots.push_back(slot);
            else
                for (int64_t cx = lo.first; cx <= hi.first; ++cx)
                    for (int64_t cy = lo.second; cy <= hi.second; ++cy)
                        grid[key(cx, cy)].push_back(slot);
            chartOf[f] = id;
            c.faces.push_back(f);
            for (int k = 0; k < 3; ++k) {
                const unsigned v = triangles[3 * f + unsigned(k)];
                if (stamp[v] != stampNow) {
                    stamp[v] = stampNow;
                    localIndex[v] = unsigned(c.pts.size());
                    c.pts.push_back(tri[k]);
                }
                c.corner.push_back(localIndex[v]);
            }
            return true;
        };

        tryAdd(unsigned(seed));
        queue.assign(1, unsigned(seed));
        for (size_t q = 0; q < queue.size(); ++q) {
            const unsigned f = queue[q];
            for (unsigned i = nbStart[f]; i < nbStart[f + 1]; ++i) {
                const unsigned g = nb[i];
                if (chartOf[g] < 0 && tryAdd(g))
                    queue.push_back(g);
            }
        }
        fitRectangle(c);
    }
    kvo::prgStep(progress, 0.5);

    // Sheets and scale. Without source resolutions one sheet is filled; with
    // them the layout takes as many sheets as the charts need at the
    // photographs' resolution, up to the limit, and then fills those.
    const long usable = atlasSize - 2 * gutter - 2;
    double rectArea = 0;
    for (const Chart& c : charts)
        rectArea += c.w * c.h;
    double sourceScale = 0;
    if (texelArea) {
        double texels = 0;
        for (size_t f = 0; f < nf; ++f)
            texels += std::max(0.0f, texelArea[f]);
        sourceScale = std::sqrt(texels / totalArea);
    }
    std::vector<unsigned> order;
    auto sortCharts = [&]() {
        order.resize(charts.size());
        std::iota(order.begin(), order.end(), 0u);
        std::sort(order.begin(), order.end(), [&](unsigned a, unsigned b) {
            return charts[a].h > charts[b].h || (charts[a].h == charts[b].h && charts[a].w > charts[b].w);
        });
    };
    long sheets = 1;
    if (sourceScale > 0) {
        // As many sheets as the packing takes at the photographs' resolution.
        splitLargeCharts(charts, double(usable - 1) / sourceScale);
        sortCharts();
        if (!packAt(charts, order, sourceScale, atlasSize, gutter, limit, &sheets))
            sheets = limit;
    }
    // No scale can beat covering the sheets with the charts' rectangles.
    double hiScale = std::sqrt(double(sheets) * double(usable) * double(usable) / std::max(rectArea, 1e-300));
    splitLargeCharts(charts, double(usable - 1) / hiScale);
    sortCharts();

    // The lower end of the search must fit: shrink, and take more sheets when
    // even tiny charts do not go in.
    double loScale = hiScale;
    for (int tries = 0;; ++tries) {
        if (packAt(charts, order, loScale, atlasSize, gutter, sheets, nullptr))
            break;
        if (tries < 40) {
            loScale *= 0.5;
            continue;
        }
        if (sheets >= limit)
            return -4;
        sheets = std::min(limit, sheets * 2);
        loScale = hiScale;
        tries = -1;
    }
    if (loScale < hiScale) {
        double hi = loScale * 2;
        for (int it = 0; it < 24 && hi / loScale > 1.0005; ++it) {
            const double mid = 0.5 * (loScale + hi);
            if (packAt(charts, order, mid, atlasSize, gutter, sheets, nullptr))
                loScale = mid;
            else
                hi = mid;
        }
    }
    long used = 0;
    packAt(charts, order, loScale, atlasSize, gutter, sheets, &used);
    kvo::prgStep(progress, 0.9);

    // UVs.
    const double inv = 1.0 / double(atlasSize);
    out.cornerUVs.assign(3 * nf, 0);
    out.sheets.assign(nf, 0);
    out.charts.assign(nf, 0);
    double covered = 0;
    for (size_t ci = 0; ci < charts.size(); ++ci) {
        const Chart& c = charts[ci];
        const unsigned base = unsigned(out.uvs.size());
        const long ch = pixelSide(c.h, loScale);
        for (const V2& p : c.pts) {
            // Half a pixel in from the box, and a quarter turn when placed so.
            double x = p.x * loScale + 0.5, y = p.y * loScale + 0.5;
            if (c.turned) {
                const double t = x;
                x = double(ch) - y;
                y = t;
            }
            out.uvs.push_back(XPnt2f(float((c.px + x) * inv), float((c.py + y) * inv)));
        }
        for (size_t s = 0; s < c.faces.size(); ++s) {
            const unsigned f = c.faces[s];
            out.sheets[f] = unsigned(c.sheet);
            out.charts[f] = unsigned(ci);
            for (int k = 0; k < 3; ++k)
                out.cornerUVs[3 * f + unsigned(k)] = base + c.corner[3 * s + size_t(k)];
            const XPnt2f& a = out.uvs[base + c.corner[3 * s]];
            const XPnt2f& b = out.uvs[base + c.corner[3 * s + 1]];
            const XPnt2f& d = out.uvs[base + c.corner[3 * s + 2]];
            covered += 0.5 * std::fabs(double(b.x - a.x) * double(d.y - a.y) - double(b.y - a.y) * double(d.x - a.x));
        }
    }
    out.sheetCount = used;
    out.chartCount = long(charts.size());
    out.efficiency = used > 0 ? covered / double(used) : 0.0;
    kvo::prgStep(progress, 1.0);
    return 0;
}

} // namespace RecMesh
} // namespace Rec3D

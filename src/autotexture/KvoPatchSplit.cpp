#include "autotexture/KvoPatchSplit.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace kvo {

namespace {

struct UnionFind {
    std::vector<int32_t> parent;
    explicit UnionFind(long n) : parent(size_t(n)) { std::iota(parent.begin(), parent.end(), 0); }
    int32_t find(int32_t a)
    {
        while (parent[size_t(a)] != a) {
            parent[size_t(a)] = parent[size_t(parent[size_t(a)])];
            a = parent[size_t(a)];
        }
        return a;
    }
    void join(int32_t a, int32_t b)
    {
        a = find(a);
        b = find(b);
        // The lower root wins, so a patch's root is its lowest face.
        if (a < b)
            parent[size_t(b)] = a;
        else if (b < a)
            parent[size_t(a)] = b;
    }
};

// One edge of one face: the vertices in rising order, and which of the face's
// corners stand at each end (so that corner UVs can be compared).
struct EdgeUse {
    uint64_t key;
    int32_t face;
    uint8_t cornerLow, cornerHigh;
    bool operator<(const EdgeUse& o) const { return key != o.key ? key < o.key : face < o.face; }
};

template <class Joinable>
long split(const uint32_t* triangles, long faceCount, std::vector<int32_t>& patch, Joinable joinable)
{
    patch.assign(size_t(std::max(0L, faceCount)), -1);
    if (faceCount <= 0 || !triangles)
        return 0;
    std::vector<EdgeUse> edges;
    edges.reserve(size_t(faceCount) * 3);
    for (long f = 0; f < faceCount; ++f) {
        const uint32_t* t = triangles + 3 * f;
        for (int c = 0; c < 3; ++c) {
            const int d = (c + 1) % 3;
            const bool lowFirst = t[c] < t[d];
            const uint32_t lo = lowFirst ? t[c] : t[d], hi = lowFirst ? t[d] : t[c];
            if (lo == hi)
                continue;
            edges.push_back(
                {(uint64_t(lo) << 32) | hi, int32_t(f), uint8_t(lowFirst ? c : d), uint8_t(lowFirst ? d : c)});
        }
    }
    std::sort(edges.begin(), edges.end());
    UnionFind uf(faceCount);
    for (size_t i = 0; i < edges.size();) {
        size_t j = i + 1;
        while (j < edges.size() && edges[j].key == edges[i].key)
            ++j;
        // Every pair of faces on the edge: an edge with more than two faces
        // still joins those that agree.
        for (size_t a = i; a < j; ++a)
            for (size_t b = a + 1; b < j; ++b)
                if (edges[a].face != edges[b].face && joinable(edges[a], edges[b]))
                    uf.join(edges[a].face, edges[b].face);
        i = j;
    }
    long count = 0;
    std::vector<int32_t> number(size_t(faceCount), -1);
    for (long f = 0; f < faceCount; ++f) {
        const int32_t root = uf.find(int32_t(f));
        if (number[size_t(root)] < 0)
            number[size_t(root)] = int32_t(count++);
        patch[size_t(f)] = number[size_t(root)];
    }
    return count;
}

} // namespace

long splitConnectedPatches(const uint32_t* triangles, long faceCount, std::vector<int32_t>& patch)
{
    return split(triangles, faceCount, patch, [](const EdgeUse&, const EdgeUse&) { return true; });
}

long splitConnectedPatchesByUV(const uint32_t* triangles, const XPnt2f* cornerUVs, long faceCount,
                               std::vector<int32_t>& patch, float tolerance)
{
    if (!cornerUVs)
        return splitConnectedPatches(triangles, faceCount, patch);
    auto near = [&](long faceA, int cornerA, long faceB, int cornerB) {
        const XPnt2f& a = cornerUVs[3 * faceA + cornerA];
        const XPnt2f& b = cornerUVs[3 * faceB + cornerB];
        return std::fabs(a.x - b.x) <= tolerance && std::fabs(a.y - b.y) <= tolerance;
    };
    return split(triangles, faceCount, patch, [&](const EdgeUse& a, const EdgeUse& b) {
        return near(a.face, a.cornerLow, b.face, b.cornerLow) && near(a.face, a.cornerHigh, b.face, b.cornerHigh);
    });
}

} // namespace kvo

#include "scene/KvoMeshAdjacency.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace kvo {

void faceEdgeNeighbours(const uint32_t* triangles, long faceCount, std::vector<uint32_t>& start,
                        std::vector<uint32_t>& nb)
{
    const size_t nf = faceCount > 0 ? size_t(faceCount) : 0;
    start.assign(nf + 1, 0);
    nb.clear();
    // One key an edge, the smaller vertex in the high word; sorting the keys
    // brings the faces of each edge together.
    std::vector<std::pair<uint64_t, uint32_t>> edges(3 * nf);
    for (size_t f = 0; f < nf; ++f)
        for (size_t k = 0; k < 3; ++k) {
            uint64_t a = triangles[3 * f + k], b = triangles[3 * f + (k + 1) % 3];
            if (a > b)
                std::swap(a, b);
            edges[3 * f + k] = {(a << 32) | b, uint32_t(f)};
        }
    std::sort(edges.begin(), edges.end());
    std::vector<std::pair<uint32_t, uint32_t>> pairs;
    pairs.reserve(3 * nf);
    for (size_t i = 0; i < edges.size();) {
        size_t j = i + 1;
        while (j < edges.size() && edges[j].first == edges[i].first)
            ++j;
        for (size_t p = i; p < j; ++p)
            for (size_t q = i; q < j; ++q)
                if (edges[p].second != edges[q].second)
                    pairs.emplace_back(edges[p].second, edges[q].second);
        i = j;
    }
    for (const auto& pr : pairs)
        ++start[pr.first + 1];
    for (size_t f = 0; f < nf; ++f)
        start[f + 1] += start[f];
    nb.resize(pairs.size());
    std::vector<uint32_t> fill(start.begin(), start.end() - 1);
    for (const auto& pr : pairs)
        nb[fill[pr.first]++] = pr.second;
}

} // namespace kvo

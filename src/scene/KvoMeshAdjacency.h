#pragma once

#include <cstdint>
#include <vector>

#include "scene/KvoExport.h"

namespace kvo {

// Edge neighbours of every face of a triangle list (three vertex indices a
// face), whichever way round the faces run, in compressed rows: the
// neighbours of face f are nb[start[f]] to nb[start[f + 1] - 1]. An edge with
// more than two faces makes all of them neighbours of each other.
QV_EXPORT void faceEdgeNeighbours(const uint32_t* triangles, long faceCount, std::vector<uint32_t>& start,
                                  std::vector<uint32_t>& nb);

} // namespace kvo

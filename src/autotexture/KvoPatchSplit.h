#pragma once

// Connected patches of a triangle list: faces joined over shared edges. The
// colour balance works patch by patch, and so does any tool that needs the
// pieces of a texture mesh that lie together in its picture.

#include <cstdint>
#include <vector>

#include "scene/KvoExport.h"
#include "scene/KvoTypes.h"

namespace kvo {

// The patches of a triangle list (three vertex indices a face): patch[f] is
// the number of face f's patch. Patches are numbered in the order of their
// lowest face, from 0; two faces are in one patch when a chain of faces
// sharing edges (two vertices, whichever way round) joins them. The number of
// patches.
QV_EXPORT long splitConnectedPatches(const uint32_t* triangles, long faceCount, std::vector<int32_t>& patch);

// The same, where two faces are joined over an edge only when they also agree
// on the edge's corner UVs: cornerUVs holds three positions a face, parallel
// to the corners, and the two corners at each end of the shared edge must lie
// within tolerance of each other on both axes. A mesh whose picture holds
// several pieces (an atlas, or UVs cut at a seam) splits where its pieces do.
QV_EXPORT long splitConnectedPatchesByUV(const uint32_t* triangles, const XPnt2f* cornerUVs, long faceCount,
                                         std::vector<int32_t>& patch, float tolerance = 1e-6f);

} // namespace kvo

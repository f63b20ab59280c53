#pragma once

// Mapping an image onto the model from its control points: through the 11
// DLT parameters, or onto the plane of its first three control points; and
// the refinement that bends the UVs so that every control point lands where
// it was measured. Results are 0 or the command layer's codes.

#include "scene/KvoProgress.h"
#include "scene/KvoTypes.h"

namespace kvo {

// Maps the active image through L. reserved is neither read nor written.
QV_EXPORT long DLTMapping(double* L, bool onlyUpdateTexture, bool removeNegativeUV, bool selectedOnly, bool& reserved,
                          IKvoProgress* progress);
// Bends the UVs of the active image's DLT mapping through its control points
// (and adjust points) by a piecewise affine warp on their triangulation.
QV_EXPORT long updateDensifyDLTMapping();
// The refinement that fits the active image's mapping type.
QV_EXPORT long updateDensifyMapping();

// A world point to plane coordinates: p0 to the origin, p1 along x, p2 in the
// x-y plane; the distance from the plane stays in z. Identity for collinear points.
QV_EXPORT KvoMatrix4d calPlaneMatrix(XPnt3d p0, XPnt3d p1, XPnt3d p2);
// Maps the active image along the normal of the plane of its first three control points.
QV_EXPORT long planeMapping(bool onlyUpdateTexture, bool removeNegativeUV, bool selectedOnly, bool tiled,
                            IKvoProgress* progress);
QV_EXPORT long updateDensifyPlaneMapping();
// Control points from the image's adjust points and the active reference
// plane, then a planar mapping; 0 or a code (messages shown).
QV_EXPORT long mapOnProjectPlane(long imageId, IKvoProgress* progress);

} // namespace kvo

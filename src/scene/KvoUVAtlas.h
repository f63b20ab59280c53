#pragma once
#include <vector>
#include "scene/KvoExport.h"
#include "scene/KvoProgress.h"
#include "scene/KvoTypes.h"
namespace Rec3D { namespace RecMesh {
struct QV_EXPORT KvoUVLayout {
    std::vector<XPnt2f> uvs;     // UV (0,0) is the bottom-left corner of its sheet; all in [0,1]
    std::vector<unsigned> cornerUVs;  // three a triangle: the UV index of each corner, in the triangle's order
    std::vector<unsigned> sheets;     // the sheet (material number, from 0) of each triangle
    std::vector<unsigned> charts;     // the chart of each triangle: charts keep the gutter between them
    long sheetCount = 0;
    long chartCount = 0;
    double efficiency = 0;            // share of the sheets' pixels covered by triangles (all sheets)
};
// vertices: vertexCount positions; triangles: 3 * triangleCount vertex indices.
// atlasSize: a sheet is atlasSize x atlasSize pixels; gutter and limit: see .cpp/decisions.
// texelArea (optional, may be null): per triangle, the area in pixels its texture has in its
// source photograph, so that charts keep the source resolution where the sheets allow.
// Returns 0, or a negative code (bad input: index out of range, atlasSize < 16, ...).
QV_EXPORT long calUVForMesh(const XPnt3f* vertices, long vertexCount, const unsigned* triangles,
                            long triangleCount, long atlasSize, long gutter, long limit, const float* texelArea,
                            KvoUVLayout& out, kvo::IKvoProgress* progress);
}}

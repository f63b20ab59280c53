#pragma once

#include <cstdint>
#include <vector>

#include "scene/KvoExport.h"
#include "scene/KvoTypes.h"

namespace kvo {

// The CPU visibility engine: triangles of many meshes rasterised into a depth
// buffer and a triangle buffer for one camera, with OpenGL's conventions
// (column-major model-view and projection, window depth in [0, 1], near and
// far clipping in homogeneous coordinates, counter-clockwise front faces),
// one sample at each pixel centre, vertices snapped to 1/256 pixel and a
// top-left fill rule, so that an edge shared by two triangles gives each of
// its pixels to exactly one of them. Rows are stored top-down: pixel (x, y)
// has its centre at (x + 0.5, y + 0.5) from the viewport's top-left corner,
// the same y-down window positions the track ball's projectToWindow gives.
// Results do not depend on the number of threads.
class QV_EXPORT KvoRasterizer {
public:
    // One triangle in the buffers: the mesh number given to draw and the face.
    struct Hit {
        int32_t mesh = -1;
        int32_t face = -1;
        bool valid() const { return mesh >= 0; }
    };

    // Camera and viewport; resets the buffers and the region to the whole viewport.
    void setCamera(const double modelView[16], const double projection[16], int width, int height);
    // Only pixels in [x0, x1) x [y0, y1) are drawn (clamped to the viewport);
    // everything outside keeps depth 1 and no triangle. Resets the buffers.
    void setRegion(int x0, int y0, int x1, int y1);
    // Depth 1 (the far plane) and no triangle everywhere.
    void clear();

    // Draws faceCount triangles (three vertex indices each) in face order;
    // at equal depth the triangle drawn first stays (a strict less-than
    // depth test). Indices outside the vertex array skip their triangle.
    void draw(const XPnt3f* vertices, long vertexCount, const unsigned* triangles, long faceCount, int32_t mesh,
              bool cullBackFaces);

    int width() const { return m_width; }
    int height() const { return m_height; }
    // Window depth at a pixel, 1 where nothing was drawn or outside the viewport.
    float depthAt(int x, int y) const;
    Hit triangleAt(int x, int y) const;
    const float* depthBuffer() const { return m_depth.data(); }
    const int32_t* faceBuffer() const { return m_face.data(); }
    const int32_t* meshBuffer() const { return m_mesh.data(); }

    // Window position of a point (x, y down, depth in [0, 1]); false when the
    // point is behind the eye (w <= 0).
    bool project(const XPnt3d& p, XPnt3d& window) const;

    // Triangles seen at one pixel centre at least inside [x0, x1) x [y0, y1),
    // as a flag a face for each mesh number (sized by the caller).
    void markShown(int x0, int y0, int x1, int y1, std::vector<std::vector<uint8_t>>& flags) const;

private:
    struct ScreenTri {
        int64_t x[3], y[3]; // 1/256 pixel, y down
        float z[3];
        int32_t mesh, face;
        int yMin, yMax; // pixel rows whose centres it may cover (inclusive)
    };
    void emitClipped(const double clip[][4], int n, int32_t mesh, int32_t face, bool cull,
                     std::vector<ScreenTri>& out) const;
    // Rows [rowA, rowB] of one triangle (area > 0, y down).
    void rasterRows(const int64_t* x, const int64_t* y, const float* z, int32_t mesh, int32_t face, int rowA, int rowB);

    double m_mvp[16] = {0};
    int m_width = 0, m_height = 0;
    int m_rx0 = 0, m_ry0 = 0, m_rx1 = 0, m_ry1 = 0;
    std::vector<float> m_depth;
    std::vector<int32_t> m_face, m_mesh;
};

} // namespace kvo

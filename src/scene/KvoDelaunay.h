#pragma once

#include "scene/KvoReferenced.h"
#include "scene/KvoTypes.h"

namespace kvo {

class CKvoDelaunayDouble;

// A triangle of a Delaunay triangulation: three node pointers (the caller's
// nodes, or the frame's own corners), counter-clockwise.
struct QV_EXPORT tind {
    const XPnt3d* nodes[3] = {nullptr, nullptr, nullptr};
    // The triangle across the edge opposite node k; null at the frame.
    tind* adj[3] = {nullptr, nullptr, nullptr};
    bool alive = true;
    CKvoDelaunayDouble* owner = nullptr;

    // Walks from this triangle to the one that holds (x, y); null outside the frame.
    tind* find(double x, double y);
};

// An incremental Delaunay triangulation in the plane (x, y) of the nodes,
// inside a rectangular frame. Exact predicates: the answer does not depend on
// rounding, however far apart the frame and the nodes are.
class QV_EXPORT IKvoDelaunayDouble : public KvoReferenced {
public:
    // Iterates over the triangles; null after the last.
    virtual tind* nextTriangle() = 0;
    virtual void rewindTriangles() = 0;
    // The triangle touches one of the frame's own corners.
    virtual bool isFrameTriangle(const tind* t) const = 0;
    // Inserts a node (kept by pointer: its array must outlive the
    // triangulation). False, with nothing changed, for a node outside the
    // frame or within tolerance of a node already there (0: the same point).
    virtual bool addNode(const XPnt3d* node, double tolerance) = 0;
    virtual long getTriangleCount() const = 0;
};

QV_EXPORT ref_ptr<IKvoDelaunayDouble> newKvoDelaunayDouble(double z, double minX, double minY, double maxX,
                                                           double maxY);

// Exact signs: orientation of c against the line a -> b (> 0 left, counter-
// clockwise), and whether d lies inside (> 0) the circle through a, b, c
// (counter-clockwise).
QV_EXPORT int orient2dSign(double ax, double ay, double bx, double by, double cx, double cy);
QV_EXPORT int inCircleSign(double ax, double ay, double bx, double by, double cx, double cy, double dx, double dy);

} // namespace kvo

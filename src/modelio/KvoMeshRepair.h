#pragma once

#include <QString>

#include <memory>
#include <vector>

#include "scene/KvoProgress.h"
#include "scene/KvoTypes.h"

namespace Rec3D {

// Old index of a vertex that the refinement made, in "VPropVerIdx".
constexpr unsigned kAddedVertex = 0x7fffffffu;

// A half-edge triangle mesh (OpenMesh underneath) with the old vertex index
// per vertex ("VPropVerIdx") and the old face index per face ("FPropFaceIdx").
class QV_EXPORT KvoHalfEdgeMesh {
public:
    KvoHalfEdgeMesh();
    ~KvoHalfEdgeMesh();
    KvoHalfEdgeMesh(const KvoHalfEdgeMesh&) = delete;
    KvoHalfEdgeMesh& operator=(const KvoHalfEdgeMesh&) = delete;

    long getVertexCount() const;
    long getFaceCount() const;
    bool hasProperty(const QString& name) const;
    XPnt3f getPoint(long vertex) const;
    // The old index of a vertex or face; kAddedVertex without the property.
    unsigned getVertexIndexProp(long vertex) const;
    unsigned getFaceIndexProp(long face) const;
    // The face's vertices (handles of this mesh) in its turning order.
    void getFaceVertices(long face, unsigned out[3]) const;
    // Faces that the mesh refused while it was built or refined (old face indices).
    const std::vector<unsigned>& getRefused() const;

    struct Impl;
    Impl& impl() const { return *m_impl; }

private:
    std::unique_ptr<Impl> m_impl;
};

namespace RecMesh {

// Mode bits of createMesh.
constexpr int kKeepVertexIndex = 1; // "VPropVerIdx"
constexpr int kKeepFaceIndex = 2;   // "FPropFaceIdx"

// Builds the half-edge mesh of the triangles over the vertices (all vertices,
// in order). A triangle the structure cannot hold (an edge that would have a
// third face or two faces turning the same way, a vertex that would join two
// fans wrongly, a repeated or missing vertex) is left out, and its number goes
// to refused. Returns the number of faces refused.
QV_EXPORT long createMesh(KvoHalfEdgeMesh& out, const XPnt3f* vertices, long vertexCount, const unsigned* triangles,
                          long triangleCount, int mode, std::vector<unsigned>& refused);

// Makes the mesh as whole as it can: a refused face that fits when turned over
// is added turned over (faces of a model often disagree on their turning).
// Kept elements keep "VPropVerIdx" and "FPropFaceIdx". Returns the number of
// faces added; -1 when the mesh lacks the properties.
QV_EXPORT long newIKvoRefineMesh(KvoHalfEdgeMesh& mesh, kvo::IKvoProgress* progress);

} // namespace RecMesh
} // namespace Rec3D

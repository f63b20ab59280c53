#include "modelio/KvoMeshRepair.h"

#include <OpenMesh/Core/Mesh/TriMesh_ArrayKernelT.hh>
#include <OpenMesh/Core/System/omstream.hh>

namespace Rec3D {

namespace {

// Positions only: no normals, colours or status are needed to check and refine.
struct HalfEdgeTraits : public OpenMesh::DefaultTraits {
    typedef OpenMesh::Vec3f Point;
    VertexAttributes(OpenMesh::Attributes::None);
    FaceAttributes(OpenMesh::Attributes::None);
    EdgeAttributes(OpenMesh::Attributes::None);
    HalfedgeAttributes(OpenMesh::Attributes::PrevHalfedge);
};
using HEMesh = OpenMesh::TriMesh_ArrayKernelT<HalfEdgeTraits>;

// OpenMesh reports every refused face on its error stream; refusals are
// counted and reported by the caller instead.
class QuietErrors {
public:
    QuietErrors() : m_was(omerr().is_enabled()) { omerr().disable(); }
    ~QuietErrors()
    {
        if (m_was)
            omerr().enable();
    }

private:
    bool m_was;
};

} // namespace

struct KvoHalfEdgeMesh::Impl {
    HEMesh mesh;
    OpenMesh::VPropHandleT<unsigned> verIdx;
    OpenMesh::FPropHandleT<unsigned> faceIdx;
    bool hasVerIdx = false;
    bool hasFaceIdx = false;
    std::vector<unsigned> refused;
    // The corners of each refused face, for the refinement.
    std::vector<unsigned> refusedCorners;
};

KvoHalfEdgeMesh::KvoHalfEdgeMesh() : m_impl(new Impl()) {}
KvoHalfEdgeMesh::~KvoHalfEdgeMesh() = default;

long KvoHalfEdgeMesh::getVertexCount() const
{
    return long(m_impl->mesh.n_vertices());
}

long KvoHalfEdgeMesh::getFaceCount() const
{
    return long(m_impl->mesh.n_faces());
}

bool KvoHalfEdgeMesh::hasProperty(const QString& name) const
{
    if (name == "VPropVerIdx")
        return m_impl->hasVerIdx;
    if (name == "FPropFaceIdx")
        return m_impl->hasFaceIdx;
    return false;
}

XPnt3f KvoHalfEdgeMesh::getPoint(long vertex) const
{
    const auto& p = m_impl->mesh.point(HEMesh::VertexHandle(int(vertex)));
    return XPnt3f(p[0], p[1], p[2]);
}

unsigned KvoHalfEdgeMesh::getVertexIndexProp(long vertex) const
{
    return m_impl->hasVerIdx ? m_impl->mesh.property(m_impl->verIdx, HEMesh::VertexHandle(int(vertex))) : kAddedVertex;
}

unsigned KvoHalfEdgeMesh::getFaceIndexProp(long face) const
{
    return m_impl->hasFaceIdx ? m_impl->mesh.property(m_impl->faceIdx, HEMesh::FaceHandle(int(face))) : kAddedVertex;
}

void KvoHalfEdgeMesh::getFaceVertices(long face, unsigned out[3]) const
{
    int k = 0;
    for (auto v : m_impl->mesh.fv_range(HEMesh::FaceHandle(int(face))))
        if (k < 3)
            out[k++] = unsigned(v.idx());
    while (k < 3)
        out[k++] = kAddedVertex;
}

const std::vector<unsigned>& KvoHalfEdgeMesh::getRefused() const
{
    return m_impl->refused;
}

namespace RecMesh {

long createMesh(KvoHalfEdgeMesh& out, const XPnt3f* vertices, long vertexCount, const unsigned* triangles,
                long triangleCount, int mode, std::vector<unsigned>& refused)
{
    refused.clear();
    KvoHalfEdgeMesh::Impl& m = out.impl();
    m.mesh.clear();
    m.refused.clear();
    m.refusedCorners.clear();
    m.hasVerIdx = (mode & kKeepVertexIndex) != 0;
    m.hasFaceIdx = (mode & kKeepFaceIndex) != 0;
    if (m.hasVerIdx)
        m.mesh.add_property(m.verIdx, "VPropVerIdx");
    if (m.hasFaceIdx)
        m.mesh.add_property(m.faceIdx, "FPropFaceIdx");
    if (vertexCount < 0 || (vertexCount > 0 && !vertices) || triangleCount < 0 || (triangleCount > 0 && !triangles))
        return 0;

    QuietErrors quiet;
    m.mesh.reserve(size_t(vertexCount), size_t(triangleCount) * 3 / 2 + 16, size_t(triangleCount));
    for (long i = 0; i < vertexCount; ++i) {
        const XPnt3f& p = vertices[i];
        auto vh = m.mesh.add_vertex(HEMesh::Point(p.x, p.y, p.z));
        if (m.hasVerIdx)
            m.mesh.property(m.verIdx, vh) = unsigned(i);
    }
    std::vector<HEMesh::VertexHandle> corners(3);
    for (long f = 0; f < triangleCount; ++f) {
        const unsigned a = triangles[3 * f], b = triangles[3 * f + 1], c = triangles[3 * f + 2];
        bool ok = a < unsigned(vertexCount) && b < unsigned(vertexCount) && c < unsigned(vertexCount) && a != b &&
                  b != c && a != c;
        HEMesh::FaceHandle fh;
        if (ok) {
            corners[0] = HEMesh::VertexHandle(int(a));
            corners[1] = HEMesh::VertexHandle(int(b));
            corners[2] = HEMesh::VertexHandle(int(c));
            fh = m.mesh.add_face(corners);
            ok = fh.is_valid();
        }
        if (!ok) {
            refused.push_back(unsigned(f));
            m.refusedCorners.insert(m.refusedCorners.end(), {a, b, c});
            continue;
        }
        if (m.hasFaceIdx)
            m.mesh.property(m.faceIdx, fh) = unsigned(f);
    }
    m.refused = refused;
    return long(refused.size());
}

long newIKvoRefineMesh(KvoHalfEdgeMesh& mesh, kvo::IKvoProgress* progress)
{
    kvo::KvoPrgPush push(progress, 1.0);
    KvoHalfEdgeMesh::Impl& m = mesh.impl();
    if (!m.hasVerIdx || !m.hasFaceIdx)
        return -1;
    QuietErrors quiet;
    const long nv = long(m.mesh.n_vertices());
    std::vector<unsigned> stillRefused;
    std::vector<unsigned> stillCorners;
    std::vector<HEMesh::VertexHandle> corners(3);
    long added = 0;
    const size_t n = m.refused.size();
    for (size_t i = 0; i < n; ++i) {
        const unsigned a = m.refusedCorners[3 * i], b = m.refusedCorners[3 * i + 1], c = m.refusedCorners[3 * i + 2];
        bool ok = a < unsigned(nv) && b < unsigned(nv) && c < unsigned(nv) && a != b && b != c && a != c;
        if (ok) {
            // Turned over: a face that disagrees with its neighbours about its turning.
            corners[0] = HEMesh::VertexHandle(int(a));
            corners[1] = HEMesh::VertexHandle(int(c));
            corners[2] = HEMesh::VertexHandle(int(b));
            HEMesh::FaceHandle fh = m.mesh.add_face(corners);
            ok = fh.is_valid();
            if (ok) {
                m.mesh.property(m.faceIdx, fh) = m.refused[i];
                ++added;
            }
        }
        if (!ok) {
            stillRefused.push_back(m.refused[i]);
            stillCorners.insert(stillCorners.end(), {a, b, c});
        }
        if (progress && n > 0 && (i % 4096) == 0)
            progress->step(4096.0 / double(n));
    }
    m.refused.swap(stillRefused);
    m.refusedCorners.swap(stillCorners);
    return added;
}

} // namespace RecMesh
} // namespace Rec3D

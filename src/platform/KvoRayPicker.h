#pragma once

#include <vector>

#include "scene/KvoStore.h"

namespace kvo {

// Nearest-hit ray casting against a set of meshes, through a bounding volume
// hierarchy over flat triangle arrays. Front and back faces both count: a
// pick hits what the user sees, whichever way it is wound.
class QV_EXPORT KvoRayPicker {
public:
    void build(const ref_ptr<MeshArray>& meshes);
    // The picker was built from exactly these meshes in their present state.
    bool isCurrentFor(const ref_ptr<MeshArray>& meshes) const;
    // Nearest hit with t > 0 along origin + t * dir; meshIndex indexes the built array.
    bool intersect(const XPnt3d& origin, const XPnt3d& dir, double& t, long& meshIndex, long& face) const;
    long triangleCount() const { return long(m_face.size()); }
    void clear();

private:
    struct Node {
        float lo[3], hi[3];
        int start, count; // leaf: triangles [start, start+count); inner: count 0, children start, start+1
    };
    struct Key {
        // The mesh and its vertex array are held, not only remembered: freed,
        // their memory could go to a later mesh or array that would then pass
        // for the one the tree was built from.
        ref_ptr<const IKvoMesh> mesh;
        unsigned long long version;
        long faces;
        ref_ptr<const Pnt3fArray> vertexArray;
        const void* vertices;
        long vertexCount;
    };
    static Key keyOf(const ref_ptr<IKvoMesh>& mesh);

    std::vector<Node> m_nodes;
    std::vector<float> m_tri; // 9 floats a triangle, in BVH order
    std::vector<int> m_mesh;  // mesh index a triangle
    std::vector<long> m_face; // face number a triangle
    std::vector<Key> m_keys;
};

} // namespace kvo

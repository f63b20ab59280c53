#pragma once

// Reading meshes whatever their sleep state.

#include <cstdint>
#include <vector>

#include "scene/KvoStore.h"

namespace kvo {

// Keeps a mesh awake for a scope: an asleep mesh is woken, and put to sleep
// again at the end, so that reading it leaves the project as it was.
class KvoMeshAwake {
public:
    KvoMeshAwake(IKvoMM& mm, const ref_ptr<IKvoMesh>& mesh) : m_mm(mm), m_mesh(mesh), m_asleep(mm.isMeshAsleep(mesh))
    {
        if (m_asleep)
            m_mm.wakeMesh(m_mesh->getId());
    }
    ~KvoMeshAwake()
    {
        if (m_asleep)
            m_mm.sleepMesh(m_mesh);
    }
    KvoMeshAwake(const KvoMeshAwake&) = delete;
    KvoMeshAwake& operator=(const KvoMeshAwake&) = delete;

private:
    IKvoMM& m_mm;
    ref_ptr<IKvoMesh> m_mesh;
    bool m_asleep;
};

// The faces of all bare meshes in their order (three vertex indices a face),
// asleep ones included; faceNormals, when given, gets each face's normal
// ((0, 0, 0) where the mesh has none).
QV_EXPORT void collectBareFaces(IKvoMM& mm, std::vector<uint32_t>& triangles, std::vector<XPnt3f>* faceNormals);

} // namespace kvo

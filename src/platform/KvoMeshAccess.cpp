#include "scene/KvoMeshAccess.h"

namespace kvo {

void collectBareFaces(IKvoMM& mm, std::vector<uint32_t>& triangles, std::vector<XPnt3f>* faceNormals)
{
    triangles.clear();
    if (faceNormals)
        faceNormals->clear();
    ref_ptr<MeshArray> bare;
    mm.getBareMeshes(bare);
    for (long i = 0; bare && i < bare->getCount(); ++i) {
        ref_ptr<IKvoMesh> mesh = (*bare)[i];
        KvoMeshAwake awake(mm, mesh);
        const UIntArray* t = mesh->getTriangleIndices();
        if (!t)
            continue;
        const long nf = t->getCount() / 3;
        triangles.insert(triangles.end(), t->getData(), t->getData() + 3 * nf);
        if (faceNormals) {
            const Pnt3fArray* fn = mesh->getFaceNormals();
            for (long f = 0; f < nf; ++f)
                faceNormals->push_back(fn && f < fn->getCount() ? fn->getAt(f) : XPnt3f(0, 0, 0));
        }
    }
}

} // namespace kvo

#include "modelio/KvoObjModelBuild.h"

#include <QFileInfo>

#include <cmath>

namespace kvo {

XPnt3f normal(const XPnt3f& a, const XPnt3f& b, const XPnt3f& c)
{
    XPnt3f n = (b - a).cross(c - a);
    const float len = std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z);
    if (!(len > 0.f))
        return XPnt3f(0.f, 0.f, 0.f);
    return XPnt3f(n.x / len, n.y / len, n.z / len);
}

bool groupHasPicture(const QvObjModel& objModel, const QvObjGroup& group)
{
    if (group.material < 0 || size_t(group.material) >= objModel.materials.size())
        return false;
    const QString& map = objModel.materials[size_t(group.material)].mapKd;
    return !map.isEmpty() && QFileInfo(resolveObjName(objModel.pathName, map)).isFile();
}

ref_ptr<Pnt3fArray> averagedVertexNormals(const IKvoModel& model)
{
    const long nv = model.getVertexCount();
    ref_ptr<Pnt3fArray> out = newPnt3fArray();
    out->vec().assign(size_t(nv), XPnt3f(0.f, 0.f, 1.f));
    std::vector<XPnt3f> sum(size_t(nv), XPnt3f(0.f, 0.f, 0.f));
    std::vector<unsigned> count(size_t(nv), 0);
    for (long m = 0, n = model.getMeshCount(); m < n; ++m) {
        ref_ptr<IKvoMesh> mesh = model.getMesh(m);
        const UIntArray* tris = mesh->getTriangleIndices();
        const Pnt3fArray* normals = mesh->getFaceNormals();
        if (!tris || !normals)
            continue;
        const long faces = std::min(tris->getCount() / 3, normals->getCount());
        const unsigned* t = tris->getData();
        const XPnt3f* fn = normals->getData();
        for (long f = 0; f < faces; ++f)
            for (int k = 0; k < 3; ++k) {
                const unsigned v = t[3 * f + k];
                if (long(v) < nv) {
                    sum[v] = sum[v] + fn[f];
                    ++count[v];
                }
            }
    }
    XPnt3f* o = out->getData();
    for (long v = 0; v < nv; ++v)
        if (count[size_t(v)] > 0) {
            const float c = float(count[size_t(v)]);
            o[v] = XPnt3f(sum[size_t(v)].x / c, sum[size_t(v)].y / c, sum[size_t(v)].z / c);
        }
    return out;
}

long buildModelFromObj(const QString& file, ref_ptr<IKvoModel>& model, QvObjModel& objModel, unsigned& imageCount,
                       IKvoProgress* progress, long* badFaces)
{
    imageCount = 0;
    if (badFaces)
        *badFaces = 0;
    prgText(progress, "Reading OBJ File...");
    long rc;
    {
        KvoPrgPush push(progress, 0.5);
        rc = readObjFile(objModel, file, progress);
    }
    if (rc != 0) {
        prgStep(progress, 1.0);
        return rc == kvoObjCannotOpen ? long(kvoObjFailed) : rc;
    }
    prgText(progress, "Creating Model...");
    const long nv = objModel.vertices->getCount();
    if (nv == 0 || !model) {
        prgStep(progress, 1.0);
        return kvoObjFailed;
    }
    // A face that names a vertex the file does not hold makes the whole file
    // suspect: nothing is built from it.
    long bad = 0;
    for (const QvObjTriangle& t : objModel.triangles)
        if (t.vindices[0] >= unsigned(nv) || t.vindices[1] >= unsigned(nv) || t.vindices[2] >= unsigned(nv))
            ++bad;
    if (bad > 0) {
        if (badFaces)
            *badFaces = bad;
        prgStep(progress, 1.0);
        return kvoObjBadIndex;
    }

    model->setVertices(objModel.vertices.get(), true);
    if (objModel.texCoords->getCount() == nv)
        model->setTexCoords(objModel.texCoords.get());
    if (objModel.normals->getCount() == nv)
        model->setVertexNormals(objModel.normals.get(), false, false);

    // The bare mesh holds every triangle of every group, in group order.
    size_t total = 0;
    for (const QvObjGroup& g : objModel.groups)
        total += g.triangles.size();
    ref_ptr<UIntArray> list = newUIntArray();
    list->vec().reserve(total * 3);
    const QvObjTriangle* tris = objModel.triangles.data();
    for (QvObjGroup& g : objModel.groups) {
        if (g.triangles.empty())
            continue;
        std::vector<unsigned>& out = list->vec();
        for (unsigned ti : g.triangles) {
            const QvObjTriangle& t = tris[ti];
            out.push_back(t.vindices[0]);
            out.push_back(t.vindices[1]);
            out.push_back(t.vindices[2]);
        }
        // Only a group with a picture becomes a texture mesh; only it needs its own lists.
        if (groupHasPicture(objModel, g)) {
            ++imageCount;
            g.indices = newUIntArray();
            g.texIndices = newUIntArray();
            g.normals = newPnt3fArray();
            g.indices->vec().reserve(g.triangles.size() * 3);
            g.texIndices->vec().reserve(g.triangles.size() * 3);
            g.normals->vec().reserve(g.triangles.size());
            const XPnt3f* v = objModel.vertices->getData();
            for (unsigned ti : g.triangles) {
                const QvObjTriangle& t = tris[ti];
                for (int k = 0; k < 3; ++k) {
                    g.indices->vec().push_back(t.vindices[k]);
                    g.texIndices->vec().push_back(t.tindices[k]);
                }
                g.normals->vec().push_back(normal(v[t.vindices[0]], v[t.vindices[1]], v[t.vindices[2]]));
            }
        }
    }
    // The reader's triangles are the largest part of an import: they go before
    // the normals are made, so that the import never holds both.
    std::vector<QvObjTriangle>().swap(objModel.triangles);
    prgStep(progress, 0.2);

    ref_ptr<Pnt3fArray> faceNormals = newPnt3fArray();
    {
        const long faces = list->getCount() / 3;
        faceNormals->resize(faces);
        const XPnt3f* v = objModel.vertices->getData();
        const unsigned* t = list->getData();
        XPnt3f* fn = faceNormals->getData();
#pragma omp parallel for if (faces > 50000)
        for (long f = 0; f < faces; ++f)
            fn[f] = normal(v[t[3 * f]], v[t[3 * f + 1]], v[t[3 * f + 2]]);
    }

    // The model manager makes the mesh when the model is its model; a model
    // built on its own (a preview, a benchmark) makes its mesh itself.
    ref_ptr<IKvoMesh> mesh;
    ref_ptr<IKvoModel> managed;
    if (getMM()->getBareModel(managed) == model) {
        getMM()->createTexMesh(mesh, true, 0, true);
    } else {
        mesh = model->newMesh(-1, true);
        if (mesh)
            model->addMesh(mesh);
    }
    if (!mesh) {
        prgStep(progress, 1.0);
        return kvoObjNoMesh;
    }
    mesh->setName("object");
    // Normals first: the mesh keeps normals that fit its triangles instead of computing them.
    mesh->setFaceNormals(faceNormals.get(), false);
    mesh->setTriangleIndices(list.get(), true);
    prgStep(progress, 0.3);

    if (model->getVertexNormals() == nullptr || model->getVertexNormals()->getCount() != nv) {
        model->setVertexNormals(nullptr, false, false);
        model->setVertexNormals(averagedVertexNormals(*model).get(), true, false);
    }
    prgStep(progress, 0.1);
    return 0;
}

} // namespace kvo

// The whole-model selection on the project: cameras from the images' kept DLT
// parameters or their virtual-camera records, the faces of the bare meshes, and the result written back
// as one texture mesh a photograph.

#include "autotexture/KvoBestImage.h"

#include <QFileInfo>
#include <QObject>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <map>

#include <opencv2/core.hpp>

#include "autotexture/KvoViewSelection.h"
#include "camera/KvoCameraFiles.h"
#include "camera/KvoVirtualCamera.h"
#include "commands/KvoCommands.h"
#include "platform/KvoCameraMath.h"
#include "scene/KvoMeshAccess.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

namespace {

// K, R, T of a virtual camera for a w x h picture: R and T from the look-at
// motion turned to a camera that looks down +z with y down the rows, so that
// u = q.x / q.z runs right and v = q.y / q.z down, as the picture's pixels do.
void camInfoFromRecord(const ZebQVVCParam& p, long w, long h, Rec3D::CamInfo& out)
{
    double m[16];
    lookAtMatrix(p.eye, p.center, p.up, m);
    const double flip[3] = {1, -1, -1};
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            out.R[3 * r + c] = flip[r] * m[c * 4 + r];
        out.T[r] = flip[r] * m[12 + r];
    }
    const double f = (double(std::min(w, h)) / std::tan(p.fovY * M_PI / 180.0 / 2.0)) * 0.5;
    std::fill(out.K, out.K + 9, 0.0);
    out.K[0] = f;
    out.K[2] = double(w / 2);
    out.K[4] = f;
    out.K[5] = double(h / 2);
    out.K[8] = 1;
    out.width = int32_t(w);
    out.height = int32_t(h);
}

// The camera of DLT parameters kept for an image (picture positions 0 to 1
// from the bottom-left corner, as the DLT mapping writes them), when the image
// was not mapped since by a virtual camera or a plane: x = W u and y = H (1 - v)
// make the DLT a projection matrix in pixels, whose K, R, T are exact.
bool camInfoFromDlt(IKvoMM& mm, long id, long mappingType, long w, long h, Rec3D::CamInfo& out)
{
    if (mappingType == 1 || mappingType == 2)
        return false;
    QByteArray blob;
    if (!mm.getProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(id), blob) ||
        blob.size() != int(11 * sizeof(double)))
        return false;
    double L[11];
    std::memcpy(L, blob.constData(), sizeof L);
    const double W = double(w), H = double(h);
    double P[12];
    for (int k = 0; k < 4; ++k) {
        const double d = k < 3 ? L[8 + k] : 1.0;
        P[k] = -W * L[k];
        P[4 + k] = H * (L[4 + k] + d);
        P[8 + k] = d;
    }
    if (!decomposeProjection(P, out.K, out.R, out.T))
        return false;
    out.width = int32_t(w);
    out.height = int32_t(h);
    return true;
}

// "photo_03.jpg (image 3)", for lists of what was passed over.
QString imageLabel(const IKvoImageInfo& info)
{
    const QString file = QFileInfo(info.getFilePath(kvoPathOriginal)).fileName();
    return file.isEmpty() ? QObject::tr("Image %1").arg(info.getId())
                          : QObject::tr("%1 (image %2)").arg(file).arg(info.getId());
}

// Outside the picture a coordinate folds back in rather than sticking to the edge.
double fold(double u, long size)
{
    if (u < 0)
        u = std::abs(long(u) % size);
    if (u > double(size))
        u = double(size - long(u) % size);
    return u;
}

XPnt2f uvOf(const Rec3D::CamInfo& c, const XPnt3f& x)
{
    double p[3], q[3];
    for (int i = 0; i < 3; ++i)
        p[i] = c.R[3 * i] * x.x + c.R[3 * i + 1] * x.y + c.R[3 * i + 2] * x.z + c.T[i];
    for (int i = 0; i < 3; ++i)
        q[i] = c.K[3 * i] * p[0] + c.K[3 * i + 1] * p[1] + c.K[3 * i + 2] * p[2];
    const long w = c.width, h = c.height;
    const double u = fold(q[0] / q[2], w), v = fold(q[1] / q[2], h);
    return XPnt2f(float(u / double(w)), float((double(h) - v) / double(h)));
}

} // namespace

long selBestImgForFace(IKvoProgress* progress, KvoBestImageReport* report, const std::function<bool()>& cancelled)
{
    KvoBestImageReport rep;
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoModel> model;
    if (!mm || !mm->getProject(project) || !project || !project->getImageDb(db) || !db)
        return kvoNoProject;
    if (!mm->getBareModel(model) || !model || !model->getVertices() || model->getVertexCount() == 0)
        return kvoModelEmpty;
    const long nv = model->getVertexCount();
    const XPnt3f* verts = model->getVertices()->getData();

    // Cameras, in the list's order. An image without a camera takes part when
    // its control points can give one.
    ref_ptr<LongArray> ids;
    db->getImageIds(ids);
    std::vector<Rec3D::CamInfo> cams;
    std::vector<long> camImage;
    std::vector<bool> throughDlt;
    std::map<uint16_t, long> narrowed;
    for (long id : ids ? ids->vec() : std::vector<long>()) {
        ref_ptr<IKvoImageInfo> info;
        if (!db->getImageInfo(info, id) || !info)
            continue;
        ZebQVVCParam param;
        if (!mm->getVCParam(id, param)) {
            if (info->getCtrlPntCount() > 0 && info->getMatchPntCount() == 0) {
                calVCParam(id, param);
                mm->setVCParam(id, param);
            } else {
                rep.skipped << QObject::tr("%1: no camera").arg(imageLabel(*info));
                rep.skippedIds.push_back(id);
                continue;
            }
        }
        XPnt2i size;
        if (!info->getImageSize(size, 1) || size.x <= 0 || size.y <= 0) {
            rep.skipped << QObject::tr("%1: unknown picture size").arg(imageLabel(*info));
            rep.skippedIds.push_back(id);
            continue;
        }
        // The cameras' table is keyed by 16 bits: two ids that share them would
        // silently take each other's faces.
        const uint16_t key = uint16_t(id & 0xFFFF);
        if (narrowed.count(key)) {
            if (report)
                *report = rep;
            return kvoBestImageIdClash;
        }
        narrowed[key] = id;
        Rec3D::CamInfo cam;
        const bool dlt = camInfoFromDlt(*mm, id, info->getMappingType(), size.x, size.y, cam);
        if (!dlt)
            camInfoFromRecord(param, size.x, size.y, cam);
        cam.id = key;
        throughDlt.push_back(dlt);
        const QByteArray path = info->getFilePath(1).toLocal8Bit();
        std::strncpy(cam.path, path.constData(), sizeof cam.path - 1);
        cams.push_back(cam);
        camImage.push_back(id);
    }
    if (cams.empty()) {
        if (report)
            *report = rep;
        return kvoNoCameras;
    }

    // The faces of the bare meshes, in order; a face's number is its place here.
    std::vector<uint32_t> tri;
    std::vector<XPnt3f> faceNormals;
    collectBareFaces(*mm, tri, &faceNormals);
    // Faces that name a vertex the model lacks are left out.
    size_t kept = 0;
    for (size_t f = 0; f < faceNormals.size(); ++f) {
        if (long(tri[3 * f]) >= nv || long(tri[3 * f + 1]) >= nv || long(tri[3 * f + 2]) >= nv)
            continue;
        std::copy(tri.begin() + long(3 * f), tri.begin() + long(3 * f + 3), tri.begin() + long(3 * kept));
        faceNormals[kept++] = faceNormals[f];
    }
    tri.resize(3 * kept);
    faceNormals.resize(kept);
    const long nf = long(tri.size() / 3);
    rep.faces = nf;
    if (nf == 0) {
        if (report)
            *report = rep;
        return kvoModelEmpty;
    }

    prgText(progress, QObject::tr("select best texture...."));
    std::vector<int> labels;
    Rec3D::RecMesh::ViewSelectionStats stats;
    {
        KvoPrgPush push(progress, 0.8);
        static_assert(sizeof(XPnt3f) == 3 * sizeof(float), "vertices are packed");
        // The pixels the texture meshes will show: the project's copy, which
        // camera import may have undistorted (and not yet saved).
        Rec3D::RecMesh::ViewSelectionOptions options;
        options.picture = [&](size_t i, cv::Mat& rgba) {
            ref_ptr<IKvoImage> pixels;
            if (!db->getTexture(pixels, camImage[i], 2) && !db->getTexture(pixels, camImage[i], 1))
                return false;
            pixels->getMat(rgba);
            return !rgba.empty();
        };
        options.cancelled = cancelled;
        if (Rec3D::RecMesh::selectViews(reinterpret_cast<const float*>(verts), nv, tri.data(), nf, cams, options,
                                        labels, &stats, progress) == -2) {
            if (report)
                *report = rep;
            return kvoBestImageCancelled;
        }
    }
    rep.candidates = stats.candidates;
    rep.textured = stats.textured;
    rep.seams = stats.seams;
    for (int k = 0; k < 3; ++k)
        rep.seconds[k] = stats.seconds[k];

    // Write-back: each photograph's texture mesh holds its faces, with UVs by
    // model vertex; one left without faces loses its mapping.
    const auto t0 = std::chrono::steady_clock::now();
    std::vector<std::vector<long>> facesOf(cams.size());
    for (long f = 0; f < nf; ++f)
        if (labels[size_t(f)] >= 0)
            facesOf[size_t(labels[size_t(f)])].push_back(f);
    if (!mm->isTexEditOpen())
        mm->openTexEdit(nullptr, 1, 0);
    for (size_t i = 0; i < cams.size(); ++i) {
        const long id = camImage[i];
        ref_ptr<IKvoMesh> tex;
        mm->getTexMeshOfImage(tex, id);
        if (facesOf[i].empty()) {
            if (tex)
                mm->deleteTexMesh(tex);
            continue;
        }
        if (!tex) {
            mm->createTexMesh(tex, false, id, false);
            if (!tex) {
                rep.skipped << QObject::tr("Image %1: no texture mesh could be made").arg(id);
                continue;
            }
        }
        ref_ptr<IKvoImage> picture;
        db->getTexture(picture, id, 2);
        if (picture)
            tex->setImage(picture);
        ref_ptr<Pnt2fArray> uv = newPnt2fArray();
        const Pnt2fArray* old = tex->getUVs();
        if (old && old->getCount() == nv)
            uv->vec() = old->vec();
        else
            uv->resize(nv);
        ref_ptr<UIntArray> indices = newUIntArray();
        ref_ptr<Pnt3fArray> normals = newPnt3fArray();
        indices->vec().reserve(3 * facesOf[i].size());
        for (long f : facesOf[i]) {
            for (int k = 0; k < 3; ++k) {
                const unsigned v = tri[size_t(3 * f + k)];
                indices->append(v);
                (*uv)[long(v)] = uvOf(cams[i], verts[v]);
            }
            normals->append(faceNormals[size_t(f)]);
        }
        if (tex->getCornerTexIndices())
            tex->setCornerTexIndices(nullptr, nullptr);
        tex->setTriangles(indices.get(), true);
        tex->setFaceNormalArray(normals.get(), false);
        tex->setUVs(uv.get());
        ref_ptr<IKvoImageInfo> info;
        if (db->getImageInfo(info, id) && info)
            info->setMappingType(throughDlt[i] ? 0 : 1);
        ++rep.imagesUsed;
    }
    mm->setDirty(true);
    rep.seconds[3] = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM()) {
        if (IZebMeshPanel* panel = vm->getMeshPanel())
            panel->refreshSection("Texture Mesh");
        if (IZebImagePanel* images = vm->getImagePanel())
            for (long id : camImage)
                images->refreshImage(id);
        vm->updateViews();
    }
    prgStep(progress, 1.0);
    if (report)
        *report = rep;
    return 0;
}

} // namespace kvo

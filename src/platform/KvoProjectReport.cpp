#include "platform/KvoProjectReport.h"

#include <QFileInfo>
#include <QStringList>

#include "platform/KvoModelManImpl.h"

namespace kvo {

quint64 checksum(const void* data, size_t bytes, quint64 h)
{
    const unsigned char* p = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < bytes; ++i) {
        h ^= p[i];
        h *= 1099511628211ULL;
    }
    return h;
}

namespace {

template <class T> QString arrayText(const KvoArray<T>* a)
{
    if (!a)
        return "none";
    return QString("%1 (sum %2)")
        .arg(a->getCount())
        .arg(checksum(a->getData(), size_t(a->getCount()) * sizeof(T)), 16, 16, QChar('0'));
}

// Point pairs have padding between their fields: hash the fields only.
QString arrayText(const PntPntArray* a)
{
    if (!a)
        return "none";
    quint64 h = 1469598103934665603ULL;
    for (const POINT_POINT& p : a->vec()) {
        const double v[] = {p.uv.x, p.uv.y, p.world.x, p.world.y, p.world.z, p.error.x, p.error.y};
        h = checksum(v, sizeof(v), h);
        h = checksum(&p.flag, sizeof(p.flag), h);
    }
    return QString("%1 (sum %2)").arg(a->getCount()).arg(h, 16, 16, QChar('0'));
}

QString colorText(const KvoColor4b& c)
{
    return QString("%1,%2,%3,%4").arg(c.r).arg(c.g).arg(c.b).arg(c.a);
}
QString pointText(const XPnt3d& p)
{
    return QString("(%1, %2, %3)").arg(p.x, 0, 'g', 10).arg(p.y, 0, 'g', 10).arg(p.z, 0, 'g', 10);
}

QString imageText(const ref_ptr<IKvoImage>& img)
{
    if (!img || img->isEmpty())
        return "none";
    quint64 h = 1469598103934665603ULL;
    for (long y = 0; y < img->getHeight(); ++y)
        h = checksum(img->getData() + y * img->getStride(), size_t(img->getWidth()) * 4, h);
    return QString("%1x%2 (sum %3)").arg(img->getWidth()).arg(img->getHeight()).arg(h, 16, 16, QChar('0'));
}

} // namespace

QString describeProject(IKvoMM& mm, bool withPixels)
{
    QStringList lines;
    ref_ptr<IKvoProject> project;
    if (!mm.getProject(project))
        return "No project is open.";
    lines << QString("Project: %1").arg(QFileInfo(project->getFilePath()).fileName());
    ref_ptr<IKvoModel> model;
    mm.getBareModel(model);
    QString modelFile;
    mm.getModelFileName(modelFile);
    if (!model) {
        lines << "Model: none";
    } else {
        Enve3d box;
        model->getEnvelope(box);
        lines << QString("Model: \"%1\" from \"%2\", %3 vertices %4, vertex normals %5, texcoords %6")
                     .arg(model->getName(), modelFile)
                     .arg(model->getVertexCount())
                     .arg(arrayText(model->getVertices()), arrayText(model->getVertexNormals()),
                          arrayText(model->getTexCoords()));
        if (box.isValid())
            lines << QString("  Box: %1 to %2").arg(pointText(box.getMinPnt()), pointText(box.getMaxPnt()));
        for (long i = 0; i < model->getMeshCount(); ++i) {
            ref_ptr<IKvoMesh> m = model->getMesh(i);
            const bool tex = mm.isTexMesh(m);
            lines << QString("  %1 mesh %2 \"%3\"%4: %5 triangles")
                         .arg(tex ? "Texture" : "Bare")
                         .arg(m->getId())
                         .arg(m->getName())
                         .arg(tex ? QString(" of image %1%2").arg(m->getImageId()).arg(m->isTiled() ? ", tiled" : "")
                                  : QString())
                         .arg(m->getFaceCount());
            lines << QString("    triangles %1, normals %2, uvs %3, corners %4, marks %5")
                         .arg(arrayText(m->getTriangleIndices()), arrayText(m->getFaceNormals()),
                              arrayText(m->getUVs()), arrayText(m->getCornerTexIndices()), arrayText(m->getSelMarks()));
            QStringList flags;
            flags << (mm.isMeshAsleep(m) ? "asleep" : "awake") << (m->isMeshShown() ? "shown" : "hidden")
                  << (mm.isTexMeshSelected(m) ? "selected" : "not selected")
                  << (m->isShowTexture() ? "texture" : "solid colour");
            lines << QString("    %1; colours %2 / %3")
                         .arg(flags.join(", "), colorText(m->getSolidColor()), colorText(m->getSelColor()));
            if (tex && withPixels) {
                ref_ptr<IKvoImage> img;
                lines << QString("    pixels %1").arg(imageText(m->getImage(img)));
            }
        }
    }
    ref_ptr<IKvoImageDb> db;
    project->getImageDb(db);
    ref_ptr<LongArray> ids;
    db->getImageIds(ids);
    lines << QString("Images: %1, active %2, reference %3")
                 .arg(ids->getCount())
                 .arg(mm.getActiveImageId())
                 .arg(mm.getRefImageId());
    for (long id : ids->vec()) {
        ref_ptr<IKvoImageInfo> info;
        db->getImageInfo(info, id);
        XPnt2i size;
        info->getImageSize(size, 2);
        lines << QString("  Image %1 \"%2\": %3x%4, %5, mapping type %6, file %7")
                     .arg(id)
                     .arg(info->getName())
                     .arg(size.x)
                     .arg(size.y)
                     .arg(info->isBigImage() ? "big" : "normal")
                     .arg(info->getMappingType())
                     .arg(QFileInfo(info->getFilePath(kvoPathImage)).fileName());
        ref_ptr<Pnt2dArray> ci;
        ref_ptr<Pnt3dArray> cw;
        ref_ptr<PntPntArray> mp;
        info->getCtrlImagePnts(ci);
        info->getCtrlWorldPnts(cw);
        info->getMatchPnts(mp);
        lines << QString("    control points %1 / %2, match points %3")
                     .arg(arrayText(ci.get()), arrayText(cw.get()), arrayText(mp.get()));
        ZebQVVCParam vc;
        if (mm.getVCParam(id, vc))
            lines << QString("    camera eye %1 centre %2 up %3 fov %4 transparency %5 zoom %6")
                         .arg(pointText(vc.eye), pointText(vc.center), pointText(vc.up))
                         .arg(vc.fovY)
                         .arg(vc.transparency)
                         .arg(vc.zoom);
        if (withPixels) {
            ref_ptr<IKvoImage> img;
            lines << QString("    pixels %1").arg(imageText(db->getTexture(img, id, 2)));
        }
    }
    if (auto* cmm = dynamic_cast<CKvoMM*>(&mm)) {
        lines << QString("Settings: %1").arg(cmm->blobs().size());
        for (auto& kv : cmm->blobs())
            lines << QString("  %1/%2: %3 bytes (sum %4)")
                         .arg(kv.first.first, kv.first.second)
                         .arg(kv.second.size())
                         .arg(checksum(kv.second.constData(), size_t(kv.second.size())), 16, 16, QChar('0'));
    }
    ref_ptr<IKvoRing> fence;
    if (mm.getFenceRing(fence)) {
        ref_ptr<Pnt3dArray> pts;
        lines << QString("Fence: %1 points").arg(arrayText(fence->getPoints(pts).get()));
    } else {
        lines << "Fence: none";
    }
    return lines.join("\n");
}

} // namespace kvo

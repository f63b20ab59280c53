#include "modelio/KvoExportRows.h"

#include "scene/KvoMeshAccess.h"

namespace kvo {
namespace exportrows {

void loadRow(RowData& row, IKvoMM& mm)
{
    ref_ptr<IKvoMesh> mesh = row.info.mesh;
    row.kind = mm.getMeshKind(mesh);
    row.meshName = mesh->getName();
    KvoMeshAwake awake(mm, mesh);
    if (UIntArray* t = mesh->getTriangleIndices())
        row.tris.assign(t->getData(), t->getData() + t->getCount());
    if (row.kind == 1) {
        row.imageId = mesh->getImageId();
        row.big = mm.isBigImage(row.imageId);
        if (Pnt2fArray* u = mesh->getUVs())
            row.uvs.assign(u->getData(), u->getData() + u->getCount());
        UIntArray* c = mesh->getCornerTexIndices();
        row.corner = mesh->hasCornerUVs() && c && c->getCount() == long(row.tris.size());
        if (row.corner)
            row.corner3.assign(c->getData(), c->getData() + c->getCount());
    }
    row.keep.assign(size_t(row.triangleCount()), 1);
}

ref_ptr<IKvoImage> loadRowPicture(const RowData& row, IKvoImageDb& db, bool& hasAlpha)
{
    ref_ptr<IKvoImage> colour;
    ref_ptr<IKvoImage> alpha;
    const long level = row.info.resample ? 2 : 1;
    if (row.info.resample) {
        db.getTexture(colour, row.imageId, 2);
    } else {
        colour = newKvoImage();
        if (!colour->loadFile(row.info.path))
            colour.reset();
    }
    if (!colour || colour->isEmpty())
        return {};
    db.getAlphaImage(alpha, row.imageId, level, 0);
    hasAlpha = bool(alpha);
    uint8_t* px = colour->getMutableData();
    const long w = colour->getWidth(), h = colour->getHeight(), stride = colour->getStride();
    if (alpha && (alpha->getWidth() != w || alpha->getHeight() != h))
        alpha = alpha->resized(w, h, 1);
    for (long y = 0; y < h; ++y) {
        uint8_t* p = px + y * stride;
        const uint8_t* a = alpha ? alpha->getData() + y * alpha->getStride() : nullptr;
        for (long x = 0; x < w; ++x)
            p[4 * x + 3] = a ? a[4 * x + 3] : 255;
    }
    return colour;
}

QString fileSafe(const QString& name)
{
    QString s = name;
    for (QChar& c : s)
        if (c.isSpace() || c == '/' || c == '\\')
            c = '_';
    return s;
}

} // namespace exportrows
} // namespace kvo

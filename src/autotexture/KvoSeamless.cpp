#include "autotexture/KvoSeamless.h"

#include <QString>

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "commands/KvoCommands.h"
#include "scene/KvoUV.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

namespace {

struct TripHash {
    size_t operator()(const XTrip<unsigned>& t) const
    {
        uint64_t h = t.v[0];
        h = h * 0x9E3779B97F4A7C15ull + t.v[1];
        h = h * 0x9E3779B97F4A7C15ull + t.v[2];
        return size_t(h ^ (h >> 29));
    }
};

bool opaqueAt(const IKvoImage& image, long x, long y)
{
    x = std::clamp(x, 0L, image.getWidth() - 1);
    y = std::clamp(y, 0L, image.getHeight() - 1);
    return image.getData()[y * image.getStride() + x * 4 + 3] == 255;
}

// Twice the signed area of (a, b, p).
double edge(const XPnt2d& a, const XPnt2d& b, double px, double py)
{
    return (b.x - a.x) * (py - a.y) - (b.y - a.y) * (px - a.x);
}

} // namespace

bool isAlphaTri(const IKvoImage* image, const XPnt2f& uv2, const XPnt2f& uv1, const XPnt2f& uv0)
{
    if (!image || image->isEmpty() || image->getWidth() <= 0 || image->getHeight() <= 0)
        return false;
    const double w = double(image->getWidth()), h = double(image->getHeight());
    const XPnt2d p[3] = {uvToPixel(uv0.x, uv0.y, w, h), uvToPixel(uv1.x, uv1.y, w, h), uvToPixel(uv2.x, uv2.y, w, h)};
    for (const XPnt2d& c : p) {
        if (!std::isfinite(c.x) || !std::isfinite(c.y))
            return false;
        if (!opaqueAt(*image, long(std::floor(c.x)), long(std::floor(c.y))))
            return true;
    }
    const double area = edge(p[0], p[1], p[2].x, p[2].y);
    if (area == 0)
        return false;
    const double s = area > 0 ? 1.0 : -1.0;
    const long x0 = std::max(0L, long(std::floor(std::min({p[0].x, p[1].x, p[2].x}))));
    const long x1 = std::min(image->getWidth() - 1, long(std::floor(std::max({p[0].x, p[1].x, p[2].x}))));
    const long y0 = std::max(0L, long(std::floor(std::min({p[0].y, p[1].y, p[2].y}))));
    const long y1 = std::min(image->getHeight() - 1, long(std::floor(std::max({p[0].y, p[1].y, p[2].y}))));
    const unsigned char* data = image->getData();
    const long stride = image->getStride();
    for (long y = y0; y <= y1; ++y) {
        const double cy = double(y) + 0.5;
        const unsigned char* row = data + y * stride;
        for (long x = x0; x <= x1; ++x) {
            const double cx = double(x) + 0.5;
            if (s * edge(p[0], p[1], cx, cy) >= 0 && s * edge(p[1], p[2], cx, cy) >= 0 &&
                s * edge(p[2], p[0], cx, cy) >= 0 && row[x * 4 + 3] != 255)
                return true;
        }
    }
    return false;
}

long cmdOnSeamlessTexturedMesh(int kind, IKvoProgress* progress)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoModel> model;
    if (!mm || !mm->getBareModel(model) || !model)
        return kvoModelEmpty;
    ref_ptr<MeshArray> meshes;
    if (kind == 0)
        mm->getShownTexMeshList(meshes);
    else if (kind == 1)
        mm->getTexMeshes(meshes);
    const long count = meshes ? meshes->getCount() : 0;
    const long vertexCount = model->getVertexCount();
    std::unordered_set<XTrip<unsigned>, TripHash> seen;
    bool changed = false;
    for (long i = count - 1; i >= 0; --i) {
        KvoPrgPush push(progress, 1.0 / double(count));
        ref_ptr<IKvoMesh> mesh = (*meshes)[i];
        if (!mesh || mm->isMeshAsleep(mesh) || mesh->getName().isEmpty())
            continue;
        prgText(progress, QString::number(mesh->getId()));
        const UIntArray* tris = mesh->getTriangleIndices();
        const long faces = mesh->getFaceCount();
        if (!tris || faces == 0)
            continue;
        // Only a picture with some transparency can let an earlier mesh show through.
        ref_ptr<IKvoImage> picture;
        mesh->getImage(picture);
        if (picture && !picture->hasTransparency())
            picture.reset();
        const Pnt2fArray* uvs = mesh->getUVs();
        const UIntArray* corners = mesh->getCornerTexIndices();
        auto uvOf = [&](long face, int k, XPnt2f& out) {
            const long c = mesh->getFaceCorner(face, k);
            if (!uvs || c < 0 || c >= uvs->getCount())
                return false;
            out = uvs->getAt(c);
            return true;
        };

        ref_ptr<UIntArray> keptTris = newUIntArray();
        ref_ptr<UIntArray> keptCorners = corners ? newUIntArray() : ref_ptr<UIntArray>();
        ref_ptr<Pnt3fArray> keptNormals = newPnt3fArray();
        keptTris->vec().reserve(size_t(faces) * 3);
        keptNormals->vec().reserve(size_t(faces));
        const unsigned* t = tris->getData();
        for (long f = 0; f < faces; ++f) {
            const XTrip<unsigned> key = XTrip<unsigned>(t[3 * f], t[3 * f + 1], t[3 * f + 2]).normalized();
            if (seen.count(key))
                continue;
            XPnt2f uv[3];
            const bool haveUv = picture && uvOf(f, 0, uv[0]) && uvOf(f, 1, uv[1]) && uvOf(f, 2, uv[2]);
            if (!haveUv || !isAlphaTri(picture.get(), uv[2], uv[1], uv[0]))
                seen.insert(key);
            keptTris->vec().insert(keptTris->vec().end(), t + 3 * f, t + 3 * f + 3);
            if (keptCorners)
                for (int k = 0; k < 3; ++k)
                    keptCorners->append(unsigned(mesh->getFaceCorner(f, k)));
            XPnt3f n;
            if (!mesh->getFaceNormal(n, f)) {
                const Pnt3fArray* v = model->getVertices();
                const unsigned a = t[3 * f], b = t[3 * f + 1], c = t[3 * f + 2];
                if (v && long(a) < vertexCount && long(b) < vertexCount && long(c) < vertexCount) {
                    n = (v->getAt(b) - v->getAt(a)).cross(v->getAt(c) - v->getAt(a));
                    n.normalize();
                }
            }
            keptNormals->append(n);
        }
        if (keptTris->getCount() == tris->getCount())
            continue;
        mesh->setTriangles(keptTris.get(), false);
        // A corner-indexed mesh keeps the UV corners of the faces that stayed.
        if (keptCorners)
            mesh->setCornerTexIndices(nullptr, keptCorners.get());
        mesh->setFaceNormalArray(keptNormals.get(), true);
        changed = true;
    }
    if (changed) {
        mm->setDirty(true);
        if (ref_ptr<IZebViewerMan> vm = zebUI::getVM()) {
            if (IZebMeshPanel* panel = vm->getMeshPanel())
                panel->refreshSection("Texture Mesh");
            vm->updateViews();
        }
    }
    prgStep(progress, 1.0);
    return 0;
}

} // namespace kvo

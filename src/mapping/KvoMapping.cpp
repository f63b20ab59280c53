#include "mapping/KvoMapping.h"

#include <QCoreApplication>

#include <array>
#include <functional>
#include <set>
#include <unordered_map>

#include "camera/KvoVirtualCamera.h"
#include "commands/KvoCommands.h"
#include "mapping/KvoDlt.h"
#include "scene/KvoDelaunay.h"
#include "scene/KvoGeometry.h"
#include "scene/KvoRefPlane.h"
#include "scene/KvoStore.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

namespace {

constexpr double kTinFrame = 2147483647.0;

QString tr(const char* s)
{
    return QCoreApplication::translate("Mapping", s);
}

void step(IKvoProgress* p, double f)
{
    if (p)
        p->step(f);
}

// The picture position of a model point, as the mapping of an image gives it.
using UvOf = std::function<XPnt2d(const XPnt3f&)>;

// Exact 2-D affine through three pairs, in the 3 x 2 layout: (x, y, 1) . m.
bool fitAffine3(const XPnt2d src[3], const XPnt2d dst[3], double m[6])
{
    double M[9];
    for (int i = 0; i < 3; ++i) {
        M[i * 3] = src[i].x;
        M[i * 3 + 1] = src[i].y;
        M[i * 3 + 2] = 1;
    }
    if (!invertGaussJordan(M, 3))
        return false;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 2; ++c)
            m[r * 2 + c] = M[r * 3] * (c ? dst[0].y : dst[0].x) + M[r * 3 + 1] * (c ? dst[1].y : dst[1].x) +
                           M[r * 3 + 2] * (c ? dst[2].y : dst[2].x);
    return true;
}

XPnt2d applyAffine(const double m[6], double x, double y)
{
    return XPnt2d(x * m[0] + y * m[2] + m[4], x * m[1] + y * m[3] + m[5]);
}

struct Active {
    long id = -1;
    ref_ptr<IKvoImageInfo> info;
    ref_ptr<IKvoImageDb> db;
};

long activeImage(Active& a)
{
    IKvoMM* mm = getMM();
    a.id = mm->getActiveImageId();
    if (a.id < 0)
        return kvoNoActiveImage;
    ref_ptr<IKvoProject> project;
    if (!mm->getProject(project) || !project->getImageDb(a.db) || !a.db->getImageInfo(a.info, a.id) || !a.info)
        return kvoNoImageInfo;
    return 0;
}

void showInPanels(const ref_ptr<IKvoMesh>& mesh, long imageId)
{
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM()) {
        if (IZebMeshPanel* panel = vm->getMeshPanel()) {
            panel->add(mesh, "Texture Mesh");
            panel->refreshSection("Texture Mesh");
        }
        if (IZebImagePanel* images = vm->getImagePanel()) {
            images->refreshImage(imageId);
            images->refreshImage(0);
        }
        vm->redrawModelView();
    }
}

void setPicture(const Active& a, const ref_ptr<IKvoMesh>& mesh)
{
    ref_ptr<IKvoImage> picture;
    a.db->getTexture(picture, a.id, 2);
    if (picture)
        mesh->setImage(picture);
}

// New UVs for the mapped image's mesh; its triangles stay.
long updateUVs(const Active& a, const UvOf& uvOf, bool removeNegativeUV, IKvoProgress* progress)
{
    IKvoMM* mm = getMM();
    if (progress) {
        progress->setText(tr("Update texture UV..."));
        progress->step(0.01);
    }
    if (a.id < 0)
        return kvoNoActiveImage;
    if (!mm->isImageIdValid(a.id))
        return kvoNoActiveImageForUpdate;
    ref_ptr<IKvoMesh> mesh;
    if (!mm->getTexMeshOfImage(mesh, a.id) || !mesh)
        return kvoImageNotMapped;
    const Pnt3fArray* verts = mesh->getModel() ? mesh->getModel()->getVertices() : nullptr;
    const long n = verts ? verts->getCount() : 0;
    ref_ptr<Pnt2fArray> uv = newPnt2fArray();
    uv->resize(n);
    const XPnt3f* v = verts ? verts->getData() : nullptr;
    XPnt2f* out = uv->getData();
#pragma omp parallel for schedule(static)
    for (long i = 0; i < n; ++i) {
        const XPnt2d p = uvOf(v[i]);
        out[i] = XPnt2f(float(p.x), float(p.y));
    }
    step(progress, 0.4);
    KvoPrgPush push(progress, 0.59);
    if (mesh->getCornerTexIndices())
        mesh->setCornerTexIndices(nullptr, nullptr);
    mesh->setUVs(uv.get());
    mesh->refreshDisplay();
    if (removeNegativeUV)
        removeNegtiveUV(mesh, progress);
    setPicture(a, mesh);
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        vm->redrawModelView();
    return 0;
}

// The first part of a mapping: an existing mapping renewed (updated is then
// true) or deleted, then a fresh texture mesh of the triangles wholly inside.
long buildMesh(const Active& a, const UvOf& uvOf, bool onlyUpdateTexture, bool removeNegativeUV, bool selectedOnly,
               bool tiled, IKvoProgress* progress, ref_ptr<IKvoMesh>& mesh, bool& updated)
{
    IKvoMM* mm = getMM();
    updated = false;
    if (mm->isImageMapped(a.id)) {
        ref_ptr<IKvoMesh> old;
        if (!mm->getTexMeshOfImage(old, a.id) || !old)
            return kvoTexMeshMissing;
        if (mm->isMeshAsleep(old))
            return kvoImageAsleep;
        if (onlyUpdateTexture) {
            updated = true;
            return updateUVs(a, uvOf, removeNegativeUV, progress);
        }
        if (mm->deleteTexMesh(old, 0, nullptr) == 0)
            if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
                if (IZebMeshPanel* panel = vm->getMeshPanel())
                    panel->remove(old, "Texture Mesh");
    }
    ref_ptr<IKvoModel> model;
    mm->getBareModel(model);
    const Pnt3fArray* verts = model ? model->getVertices() : nullptr;
    const long n = verts ? verts->getCount() : 0;
    ref_ptr<Pnt2fArray> uv = newPnt2fArray();
    uv->resize(n);
    std::vector<uint8_t> inside(size_t(n), 0);
    const XPnt3f* v = verts ? verts->getData() : nullptr;
    XPnt2f* out = uv->getData();
#pragma omp parallel for schedule(static)
    for (long i = 0; i < n; ++i) {
        const XPnt2d p = uvOf(v[i]);
        out[i] = XPnt2f(float(p.x), float(p.y));
        inside[size_t(i)] = tiled || (out[i].x >= 0.f && out[i].x <= 1.f && out[i].y >= 0.f && out[i].y <= 1.f);
    }
    step(progress, 0.3);
    ref_ptr<MeshArray> sources;
    if (!selectedOnly) {
        if (!mm->getAwakeBareMeshes(sources) || !sources || sources->getCount() == 0)
            return kvoNoBareMesh;
    } else {
        if (!mm->getMarkedMeshes(sources) || !sources || sources->getCount() == 0)
            return kvoNothingSelected;
        ref_ptr<MeshArray> shown;
        mm->getShownMeshes(shown);
        std::fill(inside.begin(), inside.end(), 0);
        bool any = false;
        for (const ref_ptr<IKvoMesh>& m : shown ? shown->vec() : std::vector<ref_ptr<IKvoMesh>>()) {
            const ByteArray* marks = m->getSelMarks();
            const UIntArray* t = m->getTriangleIndices();
            for (long f = 0; marks && f < marks->getCount() && f < m->getFaceCount(); ++f)
                if (marks->getAt(f))
                    for (int k = 0; k < 3; ++k)
                        if (long(t->getAt(3 * f + k)) < n) {
                            inside[t->getAt(3 * f + k)] = 1;
                            any = true;
                        }
        }
        if (!any)
            return kvoNothingSelected;
    }
    step(progress, 0.2);
    mm->createTexMesh(mesh, false, a.id, tiled);
    if (!mesh)
        return kvoMeshNotMade;
    std::set<XTrip<unsigned>> textured;
    mm->getTexturedTriangles(textured);
    ref_ptr<UIntArray> indices = newUIntArray();
    ref_ptr<Pnt3fArray> normals = newPnt3fArray();
    for (const ref_ptr<IKvoMesh>& src : sources->vec()) {
        const UIntArray* t = src->getTriangleIndices();
        const Pnt3fArray* fn = src->getFaceNormals();
        for (long f = 0; f < src->getFaceCount(); ++f) {
            const unsigned i0 = t->getAt(3 * f), i1 = t->getAt(3 * f + 1), i2 = t->getAt(3 * f + 2);
            if (long(i0) >= n || long(i1) >= n || long(i2) >= n || !inside[i0] || !inside[i1] || !inside[i2])
                continue;
            if (textured.count(XTrip<unsigned>(i0, i1, i2).normalize()))
                continue;
            indices->append(i0);
            indices->append(i1);
            indices->append(i2);
            normals->append(fn && f < fn->getCount() ? fn->getAt(f) : XPnt3f(0, 0, 1));
        }
    }
    mesh->setTriangles(indices.get(), true);
    mesh->setUVs(uv.get());
    mesh->setFaceNormals(normals.get(), false);
    step(progress, 0.5);
    return 0;
}

// A DLT or a planar mapping: the mesh, then the clean-up, the picture and the panels.
long mapImage(const Active& a, const UvOf& uvOf, bool onlyUpdateTexture, bool removeNegativeUV, bool selectedOnly,
              bool tiled, IKvoProgress* progress)
{
    ref_ptr<IKvoMesh> mesh;
    bool updated = false;
    long rc;
    {
        KvoPrgPush whole(progress, 0.8);
        rc = buildMesh(a, uvOf, onlyUpdateTexture, removeNegativeUV, selectedOnly, tiled, progress, mesh, updated);
    }
    if (rc != 0 || updated)
        return rc;
    if (removeNegativeUV) {
        KvoPrgPush push(progress, 0.1);
        removeNegtiveUV(mesh, progress);
    } else {
        step(progress, 0.1);
    }
    setPicture(a, mesh);
    showInPanels(mesh, a.id);
    step(progress, 0.1);
    return 0;
}

// The piecewise affine warp: nodes (frame corners through B, control points,
// adjust points) triangulated in the projected plane, one exact affine per
// triangle, A outside them. project takes a world point to that plane.
long densify(const Active& a, const std::function<XPnt2d(const XPnt3d&)>& project, double tolerance,
             bool insertionMatters, long singularCode)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoMesh> mesh;
    ref_ptr<Pnt3dArray> world;
    ref_ptr<Pnt2dArray> image;
    a.info->getCtrlWorldPnts(world);
    a.info->getCtrlImagePnts(image);
    const long n = std::min(world ? world->getCount() : 0, image ? image->getCount() : 0);
    if (n <= 0)
        return kvoNoCtrlPoints;
    if (!mm->getTexMeshOfImage(mesh, a.id) || !mesh)
        return kvoImageNotMapped;
    std::vector<XPnt2d> pos(static_cast<size_t>(n)), uv(static_cast<size_t>(n));
    for (long i = 0; i < n; ++i) {
        pos[size_t(i)] = project(world->getAt(i));
        uv[size_t(i)] = image->getAt(i);
    }
    if (n < 3)
        return kvoInvertFailed;
    double A[6], B[6];
    if (!fitAffine3(pos.data(), uv.data(), A) || !fitAffine3(uv.data(), pos.data(), B))
        return kvoInvertFailed;
    ref_ptr<PntPntArray> adjust;
    a.info->getMatchPnts(adjust);
    // Nodes are kept by address: sized once, never moved.
    std::vector<XPnt3d> nodes;
    std::vector<XPnt2d> nodeUV;
    const size_t adjustCount = adjust ? size_t(adjust->getCount()) : 0;
    nodes.reserve(4 + size_t(n) + adjustCount);
    for (const XPnt2d& c : {XPnt2d(-1, -1), XPnt2d(2, -1), XPnt2d(2, 2), XPnt2d(-1, 2)}) {
        const XPnt2d p = applyAffine(B, c.x, c.y);
        nodes.emplace_back(p.x, p.y, 0.0);
        nodeUV.push_back(c);
    }
    for (long i = 0; i < n; ++i) {
        nodes.emplace_back(pos[size_t(i)].x, pos[size_t(i)].y, 0.0);
        nodeUV.emplace_back(float(uv[size_t(i)].x), float(uv[size_t(i)].y));
    }
    for (size_t i = 0; i < adjustCount; ++i) {
        const POINT_POINT& pp = adjust->vec()[i];
        if (!pp.world.isValid())
            continue;
        const XPnt2d p = project(pp.world);
        nodes.emplace_back(p.x, p.y, 0.0);
        nodeUV.push_back(pp.uv);
    }
    ref_ptr<IKvoDelaunayDouble> tin = newKvoDelaunayDouble(0.0, -kTinFrame, -kTinFrame, kTinFrame, kTinFrame);
    for (const XPnt3d& p : nodes)
        if (!tin->addNode(&p, tolerance) && insertionMatters)
            return kvoTinError;
    std::unordered_map<const tind*, std::array<double, 6>> affine;
    tind* start = nullptr;
    tin->rewindTriangles();
    while (tind* t = tin->nextTriangle()) {
        if (tin->isFrameTriangle(t))
            continue;
        XPnt2d src[3], dst[3];
        for (int k = 0; k < 3; ++k) {
            const size_t idx = size_t(t->nodes[k] - nodes.data());
            src[k] = XPnt2d(t->nodes[k]->x, t->nodes[k]->y);
            dst[k] = nodeUV[idx];
        }
        std::array<double, 6> m;
        if (!fitAffine3(src, dst, m.data()))
            return singularCode;
        affine[t] = m;
        if (!start)
            start = t;
    }
    const Pnt3fArray* verts = mesh->getModel() ? mesh->getModel()->getVertices() : nullptr;
    const long nv = verts ? verts->getCount() : 0;
    ref_ptr<Pnt2fArray> out = newPnt2fArray();
    out->resize(nv);
    for (long i = 0; i < nv; ++i) {
        const XPnt3f& v = verts->vec()[size_t(i)];
        const XPnt2d p = project(XPnt3d(v.x, v.y, v.z));
        const XPnt2f pf(float(p.x), float(p.y));
        tind* t = start ? start->find(pf.x, pf.y) : nullptr;
        const double* m = A;
        if (t && !tin->isFrameTriangle(t)) {
            auto it = affine.find(t);
            if (it == affine.end())
                return kvoTinMatrixError;
            m = it->second.data();
        }
        const XPnt2d q = applyAffine(m, pf.x, pf.y);
        (*out)[i] = XPnt2f(float(q.x), float(q.y));
    }
    if (mesh->getCornerTexIndices())
        mesh->setCornerTexIndices(nullptr, nullptr);
    mesh->setUVs(out.get());
    setPicture(a, mesh);
    mesh->refreshDisplay();
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        vm->redrawModelView();
    return 0;
}

// The active image and its texture mesh, as the refinements need them.
long activeMapped(Active& a)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoMesh> mesh;
    if (!mm->getTexMeshOfImage(mesh, mm->getActiveImageId()) || !mesh)
        return kvoImageNotMapped;
    if (long rc = activeImage(a))
        return rc == kvoNoActiveImage ? kvoNoActiveImage : kvoNoImageInfo;
    return 0;
}

} // namespace

long DLTMapping(double* L, bool onlyUpdateTexture, bool removeNegativeUV, bool selectedOnly, bool&,
                IKvoProgress* progress)
{
    IKvoMM* mm = getMM();
    if (selectedOnly && mm->isSelectionEmpty())
        return kvoNothingSelected;
    Active a;
    if (long rc = activeImage(a))
        return rc;
    const double* Lc = L;
    return mapImage(
        a, [Lc](const XPnt3f& v) { return camWorldPntToImgPos(Lc, v.x, v.y, v.z); }, onlyUpdateTexture,
        removeNegativeUV, selectedOnly, false, progress);
}

long updateDensifyDLTMapping()
{
    Active a;
    if (long rc = activeMapped(a))
        return rc;
    IKvoMM* mm = getMM();
    double L[11];
    if (a.info->getCtrlPntCount() <= 0)
        return kvoNoCtrlPoints;
    if (!mm->getDltParam(a.id, L))
        return kvoInvertFailed2;
    return densify(
        a, [&L](const XPnt3d& p) { return camWorldPntToImgPos(L, p.x, p.y, p.z); }, 0.0, true, kvoInvertFailed);
}

long updateDensifyMapping()
{
    Active a;
    if (long rc = activeMapped(a))
        return rc == kvoImageNotMapped ? rc : kvoNoImageInfo;
    switch (a.info->getMappingType()) {
    case 0: return updateDensifyDLTMapping();
    case 1: return kvoVCMappingNoAdjust;
    case 2: return updateDensifyPlaneMapping();
    default: return 0;
    }
}

KvoMatrix4d calPlaneMatrix(XPnt3d p0, XPnt3d p1, XPnt3d p2)
{
    KvoMatrix4d m;
    const XPnt3d d = p1 - p0;
    const double len2 = dot(d, d);
    if (!(len2 > 0))
        return m;
    const XPnt3d ex = d * (1.0 / std::sqrt(len2));
    const XPnt3d f = p0 + d * (dot(d, p2 - p0) / len2);
    XPnt3d ey = p2 - f;
    const double l = length(ey);
    if (!(l > 0))
        return m;
    ey = ey * (1.0 / l);
    KvoMatrix4d out;
    if (!pntRegByQuad(XPnt3d(0, 0, 0), XPnt3d(1, 0, 0), XPnt3d(0, 1, 0), p0, p0 + ex, p0 + ey, out))
        return m;
    return out;
}

namespace {

// The plane of the first three control points and the exact affine from it
// to the picture; false when they span no plane.
bool planeFrame(const IKvoImageInfo& info, KvoMatrix4d& plane, double toUV[6])
{
    ref_ptr<Pnt3dArray> world;
    ref_ptr<Pnt2dArray> image;
    info.getCtrlWorldPnts(world);
    info.getCtrlImagePnts(image);
    if (!world || !image || world->getCount() < 3 || image->getCount() < 3)
        return false;
    const XPnt3d p0 = world->getAt(0), p1 = world->getAt(1), p2 = world->getAt(2);
    const XPnt3d ey = p2 - (p0 + (p1 - p0) * (dot(p1 - p0, p2 - p0) / std::max(1e-300, dot(p1 - p0, p1 - p0))));
    if (!(length(p1 - p0) > 0) || !(length(ey) > 0))
        return false;
    plane = calPlaneMatrix(p0, p1, p2);
    XPnt2d src[3], dst[3];
    for (int i = 0; i < 3; ++i) {
        const XPnt3d q = plane * world->getAt(i);
        src[i] = XPnt2d(q.x, q.y);
        dst[i] = image->getAt(i);
    }
    return fitAffine3(src, dst, toUV);
}

} // namespace

long planeMapping(bool onlyUpdateTexture, bool removeNegativeUV, bool selectedOnly, bool tiled, IKvoProgress* progress)
{
    IKvoMM* mm = getMM();
    if (selectedOnly && mm->isSelectionEmpty())
        return kvoNothingSelected;
    Active a;
    if (long rc = activeImage(a))
        return rc;
    if (a.info->getCtrlImagePntCount() < 3) {
        step(progress, 1.0);
        return kvoTooFewPoints;
    }
    KvoMatrix4d plane;
    double toUV[6];
    if (!planeFrame(*a.info, plane, toUV)) {
        step(progress, 1.0);
        return kvoInvertFailed2;
    }
    return mapImage(
        a,
        [plane, toUV](const XPnt3f& v) {
            const XPnt3d q = plane * XPnt3d(v.x, v.y, v.z);
            return applyAffine(toUV, q.x, q.y);
        },
        onlyUpdateTexture, removeNegativeUV, selectedOnly, tiled, progress);
}

long updateDensifyPlaneMapping()
{
    Active a;
    if (long rc = activeMapped(a))
        return rc;
    ref_ptr<Pnt3dArray> world;
    a.info->getCtrlWorldPnts(world);
    if (!world || world->getCount() < 3)
        return kvoInvertFailed;
    const KvoMatrix4d plane = calPlaneMatrix(world->getAt(0), world->getAt(1), world->getAt(2));
    return densify(
        a,
        [plane](const XPnt3d& p) {
            const XPnt3d q = plane * p;
            return XPnt2d(q.x, q.y);
        },
        0.000001, false, kvoSingularTinTriangle);
}

long mapOnProjectPlane(long imageId, IKvoProgress* progress)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    if (!mm->getProject(project) || !project->getImageDb(db) || !db->getImageInfo(info, imageId) || !info)
        return kvoNoImageInfo;
    ref_ptr<PntPntArray> adjust;
    info->getMatchPnts(adjust);
    if (!adjust || adjust->getCount() < 3) {
        msgWarningQt(tr("Three adjust points at least!"));
        return -1;
    }
    ref_ptr<IKvoQvRefPlaneMan> planes;
    ref_ptr<IKvoQvRefPlane> plane;
    if (!mm->getRefPlaneMan(planes) || !planes || planes->getActivePlaneId() < 0 ||
        !planes->getPlane(plane, planes->getActivePlaneId()) || !plane) {
        msgWarningQt(tr("Please active a project plane!"));
        return -1;
    }
    // Plane coordinates: origin and the plane's own axes.
    const XPnt3d o = plane->getOrigin(), X = plane->getXDir(), Y = plane->getYDir();
    ref_ptr<Pnt2dArray> from = newPnt2dArray(), to = newPnt2dArray();
    for (const POINT_POINT& pp : adjust->vec()) {
        from->append(pp.uv);
        const XPnt3d d = pp.world - o;
        to->append(XPnt2d(dot(d, X), dot(d, Y)));
    }
    matrix<double> m;
    if (!calcAffineMatrix(from, to, m)) {
        msgWarningQt(tr("Matrix Invert Error!"));
        return kvoInvertFailed2;
    }
    info->setMappingType(2);
    while (info->getCtrlImagePntCount() > 0)
        info->removeCtrlImagePnt(0);
    while (info->getCtrlWorldPntCount() > 0)
        info->removeCtrlWorldPnt(0);
    for (const XPnt2d& c : {XPnt2d(-0.5, -0.5), XPnt2d(1.5, -0.5), XPnt2d(1.5, 1.5), XPnt2d(-0.5, 1.5)}) {
        info->addCtrlImagePnt(c);
        const XPnt3d q = calcAffinePnt(m, XPnt3d(c.x, c.y, 0));
        info->addCtrlWorldPnt(o + X * q.x + Y * q.y);
    }
    if (progress) {
        progress->setText(tr("Planar Mapping..."));
        progress->step(0.05);
    }
    const long previous = mm->getActiveImageId();
    mm->setActiveImageId(imageId);
    long rc;
    {
        KvoPrgPush push(progress, 0.95);
        rc = planeMapping(false, true, false, false, progress);
    }
    if (previous != imageId && previous > 0)
        mm->setActiveImageId(previous);
    mm->setDirty(true);
    return rc;
}

} // namespace kvo

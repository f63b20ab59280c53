#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <cmath>

#include "commands/KvoCommands.h"
#include "scene/KvoFile.h"

namespace kvo {

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("Quovara", text);
}

const KvoColor4b kMarkColour(255, 0, 0, 255);

ref_ptr<IKvoMesh> activeTexMesh()
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoMesh> mesh;
    if (mm->getActiveImageId() > 0)
        mm->getTexMeshOfImage(mesh, mm->getActiveImageId());
    return mesh;
}

} // namespace

unsigned long long getSelMarkCount(const ref_ptr<IKvoMesh>& mesh)
{
    if (!mesh || !mesh->getSelMarks())
        return 0;
    const ByteArray* marks = mesh->getSelMarks();
    const unsigned char* p = marks->getData();
    unsigned long long n = 0;
    for (long i = 0, c = marks->getCount(); i < c; ++i)
        n += p[i] ? 1 : 0;
    return n;
}

unsigned long long getSelMarkCount(const ref_ptr<MeshArray>& meshes)
{
    unsigned long long n = 0;
    if (meshes)
        for (const ref_ptr<IKvoMesh>& m : meshes->vec())
            n += getSelMarkCount(m);
    return n;
}

long selMeshAllInPainter(bool activeImageOnly)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoModel> model;
    if (!mm->getBareModel(model))
        return 0;
    ref_ptr<MeshArray> meshes = newMeshArray();
    if (activeImageOnly) {
        ref_ptr<IKvoMesh> mesh = activeTexMesh();
        if (!mesh)
            return -1;
        meshes->append(mesh);
    } else {
        mm->getShownMeshes(meshes);
    }
    for (const ref_ptr<IKvoMesh>& mesh : meshes->vec()) {
        const long n = mesh->getFaceCount();
        if (n <= 0)
            continue;
        ref_ptr<ByteArray> marks = newByteArray();
        marks->vec().assign(size_t(n), 1);
        mesh->setSelMarks(marks.get());
        mesh->setSelColor(kMarkColour);
        mesh->refreshDisplay();
        mm->notifySelMarkCount(getSelMarkCount(mesh));
    }
    return 0;
}

long selMeshClearInPainter()
{
    IKvoMM* mm = getMM();
    ref_ptr<MeshArray> meshes;
    mm->getAllMeshes(meshes);
    for (const ref_ptr<IKvoMesh>& mesh : meshes->vec())
        if (mesh->hasSelMarks()) {
            mesh->clearSelMarks();
            mesh->resetSelColor();
        }
    mm->notifySelMarkCount(getSelMarkCount(meshes));
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        vm->redrawModelView();
    return 0;
}

long selMeshReverseInPainter(bool activeImageOnly)
{
    IKvoMM* mm = getMM();
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM()) {
        ref_ptr<IZebViewer> viewer;
        ref_ptr<IKvoTrackBall> ball;
        if (vm->getViewer(viewer, kvoModelView) && viewer->getTrackBall(ball))
            ball->resetPickState();
    }
    if (activeImageOnly) {
        ref_ptr<IKvoMesh> mesh = activeTexMesh();
        if (!mesh || mesh->getFaceCount() < 1)
            return -1;
        mesh->invertSelMarks();
        mesh->setSelColor(kMarkColour);
        mesh->refreshDisplay();
        mm->notifySelMarkCount(getSelMarkCount(mesh));
        return 0;
    }
    ref_ptr<IKvoModel> model;
    if (!mm->getBareModel(model)) {
        msgWarningQt(tr("No data is opened..."));
        return 0;
    }
    ref_ptr<MeshArray> meshes;
    mm->getShownMeshes(meshes);
    for (const ref_ptr<IKvoMesh>& mesh : meshes->vec()) {
        mesh->invertSelMarks();
        mesh->setSelColor(kMarkColour);
        mm->notifySelMarkCount(getSelMarkCount(mesh));
    }
    return 0;
}

QString getTempImgPath(long id)
{
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    if (!getMM()->getProject(project) || !project->getImageDb(db) || !db->getImageInfo(info, id))
        return QString();
    const QString source = info->getFilePath(kvoPathImage);
    const QString target = QString("%1/%2.%3").arg(getWorkFolder()).arg(id).arg(QFileInfo(source).completeSuffix());
    QFile::copy(source, target);
    return target;
}

long getFrontPnt(XPnt3d& out)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoModel> model;
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!mm->getBareModel(model) || !vm)
        return -1;
    ref_ptr<IZebViewer> viewer;
    ref_ptr<IKvoTrackBall> ball;
    if (!vm->getViewer(viewer, kvoModelView) || !viewer->getTrackBall(ball))
        return -1;
    const XPnt3d eye = ball->getEye();
    ref_ptr<MeshArray> meshes;
    mm->getBareMeshes(meshes);
    const XPnt3f* v = model->getVertices()->getData();
    const long nv = model->getVertexCount();
    double best = 99999.0;
    long index = -1;
    for (const ref_ptr<IKvoMesh>& mesh : meshes->vec()) {
        const UIntArray* tris = mesh->getTriangleIndices();
        const unsigned* t = tris->getData();
        for (long i = 0, n = tris->getCount() / 3 * 3; i < n; ++i) {
            if (long(t[i]) >= nv)
                continue;
            const double d = (v[t[i]].to3d() - eye).norm();
            if (d < best) {
                best = d;
                index = long(t[i]);
            }
        }
    }
    if (index >= 0)
        out = v[index].to3d();
    return index;
}

Enve3d modelMinBoundBox()
{
    IKvoMM* mm = getMM();
    Enve3d box;
    if (!mm->hasModelData()) {
        msgWarningQt(tr("No model data!"));
        return box;
    }
    ref_ptr<MeshArray> shown, textured;
    mm->getShownMeshes(shown);
    mm->getTexMeshes(textured);
    if (shown->getCount() == 0 && textured->getCount() == 0) {
        msgWarningQt(tr("No mesh is visible!"));
        return box;
    }
    for (const ref_ptr<MeshArray>& list : {shown, textured})
        for (const ref_ptr<IKvoMesh>& mesh : list->vec()) {
            Enve3d e;
            mesh->getEnvelope(e);
            box.add(e);
        }
    return box;
}

namespace {
// Distance along the ray to the triangle, or a negative value on a miss.
double rayTriangle(const XPnt3d& o, const XPnt3d& d, const XPnt3d& a, const XPnt3d& b, const XPnt3d& c)
{
    const XPnt3d e1 = b - a, e2 = c - a, p = d.cross(e2);
    const double det = e1.dot(p);
    if (std::fabs(det) < 1e-300)
        return -1;
    const XPnt3d t = o - a;
    const double u = t.dot(p) / det;
    if (u < 0 || u > 1)
        return -1;
    const XPnt3d q = t.cross(e1);
    const double v = d.dot(q) / det;
    if (v < 0 || u + v > 1)
        return -1;
    return e2.dot(q) / det;
}
} // namespace

long cmdOnSetTexMeshImageActive(PT2<long> pixel, unsigned& a, unsigned& b, unsigned& c)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoModel> model;
    if (!mm->getBareModel(model)) {
        msgWarningTitled(tr("ERROR"), tr("No Model!"));
        return -1;
    }
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    ref_ptr<IZebViewer> viewer;
    ref_ptr<IKvoTrackBall> ball;
    XPnt3d origin, dir;
    if (!vm || !vm->getViewer(viewer, kvoModelView) || !viewer->getTrackBall(ball) ||
        !ball->getRay(double(pixel.x), double(pixel.y), origin, dir))
        return -1;
    const XPnt3f* v = model->getVertices()->getData();
    const long nv = model->getVertexCount();
    // The last mesh is drawn on top: it answers first.
    for (long i = model->getMeshCount() - 1; i >= 0; --i) {
        ref_ptr<IKvoMesh> mesh = model->getMesh(i);
        if (!mm->isTexMesh(mesh) || mm->isMeshAsleep(mesh))
            continue;
        const unsigned* t = mesh->getTriangleIndices()->getData();
        double best = -1;
        long hit = -1;
        for (long f = 0, n = mesh->getFaceCount(); f < n; ++f) {
            if (long(t[3 * f]) >= nv || long(t[3 * f + 1]) >= nv || long(t[3 * f + 2]) >= nv)
                continue;
            const double d =
                rayTriangle(origin, dir, v[t[3 * f]].to3d(), v[t[3 * f + 1]].to3d(), v[t[3 * f + 2]].to3d());
            if (d > 0 && (hit < 0 || d < best)) {
                best = d;
                hit = f;
            }
        }
        if (hit >= 0) {
            a = t[3 * hit];
            b = t[3 * hit + 1];
            c = t[3 * hit + 2];
            return mesh->getImageId();
        }
    }
    return -1;
}

namespace {

// Keeps the image panel in step with the image database.
class CQvImageDbEventImp : public IKvoImageDbEvent {
public:
    void onImageAdded(long id) override { refresh(id); }
    void onImageRemoved(long) override { refresh(0); }
    void onImageChanged(long id) override { refresh(id); }

private:
    static void refresh(long id)
    {
        if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
            if (IZebImagePanel* panel = vm->getImagePanel())
                panel->refreshImage(id);
    }
};

} // namespace

ref_ptr<IKvoImageDbEvent> newImageDbEvent()
{
    return ref_ptr<IKvoImageDbEvent>(new CQvImageDbEventImp());
}

} // namespace kvo

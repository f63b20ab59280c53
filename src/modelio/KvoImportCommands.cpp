#include "modelio/KvoImportCommands.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cmath>

#include "commands/KvoCommands.h"
#include "modelio/KvoMeshRepair.h"
#include "modelio/KvoObjModelBuild.h"
#include "modelio/QDlgImportMesh.h"
#include "scene/KvoPresenter.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

const char* const kInvalidFacesQuestion =
    "Mesh has invalid faces.\nIf Mesh has invalid faces, some function will not work!\nDo you want to repair?";

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("Quovara", text);
}

KvoObjImportReport& report()
{
    static KvoObjImportReport r;
    return r;
}

QWidget* mainFrame()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    return vm ? vm->getMainFrame() : nullptr;
}

// The formats that are always kept out of memory, and bitmaps too big to load.
bool isBigPicture(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == "bmp")
        return QFileInfo(path).size() / 0x100000 > 300;
    return suffix == "tbm" || suffix == "ptml" || suffix == "ptm";
}

bool texIndicesUsable(const QvObjGroup& g, long texCoordCount)
{
    if (!g.texIndices)
        return false;
    for (unsigned t : g.texIndices->vec())
        if (long(t) >= texCoordCount)
            return false;
    return true;
}

// Makes the image and texture mesh of each group that has a picture; the ids made.
std::vector<long> importGroupImages(QvObjModel& obj, IKvoImageDb& db, IKvoProgress* progress)
{
    IKvoMM* mm = getMM();
    KvoObjImportReport& r = report();
    std::vector<long> ids;
    const size_t n = obj.groups.size();
    for (size_t gi = 0; gi < n; ++gi) {
        prgStep(progress, 1.0 / double(n));
        QvObjGroup& g = obj.groups[gi];
        if (g.triangles.empty() || g.material < 0 || size_t(g.material) >= obj.materials.size())
            continue;
        const QString map = obj.materials[size_t(g.material)].mapKd;
        if (map.isEmpty())
            continue;
        const QString path = resolveObjName(obj.pathName, map);
        if (!QFileInfo(path).isFile()) {
            if (!r.missingPictures.contains(map))
                r.missingPictures << map;
            continue;
        }
        // Faces without usable texture coordinates cannot carry the picture.
        if (!g.indices || !texIndicesUsable(g, obj.texCoords->getCount())) {
            r.failedPictures << QString("%1 (%2)").arg(map, tr("faces without texture coordinates"));
            continue;
        }
        long id = -1;
        const long rc = isBigPicture(path) ? db.addBigImage(path, id) : db.addImage(path, id);
        if (rc != kvoOk || id < 0) {
            r.failedPictures << QString("%1 (%2)").arg(map, tr("not a picture that can be read"));
            continue;
        }
        ids.push_back(id);
        ref_ptr<IKvoImageInfo> info;
        db.getImageInfo(info, id);
        ref_ptr<IKvoMesh> mesh;
        mm->createTexMesh(mesh, false, id, true);
        if (!mesh)
            continue;
        ref_ptr<IKvoImage> pixels;
        mesh->setImage(db.getTexture(pixels, id, 2));
        mesh->setFaceNormals(g.normals.get(), false);
        mesh->setCornerTexIndices(g.indices.get(), g.texIndices.get());
        mesh->setUVs(obj.texCoords.get());
        mesh->setTriangleIndices(g.indices.get(), true);
        r.images << (info ? info->getName() : QString::number(id));
        ++r.textureMeshes;
    }
    return ids;
}

// A camera that sees the whole box from the front and a little above.
void fitModelView(const Enve3d& box)
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    ref_ptr<IZebViewer> viewer;
    ref_ptr<IKvoTrackBall> ball;
    if (!vm || !vm->getModelViewer(viewer) || !viewer->getTrackBall(ball) || !box.isValid())
        return;
    const XPnt3d lo = box.getMinPnt(), hi = box.getMaxPnt();
    const XPnt3d center((lo.x + hi.x) / 2, (lo.y + hi.y) / 2, (lo.z + hi.z) / 2);
    const double radius = std::max(1e-6, 0.5 * std::sqrt((hi.x - lo.x) * (hi.x - lo.x) + (hi.y - lo.y) * (hi.y - lo.y) +
                                                         (hi.z - lo.z) * (hi.z - lo.z)));
    const double fov = ball->getFovY() > 1 ? ball->getFovY() : 30.0;
    const double distance = radius / std::sin(fov * M_PI / 360.0);
    const XPnt3d eye(center.x, center.y - distance * 0.94, center.z + distance * 0.34);
    ball->setCamera(eye, center, XPnt3d(0, 0, 1));
}

QString problemsText(const KvoObjImportReport& r)
{
    QStringList lines;
    if (r.mtlMissing)
        lines << tr("The material file %1 was not found; the model has no textures from it.").arg(r.mtlName);
    if (!r.missingPictures.isEmpty())
        lines << tr("These pictures were not found:\n%1").arg(r.missingPictures.join("\n"));
    if (!r.failedPictures.isEmpty())
        lines << tr("These pictures could not be used:\n%1").arg(r.failedPictures.join("\n"));
    return lines.join("\n\n");
}

// Every triangle of the bare meshes, in mesh order.
ref_ptr<UIntArray> bareTriangles(IKvoMM* mm)
{
    ref_ptr<UIntArray> all = newUIntArray();
    ref_ptr<MeshArray> bare;
    mm->getBareMeshes(bare);
    if (bare)
        for (auto& m : bare->vec())
            if (const UIntArray* t = m->getTriangleIndices())
                all->vec().insert(all->vec().end(), t->vec().begin(), t->vec().end());
    return all;
}

} // namespace

const KvoObjImportReport& lastObjImportReport()
{
    return report();
}

long checkModelMesh(Rec3D::KvoHalfEdgeMesh& mesh, std::vector<unsigned>& refused)
{
    refused.clear();
    IKvoMM* mm = getMM();
    ref_ptr<IKvoModel> model;
    if (!mm->getBareModel(model))
        return 0;
    ref_ptr<UIntArray> tris = bareTriangles(mm);
    const Pnt3fArray* verts = model->getVertices();
    return Rec3D::RecMesh::createMesh(mesh, verts ? verts->getData() : nullptr, model->getVertexCount(),
                                      tris->getData(), tris->getCount() / 3,
                                      Rec3D::RecMesh::kKeepVertexIndex | Rec3D::RecMesh::kKeepFaceIndex, refused);
}

long repairModelMesh(Rec3D::KvoHalfEdgeMesh& he, IKvoProgress* progress)
{
    if (!he.hasProperty("VPropVerIdx") || !he.hasProperty("FPropFaceIdx"))
        return -1;
    IKvoMM* mm = getMM();
    ref_ptr<IKvoModel> model;
    if (!mm->getBareModel(model))
        return -1;
    const long facesBefore = bareTriangles(mm)->getCount() / 3;
    {
        KvoPrgPush push(progress, 0.3);
        Rec3D::RecMesh::newIKvoRefineMesh(he, progress);
    }
    const long oldNv = model->getVertexCount();

    // Vertices in the mesh's order, and where each old vertex went.
    const long nv = he.getVertexCount();
    ref_ptr<Pnt3fArray> verts = newPnt3fArray();
    verts->resize(nv);
    std::vector<unsigned> table(size_t(oldNv), kObjNoIndex);
    for (long v = 0; v < nv; ++v) {
        (*verts)[v] = he.getPoint(v);
        const unsigned old = he.getVertexIndexProp(v);
        if (old != Rec3D::kAddedVertex && long(old) < oldNv)
            table[old] = unsigned(v);
    }
    // Faces in the mesh's order, and the old triangles that survived.
    const long nf = he.getFaceCount();
    ref_ptr<UIntArray> tris = newUIntArray();
    tris->resize(nf * 3);
    std::vector<XTrip<unsigned>> surviving;
    surviving.reserve(size_t(nf));
    for (long f = 0; f < nf; ++f) {
        unsigned c[3];
        he.getFaceVertices(f, c);
        unsigned old[3];
        bool added = false;
        for (int k = 0; k < 3; ++k) {
            (*tris)[3 * f + k] = c[k];
            old[k] = he.getVertexIndexProp(long(c[k]));
            added = added || old[k] == Rec3D::kAddedVertex;
        }
        if (!added)
            surviving.push_back(XTrip<unsigned>(old[0], old[1], old[2]).normalize());
    }
    std::sort(surviving.begin(), surviving.end());
    surviving.erase(std::unique(surviving.begin(), surviving.end()), surviving.end());
    auto survives = [&](XTrip<unsigned> t) {
        return std::binary_search(surviving.begin(), surviving.end(), t.normalize());
    };

    // One bare mesh with what survived.
    ref_ptr<MeshArray> bare;
    mm->getBareMeshes(bare);
    if (bare)
        for (auto& m : bare->vec())
            mm->deleteBareMesh(m);
    if (Pnt2fArray* uv = model->getTexCoords(); uv && uv->getCount() == oldNv && nv != oldNv) {
        ref_ptr<Pnt2fArray> moved = newPnt2fArray();
        moved->resize(nv);
        for (long i = 0; i < oldNv; ++i)
            if (table[size_t(i)] != kObjNoIndex)
                (*moved)[long(table[size_t(i)])] = uv->getAt(i);
        model->setTexCoords(moved.get());
    }
    model->setVertices(verts.get(), true);
    ref_ptr<IKvoMesh> mesh;
    mm->createTexMesh(mesh, true, 0, true);
    if (mesh) {
        mesh->setTriangleIndices(tris.get(), true);
        mesh->computeFaceNormals();
    }
    model->setVertexNormals(averagedVertexNormals(*model).get(), true, false);
    prgStep(progress, 0.3);

    // Each texture mesh keeps the triangles that survived, with their UVs.
    ref_ptr<MeshArray> texMeshes;
    mm->getTexMeshes(texMeshes);
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoProject> project;
    if (mm->getProject(project))
        project->getImageDb(db);
    const long texCount = texMeshes ? texMeshes->getCount() : 0;
    for (long i = 0; i < texCount; ++i) {
        ref_ptr<IKvoMesh> old = texMeshes->getAt(i);
        const UIntArray* ot = old->getTriangleIndices();
        const UIntArray* oc = old->getCornerTexIndices();
        const Pnt3fArray* on = old->getFaceNormals();
        const long faces = old->getFaceCount();
        const bool normalsFit = on && on->getCount() == faces;
        ref_ptr<UIntArray> keptTris = newUIntArray(), keptCorners = newUIntArray();
        ref_ptr<Pnt3fArray> keptNormals = newPnt3fArray();
        for (long f = 0; f < faces; ++f) {
            const unsigned a = ot->getAt(3 * f), b = ot->getAt(3 * f + 1), c = ot->getAt(3 * f + 2);
            if (long(a) >= oldNv || long(b) >= oldNv || long(c) >= oldNv || !survives(XTrip<unsigned>(a, b, c)))
                continue;
            const unsigned na = table[a], nb = table[b], nc = table[c];
            if (na == kObjNoIndex || nb == kObjNoIndex || nc == kObjNoIndex)
                continue;
            keptTris->append(na);
            keptTris->append(nb);
            keptTris->append(nc);
            // Without a corner table the UVs are per old vertex: the corner keeps pointing there.
            for (int k = 0; k < 3; ++k)
                keptCorners->append(oc ? oc->getAt(3 * f + k) : ot->getAt(3 * f + k));
            if (normalsFit)
                keptNormals->append(on->getAt(f));
        }
        const long imageId = old->getImageId();
        const bool tiled = old->isTiled();
        const QString name = old->getName();
        const bool asleep = mm->isMeshAsleep(old);
        const bool shown = old->isMeshShown();
        ref_ptr<Pnt2fArray> uvs(old->getUVs());
        ref_ptr<IKvoImage> image;
        old->getImage(image);
        ref_ptr<IKvoImageInfo> info;
        if (db)
            db->getImageInfo(info, imageId);
        const long mappingType = info ? info->getMappingType() : -1;
        mm->deleteTexMesh(old, 0, nullptr);
        ref_ptr<IKvoMesh> fresh;
        mm->createTexMesh(fresh, false, imageId, tiled);
        if (!fresh)
            continue;
        // Deleting the mesh forgot the image's mapping; the image is still mapped.
        if (info)
            info->setMappingType(mappingType);
        fresh->setName(name);
        fresh->setImage(image);
        fresh->setUVs(uvs.get());
        if (normalsFit)
            fresh->setFaceNormals(keptNormals.get(), false);
        fresh->setCornerTexIndices(keptTris.get(), keptCorners.get());
        fresh->setTriangleIndices(keptTris.get(), true);
        fresh->setMeshShown(shown);
        if (asleep)
            mm->sleepMesh(fresh, nullptr);
        prgStep(progress, 0.4 / double(texCount));
    }
    mm->commitTexEdit();
    return facesBefore - nf;
}

long cmdOnFileAddKvomodel(const QString& file)
{
    KvoObjImportReport& r = report();
    r = KvoObjImportReport();
    r.file = file;
    IKvoMM* mm = getMM();
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    ref_ptr<IKvoProject> project;
    if (!mm->getProject(project))
        return r.result = kvoNoProject;
    ref_ptr<IKvoModel> existing;
    if (mm->getBareModel(existing))
        return r.result = kvoModelExists;

    ref_ptr<IKvoImageDb> db;
    project->getImageDb(db);
    IKvoProgress* progress = vm ? vm->getProgress() : nullptr;
    prgText(progress, tr("Importing bare model..."));
    prgStep(progress, 0.01);

    QvObjModel obj;
    ref_ptr<IKvoModel> model = newKvoModel();
    unsigned imageCount = 0;
    long rc;
    long badFaces = 0;
    {
        KvoPrgPush push(progress, 0.29);
        const bool wasDirty = mm->isDirty();
        mm->setBareModel(model);
        rc = buildModelFromObj(file, model, obj, imageCount, progress, &badFaces);
        if (rc != 0) {
            // A file that gives no model leaves the project as it was.
            mm->setBareModel(ref_ptr<IKvoModel>());
            mm->setDirty(wasDirty);
        } else {
            mm->commitTexEdit();
        }
    }
    if (rc != 0) {
        const QString name = QFileInfo(file).fileName();
        if (!QFileInfo(file).isFile())
            r.error = tr("Cannot open the file %1.").arg(file);
        else if (rc == kvoObjNotText)
            r.error = tr("The file %1 is not an OBJ text file.").arg(name);
        else if (rc == kvoObjBadIndex)
            r.error =
                tr("The file %1 is damaged: %2 faces refer to vertices that it does not hold.").arg(name).arg(badFaces);
        else if (rc == kvoObjNoMesh)
            r.error = tr("The model of %1 could not be made.").arg(name);
        else if (!obj.vertices || obj.vertices->getCount() == 0)
            r.error = tr("The file %1 holds no vertices.").arg(name);
        else
            r.error = tr("Cannot open the file %1.").arg(file);
        prgStep(progress, 1.0);
        msgWarningQt(r.error);
        return r.result = -1;
    }
    r.vertices = model->getVertexCount();
    r.groups = long(obj.groups.size());
    r.mtlName = obj.mtlName;
    r.mtlMissing = obj.mtlMissing;

    prgText(progress, tr("After processing of bare model..."));
    Enve3d box;
    {
        KvoPrgPush push(progress, 0.2);
        const QString fileName = QFileInfo(file).fileName();
        mm->setModelName(fileName);
        mm->getModelEnvelope(box);
        IZebMeshPanel* meshPanel = vm ? vm->getMeshPanel() : nullptr;
        for (long i = 0, n = model->getMeshCount(); i < n; ++i) {
            ref_ptr<IKvoMesh> mesh = model->getMesh(i);
            mesh->setName(QString("Mesh %1").arg(mesh->getId()));
            r.triangles += mesh->getFaceCount();
            ++r.bareMeshes;
            if (meshPanel)
                meshPanel->add(mesh, "Bare Mesh");
        }
        prgStep(progress, 1.0);
    }

    prgText(progress, tr("Import MTL Images..."));
    {
        KvoPrgPush push(progress, 0.2);
        if (imageCount > 0 && db) {
            // The group the new images go under in the image panel; a host without
            // widgets has no panel to ask for.
            if (qobject_cast<QApplication*>(QCoreApplication::instance())) {
                cmdImageTreeQt();
                QCoreApplication::processEvents();
            }
            const std::vector<long> ids = importGroupImages(obj, *db, progress);
            if (vm && vm->getImagePanel())
                vm->getImagePanel()->refreshImage(0);
            if (!ids.empty())
                mm->setActiveImageId(ids.front());
            if (vm && vm->getMeshPanel())
                vm->getMeshPanel()->refreshSection("Texture Mesh");
        }
    }
    // The groups' lists are in the meshes now.
    obj = QvObjModel();

    {
        Rec3D::KvoHalfEdgeMesh he;
        std::vector<unsigned> refused;
        checkModelMesh(he, refused);
        r.refusedFaces = long(refused.size());
        if (!refused.empty() && msgYesNoQt(tr(kInvalidFacesQuestion), QString())) {
            prgText(progress, tr("Repairing mesh..."));
            KvoPrgPush push(progress, 0.1);
            const long lost = repairModelMesh(he, progress);
            r.repaired = lost >= 0;
            r.removedFaces = std::max(0L, lost);
            r.triangles -= r.removedFaces;
        }
    }

    prgText(progress, tr("Saving model file..."));
    const QString modelFile = QFileInfo(file).fileName();
    mm->setModelFileName(modelFile);
    long saved;
    {
        KvoPrgPush push(progress, 0.3);
        saved = project->save(progress);
    }
    if (saved != kvoOk) {
        r.error = tr("The model was imported but the project could not be saved: %1").arg(mm->getLastError());
        msgWarningQt(r.error);
        return r.result = -1;
    }
    const QString target = project->getFolder() + "/" + modelFile;
    if (QFileInfo(file).absoluteFilePath() != QFileInfo(target).absoluteFilePath()) {
        QFile::remove(target);
        if (QFile::copy(file, target))
            r.copiedTo = target;
    }
    prgStep(progress, 0.1);

    fitModelView(box);
    if (vm)
        vm->updateViews();
    const QString problems = problemsText(r);
    if (!problems.isEmpty())
        msgWarningQt(problems);
    return r.result = 1;
}

long cmdImportMesh(const QString& projectFile)
{
    if (!projectAndWidgetsOrSay(tr("Importing from a project needs the user interface.")))
        return -1;
    QDlgImportMesh dialog(mainFrame());
    if (dialog.initFromProject(projectFile) < 0) {
        if (!projectFile.isEmpty())
            msgWarningQt(dialog.lastError());
        return -1;
    }
    getPresenter()->execDialog(&dialog);
    return 0;
}

} // namespace kvo

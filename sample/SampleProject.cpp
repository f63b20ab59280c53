#include "SampleProject.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

#include "SampleCameraFiles.h"
#include "SampleWriter.h"
#include "camera/KvoVirtualCamera.h"
#include "scene/KvoRecords.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace qvsample {

bool readSampleFolder(const QString& folder, SampleOptions& options, std::vector<SampleCamera>& cameras, QString& error)
{
    QFile file(QDir(folder).filePath("scene.json"));
    if (!file.open(QIODevice::ReadOnly)) {
        error = QString("%1 is not a generated scene (no scene.json).").arg(folder);
        return false;
    }
    QJsonParseError parse;
    const QJsonObject root = QJsonDocument::fromJson(file.readAll(), &parse).object();
    const QJsonObject made = root["options"].toObject();
    if (parse.error != QJsonParseError::NoError || made.isEmpty() ||
        !parseKind(root["kind"].toString().toStdString(), options.kind)) {
        error = QString("%1 is not a scene description this version can read.").arg(file.fileName());
        return false;
    }
    options.seed = unsigned(root["seed"].toDouble());
    options.photos = made["photos"].toInt();
    options.triangles = long(made["triangles"].toDouble());
    options.photoWidth = made["photoSize"].toArray()[0].toInt();
    options.photoHeight = made["photoSize"].toArray()[1].toInt();
    options.texelsPerMetre = made["texelsPerMetre"].toDouble();
    cameras.clear();
    for (const QJsonValue& value : root["photos"].toArray()) {
        const QJsonObject p = value.toObject();
        SampleCamera c;
        c.name = QFileInfo(p["file"].toString()).fileName().toStdString();
        c.width = p["width"].toInt();
        c.height = p["height"].toInt();
        c.fx = p["fx"].toDouble();
        c.fy = p["fy"].toDouble();
        c.cx = p["cx"].toDouble();
        c.cy = p["cy"].toDouble();
        const QJsonArray R = p["R"].toArray(), t = p["t"].toArray();
        if (R.size() != 9 || t.size() != 3 || c.width <= 0 || c.height <= 0 || !(c.fy > 0)) {
            error = QString("%1: photograph %2 has no usable camera.").arg(file.fileName(), p["file"].toString());
            return false;
        }
        for (int i = 0; i < 9; ++i)
            c.R[i] = R[i].toDouble();
        for (int i = 0; i < 3; ++i)
            c.t[i] = t[i].toDouble();
        c.focalMm = p["focalMm"].toDouble();
        cameras.push_back(c);
    }
    return true;
}

long buildProjectFromSample(const QString& sampleFolder, const QString& projectFile, QString& error)
{
    SampleOptions options;
    std::vector<SampleCamera> cameras;
    if (!readSampleFolder(sampleFolder, options, cameras, error))
        return kvoErrBadFile;
    // The geometry is made again from the seed: the generator is deterministic.
    options.textures = false;
    const SampleScene scene = buildSampleScene(options);

    IKvoMM* mm = getMM();
    long rc = mm->newProject(projectFile);
    if (rc != kvoOk) {
        error = mm->getLastError();
        return rc;
    }
    ref_ptr<IKvoModel> model = newKvoModel();
    model->setName(QString("Sample %1").arg(kindName(options.kind)));
    ref_ptr<Pnt3fArray> vertices = newPnt3fArray();
    vertices->vec() = scene.mesh.vertices;
    model->setVertices(vertices.get(), true);
    for (const SampleSurface& s : scene.surfaces) {
        ref_ptr<IKvoMesh> mesh = model->newMesh(-1, false);
        ref_ptr<UIntArray> tris = newUIntArray();
        tris->vec().assign(scene.mesh.triangles.begin() + s.firstTriangle * 3,
                           scene.mesh.triangles.begin() + (s.firstTriangle + s.triangleCount) * 3);
        mesh->setTriangleIndices(tris.get(), true);
        mesh->setName(QString::fromStdString(s.name));
        model->addMesh(mesh);
    }
    model->setVertexNormals(nullptr, true, true);
    mm->setBareModel(model);
    mm->setModelFileName("model.obj");

    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    mm->getProject(project)->getImageDb(db);
    const QDir dir(sampleFolder);
    for (const SampleCamera& c : cameras) {
        const QString name = QString::fromStdString(c.name);
        long id = -1;
        if (db->addImage(dir.filePath("photos/" + name), id) != kvoOk) {
            error = QString("Cannot add %1 to the project.").arg(dir.filePath("photos/" + name));
            mm->closeProject();
            return kvoErrIO;
        }
        ref_ptr<IKvoImageInfo> info;
        db->getImageInfo(info, id);
        std::vector<SampleControlPoint> points;
        std::string why;
        const QString cpFile = dir.filePath("control_points/" + QFileInfo(name).completeBaseName() + ".txt");
        if (readControlPoints(cpFile.toStdString(), points, &why))
            for (const SampleControlPoint& p : points) {
                info->addCtrlImagePnt(XPnt2d(p.u, p.v));
                info->addCtrlWorldPnt(p.world);
            }
        // The known pose as the photograph's virtual camera: the eye, a point
        // straight ahead, and the picture's up.
        ZebQVVCParam vc;
        vc.eye = c.center();
        const XPnt3d forward(c.R[6], c.R[7], c.R[8]);
        vc.center = vc.eye + forward * 10.0;
        vc.up = XPnt3d(-c.R[3], -c.R[4], -c.R[5]);
        vc.fovY = c.fovYDegrees();
        mm->setVCParam(id, vc);
    }
    ref_ptr<LongArray> ids;
    if (db->getImageIds(ids)->getCount() > 0)
        mm->setActiveImageId(ids->getAt(0));
    rc = mm->saveProject();
    if (rc != kvoOk)
        error = mm->getLastError();
    return rc;
}

long makeSampleProject(const SampleOptions& options, const QString& sceneFolder, const QString& projectFile,
                       QString& error, SampleScene* scene)
{
    std::string why;
    if (!writeSample(options, sceneFolder.toStdString(), &why, nullptr, scene)) {
        error = QString::fromStdString(why);
        return kvo::kvoErrBadFile;
    }
    return buildProjectFromSample(sceneFolder, projectFile, error);
}

long mapThroughStoredCameras(kvo::IKvoProgress* progress)
{
    kvo::IKvoMM* mm = kvo::getMM();
    kvo::ref_ptr<kvo::IKvoProject> project;
    kvo::ref_ptr<kvo::IKvoImageDb> db;
    kvo::ref_ptr<kvo::LongArray> ids;
    if (!mm->getProject(project) || !project->getImageDb(db) || !db->getImageIds(ids))
        return 0;
    long mapped = 0;
    for (long id : ids->vec()) {
        ZebQVVCParam camera;
        zebUI::_ZebVCMapParam_ frame;
        if (!mm->getVCParam(id, camera) || !kvo::calVCFrame(id, camera, kvo::kvoVCFrameModel, frame))
            continue;
        mm->setActiveImageId(id);
        kvo::KvoPrgPush push(progress, 1.0 / double(ids->getCount()));
        kvo::VCMapping(camera, frame, false, false, true, progress);
        ++mapped;
    }
    if (mm->isTexEditOpen()) {
        mm->commitTexEdit();
        mm->closeTexEdit();
    }
    return mapped;
}

} // namespace qvsample

// The generator of scenes with a known answer.

#include <QDir>
#include <QFile>

#include "CliSupport.h"
#include "SampleProject.h"
#include "SampleWriter.h"
#include "camera/KvoVirtualCamera.h"
#include "platform/KvoProjectReport.h"
#include "scene/KvoStore.h"

namespace qvcli {
namespace {

bool toNumber(const QString& s, long& out, long lo, long hi)
{
    bool ok = false;
    out = s.toLong(&ok);
    return ok && out >= lo && out <= hi;
}

int cmdSample(const QStringList& args)
{
    qvsample::SampleOptions o;
    QString folder;
    for (int i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        const bool hasValue = i + 1 < args.size();
        const QString value = hasValue ? args[i + 1] : QString();
        long n = 0;
        if (!hasValue)
            return 2;
        ++i;
        if (a == "--out") {
            folder = value;
        } else if (a == "--kind") {
            if (!qvsample::parseKind(value.toStdString(), o.kind)) {
                err(QString("unknown kind '%1' (building, plane or wall)").arg(value));
                return 2;
            }
        } else if (a == "--photos") {
            if (!toNumber(value, n, 1, 200)) {
                err("--photos takes a number from 1 to 200");
                return 2;
            }
            o.photos = int(n);
        } else if (a == "--seed") {
            if (!toNumber(value, n, 0, 0xffffffffL)) {
                err("--seed takes a number from 0 to 4294967295");
                return 2;
            }
            o.seed = unsigned(n);
        } else if (a == "--triangles") {
            if (!toNumber(value, n, 2, 16000000)) {
                err("--triangles takes a number from 2 to 16000000");
                return 2;
            }
            o.triangles = n;
        } else if (a == "--size") {
            const QStringList wh = value.split('x');
            long w = 0, h = 0;
            if (wh.size() != 2 || !toNumber(wh[0], w, 64, 8192) || !toNumber(wh[1], h, 64, 8192)) {
                err("--size takes WIDTHxHEIGHT, each from 64 to 8192");
                return 2;
            }
            o.photoWidth = int(w);
            o.photoHeight = int(h);
        } else if (a == "--texels") {
            if (!toNumber(value, n, 4, 1024)) {
                err("--texels takes a number of texels a metre from 4 to 1024");
                return 2;
            }
            o.texelsPerMetre = double(n);
        } else {
            return 2;
        }
    }
    if (folder.isEmpty())
        return 2;
    TerminalProgress progress;
    double done = 0;
    std::string error;
    const bool ok = qvsample::writeSample(o, QDir(folder).absolutePath().toStdString(), &error,
                                          [&](double share, const std::string& caption) {
                                              progress.setText(QString::fromStdString(caption));
                                              progress.step(share - done);
                                              done = share;
                                          });
    progress.finish();
    if (!ok) {
        err(QString::fromStdString(error));
        return 1;
    }
    out(QString("Wrote a %1 scene with %2 photographs to %3")
            .arg(qvsample::kindName(o.kind))
            .arg(o.photos)
            .arg(QDir(folder).absolutePath()));
    return 0;
}

Register rSample("sample",
                 {"sample --out DIR [--kind building|plane|wall] [--photos N] [--seed S] [--triangles N] "
                  "[--size WxH] [--texels N]",
                  "writes a scene with a known answer: model (OBJ), ground-truth textures and textured model, "
                  "photographs with EXIF, control points, COLMAP and Bundler cameras, projection matrices and "
                  "scene.json. Defaults: building, 8 photographs of 1600x1200, seed 1, about 20000 triangles, "
                  "96 texels a metre",
                  cmdSample});

int cmdSampleProject(const QStringList& args)
{
    QString dir = QDir::currentPath() + "/quovara-demo";
    QString sample = QUOVARA_SAMPLE_DIR;
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == "--out" && i + 1 < args.size())
            dir = args[++i];
        else if (args[i] == "--sample" && i + 1 < args.size())
            sample = args[++i];
        else
            return 2;
    }
    if (!QDir().mkpath(dir)) {
        err(QString("cannot create %1").arg(dir));
        return 1;
    }
    const QString project = QDir(dir).absoluteFilePath("sample.qvj");
    // The demo always starts from scratch.
    QFile::remove(project);
    QDir(QDir(dir).absoluteFilePath("sample_files")).removeRecursively();
    out(QString("Making a project from the sample in %1...").arg(QDir(sample).absolutePath()));
    QString error;
    if (qvsample::buildProjectFromSample(sample, project, error) != kvo::kvoOk) {
        err(error);
        return 1;
    }
    // Each photograph mapped through its known camera, hidden triangles left out.
    kvo::IKvoMM* mm = kvo::getMM();
    kvo::ref_ptr<kvo::IKvoProject> proj;
    kvo::ref_ptr<kvo::IKvoImageDb> db;
    kvo::ref_ptr<kvo::LongArray> ids;
    mm->getProject(proj)->getImageDb(db);
    db->getImageIds(ids);
    TerminalProgress progress;
    for (long id : ids->vec()) {
        ZebQVVCParam camera;
        zebUI::_ZebVCMapParam_ frame;
        if (!mm->getVCParam(id, camera) || !kvo::calVCFrame(id, camera, kvo::kvoVCFrameModel, frame))
            continue;
        mm->setActiveImageId(id);
        progress.reset();
        kvo::VCMapping(camera, frame, false, false, true, &progress);
        progress.finish();
    }
    if (mm->isTexEditOpen())
        mm->commitTexEdit();
    if (!ids->vec().empty())
        mm->setActiveImageId(ids->getAt(0));
    if (int rc = saveOrFail())
        return rc;
    out(QString("Mapped %1 photographs through their cameras.").arg(ids->getCount()));
    kvo::getMM()->closeProject();
    out("Saved. Reopening it...");
    if (int rc = openOrFail(project))
        return rc;
    out(kvo::describeProject(*kvo::getMM()));
    return 0;
}

Register rSampleProject("sample-project",
                        {"sample-project [--sample DIR] [--out DIR]",
                         "makes a project from a generated scene (the bundled sample by default): its model, "
                         "photographs, control points and cameras, every photograph mapped onto the whole model "
                         "through its camera with hidden triangles left out; saves it as DIR/sample.qvj "
                         "(./quovara-demo unless given), reopens it and prints it",
                         cmdSampleProject});

} // namespace
} // namespace qvcli

// The generator of scenes with a known answer.

#include <QDir>
#include <QFile>

#include "CliSupport.h"
#include "SampleProject.h"
#include "SampleWriter.h"
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
    bool photosGiven = false;
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
                err(QString("unknown kind '%1' (building, plane, wall or realistic)").arg(value));
                return 2;
            }
        } else if (a == "--photos") {
            if (!toNumber(value, n, 1, 200)) {
                err("--photos takes a number from 1 to 200");
                return 2;
            }
            o.photos = int(n);
            photosGiven = true;
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
    // A real capture has many photographs.
    if (o.kind == qvsample::SceneKind::Realistic && !photosGiven)
        o.photos = 30;
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
                 {"sample --out DIR [--kind building|plane|wall|realistic] [--photos N] [--seed S] [--triangles N] "
                  "[--size WxH] [--texels N]",
                  "writes a scene with a known answer: model (OBJ), ground-truth textures and textured model, "
                  "photographs with EXIF, control points, COLMAP and Bundler cameras, projection matrices and "
                  "scene.json. Defaults: building, 8 photographs of 1600x1200 (30 for realistic), seed 1, about "
                  "20000 triangles, 96 texels a metre. realistic: things in front of the building the model "
                  "leaves out, vignetting and blur, and a model as reconstructions are (noise, grown outlines, "
                  "stray blobs, holes)",
                  cmdSample});

int cmdSampleProject(const QStringList& args)
{
    QString dir, sample;
    if (int rc = sampleAndOutArguments(args, sample, dir))
        return rc;
    const QString project = QDir(dir).absoluteFilePath("sample.qvj");
    // It always starts from scratch.
    QFile::remove(project);
    QDir(kvo::projectFolderOf(project)).removeRecursively();
    out(QString("Making a project from the sample in %1...").arg(sample));
    QString error;
    if (qvsample::buildProjectFromSample(sample, project, error) != kvo::kvoOk) {
        err(error);
        return 1;
    }
    // Each photograph mapped through its known camera, hidden triangles left out.
    TerminalProgress progress;
    const long mapped = qvsample::mapThroughStoredCameras(&progress);
    progress.finish();
    kvo::ref_ptr<kvo::LongArray> ids;
    if (imageDb()->getImageIds(ids)->getCount() > 0)
        kvo::getMM()->setActiveImageId(ids->getAt(0));
    if (int rc = saveOrFail())
        return rc;
    out(QString("Mapped %1 photographs through their cameras.").arg(mapped));
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

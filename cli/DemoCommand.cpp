// The main job on the bundled sample.

#include <QDir>
#include <QFile>

#include "CliSupport.h"
#include "SampleProject.h"
#include "camera/KvoVirtualCamera.h"
#include "platform/KvoProjectReport.h"
#include "scene/KvoStore.h"

namespace qvcli {
namespace {

int cmdDemo(const QStringList& args)
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

Register rDemo("demo",
               {"demo [--sample DIR] [--out DIR]",
                "makes a project from a generated scene (the bundled sample by default): its model, photographs, "
                "control points and cameras; saves it in DIR (./quovara-demo), reopens it and prints it",
                cmdDemo});

} // namespace
} // namespace qvcli

// The main job on the bundled sample, with a report of how good the result
// is against the scene's known answer.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <set>

#include "CliSupport.h"
#include "SampleQuality.h"
#include "autotexture/KvoTexturePipeline.h"
#include "scene/KvoStore.h"

namespace qvcli {

int runTextureJob(const kvo::KvoTextureJob& job, kvo::KvoTextureJobReport& report);

namespace {

QString db(double psnr)
{
    return psnr >= qvsample::kQualityPsnrCap ? QString("identical") : QString("%1 dB").arg(psnr, 0, 'f', 1);
}

// Where the desktop application is, seen from this program.
QString desktopApplication()
{
    const QString built = QDir(QCoreApplication::applicationDirPath()).filePath("../app/quovara");
    return QFileInfo(built).isExecutable() ? QDir::cleanPath(built) : QString("quovara");
}

// The corners of the faces the open project textures: the atlases give every
// face a picture, black where no photograph reached.
std::vector<XPnt3f> texturedCorners()
{
    std::vector<XPnt3f> corners;
    std::set<XTrip<unsigned>> textured;
    kvo::getMM()->getTexturedTriangles(textured);
    kvo::ref_ptr<kvo::IKvoModel> model;
    if (kvo::getMM()->getBareModel(model) && model && model->getVertices()) {
        const kvo::Pnt3fArray& v = *model->getVertices();
        for (const XTrip<unsigned>& t : textured)
            for (unsigned i : t.v)
                if (long(i) < v.getCount())
                    corners.push_back(v.getAt(long(i)));
    }
    return corners;
}

int cmdDemo(const QStringList& args)
{
    QString dir, sample;
    if (int rc = sampleAndOutArguments(args, sample, dir))
        return rc;

    // The demo always starts from scratch.
    kvo::KvoTextureJob job;
    job.mesh = sample + "/model.obj";
    job.photos = sample + "/photos";
    job.haveCameras = true;
    job.cameras = kvo::KvoCameraSource::colmap(sample + "/cameras/colmap");
    job.project = dir + "/sample.qvj";
    job.output = dir + "/textured/sample.obj";
    job.atlas = 4096;
    job.overwrite = true;
    // First without the colour balance, in a folder of its own, so that what
    // the balance brings shows against the same job without it.
    kvo::KvoTextureJob plain = job;
    plain.colour = kvo::KvoJobColour::None;
    plain.project = dir + "/without-colour/sample.qvj";
    plain.output = dir + "/without-colour/textured/sample.obj";
    out(QString("Texturing the sample in %1 without the colour balance, for comparison...").arg(sample));
    kvo::KvoTextureJobReport plainReport;
    qvsample::QualityReport q0;
    QString why;
    {
        TerminalProgress progress;
        const long rc = kvo::textureFromFiles(plain, plainReport, &progress);
        progress.finish();
        cliPresenter()->takeWarnings();
        if (rc != 0) {
            out(plainReport.summary());
            err(plainReport.error.isEmpty() ? QString("the job stopped (code %1)").arg(rc) : plainReport.error);
            return 1;
        }
        std::vector<XPnt3f> corners = texturedCorners();
        if (!qvsample::measureQuality(sample, plainReport.objFile, q0, why, &corners)) {
            err(why);
            return 1;
        }
    }

    out(QString("Texturing the sample in %1 from its mesh, photographs and COLMAP cameras...").arg(sample));
    kvo::KvoTextureJobReport report;
    if (int rc = runTextureJob(job, report))
        return rc;

    out("");
    out("Quality against the scene's ground truth:");
    const std::vector<XPnt3f> corners = texturedCorners();

    qvsample::QualityReport q, truth;
    if (!qvsample::measureQuality(sample, report.objFile, q, why, &corners)) {
        err(why);
        return 1;
    }
    // The ground-truth model measured the same way shows what the photographs
    // allow: their lighting and noise are not in the ground-truth texture.
    const bool haveTruth = qvsample::measureQuality(sample, sample + "/truth/model_textured.obj", truth, why);
    out(QString("  Faces textured: %1 of %2 (%3 %); of the faces some photograph sees whole: %4 %")
            .arg(report.textured)
            .arg(report.faces)
            .arg(100.0 * double(report.textured) / double(std::max(1L, report.faces)), 0, 'f', 1)
            .arg(100.0 * double(report.textured) / double(std::max(1L, report.seenFaces)), 0, 'f', 1));
    out("  Re-rendered through each photograph's camera, against the photograph (exposure matched):");
    for (size_t i = 0; i < q.photos.size(); ++i) {
        QString line = QString("    %1: %2").arg(QString::fromStdString(q.photos[i].name), db(q.photos[i].psnr));
        if (haveTruth && i < truth.photos.size())
            line += QString(" (ground-truth model: %1)").arg(db(truth.photos[i].psnr));
        out(line);
    }
    QString mean = QString("    mean %1, lowest %2").arg(db(q.photoPsnrMean), db(q.photoPsnrMin));
    if (haveTruth)
        mean +=
            QString(" (ground-truth model: mean %1, lowest %2)").arg(db(truth.photoPsnrMean), db(truth.photoPsnrMin));
    out(mean);
    out(QString("  Texture against the ground-truth texture (exposure matched): %1 over all %2 faces, untextured "
                "ones counted black; %3 over the %4 textured faces")
            .arg(db(q.truthPsnr))
            .arg(q.matchedFaces)
            .arg(db(q.truthPsnrTextured))
            .arg(corners.size() / 3));
    if (report.seamStepBefore >= 0) {
        const double drop =
            report.seamStepBefore > 0 ? 100.0 * (1.0 - report.seamStepAfter / report.seamStepBefore) : 0;
        out(QString("  Colour balance: seam colour step %1 grey levels before, %2 after (%3 % lower)")
                .arg(report.seamStepBefore, 0, 'f', 2)
                .arg(report.seamStepAfter, 0, 'f', 2)
                .arg(drop, 0, 'f', 1));
    }
    out(QString("  Without the colour balance: re-rendered mean %1 (with it %2), lowest %3 (with it %4); texture "
                "against the ground truth over the textured faces %5 (with it %6)")
            .arg(db(q0.photoPsnrMean), db(q.photoPsnrMean), db(q0.photoPsnrMin), db(q.photoPsnrMin),
                 db(q0.truthPsnrTextured), db(q.truthPsnrTextured)));
    out("");
    out(QString("The textured model: %1").arg(report.objFile));
    out(QString("The project: %1").arg(report.projectFile));
    out(QString("To look at it in the desktop application: %1 %2").arg(desktopApplication(), report.projectFile));
    return 0;
}

Register rDemo("demo",
               {"demo [--sample DIR] [--out DIR]",
                "the main job on a generated scene (the bundled sample by default): texture runs on its mesh, "
                "photographs and COLMAP cameras, writing the project DIR/sample.qvj and the textured model "
                "DIR/textured/sample.obj (DIR is ./quovara-demo unless given; what was there is replaced); then "
                "prints how good the result is against the scene's ground truth: the share of faces textured, the "
                "PSNR of the model re-rendered through each photograph's camera against the photograph, and the "
                "PSNR of its texture against the ground-truth texture; the job runs first without the colour "
                "balance (into DIR/without-colour) so that the seam colour step and the PSNRs show with and "
                "without it",
                cmdDemo});

} // namespace
} // namespace qvcli

// The main job from the command line: mesh, photographs and cameras in, a
// textured OBJ out.

#include <QFileInfo>

#include "CliSupport.h"
#include "autotexture/KvoTexturePipeline.h"

using namespace kvo;

namespace qvcli {

int runTextureJob(const KvoTextureJob& job, KvoTextureJobReport& report)
{
    TerminalProgress progress;
    const long rc = textureFromFiles(job, report, &progress);
    progress.finish();
    cliPresenter()->takeWarnings();
    out(report.summary());
    if (rc != 0) {
        err(report.error.isEmpty() ? QString("the job stopped (code %1)").arg(rc) : report.error);
        return 1;
    }
    return 0;
}

namespace {

int cmdTexture(const QStringList& args)
{
    KvoTextureJob job;
    QString cameras, list, colmap, bundler, matrices;
    for (int i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == "--force") {
            job.overwrite = true;
            continue;
        }
        if (i + 1 >= args.size())
            return 2;
        const QString v = args[++i];
        if (a == "--mesh")
            job.mesh = v;
        else if (a == "--photos")
            job.photos = v;
        else if (a == "--cameras")
            cameras = v;
        else if (a == "--list")
            list = v;
        else if (a == "--colmap")
            colmap = v;
        else if (a == "--bundler")
            bundler = v;
        else if (a == "--matrices")
            matrices = v;
        else if (a == "--out")
            job.output = v;
        else if (a == "--project")
            job.project = v;
        else if (a == "--colour") {
            if (!parseJobColour(v, job.colour)) {
                err("--colour takes none, global or full");
                return 2;
            }
        } else if (a == "--atlas") {
            bool ok = false;
            job.atlas = v.toLong(&ok);
            if (!ok || job.atlas < 64 || job.atlas > 16384) {
                err("--atlas takes a size from 64 to 16384");
                return 2;
            }
        } else
            return 2;
    }
    if (job.mesh.isEmpty() || job.photos.isEmpty() || job.output.isEmpty()) {
        err("--mesh, --photos and --out are needed");
        return 2;
    }
    const int sources =
        int(!cameras.isEmpty()) + int(!colmap.isEmpty()) + int(!bundler.isEmpty()) + int(!matrices.isEmpty());
    if (sources != 1 || (!bundler.isEmpty() && list.isEmpty())) {
        err("give the cameras once: --cameras PATH, --colmap DIR, --bundler FILE --list FILE or --matrices DIR");
        return 2;
    }
    job.haveCameras = true;
    if (!colmap.isEmpty())
        job.cameras = KvoCameraSource::colmap(colmap);
    else if (!bundler.isEmpty())
        job.cameras = KvoCameraSource::bundler(bundler, list);
    else if (!matrices.isEmpty())
        job.cameras = KvoCameraSource::matrices(matrices);
    else {
        QString why;
        if (!detectCameraSource(cameras, list, job.cameras, why)) {
            err(why);
            return 1;
        }
    }
    KvoTextureJobReport report;
    return runTextureJob(job, report);
}

Register rTexture(
    "texture",
    {"texture --mesh M.obj --photos DIR --cameras PATH [--list FILE] --out OUT.obj [--project P.qvj] [--atlas N] "
     "[--colour none|global|full] [--force]",
     "the whole job: makes a project (P.qvj, by default OUT.qvj beside the output), imports the mesh, adds the "
     "photographs of DIR, gives them the cameras of PATH (a COLMAP text model folder, a Bundler bundle file with "
     "list.txt beside it or --list, or a folder of 3x4 projection matrices; --colmap DIR, --bundler FILE --list "
     "FILE and --matrices DIR name the format), gives every face the photograph that shows it best, makes the "
     "texture meshes seamless, balances the photographs' colours across the seams (--colour: full, the default, "
     "evens exposure and white balance and levels the seams; global only the first; none leaves them) and writes the "
     "whole model as one mesh on N x N atlases (4096 by default). Prints "
     "faces textured, photographs used, the seam colour step before and after the balance, the time of each stage and "
     "what was passed over (photographs without "
     "cameras, cameras without photographs, unknown camera models, other picture sizes). Existing output and "
     "project files are only written over with --force",
     cmdTexture});

} // namespace
} // namespace qvcli

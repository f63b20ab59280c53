// Mapping through a virtual camera and importing cameras, headless.

#include "CliSupport.h"
#include "camera/KvoCameraImport.h"
#include "camera/KvoVirtualCamera.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace qvcli {
namespace {

int cmdMapVc(const QStringList& args)
{
    if (args.size() < 2)
        return 2;
    ZebQVVCParam param;
    bool haveEye = false, haveCentre = false, update = false, keepHidden = false;
    param.up = XPnt3d(0, 0, 1);
    for (int i = 2; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == "--update") {
            update = true;
            continue;
        }
        if (a == "--keep-hidden") {
            keepHidden = true;
            continue;
        }
        if (i + 1 >= args.size())
            return 2;
        const QString value = args[++i];
        bool ok = true;
        if (a == "--eye")
            ok = haveEye = parsePoint(value, param.eye);
        else if (a == "--center" || a == "--centre")
            ok = haveCentre = parsePoint(value, param.center);
        else if (a == "--up")
            ok = parsePoint(value, param.up);
        else if (a == "--fov") {
            param.fovY = value.toDouble(&ok);
            ok = ok && param.fovY > 0 && param.fovY < 180;
        } else
            return 2;
        if (!ok) {
            err(QString("%1 %2: not a valid value").arg(a, value));
            return 2;
        }
    }
    if (!haveEye || !haveCentre) {
        err("--eye and --center are needed");
        return 2;
    }
    if (int rc = openOrFail(args[0]))
        return rc;
    IKvoMM* mm = getMM();
    const long id = findImage(args[1]);
    if (id < 0)
        return 1;
    mm->setActiveImageId(id);
    zebUI::_ZebVCMapParam_ frame;
    if (!calVCFrame(id, param, kvoVCFrameModel, frame)) {
        err("the camera has no direction (eye on the centre, or up along the line of sight)");
        return 1;
    }
    cliPresenter()->takeWarnings();
    TerminalProgress progress;
    VCMapping(param, frame, update && mm->isImageMapped(id), false, !keepHidden, &progress);
    progress.finish();
    const QStringList warnings = cliPresenter()->takeWarnings();
    if (!warnings.isEmpty())
        return 1; // already said on stderr
    ref_ptr<IKvoMesh> mesh;
    mm->getTexMeshOfImage(mesh, id);
    if (mm->isTexEditOpen())
        mm->commitTexEdit();
    if (int rc = saveOrFail())
        return rc;
    out(QString("Mapped image %1: %2 triangles").arg(id).arg(mesh ? mesh->getFaceCount() : 0));
    return 0;
}

Register rMapVc("map-vc",
                {"map-vc PROJECT.qvj IMAGE --eye X,Y,Z --center X,Y,Z [--up X,Y,Z] [--fov DEG] [--update] "
                 "[--keep-hidden]",
                 "maps an image (id or name) through a virtual camera: every model triangle the camera sees "
                 "wholly inside the photograph joins the image's texture mesh; --fov is the angle across the "
                 "photograph's shorter side (27 by default), --update keeps the triangles of a mapped image and "
                 "renews its UVs, --keep-hidden also maps triangles hidden from the camera; saves the project",
                 cmdMapVc});

int cmdImportCameras(const QStringList& args)
{
    if (args.size() < 3)
        return 2;
    QString colmap, bundler, list, matrices;
    for (int i = 1; i < args.size(); ++i) {
        if (i + 1 >= args.size())
            return 2;
        const QString& a = args[i];
        QString& value = a == "--colmap" ? colmap : a == "--bundler" ? bundler : a == "--list" ? list : matrices;
        if ((a != "--colmap" && a != "--bundler" && a != "--list" && a != "--matrices") || !value.isEmpty())
            return 2;
        value = args[++i];
    }
    const int sources = int(!colmap.isEmpty()) + int(!bundler.isEmpty()) + int(!matrices.isEmpty());
    if (sources != 1 || bundler.isEmpty() != list.isEmpty()) {
        err("give one of --colmap DIR, --bundler FILE --list FILE, --matrices DIR");
        return 2;
    }
    const KvoCameraSource source = !colmap.isEmpty()    ? KvoCameraSource::colmap(colmap)
                                   : !bundler.isEmpty() ? KvoCameraSource::bundler(bundler, list)
                                                        : KvoCameraSource::matrices(matrices);
    if (int rc = openOrFail(args[0]))
        return rc;
    KvoCameraImportReport report;
    TerminalProgress progress;
    const long n = importCameras(source, report, &progress);
    progress.finish();
    if (n < 0) {
        err(report.error);
        return 1;
    }
    out(report.summary());
    if (n == 0) {
        err("no photograph of the project got a camera");
        return 1;
    }
    if (int rc = saveOrFail())
        return rc;
    return 0;
}

Register rImportCameras(
    "import-cameras",
    {"import-cameras PROJECT.qvj --colmap DIR | --bundler FILE --list FILE | --matrices DIR",
     "gives the project's photographs the cameras of a reconstruction, matched by file name: a COLMAP text model "
     "(cameras.txt and images.txt; PINHOLE, SIMPLE_PINHOLE, SIMPLE_RADIAL, RADIAL and OPENCV cameras), a Bundler "
     "v0.3 bundle file with its image list, or a folder of 3x4 projection matrices (NAME.txt or NAME.P.txt, NAME "
     "being the photograph's name with or without its extension, pixel positions from the picture's top-left "
     "corner). Each photograph gets its virtual camera; one that is not a centred square-pixel pinhole also gets "
     "its exact DLT parameters; photographs with lens distortion are undistorted into new pictures. Cameras and "
     "photographs that do not fit (no camera, no photograph, unknown model, another picture size) are listed and "
     "left as they were; saves the project",
     cmdImportCameras});

} // namespace
} // namespace qvcli

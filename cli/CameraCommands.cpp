// Mapping through a virtual camera, headless.

#include "CliSupport.h"
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

} // namespace
} // namespace qvcli

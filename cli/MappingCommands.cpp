// Mapping an image from control points, headless.

#include <QFile>

#include "CliSupport.h"
#include "camera/KvoVirtualCamera.h"
#include "commands/KvoCommands.h"
#include "mapping/KvoCtrlPointFile.h"
#include "mapping/KvoDlt.h"
#include "mapping/KvoMapping.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace qvcli {
namespace {

int cmdMap(const QStringList& args)
{
    if (args.size() < 2)
        return 2;
    QString pointsFile, type = "dlt";
    bool refine = true;
    for (int i = 2; i < args.size(); ++i) {
        if (args[i] == "--no-refine") {
            refine = false;
        } else if (i + 1 < args.size() && args[i] == "--control-points") {
            pointsFile = args[++i];
        } else if (i + 1 < args.size() && args[i] == "--type") {
            type = args[++i];
            if (type != "dlt" && type != "plane")
                return 2;
        } else {
            return 2;
        }
    }
    if (int rc = openOrFail(args[0]))
        return rc;
    IKvoMM* mm = getMM();
    ref_ptr<IKvoImageInfo> info;
    const long id = findImage(args[1], &info);
    if (id < 0)
        return 1;
    if (!pointsFile.isEmpty()) {
        // The file's points replace the image's; an unreadable file changes nothing.
        QFile probe(pointsFile);
        if (!probe.open(QIODevice::ReadOnly)) {
            err(QString("cannot read %1").arg(pointsFile));
            return 1;
        }
        while (info->getCtrlImagePntCount() > 0)
            info->removeCtrlImagePnt(0);
        while (info->getCtrlWorldPntCount() > 0)
            info->removeCtrlWorldPnt(0);
        QString message;
        if (importCtrlPointFile(id, pointsFile, message) != 0) {
            err(message);
            return 1;
        }
    }
    mm->setActiveImageId(id);
    TerminalProgress progress;
    long rc = 0;
    if (type == "dlt") {
        double L[11];
        const double residual = CDltFitter().fitImage(id, L, 3, false);
        if (!(residual > 0)) {
            progress.finish();
            err(QString("the control points give no DLT (%1 of them; 7 that agree within 3 pixels are needed)")
                    .arg(info->getCtrlPntCount()));
            return 1;
        }
        mm->setProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(id), L, sizeof L);
        bool reserved = false;
        rc = DLTMapping(L, false, true, false, reserved, &progress);
        if (rc == 0) {
            info->setMappingType(0);
            if (refine && info->getCtrlPntCount() > 3)
                updateDensifyDLTMapping();
        }
    } else {
        rc = planeMapping(false, true, false, false, &progress);
        if (rc == 0) {
            info->setMappingType(2);
            if (refine && info->getCtrlPntCount() > 3)
                updateDensifyPlaneMapping();
        }
    }
    progress.finish();
    if (rc != 0) {
        err(resultMessage(rc));
        return 1;
    }
    if (mm->isTexEditOpen())
        mm->commitTexEdit();
    if (int save = saveOrFail())
        return save;
    ref_ptr<IKvoMesh> mesh;
    mm->getTexMeshOfImage(mesh, id);
    out(QString("Mapped image %1 (%2): %3 triangles").arg(id).arg(type).arg(mesh ? mesh->getFaceCount() : 0));
    return 0;
}

Register rMap("map",
              {"map PROJECT.qvj IMAGE [--control-points FILE] [--type dlt|plane] [--no-refine]",
               "maps an image (id or name) from its control points (replaced by those of FILE when given, in the "
               "control-point file format): dlt fits the 11 DLT parameters robustly, plane lays the image on the "
               "plane of the first three points; with more than three points the UVs are then bent so that every "
               "control point lands where it was measured; saves the project",
               cmdMap});

} // namespace
} // namespace qvcli

#include <QCoreApplication>

#include "commands/KvoCommands.h"

#include "camera/KvoVirtualCamera.h"
#include "scene/KvoPresenter.h"

// The rows of the command table: guard first, then the task or dialog.
// Tools that later parts of the system bring are announced as not available
// until they are built, after their guards have run.

namespace kvo {

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("Quovara", text);
}

bool hasProject()
{
    ref_ptr<IKvoProject> project;
    return bool(getMM()->getProject(project));
}

ref_ptr<IKvoImageInfo> imageInfo(long id)
{
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    if (getMM()->getProject(project) && project->getImageDb(db))
        db->getImageInfo(info, id);
    return info;
}

} // namespace

long startProjectTask(IKvoQvTask* task)
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return -1;
    if (!hasProject())
        return kvoNoProject;
    if (vm->endCurrentTask() == kvoTaskRefused)
        return -1;
    return vm->startTask(task) < 0 ? -1 : 0;
}

// ---------------------------------------------------------------- task commands

long cmdTexMapAdjustQt()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return -1;
    if (!hasProject())
        return kvoNoProject;
    IKvoMM* mm = getMM();
    const long id = mm->getActiveImageId();
    if (id < 0) {
        msgWarningQt(tr("Please active a image!"));
        return -1;
    }
    ref_ptr<IKvoImageInfo> info = imageInfo(id);
    if (!info)
        return -1;
    const long points = info->getCtrlPntCount();
    switch (info->getMappingType()) {
    case 0:
        if (points < 3) {
            msgWarningQt(tr("Control points mapping needs 3 points at least!"));
            return -1;
        }
        break;
    case 2:
        if (points < 3) {
            msgWarningQt(tr("Plane mapping needs 3 points at least!"));
            return -1;
        }
        break;
    case 1: msgWarningQt(tr("Virtual camera mapping can not use this function!")); return -1;
    default: msgWarningQt(tr("The mapping type is error.")); return -1;
    }
    msgToolNotAvailable(tr("Mapping adjustment"));
    return -1;
}

bool cmdOnVCMappingQt()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm || !hasProject() || getMM()->getActiveImageId() <= 0)
        return false;
    msgToolNotAvailable(tr("Virtual camera mapping"));
    return false;
}

long cmdOnMeasure()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return -1;
    if (!hasProject()) {
        msgWarningTitled(tr("Measure"), tr("There is no project opened!"));
        return -1;
    }
    msgToolNotAvailable(tr("Measurement"));
    return -1;
}

long cmdOnToolMeasurementQt()
{
    if (!zebUI::getVM())
        return -1;
    if (!hasProject())
        return kvoNoProject;
    msgToolNotAvailable(tr("Measurement"));
    return -1;
}

bool cmdImgClip()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return false;
    // A task that may not end now is not an error the host should report.
    if (vm->endCurrentTask() == kvoTaskRefused)
        return true;
    if (!hasProject()) {
        msgNoProject();
        return true;
    }
    IKvoMM* mm = getMM();
    const long id = mm->getActiveImageId();
    if (!mm->isImageIdValid(id)) {
        msgWarningTitled(tr("Clip Image"), tr("The image ID is invalid!"));
        return false;
    }
    if (!mm->isNormalImage(id)) {
        msgWarningTitled(tr("Clip Image"), tr("The image is not a normal!"));
        return false;
    }
    msgToolNotAvailable(tr("Image clipping"));
    return false;
}

long cmdOnMatchManager()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return 0;
    if (vm->endCurrentTask() == kvoTaskRefused)
        return 0;
    msgToolNotAvailable(tr("Match points"));
    return 0;
}

long cmdOnClipPlaneManageQt()
{
    if (!zebUI::getVM())
        return -1;
    msgToolNotAvailable(tr("Clip planes"));
    return -1;
}

long cmdOnOutputMatrix()
{
    if (!zebUI::getVM())
        return -1;
    msgToolNotAvailable(tr("Matrix export"));
    return -1;
}

long cmdOnModifyImageColorQt()
{
    if (!zebUI::getVM() || !hasProject())
        return -1;
    msgToolNotAvailable(tr("Image colour adjustment"));
    return -1;
}

namespace {
// The shape of the texture-editing task commands: false without a project.
bool texEditTool(const char* name)
{
    if (!zebUI::getVM() || !hasProject())
        return false;
    msgToolNotAvailable(tr(name));
    return false;
}
} // namespace

bool cmdGapMixed()
{
    return texEditTool("Seam mixing");
}
bool cmdRepairGap()
{
    return texEditTool("Seam repair");
}
bool cmdImagePS()
{
    return texEditTool("The external image editor");
}
bool cmdTextDel()
{
    return texEditTool("Texture delete");
}
bool cmdTextDelByColor()
{
    return texEditTool("Texture delete by colour");
}

// ---------------------------------------------------------------- panel commands

namespace {
// The shape of the panel commands that need a project: the project message and failure.
long panelTool(const char* name, long noProject)
{
    if (!zebUI::getVM())
        return -1;
    if (!hasProject()) {
        msgNoProject();
        return noProject;
    }
    msgToolNotAvailable(tr(name));
    return -1;
}
} // namespace

bool cmdFeather()
{
    if (!zebUI::getVM())
        return true;
    if (!hasProject()) {
        msgNoProject();
        return true;
    }
    msgToolNotAvailable(tr("Feathering"));
    return true;
}

long cmdOnMeshPatchArea()
{
    return panelTool("Texture fragments", -1);
}
long cmdOnSelStretchTex()
{
    return panelTool("Stretched texture selection", -1);
}
long cmdOnMergeBareMesh()
{
    return panelTool("Bare mesh merging", -1);
}

long cmdOnPointCloudMan()
{
    if (!zebUI::getVM())
        return -1;
    msgToolNotAvailable(tr("Point clouds"));
    return -1;
}

long cmdOnProjectPlaneOrthImage()
{
    if (!zebUI::getVM())
        return -1;
    if (!hasProject())
        return kvoNoProject;
    msgToolNotAvailable(tr("Ortho images"));
    return -1;
}

long cmdOnProjectPlaneOrthVirbigimage()
{
    if (!zebUI::getVM())
        return -1;
    if (!hasProject()) {
        msgWarningQt(tr("There is no project!"));
        return -1;
    }
    msgToolNotAvailable(tr("Large ortho images"));
    return -1;
}

long cmdOnOpenImgAttribute(long)
{
    if (!zebUI::getVM())
        return -1;
    msgToolNotAvailable(tr("Image attributes"));
    return -1;
}

long cmdOnToolResDisImgQt()
{
    if (!zebUI::getVM())
        return -1;
    msgToolNotAvailable(tr("Image resolution"));
    return -1;
}

// ---------------------------------------------------------------- at once

// cmdOnSeamlessTexturedMesh lives with the automatic texturing (autotexture/KvoSeamless.cpp).

long cmdOnSelBareMeshNoTex()
{
    if (getMM()->getTexMeshCount() == 0)
        return kvoModelEmpty;
    msgToolNotAvailable(tr("Selection of untextured triangles"));
    return -1;
}

long cmdOnReSelTexmesh()
{
    IKvoMM* mm = getMM();
    if (!mm->hasModelData())
        return kvoModelEmpty;
    if (mm->getActiveImageId() <= 0)
        return kvoNoActiveImage;
    msgToolNotAvailable(tr("Moving the selection to the texture mesh"));
    return -1;
}

void cmdOnImageRotate(ref_ptr<LongArray> ids, bool, bool)
{
    const QString title = tr("Rotate Image");
    if (!hasProject()) {
        msgWarningTitled(title, tr("Please new or open a project!"));
        return;
    }
    if (!ids || ids->getCount() == 0) {
        msgWarningTitled(title, tr("Please select a image."));
        return;
    }
    for (long id : ids->vec())
        if (getMM()->isImageMapped(id)) {
            msgWarningTitled(title, tr("Please delete the mapping before Rotate."));
            return;
        }
    msgToolNotAvailable(tr("Image rotation"));
}

void cmdOnImageShowMatrix(ref_ptr<LongArray> ids)
{
    const QString title = tr("Show Matrix");
    if (!hasProject()) {
        msgWarningTitled(title, tr("Please new or open a project!"));
        return;
    }
    if (!ids || ids->getCount() == 0) {
        msgWarningTitled(title, tr("Please select a image."));
        return;
    }
    ZebQVVCParam param;
    double Rt[12];
    if (!getMM()->getVCParam(ids->getAt(0), param) || !calVCMatrix(ids->getAt(0), Rt)) {
        msgWarningTitled(title, tr("There is no matrix."));
        return;
    }
    QString text("%1 %2 %3 %4\n%5 %6 %7 %8\n%9 %10 %11 %12\n0.0 0.0 0.0 1.0\n");
    for (double v : Rt)
        text = text.arg(v, 0, 'g');
    msgSucceedQt(text);
}

long cmdOnPSEdit(const QString&, long)
{
    return 0;
}

} // namespace kvo

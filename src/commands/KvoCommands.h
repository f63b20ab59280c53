#pragma once

#include <QString>

#include "scene/KvoStore.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

// Result codes shared by the commands and the mapping functions.
enum KvoResultCode : long {
    kvoVCMappingNoAdjust = -8160,
    kvoTinError = -8164,
    kvoModelExists = -8167,
    kvoModelEmpty = -8168,
    kvoNoProject = -8170,
    kvoNewProjectCancelled = -8171,
    kvoNoCtrlPoints = -8172,
    kvoTooFewPoints = -8173,
    kvoDeleteMappingFailed = -8174,
    kvoNothingSelected = -8177,
    kvoNoBareMesh = -8178,
    kvoTexMeshMissing = -8179,
    kvoNoMeshWithoutTexture = -8180,
    kvoMeshNotMade = -8181,
    kvoTinMatrixError = -8182,
    kvoSingularTinTriangle = -8183,
    kvoInvertFailed = -8184,
    kvoNoActiveImageForUpdate = -8185,
    kvoNothingInImage = -8186,
    kvoImageAsleep = -8187,
    kvoNoActiveImage = -8188,
    kvoNoImageInfo = -8189,
    kvoImageNotMapped = -8190,
    kvoInvertFailed2 = -8191,
};

// The message of a result code, empty where the code has none. planeMapping
// and deleteDialog pick the wording of the codes that have two.
QV_EXPORT QString resultMessage(long code, bool planeMapping = false, bool deleteDialog = false);

// Message helpers: warning boxes parented on the main frame, title "Quovara".
QV_EXPORT void msgSucceedQt(const QString& text);
QV_EXPORT void msgWarningQt(const QString& text);
QV_EXPORT bool msgWantOKQt(const QString& text);
QV_EXPORT bool msgYesNoQt(const QString& text, const QString& title);
QV_EXPORT int msgYesNoCancel(QString& title, QString& text);
// A warning with its own title and one "Ok" button.
QV_EXPORT void msgWarningTitled(const QString& title, const QString& text);
// "No project is open.please create a project." with an empty title.
QV_EXPORT void msgNoProject();
// The opening checks of a command that shows a form: a project is open (else
// msgNoProject) and widgets can be shown (else refusal as a warning). False
// when the command cannot go on; the user has been told why.
QV_EXPORT bool projectAndWidgetsOrSay(const QString& refusal);
// Said by a command whose tool is not part of this build yet.
QV_EXPORT void msgToolNotAvailable(const QString& tool);

// Ends the current task and starts task on the open project. -1 without a
// viewer manager, when the current task may not end now or when task does
// not start; kvoNoProject without a project.
QV_EXPORT long startProjectTask(IKvoQvTask* task);

// Commands that start tasks.
QV_EXPORT long cmdTexMappingQt();
QV_EXPORT long cmdTexMapAdjustQt();
QV_EXPORT bool cmdOnVCMappingQt();
QV_EXPORT long cmdOnMeasure();
QV_EXPORT long cmdOnToolMeasurementQt();
QV_EXPORT bool cmdImgClip();
QV_EXPORT long cmdOnMatchManager();
QV_EXPORT long cmdOnClipPlaneManageQt();
QV_EXPORT long cmdOnProjectPlaneManageQt();
QV_EXPORT long cmdOnOutputMatrix();
QV_EXPORT long cmdOnModifyImageColorQt();
QV_EXPORT bool cmdGapMixed();
QV_EXPORT bool cmdRepairGap();
QV_EXPORT bool cmdImagePS();
QV_EXPORT bool cmdTextDel();
QV_EXPORT bool cmdTextDelByColor();

// Commands that open a panel dialog.
QV_EXPORT bool cmdFeather();
QV_EXPORT long cmdOnMeshPatchArea();
QV_EXPORT long cmdOnSelStretchTex();
QV_EXPORT long cmdOnMergeBareMesh();
QV_EXPORT long cmdOnBatchExport();
QV_EXPORT long cmdOnPointCloudMan();
QV_EXPORT long cmdOnProjectPlaneOrthImage();
QV_EXPORT long cmdOnProjectPlaneOrthVirbigimage();
QV_EXPORT long cmdOnOpenImgAttribute(long id);

// Commands that open a modal dialog.
QV_EXPORT long cmdImageTreeQt();
QV_EXPORT long cmdOnToolResDisImgQt();
QV_EXPORT long cmdPrjPathNewQt(QString& path);
QV_EXPORT long cmdOnOpenAbout();
QV_EXPORT long cmdOnOpenShortcut();
QV_EXPORT long cmdOnOpenUpdate(int mode);

// Commands that work at once.
QV_EXPORT long cmdOnSeamlessTexturedMesh(int mode, IKvoProgress* progress);
QV_EXPORT long cmdOnSelBareMeshNoTex();
QV_EXPORT long cmdOnReSelTexmesh();
QV_EXPORT void cmdOnImageRotate(ref_ptr<LongArray> ids, bool needSelection, bool turn);
QV_EXPORT void cmdOnImageShowMatrix(ref_ptr<LongArray> ids);
QV_EXPORT long cmdOnSetTexMeshImageActive(PT2<long> pixel, unsigned& a, unsigned& b, unsigned& c);
QV_EXPORT long cmdOnPSEdit(const QString& file, long id);
QV_EXPORT long selMeshAllInPainter(bool activeImageOnly);
QV_EXPORT long selMeshClearInPainter();
QV_EXPORT long selMeshReverseInPainter(bool activeImageOnly);

// Query helpers.
QV_EXPORT QString getTempImgPath(long id);
QV_EXPORT long getFrontPnt(XPnt3d& out);
QV_EXPORT Enve3d modelMinBoundBox();
QV_EXPORT unsigned long long getSelMarkCount(const ref_ptr<IKvoMesh>& mesh);
QV_EXPORT unsigned long long getSelMarkCount(const ref_ptr<MeshArray>& meshes);

// The listener that keeps the image panel in step with the image database.
QV_EXPORT ref_ptr<IKvoImageDbEvent> newImageDbEvent();

} // namespace kvo

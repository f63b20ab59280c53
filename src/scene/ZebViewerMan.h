#pragma once

class QPainter;

#include <QString>

#include "scene/KvoStore.h"

class QWidget;

namespace kvo {

class IKvoQvTask;

// Modifier word of mouse and key events.
constexpr long kvoModCtrl = 0x40000000;
constexpr long kvoModShift = 0x20000000;
constexpr long kvoModAlt = 0x10000000;
constexpr long kvoButtonLeft = 0x1;
constexpr long kvoButtonRight = 0x2;
constexpr long kvoButtonMiddle = 0x4;

// Answer of a task hook that did not handle the event.
constexpr long kvoNotHandled = -9998;
// Answer of endCurrentTask when the current task may not end now.
constexpr long kvoTaskRefused = 99999;

// Views.
constexpr long kvoModelView = 0;
constexpr long kvoImageView = 1;

// The camera of the 3-D view. Projection and picking follow the GLU conventions.
class QV_EXPORT IKvoTrackBall : public KvoReferenced {
public:
    virtual void setCamera(const XPnt3d& eye, const XPnt3d& center, const XPnt3d& up) = 0;
    virtual XPnt3d getEye() const = 0;
    virtual XPnt3d getUp() const = 0;
    virtual XPnt3d getCenter() const = 0;
    // The model point under window position (x, y), y down; invalid when nothing is hit.
    virtual XPnt3d& pickPoint(XPnt3d& out, double x, double y) const = 0;
    // Window position (x, y down) and depth of a model point.
    virtual XPnt3d& projectToWindow(XPnt3d& out, double x, double y, double z) const = 0;
    // The model point at a window position (y down) and depth in [0, 1].
    virtual XPnt3d& unprojectFromWindow(XPnt3d& out, double x, double y, double depth) const = 0;
    // The line of sight through a window position: from the near plane, unit direction.
    virtual bool getRay(double x, double y, XPnt3d& origin, XPnt3d& direction) const = 0;
    // Forgets what picking keeps between picks, so that the next pick sees the scene anew.
    virtual void resetPickState() = 0;
    // Vertical field of view in degrees, and the clip planes.
    virtual double getFovY() const = 0;
    virtual void setFovY(double degrees) = 0;
    virtual double getNear() const = 0;
    virtual double getFar() const = 0;
    // The GL matrices (column-major) and viewport (x, y, width, height) of the view.
    virtual void getModelView(double m[16]) const = 0;
    virtual void getProjection(double m[16]) const = 0;
    virtual void getViewport(int v[4]) const = 0;
};

class IZebViewer;

// Render hook: draws over a view after the scene.
class QV_EXPORT IZebRender : public KvoReferenced {
public:
    virtual void getName(QString& out) const = 0;
    // 0 drawn, 1 nothing to draw, -1 failure.
    virtual long draw(long view, const ref_ptr<IZebViewer>& viewer) = 0;
};

// Hook of the image viewer, told when the shown image changes.
class QV_EXPORT IZebImgEvent : public KvoReferenced {
public:
    virtual void onImageEvent() {}
    virtual void onImageChanged() = 0;
};

// A view: the 3-D model viewer or the 2-D image viewer.
class QV_EXPORT IZebViewer : public KvoReferenced {
public:
    virtual long getViewIndex() const = 0;
    virtual ref_ptr<IKvoTrackBall>& getTrackBall(ref_ptr<IKvoTrackBall>& out) const = 0;
    virtual void makeCurrent() = 0;
    virtual void doneCurrent() = 0;
    virtual long getWidth() const = 0;
    virtual long getHeight() const = 0;
};

class QV_EXPORT IZebImageViewer : public IZebViewer {
public:
    virtual long addImgEvent(const ref_ptr<IZebImgEvent>& event) = 0;
    virtual void removeImgEvent(long id) = 0;
    virtual long addRender(const ref_ptr<IZebRender>& render) = 0;
    virtual void removeRender(long id) = 0;
    virtual long getShownImageId() const = 0;
    // Window pixels (y down) to image pixels (y down) and back.
    virtual XPnt2d& screenToImage(XPnt2d& out, double x, double y) const = 0;
    virtual XPnt2d& imageToScreen(XPnt2d& out, const XPnt2d& imagePoint) const = 0;
    // The image position under a window position; invalid outside the picture.
    virtual XPnt2d& pickImagePoint(XPnt2d& out, double x, double y) const = 0;
    // While the view paints (render hooks run then): the painter of the view,
    // in window pixels. Null at any other time.
    virtual QPainter* getPainter() const = 0;
};

// Where a task's panel dialog is placed.
class QV_EXPORT IZebDialogHost {
public:
    virtual ~IZebDialogHost() = default;
    // Places the widget; null detaches the present one.
    virtual void attach(QWidget* widget) = 0;
    virtual void clear() = 0;
    virtual QWidget* getAttached() const = 0;
};

class QV_EXPORT IZebTaskPanel {
public:
    virtual ~IZebTaskPanel() = default;
    virtual void close() = 0;
};

class QV_EXPORT IZebMeshPanel {
public:
    virtual ~IZebMeshPanel() = default;
    virtual void add(const ref_ptr<IKvoMesh>& mesh, const QString& section) = 0;
    virtual void remove(const ref_ptr<IKvoMesh>& mesh, const QString& section) = 0;
    virtual void refreshSection(const QString& section) = 0;
};

class QV_EXPORT IZebImagePanel {
public:
    virtual ~IZebImagePanel() = default;
    // Refreshes one image, or all with id 0.
    virtual void refreshImage(long id) = 0;
};

// The viewer manager: the views, their hooks, the current task and the panels.
class QV_EXPORT IZebViewerMan : public KvoReferenced {
public:
    virtual IKvoMM* getModelMan() const = 0;
    virtual ref_ptr<IKvoAppOptions>& getAppOptions(ref_ptr<IKvoAppOptions>& out) const = 0;
    virtual QWidget* getMainFrame() const = 0;
    virtual IKvoProgress* getProgress() const = 0;
    virtual void redrawModelView() = 0;
    virtual void redrawImageView() = 0;
    virtual void updateViews() = 0;

    virtual long addRender(const ref_ptr<IZebRender>& render) = 0;
    virtual void removeRender(long id) = 0;
    virtual ref_ptr<IZebViewer>& getModelViewer(ref_ptr<IZebViewer>& out) const = 0;
    virtual ref_ptr<IZebImageViewer>& getImageViewer(ref_ptr<IZebImageViewer>& out) const = 0;
    virtual ref_ptr<IZebViewer>& getViewer(ref_ptr<IZebViewer>& out, long view) const = 0;
    virtual IZebMeshPanel* getMeshPanel() const = 0;
    virtual IZebImagePanel* getImagePanel() const = 0;
    virtual void showView(long view, bool show) = 0;
    virtual void setViewCursor(long view, long kind) = 0;
    virtual void setCursorKind(long kind) = 0;
    virtual void setPhotoPreview(bool on) = 0;

    // 0 or more on success.
    virtual long startTask(IKvoQvTask* task) = 0;
    // 0 when ended (or none was current); 99999 when the task may not end now.
    virtual long endCurrentTask() = 0;
    virtual IKvoQvTask* getCurrentTask() const = 0;
    virtual IZebDialogHost* getDialogHost() const = 0;
    virtual IZebDialogHost* getSecondDialogHost() const = 0;
    virtual IZebTaskPanel* getTaskPanel() const = 0;

    // The undo stack of mesh operations.
    virtual void pushUndo(const ref_ptr<IKvoUndo>& item) = 0;
    virtual bool undo() = 0;
    virtual bool redo() = 0;
    virtual bool canUndo() const = 0;
    virtual bool canRedo() const = 0;

    virtual bool isSelBackFaces() const = 0;
    virtual bool isActiveImageOnly() const = 0;
    virtual bool isSelHidden() const = 0;
    virtual bool isSelBareOnly() const = 0;
};

} // namespace kvo

namespace zebUI {
// The viewer manager of the process; null until a host installs one.
QV_EXPORT kvo::ref_ptr<kvo::IZebViewerMan> getVM();
QV_EXPORT void setVM(const kvo::ref_ptr<kvo::IZebViewerMan>& vm);
} // namespace zebUI

#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <map>
#include <vector>

#include "platform/KvoImageViewTransform.h"
#include "platform/KvoProgressImpl.h"
#include "platform/KvoTrackBallImpl.h"
#include "platform/KvoUndoStack.h"
#include "scene/ZebViewerMan.h"
#include "tasks/KvoQvTask.h"

namespace kvo {

// The modifier word of the views from Qt's modifiers and buttons.
QV_EXPORT long kvoModifierWord(Qt::KeyboardModifiers modifiers, Qt::MouseButtons buttons);

// Hooks kept in the order added, under ids that are never reused.
template <class T> class KvoIdRegistry {
public:
    // The new hook's id, or -1 for a null hook.
    long add(const ref_ptr<T>& hook)
    {
        if (!hook)
            return -1;
        m_hooks.push_back({m_next, hook});
        return m_next++;
    }
    void remove(long id)
    {
        for (auto it = m_hooks.begin(); it != m_hooks.end(); ++it)
            if (it->first == id) {
                m_hooks.erase(it);
                return;
            }
    }
    long count() const { return long(m_hooks.size()); }
    // A copy to walk: a hook may add or remove hooks while it is called.
    std::vector<ref_ptr<T>> snapshot() const
    {
        std::vector<ref_ptr<T>> out;
        out.reserve(m_hooks.size());
        for (auto& h : m_hooks)
            out.push_back(h.second);
        return out;
    }

private:
    std::vector<std::pair<long, ref_ptr<T>>> m_hooks;
    long m_next = 1;
};

class QV_EXPORT KvoRenderList : public KvoIdRegistry<IZebRender> {
public:
    // Draws every hook in the order added; the number of hooks that drew.
    long drawAll(long view, const ref_ptr<IZebViewer>& viewer) const;
};

// Where a task's panel dialog lives; the application docks what is attached.
class QV_EXPORT CZebDialogHost : public QObject, public IZebDialogHost {
    Q_OBJECT
public:
    void attach(QWidget* widget) override;
    // Closes the attached dialog (dialogs delete themselves on close) and detaches it.
    void clear() override;
    QWidget* getAttached() const override { return m_widget; }
signals:
    void attachedChanged(QWidget* widget);

private:
    QPointer<QWidget> m_widget;
};

class QV_EXPORT CZebTaskPanel : public QObject, public IZebTaskPanel {
    Q_OBJECT
public:
    void close() override { emit closeRequested(); }
signals:
    void closeRequested();
};

// The mesh panel as a model: meshes per section ("Bare Mesh", "Texture Mesh").
class QV_EXPORT CZebMeshPanel : public QObject, public IZebMeshPanel {
    Q_OBJECT
public:
    void add(const ref_ptr<IKvoMesh>& mesh, const QString& section) override;
    void remove(const ref_ptr<IKvoMesh>& mesh, const QString& section) override;
    void refreshSection(const QString& section) override;
    // Rebuilds both sections from the model manager.
    void rebuild();
    std::vector<ref_ptr<IKvoMesh>> meshes(const QString& section) const;
signals:
    void sectionChanged(const QString& section);

private:
    std::map<QString, std::vector<ref_ptr<IKvoMesh>>> m_sections;
};

class QV_EXPORT CZebImagePanel : public QObject, public IZebImagePanel {
    Q_OBJECT
public:
    void refreshImage(long id) override { emit refreshRequested(id); }
signals:
    void refreshRequested(long id);
};

// View 0: the 3-D model view. Its camera is a software track ball; the
// application supplies the GL context calls.
class QV_EXPORT CZebModelViewer : public IZebViewer {
public:
    CZebModelViewer();
    long getViewIndex() const override { return kvoModelView; }
    ref_ptr<IKvoTrackBall>& getTrackBall(ref_ptr<IKvoTrackBall>& out) const override;
    void makeCurrent() override
    {
        if (m_makeCurrent)
            m_makeCurrent(true);
    }
    void doneCurrent() override
    {
        if (m_makeCurrent)
            m_makeCurrent(false);
    }
    long getWidth() const override { return m_width; }
    long getHeight() const override { return m_height; }
    void setSize(long width, long height);
    void setContextHook(std::function<void(bool)> hook) { m_makeCurrent = std::move(hook); }
    CKvoTrackBall* trackBall() const { return m_ball.get(); }

private:
    ref_ptr<CKvoTrackBall> m_ball;
    long m_width = 800, m_height = 600;
    std::function<void(bool)> m_makeCurrent;
};

// View 1: the 2-D image view with pan and zoom.
class QV_EXPORT CZebImageViewer : public IZebImageViewer {
public:
    long getViewIndex() const override { return kvoImageView; }
    ref_ptr<IKvoTrackBall>& getTrackBall(ref_ptr<IKvoTrackBall>& out) const override
    {
        out.reset();
        return out;
    }
    void makeCurrent() override {}
    void doneCurrent() override {}
    long getWidth() const override { return m_width; }
    long getHeight() const override { return m_height; }
    long addImgEvent(const ref_ptr<IZebImgEvent>& event) override;
    void removeImgEvent(long id) override;
    long addRender(const ref_ptr<IZebRender>& render) override { return m_renders.add(render); }
    void removeRender(long id) override { m_renders.remove(id); }
    long getShownImageId() const override { return m_imageId; }
    XPnt2d& screenToImage(XPnt2d& out, double x, double y) const override;
    XPnt2d& imageToScreen(XPnt2d& out, const XPnt2d& imagePoint) const override;
    XPnt2d& pickImagePoint(XPnt2d& out, double x, double y) const override;
    QPainter* getPainter() const override { return m_painter; }
    // The host hands its painter over for the length of a paint.
    void setPainter(QPainter* painter) { m_painter = painter; }

    // Shows an image (-1 for none) of the given pixel size, fitted to the view,
    // and tells the image hooks.
    void showImage(long id, long width, long height);
    void setSize(long width, long height);
    KvoImageViewTransform& transform() { return m_transform; }
    const KvoRenderList& renders() const { return m_renders; }
    long imageEventCount() const { return m_events.count(); }

private:
    KvoImageViewTransform m_transform;
    KvoRenderList m_renders;
    KvoIdRegistry<IZebImgEvent> m_events;
    long m_imageId = -1;
    long m_width = 800, m_height = 600;
    QPainter* m_painter = nullptr;
};

// Our viewer manager: the two views, their hooks, the one current task and
// its dispatcher, the panels, cursors, progress, options and undo stack.
// The application and the tests feed events through the dispatch entry
// points; an answer of kvoNotHandled tells the view to navigate itself.
class QV_EXPORT CZebViewerMan : public QObject, public IZebViewerMan {
    Q_OBJECT
public:
    CZebViewerMan();
    ~CZebViewerMan() override;

    IKvoMM* getModelMan() const override { return getMM(); }
    ref_ptr<IKvoAppOptions>& getAppOptions(ref_ptr<IKvoAppOptions>& out) const override { return out = m_options; }
    QWidget* getMainFrame() const override { return m_mainFrame; }
    IKvoProgress* getProgress() const override { return m_progress; }
    void redrawModelView() override { emit redrawModelRequested(); }
    void redrawImageView() override { emit redrawImageRequested(); }
    void updateViews() override;

    void pushUndo(const ref_ptr<IKvoUndo>& item) override { m_undo.push(item); }
    bool undo() override { return m_undo.undo(); }
    bool redo() override { return m_undo.redo(); }
    bool canUndo() const override { return m_undo.canUndo(); }
    bool canRedo() const override { return m_undo.canRedo(); }

    long addRender(const ref_ptr<IZebRender>& render) override { return m_modelRenders.add(render); }
    void removeRender(long id) override { m_modelRenders.remove(id); }
    ref_ptr<IZebViewer>& getModelViewer(ref_ptr<IZebViewer>& out) const override { return out = m_modelViewer; }
    ref_ptr<IZebImageViewer>& getImageViewer(ref_ptr<IZebImageViewer>& out) const override
    {
        return out = m_imageViewer;
    }
    ref_ptr<IZebViewer>& getViewer(ref_ptr<IZebViewer>& out, long view) const override;
    IZebMeshPanel* getMeshPanel() const override { return m_meshPanel.get(); }
    IZebImagePanel* getImagePanel() const override { return m_imagePanel.get(); }
    void showView(long view, bool show) override { emit viewShown(view, show); }
    void setViewCursor(long view, long kind) override;
    void setCursorKind(long kind) override { setViewCursor(kvoModelView, kind); }
    void setPhotoPreview(bool on) override;

    long startTask(IKvoQvTask* task) override;
    long endCurrentTask() override;
    IKvoQvTask* getCurrentTask() const override { return m_task.get(); }
    IZebDialogHost* getDialogHost() const override { return m_dialogHost.get(); }
    IZebDialogHost* getSecondDialogHost() const override { return m_secondHost.get(); }
    IZebTaskPanel* getTaskPanel() const override { return m_taskPanel.get(); }

    bool isSelBackFaces() const override { return m_selBackFaces; }
    bool isActiveImageOnly() const override { return m_activeImageOnly; }
    bool isSelHidden() const override { return m_selHidden; }
    bool isSelBareOnly() const override { return m_selBareOnly; }
    void setSelectionSettings(bool backFaces, bool activeImageOnly, bool hidden, bool bareOnly);

    // Dispatch entry points. Mouse and key events answer the task's result,
    // or kvoNotHandled when no task is current.
    long mouseDown(long view, long flags, long x, long y);
    long mouseUp(long view, long flags, long x, long y);
    long mouseMove(long view, long flags, long x, long y);
    long mouseDoubleClick(long view, long flags, long x, long y);
    long mouseWheel(long view, long flags, long delta, long x, long y);
    long mouseEnter(long view);
    long mouseLeave(long view);
    long contextMenu(long view, long flags, long x, long y);
    long keyDown(long view, long key, long repeat, long flags);
    long keyUp(long view, long key, long repeat, long flags);
    // After a view drew the scene: the task's onPaint, then the view's render hooks.
    void paint(long view);

    void setMainFrame(QWidget* frame) { m_mainFrame = frame; }
    void setProgress(IKvoProgress* progress) { m_progress = progress; }
    long getViewCursor(long view) const { return view == kvoModelView ? m_cursor[0] : m_cursor[1]; }
    bool isPhotoPreview() const { return m_photoPreview; }
    CZebModelViewer* modelViewer() const { return m_modelViewer.get(); }
    CZebImageViewer* imageViewer() const { return m_imageViewer.get(); }
    CZebDialogHost* dialogHost() const { return m_dialogHost.get(); }
    CZebDialogHost* secondDialogHost() const { return m_secondHost.get(); }
    CZebTaskPanel* taskPanel() const { return m_taskPanel.get(); }
    CZebMeshPanel* meshPanel() const { return m_meshPanel.get(); }
    CZebImagePanel* imagePanel() const { return m_imagePanel.get(); }
    KvoUndoStack& undoStack() { return m_undo; }
    const KvoRenderList& modelRenders() const { return m_modelRenders; }
    // Shows the model manager's active image in the image view.
    void showActiveImage();

signals:
    void redrawModelRequested();
    void redrawImageRequested();
    void viewsUpdated();
    void viewShown(long view, bool show);
    void cursorChanged(long view, long kind);
    void photoPreviewChanged(bool on);
    void taskChanged();

private:
    template <class Fn> long toTask(Fn fn);

    ref_ptr<IKvoQvTask> m_task;
    ref_ptr<CZebModelViewer> m_modelViewer;
    ref_ptr<CZebImageViewer> m_imageViewer;
    KvoRenderList m_modelRenders;
    std::unique_ptr<CZebDialogHost> m_dialogHost, m_secondHost;
    std::unique_ptr<CZebTaskPanel> m_taskPanel;
    std::unique_ptr<CZebMeshPanel> m_meshPanel;
    std::unique_ptr<CZebImagePanel> m_imagePanel;
    ref_ptr<IKvoAppOptions> m_options;
    KvoUndoStack m_undo;
    QPointer<QWidget> m_mainFrame;
    IKvoProgress* m_progress = nullptr;
    long m_cursor[2] = {0, 0};
    bool m_photoPreview = false;
    bool m_selBackFaces = false, m_activeImageOnly = false, m_selHidden = false, m_selBareOnly = true;
};

// Makes a viewer manager and installs it as zebUI::getVM().
QV_EXPORT ref_ptr<CZebViewerMan> installViewerMan();

} // namespace kvo

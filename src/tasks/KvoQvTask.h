#pragma once

#include <QPointer>
#include <QString>

#include "scene/ZebViewerMan.h"

namespace kvo {

// Listener base of a task. Concrete listener interfaces derive from it; a task
// reaches them by dynamic cast.
class QV_EXPORT IKvoQvTaskEvent : public KvoReferenced {
public:
    ~IKvoQvTaskEvent() override = default;
};

// One entry of a task's listener list.
struct QV_EXPORT TagQvTaskEvent {
    long id = 0;
    ref_ptr<IKvoQvTaskEvent> event;
    TagQvTaskEvent() = default;
    TagQvTaskEvent(long i, const ref_ptr<IKvoQvTaskEvent>& e) : id(i), event(e) {}
};

using QvTagTaskEventArray = KvoArray<TagQvTaskEvent>;
QV_EXPORT ref_ptr<QvTagTaskEventArray> newQvTagTaskEventArray();

// An interactive tool living in the views. While it is the viewer manager's
// current task it receives the mouse and key events of both views (view 0 the
// 3-D view, 1 the image view; x, y window pixels with y down; flags the
// modifier word) and paints over them through render hooks. Hooks answer
// kvoNotHandled (-9998) to leave an event to the view.
class QV_EXPORT IKvoQvTask : public KvoReferenced {
public:
    ~IKvoQvTask() override = default;
    virtual void getName(QString& out) const = 0;
    virtual long setName(const QString& name) = 0;
    virtual long onTaskStart() = 0;
    virtual long onTaskEnd() = 0;
    virtual bool isTaskValid() const = 0;
    virtual bool isTaskBusy() const = 0;
    virtual long getTaskType() const = 0;
    virtual long onPaint(long view) = 0;
    virtual long onMouseDoubleClick(long view, long flags, long x, long y) = 0;
    virtual long onMouseDown(long view, long flags, long x, long y) = 0;
    virtual long onMouseUp(long view, long flags, long x, long y) = 0;
    virtual long onMouseMove(long view, long flags, long x, long y) = 0;
    // delta in eighths of a degree, as Qt gives it (120 a notch).
    virtual long onMouseWheel(long view, long flags, long delta, long x, long y) = 0;
    virtual long onMouseEnter(long view) = 0;
    virtual long onMouseLeave(long view) = 0;
    virtual long onContextMenu(long view, long flags, long x, long y) = 0;
    virtual long onKeyDown(long view, long key, long repeat, long flags) = 0;
    virtual long onKeyUp(long view, long key, long repeat, long flags) = 0;
    virtual long setActiveViewID(long view) = 0;
    virtual long getActiveViewID() const = 0;
    // The viewer of a view: 0 the model viewer, any other the image viewer.
    virtual ref_ptr<IZebViewer> getViewRender(long view) const = 0;
    virtual ref_ptr<IKvoTrackBall> getViewTrackBall(long view) const = 0;
    virtual long addTaskEvent(const ref_ptr<IKvoQvTaskEvent>& event) = 0;
    virtual long removeTaskEvent(long id) = 0;
    virtual void getTaskEventIds(ref_ptr<LongArray>& out) const = 0;
    virtual long onTaskCommand() = 0;
};

// The listener list of a task, shared by every task through CQvTaskImp.
class QV_EXPORT KvoTaskEventList {
public:
    KvoTaskEventList() : m_events(newQvTagTaskEventArray()) {}
    // -1 for a null event; else the new id: the largest id plus one, or 1.
    long add(const ref_ptr<IKvoQvTaskEvent>& event);
    // Removes the first entry with the id and answers the entries left; 1 without a match.
    long remove(long id);
    void ids(ref_ptr<LongArray>& out) const;
    void clear() { m_events->clear(); }
    ref_ptr<QvTagTaskEventArray> array() const { return m_events; }

    // Calls fn on every listener of type L, front to back. A result of -1
    // stops the walk and is returned; 0 after the last, 1 when there is no list.
    template <class L, class Fn> long fire(Fn fn) const
    {
        if (!m_events)
            return 1;
        // Listeners may add or remove listeners: walk a copy.
        std::vector<TagQvTaskEvent> entries = m_events->vec();
        for (const TagQvTaskEvent& e : entries)
            if (L* l = dynamic_cast<L*>(e.event.get()))
                if (fn(l) == -1)
                    return -1;
        return 0;
    }

private:
    ref_ptr<QvTagTaskEventArray> m_events;
};

// Defaults of every task operation. T is the tool's interface class.
template <class T> class CQvTaskImp : public T {
public:
    CQvTaskImp() = default;

    void getName(QString& out) const override { out = name; }
    long setName(const QString& n) override
    {
        name = n;
        return 0;
    }
    bool isTaskValid() const override { return true; }
    bool isTaskBusy() const override { return busy; }
    long getTaskType() const override { return 0; }
    long onPaint(long) override { return kvoNotHandled; }
    long onMouseDoubleClick(long, long, long, long) override { return kvoNotHandled; }
    long onMouseDown(long, long, long, long) override { return kvoNotHandled; }
    long onMouseUp(long, long, long, long) override { return kvoNotHandled; }
    long onMouseMove(long, long, long, long) override { return kvoNotHandled; }
    long onMouseWheel(long, long, long, long, long) override { return kvoNotHandled; }
    long onMouseEnter(long) override { return kvoNotHandled; }
    long onMouseLeave(long) override { return kvoNotHandled; }
    long onContextMenu(long, long, long, long) override { return kvoNotHandled; }
    long onKeyDown(long, long, long, long) override { return kvoNotHandled; }
    long onKeyUp(long, long, long, long) override { return kvoNotHandled; }
    long setActiveViewID(long view) override
    {
        activeView = view;
        return 0;
    }
    long getActiveViewID() const override { return activeView; }
    ref_ptr<IZebViewer> getViewRender(long view) const override
    {
        ref_ptr<IZebViewer> out;
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        if (!vm)
            return out;
        if (view == kvoModelView)
            return vm->getModelViewer(out);
        ref_ptr<IZebImageViewer> image;
        vm->getImageViewer(image);
        return ref_ptr<IZebViewer>(image.get());
    }
    ref_ptr<IKvoTrackBall> getViewTrackBall(long view) const override
    {
        ref_ptr<IKvoTrackBall> ball;
        if (ref_ptr<IZebViewer> viewer = getViewRender(view))
            viewer->getTrackBall(ball);
        return ball;
    }
    long addTaskEvent(const ref_ptr<IKvoQvTaskEvent>& event) override { return events.add(event); }
    long removeTaskEvent(long id) override { return events.remove(id); }
    void getTaskEventIds(ref_ptr<LongArray>& out) const override { events.ids(out); }
    long onTaskCommand() override { return 0; }

protected:
    QString name;
    bool busy = false;
    // Set by tools that keep a modal sub-dialog open; the dispatcher does not read it.
    bool modal = false;
    KvoTaskEventList events;
    long activeView = 0;
};

// A task whose whole interface is one dialog in the viewer's dialog host: the
// dialog comes with the task and goes with it, whether or not the host still
// holds it. Dialog is built with no parent.
template <class T, class Dialog> class CQvSideDialogTask : public CQvTaskImp<T> {
public:
    long onTaskStart() override
    {
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        if (!vm)
            return -1;
        m_dialog = new Dialog(nullptr);
        if (IZebDialogHost* host = vm->getDialogHost())
            host->attach(m_dialog);
        vm->updateViews();
        return 0;
    }

    long onTaskEnd() override
    {
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        if (!vm)
            return -1;
        beforeDialogGoes();
        if (IZebDialogHost* host = vm->getDialogHost())
            if (host->getAttached() == m_dialog)
                host->clear();
        if (m_dialog)
            m_dialog->deleteLater();
        m_dialog = nullptr;
        vm->updateViews();
        return 0;
    }

protected:
    // Runs as the task ends, while the dialog is still there.
    virtual void beforeDialogGoes() {}

    QPointer<Dialog> m_dialog;
};

// Dialogs that follow the image shown in the image view implement this.
class QV_EXPORT IKvoImageViewFollower {
public:
    virtual ~IKvoImageViewFollower() = default;
    virtual void refreshForShownImage() = 0;
};

// The image viewer hook of the mapping tools: tells up to three dialogs, any
// of which may be null or already gone, that the shown image changed.
class QV_EXPORT CKvoQvImgViewEventImp : public IZebImgEvent {
public:
    CKvoQvImgViewEventImp(QObject* mapping, QObject* adjust = nullptr, QObject* third = nullptr)
        : m_dialogs{mapping, adjust, third}
    {
    }
    void onImageEvent() override {}
    void onImageChanged() override;

private:
    QPointer<QObject> m_dialogs[3];
};

} // namespace kvo

extern template class kvo::KvoArray<kvo::TagQvTaskEvent>;

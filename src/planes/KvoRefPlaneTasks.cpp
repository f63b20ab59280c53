#include "planes/KvoRefPlaneTasks.h"

#include <GL/gl.h>

#include "commands/KvoCommands.h"
#include "planes/KvoRefPlaneOps.h"
#include "planes/QDlgProjectPlaneManagement.h"
#include "scene/KvoStore.h"

namespace kvo {

namespace {

ref_ptr<IKvoQvRefPlaneMan> planeList()
{
    ref_ptr<IKvoQvRefPlaneMan> planes;
    getMM()->getRefPlaneMan(planes);
    return planes;
}

XPnt3d viewEye()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    ref_ptr<IZebViewer> viewer;
    ref_ptr<IKvoTrackBall> ball;
    if (vm && vm->getModelViewer(viewer) && viewer && viewer->getTrackBall(ball) && ball)
        return ball->getEye();
    return XPnt3d(0, -100, 60);
}

void redraw()
{
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        vm->redrawModelView();
}

// The picked points, drawn red over the model.
class CTaskAddPnt3Render : public IZebRender {
public:
    explicit CTaskAddPnt3Render(ref_ptr<Pnt3dArray> points) : m_points(std::move(points)) {}
    void getName(QString& out) const override { out = "AddPnt3"; }
    long draw(long view, const ref_ptr<IZebViewer>&) override
    {
        if (view != kvoModelView || !m_points || m_points->getCount() == 0)
            return 1;
        glPushAttrib(GL_ENABLE_BIT | GL_POINT_BIT | GL_CURRENT_BIT);
        glDisable(GL_LIGHTING);
        // Colours set here must not reach the material of what is drawn next.
        glDisable(GL_COLOR_MATERIAL);
        glDisable(GL_TEXTURE_2D);
        glDisable(GL_DEPTH_TEST);
        glPointSize(2.0f * 3);
        glColor3f(1, 0, 0);
        glBegin(GL_POINTS);
        for (const XPnt3d& p : m_points->vec())
            glVertex3d(p.x, p.y, p.z);
        glEnd();
        glPopAttrib();
        return 0;
    }

private:
    ref_ptr<Pnt3dArray> m_points;
};

class CQvTaskAddPnt3 : public CQvTaskImp<IKvoQvTaskAddPnt3> {
public:
    CQvTaskAddPnt3()
    {
        name = "AddPnt3";
        m_render = new CTaskAddPnt3Render(m_points);
        if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
            m_renderId = vm->addRender(m_render);
    }
    ~CQvTaskAddPnt3() override
    {
        if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
            vm->removeRender(m_renderId);
    }
    void setMode(long mode) override { m_mode = mode == 1 ? 1 : 0; }
    long getMode() const override { return m_mode; }
    ref_ptr<Pnt3dArray> getPoints() const override { return m_points; }
    long onTaskStart() override { return 0; }
    long onTaskEnd() override { return 0; }
    long onMouseMove(long view, long, long, long) override
    {
        if (view != kvoModelView)
            return kvoNotHandled;
        if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
            vm->setViewCursor(kvoModelView, 1);
        return kvoNotHandled;
    }
    long onMouseDown(long view, long flags, long x, long y) override
    {
        if (view != kvoModelView || !(flags & kvoButtonLeft))
            return kvoNotHandled;
        if ((m_mode == 0 && m_points->getCount() >= 3) || (m_mode == 1 && m_points->getCount() >= 1))
            m_points->clear();
        ref_ptr<IKvoTrackBall> ball = getViewTrackBall(kvoModelView);
        if (!ball)
            return -1;
        XPnt3d p;
        ball->pickPoint(p, double(x), double(y));
        if (!p.isValid())
            return -1;
        m_points->append(p);
        redraw();
        if (m_mode == 1 || m_points->getCount() == 3) {
            const XPnt3d eye = ball->getEye();
            ref_ptr<Pnt3dArray> pts = m_points;
            events.fire<IKvoQvTaskAddPnt3Event>([&](IKvoQvTaskAddPnt3Event* e) {
                if (m_mode == 1)
                    e->onOnePoint(p, p - eye);
                else
                    e->onThreePoints(pts);
                return -1; // the first listener of its kind only
            });
            m_points->clear();
            redraw();
        }
        return 0;
    }

private:
    long m_mode = 0;
    ref_ptr<Pnt3dArray> m_points = newPnt3dArray();
    ref_ptr<IZebRender> m_render;
    long m_renderId = -1;
};

// Makes the plane and keeps the dialog's table in step.
class CKvoQvTaskAddPnt3EventImp : public IKvoQvTaskAddPnt3Event {
public:
    QPointer<QDlgProjectPlaneManagement> dialog;
    long onThreePoints(ref_ptr<Pnt3dArray>& points) override { return done(createPlaneFromPicks(points, nullptr)); }
    long onOnePoint(const XPnt3d& point, const XPnt3d& normal) override
    {
        ref_ptr<Pnt3dArray> pts = newPnt3dArray();
        pts->append(point);
        return done(createPlaneFromPicks(pts, &normal));
    }

private:
    long done(long id)
    {
        if (dialog)
            dialog->refreshTable();
        return id;
    }
};

class CKvoQvTaskProjectPlaneManagement : public CQvTaskImp<IKvoQvTask> {
public:
    CKvoQvTaskProjectPlaneManagement()
    {
        name = "ProjectPlaneManagement";
        m_listener = new CKvoQvTaskAddPnt3EventImp();
        m_pick = newQvTaskAddPnt3();
        m_pick->addTaskEvent(ref_ptr<IKvoQvTaskEvent>(m_listener.get()));
    }
    long onTaskStart() override
    {
        ref_ptr<IKvoQvRefPlaneMan> planes = planeList();
        if (!planes)
            return -1;
        planes->updateDisplay(false);
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        m_dialog = new QDlgProjectPlaneManagement(planes, vm ? vm->getMainFrame() : nullptr);
        m_listener->dialog = m_dialog;
        QObject::connect(m_dialog, &QDlgProjectPlaneManagement::finishedWith, [](bool) {
            if (ref_ptr<IZebViewerMan> v = zebUI::getVM()) {
                v->endCurrentTask();
                if (IZebTaskPanel* panel = v->getTaskPanel())
                    panel->close();
            }
        });
        if (vm) {
            if (IZebDialogHost* host = vm->getDialogHost())
                host->attach(m_dialog);
            vm->setViewCursor(kvoModelView, 1);
        }
        return 0;
    }
    long onTaskEnd() override
    {
        if (ref_ptr<IKvoQvRefPlaneMan> planes = planeList())
            planes->updateDisplay(false);
        m_listener->dialog = nullptr;
        if (ref_ptr<IZebViewerMan> vm = zebUI::getVM()) {
            if (IZebDialogHost* host = vm->getDialogHost())
                if (host->getAttached() == m_dialog)
                    host->clear();
            vm->setViewCursor(kvoModelView, 0);
        }
        if (m_dialog)
            m_dialog->deleteLater();
        m_dialog = nullptr;
        return 0;
    }
    long onMouseMove(long view, long flags, long x, long y) override
    {
        bindMode();
        return m_pick->onMouseMove(view, flags, x, y);
    }
    long onMouseDown(long view, long flags, long x, long y) override
    {
        bindMode();
        return m_pick->onMouseDown(view, flags, x, y);
    }
    long onMouseUp(long view, long flags, long x, long y) override { return m_pick->onMouseUp(view, flags, x, y); }
    long onKeyDown(long view, long key, long repeat, long flags) override
    {
        if (key == Qt::Key_P && (flags & (kvoModCtrl | kvoModShift | kvoModAlt)) == 0 && m_dialog) {
            m_dialog->refreshTable();
            return 0;
        }
        return CQvTaskImp<IKvoQvTask>::onKeyDown(view, key, repeat, flags);
    }
    QDlgProjectPlaneManagement* dialog() const { return m_dialog; }

private:
    void bindMode()
    {
        if (m_dialog)
            m_pick->setMode(m_dialog->isThreePointMode() ? 0 : 1);
    }
    ref_ptr<CKvoQvTaskAddPnt3EventImp> m_listener;
    ref_ptr<IKvoQvTaskAddPnt3> m_pick;
    QPointer<QDlgProjectPlaneManagement> m_dialog;
};

class CKvoQvTaskRefPlaneMan : public CQvTaskImp<IKvoQvTaskRefPlaneMan> {
public:
    CKvoQvTaskRefPlaneMan() { name = "RefPlaneMan"; }
    void setMode(long mode) override
    {
        if (mode == 1) {
            m_listener = new CKvoQvTaskAddPnt3EventImp();
            m_pick = newQvTaskAddPnt3();
            m_pick->addTaskEvent(ref_ptr<IKvoQvTaskEvent>(m_listener.get()));
        } else {
            m_pick.reset();
            m_listener.reset();
        }
    }
    long onTaskStart() override
    {
        if (ref_ptr<IKvoQvRefPlaneMan> planes = planeList())
            planes->updateDisplay(false);
        redraw();
        return 0;
    }
    long onTaskEnd() override
    {
        setMode(0);
        if (ref_ptr<IKvoQvRefPlaneMan> planes = planeList())
            planes->updateDisplay(false);
        redraw();
        return 0;
    }
    long onMouseMove(long view, long flags, long x, long y) override
    {
        return m_pick ? m_pick->onMouseMove(view, flags, x, y) : kvoNotHandled;
    }
    long onMouseDown(long view, long flags, long x, long y) override
    {
        return m_pick ? m_pick->onMouseDown(view, flags, x, y) : kvoNotHandled;
    }

private:
    ref_ptr<CKvoQvTaskAddPnt3EventImp> m_listener;
    ref_ptr<IKvoQvTaskAddPnt3> m_pick;
};

// Every visible plane: a translucent fill and its outline, the active one brighter.
class CRefPlaneRender : public IZebRender {
public:
    void getName(QString& out) const override { out = "RefPlanes"; }
    long draw(long view, const ref_ptr<IZebViewer>&) override
    {
        ref_ptr<IKvoQvRefPlaneMan> planes = planeList();
        if (view != kvoModelView || !planes || planes->getPlaneCount() == 0)
            return 1;
        glPushAttrib(GL_ENABLE_BIT | GL_CURRENT_BIT | GL_LINE_BIT | GL_DEPTH_BUFFER_BIT | GL_COLOR_BUFFER_BIT);
        glDisable(GL_LIGHTING);
        // Colours set here must not reach the material of what is drawn next.
        glDisable(GL_COLOR_MATERIAL);
        glDisable(GL_TEXTURE_2D);
        glDisable(GL_CULL_FACE);
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        glDepthMask(GL_FALSE);
        for (long i = 0; i < planes->getPlaneCount(); ++i) {
            ref_ptr<IKvoQvRefPlane> p;
            planes->getPlaneAt(p, i);
            ref_ptr<IKvoRing> ring;
            if (!p || !p->isVisible() || !p->getRing(ring) || !ring || ring->getPointCount() < 3)
                continue;
            const bool active = p->getId() == planes->getActivePlaneId();
            glColor4f(active ? 1.f : 0.2f, active ? 0.85f : 0.7f, active ? 0.1f : 1.f, 0.18f);
            glBegin(GL_POLYGON);
            for (long k = 0; k < ring->getPointCount(); ++k) {
                const XPnt3d q = ring->getPoint(k);
                glVertex3d(q.x, q.y, q.z);
            }
            glEnd();
            glLineWidth(active ? 2.5f : 1.2f);
            glColor4f(active ? 1.f : 0.2f, active ? 0.85f : 0.7f, active ? 0.1f : 1.f, 0.95f);
            glBegin(GL_LINE_LOOP);
            for (long k = 0; k < ring->getPointCount(); ++k) {
                const XPnt3d q = ring->getPoint(k);
                glVertex3d(q.x, q.y, q.z);
            }
            glEnd();
        }
        glPopAttrib();
        return 0;
    }
};

} // namespace

ref_ptr<IKvoQvTaskAddPnt3> newQvTaskAddPnt3()
{
    return ref_ptr<IKvoQvTaskAddPnt3>(new CQvTaskAddPnt3());
}

ref_ptr<IKvoQvTaskRefPlaneMan> newKvoQvTaskRefPlaneMan()
{
    return ref_ptr<IKvoQvTaskRefPlaneMan>(new CKvoQvTaskRefPlaneMan());
}

ref_ptr<IZebRender> newRefPlaneRender()
{
    return ref_ptr<IZebRender>(new CRefPlaneRender());
}

long createPlaneFromPicks(const ref_ptr<Pnt3dArray>& points, const XPnt3d* normal)
{
    ref_ptr<IKvoQvRefPlaneMan> planes = planeList();
    if (!planes || !points)
        return -1;
    Enve3d box;
    getMM()->getModelEnvelope(box);
    const long id =
        normal ? (points->getCount() > 0 ? createPlaneFromOnePoint(*planes, points->getAt(0), *normal, box) : -1)
               : createPlaneFromThreePoints(*planes, *points, box);
    if (id < 0)
        return -1;
    orientNewPlane(*planes, viewEye());
    planes->updateDisplay(true);
    redraw();
    return id;
}

// Ends the current task and starts the plane management tool: -1 without a
// viewer manager, else 0.
long cmdOnProjectPlaneManageQt()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return -1;
    if (vm->endCurrentTask() == kvoTaskRefused)
        return 0;
    if (IZebTaskPanel* panel = vm->getTaskPanel())
        panel->close();
    ref_ptr<IKvoQvTask> task(new CKvoQvTaskProjectPlaneManagement());
    vm->startTask(task.get());
    return 0;
}

} // namespace kvo

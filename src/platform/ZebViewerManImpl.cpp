#include "platform/ZebViewerManImpl.h"

#include "platform/KvoAppOptionsImpl.h"

namespace kvo {

long kvoModifierWord(Qt::KeyboardModifiers modifiers, Qt::MouseButtons buttons)
{
    long w = 0;
    if (modifiers & Qt::ControlModifier)
        w |= kvoModCtrl;
    if (modifiers & Qt::ShiftModifier)
        w |= kvoModShift;
    if (modifiers & Qt::AltModifier)
        w |= kvoModAlt;
    if (buttons & Qt::LeftButton)
        w |= kvoButtonLeft;
    if (buttons & Qt::RightButton)
        w |= kvoButtonRight;
    if (buttons & Qt::MiddleButton)
        w |= kvoButtonMiddle;
    return w;
}

// ---------------------------------------------------------------- render hooks

long KvoRenderList::drawAll(long view, const ref_ptr<IZebViewer>& viewer) const
{
    long drawn = 0;
    for (auto& h : snapshot())
        if (h->draw(view, viewer) == 0)
            ++drawn;
    return drawn;
}

// ---------------------------------------------------------------- panels

void CZebDialogHost::attach(QWidget* widget)
{
    if (m_widget == widget)
        return;
    if (m_widget && !widget)
        m_widget->hide();
    m_widget = widget;
    emit attachedChanged(widget);
}

void CZebDialogHost::clear()
{
    QPointer<QWidget> old = m_widget;
    m_widget = nullptr;
    emit attachedChanged(nullptr);
    if (old)
        old->close();
}

void CZebMeshPanel::add(const ref_ptr<IKvoMesh>& mesh, const QString& section)
{
    auto& list = m_sections[section];
    if (mesh && std::find(list.begin(), list.end(), mesh) == list.end())
        list.push_back(mesh);
    emit sectionChanged(section);
}

void CZebMeshPanel::remove(const ref_ptr<IKvoMesh>& mesh, const QString& section)
{
    auto& list = m_sections[section];
    list.erase(std::remove(list.begin(), list.end(), mesh), list.end());
    emit sectionChanged(section);
}

void CZebMeshPanel::refreshSection(const QString& section)
{
    // The model manager is the truth; the panel shows what it holds.
    IKvoMM* mm = getMM();
    ref_ptr<MeshArray> list;
    if (section == "Bare Mesh")
        mm->getBareMeshes(list);
    else if (section == "Texture Mesh")
        mm->getTexMeshes(list);
    if (list)
        m_sections[section].assign(list->vec().begin(), list->vec().end());
    emit sectionChanged(section);
}

void CZebMeshPanel::rebuild()
{
    refreshSection("Bare Mesh");
    refreshSection("Texture Mesh");
}

std::vector<ref_ptr<IKvoMesh>> CZebMeshPanel::meshes(const QString& section) const
{
    auto it = m_sections.find(section);
    return it == m_sections.end() ? std::vector<ref_ptr<IKvoMesh>>() : it->second;
}

// ---------------------------------------------------------------- viewers

CZebModelViewer::CZebModelViewer() : m_ball(newKvoTrackBall())
{
    m_ball->setViewport(int(m_width), int(m_height));
}

ref_ptr<IKvoTrackBall>& CZebModelViewer::getTrackBall(ref_ptr<IKvoTrackBall>& out) const
{
    return out = ref_ptr<IKvoTrackBall>(m_ball.get());
}

void CZebModelViewer::setSize(long width, long height)
{
    m_width = std::max(1L, width);
    m_height = std::max(1L, height);
    m_ball->setViewport(int(m_width), int(m_height));
}

long CZebImageViewer::addImgEvent(const ref_ptr<IZebImgEvent>& event)
{
    return m_events.add(event);
}

void CZebImageViewer::removeImgEvent(long id)
{
    m_events.remove(id);
}

XPnt2d& CZebImageViewer::screenToImage(XPnt2d& out, double x, double y) const
{
    return m_transform.screenToImage(out, x, y);
}

XPnt2d& CZebImageViewer::imageToScreen(XPnt2d& out, const XPnt2d& p) const
{
    return m_transform.imageToScreen(out, p);
}

XPnt2d& CZebImageViewer::pickImagePoint(XPnt2d& out, double x, double y) const
{
    return m_transform.pickImagePoint(out, x, y);
}

void CZebImageViewer::setSize(long width, long height)
{
    m_width = std::max(1L, width);
    m_height = std::max(1L, height);
    m_transform.setViewSize(double(m_width), double(m_height));
}

void CZebImageViewer::showImage(long id, long width, long height)
{
    const bool changed = id != m_imageId;
    m_imageId = id;
    m_transform.setImageSize(id > 0 ? double(width) : 0.0, id > 0 ? double(height) : 0.0);
    m_transform.fit();
    if (!changed)
        return;
    for (auto& e : m_events.snapshot())
        e->onImageChanged();
}

// ---------------------------------------------------------------- viewer manager

CZebViewerMan::CZebViewerMan()
    : m_modelViewer(new CZebModelViewer()), m_imageViewer(new CZebImageViewer()), m_dialogHost(new CZebDialogHost()),
      m_secondHost(new CZebDialogHost()), m_taskPanel(new CZebTaskPanel()), m_meshPanel(new CZebMeshPanel()),
      m_imagePanel(new CZebImagePanel()), m_options(newKvoAppOptions())
{
}

CZebViewerMan::~CZebViewerMan()
{
    // A task still current is ended so that it can take its hooks down.
    if (m_task) {
        ref_ptr<IKvoQvTask> task = m_task;
        m_task.reset();
        task->onTaskEnd();
    }
}

void CZebViewerMan::updateViews()
{
    m_meshPanel->rebuild();
    emit viewsUpdated();
    emit redrawModelRequested();
    emit redrawImageRequested();
}

ref_ptr<IZebViewer>& CZebViewerMan::getViewer(ref_ptr<IZebViewer>& out, long view) const
{
    if (view == kvoModelView)
        return out = m_modelViewer;
    return out = ref_ptr<IZebViewer>(m_imageViewer.get());
}

void CZebViewerMan::setViewCursor(long view, long kind)
{
    m_cursor[view == kvoModelView ? 0 : 1] = kind;
    emit cursorChanged(view, kind);
}

void CZebViewerMan::setPhotoPreview(bool on)
{
    m_photoPreview = on;
    emit photoPreviewChanged(on);
}

void CZebViewerMan::setSelectionSettings(bool backFaces, bool activeImageOnly, bool hidden, bool bareOnly)
{
    m_selBackFaces = backFaces;
    m_activeImageOnly = activeImageOnly;
    m_selHidden = hidden;
    m_selBareOnly = bareOnly;
}

long CZebViewerMan::startTask(IKvoQvTask* task)
{
    if (!task)
        return -1;
    ref_ptr<IKvoQvTask> keep(task);
    if (m_task == keep)
        return 0;
    // The task that is current goes first, and only if it agrees to.
    if (endCurrentTask() == kvoTaskRefused)
        return -1;
    m_task = keep;
    const long rc = keep->onTaskStart();
    if (rc < 0) {
        if (m_task == keep)
            m_task.reset();
        emit taskChanged();
        return rc;
    }
    emit taskChanged();
    return rc;
}

long CZebViewerMan::endCurrentTask()
{
    if (!m_task)
        return 0;
    if (m_task->isTaskBusy())
        return kvoTaskRefused;
    // The task is no longer current while it ends, so that what it calls
    // (its dialog's handlers, updateViews) sees no current task.
    ref_ptr<IKvoQvTask> task = m_task;
    m_task.reset();
    task->onTaskEnd();
    emit taskChanged();
    return 0;
}

template <class Fn> long CZebViewerMan::toTask(Fn fn)
{
    // Hold the task for the call: a handler may end its own task.
    ref_ptr<IKvoQvTask> task = m_task;
    return task ? fn(task.get()) : kvoNotHandled;
}

long CZebViewerMan::mouseDown(long view, long flags, long x, long y)
{
    return toTask([&](IKvoQvTask* t) { return t->onMouseDown(view, flags, x, y); });
}
long CZebViewerMan::mouseUp(long view, long flags, long x, long y)
{
    return toTask([&](IKvoQvTask* t) { return t->onMouseUp(view, flags, x, y); });
}
long CZebViewerMan::mouseMove(long view, long flags, long x, long y)
{
    return toTask([&](IKvoQvTask* t) { return t->onMouseMove(view, flags, x, y); });
}
long CZebViewerMan::mouseDoubleClick(long view, long flags, long x, long y)
{
    return toTask([&](IKvoQvTask* t) { return t->onMouseDoubleClick(view, flags, x, y); });
}
long CZebViewerMan::mouseWheel(long view, long flags, long delta, long x, long y)
{
    return toTask([&](IKvoQvTask* t) { return t->onMouseWheel(view, flags, delta, x, y); });
}
long CZebViewerMan::mouseEnter(long view)
{
    return toTask([&](IKvoQvTask* t) { return t->onMouseEnter(view); });
}
long CZebViewerMan::mouseLeave(long view)
{
    return toTask([&](IKvoQvTask* t) { return t->onMouseLeave(view); });
}
long CZebViewerMan::contextMenu(long view, long flags, long x, long y)
{
    return toTask([&](IKvoQvTask* t) { return t->onContextMenu(view, flags, x, y); });
}
long CZebViewerMan::keyDown(long view, long key, long repeat, long flags)
{
    return toTask([&](IKvoQvTask* t) { return t->onKeyDown(view, key, repeat, flags); });
}
long CZebViewerMan::keyUp(long view, long key, long repeat, long flags)
{
    return toTask([&](IKvoQvTask* t) { return t->onKeyUp(view, key, repeat, flags); });
}

void CZebViewerMan::paint(long view)
{
    toTask([&](IKvoQvTask* t) { return t->onPaint(view); });
    if (view == kvoModelView)
        m_modelRenders.drawAll(view, m_modelViewer);
    else
        m_imageViewer->renders().drawAll(view, ref_ptr<IZebViewer>(m_imageViewer.get()));
}

void CZebViewerMan::showActiveImage()
{
    IKvoMM* mm = getMM();
    const long id = mm->getActiveImageId();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    XPnt2i size;
    if (id > 0 && mm->getProject(project) && project->getImageDb(db) && db->getImageInfo(info, id))
        info->getImageSize(size, 2);
    m_imageViewer->showImage(size.x > 0 ? id : -1, size.x, size.y);
    emit redrawImageRequested();
}

ref_ptr<CZebViewerMan> installViewerMan()
{
    ref_ptr<CZebViewerMan> vm(new CZebViewerMan());
    zebUI::setVM(ref_ptr<IZebViewerMan>(vm.get()));
    return vm;
}

} // namespace kvo

#include "mapping/KvoCtrlPntTask.h"

#include <GL/gl.h>

#include <QPainter>
#include <QPointer>

#include <algorithm>

#include "commands/KvoCommands.h"
#include "mapping/QDlgTextureMapping.h"
#include "scene/KvoGeometry.h"
#include "scene/KvoPntSnap.h"
#include "scene/KvoStore.h"

namespace kvo {

namespace {

ref_ptr<IKvoImageInfo> activeRecord()
{
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    if (getMM()->getProject(project) && project->getImageDb(db))
        db->getImageInfo(info, getMM()->getActiveImageId());
    return info;
}

// Waiting world picks (red) and the control points of the active image (blue)
// over the model.
class ITaskCtrlPntRender : public IZebRender {
public:
    ITaskCtrlPntRender(const std::vector<XPnt3d>* picks, const std::vector<XPnt2d>* imagePicks,
                       const QPointer<QDlgTextureMapping>* dialog, const QRectF* band)
        : m_picks(picks), m_imagePicks(imagePicks), m_dialog(dialog), m_band(band)
    {
    }

    void getName(QString& out) const override { out = "CtrlPntsRender"; }
    long draw(long view, const ref_ptr<IZebViewer>&) override
    {
        if (view != kvoModelView)
            return drawImage();
        glPushAttrib(GL_ENABLE_BIT | GL_POINT_BIT | GL_CURRENT_BIT | GL_TEXTURE_BIT | GL_COLOR_BUFFER_BIT |
                     GL_LINE_BIT);
        glDisable(GL_LIGHTING);
        // Colours set here must not reach the material of what is drawn next.
        glDisable(GL_COLOR_MATERIAL);
        glDisable(GL_TEXTURE_2D);
        glDisable(GL_DEPTH_TEST);
        glPointSize(7.f);
        glBegin(GL_POINTS);
        glColor3f(1, 0, 0);
        for (const XPnt3d& p : *m_picks)
            glVertex3d(p.x, p.y, p.z);
        glColor3f(0.1f, 0.3f, 1);
        if (ref_ptr<IKvoImageInfo> info = activeRecord())
            for (long i = 0; i < info->getCtrlWorldPntCount(); ++i) {
                XPnt3d w;
                info->getCtrlWorldPnt(w, i);
                glVertex3d(w.x, w.y, w.z);
            }
        glEnd();
        drawPreview();
        glPopAttrib();
        return 0;
    }

private:
    // Where the image's camera sees the photograph: the photograph itself, half
    // transparent and outlined in red, while the view is not looking through
    // that camera.
    void drawPreview()
    {
        const QDlgTextureMapping* dlg = m_dialog->data();
        if (!dlg || dlg->previewState() != 0 || !(dlg->camera().fovY > 0))
            return;
        const zebUI::_ZebVCMapParam_& f = dlg->previewFrame();
        const XPnt3d corners[4] = {f.leftBottom, f.rightBottom, f.rightTop, f.leftTop};
        // Rows of the picture run top-down, so the top corners take t = 0.
        const float tex[4][2] = {{0, 1}, {1, 1}, {1, 0}, {0, 0}};
        if (!f.leftBottom.isValid() || length(f.rightTop - f.leftBottom) <= 0)
            return;
        glEnable(GL_DEPTH_TEST);
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        // The frame buffer's alpha must stay opaque: the window system composes
        // the view by it, and a half-transparent view shows false colours.
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_FALSE);
        const bool textured = bindPhotograph();
        if (textured) {
            glEnable(GL_TEXTURE_2D);
            glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
            glColor4f(1, 1, 1, 0.5f);
        } else {
            glColor4f(1, 1, 1, 0.25f);
        }
        glBegin(GL_QUADS);
        for (int k = 0; k < 4; ++k) {
            glTexCoord2f(tex[k][0], tex[k][1]);
            glVertex3d(corners[k].x, corners[k].y, corners[k].z);
        }
        glEnd();
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        glDisable(GL_TEXTURE_2D);
        glLineWidth(2.f);
        glColor4f(1, 0, 0, 1);
        glBegin(GL_LINE_LOOP);
        for (const XPnt3d& c : corners)
            glVertex3d(c.x, c.y, c.z);
        glEnd();
    }

    // The active photograph as a texture of at most 1024 pixels a side. One
    // texture serves every session: the 3-D view has the one context.
    static bool bindPhotograph()
    {
        static GLuint texture = 0;
        static long shownId = -1;
        const long id = getMM()->getActiveImageId();
        ref_ptr<IKvoProject> project;
        ref_ptr<IKvoImageDb> db;
        ref_ptr<IKvoImage> img;
        if (!getMM()->getProject(project) || !project->getImageDb(db))
            return false;
        if (texture && id == shownId) {
            glBindTexture(GL_TEXTURE_2D, texture);
            return true;
        }
        if (!db->getTexture(img, id, 2) || img->isEmpty())
            return false;
        const long side = std::max(img->getWidth(), img->getHeight());
        if (side > 1024)
            img =
                img->resized(std::max(1L, img->getWidth() * 1024 / side), std::max(1L, img->getHeight() * 1024 / side));
        if (!texture)
            glGenTextures(1, &texture);
        glBindTexture(GL_TEXTURE_2D, texture);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, GLint(img->getStride() / 4));
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, GLsizei(img->getWidth()), GLsizei(img->getHeight()), 0, GL_RGBA,
                     GL_UNSIGNED_BYTE, img->getData());
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        // No mipmaps are made, so the filter must not ask for them.
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        shownId = id;
        return true;
    }

    // On the photograph: the control points (blue, numbered from 1) and the
    // waiting picks (red, numbered on from the control points).
    long drawImage()
    {
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        ref_ptr<IZebImageViewer> viewer;
        ref_ptr<IKvoImageInfo> info = activeRecord();
        XPnt2i size;
        if (!vm || !vm->getImageViewer(viewer) || !viewer || !viewer->getPainter() || !info ||
            !info->getImageSize(size, 2) || size.x <= 0)
            return 1;
        QPainter& p = *viewer->getPainter();
        p.save();
        QFont font = p.font();
        font.setPixelSize(15);
        p.setFont(font);
        auto mark = [&](const XPnt2d& uv, int number, const QColor& colour) {
            XPnt2d s;
            viewer->imageToScreen(s, XPnt2d(uv.x * size.x, (1.0 - uv.y) * size.y));
            p.setPen(QPen(colour, 2));
            p.drawLine(QPointF(s.x - 6, s.y), QPointF(s.x + 6, s.y));
            p.drawLine(QPointF(s.x, s.y - 6), QPointF(s.x, s.y + 6));
            p.drawText(QPointF(s.x + 5, s.y - 5), QString::number(number));
        };
        const long n = info->getCtrlImagePntCount();
        for (long i = 0; i < n; ++i) {
            XPnt2d uv;
            info->getCtrlImagePnt(uv, i);
            mark(uv, int(i + 1), QColor(30, 80, 255));
        }
        for (size_t k = 0; k < m_imagePicks->size(); ++k)
            mark((*m_imagePicks)[k], int(n + 1 + long(k)), QColor(255, 0, 0));
        if (m_band->isValid()) {
            p.setPen(QPen(QColor(255, 255, 0), 1, Qt::DashLine));
            p.setBrush(Qt::NoBrush);
            p.drawRect(*m_band);
        }
        p.restore();
        return 0;
    }

    const std::vector<XPnt3d>* m_picks;
    const std::vector<XPnt2d>* m_imagePicks;
    const QPointer<QDlgTextureMapping>* m_dialog;
    const QRectF* m_band;
};

class CKvoQvTaskCtrlPnt : public CQvTaskImp<IKvoQvTaskCtrlPnt> {
public:
    CKvoQvTaskCtrlPnt() { name = "CtrlPnt"; }
    void setMode(long mode) override { m_mode = mode; }
    void setMappingFlag(bool mapping) override { m_mappingFlag = mapping; }
    void setEventMode(long mode) override { m_eventMode = mode; }
    bool isMapping() const override { return m_mappingFlag; }
    long fireChanged(long) override
    {
        POINT_POINT p;
        if (!m_lastPair.empty()) {
            p.uv = m_lastPair.front().first;
            p.world = m_lastPair.front().second;
        }
        return events.fire<IKvoQvTaskCtrlPntEvent>([&](IKvoQvTaskCtrlPntEvent* e) { return e->onPointChanged(p); });
    }
    const std::vector<XPnt3d>& worldPicks() const override { return m_worldPicks; }
    const std::vector<XPnt2d>& imagePicks() const override { return m_imagePicks; }

    long onTaskStart() override
    {
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        if (!vm)
            return -1;
        m_render = new ITaskCtrlPntRender(&m_worldPicks, &m_imagePicks, &m_dialog, &m_band);
        m_renderId = vm->addRender(m_render);
        ref_ptr<IZebImageViewer> image;
        if (vm->getImageViewer(image) && image)
            m_imageRenderId = image->addRender(m_render);
        if (m_mode == 0 && m_mappingFlag) {
            m_dialog = new QDlgTextureMapping(nullptr);
            QObject::connect(m_dialog, &QDlgTextureMapping::finished, [] {
                if (ref_ptr<IZebViewerMan> v = zebUI::getVM()) {
                    v->endCurrentTask();
                    if (IZebTaskPanel* panel = v->getTaskPanel())
                        panel->close();
                }
            });
            if (IZebDialogHost* host = vm->getDialogHost())
                host->attach(m_dialog);
        }
        return 0;
    }
    long onTaskEnd() override
    {
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        if (vm) {
            vm->removeRender(m_renderId);
            ref_ptr<IZebImageViewer> image;
            if (vm->getImageViewer(image) && image)
                image->removeRender(m_imageRenderId);
        }
        m_imagePicks.clear();
        m_worldPicks.clear();
        IKvoMM* mm = getMM();
        if (mm->isTexEditOpen())
            mm->closeTexEdit();
        if (vm) {
            if (IZebDialogHost* host = vm->getDialogHost())
                if (host->getAttached() == m_dialog)
                    host->attach(nullptr);
            vm->setPhotoPreview(false);
        }
        if (m_dialog)
            m_dialog->deleteLater();
        return 0;
    }

    long onMouseDown(long view, long flags, long x, long y) override
    {
        if (view == kvoImageView && (flags & kvoModAlt) && !(flags & kvoModCtrl)) {
            if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
                vm->setViewCursor(kvoImageView, 3);
            m_dragging = true;
            m_bandStart = QPointF(x, y);
            m_band = QRectF();
            return 0;
        }
        if (!(flags & kvoModCtrl))
            return kvoNotHandled;
        IKvoMM* mm = getMM();
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        if (mm->getActiveImageId() < 0) {
            msgWarningQt(QObject::tr("Please active a image!"));
            return -1;
        }
        if (vm)
            vm->setViewCursor(view, 1);
        if (view == kvoImageView) {
            ref_ptr<IZebImageViewer> image;
            ref_ptr<IKvoImageInfo> info = activeRecord();
            XPnt2i size;
            if (vm && vm->getImageViewer(image) && image && info && info->getImageSize(size, 2) && size.x > 0) {
                XPnt2d px;
                image->pickImagePoint(px, double(x), double(y));
                // Picture pixels (rows down) to picture positions (0..1, up).
                if (px.isValid())
                    m_imagePicks.push_back(XPnt2d(px.x / size.x, 1.0 - px.y / size.y));
            }
        } else {
            ref_ptr<IKvoTrackBall> ball = getViewTrackBall(kvoModelView);
            XPnt3d p;
            if (ball)
                ball->pickPoint(p, double(x), double(y));
            if (m_dialog && m_dialog->isVertexSnap()) {
                prepareSnap();
                XPnt3d snapped;
                XPnt2d screen;
                if (m_snap->findNear(snapped, screen, double(x), double(y), 10.0))
                    p = snapped;
            }
            if (p.isValid())
                m_worldPicks.push_back(p);
        }
        pair();
        if (vm) {
            vm->redrawModelView();
            vm->redrawImageView();
        }
        return 0;
    }

    long onMouseMove(long view, long flags, long x, long y) override
    {
        if (m_dragging && view == kvoImageView) {
            m_band = QRectF(m_bandStart, QPointF(x, y)).normalized();
            if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
                vm->redrawImageView();
            return 0;
        }
        return CQvTaskImp<IKvoQvTaskCtrlPnt>::onMouseMove(view, flags, x, y);
    }

    // The rubber band selects the control points it holds in the table.
    long onMouseUp(long view, long flags, long x, long y) override
    {
        if (!m_dragging)
            return CQvTaskImp<IKvoQvTaskCtrlPnt>::onMouseUp(view, flags, x, y);
        m_dragging = false;
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        ref_ptr<IZebImageViewer> viewer;
        ref_ptr<IKvoImageInfo> info = activeRecord();
        XPnt2i size;
        if (m_band.isValid() && getMM()->getActiveImageId() >= 1 && vm && vm->getImageViewer(viewer) && viewer &&
            info && info->getImageSize(size, 2) && m_dialog) {
            std::vector<int> rows;
            for (long i = 0; i < info->getCtrlImagePntCount(); ++i) {
                XPnt2d uv, s;
                info->getCtrlImagePnt(uv, i);
                viewer->imageToScreen(s, XPnt2d(uv.x * size.x, (1.0 - uv.y) * size.y));
                if (m_band.contains(QPointF(s.x, s.y)))
                    rows.push_back(int(i));
            }
            m_dialog->selectPoints(rows);
        }
        m_band = QRectF();
        if (vm) {
            vm->setViewCursor(kvoImageView, 0);
            vm->redrawImageView();
        }
        return 0;
    }

    long onKeyDown(long view, long key, long repeat, long flags) override
    {
        if (key == Qt::Key_Control && m_dialog) {
            prepareSnap();
            if (m_dialog->previewState() == 0) {
                m_savedPreview = 0;
                m_dialog->setPreviewState(2);
            }
            return 0;
        }
        if (key == Qt::Key_Q && view == kvoModelView && m_dialog) {
            m_savedPreview = m_dialog->previewState();
            m_dialog->setPreviewState(1);
            return 0;
        }
        if (key == Qt::Key_E && view == kvoModelView && m_dialog) {
            m_dialog->setPreviewState(m_dialog->previewState() == 0 ? 2 : 0);
            return 0;
        }
        if (key == Qt::Key_U) {
            if (view == kvoModelView && !m_worldPicks.empty()) {
                m_worldRedo.push_back(m_worldPicks.back());
                m_worldPicks.pop_back();
            } else if (view != kvoModelView && !m_imagePicks.empty()) {
                m_imageRedo.push_back(m_imagePicks.back());
                m_imagePicks.pop_back();
            }
            return 0;
        }
        if (key == Qt::Key_R) {
            if (view == kvoModelView && !m_worldRedo.empty()) {
                m_worldPicks.push_back(m_worldRedo.back());
                m_worldRedo.pop_back();
                pair();
            } else if (view != kvoModelView && !m_imageRedo.empty()) {
                m_imagePicks.push_back(m_imageRedo.back());
                m_imageRedo.pop_back();
                pair();
            }
            return 0;
        }
        return CQvTaskImp<IKvoQvTaskCtrlPnt>::onKeyDown(view, key, repeat, flags);
    }

    long onKeyUp(long view, long key, long repeat, long flags) override
    {
        if (key == Qt::Key_Control && m_dialog && m_dialog->previewState() == 2) {
            m_dialog->setPreviewState(m_savedPreview);
            return 0;
        }
        if (key == Qt::Key_Q && m_dialog) {
            m_dialog->setPreviewState(0);
            m_dialog->setPreviewState(m_savedPreview == 1 ? 0 : m_savedPreview);
            return 0;
        }
        return CQvTaskImp<IKvoQvTaskCtrlPnt>::onKeyUp(view, key, repeat, flags);
    }

    QDlgTextureMapping* dialog() const { return m_dialog; }

private:
    void prepareSnap()
    {
        ref_ptr<IKvoModel> model;
        if (!m_snap) {
            m_snap = newKvoPntSnap();
            if (getMM()->getBareModel(model) && model)
                m_snap->setup(ref_ptr<Pnt3fArray>(model->getVertices()));
        }
    }
    // Waiting picks pair up in pick order.
    void pair()
    {
        ref_ptr<IKvoImageInfo> info = activeRecord();
        bool made = false;
        while (info && !m_imagePicks.empty() && !m_worldPicks.empty()) {
            info->addCtrlImagePnt(m_imagePicks.front());
            info->addCtrlWorldPnt(m_worldPicks.front());
            m_lastPair = {{m_imagePicks.front(), m_worldPicks.front()}};
            m_imagePicks.erase(m_imagePicks.begin());
            m_worldPicks.erase(m_worldPicks.begin());
            made = true;
        }
        if (!made)
            return;
        getMM()->setDirty(true);
        if (m_dialog)
            m_dialog->refreshPoints();
        if (fireChanged(0) != -1) {
            m_imageRedo.clear();
            m_worldRedo.clear();
        }
    }

    long m_mode = 0, m_eventMode = -1, m_renderId = -1, m_imageRenderId = -1, m_savedPreview = 0;
    bool m_dragging = false;
    QPointF m_bandStart;
    QRectF m_band;
    bool m_mappingFlag = true;
    std::vector<XPnt3d> m_worldPicks, m_worldRedo;
    std::vector<XPnt2d> m_imagePicks, m_imageRedo;
    std::vector<std::pair<XPnt2d, XPnt3d>> m_lastPair;
    ref_ptr<IZebRender> m_render;
    ref_ptr<IKvoPntSnap> m_snap;
    QPointer<QDlgTextureMapping> m_dialog;
};

} // namespace

ref_ptr<IKvoQvTaskCtrlPnt> newKvoQvTaskCtrlPnt()
{
    return ref_ptr<IKvoQvTaskCtrlPnt>(new CKvoQvTaskCtrlPnt());
}

// The control-point session: ends the current tool and starts the session
// with its dialog. -1 without a viewer manager; the no-project code without a project.
long cmdTexMappingQt()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return -1;
    ref_ptr<IKvoProject> project;
    if (!getMM()->getProject(project))
        return kvoNoProject;
    vm->endCurrentTask();
    ref_ptr<IKvoQvTaskCtrlPnt> task = newKvoQvTaskCtrlPnt();
    task->setMode(0);
    task->setMappingFlag(true);
    vm->startTask(task.get());
    return 0;
}

} // namespace kvo

#include "ImageView.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <cmath>

using namespace kvo;

namespace quovara {

namespace {
QPainter* g_painter = nullptr;
}

QPainter* ImageView::currentPainter()
{
    return g_painter;
}

ImageView::ImageView(ref_ptr<CZebViewerMan> vm, QWidget* parent) : QWidget(parent), m_vm(vm)
{
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setMinimumSize(200, 150);
    setAutoFillBackground(false);
}

void ImageView::showActiveImage()
{
    IKvoMM* mm = getMM();
    const long id = mm->getActiveImageId();
    m_image = QImage();
    m_imageId = -1;
    ref_ptr<IKvoImage> img;
    if (id > 0 && mm->getActiveImage(img) && img) {
        // Our pixels are RGBA8 rows top-down: exactly QImage's RGBA8888.
        m_image = QImage(img->getData(), int(img->getWidth()), int(img->getHeight()), int(img->getStride()),
                         QImage::Format_RGBA8888)
                      .copy();
        m_imageId = id;
    }
    m_vm->imageViewer()->setSize(width(), height());
    m_vm->showActiveImage();
    update();
}

void ImageView::resizeEvent(QResizeEvent*)
{
    m_vm->imageViewer()->setSize(width(), height());
    m_vm->imageViewer()->transform().fit();
}

void ImageView::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(40, 42, 46));
    if (!m_image.isNull()) {
        XPnt2d topLeft, bottomRight;
        m_vm->imageViewer()->imageToScreen(topLeft, XPnt2d(0, 0));
        m_vm->imageViewer()->imageToScreen(bottomRight, XPnt2d(m_image.width(), m_image.height()));
        p.setRenderHint(QPainter::SmoothPixmapTransform, bottomRight.x - topLeft.x < m_image.width());
        p.drawImage(QRectF(topLeft.x, topLeft.y, bottomRight.x - topLeft.x, bottomRight.y - topLeft.y), m_image);
    } else {
        p.setPen(QColor(160, 160, 160));
        p.drawText(rect(), Qt::AlignCenter, tr("No active image"));
    }
    g_painter = &p;
    m_vm->imageViewer()->setPainter(&p);
    m_vm->paint(kvoImageView);
    m_vm->imageViewer()->setPainter(nullptr);
    g_painter = nullptr;
}

void ImageView::mousePressEvent(QMouseEvent* e)
{
    if (m_vm->mouseDown(kvoImageView, kvoModifierWord(e->modifiers(), e->buttons()), e->x(), e->y()) == kvoNotHandled) {
        m_dragging = true;
        m_last = e->pos();
    }
    update();
}

void ImageView::mouseReleaseEvent(QMouseEvent* e)
{
    m_vm->mouseUp(kvoImageView, kvoModifierWord(e->modifiers(), e->buttons() | e->button()), e->x(), e->y());
    m_dragging = false;
    update();
}

void ImageView::mouseMoveEvent(QMouseEvent* e)
{
    const long rc = m_vm->mouseMove(kvoImageView, kvoModifierWord(e->modifiers(), e->buttons()), e->x(), e->y());
    if (rc == kvoNotHandled && m_dragging) {
        const QPoint d = e->pos() - m_last;
        m_vm->imageViewer()->transform().pan(d.x(), d.y());
        m_last = e->pos();
    }
    update();
}

void ImageView::mouseDoubleClickEvent(QMouseEvent* e)
{
    m_vm->mouseDoubleClick(kvoImageView, kvoModifierWord(e->modifiers(), e->buttons()), e->x(), e->y());
    update();
}

void ImageView::wheelEvent(QWheelEvent* e)
{
    const QPointF p = e->position();
    const long delta = e->angleDelta().y();
    if (m_vm->mouseWheel(kvoImageView, kvoModifierWord(e->modifiers(), e->buttons()), delta, long(p.x()),
                         long(p.y())) == kvoNotHandled)
        m_vm->imageViewer()->transform().zoomAt(std::pow(1.0015, double(delta)), p.x(), p.y());
    update();
}

void ImageView::keyPressEvent(QKeyEvent* e)
{
    if (m_vm->keyDown(kvoImageView, e->key(), e->isAutoRepeat() ? 1 : 0,
                      kvoModifierWord(e->modifiers(), Qt::NoButton)) == kvoNotHandled) {
        if (e->key() == Qt::Key_F && !e->modifiers())
            m_vm->imageViewer()->transform().fit();
        else
            QWidget::keyPressEvent(e);
    }
    update();
}

} // namespace quovara

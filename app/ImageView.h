#pragma once

#include <QImage>
#include <QWidget>

#include "platform/ZebViewerManImpl.h"

namespace quovara {

// The 2-D view of the active image with pan and zoom. Events go to the
// current task first; those it leaves pan (drag) and zoom (wheel).
class ImageView : public QWidget {
    Q_OBJECT
public:
    explicit ImageView(kvo::ref_ptr<kvo::CZebViewerMan> vm, QWidget* parent = nullptr);
    // Shows the model manager's active image (or nothing).
    void showActiveImage();
    // The painter of the paint in progress, for render hooks; null outside a paint.
    static QPainter* currentPainter();

protected:
    void paintEvent(QPaintEvent* e) override;
    void resizeEvent(QResizeEvent* e) override;
    void mousePressEvent(QMouseEvent* e) override;
    void mouseReleaseEvent(QMouseEvent* e) override;
    void mouseMoveEvent(QMouseEvent* e) override;
    void mouseDoubleClickEvent(QMouseEvent* e) override;
    void wheelEvent(QWheelEvent* e) override;
    void keyPressEvent(QKeyEvent* e) override;

private:
    kvo::ref_ptr<kvo::CZebViewerMan> m_vm;
    QImage m_image;
    long m_imageId = -1;
    bool m_dragging = false;
    QPoint m_last;
};

} // namespace quovara

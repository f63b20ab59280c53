#include "platform/KvoImageViewTransform.h"

#include <algorithm>

namespace kvo {

void KvoImageViewTransform::setImageSize(double width, double height)
{
    m_imageW = std::max(0.0, width);
    m_imageH = std::max(0.0, height);
}

void KvoImageViewTransform::setViewSize(double width, double height)
{
    m_viewW = std::max(1.0, width);
    m_viewH = std::max(1.0, height);
}

void KvoImageViewTransform::setZoomAndOffset(double zoom, double offX, double offY)
{
    if (zoom > 0)
        m_zoom = zoom;
    m_offX = offX;
    m_offY = offY;
}

void KvoImageViewTransform::fit()
{
    if (m_imageW <= 0 || m_imageH <= 0) {
        m_zoom = 1;
        m_offX = m_offY = 0;
        return;
    }
    m_zoom = std::min(m_viewW / m_imageW, m_viewH / m_imageH);
    m_offX = (m_viewW - m_imageW * m_zoom) / 2;
    m_offY = (m_viewH - m_imageH * m_zoom) / 2;
}

void KvoImageViewTransform::zoomAt(double factor, double viewX, double viewY)
{
    if (!(factor > 0))
        return;
    // Between a whole image in a few pixels and a pixel the size of the view.
    const double zoom = std::min(std::max(m_zoom * factor, 1e-4), 256.0);
    XPnt2d p;
    screenToImage(p, viewX, viewY);
    m_zoom = zoom;
    m_offX = viewX - p.x * m_zoom;
    m_offY = viewY - p.y * m_zoom;
}

void KvoImageViewTransform::pan(double dx, double dy)
{
    m_offX += dx;
    m_offY += dy;
}

XPnt2d& KvoImageViewTransform::screenToImage(XPnt2d& out, double x, double y) const
{
    out = XPnt2d((x - m_offX) / m_zoom, (y - m_offY) / m_zoom);
    return out;
}

XPnt2d& KvoImageViewTransform::imageToScreen(XPnt2d& out, const XPnt2d& p) const
{
    out = XPnt2d(p.x * m_zoom + m_offX, p.y * m_zoom + m_offY);
    return out;
}

XPnt2d& KvoImageViewTransform::pickImagePoint(XPnt2d& out, double x, double y) const
{
    screenToImage(out, x, y);
    if (!(out.x >= 0 && out.y >= 0 && out.x < m_imageW && out.y < m_imageH))
        out.setInvalid();
    return out;
}

} // namespace kvo

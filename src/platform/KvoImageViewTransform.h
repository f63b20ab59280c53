#pragma once

#include "scene/KvoTypes.h"

namespace kvo {

// Pan and zoom of the 2-D image view. Both image and view positions are
// pixels with y down; image pixel (i, j) covers [i, i+1) x [j, j+1).
class QV_EXPORT KvoImageViewTransform {
public:
    void setImageSize(double width, double height);
    void setViewSize(double width, double height);
    double imageWidth() const { return m_imageW; }
    double imageHeight() const { return m_imageH; }
    // View pixels per image pixel.
    double getZoom() const { return m_zoom; }
    // View position of the image's top-left corner.
    XPnt2d getOffset() const { return XPnt2d(m_offX, m_offY); }
    void setZoomAndOffset(double zoom, double offX, double offY);
    // The whole image, centred, aspect kept.
    void fit();
    // Zooms by factor keeping the image point under (viewX, viewY) where it is.
    void zoomAt(double factor, double viewX, double viewY);
    void pan(double dx, double dy);
    XPnt2d& screenToImage(XPnt2d& out, double x, double y) const;
    XPnt2d& imageToScreen(XPnt2d& out, const XPnt2d& p) const;
    // screenToImage, invalid outside the picture.
    XPnt2d& pickImagePoint(XPnt2d& out, double x, double y) const;

private:
    double m_imageW = 0, m_imageH = 0, m_viewW = 1, m_viewH = 1;
    double m_zoom = 1, m_offX = 0, m_offY = 0;
};

} // namespace kvo

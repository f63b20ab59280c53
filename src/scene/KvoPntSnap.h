#pragma once

#include "scene/KvoArray.h"
#include "scene/KvoReferenced.h"

namespace kvo {

// Snapping a pick in the 3-D view to the nearest model vertex on screen.
class QV_EXPORT IKvoPntSnap : public KvoReferenced {
public:
    // The vertices to snap to (kept by reference).
    virtual void setup(const ref_ptr<Pnt3fArray>& vertices) = 0;
    // The last search found a vertex.
    virtual bool isActive() const = 0;
    // The vertex within radius pixels of window position (x, y down) that the
    // view shows nearest the cursor (vertices hidden behind the surface under
    // the cursor are passed over). False, and inactive, when there is none.
    virtual bool findNear(XPnt3d& point, XPnt2d& screen, double x, double y, double radius) = 0;
    virtual bool getSnapped(XPnt3d& out) const = 0;
};

QV_EXPORT ref_ptr<IKvoPntSnap> newKvoPntSnap();

} // namespace kvo

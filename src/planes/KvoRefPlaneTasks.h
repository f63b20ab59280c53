#pragma once

// The plane tools: picking points in the 3-D view, the management task with
// its dialog, and the render hooks that draw planes and picked points.

#include "scene/KvoRefPlane.h"
#include "tasks/KvoQvTask.h"

namespace kvo {

// Told by the point-picking sub-task when its points are complete; both
// answer the new plane's id or -1.
class QV_EXPORT IKvoQvTaskAddPnt3Event : public IKvoQvTaskEvent {
public:
    virtual long onThreePoints(ref_ptr<Pnt3dArray>& points) = 0;
    virtual long onOnePoint(const XPnt3d& point, const XPnt3d& normal) = 0;
};

// Picks three points (mode 0) or one (mode 1) on the model.
class QV_EXPORT IKvoQvTaskAddPnt3 : public IKvoQvTask {
public:
    virtual void setMode(long mode) = 0;
    virtual long getMode() const = 0;
    virtual ref_ptr<Pnt3dArray> getPoints() const = 0;
};

QV_EXPORT ref_ptr<IKvoQvTaskAddPnt3> newQvTaskAddPnt3();

// Plane creation without a dialog, for a host's own tools: mode 1 picks,
// mode 0 stops picking.
class QV_EXPORT IKvoQvTaskRefPlaneMan : public IKvoQvTask {
public:
    virtual void setMode(long mode) = 0;
};

QV_EXPORT ref_ptr<IKvoQvTaskRefPlaneMan> newKvoQvTaskRefPlaneMan();

// Draws every visible plane of the project in the 3-D view (the active one
// highlighted); the host registers it once.
QV_EXPORT ref_ptr<IZebRender> newRefPlaneRender();

// The plane made from a completed pick: created, turned toward the eye of the
// 3-D view, the views redrawn. The new id or -1.
QV_EXPORT long createPlaneFromPicks(const ref_ptr<Pnt3dArray>& points, const XPnt3d* normal);

} // namespace kvo

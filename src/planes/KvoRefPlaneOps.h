#pragma once

// Making, turning and moving reference planes: the geometry the plane tools
// share. Everything works on a plane list and its active plane.

#include <QStringList>

#include "scene/KvoRefPlane.h"

namespace kvo {

// A plane through three picked points: a square round their mean, as large as
// the model (half the longest extent of modelBox from the centre), X and Y in
// the plane with Y's z not negative. Added and made active. The new id, or -1
// (fewer than three points, two closer than 0.0001, or no plane) with nothing added.
QV_EXPORT long createPlaneFromThreePoints(IKvoQvRefPlaneMan& planes, const Pnt3dArray& points, const Enve3d& modelBox);

// A plane through p square to normal, as a square of the same size round p.
QV_EXPORT long createPlaneFromOnePoint(IKvoQvRefPlaneMan& planes, const XPnt3d& p, const XPnt3d& normal,
                                       const Enve3d& modelBox);

// Turns the active plane about its X (axis 0), Y (1) or normal (2) through its
// origin, ring included. True for 0 degrees; false without an active plane.
QV_EXPORT bool rotateActivePlane(IKvoQvRefPlaneMan& planes, int axis, double degrees);

// Moves the active plane's origin, and its ring with it.
QV_EXPORT bool moveActivePlane(IKvoQvRefPlaneMan& planes, const XPnt3d& origin);

// After a creation: turns the active plane in itself until X is horizontal,
// over so that its normal faces eye, and so that Y points up. -1 (the plane
// left as it was, and the user told why) when X cannot be made horizontal.
QV_EXPORT long orientNewPlane(IKvoQvRefPlaneMan& planes, const XPnt3d& eye);

// A vertical copy of a plane (id; 0 for the active one), added and made
// active: 1 on success, 0 (with a message) when the plane is no wall.
QV_EXPORT long rotatePlaneCopyToWall(IKvoQvRefPlaneMan& planes, long id);

} // namespace kvo

namespace kvo {

// The texts of a plane's row in the plane table: "ID", "Name", "Visible"
// ("1" or "0"), "Parameter" (a,b,c,d), "Scope" (the ring), "Layer" (empty).
QV_EXPORT QStringList planeRowTexts(const IKvoQvRefPlane& plane);

} // namespace kvo

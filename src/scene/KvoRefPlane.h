#pragma once

#include <QString>

#include "scene/KvoGeometry.h"
#include "scene/KvoRing.h"

namespace kvo {

// A named, bounded plane of the project (the user calls it a projection
// plane): origin, two unit axes in the plane (the normal is X cross Y), and
// a ring of 3-D points as its extent.
class QV_EXPORT IKvoQvRefPlane : public KvoReferenced {
public:
    virtual long getId() const = 0;
    virtual void setId(long id) = 0;
    // The plane equation from origin and axes; false when they define no plane.
    virtual bool updateParam() = 0;
    virtual XPnt3d getOrigin() const = 0;
    virtual void setOrigin(const XPnt3d& origin) = 0;
    virtual XPnt3d getXDir() const = 0;
    virtual XPnt3d getYDir() const = 0;
    virtual void setAxes(const XPnt3d& x, const XPnt3d& y) = 0;
    virtual QString getName() const = 0;
    virtual void setName(const QString& name) = 0;
    virtual bool isVisible() const = 0;
    virtual void setVisible(bool visible) = 0;
    virtual ref_ptr<IKvoRing>& getRing(ref_ptr<IKvoRing>& out) const = 0;
    virtual void setRing(const ref_ptr<IKvoRing>& ring) = 0;
    virtual kvoPlaneParam getPlaneParam() const = 0;
};

QV_EXPORT ref_ptr<IKvoQvRefPlane> newKvoQvRefPlane();

// The project's planes in insertion order, and the active one.
class QV_EXPORT IKvoQvRefPlaneMan : public KvoReferenced {
public:
    // The id a new plane takes; ids are never reused in a project.
    virtual long nextPlaneId() = 0;
    virtual long getPlaneCount() const = 0;
    virtual void clearPlanes() = 0;
    virtual bool deletePlane(long id) = 0;
    virtual bool addPlane(const ref_ptr<IKvoQvRefPlane>& plane) = 0;
    // -1 clears it; false for an id not in the list.
    virtual bool setActivePlane(long id) = 0;
    virtual long getActivePlaneId() const = 0;
    // Position in the list, -1 when absent.
    virtual long planeIndex(long id) const = 0;
    virtual ref_ptr<LongArray>& getPlaneIds(ref_ptr<LongArray>& out) const = 0;
    virtual ref_ptr<IKvoQvRefPlane>& getPlane(ref_ptr<IKvoQvRefPlane>& out, long id) const = 0;
    virtual ref_ptr<IKvoQvRefPlane>& getPlaneAt(ref_ptr<IKvoQvRefPlane>& out, long index) const = 0;
    // Tells the views that planes changed (and, with dirty, the project).
    virtual void updateDisplay(bool dirty) = 0;
    // Grows with every updateDisplay.
    virtual unsigned long long getDisplayVersion() const = 0;
};

} // namespace kvo

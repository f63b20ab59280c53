#pragma once

#include "scene/KvoArray.h"

namespace kvo {

// A closed polygon of 3-D points. 2-D users leave z at 0; the inside test
// and simplification work on x and y.
class QV_EXPORT IKvoRing : public KvoReferenced {
public:
    virtual void addPoint(const XPnt3d& p) = 0;
    virtual long getPointCount() const = 0;
    virtual XPnt3d getPoint(long i) const = 0;
    // The ring's own array: editing it edits the ring.
    virtual ref_ptr<Pnt3dArray>& getPoints(ref_ptr<Pnt3dArray>& out) const = 0;
    virtual void setPoints(const ref_ptr<Pnt3dArray>& points) = 0;
    virtual void clear() = 0;
    // Appends the first point when the last one differs from it.
    virtual void closeRing() = 0;
    // Drops repeated consecutive points, then closes the ring.
    virtual void finishRing() = 0;
    virtual bool isClosed() const = 0;
    // Even-odd rule on x, y.
    virtual bool contains(double x, double y) const = 0;
    // Douglas-Peucker on x, y with the given tolerance; the ring stays closed.
    virtual void simplify(double tolerance) = 0;
    virtual Enve3d getEnvelope() const = 0;
    virtual ref_ptr<IKvoRing> clone() const = 0;
};

QV_EXPORT ref_ptr<IKvoRing> newKvoRing();

} // namespace kvo

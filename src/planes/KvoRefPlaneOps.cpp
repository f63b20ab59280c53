#include "planes/KvoRefPlaneOps.h"

#include <QCoreApplication>

#include <cmath>
#include <functional>

#include "commands/KvoCommands.h"
#include "scene/KvoPresenter.h"

namespace kvo {

namespace {

QString tr(const char* s)
{
    return QCoreApplication::translate("RefPlanes", s);
}

void tip(const QString& text)
{
    showOkMessage(nullptr, QMessageBox::Information, tr("Tips"), text);
}

XPnt3d unit(const XPnt3d& v)
{
    const double l = length(v);
    return l > 0 ? v * (1.0 / l) : v;
}

// Rodrigues: v turned by angle (radians) about the unit axis k.
XPnt3d rotate(const XPnt3d& v, const XPnt3d& k, double angle)
{
    const double c = std::cos(angle), s = std::sin(angle);
    return v * c + cross(k, v) * s + k * (dot(k, v) * (1 - c));
}

double halfSize(const Enve3d& box)
{
    if (!box.isValid())
        return 1.0;
    return std::max({box.maxX - box.minX, box.maxY - box.minY, box.maxZ - box.minZ}) * 0.5;
}

ref_ptr<IKvoQvRefPlane> activePlane(IKvoQvRefPlaneMan& planes)
{
    ref_ptr<IKvoQvRefPlane> p;
    if (planes.getActivePlaneId() >= 0)
        planes.getPlane(p, planes.getActivePlaneId());
    return p;
}

long addNew(IKvoQvRefPlaneMan& planes, long id, const ref_ptr<IKvoRing>& ring, const XPnt3d& origin, const XPnt3d& x,
            const XPnt3d& y)
{
    ref_ptr<IKvoQvRefPlane> plane = newKvoQvRefPlane();
    plane->setId(id);
    plane->setName(QString("Plane%1").arg(id));
    plane->setRing(ring);
    plane->setOrigin(origin);
    plane->setAxes(x, y);
    plane->setVisible(true);
    if (!plane->updateParam() || !planes.addPlane(plane))
        return -1;
    planes.setActivePlane(id);
    planes.updateDisplay(true);
    return id;
}

// The turn about an axis (0 X, 1 normal... as rotateActivePlane) that makes
// measure smallest over 3600 steps of 0.1 degree: the step count, or -1 when
// the smallest value is above 0.05. The plane is back where it was.
int searchTurn(IKvoQvRefPlaneMan& planes, int axis, const std::function<double(const IKvoQvRefPlane&)>& measure)
{
    double best = 10.0;
    int k = 0;
    for (int i = 0; i < 3600; ++i) {
        const double d = measure(*activePlane(planes));
        if (d < best) {
            best = d;
            k = i;
        }
        rotateActivePlane(planes, axis, 0.1);
    }
    return best > 0.05 ? -1 : k;
}

} // namespace

long createPlaneFromThreePoints(IKvoQvRefPlaneMan& planes, const Pnt3dArray& pts, const Enve3d& box)
{
    if (pts.getCount() < 3)
        return -1;
    const XPnt3d p0 = pts.getAt(0), p1 = pts.getAt(1), p2 = pts.getAt(2);
    if (length(p1 - p0) < 0.0001 || length(p2 - p1) < 0.0001 || length(p2 - p0) < 0.0001)
        return -1;
    const kvoPlaneParam param = getPlaneParam(p0, p1, p2);
    if (!param.isValid())
        return -1;
    const XPnt3d c = (p0 + p1 + p2) * (1.0 / 3.0);
    const double half = halfSize(box);
    if (length(p0 - c) <= 0 || length(p1 - c) <= 0)
        return -1;
    // A rhombus round c through the directions of the first two points, squared.
    const XPnt3d A = getPoint(c, p0, half / length(p0 - c));
    const XPnt3d B = getPoint(c, A, -1.0);
    const XPnt3d C = getPoint(c, p1, half / length(p1 - c));
    const XPnt3d D = getPoint(c, C, -1.0);
    const double e1 = length(C - A), e2 = length(B - C), m = std::max(e1, e2);
    XPnt3d R1, R2, R3, R4;
    if (m == e1) {
        const XPnt3d mid1 = midPnt(C, B), mid2 = midPnt(D, A);
        const double r = (m / 2) / (e2 / 2);
        R1 = getPoint(mid2, A, r);
        R2 = getPoint(mid1, C, r);
        R3 = getPoint(mid1, B, r);
        R4 = getPoint(mid2, D, r);
    } else {
        const XPnt3d mid1 = midPnt(C, A), mid2 = midPnt(B, D);
        const double r = (m / 2) / (e1 / 2);
        R1 = getPoint(mid1, A, r);
        R2 = getPoint(mid1, C, r);
        R3 = getPoint(mid2, B, r);
        R4 = getPoint(mid2, D, r);
    }
    ref_ptr<IKvoRing> ring = newKvoRing();
    for (const XPnt3d& p : {R1, R2, R3, R4})
        ring->addPoint(p);
    XPnt3d X = midPnt(R3, R2) - c;
    const XPnt3d n = unit(param.normal());
    XPnt3d Y = cross(n, X);
    if (Y.z < 0) {
        X = X * -1.0;
        Y = Y * -1.0;
    }
    return addNew(planes, planes.nextPlaneId(), ring, c, unit(X), unit(Y));
}

long createPlaneFromOnePoint(IKvoQvRefPlaneMan& planes, const XPnt3d& p, const XPnt3d& normalIn, const Enve3d& box)
{
    const XPnt3d n = unit(normalIn);
    if (!(length(n) > 0))
        return -1;
    const kvoPlaneParam param(n.x, n.y, n.z, -dot(n, p));
    XPnt3d q;
    if (param.isVer(1.0)) {
        q = XPnt3d(p.x, p.y, p.z + 20.0);
    } else {
        // z on the plane at x + 20.
        const double x = p.x + 20.0, y = p.y;
        q = XPnt3d(x, y, -(param.a * x + param.b * y + param.d) / param.c);
    }
    const XPnt3d X = unit(q - p), Y = unit(cross(n, X));
    const double half = halfSize(box);
    ref_ptr<IKvoRing> ring = newKvoRing();
    ring->addPoint(p + (X + Y) * half);
    ring->addPoint(p + (X * -1.0 + Y) * half);
    ring->addPoint(p + (X * -1.0 - Y) * half);
    ring->addPoint(p + (X - Y) * half);
    return addNew(planes, planes.nextPlaneId(), ring, p, X, Y);
}

bool rotateActivePlane(IKvoQvRefPlaneMan& planes, int axis, double degrees)
{
    if (degrees == 0)
        return true;
    ref_ptr<IKvoQvRefPlane> plane = activePlane(planes);
    if (!plane)
        return false;
    const double angle = degrees * 0.017453292519943295;
    const XPnt3d X = plane->getXDir(), Y = plane->getYDir(), o = plane->getOrigin();
    const XPnt3d k = unit(axis == 0 ? X : axis == 1 ? Y : cross(X, Y));
    plane->setAxes(axis == 0 ? X : rotate(X, k, angle), axis == 1 ? Y : rotate(Y, k, angle));
    ref_ptr<IKvoRing> ring;
    plane->getRing(ring);
    ref_ptr<Pnt3dArray> pts;
    if (ring && ring->getPoints(pts))
        for (XPnt3d& p : pts->vec())
            p = o + rotate(p - o, k, angle);
    plane->updateParam();
    planes.updateDisplay(true);
    return true;
}

bool moveActivePlane(IKvoQvRefPlaneMan& planes, const XPnt3d& origin)
{
    ref_ptr<IKvoQvRefPlane> plane = activePlane(planes);
    if (!plane)
        return false;
    const XPnt3d shift = origin - plane->getOrigin();
    plane->setOrigin(origin);
    ref_ptr<IKvoRing> ring;
    plane->getRing(ring);
    ref_ptr<Pnt3dArray> pts;
    if (ring && ring->getPoints(pts))
        for (XPnt3d& p : pts->vec())
            p = p + shift;
    plane->updateParam();
    planes.updateDisplay(true);
    return true;
}

long orientNewPlane(IKvoQvRefPlaneMan& planes, const XPnt3d& eye)
{
    if (!activePlane(planes))
        return -1;
    const XPnt3d up(0, 0, 1);
    const int k = searchTurn(planes, 2, [&](const IKvoQvRefPlane& p) { return std::abs(dot(p.getXDir(), up)); });
    if (k < 0) {
        tip(tr("A problem 1 about rotating the projection plane, Note: this feature is used for the wall only!"));
        return -1;
    }
    rotateActivePlane(planes, 2, k * 0.1);
    ref_ptr<IKvoQvRefPlane> p = activePlane(planes);
    if (dot(cross(p->getXDir(), p->getYDir()), eye - p->getOrigin()) < 0)
        rotateActivePlane(planes, 0, 180.0);
    if (dot(p->getYDir(), up) < 0)
        rotateActivePlane(planes, 2, 180.0);
    return 0;
}

long rotatePlaneCopyToWall(IKvoQvRefPlaneMan& planes, long id)
{
    ref_ptr<IKvoQvRefPlane> source;
    planes.getPlane(source, id == 0 ? planes.getActivePlaneId() : id);
    if (!source) {
        tip(tr("Please check the plane again."));
        return 0;
    }
    ref_ptr<IKvoRing> ring;
    source->getRing(ring);
    const long copyId = planes.nextPlaneId();
    ref_ptr<IKvoQvRefPlane> copy = newKvoQvRefPlane();
    copy->setId(copyId);
    copy->setName(source->getName() + "Copy");
    copy->setRing(ring ? ring->clone() : newKvoRing());
    copy->setOrigin(source->getOrigin());
    copy->setAxes(source->getXDir(), source->getYDir());
    copy->updateParam();
    planes.addPlane(copy);
    planes.setActivePlane(copyId);
    planes.updateDisplay(true);
    const XPnt3d up(0, 0, 1);
    const int k = searchTurn(planes, 2, [&](const IKvoQvRefPlane& p) { return std::abs(dot(p.getXDir(), up)); });
    if (k < 0) {
        tip(tr("A problem 1 about rotating the projection plane, Note: this feature is used for the wall only!"));
        return 0;
    }
    rotateActivePlane(planes, 2, k * 0.1);
    const int k2 = searchTurn(
        planes, 0, [&](const IKvoQvRefPlane& p) { return std::abs(dot(cross(p.getXDir(), p.getYDir()), up)); });
    if (k2 < 0) {
        tip(tr("A problem 2 about rotating the projection plane, Note: this feature is used for the wall only!"));
        return 0;
    }
    rotateActivePlane(planes, 0, k2 * 0.1);
    tip(tr("Successful to rotate."));
    return 1;
}

QStringList planeRowTexts(const IKvoQvRefPlane& plane)
{
    auto num = [](double v) { return QString::number(v, 'g', 6); };
    const kvoPlaneParam pp = plane.getPlaneParam();
    ref_ptr<IKvoRing> ring;
    plane.getRing(ring);
    const long n = ring ? ring->getPointCount() : 0;
    QStringList pts;
    for (long i = 0; i < n; ++i) {
        const XPnt3d p = ring->getPoint(i);
        pts << QString("(%1,%2,%3)").arg(num(p.x), num(p.y), num(p.z));
    }
    return {QString::number(plane.getId()),
            plane.getName(),
            plane.isVisible() ? "1" : "0",
            QStringList{num(pp.a), num(pp.b), num(pp.c), num(pp.d)}.join(","),
            QString("Total: %1 %2").arg(n).arg(pts.join(",")),
            QString()};
}

} // namespace kvo

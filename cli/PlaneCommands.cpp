// Reference planes, headless.

#include <functional>

#include "CliSupport.h"
#include "planes/KvoRefPlaneOps.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace qvcli {
namespace {

ref_ptr<IKvoQvRefPlaneMan> planesOf()
{
    ref_ptr<IKvoQvRefPlaneMan> planes;
    getMM()->getRefPlaneMan(planes);
    return planes;
}

// Where a viewer stands by default: in front of the model (-y) and above.
XPnt3d defaultEye()
{
    Enve3d box;
    getMM()->getModelEnvelope(box);
    if (!box.isValid())
        return XPnt3d(0, -100, 60);
    const XPnt3d c = box.MidPoint();
    const double size = std::max({box.maxX - box.minX, box.maxY - box.minY, box.maxZ - box.minZ, 1.0});
    return c + XPnt3d(0, -2 * size, 1.2 * size);
}

void printPlane(const IKvoQvRefPlane& plane, bool active)
{
    const QStringList t = planeRowTexts(plane);
    out(QString("%1%2\t%3\tvisible %4\t%5\t%6").arg(active ? "* " : "  ", t[0], t[1], t[2], t[3], t[4]));
}

int cmdPlaneAdd(const QStringList& args)
{
    if (args.isEmpty())
        return 2;
    std::vector<XPnt3d> points;
    XPnt3d normal, eye = XPnt3d::invalidPnt();
    bool haveNormal = false;
    for (int i = 1; i < args.size(); ++i) {
        if (i + 1 >= args.size())
            return 2;
        const QString& a = args[i];
        const QString value = args[++i];
        if (a == "--points") {
            for (const QString& part : value.split(';', Qt::SkipEmptyParts)) {
                XPnt3d p;
                if (!parsePoint(part, p)) {
                    err(QString("--points: '%1' is not x,y,z").arg(part));
                    return 2;
                }
                points.push_back(p);
            }
        } else if (a == "--normal") {
            if (!(haveNormal = parsePoint(value, normal)))
                return 2;
        } else if (a == "--eye") {
            if (!parsePoint(value, eye))
                return 2;
        } else {
            return 2;
        }
    }
    if (!(points.size() == 3 || (points.size() == 1 && haveNormal))) {
        err("give three points (--points x,y,z;x,y,z;x,y,z), or one point and --normal");
        return 2;
    }
    if (int rc = openOrFail(args[0]))
        return rc;
    ref_ptr<IKvoQvRefPlaneMan> planes = planesOf();
    Enve3d box;
    getMM()->getModelEnvelope(box);
    long id = -1;
    if (points.size() == 3) {
        ref_ptr<Pnt3dArray> pts = newPnt3dArray();
        pts->vec() = points;
        id = createPlaneFromThreePoints(*planes, *pts, box);
    } else {
        id = createPlaneFromOnePoint(*planes, points[0], normal, box);
    }
    if (id < 0) {
        err("no plane: the points coincide (closer than 0.0001), lie on one line, or the normal is zero");
        return 1;
    }
    orientNewPlane(*planes, eye.isValid() ? eye : defaultEye());
    if (int rc = saveOrFail())
        return rc;
    ref_ptr<IKvoQvRefPlane> plane;
    planes->getPlane(plane, id);
    printPlane(*plane, true);
    return 0;
}

int cmdPlaneList(const QStringList& args)
{
    if (args.size() != 1)
        return 2;
    if (int rc = openOrFail(args[0]))
        return rc;
    ref_ptr<IKvoQvRefPlaneMan> planes = planesOf();
    out(QString("Planes: %1, active %2").arg(planes->getPlaneCount()).arg(planes->getActivePlaneId()));
    for (long i = 0; i < planes->getPlaneCount(); ++i) {
        ref_ptr<IKvoQvRefPlane> p;
        planes->getPlaneAt(p, i);
        printPlane(*p, p->getId() == planes->getActivePlaneId());
    }
    return 0;
}

// PROJECT ID: opens the project, applies change to the plane, saves.
int changePlane(const QStringList& args, const std::function<bool(IKvoQvRefPlaneMan&, long)>& change,
                const QString& done)
{
    if (args.size() != 2)
        return 2;
    bool ok = false;
    const long id = args[1].toLong(&ok);
    if (!ok)
        return 2;
    if (int rc = openOrFail(args[0]))
        return rc;
    ref_ptr<IKvoQvRefPlaneMan> planes = planesOf();
    if (!change(*planes, id)) {
        err(QString("there is no plane %1").arg(id));
        return 1;
    }
    planes->updateDisplay(true);
    if (int rc = saveOrFail())
        return rc;
    out(done.arg(id));
    return 0;
}

int cmdPlaneActivate(const QStringList& args)
{
    return changePlane(
        args, [](IKvoQvRefPlaneMan& planes, long id) { return planes.setActivePlane(id); }, "Plane %1 is active");
}

int cmdPlaneDelete(const QStringList& args)
{
    return changePlane(
        args, [](IKvoQvRefPlaneMan& planes, long id) { return planes.deletePlane(id); }, "Plane %1 deleted");
}

int cmdPlane(const QStringList& args)
{
    if (args.isEmpty())
        return 2;
    const QString sub = args[0];
    const QStringList rest = args.mid(1);
    if (sub == "add")
        return cmdPlaneAdd(rest);
    if (sub == "list")
        return cmdPlaneList(rest);
    if (sub == "activate")
        return cmdPlaneActivate(rest);
    if (sub == "delete")
        return cmdPlaneDelete(rest);
    return 2;
}

Register rPlane("plane",
                {"plane add PROJECT.qvj --points X,Y,Z;X,Y,Z;X,Y,Z [--eye X,Y,Z] | plane add PROJECT.qvj --points "
                 "X,Y,Z --normal X,Y,Z | plane list PROJECT.qvj | plane activate PROJECT.qvj ID | plane delete "
                 "PROJECT.qvj ID",
                 "reference (projection) planes: add one through three points or one point and a normal (made "
                 "active, turned so that its X is horizontal and its normal faces the eye, by default a viewer in "
                 "front of the model), list them (* marks the active one), make one active, delete one",
                 cmdPlane});

} // namespace
} // namespace qvcli

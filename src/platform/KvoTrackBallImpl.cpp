#include "platform/KvoTrackBallImpl.h"

#include <cmath>

#include "platform/KvoCameraMath.h"

namespace kvo {

CKvoTrackBall::CKvoTrackBall() = default;

ref_ptr<CKvoTrackBall> newKvoTrackBall()
{
    return ref_ptr<CKvoTrackBall>(new CKvoTrackBall());
}

void CKvoTrackBall::setCamera(const XPnt3d& eye, const XPnt3d& center, const XPnt3d& up)
{
    m_eye = eye;
    m_center = center;
    // Keep up square to the line of sight, so rotations stay clean.
    XPnt3d f = center - eye;
    f.normalize();
    XPnt3d u = up - f * up.dot(f);
    if (u.norm() < 1e-12)
        u = std::fabs(f.z) < 0.9 ? XPnt3d(0, 0, 1) - f * f.z : XPnt3d(0, 1, 0) - f * f.y;
    u.normalize();
    m_up = u;
}

void CKvoTrackBall::setViewport(int width, int height)
{
    m_width = std::max(1, width);
    m_height = std::max(1, height);
}

void CKvoTrackBall::setClip(double zNear, double zFar)
{
    if (zNear > 0 && zFar > zNear) {
        m_near = zNear;
        m_far = zFar;
    }
}

void CKvoTrackBall::getModelView(double m[16]) const
{
    lookAtMatrix(m_eye, m_center, m_up, m);
}

void CKvoTrackBall::getProjection(double m[16]) const
{
    perspectiveMatrix(m_fovY, double(m_width) / double(m_height), m_near, m_far, m);
}

void CKvoTrackBall::getViewport(int v[4]) const
{
    v[0] = 0;
    v[1] = 0;
    v[2] = m_width;
    v[3] = m_height;
}

XPnt3d& CKvoTrackBall::projectToWindow(XPnt3d& out, double x, double y, double z) const
{
    double mv[16], pr[16];
    int vp[4];
    getModelView(mv);
    getProjection(pr);
    getViewport(vp);
    XPnt3d win;
    if (!projectPoint(XPnt3d(x, y, z), mv, pr, vp, win)) {
        out.setInvalid();
        return out;
    }
    out = XPnt3d(win.x, double(m_height) - win.y, win.z);
    return out;
}

XPnt3d& CKvoTrackBall::unprojectFromWindow(XPnt3d& out, double x, double y, double depth) const
{
    double mv[16], pr[16];
    int vp[4];
    getModelView(mv);
    getProjection(pr);
    getViewport(vp);
    if (!unprojectPoint(XPnt3d(x, double(m_height) - y, depth), mv, pr, vp, out))
        out.setInvalid();
    return out;
}

bool CKvoTrackBall::getRay(double x, double y, XPnt3d& origin, XPnt3d& direction) const
{
    XPnt3d nearP, farP;
    unprojectFromWindow(nearP, x, y, 0.0);
    unprojectFromWindow(farP, x, y, 1.0);
    if (!nearP.isValid() || !farP.isValid())
        return false;
    origin = nearP;
    direction = farP - nearP;
    direction.normalize();
    return direction.norm() > 0;
}

ref_ptr<MeshArray> CKvoTrackBall::scene() const
{
    if (m_scene)
        return m_scene();
    ref_ptr<MeshArray> shown;
    getMM()->getShownMeshes(shown);
    return shown;
}

bool CKvoTrackBall::pickTriangle(double x, double y, ref_ptr<IKvoMesh>& mesh, long& face, XPnt3d& point) const
{
    ref_ptr<MeshArray> meshes = scene();
    if (!m_picker.isCurrentFor(meshes)) {
        m_picker.build(meshes);
        m_pickerMeshes = meshes;
    }
    XPnt3d origin, dir;
    double t = 0;
    long meshIndex = -1;
    if (!getRay(x, y, origin, dir) || !m_picker.intersect(origin, dir, t, meshIndex, face))
        return false;
    mesh = m_pickerMeshes->getAt(meshIndex);
    point = origin + dir * t;
    return true;
}

XPnt3d& CKvoTrackBall::pickPoint(XPnt3d& out, double x, double y) const
{
    ref_ptr<IKvoMesh> mesh;
    long face = -1;
    if (!pickTriangle(x, y, mesh, face, out))
        out.setInvalid();
    return out;
}

namespace {
// Rotation of v by angle about a unit axis (Rodrigues).
XPnt3d rotateAbout(const XPnt3d& v, const XPnt3d& axis, double angle)
{
    const double c = std::cos(angle), s = std::sin(angle);
    return v * c + axis.cross(v) * s + axis * (axis.dot(v) * (1 - c));
}
} // namespace

void CKvoTrackBall::rotate(double dx, double dy)
{
    // A drag across the whole height turns the model half a turn.
    const double perPixel = M_PI / double(m_height);
    XPnt3d offset = m_eye - m_center;
    XPnt3d forward = -offset;
    forward.normalize();
    XPnt3d right = forward.cross(m_up);
    right.normalize();
    XPnt3d up = m_up;
    // Horizontal drags turn about the view's up axis, vertical ones about its right axis.
    const double yaw = -dx * perPixel, pitch = -dy * perPixel;
    offset = rotateAbout(offset, up, yaw);
    right = rotateAbout(right, up, yaw);
    offset = rotateAbout(offset, right, pitch);
    up = rotateAbout(up, right, pitch);
    setCamera(m_center + offset, m_center, up);
}

void CKvoTrackBall::pan(double dx, double dy)
{
    // World size of one pixel at the centre's depth.
    const double distance = (m_eye - m_center).norm();
    const double pixel = 2.0 * distance * std::tan(m_fovY * M_PI / 360.0) / double(m_height);
    XPnt3d forward = m_center - m_eye;
    forward.normalize();
    XPnt3d right = forward.cross(m_up);
    right.normalize();
    const XPnt3d move = right * (-dx * pixel) + m_up * (dy * pixel);
    m_eye += move;
    m_center += move;
}

void CKvoTrackBall::zoom(double factor)
{
    if (!(factor > 0))
        return;
    const double before = (m_eye - m_center).norm();
    const XPnt3d offset = (m_eye - m_center) / factor;
    if (offset.norm() < 1e-9)
        return;
    m_eye = m_center + offset;
    // Clip planes follow so that close views are not cut, and distant ones
    // keep the depth behind the centre they had: else zooming out a few
    // times pushes the whole model past the far plane.
    const double d = offset.norm();
    if (m_near > d * 0.5)
        m_near = d * 0.01;
    m_far = std::max(m_far, d + (m_far - before));
}

void CKvoTrackBall::fitToBox(const Enve3d& box)
{
    if (!box.isValid())
        return;
    const XPnt3d center = box.MidPoint();
    const double radius = std::max(1e-6, (box.getMaxPnt() - box.getMinPnt()).norm() / 2);
    const double aspect = double(m_width) / double(m_height);
    const double halfY = m_fovY * M_PI / 360.0;
    const double halfX = std::atan(std::tan(halfY) * aspect);
    const double distance = radius / std::sin(std::min(halfX, halfY)) * 1.05;
    XPnt3d dir = m_eye - m_center;
    if (dir.norm() < 1e-12)
        dir = XPnt3d(0, -1, 0.5);
    dir.normalize();
    setCamera(center + dir * distance, center, m_up);
    m_near = std::max(distance - radius * 1.5, distance * 1e-3);
    m_far = distance + radius * 3;
}

void CKvoTrackBall::fitToModel()
{
    Enve3d box;
    getMM()->getModelEnvelope(box);
    if (!box.isValid())
        return;
    fitToBox(box);
}

void CKvoTrackBall::viewFromFront()
{
    Enve3d box;
    getMM()->getModelEnvelope(box);
    const XPnt3d c = box.isValid() ? box.MidPoint() : XPnt3d();
    setCamera(c + XPnt3d(0, -1, 0.6), c, XPnt3d(0, 0, 1));
    fitToModel();
}

} // namespace kvo

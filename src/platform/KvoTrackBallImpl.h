#pragma once

#include <functional>

#include "platform/KvoRayPicker.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

// The 3-D view's camera in software: eye, centre, up, field of view, clip
// planes and viewport give the same matrices as gluLookAt and gluPerspective,
// and every projection, unprojection and pick is computed from them on the CPU.
// Window coordinates are widget pixels with y down; GL's window y is
// viewport height - y.
class QV_EXPORT CKvoTrackBall : public IKvoTrackBall {
public:
    CKvoTrackBall();

    void setCamera(const XPnt3d& eye, const XPnt3d& center, const XPnt3d& up) override;
    XPnt3d getEye() const override { return m_eye; }
    XPnt3d getUp() const override { return m_up; }
    XPnt3d getCenter() const override { return m_center; }
    XPnt3d& pickPoint(XPnt3d& out, double x, double y) const override;
    XPnt3d& projectToWindow(XPnt3d& out, double x, double y, double z) const override;
    XPnt3d& unprojectFromWindow(XPnt3d& out, double x, double y, double depth) const override;
    bool getRay(double x, double y, XPnt3d& origin, XPnt3d& direction) const override;
    void resetPickState() override { m_picker.clear(); }

    void setViewport(int width, int height);
    void setFovY(double degrees) override { m_fovY = degrees; }
    double getFovY() const override { return m_fovY; }
    void setClip(double zNear, double zFar);
    double getNear() const override { return m_near; }
    double getFar() const override { return m_far; }
    void getModelView(double m[16]) const override;
    void getProjection(double m[16]) const override;
    void getViewport(int v[4]) const override;

    // The nearest triangle under a window position: its mesh (of the scene
    // list), face and point. False when nothing is hit.
    bool pickTriangle(double x, double y, ref_ptr<IKvoMesh>& mesh, long& face, XPnt3d& point) const;
    // The meshes picking sees; by default the model manager's shown meshes.
    void setSceneProvider(std::function<ref_ptr<MeshArray>()> provider) { m_scene = std::move(provider); }

    // Navigation: orbit about the centre, pan so that the centre's depth
    // follows the mouse exactly, zoom toward the centre (factor > 1 closer).
    void rotate(double dxPixels, double dyPixels);
    void pan(double dxPixels, double dyPixels);
    void zoom(double factor);
    // Keeps the view direction and shows the whole box; sets the clip planes around it.
    void fitToBox(const Enve3d& box);
    void fitToModel();
    // A model seen for the first time: from the front (-y) and above, fitted.
    void viewFromFront();

private:
    ref_ptr<MeshArray> scene() const;

    XPnt3d m_eye{0, -10, 0}, m_center{0, 0, 0}, m_up{0, 0, 1};
    double m_fovY = 30.0;
    double m_near = 0.1, m_far = 1000.0;
    int m_width = 800, m_height = 600;
    std::function<ref_ptr<MeshArray>()> m_scene;
    mutable KvoRayPicker m_picker;
    mutable ref_ptr<MeshArray> m_pickerMeshes;
};

QV_EXPORT ref_ptr<CKvoTrackBall> newKvoTrackBall();

} // namespace kvo

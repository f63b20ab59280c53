#pragma once

// Mapping through a virtual camera: a pinhole camera (eye, centre, up, field
// of view across the picture's shorter side) placed so that the model seen
// through it lines up with a photograph. Every model vertex is projected into
// the photograph's frame; its position there is its texture coordinate.

#include <vector>

#include "scene/KvoProgress.h"
#include "scene/KvoRecords.h"
#include "scene/KvoStore.h"

namespace kvo {

class IKvoTrackBall;

// Frame modes of calVCFrame.
enum : long {
    kvoVCFrameModel = 0,  // corners in model coordinates
    kvoVCFrameWindow = 1, // corners as window positions of the 3-D view (GL: x right, y up, depth)
    kvoVCFramePlaced = 2, // in model coordinates, the frame placed halfway to the nearest model point
};

// The frame of a camera for an image of width x height pixels. False when the
// camera has no direction (eye on the centre, up along the line of sight).
QV_EXPORT bool calVCFrameForSize(const ZebQVVCParam& param, long width, long height, long mode,
                                 zebUI::_ZebVCMapParam_& out);
// The same for a project image (its size from the record).
QV_EXPORT bool calVCFrame(long imageId, const ZebQVVCParam& param, long mode, zebUI::_ZebVCMapParam_& out);

// The zoom: ratio of the view's half field of view to the angle the
// photograph fills; windowBox (when given) gets the part of the 3-D view that
// the photograph covers (GL window coordinates, y up).
QV_EXPORT bool calVCZoom(long imageId, const ZebQVVCParam& param, double& zoomOut, Enve2d* windowBox);

// The camera from the image's control points: resection with the record's
// field of view (or the photograph's EXIF one, or 27 degrees).
QV_EXPORT void calVCParam(long imageId, ZebQVVCParam& out);

// Eye, centre and up of the camera that sees worldPoints at imagePoints
// (picture positions 0 to 1, (0, 0) bottom-left) with vertical field of view
// fovY across the shorter side of a width x height picture. False when the
// points cannot give one (fewer than 4, or degenerate).
QV_EXPORT bool calEyeCenterUpPrams(const std::vector<XPnt3d>& worldPoints, const std::vector<XPnt2d>& imagePoints,
                                   double fovY, long width, long height, XPnt3d& eye, XPnt3d& center, XPnt3d& up);

// The projection of a frame: points to UV with (0, 0) at the frame's
// bottom-left corner and (1, 1) at its top-right.
class QV_EXPORT KvoVCProjector {
public:
    explicit KvoVCProjector(const zebUI::_ZebVCMapParam_& frame);
    bool isValid() const { return m_valid; }
    // u, v of a point; behind the eye the formula still answers (c.z > 0).
    XPnt2d uv(const XPnt3d& p) const;
    // The rigid view motion (eye to the origin, frame right to x, frame up to y).
    const KvoMatrix4d& view() const { return m_view; }

private:
    KvoMatrix4d m_view;
    double m_du = 0, m_dv = 0; // d / width, d / height
    bool m_valid = false;
};

// One byte a triangle for each awake bare mesh, 1 where the image's stored
// camera sees the triangle. strict: all three corners must be seen, else one.
// -1 without a stored camera, 0 on success.
QV_EXPORT long calVCVisibleTriangles(long imageId, bool strict, ref_ptr<ByteArrayArray>& masks);

// Maps the active image through the camera and its frame.
QV_EXPORT void VCMapping(ZebQVVCParam& param, zebUI::_ZebVCMapParam_& frame, bool keepTriangles, bool selectedOnly,
                         bool deletePenetrating, IKvoProgress* progress);

// Drops the triangles of a texture mesh whose UVs leave the picture (outside
// 0 to 1) or turn over (clockwise or degenerate in UV); the number dropped.
QV_EXPORT long removeNegtiveUV(const ref_ptr<IKvoMesh>& mesh, IKvoProgress* progress);

// Soft edges of a texture mesh's alpha along the border of its UV footprint:
// alpha rises from 0 at the border to full over size * (1 - hardness / 100)
// pixels inward (hardness 100: a hard edge). Only that mesh's picture's alpha
// changes. edgePoints, when not empty, limits the softening to border pixels
// within size of those picture positions (UV). The number of pixels changed.
QV_EXPORT long featherMesh(const ref_ptr<IKvoMesh>& mesh, long mode, long size, long hardness,
                           const std::vector<XPnt2d>& edgePoints, IKvoProgress* progress);

// Rotation and translation of an image's virtual camera (the view motion), as
// the Show Matrix command prints them; false without a stored camera.
QV_EXPORT bool calVCMatrix(long imageId, double Rt[12]);

} // namespace kvo

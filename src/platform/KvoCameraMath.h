#pragma once

#include "scene/KvoTypes.h"

namespace kvo {

// Camera math with exactly GLU's conventions. Matrices are double[16] in
// column-major order, as OpenGL keeps them; window y runs up, as in GL.

QV_EXPORT void identityMatrix(double m[16]);
// out = a * b (out may be a or b).
QV_EXPORT void multiplyMatrix(const double a[16], const double b[16], double out[16]);
// False, leaving out unchanged, when m is singular.
QV_EXPORT bool invertMatrix(const double m[16], double out[16]);
// gluPerspective.
QV_EXPORT void perspectiveMatrix(double fovyDeg, double aspect, double zNear, double zFar, double m[16]);
// Model-view and projection of a computer-vision pinhole camera (x = K (R X + t)
// in pixels, x right, y down the rows, z forward; K upper triangular with
// K[8] = 1, skew included), so that drawing into a width x height window
// whose rows run top-down (as the CPU rasteriser's do) puts every world point
// on the pixel position the camera gives it.
QV_EXPORT void pinholeGlMatrices(const double K[9], const double R[9], const double t[3], int width, int height,
                                 double zNear, double zFar, double mv[16], double pr[16]);
// gluLookAt.
QV_EXPORT void lookAtMatrix(const XPnt3d& eye, const XPnt3d& center, const XPnt3d& up, double m[16]);
// gluProject: false where the point's w is 0.
QV_EXPORT bool projectPoint(const XPnt3d& obj, const double model[16], const double proj[16], const int viewport[4],
                            XPnt3d& win);
// gluUnProject: false when model * proj is singular.
QV_EXPORT bool unprojectPoint(const XPnt3d& win, const double model[16], const double proj[16], const int viewport[4],
                              XPnt3d& obj);

} // namespace kvo

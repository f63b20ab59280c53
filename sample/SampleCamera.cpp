#include <cmath>

#include "SampleScene.h"

namespace qvsample {

const char* kindName(SceneKind kind)
{
    switch (kind) {
    case SceneKind::Plane: return "plane";
    case SceneKind::Wall: return "wall";
    case SceneKind::Realistic: return "realistic";
    case SceneKind::Building: break;
    }
    return "building";
}

bool parseKind(const std::string& name, SceneKind& kind)
{
    for (SceneKind k : {SceneKind::Building, SceneKind::Plane, SceneKind::Wall, SceneKind::Realistic})
        if (name == kindName(k)) {
            kind = k;
            return true;
        }
    return false;
}

XPnt3d SampleCamera::center() const
{
    // C = -R^T t
    return XPnt3d(-(R[0] * t[0] + R[3] * t[1] + R[6] * t[2]), -(R[1] * t[0] + R[4] * t[1] + R[7] * t[2]),
                  -(R[2] * t[0] + R[5] * t[1] + R[8] * t[2]));
}

bool SampleCamera::project(const XPnt3d& X, XPnt2d& pixel, double* depth) const
{
    const double c[3] = {R[0] * X.x + R[1] * X.y + R[2] * X.z + t[0], R[3] * X.x + R[4] * X.y + R[5] * X.z + t[1],
                         R[6] * X.x + R[7] * X.y + R[8] * X.z + t[2]};
    if (depth)
        *depth = c[2];
    if (!(c[2] > 1e-12))
        return false;
    pixel = XPnt2d(fx * c[0] / c[2] + cx, fy * c[1] / c[2] + cy);
    return true;
}

void SampleCamera::projectionMatrix(double P[12]) const
{
    const double K[9] = {fx, 0, cx, 0, fy, cy, 0, 0, 1};
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            P[r * 4 + c] = K[r * 3 + 0] * R[c] + K[r * 3 + 1] * R[3 + c] + K[r * 3 + 2] * R[6 + c];
        P[r * 4 + 3] = K[r * 3 + 0] * t[0] + K[r * 3 + 1] * t[1] + K[r * 3 + 2] * t[2];
    }
}

double SampleCamera::fovYDegrees() const
{
    return 2.0 * std::atan(height * 0.5 / fy) * 180.0 / M_PI;
}

} // namespace qvsample

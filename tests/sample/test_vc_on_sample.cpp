// Mapping a generated photograph through its true camera: the colours the
// texture mesh takes from the photograph must be the ground-truth texture's
// colours there, up to the photograph's exposure, white balance and light.

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

#include "SampleProject.h"
#include "SampleRender.h"
#include "SampleWriter.h"
#include "camera/KvoVirtualCamera.h"
#include "support/ViewerSupport.h"

using namespace kvo;
using namespace qvsample;

namespace {

cv::Vec3d bilinear(const cv::Mat& img, double x, double y)
{
    cv::Mat patch;
    cv::getRectSubPix(img, cv::Size(1, 1), cv::Point2f(float(x - 0.5), float(y - 0.5)), patch, CV_32F);
    const cv::Vec3f p = patch.at<cv::Vec3f>(0, 0);
    return cv::Vec3d(p[0], p[1], p[2]);
}

} // namespace

class VcOnSample : public qvtest::ViewerTest {};

TEST_F(VcOnSample, TrueCameraMappingReproducesTheGroundTruthColours)
{
    SampleOptions o;
    o.photos = 4;
    o.triangles = 6000;
    o.photoWidth = 800;
    o.photoHeight = 600;
    o.texelsPerMetre = 32;
    std::string error;
    SampleScene scene;
    ASSERT_TRUE(writeSample(o, scratch.file("scene").toStdString(), &error, nullptr, &scene)) << error;
    QString why;
    ASSERT_EQ(buildProjectFromSample(scratch.file("scene"), scratch.file("p.qvj"), why), kvoOk) << why.toStdString();

    const SampleCamera& cam = scene.cameras[0];
    const long imageId = 1;
    getMM()->setActiveImageId(imageId);
    ZebQVVCParam p;
    ASSERT_TRUE(getMM()->getVCParam(imageId, p)) << "the project holds the true camera";
    EXPECT_NEAR(p.fovY, cam.fovYDegrees(), 1e-9);
    zebUI::_ZebVCMapParam_ frame;
    ASSERT_TRUE(calVCFrame(imageId, p, kvoVCFrameModel, frame));
    VCMapping(p, frame, false, false, true, nullptr);
    ref_ptr<IKvoMesh> tex;
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, imageId));
    ASSERT_GT(tex->getFaceCount(), 200);

    // Every vertex's UV is its true projection.
    const Pnt2fArray* uv = tex->getUVs();
    for (size_t i = 0; i < scene.mesh.vertices.size(); i += 37) {
        const XPnt3f& v = scene.mesh.vertices[i];
        XPnt2d px;
        if (!cam.project(XPnt3d(v.x, v.y, v.z), px))
            continue;
        EXPECT_NEAR(uv->getAt(long(i)).x * cam.width, px.x, 0.01);
        EXPECT_NEAR((1 - uv->getAt(long(i)).y) * cam.height, px.y, 0.01);
    }

    // Colours: the photograph at each mapped triangle's centre against the
    // ground-truth texture at the same point, both smoothed a little.
    cv::Mat photo = cv::imread(scratch.file("scene/photos/photo_01.jpg").toStdString());
    cv::GaussianBlur(photo, photo, cv::Size(0, 0), 1.5);
    std::vector<cv::Mat> textures;
    for (const SampleSurface& s : scene.surfaces) {
        cv::Mat t;
        cv::GaussianBlur(s.texture, t, cv::Size(0, 0), 1.5);
        textures.push_back(t);
    }
    const UIntArray* tris = tex->getTriangleIndices();
    std::vector<cv::Vec3d> seen, truth, truthFlipped;
    for (long f = 0; f < tex->getFaceCount(); f += 3) {
        const unsigned a = tris->getAt(3 * f), b = tris->getAt(3 * f + 1), c = tris->getAt(3 * f + 2);
        // Find the triangle in the scene (same corners) for its surface and true UVs.
        long face = -1;
        for (long g = 0; g < scene.mesh.triangleCount() && face < 0; ++g)
            if (scene.mesh.triangles[size_t(g) * 3] == a && scene.mesh.triangles[size_t(g) * 3 + 1] == b &&
                scene.mesh.triangles[size_t(g) * 3 + 2] == c)
                face = g;
        ASSERT_GE(face, 0);
        const int s = scene.mesh.triangleSurface[size_t(face)];
        const XPnt2f t0 = scene.mesh.cornerUVs[size_t(face) * 3], t1 = scene.mesh.cornerUVs[size_t(face) * 3 + 1],
                     t2 = scene.mesh.cornerUVs[size_t(face) * 3 + 2];
        const double tu = (t0.x + t1.x + t2.x) / 3, tv = (t0.y + t1.y + t2.y) / 3;
        const XPnt2f u0 = uv->getAt(a), u1 = uv->getAt(b), u2 = uv->getAt(c);
        const double pu = (u0.x + u1.x + u2.x) / 3, pv = (u0.y + u1.y + u2.y) / 3;
        const cv::Mat& T = textures[size_t(s)];
        // Triangles seen at a grazing angle blur too much to compare.
        const double areaPx =
            std::abs((u1.x - u0.x) * (u2.y - u0.y) - (u1.y - u0.y) * (u2.x - u0.x)) * 0.5 * cam.width * cam.height;
        if (areaPx < 30)
            continue;
        seen.push_back(bilinear(photo, pu * cam.width, (1 - pv) * cam.height) /
                       surfaceShade(scene.surfaces[size_t(s)]));
        truth.push_back(bilinear(T, tu * T.cols, (1 - tv) * T.rows));
        truthFlipped.push_back(bilinear(T, tu * T.cols, tv * T.rows));
    }
    ASSERT_GT(seen.size(), 50u);
    // One gain a channel (exposure and white balance), by least squares.
    cv::Vec3d num(0, 0, 0), den(0, 0, 0);
    for (size_t i = 0; i < seen.size(); ++i)
        for (int ch = 0; ch < 3; ++ch) {
            num[ch] += seen[i][ch] * truth[i][ch];
            den[ch] += truth[i][ch] * truth[i][ch];
        }
    std::vector<double> err;
    for (size_t i = 0; i < seen.size(); ++i)
        for (int ch = 0; ch < 3; ++ch)
            err.push_back(std::abs(seen[i][ch] - truth[i][ch] * num[ch] / den[ch]));
    std::nth_element(err.begin(), err.begin() + long(err.size() / 2), err.end());

    const double median = err[err.size() / 2];
    EXPECT_LT(median, 12.0) << "median colour error";

    // Against the ground truth turned upside down the fit is far worse: the
    // comparison sees orientation.
    std::vector<double> wrong;
    for (size_t i = 0; i < seen.size(); ++i)
        for (int ch = 0; ch < 3; ++ch)
            wrong.push_back(std::abs(seen[i][ch] - truthFlipped[i][ch] * num[ch] / den[ch]));
    std::nth_element(wrong.begin(), wrong.begin() + long(wrong.size() / 2), wrong.end());
    EXPECT_GT(wrong[wrong.size() / 2], 2 * median);
}

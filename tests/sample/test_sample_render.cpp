// The generated photographs are an oracle for later work, so they are checked
// against plain geometry: where a known point must appear, which triangle a
// pixel must show, which surfaces a camera cannot see.

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <opencv2/imgcodecs.hpp>

#include <cmath>

#include "SampleRandom.h"
#include "SampleRender.h"
#include "SampleWriter.h"
#include "support/TestSupport.h"

using namespace qvsample;

namespace {

// A camera at eye looking at target, with the principal point off centre.
SampleCamera camera(const XPnt3d& eye, const XPnt3d& target, int w, int h, double f, double cx, double cy)
{
    SampleCamera c;
    c.name = "test.jpg";
    c.width = w;
    c.height = h;
    c.fx = f;
    c.fy = f * 1.01;
    c.cx = cx;
    c.cy = cy;
    XPnt3d z = target - eye;
    z = z * (1.0 / std::sqrt(z.x * z.x + z.y * z.y + z.z * z.z));
    XPnt3d x(z.y, -z.x, 0); // z cross (0, 0, 1)
    x = x * (1.0 / std::sqrt(x.x * x.x + x.y * x.y));
    const XPnt3d y(z.y * x.z - z.z * x.y, z.z * x.x - z.x * x.z, z.x * x.y - z.y * x.x);
    const XPnt3d rows[3] = {x, y, z};
    for (int r = 0; r < 3; ++r) {
        c.R[r * 3] = rows[r].x;
        c.R[r * 3 + 1] = rows[r].y;
        c.R[r * 3 + 2] = rows[r].z;
        c.t[r] = -(rows[r].x * eye.x + rows[r].y * eye.y + rows[r].z * eye.z);
    }
    return c;
}

// One square wall, 4 m wide, in the plane y = 0, its texture black with a
// green square in the middle and a red one near the top-left (colours that
// the pale sky around it does not have).
SampleScene markedWall()
{
    SampleScene s;
    SampleSurface wall;
    wall.name = "wall";
    wall.material = "test";
    wall.origin = XPnt3d(-2, 0, 0);
    wall.uAxis = XPnt3d(4, 0, 0);
    wall.vAxis = XPnt3d(0, 0, 4);
    wall.triangleCount = 2;
    wall.texture = cv::Mat(400, 400, CV_8UC3, cv::Scalar(0, 0, 0));
    // UV (0.45..0.55, 0.45..0.55): rows are top-down, so v = 1 - row / 400.
    wall.texture(cv::Rect(180, 180, 40, 40)).setTo(cv::Scalar(0, 255, 0));
    // UV (0.15..0.25, 0.75..0.85)
    wall.texture(cv::Rect(60, 60, 40, 40)).setTo(cv::Scalar(0, 0, 255));
    s.surfaces.push_back(wall);
    s.mesh.vertices = {{-2, 0, 0}, {2, 0, 0}, {2, 0, 4}, {-2, 0, 4}};
    s.mesh.triangles = {0, 1, 2, 0, 2, 3};
    s.mesh.cornerUVs = {{0, 0}, {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}};
    s.mesh.triangleSurface = {0, 0};
    return s;
}

// The brightness-weighted centre of the pixels where channel c dominates.
bool blobCentre(const cv::Mat& bgr, int channel, XPnt2d& centre)
{
    double sx = 0, sy = 0, sw = 0;
    for (int y = 0; y < bgr.rows; ++y)
        for (int x = 0; x < bgr.cols; ++x) {
            const cv::Vec3b p = bgr.at<cv::Vec3b>(y, x);
            const double others = channel < 0 ? 0 : (p[0] + p[1] + p[2] - p[channel]) / 2.0;
            const double w = (channel < 0 ? std::min({p[0], p[1], p[2]}) : p[channel] - others);
            if (w > 20) {
                sx += w * (x + 0.5);
                sy += w * (y + 0.5);
                sw += w;
            }
        }
    if (sw == 0)
        return false;
    centre = XPnt2d(sx / sw, sy / sw);
    return true;
}

bool rayHitsTriangle(const SampleScene& s, const SampleCamera& c, long f, double px, double py, double& depth,
                     double slack)
{
    const double dc[3] = {(px - c.cx) / c.fx, (py - c.cy) / c.fy, 1};
    const XPnt3d d(c.R[0] * dc[0] + c.R[3] * dc[1] + c.R[6] * dc[2], c.R[1] * dc[0] + c.R[4] * dc[1] + c.R[7] * dc[2],
                   c.R[2] * dc[0] + c.R[5] * dc[1] + c.R[8] * dc[2]);
    const XPnt3d o = c.center();
    XPnt3d v[3];
    for (int k = 0; k < 3; ++k) {
        const XPnt3f& p = s.mesh.vertices[s.mesh.triangles[size_t(f) * 3 + size_t(k)]];
        v[k] = XPnt3d(p.x, p.y, p.z);
    }
    const XPnt3d e1 = v[1] - v[0], e2 = v[2] - v[0];
    const XPnt3d p(d.y * e2.z - d.z * e2.y, d.z * e2.x - d.x * e2.z, d.x * e2.y - d.y * e2.x);
    const double det = e1.x * p.x + e1.y * p.y + e1.z * p.z;
    if (std::abs(det) < 1e-14)
        return false;
    const XPnt3d tv = o - v[0];
    const double u = (tv.x * p.x + tv.y * p.y + tv.z * p.z) / det;
    const XPnt3d q(tv.y * e1.z - tv.z * e1.y, tv.z * e1.x - tv.x * e1.z, tv.x * e1.y - tv.y * e1.x);
    const double w = (d.x * q.x + d.y * q.y + d.z * q.z) / det;
    depth = (e2.x * q.x + e2.y * q.y + e2.z * q.z) / det;
    return depth > 0 && u >= -slack && w >= -slack && u + w <= 1 + slack;
}

bool facesCamera(const SampleScene& s, const SampleCamera& c, long f)
{
    XPnt3d v[3];
    for (int k = 0; k < 3; ++k) {
        const XPnt3f& p = s.mesh.vertices[s.mesh.triangles[size_t(f) * 3 + size_t(k)]];
        v[k] = XPnt3d(p.x, p.y, p.z);
    }
    const XPnt3d e1 = v[1] - v[0], e2 = v[2] - v[0];
    const XPnt3d n(e1.y * e2.z - e1.z * e2.y, e1.z * e2.x - e1.x * e2.z, e1.x * e2.y - e1.y * e2.x);
    const XPnt3d toCam = c.center() - v[0];
    return n.x * toCam.x + n.y * toCam.y + n.z * toCam.z > 0;
}

} // namespace

TEST(SampleRender, KnownPointsLandOnTheirProjectedPixels)
{
    SampleScene s = markedWall();
    SampleRandom rng(7);
    for (int i = 0; i < 5; ++i) {
        const XPnt3d eye(rng.uniform(-4, 4), rng.uniform(-9, -6), rng.uniform(0.5, 4));
        SampleCamera cam = camera(eye, XPnt3d(rng.uniform(-0.5, 0.5), 0, 2), 480, 360, rng.uniform(450, 650),
                                  240 + rng.uniform(-30, 30), 180 + rng.uniform(-20, 20));
        SampleView view;
        std::string error;
        ASSERT_TRUE(renderSampleView(s, cam, view, &error)) << error;
        ASSERT_EQ(view.bgr.cols, 480);
        ASSERT_EQ(view.bgr.rows, 360);
        XPnt2d white, red, expectWhite, expectRed;
        ASSERT_TRUE(blobCentre(view.bgr, 1, white));
        ASSERT_TRUE(blobCentre(view.bgr, 2, red));
        ASSERT_TRUE(cam.project(XPnt3d(0, 0, 2), expectWhite));
        ASSERT_TRUE(cam.project(XPnt3d(-2 + 0.2 * 4, 0, 0.8 * 4), expectRed));
        // A blob's centroid is its centre's image up to perspective, well
        // under a pixel for squares this small.
        EXPECT_NEAR(white.x, expectWhite.x, 0.35) << "camera " << i;
        EXPECT_NEAR(white.y, expectWhite.y, 0.35) << "camera " << i;
        EXPECT_NEAR(red.x, expectRed.x, 0.35) << "camera " << i;
        EXPECT_NEAR(red.y, expectRed.y, 0.35) << "camera " << i;
    }
}

TEST(SampleRender, EachPixelShowsTheNearestTriangleUnderItsCentre)
{
    SampleOptions o;
    o.photos = 3;
    o.triangles = 3000;
    o.photoWidth = 320;
    o.photoHeight = 240;
    o.texelsPerMetre = 16;
    const SampleScene s = buildSampleScene(o);
    SampleRandom rng(3);
    for (const SampleCamera& cam : s.cameras) {
        SampleView view;
        ASSERT_TRUE(renderSampleView(s, cam, view, nullptr));
        int checked = 0, sky = 0;
        for (int k = 0; k < 150; ++k) {
            const int x = int(rng.below(uint32_t(cam.width))), y = int(rng.below(uint32_t(cam.height)));
            const int32_t shown = view.triangle.at<int32_t>(y, x);
            // Brute force: the nearest triangle the ray through the pixel centre meets.
            long nearest = -1;
            double best = 1e300;
            for (long f = 0; f < s.mesh.triangleCount(); ++f) {
                double depth;
                if (!facesCamera(s, cam, f))
                    continue; // surfaces are one-sided
                if (rayHitsTriangle(s, cam, f, x + 0.5, y + 0.5, depth, 0) && depth < best) {
                    best = depth;
                    nearest = f;
                }
            }
            if (nearest < 0) {
                EXPECT_EQ(shown, -1) << x << "," << y;
                ++sky;
                continue;
            }
            ++checked;
            if (shown == nearest)
                continue;
            // On an edge the rasteriser may pick the neighbour: it must
            // still lie under the centre (within rounding) at the same depth.
            double depth = 0;
            ASSERT_GE(shown, 0) << x << "," << y;
            EXPECT_TRUE(rayHitsTriangle(s, cam, shown, x + 0.5, y + 0.5, depth, 1e-3) &&
                        std::abs(depth - best) < 1e-3 * best)
                << "pixel " << x << "," << y << " shows " << shown << ", nearest is " << nearest;
        }
        EXPECT_GT(checked, 50);
        EXPECT_GT(sky, 0) << "the sky is in every photograph of the block";
    }
}

TEST(SampleRender, ControlPointsAndCoverageAgreeWithTheGeometry)
{
    SampleOptions o;
    o.photos = 8;
    o.triangles = 4000;
    o.photoWidth = 400;
    o.photoHeight = 300;
    o.texelsPerMetre = 16;
    const SampleScene s = buildSampleScene(o);
    for (size_t i = 0; i < s.cameras.size(); ++i) {
        const SampleCamera& cam = s.cameras[i];
        SampleView view;
        ASSERT_TRUE(renderSampleView(s, cam, view, nullptr));
        const std::vector<SampleControlPoint> cps = chooseControlPoints(s, cam, view, 12, 99);
        EXPECT_EQ(cps.size(), 12u) << cam.name;
        for (const SampleControlPoint& cp : cps) {
            XPnt2d px;
            ASSERT_TRUE(cam.project(cp.world, px));
            EXPECT_NEAR(px.x, cp.u * cam.width, 1e-6);
            EXPECT_NEAR(px.y, (1 - cp.v) * cam.height, 1e-6);
            // On the visible surface: the triangle under the pixel holds it.
            const int32_t f = view.triangle.at<int32_t>(int(px.y), int(px.x));
            ASSERT_GE(f, 0);
            double depth = 0;
            EXPECT_TRUE(rayHitsTriangle(s, cam, f, px.x, px.y, depth, 1e-3));
        }
        // Spread: both halves of the picture, left and right, hold points.
        int left = 0, top = 0;
        for (const SampleControlPoint& cp : cps) {
            left += cp.u < 0.5;
            top += cp.v > 0.5;
        }
        EXPECT_GE(left, 3);
        EXPECT_LE(left, 9);
        EXPECT_GE(top, 2);

        // A surface whose back faces the camera is never seen.
        const std::vector<double> cover = surfaceCoverage(s, view);
        const XPnt3d c = cam.center();
        double seen = 0;
        for (size_t k = 0; k < s.surfaces.size(); ++k) {
            const SampleSurface& sf = s.surfaces[k];
            const XPnt3d n(sf.uAxis.y * sf.vAxis.z - sf.uAxis.z * sf.vAxis.y,
                           sf.uAxis.z * sf.vAxis.x - sf.uAxis.x * sf.vAxis.z,
                           sf.uAxis.x * sf.vAxis.y - sf.uAxis.y * sf.vAxis.x);
            const XPnt3d toCam = c - sf.origin;
            if (n.x * toCam.x + n.y * toCam.y + n.z * toCam.z < 0) {
                EXPECT_EQ(cover[k], 0.0) << cam.name << " " << sf.name;
            }
            seen += cover[k];
        }
        EXPECT_GT(seen, 0.5);
    }
}

TEST(SampleRender, ThePillarHidesPartOfTheSouthFacade)
{
    SampleOptions o;
    o.photos = 8;
    o.triangles = 20000;
    o.photoWidth = 480;
    o.photoHeight = 360;
    o.texelsPerMetre = 8;
    const SampleScene s = buildSampleScene(o);
    size_t south = 0;
    while (s.surfaces[south].name != "facade_south")
        ++south;
    // The camera straight south sees the facade, but not all of it.
    for (const SampleCamera& cam : s.cameras) {
        const XPnt3d c = cam.center();
        if (c.y > -15 || std::abs(c.x) > 6 || c.z > 10)
            continue;
        SampleView view;
        ASSERT_TRUE(renderSampleView(s, cam, view, nullptr));
        const double cover = surfaceCoverage(s, view)[south];
        EXPECT_GT(cover, 0.5) << cam.name;
        EXPECT_LT(cover, 0.995) << cam.name;
        return;
    }
    FAIL() << "no camera south of the block";
}

TEST(SampleWriter, WritesEveryFileDeterministically)
{
    qvtest::ScratchDir dir;
    SampleOptions o;
    o.photos = 2;
    o.triangles = 1500;
    o.photoWidth = 320;
    o.photoHeight = 240;
    o.texelsPerMetre = 12;
    std::string error;
    SampleScene scene;
    ASSERT_TRUE(writeSample(o, dir.file("a").toStdString(), &error, nullptr, &scene)) << error;
    ASSERT_TRUE(writeSample(o, dir.file("b").toStdString(), &error)) << error;
    o.seed = 2;
    ASSERT_TRUE(writeSample(o, dir.file("c").toStdString(), &error)) << error;
    auto bytes = [&](const QString& sub, const QString& rel) {
        QFile f(dir.file(sub + "/" + rel));
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    };
    for (const char* rel : {"model.obj", "truth/model_textured.obj", "truth/model_textured.mtl", "photos/photo_01.jpg",
                            "photos/photo_02.jpg", "control_points/photo_02.txt", "cameras/colmap/images.txt",
                            "cameras/colmap/cameras.txt", "cameras/bundler/bundle.out", "cameras/bundler/list.txt",
                            "cameras/matrices/photo_01.P.txt", "scene.json"}) {
        const QByteArray a = bytes("a", rel);
        EXPECT_FALSE(a.isEmpty()) << rel;
        EXPECT_EQ(a, bytes("b", rel)) << rel << " differs for the same seed";
    }
    EXPECT_NE(bytes("a", "photos/photo_01.jpg"), bytes("c", "photos/photo_01.jpg"));

    // scene.json tells the truth about the files beside it.
    const QJsonObject root = QJsonDocument::fromJson(bytes("a", "scene.json")).object();
    EXPECT_EQ(root["kind"].toString(), "building");
    EXPECT_EQ(root["triangles"].toDouble(), double(scene.mesh.triangleCount()));
    const QJsonArray photos = root["photos"].toArray();
    ASSERT_EQ(photos.size(), 2);
    const QJsonObject p0 = photos[0].toObject();
    EXPECT_EQ(p0["file"].toString(), "photos/photo_01.jpg");
    EXPECT_DOUBLE_EQ(p0["fx"].toDouble(), scene.cameras[0].fx);
    const cv::Mat photo = cv::imread(dir.file("a/photos/photo_01.jpg").toStdString());
    EXPECT_EQ(photo.cols, 320);
    EXPECT_EQ(photo.rows, 240);
    for (const QJsonValue& surface : root["surfaces"].toArray()) {
        const cv::Mat tex = cv::imread(dir.file("a/" + surface.toObject()["texture"].toString()).toStdString());
        EXPECT_EQ(tex.cols, surface.toObject()["textureSize"].toArray()[0].toInt());
    }
    // model.obj: every vertex and triangle, 1-based indices in range.
    const QList<QByteArray> lines = bytes("a", "model.obj").split('\n');
    long v = 0, f = 0;
    for (const QByteArray& line : lines) {
        if (line.startsWith("v "))
            ++v;
        else if (line.startsWith("f ")) {
            ++f;
            for (const QByteArray& idx : line.mid(2).split(' '))
                EXPECT_TRUE(idx.toLong() >= 1 && idx.toLong() <= long(scene.mesh.vertices.size()));
        }
    }
    EXPECT_EQ(v, long(scene.mesh.vertices.size()));
    EXPECT_EQ(f, scene.mesh.triangleCount());
}

TEST(SampleWriter, CommandLineMakesAPlaneSceneAndRefusesBadOptions)
{
    qvtest::ScratchDir dir;
    QProcess p;
    p.start(QUOVARA_CLI_PATH, {"sample", "--out", dir.file("plane"), "--kind", "plane", "--photos", "3", "--size",
                               "320x240", "--triangles", "800", "--texels", "40"});
    ASSERT_TRUE(p.waitForFinished(120000));
    EXPECT_EQ(p.exitCode(), 0) << p.readAllStandardError().toStdString();
    EXPECT_TRUE(QFile::exists(dir.file("plane/photos/photo_03.jpg")));
    const QJsonObject root = [&] {
        QFile f(dir.file("plane/scene.json"));
        f.open(QIODevice::ReadOnly);
        return QJsonDocument::fromJson(f.readAll()).object();
    }();
    EXPECT_EQ(root["kind"].toString(), "plane");
    EXPECT_EQ(root["surfaces"].toArray().size(), 1);
    // Every photograph of the wall sees most of it.
    for (const QJsonValue& photo : root["photos"].toArray()) {
        const QJsonArray sees = photo.toObject()["sees"].toArray();
        ASSERT_EQ(sees.size(), 1);
        EXPECT_GT(sees[0].toObject()["coverage"].toDouble(), 0.5);
    }
    p.start(QUOVARA_CLI_PATH, {"sample", "--out", dir.file("x"), "--kind", "castle"});
    ASSERT_TRUE(p.waitForFinished(30000));
    EXPECT_EQ(p.exitCode(), 2);
    EXPECT_TRUE(p.readAllStandardError().contains("unknown kind 'castle'"));
}

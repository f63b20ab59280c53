// The realistic scene must have what real captures have, or the texture job's
// handling of it proves nothing: things in the photographs that the model
// lacks, lens effects, and a model with a reconstruction's flaws.

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <set>

#include "SamplePhoto.h"
#include "SampleRender.h"
#include "SampleWriter.h"
#include "support/TestSupport.h"

using namespace qvsample;

namespace {

SampleOptions realistic()
{
    SampleOptions o;
    o.kind = SceneKind::Realistic;
    o.photos = 10;
    o.triangles = 6000;
    o.photoWidth = 320;
    o.photoHeight = 240;
    o.texelsPerMetre = 12;
    return o;
}

// The surfaces whose triangles a photograph shows.
std::set<std::string> surfacesSeen(const SampleScene& scene, const SampleView& view)
{
    std::set<std::string> out;
    for (int y = 0; y < view.triangle.rows; ++y)
        for (int x = 0; x < view.triangle.cols; ++x) {
            const int32_t f = view.triangle.at<int32_t>(y, x);
            if (f >= 0)
                out.insert(scene.surfaces[size_t(scene.mesh.triangleSurface[size_t(f)])].name);
        }
    return out;
}

bool startsWith(const std::string& s, const char* prefix)
{
    return s.rfind(prefix, 0) == 0;
}

} // namespace

TEST(SampleRealistic, PhotographsShowWhatTheModelLeavesOut)
{
    const SampleScene scene = buildSampleScene(realistic());
    ASSERT_EQ(scene.cameras.size(), 10u);
    int withTree = 0, withPasserBy = 0, withPost = 0;
    for (size_t i = 0; i < scene.cameras.size(); ++i) {
        SampleView view;
        std::string why;
        ASSERT_TRUE(renderSampleView(scene, scene.cameras[i], view, &why)) << why;
        const std::set<std::string> seen = surfacesSeen(scene, view);
        bool tree = false, passer = false, post = false;
        for (const std::string& s : seen) {
            tree = tree || startsWith(s, "tree_");
            passer = passer || startsWith(s, "passer_by");
            post = post || startsWith(s, "lamp_post");
        }
        withTree += tree;
        withPost += post;
        withPasserBy += passer;
        if (passer) {
            EXPECT_EQ(i, 0u) << "the passer-by is in the first photograph only";
        }
        // Without what the model lacks, a pixel shows what it showed of the
        // model, or what stood behind the thing in front.
        long behindThings = 0;
        for (int y = 0; y < view.triangle.rows; ++y)
            for (int x = 0; x < view.triangle.cols; ++x) {
                const int32_t front = view.triangle.at<int32_t>(y, x), behind = view.modelTriangle.at<int32_t>(y, x);
                if (front >= 0 && scene.surfaces[size_t(scene.mesh.triangleSurface[size_t(front)])].inMesh) {
                    ASSERT_EQ(behind, front);
                } else if (front >= 0) {
                    behindThings += behind >= 0;
                    ASSERT_TRUE(behind < 0 ||
                                scene.surfaces[size_t(scene.mesh.triangleSurface[size_t(behind)])].inMesh);
                }
            }
        if (tree || passer || post) {
            EXPECT_GT(behindThings, 0);
        }
        // Control points lie on what the model has.
        for (const SampleControlPoint& cp : chooseControlPoints(scene, scene.cameras[i], view, 12, 5)) {
            const int x = int(cp.u * view.triangle.cols), y = int((1 - cp.v) * view.triangle.rows);
            const int32_t f = view.triangle.at<int32_t>(y, x);
            ASSERT_GE(f, 0);
            EXPECT_TRUE(scene.surfaces[size_t(scene.mesh.triangleSurface[size_t(f)])].inMesh);
        }
    }
    EXPECT_EQ(withPasserBy, 1);
    EXPECT_GE(withTree, 2) << "the tree stands before the building in several photographs";
    EXPECT_GE(withPost, 2);
    // Lens effects vary: all photographs vignetted, some blurred.
    int blurred = 0;
    for (const SampleCamera& c : scene.cameras) {
        EXPECT_GT(c.vignetting, 0.1);
        blurred += c.blurSigma > 0;
    }
    EXPECT_GE(blurred, 1);
    EXPECT_LE(blurred, 3);
}

TEST(SampleRealistic, TheModelHasTheFlawsOfAReconstruction)
{
    const SampleScene scene = buildSampleScene(realistic());
    const SampleMesh& truth = scene.mesh;
    const SampleMesh& rec = scene.reconstruction;
    ASSERT_GT(rec.triangleCount(), 0);
    const SampleScene::Flaws& f = scene.flaws;

    // Off the surfaces by about the noise, never by much more.
    double sum2 = 0;
    long count = 0, blobTriangles = 0;
    float roofTop = -1e9f, southMost = 1e9f;
    for (long t = 0; t < rec.triangleCount(); ++t) {
        const int32_t s = rec.triangleSurface[size_t(t)];
        if (s < 0) {
            ++blobTriangles;
            continue;
        }
        const SampleSurface& surface = scene.surfaces[size_t(s)];
        EXPECT_TRUE(surface.inMesh);
        const XPnt3d& u = surface.uAxis;
        const XPnt3d& v = surface.vAxis;
        XPnt3d n(u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x);
        n = n * (1.0 / std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z));
        for (int k = 0; k < 3; ++k) {
            const XPnt3f& p = rec.vertices[rec.triangles[size_t(t) * 3 + size_t(k)]];
            const double d =
                (p.x - surface.origin.x) * n.x + (p.y - surface.origin.y) * n.y + (p.z - surface.origin.z) * n.z;
            sum2 += d * d;
            ++count;
            ASSERT_LT(std::abs(d), 6 * f.noise);
            if (surface.name == "roof")
                southMost = std::min(southMost, p.y);
            if (startsWith(surface.name, "facade_"))
                roofTop = std::max(roofTop, p.z);
        }
    }
    EXPECT_NEAR(std::sqrt(sum2 / double(count)), f.noise, 0.3 * f.noise);
    // Outlines reach past the true ones: the walls above the roof (9 m), the
    // roof past the south facade (y = -4).
    EXPECT_NEAR(roofTop, 9.0 + f.growth, 4 * f.noise);
    EXPECT_NEAR(southMost, -4.0 - f.growth, 4 * f.noise);
    // Blobs hang in the air: closed boxes, twelve triangles each.
    EXPECT_EQ(blobTriangles, 12L * f.blobs);
    // Holes: no triangle of the model near their centres, where the truth has some.
    ASSERT_EQ(f.holeCentres.size(), 3u);
    auto nearest = [](const SampleMesh& m, const XPnt3d& c, bool skipBlobs) {
        double best = 1e9;
        for (long t = 0; t < m.triangleCount(); ++t) {
            if (skipBlobs && m.triangleSurface[size_t(t)] < 0)
                continue;
            XPnt3d g(0, 0, 0);
            for (int k = 0; k < 3; ++k) {
                const XPnt3f& p = m.vertices[m.triangles[size_t(t) * 3 + size_t(k)]];
                g = g + XPnt3d(p.x, p.y, p.z) * (1.0 / 3);
            }
            best = std::min(
                best, std::sqrt((g.x - c.x) * (g.x - c.x) + (g.y - c.y) * (g.y - c.y) + (g.z - c.z) * (g.z - c.z)));
        }
        return best;
    };
    for (const XPnt3d& c : f.holeCentres) {
        EXPECT_LT(nearest(truth, c, false), 0.5 * f.holeRadius);
        EXPECT_GT(nearest(rec, c, true), 0.8 * f.holeRadius);
    }
}

TEST(SampleRealistic, LensEffectsDarkenCornersAndSoftenEdges)
{
    SampleCamera c;
    c.vignetting = 0.4;
    cv::Mat flat(120, 160, CV_8UC3, cv::Scalar(200, 200, 200));
    applyPhotoEffects(flat, c);
    const double centre = flat.at<cv::Vec3b>(60, 80)[1], corner = flat.at<cv::Vec3b>(0, 0)[1];
    EXPECT_NEAR(centre, 200, 1);
    EXPECT_NEAR(corner, 200 * (1 - 0.4), 3);

    SampleCamera b;
    b.blurSigma = 2;
    cv::Mat edge(64, 64, CV_8UC3, cv::Scalar(0, 0, 0));
    edge(cv::Rect(32, 0, 32, 64)).setTo(cv::Scalar(255, 255, 255));
    applyPhotoEffects(edge, b);
    EXPECT_GT(edge.at<cv::Vec3b>(32, 30)[0], 20);
    EXPECT_LT(edge.at<cv::Vec3b>(32, 33)[0], 235);
    EXPECT_EQ(edge.at<cv::Vec3b>(32, 5)[0], 0);
}

TEST(SampleRealistic, WrittenModelIsTheReconstructionAndSceneJsonSaysWhatIsTrue)
{
    qvtest::ScratchDir dir;
    SampleOptions o = realistic();
    o.photos = 3;
    std::string why;
    SampleScene scene;
    ASSERT_TRUE(writeSample(o, dir.path().toStdString(), &why, nullptr, &scene)) << why;
    QFile obj(dir.file("model.obj"));
    ASSERT_TRUE(obj.open(QIODevice::ReadOnly));
    long faces = 0, vertices = 0;
    std::set<QString> groups;
    while (!obj.atEnd()) {
        const QByteArray line = obj.readLine();
        faces += line.startsWith("f ");
        vertices += line.startsWith("v ");
        if (line.startsWith("g "))
            groups.insert(QString::fromUtf8(line.mid(2)).trimmed());
    }
    EXPECT_EQ(faces, scene.reconstruction.triangleCount());
    EXPECT_EQ(vertices, long(scene.reconstruction.vertices.size()));
    EXPECT_TRUE(groups.count("blob"));
    for (const QString& g : groups)
        EXPECT_FALSE(g.startsWith("tree_") || g.startsWith("passer_by") || g.startsWith("lamp_post"))
            << g.toStdString();

    // The textured truth has the true surfaces the model has, and no more.
    QFile truth(dir.file("truth/model_textured.obj"));
    ASSERT_TRUE(truth.open(QIODevice::ReadOnly));
    long truthFaces = 0, inMesh = 0;
    while (!truth.atEnd())
        truthFaces += truth.readLine().startsWith("f ");
    for (const SampleSurface& s : scene.surfaces)
        inMesh += s.inMesh ? s.triangleCount : 0;
    EXPECT_EQ(truthFaces, inMesh);
    EXPECT_LT(inMesh, scene.mesh.triangleCount());

    QFile json(dir.file("scene.json"));
    ASSERT_TRUE(json.open(QIODevice::ReadOnly));
    const QJsonObject root = QJsonDocument::fromJson(json.readAll()).object();
    EXPECT_EQ(root["kind"].toString(), "realistic");
    EXPECT_EQ(root["triangles"].toDouble(), double(faces));
    const QJsonObject flaws = root["reconstruction"].toObject();
    EXPECT_EQ(flaws["blobs"].toInt(), scene.flaws.blobs);
    EXPECT_EQ(flaws["holeCentres"].toArray().size(), 3);
    EXPECT_EQ(flaws["trueTriangles"].toDouble(), double(inMesh));
    int left = 0, onlyIn = 0;
    for (const QJsonValue& v : root["surfaces"].toArray()) {
        left += !v.toObject()["inMesh"].toBool();
        onlyIn += v.toObject().contains("onlyIn");
    }
    EXPECT_GE(left, 10 + 5 + 5) << "trunk, crown, post and passer-by";
    EXPECT_EQ(onlyIn, 5);
    for (const QJsonValue& v : root["photos"].toArray())
        EXPECT_GT(v.toObject()["vignetting"].toDouble(), 0.1);
}

// The desktop application, run as a user would run it, under a virtual X
// server: it opens a generated project and renders its views, and the pixels
// must be where the application's own camera says the model is.

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>
#include <QTextStream>

#include "platform/KvoImageViewTransform.h"
#include "platform/KvoTrackBallImpl.h"
#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

// A picture whose four quadrants have four colours, so that any flip or
// rotation of the texture shows.
const QRgb kTopLeft = qRgb(220, 30, 30), kTopRight = qRgb(30, 200, 30), kBottomLeft = qRgb(30, 30, 220),
           kBottomRight = qRgb(230, 220, 30);

bool writeQuadrantPicture(const QString& path, int w, int h)
{
    QImage img(w, h, QImage::Format_RGB32);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            img.setPixel(x, y,
                         y < h / 2 ? (x < w / 2 ? kTopLeft : kTopRight) : (x < w / 2 ? kBottomLeft : kBottomRight));
    return img.save(path);
}

ref_ptr<IKvoMesh> addBare(const ref_ptr<IKvoModel>& model, std::vector<unsigned> tris, const QString& name)
{
    ref_ptr<IKvoMesh> mesh = model->newMesh(-1, false);
    ref_ptr<UIntArray> t = newUIntArray();
    t->vec() = std::move(tris);
    mesh->setTriangleIndices(t.get(), true);
    mesh->setName(name);
    model->addMesh(mesh);
    return mesh;
}

// A panel 8 wide and 6 high in the plane y = 0, facing -y, textured with the
// quadrant picture, and a grey ground in front of it.
class AppTest : public qvtest::StoreTest {
protected:
    void buildProject()
    {
        newProject("panel.qvj");
        IKvoMM* mm = getMM();
        ref_ptr<IKvoModel> model = newKvoModel();
        model->setName("Panel");
        ref_ptr<Pnt3fArray> v = newPnt3fArray();
        v->vec() = {{-4, 0, 0}, {4, 0, 0}, {4, 0, 6}, {-4, 0, 6}, {-4, -5, 0}, {4, -5, 0}, {4, -1, 0}, {-4, -1, 0}};
        model->setVertices(v.get(), true);
        addBare(model, {0, 1, 2, 0, 2, 3}, "Panel");
        addBare(model, {4, 5, 6, 4, 6, 7}, "Ground");
        model->setVertexNormals(nullptr, true, true);
        mm->setBareModel(model);

        ASSERT_TRUE(writeQuadrantPicture(scratch.file("quadrants.png"), 64, 48));
        ref_ptr<IKvoProject> project;
        ref_ptr<IKvoImageDb> db;
        mm->getProject(project)->getImageDb(db);
        long id = -1;
        ASSERT_EQ(db->addImage(scratch.file("quadrants.png"), id), kvoOk);
        ref_ptr<IKvoMesh> tex;
        ASSERT_TRUE(mm->createTexMesh(tex, false, id, false));
        ref_ptr<UIntArray> tris = newUIntArray();
        tris->vec() = {0, 1, 2, 0, 2, 3};
        tex->setTriangleIndices(tris.get(), true);
        // UV (0, 0) is the picture's bottom-left corner.
        ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
        uvs->vec() = {{0, 0}, {1, 0}, {1, 1}, {0, 1}, {0, 0}, {0, 0}, {0, 0}, {0, 0}};
        tex->setUVs(uvs.get());
        ref_ptr<IKvoImage> pixels;
        tex->setImage(db->getTexture(pixels, id, 2));
        mm->setActiveImageId(id);
        ASSERT_EQ(mm->saveProject(), kvoOk);
        m_projectPath = project->getFilePath();
        mm->closeProject();
    }
    QString m_projectPath;
};

struct Views {
    int modelW = 0, modelH = 0;
    XPnt3d eye, center, up;
    double fov = 0, zNear = 0, zFar = 0;
    int imageW = 0, imageH = 0;
    double zoom = 0, offX = 0, offY = 0;
};

bool readViews(const QString& path, Views& v)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    QTextStream in(&f);
    QString word;
    in >> word >> v.modelW >> v.modelH >> v.eye.x >> v.eye.y >> v.eye.z >> v.center.x >> v.center.y >> v.center.z >>
        v.up.x >> v.up.y >> v.up.z >> v.fov >> v.zNear >> v.zFar;
    if (word != "model")
        return false;
    in >> word >> v.imageW >> v.imageH >> v.zoom >> v.offX >> v.offY;
    return word == "image" && in.status() == QTextStream::Ok;
}

// The colour's dominant channels, as the lit and filtered rendering keeps them.
bool looksLike(QRgb pixel, QRgb expected)
{
    const int c[3] = {qRed(pixel), qGreen(pixel), qBlue(pixel)};
    const int e[3] = {qRed(expected), qGreen(expected), qBlue(expected)};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (e[i] > 150 && e[j] < 60 && !(c[i] > 2 * c[j] + 20))
                return false;
    return true;
}

std::string describe(QRgb p)
{
    return QString("(%1, %2, %3)").arg(qRed(p)).arg(qGreen(p)).arg(qBlue(p)).toStdString();
}

} // namespace

TEST_F(AppTest, ViewsShowTheModelWhereItsCameraProjectsItAndTheImageWhereItsTransformPutsIt)
{
    if (QStandardPaths::findExecutable("xvfb-run").isEmpty())
        FAIL() << "xvfb-run is missing: run scripts/setup.sh";
    buildProject();
    const QString out = QString(QUOVARA_TEST_ARTIFACTS) + "/app";
    QDir(out).removeRecursively();

    QProcess app;
    app.setProcessChannelMode(QProcess::MergedChannels);
    app.start("xvfb-run",
              {"-a", "-s", "-screen 0 1400x1000x24", QUOVARA_APP_PATH, "--render-views", out, m_projectPath});
    ASSERT_TRUE(app.waitForFinished(180000)) << "the application did not finish";
    ASSERT_EQ(app.exitCode(), 0) << app.readAll().toStdString();
    Views v;
    ASSERT_TRUE(readViews(out + "/views.txt", v));
    QImage model(out + "/model.png"), image(out + "/image.png");
    ASSERT_EQ(model.width(), v.modelW);
    ASSERT_EQ(model.height(), v.modelH);
    ASSERT_EQ(image.width(), v.imageW);
    ASSERT_EQ(image.height(), v.imageH);
    ASSERT_TRUE(QFile::exists(out + "/window.png"));

    // The 3-D view: the application's camera, rebuilt here, says where to look.
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    ball->setViewport(v.modelW, v.modelH);
    ball->setFovY(v.fov);
    ball->setClip(v.zNear, v.zFar);
    ball->setCamera(v.eye, v.center, v.up);
    auto pixelAt = [&](const XPnt3d& p) {
        XPnt3d w;
        ball->projectToWindow(w, p.x, p.y, p.z);
        EXPECT_TRUE(w.x >= 0 && w.x < v.modelW && w.y >= 0 && w.y < v.modelH) << "fitted on load";
        return model.pixel(std::clamp(int(w.x), 0, v.modelW - 1), std::clamp(int(w.y), 0, v.modelH - 1));
    };
    for (const XPnt3d& corner :
         {XPnt3d(-4, 0, 0), XPnt3d(4, 0, 0), XPnt3d(4, 0, 6), XPnt3d(-4, 0, 6), XPnt3d(-4, -5, 0), XPnt3d(4, -5, 0)})
        pixelAt(corner);
    const QRgb background = model.pixel(2, 2);
    struct Probe {
        XPnt3d at;
        QRgb colour;
    };
    for (const Probe& p : {Probe{{-2, 0, 4.5}, kTopLeft}, Probe{{2, 0, 4.5}, kTopRight},
                           Probe{{-2, 0, 1.5}, kBottomLeft}, Probe{{2, 0, 1.5}, kBottomRight}}) {
        const QRgb got = pixelAt(p.at);
        EXPECT_TRUE(looksLike(got, p.colour))
            << "at (" << p.at.x << ", " << p.at.z << ") got " << describe(got) << " expected " << describe(p.colour);
    }
    // The bare ground is shaded grey; beside and above the panel is nothing.
    const QRgb ground = pixelAt({0, -3, 0});
    EXPECT_NE(ground, background);
    EXPECT_LT(std::abs(qRed(ground) - qGreen(ground)) + std::abs(qGreen(ground) - qBlue(ground)), 12)
        << describe(ground);
    EXPECT_EQ(pixelAt({0, 0, 7.5}), background);
    EXPECT_EQ(pixelAt({-6, 0, 3}), background);
    EXPECT_EQ(pixelAt({6, 0, 3}), background);

    // The image view: the active image, whole, top row at the top.
    KvoImageViewTransform t;
    t.setImageSize(64, 48);
    t.setViewSize(v.imageW, v.imageH);
    t.setZoomAndOffset(v.zoom, v.offX, v.offY);
    auto viewPixel = [&](double ix, double iy) {
        XPnt2d s;
        t.imageToScreen(s, XPnt2d(ix, iy));
        EXPECT_TRUE(s.x >= 0 && s.x < v.imageW && s.y >= 0 && s.y < v.imageH);
        return image.pixel(std::clamp(int(s.x), 0, v.imageW - 1), std::clamp(int(s.y), 0, v.imageH - 1));
    };
    EXPECT_EQ(viewPixel(16, 12), kTopLeft);
    EXPECT_EQ(viewPixel(48, 12), kTopRight);
    EXPECT_EQ(viewPixel(16, 36), kBottomLeft);
    EXPECT_EQ(viewPixel(48, 36), kBottomRight);
    // Fitted: the picture touches two opposite sides of the view and is centred.
    const double shownW = 64 * v.zoom, shownH = 48 * v.zoom;
    EXPECT_TRUE(std::abs(shownW - v.imageW) < 1e-6 || std::abs(shownH - v.imageH) < 1e-6);
    EXPECT_NEAR(v.offX * 2 + shownW, v.imageW, 1e-6);
    EXPECT_NEAR(v.offY * 2 + shownH, v.imageH, 1e-6);
}

TEST_F(AppTest, AMissingProjectIsReportedAndTheWindowStillComesUp)
{
    if (QStandardPaths::findExecutable("xvfb-run").isEmpty())
        FAIL() << "xvfb-run is missing: run scripts/setup.sh";
    const QString out = scratch.file("views");
    QProcess app;
    app.setProcessChannelMode(QProcess::MergedChannels);
    app.start("xvfb-run", {"-a", QUOVARA_APP_PATH, "--render-views", out, "--message-log", scratch.file("messages.txt"),
                           scratch.file("nowhere.qvj")});
    ASSERT_TRUE(app.waitForFinished(180000));
    EXPECT_EQ(app.exitCode(), 0) << app.readAll().toStdString();
    EXPECT_TRUE(QFile::exists(out + "/window.png"));
    QFile log(scratch.file("messages.txt"));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(log.readAll());
    EXPECT_TRUE(text.contains("nowhere.qvj")) << text.toStdString();
}

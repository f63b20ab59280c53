// quovara-cli import-cameras on the bundled sample: the cameras the command
// saves must put the model's points where the sample's true cameras do, bad
// input must be listed and leave the rest alone, and misuse must say how.

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <cmath>

#include "CliRun.h"
#include "camera/KvoVirtualCamera.h"
#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

const QString kSample = QUOVARA_SOURCE_DIR "/samples/building";

using qvtest::cli;
using qvtest::CliRun;

// A true camera of the sample, as its scene description gives it.
struct TrueCamera {
    QString name;
    double fx, fy, cx, cy, R[9], t[3];
    bool project(const XPnt3d& X, XPnt2d& px) const
    {
        const double c[3] = {R[0] * X.x + R[1] * X.y + R[2] * X.z + t[0], R[3] * X.x + R[4] * X.y + R[5] * X.z + t[1],
                             R[6] * X.x + R[7] * X.y + R[8] * X.z + t[2]};
        if (!(c[2] > 0))
            return false;
        px = XPnt2d(fx * c[0] / c[2] + cx, fy * c[1] / c[2] + cy);
        return true;
    }
};

std::vector<TrueCamera> trueCameras()
{
    QFile f(kSample + "/scene.json");
    std::vector<TrueCamera> out;
    if (!f.open(QIODevice::ReadOnly))
        return out;
    for (const QJsonValue& v : QJsonDocument::fromJson(f.readAll()).object()["photos"].toArray()) {
        const QJsonObject p = v.toObject();
        TrueCamera c;
        c.name = QFileInfo(p["file"].toString()).fileName();
        c.fx = p["fx"].toDouble();
        c.fy = p["fy"].toDouble();
        c.cx = p["cx"].toDouble();
        c.cy = p["cy"].toDouble();
        for (int i = 0; i < 9; ++i)
            c.R[i] = p["R"].toArray()[i].toDouble();
        for (int i = 0; i < 3; ++i)
            c.t[i] = p["t"].toArray()[i].toDouble();
        out.push_back(c);
    }
    return out;
}

QByteArray hashOf(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256)
                                       : QByteArray();
}

class CliCameras : public qvtest::StoreTest {
protected:
    // A project with the sample's model and photographs, and no cameras.
    void makeProject()
    {
        project = scratch.file(QString("p%1.qvj").arg(++m_count));
        ASSERT_EQ(cli({"new", project}).code, 0);
        const CliRun model = cli({"import-obj", project, kSample + "/model.obj"});
        ASSERT_EQ(model.code, 0) << model.err.toStdString();
        QStringList add = {"add-images", project};
        for (const QFileInfo& fi : QDir(kSample + "/photos").entryInfoList({"*.jpg"}, QDir::Files, QDir::Name))
            add << fi.absoluteFilePath();
        ASSERT_EQ(cli(add).code, 0);
    }

    // The worst pixel distance, over the model's vertices that the true
    // camera sees, between it and the saved virtual camera of the photograph.
    double worstMiss(const TrueCamera& cam, bool* hasCamera = nullptr)
    {
        IKvoMM* mm = getMM();
        const long id = mm->getImageIdByName(cam.name);
        ZebQVVCParam vc;
        zebUI::_ZebVCMapParam_ frame;
        const bool has = id >= 0 && mm->getVCParam(id, vc);
        if (hasCamera)
            *hasCamera = has;
        if (!has || !calVCFrame(id, vc, kvoVCFrameModel, frame))
            return HUGE_VAL;
        const KvoVCProjector projector(frame);
        ref_ptr<IKvoModel> model;
        mm->getBareModel(model);
        double worst = 0;
        long n = 0;
        for (long i = 0; i < model->getVertexCount(); i += 5) {
            const XPnt3f& v = model->getVertices()->getAt(i);
            const XPnt3d X(v.x, v.y, v.z);
            XPnt2d want;
            if (!cam.project(X, want) || want.x < 0 || want.y < 0 || want.x > 1024 || want.y > 768)
                continue;
            const XPnt2d uv = projector.uv(X);
            worst = std::max(worst, std::hypot(uv.x * 1024 - want.x, (1 - uv.y) * 768 - want.y));
            ++n;
        }
        return n > 100 ? worst : HUGE_VAL;
    }

    QString project;

private:
    int m_count = 0;
};

} // namespace

TEST_F(CliCameras, EachFormatGivesThePhotographsTheirTrueCamerasAndIsSaved)
{
    const std::vector<TrueCamera> truth = trueCameras();
    ASSERT_EQ(truth.size(), 8u);
    const QList<QStringList> sources = {
        {"--colmap", kSample + "/cameras/colmap"},
        {"--bundler", kSample + "/cameras/bundler/bundle.out", "--list", kSample + "/cameras/bundler/list.txt"},
        {"--matrices", kSample + "/cameras/matrices"},
    };
    for (const QStringList& source : sources) {
        SCOPED_TRACE(source.join(' ').toStdString());
        makeProject();
        const CliRun r = cli(QStringList{"import-cameras", project} + source);
        ASSERT_EQ(r.code, 0) << r.err.toStdString();
        EXPECT_TRUE(r.out.startsWith("Cameras read: 8 (")) << r.out.toStdString();
        EXPECT_TRUE(r.out.contains("Photographs given their cameras (8):")) << r.out.toStdString();
        EXPECT_TRUE(r.out.contains("photo_05.jpg (image 5): virtual camera")) << r.out.toStdString();
        EXPECT_FALSE(r.out.contains("Left out")) << r.out.toStdString();
        ASSERT_EQ(getMM()->openProject(project), kvoOk);
        for (const TrueCamera& cam : truth)
            EXPECT_LT(worstMiss(cam), 0.5) << cam.name.toStdString();
        getMM()->closeProject();
    }
}

TEST_F(CliCameras, BadInputIsListedSkippedAndTheRestSaved)
{
    const std::vector<TrueCamera> truth = trueCameras();
    makeProject();
    // The sample's COLMAP model with the first photograph's camera made unusable
    // and a camera for a photograph the project does not hold.
    QFile in(kSample + "/cameras/colmap/cameras.txt");
    ASSERT_TRUE(in.open(QIODevice::ReadOnly));
    QString cameras = QString::fromUtf8(in.readAll()).replace("\n1 PINHOLE ", "\n1 THIN_PRISM_FISHEYE ");
    QFile img(kSample + "/cameras/colmap/images.txt");
    ASSERT_TRUE(img.open(QIODevice::ReadOnly));
    QString images = QString::fromUtf8(img.readAll()).replace(" photo_08.jpg", " elsewhere.jpg");
    const QString bad = scratch.file("bad");
    QDir().mkpath(bad);
    for (auto [name, text] :
         {std::make_pair(QString("cameras.txt"), cameras), std::make_pair(QString("images.txt"), images)}) {
        QFile f(bad + "/" + name);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(text.toUtf8());
    }
    const CliRun r = cli({"import-cameras", project, "--colmap", bad});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("Photographs given their cameras (6):")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("Left out (3):")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("photo_01.jpg (image 1): unknown camera model: camera 1 has the model "
                               "THIN_PRISM_FISHEYE"))
        << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("elsewhere.jpg: no such photograph in the project")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("photo_08.jpg (image 8): no camera")) << r.out.toStdString();
    ASSERT_EQ(getMM()->openProject(project), kvoOk);
    bool has = true;
    worstMiss(truth[0], &has);
    EXPECT_FALSE(has) << "photo_01 is left without a camera, as it was";
    worstMiss(truth[7], &has);
    EXPECT_FALSE(has);
    for (int i = 1; i < 7; ++i)
        EXPECT_LT(worstMiss(truth[size_t(i)]), 0.5) << truth[size_t(i)].name.toStdString();
    getMM()->closeProject();

    // Nothing usable: exit 1 and the project file is not written.
    const QByteArray before = hashOf(project);
    const QString none = scratch.file("none");
    QDir().mkpath(none);
    for (const char* name : {"cameras.txt", "images.txt"}) {
        QFile f(none + "/" + name);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    }
    const CliRun empty = cli({"import-cameras", project, "--colmap", none});
    EXPECT_EQ(empty.code, 1);
    EXPECT_TRUE(empty.err.contains("no photograph of the project got a camera")) << empty.err.toStdString();
    EXPECT_TRUE(empty.out.contains("Left out (8):")) << empty.out.toStdString();
    EXPECT_EQ(hashOf(project), before);

    // Files that are not there: exit 1 with the reason.
    const CliRun missing = cli({"import-cameras", project, "--matrices", scratch.file("nowhere")});
    EXPECT_EQ(missing.code, 1);
    EXPECT_TRUE(missing.err.contains("does not exist")) << missing.err.toStdString();
    EXPECT_TRUE(missing.out.isEmpty());
    EXPECT_EQ(hashOf(project), before);
}

TEST_F(CliCameras, MisuseExitsWithTheUsage)
{
    makeProject();
    const QString colmap = kSample + "/cameras/colmap";
    const QByteArray before = hashOf(project);
    for (const QStringList& args : QList<QStringList>{
             {"import-cameras", project},
             {"import-cameras", project, "--colmap"},
             {"import-cameras", project, "--colmap", colmap, "--matrices", colmap},
             {"import-cameras", project, "--colmap", colmap, "--colmap", colmap},
             {"import-cameras", project, "--bundler", kSample + "/cameras/bundler/bundle.out"},
             {"import-cameras", project, "--list", kSample + "/cameras/bundler/list.txt"},
             {"import-cameras", project, "--colmap", colmap, "--list", kSample + "/cameras/bundler/list.txt"},
             {"import-cameras", project, "--photos", colmap},
         }) {
        const CliRun r = cli(args);
        EXPECT_EQ(r.code, 2) << args.join(' ').toStdString();
        EXPECT_TRUE(r.err.contains("usage: quovara-cli import-cameras PROJECT.qvj --colmap DIR | --bundler FILE "
                                   "--list FILE | --matrices DIR"))
            << r.err.toStdString();
    }
    EXPECT_EQ(hashOf(project), before);
    const CliRun help = cli({"import-cameras", "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_TRUE(help.out.startsWith("Usage: quovara-cli import-cameras")) << help.out.toStdString();
    EXPECT_TRUE(cli({"--help"}).out.contains("  import-cameras "));
    const CliRun noProject = cli({"import-cameras", scratch.file("nope.qvj"), "--colmap", colmap});
    EXPECT_EQ(noProject.code, 1);
}

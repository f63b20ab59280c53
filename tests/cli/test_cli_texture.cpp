// quovara-cli texture on the bundled sample: the whole job from files, its
// summary, and the answers to misuse and to existing output.

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include "CliRun.h"
#include "SampleQuality.h"
#include "support/TestSupport.h"

namespace {

const QString kSample = QUOVARA_SOURCE_DIR "/samples/building";

using qvtest::cli;
using qvtest::CliRun;

class CliTexture : public qvtest::StoreTest {};

} // namespace

TEST_F(CliTexture, TheWholeJobFromFilesWithTheFormatToldByThePath)
{
    const QString out = scratch.file("job/building.obj");
    const QStringList args = {"texture",
                              "--mesh",
                              kSample + "/model.obj",
                              "--photos",
                              kSample + "/photos",
                              "--cameras",
                              kSample + "/cameras/bundler",
                              "--out",
                              out,
                              "--atlas",
                              "1024"};
    CliRun r = cli(args);
    ASSERT_EQ(r.code, 0) << r.err.toStdString() << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("Textured model: " + out)) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("Photographs: 8 found, 8 added, 8 with a camera, 8 used")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains(QRegularExpression("Faces: 19800, textured \\d+"))) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains(QRegularExpression("Time: mesh [0-9.]+ s, photographs"))) << r.out.toStdString();
    EXPECT_FALSE(r.out.contains("Passed over")) << r.out.toStdString();
    EXPECT_TRUE(QFileInfo(scratch.file("job/building.qvj")).isFile());
    EXPECT_TRUE(QFileInfo(scratch.file("job/building_0.jpg")).isFile());

    // Again: the output is there, and stays as it was.
    const QByteArray before = [&] {
        QFile f(out);
        f.open(QIODevice::ReadOnly);
        return f.readAll();
    }();
    r = cli(args);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains("already exists")) << r.err.toStdString();
    QFile f(out);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll(), before);
    f.close();
    r = cli(args + QStringList{"--force"});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
}

TEST_F(CliTexture, MisuseSaysHow)
{
    const QString mesh = kSample + "/model.obj", photos = kSample + "/photos";
    const CliRun noOut = cli({"texture", "--mesh", mesh, "--photos", photos, "--cameras", kSample + "/cameras/colmap"});
    EXPECT_EQ(noOut.code, 2);
    EXPECT_TRUE(noOut.err.contains("--mesh, --photos and --out are needed")) << noOut.err.toStdString();
    const CliRun twice = cli({"texture", "--mesh", mesh, "--photos", photos, "--colmap", kSample + "/cameras/colmap",
                              "--matrices", kSample + "/cameras/matrices", "--out", scratch.file("x.obj")});
    EXPECT_EQ(twice.code, 2);
    const CliRun noCameras = cli({"texture", "--mesh", mesh, "--photos", photos, "--cameras", kSample + "/photos",
                                  "--out", scratch.file("x.obj")});
    EXPECT_EQ(noCameras.code, 1);
    EXPECT_TRUE(noCameras.err.contains("holds no cameras")) << noCameras.err.toStdString();
    const CliRun notObj = cli({"texture", "--mesh", mesh, "--photos", photos, "--cameras", kSample + "/cameras/colmap",
                               "--out", scratch.file("x.ply")});
    EXPECT_EQ(notObj.code, 1);
    EXPECT_TRUE(notObj.err.contains("must be an .obj file")) << notObj.err.toStdString();
    EXPECT_FALSE(QFileInfo::exists(scratch.file("x.qvj")));
}

// The colour stage, on by default, against the job without it: the seam step
// falls by more than 60 %, and the model re-rendered through the photographs
// matches them better.
TEST_F(CliTexture, TheColourStageBringsTheTextureCloserToThePhotographs)
{
    auto run = [&](const QString& name, const QStringList& extra, qvsample::QualityReport& q) {
        const QString out = scratch.file(name + "/building.obj");
        const CliRun r = cli(QStringList{"texture", "--mesh", kSample + "/model.obj", "--photos", kSample + "/photos",
                                         "--colmap", kSample + "/cameras/colmap", "--out", out, "--atlas", "2048"} +
                             extra);
        EXPECT_EQ(r.code, 0) << r.err.toStdString() << r.out.toStdString();
        QString why;
        EXPECT_TRUE(qvsample::measureQuality(kSample, out, q, why)) << why.toStdString();
        return r.out;
    };
    qvsample::QualityReport plain, balanced;
    const QString plainOut = run("plain", {"--colour", "none"}, plain);
    EXPECT_FALSE(plainOut.contains("Seam colour step")) << plainOut.toStdString();
    EXPECT_FALSE(plainOut.contains("colour ")) << plainOut.toStdString();
    const QString out = run("balanced", {}, balanced);
    const QRegularExpressionMatch m =
        QRegularExpression("Seam colour step: ([0-9.]+) grey levels before the colour balance, ([0-9.]+) after")
            .match(out);
    ASSERT_TRUE(m.hasMatch()) << out.toStdString();
    EXPECT_LT(m.captured(2).toDouble(), 0.4 * m.captured(1).toDouble()) << out.toStdString();
    EXPECT_TRUE(out.contains(QRegularExpression("seamless [0-9.]+ s, colour [0-9.]+ s, export"))) << out.toStdString();
    EXPECT_GT(balanced.photoPsnrMean, plain.photoPsnrMean + 1.0);
    EXPECT_GE(balanced.photoPsnrMean, 28.5);

    EXPECT_EQ(cli({"texture", "--mesh", kSample + "/model.obj", "--photos", kSample + "/photos", "--colmap",
                   kSample + "/cameras/colmap", "--out", scratch.file("x.obj"), "--colour", "local"})
                  .code,
              2);
}

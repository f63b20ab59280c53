#include <QProcess>

#include "support/TestSupport.h"

namespace {

struct CliRun {
    int code;
    QString out;
    QString err;
};

CliRun cli(const QStringList& args)
{
    QProcess p;
    p.start(QUOVARA_CLI_PATH, args);
    p.waitForFinished(120000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

} // namespace

TEST(Cli, DemoBuildsSavesReopensAndPrintsTheSampleProject)
{
    qvtest::ScratchDir dir;
    CliRun r = cli({"demo", "--out", dir.path()});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("Reopening")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("Images: 2, active 1")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("Texture mesh 4 \"photo_2.jpg\" of image 2, tiled: 3200 triangles"));
    // What the demo printed after reopening is what the saved file holds.
    CliRun info = cli({"info", dir.file("sample.qvj")});
    ASSERT_EQ(info.code, 0) << info.err.toStdString();
    EXPECT_TRUE(r.out.endsWith(info.out)) << info.out.toStdString();
}

TEST(Cli, NewAndAddImageReportBadInput)
{
    qvtest::ScratchDir dir;
    ASSERT_TRUE(qvtest::writeTestPicture(dir.file("a.png"), 30, 20));
    ASSERT_EQ(cli({"new", dir.file("p.qvj")}).code, 0);
    EXPECT_EQ(cli({"new", dir.file("p.qvj")}).code, 1) << "an existing project is not replaced";
    CliRun add = cli({"add-image", dir.file("p.qvj"), dir.file("a.png"), dir.file("missing.png")});
    EXPECT_EQ(add.code, 1);
    EXPECT_TRUE(add.out.contains("as image 1"));
    EXPECT_TRUE(add.err.contains("missing.png"));
    CliRun info = cli({"info", dir.file("p.qvj")});
    EXPECT_TRUE(info.out.contains("Images: 1")) << info.out.toStdString();
    CliRun bad = cli({"info", dir.file("nope.qvj")});
    EXPECT_EQ(bad.code, 1);
    EXPECT_TRUE(bad.err.contains("does not exist")) << bad.err.toStdString();
    EXPECT_EQ(cli({"frobnicate"}).code, 2);
}

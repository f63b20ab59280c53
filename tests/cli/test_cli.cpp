#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include "CliRun.h"
#include "support/TestSupport.h"

namespace {

using qvtest::cli;
using qvtest::CliRun;

} // namespace

TEST(Cli, SampleProjectBuildsSavesReopensAndPrintsTheSampleProject)
{
    qvtest::ScratchDir dir;
    CliRun r = cli({"sample-project", "--out", dir.path()});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("Reopening")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("Mapped 8 photographs through their cameras.")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("Images: 8, active 1")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("Bare mesh 2 \"facade_south\": ")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("\"photo_08.jpg\": 1024x768, normal, mapping type 1")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("control points 12 ")) << "the sample's control points";
    // What the demo printed after reopening is what the saved file holds.
    CliRun info = cli({"info", dir.file("sample.qvj")});
    ASSERT_EQ(info.code, 0) << info.err.toStdString();
    EXPECT_TRUE(r.out.endsWith(info.out)) << info.out.toStdString();
}

// The README's main command: the whole job on the bundled sample, and how
// good the result is against the scene's known answer.
TEST(Cli, DemoTexturesTheSampleAndReportsItsQuality)
{
    qvtest::ScratchDir dir;
    const CliRun r = cli({"demo", "--out", dir.path()});
    ASSERT_EQ(r.code, 0) << r.err.toStdString() << r.out.toStdString();
    EXPECT_TRUE(QFile::exists(dir.file("textured/sample.obj")));
    EXPECT_TRUE(QFile::exists(dir.file("sample.qvj")));
    EXPECT_TRUE(r.out.contains("Photographs: 8 found, 8 added, 8 with a camera, 8 used")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("of the faces some photograph sees whole: 100.0 %")) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains("To look at it in the desktop application: ")) << r.out.toStdString();
    // Floors a little under what the sample gives (mean 27.3 dB against the
    // photographs, 21.2 dB against the ground truth over textured faces).
    const QRegularExpression mean("mean ([0-9.]+) dB, lowest ([0-9.]+) dB \\(ground-truth model");
    const QRegularExpressionMatch m = mean.match(r.out);
    ASSERT_TRUE(m.hasMatch()) << r.out.toStdString();
    EXPECT_GT(m.captured(1).toDouble(), 26.0);
    EXPECT_GT(m.captured(2).toDouble(), 25.0);
    const QRegularExpressionMatch t = QRegularExpression("; ([0-9.]+) dB over the \\d+ textured faces").match(r.out);
    ASSERT_TRUE(t.hasMatch()) << r.out.toStdString();
    EXPECT_GT(t.captured(1).toDouble(), 20.0);
    // The project it names opens.
    const CliRun info = cli({"info", dir.file("sample.qvj")});
    EXPECT_EQ(info.code, 0) << info.err.toStdString();
    EXPECT_TRUE(info.out.contains("Images: 8")) << info.out.toStdString();
}

TEST(Cli, NewAndAddImageReportBadInput)
{
    qvtest::ScratchDir dir;
    ASSERT_TRUE(qvtest::writeTestPicture(dir.file("a.png"), 30, 20));
    ASSERT_EQ(cli({"new", dir.file("p.qvj")}).code, 0);
    EXPECT_EQ(cli({"new", dir.file("p.qvj")}).code, 1) << "an existing project is not replaced";
    CliRun add = cli({"add-images", dir.file("p.qvj"), dir.file("a.png"), dir.file("missing.png")});
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

TEST(Cli, EverySubcommandAnswersHelpAndMisuseWithUsage)
{
    CliRun list = cli({"--help"});
    ASSERT_EQ(list.code, 0);
    for (const char* name : {"new", "open", "info", "add-images", "demo", "sample-project", "texture"}) {
        EXPECT_TRUE(list.out.contains(QString("  %1 ").arg(name))) << name;
        CliRun help = cli({name, "--help"});
        EXPECT_EQ(help.code, 0) << name;
        EXPECT_TRUE(help.out.startsWith(QString("Usage: quovara-cli %1").arg(name))) << help.out.toStdString();
        EXPECT_TRUE(help.err.isEmpty());
    }
    // Too few arguments: exit 2 with the usage as the one-line reason.
    CliRun misuse = cli({"add-images", "only-a-project.qvj"});
    EXPECT_EQ(misuse.code, 2);
    EXPECT_EQ(misuse.err.trimmed(), "quovara-cli: usage: quovara-cli add-images PROJECT.qvj IMAGE...");
    EXPECT_EQ(cli({}).code, 2);
}

TEST(Cli, OpenIsInfoAndTheOldAddImageSpellingStillWorks)
{
    qvtest::ScratchDir dir;
    ASSERT_TRUE(qvtest::writeTestPicture(dir.file("a.png"), 30, 20));
    ASSERT_TRUE(qvtest::writeTestPicture(dir.file("b.jpg"), 40, 24));
    ASSERT_EQ(cli({"new", dir.file("p.qvj")}).code, 0);
    ASSERT_EQ(cli({"add-image", dir.file("p.qvj"), dir.file("a.png")}).code, 0);
    ASSERT_EQ(cli({"add-images", dir.file("p.qvj"), dir.file("b.jpg")}).code, 0);
    CliRun open = cli({"open", dir.file("p.qvj")});
    ASSERT_EQ(open.code, 0) << open.err.toStdString();
    EXPECT_EQ(open.out, cli({"info", dir.file("p.qvj")}).out);
    EXPECT_TRUE(open.out.contains("Images: 2")) << open.out.toStdString();
    EXPECT_TRUE(open.out.contains("\"b.jpg\": 40x24")) << open.out.toStdString();
}

TEST(Cli, AnUndecodableImageLeavesTheProjectAsItWas)
{
    qvtest::ScratchDir dir;
    ASSERT_TRUE(qvtest::writeTestPicture(dir.file("a.png"), 30, 20));
    {
        QFile junk(dir.file("junk.jpg"));
        ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
        junk.write("this is not a picture");
    }
    ASSERT_EQ(cli({"new", dir.file("p.qvj")}).code, 0);
    ASSERT_EQ(cli({"add-images", dir.file("p.qvj"), dir.file("a.png")}).code, 0);
    const QString before = cli({"info", dir.file("p.qvj")}).out;
    CliRun add = cli({"add-images", dir.file("p.qvj"), dir.file("junk.jpg")});
    EXPECT_EQ(add.code, 1);
    EXPECT_TRUE(add.err.contains("junk.jpg: not added (not a readable image)")) << add.err.toStdString();
    EXPECT_EQ(cli({"info", dir.file("p.qvj")}).out, before);
}

// Under a terminal the long steps draw a bar on stderr; piped output stays clean.
TEST(Cli, ProgressBarOnlyOnATerminal)
{
    if (QStandardPaths::findExecutable("script").isEmpty())
        GTEST_SKIP() << "no script(1) to provide a terminal";
    qvtest::ScratchDir dir;
    CliRun piped = cli({"sample-project", "--out", dir.file("piped")});
    ASSERT_EQ(piped.code, 0);
    EXPECT_FALSE(piped.err.contains("[#")) << piped.err.toStdString();
    QProcess p;
    const QString command = QString("'%1' sample-project --out '%2'").arg(QUOVARA_CLI_PATH, dir.file("tty"));
    p.start("script", {"-qec", command, "/dev/null"});
    ASSERT_TRUE(p.waitForFinished(120000));
    EXPECT_EQ(p.exitCode(), 0);
    const QString all = QString::fromUtf8(p.readAllStandardOutput());
    EXPECT_TRUE(all.contains("100.0%")) << all.toStdString();
    EXPECT_TRUE(all.contains("Images: 8"));
}

TEST(Cli, MapVcMapsAnImageThroughAVirtualCamera)
{
    qvtest::ScratchDir dir;
    ASSERT_EQ(cli({"sample-project", "--out", dir.path()}).code, 0);
    const QString project = dir.file("sample.qvj");
    CliRun map = cli({"map-vc", project, "photo_02.jpg", "--eye", "0,-30,10", "--center", "0,0,4", "--fov", "35"});
    ASSERT_EQ(map.code, 0) << map.err.toStdString();
    EXPECT_TRUE(map.out.startsWith("Mapped image 2: ")) << map.out.toStdString();
    const QString info = cli({"info", project}).out;
    EXPECT_TRUE(info.contains("\"photo_02.jpg\": 1024x768, normal, mapping type 1")) << info.toStdString();
    // Bad input: a missing image, a camera without direction, a malformed point.
    EXPECT_EQ(cli({"map-vc", project, "nope.jpg", "--eye", "0,-30,10", "--center", "0,0,4"}).code, 1);
    CliRun flat = cli({"map-vc", project, "2", "--eye", "0,0,4", "--center", "0,0,4"});
    EXPECT_EQ(flat.code, 1);
    EXPECT_TRUE(flat.err.contains("no direction")) << flat.err.toStdString();
    EXPECT_EQ(cli({"map-vc", project, "2", "--eye", "0,-30", "--center", "0,0,4"}).code, 2);
}

TEST(Cli, PlanesAreAddedListedActivatedAndKeptInTheProject)
{
    qvtest::ScratchDir dir;
    ASSERT_EQ(cli({"sample-project", "--out", dir.path()}).code, 0);
    const QString project = dir.file("sample.qvj");
    CliRun add = cli({"plane", "add", project, "--points", "-5,-3,1;5,-3,1;0,-3,7"});
    ASSERT_EQ(add.code, 0) << add.err.toStdString();
    EXPECT_TRUE(add.out.startsWith("* 1\tPlane1\tvisible 1\t0,-1,0,-3\tTotal: 4 (")) << add.out.toStdString();
    // Degenerate input makes no plane and says why; the project keeps what it had.
    CliRun same = cli({"plane", "add", project, "--points", "0,0,0;0,0,0;1,1,1"});
    EXPECT_EQ(same.code, 1);
    EXPECT_TRUE(same.err.contains("no plane")) << same.err.toStdString();
    EXPECT_EQ(cli({"plane", "add", project, "--points", "0,0,0;1,1"}).code, 2);
    ASSERT_EQ(cli({"plane", "add", project, "--points", "0,0,0", "--normal", "0,0,1"}).code, 0);
    CliRun list = cli({"plane", "list", project});
    ASSERT_EQ(list.code, 0);
    EXPECT_TRUE(list.out.startsWith("Planes: 2, active 2\n")) << list.out.toStdString();
    EXPECT_TRUE(
        list.out.contains("* 2\tPlane2\tvisible 1\t0,0,1,0\tTotal: 4 (20,20,0),(-20,20,0),(-20,-20,0),(20,-20,0)"))
        << list.out.toStdString();
    ASSERT_EQ(cli({"plane", "activate", project, "1"}).code, 0);
    EXPECT_EQ(cli({"plane", "activate", project, "7"}).code, 1);
    ASSERT_EQ(cli({"plane", "delete", project, "2"}).code, 0);
    add = cli({"plane", "add", project, "--points", "0,0,0", "--normal", "0,1,0"});
    EXPECT_TRUE(add.out.startsWith("* 3\tPlane3")) << "ids are never reused: " << add.out.toStdString();
    EXPECT_TRUE(cli({"plane", "list", project}).out.startsWith("Planes: 2, active 3"));
}

// The user's road, headless: a project, the model from OBJ, photographs,
// and a mapping from the control-point file of each.
TEST(Cli, ImportAddAndMapFromControlPointFiles)
{
    qvtest::ScratchDir dir;
    const QString sample = QString(QUOVARA_SOURCE_DIR) + "/samples/building";
    const QString project = dir.file("p.qvj");
    ASSERT_EQ(cli({"new", project}).code, 0);
    CliRun imported = cli({"import-obj", project, sample + "/model.obj"});
    ASSERT_EQ(imported.code, 0) << imported.err.toStdString();
    ASSERT_EQ(cli({"add-images", project, sample + "/photos/photo_01.jpg", sample + "/photos/photo_02.jpg"}).code, 0);
    CliRun dlt = cli({"map", project, "photo_01.jpg", "--control-points", sample + "/control_points/photo_01.txt"});
    ASSERT_EQ(dlt.code, 0) << dlt.err.toStdString();
    EXPECT_TRUE(dlt.out.startsWith("Mapped image 1 (dlt): ")) << dlt.out.toStdString();
    EXPECT_GT(dlt.out.section(": ", 1).section(' ', 0, 0).toInt(), 5000);
    const QString info = cli({"info", project}).out;
    EXPECT_TRUE(info.contains("\"photo_01.jpg\": 1024x768, normal, mapping type 0")) << info.toStdString();
    EXPECT_TRUE(info.contains("control points 12 ")) << info.toStdString();
    // Too few points for any mapping: the reason, and nothing mapped.
    qvtest::ScratchDir other;
    {
        QFile f(other.file("two.txt"));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("    U          V          X           Y            Z   \n0.1 0.2 1 2 3\n0.5 0.5 2 2 2\n");
    }
    CliRun few = cli({"map", project, "2", "--control-points", other.file("two.txt"), "--type", "plane"});
    EXPECT_EQ(few.code, 1);
    EXPECT_FALSE(few.err.isEmpty());
    EXPECT_FALSE(cli({"info", project}).out.contains("of image 2")) << "no texture mesh for image 2";
}

TEST(Cli, ExportWritesTheTexturedModelAndKeepsExistingFiles)
{
    qvtest::ScratchDir dir;
    ASSERT_EQ(cli({"sample-project", "--out", dir.path()}).code, 0);
    const QString project = dir.file("sample.qvj");
    CliRun r = cli({"export", project, dir.file("model.obj")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains("Groups: 8")) << r.out.toStdString();
    EXPECT_TRUE(QFile::exists(dir.file("model.mtl")));
    EXPECT_TRUE(QFile::exists(dir.file("model_Texture/model_photo_01.jpg0.jpg")));
    CliRun again = cli({"export", project, dir.file("model.obj")});
    EXPECT_EQ(again.code, 1);
    EXPECT_TRUE(again.err.contains("--force")) << again.err.toStdString();
    EXPECT_EQ(cli({"export", project, dir.file("model.obj"), "--force", "--swap-yz", "--move-to-origin"}).code, 0);
    QFile obj(dir.file("model.obj"));
    ASSERT_TRUE(obj.open(QIODevice::ReadOnly));
    EXPECT_TRUE(obj.readAll().startsWith("# Generate by Quovara Software.\nmtllib model.mtl\n"));
    EXPECT_EQ(cli({"export", project, dir.file("other.obj"), "--single", "--swap-yz"}).code, 2);
    EXPECT_EQ(cli({"export", project, dir.file("other.txt")}).code, 2);
    EXPECT_EQ(cli({"export", project, dir.file("nowhere/other.obj")}).code, 1);

    // The whole model as one mesh on atlas sheets.
    CliRun single = cli({"export", project, dir.file("one.obj"), "--single", "--atlas", "1024"});
    ASSERT_EQ(single.code, 0) << single.err.toStdString();
    EXPECT_TRUE(QFile::exists(dir.file("one_0.jpg")));
    QImage sheet(dir.file("one_0.jpg"));
    EXPECT_EQ(sheet.size(), QSize(1024, 1024));
    QFile mtl(dir.file("one.mtl"));
    ASSERT_TRUE(mtl.open(QIODevice::ReadOnly));
    EXPECT_TRUE(mtl.readAll().contains("map_Kd one_0.jpg"));
}

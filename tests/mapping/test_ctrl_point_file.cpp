#include <QFile>

#include "mapping/KvoCtrlPointFile.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

class CtrlPointFile : public qvtest::ViewerTest {
protected:
    void SetUp() override
    {
        ViewerTest::SetUp();
        newProject();
        ASSERT_TRUE(qvtest::writeTestPicture(scratch.file("a.png"), 40, 30));
        ref_ptr<IKvoProject> project;
        getMM()->getProject(project)->getImageDb(db);
        ASSERT_EQ(db->addImage(scratch.file("a.png"), id), kvoOk);
        db->getImageInfo(info, id);
    }
    void write(const QString& name, const QByteArray& bytes)
    {
        QFile f(scratch.file(name));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    long id = -1;
};

} // namespace

TEST_F(CtrlPointFile, ExportThenImportGivesThePointsBack)
{
    QString message;
    EXPECT_EQ(exportCtrlPointFile(id, scratch.file("none.txt"), message), -1);
    EXPECT_EQ(message, "There is no control points!");
    info->addCtrlImagePnt(XPnt2d(0.25, 0.75));
    info->addCtrlWorldPnt(XPnt3d(1.5, -2.25, 3.125));
    info->addCtrlImagePnt(XPnt2d(1, 0));
    info->addCtrlWorldPnt(XPnt3d(-100000.5, 2e5, 0.000001));
    ASSERT_EQ(exportCtrlPointFile(id, scratch.file("cp.txt"), message), 0);
    EXPECT_EQ(message, "Succeed to export 2 control points!");
    QFile f(scratch.file("cp.txt"));
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    const QByteArray text = f.readAll();
    EXPECT_TRUE(text.startsWith("    U          V          X           Y            Z   \n"
                                "0.250000   0.750000   1.500000   -2.250000   3.125000\n"));
    ASSERT_EQ(importCtrlPointFile(id, scratch.file("cp.txt"), message), 0);
    EXPECT_EQ(message, "Succeed to add 2 control points!");
    ASSERT_EQ(info->getCtrlPntCount(), 4);
    XPnt3d w;
    info->getCtrlWorldPnt(w, 3);
    EXPECT_EQ(w.x, -100000.5);
    EXPECT_EQ(exportCtrlPointFile(id, scratch.file("no/such/folder/cp.txt"), message), -1);
    EXPECT_EQ(message, "Cannot open file!");
    EXPECT_EQ(exportCtrlPointFile(id + 50, scratch.file("x.txt"), message), -1);
    EXPECT_EQ(message, "Please active a mesh!");
}

TEST_F(CtrlPointFile, FilesFromOtherSystemsAndBadLines)
{
    write("win.txt", "U V X Y Z\r\n0.1\t0.2\t1\t2\t3\r\n0.3,0.4,4,5,6\r\n0.5, 0.6 ,7, 8 ,9\r\n"
                     "0.7 0.8 1 2\r\n1.2 0.5 1 1 1\r\n0.5 -0.1 1 1 1\r\n0.9 0.9 1 1 1 1\r\n\r\n");
    QString message;
    long skipped = 0;
    ASSERT_EQ(importCtrlPointFile(id, scratch.file("win.txt"), message, &skipped), 0);
    EXPECT_EQ(info->getCtrlPntCount(), 3);
    EXPECT_EQ(skipped, 4);
    EXPECT_EQ(message, "Succeed to add 3 control points!\n4 lines were skipped: not five numbers, or U or V outside "
                       "0 to 1.");
    XPnt2d uv;
    info->getCtrlImagePnt(uv, 2);
    EXPECT_EQ(uv, XPnt2d(0.5, 0.6));
    // No header: the first data line is taken for it.
    write("bare.txt", "0.1 0.2 1 2 3\n0.3 0.4 4 5 6\n");
    ASSERT_EQ(importCtrlPointFile(id, scratch.file("bare.txt"), message), 0);
    EXPECT_EQ(message, "Succeed to add 1 control points!");

    // Through the dialogs: the file dialog's answer, the messages shown.
    presenter->fileAnswers = QStringList{scratch.file("bare.txt")};
    EXPECT_EQ(importCtrlPointsQt(id), 0);
    EXPECT_EQ(presenter->lastText(), "Succeed to add 1 control points!");
    presenter->fileAnswers = QStringList{scratch.file("out.txt")};
    EXPECT_EQ(exportCtrlPointsQt(id), 0);
    EXPECT_EQ(presenter->lastText(), "Succeed to export 5 control points!");
    EXPECT_EQ(importCtrlPointsQt(id + 9), -1);
    EXPECT_EQ(presenter->lastTitle(), "Import Control Points");
}

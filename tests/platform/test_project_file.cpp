#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/KvoModelManImpl.h"
#include "platform/KvoProjectReport.h"
#include "platform/KvoSampleScene.h"
#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

class ProjectFileTest : public qvtest::StoreTest {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        path = scratch.file("sample.qvj");
        QString error;
        ASSERT_EQ(buildSampleProject(path, scratch.file("photos"), error), kvoOk) << error.toStdString();
        saved = describeProject(*getMM());
    }
    QString path;
    QString saved;
};

QByteArray bytesOf(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

} // namespace

TEST_F(ProjectFileTest, SaveAndReopenKeepEverything)
{
    EXPECT_FALSE(getMM()->isDirty());
    getMM()->closeProject();
    EXPECT_EQ(describeProject(*getMM()), "No project is open.");
    ASSERT_EQ(getMM()->openProject(path), kvoOk) << getMM()->getLastError().toStdString();
    EXPECT_EQ(describeProject(*getMM()), saved);
    // A second round trip of a reopened project changes nothing either.
    ASSERT_EQ(getMM()->saveProject(), kvoOk);
    getMM()->closeProject();
    ASSERT_EQ(getMM()->openProject(path), kvoOk);
    EXPECT_EQ(describeProject(*getMM()), saved);
}

TEST_F(ProjectFileTest, EditedMeshPixelsAndRecordsAreSaved)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoMesh> tex;
    mm->getTexMeshOfImage(tex, 1);
    ref_ptr<IKvoImage> img;
    tex->getImage(img);
    img->setPixel(5, 5, KvoColor4b(0, 255, 0, 255));
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    mm->getProject(project)->getImageDb(db);
    ref_ptr<IKvoImageInfo> info;
    db->getImageInfo(info, 2);
    POINT_POINT pp;
    pp.uv = XPnt2d(0.25, 0.75);
    pp.world = XPnt3d(1, 2, 3);
    info->addMatchPnt(pp);
    info->addMatchPnt(POINT_POINT());
    mm->wakeMesh(2, 0);
    ref_ptr<IKvoModel> model;
    mm->sleepMesh(mm->getBareModel(model)->getMesh(0), nullptr);
    ASSERT_EQ(mm->saveProject(), kvoOk);
    const QString edited = describeProject(*mm);
    mm->closeProject();
    ASSERT_EQ(mm->openProject(path), kvoOk);
    EXPECT_EQ(describeProject(*mm), edited);
    mm->getProject(project)->getImageDb(db);
    db->getImageInfo(info, 2);
    POINT_POINT back;
    ASSERT_TRUE(info->getMatchPnt(back, 1));
    EXPECT_EQ(back.flag, int32_t(0x80000001u));
    EXPECT_FALSE(back.world.isValid());
    ASSERT_TRUE(info->getMatchPnt(back, 0));
    EXPECT_EQ(back, pp);
    mm->getTexMeshOfImage(tex, 1);
    KvoColor4b c;
    tex->getImage(img)->getPixel(c, 5, 5);
    EXPECT_EQ(c.g, 255) << "an edit on a texture mesh's pixels reaches the project";
}

TEST_F(ProjectFileTest, SaveAsMakesAnIndependentCopy)
{
    const QString copy = scratch.file("moved/copy.qvj");
    QDir().mkpath(scratch.file("moved"));
    ASSERT_EQ(getMM()->saveProjectAs(copy), kvoOk) << getMM()->getLastError().toStdString();
    ref_ptr<IKvoProject> project;
    EXPECT_EQ(getMM()->getProject(project)->getFilePath(), QFileInfo(copy).absoluteFilePath());
    getMM()->closeProject();
    // The copy does not lean on the first project's folder.
    ASSERT_TRUE(QDir(CKvoProject::folderFor(path)).removeRecursively());
    ASSERT_EQ(getMM()->openProject(copy), kvoOk);
    QString report = describeProject(*getMM());
    EXPECT_EQ(report.section('\n', 1), saved.section('\n', 1)) << "all but the project's name";
}

TEST_F(ProjectFileTest, BadProjectFilesAreRefusedAndTheOpenProjectStays)
{
    IKvoMM* mm = getMM();
    const QString foreign = scratch.file("notes.qvj");
    writeBytes(foreign, "just some notes, not a project\n");
    const QString truncated = scratch.file("half.qvj");
    const QByteArray whole = bytesOf(path);
    writeBytes(truncated, whole.left(whole.size() / 2));
    const QString otherDb = scratch.file("other.qvj");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "other-app");
        db.setDatabaseName(otherDb);
        ASSERT_TRUE(db.open());
        QSqlQuery(db).exec("CREATE TABLE things(a)");
        db.close();
    }
    QSqlDatabase::removeDatabase("other-app");
    const QByteArray otherBytes = bytesOf(otherDb);

    struct Case {
        QString file;
        long code;
    } cases[] = {{scratch.file("missing.qvj"), kvoErrFileMissing},
                 {foreign, kvoErrBadFile},
                 {truncated, kvoErrBadFile},
                 {otherDb, kvoErrBadFile},
                 {scratch.path(), kvoErrFileMissing}};
    for (const Case& c : cases) {
        EXPECT_EQ(mm->openProject(c.file), c.code) << c.file.toStdString();
        EXPECT_FALSE(mm->getLastError().isEmpty());
        EXPECT_EQ(describeProject(*mm), saved) << "the open project is untouched after " << c.file.toStdString();
    }
    EXPECT_EQ(bytesOf(foreign), QByteArray("just some notes, not a project\n"));
    EXPECT_EQ(bytesOf(otherDb), otherBytes) << "a foreign database is never written";
    EXPECT_NE(mm->newProject(path), kvoOk) << "an existing file is not overwritten";
    EXPECT_EQ(describeProject(*mm), saved);
}

TEST_F(ProjectFileTest, ProjectsFromANewerVersionAreRefused)
{
    getMM()->closeProject();
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "bump");
        db.setDatabaseName(path);
        ASSERT_TRUE(db.open());
        ASSERT_TRUE(QSqlQuery(db).exec("UPDATE meta SET value = 99 WHERE key = 'format'"));
        db.close();
    }
    QSqlDatabase::removeDatabase("bump");
    EXPECT_EQ(getMM()->openProject(path), kvoErrTooNew);
    EXPECT_TRUE(getMM()->getLastError().contains("newer"));
}

TEST_F(ProjectFileTest, ASaveKilledHalfwayLeavesTheLastSavedProject)
{
    // A child process edits the project and dies in the middle of saving it.
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(ready[0]);
        IKvoMM* mm = getMM();
        ref_ptr<IKvoModel> model;
        mm->getBareModel(model);
        mm->deleteBareMesh(model->getMesh(0));
        (*model->getVertices())[0] = XPnt3f(1000, 1000, 1000);
        mm->setProjectBlob("ZebTaskSeamless", "Options", "changed", 7);
        projectfile::setSaveInterruptHook([&] {
            const char byte = 1;
            if (write(ready[1], &byte, 1) != 1)
                _exit(3);
            for (;;)
                pause();
        });
        mm->saveProject();
        _exit(2); // the hook never returns
    }
    close(ready[1]);
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1) << "the child reached the middle of its save";
    close(ready[0]);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));

    getMM()->closeProject();
    ASSERT_EQ(getMM()->openProject(path), kvoOk) << getMM()->getLastError().toStdString();
    EXPECT_EQ(describeProject(*getMM()), saved);
}

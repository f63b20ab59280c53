#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "scene/KvoFile.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

// Sets an environment variable for one scope and puts the old value back.
class EnvOverride {
public:
    EnvOverride(const char* name, const QByteArray& value)
        : m_name(name), m_had(qEnvironmentVariableIsSet(name)), m_old(qgetenv(name))
    {
        if (value.isNull())
            qunsetenv(name);
        else
            qputenv(name, value);
    }
    ~EnvOverride()
    {
        if (m_had)
            qputenv(m_name, m_old);
        else
            qunsetenv(m_name);
    }

private:
    const char* m_name;
    bool m_had;
    QByteArray m_old;
};

TEST(KvoWorkFolder, HonoursTheEnvironmentAndMakesTheFolder)
{
    QTemporaryDir tmp;
    ASSERT_TRUE(tmp.isValid());
    QString wanted = tmp.path() + "/nested/work";
    ASSERT_FALSE(QFileInfo::exists(wanted));

    EnvOverride env("QUOVARA_WORK_DIR", wanted.toUtf8());
    QString got = getWorkFolder();
    EXPECT_EQ(got, QDir(wanted).absolutePath());
    EXPECT_TRUE(QFileInfo(got).isDir());
    EXPECT_TRUE(QDir::isAbsolutePath(got));
    EXPECT_FALSE(got.contains('\\'));

    // Made again when something removed it in between.
    ASSERT_TRUE(QDir(got).removeRecursively());
    EXPECT_EQ(getWorkFolder(), got);
    EXPECT_TRUE(QFileInfo(got).isDir());
}

TEST(KvoWorkFolder, RelativeSettingBecomesAbsolute)
{
    QTemporaryDir tmp;
    ASSERT_TRUE(tmp.isValid());
    QString oldCwd = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(tmp.path()));
    {
        EnvOverride env("QUOVARA_WORK_DIR", "rel/dir");
        QString got = getWorkFolder();
        EXPECT_EQ(got, QDir::current().absoluteFilePath("rel/dir"));
        EXPECT_TRUE(QFileInfo(got).isDir());
    }
    QDir::setCurrent(oldCwd);
}

TEST(KvoWorkFolder, FallsBackToTheTemporaryFolder)
{
    QTemporaryDir tmp;
    ASSERT_TRUE(tmp.isValid());
    // Point the system temporary folder somewhere disposable first.
    EnvOverride tmpdir("TMPDIR", tmp.path().toUtf8());
    for (const QByteArray& unsetValue : {QByteArray(), QByteArray("")}) {
        EnvOverride env("QUOVARA_WORK_DIR", unsetValue);
        QString got = getWorkFolder();
        EXPECT_EQ(got, QDir(QDir::tempPath() + "/quovara").absolutePath());
        EXPECT_TRUE(QFileInfo(got).isDir());
    }
}

TEST(KvoPaths, NamesAndExtensions)
{
    EXPECT_EQ(getFileExt("/data/set/IMG_0001.JPG"), "jpg");
    EXPECT_EQ(getFileExt("archive.tar.gz"), "gz");
    EXPECT_EQ(getFileExt("/data/noext"), "");
    EXPECT_EQ(pathGetFileName("/data/set/IMG_0001.JPG"), "IMG_0001.JPG");
    EXPECT_EQ(pathGetBaseName("/data/set/IMG_0001.JPG"), "IMG_0001");
    EXPECT_EQ(pathGetBaseName("archive.tar.gz"), "archive.tar");
    EXPECT_EQ(getFileDir("/data/set/IMG_0001.JPG"), "/data/set");
    EXPECT_EQ(pathGetParent("/data/set/"), "/data");
    EXPECT_EQ(pathGetParent("/data/set"), "/data");
}

TEST(KvoPaths, ImageTypeByExtension)
{
    EXPECT_EQ(getImageTypeFromFileName("a.jpg"), kvoImgJpeg);
    EXPECT_EQ(getImageTypeFromFileName("a.JPEG"), kvoImgJpeg);
    EXPECT_EQ(getImageTypeFromFileName("/x/y.png"), kvoImgPng);
    EXPECT_EQ(getImageTypeFromFileName("y.Bmp"), kvoImgBmp);
    EXPECT_EQ(getImageTypeFromFileName("scan.tif"), kvoImgTiff);
    EXPECT_EQ(getImageTypeFromFileName("scan.TIFF"), kvoImgTiff);
    EXPECT_EQ(getImageTypeFromFileName("model.obj"), kvoImgUnknown);
    EXPECT_EQ(getImageTypeFromFileName("jpg"), kvoImgUnknown);
}

TEST(KvoPaths, FoldersAndFilesOnDisk)
{
    qvtest::ScratchDir scratch;
    QString deep = scratch.file("a/b/c");
    EXPECT_FALSE(isFolderExist(deep));
    EXPECT_TRUE(createFolder(deep));
    EXPECT_TRUE(isFolderExist(deep));
    EXPECT_FALSE(isFileExist(deep)); // a folder is not a file

    QString file = deep + "/x.txt";
    EXPECT_FALSE(isFileExist(file));
    {
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("x");
    }
    EXPECT_TRUE(isFileExist(file));
    EXPECT_FALSE(isFolderExist(file));

    EXPECT_TRUE(removeFolder(scratch.file("a")));
    EXPECT_FALSE(isFileExist(file));
    EXPECT_FALSE(isFolderExist(scratch.file("a")));
    // An empty path never means the current folder.
    EXPECT_FALSE(removeFolder(""));
    EXPECT_FALSE(createFolder(""));
    EXPECT_FALSE(isFileExist(""));
}

} // namespace

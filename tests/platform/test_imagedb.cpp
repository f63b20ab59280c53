#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "platform/KvoImageDbImpl.h"
#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

class ImageDbTest : public qvtest::StoreTest {
protected:
    void SetUp() override
    {
        StoreTest::SetUp();
        newProject();
        ref_ptr<IKvoProject> project;
        getMM()->getProject(project)->getImageDb(db);
    }
    QString picture(const QString& name, int w = 40, int h = 30, int seed = 0)
    {
        const QString path = scratch.file(name);
        EXPECT_TRUE(qvtest::writeTestPicture(path, w, h, seed));
        return path;
    }
    ref_ptr<IKvoImageDb> db;
};

QByteArray bytesOf(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

TEST_F(ImageDbTest, AddImageCopiesTheFileIntoTheProject)
{
    const QString src = picture("facade.png");
    long id = -1;
    ASSERT_EQ(db->addImage(src, id), kvoOk);
    EXPECT_EQ(id, 1);
    ref_ptr<IKvoImageInfo> info;
    ASSERT_TRUE(db->getImageInfo(info, id));
    EXPECT_EQ(info->getName(), "facade.png");
    const QString copy = info->getFilePath(kvoPathImage);
    EXPECT_TRUE(copy.startsWith(projectFolder() + "/")) << copy.toStdString();
    EXPECT_NE(copy, src);
    EXPECT_EQ(bytesOf(copy), bytesOf(src));
    EXPECT_EQ(QFileInfo(info->getFilePath(kvoPathOriginal)).absoluteFilePath(), QFileInfo(src).absoluteFilePath());
    XPnt2i size;
    ASSERT_TRUE(info->getImageSize(size, 2));
    EXPECT_EQ(size, XPnt2i(40, 30));
    ASSERT_TRUE(info->getImageSize(size, 3));
    EXPECT_EQ(size, XPnt2i(20, 15));
    ASSERT_TRUE(info->getImageSize(size, 4));
    EXPECT_EQ(size, XPnt2i(10, 8));
    EXPECT_EQ(info->getMappingType(), -1);
    EXPECT_TRUE(getMM()->isImageIdValid(id));
    EXPECT_TRUE(getMM()->isNormalImage(id));
    EXPECT_FALSE(getMM()->isBigImage(id));
}

TEST_F(ImageDbTest, BadImagesAreRefusedAndNothingChanges)
{
    long good = -1;
    ASSERT_EQ(db->addImage(picture("ok.png"), good), kvoOk);
    long id = 123;
    EXPECT_EQ(db->addImage(scratch.file("nowhere.jpg"), id), kvoErrFileMissing);
    EXPECT_EQ(id, -1);
    QFile f(scratch.file("text.jpg"));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("plain text, not a JPEG");
    f.close();
    EXPECT_EQ(db->addImage(scratch.file("text.jpg"), id), kvoErrBadFile);
    // A JPEG cut short is not a usable photograph either.
    ref_ptr<IKvoImage> img = newKvoImage();
    img->create(64, 64, KvoColor4b(1, 2, 3, 255));
    ASSERT_TRUE(img->saveFile(scratch.file("full.jpg")));
    QByteArray jpeg = bytesOf(scratch.file("full.jpg"));
    QFile cut(scratch.file("cut.jpg"));
    ASSERT_TRUE(cut.open(QIODevice::WriteOnly));
    cut.write(jpeg.left(40));
    cut.close();
    EXPECT_NE(db->addImage(scratch.file("cut.jpg"), id), kvoOk);
    EXPECT_EQ(db->getImageCount(), 1);
    EXPECT_EQ(QDir(projectFolder() + "/images").entryList(QDir::Files).size(), 1);
    ref_ptr<IKvoImageInfo> info;
    EXPECT_FALSE(db->getImageInfo(info, 99));
    EXPECT_FALSE(db->getImageInfo(info, -1));
    ref_ptr<IKvoImage> tex;
    EXPECT_FALSE(db->getTexture(tex, 99, 2));
    EXPECT_FALSE(db->getTexture(tex, good, 0));
    EXPECT_NE(db->setTexture(img, 99, 2), kvoOk);
}

TEST_F(ImageDbTest, IdsAreNeverReusedAndNamesStayUnique)
{
    long a, b, c;
    ASSERT_EQ(db->addImage(picture("x.png"), a), kvoOk);
    QDir().mkpath(scratch.file("other"));
    ASSERT_EQ(db->addImage(picture("other/x.png", 20, 20, 1), b), kvoOk);
    ref_ptr<IKvoImageInfo> info;
    db->getImageInfo(info, b);
    EXPECT_EQ(info->getName(), "x_2.png");
    EXPECT_EQ(getMM()->getImageIdByName("x_2.png"), b);
    EXPECT_EQ(getMM()->getImageIdByName("x.png"), a);
    EXPECT_EQ(getMM()->getImageIdByName("y.png"), -1);
    ASSERT_EQ(db->removeImage(b), kvoOk);
    EXPECT_EQ(db->removeImage(b), kvoErrNotFound);
    ASSERT_EQ(db->addImage(picture("z.png"), c), kvoOk);
    EXPECT_EQ(c, 3);
    ref_ptr<LongArray> ids;
    db->getImageIds(ids);
    EXPECT_EQ(ids->vec(), (std::vector<long>{1, 3}));
}

TEST_F(ImageDbTest, TextureLevelsAndCommittedChangesSurviveReopen)
{
    long id;
    ASSERT_EQ(db->addImage(picture("p.png", 64, 32), id), kvoOk);
    ref_ptr<IKvoImage> l1, l2, l3;
    ASSERT_TRUE(db->getTexture(l1, id, 1));
    ASSERT_TRUE(db->getTexture(l2, id, 2));
    ASSERT_TRUE(db->getTexture(l3, id, 3));
    EXPECT_TRUE(l1->equals(*l2));
    EXPECT_EQ(l3->getWidth(), 32);
    EXPECT_EQ(l3->getHeight(), 16);
    // What a caller does to its copy does not reach the database.
    l2->setPixel(0, 0, KvoColor4b(1, 2, 3, 255));
    ref_ptr<IKvoImage> again;
    db->getTexture(again, id, 2);
    EXPECT_FALSE(again->equals(*l2));

    ASSERT_EQ(db->setTexture(l2, id, 2), kvoOk);
    db->getTexture(again, id, 2);
    EXPECT_TRUE(again->equals(*l2)) << "pending pixels are visible before commit";
    const QString oldFile = db.get() ? dynamic_cast<CKvoImageDb*>(db.get())->record(id)->getFilePath(kvoPathImage) : "";
    ASSERT_EQ(getMM()->saveProject(), kvoOk);
    ref_ptr<IKvoImageInfo> info;
    db->getImageInfo(info, id);
    const QString newFile = info->getFilePath(kvoPathImage);
    EXPECT_NE(newFile, oldFile);
    EXPECT_FALSE(QFile::exists(oldFile)) << "the replaced file goes once the project no longer names it";
    EXPECT_TRUE(QFile::exists(newFile));

    ref_ptr<IKvoProject> project;
    const QString path = getMM()->getProject(project)->getFilePath();
    getMM()->closeProject();
    ASSERT_EQ(getMM()->openProject(path), kvoOk);
    getMM()->getProject(project)->getImageDb(db);
    ASSERT_TRUE(db->getTexture(again, id, 2));
    EXPECT_TRUE(again->equals(*l2));
    ASSERT_TRUE(db->getTexture(again, id, 1));
    EXPECT_TRUE(again->equals(*l1)) << "level 1 stays the original";
}

TEST_F(ImageDbTest, ListenersHearAddsRemovesAndChanges)
{
    struct Listener : IKvoImageDbEvent {
        std::vector<std::pair<int, long>> heard;
        void onImageAdded(long id) override { heard.push_back({0, id}); }
        void onImageRemoved(long id) override { heard.push_back({1, id}); }
        void onImageChanged(long id) override { heard.push_back({2, id}); }
    };
    ref_ptr<Listener> l(new Listener());
    const long eventId = db->addEvent(l);
    EXPECT_GT(eventId, 0);
    EXPECT_EQ(db->addEvent(nullptr), -1);
    long id;
    db->addImage(picture("a.png"), id);
    db->rebuildTiles(id, 0);
    db->removeImage(id);
    db->removeEvent(eventId);
    db->addImage(picture("b.png"), id);
    EXPECT_EQ(l->heard, (std::vector<std::pair<int, long>>{{0, 1}, {2, 1}, {1, 1}}));
}

#include <QFile>

#include <opencv2/core.hpp>

#include "platform/KvoProjectReport.h"
#include "platform/KvoSampleScene.h"
#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

QByteArray pixelBytes(const IKvoImage& img)
{
    cv::Mat m;
    img.getMat(m);
    const cv::Mat packed = m.isContinuous() ? m : m.clone();
    return QByteArray(reinterpret_cast<const char*>(packed.data), int(packed.total() * packed.elemSize()));
}

class ModelManTest : public qvtest::StoreTest {
protected:
    // A project with the sample model and two images, nothing mapped.
    void SetUp() override
    {
        StoreTest::SetUp();
        newProject();
        mm = getMM();
        mm->setBareModel(makeSampleModel(8, 4));
        ref_ptr<IKvoProject> project;
        mm->getProject(project)->getImageDb(db);
        for (int i = 0; i < 2; ++i) {
            const QString path = scratch.file(QString("photo%1.png").arg(i));
            ASSERT_TRUE(qvtest::writeTestPicture(path, 32, 24, i));
            ASSERT_EQ(db->addImage(path, ids[i]), kvoOk);
        }
    }
    ref_ptr<IKvoMesh> mapImage(long id, long firstFace, long faces)
    {
        ref_ptr<IKvoMesh> bare, tex;
        ref_ptr<IKvoModel> model;
        mm->getBareModel(model)->getMesh(bare, 1);
        mm->createTexMesh(tex, false, id, false);
        ref_ptr<UIntArray> t = newUIntArray();
        for (long f = firstFace; f < firstFace + faces; ++f)
            for (int k = 0; k < 3; ++k)
                t->append(bare->getTriangleIndices()->getAt(3 * f + k));
        tex->setTriangleIndices(t.get(), true);
        ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
        uvs->resize(model->getVertexCount());
        for (long i = 0; i < uvs->getCount(); ++i)
            (*uvs)[i] = XPnt2f(float(i % 7) / 7, float(i % 5) / 5);
        tex->setUVs(uvs.get());
        ref_ptr<IKvoImage> img;
        tex->setImage(db->getTexture(img, id, 2));
        ref_ptr<IKvoImageInfo> info;
        db->getImageInfo(info, id)->setMappingType(0);
        return tex;
    }
    IKvoMM* mm = nullptr;
    ref_ptr<IKvoImageDb> db;
    long ids[2] = {-1, -1};
};

} // namespace

TEST(ModelManWithoutProject, EverythingAnswersNothing)
{
    IKvoMM* mm = getMM();
    mm->closeProject();
    ref_ptr<IKvoProject> project;
    EXPECT_FALSE(mm->getProject(project));
    ref_ptr<IKvoMesh> mesh;
    EXPECT_FALSE(mm->createTexMesh(mesh, true, -1, false));
    EXPECT_LT(mm->setProjectBlob("S", "k", "x", 1), 0);
    EXPECT_LT(mm->saveProject(), 0);
    EXPECT_FALSE(mm->hasModelData());
    EXPECT_EQ(mm->getActiveImageId(), -1);
    ref_ptr<MeshArray> list;
    EXPECT_EQ(mm->getAllMeshes(list)->getCount(), 0);
    EXPECT_TRUE(mm->isSelectionEmpty());
    EXPECT_LT(mm->openTexEdit(nullptr, 1, 0), 0);
}

TEST_F(ModelManTest, TextureMeshesOnePerImage)
{
    ref_ptr<IKvoMesh> tex, again, none;
    EXPECT_FALSE(mm->createTexMesh(none, false, 77, false)) << "no such image";
    mm->createTexMesh(tex, false, ids[0], false);
    ASSERT_TRUE(tex);
    EXPECT_EQ(tex->getName(), "photo0.png");
    EXPECT_TRUE(mm->isTexMesh(tex));
    EXPECT_EQ(mm->getMeshKind(tex), 1);
    EXPECT_EQ(mm->createTexMesh(again, false, ids[0], false), tex);
    EXPECT_EQ(mm->getTexMeshCount(), 1);
    EXPECT_TRUE(mm->isImageMapped(ids[0]));
    EXPECT_FALSE(mm->isImageMapped(ids[1]));
    EXPECT_EQ(mm->getImageIdByName("photo0.png"), ids[0]);
    ref_ptr<IKvoMesh> bare;
    mm->createTexMesh(bare, true, -1, false);
    ASSERT_TRUE(bare);
    EXPECT_FALSE(mm->isTexMesh(bare));
    EXPECT_EQ(mm->getMeshKind(bare), 0);
    ref_ptr<MeshArray> list;
    EXPECT_EQ(mm->getBareMeshes(list)->getCount(), 3);
    EXPECT_EQ(mm->getTexMeshes(list)->getCount(), 1);
    EXPECT_EQ(mm->deleteTexMesh(bare, 0, nullptr), -1) << "a bare mesh is not a texture mesh";
    EXPECT_EQ(mm->deleteTexMesh(tex, 0, nullptr), 0);
    EXPECT_EQ(mm->deleteTexMesh(tex, 0, nullptr), -1);
    EXPECT_FALSE(mm->isImageMapped(ids[0]));
    ref_ptr<IKvoImageInfo> info;
    EXPECT_EQ(db->getImageInfo(info, ids[0])->getMappingType(), -1);
}

TEST_F(ModelManTest, SleepShowMarksAndTexturedTriangles)
{
    ref_ptr<IKvoMesh> tex = mapImage(ids[0], 0, 4);
    ref_ptr<MeshArray> list;
    ASSERT_EQ(mm->getAwakeBareMeshes(list)->getCount(), 2);
    ref_ptr<IKvoMesh> ground = list->getAt(0);
    EXPECT_EQ(mm->sleepMesh(ground, nullptr), 0);
    EXPECT_TRUE(mm->isMeshAsleep(ground));
    EXPECT_EQ(mm->getAwakeBareMeshes(list)->getCount(), 1);
    EXPECT_EQ(mm->wakeMesh(ground->getId(), 0), 0);
    EXPECT_EQ(mm->wakeMesh(9999, 0), -1);
    EXPECT_FALSE(mm->isMeshAsleep(ground));
    mm->sleepMesh(tex, nullptr);
    EXPECT_TRUE(mm->isImageMeshAsleep(ids[0]));
    EXPECT_EQ(mm->getAwakeTexMeshes(list)->getCount(), 0);

    tex->setMeshShown(false);
    EXPECT_EQ(mm->getShownMeshes(list)->getCount(), 2);
    EXPECT_EQ(mm->getShownTexMeshList(list)->getCount(), 0);
    mm->setActiveImageId(ids[0]);
    tex->setMeshShown(true);
    EXPECT_EQ(mm->getOtherShownMeshes(list)->getCount(), 2) << "all shown but the active image's mesh";

    EXPECT_TRUE(mm->isSelectionEmpty());
    ref_ptr<ByteArray> marks = newByteArray();
    marks->resize(ground->getFaceCount());
    (*marks)[3] = 1;
    ground->setSelMarks(marks.get());
    EXPECT_FALSE(mm->isSelectionEmpty());
    EXPECT_EQ(mm->getMarkedMeshes(list)->getCount(), 1);

    std::set<XTrip<unsigned>> textured;
    mm->getTexturedTriangles(textured);
    ASSERT_EQ(textured.size(), 4u);
    const unsigned* t = tex->getTriangleIndices()->getData();
    EXPECT_TRUE(textured.count(XTrip<unsigned>(t[5], t[3], t[4]).normalize()));

    mm->setMeshSelected(tex, true);
    EXPECT_TRUE(mm->isTexMeshSelected(tex));
    EXPECT_EQ(mm->getSelectedMeshes(list)->getCount(), 1);
}

TEST_F(ModelManTest, BlobsActiveImageAndCameras)
{
    const double values[3] = {1.5, -2, 1e300};
    EXPECT_EQ(mm->setProjectBlob("ZebVCMapParam", "1_VC_ImgExif", values, sizeof(values)), 0);
    double back[3] = {0, 0, 0};
    EXPECT_EQ(mm->getProjectBlob("ZebVCMapParam", "1_VC_ImgExif", back, sizeof(back)), long(sizeof(values)));
    EXPECT_EQ(back[2], 1e300);
    EXPECT_EQ(mm->getProjectBlob("ZebVCMapParam", "1_VC_ImgExif", nullptr, 0), long(sizeof(values)));
    EXPECT_EQ(mm->getProjectBlob("ZebVCMapParam", "other", back, sizeof(back)), -1);
    EXPECT_EQ(mm->removeProjectBlob("ZebVCMapParam", "1_VC_ImgExif"), 0);
    EXPECT_EQ(mm->removeProjectBlob("ZebVCMapParam", "1_VC_ImgExif"), -1);

    EXPECT_EQ(mm->setActiveImageId(ids[1]), 0);
    EXPECT_NE(mm->setActiveImageId(42), 0);
    EXPECT_EQ(mm->getActiveImageId(), ids[1]) << "a bad id changes nothing";
    ref_ptr<IKvoImage> active;
    ASSERT_TRUE(mm->getActiveImage(active));
    EXPECT_EQ(active->getWidth(), 32);

    ZebQVVCParam cam, back2;
    EXPECT_FALSE(mm->getVCParam(ids[0], back2));
    cam.eye = XPnt3d(1, 2, 3);
    cam.fovY = 41;
    mm->setVCParam(ids[0], cam);
    mm->setVCParam(99, cam);
    ASSERT_TRUE(mm->getVCParam(ids[0], back2));
    EXPECT_EQ(back2, cam);
    EXPECT_FALSE(mm->getVCParam(99, back2));
    double L[11];
    EXPECT_FALSE(mm->getDltParam(ids[0], L)) << "no way to form them yet";
}

TEST_F(ModelManTest, TexEditRestoreBringsBackExactlyTheOpeningState)
{
    ref_ptr<IKvoMesh> tex0 = mapImage(ids[0], 0, 6);
    const QString before = describeProject(*mm);
    ASSERT_EQ(mm->openTexEdit(nullptr, 1, 1), 0);
    EXPECT_TRUE(mm->isTexEditOpen());

    // Edit in every way the editing tools do.
    (*tex0->getUVs())[3] = XPnt2f(0.99f, 0.01f);
    (*tex0->getTriangleIndices())[0] = 0;
    tex0->invertSelMarks();
    ref_ptr<IKvoImage> img;
    tex0->getImage(img);
    img->setPixel(0, 0, KvoColor4b(1, 2, 3, 4));
    const unsigned char grey[4 * 4 * 4] = {};
    ref_ptr<IKvoMesh> tex1 = mapImage(ids[1], 2, 3);
    tex1->setTextureData(grey, 4, 4, 4);
    ref_ptr<IKvoImage> painted = newKvoImage();
    painted->create(32, 24, KvoColor4b(0, 0, 255, 255));
    db->setTexture(painted, ids[0], 2);
    ZebQVVCParam cam;
    cam.fovY = 12;
    mm->setVCParam(ids[0], cam);
    mm->deleteTexMesh(tex0, 0, nullptr);
    ASSERT_NE(describeProject(*mm), before);

    ASSERT_EQ(mm->restoreTexEdit(nullptr), 0);
    EXPECT_EQ(describeProject(*mm), before);
    ref_ptr<IKvoMesh> back;
    EXPECT_EQ(mm->getTexMeshOfImage(back, ids[0]), tex0) << "the object others hold is the one restored";
    EXPECT_FALSE(mm->isImageMapped(ids[1]));
    mm->closeTexEdit();
    EXPECT_FALSE(mm->isTexEditOpen());
    EXPECT_LT(mm->restoreTexEdit(nullptr), 0);
}

// A session that backs up the image database holds no second copy of the
// pictures that are still the project's: one not read yet stays unread, one
// saved and unchanged is read again on restore; both come back pixel for pixel.
TEST_F(ModelManTest, TexEditWithTheImageDatabaseKeepsProjectPicturesUnread)
{
    mapImage(ids[0], 0, 6);
    mapImage(ids[1], 6, 6);
    ASSERT_EQ(mm->saveProject(), kvoOk);
    ref_ptr<IKvoProject> project;
    const QString file = mm->getProject(project)->getFilePath();
    mm->closeProject();
    ASSERT_EQ(mm->openProject(file), kvoOk);
    mm->getProject(project)->getImageDb(db);
    ref_ptr<IKvoMesh> unread, read;
    mm->getTexMeshOfImage(unread, ids[0]);
    mm->getTexMeshOfImage(read, ids[1]);
    ASSERT_FALSE(unread->isImageLoaded());
    ref_ptr<IKvoImage> pixels0, pixels1;
    db->getTexture(pixels0, ids[0], 2);
    read->getImage(pixels1);
    const QByteArray before0 = pixelBytes(*pixels0), before1 = pixelBytes(*pixels1);

    ASSERT_EQ(mm->openTexEdit(nullptr, 1, 1), 0);
    EXPECT_FALSE(unread->isImageLoaded()) << "the backup did not read it";
    // The session replaces both pictures, in the database and on the meshes.
    for (long id : ids) {
        ref_ptr<IKvoImage> grey = newKvoImage();
        grey->create(32, 24, KvoColor4b(90, 90, 90, 255));
        ASSERT_EQ(db->setTexture(grey, id, 2), kvoOk);
        ref_ptr<IKvoMesh> m;
        mm->getTexMeshOfImage(m, id);
        m->setImage(grey);
    }
    ASSERT_EQ(mm->restoreTexEdit(nullptr), 0);
    mm->closeTexEdit();
    ref_ptr<IKvoImage> back0, back1;
    unread->getImage(back0);
    read->getImage(back1);
    ASSERT_TRUE(back0 && back1);
    EXPECT_EQ(pixelBytes(*back0), before0);
    EXPECT_EQ(pixelBytes(*back1), before1);
}

TEST_F(ModelManTest, BareMeshesMadeDuringAnEditSessionStay)
{
    mapImage(ids[0], 0, 2);
    ASSERT_EQ(mm->openTexEdit(nullptr, 1, 0), 0);
    ref_ptr<IKvoMesh> bare;
    mm->createTexMesh(bare, true, -1, false);
    mm->restoreTexEdit(nullptr);
    ref_ptr<MeshArray> list;
    EXPECT_EQ(mm->getBareMeshes(list)->getCount(), 3);
    mm->closeTexEdit();
}

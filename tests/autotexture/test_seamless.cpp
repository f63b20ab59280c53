// Overlapping texture meshes: a triangle stays in the last mesh that holds it,
// and in earlier ones as well where that mesh's picture is transparent.

#include <set>

#include "autotexture/KvoSeamless.h"
#include "commands/KvoCommands.h"
#include "platform/KvoProgressImpl.h"
#include "platform/KvoSampleScene.h"
#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

using Tri = XTrip<unsigned>;

class Seamless : public qvtest::StoreTest {
protected:
    // The sample model and two photographs, nothing mapped yet.
    void SetUp() override
    {
        StoreTest::SetUp();
        newProject();
        mm = getMM();
        mm->setBareModel(makeSampleModel(8, 4));
        mm->getBareModel(model);
        model->getMesh(bare, 0);
        ref_ptr<IKvoProject> project;
        mm->getProject(project)->getImageDb(db);
        for (int i = 0; i < 2; ++i) {
            const QString path = scratch.file(QString("photo%1.png").arg(i));
            ASSERT_TRUE(qvtest::writeTestPicture(path, 32, 24, i));
            ASSERT_EQ(db->addImage(path, ids[i]), kvoOk);
        }
    }

    Tri face(long f) const
    {
        const UIntArray* t = bare->getTriangleIndices();
        return Tri(t->getAt(3 * f), t->getAt(3 * f + 1), t->getAt(3 * f + 2));
    }

    // The texture mesh of image id holding bare faces [first, first + count),
    // with UVs spread over the picture and the image's own opaque pixels.
    ref_ptr<IKvoMesh> mapFaces(long id, long first, long count)
    {
        ref_ptr<IKvoMesh> tex;
        mm->createTexMesh(tex, false, id, false);
        ref_ptr<UIntArray> t = newUIntArray();
        for (long f = first; f < first + count; ++f)
            for (int k = 0; k < 3; ++k)
                t->append(face(f)[k]);
        tex->setTriangleIndices(t.get(), true);
        ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
        uvs->resize(model->getVertexCount());
        for (long i = 0; i < uvs->getCount(); ++i)
            (*uvs)[i] = XPnt2f(float(i % 7) / 7, float(i % 5) / 5);
        tex->setUVs(uvs.get());
        ref_ptr<IKvoImage> img;
        tex->setImage(db->getTexture(img, id, 2));
        return tex;
    }

    static std::set<Tri> faces(const ref_ptr<IKvoMesh>& mesh)
    {
        std::set<Tri> out;
        const UIntArray* t = mesh->getTriangleIndices();
        for (long f = 0; f < mesh->getFaceCount(); ++f)
            out.insert(Tri(t->getAt(3 * f), t->getAt(3 * f + 1), t->getAt(3 * f + 2)).normalized());
        return out;
    }
    std::set<Tri> bareFaces(long first, long count) const
    {
        std::set<Tri> out;
        for (long f = first; f < first + count; ++f)
            out.insert(face(f).normalized());
        return out;
    }

    static ref_ptr<IKvoImage> picture(long w, long h, const KvoColor4b& fill)
    {
        ref_ptr<IKvoImage> img = newKvoImage();
        img->create(w, h, fill);
        return img;
    }

    IKvoMM* mm = nullptr;
    ref_ptr<IKvoModel> model;
    ref_ptr<IKvoMesh> bare;
    ref_ptr<IKvoImageDb> db;
    long ids[2] = {-1, -1};
};

} // namespace

TEST(SeamlessAlpha, OnlyPixelsInsideTheTriangleCount)
{
    ref_ptr<IKvoImage> img = newKvoImage();
    ASSERT_TRUE(img->create(16, 16, KvoColor4b(200, 100, 50, 255)));
    // Pixel (5, 5) is see-through; rows run top-down, v upwards.
    ASSERT_TRUE(img->setPixel(5, 5, KvoColor4b(200, 100, 50, 254)));
    auto uv = [](double x, double y) { return XPnt2f(float(x / 16), float(1 - y / 16)); };
    EXPECT_TRUE(isAlphaTri(img.get(), uv(2, 2), uv(12, 3), uv(3, 12)));
    EXPECT_TRUE(isAlphaTri(img.get(), uv(3, 12), uv(12, 3), uv(2, 2))) << "either turning";
    EXPECT_FALSE(isAlphaTri(img.get(), uv(8, 8), uv(15, 8), uv(8, 15))) << "elsewhere";
    EXPECT_FALSE(isAlphaTri(img.get(), uv(6.6, 1), uv(15, 1), uv(15, 12)))
        << "the box holds the pixel, the triangle does not";
    // A triangle within the pixel has no pixel centre inside: its corners count.
    EXPECT_TRUE(isAlphaTri(img.get(), uv(5.1, 5.1), uv(5.4, 5.2), uv(5.2, 5.4)));
    // The same pixel above its row (v flipped) is opaque.
    EXPECT_FALSE(isAlphaTri(img.get(), uv(5.1, 10.1), uv(5.4, 10.2), uv(5.2, 10.4)));
    EXPECT_FALSE(isAlphaTri(nullptr, uv(0, 0), uv(16, 0), uv(0, 16)));
    ref_ptr<IKvoImage> empty = newKvoImage();
    EXPECT_FALSE(isAlphaTri(empty.get(), uv(0, 0), uv(16, 0), uv(0, 16)));
}

TEST_F(Seamless, ACommonTriangleStaysInTheLaterMesh)
{
    ref_ptr<IKvoMesh> a = mapFaces(ids[0], 0, 10);
    ref_ptr<IKvoMesh> b = mapFaces(ids[1], 5, 10);
    const XPnt3f normalOfFace0 = a->getFaceNormals()->getAt(0);
    CKvoProgress progress;
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(1, &progress), 0);
    EXPECT_EQ(faces(a), bareFaces(0, 5));
    EXPECT_EQ(faces(b), bareFaces(5, 10));
    ASSERT_EQ(a->getFaceNormals()->getCount(), 5);
    EXPECT_EQ(a->getFaceNormals()->getAt(0), normalOfFace0);
    EXPECT_DOUBLE_EQ(progress.getPosition(), 1.0);
    EXPECT_TRUE(mm->isDirty());
}

TEST_F(Seamless, ATransparentLaterMeshLeavesTheTriangleInBoth)
{
    ref_ptr<IKvoMesh> a = mapFaces(ids[0], 0, 10);
    ref_ptr<IKvoMesh> b = mapFaces(ids[1], 5, 10);
    b->setImage(picture(32, 24, KvoColor4b(10, 20, 30, 0)));
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(1, nullptr), 0);
    EXPECT_EQ(faces(a), bareFaces(0, 10));
    EXPECT_EQ(faces(b), bareFaces(5, 10));
}

TEST_F(Seamless, TransparencyElsewhereInThePictureDoesNotCount)
{
    ref_ptr<IKvoMesh> a = mapFaces(ids[0], 0, 10);
    ref_ptr<IKvoMesh> b = mapFaces(ids[1], 5, 10);
    // Every UV of b in the left half of its picture; only the right half is transparent.
    ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
    uvs->resize(model->getVertexCount());
    for (long i = 0; i < uvs->getCount(); ++i)
        (*uvs)[i] = XPnt2f(float(i % 7) / 16, float(i % 5) / 5);
    b->setUVs(uvs.get());
    ref_ptr<IKvoImage> pic = picture(32, 24, KvoColor4b(10, 20, 30, 255));
    for (long y = 0; y < 24; ++y)
        for (long x = 20; x < 32; ++x)
            pic->setPixel(x, y, KvoColor4b(10, 20, 30, 0));
    b->setImage(pic);
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(1, nullptr), 0);
    EXPECT_EQ(faces(a), bareFaces(0, 5));
}

TEST_F(Seamless, KindZeroTakesTheShownMeshesOnly)
{
    ref_ptr<IKvoMesh> a = mapFaces(ids[0], 0, 10);
    ref_ptr<IKvoMesh> b = mapFaces(ids[1], 5, 10);
    b->setMeshShown(false);
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(0, nullptr), 0);
    EXPECT_EQ(faces(a), bareFaces(0, 10)) << "the hidden mesh takes no part";
    EXPECT_EQ(faces(b), bareFaces(5, 10));
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(1, nullptr), 0);
    EXPECT_EQ(faces(a), bareFaces(0, 5)) << "kind 1 takes every texture mesh";
    EXPECT_EQ(faces(b), bareFaces(5, 10));
}

TEST_F(Seamless, OtherKindsChangeNothing)
{
    ref_ptr<IKvoMesh> a = mapFaces(ids[0], 0, 10);
    mapFaces(ids[1], 5, 10);
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(2, nullptr), 0);
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(-1, nullptr), 0);
    EXPECT_EQ(faces(a), bareFaces(0, 10));
}

TEST_F(Seamless, AsleepAndNamelessMeshesArePassedOver)
{
    ref_ptr<IKvoMesh> a = mapFaces(ids[0], 0, 10);
    ref_ptr<IKvoMesh> b = mapFaces(ids[1], 5, 10);
    mm->sleepMesh(b);
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(1, nullptr), 0);
    EXPECT_EQ(faces(a), bareFaces(0, 10));
    mm->wakeMesh(b->getId());
    b->setName(QString());
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(1, nullptr), 0);
    EXPECT_EQ(faces(a), bareFaces(0, 10));
    EXPECT_EQ(faces(b), bareFaces(5, 10));
}

TEST_F(Seamless, ACornerIndexedMeshKeepsTheCornersOfItsRemainingFaces)
{
    ref_ptr<IKvoMesh> a = mapFaces(ids[0], 0, 10);
    ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
    ref_ptr<UIntArray> corners = newUIntArray();
    for (long c = 0; c < 30; ++c) {
        uvs->append(XPnt2f(float(c) / 30, 0.5f));
        corners->append(unsigned(c));
    }
    a->setUVs(uvs.get());
    ref_ptr<UIntArray> tris = newUIntArray();
    tris->vec() = a->getTriangleIndices()->vec();
    a->setCornerTexIndices(tris.get(), corners.get());
    ASSERT_TRUE(a->hasCornerUVs());
    ref_ptr<IKvoMesh> b = mapFaces(ids[1], 0, 5);
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(1, nullptr), 0);
    ASSERT_EQ(faces(a), bareFaces(5, 5));
    ASSERT_TRUE(a->hasCornerUVs());
    for (long f = 0; f < 5; ++f)
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(a->getFaceCorner(f, k), 3 * (f + 5) + k);
}

TEST_F(Seamless, WithoutAModelTheAnswerIsModelEmpty)
{
    mm->closeProject();
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(1, nullptr), kvoModelEmpty);
    newProject("q.qvj");
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(0, nullptr), kvoModelEmpty);
    EXPECT_EQ(cmdOnSeamlessTexturedMesh(1, nullptr), kvoModelEmpty);
}

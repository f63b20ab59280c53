#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

// A unit square split in two, plus a lone triangle: vertices 0..4.
ref_ptr<IKvoModel> squareModel(ref_ptr<IKvoMesh>& mesh)
{
    ref_ptr<IKvoModel> model = newKvoModel();
    ref_ptr<Pnt3fArray> v = newPnt3fArray();
    v->vec() = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}};
    model->setVertices(v.get(), true);
    mesh = model->newMesh(-1, false);
    ref_ptr<UIntArray> t = newUIntArray();
    t->vec() = {0, 1, 2, 0, 2, 3, 1, 4, 2};
    mesh->setTriangleIndices(t.get(), true);
    model->addMesh(mesh);
    return model;
}

} // namespace

TEST(KvoMesh, FindFaceIgnoresCornerOrderAndFollowsChanges)
{
    ref_ptr<IKvoMesh> mesh;
    ref_ptr<IKvoModel> model = squareModel(mesh);
    EXPECT_EQ(mesh->findFace(0, 1, 2), 0);
    EXPECT_EQ(mesh->findFace(2, 0, 1), 0);
    EXPECT_EQ(mesh->findFace(3, 2, 0), 1);
    EXPECT_EQ(mesh->findFace(4, 2, 1), 2);
    EXPECT_LT(mesh->findFace(0, 1, 3), 0);
    ref_ptr<UIntArray> t = newUIntArray();
    t->vec() = {0, 1, 3};
    mesh->setTriangles(t.get(), true);
    EXPECT_EQ(mesh->findFace(3, 0, 1), 0);
    EXPECT_LT(mesh->findFace(0, 1, 2), 0);
}

TEST(KvoMesh, NormalsFollowTheWinding)
{
    ref_ptr<IKvoMesh> mesh;
    ref_ptr<IKvoModel> model = squareModel(mesh);
    ASSERT_EQ(mesh->getFaceNormals()->getCount(), 3);
    XPnt3f n;
    ASSERT_TRUE(mesh->getFaceNormal(n, 1));
    EXPECT_FLOAT_EQ(n.z, 1.f);
    ref_ptr<UIntArray> t = newUIntArray();
    t->vec() = {0, 2, 1};
    mesh->setTriangles(t.get(), true);
    ASSERT_TRUE(mesh->getFaceNormal(n, 0));
    EXPECT_FLOAT_EQ(n.z, -1.f);
    EXPECT_FALSE(mesh->getFaceNormal(n, 1));
    Enve3d box;
    mesh->getEnvelope(box);
    EXPECT_EQ(box.getMaxPnt(), XPnt3d(1, 1, 0));
}

TEST(KvoMesh, MarksDropWhenTheFacesNoLongerMatch)
{
    ref_ptr<IKvoMesh> mesh;
    ref_ptr<IKvoModel> model = squareModel(mesh);
    EXPECT_FALSE(mesh->hasSelMarks());
    mesh->invertSelMarks();
    ASSERT_TRUE(mesh->hasSelMarks());
    EXPECT_EQ(mesh->getSelMarks()->vec(), (std::vector<unsigned char>{1, 1, 1}));
    (*mesh->getSelMarks())[1] = 0;
    mesh->invertSelMarks();
    EXPECT_EQ(mesh->getSelMarks()->vec(), (std::vector<unsigned char>{0, 1, 0}));
    ref_ptr<UIntArray> t = newUIntArray();
    t->vec() = {0, 1, 2};
    mesh->setTriangles(t.get(), true);
    EXPECT_FALSE(mesh->hasSelMarks());
    EXPECT_EQ(mesh->getSelColor(), KvoColor4b(255, 0, 0, 255));
}

TEST(KvoMesh, CornerIndexedUVsAndSetFacesKeepEachCornersUV)
{
    ref_ptr<IKvoMesh> mesh;
    ref_ptr<IKvoModel> model = squareModel(mesh);
    // Every corner has a UV entry of its own: corner k of face f uses entry 3f + k.
    ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
    ref_ptr<UIntArray> corners = newUIntArray();
    for (unsigned k = 0; k < 9; ++k) {
        uvs->append(XPnt2f(float(k) / 10, 0.5f));
        corners->append(k);
    }
    mesh->setUVs(uvs.get());
    mesh->setCornerTexIndices(nullptr, corners.get());
    ASSERT_TRUE(mesh->hasCornerUVs());
    EXPECT_EQ(mesh->getFaceCorner(2, 1), 7);
    EXPECT_EQ(mesh->getFaceCorner(3, 0), -1);
    EXPECT_EQ(mesh->getFaceCorner(0, 3), -1);
    EXPECT_FLOAT_EQ(mesh->getUVOfVertex(2, 1).x, 0.4f); // vertex 2 is corner 1 of face 1
    EXPECT_FLOAT_EQ(mesh->getUVOfVertex(2, 2).x, 0.8f);
    EXPECT_FALSE(mesh->getUVOfVertex(4, 0).isValid());

    // Keep faces 2 and 0, in that order and with rotated corners.
    ref_ptr<UIntArray> t = newUIntArray();
    t->vec() = {4, 2, 1, 1, 2, 0};
    mesh->setFaces(t.get(), true);
    ASSERT_EQ(mesh->getFaceCount(), 2);
    ASSERT_TRUE(mesh->hasCornerUVs());
    EXPECT_EQ(mesh->getCornerTexIndices()->vec(), (std::vector<unsigned>{7, 8, 6, 1, 2, 0}));
    EXPECT_EQ(mesh->getUVs()->getCount(), 9) << "the UV list stays as it was";
}

TEST(KvoMesh, UVEditEntriesPerVertexAndPerCorner)
{
    ref_ptr<IKvoMesh> mesh;
    ref_ptr<IKvoModel> model = squareModel(mesh);
    ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
    uvs->vec() = {{0, 0}, {1, 0}, {1, 1}, {0, 1}, {2, 0}};
    mesh->setUVs(uvs.get());
    ref_ptr<UIntArray> t = newUIntArray();
    t->vec() = {0, 1, 2};
    mesh->setTriangles(t.get(), true);
    mesh->beginUVEdit(0);
    ref_ptr<Pnt2fArray> edit;
    ref_ptr<UIntArray> verts;
    mesh->getEditUVs(edit);
    mesh->getUVVertices(verts);
    ASSERT_EQ(verts->vec(), (std::vector<unsigned>{0, 1, 2})) << "only the vertices the mesh uses";
    EXPECT_EQ(edit->getAt(2), XPnt2f(1, 1));
    (*edit)[1] = XPnt2f(0.5f, 0.25f);
    const auto version = mesh->getDisplayVersion();
    mesh->setEditUVs(edit.get(), verts.get());
    EXPECT_EQ(mesh->getUVs()->getAt(1), XPnt2f(0.5f, 0.25f));
    EXPECT_EQ(mesh->getUVs()->getAt(3), XPnt2f(0, 1)) << "unused vertices keep their UVs";
    EXPECT_GT(mesh->getDisplayVersion(), version);

    // Corner-indexed: one entry per UV of the list, with the vertex of a corner that uses it.
    ref_ptr<Pnt2fArray> cuv = newPnt2fArray();
    cuv->vec() = {{0.1f, 0}, {0.2f, 0}, {0.3f, 0}};
    ref_ptr<UIntArray> corners = newUIntArray();
    corners->vec() = {2, 0, 1};
    mesh->setUVs(cuv.get());
    mesh->setCornerTexIndices(nullptr, corners.get());
    mesh->beginUVEdit(0);
    mesh->getEditUVs(edit);
    mesh->getUVVertices(verts);
    EXPECT_EQ(verts->vec(), (std::vector<unsigned>{1, 2, 0}));
    (*edit)[0] = XPnt2f(0.9f, 0.9f);
    mesh->setEditUVs(edit.get(), verts.get());
    EXPECT_EQ(mesh->getUVOfVertex(1, 0), XPnt2f(0.9f, 0.9f));
}

TEST(KvoModel, MeshesHaveUniqueIdsAndVertexNormalsAverageFaces)
{
    ref_ptr<IKvoMesh> mesh;
    ref_ptr<IKvoModel> model = squareModel(mesh);
    ref_ptr<IKvoMesh> second = model->newMesh(-1, false);
    EXPECT_NE(second->getId(), mesh->getId());
    model->addMesh(second);
    model->addMesh(second);
    EXPECT_EQ(model->getMeshCount(), 2);
    ref_ptr<IKvoMesh> found;
    EXPECT_EQ(model->getMeshById(found, second->getId()), second);
    EXPECT_FALSE(model->getMeshById(found, 999));
    EXPECT_FALSE(model->getMesh(found, 5));
    EXPECT_TRUE(model->removeMesh(second));
    EXPECT_FALSE(model->removeMesh(second));
    model->setVertexNormals(nullptr, true, true);
    ASSERT_EQ(model->getVertexNormals()->getCount(), 5);
    EXPECT_FLOAT_EQ(model->getVertexNormals()->getAt(4).z, 1.f);
    Enve3d box;
    model->getEnvelope(box);
    EXPECT_EQ(box.getMaxPnt(), XPnt3d(2, 1, 0));
    // A mesh outliving its model no longer points at it.
    model.reset();
    EXPECT_EQ(mesh->getModel(), nullptr);
}

// Vertices edited in place come back as the same array; with refresh the
// meshes' display versions move, so views and pickers look again.
TEST(KvoModel, SetVerticesWithRefreshMovesTheMeshesDisplayVersions)
{
    ref_ptr<IKvoMesh> mesh;
    ref_ptr<IKvoModel> model = squareModel(mesh);
    const unsigned long long before = mesh->getDisplayVersion();
    Pnt3fArray* v = model->getVertices();
    (*v)[4] = XPnt3f(3, 0, 0);
    model->setVertices(v, false);
    EXPECT_EQ(mesh->getDisplayVersion(), before);
    model->setVertices(v, true);
    EXPECT_GT(mesh->getDisplayVersion(), before);
    EXPECT_EQ(model->getVertices()->getAt(4).x, 3.f);
}

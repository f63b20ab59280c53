#include <cmath>
#include <vector>

#include "commands/KvoCommands.h"
#include "platform/KvoSampleScene.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

// The sample building (facadeCells 3) lists its faces in order: front (-y),
// right, back, left, roof, 18 triangles each.
constexpr long kFacadeTriangles = 18;
enum Facade { kFront = 0, kRight = 1, kBack = 2, kLeft = 3, kRoof = 4 };

class TexMeshPick : public qvtest::ViewerTest {
protected:
    void SetUp() override
    {
        ViewerTest::SetUp();
        IKvoMM* mm = getMM();
        ASSERT_EQ(mm->newProject(scratch.file("t.qvj")), 0);
        mm->setBareModel(makeSampleModel(6, 3));
        mm->getBareModel(model);
        building = model->getMesh(1);
        ASSERT_EQ(building->getFaceCount(), 5 * kFacadeTriangles);
        ref_ptr<IKvoProject> project;
        mm->getProject(project)->getImageDb(db);
        for (int i = 0; i < 2; ++i) {
            const QString path = scratch.file(QString("i%1.png").arg(i));
            ASSERT_TRUE(qvtest::writeTestPicture(path, 32, 24, i));
            ASSERT_EQ(db->addImage(path, ids[i]), 0);
        }
        vm->modelViewer()->getTrackBall(ball);
        // Square on to the front, a little above the building's middle.
        ball->setCamera(XPnt3d(0, -40, 6), XPnt3d(0, 0, 4), XPnt3d(0, 0, 1));
    }

    // A texture mesh of the image over whole facades of the building.
    ref_ptr<IKvoMesh> texMesh(long imageId, std::vector<Facade> facades)
    {
        ref_ptr<IKvoMesh> mesh;
        getMM()->createTexMesh(mesh, false, imageId, false);
        EXPECT_TRUE(mesh);
        if (!mesh)
            return mesh;
        ref_ptr<UIntArray> t = newUIntArray();
        for (Facade f : facades)
            t->vec().insert(t->vec().end(), triangleBegin(f), triangleBegin(f) + 3 * kFacadeTriangles);
        mesh->setTriangleIndices(t.get(), true);
        return mesh;
    }

    std::vector<unsigned>::const_iterator triangleBegin(Facade f) const
    {
        return building->getTriangleIndices()->vec().cbegin() + 3 * kFacadeTriangles * long(f);
    }

    XPnt3d vertex(unsigned i) const { return model->getVertices()->getAt(i).to3d(); }

    // The pixel nearest the window position of the building triangle's centroid.
    PT2<long> pixelOf(long buildingFace) const
    {
        const unsigned* t = building->getTriangleIndices()->getData() + 3 * buildingFace;
        const XPnt3d c = (vertex(t[0]) + vertex(t[1]) + vertex(t[2])) / 3.0;
        XPnt3d w;
        ball->projectToWindow(w, c.x, c.y, c.z);
        return PT2<long>(std::lround(w.x), std::lround(w.y));
    }

    ref_ptr<IKvoModel> model;
    ref_ptr<IKvoMesh> building;
    ref_ptr<IKvoImageDb> db;
    long ids[2] = {-1, -1};
    ref_ptr<IKvoTrackBall> ball;
};

// The nearest triangle of one mesh that the view ray through a pixel meets, by
// brute force: a point on the ray lies inside a triangle when it is on the
// triangle's plane and on the inner side of all three edges.
long nearestFace(const ref_ptr<IKvoMesh>& mesh, const ref_ptr<IKvoTrackBall>& ball, PT2<long> pixel)
{
    XPnt3d o, d;
    if (!ball->getRay(double(pixel.x), double(pixel.y), o, d))
        return -1;
    const Pnt3fArray* verts = mesh->getModel()->getVertices();
    const unsigned* t = mesh->getTriangleIndices()->getData();
    long best = -1;
    double bestT = 0;
    for (long f = 0; f < mesh->getFaceCount(); ++f) {
        const XPnt3d a = verts->getAt(t[3 * f]).to3d(), b = verts->getAt(t[3 * f + 1]).to3d(),
                     c = verts->getAt(t[3 * f + 2]).to3d();
        const XPnt3d n = (b - a).cross(c - a);
        const double along = n.dot(d);
        if (along == 0)
            continue;
        const double dist = n.dot(a - o) / along;
        const XPnt3d p = o + d * dist;
        if (dist <= 0 || n.dot((b - a).cross(p - a)) < 0 || n.dot((c - b).cross(p - b)) < 0 ||
            n.dot((a - c).cross(p - c)) < 0)
            continue;
        if (best < 0 || dist < bestT) {
            best = f;
            bestT = dist;
        }
    }
    return best;
}

} // namespace

TEST_F(TexMeshPick, APixelOnATexturedTriangleGivesItsImageAndCorners)
{
    // Front and back: every ray through the front meets the back too, and the front is nearer.
    ref_ptr<IKvoMesh> tex = texMesh(ids[0], {kFront, kBack});
    for (long k = 0; k < kFacadeTriangles; ++k) {
        const PT2<long> pixel = pixelOf(kFront * kFacadeTriangles + k);
        const long expected = nearestFace(tex, ball, pixel);
        ASSERT_EQ(expected, k) << "the pixel lies on the front triangle aimed at";
        unsigned a = 0, b = 0, c = 0;
        EXPECT_EQ(cmdOnSetTexMeshImageActive(pixel, a, b, c), ids[0]) << k;
        const unsigned* t = tex->getTriangleIndices()->getData() + 3 * expected;
        EXPECT_EQ(a, t[0]) << k;
        EXPECT_EQ(b, t[1]) << k;
        EXPECT_EQ(c, t[2]) << k;
    }
    EXPECT_TRUE(presenter->records.isEmpty());
}

TEST_F(TexMeshPick, UntexturedGroundSkyAndSleepingMeshesGiveNothing)
{
    ref_ptr<IKvoMesh> tex = texMesh(ids[0], {kFront});
    const unsigned before = 777;
    unsigned a = before, b = before, c = before;
    // The ground in front of the building: a bare mesh only.
    XPnt3d w;
    ball->projectToWindow(w, 0, -10, 0);
    EXPECT_EQ(cmdOnSetTexMeshImageActive(PT2<long>(std::lround(w.x), std::lround(w.y)), a, b, c), -1);
    // Above the building, beyond everything.
    EXPECT_EQ(cmdOnSetTexMeshImageActive(PT2<long>(400, 5), a, b, c), -1);
    EXPECT_EQ(a, before);
    EXPECT_EQ(b, before);
    EXPECT_EQ(c, before);

    const PT2<long> onFront = pixelOf(kFront * kFacadeTriangles + 4);
    EXPECT_EQ(cmdOnSetTexMeshImageActive(onFront, a, b, c), ids[0]);
    ASSERT_EQ(getMM()->sleepMesh(tex), 0);
    a = b = c = before;
    EXPECT_EQ(cmdOnSetTexMeshImageActive(onFront, a, b, c), -1) << "an asleep mesh is not there";
    EXPECT_EQ(a, before);
    ASSERT_EQ(getMM()->wakeMesh(tex->getId()), 0);
    EXPECT_EQ(cmdOnSetTexMeshImageActive(onFront, a, b, c), ids[0]);
    EXPECT_TRUE(presenter->records.isEmpty());
}

TEST_F(TexMeshPick, WhereTwoImagesTextureATriangleTheLaterMeshAnswers)
{
    // Both meshes cover the front; the second also the roof.
    ref_ptr<IKvoMesh> first = texMesh(ids[0], {kFront}), second = texMesh(ids[1], {kFront, kRoof});
    const PT2<long> onFront = pixelOf(kFront * kFacadeTriangles + 7);
    unsigned a, b, c;
    EXPECT_EQ(cmdOnSetTexMeshImageActive(onFront, a, b, c), ids[1]);
    const unsigned* t = second->getTriangleIndices()->getData() + 3 * 7;
    EXPECT_EQ((std::vector<unsigned>{a, b, c}), (std::vector<unsigned>{t[0], t[1], t[2]}));

    // Asleep, the later one gives way to the earlier.
    getMM()->sleepMesh(second);
    EXPECT_EQ(cmdOnSetTexMeshImageActive(onFront, a, b, c), ids[0]);
    getMM()->wakeMesh(second->getId());

    // Only the later one covers the roof, seen from above.
    ball->setCamera(XPnt3d(0, -1, 40), XPnt3d(0, 0, 8), XPnt3d(0, 1, 0));
    const PT2<long> onRoof = pixelOf(kRoof * kFacadeTriangles + 10);
    ASSERT_EQ(nearestFace(second, ball, onRoof), kFacadeTriangles + 10);
    EXPECT_EQ(cmdOnSetTexMeshImageActive(onRoof, a, b, c), ids[1]);
    getMM()->sleepMesh(second);
    EXPECT_EQ(cmdOnSetTexMeshImageActive(onRoof, a, b, c), -1);
}

TEST_F(TexMeshPick, WithoutAModelItSaysSoAndWithoutAViewItIsQuiet)
{
    texMesh(ids[0], {kFront});
    const PT2<long> onFront = pixelOf(3);
    unsigned a = 1, b = 2, c = 3;

    zebUI::setVM(nullptr);
    EXPECT_EQ(cmdOnSetTexMeshImageActive(onFront, a, b, c), -1);
    EXPECT_TRUE(presenter->records.isEmpty());
    zebUI::setVM(ref_ptr<IZebViewerMan>(vm.get()));

    getMM()->setBareModel(nullptr);
    EXPECT_EQ(cmdOnSetTexMeshImageActive(onFront, a, b, c), -1);
    ASSERT_EQ(presenter->records.size(), 1);
    EXPECT_EQ(presenter->lastTitle(), "ERROR");
    EXPECT_EQ(presenter->lastText(), "No Model!");
    EXPECT_EQ(presenter->records.last().buttons, QList<QMessageBox::StandardButton>{QMessageBox::Ok});

    presenter->records.clear();
    getMM()->closeProject();
    EXPECT_EQ(cmdOnSetTexMeshImageActive(onFront, a, b, c), -1);
    EXPECT_EQ(presenter->lastText(), "No Model!");
    EXPECT_EQ((std::vector<unsigned>{a, b, c}), (std::vector<unsigned>{1, 2, 3}));
}

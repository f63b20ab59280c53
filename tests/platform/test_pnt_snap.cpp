#include <cmath>

#include "scene/KvoPntSnap.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

class PntSnap : public qvtest::ViewerTest {
protected:
    void SetUp() override
    {
        ViewerTest::SetUp();
        newProject();
        // A wall of 1 m cells in the plane y = 0, facing -y, and one vertex
        // behind it at (0.5, 2, 4.5).
        ref_ptr<IKvoModel> model = newKvoModel();
        vertices = newPnt3fArray();
        ref_ptr<UIntArray> t = newUIntArray();
        for (int j = 0; j <= 10; ++j)
            for (int i = 0; i <= 10; ++i)
                vertices->append(XPnt3f(float(i - 5), 0, float(j)));
        for (int j = 0; j < 10; ++j)
            for (int i = 0; i < 10; ++i) {
                const unsigned a = unsigned(j * 11 + i), b = a + 1, c = a + 12, d = a + 11;
                t->vec().insert(t->vec().end(), {a, b, c, a, c, d});
            }
        vertices->append(XPnt3f(0.5f, 2, 4.5f));
        model->setVertices(vertices.get(), true);
        ref_ptr<IKvoMesh> mesh = model->newMesh(-1, false);
        mesh->setTriangleIndices(t.get(), true);
        model->addMesh(mesh);
        getMM()->setBareModel(model);
        ball = vm->modelViewer()->trackBall();
        ball->setViewport(800, 600);
        ball->setCamera(XPnt3d(0, -20, 5), XPnt3d(0, 0, 5), XPnt3d(0, 0, 1));
        snap = newKvoPntSnap();
        snap->setup(vertices);
    }
    XPnt3d windowOf(const XPnt3d& p) const
    {
        XPnt3d w;
        ball->projectToWindow(w, p.x, p.y, p.z);
        return w;
    }
    ref_ptr<Pnt3fArray> vertices;
    CKvoTrackBall* ball = nullptr;
    ref_ptr<IKvoPntSnap> snap;
};

} // namespace

TEST_F(PntSnap, TheNearestShownVertexWithinTheRadius)
{
    const XPnt3d target(2, 0, 3);
    const XPnt3d w = windowOf(target);
    XPnt3d p;
    XPnt2d s;
    ASSERT_TRUE(snap->findNear(p, s, w.x + 3, w.y - 4, 10.0));
    EXPECT_TRUE(snap->isActive());
    EXPECT_EQ(p, target);
    EXPECT_NEAR(s.x, w.x, 1e-3);
    EXPECT_NEAR(s.y, w.y, 1e-3);
    XPnt3d again;
    ASSERT_TRUE(snap->getSnapped(again));
    EXPECT_EQ(again, target);

    // Halfway between vertices (about 56 px apart here) nothing is within 20 px.
    const XPnt3d mid = windowOf(XPnt3d(2.5, 0, 3.5));
    EXPECT_FALSE(snap->findNear(p, s, mid.x, mid.y, 20.0));
    EXPECT_FALSE(snap->isActive());

    // The vertex behind the wall lies right under the cursor on screen, but
    // the wall hides it: the nearest wall vertex wins.
    const XPnt3d hidden = windowOf(XPnt3d(0.5, 2, 4.5));
    ASSERT_TRUE(snap->findNear(p, s, hidden.x, hidden.y, 50.0));
    EXPECT_EQ(p.y, 0.0) << "a vertex of the wall";

    // A new camera: the positions are worked out again.
    ball->setCamera(XPnt3d(6, -15, 8), XPnt3d(0, 0, 5), XPnt3d(0, 0, 1));
    const XPnt3d w2 = windowOf(target);
    ASSERT_TRUE(snap->findNear(p, s, w2.x + 1, w2.y + 1, 10.0));
    EXPECT_EQ(p, target);
}

#include "scene/KvoRefPlane.h"
#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

ref_ptr<IKvoQvRefPlane> makePlane(IKvoQvRefPlaneMan& man, const XPnt3d& origin)
{
    ref_ptr<IKvoQvRefPlane> p = newKvoQvRefPlane();
    p->setId(man.nextPlaneId());
    p->setName(QString("Plane%1").arg(p->getId()));
    p->setOrigin(origin);
    p->setAxes(XPnt3d(1, 0, 0), XPnt3d(0, 0, 1));
    ref_ptr<IKvoRing> ring = newKvoRing();
    for (const XPnt3d& c : {XPnt3d(1, 0, 1), XPnt3d(-1, 0, 1), XPnt3d(-1, 0, -1), XPnt3d(1, 0, -1)})
        ring->addPoint(origin + c);
    p->setRing(ring);
    EXPECT_TRUE(p->updateParam());
    return p;
}

class RefPlaneStore : public qvtest::StoreTest {};

} // namespace

TEST_F(RefPlaneStore, PlanesSurviveSaveAndReopenAndIdsAreNeverReused)
{
    ref_ptr<IKvoQvRefPlaneMan> man;
    EXPECT_FALSE(getMM()->getRefPlaneMan(man)) << "no project, no planes";
    newProject();
    ASSERT_TRUE(getMM()->getRefPlaneMan(man));
    EXPECT_EQ(man->getPlaneCount(), 0);
    EXPECT_EQ(man->getActivePlaneId(), -1);
    ref_ptr<IKvoQvRefPlane> a = makePlane(*man, XPnt3d(0, 2, 3)), b = makePlane(*man, XPnt3d(5, -1, 0)),
                            c = makePlane(*man, XPnt3d(1, 1, 1));
    for (auto& p : {a, b, c})
        ASSERT_TRUE(man->addPlane(p));
    EXPECT_FALSE(man->addPlane(a)) << "an id is in the list once";
    ASSERT_TRUE(man->deletePlane(b->getId()));
    ASSERT_TRUE(man->setActivePlane(c->getId()));
    EXPECT_FALSE(man->setActivePlane(b->getId()));
    a->setVisible(false);
    a->setName("Front wall");
    man->updateDisplay(true);
    EXPECT_TRUE(getMM()->isDirty());
    ASSERT_EQ(getMM()->saveProject(), kvoOk);
    const QString path = scratch.file("p.qvj");
    getMM()->closeProject();

    ASSERT_EQ(getMM()->openProject(path), kvoOk);
    ASSERT_TRUE(getMM()->getRefPlaneMan(man));
    ASSERT_EQ(man->getPlaneCount(), 2);
    EXPECT_EQ(man->getActivePlaneId(), 3);
    ref_ptr<IKvoQvRefPlane> p;
    ASSERT_TRUE(man->getPlaneAt(p, 0));
    EXPECT_EQ(p->getId(), 1);
    EXPECT_EQ(p->getName(), "Front wall");
    EXPECT_FALSE(p->isVisible());
    EXPECT_EQ(p->getOrigin(), XPnt3d(0, 2, 3));
    EXPECT_EQ(p->getYDir(), XPnt3d(0, 0, 1));
    ref_ptr<IKvoRing> ring;
    p->getRing(ring);
    ASSERT_EQ(ring->getPointCount(), 4);
    EXPECT_EQ(ring->getPoint(2), XPnt3d(-1, 2, 2));
    // The plane y = 2 with its normal X x Y = (0, -1, 0).
    const kvoPlaneParam pp = p->getPlaneParam();
    EXPECT_NEAR(pp.b, -1, 1e-12);
    EXPECT_NEAR(pp.distance(XPnt3d(7, 2, -4)), 0, 1e-12);
    EXPECT_EQ(man->nextPlaneId(), 4) << "the deleted plane's id 2 is not given again, nor 3";
    EXPECT_FALSE(man->getPlane(p, 2));

    // Deleting the active plane leaves none active.
    ASSERT_TRUE(man->deletePlane(3));
    EXPECT_EQ(man->getActivePlaneId(), -1);
    ref_ptr<IKvoQvRefPlane> flat = newKvoQvRefPlane();
    flat->setAxes(XPnt3d(1, 0, 0), XPnt3d(2, 0, 0));
    EXPECT_FALSE(flat->updateParam()) << "parallel axes define no plane";
}

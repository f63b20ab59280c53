// The plane tool driven through the viewer manager's dispatcher, as the
// desktop application drives it: clicks on the model, the table, the
// adjustments, OK and Cancel.

#include <cmath>

#include "commands/KvoCommands.h"
#include "planes/KvoRefPlaneOps.h"
#include "planes/KvoRefPlaneTasks.h"
#include "planes/QDlgProjectPlaneManagement.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

class PlaneSession : public qvtest::ViewerTest {
protected:
    void SetUp() override
    {
        ViewerTest::SetUp();
        newProject();
        // A wall 20 x 10 in the plane y = 0, facing -y.
        ref_ptr<IKvoModel> model = newKvoModel();
        ref_ptr<Pnt3fArray> v = newPnt3fArray();
        ref_ptr<UIntArray> t = newUIntArray();
        for (int j = 0; j <= 10; ++j)
            for (int i = 0; i <= 20; ++i)
                v->append(XPnt3f(float(i - 10), 0, float(j)));
        for (int j = 0; j < 10; ++j)
            for (int i = 0; i < 20; ++i) {
                const unsigned a = unsigned(j * 21 + i), b = a + 1, c = a + 22, d = a + 21;
                t->vec().insert(t->vec().end(), {a, b, c, a, c, d});
            }
        model->setVertices(v.get(), true);
        ref_ptr<IKvoMesh> mesh = model->newMesh(-1, false);
        mesh->setTriangleIndices(t.get(), true);
        model->addMesh(mesh);
        getMM()->setBareModel(model);
        ball = vm->modelViewer()->trackBall();
        ball->setViewport(800, 600);
        ball->setCamera(XPnt3d(0, -20, 5), XPnt3d(0, 0, 5), XPnt3d(0, 0, 1));
        getMM()->getRefPlaneMan(planes);
    }
    // Left click where a model point shows.
    void clickOn(const XPnt3d& p)
    {
        XPnt3d w;
        ball->projectToWindow(w, p.x, p.y, p.z);
        const long x = std::lround(w.x), y = std::lround(w.y);
        vm->mouseMove(kvoModelView, 0, x, y);
        vm->mouseDown(kvoModelView, kvoButtonLeft, x, y);
        vm->mouseUp(kvoModelView, 0, x, y);
    }
    QDlgProjectPlaneManagement* dialog() const
    {
        return qobject_cast<QDlgProjectPlaneManagement*>(vm->dialogHost()->getAttached());
    }
    CKvoTrackBall* ball = nullptr;
    ref_ptr<IKvoQvRefPlaneMan> planes;
};

} // namespace

TEST_F(PlaneSession, PickMoveDeleteAndCancelThroughTheDispatcher)
{
    ASSERT_EQ(cmdOnProjectPlaneManageQt(), 0);
    ASSERT_NE(vm->getCurrentTask(), nullptr);
    QDlgProjectPlaneManagement* dlg = dialog();
    ASSERT_NE(dlg, nullptr) << "the dialog is in the tool dock";
    EXPECT_EQ(dlg->windowTitle(), "Projection Plane Management");
    EXPECT_EQ(dlg->originTexts(), (QStringList{"0", "0", "0"}));

    // Three clicks on the wall make a plane; the fourth starts a new triple.
    clickOn(XPnt3d(-3, 0, 2));
    clickOn(XPnt3d(3, 0, 2));
    EXPECT_EQ(planes->getPlaneCount(), 0);
    clickOn(XPnt3d(0, 0, 7));
    ASSERT_EQ(planes->getPlaneCount(), 1);
    EXPECT_EQ(planes->getActivePlaneId(), 1);
    ref_ptr<IKvoQvRefPlane> p;
    planes->getPlane(p, 1);
    EXPECT_NEAR(p->getPlaneParam().distance(XPnt3d(5, 0, 5)), 0, 1e-4) << "the plane of the wall";
    EXPECT_LT(p->getPlaneParam().b, 0) << "its normal faces the viewer";
    EXPECT_LT(std::abs(p->getXDir().z), 0.002) << "X horizontal";
    ASSERT_EQ(dlg->table()->rowCount(), 1);
    EXPECT_EQ(dlg->table()->item(0, 1)->text(), "Plane1");
    EXPECT_TRUE(dlg->table()->item(0, 4)->text().startsWith("Total: 4 ("));
    EXPECT_EQ(dlg->originTexts()[1], QString::asprintf("%.6f", p->getOrigin().y));

    // A click on nothing and two clicks on one spot make nothing.
    vm->mouseDown(kvoModelView, kvoButtonLeft, 2, 2);
    clickOn(XPnt3d(1, 0, 1));
    clickOn(XPnt3d(1, 0, 1));
    clickOn(XPnt3d(5, 0, 3));
    EXPECT_EQ(planes->getPlaneCount(), 1);

    // One point: the plane square to the line of sight through it.
    dlg->chooseThreePoints(false);
    clickOn(XPnt3d(4, 0, 4));
    ASSERT_EQ(planes->getPlaneCount(), 2);
    EXPECT_EQ(planes->getActivePlaneId(), 2);
    EXPECT_EQ(dlg->table()->rowCount(), 2);

    // Move the active plane 0.5 along its normal (toward the viewer).
    planes->getPlane(p, 2);
    const XPnt3d before = p->getOrigin();
    dlg->chooseMove(true);
    dlg->chooseAxis(2);
    dlg->setStep(0.5);
    dlg->adjust(true);
    EXPECT_NEAR(length(p->getOrigin() - before), 0.5, 1e-9);
    EXPECT_LT(p->getOrigin().y, before.y);
    dlg->adjust(false);
    EXPECT_LT(length(p->getOrigin() - before), 1e-9);
    // Rotating by 0 changes nothing.
    dlg->chooseMove(false);
    dlg->setStep(0);
    const XPnt3d x0 = p->getXDir();
    dlg->adjust(true);
    EXPECT_EQ(p->getXDir(), x0);

    // Key P refreshes the table; Delete removes the selected (active) row.
    EXPECT_EQ(vm->keyDown(kvoModelView, Qt::Key_P, 0, 0), 0);
    dlg->table()->selectRow(1);
    dlg->table()->deleteSelected();
    EXPECT_EQ(planes->getPlaneCount(), 1);
    EXPECT_EQ(planes->getActivePlaneId(), -1);
    EXPECT_EQ(dlg->originTexts(), (QStringList{"0", "0", "0"}));
    dlg->table()->clearSelection();
    EXPECT_FALSE(dlg->table()->hideOthers());
    EXPECT_EQ(presenter->lastText(), "Please select a plane!");

    // Cancel: back to the planes there were when the tool opened (none).
    dlg->clickedCancel();
    EXPECT_EQ(planes->getPlaneCount(), 0);
    EXPECT_EQ(vm->getCurrentTask(), nullptr) << "the tool ended";
    EXPECT_EQ(vm->dialogHost()->getAttached(), nullptr);
}

TEST_F(PlaneSession, OkKeepsWhatWasMadeAndCancelBringsDeletedPlanesBack)
{
    ASSERT_EQ(cmdOnProjectPlaneManageQt(), 0);
    clickOn(XPnt3d(-3, 0, 2));
    clickOn(XPnt3d(3, 0, 2));
    clickOn(XPnt3d(0, 0, 7));
    dialog()->clickedOK();
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    ASSERT_EQ(planes->getPlaneCount(), 1);

    ASSERT_EQ(cmdOnProjectPlaneManageQt(), 0);
    dialog()->table()->selectRow(0);
    dialog()->table()->deleteSelected();
    EXPECT_EQ(planes->getPlaneCount(), 0);
    dialog()->clickedCancel();
    ASSERT_EQ(planes->getPlaneCount(), 1) << "Cancel brings the deleted plane back";
    EXPECT_EQ(planes->getActivePlaneId(), 1);

    // Saved with the project.
    ASSERT_EQ(getMM()->saveProject(), kvoOk);
    getMM()->closeProject();
    ASSERT_EQ(getMM()->openProject(scratch.file("p.qvj")), kvoOk);
    getMM()->getRefPlaneMan(planes);
    EXPECT_EQ(planes->getPlaneCount(), 1);
}

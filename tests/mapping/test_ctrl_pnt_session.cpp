#include <QFile>
// The control-point session driven through the dispatcher on a generated
// scene: Ctrl-clicks at the true positions of known vertices in both views,
// Compute, Mapping, OK and Cancel.

#include <QTableWidget>

#include "SampleProject.h"
#include "SampleWriter.h"
#include "commands/KvoCommands.h"
#include "mapping/KvoCtrlPntTask.h"
#include "mapping/QDlgTextureMapping.h"
#include "scene/KvoGeometry.h"
#include "support/ViewerSupport.h"

using namespace kvo;
using namespace qvsample;

namespace {

class CtrlPntSession : public qvtest::ViewerTest {
protected:
    void SetUp() override
    {
        ViewerTest::SetUp();
        SampleOptions o;
        o.photos = 2;
        o.triangles = 3000;
        o.photoWidth = 800;
        o.photoHeight = 600;
        o.texelsPerMetre = 16;
        std::string error;
        ASSERT_TRUE(writeSample(o, scratch.file("scene").toStdString(), &error, nullptr, &scene)) << error;
        QString why;
        ASSERT_EQ(buildProjectFromSample(scratch.file("scene"), scratch.file("p.qvj"), why), kvoOk);
        ref_ptr<IKvoProject> project;
        getMM()->getProject(project)->getImageDb(db);
        db->getImageInfo(info, 1);
        while (info->getCtrlImagePntCount() > 0)
            info->removeCtrlImagePnt(0);
        while (info->getCtrlWorldPntCount() > 0)
            info->removeCtrlWorldPnt(0);
        getMM()->setActiveImageId(1);
        // The image view shows the photograph pixel for pixel; the 3-D view
        // looks through the photograph's own camera.
        vm->imageViewer()->setSize(800, 600);
        vm->showActiveImage();
        vm->imageViewer()->transform().setZoomAndOffset(1.0, 0.0, 0.0);
        const SampleCamera& c = scene.cameras[0];
        ball = vm->modelViewer()->trackBall();
        ball->setViewport(800, 600);
        ball->setFovY(c.fovYDegrees());
        const XPnt3d eye = c.center(), fwd(c.R[6], c.R[7], c.R[8]);
        ball->setCamera(eye, eye + fwd * 10.0, XPnt3d(-c.R[3], -c.R[4], -c.R[5]));
        ball->setClip(0.5, 500);
        // Vertices the photograph shows, from every surface.
        for (const SampleSurface& s : scene.surfaces)
            for (long f = s.firstTriangle; f < s.firstTriangle + s.triangleCount;
                 f += std::max(1L, s.triangleCount / 4)) {
                const long v = long(scene.mesh.triangles[size_t(f) * 3]);
                const XPnt3f q = scene.mesh.vertices[size_t(v)];
                XPnt2d px;
                if (!c.project(XPnt3d(q.x, q.y, q.z), px) || px.x < 20 || px.y < 20 || px.x > 780 || px.y > 580)
                    continue;
                XPnt3d hit;
                ball->pickPoint(hit, px.x, px.y);
                if (hit.isValid() && length(hit - XPnt3d(q.x, q.y, q.z)) < 0.05)
                    visible.push_back(v);
            }
    }
    void clickImage(const XPnt2d& px)
    {
        XPnt2d s;
        vm->imageViewer()->imageToScreen(s, px);
        vm->mouseDown(kvoImageView, kvoModCtrl | kvoButtonLeft, std::lround(s.x), std::lround(s.y));
    }
    void clickModel(long vertex)
    {
        const XPnt3f q = scene.mesh.vertices[size_t(vertex)];
        XPnt3d w;
        ball->projectToWindow(w, q.x, q.y, q.z);
        vm->mouseDown(kvoModelView, kvoModCtrl | kvoButtonLeft, std::lround(w.x), std::lround(w.y));
    }
    XPnt2d truePixel(long vertex) const
    {
        const XPnt3f q = scene.mesh.vertices[size_t(vertex)];
        XPnt2d px;
        scene.cameras[0].project(XPnt3d(q.x, q.y, q.z), px);
        return px;
    }
    QDlgTextureMapping* dialog() const { return qobject_cast<QDlgTextureMapping*>(vm->dialogHost()->getAttached()); }
    SampleScene scene;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    CKvoTrackBall* ball = nullptr;
    std::vector<long> visible;
};

} // namespace

TEST_F(CtrlPntSession, PairsComputeMapAndOk)
{
    ASSERT_GE(visible.size(), 9u);
    ASSERT_EQ(cmdTexMappingQt(), 0);
    QDlgTextureMapping* dlg = dialog();
    ASSERT_NE(dlg, nullptr);
    EXPECT_EQ(dlg->windowTitle(), "Control Point Mapping");
    dlg->setVertexSnap(true);
    auto* task = dynamic_cast<IKvoQvTaskCtrlPnt*>(vm->getCurrentTask());
    ASSERT_NE(task, nullptr);

    // Two picks on the photograph, then two on the model: two pairs, in order.
    clickImage(truePixel(visible[0]));
    clickImage(truePixel(visible[1]));
    EXPECT_EQ(task->imagePicks().size(), 2u);
    clickModel(visible[0]);
    clickModel(visible[1]);
    ASSERT_EQ(info->getCtrlPntCount(), 2);
    XPnt2d uv;
    XPnt3d w;
    info->getCtrlImagePnt(uv, 1);
    info->getCtrlWorldPnt(w, 1);
    const XPnt3f v1 = scene.mesh.vertices[size_t(visible[1])];
    EXPECT_EQ(w, XPnt3d(v1.x, v1.y, v1.z)) << "snapped to the vertex";
    EXPECT_NEAR(uv.x * 800, truePixel(visible[1]).x, 0.6);
    EXPECT_NEAR((1 - uv.y) * 600, truePixel(visible[1]).y, 0.6);

    // U takes the waiting pick back, R puts it back; a new pair clears the redo.
    clickImage(truePixel(visible[2]));
    vm->keyDown(kvoImageView, Qt::Key_U, 0, 0);
    EXPECT_TRUE(task->imagePicks().empty());
    vm->keyDown(kvoImageView, Qt::Key_R, 0, 0);
    EXPECT_EQ(task->imagePicks().size(), 1u);
    clickModel(visible[2]);
    for (size_t k = 3; k < visible.size() && k < 12; ++k) {
        clickImage(truePixel(visible[k]));
        clickModel(visible[k]);
    }
    const long n = info->getCtrlPntCount();
    ASSERT_GE(n, 9);
    EXPECT_EQ(dlg->table()->rowCount(), int(n));
    EXPECT_EQ(dlg->computeState(), 2) << "every pair computes again, and 7 are enough";
    // The errors are below a pixel.
    for (int r = 0; r < dlg->table()->rowCount(); ++r)
        EXPECT_LT(std::abs(dlg->table()->item(r, 0)->text().toDouble()), 1.0) << r;

    ASSERT_EQ(dlg->onTexmapSum(), 0);
    ref_ptr<IKvoMesh> tex;
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, 1));
    ASSERT_GT(tex->getFaceCount(), 100);
    // Picks are whole pixels: the fit is good to about a pixel near the
    // points and drifts a little far from them.
    std::vector<double> errors;
    const UIntArray* t = tex->getTriangleIndices();
    for (long k = 0; k < t->getCount(); k += 5) {
        const XPnt2f u = tex->getUVs()->getAt(t->getAt(k));
        const XPnt2d px = truePixel(long(t->getAt(k)));
        errors.push_back(std::hypot(u.x * 800 - px.x, (1 - u.y) * 600 - px.y));
    }
    std::sort(errors.begin(), errors.end());
    EXPECT_LT(errors[errors.size() / 2], 1.5) << "median, pixels";
    EXPECT_LT(errors.back(), 12.0) << "worst, pixels";
    dlg->onBtnOK();
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    EXPECT_TRUE(getMM()->getTexMeshOfImage(tex, 1)) << "OK keeps the mapping";
}

TEST_F(CtrlPntSession, CancelBringsTheMeshesBackAndSixPointsDoNotCompute)
{
    ASSERT_GE(visible.size(), 9u);
    ASSERT_EQ(cmdTexMappingQt(), 0);
    dialog()->setVertexSnap(true);
    for (size_t k = 0; k < 6; ++k) {
        clickImage(truePixel(visible[k]));
        clickModel(visible[k]);
    }
    EXPECT_EQ(info->getCtrlPntCount(), 6);
    EXPECT_EQ(presenter->lastText(), "You should get seven points at least.");
    EXPECT_EQ(dialog()->computeState(), 0);
    EXPECT_EQ(dialog()->onTexmapSum(), -1);
    EXPECT_EQ(presenter->lastText(), "Please computer DLT parameters!");
    for (size_t k = 6; k < visible.size() && k < 12; ++k) {
        clickImage(truePixel(visible[k]));
        clickModel(visible[k]);
    }
    ASSERT_EQ(dialog()->computeState(), 2) << presenter->lastText().toStdString();
    ASSERT_EQ(dialog()->onTexmapSum(), 0);
    EXPECT_TRUE(getMM()->isImageMapped(1));
    dialog()->onBtnCancel();
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    EXPECT_FALSE(getMM()->isImageMapped(1)) << "Cancel takes the new mapping away";
    EXPECT_EQ(info->getCtrlPntCount(), long(std::min<size_t>(visible.size(), 12)))
        << "and leaves the points in the record";
}

TEST_F(CtrlPntSession, CancelWithoutNewPointsLeavesTheProjectByteForByte)
{
    // The second photograph keeps the points the scene gave it: a session that
    // computes and maps from them and is then cancelled changes nothing.
    getMM()->setActiveImageId(2);
    ref_ptr<IKvoImageInfo> second;
    db->getImageInfo(second, 2);
    ASSERT_GE(second->getCtrlPntCount(), 7);
    ASSERT_EQ(getMM()->saveProject(), kvoOk);
    auto bytes = [&] {
        QFile f(scratch.file("p.qvj"));
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    };
    const QByteArray before = bytes();
    ASSERT_FALSE(before.isEmpty());
    ASSERT_EQ(getMM()->saveProject(), kvoOk);
    EXPECT_TRUE(bytes() == before) << "saving is not deterministic";
    ASSERT_EQ(cmdTexMappingQt(), 0);
    ASSERT_EQ(dialog()->onBtnComputer(), 0) << presenter->lastText().toStdString();
    ASSERT_EQ(dialog()->onTexmapSum(), 0);
    EXPECT_TRUE(getMM()->isImageMapped(2));
    dialog()->onBtnCancel();
    EXPECT_FALSE(getMM()->isImageMapped(2));
    ASSERT_EQ(getMM()->saveProject(), kvoOk);
    EXPECT_TRUE(bytes() == before) << "the saved project differs after Cancel";
}

TEST_F(CtrlPntSession, PreviewKeysLookThroughTheImagesCamera)
{
    ASSERT_EQ(cmdTexMappingQt(), 0);
    QDlgTextureMapping* dlg = dialog();
    ZebQVVCParam camera;
    ASSERT_TRUE(getMM()->getVCParam(1, camera));
    ball->setCamera(XPnt3d(40, 40, 40), XPnt3d(0, 0, 0), XPnt3d(0, 0, 1));
    vm->keyDown(kvoModelView, Qt::Key_Q, 0, 0);
    EXPECT_EQ(dlg->previewState(), 1);
    EXPECT_LT(length(ball->getEye() - camera.eye), 1e-9) << "the view looks through the camera";
    vm->keyUp(kvoModelView, Qt::Key_Q, 0, 0);
    EXPECT_EQ(dlg->previewState(), 0);
    EXPECT_EQ(ball->getEye(), XPnt3d(40, 40, 40)) << "and back";
    vm->keyDown(kvoModelView, Qt::Key_E, 0, 0);
    EXPECT_EQ(dlg->previewState(), 2);
    vm->keyDown(kvoModelView, Qt::Key_E, 0, 0);
    EXPECT_EQ(dlg->previewState(), 0);
    // Ctrl hides the photograph while picking, and lets go of it after.
    vm->keyDown(kvoModelView, Qt::Key_Control, 0, kvoModCtrl);
    EXPECT_EQ(dlg->previewState(), 2);
    vm->keyUp(kvoModelView, Qt::Key_Control, 0, 0);
    EXPECT_EQ(dlg->previewState(), 0);
    dlg->onBtnCancel();
}

TEST_F(CtrlPntSession, AltDragSelectsThePointsInItsRectangle)
{
    ASSERT_GE(visible.size(), 3u);
    ASSERT_EQ(cmdTexMappingQt(), 0);
    dialog()->setVertexSnap(true);
    for (size_t k = 0; k < 3; ++k) {
        clickImage(truePixel(visible[k]));
        clickModel(visible[k]);
    }
    ASSERT_EQ(dialog()->table()->rowCount(), 3);
    // A rectangle round the second point only.
    XPnt2d s;
    vm->imageViewer()->imageToScreen(s, truePixel(visible[1]));
    vm->mouseDown(kvoImageView, kvoModAlt | kvoButtonLeft, std::lround(s.x) - 3, std::lround(s.y) - 3);
    vm->mouseMove(kvoImageView, kvoModAlt | kvoButtonLeft, std::lround(s.x) + 3, std::lround(s.y) + 3);
    vm->mouseUp(kvoImageView, kvoModAlt, std::lround(s.x) + 3, std::lround(s.y) + 3);
    const QList<QModelIndex> rows = dialog()->table()->selectionModel()->selectedRows();
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rows[0].row(), 1);
    dialog()->onBtnCancel();
}

TEST_F(CtrlPntSession, ProjectionAndPlainMappingThroughTheDialog)
{
    ASSERT_GE(visible.size(), 9u);
    ASSERT_EQ(cmdTexMappingQt(), 0);
    QDlgTextureMapping* dlg = dialog();
    dlg->setVertexSnap(true);
    for (size_t k = 0; k < visible.size() && k < 12; ++k) {
        clickImage(truePixel(visible[k]));
        clickModel(visible[k]);
    }
    // Projection: the camera of the points, then a mapping through it.
    dlg->setType(QDlgTextureMapping::Projection);
    EXPECT_EQ(dlg->computeState(), 1);
    ASSERT_EQ(dlg->onTexmapSum(), 0);
    ref_ptr<IKvoMesh> tex;
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, 1));
    ASSERT_GT(tex->getFaceCount(), 50);
    std::vector<double> errors;
    const UIntArray* t = tex->getTriangleIndices();
    for (long k = 0; k < t->getCount(); k += 7) {
        const XPnt2f u = tex->getUVs()->getAt(t->getAt(k));
        const XPnt2d px = truePixel(long(t->getAt(k)));
        errors.push_back(std::hypot(u.x * 800 - px.x, (1 - u.y) * 600 - px.y));
    }
    std::sort(errors.begin(), errors.end());
    EXPECT_LT(errors[errors.size() / 2], 3.0) << "median, pixels";
    ZebQVVCParam stored;
    ASSERT_TRUE(getMM()->getVCParam(1, stored));
    EXPECT_LT(length(stored.eye - scene.cameras[0].center()), 0.5) << "the camera found is the photograph's";

    // Plain: the photograph laid on the plane of the first three points.
    dlg->setType(QDlgTextureMapping::Plain);
    EXPECT_EQ(dlg->onTexmapSum(), 0);
    ref_ptr<IKvoImageInfo> rec;
    db->getImageInfo(rec, 1);
    EXPECT_EQ(rec->getMappingType(), 2);
    dlg->onBtnCancel();
    EXPECT_FALSE(getMM()->isImageMapped(1));
}

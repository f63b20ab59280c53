#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>

#include <functional>

#include "commands/KvoCommands.h"
#include "commands/QDlgProjectNew.h"
#include "platform/KvoModelManImpl.h"
#include "platform/KvoSampleScene.h"
#include "scene/KvoFile.h"
#include "support/ViewerSupport.h"
#include "ui/QDlgImageTree.h"

using namespace kvo;

namespace {

using Commands = qvtest::ViewerTest;

struct Row {
    const char* name;
    std::function<long()> run;
    long expected;
    QString text;  // empty: no message
    QString title; // checked when text is given
};

const QString kProjectMessage = "No project is open.please create a project.";

// A project with the sample model and two images.
void sampleProject(qvtest::ScratchDir& dir, ref_ptr<IKvoImageDb>& db, long ids[2])
{
    IKvoMM* mm = getMM();
    ASSERT_EQ(mm->newProject(dir.file("c.qvj")), 0);
    mm->setBareModel(makeSampleModel(6, 3));
    ref_ptr<IKvoProject> project;
    mm->getProject(project)->getImageDb(db);
    for (int i = 0; i < 2; ++i) {
        const QString path = dir.file(QString("i%1.png").arg(i));
        ASSERT_TRUE(qvtest::writeTestPicture(path, 20, 10, i));
        ASSERT_EQ(db->addImage(path, ids[i]), 0);
    }
}

} // namespace

TEST_F(Commands, WithoutAProjectEveryGuardedCommandAnswersItsRowAndStartsNothing)
{
    const Row rows[] = {
        {"cmdTexMappingQt", [] { return cmdTexMappingQt(); }, kvoNoProject, {}, {}},
        {"cmdTexMapAdjustQt", [] { return cmdTexMapAdjustQt(); }, kvoNoProject, {}, {}},
        {"cmdOnVCMappingQt", [] { return long(cmdOnVCMappingQt()); }, 0, {}, {}},
        {"cmdOnMeasure", [] { return cmdOnMeasure(); }, -1, "There is no project opened!", "Measure"},
        {"cmdOnToolMeasurementQt", [] { return cmdOnToolMeasurementQt(); }, kvoNoProject, {}, {}},
        {"cmdImgClip", [] { return long(cmdImgClip()); }, 1, kProjectMessage, ""},
        {"cmdOnModifyImageColorQt", [] { return cmdOnModifyImageColorQt(); }, -1, {}, {}},
        {"cmdGapMixed", [] { return long(cmdGapMixed()); }, 0, {}, {}},
        {"cmdRepairGap", [] { return long(cmdRepairGap()); }, 0, {}, {}},
        {"cmdImagePS", [] { return long(cmdImagePS()); }, 0, {}, {}},
        {"cmdTextDel", [] { return long(cmdTextDel()); }, 0, {}, {}},
        {"cmdTextDelByColor", [] { return long(cmdTextDelByColor()); }, 0, {}, {}},
        {"cmdFeather", [] { return long(cmdFeather()); }, 1, kProjectMessage, ""},
        {"cmdOnMeshPatchArea", [] { return cmdOnMeshPatchArea(); }, -1, kProjectMessage, ""},
        {"cmdOnSelStretchTex", [] { return cmdOnSelStretchTex(); }, -1, kProjectMessage, ""},
        {"cmdOnMergeBareMesh", [] { return cmdOnMergeBareMesh(); }, -1, kProjectMessage, ""},
        {"cmdOnProjectPlaneOrthImage", [] { return cmdOnProjectPlaneOrthImage(); }, kvoNoProject, {}, {}},
        {"cmdOnProjectPlaneOrthVirbigimage", [] { return cmdOnProjectPlaneOrthVirbigimage(); }, -1,
         "There is no project!", "Quovara"},
        {"cmdOnImageRotate",
         [] {
             cmdOnImageRotate(newLongArray(), true, true);
             return 0L;
         },
         0, "Please new or open a project!", "Rotate Image"},
        {"cmdOnImageShowMatrix",
         [] {
             cmdOnImageShowMatrix(newLongArray());
             return 0L;
         },
         0, "Please new or open a project!", "Show Matrix"},
        {"cmdOnSeamlessTexturedMesh", [] { return cmdOnSeamlessTexturedMesh(0, nullptr); }, kvoModelEmpty, {}, {}},
        {"cmdOnSelBareMeshNoTex", [] { return cmdOnSelBareMeshNoTex(); }, kvoModelEmpty, {}, {}},
        {"cmdOnReSelTexmesh", [] { return cmdOnReSelTexmesh(); }, kvoModelEmpty, {}, {}},
    };
    for (const Row& row : rows) {
        presenter->records.clear();
        EXPECT_EQ(row.run(), row.expected) << row.name;
        EXPECT_EQ(vm->getCurrentTask(), nullptr) << row.name;
        if (row.text.isEmpty()) {
            EXPECT_TRUE(presenter->records.isEmpty()) << row.name << " said " << presenter->lastText().toStdString();
        } else {
            ASSERT_EQ(presenter->records.size(), 1) << row.name;
            EXPECT_EQ(presenter->lastText(), row.text) << row.name;
            EXPECT_EQ(presenter->lastTitle(), row.title) << row.name;
            EXPECT_EQ(presenter->records.last().buttons, QList<QMessageBox::StandardButton>{QMessageBox::Ok});
        }
    }
}

TEST_F(Commands, WithoutAViewerManagerCommandsFailQuietly)
{
    zebUI::setVM(nullptr);
    EXPECT_EQ(cmdTexMappingQt(), -1);
    EXPECT_EQ(cmdOnClipPlaneManageQt(), -1);
    EXPECT_EQ(cmdOnProjectPlaneManageQt(), -1);
    EXPECT_FALSE(cmdImgClip());
    EXPECT_TRUE(presenter->records.isEmpty());
    zebUI::setVM(ref_ptr<IZebViewerMan>(vm.get()));
}

TEST_F(Commands, MapAdjustGuardsFollowTheMappingType)
{
    ref_ptr<IKvoImageDb> db;
    long ids[2];
    sampleProject(scratch, db, ids);
    presenter->records.clear();
    EXPECT_EQ(cmdTexMapAdjustQt(), -1);
    EXPECT_EQ(presenter->lastText(), "Please active a image!");
    getMM()->setActiveImageId(ids[0]);
    ref_ptr<IKvoImageInfo> info;
    db->getImageInfo(info, ids[0]);
    struct Case {
        long type;
        int points;
        QString text;
    } cases[] = {{0, 2, "Control points mapping needs 3 points at least!"},
                 {2, 2, "Plane mapping needs 3 points at least!"},
                 {1, 5, "Virtual camera mapping can not use this function!"},
                 {-1, 5, "The mapping type is error."}};
    for (const Case& c : cases) {
        info->setMappingType(c.type);
        while (info->getCtrlPntCount() < c.points) {
            info->addCtrlImagePnt(XPnt2d(0.1 * info->getCtrlPntCount(), 0.5));
            info->addCtrlWorldPnt(XPnt3d(info->getCtrlPntCount(), 0, 0));
        }
        EXPECT_EQ(cmdTexMapAdjustQt(), -1) << c.type;
        EXPECT_EQ(presenter->lastText(), c.text);
        EXPECT_EQ(presenter->lastTitle(), "Quovara");
        EXPECT_EQ(vm->getCurrentTask(), nullptr);
    }
}

namespace {
class BusyTask : public CQvTaskImp<IKvoQvTask> {
public:
    BusyTask() { busy = true; }
    long onTaskStart() override { return 0; }
    long onTaskEnd() override
    {
        ++ended;
        return 0;
    }
    void release() { busy = false; }
    int ended = 0;
};
} // namespace

TEST_F(Commands, ARefusedEndStartsNothingAndIsNoError)
{
    ref_ptr<BusyTask> busy(new BusyTask());
    vm->startTask(busy.get());
    EXPECT_TRUE(cmdImgClip());
    EXPECT_EQ(cmdOnMatchManager(), 0);
    EXPECT_EQ(vm->getCurrentTask(), busy.get());
    EXPECT_EQ(busy->ended, 0);
    EXPECT_TRUE(presenter->records.isEmpty());
    busy->release();
}

TEST_F(Commands, NewProjectDialogCancelEmptiesThePathAndAcceptGivesIt)
{
    QString path = "/somewhere/old.qvj";
    presenter->dialogScript = [](QDialog*) { return int(QDialog::Rejected); };
    EXPECT_EQ(cmdPrjPathNewQt(path), kvoNewProjectCancelled);
    EXPECT_TRUE(path.isEmpty());

    const QString folder = scratch.path();
    presenter->dialogScript = [&](QDialog* d) {
        auto* dlg = dynamic_cast<QDlgProjectNew*>(d);
        if (!dlg)
            return int(QDialog::Rejected);
        dlg->setFolder(folder);
        dlg->setProjectName("bridge");
        return int(QDialog::Accepted);
    };
    EXPECT_EQ(cmdPrjPathNewQt(path), 0);
    EXPECT_EQ(path, QDir(folder).absoluteFilePath("bridge.qvj"));
    EXPECT_EQ(presenter->records.last().kind, "dialog");

    // A name that is taken is not accepted.
    QFile(QDir(folder).absoluteFilePath("bridge.qvj")).open(QIODevice::WriteOnly);
    path = "x";
    EXPECT_EQ(cmdPrjPathNewQt(path), kvoNewProjectCancelled);
    EXPECT_TRUE(path.isEmpty());
}

TEST_F(Commands, ImageTreeGivesTheChosenId)
{
    ref_ptr<IKvoImageDb> db;
    long ids[2];
    sampleProject(scratch, db, ids);
    presenter->dialogScript = [&](QDialog* d) {
        auto* tree = dynamic_cast<QDlgImageTree*>(d);
        EXPECT_EQ(tree->imageCount(), 2);
        tree->selectId(ids[1]);
        return int(QDialog::Accepted);
    };
    EXPECT_EQ(cmdImageTreeQt(), ids[1]);
    presenter->dialogScript = nullptr;
    EXPECT_EQ(cmdImageTreeQt(), -1);
    EXPECT_EQ(cmdOnOpenAbout(), 1);
    EXPECT_EQ(cmdOnOpenUpdate(0), 1);
}

TEST_F(Commands, MarksAllClearAndReverse)
{
    ref_ptr<IKvoImageDb> db;
    long ids[2];
    sampleProject(scratch, db, ids);
    IKvoMM* mm = getMM();
    unsigned long long lastCount = 0;
    static_cast<CKvoMM*>(mm)->setSelMarkListener([&](unsigned long long n) { lastCount = n; });
    ref_ptr<MeshArray> meshes;
    mm->getAllMeshes(meshes);
    EXPECT_EQ(selMeshAllInPainter(true), -1) << "no active image";
    EXPECT_TRUE(mm->isSelectionEmpty());

    EXPECT_EQ(selMeshAllInPainter(false), 0);
    EXPECT_EQ(getSelMarkCount(meshes), 72u + 90u);
    EXPECT_EQ(meshes->getAt(1)->getSelColor(), KvoColor4b(255, 0, 0, 255));
    EXPECT_EQ(lastCount, 90u) << "each mesh reports its own count";

    // The active image's texture mesh alone.
    ref_ptr<IKvoMesh> tex;
    mm->createTexMesh(tex, false, ids[0], false);
    ref_ptr<UIntArray> t = meshes->getAt(1)->getTriangleIndices()->clone();
    t->resize(30);
    tex->setTriangleIndices(t.get(), true);
    mm->setActiveImageId(ids[0]);
    EXPECT_EQ(selMeshReverseInPainter(true), 0);
    EXPECT_EQ(getSelMarkCount(tex), 10u);
    EXPECT_EQ(selMeshReverseInPainter(true), 0);
    EXPECT_EQ(getSelMarkCount(tex), 0u);

    QSignalSpy redraw(vm.get(), &CZebViewerMan::redrawModelRequested);
    EXPECT_EQ(selMeshClearInPainter(), 0);
    EXPECT_TRUE(mm->isSelectionEmpty());
    EXPECT_EQ(lastCount, 0u);
    EXPECT_EQ(redraw.count(), 1);
    EXPECT_EQ(selMeshReverseInPainter(false), 0);
    EXPECT_EQ(getSelMarkCount(mm->getAllMeshes(meshes)), 72u + 90u + 10u);
    static_cast<CKvoMM*>(mm)->setSelMarkListener(nullptr);
}

TEST_F(Commands, FrontPointBoundingBoxAndTemporaryCopies)
{
    XPnt3d out(7, 7, 7);
    EXPECT_EQ(getFrontPnt(out), -1);
    EXPECT_EQ(out, XPnt3d(7, 7, 7)) << "left as it was";
    Enve3d box = modelMinBoundBox();
    EXPECT_FALSE(box.isValid());
    EXPECT_EQ(presenter->lastText(), "No model data!");

    ref_ptr<IKvoImageDb> db;
    long ids[2];
    sampleProject(scratch, db, ids);
    ref_ptr<IKvoTrackBall> ball;
    vm->modelViewer()->getTrackBall(ball);
    ball->setCamera(XPnt3d(-5, -40, 0), XPnt3d(0, 0, 0), XPnt3d(0, 0, 1));
    const long index = getFrontPnt(out);
    ASSERT_GE(index, 0);
    // Brute force: the first vertex, in triangle order, of the least distance.
    ref_ptr<IKvoModel> model;
    getMM()->getBareModel(model);
    const XPnt3f* v = model->getVertices()->getData();
    EXPECT_EQ(out, v[index].to3d());
    double best = 1e300;
    for (long i = 0; i < model->getVertexCount(); ++i)
        best = std::min(best, (v[i].to3d() - XPnt3d(-5, -40, 0)).norm());
    EXPECT_DOUBLE_EQ((out - XPnt3d(-5, -40, 0)).norm(), best);

    // An exact tie: two vertices at the same distance; the first in triangle order wins.
    for (auto order : {std::vector<unsigned>{1, 0, 2}, std::vector<unsigned>{0, 1, 2}}) {
        ref_ptr<IKvoModel> tiny = newKvoModel();
        ref_ptr<Pnt3fArray> v3 = newPnt3fArray();
        v3->vec() = {{1, 0, 0}, {-1, 0, 0}, {0, 5, 0}};
        tiny->setVertices(v3.get(), true);
        ref_ptr<IKvoMesh> mesh = tiny->newMesh(-1, false);
        ref_ptr<UIntArray> t = newUIntArray();
        t->vec() = order;
        mesh->setTriangleIndices(t.get(), true);
        tiny->addMesh(mesh);
        getMM()->setBareModel(tiny);
        ball->setCamera(XPnt3d(0, -10, 0), XPnt3d(0, 0, 0), XPnt3d(0, 0, 1));
        EXPECT_EQ(getFrontPnt(out), long(order[0]));
    }
    getMM()->setBareModel(model);

    box = modelMinBoundBox();
    EXPECT_EQ(box.getMinPnt(), XPnt3d(-20, -20, 0));
    EXPECT_EQ(box.getMaxPnt(), XPnt3d(20, 20, 8));

    const QString copy = getTempImgPath(ids[1]);
    EXPECT_EQ(copy, getWorkFolder() + QString("/%1.png").arg(ids[1]));
    EXPECT_TRUE(QFile::exists(copy));
    QFile::remove(copy);
    EXPECT_TRUE(getTempImgPath(99).isEmpty());
    EXPECT_EQ(cmdOnPSEdit(copy, ids[0]), 0);
}

TEST_F(Commands, TheImagePanelHearsOfNewImages)
{
    ref_ptr<IKvoImageDb> db;
    long ids[2];
    sampleProject(scratch, db, ids);
    QSignalSpy spy(vm->imagePanel(), &CZebImagePanel::refreshRequested);
    db->addEvent(newImageDbEvent());
    long id;
    ASSERT_TRUE(qvtest::writeTestPicture(scratch.file("n.png"), 8, 8));
    db->addImage(scratch.file("n.png"), id);
    db->removeImage(id);
    ASSERT_EQ(spy.count(), 2);
    EXPECT_EQ(spy.at(0).at(0).toLongLong(), id);
    EXPECT_EQ(spy.at(1).at(0).toLongLong(), 0);
}

TEST_F(Commands, MessageHelpersAnswerWithTheButtonsChosen)
{
    presenter->buttonAnswers = {QMessageBox::Yes, QMessageBox::No, QMessageBox::Cancel, QMessageBox::NoButton};
    EXPECT_TRUE(msgWantOKQt("Go on?"));
    EXPECT_EQ(presenter->records.last().buttons,
              (QList<QMessageBox::StandardButton>{QMessageBox::Yes, QMessageBox::No, QMessageBox::Cancel}));
    EXPECT_FALSE(msgYesNoQt("Sure?", "Delete"));
    EXPECT_EQ(presenter->lastTitle(), "Delete");
    QString title = "T", text = "Save?";
    EXPECT_EQ(msgYesNoCancel(title, text), 4194304);
    EXPECT_EQ(presenter->records.last().icon, QMessageBox::Question);
    EXPECT_EQ(msgYesNoCancel(title, text), 4194304) << "a closed box counts as Cancel";
    msgSucceedQt("Done");
    EXPECT_EQ(presenter->lastTitle(), "Quovara");
    EXPECT_EQ(resultMessage(kvoTooFewPoints), "There are no enough control points!");
    EXPECT_EQ(resultMessage(kvoTooFewPoints, true),
              "Error: Point number smaller than 3, not enough for define a plane!");
    EXPECT_EQ(resultMessage(kvoImageNotMapped, false, true),
              "The image id you selected did not be mapped to the model!");
    EXPECT_TRUE(resultMessage(kvoModelExists).isEmpty());
}

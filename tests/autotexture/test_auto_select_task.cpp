// The automatic best-texture session driven through the dispatcher on a
// generated scene whose photographs are mapped through their true cameras:
// the guard, Apply twice, OK and Cancel.

#include <QGroupBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QSlider>
#include <QSpinBox>

#include <map>

#include "autotexture/KvoTaskTexAutoSelBest.h"
#include "autotexture/QDlgTxtAutoSelBest.h"
#include "commands/KvoCommands.h"
#include "support/SampleSupport.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

// What a texture mesh holds, byte for byte.
struct MeshState {
    long meshId = 0;
    QString name;
    QByteArray triangles, uvs, corners, normals;
    bool operator==(const MeshState& o) const
    {
        return meshId == o.meshId && name == o.name && triangles == o.triangles && uvs == o.uvs &&
               corners == o.corners && normals == o.normals;
    }
};

template <class A> QByteArray bytesOf(const A* a)
{
    if (!a || a->getCount() == 0)
        return QByteArray();
    return QByteArray(reinterpret_cast<const char*>(a->getData()), int(a->getCount() * sizeof(*a->getData())));
}

// Texture meshes by image id.
using SceneState = std::map<long, MeshState>;

void PrintTo(const MeshState& m, std::ostream* os)
{
    *os << "mesh " << m.meshId << " with " << m.triangles.size() / 12 << " faces";
}

class AutoSelectTask : public qvtest::ProgressViewerTest {
protected:
    void SetUp() override
    {
        ProgressViewerTest::SetUp();
        // Every photograph mapped through its camera: texture meshes that overlap.
        ASSERT_NO_FATAL_FAILURE(qvtest::openMappedSample(scratch, {3, 2000, 480, 360, 12}));
        mm = getMM();
        ref_ptr<IKvoProject> project;
        mm->getProject(project)->getImageDb(db);
        db->getImageIds(ids);
        ASSERT_EQ(mm->getTexMeshCount(), 3);
        watchProgress();
    }

    SceneState state() const
    {
        SceneState s;
        ref_ptr<MeshArray> meshes;
        mm->getTexMeshes(meshes);
        for (const auto& m : meshes->vec()) {
            MeshState& e = s[m->getImageId()];
            e.meshId = m->getId();
            e.name = m->getName();
            e.triangles = bytesOf(m->getTriangleIndices());
            e.uvs = bytesOf(m->getUVs());
            e.corners = bytesOf(m->getCornerTexIndices());
            e.normals = bytesOf(m->getFaceNormals());
        }
        return s;
    }

    QDlgTxtAutoSelBest* dialog() const { return qobject_cast<QDlgTxtAutoSelBest*>(vm->dialogHost()->getAttached()); }
    QPushButton* button(const QString& text) const
    {
        for (QPushButton* b : dialog()->findChildren<QPushButton*>())
            if (b->text() == text)
                return b;
        return nullptr;
    }
    void click(const QString& text)
    {
        QPushButton* b = button(text);
        ASSERT_NE(b, nullptr) << text.toStdString();
        b->click();
    }
    void start()
    {
        ASSERT_EQ(cmdOnTexAutoSelBest(), 0);
        ASSERT_NE(dynamic_cast<IKvoQvTaskTexAutoSelBest*>(vm->getCurrentTask()), nullptr);
        ASSERT_NE(dialog(), nullptr);
    }
    // The dialog's deferred deletion, as the event loop would run it.
    static void flushDeletes() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    IKvoMM* mm = nullptr;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<LongArray> ids;
};

} // namespace

TEST_F(AutoSelectTask, TheFormAsItOpens)
{
    start();
    QDlgTxtAutoSelBest* dlg = dialog();
    EXPECT_EQ(dlg->windowTitle(), "Automatic Select Best Texture");
    for (const char* text : {"OK", "Cancel", "Apply"}) {
        ASSERT_NE(button(text), nullptr) << text;
        EXPECT_TRUE(button(text)->isEnabled()) << text;
    }
    EXPECT_EQ(dlg->tipLines(),
              QStringList({"LeftButton select interested parts", "LeftButton + Ctrl select uninterested parts",
                           "'Delete' key can delete exist parts"}));
    EXPECT_EQ(dlg->getSelectMode(), 1);
    EXPECT_FALSE(dlg->hasResult());
    QGroupBox* panel = nullptr;
    for (QGroupBox* g : dlg->findChildren<QGroupBox*>())
        if (g->title() == "Auto-Select Best Texture")
            panel = g;
    ASSERT_NE(panel, nullptr);
    EXPECT_TRUE(panel->isHidden());
    QSlider* slider = panel->findChild<QSlider*>();
    QSpinBox* spin = panel->findChild<QSpinBox*>();
    ASSERT_TRUE(slider && spin);
    EXPECT_EQ(slider->minimum(), 5);
    EXPECT_EQ(slider->maximum(), 300);
    EXPECT_EQ(slider->value(), 20);
    EXPECT_EQ(spin->minimum(), 5);
    EXPECT_EQ(spin->maximum(), 300);
    EXPECT_EQ(spin->singleStep(), 5);
    EXPECT_EQ(spin->value(), 20);
    EXPECT_FALSE(button("Undo")->isEnabled());
    EXPECT_FALSE(button("Redo")->isEnabled());
    // The fragment controls follow each other and the two number buttons.
    click("300");
    EXPECT_EQ(slider->value(), 300);
    EXPECT_EQ(spin->value(), 300);
    click("5");
    EXPECT_EQ(spin->value(), 5);
    slider->setValue(45);
    EXPECT_EQ(spin->value(), 45);
    spin->setValue(120);
    EXPECT_EQ(slider->value(), 120);
    EXPECT_TRUE(presenter->records.isEmpty());
}

TEST_F(AutoSelectTask, FewerThanTwoTextureMeshesIsRefused)
{
    ref_ptr<IKvoMesh> tex;
    mm->getTexMeshOfImage(tex, ids->getAt(1));
    mm->deleteTexMesh(tex);
    mm->getTexMeshOfImage(tex, ids->getAt(2));
    mm->deleteTexMesh(tex);
    ASSERT_EQ(mm->getTexMeshCount(), 1);
    const SceneState before = state();
    start();
    click("Apply");
    ASSERT_EQ(presenter->records.size(), 1);
    EXPECT_EQ(presenter->lastText(), "Mesh Count is 2 at least");
    EXPECT_EQ(presenter->lastTitle(), "");
    EXPECT_EQ(presenter->records.last().buttons, QList<QMessageBox::StandardButton>{QMessageBox::Ok});
    EXPECT_FALSE(mm->isTexEditOpen());
    EXPECT_EQ(state(), before);
    EXPECT_TRUE(captions.isEmpty());
    EXPECT_NE(vm->getCurrentTask(), nullptr) << "the session goes on";
}

TEST_F(AutoSelectTask, OpeningClosesATextureEditSessionLeftOpen)
{
    mm->openTexEdit(nullptr, 1, 0);
    ref_ptr<IKvoMesh> tex;
    mm->getTexMeshOfImage(tex, ids->getAt(0));
    ref_ptr<UIntArray> none = newUIntArray();
    tex->setTriangles(none.get(), true);
    const SceneState edited = state();
    start();
    EXPECT_FALSE(mm->isTexEditOpen());
    click("Cancel");
    EXPECT_EQ(state(), edited) << "Cancel goes back no further than the opening";
}

TEST_F(AutoSelectTask, ApplyTwiceStartsFromTheStateBeforeTheFirst)
{
    const SceneState before = state();
    start();
    click("Apply");
    ASSERT_EQ(dialog()->lastResult(), 0) << dialog()->lastReport().skipped.join("; ").toStdString();
    EXPECT_TRUE(presenter->records.isEmpty());
    EXPECT_TRUE(mm->isTexEditOpen());
    EXPECT_TRUE(captions.contains("select best texture....")) << captions.join(" | ").toStdString();
    EXPECT_DOUBLE_EQ(progress.getPosition(), 1.0);
    const SceneState once = state();
    ASSERT_NE(once, before);
    // No triangle is in two texture meshes any more.
    std::map<XTrip<unsigned>, long> owner;
    for (const auto& kv : once) {
        const unsigned* t = reinterpret_cast<const unsigned*>(kv.second.triangles.constData());
        for (int f = 0; f < kv.second.triangles.size() / 12; ++f)
            EXPECT_TRUE(
                owner.emplace(XTrip<unsigned>(t[3 * f], t[3 * f + 1], t[3 * f + 2]).normalize(), kv.first).second);
    }
    EXPECT_GT(owner.size(), 0u);

    // Spoil the result; the second Apply must not build on it.
    for (long id : ids->vec()) {
        ref_ptr<IKvoMesh> tex;
        if (mm->getTexMeshOfImage(tex, id) && tex) {
            ref_ptr<UIntArray> half = newUIntArray();
            half->vec().assign(tex->getTriangleIndices()->vec().begin(),
                               tex->getTriangleIndices()->vec().begin() + tex->getFaceCount() / 2 * 3);
            tex->setTriangles(half.get(), true);
            ref_ptr<Pnt2fArray> flat = newPnt2fArray();
            flat->vec().assign(size_t(tex->getUVs()->getCount()), XPnt2f(0.5f, 0.5f));
            tex->setUVs(flat.get());
        }
    }
    progress.reset();
    click("Apply");
    EXPECT_EQ(dialog()->lastResult(), 0);
    EXPECT_EQ(state(), once);
    EXPECT_TRUE(mm->isTexEditOpen());

    // And Cancel after two Applies goes back to before the first.
    click("Cancel");
    EXPECT_EQ(state(), before);
}

TEST_F(AutoSelectTask, OkKeepsTheResult)
{
    QSignalSpy closed(vm->taskPanel(), &CZebTaskPanel::closeRequested);
    start();
    click("Apply");
    ASSERT_EQ(dialog()->lastResult(), 0);
    const SceneState after = state();
    QPointer<QDlgTxtAutoSelBest> dlg = dialog();
    click("OK");
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    EXPECT_EQ(vm->dialogHost()->getAttached(), nullptr);
    EXPECT_EQ(closed.count(), 1);
    EXPECT_EQ(state(), after);
    EXPECT_FALSE(captions.contains("Recovering..."));
    flushDeletes();
    EXPECT_TRUE(dlg.isNull());
    // The way back stays open until another session opens; then the result is kept.
    EXPECT_TRUE(mm->isTexEditOpen());
    start();
    EXPECT_FALSE(mm->isTexEditOpen());
    click("Cancel");
    EXPECT_EQ(state(), after);
}

TEST_F(AutoSelectTask, CancelRestoresTheMeshesExactly)
{
    QSignalSpy closed(vm->taskPanel(), &CZebTaskPanel::closeRequested);
    const SceneState before = state();
    const long meshes = mm->getTexMeshCount();
    start();
    click("Apply");
    ASSERT_EQ(dialog()->lastResult(), 0);
    ASSERT_NE(state(), before);
    QPointer<QDlgTxtAutoSelBest> dlg = dialog();
    progress.reset();
    captions.clear();
    click("Cancel");
    EXPECT_EQ(captions.value(0), "Recovering...");
    EXPECT_DOUBLE_EQ(progress.getPosition(), 1.0);
    EXPECT_EQ(state(), before);
    EXPECT_EQ(mm->getTexMeshCount(), meshes);
    EXPECT_FALSE(mm->isTexEditOpen());
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    EXPECT_EQ(vm->dialogHost()->getAttached(), nullptr);
    EXPECT_EQ(closed.count(), 1);
    flushDeletes();
    EXPECT_TRUE(dlg.isNull());
    EXPECT_TRUE(presenter->records.isEmpty());
}

TEST_F(AutoSelectTask, CancelWithoutApplyChangesNothing)
{
    const SceneState before = state();
    start();
    click("Cancel");
    EXPECT_EQ(state(), before);
    EXPECT_FALSE(captions.contains("Recovering..."));
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
}

TEST_F(AutoSelectTask, AnotherCommandEndsTheSessionAndTakesTheDialog)
{
    start();
    QPointer<QDlgTxtAutoSelBest> dlg = dialog();
    ASSERT_EQ(cmdTexMappingQt(), 0);
    EXPECT_EQ(dynamic_cast<IKvoQvTaskTexAutoSelBest*>(vm->getCurrentTask()), nullptr);
    EXPECT_NE(vm->dialogHost()->getAttached(), dlg.data());
    flushDeletes();
    EXPECT_TRUE(dlg.isNull());
}

TEST_F(AutoSelectTask, TheCommandNeedsAProject)
{
    mm->closeProject();
    EXPECT_EQ(cmdOnTexAutoSelBest(), kvoNoProject);
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
}

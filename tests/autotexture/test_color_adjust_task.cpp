// The colour adjustment session driven through the dispatcher on a generated
// scene whose photographs differ in exposure and white balance: the form,
// Apply and Cancel leaving the saved project as it was, Apply twice giving
// what Apply once gives, and OK keeping the result through a save.

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDirIterator>
#include <QPlainTextEdit>
#include <QPushButton>

#include <opencv2/core.hpp>

#include <map>

#include "autotexture/KvoBestImage.h"
#include "autotexture/KvoTaskTexAutoAdjustImgColor.h"
#include "autotexture/QDlgTexAutoAdjustImgColor.h"
#include "commands/KvoCommands.h"
#include "support/SampleSupport.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

// The files of a folder (relative path -> digest), without the corrected
// JPEG files, which stay from run to run by design.
std::map<QString, QByteArray> folderDigest(const QString& folder)
{
    std::map<QString, QByteArray> out;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString rel = QDir(folder).relativeFilePath(path);
        if (rel.startsWith(kvoColorResultFolder))
            continue;
        QFile f(path);
        if (f.open(QIODevice::ReadOnly))
            out[rel] = QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha1);
    }
    return out;
}

class AdjustColourTask : public qvtest::ProgressViewerTest {
protected:
    void SetUp() override
    {
        ProgressViewerTest::SetUp();
        ASSERT_NO_FATAL_FAILURE(qvtest::openMappedSample(scratch, {3, 2000, 480, 360, 12}));
        mm = getMM();
        // One photograph a triangle, patches side by side: the seams the
        // colour model measures.
        KvoBestImageReport sel;
        ASSERT_EQ(selBestImgForFace(nullptr, &sel), 0);
        if (mm->isTexEditOpen()) {
            mm->commitTexEdit();
            mm->closeTexEdit();
        }
        ASSERT_GE(mm->getTexMeshCount(), 2);
        ASSERT_EQ(mm->saveProject(), kvoOk);
        watchProgress();
    }

    // The texture meshes' pictures by image id.
    std::map<long, cv::Mat> pictures() const
    {
        std::map<long, cv::Mat> out;
        ref_ptr<MeshArray> meshes;
        mm->getTexMeshes(meshes);
        for (const auto& m : meshes->vec()) {
            ref_ptr<IKvoImage> img;
            m->getImage(img);
            cv::Mat rgba;
            if (img)
                img->getMat(rgba);
            out[m->getImageId()] = rgba.clone();
        }
        return out;
    }
    static double largestDifference(const std::map<long, cv::Mat>& a, const std::map<long, cv::Mat>& b)
    {
        EXPECT_EQ(a.size(), b.size());
        double d = 0;
        for (const auto& kv : a) {
            auto o = b.find(kv.first);
            if (o == b.end() || o->second.size() != kv.second.size())
                return 1e9;
            d = std::max(d, cv::norm(kv.second, o->second, cv::NORM_INF));
        }
        return d;
    }

    QDlgTexAutoAdjustImgColor* dialog() const
    {
        return qobject_cast<QDlgTexAutoAdjustImgColor*>(vm->dialogHost()->getAttached());
    }
    void click(const QString& text)
    {
        QDlgTexAutoAdjustImgColor* d = dialog();
        ASSERT_NE(d, nullptr);
        for (QPushButton* b : d->findChildren<QPushButton*>())
            if (b->text() == text) {
                b->click();
                return;
            }
        FAIL() << "no button " << text.toStdString();
    }
    void start()
    {
        ASSERT_EQ(cmdOnTexAutoAdjustImgColor(), 0);
        ASSERT_NE(dynamic_cast<IKvoTaskTexAutoAdjustImgColor*>(vm->getCurrentTask()), nullptr);
        ASSERT_NE(dialog(), nullptr);
    }
    // The dialog's deferred deletion, as the event loop would run it.
    static void flushDeletes() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }
    QString folder() const
    {
        ref_ptr<IKvoProject> project;
        mm->getProject(project);
        return project->getFolder();
    }

    IKvoMM* mm = nullptr;
};

} // namespace

TEST_F(AdjustColourTask, ApplyThenCancelLeavesTheSavedProjectAsItWas)
{
    const auto saved = folderDigest(folder());
    const auto before = pictures();
    start();
    QDlgTexAutoAdjustImgColor* dlg = dialog();
    EXPECT_EQ(dlg->windowTitle(), "Automatic Adjust Image Color");
    EXPECT_TRUE(dlg->reportLines().isEmpty());

    click("Apply");
    EXPECT_EQ(dlg->lastResult(), 0);
    EXPECT_TRUE(presenter->records.isEmpty());
    EXPECT_TRUE(mm->isTexEditOpen());
    ASSERT_FALSE(dlg->reportLines().isEmpty());
    EXPECT_TRUE(dlg->reportLines()[0].startsWith("Seam colour step:")) << dlg->reportLines()[0].toStdString();
    EXPECT_LT(dlg->lastReport().colour.stepAfter, dlg->lastReport().colour.stepBefore);
    EXPECT_GT(largestDifference(before, pictures()), 2.0) << "the photographs differ in exposure";
    EXPECT_TRUE(captions.contains("Adjust Image Color..."));

    click("Cancel");
    flushDeletes();
    EXPECT_TRUE(captions.contains("Recovering..."));
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    EXPECT_FALSE(mm->isTexEditOpen());
    EXPECT_EQ(vm->dialogHost()->getAttached(), nullptr);
    EXPECT_EQ(largestDifference(before, pictures()), 0.0);
    ASSERT_EQ(mm->saveProject(), kvoOk);
    EXPECT_EQ(folderDigest(folder()), saved);
}

TEST_F(AdjustColourTask, ApplyTwiceGivesWhatOnceGivesAndOKKeepsItThroughASave)
{
    start();
    click("Apply");
    ASSERT_EQ(dialog()->lastResult(), 0);
    const auto once = pictures();
    const double stepOnce = dialog()->lastReport().colour.stepAfter;
    click("Apply");
    ASSERT_EQ(dialog()->lastResult(), 0);
    EXPECT_EQ(largestDifference(once, pictures()), 0.0);
    EXPECT_DOUBLE_EQ(dialog()->lastReport().colour.stepAfter, stepOnce);

    click("OK");
    flushDeletes();
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    EXPECT_FALSE(mm->isTexEditOpen());
    EXPECT_EQ(largestDifference(once, pictures()), 0.0);
    EXPECT_TRUE(mm->isDirty());
    ref_ptr<IKvoProject> project;
    const QString file = mm->getProject(project)->getFilePath();
    ASSERT_EQ(mm->saveProject(), kvoOk);
    mm->closeProject();
    ASSERT_EQ(mm->openProject(file), kvoOk);
    EXPECT_EQ(largestDifference(once, pictures()), 0.0) << "kept losslessly";
}

// A second tool's session is not the way back of this one: what it left is
// kept when the dialog opens, and Cancel goes back no further.
TEST_F(AdjustColourTask, CancelGoesBackNoFurtherThanTheDialogsStart)
{
    ASSERT_EQ(mm->openTexEdit(nullptr, 1, 1), 0);
    ref_ptr<MeshArray> meshes;
    mm->getTexMeshes(meshes);
    ref_ptr<IKvoMesh> first = (*meshes)[0];
    const long faces = first->getFaceCount();
    ref_ptr<UIntArray> fewer = first->getTriangleIndices()->clone();
    fewer->resize(3 * (faces - 1));
    first->setTriangleIndices(fewer.get(), true);
    start();
    EXPECT_FALSE(mm->isTexEditOpen());
    click("Apply");
    click("Cancel");
    flushDeletes();
    EXPECT_EQ(first->getFaceCount(), faces - 1);
}

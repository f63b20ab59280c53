// Texture > Adjust Image Colours in the main window: the session's dialog in
// the tool dock, Apply with its report, and Cancel closing the dock with the
// pictures as they were.

#include <QAction>
#include <QApplication>
#include <QDockWidget>
#include <QPushButton>

#include <opencv2/core.hpp>

#include "MainWindow.h"
#include "WindowTest.h"
#include "autotexture/KvoBestImage.h"
#include "autotexture/KvoTaskTexAutoAdjustImgColor.h"
#include "autotexture/QDlgTexAutoAdjustImgColor.h"
#include "support/SampleSupport.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

class AdjustColourMenu : public qvtest::WindowTest {
protected:
    static cv::Mat firstPicture()
    {
        ref_ptr<MeshArray> meshes;
        getMM()->getTexMeshes(meshes);
        ref_ptr<IKvoImage> img;
        (*meshes)[0]->getImage(img);
        cv::Mat rgba;
        img->getMat(rgba);
        return rgba.clone();
    }
};

} // namespace

TEST_F(AdjustColourMenu, TheSessionLivesInTheToolDock)
{
    QAction* entry = action("Adjust Image Colours...");
    ASSERT_NE(entry, nullptr);
    EXPECT_FALSE(entry->isEnabled()) << "waits for a project";

    ASSERT_NO_FATAL_FAILURE(qvtest::openMappedSample(scratch, {3, 1500, 400, 300, 10}));
    ASSERT_EQ(selBestImgForFace(nullptr, nullptr), 0);
    if (getMM()->isTexEditOpen()) {
        getMM()->commitTexEdit();
        getMM()->closeTexEdit();
    }
    window->refreshAll();
    ASSERT_TRUE(entry->isEnabled());
    const cv::Mat before = firstPicture();

    entry->trigger();
    QApplication::processEvents();
    ASSERT_NE(dynamic_cast<IKvoTaskTexAutoAdjustImgColor*>(vm->getCurrentTask()), nullptr);
    auto* dialog = qobject_cast<QDlgTexAutoAdjustImgColor*>(vm->dialogHost()->getAttached());
    ASSERT_NE(dialog, nullptr);
    QDockWidget* dock = toolDock();
    ASSERT_NE(dock, nullptr);
    EXPECT_TRUE(dock->isVisible());
    EXPECT_EQ(dock->widget(), dialog);

    button(dialog, "Apply")->click();
    EXPECT_EQ(dialog->lastResult(), 0);
    EXPECT_TRUE(presenter->records.isEmpty());
    EXPECT_FALSE(dialog->reportLines().isEmpty());
    EXPECT_GT(cv::norm(before, firstPicture(), cv::NORM_INF), 0.0);
    button(dialog, "Cancel")->click();
    QApplication::processEvents();
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    EXPECT_FALSE(dock->isVisible());
    EXPECT_EQ(cv::norm(before, firstPicture(), cv::NORM_INF), 0.0);
}

// Texture > Auto-Select Best Texture in the main window: the session's dialog
// in the tool dock, Apply, and OK closing the dock with the result kept.

#include <QAction>
#include <QApplication>
#include <QDockWidget>
#include <QMenuBar>
#include <QPushButton>

#include "MainWindow.h"
#include "WindowTest.h"
#include "autotexture/KvoTaskTexAutoSelBest.h"
#include "autotexture/QDlgTxtAutoSelBest.h"
#include "support/SampleSupport.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

class AutoSelectMenu : public qvtest::WindowTest {};

} // namespace

TEST_F(AutoSelectMenu, TheSessionLivesInTheToolDock)
{
    QAction* entry = action("Auto-Select Best Texture...");
    ASSERT_NE(entry, nullptr);
    EXPECT_FALSE(entry->isEnabled()) << "waits for a project";

    ASSERT_NO_FATAL_FAILURE(qvtest::openMappedSample(scratch, {2, 1500, 400, 300, 10}));
    window->refreshAll();
    ASSERT_TRUE(entry->isEnabled());

    entry->trigger();
    QApplication::processEvents();
    ASSERT_NE(dynamic_cast<IKvoQvTaskTexAutoSelBest*>(vm->getCurrentTask()), nullptr);
    auto* dialog = qobject_cast<QDlgTxtAutoSelBest*>(vm->dialogHost()->getAttached());
    ASSERT_NE(dialog, nullptr);
    QDockWidget* dock = toolDock();
    ASSERT_NE(dock, nullptr);
    EXPECT_TRUE(dock->isVisible());
    EXPECT_EQ(dock->widget(), dialog);
    EXPECT_TRUE(dialog->isVisible());

    button(dialog, "Apply")->click();
    EXPECT_EQ(dialog->lastResult(), 0);
    EXPECT_TRUE(presenter->records.isEmpty());
    EXPECT_TRUE(dialog->lastReport().textured > 0);
    button(dialog, "OK")->click();
    QApplication::processEvents();
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    EXPECT_FALSE(dock->isVisible());
}

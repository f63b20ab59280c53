// Texture > Auto-Select Best Texture in the main window: the session's dialog
// in the tool dock, Apply, and OK closing the dock with the result kept.

#include <QAction>
#include <QApplication>
#include <QDockWidget>
#include <QMenuBar>
#include <QPushButton>

#include "MainWindow.h"
#include "SampleProject.h"
#include "SampleWriter.h"
#include "autotexture/KvoTaskTexAutoSelBest.h"
#include "autotexture/QDlgTxtAutoSelBest.h"
#include "camera/KvoVirtualCamera.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

class AutoSelectMenu : public qvtest::ViewerTest {
protected:
    void SetUp() override
    {
        ViewerTest::SetUp();
        window.reset(new quovara::MainWindow(vm));
        window->resize(1200, 800);
        window->show();
        QApplication::processEvents();
    }
    void TearDown() override
    {
        window.reset();
        ViewerTest::TearDown();
    }
    QAction* action(const QString& text) const
    {
        for (QAction* menu : window->menuBar()->actions())
            for (QAction* a : menu->menu()->actions())
                if (a->text().remove('&') == text)
                    return a;
        return nullptr;
    }
    QDockWidget* toolDock() const
    {
        for (QDockWidget* d : window->findChildren<QDockWidget*>())
            if (d->windowTitle() == "Tool")
                return d;
        return nullptr;
    }
    static QPushButton* button(QWidget* dialog, const QString& text)
    {
        for (QPushButton* b : dialog->findChildren<QPushButton*>())
            if (b->text() == text)
                return b;
        return nullptr;
    }
    std::unique_ptr<quovara::MainWindow> window;
};

} // namespace

TEST_F(AutoSelectMenu, TheSessionLivesInTheToolDock)
{
    QAction* entry = action("Auto-Select Best Texture...");
    ASSERT_NE(entry, nullptr);
    EXPECT_FALSE(entry->isEnabled()) << "waits for a project";

    qvsample::SampleOptions o;
    o.photos = 2;
    o.triangles = 1500;
    o.photoWidth = 400;
    o.photoHeight = 300;
    o.texelsPerMetre = 10;
    std::string error;
    ASSERT_TRUE(qvsample::writeSample(o, scratch.file("scene").toStdString(), &error, nullptr, nullptr)) << error;
    QString why;
    ASSERT_EQ(qvsample::buildProjectFromSample(scratch.file("scene"), scratch.file("p.qvj"), why), kvoOk)
        << why.toStdString();
    for (long id = 1; id <= 2; ++id) {
        getMM()->setActiveImageId(id);
        ZebQVVCParam p;
        ASSERT_TRUE(getMM()->getVCParam(id, p));
        zebUI::_ZebVCMapParam_ frame;
        ASSERT_TRUE(calVCFrame(id, p, kvoVCFrameModel, frame));
        VCMapping(p, frame, false, false, true, nullptr);
    }
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

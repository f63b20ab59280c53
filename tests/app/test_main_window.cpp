// The main window driven in-process, the way a person uses it: new project,
// add photographs, look at them, move the camera, save, reopen.

#include <QAction>
#include <QApplication>
#include <QMenuBar>
#include <QMouseEvent>
#include <QWheelEvent>

#include "ImageView.h"
#include "MainWindow.h"
#include "ModelView.h"
#include "Panels.h"
#include "WindowTest.h"
#include "commands/QDlgProjectNew.h"
#include "platform/KvoSampleScene.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

class MainWindowTest : public qvtest::WindowTest {
protected:
    void send(QWidget* w, QEvent::Type type, QPoint pos, Qt::MouseButton button, Qt::MouseButtons buttons)
    {
        QMouseEvent e(type, pos, w->mapToGlobal(pos), button, buttons, Qt::NoModifier);
        QApplication::sendEvent(w, &e);
    }
    void drag(QWidget* w, QPoint from, QPoint to, Qt::MouseButton button)
    {
        send(w, QEvent::MouseButtonPress, from, button, button);
        send(w, QEvent::MouseMove, (from + to) / 2, Qt::NoButton, button);
        send(w, QEvent::MouseMove, to, Qt::NoButton, button);
        send(w, QEvent::MouseButtonRelease, to, button, Qt::NoButton);
    }
};

double distance(const XPnt3d& a, const XPnt3d& b)
{
    return std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y) + (a.z - b.z) * (a.z - b.z));
}

} // namespace

TEST_F(MainWindowTest, ProjectActionsWaitForAProject)
{
    for (const char* text : {"Save", "Save As...", "Close Project", "Add Images..."}) {
        QAction* a = action(text);
        ASSERT_NE(a, nullptr) << text;
        EXPECT_FALSE(a->isEnabled()) << text;
    }
    EXPECT_TRUE(action("New Project...")->isEnabled());
    EXPECT_EQ(action("New Project...")->shortcut(), QKeySequence(QKeySequence::New));
    EXPECT_EQ(window->windowTitle(), "Quovara");
}

TEST_F(MainWindowTest, NewProjectAddImagesNavigateSaveAndReopen)
{
    ASSERT_TRUE(qvtest::writeTestPicture(scratch.file("a.png"), 60, 40));
    ASSERT_TRUE(writeSamplePhoto(scratch.file("b.jpg"), 80, 60, 1));
    presenter->dialogScript = [&](QDialog* d) {
        auto* dialog = qobject_cast<QDlgProjectNew*>(d);
        if (!dialog)
            return int(QDialog::Rejected);
        dialog->setFolder(scratch.path());
        dialog->setProjectName("made");
        return int(QDialog::Accepted);
    };
    action("New Project...")->trigger();
    ref_ptr<IKvoProject> project;
    ASSERT_TRUE(getMM()->getProject(project));
    const QString path = project->getFilePath();
    EXPECT_TRUE(path.endsWith("/made.qvj")) << path.toStdString();
    EXPECT_TRUE(action("Add Images...")->isEnabled());

    // Two photographs and one file that is not there: the good ones are added,
    // the bad one is named in a single message.
    presenter->fileAnswers = QStringList{scratch.file("a.png"), scratch.file("b.jpg"), scratch.file("gone.png")};
    action("Add Images...")->trigger();
    EXPECT_TRUE(presenter->lastText().contains("gone.png")) << presenter->lastText().toStdString();
    EXPECT_EQ(window->imagePanel()->count(), 2);
    EXPECT_EQ(getMM()->getActiveImageId(), 1) << "the first image becomes active";
    EXPECT_TRUE(window->windowTitle().startsWith("made.qvj*"));

    // Double clicking the second thumbnail makes it active.
    QListWidgetItem* second = window->imagePanel()->item(1);
    emit window->imagePanel()->itemDoubleClicked(second);
    EXPECT_EQ(getMM()->getActiveImageId(), 2);
    EXPECT_TRUE(window->imagePanel()->item(1)->text().startsWith("> "));

    // Navigation with the mouse where no task takes the events.
    CKvoTrackBall* ball = vm->modelViewer()->trackBall();
    quovara::ModelView* view = window->modelView();
    const XPnt3d eye0 = ball->getEye(), centre0 = ball->getCenter();
    drag(view, {200, 200}, {260, 230}, Qt::LeftButton);
    EXPECT_GT(distance(ball->getEye(), eye0), 1e-3) << "a left drag rotates";
    EXPECT_NEAR(distance(ball->getEye(), ball->getCenter()), distance(eye0, centre0), 1e-9);
    const double before = distance(ball->getEye(), ball->getCenter());
    QWheelEvent wheel(QPointF(200, 200), QPointF(view->mapToGlobal(QPoint(200, 200))), QPoint(), QPoint(0, 120),
                      Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(view, &wheel);
    EXPECT_LT(distance(ball->getEye(), ball->getCenter()), before) << "the wheel forward zooms in";
    const XPnt3d centre1 = ball->getCenter();
    drag(view, {200, 200}, {240, 200}, Qt::RightButton);
    EXPECT_GT(distance(ball->getCenter(), centre1), 1e-6) << "a right drag pans";

    // Save, close, reopen: what was added is there.
    action("Save")->trigger();
    EXPECT_FALSE(getMM()->isDirty());
    EXPECT_EQ(window->windowTitle(), "made.qvj - Quovara");
    action("Close Project")->trigger();
    EXPECT_FALSE(getMM()->getProject(project));
    EXPECT_EQ(window->imagePanel()->count(), 0);
    ASSERT_TRUE(window->openProject(path));
    EXPECT_EQ(window->imagePanel()->count(), 2);
    EXPECT_EQ(getMM()->getActiveImageId(), 2);
}

TEST_F(MainWindowTest, ClosingAChangedProjectAsksAndCancelKeepsIt)
{
    newProject("asked.qvj");
    ASSERT_TRUE(qvtest::writeTestPicture(scratch.file("a.png"), 30, 20));
    window->refreshAll();
    presenter->fileAnswers = QStringList{scratch.file("a.png")};
    action("Add Images...")->trigger();
    ASSERT_TRUE(getMM()->isDirty());
    presenter->buttonAnswers = {QMessageBox::Cancel};
    action("Close Project")->trigger();
    ref_ptr<IKvoProject> project;
    EXPECT_TRUE(getMM()->getProject(project)) << "Cancel keeps the project open";
    EXPECT_EQ(presenter->lastText(), "The project has changed. Save it?");
    presenter->buttonAnswers = {QMessageBox::No};
    action("Close Project")->trigger();
    EXPECT_FALSE(getMM()->getProject(project));
    // Not saved: the reopened project has no image.
    ASSERT_TRUE(window->openProject(scratch.file("asked.qvj")));
    EXPECT_EQ(window->imagePanel()->count(), 0);
}

TEST_F(MainWindowTest, AProjectThatCannotBeOpenedLeavesTheOpenOneAlone)
{
    newProject("kept.qvj");
    window->refreshAll();
    {
        QFile junk(scratch.file("junk.qvj"));
        ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
        junk.write("not a project at all");
    }
    EXPECT_FALSE(window->openProject(scratch.file("junk.qvj")));
    EXPECT_FALSE(presenter->lastText().isEmpty());
    ref_ptr<IKvoProject> project;
    ASSERT_TRUE(getMM()->getProject(project));
    EXPECT_TRUE(project->getFilePath().endsWith("kept.qvj"));
}

// Texture > Texture the Model... in the main window: the form (scripted
// through the presenter), the job on the open project, its summary, and the
// progress dialog's Cancel.

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QFileInfo>
#include <QProgressDialog>
#include <QTimer>

#include "SampleProject.h"
#include "WindowTest.h"
#include "autotexture/QDlgTextureJob.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

const QString kSample = QUOVARA_SOURCE_DIR "/samples/building";

class TextureMenu : public qvtest::WindowTest {
protected:
    // The form filled in: COLMAP cameras (or the photographs' own), the output, small atlases.
    void script(const QString& output, bool importCameras, bool overwrite)
    {
        presenter->dialogScript = [=](QDialog* d) {
            auto* dialog = dynamic_cast<QDlgTextureJob*>(d);
            if (!dialog)
                return int(QDialog::Rejected);
            dialog->setCameraChoice(importCameras ? 1 + KvoCameraSource::Colmap : 0);
            dialog->setCameraPath(kSample + "/cameras/colmap");
            dialog->setOutput(output);
            dialog->setAtlas(1024);
            dialog->setOverwrite(overwrite);
            dialog->accept();
            return dialog->result();
        };
    }
};

} // namespace

TEST_F(TextureMenu, TexturesTheOpenProjectAndShowsTheSummary)
{
    QAction* texture = action("Texture the Model...");
    ASSERT_NE(texture, nullptr);
    EXPECT_FALSE(texture->isEnabled()) << "waits for a project";
    QString why;
    ASSERT_EQ(qvsample::buildProjectFromSample(kSample, scratch.file("p.qvj"), why), kvoOk) << why.toStdString();
    for (long id = 1; id <= 8; ++id)
        getMM()->removeVCParam(id);
    window->refreshAll();
    ASSERT_TRUE(texture->isEnabled());

    // A form without an output stays open and says why.
    presenter->dialogScript = [](QDialog* d) {
        auto* dialog = dynamic_cast<QDlgTextureJob*>(d);
        if (!dialog)
            return int(QDialog::Rejected);
        dialog->setOutput(QString());
        dialog->accept();
        return dialog->isVisible() || dialog->result() != QDialog::Accepted ? int(QDialog::Rejected)
                                                                            : int(QDialog::Accepted);
    };
    texture->trigger();
    EXPECT_EQ(presenter->lastText(), "Please choose the file of the textured model.");
    EXPECT_EQ(getMM()->getTexMeshCount(), 0);

    const QString output = scratch.file("out/model.obj");
    script(output, true, false);
    texture->trigger();
    const QString said = presenter->lastText();
    EXPECT_TRUE(said.startsWith("Textured model: " + output)) << said.toStdString();
    EXPECT_TRUE(said.contains("8 with a camera, 8 used")) << said.toStdString();
    EXPECT_TRUE(QFileInfo(output).isFile());
    EXPECT_EQ(getMM()->getTexMeshCount(), 8);
    EXPECT_TRUE(getMM()->isDirty()) << "saving is left to the user";
    EXPECT_FALSE(getMM()->isTexEditOpen());
}

TEST_F(TextureMenu, CancelInTheProgressDialogLeavesTheTextureMeshesAsTheyWere)
{
    QString why;
    ASSERT_EQ(qvsample::buildProjectFromSample(kSample, scratch.file("p.qvj"), why), kvoOk) << why.toStdString();
    window->refreshAll();
    QAction* texture = action("Texture the Model...");
    const QString output = scratch.file("out/model.obj");
    script(output, false, false);
    texture->trigger();
    ASSERT_TRUE(QFileInfo(output).isFile()) << presenter->lastText().toStdString();
    const auto before = qvtest::texMeshTriangles();
    ASSERT_EQ(before.size(), 8u);

    // Cancel as soon as the progress dialog shows.
    bool pressed = false;
    std::function<void()> press = [&] {
        for (QWidget* w : QApplication::topLevelWidgets())
            if (auto* bar = qobject_cast<QProgressDialog*>(w); bar && bar->isVisible()) {
                bar->cancel();
                pressed = true;
                return;
            }
        QTimer::singleShot(1, press);
    };
    QTimer::singleShot(0, press);
    script(scratch.file("out/again.obj"), false, false);
    texture->trigger();
    EXPECT_TRUE(pressed);
    EXPECT_TRUE(presenter->lastText().startsWith("Cancelled. The texture meshes are as they were."))
        << presenter->lastText().toStdString();
    EXPECT_EQ(qvtest::texMeshTriangles(), before);
    EXPECT_FALSE(QFileInfo::exists(scratch.file("out/again.obj")));
    EXPECT_FALSE(getMM()->isTexEditOpen());
}

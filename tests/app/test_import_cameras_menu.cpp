// File > Import Cameras in the main window: the dialog (scripted through the
// presenter) and the summary, on a project of the bundled sample.

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QMenuBar>

#include <cmath>

#include "MainWindow.h"
#include "SampleProject.h"
#include "WindowTest.h"
#include "camera/KvoVirtualCamera.h"
#include "camera/QDlgImportCameras.h"
#include "scene/KvoGeometry.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

const QString kSample = QUOVARA_SOURCE_DIR "/samples/building";

class ImportCamerasMenu : public qvtest::WindowTest {};

} // namespace

TEST_F(ImportCamerasMenu, ImportsTheChosenFilesAndShowsTheSummary)
{
    QAction* import = action("Import Cameras...");
    ASSERT_NE(import, nullptr);
    EXPECT_FALSE(import->isEnabled()) << "waits for a project";

    QString why;
    ASSERT_EQ(qvsample::buildProjectFromSample(kSample, scratch.file("p.qvj"), why), kvoOk) << why.toStdString();
    std::vector<qvsample::SampleCamera> truth;
    qvsample::SampleOptions options;
    ASSERT_TRUE(qvsample::readSampleFolder(kSample, options, truth, why));
    for (long id = 1; id <= 8; ++id)
        getMM()->removeVCParam(id);
    window->refreshAll();
    ASSERT_TRUE(import->isEnabled());

    presenter->dialogScript = [](QDialog* d) {
        auto* dialog = dynamic_cast<QDlgImportCameras*>(d);
        if (!dialog)
            return int(QDialog::Rejected);
        dialog->setKind(KvoCameraSource::Matrices);
        dialog->setPath(kSample + "/cameras/matrices");
        dialog->accept();
        return dialog->result();
    };
    import->trigger();
    ASSERT_GE(presenter->records.size(), 2);
    EXPECT_EQ(presenter->records[presenter->records.size() - 2].title, "Import Cameras");
    EXPECT_TRUE(presenter->lastText().startsWith("Cameras read: 8 (projection matrices)."))
        << presenter->lastText().toStdString();
    EXPECT_TRUE(getMM()->isDirty());
    for (long id = 1; id <= 8; ++id) {
        ZebQVVCParam vc;
        ASSERT_TRUE(getMM()->getVCParam(id, vc));
        EXPECT_LT(length(vc.eye - truth[size_t(id - 1)].center()), 1e-6);
    }
    EXPECT_TRUE(window->windowTitle().contains("*")) << window->windowTitle().toStdString();
}

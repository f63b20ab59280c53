// The control-point session in the real window: pairs made through the
// dispatcher show as numbered marks on the photograph and in the table; a
// screenshot of the window mid-session is kept as a test artifact.

#include <QApplication>
#include <QDir>
#include <QTableWidget>

#include "ImageView.h"
#include "MainWindow.h"
#include "SampleProject.h"
#include "commands/KvoCommands.h"
#include "mapping/QDlgTextureMapping.h"
#include "support/ViewerSupport.h"

using namespace kvo;

TEST(CtrlPntWindow, PairsShowOnThePhotographAndInTheTable)
{
    qvtest::ScratchDir dir;
    kvo::ref_ptr<kvo::CZebViewerMan> vm = kvo::installViewerMan();
    ref_ptr<KvoRecordingPresenter> presenter(new KvoRecordingPresenter());
    setPresenter(ref_ptr<IKvoPresenter>(presenter.get()));
    {
        quovara::MainWindow window(vm);
        window.resize(1400, 900);
        window.show();
        QString why;
        ASSERT_EQ(
            qvsample::buildProjectFromSample(QString(QUOVARA_SOURCE_DIR) + "/samples/building", dir.file("p.qvj"), why),
            kvoOk)
            << why.toStdString();
        getMM()->closeProject();
        ASSERT_TRUE(window.openProject(dir.file("p.qvj")));
        QApplication::processEvents();
        ASSERT_EQ(cmdTexMappingQt(), 0);
        auto* dlg = qobject_cast<QDlgTextureMapping*>(vm->dialogHost()->getAttached());
        ASSERT_NE(dlg, nullptr);
        QApplication::processEvents();
        const long before = dlg->table()->rowCount();
        EXPECT_EQ(before, 12) << "the sample's control points";

        // One pair: a pick on the photograph, one on the model.
        quovara::ImageView* view = window.imageView();
        const QPoint at(view->width() / 2, view->height() / 2);
        vm->mouseDown(kvoImageView, kvoModCtrl | kvoButtonLeft, at.x(), at.y());
        XPnt3d w;
        vm->modelViewer()->trackBall()->projectToWindow(w, 0, -4, 4); // the south facade
        vm->mouseDown(kvoModelView, kvoModCtrl | kvoButtonLeft, std::lround(w.x), std::lround(w.y));
        EXPECT_EQ(dlg->table()->rowCount(), before + 1);

        // A waiting pick shows red on the photograph.
        const QPoint waiting(view->width() / 3, view->height() / 3);
        vm->mouseDown(kvoImageView, kvoModCtrl | kvoButtonLeft, waiting.x(), waiting.y());
        const QImage shot = view->grab().toImage();
        int red = 0;
        for (int y = waiting.y() - 7; y <= waiting.y() + 7; ++y)
            for (int x = waiting.x() - 7; x <= waiting.x() + 7; ++x) {
                const QColor c = shot.pixelColor(x, y);
                red += c.red() > 200 && c.green() < 60 && c.blue() < 60;
            }
        EXPECT_GT(red, 8) << "the cross of the waiting pick";
        const QString artifacts = QString(QUOVARA_TEST_ARTIFACTS) + "/ctrl-pnt-session";
        QDir().mkpath(artifacts);
        window.grab().save(artifacts + "/window.png");
        dlg->onBtnCancel();
    }
    zebUI::setVM(nullptr);
    setPresenter(nullptr);
    getMM()->closeProject();
}

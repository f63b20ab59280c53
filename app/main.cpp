#include <QApplication>
#include <QCommandLineParser>
#include <QSurfaceFormat>

#include <clocale>

#include "MainWindow.h"

int main(int argc, char** argv)
{
    // The views draw with the fixed-function pipeline.
    QSurfaceFormat format;
    format.setProfile(QSurfaceFormat::CompatibilityProfile);
    format.setDepthBufferSize(24);
    format.setSamples(4);
    QSurfaceFormat::setDefaultFormat(format);

    QApplication app(argc, argv);
    QApplication::setApplicationName("Quovara");
    QApplication::setOrganizationName("Quovara");
    QApplication::setApplicationVersion("0.1");
    std::setlocale(LC_NUMERIC, "C");

    QCommandLineParser parser;
    parser.setApplicationDescription("Texturing of 3-D models reconstructed from photographs");
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument("project", "A project file (.qvj) to open.");
    QCommandLineOption shot("screenshot", "Render the window to FILE and quit (for checks).", "FILE");
    parser.addOption(shot);
    parser.process(app);

    kvo::ref_ptr<kvo::CZebViewerMan> vm = kvo::installViewerMan();
    int rc = 0;
    {
        quovara::MainWindow window(vm);
        window.show();
        if (!parser.positionalArguments().isEmpty())
            window.openProject(parser.positionalArguments().first());
        if (parser.isSet(shot)) {
            app.processEvents();
            window.grab().save(parser.value(shot));
        } else {
            rc = app.exec();
        }
    }
    zebUI::setVM(nullptr);
    return rc;
}

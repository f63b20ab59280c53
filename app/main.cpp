#include <QApplication>
#include <QCommandLineParser>
#include <QDialog>
#include <QEventLoop>
#include <QFile>
#include <QSurfaceFormat>
#include <QTimer>

#include <clocale>
#include <cstdio>

#include "MainWindow.h"
#include "scene/KvoPresenter.h"

namespace {

// For runs without a person at the screen: no box ever waits for an answer;
// each is written down (to a file or stderr) and answered with its default.
class LoggingPresenter : public kvo::KvoRecordingPresenter {
public:
    explicit LoggingPresenter(const QString& path) : m_path(path) {}
    int showMessage(QWidget* parent, const kvo::KvoMessage& message) override
    {
        write(QString("%1: %2").arg(message.title, message.text));
        return KvoRecordingPresenter::showMessage(parent, message);
    }
    int execDialog(QDialog* dialog) override
    {
        write(QString("dialog: %1").arg(dialog->windowTitle()));
        return KvoRecordingPresenter::execDialog(dialog);
    }

private:
    void write(const QString& line)
    {
        QFile file(m_path);
        if (!m_path.isEmpty() && file.open(QIODevice::Append | QIODevice::Text))
            file.write((line + "\n").toUtf8());
        else
            std::fprintf(stderr, "%s\n", qPrintable(line));
    }
    QString m_path;
};

// Lets the window reach its final layout before it is captured.
void settle()
{
    QEventLoop loop;
    QTimer::singleShot(400, &loop, &QEventLoop::quit);
    loop.exec();
    QApplication::processEvents();
}
} // namespace

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
    QCommandLineOption shot("screenshot", "Render the window to FILE and quit.", "FILE");
    parser.addOption(shot);
    QCommandLineOption views("render-views",
                             "Render the window, the 3-D view and the image view into DIR with the cameras "
                             "that drew them (window.png, model.png, image.png, views.txt), then quit.",
                             "DIR");
    parser.addOption(views);
    QCommandLineOption messageLog(
        "message-log", "Show no message boxes: write them to FILE and answer each with its default.", "FILE");
    parser.addOption(messageLog);
    parser.process(app);

    if (parser.isSet(messageLog) || parser.isSet(shot) || parser.isSet(views))
        kvo::setPresenter(kvo::ref_ptr<kvo::IKvoPresenter>(new LoggingPresenter(parser.value(messageLog))));
    kvo::ref_ptr<kvo::CZebViewerMan> vm = kvo::installViewerMan();
    int rc = 0;
    {
        quovara::MainWindow window(vm);
        window.show();
        if (!parser.positionalArguments().isEmpty())
            window.openProject(parser.positionalArguments().first());
        if (parser.isSet(shot) || parser.isSet(views)) {
            settle();
            if (parser.isSet(shot) && !window.grab().save(parser.value(shot)))
                rc = 1;
            if (parser.isSet(views) && !window.renderViews(parser.value(views)))
                rc = 1;
        } else {
            rc = app.exec();
        }
    }
    zebUI::setVM(nullptr);
    kvo::setPresenter(nullptr);
    return rc;
}

#include <QApplication>
#include <QCoreApplication>
#include <QMessageBox>

#include "commands/KvoCommands.h"
#include "scene/KvoPresenter.h"

namespace kvo {

namespace {

QString tr(const char* text)
{
    return QCoreApplication::translate("Quovara", text);
}

QWidget* mainFrame()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    return vm ? vm->getMainFrame() : nullptr;
}

int show(QMessageBox::Icon icon, const QString& title, const QString& text, QList<QMessageBox::StandardButton> buttons)
{
    KvoMessage m;
    m.icon = icon;
    m.title = title;
    m.text = text;
    m.buttons = buttons;
    return getPresenter()->showMessage(mainFrame(), m);
}

} // namespace

QString resultMessage(long code, bool planeMapping, bool deleteDialog)
{
    switch (code) {
    case kvoVCMappingNoAdjust: return tr("Virtual Camera Mpping can't be adjusted!");
    case kvoTinError: return tr("Generate tin error! Points are too close!");
    case kvoNoCtrlPoints: return tr("There are no control points");
    case kvoTooFewPoints:
        return planeMapping ? tr("Error: Point number smaller than 3, not enough for define a plane!")
                            : tr("There are no enough control points!");
    case kvoDeleteMappingFailed: return tr("Error: Delete Mapping!");
    case kvoNothingSelected: return tr("No triangle is selected!");
    case kvoNoBareMesh: return tr("There is no visible bare mesh!");
    case kvoTexMeshMissing: return tr("Fatal Error: Texture image exist but can not get Mesh Pointer!");
    case kvoNoMeshWithoutTexture: return tr("Can't get meshes not be mapped texture !");
    case kvoMeshNotMade: return tr("Fail to creat a mesh!");
    case kvoTinMatrixError: return tr("Tin Matrix UV Error!");
    case kvoInvertFailed:
    case kvoInvertFailed2: return tr("Matrix Invert Error!");
    case kvoNoActiveImageForUpdate: return tr("There is no active image for texture mesh updating...");
    case kvoNothingInImage: return tr("There is no data can be mapped with 0.0--1.0 UV.");
    case kvoImageAsleep: return tr("Image is slept, it can not be mapped image or change the data!");
    case kvoNoActiveImage: return tr("Error: No active image exist !");
    case kvoNoImageInfo: return tr("Error: Image Information is NULL!");
    case kvoImageNotMapped:
        return deleteDialog ? tr("The image id you selected did not be mapped to the model!")
                            : tr("The image has't been mapped!");
    default: return QString();
    }
}

void msgSucceedQt(const QString& text)
{
    show(QMessageBox::Warning, tr("Quovara"), text, {QMessageBox::Ok});
}

void msgWarningQt(const QString& text)
{
    show(QMessageBox::Warning, tr("Quovara"), text, {QMessageBox::Ok});
}

bool msgWantOKQt(const QString& text)
{
    return show(QMessageBox::Warning, tr("Quovara"), text, {QMessageBox::Yes, QMessageBox::No, QMessageBox::Cancel}) ==
           QMessageBox::Yes;
}

bool msgYesNoQt(const QString& text, const QString& title)
{
    return show(QMessageBox::Warning, title, text, {QMessageBox::Yes, QMessageBox::No}) == QMessageBox::Yes;
}

int msgYesNoCancel(QString& title, QString& text)
{
    const int answer =
        show(QMessageBox::Question, title, text, {QMessageBox::Yes, QMessageBox::No, QMessageBox::Cancel});
    // A box closed without a button counts as Cancel.
    return answer == QMessageBox::NoButton ? int(QMessageBox::Cancel) : answer;
}

void msgWarningTitled(const QString& title, const QString& text)
{
    show(QMessageBox::Warning, title, text, {QMessageBox::Ok});
}

bool projectAndWidgetsOrSay(const QString& refusal)
{
    ref_ptr<IKvoProject> project;
    if (!getMM()->getProject(project) || !project) {
        msgNoProject();
        return false;
    }
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) {
        msgWarningQt(refusal);
        return false;
    }
    return true;
}

void msgNoProject()
{
    show(QMessageBox::Warning, QString(), tr("No project is open.please create a project."), {QMessageBox::Ok});
}

void msgToolNotAvailable(const QString& tool)
{
    show(QMessageBox::Information, tr("Quovara"), tr("%1 is not available in this version.").arg(tool),
         {QMessageBox::Ok});
}

} // namespace kvo

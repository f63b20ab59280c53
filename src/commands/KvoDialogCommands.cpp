#include <QCoreApplication>

#include "commands/KvoCommands.h"
#include "commands/QDlgProjectNew.h"
#include "scene/KvoPresenter.h"
#include "ui/QDlgImageTree.h"

namespace kvo {

namespace {
QWidget* mainFrame()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    return vm ? vm->getMainFrame() : nullptr;
}
} // namespace

long cmdImageTreeQt()
{
    QDlgImageTree dialog(mainFrame());
    if (getPresenter()->execDialog(&dialog) != QDialog::Accepted)
        return -1;
    return dialog.selectedId();
}

long cmdPrjPathNewQt(QString& path)
{
    QDlgProjectNew dialog(path, mainFrame());
    if (getPresenter()->execDialog(&dialog) == QDialog::Accepted && dialog.problem().isEmpty()) {
        path = dialog.projectPath();
        return 0;
    }
    path.clear();
    return kvoNewProjectCancelled;
}

long cmdOnOpenAbout()
{
    QDlgAbout dialog(mainFrame(), 0);
    getPresenter()->execDialog(&dialog);
    return 1;
}

long cmdOnOpenShortcut()
{
    // Not modal: the list stays open beside the work.
    auto* dialog = new QDlgAbout(mainFrame(), 1);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setModal(false);
    dialog->show();
    return 1;
}

long cmdOnOpenUpdate(int)
{
    // There is no update service to ask: say which version this is.
    msgSucceedQt(QCoreApplication::translate("Quovara", "This is Quovara %1.")
                     .arg(QCoreApplication::applicationVersion().isEmpty() ? QString("0.1")
                                                                           : QCoreApplication::applicationVersion()));
    return 1;
}

} // namespace kvo

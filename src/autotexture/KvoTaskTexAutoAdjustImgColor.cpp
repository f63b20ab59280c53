#include "autotexture/KvoTaskTexAutoAdjustImgColor.h"

#include <QPointer>

#include "autotexture/QDlgTexAutoAdjustImgColor.h"
#include "commands/KvoCommands.h"

namespace kvo {

namespace {

class CKvoTaskTexAutoAdjustImgColor : public CQvTaskImp<IKvoTaskTexAutoAdjustImgColor> {
public:
    CKvoTaskTexAutoAdjustImgColor() { name = "TexAutoAdjustImgColor"; }

    long onTaskStart() override
    {
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        if (!vm)
            return -1;
        m_dialog = new QDlgTexAutoAdjustImgColor(nullptr);
        if (IZebDialogHost* host = vm->getDialogHost())
            host->attach(m_dialog);
        vm->updateViews();
        return 0;
    }

    long onTaskEnd() override
    {
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        if (!vm)
            return -1;
        // Whatever ends the task keeps what the last Apply did; only Cancel
        // goes back, and it has done so before it ends the task.
        IKvoMM* mm = getMM();
        if (mm->isTexEditOpen()) {
            mm->commitTexEdit();
            mm->closeTexEdit();
        }
        if (IZebDialogHost* host = vm->getDialogHost())
            if (host->getAttached() == m_dialog)
                host->clear();
        if (m_dialog)
            m_dialog->deleteLater();
        m_dialog = nullptr;
        vm->updateViews();
        return 0;
    }

private:
    QPointer<QDlgTexAutoAdjustImgColor> m_dialog;
};

} // namespace

ref_ptr<IKvoTaskTexAutoAdjustImgColor> newQvTaskTexAutoAdjustImgColor()
{
    return ref_ptr<IKvoTaskTexAutoAdjustImgColor>(new CKvoTaskTexAutoAdjustImgColor());
}

long cmdOnTexAutoAdjustImgColor()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return -1;
    ref_ptr<IKvoProject> project;
    if (!getMM()->getProject(project))
        return kvoNoProject;
    if (vm->endCurrentTask() == kvoTaskRefused)
        return -1;
    ref_ptr<IKvoTaskTexAutoAdjustImgColor> task = newQvTaskTexAutoAdjustImgColor();
    return vm->startTask(task.get()) < 0 ? -1 : 0;
}

} // namespace kvo

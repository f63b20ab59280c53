#include "autotexture/KvoTaskTexAutoSelBest.h"

#include <QPointer>

#include "autotexture/QDlgTxtAutoSelBest.h"
#include "commands/KvoCommands.h"

namespace kvo {

namespace {

class CKvoTaskTexAutoSelBest : public CQvTaskImp<IKvoQvTaskTexAutoSelBest> {
public:
    CKvoTaskTexAutoSelBest() { name = "TexAutoSelBest"; }

    long onTaskStart() override
    {
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        if (!vm)
            return -1;
        m_dialog = new QDlgTxtAutoSelBest(nullptr);
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
        if (IZebDialogHost* host = vm->getDialogHost())
            if (host->getAttached() == m_dialog)
                host->clear();
        // A dialog the host no longer held still goes with its task.
        if (m_dialog)
            m_dialog->deleteLater();
        m_dialog = nullptr;
        vm->updateViews();
        return 0;
    }

private:
    QPointer<QDlgTxtAutoSelBest> m_dialog;
};

} // namespace

ref_ptr<IKvoQvTaskTexAutoSelBest> newQvTaskTexAutoSelBest()
{
    return ref_ptr<IKvoQvTaskTexAutoSelBest>(new CKvoTaskTexAutoSelBest());
}

long cmdOnTexAutoSelBest()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return -1;
    ref_ptr<IKvoProject> project;
    if (!getMM()->getProject(project))
        return kvoNoProject;
    if (vm->endCurrentTask() == kvoTaskRefused)
        return -1;
    ref_ptr<IKvoQvTaskTexAutoSelBest> task = newQvTaskTexAutoSelBest();
    return vm->startTask(task.get()) < 0 ? -1 : 0;
}

} // namespace kvo

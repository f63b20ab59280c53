// The command that opens the model export in the panel.

#include "commands/KvoCommands.h"
#include "modelio/QDlgOutputModel.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

long cmdOnBatchExport()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    IZebDialogHost* host = vm ? vm->getDialogHost() : nullptr;
    auto* dialog = new QDlgOutputModel;
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    if (!dialog->initRows()) {
        delete dialog;
        return 0;
    }
    if (host) {
        host->clear();
        host->attach(dialog);
    } else
        dialog->show();
    return 0;
}

} // namespace kvo

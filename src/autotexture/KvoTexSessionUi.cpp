#include "autotexture/KvoTexSessionUi.h"

#include <QObject>

#include "scene/KvoStore.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

IKvoProgress* texSessionProgress()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    return vm ? vm->getProgress() : nullptr;
}

void refreshTexturedScene()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return;
    if (IZebMeshPanel* meshes = vm->getMeshPanel())
        meshes->refreshSection("Texture Mesh");
    if (IZebImagePanel* images = vm->getImagePanel())
        images->refreshImage(0);
    vm->updateViews();
}

void recoverTexEditSession()
{
    IKvoMM* mm = getMM();
    if (!mm->isTexEditOpen())
        return;
    IKvoProgress* progress = texSessionProgress();
    prgText(progress, QObject::tr("Recovering..."));
    prgStep(progress, 0.05);
    {
        KvoPrgPush push(progress, 0.95);
        mm->restoreTexEdit(progress);
    }
    mm->closeTexEdit();
    refreshTexturedScene();
}

void endTaskAndClosePanel(bool clearHost)
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (!vm)
        return;
    vm->endCurrentTask();
    if (clearHost)
        if (IZebDialogHost* host = vm->getDialogHost())
            host->clear();
    if (IZebTaskPanel* panel = vm->getTaskPanel())
        panel->close();
}

} // namespace kvo

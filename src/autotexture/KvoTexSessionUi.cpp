#include "autotexture/KvoTexSessionUi.h"

#include <QBoxLayout>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QObject>
#include <QPushButton>

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

QDlgTexSession::QDlgTexSession(QWidget* parent, const QString& objectName, const QString& title) : QDialog(parent)
{
    setObjectName(objectName);
    setWindowTitle(title);
    setAttribute(Qt::WA_DeleteOnClose);
    m_apply = new QPushButton(tr("Apply"), this);
    m_ok = new QPushButton(tr("OK"), this);
    m_cancel = new QPushButton(tr("Cancel"), this);
    connect(m_ok, &QPushButton::clicked, this, &QDlgTexSession::clickedOK);
    connect(m_cancel, &QPushButton::clicked, this, &QDlgTexSession::clickedCancel);
}

void QDlgTexSession::addSessionButtons(QBoxLayout* layout)
{
    auto* buttons = new QHBoxLayout();
    buttons->addWidget(m_apply);
    buttons->addStretch(1);
    buttons->addWidget(m_ok);
    buttons->addWidget(m_cancel);
    layout->addLayout(buttons);
}

void QDlgTexSession::clickedOK()
{
    endTaskAndClosePanel(false);
}

void QDlgTexSession::clickedCancel()
{
    recoverTexEditSession();
    endTaskAndClosePanel(true);
}

void QDlgTexSession::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        event->ignore();
        return;
    }
    QDialog::keyPressEvent(event);
}

void QDlgTexSession::closeEvent(QCloseEvent* event)
{
    event->accept();
}

} // namespace kvo

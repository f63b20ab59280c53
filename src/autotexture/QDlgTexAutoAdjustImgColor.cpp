#include "autotexture/QDlgTexAutoAdjustImgColor.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "commands/KvoCommands.h"

namespace kvo {

QDlgTexAutoAdjustImgColor::QDlgTexAutoAdjustImgColor(QWidget* parent)
    : QDlgTexSession(parent, "ZebTaskAutoAdjustImgColor", tr("Automatic Adjust Image Color"))
{
    auto* layout = new QVBoxLayout(this);
    auto* note = new QLabel(tr("Apply evens out exposure and white balance between the photographs that texture "
                               "the model, measured where their patches meet, and levels what is left along the "
                               "seams. The original photographs are not changed."),
                            this);
    note->setWordWrap(true);
    layout->addWidget(note);
    m_report = new QPlainTextEdit(this);
    m_report->setReadOnly(true);
    m_report->setLineWrapMode(QPlainTextEdit::NoWrap);
    layout->addWidget(m_report, 1);

    addSessionButtons(layout);
    connect(m_apply, &QPushButton::clicked, this, &QDlgTexAutoAdjustImgColor::clickedApply);

    // What an earlier tool left in a texture-edit session is kept: Cancel
    // here goes back to the state this dialog began with, no further.
    IKvoMM* mm = getMM();
    if (mm->isTexEditOpen()) {
        mm->commitTexEdit();
        mm->closeTexEdit();
    }
}

QStringList QDlgTexAutoAdjustImgColor::reportLines() const
{
    const QString text = m_report->toPlainText();
    return text.isEmpty() ? QStringList() : text.split('\n');
}

void QDlgTexAutoAdjustImgColor::clickedApply()
{
    IKvoMM* mm = getMM();
    IKvoProgress* progress = texSessionProgress();
    {
        KvoPrgPush push(progress, 0.2);
        // Each Apply starts from the pictures as they were before the first
        // one; the session stays the first one, for Cancel.
        if (!mm->isTexEditOpen())
            mm->openTexEdit(progress, 1, 1);
        else if (m_hasResult)
            mm->restoreTexEdit(progress);
        else
            prgStep(progress, 1.0);
    }
    m_lastReport = KvoColorAdjustReport();
    {
        KvoPrgPush push(progress, 0.8);
        KvoColorAdjustOptions options;
        options.mode = Rec3D::RecMesh::ColorMode::Full;
        m_lastResult = adjustImageColors(progress, options, &m_lastReport);
    }
    m_report->setPlainText(m_lastReport.lines().join('\n'));
    if (m_lastResult < 0) {
        // A run that stopped half way leaves nothing of itself behind.
        mm->restoreTexEdit(nullptr);
        m_hasResult = false;
        msgWarningTitled(windowTitle(), m_lastReport.error.isEmpty()
                                            ? tr("The colours could not be adjusted (%1).").arg(m_lastResult)
                                            : m_lastReport.error);
    } else {
        m_hasResult = true;
    }
    refreshTexturedScene();
}

} // namespace kvo

#include "autotexture/QDlgTxtAutoSelBest.h"

#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>

#include "commands/KvoCommands.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

QDlgTxtAutoSelBest::QDlgTxtAutoSelBest(QWidget* parent)
    : QDlgTexSession(parent, "ZebTaskAutoSelBestTex", tr("Automatic Select Best Texture"))
{
    auto* layout = new QVBoxLayout(this);
    m_tips = new QPlainTextEdit(this);
    m_tips->setReadOnly(true);
    m_tips->setMaximumHeight(80);
    layout->addWidget(m_tips);

    m_groupPanel = new QGroupBox(tr("Auto-Select Best Texture"), this);
    auto* grid = new QGridLayout(m_groupPanel);
    grid->addWidget(new QLabel(tr("Fragment Size"), m_groupPanel), 0, 0);
    m_fragmentSlider = new QSlider(Qt::Horizontal, m_groupPanel);
    m_fragmentSlider->setRange(5, 300);
    m_fragmentSlider->setValue(20);
    grid->addWidget(m_fragmentSlider, 0, 1, 1, 2);
    m_fragmentSpin = new QSpinBox(m_groupPanel);
    m_fragmentSpin->setRange(5, 300);
    m_fragmentSpin->setSingleStep(5);
    m_fragmentSpin->setValue(20);
    grid->addWidget(m_fragmentSpin, 0, 3);
    m_min = new QPushButton(tr("5"), m_groupPanel);
    m_max = new QPushButton(tr("300"), m_groupPanel);
    grid->addWidget(m_min, 1, 1);
    grid->addWidget(m_max, 1, 2);
    m_undo = new QPushButton(tr("Undo"), m_groupPanel);
    m_redo = new QPushButton(tr("Redo"), m_groupPanel);
    m_undo->setEnabled(false);
    m_redo->setEnabled(false);
    grid->addWidget(m_undo, 2, 1);
    grid->addWidget(m_redo, 2, 2);
    layout->addWidget(m_groupPanel);

    addSessionButtons(layout);
    layout->addStretch(1);

    connect(m_apply, &QPushButton::clicked, this, &QDlgTxtAutoSelBest::clickedApplyBestTexture);
    for (QPushButton* b : {m_min, m_max, m_undo, m_redo})
        connect(b, &QPushButton::clicked, this, &QDlgTxtAutoSelBest::buttonClicked);
    connect(m_fragmentSlider, &QSlider::valueChanged, m_fragmentSpin, &QSpinBox::setValue);
    connect(m_fragmentSpin, QOverload<int>::of(&QSpinBox::valueChanged), m_fragmentSlider, &QSlider::setValue);

    m_tips->appendPlainText(tr("LeftButton select interested parts"));
    m_tips->appendPlainText(tr("LeftButton + Ctrl select uninterested parts"));
    m_tips->appendPlainText(tr("'Delete' key can delete exist parts"));
    m_selectMode = 1;
    m_groupPanel->hide();

    // What an earlier tool left in a texture-edit session is kept: Cancel
    // here goes back to the state this dialog began with, no further.
    IKvoMM* mm = getMM();
    if (mm->isTexEditOpen())
        mm->closeTexEdit();
}

QStringList QDlgTxtAutoSelBest::tipLines() const
{
    return m_tips->toPlainText().split('\n');
}

void QDlgTxtAutoSelBest::clickedApplyBestTexture()
{
    IKvoMM* mm = getMM();
    if (mm->getTexMeshCount() < 2) {
        msgWarningTitled(QString(), tr("Mesh Count is 2 at least"));
        return;
    }
    // Each Apply starts from the meshes as they were before the first one.
    if (mm->isTexEditOpen()) {
        mm->restoreTexEdit(nullptr);
        mm->closeTexEdit();
    }
    mm->openTexEdit(nullptr, 1, 0);
    IKvoProgress* progress = texSessionProgress();
    prgText(progress, tr("select best texture...."));
    prgStep(progress, 0.1);
    if (m_selectMode == 1) {
        KvoPrgPush push(progress, 0.9);
        m_lastReport = KvoBestImageReport();
        m_lastResult = selBestImgForFace(progress, &m_lastReport);
    } else {
        msgToolNotAvailable(tr("The selection by texture groups"));
    }
    refreshTexturedScene();
}

void QDlgTxtAutoSelBest::buttonClicked()
{
    QObject* from = sender();
    if (from == m_min || from == m_max) {
        const int value = static_cast<QPushButton*>(from)->text().toInt();
        m_fragmentSlider->setValue(value);
        m_fragmentSpin->setValue(value);
    } else if (from == m_undo || from == m_redo) {
        msgToolNotAvailable(tr("The selection by texture groups"));
    }
}

} // namespace kvo

#include "commands/QDlgProjectNew.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "scene/KvoPresenter.h"

namespace kvo {

QDlgProjectNew::QDlgProjectNew(const QString& path, QWidget* parent) : QDialog(parent)
{
    setWindowTitle(tr("New Project"));
    m_folder = new QLineEdit(this);
    m_name = new QLineEdit(this);
    m_message = new QLabel(this);
    auto* browseButton = new QPushButton(tr("Browse..."), this);
    auto* folderRow = new QHBoxLayout();
    folderRow->addWidget(m_folder, 1);
    folderRow->addWidget(browseButton);
    auto* form = new QFormLayout();
    form->addRow(tr("Folder:"), folderRow);
    form->addRow(tr("Project name:"), m_name);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_ok = buttons->button(QDialogButtonBox::Ok);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_message);
    layout->addWidget(buttons);
    connect(browseButton, &QPushButton::clicked, this, &QDlgProjectNew::browse);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_folder, &QLineEdit::textChanged, this, &QDlgProjectNew::validate);
    connect(m_name, &QLineEdit::textChanged, this, &QDlgProjectNew::validate);

    if (!path.isEmpty()) {
        QFileInfo fi(path);
        m_folder->setText(fi.absolutePath());
        m_name->setText(fi.completeBaseName());
    } else {
        m_folder->setText(QDir::homePath());
        m_name->setText(tr("Untitled"));
    }
    validate();
}

QString QDlgProjectNew::projectPath() const
{
    QString name = m_name->text().trimmed();
    if (name.endsWith(".qvj", Qt::CaseInsensitive))
        name.chop(4);
    return QDir(m_folder->text().trimmed()).absoluteFilePath(name + ".qvj");
}

void QDlgProjectNew::setFolder(const QString& folder)
{
    m_folder->setText(folder);
}
void QDlgProjectNew::setProjectName(const QString& name)
{
    m_name->setText(name);
}

QString QDlgProjectNew::problem() const
{
    const QString folder = m_folder->text().trimmed();
    QString name = m_name->text().trimmed();
    if (folder.isEmpty())
        return tr("Choose a folder for the project.");
    if (name.isEmpty())
        return tr("Give the project a name.");
    if (name.contains('/'))
        return tr("A project name cannot contain '/'.");
    if (QFileInfo(folder).exists() && !QFileInfo(folder).isDir())
        return tr("%1 is not a folder.").arg(folder);
    if (QFileInfo::exists(projectPath()))
        return tr("A project of that name already exists in the folder.");
    return QString();
}

void QDlgProjectNew::validate()
{
    const QString p = problem();
    m_message->setText(p.isEmpty() ? tr("The project will be %1").arg(projectPath()) : p);
    m_ok->setEnabled(p.isEmpty());
}

void QDlgProjectNew::browse()
{
    const QString dir = getPresenter()->getExistingDirectory(this, tr("Project folder"), m_folder->text());
    if (!dir.isEmpty())
        m_folder->setText(dir);
}

} // namespace kvo

#include "camera/QDlgImportCameras.h"

#include <QApplication>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "commands/KvoCommands.h"
#include "scene/KvoPresenter.h"
#include "scene/ZebViewerMan.h"

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

void warnInDialog(QWidget* parent, const QString& text)
{
    KvoMessage m;
    m.icon = QMessageBox::Warning;
    m.text = text;
    m.buttons = {QMessageBox::Ok};
    getPresenter()->showMessage(parent, m);
}

} // namespace

QDlgImportCameras::QDlgImportCameras(QWidget* parent) : QDialog(parent)
{
    setWindowTitle(tr("Import Cameras"));
    m_kind = new QComboBox(this);
    // In the order of KvoCameraSource::Kind.
    m_kind->addItem(tr("COLMAP text model (cameras.txt, images.txt)"));
    m_kind->addItem(tr("Bundler v0.3 (bundle.out and its image list)"));
    m_kind->addItem(tr("Projection matrices (one 3x4 matrix file a photograph)"));
    m_pathLabel = new QLabel(this);
    m_path = new QLineEdit(this);
    auto* pathButton = new QPushButton(tr("Browse..."), this);
    m_listLabel = new QLabel(tr("Image list:"), this);
    m_list = new QLineEdit(this);
    m_listButton = new QPushButton(tr("Browse..."), this);
    auto* note = new QLabel(tr("Photographs are matched by file name. Photographs whose cameras have lens distortion "
                               "are undistorted into new pictures; cameras that do not fit are listed and left out."),
                            this);
    note->setWordWrap(true);

    auto* grid = new QGridLayout;
    grid->addWidget(new QLabel(tr("Format:"), this), 0, 0);
    grid->addWidget(m_kind, 0, 1, 1, 2);
    grid->addWidget(m_pathLabel, 1, 0);
    grid->addWidget(m_path, 1, 1);
    grid->addWidget(pathButton, 1, 2);
    grid->addWidget(m_listLabel, 2, 0);
    grid->addWidget(m_list, 2, 1);
    grid->addWidget(m_listButton, 2, 2);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_ok = buttons->button(QDialogButtonBox::Ok);
    buttons->button(QDialogButtonBox::Cancel)->setText(tr("Cancel"));
    m_ok->setText(tr("Import"));
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(grid);
    layout->addWidget(note);
    layout->addWidget(buttons);
    setMinimumWidth(560);

    connect(m_kind, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this] { kindChanged(); });
    connect(pathButton, &QPushButton::clicked, this, &QDlgImportCameras::browsePath);
    connect(m_listButton, &QPushButton::clicked, this, &QDlgImportCameras::browseList);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDlgImportCameras::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    kindChanged();
}

void QDlgImportCameras::setKind(KvoCameraSource::Kind kind)
{
    m_kind->setCurrentIndex(int(kind));
}

KvoCameraSource::Kind QDlgImportCameras::kind() const
{
    return KvoCameraSource::Kind(m_kind->currentIndex());
}

void QDlgImportCameras::setPath(const QString& path)
{
    m_path->setText(path);
}

void QDlgImportCameras::setListFile(const QString& path)
{
    m_list->setText(path);
}

KvoCameraSource QDlgImportCameras::source() const
{
    const QString path = m_path->text().trimmed();
    switch (kind()) {
    case KvoCameraSource::Bundler: return KvoCameraSource::bundler(path, m_list->text().trimmed());
    case KvoCameraSource::Matrices: return KvoCameraSource::matrices(path);
    case KvoCameraSource::Colmap: break;
    }
    return KvoCameraSource::colmap(path);
}

void QDlgImportCameras::kindChanged()
{
    const bool bundler = kind() == KvoCameraSource::Bundler;
    m_pathLabel->setText(bundler ? tr("Bundle file:") : tr("Folder:"));
    m_listLabel->setEnabled(bundler);
    m_list->setEnabled(bundler);
    m_listButton->setEnabled(bundler);
}

QString browseCameraSource(QWidget* parent, bool bundler, const QString& current, QString* listGuess)
{
    if (!bundler)
        return getPresenter()->getExistingDirectory(parent, tr("Camera Folder"), current);
    const QString path =
        getPresenter()->getOpenFileName(parent, tr("Bundle File"), current, tr("Bundler files (*.out);;All files (*)"));
    // The image list usually sits beside the bundle file, or one folder up
    // when the bundle file is in a folder of its own.
    if (!path.isEmpty() && listGuess) {
        const QDir dir = QFileInfo(path).absoluteDir();
        for (const QString& guess : {dir.filePath("list.txt"), dir.filePath("../list.txt")})
            if (QFileInfo(guess).isFile()) {
                *listGuess = QDir::cleanPath(guess);
                break;
            }
    }
    return path;
}

QString browseImageList(QWidget* parent, const QString& current)
{
    return getPresenter()->getOpenFileName(parent, tr("Image List"), current, tr("Image lists (*.txt);;All files (*)"));
}

QString cameraSourceProblem(const KvoCameraSource& s)
{
    const bool bundler = s.kind == KvoCameraSource::Bundler;
    if (s.path.isEmpty())
        return bundler ? tr("Please choose the bundle file.") : tr("Please choose the folder.");
    if (bundler ? !QFileInfo(s.path).isFile() : !QFileInfo(s.path).isDir())
        return tr("%1 does not exist.").arg(s.path);
    if (bundler && !QFileInfo(s.listFile).isFile())
        return s.listFile.isEmpty() ? tr("Please choose the image list of the bundle file.")
                                    : tr("%1 does not exist.").arg(s.listFile);
    return QString();
}

void QDlgImportCameras::browsePath()
{
    QString list;
    const QString path = browseCameraSource(this, kind() == KvoCameraSource::Bundler, m_path->text(), &list);
    if (!path.isEmpty())
        m_path->setText(path);
    if (!list.isEmpty() && m_list->text().trimmed().isEmpty())
        m_list->setText(list);
}

void QDlgImportCameras::browseList()
{
    const QString path = browseImageList(this, m_list->text());
    if (!path.isEmpty())
        m_list->setText(path);
}

void QDlgImportCameras::accept()
{
    const QString problem = cameraSourceProblem(source());
    if (!problem.isEmpty()) {
        warnInDialog(this, problem);
        return;
    }
    QDialog::accept();
}

long cmdImportCameras()
{
    if (!projectAndWidgetsOrSay(tr("Importing cameras needs the user interface.")))
        return -1;
    QDlgImportCameras dialog(mainFrame());
    if (getPresenter()->execDialog(&dialog) != QDialog::Accepted)
        return -1;
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    IKvoProgress* progress = vm ? vm->getProgress() : nullptr;
    KvoCameraImportReport report;
    const long n = importCameras(dialog.source(), report, progress);
    if (vm) {
        if (IZebImagePanel* images = vm->getImagePanel())
            images->refreshImage(0);
        vm->updateViews();
    }
    KvoMessage m;
    m.icon = n > 0 && report.skipped.empty() && report.skippedLines.isEmpty() ? QMessageBox::Information
                                                                              : QMessageBox::Warning;
    m.title = tr("Quovara");
    m.text = report.summary(false);
    m.buttons = {QMessageBox::Ok};
    getPresenter()->showMessage(mainFrame(), m);
    return n > 0 ? 0 : -1;
}

} // namespace kvo

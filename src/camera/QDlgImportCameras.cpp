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

#include <initializer_list>

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

} // namespace

KvoCameraFileRows::KvoCameraFileRows(QWidget* form, QGridLayout* grid, int firstRow) : m_form(form)
{
    m_pathLabel = new QLabel(form);
    m_path = new QLineEdit(form);
    m_pathButton = new QPushButton(tr("Browse..."), form);
    m_listLabel = new QLabel(tr("Image list:"), form);
    m_list = new QLineEdit(form);
    m_listButton = new QPushButton(tr("Browse..."), form);
    grid->addWidget(m_pathLabel, firstRow, 0);
    grid->addWidget(m_path, firstRow, 1);
    grid->addWidget(m_pathButton, firstRow, 2);
    grid->addWidget(m_listLabel, firstRow + 1, 0);
    grid->addWidget(m_list, firstRow + 1, 1);
    grid->addWidget(m_listButton, firstRow + 1, 2);
    QObject::connect(m_pathButton, &QPushButton::clicked, form, [this] { browsePath(); });
    QObject::connect(m_listButton, &QPushButton::clicked, form, [this] { browseList(); });
    setKind(m_kind);
}

void KvoCameraFileRows::setKind(KvoCameraSource::Kind kind, bool live)
{
    m_kind = kind;
    const bool bundler = kind == KvoCameraSource::Bundler;
    m_pathLabel->setText(bundler ? tr("Bundle file:") : tr("Folder:"));
    for (QWidget* w : std::initializer_list<QWidget*>{m_pathLabel, m_path, m_pathButton})
        w->setEnabled(live);
    for (QWidget* w : std::initializer_list<QWidget*>{m_listLabel, m_list, m_listButton})
        w->setEnabled(live && bundler);
}

void KvoCameraFileRows::setPath(const QString& path)
{
    m_path->setText(path);
}

void KvoCameraFileRows::setListFile(const QString& path)
{
    m_list->setText(path);
}

KvoCameraSource KvoCameraFileRows::source() const
{
    const QString path = m_path->text().trimmed();
    switch (m_kind) {
    case KvoCameraSource::Bundler: return KvoCameraSource::bundler(path, m_list->text().trimmed());
    case KvoCameraSource::Matrices: return KvoCameraSource::matrices(path);
    case KvoCameraSource::Colmap: break;
    }
    return KvoCameraSource::colmap(path);
}

void KvoCameraFileRows::browsePath()
{
    if (m_kind != KvoCameraSource::Bundler) {
        const QString path = getPresenter()->getExistingDirectory(m_form, tr("Camera Folder"), m_path->text());
        if (!path.isEmpty())
            m_path->setText(path);
        return;
    }
    const QString path = getPresenter()->getOpenFileName(m_form, tr("Bundle File"), m_path->text(),
                                                         tr("Bundler files (*.out);;All files (*)"));
    if (path.isEmpty())
        return;
    m_path->setText(path);
    // The image list usually sits beside the bundle file, or one folder up
    // when the bundle file is in a folder of its own.
    if (!m_list->text().trimmed().isEmpty())
        return;
    const QDir dir = QFileInfo(path).absoluteDir();
    for (const QString& guess : {dir.filePath("list.txt"), dir.filePath("../list.txt")})
        if (QFileInfo(guess).isFile()) {
            m_list->setText(QDir::cleanPath(guess));
            break;
        }
}

void KvoCameraFileRows::browseList()
{
    const QString path = getPresenter()->getOpenFileName(m_form, tr("Image List"), m_list->text(),
                                                         tr("Image lists (*.txt);;All files (*)"));
    if (!path.isEmpty())
        m_list->setText(path);
}

QDlgImportCameras::QDlgImportCameras(QWidget* parent) : QDialog(parent)
{
    setWindowTitle(tr("Import Cameras"));
    m_kind = new QComboBox(this);
    // In the order of KvoCameraSource::Kind.
    m_kind->addItem(tr("COLMAP text model (cameras.txt, images.txt)"));
    m_kind->addItem(tr("Bundler v0.3 (bundle.out and its image list)"));
    m_kind->addItem(tr("Projection matrices (one 3x4 matrix file a photograph)"));
    auto* note = new QLabel(tr("Photographs are matched by file name. Photographs whose cameras have lens distortion "
                               "are undistorted into new pictures; cameras that do not fit are listed and left out."),
                            this);
    note->setWordWrap(true);

    auto* grid = new QGridLayout;
    grid->addWidget(new QLabel(tr("Format:"), this), 0, 0);
    grid->addWidget(m_kind, 0, 1, 1, 2);
    m_files.reset(new KvoCameraFileRows(this, grid, 1));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_ok = buttons->button(QDialogButtonBox::Ok);
    buttons->button(QDialogButtonBox::Cancel)->setText(tr("Cancel"));
    m_ok->setText(tr("Import"));
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(grid);
    layout->addWidget(note);
    layout->addWidget(buttons);
    setMinimumWidth(560);

    connect(m_kind, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this] { m_files->setKind(kind()); });
    connect(buttons, &QDialogButtonBox::accepted, this, &QDlgImportCameras::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

QDlgImportCameras::~QDlgImportCameras() = default;

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
    m_files->setPath(path);
}

void QDlgImportCameras::setListFile(const QString& path)
{
    m_files->setListFile(path);
}

KvoCameraSource QDlgImportCameras::source() const
{
    return m_files->source();
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

void QDlgImportCameras::accept()
{
    const QString problem = cameraSourceProblem(source());
    if (!problem.isEmpty()) {
        showOkMessage(this, QMessageBox::Warning, QString(), problem);
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
    const bool clean = n > 0 && report.skipped.empty() && report.skippedLines.isEmpty();
    showOkMessage(mainFrame(), clean ? QMessageBox::Information : QMessageBox::Warning, tr("Quovara"),
                  report.summary(false));
    return n > 0 ? 0 : -1;
}

} // namespace kvo

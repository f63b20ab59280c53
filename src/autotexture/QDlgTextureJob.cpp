#include "autotexture/QDlgTextureJob.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressDialog>
#include <QPushButton>
#include <QThread>
#include <QVBoxLayout>

#include <iterator>

#include "camera/QDlgImportCameras.h"
#include "commands/KvoCommands.h"
#include "platform/KvoProgressImpl.h"
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

const long kAtlasSizes[] = {1024, 2048, 4096, 8192};

} // namespace

QDlgTextureJob::QDlgTextureJob(QWidget* parent) : QDialog(parent)
{
    setWindowTitle(tr("Texture the Model"));
    m_cameras = new QComboBox(this);
    m_cameras->addItem(tr("The cameras the photographs have"));
    // Then in the order of KvoCameraSource::Kind.
    m_cameras->addItem(tr("Import a COLMAP text model (cameras.txt, images.txt)"));
    m_cameras->addItem(tr("Import Bundler v0.3 (bundle.out and its image list)"));
    m_cameras->addItem(tr("Import projection matrices (one 3x4 matrix file a photograph)"));
    m_output = new QLineEdit(this);
    auto* outputButton = new QPushButton(tr("Browse..."), this);
    m_atlas = new QComboBox(this);
    for (long s : kAtlasSizes)
        m_atlas->addItem(QString("%1 x %1").arg(s));
    m_atlas->setCurrentIndex(2);
    // In the order of KvoJobColour.
    m_colour = new QComboBox(this);
    m_colour->addItem(tr("None"));
    m_colour->addItem(tr("Exposure and white balance"));
    m_colour->addItem(tr("Exposure, white balance and seam levelling"));
    m_colour->setCurrentIndex(int(KvoJobColour::Full));
    m_overwrite = new QCheckBox(tr("Write over existing files"), this);
    auto* note =
        new QLabel(tr("Every face gets the photograph that shows it best; the texture meshes are made "
                      "seamless, the photographs' colours are balanced across the seams and the whole model is "
                      "written as one mesh on texture atlases."),
                   this);
    note->setWordWrap(true);

    auto* grid = new QGridLayout;
    grid->addWidget(new QLabel(tr("Cameras:"), this), 0, 0);
    grid->addWidget(m_cameras, 0, 1, 1, 2);
    m_files.reset(new KvoCameraFileRows(this, grid, 1));
    grid->addWidget(new QLabel(tr("Textured model:"), this), 3, 0);
    grid->addWidget(m_output, 3, 1);
    grid->addWidget(outputButton, 3, 2);
    grid->addWidget(new QLabel(tr("Atlas size:"), this), 4, 0);
    grid->addWidget(m_atlas, 4, 1);
    grid->addWidget(new QLabel(tr("Colour balance:"), this), 5, 0);
    grid->addWidget(m_colour, 5, 1);
    grid->addWidget(m_overwrite, 6, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_ok = buttons->button(QDialogButtonBox::Ok);
    m_ok->setText(tr("Texture"));
    buttons->button(QDialogButtonBox::Cancel)->setText(tr("Cancel"));
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(grid);
    layout->addWidget(note);
    layout->addWidget(buttons);
    setMinimumWidth(600);

    connect(m_cameras, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this] { choiceChanged(); });
    connect(outputButton, &QPushButton::clicked, this, &QDlgTextureJob::browseOutput);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDlgTextureJob::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    choiceChanged();
}

QDlgTextureJob::~QDlgTextureJob() = default;

void QDlgTextureJob::setCameraChoice(int choice)
{
    m_cameras->setCurrentIndex(choice);
}

int QDlgTextureJob::cameraChoice() const
{
    return m_cameras->currentIndex();
}

void QDlgTextureJob::setCameraPath(const QString& path)
{
    m_files->setPath(path);
}

void QDlgTextureJob::setListFile(const QString& path)
{
    m_files->setListFile(path);
}

void QDlgTextureJob::setOutput(const QString& path)
{
    m_output->setText(path);
}

void QDlgTextureJob::setAtlas(long size)
{
    for (int i = 0; i < int(std::size(kAtlasSizes)); ++i)
        if (kAtlasSizes[i] == size)
            m_atlas->setCurrentIndex(i);
}

void QDlgTextureJob::setColour(KvoJobColour colour)
{
    m_colour->setCurrentIndex(int(colour));
}

void QDlgTextureJob::setOverwrite(bool on)
{
    m_overwrite->setChecked(on);
}

KvoTextureJob QDlgTextureJob::job() const
{
    KvoTextureJob j;
    j.haveCameras = cameraChoice() > 0;
    if (j.haveCameras)
        j.cameras = m_files->source();
    j.output = m_output->text().trimmed();
    j.atlas = kAtlasSizes[std::max(0, m_atlas->currentIndex())];
    j.overwrite = m_overwrite->isChecked();
    j.colour = KvoJobColour(std::max(0, m_colour->currentIndex()));
    j.saveProject = false;
    return j;
}

void QDlgTextureJob::choiceChanged()
{
    const int choice = cameraChoice();
    m_files->setKind(KvoCameraSource::Kind(std::max(0, choice - 1)), choice > 0);
}

void QDlgTextureJob::browseOutput()
{
    QString path =
        getPresenter()->getSaveFileName(this, tr("Textured Model"), m_output->text(), tr("OBJ files (*.obj)"));
    if (path.isEmpty())
        return;
    if (QFileInfo(path).suffix().isEmpty())
        path += ".obj";
    m_output->setText(path);
}

void QDlgTextureJob::accept()
{
    const KvoTextureJob j = job();
    auto warn = [this](const QString& text) { showOkMessage(this, QMessageBox::Warning, tr("Quovara"), text); };
    if (j.haveCameras) {
        const QString problem = cameraSourceProblem(j.cameras);
        if (!problem.isEmpty())
            return warn(problem);
    }
    if (j.output.isEmpty())
        return warn(tr("Please choose the file of the textured model."));
    if (QFileInfo(j.output).suffix().compare("obj", Qt::CaseInsensitive) != 0)
        return warn(tr("The textured model is written as an .obj file."));
    if (QFileInfo::exists(j.output) && !j.overwrite)
        return warn(tr("%1 already exists. Choose another file, or write over it.").arg(j.output));
    QDialog::accept();
}

long cmdTextureModel()
{
    if (!projectAndWidgetsOrSay(tr("Texturing the model needs the user interface.")))
        return -1;
    ref_ptr<IKvoProject> project;
    getMM()->getProject(project);
    QDlgTextureJob dialog(mainFrame());
    const QFileInfo projectFile(project->getFilePath());
    dialog.setOutput(projectFile.absolutePath() + "/" + projectFile.completeBaseName() + "_textured.obj");
    if (getPresenter()->execDialog(&dialog) != QDialog::Accepted)
        return -1;
    KvoTextureJob job = dialog.job();

    // The job runs on this thread; the progress dialog is repainted and its
    // Cancel heard whenever the job reports or asks whether to stop.
    QProgressDialog bar(tr("Texturing the model..."), tr("Cancel"), 0, 1000, mainFrame());
    bar.setWindowTitle(tr("Texture the Model"));
    bar.setWindowModality(Qt::WindowModal);
    bar.setMinimumDuration(0);
    bar.setAutoClose(false);
    bar.setAutoReset(false);
    bar.setValue(0);
    CKvoProgress progress;
    QThread* gui = QThread::currentThread();
    progress.setListener([&bar, gui](double position, const QString& caption) {
        if (QThread::currentThread() != gui)
            return;
        bar.setValue(int(position * 1000));
        if (!caption.isEmpty())
            bar.setLabelText(caption);
        QCoreApplication::processEvents();
    });
    job.cancelled = [&bar] {
        QCoreApplication::processEvents();
        return bar.wasCanceled();
    };
    KvoTextureJobReport report;
    const long rc = textureOpenProject(job, report, &progress);
    bar.close();
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM()) {
        if (IZebMeshPanel* panel = vm->getMeshPanel())
            panel->refreshSection("Texture Mesh");
        if (IZebImagePanel* images = vm->getImagePanel())
            images->refreshImage(0);
        vm->updateViews();
    }
    const QString text = rc == kvoPipelineCancelled
                             ? tr("Cancelled. The texture meshes are as they were.") + "\n\n" + report.summary()
                             : report.summary();
    showOkMessage(mainFrame(), rc == 0 && report.skipped.isEmpty() ? QMessageBox::Information : QMessageBox::Warning,
                  tr("Quovara"), text);
    return rc;
}

} // namespace kvo

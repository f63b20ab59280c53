#include "MainWindow.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QDockWidget>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QProgressBar>
#include <QSettings>
#include <QSplitter>
#include <QStatusBar>
#include <QTextStream>
#include <QThread>

#include "ImageView.h"
#include "ModelView.h"
#include "Panels.h"
#include "autotexture/KvoTaskTexAutoAdjustImgColor.h"
#include "autotexture/KvoTaskTexAutoSelBest.h"
#include "autotexture/QDlgTextureJob.h"
#include "camera/KvoCameraImport.h"
#include "commands/KvoCommands.h"
#include "modelio/KvoImportCommands.h"
#include "planes/KvoRefPlaneTasks.h"
#include "platform/KvoModelManImpl.h"
#include "platform/KvoTrackBallImpl.h"
#include "scene/KvoPresenter.h"

using namespace kvo;

namespace quovara {

namespace {
const int kMaxRecent = 8;
}

MainWindow::MainWindow(ref_ptr<CZebViewerMan> vm) : m_vm(vm)
{
    setWindowIcon(QIcon::fromTheme("applications-graphics"));
    m_vm->setMainFrame(this);
    m_vm->setProgress(&m_progress);
    m_progress.setListener([this](double position, const QString& caption) { showProgress(position, caption); });

    m_modelView = new ModelView(vm);
    m_imageView = new ImageView(vm);
    m_splitter = new QSplitter(Qt::Horizontal, this);
    m_splitter->addWidget(m_modelView);
    m_splitter->addWidget(m_imageView);
    m_splitter->setStretchFactor(0, 3);
    m_splitter->setStretchFactor(1, 2);
    setCentralWidget(m_splitter);

    m_meshPanel = new MeshPanel(vm);
    m_imagePanel = new ImagePanel(vm);
    auto dock = [this](const QString& title, QWidget* w, Qt::DockWidgetArea area) {
        auto* d = new QDockWidget(title, this);
        d->setObjectName(title);
        d->setWidget(w);
        addDockWidget(area, d);
        return d;
    };
    dock(tr("Meshes"), m_meshPanel, Qt::LeftDockWidgetArea);
    dock(tr("Images"), m_imagePanel, Qt::BottomDockWidgetArea);
    m_taskDock = dock(tr("Tool"), new QWidget(), Qt::RightDockWidgetArea);
    m_secondDock = dock(tr("Tool Details"), new QWidget(), Qt::RightDockWidgetArea);
    m_taskDock->hide();
    m_secondDock->hide();

    // Task panels attach to the docks.
    auto follow = [](QDockWidget* d, CZebDialogHost* host) {
        connect(host, &CZebDialogHost::attachedChanged, d, [d](QWidget* w) {
            if (w) {
                d->setWidget(w);
                w->show();
                d->show();
            } else {
                d->setWidget(new QWidget());
                d->hide();
            }
        });
    };
    follow(m_taskDock, vm->dialogHost());
    follow(m_secondDock, vm->secondDialogHost());
    connect(vm->taskPanel(), &CZebTaskPanel::closeRequested, m_taskDock, &QDockWidget::hide);

    m_caption = new QLabel(this);
    m_bar = new QProgressBar(this);
    m_bar->setRange(0, 1000);
    m_bar->setMaximumWidth(240);
    m_bar->hide();
    m_marks = new QLabel(this);
    statusBar()->addWidget(m_caption, 1);
    statusBar()->addPermanentWidget(m_bar);
    statusBar()->addPermanentWidget(m_marks);
    if (auto* cmm = dynamic_cast<CKvoMM*>(getMM()))
        cmm->setSelMarkListener(
            [this](unsigned long long n) { m_marks->setText(n ? tr("%1 triangles marked").arg(n) : QString()); });

    connect(vm.get(), &CZebViewerMan::redrawModelRequested, m_modelView, QOverload<>::of(&QWidget::update));
    connect(vm.get(), &CZebViewerMan::redrawImageRequested, m_imageView, QOverload<>::of(&QWidget::update));
    connect(vm.get(), &CZebViewerMan::viewsUpdated, this, [this] {
        m_imagePanel->rebuild();
        updateActions();
    });
    connect(vm.get(), &CZebViewerMan::cursorChanged, this, [this](long view, long kind) {
        QWidget* w = view == kvoModelView ? static_cast<QWidget*>(m_modelView) : m_imageView;
        w->setCursor(kind == 1 ? Qt::CrossCursor : kind == 3 ? Qt::PointingHandCursor : Qt::ArrowCursor);
    });
    connect(vm.get(), &CZebViewerMan::viewShown, this, [this](long view, bool show) {
        (view == kvoModelView ? static_cast<QWidget*>(m_modelView) : m_imageView)->setVisible(show);
    });
    connect(m_meshPanel, &MeshPanel::sceneChanged, m_modelView, QOverload<>::of(&QWidget::update));
    connect(m_imagePanel, &ImagePanel::activeImageChosen, this, [this](long id) {
        getMM()->setActiveImageId(id);
        m_imageView->showActiveImage();
        m_imagePanel->rebuild();
    });

    // The project's reference planes are always drawn in the 3-D view.
    m_vm->addRender(newRefPlaneRender());
    buildMenus();
    QSettings settings(QSettings::IniFormat, QSettings::UserScope, "Quovara", "Quovara");
    restoreGeometry(settings.value("window/geometry").toByteArray());
    restoreState(settings.value("window/state").toByteArray());
    if (!settings.contains("window/geometry"))
        resize(1400, 900);
    refreshAll();
}

MainWindow::~MainWindow()
{
    if (auto* cmm = dynamic_cast<CKvoMM*>(getMM()))
        cmm->setSelMarkListener(nullptr);
    m_vm->endCurrentTask();
    m_vm->setProgress(nullptr);
    m_vm->setMainFrame(nullptr);
}

void MainWindow::buildMenus()
{
    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&New Project..."), this, &MainWindow::newProject, QKeySequence::New);
    file->addAction(tr("&Open Project..."), this, &MainWindow::openProjectDialog, QKeySequence::Open);
    m_recentMenu = file->addMenu(tr("Recent Projects"));
    rebuildRecentMenu();
    file->addSeparator();
    m_projectActions << file->addAction(tr("&Save"), this, &MainWindow::saveProject, QKeySequence::Save);
    m_projectActions << file->addAction(tr("Save &As..."), this, &MainWindow::saveProjectAs, QKeySequence::SaveAs);
    m_projectActions << file->addAction(tr("&Close Project"), this, &MainWindow::closeProject);
    file->addSeparator();
    m_projectActions << file->addAction(tr("Add &Images..."), this, &MainWindow::addImages);
    m_projectActions << file->addAction(tr("Import Model..."), this, [this] {
        const QString path =
            getPresenter()->getOpenFileName(this, tr("Import Model"), QString(), tr("Wavefront OBJ (*.obj)"));
        if (path.isEmpty())
            return;
        m_progress.reset();
        const long rc = cmdOnFileAddKvomodel(path);
        endProgress();
        if (rc == kvoModelExists)
            showError(tr("The project already holds a model."));
        m_modelView->resetCache();
        m_modelView->viewModelFromFront();
        refreshAll();
    });
    m_projectActions << file->addAction(tr("Import Images && Meshes From Project..."), this, [this] {
        const QString path = getPresenter()->getOpenFileName(this, tr("Import Images & Meshes From Project"), QString(),
                                                             tr("Quovara projects (*.qvj)"));
        if (path.isEmpty())
            return;
        cmdImportMesh(path);
        m_modelView->resetCache();
        refreshAll();
    });
    m_projectActions << file->addAction(tr("Import &Cameras..."), this, [this] {
        m_progress.reset();
        cmdImportCameras();
        endProgress();
        refreshAll();
    });
    m_projectActions << file->addAction(tr("&Export Model..."), this, [] { cmdOnBatchExport(); });
    file->addSeparator();
    file->addAction(tr("&Quit"), this, &QWidget::close, QKeySequence::Quit);

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    m_undo = edit->addAction(tr("&Undo"), this, [this] {
        m_vm->undo();
        refreshAll();
    });
    m_undo->setShortcut(QKeySequence::Undo);
    m_redo = edit->addAction(tr("&Redo"), this, [this] {
        m_vm->redo();
        refreshAll();
    });
    m_redo->setShortcut(QKeySequence::Redo);
    edit->addSeparator();
    auto marks = [this](std::function<long()> fn) {
        return [this, fn] {
            fn();
            m_modelView->update();
        };
    };
    m_projectActions << edit->addAction(tr("Mark All Triangles"), this,
                                        marks([] { return selMeshAllInPainter(false); }));
    m_projectActions << edit->addAction(tr("Mark All of the Active Image"), this,
                                        marks([] { return selMeshAllInPainter(true); }));
    m_projectActions << edit->addAction(tr("Invert Marks"), this, marks([] { return selMeshReverseInPainter(false); }));
    m_projectActions << edit->addAction(tr("Clear Marks"), this, marks([] { return selMeshClearInPainter(); }));

    QMenu* view = menuBar()->addMenu(tr("&View"));
    view->addAction(tr("&Fit Model"), m_modelView, &ModelView::fitToModel);
    view->addAction(tr("Show &Vertices"), this,
                    [this](bool on) {
                        ref_ptr<IKvoModel> model;
                        if (getMM()->getBareModel(model))
                            model->showVertices(on);
                        m_modelView->update();
                    })
        ->setCheckable(true);
    view->addAction(tr("Maximise 3-D View"), this, [this] {
        m_imageView->setVisible(!m_imageView->isVisible());
        m_modelView->setVisible(true);
    });
    view->addAction(tr("Maximise Image View"), this, [this] {
        m_modelView->setVisible(!m_modelView->isVisible());
        m_imageView->setVisible(true);
    });
    m_projectActions << view->addAction(tr("Choose Active &Image..."), this, [this] {
        const long id = cmdImageTreeQt();
        if (id > 0) {
            getMM()->setActiveImageId(id);
            m_imageView->showActiveImage();
            m_imagePanel->rebuild();
        }
    });

    QMenu* camera = menuBar()->addMenu(tr("&Camera"));
    m_projectActions << camera->addAction(tr("Show Camera &Matrix"), this, [] {
        ref_ptr<LongArray> ids = newLongArray();
        if (getMM()->getActiveImageId() > 0)
            ids->append(getMM()->getActiveImageId());
        cmdOnImageShowMatrix(ids);
    });

    QMenu* mapping = menuBar()->addMenu(tr("&Mapping"));
    m_projectActions << mapping->addAction(tr("&Control Point Mapping..."), this, [] { cmdTexMappingQt(); });

    QMenu* texture = menuBar()->addMenu(tr("&Texture"));
    m_projectActions << texture->addAction(tr("Auto-Select Best Texture..."), this, [] { cmdOnTexAutoSelBest(); });
    m_projectActions << texture->addAction(tr("Adjust Image Colours..."), this, [] { cmdOnTexAutoAdjustImgColor(); });
    m_projectActions << texture->addAction(tr("Texture the &Model..."), this, [this] {
        cmdTextureModel();
        m_modelView->resetCache();
        refreshAll();
    });

    QMenu* planes = menuBar()->addMenu(tr("&Planes"));
    m_projectActions << planes->addAction(tr("Projection &Plane Management..."), this,
                                          [] { cmdOnProjectPlaneManageQt(); });

    QMenu* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&Shortcuts"), this, [] { cmdOnOpenShortcut(); });
    help->addAction(tr("&Version"), this, [] { cmdOnOpenUpdate(0); });
    help->addAction(tr("&About Quovara"), this, [] { cmdOnOpenAbout(); });
}

void MainWindow::updateTitle()
{
    ref_ptr<IKvoProject> project;
    QString title = "Quovara";
    if (getMM()->getProject(project))
        title =
            QString("%1%2 - Quovara").arg(QFileInfo(project->getFilePath()).fileName(), getMM()->isDirty() ? "*" : "");
    setWindowTitle(title);
}

void MainWindow::updateActions()
{
    ref_ptr<IKvoProject> project;
    const bool open = bool(getMM()->getProject(project));
    for (QAction* a : m_projectActions)
        a->setEnabled(open);
    m_undo->setEnabled(m_vm->canUndo());
    m_redo->setEnabled(m_vm->canRedo());
    updateTitle();
}

void MainWindow::refreshAll()
{
    m_meshPanel->rebuild();
    m_imagePanel->rebuild();
    m_imageView->showActiveImage();
    m_modelView->update();
    updateActions();
}

bool MainWindow::renderViews(const QString& folder)
{
    QDir dir(folder);
    if (!dir.mkpath("."))
        return false;
    bool ok = grab().save(dir.filePath("window.png"));
    ok = m_modelView->grabFramebuffer().save(dir.filePath("model.png")) && ok;
    ok = m_imageView->grab().save(dir.filePath("image.png")) && ok;
    QFile file(dir.filePath("views.txt"));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return false;
    QTextStream out(&file);
    out.setRealNumberPrecision(17);
    CKvoTrackBall* ball = m_vm->modelViewer()->trackBall();
    int viewport[4];
    ball->getViewport(viewport);
    const XPnt3d e = ball->getEye(), c = ball->getCenter(), u = ball->getUp();
    out << "model " << viewport[2] << ' ' << viewport[3] << ' ' << e.x << ' ' << e.y << ' ' << e.z << ' ' << c.x << ' '
        << c.y << ' ' << c.z << ' ' << u.x << ' ' << u.y << ' ' << u.z << ' ' << ball->getFovY() << ' '
        << ball->getNear() << ' ' << ball->getFar() << '\n';
    const KvoImageViewTransform& t = m_vm->imageViewer()->transform();
    out << "image " << m_imageView->width() << ' ' << m_imageView->height() << ' ' << t.getZoom() << ' '
        << t.getOffset().x << ' ' << t.getOffset().y << '\n';
    return ok && out.status() == QTextStream::Ok;
}

void MainWindow::showError(const QString& text)
{
    KvoMessage m;
    m.icon = QMessageBox::Warning;
    m.title = tr("Quovara");
    m.text = text;
    m.buttons = {QMessageBox::Ok};
    getPresenter()->showMessage(this, m);
}

void MainWindow::showProgress(double position, const QString& caption)
{
    // Steps may come from worker threads; widgets are touched on ours only.
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(
            this, [this, position, caption] { showProgress(position, caption); }, Qt::QueuedConnection);
        return;
    }
    m_caption->setText(caption);
    m_bar->setVisible(position > 0 && position < 1);
    m_bar->setValue(int(position * 1000));
    // Long work runs on this thread: let the window repaint (a few times a
    // second is enough), but take no input.
    if (!m_repaintClock.isValid() || m_repaintClock.elapsed() > 100) {
        QApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
        m_repaintClock.restart();
    }
}

void MainWindow::endProgress()
{
    m_progress.reset();
    m_caption->clear();
    m_bar->hide();
    m_repaintClock.invalidate();
}

bool MainWindow::maybeSave()
{
    ref_ptr<IKvoProject> project;
    if (!getMM()->getProject(project) || !getMM()->isDirty())
        return true;
    QString title = tr("Quovara"), text = tr("The project has changed. Save it?");
    const int answer = msgYesNoCancel(title, text);
    if (answer == QMessageBox::Cancel)
        return false;
    return answer == QMessageBox::No || saveProject();
}

void MainWindow::newProject()
{
    if (m_vm->endCurrentTask() == kvoTaskRefused || !maybeSave())
        return;
    QString path;
    if (cmdPrjPathNewQt(path) != 0)
        return;
    m_vm->endCurrentTask();
    getMM()->closeProject();
    m_progress.reset();
    const long rc = getMM()->newProject(path, &m_progress);
    endProgress();
    if (rc != kvoOk) {
        showError(getMM()->getLastError());
        return;
    }
    addRecent(path);
    m_modelView->resetCache();
    refreshAll();
}

void MainWindow::openProjectDialog()
{
    const QString path =
        getPresenter()->getOpenFileName(this, tr("Open Project"), QString(), tr("Quovara projects (*.qvj)"));
    if (!path.isEmpty())
        openProject(path);
}

bool MainWindow::openProject(const QString& path)
{
    if (m_vm->endCurrentTask() == kvoTaskRefused || !maybeSave())
        return false;
    m_progress.reset();
    const long rc = getMM()->openProject(path, &m_progress);
    endProgress();
    if (rc != kvoOk) {
        showError(getMM()->getLastError());
        return false;
    }
    m_vm->undoStack().clear();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    getMM()->getProject(project)->getImageDb(db);
    db->addEvent(newImageDbEvent());
    addRecent(project->getFilePath());
    m_modelView->resetCache();
    m_modelView->viewModelFromFront();
    refreshAll();
    return true;
}

bool MainWindow::saveProject()
{
    m_progress.reset();
    const long rc = getMM()->saveProject(&m_progress);
    endProgress();
    if (rc != kvoOk) {
        showError(getMM()->getLastError());
        return false;
    }
    statusBar()->showMessage(tr("Saved."), 3000);
    updateTitle();
    return true;
}

bool MainWindow::saveProjectAs()
{
    const QString path =
        getPresenter()->getSaveFileName(this, tr("Save Project As"), QString(), tr("Quovara projects (*.qvj)"));
    if (path.isEmpty())
        return false;
    m_progress.reset();
    const long rc = getMM()->saveProjectAs(path, &m_progress);
    endProgress();
    if (rc != kvoOk) {
        showError(getMM()->getLastError());
        return false;
    }
    ref_ptr<IKvoProject> project;
    addRecent(getMM()->getProject(project)->getFilePath());
    updateTitle();
    return true;
}

void MainWindow::closeProject()
{
    if (m_vm->endCurrentTask() == kvoTaskRefused || !maybeSave())
        return;
    getMM()->closeProject();
    m_vm->undoStack().clear();
    m_modelView->resetCache();
    refreshAll();
}

void MainWindow::addImages()
{
    ref_ptr<IKvoProject> project;
    if (!getMM()->getProject(project)) {
        msgNoProject();
        return;
    }
    const QStringList files = getPresenter()->getOpenFileNames(this, tr("Add Images"), QString(),
                                                               tr("Images (*.jpg *.jpeg *.png *.bmp *.tif *.tiff)"));
    ref_ptr<IKvoImageDb> db;
    project->getImageDb(db);
    QStringList failed;
    for (const QString& f : files) {
        long id = -1;
        if (db->addImage(f, id) != kvoOk)
            failed << QFileInfo(f).fileName();
    }
    if (!files.isEmpty())
        getMM()->setDirty(true);
    if (!failed.isEmpty())
        showError(tr("These files could not be added:\n%1").arg(failed.join("\n")));
    if (getMM()->getActiveImageId() < 0) {
        ref_ptr<LongArray> ids;
        if (db->getImageIds(ids)->getCount() > 0)
            getMM()->setActiveImageId(ids->getAt(0));
    }
    refreshAll();
}

void MainWindow::addRecent(const QString& path)
{
    QSettings settings(QSettings::IniFormat, QSettings::UserScope, "Quovara", "Quovara");
    QStringList recent = settings.value("recent").toStringList();
    recent.removeAll(path);
    recent.prepend(path);
    while (recent.size() > kMaxRecent)
        recent.removeLast();
    settings.setValue("recent", recent);
    rebuildRecentMenu();
}

void MainWindow::rebuildRecentMenu()
{
    m_recentMenu->clear();
    QSettings settings(QSettings::IniFormat, QSettings::UserScope, "Quovara", "Quovara");
    for (const QString& path : settings.value("recent").toStringList())
        m_recentMenu->addAction(QFileInfo(path).fileName(), this, [this, path] { openProject(path); })
            ->setToolTip(path);
    m_recentMenu->setEnabled(!m_recentMenu->isEmpty());
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_vm->endCurrentTask() == kvoTaskRefused || !maybeSave()) {
        event->ignore();
        return;
    }
    QSettings settings(QSettings::IniFormat, QSettings::UserScope, "Quovara", "Quovara");
    settings.setValue("window/geometry", saveGeometry());
    settings.setValue("window/state", saveState());
    getMM()->closeProject();
    event->accept();
}

} // namespace quovara

#pragma once

#include <QElapsedTimer>
#include <QMainWindow>

#include "platform/KvoProgressImpl.h"
#include "platform/ZebViewerManImpl.h"

class QLabel;
class QProgressBar;
class QDockWidget;
class QMenu;
class QSplitter;

namespace quovara {

class ModelView;
class ImageView;
class MeshPanel;
class ImagePanel;

// The desktop application's window: the 3-D view and the image view side by
// side, docks for the task panels, the mesh and image panels, menus and a
// status bar with progress and the count of marked triangles.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(kvo::ref_ptr<kvo::CZebViewerMan> vm);
    ~MainWindow() override;

    // Opens a project file; false (with a message) when it can't.
    bool openProject(const QString& path);
    ModelView* modelView() const { return m_modelView; }
    // Writes window.png, model.png, image.png and views.txt (the 3-D view's
    // camera and the image view's zoom) into folder; false when it can't.
    bool renderViews(const QString& folder);
    ImageView* imageView() const { return m_imageView; }
    MeshPanel* meshPanel() const { return m_meshPanel; }
    ImagePanel* imagePanel() const { return m_imagePanel; }

public slots:
    void newProject();
    void openProjectDialog();
    bool saveProject();
    bool saveProjectAs();
    void closeProject();
    void addImages();
    void refreshAll();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void updateTitle();
    void updateActions();
    void addRecent(const QString& path);
    void rebuildRecentMenu();
    // Asks to save a changed project; false when the user cancels.
    bool maybeSave();
    void showProgress(double position, const QString& caption);
    // Clears the status bar after a long operation.
    void endProgress();
    void showError(const QString& text);

    kvo::ref_ptr<kvo::CZebViewerMan> m_vm;
    kvo::CKvoProgress m_progress;
    QElapsedTimer m_repaintClock;
    ModelView* m_modelView;
    ImageView* m_imageView;
    QSplitter* m_splitter;
    MeshPanel* m_meshPanel;
    ImagePanel* m_imagePanel;
    QDockWidget* m_taskDock;
    QDockWidget* m_secondDock;
    QLabel* m_caption;
    QProgressBar* m_bar;
    QLabel* m_marks;
    QMenu* m_recentMenu = nullptr;
    QList<QAction*> m_projectActions;
    QAction* m_undo = nullptr;
    QAction* m_redo = nullptr;
};

} // namespace quovara

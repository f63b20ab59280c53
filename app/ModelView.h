#pragma once

#include <QOpenGLFunctions_2_0>
#include <QOpenGLWidget>

#include <map>
#include <vector>

#include "platform/ZebViewerManImpl.h"

namespace quovara {

// The 3-D view. It only draws: the camera, picking and projection live in the
// viewer manager's track ball. Events go to the current task first; those it
// leaves (kvoNotHandled) rotate, pan and zoom the view.
class ModelView : public QOpenGLWidget, protected QOpenGLFunctions_2_0 {
    Q_OBJECT
public:
    explicit ModelView(kvo::ref_ptr<kvo::CZebViewerMan> vm, QWidget* parent = nullptr);
    ~ModelView() override;
    void fitToModel();
    // A model seen for the first time: from the front and above, all of it in view.
    void viewModelFromFront();
    // Drops every cached mesh and texture (after a project changed).
    void resetCache();

protected:
    void initializeGL() override;
    void resizeGL(int w, int h) override;
    void paintGL() override;
    void mousePressEvent(QMouseEvent* e) override;
    void mouseReleaseEvent(QMouseEvent* e) override;
    void mouseMoveEvent(QMouseEvent* e) override;
    void mouseDoubleClickEvent(QMouseEvent* e) override;
    void wheelEvent(QWheelEvent* e) override;
    void keyPressEvent(QKeyEvent* e) override;
    void keyReleaseEvent(QKeyEvent* e) override;
    void enterEvent(QEvent* e) override;
    void leaveEvent(QEvent* e) override;

private:
    // Per-corner arrays of one mesh, rebuilt when the mesh or the vertices change.
    struct MeshDraw {
        unsigned long long version = ~0ULL;
        // Held, not only remembered, so that its memory cannot pass for a new array's.
        kvo::ref_ptr<const kvo::Pnt3fArray> vertexArray;
        const void* vertices = nullptr;
        long vertexCount = -1;
        std::vector<float> positions, normals, uvs;
        std::vector<float> markedPositions;
        unsigned texture = 0;
        const void* textureImage = nullptr;
        unsigned long long textureRevision = ~0ULL;
    };
    void drawMesh(const kvo::ref_ptr<kvo::IKvoMesh>& mesh, bool textured);
    void prepare(MeshDraw& d, const kvo::ref_ptr<kvo::IKvoMesh>& mesh);
    void prepareTexture(MeshDraw& d, const kvo::ref_ptr<kvo::IKvoMesh>& mesh);

    kvo::ref_ptr<kvo::CZebViewerMan> m_vm;
    std::map<const kvo::IKvoMesh*, MeshDraw> m_cache;
    Qt::MouseButton m_dragButton = Qt::NoButton;
    QPoint m_last;
};

} // namespace quovara

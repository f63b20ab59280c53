#pragma once

#include <QListWidget>
#include <QTreeWidget>

#include "platform/ZebViewerManImpl.h"

namespace quovara {

// The meshes of the model in two sections, "Bare Mesh" and "Texture Mesh":
// a check box shows or hides a mesh; the context menu puts it to sleep or
// wakes it; the selection is the model manager's mesh selection.
class MeshPanel : public QTreeWidget {
    Q_OBJECT
public:
    explicit MeshPanel(kvo::ref_ptr<kvo::CZebViewerMan> vm, QWidget* parent = nullptr);
    void rebuild();
signals:
    void sceneChanged();

private:
    void onItemChanged(QTreeWidgetItem* item, int column);
    void onSelectionChanged();
    void onContextMenu(const QPoint& pos);
    kvo::ref_ptr<kvo::IKvoMesh> meshOf(QTreeWidgetItem* item) const;

    kvo::ref_ptr<kvo::CZebViewerMan> m_vm;
    bool m_building = false;
};

// Thumbnails of the project's images; a double click makes one active.
class ImagePanel : public QListWidget {
    Q_OBJECT
public:
    explicit ImagePanel(kvo::ref_ptr<kvo::CZebViewerMan> vm, QWidget* parent = nullptr);
    void rebuild();
    void refreshImage(long id);
signals:
    void activeImageChosen(long id);

private:
    QListWidgetItem* itemFor(long id, QListWidgetItem* item);
    kvo::ref_ptr<kvo::CZebViewerMan> m_vm;
};

} // namespace quovara

#include "Panels.h"

#include <QMenu>

using namespace kvo;

namespace quovara {

namespace {
const char* kBare = "Bare Mesh";
const char* kTexture = "Texture Mesh";
} // namespace

MeshPanel::MeshPanel(ref_ptr<CZebViewerMan> vm, QWidget* parent) : QTreeWidget(parent), m_vm(vm)
{
    setHeaderLabels({tr("Mesh"), tr("Triangles"), tr("State")});
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setContextMenuPolicy(Qt::CustomContextMenu);
    connect(this, &QTreeWidget::itemChanged, this, &MeshPanel::onItemChanged);
    connect(this, &QTreeWidget::itemSelectionChanged, this, &MeshPanel::onSelectionChanged);
    connect(this, &QWidget::customContextMenuRequested, this, &MeshPanel::onContextMenu);
    connect(vm->meshPanel(), &CZebMeshPanel::sectionChanged, this, [this] { rebuild(); });
}

ref_ptr<IKvoMesh> MeshPanel::meshOf(QTreeWidgetItem* item) const
{
    if (!item || !item->parent())
        return ref_ptr<IKvoMesh>();
    ref_ptr<IKvoModel> model;
    ref_ptr<IKvoMesh> mesh;
    if (getMM()->getBareModel(model))
        model->getMeshById(mesh, long(item->data(0, Qt::UserRole).toLongLong()));
    return mesh;
}

void MeshPanel::rebuild()
{
    m_building = true;
    clear();
    IKvoMM* mm = getMM();
    for (const char* section : {kBare, kTexture}) {
        auto* top = new QTreeWidgetItem(this, {tr(section)});
        top->setFlags(Qt::ItemIsEnabled);
        ref_ptr<MeshArray> meshes;
        if (QString(section) == kBare)
            mm->getBareMeshes(meshes);
        else
            mm->getTexMeshes(meshes);
        for (const ref_ptr<IKvoMesh>& m : meshes->vec()) {
            auto* item = new QTreeWidgetItem(top, {m->getName(), QString::number(m->getFaceCount()),
                                                   mm->isMeshAsleep(m) ? tr("asleep") : tr("awake")});
            item->setData(0, Qt::UserRole, qlonglong(m->getId()));
            item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
            item->setCheckState(0, m->isMeshShown() ? Qt::Checked : Qt::Unchecked);
            item->setSelected(mm->isTexMeshSelected(m));
        }
        top->setExpanded(true);
    }
    resizeColumnToContents(0);
    m_building = false;
}

void MeshPanel::onItemChanged(QTreeWidgetItem* item, int column)
{
    if (m_building || column != 0)
        return;
    if (ref_ptr<IKvoMesh> mesh = meshOf(item)) {
        mesh->setMeshShown(item->checkState(0) == Qt::Checked);
        emit sceneChanged();
    }
}

void MeshPanel::onSelectionChanged()
{
    if (m_building)
        return;
    IKvoMM* mm = getMM();
    ref_ptr<MeshArray> all;
    mm->getAllMeshes(all);
    for (const ref_ptr<IKvoMesh>& m : all->vec())
        mm->setMeshSelected(m, false);
    for (QTreeWidgetItem* item : selectedItems())
        if (ref_ptr<IKvoMesh> mesh = meshOf(item))
            mm->setMeshSelected(mesh, true);
}

void MeshPanel::onContextMenu(const QPoint& pos)
{
    ref_ptr<IKvoMesh> mesh = meshOf(itemAt(pos));
    if (!mesh)
        return;
    IKvoMM* mm = getMM();
    QMenu menu(this);
    QAction* sleep = menu.addAction(mm->isMeshAsleep(mesh) ? tr("Wake") : tr("Sleep"));
    QAction* show = menu.addAction(mesh->isMeshShown() ? tr("Hide") : tr("Show"));
    QAction* chosen = menu.exec(viewport()->mapToGlobal(pos));
    if (chosen == sleep) {
        if (mm->isMeshAsleep(mesh))
            mm->wakeMesh(mesh->getId(), 0);
        else
            mm->sleepMesh(mesh, nullptr);
    } else if (chosen == show) {
        mesh->setMeshShown(!mesh->isMeshShown());
    } else {
        return;
    }
    rebuild();
    emit sceneChanged();
}

ImagePanel::ImagePanel(ref_ptr<CZebViewerMan> vm, QWidget* parent) : QListWidget(parent), m_vm(vm)
{
    setViewMode(QListView::IconMode);
    setIconSize(QSize(120, 90));
    setResizeMode(QListView::Adjust);
    setMovement(QListView::Static);
    setSpacing(4);
    connect(this, &QListWidget::itemDoubleClicked, this,
            [this](QListWidgetItem* item) { emit activeImageChosen(long(item->data(Qt::UserRole).toLongLong())); });
    connect(vm->imagePanel(), &CZebImagePanel::refreshRequested, this, &ImagePanel::refreshImage);
}

QListWidgetItem* ImagePanel::itemFor(long id, QListWidgetItem* item)
{
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    IKvoMM* mm = getMM();
    if (!mm->getProject(project) || !project->getImageDb(db) || !db->getImageInfo(info, id))
        return item;
    if (!item)
        item = new QListWidgetItem(this);
    item->setData(Qt::UserRole, qlonglong(id));
    QString label = info->getName();
    if (mm->isImageMapped(id))
        label += " *";
    if (id == mm->getActiveImageId())
        label = "> " + label;
    item->setText(label);
    item->setToolTip(QString("%1 (id %2)").arg(info->getFilePath(kvoPathOriginal)).arg(id));
    // A small level of the pyramid keeps thumbnails cheap.
    ref_ptr<IKvoImage> small;
    XPnt2i size;
    info->getImageSize(size, 2);
    long level = 2;
    while (level < 8 && (size.x >> (level - 2)) > 480)
        ++level;
    if (db->getTexture(small, id, level) && small) {
        QImage img(small->getData(), int(small->getWidth()), int(small->getHeight()), int(small->getStride()),
                   QImage::Format_RGBA8888);
        item->setIcon(QIcon(QPixmap::fromImage(img.scaled(iconSize(), Qt::KeepAspectRatio, Qt::SmoothTransformation))));
    }
    return item;
}

void ImagePanel::rebuild()
{
    clear();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<LongArray> ids;
    if (getMM()->getProject(project) && project->getImageDb(db) && db->getImageIds(ids))
        for (long id : ids->vec())
            itemFor(id, nullptr);
}

void ImagePanel::refreshImage(long id)
{
    if (id <= 0) {
        rebuild();
        return;
    }
    for (int i = 0; i < count(); ++i)
        if (item(i)->data(Qt::UserRole).toLongLong() == id) {
            itemFor(id, item(i));
            return;
        }
    itemFor(id, nullptr);
}

} // namespace quovara

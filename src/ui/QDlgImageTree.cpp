#include "ui/QDlgImageTree.h"

#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QHeaderView>
#include <QLabel>
#include <QTableWidget>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "scene/KvoStore.h"

namespace kvo {

namespace {
QString mappingText(long type)
{
    switch (type) {
    case 0: return QObject::tr("Control points");
    case 1: return QObject::tr("Virtual camera");
    case 2: return QObject::tr("Plane");
    default: return QObject::tr("Not mapped");
    }
}
} // namespace

QDlgImageTree::QDlgImageTree(QWidget* parent) : QDialog(parent)
{
    setWindowTitle(tr("Images"));
    m_tree = new QTreeWidget(this);
    m_tree->setColumnCount(4);
    m_tree->setHeaderLabels({tr("Id"), tr("Name"), tr("Size"), tr("Mapping")});
    m_tree->setRootIsDecorated(false);
    m_tree->setSelectionMode(QAbstractItemView::SingleSelection);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_tree);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_tree, &QTreeWidget::itemDoubleClicked, this, &QDialog::accept);

    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<LongArray> ids;
    if (mm->getProject(project) && project->getImageDb(db) && db->getImageIds(ids))
        for (long id : ids->vec()) {
            ref_ptr<IKvoImageInfo> info;
            db->getImageInfo(info, id);
            XPnt2i size;
            info->getImageSize(size, 2);
            auto* item = new QTreeWidgetItem(
                m_tree, {QString::number(id), info->getName(), QString("%1 x %2").arg(size.x).arg(size.y),
                         mappingText(mm->isImageMapped(id) ? info->getMappingType() : -1)});
            item->setData(0, Qt::UserRole, qlonglong(id));
            if (id == mm->getActiveImageId())
                m_tree->setCurrentItem(item);
        }
    m_tree->header()->resizeSections(QHeaderView::ResizeToContents);
    resize(480, 360);
}

long QDlgImageTree::selectedId() const
{
    QTreeWidgetItem* item = m_tree->currentItem();
    return item ? long(item->data(0, Qt::UserRole).toLongLong()) : -1;
}

bool QDlgImageTree::selectId(long id)
{
    for (int i = 0; i < m_tree->topLevelItemCount(); ++i)
        if (m_tree->topLevelItem(i)->data(0, Qt::UserRole).toLongLong() == id) {
            m_tree->setCurrentItem(m_tree->topLevelItem(i));
            return true;
        }
    return false;
}

int QDlgImageTree::imageCount() const
{
    return m_tree->topLevelItemCount();
}

QDlgAbout::QDlgAbout(QWidget* parent, int mode) : QDialog(parent), m_mode(mode)
{
    auto* layout = new QVBoxLayout(this);
    if (mode == 0) {
        setWindowTitle(tr("About Quovara"));
        auto* text = new QLabel(tr("<h3>Quovara %1</h3><p>Texturing of 3-D models reconstructed from photographs.</p>"
                                   "<p>Built with Qt %2.</p>")
                                    .arg(QCoreApplication::applicationVersion().isEmpty()
                                             ? QString("0.1")
                                             : QCoreApplication::applicationVersion())
                                    .arg(QT_VERSION_STR),
                                this);
        text->setTextFormat(Qt::RichText);
        layout->addWidget(text);
    } else {
        setWindowTitle(tr("Shortcuts"));
        const QList<QPair<QString, QString>> rows = {
            {tr("Left drag (3-D view)"), tr("Rotate the model")},
            {tr("Right or middle drag"), tr("Pan")},
            {tr("Wheel"), tr("Zoom")},
            {tr("Ctrl + click"), tr("Pick a point in the current tool")},
            {tr("Ctrl+N / Ctrl+O / Ctrl+S"), tr("New, open, save project")},
            {tr("Ctrl+Z / Ctrl+Y"), tr("Undo, redo")},
            {tr("F"), tr("Fit the model in the view")},
        };
        auto* table = new QTableWidget(rows.size(), 2, this);
        table->setHorizontalHeaderLabels({tr("Keys"), tr("Action")});
        for (int i = 0; i < rows.size(); ++i) {
            table->setItem(i, 0, new QTableWidgetItem(rows[i].first));
            table->setItem(i, 1, new QTableWidgetItem(rows[i].second));
        }
        table->horizontalHeader()->setStretchLastSection(true);
        table->resizeColumnsToContents();
        table->setEditTriggers(QAbstractItemView::NoEditTriggers);
        layout->addWidget(table);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

} // namespace kvo

#include "modelio/QDlgOutputModel.h"

#include <QCheckBox>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "commands/KvoCommands.h"
#include "scene/KvoPresenter.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

namespace {

enum Column { kColExport = 0, kColResample = 1, kColName = 2, kColPath = 3 };

const QColor kMarked(255, 160, 160);

void tips(const QString& text)
{
    msgWarningTitled("Tips", text);
}

} // namespace

QDlgOutputModel::QDlgOutputModel(QWidget* parent) : QWidget(parent)
{
    setWindowTitle("Export Mesh");
    setObjectName("QDlgOutputModel");
    m_table = new QTableWidget(0, 4, this);
    m_table->setHorizontalHeaderLabels({"Export", "Resample", "Name", "Path"});
    m_table->setColumnWidth(kColExport, 50);
    m_table->setColumnWidth(kColResample, 70);
    m_table->setColumnWidth(kColName, 70);
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->verticalHeader()->setVisible(false);
    m_table->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_table, &QTableWidget::customContextMenuRequested, this, &QDlgOutputModel::showContextMenu);

    m_clip = new QCheckBox("Clip Big Image", this);
    m_single = new QCheckBox("Export Single Mesh", this);
    m_recalc = new QCheckBox("Recalculate UV", this);
    m_origin = new QCheckBox("Move Model to the Origin", this);
    m_swap = new QCheckBox("Swap Y and Z Axis", this);
    m_pow2 = new QCheckBox("Width and Height is Power of 2", this);
    m_uvPath = new QLineEdit(this);
    m_uvButton = new QPushButton("...", this);
    m_exportPath = new QLineEdit(this);
    auto* saveButton = new QPushButton("...", this);
    auto* exportButton = new QPushButton("Export", this);
    auto* okButton = new QPushButton("OK", this);
    m_recalc->setEnabled(false);
    m_uvPath->setEnabled(false);
    m_uvButton->setEnabled(false);

    auto* grid = new QGridLayout;
    grid->addWidget(m_single, 0, 0);
    grid->addWidget(m_recalc, 0, 1);
    grid->addWidget(new QLabel("UV File", this), 1, 0);
    auto* uvRow = new QHBoxLayout;
    uvRow->addWidget(m_uvPath);
    uvRow->addWidget(m_uvButton);
    grid->addLayout(uvRow, 1, 1);
    grid->addWidget(m_clip, 2, 0);
    grid->addWidget(m_pow2, 2, 1);
    grid->addWidget(m_origin, 3, 0);
    grid->addWidget(m_swap, 3, 1);
    grid->addWidget(new QLabel("Export File", this), 4, 0);
    auto* pathRow = new QHBoxLayout;
    pathRow->addWidget(m_exportPath);
    pathRow->addWidget(saveButton);
    grid->addLayout(pathRow, 4, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(exportButton);
    buttons->addWidget(okButton);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_table);
    layout->addLayout(grid);
    layout->addLayout(buttons);

    connect(exportButton, &QPushButton::clicked, this, &QDlgOutputModel::clickedExport);
    connect(okButton, &QPushButton::clicked, this, &QDlgOutputModel::clickedOK);
    connect(saveButton, &QPushButton::clicked, this, &QDlgOutputModel::clickedSavePath);
    connect(m_uvButton, &QPushButton::clicked, this, &QDlgOutputModel::clickedUvPath);
    connect(m_single, &QCheckBox::toggled, this, &QDlgOutputModel::clickedUnionCB);
    connect(m_clip, &QCheckBox::toggled, this, &QDlgOutputModel::clickedClipCB);
}

bool QDlgOutputModel::initRows()
{
    m_table->setRowCount(0);
    m_meshes.clear();
    IKvoMM* mm = getMM();
    ref_ptr<MeshArray> all;
    if (mm)
        mm->getAllMeshes(all);
    if (!all || all->getCount() == 0) {
        msgWarningQt("Mesh is Null!");
        return false;
    }
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    if (mm->getProject(project))
        project->getImageDb(db);
    for (long i = 0; i < all->getCount(); ++i) {
        ref_ptr<IKvoMesh> mesh = (*all)[i];
        const bool texture = mm->getMeshKind(mesh) == 1;
        const int row = m_table->rowCount();
        m_table->insertRow(row);
        m_meshes.push_back(mesh);
        auto* exportItem = new QTableWidgetItem;
        exportItem->setFlags(Qt::ItemIsUserCheckable | Qt::ItemIsEnabled);
        exportItem->setCheckState(texture ? Qt::Checked : Qt::Unchecked);
        m_table->setItem(row, kColExport, exportItem);
        auto* resample = new QTableWidgetItem;
        if (texture) {
            resample->setFlags(Qt::ItemIsUserCheckable | Qt::ItemIsEnabled);
            resample->setCheckState(Qt::Checked);
        } else {
            resample->setFlags(Qt::ItemIsEnabled);
        }
        m_table->setItem(row, kColResample, resample);
        auto* name = new QTableWidgetItem(mesh->getName());
        name->setFlags(Qt::ItemIsEnabled);
        m_table->setItem(row, kColName, name);
        QString path;
        ref_ptr<IKvoImageInfo> info;
        if (texture && db && db->getImageInfo(info, mesh->getImageId()) && info)
            path = info->getFilePath(kvoPathOriginal).replace("\\", "/");
        m_table->setItem(row, kColPath, new QTableWidgetItem(path));
    }
    return true;
}

int QDlgOutputModel::rowCount() const
{
    return m_table->rowCount();
}

bool QDlgOutputModel::isRowExported(int row) const
{
    return m_table->item(row, kColExport)->checkState() == Qt::Checked;
}

void QDlgOutputModel::setRowExported(int row, bool on)
{
    m_table->item(row, kColExport)->setCheckState(on ? Qt::Checked : Qt::Unchecked);
}

int QDlgOutputModel::rowResample(int row) const
{
    QTableWidgetItem* item = m_table->item(row, kColResample);
    if (!(item->flags() & Qt::ItemIsUserCheckable))
        return -1;
    return item->checkState() == Qt::Checked ? 1 : 0;
}

void QDlgOutputModel::setRowResample(int row, bool on)
{
    QTableWidgetItem* item = m_table->item(row, kColResample);
    if (item->flags() & Qt::ItemIsUserCheckable)
        item->setCheckState(on ? Qt::Checked : Qt::Unchecked);
}

QString QDlgOutputModel::rowName(int row) const
{
    return m_table->item(row, kColName)->text();
}

QString QDlgOutputModel::rowPath(int row) const
{
    return m_table->item(row, kColPath)->text();
}

void QDlgOutputModel::setRowPath(int row, const QString& path)
{
    m_table->item(row, kColPath)->setText(path);
}

bool QDlgOutputModel::isRowPathMarked(int row) const
{
    return m_table->item(row, kColPath)->background().color() == kMarked;
}

void QDlgOutputModel::setExportPath(const QString& path)
{
    m_exportPath->setText(path);
}

void QDlgOutputModel::setUvPath(const QString& path)
{
    m_uvPath->setText(path);
}

void QDlgOutputModel::clickedUnionCB(bool checked)
{
    m_recalc->setEnabled(checked);
    m_uvPath->setEnabled(checked);
    m_uvButton->setEnabled(checked);
    m_singleFlag = checked;
    if (checked)
        m_clip->setChecked(false);
}

void QDlgOutputModel::clickedClipCB(bool) {}

void QDlgOutputModel::clickedSelectAll()
{
    for (int r = 0; r < rowCount(); ++r)
        setRowExported(r, true);
}

void QDlgOutputModel::clickedRevertSelect()
{
    for (int r = 0; r < rowCount(); ++r)
        setRowExported(r, !isRowExported(r));
}

void QDlgOutputModel::clickedClearAll()
{
    for (int r = 0; r < rowCount(); ++r)
        setRowExported(r, false);
}

void QDlgOutputModel::clickedAllDB()
{
    for (int r = 0; r < rowCount(); ++r)
        setRowResample(r, true);
}

void QDlgOutputModel::clickedAllOut()
{
    for (int r = 0; r < rowCount(); ++r)
        setRowResample(r, false);
}

void QDlgOutputModel::showContextMenu(const QPoint& at)
{
    QMenu menu(this);
    menu.addAction("Select All", this, &QDlgOutputModel::clickedSelectAll);
    menu.addAction("Select Reverse", this, &QDlgOutputModel::clickedRevertSelect);
    menu.addAction("Select None", this, &QDlgOutputModel::clickedClearAll);
    menu.addAction("Use Resample Image", this, &QDlgOutputModel::clickedAllDB);
    menu.addAction("Use Source Image", this, &QDlgOutputModel::clickedAllOut);
    menu.exec(m_table->viewport()->mapToGlobal(at));
}

void QDlgOutputModel::clickedSavePath()
{
    QString dir = getPresenter()->getExistingDirectory(this, "Export File", m_exportPath->text());
    if (!dir.isEmpty())
        m_exportPath->setText(dir);
}

void QDlgOutputModel::clickedUvPath()
{
    QString file = getPresenter()->getOpenFileName(this, "UV File", m_uvPath->text(), "OBJ files (*.obj)");
    if (!file.isEmpty())
        m_uvPath->setText(file);
}

void QDlgOutputModel::clickedOK()
{
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        if (IZebDialogHost* host = vm->getDialogHost())
            if (host->getAttached() == this) {
                host->clear();
                return;
            }
    close();
}

ref_ptr<ExportInfoArray> QDlgOutputModel::collectRows() const
{
    ref_ptr<ExportInfoArray> rows = newExportInfoArray();
    for (int r = 0; r < rowCount(); ++r) {
        if (!isRowExported(r))
            continue;
        _ExportInfo info;
        info.mesh = m_meshes[size_t(r)];
        info.resample = rowResample(r) != 0;
        info.name = rowName(r);
        info.path = rowPath(r);
        rows->append(info);
    }
    return rows;
}

void QDlgOutputModel::clickedExport()
{
    m_lastResult = 0;
    const bool single = m_single->isChecked();
    if (single && m_clip->isChecked()) {
        tips("Export Union and Split Super Image are Selected at the same time!");
        return;
    }
    const QString dir = m_exportPath->text().trimmed();
    if (dir.isEmpty()) {
        tips("The Export Path is empty!");
        return;
    }
    if (!QFileInfo::exists(dir)) {
        tips("The Export Path isn't exist!");
        return;
    }
    if (single || m_recalc->isChecked()) {
        const QString uv = m_uvPath->text().trimmed();
        if (uv.isEmpty()) {
            tips("The UV Path is empty!");
            return;
        }
        if (!QFileInfo::exists(uv)) {
            tips("The UV Path isn't exist!");
            return;
        }
    }
    bool bad = false;
    for (int r = 0; r < rowCount(); ++r) {
        QTableWidgetItem* path = m_table->item(r, kColPath);
        if (!isRowExported(r)) {
            setRowResample(r, false);
            continue;
        }
        if (rowResample(r) == 0 && (path->text().isEmpty() || !QFileInfo(path->text()).isFile())) {
            path->setBackground(kMarked);
            bad = true;
        } else {
            path->setBackground(QBrush());
        }
    }
    if (bad)
        return;

    // A changed source path becomes the image's source; the user's files stay untouched.
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    if (mm && mm->getProject(project))
        project->getImageDb(db);
    for (int r = 0; db && r < rowCount(); ++r) {
        if (mm->getMeshKind(m_meshes[size_t(r)]) != 1)
            continue;
        ref_ptr<IKvoImageInfo> info;
        if (!db->getImageInfo(info, m_meshes[size_t(r)]->getImageId()) || !info)
            continue;
        const QString stored = info->getFilePath(kvoPathOriginal).replace("\\", "/");
        if (!rowPath(r).isEmpty() && rowPath(r) != stored && QFileInfo(rowPath(r)).isFile())
            info->setFilePath(rowPath(r), kvoPathOriginal);
        setRowPath(r, info->getFilePath(kvoPathOriginal).replace("\\", "/"));
    }

    ref_ptr<ExportInfoArray> rows = collectRows();
    if (rows->getCount() == 0)
        return;
    if (!QFileInfo(dir).isDir()) {
        msgWarningQt("Please input correct path !");
        return;
    }
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    IKvoProgress* progress = vm ? vm->getProgress() : nullptr;
    prgText(progress, "Export...");
    KvoModelExporter exporter(dir);
    {
        KvoPrgPush push(progress, 1.0);
        if (single) {
            m_lastResult =
                exporter.exportSingleMesh(*rows, m_atlasSize, m_recalc->isChecked(), m_uvPath->text(), progress);
        } else {
            KvoExportFlags flags;
            flags.swapYZ = m_swap->isChecked();
            flags.moveToOrigin = m_origin->isChecked();
            flags.powerOf2 = m_pow2->isChecked();
            flags.clipBigImage = m_clip->isChecked();
            m_lastResult = exporter.exportRespective(*rows, flags, progress);
        }
    }
    m_report = exporter.report();
    if (single && m_lastResult < 0 && m_lastResult > kvoExportNoFolder)
        tips("The UV Path isn't exist!");
    else if (m_lastResult == kvoExportCannotWrite)
        msgWarningQt(QString("Cannot write the files in %1.").arg(dir));
}

} // namespace kvo

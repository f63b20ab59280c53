#include "modelio/QDlgImportMesh.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "commands/KvoCommands.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

namespace {

QString trq(const char* text)
{
    return QCoreApplication::translate("Quovara", text);
}

// The records' file kinds, in the order they are carried over.
const int kPathKinds[] = {2, 3, 1, 0, 4, 5};

bool sameVertices(const IKvoModel* a, const IKvoModel* b)
{
    if (!a || !b || a->getMeshCount() < 1 || a->getVertexCount() != b->getVertexCount())
        return false;
    const Pnt3fArray* va = a->getVertices();
    const Pnt3fArray* vb = b->getVertices();
    if (!va || !vb)
        return false;
    for (long i = 0, n = a->getVertexCount(); i < n; ++i) {
        const XPnt3f& p = (*va)[i];
        const XPnt3f& q = (*vb)[i];
        if (p.x != q.x || p.y != q.y || p.z != q.z)
            return false;
    }
    return true;
}

QString replaceId(const QString& text, long oldId, long newId)
{
    QString out = text;
    return out.replace(QString("/%1").arg(oldId), QString("/%1").arg(newId));
}

// A path inside the folder as a relative path, else empty.
QString relativeTo(const QString& folder, const QString& path)
{
    const QString clean = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    if (clean.startsWith(folder + "/"))
        return clean.mid(folder.size() + 1);
    return QString();
}

bool copyOver(const QString& from, const QString& to)
{
    QDir().mkpath(QFileInfo(to).absolutePath());
    QFile::remove(to);
    return QFile::copy(from, to);
}

} // namespace

QDlgImportMesh::QDlgImportMesh(QWidget* parent) : QDialog(parent)
{
    setWindowTitle(trq("Import Images&Meshes From Project"));
    m_table = new QTableWidget(0, 3, this);
    m_table->setHorizontalHeaderLabels({trq("Import"), trq("Image Name"), trq("Mesh Name")});
    m_table->verticalHeader()->hide();
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_message = new QLabel(this);
    m_message->setWordWrap(true);
    auto* import = new QPushButton(trq("Import"), this);
    auto* close = new QPushButton(trq("Close"), this);
    auto* buttons = new QHBoxLayout();
    buttons->addStretch();
    buttons->addWidget(import);
    buttons->addWidget(close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_table);
    layout->addWidget(m_message);
    layout->addLayout(buttons);
    connect(import, &QPushButton::clicked, this, [this] { importChecked(); });
    connect(close, &QPushButton::clicked, this, &QDialog::reject);
    resize(520, 400);
}

long QDlgImportMesh::initFromProject(const QString& file)
{
    m_error.clear();
    m_table->setRowCount(0);
    if (file.isEmpty()) {
        m_error = trq("No project file was given.");
        return -1;
    }
    ref_ptr<IKvoFileSystem> fs = newKvoFileSystem();
    if (fs->open(file) != kvoOk) {
        m_error = fs->getLastError();
        return -1;
    }
    m_source = fs;
    fs->getImageDb(m_sourceDb);
    fs->readModel(m_sourceModel);
    ref_ptr<IKvoModel> own;
    getMM()->getBareModel(own);
    m_same = sameVertices(own.get(), m_sourceModel.get());

    ref_ptr<LongArray> ids;
    if (m_sourceDb)
        m_sourceDb->getImageIds(ids);
    const long n = ids ? ids->getCount() : 0;
    m_table->setRowCount(int(n));
    for (long r = 0; r < n; ++r) {
        const long id = ids->getAt(r);
        auto* check = new QTableWidgetItem();
        check->setFlags(Qt::ItemIsUserCheckable | Qt::ItemIsEnabled);
        check->setCheckState(Qt::Unchecked);
        m_table->setItem(int(r), 0, check);
        auto* idItem = new QTableWidgetItem(QString::number(id));
        idItem->setData(Qt::UserRole, qlonglong(id));
        m_table->setItem(int(r), 1, idItem);
        QString meshName;
        if (m_sourceModel)
            for (long i = 0; i < m_sourceModel->getMeshCount(); ++i) {
                ref_ptr<IKvoMesh> m = m_sourceModel->getMesh(i);
                if (m->getImageId() == id)
                    meshName = m->getName();
            }
        m_table->setItem(int(r), 2, new QTableWidgetItem(meshName));
    }
    m_table->horizontalHeader()->resizeSections(QHeaderView::ResizeToContents);
    m_message->setText(messageText());
    return 0;
}

QString QDlgImportMesh::messageText() const
{
    return m_same ? trq("Model is same, you can import images and meshes.")
                  : trq("Model is not same, you can only import images.");
}

int QDlgImportMesh::rowCount() const
{
    return m_table->rowCount();
}

long QDlgImportMesh::rowImageId(int row) const
{
    QTableWidgetItem* item = m_table->item(row, 1);
    return item ? long(item->data(Qt::UserRole).toLongLong()) : -1;
}

QString QDlgImportMesh::rowMeshName(int row) const
{
    QTableWidgetItem* item = m_table->item(row, 2);
    return item ? item->text() : QString();
}

void QDlgImportMesh::setRowChecked(int row, bool checked)
{
    if (QTableWidgetItem* item = m_table->item(row, 0))
        item->setCheckState(checked ? Qt::Checked : Qt::Unchecked);
}

bool QDlgImportMesh::importChecked()
{
    m_imported.clear();
    std::vector<int> rows;
    for (int r = 0; r < m_table->rowCount(); ++r)
        if (m_table->item(r, 0) && m_table->item(r, 0)->checkState() == Qt::Checked)
            rows.push_back(r);
    if (rows.empty()) {
        msgWarningTitled(QString(), trq("Please select a Mesh!"));
        return false;
    }
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    IKvoProgress* progress = vm ? vm->getProgress() : nullptr;
    prgText(progress, trq("Import..."));
    QStringList failed;
    for (int r : rows) {
        const bool withMesh = m_same && !rowMeshName(r).isEmpty();
        const long id = importImage(rowImageId(r), withMesh);
        m_imported.push_back(id);
        if (id < 0)
            failed << QString::number(rowImageId(r));
        prgStep(progress, 1.0 / double(rows.size()));
    }
    if (vm) {
        if (vm->getImagePanel())
            vm->getImagePanel()->refreshImage(0);
        if (vm->getMeshPanel())
            vm->getMeshPanel()->refreshSection("Texture Mesh");
    }
    if (!failed.isEmpty())
        msgWarningTitled(QString(), trq("These images could not be imported: %1").arg(failed.join(", ")));
    accept();
    return true;
}

long QDlgImportMesh::importImage(long sourceId, bool withMesh)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> src;
    if (!mm->getProject(project) || !project->getImageDb(db) || !m_sourceDb || !m_sourceDb->getImageInfo(src, sourceId))
        return -1;
    // The database makes the new record from the image file and gives its id.
    long newId = -1;
    const QString picture = src->getFilePath(2);
    const long rc = src->isBigImage() ? db->addBigImage(picture, newId) : db->addImage(picture, newId);
    if (rc != kvoOk || newId < 0)
        return -1;
    ref_ptr<IKvoImageInfo> rec;
    db->getImageInfo(rec, newId);
    QString ownFolder;
    db->getFolder(ownFolder);
    QString sourceFolder;
    m_sourceDb->getFolder(sourceFolder);

    for (int kind : kPathKinds) {
        QString from;
        if (kind == 2 || !src->getFilePath(from, kind) || !QFileInfo(from).isFile())
            continue;
        const QString rel = relativeTo(sourceFolder, from);
        if (rel.isEmpty()) {
            rec->setFilePath(from, kind); // outside the project (the file the user added): it stays where it is
            continue;
        }
        const QString to = ownFolder + "/" + replaceId("/" + rel, sourceId, newId).mid(1);
        if (copyOver(from, to))
            rec->setFilePath(to, kind);
    }
    // The session files of the virtual camera lie beside the image and in its data folder.
    QString sourceData;
    src->getDataFolder(sourceData);
    QString ownData;
    rec->getDataFolder(ownData);
    const QString sourceImageDir = QFileInfo(picture).absolutePath();
    const QString ownImageDir = QFileInfo(rec->getFilePath(2)).absolutePath();
    for (const char* suffix : {"_VCBinImg.jpg", "_VCBrushImg.jpg"}) {
        const QString oldName = QString::number(sourceId) + suffix;
        const QString newName = QString::number(newId) + suffix;
        if (QFileInfo(sourceImageDir + "/" + oldName).isFile())
            copyOver(sourceImageDir + "/" + oldName, ownImageDir + "/" + newName);
        if (QFileInfo(sourceData + "/" + oldName).isFile())
            copyOver(sourceData + "/" + oldName, ownData + "/" + newName);
    }
    rec->setName(src->getName());
    rec->setMappingType(src->getMappingType());
    {
        ref_ptr<Pnt2dArray> pts;
        src->getCtrlImagePnts(pts);
        if (pts)
            for (const XPnt2d& p : pts->vec())
                rec->addCtrlImagePnt(p);
        ref_ptr<Pnt3dArray> world;
        src->getCtrlWorldPnts(world);
        if (world)
            for (const XPnt3d& p : world->vec())
                rec->addCtrlWorldPnt(p);
        ref_ptr<PntPntArray> match;
        src->getMatchPnts(match);
        if (match)
            for (const POINT_POINT& p : match->vec())
                rec->addMatchPnt(p);
    }
    ZebQVVCParam camera;
    if (m_source->getVCParam(sourceId, camera))
        mm->setVCParam(newId, camera);

    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    if (withMesh && m_sourceModel) {
        ref_ptr<IKvoMesh> from;
        for (long i = 0; i < m_sourceModel->getMeshCount() && !from; ++i)
            if (m_sourceModel->getMesh(i)->getImageId() == sourceId)
                from = m_sourceModel->getMesh(i);
        ref_ptr<IKvoMesh> mesh;
        if (from)
            mm->createTexMesh(mesh, false, newId, from->isTiled());
        if (mesh) {
            QString fileName;
            from->getFileName(fileName);
            mesh->setName(replaceId(from->getName(), sourceId, newId));
            mesh->setFileName(replaceId(fileName, sourceId, newId));
            ref_ptr<IKvoImage> pixels;
            mesh->setImage(db->getTexture(pixels, newId, 2));
            if (Pnt2fArray* uvs = from->getUVs())
                mesh->setUVs(uvs->clone().get());
            ref_ptr<UIntArray> tris = from->getTriangleIndices()->clone();
            if (Pnt3fArray* normals = from->getFaceNormals(); normals && normals->getCount() == from->getFaceCount())
                mesh->setFaceNormals(normals->clone().get(), false);
            if (UIntArray* corners = from->getCornerTexIndices())
                mesh->setCornerTexIndices(tris.get(), corners->clone().get());
            mesh->setTriangleIndices(tris.get(), true);
            mm->commitTexEdit();
            if (vm && vm->getMeshPanel())
                vm->getMeshPanel()->add(mesh, "Texture Mesh");
        }
    }
    mm->setDirty(true);
    if (vm && vm->getImagePanel())
        vm->getImagePanel()->refreshImage(newId);
    return newId;
}

} // namespace kvo

#include "platform/KvoModelManImpl.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cstring>

#include "scene/KvoFile.h"

namespace kvo {

// ---------------------------------------------------------------- CKvoProject

CKvoProject::CKvoProject(CKvoMM* mm, const QString& filePath) : m_mm(mm), m_db(new CKvoImageDb())
{
    setFilePath(filePath);
}

QString CKvoProject::folderFor(const QString& projectFile)
{
    QFileInfo fi(projectFile);
    return fi.absolutePath() + "/" + fi.completeBaseName() + "_files";
}

void CKvoProject::setFilePath(const QString& path)
{
    m_path = QFileInfo(path).absoluteFilePath();
    m_folder = folderFor(m_path);
}

void CKvoProject::getTempFolder(QString& out) const
{
    out = m_folder + "/temp";
    createFolder(out);
}

long CKvoProject::save(IKvoProgress* progress)
{
    return m_mm->saveProject(progress);
}

long CKvoProject::saveAs(const QString& path, IKvoProgress* progress)
{
    return m_mm->saveProjectAs(path, progress);
}

// ---------------------------------------------------------------- CKvoMM

CKvoMM::CKvoMM() = default;
CKvoMM::~CKvoMM() = default;

CKvoModel* CKvoMM::model() const
{
    return dynamic_cast<CKvoModel*>(m_model.get());
}

namespace {
QString withProjectExtension(const QString& path)
{
    return path.endsWith(".qvj", Qt::CaseInsensitive) ? path : path + ".qvj";
}
} // namespace

namespace {
const QString kPlanesSection = "RefPlanes";
const QString kPlanesKey = "list";
} // namespace

void CKvoMM::swapState(State& s)
{
    std::swap(m_project, s.project);
    std::swap(m_model, s.model);
    std::swap(m_modelFileName, s.modelFileName);
    std::swap(m_fence, s.fence);
    std::swap(m_refImageId, s.refImageId);
    std::swap(m_activeImageId, s.activeImageId);
    std::swap(m_blobs, s.blobs);
    std::swap(m_vcParams, s.vcParams);
    std::swap(m_planes, s.planes);
    if (m_project && !m_planes) {
        // The planes travel in a blob of the project file.
        m_planes = new CKvoQvRefPlaneMan();
        QByteArray blob;
        if (getProjectBlob(kPlanesSection, kPlanesKey, blob))
            m_planes->fromBlob(blob);
    }
    if (m_planes)
        m_planes->setChangeListener([this] { m_dirty = true; });
    m_texEdit.reset();
    m_dirty = false;
}

long CKvoMM::newProject(const QString& rawPath, IKvoProgress* progress)
{
    m_error.clear();
    if (rawPath.trimmed().isEmpty()) {
        m_error = "No project file name was given.";
        return kvoErrBadArgument;
    }
    const QString path = QFileInfo(withProjectExtension(rawPath)).absoluteFilePath();
    if (QFileInfo::exists(path)) {
        m_error = QString("The project file %1 already exists.").arg(path);
        return kvoErrBadArgument;
    }
    State s;
    s.project = new CKvoProject(this, path);
    long rc = s.project->imageDb()->open(s.project->getFolder());
    if (rc != kvoOk) {
        m_error = s.project->imageDb()->lastError();
        return rc;
    }
    swapState(s);
    rc = saveProject(progress);
    if (rc != kvoOk) {
        // Nothing usable was made: go back to the project that was open.
        swapState(s);
        QDir(CKvoProject::folderFor(path)).removeRecursively();
        return rc;
    }
    return kvoOk;
}

long CKvoMM::openProject(const QString& path, IKvoProgress* progress)
{
    m_error.clear();
    KvoPrgPush push(progress, 1.0);
    State s;
    QString error;
    long rc = projectfile::load(path, *this, s, progress, error);
    if (rc != kvoOk) {
        m_error = error;
        return rc;
    }
    swapState(s);
    m_project->imageDb()->collectGarbage();
    return kvoOk;
}

long CKvoMM::saveProject(IKvoProgress* progress)
{
    m_error.clear();
    if (!m_project) {
        m_error = "No project is open.";
        return kvoErrNoProject;
    }
    if (m_planes) {
        if (m_planes->getPlaneCount() > 0 || m_planes->getActivePlaneId() >= 0)
            m_blobs[{kPlanesSection, kPlanesKey}] = m_planes->toBlob();
        else
            m_blobs.erase({kPlanesSection, kPlanesKey});
    }
    KvoPrgPush push(progress, 1.0);
    // A texture mesh's pixels are its image's project copy: edits made on the
    // mesh reach the file here.
    std::vector<CKvoMesh*> written;
    if (m_model)
        for (long i = 0, n = m_model->getMeshCount(); i < n; ++i) {
            CKvoMesh* m = asMesh(m_model->getMesh(i));
            if (m && m->getImageId() > 0 && m->isImageChanged()) {
                ref_ptr<IKvoImage> img;
                m->getImage(img);
                auto rec = m_project->imageDb()->record(m->getImageId());
                const bool same = rec && img && !img->getSourceFile().isEmpty() &&
                                  img->getSourceFile() == QFileInfo(rec->getFilePath(kvoPathImage)).absoluteFilePath();
                if (same || m_project->imageDb()->setTexture(img, m->getImageId(), 2) == kvoOk)
                    written.push_back(m);
            }
        }
    long rc = m_project->imageDb()->commit();
    if (rc != kvoOk) {
        m_error = m_project->imageDb()->lastError();
        return rc;
    }
    QString error;
    rc = projectfile::save(*this, m_project->getFilePath(), progress, error);
    if (rc != kvoOk) {
        m_error = error;
        return rc;
    }
    m_project->imageDb()->collectGarbage();
    ref_ptr<CKvoImageDb> db(m_project->imageDb());
    for (CKvoMesh* m : written) {
        const long imageId = m->getImageId();
        m->markImageSaved([db, imageId]() {
            ref_ptr<IKvoImage> tex;
            return db->getTexture(tex, imageId, 2);
        });
    }
    m_dirty = false;
    return kvoOk;
}

namespace {
bool copyFolder(const QString& from, const QString& to)
{
    QDir src(from);
    if (!src.exists())
        return true;
    if (!QDir().mkpath(to))
        return false;
    for (const QFileInfo& fi : src.entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString target = to + "/" + fi.fileName();
        if (fi.isDir()) {
            if (fi.fileName() == "temp")
                continue;
            if (!copyFolder(fi.absoluteFilePath(), target))
                return false;
        } else {
            QFile::remove(target);
            if (!QFile::copy(fi.absoluteFilePath(), target))
                return false;
        }
    }
    return true;
}
} // namespace

long CKvoMM::saveProjectAs(const QString& rawPath, IKvoProgress* progress)
{
    m_error.clear();
    if (!m_project) {
        m_error = "No project is open.";
        return kvoErrNoProject;
    }
    const QString path = QFileInfo(withProjectExtension(rawPath)).absoluteFilePath();
    if (path == m_project->getFilePath())
        return saveProject(progress);
    const QString oldPath = m_project->getFilePath();
    const QString oldFolder = m_project->getFolder();
    const QString newFolder = CKvoProject::folderFor(path);
    if (!copyFolder(oldFolder, newFolder)) {
        m_error = QString("Cannot copy the project's files to %1.").arg(newFolder);
        return kvoErrIO;
    }
    // Paths inside the folder are relative, so the records follow the copy.
    m_project->setFilePath(path);
    m_project->imageDb()->open(newFolder);
    long rc = saveProject(progress);
    if (rc != kvoOk) {
        m_project->setFilePath(oldPath);
        m_project->imageDb()->open(oldFolder);
    }
    return rc;
}

ref_ptr<IKvoQvRefPlaneMan>& CKvoMM::getRefPlaneMan(ref_ptr<IKvoQvRefPlaneMan>& out) const
{
    out = m_planes;
    return out;
}

void CKvoMM::closeProject()
{
    State empty;
    swapState(empty);
    m_selMarkCount = 0;
    m_error.clear();
}

void CKvoMM::getModelEnvelope(Enve3d& out) const
{
    out.reset();
    if (m_model)
        m_model->getEnvelope(out);
}

CKvoMesh* CKvoMM::asMesh(const ref_ptr<IKvoMesh>& mesh) const
{
    return dynamic_cast<CKvoMesh*>(mesh.get());
}

bool CKvoMM::ownsMesh(const IKvoMesh* mesh) const
{
    if (!m_model || !mesh)
        return false;
    for (long i = 0, n = m_model->getMeshCount(); i < n; ++i)
        if (m_model->getMesh(i).get() == mesh)
            return true;
    return false;
}

ref_ptr<IKvoMesh>& CKvoMM::createTexMesh(ref_ptr<IKvoMesh>& out, bool bare, long imageId, bool tiled)
{
    out.reset();
    if (!m_model || !m_project)
        return out;
    if (bare) {
        out = m_model->newMesh(-1, tiled);
        out->setName(QString("Mesh %1").arg(out->getId()));
    } else {
        ref_ptr<IKvoImageInfo> info;
        m_project->imageDb()->getImageInfo(info, imageId);
        if (!info)
            return out;
        // At most one texture mesh per image: asking again gives the one there is.
        getTexMeshOfImage(out, imageId);
        if (out)
            return out;
        out = m_model->newMesh(imageId, tiled);
        out->setName(info->getName());
    }
    m_model->addMesh(out);
    m_dirty = true;
    return out;
}

long CKvoMM::getImageIdByName(const QString& name) const
{
    if (!m_project || name.isEmpty())
        return -1;
    CKvoImageDb* db = m_project->imageDb();
    for (long id : db->order())
        if (db->record(id)->getName() == name)
            return id;
    if (m_model)
        for (long i = 0, n = m_model->getMeshCount(); i < n; ++i) {
            ref_ptr<IKvoMesh> m = m_model->getMesh(i);
            if (m->getImageId() > 0 && m->getName() == name)
                return m->getImageId();
        }
    return -1;
}

bool CKvoMM::isImageIdValid(long id) const
{
    return m_project && id > 0 && m_project->imageDb()->record(id);
}

bool CKvoMM::isBigImage(long id) const
{
    auto rec = m_project ? m_project->imageDb()->record(id) : ref_ptr<CKvoImageInfo>();
    return rec && rec->isBigImage();
}

bool CKvoMM::isNormalImage(long id) const
{
    auto rec = m_project ? m_project->imageDb()->record(id) : ref_ptr<CKvoImageInfo>();
    return rec && !rec->isBigImage();
}

long CKvoMM::getMeshKind(const ref_ptr<IKvoMesh>& mesh) const
{
    return isTexMesh(mesh) ? 1 : 0;
}

long CKvoMM::deleteTexMesh(const ref_ptr<IKvoMesh>& mesh, long, IKvoProgress* progress)
{
    KvoPrgPush push(progress, 1.0);
    if (!isTexMesh(mesh) || !ownsMesh(mesh.get()))
        return -1;
    const long imageId = mesh->getImageId();
    m_model->removeMesh(mesh);
    if (auto rec = m_project->imageDb()->record(imageId))
        rec->setMappingType(-1);
    m_dirty = true;
    prgStep(progress, 1.0);
    return 0;
}

long CKvoMM::deleteBareMesh(const ref_ptr<IKvoMesh>& mesh)
{
    if (!mesh || isTexMesh(mesh) || !ownsMesh(mesh.get()))
        return -1;
    m_model->removeMesh(mesh);
    m_dirty = true;
    return 0;
}

long CKvoMM::setProjectBlob(const QString& section, const QString& key, const void* data, long bytes)
{
    if (!m_project || section.isEmpty() || key.isEmpty() || bytes < 0 || (bytes > 0 && !data))
        return -1;
    m_blobs[{section, key}] = QByteArray(static_cast<const char*>(data), int(bytes));
    m_dirty = true;
    return 0;
}

long CKvoMM::getProjectBlob(const QString& section, const QString& key, void* data, long bytes) const
{
    auto it = m_blobs.find({section, key});
    if (it == m_blobs.end())
        return -1;
    if (data && bytes > 0)
        std::memcpy(data, it->second.constData(), size_t(std::min<long>(bytes, it->second.size())));
    return it->second.size();
}

bool CKvoMM::getProjectBlob(const QString& section, const QString& key, QByteArray& out) const
{
    auto it = m_blobs.find({section, key});
    if (it == m_blobs.end()) {
        out.clear();
        return false;
    }
    out = it->second;
    return true;
}

long CKvoMM::removeProjectBlob(const QString& section, const QString& key)
{
    if (m_blobs.erase({section, key}) == 0)
        return -1;
    m_dirty = true;
    return 0;
}

void CKvoMM::setBareModel(const ref_ptr<IKvoModel>& model)
{
    m_model = model;
    m_texEdit.reset();
    m_dirty = true;
}

void CKvoMM::setModelName(const QString& name)
{
    if (m_model)
        m_model->setName(name);
    m_dirty = true;
}

bool CKvoMM::hasModelData() const
{
    return m_model && m_model->getVertexCount() > 0;
}

ref_ptr<IKvoImage>& CKvoMM::getActiveImage(ref_ptr<IKvoImage>& out) const
{
    out.reset();
    if (m_project && m_activeImageId > 0)
        m_project->imageDb()->getTexture(out, m_activeImageId, 2);
    return out;
}

long CKvoMM::setActiveImageId(long id)
{
    if (id == -1) {
        m_activeImageId = -1;
        return kvoOk;
    }
    if (!isImageIdValid(id))
        return kvoErrNotFound;
    m_activeImageId = id;
    return kvoOk;
}

bool CKvoMM::isTexMeshSelected(const ref_ptr<IKvoMesh>& mesh) const
{
    CKvoMesh* m = asMesh(mesh);
    return m && m->isSelected();
}

void CKvoMM::setMeshSelected(const ref_ptr<IKvoMesh>& mesh, bool selected)
{
    if (CKvoMesh* m = asMesh(mesh))
        m->setSelected(selected);
}

bool CKvoMM::isMeshAsleep(const ref_ptr<IKvoMesh>& mesh) const
{
    CKvoMesh* m = asMesh(mesh);
    return m && m->isAsleep();
}

bool CKvoMM::isImageMeshAsleep(long imageId) const
{
    ref_ptr<IKvoMesh> mesh;
    getTexMeshOfImage(mesh, imageId);
    return isMeshAsleep(mesh);
}

bool CKvoMM::isTexMesh(const ref_ptr<IKvoMesh>& mesh) const
{
    return mesh && mesh->getImageId() > 0;
}

bool CKvoMM::isImageMapped(long imageId) const
{
    ref_ptr<IKvoMesh> mesh;
    return bool(getTexMeshOfImage(mesh, imageId));
}

long CKvoMM::wakeMesh(long meshId, long)
{
    ref_ptr<IKvoMesh> mesh;
    if (!m_model || !m_model->getMeshById(mesh, meshId))
        return -1;
    asMesh(mesh)->setAsleep(false);
    m_dirty = true;
    return 0;
}

long CKvoMM::sleepMesh(const ref_ptr<IKvoMesh>& mesh, IKvoProgress*)
{
    CKvoMesh* m = asMesh(mesh);
    if (!m || !ownsMesh(m))
        return -1;
    m->setAsleep(true);
    m_dirty = true;
    return 0;
}

void CKvoMM::getTexturedTriangles(std::set<XTrip<unsigned>>& out) const
{
    out.clear();
    if (!m_model)
        return;
    for (long i = 0, n = m_model->getMeshCount(); i < n; ++i) {
        ref_ptr<IKvoMesh> m = m_model->getMesh(i);
        if (!isTexMesh(m))
            continue;
        const UIntArray* tris = m->getTriangleIndices();
        const unsigned* t = tris->getData();
        for (long k = 0; k + 2 < tris->getCount(); k += 3)
            out.insert(XTrip<unsigned>(t[k], t[k + 1], t[k + 2]).normalize());
    }
}

long CKvoMM::getTexMeshCount() const
{
    long count = 0;
    if (m_model)
        for (long i = 0, n = m_model->getMeshCount(); i < n; ++i)
            count += isTexMesh(m_model->getMesh(i)) ? 1 : 0;
    return count;
}

ref_ptr<IKvoMesh>& CKvoMM::getTexMeshOfImage(ref_ptr<IKvoMesh>& out, long imageId) const
{
    out.reset();
    if (!m_model || imageId <= 0)
        return out;
    for (long i = 0, n = m_model->getMeshCount(); i < n; ++i) {
        ref_ptr<IKvoMesh> m = m_model->getMesh(i);
        if (m->getImageId() == imageId)
            return out = m;
    }
    return out;
}

void CKvoMM::listMeshes(ref_ptr<MeshArray>& out, const std::function<bool(const CKvoMesh&)>& keep) const
{
    out = newMeshArray();
    if (!m_model)
        return;
    for (long i = 0, n = m_model->getMeshCount(); i < n; ++i) {
        ref_ptr<IKvoMesh> m = m_model->getMesh(i);
        if (CKvoMesh* cm = asMesh(m); cm && keep(*cm))
            out->append(m);
    }
}

ref_ptr<MeshArray>& CKvoMM::getSelectedMeshes(ref_ptr<MeshArray>& out) const
{
    listMeshes(out, [](const CKvoMesh& m) { return m.isSelected(); });
    return out;
}

ref_ptr<MeshArray>& CKvoMM::getAllMeshes(ref_ptr<MeshArray>& out) const
{
    listMeshes(out, [](const CKvoMesh&) { return true; });
    return out;
}

namespace {
bool anyMark(const IKvoMesh& m)
{
    const ByteArray* marks = m.getSelMarks();
    if (!marks)
        return false;
    const unsigned char* p = marks->getData();
    for (long i = 0, n = marks->getCount(); i < n; ++i)
        if (p[i])
            return true;
    return false;
}
} // namespace

ref_ptr<MeshArray>& CKvoMM::getMarkedMeshes(ref_ptr<MeshArray>& out) const
{
    listMeshes(out, [](const CKvoMesh& m) { return anyMark(m); });
    return out;
}

ref_ptr<MeshArray>& CKvoMM::getBareMeshes(ref_ptr<MeshArray>& out) const
{
    listMeshes(out, [](const CKvoMesh& m) { return m.getImageId() <= 0; });
    return out;
}

ref_ptr<MeshArray>& CKvoMM::getShownTexMeshList(ref_ptr<MeshArray>& out) const
{
    listMeshes(out, [](const CKvoMesh& m) { return m.getImageId() > 0 && m.isMeshShown(); });
    return out;
}

ref_ptr<MeshArray>& CKvoMM::getOtherShownMeshes(ref_ptr<MeshArray>& out) const
{
    const long active = m_activeImageId;
    listMeshes(out,
               [active](const CKvoMesh& m) { return m.isMeshShown() && (active <= 0 || m.getImageId() != active); });
    return out;
}

ref_ptr<MeshArray>& CKvoMM::getShownMeshes(ref_ptr<MeshArray>& out) const
{
    listMeshes(out, [](const CKvoMesh& m) { return m.isMeshShown(); });
    return out;
}

ref_ptr<MeshArray>& CKvoMM::getAwakeBareMeshes(ref_ptr<MeshArray>& out) const
{
    listMeshes(out, [](const CKvoMesh& m) { return m.getImageId() <= 0 && !m.isAsleep(); });
    return out;
}

ref_ptr<MeshArray>& CKvoMM::getAwakeTexMeshes(ref_ptr<MeshArray>& out) const
{
    listMeshes(out, [](const CKvoMesh& m) { return m.getImageId() > 0 && !m.isAsleep(); });
    return out;
}

ref_ptr<MeshArray>& CKvoMM::getTexMeshes(ref_ptr<MeshArray>& out) const
{
    listMeshes(out, [](const CKvoMesh& m) { return m.getImageId() > 0; });
    return out;
}

bool CKvoMM::isSelectionEmpty() const
{
    if (!m_model)
        return true;
    for (long i = 0, n = m_model->getMeshCount(); i < n; ++i)
        if (anyMark(*m_model->getMesh(i)))
            return false;
    return true;
}

long CKvoMM::openTexEdit(IKvoProgress* progress, long, long backupImageDb)
{
    if (!m_project || !m_model)
        return -1;
    KvoPrgPush push(progress, 1.0);
    auto backup = std::make_unique<KvoTexEditBackup>();
    backup->nextMeshId = model()->peekNextMeshId();
    backup->pixelsByLoader = backupImageDb != 0;
    const long n = m_model->getMeshCount();
    for (long i = 0; i < n; ++i) {
        ref_ptr<IKvoMesh> m = m_model->getMesh(i);
        backup->meshOrder.push_back(m);
        CKvoMesh* cm = asMesh(m);
        if (!cm || !isTexMesh(m))
            continue;
        ref_ptr<CKvoMesh> copy = model()->newMeshWithId(cm->getId(), cm->getImageId(), cm->isTiled());
        // With the image database backed up, its pixels come back on restore,
        // so pictures that are still its own need not be held twice.
        copy->copyStateFrom(*cm, backup->pixelsByLoader);
        backup->texMeshes.push_back({ref_ptr<CKvoMesh>(cm), copy});
        prgStep(progress, 0.8 / double(n));
    }
    CKvoImageDb* db = m_project->imageDb();
    for (long id : db->order()) {
        backup->mappingTypes[id] = db->record(id)->getMappingType();
        if (backupImageDb && isImageMapped(id)) {
            ref_ptr<IKvoImage> tex;
            if (!db->hasPendingTexture(id, 2))
                backup->dbTextures[id] = tex; // the file on disk is the backup
            else if (db->getTexture(tex, id, 2))
                backup->dbTextures[id] = tex; // copy on write: costs nothing until an edit
        }
    }
    backup->vcParams = m_vcParams;
    m_texEdit = std::move(backup);
    prgStep(progress, 1.0);
    return 0;
}

long CKvoMM::restoreTexEdit(IKvoProgress* progress)
{
    if (!m_texEdit || !m_model)
        return -1;
    KvoPrgPush push(progress, 1.0);
    KvoTexEditBackup& b = *m_texEdit;
    // Texture meshes made during the session go; those deleted come back; the
    // objects that others may hold are restored in place.
    // Bare meshes are not part of the session and stay as they are now.
    std::vector<ref_ptr<IKvoMesh>> current;
    for (long i = 0, n = m_model->getMeshCount(); i < n; ++i)
        current.push_back(m_model->getMesh(i));
    for (auto& m : current)
        m_model->removeMesh(m);
    auto isCurrent = [&](const ref_ptr<IKvoMesh>& m) {
        return std::find(current.begin(), current.end(), m) != current.end();
    };
    for (auto& copy : b.texMeshes) {
        copy.live->copyStateFrom(*copy.state, b.pixelsByLoader);
        prgStep(progress, 0.8 / double(std::max<size_t>(1, b.texMeshes.size())));
    }
    for (auto& m : b.meshOrder)
        if (isTexMesh(m) || isCurrent(m))
            m_model->addMesh(m);
    for (auto& m : current)
        if (!isTexMesh(m))
            m_model->addMesh(m); // no-op for those already back in place
    CKvoImageDb* db = m_project->imageDb();
    for (auto& kv : b.mappingTypes)
        if (auto rec = db->record(kv.first))
            rec->setMappingType(kv.second);
    for (auto& kv : b.dbTextures) {
        if (kv.second)
            db->setTexture(kv.second, kv.first, 2);
        else
            db->discardPendingTexture(kv.first, 2);
    }
    m_vcParams = b.vcParams;
    model()->rewindNextMeshId(b.nextMeshId);
    m_dirty = true;
    prgStep(progress, 1.0);
    return 0;
}

void CKvoMM::commitTexEdit()
{
    if (!m_model)
        return;
    for (long i = 0, n = m_model->getMeshCount(); i < n; ++i) {
        ref_ptr<IKvoMesh> m = m_model->getMesh(i);
        if (isTexMesh(m))
            m->refreshDisplay();
    }
    m_dirty = true;
}

void CKvoMM::setVCParam(long imageId, const ZebQVVCParam& param)
{
    if (!isImageIdValid(imageId))
        return;
    m_vcParams[imageId] = param;
    m_dirty = true;
}

bool CKvoMM::getVCParam(long imageId, ZebQVVCParam& out) const
{
    auto it = m_vcParams.find(imageId);
    if (it == m_vcParams.end())
        return false;
    out = it->second;
    return true;
}

bool CKvoMM::removeVCParam(long imageId)
{
    if (m_vcParams.erase(imageId) == 0)
        return false;
    m_dirty = true;
    return true;
}

bool CKvoMM::getDltParam(long imageId, double* L) const
{
    if (!L || !isImageIdValid(imageId) || !m_dltSolver)
        return false;
    return m_dltSolver(imageId, L);
}

void CKvoMM::notifySelMarkCount(unsigned long long count)
{
    m_selMarkCount = count;
    if (m_selMarkListener)
        m_selMarkListener(count);
}

QString projectFolderOf(const QString& projectFile)
{
    return CKvoProject::folderFor(projectFile);
}

IKvoMM* getMM()
{
    static CKvoMM mm;
    return &mm;
}

} // namespace kvo

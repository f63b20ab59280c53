#include "platform/KvoImageDbImpl.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QIODevice>
#include <QImageReader>

#include "scene/KvoFile.h"

namespace kvo {

namespace {
constexpr size_t kCacheSize = 4;
constexpr quint32 kRecordMagic = 0x51564952; // "QVIR"
constexpr quint32 kRecordVersion = 1;

QDataStream& operator<<(QDataStream& s, const XPnt2d& p)
{
    return s << p.x << p.y;
}
QDataStream& operator>>(QDataStream& s, XPnt2d& p)
{
    return s >> p.x >> p.y;
}
QDataStream& operator<<(QDataStream& s, const XPnt3d& p)
{
    return s << p.x << p.y << p.z;
}
QDataStream& operator>>(QDataStream& s, XPnt3d& p)
{
    return s >> p.x >> p.y >> p.z;
}

long halvedSize(long full, long level)
{
    long v = full;
    for (long l = 2; l < level; ++l)
        v = std::max(1L, (v + 1) / 2);
    return v;
}
} // namespace

// ---------------------------------------------------------------- CKvoImageInfo

CKvoImageInfo::CKvoImageInfo(const CKvoImageDb* db)
    : m_db(db), m_ctrlImage(newPnt2dArray()), m_ctrlWorld(newPnt3dArray()), m_match(newPntPntArray())
{
}

bool CKvoImageInfo::getCtrlImagePnt(XPnt2d& out, long i) const
{
    if (i < 0 || i >= m_ctrlImage->getCount())
        return false;
    out = m_ctrlImage->getAt(i);
    return true;
}

bool CKvoImageInfo::getCtrlWorldPnt(XPnt3d& out, long i) const
{
    if (i < 0 || i >= m_ctrlWorld->getCount())
        return false;
    out = m_ctrlWorld->getAt(i);
    return true;
}

bool CKvoImageInfo::removeMatchPnt(long i)
{
    if (!m_match->removeAt(i))
        return false;
    if (m_selectedMatch == i)
        m_selectedMatch = -1;
    else if (m_selectedMatch > i)
        --m_selectedMatch;
    return true;
}

bool CKvoImageInfo::replaceMatchPnt(long i, const POINT_POINT& p)
{
    if (i < 0 || i >= m_match->getCount())
        return false;
    m_match->setAt(i, p);
    return true;
}

bool CKvoImageInfo::getMatchPnt(POINT_POINT& out, long i) const
{
    if (i < 0 || i >= m_match->getCount())
        return false;
    out = m_match->getAt(i);
    return true;
}

void CKvoImageInfo::setFilePath(const QString& path, int kind)
{
    if (path.isEmpty())
        m_paths.erase(kind);
    else
        m_paths[kind] = m_db ? m_db->toStored(path) : path;
}

bool CKvoImageInfo::getFilePath(QString& out, int kind) const
{
    auto it = m_paths.find(kind);
    if (it == m_paths.end()) {
        out.clear();
        return false;
    }
    out = m_db ? m_db->resolve(it->second) : it->second;
    return true;
}

QString CKvoImageInfo::getFilePath(int kind) const
{
    QString out;
    getFilePath(out, kind);
    return out;
}

void CKvoImageInfo::getDataFolder(QString& out) const
{
    out = (m_db ? m_db->folder() : getWorkFolder()) + QString("/data/%1").arg(m_id);
    createFolder(out);
}

bool CKvoImageInfo::getImageSize(XPnt2i& out, long level) const
{
    if (level < 1 || m_size.x <= 0 || m_size.y <= 0)
        return false;
    out = XPnt2i(int(halvedSize(m_size.x, level)), int(halvedSize(m_size.y, level)));
    return true;
}

QByteArray CKvoImageInfo::serialize() const
{
    QByteArray bytes;
    QDataStream s(&bytes, QIODevice::WriteOnly);
    s.setByteOrder(QDataStream::LittleEndian);
    s.setFloatingPointPrecision(QDataStream::DoublePrecision);
    s << kRecordMagic << kRecordVersion << qint64(m_id) << m_name << qint8(m_big) << qint64(m_mappingType)
      << qint32(m_size.x) << qint32(m_size.y);
    s << quint32(m_paths.size());
    for (auto& kv : m_paths)
        s << qint32(kv.first) << kv.second;
    s << quint32(m_ctrlImage->getCount());
    for (auto& p : m_ctrlImage->vec())
        s << p;
    s << quint32(m_ctrlWorld->getCount());
    for (auto& p : m_ctrlWorld->vec())
        s << p;
    s << quint32(m_match->getCount());
    for (auto& m : m_match->vec())
        s << m.uv << m.world << qint32(m.flag) << m.error;
    return bytes;
}

bool CKvoImageInfo::deserialize(const QByteArray& bytes)
{
    QDataStream s(bytes);
    s.setByteOrder(QDataStream::LittleEndian);
    s.setFloatingPointPrecision(QDataStream::DoublePrecision);
    quint32 magic = 0, version = 0;
    s >> magic >> version;
    if (magic != kRecordMagic || version != kRecordVersion)
        return false;
    qint64 id = 0, mapping = 0;
    qint8 big = 0;
    qint32 w = 0, h = 0;
    QString name;
    s >> id >> name >> big >> mapping >> w >> h;
    quint32 n = 0;
    std::map<int, QString> paths;
    s >> n;
    for (quint32 i = 0; i < n && s.status() == QDataStream::Ok; ++i) {
        qint32 kind = 0;
        QString path;
        s >> kind >> path;
        paths[kind] = path;
    }
    auto ctrlImage = newPnt2dArray();
    auto ctrlWorld = newPnt3dArray();
    auto match = newPntPntArray();
    s >> n;
    for (quint32 i = 0; i < n && s.status() == QDataStream::Ok; ++i) {
        XPnt2d p;
        s >> p;
        ctrlImage->append(p);
    }
    s >> n;
    for (quint32 i = 0; i < n && s.status() == QDataStream::Ok; ++i) {
        XPnt3d p;
        s >> p;
        ctrlWorld->append(p);
    }
    s >> n;
    for (quint32 i = 0; i < n && s.status() == QDataStream::Ok; ++i) {
        POINT_POINT m;
        qint32 flag = 0;
        s >> m.uv >> m.world >> flag >> m.error;
        m.flag = flag;
        match->append(m);
    }
    if (s.status() != QDataStream::Ok)
        return false;
    m_id = long(id);
    m_name = name;
    m_big = big != 0;
    m_mappingType = long(mapping);
    m_size = XPnt2i(w, h);
    m_paths = paths;
    m_ctrlImage = ctrlImage;
    m_ctrlWorld = ctrlWorld;
    m_match = match;
    return true;
}

void CKvoImageInfo::detachDb()
{
    if (m_db)
        for (auto& kv : m_paths)
            kv.second = m_db->resolve(kv.second);
    m_db = nullptr;
}

ref_ptr<CKvoImageInfo> CKvoImageInfo::deepCopy() const
{
    ref_ptr<CKvoImageInfo> c(new CKvoImageInfo(m_db));
    c->deserialize(serialize());
    return c;
}

// ---------------------------------------------------------------- CKvoImageDb

CKvoImageDb::CKvoImageDb() = default;

CKvoImageDb::~CKvoImageDb()
{
    for (auto& kv : m_records)
        kv.second->detachDb();
}

long CKvoImageDb::open(const QString& folder)
{
    if (folder.isEmpty())
        return kvoErrBadArgument;
    QString abs = QDir(folder).absolutePath();
    if (!createFolder(abs) || !createFolder(abs + "/images") || !createFolder(abs + "/data")) {
        m_error = QString("Cannot create the folder %1.").arg(abs);
        return kvoErrIO;
    }
    m_folder = abs;
    return kvoOk;
}

QString CKvoImageDb::resolve(const QString& stored) const
{
    if (stored.isEmpty() || QDir::isAbsolutePath(stored) || m_folder.isEmpty())
        return stored;
    return m_folder + "/" + stored;
}

QString CKvoImageDb::toStored(const QString& path) const
{
    if (m_folder.isEmpty() || !QDir::isAbsolutePath(path))
        return path;
    QString clean = QDir::cleanPath(path);
    if (clean.startsWith(m_folder + "/"))
        return clean.mid(m_folder.size() + 1);
    return clean;
}

ref_ptr<CKvoImageInfo> CKvoImageDb::record(long id) const
{
    auto it = m_records.find(id);
    return it == m_records.end() ? ref_ptr<CKvoImageInfo>() : it->second;
}

ref_ptr<IKvoImageInfo>& CKvoImageDb::getImageInfo(ref_ptr<IKvoImageInfo>& out, long id) const
{
    out = record(id);
    return out;
}

ref_ptr<LongArray>& CKvoImageDb::getImageIds(ref_ptr<LongArray>& out) const
{
    out = newLongArray();
    out->vec().assign(m_order.begin(), m_order.end());
    return out;
}

QString CKvoImageDb::uniqueName(const QString& name) const
{
    auto taken = [&](const QString& n) {
        for (auto& kv : m_records)
            if (kv.second->getName().compare(n, Qt::CaseInsensitive) == 0)
                return true;
        return false;
    };
    if (!taken(name))
        return name;
    QFileInfo fi(name);
    for (int k = 2;; ++k) {
        QString candidate = fi.suffix().isEmpty()
                                ? QString("%1_%2").arg(fi.completeBaseName()).arg(k)
                                : QString("%1_%2.%3").arg(fi.completeBaseName()).arg(k).arg(fi.suffix());
        if (!taken(candidate))
            return candidate;
    }
}

long CKvoImageDb::addImageFile(const QString& path, bool big, long& id)
{
    id = -1;
    if (m_folder.isEmpty()) {
        m_error = "No image database is open.";
        return kvoErrNoProject;
    }
    QFileInfo fi(path);
    if (!fi.exists() || !fi.isFile()) {
        m_error = QString("The image file %1 does not exist.").arg(path);
        return kvoErrFileMissing;
    }
    // Decode fully: a header that reads fine says nothing about the rest.
    ref_ptr<IKvoImage> pixels = newKvoImage();
    if (!pixels->loadFile(fi.absoluteFilePath())) {
        m_error = QString("The file %1 is not an image that can be read.").arg(path);
        return kvoErrBadFile;
    }
    const long newId = m_nextId;
    const QString name = uniqueName(fi.fileName());
    const QString stored = QString("images/%1_%2").arg(newId).arg(fi.fileName());
    const QString target = resolve(stored);
    QFile::remove(target);
    if (!QFile::copy(fi.absoluteFilePath(), target)) {
        m_error = QString("Cannot copy %1 into the project folder.").arg(path);
        return kvoErrIO;
    }
    ref_ptr<CKvoImageInfo> rec(new CKvoImageInfo(this));
    rec->setId(newId);
    rec->setName(name);
    rec->setBigImage(big);
    rec->setImageSize(XPnt2i(int(pixels->getWidth()), int(pixels->getHeight())));
    rec->setFilePath(fi.absoluteFilePath(), kvoPathOriginal);
    rec->setFilePath(target, kvoPathImage);
    m_records[newId] = rec;
    m_order.push_back(newId);
    m_nextId = newId + 1;
    id = newId;
    fire(0, newId);
    return kvoOk;
}

long CKvoImageDb::addImage(const QString& path, long& id)
{
    return addImageFile(path, false, id);
}
long CKvoImageDb::addBigImage(const QString& path, long& id)
{
    return addImageFile(path, true, id);
}

long CKvoImageDb::removeImage(long id)
{
    auto it = m_records.find(id);
    if (it == m_records.end())
        return kvoErrNotFound;
    m_records.erase(it);
    m_order.erase(std::remove(m_order.begin(), m_order.end(), id), m_order.end());
    for (auto p = m_pending.begin(); p != m_pending.end();)
        p = p->first.first == id ? m_pending.erase(p) : std::next(p);
    m_cache.remove_if([id](const auto& e) { return e.first.first == id; });
    // The files go at the next garbage collection, after the project is saved
    // without this record: until then the saved project still needs them.
    fire(1, id);
    return kvoOk;
}

ref_ptr<IKvoImage>& CKvoImageDb::getTexture(ref_ptr<IKvoImage>& out, long id, long level) const
{
    out.reset();
    ref_ptr<CKvoImageInfo> rec = record(id);
    if (!rec || level < 1)
        return out;
    auto pending = m_pending.find({id, level});
    if (pending != m_pending.end())
        return out = pending->second->clone();
    for (auto it = m_cache.begin(); it != m_cache.end(); ++it) {
        if (it->first == std::make_pair(id, level)) {
            m_cache.splice(m_cache.begin(), m_cache, it);
            return out = it->second->clone();
        }
    }
    ref_ptr<IKvoImage> img;
    if (level == 1) {
        // The original file, or its project-side replacement; the project copy
        // holds the same pixels when the original has gone.
        for (int kind : {kvoPathLevel1Override, int(kvoPathOriginal), int(kvoPathImage)}) {
            QString path;
            if (!rec->getFilePath(path, kind))
                continue;
            ref_ptr<IKvoImage> candidate = newKvoImage();
            if (candidate->loadFile(path)) {
                img = candidate;
                break;
            }
        }
    } else if (level == 2) {
        ref_ptr<IKvoImage> candidate = newKvoImage();
        if (candidate->loadFile(rec->getFilePath(kvoPathImage)))
            img = candidate;
    } else {
        ref_ptr<IKvoImage> full;
        getTexture(full, id, 2);
        if (full) {
            XPnt2i size;
            rec->getImageSize(size, level);
            img = full->resized(size.x, size.y, 2);
        }
    }
    if (!img) {
        m_error = QString("Cannot read the pixels of image %1.").arg(id);
        return out;
    }
    m_cache.emplace_front(std::make_pair(id, level), img);
    if (m_cache.size() > kCacheSize)
        m_cache.pop_back();
    return out = img->clone();
}

ref_ptr<IKvoImage>& CKvoImageDb::getAlphaImage(ref_ptr<IKvoImage>& out, long id, long level, long) const
{
    getTexture(out, id, level);
    if (out && !out->hasTransparency())
        out.reset();
    return out;
}

long CKvoImageDb::setTexture(const ref_ptr<IKvoImage>& image, long id, long level)
{
    ref_ptr<CKvoImageInfo> rec = record(id);
    if (!rec || !image || image->isEmpty() || level < 1 || level > 2)
        return kvoErrBadArgument;
    // Pixels read unchanged from the very file the project copy is need no
    // new file: a restored backup leaves the project as it was saved.
    const QString source = image->getSourceFile();
    if (level == 2 && !source.isEmpty() && source == QFileInfo(rec->getFilePath(kvoPathImage)).absoluteFilePath()) {
        m_pending.erase({id, level});
        m_cache.remove_if([id](const auto& e) { return e.first.first == id; });
        rec->setImageSize(XPnt2i(int(image->getWidth()), int(image->getHeight())));
        fire(2, id);
        return kvoOk;
    }
    m_pending[{id, level}] = image->clone();
    m_cache.remove_if([id](const auto& e) { return e.first.first == id; });
    if (level == 2)
        rec->setImageSize(XPnt2i(int(image->getWidth()), int(image->getHeight())));
    fire(2, id);
    return kvoOk;
}

bool CKvoImageDb::hasPendingTexture(long id, long level) const
{
    return m_pending.count({id, level}) > 0;
}

void CKvoImageDb::discardPendingTexture(long id, long level)
{
    if (m_pending.erase({id, level}) == 0)
        return;
    m_cache.remove_if([id](const auto& e) { return e.first.first == id; });
    if (ref_ptr<CKvoImageInfo> rec = record(id)) {
        // The size goes back to the file's (its header tells it).
        const QSize size = QImageReader(rec->getFilePath(kvoPathImage)).size();
        if (level == 2 && size.isValid())
            rec->setImageSize(XPnt2i(size.width(), size.height()));
    }
    fire(2, id);
}

long CKvoImageDb::commit()
{
    long result = kvoOk;
    for (auto it = m_pending.begin(); it != m_pending.end();) {
        const long id = it->first.first, level = it->first.second;
        ref_ptr<CKvoImageInfo> rec = record(id);
        if (!rec) {
            it = m_pending.erase(it);
            continue;
        }
        // Changed pixels go to a new file: the saved project keeps naming the
        // old one until the next save succeeds, so an interrupted save loses nothing.
        const int kind = level == 1 ? kvoPathLevel1Override : int(kvoPathImage);
        // Edited pixels are kept lossless: a JPEG would lose a little more at every save.
        const QString ext = "png";
        QString stored;
        for (int rev = 1;; ++rev) {
            stored = QString("images/%1_L%2_r%3.%4").arg(id).arg(level).arg(rev).arg(ext);
            if (!QFile::exists(resolve(stored)))
                break;
        }
        if (!it->second->saveFile(resolve(stored))) {
            m_error = QString("Cannot write the pixels of image %1.").arg(id);
            result = kvoErrIO;
            ++it;
            continue;
        }
        rec->setFilePath(resolve(stored), kind);
        it = m_pending.erase(it);
    }
    return result;
}

long CKvoImageDb::rebuildTiles(long id, long)
{
    if (!record(id))
        return kvoErrNotFound;
    m_cache.remove_if([id](const auto& e) { return e.first.first == id && e.first.second > 2; });
    fire(2, id);
    return kvoOk;
}

long CKvoImageDb::addEvent(const ref_ptr<IKvoImageDbEvent>& event)
{
    if (!event)
        return -1;
    long id = m_nextEventId++;
    m_events[id] = event;
    return id;
}

void CKvoImageDb::removeEvent(long eventId)
{
    m_events.erase(eventId);
}

void CKvoImageDb::fire(int what, long id) const
{
    auto events = m_events; // a listener may remove itself
    for (auto& kv : events) {
        if (what == 0)
            kv.second->onImageAdded(id);
        else if (what == 1)
            kv.second->onImageRemoved(id);
        else
            kv.second->onImageChanged(id);
    }
}

void CKvoImageDb::resetRecords(const std::vector<ref_ptr<CKvoImageInfo>>& records, long nextId)
{
    m_records.clear();
    m_order.clear();
    m_pending.clear();
    m_cache.clear();
    long maxId = 0;
    for (auto& r : records) {
        m_records[r->getId()] = r;
        m_order.push_back(r->getId());
        maxId = std::max(maxId, r->getId());
    }
    m_nextId = std::max(nextId, maxId + 1);
}

void CKvoImageDb::collectGarbage()
{
    if (m_folder.isEmpty())
        return;
    std::set<QString> used;
    for (auto& kv : m_records)
        for (auto& p : kv.second->storedPaths())
            used.insert(QDir::cleanPath(resolve(p.second)));
    QDir dir(imageFolder());
    for (const QFileInfo& fi : dir.entryInfoList(QDir::Files))
        if (!used.count(QDir::cleanPath(fi.absoluteFilePath())))
            QFile::remove(fi.absoluteFilePath());
}

} // namespace kvo

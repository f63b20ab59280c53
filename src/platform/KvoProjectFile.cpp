#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "platform/KvoModelManImpl.h"

// The project file is an SQLite database. Large arrays go in as raw
// little-endian chunks of fixed-width elements; small records as fields.
// A save writes a complete new file beside the project, syncs it and renames
// it over the old one: the rename is atomic, so a crash or a kill while
// saving leaves the last saved project as it was, and the data is written
// once instead of going through a rollback journal.

#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "The project file layout assumes a little-endian machine"
#endif

namespace kvo {
namespace projectfile {

namespace {

constexpr int kFormatVersion = 1;
constexpr const char* kApplication = "Quovara";
// Well below SQLite's limit of one billion bytes a value.
constexpr qint64 kChunkBytes = 64 * 1024 * 1024;

static_assert(sizeof(XPnt3f) == 12 && sizeof(XPnt2f) == 8 && sizeof(XPnt3d) == 24, "packed points");
static_assert(sizeof(unsigned) == 4 && sizeof(float) == 4, "fixed-width elements");

std::function<void()>& interruptHook()
{
    static std::function<void()> hook;
    return hook;
}

// One named database connection for the life of a save or a load.
class Connection {
public:
    explicit Connection(const QString& path)
    {
        static std::atomic<int> counter{0};
        m_name = QString("quovara-project-%1").arg(counter++);
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", m_name);
        db.setDatabaseName(path);
        m_open = db.open();
        if (!m_open)
            m_error = db.lastError().text();
    }
    ~Connection()
    {
        {
            QSqlDatabase db = QSqlDatabase::database(m_name, false);
            if (db.isOpen())
                db.close();
        }
        QSqlDatabase::removeDatabase(m_name);
    }
    QSqlDatabase db() const { return QSqlDatabase::database(m_name, false); }
    bool isOpen() const { return m_open; }
    QString error() const { return m_error; }

private:
    QString m_name;
    bool m_open = false;
    QString m_error;
};

// Raised inside save and load to leave with a message; never leaves this file.
struct Failure {
    long code;
    QString message;
};

void exec(QSqlQuery& q, const QString& what)
{
    if (!q.exec())
        throw Failure{kvoErrDatabase, QString("%1: %2").arg(what, q.lastError().text())};
}

void exec(const QSqlDatabase& db, const QString& sql)
{
    QSqlQuery q(db);
    if (!q.exec(sql))
        throw Failure{kvoErrDatabase, QString("%1: %2").arg(sql, q.lastError().text())};
}

const char* kSchema[] = {
    "CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value)",
    "CREATE TABLE IF NOT EXISTS arrays(name TEXT NOT NULL, part INTEGER NOT NULL, elements INTEGER NOT NULL, "
    "bytes BLOB, PRIMARY KEY(name, part))",
    "CREATE TABLE IF NOT EXISTS meshes(id INTEGER PRIMARY KEY, ord INTEGER, image_id INTEGER, tiled INTEGER, "
    "name TEXT, file_name TEXT, asleep INTEGER, shown INTEGER, selected INTEGER, show_texture INTEGER, "
    "sel_color INTEGER, solid_color INTEGER, face_count INTEGER)",
    "CREATE TABLE IF NOT EXISTS images(id INTEGER PRIMARY KEY, ord INTEGER, record BLOB)",
    "CREATE TABLE IF NOT EXISTS blobs(section TEXT NOT NULL, key TEXT NOT NULL, data BLOB, "
    "PRIMARY KEY(section, key))",
    "CREATE TABLE IF NOT EXISTS vcparams(image_id INTEGER PRIMARY KEY, eye_x REAL, eye_y REAL, eye_z REAL, "
    "center_x REAL, center_y REAL, center_z REAL, up_x REAL, up_y REAL, up_z REAL, fov REAL, transparency REAL, "
    "zoom REAL)",
};

qint64 packColor(const KvoColor4b& c)
{
    return (qint64(c.r) << 24) | (qint64(c.g) << 16) | (qint64(c.b) << 8) | c.a;
}
KvoColor4b unpackColor(qint64 v)
{
    return KvoColor4b(uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v));
}

class Writer {
public:
    explicit Writer(const QSqlDatabase& db) : m_meta(db), m_array(db), m_mesh(db), m_image(db), m_blob(db), m_vc(db)
    {
        m_meta.prepare("INSERT INTO meta(key, value) VALUES(?, ?)");
        m_array.prepare("INSERT INTO arrays(name, part, elements, bytes) VALUES(?, ?, ?, ?)");
        m_mesh.prepare("INSERT INTO meshes VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
        m_image.prepare("INSERT INTO images(id, ord, record) VALUES(?, ?, ?)");
        m_blob.prepare("INSERT INTO blobs(section, key, data) VALUES(?, ?, ?)");
        m_vc.prepare("INSERT INTO vcparams VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    }

    void meta(const QString& key, const QVariant& value)
    {
        m_meta.bindValue(0, key);
        m_meta.bindValue(1, value);
        exec(m_meta, "meta " + key);
    }

    // Writes count elements of elemSize bytes; a null array writes nothing,
    // an empty one writes a single empty part so that it reads back empty.
    void array(const QString& name, const void* data, qint64 count, qint64 elemSize)
    {
        const char* p = static_cast<const char*>(data);
        const qint64 perChunk = std::max<qint64>(1, kChunkBytes / elemSize);
        qint64 done = 0;
        int part = 0;
        do {
            const qint64 n = std::min(perChunk, count - done);
            m_array.bindValue(0, name);
            m_array.bindValue(1, part++);
            m_array.bindValue(2, n);
            // fromRawData: SQLite copies the bytes itself; no second copy here.
            m_array.bindValue(3, QByteArray::fromRawData(p ? p + done * elemSize : "", int(n * elemSize)));
            exec(m_array, "array " + name);
            done += n;
        } while (done < count);
    }
    template <class T> void array(const QString& name, const KvoArray<T>* a)
    {
        if (a)
            array(name, a->getData(), a->getCount(), sizeof(T));
    }

    void mesh(const CKvoMesh& m, int ord)
    {
        const QVariant v[] = {qint64(m.getId()),
                              ord,
                              qint64(m.getImageId()),
                              int(m.isTiled()),
                              m.getName(),
                              [&] {
                                  QString f;
                                  m.getFileName(f);
                                  return f;
                              }(),
                              int(m.isAsleep()),
                              int(m.isMeshShown()),
                              int(m.isSelected()),
                              int(m.isShowTexture()),
                              packColor(m.getSelColor()),
                              packColor(m.getSolidColor()),
                              qint64(m.getFaceCount())};
        for (int i = 0; i < 13; ++i)
            m_mesh.bindValue(i, v[i]);
        exec(m_mesh, "mesh");
        const QString prefix = QString("mesh/%1/").arg(m.getId());
        array(prefix + "tris", m.getTriangleIndices());
        array(prefix + "normals", m.getFaceNormals());
        array(prefix + "uvs", m.getUVs());
        array(prefix + "corners", m.getCornerTexIndices());
        array(prefix + "marks", m.getSelMarks());
    }

    void image(const CKvoImageInfo& rec, int ord)
    {
        m_image.bindValue(0, qint64(rec.getId()));
        m_image.bindValue(1, ord);
        m_image.bindValue(2, rec.serialize());
        exec(m_image, "image");
    }

    void blob(const QString& section, const QString& key, const QByteArray& data)
    {
        m_blob.bindValue(0, section);
        m_blob.bindValue(1, key);
        m_blob.bindValue(2, data);
        exec(m_blob, "blob");
    }

    void vc(long id, const ZebQVVCParam& p)
    {
        const double v[] = {p.eye.x, p.eye.y, p.eye.z, p.center.x, p.center.y,     p.center.z,
                            p.up.x,  p.up.y,  p.up.z,  p.fovY,     p.transparency, p.zoom};
        m_vc.bindValue(0, qint64(id));
        for (int i = 0; i < 12; ++i)
            m_vc.bindValue(i + 1, v[i]);
        exec(m_vc, "camera");
    }

private:
    QSqlQuery m_meta, m_array, m_mesh, m_image, m_blob, m_vc;
};

// Reads an array written by Writer::array; false when there is none.
template <class T> bool readArray(const QSqlDatabase& db, const QString& name, ref_ptr<KvoArray<T>>& out)
{
    QSqlQuery q(db);
    q.setForwardOnly(true);
    q.prepare("SELECT part, elements, bytes FROM arrays WHERE name = ? ORDER BY part");
    q.bindValue(0, name);
    exec(q, "read " + name);
    bool any = false;
    ref_ptr<KvoArray<T>> a(new KvoArray<T>());
    int expectPart = 0;
    while (q.next()) {
        any = true;
        const int part = q.value(0).toInt();
        const qint64 n = q.value(1).toLongLong();
        const QByteArray bytes = q.value(2).toByteArray();
        if (part != expectPart++ || n < 0 || bytes.size() != n * qint64(sizeof(T)))
            throw Failure{kvoErrBadFile, QString("the array %1 is damaged").arg(name)};
        const long at = a->getCount();
        a->resize(at + long(n));
        if (n > 0)
            std::memcpy(static_cast<void*>(a->getData() + at), bytes.constData(), size_t(bytes.size()));
    }
    if (any)
        out = a;
    return any;
}

// Flushes a file (or a folder's entry list) to the disk.
bool syncPath(const QString& path, bool folder)
{
    const int fd = ::open(QFile::encodeName(path).constData(), folder ? O_RDONLY | O_DIRECTORY : O_RDONLY);
    if (fd < 0)
        return false;
    const bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

} // namespace

void setSaveInterruptHook(std::function<void()> hook)
{
    interruptHook() = std::move(hook);
}

long save(CKvoMM& mm, const QString& path, IKvoProgress* progress, QString& error)
{
    CKvoProject* project = mm.project();
    if (!project) {
        error = "No project is open.";
        return kvoErrNoProject;
    }
    prgText(progress, "Saving project...");
    const QString target = QFileInfo(path).absoluteFilePath();
    const QString temp = target + ".saving";
    QFile::remove(temp);
    try {
        Connection conn(temp);
        if (!conn.isOpen())
            throw Failure{kvoErrIO, QString("cannot write %1: %2").arg(temp, conn.error())};
        QSqlDatabase db = conn.db();
        // A fresh file needs no journal: until the rename it is not the project.
        exec(db, "PRAGMA page_size=65536");
        exec(db, "PRAGMA journal_mode=OFF");
        exec(db, "PRAGMA synchronous=OFF");
        exec(db, "PRAGMA cache_spill=OFF");
        if (!db.transaction())
            throw Failure{kvoErrDatabase, "cannot begin: " + db.lastError().text()};
        try {
            for (const char* sql : kSchema)
                exec(db, sql);
            Writer w(db);
            w.meta("application", kApplication);
            w.meta("format", kFormatVersion);
            CKvoImageDb* idb = project->imageDb();
            w.meta("next_image_id", qint64(idb->nextId()));
            w.meta("active_image", qint64(mm.getActiveImageId()));
            w.meta("ref_image", qint64(mm.getRefImageId()));
            QString modelFile;
            mm.getModelFileName(modelFile);
            w.meta("model_file", modelFile);
            prgStep(progress, 0.05);

            ref_ptr<IKvoRing> fence;
            mm.getFenceRing(fence);
            if (fence) {
                ref_ptr<Pnt3dArray> pts;
                fence->getPoints(pts);
                w.array("fence", pts.get());
            }

            int ord = 0;
            for (long id : idb->order())
                w.image(*idb->record(id), ord++);
            for (auto& kv : mm.blobs())
                w.blob(kv.first.first, kv.first.second, kv.second);
            for (auto& kv : mm.vcParams())
                w.vc(kv.first, kv.second);
            prgStep(progress, 0.1);

            if (CKvoModel* model = mm.model()) {
                w.meta("model_present", 1);
                w.meta("model_name", model->getName());
                w.meta("show_vertices", int(model->isShowVertices()));
                w.meta("next_mesh_id", qint64(model->peekNextMeshId()));
                w.array("vertices", model->getVertices());
                w.array("vertex_normals", model->getVertexNormals());
                w.array("texcoords", model->getTexCoords());
                const long n = model->getMeshCount();
                for (long i = 0; i < n; ++i) {
                    auto* m = dynamic_cast<CKvoMesh*>(model->getMesh(i).get());
                    if (m)
                        w.mesh(*m, int(i));
                    prgStep(progress, 0.8 / double(n));
                }
            } else {
                w.meta("model_present", 0);
            }
            if (interruptHook())
                interruptHook()();
            if (!db.commit())
                throw Failure{kvoErrDatabase, "cannot commit: " + db.lastError().text()};
        } catch (...) {
            db.rollback();
            throw;
        }
    } catch (const Failure& f) {
        QFile::remove(temp);
        error = QString("Cannot save the project %1: %2").arg(path, f.message);
        return f.code;
    }
    if (!syncPath(temp, false) ||
        std::rename(QFile::encodeName(temp).constData(), QFile::encodeName(target).constData()) != 0) {
        QFile::remove(temp);
        error = QString("Cannot save the project %1: the file cannot be replaced.").arg(path);
        return kvoErrIO;
    }
    syncPath(QFileInfo(target).absolutePath(), true);
    prgStep(progress, 1.0);
    return kvoOk;
}

long load(const QString& path, CKvoMM& mm, CKvoMM::State& out, IKvoProgress* progress, QString& error)
{
    QFileInfo fi(path);
    if (!fi.exists() || !fi.isFile()) {
        error = QString("The project file %1 does not exist.").arg(path);
        return kvoErrFileMissing;
    }
    {
        // Anything that is not an SQLite file is not ours; checking first keeps
        // SQLite from ever writing to a foreign file.
        QFile f(path);
        if (!f.open(QIODevice::ReadOnly) || f.read(16) != QByteArray("SQLite format 3\0", 16)) {
            error = QString("%1 is not a Quovara project file.").arg(path);
            return kvoErrBadFile;
        }
    }
    prgText(progress, "Opening project...");
    Connection conn(fi.absoluteFilePath());
    if (!conn.isOpen()) {
        error = QString("Cannot open %1: %2").arg(path, conn.error());
        return kvoErrBadFile;
    }
    QSqlDatabase db = conn.db();
    try {
        std::map<QString, QVariant> meta;
        {
            QSqlQuery q(db);
            q.setForwardOnly(true);
            if (!q.exec("SELECT key, value FROM meta"))
                throw Failure{kvoErrBadFile, "it is not a Quovara project or it is damaged"};
            while (q.next())
                meta[q.value(0).toString()] = q.value(1);
        }
        if (meta["application"].toString() != kApplication)
            throw Failure{kvoErrBadFile, "it is not a Quovara project"};
        if (meta["format"].toInt() > kFormatVersion)
            throw Failure{kvoErrTooNew, "it was written by a newer version of Quovara"};

        CKvoMM::State s;
        s.project = new CKvoProject(&mm, fi.absoluteFilePath());
        CKvoImageDb* idb = s.project->imageDb();
        if (idb->open(s.project->getFolder()) != kvoOk)
            throw Failure{kvoErrIO, idb->lastError()};
        s.activeImageId = meta["active_image"].toLongLong();
        s.refImageId = meta["ref_image"].toLongLong();
        s.modelFileName = meta["model_file"].toString();

        ref_ptr<Pnt3dArray> fencePts;
        if (readArray(db, "fence", fencePts)) {
            s.fence = newKvoRing();
            s.fence->setPoints(fencePts);
        }

        std::vector<ref_ptr<CKvoImageInfo>> records;
        {
            QSqlQuery q(db);
            q.setForwardOnly(true);
            if (!q.exec("SELECT id, record FROM images ORDER BY ord"))
                throw Failure{kvoErrBadFile, "the images cannot be read"};
            while (q.next()) {
                ref_ptr<CKvoImageInfo> rec(new CKvoImageInfo(idb));
                if (!rec->deserialize(q.value(1).toByteArray()) || rec->getId() != q.value(0).toLongLong())
                    throw Failure{kvoErrBadFile, "an image record is damaged"};
                records.push_back(rec);
            }
        }
        idb->resetRecords(records, long(meta["next_image_id"].toLongLong()));
        if (!idb->record(s.activeImageId))
            s.activeImageId = -1;
        {
            QSqlQuery q(db);
            q.setForwardOnly(true);
            if (!q.exec("SELECT section, key, data FROM blobs"))
                throw Failure{kvoErrBadFile, "the blobs cannot be read"};
            while (q.next())
                s.blobs[{q.value(0).toString(), q.value(1).toString()}] = q.value(2).toByteArray();
        }
        {
            QSqlQuery q(db);
            q.setForwardOnly(true);
            if (!q.exec("SELECT * FROM vcparams"))
                throw Failure{kvoErrBadFile, "the cameras cannot be read"};
            while (q.next()) {
                ZebQVVCParam p;
                double v[12];
                for (int i = 0; i < 12; ++i)
                    v[i] = q.value(i + 1).toDouble();
                p.eye = XPnt3d(v[0], v[1], v[2]);
                p.center = XPnt3d(v[3], v[4], v[5]);
                p.up = XPnt3d(v[6], v[7], v[8]);
                p.fovY = v[9];
                p.transparency = v[10];
                p.zoom = v[11];
                s.vcParams[long(q.value(0).toLongLong())] = p;
            }
        }
        prgStep(progress, 0.1);

        if (meta["model_present"].toInt() == 1) {
            ref_ptr<CKvoModel> model(new CKvoModel());
            model->setName(meta["model_name"].toString());
            model->showVertices(meta["show_vertices"].toInt() != 0);
            ref_ptr<Pnt3fArray> verts, vnormals;
            ref_ptr<Pnt2fArray> texcoords;
            if (!readArray(db, "vertices", verts))
                throw Failure{kvoErrBadFile, "the model's vertices are missing"};
            model->setVertices(verts.get(), false);
            if (readArray(db, "vertex_normals", vnormals))
                model->setVertexNormals(vnormals.get(), false, false);
            if (readArray(db, "texcoords", texcoords))
                model->setTexCoords(texcoords.get());

            QSqlQuery q(db);
            q.setForwardOnly(true);
            if (!q.exec("SELECT * FROM meshes ORDER BY ord"))
                throw Failure{kvoErrBadFile, "the meshes cannot be read"};
            std::vector<QVariantList> rows;
            while (q.next()) {
                QVariantList row;
                for (int i = 0; i < 13; ++i)
                    row << q.value(i);
                rows.push_back(row);
            }
            const long nv = verts->getCount();
            for (size_t r = 0; r < rows.size(); ++r) {
                const QVariantList& row = rows[r];
                const long id = long(row[0].toLongLong());
                ref_ptr<CKvoMesh> m = model->newMeshWithId(id, long(row[2].toLongLong()), row[3].toInt() != 0);
                const QString prefix = QString("mesh/%1/").arg(id);
                ref_ptr<UIntArray> tris, corners;
                ref_ptr<Pnt3fArray> normals;
                ref_ptr<Pnt2fArray> uvs;
                ref_ptr<ByteArray> marks;
                if (!readArray(db, prefix + "tris", tris))
                    tris = newUIntArray();
                const long faces = row[12].toLongLong();
                if (tris->getCount() != faces * 3)
                    throw Failure{kvoErrBadFile, QString("mesh %1 is damaged").arg(id)};
                for (unsigned v : tris->vec())
                    if (long(v) >= nv)
                        throw Failure{kvoErrBadFile, QString("mesh %1 names a vertex that is not there").arg(id)};
                // Stored normals go in first, so that setting the triangles keeps them.
                if (readArray(db, prefix + "normals", normals) && normals->getCount() == faces)
                    m->setFaceNormals(normals.get(), false);
                m->setTriangleIndices(tris.get(), false);
                if (readArray(db, prefix + "uvs", uvs))
                    m->setUVs(uvs.get());
                if (readArray(db, prefix + "corners", corners) && corners->getCount() == faces * 3)
                    m->setCornerIndexArray(corners.get());
                if (readArray(db, prefix + "marks", marks) && marks->getCount() == faces)
                    m->setSelMarks(marks.get());
                m->setName(row[4].toString());
                m->setFileName(row[5].toString());
                m->setAsleep(row[6].toInt() != 0);
                m->setMeshShown(row[7].toInt() != 0);
                m->setSelected(row[8].toInt() != 0);
                m->setShowTexture(row[9].toInt() != 0);
                m->setSelColor(unpackColor(row[10].toLongLong()));
                KvoColor4b solid = unpackColor(row[11].toLongLong());
                m->setSolidColor(&solid, false);
                // The pixels of a texture mesh are its image's project copy.
                if (m->getImageId() > 0) {
                    const long imageId = m->getImageId();
                    ref_ptr<CKvoImageDb> dbRef(idb);
                    m->setImageLoader([dbRef, imageId]() {
                        ref_ptr<IKvoImage> tex;
                        return dbRef->getTexture(tex, imageId, 2);
                    });
                }
                model->addMesh(ref_ptr<IKvoMesh>(m.get()));
                prgStep(progress, 0.8 / double(rows.size()));
            }
            s.model = ref_ptr<IKvoModel>(model.get());
        }
        out = std::move(s);
    } catch (const Failure& f) {
        error = QString("Cannot open the project %1: %2.").arg(path, f.message);
        return f.code;
    }
    prgStep(progress, 1.0);
    return kvoOk;
}

} // namespace projectfile
} // namespace kvo

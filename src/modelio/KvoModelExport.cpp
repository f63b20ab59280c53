#include "modelio/KvoModelExport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <unordered_map>

#include "commands/KvoCommands.h"
#include "modelio/KvoBmpWindow.h"
#include "modelio/KvoExportRows.h"
#include "modelio/KvoTextureBake.h"
#include "scene/KvoFile.h"
#include "scene/KvoUV.h"

namespace kvo {

using namespace exportrows;

namespace {
// The rows' pictures during the respective export. Pictures beyond the memory
// budget go to raw files in the temporary folder (changed ones only; the others
// are read again from the project), so a project of many photographs exports
// in bounded memory while every pixel keeps every mix it received.
class RowPictures {
public:
    RowPictures(std::vector<RowData>& rows, IKvoImageDb& db, size_t budget, const QString& spillDir)
        : m_rows(rows), m_db(db), m_budget(budget), m_spillDir(spillDir), m_slots(rows.size())
    {
    }
    ~RowPictures()
    {
        for (size_t i = 0; i < m_slots.size(); ++i)
            if (m_slots[i].spilled)
                QFile::remove(spillPath(i));
    }

    // The row's picture, loaded if need be; keep stays in memory meanwhile.
    IKvoImage* get(size_t row, long keep = -1)
    {
        Slot& s = m_slots[row];
        s.lastUse = ++m_clock;
        if (s.image)
            return s.image.get();
        if (s.failed)
            return nullptr;
        ref_ptr<IKvoImage> img;
        if (s.spilled)
            img = readSpill(row);
        else {
            bool alpha = false;
            img = loadRowPicture(m_rows[row], m_db, alpha);
            m_rows[row].hasAlpha = alpha;
        }
        if (!img) {
            s.failed = true;
            return nullptr;
        }
        s.image = img;
        s.bytes = size_t(img->getStride()) * size_t(img->getHeight());
        m_used += s.bytes;
        evict(row, keep);
        return s.image.get();
    }
    void touch(size_t row) { m_slots[row].dirty = true; }
    // Takes the picture out of the set (the caller writes it out).
    ref_ptr<IKvoImage> take(size_t row)
    {
        ref_ptr<IKvoImage> img;
        if (get(row))
            img = m_slots[row].image;
        drop(row, false);
        return img;
    }
    bool failed(size_t row) const { return m_slots[row].failed; }

private:
    struct Slot {
        ref_ptr<IKvoImage> image;
        size_t bytes = 0;
        bool dirty = false;
        bool spilled = false;
        bool failed = false;
        uint64_t lastUse = 0;
    };

    QString spillPath(size_t row) const { return m_spillDir + QString("Spill_%1.raw").arg(row); }

    void evict(size_t a, long b)
    {
        while (m_used > m_budget) {
            size_t victim = m_slots.size();
            for (size_t i = 0; i < m_slots.size(); ++i) {
                if (!m_slots[i].image || i == a || long(i) == b)
                    continue;
                if (victim == m_slots.size() || m_slots[i].lastUse < m_slots[victim].lastUse)
                    victim = i;
            }
            if (victim == m_slots.size())
                return;
            drop(victim, true);
        }
    }

    void drop(size_t row, bool keepChanges)
    {
        Slot& s = m_slots[row];
        if (!s.image)
            return;
        if (keepChanges && s.dirty) {
            QFile f(spillPath(row));
            bool ok = f.open(QIODevice::WriteOnly);
            const int64_t dims[2] = {int64_t(s.image->getWidth()), int64_t(s.image->getHeight())};
            ok = ok && f.write(reinterpret_cast<const char*>(dims), sizeof(dims)) == qint64(sizeof(dims));
            for (long y = 0; ok && y < dims[1]; ++y)
                ok = f.write(reinterpret_cast<const char*>(s.image->getData() + y * s.image->getStride()),
                             qint64(dims[0] * 4)) == qint64(dims[0] * 4);
            if (!ok)
                return; // no room on disk: keep it in memory rather than lose the mix
            s.spilled = true;
        }
        m_used -= s.bytes;
        s.image.reset();
    }

    ref_ptr<IKvoImage> readSpill(size_t row)
    {
        QFile f(spillPath(row));
        int64_t dims[2] = {0, 0};
        if (!f.open(QIODevice::ReadOnly) || f.read(reinterpret_cast<char*>(dims), sizeof(dims)) != sizeof(dims))
            return {};
        QByteArray bytes = f.readAll();
        if (dims[0] <= 0 || dims[1] <= 0 || bytes.size() != dims[0] * dims[1] * 4)
            return {};
        ref_ptr<IKvoImage> img = newKvoImage();
        img->setData(reinterpret_cast<const unsigned char*>(bytes.constData()), long(dims[0]), long(dims[1]), 4);
        return img;
    }

    std::vector<RowData>& m_rows;
    IKvoImageDb& m_db;
    size_t m_budget;
    QString m_spillDir;
    std::vector<Slot> m_slots;
    size_t m_used = 0;
    uint64_t m_clock = 0;
};

// Alpha at a continuous position, from the nearest pixel.
uint8_t alphaAt(const IKvoImage& img, const XPnt2d& p)
{
    long x = std::clamp(long(std::floor(p.x)), 0L, img.getWidth() - 1);
    long y = std::clamp(long(std::floor(p.y)), 0L, img.getHeight() - 1);
    return img.getData()[y * img.getStride() + x * 4 + 3];
}

uint8_t greatestAlpha(const IKvoImage& img, const XPnt2d t[3])
{
    XPnt2d c((t[0].x + t[1].x + t[2].x) / 3.0, (t[0].y + t[1].y + t[2].y) / 3.0);
    return std::max({alphaAt(img, t[0]), alphaAt(img, t[1]), alphaAt(img, t[2]), alphaAt(img, c)});
}

long powerOf2(long n)
{
    long p = 1;
    while (p < n)
        p <<= 1;
    return p;
}

bool saveTexture(const ref_ptr<IKvoImage>& picture, const QString& path, bool pow2, KvoExportReport& report)
{
    ref_ptr<IKvoImage> img = picture;
    if (pow2) {
        long w = powerOf2(img->getWidth()), h = powerOf2(img->getHeight());
        if (w != img->getWidth() || h != img->getHeight())
            img = img->resized(w, h, 2);
    }
    if (!img->saveFile(path, 95)) {
        report.problems << QString("Cannot write %1.").arg(path);
        return false;
    }
    report.textures << path;
    return true;
}

// Builds the smart mesh of the kept triangles: vertices (and their UVs, for a
// mesh with a UV a vertex) numbered in the order of first use.
void buildSmartMesh(CKvoSmartMesh& sm, const RowData& row, const std::vector<long>& triangles, const XPnt3f* verts,
                    const XPnt3f* normals, long vertexCount, std::vector<unsigned>& remap,
                    std::vector<unsigned>& uvRemap, const std::function<XPnt2f(long, int)>* uvOf)
{
    constexpr unsigned kNone = 0xFFFFFFFFu;
    std::vector<unsigned> touched, touchedUV;
    const bool withUV = row.kind == 1 && (row.corner ? !row.uvs.empty() : long(row.uvs.size()) >= vertexCount);
    sm.cornerIndexed = row.corner && withUV;
    auto& V = sm.vertices->vec();
    auto& N = sm.normals->vec();
    auto& T = sm.uvs->vec();
    auto& I = sm.indices->vec();
    for (long t : triangles) {
        for (int k = 0; k < 3; ++k) {
            unsigned v = row.tris[size_t(3 * t + k)];
            if (remap[v] == kNone) {
                remap[v] = unsigned(V.size());
                touched.push_back(v);
                V.push_back(verts[v]);
                if (normals)
                    N.push_back(normals[v]);
                if (withUV && !sm.cornerIndexed)
                    T.push_back(uvOf ? (*uvOf)(t, k) : row.uvs[v]);
            }
            I.push_back(remap[v]);
            if (sm.cornerIndexed) {
                unsigned u = row.corner3[size_t(3 * t + k)];
                if (uvOf) {
                    // Tiles rescale UVs: every corner gets its own.
                    I.push_back(unsigned(T.size()));
                    T.push_back((*uvOf)(t, k));
                } else {
                    if (uvRemap[u] == kNone) {
                        uvRemap[u] = unsigned(T.size());
                        touchedUV.push_back(u);
                        T.push_back(u < row.uvs.size() ? row.uvs[u] : XPnt2f(0, 0));
                    }
                    I.push_back(uvRemap[u]);
                }
            }
        }
    }
    for (unsigned v : touched)
        remap[v] = kNone;
    for (unsigned u : touchedUV)
        uvRemap[u] = kNone;
}

} // namespace

ref_ptr<ExportInfoArray> newExportInfoArray()
{
    return ref_ptr<ExportInfoArray>(new ExportInfoArray());
}

QString exportBaseName(const QString& dir)
{
    QString d = QDir::cleanPath(dir);
    return pathGetFileName(d);
}

KvoModelExporter::KvoModelExporter(const QString& dir, const QString& base)
    : m_dir(QDir::cleanPath(dir)), m_base(base.isEmpty() ? exportBaseName(dir) : base)
{
}

void KvoModelExporter::tileGrid(long w, long h, long& across, long& down)
{
    if (w <= h) {
        across = w / 800 + 1;
        down = h / 1000 + 1;
    } else {
        across = w / 1000 + 1;
        down = h / 800 + 1;
    }
    if (across == 1 && down == 1)
        return;
    across = std::max(2L, across);
    down = std::max(2L, down);
}

long KvoModelExporter::exportRespective(const ExportInfoArray& infos, const KvoExportFlags& flags,
                                        IKvoProgress* progress)
{
    m_report = KvoExportReport();
    IKvoMM* mm = getMM();
    ref_ptr<IKvoModel> model;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoProject> project;
    if (!mm || !mm->getProject(project) || !project->getImageDb(db) || !mm->getBareModel(model))
        return kvoErrNoProject;
    if (m_dir.isEmpty() || !QFileInfo(m_dir).isDir())
        return kvoExportNoFolder;
    const QString texDir = m_dir + "/" + m_base + "_Texture";
    const QString tempDir = m_dir + "/" + m_base + "_TempTex/";
    QDir().mkpath(texDir);
    QDir().mkpath(tempDir);
    m_report.objFile = m_dir + "/" + m_base + ".obj";
    m_report.mtlFile = m_dir + "/" + m_base + ".mtl";

    KvoTextOut obj;
    if (!obj.open(m_report.objFile))
        return kvoExportCannotWrite;
    obj.write(respectiveObjHeader(m_base));
    prgText(progress, "Exporting Object File ...");

    std::vector<RowData> rows(size_t(infos.getCount()));
    for (size_t i = 0; i < rows.size(); ++i) {
        rows[i].info = infos[long(i)];
        loadRow(rows[i], *mm);
    }
    RowPictures pictures(rows, *db, m_budget, tempDir);
    const long rowCount = long(rows.size());

    // Overlap pass: every triangle goes to one row.
    struct Owner {
        int row;
        long tri;
    };
    std::unordered_map<XTrip<unsigned>, Owner, TripHash> owners;
    {
        KvoPrgPush push(progress, 0.4);
        for (long j = 0; j < rowCount; ++j) {
            RowData& row = rows[size_t(j)];
            prgText(progress, "Exporting Image of " + row.meshName);
            prgStep(progress, 1.0 / double(std::max(1L, rowCount)));
            if (row.kind != 1)
                continue;
            IKvoImage* mine = nullptr;
            if (!row.big) {
                mine = pictures.get(size_t(j));
                if (!mine) {
                    m_report.problems << QString("The picture of %1 cannot be read; it is left out.").arg(row.meshName);
                    std::fill(row.keep.begin(), row.keep.end(), 0);
                    continue;
                }
                row.width = mine->getWidth();
                row.height = mine->getHeight();
            } else {
                XPnt2i size;
                ref_ptr<IKvoImageInfo> infoRec;
                db->getImageInfo(infoRec, row.imageId);
                if (infoRec) {
                    row.pictureFile = infoRec->getFilePath(kvoPathImage);
                    if (!QFileInfo::exists(row.pictureFile))
                        row.pictureFile = infoRec->getFilePath(kvoPathOriginal);
                }
                KvoBmpWindowReader bmp;
                if (bmp.open(row.pictureFile)) {
                    row.width = bmp.width();
                    row.height = bmp.height();
                } else if (infoRec && infoRec->getImageSize(size, 1)) {
                    row.width = size.x;
                    row.height = size.y;
                }
            }
            // Masks of the pixels that this pass has mixed, one a winner picture.
            std::unordered_map<long, std::vector<uint8_t>> masks;
            const long n = row.triangleCount();
            for (long t = 0; t < n; ++t) {
                XTrip<unsigned> key(row.tris[size_t(3 * t)], row.tris[size_t(3 * t + 1)], row.tris[size_t(3 * t + 2)]);
                key.normalize();
                auto it = owners.find(key);
                if (it == owners.end() || it->second.row == j) {
                    row.keep[size_t(t)] = 1;
                    owners[key] = {int(j), t};
                    continue;
                }
                const long i = it->second.row;
                const long ti = it->second.tri;
                RowData& earlier = rows[size_t(i)];
                IKvoImage* theirs = earlier.big ? nullptr : pictures.get(size_t(i), j);
                mine = row.big ? nullptr : pictures.get(size_t(j), i);
                XPnt2d pj[3] = {row.pixel(t, 0), row.pixel(t, 1), row.pixel(t, 2)};
                XPnt2d pi[3] = {earlier.pixel(ti, 0), earlier.pixel(ti, 1), earlier.pixel(ti, 2)};
                bool thisWins = true;
                if (mine && theirs && row.hasAlpha && earlier.hasAlpha)
                    thisWins = greatestAlpha(*mine, pj) >= greatestAlpha(*theirs, pi);
                const long winner = thisWins ? j : i, loser = thisWins ? i : j;
                IKvoImage* W = thisWins ? mine : theirs;
                IKvoImage* L = thisWins ? theirs : mine;
                const XPnt2d* pw = thisWins ? pj : pi;
                const XPnt2d* pl = thisWins ? pi : pj;
                KvoAffine2d A;
                if (!getAffineTransformationMatrix(pw, pl, A)) {
                    row.keep[size_t(t)] = 0;
                    if (thisWins)
                        earlier.keep[size_t(ti)] = 0;
                    continue;
                }
                if (W && L) {
                    const long ww = W->getWidth(), wh = W->getHeight(), lw = L->getWidth(), lh = L->getHeight();
                    std::vector<uint8_t>& mask = masks[winner];
                    if (mask.empty())
                        mask.assign(size_t(ww * wh), 0);
                    uint8_t* wp = W->getMutableData();
                    const long ws = W->getStride();
                    const uint8_t* lp = L->getData();
                    const long ls = L->getStride();
                    const bool laterHasAlpha = row.hasAlpha;
                    const bool laterIsWinner = thisWins;
                    forEachPixelInTriangle(pw, ww, wh, false, [&](long x, long y) {
                        XPnt2d q = A.apply(double(x) + 0.5, double(y) + 0.5);
                        if (q.x < 0 || q.y < 0 || q.x >= double(lw - 1) || q.y >= double(lh - 1))
                            return;
                        uint8_t& m = mask[size_t(y * ww + x)];
                        if (m)
                            return;
                        uint8_t* at = wp + y * ws + x * 4;
                        uint8_t sampled[4];
                        sampleBilinear(lp, lw, lh, ls, q.x, q.y, sampled);
                        const uint8_t* e = laterIsWinner ? sampled : at;
                        const uint8_t* l = laterIsWinner ? at : sampled;
                        const unsigned a = laterHasAlpha ? l[3] : 255u;
                        uint8_t mixed[3];
                        for (int k = 0; k < 3; ++k)
                            mixed[k] = uint8_t((unsigned(e[k]) * (255u - a) + unsigned(l[k]) * a) / 255u);
                        std::memcpy(at, mixed, 3);
                        m = 1;
                    });
                    pictures.touch(size_t(winner));
                }
                rows[size_t(loser)].keep[size_t(loser == j ? t : ti)] = 0;
                if (thisWins) {
                    row.keep[size_t(t)] = 1;
                    it->second = {int(j), t};
                }
            }
        }
    }

    // Gutter pass: pixels outside the kept triangles are cleared and the band
    // around the triangles grown, so filtering at triangle edges reads texture.
    for (long j = 0; j < rowCount; ++j) {
        RowData& row = rows[size_t(j)];
        if (row.kind != 1 || row.big || !row.hasAlpha)
            continue;
        IKvoImage* img = pictures.get(size_t(j));
        if (!img)
            continue;
        const long w = img->getWidth(), h = img->getHeight(), stride = img->getStride();
        std::vector<uint8_t> mask(size_t(w * h), uint8_t(kGrowth + 1));
        for (long t = 0; t < row.triangleCount(); ++t) {
            if (!row.keep[size_t(t)])
                continue;
            XPnt2d p[3] = {row.pixel(t, 0), row.pixel(t, 1), row.pixel(t, 2)};
            forEachPixelInTriangle(p, w, h, true, [&](long x, long y) { mask[size_t(y * w + x)] = 0; });
        }
        uint8_t* px = img->getMutableData();
        for (long y = 0; y < h; ++y)
            for (long x = 0; x < w; ++x)
                if (mask[size_t(y * w + x)])
                    std::memset(px + y * stride + x * 4, 0, 4);
        growImage(px, w, h, stride, mask.data(), kGrowth);
        pictures.touch(size_t(j));
    }

    // Write pass, last row first.
    Enve3d env;
    mm->getModelEnvelope(env);
    KvoObjPlacement place;
    place.swapYZ = flags.swapYZ;
    if (flags.moveToOrigin && env.isValid()) {
        place.cx = float((env.minX + env.maxX) / 2);
        place.cy = float((env.minY + env.maxY) / 2);
        place.cz = float(env.minZ);
    }
    const long vertexCount = model->getVertexCount();
    const XPnt3f* verts = model->getVertices() ? model->getVertices()->getData() : nullptr;
    Pnt3fArray* normalArray = model->getVertexNormals();
    const XPnt3f* normals =
        normalArray && normalArray->getCount() == vertexCount && vertexCount > 0 ? normalArray->getData() : nullptr;
    std::vector<unsigned> remap(size_t(vertexCount), 0xFFFFFFFFu);
    std::vector<unsigned> uvRemap;
    std::map<long, QStringList> textureNames; // image id: suffixes of its materials
    KvoObjOffsets offsets;
    auto writeOut = [&](CKvoSmartMesh& sm) {
        if (writeSmartMesh(obj, sm, place, offsets) == 0) {
            ++m_report.meshes;
            m_report.faces += sm.getTriangleCount();
        }
    };
    {
        KvoPrgPush push(progress, 0.55);
        for (long j = rowCount - 1; j >= 0; --j) {
            RowData& row = rows[size_t(j)];
            prgText(progress, "Exporting Texture Info of " + row.meshName);
            prgStep(progress, 1.0 / double(std::max(1L, rowCount)));
            std::vector<long> kept;
            for (long t = 0; t < row.triangleCount(); ++t)
                if (row.keep[size_t(t)])
                    kept.push_back(t);
            for (unsigned v : row.tris)
                if (v >= unsigned(vertexCount) || !verts) {
                    m_report.problems << QString("%1 names vertices the model does not have.").arg(row.meshName);
                    kept.clear();
                    break;
                }
            if (row.corner) {
                unsigned most = 0;
                for (unsigned u : row.corner3)
                    most = std::max(most, u);
                uvRemap.assign(size_t(most) + 1, 0xFFFFFFFFu);
            }
            const QString safeName = fileSafe(row.meshName);
            if (row.kind != 1) {
                CKvoSmartMesh sm;
                sm.setSuffix("BareMesh" + QString::number(j), m_base, m_dir);
                buildSmartMesh(sm, row, kept, verts, normals, vertexCount, remap, uvRemap, nullptr);
                writeOut(sm);
                continue;
            }
            long across = 1, down = 1;
            if (row.big && flags.clipBigImage)
                tileGrid(row.width, row.height, across, down);
            if (across == 1 && down == 1) {
                textureNames[row.imageId] << "0";
                if (kept.empty())
                    continue;
                ref_ptr<IKvoImage> picture;
                if (row.big) {
                    picture = newKvoImage();
                    if (!picture->loadFile(row.pictureFile))
                        picture.reset();
                } else {
                    picture = pictures.take(size_t(j));
                }
                CKvoSmartMesh sm;
                sm.imageId = row.imageId;
                sm.setSuffix(safeName + "0", m_base, m_dir);
                if (!picture) {
                    m_report.problems << QString("The picture of %1 cannot be read; it is left out.").arg(row.meshName);
                    textureNames[row.imageId].removeLast();
                    continue;
                }
                buildSmartMesh(sm, row, kept, verts, normals, vertexCount, remap, uvRemap, nullptr);
                saveTexture(picture, sm.texturePath, flags.powerOf2, m_report);
                writeOut(sm);
                continue;
            }
            // Tiles: cells between evenly spaced points of the UV square, row by
            // row from the picture's top; a triangle goes whole to the first cell
            // that its box meets, and the cell's window grows to hold it.
            KvoBmpWindowReader bmp;
            if (!bmp.open(row.pictureFile)) {
                m_report.problems << bmp.error();
                continue;
            }
            const long cells = (across - 1) * (down - 1);
            std::vector<std::vector<long>> members(static_cast<size_t>(cells));
            std::vector<Enve2d> boxes(static_cast<size_t>(cells));
            const double cw = double(row.width) / double(across - 1), ch = double(row.height) / double(down - 1);
            for (long t : kept) {
                XPnt2d p[3] = {row.pixel(t, 0), row.pixel(t, 1), row.pixel(t, 2)};
                double minX = std::min({p[0].x, p[1].x, p[2].x}), minY = std::min({p[0].y, p[1].y, p[2].y});
                long cx = std::clamp(long(std::floor(minX / cw)), 0L, across - 2);
                long cy = std::clamp(long(std::floor(minY / ch)), 0L, down - 2);
                long c = cy * (across - 1) + cx;
                members[size_t(c)].push_back(t);
                for (auto& q : p)
                    boxes[size_t(c)].add(
                        XPnt2d(std::clamp(q.x, 0.0, double(row.width)), std::clamp(q.y, 0.0, double(row.height))));
            }
            for (long c = 0; c < cells; ++c) {
                prgText(progress, QString("Spliting the image %1 of %2").arg(c + 1).arg(cells));
                if (members[size_t(c)].empty())
                    continue;
                const long cx = c % (across - 1), cy = c / (across - 1);
                Enve2d box = boxes[size_t(c)];
                box.add(XPnt2d(double(cx) * cw, double(cy) * ch));
                box.add(XPnt2d(double(cx + 1) * cw, double(cy + 1) * ch));
                const long x0 = std::max(0L, long(std::floor(box.minX))), y0 = std::max(0L, long(std::floor(box.minY)));
                const long x1 = std::min(row.width, long(std::ceil(box.maxX)));
                const long y1 = std::min(row.height, long(std::ceil(box.maxY)));
                std::vector<uint8_t> window;
                long tw = 0, th = 0;
                if (!bmp.read(x0, y0, x1 - x0, y1 - y0, window, tw, th)) {
                    m_report.problems << QString("Cannot read a tile of %1.").arg(row.pictureFile);
                    continue;
                }
                ref_ptr<IKvoImage> tile = newKvoImage();
                tile->setData(window.data(), tw, th, 4);
                const QString suffix = QString::number(c);
                textureNames[row.imageId] << suffix;
                CKvoSmartMesh sm;
                sm.imageId = row.imageId;
                sm.setSuffix(safeName + suffix, m_base, m_dir);
                std::function<XPnt2f(long, int)> tileUV = [&](long t, int k) {
                    XPnt2d p = row.pixel(t, k);
                    XPnt2d uv = pixelToUv(p.x - double(x0), p.y - double(y0), double(tw), double(th));
                    return XPnt2f(float(uv.x), float(uv.y));
                };
                buildSmartMesh(sm, row, members[size_t(c)], verts, normals, vertexCount, remap, uvRemap, &tileUV);
                saveTexture(tile, sm.texturePath, flags.powerOf2, m_report);
                writeOut(sm);
            }
        }
    }
    m_report.vertices = long(offsets.vertices);
    m_report.uvs = long(offsets.uvs);
    m_report.normals = long(offsets.normals);
    if (!obj.close())
        return kvoExportCannotWrite;

    prgText(progress, "Write mtl file......");
    prgText(progress, "Exporting MtlFile...");
    QByteArray mtl;
    for (long j = 0; j < rowCount; ++j) {
        const RowData& row = rows[size_t(j)];
        if (row.kind != 1) {
            mtl += "\n";
            continue;
        }
        if (row.triangleCount() == 0)
            continue;
        const QString m = m_base + "_" + fileSafe(row.meshName);
        auto it = textureNames.find(row.imageId);
        if (it == textureNames.end())
            continue;
        for (const QString& i : it->second) {
            if (!QFileInfo::exists(texDir + "/" + m + i + ".jpg"))
                continue;
            mtl += mtlMaterial(m + i, m_base + "_Texture/" + m + i + ".jpg", true);
        }
    }
    QFile mf(m_report.mtlFile);
    if (!mf.open(QIODevice::WriteOnly) || mf.write(mtl) != mtl.size())
        return kvoExportCannotWrite;
    prgStep(progress, 1.0);
    return m_report.meshes > 0 ? 0L : long(kvoExportNothing);
}

} // namespace kvo

#include "autotexture/KvoColorAdjust.h"

#include <QDir>
#include <QFileInfo>
#include <QObject>
#include <QTemporaryFile>

#include <opencv2/core.hpp>

#include <algorithm>
#include <chrono>
#include <mutex>

#include "autotexture/KvoPatchSplit.h"
#include "commands/KvoCommands.h"
#include "modelio/KvoMeshRepair.h"

namespace kvo {

const char* const kvoColorResultFolder = "adjColorForPatch_RV";

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point t0)
{
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

QString tr(const char* text)
{
    return QObject::tr(text);
}

} // namespace

long buildColorTables(IKvoMM& mm, KvoColorTables& tables, Rec3D::KvoHalfEdgeMesh& mesh, IKvoProgress* progress)
{
    tables = KvoColorTables();
    ref_ptr<IKvoModel> model;
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    if (!mm.getBareModel(model) || !model || !mm.getProject(project) || !project || !project->getImageDb(db) || !db)
        return 0;
    const long vertexCount = model->getVertexCount();
    tables.vertexUsed.assign(size_t(std::max(0L, vertexCount)), 0);

    // Every triangle of the shown texture meshes, keyed by its vertices; a
    // later mesh in list order takes over a triangle an earlier one holds.
    struct Entry {
        XTrip<unsigned> key;
        long order;
        KvoTriOwner owner;
    };
    std::vector<Entry> entries;
    ref_ptr<MeshArray> shown;
    mm.getShownTexMeshList(shown);
    std::map<uint16_t, long> lowBits;
    long order = 0;
    for (long m = 0; shown && m < shown->getCount(); ++m) {
        ref_ptr<IKvoMesh> texMesh = (*shown)[m];
        // An asleep mesh has nothing to show and nothing to correct.
        if (!texMesh || mm.isMeshAsleep(texMesh))
            continue;
        const long id = texMesh->getImageId();
        ref_ptr<IKvoImageInfo> info;
        XPnt2i size;
        if (id <= 0 || !db->getImageInfo(info, id) || !info || !info->getImageSize(size, 2) || size.x <= 0 ||
            size.y <= 0)
            continue;
        auto clash = lowBits.find(uint16_t(id));
        if (clash != lowBits.end() && clash->second != id)
            return kvoColorIdClash;
        lowBits[uint16_t(id)] = id;
        UIntArray* tris = texMesh->getTriangleIndices();
        Pnt2fArray* uvs = texMesh->getUVs();
        if (!tris || !uvs)
            continue;
        const bool corner = mm.hasCornerUVs(texMesh);
        tables.cornerUVImages[id] = corner;
        const unsigned* t = tris->getData();
        const XPnt2f* uv = uvs->getData();
        const long uvCount = uvs->getCount();
        const long faces = tris->getCount() / 3;
        for (long f = 0; f < faces; ++f) {
            Entry e;
            e.order = order++;
            e.owner.imageId = id;
            bool ok = true;
            for (int c = 0; c < 3; ++c) {
                const unsigned v = t[3 * f + c];
                const long uvIndex = corner ? texMesh->getFaceCorner(f, c) : long(v);
                if (long(v) >= vertexCount || uvIndex < 0 || uvIndex >= uvCount) {
                    ok = false;
                    break;
                }
                e.owner.vertices[c] = v;
                // Single precision, as the texture's own corners are.
                e.owner.corners[c] = XPnt2f(uv[uvIndex].x * float(size.x), (1.0f - uv[uvIndex].y) * float(size.y));
            }
            if (!ok)
                continue;
            for (unsigned v : e.owner.vertices)
                tables.vertexUsed[v] = 1;
            e.key = XTrip<unsigned>(e.owner.vertices[0], e.owner.vertices[1], e.owner.vertices[2]).normalized();
            entries.push_back(e);
        }
        prgStep(progress, 0.2 / double(shown->getCount()));
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return a.key < b.key || (!(b.key < a.key) && a.order < b.order);
    });

    // The used vertices, in rising old index.
    tables.newVertexIndex.assign(tables.vertexUsed.size(), -1);
    const Pnt3fArray* vertices = model->getVertices();
    for (size_t v = 0; v < tables.vertexUsed.size(); ++v)
        if (tables.vertexUsed[v]) {
            tables.newVertexIndex[v] = long(tables.vertices.size());
            tables.vertices.push_back(vertices->getAt(long(v)));
        }

    // Faces in key order, the last entry of each key winning.
    std::map<long, std::vector<long>> imageFaces;
    for (size_t i = 0; i < entries.size(); ++i) {
        if (i + 1 < entries.size() && !(entries[i].key < entries[i + 1].key))
            continue;
        const KvoTriOwner& o = entries[i].owner;
        tables.triOwner.emplace_hint(tables.triOwner.end(), entries[i].key, o);
        const long number = long(tables.faceUVs.size());
        Rec3D::RecMesh::FaceCorners fc;
        for (int c = 0; c < 3; ++c) {
            tables.faces.push_back(unsigned(tables.newVertexIndex[o.vertices[c]]));
            fc[size_t(c)] = OpenMesh::Vec2f(o.corners[c].x, o.corners[c].y);
        }
        tables.faceUVs.push_back(fc);
        tables.imageFaces[o.imageId].push_back(number);
        if (!tables.images.count(uint16_t(o.imageId))) {
            ref_ptr<IKvoImageInfo> info;
            db->getImageInfo(info, o.imageId);
            XPnt2i size;
            info->getImageSize(size, 2);
            Rec3D::RecMesh::ImgInfo img;
            img.width = size.x;
            img.height = size.y;
            img.path = info->getFilePath(kvoPathImage);
            tables.images[uint16_t(o.imageId)] = img;
        }
    }
    prgStep(progress, 0.1);

    // The half-edge mesh; faces it cannot hold leave faceUVs, and later
    // faces' handles move down by one for each.
    const auto meshStart = Clock::now();
    Rec3D::RecMesh::createMesh(mesh, tables.vertices.data(), long(tables.vertices.size()), tables.faces.data(),
                               long(tables.faces.size() / 3), Rec3D::RecMesh::kKeepVertexIndex, tables.refused);
    tables.meshSeconds = since(meshStart);
    std::sort(tables.refused.begin(), tables.refused.end());
    const std::vector<Rec3D::RecMesh::FaceCorners> cornersByNumber = tables.faceUVs;
    for (auto it = tables.refused.rbegin(); it != tables.refused.rend(); ++it)
        tables.faceUVs.erase(tables.faceUVs.begin() + long(*it));
    prgStep(progress, 0.2);

    // Patches of each photograph, in rising id.
    for (const auto& kv : tables.imageFaces) {
        const long id = kv.first;
        const std::vector<long>& numbers = kv.second;
        std::vector<uint32_t> tri(numbers.size() * 3);
        std::vector<XPnt2f> corners(numbers.size() * 3);
        for (size_t i = 0; i < numbers.size(); ++i)
            for (int c = 0; c < 3; ++c) {
                tri[3 * i + size_t(c)] = tables.faces[size_t(3 * numbers[i] + c)];
                const OpenMesh::Vec2f& p = cornersByNumber[size_t(numbers[i])][size_t(c)];
                corners[3 * i + size_t(c)] = XPnt2f(p[0], p[1]);
            }
        std::vector<int32_t> patch;
        const long count =
            tables.cornerUVImages[id]
                // Pixel corners follow the UVs exactly, so a hundredth of a pixel tells UVs apart.
                ? splitConnectedPatchesByUV(tri.data(), corners.data(), long(numbers.size()), patch, 0.01f)
                : splitConnectedPatches(tri.data(), long(numbers.size()), patch);
        std::vector<std::vector<OpenMesh::FaceHandle>> handles(static_cast<size_t>(count));
        for (size_t i = 0; i < numbers.size(); ++i) {
            const unsigned number = unsigned(numbers[i]);
            auto below = std::lower_bound(tables.refused.begin(), tables.refused.end(), number);
            if (below != tables.refused.end() && *below == number)
                continue;
            const long shift = long(below - tables.refused.begin());
            handles[size_t(patch[i])].push_back(OpenMesh::FaceHandle(int(long(number) - shift)));
        }
        for (long p = 0; p < count; ++p)
            tables.patches[{int(p), uint16_t(id)}] = std::move(handles[size_t(p)]);
    }
    prgStep(progress, 0.1);
    return 0;
}

QStringList KvoColorAdjustReport::lines() const
{
    QStringList l;
    const double drop = colour.stepBefore > 0 ? 100.0 * (1.0 - colour.stepAfter / colour.stepBefore) : 0.0;
    l << tr("Seam colour step: %1 grey levels before, %2 after (%3 % lower), over %4 seam samples")
             .arg(colour.stepBefore, 0, 'f', 2)
             .arg(colour.stepAfter, 0, 'f', 2)
             .arg(drop, 0, 'f', 1)
             .arg(colour.usableSamples);
    l << tr("Texture meshes: %1, faces: %2, patches: %3, seam edges: %4")
             .arg(meshes)
             .arg(faces)
             .arg(colour.patches)
             .arg(colour.seamEdges);
    for (const Rec3D::RecMesh::ColorImageStats& s : colour.images) {
        const QString name = names.count(s.id) ? names.at(s.id) : QString::number(s.id);
        l << tr("%1 (image %2): gains R %3, G %4, B %5")
                 .arg(name)
                 .arg(s.id)
                 .arg(s.gain[0], 0, 'f', 3)
                 .arg(s.gain[1], 0, 'f', 3)
                 .arg(s.gain[2], 0, 'f', 3);
    }
    if (!folder.isEmpty())
        l << tr("Corrected pictures: %1").arg(folder);
    for (const QString& s : skipped)
        l << tr("Left out: %1").arg(s);
    if (!error.isEmpty())
        l << tr("Stopped: %1").arg(error);
    return l;
}

long adjustImageColors(IKvoProgress* progress, const KvoColorAdjustOptions& options, KvoColorAdjustReport* report)
{
    KvoColorAdjustReport local;
    KvoColorAdjustReport& r = report ? *report : local;
    r = KvoColorAdjustReport();
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    if (!mm->getProject(project) || !project || !project->getImageDb(db) || !db) {
        r.error = tr("No project is open.");
        return kvoNoProject;
    }
    prgText(progress, tr("Adjust Image Color..."));
    prgStep(progress, 0.01);

    // The results go beside the project; a project without a folder that can
    // be written gets nothing, and nothing of it changes.
    const QString projectFolder = project->getFolder();
    const QFileInfo pf(projectFolder);
    if (projectFolder.isEmpty() || !pf.isDir() || !pf.isWritable()) {
        r.error = tr("The project folder %1 cannot be written; nothing was changed.").arg(projectFolder);
        return kvoColorNoFolder;
    }

    auto t0 = Clock::now();
    KvoColorTables tables;
    Rec3D::KvoHalfEdgeMesh mesh;
    long rc;
    {
        KvoPrgPush push(progress, 0.1);
        rc = buildColorTables(*mm, tables, mesh, progress);
    }
    if (rc == kvoColorIdClash) {
        r.error = tr("Two photographs' ids agree in their low 16 bits; nothing was changed.");
        return rc;
    }
    r.meshSeconds = tables.meshSeconds;
    r.tableSeconds = since(t0) - tables.meshSeconds;
    r.faces = long(tables.faceUVs.size());
    r.refused = long(tables.refused.size());
    r.meshes = long(tables.cornerUVImages.size());
    for (const auto& kv : tables.images) {
        ref_ptr<IKvoImageInfo> info;
        if (db->getImageInfo(info, kv.first) && info)
            r.names[kv.first] = info->getName();
    }

    const QString folder = QDir(projectFolder).filePath(kvoColorResultFolder);
    QDir(folder).removeRecursively();
    if (!QDir().mkpath(folder)) {
        r.error = tr("The folder %1 cannot be made; nothing was changed.").arg(folder);
        return kvoColorNoFolder;
    }
    r.folder = folder;
    prgStep(progress, 0.01);

    // Pixels come from the store as it holds them: the texture mesh's
    // picture (edits not yet saved included), else the project copy.
    Rec3D::RecMesh::ColorOptions opt;
    opt.mode = options.mode;
    opt.cancelled = options.cancelled;
    opt.progress = progress;
    std::map<uint16_t, long> fullId;
    for (const auto& kv : tables.imageFaces)
        fullId[uint16_t(kv.first)] = kv.first;
    // The passes read pictures from several threads: the store is asked one
    // at a time, and a picture that is only in its file is decoded outside
    // the lock, as the store would read it, into the thread's own buffers.
    std::mutex storeLock;
    opt.picture = [&](uint16_t low, cv::Mat& rgba, cv::Mat& scratch) {
        ref_ptr<IKvoImage> img;
        QString file;
        {
            std::lock_guard<std::mutex> lock(storeLock);
            auto full = fullId.find(low);
            if (full == fullId.end())
                return false;
            const long id = full->second;
            ref_ptr<IKvoMesh> texMesh;
            // A picture not read yet is read without being kept: the passes
            // would otherwise end with every photograph held decoded.
            if (mm->getTexMeshOfImage(texMesh, id) && texMesh && texMesh->isImageLoaded())
                texMesh->getImage(img);
            if ((!img || img->isEmpty()) && !db->hasPendingTexture(id, 2)) {
                ref_ptr<IKvoImageInfo> info;
                if (db->getImageInfo(info, id) && info)
                    file = info->getFilePath(kvoPathImage);
            }
            if ((!img || img->isEmpty()) && file.isEmpty())
                db->getTexture(img, id, 2);
        }
        if ((!img || img->isEmpty()) && !file.isEmpty())
            return decodeImageFileRGBA(file, rgba, scratch);
        if (!img || img->isEmpty())
            return false;
        img->getMat(rgba);
        return !rgba.empty();
    };
    auto storeStart = Clock::now();
    double storeSeconds = 0;
    opt.result = [&](uint16_t low, const cv::Mat& rgba) {
        std::lock_guard<std::mutex> lock(storeLock);
        storeStart = Clock::now();
        const long id = fullId[low];
        ref_ptr<IKvoImage> img = newKvoImageOf(rgba);
        if (!img)
            return false;
        if (db->setTexture(img, id, 2) != kvoOk)
            return false;
        ref_ptr<IKvoMesh> texMesh;
        if (mm->getTexMeshOfImage(texMesh, id) && texMesh)
            texMesh->setImage(img);
        storeSeconds += since(storeStart);
        return true;
    };
    {
        KvoPrgPush push(progress, 0.87);
        rc = Rec3D::RecMesh::adjColorForPatch(mesh, folder, tables.patches, tables.images, tables.faceUVs, opt,
                                              &r.colour);
    }
    r.storeSeconds = storeSeconds;
    for (const QString& s : r.colour.skipped)
        r.skipped << s;
    if (rc == Rec3D::RecMesh::kvoColorCancelled) {
        r.error = tr("Cancelled.");
        return rc;
    }
    if (rc < 0) {
        r.error = tr("The corrected pictures could not be written into %1.").arg(folder);
        return rc;
    }
    // The image database is written by the project's save, so that a Cancel
    // of the session leaves the files on disk as they were.
    mm->setDirty(true);
    prgStep(progress, 1.0);
    return 0;
}

long adjustImageColors(IKvoProgress* progress)
{
    return adjustImageColors(progress, KvoColorAdjustOptions());
}

} // namespace kvo

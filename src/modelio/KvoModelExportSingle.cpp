// The whole model as one mesh, its textures baked into atlases.

#include <QFile>
#include <QFileInfo>

#include <cmath>
#include <cstring>
#include <map>
#include <unordered_map>

#include "commands/KvoCommands.h"
#include "modelio/KvoExportRows.h"
#include "modelio/KvoModelExport.h"
#include "modelio/KvoObjReader.h"
#include "modelio/KvoTextureBake.h"
#include "scene/KvoMeshAccess.h"
#include "scene/KvoUV.h"
#include "scene/KvoUVAtlas.h"

namespace kvo {

using namespace exportrows;

long KvoModelExporter::exportSingleMesh(const ExportInfoArray& infos, long atlasSize, bool recalculate,
                                        const QString& uvFile, IKvoProgress* progress)
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
    prgText(progress, "Check the consistency of data......");
    prgStep(progress, 0.01);

    const long vertexCount = model->getVertexCount();
    const XPnt3f* verts = model->getVertices() ? model->getVertices()->getData() : nullptr;
    Pnt3fArray* normalArray = model->getVertexNormals();

    // The layout: positions, UVs, and per triangle its corners and sheet.
    std::vector<XPnt3f> positions;
    std::vector<XPnt3f> layoutNormals;
    std::vector<XPnt2f> uvs;
    std::vector<unsigned> corners; // v0 t0 v1 t1 v2 t2 a triangle
    std::vector<unsigned> sheetOf; // a triangle
    long sheets = 0;

    auto calculate = [&]() -> long {
        prgText(progress, "Calculating...");
        prgStep(progress, 0.09);
        std::vector<uint32_t> tris;
        collectBareFaces(*mm, tris, nullptr);
        Rec3D::RecMesh::KvoUVLayout layout;
        const long r = Rec3D::RecMesh::calUVForMesh(verts, vertexCount, tris.data(), long(tris.size() / 3), atlasSize,
                                                    m_layoutGutter, m_layoutLimit, nullptr, layout, nullptr);
        if (r < 0)
            return kvoExportLayoutFailed;
        positions.assign(verts, verts + vertexCount);
        if (normalArray && normalArray->getCount() == vertexCount)
            layoutNormals.assign(normalArray->getData(), normalArray->getData() + vertexCount);
        uvs = layout.uvs;
        corners.resize(tris.size() * 2);
        for (size_t t = 0; t < tris.size() / 3; ++t)
            for (int k = 0; k < 3; ++k) {
                corners[6 * t + 2 * size_t(k)] = tris[3 * t + size_t(k)];
                corners[6 * t + 2 * size_t(k) + 1] = layout.cornerUVs[3 * t + size_t(k)];
            }
        sheetOf.assign(layout.sheets.begin(), layout.sheets.end());
        sheets = layout.sheetCount;
        m_report.efficiency = layout.efficiency;
        return 0;
    };

    long code = 0;
    if (recalculate) {
        code = calculate();
    } else {
        QvObjModel obj;
        if (readObjFile(obj, uvFile, nullptr) != 0) {
            prgStep(progress, 1.0);
            return -1;
        }
        if (obj.vertices->getCount() != vertexCount)
            code = -2;
        for (long i = 0; code == 0 && i < vertexCount; ++i)
            if (std::fabs((*obj.vertices)[i].x - verts[i].x) > 0.0001f)
                code = -3;
        if (code == 0 && obj.triangles.empty())
            code = -4;
        if (code == 0 && (obj.triangles[0].tindices[0] == kObjNoIndex || obj.texCoords->getCount() == 0))
            code = -5;
        if (code == 0) {
            positions = obj.vertices->vec();
            if (obj.normals->getCount() == obj.vertices->getCount())
                layoutNormals = obj.normals->vec();
            uvs = obj.texCoords->vec();
            long material = 0;
            // Each group's material number is its sheet; groups without a
            // picture still get one so that every triangle has a sheet.
            std::vector<int> groupSheet(obj.groups.size(), -1);
            std::map<int, int> materialSheet;
            for (size_t g = 0; g < obj.groups.size(); ++g) {
                int m = obj.groups[g].material;
                auto it = materialSheet.find(m);
                if (it == materialSheet.end())
                    it = materialSheet.emplace(m, int(material++)).first;
                groupSheet[g] = it->second;
            }
            sheets = std::max(1L, material);
            std::vector<int> triSheet(obj.triangles.size(), 0);
            for (size_t g = 0; g < obj.groups.size(); ++g)
                for (unsigned t : obj.groups[g].triangles)
                    if (t < triSheet.size())
                        triSheet[t] = groupSheet[g];
            for (size_t t = 0; t < obj.triangles.size(); ++t) {
                const QvObjTriangle& tri = obj.triangles[t];
                bool ok = true;
                for (int k = 0; k < 3; ++k)
                    ok = ok && tri.vindices[k] < positions.size() && tri.tindices[k] < uvs.size();
                if (!ok)
                    continue;
                for (int k = 0; k < 3; ++k) {
                    corners.push_back(tri.vindices[k]);
                    corners.push_back(tri.tindices[k]);
                }
                sheetOf.push_back(unsigned(triSheet[t]));
            }
        } else {
            if (!msgYesNoQt("Input obj file is wrong, use uv calculation result to continue?", "Quovara"))
                return code;
            code = calculate();
        }
    }
    if (code < 0)
        return code;
    if (sheetOf.empty()) {
        prgStep(progress, 1.0);
        return kvoExportNothing;
    }

    // Where each triangle of the model lies in the atlases.
    std::unordered_map<XTrip<unsigned>, unsigned, TripHash> target;
    target.reserve(sheetOf.size());
    for (size_t t = 0; t < sheetOf.size(); ++t)
        target.emplace(XTrip<unsigned>(corners[6 * t], corners[6 * t + 2], corners[6 * t + 4]).normalized(),
                       unsigned(t));

    std::vector<RowData> rows;
    for (long i = 0; i < infos.getCount(); ++i) {
        RowData row;
        row.info = infos[i];
        loadRow(row, *mm);
        if (row.kind == 1)
            rows.push_back(std::move(row));
    }
    // Per row, the triangles that land on each sheet, in the row's order.
    struct Job {
        long tri;
        unsigned target;
    };
    std::vector<std::vector<std::vector<Job>>> jobs(rows.size(), std::vector<std::vector<Job>>(size_t(sheets)));
    for (size_t r = 0; r < rows.size(); ++r) {
        std::vector<uint8_t> written(sheetOf.size(), 0);
        const RowData& row = rows[r];
        for (long t = 0; t < row.triangleCount(); ++t) {
            auto it = target.find(
                XTrip<unsigned>(row.tris[size_t(3 * t)], row.tris[size_t(3 * t + 1)], row.tris[size_t(3 * t + 2)])
                    .normalized());
            if (it == target.end() || written[it->second])
                continue;
            written[it->second] = 1;
            jobs[r][sheetOf[it->second]].push_back({t, it->second});
        }
    }

    QByteArray mtl;
    m_report.objFile = m_dir + "/" + m_base + ".obj";
    m_report.mtlFile = m_dir + "/" + m_base + ".mtl";
    {
        KvoPrgPush push(progress, 0.59);
        prgText(progress, "Export expand Image of UV......");
        for (long s = 0; s < sheets; ++s) {
            ref_ptr<IKvoImage> atlas = newKvoImage();
            if (!atlas->create(atlasSize, atlasSize, KvoColor4b(0, 0, 0, 0))) {
                prgStep(progress, 1.0);
                return 0;
            }
            uint8_t* ap = atlas->getMutableData();
            const long as = atlas->getStride();
            std::vector<uint8_t> mask(size_t(atlasSize * atlasSize), uint8_t(kGrowth + 1));
            for (size_t r = 0; r < rows.size(); ++r) {
                if (jobs[r][size_t(s)].empty())
                    continue;
                RowData& row = rows[r];
                ref_ptr<IKvoImage> src;
                bool alpha = false;
                if (row.big) {
                    ref_ptr<IKvoImageInfo> infoRec;
                    db->getImageInfo(infoRec, row.imageId);
                    src = newKvoImage();
                    if (!infoRec || !src->loadFile(infoRec->getFilePath(kvoPathImage)))
                        src.reset();
                } else {
                    src = loadRowPicture(row, *db, alpha);
                }
                if (!src) {
                    m_report.problems << QString("The picture of %1 cannot be read; it is left out.").arg(row.meshName);
                    continue;
                }
                row.width = src->getWidth();
                row.height = src->getHeight();
                const uint8_t* sp = src->getData();
                const long sw = src->getWidth(), sh = src->getHeight(), ss = src->getStride();
                for (const Job& job : jobs[r][size_t(s)]) {
                    XPnt2d from[3], to[3];
                    for (int k = 0; k < 3; ++k) {
                        // The target corner that holds the same model vertex.
                        unsigned v = row.tris[size_t(3 * job.tri + k)];
                        int kk = 0;
                        while (kk < 2 && corners[6 * job.target + 2 * size_t(kk)] != v)
                            ++kk;
                        const XPnt2f& u = uvs[corners[6 * job.target + 2 * size_t(kk) + 1]];
                        to[k] = uvToPixel(u.x, u.y, double(atlasSize), double(atlasSize));
                        from[k] = row.pixel(job.tri, k);
                    }
                    KvoAffine2d A;
                    if (!getAffineTransformationMatrix(to, from, A))
                        continue;
                    forEachPixelInTriangle(to, atlasSize, atlasSize, true, [&](long x, long y) {
                        XPnt2d q = A.apply(double(x) + 0.5, double(y) + 0.5);
                        if (q.x < 0 || q.y < 0 || q.x > double(sw) || q.y > double(sh))
                            return;
                        uint8_t c[4];
                        sampleBilinear(sp, sw, sh, ss, q.x, q.y, c);
                        uint8_t* at = ap + y * as + x * 4;
                        if (alpha) {
                            const unsigned a = c[3];
                            for (int k = 0; k < 3; ++k)
                                at[k] = uint8_t((unsigned(at[k]) * (255u - a) + unsigned(c[k]) * a) / 255u);
                        } else {
                            std::memcpy(at, c, 3);
                        }
                        at[3] = 255;
                        mask[size_t(y * atlasSize + x)] = 0;
                    });
                }
            }
            growImage(ap, atlasSize, atlasSize, as, mask.data(), kGrowth);
            for (long y = 0; y < atlasSize; ++y)
                for (long x = 0; x < atlasSize; ++x)
                    ap[y * as + x * 4 + 3] = 255;
            const QString name = m_base + "_" + QString::number(s);
            const QString path = m_dir + "/" + name + ".jpg";
            if (!atlas->saveFile(path, 95))
                m_report.problems << QString("Cannot write %1.").arg(path);
            else
                m_report.textures << path;
            mtl += ("newmtl " + name + "\n").toLocal8Bit();
            mtl += "       Ka 0.2 0.2 0.2\n       Kd 1 1 1\n       Ks 0 0 0\n";
            mtl += ("       map_Kd " + name + ".jpg\n").toLocal8Bit();
            prgStep(progress, 1.0 / double(sheets));
        }
    }

    KvoPrgPush push(progress, 0.4);
    KvoTextOut obj;
    if (!obj.open(m_report.objFile))
        return kvoExportCannotWrite;
    obj.write("# Generate by Quovara Software.\n");
    obj.write(("mtllib " + m_base + ".mtl\n").toLocal8Bit());
    obj.write("g default\n");
    prgText(progress, "Export vertex data of OBJ...");
    for (const XPnt3f& p : positions)
        writeObjLine(obj, "v", p.x, p.y, p.z);
    prgText(progress, "Export mesh data of OBJ...");
    for (const XPnt2f& u : uvs)
        writeObjLine(obj, "vt", u.x, u.y);
    prgText(progress, "Export normal data of OBJ...");
    for (const XPnt3f& n : layoutNormals)
        writeObjLine(obj, "vn", n.x, n.y, n.z);
    obj.write("s off\n");
    prgText(progress, "Export triangle data of OBJ...");
    const bool withNormals = !layoutNormals.empty();
    std::vector<std::vector<unsigned>> bySheet(static_cast<size_t>(sheets));
    for (size_t t = 0; t < sheetOf.size(); ++t)
        if (sheetOf[t] < unsigned(sheets))
            bySheet[sheetOf[t]].push_back(unsigned(t));
    for (long s = 0; s < sheets; ++s) {
        if (bySheet[size_t(s)].empty())
            continue;
        obj.write(("usemtl " + m_base + "_" + QString::number(s) + "\n").toLocal8Bit());
        for (unsigned t : bySheet[size_t(s)]) {
            char* o = obj.reserve(200);
            *o++ = 'f';
            for (int k = 0; k < 3; ++k) {
                *o++ = ' ';
                o = formatG8(o, double(corners[6 * t + 2 * size_t(k)]) + 1);
                *o++ = '/';
                o = formatG8(o, double(corners[6 * t + 2 * size_t(k) + 1]) + 1);
                if (withNormals) {
                    *o++ = '/';
                    o = formatG8(o, double(corners[6 * t + 2 * size_t(k)]) + 1);
                }
            }
            *o++ = '\n';
            obj.commit(o);
        }
        m_report.faces += long(bySheet[size_t(s)].size());
    }
    if (!obj.close())
        return kvoExportCannotWrite;
    QFile mf(m_report.mtlFile);
    if (!mf.open(QIODevice::WriteOnly) || mf.write(mtl) != mtl.size())
        return kvoExportCannotWrite;
    m_report.meshes = 1;
    m_report.sheets = sheets;
    m_report.vertices = long(positions.size());
    m_report.uvs = long(uvs.size());
    m_report.normals = long(layoutNormals.size());
    prgStep(progress, 1.0);
    return 0;
}

} // namespace kvo

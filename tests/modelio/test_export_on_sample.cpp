// The export on a generated scene mapped through its true cameras: a real
// client reads the files, our reader gives back the geometry, and the colour
// the exported model shows at points of its triangles is the colour the
// project shows there.

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <map>
#include <random>

#include "modelio/KvoModelExport.h"
#include "modelio/KvoObjReader.h"
#include "scene/KvoUV.h"
#include "support/SampleSupport.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

class ExportOnSample : public qvtest::ViewerTest {
protected:
    void SetUp() override
    {
        ViewerTest::SetUp();
        ASSERT_NO_FATAL_FAILURE(qvtest::openMappedSample(scratch, {4, 4000, 640, 480, 24}));
        ref_ptr<IKvoProject> project;
        getMM()->getProject(project)->getImageDb(db);
        getMM()->getTexMeshes(meshes);
        ASSERT_EQ(meshes->getCount(), 4);
    }

    ref_ptr<ExportInfoArray> rows() const
    {
        ref_ptr<ExportInfoArray> r = newExportInfoArray();
        for (const auto& m : meshes->vec()) {
            _ExportInfo info;
            info.mesh = m;
            info.name = m->getName();
            r->append(info);
        }
        return r;
    }

    // The colour the project shows at barycentric point w of triangle (a, b, c)
    // through a texture mesh: its UVs and its picture.
    static bool projectColour(const IKvoMesh& mesh, const IKvoImage& pic, const unsigned v[3], const double w[3],
                              double out[3])
    {
        const Pnt2fArray* uv = mesh.getUVs();
        double u = 0, t = 0;
        for (int k = 0; k < 3; ++k) {
            u += w[k] * uv->getAt(v[k]).x;
            t += w[k] * uv->getAt(v[k]).y;
        }
        return sample(pic, u, t, out);
    }
    // Bilinear, as the 3-D view filters its textures.
    static bool sample(const IKvoImage& pic, double u, double v, double out[3])
    {
        XPnt2d p = uvToPixel(u, v, double(pic.getWidth()), double(pic.getHeight()));
        const double fx = p.x - 0.5, fy = p.y - 0.5;
        const long x = long(std::floor(fx)), y = long(std::floor(fy));
        if (x < 1 || y < 1 || x >= pic.getWidth() - 2 || y >= pic.getHeight() - 2)
            return false;
        const double ax = fx - double(x), ay = fy - double(y);
        const uint8_t* p00 = pic.getData() + y * pic.getStride() + x * 4;
        const uint8_t* p10 = p00 + pic.getStride();
        for (int k = 0; k < 3; ++k)
            out[k] = (1 - ay) * ((1 - ax) * p00[k] + ax * p00[4 + k]) + ay * ((1 - ax) * p10[k] + ax * p10[4 + k]);
        return true;
    }

    // Mean colour difference between the exported model and the project, at
    // random points of the exported triangles. owner tells which texture mesh
    // the project shows each triangle through.
    double compare(const QString& objFile, const std::map<XTrip<unsigned>, int>& owner, long& points)
    {
        QvObjModel obj;
        EXPECT_EQ(readObjFile(obj, objFile, nullptr), 0);
        ref_ptr<IKvoModel> model;
        getMM()->getBareModel(model);
        // Exported vertices are the model's to seven digits: match them back by
        // position on a millimetre grid (the scene's vertices lie farther apart).
        auto key = [](const XPnt3f& p) {
            return std::make_tuple(std::lround(p.x * 1000.0), std::lround(p.y * 1000.0), std::lround(p.z * 1000.0));
        };
        std::map<std::tuple<long, long, long>, unsigned> byPosition;
        for (long i = 0; i < model->getVertexCount(); ++i)
            byPosition.emplace(key((*model->getVertices())[i]), unsigned(i));
        std::vector<ref_ptr<IKvoImage>> projectPics;
        for (const auto& m : meshes->vec()) {
            ref_ptr<IKvoImage> pic;
            db->getTexture(pic, m->getImageId(), 2);
            projectPics.push_back(pic);
        }
        std::map<int, ref_ptr<IKvoImage>> exportPics;
        std::mt19937 rng(5);
        std::uniform_real_distribution<double> r01(0, 1);
        double total = 0;
        points = 0;
        for (const QvObjGroup& g : obj.groups) {
            if (!exportPics.count(g.material)) {
                ref_ptr<IKvoImage> pic = newKvoImage();
                const QString file = resolveObjName(obj.pathName, obj.materials[size_t(g.material)].mapKd);
                EXPECT_TRUE(pic->loadFile(file)) << file.toStdString();
                exportPics[g.material] = pic;
            }
            const IKvoImage& epic = *exportPics[g.material];
            for (unsigned ti : g.triangles) {
                const QvObjTriangle& t = obj.triangles[ti];
                unsigned v[3];
                for (int k = 0; k < 3; ++k) {
                    const XPnt3f& p = (*obj.vertices)[long(t.vindices[k])];
                    auto it = byPosition.find(key(p));
                    EXPECT_NE(it, byPosition.end()) << "an exported vertex is not a model vertex";
                    if (it == byPosition.end())
                        return 1e9;
                    v[k] = it->second;
                }
                const auto own = owner.find(XTrip<unsigned>(v[0], v[1], v[2]).normalized());
                if (own == owner.end())
                    continue;
                const int m = own->second;
                for (int s = 0; s < 2; ++s) {
                    double w[3] = {r01(rng), r01(rng), 0};
                    if (w[0] + w[1] > 1) {
                        w[0] = 1 - w[0];
                        w[1] = 1 - w[1];
                    }
                    w[2] = 1 - w[0] - w[1];
                    double u = 0, vv = 0;
                    for (int k = 0; k < 3; ++k) {
                        u += w[k] * (*obj.texCoords)[long(t.tindices[k])].x;
                        vv += w[k] * (*obj.texCoords)[long(t.tindices[k])].y;
                    }
                    double got[3], want[3];
                    if (!sample(epic, u, vv, got) ||
                        !projectColour(*meshes->vec()[size_t(m)], *projectPics[size_t(m)], v, w, want))
                        continue;
                    double e = 0;
                    for (int k = 0; k < 3; ++k)
                        e += std::abs(got[k] - want[k]) / 3;
                    total += e;
                    ++points;
                }
            }
        }
        return points ? total / double(points) : 1e9;
    }

    ref_ptr<IKvoImageDb> db;
    ref_ptr<MeshArray> meshes;
};

// The last row that holds a triangle owns it (no alpha anywhere).
std::map<XTrip<unsigned>, int> lastOwner(const MeshArray& meshes)
{
    std::map<XTrip<unsigned>, int> owner;
    for (long m = 0; m < meshes.getCount(); ++m) {
        const UIntArray* t = meshes[m]->getTriangleIndices();
        for (long f = 0; f < t->getCount() / 3; ++f)
            owner[XTrip<unsigned>(t->getAt(3 * f), t->getAt(3 * f + 1), t->getAt(3 * f + 2)).normalized()] = int(m);
    }
    return owner;
}

void expectAssimpAgrees(const KvoExportReport& r);

TEST_F(ExportOnSample, RespectiveExportShowsWhatTheProjectShowsAndReadsBackEverywhere)
{
    QDir().mkpath(scratch.file("out"));
    KvoModelExporter ex(scratch.file("out"), "model");
    ASSERT_EQ(ex.exportRespective(*rows(), KvoExportFlags(), nullptr), 0);
    const KvoExportReport& r = ex.report();
    EXPECT_TRUE(r.problems.isEmpty()) << r.problems.join("; ").toStdString();
    const auto owner = lastOwner(*meshes);
    EXPECT_EQ(r.faces, long(owner.size())) << "every textured triangle once";

    long points = 0;
    const double diff = compare(r.objFile, owner, points);
    EXPECT_GT(points, 2000);
    // JPEG at quality 95 is all that separates the two.
    EXPECT_LT(diff, 3.0);
    RecordProperty("mean_colour_difference", std::to_string(diff));

    expectAssimpAgrees(r);
}

// The whole model in atlases laid out here: every textured triangle shows what
// the project shows (the last texture mesh holding it wins), and the sheets
// are well used.
TEST_F(ExportOnSample, AtlasExportShowsWhatTheProjectShows)
{
    QDir().mkpath(scratch.file("atlas"));
    KvoModelExporter ex(scratch.file("atlas"), "model");
    ASSERT_EQ(ex.exportSingleMesh(*rows(), 2048, true, QString(), nullptr), 0);
    const KvoExportReport& r = ex.report();
    EXPECT_TRUE(r.problems.isEmpty()) << r.problems.join("; ").toStdString();
    EXPECT_GT(r.efficiency, 0.6);
    const auto owner = lastOwner(*meshes);
    long points = 0;
    const double diff = compare(r.objFile, owner, points);
    EXPECT_GT(points, 2000);
    EXPECT_LT(diff, 3.0);
    RecordProperty("atlas_mean_colour_difference", std::to_string(diff));
    expectAssimpAgrees(r);
}

void expectAssimpAgrees(const KvoExportReport& r)
{
    // A real client reads the files without complaint and counts as we do.
    QString said;
    EXPECT_EQ(qvtest::assimpInfo(r.objFile, said), 0) << said.toStdString();
    EXPECT_FALSE(said.contains("Warn", Qt::CaseInsensitive)) << said.toStdString();
    EXPECT_FALSE(said.contains("Error", Qt::CaseInsensitive)) << said.toStdString();
    EXPECT_TRUE(said.contains(QRegularExpression(QString("Faces:\\s+%1\\n").arg(r.faces)))) << said.toStdString();
    EXPECT_TRUE(said.contains(QRegularExpression(QString("Materials:\\s+%1\\n").arg(r.textures.size()))));
    for (const QString& t : r.textures)
        EXPECT_FALSE(newKvoImage()->loadFile(t) == false) << t.toStdString();
}

} // namespace

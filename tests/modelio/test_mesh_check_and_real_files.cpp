#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTextStream>

#include <map>
#include <random>
#include <set>

#include "commands/KvoCommands.h"
#include "modelio/KvoImportCommands.h"
#include "modelio/KvoMeshRepair.h"
#include "modelio/ObjTestFiles.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

// The OBJ files that the assimp test models package ships (scripts/setup.sh installs it).
QString assimpObjFolder()
{
    for (const char* dir : {"/usr/share/assimp/models/OBJ", "/usr/share/assimp-testmodels/models/OBJ"})
        if (QDir(dir).exists())
            return dir;
    return QString();
}

// An oracle that knows nothing of the reader: lines whose first word is "v",
// and per line whose first word is "f" its corners less two.
struct Counts {
    long vertices = 0;
    long triangles = 0;
};
Counts countLines(const QString& path)
{
    Counts c;
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return c;
    const QStringList lines = QString::fromLatin1(f.readAll()).split('\n');
    for (const QString& line : lines) {
        const QStringList words = line.split(QRegularExpression("\\s+"), Qt::SkipEmptyParts);
        if (words.isEmpty())
            continue;
        if (words[0] == "v")
            ++c.vertices;
        else if (words[0] == "f" && words.size() >= 4)
            c.triangles += words.size() - 3;
    }
    return c;
}

// Every face the half-edge mesh holds, as vertex triples in its order.
std::vector<std::array<unsigned, 3>> faces(const Rec3D::KvoHalfEdgeMesh& m)
{
    std::vector<std::array<unsigned, 3>> out;
    for (long f = 0; f < m.getFaceCount(); ++f) {
        unsigned c[3];
        m.getFaceVertices(f, c);
        out.push_back({c[0], c[1], c[2]});
    }
    return out;
}

// What a half-edge structure can hold: no directed edge twice, no repeated corner.
bool holdable(const std::vector<std::array<unsigned, 3>>& fs)
{
    std::set<std::pair<unsigned, unsigned>> directed;
    for (auto& t : fs) {
        if (t[0] == t[1] || t[1] == t[2] || t[0] == t[2])
            return false;
        for (int k = 0; k < 3; ++k)
            if (!directed.insert({t[k], t[(k + 1) % 3]}).second)
                return false;
    }
    return true;
}

} // namespace

TEST(MeshCheck, RefusedFacesAndKeptFacesPartitionTheInputAndTheKeptOnesAreHoldable)
{
    std::mt19937 rng(42);
    for (int round = 0; round < 40; ++round) {
        const unsigned nv = 6 + rng() % 10;
        std::vector<XPnt3f> verts(nv);
        for (unsigned i = 0; i < nv; ++i)
            verts[i] = XPnt3f(float(rng() % 100), float(rng() % 100), float(rng() % 100));
        std::vector<unsigned> tris;
        const unsigned nf = 5 + rng() % 30;
        for (unsigned f = 0; f < nf; ++f)
            for (int k = 0; k < 3; ++k)
                tris.push_back(rng() % nv);
        Rec3D::KvoHalfEdgeMesh mesh;
        std::vector<unsigned> refused;
        const long n =
            Rec3D::RecMesh::createMesh(mesh, verts.data(), long(nv), tris.data(), long(nf),
                                       Rec3D::RecMesh::kKeepVertexIndex | Rec3D::RecMesh::kKeepFaceIndex, refused);
        ASSERT_EQ(n, long(refused.size()));
        ASSERT_EQ(mesh.getVertexCount(), long(nv));
        ASSERT_EQ(mesh.getFaceCount() + n, long(nf));
        ASSERT_TRUE(mesh.hasProperty("VPropVerIdx") && mesh.hasProperty("FPropFaceIdx"));
        std::set<unsigned> seen(refused.begin(), refused.end());
        for (long f = 0; f < mesh.getFaceCount(); ++f) {
            const unsigned old = mesh.getFaceIndexProp(f);
            EXPECT_TRUE(seen.insert(old).second) << "each input face is kept or refused, once";
            unsigned c[3];
            mesh.getFaceVertices(f, c);
            // Same triangle, same turning: a rotation of the input corners.
            const std::array<unsigned, 3> in = {tris[3 * old], tris[3 * old + 1], tris[3 * old + 2]};
            bool rotation = false;
            for (int r = 0; r < 3; ++r)
                rotation = rotation || (c[0] == in[r] && c[1] == in[(r + 1) % 3] && c[2] == in[(r + 2) % 3]);
            EXPECT_TRUE(rotation);
            EXPECT_EQ(mesh.getVertexIndexProp(long(c[0])), c[0]);
        }
        EXPECT_EQ(seen.size(), size_t(nf));
        EXPECT_TRUE(holdable(faces(mesh)));

        // The refinement only adds refused faces, turned over, and stays holdable.
        const auto before = faces(mesh);
        const long added = Rec3D::RecMesh::newIKvoRefineMesh(mesh, nullptr);
        ASSERT_GE(added, 0);
        EXPECT_EQ(mesh.getFaceCount(), long(before.size()) + added);
        EXPECT_EQ(long(mesh.getRefused().size()), n - added);
        EXPECT_TRUE(holdable(faces(mesh)));
        for (long f = long(before.size()); f < mesh.getFaceCount(); ++f) {
            const unsigned old = mesh.getFaceIndexProp(f);
            EXPECT_TRUE(std::count(refused.begin(), refused.end(), old) == 1);
            unsigned c[3];
            mesh.getFaceVertices(f, c);
            std::multiset<unsigned> got(c, c + 3), want(tris.begin() + 3 * old, tris.begin() + 3 * old + 3);
            EXPECT_EQ(got, want);
        }
    }
}

TEST(MeshCheck, WithoutTheIndexPropertiesThereIsNoRefinement)
{
    const XPnt3f v[3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    const unsigned t[3] = {0, 1, 2};
    Rec3D::KvoHalfEdgeMesh mesh;
    std::vector<unsigned> refused;
    EXPECT_EQ(Rec3D::RecMesh::createMesh(mesh, v, 3, t, 1, 0, refused), 0);
    EXPECT_FALSE(mesh.hasProperty("VPropVerIdx"));
    EXPECT_EQ(Rec3D::RecMesh::newIKvoRefineMesh(mesh, nullptr), -1);
    EXPECT_EQ(repairModelMesh(mesh, nullptr), -1);
}

using RealFiles = qvtest::ViewerTest;

TEST_F(RealFiles, TheAssimpTestModelsReadWithTheCountsTheirLinesHold)
{
    const QString folder = assimpObjFolder();
    if (folder.isEmpty())
        GTEST_SKIP() << "the assimp-testmodels package is not installed";
    const QStringList files = QDir(folder).entryList({"*.obj"}, QDir::Files, QDir::Name);
    ASSERT_GE(files.size(), 10);
    int read = 0;
    for (const QString& name : files) {
        SCOPED_TRACE(name.toStdString());
        const QString path = folder + "/" + name;
        QvObjModel m;
        const long rc = readObjFile(m, path, nullptr);
        if (name.contains("UTF16")) {
            EXPECT_EQ(rc, kvoObjNotText) << "UTF-16 text is refused, not misread";
            continue;
        }
        ASSERT_EQ(rc, 0);
        const Counts c = countLines(path);
        EXPECT_EQ(m.vertices->getCount(), c.vertices);
        EXPECT_EQ(long(m.triangles.size()), c.triangles);
        ++read;
    }
    EXPECT_GE(read, 10);
}

TEST_F(RealFiles, TheTexturedSpiderImportsWithItsPicturesAndRepairs)
{
    const QString folder = assimpObjFolder();
    if (folder.isEmpty())
        GTEST_SKIP() << "the assimp-testmodels package is not installed";
    // Copied with a space in its folder's name: paths with spaces must work.
    QDir().mkpath(scratch.file("with space"));
    for (const QString& f : QDir(folder).entryList({"spider.*", "*.jpg"}, QDir::Files))
        ASSERT_TRUE(qvtest::copyFile(folder + "/" + f, scratch.file("with space/" + f)));
    newProject();
    presenter->buttonAnswers = {QMessageBox::Yes};
    ASSERT_EQ(cmdOnFileAddKvomodel(scratch.file("with space/spider.obj")), 1);
    const Counts c = countLines(folder + "/spider.obj");
    const KvoObjImportReport& r = lastObjImportReport();
    EXPECT_EQ(r.vertices, c.vertices);
    EXPECT_EQ(r.images.size(), 4) << "four groups name a picture that is there";
    EXPECT_GT(r.refusedFaces, 0);
    EXPECT_TRUE(r.repaired);
    EXPECT_EQ(r.triangles, c.triangles - r.removedFaces);
    EXPECT_EQ(getMM()->getTexMeshCount(), 4);
    // Each texture mesh's triangles are triangles of the bare mesh.
    ref_ptr<MeshArray> bare, tex;
    getMM()->getBareMeshes(bare);
    getMM()->getTexMeshes(tex);
    ASSERT_EQ(bare->getCount(), 1);
    std::set<XTrip<unsigned>> bareSet;
    const auto& bt = bare->getAt(0)->getTriangleIndices()->vec();
    for (size_t i = 0; i < bt.size(); i += 3)
        bareSet.insert(XTrip<unsigned>(bt[i], bt[i + 1], bt[i + 2]).normalize());
    long texTriangles = 0;
    for (auto& m : tex->vec()) {
        const auto& t = m->getTriangleIndices()->vec();
        texTriangles += long(t.size() / 3);
        for (size_t i = 0; i < t.size(); i += 3)
            EXPECT_TRUE(bareSet.count(XTrip<unsigned>(t[i], t[i + 1], t[i + 2]).normalize()));
    }
    EXPECT_GT(texTriangles, 0);
}

TEST_F(RealFiles, PointOnlyFilesImportAsAModelOfVertices)
{
    const QString folder = assimpObjFolder();
    if (folder.isEmpty())
        GTEST_SKIP() << "the assimp-testmodels package is not installed";
    newProject();
    ASSERT_EQ(cmdOnFileAddKvomodel(folder + "/point_cloud.obj"), 1);
    ref_ptr<IKvoModel> model;
    ASSERT_TRUE(getMM()->getBareModel(model));
    EXPECT_EQ(model->getVertexCount(), countLines(folder + "/point_cloud.obj").vertices);
    EXPECT_EQ(model->getVertexNormals()->getCount(), model->getVertexCount()) << "one vn per v: the file's normals";
    EXPECT_EQ(lastObjImportReport().triangles, 0);
}

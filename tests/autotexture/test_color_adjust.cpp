// Colour balance of the mapped photographs. A flat grid of faces is seen by
// photographs whose pixels are made from a known surface colour through known
// affine maps, with known exposure and white balance: the gains the model
// finds, what it keeps (a crease between lit and shaded halves, alpha, detail)
// and what it ignores (a blob over a seam) are checked against that truth.
// The patch splitter against a brute-force search, the tables against what
// they must hold, and the bundled sample against its ground truth.

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <functional>
#include <random>
#include <set>
#include <thread>

#include "SampleProject.h"
#include "SampleQuality.h"
#include "autotexture/KvoBestImage.h"
#include "autotexture/KvoColorAdjust.h"
#include "autotexture/KvoPatchSplit.h"
#include "modelio/KvoMeshRepair.h"
#include "modelio/KvoModelExport.h"
#include "platform/KvoImageDbImpl.h"
#include "platform/KvoProgressImpl.h"
#include "scene/KvoStore.h"
#include "scene/KvoUV.h"
#include "support/TestSupport.h"

using namespace kvo;
using Rec3D::RecMesh::ColorMode;

namespace {

// ---------------------------------------------------------------------------
// Patch splitter

// Components by breadth-first search over faces that share two vertices (and,
// with corners, agree on their UVs there): the plain definition, quadratic.
std::vector<int32_t> bruteForcePatches(const std::vector<uint32_t>& t, const std::vector<XPnt2f>* uv)
{
    const long n = long(t.size() / 3);
    // Joined: two distinct shared vertices whose corner UVs agree on both faces.
    auto joined = [&](long a, long b) {
        auto agree = [&](int i, int j) {
            return !uv || ((*uv)[size_t(3 * a + i)].x == (*uv)[size_t(3 * b + j)].x &&
                           (*uv)[size_t(3 * a + i)].y == (*uv)[size_t(3 * b + j)].y);
        };
        for (int i1 = 0; i1 < 3; ++i1)
            for (int i2 = i1 + 1; i2 < 3; ++i2)
                for (int j1 = 0; j1 < 3; ++j1)
                    for (int j2 = 0; j2 < 3; ++j2)
                        if (j1 != j2 && t[size_t(3 * a + i1)] == t[size_t(3 * b + j1)] &&
                            t[size_t(3 * a + i2)] == t[size_t(3 * b + j2)] && agree(i1, j1) && agree(i2, j2))
                            return true;
        return false;
    };
    std::vector<int32_t> patch(size_t(n), -1);
    int32_t next = 0;
    for (long s = 0; s < n; ++s) {
        if (patch[size_t(s)] >= 0)
            continue;
        std::vector<long> queue{s};
        patch[size_t(s)] = next;
        for (size_t h = 0; h < queue.size(); ++h)
            for (long g = 0; g < n; ++g)
                if (patch[size_t(g)] < 0 && joined(queue[h], g)) {
                    patch[size_t(g)] = next;
                    queue.push_back(g);
                }
        ++next;
    }
    return patch;
}

TEST(PatchSplit, AgreesWithABruteForceSearchOnRandomMeshes)
{
    std::mt19937 rng(7);
    for (int round = 0; round < 40; ++round) {
        const int vertices = 6 + int(rng() % 20), faces = 1 + int(rng() % 30);
        std::vector<uint32_t> t;
        std::vector<XPnt2f> uv;
        for (int f = 0; f < faces; ++f) {
            uint32_t a = rng() % vertices, b = rng() % vertices, c = rng() % vertices;
            while (b == a)
                b = rng() % vertices;
            while (c == a || c == b)
                c = rng() % vertices;
            t.insert(t.end(), {a, b, c});
            // UVs mostly follow the vertex, sometimes not: a cut.
            for (uint32_t v : {a, b, c})
                uv.push_back(rng() % 5 == 0 ? XPnt2f(0.9f, float(f)) : XPnt2f(float(v) / 30.f, 0.5f));
        }
        std::vector<int32_t> got;
        const long n = splitConnectedPatches(t.data(), faces, got);
        EXPECT_EQ(got, bruteForcePatches(t, nullptr)) << "round " << round;
        EXPECT_EQ(n, *std::max_element(got.begin(), got.end()) + 1);
        splitConnectedPatchesByUV(t.data(), uv.data(), faces, got, 0.0f);
        EXPECT_EQ(got, bruteForcePatches(t, &uv)) << "round " << round << " with corner UVs";
    }
}

TEST(PatchSplit, CornerUVsCutAStripWhereThePictureDoes)
{
    // Four faces in a row; the UVs jump between the second and third face.
    const std::vector<uint32_t> t = {0, 1, 2, 1, 3, 2, 2, 3, 4, 3, 5, 4};
    std::vector<XPnt2f> uv;
    for (int f = 0; f < 4; ++f)
        for (int c = 0; c < 3; ++c) {
            const uint32_t v = t[size_t(3 * f + c)];
            uv.push_back(XPnt2f(float(v) * 0.1f + (f >= 2 ? 0.5f : 0.0f), 0.2f));
        }
    std::vector<int32_t> plain, cut;
    EXPECT_EQ(splitConnectedPatches(t.data(), 4, plain), 1);
    EXPECT_EQ(splitConnectedPatchesByUV(t.data(), uv.data(), 4, cut), 2);
    EXPECT_EQ(cut, (std::vector<int32_t>{0, 0, 1, 1}));
    EXPECT_EQ(splitConnectedPatches(t.data(), 0, plain), 0);
}

// ---------------------------------------------------------------------------
// The grid scene

// The surface colour at grid position (s, t), s and t from 0 to 1: texture
// detail on both halves, the right half (s > 0.5) in shade at half the light.
cv::Vec3f surfaceColour(double s, double t)
{
    const double detail = 0.5 + 0.25 * std::sin(40 * s + 3 * t) * std::cos(31 * t) + 0.15 * std::sin(97 * s * t);
    const double shade = s > 0.5 ? 0.5 : 1.0;
    return cv::Vec3f(float(200 * shade * detail), float(170 * shade * detail), float(130 * shade * (1.1 - detail)));
}

struct GridPhoto {
    double gain[3] = {1, 1, 1}; // R, G, B
    // Affine map from the grid's (s, t) to pixels: x = ax * s + bx, y = ay * (1 - t) + by.
    double ax = 300, bx = 10, ay = 220, by = 10;
    int width = 320, height = 240;
    double noise = 1.0;
    unsigned seed = 1;
    bool blob = false;  // a dark disc over the middle of the crease
    bool alpha = false; // a band of half-transparent pixels
};

class GridScene : public qvtest::StoreTest {
protected:
    static constexpr int kCells = 24;

    void SetUp() override
    {
        StoreTest::SetUp();
        newProject();
        mm = getMM();
        ref_ptr<IKvoModel> model = newKvoModel();
        ref_ptr<Pnt3fArray> v = newPnt3fArray();
        for (int j = 0; j <= kCells; ++j)
            for (int i = 0; i <= kCells; ++i)
                v->append(XPnt3f(float(i) / kCells, 0.0f, float(j) / kCells));
        model->setVertices(v.get(), true);
        ref_ptr<UIntArray> t = newUIntArray();
        for (int j = 0; j < kCells; ++j)
            for (int i = 0; i < kCells; ++i) {
                const unsigned a = unsigned(j * (kCells + 1) + i), b = a + 1, c = a + kCells + 1, d = c + 1;
                for (unsigned x : {a, b, d, a, d, c})
                    t->append(x);
            }
        ref_ptr<IKvoMesh> bare = model->newMesh(-1, false);
        bare->setTriangleIndices(t.get(), true);
        model->addMesh(bare);
        mm->setBareModel(model);
        triangles.assign(t->getData(), t->getData() + t->getCount());
        ref_ptr<IKvoProject> project;
        mm->getProject(project)->getImageDb(db);
    }

    // Renders the photograph of the grid and adds it to the project.
    long addPhoto(const GridPhoto& p, const QString& name)
    {
        cv::Mat bgra(p.height, p.width, CV_8UC4);
        std::mt19937 rng(p.seed);
        std::normal_distribution<double> noise(0.0, p.noise);
        for (int y = 0; y < p.height; ++y)
            for (int x = 0; x < p.width; ++x) {
                const double s = (x + 0.5 - p.bx) / p.ax, t = 1 - (y + 0.5 - p.by) / p.ay;
                cv::Vec3f c = surfaceColour(std::clamp(s, 0.0, 1.0), std::clamp(t, 0.0, 1.0));
                if (p.blob && std::hypot(s - 0.5, t - 0.5) < 0.12)
                    c = cv::Vec3f(20, 60, 40);
                cv::Vec4b& out = bgra.at<cv::Vec4b>(y, x);
                for (int k = 0; k < 3; ++k)
                    out[2 - k] = cv::saturate_cast<uint8_t>(c[k] * p.gain[k] + noise(rng));
                out[3] = p.alpha && x % 40 < 6 ? 128 : 255;
            }
        const QString path = scratch.file(name);
        QDir().mkpath(QFileInfo(path).absolutePath());
        EXPECT_TRUE(cv::imwrite(path.toStdString(), bgra));
        long id = -1;
        EXPECT_EQ(db->addImage(path, id), kvoOk);
        photos[id] = p;
        return id;
    }

    // The texture mesh of photograph id holding the faces whose centre
    // satisfies keep(s, t), with the UVs of the photograph's map.
    ref_ptr<IKvoMesh> mapFaces(long id, const std::function<bool(double, double)>& keep)
    {
        const GridPhoto& p = photos[id];
        ref_ptr<IKvoMesh> tex;
        mm->createTexMesh(tex, false, id, false);
        ref_ptr<UIntArray> t = newUIntArray();
        ref_ptr<IKvoModel> model;
        mm->getBareModel(model);
        const Pnt3fArray& v = *model->getVertices();
        for (size_t f = 0; f < triangles.size() / 3; ++f) {
            double s = 0, tt = 0;
            for (int k = 0; k < 3; ++k) {
                s += v.getAt(triangles[3 * f + k]).x / 3.0;
                tt += v.getAt(triangles[3 * f + k]).z / 3.0;
            }
            if (keep(s, tt))
                for (int k = 0; k < 3; ++k)
                    t->append(triangles[3 * f + size_t(k)]);
        }
        tex->setTriangleIndices(t.get(), true);
        ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
        for (long i = 0; i < v.getCount(); ++i) {
            const double x = p.ax * v.getAt(i).x + p.bx, y = p.ay * (1 - v.getAt(i).z) + p.by;
            const XPnt2d uv = pixelToUv(x, y, p.width, p.height);
            uvs->append(XPnt2f(float(uv.x), float(uv.y)));
        }
        tex->setUVs(uvs.get());
        ref_ptr<IKvoImage> img;
        tex->setImage(db->getTexture(img, id, 2));
        return tex;
    }

    // The texture mesh's picture as BGRA.
    cv::Mat meshPicture(long id) const
    {
        ref_ptr<IKvoMesh> tex;
        ref_ptr<IKvoImage> img;
        mm->getTexMeshOfImage(tex, id);
        tex->getImage(img);
        cv::Mat rgba;
        img->getMat(rgba);
        return rgba.clone();
    }

    // Mean colour (R, G, B) of a photograph's picture over the grid cells in
    // [s0, s1] x [0.1, 0.9], read through its map, a few pixels in from the edges.
    static cv::Vec3d meanOver(const cv::Mat& rgba, const GridPhoto& p, double s0, double s1)
    {
        cv::Vec3d sum(0, 0, 0);
        long n = 0;
        for (int y = 0; y < rgba.rows; ++y)
            for (int x = 0; x < rgba.cols; ++x) {
                const double s = (x + 0.5 - p.bx) / p.ax, t = 1 - (y + 0.5 - p.by) / p.ay;
                if (s < s0 || s > s1 || t < 0.1 || t > 0.9)
                    continue;
                const cv::Vec4b& c = rgba.at<cv::Vec4b>(y, x);
                sum += cv::Vec3d(c[0], c[1], c[2]);
                ++n;
            }
        return n ? sum / double(n) : sum;
    }

    long run(ColorMode mode = ColorMode::Full, KvoColorAdjustReport* report = nullptr)
    {
        KvoColorAdjustOptions o;
        o.mode = mode;
        return adjustImageColors(nullptr, o, report);
    }

    const Rec3D::RecMesh::ColorImageStats* statsOf(const KvoColorAdjustReport& r, long id) const
    {
        for (const auto& s : r.colour.images)
            if (s.id == uint16_t(id))
                return &s;
        return nullptr;
    }

    IKvoMM* mm = nullptr;
    ref_ptr<IKvoImageDb> db;
    std::vector<uint32_t> triangles;
    std::map<long, GridPhoto> photos;
};

auto leftHalf = [](double s, double) { return s < 0.5; };
auto rightHalf = [](double s, double) { return s > 0.5; };

} // namespace

// Two photographs of the lit and shaded halves, equally exposed: the crease
// between the halves is the seam, and it is compared against itself, so
// neither half moves, and neither picture changes by a grey level.
TEST_F(GridScene, ACreaseBetweenLitAndShadedHalvesStaysAsItIs)
{
    GridPhoto a, b;
    b.ax = 260, b.bx = 40, b.ay = 200, b.by = 25, b.seed = 2; // another view of the same surface
    const long ia = addPhoto(a, "a.png"), ib = addPhoto(b, "b.png");
    mapFaces(ia, leftHalf);
    mapFaces(ib, rightHalf);
    const cv::Mat beforeA = meshPicture(ia), beforeB = meshPicture(ib);
    KvoColorAdjustReport r;
    ASSERT_EQ(run(ColorMode::Full, &r), 0) << r.lines().join("\n").toStdString();
    EXPECT_GT(r.colour.usableSamples, 100);
    for (long id : {ia, ib})
        for (double g : statsOf(r, id)->gain)
            EXPECT_NEAR(g, 1.0, 0.01) << "image " << id;
    const cv::Mat afterA = meshPicture(ia), afterB = meshPicture(ib);
    for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(meanOver(afterA, a, 0.0, 0.5)[k], meanOver(beforeA, a, 0.0, 0.5)[k], 1.0)
            << "lit half, channel " << k;
        EXPECT_NEAR(meanOver(afterB, b, 0.5, 1.0)[k], meanOver(beforeB, b, 0.5, 1.0)[k], 1.0)
            << "shaded half, channel " << k;
    }
    cv::Mat diff;
    cv::absdiff(afterA, beforeA, diff);
    EXPECT_LT(cv::mean(diff)[0] + cv::mean(diff)[1] + cv::mean(diff)[2], 3.0) << "under a grey level a channel";
}

// The second photograph is brighter and warmer: its gains undo exactly that,
// and the seam step falls.
TEST_F(GridScene, GainsUndoExposureAndWhiteBalance)
{
    GridPhoto a, b;
    b.ax = 260, b.bx = 40, b.ay = 200, b.by = 25, b.seed = 2;
    b.gain[0] = 1.25, b.gain[1] = 1.15, b.gain[2] = 0.95;
    const long ia = addPhoto(a, "a.png"), ib = addPhoto(b, "b.png");
    mapFaces(ia, [](double s, double) { return s < 0.3; });
    mapFaces(ib, [](double s, double) { return s > 0.3; });
    for (ColorMode mode : {ColorMode::Global, ColorMode::Full}) {
        mm->openTexEdit(nullptr, 1, 1);
        KvoColorAdjustReport r;
        ASSERT_EQ(run(mode, &r), 0);
        for (int k = 0; k < 3; ++k) {
            const double ratio = statsOf(r, ib)->gain[k] * b.gain[k] / statsOf(r, ia)->gain[k];
            EXPECT_NEAR(ratio, 1.0, 0.03) << "channel " << k;
        }
        EXPECT_LT(r.colour.stepAfter, 0.4 * r.colour.stepBefore);
        mm->restoreTexEdit(nullptr);
        mm->closeTexEdit();
    }
}

// A dark blob covers part of the seam in one photograph: the gains move by
// under 1 % against the same scene without it.
TEST_F(GridScene, ABlobOverPartOfASeamHardlyMovesTheGains)
{
    GridPhoto a, b;
    b.ax = 260, b.bx = 40, b.ay = 200, b.by = 25, b.seed = 2;
    b.gain[0] = 1.2, b.gain[1] = 1.1, b.gain[2] = 1.0;
    const long ia = addPhoto(a, "a.png"), ib = addPhoto(b, "b.png");
    b.blob = true;
    const long ic = addPhoto(b, "b_blob.png");
    mapFaces(ia, [](double s, double) { return s < 0.5; });
    ref_ptr<IKvoMesh> clean = mapFaces(ib, [](double s, double) { return s > 0.5; });
    KvoColorAdjustReport without, with;
    mm->openTexEdit(nullptr, 1, 1);
    ASSERT_EQ(run(ColorMode::Global, &without), 0);
    mm->restoreTexEdit(nullptr);
    mm->closeTexEdit();
    clean->setMeshShown(false);
    mapFaces(ic, [](double s, double) { return s > 0.5; });
    ASSERT_EQ(run(ColorMode::Global, &with), 0);
    for (int k = 0; k < 3; ++k) {
        const double g0 = statsOf(without, ib)->gain[k] / statsOf(without, ia)->gain[k];
        const double g1 = statsOf(with, ic)->gain[k] / statsOf(with, ia)->gain[k];
        EXPECT_NEAR(g1 / g0, 1.0, 0.01) << "channel " << k;
    }
}

// One photograph alone has no seam: its pixels come back as they were, and
// its alpha is kept byte for byte; the result folder holds one JPEG of its
// size, named after the project's copy, and nothing of an earlier run.
TEST_F(GridScene, OnePhotographComesBackUnchangedWithItsAlpha)
{
    GridPhoto a;
    a.alpha = true;
    const long ia = addPhoto(a, "a.png");
    mapFaces(ia, [](double, double) { return true; });
    const cv::Mat before = meshPicture(ia);
    const QString folder = QDir(projectFolder()).filePath(kvoColorResultFolder);
    QDir().mkpath(folder);
    QFile stale(folder + "/stale.jpg");
    ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    stale.close();
    KvoColorAdjustReport r;
    ASSERT_EQ(run(ColorMode::Full, &r), 0);
    const cv::Mat after = meshPicture(ia);
    EXPECT_EQ(cv::norm(before, after, cv::NORM_INF), 0.0);
    ref_ptr<IKvoImageInfo> info;
    db->getImageInfo(info, ia);
    const QStringList files = QDir(folder).entryList(QDir::Files);
    ASSERT_EQ(files, QStringList{QFileInfo(info->getFilePath(kvoPathImage)).completeBaseName() + ".jpg"});
    const cv::Mat jpeg = cv::imread(QDir(folder).filePath(files[0]).toStdString());
    EXPECT_EQ(jpeg.cols, a.width);
    EXPECT_EQ(jpeg.rows, a.height);
}

// Alpha passes through a real correction too, and the user's files and the
// originals (level 1) are never written; the store holds the corrected pixels
// at level 2, shared with the texture mesh.
TEST_F(GridScene, AlphaAndOriginalsAreKept)
{
    GridPhoto a, b;
    b.ax = 260, b.bx = 40, b.ay = 200, b.by = 25, b.seed = 2, b.alpha = true;
    b.gain[0] = 1.3;
    const long ia = addPhoto(a, "a.png"), ib = addPhoto(b, "b.png");
    mapFaces(ia, leftHalf);
    mapFaces(ib, rightHalf);
    QFile user(scratch.file("b.png"));
    ASSERT_TRUE(user.open(QIODevice::ReadOnly));
    const QByteArray userBytes = user.readAll();
    user.close();
    ref_ptr<IKvoImage> level1Before, level1After, level2;
    db->getTexture(level1Before, ib, 1);
    const cv::Mat before = meshPicture(ib);
    ASSERT_EQ(run(), 0);
    const cv::Mat after = meshPicture(ib);
    std::vector<cv::Mat> cb, ca;
    cv::split(before, cb);
    cv::split(after, ca);
    EXPECT_EQ(cv::norm(cb[3], ca[3], cv::NORM_INF), 0.0) << "alpha";
    EXPECT_GT(cv::norm(cb[0], ca[0], cv::NORM_L1), 0.0) << "red was corrected";
    db->getTexture(level1After, ib, 1);
    EXPECT_TRUE(level1After->equals(*level1Before));
    db->getTexture(level2, ib, 2);
    cv::Mat l2;
    level2->getMat(l2);
    EXPECT_EQ(cv::norm(l2, after, cv::NORM_INF), 0.0);
    ASSERT_TRUE(user.open(QIODevice::ReadOnly));
    EXPECT_EQ(user.readAll(), userBytes);
}

// Two photographs with the same file name in different folders keep their
// own results.
TEST_F(GridScene, PhotographsNamedAlikeKeepTheirOwnResults)
{
    GridPhoto a, b;
    b.ax = 260, b.bx = 40, b.ay = 200, b.by = 25, b.seed = 2;
    b.gain[1] = 0.8;
    const long ia = addPhoto(a, "one/photo.png"), ib = addPhoto(b, "two/photo.png");
    mapFaces(ia, leftHalf);
    mapFaces(ib, rightHalf);
    KvoColorAdjustReport r;
    ASSERT_EQ(run(ColorMode::Full, &r), 0);
    const QStringList files = QDir(r.folder).entryList(QDir::Files);
    ASSERT_EQ(files.size(), 2);
    for (long id : {ia, ib}) {
        const cv::Mat jpeg = cv::imread(statsOf(r, id)->file.toStdString());
        cv::Mat mine;
        cv::cvtColor(meshPicture(id), mine, cv::COLOR_RGBA2BGR);
        EXPECT_LT(cv::norm(jpeg, mine, cv::NORM_L1) / double(jpeg.total() * 3), 2.0) << "image " << id;
    }
}

// A project whose folder cannot be written: nothing changes.
TEST_F(GridScene, AFolderThatCannotBeWrittenChangesNothing)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "root writes into any folder; the check needs an ordinary user";
    const long ia = addPhoto(GridPhoto(), "a.png");
    mapFaces(ia, leftHalf);
    QFile::setPermissions(projectFolder(), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    const cv::Mat before = meshPicture(ia);
    EXPECT_EQ(run(), kvoColorNoFolder);
    QFile::setPermissions(projectFolder(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    EXPECT_EQ(cv::norm(before, meshPicture(ia), cv::NORM_INF), 0.0);
}

// ---------------------------------------------------------------------------
// Tables

// A triangle held by two meshes enters once, under the later mesh; the
// patches of each photograph are its connected pieces.
TEST_F(GridScene, ALaterMeshTakesOverATriangleAndPatchesFollowThePieces)
{
    GridPhoto a, b;
    b.ax = 260, b.bx = 40, b.ay = 200, b.by = 25;
    const long ia = addPhoto(a, "a.png"), ib = addPhoto(b, "b.png");
    mapFaces(ia, [](double, double) { return true; });
    // Two separate squares of the second photograph over the first.
    mapFaces(ib, [](double s, double t) { return (s < 0.25 && t < 0.25) || (s > 0.75 && t > 0.75); });
    KvoColorTables tables;
    Rec3D::KvoHalfEdgeMesh mesh;
    ASSERT_EQ(buildColorTables(*mm, tables, mesh), 0);
    EXPECT_EQ(long(tables.triOwner.size()), long(triangles.size() / 3));
    long ofB = 0;
    for (const auto& kv : tables.triOwner)
        ofB += kv.second.imageId == ib ? 1 : 0;
    EXPECT_EQ(ofB, long(tables.imageFaces[ib].size()));
    EXPECT_EQ(ofB, 2L * 2 * (kCells / 4) * (kCells / 4));
    EXPECT_EQ(tables.patches.count({0, uint16_t(ib)}), 1u);
    EXPECT_EQ(tables.patches.count({1, uint16_t(ib)}), 1u);
    EXPECT_EQ(tables.patches.count({2, uint16_t(ib)}), 0u);
    EXPECT_EQ(tables.patches.count({0, uint16_t(ia)}), 1u) << "the first photograph keeps one piece with two holes";
    EXPECT_EQ(mesh.getFaceCount(), long(tables.faceUVs.size()));
    // Each face's corners are its photograph's pixels of its vertices, in the mesh's face order.
    for (long f = 0; f < mesh.getFaceCount(); ++f) {
        unsigned v[3];
        mesh.getFaceVertices(f, v);
        for (int k = 0; k < 3; ++k) {
            const XPnt3f& p = tables.vertices[v[k]];
            const bool inB = (p.x <= 0.25f && p.z <= 0.25f) || (p.x >= 0.75f && p.z >= 0.75f);
            (void)inB;
            const Rec3D::RecMesh::FaceCorners& c = tables.faceUVs[size_t(f)];
            const double xa = a.ax * p.x + a.bx, xb = b.ax * p.x + b.bx;
            EXPECT_TRUE(std::fabs(c[size_t(k)][0] - xa) < 1e-3 || std::fabs(c[size_t(k)][0] - xb) < 1e-3)
                << "face " << f << " corner " << k;
        }
    }
}

// A face the half-edge mesh refuses (a third face on an edge) leaves faceUVs,
// and the handles of later faces move down by one.
TEST_F(GridScene, ARefusedFaceShiftsTheHandlesOfLaterFaces)
{
    const long ia = addPhoto(GridPhoto(), "a.png");
    ref_ptr<IKvoMesh> tex = mapFaces(ia, [](double s, double t) { return s < 0.1 && t < 0.1; });
    // A third face on the edge of the first two faces: vertices 0 and the
    // diagonal's far end, and a vertex further away.
    ref_ptr<UIntArray> t = newUIntArray();
    const UIntArray* old = tex->getTriangleIndices();
    for (long i = 0; i < old->getCount(); ++i)
        t->append(old->getAt(i));
    const unsigned far = unsigned(3 * (kCells + 1) + 3);
    for (unsigned x : {old->getAt(0), old->getAt(2), far})
        t->append(x);
    tex->setTriangleIndices(t.get(), true);
    KvoColorTables tables;
    Rec3D::KvoHalfEdgeMesh mesh;
    ASSERT_EQ(buildColorTables(*mm, tables, mesh), 0);
    const long faces = long(tables.faces.size() / 3);
    ASSERT_EQ(tables.refused.size(), 1u);
    EXPECT_EQ(long(tables.faceUVs.size()), faces - 1);
    EXPECT_EQ(mesh.getFaceCount(), faces - 1);
    std::set<int> handles;
    for (const auto& kv : tables.patches)
        for (const auto& h : kv.second)
            handles.insert(h.idx());
    EXPECT_EQ(long(handles.size()), faces - 1);
    EXPECT_EQ(*handles.rbegin(), faces - 2) << "handles run without a gap";
}

// Ids that agree in their low 16 bits cannot be told apart by the tables.
// Photographs are read and corrected side by side, but the progress, the
// question whether to stop and the store's changes (which reach the views)
// come from the calling thread only; a stop between photographs of the
// applying pass is heard.
TEST_F(GridScene, TheUserIsReachedFromTheCallingThreadOnly)
{
    std::vector<long> ids;
    for (int k = 0; k < 4; ++k) {
        GridPhoto p;
        p.seed = unsigned(k + 1);
        p.gain[k % 3] = 1.2;
        ids.push_back(addPhoto(p, QString("p%1.png").arg(k)));
    }
    for (int k = 0; k < 4; ++k)
        mapFaces(ids[size_t(k)], [k](double s, double) { return s >= k * 0.25 && s < (k + 1) * 0.25; });
    const std::thread::id caller = std::this_thread::get_id();
    std::atomic<int> elsewhere{0};
    CKvoProgress progress;
    progress.setListener([&](double, const QString&) {
        if (std::this_thread::get_id() != caller)
            ++elsewhere;
    });
    int asked = 0;
    KvoColorAdjustOptions o;
    o.cancelled = [&] {
        if (std::this_thread::get_id() != caller)
            ++elsewhere;
        ++asked;
        return false;
    };
    KvoColorAdjustReport r;
    ASSERT_EQ(adjustImageColors(&progress, o, &r), 0);
    EXPECT_EQ(elsewhere.load(), 0);
    EXPECT_GE(asked, 4);
    EXPECT_LT(r.colour.stepAfter, 0.6 * r.colour.stepBefore);

    // Stop once the sampling pass is over: nothing is left half done that
    // the caller's session cannot put back, and the run says it stopped.
    int calls = 0;
    o.cancelled = [&] { return ++calls > asked / 2 + 1; };
    EXPECT_EQ(adjustImageColors(nullptr, o, &r), Rec3D::RecMesh::kvoColorCancelled);
}

TEST_F(GridScene, IdsThatClashInTheirLow16BitsAreRefused)
{
    const long ia = addPhoto(GridPhoto(), "a.png");
    mapFaces(ia, leftHalf);
    // Image ids are never reused: the database is told to give the next one 65536 above the first.
    auto* impl = dynamic_cast<CKvoImageDb*>(db.get());
    ASSERT_NE(impl, nullptr);
    std::vector<ref_ptr<CKvoImageInfo>> records;
    for (long i : impl->order())
        records.push_back(impl->record(i));
    impl->resetRecords(records, ia + 65536);
    long id = -1;
    ASSERT_EQ(db->addImage(scratch.file("a.png"), id), kvoOk);
    ASSERT_EQ(id, ia + 65536);
    photos[id] = GridPhoto();
    mapFaces(id, rightHalf);
    EXPECT_EQ(run(), kvoColorIdClash);
}

// ---------------------------------------------------------------------------
// The bundled sample

namespace {

const QString kSample = QUOVARA_SOURCE_DIR "/samples/building";

// The laplacian of a picture's grey levels.
cv::Mat laplacian(const cv::Mat& rgba)
{
    cv::Mat grey, lap;
    cv::cvtColor(rgba, grey, cv::COLOR_RGBA2GRAY);
    cv::Laplacian(grey, lap, CV_32F);
    return lap;
}

double correlation(const cv::Mat& a, const cv::Mat& b)
{
    cv::Scalar ma, sa, mb, sb;
    cv::meanStdDev(a, ma, sa);
    cv::meanStdDev(b, mb, sb);
    return (cv::mean(a.mul(b))[0] - ma[0] * mb[0]) / (sa[0] * sb[0]);
}

} // namespace

class ColourOnSample : public qvtest::StoreTest {};

// The sample textured by the best photograph per face: the gains match the
// scene's known exposure and white balance, the seam step falls by 60 % at
// least, the texture comes nearer the ground truth, and detail is kept.
TEST_F(ColourOnSample, GainsSeamStepTruthAndDetail)
{
    const QString project = scratch.file("sample.qvj");
    QString why;
    ASSERT_EQ(qvsample::buildProjectFromSample(kSample, project, why), kvoOk) << why.toStdString();
    IKvoMM* mm = getMM();
    KvoBestImageReport sel;
    ASSERT_EQ(selBestImgForFace(nullptr, &sel), 0);
    ASSERT_GE(cmdOnSeamlessTexturedMesh(1, nullptr), 0);
    if (mm->isTexEditOpen()) {
        mm->commitTexEdit();
        mm->closeTexEdit();
    }
    auto measure = [&](const QString& name, qvsample::QualityReport& q) {
        ref_ptr<MeshArray> all;
        mm->getTexMeshes(all);
        ref_ptr<ExportInfoArray> rows = newExportInfoArray();
        for (long i = 0; i < all->getCount(); ++i) {
            _ExportInfo row;
            row.mesh = (*all)[i];
            row.resample = true;
            row.name = row.mesh->getName();
            rows->append(row);
        }
        QDir().mkpath(scratch.file(name));
        KvoModelExporter exporter(scratch.file(name), "m");
        ASSERT_EQ(exporter.exportSingleMesh(*rows, 2048, true, QString(), nullptr), 0);
        std::set<XTrip<unsigned>> textured;
        mm->getTexturedTriangles(textured);
        ref_ptr<IKvoModel> model;
        mm->getBareModel(model);
        std::vector<XPnt3f> corners;
        for (const auto& t : textured)
            for (unsigned i : t.v)
                corners.push_back(model->getVertices()->getAt(long(i)));
        QString why;
        ASSERT_TRUE(qvsample::measureQuality(kSample, exporter.report().objFile, q, why, &corners))
            << why.toStdString();
    };
    qvsample::QualityReport before, after;
    measure("before", before);
    ref_ptr<IKvoProject> proj;
    ref_ptr<IKvoImageDb> db;
    mm->getProject(proj)->getImageDb(db);
    std::map<long, cv::Mat> pictures;
    ref_ptr<LongArray> ids;
    db->getImageIds(ids);
    for (long i = 0; i < ids->getCount(); ++i) {
        ref_ptr<IKvoImage> img;
        cv::Mat m;
        db->getTexture(img, ids->getAt(i), 2)->getMat(m);
        pictures[ids->getAt(i)] = m.clone();
    }

    KvoColorAdjustReport r;
    ASSERT_EQ(adjustImageColors(nullptr, KvoColorAdjustOptions(), &r), 0) << r.lines().join("\n").toStdString();
    measure("after", after);
    // Measured: 17.6 grey levels before, 3.5 after; truth PSNR over textured
    // faces 21.2 -> 22.1 dB; the re-rendering 27.4 -> 32.9 dB.
    EXPECT_LT(r.colour.stepAfter, 0.4 * r.colour.stepBefore);
    EXPECT_GT(after.truthPsnrTextured, before.truthPsnrTextured + 0.5);
    EXPECT_GE(after.photoPsnrMean, 31.5);

    // The gains against the scene's own (scene.json tells each photograph's
    // exposure and white balance): photograph gain times the correction is
    // the same for every photograph, to 3 %.
    QFile json(kSample + "/scene.json");
    ASSERT_TRUE(json.open(QIODevice::ReadOnly));
    const QJsonArray truth = QJsonDocument::fromJson(json.readAll()).object()["photos"].toArray();
    std::vector<std::array<double, 3>> product;
    for (const auto& s : r.colour.images) {
        ref_ptr<IKvoImageInfo> info;
        db->getImageInfo(info, s.id);
        for (const QJsonValue& v : truth) {
            const QJsonObject c = v.toObject();
            if (QFileInfo(c["file"].toString()).fileName() != info->getName())
                continue;
            const QJsonArray wb = c["whiteBalance"].toArray();
            const double e = c["exposure"].toDouble();
            product.push_back(
                {e * wb[0].toDouble() * s.gain[0], e * wb[1].toDouble() * s.gain[1], e * wb[2].toDouble() * s.gain[2]});
        }
    }
    ASSERT_EQ(product.size(), size_t(truth.size()));
    for (size_t i = 1; i < product.size(); ++i)
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(product[i][size_t(k)] / product[0][size_t(k)], 1.0, 0.03) << "photograph " << i;

    // Detail: gains scale the laplacian, the offsets and the strips are
    // smooth, so its correlation with the original stays high.
    for (const auto& kv : pictures) {
        ref_ptr<IKvoImage> img;
        cv::Mat now;
        db->getTexture(img, kv.first, 2)->getMat(now);
        EXPECT_GE(correlation(laplacian(kv.second), laplacian(now)), 0.98) << "image " << kv.first;
    }
}

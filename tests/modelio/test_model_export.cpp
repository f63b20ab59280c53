#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>

#include <opencv2/imgcodecs.hpp>

#include <random>

#include "modelio/KvoBmpWindow.h"
#include "modelio/KvoModelExport.h"
#include "modelio/KvoObjWriter.h"
#include "modelio/KvoTextureBake.h"
#include "modelio/QDlgOutputModel.h"
#include "scene/KvoUV.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

QString readText(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromLocal8Bit(f.readAll());
}

std::string fmt7(double v)
{
    char buf[40];
    return std::string(buf, formatG7(buf, v));
}

TEST(ObjNumbers, SevenDigitsAsQtWritesThem)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> mant(-10.0, 10.0);
    std::uniform_int_distribution<int> expo(-12, 12);
    for (int i = 0; i < 200000; ++i) {
        // Floats, since the exporter writes float coordinates through double.
        const double v = double(float(mant(rng) * std::pow(10.0, expo(rng))));
        ASSERT_EQ(fmt7(v), QString::number(v, 'g', 7).toStdString()) << v;
    }
    // Ties: Qt rounds them away from zero.
    for (double v : {-4571930.5, 4571930.5, 2.5e-5 + 0.0, 1234567.5, 0.12345675}) {
        EXPECT_EQ(fmt7(v), QString::number(v, 'g', 7).toStdString()) << v;
    }
    for (double v : {0.0, -0.0, 1.0, 1000000.0, 9999999.0, 12345678.0, 0.0001, 0.00001, 999999.95, 1e20, -1.5e-7,
                     0.1f + 0.0, 123456.7, 100.0}) {
        EXPECT_EQ(fmt7(v), QString::number(v, 'g', 7).toStdString()) << v;
    }
    char buf[40];
    for (double n : {1.0, 17.0, 99999999.0, 100000000.0, 123456789.0}) {
        EXPECT_EQ(std::string(buf, formatG8(buf, n)), QString::number(n, 'g', 8).toStdString()) << n;
    }
}

CKvoSmartMesh triangleMesh(bool uvs, bool normals)
{
    CKvoSmartMesh m;
    m.vertices->vec() = {XPnt3f(1, 2, 3), XPnt3f(4.5f, 5, 6), XPnt3f(1000000, -0.25f, 0)};
    if (normals)
        m.normals->vec() = {XPnt3f(0, 1, 0), XPnt3f(0, 0, 1), XPnt3f(1, 0, 0)};
    if (uvs)
        m.uvs->vec() = {XPnt2f(0, 0), XPnt2f(0.5f, 0.125f), XPnt2f(1, 1)};
    m.indices->vec() = {0, 1, 2};
    m.setSuffix("wall0", "out", "/x/out");
    return m;
}

QString writeToText(const std::vector<CKvoSmartMesh>& meshes, const KvoObjPlacement& place, const QString& path)
{
    KvoTextOut out;
    EXPECT_TRUE(out.open(path));
    KvoObjOffsets offsets;
    for (const CKvoSmartMesh& m : meshes)
        writeSmartMesh(out, m, place, offsets);
    EXPECT_TRUE(out.close());
    return readText(path);
}

TEST(ObjWriter, MeshTextInEveryCaseAndOffsetsAcrossMeshes)
{
    qvtest::ScratchDir dir;
    KvoObjPlacement plain;
    EXPECT_EQ(writeToText({triangleMesh(true, true)}, plain, dir.file("a.obj")),
              "g default\nv 1 2 3\nv 4.5 5 6\nv 1000000 -0.25 0\nvt 0 0\nvt 0.5 0.125\nvt 1 1\n"
              "vn 0 1 0\nvn 0 0 1\nvn 1 0 0\ng default\nusemtl out_wall0\nf 1/1/1 2/2/2 3/3/3\n");
    // Bare geometry: no UVs, no material.
    EXPECT_EQ(writeToText({triangleMesh(false, false)}, plain, dir.file("b.obj")),
              "g default\nv 1 2 3\nv 4.5 5 6\nv 1000000 -0.25 0\ng default\nf 1 2 3\n");
    EXPECT_EQ(writeToText({triangleMesh(false, true)}, plain, dir.file("c.obj")).section('\n', -2, -2),
              "f 1//1 2//2 3//3");
    EXPECT_EQ(writeToText({triangleMesh(true, false)}, plain, dir.file("d.obj")).section('\n', -2, -2),
              "f 1/1 2/2 3/3");
    // The second mesh's numbers continue after the first mesh's.
    QString two = writeToText({triangleMesh(true, true), triangleMesh(true, false), triangleMesh(true, true)}, plain,
                              dir.file("e.obj"));
    QStringList faces = two.split('\n').filter(QRegExp("^f "));
    EXPECT_EQ(faces, QStringList({"f 1/1/1 2/2/2 3/3/3", "f 4/4 5/5 6/6", "f 7/7/4 8/8/5 9/9/6"}));
    // Swap without a move: (x, y, z) goes as x, z, -y; normals the same way.
    KvoObjPlacement swap;
    swap.swapYZ = true;
    QString swapped = writeToText({triangleMesh(false, true)}, swap, dir.file("f.obj"));
    EXPECT_TRUE(swapped.startsWith("g default\nv 1 3 -2\nv 4.5 6 -5\nv 1000000 0 0.25\nvn 0 0 -1\nvn 0 1 0\n"))
        << swapped.toStdString();
    KvoObjPlacement moved;
    moved.cx = 1;
    moved.cy = 2;
    moved.cz = 3;
    EXPECT_TRUE(writeToText({triangleMesh(false, false)}, moved, dir.file("g.obj")).startsWith("g default\nv 0 0 0\n"));
    // Nothing is written for a mesh without vertices.
    KvoTextOut out;
    ASSERT_TRUE(out.open(dir.file("h.obj")));
    KvoObjOffsets offsets;
    CKvoSmartMesh empty;
    EXPECT_EQ(writeSmartMesh(out, empty, plain, offsets), -1);
    out.close();
    EXPECT_EQ(QFileInfo(dir.file("h.obj")).size(), 0);
    // A corner-indexed mesh takes its UV numbers from the pairs.
    CKvoSmartMesh corner = triangleMesh(true, true);
    corner.cornerIndexed = true;
    corner.uvs->vec().push_back(XPnt2f(0.75f, 0.75f));
    corner.indices->vec() = {0, 3, 1, 0, 2, 2};
    EXPECT_EQ(writeToText({corner}, plain, dir.file("i.obj")).section('\n', -2, -2), "f 1/4/1 2/1/2 3/3/3");
}

TEST(TextureBake, AffineMapsCornersExactlyAndRefusesDegenerateTriangles)
{
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> d(-500, 500);
    for (int i = 0; i < 1000; ++i) {
        XPnt2d from[3], to[3];
        for (int k = 0; k < 3; ++k) {
            from[k] = XPnt2d(d(rng), d(rng));
            to[k] = XPnt2d(d(rng), d(rng));
        }
        KvoAffine2d a;
        ASSERT_TRUE(getAffineTransformationMatrix(from, to, a));
        for (int k = 0; k < 3; ++k) {
            XPnt2d p = a.apply(from[k].x, from[k].y);
            EXPECT_NEAR(p.x, to[k].x, 1e-6);
            EXPECT_NEAR(p.y, to[k].y, 1e-6);
        }
    }
    XPnt2d line[3] = {XPnt2d(0, 0), XPnt2d(1, 1), XPnt2d(2, 2)};
    XPnt2d any[3] = {XPnt2d(0, 0), XPnt2d(1, 0), XPnt2d(0, 1)};
    KvoAffine2d a;
    EXPECT_FALSE(getAffineTransformationMatrix(line, any, a));
}

TEST(TextureBake, PixelsOfATriangleByCentreAndConservatively)
{
    // A right triangle covering the lower-left half of a 4 x 4 picture.
    XPnt2d t[3] = {XPnt2d(0, 0), XPnt2d(0, 4), XPnt2d(4, 4)};
    int centre = 0, conservative = 0;
    forEachPixelInTriangle(t, 4, 4, false, [&](long x, long y) {
        EXPECT_LE(x, y);
        ++centre;
    });
    forEachPixelInTriangle(t, 4, 4, true, [&](long, long) { ++conservative; });
    EXPECT_EQ(centre, 10);       // x <= y: 1 + 2 + 3 + 4
    EXPECT_EQ(conservative, 13); // plus the pixels the diagonal only grazes
    // A sliver thinner than a pixel has no centre but still touches pixels.
    XPnt2d sliver[3] = {XPnt2d(0.1, 0.1), XPnt2d(3.9, 0.2), XPnt2d(0.1, 0.15)};
    int thin = 0, thinCons = 0;
    forEachPixelInTriangle(sliver, 4, 4, false, [&](long, long) { ++thin; });
    forEachPixelInTriangle(sliver, 4, 4, true, [&](long, long y) {
        EXPECT_EQ(y, 0);
        ++thinCons;
    });
    EXPECT_EQ(thin, 0);
    EXPECT_EQ(thinCons, 4);
}

TEST(TextureBake, GrowthByHand)
{
    // 5 x 5, two coloured pixels in the middle row.
    auto run = [](int n) {
        std::vector<uint8_t> img(5 * 5 * 4, 7);
        std::vector<uint8_t> mask(25, uint8_t(n + 1));
        auto set = [&](int x, int y, uint8_t r, uint8_t g) {
            uint8_t* p = &img[size_t((y * 5 + x) * 4)];
            p[0] = r;
            p[1] = g;
            p[2] = 0;
            p[3] = 255;
            mask[size_t(y * 5 + x)] = 0;
        };
        set(1, 2, 90, 0);
        set(3, 2, 0, 60);
        growImage(img.data(), 5, 5, 20, mask.data(), n);
        return img;
    };
    auto px = [](const std::vector<uint8_t>& img, int x, int y) {
        const uint8_t* p = &img[size_t((y * 5 + x) * 4)];
        return std::vector<int>{p[0], p[1], p[2], p[3]};
    };
    std::vector<uint8_t> one = run(1);
    EXPECT_EQ(px(one, 2, 2), (std::vector<int>{45, 30, 0, 255})); // both neighbours
    EXPECT_EQ(px(one, 2, 1), (std::vector<int>{45, 30, 0, 255})); // both, diagonally
    EXPECT_EQ(px(one, 0, 1), (std::vector<int>{90, 0, 0, 255}));
    EXPECT_EQ(px(one, 4, 3), (std::vector<int>{0, 60, 0, 255}));
    EXPECT_EQ(px(one, 4, 4), (std::vector<int>{7, 7, 7, 7})); // beyond the band
    EXPECT_EQ(px(one, 0, 0), (std::vector<int>{7, 7, 7, 7}));
    std::vector<uint8_t> two = run(2);
    // (4, 4) sees (3, 3) and (4, 3) of the first layer, both (0, 60, 0).
    EXPECT_EQ(px(two, 4, 4), (std::vector<int>{0, 60, 0, 255}));
    // (2, 4) sees (1, 3), (2, 3), (3, 3): (90,0), (45,30), (0,60) -> (45, 30).
    EXPECT_EQ(px(two, 2, 4), (std::vector<int>{45, 30, 0, 255}));
}

// A BMP of any of the layouts the tiler reads, written byte by byte.
QByteArray makeBmp(int w, int h, int bits, bool topDown, const std::vector<uint8_t>& rgba)
{
    const int rowBytes = (w * bits + 31) / 32 * 4;
    QByteArray b(54 + rowBytes * h, '\0');
    auto put32 = [&](int at, uint32_t v) {
        for (int i = 0; i < 4; ++i)
            b[at + i] = char((v >> (8 * i)) & 0xFF);
    };
    b[0] = 'B';
    b[1] = 'M';
    put32(2, uint32_t(b.size()));
    put32(10, 54);
    put32(14, 40);
    put32(18, uint32_t(w));
    put32(22, uint32_t(topDown ? -h : h));
    b[26] = 1;
    b[28] = char(bits);
    put32(34, uint32_t(rowBytes * h));
    for (int y = 0; y < h; ++y) {
        const int fileRow = topDown ? y : h - 1 - y;
        char* row = b.data() + 54 + fileRow * rowBytes;
        for (int x = 0; x < w; ++x) {
            const uint8_t* p = &rgba[size_t((y * w + x) * 4)];
            if (bits == 24) {
                row[3 * x] = char(p[2]);
                row[3 * x + 1] = char(p[1]);
                row[3 * x + 2] = char(p[0]);
            } else if (bits == 32) {
                row[4 * x] = char(p[2]);
                row[4 * x + 1] = char(p[1]);
                row[4 * x + 2] = char(p[0]);
                row[4 * x + 3] = 0;
            } else {
                uint16_t v = uint16_t((p[0] >> 3) << 10 | (p[1] >> 3) << 5 | (p[2] >> 3));
                row[2 * x] = char(v & 0xFF);
                row[2 * x + 1] = char(v >> 8);
            }
        }
    }
    return b;
}

TEST(BmpWindow, WindowsEqualTheFullDecode)
{
    qvtest::ScratchDir dir;
    std::mt19937 rng(11);
    const int w = 37, h = 23;
    std::vector<uint8_t> rgba(size_t(w * h * 4));
    for (auto& c : rgba)
        c = uint8_t(rng());
    for (int bits : {16, 24, 32}) {
        for (bool topDown : {false, true}) {
            const QString path = dir.file(QString("p%1_%2.bmp").arg(bits).arg(topDown));
            QFile f(path);
            ASSERT_TRUE(f.open(QIODevice::WriteOnly));
            f.write(makeBmp(w, h, bits, topDown, rgba));
            f.close();
            // Qt's own decoder is the reference.
            QImage full(path);
            ASSERT_FALSE(full.isNull()) << bits << topDown;
            full = full.convertToFormat(QImage::Format_RGBA8888);
            KvoBmpWindowReader r;
            ASSERT_TRUE(r.open(path)) << r.error().toStdString();
            EXPECT_EQ(r.width(), w);
            EXPECT_EQ(r.height(), h);
            for (auto win : {std::array<long, 4>{0, 0, w, h}, std::array<long, 4>{5, 3, 10, 7},
                             std::array<long, 4>{30, 20, 50, 50}}) {
                std::vector<uint8_t> got;
                long gw = 0, gh = 0;
                ASSERT_TRUE(r.read(win[0], win[1], win[2], win[3], got, gw, gh));
                EXPECT_EQ(gw, std::min<long>(win[2], w - win[0]));
                EXPECT_EQ(gh, std::min<long>(win[3], h - win[1]));
                int bad = 0;
                for (long y = 0; y < gh; ++y)
                    for (long x = 0; x < gw; ++x) {
                        const uint8_t* g = &got[size_t((y * gw + x) * 4)];
                        const uchar* e = full.constScanLine(int(win[1] + y)) + (win[0] + x) * 4;
                        for (int k = 0; k < 3; ++k)
                            bad += std::abs(int(g[k]) - int(e[k])) > (bits == 16 ? 8 : 0);
                    }
                EXPECT_EQ(bad, 0) << bits << " bits, top-down " << topDown;
            }
        }
    }
    // A compressed or foreign file is refused with a reason.
    QFile f(dir.file("x.bmp"));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("BM this is not a bitmap at all, not at all, not at all, no");
    f.close();
    KvoBmpWindowReader r;
    EXPECT_FALSE(r.open(dir.file("x.bmp")));
    EXPECT_FALSE(r.error().isEmpty());
}

TEST(ModelExport, TileGridThresholds)
{
    long a = 0, d = 0;
    KvoModelExporter::tileGrid(799, 999, a, d);
    EXPECT_EQ(a * 10 + d, 11);
    KvoModelExporter::tileGrid(1000, 900, a, d);
    EXPECT_EQ(a * 10 + d, 22);
    KvoModelExporter::tileGrid(800, 1000, a, d);
    EXPECT_EQ(a * 10 + d, 22);
    KvoModelExporter::tileGrid(500, 3000, a, d);
    EXPECT_EQ(a * 10 + d, 24); // one point across becomes two
    KvoModelExporter::tileGrid(4000, 1000, a, d);
    EXPECT_EQ(a * 10 + d, 52);
}

// Five vertices, three triangles; meshes A and B hold triangle 0 both.
class ExportTest : public qvtest::ViewerTest {
protected:
    void build(const KvoColor4b& colourA, const KvoColor4b& colourB)
    {
        newProject();
        model = newKvoModel();
        ref_ptr<Pnt3fArray> v = newPnt3fArray();
        v->vec() = {XPnt3f(0, 0, 0), XPnt3f(1, 0, 0), XPnt3f(1, 1, 0), XPnt3f(0, 1, 0), XPnt3f(2, 0, 0.5f)};
        model->setVertices(v.get(), true);
        ref_ptr<Pnt3fArray> n = newPnt3fArray();
        n->vec().assign(5, XPnt3f(0, 0, 1));
        model->setVertexNormals(n.get(), true, false);
        ref_ptr<IKvoMesh> bare = model->newMesh(-1, false);
        ref_ptr<UIntArray> all = newUIntArray();
        all->vec() = {0, 1, 2, 0, 2, 3, 1, 4, 2};
        bare->setTriangleIndices(all.get(), true);
        model->addMesh(bare);
        getMM()->setBareModel(model);
        ref_ptr<IKvoProject> project;
        getMM()->getProject(project)->getImageDb(db);
        idA = addSolid("a.png", colourA);
        idB = addSolid("b.png", colourB);
        meshA = texMesh(idA, {0, 1, 2, 1, 4, 2}, "A");
        meshB = texMesh(idB, {0, 1, 2, 0, 2, 3}, "B");
    }
    long addSolid(const QString& name, const KvoColor4b& c)
    {
        ref_ptr<IKvoImage> img = newKvoImage();
        img->create(64, 32, KvoColor4b(c.r, c.g, c.b, 255));
        EXPECT_TRUE(img->saveFile(scratch.file(name)));
        long id = -1;
        EXPECT_EQ(db->addImage(scratch.file(name), id), kvoOk);
        return id;
    }
    ref_ptr<IKvoMesh> texMesh(long imageId, std::vector<unsigned> tris, const QString& name)
    {
        ref_ptr<IKvoMesh> mesh;
        getMM()->createTexMesh(mesh, false, imageId, false);
        ref_ptr<UIntArray> t = newUIntArray();
        t->vec() = tris;
        mesh->setTriangleIndices(t.get(), true);
        ref_ptr<Pnt2fArray> uv = newPnt2fArray();
        // The model's x, y spread over the picture: u = x / 2, v = y.
        for (const XPnt3f& p : model->getVertices()->vec())
            uv->append(XPnt2f(p.x / 2, p.y));
        mesh->setUVs(uv.get());
        mesh->setName(name);
        return mesh;
    }
    ref_ptr<ExportInfoArray> rows()
    {
        ref_ptr<ExportInfoArray> r = newExportInfoArray();
        for (const auto& m : {meshA, meshB}) {
            _ExportInfo info;
            info.mesh = m;
            info.name = m->getName();
            r->append(info);
        }
        return r;
    }
    // Alpha of the project copy of an image, everywhere.
    void setAlpha(long id, uint8_t a)
    {
        ref_ptr<IKvoImage> img;
        db->getTexture(img, id, 2);
        uint8_t* p = img->getMutableData();
        for (long i = 0; i < img->getWidth() * img->getHeight(); ++i)
            p[4 * i + 3] = a;
        ASSERT_EQ(db->setTexture(img, id, 2), kvoOk);
    }
    KvoColor4b texel(const QString& file, double u, double v)
    {
        ref_ptr<IKvoImage> img = newKvoImage();
        EXPECT_TRUE(img->loadFile(file)) << file.toStdString();
        KvoColor4b c;
        XPnt2d p = uvToPixel(u, v, double(img->getWidth()), double(img->getHeight()));
        img->getPixel(c, long(p.x), long(p.y));
        return c;
    }
    QString exportDir()
    {
        QDir(scratch.path()).mkpath("exp");
        return scratch.file("exp");
    }
    ref_ptr<IKvoModel> model;
    ref_ptr<IKvoImageDb> db;
    long idA = -1, idB = -1;
    ref_ptr<IKvoMesh> meshA, meshB;
};

TEST_F(ExportTest, OverlapGoesToTheLaterRowAndTheFileIsWrittenLastRowFirst)
{
    build(KvoColor4b(200, 0, 0), KvoColor4b(0, 0, 200));
    KvoModelExporter ex(exportDir());
    ASSERT_EQ(ex.exportRespective(*rows(), KvoExportFlags(), nullptr), 0);
    EXPECT_EQ(readText(ex.report().objFile), "# Generate by Quovara Software.\nmtllib exp.mtl\n#Use Respective Image\n"
                                             "g default\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n"
                                             "vt 0 0\nvt 0.5 0\nvt 0.5 1\nvt 0 1\n"
                                             "vn 0 0 1\nvn 0 0 1\nvn 0 0 1\nvn 0 0 1\n"
                                             "g default\nusemtl exp_B0\nf 1/1/1 2/2/2 3/3/3\nf 1/1/1 3/3/3 4/4/4\n"
                                             "g default\nv 1 0 0\nv 2 0 0.5\nv 1 1 0\n"
                                             "vt 0.5 0\nvt 1 0\nvt 0.5 1\n"
                                             "vn 0 0 1\nvn 0 0 1\nvn 0 0 1\n"
                                             "g default\nusemtl exp_A0\nf 5/5/5 6/6/6 7/7/7\n");
    const QString mat = "       Ka 0.2 0.2 0.2\n       Kd 1 1 1\n       Ks 0 0 0\n";
    EXPECT_EQ(readText(ex.report().mtlFile), "newmtl exp_A0\n" + mat + "       map_Kd exp_Texture/exp_A0.jpg\n\n" +
                                                 "newmtl exp_B0\n" + mat + "       map_Kd exp_Texture/exp_B0.jpg\n\n");
    EXPECT_TRUE(QFileInfo(scratch.file("exp/exp_Texture/exp_A0.jpg")).isFile());
    EXPECT_TRUE(QFileInfo(scratch.file("exp/exp_Texture/exp_B0.jpg")).isFile());
    EXPECT_TRUE(QFileInfo(scratch.file("exp/exp_TempTex")).isDir());
    // Without alpha the later row's own colour stands (a = 255).
    KvoColor4b c = texel(scratch.file("exp/exp_Texture/exp_B0.jpg"), 0.4, 0.2);
    EXPECT_NEAR(c.b, 200, 4);
    EXPECT_NEAR(c.r, 0, 4);
}

TEST_F(ExportTest, AlphaDecidesTheOwnerAndMixesThePixels)
{
    build(KvoColor4b(200, 0, 0), KvoColor4b(0, 0, 200));
    // Only the later row has alpha: it wins, and its pixels mix with a = 128.
    setAlpha(idB, 128);
    {
        KvoModelExporter ex(exportDir());
        ASSERT_EQ(ex.exportRespective(*rows(), KvoExportFlags(), nullptr), 0);
        KvoColor4b c = texel(scratch.file("exp/exp_Texture/exp_B0.jpg"), 0.4, 0.2); // inside triangle 0
        EXPECT_NEAR(c.r, 200 * 127 / 255, 4);
        EXPECT_NEAR(c.b, 200 * 128 / 255, 4);
        KvoColor4b d = texel(scratch.file("exp/exp_Texture/exp_B0.jpg"), 0.1, 0.8); // triangle 1, not shared
        EXPECT_NEAR(d.b, 200, 4);
        EXPECT_NEAR(d.r, 0, 4);
    }
    // Both with alpha: the earlier row's greater alpha keeps the triangle.
    setAlpha(idA, 255);
    setAlpha(idB, 100);
    {
        KvoModelExporter ex(exportDir());
        ASSERT_EQ(ex.exportRespective(*rows(), KvoExportFlags(), nullptr), 0);
        QStringList lines = readText(ex.report().objFile).split('\n');
        // B (written first) keeps one triangle, A two.
        EXPECT_EQ(lines.filter(QRegExp("^f ")).size(), 3);
        const int aAt = lines.indexOf("usemtl exp_A0"), bAt = lines.indexOf("usemtl exp_B0");
        ASSERT_GT(aAt, bAt);
        EXPECT_EQ(aAt - bAt, 2 + 1 + 3 + 3 + 3 + 1 + 1); // B's face, then A's g, v, vt, vn, g lines
    }
    // Equal greatest alpha: the later row wins.
    setAlpha(idA, 100);
    {
        KvoModelExporter ex(exportDir());
        ASSERT_EQ(ex.exportRespective(*rows(), KvoExportFlags(), nullptr), 0);
        QStringList faces = readText(ex.report().objFile).split('\n').filter(QRegExp("^f "));
        ASSERT_EQ(faces.size(), 3);
        EXPECT_EQ(faces[0], "f 1/1/1 2/2/2 3/3/3");
        EXPECT_EQ(faces[2], "f 5/5/5 6/6/6 7/7/7");
    }
}

TEST_F(ExportTest, GutterKeepsTheTrianglesAndGrowsAroundThem)
{
    build(KvoColor4b(200, 0, 0), KvoColor4b(0, 0, 200));
    setAlpha(idA, 254); // an alpha picture, so the gutter pass runs on A
    KvoExportFlags flags;
    flags.powerOf2 = true;
    KvoModelExporter ex(exportDir());
    ASSERT_EQ(ex.exportRespective(*rows(), flags, nullptr), 0);
    ref_ptr<IKvoImage> a = newKvoImage();
    ASSERT_TRUE(a->loadFile(scratch.file("exp/exp_Texture/exp_A0.jpg")));
    EXPECT_EQ(a->getWidth(), 64); // already powers of two
    EXPECT_EQ(a->getHeight(), 32);
    // A keeps only triangle 2 (u 0.5..1): inside it stays red; far left is
    // beyond the 20-pixel band and stays cleared (black).
    KvoColor4b in = texel(scratch.file("exp/exp_Texture/exp_A0.jpg"), 0.7, 0.3);
    EXPECT_NEAR(in.r, 200, 4);
    KvoColor4b far = texel(scratch.file("exp/exp_Texture/exp_A0.jpg"), 0.02, 0.5);
    EXPECT_LT(far.r, 10);
}

TEST_F(ExportTest, DialogChecksItsFieldsBeforeExporting)
{
    build(KvoColor4b(200, 0, 0), KvoColor4b(0, 0, 200));
    QDlgOutputModel dlg;
    ASSERT_TRUE(dlg.initRows());
    ASSERT_EQ(dlg.rowCount(), 3);
    // The bare mesh first, unchecked and without a resample box.
    EXPECT_FALSE(dlg.isRowExported(0));
    EXPECT_EQ(dlg.rowResample(0), -1);
    EXPECT_TRUE(dlg.isRowExported(1));
    EXPECT_EQ(dlg.rowResample(1), 1);
    EXPECT_EQ(dlg.rowName(2), "B");
    EXPECT_TRUE(dlg.rowPath(1).endsWith("a.png"));

    auto said = [&] { return std::make_pair(presenter->lastTitle(), presenter->lastText()); };
    dlg.singleMeshBox()->setChecked(true);
    dlg.clipBox()->setChecked(true);
    dlg.clickedExport();
    EXPECT_EQ(said(), std::make_pair(QString("Tips"),
                                     QString("Export Union and Split Super Image are Selected at the same time!")));
    dlg.clipBox()->setChecked(false);
    dlg.clickedExport();
    EXPECT_EQ(said().second, "The Export Path is empty!");
    dlg.setExportPath(scratch.file("nowhere"));
    dlg.clickedExport();
    EXPECT_EQ(said().second, "The Export Path isn't exist!");
    dlg.setExportPath(exportDir());
    dlg.clickedExport();
    EXPECT_EQ(said().second, "The UV Path is empty!");
    dlg.setUvPath(scratch.file("none.obj"));
    dlg.clickedExport();
    EXPECT_EQ(said().second, "The UV Path isn't exist!");
    dlg.singleMeshBox()->setChecked(false);
    // A source row needs an existing file: the cell is marked, and nothing said.
    const int before = presenter->records.size();
    dlg.setRowResample(1, false);
    dlg.setRowPath(1, scratch.file("gone.png"));
    dlg.clickedExport();
    EXPECT_TRUE(dlg.isRowPathMarked(1));
    EXPECT_EQ(presenter->records.size(), before);
    EXPECT_FALSE(QFileInfo::exists(scratch.file("exp/exp.obj")));
    dlg.setRowResample(1, true);
    dlg.clickedExport();
    EXPECT_FALSE(dlg.isRowPathMarked(1));
    EXPECT_EQ(dlg.lastResult(), 0);
    EXPECT_TRUE(QFileInfo::exists(scratch.file("exp/exp.obj")));
    EXPECT_EQ(dlg.lastReport().faces, 3);
}

TEST_F(ExportTest, NoMeshSaysSo)
{
    newProject();
    QDlgOutputModel dlg;
    EXPECT_FALSE(dlg.initRows());
    EXPECT_EQ(presenter->lastText(), "Mesh is Null!");
}

} // namespace

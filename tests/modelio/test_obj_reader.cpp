#include <QDir>

#include <clocale>
#include <cmath>

#include "modelio/KvoObjModelBuild.h"
#include "modelio/ObjTestFiles.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

class ObjReader : public ::testing::Test {
protected:
    QvObjModel read(const QByteArray& text, const QString& name = "m.obj")
    {
        QvObjModel m;
        EXPECT_EQ(qvtest::readObjText(m, dir.file(name), text), 0);
        return m;
    }
    qvtest::ScratchDir dir;
};

std::vector<unsigned> vtx(const QvObjModel& m)
{
    std::vector<unsigned> out;
    for (auto& t : m.triangles)
        out.insert(out.end(), {t.vindices[0], t.vindices[1], t.vindices[2]});
    return out;
}

const unsigned N = kObjNoIndex;

} // namespace

TEST_F(ObjReader, AFaceOfFourCornersIsAFanFromItsFirstCorner)
{
    QvObjModel m = read("v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 2 0\nf 1 2 3 4\nf 1 2 3 4 5\n");
    EXPECT_EQ(vtx(m), (std::vector<unsigned>{0, 1, 2, 0, 2, 3, 0, 1, 2, 0, 2, 3, 0, 3, 4}));
    for (auto& t : m.triangles) {
        EXPECT_EQ(t.findex, 0u);
        EXPECT_EQ(t.tindices[0], N);
        EXPECT_EQ(t.nindices[2], N);
    }
    ASSERT_EQ(m.groups.size(), 1u);
    EXPECT_EQ(m.groups[0].triangles, (std::vector<unsigned>{0, 1, 2, 3, 4}));
}

TEST_F(ObjReader, TheFirstCornerDecidesTheFormOfTheWholeFace)
{
    QvObjModel m = read("v 0 0 0\nv 1 0 0\nv 1 1 0\nvt 0 0\nvt 1 0\nvt 1 1\nvn 0 0 1\nvn 0 1 0\n"
                        "f 1/1/1 2/2/2 3/3/2\n"
                        "f 1//2 2//1 3//2\n"
                        "f 3/3 2/2 1/1\n"
                        "f 2 3 1\n"
                        // The form is vertex/texture: plain corners that follow lose their texture index.
                        "f 1/2 2 3\n");
    ASSERT_EQ(m.triangles.size(), 5u);
    const QvObjTriangle* t = m.triangles.data();
    EXPECT_EQ((std::vector<unsigned>(t[0].vindices, t[0].vindices + 3)), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ((std::vector<unsigned>(t[0].tindices, t[0].tindices + 3)), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ((std::vector<unsigned>(t[0].nindices, t[0].nindices + 3)), (std::vector<unsigned>{0, 1, 1}));
    EXPECT_EQ((std::vector<unsigned>(t[1].tindices, t[1].tindices + 3)), (std::vector<unsigned>{N, N, N}));
    EXPECT_EQ((std::vector<unsigned>(t[1].nindices, t[1].nindices + 3)), (std::vector<unsigned>{1, 0, 1}));
    EXPECT_EQ((std::vector<unsigned>(t[2].vindices, t[2].vindices + 3)), (std::vector<unsigned>{2, 1, 0}));
    EXPECT_EQ((std::vector<unsigned>(t[2].tindices, t[2].tindices + 3)), (std::vector<unsigned>{2, 1, 0}));
    EXPECT_EQ((std::vector<unsigned>(t[2].nindices, t[2].nindices + 3)), (std::vector<unsigned>{N, N, N}));
    EXPECT_EQ((std::vector<unsigned>(t[3].vindices, t[3].vindices + 3)), (std::vector<unsigned>{1, 2, 0}));
    EXPECT_EQ((std::vector<unsigned>(t[3].tindices, t[3].tindices + 3)), (std::vector<unsigned>{N, N, N}));
    EXPECT_EQ((std::vector<unsigned>(t[4].vindices, t[4].vindices + 3)), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ((std::vector<unsigned>(t[4].tindices, t[4].tindices + 3)), (std::vector<unsigned>{1, N, N}));
}

TEST_F(ObjReader, GroupsFollowMaterialsNotGroupLines)
{
    QvObjModel m = read("v 0 0 0\nv 1 0 0\nv 1 1 0\n"
                        "g first\nusemtl a\nf 1 2 3\n"
                        "g second\nusemtl b\nf 1 2 3\nf 1 2 3\n"
                        "usemtl a\nf 3 2 1\n"
                        "usemtl unused\n");
    ASSERT_EQ(m.groups.size(), 2u) << "the group of a material without faces is dropped";
    EXPECT_EQ(m.groups[0].name, "object0");
    EXPECT_EQ(m.groups[0].triangles, (std::vector<unsigned>{0, 3}));
    EXPECT_EQ(m.groups[1].name, "object1");
    EXPECT_EQ(m.groups[1].triangles, (std::vector<unsigned>{1, 2}));
    ASSERT_EQ(m.materials.size(), 3u);
    EXPECT_EQ(m.materials[size_t(m.groups[0].material)].name, "a");
    EXPECT_EQ(m.materials[size_t(m.groups[1].material)].name, "b");
    EXPECT_EQ(m.materials[2].name, "unused");
}

TEST_F(ObjReader, AFaceBeforeAnyUsemtlFallsIntoObject0WithTheDefaultMaterial)
{
    ASSERT_TRUE(qvtest::writeText(dir.file("d.mtl"), "newmtl red\nKd 1 0 0\n"));
    QvObjModel m = read("mtllib d.mtl\nv 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 3\nusemtl red\nf 1 2 3\n");
    ASSERT_EQ(m.groups.size(), 2u);
    EXPECT_EQ(m.groups[0].name, "object0");
    EXPECT_EQ(m.groups[0].material, 0);
    EXPECT_EQ(m.materials[0].name, "default");
    EXPECT_EQ(m.groups[1].name, "object1");
    EXPECT_EQ(m.materials[size_t(m.groups[1].material)].name, "red");
    EXPECT_EQ(m.mtlName, "d.mtl");
    EXPECT_FALSE(m.mtlMissing);
}

TEST_F(ObjReader, MaterialsReadTheirColoursShininessAndPicture)
{
    ASSERT_TRUE(qvtest::writeText(dir.file("m.mtl"), "# colours\n"
                                                     "newmtl shiny\n"
                                                     "Ka 0.1 0.2 0.3\nKd 0.4 0.5 0.6\nKs 0.7 0.8 0.9\n"
                                                     "Ke 5 5 5\n"
                                                     "Ns 1000\n"
                                                     "map_Kd tex.png\n"
                                                     "map_Bump bump.png\n"
                                                     "illum 2\n"
                                                     "newmtl two words\n"
                                                     "Ns 500\n"));
    QvObjModel m = read("mtllib m.mtl\nv 0 0 0\n");
    ASSERT_EQ(m.materials.size(), 3u);
    const QvObjMaterial& d = m.materials[0];
    EXPECT_EQ(d.name, "default");
    EXPECT_FLOAT_EQ(d.ambient[0], 0.2f);
    EXPECT_FLOAT_EQ(d.diffuse[3], 1.f);
    EXPECT_FLOAT_EQ(d.shininess, 65.f);
    const QvObjMaterial& s = m.materials[1];
    EXPECT_EQ(s.name, "shiny");
    EXPECT_FLOAT_EQ(s.ambient[2], 0.3f);
    EXPECT_FLOAT_EQ(s.diffuse[1], 0.5f);
    EXPECT_FLOAT_EQ(s.specular[0], 0.7f);
    EXPECT_FLOAT_EQ(s.specular[3], 1.f);
    EXPECT_FLOAT_EQ(s.emissive[0], 0.f) << "Ke is not read";
    EXPECT_FLOAT_EQ(s.shininess, 128.f);
    EXPECT_EQ(s.mapKd, "tex.png");
    EXPECT_EQ(m.materials[2].name, "words") << "of two words the second wins";
    EXPECT_FLOAT_EQ(m.materials[2].shininess, 64.f);
}

TEST_F(ObjReader, AMissingMaterialFileLeavesTheModelWithoutMaterials)
{
    QvObjModel m = read("mtllib nowhere.mtl\nv 0 0 0\nv 1 0 0\nv 1 1 0\nusemtl a\nf 1 2 3\n");
    EXPECT_TRUE(m.mtlMissing);
    ASSERT_EQ(m.materials.size(), 1u);
    EXPECT_EQ(m.materials[0].name, "a");
    EXPECT_EQ(m.triangles.size(), 1u);
}

TEST_F(ObjReader, NumbersAreReadTheSameWhateverTheLocale)
{
    const QByteArray text = "v 1 2. 3.0\nv +1e2 -2.e1 3.1+e2\nv 1E2 .5 -0\nvt 0.25 0.75\nvn 0 0 -1\n";
    // A decimal comma under the user's locale must not change a thing.
    const char* old = std::setlocale(LC_NUMERIC, nullptr);
    const std::string saved = old ? old : "C";
    std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
    QvObjModel m = read(text);
    std::setlocale(LC_NUMERIC, saved.c_str());
    ASSERT_EQ(m.vertices->getCount(), 3);
    EXPECT_EQ(m.vertices->getAt(0), XPnt3f(1, 2, 3));
    EXPECT_EQ(m.vertices->getAt(1), XPnt3f(100, -20, 3.1f));
    EXPECT_EQ(m.vertices->getAt(2), XPnt3f(100, 0.5f, 0));
    EXPECT_EQ(m.texCoords->getAt(0), XPnt2f(0.25f, 0.75f));
    EXPECT_EQ(m.normals->getAt(0), XPnt3f(0, 0, -1));
}

TEST_F(ObjReader, StrayWordsAndUnknownLinesArePassedOver)
{
    QvObjModel m = read("# comment v 9 9 9\n"
                        "o thing\ns off\nvp 1 2\nl 1 2\np 1\n"
                        "v 0 0 0 1 0 0\r\nv 1 0 0\r\nv 1 1 0\r\n"
                        "\xC3\xA9t\xC3\xA9 v 5 5 5\n"
                        "w 1 2 3\n"
                        "f 1 2 3");
    EXPECT_EQ(m.vertices->getCount(), 3) << "a line starting outside the plain characters is skipped";
    EXPECT_EQ(m.triangles.size(), 1u) << "the last line needs no line end";
}

TEST_F(ObjReader, NumbersRunOnAcrossLineEnds)
{
    // "%f %f %f" skips line ends: a short vertex line takes the next line's numbers.
    QvObjModel m = read("v 1 2\n3\nv 4 5 6\n");
    ASSERT_EQ(m.vertices->getCount(), 2);
    EXPECT_EQ(m.vertices->getAt(0), XPnt3f(1, 2, 3));
    EXPECT_EQ(m.vertices->getAt(1), XPnt3f(4, 5, 6));
}

TEST_F(ObjReader, FilesThatCannotBeReadGiveACodeAndAnEmptyModel)
{
    QvObjModel m;
    EXPECT_EQ(readObjFile(m, dir.file("absent.obj"), nullptr), kvoObjCannotOpen);
    EXPECT_EQ(readObjFile(m, dir.path(), nullptr), kvoObjCannotOpen) << "a folder is not a file";
    QByteArray binary("v 1 2 3\n");
    binary.append('\0');
    binary.append("\x01\x02garbage", 9);
    EXPECT_EQ(qvtest::readObjText(m, dir.file("bin.obj"), binary), kvoObjNotText);
    EXPECT_EQ(m.vertices->getCount(), 0);
    EXPECT_EQ(qvtest::readObjText(m, dir.file("empty.obj"), ""), 0);
    EXPECT_EQ(m.vertices->getCount(), 0);
    EXPECT_TRUE(m.triangles.empty());
}

TEST_F(ObjReader, FaceIndicesOutOfRangeOrRelativeAreKeptAsNamingNothingAndRefusedByTheBuild)
{
    QvObjModel m = read("v 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 9\nf -1 -2 -3\nf 1 2\n");
    ASSERT_EQ(m.triangles.size(), 3u);
    EXPECT_EQ(m.triangles[0].vindices[2], 8u);
    EXPECT_EQ(m.triangles[1].vindices[0], N) << "negative relative indices are not supported";
    EXPECT_EQ(m.triangles[2].vindices[2], N) << "a missing corner stays -1";

    ref_ptr<IKvoModel> model = newKvoModel();
    unsigned images = 0;
    long bad = 0;
    QvObjModel again;
    EXPECT_EQ(buildModelFromObj(dir.file("m.obj"), model, again, images, nullptr, &bad), kvoObjBadIndex);
    EXPECT_EQ(bad, 3);
    EXPECT_EQ(model->getMeshCount(), 0);
}

TEST_F(ObjReader, TheBuiltModelHoldsEveryTriangleWithNormalsFromAnOracle)
{
    // A bumpy grid: vertex normals must be the plain average of the face normals around each vertex.
    QByteArray text;
    const int n = 6;
    for (int y = 0; y <= n; ++y)
        for (int x = 0; x <= n; ++x)
            text += QByteArray("v ") + QByteArray::number(x) + " " + QByteArray::number(y) + " " +
                    QByteArray::number(((x * 7 + y * 3) % 5) * 0.1) + "\n";
    text += "v 50 50 50\n"; // used by no face
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
            const int a = y * (n + 1) + x + 1;
            text += QByteArray("f ") + QByteArray::number(a) + " " + QByteArray::number(a + 1) + " " +
                    QByteArray::number(a + n + 2) + " " + QByteArray::number(a + n + 1) + "\n";
        }
    ASSERT_TRUE(qvtest::writeText(dir.file("grid.obj"), text));
    ref_ptr<IKvoModel> model = newKvoModel();
    QvObjModel obj;
    unsigned images = 7;
    ASSERT_EQ(buildModelFromObj(dir.file("grid.obj"), model, obj, images, nullptr), 0);
    EXPECT_EQ(images, 0u);
    ASSERT_EQ(model->getMeshCount(), 1);
    ref_ptr<IKvoMesh> mesh = model->getMesh(0);
    EXPECT_EQ(mesh->getName(), "object");
    ASSERT_EQ(mesh->getFaceCount(), 2 * n * n);
    EXPECT_EQ(model->getTexCoords(), nullptr);
    const XPnt3f* v = model->getVertices()->getData();
    const unsigned* t = mesh->getTriangleIndices()->getData();
    std::vector<XPnt3f> sum(size_t(model->getVertexCount()));
    std::vector<int> count(sum.size(), 0);
    for (long f = 0; f < mesh->getFaceCount(); ++f) {
        const XPnt3f a = v[t[3 * f]], b = v[t[3 * f + 1]], c = v[t[3 * f + 2]];
        XPnt3f fn((b.y - a.y) * (c.z - a.z) - (b.z - a.z) * (c.y - a.y),
                  (b.z - a.z) * (c.x - a.x) - (b.x - a.x) * (c.z - a.z),
                  (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x));
        const float len = std::sqrt(fn.x * fn.x + fn.y * fn.y + fn.z * fn.z);
        fn = XPnt3f(fn.x / len, fn.y / len, fn.z / len);
        XPnt3f got;
        ASSERT_TRUE(mesh->getFaceNormal(got, f));
        EXPECT_NEAR(got.x, fn.x, 1e-5);
        EXPECT_NEAR(got.z, fn.z, 1e-5);
        for (int k = 0; k < 3; ++k) {
            sum[t[3 * f + k]] = sum[t[3 * f + k]] + fn;
            ++count[t[3 * f + k]];
        }
    }
    const Pnt3fArray* vn = model->getVertexNormals();
    ASSERT_TRUE(vn);
    ASSERT_EQ(vn->getCount(), model->getVertexCount());
    for (size_t i = 0; i < sum.size(); ++i) {
        const XPnt3f want =
            count[i] ? XPnt3f(sum[i].x / count[i], sum[i].y / count[i], sum[i].z / count[i]) : XPnt3f(0, 0, 1);
        EXPECT_NEAR(vn->getAt(long(i)).x, want.x, 1e-5) << i;
        EXPECT_NEAR(vn->getAt(long(i)).y, want.y, 1e-5) << i;
        EXPECT_NEAR(vn->getAt(long(i)).z, want.z, 1e-5) << i;
    }
    EXPECT_TRUE(obj.triangles.empty()) << "the reader's triangles are let go once the mesh holds them";
}

TEST_F(ObjReader, VertexNormalsOfTheFileAreKeptWhenThereIsOnePerVertex)
{
    ASSERT_TRUE(qvtest::writeText(dir.file("n.obj"), "v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 1 0 0\nvn 0 1 0\nvn 0.6 0.8 0\n"
                                                     "vt 0 0\nvt 1 0\nvt 0 1\nf 1/1/1 2/2/2 3/3/3\n"));
    ref_ptr<IKvoModel> model = newKvoModel();
    QvObjModel obj;
    unsigned images = 0;
    ASSERT_EQ(buildModelFromObj(dir.file("n.obj"), model, obj, images, nullptr), 0);
    ASSERT_TRUE(model->getVertexNormals());
    EXPECT_EQ(model->getVertexNormals()->getAt(2), XPnt3f(0.6f, 0.8f, 0.f));
    ASSERT_TRUE(model->getTexCoords());
    EXPECT_EQ(model->getTexCoords()->getAt(1), XPnt2f(1, 0));
}

TEST_F(ObjReader, NamesOfOtherFilesResolveBesideTheObjFile)
{
    EXPECT_EQ(resolveObjName("/data/m/", "a.mtl"), "/data/m/a.mtl");
    EXPECT_EQ(resolveObjName("/data/m/", ".\\tex\\a.jpg"), "/data/m/./tex/a.jpg");
    EXPECT_EQ(resolveObjName("/data/m/", "/abs/a.mtl"), "/abs/a.mtl");
    EXPECT_EQ(resolveObjName("/data/m/", "C:\\m\\a.mtl"), "C:/m/a.mtl");
}

TEST_F(ObjReader, TheBufferReaderNeverReadsPastItsEnd)
{
    // Cut at every length: each prefix reads without touching the bytes after it.
    const QByteArray text = "mtllib x.mtl\nv 1.5e3 2 3\nvt .5 1\nvn 0 0 1\nusemtl a\nf 1/1/1 1/1/1 1/1/1 1/1/1\n#";
    for (int len = 0; len <= text.size(); ++len) {
        QByteArray exact(text.constData(), len); // its own allocation, so a sanitizer would see an overrun
        QvObjModel m;
        EXPECT_EQ(readObjBuffer(m, exact.constData(), size_t(len), dir.path() + "/"), 0);
        readMtlBuffer(m, exact.constData(), size_t(len));
    }
}

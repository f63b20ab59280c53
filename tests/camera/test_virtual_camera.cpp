// Virtual-camera mapping against GLU-style projection: a frame of field of
// view fovY over the shorter side is a perspective camera, so the UV of a
// point must be its normalised device position moved to 0..1.

#include <cmath>
#include <random>

#include "camera/KvoVirtualCamera.h"
#include "commands/KvoCommands.h"
#include "platform/KvoCameraMath.h"
#include "scene/KvoGeometry.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

// (u, v) of a point seen by gluLookAt + gluPerspective(fovY, aspect).
XPnt2d gluUV(const ZebQVVCParam& p, double aspect, const XPnt3d& X)
{
    double mv[16], pr[16];
    lookAtMatrix(p.eye, p.center, p.up, mv);
    perspectiveMatrix(p.fovY, aspect, 0.1, 1000, pr);
    const int vp[4] = {0, 0, 2, 2};
    XPnt3d w;
    projectPoint(X, mv, pr, vp, w);
    return XPnt2d(w.x / 2, w.y / 2);
}

ZebQVVCParam camera(const XPnt3d& eye, const XPnt3d& centre, double fov)
{
    ZebQVVCParam p;
    p.eye = eye;
    p.center = centre;
    // Up square to the line of sight, as a placed camera has it.
    XPnt3d d = centre - eye;
    XPnt3d right = cross(d, XPnt3d(0, 0, 1));
    p.up = cross(right, d);
    p.up = p.up * (1.0 / length(p.up));
    p.fovY = fov;
    return p;
}

class VirtualCameraTest : public qvtest::ViewerTest {
protected:
    // A wall of 20 x 10 cells in the plane y = 0 (x -10..10, z 0..10),
    // facing -y, and a 2 x 2 panel at y = -3 in front of its middle.
    void buildScene(int photoW = 400, int photoH = 300)
    {
        newProject();
        ref_ptr<IKvoModel> model = newKvoModel();
        ref_ptr<Pnt3fArray> v = newPnt3fArray();
        ref_ptr<UIntArray> wall = newUIntArray(), panel = newUIntArray();
        for (int j = 0; j <= 10; ++j)
            for (int i = 0; i <= 20; ++i)
                v->append(XPnt3f(float(i - 10), 0, float(j)));
        for (int j = 0; j < 10; ++j)
            for (int i = 0; i < 20; ++i) {
                const unsigned a = unsigned(j * 21 + i), b = a + 1, c = a + 22, d = a + 21;
                wall->vec().insert(wall->vec().end(), {a, b, c, a, c, d});
            }
        const unsigned base = unsigned(v->getCount());
        v->vec().insert(v->vec().end(), {{-1, -3, 4}, {1, -3, 4}, {1, -3, 6}, {-1, -3, 6}});
        panel->vec() = {base, base + 1, base + 2, base, base + 2, base + 3};
        model->setVertices(v.get(), true);
        for (auto* tris : {wall.get(), panel.get()}) {
            ref_ptr<IKvoMesh> mesh = model->newMesh(-1, false);
            mesh->setTriangleIndices(tris, true);
            mesh->computeFaceNormals();
            model->addMesh(mesh);
        }
        getMM()->setBareModel(model);
        ASSERT_TRUE(qvtest::writeTestPicture(scratch.file("photo.png"), photoW, photoH));
        ref_ptr<IKvoProject> project;
        getMM()->getProject(project)->getImageDb(db);
        ASSERT_EQ(db->addImage(scratch.file("photo.png"), imageId), kvoOk);
        getMM()->setActiveImageId(imageId);
    }
    ref_ptr<IKvoImageDb> db;
    long imageId = -1;
};

} // namespace

TEST(VirtualCamera, FrameOfTheReferenceExample)
{
    const ZebQVVCParam p = camera(XPnt3d(0, -20, 5), XPnt3d(0, 0, 5), 27.0);
    zebUI::_ZebVCMapParam_ f;
    ASSERT_TRUE(calVCFrameForSize(p, 4000, 3000, kvoVCFrameModel, f));
    const double D = 2.4 / std::tan(13.5 * M_PI / 180);
    const XPnt3d centre = (f.leftTop + f.rightBottom) * 0.5;
    EXPECT_NEAR(centre.y, -20 + D, 1e-9);
    EXPECT_NEAR(centre.z, 5, 1e-9);
    // Half the shorter side is 2.4, the longer 2.4 * 4 / 3 = 3.2 (in single precision).
    EXPECT_NEAR(f.rightTop.x - centre.x, 3.2, 1e-6);
    EXPECT_NEAR(f.rightTop.z - centre.z, 2.4, 1e-6);
    EXPECT_NEAR(f.leftBottom.x - centre.x, -3.2, 1e-6);
    EXPECT_EQ(f.eye, p.eye);

    // Corners map to 0 and 1; the frame is a perspective camera.
    const KvoVCProjector proj(f);
    ASSERT_TRUE(proj.isValid());
    const XPnt2d lb = proj.uv(f.leftBottom), rt = proj.uv(f.rightTop), lt = proj.uv(f.leftTop);
    EXPECT_NEAR(lb.x, 0, 1e-6);
    EXPECT_NEAR(lb.y, 0, 1e-6);
    EXPECT_NEAR(rt.x, 1, 1e-6);
    EXPECT_NEAR(rt.y, 1, 1e-6);
    EXPECT_NEAR(lt.x, 0, 1e-6);
    EXPECT_NEAR(lt.y, 1, 1e-6);
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> d(-4, 4);
    for (int i = 0; i < 50; ++i) {
        const XPnt3d X(d(rng), d(rng) + 5, d(rng) + 5);
        const XPnt2d a = proj.uv(X), b = gluUV(p, 4.0 / 3.0, X);
        EXPECT_NEAR(a.x, b.x, 1e-6);
        EXPECT_NEAR(a.y, b.y, 1e-6);
    }

    // Portrait: fovY measures the width now.
    zebUI::_ZebVCMapParam_ portrait;
    ASSERT_TRUE(calVCFrameForSize(p, 3000, 4000, kvoVCFrameModel, portrait));
    const XPnt3d pc = (portrait.leftTop + portrait.rightBottom) * 0.5;
    EXPECT_NEAR(portrait.rightTop.x - pc.x, 2.4, 1e-6);
    EXPECT_NEAR(portrait.rightTop.z - pc.z, 3.2, 1e-6);

    // A camera without direction has no frame.
    ZebQVVCParam bad = p;
    bad.center = bad.eye;
    EXPECT_FALSE(calVCFrameForSize(bad, 4000, 3000, kvoVCFrameModel, f));
}

TEST_F(VirtualCameraTest, FrameModesGiveTheSameUVsAndTheMatrixCommandShowsTheViewMotion)
{
    buildScene();
    const ZebQVVCParam p = camera(XPnt3d(2, -25, 6), XPnt3d(0, 0, 5), 30.0);
    zebUI::_ZebVCMapParam_ f0, f2, f1;
    ASSERT_TRUE(calVCFrame(imageId, p, kvoVCFrameModel, f0));
    ASSERT_TRUE(calVCFrame(imageId, p, kvoVCFramePlaced, f2));
    EXPECT_GT(length(f0.rightTop - f2.rightTop), 1.0) << "the placed frame is elsewhere";
    const KvoVCProjector a(f0), b(f2);
    for (int i = 0; i < 231; i += 7) {
        const XPnt3d X(i % 21 - 10, 0, i / 21);
        EXPECT_NEAR(a.uv(X).x, b.uv(X).x, 1e-5);
        EXPECT_NEAR(a.uv(X).y, b.uv(X).y, 1e-5);
    }
    // Window mode: the corners where the 3-D view shows them (y up).
    ASSERT_TRUE(calVCFrame(imageId, p, kvoVCFrameWindow, f1));
    EXPECT_LT(f1.leftBottom.x, f1.rightTop.x);
    EXPECT_LT(f1.leftBottom.y, f1.rightTop.y);
    double zoom = 0;
    Enve2d box;
    ASSERT_TRUE(calVCZoom(imageId, p, zoom, &box));
    EXPECT_GT(zoom, 0);
    EXPECT_NEAR(box.maxX - box.minX, 800, 1e-4) << "a 4:3 photograph fills the width of a 4:3 view";

    // Show Matrix: the view motion's rows, as text.
    getMM()->setVCParam(imageId, p);
    ref_ptr<LongArray> ids = newLongArray();
    ids->append(imageId);
    cmdOnImageShowMatrix(ids);
    const QStringList rows = presenter->lastText().split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(rows.size(), 4) << presenter->lastText().toStdString();
    EXPECT_EQ(rows[3], "0.0 0.0 0.0 1.0");
    double Rt[12];
    ASSERT_TRUE(calVCMatrix(imageId, Rt));
    const XPnt3d eyeInView(Rt[0] * p.eye.x + Rt[1] * p.eye.y + Rt[2] * p.eye.z + Rt[3],
                           Rt[4] * p.eye.x + Rt[5] * p.eye.y + Rt[6] * p.eye.z + Rt[7],
                           Rt[8] * p.eye.x + Rt[9] * p.eye.y + Rt[10] * p.eye.z + Rt[11]);
    EXPECT_LT(length(eyeInView), 1e-9) << "the eye goes to the origin";
    EXPECT_EQ(rows[0].split(' ').size(), 4);
    EXPECT_NEAR(rows[0].split(' ')[0].toDouble(), Rt[0], 1e-5);
}

TEST(VirtualCamera, ResectionOfExactProjectionsRecoversTheCamera)
{
    std::mt19937 rng(9);
    std::uniform_real_distribution<double> d(-3, 3);
    for (const XPnt3d offset : {XPnt3d(0, 0, 0), XPnt3d(4.5e5, 5.3e6, 200)}) {
        for (int k = 0; k < 4; ++k) {
            const ZebQVVCParam truth =
                camera(offset + XPnt3d(8 * k - 12, -20 - k, 3 + k), offset + XPnt3d(0, 0, 4), 24.0 + 3 * k);
            std::vector<XPnt3d> world;
            std::vector<XPnt2d> image;
            while (world.size() < 12) {
                const XPnt3d X = offset + XPnt3d(d(rng), d(rng), d(rng) + 4);
                const XPnt2d uv = gluUV(truth, 4.0 / 3.0, X);
                if (uv.x > 0.05 && uv.x < 0.95 && uv.y > 0.05 && uv.y < 0.95) {
                    world.push_back(X);
                    image.push_back(uv);
                }
            }
            XPnt3d eye, centre, up;
            ASSERT_TRUE(calEyeCenterUpPrams(world, image, truth.fovY, 4000, 3000, eye, centre, up));
            EXPECT_LT(length(eye - truth.eye), 1e-6) << k;
            XPnt3d dir = centre - eye, want = truth.center - truth.eye;
            dir = dir * (1.0 / length(dir));
            want = want * (1.0 / length(want));
            EXPECT_LT(length(dir - want), 1e-6) << k;
            EXPECT_LT(length(up - truth.up), 1e-6) << k;
        }
    }
    std::vector<XPnt3d> few(3);
    std::vector<XPnt2d> fewImage(3);
    XPnt3d e, c, u;
    EXPECT_FALSE(calEyeCenterUpPrams(few, fewImage, 30, 400, 300, e, c, u));
}

TEST_F(VirtualCameraTest, MappingTakesTrianglesWhollyInsideAndGivesEveryVertexItsUV)
{
    buildScene();
    // Sees the middle of the wall; the frame cuts through it.
    ZebQVVCParam p = camera(XPnt3d(0, -20, 5), XPnt3d(0, 0, 5), 20.0);
    zebUI::_ZebVCMapParam_ f;
    ASSERT_TRUE(calVCFrame(imageId, p, kvoVCFrameModel, f));
    VCMapping(p, f, false, false, false, nullptr);
    ref_ptr<IKvoMesh> tex;
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, imageId));
    ref_ptr<IKvoImageInfo> info;
    db->getImageInfo(info, imageId);
    EXPECT_EQ(info->getMappingType(), 1);
    ZebQVVCParam stored;
    ASSERT_TRUE(getMM()->getVCParam(imageId, stored));
    EXPECT_EQ(stored.eye, p.eye);

    ref_ptr<IKvoModel> model;
    getMM()->getBareModel(model);
    const Pnt3fArray* v = model->getVertices();
    const Pnt2fArray* uv = tex->getUVs();
    ASSERT_EQ(uv->getCount(), v->getCount()) << "every vertex gets its UV";
    auto inside = [&](unsigned i) {
        const XPnt2f t = uv->getAt(i);
        return t.x >= 0 && t.x <= 1 && t.y >= 0 && t.y <= 1;
    };
    for (long i = 0; i < v->getCount(); ++i) {
        const XPnt3f q = v->getAt(i);
        const XPnt2d want = gluUV(p, 4.0 / 3.0, XPnt3d(q.x, q.y, q.z));
        EXPECT_NEAR(uv->getAt(i).x, want.x, 1e-5);
        EXPECT_NEAR(uv->getAt(i).y, want.y, 1e-5);
    }
    // Exactly the front-facing triangles with three corners in the frame.
    long expected = 0;
    for (long m = 0; m < model->getMeshCount(); ++m) {
        if (model->getMesh(m)->getImageId() >= 0)
            continue; // texture meshes share the model's vertices
        const UIntArray* t = model->getMesh(m)->getTriangleIndices();
        for (long k = 0; k + 2 < t->getCount(); k += 3)
            expected += inside(t->getAt(k)) && inside(t->getAt(k + 1)) && inside(t->getAt(k + 2));
    }
    EXPECT_EQ(tex->getFaceCount(), expected);
    EXPECT_GT(expected, 20);
    EXPECT_LT(expected, 406) << "some triangles straddle the frame";
    const UIntArray* t = tex->getTriangleIndices();
    for (long k = 0; k < t->getCount(); ++k)
        EXPECT_TRUE(inside(t->getAt(k)));

    // With keepTriangles the triangles stay and only the UVs are new.
    const std::vector<unsigned> before = t->vec();
    ZebQVVCParam moved = camera(XPnt3d(1, -20, 5), XPnt3d(1, 0, 5), 20.0);
    ASSERT_TRUE(calVCFrame(imageId, moved, kvoVCFrameModel, f));
    VCMapping(moved, f, true, false, false, nullptr);
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, imageId));
    EXPECT_LE(tex->getFaceCount(), long(before.size() / 3));
    const XPnt3f q = v->getAt(0);
    EXPECT_NEAR(tex->getUVs()->getAt(0).x, gluUV(moved, 4.0 / 3.0, XPnt3d(q.x, q.y, q.z)).x, 1e-5);
}

TEST_F(VirtualCameraTest, HiddenTrianglesAreDroppedAndWarningsStopTheMapping)
{
    buildScene();
    ZebQVVCParam p = camera(XPnt3d(0, -20, 5), XPnt3d(0, 0, 5), 40.0);
    p.zoom = 1.0;
    getMM()->setVCParam(imageId, p);
    ref_ptr<ByteArrayArray> masks;
    // Not strict: one corner seen is enough (a corner on a silhouette reads
    // the depth behind it at the pixel centres around it).
    ASSERT_EQ(calVCVisibleTriangles(imageId, false, masks), 0);
    ASSERT_EQ(masks->getCount(), 2);
    const ByteArray* wall = masks->vec()[0].get();
    const ByteArray* panel = masks->vec()[1].get();
    EXPECT_EQ(panel->getAt(0), 1);
    EXPECT_EQ(panel->getAt(1), 1);
    // The cell of the wall right behind the panel (x 0..1, z 4..5) is hidden,
    // one far to the side is seen.
    const long hidden = (4 * 20 + 10) * 2, seen = (4 * 20 + 1) * 2;
    EXPECT_EQ(wall->getAt(hidden), 0);
    EXPECT_EQ(wall->getAt(hidden + 1), 0);
    EXPECT_EQ(wall->getAt(seen), 1);

    zebUI::_ZebVCMapParam_ f;
    ASSERT_TRUE(calVCFrame(imageId, p, kvoVCFrameModel, f));
    VCMapping(p, f, false, false, true, nullptr);
    ref_ptr<IKvoMesh> tex;
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, imageId));
    ref_ptr<IKvoModel> model;
    getMM()->getBareModel(model);
    const UIntArray* wallTris = model->getMesh(0)->getTriangleIndices();
    EXPECT_LT(
        tex->findFace(wallTris->getAt(3 * hidden), wallTris->getAt(3 * hidden + 1), wallTris->getAt(3 * hidden + 2)),
        0);
    EXPECT_GE(tex->findFace(wallTris->getAt(3 * seen), wallTris->getAt(3 * seen + 1), wallTris->getAt(3 * seen + 2)),
              0);

    // Only marked triangles, with none marked: a warning, nothing changes.
    const long faces = tex->getFaceCount();
    VCMapping(p, f, false, true, false, nullptr);
    EXPECT_EQ(presenter->lastText(), "Selected Triangle Number of Bare Mesh is 0!");
    EXPECT_EQ(tex->getFaceCount(), faces);
    getMM()->setActiveImageId(-1);
    VCMapping(p, f, false, false, false, nullptr);
    EXPECT_EQ(presenter->lastText(), "Failed to get active image!");
}

TEST(VirtualCamera, UVCleanUpAndFeathering)
{
    ref_ptr<IKvoModel> model = newKvoModel();
    ref_ptr<Pnt3fArray> v = newPnt3fArray();
    v->vec() = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}};
    model->setVertices(v.get(), true);
    ref_ptr<IKvoMesh> mesh = model->newMesh(3, true);
    ref_ptr<UIntArray> t = newUIntArray();
    // Counter-clockwise in UV, clockwise (turned over), and one leaving the picture.
    t->vec() = {0, 1, 2, 0, 2, 1, 1, 4, 2};
    mesh->setTriangleIndices(t.get(), true);
    model->addMesh(mesh);
    ref_ptr<Pnt2fArray> uv = newPnt2fArray();
    uv->vec() = {{0.1f, 0.1f}, {0.9f, 0.1f}, {0.9f, 0.9f}, {0.1f, 0.9f}, {1.5f, 0.1f}};
    mesh->setUVs(uv.get());
    EXPECT_EQ(removeNegtiveUV(mesh, nullptr), 2);
    ASSERT_EQ(mesh->getFaceCount(), 1);
    EXPECT_EQ(mesh->getTriangleIndices()->vec(), (std::vector<unsigned>{0, 1, 2}));

    ref_ptr<IKvoImage> img = newKvoImage();
    img->create(100, 100, KvoColor4b(200, 100, 50, 255));
    mesh->setImage(img);
    const std::vector<XPnt2d> none;
    EXPECT_EQ(featherMesh(mesh, 0, 10, 100, none, nullptr), 0) << "hardness 100 is a hard edge";
    const long changed = featherMesh(mesh, 0, 10, 0, none, nullptr);
    EXPECT_GT(changed, 100);
    ref_ptr<IKvoImage> out;
    mesh->getImage(out);
    KvoColor4b c;
    // The triangle (0.1,0.1)-(0.9,0.1)-(0.9,0.9): its bottom edge is row 90.
    out->getPixel(c, 80, 89);
    EXPECT_LT(c.a, 60) << "next to the border: nearly transparent";
    out->getPixel(c, 80, 75);
    EXPECT_GT(c.a, 200) << "well inside: (nearly) opaque";
    out->getPixel(c, 10, 10);
    EXPECT_EQ(c.a, 255) << "outside the footprint: untouched";
    EXPECT_EQ(c.r, 200) << "colours are untouched";
}

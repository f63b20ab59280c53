// DLT and planar mapping on generated scenes whose every projection is known.

#include <cmath>

#include "SampleProject.h"
#include "SampleWriter.h"
#include "commands/KvoCommands.h"
#include "mapping/KvoDlt.h"
#include "mapping/KvoMapping.h"
#include "scene/KvoGeometry.h"
#include "scene/KvoRefPlane.h"
#include "support/ViewerSupport.h"

using namespace kvo;
using namespace qvsample;

namespace {

class MappingTest : public qvtest::ViewerTest {
protected:
    // A small scene written to the scratch folder and made into a project.
    void makeProject(SceneKind kind)
    {
        SampleOptions o;
        o.kind = kind;
        o.photos = 2;
        o.triangles = 3000;
        o.photoWidth = 800;
        o.photoHeight = 600;
        o.texelsPerMetre = 16;
        std::string error;
        ASSERT_TRUE(writeSample(o, scratch.file("scene").toStdString(), &error, nullptr, &scene)) << error;
        QString why;
        ASSERT_EQ(buildProjectFromSample(scratch.file("scene"), scratch.file("p.qvj"), why), kvoOk)
            << why.toStdString();
        ref_ptr<IKvoProject> project;
        getMM()->getProject(project)->getImageDb(db);
        getMM()->setActiveImageId(1);
        db->getImageInfo(info, 1);
    }
    void setControlPoints(const std::vector<std::pair<XPnt2d, XPnt3d>>& pts)
    {
        while (info->getCtrlImagePntCount() > 0)
            info->removeCtrlImagePnt(0);
        while (info->getCtrlWorldPntCount() > 0)
            info->removeCtrlWorldPnt(0);
        for (const auto& p : pts) {
            info->addCtrlImagePnt(p.first);
            info->addCtrlWorldPnt(p.second);
        }
    }
    XPnt3d vertex(long i) const
    {
        const XPnt3f& v = scene.mesh.vertices[size_t(i)];
        return XPnt3d(v.x, v.y, v.z);
    }
    SampleScene scene;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
};

} // namespace

TEST_F(MappingTest, DltMappingFromTheControlPointFileGivesTheTrueProjection)
{
    makeProject(SceneKind::Building);
    const SampleCamera& cam = scene.cameras[0];
    double L[11];
    setDltRandomSeed(5);
    ASSERT_GT(CDltFitter().fitImage(1, L, 3, false), 0);
    clearDltRandomSeed();
    bool reserved = false;
    ASSERT_EQ(DLTMapping(L, false, true, false, reserved, nullptr), 0);
    ref_ptr<IKvoMesh> tex;
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, 1));
    ASSERT_GT(tex->getFaceCount(), 100);
    const Pnt2fArray* uv = tex->getUVs();
    const UIntArray* t = tex->getTriangleIndices();
    double worst = 0;
    for (long k = 0; k < t->getCount(); ++k) {
        XPnt2d px;
        ASSERT_TRUE(cam.project(vertex(t->getAt(k)), px));
        const XPnt2f u = uv->getAt(t->getAt(k));
        worst = std::max(worst, std::hypot(u.x * cam.width - px.x, (1 - u.y) * cam.height - px.y));
        EXPECT_TRUE(u.x >= 0 && u.x <= 1 && u.y >= 0 && u.y <= 1);
    }
    EXPECT_LT(worst, 0.5) << "pixels";

    // Mapping again leaves out nothing and doubles nothing; only updating the
    // texture keeps the triangles.
    const long faces = tex->getFaceCount();
    ASSERT_EQ(DLTMapping(L, true, false, false, reserved, nullptr), 0);
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, 1));
    EXPECT_EQ(tex->getFaceCount(), faces);
    ASSERT_EQ(DLTMapping(L, false, true, false, reserved, nullptr), 0);
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, 1));
    EXPECT_EQ(tex->getFaceCount(), faces);

    // A second image over the same triangles takes none that the first holds.
    getMM()->setActiveImageId(2);
    ASSERT_EQ(DLTMapping(L, false, true, false, reserved, nullptr), 0);
    ref_ptr<IKvoMesh> second;
    ASSERT_TRUE(getMM()->getTexMeshOfImage(second, 2));
    EXPECT_EQ(second->getFaceCount(), 0);
}

TEST_F(MappingTest, DensifyPutsEveryControlPointOnItsMeasuredPosition)
{
    makeProject(SceneKind::Building);
    const SampleCamera& cam = scene.cameras[0];
    // Control points at model vertices the photograph shows, measured a few
    // pixels off the true projection: the DLT cannot honour them all, the warp must.
    std::vector<std::pair<XPnt2d, XPnt3d>> pts;
    std::vector<long> at;
    // A few from every surface, so that they span space (a DLT needs that).
    std::vector<long> candidates;
    for (const SampleSurface& sf : scene.surfaces)
        for (long f = sf.firstTriangle; f < sf.firstTriangle + sf.triangleCount;
             f += std::max(1L, sf.triangleCount / 3))
            candidates.push_back(long(scene.mesh.triangles[size_t(f) * 3 + 2]));
    for (long i : candidates) {
        if (pts.size() >= 14)
            break;
        XPnt2d px;
        if (!cam.project(vertex(i), px) || px.x < 40 || px.y < 40 || px.x > cam.width - 40 || px.y > cam.height - 40)
            continue;
        const double jitter = (double(pts.size() % 5) - 2.0) * 0.5;
        pts.push_back({XPnt2d((px.x + jitter) / cam.width, 1 - (px.y - jitter) / cam.height), vertex(i)});
        at.push_back(i);
    }
    ASSERT_GE(pts.size(), 8u);
    setControlPoints(pts);
    double L[11];
    std::vector<XPnt3d> w;
    std::vector<XPnt2d> im;
    for (const auto& p : pts) {
        im.push_back(p.first);
        w.push_back(p.second);
    }
    ASSERT_EQ(DLTSimple(w, im, L), kvoDltOk);
    // Kept with the project, as a mapping keeps them: the refinement reads them first.
    getMM()->setProjectBlob("ZebCtrlPntMapping", "1_DLTParam", L, sizeof L);
    bool reserved = false;
    ASSERT_EQ(DLTMapping(L, false, false, false, reserved, nullptr), 0);
    info->setMappingType(0);
    ASSERT_EQ(updateDensifyMapping(), 0);
    ref_ptr<IKvoMesh> tex;
    getMM()->getTexMeshOfImage(tex, 1);
    for (size_t k = 0; k < at.size(); ++k) {
        const XPnt2f u = tex->getUVs()->getAt(at[k]);
        EXPECT_NEAR(u.x, pts[k].first.x, 2e-6);
        EXPECT_NEAR(u.y, pts[k].first.y, 2e-6);
    }

    // Three points: the warp is the one affine through them, everywhere.
    pts.resize(3);
    setControlPoints(pts);
    ASSERT_EQ(updateDensifyDLTMapping(), 0);
    ref_ptr<Pnt2fArray> from = newPnt2fArray(), to = newPnt2fArray();
    for (const auto& p : pts) {
        const XPnt2d q = camWorldPntToImgPos(L, p.second.x, p.second.y, p.second.z);
        from->append(XPnt2f(float(q.x), float(q.y)));
        to->append(XPnt2f(float(p.first.x), float(p.first.y)));
    }
    matrix<float> affine;
    ASSERT_TRUE(getAffineTransformationMatrix(from, to, affine));
    for (long i = 0; i < long(scene.mesh.vertices.size()); i += 13) {
        const XPnt3d v = vertex(i);
        const XPnt2d q = camWorldPntToImgPos(L, v.x, v.y, v.z);
        float x = 0, y = 0;
        calcAffineTransformationCoord(affine, float(q.x), float(q.y), x, y);
        EXPECT_NEAR(tex->getUVs()->getAt(i).x, x, 1e-3);
        EXPECT_NEAR(tex->getUVs()->getAt(i).y, y, 1e-3);
    }
    // Two points with the same projection cannot be triangulated.
    pts.push_back(pts[0]);
    setControlPoints(pts);
    EXPECT_EQ(updateDensifyDLTMapping(), kvoTinError);
    // A virtual-camera mapping has no such refinement.
    info->setMappingType(1);
    const float before = tex->getUVs()->getAt(at[0]).x;
    EXPECT_EQ(updateDensifyMapping(), kvoVCMappingNoAdjust);
    EXPECT_EQ(tex->getUVs()->getAt(at[0]).x, before);
}

TEST_F(MappingTest, PlaneMappingOfTheWallReproducesItsTexture)
{
    makeProject(SceneKind::Plane);
    const SampleSurface& wall = scene.surfaces[0];
    // The ground-truth texture as the photograph: its corners are the wall's.
    ASSERT_TRUE(QFile::exists(scratch.file("scene/truth/textures/poster_wall.png")));
    long id = -1;
    ASSERT_EQ(db->addImage(scratch.file("scene/truth/textures/poster_wall.png"), id), kvoOk);
    getMM()->setActiveImageId(id);
    db->getImageInfo(info, id);
    setControlPoints({{XPnt2d(0, 0), wall.origin},
                      {XPnt2d(1, 0), wall.origin + wall.uAxis},
                      {XPnt2d(0, 1), wall.origin + wall.vAxis},
                      {XPnt2d(1, 1), wall.origin + wall.uAxis + wall.vAxis}});
    ASSERT_EQ(planeMapping(false, true, false, false, nullptr), 0);
    ref_ptr<IKvoMesh> tex;
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, id));
    EXPECT_EQ(tex->getFaceCount(), scene.mesh.triangleCount()) << "the whole wall";
    for (size_t k = 0; k < scene.mesh.triangles.size(); ++k) {
        const XPnt2f want = scene.mesh.cornerUVs[k];
        const XPnt2f got = tex->getUVs()->getAt(scene.mesh.triangles[k]);
        EXPECT_NEAR(got.x, want.x, 1e-5);
        EXPECT_NEAR(got.y, want.y, 1e-5);
    }
    ASSERT_EQ(updateDensifyPlaneMapping(), 0) << "four points: the fourth is honoured too";
    EXPECT_NEAR(tex->getUVs()->getAt(scene.mesh.triangles[2]).x, scene.mesh.cornerUVs[2].x, 1e-5);

    // A point far in front of the plane maps like its foot on the plane.
    const KvoMatrix4d plane = calPlaneMatrix(wall.origin, wall.origin + wall.uAxis, wall.origin + wall.vAxis);
    const XPnt3d foot = wall.origin + wall.uAxis * 0.3 + wall.vAxis * 0.6;
    const XPnt3d normal = cross(wall.uAxis, wall.vAxis) * (1.0 / length(cross(wall.uAxis, wall.vAxis)));
    const XPnt3d a = plane * foot, b = plane * (foot + normal * 5.0);
    EXPECT_NEAR(a.x, b.x, 1e-9);
    EXPECT_NEAR(a.y, b.y, 1e-9);
    EXPECT_NEAR(b.z - a.z, 5.0, 1e-9);

    // Collinear control points, and too few.
    setControlPoints({{XPnt2d(0, 0), wall.origin},
                      {XPnt2d(0.5, 0), wall.origin + wall.uAxis * 0.5},
                      {XPnt2d(1, 0), wall.origin + wall.uAxis}});
    EXPECT_EQ(planeMapping(false, true, false, false, nullptr), kvoInvertFailed2);
    setControlPoints({{XPnt2d(0, 0), wall.origin}, {XPnt2d(1, 0), wall.origin + wall.uAxis}});
    EXPECT_EQ(planeMapping(false, true, false, false, nullptr), kvoTooFewPoints);
    getMM()->setActiveImageId(-1);
    bool reserved = false;
    double L[11] = {0};
    EXPECT_EQ(DLTMapping(L, false, true, false, reserved, nullptr), kvoNoActiveImage);
    EXPECT_EQ(planeMapping(false, true, false, false, nullptr), kvoNoActiveImage);
}

TEST_F(MappingTest, MappingOnTheActivePlaneFromAdjustPoints)
{
    makeProject(SceneKind::Plane);
    const SampleSurface& wall = scene.surfaces[0];
    long id = -1;
    ASSERT_EQ(db->addImage(scratch.file("scene/truth/textures/poster_wall.png"), id), kvoOk);
    db->getImageInfo(info, id);
    // Without adjust points, and without an active plane: said, nothing done.
    EXPECT_EQ(mapOnProjectPlane(id, nullptr), -1);
    EXPECT_EQ(presenter->lastText(), "Three adjust points at least!");
    for (const XPnt2d& uv : {XPnt2d(0.1, 0.1), XPnt2d(0.9, 0.2), XPnt2d(0.4, 0.8), XPnt2d(0.7, 0.7)}) {
        POINT_POINT pp;
        pp.uv = uv;
        pp.world = wall.origin + wall.uAxis * uv.x + wall.vAxis * uv.y;
        info->addMatchPnt(pp);
    }
    EXPECT_EQ(mapOnProjectPlane(id, nullptr), -1);
    EXPECT_EQ(presenter->lastText(), "Please active a project plane!");
    // The wall's own plane, active.
    ref_ptr<IKvoQvRefPlaneMan> planes;
    getMM()->getRefPlaneMan(planes);
    ref_ptr<IKvoQvRefPlane> plane = newKvoQvRefPlane();
    plane->setId(planes->nextPlaneId());
    plane->setOrigin(wall.origin);
    plane->setAxes(wall.uAxis * (1.0 / length(wall.uAxis)), wall.vAxis * (1.0 / length(wall.vAxis)));
    plane->updateParam();
    planes->addPlane(plane);
    planes->setActivePlane(plane->getId());
    ASSERT_EQ(mapOnProjectPlane(id, nullptr), 0);
    EXPECT_EQ(info->getMappingType(), 2);
    EXPECT_EQ(info->getCtrlPntCount(), 4);
    ref_ptr<IKvoMesh> tex;
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, id));
    // Triangles along the wall's border may fall a rounding outside the picture.
    EXPECT_GT(tex->getFaceCount(), scene.mesh.triangleCount() * 9 / 10);
    for (size_t k = 0; k < scene.mesh.triangles.size(); k += 7) {
        EXPECT_NEAR(tex->getUVs()->getAt(scene.mesh.triangles[k]).x, scene.mesh.cornerUVs[k].x, 1e-4);
        EXPECT_NEAR(tex->getUVs()->getAt(scene.mesh.triangles[k]).y, scene.mesh.cornerUVs[k].y, 1e-4);
    }
}

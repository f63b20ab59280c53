#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "platform/KvoRayPicker.h"
#include "platform/KvoSampleScene.h"
#include "platform/KvoTrackBallImpl.h"
#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

struct Rng {
    explicit Rng(unsigned seed) : gen(seed) {}
    double operator()(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(gen); }
    int integer(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen); }
    XPnt3d point(const XPnt3d& center, double r)
    {
        return center + XPnt3d((*this)(-r, r), (*this)(-r, r), (*this)(-r, r));
    }
    XPnt3d unit()
    {
        XPnt3d d;
        do
            d = point(XPnt3d(), 1);
        while (d.norm() < 0.1 || d.norm() > 1);
        return d / d.norm();
    }
    std::mt19937 gen;
};

ref_ptr<IKvoMesh> addMesh(const ref_ptr<IKvoModel>& model, const std::vector<unsigned>& tris)
{
    ref_ptr<IKvoMesh> mesh = model->newMesh(-1, false);
    ref_ptr<UIntArray> t = newUIntArray();
    t->vec() = tris;
    mesh->setTriangleIndices(t.get(), true);
    model->addMesh(mesh);
    return mesh;
}

// Appends n triangles of mixed sizes scattered through a cube to the model's
// vertices, and a mesh of them; a few are degenerate (a repeated corner or
// three corners on a line) and one refers to a vertex that does not exist.
ref_ptr<IKvoMesh> addSoup(Rng& rng, const ref_ptr<IKvoModel>& model, int n, const XPnt3d& center, double size)
{
    ref_ptr<Pnt3fArray> verts = model->getVertices()->clone();
    std::vector<unsigned> tris;
    tris.insert(tris.end(), {0, 1, 1000000}); // face 0 is never hit, yet numbers the rest
    for (int i = 0; i < n; ++i) {
        const XPnt3d a = rng.point(center, size);
        const double span = size * (i % 10 == 0 ? 0.5 : 0.05);
        XPnt3d b = rng.point(a, span), c = rng.point(a, span);
        if (i % 97 == 0)
            c = b;
        else if (i % 89 == 0)
            c = a + (b - a) * 2.0;
        const unsigned base = unsigned(verts->getCount());
        for (const XPnt3d& p : {a, b, c})
            verts->append(p.to3f());
        tris.insert(tris.end(), {base, base + 1, base + 2});
    }
    model->setVertices(verts.get(), true);
    return addMesh(model, tris);
}

// Every triangle that a ray meets or nearly meets, by brute force in double
// precision over the meshes' own (float) vertices, with how far inside the
// triangle the crossing is (the least barycentric coordinate).
struct Crossing {
    double t, margin;
    long mesh, face;
};

std::vector<Crossing> bruteForce(const ref_ptr<MeshArray>& meshes, const XPnt3d& o, const XPnt3d& d)
{
    std::vector<Crossing> out;
    for (long mi = 0; mi < meshes->getCount(); ++mi) {
        const ref_ptr<IKvoMesh>& mesh = meshes->vec()[size_t(mi)];
        const Pnt3fArray* verts = mesh->getModel()->getVertices();
        const std::vector<unsigned>& t = mesh->getTriangleIndices()->vec();
        for (long f = 0; f < mesh->getFaceCount(); ++f) {
            const unsigned ia = t[size_t(3 * f)], ib = t[size_t(3 * f + 1)], ic = t[size_t(3 * f + 2)];
            if (long(std::max({ia, ib, ic})) >= verts->getCount())
                continue;
            const XPnt3d a = verts->getAt(ia).to3d(), b = verts->getAt(ib).to3d(), c = verts->getAt(ic).to3d();
            // Moller-Trumbore.
            const XPnt3d e1 = b - a, e2 = c - a, p = d.cross(e2);
            const double det = e1.dot(p);
            if (det == 0)
                continue;
            const XPnt3d s = o - a, q = s.cross(e1);
            const double u = s.dot(p) / det, v = d.dot(q) / det, dist = e2.dot(q) / det;
            const double margin = std::min({u, v, 1 - u - v});
            if (margin > -1e-6 && dist > 0)
                out.push_back({dist, margin, mi, f});
        }
    }
    return out;
}

// Checks a pick against the brute force: a miss only where nothing is
// clearly hit, and a hit on a triangle the ray meets with nothing clearly
// nearer. Counts the rays whose answer rests on a graze of an edge.
struct PickCheck {
    int hits = 0, misses = 0, grazes = 0;

    ::testing::AssertionResult operator()(const std::vector<Crossing>& all, bool got, double t, long mesh, long face)
    {
        constexpr double kEdge = 1e-6;
        const double tTol = 1e-9 * (1 + (got ? t : 0));
        const Crossing* nearestClear = nullptr;
        bool graze = false;
        for (const Crossing& c : all)
            if (c.margin > kEdge && (!nearestClear || c.t < nearestClear->t))
                nearestClear = &c;
        for (const Crossing& c : all)
            if (c.margin <= kEdge && (!nearestClear || c.t <= nearestClear->t + tTol))
                graze = true;
        grazes += graze ? 1 : 0;
        if (!got) {
            ++misses;
            if (nearestClear)
                return ::testing::AssertionFailure() << "missed face " << nearestClear->face << " of mesh "
                                                     << nearestClear->mesh << " at t " << nearestClear->t;
            return ::testing::AssertionSuccess();
        }
        ++hits;
        const Crossing* picked = nullptr;
        for (const Crossing& c : all)
            if (c.mesh == mesh && c.face == face)
                picked = &c;
        if (!picked)
            return ::testing::AssertionFailure()
                   << "picked face " << face << " of mesh " << mesh << ", which the ray does not meet";
        if (std::fabs(picked->t - t) > tTol)
            return ::testing::AssertionFailure() << "distance " << t << " where the face is at " << picked->t;
        if (nearestClear && nearestClear->t < t - tTol)
            return ::testing::AssertionFailure()
                   << "face " << face << " of mesh " << mesh << " at " << t << " is behind face " << nearestClear->face
                   << " of mesh " << nearestClear->mesh << " at " << nearestClear->t;
        return ::testing::AssertionSuccess();
    }
};

// Two models, three meshes: two soups over one model's vertices, one over another's.
ref_ptr<MeshArray> soupScene(Rng& rng, std::vector<ref_ptr<IKvoModel>>& models)
{
    models = {newKvoModel(), newKvoModel()};
    ref_ptr<MeshArray> meshes = newMeshArray();
    meshes->append(addSoup(rng, models[0], 1500, XPnt3d(0, 0, 0), 10));
    meshes->append(addSoup(rng, models[1], 1000, XPnt3d(4, -3, 2), 8));
    meshes->append(addSoup(rng, models[0], 700, XPnt3d(-2, 5, 0), 6));
    return meshes;
}

} // namespace

TEST(RayPicker, NearestHitAgreesWithBruteForceOnRandomSoups)
{
    for (unsigned seed : {31u, 32u}) {
        Rng rng(seed);
        std::vector<ref_ptr<IKvoModel>> models;
        ref_ptr<MeshArray> meshes = soupScene(rng, models);
        KvoRayPicker picker;
        picker.build(meshes);
        EXPECT_TRUE(picker.isCurrentFor(meshes));
        EXPECT_EQ(picker.triangleCount(), 1500 + 1000 + 700) << "all but the one with a missing vertex";
        PickCheck check;
        for (int i = 0; i < 3000; ++i) {
            XPnt3d o, d;
            switch (i % 4) {
            case 0: // from outside toward a point of the soup
                o = rng.point(XPnt3d(), 40);
                d = rng.point(XPnt3d(), 10) - o;
                d = d / d.norm();
                break;
            case 1: // from inside, any way
                o = rng.point(XPnt3d(), 8);
                d = rng.unit();
                break;
            case 2: // along an axis, which makes the box test divide by zero
                o = rng.point(XPnt3d(), 12);
                d = XPnt3d();
                (i / 4 % 3 == 0 ? d.x : i / 4 % 3 == 1 ? d.y : d.z) = (i / 12) % 2 ? 1.0 : -1.0;
                break;
            default: // not of unit length
                o = rng.point(XPnt3d(), 30);
                d = (rng.point(XPnt3d(), 10) - o) * rng(0.01, 100);
            }
            double t = -1;
            long mesh = -1, face = -1;
            const bool got = picker.intersect(o, d, t, mesh, face);
            ASSERT_TRUE(check(bruteForce(meshes, o, d), got, t, mesh, face)) << "seed " << seed << " ray " << i;
        }
        EXPECT_GT(check.hits, 1500);
        EXPECT_GT(check.misses, 100);
        EXPECT_LT(check.grazes, 10);
    }
}

TEST(RayPicker, RaysThatMissAndEmptyScenesFindNothing)
{
    Rng rng(33);
    std::vector<ref_ptr<IKvoModel>> models;
    ref_ptr<MeshArray> meshes = soupScene(rng, models);
    KvoRayPicker picker;
    picker.build(meshes);
    Enve3d box;
    for (const ref_ptr<IKvoMesh>& m : meshes->vec()) {
        Enve3d e;
        m->getEnvelope(e);
        box.add(e);
    }
    ASSERT_TRUE(box.isValid());
    const XPnt3d mid = box.MidPoint();
    const double radius = (box.getMaxPnt() - box.getMinPnt()).norm();
    for (int i = 0; i < 500; ++i) {
        // Outside the soup's sphere and heading away from it.
        const XPnt3d out = rng.unit();
        const XPnt3d o = mid + out * rng(radius, 3 * radius);
        XPnt3d d = out + rng.point(XPnt3d(), 0.5);
        if (d.dot(out) <= 0)
            continue;
        double t = 7;
        long mesh = 7, face = 7;
        ASSERT_FALSE(picker.intersect(o, d, t, mesh, face)) << i;
        EXPECT_EQ(t, 7);
        EXPECT_EQ(mesh, 7);
        EXPECT_EQ(face, 7);
        // Turned round, the ray crosses the soup's bounding sphere; the brute
        // force says whether it hits.
        PickCheck check;
        const bool got = picker.intersect(o, -d, t, mesh, face);
        ASSERT_TRUE(check(bruteForce(meshes, o, -d), got, t, mesh, face)) << i;
    }

    double t;
    long mesh, face;
    const XPnt3d o(0, 0, 50), d(0, 0, -1);
    ASSERT_TRUE(picker.intersect(o, d, t, mesh, face));
    picker.clear();
    EXPECT_FALSE(picker.intersect(o, d, t, mesh, face));
    EXPECT_EQ(picker.triangleCount(), 0);

    ref_ptr<MeshArray> none;
    picker.build(none);
    EXPECT_FALSE(picker.intersect(o, d, t, mesh, face));
    picker.build(newMeshArray());
    EXPECT_FALSE(picker.intersect(o, d, t, mesh, face));
    // Meshes without a triangle.
    ref_ptr<MeshArray> bare = newMeshArray();
    bare->append(addMesh(models[0], {}));
    bare->append(addMesh(models[1], {0, 1, 2000000}));
    picker.build(bare);
    EXPECT_EQ(picker.triangleCount(), 0);
    EXPECT_FALSE(picker.intersect(o, d, t, mesh, face));
    EXPECT_TRUE(picker.isCurrentFor(bare));
}

TEST(RayPicker, AWindingEitherWayIsHitAndTheNearerOfTwoWins)
{
    ref_ptr<IKvoModel> model = newKvoModel();
    ref_ptr<Pnt3fArray> v = newPnt3fArray();
    // Two parallel triangles at z = 1 and z = 3, wound opposite ways.
    v->vec() = {{0, 0, 1}, {4, 0, 1}, {0, 4, 1}, {0, 0, 3}, {0, 4, 3}, {4, 0, 3}};
    model->setVertices(v.get(), true);
    ref_ptr<MeshArray> meshes = newMeshArray();
    meshes->append(addMesh(model, {0, 1, 2}));
    meshes->append(addMesh(model, {3, 4, 5}));
    KvoRayPicker picker;
    picker.build(meshes);
    double t;
    long mesh, face;
    ASSERT_TRUE(picker.intersect(XPnt3d(1, 1, 10), XPnt3d(0, 0, -1), t, mesh, face));
    EXPECT_DOUBLE_EQ(t, 7);
    EXPECT_EQ(mesh, 1);
    EXPECT_EQ(face, 0);
    ASSERT_TRUE(picker.intersect(XPnt3d(1, 1, -10), XPnt3d(0, 0, 2), t, mesh, face));
    EXPECT_DOUBLE_EQ(t, 5.5) << "t is in units of the direction given";
    EXPECT_EQ(mesh, 0);
    // Only what is ahead counts.
    ASSERT_TRUE(picker.intersect(XPnt3d(1, 1, 2), XPnt3d(0, 0, -1), t, mesh, face));
    EXPECT_EQ(mesh, 0);
    EXPECT_FALSE(picker.intersect(XPnt3d(1, 1, 5), XPnt3d(0, 0, 1), t, mesh, face));
    EXPECT_FALSE(picker.intersect(XPnt3d(3, 3, 10), XPnt3d(0, 0, -1), t, mesh, face)) << "beside the triangles";
}

TEST(RayPicker, KnowsWhetherItIsCurrentForTheMeshes)
{
    Rng rng(34);
    std::vector<ref_ptr<IKvoModel>> models;
    ref_ptr<MeshArray> meshes = soupScene(rng, models);
    KvoRayPicker picker;
    EXPECT_FALSE(picker.isCurrentFor(meshes));
    picker.build(meshes);
    EXPECT_TRUE(picker.isCurrentFor(meshes));

    // The same meshes in another list are the same scene; fewer, more, or other meshes are not.
    ref_ptr<MeshArray> copy = newMeshArray();
    copy->vec() = meshes->vec();
    EXPECT_TRUE(picker.isCurrentFor(copy));
    copy->vec().pop_back();
    EXPECT_FALSE(picker.isCurrentFor(copy));
    copy->vec() = meshes->vec();
    std::swap(copy->vec()[0], copy->vec()[2]);
    EXPECT_FALSE(picker.isCurrentFor(copy));
    EXPECT_FALSE(picker.isCurrentFor(ref_ptr<MeshArray>()));

    // A refreshed mesh, new triangles, or new vertices call for a rebuild.
    meshes->getAt(1)->refreshDisplay();
    EXPECT_FALSE(picker.isCurrentFor(meshes));
    picker.build(meshes);
    ref_ptr<UIntArray> fewer = meshes->getAt(2)->getTriangleIndices()->clone();
    fewer->resize(fewer->getCount() - 3);
    meshes->getAt(2)->setTriangleIndices(fewer.get(), false);
    EXPECT_FALSE(picker.isCurrentFor(meshes));
    picker.build(meshes);
    models[1]->setVertices(models[1]->getVertices()->clone().get(), false);
    EXPECT_FALSE(picker.isCurrentFor(meshes));
}

TEST(RayPicker, VerticesReplacedTwiceBetweenBuildsAreSeen)
{
    // The first array of vertices is gone by the time the third comes, which
    // may then be given the same memory: that must not pass for no change.
    ref_ptr<IKvoModel> model = newKvoModel();
    auto square = [&](float z) {
        ref_ptr<Pnt3fArray> v = newPnt3fArray();
        v->vec() = {{0, 0, z}, {4, 0, z}, {4, 4, z}, {0, 4, z}};
        model->setVertices(v.get(), true);
    };
    square(1);
    ref_ptr<MeshArray> meshes = newMeshArray();
    meshes->append(addMesh(model, {0, 1, 2, 0, 2, 3}));
    KvoRayPicker picker;
    for (int round = 0; round < 20; ++round) {
        picker.build(meshes);
        square(2);
        square(3 + float(round));
        double t;
        long mesh, face;
        if (!picker.isCurrentFor(meshes))
            picker.build(meshes);
        ASSERT_TRUE(picker.intersect(XPnt3d(1, 2, 100), XPnt3d(0, 0, -1), t, mesh, face));
        ASSERT_DOUBLE_EQ(t, 100 - (3 + round)) << "round " << round;
    }
}

// ---------------------------------------------------------------- trackball

namespace {

// The sample model's ground and building, and a soup of another model.
struct PickScene {
    explicit PickScene(Rng& rng)
    {
        sample = makeSampleModel(8, 4);
        soupModel = newKvoModel();
        meshes = newMeshArray();
        meshes->append(sample->getMesh(0));
        meshes->append(addSoup(rng, soupModel, 800, XPnt3d(0, 0, 14), 6));
        meshes->append(sample->getMesh(1));
    }
    ref_ptr<IKvoModel> sample, soupModel;
    ref_ptr<MeshArray> meshes;
};

long indexOf(const ref_ptr<MeshArray>& meshes, const ref_ptr<IKvoMesh>& mesh)
{
    for (long i = 0; i < meshes->getCount(); ++i)
        if (meshes->getAt(i).get() == mesh.get())
            return i;
    return -1;
}

} // namespace

TEST(TrackBallPick, PicksAgreeWithBruteForceAlongTheViewRay)
{
    Rng rng(41);
    PickScene scene(rng);
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    ball->setSceneProvider([&] { return scene.meshes; });
    PickCheck check;
    for (int view = 0; view < 20; ++view) {
        const XPnt3d center = rng.point(XPnt3d(0, 0, 4), 8);
        XPnt3d dir = rng.unit();
        dir.z = std::fabs(dir.z) + 0.2;
        ball->setCamera(center + dir / dir.norm() * rng(25, 70), center, XPnt3d(0, 0, 1));
        ball->setViewport(rng.integer(200, 1200), rng.integer(200, 900));
        int vp[4];
        ball->getViewport(vp);
        for (int i = 0; i < 150; ++i) {
            const double x = rng(0, vp[2]), y = rng(0, vp[3]);
            ref_ptr<IKvoMesh> mesh;
            long face = -1;
            XPnt3d point;
            const bool got = ball->pickTriangle(x, y, mesh, face, point);
            XPnt3d origin, ray;
            ASSERT_TRUE(ball->getRay(x, y, origin, ray));
            const double t = got ? (point - origin).dot(ray) : 0;
            ASSERT_TRUE(check(bruteForce(scene.meshes, origin, ray), got, t, indexOf(scene.meshes, mesh), face))
                << "view " << view << " pixel " << x << ", " << y;
            XPnt3d picked;
            ball->pickPoint(picked, x, y);
            if (got) {
                EXPECT_LT((point - (origin + ray * t)).norm(), 1e-9 * (1 + t)) << "the point is on the ray";
                EXPECT_EQ(picked, point);
            } else {
                EXPECT_FALSE(picked.isValid());
            }
        }
    }
    EXPECT_GT(check.hits, 1000);
    EXPECT_GT(check.misses, 100);
    EXPECT_LT(check.grazes, 10);
}

TEST(TrackBallPick, APickSeesTheGeometryAsItIsNow)
{
    // A square at z = 0 seen from straight above.
    ref_ptr<IKvoModel> model = newKvoModel();
    ref_ptr<Pnt3fArray> v = newPnt3fArray();
    v->vec() = {{-5, -5, 0}, {5, -5, 0}, {5, 5, 0}, {-5, 5, 0}};
    model->setVertices(v.get(), true);
    ref_ptr<MeshArray> meshes = newMeshArray();
    meshes->append(addMesh(model, {0, 1, 2, 0, 2, 3}));
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    ball->setSceneProvider([&] { return meshes; });
    ball->setCamera(XPnt3d(0, 0, 50), XPnt3d(0, 0, 0), XPnt3d(0, 1, 0));
    ball->setViewport(400, 400);
    auto heightAtCentre = [&] {
        XPnt3d p;
        ball->pickPoint(p, 200, 200);
        return p.z;
    };
    EXPECT_NEAR(heightAtCentre(), 0, 1e-9);

    // Moved in place and the mesh told.
    for (XPnt3f& p : model->getVertices()->vec())
        p.z = 2;
    meshes->getAt(0)->refreshDisplay();
    EXPECT_NEAR(heightAtCentre(), 2, 1e-9);

    // New vertex arrays, one after another, and two between picks.
    auto setHeight = [&](float z) {
        ref_ptr<Pnt3fArray> moved = model->getVertices()->clone();
        for (XPnt3f& p : moved->vec())
            p.z = z;
        model->setVertices(moved.get(), true);
    };
    for (float z : {3.f, 4.f, 5.f, 6.f}) {
        setHeight(z);
        EXPECT_NEAR(heightAtCentre(), z, 1e-9);
        setHeight(z + 10);
        setHeight(z + 0.5f);
        EXPECT_NEAR(heightAtCentre(), z + 0.5f, 1e-9);
    }

    // Moved in place with nobody told: forgetting the pick state shows it.
    for (XPnt3f& p : model->getVertices()->vec())
        p.z = 9;
    ball->resetPickState();
    EXPECT_NEAR(heightAtCentre(), 9, 1e-9);

    // Triangles replaced: half the square gone.
    ref_ptr<UIntArray> half = newUIntArray();
    half->vec() = {0, 1, 2};
    meshes->getAt(0)->setTriangleIndices(half.get(), true);
    XPnt3d p;
    EXPECT_TRUE(ball->pickPoint(p, 250, 250).isValid()) << "x > 0, y < 0: on the remaining half";
    EXPECT_FALSE(ball->pickPoint(p, 150, 150).isValid()) << "the other half is gone";

    // A scene that changes to other meshes is picked anew.
    ref_ptr<MeshArray> before = meshes;
    meshes = newMeshArray();
    EXPECT_FALSE(ball->pickPoint(p, 250, 250).isValid());
    meshes = before;
    EXPECT_NEAR(heightAtCentre(), 9, 1e-9);
    ref_ptr<IKvoMesh> mesh;
    long face = -1;
    ASSERT_TRUE(ball->pickTriangle(250, 250, mesh, face, p));
    EXPECT_EQ(mesh.get(), meshes->getAt(0).get());
    EXPECT_EQ(face, 0);
}

namespace {
using TrackBallStorePick = qvtest::StoreTest;
}

TEST_F(TrackBallStorePick, WithoutAProviderTheShownMeshesArePicked)
{
    newProject();
    getMM()->setBareModel(makeSampleModel(6, 3));
    ref_ptr<MeshArray> all;
    getMM()->getAllMeshes(all);
    ASSERT_EQ(all->getCount(), 2);
    ref_ptr<CKvoTrackBall> ball = newKvoTrackBall();
    ball->setCamera(XPnt3d(0, -40, 10), XPnt3d(0, 0, 0), XPnt3d(0, 0, 1));
    // A point low on the building's front: hidden, the ray goes on to the ground behind it.
    const XPnt3d front(0, -3, 1);
    XPnt3d w, p;
    ball->projectToWindow(w, front.x, front.y, front.z);
    ball->pickPoint(p, w.x, w.y);
    EXPECT_LT((p - front).norm(), 1e-6);
    all->getAt(1)->setMeshShown(false);
    ball->pickPoint(p, w.x, w.y);
    ASSERT_TRUE(p.isValid());
    EXPECT_NEAR(p.z, 0, 1e-9);
    EXPECT_NEAR(p.y, -40 + 37.0 * 10 / 9, 1e-6);
    all->getAt(0)->setMeshShown(false);
    EXPECT_FALSE(ball->pickPoint(p, w.x, w.y).isValid());
    getMM()->closeProject();
    EXPECT_FALSE(ball->pickPoint(p, w.x, w.y).isValid()) << "no project, nothing to pick";
}

// Best photograph per face on a generated scene with known cameras, judged by
// a brute-force ray caster that shares nothing with the selection's own
// visibility, by the cameras' true projections, and by re-rendering the
// textured model from each photograph's camera.

#include <QDir>
#include <QImage>

#include <opencv2/core.hpp>

#include <cmath>
#include <map>

#include "autotexture/KvoBestImage.h"
#include "autotexture/KvoViewSelection.h"
#include "camera/KvoCameraFiles.h"
#include "camera/KvoVirtualCamera.h"
#include "platform/KvoRasterizer.h"
#include "scene/KvoUV.h"
#include "support/SampleSupport.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

struct V3 {
    double x, y, z;
};
V3 operator-(const V3& a, const V3& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
V3 operator+(const V3& a, const V3& b)
{
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
V3 operator*(const V3& a, double s)
{
    return {a.x * s, a.y * s, a.z * s};
}
double dot(const V3& a, const V3& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
V3 cross(const V3& a, const V3& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
V3 v3(const XPnt3f& p)
{
    return {p.x, p.y, p.z};
}

class BestImageOnSample : public qvtest::ViewerTest {
protected:
    void SetUp() override
    {
        ViewerTest::SetUp();
        ASSERT_NO_FATAL_FAILURE(qvtest::openSample(scratch, {6, 3000, 640, 480, 24}, &scene));
        ref_ptr<IKvoProject> project;
        getMM()->getProject(project)->getImageDb(db);
        ref_ptr<IKvoModel> model;
        getMM()->getBareModel(model);
        verts = model->getVertices()->vec();
        ref_ptr<MeshArray> bare;
        getMM()->getBareMeshes(bare);
        for (const auto& m : bare->vec())
            tris.insert(tris.end(), m->getTriangleIndices()->vec().begin(), m->getTriangleIndices()->vec().end());
        for (size_t f = 0; f < tris.size() / 3; ++f)
            faceOf[XTrip<unsigned>(tris[3 * f], tris[3 * f + 1], tris[3 * f + 2]).normalized()] = long(f);
        ref_ptr<LongArray> ids;
        db->getImageIds(ids);
        for (long id : ids->vec()) {
            ref_ptr<IKvoImageInfo> info;
            db->getImageInfo(info, id);
            const QString name = QFileInfo(info->getFilePath(1)).fileName();
            for (size_t c = 0; c < scene.cameras.size(); ++c)
                if (name == QString::fromStdString(scene.cameras[c].name))
                    cameraOf[id] = c;
        }
        ASSERT_EQ(cameraOf.size(), scene.cameras.size());
    }

    long faces() const { return long(tris.size() / 3); }
    V3 corner(long f, int k) const { return v3(verts[tris[size_t(3 * f + k)]]); }
    V3 centroid(long f) const { return (corner(f, 0) + corner(f, 1) + corner(f, 2)) * (1.0 / 3); }

    // Whether the segment from the camera's centre to p crosses a face other than f.
    bool blocked(const V3& c, const V3& p, long f) const
    {
        const V3 d = p - c;
        for (long g = 0; g < faces(); ++g) {
            if (g == f)
                continue;
            const V3 a = corner(g, 0), e1 = corner(g, 1) - a, e2 = corner(g, 2) - a;
            const V3 h = cross(d, e2);
            const double det = dot(e1, h);
            if (std::fabs(det) < 1e-12)
                continue;
            const V3 s = c - a;
            const double u = dot(s, h) / det;
            if (u < 0 || u > 1)
                continue;
            const V3 q = cross(s, e1);
            const double v = dot(d, q) / det;
            if (v < 0 || u + v > 1)
                continue;
            const double t = dot(e2, q) / det;
            if (t > 1e-6 && t < 1 - 1e-4)
                return true;
        }
        return false;
    }

    // In front, facing, inside the picture, and nothing in front of the centre.
    bool seenAtCentre(const qvsample::SampleCamera& cam, long f) const
    {
        const XPnt3d cc = cam.center();
        const V3 c{cc.x, cc.y, cc.z};
        const V3 n = cross(corner(f, 1) - corner(f, 0), corner(f, 2) - corner(f, 0));
        if (dot(n, c - centroid(f)) <= 0)
            return false;
        for (int k = 0; k < 3; ++k) {
            XPnt2d px;
            const V3 p = corner(f, k);
            if (!cam.project(XPnt3d(p.x, p.y, p.z), px) || px.x < 0 || px.y < 0 || px.x > cam.width ||
                px.y > cam.height)
                return false;
        }
        return !blocked(c, centroid(f), f);
    }

    // Seen whole: the centre and the corners a fifth of the way in.
    bool seenWhole(const qvsample::SampleCamera& cam, long f) const
    {
        if (!seenAtCentre(cam, f))
            return false;
        const XPnt3d cc = cam.center();
        const V3 c{cc.x, cc.y, cc.z};
        for (int k = 0; k < 3; ++k)
            if (blocked(c, corner(f, k) * 0.8 + centroid(f) * 0.2, f))
                return false;
        return true;
    }

    Rec3D::CamInfo camInfo(size_t c) const
    {
        const qvsample::SampleCamera& s = scene.cameras[c];
        Rec3D::CamInfo info;
        const double K[9] = {s.fx, 0, s.cx, 0, s.fy, s.cy, 0, 0, 1};
        std::copy(K, K + 9, info.K);
        std::copy(s.R, s.R + 9, info.R);
        std::copy(s.t, s.t + 3, info.T);
        info.width = s.width;
        info.height = s.height;
        const std::string path = scratch.file("scene/photos/" + QString::fromStdString(s.name)).toStdString();
        std::strncpy(info.path, path.c_str(), sizeof info.path - 1);
        return info;
    }

    // Face number -> image id, from the texture meshes.
    std::map<long, long> assignment() const
    {
        std::map<long, long> out;
        ref_ptr<MeshArray> meshes;
        getMM()->getTexMeshes(meshes);
        for (const auto& m : meshes->vec()) {
            const UIntArray* t = m->getTriangleIndices();
            for (long i = 0; i + 2 < t->getCount(); i += 3) {
                auto it = faceOf.find(XTrip<unsigned>(t->getAt(i), t->getAt(i + 1), t->getAt(i + 2)).normalized());
                EXPECT_NE(it, faceOf.end());
                if (it != faceOf.end()) {
                    EXPECT_EQ(out.count(it->second), 0u) << "a face in two texture meshes";
                    out[it->second] = m->getImageId();
                }
            }
        }
        return out;
    }

    qvsample::SampleScene scene;
    ref_ptr<IKvoImageDb> db;
    std::vector<XPnt3f> verts;
    std::vector<unsigned> tris;
    std::map<XTrip<unsigned>, long> faceOf;
    std::map<long, size_t> cameraOf;
};

// Grazing views and occluders lying just in front of a face are where a
// depth-buffer test goes wrong; this scene has both (walls seen nearly
// edge-on, and ground faces hidden by a wall a hand's breadth in front).
TEST_F(BestImageOnSample, EveryFaceSeenWholeGetsAPhotographThatDoesNotHideIt)
{
    KvoBestImageReport rep;
    ASSERT_EQ(selBestImgForFace(nullptr, &rep), 0);
    EXPECT_EQ(rep.faces, faces());
    const std::map<long, long> given = assignment();
    EXPECT_EQ(long(given.size()), rep.textured);

    long seenSomewhere = 0, seenAndGiven = 0, hidden = 0;
    for (long f = 0; f < faces(); ++f) {
        bool seen = false;
        for (const auto& c : scene.cameras)
            if (seenWhole(c, f)) {
                seen = true;
                break;
            }
        auto it = given.find(f);
        seenSomewhere += seen;
        seenAndGiven += seen && it != given.end();
        if (it != given.end() && !seenAtCentre(scene.cameras[cameraOf.at(it->second)], f))
            ++hidden;
    }
    EXPECT_EQ(hidden, 0) << "faces given to a photograph that does not see them";
    ASSERT_GT(seenSomewhere, faces() / 2);
    const double share = double(seenAndGiven) / double(seenSomewhere);
    EXPECT_GE(share, 0.99);
    RecordProperty("share_of_seen_faces_textured", std::to_string(share));
    std::printf("faces %ld, seen whole somewhere %ld, textured %ld (%.2f %% of the seen), seams %ld\n", faces(),
                seenSomewhere, rep.textured, 100 * share, rep.seams);
}

// The UVs written for a photograph are its virtual camera's, and they are
// where the true camera puts each vertex.
TEST_F(BestImageOnSample, UVsAreTheVirtualCameraUVsAndTheTrueProjection)
{
    ASSERT_EQ(selBestImgForFace(nullptr, nullptr), 0);
    ref_ptr<MeshArray> meshes;
    getMM()->getTexMeshes(meshes);
    ASSERT_GT(meshes->getCount(), 1);
    for (const auto& m : meshes->vec()) {
        const long id = m->getImageId();
        ZebQVVCParam p;
        ASSERT_TRUE(getMM()->getVCParam(id, p));
        zebUI::_ZebVCMapParam_ frame;
        ASSERT_TRUE(calVCFrame(id, p, kvoVCFrameModel, frame));
        const KvoVCProjector projector(frame);
        const qvsample::SampleCamera& cam = scene.cameras[cameraOf.at(id)];
        double worstVc = 0, worstTrue = 0;
        for (unsigned v : m->getTriangleIndices()->vec()) {
            const XPnt2f uv = m->getUVs()->getAt(long(v));
            const XPnt3d X(verts[v].x, verts[v].y, verts[v].z);
            const XPnt2d vc = projector.uv(X);
            worstVc = std::max({worstVc, std::fabs(uv.x - vc.x), std::fabs(uv.y - vc.y)});
            XPnt2d px;
            ASSERT_TRUE(cam.project(X, px));
            const XPnt2d truth = pixelToUv(px.x, px.y, cam.width, cam.height);
            worstTrue = std::max({worstTrue, std::fabs(uv.x - truth.x), std::fabs(uv.y - truth.y)});
        }
        EXPECT_LT(worstVc, 2e-5) << "image " << id;
        EXPECT_LT(worstTrue, 1.0 / cam.width) << "image " << id;
    }
}

// A photograph whose camera came as a projection matrix that no centred square
// pinhole matches keeps DLT parameters: the selection must see and write
// through that camera itself, not through its virtual-camera approximation.
TEST_F(BestImageOnSample, KeptDltParametersAreTheCameraUsed)
{
    const long id = cameraOf.begin()->first;
    qvsample::SampleCamera skewed = scene.cameras[cameraOf.begin()->second];
    skewed.fx *= 1.08;
    skewed.cx += 25;
    skewed.cy -= 15;
    double P[12], L[11];
    skewed.projectionMatrix(P);
    ASSERT_TRUE(projectionToDlt(P, skewed.width, skewed.height, L));
    getMM()->setProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(id), L, long(sizeof L));

    ASSERT_EQ(selBestImgForFace(nullptr, nullptr), 0);
    ref_ptr<IKvoMesh> tex;
    getMM()->getTexMeshOfImage(tex, id);
    ASSERT_TRUE(tex);
    ref_ptr<IKvoImageInfo> info;
    db->getImageInfo(info, id);
    EXPECT_EQ(info->getMappingType(), 0) << "the image stays mapped by its DLT parameters";
    double worst = 0;
    const UIntArray* t = tex->getTriangleIndices();
    ASSERT_GT(t->getCount(), 0);
    for (unsigned v : t->vec()) {
        XPnt2d px;
        ASSERT_TRUE(skewed.project(XPnt3d(verts[v].x, verts[v].y, verts[v].z), px));
        const XPnt2d truth = pixelToUv(px.x, px.y, skewed.width, skewed.height);
        const XPnt2f uv = tex->getUVs()->getAt(long(v));
        worst = std::max({worst, std::fabs(uv.x - truth.x), std::fabs(uv.y - truth.y)});
    }
    EXPECT_LT(worst, 0.1 / skewed.width);
    long hidden = 0;
    for (long i = 0; i + 2 < t->getCount(); i += 3)
        hidden += !seenAtCentre(skewed,
                                faceOf.at(XTrip<unsigned>(t->getAt(i), t->getAt(i + 1), t->getAt(i + 2)).normalized()));
    EXPECT_EQ(hidden, 0);

    // Mapped since by its virtual camera, the image no longer answers to them.
    info->setMappingType(1);
    ASSERT_EQ(selBestImgForFace(nullptr, nullptr), 0);
    getMM()->getTexMeshOfImage(tex, id);
    ASSERT_TRUE(tex);
    EXPECT_EQ(info->getMappingType(), 1);
}

// The pixels judged are the ones the project holds, which camera import may
// have replaced by an undistorted picture not yet saved: a photograph whose
// pixels in the store are blank loses the faces that others show as well.
TEST_F(BestImageOnSample, ThePicturesJudgedAreTheProjectsPixels)
{
    ASSERT_EQ(selBestImgForFace(nullptr, nullptr), 0);
    std::map<long, long> before;
    for (const auto& e : assignment())
        ++before[e.second];
    const auto most = std::max_element(before.begin(), before.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; });
    const long id = most->first;
    const qvsample::SampleCamera& cam = scene.cameras[cameraOf.at(id)];
    ref_ptr<IKvoImage> blank = newKvoImage();
    ASSERT_TRUE(blank->setMat(cv::Mat(cam.height, cam.width, CV_8UC3, cv::Scalar(128, 128, 128))));
    ASSERT_EQ(db->setTexture(blank, id, 2), kvoOk);

    ASSERT_EQ(selBestImgForFace(nullptr, nullptr), 0);
    long after = 0;
    for (const auto& e : assignment())
        after += e.second == id;
    std::printf("image %ld: %ld faces with its photograph, %ld with blank pixels\n", id, most->second, after);
    EXPECT_LT(after, most->second / 2);
}

// The smoothness term: markedly fewer seams than each face's own best view,
// for a small rise of the data term.
TEST_F(BestImageOnSample, FewerSeamsThanTheGreedyChoiceAtALittleDataCost)
{
    std::vector<Rec3D::CamInfo> cams;
    for (size_t c = 0; c < scene.cameras.size(); ++c)
        cams.push_back(camInfo(c));
    std::vector<float> xyz;
    for (const XPnt3f& p : verts)
        xyz.insert(xyz.end(), {p.x, p.y, p.z});
    Rec3D::RecMesh::ViewSelectionOptions greedyOptions;
    greedyOptions.optimise = false;
    std::vector<int> greedy, cut;
    Rec3D::RecMesh::ViewSelectionStats g, c;
    ASSERT_EQ(Rec3D::RecMesh::selectViews(xyz.data(), long(verts.size()), tris.data(), faces(), cams, greedyOptions,
                                          greedy, &g, nullptr),
              0);
    ASSERT_EQ(Rec3D::RecMesh::selectViews(xyz.data(), long(verts.size()), tris.data(), faces(), cams,
                                          Rec3D::RecMesh::ViewSelectionOptions(), cut, &c, nullptr),
              0);
    std::printf("greedy: %ld seams, mean data cost %.2f; graph cut: %ld seams, mean data cost %.2f\n", g.seams,
                g.meanDataCost, c.seams, c.meanDataCost);
    EXPECT_EQ(c.textured, g.textured) << "the smoothness term must not leave seen faces bare";
    EXPECT_LE(double(c.seams), 0.7 * double(g.seams));
    EXPECT_LE(c.meanDataCost, 1.1 * g.meanDataCost + 1e-9);
    RecordProperty("seams_greedy", std::to_string(g.seams));
    RecordProperty("seams_cut", std::to_string(c.seams));
}

// Column-major GL matrices of a computer-vision camera, for the test's own
// rendering.
void glOf(const qvsample::SampleCamera& c, double mv[16], double pr[16], double n, double f)
{
    std::fill(mv, mv + 16, 0.0);
    std::fill(pr, pr + 16, 0.0);
    const double flip[3] = {1, -1, -1};
    for (int r = 0; r < 3; ++r) {
        for (int k = 0; k < 3; ++k)
            mv[k * 4 + r] = flip[r] * c.R[3 * r + k];
        mv[12 + r] = flip[r] * c.t[r];
    }
    mv[15] = 1;
    pr[0] = 2 * c.fx / c.width;
    pr[8] = 1 - 2 * c.cx / c.width;
    pr[5] = 2 * c.fy / c.height;
    pr[9] = 2 * c.cy / c.height - 1;
    pr[10] = -(f + n) / (f - n);
    pr[14] = -2 * f * n / (f - n);
    pr[11] = -1;
}

// The textured model rendered from each photograph's camera against the
// photograph, after matching each channel's mean.
TEST_F(BestImageOnSample, ReRenderedModelMatchesEachPhotograph)
{
    ASSERT_EQ(selBestImgForFace(nullptr, nullptr), 0);
    ref_ptr<MeshArray> meshes;
    getMM()->getTexMeshes(meshes);
    std::map<long, ref_ptr<IKvoMesh>> meshOfFace;
    std::map<long, ref_ptr<IKvoImage>> pictures;
    for (const auto& m : meshes->vec()) {
        const UIntArray* t = m->getTriangleIndices();
        for (long i = 0; i + 2 < t->getCount(); i += 3)
            meshOfFace[faceOf.at(XTrip<unsigned>(t->getAt(i), t->getAt(i + 1), t->getAt(i + 2)).normalized())] = m;
        ref_ptr<IKvoImage> pic;
        db->getTexture(pic, m->getImageId(), 2);
        pictures[m->getImageId()] = pic;
    }
    double worst = 1e9;
    for (const auto& e : cameraOf) {
        const qvsample::SampleCamera& cam = scene.cameras[e.second];
        QImage photo(scratch.file("scene/photos/" + QString::fromStdString(cam.name)));
        ASSERT_FALSE(photo.isNull());
        photo = photo.convertToFormat(QImage::Format_RGB888);
        double mv[16], pr[16];
        glOf(cam, mv, pr, 0.05, 1000);
        KvoRasterizer r;
        r.setCamera(mv, pr, cam.width, cam.height);
        r.draw(verts.data(), long(verts.size()), tris.data(), faces(), 0, false);
        std::vector<double> a, b; // rendered, photograph: three a pixel
        const XPnt3d C = cam.center();
        for (int y = 0; y < cam.height; ++y)
            for (int x = 0; x < cam.width; ++x) {
                const KvoRasterizer::Hit hit = r.triangleAt(x, y);
                if (!hit.valid())
                    continue;
                auto it = meshOfFace.find(hit.face);
                if (it == meshOfFace.end())
                    continue;
                // The pixel's ray meets the face at barycentric (1 - s - t, s, t).
                const double cx = (x + 0.5 - cam.cx) / cam.fx, cy = (y + 0.5 - cam.cy) / cam.fy;
                const V3 d{cam.R[0] * cx + cam.R[3] * cy + cam.R[6], cam.R[1] * cx + cam.R[4] * cy + cam.R[7],
                           cam.R[2] * cx + cam.R[5] * cy + cam.R[8]};
                const V3 o{C.x, C.y, C.z}, p0 = corner(hit.face, 0), e1 = corner(hit.face, 1) - p0,
                                           e2 = corner(hit.face, 2) - p0;
                const V3 h = cross(d, e2);
                const double det = dot(e1, h);
                if (std::fabs(det) < 1e-12)
                    continue;
                const V3 s0 = o - p0;
                const double s = dot(s0, h) / det, t = dot(d, cross(s0, e1)) / det;
                const Pnt2fArray* uvs = it->second->getUVs();
                double u = 0, v = 0;
                const double w[3] = {1 - s - t, s, t};
                for (int k = 0; k < 3; ++k) {
                    const XPnt2f q = uvs->getAt(long(tris[size_t(3 * hit.face + k)]));
                    u += w[k] * q.x;
                    v += w[k] * q.y;
                }
                const IKvoImage& pic = *pictures[it->second->getImageId()];
                const XPnt2d px = uvToPixel(u, v, double(pic.getWidth()), double(pic.getHeight()));
                const long ix = std::min(pic.getWidth() - 1, std::max(0L, long(px.x)));
                const long iy = std::min(pic.getHeight() - 1, std::max(0L, long(px.y)));
                const uint8_t* src = pic.getData() + iy * pic.getStride() + ix * 4;
                const uchar* ph = photo.constScanLine(y) + 3 * x;
                // Pictures are RGBA in memory.
                a.insert(a.end(), {double(src[0]), double(src[1]), double(src[2])});
                b.insert(b.end(), {double(ph[0]), double(ph[1]), double(ph[2])});
            }
        ASSERT_GT(a.size(), 3000u);
        double gain[3];
        for (int k = 0; k < 3; ++k) {
            double sa = 0, sb = 0;
            for (size_t i = size_t(k); i < a.size(); i += 3) {
                sa += a[i];
                sb += b[i];
            }
            gain[k] = sa > 0 ? sb / sa : 1;
        }
        double mse = 0;
        for (size_t i = 0; i < a.size(); ++i) {
            const double d = std::min(255.0, a[i] * gain[i % 3]) - b[i];
            mse += d * d;
        }
        mse /= double(a.size());
        const double psnr = 10 * std::log10(255.0 * 255.0 / std::max(mse, 1e-9));
        std::printf("photograph %s: PSNR %.2f dB over %zu pixels\n", cam.name.c_str(), psnr, a.size() / 3);
        RecordProperty("psnr_" + cam.name, std::to_string(psnr));
        worst = std::min(worst, psnr);
    }
    EXPECT_GT(worst, 23.0);
}

// Faces are numbered by their place in the list, whatever the mesh's
// topology: an edge shared by three faces and a face repeated change nothing.
TEST(ViewSelection, FaceNumbersArePlacesInTheListEvenWithOddTopology)
{
    // A 10 x 10 grid in z = 0 seen from above, plus a fin on one edge and a
    // repeated face.
    std::vector<Rec3D::meshPoint3<float>> v;
    std::vector<Rec3D::meshPoint3<long>> f;
    for (int y = 0; y <= 10; ++y)
        for (int x = 0; x <= 10; ++x)
            v.push_back({float(x), float(y), 0.f});
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 10; ++x) {
            const long a = y * 11 + x, b = a + 1, c = a + 11, d = c + 1;
            f.push_back({a, b, d});
            f.push_back({a, d, c});
        }
    v.push_back({0.5f, 0.f, -1.f});
    f.push_back({0, 1, long(v.size() - 1)}); // a fin below the grid: hidden from above
    f.push_back(f[7]);                       // the same face once more
    Rec3D::CamInfo cam;
    const double K[9] = {400, 0, 320, 0, 400, 240, 0, 0, 1};
    const double R[9] = {1, 0, 0, 0, -1, 0, 0, 0, -1}; // looking down -z, image y along -y
    std::copy(K, K + 9, cam.K);
    std::copy(R, R + 9, cam.R);
    cam.T[0] = -5;
    cam.T[1] = 5;
    cam.T[2] = 20;
    cam.width = 640;
    cam.height = 480;
    cam.id = 7;
    std::map<uint16_t, Rec3D::CamInfo> images{{7, cam}};
    std::map<uint16_t, std::vector<int32_t>> out;
    ASSERT_EQ(Rec3D::RecMesh::selBestImgForFace(v, f, images, out), 0);
    ASSERT_EQ(out.size(), 1u);
    std::vector<int32_t> want;
    for (int32_t i = 0; i < 200; ++i)
        want.push_back(i);
    // The repeated face is hidden by its twin at equal depth or seen with it;
    // the fin is seen edge-on from above at most, and never whole.
    std::vector<int32_t> got = out[7];
    got.erase(std::remove(got.begin(), got.end(), int32_t(f.size() - 1)), got.end());
    EXPECT_EQ(got, want);
    EXPECT_EQ(std::count(out[7].begin(), out[7].end(), int32_t(200)), 0);

    // Bad indices are refused.
    f.push_back({0, 1, 9999});
    EXPECT_EQ(Rec3D::RecMesh::selBestImgForFace(v, f, images, out), -1);
}

} // namespace

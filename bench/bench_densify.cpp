// The refinement of a DLT mapping through 200 control points on a model of a
// million vertices: triangulation, one affine a triangle, and a walk for
// every vertex. Target: under 1 s on this machine.

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>

#include <cmath>
#include <random>

#include "mapping/KvoDlt.h"
#include "mapping/KvoMapping.h"
#include "scene/KvoFile.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace {

void BM_DensifyDlt200PointsMillionVertices(benchmark::State& state)
{
    QTemporaryDir dir(QDir(getWorkFolder()).filePath("bench-densify-XXXXXX"));
    IKvoMM* mm = getMM();
    mm->newProject(dir.filePath("d.qvj"));
    // A facade of 1000 x 1000 vertices in the plane y = 0.
    ref_ptr<IKvoModel> model = newKvoModel();
    ref_ptr<Pnt3fArray> v = newPnt3fArray();
    ref_ptr<UIntArray> t = newUIntArray();
    const int n = 1000;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i)
            v->append(XPnt3f(float(i) * 0.02f - 10, float(std::sin(i * 0.01) * 0.3), float(j) * 0.015f));
    for (int j = 0; j + 1 < n; ++j)
        for (int i = 0; i + 1 < n; ++i) {
            const unsigned a = unsigned(j * n + i), b = a + 1, c = a + unsigned(n) + 1, d = a + unsigned(n);
            t->vec().insert(t->vec().end(), {a, b, c, a, c, d});
        }
    model->setVertices(v.get(), true);
    ref_ptr<IKvoMesh> mesh = model->newMesh(-1, false);
    mesh->setTriangleIndices(t.get(), true);
    model->addMesh(mesh);
    mm->setBareModel(model);
    ref_ptr<IKvoImage> img = newKvoImage();
    img->create(2000, 1500, KvoColor4b(100, 100, 100, 255));
    img->saveFile(dir.filePath("photo.jpg"), 80);
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    mm->getProject(project)->getImageDb(db);
    long id = -1;
    db->addImage(dir.filePath("photo.jpg"), id);
    mm->setActiveImageId(id);
    // A camera in front of the facade as 11 parameters; 200 control points
    // at model points, measured a little off their projection.
    const double L[11] = {-0.045, 0.0, 0.0, -0.5, 0.0, 0.0, -0.066, -0.5, 0.0, 0.05, 0.0};
    mm->setProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(id), L, sizeof L);
    ref_ptr<IKvoImageInfo> info;
    db->getImageInfo(info, id);
    std::mt19937 rng(3);
    std::uniform_int_distribution<int> pick(0, n * n - 1);
    std::uniform_real_distribution<double> jitter(-0.001, 0.001);
    for (int k = 0; k < 200; ++k) {
        const XPnt3f p = v->getAt(pick(rng));
        const XPnt2d q = camWorldPntToImgPos(L, p.x, p.y, p.z);
        info->addCtrlImagePnt(XPnt2d(q.x + jitter(rng), q.y + jitter(rng)));
        info->addCtrlWorldPnt(XPnt3d(p.x, p.y, p.z));
    }
    bool reserved = false;
    double Lm[11];
    std::copy(L, L + 11, Lm);
    DLTMapping(Lm, false, false, false, reserved, nullptr);
    long rc = 0;
    for (auto _ : state)
        rc = updateDensifyDLTMapping();
    state.counters["result"] = double(rc);
    state.counters["vertices"] = double(n) * n;
    mm->closeProject();
}

} // namespace

BENCHMARK(BM_DensifyDlt200PointsMillionVertices)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

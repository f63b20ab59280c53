// Mapping a photograph through a virtual camera onto a model of a million
// triangles, with hidden triangles removed: the whole VCMapping call.
// Target: under 1 s on this machine.

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>

#include <cmath>

#include "camera/KvoVirtualCamera.h"
#include "scene/KvoFile.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace {

struct Setup {
    QTemporaryDir dir{QDir(getWorkFolder()).filePath("bench-vc-XXXXXX")};
    long imageId = -1;
    Setup()
    {
        IKvoMM* mm = getMM();
        mm->newProject(dir.filePath("vc.qvj"));
        ref_ptr<IKvoModel> model = newKvoModel();
        ref_ptr<Pnt3fArray> v = newPnt3fArray();
        ref_ptr<UIntArray> t = newUIntArray();
        const int n = 707; // 2 * 707^2 triangles: about a million
        for (int j = 0; j <= n; ++j)
            for (int i = 0; i <= n; ++i) {
                const float x = float(i) / n * 100 - 50, z = float(j) / n * 60;
                v->append(XPnt3f(x, float(2 * std::sin(x * 0.4) * std::cos(z * 0.3)), z));
            }
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                const unsigned a = unsigned(j * (n + 1) + i), b = a + 1, c = a + unsigned(n) + 2,
                               d = a + unsigned(n) + 1;
                t->vec().insert(t->vec().end(), {a, b, c, a, c, d});
            }
        model->setVertices(v.get(), true);
        ref_ptr<IKvoMesh> mesh = model->newMesh(-1, false);
        mesh->setTriangleIndices(t.get(), true);
        model->addMesh(mesh);
        mm->setBareModel(model);
        ref_ptr<IKvoImage> img = newKvoImage();
        img->create(2000, 1500, KvoColor4b(120, 90, 60, 255));
        img->saveFile(dir.filePath("photo.jpg"), 90);
        ref_ptr<IKvoProject> project;
        ref_ptr<IKvoImageDb> db;
        mm->getProject(project)->getImageDb(db);
        db->addImage(dir.filePath("photo.jpg"), imageId);
        mm->setActiveImageId(imageId);
    }
    ~Setup() { getMM()->closeProject(); }
};

void BM_VCMappingMillionTriangles(benchmark::State& state)
{
    Setup setup;
    ZebQVVCParam p;
    p.eye = XPnt3d(5, -60, 35);
    p.center = XPnt3d(0, 0, 30);
    p.up = XPnt3d(0, 0, 1);
    p.fovY = 40;
    p.zoom = 1;
    zebUI::_ZebVCMapParam_ frame;
    calVCFrame(setup.imageId, p, kvoVCFrameModel, frame);
    long faces = 0;
    for (auto _ : state) {
        VCMapping(p, frame, false, false, true, nullptr);
        ref_ptr<IKvoMesh> mesh;
        getMM()->getTexMeshOfImage(mesh, setup.imageId);
        faces = mesh ? mesh->getFaceCount() : 0;
    }
    state.counters["mapped_triangles"] = double(faces);
}

} // namespace

BENCHMARK(BM_VCMappingMillionTriangles)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

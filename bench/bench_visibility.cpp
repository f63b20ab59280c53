// Visibility of a mesh of a million triangles at 2000 x 1500: our CPU engine
// (depth and triangle buffers) next to Mesa's llvmpipe drawing the same
// triangles off-screen and reading the depth buffer back, in the same run.
// Target: at least as fast.

#include <benchmark/benchmark.h>

#include <GL/gl.h>
#include <GL/osmesa.h>

#include <cmath>
#include <vector>

#include "platform/KvoCameraMath.h"
#include "platform/KvoRasterizer.h"

using namespace kvo;

namespace {

constexpr int kW = 2000, kH = 1500;

// A rolling terrain of 2 * 707^2 (about a million) triangles and a camera above it.
struct Mesh {
    std::vector<XPnt3f> v;
    std::vector<unsigned> t;
    double mv[16], pr[16];
};

const Mesh& mesh()
{
    static Mesh m = [] {
        Mesh m;
        const int n = 707;
        for (int j = 0; j <= n; ++j)
            for (int i = 0; i <= n; ++i) {
                const float x = float(i) / n * 100 - 50, y = float(j) / n * 100 - 50;
                m.v.emplace_back(x, y, float(3 * std::sin(x * 0.3) * std::cos(y * 0.2)));
            }
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                const unsigned a = unsigned(j * (n + 1) + i), b = a + 1, c = a + unsigned(n) + 2,
                               d = a + unsigned(n) + 1;
                m.t.insert(m.t.end(), {a, b, c, a, c, d});
            }
        lookAtMatrix(XPnt3d(0, -70, 45), XPnt3d(0, 0, 0), XPnt3d(0, 0, 1), m.mv);
        perspectiveMatrix(45, double(kW) / kH, 10, 200, m.pr);
        return m;
    }();
    return m;
}

void BM_CpuEngine(benchmark::State& state)
{
    const Mesh& m = mesh();
    KvoRasterizer r;
    for (auto _ : state) {
        r.setCamera(m.mv, m.pr, kW, kH);
        r.draw(m.v.data(), long(m.v.size()), m.t.data(), long(m.t.size() / 3), 0, true);
        benchmark::DoNotOptimize(r.depthBuffer());
    }
    state.counters["triangles"] = double(m.t.size() / 3);
}

void BM_MesaLlvmpipe(benchmark::State& state)
{
    const Mesh& m = mesh();
    OSMesaContext ctx = OSMesaCreateContextExt(OSMESA_RGBA, 24, 0, 0, nullptr);
    std::vector<unsigned char> colour(size_t(kW) * kH * 4);
    std::vector<float> depth(size_t(kW) * kH);
    if (!ctx || !OSMesaMakeCurrent(ctx, colour.data(), GL_UNSIGNED_BYTE, kW, kH)) {
        state.SkipWithError("no off-screen context");
        return;
    }
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_CULL_FACE);
    glCullFace(GL_BACK);
    glMatrixMode(GL_PROJECTION);
    glLoadMatrixd(m.pr);
    glMatrixMode(GL_MODELVIEW);
    glLoadMatrixd(m.mv);
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(3, GL_FLOAT, 0, m.v.data());
    for (auto _ : state) {
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        glDrawElements(GL_TRIANGLES, GLsizei(m.t.size()), GL_UNSIGNED_INT, m.t.data());
        glReadPixels(0, 0, kW, kH, GL_DEPTH_COMPONENT, GL_FLOAT, depth.data());
        benchmark::DoNotOptimize(depth.data());
    }
    glDisableClientState(GL_VERTEX_ARRAY);
    OSMesaDestroyContext(ctx);
}

} // namespace

BENCHMARK(BM_CpuEngine)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MesaLlvmpipe)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();

// The UV layout of a reconstructed-looking surface of a million faces (a
// noisy relief, so charts are many and ragged) on sheets of 4096: time, and
// the charts, sheets and packing efficiency it reaches. The reference in the
// same run is the same layout on a flat grid of the same size, where one
// chart covers everything and only the bookkeeping costs.

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "scene/KvoUVAtlas.h"

namespace {

struct Surface {
    std::vector<XPnt3f> v;
    std::vector<unsigned> t;
};

Surface relief(int n, float amplitude)
{
    Surface s;
    std::mt19937 rng(11);
    std::normal_distribution<float> noise(0.f, 0.005f * amplitude);
    for (int y = 0; y <= n; ++y)
        for (int x = 0; x <= n; ++x)
            s.v.emplace_back(float(x) * 0.01f, float(y) * 0.01f,
                             amplitude * (std::sin(x * 0.05f) * std::cos(y * 0.03f) + noise(rng)));
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
            const unsigned a = unsigned(y * (n + 1) + x), b = a + 1, c = a + unsigned(n + 1), d = c + 1;
            s.t.insert(s.t.end(), {a, b, d, a, d, c});
        }
    return s;
}

void runLayout(benchmark::State& state, const Surface& s)
{
    Rec3D::RecMesh::KvoUVLayout layout;
    for (auto _ : state) {
        const long r = Rec3D::RecMesh::calUVForMesh(s.v.data(), long(s.v.size()), s.t.data(), long(s.t.size() / 3),
                                                    4096, 5, 1000, nullptr, layout, nullptr);
        if (r != 0)
            state.SkipWithError("layout failed");
    }
    state.counters["faces"] = double(s.t.size() / 3);
    state.counters["charts"] = double(layout.chartCount);
    state.counters["sheets"] = double(layout.sheetCount);
    state.counters["efficiency"] = layout.efficiency;
}

void BM_LayoutMillionFacesRelief(benchmark::State& state)
{
    static const Surface s = relief(708, 0.4f);
    runLayout(state, s);
}

void BM_LayoutMillionFacesFlatReference(benchmark::State& state)
{
    static const Surface s = relief(708, 0.f);
    runLayout(state, s);
}

} // namespace

BENCHMARK(BM_LayoutMillionFacesFlatReference)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_LayoutMillionFacesRelief)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_MAIN();

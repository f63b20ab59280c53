// DLT fits: the plain least-squares fit on 10,000 pairs next to OpenCV's SVD
// solve of the same 2n x 11 system (the fit should be no slower), and the
// robust fit on 1,000 pairs of which a fifth are gross outliers (target:
// under 10 ms).

#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>

#include <cmath>
#include <random>
#include <vector>

#include "mapping/KvoDlt.h"

using namespace kvo;

namespace {

struct Pairs {
    std::vector<XPnt3d> world;
    std::vector<XPnt2d> image;
};

// Projections of random points by a fixed camera, with a share of them moved
// far away.
Pairs makePairs(int n, double outlierShare)
{
    // L of a camera 30 m south of the origin looking north.
    const double L[11] = {-0.9, 0.1, 0.05, -0.5, 0.02, 0.05, -1.0, -0.45, 0.01, 0.032, 0.002};
    std::mt19937 rng(42);
    std::uniform_real_distribution<double> d(-5, 5), noise(-0.0001, 0.0001), jump(0.05, 0.3);
    Pairs p;
    while (int(p.world.size()) < n) {
        const XPnt3d X(d(rng), d(rng), d(rng) + 5);
        XPnt2d u = camWorldPntToImgPos(L, X.x, X.y, X.z);
        if (!u.isValid())
            continue;
        u.x += noise(rng);
        u.y += noise(rng);
        if (double(p.world.size() % 100) < outlierShare * 100)
            u.x += jump(rng);
        p.world.push_back(X);
        p.image.push_back(u);
    }
    return p;
}

void BM_DltSimple(benchmark::State& state)
{
    Pairs p = makePairs(int(state.range(0)), 0);
    double L[11];
    for (auto _ : state) {
        benchmark::DoNotOptimize(DLTSimple(p.world, p.image, L));
        benchmark::ClobberMemory();
    }
}

// The reference: build the same system and let OpenCV solve it by SVD.
void BM_OpenCvSvdSolve(benchmark::State& state)
{
    Pairs p = makePairs(int(state.range(0)), 0);
    const int n = int(p.world.size());
    for (auto _ : state) {
        cv::Mat A(2 * n, 11, CV_64F), b(2 * n, 1, CV_64F), x;
        for (int i = 0; i < n; ++i) {
            const double X = p.world[size_t(i)].x, Y = p.world[size_t(i)].y, Z = p.world[size_t(i)].z;
            const double u = p.image[size_t(i)].x, v = p.image[size_t(i)].y;
            double* r0 = A.ptr<double>(2 * i);
            double* r1 = A.ptr<double>(2 * i + 1);
            const double a0[11] = {X, Y, Z, 1, 0, 0, 0, 0, u * X, u * Y, u * Z};
            const double a1[11] = {0, 0, 0, 0, X, Y, Z, 1, v * X, v * Y, v * Z};
            std::copy(a0, a0 + 11, r0);
            std::copy(a1, a1 + 11, r1);
            b.at<double>(2 * i) = -u;
            b.at<double>(2 * i + 1) = -v;
        }
        cv::solve(A, b, x, cv::DECOMP_SVD);
        benchmark::DoNotOptimize(x.data);
    }
}

void BM_DltRobust(benchmark::State& state)
{
    Pairs p = makePairs(int(state.range(0)), 0.2);
    double L[11];
    setDltRandomSeed(7);
    double r = 0;
    for (auto _ : state) {
        r = DLTRobust(p.world, p.image, L, PT2<long>(4000, 3000));
        benchmark::DoNotOptimize(r);
    }
    state.counters["residual_px"] = r;
    clearDltRandomSeed();
}

} // namespace

BENCHMARK(BM_DltSimple)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_OpenCvSvdSolve)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DltRobust)->Arg(1000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

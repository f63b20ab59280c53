// Reading a large OBJ file into a model, against tinyobjloader reading the same
// file in the same run. The file (a torus of 1000 x 1000 vertices with as many
// texture coordinates and 2,000,000 triangles, about 130 MB) is written once per
// run; both readers then find it in the page cache. Peak memory is the growth
// of the resident set during one import (VmHWM after /proc/self/clear_refs "5"),
// compared with the bytes of the model that the import leaves.

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include <tiny_obj_loader.h>

#include "BenchSupport.h"
#include "modelio/KvoObjModelBuild.h"
#include "scene/KvoFile.h"

using namespace kvo;

namespace {

constexpr int kSide = 1000; // vertices per ring and rings

QString benchFile()
{
    static QString path;
    if (!path.isEmpty())
        return path;
    const QString folder = getWorkFolder() + "/bench-obj";
    QDir().mkpath(folder);
    path = folder + "/torus-2m.obj";
    std::FILE* f = std::fopen(QFile::encodeName(path).constData(), "wb");
    if (!f)
        return path;
    std::string buf;
    buf.reserve(1 << 22);
    char num[64];
    auto put = [&](double v) {
        auto r = std::to_chars(num, num + sizeof(num), v, std::chars_format::fixed, 6);
        buf.append(num, r.ptr);
    };
    auto flush = [&](bool force) {
        if (force || buf.size() > (1u << 21)) {
            std::fwrite(buf.data(), 1, buf.size(), f);
            buf.clear();
        }
    };
    buf += "# torus for the import benchmark\no torus\n";
    for (int i = 0; i < kSide; ++i)
        for (int j = 0; j < kSide; ++j) {
            const double u = 2 * M_PI * i / kSide, w = 2 * M_PI * j / kSide;
            buf += "v ";
            put((10 + 3 * std::cos(w)) * std::cos(u));
            buf += ' ';
            put((10 + 3 * std::cos(w)) * std::sin(u));
            buf += ' ';
            put(3 * std::sin(w));
            buf += '\n';
            flush(false);
        }
    for (int i = 0; i < kSide; ++i)
        for (int j = 0; j < kSide; ++j) {
            buf += "vt ";
            put(double(i) / kSide);
            buf += ' ';
            put(double(j) / kSide);
            buf += '\n';
            flush(false);
        }
    auto corner = [&](int i, int j) {
        const int k = (i % kSide) * kSide + (j % kSide) + 1;
        auto r = std::to_chars(num, num + sizeof(num), k);
        buf.append(num, r.ptr);
        buf += '/';
        buf.append(num, r.ptr);
    };
    for (int i = 0; i < kSide; ++i)
        for (int j = 0; j < kSide; ++j) {
            buf += "f ";
            corner(i, j);
            buf += ' ';
            corner(i + 1, j);
            buf += ' ';
            corner(i + 1, j + 1);
            buf += "\nf ";
            corner(i, j);
            buf += ' ';
            corner(i + 1, j + 1);
            buf += ' ';
            corner(i, j + 1);
            buf += '\n';
            flush(false);
        }
    flush(true);
    std::fclose(f);
    return path;
}

// Starts a fresh peak: the high-water mark falls back to the present resident set.
long resetPeak()
{
    qvbench::resetPeakMemory();
    return qvbench::statusKb("VmRSS");
}

double modelBytes(const IKvoModel& m)
{
    double bytes = double(m.getVertexCount()) * sizeof(XPnt3f);
    if (m.getTexCoords())
        bytes += double(m.getTexCoords()->getCount()) * sizeof(XPnt2f);
    if (m.getVertexNormals())
        bytes += double(m.getVertexNormals()->getCount()) * sizeof(XPnt3f);
    for (long i = 0; i < m.getMeshCount(); ++i) {
        ref_ptr<IKvoMesh> mesh = m.getMesh(i);
        bytes += double(mesh->getTriangleIndices()->getCount()) * sizeof(unsigned);
        bytes += double(mesh->getFaceNormals()->getCount()) * sizeof(XPnt3f);
    }
    return bytes;
}

double g_quovaraSeconds = 0, g_tinySeconds = 0, g_peakRatio = 0;

void BM_QuovaraReadAndBuild(benchmark::State& state)
{
    const QString file = benchFile();
    double seconds = 1e30, ratio = 0;
    for (auto _ : state) {
        const long base = resetPeak();
        const auto t0 = std::chrono::steady_clock::now();
        ref_ptr<IKvoModel> model = newKvoModel();
        QvObjModel obj;
        unsigned images = 0;
        const long rc = buildModelFromObj(file, model, obj, images, nullptr);
        const auto t1 = std::chrono::steady_clock::now();
        const long peak = qvbench::statusKb("VmHWM") - base;
        if (rc != 0 || model->getMeshCount() != 1 || model->getMesh(0)->getFaceCount() != 2 * kSide * kSide) {
            state.SkipWithError("the import did not give the whole model");
            return;
        }
        seconds = std::min(seconds, std::chrono::duration<double>(t1 - t0).count());
        ratio = std::max(ratio, peak * 1024.0 / modelBytes(*model));
        state.counters["model_MB"] = modelBytes(*model) / 1e6;
        state.counters["peak_MB"] = peak / 1024.0;
    }
    state.counters["peak_over_model"] = ratio;
    g_quovaraSeconds = seconds;
    g_peakRatio = ratio;
}

void BM_TinyObjLoader(benchmark::State& state)
{
    const QString file = benchFile();
    double seconds = 1e30;
    for (auto _ : state) {
        const long base = resetPeak();
        const auto t0 = std::chrono::steady_clock::now();
        tinyobj::attrib_t attrib;
        std::vector<tinyobj::shape_t> shapes;
        std::vector<tinyobj::material_t> materials;
        std::string warn, err;
        // Its fastest settings: no vertex colours made up for a file without them.
        const bool ok = tinyobj::LoadObj(&attrib, &shapes, &materials, &warn, &err, QFile::encodeName(file).constData(),
                                         nullptr, true, false);
        const auto t1 = std::chrono::steady_clock::now();
        const long peak = qvbench::statusKb("VmHWM") - base;
        size_t faces = 0;
        for (auto& s : shapes)
            faces += s.mesh.num_face_vertices.size();
        if (!ok || faces != size_t(2 * kSide * kSide) || attrib.vertices.size() != size_t(3 * kSide * kSide)) {
            state.SkipWithError("tinyobjloader did not read the whole file");
            return;
        }
        seconds = std::min(seconds, std::chrono::duration<double>(t1 - t0).count());
        state.counters["peak_MB"] = peak / 1024.0;
    }
    g_tinySeconds = seconds;
}

BENCHMARK(BM_QuovaraReadAndBuild)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_TinyObjLoader)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    const QString file = benchFile();
    std::printf("OBJ file: %s (%.1f MB)\n", qPrintable(file), QFileInfo(file).size() / 1e6);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (g_quovaraSeconds > 0 && g_tinySeconds > 0)
        std::printf("Best of 3: readObjFile + buildModelFromObj %.3f s, tinyobjloader %.3f s: %.2fx faster "
                    "(target 3x); peak memory %.2fx the model (target 2x)\n",
                    g_quovaraSeconds, g_tinySeconds, g_tinySeconds / g_quovaraSeconds, g_peakRatio);
    QFile::remove(file);
    return 0;
}

// Saving and reopening a project of a million triangles, against the floor set
// by writing and reading the same arrays as one plain binary file in the same
// folder. The ratios printed at the end are what matter: the project file may
// cost more than raw I/O (it is a transactional database), but not a lot more.

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <vector>

#include <unistd.h>

#include "platform/KvoSampleScene.h"
#include "scene/KvoFile.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace {

// 2 * 600^2 ground triangles plus 10 * 167^2 on the block: 998,890 in all.
constexpr int kGroundCells = 600;
constexpr int kFacadeCells = 167;
constexpr int kPhotoCount = 20;
constexpr int kPhotosWithControlPoints = 4;

// One array of the scene as it lies in memory.
struct RawArray {
    const void* data;
    size_t bytes;
};

struct Scene {
    QString folder;
    QString projectFile;
    QString rawFile;
    // Held so that the raw arrays stay valid while the project is reopened.
    ref_ptr<IKvoModel> model;
    long vertices = 0;
    long modelTriangles = 0;  // of the bare meshes
    long storedTriangles = 0; // of every mesh, texture meshes included
    std::vector<RawArray> arrays;
    size_t payloadBytes = 0;
};

Scene g_scene;

// Wall time of each timed iteration, kept apart from the library's own
// bookkeeping so the ratios come out the same whatever reporter is chosen.
struct Timings {
    double totalMs = 0;
    double minMs = 0;
    long count = 0;
    void add(double ms)
    {
        minMs = count == 0 ? ms : std::min(minMs, ms);
        totalMs += ms;
        ++count;
    }
    double meanMs() const { return count ? totalMs / double(count) : 0; }
};

Timings g_save, g_open, g_rawWrite, g_rawRead;

using Clock = std::chrono::steady_clock;
double msSince(Clock::time_point t0)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
}

qint64 fileSize(const QString& path)
{
    return QFileInfo(path).size();
}

template <class T> void addArray(std::vector<RawArray>& out, const KvoArray<T>* a)
{
    if (a && a->getCount() > 0)
        out.push_back({a->getData(), size_t(a->getCount()) * sizeof(T)});
}

// The arrays the project file stores, in the order it writes them, so that the
// raw file carries exactly the same payload.
std::vector<RawArray> collectArrays(const IKvoModel& model)
{
    std::vector<RawArray> out;
    addArray(out, model.getVertices());
    addArray(out, model.getVertexNormals());
    addArray(out, model.getTexCoords());
    for (long i = 0, n = model.getMeshCount(); i < n; ++i) {
        ref_ptr<IKvoMesh> m = model.getMesh(i);
        addArray(out, m->getTriangleIndices());
        addArray(out, m->getFaceNormals());
        addArray(out, m->getUVs());
        addArray(out, m->getCornerTexIndices());
        addArray(out, m->getSelMarks());
    }
    return out;
}

// A texture mesh over the chosen faces of a bare mesh, with one UV a model
// vertex, as planar mapping leaves it.
void addTexMesh(IKvoMM* mm, IKvoImageDb* db, long imageId, const ref_ptr<IKvoMesh>& from, bool (*keep)(const XPnt3f&),
                XPnt2f (*uvOf)(const XPnt3f&))
{
    ref_ptr<IKvoModel> model;
    mm->getBareModel(model);
    ref_ptr<IKvoMesh> tex;
    mm->createTexMesh(tex, false, imageId, false);
    const XPnt3f* v = model->getVertices()->getData();
    const long nv = model->getVertexCount();

    const unsigned* src = from->getTriangleIndices()->getData();
    ref_ptr<UIntArray> tris = newUIntArray();
    tris->reserve(from->getFaceCount() * 3);
    for (long f = 0, n = from->getFaceCount(); f < n; ++f) {
        const unsigned* t = src + 3 * f;
        const XPnt3f centre = (v[t[0]] + v[t[1]] + v[t[2]]) * (1.f / 3.f);
        if (keep(centre))
            for (int k = 0; k < 3; ++k)
                tris->append(t[k]);
    }
    tex->setTriangleIndices(tris.get(), true);

    ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
    uvs->resize(nv);
    for (long i = 0; i < nv; ++i)
        (*uvs)[i] = uvOf(v[i]);
    tex->setUVs(uvs.get());
    ref_ptr<IKvoImage> pixels;
    tex->setImage(db->getTexture(pixels, imageId, 2));
}

bool buildScene(QString& error)
{
    const QString base = getWorkFolder() + "/bench";
    g_scene.folder = base + "/project_io";
    QDir(g_scene.folder).removeRecursively(); // leftovers of an interrupted run
    if (!QDir().mkpath(g_scene.folder + "/photos")) {
        error = "cannot make " + g_scene.folder;
        return false;
    }
    g_scene.projectFile = g_scene.folder + "/big.qvj";
    g_scene.rawFile = g_scene.folder + "/big.raw";

    IKvoMM* mm = getMM();
    mm->closeProject();
    if (mm->newProject(g_scene.projectFile) != kvoOk) {
        error = mm->getLastError();
        return false;
    }
    ref_ptr<IKvoModel> model = makeSampleModel(kGroundCells, kFacadeCells);
    mm->setBareModel(model);
    mm->setModelFileName("big-grid.obj");

    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    mm->getProject(project)->getImageDb(db);
    std::vector<long> ids;
    for (int i = 0; i < kPhotoCount; ++i) {
        const QString photo = QString("%1/photos/photo_%2.jpg").arg(g_scene.folder).arg(i + 1, 2, 10, QChar('0'));
        long id = -1;
        if (!writeSamplePhoto(photo, 320, 240, i % 5) || db->addImage(photo, id) != kvoOk) {
            error = "cannot add " + photo;
            return false;
        }
        ids.push_back(id);
    }
    for (int i = 0; i < kPhotosWithControlPoints; ++i) {
        ref_ptr<IKvoImageInfo> info;
        db->getImageInfo(info, ids[size_t(i)]);
        for (int k = 0; k < 6; ++k) {
            info->addCtrlWorldPnt(XPnt3d(-5 + 2 * k, -3, 1 + k));
            info->addCtrlImagePnt(XPnt2d(20 + 45 * k + i, 200 - 30 * k));
        }
    }

    // The ground and the building are the model's two bare meshes.
    ref_ptr<IKvoMesh> ground = model->getMesh(0), building = model->getMesh(1);
    addTexMesh(
        mm, db.get(), ids[0], building, [](const XPnt3f& c) { return c.y < -2.99f; },
        [](const XPnt3f& p) { return XPnt2f((p.x + 5.f) / 10.f, p.z / 8.f); });
    addTexMesh(
        mm, db.get(), ids[1], ground, [](const XPnt3f& c) { return c.x < 0.f; },
        [](const XPnt3f& p) { return XPnt2f((p.x + 20.f) / 40.f, (p.y + 20.f) / 40.f); });

    g_scene.model = model;
    g_scene.vertices = model->getVertexCount();
    g_scene.modelTriangles = ground->getFaceCount() + building->getFaceCount();
    for (long i = 0; i < model->getMeshCount(); ++i)
        g_scene.storedTriangles += model->getMesh(i)->getFaceCount();
    g_scene.arrays = collectArrays(*model);
    for (const RawArray& a : g_scene.arrays)
        g_scene.payloadBytes += a.bytes;

    // The first save writes the images' records and settles the file's size;
    // what is timed afterwards is the save a user repeats while working.
    if (mm->saveProject() != kvoOk) {
        error = mm->getLastError();
        return false;
    }
    return true;
}

void cleanUp()
{
    getMM()->closeProject();
    g_scene.arrays.clear();
    g_scene.model.reset();
    QDir(g_scene.folder).removeRecursively();
    QDir().rmdir(getWorkFolder() + "/bench"); // only when nobody else left files there
}

void setCommonCounters(benchmark::State& state)
{
    state.counters["triangles"] = double(g_scene.modelTriangles);
    state.counters["stored_tris"] = double(g_scene.storedTriangles);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(g_scene.payloadBytes));
}

void BM_ProjectSave(benchmark::State& state)
{
    IKvoMM* mm = getMM();
    for (auto _ : state) {
        mm->setDirty(true);
        const auto t0 = Clock::now();
        const long rc = mm->saveProject();
        g_save.add(msSince(t0));
        if (rc != kvoOk) {
            state.SkipWithError(qPrintable(mm->getLastError()));
            break;
        }
    }
    setCommonCounters(state);
    state.counters["qvj_bytes"] = double(fileSize(g_scene.projectFile));
}

void BM_ProjectOpen(benchmark::State& state)
{
    IKvoMM* mm = getMM();
    for (auto _ : state) {
        // Freeing the previous scene is not part of reading the file.
        state.PauseTiming();
        mm->closeProject();
        state.ResumeTiming();

        const auto t0 = Clock::now();
        const long rc = mm->openProject(g_scene.projectFile);
        // Everything but the images' pixels must be in memory now.
        ref_ptr<IKvoModel> model;
        long vertices = 0, triangles = 0;
        if (rc == kvoOk && mm->getBareModel(model)) {
            vertices = model->getVertexCount();
            for (long i = 0; i < model->getMeshCount(); ++i)
                triangles += model->getMesh(i)->getFaceCount();
        }
        benchmark::DoNotOptimize(vertices);
        g_open.add(msSince(t0));
        if (rc != kvoOk) {
            state.SkipWithError(qPrintable(mm->getLastError()));
            break;
        }
        if (vertices != g_scene.vertices || triangles != g_scene.storedTriangles) {
            state.SkipWithError("the reopened project does not hold the saved model");
            break;
        }
    }
    setCommonCounters(state);
    state.counters["qvj_bytes"] = double(fileSize(g_scene.projectFile));
}

// The floor for the save: the same bytes, one fwrite an array, made durable as
// the project file is (it syncs on commit).
bool writeRaw(const std::vector<RawArray>& arrays, const QString& path)
{
    FILE* f = std::fopen(QFile::encodeName(path).constData(), "wb");
    if (!f)
        return false;
    bool ok = true;
    for (const RawArray& a : arrays)
        ok = ok && std::fwrite(a.data, 1, a.bytes, f) == a.bytes;
    ok = ok && std::fflush(f) == 0 && ::fsync(fileno(f)) == 0;
    return std::fclose(f) == 0 && ok;
}

// The floor for the open: every array into fresh memory, as the store allocates
// its own arrays when it loads.
bool readRaw(const std::vector<RawArray>& arrays, const QString& path, std::vector<std::vector<unsigned char>>& out)
{
    FILE* f = std::fopen(QFile::encodeName(path).constData(), "rb");
    if (!f)
        return false;
    bool ok = true;
    out.resize(arrays.size());
    for (size_t i = 0; i < arrays.size() && ok; ++i) {
        out[i].resize(arrays[i].bytes);
        ok = std::fread(out[i].data(), 1, arrays[i].bytes, f) == arrays[i].bytes;
    }
    std::fclose(f);
    return ok;
}

void BM_RawWrite(benchmark::State& state)
{
    for (auto _ : state) {
        const auto t0 = Clock::now();
        const bool ok = writeRaw(g_scene.arrays, g_scene.rawFile);
        g_rawWrite.add(msSince(t0));
        if (!ok) {
            state.SkipWithError("cannot write the raw file");
            break;
        }
    }
    setCommonCounters(state);
    state.counters["raw_bytes"] = double(fileSize(g_scene.rawFile));
}

void BM_RawRead(benchmark::State& state)
{
    if (fileSize(g_scene.rawFile) != qint64(g_scene.payloadBytes) && !writeRaw(g_scene.arrays, g_scene.rawFile)) {
        state.SkipWithError("cannot write the raw file");
        return;
    }
    std::vector<std::vector<unsigned char>> buffers;
    for (auto _ : state) {
        state.PauseTiming();
        buffers.clear();
        state.ResumeTiming();

        const auto t0 = Clock::now();
        const bool ok = readRaw(g_scene.arrays, g_scene.rawFile, buffers);
        benchmark::DoNotOptimize(buffers.data());
        g_rawRead.add(msSince(t0));
        if (!ok) {
            state.SkipWithError("cannot read the raw file");
            break;
        }
    }
    setCommonCounters(state);
    state.counters["raw_bytes"] = double(fileSize(g_scene.rawFile));
}

BENCHMARK(BM_ProjectSave)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_ProjectOpen)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_RawWrite)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_RawRead)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

void printRatio(const char* label, const Timings& project, const Timings& raw, double budgetMs)
{
    if (project.count == 0 || raw.count == 0 || raw.meanMs() <= 0)
        return;
    const double ratio = project.meanMs() / raw.meanMs();
    std::printf("%s ratio: %.2f  (%.1f ms vs %.1f ms mean; best %.1f vs %.1f)%s%s\n", label, ratio, project.meanMs(),
                raw.meanMs(), project.minMs, raw.minMs, ratio > 3.0 ? "  ABOVE 3x" : "",
                project.meanMs() > budgetMs ? "  OVER BUDGET" : "");
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    std::setlocale(LC_NUMERIC, "C");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;

    QString error;
    const auto t0 = Clock::now();
    if (!buildScene(error)) {
        std::fprintf(stderr, "bench_project_io: cannot build the scene: %s\n", qPrintable(error));
        cleanUp();
        return 1;
    }
    std::printf("scene: %ld vertices, %ld model triangles, %ld stored in all meshes, %d images; "
                "%.1f MB of arrays; built in %.0f ms\n",
                g_scene.vertices, g_scene.modelTriangles, g_scene.storedTriangles, kPhotoCount,
                double(g_scene.payloadBytes) / 1e6, msSince(t0));
    std::fflush(stdout);

    benchmark::RunSpecifiedBenchmarks();

    const qint64 qvj = fileSize(g_scene.projectFile);
    std::printf("\n.qvj size: %lld bytes (%.1f MB), raw arrays: %zu bytes (%.1f MB)\n", (long long)qvj,
                double(qvj) / 1e6, g_scene.payloadBytes, double(g_scene.payloadBytes) / 1e6);
    printRatio("save/raw-write", g_save, g_rawWrite, 1500);
    printRatio("open/raw-read", g_open, g_rawRead, 1500);

    benchmark::Shutdown();
    cleanUp();
    return 0;
}

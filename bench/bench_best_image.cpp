// The whole-model selection of the best photograph per face on a generated
// scene of about a million faces and 50 photographs of 2000 x 1500: visibility,
// data terms, optimisation and write-back, each stage timed. Target: under
// 60 s in all.
//
// The reference in the same run is the greedy choice (each face its best view,
// no smoothness term) on the same model, cameras and pictures: it pays the
// same visibility and data terms, so what the optimisation adds shows against
// what the terms cost.
//
// The scene and its project are made once, before any benchmark runs, in a
// folder below the work folder that is removed at the end.

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <opencv2/core.hpp>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "BenchStore.h"
#include "BenchSupport.h"
#include "SampleProject.h"
#include "autotexture/KvoBestImage.h"
#include "autotexture/KvoViewSelection.h"
#include "scene/KvoFile.h"
#include "scene/KvoMeshAccess.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace {

using qvbench::Clock;
using qvbench::closeBenchProject;
using qvbench::resetPeakMemory;
using qvbench::secondsSince;
using qvbench::StageBenchProgram;
using qvbench::statusMB;

constexpr double kTargetSeconds = 60;

struct Setup {
    QTemporaryDir dir{QDir(getWorkFolder()).filePath("bench-best-image-XXXXXX")};
    // The poses the photographs were rendered from, in the project's image
    // order; the project's virtual-camera records were made from them.
    std::vector<qvsample::SampleCamera> cameras;
    std::vector<long> imageIds;
    long faces = 0;
    double seconds = 0;
    QString error;

    bool make()
    {
        if (!dir.isValid()) {
            error = "cannot make a folder below " + getWorkFolder();
            return false;
        }
        const auto t0 = Clock::now();
        qvsample::SampleOptions o;
        o.photos = 50;
        o.triangles = 1000000;
        o.photoWidth = 2000;
        o.photoHeight = 1500;
        o.texelsPerMetre = 48;
        std::vector<qvsample::SampleCamera> generated;
        {
            // Only the cameras outlive this block: the ground-truth textures
            // and the generator's mesh would otherwise sit in memory through
            // every measurement.
            qvsample::SampleScene scene;
            if (qvsample::makeSampleProject(o, dir.filePath("scene"), dir.filePath("p.qvj"), error, &scene) != kvoOk)
                return false;
            generated = scene.cameras;
        }
        ref_ptr<IKvoProject> project;
        ref_ptr<IKvoImageDb> db;
        ref_ptr<LongArray> ids;
        if (!getMM()->getProject(project) || !project->getImageDb(db) || !db->getImageIds(ids)) {
            error = "the project has no image database";
            return false;
        }
        for (long id : ids->vec()) {
            ref_ptr<IKvoImageInfo> info;
            db->getImageInfo(info, id);
            const std::string name = info ? QFileInfo(info->getFilePath(1)).fileName().toStdString() : std::string();
            const auto c = std::find_if(generated.begin(), generated.end(),
                                        [&](const qvsample::SampleCamera& s) { return s.name == name; });
            if (c == generated.end()) {
                error = QString("image %1 is none of the generated photographs").arg(id);
                return false;
            }
            cameras.push_back(*c);
            imageIds.push_back(id);
        }
        std::vector<uint32_t> tri;
        collectBareFaces(*getMM(), tri, nullptr);
        faces = long(tri.size() / 3);
        seconds = secondsSince(t0);
        return true;
    }

    ~Setup() { closeBenchProject(); }
};

std::unique_ptr<Setup> g_setup;
double g_selectionSeconds = -1, g_greedySeconds = -1, g_termsSeconds = 0, g_optimiseSeconds = 0;

// Back to the project as made: the texture meshes of an earlier selection go.
void undoSelection()
{
    IKvoMM* mm = getMM();
    if (mm->isTexEditOpen()) {
        mm->restoreTexEdit(nullptr);
        mm->closeTexEdit();
    }
}

void BM_GreedyReferenceSameScene(benchmark::State& state)
{
    if (!g_setup) {
        state.SkipWithError("the scene could not be made");
        return;
    }
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoModel> model;
    mm->getProject(project)->getImageDb(db);
    mm->getBareModel(model);
    // The faces in the order the selection numbers them.
    std::vector<uint32_t> tri;
    collectBareFaces(*mm, tri, nullptr);
    std::vector<Rec3D::CamInfo> cams;
    for (size_t i = 0; i < g_setup->cameras.size(); ++i) {
        const qvsample::SampleCamera& c = g_setup->cameras[i];
        Rec3D::CamInfo info;
        const double K[9] = {c.fx, 0, c.cx, 0, c.fy, c.cy, 0, 0, 1};
        std::copy(K, K + 9, info.K);
        std::copy(c.R, c.R + 9, info.R);
        std::copy(c.t, c.t + 3, info.T);
        info.width = c.width;
        info.height = c.height;
        info.id = uint16_t(g_setup->imageIds[i] & 0xFFFF);
        cams.push_back(info);
    }
    Rec3D::RecMesh::ViewSelectionOptions o;
    o.optimise = false;
    // The pictures come from the project's store, as they do for the
    // whole-model selection, so that both pay the same decoding.
    o.picture = [&](size_t i, cv::Mat& rgba) {
        ref_ptr<IKvoImage> pixels;
        if (!db->getTexture(pixels, g_setup->imageIds[i], 2) && !db->getTexture(pixels, g_setup->imageIds[i], 1))
            return false;
        pixels->getMat(rgba);
        return !rgba.empty();
    };
    std::vector<int> labels;
    Rec3D::RecMesh::ViewSelectionStats st;
    resetPeakMemory();
    double total = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        const long rc = Rec3D::RecMesh::selectViews(reinterpret_cast<const float*>(model->getVertices()->getData()),
                                                    model->getVertexCount(), tri.data(), long(tri.size() / 3), cams, o,
                                                    labels, &st, nullptr);
        total = secondsSince(t0);
        if (rc != 0)
            state.SkipWithError("the greedy choice failed");
    }
    g_greedySeconds = total;
    state.counters["faces"] = double(st.faces);
    state.counters["candidates"] = double(st.candidates);
    state.counters["textured"] = double(st.textured);
    state.counters["seams"] = double(st.seams);
    state.counters["s_visibility"] = st.seconds[0];
    state.counters["s_data"] = st.seconds[1];
    state.counters["s_optimise"] = st.seconds[2];
    state.counters["s_total"] = total;
    state.counters["peak_MB"] = statusMB("VmHWM");
}

void BM_BestImageMillionFaces50Photos(benchmark::State& state)
{
    if (!g_setup) {
        state.SkipWithError("the scene could not be made");
        return;
    }
    KvoBestImageReport rep;
    resetPeakMemory();
    double total = 0;
    for (auto _ : state) {
        // Every pass starts from the project as made, not from the texture
        // meshes of the pass before.
        state.PauseTiming();
        undoSelection();
        state.ResumeTiming();
        const auto t0 = Clock::now();
        const long rc = selBestImgForFace(nullptr, &rep);
        total = secondsSince(t0);
        if (rc != 0)
            state.SkipWithError("the selection failed");
    }
    g_selectionSeconds = total;
    g_termsSeconds = rep.seconds[0] + rep.seconds[1];
    g_optimiseSeconds = rep.seconds[2];
    state.counters["faces"] = double(rep.faces);
    state.counters["candidates"] = double(rep.candidates);
    state.counters["textured"] = double(rep.textured);
    state.counters["images_used"] = double(rep.imagesUsed);
    state.counters["seams"] = double(rep.seams);
    state.counters["s_visibility"] = rep.seconds[0];
    state.counters["s_data"] = rep.seconds[1];
    state.counters["s_optimise"] = rep.seconds[2];
    state.counters["s_writeback"] = rep.seconds[3];
    state.counters["s_total"] = total;
    state.counters["met_target"] = total < kTargetSeconds ? 1 : 0;
    state.counters["peak_MB"] = statusMB("VmHWM");
    for (const QString& s : rep.skipped)
        std::fprintf(stderr, "left out: %s\n", qPrintable(s));
}

} // namespace

BENCHMARK(BM_GreedyReferenceSameScene)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_BestImageMillionFaces50Photos)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

int main(int argc, char** argv)
{
    StageBenchProgram program(argc, argv);
    if (!program.argumentsOk() || !program.makeScene(g_setup, "bench_best_image"))
        return 1;
    std::printf("scene: %ld faces, %zu photographs of 2000 x 1500; made in %.1f s (peak %.0f MB so far)\n",
                g_setup->faces, g_setup->cameras.size(), g_setup->seconds, statusMB("VmHWM"));
    std::fflush(stdout);

    benchmark::RunSpecifiedBenchmarks();

    if (g_selectionSeconds >= 0)
        std::printf("\nwhole-model selection: %.1f s, target %.0f s: %s\n", g_selectionSeconds, kTargetSeconds,
                    g_selectionSeconds < kTargetSeconds ? "met" : "MISSED");
    if (g_selectionSeconds >= 0 && g_greedySeconds >= 0)
        std::printf("optimisation %.1f s against %.1f s of visibility and data terms; greedy choice %.1f s in all\n",
                    g_optimiseSeconds, g_termsSeconds, g_greedySeconds);

    program.printQuestions("the selection");

    benchmark::Shutdown();
    // The project lives in the scratch folder: closed first, then removed.
    g_setup.reset();
    return 0;
}

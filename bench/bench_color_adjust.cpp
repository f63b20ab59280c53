// The colour adjustment of the mapped photographs on a textured model of
// about a million faces and 50 photographs of 4000 x 3000 (12 MP): in full
// (gains, seam offsets and the levelling along every seam) and global (gains
// and seam offsets only), each stage timed, and the project save that writes
// the corrected pictures, timed apart. Targets: the whole adjustment within
// 120 s, peak memory within 5 GB, and in full at most 6 times, global at most
// 3 times the reference.
//
// The reference in the same run is decoding and encoding each of the 50
// photographs once with OpenCV (JPEG, quality 95): the adjustment has to read
// every picture and write every corrected one, so its time shows against the
// floor of what it reads and writes.
//
// The scene is generated once, before any benchmark runs, in a folder below
// the work folder that is removed at the end, and textured there by the job's
// own stages without colour: a project, the mesh imported, the photographs
// added, their COLMAP cameras imported, the best photograph per face, the
// texture meshes made seamless; the project is saved so that the pictures
// the adjustment reads are on disk. Each adjustment runs in a texture-edit
// session that is restored afterwards, so that every run starts from the
// same project; the save's run keeps what it saved, since saved pixels
// cannot be brought back by the session.

#include <benchmark/benchmark.h>

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <chrono>
#include <clocale>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "BenchStore.h"
#include "BenchSupport.h"
#include "SampleCameraFiles.h"
#include "SamplePhoto.h"
#include "SampleRender.h"
#include "SampleWriter.h"
#include "autotexture/KvoBestImage.h"
#include "autotexture/KvoColorAdjust.h"
#include "autotexture/KvoTexturePipeline.h"
#include "camera/KvoCameraImport.h"
#include "modelio/KvoImportCommands.h"
#include "platform/KvoProgressImpl.h"
#include "scene/KvoFile.h"
#include "scene/KvoPresenter.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace {

using qvbench::Clock;
using qvbench::closeBenchProject;
using qvbench::resetPeakMemory;
using qvbench::secondsSince;
using qvbench::StageBenchProgram;
using qvbench::statusMB;

constexpr double kTargetSeconds = 120;
constexpr double kFullTargetRatio = 6, kGlobalTargetRatio = 3;
constexpr double kTargetPeakMB = 5 * 1024;
constexpr int kPhotos = 50;
constexpr int kPhotoWidth = 4000, kPhotoHeight = 3000;
constexpr long kTriangles = 1000000;
constexpr int kReferenceQuality = 95;
// As the texture job's benchmark draws its scene: life-sized materials that
// the 12 MP photographs resolve, and textures the generator makes in seconds.
constexpr double kTexelsPerMetre = 96;

struct Stage {
    const char* name;
    double seconds;
};

struct Setup {
    QTemporaryDir dir{QDir(getWorkFolder()).filePath("bench-color-adjust-XXXXXX")};
    QString scene, project;
    QStringList photoFiles;
    long faces = 0, textured = 0, photosUsed = 0, seams = 0;
    double sceneSeconds = 0;
    std::vector<Stage> stages;
    QString error;

    QString photos() const { return QDir(scene).filePath("photos"); }

    // The photographs, the mesh and the COLMAP model of a generated scene;
    // the ground truth, control points and other camera formats the
    // adjustment does not need are left out. The photographs are rendered as
    // the generator renders them (2 x 2 supersampled): about 3.5 s each.
    bool generate()
    {
        scene = dir.filePath("scene");
        QDir d(scene);
        for (const char* sub : {"photos", "cameras/colmap"})
            if (!d.mkpath(sub)) {
                error = "cannot make " + d.filePath(sub);
                return false;
            }
        qvsample::SampleOptions o;
        o.photos = kPhotos;
        o.triangles = kTriangles;
        o.photoWidth = kPhotoWidth;
        o.photoHeight = kPhotoHeight;
        o.texelsPerMetre = kTexelsPerMetre;
        const auto t0 = Clock::now();
        std::string why;
        qvsample::SampleScene generated = qvsample::buildSampleScene(o);
        faces = generated.mesh.triangleCount();
        if (!qvsample::writeSampleObj(generated, d.filePath("model.obj").toStdString(), std::string(), &why) ||
            !qvsample::writeColmapText(d.filePath("cameras/colmap").toStdString(), generated.cameras, &why)) {
            error = QString::fromStdString(why);
            return false;
        }
        std::fprintf(stderr, "  scene: geometry, textures and files in %.1f s\n", secondsSince(t0));
        for (size_t i = 0; i < generated.cameras.size(); ++i) {
            const qvsample::SampleCamera& cam = generated.cameras[i];
            qvsample::SampleView view;
            if (!qvsample::renderSampleView(generated, cam, view, &why)) {
                error = QString::fromStdString(why);
                return false;
            }
            view.triangle.release();
            qvsample::applyPhotoEffects(view.bgr, cam);
            if (!qvsample::writePhotoJpeg(QDir(photos()).filePath(QString::fromStdString(cam.name)).toStdString(),
                                          view.bgr, cam, 92, &why)) {
                error = QString::fromStdString(why);
                return false;
            }
            // A line every tenth keeps a person watching informed.
            if ((i + 1) % 5 == 0)
                std::fprintf(stderr, "  scene: %zu of %zu photographs after %.0f s\n", i + 1, generated.cameras.size(),
                             secondsSince(t0));
        }
        sceneSeconds = secondsSince(t0);
        stages.push_back({"scene", sceneSeconds});
        return true;
    }

    // The texture job's stages up to the seamless texture meshes, the colour
    // stage left out, then a save.
    bool texture()
    {
        IKvoMM* mm = getMM();
        project = dir.filePath("colour.qvj");
        auto t0 = Clock::now();
        if (mm->newProject(project) != kvoOk) {
            error = "cannot make the project: " + mm->getLastError();
            return false;
        }
        if (cmdOnFileAddKvomodel(QDir(scene).filePath("model.obj")) != 1) {
            error = "cannot import the mesh: " + lastObjImportReport().error;
            return false;
        }
        stages.push_back({"mesh", secondsSince(t0)});

        t0 = Clock::now();
        ref_ptr<IKvoProject> p;
        ref_ptr<IKvoImageDb> db;
        if (!mm->getProject(p) || !p || !p->getImageDb(db) || !db) {
            error = "the project has no image database";
            return false;
        }
        photoFiles = photographFiles(photos());
        for (const QString& f : photoFiles) {
            long id = -1;
            if (db->addImage(f, id) != kvoOk) {
                error = "cannot add " + f;
                return false;
            }
        }
        stages.push_back({"photographs", secondsSince(t0)});

        t0 = Clock::now();
        KvoCameraImportReport cameras;
        const long withCamera =
            importCameras(KvoCameraSource::colmap(QDir(scene).filePath("cameras/colmap")), cameras, nullptr);
        if (withCamera != long(photoFiles.size())) {
            error = QString("%1 of %2 photographs got a camera: %3")
                        .arg(withCamera)
                        .arg(photoFiles.size())
                        .arg(cameras.summary(false));
            return false;
        }
        stages.push_back({"cameras", secondsSince(t0)});

        // One session for the selection and the seamless pass, kept at the
        // end, as the job runs them.
        mm->openTexEdit(nullptr, 1, 0);
        t0 = Clock::now();
        KvoBestImageReport sel;
        long rc = selBestImgForFace(nullptr, &sel);
        if (rc < 0) {
            error = QString("the selection of the best photographs failed (%1)").arg(rc);
            return false;
        }
        textured = sel.textured;
        photosUsed = sel.imagesUsed;
        seams = sel.seams;
        stages.push_back({"selection", secondsSince(t0)});
        t0 = Clock::now();
        rc = cmdOnSeamlessTexturedMesh(1, nullptr);
        if (rc < 0) {
            error = QString("the texture meshes could not be made seamless (%1)").arg(rc);
            return false;
        }
        mm->commitTexEdit();
        mm->closeTexEdit();
        stages.push_back({"seamless", secondsSince(t0)});

        t0 = Clock::now();
        if (mm->saveProject(nullptr) != kvoOk) {
            error = "cannot save the project: " + mm->getLastError();
            return false;
        }
        stages.push_back({"save", secondsSince(t0)});
        return true;
    }

    bool make()
    {
        if (!dir.isValid()) {
            error = "cannot make a folder below " + getWorkFolder();
            return false;
        }
        return generate() && texture();
    }

    ~Setup() { closeBenchProject(); }
};

std::unique_ptr<Setup> g_setup;
double g_referenceSeconds = -1;

// What each benchmark leaves for the summary at the end.
struct Outcome {
    bool ran = false;
    long rc = 0;
    double seconds = 0, startMB = 0, peakMB = 0;
    KvoColorAdjustReport report;
};
Outcome g_full, g_global;
double g_saveSeconds = -1, g_saveAdjustSeconds = 0, g_saveStartMB = 0, g_savePeakMB = 0, g_saveMB = 0;
long g_saveFiles = 0;

// The files below a folder written since a moment, and their bytes.
void writtenSince(const QString& folder, const QDateTime& since, long& files, double& bytes)
{
    files = 0;
    bytes = 0;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        if (it.fileInfo().lastModified() < since)
            continue;
        ++files;
        bytes += double(it.fileInfo().size());
    }
}

// A line whenever the adjustment passes another tenth, with the time since it
// began: if it stalls, the last line says where.
struct TenthsListener {
    CKvoProgress progress;
    QElapsedTimer clock;
    int shown = -1;
    explicit TenthsListener(const char* what)
    {
        progress.setListener([this, what](double position, const QString& caption) {
            const int tenth = int(position * 10);
            if (tenth <= shown)
                return;
            shown = tenth;
            std::fprintf(stderr, "  %s %6.1f s %3d %%: %s\n", what, double(clock.elapsed()) / 1000.0, tenth * 10,
                         qPrintable(caption));
        });
    }
    void start()
    {
        // The reset itself is heard: nothing is shown for it.
        shown = 10;
        progress.reset();
        shown = -1;
        clock.start();
    }
};

void closeSession(bool keep)
{
    IKvoMM* mm = getMM();
    if (!mm->isTexEditOpen())
        return;
    if (keep)
        mm->commitTexEdit();
    else
        mm->restoreTexEdit(nullptr);
    mm->closeTexEdit();
}

void BM_DecodeEncodePhotographsReference(benchmark::State& state)
{
    if (!g_setup) {
        state.SkipWithError("the scene could not be made");
        return;
    }
    const QString out = g_setup->dir.filePath("reference");
    QDir().mkpath(out);
    resetPeakMemory();
    double total = 0, decode = 0, pixels = 0;
    long done = 0;
    for (auto _ : state) {
        pixels = 0;
        done = 0;
        decode = 0;
        const auto t0 = Clock::now();
        for (const QString& f : g_setup->photoFiles) {
            // One picture at a time, as the adjustment holds them.
            const auto d0 = Clock::now();
            const cv::Mat m = cv::imread(f.toStdString(), cv::IMREAD_COLOR);
            decode += secondsSince(d0);
            if (m.empty())
                continue;
            const std::string to = QDir(out).filePath(QFileInfo(f).fileName()).toStdString();
            if (!cv::imwrite(to, m, {cv::IMWRITE_JPEG_QUALITY, kReferenceQuality}))
                continue;
            pixels += double(m.total());
            ++done;
        }
        total = secondsSince(t0);
        if (done != g_setup->photoFiles.size())
            state.SkipWithError("a photograph could not be decoded or encoded");
    }
    QDir(out).removeRecursively();
    g_referenceSeconds = total;
    state.counters["photos"] = double(done);
    state.counters["megapixels"] = pixels / 1e6;
    state.counters["s_decode"] = decode;
    state.counters["s_encode"] = total - decode;
    state.counters["s_total"] = total;
    state.counters["peak_MB"] = statusMB("VmHWM");
}

void adjustOnce(benchmark::State& state, Rec3D::RecMesh::ColorMode mode, double targetRatio, Outcome& outcome,
                const char* what)
{
    if (!g_setup) {
        state.SkipWithError("the scene could not be made");
        return;
    }
    IKvoMM* mm = getMM();
    KvoColorAdjustOptions options;
    options.mode = mode;
    TenthsListener listener(what);
    KvoColorAdjustReport report;
    long rc = 0;
    double total = 0, peak = 0, before = 0;
    for (auto _ : state) {
        state.PauseTiming();
        // Every run starts from the saved project as a user opens it, no
        // picture read yet, so that each reads what the reference reads; the
        // session holds what the adjustment changes, pixels included.
        closeSession(false);
        {
            ref_ptr<IKvoProject> project;
            const QString file = mm->getProject(project) ? project->getFilePath() : QString();
            mm->closeProject();
            if (file.isEmpty() || mm->openProject(file) != kvoOk) {
                state.SkipWithError("the saved project could not be opened again");
                return;
            }
        }
        mm->openTexEdit(nullptr, 1, 1);
        resetPeakMemory();
        before = statusMB("VmRSS");
        listener.start();
        state.ResumeTiming();
        const auto t0 = Clock::now();
        rc = adjustImageColors(&listener.progress, options, &report);
        total = secondsSince(t0);
        peak = statusMB("VmHWM");
        state.PauseTiming();
        closeSession(false);
        state.ResumeTiming();
        if (rc != 0) {
            const std::string why = QString("the adjustment stopped (%1): %2").arg(rc).arg(report.error).toStdString();
            state.SkipWithError(why.c_str());
        }
    }
    const Rec3D::RecMesh::ColorStats& c = report.colour;
    double accounted = report.tableSeconds + report.meshSeconds + report.storeSeconds;
    for (double s : c.seconds)
        accounted += s;
    const double ratio = g_referenceSeconds > 0 ? total / g_referenceSeconds : 0;
    state.counters["s_tables"] = report.tableSeconds;
    state.counters["s_mesh"] = report.meshSeconds;
    state.counters["s_sampling"] = c.seconds[0];
    state.counters["s_global_solve"] = c.seconds[1];
    state.counters["s_local_levelling"] = c.seconds[2];
    state.counters["s_applying"] = c.seconds[3];
    state.counters["s_writing"] = c.seconds[4];
    state.counters["s_store"] = report.storeSeconds;
    // What no stage counts: the pictures read again for the applying pass,
    // and the result folder made afresh.
    state.counters["s_other"] = total - accounted;
    state.counters["s_total"] = total;
    state.counters["meshes"] = double(report.meshes);
    state.counters["faces"] = double(report.faces);
    state.counters["refused"] = double(report.refused);
    state.counters["patches"] = double(c.patches);
    state.counters["photos"] = double(c.images.size());
    state.counters["skipped"] = double(report.skipped.size());
    state.counters["seam_edges"] = double(c.seamEdges);
    state.counters["seam_samples"] = double(c.seamSamples);
    state.counters["usable_samples"] = double(c.usableSamples);
    state.counters["step_before"] = c.stepBefore;
    state.counters["step_after"] = c.stepAfter;
    state.counters["offset_unknowns"] = double(c.offsetUnknowns);
    state.counters["cg_iterations"] = double(c.offsetIterations);
    state.counters["strip_pixels"] = double(c.stripPixels);
    // What the process held when the adjustment began (the project, its
    // texture meshes' pictures among it), against which the peak reads.
    state.counters["start_MB"] = before;
    state.counters["peak_MB"] = peak;
    state.counters["x_reference"] = ratio;
    state.counters["met_time"] = rc == 0 && total <= kTargetSeconds ? 1 : 0;
    state.counters["met_ratio"] = rc == 0 && ratio > 0 && ratio <= targetRatio ? 1 : 0;
    state.counters["met_memory"] = rc == 0 && peak <= kTargetPeakMB ? 1 : 0;
    for (const QString& s : report.skipped)
        std::fprintf(stderr, "left out: %s\n", qPrintable(s));
    outcome.ran = true;
    outcome.rc = rc;
    outcome.seconds = total;
    outcome.startMB = before;
    outcome.peakMB = peak;
    outcome.report = report;
}

void BM_AdjustColorsFull(benchmark::State& state)
{
    adjustOnce(state, Rec3D::RecMesh::ColorMode::Full, kFullTargetRatio, g_full, "full");
}

void BM_AdjustColorsGlobal(benchmark::State& state)
{
    adjustOnce(state, Rec3D::RecMesh::ColorMode::Global, kGlobalTargetRatio, g_global, "global");
}

void BM_SaveAfterAdjustment(benchmark::State& state)
{
    if (!g_setup) {
        state.SkipWithError("the scene could not be made");
        return;
    }
    IKvoMM* mm = getMM();
    const QString projectFolder = projectFolderOf(g_setup->project);
    TenthsListener listener("adjust before save");
    double total = 0, adjust = 0, peak = 0, before = 0, bytes = 0;
    long files = 0;
    for (auto _ : state) {
        state.PauseTiming();
        closeSession(false);
        mm->openTexEdit(nullptr, 1, 1);
        listener.start();
        const auto a0 = Clock::now();
        KvoColorAdjustReport report;
        const long rc = adjustImageColors(&listener.progress, KvoColorAdjustOptions(), &report);
        adjust = secondsSince(a0);
        if (rc != 0) {
            closeSession(false);
            const std::string why = QString("the adjustment stopped (%1): %2").arg(rc).arg(report.error).toStdString();
            state.SkipWithError(why.c_str());
            state.ResumeTiming();
            continue;
        }
        resetPeakMemory();
        before = statusMB("VmRSS");
        const QDateTime saveStart = QDateTime::currentDateTime();
        state.ResumeTiming();
        const auto t0 = Clock::now();
        const long saved = mm->saveProject(nullptr);
        total = secondsSince(t0);
        peak = statusMB("VmHWM");
        state.PauseTiming();
        // Saved pixels cannot be restored from the session: the adjusted
        // project is kept, and a later run adjusts it again.
        closeSession(true);
        writtenSince(projectFolder, saveStart, files, bytes);
        state.ResumeTiming();
        if (saved != kvoOk) {
            const std::string why = ("the save failed: " + mm->getLastError()).toStdString();
            state.SkipWithError(why.c_str());
        }
    }
    g_saveSeconds = total;
    g_saveAdjustSeconds = adjust;
    g_saveStartMB = before;
    g_savePeakMB = peak;
    g_saveFiles = files;
    g_saveMB = bytes / (1024.0 * 1024.0);
    state.counters["s_adjust_before"] = adjust;
    state.counters["s_save"] = total;
    state.counters["files_written"] = double(files);
    state.counters["MB_written"] = bytes / (1024.0 * 1024.0);
    state.counters["MB_per_s"] = total > 0 ? bytes / (1024.0 * 1024.0) / total : 0;
    state.counters["x_reference"] = g_referenceSeconds > 0 ? total / g_referenceSeconds : 0;
    state.counters["start_MB"] = before;
    state.counters["peak_MB"] = peak;
}

void printOutcome(const char* mode, const Outcome& o, double targetRatio)
{
    if (!o.ran)
        return;
    const Rec3D::RecMesh::ColorStats& c = o.report.colour;
    if (o.rc != 0) {
        std::printf("%s: STOPPED after %.1f s (%ld): %s\n", mode, o.seconds, o.rc, qPrintable(o.report.error));
        return;
    }
    const double ratio = g_referenceSeconds > 0 ? o.seconds / g_referenceSeconds : 0;
    std::printf(
        "%s: %.1f s (tables %.1f, mesh %.1f, sampling %.1f, global solve %.1f, local levelling %.1f, applying %.1f, "
        "writing %.1f, store %.1f); seam step %.2f -> %.2f grey levels; peak %.0f MB from %.0f MB\n",
        mode, o.seconds, o.report.tableSeconds, o.report.meshSeconds, c.seconds[0], c.seconds[1], c.seconds[2],
        c.seconds[3], c.seconds[4], o.report.storeSeconds, c.stepBefore, c.stepAfter, o.peakMB, o.startMB);
    std::printf("  target %.0f s: %s; %.1f times the reference, target %.0f: %s; memory target %.0f MB: %s\n",
                kTargetSeconds, o.seconds <= kTargetSeconds ? "met" : "MISSED", ratio, targetRatio,
                ratio > 0 && ratio <= targetRatio ? "met" : "MISSED", kTargetPeakMB,
                o.peakMB <= kTargetPeakMB ? "met" : "MISSED");
}

} // namespace

BENCHMARK(BM_DecodeEncodePhotographsReference)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_AdjustColorsFull)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_AdjustColorsGlobal)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_SaveAfterAdjustment)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

int main(int argc, char** argv)
{
    StageBenchProgram program(argc, argv);
    if (!program.argumentsOk() || !program.makeScene(g_setup, "bench_color_adjust"))
        return 1;
    QStringList stages;
    for (const Stage& s : g_setup->stages)
        stages << QString("%1 %2 s").arg(s.name).arg(s.seconds, 0, 'f', 1);
    std::printf("scene: %ld faces, %d photographs of %d x %d at %.0f texels a metre; textured %ld faces from %ld "
                "photographs, %ld seams; %s (peak %.0f MB so far)\n",
                g_setup->faces, kPhotos, kPhotoWidth, kPhotoHeight, kTexelsPerMetre, g_setup->textured,
                g_setup->photosUsed, g_setup->seams, qPrintable(stages.join(", ")), statusMB("VmHWM"));
    std::fflush(stdout);

    benchmark::RunSpecifiedBenchmarks();

    std::printf("\n");
    if (g_referenceSeconds > 0)
        std::printf("reference: decoding and encoding the %d photographs once: %.1f s\n", kPhotos, g_referenceSeconds);
    printOutcome("full adjustment", g_full, kFullTargetRatio);
    if (g_full.ran && g_full.rc == 0)
        for (const QString& l : g_full.report.lines().mid(0, 2))
            std::printf("  %s\n", qPrintable(l));
    printOutcome("global adjustment", g_global, kGlobalTargetRatio);
    if (g_saveSeconds >= 0)
        std::printf("save after the adjustment: %.1f s, %ld files of %.0f MB written (the adjustment before it "
                    "%.1f s); peak %.0f MB from %.0f MB\n",
                    g_saveSeconds, g_saveFiles, g_saveMB, g_saveAdjustSeconds, g_savePeakMB, g_saveStartMB);
    program.printQuestions("the stages");

    benchmark::Shutdown();
    g_setup.reset();
    return 0;
}

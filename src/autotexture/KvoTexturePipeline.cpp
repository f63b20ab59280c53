#include "autotexture/KvoTexturePipeline.h"

#include <QDir>
#include <QFileInfo>
#include <QObject>

#include <algorithm>
#include <chrono>

#include "autotexture/KvoBestImage.h"
#include "autotexture/KvoColorAdjust.h"
#include "camera/KvoCameraFiles.h"
#include "modelio/KvoImportCommands.h"
#include "modelio/KvoModelExport.h"
#include "scene/KvoStore.h"

namespace kvo {

namespace {

using Clock = std::chrono::steady_clock;

QString tr(const char* text)
{
    return QObject::tr(text);
}

double since(Clock::time_point t0)
{
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

bool isCancelled(const KvoTextureJob& job)
{
    return job.cancelled && job.cancelled();
}

long fail(KvoTextureJobReport& report, long code, const QString& why)
{
    report.error = why;
    return code;
}

// The output must be an OBJ file in a folder that exists or can be made;
// nothing the export would write may exist unless the job allows it.
long checkOutput(const KvoTextureJob& job, KvoTextureJobReport& report)
{
    const QFileInfo out(job.output);
    if (job.output.isEmpty() || out.suffix().compare("obj", Qt::CaseInsensitive) != 0)
        return fail(report, kvoPipelineBadInput, tr("The output must be an .obj file: %1").arg(job.output));
    if (job.atlas < 64 || job.atlas > 16384)
        return fail(report, kvoPipelineBadInput, tr("The atlas size must be from 64 to 16384 pixels."));
    if (!QDir().mkpath(out.absolutePath()))
        return fail(report, kvoPipelineBadInput, tr("Cannot make the folder %1.").arg(out.absolutePath()));
    if (!job.overwrite) {
        QStringList there;
        for (const QString& f : {out.absoluteFilePath(), out.absolutePath() + "/" + out.completeBaseName() + ".mtl"})
            if (QFileInfo::exists(f))
                there << f;
        if (!there.isEmpty())
            return fail(
                report, kvoPipelineOutputExists,
                tr("%1 already exists; nothing was written (ask for it to be written over).").arg(there.join(", ")));
    }
    return 0;
}

// Reads the camera files once before anything is made, so that unreadable
// files stop the job while nothing has changed.
long checkCameras(const KvoCameraSource& source, KvoTextureJobReport& report)
{
    KvoCameraFileSet set;
    QString why;
    const bool ok = source.kind == KvoCameraSource::Colmap    ? readColmapText(source.path, set, why)
                    : source.kind == KvoCameraSource::Bundler ? readBundler(source.path, source.listFile, set, why)
                                                              : readProjectionMatrices(source.path, set, why);
    if (!ok)
        return fail(report, kvoPipelineBadInput, why);
    if (set.cameras.empty())
        return fail(report, kvoPipelineBadInput, tr("%1 holds no camera.").arg(source.path));
    return 0;
}

} // namespace

namespace {
long continueOnProject(const KvoTextureJob& job, KvoTextureJobReport& report, IKvoProgress* progress);
}

double KvoTextureJobReport::totalSeconds() const
{
    double s = 0;
    for (const auto& st : stages)
        s += st.second;
    return s;
}

QString KvoTextureJobReport::summary() const
{
    QStringList l;
    if (!objFile.isEmpty())
        l << tr("Textured model: %1 (with %2)").arg(objFile, mtlFile);
    if (!textures.isEmpty())
        l << tr("Atlases: %1, %2 % of their pixels covered").arg(textures.size()).arg(100.0 * efficiency, 0, 'f', 1);
    if (!projectFile.isEmpty())
        l << tr("Project: %1").arg(projectFile);
    if (photosFound > 0)
        l << tr("Photographs: %1 found, %2 added, %3 with a camera, %4 used")
                 .arg(photosFound)
                 .arg(photosAdded)
                 .arg(photosWithCamera)
                 .arg(photosUsed);
    else
        l << tr("Photographs: %1 with a camera, %2 used").arg(photosWithCamera).arg(photosUsed);
    if (faces > 0)
        l << tr("Faces: %1, textured %2 (%3 %), seen whole by some photograph %4; seams %5")
                 .arg(faces)
                 .arg(textured)
                 .arg(100.0 * double(textured) / double(faces), 0, 'f', 1)
                 .arg(seenFaces)
                 .arg(seams);
    if (seamStepBefore >= 0)
        l << tr("Seam colour step: %1 grey levels before the colour balance, %2 after")
                 .arg(seamStepBefore, 0, 'f', 2)
                 .arg(seamStepAfter, 0, 'f', 2);
    QStringList times;
    for (const auto& st : stages)
        times << QString("%1 %2 s").arg(st.first).arg(st.second, 0, 'f', 2);
    if (!times.isEmpty())
        l << tr("Time: %1; in all %2 s").arg(times.join(", ")).arg(totalSeconds(), 0, 'f', 2);
    if (!skipped.isEmpty()) {
        l << tr("Passed over: %1").arg(skipped.size());
        for (const QString& s : skipped)
            l << "  " + s;
    }
    if (!error.isEmpty())
        l << tr("Stopped: %1").arg(error);
    return l.join('\n');
}

bool parseJobColour(const QString& text, KvoJobColour& colour)
{
    if (text == "none")
        colour = KvoJobColour::None;
    else if (text == "global")
        colour = KvoJobColour::Global;
    else if (text == "full")
        colour = KvoJobColour::Full;
    else
        return false;
    return true;
}

bool detectCameraSource(const QString& path, const QString& listFile, KvoCameraSource& source, QString& error)
{
    const QFileInfo fi(path);
    if (!fi.exists()) {
        error = tr("%1 does not exist.").arg(path);
        return false;
    }
    if (fi.isFile()) {
        const QString list = listFile.isEmpty() ? fi.absolutePath() + "/list.txt" : listFile;
        if (!QFileInfo(list).isFile()) {
            error = tr("%1 is read as a bundle file, but its image list %2 is missing.").arg(path, list);
            return false;
        }
        source = KvoCameraSource::bundler(fi.absoluteFilePath(), list);
        return true;
    }
    const QDir dir(fi.absoluteFilePath());
    if (dir.exists("cameras.txt") && dir.exists("images.txt")) {
        source = KvoCameraSource::colmap(dir.absolutePath());
        return true;
    }
    if (dir.exists("bundle.out")) {
        const QString list = listFile.isEmpty() ? dir.filePath("list.txt") : listFile;
        if (!QFileInfo(list).isFile()) {
            error = tr("%1 holds bundle.out but no image list (list.txt).").arg(path);
            return false;
        }
        source = KvoCameraSource::bundler(dir.filePath("bundle.out"), list);
        return true;
    }
    if (!dir.entryList({"*.txt"}, QDir::Files).isEmpty()) {
        source = KvoCameraSource::matrices(dir.absolutePath());
        return true;
    }
    error = tr("%1 holds no cameras this version reads: a COLMAP text model (cameras.txt and images.txt), a "
               "bundle file with its list, or projection matrices (NAME.txt).")
                .arg(path);
    return false;
}

QStringList photographFiles(const QString& folder)
{
    QStringList out;
    const QDir dir(folder);
    for (const QString& name : dir.entryList({"*.jpg", "*.jpeg", "*.png", "*.tif", "*.tiff", "*.bmp", "*.JPG", "*.JPEG",
                                              "*.PNG", "*.TIF", "*.TIFF", "*.BMP"},
                                             QDir::Files, QDir::Name))
        out << dir.absoluteFilePath(name);
    out.removeDuplicates();
    return out;
}

long textureFromFiles(const KvoTextureJob& given, KvoTextureJobReport& report, IKvoProgress* progress)
{
    report = KvoTextureJobReport();
    KvoTextureJob job = given;
    if (!QFileInfo(job.mesh).isFile())
        return fail(report, kvoPipelineBadInput, tr("The mesh %1 does not exist.").arg(job.mesh));
    if (!QFileInfo(job.photos).isDir())
        return fail(report, kvoPipelineBadInput, tr("The folder of photographs %1 does not exist.").arg(job.photos));
    const QStringList photos = photographFiles(job.photos);
    report.photosFound = photos.size();
    if (photos.isEmpty())
        return fail(report, kvoPipelineBadInput,
                    tr("%1 holds no photograph (JPEG, PNG, TIFF or BMP).").arg(job.photos));
    if (long rc = checkOutput(job, report))
        return rc;
    if (job.haveCameras)
        if (long rc = checkCameras(job.cameras, report))
            return rc;
    const QFileInfo out(job.output);
    if (job.project.isEmpty())
        job.project = out.absolutePath() + "/" + out.completeBaseName() + ".qvj";
    if (QFileInfo(job.project).suffix().isEmpty())
        job.project += ".qvj";
    job.project = QFileInfo(job.project).absoluteFilePath();
    IKvoMM* mm = getMM();
    mm->closeProject();
    if (QFileInfo::exists(job.project)) {
        if (!job.overwrite)
            return fail(report, kvoPipelineOutputExists,
                        tr("The project %1 already exists; nothing was written (ask for it to be written over).")
                            .arg(job.project));
        QFile::remove(job.project);
        QDir(projectFolderOf(job.project)).removeRecursively();
    }

    auto t0 = Clock::now();
    prgText(progress, tr("Making the project..."));
    if (mm->newProject(job.project) != kvoOk)
        return fail(report, kvoPipelineFailed, mm->getLastError());
    report.projectFile = job.project;
    {
        KvoPrgPush push(progress, 0.05);
        const long rc = cmdOnFileAddKvomodel(job.mesh);
        if (rc != 1) {
            const KvoObjImportReport& r = lastObjImportReport();
            return fail(report, kvoPipelineNoModel,
                        r.error.isEmpty() ? tr("%1 gives no model.").arg(job.mesh) : r.error);
        }
    }
    report.stages.push_back({tr("mesh"), since(t0)});
    if (isCancelled(job))
        return fail(report, kvoPipelineCancelled, tr("Cancelled."));

    t0 = Clock::now();
    prgText(progress, tr("Adding the photographs..."));
    {
        KvoPrgPush push(progress, 0.1);
        ref_ptr<IKvoProject> project;
        ref_ptr<IKvoImageDb> db;
        mm->getProject(project)->getImageDb(db);
        for (const QString& path : photos) {
            prgStep(progress, 1.0 / double(photos.size()));
            long id = -1;
            if (db->addImage(path, id) != kvoOk) {
                report.skipped << tr("%1: not a picture that can be read").arg(QFileInfo(path).fileName());
                continue;
            }
            ++report.photosAdded;
            if (isCancelled(job))
                return fail(report, kvoPipelineCancelled, tr("Cancelled."));
        }
    }
    report.stages.push_back({tr("photographs"), since(t0)});
    if (report.photosAdded == 0)
        return fail(report, kvoPipelineBadInput, tr("None of the photographs could be read."));
    return continueOnProject(job, report, progress);
}

long textureOpenProject(const KvoTextureJob& job, KvoTextureJobReport& report, IKvoProgress* progress)
{
    report = KvoTextureJobReport();
    return continueOnProject(job, report, progress);
}

namespace {

// The stages on the open project, added to what report holds already.
long continueOnProject(const KvoTextureJob& job, KvoTextureJobReport& report, IKvoProgress* progress)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoModel> model;
    if (!mm->getProject(project) || !project)
        return fail(report, kvoPipelineBadInput, tr("No project is open."));
    report.projectFile = project->getFilePath();
    if (!mm->getBareModel(model) || !model || model->getVertexCount() == 0)
        return fail(report, kvoPipelineNoModel, tr("The project has no model."));
    if (long rc = checkOutput(job, report))
        return rc;

    if (job.haveCameras) {
        auto t0 = Clock::now();
        prgText(progress, tr("Importing the cameras..."));
        long n;
        {
            KvoPrgPush push(progress, 0.1);
            n = importCameras(job.cameras, report.cameras, progress);
        }
        report.stages.push_back({tr("cameras"), since(t0)});
        for (const auto& s : report.cameras.skipped)
            report.skipped << QString("%1: %2").arg(s.photo, s.reason);
        if (n < 0)
            return fail(report, kvoPipelineBadInput, report.cameras.error);
        if (n == 0)
            return fail(report, kvoPipelineNoCamera, tr("No photograph got a camera from %1.").arg(job.cameras.path));
    }
    if (isCancelled(job))
        return fail(report, kvoPipelineCancelled, tr("Cancelled."));

    // The selection, the seamless pass and the colour balance share one
    // texture-edit session, so that a cancel or a failure puts every texture
    // mesh and its picture back.
    const bool ownSession = !mm->isTexEditOpen();
    if (ownSession)
        mm->openTexEdit(nullptr, 1, job.colour != KvoJobColour::None ? 1 : 0);
    auto undo = [&](long code, const QString& why) {
        if (ownSession && mm->isTexEditOpen()) {
            mm->restoreTexEdit(nullptr);
            mm->closeTexEdit();
        }
        return fail(report, code, why);
    };
    KvoBestImageReport sel;
    long rc;
    {
        KvoPrgPush push(progress, 0.55);
        rc = selBestImgForFace(progress, &sel, job.cancelled);
    }
    report.faces = sel.faces;
    report.seenFaces = sel.candidates;
    report.textured = sel.textured;
    report.seams = sel.seams;
    report.photosUsed = sel.imagesUsed;
    // Photographs the camera import already named are not named twice.
    for (size_t i = 0; i < size_t(sel.skipped.size()); ++i) {
        const long id = i < sel.skippedIds.size() ? sel.skippedIds[i] : -1;
        const bool named = std::any_of(report.cameras.skipped.begin(), report.cameras.skipped.end(),
                                       [id](const auto& s) { return id >= 0 && s.imageId == id; });
        if (!named)
            report.skipped << sel.skipped[int(i)];
    }
    ref_ptr<IKvoImageDb> db;
    ref_ptr<LongArray> ids;
    project->getImageDb(db);
    if (db && db->getImageIds(ids))
        report.photosWithCamera = ids->getCount() - long(sel.skipped.size());
    if (rc == kvoBestImageCancelled)
        return undo(kvoPipelineCancelled, tr("Cancelled."));
    if (rc == kvoNoCameras)
        return undo(kvoPipelineNoCamera, tr("No photograph of the project has a camera."));
    if (rc == kvoBestImageIdClash)
        return undo(kvoPipelineFailed, tr("Two photographs' ids agree in their low 16 bits."));
    if (rc < 0)
        return undo(kvoPipelineFailed, tr("The selection of the best photographs failed (%1).").arg(rc));
    report.stages.push_back({tr("visibility"), sel.seconds[0]});
    report.stages.push_back({tr("data terms"), sel.seconds[1]});
    report.stages.push_back({tr("optimisation"), sel.seconds[2]});
    report.stages.push_back({tr("mapping"), sel.seconds[3]});
    if (isCancelled(job))
        return undo(kvoPipelineCancelled, tr("Cancelled."));

    auto t0 = Clock::now();
    {
        KvoPrgPush push(progress, 0.05);
        rc = cmdOnSeamlessTexturedMesh(1, progress);
    }
    if (rc < 0)
        return undo(kvoPipelineFailed, tr("The texture meshes could not be made seamless (%1).").arg(rc));
    report.stages.push_back({tr("seamless"), since(t0)});
    if (isCancelled(job))
        return undo(kvoPipelineCancelled, tr("Cancelled."));

    if (job.colour != KvoJobColour::None) {
        t0 = Clock::now();
        KvoColorAdjustOptions copt;
        copt.mode =
            job.colour == KvoJobColour::Global ? Rec3D::RecMesh::ColorMode::Global : Rec3D::RecMesh::ColorMode::Full;
        copt.cancelled = job.cancelled;
        KvoColorAdjustReport colour;
        {
            KvoPrgPush push(progress, 0.1);
            rc = adjustImageColors(progress, copt, &colour);
        }
        if (rc == Rec3D::RecMesh::kvoColorCancelled)
            return undo(kvoPipelineCancelled, tr("Cancelled."));
        if (rc < 0) {
            // The texture is still whole without the balance: the job goes on
            // and says why the colours were left as they were.
            report.skipped << tr("Colour balance left out: %1").arg(colour.error);
        } else {
            report.seamStepBefore = colour.colour.stepBefore;
            report.seamStepAfter = colour.colour.stepAfter;
            report.stages.push_back({tr("colour"), since(t0)});
        }
        for (const QString& s : colour.skipped)
            report.skipped << tr("Colour balance: %1").arg(s);
        if (isCancelled(job))
            return undo(kvoPipelineCancelled, tr("Cancelled."));
    }
    if (ownSession && mm->isTexEditOpen()) {
        mm->commitTexEdit();
        mm->closeTexEdit();
    }

    t0 = Clock::now();
    prgText(progress, tr("Writing the textured model..."));
    ref_ptr<MeshArray> all;
    mm->getTexMeshes(all);
    ref_ptr<ExportInfoArray> rows = newExportInfoArray();
    for (long i = 0; all && i < all->getCount(); ++i) {
        _ExportInfo row;
        row.mesh = (*all)[i];
        row.resample = true;
        row.name = row.mesh->getName();
        rows->append(row);
    }
    const QFileInfo out(job.output);
    KvoModelExporter exporter(out.absolutePath(), out.completeBaseName());
    {
        KvoPrgPush push(progress, 0.25);
        rc = exporter.exportSingleMesh(*rows, job.atlas, true, QString(), progress);
    }
    const KvoExportReport& ex = exporter.report();
    for (const QString& p : ex.problems)
        report.skipped << p;
    if (rc != 0)
        return fail(report, kvoPipelineFailed, tr("The textured model could not be written (%1).").arg(rc));
    report.objFile = ex.objFile;
    report.mtlFile = ex.mtlFile;
    report.textures = ex.textures;
    report.sheets = ex.sheets;
    report.efficiency = ex.efficiency;
    report.stages.push_back({tr("export"), since(t0)});

    if (job.saveProject) {
        t0 = Clock::now();
        if (mm->saveProject(progress) != kvoOk)
            return fail(report, kvoPipelineFailed, tr("The project could not be saved: %1").arg(mm->getLastError()));
        report.stages.push_back({tr("save"), since(t0)});
    }
    prgStep(progress, 1.0);
    return 0;
}

} // namespace

} // namespace kvo

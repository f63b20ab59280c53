// Automatic texturing, headless: the best photograph per triangle, the
// clean-up of triangles that several texture meshes hold, and the colour
// balance of the mapped photographs.

#include "CliSupport.h"
#include "autotexture/KvoBestImage.h"
#include "autotexture/KvoColorAdjust.h"
#include "commands/KvoCommands.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace qvcli {
namespace {

QString reasonOf(long code)
{
    switch (code) {
    case kvoNoProject: return "no project is open";
    case kvoModelEmpty: return "the project has no model";
    case kvoNoCameras: return "no photograph of the project has a camera";
    case kvoBestImageIdClash: return "two photographs' ids agree in their low 16 bits";
    default: return QString("the selection failed (%1)").arg(code);
    }
}

// Faces held by texture meshes, counted once a mesh.
long texturedFaces()
{
    ref_ptr<MeshArray> meshes;
    getMM()->getTexMeshes(meshes);
    long n = 0;
    for (long i = 0; meshes && i < meshes->getCount(); ++i)
        n += (*meshes)[i]->getFaceCount();
    return n;
}

int cmdAutoSelect(const QStringList& args)
{
    if (args.size() != 1)
        return 2;
    if (int rc = openOrFail(args[0]))
        return rc;
    KvoBestImageReport report;
    TerminalProgress progress;
    const long rc = selBestImgForFace(&progress, &report);
    progress.finish();
    IKvoMM* mm = getMM();
    if (rc < 0) {
        if (mm->isTexEditOpen()) {
            mm->restoreTexEdit(nullptr);
            mm->closeTexEdit();
        }
        err(reasonOf(rc));
        for (const QString& s : report.skipped)
            err(s);
        return 1;
    }
    if (mm->isTexEditOpen()) {
        mm->commitTexEdit();
        mm->closeTexEdit();
    }
    out(QString("Faces: %1").arg(report.faces));
    out(QString("Candidates: %1 (faces that some photograph sees)").arg(report.candidates));
    out(QString("Textured: %1").arg(report.textured));
    out(QString("Images used: %1").arg(report.imagesUsed));
    out(QString("Seams: %1").arg(report.seams));
    out(QString("Seconds: visibility %1, data terms %2, optimisation %3, write-back %4")
            .arg(report.seconds[0], 0, 'f', 3)
            .arg(report.seconds[1], 0, 'f', 3)
            .arg(report.seconds[2], 0, 'f', 3)
            .arg(report.seconds[3], 0, 'f', 3));
    out(QString("Skipped: %1").arg(report.skipped.size()));
    for (const QString& s : report.skipped)
        out("  " + s);
    return saveOrFail();
}

Register rAutoSelect("auto-select",
                     {"auto-select PROJECT.qvj",
                      "gives every triangle of the model the photograph with a camera that sees it best: each "
                      "photograph's texture mesh is rewritten with its triangles, a photograph left without "
                      "triangles loses its mapping, and triangles no photograph sees stay untextured; prints what "
                      "was done (faces, candidates, textured faces, photographs used, seams, time of each stage, "
                      "photographs left out and why) and saves the project",
                      cmdAutoSelect});

int cmdSeamless(const QStringList& args)
{
    if (args.size() != 3 || args[1] != "--kind")
        return 2;
    bool ok = false;
    const int kind = args[2].toInt(&ok);
    if (!ok || (kind != 0 && kind != 1))
        return 2;
    if (int rc = openOrFail(args[0]))
        return rc;
    const long before = texturedFaces();
    TerminalProgress progress;
    const long rc = cmdOnSeamlessTexturedMesh(kind, &progress);
    progress.finish();
    if (rc < 0) {
        err(reasonOf(rc));
        return 1;
    }
    const long after = texturedFaces();
    out(QString("Texture-mesh faces: %1 before, %2 after (%3 dropped where a later mesh shows them)")
            .arg(before)
            .arg(after)
            .arg(before - after));
    return saveOrFail();
}

Register rSeamless("seamless",
                   {"seamless PROJECT.qvj --kind 0|1",
                    "leaves every triangle in one opaque texture mesh, the last in list order that holds it; a "
                    "triangle that the later mesh's picture shows transparent stays in the earlier mesh too. "
                    "--kind 0 works on the shown texture meshes, 1 on all of them; asleep meshes are passed over; "
                    "saves the project",
                    cmdSeamless});

int cmdAdjustColors(const QStringList& args)
{
    KvoColorAdjustOptions options;
    if (args.size() == 3 && args[1] == "--mode") {
        if (args[2] == "global")
            options.mode = Rec3D::RecMesh::ColorMode::Global;
        else if (args[2] != "full")
            return 2;
    } else if (args.size() != 1) {
        return 2;
    }
    if (int rc = openOrFail(args[0]))
        return rc;
    IKvoMM* mm = getMM();
    // The pictures the run replaces come back if it fails half way.
    if (mm->isTexEditOpen())
        mm->closeTexEdit();
    mm->openTexEdit(nullptr, 1, 1);
    KvoColorAdjustReport report;
    TerminalProgress progress;
    const long rc = adjustImageColors(&progress, options, &report);
    progress.finish();
    if (rc < 0) {
        mm->restoreTexEdit(nullptr);
        mm->closeTexEdit();
        err(report.error.isEmpty() ? QString("the colour adjustment failed (%1)").arg(rc) : report.error);
        for (const QString& s : report.skipped)
            err(s);
        return 1;
    }
    mm->commitTexEdit();
    mm->closeTexEdit();
    for (const QString& line : report.lines())
        out(line);
    return saveOrFail();
}

Register rAdjustColors("adjust-colors",
                       {"adjust-colors PROJECT.qvj [--mode global|full]",
                        "evens out exposure and white balance between the photographs that texture the model, "
                        "measured on the seams between their patches (global), and in full, the default, also "
                        "levels what is left along every seam; the corrected pictures become the photographs' "
                        "project copies (the original files are not touched) and are also written as JPEG files "
                        "into the folder adjColorForPatch_RV beside the project. Prints the seam colour step "
                        "before and after and each photograph's gains, and saves the project",
                        cmdAdjustColors});

} // namespace
} // namespace qvcli

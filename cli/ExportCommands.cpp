// Writing the textured model to OBJ/MTL from the command line.

#include <QDir>
#include <QFileInfo>

#include "CliSupport.h"
#include "modelio/KvoModelExport.h"

using namespace kvo;

namespace qvcli {
namespace {

int cmdExport(const QStringList& args)
{
    QStringList plain;
    bool single = false, origin = false, swap = false, pow2 = false, clip = false, force = false;
    long atlas = 4096;
    QString uvFile;
    for (int i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == "--single")
            single = true;
        else if (a == "--move-to-origin")
            origin = true;
        else if (a == "--swap-yz")
            swap = true;
        else if (a == "--pow2")
            pow2 = true;
        else if (a == "--clip-big")
            clip = true;
        else if (a == "--force")
            force = true;
        else if (a == "--atlas" && i + 1 < args.size()) {
            bool ok = false;
            atlas = args[++i].toLong(&ok);
            if (!ok || atlas < 64 || atlas > 16384) {
                err("--atlas takes a size from 64 to 16384");
                return 2;
            }
        } else if (a == "--uv" && i + 1 < args.size())
            uvFile = args[++i];
        else if (a.startsWith("--"))
            return 2;
        else
            plain << a;
    }
    if (plain.size() != 2)
        return 2;
    if (single && (origin || swap || clip || pow2)) {
        err("--move-to-origin, --swap-yz, --pow2 and --clip-big are for the export with one group a mesh, "
            "not with --single");
        return 2;
    }
    if (!single && !uvFile.isEmpty()) {
        err("--uv goes with --single");
        return 2;
    }
    QFileInfo target(plain[1]);
    if (target.suffix().compare("obj", Qt::CaseInsensitive) != 0) {
        err(QString("%1: the output must be an .obj file").arg(plain[1]));
        return 2;
    }
    if (!target.absoluteDir().exists()) {
        err(QString("%1: the folder does not exist").arg(target.absolutePath()));
        return 1;
    }
    if (target.exists() && !force) {
        err(QString("%1 exists; --force writes over it").arg(plain[1]));
        return 1;
    }
    if (int rc = openOrFail(plain[0]))
        return rc;
    ref_ptr<MeshArray> all;
    getMM()->getAllMeshes(all);
    ref_ptr<ExportInfoArray> rows = newExportInfoArray();
    for (long i = 0; all && i < all->getCount(); ++i) {
        ref_ptr<IKvoMesh> mesh = (*all)[i];
        if (getMM()->getMeshKind(mesh) != 1)
            continue;
        _ExportInfo info;
        info.mesh = mesh;
        info.resample = true;
        info.name = mesh->getName();
        rows->append(info);
    }
    if (rows->getCount() == 0 && !single) {
        err("the project has no texture mesh to export; map photographs first");
        return 1;
    }
    TerminalProgress progress;
    KvoModelExporter exporter(target.absolutePath(), target.completeBaseName());
    const long rc = single ? exporter.exportSingleMesh(*rows, atlas, uvFile.isEmpty(), uvFile, &progress)
                           : exporter.exportRespective(*rows, KvoExportFlags{swap, origin, pow2, clip}, &progress);
    progress.finish();
    const KvoExportReport& r = exporter.report();
    for (const QString& p : r.problems)
        err(p);
    if (rc != 0) {
        switch (rc) {
        case -1: err(QString("%1 cannot be read as an OBJ file").arg(uvFile)); break;
        case -2:
        case -3:
        case -4:
        case -5: err(QString("%1 does not hold this model with UVs (code %2)").arg(uvFile).arg(rc)); break;
        case kvoExportCannotWrite: err(QString("cannot write %1").arg(plain[1])); break;
        case kvoExportNothing: err("nothing was exported: no mesh had a triangle"); break;
        default: err(QString("the export failed (code %1)").arg(rc));
        }
        return 1;
    }
    out(QString("Wrote %1 and %2").arg(r.objFile, r.mtlFile));
    out(QString("Groups: %1, vertices: %2, UVs: %3, normals: %4, faces: %5")
            .arg(r.meshes)
            .arg(r.vertices)
            .arg(r.uvs)
            .arg(r.normals)
            .arg(r.faces));
    if (single)
        out(QString("Atlases: %1 of %2 x %2 pixels, %3 % of their pixels covered")
                .arg(r.sheets)
                .arg(atlas)
                .arg(100.0 * r.efficiency, 0, 'f', 1));
    out(QString("Textures: %1").arg(r.textures.size()));
    return 0;
}

Register rExport("export",
                 {"export PROJECT.qvj OUT.obj [--single [--atlas N] [--uv UV.obj]] [--move-to-origin] [--swap-yz] "
                  "[--pow2] [--clip-big] [--force]",
                  "writes the textured model as OBJ with its MTL file and JPEG textures: one group a texture mesh "
                  "with its own picture, or with --single the whole model baked into N x N atlases (default "
                  "4096) laid out anew or read from UV.obj; --force writes over an existing OUT.obj",
                  cmdExport});

} // namespace
} // namespace qvcli

#pragma once

// The main job: a textured model from a mesh, photographs and their known
// cameras. On files (a new project is made) or on the open project: cameras
// imported, every photograph mapped onto the faces it shows best, texture
// meshes made seamless, their photographs' colours balanced, and the whole
// model written as one OBJ mesh with texture atlases.

#include <QString>
#include <QStringList>

#include <functional>
#include <utility>
#include <vector>

#include "camera/KvoCameraImport.h"
#include "scene/KvoProgress.h"

namespace kvo {

// Result codes besides 0.
enum : long {
    kvoPipelineBadInput = -8400, // report.error says what
    kvoPipelineOutputExists = -8401,
    kvoPipelineNoModel = -8402,
    kvoPipelineNoCamera = -8403, // no photograph got a camera
    kvoPipelineFailed = -8404,   // a stage failed; report.error says which and why
    kvoPipelineCancelled = -8405,
};

// The colour balance of the mapped photographs after the seamless pass.
enum class KvoJobColour { None, Global, Full };

// "none", "global" or "full"; false for anything else.
QV_EXPORT bool parseJobColour(const QString& text, KvoJobColour& colour);

struct QV_EXPORT KvoTextureJob {
    // From files: the mesh (OBJ) and the folder of photographs; empty for the open project.
    QString mesh;
    QString photos;
    // The project to make (from files); empty: OUT.qvj beside the output.
    QString project;
    bool haveCameras = false; // false: the cameras the project's photographs already have
    KvoCameraSource cameras;
    QString output;    // OUT.obj
    long atlas = 4096; // atlas sheets of atlas x atlas pixels
    bool overwrite = false;
    bool saveProject = true; // the desktop leaves saving to the user
    KvoJobColour colour = KvoJobColour::Full;
    // Asked between stages and between photographs.
    std::function<bool()> cancelled;
};

struct QV_EXPORT KvoTextureJobReport {
    QString projectFile;
    long photosFound = 0; // picture files in the photographs' folder
    long photosAdded = 0;
    long photosWithCamera = 0; // photographs the selection could use
    long photosUsed = 0;       // photographs that texture at least one face
    long faces = 0;
    long seenFaces = 0; // faces some photograph sees whole
    long textured = 0;
    long seams = 0;
    long sheets = 0;
    double efficiency = 0;
    // The mean colour step across seams, in grey levels, before and after the
    // colour balance; negative when the stage did not run.
    double seamStepBefore = -1, seamStepAfter = -1;
    QString objFile, mtlFile;
    QStringList textures;
    // Stage name and seconds, in order.
    std::vector<std::pair<QString, double>> stages;
    KvoCameraImportReport cameras;
    // Photographs, files and cameras passed over, one line each with the reason.
    QStringList skipped;
    QString error;

    double totalSeconds() const;
    // Lines for a person: what was made, the numbers, the stages' times and what was passed over.
    QString summary() const;
};

// The cameras at path: a folder with cameras.txt and images.txt (a COLMAP text
// model), a bundle file (with list.txt beside it, or listFile), or a folder of
// projection matrices. False with a reason.
QV_EXPORT bool detectCameraSource(const QString& path, const QString& listFile, KvoCameraSource& source,
                                  QString& error);

// The picture files of a folder that the project can add, sorted by name.
QV_EXPORT QStringList photographFiles(const QString& folder);

// From files: makes the project (which stays open), imports the mesh, adds the
// photographs, then runs textureOpenProject. Nothing existing is written over
// unless job.overwrite: the output's OBJ and MTL files, and the project.
QV_EXPORT long textureFromFiles(const KvoTextureJob& job, KvoTextureJobReport& report, IKvoProgress* progress);

// On the open project: imports job.cameras when given, selects the best
// photograph per face, makes the texture meshes seamless, balances the
// photographs' colours (job.colour), exports job.output
// and saves the project when job.saveProject. Cancelled after the cameras are
// in, the texture meshes and their pictures are as they were.
QV_EXPORT long textureOpenProject(const KvoTextureJob& job, KvoTextureJobReport& report, IKvoProgress* progress);

} // namespace kvo

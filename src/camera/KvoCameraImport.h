#pragma once

// Cameras from reconstruction tools into the open project: each photograph of
// the project that the files name gets its virtual camera, and, when its camera
// is not a centred square-pixel pinhole (which a virtual camera cannot hold),
// its exact projection as DLT parameters under "<id>_DLTParam", where
// getDltParam finds them. Photographs whose cameras have lens distortion are
// undistorted into new pictures first. Anything that does not fit is listed
// in the report and left as it was.

#include <QString>
#include <QStringList>

#include <vector>

#include "camera/KvoCameraFiles.h"
#include "scene/KvoProgress.h"
#include "scene/KvoStore.h"

namespace kvo {

// Where the cameras are.
struct QV_EXPORT KvoCameraSource {
    enum Kind { Colmap, Bundler, Matrices };
    Kind kind = Colmap;
    QString path;     // the COLMAP folder, the bundle file, or the folder of matrices
    QString listFile; // Bundler's image list

    static KvoCameraSource colmap(const QString& folder);
    static KvoCameraSource bundler(const QString& bundleFile, const QString& listFile);
    static KvoCameraSource matrices(const QString& folder);
};

struct QV_EXPORT KvoCameraImportReport {
    struct Imported {
        long imageId = -1;
        QString image; // the project's name of the photograph
        QString where; // where its camera was read
        // The camera is not a centred square-pixel pinhole: mapping goes by the
        // stored DLT parameters; the virtual camera is only its nearest likeness.
        bool throughDlt = false;
        // The photograph was undistorted into a new picture.
        bool undistorted = false;
        // The largest distance, in pixels, between where the camera puts
        // points across the picture and where the stored record puts them.
        double recordError = 0;
        // None of the model is in front of the camera inside the picture.
        bool seesNoModel = false;
        // The image already had a texture mesh, which keeps its old mapping.
        bool wasMapped = false;
    };
    struct Skipped {
        KvoCameraIssue issue = KvoCameraIssue::BadCamera;
        QString photo;     // the name in the files, or the project's name
        long imageId = -1; // the project's photograph, when known
        QString where;     // where in the files, when known
        QString reason;
    };

    QString format;       // what was read, in words
    long camerasRead = 0; // cameras in the files (usable or not)
    std::vector<Imported> imported;
    std::vector<Skipped> skipped;
    QStringList skippedLines; // lines of the files that were passed over
    QString error;            // set when nothing could be imported at all

    long count(KvoCameraIssue issue) const;
    // The report as lines of text for a person; without eachImported only the
    // photographs that got something other than a plain virtual camera are named.
    QString summary(bool eachImported = true) const;
};

// Result codes of importCameras below zero; zero or more is the number of
// photographs that got their camera.
enum : long {
    kvoCamImportNoProject = -1,
    kvoCamImportBadFiles = -2,
};

// Reads the cameras, matches each to the project's photograph of the same
// file name (folders in the files' names are not compared), checks the picture
// sizes, and writes the photographs' cameras. Nothing is saved. On
// kvoCamImportBadFiles (files missing or damaged) report.error says why and
// the project is as it was.
QV_EXPORT long importCameras(const KvoCameraSource& source, KvoCameraImportReport& report, IKvoProgress* progress);

// File > Import Cameras: the dialog through the presenter, the import with the
// application's progress, and its summary as a message. 0, or -1 when nothing
// was imported.
QV_EXPORT long cmdImportCameras();

// The path kind under which an image record keeps the photograph as it was
// before its undistortion, so that a later import starts from it again.
constexpr int kvoPathBeforeUndistortion = 4;

} // namespace kvo

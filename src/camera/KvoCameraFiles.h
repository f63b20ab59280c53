#pragma once

// Readers of the camera files that reconstruction tools write (COLMAP text
// models, Bundler v0.3 bundle files with their image lists, plain 3x4
// projection matrices), and the camera algebra that turns what they say into
// our cameras.
//
// Every camera read is put in one convention: camera x right, y down, z
// forward, a world point X at camera coordinates c = R X + t, and pixel
// positions measured from the picture's top-left corner, so that pixel (i, j)
// covers [i, i + 1) x [j, j + 1) and its centre is (i + 0.5, j + 0.5).

#include <QString>
#include <QStringList>

#include <vector>

#include "scene/KvoTypes.h"

namespace kvo {

// Why a camera or a photograph was left out of an import.
enum class KvoCameraIssue {
    NoCamera,      // a photograph that the files give no camera
    NoPhoto,       // a camera whose photograph is not in the project
    UnknownModel,  // a camera model that cannot be used
    SizeMismatch,  // the camera is for a picture of another size
    Ambiguous,     // several cameras for one photograph, or a name that fits several photographs
    BadCamera,     // numbers that give no usable camera, or a line that cannot be read
    PictureFailed, // the photograph could not be read or undistorted
};

// One camera as the files give it.
struct QV_EXPORT KvoFileCamera {
    QString photo; // the photograph's name as the files give it (it may hold folders)
    QString where; // file and line, for messages
    QString model; // "PINHOLE", "OPENCV", ..., "Bundler", "matrix"
    // The picture size the camera is for; 0 when the files do not tell.
    long width = 0, height = 0;
    // Bundler puts the principal point at the picture's centre, which is only
    // known once the photograph is: K's cx and cy are then filled in later.
    bool principalAtCentre = false;
    // A matrix file gives P only; the others give K, R and t.
    bool fromMatrix = false;
    double P[12] = {0};
    double K[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    double R[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    double t[3] = {0, 0, 0};
    // k1, k2, p1, p2 in OpenCV's order, on normalised camera coordinates.
    double distortion[4] = {0, 0, 0, 0};
    // Cleared, with the issue and a reason, when the camera cannot be used.
    bool usable = true;
    KvoCameraIssue issue = KvoCameraIssue::BadCamera;
    QString reason;

    bool hasDistortion() const;
    void reject(KvoCameraIssue why, const QString& text);
};

// What a reader gives: the cameras in file order, and lines it passed over.
struct QV_EXPORT KvoCameraFileSet {
    QString format; // words for messages: "COLMAP text model", ...
    std::vector<KvoFileCamera> cameras;
    QStringList skippedLines;
};

// The camera models of COLMAP text files that can be used, in the order they are listed to the user.
QV_EXPORT QStringList colmapModelsRead();

// COLMAP text model: cameras.txt and images.txt of a folder (points3D.txt is
// not needed). False, with a reason, when the folder or a file cannot be read.
QV_EXPORT bool readColmapText(const QString& folder, KvoCameraFileSet& out, QString& error);
// Bundler v0.3: the cameras of bundle.out named by the lines of its list file
// (camera i is line i; a line's first word is the name).
QV_EXPORT bool readBundler(const QString& bundleFile, const QString& listFile, KvoCameraFileSet& out, QString& error);
// A folder of projection matrices: each NAME.txt (or NAME.P.txt) holds twelve
// numbers, the 3x4 matrix taking homogeneous world points to pixel positions,
// row by row; NAME is the photograph's name with or without its extension.
QV_EXPORT bool readProjectionMatrices(const QString& folder, KvoCameraFileSet& out, QString& error);

// P = K [R | t], row-major.
QV_EXPORT void composeProjection(const double K[9], const double R[9], const double t[3], double P[12]);
// The opposite, up to P's scale and sign: K upper triangular with K[8] = 1
// and positive fx, fy; R a rotation. False when P's left 3x3 is singular or a
// number is not finite.
QV_EXPORT bool decomposeProjection(const double P[12], double K[9], double R[9], double t[3]);
// The 11 DLT parameters of P for a width x height picture (picture positions
// 0 to 1 from the bottom-left corner). False when the world origin lies on
// the plane through the eye parallel to the picture (the DLT cannot hold P then).
QV_EXPORT bool projectionToDlt(const double P[12], long width, long height, double L[11]);
// The pixel position of X through P; false behind the eye or at infinity.
QV_EXPORT bool projectPixel(const double P[12], const XPnt3d& X, XPnt2d& pixel);
// Unit Hamilton quaternion (w, x, y, z) to a row-major rotation; false for a zero or non-finite q.
QV_EXPORT bool quaternionToMatrix(const double q[4], double R[9]);

} // namespace kvo

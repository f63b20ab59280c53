#pragma once

// Colour adjustment of the mapped photographs: the shown texture meshes are
// gathered into one surface, cut into patches per photograph, and the colour
// model evens the photographs out. Each corrected picture becomes the
// photograph's project copy (level 2) and its texture mesh's picture, and is
// written as a JPEG into "adjColorForPatch_RV" in the project folder. The
// user's files and level 1 are never written.

#include <QString>
#include <QStringList>

#include <map>
#include <vector>

#include "autotexture/KvoColorModel.h"
#include "scene/KvoStore.h"

namespace kvo {

enum : long {
    kvoColorNoFolder = -8313, // the project has no folder, or it cannot be written
    kvoColorIdClash = -8314,  // two photographs' ids agree in their low 16 bits
};

// The name of the result folder inside the project folder.
QV_EXPORT extern const char* const kvoColorResultFolder;

// One triangle of the surface: the photograph that shows it, its vertices in
// face order and its corners' pixel positions in that photograph.
struct KvoTriOwner {
    long imageId = -1;
    unsigned vertices[3] = {0, 0, 0};
    XPnt2f corners[3];
};

// The tables of a run, as they stand before the colour model is called.
struct QV_EXPORT KvoColorTables {
    std::vector<unsigned char> vertexUsed;
    // By normalised triangle key; a later texture mesh overwrites an earlier one.
    std::map<XTrip<unsigned>, KvoTriOwner> triOwner;
    std::vector<long> newVertexIndex; // old vertex index -> place in vertices, -1 unused
    std::vector<XPnt3f> vertices;
    std::vector<unsigned> faces; // three new indices a face, in triOwner's key order
    std::vector<Rec3D::RecMesh::FaceCorners> faceUVs;
    // Image id -> its face numbers and their vertex triples (new indices).
    std::map<long, std::vector<long>> imageFaces;
    std::map<uint16_t, Rec3D::RecMesh::ImgInfo> images;
    Rec3D::RecMesh::PatchTable patches;
    std::vector<unsigned> refused; // face numbers createMesh refused, rising
    // Images whose mesh keeps UVs per corner (their patches are split by corner UVs too).
    std::map<long, bool> cornerUVImages;
    double meshSeconds = 0; // createMesh's share of the time
};

// Builds every table of a run from the shown texture meshes (asleep ones are
// woken for the reading and put back), createMesh included. mesh receives the
// half-edge mesh. 0, or kvoColorIdClash.
QV_EXPORT long buildColorTables(IKvoMM& mm, KvoColorTables& tables, Rec3D::KvoHalfEdgeMesh& mesh,
                                IKvoProgress* progress = nullptr);

struct KvoColorAdjustOptions {
    Rec3D::RecMesh::ColorMode mode = Rec3D::RecMesh::ColorMode::Full;
    std::function<bool()> cancelled;
};

struct QV_EXPORT KvoColorAdjustReport {
    QString folder;
    long meshes = 0, faces = 0, refused = 0;
    Rec3D::RecMesh::ColorStats colour;
    // Image id and name of each photograph in the model's order of ids.
    std::map<long, QString> names;
    QStringList skipped;
    // Seconds of the tables and of the mesh; the colour model's own in colour.seconds.
    double tableSeconds = 0, meshSeconds = 0, storeSeconds = 0;
    QString error;
    // Lines for a person: the seam step before and after, and each photograph's gains.
    QStringList lines() const;
};

// The adjustment over the shown texture meshes of the open project, without a
// session of its own: the caller opens the texture-edit session (with the
// image database's pixels) and restores or commits it. 0, or a negative code:
// no project, a project folder that cannot be written or ids that clash
// (nothing changed), a cancel (heard while the pictures are read, before
// anything changes), a result that cannot be written (restore the session).
QV_EXPORT long adjustImageColors(IKvoProgress* progress, const KvoColorAdjustOptions& options,
                                 KvoColorAdjustReport* report = nullptr);
// The full adjustment, as the dialog runs it.
QV_EXPORT long adjustImageColors(IKvoProgress* progress);

} // namespace kvo

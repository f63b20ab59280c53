#pragma once

#include <QString>
#include <QStringList>

#include <vector>

#include "scene/KvoStore.h"

namespace Rec3D {
class KvoHalfEdgeMesh;
}

namespace kvo {

// The question asked when the half-edge structure refuses faces of a new model.
QV_EXPORT extern const char* const kInvalidFacesQuestion;

// What the last cmdOnFileAddKvomodel did, for hosts that print it.
struct QV_EXPORT KvoObjImportReport {
    QString file;
    long result = 0;
    QString error; // the message shown when the import stopped
    long vertices = 0;
    long triangles = 0;
    long groups = 0;
    long bareMeshes = 0;
    QStringList images; // names of the images made from pictures of the MTL file
    long textureMeshes = 0;
    QString mtlName;
    bool mtlMissing = false;
    QStringList missingPictures;
    QStringList failedPictures; // pictures that exist but could not be used
    long refusedFaces = 0;
    bool repaired = false;
    long removedFaces = 0; // faces that the repair could not keep
    QString copiedTo;
};

QV_EXPORT const KvoObjImportReport& lastObjImportReport();

// Imports a model from an OBJ file (and its MTL) into the open project, which
// must not hold a model yet: 1; kvoNoProject; kvoModelExists; -1 when the file
// gives no model (the project is left as it was) or the project cannot be saved.
QV_EXPORT long cmdOnFileAddKvomodel(const QString& file);

// Opens the dialog that imports images and texture meshes from another project: 0, or -1.
QV_EXPORT long cmdImportMesh(const QString& projectFile);

// The half-edge mesh of the model's vertices and the triangles of its bare
// meshes; refused receives the numbers of the faces it could not hold.
QV_EXPORT long checkModelMesh(Rec3D::KvoHalfEdgeMesh& mesh, std::vector<unsigned>& refused);

// Refines the half-edge mesh and rebuilds the model from it: one bare mesh with
// every face that survived, and each texture mesh with those of its triangles
// that survived. The number of faces the model lost, or -1 when the mesh lacks
// "VPropVerIdx" and "FPropFaceIdx" (nothing changes then).
QV_EXPORT long repairModelMesh(Rec3D::KvoHalfEdgeMesh& mesh, IKvoProgress* progress);

} // namespace kvo

#pragma once

#include <QString>

#include <cstddef>
#include <vector>

#include "scene/KvoArray.h"
#include "scene/KvoProgress.h"

namespace kvo {

// An index the file did not give.
constexpr unsigned kObjNoIndex = 0xFFFFFFFFu;

// One triangle of the file, 0-based indices into the reader's arrays.
struct QV_EXPORT QvObjTriangle {
    unsigned vindices[3] = {kObjNoIndex, kObjNoIndex, kObjNoIndex};
    unsigned nindices[3] = {kObjNoIndex, kObjNoIndex, kObjNoIndex};
    unsigned tindices[3] = {kObjNoIndex, kObjNoIndex, kObjNoIndex};
    unsigned findex = 0;
};

struct QV_EXPORT QvObjMaterial {
    QString name;
    float ambient[4] = {0.2f, 0.2f, 0.2f, 1.f};
    float diffuse[4] = {0.8f, 0.8f, 0.8f, 1.f};
    float specular[4] = {0.f, 0.f, 0.f, 1.f};
    float emissive[4] = {0.f, 0.f, 0.f, 1.f};
    float shininess = 65.f;
    QString mapKd;
};

struct QV_EXPORT QvObjGroup {
    QString name;
    std::vector<unsigned> triangles; // numbers into QvObjModel::triangles
    int material = 0;
    // Filled while the model is built, for the groups that become texture meshes.
    ref_ptr<UIntArray> indices;
    ref_ptr<Pnt3fArray> normals;
    ref_ptr<UIntArray> texIndices;
};

// What the reader makes of an OBJ file; it lives only during an import.
struct QV_EXPORT QvObjModel {
    QString pathName; // the OBJ file's folder with a trailing "/"
    QString mtlName;
    ref_ptr<Pnt3fArray> vertices = newPnt3fArray();
    ref_ptr<Pnt3fArray> normals = newPnt3fArray();
    ref_ptr<Pnt2fArray> texCoords = newPnt2fArray();
    ref_ptr<Pnt3fArray> faceNormals = newPnt3fArray();
    std::vector<QvObjTriangle> triangles;
    std::vector<QvObjMaterial> materials;
    std::vector<QvObjGroup> groups;

    // Not part of the file's content: what the reader could not use, for the caller to report.
    bool mtlMissing = false; // an mtllib line named a file that could not be read
};

// Results of readObjFile besides 0.
enum KvoObjReadResult : long {
    kvoObjCannotOpen = -1,
    kvoObjNotText = -2, // NUL bytes: a binary file or a UTF-16 text
};

// Reads an OBJ file and the MTL file it names. 0, or a negative code and an empty model.
QV_EXPORT long readObjFile(QvObjModel& model, const QString& file, IKvoProgress* progress);

// The same rules over bytes in memory; folder is where names of other files are
// resolved (with a trailing "/"). Parsing never reads outside [data, data + size).
QV_EXPORT long readObjBuffer(QvObjModel& model, const char* data, size_t size, const QString& folder,
                             IKvoProgress* progress = nullptr);

// Reads MTL bytes into the model's materials (the two passes of the MTL reader).
QV_EXPORT void readMtlBuffer(QvObjModel& model, const char* data, size_t size);

// Where a name from an OBJ or MTL file points: full paths stay, others are
// relative to the OBJ file's folder; backslashes are folder separators.
QV_EXPORT QString resolveObjName(const QString& objFolder, const QString& name);

} // namespace kvo

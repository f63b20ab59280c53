#pragma once

#include "modelio/KvoObjReader.h"
#include "scene/KvoStore.h"

namespace kvo {

// Results of buildModelFromObj besides 0.
enum KvoObjBuildResult : long {
    kvoObjFailed = -1,   // the file cannot be read or holds no vertices
    kvoObjBadIndex = -3, // a face names a vertex that the file does not hold
    kvoObjNoMesh = -4,   // the store made no mesh (no project or no model)
};

// The unit normal of the triangle a, b, c (counter-clockwise front); zero when it has no area.
QV_EXPORT XPnt3f normal(const XPnt3f& a, const XPnt3f& b, const XPnt3f& c);

// Reads the OBJ file into objModel and builds the model from it: vertices, the
// bare mesh "object" with every triangle, vertex normals. The model must be the
// model manager's bare model already. imageCount is the number of groups whose
// picture exists. badFaces, when given, receives the number of faces that name
// a vertex the file does not hold. The reader's triangle list is let go once
// the meshes hold the triangles; groups keep theirs.
QV_EXPORT long buildModelFromObj(const QString& file, ref_ptr<IKvoModel>& model, QvObjModel& objModel,
                                 unsigned& imageCount, IKvoProgress* progress, long* badFaces = nullptr);

// The averaged vertex normals of the Part's rule: each vertex gets the sum of the
// normals of the faces around it divided by their number (not normalised);
// vertices without faces get (0, 0, 1).
QV_EXPORT ref_ptr<Pnt3fArray> averagedVertexNormals(const IKvoModel& model);

// True when the group's material has a picture on disk.
QV_EXPORT bool groupHasPicture(const QvObjModel& objModel, const QvObjGroup& group);

} // namespace kvo

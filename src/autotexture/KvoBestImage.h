#pragma once

// The whole model textured by the photographs that see it best: one texture
// mesh a photograph, holding the triangles given to it, with the UVs of its
// camera. And the clean-up that leaves every triangle in one opaque texture
// mesh only.

#include <QStringList>

#include <functional>
#include <vector>

#include "scene/KvoProgress.h"
#include "scene/KvoStore.h"

namespace kvo {

enum : long {
    kvoNoCameras = -8300,        // no photograph has a camera
    kvoBestImageIdClash = -8301, // two photographs' ids agree in their low 16 bits
    kvoBestImageCancelled = -8302,
};

// What a whole-model selection did.
struct KvoBestImageReport {
    long faces = 0;               // faces of the bare model
    long candidates = 0;          // faces that some photograph sees unoccluded
    long textured = 0;            // faces given to a photograph
    long imagesUsed = 0;          // photographs that got at least one face
    long seams = 0;               // edge-adjacent face pairs on different photographs
    double seconds[4] = {};       // visibility, data terms, optimisation, write-back
    QStringList skipped;          // photographs left out, with the reason
    std::vector<long> skippedIds; // their image ids, in the same order
};

// Every triangle of the bare model gets the one photograph with a camera that
// sees it best (faces no photograph sees stay unmapped); each photograph's
// texture mesh is rewritten with its faces, and a photograph left without
// faces loses its mapping. Returns 0, or a negative code (no project, no bare
// model, no photograph with a camera, two photographs whose ids are equal in
// their low 16 bits, cancelled). cancelled is asked between photographs; a
// cancelled selection changes nothing.
QV_EXPORT long selBestImgForFace(IKvoProgress* progress, KvoBestImageReport* report,
                                 const std::function<bool()>& cancelled = {});
inline void selBestImgForFace(IKvoProgress* progress)
{
    selBestImgForFace(progress, nullptr);
}

// Leaves every triangle in one opaque texture mesh, the last in list order
// that holds it (kind 0: the shown list, 1: all texture meshes). -8168
// without a bare model.
QV_EXPORT long cmdOnSeamlessTexturedMesh(int kind, IKvoProgress* progress);

} // namespace kvo

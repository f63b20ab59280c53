#pragma once

// View selection: which photograph textures each face of a mesh. A labelling
// problem over the faces, with a data term from what each photograph shows of
// a face and a smoothness term over edge-adjacent faces, solved by graph cuts.
// docs/best-image.md tells the terms and their weights.

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "scene/KvoExport.h"
#include "scene/KvoProgress.h"

namespace cv {
class Mat;
}

namespace Rec3D {

template <class T> struct meshPoint3 {
    T x, y, z;
};

// A photograph's pinhole camera. x = K (R X + T) in pixels of a width x height
// picture, with x to the right, y down the rows and z forward (points in
// front have z > 0). Matrices row by row.
struct CamInfo {
    double K[9] = {};
    double R[9] = {};
    double T[3] = {};
    int32_t width = 0, height = 0;
    uint16_t id = 0;
    char path[512] = {}; // the picture's file, local 8-bit encoding
};

namespace RecMesh {

struct ViewSelectionOptions {
    int maxDataCost = 100;    // the data term's range: 0 for the best view there is
    int smoothness = 20;      // Potts weight of an edge of mean length
    int cycles = 4;           // alpha-expansion cycles at most
    int rasterMaxSide = 2048; // visibility and pixel sampling at most this many pixels across
    bool optimise = true;     // false: each face its own best view (the greedy choice)
    bool photoConsistency = true;
    // Where the pictures come from: when set, asked for camera i's pixels as
    // 8-bit RGBA (or RGB, or grey) of any size (a project hands over what its store holds, which
    // may be an undistorted picture not yet on disk); else CamInfo::path is read.
    std::function<bool(size_t camera, cv::Mat& rgba)> picture;
    // Asked between photographs; true stops the selection (result -2, labels
    // all -1) so that a user's Cancel is heard within one photograph's work.
    std::function<bool()> cancelled;
};

struct ViewSelectionStats {
    long faces = 0;
    long candidates = 0; // faces that some photograph sees unoccluded
    long textured = 0;
    long seams = 0;          // edge-adjacent textured pairs on different photographs
    double meanDataCost = 0; // over textured faces
    double seconds[3] = {};  // visibility, data terms, optimisation
    long outliers = 0;       // views dropped as inconsistent with the others
    long long energy = 0;    // the optimiser's final energy
};

// labels: for each face, the index of its photograph in cams, or -1 (no
// photograph sees it unoccluded). Returns 0, -1 on bad input, -2 when
// options.cancelled said so.
QV_EXPORT long selectViews(const float* xyz, long vertexCount, const uint32_t* triangles, long faceCount,
                           const std::vector<CamInfo>& cams, const ViewSelectionOptions& options,
                           std::vector<int>& labels, ViewSelectionStats* stats, kvo::IKvoProgress* progress);

// Per face (three a face) the view's visibility flag and data cost for one
// camera; for tests and tools that want the terms themselves.
QV_EXPORT void visibleFaces(const float* xyz, long vertexCount, const uint32_t* triangles, long faceCount,
                            const CamInfo& cam, int rasterMaxSide, std::vector<uint8_t>& visible);

// The same selection keyed by the cameras' 16-bit ids: facesOfImage gets, for
// each id, the numbers (positions in faces) of the faces it textures.
QV_EXPORT long selBestImgForFace(const std::vector<meshPoint3<float>>& vertices,
                                 const std::vector<meshPoint3<long>>& faces, const std::map<uint16_t, CamInfo>& images,
                                 std::map<uint16_t, std::vector<int32_t>>& facesOfImage,
                                 const ViewSelectionOptions& options = ViewSelectionOptions(),
                                 ViewSelectionStats* stats = nullptr, kvo::IKvoProgress* progress = nullptr);

} // namespace RecMesh
} // namespace Rec3D

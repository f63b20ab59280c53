#pragma once

// Colour balance of the photographs that texture a model. Patches of the
// surface come from different photographs whose exposure and white balance
// differ; where two patches meet, the same surface point is seen in both
// pictures, and those seam samples tell how the pictures must change:
//   1. a gain per photograph and channel in linear light (robust fit with a
//      weak prior toward 1),
//   2. additive offsets per vertex and patch that level the seams globally
//      (sparse least squares, conjugate gradients),
//   3. a Poisson levelling in a strip inside each patch along its seams,
//      whose seam border takes the mean of both sides.
// docs/colour-balance.md tells the model, its weights and its measures.

#include <QString>
#include <QStringList>

#include <OpenMesh/Core/Geometry/VectorT.hh>
#include <OpenMesh/Core/Mesh/Handles.hh>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "scene/KvoExport.h"
#include "scene/KvoProgress.h"

namespace cv {
class Mat;
}

namespace Rec3D {

class KvoHalfEdgeMesh;

namespace RecMesh {

// One photograph that shows on the model: its pixel size and its picture file.
struct ImgInfo {
    int32_t width = 0, height = 0;
    QString path;
};

// (patch number, image id): the faces of one patch of one photograph.
using PatchKey = std::pair<int, uint16_t>;
using PatchTable = std::map<PatchKey, std::vector<OpenMesh::FaceHandle>>;
// The pixel positions of a face's three corners in its photograph (x right,
// y down the rows), in the order of the face's vertices.
using FaceCorners = std::array<OpenMesh::Vec2f, 3>;

enum class ColorMode {
    Global, // gains and seam levelling over the whole model
    Full,   // and the local levelling along every seam
};

struct ColorOptions {
    ColorMode mode = ColorMode::Full;
    // Blur of the copy the seam samples are read from (pixels).
    double blurSigma = 1.0;
    // Weight of the prior that pulls each log gain toward 0, against a
    // photograph's whole seam weight.
    double gainPrior = 0.01;
    // Smoothness of the seam offsets: weight of an edge inside a patch against
    // a seam edge.
    double offsetSmoothness = 10.0;
    // Width in pixels of the strip inside a patch that the local levelling changes.
    int stripWidth = 20;
    // Pixels past each patch that get its corrections too.
    int extend = 4;
    int jpegQuality = 95;
    // Where the pixels come from: asked for image id's pixels as 8-bit RGBA
    // (rows top-down) of the size in its ImgInfo; false when they cannot be
    // had. Unset: the picture file at ImgInfo::path is read. Called from
    // several threads at once: it guards whatever it reads from. rgba and
    // scratch come holding buffers of an earlier picture, for a decoder to
    // reuse (decodeImageFileRGBA).
    std::function<bool(uint16_t id, cv::Mat& rgba, cv::Mat& scratch)> picture;
    // Given each corrected picture (8-bit RGBA, the alpha as it came) as soon
    // as it is made, so that nobody holds all of them; false when it could not
    // be kept. Called from the calling thread only, as are cancelled and the
    // progress.
    std::function<bool(uint16_t id, const cv::Mat& rgba)> result;
    // Asked between photographs; true stops the run, and the caller puts back
    // whatever result had been given already.
    std::function<bool()> cancelled;
    kvo::IKvoProgress* progress = nullptr;
};

struct ColorImageStats {
    uint16_t id = 0;
    bool read = false;
    // The correction of the pixel values (R, G, B) that the gain in linear light amounts to.
    double gain[3] = {1, 1, 1};
    double linearGain[3] = {1, 1, 1};
    long seamSamples = 0; // usable seam samples on this photograph's side
    QString file;         // the JPEG written
};

struct ColorStats {
    long patches = 0;
    long seamEdges = 0;
    long seamSamples = 0;   // samples taken on the seams
    long usableSamples = 0; // read on both sides, unclipped and opaque
    // Mean absolute difference (grey levels, over R, G and B) between the two
    // sides of the seams, on the blurred pictures: before and after.
    double stepBefore = 0, stepAfter = 0;
    long offsetUnknowns = 0, offsetIterations = 0;
    long stripPixels = 0;
    std::vector<ColorImageStats> images; // in rising id
    QStringList skipped;                 // photographs left out, with the reason
    // Seconds: sampling, global solve, local levelling, applying, writing.
    double seconds[5] = {};
};

enum : long {
    kvoColorBadInput = -8310, // tables that do not fit together
    kvoColorCannotWrite = -8311,
    kvoColorCancelled = -8312,
};

// Reads each photograph's pixels, evens out colour across the patches and
// writes for each photograph a JPEG of its size into folder, named after the
// base name of its file (ImgInfo::path). faceUVs holds the corners of the
// mesh's faces, by face number. A photograph whose pixels cannot be read is
// left out (named in stats->skipped) and counts as fixed. 0, or a negative code.
QV_EXPORT long adjColorForPatch(const KvoHalfEdgeMesh& mesh, const QString& folder, const PatchTable& patches,
                                const std::map<uint16_t, ImgInfo>& images, const std::vector<FaceCorners>& faceUVs,
                                const ColorOptions& options = ColorOptions(), ColorStats* stats = nullptr);

} // namespace RecMesh
} // namespace Rec3D

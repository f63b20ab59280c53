#pragma once

// How good a textured model is, measured against a generated scene whose
// answer is known: the model re-rendered through each photograph's true
// camera against the photograph, and its texture against the ground-truth
// texture at the same points of the surface.

#include <QString>

#include "SampleRender.h"
#include "scene/KvoTypes.h"

#include <string>
#include <vector>

namespace qvsample {

// The PSNR reported when the two sides agree to rounding (the mean squared
// error would give an infinite or meaningless figure).
constexpr double kQualityPsnrCap = 100.0;

struct QualityReport {
    long faces = 0; // faces of the measured model
    // Per photograph of the scene: its file name, the PSNR in dB of the model
    // re-rendered from that photograph's true camera against the photograph,
    // after exposure normalisation (a gain a channel that matches the means),
    // over the pixels where the model is drawn; and the number of those pixels.
    struct Photo {
        std::string name;
        double psnr = 0;
        long pixels = 0;
    };
    std::vector<Photo> photos;
    // Over the photographs that show the model at one pixel at least.
    double photoPsnrMean = 0, photoPsnrMin = 0;
    // PSNR of the model's texture against the ground-truth texture at the same
    // surface points, after the same exposure normalisation (a gain a channel
    // over all points), over points spread on the faces about one a
    // ground-truth texel, and the number of points; then the same over the
    // faces the model textures only.
    double truthPsnr = 0;
    long truthSamples = 0;
    double truthPsnrTextured = 0;
    long texturedSamples = 0;
    // Faces of the measured model found in the ground truth by their corner
    // positions; only those take part in the truth PSNR.
    long matchedFaces = 0;
};

// sceneFolder: a generated scene (scene.json, photos/, truth/model_textured.obj
// with truth/textures/*.png). texturedObj: an OBJ with its MTL file and map_Kd
// pictures, made of the same surface as the scene (the same vertex positions;
// the order of vertices, faces and corners and the grouping may differ).
// Faces whose material has no picture count as black. False with a reason
// when something cannot be read.
// texturedCorners, when given, names the faces that count as textured by
// their corner positions (three points a face); otherwise a face with a
// picture counts, which says nothing for a model baked on atlases, where every
// face has one.
bool measureQuality(const QString& sceneFolder, const QString& texturedObj, QualityReport& report, QString& error,
                    const std::vector<XPnt3f>* texturedCorners = nullptr);

// How a textured model's choice of photographs fares against the things in
// front of the building that the model lacks. A face counts when some
// photograph shows its centre hidden by such a thing and another shows it
// clear; it is then chosen well when its photograph is one that shows it
// clear. Faces are given by their centres, the surface of scene.mesh they lie
// on (-1: none, left out) and the index in scene.cameras of the photograph
// they got (-1: none); views are the scene's photographs rendered.
struct OccluderScore {
    long contested = 0;    // faces hidden in some photograph, clear in another
    long clearChosen = 0;  // of those, faces given a photograph that shows them clear
    long hiddenChosen = 0; // of those, faces given a photograph in which they are hidden
};
OccluderScore scoreOccluders(const SampleScene& scene, const std::vector<SampleView>& views,
                             const std::vector<XPnt3d>& centres, const std::vector<int32_t>& surfaces,
                             const std::vector<int>& chosen);

// How much of a textured model's texture shows something else than its own
// surface: points spread on each textured face (ten a face) looked up in the
// photograph the face got; a point counts as background where that
// photograph shows the sky, another surface or a thing the model lacks
// there. Faces are given by their corners (three a face), their surface (-1:
// a blob, which has no surface, so every point of it is background) and
// their photograph (-1: none, left out).
struct BackgroundScore {
    long points = 0;
    long background = 0;
    long onBlobs = 0; // of background, points on blobs
};
BackgroundScore scoreBackground(const SampleScene& scene, const std::vector<SampleView>& views,
                                const std::vector<XPnt3d>& corners, const std::vector<int32_t>& surfaces,
                                const std::vector<int>& chosen);

} // namespace qvsample

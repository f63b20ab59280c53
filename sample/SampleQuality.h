#pragma once

// How good a textured model is, measured against a generated scene whose
// answer is known: the model re-rendered through each photograph's true
// camera against the photograph, and its texture against the ground-truth
// texture at the same points of the surface.

#include <QString>

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

} // namespace qvsample

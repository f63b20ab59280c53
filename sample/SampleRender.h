#pragma once

#include <string>

#include "SampleScene.h"

namespace qvsample {

// What a camera sees of a scene, rendered off-screen by OpenGL (Mesa), apart
// from and independent of the system's own visibility code.
struct SampleView {
    // CV_8UC3 BGR: the surfaces' textures, sunlit, antialiased, before any
    // photographic effect.
    cv::Mat bgr;
    // CV_32S: the triangle seen at each pixel's centre, -1 for the sky.
    cv::Mat triangle;
    // The same with only the surfaces the model has, as if nothing else
    // stood in front of them (the same matrix when the scene has nothing else).
    cv::Mat modelTriangle;
};

// supersample: colour is rendered at that many times the size and reduced
// by area averaging. False with a reason when no off-screen context can be made.
bool renderSampleView(const SampleScene& scene, const SampleCamera& camera, SampleView& view, std::string* error,
                      int supersample = 2);

// The sun's brightness factor of a surface in the photographs.
double surfaceShade(const SampleSurface& surface);

// Control points that the view really shows: count points spread over the
// picture (a grid of cells first), each on a surface with the same surface
// all around it, its world position exactly on the mesh under its pixel centre.
std::vector<SampleControlPoint> chooseControlPoints(const SampleScene& scene, const SampleCamera& camera,
                                                    const SampleView& view, int count, unsigned seed);

// For each surface, the share of its area that the view shows (triangles seen
// at one pixel centre at least).
std::vector<double> surfaceCoverage(const SampleScene& scene, const SampleView& view);

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

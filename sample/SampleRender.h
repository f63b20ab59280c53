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

} // namespace qvsample

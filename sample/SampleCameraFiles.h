#pragma once

// Camera files of a generated scene in the formats other tools read, and the
// control-point text file of the control-point session.

#include <string>
#include <vector>

#include "SampleScene.h"

namespace qvsample {

// COLMAP text model: cameras.txt (one PINHOLE camera a photograph), images.txt
// (world-to-camera quaternion and translation; no 2-D points) and an empty
// points3D.txt. COLMAP's pixel convention is ours, so nothing is shifted.
bool writeColmapText(const std::string& folder, const std::vector<SampleCamera>& cams, std::string* error);

// Bundler v0.3: bundle.out (f k1 k2, R, t a camera; no points) and list.txt
// (one line a photograph: "name 0 f"). Bundler cameras look down -z with y
// up and measure pixels from the picture's centre; a principal point off the
// centre cannot be written and is lost, and fx and fy are written as their mean.
bool writeBundler(const std::string& folder, const std::vector<SampleCamera>& cams, std::string* error);

// <photo name without extension>.P.txt: the 3x4 matrix K [R | t] that takes
// homogeneous world points to our pixel positions, three lines of four numbers.
bool writeProjectionMatrices(const std::string& folder, const std::vector<SampleCamera>& cams, std::string* error);

// The control-point file: the header line, then "U V X Y Z" a line.
bool writeControlPoints(const std::string& path, const std::vector<SampleControlPoint>& points, std::string* error);
// Reads such a file: the first line is skipped whatever it holds; lines that do
// not give exactly five numbers, or whose U or V leaves [0, 1], are dropped.
bool readControlPoints(const std::string& path, std::vector<SampleControlPoint>& out, std::string* error);

// Unit quaternion (w, x, y, z), w >= 0, of a rotation matrix (row-major), and back.
void rotationToQuaternion(const double R[9], double q[4]);
void quaternionToRotation(const double q[4], double R[9]);

} // namespace qvsample

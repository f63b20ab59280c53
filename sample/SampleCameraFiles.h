#pragma once

// Camera files of a generated scene in the formats other tools read, and the
// control-point text file of the control-point session. Numbers are written in
// the C locale whatever the user's, camera numbers with 17 significant digits
// so that they read back to the same doubles. Each writer returns false and
// fills *error (when given) if a file cannot be written; a missing folder is
// not created.

#include <string>
#include <vector>

#include "SampleScene.h"

namespace qvsample {

// COLMAP text model: cameras.txt (one PINHOLE camera a photograph, ids from 1),
// images.txt (world-to-camera quaternion, w first and >= 0, and translation;
// an empty second line since no 2-D points are written) and a points3D.txt
// with its header only. COLMAP's camera frame and pixel convention are ours,
// so nothing is flipped or shifted.
bool writeColmapText(const std::string& folder, const std::vector<SampleCamera>& cams, std::string* error);

// Bundler v0.3: bundle.out ("f k1 k2", three rows of R and one of t a camera;
// no points) and list.txt, one line a photograph in the "name 0 f" form, f
// being the same focal length as in bundle.out. Bundler knows one focal length
// and puts the principal point at the picture's centre: fx and fy are written
// as their mean, and a principal point off the centre is lost.
bool writeBundler(const std::string& folder, const std::vector<SampleCamera>& cams, std::string* error);

// <photo name without its extension>.P.txt: the 3x4 matrix K [R | t] taking
// homogeneous world points to our pixel positions, three lines of four numbers.
bool writeProjectionMatrices(const std::string& folder, const std::vector<SampleCamera>& cams, std::string* error);

// The control-point file: a fixed header line, then "U V X Y Z" a line with
// six decimals, as the control-point session writes it.
bool writeControlPoints(const std::string& path, const std::vector<SampleControlPoint>& points, std::string* error);
// Reads such a file: the first line is skipped whatever it holds (so a file
// without the header loses its first point); fields are separated by tabs,
// commas and blanks; lines that do not give exactly five numbers, or whose U or
// V leaves [0, 1], are dropped. False only when the file cannot be read.
bool readControlPoints(const std::string& path, std::vector<SampleControlPoint>& out, std::string* error);

// Unit Hamilton quaternion (w, x, y, z) with w >= 0 of a rotation matrix
// (row-major), accurate also near half turns; and back (q need not be unit).
void rotationToQuaternion(const double R[9], double q[4]);
void quaternionToRotation(const double q[4], double R[9]);

} // namespace qvsample

#pragma once

// Generated scenes with a known answer: geometry, ground-truth textures and
// cameras, from which photographs and camera files are made. Everything is
// deterministic for a given seed.

#include <opencv2/core.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include "scene/KvoTypes.h"

namespace qvsample {

// Realistic: the building as a real capture shows it, with things in front
// of it that the model does not have, photographs that differ in more than
// exposure, and a model made the way reconstructions are (noisy, outlines
// grown past the surfaces, stray blobs, holes).
enum class SceneKind { Building, Plane, Wall, Realistic };

const char* kindName(SceneKind kind);
// False when name is none of "building", "plane", "wall", "realistic".
bool parseKind(const std::string& name, SceneKind& kind);

struct SampleOptions {
    SceneKind kind = SceneKind::Building;
    int photos = 8;
    unsigned seed = 1;
    // Roughly how many triangles the mesh gets.
    long triangles = 20000;
    int photoWidth = 1600;
    int photoHeight = 1200;
    // Texels per metre of the ground-truth textures.
    double texelsPerMetre = 96;
    // Without textures only the geometry and the cameras are made.
    bool textures = true;
};

// A planar rectangle of the scene with its own ground-truth texture:
// point(s, t) = origin + s * uAxis + t * vAxis for s, t in [0, 1], the outside
// (the side photographs see) where uAxis x vAxis points.
struct SampleSurface {
    std::string name;     // e.g. "facade_south", "roof", "ground", "pillar_east"
    std::string material; // "brick", "plaster", "tiles", "paving", "stone", "poster"
    XPnt3d origin, uAxis, vAxis;
    long firstTriangle = 0, triangleCount = 0;
    // CV_8UC3, BGR, rows top-down: texture coordinate (0, 0) is the bottom-left
    // corner (the last row), (1, 1) the top-right.
    cv::Mat texture;
    // False for what the photographs show but the model leaves out (a tree,
    // a pole, a passer-by); onlyIn names the one photograph such a thing is
    // in, empty when it stays put.
    bool inMesh = true;
    std::string onlyIn;
};

struct SampleMesh {
    std::vector<XPnt3f> vertices;
    // Three vertex indices a triangle, counter-clockwise seen from outside.
    std::vector<uint32_t> triangles;
    // Three texture coordinates a triangle, in its surface's texture.
    std::vector<XPnt2f> cornerUVs;
    // The surface of each triangle.
    std::vector<int32_t> triangleSurface;
    long triangleCount() const { return long(triangleSurface.size()); }
};

// A pinhole camera in the computer-vision convention: camera x right, y down,
// z forward; a world point X has camera coordinates c = R X + t and lands on
// the pixel position (fx c.x / c.z + cx, fy c.y / c.z + cy). Pixel positions
// are measured from the top-left corner of the picture, so pixel (i, j)
// covers [i, i + 1) x [j, j + 1) and its centre is (i + 0.5, j + 0.5).
struct SampleCamera {
    std::string name; // photograph file name, "photo_01.jpg"
    int width = 0, height = 0;
    double fx = 0, fy = 0, cx = 0, cy = 0;
    double R[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1}; // world to camera, row-major
    double t[3] = {0, 0, 0};
    // What the photograph's EXIF tells: lens focal length and sensor size in mm.
    double focalMm = 0, sensorWidthMm = 0, sensorHeightMm = 0;
    std::string make, model;
    // How this photograph differs from the ground truth.
    double exposure = 1;                // brightness factor
    double whiteBalance[3] = {1, 1, 1}; // gains of R, G, B
    double noiseSigma = 0;              // grey levels
    unsigned noiseSeed = 0;
    double vignetting = 0; // brightness lost in the picture's corners (0 to 1)
    double blurSigma = 0;  // defocus or shake, pixels

    XPnt3d center() const;
    // The pixel position of X; false when X is not in front of the camera.
    bool project(const XPnt3d& X, XPnt2d& pixel, double* depth = nullptr) const;
    // K [R | t], row-major 3x4.
    void projectionMatrix(double P[12]) const;
    // The vertical field of view in degrees.
    double fovYDegrees() const;
};

// A control point: where a world point is in a photograph. U and V are the
// picture position with (0, 0) at the bottom-left corner and (1, 1) at the
// top-right: U = x / width, V = 1 - y / height.
struct SampleControlPoint {
    double u = 0, v = 0;
    XPnt3d world;
};

struct SampleScene {
    SceneKind kind = SceneKind::Building;
    unsigned seed = 1;
    SampleMesh mesh;
    std::vector<SampleSurface> surfaces;
    std::vector<SampleCamera> cameras;
    // Filled by the renderer: for each camera, the control points chosen from
    // what that photograph really shows, and the share of each surface's area
    // it sees (0 to 1).
    std::vector<std::vector<SampleControlPoint>> controlPoints;
    std::vector<std::vector<double>> surfaceCoverage;
    // The model a reconstruction would give (realistic scenes only; others
    // write the surfaces of mesh that are in the model). Its triangles'
    // surfaces are those of mesh, -1 for a stray blob.
    SampleMesh reconstruction;
    struct Flaws {
        double noise = 0;  // vertex noise, metres (standard deviation)
        double growth = 0; // how far outlines reach past the surfaces, metres
        std::vector<XPnt3d> holeCentres;
        double holeRadius = 0;
        int blobs = 0;
    } flaws;
};

// Geometry, textures and cameras of a scene.
SampleScene buildSampleScene(const SampleOptions& options);

} // namespace qvsample

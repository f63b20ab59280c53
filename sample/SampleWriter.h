#pragma once

#include <functional>
#include <string>

#include "SampleScene.h"

namespace qvsample {

// Progress of a long generation: share done (0 to 1) and what is being done.
using SampleProgress = std::function<void(double share, const std::string& caption)>;

// Generates a whole scene into folder:
//   model.obj                        the mesh, without texture
//   truth/model_textured.obj, .mtl   the mesh with its ground-truth textures
//   truth/textures/<surface>.png     one texture a surface
//   photos/photo_NN.jpg              photographs with EXIF
//   control_points/photo_NN.txt      12 control points a photograph
//   cameras/colmap/*.txt             COLMAP text model (PINHOLE)
//   cameras/bundler/bundle.out, list.txt
//   cameras/matrices/photo_NN.P.txt  3x4 projection matrices
//   scene.json                       what is where and who sees what
// The scene is returned through out when given. False with a reason on failure.
bool writeSample(const SampleOptions& options, const std::string& folder, std::string* error,
                 const SampleProgress& progress = nullptr, SampleScene* out = nullptr);

// The mesh as OBJ; with a material library name, also texture coordinates,
// one group and material a surface, and the library beside it.
bool writeSampleObj(const SampleScene& scene, const std::string& objPath, const std::string& mtlName,
                    std::string* error);

} // namespace qvsample

#pragma once

#include <QString>

#include "scene/KvoStore.h"

namespace kvo {

// A small generated model (ground and a building block) for demonstrations
// and tests: vertices, two bare meshes named "Ground" and "Building".
QV_EXPORT ref_ptr<IKvoModel> makeSampleModel(int groundCells = 40, int facadeCells = 10);

// Writes a generated photograph (bricks, windows and a corner mark, never
// symmetric) of the given size to a file.
QV_EXPORT bool writeSamplePhoto(const QString& path, int width, int height, int seed);

// Makes a new project at projectFile with the sample model, two generated
// photographs written to photoFolder, a texture mesh for each (one with
// per-vertex UVs, one corner-indexed and tiled), control points, a camera,
// a settings blob, selection marks and a fence, and saves it.
QV_EXPORT long buildSampleProject(const QString& projectFile, const QString& photoFolder, QString& error);

} // namespace kvo

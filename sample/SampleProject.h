#pragma once

#include <QString>

#include "SampleScene.h"
#include "scene/KvoProgress.h"

namespace qvsample {

// Reads what a generated scene folder says of itself (scene.json): the
// options it was made with and its cameras. False with a reason.
bool readSampleFolder(const QString& folder, SampleOptions& options, std::vector<SampleCamera>& cameras,
                      QString& error);

// Makes a project at projectFile from a generated scene folder: the model
// (one bare mesh a surface), the photographs, their control points, and a
// virtual camera for each photograph from its known pose; then saves it.
// The project is left open. A kvo result code; error says why on failure.
long buildProjectFromSample(const QString& sampleFolder, const QString& projectFile, QString& error);

// Writes a scene made with options to sceneFolder and makes the project at
// projectFile from it, as buildProjectFromSample does; scene, when given,
// gets the generated scene.
long makeSampleProject(const SampleOptions& options, const QString& sceneFolder, const QString& projectFile,
                       QString& error, SampleScene* scene = nullptr);

// Maps every photograph of the open project through its stored camera,
// hidden triangles left out, and keeps the result (the texture-edit session
// is committed and closed). The number of photographs mapped.
long mapThroughStoredCameras(kvo::IKvoProgress* progress = nullptr);

} // namespace qvsample

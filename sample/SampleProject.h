#pragma once

#include <QString>

#include "SampleScene.h"

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

} // namespace qvsample

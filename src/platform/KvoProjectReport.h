#pragma once

#include <QString>

#include "scene/KvoStore.h"

namespace kvo {

// A plain-text account of everything the open project keeps: model, meshes
// (with checksums of their arrays and pixels), images and their records,
// cameras, settings blobs and the fence. Two projects with the same report
// hold the same data, which is what save and reopen must preserve.
QV_EXPORT QString describeProject(IKvoMM& mm, bool withPixels = true);

// FNV-1a over bytes; stable across runs and machines.
QV_EXPORT quint64 checksum(const void* data, size_t bytes, quint64 seed = 1469598103934665603ULL);

} // namespace kvo

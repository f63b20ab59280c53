#pragma once

// The control-point text file: a header line, then "U V X Y Z" a line.

#include <QString>

#include "scene/KvoExport.h"

namespace kvo {

// Writes the image's control points; 0, or -1 with message set (also on success).
QV_EXPORT long exportCtrlPointFile(long imageId, const QString& path, QString& message);
// Appends the file's control points to the image's; skipped counts the data
// lines that were not five numbers with U and V within 0 to 1.
QV_EXPORT long importCtrlPointFile(long imageId, const QString& path, QString& message, long* skipped = nullptr);

// The same through the file dialog and message boxes of the presenter.
QV_EXPORT long exportCtrlPointsQt(long imageId);
QV_EXPORT long importCtrlPointsQt(long imageId);

} // namespace kvo

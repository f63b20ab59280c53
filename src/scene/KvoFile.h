#pragma once

#include <QString>

#include "scene/KvoExport.h"

namespace kvo {

// Folder of the operating system's temporary files plus "quovara", or the
// QUOVARA_WORK_DIR environment variable when set. Matching and seam work keep
// their files here. Made on demand.
QV_EXPORT QString getWorkFolder();

// The folder of a file path, without the trailing separator.
QV_EXPORT QString getFileDir(const QString& path);
// The extension without the dot, lower case.
QV_EXPORT QString getFileExt(const QString& path);
QV_EXPORT bool isFileExist(const QString& path);
// The file name with its extension.
QV_EXPORT QString pathGetFileName(const QString& path);
// The file name without its extension.
QV_EXPORT QString pathGetBaseName(const QString& path);
QV_EXPORT QString pathGetParent(const QString& path);
// Makes the folder and its parents; true when it exists afterwards.
QV_EXPORT bool createFolder(const QString& path);
QV_EXPORT bool isFolderExist(const QString& path);
QV_EXPORT bool removeFolder(const QString& path);

enum KvoImageType { kvoImgUnknown = 0, kvoImgJpeg, kvoImgPng, kvoImgBmp, kvoImgTiff };
QV_EXPORT KvoImageType getImageTypeFromFileName(const QString& path);

} // namespace kvo

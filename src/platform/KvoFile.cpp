#include "scene/KvoFile.h"

#include <QDir>
#include <QFileInfo>

namespace kvo {

namespace {

QString clean(const QString& path)
{
    return QDir::fromNativeSeparators(path);
}

} // namespace

QString getWorkFolder()
{
    QString dir = qEnvironmentVariable("QUOVARA_WORK_DIR");
    if (dir.isEmpty())
        dir = QDir::tempPath() + "/quovara";
    // Made on every call: the folder may be cleaned away by the system or by
    // another instance while we run, and callers write into it right away.
    QString abs = QDir::cleanPath(QDir(clean(dir)).absolutePath());
    QDir().mkpath(abs);
    return abs;
}

QString getFileDir(const QString& path)
{
    return QFileInfo(clean(path)).path();
}

QString getFileExt(const QString& path)
{
    return QFileInfo(clean(path)).suffix().toLower();
}

bool isFileExist(const QString& path)
{
    return !path.isEmpty() && QFileInfo(clean(path)).isFile();
}

QString pathGetFileName(const QString& path)
{
    return QFileInfo(clean(path)).fileName();
}

QString pathGetBaseName(const QString& path)
{
    // Only the last suffix is the extension, matching getFileExt.
    return QFileInfo(clean(path)).completeBaseName();
}

QString pathGetParent(const QString& path)
{
    // A folder given with a trailing separator has the same parent as without it.
    QString p = clean(path);
    while (p.size() > 1 && p.endsWith('/'))
        p.chop(1);
    return QFileInfo(p).path();
}

bool createFolder(const QString& path)
{
    if (path.isEmpty())
        return false;
    QDir().mkpath(clean(path));
    return isFolderExist(path);
}

bool isFolderExist(const QString& path)
{
    return !path.isEmpty() && QFileInfo(clean(path)).isDir();
}

bool removeFolder(const QString& path)
{
    // QDir("") is the current folder; never let an empty path wipe it.
    if (path.isEmpty())
        return false;
    return QDir(clean(path)).removeRecursively();
}

KvoImageType getImageTypeFromFileName(const QString& path)
{
    QString ext = getFileExt(path);
    if (ext == "jpg" || ext == "jpeg")
        return kvoImgJpeg;
    if (ext == "png")
        return kvoImgPng;
    if (ext == "bmp")
        return kvoImgBmp;
    if (ext == "tif" || ext == "tiff")
        return kvoImgTiff;
    return kvoImgUnknown;
}

} // namespace kvo

#include "support/TestSupport.h"

#include <QDir>
#include <QImage>

#include "scene/KvoFile.h"

namespace qvtest {

static QString scratchTemplate()
{
    QString base = kvo::getWorkFolder() + "/tests";
    QDir().mkpath(base);
    return base + "/scratch-XXXXXX";
}

ScratchDir::ScratchDir() : m_dir(scratchTemplate()) {}

bool writeTestPicture(const QString& path, int width, int height, int seed)
{
    QImage img(width, height, QImage::Format_RGB888);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            img.setPixel(x, y,
                         qRgb((x * 255) / std::max(1, width - 1), (y * 255) / std::max(1, height - 1),
                              (seed * 37 + x * 3 + y * 7) & 0xff));
    // A white block in the top-left corner tells flips and mirrors apart.
    for (int y = 0; y < height / 4; ++y)
        for (int x = 0; x < width / 3; ++x)
            img.setPixel(x, y, qRgb(255, 255, 255));
    return img.save(path);
}

} // namespace qvtest

#include <QFile>

#include "scene/KvoStore.h"

namespace qvtest {

void StoreTest::SetUp()
{
    kvo::getMM()->closeProject();
}

void StoreTest::TearDown()
{
    kvo::getMM()->closeProject();
}

void StoreTest::newProject(const QString& name)
{
    kvo::IKvoMM* mm = kvo::getMM();
    ASSERT_EQ(mm->newProject(scratch.file(name)), 0) << mm->getLastError().toStdString();
}

QString StoreTest::projectFolder() const
{
    kvo::ref_ptr<kvo::IKvoProject> project;
    kvo::getMM()->getProject(project);
    return project ? project->getFolder() : QString();
}

bool copyFile(const QString& from, const QString& to)
{
    QFile::remove(to);
    return QFile::copy(from, to);
}

} // namespace qvtest

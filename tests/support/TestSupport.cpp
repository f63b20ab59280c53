#include "support/TestSupport.h"

#include <QDir>
#include <QImage>
#include <QProcess>

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

KvoMatrix4d rigidTransform(XPnt3d k, double angle, const XPnt3d& t)
{
    k.normalize();
    const double c = std::cos(angle), s = std::sin(angle), v = 1 - c;
    KvoMatrix4d m = KvoMatrix4d::translation(t.x, t.y, t.z);
    m[0][0] = c + k.x * k.x * v;
    m[0][1] = k.x * k.y * v - k.z * s;
    m[0][2] = k.x * k.z * v + k.y * s;
    m[1][0] = k.y * k.x * v + k.z * s;
    m[1][1] = c + k.y * k.y * v;
    m[1][2] = k.y * k.z * v - k.x * s;
    m[2][0] = k.z * k.x * v - k.y * s;
    m[2][1] = k.z * k.y * v + k.x * s;
    m[2][2] = c + k.z * k.z * v;
    return m;
}

bool copyFile(const QString& from, const QString& to)
{
    QFile::remove(to);
    return QFile::copy(from, to);
}

std::map<long, std::vector<unsigned>> texMeshTriangles()
{
    std::map<long, std::vector<unsigned>> out;
    kvo::ref_ptr<kvo::MeshArray> meshes;
    kvo::getMM()->getTexMeshes(meshes);
    for (long i = 0; meshes && i < meshes->getCount(); ++i)
        out[(*meshes)[i]->getImageId()] = (*meshes)[i]->getTriangleIndices()->vec();
    return out;
}

int assimpInfo(const QString& file, QString& said)
{
    QProcess assimp;
    assimp.setProcessChannelMode(QProcess::MergedChannels);
    assimp.start("assimp", {"info", file});
    if (!assimp.waitForFinished(60000) || assimp.exitStatus() != QProcess::NormalExit)
        return -1;
    said = QString::fromLocal8Bit(assimp.readAll());
    return assimp.exitCode();
}

} // namespace qvtest

#pragma once

#include <QString>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <vector>

#include "scene/KvoTypes.h"

// Readable failure messages for Qt strings.
QT_BEGIN_NAMESPACE
inline void PrintTo(const QString& s, std::ostream* os)
{
    *os << '"' << s.toStdString() << '"';
}
QT_END_NAMESPACE

namespace qvtest {

// A fresh folder below the test work folder, removed when the object goes.
class ScratchDir {
public:
    ScratchDir();
    QString path() const { return m_dir.path(); }
    QString file(const QString& name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
};

// Writes a w x h picture that is not symmetric in any axis (a gradient with a
// white block in the top-left corner) and returns true on success.
bool writeTestPicture(const QString& path, int width, int height, int seed = 0);

// A rigid transform: rotation by angle (radians) about axis (Rodrigues' formula), then translation.
KvoMatrix4d rigidTransform(XPnt3d axis, double angle, const XPnt3d& translation = XPnt3d());

// Copies a file byte for byte; false on failure.
bool copyFile(const QString& from, const QString& to);

// The open project's texture meshes as image id -> triangle indices, to
// compare the states before and after an operation.
std::map<long, std::vector<unsigned>> texMeshTriangles();

// Runs `assimp info` on a file, another program's reading of what we wrote:
// its exit code (-1 when it could not run) and what it printed.
int assimpInfo(const QString& file, QString& said);

// Tests of the store start with no project open and a scratch folder, and
// leave no project open behind them.
class StoreTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Makes a new project in the scratch folder; fails the test if it can't.
    void newProject(const QString& name = "p.qvj");
    QString projectFolder() const;
    ScratchDir scratch;
};

} // namespace qvtest

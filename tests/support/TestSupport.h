#pragma once

#include <QString>
#include <QTemporaryDir>

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
// marker in the top-left corner) and returns true on success.
bool writeTestPicture(const QString& path, int width, int height, int seed = 0);

} // namespace qvtest

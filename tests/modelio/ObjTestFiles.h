#pragma once

#include <QFile>
#include <QString>

#include "modelio/KvoObjReader.h"

namespace qvtest {

inline bool writeText(const QString& path, const QByteArray& text)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(text) == text.size();
}

// A model read from text written to a file of the scratch folder.
inline long readObjText(kvo::QvObjModel& model, const QString& path, const QByteArray& text)
{
    if (!writeText(path, text))
        return -100;
    return kvo::readObjFile(model, path, nullptr);
}

// Two squares side by side with texture coordinates: one group per material.
inline QByteArray twoSquaresObj(const QByteArray& mtllib = "mtllib two.mtl\n")
{
    return mtllib + "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 2 0 0\nv 2 1 0\n"
                    "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nvt 0.5 0\nvt 0.5 1\n"
                    "usemtl left\nf 1/1 2/2 3/3 4/4\n"
                    "usemtl right\nf 2/2 5/5 6/6 3/3\n";
}

} // namespace qvtest

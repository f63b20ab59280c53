#pragma once

// Writing the project's meshes to a Wavefront OBJ file with its MTL file and
// JPEG textures: either one group a mesh with its own texture (where two
// meshes hold a triangle, one keeps it and the other's pixels are mixed into
// its picture), or the whole model as one mesh baked into texture atlases.

#include <QString>
#include <QStringList>

#include "modelio/KvoObjWriter.h"
#include "scene/KvoStore.h"

namespace kvo {

// One row of the export table.
struct QV_EXPORT _ExportInfo {
    ref_ptr<IKvoMesh> mesh;
    bool resample = true; // the project copy of the picture; false: the file of path
    QString name;
    QString path;
};
using ExportInfoArray = KvoArray<_ExportInfo>;
QV_EXPORT ref_ptr<ExportInfoArray> newExportInfoArray();

struct QV_EXPORT KvoExportFlags {
    bool swapYZ = false;
    bool moveToOrigin = false;
    bool powerOf2 = false;
    bool clipBigImage = false;
};

// What an export wrote, for the dialog's and the command line's summaries.
struct QV_EXPORT KvoExportReport {
    QString objFile;
    QString mtlFile;
    long meshes = 0;
    long vertices = 0;
    long uvs = 0;
    long normals = 0;
    long faces = 0;
    long sheets = 0;
    double efficiency = 0; // share of the atlas pixels the layout covers
    QStringList textures;
    QStringList problems;
};

// Results besides 0.
enum KvoExportResult : long {
    kvoExportNoFolder = -10,
    kvoExportCannotWrite = -11,
    kvoExportNothing = -12,
    kvoExportCancelled = -13,
    kvoExportLayoutFailed = -14,
};

class QV_EXPORT KvoModelExporter {
public:
    // dir: the export folder; base names every file, by default the folder's last component.
    explicit KvoModelExporter(const QString& dir, const QString& base = QString());

    // One group a mesh, rows of the table in order.
    long exportRespective(const ExportInfoArray& rows, const KvoExportFlags& flags, IKvoProgress* progress);

    // The bare meshes as one mesh with atlases of atlasSize x atlasSize pixels.
    // recalculate: lay the UVs out anew; otherwise read them from uvFile (an
    // OBJ file of the same model). Results of a bad UV file: -1 unreadable,
    // -2 another vertex count, -3 other vertices, -4 no triangle, -5 no UVs;
    // the user is asked whether to lay the UVs out instead.
    long exportSingleMesh(const ExportInfoArray& rows, long atlasSize, bool recalculate, const QString& uvFile,
                          IKvoProgress* progress);

    const KvoExportReport& report() const { return m_report; }
    QString baseName() const { return m_base; }

    // Pictures the respective export may hold at once, in bytes; beyond it
    // changed pictures wait in the temporary folder. At least two are held.
    void setImageBudget(size_t bytes) { m_budget = bytes; }
    // Gutter and chart limit handed to the UV layout.
    void setLayoutParameters(long gutter, long limit)
    {
        m_layoutGutter = gutter;
        m_layoutLimit = limit;
    }

    // Tile grid of a big picture: points across and down, 1 x 1 meaning no tiling.
    static void tileGrid(long width, long height, long& across, long& down);

private:
    QString m_dir;
    QString m_base;
    KvoExportReport m_report;
    size_t m_budget = size_t(1536) << 20;
    long m_layoutGutter = 5;
    long m_layoutLimit = 1000;
};

// The folder name that every export file takes its name from.
QV_EXPORT QString exportBaseName(const QString& dir);

} // namespace kvo

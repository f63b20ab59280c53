#pragma once

// The text side of the model export: number formatting, a buffered file, the
// mesh as it goes to the file, and the OBJ and MTL texts. Hot loops format
// into a byte buffer, so a million-face model writes in well under a second.

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <cstdio>
#include <vector>

#include "scene/KvoArray.h"

namespace kvo {

// Writes v as QString::number(v, 'g', 7) does (printf's %.7g, with -0 as "0")
// and returns the end. out needs 32 bytes.
QV_EXPORT char* formatG7(char* out, double v);
// QString::number(double(n), 'g', 8): plain digits below 10^8.
QV_EXPORT char* formatG8(char* out, double v);
QV_EXPORT char* formatUInt(char* out, uint64_t n);

// A file written through a large buffer. Every call is a no-op after a failure.
class QV_EXPORT KvoTextOut {
public:
    KvoTextOut() = default;
    ~KvoTextOut();
    KvoTextOut(const KvoTextOut&) = delete;
    KvoTextOut& operator=(const KvoTextOut&) = delete;

    bool open(const QString& path);
    // Room for at least n bytes; hand the end of what was written to commit().
    char* reserve(size_t n);
    void commit(char* end) { m_used = size_t(end - m_buffer.data()); }
    void write(const char* text, size_t n);
    void write(const QByteArray& text) { write(text.constData(), size_t(text.size())); }
    void write(const char* text);
    bool flush();
    // Flushes and closes; false when any write failed.
    bool close();
    bool failed() const { return m_failed; }

private:
    FILE* m_file = nullptr;
    std::vector<char> m_buffer;
    size_t m_used = 0;
    bool m_failed = false;
};

// One OBJ line of a tag ("v", "vt", "vn") and two or three numbers in the
// seven-digit form.
inline void writeObjLine(KvoTextOut& out, const char* tag, double x, double y)
{
    char* p = out.reserve(96);
    while (*tag)
        *p++ = *tag++;
    *p++ = ' ';
    p = formatG7(p, x);
    *p++ = ' ';
    p = formatG7(p, y);
    *p++ = '\n';
    out.commit(p);
}
inline void writeObjLine(KvoTextOut& out, const char* tag, double x, double y, double z)
{
    char* p = out.reserve(128);
    while (*tag)
        *p++ = *tag++;
    *p++ = ' ';
    p = formatG7(p, x);
    *p++ = ' ';
    p = formatG7(p, y);
    *p++ = ' ';
    p = formatG7(p, z);
    *p++ = '\n';
    out.commit(p);
}

// A mesh as it goes to the file. indices hold three numbers a triangle, or six
// (vertex and UV index of each corner in turn) for a corner-indexed mesh.
struct QV_EXPORT CKvoSmartMesh {
    ref_ptr<Pnt3fArray> vertices = newPnt3fArray();
    ref_ptr<Pnt3fArray> normals = newPnt3fArray();
    ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
    ref_ptr<UIntArray> indices = newUIntArray();
    QString tempImagePath;
    QString texturePath;
    QString suffix;
    QString materialName;
    long imageId = -1;
    bool cornerIndexed = false;

    // Names of the mesh's material and files: dir is the export folder, base its last component.
    void setSuffix(const QString& name, const QString& base, const QString& dir);
    long getTriangleCount() const;
};

// Running numbers of what earlier meshes wrote to the same file.
struct QV_EXPORT KvoObjOffsets {
    uint64_t vertices = 0, uvs = 0, normals = 0;
};

struct QV_EXPORT KvoObjPlacement {
    bool swapYZ = false;
    float cx = 0, cy = 0, cz = 0; // subtracted from every vertex
};

// Appends one mesh as a group; -1 (and nothing written) for a mesh without vertices.
QV_EXPORT long writeSmartMesh(KvoTextOut& out, const CKvoSmartMesh& mesh, const KvoObjPlacement& place,
                              KvoObjOffsets& offsets);

// First lines of the OBJ file of the export with one group a mesh.
QV_EXPORT QByteArray respectiveObjHeader(const QString& base);

// One material of an MTL file: name and picture, and the blank line after it when spaced.
QV_EXPORT QByteArray mtlMaterial(const QString& name, const QString& map, bool spaced);

} // namespace kvo

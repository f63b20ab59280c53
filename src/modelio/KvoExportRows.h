#pragma once

// What the two model exports share: the rows of the table as the export sees
// them, and their pictures.

#include <cstdint>
#include <vector>

#include "modelio/KvoModelExport.h"
#include "scene/KvoUV.h"

namespace kvo {
namespace exportrows {

// Width of the band grown around texture islands, in pixels.
constexpr int kGrowth = 20;

struct TripHash {
    size_t operator()(const XTrip<unsigned>& t) const
    {
        uint64_t h = uint64_t(t.v[0]) * 0x9E3779B97F4A7C15ull;
        h ^= (uint64_t(t.v[1]) + 0x7F4A7C15ull) * 0xC2B2AE3D27D4EB4Full;
        h ^= (uint64_t(t.v[2]) + 0x165667B1ull) * 0x165667B19E3779F9ull;
        return size_t(h ^ (h >> 29));
    }
};

// A mesh as the export sees it: its triangles and their UVs, copied once so
// that a sleeping mesh needs waking only for the copy.
struct RowData {
    _ExportInfo info;
    long kind = 0; // 1 texture mesh, 0 bare
    long imageId = -1;
    bool big = false;
    bool corner = false;
    QString meshName;
    std::vector<unsigned> tris;    // 3 model vertices a triangle
    std::vector<unsigned> corner3; // corner-indexed: 3 UV indices a triangle
    std::vector<XPnt2f> uvs;       // the mesh's UV array
    std::vector<uint8_t> keep;
    bool hasAlpha = false;
    QString pictureFile;        // where a big picture is read from
    long width = 0, height = 0; // of the picture the row's UVs refer to

    long triangleCount() const { return long(tris.size() / 3); }
    XPnt2f uv(long t, int k) const
    {
        unsigned i = corner ? corner3[size_t(3 * t + k)] : tris[size_t(3 * t + k)];
        return i < uvs.size() ? uvs[i] : XPnt2f(0, 0);
    }
    XPnt2d pixel(long t, int k) const
    {
        XPnt2f u = uv(t, k);
        return uvToPixel(u.x, u.y, double(width), double(height));
    }
};

// Copies what the export needs of a row's mesh, waking it for the copy.
void loadRow(RowData& row, IKvoMM& mm);

// The colour picture of a row with the alpha plane folded into its alpha
// channel (255 where the row has no alpha picture).
ref_ptr<IKvoImage> loadRowPicture(const RowData& row, IKvoImageDb& db, bool& hasAlpha);

// Names without blanks or folder separators, for file and material names.
QString fileSafe(const QString& name);

} // namespace exportrows
} // namespace kvo

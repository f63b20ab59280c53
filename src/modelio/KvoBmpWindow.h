#pragma once

// Reads a window of an uncompressed BMP file without holding the whole
// picture: big images are tiled from their file a band of rows at a time.

#include <QString>

#include <cstdint>
#include <vector>

#include "scene/KvoExport.h"

namespace kvo {

class QV_EXPORT KvoBmpWindowReader {
public:
    // Reads the headers: 16 (5-5-5, or masks), 24 and 32 bits per pixel, rows
    // bottom-up or top-down. False, with error(), for anything else.
    bool open(const QString& path);
    long width() const { return m_width; }
    long height() const { return m_height; }
    int bitsPerPixel() const { return m_bits; }
    QString error() const { return m_error; }
    // RGBA pixels of [x0, x0 + w) x [y0, y0 + h) with y0 the top row (rows
    // top-down, alpha 255 unless the file has an alpha mask). Clamped to the
    // picture; false when the window is empty or the file is short.
    bool read(long x0, long y0, long w, long h, std::vector<uint8_t>& rgba, long& outW, long& outH);

    // True when the file starts like a BMP that open() can read.
    static bool isUncompressedBmp(const QString& path);

private:
    QString m_path;
    QString m_error;
    long m_width = 0, m_height = 0;
    bool m_topDown = false;
    int m_bits = 0;
    uint64_t m_dataOffset = 0;
    uint64_t m_rowBytes = 0;
    uint32_t m_masks[4] = {0, 0, 0, 0};
};

} // namespace kvo

#include "modelio/KvoBmpWindow.h"

#include <QFile>

#include <algorithm>
#include <cstring>

namespace kvo {

namespace {

uint32_t le32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
uint16_t le16(const uint8_t* p)
{
    return uint16_t(p[0] | p[1] << 8);
}

// Scales a masked field to 8 bits.
uint8_t field(uint32_t value, uint32_t mask)
{
    if (!mask)
        return 255;
    int shift = 0;
    while (!(mask & 1u)) {
        mask >>= 1;
        value >>= 1;
        ++shift;
    }
    uint32_t v = value & mask;
    return uint8_t((v * 255u + mask / 2) / mask);
}

} // namespace

bool KvoBmpWindowReader::open(const QString& path)
{
    m_path = path;
    m_error.clear();
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        m_error = QString("Cannot open %1.").arg(path);
        return false;
    }
    QByteArray head = f.read(14 + 124);
    const auto* h = reinterpret_cast<const uint8_t*>(head.constData());
    if (head.size() < 14 + 40 || h[0] != 'B' || h[1] != 'M') {
        m_error = QString("%1 is not a BMP file.").arg(path);
        return false;
    }
    m_dataOffset = le32(h + 10);
    const uint32_t infoSize = le32(h + 14);
    const int32_t w = int32_t(le32(h + 18)), hh = int32_t(le32(h + 22));
    m_bits = le16(h + 28);
    const uint32_t compression = le32(h + 30);
    if (infoSize < 40 || w <= 0 || hh == 0 || hh == INT32_MIN) {
        m_error = QString("%1 has a header this reader does not know.").arg(path);
        return false;
    }
    m_width = w;
    m_topDown = hh < 0;
    m_height = m_topDown ? -int64_t(hh) : hh;
    if (m_bits == 16) {
        m_masks[0] = 0x7C00;
        m_masks[1] = 0x03E0;
        m_masks[2] = 0x001F;
        m_masks[3] = 0;
    } else if (m_bits == 32) {
        m_masks[0] = 0x00FF0000;
        m_masks[1] = 0x0000FF00;
        m_masks[2] = 0x000000FF;
        m_masks[3] = 0;
    }
    if (compression == 3 || compression == 6) {
        // Masks follow a 40-byte header, or sit inside a longer one.
        if (head.size() < 14 + 40 + 12) {
            m_error = QString("%1 is short.").arg(path);
            return false;
        }
        m_masks[0] = le32(h + 54);
        m_masks[1] = le32(h + 58);
        m_masks[2] = le32(h + 62);
        m_masks[3] = (compression == 6 || infoSize >= 56) && head.size() >= 70 ? le32(h + 66) : 0;
    } else if (compression != 0) {
        m_error = QString("%1 is compressed; only uncompressed BMP files can be tiled.").arg(path);
        return false;
    }
    if (m_bits != 16 && m_bits != 24 && m_bits != 32) {
        m_error = QString("%1 has %2 bits a pixel; tiling reads 16, 24 and 32.").arg(path).arg(m_bits);
        return false;
    }
    m_rowBytes = (uint64_t(m_width) * uint64_t(m_bits) + 31) / 32 * 4;
    if (uint64_t(f.size()) < m_dataOffset + m_rowBytes * uint64_t(m_height)) {
        m_error = QString("%1 is shorter than its header says.").arg(path);
        return false;
    }
    return true;
}

bool KvoBmpWindowReader::read(long x0, long y0, long w, long h, std::vector<uint8_t>& rgba, long& outW, long& outH)
{
    long xa = std::max(0L, x0), ya = std::max(0L, y0);
    long xb = std::min(m_width, x0 + w), yb = std::min(m_height, y0 + h);
    outW = xb - xa;
    outH = yb - ya;
    if (outW <= 0 || outH <= 0 || m_bits == 0)
        return false;
    QFile f(m_path);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    const int bpp = m_bits / 8;
    rgba.assign(size_t(outW * outH * 4), 255);
    std::vector<uint8_t> line(size_t(outW * bpp));
    for (long y = ya; y < yb; ++y) {
        const long fileRow = m_topDown ? y : m_height - 1 - y;
        if (!f.seek(qint64(m_dataOffset + uint64_t(fileRow) * m_rowBytes + uint64_t(xa * bpp))))
            return false;
        if (f.read(reinterpret_cast<char*>(line.data()), qint64(line.size())) != qint64(line.size()))
            return false;
        uint8_t* out = rgba.data() + (y - ya) * outW * 4;
        const uint8_t* in = line.data();
        for (long x = 0; x < outW; ++x, out += 4, in += bpp) {
            if (m_bits == 24) {
                out[0] = in[2];
                out[1] = in[1];
                out[2] = in[0];
            } else {
                const uint32_t v = m_bits == 16 ? le16(in) : le32(in);
                out[0] = field(v, m_masks[0]);
                out[1] = field(v, m_masks[1]);
                out[2] = field(v, m_masks[2]);
                out[3] = m_masks[3] ? field(v, m_masks[3]) : 255;
            }
        }
    }
    return true;
}

bool KvoBmpWindowReader::isUncompressedBmp(const QString& path)
{
    KvoBmpWindowReader r;
    return r.open(path);
}

} // namespace kvo

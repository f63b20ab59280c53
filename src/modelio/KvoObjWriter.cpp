#include "modelio/KvoObjWriter.h"

#include <QFile>

#include <charconv>
#include <cmath>
#include <cstring>

namespace kvo {

namespace {

// %.{precision}g as Qt writes it: correctly rounded, except that a value lying
// exactly halfway rounds away from zero (printf would round to even).
char* formatG(char* out, double v, int precision)
{
    if (v == 0.0) {
        *out++ = '0';
        return out;
    }
    if (!std::isfinite(v)) {
        const char* s = std::isnan(v) ? "nan" : (v > 0 ? "inf" : "-inf");
        size_t n = std::strlen(s);
        std::memcpy(out, s, n);
        return out + n;
    }
    if (v < 0) {
        *out++ = '-';
        v = -v;
    }
    // Seventeen significant digits, then the rounding to precision by hand, so
    // that one conversion serves both the digits and the tie check.
    char sci[48];
    auto res = std::to_chars(sci, sci + sizeof(sci), v, std::chars_format::scientific, 16);
    char digits[24];
    int nd = 0;
    const char* e = sci;
    while (e < res.ptr && *e != 'e') {
        if (*e != '.')
            digits[nd++] = *e;
        ++e;
    }
    int exponent = 0;
    std::from_chars(e + 1 + (e[1] == '+' ? 1 : 0), res.ptr, exponent);
    bool up = false;
    if (digits[precision] > '5') {
        up = true;
    } else if (digits[precision] == '5') {
        bool rest = false;
        for (int i = precision + 1; i < nd; ++i)
            rest = rest || digits[i] != '0';
        if (rest) {
            up = true;
        } else {
            // Seventeen digits cannot tell a tie from a value just below it: ask for all of them.
            char exact[128];
            auto r2 = std::to_chars(exact, exact + sizeof(exact), v, std::chars_format::scientific, 60);
            const char* q = exact;
            int seen = 0;
            bool below = false;
            for (; q < r2.ptr && *q != 'e'; ++q) {
                if (*q == '.')
                    continue;
                if (seen == precision)
                    below = *q < '5';
                ++seen;
            }
            up = !below;
        }
    }
    nd = precision;
    if (up) {
        int i = nd - 1;
        while (i >= 0 && digits[i] == '9')
            digits[i--] = '0';
        if (i >= 0) {
            ++digits[i];
        } else {
            digits[0] = '1';
            for (int k = 1; k < nd; ++k)
                digits[k] = '0';
            ++exponent;
        }
    }
    while (nd > 1 && digits[nd - 1] == '0')
        --nd;
    if (exponent < -4 || exponent >= precision) {
        *out++ = digits[0];
        if (nd > 1) {
            *out++ = '.';
            std::memcpy(out, digits + 1, size_t(nd - 1));
            out += nd - 1;
        }
        *out++ = 'e';
        *out++ = exponent < 0 ? '-' : '+';
        int a = exponent < 0 ? -exponent : exponent;
        if (a < 10)
            *out++ = '0';
        return std::to_chars(out, out + 8, a).ptr;
    }
    if (exponent < 0) {
        *out++ = '0';
        *out++ = '.';
        for (int i = -1; i > exponent; --i)
            *out++ = '0';
        std::memcpy(out, digits, size_t(nd));
        return out + nd;
    }
    // exponent + 1 digits before the point, padded with zeros when the digits run out.
    for (int i = 0; i <= exponent; ++i)
        *out++ = i < nd ? digits[i] : '0';
    if (nd > exponent + 1) {
        *out++ = '.';
        std::memcpy(out, digits + exponent + 1, size_t(nd - exponent - 1));
        out += nd - exponent - 1;
    }
    return out;
}

constexpr size_t kBufferSize = size_t(1) << 20;

} // namespace

char* formatG7(char* out, double v)
{
    return formatG(out, v, 7);
}

char* formatG8(char* out, double v)
{
    return formatG(out, v, 8);
}

char* formatUInt(char* out, uint64_t n)
{
    return std::to_chars(out, out + 24, n).ptr;
}

KvoTextOut::~KvoTextOut()
{
    close();
}

bool KvoTextOut::open(const QString& path)
{
    close();
    m_failed = false;
    m_used = 0;
    m_file = std::fopen(QFile::encodeName(path).constData(), "wb");
    if (!m_file) {
        m_failed = true;
        return false;
    }
    m_buffer.resize(kBufferSize);
    return true;
}

char* KvoTextOut::reserve(size_t n)
{
    if (m_used + n > m_buffer.size()) {
        flush();
        if (n > m_buffer.size())
            m_buffer.resize(n);
    }
    return m_buffer.data() + m_used;
}

void KvoTextOut::write(const char* text, size_t n)
{
    char* p = reserve(n);
    std::memcpy(p, text, n);
    m_used += n;
}

void KvoTextOut::write(const char* text)
{
    write(text, std::strlen(text));
}

bool KvoTextOut::flush()
{
    if (!m_file) {
        m_used = 0;
        return false;
    }
    if (m_used && !m_failed && std::fwrite(m_buffer.data(), 1, m_used, m_file) != m_used)
        m_failed = true;
    m_used = 0;
    if (!m_failed && std::fflush(m_file) != 0)
        m_failed = true;
    return !m_failed;
}

bool KvoTextOut::close()
{
    if (!m_file)
        return !m_failed;
    flush();
    if (std::fclose(m_file) != 0)
        m_failed = true;
    m_file = nullptr;
    m_buffer.clear();
    m_buffer.shrink_to_fit();
    return !m_failed;
}

void CKvoSmartMesh::setSuffix(const QString& name, const QString& base, const QString& dir)
{
    suffix = name;
    materialName = base + "_" + name;
    tempImagePath = dir + "/" + base + "_TempTex/" + "Temp_" + name + ".jpg";
    texturePath = dir + "/" + base + "_Texture/" + base + "_" + name + ".jpg";
}

long CKvoSmartMesh::getTriangleCount() const
{
    return indices->getCount() / (cornerIndexed ? 6 : 3);
}

long writeSmartMesh(KvoTextOut& out, const CKvoSmartMesh& mesh, const KvoObjPlacement& place, KvoObjOffsets& offsets)
{
    const long n = mesh.vertices->getCount();
    if (n == 0)
        return -1;
    const XPnt3f* v = mesh.vertices->getData();
    const long uvCount = mesh.uvs->getCount();
    const bool withUVs = mesh.cornerIndexed ? uvCount > 0 : uvCount == n;
    const bool withNormals = mesh.normals->getCount() == n;
    const float cx = place.cx, cy = place.cy, cz = place.cz;

    out.write("g default\n");
    // The subtraction stays in single precision, as the numbers always were.
    for (long i = 0; i < n; ++i) {
        if (place.swapYZ)
            writeObjLine(out, "v", v[i].x - cx, v[i].z - cz, cy - v[i].y);
        else
            writeObjLine(out, "v", v[i].x - cx, v[i].y - cy, v[i].z - cz);
    }
    if (withUVs) {
        const XPnt2f* t = mesh.uvs->getData();
        for (long i = 0; i < uvCount; ++i)
            writeObjLine(out, "vt", t[i].x, t[i].y);
    }
    if (withNormals) {
        const XPnt3f* nn = mesh.normals->getData();
        for (long i = 0; i < n; ++i) {
            if (place.swapYZ)
                writeObjLine(out, "vn", nn[i].x, nn[i].z, -nn[i].y);
            else
                writeObjLine(out, "vn", nn[i].x, nn[i].y, nn[i].z);
        }
    }
    out.write("g default\n");
    if (withUVs)
        out.write("usemtl " + mesh.materialName.toLocal8Bit() + "\n");

    const unsigned* idx = mesh.indices->getData();
    const long triangles = mesh.getTriangleCount();
    const uint64_t vo = offsets.vertices + 1, to = offsets.uvs + 1, no = offsets.normals + 1;
    for (long f = 0; f < triangles; ++f) {
        char* p = out.reserve(160);
        *p++ = 'f';
        for (int k = 0; k < 3; ++k) {
            unsigned a, ta;
            if (mesh.cornerIndexed) {
                a = idx[6 * f + 2 * k];
                ta = idx[6 * f + 2 * k + 1];
            } else {
                a = ta = idx[3 * f + k];
            }
            *p++ = ' ';
            p = formatUInt(p, a + vo);
            if (withUVs) {
                *p++ = '/';
                p = formatUInt(p, ta + to);
                if (withNormals) {
                    *p++ = '/';
                    p = formatUInt(p, a + no);
                }
            } else if (withNormals) {
                *p++ = '/';
                *p++ = '/';
                p = formatUInt(p, a + no);
            }
        }
        *p++ = '\n';
        out.commit(p);
    }
    out.flush();
    offsets.vertices += uint64_t(n);
    offsets.uvs += withUVs ? uint64_t(uvCount) : 0;
    offsets.normals += withNormals ? uint64_t(n) : 0;
    return 0;
}

QByteArray respectiveObjHeader(const QString& base)
{
    return "# Generate by Quovara Software.\n" + ("mtllib " + base + ".mtl\n").toLocal8Bit() +
           "#Use Respective Image\n";
}

QByteArray mtlMaterial(const QString& name, const QString& map, bool spaced)
{
    QByteArray text = ("newmtl " + name + "\n").toLocal8Bit();
    text += "       Ka 0.2 0.2 0.2\n";
    text += "       Kd 1 1 1\n";
    text += "       Ks 0 0 0\n";
    text += ("       map_Kd " + map + "\n").toLocal8Bit();
    if (spaced)
        text += "\n";
    return text;
}

} // namespace kvo

#include <QFile>
#include <QFileInfo>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>

#include "scene/KvoStore.h"

namespace kvo {

namespace {

// A buffer another holder shares must not be written: it is let go instead.
void ownOnly(cv::Mat& m)
{
    if (m.u && m.u->refcount > 1)
        m.release();
}

// 8-bit RGBA of any picture OpenCV decodes or converts.
bool toRGBA(const cv::Mat& src, cv::Mat& rgba)
{
    cv::Mat m8 = src;
    if (src.depth() != CV_8U) {
        // 16-bit files are common for TIFF; scale them into 8 bits.
        const double scale = src.depth() == CV_16U ? 1.0 / 257.0 : 1.0;
        src.convertTo(m8, CV_8U, scale);
    }
    switch (m8.channels()) {
    case 1: cv::cvtColor(m8, rgba, cv::COLOR_GRAY2RGBA); return true;
    case 3: cv::cvtColor(m8, rgba, cv::COLOR_BGR2RGBA); return true;
    case 4: cv::cvtColor(m8, rgba, cv::COLOR_BGRA2RGBA); return true;
    default: return false;
    }
}

} // namespace

bool decodeImageFileRGBA(const QString& path, cv::Mat& rgba, cv::Mat& scratch)
{
    // imread does not read through Qt's resource system and rejects
    // non-Latin paths on some builds; read the bytes ourselves and decode.
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    QByteArray bytes = f.readAll();
    if (bytes.isEmpty())
        return false;
    cv::Mat raw(1, bytes.size(), CV_8UC1, bytes.data());
    ownOnly(scratch);
    ownOnly(rgba);
    // imdecode leaves a buffer it was given as it was when it cannot read
    // the file's header (and clears it when the pixels fail): a mark at both
    // ends of the buffer, which a decoded picture overwrites, tells the
    // first case from a picture read.
    static const uint8_t kMark[16] = {0xa5, 0x3c, 0x00, 0xff, 0x5a, 0xc3, 0x17, 0xe8,
                                      0x71, 0x0e, 0x9d, 0x62, 0xb4, 0x2b, 0xf0, 0x0f};
    const size_t bytesHeld = scratch.isContinuous() ? scratch.total() * scratch.elemSize() : 0;
    const uchar* held = bytesHeld >= 2 * sizeof kMark ? scratch.data : nullptr;
    if (held) {
        std::memcpy(scratch.data, kMark, sizeof kMark);
        std::memcpy(scratch.data + bytesHeld - sizeof kMark, kMark, sizeof kMark);
    }
    try {
        cv::imdecode(raw, cv::IMREAD_UNCHANGED, &scratch);
        if (scratch.empty())
            return false;
        if (held && scratch.data == held && scratch.total() * scratch.elemSize() == bytesHeld &&
            std::memcmp(scratch.data, kMark, sizeof kMark) == 0 &&
            std::memcmp(scratch.data + bytesHeld - sizeof kMark, kMark, sizeof kMark) == 0)
            return false;
        bytes.clear();
        return toRGBA(scratch, rgba);
    } catch (const cv::Exception&) {
        return false;
    }
}

namespace {

// RGBA8 pixels in a cv::Mat. cv::Mat's own reference count gives copy on
// write: a clone shares the buffer and the first writer detaches.
class CKvoImage : public IKvoImage {
public:
    CKvoImage() = default;
    explicit CKvoImage(const cv::Mat& rgba) : m_mat(rgba) {}

    long getWidth() const override { return m_mat.cols; }
    long getHeight() const override { return m_mat.rows; }
    bool isEmpty() const override { return m_mat.empty(); }

    bool create(long width, long height, const KvoColor4b& fill) override
    {
        if (width <= 0 || height <= 0)
            return false;
        m_mat = cv::Mat(int(height), int(width), CV_8UC4, cv::Scalar(fill.r, fill.g, fill.b, fill.a));
        ++m_revision;
        m_source.clear();
        return true;
    }

    bool getPixel(KvoColor4b& out, long x, long y, long) const override
    {
        if (x < 0 || y < 0 || x >= m_mat.cols || y >= m_mat.rows)
            return false;
        const cv::Vec4b& p = m_mat.at<cv::Vec4b>(int(y), int(x));
        out = KvoColor4b(p[0], p[1], p[2], p[3]);
        return true;
    }

    bool setPixel(long x, long y, const KvoColor4b& c, long) override
    {
        if (x < 0 || y < 0 || x >= m_mat.cols || y >= m_mat.rows)
            return false;
        detach();
        m_mat.at<cv::Vec4b>(int(y), int(x)) = cv::Vec4b(c.r, c.g, c.b, c.a);
        return true;
    }

    bool loadFile(const QString& path, long) override
    {
        cv::Mat rgba, scratch;
        if (!decodeImageFileRGBA(path, rgba, scratch))
            return false;
        m_mat = rgba;
        ++m_revision;
        m_source = QFileInfo(path).absoluteFilePath();
        return true;
    }

    bool saveFile(const QString& path, long mode) const override
    {
        if (m_mat.empty())
            return false;
        QString ext = QFileInfo(path).suffix().toLower();
        if (ext.isEmpty())
            return false;
        cv::Mat out;
        std::vector<int> params;
        if (ext == "jpg" || ext == "jpeg") {
            cv::cvtColor(m_mat, out, cv::COLOR_RGBA2BGR);
            params = {cv::IMWRITE_JPEG_QUALITY, (mode >= 1 && mode <= 100) ? int(mode) : 95};
        } else if (ext == "bmp" && !hasTransparency()) {
            cv::cvtColor(m_mat, out, cv::COLOR_RGBA2BGR);
        } else {
            cv::cvtColor(m_mat, out, cv::COLOR_RGBA2BGRA);
        }
        std::vector<uchar> buf;
        try {
            if (!cv::imencode("." + ext.toStdString(), out, buf, params))
                return false;
        } catch (const cv::Exception&) {
            return false;
        }
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return false;
        return f.write(reinterpret_cast<const char*>(buf.data()), qint64(buf.size())) == qint64(buf.size());
    }

    const unsigned char* getData() const override { return m_mat.data; }
    unsigned char* getMutableData() override
    {
        detach();
        return m_mat.data;
    }
    long getStride() const override { return long(m_mat.step[0]); }

    bool setData(const unsigned char* pixels, long width, long height, long channels) override
    {
        if (!pixels || width <= 0 || height <= 0 || (channels != 3 && channels != 4))
            return false;
        cv::Mat src(int(height), int(width), channels == 4 ? CV_8UC4 : CV_8UC3, const_cast<unsigned char*>(pixels));
        if (channels == 4)
            m_mat = src.clone();
        else
            cv::cvtColor(src, m_mat, cv::COLOR_RGB2RGBA);
        ++m_revision;
        m_source.clear();
        return true;
    }

    bool hasTransparency() const override
    {
        if (m_mat.empty())
            return false;
        cv::Mat alpha;
        cv::extractChannel(m_mat, alpha, 3);
        double minA = 255;
        cv::minMaxLoc(alpha, &minA);
        return minA < 255;
    }

    void getMat(cv::Mat& out) const override { out = m_mat; }

    bool setMat(const cv::Mat& src) override
    {
        cv::Mat out;
        if (src.empty() || !toRGBA(src, out))
            return false;
        m_mat = out;
        ++m_revision;
        m_source.clear();
        return true;
    }

    ref_ptr<IKvoImage> clone() const override
    {
        auto* c = new CKvoImage(m_mat);
        c->m_source = m_source;
        return ref_ptr<IKvoImage>(c);
    }

    ref_ptr<IKvoImage> resized(long width, long height, long filter) const override
    {
        if (m_mat.empty() || width <= 0 || height <= 0)
            return ref_ptr<IKvoImage>();
        if (width == m_mat.cols && height == m_mat.rows)
            return clone();
        int interp = filter == 0 ? cv::INTER_NEAREST : filter == 1 ? cv::INTER_LINEAR : cv::INTER_AREA;
        if (filter == 2 && (width > m_mat.cols || height > m_mat.rows))
            interp = cv::INTER_LINEAR;
        cv::Mat out;
        cv::resize(m_mat, out, cv::Size(int(width), int(height)), 0, 0, interp);
        return ref_ptr<IKvoImage>(new CKvoImage(out));
    }

    bool equals(const IKvoImage& other) const override
    {
        if (other.getWidth() != getWidth() || other.getHeight() != getHeight())
            return false;
        if (m_mat.empty())
            return true;
        const long rowBytes = getWidth() * 4;
        for (long y = 0; y < getHeight(); ++y)
            if (memcmp(getData() + y * getStride(), other.getData() + y * other.getStride(), size_t(rowBytes)) != 0)
                return false;
        return true;
    }

    unsigned long long getRevision() const override { return m_revision; }
    QString getSourceFile() const override { return m_source; }

private:
    void detach()
    {
        ++m_revision;
        m_source.clear();
        if (m_mat.u && m_mat.u->refcount > 1)
            m_mat = m_mat.clone();
    }
    cv::Mat m_mat;
    unsigned long long m_revision = 0;
    QString m_source;
};

} // namespace

ref_ptr<IKvoImage> newKvoImage()
{
    return ref_ptr<IKvoImage>(new CKvoImage());
}

ref_ptr<IKvoImage> newKvoImageOf(const cv::Mat& rgba)
{
    if (rgba.empty() || rgba.type() != CV_8UC4)
        return ref_ptr<IKvoImage>();
    return ref_ptr<IKvoImage>(new CKvoImage(rgba.isContinuous() ? rgba : rgba.clone()));
}

} // namespace kvo

#include "SamplePhoto.h"

#include <exiv2/exiv2.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <numeric>
#include <vector>

#include "SampleRandom.h"

namespace qvsample {

namespace {

// Standard normal numbers by the Box-Muller transform, two from each pair of
// uniform numbers: the same sequence for a seed everywhere.
class Gaussian {
public:
    explicit Gaussian(uint64_t seed) : m_rng(seed) {}
    float next()
    {
        if (m_haveSpare) {
            m_haveSpare = false;
            return m_spare;
        }
        // 1 - u is in (0, 1], so the logarithm stays finite.
        const double u1 = 1.0 - m_rng.uniform(0, 1);
        const double u2 = m_rng.uniform(0, 1);
        const double r = std::sqrt(-2.0 * std::log(u1)), a = 2.0 * 3.14159265358979323846 * u2;
        m_spare = float(r * std::sin(a));
        m_haveSpare = true;
        return float(r * std::cos(a));
    }

private:
    SampleRandom m_rng;
    float m_spare = 0;
    bool m_haveSpare = false;
};

// value as a fraction with the given denominator, reduced.
Exiv2::URational toRational(double value, uint32_t denominator)
{
    const uint32_t num = uint32_t(std::lround(std::max(0.0, value) * denominator));
    const uint32_t g = std::max<uint32_t>(1, std::gcd(num, denominator));
    return Exiv2::URational(num / g, denominator / g);
}

// pixels / (mm / 10) pixels a centimetre, kept exact enough that the sensor
// size comes back to the micrometre.
Exiv2::URational pixelsPerCentimetre(int pixels, double mm)
{
    const uint32_t num = uint32_t(pixels) * 10000u;
    const uint32_t den = uint32_t(std::max(1L, std::lround(mm * 1000)));
    const uint32_t g = std::gcd(num, den);
    return Exiv2::URational(num / g, den / g);
}

// The last number in a photograph's name ("photo_07.jpg" gives 7), 0 without.
long photoNumber(const std::string& name)
{
    long number = 0;
    bool inDigits = false;
    for (char c : name) {
        if (c >= '0' && c <= '9') {
            number = inDigits ? std::min(number * 10 + (c - '0'), 1000000L) : c - '0';
            inDigits = true;
        } else {
            inDigits = false;
        }
    }
    return number;
}

std::string trimmed(std::string s)
{
    while (!s.empty() && (s.back() == '\0' || s.back() == ' '))
        s.pop_back();
    return s;
}

} // namespace

void applyPhotoEffects(cv::Mat& bgr, const SampleCamera& cam)
{
    CV_Assert(bgr.type() == CV_8UC3);
    // The gains are R, G, B; the channels B, G, R.
    const double gain[3] = {cam.exposure * cam.whiteBalance[2], cam.exposure * cam.whiteBalance[1],
                            cam.exposure * cam.whiteBalance[0]};
    float lut[3][256];
    for (int c = 0; c < 3; ++c)
        for (int v = 0; v < 256; ++v)
            lut[c][v] = float(v * gain[c]);
    const float sigma = float(std::max(0.0, cam.noiseSigma));
    Gaussian noise(cam.noiseSeed);
    // The lens first: blur, then light falling off toward the corners.
    if (cam.blurSigma > 0)
        cv::GaussianBlur(bgr, bgr, cv::Size(0, 0), cam.blurSigma);
    const double vignetting = std::clamp(cam.vignetting, 0.0, 1.0);
    const double cx = 0.5 * bgr.cols, cy = 0.5 * bgr.rows, corner2 = cx * cx + cy * cy;
    for (int y = 0; y < bgr.rows; ++y) {
        uchar* p = bgr.ptr<uchar>(y);
        const double dy2 = (y + 0.5 - cy) * (y + 0.5 - cy);
        for (int x = 0; x < bgr.cols; ++x, p += 3) {
            const float fall =
                vignetting > 0 ? float(1.0 - vignetting * ((x + 0.5 - cx) * (x + 0.5 - cx) + dy2) / corner2) : 1.0f;
            for (int c = 0; c < 3; ++c) {
                float v = lut[c][p[c]] * fall;
                if (sigma > 0)
                    v += sigma * noise.next();
                p[c] = cv::saturate_cast<uchar>(v);
            }
        }
    }
}

bool writePhotoJpeg(const std::string& path, const cv::Mat& bgr, const SampleCamera& cam, int quality,
                    std::string* error)
{
    auto fail = [&](const std::string& why) {
        if (error)
            *error = why;
        return false;
    };
    if (bgr.empty() || bgr.type() != CV_8UC3)
        return fail("cannot write " + path + ": the picture is not an 8-bit colour image");

    std::vector<uchar> jpeg;
    try {
        if (!cv::imencode(".jpg", bgr, jpeg, {cv::IMWRITE_JPEG_QUALITY, std::clamp(quality, 1, 100)}))
            return fail("cannot encode " + path + " as JPEG");
    } catch (const cv::Exception& e) {
        return fail("cannot encode " + path + " as JPEG: " + e.what());
    }

    Exiv2::DataBuf withExif;
    try {
        auto image = Exiv2::ImageFactory::open(jpeg.data(), long(jpeg.size()));
        Exiv2::ExifData exif;
        exif["Exif.Image.Make"] = cam.make;
        exif["Exif.Image.Model"] = cam.model;
        exif["Exif.Image.Orientation"] = uint16_t(1);
        exif["Exif.Image.Software"] = std::string("Quovara sample generator");
        // Photographs a few seconds apart, in the order of their numbers.
        const long seconds = (10 * 3600 + 4 * photoNumber(cam.name)) % 86400;
        char date[32];
        std::snprintf(date, sizeof date, "2024:05:01 %02ld:%02ld:%02ld", seconds / 3600, seconds / 60 % 60,
                      seconds % 60);
        exif["Exif.Image.DateTime"] = std::string(date);
        exif["Exif.Photo.DateTimeOriginal"] = std::string(date);
        exif["Exif.Photo.DateTimeDigitized"] = std::string(date);
        // A brighter photograph was exposed for longer.
        const double exposure = cam.exposure > 0 ? cam.exposure : 1.0;
        exif["Exif.Photo.ExposureTime"] =
            Exiv2::URational(1, uint32_t(std::clamp(std::lround(250 / exposure), 1L, 100000L)));
        exif["Exif.Photo.FNumber"] = Exiv2::URational(8, 1);
        exif["Exif.Photo.ISOSpeedRatings"] = uint16_t(100);
        exif["Exif.Photo.ColorSpace"] = uint16_t(1);
        exif["Exif.Photo.PixelXDimension"] = uint32_t(bgr.cols);
        exif["Exif.Photo.PixelYDimension"] = uint32_t(bgr.rows);
        if (cam.focalMm > 0)
            exif["Exif.Photo.FocalLength"] = toRational(cam.focalMm, 1000);
        if (cam.sensorWidthMm > 0 && cam.sensorHeightMm > 0) {
            // Centimetres: EXIF itself knows only inches and centimetres.
            exif["Exif.Photo.FocalPlaneXResolution"] = pixelsPerCentimetre(bgr.cols, cam.sensorWidthMm);
            exif["Exif.Photo.FocalPlaneYResolution"] = pixelsPerCentimetre(bgr.rows, cam.sensorHeightMm);
            exif["Exif.Photo.FocalPlaneResolutionUnit"] = uint16_t(3);
            if (cam.focalMm > 0) {
                const double crop = std::hypot(36.0, 24.0) / std::hypot(cam.sensorWidthMm, cam.sensorHeightMm);
                exif["Exif.Photo.FocalLengthIn35mmFilm"] =
                    uint16_t(std::clamp(std::lround(cam.focalMm * crop), 1L, 65535L));
            }
        }
        image->setExifData(exif);
        image->writeMetadata();
        Exiv2::BasicIo& io = image->io();
        if (io.open() != 0)
            return fail("cannot add EXIF to " + path);
        withExif = io.read(long(io.size()));
        io.close();
    } catch (const Exiv2::AnyError& e) {
        return fail("cannot add EXIF to " + path + ": " + e.what());
    }

    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file)
        return fail("cannot write " + path + ": " + std::strerror(errno));
    file.write(reinterpret_cast<const char*>(withExif.pData_), withExif.size_);
    file.close();
    if (!file) {
        std::remove(path.c_str());
        return fail("cannot write " + path);
    }
    return true;
}

bool readPhotoExif(const std::string& path, std::string& make, std::string& model, double& focalMm,
                   double& sensorWidthMm, double& sensorHeightMm)
{
    try {
        auto image = Exiv2::ImageFactory::open(path);
        image->readMetadata();
        const Exiv2::ExifData& exif = image->exifData();
        auto find = [&](const char* key) {
            const auto it = exif.findKey(Exiv2::ExifKey(key));
            return it != exif.end() && it->count() > 0 ? &*it : nullptr;
        };
        auto ratio = [&](const char* key, double& value) {
            const Exiv2::Exifdatum* d = find(key);
            if (!d)
                return false;
            const Exiv2::Rational r = d->toRational(0);
            if (r.second == 0)
                return false;
            value = double(r.first) / r.second;
            return value > 0;
        };
        double focal = 0, xres = 0, yres = 0;
        if (!ratio("Exif.Photo.FocalLength", focal) || !ratio("Exif.Photo.FocalPlaneXResolution", xres) ||
            !ratio("Exif.Photo.FocalPlaneYResolution", yres))
            return false;
        // Inches when EXIF does not say.
        double unitMm = 25.4;
        if (const Exiv2::Exifdatum* d = find("Exif.Photo.FocalPlaneResolutionUnit")) {
            switch (d->toLong(0)) {
            case 2: unitMm = 25.4; break;
            case 3: unitMm = 10; break;
            case 4: unitMm = 1; break;
            case 5: unitMm = 0.001; break;
            default: return false;
            }
        }
        const Exiv2::Exifdatum* px = find("Exif.Photo.PixelXDimension");
        const Exiv2::Exifdatum* py = find("Exif.Photo.PixelYDimension");
        const double width = px ? double(px->toLong(0)) : double(image->pixelWidth());
        const double height = py ? double(py->toLong(0)) : double(image->pixelHeight());
        if (width <= 0 || height <= 0)
            return false;
        const Exiv2::Exifdatum* mk = find("Exif.Image.Make");
        const Exiv2::Exifdatum* md = find("Exif.Image.Model");
        make = mk ? trimmed(mk->toString()) : std::string();
        model = md ? trimmed(md->toString()) : std::string();
        focalMm = focal;
        sensorWidthMm = width / xres * unitMm;
        sensorHeightMm = height / yres * unitMm;
        return true;
    } catch (const Exiv2::AnyError&) {
        return false;
    }
}

} // namespace qvsample

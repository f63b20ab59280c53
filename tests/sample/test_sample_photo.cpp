// Photographic effects checked against values worked out by hand, and the
// photographs' EXIF read back both by our reader and tag by tag.

#include <gtest/gtest.h>

#include <QFile>

#include <exiv2/exiv2.hpp>
#include <opencv2/imgcodecs.hpp>

#include <cmath>
#include <string>
#include <vector>

#include "SamplePhoto.h"
#include "SampleTextures.h"
#include "support/TestSupport.h"

using namespace qvsample;

namespace {

SampleCamera neutralCamera()
{
    SampleCamera c;
    c.name = "photo_03.jpg";
    c.make = "Quovara";
    c.model = "Sample One";
    c.focalMm = 23.4567;
    c.sensorWidthMm = 23.5;
    c.sensorHeightMm = 15.6;
    return c;
}

// A busy picture with no channel above 200, so that a gain of 1.2 stays in range.
cv::Mat busyPicture()
{
    cv::Mat img = makeSurfaceTexture("poster", 320, 240, 2);
    img.convertTo(img, -1, 200.0 / 255);
    return img;
}

double meanAbsDiff(const cv::Mat& a, const cv::Mat& b)
{
    cv::Mat d;
    cv::absdiff(a, b, d);
    const cv::Scalar m = cv::mean(d);
    return (m[0] + m[1] + m[2]) / 3;
}

} // namespace

TEST(SamplePhotoEffects, NeutralCameraLeavesThePictureAlone)
{
    const cv::Mat original = busyPicture();
    cv::Mat img = original.clone();
    applyPhotoEffects(img, neutralCamera());
    EXPECT_EQ(cv::norm(img, original, cv::NORM_INF), 0);
}

TEST(SamplePhotoEffects, ExposureScalesEveryChannel)
{
    const cv::Mat original = busyPicture();
    cv::Mat img = original.clone();
    SampleCamera cam = neutralCamera();
    cam.exposure = 1.2;
    applyPhotoEffects(img, cam);
    const cv::Scalar before = cv::mean(original), after = cv::mean(img);
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(after[c] / before[c], 1.2, 0.005) << "channel " << c;
    cv::Mat expected;
    original.convertTo(expected, -1, 1.2);
    EXPECT_LE(cv::norm(img, expected, cv::NORM_INF), 1);

    // Beyond white the values clamp.
    cv::Mat bright(2, 2, CV_8UC3, cv::Scalar(200, 100, 250));
    cam.exposure = 2;
    applyPhotoEffects(bright, cam);
    EXPECT_EQ(bright.at<cv::Vec3b>(1, 1), cv::Vec3b(255, 200, 255));
}

TEST(SamplePhotoEffects, WhiteBalanceGainsActOnTheirOwnChannels)
{
    SampleCamera cam = neutralCamera();
    // Gains are given as R, G, B; the picture is B, G, R.
    cam.whiteBalance[0] = 1.5;
    cam.whiteBalance[1] = 1.0;
    cam.whiteBalance[2] = 0.5;
    cv::Mat grey(3, 5, CV_8UC3, cv::Scalar(100, 100, 100));
    applyPhotoEffects(grey, cam);
    for (int y = 0; y < grey.rows; ++y)
        for (int x = 0; x < grey.cols; ++x)
            EXPECT_EQ(grey.at<cv::Vec3b>(y, x), cv::Vec3b(50, 100, 150));

    cam.whiteBalance[0] = 0.5;
    cam.whiteBalance[1] = 2.0;
    cam.whiteBalance[2] = 1.5;
    cam.exposure = 1.1;
    cv::Mat coloured(2, 2, CV_8UC3, cv::Scalar(40, 80, 120));
    applyPhotoEffects(coloured, cam);
    EXPECT_EQ(coloured.at<cv::Vec3b>(0, 0), cv::Vec3b(66, 176, 66));
}

TEST(SamplePhotoEffects, NoiseHasTheAskedSpreadAndFollowsTheSeed)
{
    const cv::Mat flat(400, 600, CV_8UC3, cv::Scalar(128, 128, 128));
    SampleCamera cam = neutralCamera();
    for (double sigma : {4.0, 12.0}) {
        SCOPED_TRACE(sigma);
        cam.noiseSigma = sigma;
        cam.noiseSeed = 7;
        cv::Mat noisy = flat.clone();
        applyPhotoEffects(noisy, cam);
        cv::Mat channels[3];
        cv::split(noisy, channels);
        for (int c = 0; c < 3; ++c) {
            cv::Scalar mean, stddev;
            cv::meanStdDev(channels[c], mean, stddev);
            EXPECT_NEAR(mean[0], 128, 0.1);
            EXPECT_NEAR(stddev[0], sigma, 0.03 * sigma);
        }
        // Independent in each channel: no correlation between them.
        cv::Mat b, g;
        channels[0].convertTo(b, CV_64F, 1, -128);
        channels[1].convertTo(g, CV_64F, 1, -128);
        EXPECT_LT(std::abs(b.dot(g)) / std::sqrt(b.dot(b) * g.dot(g)), 0.02);

        cv::Mat again = flat.clone();
        applyPhotoEffects(again, cam);
        EXPECT_EQ(cv::norm(noisy, again, cv::NORM_INF), 0);
        cam.noiseSeed = 8;
        cv::Mat other = flat.clone();
        applyPhotoEffects(other, cam);
        EXPECT_GT(meanAbsDiff(noisy, other), sigma / 2);
    }
}

TEST(SamplePhotoEffects, OnlyColourPicturesAreTaken)
{
    cv::Mat grey(4, 4, CV_8UC1, cv::Scalar(10));
    EXPECT_THROW(applyPhotoEffects(grey, neutralCamera()), cv::Exception);
}

TEST(SamplePhotoJpeg, ExifRoundTrip)
{
    qvtest::ScratchDir scratch;
    struct Case {
        int width, height;
        double focalMm, sensorW, sensorH;
        int equivalent35; // by hand: focal * 43.267 / sensor diagonal
    };
    const Case cases[] = {
        {640, 480, 23.4567, 23.5, 15.6, 36}, // 23.4567 * 43.267 / 28.207
        {600, 400, 50, 36, 24, 50},          // full frame
        {401, 303, 4.33, 6.17, 4.55, 24},    // a compact's small sensor, odd sizes
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.width);
        SampleCamera cam = neutralCamera();
        cam.focalMm = c.focalMm;
        cam.sensorWidthMm = c.sensorW;
        cam.sensorHeightMm = c.sensorH;
        const cv::Mat img = makeSurfaceTexture("brick", c.width, c.height, 3);
        const std::string path = scratch.file(QString("photo_%1.jpg").arg(c.width)).toStdString();
        std::string error;
        ASSERT_TRUE(writePhotoJpeg(path, img, cam, 95, &error)) << error;

        const cv::Mat back = cv::imread(path, cv::IMREAD_COLOR);
        ASSERT_FALSE(back.empty());
        EXPECT_EQ(back.size(), img.size());
        // The EXIF goes in beside the picture data, which stays as encoded.
        std::vector<uchar> plain;
        ASSERT_TRUE(cv::imencode(".jpg", img, plain, {cv::IMWRITE_JPEG_QUALITY, 95}));
        EXPECT_EQ(cv::norm(back, cv::imdecode(plain, cv::IMREAD_COLOR), cv::NORM_INF), 0);

        std::string make, model;
        double focal = 0, sw = 0, sh = 0;
        ASSERT_TRUE(readPhotoExif(path, make, model, focal, sw, sh));
        EXPECT_EQ(make, cam.make);
        EXPECT_EQ(model, cam.model);
        // Stored in thousandths of a millimetre.
        EXPECT_NEAR(focal, std::round(c.focalMm * 1000) / 1000, 1e-9);
        EXPECT_NEAR(sw, c.sensorW, 0.01);
        EXPECT_NEAR(sh, c.sensorH, 0.01);

        // What any other EXIF reader finds.
        auto image = Exiv2::ImageFactory::open(path);
        image->readMetadata();
        const Exiv2::ExifData& exif = image->exifData();
        auto tag = [&](const char* key) {
            const auto it = exif.findKey(Exiv2::ExifKey(key));
            EXPECT_NE(it, exif.end()) << key;
            return it == exif.end() ? -1L : it->toLong(0);
        };
        EXPECT_EQ(tag("Exif.Photo.FocalLengthIn35mmFilm"), c.equivalent35);
        EXPECT_EQ(tag("Exif.Image.Orientation"), 1);
        EXPECT_EQ(tag("Exif.Photo.FocalPlaneResolutionUnit"), 3);
        EXPECT_EQ(tag("Exif.Photo.PixelXDimension"), c.width);
        EXPECT_EQ(tag("Exif.Photo.PixelYDimension"), c.height);
        EXPECT_EQ(tag("Exif.Photo.ISOSpeedRatings"), 100);
        EXPECT_GT(tag("Exif.Photo.ExposureTime"), -1);
        EXPECT_GT(tag("Exif.Photo.FNumber"), -1);
        EXPECT_EQ(exif.findKey(Exiv2::ExifKey("Exif.Image.Software"))->toString(), "Quovara sample generator");
        EXPECT_EQ(exif.findKey(Exiv2::ExifKey("Exif.Image.DateTime"))->toString().size(), 19u);
    }
}

TEST(SamplePhotoJpeg, FailuresAreReported)
{
    qvtest::ScratchDir scratch;
    const cv::Mat img = makeSurfaceTexture("stone", 64, 48, 1);
    const SampleCamera cam = neutralCamera();
    std::string error;

    const std::string inMissingFolder = scratch.file("missing/photo.jpg").toStdString();
    EXPECT_FALSE(writePhotoJpeg(inMissingFolder, img, cam, 90, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(QFile::exists(QString::fromStdString(inMissingFolder)));

    // A file where a folder should be.
    const std::string file = scratch.file("plain.jpg").toStdString();
    ASSERT_TRUE(writePhotoJpeg(file, img, cam, 90, nullptr));
    error.clear();
    EXPECT_FALSE(writePhotoJpeg(file + "/photo.jpg", img, cam, 90, &error));
    EXPECT_FALSE(error.empty());

    error.clear();
    EXPECT_FALSE(writePhotoJpeg(scratch.file("empty.jpg").toStdString(), cv::Mat(), cam, 90, &error));
    EXPECT_FALSE(error.empty());
}

TEST(SamplePhotoJpeg, ReaderWantsLensAndSensor)
{
    qvtest::ScratchDir scratch;
    const cv::Mat img = makeSurfaceTexture("tiles", 64, 48, 1);
    std::string make, model;
    double focal = 0, sw = 0, sh = 0;

    // No EXIF at all.
    const std::string bare = scratch.file("bare.jpg").toStdString();
    ASSERT_TRUE(cv::imwrite(bare, img));
    EXPECT_FALSE(readPhotoExif(bare, make, model, focal, sw, sh));

    // EXIF without a sensor size.
    SampleCamera cam = neutralCamera();
    cam.sensorWidthMm = cam.sensorHeightMm = 0;
    const std::string noSensor = scratch.file("nosensor.jpg").toStdString();
    ASSERT_TRUE(writePhotoJpeg(noSensor, img, cam, 90, nullptr));
    EXPECT_FALSE(readPhotoExif(noSensor, make, model, focal, sw, sh));

    EXPECT_FALSE(readPhotoExif(scratch.file("absent.jpg").toStdString(), make, model, focal, sw, sh));
}

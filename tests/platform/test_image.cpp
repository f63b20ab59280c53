#include <QFile>

#include <opencv2/imgcodecs.hpp>

#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;
using qvtest::ScratchDir;

namespace {

ref_ptr<IKvoImage> loaded(const QString& path)
{
    ref_ptr<IKvoImage> img = newKvoImage();
    return img->loadFile(path) ? img : ref_ptr<IKvoImage>();
}

bool isWhite(const KvoColor4b& c)
{
    return c.r > 240 && c.g > 240 && c.b > 240;
}

} // namespace

TEST(KvoImage, PixelsAreRowsFromTheTopAndBoundsAreChecked)
{
    ScratchDir dir;
    const QString path = dir.file("asym.png");
    ASSERT_TRUE(qvtest::writeTestPicture(path, 60, 40));
    ref_ptr<IKvoImage> img = loaded(path);
    ASSERT_TRUE(img);
    EXPECT_EQ(img->getWidth(), 60);
    EXPECT_EQ(img->getHeight(), 40);
    KvoColor4b c;
    ASSERT_TRUE(img->getPixel(c, 1, 1));
    EXPECT_TRUE(isWhite(c)) << "the white block is in the top-left corner";
    ASSERT_TRUE(img->getPixel(c, 58, 38));
    EXPECT_FALSE(isWhite(c));
    ASSERT_TRUE(img->getPixel(c, 1, 38));
    EXPECT_FALSE(isWhite(c)) << "rows must not come bottom-up";
    EXPECT_FALSE(img->getPixel(c, 60, 0));
    EXPECT_FALSE(img->getPixel(c, 0, -1));
    EXPECT_FALSE(img->setPixel(-1, 0, KvoColor4b()));
}

TEST(KvoImage, LosslessFormatsRoundTripExactlyWithAlpha)
{
    ScratchDir dir;
    ref_ptr<IKvoImage> img = newKvoImage();
    ASSERT_TRUE(img->create(17, 9, KvoColor4b(10, 20, 30, 255)));
    for (long y = 0; y < 9; ++y)
        for (long x = 0; x < 17; ++x)
            img->setPixel(x, y, KvoColor4b(uint8_t(x * 15), uint8_t(y * 28), uint8_t(x + y), 255));
    for (const char* ext : {"png", "bmp", "tif"}) {
        const QString path = dir.file(QString("img.%1").arg(ext));
        ASSERT_TRUE(img->saveFile(path)) << ext;
        ref_ptr<IKvoImage> back = loaded(path);
        ASSERT_TRUE(back) << ext;
        EXPECT_TRUE(back->equals(*img)) << ext;
    }
    img->setPixel(3, 4, KvoColor4b(1, 2, 3, 77));
    EXPECT_TRUE(img->hasTransparency());
    ASSERT_TRUE(img->saveFile(dir.file("alpha.png")));
    ref_ptr<IKvoImage> back = loaded(dir.file("alpha.png"));
    ASSERT_TRUE(back);
    KvoColor4b c;
    back->getPixel(c, 3, 4);
    EXPECT_EQ(c, KvoColor4b(1, 2, 3, 77));
    EXPECT_TRUE(back->equals(*img));
}

TEST(KvoImage, JpegKeepsTheContentWithinCompressionError)
{
    ScratchDir dir;
    ASSERT_TRUE(qvtest::writeTestPicture(dir.file("a.png"), 64, 48, 3));
    ref_ptr<IKvoImage> img = loaded(dir.file("a.png"));
    ASSERT_TRUE(img->saveFile(dir.file("a.jpg"), 95));
    ref_ptr<IKvoImage> back = loaded(dir.file("a.jpg"));
    ASSERT_TRUE(back);
    double err = 0;
    for (long y = 0; y < 48; ++y)
        for (long x = 0; x < 64; ++x) {
            KvoColor4b a, b;
            img->getPixel(a, x, y);
            back->getPixel(b, x, y);
            err += std::abs(a.r - b.r) + std::abs(a.g - b.g) + std::abs(a.b - b.b);
        }
    EXPECT_LT(err / (64 * 48 * 3), 4.0);
}

TEST(KvoImage, BadFilesLeaveThePixelsAlone)
{
    ScratchDir dir;
    ref_ptr<IKvoImage> img = newKvoImage();
    img->create(4, 4, KvoColor4b(9, 9, 9, 255));
    QFile f(dir.file("fake.jpg"));
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write("this is not a picture");
    f.close();
    EXPECT_FALSE(img->loadFile(dir.file("fake.jpg")));
    EXPECT_FALSE(img->loadFile(dir.file("missing.png")));
    EXPECT_EQ(img->getWidth(), 4);
    KvoColor4b c;
    img->getPixel(c, 0, 0);
    EXPECT_EQ(c, KvoColor4b(9, 9, 9, 255));
    EXPECT_FALSE(img->saveFile(dir.file("noext")));
}

TEST(KvoImage, CopiesShareUntilOneSideWrites)
{
    ref_ptr<IKvoImage> a = newKvoImage();
    a->create(8, 8, KvoColor4b(0, 0, 0, 255));
    ref_ptr<IKvoImage> b = a->clone();
    EXPECT_EQ(a->getData(), b->getData()) << "a clone costs no pixels";
    const auto rev = b->getRevision();
    b->setPixel(2, 2, KvoColor4b(255, 0, 0, 255));
    EXPECT_NE(a->getData(), b->getData());
    EXPECT_GT(b->getRevision(), rev);
    KvoColor4b c;
    a->getPixel(c, 2, 2);
    EXPECT_EQ(c, KvoColor4b(0, 0, 0, 255));
    b->getPixel(c, 2, 2);
    EXPECT_EQ(c, KvoColor4b(255, 0, 0, 255));
    // Writing through raw pixels detaches too.
    ref_ptr<IKvoImage> d = b->clone();
    d->getMutableData()[0] = 200;
    b->getPixel(c, 0, 0);
    EXPECT_EQ(c.r, 0);
}

TEST(KvoImage, SourceFileIsForgottenOnTheFirstEdit)
{
    ScratchDir dir;
    ASSERT_TRUE(qvtest::writeTestPicture(dir.file("s.png"), 10, 10));
    ref_ptr<IKvoImage> img = loaded(dir.file("s.png"));
    EXPECT_TRUE(img->getSourceFile().endsWith("s.png"));
    ref_ptr<IKvoImage> copy = img->clone();
    EXPECT_EQ(copy->getSourceFile(), img->getSourceFile());
    copy->setPixel(0, 0, KvoColor4b());
    EXPECT_TRUE(copy->getSourceFile().isEmpty());
    EXPECT_FALSE(img->getSourceFile().isEmpty());
}

TEST(KvoImage, ResizeAndRawData)
{
    ref_ptr<IKvoImage> img = newKvoImage();
    const unsigned char rgb[] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255};
    ASSERT_TRUE(img->setData(rgb, 2, 2, 3));
    KvoColor4b c;
    img->getPixel(c, 1, 0);
    EXPECT_EQ(c, KvoColor4b(0, 255, 0, 255));
    img->getPixel(c, 0, 1);
    EXPECT_EQ(c, KvoColor4b(0, 0, 255, 255));
    EXPECT_FALSE(img->setData(rgb, 2, 2, 2));
    ref_ptr<IKvoImage> big = img->resized(20, 10, 0);
    ASSERT_TRUE(big);
    EXPECT_EQ(big->getWidth(), 20);
    EXPECT_EQ(big->getHeight(), 10);
    big->getPixel(c, 19, 0);
    EXPECT_EQ(c, KvoColor4b(0, 255, 0, 255));
    EXPECT_FALSE(img->resized(0, 5));
}

// Decoding into buffers a caller keeps: the buffers are reused while nobody
// else holds them, a buffer another holder shares is never written, and the
// pixels are those loadFile gives, 16-bit and grey files included.
TEST(KvoImage, DecodingIntoKeptBuffersReusesOnlyWhatIsNotShared)
{
    ScratchDir dir;
    const QString a = dir.file("a.png"), b = dir.file("b.png");
    ASSERT_TRUE(qvtest::writeTestPicture(a, 64, 48, 1));
    ASSERT_TRUE(qvtest::writeTestPicture(b, 64, 48, 2));
    cv::Mat rgba, scratch;
    ASSERT_TRUE(decodeImageFileRGBA(a, rgba, scratch));
    ASSERT_EQ(rgba.type(), CV_8UC4);
    ref_ptr<IKvoImage> byLoad = newKvoImage();
    ASSERT_TRUE(byLoad->loadFile(a));
    ASSERT_TRUE(byLoad->equals(*newKvoImageOf(rgba)));

    const uchar* buffer = rgba.data;
    ASSERT_TRUE(decodeImageFileRGBA(b, rgba, scratch));
    EXPECT_EQ(rgba.data, buffer) << "same size, held by nobody else: reused";

    const cv::Mat kept = rgba;
    const cv::Mat before = kept.clone();
    ASSERT_TRUE(decodeImageFileRGBA(a, rgba, scratch));
    EXPECT_NE(rgba.data, kept.data);
    EXPECT_EQ(cv::norm(kept, before, cv::NORM_INF), 0.0) << "the shared picture is not written";

    // 16 bits scaled into 8, grey spread over the colours.
    cv::Mat grey16(5, 7, CV_16UC1);
    for (int y = 0; y < grey16.rows; ++y)
        for (int x = 0; x < grey16.cols; ++x)
            grey16.at<uint16_t>(y, x) = uint16_t(257 * (10 * y + x));
    const QString c = dir.file("c.png");
    ASSERT_TRUE(cv::imwrite(c.toStdString(), grey16));
    ASSERT_TRUE(decodeImageFileRGBA(c, rgba, scratch));
    ASSERT_EQ(rgba.size(), cv::Size(7, 5));
    EXPECT_EQ(rgba.at<cv::Vec4b>(3, 4), cv::Vec4b(34, 34, 34, 255));

    EXPECT_FALSE(decodeImageFileRGBA(dir.file("missing.png"), rgba, scratch));
    QFile junk(dir.file("junk.png"));
    ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
    junk.write("not a picture");
    junk.close();
    EXPECT_FALSE(decodeImageFileRGBA(junk.fileName(), rgba, scratch));
    // A header cut short, after a picture was read into the same buffers.
    ASSERT_TRUE(decodeImageFileRGBA(a, rgba, scratch));
    QFile whole(a);
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    QFile cut(dir.file("cut.png"));
    ASSERT_TRUE(cut.open(QIODevice::WriteOnly));
    cut.write(whole.read(20));
    cut.close();
    EXPECT_FALSE(decodeImageFileRGBA(cut.fileName(), rgba, scratch));
}

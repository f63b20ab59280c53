#include <QFile>

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

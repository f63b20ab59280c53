#include <cmath>
#include <random>

#include "platform/KvoImageViewTransform.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

XPnt2d toScreen(const KvoImageViewTransform& v, double x, double y)
{
    XPnt2d out;
    return v.imageToScreen(out, XPnt2d(x, y));
}

XPnt2d toImage(const KvoImageViewTransform& v, double x, double y)
{
    XPnt2d out;
    return v.screenToImage(out, x, y);
}

} // namespace

TEST(ImageView, FitShowsTheWholePictureCentredWithItsAspect)
{
    struct Case {
        double imageW, imageH, viewW, viewH;
    } cases[] = {
        {400, 100, 300, 300},   // wide picture, square view: fills the width
        {100, 400, 300, 300},   // tall picture: fills the height
        {4000, 3000, 800, 400}, // landscape in a wider view: height-bound
        {3000, 4000, 500, 900}, // portrait in a taller view: width-bound
        {10, 10, 1000, 200},    // small picture is enlarged
    };
    for (const Case& c : cases) {
        KvoImageViewTransform v;
        v.setImageSize(c.imageW, c.imageH);
        v.setViewSize(c.viewW, c.viewH);
        v.fit();
        const XPnt2d topLeft = toScreen(v, 0, 0), bottomRight = toScreen(v, c.imageW, c.imageH);
        const double shownW = bottomRight.x - topLeft.x, shownH = bottomRight.y - topLeft.y;
        // The aspect is kept.
        EXPECT_NEAR(shownW / shownH, c.imageW / c.imageH, 1e-12) << c.imageW << "x" << c.imageH;
        // Inside the view, touching it on one pair of sides.
        EXPECT_GE(topLeft.x, -1e-9);
        EXPECT_GE(topLeft.y, -1e-9);
        EXPECT_LE(bottomRight.x, c.viewW + 1e-9);
        EXPECT_LE(bottomRight.y, c.viewH + 1e-9);
        EXPECT_TRUE(std::fabs(shownW - c.viewW) < 1e-9 || std::fabs(shownH - c.viewH) < 1e-9)
            << c.imageW << "x" << c.imageH << " in " << c.viewW << "x" << c.viewH;
        // Centred: equal margins either side.
        EXPECT_NEAR(topLeft.x, c.viewW - bottomRight.x, 1e-9);
        EXPECT_NEAR(topLeft.y, c.viewH - bottomRight.y, 1e-9);
        const XPnt2d mid = toScreen(v, c.imageW / 2, c.imageH / 2);
        EXPECT_NEAR(mid.x, c.viewW / 2, 1e-9);
        EXPECT_NEAR(mid.y, c.viewH / 2, 1e-9);
    }
    // A worked case: 400 x 100 in 300 x 300 is drawn 300 x 75, from y = 112.5.
    KvoImageViewTransform v;
    v.setImageSize(400, 100);
    v.setViewSize(300, 300);
    v.fit();
    EXPECT_DOUBLE_EQ(v.getZoom(), 0.75);
    EXPECT_EQ(v.getOffset(), XPnt2d(0, 112.5));

    // No picture: one to one, at the corner.
    KvoImageViewTransform empty;
    empty.setViewSize(300, 200);
    empty.setZoomAndOffset(3, 10, 10);
    empty.fit();
    EXPECT_EQ(empty.getZoom(), 1);
    EXPECT_EQ(empty.getOffset(), XPnt2d(0, 0));
}

TEST(ImageView, ZoomKeepsThePointUnderTheCursor)
{
    std::mt19937 gen(51);
    std::uniform_real_distribution<double> u(0, 1);
    KvoImageViewTransform v;
    v.setImageSize(1600, 1200);
    v.setViewSize(900, 700);
    v.fit();
    for (int i = 0; i < 500; ++i) {
        const double cx = u(gen) * 900, cy = u(gen) * 700, factor = std::exp(u(gen) * 4 - 2);
        const XPnt2d under = toImage(v, cx, cy);
        const double zoom = v.getZoom();
        v.zoomAt(factor, cx, cy);
        const XPnt2d after = toImage(v, cx, cy);
        ASSERT_NEAR(after.x, under.x, 1e-9 * std::max(1.0, std::fabs(under.x))) << i;
        ASSERT_NEAR(after.y, under.y, 1e-9 * std::max(1.0, std::fabs(under.y))) << i;
        const double expected = std::min(std::max(zoom * factor, 1e-4), 256.0);
        ASSERT_NEAR(v.getZoom(), expected, 1e-12 * expected) << i;
    }
    // At the limits the zoom stops, and the cursor's point still stays.
    for (const double factor : {1e9, 1e-12}) {
        const XPnt2d under = toImage(v, 123, 456);
        v.zoomAt(factor, 123, 456);
        EXPECT_EQ(v.getZoom(), factor > 1 ? 256.0 : 1e-4);
        const XPnt2d after = toImage(v, 123, 456);
        EXPECT_NEAR(after.x, under.x, 1e-6);
        EXPECT_NEAR(after.y, under.y, 1e-6);
    }
    // Factors that are no zoom change nothing.
    const double zoom = v.getZoom();
    const XPnt2d offset = v.getOffset();
    for (const double bad : {0.0, -1.0, std::nan("")}) {
        v.zoomAt(bad, 10, 10);
        EXPECT_EQ(v.getZoom(), zoom);
        EXPECT_EQ(v.getOffset(), offset);
    }
}

TEST(ImageView, ScreenAndImagePositionsRoundTripAndPanMovesThePicture)
{
    std::mt19937 gen(52);
    std::uniform_real_distribution<double> u(-1, 1);
    KvoImageViewTransform v;
    v.setImageSize(640, 480);
    v.setViewSize(1024, 768);
    for (int i = 0; i < 200; ++i) {
        v.setZoomAndOffset(std::exp(u(gen) * 3), u(gen) * 500, u(gen) * 500);
        const XPnt2d s(u(gen) * 2000, u(gen) * 2000);
        const XPnt2d img = toImage(v, s.x, s.y);
        const XPnt2d back = toScreen(v, img.x, img.y);
        ASSERT_NEAR(back.x, s.x, 1e-9 * std::max(1.0, std::fabs(s.x)));
        ASSERT_NEAR(back.y, s.y, 1e-9 * std::max(1.0, std::fabs(s.y)));

        // Panning drags the picture: what was under (x, y) is under (x + dx, y + dy).
        const double dx = u(gen) * 300, dy = u(gen) * 300, zoom = v.getZoom();
        v.pan(dx, dy);
        const XPnt2d moved = toImage(v, s.x + dx, s.y + dy);
        ASSERT_NEAR(moved.x, img.x, 1e-9 * std::max(1.0, std::fabs(img.x)));
        ASSERT_NEAR(moved.y, img.y, 1e-9 * std::max(1.0, std::fabs(img.y)));
        EXPECT_EQ(v.getZoom(), zoom) << "panning does not zoom";
    }
    // Image and view both have y down: the picture is not flipped.
    v.setZoomAndOffset(2, 10, 20);
    EXPECT_EQ(toScreen(v, 0, 0), XPnt2d(10, 20));
    EXPECT_EQ(toScreen(v, 5, 7), XPnt2d(20, 34));
}

TEST(ImageView, PickingGivesAPointOnlyOnThePicture)
{
    KvoImageViewTransform v;
    v.setImageSize(200, 100);
    v.setViewSize(800, 600);
    // Two view pixels an image pixel, the picture's corner at (100, 50): it
    // covers view x in [100, 500), y in [50, 250).
    v.setZoomAndOffset(2, 100, 50);
    XPnt2d p;
    EXPECT_EQ(v.pickImagePoint(p, 100, 50), XPnt2d(0, 0)) << "the first pixel's corner is on it";
    EXPECT_EQ(v.pickImagePoint(p, 301, 151), XPnt2d(100.5, 50.5));
    EXPECT_TRUE(v.pickImagePoint(p, 499.99, 249.99).isValid());
    EXPECT_EQ(toImage(v, 499.99, 249.99).x, p.x) << "on the picture, the same as screenToImage";
    for (const XPnt2d outside : {XPnt2d(99.99, 100), XPnt2d(300, 49.99), XPnt2d(500, 100), XPnt2d(300, 250),
                                 XPnt2d(-5, -5), XPnt2d(1000, 1000)}) {
        p = XPnt2d(1, 1);
        v.pickImagePoint(p, outside.x, outside.y);
        EXPECT_FALSE(p.isValid()) << outside.x << ", " << outside.y;
        EXPECT_TRUE(std::isnan(p.x) && std::isnan(p.y)) << "invalid is NaN";
    }
    // No picture: nothing to pick anywhere.
    KvoImageViewTransform empty;
    empty.setViewSize(100, 100);
    empty.fit();
    EXPECT_FALSE(empty.pickImagePoint(p, 0, 0).isValid());
    EXPECT_FALSE(empty.pickImagePoint(p, 50, 50).isValid());
}

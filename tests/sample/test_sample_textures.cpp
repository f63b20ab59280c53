// The ground-truth textures must come out the same for a seed, carry enough
// detail for feature matching, and give away any flip or half turn of
// themselves, so that a wrongly oriented texture can't pass for a right one.

#include <gtest/gtest.h>

#include <opencv2/features2d.hpp>

#include <stdexcept>
#include <string>
#include <vector>

#include "SampleTextures.h"

using namespace qvsample;

namespace {

const char* const kMaterials[] = {"brick",  "plaster", "tiles", "paving", "stone",
                                  "poster", "foliage", "bark",  "cloth",  "metal"};
// What a model is textured with; the rest stands in front of it in the
// photographs only: plain enough that seeds and flips change it little, and
// with no features to match.
const char* const kModelMaterials[] = {"brick", "plaster", "tiles", "paving", "stone", "poster"};

// Mean absolute difference over all pixels and channels, in grey levels.
double meanAbsDiff(const cv::Mat& a, const cv::Mat& b)
{
    cv::Mat d;
    cv::absdiff(a, b, d);
    const cv::Scalar m = cv::mean(d);
    return (m[0] + m[1] + m[2]) / 3;
}

} // namespace

TEST(SampleTextures, EveryMaterialAtEverySize)
{
    const cv::Size sizes[] = {{1024, 768}, {96, 672}, {1500, 40}, {16, 16}, {1, 1}};
    for (const char* material : kMaterials)
        for (const cv::Size& size : sizes) {
            SCOPED_TRACE(std::string(material) + " " + std::to_string(size.width) + "x" + std::to_string(size.height));
            const cv::Mat t = makeSurfaceTexture(material, size.width, size.height, 1);
            EXPECT_EQ(t.type(), CV_8UC3);
            EXPECT_EQ(t.size(), size);
        }
}

TEST(SampleTextures, UnknownMaterialOrEmptySizeIsRefused)
{
    EXPECT_THROW(makeSurfaceTexture("marble", 64, 64, 1), std::invalid_argument);
    EXPECT_THROW(makeSurfaceTexture("", 64, 64, 1), std::invalid_argument);
    EXPECT_THROW(makeSurfaceTexture("brick", 0, 64, 1), std::invalid_argument);
    EXPECT_THROW(makeSurfaceTexture("brick", 64, -1, 1), std::invalid_argument);
}

TEST(SampleTextures, EveryMaterialIsTheSameForTheSameSeed)
{
    for (const char* material : kMaterials)
        EXPECT_EQ(cv::norm(makeSurfaceTexture(material, 200, 150, 4), makeSurfaceTexture(material, 200, 150, 4),
                           cv::NORM_INF),
                  0)
            << material;
}

TEST(SampleTextures, SeedDecidesThePicture)
{
    for (const char* material : kModelMaterials) {
        SCOPED_TRACE(material);
        const cv::Mat a = makeSurfaceTexture(material, 640, 480, 5);
        const cv::Mat b = makeSurfaceTexture(material, 640, 480, 5);
        const cv::Mat c = makeSurfaceTexture(material, 640, 480, 6);
        EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0);
        EXPECT_GT(meanAbsDiff(a, c), 8);
    }
    // Materials look unlike each other even with one seed.
    for (const char* m1 : kModelMaterials)
        for (const char* m2 : kModelMaterials)
            if (std::string(m1) < m2) {
                EXPECT_GT(meanAbsDiff(makeSurfaceTexture(m1, 320, 240, 9), makeSurfaceTexture(m2, 320, 240, 9)), 15)
                    << m1 << " and " << m2;
            }
}

TEST(SampleTextures, FlipsAndHalfTurnsAreTellable)
{
    // flip codes: 0 about the horizontal axis, 1 about the vertical, -1 both (a half turn).
    struct Case {
        cv::Size size;
        double minDiff;
    };
    // Small and narrow textures (a pillar, a patch) have little besides the
    // orientation marks, so they need them to be telling on their own.
    const Case cases[] = {{{1024, 768}, 12}, {{96, 672}, 6}, {{64, 64}, 6}, {{16, 16}, 5}};
    for (const char* material : kModelMaterials)
        for (const Case& c : cases)
            for (unsigned seed : {1u, 2u, 3u}) {
                const cv::Mat t = makeSurfaceTexture(material, c.size.width, c.size.height, seed);
                for (int code : {0, 1, -1}) {
                    cv::Mat flipped;
                    cv::flip(t, flipped, code);
                    EXPECT_GT(meanAbsDiff(t, flipped), c.minDiff)
                        << material << " " << c.size << " seed " << seed << " flip " << code;
                }
            }
}

TEST(SampleTextures, RichInFeatures)
{
    const cv::Ptr<cv::ORB> orb = cv::ORB::create(2000);
    for (const char* material : kModelMaterials)
        for (unsigned seed : {1u, 2u}) {
            const cv::Mat t = makeSurfaceTexture(material, 1024, 768, seed);
            std::vector<cv::KeyPoint> keypoints;
            orb->detect(t, keypoints);
            EXPECT_GE(keypoints.size(), 1000u) << material << " seed " << seed;
        }
    // Features must be found all over a texture, not only in a few busy
    // spots: a photograph may show any part of it. Asked for without limit,
    // ORB finds some in every 256 x 256 block.
    const cv::Ptr<cv::ORB> unlimited = cv::ORB::create(100000);
    for (const char* material : kModelMaterials)
        for (unsigned seed : {1u, 2u, 3u}) {
            const cv::Mat t = makeSurfaceTexture(material, 1024, 768, seed);
            std::vector<cv::KeyPoint> keypoints;
            unlimited->detect(t, keypoints);
            int cells[3][4] = {};
            for (const cv::KeyPoint& k : keypoints)
                ++cells[int(k.pt.y) / 256][int(k.pt.x) / 256];
            for (int j = 0; j < 3; ++j)
                for (int i = 0; i < 4; ++i)
                    EXPECT_GE(cells[j][i], 25) << material << " seed " << seed << " block " << i << "," << j;
        }
}

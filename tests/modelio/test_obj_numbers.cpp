// The reader's quick paths (plain decimals, the usual face shapes) must read
// exactly what the general paths read.

#include <charconv>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "modelio/KvoObjReader.h"
#include "support/TestSupport.h"

using namespace kvo;

TEST(ObjNumbers, PlainDecimalsReadBitForBitAsFromChars)
{
    std::mt19937_64 rng(99);
    std::vector<std::string> literals;
    for (int i = 0; i < 30000; ++i) {
        // Every count of decimals from 0 to 10, magnitudes from 1e-9 to 1e9,
        // both signs, and the odd shapes ".5" and "7.".
        const int decimals = int(rng() % 11);
        const double magnitude = std::pow(10.0, double(int(rng() % 19)) - 9);
        const double v = (double(rng() % 2000001) / 1000000.0 - 1.0) * magnitude;
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
        std::string lit = buf;
        if (i % 97 == 0)
            lit = ".5";
        if (i % 89 == 0)
            lit = "7.";
        literals.push_back(lit);
    }
    std::string text;
    for (size_t i = 0; i + 2 < literals.size(); i += 3)
        text += "v " + literals[i] + " " + literals[i + 1] + " " + literals[i + 2] + "\n";
    QvObjModel model;
    ASSERT_EQ(readObjBuffer(model, text.data(), text.size(), QString(), nullptr), 0);
    ASSERT_EQ(size_t(model.vertices->getCount()), literals.size() / 3);
    for (size_t i = 0; i + 2 < literals.size(); i += 3) {
        const XPnt3f got = model.vertices->getAt(long(i / 3));
        const float g[3] = {got.x, got.y, got.z};
        for (int k = 0; k < 3; ++k) {
            const std::string& lit = literals[i + size_t(k)];
            const char* b = lit.data();
            const bool negative = *b == '-';
            if (negative)
                ++b;
            float want = 0;
            std::from_chars(b, lit.data() + lit.size(), want);
            if (negative)
                want = -want;
            EXPECT_EQ(std::memcmp(&g[k], &want, sizeof(float)), 0) << lit;
        }
    }
}

TEST(ObjNumbers, FaceShapesReadAsTheGeneralRulesSay)
{
    const std::string text = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nvn 0 0 1\n"
                             "f 1 2 3 4\n"
                             "f 1/1 2/2 3/3\n"
                             "f 1/1/1 2/2/1 3/3/1 4/4/1\n"
                             "f 1//1 2//1 3//1\n"
                             "f 12 1 2\n"; // an index past the vertices is still read
    QvObjModel m;
    ASSERT_EQ(readObjBuffer(m, text.data(), text.size(), QString(), nullptr), 0);
    ASSERT_EQ(m.triangles.size(), 7u);
    const auto& t = m.triangles;
    EXPECT_EQ(t[1].vindices[1], 2u);
    EXPECT_EQ(t[1].vindices[2], 3u) << "fan: (1 3 4)";
    EXPECT_EQ(t[1].tindices[0], kObjNoIndex);
    EXPECT_EQ(t[2].tindices[1], 1u);
    EXPECT_EQ(t[2].nindices[0], kObjNoIndex);
    EXPECT_EQ(t[3].nindices[2], 0u);
    EXPECT_EQ(t[4].tindices[2], 3u);
    EXPECT_EQ(t[5].tindices[0], kObjNoIndex);
    EXPECT_EQ(t[5].nindices[1], 0u);
    EXPECT_EQ(t[6].vindices[0], 11u);
}

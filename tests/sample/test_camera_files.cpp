// Camera files read back by readers written here from the formats' published
// descriptions: each must put a world point on the pixel it truly lands on.

#include <QDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <locale>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "SampleCameraFiles.h"
#include "SampleRandom.h"
#include "support/TestSupport.h"

using namespace qvsample;

namespace {

// Rotation by angle about a unit axis, active and right-handed (Rodrigues).
void axisAngle(const double a[3], double angle, double R[9])
{
    const double c = std::cos(angle), s = std::sin(angle), v = 1 - c;
    R[0] = c + a[0] * a[0] * v;
    R[1] = a[0] * a[1] * v - a[2] * s;
    R[2] = a[0] * a[2] * v + a[1] * s;
    R[3] = a[1] * a[0] * v + a[2] * s;
    R[4] = c + a[1] * a[1] * v;
    R[5] = a[1] * a[2] * v - a[0] * s;
    R[6] = a[2] * a[0] * v - a[1] * s;
    R[7] = a[2] * a[1] * v + a[0] * s;
    R[8] = c + a[2] * a[2] * v;
}

void randomAxis(SampleRandom& rng, double a[3])
{
    double n = 0;
    while (n < 0.1 || n > 1) {
        for (int k = 0; k < 3; ++k)
            a[k] = rng.uniform(-1, 1);
        n = std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]);
    }
    for (int k = 0; k < 3; ++k)
        a[k] /= n;
}

// Half turns and near half turns, where the quaternion's w vanishes, among ordinary angles.
const double kCameraAngles[] = {0.4, M_PI, -2.0, M_PI - 1e-9, 1.3, M_PI - 1e-6, 2.9, -M_PI + 1e-7, 0};

// Non-square pixels and an off-centre principal point, so that a swapped or
// dropped intrinsic shows; one name with two dots.
SampleCamera randomCamera(SampleRandom& rng, int i)
{
    static const int sizes[3][2] = {{1600, 1200}, {1333, 999}, {1000, 1500}};
    SampleCamera c;
    c.name = i == 1 ? "IMG.0042.JPG" : "photo_" + std::to_string(i) + ".jpg";
    c.width = sizes[i % 3][0];
    c.height = sizes[i % 3][1];
    c.fx = rng.uniform(900, 1800);
    c.fy = c.fx * rng.uniform(0.9, 1.1);
    c.cx = c.width * rng.uniform(0.4, 0.6);
    c.cy = c.height * rng.uniform(0.4, 0.6);
    double axis[3];
    randomAxis(rng, axis);
    axisAngle(axis, kCameraAngles[size_t(i) % (sizeof kCameraAngles / sizeof *kCameraAngles)], c.R);
    c.t[0] = rng.uniform(-20, 20);
    c.t[1] = rng.uniform(-20, 20);
    c.t[2] = rng.uniform(-20, 20);
    return c;
}

std::vector<SampleCamera> randomCameras(unsigned seed)
{
    SampleRandom rng(seed);
    std::vector<SampleCamera> cams;
    for (int i = 0; i < 9; ++i)
        cams.push_back(randomCamera(rng, i));
    return cams;
}

// The camera as Bundler can hold it: one focal length, principal point at the centre.
SampleCamera bundlerCamera(SampleCamera c)
{
    c.fy = c.fx;
    c.cx = c.width * 0.5;
    c.cy = c.height * 0.5;
    return c;
}

struct Seen {
    XPnt3d world;
    XPnt2d pixel;
};

// World points placed on known pixels of c, anywhere in the picture, 2 to 60 in front.
std::vector<Seen> seenBy(const SampleCamera& c, SampleRandom& rng)
{
    std::vector<Seen> out;
    for (int k = 0; k < 25; ++k) {
        const XPnt2d px(rng.uniform(0, c.width), rng.uniform(0, c.height));
        const double d = rng.uniform(2, 60);
        const double v[3] = {(px.x - c.cx) / c.fx * d - c.t[0], (px.y - c.cy) / c.fy * d - c.t[1], d - c.t[2]};
        const XPnt3d X(c.R[0] * v[0] + c.R[3] * v[1] + c.R[6] * v[2], c.R[1] * v[0] + c.R[4] * v[1] + c.R[7] * v[2],
                       c.R[2] * v[0] + c.R[5] * v[1] + c.R[8] * v[2]);
        out.push_back({X, px});
    }
    return out;
}

void transform(const double R[9], const double t[3], const XPnt3d& X, double out[3])
{
    out[0] = R[0] * X.x + R[1] * X.y + R[2] * X.z + t[0];
    out[1] = R[3] * X.x + R[4] * X.y + R[5] * X.z + t[1];
    out[2] = R[6] * X.x + R[7] * X.y + R[8] * X.z + t[2];
}

// All blank-separated fields of a line as numbers read in the C locale; false
// when any of them is not one.
bool numbers(const std::string& line, std::vector<double>& v)
{
    std::istringstream s(line);
    s.imbue(std::locale::classic());
    v.clear();
    double x;
    while (s >> x)
        v.push_back(x);
    return s.eof();
}

std::vector<std::string> lines(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    std::vector<std::string> out;
    std::string line;
    while (std::getline(f, line))
        out.push_back(line);
    return out;
}

std::string bytes(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

// COLMAP text model. '#' lines are comments; cameras.txt and points3D.txt hold
// one line a record, images.txt two: the image, then its 2-D points.
struct ColmapCamera {
    std::string model;
    int width = 0, height = 0;
    std::vector<double> params;
};
struct ColmapImage {
    double q[4] = {0, 0, 0, 0}, t[3] = {0, 0, 0};
    long cameraId = 0;
    std::string name, points2D;
};
struct ColmapModel {
    std::map<long, ColmapCamera> cameras;
    std::map<long, ColmapImage> images;
    size_t points = 0;
    std::vector<std::string> problems;
};

bool isComment(const std::string& line)
{
    return !line.empty() && line[0] == '#';
}

ColmapModel readColmap(const std::string& folder)
{
    ColmapModel m;
    const std::vector<std::string> cams = lines(folder + "/cameras.txt");
    const std::vector<std::string> imgs = lines(folder + "/images.txt");
    const std::vector<std::string> pts = lines(folder + "/points3D.txt");
    for (const std::vector<std::string>* file : {&cams, &imgs, &pts})
        if (file->empty() || !isComment(file->front()))
            m.problems.push_back("a file without its comment header");
    for (const std::string& line : cams) {
        if (line.empty() || isComment(line))
            continue;
        std::istringstream s(line);
        s.imbue(std::locale::classic());
        long id = 0;
        ColmapCamera c;
        std::string rest;
        s >> id >> c.model >> c.width >> c.height;
        std::getline(s, rest);
        if (!s || !numbers(rest, c.params) || !m.cameras.emplace(id, c).second)
            m.problems.push_back("camera line: " + line);
    }
    for (size_t i = 0; i < imgs.size(); ++i) {
        if (imgs[i].empty() || isComment(imgs[i]))
            continue;
        std::istringstream s(imgs[i]);
        s.imbue(std::locale::classic());
        long id = 0;
        ColmapImage im;
        std::string extra;
        s >> id >> im.q[0] >> im.q[1] >> im.q[2] >> im.q[3] >> im.t[0] >> im.t[1] >> im.t[2] >> im.cameraId >> im.name;
        if (!s || (s >> extra) || i + 1 >= imgs.size())
            m.problems.push_back("image line: " + imgs[i]);
        else
            im.points2D = imgs[++i];
        if (!m.images.emplace(id, im).second)
            m.problems.push_back("image id used twice");
    }
    for (const std::string& line : pts)
        if (!line.empty() && !isComment(line))
            ++m.points;
    return m;
}

// Hamilton quaternion, w first, to a rotation matrix.
void colmapRotation(const double q[4], double R[9])
{
    const double n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    const double w = q[0] / n, x = q[1] / n, y = q[2] / n, z = q[3] / n;
    const double M[9] = {1 - 2 * (y * y + z * z), 2 * (x * y - w * z),     2 * (x * z + w * y),
                         2 * (x * y + w * z),     1 - 2 * (x * x + z * z), 2 * (y * z - w * x),
                         2 * (x * z - w * y),     2 * (y * z + w * x),     1 - 2 * (x * x + y * y)};
    std::copy(M, M + 9, R);
}

// Bundler v0.3: the header line, "<cameras> <points>", then five lines a
// camera: "f k1 k2", the three rows of R, t.
struct BundlerCamera {
    double f = 0, k1 = 0, k2 = 0, R[9] = {}, t[3] = {};
};

bool readBundler(const std::string& path, std::vector<BundlerCamera>& cams, double& points)
{
    const std::vector<std::string> l = lines(path);
    std::vector<double> v;
    if (l.size() < 2 || l[0] != "# Bundle file v0.3" || !numbers(l[1], v) || v.size() != 2)
        return false;
    points = v[1];
    const size_t n = size_t(v[0]);
    if (l.size() < 2 + 5 * n)
        return false;
    cams.assign(n, BundlerCamera());
    for (size_t i = 0; i < n; ++i) {
        BundlerCamera& c = cams[i];
        double* rows[5] = {nullptr, c.R, c.R + 3, c.R + 6, c.t};
        for (size_t r = 0; r < 5; ++r) {
            if (!numbers(l[2 + 5 * i + r], v) || v.size() != 3)
                return false;
            if (r == 0) {
                c.f = v[0];
                c.k1 = v[1];
                c.k2 = v[2];
            } else {
                std::copy(v.begin(), v.end(), rows[r]);
            }
        }
    }
    return true;
}

// Three lines of four numbers.
bool readMatrix(const std::string& path, double P[12])
{
    const std::vector<std::string> l = lines(path);
    std::vector<double> v;
    if (l.size() != 3)
        return false;
    for (size_t r = 0; r < 3; ++r) {
        if (!numbers(l[r], v) || v.size() != 4)
            return false;
        std::copy(v.begin(), v.end(), P + 4 * r);
    }
    return true;
}

// Switches the process to a locale with a decimal comma (C and C++ alike)
// and puts the previous ones back when it goes.
class CommaLocale {
public:
    CommaLocale() : m_c(std::setlocale(LC_ALL, nullptr))
    {
        for (const char* name : {"de_DE.UTF-8", "de_DE.utf8"}) {
            if (!std::setlocale(LC_ALL, name))
                continue;
            try {
                std::locale::global(std::locale(name));
            } catch (const std::runtime_error&) {
            }
            m_active = std::string(std::localeconv()->decimal_point) == ",";
            return;
        }
    }
    ~CommaLocale()
    {
        std::locale::global(m_cpp);
        std::setlocale(LC_ALL, m_c.c_str());
    }
    bool active() const { return m_active; }

private:
    std::string m_c;
    std::locale m_cpp;
    bool m_active = false;
};

std::string withoutExtension(const std::string& name)
{
    return name.substr(0, name.rfind('.'));
}

} // namespace

TEST(CameraFiles, QuaternionsStayAccurateUpToHalfTurns)
{
    SampleRandom rng(5);
    const double angles[] = {0,           1e-9,        0.5,          -1.7, 2.5,          M_PI - 1e-3,
                             M_PI - 1e-6, M_PI - 1e-9, M_PI - 1e-12, M_PI, -M_PI + 1e-8, -M_PI};
    for (int trial = 0; trial < 30; ++trial) {
        double axis[3] = {0, 0, 0};
        if (trial < 3)
            axis[trial] = 1;
        else
            randomAxis(rng, axis);
        for (double a : angles) {
            SCOPED_TRACE("trial " + std::to_string(trial) + ", angle " + std::to_string(a));
            double R[9], q[4], back[9];
            axisAngle(axis, a, R);
            rotationToQuaternion(R, q);
            // Rotation by a about the axis: (cos a/2, sin a/2 axis), w >= 0 for |a| <= pi.
            const double s = std::sin(a / 2);
            const double want[4] = {std::cos(a / 2), s * axis[0], s * axis[1], s * axis[2]};
            double d = 0, dFlipped = 0;
            for (int k = 0; k < 4; ++k) {
                d = std::max(d, std::abs(q[k] - want[k]));
                dFlipped = std::max(dFlipped, std::abs(q[k] + want[k]));
            }
            EXPECT_GE(q[0], 0);
            EXPECT_NEAR(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3], 1, 1e-14);
            // At a half turn w is 0 and q and -q both have it.
            EXPECT_LT(want[0] < 1e-12 ? std::min(d, dFlipped) : d, 1e-12);
            quaternionToRotation(q, back);
            for (int k = 0; k < 9; ++k)
                EXPECT_NEAR(back[k], R[k], 1e-12);
        }
    }
}

TEST(CameraFiles, ColmapAndMatrixFilesPutPointsOnTheirPixels)
{
    qvtest::ScratchDir dir;
    const std::vector<SampleCamera> cams = randomCameras(12);
    const std::string folder = dir.path().toStdString();
    std::string error;
    ASSERT_TRUE(writeColmapText(folder, cams, &error)) << error;
    ASSERT_TRUE(writeProjectionMatrices(folder, cams, &error)) << error;

    const ColmapModel m = readColmap(folder);
    EXPECT_TRUE(m.problems.empty()) << (m.problems.empty() ? "" : m.problems.front());
    ASSERT_EQ(m.images.size(), cams.size());
    EXPECT_EQ(m.points, 0u);
    std::map<std::string, const ColmapImage*> byName;
    for (const auto& im : m.images)
        byName[im.second.name] = &im.second;

    SampleRandom rng(13);
    for (const SampleCamera& c : cams) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(byName.count(c.name), 1u);
        const ColmapImage& im = *byName[c.name];
        EXPECT_TRUE(im.points2D.empty()) << im.points2D;
        EXPECT_GE(im.q[0], 0);
        ASSERT_EQ(m.cameras.count(im.cameraId), 1u);
        const ColmapCamera& cc = m.cameras.at(im.cameraId);
        EXPECT_EQ(cc.model, "PINHOLE");
        EXPECT_EQ(cc.width, c.width);
        EXPECT_EQ(cc.height, c.height);
        ASSERT_EQ(cc.params.size(), 4u);
        double R[9];
        colmapRotation(im.q, R);

        double P[12];
        ASSERT_TRUE(readMatrix(folder + "/" + withoutExtension(c.name) + ".P.txt", P));

        for (const Seen& s : seenBy(c, rng)) {
            XPnt2d own;
            ASSERT_TRUE(c.project(s.world, own));
            EXPECT_NEAR(own.x, s.pixel.x, 1e-6);
            EXPECT_NEAR(own.y, s.pixel.y, 1e-6);

            // PINHOLE: fx, fy, cx, cy; camera x right, y down, z forward.
            double p[3];
            transform(R, im.t, s.world, p);
            ASSERT_GT(p[2], 0);
            EXPECT_NEAR(cc.params[0] * p[0] / p[2] + cc.params[2], s.pixel.x, 1e-6);
            EXPECT_NEAR(cc.params[1] * p[1] / p[2] + cc.params[3], s.pixel.y, 1e-6);

            const double h[3] = {P[0] * s.world.x + P[1] * s.world.y + P[2] * s.world.z + P[3],
                                 P[4] * s.world.x + P[5] * s.world.y + P[6] * s.world.z + P[7],
                                 P[8] * s.world.x + P[9] * s.world.y + P[10] * s.world.z + P[11]};
            EXPECT_NEAR(h[0] / h[2], s.pixel.x, 1e-6);
            EXPECT_NEAR(h[1] / h[2], s.pixel.y, 1e-6);
        }
    }
}

TEST(CameraFiles, BundlerFilesPutPointsOnTheirPixels)
{
    qvtest::ScratchDir dir;
    std::vector<SampleCamera> cams = randomCameras(21);
    for (SampleCamera& c : cams)
        c = bundlerCamera(c);
    const std::string folder = dir.path().toStdString();
    std::string error;
    ASSERT_TRUE(writeBundler(folder, cams, &error)) << error;

    std::vector<BundlerCamera> bundle;
    double points = -1;
    ASSERT_TRUE(readBundler(folder + "/bundle.out", bundle, points));
    EXPECT_EQ(points, 0);
    ASSERT_EQ(bundle.size(), cams.size());
    // list.txt: "name 0 f" a photograph, in the order of bundle.out.
    const std::vector<std::string> list = lines(folder + "/list.txt");
    ASSERT_EQ(list.size(), cams.size());

    SampleRandom rng(22);
    for (size_t i = 0; i < cams.size(); ++i) {
        const SampleCamera& c = cams[i];
        const BundlerCamera& b = bundle[i];
        SCOPED_TRACE(c.name);
        std::istringstream entry(list[i]);
        entry.imbue(std::locale::classic());
        std::string name, rest;
        int zero = -1;
        double f = 0;
        entry >> name >> zero >> f;
        EXPECT_EQ(name, c.name);
        EXPECT_EQ(zero, 0);
        EXPECT_EQ(f, b.f);
        EXPECT_FALSE(entry >> rest);
        EXPECT_EQ(b.k1, 0);
        EXPECT_EQ(b.k2, 0);

        for (const Seen& s : seenBy(c, rng)) {
            // P = R X + t, p = -P / P.z, f p from the centre with y up.
            double P[3];
            transform(b.R, b.t, s.world, P);
            ASSERT_LT(P[2], 0) << "in front of a Bundler camera";
            const double px = b.f * -P[0] / P[2], py = b.f * -P[1] / P[2];
            EXPECT_NEAR(c.width * 0.5 + px, s.pixel.x, 1e-6);
            EXPECT_NEAR(c.height * 0.5 - py, s.pixel.y, 1e-6);
        }
    }
}

TEST(CameraFiles, ControlPointFilesRoundTripAndReadingRules)
{
    qvtest::ScratchDir dir;
    const std::string path = dir.file("cp.txt").toStdString();
    SampleRandom rng(3);
    std::vector<SampleControlPoint> pts(20);
    for (SampleControlPoint& p : pts) {
        p.u = rng.uniform(0, 1);
        p.v = rng.uniform(0, 1);
        p.world = XPnt3d(rng.uniform(-1000, 1000), rng.uniform(-1000, 1000), rng.uniform(-5, 5));
    }
    pts[0].u = 0;
    pts[0].v = 1;
    pts[1].world = XPnt3d(-0.0000004, 123456.5, 0);
    std::string error;
    ASSERT_TRUE(writeControlPoints(path, pts, &error)) << error;

    // The test runs with the C numeric locale, so printf is the reference.
    std::string want = "    U          V          X           Y            Z   \n";
    for (const SampleControlPoint& p : pts) {
        char line[256];
        std::snprintf(line, sizeof line, "%f   %f   %f   %f   %f\n", p.u, p.v, p.world.x, p.world.y, p.world.z);
        want += line;
    }
    EXPECT_EQ(bytes(path), want);

    std::vector<SampleControlPoint> back;
    ASSERT_TRUE(readControlPoints(path, back, &error)) << error;
    ASSERT_EQ(back.size(), pts.size());
    for (size_t i = 0; i < pts.size(); ++i) {
        const double tol = 5e-7 + 1e-12;
        EXPECT_NEAR(back[i].u, pts[i].u, tol);
        EXPECT_NEAR(back[i].v, pts[i].v, tol);
        EXPECT_NEAR(back[i].world.x, pts[i].world.x, tol);
        EXPECT_NEAR(back[i].world.y, pts[i].world.y, tol);
        EXPECT_NEAR(back[i].world.z, pts[i].world.z, tol);
    }

    // No header, so "0.1 0.2 1 2 3" is taken for it and lost.
    {
        std::ofstream out(path, std::ios::binary);
        out << "0.1 0.2 1 2 3\n"
               "0.3,0.4,4,5,6\n"
               "0.5\t0.6\t7 8\n"          // four numbers
               "1.2 0.5 1 1 1\n"          // U beyond 1
               "0.5 -0.01 1 1 1\n"        // V below 0
               "0 1 -7.5 8 9.25\r\n"      // the edges of [0, 1], a Windows line end
               "0.2 0.3 1 2 3 4\n"        // six numbers
               "0.2 0.3 1 2 x\n"          // not a number
               "\n"                       // nothing
               "\t0.7 ,\t0.8   9 10 11\n" // mixed separators
            ;
    }
    ASSERT_TRUE(readControlPoints(path, back, &error)) << error;
    ASSERT_EQ(back.size(), 3u);
    const double got[3][5] = {{0.3, 0.4, 4, 5, 6}, {0, 1, -7.5, 8, 9.25}, {0.7, 0.8, 9, 10, 11}};
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(back[i].u, got[i][0]);
        EXPECT_EQ(back[i].v, got[i][1]);
        EXPECT_EQ(back[i].world.x, got[i][2]);
        EXPECT_EQ(back[i].world.y, got[i][3]);
        EXPECT_EQ(back[i].world.z, got[i][4]);
    }

    error.clear();
    EXPECT_FALSE(readControlPoints(dir.file("none.txt").toStdString(), back, &error));
    EXPECT_NE(error.find("none.txt"), std::string::npos) << error;
}

TEST(CameraFiles, WritersFailIntoAMissingFolder)
{
    qvtest::ScratchDir dir;
    const std::vector<SampleCamera> cams = randomCameras(4);
    const std::string missing = dir.file("missing/deeper").toStdString();
    using Writer = bool (*)(const std::string&, const std::vector<SampleCamera>&, std::string*);
    for (Writer w : {Writer(writeColmapText), Writer(writeBundler), Writer(writeProjectionMatrices)}) {
        std::string error;
        EXPECT_FALSE(w(missing, cams, &error));
        EXPECT_NE(error.find(missing), std::string::npos) << error;
    }
    std::string error;
    EXPECT_FALSE(writeControlPoints(missing + "/cp.txt", std::vector<SampleControlPoint>(2), &error));
    EXPECT_NE(error.find(missing), std::string::npos) << error;
}

TEST(CameraFiles, NumbersIgnoreTheUserLocale)
{
    qvtest::ScratchDir dir;
    const std::vector<SampleCamera> cams = randomCameras(8);
    std::vector<SampleControlPoint> pts(4);
    for (size_t i = 0; i < pts.size(); ++i) {
        pts[i].u = 0.125 * double(i);
        pts[i].v = 0.3;
        pts[i].world = XPnt3d(1234.5678, -0.25, 1e-3 * double(i));
    }
    auto writeAll = [&](const std::string& folder) {
        std::string error;
        EXPECT_TRUE(writeColmapText(folder, cams, &error) && writeBundler(folder, cams, &error) &&
                    writeProjectionMatrices(folder, cams, &error) &&
                    writeControlPoints(folder + "/cp.txt", pts, &error))
            << error;
    };
    const std::string c = dir.path().toStdString(), comma = dir.file("comma").toStdString();
    ASSERT_TRUE(QDir().mkpath(QString::fromStdString(comma)));
    writeAll(c);
    {
        CommaLocale locale;
        if (!locale.active())
            GTEST_SKIP() << "no locale with a decimal comma installed";
        writeAll(comma);
    }
    std::vector<std::string> files = {"cameras.txt", "images.txt", "points3D.txt", "bundle.out", "list.txt", "cp.txt"};
    for (const SampleCamera& cam : cams)
        files.push_back(withoutExtension(cam.name) + ".P.txt");
    for (const std::string& f : files) {
        SCOPED_TRACE(f);
        const std::string a = bytes(c + "/" + f);
        EXPECT_FALSE(a.empty());
        EXPECT_EQ(a, bytes(comma + "/" + f));
    }
}

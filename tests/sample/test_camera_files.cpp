// Camera files read back by readers written here from the formats' own
// descriptions: each must put a world point on the same pixel as the camera
// it was written from.

#include <QFile>

#include <clocale>
#include <cmath>
#include <fstream>
#include <sstream>

#include "SampleCameraFiles.h"
#include "SampleRandom.h"
#include "support/TestSupport.h"

using namespace qvsample;

namespace {

// A camera with a random orientation (some near a half turn) looking at the origin.
SampleCamera randomCamera(SampleRandom& rng, int i)
{
    SampleCamera c;
    c.name = "photo_" + std::to_string(i) + ".jpg";
    c.width = 1600;
    c.height = 1200;
    c.fx = c.fy = rng.uniform(900, 1800);
    c.cx = 800;
    c.cy = 600;
    // Rotation from a random axis and angle; every third close to 180 degrees.
    XPnt3d axis(rng.uniform(-1, 1), rng.uniform(-1, 1), rng.uniform(-1, 1));
    axis = axis * (1.0 / std::sqrt(axis.x * axis.x + axis.y * axis.y + axis.z * axis.z));
    const double a = (i % 3 == 0) ? M_PI - rng.uniform(0, 1e-6) : rng.uniform(-3, 3);
    const double q[4] = {std::cos(a / 2), axis.x * std::sin(a / 2), axis.y * std::sin(a / 2), axis.z * std::sin(a / 2)};
    quaternionToRotation(q, c.R);
    c.t[0] = rng.uniform(-2, 2);
    c.t[1] = rng.uniform(-2, 2);
    c.t[2] = rng.uniform(15, 25);
    return c;
}

std::vector<std::string> dataLines(const std::string& path)
{
    std::ifstream f(path);
    std::vector<std::string> out;
    std::string line;
    while (std::getline(f, line))
        if (line.empty() || line[0] != '#')
            out.push_back(line);
    return out;
}

// Camera coordinates to our pixel, through R, t and a pinhole.
bool pinhole(const double R[9], const double t[3], double fx, double fy, double cx, double cy, const XPnt3d& X,
             XPnt2d& px)
{
    const double c[3] = {R[0] * X.x + R[1] * X.y + R[2] * X.z + t[0], R[3] * X.x + R[4] * X.y + R[5] * X.z + t[1],
                         R[6] * X.x + R[7] * X.y + R[8] * X.z + t[2]};
    if (c[2] <= 0)
        return false;
    px = XPnt2d(fx * c[0] / c[2] + cx, fy * c[1] / c[2] + cy);
    return true;
}

} // namespace

TEST(CameraFiles, ColmapBundlerAndMatricesPutPointsOnTheSamePixels)
{
    qvtest::ScratchDir dir;
    SampleRandom rng(12);
    std::vector<SampleCamera> cams;
    for (int i = 0; i < 9; ++i)
        cams.push_back(randomCamera(rng, i));
    const std::string folder = dir.path().toStdString();
    std::string error;
    ASSERT_TRUE(writeColmapText(folder, cams, &error)) << error;
    ASSERT_TRUE(writeBundler(folder, cams, &error)) << error;
    ASSERT_TRUE(writeProjectionMatrices(folder, cams, &error)) << error;

    // COLMAP text: cameras.txt one line a camera, images.txt two lines an image.
    const std::vector<std::string> camLines = dataLines(folder + "/cameras.txt");
    const std::vector<std::string> imgLines = dataLines(folder + "/images.txt");
    ASSERT_EQ(camLines.size(), cams.size());
    ASSERT_EQ(imgLines.size(), cams.size() * 2);
    // Bundler: header line, counts, then five lines a camera.
    std::ifstream bundle(folder + "/bundle.out");
    std::string header;
    std::getline(bundle, header);
    EXPECT_EQ(header, "# Bundle file v0.3");
    size_t nCams = 0, nPoints = 1;
    bundle >> nCams >> nPoints;
    ASSERT_EQ(nCams, cams.size());
    EXPECT_EQ(nPoints, 0u);

    for (size_t i = 0; i < cams.size(); ++i) {
        const SampleCamera& c = cams[i];
        std::istringstream cl(camLines[i]), il(imgLines[i * 2]);
        size_t camId, imgId, imgCam;
        std::string model, name;
        int w, h;
        double fx, fy, cx, cy, q[4], t[3], R[9];
        cl >> camId >> model >> w >> h >> fx >> fy >> cx >> cy;
        il >> imgId >> q[0] >> q[1] >> q[2] >> q[3] >> t[0] >> t[1] >> t[2] >> imgCam >> name;
        EXPECT_EQ(model, "PINHOLE");
        EXPECT_EQ(name, c.name);
        EXPECT_EQ(imgCam, camId);
        EXPECT_GE(q[0], 0);
        // Hamilton quaternion, w first, written out by hand.
        const double n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
        const double qw = q[0] / n, qx = q[1] / n, qy = q[2] / n, qz = q[3] / n;
        const double Rq[9] = {1 - 2 * (qy * qy + qz * qz), 2 * (qx * qy - qw * qz),     2 * (qx * qz + qw * qy),
                              2 * (qx * qy + qw * qz),     1 - 2 * (qx * qx + qz * qz), 2 * (qy * qz - qw * qx),
                              2 * (qx * qz - qw * qy),     2 * (qy * qz + qw * qx),     1 - 2 * (qx * qx + qy * qy)};
        std::copy(Rq, Rq + 9, R);

        double f, k1, k2, Rb[9], tb[3];
        bundle >> f >> k1 >> k2;
        for (double& v : Rb)
            bundle >> v;
        for (double& v : tb)
            bundle >> v;

        std::ifstream pf(folder + "/" + c.name.substr(0, c.name.size() - 4) + ".P.txt");
        double P[12];
        for (double& v : P)
            pf >> v;
        ASSERT_TRUE(bool(pf));

        for (int k = 0; k < 30; ++k) {
            const XPnt3d X(rng.uniform(-3, 3), rng.uniform(-3, 3), rng.uniform(-3, 3));
            XPnt2d want, colmap;
            if (!c.project(X, want))
                continue;
            ASSERT_TRUE(pinhole(R, t, fx, fy, cx, cy, X, colmap));
            EXPECT_NEAR(colmap.x, want.x, 1e-6);
            EXPECT_NEAR(colmap.y, want.y, 1e-6);
            // Bundler: P = R X + t, p = -P / P.z, pixel from the centre with y up.
            const double Pb[3] = {Rb[0] * X.x + Rb[1] * X.y + Rb[2] * X.z + tb[0],
                                  Rb[3] * X.x + Rb[4] * X.y + Rb[5] * X.z + tb[1],
                                  Rb[6] * X.x + Rb[7] * X.y + Rb[8] * X.z + tb[2]};
            const double bx = f * -Pb[0] / Pb[2], by = f * -Pb[1] / Pb[2];
            EXPECT_NEAR(c.width * 0.5 + bx, want.x, 1e-6);
            EXPECT_NEAR(c.height * 0.5 - by, want.y, 1e-6);
            // The 3x4 matrix.
            const double h3[3] = {P[0] * X.x + P[1] * X.y + P[2] * X.z + P[3],
                                  P[4] * X.x + P[5] * X.y + P[6] * X.z + P[7],
                                  P[8] * X.x + P[9] * X.y + P[10] * X.z + P[11]};
            EXPECT_NEAR(h3[0] / h3[2], want.x, 1e-6);
            EXPECT_NEAR(h3[1] / h3[2], want.y, 1e-6);
        }
    }
    std::ifstream list(folder + "/list.txt");
    std::string first;
    std::getline(list, first);
    EXPECT_EQ(first.substr(0, first.find(' ')), cams[0].name);
    EXPECT_FALSE(writeColmapText(folder + "/missing/deeper", cams, &error));
    EXPECT_NE(error.find("cannot write"), std::string::npos);
}

TEST(CameraFiles, ControlPointFileRoundTripAndReadingRules)
{
    qvtest::ScratchDir dir;
    const std::string path = dir.file("cp.txt").toStdString();
    std::vector<SampleControlPoint> pts(3);
    pts[0].u = 0.25;
    pts[0].v = 0.75;
    pts[0].world = XPnt3d(1.5, -2.25, 3.125);
    pts[1].u = 1;
    pts[1].v = 0;
    pts[1].world = XPnt3d(-100000.5, 2e5, 0.000001);
    pts[2].u = 0.1234567;
    pts[2].v = 0.5;
    pts[2].world = XPnt3d(1, 2, 3);
    std::string error;
    ASSERT_TRUE(writeControlPoints(path, pts, &error)) << error;
    QFile f(dir.file("cp.txt"));
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = f.readAll().split('\n');
    EXPECT_EQ(lines[0], QByteArray("    U          V          X           Y            Z   "));
    EXPECT_EQ(lines[1], QByteArray("0.250000   0.750000   1.500000   -2.250000   3.125000"));
    std::vector<SampleControlPoint> back;
    ASSERT_TRUE(readControlPoints(path, back, &error));
    ASSERT_EQ(back.size(), 3u);
    EXPECT_NEAR(back[2].u, 0.123457, 1e-12) << "six decimals";
    EXPECT_EQ(back[1].world.x, -100000.5);

    // No header: the first data line is lost. Four numbers, or U = 1.2: dropped.
    {
        std::ofstream out(path);
        out << "0.1 0.2 1 2 3\n0.3,0.4,4,5,6\n0.5\t0.6\t7 8\n1.2 0.5 1 1 1\n0.7 0.8 9 10 11\r\n";
    }
    ASSERT_TRUE(readControlPoints(path, back, &error));
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(back[0].u, 0.3);
    EXPECT_EQ(back[1].world.z, 11);
    EXPECT_FALSE(readControlPoints(dir.file("none.txt").toStdString(), back, &error));

    // The numbers do not follow the user's locale.
    if (std::setlocale(LC_ALL, "de_DE.UTF-8")) {
        const std::string other = dir.file("cp_de.txt").toStdString();
        writeControlPoints(other, pts, &error);
        std::setlocale(LC_ALL, "C");
        std::ifstream a(path), b(other);
        writeControlPoints(path, pts, &error);
        std::ifstream a2(path);
        std::stringstream sa, sb;
        sa << a2.rdbuf();
        sb << b.rdbuf();
        EXPECT_EQ(sa.str(), sb.str());
    }
    std::setlocale(LC_ALL, "C");
    std::setlocale(LC_NUMERIC, "C");
}

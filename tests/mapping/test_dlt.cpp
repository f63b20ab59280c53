// DLT fits checked against cameras whose every number is known.

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <cmath>
#include <random>

#include "mapping/KvoDlt.h"
#include "scene/KvoStore.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

// A camera in normalised picture units: u, v in 0..1 across the picture.
struct Cam {
    double fx, fy, cx, cy;
    cv::Matx33d R;
    cv::Vec3d C;

    cv::Matx34d P() const
    {
        const cv::Matx33d K(fx, 0, cx, 0, fy, cy, 0, 0, 1);
        const cv::Vec3d t = -(R * C);
        cv::Matx34d Rt;
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j)
                Rt(i, j) = R(i, j);
            Rt(i, 3) = t[i];
        }
        return K * Rt;
    }
    XPnt2d project(const XPnt3d& X) const
    {
        const cv::Vec4d h(X.x, X.y, X.z, 1);
        const cv::Vec3d p = P() * h;
        return XPnt2d(p[0] / p[2], p[1] / p[2]);
    }
    // The 11 parameters of the DLT form with its minus sign.
    void dlt(double* L) const
    {
        const cv::Matx34d p = P();
        const double d = p(2, 3);
        for (int j = 0; j < 4; ++j) {
            L[j] = -p(0, j) / d;
            L[4 + j] = -p(1, j) / d;
        }
        for (int j = 0; j < 3; ++j)
            L[8 + j] = p(2, j) / d;
    }
};

// A camera at centre looking at target (picture y down, z forward).
Cam lookingAt(const cv::Vec3d& centre, const cv::Vec3d& target, double f, double aspect)
{
    Cam c;
    c.fx = f;
    c.fy = f * aspect;
    c.cx = 0.52;
    c.cy = 0.47;
    const cv::Vec3d z = cv::normalize(target - centre);
    const cv::Vec3d x = cv::normalize(z.cross(cv::Vec3d(0, 0, 1)));
    const cv::Vec3d y = z.cross(x);
    for (int j = 0; j < 3; ++j) {
        c.R(0, j) = x[j];
        c.R(1, j) = y[j];
        c.R(2, j) = z[j];
    }
    c.C = centre;
    return c;
}

// Points in a box around target that the camera sees inside the picture.
void scatter(const Cam& cam, const cv::Vec3d& target, double size, int n, std::mt19937& rng, std::vector<XPnt3d>& world,
             std::vector<XPnt2d>& image)
{
    std::uniform_real_distribution<double> d(-size, size);
    while (int(world.size()) < n) {
        const XPnt3d X(target[0] + d(rng), target[1] + d(rng), target[2] + d(rng));
        const XPnt2d u = cam.project(X);
        if (u.x > 0.02 && u.x < 0.98 && u.y > 0.02 && u.y < 0.98) {
            world.push_back(X);
            image.push_back(u);
        }
    }
}

double relDiff(double a, double b)
{
    return std::abs(a - b) / std::max(1.0, std::max(std::abs(a), std::abs(b)));
}

} // namespace

TEST(Dlt, NoiseFreeFitRecoversTheParametersAndTheCamera)
{
    std::mt19937 rng(11);
    for (const cv::Vec3d& offset : {cv::Vec3d(0, 0, 0), cv::Vec3d(3.5e5, 5.2e6, 120)}) {
        for (int k = 0; k < 6; ++k) {
            const cv::Vec3d target = offset + cv::Vec3d(k, -k, 2);
            const double a = 0.7 * k;
            const cv::Vec3d centre = target + cv::Vec3d(30 * std::cos(a), 30 * std::sin(a), 5 + k);
            const Cam cam = lookingAt(centre, target, 1.1 + 0.1 * k, 4.0 / 3.0);
            std::vector<XPnt3d> world;
            std::vector<XPnt2d> image;
            scatter(cam, target, 6, 40, rng, world, image);
            double L[11], truth[11];
            cam.dlt(truth);
            ASSERT_EQ(DLTSimple(world, image, L), kvoDltOk);
            for (int i = 0; i < 11; ++i)
                EXPECT_LT(relDiff(L[i], truth[i]), offset[0] == 0 ? 1e-9 : 1e-6)
                    << "L" << i << " camera " << k << " offset " << offset[0];
            for (size_t i = 0; i < world.size(); ++i) {
                const XPnt2d p = camWorldPntToImgPos(L, world[i].x, world[i].y, world[i].z);
                EXPECT_NEAR(p.x, image[i].x, 1e-9);
                EXPECT_NEAR(p.y, image[i].y, 1e-9);
            }

            // Camera values against OpenCV's decomposition of the same matrix.
            double values[10];
            calCameraPramsBy11DLTPrams(L, 11, values, 10);
            cv::Mat K, R, T;
            cv::decomposeProjectionMatrix(cv::Mat(cam.P()), K, R, T);
            K /= K.at<double>(2, 2);
            EXPECT_NEAR(values[0], K.at<double>(0, 2), 1e-7);
            EXPECT_NEAR(values[1], K.at<double>(1, 2), 1e-7);
            EXPECT_NEAR(values[2], std::abs(K.at<double>(0, 0)), 1e-7);
            EXPECT_NEAR(values[3], std::abs(K.at<double>(1, 1)), 1e-7);
            for (int i = 0; i < 3; ++i)
                EXPECT_NEAR(values[7 + i], T.at<double>(i) / T.at<double>(3),
                            1e-6 * std::max(1.0, std::abs(centre[i])));
        }
    }
}

TEST(Dlt, HalfAPixelOfNoiseReprojectsBelowHalfAPixel)
{
    std::mt19937 rng(5);
    std::normal_distribution<double> noise(0, 0.5);
    const int W = 4000, H = 3000;
    for (int k = 0; k < 5; ++k) {
        const cv::Vec3d target(0, 0, 3);
        const Cam cam = lookingAt(target + cv::Vec3d(20 - 8 * k, -25, 6), target, 1.0, 4.0 / 3.0);
        std::vector<XPnt3d> world;
        std::vector<XPnt2d> truth;
        scatter(cam, target, 5, 60, rng, world, truth);
        std::vector<XPnt2d> noisy = truth;
        for (XPnt2d& p : noisy) {
            p.x += noise(rng) / W;
            p.y += noise(rng) / H;
        }
        double L[11];
        ASSERT_EQ(DLTSimple(world, noisy, L), kvoDltOk);
        double sum = 0;
        for (size_t i = 0; i < world.size(); ++i) {
            const XPnt2d p = camWorldPntToImgPos(L, world[i].x, world[i].y, world[i].z);
            sum += std::hypot((p.x - truth[i].x) * W, (p.y - truth[i].y) * H);
        }
        EXPECT_LT(sum / double(world.size()), 0.5);
    }
}

TEST(Dlt, SingularSystemsAreFailuresNotNumbers)
{
    // All points on one plane: the 11 parameters are not determined.
    std::vector<XPnt3d> world;
    std::vector<XPnt2d> image;
    for (int i = 0; i < 20; ++i) {
        world.emplace_back(i % 5, i / 5, 0);
        image.emplace_back(0.1 + 0.03 * (i % 5), 0.2 + 0.05 * (i / 5));
    }
    double L[11];
    std::fill(L, L + 11, 42.0);
    EXPECT_EQ(DLTSimple(world, image, L), kvoDltSingular);
    EXPECT_EQ(L[0], 42.0) << "L is not written";
    std::vector<XPnt3d> none;
    std::vector<XPnt2d> noImage;
    EXPECT_EQ(DLTSimple(none, noImage, L), kvoDltSingular);
    const double flat[11] = {-1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1};
    EXPECT_FALSE(camWorldPntToImgPos(flat, 0, 0, -1).isValid()) << "D = 0";
}

TEST(Dlt, RobustFitKeepsExactlyTheTrueInliersInOrder)
{
    std::mt19937 rng(17);
    const cv::Vec3d target(0, 0, 3);
    const Cam cam = lookingAt(target + cv::Vec3d(12, -24, 7), target, 1.2, 4.0 / 3.0);
    std::vector<XPnt3d> world;
    std::vector<XPnt2d> image;
    scatter(cam, target, 5, 100, rng, world, image);
    const PT2<long> size(4000, 3000);
    // Every fifth point is a gross outlier, 40 to 200 pixels away.
    std::vector<bool> outlier(world.size());
    std::uniform_real_distribution<double> away(40, 200), angle(0, 6.283);
    for (size_t i = 0; i < world.size(); i += 5) {
        const double r = away(rng), a = angle(rng);
        image[i].x += r * std::cos(a) / double(size.x);
        image[i].y += r * std::sin(a) / double(size.y);
        outlier[i] = true;
    }
    ref_ptr<Pnt2dArray> img = newPnt2dArray();
    ref_ptr<Pnt3dArray> wld = newPnt3dArray();
    img->vec() = image;
    wld->vec() = world;
    setDltRandomSeed(1234);
    double L[11];
    const double r = CDltFitter().fitPoints(img, wld, size, L, 3, true);
    EXPECT_GT(r, 0);
    EXPECT_LT(r, 1e-6);
    ASSERT_EQ(img->getCount(), 80);
    size_t k = 0;
    for (size_t i = 0; i < world.size(); ++i)
        if (!outlier[i]) {
            EXPECT_EQ(img->vec()[k], image[i]);
            EXPECT_EQ(wld->vec()[k], world[i]);
            ++k;
        }
    double truth[11];
    cam.dlt(truth);
    for (int i = 0; i < 11; ++i)
        EXPECT_LT(relDiff(L[i], truth[i]), 1e-8);

    // The same seed gives the same fit; DLTRobust leaves the arrays alone.
    ref_ptr<Pnt2dArray> img2 = newPnt2dArray();
    ref_ptr<Pnt3dArray> wld2 = newPnt3dArray();
    img2->vec() = image;
    wld2->vec() = world;
    double L2[11];
    setDltRandomSeed(1234);
    EXPECT_EQ(DLTRobust(wld2, img2, L2, size), r);
    EXPECT_EQ(img2->getCount(), 100);
    clearDltRandomSeed();
}

TEST(Dlt, RobustFitEdgeCases)
{
    std::mt19937 rng(3);
    const cv::Vec3d target(0, 0, 3);
    const Cam cam = lookingAt(target + cv::Vec3d(-10, -24, 5), target, 1.0, 4.0 / 3.0);
    std::vector<XPnt3d> world;
    std::vector<XPnt2d> image;
    scatter(cam, target, 5, 12, rng, world, image);
    const PT2<long> size(4000, 3000);
    double L[11];
    setDltRandomSeed(9);

    // Seven consistent pairs: a near-perfect fit, reported above 0.
    std::vector<XPnt3d> w7(world.begin(), world.begin() + 7);
    std::vector<XPnt2d> i7(image.begin(), image.begin() + 7);
    const double r7 = DLTRobust(w7, i7, L, size);
    EXPECT_GT(r7, 0);
    EXPECT_LT(r7, 1e-6);

    // Six pairs: no robust fit, but the plain fit still computes.
    std::vector<XPnt3d> w6(world.begin(), world.begin() + 6);
    std::vector<XPnt2d> i6(image.begin(), image.begin() + 6);
    EXPECT_EQ(DLTRobust(w6, i6, L, size), -1.0);
    EXPECT_EQ(DLTSimple(w6, i6, L), kvoDltOk);

    // Unequal lengths: the longer array is cut to the inliers as well.
    ref_ptr<Pnt2dArray> img = newPnt2dArray();
    ref_ptr<Pnt3dArray> wld = newPnt3dArray();
    img->vec().assign(image.begin(), image.begin() + 10);
    wld->vec() = world;
    EXPECT_GT(CDltFitter().fitPoints(img, wld, size, L, 3, true), 0);
    EXPECT_EQ(img->getCount(), 10);
    EXPECT_EQ(wld->getCount(), 10);

    // A failed fit still reduces the arrays when asked to.
    ref_ptr<Pnt2dArray> bad = newPnt2dArray();
    ref_ptr<Pnt3dArray> badW = newPnt3dArray();
    for (int i = 0; i < 12; ++i) {
        bad->append(XPnt2d(0.5 + 0.01 * i, 0.5));
        badW->append(XPnt3d(i, 0, 0)); // a line: no camera
    }
    EXPECT_EQ(CDltFitter().fitPoints(bad, badW, size, L, 3, true), -1.0);

    // A point that does not project never agrees, and NaN input fails.
    ref_ptr<Pnt2dArray> nanImg = newPnt2dArray();
    ref_ptr<Pnt3dArray> nanWorld = newPnt3dArray();
    for (int i = 0; i < 10; ++i) {
        nanImg->append(image[size_t(i)]);
        nanWorld->append(XPnt3d(std::nan(""), 0, 0));
    }
    EXPECT_EQ(CDltFitter().fitPoints(nanImg, nanWorld, size, L, 3, false), -1.0);
    clearDltRandomSeed();

    // Exactly on the threshold does not agree.
    DLTParamEstimator est(3.0, 1, 1);
    std::vector<double> identity = {-1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 0};
    CtrlPnt5d on{3.0, 0, 0, 0, 5}, inside{2.999, 0, 0, 0, 5};
    EXPECT_FALSE(est.agree(identity, on));
    EXPECT_TRUE(est.agree(identity, inside));
    std::vector<double> shortParams(10, 0.0);
    EXPECT_FALSE(est.agree(shortParams, inside));
}

TEST(Dlt, FitImageEditsTheRecordAndAnswersTheStore)
{
    qvtest::ScratchDir dir;
    ASSERT_EQ(getMM()->newProject(dir.file("p.qvj")), kvoOk);
    ASSERT_TRUE(qvtest::writeTestPicture(dir.file("a.png"), 400, 300));
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    getMM()->getProject(project)->getImageDb(db);
    long id = -1;
    ASSERT_EQ(db->addImage(dir.file("a.png"), id), kvoOk);
    ref_ptr<IKvoImageInfo> info;
    db->getImageInfo(info, id);

    std::mt19937 rng(8);
    const cv::Vec3d target(0, 0, 3);
    const Cam cam = lookingAt(target + cv::Vec3d(5, -20, 4), target, 1.1, 4.0 / 3.0);
    std::vector<XPnt3d> world;
    std::vector<XPnt2d> image;
    scatter(cam, target, 4, 15, rng, world, image);
    image[3].x += 0.2; // one gross outlier
    for (size_t i = 0; i < world.size(); ++i) {
        info->addCtrlImagePnt(image[i]);
        info->addCtrlWorldPnt(world[i]);
    }
    double L[11];
    EXPECT_TRUE(getMM()->getDltParam(id, L)) << "the store forms L from the control points";
    EXPECT_EQ(info->getCtrlImagePntCount(), 15) << "asking the store changes nothing";
    setDltRandomSeed(2);
    EXPECT_GT(CDltFitter().fitImage(id, L, 3, true), 0);
    clearDltRandomSeed();
    EXPECT_EQ(info->getCtrlImagePntCount(), 14);
    EXPECT_EQ(info->getCtrlWorldPntCount(), 14);
    XPnt2d p;
    info->getCtrlImagePnt(p, 3);
    EXPECT_EQ(p, image[4]) << "the outlier is gone, the rest in order";
    EXPECT_EQ(CDltFitter().fitImage(id + 100, L, 3, true), -1.0);
    getMM()->closeProject();
}

TEST(Matrix, SharesUntilWrittenAndInvertsLikeOpenCV)
{
    matrix<double> a(3, 3);
    EXPECT_EQ(a.shareCount(), 1);
    a.set(0, 0, 1);
    matrix<double> b = a;
    EXPECT_EQ(a.data, b.data);
    EXPECT_EQ(a.shareCount(), 2);
    b.set(0, 0, 5);
    EXPECT_NE(a.data, b.data);
    EXPECT_EQ(a.get(0, 0), 1);
    EXPECT_EQ(b.get(0, 0), 5);
    EXPECT_EQ(a.shareCount(), 1);
    b.set(7, 0, 9); // outside: ignored
    EXPECT_EQ(b.get(7, 0), 0);
    matrix<float> tiny(0, -3);
    EXPECT_EQ(tiny.rows, 1);
    EXPECT_EQ(tiny.cols, 1);

    auto message = [](auto fn) {
        try {
            fn();
        } catch (const char* m) {
            return std::string(m);
        }
        return std::string();
    };
    matrix<double> m23(2, 3), m22(2, 2);
    EXPECT_EQ(message([&] { (void)(m23 * m22); }), "Matrices do not have common size");
    EXPECT_EQ(message([&] { (void)m23.inverse(); }), "matrix<T> must be square.");
    EXPECT_EQ(message([&] { (void)m23.subMatrix(1, 1, 2, 2); }), "Sub matrix<T> is not contained in source");
    EXPECT_EQ(m23.transpose().rows, 3);

    std::mt19937 rng(4);
    std::uniform_real_distribution<double> d(-10, 10);
    for (int n : {1, 2, 5, 11}) {
        matrix<double> m(n, n);
        cv::Mat ref(n, n, CV_64F);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) {
                const double v = d(rng);
                m.set(i, j, v);
                ref.at<double>(i, j) = v;
            }
        bool ok = false;
        const matrix<double> inv = m.inverse(&ok);
        ASSERT_TRUE(ok);
        cv::Mat refInv;
        cv::invert(ref, refInv, cv::DECOMP_LU);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                EXPECT_NEAR(inv(i, j), refInv.at<double>(i, j), 1e-10 * (1 + std::abs(refInv.at<double>(i, j))));
        const matrix<double> id = m * inv;
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                EXPECT_NEAR(id(i, j), i == j ? 1.0 : 0.0, 1e-10);
    }
    matrix<double> singular(3, 3);
    singular.set(0, 0, 1);
    singular.set(1, 1, 1);
    EXPECT_FALSE(singular.invert());
}

TEST(Affine, LeastSquaresAndExactTransforms)
{
    // x' = 2x - y + 3, y' = 0.5x + 4y - 1
    ref_ptr<Pnt2dArray> from = newPnt2dArray(), to = newPnt2dArray();
    for (int i = 0; i < 6; ++i) {
        const double x = i * 1.5 - 2, y = (i * i) % 5;
        from->append(XPnt2d(x, y));
        to->append(XPnt2d(2 * x - y + 3, 0.5 * x + 4 * y - 1));
    }
    matrix<double> m;
    ASSERT_TRUE(calcAffineMatrix(from, to, m));
    EXPECT_EQ(m.rows, 2);
    EXPECT_EQ(m.cols, 3);
    const double expect[6] = {2, -1, 3, 0.5, 4, -1};
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(m(i / 3, i % 3), expect[i], 1e-10);
    const XPnt3d p = calcAffinePnt(m, XPnt3d(1, 2, 7));
    EXPECT_NEAR(p.x, 3, 1e-10);
    EXPECT_NEAR(p.y, 7.5, 1e-10);
    EXPECT_EQ(p.z, 7);

    // Collinear points: false and m unchanged.
    ref_ptr<Pnt2dArray> line = newPnt2dArray(), lineTo = newPnt2dArray();
    for (int i = 0; i < 5; ++i) {
        line->append(XPnt2d(i, 2 * i));
        lineTo->append(XPnt2d(i, i));
    }
    matrix<double> kept = m;
    EXPECT_FALSE(calcAffineMatrix(line, lineTo, m));
    EXPECT_EQ(m.data, kept.data);
    matrix<double> one(1, 3);
    EXPECT_FALSE(calcAffinePnt(one, XPnt3d(1, 1, 1)).isValid());

    // Exact through three pairs, with its transposed layout.
    ref_ptr<Pnt2fArray> f3 = newPnt2fArray(), t3 = newPnt2fArray();
    f3->vec() = {{0, 0}, {10, 0}, {0, 5}};
    t3->vec() = {{1, 2}, {21, 4}, {-4, 17}};
    matrix<float> mf;
    ASSERT_TRUE(getAffineTransformationMatrix(f3, t3, mf));
    EXPECT_EQ(mf.rows, 3);
    EXPECT_EQ(mf.cols, 2);
    for (int i = 0; i < 3; ++i) {
        float x = 0, y = 0;
        EXPECT_TRUE(calcAffineTransformationCoord(mf, f3->vec()[size_t(i)].x, f3->vec()[size_t(i)].y, x, y));
        EXPECT_NEAR(x, t3->vec()[size_t(i)].x, 1e-4);
        EXPECT_NEAR(y, t3->vec()[size_t(i)].y, 1e-4);
    }
    f3->vec() = {{0, 0}, {1, 1}, {2, 2}};
    EXPECT_FALSE(getAffineTransformationMatrix(f3, t3, mf));
}

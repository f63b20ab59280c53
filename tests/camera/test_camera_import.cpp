// Camera import against the generated sample, whose true cameras are known
// from its scene description: every photograph's record must put the model's
// points where the true camera does; cameras a virtual camera cannot hold go
// through their DLT parameters; distorted photographs become the pinhole
// pictures of their cameras; bad input is listed and changes nothing.

#include <QDialog>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPushButton>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <functional>
#include <random>

#include "SampleCameraFiles.h"
#include "SampleProject.h"
#include "camera/KvoCameraImport.h"
#include "camera/KvoVirtualCamera.h"
#include "camera/QDlgImportCameras.h"
#include "mapping/KvoDlt.h"
#include "mapping/KvoMapping.h"
#include "scene/KvoGeometry.h"
#include "support/ViewerSupport.h"

using namespace kvo;
using namespace qvsample;

namespace {

const QString kSample = QUOVARA_SOURCE_DIR "/samples/building";

QString num(double v)
{
    return QString::number(v, 'g', 17);
}

bool writeText(const QString& path, const QString& text)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return f.write(text.toUtf8()) == text.toUtf8().size();
}

// An images.txt line of a camera, quaternion w first.
QString imageLine(int imageId, const SampleCamera& c, int cameraId, const QString& name)
{
    double q[4];
    rotationToQuaternion(c.R, q);
    return QString("%1 %2 %3 %4 %5 %6 %7 %8 %9 %10\n")
        .arg(imageId)
        .arg(num(q[0]), num(q[1]), num(q[2]), num(q[3]), num(c.t[0]), num(c.t[1]), num(c.t[2]))
        .arg(cameraId)
        .arg(name);
}

QString pinholeLine(int cameraId, const SampleCamera& c)
{
    return QString("%1 PINHOLE %2 %3 %4 %5 %6 %7\n")
        .arg(cameraId)
        .arg(c.width)
        .arg(c.height)
        .arg(num(c.fx), num(c.fy), num(c.cx), num(c.cy));
}

// Where a point lands through an image's stored records: its DLT parameters
// when it has them, else its virtual camera; false when it does not land.
using Projection = std::function<bool(const XPnt3d&, XPnt2d&)>;

Projection recordProjection(long imageId, long w, long h, bool dlt)
{
    if (dlt) {
        QByteArray blob;
        double L[11];
        if (!getMM()->getProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(imageId), blob) ||
            blob.size() != int(sizeof L) || !getMM()->getDltParam(imageId, L))
            return nullptr;
        std::vector<double> Lv(L, L + 11);
        return [Lv, w, h](const XPnt3d& X, XPnt2d& px) {
            const XPnt2d uv = camWorldPntToImgPos(Lv.data(), X.x, X.y, X.z);
            px = XPnt2d(uv.x * w, (1 - uv.y) * h);
            return uv.isValid();
        };
    }
    ZebQVVCParam vc;
    zebUI::_ZebVCMapParam_ frame;
    if (!getMM()->getVCParam(imageId, vc) || !calVCFrame(imageId, vc, kvoVCFrameModel, frame))
        return nullptr;
    auto projector = std::make_shared<KvoVCProjector>(frame);
    return [projector, w, h](const XPnt3d& X, XPnt2d& px) {
        if (!((projector->view() * X).z < 0))
            return false;
        const XPnt2d uv = projector->uv(X);
        px = XPnt2d(uv.x * w, (1 - uv.y) * h);
        return true;
    };
}

// The largest pixel distance between the true camera and a projection, over
// the model's vertices that the true camera sees inside its picture.
double worstMiss(const SampleCamera& cam, const Projection& through, long* counted = nullptr)
{
    ref_ptr<IKvoModel> model;
    getMM()->getBareModel(model);
    const Pnt3fArray* v = model->getVertices();
    double worst = 0;
    long n = 0;
    for (long i = 0; i < v->getCount(); i += 7) {
        const XPnt3d X(v->getAt(i).x, v->getAt(i).y, v->getAt(i).z);
        XPnt2d want, got;
        if (!cam.project(X, want) || want.x < 0 || want.y < 0 || want.x > cam.width || want.y > cam.height)
            continue;
        if (!through(X, got))
            return HUGE_VAL;
        worst = std::max(worst, std::hypot(want.x - got.x, want.y - got.y));
        ++n;
    }
    if (counted)
        *counted = n;
    return n > 0 ? worst : HUGE_VAL;
}

// COLMAP's lens models on normalised coordinates (OPENCV's k1, k2, p1, p2;
// the radial ones are the same with p1 = p2 = 0).
XPnt2d colmapDistort(const double d[4], double x, double y)
{
    const double r2 = x * x + y * y, radial = d[0] * r2 + d[1] * r2 * r2;
    return XPnt2d(x + x * radial + 2 * d[2] * x * y + d[3] * (r2 + 2 * x * x),
                  y + y * radial + 2 * d[3] * x * y + d[2] * (r2 + 2 * y * y));
}

// What a camera with that lens would have photographed, made from the pinhole
// photograph: each photographed pixel takes the pinhole pixel whose ray the
// lens bends onto it.
cv::Mat distortPhoto(const cv::Mat& pinhole, const SampleCamera& c, const double d[4])
{
    cv::Mat mapX(pinhole.size(), CV_32F), mapY(pinhole.size(), CV_32F);
    for (int j = 0; j < pinhole.rows; ++j)
        for (int i = 0; i < pinhole.cols; ++i) {
            const double xd = (i + 0.5 - c.cx) / c.fx, yd = (j + 0.5 - c.cy) / c.fy;
            double x = xd, y = yd;
            for (int it = 0; it < 50; ++it) {
                const XPnt2d p = colmapDistort(d, x, y);
                x -= p.x - xd;
                y -= p.y - yd;
            }
            mapX.at<float>(j, i) = float(c.fx * x + c.cx - 0.5);
            mapY.at<float>(j, i) = float(c.fy * y + c.cy - 0.5);
        }
    cv::Mat out;
    cv::remap(pinhole, out, mapX, mapY, cv::INTER_CUBIC, cv::BORDER_REPLICATE);
    return out;
}

// How far the content of got sits from where it is in want: the sub-pixel
// shift of each 64-pixel patch inside the picture that has texture, by phase
// correlation. The share of patches within a quarter pixel, and the mean shift.
struct Shift {
    double shareWithinQuarter = 0;
    double meanX = 0, meanY = 0;
};

Shift measureShift(const cv::Mat& got, const cv::Mat& want)
{
    cv::Mat g, w;
    cv::cvtColor(got, g, cv::COLOR_BGR2GRAY);
    cv::cvtColor(want, w, cv::COLOR_BGR2GRAY);
    g.convertTo(g, CV_64F);
    w.convertTo(w, CV_64F);
    cv::Mat window;
    cv::createHanningWindow(window, cv::Size(64, 64), CV_64F);
    Shift out;
    long total = 0, within = 0;
    for (int y = 80; y + 64 + 80 < want.rows; y += 40)
        for (int x = 80; x + 64 + 80 < want.cols; x += 40) {
            const cv::Rect r(x, y, 64, 64);
            cv::Scalar mean, sd;
            cv::meanStdDev(w(r), mean, sd);
            if (sd[0] < 8)
                continue; // a plain patch has no position
            const cv::Point2d d = cv::phaseCorrelate(w(r), g(r), window);
            if (std::hypot(d.x, d.y) > 8)
                continue;
            ++total;
            within += std::hypot(d.x, d.y) < 0.25 ? 1 : 0;
            out.meanX += d.x;
            out.meanY += d.y;
        }
    if (total > 0) {
        out.shareWithinQuarter = double(within) / double(total);
        out.meanX /= double(total);
        out.meanY /= double(total);
    }
    return out;
}

cv::Mat bgrOf(const ref_ptr<IKvoImage>& image)
{
    cv::Mat rgba, bgr;
    image->getMat(rgba);
    cv::cvtColor(rgba, bgr, cv::COLOR_RGBA2BGR);
    return bgr;
}

} // namespace

class CameraImport : public qvtest::ViewerTest {
protected:
    void SetUp() override
    {
        ViewerTest::SetUp();
        SampleOptions options;
        QString error;
        ASSERT_TRUE(readSampleFolder(kSample, options, truth, error)) << error.toStdString();
        ASSERT_EQ(truth.size(), 8u);
    }

    // A project of the sample's model and photographs (made from sampleFolder),
    // saved; without cameras unless keepCameras.
    void makeProject(const QString& sampleFolder = kSample, bool keepCameras = false)
    {
        static int count = 0;
        getMM()->closeProject();
        QString why;
        ASSERT_EQ(buildProjectFromSample(sampleFolder, scratch.file(QString("p%1.qvj").arg(++count)), why), kvoOk)
            << why.toStdString();
        ref_ptr<IKvoProject> project;
        getMM()->getProject(project)->getImageDb(db);
        ref_ptr<LongArray> list;
        ids = db->getImageIds(list)->vec();
        ASSERT_EQ(ids.size(), 8u);
        if (!keepCameras)
            for (long id : ids)
                getMM()->removeVCParam(id);
        ASSERT_EQ(getMM()->saveProject(), kvoOk);
    }

    static QString projectFile()
    {
        ref_ptr<IKvoProject> project;
        return getMM()->getProject(project) ? project->getFilePath() : QString();
    }

    long import(const KvoCameraSource& source)
    {
        const long n = importCameras(source, report, nullptr);
        if (n < 0 || !report.skipped.empty() || !report.skippedLines.isEmpty())
            std::cout << report.summary().toStdString() << std::endl;
        return n;
    }

    const KvoCameraImportReport::Imported* imported(long id) const
    {
        for (const auto& i : report.imported)
            if (i.imageId == id)
                return &i;
        return nullptr;
    }

    std::vector<SampleCamera> truth;
    ref_ptr<IKvoImageDb> db;
    std::vector<long> ids;
    KvoCameraImportReport report;
};

TEST_F(CameraImport, EachFormatGivesEveryPhotographItsTrueCamera)
{
    const struct {
        const char* name;
        KvoCameraSource source;
    } formats[] = {
        {"colmap", KvoCameraSource::colmap(kSample + "/cameras/colmap")},
        {"bundler",
         KvoCameraSource::bundler(kSample + "/cameras/bundler/bundle.out", kSample + "/cameras/bundler/list.txt")},
        {"matrices", KvoCameraSource::matrices(kSample + "/cameras/matrices")},
    };
    for (const auto& format : formats) {
        SCOPED_TRACE(format.name);
        makeProject();
        ASSERT_EQ(import(format.source), 8);
        EXPECT_TRUE(report.skipped.empty());
        EXPECT_TRUE(report.skippedLines.isEmpty());
        EXPECT_EQ(report.camerasRead, 8);
        EXPECT_TRUE(getMM()->isDirty());
        for (size_t i = 0; i < ids.size(); ++i) {
            SCOPED_TRACE(truth[i].name);
            const auto* done = imported(ids[i]);
            ASSERT_NE(done, nullptr);
            EXPECT_FALSE(done->throughDlt) << "the sample's cameras are centred square-pixel pinholes";
            EXPECT_FALSE(done->undistorted);
            EXPECT_FALSE(done->seesNoModel);
            EXPECT_LT(done->recordError, 0.01);
            long seen = 0;
            const double miss = worstMiss(truth[i], recordProjection(ids[i], 1024, 768, false), &seen);
            EXPECT_GT(seen, 100);
            EXPECT_LT(miss, 0.5);
            EXPECT_LT(miss, 0.01) << "a virtual camera holds a centred square-pixel pinhole exactly";
            ZebQVVCParam vc;
            ASSERT_TRUE(getMM()->getVCParam(ids[i], vc));
            EXPECT_NEAR(vc.fovY, truth[i].fovYDegrees(), 1e-6);
            EXPECT_LT(length(vc.eye - truth[i].center()), 1e-6);
            EXPECT_LT(getMM()->getProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(ids[i]), nullptr, 0), 0);
        }
        // The cameras are part of the project once saved.
        ASSERT_EQ(getMM()->saveProject(), kvoOk);
        const QString file = projectFile();
        getMM()->closeProject();
        ASSERT_EQ(getMM()->openProject(file), kvoOk);
        EXPECT_LT(worstMiss(truth[3], recordProjection(ids[3], 1024, 768, false)), 0.01);
    }
}

TEST_F(CameraImport, CamerasThatAreNotCentredSquarePinholesGoThroughTheirDltAndProjectExactly)
{
    makeProject();
    std::vector<SampleCamera> cams = truth;
    cams[0].cx += 41.5; // principal point off the centre
    cams[0].cy -= 23.25;
    cams[1].fy *= 1.04; // pixels that are not square
    const QString colmap = scratch.file("odd/colmap");
    QDir().mkpath(colmap);
    std::string error;
    ASSERT_TRUE(writeColmapText(colmap.toStdString(), cams, &error)) << error;
    ASSERT_EQ(import(KvoCameraSource::colmap(colmap)), 8);
    for (size_t i = 0; i < 8; ++i) {
        SCOPED_TRACE(cams[i].name);
        const bool odd = i < 2;
        ASSERT_NE(imported(ids[i]), nullptr);
        EXPECT_EQ(imported(ids[i])->throughDlt, odd);
        Projection through = recordProjection(ids[i], 1024, 768, odd);
        ASSERT_TRUE(through) << "DLT parameters stored under <id>_DLTParam, where getDltParam finds them";
        EXPECT_LT(worstMiss(cams[i], through), 0.5);
        EXPECT_LT(worstMiss(cams[i], through), 1e-3);
        if (odd) {
            // The virtual camera is only the nearest likeness: same eye and
            // line of sight, but it misses the off-centre or stretched points.
            ZebQVVCParam vc;
            ASSERT_TRUE(getMM()->getVCParam(ids[i], vc));
            EXPECT_LT(length(vc.eye - cams[i].center()), 1e-6);
            EXPECT_GT(worstMiss(cams[i], recordProjection(ids[i], 1024, 768, false)), 1.0);
        }
    }

    // Mapping through the stored parameters puts every vertex on its pixel.
    double L[11];
    ASSERT_TRUE(getMM()->getDltParam(ids[0], L));
    getMM()->setActiveImageId(ids[0]);
    bool reserved = false;
    ASSERT_EQ(DLTMapping(L, false, true, false, reserved, nullptr), 0);
    ref_ptr<IKvoMesh> tex;
    ASSERT_TRUE(getMM()->getTexMeshOfImage(tex, ids[0]) && tex);
    ASSERT_GT(tex->getFaceCount(), 100);
    const Pnt2fArray* uv = tex->getUVs();
    const UIntArray* tris = tex->getTriangleIndices();
    ref_ptr<IKvoModel> model;
    getMM()->getBareModel(model);
    double worst = 0;
    for (long k = 0; k < tris->getCount(); k += 5) {
        const unsigned vi = tris->getAt(k);
        const XPnt3f& v = model->getVertices()->getAt(vi);
        XPnt2d px;
        ASSERT_TRUE(cams[0].project(XPnt3d(v.x, v.y, v.z), px));
        worst = std::max(worst, std::hypot(uv->getAt(vi).x * 1024 - px.x, (1 - uv->getAt(vi).y) * 768 - px.y));
    }
    EXPECT_LT(worst, 0.01) << "float UVs, so a hundredth of a pixel";

    // A skewed camera only a matrix can give.
    double P[12];
    SampleCamera skewed = truth[2];
    skewed.projectionMatrix(P);
    for (int c = 0; c < 4; ++c)
        P[c] += 0.02 * P[4 + c]; // K's skew: x takes a little of y
    const QString matrices = scratch.file("odd/matrices");
    QString text;
    for (int r = 0; r < 3; ++r)
        text += QString("%1 %2 %3 %4\n")
                    .arg(num(-2 * P[4 * r]), num(-2 * P[4 * r + 1]), num(-2 * P[4 * r + 2]),
                         num(-2 * P[4 * r + 3])); // any scale, either sign
    ASSERT_TRUE(writeText(matrices + "/photo_03.P.txt", text));
    ASSERT_EQ(import(KvoCameraSource::matrices(matrices)), 1);
    ASSERT_NE(imported(ids[2]), nullptr);
    EXPECT_TRUE(imported(ids[2])->throughDlt);
    Projection through = recordProjection(ids[2], 1024, 768, true);
    ASSERT_TRUE(through);
    double worstSkew = 0;
    ref_ptr<IKvoModel> m;
    getMM()->getBareModel(m);
    for (long i = 0; i < m->getVertexCount(); i += 11) {
        const XPnt3f& v = m->getVertices()->getAt(i);
        const XPnt3d X(v.x, v.y, v.z);
        XPnt2d want, got;
        if (!projectPixel(P, X, want) || want.x < 0 || want.y < 0 || want.x > 1024 || want.y > 768)
            continue;
        ASSERT_TRUE(through(X, got));
        worstSkew = std::max(worstSkew, std::hypot(want.x - got.x, want.y - got.y));
    }
    EXPECT_LT(worstSkew, 1e-3);
    // The others are named in the report and keep what they had.
    EXPECT_EQ(report.count(KvoCameraIssue::NoCamera), 7);
    EXPECT_TRUE(recordProjection(ids[0], 1024, 768, true)) << "image 1 keeps its DLT parameters";

    // A centred camera imported later takes the place of the DLT parameters.
    ASSERT_EQ(import(KvoCameraSource::colmap(kSample + "/cameras/colmap")), 8);
    EXPECT_FALSE(imported(ids[0])->throughDlt);
    EXPECT_LT(getMM()->getProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(ids[0]), nullptr, 0), 0);
    EXPECT_LT(worstMiss(truth[0], recordProjection(ids[0], 1024, 768, false)), 0.01);
}

TEST_F(CameraImport, DistortedPhotographsBecomeThePinholePicturesOfTheirCameras)
{
    // A copy of the sample whose first three photographs were taken through lenses.
    const QString scene = scratch.file("scene");
    for (const QString& sub : {QString(), QString("photos"), QString("control_points")}) {
        QDir().mkpath(scene + "/" + sub);
        for (const QFileInfo& fi : QDir(kSample + "/" + sub).entryInfoList(QDir::Files))
            ASSERT_TRUE(QFile::copy(fi.absoluteFilePath(), scene + "/" + sub + "/" + fi.fileName()));
    }
    const double lenses[3][4] = {
        {0.09, -0.03, 0.01, -0.008}, // OPENCV
        {-0.12, 0, 0, 0},            // SIMPLE_RADIAL
        {0.06, 0.02, 0, 0},          // RADIAL
    };
    std::vector<cv::Mat> pinhole;
    for (int i = 0; i < 3; ++i) {
        const QString photo = scene + "/photos/" + QString::fromStdString(truth[size_t(i)].name);
        pinhole.push_back(cv::imread(photo.toStdString()));
        ASSERT_FALSE(pinhole.back().empty());
        ASSERT_TRUE(cv::imwrite(photo.toStdString(), distortPhoto(pinhole.back(), truth[size_t(i)], lenses[i]),
                                {cv::IMWRITE_JPEG_QUALITY, 100}));
    }
    makeProject(scene);
    const SampleCamera* t = truth.data();
    QString cameras = QString("1 OPENCV 1024 768 %1 %2 %3 %4 %5 %6 %7 %8\n")
                          .arg(num(t[0].fx), num(t[0].fy), num(t[0].cx), num(t[0].cy))
                          .arg(num(lenses[0][0]), num(lenses[0][1]), num(lenses[0][2]), num(lenses[0][3]));
    cameras += QString("2 SIMPLE_RADIAL 1024 768 %1 %2 %3 %4\n")
                   .arg(num(t[1].fy), num(t[1].cx), num(t[1].cy), num(lenses[1][0]));
    cameras += QString("3 RADIAL 1024 768 %1 %2 %3 %4 %5\n")
                   .arg(num(t[2].fy), num(t[2].cx), num(t[2].cy), num(lenses[2][0]), num(lenses[2][1]));
    QString images;
    for (int i = 0; i < 8; ++i) {
        if (i >= 3)
            cameras += pinholeLine(i + 1, t[i]);
        images += imageLine(i + 1, t[i], i + 1, QString::fromStdString(t[i].name)) + "\n";
    }
    const QString colmap = scratch.file("lens");
    ASSERT_TRUE(writeText(colmap + "/cameras.txt", cameras));
    ASSERT_TRUE(writeText(colmap + "/images.txt", images));
    const QStringList filesBefore = QDir(projectFolder() + "/images").entryList(QDir::Files);

    ASSERT_EQ(import(KvoCameraSource::colmap(colmap)), 8);
    EXPECT_EQ(QDir(projectFolder() + "/images").entryList(QDir::Files), filesBefore)
        << "new pictures are written when the project is saved";
    std::vector<cv::Mat> first;
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(t[i].name);
        ASSERT_NE(imported(ids[size_t(i)]), nullptr);
        EXPECT_TRUE(imported(ids[size_t(i)])->undistorted);
        EXPECT_FALSE(imported(ids[size_t(i)])->throughDlt);
        EXPECT_LT(worstMiss(t[i], recordProjection(ids[size_t(i)], 1024, 768, false)), 0.5);
        ref_ptr<IKvoImage> level2, level1;
        ASSERT_TRUE(db->getTexture(level2, ids[size_t(i)], 2));
        ASSERT_TRUE(db->getTexture(level1, ids[size_t(i)], 1));
        EXPECT_TRUE(level1->equals(*level2));
        const cv::Mat got = bgrOf(level2);
        first.push_back(got.clone());
        // The photograph's content is back where the pinhole camera puts it.
        const Shift back = measureShift(got, pinhole[size_t(i)]);
        EXPECT_GT(back.shareWithinQuarter, 0.95);
        EXPECT_LT(std::abs(back.meanX), 0.05);
        EXPECT_LT(std::abs(back.meanY), 0.05);
        const cv::Mat distorted =
            cv::imread(QString(scene + "/photos/" + QString::fromStdString(t[i].name)).toStdString());
        EXPECT_LT(measureShift(distorted, pinhole[size_t(i)]).shareWithinQuarter, 0.7) << "the lens moves content";
        KvoColor4b corner;
        ASSERT_TRUE(level2->getPixel(corner, 0, 0));
        if (lenses[i][0] > 0)
            EXPECT_EQ(corner.a, 0) << "no photographed pixel there: transparent";
        else
            EXPECT_EQ(corner.a, 255);
    }
    for (int i = 3; i < 8; ++i)
        EXPECT_FALSE(imported(ids[size_t(i)])->undistorted);

    // Saved: the new pictures are lossless files of the project; the
    // photographs as they were taken stay beside them.
    ASSERT_EQ(getMM()->saveProject(), kvoOk);
    const QString file = projectFile();
    getMM()->closeProject();
    ASSERT_EQ(getMM()->openProject(file), kvoOk);
    ref_ptr<IKvoProject> project;
    getMM()->getProject(project)->getImageDb(db);
    for (int i = 0; i < 3; ++i) {
        ref_ptr<IKvoImageInfo> info;
        ASSERT_TRUE(db->getImageInfo(info, ids[size_t(i)]));
        EXPECT_TRUE(info->getFilePath(kvoPathImage).endsWith(".png"));
        EXPECT_TRUE(info->getFilePath(kvoPathImage).startsWith(projectFolder() + "/images/"));
        QString before;
        ASSERT_TRUE(info->getFilePath(before, kvoPathBeforeUndistortion));
        EXPECT_TRUE(QFileInfo(before).isFile());
        ref_ptr<IKvoImage> level2;
        ASSERT_TRUE(db->getTexture(level2, ids[size_t(i)], 2));
        EXPECT_EQ(cv::norm(bgrOf(level2), first[size_t(i)], cv::NORM_INF), 0);
    }

    // Importing again starts from the photographs as taken, not from the
    // undistorted pictures.
    ASSERT_EQ(import(KvoCameraSource::colmap(colmap)), 8);
    for (int i = 0; i < 3; ++i) {
        ref_ptr<IKvoImage> level2;
        ASSERT_TRUE(db->getTexture(level2, ids[size_t(i)], 2));
        EXPECT_EQ(cv::norm(bgrOf(level2), first[size_t(i)], cv::NORM_INF), 0);
    }
    // Cameras without distortion give the photographs back as taken.
    ASSERT_EQ(import(KvoCameraSource::colmap(kSample + "/cameras/colmap")), 8);
    for (int i = 0; i < 3; ++i) {
        ref_ptr<IKvoImageInfo> info;
        ASSERT_TRUE(db->getImageInfo(info, ids[size_t(i)]));
        QString before;
        EXPECT_FALSE(info->getFilePath(before, kvoPathBeforeUndistortion));
        ref_ptr<IKvoImage> level2;
        ASSERT_TRUE(db->getTexture(level2, ids[size_t(i)], 2));
        ref_ptr<IKvoImage> taken = newKvoImage();
        ASSERT_TRUE(taken->loadFile(scene + "/photos/" + QString::fromStdString(t[i].name)));
        EXPECT_TRUE(level2->equals(*taken)) << "the copy as added, pixel for pixel";
    }
}

TEST_F(CameraImport, BadInputIsListedAndSkippedAndTheRestOfTheProjectStaysAsItWas)
{
    makeProject(kSample, true);
    std::map<long, ZebQVVCParam> before;
    for (long id : ids)
        ASSERT_TRUE(getMM()->getVCParam(id, before[id]));
    const double L[11] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    ASSERT_EQ(getMM()->setProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(ids[3]), L, sizeof L), 0);
    ASSERT_EQ(getMM()->saveProject(), kvoOk);
    const QStringList filesBefore = QDir(projectFolder() + "/images").entryList(QDir::Files);
    auto unchanged = [&](long id) {
        ZebQVVCParam now;
        return getMM()->getVCParam(id, now) && now == before[id];
    };

    // Files that cannot be read: nothing changes at all.
    EXPECT_EQ(importCameras(KvoCameraSource::colmap(scratch.file("nowhere")), report, nullptr), kvoCamImportBadFiles);
    EXPECT_TRUE(report.error.contains("does not exist")) << report.error.toStdString();
    EXPECT_FALSE(getMM()->isDirty());
    const QString binary = scratch.file("binary");
    ASSERT_TRUE(writeText(binary + "/cameras.bin", "x") && writeText(binary + "/images.bin", "x"));
    EXPECT_EQ(importCameras(KvoCameraSource::colmap(binary), report, nullptr), kvoCamImportBadFiles);
    EXPECT_TRUE(report.error.contains("binary")) << report.error.toStdString();
    const QString shortBundle = scratch.file("short.out");
    ASSERT_TRUE(writeText(shortBundle, "# Bundle file v0.3\n2 0\n800 0 0\n1 0 0\n0 1 0\n0 0 1\n0 0 -5\n"));
    ASSERT_TRUE(writeText(scratch.file("short.txt"), "photo_01.jpg\nphoto_02.jpg\n"));
    EXPECT_EQ(importCameras(KvoCameraSource::bundler(shortBundle, scratch.file("short.txt")), report, nullptr),
              kvoCamImportBadFiles);
    EXPECT_TRUE(report.error.contains("ends before")) << report.error.toStdString();
    EXPECT_FALSE(getMM()->isDirty());

    // A COLMAP model with a bit of everything.
    const SampleCamera* t = truth.data();
    QString cameras = "# cameras\n";
    cameras += QString("1 FOV 1024 768 %1 %2 %3 %4 0.1\n").arg(num(t[0].fx), num(t[0].fy), num(t[0].cx), num(t[0].cy));
    cameras += "2 PINHOLE 2048 1536 1600 1600 1024 768\n";
    cameras += "3 PINHOLE 1024 768 800 800 512\n";
    cameras += "this is not a camera line\n";
    cameras += pinholeLine(6, t[5]);
    cameras += QString("7 SIMPLE_PINHOLE 1024 768 %1 %2 %3\n").arg(num(t[6].fy), num(t[6].cx), num(t[6].cy));
    cameras += pinholeLine(8, t[7]);
    QString images = "# images\n";
    images += imageLine(1, t[0], 1, "photo_01.jpg") + "\n";
    images += imageLine(2, t[1], 2, "photo_02.jpg") + "\n";
    images += imageLine(4, t[3], 3, "photo_04.jpg") + "\n";
    images += imageLine(5, t[4], 6, "photo_05.jpg") + "\n";
    images += imageLine(15, t[4], 6, "PHOTO_05.jpg") + "\n";
    images += imageLine(20, t[5], 6, "missing.jpg") + "\n";
    images += imageLine(21, t[5], 99, "ghost.jpg") + "\n";
    images += imageLine(6, t[5], 6, "photo_06.jpg") + "1.5 2.5 -1 3.5 4.5 17\n";
    images += imageLine(7, t[6], 7, "photo_07.jpg") + "\n";
    // A writer that leaves out the empty line of 2-D points, and a name with folders.
    images += imageLine(8, t[7], 8, "sub/dir/photo_08.jpg");
    const QString colmap = scratch.file("bad");
    ASSERT_TRUE(writeText(colmap + "/cameras.txt", cameras) && writeText(colmap + "/images.txt", images));

    ASSERT_EQ(import(KvoCameraSource::colmap(colmap)), 3);
    EXPECT_EQ(report.camerasRead, 10);
    EXPECT_EQ(report.count(KvoCameraIssue::UnknownModel), 1);
    EXPECT_EQ(report.count(KvoCameraIssue::SizeMismatch), 1);
    EXPECT_EQ(report.count(KvoCameraIssue::BadCamera), 2);
    EXPECT_EQ(report.count(KvoCameraIssue::Ambiguous), 2);
    EXPECT_EQ(report.count(KvoCameraIssue::NoPhoto), 1);
    EXPECT_EQ(report.count(KvoCameraIssue::NoCamera), 1);
    EXPECT_EQ(report.skippedLines.size(), 1);
    for (const auto& s : report.skipped) {
        SCOPED_TRACE(s.reason.toStdString());
        switch (s.issue) {
        case KvoCameraIssue::UnknownModel:
            EXPECT_EQ(s.imageId, ids[0]);
            EXPECT_TRUE(s.reason.contains("FOV") && s.reason.contains("OPENCV"));
            break;
        case KvoCameraIssue::SizeMismatch:
            EXPECT_EQ(s.imageId, ids[1]);
            EXPECT_TRUE(s.reason.contains("2048 x 1536") && s.reason.contains("1024 x 768"));
            break;
        case KvoCameraIssue::NoCamera: EXPECT_EQ(s.imageId, ids[2]); break;
        case KvoCameraIssue::Ambiguous: EXPECT_EQ(s.imageId, ids[4]); break;
        case KvoCameraIssue::NoPhoto: EXPECT_EQ(s.photo, "missing.jpg"); break;
        case KvoCameraIssue::BadCamera:
            EXPECT_TRUE(s.photo == "photo_04.jpg" || s.photo == "ghost.jpg") << s.photo.toStdString();
            EXPECT_TRUE(s.reason.contains("takes 4 numbers") || s.reason.contains("camera 99")) << "";
            break;
        default: ADD_FAILURE();
        }
    }
    const QString summary = report.summary();
    for (const char* word : {"photo_01.jpg", "photo_02.jpg", "photo_03.jpg", "photo_04.jpg", "photo_05.jpg",
                             "missing.jpg", "ghost.jpg", "not a camera line", "Photographs given their cameras (3):"})
        EXPECT_TRUE(summary.contains(word)) << word << "\n" << summary.toStdString();
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(unchanged(ids[size_t(i)])) << t[i].name;
    double kept[11];
    EXPECT_EQ(getMM()->getProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(ids[3]), kept, sizeof kept),
              long(sizeof kept));
    EXPECT_EQ(kept[10], 11.0) << "a skipped photograph keeps its DLT parameters too";
    for (int i = 5; i < 8; ++i)
        EXPECT_LT(worstMiss(t[i], recordProjection(ids[size_t(i)], 1024, 768, false)), 0.5) << t[i].name;
    EXPECT_EQ(QDir(projectFolder() + "/images").entryList(QDir::Files), filesBefore);

    // Nothing usable at all: the project is not even marked changed.
    ASSERT_EQ(getMM()->saveProject(), kvoOk);
    for (long id : ids)
        getMM()->getVCParam(id, before[id]);
    const QString allBad = scratch.file("allbad");
    ASSERT_TRUE(writeText(allBad + "/cameras.txt", "1 OPENCV_FISHEYE 1024 768 800 800 512 384 0 0 0 0\n"));
    ASSERT_TRUE(writeText(allBad + "/images.txt", imageLine(1, t[0], 1, "photo_01.jpg")));
    EXPECT_EQ(import(KvoCameraSource::colmap(allBad)), 0);
    EXPECT_FALSE(getMM()->isDirty());
    EXPECT_EQ(report.count(KvoCameraIssue::UnknownModel), 1);
    EXPECT_EQ(report.count(KvoCameraIssue::NoCamera), 7);

    // Bundler: a camera that was not reconstructed, and one the list does not name.
    QString bundle = "# Bundle file v0.3\n3 0\n";
    for (int i : {0, 1, 2}) {
        const double f = i == 1 ? 0 : 0.5 * (t[i].fx + t[i].fy);
        bundle += QString("%1 0 0\n").arg(num(f));
        const double flip[3] = {1, -1, -1};
        for (int r = 0; r < 3; ++r)
            bundle += QString("%1 %2 %3\n")
                          .arg(num(i == 1 ? 0 : flip[r] * t[i].R[3 * r]), num(i == 1 ? 0 : flip[r] * t[i].R[3 * r + 1]),
                               num(i == 1 ? 0 : flip[r] * t[i].R[3 * r + 2]));
        bundle += QString("%1 %2 %3\n").arg(num(t[i].t[0]), num(-t[i].t[1]), num(-t[i].t[2]));
    }
    ASSERT_TRUE(writeText(scratch.file("b/bundle.out"), bundle));
    ASSERT_TRUE(writeText(scratch.file("b/list.txt"), "images/photo_01.jpg 0 800\r\n\r\nimages/photo_02.jpg\r\n"));
    ASSERT_EQ(import(KvoCameraSource::bundler(scratch.file("b/bundle.out"), scratch.file("b/list.txt"))), 1);
    EXPECT_LT(worstMiss(t[0], recordProjection(ids[0], 1024, 768, false)), 0.5);
    EXPECT_EQ(report.count(KvoCameraIssue::NoPhoto), 1);
    EXPECT_EQ(report.count(KvoCameraIssue::NoCamera), 7) << "photo_02 (not reconstructed) and the six unnamed";
    EXPECT_TRUE(unchanged(ids[1]));

    // Matrices: too few numbers, a singular matrix, a photograph not in the project.
    double P[12];
    t[4].projectionMatrix(P);
    QString good;
    for (int k = 0; k < 12; ++k)
        good += num(P[k]) + (k % 4 == 3 ? "\n" : " ");
    ASSERT_TRUE(writeText(scratch.file("m/photo_01.P.txt"), "1 2 3 4\n5 6 7 8\n9 10 11\n"));
    ASSERT_TRUE(writeText(scratch.file("m/photo_02.txt"), "1 2 3 4\n2 4 6 8\n0 0 0 1\n"));
    ASSERT_TRUE(writeText(scratch.file("m/stranger.P.txt"), good));
    ASSERT_TRUE(writeText(scratch.file("m/photo_05.jpg.txt"), "CONTOUR\n" + good));
    ASSERT_EQ(import(KvoCameraSource::matrices(scratch.file("m"))), 1);
    EXPECT_EQ(report.count(KvoCameraIssue::BadCamera), 2);
    EXPECT_EQ(report.count(KvoCameraIssue::NoPhoto), 1);
    EXPECT_TRUE(unchanged(ids[1]));
    EXPECT_LT(worstMiss(t[4], recordProjection(ids[4], 1024, 768, false)), 0.5);
}

TEST(CameraFiles, ProjectionAlgebraRoundTrips)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-1, 1);
    for (int n = 0; n < 50; ++n) {
        double q[4] = {u(rng), u(rng), u(rng), u(rng)}, R[9];
        ASSERT_TRUE(quaternionToMatrix(q, R));
        const double K[9] = {
            900 + 300 * u(rng), 3 * u(rng), 500 + 80 * u(rng), 0, 900 + 300 * u(rng), 380 + 60 * u(rng), 0, 0, 1};
        const double t[3] = {5 * u(rng), 5 * u(rng), 20 + 5 * u(rng)};
        double P[12];
        composeProjection(K, R, t, P);
        const double scale = n % 2 ? -0.37 : 12.5;
        for (double& p : P)
            p *= scale;
        double K2[9], R2[9], t2[3];
        ASSERT_TRUE(decomposeProjection(P, K2, R2, t2));
        for (int i = 0; i < 9; ++i) {
            EXPECT_NEAR(K2[i], K[i], 1e-8 * 1000);
            EXPECT_NEAR(R2[i], R[i], 1e-10);
        }
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(t2[i], t[i], 1e-9);
        double L[11];
        ASSERT_TRUE(projectionToDlt(P, 1000, 760, L));
        for (int k = 0; k < 20; ++k) {
            const XPnt3d X(4 * u(rng), 4 * u(rng), 4 * u(rng));
            XPnt2d px;
            ASSERT_TRUE(projectPixel(P, X, px));
            const XPnt2d uv = camWorldPntToImgPos(L, X.x, X.y, X.z);
            EXPECT_NEAR(uv.x * 1000, px.x, 1e-8);
            EXPECT_NEAR((1 - uv.y) * 760, px.y, 1e-8);
        }
    }
    const double singular[12] = {1, 2, 3, 4, 2, 4, 6, 8, 0, 0, 1, 1};
    double K[9], R[9], t[3];
    EXPECT_FALSE(decomposeProjection(singular, K, R, t));
    double L[11];
    const double throughOrigin[12] = {800, 0, 512, 0, 0, 800, 384, 0, 0, 0, 1, 0};
    EXPECT_FALSE(projectionToDlt(throughOrigin, 1024, 768, L)) << "the world origin in the eye's plane";
}

TEST(CameraFiles, ColmapTextIsReadLineByLine)
{
    qvtest::ScratchDir dir;
    ASSERT_TRUE(writeText(dir.file("cameras.txt"), "# c\r\n\r\n  4   SIMPLE_RADIAL 640 480 500 320 240 -0.01  \r\n"
                                                   "5 OPENCV 640 480 510 505 321 239 0.1 0.01 0.001 0.002\r\n"));
    ASSERT_TRUE(writeText(dir.file("images.txt"),
                          "# i\r\n1 1 0 0 0 1 2 3 4 my photo.jpg\r\n10.5 20.5 -1 11 12 3\r\n"
                          "2 0 0 0 2 0 0 1 5 b.jpg\r\n3 0.5 0.5 0.5 0.5 0 0 0 5 c.jpg\r\n\r\n"));
    KvoCameraFileSet set;
    QString error;
    ASSERT_TRUE(readColmapText(dir.path(), set, error)) << error.toStdString();
    ASSERT_EQ(set.cameras.size(), 3u);
    EXPECT_EQ(set.cameras[0].photo, "my photo.jpg");
    EXPECT_EQ(set.cameras[0].model, "SIMPLE_RADIAL");
    EXPECT_EQ(set.cameras[0].K[0], 500);
    EXPECT_EQ(set.cameras[0].K[4], 500);
    EXPECT_EQ(set.cameras[0].K[2], 320);
    EXPECT_EQ(set.cameras[0].distortion[0], -0.01);
    EXPECT_EQ(set.cameras[0].t[2], 3);
    EXPECT_EQ(set.cameras[1].photo, "b.jpg") << "the line after an image line without its points";
    EXPECT_NEAR(set.cameras[1].R[0], -1, 1e-15) << "half a turn about z, from an unnormalised quaternion";
    EXPECT_NEAR(set.cameras[1].R[4], -1, 1e-15);
    EXPECT_EQ(set.cameras[1].K[4], 505);
    EXPECT_EQ(set.cameras[1].K[5], 239);
    EXPECT_EQ(set.cameras[1].distortion[2], 0.001);
    EXPECT_EQ(set.cameras[1].distortion[3], 0.002);
    EXPECT_EQ(set.cameras[2].photo, "c.jpg");
    EXPECT_NEAR(set.cameras[2].R[2], 1, 1e-15) << "a third of a turn about (1, 1, 1): x goes to y";
    EXPECT_TRUE(set.skippedLines.isEmpty());
    for (const KvoFileCamera& c : set.cameras)
        EXPECT_TRUE(c.usable) << c.reason.toStdString();
}

TEST_F(CameraImport, FileImportCamerasRunsItsDialogThroughThePresenter)
{
    makeProject();
    // Missing files: the dialog says so and stays open.
    QStringList dialogWarnings;
    presenter->dialogScript = [&](QDialog* d) {
        auto* dialog = dynamic_cast<QDlgImportCameras*>(d);
        if (!dialog)
            return int(QDialog::Rejected);
        dialog->setKind(KvoCameraSource::Bundler);
        dialog->setPath(kSample + "/cameras/bundler/bundle.out");
        dialog->setListFile(scratch.file("nolist.txt"));
        dialog->okButton()->click();
        dialogWarnings << presenter->lastText();
        if (dialog->result() == QDialog::Accepted)
            return int(QDialog::Accepted);
        dialog->setListFile(kSample + "/cameras/bundler/list.txt");
        dialog->okButton()->click();
        return dialog->result();
    };
    EXPECT_EQ(cmdImportCameras(), 0);
    ASSERT_EQ(dialogWarnings.size(), 1);
    EXPECT_TRUE(dialogWarnings[0].contains("nolist.txt")) << dialogWarnings[0].toStdString();
    ASSERT_FALSE(presenter->records.isEmpty());
    EXPECT_EQ(presenter->records.last().title, "Quovara");
    EXPECT_TRUE(presenter->lastText().contains("Photographs given their cameras: 8."))
        << presenter->lastText().toStdString();
    EXPECT_EQ(presenter->records.last().icon, QMessageBox::Information);
    EXPECT_LT(worstMiss(truth[5], recordProjection(ids[5], 1024, 768, false)), 0.5);

    // Cancelled: nothing happens.
    presenter->records.clear();
    presenter->dialogScript = [](QDialog*) { return int(QDialog::Rejected); };
    EXPECT_EQ(cmdImportCameras(), -1);
    EXPECT_TRUE(presenter->records.size() == 1 && presenter->records[0].kind == "dialog");

    // Without a project: the usual message.
    getMM()->closeProject();
    presenter->records.clear();
    EXPECT_EQ(cmdImportCameras(), -1);
    EXPECT_TRUE(presenter->lastText().contains("No project is open"));
}

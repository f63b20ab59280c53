#include "camera/KvoCameraImport.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <map>

#include "camera/KvoVirtualCamera.h"
#include "mapping/KvoDlt.h"
#include "scene/KvoGeometry.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

namespace {

QString tr(const char* s)
{
    return QCoreApplication::translate("CameraImport", s);
}

// A record that puts a point further than this from where its camera does is
// not the camera: a virtual camera gives way to DLT parameters, and DLT
// parameters that miss are refused.
constexpr double kExactPixels = 0.01;

struct ProjectImage {
    long id = -1;
    QString name;
    QString originalFile; // file name of the user's original
    XPnt2i size;
    ref_ptr<IKvoImageInfo> info;
};

QString leaf(QString name)
{
    name.replace('\\', '/');
    return name.section('/', -1);
}

// The project's photographs that a name in the files means. The exact name
// wins over one that differs in case, which wins over the name of the file
// the user added; stems count only for files named after photographs
// without their extension.
std::vector<long> matchPhoto(const QString& photo, const std::vector<ProjectImage>& images, bool stems)
{
    const QString key = leaf(photo);
    std::vector<long> out;
    auto collect = [&](auto&& same) {
        for (size_t i = 0; i < images.size(); ++i)
            if (same(images[i]))
                out.push_back(long(i));
        return !out.empty();
    };
    if (key.isEmpty())
        return out;
    if (collect([&](const ProjectImage& p) { return p.name == key; }))
        return out;
    if (collect([&](const ProjectImage& p) { return p.name.compare(key, Qt::CaseInsensitive) == 0; }))
        return out;
    if (collect([&](const ProjectImage& p) { return p.originalFile.compare(key, Qt::CaseInsensitive) == 0; }))
        return out;
    if (stems)
        collect([&](const ProjectImage& p) {
            return QFileInfo(p.name).completeBaseName().compare(key, Qt::CaseInsensitive) == 0;
        });
    return out;
}

struct Prepared {
    size_t camera = 0;
    size_t image = 0;
    ZebQVVCParam vc;
    bool throughDlt = false;
    double L[11] = {0};
    double error = 0;
    bool seesModel = true;
};

// Camera coordinates of the pixel (x, y) at depth d, back in the world.
XPnt3d backProject(const double K[9], const double R[9], const double t[3], double x, double y, double d)
{
    const double yn = (y - K[5]) / K[4];
    const double xn = (x - K[2] - K[1] * yn) / K[0];
    const double c[3] = {xn * d - t[0], yn * d - t[1], d - t[2]};
    return XPnt3d(R[0] * c[0] + R[3] * c[1] + R[6] * c[2], R[1] * c[0] + R[4] * c[1] + R[7] * c[2],
                  R[2] * c[0] + R[5] * c[1] + R[8] * c[2]);
}

// The largest pixel distance, over points spread across the picture at a few
// depths, between P and another projection of them.
template <class Project>
double worstMiss(const double P[12], const double K[9], const double R[9], const double t[3], long w, long h,
                 double depth, Project&& other)
{
    double worst = 0;
    for (double d : {depth * 0.5, depth, depth * 2.0})
        for (int i = 0; i <= 4; ++i)
            for (int j = 0; j <= 4; ++j) {
                const XPnt3d X = backProject(K, R, t, w * i / 4.0, h * j / 4.0, d);
                XPnt2d want, got;
                if (!projectPixel(P, X, want) || !other(X, got))
                    return HUGE_VAL;
                const double miss = std::hypot(want.x - got.x, want.y - got.y);
                if (!(miss <= worst))
                    worst = std::isfinite(miss) ? miss : HUGE_VAL;
            }
    return worst;
}

// What the model offers the checks: its centre, and some of its vertices.
struct ModelProbe {
    bool has = false;
    XPnt3d centre;
    std::vector<XPnt3d> samples;
};

ModelProbe probeModel(IKvoMM* mm)
{
    ModelProbe probe;
    ref_ptr<IKvoModel> model;
    if (!mm->getBareModel(model) || !model || !model->getVertices() || model->getVertexCount() == 0)
        return probe;
    Enve3d box;
    mm->getModelEnvelope(box);
    if (!box.isValid())
        return probe;
    probe.has = true;
    probe.centre = box.MidPoint();
    const Pnt3fArray* v = model->getVertices();
    const long n = v->getCount();
    const long stride = std::max(1L, n / 20000);
    for (long i = 0; i < n; i += stride) {
        const XPnt3f& p = v->getAt(i);
        probe.samples.emplace_back(p.x, p.y, p.z);
    }
    return probe;
}

bool seesAny(const double P[12], long w, long h, const ModelProbe& probe)
{
    for (const XPnt3d& X : probe.samples) {
        XPnt2d px;
        if (projectPixel(P, X, px) && px.x >= 0 && px.x <= w && px.y >= 0 && px.y <= h)
            return true;
    }
    return false;
}

// Turns a camera into the records of one photograph; false with a reason.
bool prepare(const KvoFileCamera& cam, const ProjectImage& image, const ModelProbe& probe, IKvoMM* mm, Prepared& out,
             QString& reason)
{
    const long w = image.size.x, h = image.size.y;
    double P[12];
    if (cam.fromMatrix) {
        std::copy(cam.P, cam.P + 12, P);
    } else {
        double K[9];
        std::copy(cam.K, cam.K + 9, K);
        if (cam.principalAtCentre) {
            K[2] = w * 0.5;
            K[5] = h * 0.5;
        }
        composeProjection(K, cam.R, cam.t, P);
    }
    double K[9], R[9], t[3];
    if (!decomposeProjection(P, K, R, t)) {
        reason = tr("its projection is degenerate (the matrix is singular or holds numbers that are not finite)");
        return false;
    }
    const XPnt3d eye(-(R[0] * t[0] + R[3] * t[1] + R[6] * t[2]), -(R[1] * t[0] + R[4] * t[1] + R[7] * t[2]),
                     -(R[2] * t[0] + R[5] * t[1] + R[8] * t[2]));
    const XPnt3d forward(R[6], R[7], R[8]);
    double depth = probe.has ? dot(probe.centre - eye, forward) : 0;
    if (!(depth > 0) || !std::isfinite(depth))
        depth = 10.0;

    ZebQVVCParam vc;
    mm->getVCParam(image.id, vc); // the viewer's transparency and zoom stay as they were
    vc.eye = eye;
    vc.center = eye + forward * depth;
    vc.up = XPnt3d(-R[3], -R[4], -R[5]);
    // The virtual camera's one focal length spans the picture's shorter side.
    const double f = w <= h ? K[0] : K[4];
    vc.fovY = 2.0 * std::atan(0.5 * double(std::min(w, h)) / f) * 180.0 / M_PI;
    zebUI::_ZebVCMapParam_ frame;
    if (!(vc.fovY > 0 && vc.fovY < 180) || !calVCFrameForSize(vc, w, h, kvoVCFrameModel, frame)) {
        reason = tr("its field of view is not usable");
        return false;
    }
    const KvoVCProjector projector(frame);
    const double vcMiss =
        !projector.isValid() ? HUGE_VAL : worstMiss(P, K, R, t, w, h, depth, [&](const XPnt3d& X, XPnt2d& px) {
            const XPnt3d c = projector.view() * X;
            if (!(c.z < 0))
                return false;
            const XPnt2d uv = projector.uv(X);
            px = XPnt2d(uv.x * w, (1.0 - uv.y) * h);
            return true;
        });
    out.vc = vc;
    out.error = vcMiss;
    out.throughDlt = !(vcMiss <= kExactPixels);
    if (out.throughDlt) {
        if (!projectionToDlt(P, w, h, out.L)) {
            reason = tr("its camera is not a centred square-pixel pinhole and the world origin lies in the plane of "
                        "its eye, where DLT parameters cannot hold it");
            return false;
        }
        const double* L = out.L;
        out.error = worstMiss(P, K, R, t, w, h, depth, [&](const XPnt3d& X, XPnt2d& px) {
            const XPnt2d uv = camWorldPntToImgPos(L, X.x, X.y, X.z);
            if (!uv.isValid())
                return false;
            px = XPnt2d(uv.x * w, (1.0 - uv.y) * h);
            return true;
        });
        if (!(out.error <= kExactPixels)) {
            reason = tr("its DLT parameters would miss by %1 pixels").arg(out.error, 0, 'g', 3);
            return false;
        }
    }
    out.seesModel = !probe.has || seesAny(P, w, h, probe);
    return true;
}

// The photograph as the camera saw it: the copy from before an earlier
// undistortion, else the project's copy as it is on disk.
ref_ptr<IKvoImage> photographAsTaken(const ProjectImage& image, QString& why)
{
    QString path;
    if (!image.info->getFilePath(path, kvoPathBeforeUndistortion))
        image.info->getFilePath(path, kvoPathImage);
    ref_ptr<IKvoImage> pixels = newKvoImage();
    if (path.isEmpty() || !pixels->loadFile(path)) {
        why = tr("the photograph %1 cannot be read").arg(path);
        return nullptr;
    }
    return pixels;
}

// Pixels of the pinhole camera K from a photograph with OpenCV's lens
// distortion; where the photograph has nothing the new picture is transparent.
ref_ptr<IKvoImage> undistort(const IKvoImage& photo, const double K[9], const double distortion[4])
{
    cv::Mat rgba;
    photo.getMat(rgba);
    // OpenCV puts pixel centres on whole numbers; ours are half a pixel further.
    const cv::Matx33d Kcv(K[0], K[1], K[2] - 0.5, 0, K[4], K[5] - 0.5, 0, 0, 1);
    const cv::Mat dist = (cv::Mat_<double>(1, 4) << distortion[0], distortion[1], distortion[2], distortion[3]);
    cv::Mat mapX, mapY, out;
    cv::initUndistortRectifyMap(Kcv, dist, cv::noArray(), Kcv, rgba.size(), CV_32FC1, mapX, mapY);
    cv::remap(rgba, out, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(0, 0, 0, 0));
    ref_ptr<IKvoImage> image = newKvoImage();
    if (out.empty() || !out.isContinuous() || !image->setData(out.data, out.cols, out.rows, 4))
        return nullptr;
    return image;
}

bool readSource(const KvoCameraSource& source, KvoCameraFileSet& files, QString& error)
{
    switch (source.kind) {
    case KvoCameraSource::Colmap: return readColmapText(source.path, files, error);
    case KvoCameraSource::Bundler: return readBundler(source.path, source.listFile, files, error);
    case KvoCameraSource::Matrices: return readProjectionMatrices(source.path, files, error);
    }
    error = tr("Unknown kind of camera files.");
    return false;
}

QString issueText(KvoCameraIssue issue)
{
    switch (issue) {
    case KvoCameraIssue::NoCamera: return tr("no camera");
    case KvoCameraIssue::NoPhoto: return tr("no such photograph in the project");
    case KvoCameraIssue::UnknownModel: return tr("unknown camera model");
    case KvoCameraIssue::SizeMismatch: return tr("picture size differs");
    case KvoCameraIssue::Ambiguous: return tr("ambiguous");
    case KvoCameraIssue::BadCamera: return tr("unusable camera");
    case KvoCameraIssue::PictureFailed: return tr("photograph not usable");
    }
    return QString();
}

} // namespace

KvoCameraSource KvoCameraSource::colmap(const QString& folder)
{
    KvoCameraSource s;
    s.kind = Colmap;
    s.path = folder;
    return s;
}

KvoCameraSource KvoCameraSource::bundler(const QString& bundleFile, const QString& listFile)
{
    KvoCameraSource s;
    s.kind = Bundler;
    s.path = bundleFile;
    s.listFile = listFile;
    return s;
}

KvoCameraSource KvoCameraSource::matrices(const QString& folder)
{
    KvoCameraSource s;
    s.kind = Matrices;
    s.path = folder;
    return s;
}

long KvoCameraImportReport::count(KvoCameraIssue issue) const
{
    return long(std::count_if(skipped.begin(), skipped.end(), [issue](const Skipped& s) { return s.issue == issue; }));
}

QString KvoCameraImportReport::summary(bool eachImported) const
{
    QStringList lines;
    if (!error.isEmpty()) {
        lines << error;
        return lines.join('\n');
    }
    lines << tr("Cameras read: %1 (%2).").arg(camerasRead).arg(format);
    QStringList named;
    long mapped = 0;
    for (const Imported& i : imported) {
        QStringList how;
        how << (i.throughDlt ? tr("DLT parameters (not a centred square-pixel pinhole)") : tr("virtual camera"));
        if (i.undistorted)
            how << tr("undistorted into a new picture");
        if (i.seesNoModel)
            how << tr("it sees none of the model: is it the right photograph?");
        mapped += i.wasMapped ? 1 : 0;
        if (eachImported || how.size() > 1 || i.throughDlt)
            named << QString("  %1 (image %2): %3").arg(i.image).arg(i.imageId).arg(how.join(", "));
    }
    lines << (named.isEmpty() ? tr("Photographs given their cameras: %1.")
                              : tr("Photographs given their cameras (%1):"))
                 .arg(imported.size());
    lines << named;
    if (mapped > 0)
        lines << tr("Mapped already: %1; their texture meshes keep the old mapping until they are mapped again.")
                     .arg(mapped);
    if (!skipped.empty()) {
        lines << tr("Left out (%1):").arg(skipped.size());
        for (const Skipped& s : skipped) {
            QString who = s.photo.isEmpty() ? tr("(no name)") : s.photo;
            if (s.imageId >= 0)
                who += tr(" (image %1)").arg(s.imageId);
            QString line = QString("  %1: %2: %3").arg(who, issueText(s.issue), s.reason);
            if (!s.where.isEmpty())
                line += QString(" [%1]").arg(s.where);
            lines << line;
        }
    }
    if (!skippedLines.isEmpty()) {
        lines << tr("Lines passed over (%1):").arg(skippedLines.size());
        for (const QString& s : skippedLines)
            lines << "  " + s;
    }
    return lines.join('\n');
}

long importCameras(const KvoCameraSource& source, KvoCameraImportReport& report, IKvoProgress* progress)
{
    report = KvoCameraImportReport();
    prgText(progress, tr("Importing cameras..."));
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    if (!mm->getProject(project) || !project || !project->getImageDb(db) || !db) {
        report.error = tr("No project is open.");
        prgStep(progress, 1.0);
        return kvoCamImportNoProject;
    }
    KvoCameraFileSet files;
    QString error;
    {
        KvoPrgPush push(progress, 0.1);
        const bool read = readSource(source, files, error);
        prgStep(progress, 1.0);
        if (!read) {
            report.error = error;
            return kvoCamImportBadFiles;
        }
    }
    report.format = files.format;
    report.camerasRead = long(files.cameras.size());
    report.skippedLines = files.skippedLines;

    std::vector<ProjectImage> images;
    ref_ptr<LongArray> ids;
    db->getImageIds(ids);
    for (long id : ids ? ids->vec() : std::vector<long>()) {
        ProjectImage p;
        p.id = id;
        if (!db->getImageInfo(p.info, id) || !p.info)
            continue;
        p.name = p.info->getName();
        p.originalFile = leaf(p.info->getFilePath(kvoPathOriginal));
        p.info->getImageSize(p.size, 1);
        images.push_back(p);
    }

    // Which photograph each camera is for; a photograph named by a camera
    // that cannot be used is accounted for by that camera's entry.
    const bool stems = source.kind == KvoCameraSource::Matrices;
    std::vector<long> imageOf(files.cameras.size(), -1);
    std::vector<char> named(images.size(), 0);
    std::map<long, std::vector<size_t>> camerasOf;
    auto skip = [&report](KvoCameraIssue issue, const QString& photo, long imageId, const QString& where,
                          const QString& reason) {
        KvoCameraImportReport::Skipped s;
        s.issue = issue;
        s.photo = photo;
        s.imageId = imageId;
        s.where = where;
        s.reason = reason;
        report.skipped.push_back(s);
    };
    for (size_t i = 0; i < files.cameras.size(); ++i) {
        const KvoFileCamera& c = files.cameras[i];
        const std::vector<long> match = matchPhoto(c.photo, images, stems);
        if (match.size() == 1) {
            imageOf[i] = match[0];
            named[size_t(match[0])] = 1;
        }
        if (!c.usable) {
            skip(c.issue, c.photo, imageOf[i] >= 0 ? images[size_t(imageOf[i])].id : -1, c.where, c.reason);
        } else if (match.empty()) {
            skip(KvoCameraIssue::NoPhoto, c.photo, -1, c.where, tr("no photograph of the project has this name"));
        } else if (match.size() > 1) {
            QStringList which;
            for (long m : match)
                which << images[size_t(m)].name;
            skip(KvoCameraIssue::Ambiguous, c.photo, -1, c.where,
                 tr("the name fits several photographs (%1)").arg(which.join(", ")));
        } else {
            camerasOf[imageOf[i]].push_back(i);
        }
    }

    const ModelProbe probe = probeModel(mm);
    std::vector<Prepared> ready;
    for (auto& kv : camerasOf) {
        const ProjectImage& image = images[size_t(kv.first)];
        if (kv.second.size() > 1) {
            for (size_t i : kv.second)
                skip(KvoCameraIssue::Ambiguous, files.cameras[i].photo, image.id, files.cameras[i].where,
                     tr("the files give %1 cameras for this photograph").arg(kv.second.size()));
            continue;
        }
        const size_t ci = kv.second.front();
        const KvoFileCamera& cam = files.cameras[ci];
        if (image.size.x <= 0 || image.size.y <= 0) {
            skip(KvoCameraIssue::PictureFailed, cam.photo, image.id, cam.where, tr("the photograph's size is unknown"));
            continue;
        }
        if (cam.width > 0 && (cam.width != image.size.x || cam.height != image.size.y)) {
            skip(KvoCameraIssue::SizeMismatch, cam.photo, image.id, cam.where,
                 tr("the camera is for %1 x %2 pixels, the photograph has %3 x %4")
                     .arg(cam.width)
                     .arg(cam.height)
                     .arg(image.size.x)
                     .arg(image.size.y));
            continue;
        }
        Prepared p;
        p.camera = ci;
        p.image = size_t(kv.first);
        QString why;
        if (!prepare(cam, image, probe, mm, p, why)) {
            skip(KvoCameraIssue::BadCamera, cam.photo, image.id, cam.where, why);
            continue;
        }
        ready.push_back(p);
    }

    // Writing: a photograph whose picture cannot be made keeps all it had.
    KvoPrgPush push(progress, 0.9);
    bool changed = false;
    for (const Prepared& p : ready) {
        const KvoFileCamera& cam = files.cameras[p.camera];
        const ProjectImage& image = images[p.image];
        prgStep(progress, 1.0 / double(ready.size()));
        QString before;
        const bool wasUndistorted = image.info->getFilePath(before, kvoPathBeforeUndistortion);
        ref_ptr<IKvoImage> pixels;
        if (cam.hasDistortion() || wasUndistorted) {
            QString why;
            ref_ptr<IKvoImage> taken = photographAsTaken(image, why);
            if (taken && (taken->getWidth() != image.size.x || taken->getHeight() != image.size.y))
                why = tr("the photograph on disk has %1 x %2 pixels, the project says %3 x %4")
                          .arg(taken->getWidth())
                          .arg(taken->getHeight())
                          .arg(image.size.x)
                          .arg(image.size.y);
            else if (taken && cam.hasDistortion()) {
                double K[9];
                std::copy(cam.K, cam.K + 9, K);
                if (cam.principalAtCentre) {
                    K[2] = image.size.x * 0.5;
                    K[5] = image.size.y * 0.5;
                }
                pixels = undistort(*taken, K, cam.distortion);
                if (!pixels)
                    why = tr("the photograph could not be undistorted");
            } else {
                pixels = taken;
            }
            if (!pixels) {
                skip(KvoCameraIssue::PictureFailed, cam.photo, image.id, cam.where, why);
                continue;
            }
            // The new pixels replace both levels; the store writes them at the next save.
            if (db->setTexture(pixels, image.id, 2) != kvoOk || db->setTexture(pixels, image.id, 1) != kvoOk) {
                skip(KvoCameraIssue::PictureFailed, cam.photo, image.id, cam.where,
                     tr("the new picture could not be set"));
                continue;
            }
            if (cam.hasDistortion() && !wasUndistorted)
                image.info->setFilePath(image.info->getFilePath(kvoPathImage), kvoPathBeforeUndistortion);
            else if (!cam.hasDistortion())
                image.info->setFilePath(QString(), kvoPathBeforeUndistortion);
        }
        KvoCameraImportReport::Imported done;
        done.imageId = image.id;
        done.image = image.name;
        done.where = cam.where;
        done.throughDlt = p.throughDlt;
        done.undistorted = cam.hasDistortion();
        done.recordError = p.error;
        done.seesNoModel = !p.seesModel;
        done.wasMapped = mm->isImageMapped(image.id);
        mm->setVCParam(image.id, p.vc);
        const QString key = QString("%1_DLTParam").arg(image.id);
        // Parameters kept from an earlier mapping would answer getDltParam
        // with another camera than this one.
        if (p.throughDlt)
            mm->setProjectBlob("ZebCtrlPntMapping", key, p.L, long(sizeof p.L));
        else
            mm->removeProjectBlob("ZebCtrlPntMapping", key);
        report.imported.push_back(done);
        changed = true;
    }
    for (size_t i = 0; i < images.size(); ++i)
        if (!named[i])
            skip(KvoCameraIssue::NoCamera, images[i].name, images[i].id, QString(),
                 tr("the files give this photograph no camera; it keeps what it had"));
    if (changed)
        mm->setDirty(true);
    return long(report.imported.size());
}

} // namespace kvo

#include "camera/KvoVirtualCamera.h"

#include <QCoreApplication>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

#include "commands/KvoCommands.h"
#include "platform/KvoCameraMath.h"
#include "platform/KvoRasterizer.h"
#include "scene/KvoGeometry.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

namespace {

QString tr(const char* s)
{
    return QCoreApplication::translate("VirtualCamera", s);
}

double len(const XPnt3d& p)
{
    return length(p);
}

bool normalise(XPnt3d& p)
{
    const double l = len(p);
    if (!(l > 0) || !std::isfinite(l))
        return false;
    p = p * (1.0 / l);
    return true;
}

bool imageSize(long imageId, long& w, long& h)
{
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    XPnt2i size;
    if (!getMM()->getProject(project) || !project->getImageDb(db) || !db->getImageInfo(info, imageId) || !info)
        return false;
    if (!info->getImageSize(size, 1) || size.x <= 0)
        info->getImageSize(size, 2);
    w = size.x;
    h = size.y;
    return w > 0 && h > 0;
}

ref_ptr<IKvoTrackBall> viewTrackBall()
{
    ref_ptr<IZebViewerMan> vm = zebUI::getVM();
    ref_ptr<IZebViewer> viewer;
    ref_ptr<IKvoTrackBall> ball;
    if (vm && vm->getModelViewer(viewer) && viewer)
        viewer->getTrackBall(ball);
    return ball;
}

// The nearest model point in front of the eye within the camera's view
// pyramid: its distance along the line of sight, or 0 when none.
double nearestAlongSight(const XPnt3d& eye, const XPnt3d& dir, const XPnt3d& right, const XPnt3d& up, double tanX,
                         double tanY)
{
    ref_ptr<MeshArray> meshes;
    ref_ptr<IKvoModel> model;
    if (!getMM()->getAwakeBareMeshes(meshes) || !getMM()->getBareModel(model) || !model)
        return 0;
    const Pnt3fArray* verts = model->getVertices();
    if (!verts)
        return 0;
    const XPnt3f* v = verts->getData();
    const long nv = verts->getCount();
    std::vector<char> used(size_t(nv), 0);
    for (const ref_ptr<IKvoMesh>& mesh : meshes->vec()) {
        const UIntArray* t = mesh->getTriangleIndices();
        for (long i = 0; t && i < t->getCount(); ++i)
            if (long(t->getAt(i)) < nv)
                used[t->getAt(i)] = 1;
    }
    double best = 0;
    for (long i = 0; i < nv; ++i) {
        if (!used[size_t(i)])
            continue;
        const XPnt3d d = XPnt3d(v[i].x, v[i].y, v[i].z) - eye;
        const double z = dot(d, dir);
        if (!(z > 0))
            continue;
        if (std::abs(dot(d, right)) > tanX * z || std::abs(dot(d, up)) > tanY * z)
            continue;
        if (best == 0 || z < best)
            best = z;
    }
    return best;
}

} // namespace

bool calVCFrameForSize(const ZebQVVCParam& param, long w, long h, long mode, zebUI::_ZebVCMapParam_& out)
{
    if (w <= 0 || h <= 0)
        return false;
    XPnt3d dir = param.center - param.eye, up = param.up;
    XPnt3d right = cross(dir, up);
    if (!normalise(dir) || !normalise(right) || !normalise(up))
        return false;
    const double t = std::tan(param.fovY * M_PI / 180.0 * 0.5);
    double D = 2.4 / t;
    const double m = double(std::min(w, h));
    double s = 240.0 / m / 100.0;
    if (mode == kvoVCFramePlaced) {
        const double n = nearestAlongSight(param.eye, dir, right, up, t * w / m, t * h / m);
        if (n > 0) {
            D = n * 0.5;
            s = t * D / m;
        }
    }
    const XPnt3d centre = param.eye + dir * D;
    // Single precision, as the frame has always been worked.
    const XPnt3f Hf(float(right.x * w * s), float(right.y * w * s), float(right.z * w * s));
    const XPnt3f Vf(float(up.x * h * s), float(up.y * h * s), float(up.z * h * s));
    const XPnt3d H(Hf.x, Hf.y, Hf.z), V(Vf.x, Vf.y, Vf.z);
    out.rightTop = centre + H + V;
    out.leftBottom = centre - H - V;
    out.leftTop = centre - H + V;
    out.rightBottom = centre + H - V;
    out.eye = param.eye;
    if (mode != kvoVCFrameWindow)
        return true;
    ref_ptr<IKvoTrackBall> ball = viewTrackBall();
    if (!ball)
        return false;
    const XPnt3d eye0 = ball->getEye(), centre0 = ball->getCenter(), up0 = ball->getUp();
    ball->setCamera(param.eye, param.center, param.up);
    int vp[4];
    ball->getViewport(vp);
    for (XPnt3d* corner : {&out.rightTop, &out.leftBottom, &out.leftTop, &out.rightBottom}) {
        XPnt3d win;
        ball->projectToWindow(win, corner->x, corner->y, corner->z);
        *corner = XPnt3d(win.x, double(vp[3]) - win.y, win.z);
    }
    ball->setCamera(eye0, centre0, up0);
    return true;
}

bool calVCFrame(long imageId, const ZebQVVCParam& param, long mode, zebUI::_ZebVCMapParam_& out)
{
    long w = 0, h = 0;
    return imageSize(imageId, w, h) && calVCFrameForSize(param, w, h, mode, out);
}

bool calVCZoom(long imageId, const ZebQVVCParam& param, double& zoomOut, Enve2d* windowBox)
{
    long iw = 0, ih = 0;
    ref_ptr<IKvoTrackBall> ball = viewTrackBall();
    zebUI::_ZebVCMapParam_ frame;
    if (!ball || !imageSize(imageId, iw, ih) || !calVCFrameForSize(param, iw, ih, kvoVCFrameWindow, frame))
        return false;
    int vp[4];
    ball->getViewport(vp);
    const double vw = vp[2], vh = vp[3];
    const double ia = double(iw) / double(ih), va = vw / vh;
    const double xr = frame.rightTop.x, yr = frame.rightTop.y, xl = frame.leftBottom.x, yl = frame.leftBottom.y;
    const double half = std::tan(param.fovY / 2 * M_PI / 180.0);
    double a, b;
    if (ia > va) {
        if (windowBox) {
            const double e = vw * (yr - yl) / (xr - xl) * 0.5;
            windowBox->SetBox(0, vh * 0.5 - e, vw, vh * 0.5 + e);
        }
        a = half * (xr - xl);
        b = vw;
    } else {
        if (windowBox) {
            const double e = vh * (xr - xl) / (yr - yl) * 0.5;
            windowBox->SetBox(vw * 0.5 - e, 0, vw * 0.5 + e, vh);
        }
        a = half * (yr - yl);
        b = vh;
    }
    zoomOut = (param.fovY / 2) / (std::atan(a / b) * 180.0 / M_PI);
    return std::isfinite(zoomOut);
}

bool calEyeCenterUpPrams(const std::vector<XPnt3d>& world, const std::vector<XPnt2d>& image, double fovY, long w,
                         long h, XPnt3d& eye, XPnt3d& center, XPnt3d& up)
{
    const size_t n = std::min(world.size(), image.size());
    if (n < 4 || w <= 0 || h <= 0 || !(fovY > 0 && fovY < 180))
        return false;
    // fovY spans the shorter side; the principal point is the picture's centre.
    const double f = 0.5 * double(std::min(w, h)) / std::tan(fovY * M_PI / 360.0);
    const cv::Matx33d K(f, 0, w * 0.5, 0, f, h * 0.5, 0, 0, 1);
    std::vector<cv::Point3d> obj;
    std::vector<cv::Point2d> img;
    XPnt3d centroid(0, 0, 0);
    for (size_t i = 0; i < n; ++i) {
        obj.emplace_back(world[i].x, world[i].y, world[i].z);
        img.emplace_back(image[i].x * double(w), (1.0 - image[i].y) * double(h));
        centroid = centroid + world[i];
    }
    centroid = centroid * (1.0 / double(n));
    // Georeferenced models: solve about the centroid so the numbers stay small.
    for (cv::Point3d& p : obj)
        p -= cv::Point3d(centroid.x, centroid.y, centroid.z);
    cv::Mat rvec, tvec;
    try {
        if (!cv::solvePnP(obj, img, K, cv::noArray(), rvec, tvec, false, cv::SOLVEPNP_SQPNP))
            return false;
        cv::solvePnPRefineLM(obj, img, K, cv::noArray(), rvec, tvec);
    } catch (const cv::Exception&) {
        return false;
    }
    cv::Matx33d R;
    cv::Rodrigues(rvec, R);
    const cv::Vec3d t(tvec.at<double>(0), tvec.at<double>(1), tvec.at<double>(2));
    const cv::Vec3d C = -(R.t() * t);
    const cv::Vec3d forward = R.t() * cv::Vec3d(0, 0, 1), upV = R.t() * cv::Vec3d(0, -1, 0);
    eye = XPnt3d(C[0], C[1], C[2]) + centroid;
    const XPnt3d dir(forward[0], forward[1], forward[2]);
    // The centre at the depth of the points, so that the view orbits them.
    double depth = dot(centroid - eye, dir);
    if (!(depth > 0))
        depth = 1;
    center = eye + dir * depth;
    up = XPnt3d(upV[0], upV[1], upV[2]);
    return std::isfinite(eye.x) && std::isfinite(center.x) && std::isfinite(up.x);
}

void calVCParam(long imageId, ZebQVVCParam& out)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    if (!mm->getProject(project) || !project->getImageDb(db) || !db->getImageInfo(info, imageId) || !info ||
        info->getCtrlPntCount() < 1) {
        out.eye = out.center = out.up = XPnt3d(0, 0, 0);
        out.fovY = out.transparency = out.zoom = 0;
        return;
    }
    ZebQVVCParam stored;
    double fov = mm->getVCParam(imageId, stored) ? stored.fovY : 0.0;
    if (!(fov > 0))
        fov = 27.0;
    ref_ptr<Pnt3dArray> world;
    ref_ptr<Pnt2dArray> image;
    info->getCtrlWorldPnts(world);
    info->getCtrlImagePnts(image);
    long w = 0, h = 0;
    imageSize(imageId, w, h);
    out.fovY = fov;
    if (!world || !image || !calEyeCenterUpPrams(world->vec(), image->vec(), fov, w, h, out.eye, out.center, out.up)) {
        out.eye = out.center = out.up = XPnt3d(0, 0, 0);
    }
    double zoom = 0;
    out.zoom = calVCZoom(imageId, out, zoom, nullptr) ? zoom : 0.7;
    out.transparency = 0.6;
}

KvoVCProjector::KvoVCProjector(const zebUI::_ZebVCMapParam_& f)
{
    XPnt3d ex = f.rightBottom - f.leftBottom, ey = f.leftTop - f.leftBottom;
    if (!normalise(ex) || !normalise(ey))
        return;
    if (!pntRegByQuad(XPnt3d(0, 0, 0), XPnt3d(1, 0, 0), XPnt3d(0, 1, 0), f.eye, f.eye + ex, f.eye + ey, m_view))
        return;
    const XPnt3d centre = (f.leftTop + f.rightBottom) * 0.5;
    const double d = len(centre - f.eye), width = len(f.rightBottom - f.leftBottom),
                 height = len(f.rightTop - f.rightBottom);
    if (!(width > 0) || !(height > 0))
        return;
    m_du = d / width;
    m_dv = d / height;
    m_valid = true;
}

XPnt2d KvoVCProjector::uv(const XPnt3d& p) const
{
    const XPnt3d c = m_view * p;
    return XPnt2d(0.5 + m_du * (c.x / -c.z), 0.5 + m_dv * (c.y / -c.z));
}

long calVCVisibleTriangles(long imageId, bool strict, ref_ptr<ByteArrayArray>& masks)
{
    IKvoMM* mm = getMM();
    ZebQVVCParam param;
    if (!mm->getVCParam(imageId, param))
        return -1;
    ref_ptr<IKvoModel> model;
    ref_ptr<MeshArray> meshes;
    masks = newByteArrayArray();
    if (!mm->getBareModel(model) || !model || !mm->getAwakeBareMeshes(meshes) || !meshes)
        return 0;
    const Pnt3fArray* verts = model->getVertices();
    const XPnt3f* v = verts ? verts->getData() : nullptr;
    const long nv = verts ? verts->getCount() : 0;

    // The view: the record's camera with the field of view fovY / zoom, over
    // the 3-D view's viewport (or, without one, a 1600-pixel-wide picture).
    ref_ptr<IKvoTrackBall> ball = viewTrackBall();
    int vp[4] = {0, 0, 1600, 1200};
    long iw = 0, ih = 0;
    imageSize(imageId, iw, ih);
    double savedFov = 0;
    XPnt3d eye0, centre0, up0;
    if (ball) {
        ball->getViewport(vp);
        savedFov = ball->getFovY();
        eye0 = ball->getEye();
        centre0 = ball->getCenter();
        up0 = ball->getUp();
    } else if (iw > 0 && ih > 0) {
        vp[3] = int(std::lround(1600.0 * double(ih) / double(iw)));
    }
    const double zoom = param.zoom > 0 ? param.zoom : 1.0;
    const double fov = param.fovY / zoom;
    Enve2d box(0, 0, vp[2], vp[3]);
    if (ball) {
        ball->setFovY(fov);
        ball->setCamera(param.eye, param.center, param.up);
        double z = 0;
        calVCZoom(imageId, param, z, &box);
        ball->setFovY(savedFov);
        ball->setCamera(eye0, centre0, up0);
    }
    double mv[16];
    lookAtMatrix(param.eye, param.center, param.up, mv);
    XPnt3d dir = param.center - param.eye;
    normalise(dir);

    // Marked: front faces that meet the box (the selection pass), and the
    // nearest and farthest of their corners for the depth pass.
    double prSel[16];
    perspectiveMatrix(fov, double(vp[2]) / vp[3], 1e-3, 1e7, prSel);
    KvoRasterizer probe;
    probe.setCamera(mv, prSel, vp[2], vp[3]);
    const double bx0 = box.minX, bx1 = box.maxX, by0 = double(vp[3]) - box.maxY, by1 = double(vp[3]) - box.minY;
    std::vector<std::vector<uint8_t>> marked(meshes->vec().size());
    double zNear = 0, zFar = 0;
    for (size_t mi = 0; mi < meshes->vec().size(); ++mi) {
        const ref_ptr<IKvoMesh>& mesh = meshes->vec()[mi];
        const UIntArray* t = mesh->getTriangleIndices();
        const long nf = mesh->getFaceCount();
        marked[mi].assign(size_t(nf), 0);
        for (long f = 0; f < nf; ++f) {
            const unsigned a = t->getAt(3 * f), b = t->getAt(3 * f + 1), c = t->getAt(3 * f + 2);
            if (long(a) >= nv || long(b) >= nv || long(c) >= nv)
                continue;
            const XPnt3d P[3] = {XPnt3d(v[a].x, v[a].y, v[a].z), XPnt3d(v[b].x, v[b].y, v[b].z),
                                 XPnt3d(v[c].x, v[c].y, v[c].z)};
            const XPnt3d n = cross(P[1] - P[0], P[2] - P[0]);
            if (!(dot(n, param.eye - P[0]) > 0))
                continue; // a back face, or edge-on
            unsigned allOut = 0xf;
            bool inFront = false;
            for (const XPnt3d& p : P) {
                XPnt3d w;
                unsigned code = 0;
                if (!probe.project(p, w)) {
                    code = 0xf;
                } else {
                    inFront = true;
                    code |= w.x < bx0 ? 1u : 0u;
                    code |= w.x > bx1 ? 2u : 0u;
                    code |= w.y < by0 ? 4u : 0u;
                    code |= w.y > by1 ? 8u : 0u;
                }
                allOut &= code;
            }
            if (!inFront || allOut)
                continue;
            marked[mi][size_t(f)] = 1;
            for (const XPnt3d& p : P) {
                const double d = dot(p - param.eye, dir);
                if (d > 0) {
                    zNear = zNear == 0 ? d : std::min(zNear, d);
                    zFar = std::max(zFar, d);
                }
            }
        }
    }
    if (!(zNear > 0)) {
        for (size_t mi = 0; mi < marked.size(); ++mi)
            masks->append(ref_ptr<ByteArray>(newByteArray()));
        for (size_t mi = 0; mi < marked.size(); ++mi)
            masks->vec()[mi]->vec().assign(marked[mi].size(), 0);
        return 0;
    }
    // The depth pass, with near and far around the marked triangles.
    double pr[16];
    perspectiveMatrix(fov, double(vp[2]) / vp[3], zNear * 0.99, zFar * 1.01, pr);
    KvoRasterizer depth;
    depth.setCamera(mv, pr, vp[2], vp[3]);
    for (size_t mi = 0; mi < meshes->vec().size(); ++mi) {
        const ref_ptr<IKvoMesh>& mesh = meshes->vec()[mi];
        depth.draw(v, nv, mesh->getTriangleIndices()->getData(), mesh->getFaceCount(), int32_t(mi), true);
    }
    const int W = vp[2], H = vp[3];
    auto sample = [&](long gx, long gy) -> double {
        // GL pixel (gx, gy) counts rows from the bottom.
        if (gx < 0 || gy < 0 || gx >= W || gy >= H)
            return 100.0;
        return depth.depthAt(int(gx), int(H - 1 - gy));
    };
    for (size_t mi = 0; mi < meshes->vec().size(); ++mi) {
        const ref_ptr<IKvoMesh>& mesh = meshes->vec()[mi];
        const UIntArray* t = mesh->getTriangleIndices();
        const long nf = long(marked[mi].size());
        ref_ptr<ByteArray> mask = newByteArray();
        mask->vec().assign(size_t(nf), 0);
        uint8_t* out = mask->getData();
        const unsigned* idx = t->getData();
#pragma omp parallel for schedule(static)
        for (long f = 0; f < nf; ++f) {
            if (!marked[mi][size_t(f)])
                continue;
            int seen = 0;
            for (int k = 0; k < 3; ++k) {
                const XPnt3f& p = v[idx[3 * f + k]];
                XPnt3d w;
                if (!depth.project(XPnt3d(p.x, p.y, p.z), w))
                    continue;
                const double gx = w.x, gy = double(H) - w.y;
                const long fx = long(std::floor(gx)), cx = long(std::ceil(gx));
                const long fy = long(std::floor(gy)), cy = long(std::ceil(gy));
                const double s[4] = {sample(fx, fy), sample(fx, cy), sample(cx, fy), sample(cx, cy)};
                for (double d : s)
                    if (std::abs(w.z - d) < 0.05) {
                        ++seen;
                        break;
                    }
            }
            out[f] = (strict ? seen == 3 : seen > 0) ? 1 : 0;
        }
        masks->append(mask);
    }
    return 0;
}

long removeNegtiveUV(const ref_ptr<IKvoMesh>& mesh, IKvoProgress* progress)
{
    if (!mesh)
        return 0;
    const Pnt2fArray* uvs = mesh->getUVs();
    const UIntArray* tris = mesh->getTriangleIndices();
    const UIntArray* corners = mesh->getCornerTexIndices();
    if (!uvs || !tris)
        return 0;
    const Pnt3fArray* normals = mesh->getFaceNormals();
    const long nf = mesh->getFaceCount();
    ref_ptr<UIntArray> keptCorners;
    ref_ptr<UIntArray> kept = newUIntArray();
    ref_ptr<Pnt3fArray> keptNormals = newPnt3fArray();
    if (corners && corners->getCount() == tris->getCount())
        keptCorners = newUIntArray();
    long dropped = 0;
    auto inside = [](const XPnt2f& p) { return p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1; };
    for (long f = 0; f < nf; ++f) {
        XPnt2f p[3];
        bool ok = true;
        for (int k = 0; k < 3 && ok; ++k) {
            const unsigned i = keptCorners ? corners->getAt(3 * f + k) : tris->getAt(3 * f + k);
            ok = long(i) < uvs->getCount();
            if (ok)
                p[k] = uvs->getAt(i);
        }
        if (!ok || !inside(p[0]) || !inside(p[1]) || !inside(p[2]) || !(qvUVDirection(&p[0], &p[1], &p[2]) > 0)) {
            ++dropped;
            continue;
        }
        for (int k = 0; k < 3; ++k) {
            kept->append(tris->getAt(3 * f + k));
            if (keptCorners)
                keptCorners->append(corners->getAt(3 * f + k));
        }
        if (normals && f < normals->getCount())
            keptNormals->append(normals->getAt(f));
    }
    if (progress)
        progress->step(1.0);
    if (dropped == 0)
        return 0;
    if (keptCorners)
        mesh->setCornerTexIndices(kept.get(), keptCorners.get());
    else
        mesh->setTriangles(kept.get(), true);
    if (normals)
        mesh->setFaceNormalArray(keptNormals.get(), false);
    return dropped;
}

long featherMesh(const ref_ptr<IKvoMesh>& mesh, long, long size, long hardness, const std::vector<XPnt2d>& edgePoints,
                 IKvoProgress* progress)
{
    const double ramp = double(size) * (1.0 - std::clamp(double(hardness), 0.0, 100.0) / 100.0);
    ref_ptr<IKvoImage> image;
    if (!mesh || !(ramp > 0) || !mesh->getImage(image) || !image || image->isEmpty())
        return 0;
    const Pnt2fArray* uvs = mesh->getUVs();
    const UIntArray* tris = mesh->getTriangleIndices();
    const UIntArray* corners = mesh->getCornerTexIndices();
    if (!uvs || !tris)
        return 0;
    const bool byCorner = corners && corners->getCount() == tris->getCount();
    const int W = int(image->getWidth()), H = int(image->getHeight());
    // The footprint: the UV triangles drawn into the picture (UV (0, 0) is
    // the bottom-left corner; rows run top-down).
    cv::Mat mask(H, W, CV_8U, cv::Scalar(0));
    constexpr int shift = 4;
    for (long f = 0; f < mesh->getFaceCount(); ++f) {
        cv::Point pts[3];
        bool ok = true;
        for (int k = 0; k < 3 && ok; ++k) {
            const unsigned i = byCorner ? corners->getAt(3 * f + k) : tris->getAt(3 * f + k);
            ok = long(i) < uvs->getCount();
            if (!ok)
                break;
            const XPnt2f uv = uvs->getAt(i);
            pts[k] =
                cv::Point(int(std::lround(uv.x * W * (1 << shift))), int(std::lround((1.0 - uv.y) * H * (1 << shift))));
        }
        if (ok)
            cv::fillConvexPoly(mask, pts, 3, cv::Scalar(255), cv::LINE_8, shift);
    }
    cv::Mat padded, dist;
    // Outside the picture counts as outside the footprint.
    cv::copyMakeBorder(mask, padded, 1, 1, 1, 1, cv::BORDER_CONSTANT, cv::Scalar(0));
    cv::distanceTransform(padded, dist, cv::DIST_L2, cv::DIST_MASK_PRECISE);
    unsigned char* px = image->getMutableData();
    const long stride = image->getStride();
    long changed = 0;
    for (int y = 0; y < H; ++y) {
        const float* d = dist.ptr<float>(y + 1) + 1;
        const unsigned char* m = mask.ptr<unsigned char>(y);
        for (int x = 0; x < W; ++x) {
            if (!m[x] || d[x] >= ramp)
                continue;
            if (!edgePoints.empty()) {
                bool near = false;
                for (const XPnt2d& e : edgePoints)
                    if (std::hypot(e.x * W - (x + 0.5), (1.0 - e.y) * H - (y + 0.5)) <= double(size)) {
                        near = true;
                        break;
                    }
                if (!near)
                    continue;
            }
            // distanceTransform measures to the nearest outside pixel's centre:
            // a border pixel is 1 away and gets a little alpha, not none.
            const double a = std::clamp((double(d[x]) - 0.5) / ramp, 0.0, 1.0);
            unsigned char& alpha = px[y * stride + x * 4 + 3];
            const unsigned char next = (unsigned char)std::min<long>(alpha, std::lround(a * alpha));
            if (next != alpha) {
                alpha = next;
                ++changed;
            }
        }
    }
    if (progress)
        progress->step(1.0);
    if (changed)
        mesh->setImage(image);
    return changed;
}

bool calVCMatrix(long imageId, double Rt[12])
{
    ZebQVVCParam param;
    zebUI::_ZebVCMapParam_ frame;
    if (!getMM()->getVCParam(imageId, param) || !calVCFrame(imageId, param, kvoVCFrameModel, frame))
        return false;
    KvoVCProjector projector(frame);
    if (!projector.isValid())
        return false;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c)
            Rt[r * 4 + c] = projector.view()[r][c];
    return true;
}

void VCMapping(ZebQVVCParam& param, zebUI::_ZebVCMapParam_& frame, bool keepTriangles, bool selectedOnly,
               bool deletePenetrating, IKvoProgress* progress)
{
    IKvoMM* mm = getMM();
    const long imageId = mm->getActiveImageId();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    if (!mm->getProject(project) || !project->getImageDb(db) || !db->getImageInfo(info, imageId) || !info) {
        msgWarningQt(tr("Failed to get active image!"));
        return;
    }
    if (progress) {
        progress->setText(tr("Starting virtual camera mapping ..."));
        progress->step(0.05);
    }
    ref_ptr<MeshArray> awake;
    mm->getAwakeBareMeshes(awake);
    if (selectedOnly && (!awake || getSelMarkCount(awake) == 0)) {
        msgWarningQt(tr("Selected Triangle Number of Bare Mesh is 0!"));
        return;
    }
    if (!mm->isTexEditOpen())
        mm->openTexEdit(nullptr, 1, 0);
    mm->setVCParam(imageId, param);

    const KvoVCProjector projector(frame);
    ref_ptr<IKvoModel> model;
    mm->getBareModel(model);
    const Pnt3fArray* verts = model ? model->getVertices() : nullptr;
    const long nv = verts ? verts->getCount() : 0;
    ref_ptr<Pnt2fArray> uv = newPnt2fArray();
    uv->resize(nv);
    std::vector<uint8_t> inFrame(size_t(nv), 0);
    {
        KvoPrgPush push(progress, 0.35);
        const XPnt3f* v = verts ? verts->getData() : nullptr;
        XPnt2f* out = uv->getData();
#pragma omp parallel for schedule(static)
        for (long i = 0; i < nv; ++i) {
            const XPnt2d p = projector.uv(XPnt3d(v[i].x, v[i].y, v[i].z));
            out[i] = XPnt2f(float(p.x), float(p.y));
            inFrame[size_t(i)] = p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1;
        }
        if (progress)
            progress->step(1.0);
    }
    if (!awake || awake->getCount() == 0) {
        msgWarningQt(tr("There is no awake bare mesh!"));
        return;
    }
    ref_ptr<IKvoMesh> tex;
    if (mm->isImageMapped(imageId)) {
        if (mm->isImageMeshAsleep(imageId)) {
            msgWarningQt(tr("Please wake up the mesh!"));
            return;
        }
        mm->getTexMeshOfImage(tex, imageId);
    } else {
        mm->createTexMesh(tex, false, imageId, false);
        if (!tex) {
            msgWarningQt(tr("Fail to create a mesh!"));
            return;
        }
    }
    ref_ptr<IKvoImageInfo> record;
    if (!db->getImageInfo(record, imageId) || !record) {
        msgWarningQt(tr("Error: Image Information is NULL!"));
        return;
    }
    ref_ptr<IKvoAppOptions> options;
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM())
        vm->getAppOptions(options);
    const long featherSize = options ? options->getFeatherSize() : 0;
    const long featherHardness = options ? options->getFeatherHardness() : 100;
    ref_ptr<ByteArrayArray> masks;
    if (deletePenetrating) {
        const bool strict = featherSize != 0 && featherHardness != 100;
        calVCVisibleTriangles(imageId, strict, masks);
    }
    ref_ptr<UIntArray> indices = newUIntArray();
    ref_ptr<Pnt3fArray> normals = newPnt3fArray();
    {
        KvoPrgPush push(progress, 0.4);
        const size_t meshCount = awake->vec().size();
        for (size_t mi = 0; mi < meshCount; ++mi) {
            const ref_ptr<IKvoMesh>& mesh = awake->vec()[mi];
            const UIntArray* t = mesh->getTriangleIndices();
            const Pnt3fArray* fn = mesh->getFaceNormals();
            const ByteArray* marks = selectedOnly && mesh->hasSelMarks() ? mesh->getSelMarks() : nullptr;
            const ByteArray* mask = masks && mi < size_t(masks->getCount()) ? masks->vec()[mi].get() : nullptr;
            const long nf = mesh->getFaceCount();
            for (long f = 0; f < nf; ++f) {
                const unsigned a = t->getAt(3 * f), b = t->getAt(3 * f + 1), c = t->getAt(3 * f + 2);
                if (long(a) >= nv || long(b) >= nv || long(c) >= nv)
                    continue;
                if (!inFrame[a] || !inFrame[b] || !inFrame[c])
                    continue;
                if (deletePenetrating && (!mask || f >= mask->getCount() || mask->getAt(f) == 0))
                    continue;
                if (marks && (f >= marks->getCount() || marks->getAt(f) == 0))
                    continue;
                indices->append(a);
                indices->append(b);
                indices->append(c);
                if (fn && f < fn->getCount())
                    normals->append(fn->getAt(f));
            }
            if (progress)
                progress->step(1.0 / double(meshCount));
        }
    }
    if (!keepTriangles) {
        tex->setTriangles(indices.get(), true);
        tex->setFaceNormalArray(normals.get(), false);
    }
    // One UV a model vertex from now on: a per-corner table of an earlier
    // mapping no longer applies.
    if (tex->getCornerTexIndices())
        tex->setCornerTexIndices(nullptr, nullptr);
    tex->setUVs(uv.get());
    {
        KvoPrgPush push(progress, 0.1);
        removeNegtiveUV(tex, progress);
    }
    ref_ptr<IKvoImage> picture;
    db->getTexture(picture, imageId, 2);
    if (picture)
        tex->setImage(picture);
    {
        KvoPrgPush push(progress, 0.1);
        featherMesh(tex, 0, featherSize, featherHardness, {}, progress);
    }
    record->setMappingType(1);
    mm->setDirty(true);
    if (ref_ptr<IZebViewerMan> vm = zebUI::getVM()) {
        if (IZebMeshPanel* panel = vm->getMeshPanel()) {
            panel->add(tex, "Texture Mesh");
            panel->refreshSection("Texture Mesh");
        }
        if (IZebImagePanel* images = vm->getImagePanel())
            images->refreshImage(imageId);
        vm->updateViews();
    }
}

} // namespace kvo

// View selection as a labelling of faces. Each photograph is rendered once on
// the CPU to learn which faces it sees whole; each face it sees gets a quality
// from its resolution there (pixels per metre, foreshortening included) and
// the sharpness of the picture on it; views whose colour disagrees with the
// consensus of the others (an occluder, a passer-by) are dropped; then
// alpha-expansion trades quality against seams.

#include "autotexture/KvoViewSelection.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <memory>

#include "autotexture/GCoptimization.h"
#include "platform/KvoCameraMath.h"
#include "platform/KvoRasterizer.h"
#include "scene/KvoMeshAdjacency.h"

namespace Rec3D {
namespace RecMesh {
namespace {

using Clock = std::chrono::steady_clock;

// The least cosine between a face's normal and the direction to the camera.
constexpr double kMinFacing = 1e-3;

double secondsSince(Clock::time_point t0)
{
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

// One face seen whole by one photograph.
struct Candidate {
    uint32_t face;
    float quality;   // pixels per metre
    float sharpness; // mean gradient magnitude on the face
    uint8_t rgb[3];  // mean colour on the face
};

struct Geometry {
    const float* xyz;
    const uint32_t* tri;
    long nv, nf;
    std::vector<float> normal;   // three a face, unit (zero for a degenerate face)
    std::vector<float> area;     // square metres
    std::vector<float> centroid; // three a face
};

Geometry makeGeometry(const float* xyz, long nv, const uint32_t* tri, long nf)
{
    Geometry g{xyz, tri, nv, nf, {}, {}, {}};
    g.normal.resize(size_t(3 * nf));
    g.area.resize(size_t(nf));
    g.centroid.resize(size_t(3 * nf));
#pragma omp parallel for schedule(static)
    for (long f = 0; f < nf; ++f) {
        const float* a = xyz + 3 * tri[3 * f];
        const float* b = xyz + 3 * tri[3 * f + 1];
        const float* c = xyz + 3 * tri[3 * f + 2];
        const double u[3] = {double(b[0]) - a[0], double(b[1]) - a[1], double(b[2]) - a[2]};
        const double v[3] = {double(c[0]) - a[0], double(c[1]) - a[1], double(c[2]) - a[2]};
        const double n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
        const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        g.area[size_t(f)] = float(0.5 * len);
        for (int k = 0; k < 3; ++k) {
            g.normal[size_t(3 * f + k)] = len > 0 ? float(n[k] / len) : 0.f;
            g.centroid[size_t(3 * f + k)] = float((double(a[k]) + b[k] + c[k]) / 3.0);
        }
    }
    return g;
}

// A camera ready for projection, with its GL matrices for the rasteriser.
struct Camera {
    double R[9], T[3];
    double fx, fy, skew, cx, cy;
    double f; // the mean focal length, for depth tolerances
    int w, h;
    double C[3]; // the eye in the world
    double near = 0, far = 0;
    double scale = 1; // raster pixels per picture pixel
    int rw = 0, rh = 0;

    explicit Camera(const CamInfo& c)
    {
        std::memcpy(R, c.R, sizeof R);
        std::memcpy(T, c.T, sizeof T);
        // K as an upper triangle with K[8] = 1; a camera from a general
        // projection matrix may have unequal focal lengths and a skew.
        const double k = c.K[8] != 0 ? c.K[8] : 1.0;
        fx = c.K[0] / k;
        skew = c.K[1] / k;
        cx = c.K[2] / k;
        fy = c.K[4] / k;
        cy = c.K[5] / k;
        f = 0.5 * (fx + fy);
        w = c.width;
        h = c.height;
        for (int i = 0; i < 3; ++i)
            C[i] = -(R[i] * T[0] + R[3 + i] * T[1] + R[6 + i] * T[2]);
    }
    void toCamera(const float* p, double out[3]) const
    {
        for (int i = 0; i < 3; ++i)
            out[i] = R[3 * i] * p[0] + R[3 * i + 1] * p[1] + R[3 * i + 2] * p[2] + T[i];
    }
    // Picture position of a point in camera coordinates (z > 0).
    void pixel(const double q[3], double& u, double& v) const
    {
        u = (fx * q[0] + skew * q[1]) / q[2] + cx;
        v = fy * q[1] / q[2] + cy;
    }
    bool valid() const { return w > 0 && h > 0 && fx > 0 && fy > 0; }
};

// Near and far planes around what the camera sees of the model; false when
// nothing lies in front of it.
bool depthRange(Camera& c, const Geometry& g)
{
    double zMax = 0, zMinPos = 1e300;
#pragma omp parallel for reduction(max : zMax) reduction(min : zMinPos) schedule(static)
    for (long i = 0; i < g.nv; ++i) {
        double p[3];
        c.toCamera(g.xyz + 3 * i, p);
        zMax = std::max(zMax, p[2]);
        if (p[2] > 0)
            zMinPos = std::min(zMinPos, p[2]);
    }
    if (!(zMax > 0))
        return false;
    c.far = zMax * 1.01;
    c.near = std::max(zMinPos * 0.5, zMax * 1e-5);
    return true;
}

// Whether the segment from the eye to p (world, in double) crosses face g
// before reaching p; an occluder closer to p than a ten-thousandth of the
// distance does not count.
bool crossesBefore(const Geometry& g, long face, const double eye[3], const double p[3])
{
    const float* a = g.xyz + 3 * g.tri[3 * face];
    const float* b = g.xyz + 3 * g.tri[3 * face + 1];
    const float* c = g.xyz + 3 * g.tri[3 * face + 2];
    const double e1[3] = {double(b[0]) - a[0], double(b[1]) - a[1], double(b[2]) - a[2]};
    const double e2[3] = {double(c[0]) - a[0], double(c[1]) - a[1], double(c[2]) - a[2]};
    const double d[3] = {p[0] - eye[0], p[1] - eye[1], p[2] - eye[2]};
    const double h[3] = {d[1] * e2[2] - d[2] * e2[1], d[2] * e2[0] - d[0] * e2[2], d[0] * e2[1] - d[1] * e2[0]};
    const double det = e1[0] * h[0] + e1[1] * h[1] + e1[2] * h[2];
    if (std::fabs(det) < 1e-300)
        return false;
    const double s[3] = {eye[0] - a[0], eye[1] - a[1], eye[2] - a[2]};
    const double u = (s[0] * h[0] + s[1] * h[1] + s[2] * h[2]) / det;
    if (u < 0 || u > 1)
        return false;
    const double q[3] = {s[1] * e1[2] - s[2] * e1[1], s[2] * e1[0] - s[0] * e1[2], s[0] * e1[1] - s[1] * e1[0]};
    const double v = (d[0] * q[0] + d[1] * q[1] + d[2] * q[2]) / det;
    if (v < 0 || u + v > 1)
        return false;
    const double t = (e2[0] * q[0] + e2[1] * q[1] + e2[2] * q[2]) / det;
    return t > 1e-9 && t < 1 - 1e-4;
}

bool shareVertex(const uint32_t* tri, long f, long g)
{
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
            if (tri[3 * f + a] == tri[3 * g + b])
                return true;
    return false;
}

// The faces a camera sees whole: in front, facing it, inside the picture, and
// not hidden at the centre or near any corner. Fills the rasteriser too.
void findVisible(Camera& cam, const Geometry& g, int maxSide, kvo::KvoRasterizer& raster, std::vector<uint8_t>& seen)
{
    seen.assign(size_t(g.nf), 0);
    if (!cam.valid() || !depthRange(cam, g))
        return;
    cam.scale = std::min(1.0, double(maxSide) / double(std::max(cam.w, cam.h)));
    cam.rw = std::max(1, int(std::lround(cam.w * cam.scale)));
    cam.rh = std::max(1, int(std::lround(cam.h * cam.scale)));
    double mv[16], pr[16];
    const double K[9] = {cam.fx, cam.skew, cam.cx, 0, cam.fy, cam.cy, 0, 0, 1};
    kvo::pinholeGlMatrices(K, cam.R, cam.T, cam.w, cam.h, cam.near, cam.far, mv, pr);
    raster.setCamera(mv, pr, cam.rw, cam.rh);
    raster.draw(reinterpret_cast<const XPnt3f*>(g.xyz), g.nv, g.tri, g.nf, 0, false);
    const float* depth = raster.depthBuffer();
    const int32_t* shown = raster.faceBuffer();
    const double n = cam.near, fa = cam.far;
    const double sx = double(cam.rw) / cam.w, sy = double(cam.rh) / cam.h;
#pragma omp parallel for schedule(dynamic, 4096)
    for (long f = 0; f < g.nf; ++f) {
        if (g.area[size_t(f)] <= 0)
            continue;
        const float* ctr = &g.centroid[size_t(3 * f)];
        const float* nrm = &g.normal[size_t(3 * f)];
        const double d[3] = {cam.C[0] - ctr[0], cam.C[1] - ctr[1], cam.C[2] - ctr[2]};
        const double dl = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
        const double facing = (d[0] * nrm[0] + d[1] * nrm[1] + d[2] * nrm[2]) / std::max(dl, 1e-300);
        // Grazing views stay candidates: the data term makes them the last
        // resort, and a poor view beats a hole.
        if (facing < kMinFacing)
            continue;
        // One raster pixel of a slanted face spans this much depth.
        const double slope = std::min(10.0, std::sqrt(std::max(0.0, 1 - facing * facing)) / facing);
        // The centre, and the corners drawn a fifth of the way in, so that a
        // sample does not land on the neighbour's pixel or the background.
        bool ok = true;
        double pc[3];
        cam.toCamera(ctr, pc);
        for (int s = 0; s < 4 && ok; ++s) {
            double p[3], w[3]; // camera and world
            if (s < 3) {
                const float* cw = g.xyz + 3 * g.tri[3 * f + s];
                double q[3];
                cam.toCamera(cw, q);
                // Corners themselves must be inside the picture.
                if (q[2] <= n)
                    ok = false;
                else {
                    double u, v;
                    cam.pixel(q, u, v);
                    ok = u >= 0 && v >= 0 && u <= cam.w && v <= cam.h;
                }
                for (int k = 0; k < 3; ++k) {
                    p[k] = 0.8 * q[k] + 0.2 * pc[k];
                    w[k] = 0.8 * cw[k] + 0.2 * ctr[k];
                }
            } else {
                std::memcpy(p, pc, sizeof p);
                for (int k = 0; k < 3; ++k)
                    w[k] = ctr[k];
            }
            if (!ok || p[2] <= n)
                break;
            double u, v;
            cam.pixel(p, u, v);
            u *= sx;
            v *= sy;
            // The faces shown at the four pixel centres around the sample are
            // tested exactly against its line of sight: this settles an
            // occluder lying just in front of the face, which no depth
            // tolerance can tell from the face itself.
            const int x0 = int(std::floor(u - 0.5)), y0 = int(std::floor(v - 0.5));
            long tested[4];
            int nt = 0;
            for (int k = 0; k < 4 && ok; ++k) {
                const int x = std::min(cam.rw - 1, std::max(0, x0 + (k & 1)));
                const int y = std::min(cam.rh - 1, std::max(0, y0 + (k >> 1)));
                const long h = shown[size_t(y) * size_t(cam.rw) + size_t(x)];
                if (h < 0 || h == f || std::find(tested, tested + nt, h) != tested + nt)
                    continue;
                tested[nt++] = h;
                ok = !crossesBefore(g, h, cam.C, w);
            }
            if (!ok)
                break;
            // Something farther in front, behind the faces shown around the
            // sample: the depth at the sample's pixel, unless that pixel shows
            // the face or a neighbour of it.
            const int x = std::min(cam.rw - 1, std::max(0, int(u))), y = std::min(cam.rh - 1, std::max(0, int(v)));
            const size_t at = size_t(y) * size_t(cam.rw) + size_t(x);
            const long h = shown[at];
            if (h < 0 || h == f || shareVertex(g.tri, f, h))
                continue;
            const double zBuf = 2 * n * fa / (fa + n - (2 * double(depth[at]) - 1) * (fa - n));
            const double tol = p[2] * (0.001 + 1.5 * (1 + slope) / (cam.f * cam.scale));
            ok = p[2] <= zBuf + tol;
        }
        seen[size_t(f)] = ok ? 1 : 0;
    }
}

// The picture at raster size: colour and gradient magnitude.
bool loadPicture(const CamInfo& info, const Camera& cam, const ViewSelectionOptions& opt, size_t index, cv::Mat& rgb,
                 cv::Mat& gradient)
{
    cv::Mat gray;
    if (opt.picture) {
        cv::Mat rgba;
        if (!opt.picture(index, rgba) || rgba.empty() || rgba.depth() != CV_8U)
            return false;
        cv::Mat small;
        if (rgba.cols != cam.rw || rgba.rows != cam.rh)
            cv::resize(rgba, small, cv::Size(cam.rw, cam.rh), 0, 0, cv::INTER_AREA);
        else
            small = rgba;
        const int ch = small.channels();
        if (ch != 4 && ch != 3 && ch != 1)
            return false;
        if (ch == 3)
            rgb = small;
        else
            cv::cvtColor(small, rgb, ch == 4 ? cv::COLOR_RGBA2RGB : cv::COLOR_GRAY2RGB);
        cv::cvtColor(rgb, gray, cv::COLOR_RGB2GRAY);
    } else {
        // Decoding at a reduced size is much faster than decoding and shrinking.
        const double s = cam.scale;
        const int flag = s <= 0.125  ? cv::IMREAD_REDUCED_COLOR_8
                         : s <= 0.25 ? cv::IMREAD_REDUCED_COLOR_4
                         : s <= 0.5  ? cv::IMREAD_REDUCED_COLOR_2
                                     : cv::IMREAD_COLOR;
        cv::Mat bgr = cv::imread(info.path, flag);
        if (bgr.empty())
            return false;
        if (bgr.cols != cam.rw || bgr.rows != cam.rh)
            cv::resize(bgr, bgr, cv::Size(cam.rw, cam.rh), 0, 0, cv::INTER_AREA);
        cv::cvtColor(bgr, rgb, cv::COLOR_BGR2RGB);
        cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
    }
    cv::Mat gx, gy;
    cv::Sobel(gray, gx, CV_32F, 1, 0, 3);
    cv::Sobel(gray, gy, CV_32F, 0, 1, 3);
    cv::magnitude(gx, gy, gradient);
    return true;
}

// Quality, sharpness and colour of the faces a camera sees.
void measureCandidates(const Camera& cam, const Geometry& g, const std::vector<uint8_t>& seen, const cv::Mat* rgb,
                       const cv::Mat* gradient, std::vector<Candidate>& out)
{
    out.clear();
    std::vector<long> faces;
    for (long f = 0; f < g.nf; ++f)
        if (seen[size_t(f)])
            faces.push_back(f);
    out.resize(faces.size());
    const double sx = double(cam.rw) / cam.w, sy = double(cam.rh) / cam.h;
#pragma omp parallel for schedule(dynamic, 4096)
    for (long i = 0; i < long(faces.size()); ++i) {
        const long f = faces[size_t(i)];
        double u[3], v[3];
        for (int k = 0; k < 3; ++k) {
            double q[3];
            cam.toCamera(g.xyz + 3 * g.tri[3 * f + k], q);
            cam.pixel(q, u[k], v[k]);
        }
        const double px = 0.5 * std::fabs((u[1] - u[0]) * (v[2] - v[0]) - (v[1] - v[0]) * (u[2] - u[0]));
        Candidate& c = out[size_t(i)];
        c.face = uint32_t(f);
        c.quality = float(std::sqrt(px / std::max(double(g.area[size_t(f)]), 1e-30)));
        c.sharpness = 0;
        c.rgb[0] = c.rgb[1] = c.rgb[2] = 0;
        if (!rgb)
            continue;
        // Centre and the corners a third of the way in.
        double sum[3] = {0, 0, 0}, grad = 0;
        const double cu = (u[0] + u[1] + u[2]) / 3, cv_ = (v[0] + v[1] + v[2]) / 3;
        for (int s = 0; s < 4; ++s) {
            const double uu = s < 3 ? (2 * u[s] + cu) / 3 : cu, vv = s < 3 ? (2 * v[s] + cv_) / 3 : cv_;
            const int x = std::min(cam.rw - 1, std::max(0, int(uu * sx)));
            const int y = std::min(cam.rh - 1, std::max(0, int(vv * sy)));
            const cv::Vec3b& p = rgb->at<cv::Vec3b>(y, x);
            for (int k = 0; k < 3; ++k)
                sum[k] += p[k];
            grad += gradient->at<float>(y, x);
        }
        for (int k = 0; k < 3; ++k)
            c.rgb[k] = uint8_t(std::lround(sum[k] / 4));
        // Gradients per picture pixel: a shrunken raster shows steeper ones.
        c.sharpness = float(grad / 4 * cam.scale);
    }
}

} // namespace

void visibleFaces(const float* xyz, long vertexCount, const uint32_t* triangles, long faceCount, const CamInfo& info,
                  int rasterMaxSide, std::vector<uint8_t>& visible)
{
    const Geometry g = makeGeometry(xyz, vertexCount, triangles, faceCount);
    Camera cam(info);
    kvo::KvoRasterizer raster;
    findVisible(cam, g, rasterMaxSide, raster, visible);
}

long selectViews(const float* xyz, long nv, const uint32_t* tri, long nf, const std::vector<CamInfo>& cams,
                 const ViewSelectionOptions& opt, std::vector<int>& labels, ViewSelectionStats* stats,
                 kvo::IKvoProgress* progress)
{
    labels.assign(size_t(std::max(0L, nf)), -1);
    ViewSelectionStats st;
    st.faces = nf;
    if (!xyz || !tri || nv <= 0 || nf <= 0)
        return -1;
    for (long i = 0; i < 3 * nf; ++i)
        if (long(tri[i]) >= nv)
            return -1;
    const Geometry g = makeGeometry(xyz, nv, tri, nf);
    const size_t nc = cams.size();

    // Visibility and measures, one photograph after the other; the loops
    // inside run in parallel.
    std::vector<std::vector<Candidate>> perCam(nc);
    {
        kvo::KvoRasterizer raster;
        std::vector<uint8_t> seen;
        for (size_t i = 0; i < nc; ++i) {
            if (opt.cancelled && opt.cancelled())
                return -2;
            auto t0 = Clock::now();
            Camera cam(cams[i]);
            findVisible(cam, g, opt.rasterMaxSide, raster, seen);
            st.seconds[0] += secondsSince(t0);
            t0 = Clock::now();
            cv::Mat rgb, gradient;
            const bool picture = cam.rw > 0 && loadPicture(cams[i], cam, opt, i, rgb, gradient);
            measureCandidates(cam, g, seen, picture ? &rgb : nullptr, picture ? &gradient : nullptr, perCam[i]);
            st.seconds[1] += secondsSince(t0);
            kvo::prgStep(progress, 0.6 / double(nc));
        }
    }

    auto t1 = Clock::now();
    // Candidates by face, in compressed rows.
    std::vector<uint32_t> start(size_t(nf) + 1, 0);
    for (const auto& list : perCam)
        for (const Candidate& c : list)
            ++start[c.face + 1];
    for (long f = 0; f < nf; ++f)
        start[size_t(f) + 1] += start[size_t(f)];
    struct Ref {
        uint32_t cam;
        uint32_t index;
    };
    std::vector<Ref> byFace(start.back());
    {
        std::vector<uint32_t> fill(start.begin(), start.end() - 1);
        for (size_t i = 0; i < nc; ++i)
            for (size_t k = 0; k < perCam[i].size(); ++k)
                byFace[fill[perCam[i][k].face]++] = {uint32_t(i), uint32_t(k)};
    }
    std::vector<uint8_t> dropped(byFace.size(), 0);

    // Photo-consistency: with three views or more, a view whose colour lies far
    // from the median of all is something in front of the face, not the face.
    long outliers = 0;
    if (opt.photoConsistency) {
#pragma omp parallel for schedule(dynamic, 4096) reduction(+ : outliers)
        for (long f = 0; f < nf; ++f) {
            const uint32_t b = start[size_t(f)], e = start[size_t(f) + 1];
            if (e - b < 3)
                continue;
            float med[3];
            std::vector<float> tmp(e - b), dist(e - b);
            for (int k = 0; k < 3; ++k) {
                for (uint32_t j = b; j < e; ++j)
                    tmp[j - b] = perCam[byFace[j].cam][byFace[j].index].rgb[k];
                std::nth_element(tmp.begin(), tmp.begin() + (e - b) / 2, tmp.end());
                med[k] = tmp[(e - b) / 2];
            }
            for (uint32_t j = b; j < e; ++j) {
                const uint8_t* c = perCam[byFace[j].cam][byFace[j].index].rgb;
                dist[j - b] = (std::fabs(c[0] - med[0]) + std::fabs(c[1] - med[1]) + std::fabs(c[2] - med[2])) / 3;
            }
            tmp = dist;
            std::nth_element(tmp.begin(), tmp.begin() + (e - b) / 2, tmp.end());
            const float limit = std::max(30.f, 3.f * 1.4826f * tmp[(e - b) / 2]);
            for (uint32_t j = b; j < e; ++j)
                if (dist[j - b] > limit) {
                    dropped[j] = 1;
                    ++outliers;
                }
        }
    }
    st.outliers = outliers;

    // Data costs: resolution, weighed by the sharpness relative to the face's
    // sharpest view, scaled by a high percentile of all so that costs mean
    // the same everywhere on the model.
    std::vector<float> q(byFace.size(), 0.f);
#pragma omp parallel for schedule(static)
    for (long f = 0; f < nf; ++f) {
        const uint32_t b = start[size_t(f)], e = start[size_t(f) + 1];
        float sharpest = 0;
        for (uint32_t j = b; j < e; ++j)
            if (!dropped[j])
                sharpest = std::max(sharpest, perCam[byFace[j].cam][byFace[j].index].sharpness);
        for (uint32_t j = b; j < e; ++j) {
            if (dropped[j])
                continue;
            const Candidate& c = perCam[byFace[j].cam][byFace[j].index];
            const float rel = sharpest > 0 ? c.sharpness / sharpest : 1.f;
            q[j] = c.quality * (0.5f + 0.5f * rel);
        }
    }
    float qRef = 0;
    {
        std::vector<float> all;
        all.reserve(q.size());
        for (size_t j = 0; j < q.size(); ++j)
            if (!dropped[j] && q[j] > 0)
                all.push_back(q[j]);
        if (!all.empty()) {
            const size_t k = size_t(0.95 * double(all.size() - 1));
            std::nth_element(all.begin(), all.begin() + long(k), all.end());
            qRef = all[k];
        }
    }
    const int cmax = std::max(1, opt.maxDataCost);
    std::vector<int> cost(byFace.size(), -1); // -1: not a candidate
    std::vector<int> greedy(size_t(nf), -1);
    for (long f = 0; f < nf; ++f) {
        int best = -1, bestCost = 0;
        float bestQ = 0;
        for (uint32_t j = start[size_t(f)]; j < start[size_t(f) + 1]; ++j) {
            if (dropped[j] || !(q[j] > 0))
                continue;
            cost[j] = int(std::lround(cmax * (1.0 - std::min(1.0, double(q[j]) / qRef))));
            if (best < 0 || cost[j] < bestCost || (cost[j] == bestCost && q[j] > bestQ)) {
                best = int(byFace[j].cam);
                bestCost = cost[j];
                bestQ = q[j];
            }
        }
        greedy[size_t(f)] = best;
        st.candidates += best >= 0;
    }
    st.seconds[1] += secondsSince(t1);
    if (opt.cancelled && opt.cancelled())
        return -2;

    // The labelling: label 0 leaves a face unmapped, label i + 1 is camera i.
    auto t2 = Clock::now();
    labels = greedy;
    std::vector<uint32_t> nbStart, nb;
    kvo::faceEdgeNeighbours(tri, nf, nbStart, nb);
    if (opt.optimise && st.candidates > 0 && nc > 0) {
        // Edge weights grow with the shared edge's length: a long seam shows more.
        double lenSum = 0;
        long lenCount = 0;
        auto edgeLength = [&](long f, long h) {
            uint32_t shared[2];
            int n = 0;
            for (int a = 0; a < 3 && n < 2; ++a)
                for (int b = 0; b < 3; ++b)
                    if (tri[3 * f + a] == tri[3 * h + b]) {
                        shared[n++] = tri[3 * f + a];
                        break;
                    }
            if (n < 2)
                return 0.0;
            const float* p = xyz + 3 * shared[0];
            const float* r = xyz + 3 * shared[1];
            return std::sqrt(double(p[0] - r[0]) * (p[0] - r[0]) + double(p[1] - r[1]) * (p[1] - r[1]) +
                             double(p[2] - r[2]) * (p[2] - r[2]));
        };
        for (long f = 0; f < nf; f += std::max(1L, nf / 20000))
            for (uint32_t i = nbStart[size_t(f)]; i < nbStart[size_t(f) + 1]; ++i) {
                lenSum += edgeLength(f, long(nb[i]));
                ++lenCount;
            }
        const double meanLen = lenCount ? lenSum / double(lenCount) : 1.0;
        const int wMax = 3 * opt.smoothness;
        // Leaving a seen face unmapped never pays: it costs more than any view
        // plus every seam around it.
        const int noneCost = cmax + 3 * wMax + 1;
        try {
            GCoptimizationGeneralGraph gc(GCoptimization::SiteID(nf), GCoptimization::LabelID(nc + 1));
            std::vector<std::vector<GCoptimization::SparseDataCost>> sparse(nc + 1);
            sparse[0].resize(size_t(nf));
            for (long f = 0; f < nf; ++f)
                sparse[0][size_t(f)] = {GCoptimization::SiteID(f),
                                        GCoptimization::EnergyTermType(greedy[size_t(f)] < 0 ? 0 : noneCost)};
            for (long f = 0; f < nf; ++f)
                for (uint32_t j = start[size_t(f)]; j < start[size_t(f) + 1]; ++j)
                    if (cost[j] >= 0)
                        sparse[byFace[j].cam + 1].push_back({GCoptimization::SiteID(f), cost[j]});
            for (size_t l = 0; l <= nc; ++l)
                if (!sparse[l].empty())
                    gc.setDataCost(GCoptimization::LabelID(l), sparse[l].data(),
                                   GCoptimization::SiteID(sparse[l].size()));
            for (long f = 0; f < nf; ++f)
                for (uint32_t i = nbStart[size_t(f)]; i < nbStart[size_t(f) + 1]; ++i) {
                    const long h = long(nb[i]);
                    if (h <= f)
                        continue;
                    const double len = edgeLength(f, h);
                    const int w = std::max(1, std::min(wMax, int(std::lround(opt.smoothness * len / meanLen))));
                    gc.setNeighbors(GCoptimization::SiteID(f), GCoptimization::SiteID(h), w);
                }
            for (long f = 0; f < nf; ++f)
                gc.setLabel(GCoptimization::SiteID(f), GCoptimization::LabelID(greedy[size_t(f)] + 1));
            st.energy = gc.expansion(opt.cycles);
            for (long f = 0; f < nf; ++f)
                labels[size_t(f)] = int(gc.whatLabel(GCoptimization::SiteID(f))) - 1;
        } catch (const GCException&) {
            // The greedy choice stands: every face still gets its best view.
            labels = greedy;
        }
    }
    st.seconds[2] = secondsSince(t2);

    // Statistics.
    double costSum = 0;
    for (long f = 0; f < nf; ++f) {
        const int l = labels[size_t(f)];
        if (l < 0)
            continue;
        ++st.textured;
        for (uint32_t j = start[size_t(f)]; j < start[size_t(f) + 1]; ++j)
            if (int(byFace[j].cam) == l)
                costSum += std::max(0, cost[j]);
        for (uint32_t i = nbStart[size_t(f)]; i < nbStart[size_t(f) + 1]; ++i) {
            const long h = long(nb[i]);
            st.seams += h > f && labels[size_t(h)] >= 0 && labels[size_t(h)] != l;
        }
    }
    st.meanDataCost = st.textured ? costSum / double(st.textured) : 0.0;
    if (stats)
        *stats = st;
    return 0;
}

long selBestImgForFace(const std::vector<meshPoint3<float>>& vertices, const std::vector<meshPoint3<long>>& faces,
                       const std::map<uint16_t, CamInfo>& images,
                       std::map<uint16_t, std::vector<int32_t>>& facesOfImage, const ViewSelectionOptions& options,
                       ViewSelectionStats* stats, kvo::IKvoProgress* progress)
{
    facesOfImage.clear();
    std::vector<uint32_t> tri(3 * faces.size());
    for (size_t f = 0; f < faces.size(); ++f) {
        const long idx[3] = {faces[f].x, faces[f].y, faces[f].z};
        for (int k = 0; k < 3; ++k) {
            if (idx[k] < 0 || size_t(idx[k]) >= vertices.size())
                return -1;
            tri[3 * f + size_t(k)] = uint32_t(idx[k]);
        }
    }
    std::vector<CamInfo> cams;
    std::vector<uint16_t> ids;
    for (const auto& e : images) {
        cams.push_back(e.second);
        ids.push_back(e.first);
    }
    std::vector<int> labels;
    static_assert(sizeof(meshPoint3<float>) == 3 * sizeof(float), "vertices are packed");
    const long r = selectViews(reinterpret_cast<const float*>(vertices.data()), long(vertices.size()), tri.data(),
                               long(faces.size()), cams, options, labels, stats, progress);
    if (r != 0)
        return r;
    for (size_t f = 0; f < labels.size(); ++f)
        if (labels[f] >= 0)
            facesOfImage[ids[size_t(labels[f])]].push_back(int32_t(f));
    return 0;
}

} // namespace RecMesh
} // namespace Rec3D

#include "mapping/KvoDlt.h"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <set>

#include "scene/KvoStore.h"

namespace kvo {

namespace {

// Gauss-Jordan with full pivoting, in place. A pivot whose size falls below
// relTol times the largest element of the input counts as zero: the exact
// test alone lets a matrix that is singular but for rounding through with
// huge, meaningless values.
template <class T> bool gaussJordan(T* a, int n, double relTol, bool report)
{
    if (n < 1)
        return false;
    std::vector<int> pivRow, pivCol;
    try {
        pivRow.resize(size_t(n));
        pivCol.resize(size_t(n));
    } catch (...) {
        std::printf("out of memory!\n");
        return false;
    }
    double scale = 0;
    for (int i = 0; i < n * n; ++i)
        scale = std::max(scale, double(std::abs(a[i])));
    const double limit = relTol * scale;
    for (int k = 0; k < n; ++k) {
        T best = 0;
        int pr = k, pc = k;
        for (int i = k; i < n; ++i)
            for (int j = k; j < n; ++j)
                if (std::abs(a[i * n + j]) > best) {
                    best = std::abs(a[i * n + j]);
                    pr = i;
                    pc = j;
                }
        if (best == 0 || !(double(best) > limit) || !std::isfinite(double(best))) {
            if (report)
                std::printf("invert is not availble!\n");
            return false;
        }
        pivRow[size_t(k)] = pr;
        pivCol[size_t(k)] = pc;
        if (pr != k)
            for (int j = 0; j < n; ++j)
                std::swap(a[k * n + j], a[pr * n + j]);
        if (pc != k)
            for (int i = 0; i < n; ++i)
                std::swap(a[i * n + k], a[i * n + pc]);
        a[k * n + k] = T(1) / a[k * n + k];
        const T d = a[k * n + k];
        for (int j = 0; j < n; ++j)
            if (j != k)
                a[k * n + j] *= d;
        for (int i = 0; i < n; ++i) {
            if (i == k)
                continue;
            const T f = a[i * n + k];
            if (f == 0)
                continue;
            for (int j = 0; j < n; ++j)
                if (j != k)
                    a[i * n + j] -= a[k * n + j] * f;
        }
        for (int i = 0; i < n; ++i)
            if (i != k)
                a[i * n + k] = -d * a[i * n + k];
    }
    for (int k = n - 1; k >= 0; --k) {
        const int pr = pivRow[size_t(k)], pc = pivCol[size_t(k)];
        if (pc != k)
            for (int j = 0; j < n; ++j)
                std::swap(a[k * n + j], a[pc * n + j]);
        if (pr != k)
            for (int i = 0; i < n; ++i)
                std::swap(a[i * n + k], a[i * n + pr]);
    }
    return true;
}

// Solves the symmetric system N x = r through the inverse, after scaling
// N to a unit diagonal so that columns of very different size (X of a
// georeferenced model next to the constant 1) do not swamp each other.
bool solveNormal(double* N, double* r, int n, double* x)
{
    std::vector<double> s(static_cast<size_t>(n));
    for (int j = 0; j < n; ++j) {
        const double d = N[j * n + j];
        if (!(d > 0) || !std::isfinite(d))
            return false;
        s[size_t(j)] = 1.0 / std::sqrt(d);
    }
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            N[i * n + j] *= s[size_t(i)] * s[size_t(j)];
    if (!gaussJordan(N, n, 1e-13, false))
        return false;
    for (int i = 0; i < n; ++i) {
        double acc = 0;
        for (int j = 0; j < n; ++j)
            acc += N[i * n + j] * s[size_t(j)] * r[j];
        x[i] = acc * s[size_t(i)];
        if (!std::isfinite(x[i]))
            return false;
    }
    return true;
}

// The 15-bit draws of the search.
struct DltRandom {
    std::atomic<bool> fixed{false};
    std::atomic<unsigned> fixedSeed{0};
    unsigned state = 1;
    void seed(unsigned s) { state = s; }
    int next()
    {
        state = state * 214013u + 2531011u;
        return int((state >> 16) & 0x7fff);
    }
};

DltRandom& dltRandom()
{
    static DltRandom r;
    return r;
}

double pixelDistance(const double* L, const CtrlPnt5d& s, int width, int height)
{
    const XPnt2d p = camWorldPntToImgPos(L, s.X, s.Y, s.Z);
    const double du = (s.u - p.x) * width, dv = (s.v - p.y) * height;
    return std::sqrt(du * du + dv * dv);
}

} // namespace

bool invertGaussJordan(double* a, int n)
{
    return gaussJordan(a, n, 0.0, true);
}

bool invertGaussJordan(float* a, int n)
{
    return gaussJordan(a, n, 0.0, true);
}

void setDltRandomSeed(unsigned seed)
{
    dltRandom().fixedSeed = seed;
    dltRandom().fixed = true;
}

void clearDltRandomSeed()
{
    dltRandom().fixed = false;
}

XPnt2d camWorldPntToImgPos(const double* L, double X, double Y, double Z)
{
    const double D = L[8] * X + L[9] * Y + L[10] * Z + 1;
    if (D == 0 || !std::isfinite(D))
        return XPnt2d::invalidPnt();
    return XPnt2d(-(L[0] * X + L[1] * Y + L[2] * Z + L[3]) / D, -(L[4] * X + L[5] * Y + L[6] * Z + L[7]) / D);
}

long DLTSimple(std::vector<XPnt3d>& world, std::vector<XPnt2d>& image, double* L)
{
    const size_t n = std::min(world.size(), image.size());
    if (n == 0)
        return kvoDltSingular;
    // World points centred and scaled to unit mean distance: the normal
    // equations then stay well conditioned for models far from the origin.
    // The parameters are mapped back, so L keeps its meaning.
    XPnt3d c(0, 0, 0);
    for (size_t i = 0; i < n; ++i)
        c = c + world[i];
    c = c * (1.0 / double(n));
    double s = 0;
    for (size_t i = 0; i < n; ++i) {
        const XPnt3d d = world[i] - c;
        s += std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
    }
    s /= double(n);
    if (!(s > 0) || !std::isfinite(s))
        return kvoDltSingular;
    const double is = 1.0 / s;

    double N[121] = {0}, r[11] = {0};
    for (size_t i = 0; i < n; ++i) {
        const double X = (world[i].x - c.x) * is, Y = (world[i].y - c.y) * is, Z = (world[i].z - c.z) * is;
        const double u = image[i].x, v = image[i].y;
        const double rowU[11] = {X, Y, Z, 1, 0, 0, 0, 0, u * X, u * Y, u * Z};
        const double rowV[11] = {0, 0, 0, 0, X, Y, Z, 1, v * X, v * Y, v * Z};
        for (int a = 0; a < 11; ++a) {
            r[a] += rowU[a] * -u + rowV[a] * -v;
            for (int b = a; b < 11; ++b)
                N[a * 11 + b] += rowU[a] * rowU[b] + rowV[a] * rowV[b];
        }
    }
    for (int a = 0; a < 11; ++a)
        for (int b = 0; b < a; ++b)
            N[a * 11 + b] = N[b * 11 + a];
    double p[11];
    if (!solveNormal(N, r, 11, p))
        return kvoDltSingular;
    // Back from X' = (X - c) / s.
    const double cu = (p[0] * c.x + p[1] * c.y + p[2] * c.z) * is;
    const double cv = (p[4] * c.x + p[5] * c.y + p[6] * c.z) * is;
    const double cd = (p[8] * c.x + p[9] * c.y + p[10] * c.z) * is;
    const double k = 1 - cd;
    if (std::abs(k) < 1e-300 || !std::isfinite(k))
        return kvoDltSingular;
    double out[11];
    for (int j = 0; j < 3; ++j) {
        out[j] = p[j] * is / k;
        out[4 + j] = p[4 + j] * is / k;
        out[8 + j] = p[8 + j] * is / k;
    }
    out[3] = (p[3] - cu) / k;
    out[7] = (p[7] - cv) / k;
    for (double v : out)
        if (!std::isfinite(v))
            return kvoDltSingular;
    std::copy(out, out + 11, L);
    return kvoDltOk;
}

long DLTSimple(ref_ptr<Pnt3dArray>& world, ref_ptr<Pnt2dArray>& image, double* L)
{
    std::vector<XPnt3d> w = world ? world->vec() : std::vector<XPnt3d>();
    std::vector<XPnt2d> i = image ? image->vec() : std::vector<XPnt2d>();
    return DLTSimple(w, i, L);
}

// ---------------------------------------------------------------- estimator

double DLTParamEstimator::pixelError(const std::vector<double>& params, const CtrlPnt5d& s) const
{
    return pixelDistance(params.data(), s, imageWidth, imageHeight);
}

int DLTParamEstimator::estimate(std::vector<CtrlPnt5d*>& samples, std::vector<double>& params)
{
    return leastSquaresEstimate(samples, params);
}

int DLTParamEstimator::leastSquaresEstimate(std::vector<CtrlPnt5d*>& samples, std::vector<double>& params)
{
    if (samples.size() < 7)
        return -1;
    params.clear();
    std::vector<XPnt3d> world;
    std::vector<XPnt2d> image;
    world.reserve(samples.size());
    image.reserve(samples.size());
    for (const CtrlPnt5d* s : samples) {
        world.emplace_back(s->X, s->Y, s->Z);
        image.emplace_back(s->u, s->v);
    }
    double L[11];
    if (DLTSimple(world, image, L) != kvoDltOk)
        return -1;
    params.assign(L, L + 11);
    return 0;
}

bool DLTParamEstimator::agree(std::vector<double>& params, CtrlPnt5d& sample)
{
    if (params.size() < 11)
        return false;
    // NaN compares false: a point that does not project never agrees.
    return pixelError(params, sample) < threshold;
}

double DLTParamEstimator::residual(std::vector<CtrlPnt5d*>& samples, std::vector<double>& params)
{
    if (params.size() < 11 || samples.empty())
        return std::numeric_limits<double>::quiet_NaN();
    const double count = double(samples.size());
    double sum = 0;
    for (const CtrlPnt5d* s : samples)
        sum += pixelError(params, *s) / count;
    return sum;
}

// ---------------------------------------------------------------- search

double ransacDltSearch(ParameterEstimator<CtrlPnt5d, double>& est, std::vector<CtrlPnt5d>& data, int k, double p,
                       double w, std::vector<double>& params, std::vector<bool>& votesOut)
{
    const int n = int(data.size());
    votesOut.assign(size_t(n), false);
    if (n < k || w >= 1 || k < 1)
        return 0.0;
    DltRandom& rng = dltRandom();
    rng.seed(rng.fixed ? rng.fixedSeed.load() : unsigned(std::time(nullptr)));

    const double numerator = std::log(1 - p);
    auto triesFor = [&](double share) { return int(numerator / std::log(1 - std::pow(1 - share, k)) + 0.5); };
    int tries = triesFor(w);
    double kFact = 1;
    for (int j = 2; j <= k; ++j)
        kFact *= j;
    double product = 1;
    for (int j = 0; j < k && product < double(tries) * kFact; ++j)
        product *= double(n - j);
    const double allSubsets = product / kFact;

    int bestVotes = -1;
    double bestResidual = std::numeric_limits<double>::infinity();
    std::vector<bool> chosen(static_cast<size_t>(n)), votes(static_cast<size_t>(n));
    std::set<std::vector<int>> seen;
    std::vector<CtrlPnt5d*> sample, agreeing;
    std::vector<double> model, fitted;
    for (int i = 0; i < tries;) {
        std::fill(chosen.begin(), chosen.end(), false);
        std::vector<int> subset;
        int maxIndex = n - 1;
        for (int l = 0; l < k; ++l, --maxIndex) {
            const int selected = int(float(rng.next()) / 32767.0f * float(maxIndex) + 0.5f);
            int free = -1;
            for (int j = 0; j < n; ++j)
                if (!chosen[size_t(j)] && ++free == selected) {
                    chosen[size_t(j)] = true;
                    subset.push_back(j + 1);
                    break;
                }
        }
        std::sort(subset.begin(), subset.end());
        if (!seen.insert(subset).second) {
            if (double(seen.size()) >= allSubsets)
                break;
            continue;
        }
        ++i;
        sample.clear();
        for (int idx : subset)
            sample.push_back(&data[size_t(idx - 1)]);
        model.clear();
        est.estimate(sample, model);
        int count = 0;
        agreeing.clear();
        for (int j = 0; j < n; ++j) {
            votes[size_t(j)] = est.agree(model, data[size_t(j)]);
            if (votes[size_t(j)]) {
                ++count;
                agreeing.push_back(&data[size_t(j)]);
            }
        }
        bool leave = false;
        if (count == bestVotes) {
            double res = std::numeric_limits<double>::quiet_NaN();
            if (est.leastSquaresEstimate(agreeing, fitted) >= 0)
                res = est.residual(agreeing, fitted);
            if (std::isfinite(res) && res < bestResidual) {
                bestResidual = res;
                votesOut = votes;
                leave = count == n;
            } else if (bestVotes == n) {
                break;
            }
        } else if (count > bestVotes) {
            if (est.leastSquaresEstimate(agreeing, fitted) < 0)
                continue;
            const double res = est.residual(agreeing, fitted);
            // A model whose residual is not a number is no model.
            if (!std::isfinite(res))
                continue;
            bestResidual = res;
            bestVotes = count;
            votesOut = votes;
            leave = count == n;
        }
        if (leave)
            break;
        const double share = 1 - double(count) / double(n);
        if (share < w) {
            w = share;
            tries = triesFor(w);
        }
    }
    agreeing.clear();
    for (int j = 0; j < n; ++j)
        if (votesOut[size_t(j)])
            agreeing.push_back(&data[size_t(j)]);
    params.clear();
    if (est.leastSquaresEstimate(agreeing, params) < 0)
        return -1.0;
    const double res = est.residual(agreeing, params);
    return std::isfinite(res) ? res : -1.0;
}

// ---------------------------------------------------------------- fitter

double CDltFitter::fitPoints(ref_ptr<Pnt2dArray> image, ref_ptr<Pnt3dArray> world, PT2<long> imageSize, double* L,
                             int pixelThreshold, bool removeOutliers)
{
    if (!image || !world || !L)
        return -1.0;
    const long n = std::min(image->getCount(), world->getCount());
    if (n < 7)
        return -1.0;
    std::vector<CtrlPnt5d> data(static_cast<size_t>(n));
    for (long i = 0; i < n; ++i) {
        const XPnt2d& p = image->vec()[size_t(i)];
        const XPnt3d& q = world->vec()[size_t(i)];
        data[size_t(i)] = {p.x, p.y, q.x, q.y, q.z};
    }
    DLTParamEstimator est(double(pixelThreshold), int(imageSize.y), int(imageSize.x));
    std::vector<double> params;
    std::vector<bool> votes;
    double residual = -1.0;
    try {
        residual = ransacDltSearch(est, data, 7, 0.999, 0.4, params, votes);
    } catch (...) {
        return -1.0;
    }
    if (params.size() != 11)
        return -1.0;
    std::vector<XPnt2d> keptImage;
    std::vector<XPnt3d> keptWorld;
    for (long i = 0; i < n; ++i)
        if (votes[size_t(i)]) {
            keptImage.push_back(image->vec()[size_t(i)]);
            keptWorld.push_back(world->vec()[size_t(i)]);
        }
    if (removeOutliers) {
        image->vec() = keptImage;
        world->vec() = keptWorld;
    }
    if (!std::isfinite(residual) || residual < 0 || residual > pixelThreshold || keptImage.size() < 7)
        return -1.0;
    std::copy(params.begin(), params.end(), L);
    // Callers read a result above 0 as a usable fit; an exact one is usable too.
    return residual > 0 ? residual : std::numeric_limits<double>::denorm_min();
}

double CDltFitter::fitImage(long imageId, double* L, int pixelThreshold, bool removeOutliers)
{
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    if (!mm->getProject(project) || !project->getImageDb(db) || !db->getImageInfo(info, imageId) || !info)
        return -1.0;
    ref_ptr<Pnt2dArray> image;
    ref_ptr<Pnt3dArray> world;
    info->getCtrlImagePnts(image);
    info->getCtrlWorldPnts(world);
    XPnt2i size;
    info->getImageSize(size, 1);
    const long before = image ? image->getCount() : 0;
    const double r = fitPoints(image, world, PT2<long>(size.x, size.y), L, pixelThreshold, removeOutliers);
    if (removeOutliers && image && image->getCount() != before)
        mm->setDirty(true);
    return r;
}

double DLTRobust(ref_ptr<Pnt3dArray>& world, ref_ptr<Pnt2dArray>& image, double* L, PT2<long> imageSize)
{
    return CDltFitter().fitPoints(image, world, imageSize, L, 3, false);
}

double DLTRobust(std::vector<XPnt3d>& world, std::vector<XPnt2d>& image, double* L, PT2<long> imageSize)
{
    ref_ptr<Pnt3dArray> w = newPnt3dArray();
    ref_ptr<Pnt2dArray> i = newPnt2dArray();
    w->vec() = world;
    i->vec() = image;
    return DLTRobust(w, i, L, imageSize);
}

// ---------------------------------------------------------------- camera values

void calCameraPramsBy11DLTPrams(double* L, int countL, double* camera, int countCamera)
{
    if (!L || !camera || countL < 11 || countCamera < 10)
        return;
    const double Q = L[8] * L[8] + L[9] * L[9] + L[10] * L[10];
    const double r = 1 / Q, sq = std::sqrt(Q), sr = std::sqrt(r);
    const double x0 = -(L[0] * L[8] + L[1] * L[9] + L[2] * L[10]) / Q;
    const double y0 = -(L[4] * L[8] + L[5] * L[9] + L[6] * L[10]) / Q;
    const double A = (L[0] * L[0] + L[1] * L[1] + L[2] * L[2]) * r - x0 * x0;
    const double C = (L[4] * L[4] + L[5] * L[5] + L[6] * L[6]) * r - y0 * y0;
    const double B = (L[4] * L[0] + L[5] * L[1] + L[6] * L[2]) * r - y0 * x0;
    const double theta = std::asin(std::sqrt(B * B / A / C));
    const double s = std::sqrt(A / C);
    const double fx = std::sqrt(A) * std::cos(theta);
    const double fy = fx / s;
    const double a3 = L[8] / sq, b3 = L[9] / sq, c3 = L[10] / sq;
    const double b2 = (sr * L[5] + b3 * y0) * s * std::cos(theta) / fx;
    const double b1 = (std::tan(theta) * b2 * fx + sr * L[1] + b3 * x0) / fx;
    camera[0] = x0;
    camera[1] = y0;
    camera[2] = fx;
    camera[3] = fy;
    camera[4] = std::atan(-a3 / c3);
    camera[5] = std::asin(-b3);
    camera[6] = std::atan(b1 / b2);
    matrix<double> M(3, 3), rhs(3, 1);
    const int rows[3] = {0, 4, 8};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            M.set(i, j, L[rows[i] + j]);
    }
    rhs.set(0, 0, -L[3]);
    rhs.set(1, 0, -L[7]);
    rhs.set(2, 0, -1);
    bool ok = false;
    const matrix<double> centre = M.inverse(&ok) * rhs;
    for (int i = 0; i < 3; ++i)
        camera[7 + i] = ok ? centre(i, 0) : std::numeric_limits<double>::quiet_NaN();
}

// ---------------------------------------------------------------- affine

namespace {

template <class P> bool affineLeastSquares(const std::vector<P>& from, const std::vector<P>& to, matrix<double>& m)
{
    const size_t n = std::min(from.size(), to.size());
    double N[36] = {0}, r[6] = {0};
    for (size_t i = 0; i < n; ++i) {
        const double x = from[i].x, y = from[i].y;
        const double a[6] = {x, y, 1, 0, 0, 0}, b[6] = {0, 0, 0, x, y, 1};
        for (int p = 0; p < 6; ++p) {
            r[p] += a[p] * to[i].x + b[p] * to[i].y;
            for (int q = 0; q < 6; ++q)
                N[p * 6 + q] += a[p] * a[q] + b[p] * b[q];
        }
    }
    double x[6];
    if (!solveNormal(N, r, 6, x))
        return false;
    matrix<double> out(2, 3);
    for (int j = 0; j < 3; ++j) {
        out.set(0, j, x[j]);
        out.set(1, j, x[3 + j]);
    }
    m = out;
    return true;
}

} // namespace

bool calcAffineMatrix(ref_ptr<Pnt2dArray> from, ref_ptr<Pnt2dArray> to, matrix<double>& m)
{
    return from && to && affineLeastSquares(from->vec(), to->vec(), m);
}

bool calcAffineMatrix(ref_ptr<Pnt2fArray> from, ref_ptr<Pnt2fArray> to, matrix<double>& m)
{
    return from && to && affineLeastSquares(from->vec(), to->vec(), m);
}

XPnt3d calcAffinePnt(matrix<double>& m, XPnt3d p)
{
    if (!m.data || m.rows < 2 || m.cols < 3)
        return XPnt3d::invalidPnt();
    return XPnt3d(m(0, 0) * p.x + m(0, 1) * p.y + m(0, 2), m(1, 0) * p.x + m(1, 1) * p.y + m(1, 2), p.z);
}

XPnt3f calcAffinePnt(matrix<double>& m, XPnt3f p)
{
    const XPnt3d q = calcAffinePnt(m, XPnt3d(p.x, p.y, p.z));
    return XPnt3f(float(q.x), float(q.y), float(q.z));
}

bool getAffineTransformationMatrix(const ref_ptr<Pnt2fArray>& from, const ref_ptr<Pnt2fArray>& to, matrix<float>& m)
{
    if (!from || !to || from->getCount() < 3 || to->getCount() < 3)
        return false;
    float M[9], R[6];
    for (int i = 0; i < 3; ++i) {
        const XPnt2f& a = from->vec()[size_t(i)];
        const XPnt2f& b = to->vec()[size_t(i)];
        M[i * 3] = a.x;
        M[i * 3 + 1] = a.y;
        M[i * 3 + 2] = 1;
        R[i * 2] = b.x;
        R[i * 2 + 1] = b.y;
    }
    if (!gaussJordan(M, 3, 1e-6, false))
        return false;
    matrix<float> out(3, 2);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 2; ++j)
            out.set(i, j, M[i * 3] * R[j] + M[i * 3 + 1] * R[2 + j] + M[i * 3 + 2] * R[4 + j]);
    m = out;
    return true;
}

bool calcAffineTransformationCoord(const matrix<float>& m, float x, float y, float& outX, float& outY)
{
    outX = m.get(0, 0) * x + m.get(1, 0) * y + m.get(2, 0);
    outY = m.get(0, 1) * x + m.get(1, 1) * y + m.get(2, 1);
    return true;
}

// ---------------------------------------------------------------- store hook

namespace {

// The model manager forms an image's DLT parameters: the ones stored with
// the project when a mapping kept them, else a fit of the control points.
bool solveImageDlt(long imageId, double* L)
{
    QByteArray stored;
    if (getMM()->getProjectBlob("ZebCtrlPntMapping", QString("%1_DLTParam").arg(imageId), stored) &&
        stored.size() == 11 * int(sizeof(double))) {
        std::memcpy(L, stored.constData(), 11 * sizeof(double));
        return true;
    }
    return CDltFitter().fitImage(imageId, L, 3, false) > 0;
}

struct RegisterDltSolver {
    RegisterDltSolver() { getMM()->setDltSolver(&solveImageDlt); }
} g_registerDltSolver;

} // namespace

} // namespace kvo

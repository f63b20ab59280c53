#include "autotexture/KvoColorModel.h"

#include <QDir>
#include <QFileInfo>
#include <QObject>

#include <Eigen/IterativeLinearSolvers>
#include <Eigen/SparseCholesky>
#include <Eigen/SparseCore>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <unordered_map>

#include "modelio/KvoMeshRepair.h"
#include "scene/KvoMeshAdjacency.h"
#include "scene/KvoStore.h"

namespace Rec3D {
namespace RecMesh {

namespace {

using Clock = std::chrono::steady_clock;
using SpMat = Eigen::SparseMatrix<double>;
using Triplet = Eigen::Triplet<double>;

double since(Clock::time_point t0)
{
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

// Pixel values are taken as a pure power law of linear light: a gain in
// linear light is then a gain of the pixel values by its 1/gamma power, so
// the model is fitted in log linear light and applied to the values directly.
constexpr double kGamma = 2.2;
// Samples brighter than this on any channel may be clipped, darker ones carry
// too little signal for a ratio.
constexpr float kClipHigh = 250.0f, kClipLow = 3.0f;
// Samples along a seam edge at most (a long edge seen huge in one picture).
constexpr int kMaxSamplesPerEdge = 2048;
// Decoded pictures kept from the sampling pass for the applying pass, at most.
constexpr size_t kKeptBytes = size_t(3) << 29;

// One edge where two patches meet, seen from both sides.
struct SeamEdge {
    int32_t patch[2];
    int32_t face[2];
    uint16_t image[2];
    // Pixel positions of the edge's two ends on each side.
    float end[2][2][2]; // [side][end][x or y]
    uint32_t vertex[2];
    // The offset unknowns of the ends on each side.
    int32_t unknown[2][2]; // [side][end]
    uint32_t firstSample = 0, sampleCount = 0;
};

// What one side of one sample read.
struct SideSample {
    float c[3];
    bool ok;
};

struct Patch {
    uint16_t image;
    std::vector<int32_t> faces;
};

// Bilinear read of an RGBA picture at a continuous pixel position (pixel
// centres at half integers); false outside, where a neighbour is not opaque,
// or where the value may be clipped.
bool readSample(const cv::Mat& blurred, const cv::Mat& original, float x, float y, float out[3])
{
    const float fx = x - 0.5f, fy = y - 0.5f;
    const int x0 = int(std::floor(fx)), y0 = int(std::floor(fy));
    if (x0 < 0 || y0 < 0 || x0 + 1 >= blurred.cols || y0 + 1 >= blurred.rows)
        return false;
    const float ax = fx - float(x0), ay = fy - float(y0);
    const float w[4] = {(1 - ax) * (1 - ay), ax * (1 - ay), (1 - ax) * ay, ax * ay};
    const uint8_t* p[4] = {blurred.ptr<uint8_t>(y0) + 4 * x0, blurred.ptr<uint8_t>(y0) + 4 * (x0 + 1),
                           blurred.ptr<uint8_t>(y0 + 1) + 4 * x0, blurred.ptr<uint8_t>(y0 + 1) + 4 * (x0 + 1)};
    const uint8_t* q[4] = {original.ptr<uint8_t>(y0) + 4 * x0, original.ptr<uint8_t>(y0) + 4 * (x0 + 1),
                           original.ptr<uint8_t>(y0 + 1) + 4 * x0, original.ptr<uint8_t>(y0 + 1) + 4 * (x0 + 1)};
    for (int k = 0; k < 4; ++k)
        if (q[k][3] != 255)
            return false;
    for (int c = 0; c < 3; ++c) {
        out[c] = w[0] * p[0][c] + w[1] * p[1][c] + w[2] * p[2][c] + w[3] * p[3][c];
        if (out[c] >= kClipHigh || out[c] <= kClipLow)
            return false;
    }
    return true;
}

double median(std::vector<double>& v)
{
    if (v.empty())
        return 0;
    const size_t mid = v.size() / 2;
    std::nth_element(v.begin(), v.begin() + long(mid), v.end());
    return v[mid];
}

// Jacobi plus a coarse correction on groups of unknowns (the patches): the
// level of a whole patch is what a diagonal preconditioner alone takes
// thousands of iterations to find, since only its seams tie it down.
// z = D^-1 r + P (P^T A P)^-1 P^T r, with P the indicator of the groups, is
// symmetric positive definite as the sum of two such operators.
class GroupPreconditioner {
public:
    // The group of every unknown, 0 to groups - 1, and optionally a position
    // of each (two coordinates an unknown): then the coarse correction takes
    // an affine function of the position in every group, not only its level.
    // Set before compute.
    void setGroups(std::vector<int32_t> groupOf, int32_t groups, const std::vector<float>& positions = {})
    {
        m_groupOf = std::move(groupOf);
        m_groups = groups;
        const size_t n = m_groupOf.size();
        m_perGroup = positions.size() == 2 * n ? 3 : 1;
        m_basis.assign(n * size_t(m_perGroup), 1.0);
        if (m_perGroup == 1)
            return;
        // Positions about each group's centre, in units of its extent, keep
        // the coarse system well scaled.
        std::vector<double> sum(size_t(groups) * 2, 0.0), count(size_t(groups), 0.0);
        std::vector<double> extent(size_t(groups), 0.0);
        for (size_t i = 0; i < n; ++i) {
            const size_t g = size_t(m_groupOf[i]);
            sum[2 * g] += positions[2 * i];
            sum[2 * g + 1] += positions[2 * i + 1];
            count[g] += 1;
        }
        for (size_t i = 0; i < n; ++i) {
            const size_t g = size_t(m_groupOf[i]);
            for (int k = 0; k < 2; ++k)
                extent[g] =
                    std::max(extent[g], std::fabs(positions[2 * i + size_t(k)] - sum[2 * g + size_t(k)] / count[g]));
        }
        for (size_t i = 0; i < n; ++i) {
            const size_t g = size_t(m_groupOf[i]);
            const double scale = extent[g] > 0 ? 1.0 / extent[g] : 0.0;
            for (int k = 0; k < 2; ++k)
                m_basis[3 * i + 1 + size_t(k)] =
                    (positions[2 * i + size_t(k)] - sum[2 * g + size_t(k)] / count[g]) * scale;
        }
    }
    void compute(const SpMat& m)
    {
        const Eigen::Index n = m.rows();
        m_invDiag = Eigen::VectorXd::Ones(n);
        double diagSum = 0;
        for (Eigen::Index j = 0; j < m.outerSize(); ++j)
            for (SpMat::InnerIterator it(m, j); it; ++it)
                if (it.row() == it.col() && it.value() != 0) {
                    m_invDiag[it.row()] = 1.0 / it.value();
                    diagSum += it.value();
                }
        m_coarseOk = false;
        if (Eigen::Index(m_groupOf.size()) != n || m_groups <= 0)
            return;
        const int k = m_perGroup;
        std::vector<Triplet> t;
        t.reserve(size_t(n) * size_t(k));
        for (Eigen::Index i = 0; i < n; ++i)
            for (int b = 0; b < k; ++b)
                t.emplace_back(i, m_groupOf[size_t(i)] * k + b, m_basis[size_t(i) * size_t(k) + size_t(b)]);
        SpMat P(n, Eigen::Index(m_groups) * k);
        P.setFromTriplets(t.begin(), t.end());
        const SpMat AP = m * P;
        SpMat coarse = SpMat(P.transpose()) * AP;
        // A group whose positions lie on a line leaves its affine terms
        // undetermined: a whisper on the diagonal keeps the factorisation whole.
        const double whisper = 1e-9 * diagSum / double(std::max<Eigen::Index>(1, n));
        for (Eigen::Index i = 0; i < coarse.rows(); ++i)
            coarse.coeffRef(i, i) += whisper;
        m_coarse.compute(coarse);
        m_coarseOk = m_coarse.info() == Eigen::Success;
    }
    // z = M^-1 r on three interleaved channels (r[3 i + c]).
    void apply3(const std::vector<double>& r, std::vector<double>& z) const
    {
        const long n = long(m_invDiag.size());
#pragma omp parallel for schedule(static)
        for (long i = 0; i < n; ++i)
            for (int c = 0; c < 3; ++c)
                z[size_t(3 * i + c)] = m_invDiag[i] * r[size_t(3 * i + c)];
        if (!m_coarseOk)
            return;
        const int k = m_perGroup;
        Eigen::MatrixXd rc = Eigen::MatrixXd::Zero(Eigen::Index(m_groups) * k, 3);
        for (long i = 0; i < n; ++i) {
            const double* basis = &m_basis[size_t(i) * size_t(k)];
            const long row = long(m_groupOf[size_t(i)]) * k;
            for (int b = 0; b < k; ++b)
                for (int c = 0; c < 3; ++c)
                    rc(row + b, c) += basis[b] * r[size_t(3 * i + c)];
        }
        const Eigen::MatrixXd zc = m_coarse.solve(rc);
#pragma omp parallel for schedule(static)
        for (long i = 0; i < n; ++i) {
            const double* basis = &m_basis[size_t(i) * size_t(k)];
            const long row = long(m_groupOf[size_t(i)]) * k;
            for (int b = 0; b < k; ++b)
                for (int c = 0; c < 3; ++c)
                    z[size_t(3 * i + c)] += basis[b] * zc(row + b, c);
        }
    }

private:
    std::vector<int32_t> m_groupOf;
    int32_t m_groups = 0;
    int m_perGroup = 1;
    std::vector<double> m_basis; // m_perGroup values an unknown
    Eigen::VectorXd m_invDiag;
    Eigen::SimplicialLDLT<SpMat> m_coarse;
    bool m_coarseOk = false;
};

// Solves the symmetric positive definite system by conjugate gradients for
// each column of b; x holds the start and the answer. The largest number of
// iterations a column took.
template <class Solver> long solveColumns(Solver& cg, const Eigen::MatrixXd& b, Eigen::MatrixXd& x)
{
    long iterations = 0;
    for (int c = 0; c < b.cols(); ++c) {
        if (b.col(c).squaredNorm() == 0) {
            x.col(c).setZero();
            continue;
        }
        x.col(c) = cg.solveWithGuess(b.col(c), x.col(c));
        iterations = std::max<long>(iterations, long(cg.iterations()));
    }
    return iterations;
}

// With the diagonal preconditioner.
long solveCG(const SpMat& A, const Eigen::MatrixXd& b, Eigen::MatrixXd& x, int maxIterations, double tolerance)
{
    Eigen::ConjugateGradient<SpMat, Eigen::Lower | Eigen::Upper> cg;
    cg.setMaxIterations(maxIterations);
    cg.setTolerance(tolerance);
    cg.compute(A);
    return solveColumns(cg, b, x);
}

// Preconditioned conjugate gradients on the three columns of b at once: one
// pass over the matrix a step serves the three channels, which lie side by
// side in memory, and rows are shared out between the cores. Each column
// keeps its own step sizes and stops on its own residual, relative to its
// right-hand side. x holds the start and the answer; the number of steps.
long solveBlockPCG(const SpMat& A, const GroupPreconditioner& M, const Eigen::MatrixXd& b, Eigen::MatrixXd& x,
                   int maxIterations, double tolerance)
{
    using RowMat = Eigen::SparseMatrix<double, Eigen::RowMajor>;
    RowMat Ar = A;
    Ar.makeCompressed();
    const long n = long(Ar.rows());
    const auto* start = Ar.outerIndexPtr();
    const auto* column = Ar.innerIndexPtr();
    const double* value = Ar.valuePtr();
    auto multiply = [&](const std::vector<double>& v, std::vector<double>& out) {
#pragma omp parallel for schedule(static, 4096)
        for (long i = 0; i < n; ++i) {
            double s0 = 0, s1 = 0, s2 = 0;
            for (auto k = start[i]; k < start[i + 1]; ++k) {
                const double a = value[k];
                const double* q = &v[size_t(3) * size_t(column[k])];
                s0 += a * q[0];
                s1 += a * q[1];
                s2 += a * q[2];
            }
            out[size_t(3 * i)] = s0;
            out[size_t(3 * i + 1)] = s1;
            out[size_t(3 * i + 2)] = s2;
        }
    };
    auto dot = [n](const std::vector<double>& u, const std::vector<double>& v, double out[3]) {
        double d0 = 0, d1 = 0, d2 = 0;
#pragma omp parallel for schedule(static) reduction(+ : d0, d1, d2)
        for (long i = 0; i < n; ++i) {
            d0 += u[size_t(3 * i)] * v[size_t(3 * i)];
            d1 += u[size_t(3 * i + 1)] * v[size_t(3 * i + 1)];
            d2 += u[size_t(3 * i + 2)] * v[size_t(3 * i + 2)];
        }
        out[0] = d0, out[1] = d1, out[2] = d2;
    };
    std::vector<double> xs(size_t(3 * n)), r(size_t(3 * n)), z(size_t(3 * n)), p(size_t(3 * n)), ap(size_t(3 * n));
    std::vector<double> bs(size_t(3 * n));
    for (long i = 0; i < n; ++i)
        for (int c = 0; c < 3; ++c) {
            xs[size_t(3 * i + c)] = x(i, c);
            bs[size_t(3 * i + c)] = b(i, c);
        }
    multiply(xs, ap);
    for (size_t k = 0; k < r.size(); ++k)
        r[k] = bs[k] - ap[k];
    double bb[3], rr[3], rz[3], pap[3];
    dot(bs, bs, bb);
    dot(r, r, rr);
    bool done[3];
    for (int c = 0; c < 3; ++c)
        done[c] = std::sqrt(rr[c]) <= tolerance * std::sqrt(bb[c]);
    long it = 0;
    if (!(done[0] && done[1] && done[2])) {
        M.apply3(r, z);
        p = z;
        dot(r, z, rz);
        for (; it < maxIterations; ++it) {
            multiply(p, ap);
            dot(p, ap, pap);
            double alpha[3];
            for (int c = 0; c < 3; ++c)
                alpha[c] = !done[c] && pap[c] > 0 ? rz[c] / pap[c] : 0.0;
#pragma omp parallel for schedule(static)
            for (long i = 0; i < n; ++i)
                for (int c = 0; c < 3; ++c) {
                    xs[size_t(3 * i + c)] += alpha[c] * p[size_t(3 * i + c)];
                    r[size_t(3 * i + c)] -= alpha[c] * ap[size_t(3 * i + c)];
                }
            dot(r, r, rr);
            for (int c = 0; c < 3; ++c)
                done[c] = done[c] || !(pap[c] > 0) || std::sqrt(rr[c]) <= tolerance * std::sqrt(bb[c]);
            if (done[0] && done[1] && done[2])
                break;
            M.apply3(r, z);
            double next[3], beta[3];
            dot(r, z, next);
            for (int c = 0; c < 3; ++c) {
                beta[c] = !done[c] && rz[c] != 0 ? next[c] / rz[c] : 0.0;
                rz[c] = next[c];
            }
#pragma omp parallel for schedule(static)
            for (long i = 0; i < n; ++i)
                for (int c = 0; c < 3; ++c)
                    p[size_t(3 * i + c)] = done[c] ? 0.0 : z[size_t(3 * i + c)] + beta[c] * p[size_t(3 * i + c)];
        }
        ++it;
    }
    for (long i = 0; i < n; ++i)
        for (int c = 0; c < 3; ++c)
            x(i, c) = xs[size_t(3 * i + c)];
    return it;
}

// The run's state shared by its passes.
class ColourRun {
public:
    ColourRun(const KvoHalfEdgeMesh& mesh, const PatchTable& patches, const std::map<uint16_t, ImgInfo>& images,
              const std::vector<FaceCorners>& faceUVs, const ColorOptions& options, ColorStats& stats)
        : m_mesh(mesh), m_images(images), m_faceUVs(faceUVs), m_opt(options), m_stats(stats)
    {
        for (const auto& kv : patches) {
            if (kv.second.empty() || !images.count(kv.first.second))
                continue;
            Patch p;
            p.image = kv.first.second;
            for (const OpenMesh::FaceHandle& fh : kv.second)
                if (fh.idx() >= 0 && fh.idx() < long(faceUVs.size()))
                    p.faces.push_back(fh.idx());
            if (!p.faces.empty())
                m_patches.push_back(std::move(p));
        }
    }

    long run(const QString& folder);

private:
    void buildSeams();
    struct Workspace;
    // Reads the picture into w.picture (w.decoded is its decoder's scratch).
    bool loadPicture(uint16_t id, Workspace& w, QString& why) const;
    long samplePass();
    void blurNearSeams(uint16_t id, const cv::Mat& rgba, cv::Mat& blurred) const;
    void solveGains();
    void solveOffsets();
    long applyPass(const QString& folder);
    // Full-size buffers of one thread, kept from picture to picture: fresh
    // ones would cost the system a page fault every 4 KB of every picture.
    struct Workspace {
        cv::Mat picture, decoded, label, correction, dist, blurred, bgr;
    };
    void correctImage(uint16_t id, const cv::Mat& in, cv::Mat& out, Workspace& w);
    void levelStrips(uint16_t id, cv::Mat& label, cv::Mat& correction, cv::Mat& dist);
    void measureAfter(uint16_t id, const cv::Mat& corrected, cv::Mat& blurred);

    // The corrected sample on one side, by the global model (gain and offsets).
    float corrected(const SeamEdge& e, int side, uint32_t s, int c) const
    {
        const SideSample& v = m_side[side][s];
        const float t = (float(s - e.firstSample) + 0.5f) / float(e.sampleCount);
        const float g = m_pixelGain.at(e.image[side])[size_t(c)];
        const float o = float((1 - t) * m_offset(e.unknown[side][0], c) + t * m_offset(e.unknown[side][1], c));
        return std::min(255.0f, v.c[c] * g) + o;
    }
    // Stage times summed over the photographs, which may run side by side.
    void addSeconds(int stage, double seconds)
    {
#pragma omp atomic
        m_stats.seconds[stage] += seconds;
    }
    long unknownOf(int32_t patch, uint32_t vertex) const
    {
        const uint64_t key = (uint64_t(uint32_t(patch)) << 32) | vertex;
        auto it = std::lower_bound(m_unknownKeys.begin(), m_unknownKeys.end(), key);
        return it != m_unknownKeys.end() && *it == key ? long(it - m_unknownKeys.begin()) : -1;
    }

    const KvoHalfEdgeMesh& m_mesh;
    const std::map<uint16_t, ImgInfo>& m_images;
    const std::vector<FaceCorners>& m_faceUVs;
    const ColorOptions& m_opt;
    ColorStats& m_stats;

    std::vector<Patch> m_patches;
    std::vector<int32_t> m_facePatch;
    std::vector<std::array<uint32_t, 3>> m_faceVertices;
    std::vector<SeamEdge> m_seams;
    std::map<uint16_t, std::vector<std::pair<uint32_t, int>>> m_imageSides; // seam and side, by image
    std::vector<SideSample> m_side[2];
    std::vector<float> m_after[2]; // corrected samples, three a sample
    std::vector<float> m_weight;   // robust weight of each sample (0: an outlier or unusable)
    std::map<uint16_t, std::array<double, 3>> m_logGain;
    std::map<uint16_t, std::array<float, 3>> m_pixelGain;
    std::map<uint16_t, bool> m_readable;
    std::vector<Workspace> m_work = std::vector<Workspace>(3);
    std::map<uint16_t, cv::Mat> m_kept; // pictures the sampling pass read, for the applying pass
    size_t m_keptBytes = 0;
    std::vector<uint64_t> m_unknownKeys;
    std::vector<std::array<int32_t, 3>> m_faceUnknown; // of each corner, -1 outside the patches
    Eigen::MatrixXd m_offset;
};

void ColourRun::buildSeams()
{
    const long faceCount = long(m_faceUVs.size());
    m_facePatch.assign(size_t(faceCount), -1);
    for (size_t p = 0; p < m_patches.size(); ++p)
        for (int32_t f : m_patches[p].faces)
            m_facePatch[size_t(f)] = int32_t(p);
    m_faceVertices.resize(size_t(faceCount));
    std::vector<uint32_t> tris(size_t(faceCount) * 3);
    for (long f = 0; f < faceCount; ++f) {
        unsigned v[3];
        m_mesh.getFaceVertices(f, v);
        for (int k = 0; k < 3; ++k)
            tris[size_t(3 * f + k)] = m_faceVertices[size_t(f)][size_t(k)] = v[k];
    }
    std::vector<uint32_t> start, nb;
    kvo::faceEdgeNeighbours(tris.data(), faceCount, start, nb);

    // Unknowns of the seam levelling: one a vertex of each patch.
    for (long f = 0; f < faceCount; ++f)
        if (m_facePatch[size_t(f)] >= 0)
            for (uint32_t v : m_faceVertices[size_t(f)])
                m_unknownKeys.push_back((uint64_t(uint32_t(m_facePatch[size_t(f)])) << 32) | v);
    std::sort(m_unknownKeys.begin(), m_unknownKeys.end());
    m_unknownKeys.erase(std::unique(m_unknownKeys.begin(), m_unknownKeys.end()), m_unknownKeys.end());
    m_faceUnknown.assign(size_t(faceCount), {-1, -1, -1});
    for (long f = 0; f < faceCount; ++f)
        if (m_facePatch[size_t(f)] >= 0)
            for (int k = 0; k < 3; ++k)
                m_faceUnknown[size_t(f)][size_t(k)] =
                    int32_t(unknownOf(m_facePatch[size_t(f)], m_faceVertices[size_t(f)][size_t(k)]));

    uint32_t samples = 0;
    for (long f = 0; f < faceCount; ++f) {
        const int32_t pf = m_facePatch[size_t(f)];
        if (pf < 0)
            continue;
        for (uint32_t k = start[size_t(f)]; k < start[size_t(f) + 1]; ++k) {
            const long g = long(nb[k]);
            const int32_t pg = m_facePatch[size_t(g)];
            if (g <= f || pg < 0 || pg == pf)
                continue;
            // The shared vertices and where each stands in either face.
            SeamEdge e;
            int found = 0;
            int cornerF[2] = {0, 0}, cornerG[2] = {0, 0};
            for (int a = 0; a < 3 && found < 2; ++a)
                for (int b = 0; b < 3; ++b)
                    if (m_faceVertices[size_t(f)][size_t(a)] == m_faceVertices[size_t(g)][size_t(b)]) {
                        e.vertex[found] = m_faceVertices[size_t(f)][size_t(a)];
                        cornerF[found] = a;
                        cornerG[found] = b;
                        ++found;
                        break;
                    }
            if (found < 2)
                continue;
            e.patch[0] = pf;
            e.patch[1] = pg;
            for (int end = 0; end < 2; ++end) {
                e.unknown[0][end] = m_faceUnknown[size_t(f)][size_t(cornerF[end])];
                e.unknown[1][end] = m_faceUnknown[size_t(g)][size_t(cornerG[end])];
            }
            e.face[0] = int32_t(f);
            e.face[1] = int32_t(g);
            e.image[0] = m_patches[size_t(pf)].image;
            e.image[1] = m_patches[size_t(pg)].image;
            double length[2] = {0, 0};
            for (int side = 0; side < 2; ++side) {
                const FaceCorners& fc = m_faceUVs[size_t(e.face[side])];
                const int* corner = side == 0 ? cornerF : cornerG;
                for (int end = 0; end < 2; ++end) {
                    e.end[side][end][0] = fc[size_t(corner[end])][0];
                    e.end[side][end][1] = fc[size_t(corner[end])][1];
                }
                length[side] = std::hypot(e.end[side][1][0] - e.end[side][0][0], e.end[side][1][1] - e.end[side][0][1]);
            }
            // Two patches of one picture that meet on the same pixels are no seam.
            if (e.image[0] == e.image[1]) {
                bool same = true;
                for (int end = 0; end < 2; ++end)
                    same = same && std::fabs(e.end[0][end][0] - e.end[1][end][0]) < 0.01f &&
                           std::fabs(e.end[0][end][1] - e.end[1][end][1]) < 0.01f;
                if (same)
                    continue;
            }
            e.firstSample = samples;
            e.sampleCount = uint32_t(std::clamp(int(std::ceil(std::max(length[0], length[1]))), 1, kMaxSamplesPerEdge));
            samples += e.sampleCount;
            const uint32_t index = uint32_t(m_seams.size());
            m_imageSides[e.image[0]].push_back({index, 0});
            m_imageSides[e.image[1]].push_back({index, 1});
            m_seams.push_back(e);
        }
    }
    for (int side = 0; side < 2; ++side) {
        m_side[side].assign(samples, SideSample{{0, 0, 0}, false});
        m_after[side].assign(size_t(samples) * 3, 0.0f);
    }
    m_weight.assign(samples, 0.0f);
    m_stats.seamEdges = long(m_seams.size());
    m_stats.seamSamples = long(samples);
}

bool ColourRun::loadPicture(uint16_t id, Workspace& w, QString& why) const
{
    const ImgInfo& info = m_images.at(id);
    cv::Mat& rgba = w.picture;
    if (m_opt.picture) {
        if (!m_opt.picture(id, rgba, w.decoded) || rgba.empty()) {
            why = QObject::tr("its pixels cannot be read");
            return false;
        }
    } else if (!kvo::decodeImageFileRGBA(info.path, rgba, w.decoded)) {
        why = QObject::tr("%1 cannot be read").arg(info.path);
        return false;
    }
    if (rgba.type() == CV_8UC3) {
        cv::Mat four;
        cv::cvtColor(rgba, four, cv::COLOR_RGB2RGBA);
        rgba = four;
    } else if (rgba.type() == CV_8UC1) {
        cv::Mat four;
        cv::cvtColor(rgba, four, cv::COLOR_GRAY2RGBA);
        rgba = four;
    }
    if (rgba.type() != CV_8UC4) {
        why = QObject::tr("its pixels are not 8-bit colour");
        return false;
    }
    // The corners were measured in pixels of the recorded size.
    if (info.width > 0 && info.height > 0 && (rgba.cols != info.width || rgba.rows != info.height)) {
        cv::Mat sized;
        cv::resize(rgba, sized, cv::Size(info.width, info.height), 0, 0, cv::INTER_AREA);
        rgba = sized;
    }
    return true;
}

// The blurred picture where the image's seams run, in tiles: elsewhere
// blurred holds nothing of use. The tiles are filtered as parts of the whole
// picture (their borders read the pixels around them), so a sample reads what
// it would read on the whole picture blurred.
void ColourRun::blurNearSeams(uint16_t id, const cv::Mat& rgba, cv::Mat& blurred) const
{
    constexpr int kTile = 64;
    const int tilesX = (rgba.cols + kTile - 1) / kTile, tilesY = (rgba.rows + kTile - 1) / kTile;
    std::vector<uint8_t> wanted(size_t(tilesX) * size_t(tilesY), 0);
    auto sides = m_imageSides.find(id);
    if (sides != m_imageSides.end())
        for (const auto& es : sides->second) {
            const SeamEdge& e = m_seams[es.first];
            const float(*end)[2] = e.end[es.second];
            // A bilinear read reaches the pixel below and right of its position.
            const int x0 = int(std::floor(std::min(end[0][0], end[1][0]))) - 2;
            const int x1 = int(std::ceil(std::max(end[0][0], end[1][0]))) + 2;
            const int y0 = int(std::floor(std::min(end[0][1], end[1][1]))) - 2;
            const int y1 = int(std::ceil(std::max(end[0][1], end[1][1]))) + 2;
            for (int ty = std::max(0, y0 / kTile); ty <= std::min(tilesY - 1, std::max(0, y1) / kTile); ++ty)
                for (int tx = std::max(0, x0 / kTile); tx <= std::min(tilesX - 1, std::max(0, x1) / kTile); ++tx)
                    wanted[size_t(ty) * size_t(tilesX) + size_t(tx)] = 1;
        }
    std::vector<cv::Rect> tiles;
    for (int ty = 0; ty < tilesY; ++ty)
        for (int tx = 0; tx < tilesX; ++tx)
            if (wanted[size_t(ty) * size_t(tilesX) + size_t(tx)])
                tiles.emplace_back(tx * kTile, ty * kTile, std::min(kTile, rgba.cols - tx * kTile),
                                   std::min(kTile, rgba.rows - ty * kTile));
    blurred.create(rgba.size(), rgba.type());
#pragma omp parallel for schedule(dynamic, 8)
    for (long i = 0; i < long(tiles.size()); ++i) {
        cv::Mat out = blurred(tiles[size_t(i)]);
        cv::GaussianBlur(rgba(tiles[size_t(i)]), out, cv::Size(0, 0), m_opt.blurSigma);
    }
}

long ColourRun::samplePass()
{
    kvo::IKvoProgress* progress = m_opt.progress;
    const double share = 1.0 / double(std::max<size_t>(1, m_images.size()));
    std::vector<uint16_t> ids;
    for (const auto& kv : m_images) {
        ids.push_back(kv.first);
        m_readable[kv.first] = false; // every key now, so that threads only write values
    }
    // Photographs side by side, each reading its picture; progress, the
    // question whether to stop and all else that may reach the user's
    // interface stay with the calling thread (thread 0 of the team).
    std::atomic<long> finished{0}, stop{0};
    long reported = 0;
    auto report = [&]() {
        const long f = finished.load();
        kvo::prgStep(progress, double(f - reported) * share);
        reported = f;
        if (m_opt.cancelled && m_opt.cancelled())
            stop = 1;
    };
    const int threads = std::clamp(omp_get_max_threads(), 1, int(m_work.size()));
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads)
    for (long i = 0; i < long(ids.size()); ++i) {
        const int thread = omp_get_thread_num();
        if (thread == 0)
            report();
        if (stop.load())
            continue;
        const uint16_t id = ids[size_t(i)];
        Workspace& w = m_work[size_t(thread) % m_work.size()];
        const cv::Mat& rgba = w.picture;
        QString why;
        const bool readable = loadPicture(id, w, why);
        m_readable.at(id) = readable;
        if (!readable) {
#pragma omp critical(colourStats)
            m_stats.skipped << QObject::tr("image %1: %2").arg(id).arg(why);
            ++finished;
            continue;
        }
        // Some pictures are kept for the applying pass, which then need not
        // read them again; never so many that all are held at once.
        const size_t bytes = rgba.total() * rgba.elemSize();
#pragma omp critical(colourKept)
        if (m_keptBytes + bytes <= kKeptBytes) {
            m_kept[id] = rgba;
            m_keptBytes += bytes;
        }
        auto sides = m_imageSides.find(id);
        if (sides != m_imageSides.end()) {
            cv::Mat& blurred = w.blurred;
            blurNearSeams(id, rgba, blurred);
            const auto& list = sides->second;
            for (const auto& es : list) {
                const SeamEdge& e = m_seams[es.first];
                const int side = es.second;
                for (uint32_t k = 0; k < e.sampleCount; ++k) {
                    const float t = (float(k) + 0.5f) / float(e.sampleCount);
                    const float x = (1 - t) * e.end[side][0][0] + t * e.end[side][1][0];
                    const float y = (1 - t) * e.end[side][0][1] + t * e.end[side][1][1];
                    SideSample& smp = m_side[side][e.firstSample + k];
                    smp.ok = readSample(blurred, rgba, x, y, smp.c);
                }
            }
        }
        ++finished;
    }
    report();
    return stop.load() ? long(kvoColorCancelled) : 0L;
}

void ColourRun::solveGains()
{
    // Unknowns: the photographs that share usable samples with another one.
    std::map<uint16_t, int> index;
    for (const SeamEdge& e : m_seams)
        if (e.image[0] != e.image[1])
            for (uint16_t id : e.image)
                index.emplace(id, 0);
    int n = 0;
    for (auto& kv : index)
        kv.second = n++;
    for (const auto& kv : m_images) {
        m_logGain[kv.first] = {0, 0, 0};
        m_pixelGain[kv.first] = {1, 1, 1};
    }
    // Usable pairs and their log ratios in linear light.
    struct Pair {
        uint32_t sample;
        int a, b;
        double d[3];
    };
    std::vector<Pair> pairs;
    long usable = 0;
    double stepSum = 0;
    for (const SeamEdge& e : m_seams)
        for (uint32_t s = e.firstSample; s < e.firstSample + e.sampleCount; ++s) {
            const SideSample &a = m_side[0][s], &b = m_side[1][s];
            if (!a.ok || !b.ok)
                continue;
            ++usable;
            m_weight[s] = 1.0f;
            stepSum += (std::fabs(a.c[0] - b.c[0]) + std::fabs(a.c[1] - b.c[1]) + std::fabs(a.c[2] - b.c[2])) / 3.0;
            if (e.image[0] == e.image[1])
                continue;
            Pair p;
            p.sample = s;
            p.a = index[e.image[0]];
            p.b = index[e.image[1]];
            for (int c = 0; c < 3; ++c)
                p.d[c] = kGamma * (std::log(double(a.c[c])) - std::log(double(b.c[c])));
            pairs.push_back(p);
        }
    m_stats.usableSamples = usable;
    m_stats.stepBefore = usable > 0 ? stepSum / double(usable) : 0.0;
    if (n == 0 || pairs.empty())
        return;

    std::vector<uint16_t> idOf(static_cast<size_t>(n));
    for (const auto& kv : index)
        idOf[size_t(kv.second)] = kv.first;
    // Pairs of photographs: one matrix entry each, summed, keeps the matrix
    // small; each sample knows its pair once for all iterations.
    std::vector<std::pair<int, int>> photoPairs;
    std::vector<int32_t> pairOf(pairs.size());
    {
        std::map<std::pair<int, int>, int32_t> known;
        for (size_t i = 0; i < pairs.size(); ++i) {
            const std::pair<int, int> key{std::min(pairs[i].a, pairs[i].b), std::max(pairs[i].a, pairs[i].b)};
            auto it = known.emplace(key, int32_t(photoPairs.size())).first;
            if (it->second == int32_t(photoPairs.size()))
                photoPairs.push_back(key);
            pairOf[i] = it->second;
        }
    }
    std::vector<std::vector<float>> weight(3, std::vector<float>(pairs.size(), 1.0f));
    for (int c = 0; c < 3; ++c) {
        Eigen::VectorXd x = Eigen::VectorXd::Zero(n);
        std::vector<float>& w = weight[size_t(c)];
        for (int iteration = 0; iteration < 10; ++iteration) {
            std::vector<Triplet> t;
            t.reserve(size_t(n) * 4);
            Eigen::VectorXd rhs = Eigen::VectorXd::Zero(n);
            std::vector<double> seamWeight(size_t(n), 0.0), pairWeight(photoPairs.size(), 0.0);
            for (size_t i = 0; i < pairs.size(); ++i) {
                const Pair& p = pairs[i];
                const double wi = w[i];
                if (wi <= 0)
                    continue;
                seamWeight[size_t(p.a)] += wi;
                seamWeight[size_t(p.b)] += wi;
                pairWeight[size_t(pairOf[i])] += wi;
                rhs[p.a] -= wi * p.d[c];
                rhs[p.b] += wi * p.d[c];
            }
            for (size_t k = 0; k < photoPairs.size(); ++k) {
                const auto& ab = photoPairs[k];
                if (pairWeight[k] <= 0)
                    continue;
                t.emplace_back(ab.first, ab.first, pairWeight[k]);
                t.emplace_back(ab.second, ab.second, pairWeight[k]);
                t.emplace_back(ab.first, ab.second, -pairWeight[k]);
                t.emplace_back(ab.second, ab.first, -pairWeight[k]);
            }
            for (int i = 0; i < n; ++i)
                t.emplace_back(i, i, m_opt.gainPrior * seamWeight[size_t(i)] + 1e-9);
            SpMat A(n, n);
            A.setFromTriplets(t.begin(), t.end());
            Eigen::SimplicialLDLT<SpMat> ldlt(A);
            if (ldlt.info() != Eigen::Success)
                break;
            x = ldlt.solve(rhs);
            // Residuals, their robust scale, and new weights: Huber first, so
            // that a start far from the answer does not throw good samples
            // away, then Tukey's biweight, which ignores gross outliers (a
            // passer-by on one side of a seam) altogether.
            std::vector<double> r(pairs.size()), absr;
            absr.reserve(pairs.size());
            for (size_t i = 0; i < pairs.size(); ++i) {
                r[i] = pairs[i].d[c] + x[pairs[i].a] - x[pairs[i].b];
                absr.push_back(std::fabs(r[i]));
            }
            const double sigma = std::max(0.01, 1.4826 * median(absr));
            for (size_t i = 0; i < pairs.size(); ++i) {
                const double u = std::fabs(r[i]) / sigma;
                if (iteration < 3) {
                    const double k = 1.345;
                    w[i] = float(u <= k ? 1.0 : k / u);
                } else {
                    const double k = 4.685;
                    w[i] = float(u >= k ? 0.0 : (1 - (u / k) * (u / k)) * (1 - (u / k) * (u / k)));
                }
            }
        }
        for (int i = 0; i < n; ++i) {
            m_logGain[idOf[size_t(i)]][size_t(c)] = x[i];
            m_pixelGain[idOf[size_t(i)]][size_t(c)] = float(std::exp(x[i] / kGamma));
        }
    }
    // A sample the fit found to be an outlier in any channel is one.
    for (size_t i = 0; i < pairs.size(); ++i)
        m_weight[pairs[i].sample] = std::min({weight[0][i], weight[1][i], weight[2][i]});
}

void ColourRun::solveOffsets()
{
    const long n = long(m_unknownKeys.size());
    m_offset = Eigen::MatrixXd::Zero(n, 3);
    m_stats.offsetUnknowns = n;
    if (n == 0 || m_seams.empty())
        return;
    std::vector<Triplet> t;
    t.reserve(size_t(n) * 8 + m_seams.size() * 16);
    Eigen::MatrixXd rhs = Eigen::MatrixXd::Zero(n, 3);
    // Seams: the two sides agree after their offsets, sample by sample, each
    // edge weighing about one whatever its length.
    for (const SeamEdge& e : m_seams) {
        const long u[4] = {e.unknown[0][0], e.unknown[0][1], e.unknown[1][0], e.unknown[1][1]};
        double M[4][4] = {};
        double b[4][3] = {};
        double total = 0;
        for (uint32_t k = 0; k < e.sampleCount; ++k) {
            const uint32_t s = e.firstSample + k;
            const double w = m_weight[s];
            if (w <= 0)
                continue;
            total += w;
            const double tt = (double(k) + 0.5) / double(e.sampleCount);
            const double coef[4] = {1 - tt, tt, -(1 - tt), -tt};
            double d[3];
            for (int c = 0; c < 3; ++c)
                d[c] = double(std::min(255.0f, m_side[0][s].c[c] * m_pixelGain[e.image[0]][size_t(c)])) -
                       double(std::min(255.0f, m_side[1][s].c[c] * m_pixelGain[e.image[1]][size_t(c)]));
            for (int i = 0; i < 4; ++i) {
                for (int j = 0; j < 4; ++j)
                    M[i][j] += w * coef[i] * coef[j];
                for (int c = 0; c < 3; ++c)
                    b[i][c] -= w * d[c] * coef[i];
            }
        }
        if (total <= 0)
            continue;
        const double scale = 1.0 / double(e.sampleCount);
        for (int i = 0; i < 4; ++i) {
            for (int j = 0; j < 4; ++j)
                t.emplace_back(u[i], u[j], M[i][j] * scale);
            for (int c = 0; c < 3; ++c)
                rhs(u[i], c) += b[i][c] * scale;
        }
    }
    // Inside a patch the offsets change smoothly: each edge of each face
    // (an inner edge twice, from both of its faces, at half the weight).
    const double w = 0.5 * m_opt.offsetSmoothness;
    for (size_t f = 0; f < m_facePatch.size(); ++f) {
        const int32_t p = m_facePatch[f];
        if (p < 0)
            continue;
        const long u[3] = {m_faceUnknown[f][0], m_faceUnknown[f][1], m_faceUnknown[f][2]};
        for (int k = 0; k < 3; ++k) {
            const long i = u[k], j = u[(k + 1) % 3];
            t.emplace_back(i, i, w);
            t.emplace_back(j, j, w);
            t.emplace_back(i, j, -w);
            t.emplace_back(j, i, -w);
        }
    }
    // A whisper of a pull toward no change fixes what the seams leave free.
    for (long i = 0; i < n; ++i)
        t.emplace_back(i, i, 1e-6);
    SpMat A(n, n);
    A.setFromTriplets(t.begin(), t.end());
    t = std::vector<Triplet>();
    std::vector<int32_t> patchOf(static_cast<size_t>(n));
    for (long i = 0; i < n; ++i)
        patchOf[size_t(i)] = int32_t(m_unknownKeys[size_t(i)] >> 32);
    // Each unknown's place in its picture: the offsets' slow modes are a
    // patch's level and its tilt across the picture.
    std::vector<float> position(size_t(n) * 2, 0.0f);
    for (size_t f = 0; f < m_faceUnknown.size(); ++f)
        for (int k = 0; k < 3; ++k)
            if (m_faceUnknown[f][size_t(k)] >= 0) {
                const size_t u = size_t(m_faceUnknown[f][size_t(k)]);
                position[2 * u] = m_faceUVs[f][size_t(k)][0];
                position[2 * u + 1] = m_faceUVs[f][size_t(k)][1];
            }
    GroupPreconditioner precond;
    precond.setGroups(std::move(patchOf), int32_t(m_patches.size()), position);
    precond.compute(A);
    m_stats.offsetIterations = solveBlockPCG(A, precond, rhs, m_offset, 2000, 1e-4);
}

long ColourRun::run(const QString& folder)
{
    kvo::IKvoProgress* progress = m_opt.progress;
    m_stats.patches = long(m_patches.size());
    auto t0 = Clock::now();
    buildSeams();
    {
        kvo::KvoPrgPush push(progress, 0.3);
        if (long rc = samplePass())
            return rc;
    }
    m_stats.seconds[0] = since(t0);
    t0 = Clock::now();
    solveGains();
    solveOffsets();
    kvo::prgStep(progress, 0.1);
    m_stats.seconds[1] = since(t0);
    for (const auto& kv : m_images) {
        ColorImageStats s;
        s.id = kv.first;
        s.read = m_readable[kv.first];
        for (int c = 0; c < 3; ++c) {
            s.gain[c] = m_pixelGain[kv.first][size_t(c)];
            s.linearGain[c] = std::exp(m_logGain[kv.first][size_t(c)]);
        }
        auto sides = m_imageSides.find(kv.first);
        if (sides != m_imageSides.end())
            for (const auto& es : sides->second) {
                const SeamEdge& e = m_seams[es.first];
                for (uint32_t k = 0; k < e.sampleCount; ++k)
                    s.seamSamples += m_side[es.second][e.firstSample + k].ok ? 1 : 0;
            }
        m_stats.images.push_back(s);
    }
    kvo::KvoPrgPush push(progress, 0.6);
    return applyPass(folder);
}

long ColourRun::applyPass(const QString& folder)
{
    kvo::IKvoProgress* progress = m_opt.progress;
    const double share = 1.0 / double(std::max<size_t>(1, m_images.size()));
    // Pictures kept from the sampling pass first, so that their memory goes
    // early; each keeps its place in the statistics.
    std::vector<std::pair<uint16_t, size_t>> ids;
    for (const auto& kv : m_images)
        ids.push_back({kv.first, ids.size()});
    std::stable_partition(ids.begin(), ids.end(), [this](const auto& e) { return m_kept.count(e.first) > 0; });
    // Photographs side by side: encoding a JPEG and most of the correction
    // run on one core each. The corrected pictures reach the store, and
    // progress and the question whether to stop reach the user, from the
    // calling thread only (thread 0 of the team), which takes what the others
    // have finished between its own pictures.
    std::vector<std::pair<uint16_t, cv::Mat>> ready;
    std::atomic<long> finished{0}, failure{0};
    long reported = 0;
    auto deliver = [&]() {
        std::vector<std::pair<uint16_t, cv::Mat>> take;
#pragma omp critical(colourReady)
        take.swap(ready);
        for (auto& r : take)
            if (!failure.load() && m_opt.result && !m_opt.result(r.first, r.second))
                failure = kvoColorCannotWrite;
        const long f = finished.load();
        kvo::prgStep(progress, double(f - reported) * share);
        reported = f;
        if (!failure.load() && m_opt.cancelled && m_opt.cancelled())
            failure = kvoColorCancelled;
    };
    const int threads = std::clamp(omp_get_max_threads(), 1, int(m_work.size()));
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads)
    for (long i = 0; i < long(ids.size()); ++i) {
        const int thread = omp_get_thread_num();
        if (thread == 0)
            deliver();
        const uint16_t id = ids[size_t(i)].first;
        ColorImageStats& st = m_stats.images[ids[size_t(i)].second];
        if (failure.load() || !m_readable.at(id)) {
            ++finished;
            continue;
        }
        Workspace& w = m_work[size_t(thread) % m_work.size()];
        cv::Mat kept, out;
#pragma omp critical(colourKept)
        {
            auto k = m_kept.find(id);
            if (k != m_kept.end()) {
                kept = k->second;
                m_kept.erase(k);
            }
        }
        QString why;
        if (kept.empty() && !loadPicture(id, w, why)) {
#pragma omp critical(colourStats)
            m_stats.skipped << QObject::tr("image %1: %2").arg(id).arg(why);
            st.read = false;
            ++finished;
            continue;
        }
        correctImage(id, kept.empty() ? w.picture : kept, out, w);
        kept.release();
        auto t0 = Clock::now();
        measureAfter(id, out, w.blurred);
        const QString file = QDir(folder).filePath(QFileInfo(m_images.at(id).path).completeBaseName() + ".jpg");
        cv::Mat& bgr = w.bgr;
        cv::cvtColor(out, bgr, cv::COLOR_RGBA2BGR);
        bool written = false;
        try {
            written = cv::imwrite(file.toLocal8Bit().toStdString(), bgr,
                                  {cv::IMWRITE_JPEG_QUALITY, std::clamp(m_opt.jpegQuality, 1, 100)});
        } catch (const cv::Exception&) {
            written = false;
        }
        addSeconds(4, since(t0));
        if (!written) {
            failure = kvoColorCannotWrite;
        } else {
            st.file = file;
#pragma omp critical(colourReady)
            ready.push_back({id, out});
        }
        ++finished;
    }
    deliver();
    if (failure.load())
        return failure.load();
    // The step after, over the same samples as before.
    double sum = 0;
    long count = 0;
    for (const SeamEdge& e : m_seams)
        for (uint32_t s = e.firstSample; s < e.firstSample + e.sampleCount; ++s) {
            if (!m_side[0][s].ok || !m_side[1][s].ok)
                continue;
            const float* a = &m_after[0][size_t(s) * 3];
            const float* b = &m_after[1][size_t(s) * 3];
            sum += (std::fabs(a[0] - b[0]) + std::fabs(a[1] - b[1]) + std::fabs(a[2] - b[2])) / 3.0;
            ++count;
        }
    m_stats.stepAfter = count > 0 ? sum / double(count) : 0.0;
    return 0;
}

// Writes into label the patch of every pixel whose centre one of the
// picture's patch faces covers, and into correction the offsets there,
// interpolated over the face from its corners.
void rasterisePatches(const std::vector<int32_t>& faces, const std::vector<FaceCorners>& corners,
                      const std::vector<int32_t>& facePatch,
                      const std::function<void(int32_t face, float out[3][3])>& cornerOffsets, cv::Mat& label,
                      cv::Mat& correction)
{
    const int rows = label.rows, cols = label.cols;
    constexpr int kBand = 32;
    const int bands = (rows + kBand - 1) / kBand;
    std::vector<std::vector<int32_t>> inBand(static_cast<size_t>(bands));
    for (int32_t f : faces) {
        const FaceCorners& c = corners[size_t(f)];
        const float y0 = std::min({c[0][1], c[1][1], c[2][1]}), y1 = std::max({c[0][1], c[1][1], c[2][1]});
        const int b0 = std::clamp(int(std::floor(y0)) / kBand, 0, bands - 1);
        const int b1 = std::clamp(int(std::ceil(y1)) / kBand, 0, bands - 1);
        if (y1 < 0 || y0 > float(rows))
            continue;
        for (int b = b0; b <= b1; ++b)
            inBand[size_t(b)].push_back(f);
    }
#pragma omp parallel for schedule(dynamic, 1)
    for (int band = 0; band < bands; ++band) {
        const int rowStart = band * kBand, rowEnd = std::min(rows, rowStart + kBand);
        for (int32_t f : inBand[size_t(band)]) {
            const FaceCorners& c = corners[size_t(f)];
            const double ax = c[0][0], ay = c[0][1], bx = c[1][0], by = c[1][1], cx = c[2][0], cy = c[2][1];
            const double area = (bx - ax) * (cy - ay) - (cx - ax) * (by - ay);
            if (std::fabs(area) < 1e-12)
                continue;
            float off[3][3];
            cornerOffsets(f, off);
            const int x0 = std::max(0, int(std::floor(std::min({ax, bx, cx}))));
            const int x1 = std::min(cols - 1, int(std::ceil(std::max({ax, bx, cx}))));
            const int y0 = std::max(rowStart, int(std::floor(std::min({ay, by, cy}))));
            const int y1 = std::min(rowEnd - 1, int(std::ceil(std::max({ay, by, cy}))));
            const double eps = -1e-7;
            for (int y = y0; y <= y1; ++y) {
                int32_t* lab = label.ptr<int32_t>(y);
                float* cor = correction.ptr<float>(y);
                const double py = y + 0.5;
                for (int x = x0; x <= x1; ++x) {
                    const double px = x + 0.5;
                    const double w0 = ((bx - px) * (cy - py) - (cx - px) * (by - py)) / area;
                    const double w1 = ((cx - px) * (ay - py) - (ax - px) * (cy - py)) / area;
                    const double w2 = 1.0 - w0 - w1;
                    if (w0 < eps || w1 < eps || w2 < eps)
                        continue;
                    lab[x] = facePatch[size_t(f)];
                    for (int k = 0; k < 3; ++k)
                        cor[3 * x + k] = float(w0 * off[0][k] + w1 * off[1][k] + w2 * off[2][k]);
                }
            }
        }
    }
}

// Grows the labelled pixels by layers pixels: each pass, a pixel next to
// labelled ones (8-neighbours, as they stood before the pass) takes their mean
// correction and the label of the last of them. Only the rim is visited: a
// photograph's patches usually cover a small part of it.
void extendCorrections(cv::Mat& label, cv::Mat& correction, int layers)
{
    const int rows = label.rows, cols = label.cols;
    if (layers <= 0 || rows < 1 || cols < 1)
        return;
    auto labelled = [&](int y, int x) { return label.ptr<int32_t>(y)[x] >= 0; };
    // The first frontier: labelled pixels with an unlabelled neighbour.
    std::vector<std::vector<int64_t>> found(size_t(std::max(1, omp_get_max_threads())));
#pragma omp parallel for schedule(static)
    for (int y = 0; y < rows; ++y) {
        std::vector<int64_t>& mine = found[size_t(omp_get_thread_num())];
        const int32_t* lab = label.ptr<int32_t>(y);
        for (int x = 0; x < cols; ++x) {
            if (lab[x] < 0)
                continue;
            bool rim = false;
            for (int dy = -1; dy <= 1 && !rim; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    const int yy = y + dy, xx = x + dx;
                    if (yy >= 0 && xx >= 0 && yy < rows && xx < cols && !labelled(yy, xx)) {
                        rim = true;
                        break;
                    }
                }
            if (rim)
                mine.push_back(int64_t(y) * cols + x);
        }
    }
    std::vector<int64_t> frontier;
    for (auto& f : found)
        frontier.insert(frontier.end(), f.begin(), f.end());
    struct Grown {
        int64_t at;
        int32_t label;
        float c[3];
    };
    std::vector<int64_t> candidates;
    std::vector<Grown> grown;
    for (int pass = 0; pass < layers && !frontier.empty(); ++pass) {
        candidates.clear();
        for (int64_t i : frontier) {
            const int y = int(i / cols), x = int(i % cols);
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    const int yy = y + dy, xx = x + dx;
                    if (yy >= 0 && xx >= 0 && yy < rows && xx < cols && !labelled(yy, xx))
                        candidates.push_back(int64_t(yy) * cols + xx);
                }
        }
        std::sort(candidates.begin(), candidates.end());
        candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
        grown.resize(candidates.size());
        for (size_t k = 0; k < candidates.size(); ++k) {
            const int y = int(candidates[k] / cols), x = int(candidates[k] % cols);
            Grown& g = grown[k];
            g.at = candidates[k];
            g.label = -1;
            float sum[3] = {0, 0, 0};
            int n = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    const int yy = y + dy, xx = x + dx;
                    if ((dx == 0 && dy == 0) || yy < 0 || xx < 0 || yy >= rows || xx >= cols)
                        continue;
                    const int32_t l = label.ptr<int32_t>(yy)[xx];
                    if (l < 0)
                        continue;
                    const float* c = correction.ptr<float>(yy) + 3 * xx;
                    for (int q = 0; q < 3; ++q)
                        sum[q] += c[q];
                    g.label = l;
                    ++n;
                }
            for (int q = 0; q < 3; ++q)
                g.c[q] = n > 0 ? sum[q] / float(n) : 0.0f;
        }
        frontier.clear();
        for (const Grown& g : grown) {
            const int y = int(g.at / cols), x = int(g.at % cols);
            label.ptr<int32_t>(y)[x] = g.label;
            float* c = correction.ptr<float>(y) + 3 * x;
            for (int q = 0; q < 3; ++q)
                c[q] = g.c[q];
            frontier.push_back(g.at);
        }
    }
}

void ColourRun::correctImage(uint16_t id, const cv::Mat& in, cv::Mat& out, Workspace& w)
{
    auto t0 = Clock::now();
    const int rows = in.rows, cols = in.cols;
    cv::Mat& label = w.label;
    cv::Mat& correction = w.correction;
    label.create(rows, cols, CV_32S);
    label.setTo(cv::Scalar(-1));
    // Only pixels with a label are read, and every step that labels a pixel
    // writes its correction: the buffer need not be cleared.
    correction.create(rows, cols, CV_32FC3);
    std::vector<int32_t> faces;
    for (const Patch& p : m_patches)
        if (p.image == id)
            faces.insert(faces.end(), p.faces.begin(), p.faces.end());
    rasterisePatches(
        faces, m_faceUVs, m_facePatch,
        [this](int32_t f, float off[3][3]) {
            for (int k = 0; k < 3; ++k) {
                const long u = m_faceUnknown[size_t(f)][size_t(k)];
                for (int c = 0; c < 3; ++c)
                    off[k][c] = u >= 0 ? float(m_offset(u, c)) : 0.0f;
            }
        },
        label, correction);
    addSeconds(3, since(t0));
    if (m_opt.mode == ColorMode::Full) {
        t0 = Clock::now();
        levelStrips(id, label, correction, w.dist);
        addSeconds(2, since(t0));
    }
    t0 = Clock::now();
    // Corrections reach a few pixels past each patch, so that resampling the
    // texture near its border never mixes in uncorrected pixels.
    extendCorrections(label, correction, m_opt.extend);
    // The gain in linear light, then the offsets; alpha passes through.
    uint8_t lut[3][256];
    for (int c = 0; c < 3; ++c) {
        const double g = m_pixelGain[id][size_t(c)];
        for (int v = 0; v < 256; ++v)
            lut[c][v] = uint8_t(std::clamp(std::lround(v * g), 0L, 255L));
    }
    out.create(rows, cols, CV_8UC4);
#pragma omp parallel for schedule(static)
    for (int y = 0; y < rows; ++y) {
        const uint8_t* src = in.ptr<uint8_t>(y);
        uint8_t* dst = out.ptr<uint8_t>(y);
        const int32_t* lab = label.ptr<int32_t>(y);
        const float* cor = correction.ptr<float>(y);
        for (int x = 0; x < cols; ++x) {
            const uint8_t* s = src + 4 * x;
            uint8_t* d = dst + 4 * x;
            if (lab[x] < 0) {
                for (int c = 0; c < 3; ++c)
                    d[c] = lut[c][s[c]];
            } else {
                for (int c = 0; c < 3; ++c) {
                    const float v = std::min(255.0f, float(s[c]) * m_pixelGain[id][size_t(c)]) + cor[3 * x + c];
                    d[c] = uint8_t(std::clamp(int(std::lround(v)), 0, 255));
                }
            }
            d[3] = s[3];
        }
    }
    addSeconds(3, since(t0));
}

void ColourRun::levelStrips(uint16_t id, cv::Mat& label, cv::Mat& correction, cv::Mat& dist)
{
    auto sides = m_imageSides.find(id);
    if (sides == m_imageSides.end())
        return;
    const int rows = label.rows, cols = label.cols;
    // The seam border: pixels the seams run through, each with half the
    // difference to the other side after the global model, so that both
    // sides meet at their mean. Differences are smoothed along the seam: the
    // blurred samples still carry noise and small misregistrations.
    struct Border {
        float sum[3] = {0, 0, 0};
        float weight = 0;
        int32_t patch = -1;
    };
    std::unordered_map<long, Border> border;
    for (const auto& es : sides->second) {
        const SeamEdge& e = m_seams[es.first];
        const int own = es.second, other = 1 - own;
        std::vector<float> diff(size_t(e.sampleCount) * 3, 0.0f), w(e.sampleCount, 0.0f);
        for (uint32_t k = 0; k < e.sampleCount; ++k) {
            const uint32_t s = e.firstSample + k;
            if (m_weight[s] <= 0)
                continue;
            w[k] = m_weight[s];
            for (int c = 0; c < 3; ++c)
                diff[3 * k + c] = 0.5f * (corrected(e, other, s, c) - corrected(e, own, s, c));
        }
        const int radius = 2;
        for (uint32_t k = 0; k < e.sampleCount; ++k) {
            float sum[3] = {0, 0, 0}, ws = 0;
            for (int j = std::max(0, int(k) - radius); j <= std::min(int(e.sampleCount) - 1, int(k) + radius); ++j) {
                ws += w[size_t(j)];
                for (int c = 0; c < 3; ++c)
                    sum[c] += w[size_t(j)] * diff[3 * size_t(j) + c];
            }
            if (ws <= 0)
                continue;
            const float t = (float(k) + 0.5f) / float(e.sampleCount);
            const int x = int(std::floor((1 - t) * e.end[own][0][0] + t * e.end[own][1][0]));
            const int y = int(std::floor((1 - t) * e.end[own][0][1] + t * e.end[own][1][1]));
            if (x < 0 || y < 0 || x >= cols || y >= rows)
                continue;
            Border& b = border[long(y) * cols + x];
            for (int c = 0; c < 3; ++c)
                b.sum[c] += sum[c] / ws;
            b.weight += 1;
            b.patch = e.patch[own];
        }
    }
    if (border.empty())
        return;
    // The strip: pixels of the same patch within stripWidth steps of the border.
    dist.create(rows, cols, CV_16S);
    dist.setTo(cv::Scalar(-1));
    std::vector<long> queue;
    queue.reserve(border.size() * 8);
    for (const auto& kv : border) {
        const int y = int(kv.first / cols), x = int(kv.first % cols);
        const int32_t l = label.at<int32_t>(y, x);
        if (l >= 0 && l != kv.second.patch)
            continue; // another patch of this picture holds the pixel
        dist.at<int16_t>(y, x) = 0;
        queue.push_back(kv.first);
    }
    auto patchAt = [&](long i) -> int32_t {
        const int y = int(i / cols), x = int(i % cols);
        const int32_t l = label.at<int32_t>(y, x);
        if (l >= 0)
            return l;
        auto b = border.find(i);
        return b != border.end() ? b->second.patch : -1;
    };
    const int dx[4] = {1, -1, 0, 0}, dy[4] = {0, 0, 1, -1};
    std::vector<long> strip;
    for (size_t head = 0; head < queue.size(); ++head) {
        const long i = queue[head];
        const int y = int(i / cols), x = int(i % cols);
        const int16_t d = dist.at<int16_t>(y, x);
        if (d >= m_opt.stripWidth)
            continue;
        const int32_t p = patchAt(i);
        for (int k = 0; k < 4; ++k) {
            const int xx = x + dx[k], yy = y + dy[k];
            if (xx < 0 || yy < 0 || xx >= cols || yy >= rows)
                continue;
            if (dist.at<int16_t>(yy, xx) >= 0 || label.at<int32_t>(yy, xx) != p)
                continue;
            dist.at<int16_t>(yy, xx) = int16_t(d + 1);
            const long j = long(yy) * cols + xx;
            queue.push_back(j);
            strip.push_back(j);
        }
    }
#pragma omp atomic
    m_stats.stripPixels += long(strip.size());
    // Laplace's equation over the strip: the correction is the border's at
    // the seam, nothing at the strip's inner edge, and as smooth as it can be
    // between; neighbours outside the patch do not pull (free border).
    std::unordered_map<long, long> unknown;
    unknown.reserve(strip.size() * 2);
    for (size_t k = 0; k < strip.size(); ++k)
        unknown[strip[k]] = long(k);
    const long n = long(strip.size());
    std::vector<Triplet> t;
    t.reserve(size_t(n) * 5);
    Eigen::MatrixXd rhs = Eigen::MatrixXd::Zero(n, 3), x = Eigen::MatrixXd::Zero(n, 3);
    for (long k = 0; k < n; ++k) {
        const long i = strip[size_t(k)];
        const int y = int(i / cols), xx0 = int(i % cols);
        const int32_t p = label.at<int32_t>(y, xx0);
        double diag = 0;
        for (int q = 0; q < 4; ++q) {
            const int xx = xx0 + dx[q], yy = y + dy[q];
            if (xx < 0 || yy < 0 || xx >= cols || yy >= rows)
                continue;
            const long j = long(yy) * cols + xx;
            if (patchAt(j) != p)
                continue;
            diag += 1;
            auto u = unknown.find(j);
            if (u != unknown.end()) {
                t.emplace_back(k, u->second, -1.0);
                continue;
            }
            auto b = border.find(j);
            if (b != border.end() && dist.at<int16_t>(yy, xx) == 0)
                for (int c = 0; c < 3; ++c)
                    rhs(k, c) += b->second.sum[c] / b->second.weight;
            // Any other pixel of the patch lies past the strip: no change there.
        }
        t.emplace_back(k, k, diag > 0 ? diag : 1.0);
    }
    if (n > 0) {
        SpMat A(n, n);
        A.setFromTriplets(t.begin(), t.end());
        solveCG(A, rhs, x, 500, 1e-4);
    }
    for (long k = 0; k < n; ++k) {
        const long i = strip[size_t(k)];
        float* c = correction.ptr<float>(int(i / cols)) + 3 * (i % cols);
        for (int q = 0; q < 3; ++q)
            c[q] += float(x(k, q));
    }
    for (const auto& kv : border) {
        const int y = int(kv.first / cols), xx = int(kv.first % cols);
        if (dist.at<int16_t>(y, xx) != 0)
            continue;
        float* c = correction.ptr<float>(y) + 3 * xx;
        int32_t& l = label.at<int32_t>(y, xx);
        if (l < 0) {
            // A seam pixel whose centre no face of the patch covers: it takes
            // the patch's offsets from its neighbours inside.
            float sum[3] = {0, 0, 0};
            int count = 0;
            for (int q = 0; q < 4; ++q) {
                const int x2 = xx + dx[q], y2 = y + dy[q];
                if (x2 < 0 || y2 < 0 || x2 >= cols || y2 >= rows || label.at<int32_t>(y2, x2) != kv.second.patch ||
                    dist.at<int16_t>(y2, x2) == 0)
                    continue;
                const long j = long(y2) * cols + x2;
                auto u = unknown.find(j);
                const float* o = correction.ptr<float>(y2) + 3 * x2;
                for (int k = 0; k < 3; ++k)
                    sum[k] += o[k] - (u != unknown.end() ? float(x(u->second, k)) : 0.0f);
                ++count;
            }
            for (int k = 0; k < 3; ++k)
                c[k] = count > 0 ? sum[k] / float(count) : 0.0f;
            l = kv.second.patch;
        }
        for (int q = 0; q < 3; ++q)
            c[q] += kv.second.sum[q] / kv.second.weight;
    }
}

void ColourRun::measureAfter(uint16_t id, const cv::Mat& corrected, cv::Mat& blurred)
{
    auto sides = m_imageSides.find(id);
    if (sides == m_imageSides.end())
        return;
    blurNearSeams(id, corrected, blurred);
    for (const auto& es : sides->second) {
        const SeamEdge& e = m_seams[es.first];
        const int side = es.second;
        for (uint32_t k = 0; k < e.sampleCount; ++k) {
            const float t = (float(k) + 0.5f) / float(e.sampleCount);
            const float fx = (1 - t) * e.end[side][0][0] + t * e.end[side][1][0] - 0.5f;
            const float fy = (1 - t) * e.end[side][0][1] + t * e.end[side][1][1] - 0.5f;
            const int x0 = std::clamp(int(std::floor(fx)), 0, blurred.cols - 2);
            const int y0 = std::clamp(int(std::floor(fy)), 0, blurred.rows - 2);
            const float ax = std::clamp(fx - float(x0), 0.0f, 1.0f), ay = std::clamp(fy - float(y0), 0.0f, 1.0f);
            float* out = &m_after[side][size_t(e.firstSample + k) * 3];
            for (int c = 0; c < 3; ++c)
                out[c] = (1 - ax) * (1 - ay) * blurred.ptr<uint8_t>(y0)[4 * x0 + c] +
                         ax * (1 - ay) * blurred.ptr<uint8_t>(y0)[4 * (x0 + 1) + c] +
                         (1 - ax) * ay * blurred.ptr<uint8_t>(y0 + 1)[4 * x0 + c] +
                         ax * ay * blurred.ptr<uint8_t>(y0 + 1)[4 * (x0 + 1) + c];
        }
    }
}

} // namespace

long adjColorForPatch(const KvoHalfEdgeMesh& mesh, const QString& folder, const PatchTable& patches,
                      const std::map<uint16_t, ImgInfo>& images, const std::vector<FaceCorners>& faceUVs,
                      const ColorOptions& options, ColorStats* stats)
{
    ColorStats local;
    ColorStats& st = stats ? *stats : local;
    st = ColorStats();
    kvo::prgText(options.progress, QObject::tr("Adjust Image Color..."));
    if (long(faceUVs.size()) != mesh.getFaceCount())
        return kvoColorBadInput;
    if (!QDir().mkpath(folder))
        return kvoColorCannotWrite;
    ColourRun run(mesh, patches, images, faceUVs, options, st);
    const long rc = run.run(folder);
    kvo::prgStep(options.progress, 1.0);
    return rc;
}

} // namespace RecMesh
} // namespace Rec3D

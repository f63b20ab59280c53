#include "SampleQuality.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <unordered_map>

#include "SampleProject.h"
#include "modelio/KvoObjReader.h"
#include "platform/KvoCameraMath.h"
#include "platform/KvoRasterizer.h"
#include "scene/KvoUV.h"

using namespace kvo;

namespace qvsample {

namespace {

double psnrOf(double mse)
{
    if (!(mse > 255.0 * 255.0 * std::pow(10.0, -kQualityPsnrCap / 10)))
        return kQualityPsnrCap;
    return 10 * std::log10(255.0 * 255.0 / mse);
}

struct V3 {
    double x, y, z;
};
inline V3 operator-(const V3& a, const V3& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline V3 cross(const V3& a, const V3& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double dot(const V3& a, const V3& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline V3 v3(const XPnt3f& p)
{
    return {p.x, p.y, p.z};
}

// A textured model reduced to what the measurement needs, face by face in
// the file's order.
struct Model {
    std::vector<XPnt3f> vertices;
    // Three vertex indices a face; a face with an index outside the vertices
    // has kObjNoIndex in all three, which the rasteriser passes over.
    std::vector<unsigned> corners;
    std::vector<XPnt2f> uvs;       // three a face
    std::vector<int> picture;      // a face: its picture, -1 for none
    std::vector<cv::Mat> pictures; // CV_8UC3, BGR, rows top-down
    long faceCount() const { return long(picture.size()); }
    bool valid(long f) const { return corners[size_t(f) * 3] != kObjNoIndex; }
    const XPnt3f& corner(long f, int k) const { return vertices[corners[size_t(f) * 3 + size_t(k)]]; }
};

bool loadModel(const QString& file, Model& out, QString& error)
{
    const QFileInfo info(file);
    if (!info.isFile()) {
        error = QString("%1 does not exist.").arg(file);
        return false;
    }
    QvObjModel obj;
    if (readObjFile(obj, info.absoluteFilePath(), nullptr) != 0) {
        error = QString("%1 cannot be read as an OBJ file.").arg(file);
        return false;
    }
    if (obj.mtlMissing) {
        error = QString("%1 names the material library %2, which cannot be read.").arg(file, obj.mtlName);
        return false;
    }
    const size_t n = obj.triangles.size();
    if (n == 0) {
        error = QString("%1 has no faces.").arg(file);
        return false;
    }
    out = Model();
    out.vertices = obj.vertices->vec();
    out.corners.assign(n * 3, kObjNoIndex);
    out.uvs.assign(n * 3, XPnt2f(0, 0));
    out.picture.assign(n, -1);
    const std::vector<XPnt2f>& tc = obj.texCoords->vec();
    for (size_t f = 0; f < n; ++f) {
        const QvObjTriangle& t = obj.triangles[f];
        if (t.vindices[0] < out.vertices.size() && t.vindices[1] < out.vertices.size() &&
            t.vindices[2] < out.vertices.size())
            std::copy(t.vindices, t.vindices + 3, out.corners.begin() + long(f * 3));
    }

    // Pictures are read once each, and only for materials that faces use: a
    // stale material nobody draws with does not make the model unreadable.
    std::map<QString, int> byPath;
    for (const QvObjGroup& g : obj.groups) {
        if (g.material < 0 || size_t(g.material) >= obj.materials.size() ||
            obj.materials[size_t(g.material)].mapKd.isEmpty())
            continue;
        const QvObjMaterial& material = obj.materials[size_t(g.material)];
        const QString path = resolveObjName(obj.pathName, material.mapKd);
        auto it = byPath.find(path);
        if (it == byPath.end()) {
            cv::Mat picture = cv::imread(QFile::encodeName(path).toStdString(), cv::IMREAD_COLOR);
            if (picture.empty()) {
                error = QString("The texture %1 of material %2 in %3 cannot be read.").arg(path, material.name, file);
                return false;
            }
            it = byPath.emplace(path, int(out.pictures.size())).first;
            out.pictures.push_back(picture);
        }
        for (unsigned f : g.triangles) {
            if (f >= n)
                continue;
            const QvObjTriangle& t = obj.triangles[f];
            // A face without texture coordinates has nothing to map the picture with.
            if (t.tindices[0] >= tc.size() || t.tindices[1] >= tc.size() || t.tindices[2] >= tc.size())
                continue;
            for (int k = 0; k < 3; ++k)
                out.uvs[f * 3 + size_t(k)] = tc[t.tindices[k]];
            out.picture[f] = it->second;
        }
    }
    return true;
}

// The picture bilinearly at a texture coordinate, as GL_LINEAR with
// clamping to the edge does it: texel centres at half-pixel positions.
cv::Vec3d bilinear(const cv::Mat& pic, double u, double v)
{
    const XPnt2d at = uvToPixel(u, v, pic.cols, pic.rows);
    // Written so that NaN lands on the first texel rather than anywhere.
    const double x = at.x - 0.5 >= 0 ? std::min(at.x - 0.5, double(pic.cols - 1)) : 0.0;
    const double y = at.y - 0.5 >= 0 ? std::min(at.y - 0.5, double(pic.rows - 1)) : 0.0;
    const int x0 = int(x), y0 = int(y);
    const int x1 = std::min(x0 + 1, pic.cols - 1), y1 = std::min(y0 + 1, pic.rows - 1);
    const double fx = x - x0, fy = y - y0;
    const uchar* r0 = pic.ptr<uchar>(y0);
    const uchar* r1 = pic.ptr<uchar>(y1);
    cv::Vec3d c;
    for (int k = 0; k < 3; ++k) {
        const double top = r0[x0 * 3 + k] + fx * (r0[x1 * 3 + k] - r0[x0 * 3 + k]);
        const double bottom = r1[x0 * 3 + k] + fx * (r1[x1 * 3 + k] - r1[x0 * 3 + k]);
        c[k] = top + fy * (bottom - top);
    }
    return c;
}

// The colour a face shows at barycentric weights w of its corners. A face
// without a picture is black: it is part of what the user gets, so it is
// measured as drawn rather than left out, in both comparisons.
cv::Vec3d colourAt(const Model& m, long f, const double w[3])
{
    const int p = m.picture[size_t(f)];
    if (p < 0)
        return cv::Vec3d(0, 0, 0);
    double u = 0, v = 0;
    for (int k = 0; k < 3; ++k) {
        const XPnt2f& q = m.uvs[size_t(f) * 3 + size_t(k)];
        u += w[k] * q.x;
        v += w[k] * q.y;
    }
    return bilinear(m.pictures[size_t(p)], u, v);
}

// Finds points again by position within a tolerance (in each axis), through
// a hashed grid of cells as wide as the tolerance.
class PositionIndex {
public:
    explicit PositionIndex(double tolerance) : m_tol(tolerance) {}

    // The nearest point added within the tolerance, or -1.
    int find(const XPnt3f& p) const
    {
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
            return -1;
        const int64_t c[3] = {cell(p.x), cell(p.y), cell(p.z)};
        int best = -1;
        double bestDistance = 0;
        for (int dx = -1; dx <= 1; ++dx)
            for (int dy = -1; dy <= 1; ++dy)
                for (int dz = -1; dz <= 1; ++dz) {
                    const auto it = m_cells.find(key(c[0] + dx, c[1] + dy, c[2] + dz));
                    if (it == m_cells.end())
                        continue;
                    for (int id : it->second) {
                        const XPnt3f& q = m_points[size_t(id)];
                        const double d = std::max(
                            {std::fabs(double(q.x) - p.x), std::fabs(double(q.y) - p.y), std::fabs(double(q.z) - p.z)});
                        if (d <= m_tol && (best < 0 || d < bestDistance || (d == bestDistance && id < best))) {
                            best = id;
                            bestDistance = d;
                        }
                    }
                }
        return best;
    }

    // The point found there, or a new one; -1 for a position that is not finite.
    int add(const XPnt3f& p)
    {
        const int found = find(p);
        if (found >= 0 || !std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
            return found;
        const int id = int(m_points.size());
        m_points.push_back(p);
        m_cells[key(cell(p.x), cell(p.y), cell(p.z))].push_back(id);
        return id;
    }

private:
    int64_t cell(double v) const { return int64_t(std::floor(v / m_tol)); }
    static uint64_t key(int64_t x, int64_t y, int64_t z)
    {
        // Cells that share a key only share a list; distances decide.
        uint64_t h = uint64_t(x) * 0x9E3779B97F4A7C15ull;
        h ^= uint64_t(y) * 0xC2B2AE3D27D4EB4Full + (h << 6) + (h >> 2);
        h ^= uint64_t(z) * 0x165667B19E3779F9ull + (h << 6) + (h >> 2);
        return h;
    }
    double m_tol;
    std::vector<XPnt3f> m_points;
    std::unordered_map<uint64_t, std::vector<int>> m_cells;
};

struct TripleHash {
    size_t operator()(const std::array<int, 3>& t) const
    {
        uint64_t h = uint64_t(uint32_t(t[0])) * 0x9E3779B97F4A7C15ull;
        h ^= uint64_t(uint32_t(t[1])) * 0xC2B2AE3D27D4EB4Full + (h << 6) + (h >> 2);
        h ^= uint64_t(uint32_t(t[2])) * 0x165667B19E3779F9ull + (h << 6) + (h >> 2);
        return size_t(h);
    }
};

// For each face of the measured model, the ground-truth face with the same
// corner positions (-1 for none), and for each of the truth face's corners
// which corner of the measured face it is.
struct FaceMatch {
    std::vector<long> truthFace;
    std::vector<std::array<uint8_t, 3>> cornerOf;
};

FaceMatch matchFaces(const Model& truth, const Model& measured)
{
    // Positions are told apart far below any edge of the mesh and far above
    // what a writer with six significant digits loses.
    XPnt3f lo(1e30f, 1e30f, 1e30f), hi(-1e30f, -1e30f, -1e30f);
    for (const XPnt3f& p : truth.vertices) {
        lo = XPnt3f(std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z));
        hi = XPnt3f(std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z));
    }
    const double diagonal = truth.vertices.empty() ? 1.0 : std::sqrt(dot(v3(hi) - v3(lo), v3(hi) - v3(lo)));
    PositionIndex index(std::max(1e-5 * diagonal, 1e-9));
    // The generator gives every surface vertices of its own, so positions, not
    // vertex numbers, say which corners are the same point.
    std::vector<int> truthId(truth.vertices.size()), measuredId(measured.vertices.size());
    for (size_t i = 0; i < truth.vertices.size(); ++i)
        truthId[i] = index.add(truth.vertices[i]);
    for (size_t i = 0; i < measured.vertices.size(); ++i)
        measuredId[i] = index.find(measured.vertices[i]);

    auto ids = [](const Model& m, const std::vector<int>& idOf, long f, std::array<int, 3>& out) {
        if (!m.valid(f))
            return false;
        for (int k = 0; k < 3; ++k)
            out[size_t(k)] = idOf[m.corners[size_t(f) * 3 + size_t(k)]];
        return out[0] >= 0 && out[1] >= 0 && out[2] >= 0 && out[0] != out[1] && out[1] != out[2] && out[0] != out[2];
    };
    auto normal = [](const Model& m, long f) {
        return cross(v3(m.corner(f, 1)) - v3(m.corner(f, 0)), v3(m.corner(f, 2)) - v3(m.corner(f, 0)));
    };
    std::unordered_map<std::array<int, 3>, std::vector<long>, TripleHash> byCorners;
    for (long f = 0; f < truth.faceCount(); ++f) {
        std::array<int, 3> key;
        if (!ids(truth, truthId, f, key))
            continue;
        std::sort(key.begin(), key.end());
        byCorners[key].push_back(f);
    }

    FaceMatch match;
    match.truthFace.assign(size_t(measured.faceCount()), -1);
    match.cornerOf.assign(size_t(measured.faceCount()), {0, 1, 2});
    for (long f = 0; f < measured.faceCount(); ++f) {
        std::array<int, 3> corners;
        if (!ids(measured, measuredId, f, corners))
            continue;
        std::array<int, 3> key = corners;
        std::sort(key.begin(), key.end());
        const auto it = byCorners.find(key);
        if (it == byCorners.end())
            continue;
        // Two truth faces on the same corners are the two sides of a thin
        // sheet: the one facing the same way is this face.
        long g = it->second.front();
        const V3 n = normal(measured, f);
        for (long candidate : it->second)
            if (dot(normal(truth, candidate), n) > 0) {
                g = candidate;
                break;
            }
        std::array<int, 3> truthCorners;
        ids(truth, truthId, g, truthCorners);
        for (int k = 0; k < 3; ++k)
            for (int j = 0; j < 3; ++j)
                if (corners[size_t(j)] == truthCorners[size_t(k)])
                    match.cornerOf[size_t(f)][size_t(k)] = uint8_t(j);
        match.truthFace[size_t(f)] = g;
    }
    return match;
}

// The measured texture against the ground truth at points spread over each
// matched face, about one a ground-truth texel: the centroids of the n x n
// small triangles a face's sides cut into n parts each make.
void measureTruth(const Model& truth, const Model& measured, const FaceMatch& match, double texelsPerMetre,
                  const std::vector<uint8_t>* truthTextured, QualityReport& report)
{
    const long faces = measured.faceCount();
    // Per face and channel: sums of m, t, m m, m t, t t over its points (m
    // measured, t truth), so that the error after any gain g follows as
    // g g S(mm) - 2 g S(mt) + S(tt).
    struct Sums {
        double v[3][5] = {};
    };
    std::vector<Sums> faceSums{size_t(faces)};
    std::vector<long> faceSamples(size_t(faces), 0);
    cv::parallel_for_(cv::Range(0, int(faces)), [&](const cv::Range& range) {
        for (long f = range.start; f < range.end; ++f) {
            const long g = match.truthFace[size_t(f)];
            if (g < 0)
                continue;
            double texels;
            const int p = truth.picture[size_t(g)];
            if (p >= 0) {
                const cv::Mat& pic = truth.pictures[size_t(p)];
                const XPnt2f &a = truth.uvs[size_t(g) * 3], &b = truth.uvs[size_t(g) * 3 + 1],
                             &c = truth.uvs[size_t(g) * 3 + 2];
                texels = 0.5 * std::fabs(double(b.x - a.x) * (c.y - a.y) - double(b.y - a.y) * (c.x - a.x)) * pic.cols *
                         pic.rows;
            } else {
                const V3 n = cross(v3(truth.corner(g, 1)) - v3(truth.corner(g, 0)),
                                   v3(truth.corner(g, 2)) - v3(truth.corner(g, 0)));
                texels = 0.5 * std::sqrt(dot(n, n)) * texelsPerMetre * texelsPerMetre;
            }
            // Small triangles of about one texel each; written so that a face
            // with unusable texture coordinates (NaN) still gets one point.
            const double side = std::sqrt(texels);
            const int cuts = side >= 1.5 ? int(std::min(std::round(side), 4096.0)) : 1;
            const std::array<uint8_t, 3>& cornerOf = match.cornerOf[size_t(f)];
            Sums& sum = faceSums[size_t(f)];
            long count = 0;
            auto sample = [&](double s, double t) {
                const double w[3] = {1 - s - t, s, t};
                double wm[3];
                for (int k = 0; k < 3; ++k)
                    wm[cornerOf[size_t(k)]] = w[k];
                const cv::Vec3d m = colourAt(measured, f, wm), tr = colourAt(truth, g, w);
                for (int k = 0; k < 3; ++k) {
                    double* v = sum.v[k];
                    v[0] += m[k];
                    v[1] += tr[k];
                    v[2] += m[k] * m[k];
                    v[3] += m[k] * tr[k];
                    v[4] += tr[k] * tr[k];
                }
                ++count;
            };
            for (int i = 0; i < cuts; ++i)
                for (int j = 0; i + j < cuts; ++j) {
                    sample((i + 1.0 / 3) / cuts, (j + 1.0 / 3) / cuts);
                    if (i + j + 2 <= cuts)
                        sample((i + 2.0 / 3) / cuts, (j + 2.0 / 3) / cuts);
                }
            faceSamples[size_t(f)] = count;
        }
    });
    // Over all matched faces, and over those the measured model textures.
    Sums all, textured;
    long samples = 0, texturedSamples = 0;
    for (long f = 0; f < faces; ++f) {
        const long g = match.truthFace[size_t(f)];
        const bool hasPicture =
            truthTextured ? g >= 0 && (*truthTextured)[size_t(g)] != 0 : measured.picture[size_t(f)] >= 0;
        for (int k = 0; k < 3; ++k)
            for (int i = 0; i < 5; ++i) {
                all.v[k][i] += faceSums[size_t(f)].v[k][i];
                if (hasPicture)
                    textured.v[k][i] += faceSums[size_t(f)].v[k][i];
            }
        samples += faceSamples[size_t(f)];
        texturedSamples += hasPicture ? faceSamples[size_t(f)] : 0;
        if (match.truthFace[size_t(f)] >= 0)
            ++report.matchedFaces;
    }
    // Exposure and white balance as for the photographs: the gain a channel
    // that gives the measured points the truth's mean.
    auto psnr = [](const Sums& s, long n) {
        if (n <= 0)
            return 0.0;
        double err = 0;
        for (int k = 0; k < 3; ++k) {
            const double* v = s.v[k];
            const double g = v[0] > 0 ? v[1] / v[0] : 1.0;
            err += std::max(0.0, g * g * v[2] - 2 * g * v[3] + v[4]);
        }
        return psnrOf(err / (3.0 * double(n)));
    };
    report.truthSamples = samples;
    report.truthPsnr = psnr(all, samples);
    report.texturedSamples = texturedSamples;
    report.truthPsnrTextured = psnr(textured, texturedSamples);
}

// The photograph against the model drawn through its true camera.
void measurePhoto(const Model& m, const SampleCamera& cam, const cv::Mat& photo, QualityReport::Photo& out)
{
    // The depth range the generator's renderer takes, from the model's extent along the view.
    double lo = 1e300, hi = 0;
    for (const XPnt3f& v : m.vertices) {
        const double z = cam.R[6] * v.x + cam.R[7] * v.y + cam.R[8] * v.z + cam.t[2];
        lo = std::min(lo, z);
        hi = std::max(hi, z);
    }
    const double zFar = std::max(1.0, hi * 1.01);
    const double zNear = std::clamp(lo * 0.99, zFar * 1e-4, zFar * 0.5);
    double mv[16], pr[16];
    const double K[9] = {cam.fx, 0, cam.cx, 0, cam.fy, cam.cy, 0, 0, 1};
    kvo::pinholeGlMatrices(K, cam.R, cam.t, cam.width, cam.height, zNear, zFar, mv, pr);
    const int W = cam.width, H = cam.height;
    KvoRasterizer raster;
    raster.setCamera(mv, pr, W, H);
    // The scene's surfaces are one-sided skins that the photographs show only
    // from outside, so a face seen from behind is left out here as well.
    raster.draw(m.vertices.data(), long(m.vertices.size()), m.corners.data(), m.faceCount(), 0, true);
    const int32_t* faceBuffer = raster.faceBuffer();

    // Sums a row (model's B, G, R, photograph's B, G, R, pixels) added up in
    // row order afterwards, so that the figures do not depend on the threads.
    cv::Mat drawn(H, W, CV_32FC3, cv::Scalar::all(0));
    std::vector<double> rowSums(size_t(H) * 7, 0.0);
    const XPnt3d eye = cam.center();
    const V3 o{eye.x, eye.y, eye.z};
    cv::parallel_for_(cv::Range(0, H), [&](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; ++y) {
            double* sums = &rowSums[size_t(y) * 7];
            const int32_t* faces = faceBuffer + size_t(y) * size_t(W);
            const uchar* ph = photo.ptr<uchar>(y);
            cv::Vec3f* dst = drawn.ptr<cv::Vec3f>(y);
            for (int x = 0; x < W; ++x) {
                const long f = faces[x];
                if (f < 0)
                    continue;
                // The pixel centre's ray meets the face at barycentric (1 - s - t, s, t).
                const double cx = (x + 0.5 - cam.cx) / cam.fx, cy = (y + 0.5 - cam.cy) / cam.fy;
                const V3 d{cam.R[0] * cx + cam.R[3] * cy + cam.R[6], cam.R[1] * cx + cam.R[4] * cy + cam.R[7],
                           cam.R[2] * cx + cam.R[5] * cy + cam.R[8]};
                const V3 p0 = v3(m.corner(f, 0)), e1 = v3(m.corner(f, 1)) - p0, e2 = v3(m.corner(f, 2)) - p0;
                const V3 h = cross(d, e2);
                const double det = dot(e1, h);
                double w[3] = {1.0 / 3, 1.0 / 3, 1.0 / 3};
                if (std::fabs(det) > 1e-300) {
                    const V3 s0 = o - p0;
                    const double s = dot(s0, h) / det, t = dot(d, cross(s0, e1)) / det;
                    // The pixel centre may sit a snapping step outside the face;
                    // its own texture is what the face shows there.
                    w[0] = std::max(0.0, 1 - s - t);
                    w[1] = std::max(0.0, s);
                    w[2] = std::max(0.0, t);
                    const double total = w[0] + w[1] + w[2];
                    if (total > 0 && std::isfinite(total))
                        for (double& wk : w)
                            wk /= total;
                    else
                        w[0] = w[1] = w[2] = 1.0 / 3;
                }
                const cv::Vec3d c = colourAt(m, f, w);
                dst[x] = cv::Vec3f(float(c[0]), float(c[1]), float(c[2]));
                for (int k = 0; k < 3; ++k) {
                    sums[k] += dst[x][k];
                    sums[3 + k] += ph[x * 3 + k];
                }
                sums[6] += 1;
            }
        }
    });
    double total[7] = {0, 0, 0, 0, 0, 0, 0};
    for (int y = 0; y < H; ++y)
        for (int k = 0; k < 7; ++k)
            total[k] += rowSums[size_t(y) * 7 + size_t(k)];
    out.pixels = long(total[6]);
    out.psnr = 0;
    if (out.pixels == 0)
        return;
    // Exposure and white balance: the gain a channel that gives the drawn
    // model the photograph's mean, clipped as the photograph's sensor clips.
    double gain[3];
    for (int k = 0; k < 3; ++k)
        gain[k] = total[k] > 0 ? total[3 + k] / total[k] : 1.0;
    std::vector<double> rowError(size_t(H), 0.0);
    cv::parallel_for_(cv::Range(0, H), [&](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; ++y) {
            const int32_t* faces = faceBuffer + size_t(y) * size_t(W);
            const uchar* ph = photo.ptr<uchar>(y);
            const cv::Vec3f* src = drawn.ptr<cv::Vec3f>(y);
            double e = 0;
            for (int x = 0; x < W; ++x) {
                if (faces[x] < 0)
                    continue;
                for (int k = 0; k < 3; ++k) {
                    const double d = std::min(255.0, src[x][k] * gain[k]) - ph[x * 3 + k];
                    e += d * d;
                }
            }
            rowError[size_t(y)] = e;
        }
    });
    double error = 0;
    for (double e : rowError)
        error += e;
    out.psnr = psnrOf(error / (3.0 * double(out.pixels)));
}

} // namespace

bool measureQuality(const QString& sceneFolder, const QString& texturedObj, QualityReport& report, QString& error,
                    const std::vector<XPnt3f>* texturedCorners)
{
    report = QualityReport();
    SampleOptions options;
    std::vector<SampleCamera> cameras;
    if (!readSampleFolder(sceneFolder, options, cameras, error))
        return false;
    const QDir dir(sceneFolder);
    Model truth, measured;
    if (!loadModel(dir.filePath("truth/model_textured.obj"), truth, error) || !loadModel(texturedObj, measured, error))
        return false;
    report.faces = measured.faceCount();

    // The faces said to be textured, found in the truth by their corners.
    std::vector<uint8_t> truthTextured;
    if (texturedCorners) {
        Model listed;
        listed.vertices = *texturedCorners;
        const size_t n = texturedCorners->size() / 3;
        listed.corners.resize(3 * n);
        for (size_t i = 0; i < 3 * n; ++i)
            listed.corners[i] = unsigned(i);
        listed.picture.assign(n, -1);
        listed.uvs.resize(3 * n);
        truthTextured.assign(size_t(truth.faceCount()), 0);
        for (long g : matchFaces(truth, listed).truthFace)
            if (g >= 0)
                truthTextured[size_t(g)] = 1;
    }
    measureTruth(truth, measured, matchFaces(truth, measured), options.texelsPerMetre,
                 texturedCorners ? &truthTextured : nullptr, report);

    double sum = 0;
    long shown = 0;
    for (const SampleCamera& cam : cameras) {
        const QString path = dir.filePath("photos/" + QString::fromStdString(cam.name));
        const cv::Mat photo = cv::imread(QFile::encodeName(path).toStdString(), cv::IMREAD_COLOR);
        if (photo.empty()) {
            error = QString("The photograph %1 cannot be read.").arg(path);
            return false;
        }
        if (photo.cols != cam.width || photo.rows != cam.height) {
            error = QString("The photograph %1 is %2 x %3 pixels; its camera says %4 x %5.")
                        .arg(path)
                        .arg(photo.cols)
                        .arg(photo.rows)
                        .arg(cam.width)
                        .arg(cam.height);
            return false;
        }
        QualityReport::Photo p;
        p.name = cam.name;
        measurePhoto(measured, cam, photo, p);
        report.photos.push_back(p);
        if (p.pixels > 0) {
            sum += p.psnr;
            report.photoPsnrMin = shown == 0 ? p.psnr : std::min(report.photoPsnrMin, p.psnr);
            ++shown;
        }
    }
    report.photoPsnrMean = shown > 0 ? sum / double(shown) : 0.0;
    return true;
}

OccluderScore scoreOccluders(const SampleScene& scene, const std::vector<SampleView>& views,
                             const std::vector<XPnt3d>& centres, const std::vector<int32_t>& surfaces,
                             const std::vector<int>& chosen)
{
    OccluderScore score;
    const SampleMesh& m = scene.mesh;
    // 0: not shown, 1: clear, 2: hidden by something the model lacks.
    auto state = [&](size_t face, size_t photo) {
        const SampleCamera& cam = scene.cameras[photo];
        const SampleView& v = views[photo];
        XPnt2d px;
        if (!cam.project(centres[face], px))
            return 0;
        const int x = int(std::floor(px.x)), y = int(std::floor(px.y));
        if (x < 0 || y < 0 || x >= v.triangle.cols || y >= v.triangle.rows)
            return 0;
        const int32_t behind = v.modelTriangle.at<int32_t>(y, x), front = v.triangle.at<int32_t>(y, x);
        if (behind < 0 || m.triangleSurface[size_t(behind)] != surfaces[face])
            return 0;
        if (front == behind || (front >= 0 && m.triangleSurface[size_t(front)] == surfaces[face]))
            return 1;
        return front >= 0 && !scene.surfaces[size_t(m.triangleSurface[size_t(front)])].inMesh ? 2 : 0;
    };
    for (size_t f = 0; f < centres.size(); ++f) {
        if (surfaces[f] < 0)
            continue;
        bool clear = false, hidden = false;
        for (size_t p = 0; p < views.size(); ++p) {
            const int st = state(f, p);
            clear = clear || st == 1;
            hidden = hidden || st == 2;
        }
        if (!clear || !hidden)
            continue;
        ++score.contested;
        if (chosen[f] >= 0 && size_t(chosen[f]) < views.size()) {
            const int st = state(f, size_t(chosen[f]));
            score.clearChosen += st == 1;
            score.hiddenChosen += st == 2;
        }
    }
    return score;
}

BackgroundScore scoreBackground(const SampleScene& scene, const std::vector<SampleView>& views,
                                const std::vector<XPnt3d>& corners, const std::vector<int32_t>& surfaces,
                                const std::vector<int>& chosen)
{
    // Barycentric points: the centre, three towards the corners, six on the edges' thirds.
    static const double kPoints[10][3] = {
        {1 / 3.0, 1 / 3.0, 1 / 3.0}, {0.6, 0.2, 0.2},       {0.2, 0.6, 0.2},       {0.2, 0.2, 0.6},
        {2 / 3.0, 1 / 3.0, 0},       {1 / 3.0, 2 / 3.0, 0}, {0, 2 / 3.0, 1 / 3.0}, {0, 1 / 3.0, 2 / 3.0},
        {1 / 3.0, 0, 2 / 3.0},       {2 / 3.0, 0, 1 / 3.0}};
    BackgroundScore score;
    const SampleMesh& m = scene.mesh;
    for (size_t f = 0; f < surfaces.size(); ++f) {
        const int photo = chosen[f];
        if (photo < 0 || size_t(photo) >= views.size())
            continue;
        const SampleCamera& cam = scene.cameras[size_t(photo)];
        const cv::Mat& tri = views[size_t(photo)].triangle;
        for (const auto& w : kPoints) {
            const XPnt3d p = corners[3 * f] * w[0] + corners[3 * f + 1] * w[1] + corners[3 * f + 2] * w[2];
            XPnt2d px;
            if (!cam.project(p, px))
                continue;
            const int x = int(std::floor(px.x)), y = int(std::floor(px.y));
            if (x < 0 || y < 0 || x >= tri.cols || y >= tri.rows)
                continue;
            ++score.points;
            const int32_t shown = tri.at<int32_t>(y, x);
            if (surfaces[f] < 0) {
                ++score.background;
                ++score.onBlobs;
            } else if (shown < 0 || m.triangleSurface[size_t(shown)] != surfaces[f]) {
                ++score.background;
            }
        }
    }
    return score;
}

} // namespace qvsample

#include "camera/KvoCameraFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cctype>
#include <cmath>
#include <map>

namespace kvo {

namespace {

QString tr(const char* s)
{
    return QCoreApplication::translate("CameraFiles", s);
}

bool finite(const double* v, int n)
{
    for (int i = 0; i < n; ++i)
        if (!std::isfinite(v[i]))
            return false;
    return true;
}

// Blanks of any kind separate words; a carriage return must not stick to the last one.
QList<QByteArray> words(const QByteArray& line)
{
    return line.simplified().split(' ');
}

bool isBlankOrComment(const QByteArray& line)
{
    const QByteArray s = line.trimmed();
    return s.isEmpty() || s.startsWith('#');
}

// Numbers are read with the C rules whatever the user's locale, and must be finite.
bool number(const QByteArray& word, double& v)
{
    bool ok = false;
    v = word.toDouble(&ok);
    return ok && std::isfinite(v);
}

bool integer(const QByteArray& word, long long& v)
{
    bool ok = false;
    v = word.toLongLong(&ok);
    return ok;
}

// A line-by-line reader that knows where it is, for messages.
class LineReader {
public:
    explicit LineReader(const QString& path) : m_file(path) {}
    bool open() { return m_file.open(QIODevice::ReadOnly); }
    bool next(QByteArray& line)
    {
        if (m_file.atEnd())
            return false;
        line = m_file.readLine();
        ++m_line;
        return true;
    }
    long lineNumber() const { return m_line; }
    QString name() const { return QFileInfo(m_file.fileName()).fileName(); }
    QString where() const { return tr("%1 line %2").arg(name()).arg(m_line); }
    bool failed() const { return m_file.error() != QFileDevice::NoError; }

private:
    QFile m_file;
    long m_line = 0;
};

// ------------------------------------------------------------------ COLMAP

struct ColmapModel {
    const char* name;
    int params;
};

// Parameters as COLMAP orders them: SIMPLE_PINHOLE f, cx, cy; PINHOLE fx,
// fy, cx, cy; SIMPLE_RADIAL f, cx, cy, k; RADIAL f, cx, cy, k1, k2; OPENCV
// fx, fy, cx, cy, k1, k2, p1, p2.
const ColmapModel kColmapModels[] = {
    {"SIMPLE_PINHOLE", 3}, {"PINHOLE", 4}, {"SIMPLE_RADIAL", 4}, {"RADIAL", 5}, {"OPENCV", 8},
};

struct ColmapCamera {
    QString model;
    long width = 0, height = 0;
    double K[9] = {0, 0, 0, 0, 0, 0, 0, 0, 1};
    double distortion[4] = {0, 0, 0, 0};
    QString where;
    bool usable = true;
    KvoCameraIssue issue = KvoCameraIssue::BadCamera;
    QString reason;
};

// One line of cameras.txt; false when it is not a camera line at all.
bool readColmapCamera(const QList<QByteArray>& w, ColmapCamera& cam, long long& id)
{
    long long width = 0, height = 0;
    if (w.size() < 4 || !integer(w[0], id) || !integer(w[2], width) || !integer(w[3], height))
        return false;
    cam.model = QString::fromUtf8(w[1]);
    cam.width = long(width);
    cam.height = long(height);
    std::vector<double> p;
    for (int i = 4; i < w.size(); ++i) {
        double v = 0;
        if (!number(w[i], v)) {
            cam.usable = false;
            cam.reason = tr("camera %1: \"%2\" is not a number").arg(id).arg(QString::fromUtf8(w[i]));
            return true;
        }
        p.push_back(v);
    }
    const ColmapModel* model = nullptr;
    for (const ColmapModel& m : kColmapModels)
        if (cam.model == m.name)
            model = &m;
    if (!model) {
        cam.usable = false;
        cam.issue = KvoCameraIssue::UnknownModel;
        cam.reason = tr("camera %1 has the model %2, which cannot be used (the models read are %3)")
                         .arg(id)
                         .arg(cam.model, colmapModelsRead().join(", "));
        return true;
    }
    if (int(p.size()) != model->params) {
        cam.usable = false;
        cam.reason = tr("camera %1: the model %2 takes %3 numbers, the line gives %4")
                         .arg(id)
                         .arg(cam.model)
                         .arg(model->params)
                         .arg(p.size());
        return true;
    }
    if (width <= 0 || height <= 0) {
        cam.usable = false;
        cam.reason = tr("camera %1: the picture size %2 x %3 is not a size").arg(id).arg(width).arg(height);
        return true;
    }
    double fx = p[0], fy = p[0], cx = p[1], cy = p[2];
    size_t k = 3;
    if (cam.model == "PINHOLE" || cam.model == "OPENCV") {
        fy = p[1];
        cx = p[2];
        cy = p[3];
        k = 4;
    }
    for (size_t i = k; i < p.size(); ++i)
        cam.distortion[i - k] = p[i];
    if (!(fx > 0) || !(fy > 0)) {
        cam.usable = false;
        cam.reason = tr("camera %1: the focal length is not positive").arg(id);
        return true;
    }
    cam.K[0] = fx;
    cam.K[2] = cx;
    cam.K[4] = fy;
    cam.K[5] = cy;
    return true;
}

// An image line: IMAGE_ID, QW, QX, QY, QZ, TX, TY, TZ, CAMERA_ID, NAME, with
// the name taking the rest of the line.
bool parseColmapImageLine(const QByteArray& raw, long long& imageId, double q[4], double t[3], long long& cameraId,
                          QString& name)
{
    const QByteArray line = raw.trimmed();
    QList<QByteArray> w = words(line);
    if (w.size() < 10 || !integer(w[0], imageId) || !integer(w[8], cameraId))
        return false;
    for (int i = 0; i < 4; ++i)
        if (!number(w[1 + i], q[i]))
            return false;
    for (int i = 0; i < 3; ++i)
        if (!number(w[5 + i], t[i]))
            return false;
    // The name is what follows the ninth word, blanks inside it kept.
    int pos = 0;
    for (int i = 0; i < 9; ++i) {
        while (pos < line.size() && !std::isspace(static_cast<unsigned char>(line[pos])))
            ++pos;
        while (pos < line.size() && std::isspace(static_cast<unsigned char>(line[pos])))
            ++pos;
    }
    name = QString::fromUtf8(line.mid(pos)).trimmed();
    return !name.isEmpty();
}

// The line after an image line holds its 2-D points (numbers only, maybe
// none). A writer that leaves that line out goes straight on to the next
// image line, which is told apart by its name.
bool looksLikeImageLine(const QByteArray& line)
{
    const QList<QByteArray> w = words(line);
    double v = 0;
    return w.size() >= 10 && !number(w[9], v);
}

} // namespace

bool KvoFileCamera::hasDistortion() const
{
    return distortion[0] != 0 || distortion[1] != 0 || distortion[2] != 0 || distortion[3] != 0;
}

void KvoFileCamera::reject(KvoCameraIssue why, const QString& text)
{
    usable = false;
    issue = why;
    reason = text;
}

QStringList colmapModelsRead()
{
    QStringList out;
    for (const ColmapModel& m : kColmapModels)
        out << m.name;
    return out;
}

bool readColmapText(const QString& folder, KvoCameraFileSet& out, QString& error)
{
    out = KvoCameraFileSet();
    out.format = tr("COLMAP text model");
    const QDir dir(folder);
    if (!QFileInfo(folder).isDir()) {
        error = tr("The folder %1 does not exist.").arg(folder);
        return false;
    }
    for (const char* name : {"cameras.txt", "images.txt"}) {
        if (!dir.exists(name)) {
            error = dir.exists(QString(name).replace(".txt", ".bin"))
                        ? tr("%1 holds a binary COLMAP model; the text model (cameras.txt, images.txt) is read. "
                             "COLMAP's model converter writes it.")
                              .arg(folder)
                        : tr("%1 is not a COLMAP text model: %2 is missing.").arg(folder, name);
            return false;
        }
    }

    std::map<long long, ColmapCamera> cameras;
    LineReader cr(dir.filePath("cameras.txt"));
    if (!cr.open()) {
        error = tr("Cannot read %1.").arg(dir.filePath("cameras.txt"));
        return false;
    }
    QByteArray line;
    while (cr.next(line)) {
        if (isBlankOrComment(line))
            continue;
        ColmapCamera cam;
        long long id = 0;
        if (!readColmapCamera(words(line), cam, id)) {
            out.skippedLines << tr("%1: not a camera line").arg(cr.where());
            continue;
        }
        cam.where = cr.where();
        if (cameras.count(id)) {
            out.skippedLines << tr("%1: camera %2 again (the first one is kept)").arg(cr.where()).arg(id);
            continue;
        }
        cameras[id] = cam;
    }
    if (cr.failed()) {
        error = tr("Cannot read %1.").arg(dir.filePath("cameras.txt"));
        return false;
    }

    LineReader ir(dir.filePath("images.txt"));
    if (!ir.open()) {
        error = tr("Cannot read %1.").arg(dir.filePath("images.txt"));
        return false;
    }
    bool havePending = false;
    QByteArray pending;
    for (;;) {
        if (havePending) {
            line = pending;
            havePending = false;
        } else if (!ir.next(line)) {
            break;
        }
        if (isBlankOrComment(line))
            continue;
        long long imageId = 0, cameraId = 0;
        double q[4], t[3];
        QString name;
        if (!parseColmapImageLine(line, imageId, q, t, cameraId, name)) {
            out.skippedLines << tr("%1: not an image line").arg(ir.where());
            continue;
        }
        KvoFileCamera c;
        c.photo = name;
        c.where = ir.where();
        // Its 2-D points are of no use here.
        if (ir.next(pending) && looksLikeImageLine(pending))
            havePending = true;
        auto it = cameras.find(cameraId);
        if (it == cameras.end()) {
            c.reject(KvoCameraIssue::BadCamera, tr("its camera %1 is not in cameras.txt").arg(cameraId));
            out.cameras.push_back(c);
            continue;
        }
        const ColmapCamera& cam = it->second;
        c.model = cam.model;
        c.width = cam.width;
        c.height = cam.height;
        if (!cam.usable) {
            c.reject(cam.issue, cam.reason);
            out.cameras.push_back(c);
            continue;
        }
        std::copy(cam.K, cam.K + 9, c.K);
        std::copy(cam.distortion, cam.distortion + 4, c.distortion);
        if (!quaternionToMatrix(q, c.R)) {
            c.reject(KvoCameraIssue::BadCamera, tr("image %1: the rotation quaternion is zero").arg(imageId));
            out.cameras.push_back(c);
            continue;
        }
        std::copy(t, t + 3, c.t);
        out.cameras.push_back(c);
    }
    if (ir.failed()) {
        error = tr("Cannot read %1.").arg(dir.filePath("images.txt"));
        return false;
    }
    return true;
}

bool readBundler(const QString& bundleFile, const QString& listFile, KvoCameraFileSet& out, QString& error)
{
    out = KvoCameraFileSet();
    out.format = tr("Bundler file");
    LineReader br(bundleFile);
    if (!QFileInfo(bundleFile).isFile() || !br.open()) {
        error = tr("Cannot read the bundle file %1.").arg(bundleFile);
        return false;
    }
    LineReader lr(listFile);
    if (!QFileInfo(listFile).isFile() || !lr.open()) {
        error = tr("Cannot read the list file %1.").arg(listFile);
        return false;
    }
    // The header and the cameras are numbers in order; the points that follow
    // them are not needed, so reading stops there.
    std::vector<double> numbers;
    long long cameraCount = -1;
    QByteArray line;
    while ((cameraCount < 0 || static_cast<long long>(numbers.size()) < 2 + 15 * cameraCount) && br.next(line)) {
        // "# Bundle file v0.3" and any other remark before the numbers.
        if (numbers.empty() && line.trimmed().startsWith('#'))
            continue;
        for (const QByteArray& w : words(line)) {
            if (w.isEmpty())
                continue;
            double v = 0;
            if (!number(w, v)) {
                error = tr("%1 is not a Bundler file: \"%2\" at %3 is not a number.")
                            .arg(bundleFile, QString::fromUtf8(w), br.where());
                return false;
            }
            numbers.push_back(v);
        }
        if (cameraCount < 0 && numbers.size() >= 2) {
            cameraCount = static_cast<long long>(numbers[0]);
            if (numbers[0] != double(cameraCount) || cameraCount < 0 || numbers[1] < 0) {
                error = tr("%1 is not a Bundler file: its first line must give the numbers of cameras and points.")
                            .arg(bundleFile);
                return false;
            }
        }
    }
    if (cameraCount < 0 || static_cast<long long>(numbers.size()) < 2 + 15 * cameraCount) {
        error = tr("The bundle file %1 ends before its %2 cameras do.").arg(bundleFile).arg(std::max(0LL, cameraCount));
        return false;
    }

    QStringList names;
    QList<long> nameLines;
    while (lr.next(line)) {
        const QByteArray s = line.trimmed();
        if (s.isEmpty())
            continue;
        // "name" or "name 0 f": the name is the first word.
        names << QString::fromUtf8(words(s).first());
        nameLines << lr.lineNumber();
    }
    for (long long i = 0; i < cameraCount; ++i) {
        const double* v = numbers.data() + 2 + 15 * i;
        KvoFileCamera c;
        c.model = "Bundler";
        c.where = tr("%1 camera %2").arg(QFileInfo(bundleFile).fileName()).arg(i);
        if (i < names.size())
            c.photo = names[int(i)];
        const double f = v[0];
        // Bundler: P = R X + t, p = -P / P.z, pixel = f r(p) p with y up from
        // the picture's centre. That is our camera turned half a turn about x.
        c.principalAtCentre = true;
        c.K[0] = c.K[4] = f;
        const double flip[3] = {1, -1, -1};
        for (int r = 0; r < 3; ++r) {
            for (int k = 0; k < 3; ++k)
                c.R[3 * r + k] = flip[r] * v[3 + 3 * r + k];
            c.t[r] = flip[r] * v[12 + r];
        }
        c.distortion[0] = v[1];
        c.distortion[1] = v[2];
        if (i >= names.size())
            c.reject(KvoCameraIssue::NoPhoto, tr("the list file has no line for this camera"));
        else if (f == 0)
            c.reject(KvoCameraIssue::NoCamera, tr("the bundle file gives it no camera (it was not reconstructed)"));
        else if (!(f > 0))
            c.reject(KvoCameraIssue::BadCamera, tr("the focal length %1 is not positive").arg(f));
        out.cameras.push_back(c);
    }
    for (int i = int(cameraCount); i < names.size(); ++i)
        out.skippedLines << tr("%1 line %2: %3 has no camera, the bundle file holds %4")
                                .arg(lr.name())
                                .arg(nameLines[i])
                                .arg(names[i])
                                .arg(cameraCount);
    return true;
}

bool readProjectionMatrices(const QString& folder, KvoCameraFileSet& out, QString& error)
{
    out = KvoCameraFileSet();
    out.format = tr("projection matrices");
    if (!QFileInfo(folder).isDir()) {
        error = tr("The folder %1 does not exist.").arg(folder);
        return false;
    }
    const QFileInfoList files =
        QDir(folder).entryInfoList({"*.txt", "*.TXT"}, QDir::Files | QDir::Readable, QDir::Name | QDir::IgnoreCase);
    if (files.isEmpty()) {
        error = tr("%1 holds no matrix files (NAME.txt or NAME.P.txt).").arg(folder);
        return false;
    }
    for (const QFileInfo& fi : files) {
        KvoFileCamera c;
        c.model = "matrix";
        c.fromMatrix = true;
        c.where = fi.fileName();
        QString name = fi.fileName();
        name.chop(4);
        if (name.endsWith(".P", Qt::CaseInsensitive))
            name.chop(2);
        c.photo = name;
        LineReader r(fi.absoluteFilePath());
        std::vector<double> v;
        QString bad;
        QByteArray line;
        if (!r.open()) {
            c.reject(KvoCameraIssue::BadCamera, tr("the file cannot be read"));
            out.cameras.push_back(c);
            continue;
        }
        while (bad.isEmpty() && r.next(line)) {
            if (isBlankOrComment(line))
                continue;
            const QList<QByteArray> w = words(line);
            std::vector<double> row;
            for (const QByteArray& word : w) {
                double x = 0;
                if (number(word, x))
                    row.push_back(x);
            }
            // A line of words only is a label ("CONTOUR" and the like).
            if (row.empty())
                continue;
            if (int(row.size()) != w.size())
                bad = tr("%1 mixes words and numbers").arg(r.where());
            v.insert(v.end(), row.begin(), row.end());
        }
        if (bad.isEmpty() && v.size() != 12)
            bad = tr("it holds %1 numbers, a 3x4 matrix has 12").arg(v.size());
        if (!bad.isEmpty()) {
            c.reject(KvoCameraIssue::BadCamera, bad);
        } else {
            std::copy(v.begin(), v.end(), c.P);
        }
        out.cameras.push_back(c);
    }
    return true;
}

void composeProjection(const double K[9], const double R[9], const double t[3], double P[12])
{
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            P[r * 4 + c] = K[r * 3] * R[c] + K[r * 3 + 1] * R[3 + c] + K[r * 3 + 2] * R[6 + c];
        P[r * 4 + 3] = K[r * 3] * t[0] + K[r * 3 + 1] * t[1] + K[r * 3 + 2] * t[2];
    }
}

bool decomposeProjection(const double Pin[12], double K[9], double R[9], double t[3])
{
    if (!finite(Pin, 12))
        return false;
    double P[12];
    std::copy(Pin, Pin + 12, P);
    auto row = [&P](int r) { return XPnt3d(P[4 * r], P[4 * r + 1], P[4 * r + 2]); };
    auto dot3 = [](const XPnt3d& a, const XPnt3d& b) { return a.x * b.x + a.y * b.y + a.z * b.z; };
    auto len3 = [&dot3](const XPnt3d& a) { return std::sqrt(dot3(a, a)); };
    const XPnt3d m1 = row(0), m2 = row(1), m3 = row(2);
    const XPnt3d c23(m2.y * m3.z - m2.z * m3.y, m2.z * m3.x - m2.x * m3.z, m2.x * m3.y - m2.y * m3.x);
    const double det = dot3(m1, c23);
    const double scale = len3(m1) * len3(m2) * len3(m3);
    if (!(std::abs(det) > 1e-12 * scale))
        return false;
    // P and -P are the same camera; the one with det > 0 has the points in
    // front at positive depth.
    const double s = (det > 0 ? 1.0 : -1.0) / len3(m3);
    for (double& p : P)
        p *= s;
    // Gram-Schmidt from the last row up: M = K R with K upper triangular.
    const XPnt3d a1 = row(0), a2 = row(1), r3 = row(2);
    const double cy = dot3(a2, r3);
    XPnt3d v(a2.x - cy * r3.x, a2.y - cy * r3.y, a2.z - cy * r3.z);
    const double fy = len3(v);
    if (!(fy > 0))
        return false;
    const XPnt3d r2(v.x / fy, v.y / fy, v.z / fy);
    const double cx = dot3(a1, r3), skew = dot3(a1, r2);
    XPnt3d u(a1.x - cx * r3.x - skew * r2.x, a1.y - cx * r3.y - skew * r2.y, a1.z - cx * r3.z - skew * r2.z);
    const double fx = len3(u);
    if (!(fx > 0))
        return false;
    const XPnt3d r1(u.x / fx, u.y / fx, u.z / fx);
    const double k[9] = {fx, skew, cx, 0, fy, cy, 0, 0, 1};
    std::copy(k, k + 9, K);
    const double rot[9] = {r1.x, r1.y, r1.z, r2.x, r2.y, r2.z, r3.x, r3.y, r3.z};
    std::copy(rot, rot + 9, R);
    t[2] = P[11];
    t[1] = (P[7] - cy * t[2]) / fy;
    t[0] = (P[3] - skew * t[1] - cx * t[2]) / fx;
    return finite(K, 9) && finite(R, 9) && finite(t, 3);
}

bool projectionToDlt(const double P[12], long width, long height, double L[11])
{
    // x = P0.X / P2.X and y = P1.X / P2.X in pixels; u = x / W and
    // v = 1 - y / H. Dividing through by P2's last entry makes D's constant 1.
    const double w = P[11];
    if (width <= 0 || height <= 0 || !(std::abs(w) > 0) || !finite(P, 12))
        return false;
    const double W = double(width), H = double(height);
    for (int k = 0; k < 4; ++k) {
        L[k] = -P[k] / (W * w);
        L[4 + k] = -(P[8 + k] - P[4 + k] / H) / w;
    }
    for (int k = 0; k < 3; ++k)
        L[8 + k] = P[8 + k] / w;
    return finite(L, 11);
}

bool projectPixel(const double P[12], const XPnt3d& X, XPnt2d& pixel)
{
    const double x = P[0] * X.x + P[1] * X.y + P[2] * X.z + P[3];
    const double y = P[4] * X.x + P[5] * X.y + P[6] * X.z + P[7];
    const double z = P[8] * X.x + P[9] * X.y + P[10] * X.z + P[11];
    // Depth has the sign of det(M) for a point in front.
    const double det =
        P[0] * (P[5] * P[10] - P[6] * P[9]) - P[1] * (P[4] * P[10] - P[6] * P[8]) + P[2] * (P[4] * P[9] - P[5] * P[8]);
    if (!(z * (det < 0 ? -1.0 : 1.0) > 0))
        return false;
    pixel = XPnt2d(x / z, y / z);
    return std::isfinite(pixel.x) && std::isfinite(pixel.y);
}

bool quaternionToMatrix(const double q[4], double R[9])
{
    const double n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    if (!(n > 0) || !std::isfinite(n))
        return false;
    const double w = q[0] / n, x = q[1] / n, y = q[2] / n, z = q[3] / n;
    const double m[9] = {1 - 2 * (y * y + z * z), 2 * (x * y - z * w),     2 * (x * z + y * w),
                         2 * (x * y + z * w),     1 - 2 * (x * x + z * z), 2 * (y * z - x * w),
                         2 * (x * z - y * w),     2 * (y * z + x * w),     1 - 2 * (x * x + y * y)};
    std::copy(m, m + 9, R);
    return true;
}

} // namespace kvo

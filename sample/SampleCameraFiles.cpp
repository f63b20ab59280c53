#include "SampleCameraFiles.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <locale>
#include <sstream>

namespace qvsample {

namespace {

void setError(std::string* error, const std::string& what, const std::string& path, int err)
{
    if (!error)
        return;
    *error = what + " " + path;
    if (err)
        *error += ": " + std::string(std::strerror(err));
}

// A file's text built in memory so that a failed write is reported once, and
// with the classic locale so that a user's decimal comma never reaches it.
class Text {
public:
    Text()
    {
        m_s.imbue(std::locale::classic());
        // Enough for every double to read back to itself.
        m_s.precision(17);
    }
    template <class T> Text& operator<<(const T& v)
    {
        m_s << v;
        return *this;
    }
    bool save(const std::string& path, std::string* error) const
    {
        errno = 0;
        std::ofstream f(path, std::ios::binary | std::ios::trunc);
        const std::string s = m_s.str();
        if (f)
            f.write(s.data(), std::streamsize(s.size()));
        if (f)
            f.close();
        if (!f) {
            setError(error, "cannot write", path, errno);
            return false;
        }
        return true;
    }

private:
    std::ostringstream m_s;
};

// Only the photograph's own extension goes, not a dot in a folder name.
std::string withoutExtension(const std::string& name)
{
    const size_t dot = name.rfind('.');
    const size_t slash = name.find_last_of("/\\");
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return name;
    return name.substr(0, dot);
}

std::string join(const std::string& folder, const std::string& file)
{
    if (folder.empty())
        return file;
    return folder.back() == '/' ? folder + file : folder + '/' + file;
}

// What printf's "%f" gives in the C locale, whatever the process's locale.
std::string fixed6(double v)
{
    std::ostringstream s;
    s.imbue(std::locale::classic());
    s.setf(std::ios::fixed, std::ios::floatfield);
    s.precision(6);
    s << v;
    return s.str();
}

// The whole token must be a number: "1.5m" or "1,5" split wrongly must not pass.
bool parseNumber(const std::string& token, double& v)
{
    std::istringstream s(token);
    s.imbue(std::locale::classic());
    return (s >> v) && s.eof();
}

} // namespace

void rotationToQuaternion(const double R[9], double q[4])
{
    // Shepperd: 4w^2 = 1 + tr, 4x^2 = 1 + 2 R00 - tr, and so on, so the largest
    // of tr, R00, R11, R22 marks the largest component. It alone comes from a
    // square root; the others are divided by it, never by a number near zero
    // (which is what w is near a half turn).
    const double tr = R[0] + R[4] + R[8];
    double w, x, y, z;
    if (tr >= R[0] && tr >= R[4] && tr >= R[8]) {
        const double s = 2 * std::sqrt(1 + tr);
        w = s / 4;
        x = (R[7] - R[5]) / s;
        y = (R[2] - R[6]) / s;
        z = (R[3] - R[1]) / s;
    } else if (R[0] >= R[4] && R[0] >= R[8]) {
        const double s = 2 * std::sqrt(1 + R[0] - R[4] - R[8]);
        w = (R[7] - R[5]) / s;
        x = s / 4;
        y = (R[1] + R[3]) / s;
        z = (R[2] + R[6]) / s;
    } else if (R[4] >= R[8]) {
        const double s = 2 * std::sqrt(1 + R[4] - R[0] - R[8]);
        w = (R[2] - R[6]) / s;
        x = (R[1] + R[3]) / s;
        y = s / 4;
        z = (R[5] + R[7]) / s;
    } else {
        const double s = 2 * std::sqrt(1 + R[8] - R[0] - R[4]);
        w = (R[3] - R[1]) / s;
        x = (R[2] + R[6]) / s;
        y = (R[5] + R[7]) / s;
        z = s / 4;
    }
    // q and -q are the same rotation; readers expect one of them.
    const double n = std::sqrt(w * w + x * x + y * y + z * z) * (w < 0 ? -1.0 : 1.0);
    q[0] = w / n;
    q[1] = x / n;
    q[2] = y / n;
    q[3] = z / n;
}

void quaternionToRotation(const double q[4], double R[9])
{
    const double n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    const double w = q[0] / n, x = q[1] / n, y = q[2] / n, z = q[3] / n;
    R[0] = 1 - 2 * (y * y + z * z);
    R[1] = 2 * (x * y - z * w);
    R[2] = 2 * (x * z + y * w);
    R[3] = 2 * (x * y + z * w);
    R[4] = 1 - 2 * (x * x + z * z);
    R[5] = 2 * (y * z - x * w);
    R[6] = 2 * (x * z - y * w);
    R[7] = 2 * (y * z + x * w);
    R[8] = 1 - 2 * (x * x + y * y);
}

bool writeColmapText(const std::string& folder, const std::vector<SampleCamera>& cams, std::string* error)
{
    Text cameras, images, points;
    cameras << "# Camera list with one line of data per camera:\n"
            << "#   CAMERA_ID, MODEL, WIDTH, HEIGHT, PARAMS[]\n"
            << "# Number of cameras: " << cams.size() << "\n";
    images << "# Image list with two lines of data per image:\n"
           << "#   IMAGE_ID, QW, QX, QY, QZ, TX, TY, TZ, CAMERA_ID, NAME\n"
           << "#   POINTS2D[] as (X, Y, POINT3D_ID)\n"
           << "# Number of images: " << cams.size() << ", mean observations per image: 0\n";
    points << "# 3D point list with one line of data per point:\n"
           << "#   POINT3D_ID, X, Y, Z, R, G, B, ERROR, TRACK[] as (IMAGE_ID, POINT2D_IDX)\n"
           << "# Number of points: 0, mean track length: 0\n";
    for (size_t i = 0; i < cams.size(); ++i) {
        const SampleCamera& c = cams[i];
        // Each photograph gets its own camera: the generator may vary the
        // intrinsics from one photograph to the next.
        const size_t id = i + 1;
        cameras << id << " PINHOLE " << c.width << ' ' << c.height << ' ' << c.fx << ' ' << c.fy << ' ' << c.cx << ' '
                << c.cy << '\n';
        double q[4];
        rotationToQuaternion(c.R, q);
        images << id << ' ' << q[0] << ' ' << q[1] << ' ' << q[2] << ' ' << q[3] << ' ' << c.t[0] << ' ' << c.t[1]
               << ' ' << c.t[2] << ' ' << id << ' ' << c.name << "\n\n";
    }
    return cameras.save(join(folder, "cameras.txt"), error) && images.save(join(folder, "images.txt"), error) &&
           points.save(join(folder, "points3D.txt"), error);
}

bool writeBundler(const std::string& folder, const std::vector<SampleCamera>& cams, std::string* error)
{
    Text bundle, list;
    bundle << "# Bundle file v0.3\n" << cams.size() << " 0\n";
    for (const SampleCamera& c : cams) {
        // Bundler has a single focal length. Generated cameras have square
        // pixels (fx and fy differ by rounding at most), so the mean loses
        // nothing for them.
        const double f = 0.5 * (c.fx + c.fy);
        bundle << f << " 0 0\n";
        // Bundler's camera has y up and looks down -z: our camera frame turned
        // half a turn about x, i.e. rows 2 and 3 of [R | t] negated.
        const double flip[3] = {1, -1, -1};
        for (int r = 0; r < 3; ++r)
            bundle << flip[r] * c.R[r * 3] << ' ' << flip[r] * c.R[r * 3 + 1] << ' ' << flip[r] * c.R[r * 3 + 2]
                   << '\n';
        bundle << flip[0] * c.t[0] << ' ' << flip[1] * c.t[1] << ' ' << flip[2] * c.t[2] << '\n';
        // "name 0 f" as Bundler's own image lists have it, so that tools
        // expecting the focal-length column find it.
        list << c.name << " 0 " << f << '\n';
    }
    return bundle.save(join(folder, "bundle.out"), error) && list.save(join(folder, "list.txt"), error);
}

bool writeProjectionMatrices(const std::string& folder, const std::vector<SampleCamera>& cams, std::string* error)
{
    for (const SampleCamera& c : cams) {
        double P[12];
        c.projectionMatrix(P);
        Text text;
        for (int r = 0; r < 3; ++r)
            text << P[r * 4] << ' ' << P[r * 4 + 1] << ' ' << P[r * 4 + 2] << ' ' << P[r * 4 + 3] << '\n';
        if (!text.save(join(folder, withoutExtension(c.name) + ".P.txt"), error))
            return false;
    }
    return true;
}

bool writeControlPoints(const std::string& path, const std::vector<SampleControlPoint>& points, std::string* error)
{
    Text text;
    text << "    U          V          X           Y            Z   \n";
    for (const SampleControlPoint& p : points)
        text << fixed6(p.u) << "   " << fixed6(p.v) << "   " << fixed6(p.world.x) << "   " << fixed6(p.world.y) << "   "
             << fixed6(p.world.z) << '\n';
    return text.save(path, error);
}

bool readControlPoints(const std::string& path, std::vector<SampleControlPoint>& out, std::string* error)
{
    errno = 0;
    std::ifstream f(path, std::ios::binary);
    if (!f) {
        setError(error, "cannot read", path, errno);
        return false;
    }
    out.clear();
    std::string line;
    std::getline(f, line);
    while (std::getline(f, line)) {
        // A carriage return counts as a blank so that Windows line ends do not
        // spoil the last number.
        for (char& ch : line)
            if (ch == '\t' || ch == ',' || ch == '\r')
                ch = ' ';
        std::istringstream fields(line);
        std::vector<double> v;
        std::string token;
        bool numbers = true;
        while (numbers && fields >> token) {
            double x = 0;
            numbers = parseNumber(token, x);
            v.push_back(x);
        }
        if (!numbers || v.size() != 5 || !(v[0] >= 0 && v[0] <= 1 && v[1] >= 0 && v[1] <= 1))
            continue;
        SampleControlPoint p;
        p.u = v[0];
        p.v = v[1];
        p.world = XPnt3d(v[2], v[3], v[4]);
        out.push_back(p);
    }
    if (f.bad()) {
        setError(error, "cannot read", path, errno);
        return false;
    }
    return true;
}

} // namespace qvsample

#include "SampleCameraFiles.h"

#include <QDir>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <locale>
#include <sstream>

namespace qvsample {

namespace {

// Text whose numbers do not depend on the user's locale.
class Text {
public:
    Text()
    {
        m_s.imbue(std::locale::classic());
        m_s.precision(17);
    }
    template <class T> Text& operator<<(const T& v)
    {
        m_s << v;
        return *this;
    }
    bool save(const std::string& path, std::string* error) const
    {
        std::ofstream f(path, std::ios::binary | std::ios::trunc);
        const std::string s = m_s.str();
        if (!f || !f.write(s.data(), std::streamsize(s.size())) || !(f.flush())) {
            if (error)
                *error = "cannot write " + path;
            return false;
        }
        return true;
    }

private:
    std::ostringstream m_s;
};

std::string stem(const std::string& name)
{
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

std::string join(const std::string& folder, const std::string& file)
{
    return QDir(QString::fromStdString(folder)).filePath(QString::fromStdString(file)).toStdString();
}

// printf-style "%f" in the C locale whatever the process's locale.
std::string fixed6(double v)
{
    std::ostringstream s;
    s.imbue(std::locale::classic());
    s.setf(std::ios::fixed);
    s.precision(6);
    s << v;
    return s.str();
}

} // namespace

void rotationToQuaternion(const double R[9], double q[4])
{
    // The largest of the four candidates is computed directly, the others
    // from it, so that no division is by a small number.
    const double tr = R[0] + R[4] + R[8];
    double w, x, y, z;
    if (tr > R[0] && tr > R[4] && tr > R[8]) {
        const double s = 2 * std::sqrt(1 + tr);
        w = s / 4;
        x = (R[7] - R[5]) / s;
        y = (R[2] - R[6]) / s;
        z = (R[3] - R[1]) / s;
    } else if (R[0] > R[4] && R[0] > R[8]) {
        const double s = 2 * std::sqrt(1 + R[0] - R[4] - R[8]);
        w = (R[7] - R[5]) / s;
        x = s / 4;
        y = (R[1] + R[3]) / s;
        z = (R[2] + R[6]) / s;
    } else if (R[4] > R[8]) {
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
    const double n = std::sqrt(w * w + x * x + y * y + z * z);
    const double sign = w < 0 ? -1.0 : 1.0;
    q[0] = sign * w / n;
    q[1] = sign * x / n;
    q[2] = sign * y / n;
    q[3] = sign * z / n;
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
        const double f = 0.5 * (c.fx + c.fy);
        bundle << f << " 0 0\n";
        // Bundler's camera: x right, y up, looking down -z.
        const double sign[3] = {1, -1, -1};
        for (int r = 0; r < 3; ++r)
            bundle << sign[r] * c.R[r * 3] << ' ' << sign[r] * c.R[r * 3 + 1] << ' ' << sign[r] * c.R[r * 3 + 2]
                   << '\n';
        bundle << c.t[0] << ' ' << -c.t[1] << ' ' << -c.t[2] << '\n';
        list << c.name << " 0 " << f << '\n';
    }
    return bundle.save(join(folder, "bundle.out"), error) && list.save(join(folder, "list.txt"), error);
}

bool writeProjectionMatrices(const std::string& folder, const std::vector<SampleCamera>& cams, std::string* error)
{
    for (const SampleCamera& c : cams) {
        double P[12];
        c.projectionMatrix(P);
        Text t;
        for (int r = 0; r < 3; ++r)
            t << P[r * 4] << ' ' << P[r * 4 + 1] << ' ' << P[r * 4 + 2] << ' ' << P[r * 4 + 3] << '\n';
        if (!t.save(join(folder, stem(c.name) + ".P.txt"), error))
            return false;
    }
    return true;
}

bool writeControlPoints(const std::string& path, const std::vector<SampleControlPoint>& points, std::string* error)
{
    Text t;
    t << "    U          V          X           Y            Z   \n";
    for (const SampleControlPoint& p : points)
        t << fixed6(p.u) << "   " << fixed6(p.v) << "   " << fixed6(p.world.x) << "   " << fixed6(p.world.y) << "   "
          << fixed6(p.world.z) << '\n';
    return t.save(path, error);
}

bool readControlPoints(const std::string& path, std::vector<SampleControlPoint>& out, std::string* error)
{
    std::ifstream f(path, std::ios::binary);
    if (!f) {
        if (error)
            *error = "cannot read " + path;
        return false;
    }
    out.clear();
    std::string line;
    std::getline(f, line); // the header, whatever it holds
    while (std::getline(f, line)) {
        for (char& ch : line)
            if (ch == '\t' || ch == ',' || ch == '\r')
                ch = ' ';
        std::istringstream s(line);
        s.imbue(std::locale::classic());
        std::vector<double> v;
        std::string token;
        bool ok = true;
        while (s >> token) {
            std::istringstream n(token);
            n.imbue(std::locale::classic());
            double x;
            if (!(n >> x) || !n.eof()) {
                ok = false;
                break;
            }
            v.push_back(x);
        }
        if (!ok || v.size() != 5 || v[0] < 0 || v[0] > 1 || v[1] < 0 || v[1] > 1)
            continue;
        SampleControlPoint p;
        p.u = v[0];
        p.v = v[1];
        p.world = XPnt3d(v[2], v[3], v[4]);
        out.push_back(p);
    }
    return true;
}

} // namespace qvsample

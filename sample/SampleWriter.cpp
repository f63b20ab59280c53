#include "SampleWriter.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "SampleCameraFiles.h"
#include "SamplePhoto.h"
#include "SampleRender.h"

namespace qvsample {

namespace {

// Buffered text output with locale-independent numbers.
class TextOut {
public:
    explicit TextOut(const std::string& path) : m_file(std::fopen(path.c_str(), "wb")) {}
    ~TextOut() { close(); }
    bool ok() const { return m_file != nullptr && !m_failed; }
    TextOut& operator<<(const char* s)
    {
        m_buf.append(s);
        flushIfFull();
        return *this;
    }
    TextOut& operator<<(const std::string& s)
    {
        m_buf.append(s);
        flushIfFull();
        return *this;
    }
    TextOut& operator<<(char c)
    {
        m_buf.push_back(c);
        return *this;
    }
    TextOut& operator<<(float v) { return number(v); }
    TextOut& operator<<(double v) { return number(v); }
    TextOut& operator<<(long v) { return number(v); }
    TextOut& operator<<(unsigned v) { return number(v); }
    bool close()
    {
        if (!m_file)
            return false;
        flush();
        m_failed = std::fclose(m_file) != 0 || m_failed;
        m_file = nullptr;
        return !m_failed;
    }

private:
    template <class T> TextOut& number(T v)
    {
        char tmp[64];
        auto r = std::to_chars(tmp, tmp + sizeof tmp, v);
        m_buf.append(tmp, r.ptr);
        return *this;
    }
    void flushIfFull()
    {
        if (m_buf.size() > (1u << 20))
            flush();
    }
    void flush()
    {
        if (m_file && !m_buf.empty() && std::fwrite(m_buf.data(), 1, m_buf.size(), m_file) != m_buf.size())
            m_failed = true;
        m_buf.clear();
    }
    std::FILE* m_file;
    std::string m_buf;
    bool m_failed = false;
};

QJsonArray array(std::initializer_list<double> v)
{
    QJsonArray a;
    for (double x : v)
        a.append(x);
    return a;
}

QJsonArray point(const XPnt3d& p)
{
    return array({p.x, p.y, p.z});
}

std::string stem(const std::string& name)
{
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

} // namespace

bool writeSampleObj(const SampleScene& scene, const std::string& objPath, const std::string& mtlName,
                    std::string* error)
{
    const bool textured = !mtlName.empty();
    // The model a reconstruction gives, when the scene has one; else (and
    // always for the textured truth) the surfaces the model has.
    const bool reconstructed = !textured && !scene.reconstruction.triangles.empty();
    const SampleMesh& m = reconstructed ? scene.reconstruction : scene.mesh;
    auto kept = [&](int32_t s) { return reconstructed || scene.surfaces[size_t(s)].inMesh; };
    // What the model leaves out comes after what it has, vertices included.
    size_t vertexEnd = 0;
    for (size_t f = 0; f < m.triangleSurface.size(); ++f)
        if (kept(m.triangleSurface[f]))
            for (int k = 0; k < 3; ++k)
                vertexEnd = std::max(vertexEnd, size_t(m.triangles[f * 3 + size_t(k)]) + 1);
    TextOut out(objPath);
    if (!out.ok()) {
        if (error)
            *error = "cannot write " + objPath;
        return false;
    }
    out << "# Generated sample scene (" << kindName(scene.kind) << ", seed " << scene.seed << ")\n";
    if (textured)
        out << "mtllib " << mtlName << '\n';
    for (size_t v = 0; v < vertexEnd; ++v)
        out << "v " << m.vertices[v].x << ' ' << m.vertices[v].y << ' ' << m.vertices[v].z << '\n';
    // Each surface has vertices of its own, so one texture coordinate a
    // vertex says everything the corners do.
    if (textured) {
        std::vector<XPnt2f> vertexUV(vertexEnd, XPnt2f(0, 0));
        for (size_t k = 0; k < m.triangles.size(); ++k)
            if (m.triangles[k] < vertexEnd)
                vertexUV[m.triangles[k]] = m.cornerUVs[k];
        for (const XPnt2f& t : vertexUV)
            out << "vt " << t.x << ' ' << t.y << '\n';
    }
    int32_t group = -2;
    for (size_t f = 0; f < m.triangleSurface.size(); ++f) {
        const int32_t s = m.triangleSurface[f];
        if (!kept(s))
            continue;
        if (s != group) {
            group = s;
            const std::string name = s < 0 ? std::string("blob") : scene.surfaces[size_t(s)].name;
            out << "g " << name << '\n';
            if (textured)
                out << "usemtl " << name << '\n';
        }
        out << 'f';
        for (int k = 0; k < 3; ++k) {
            const long v = long(m.triangles[f * 3 + size_t(k)] + 1);
            out << ' ' << v;
            if (textured)
                out << '/' << v;
        }
        out << '\n';
    }
    if (!out.close()) {
        if (error)
            *error = "cannot write " + objPath;
        return false;
    }
    if (!textured)
        return true;
    const std::string mtlPath =
        QFileInfo(QString::fromStdString(objPath)).dir().filePath(QString::fromStdString(mtlName)).toStdString();
    TextOut mtl(mtlPath);
    for (const SampleSurface& surface : scene.surfaces) {
        if (!surface.inMesh)
            continue;
        mtl << "newmtl " << surface.name << '\n'
            << "Ka 0.2 0.2 0.2\nKd 0.8 0.8 0.8\nKs 0 0 0\nNs 10\nillum 1\n"
            << "map_Kd textures/" << surface.name << ".png\n\n";
    }
    if (!mtl.close()) {
        if (error)
            *error = "cannot write " + mtlPath;
        return false;
    }
    return true;
}

bool writeSample(const SampleOptions& options, const std::string& folder, std::string* error,
                 const SampleProgress& progress, SampleScene* sceneOut)
{
    auto fail = [&](const std::string& why) {
        if (error)
            *error = why;
        return false;
    };
    auto report = [&](double share, const std::string& caption) {
        if (progress)
            progress(share, caption);
    };
    QDir dir(QString::fromStdString(folder));
    for (const char* sub :
         {"truth/textures", "photos", "control_points", "cameras/colmap", "cameras/bundler", "cameras/matrices"})
        if (!dir.mkpath(sub))
            return fail("cannot create " + dir.filePath(sub).toStdString());
    auto path = [&](const QString& rel) { return dir.filePath(rel).toStdString(); };

    report(0.0, "Building the scene");
    SampleScene scene = buildSampleScene(options);

    report(0.1, "Writing the model");
    if (!writeSampleObj(scene, path("model.obj"), std::string(), error) ||
        !writeSampleObj(scene, path("truth/model_textured.obj"), "model_textured.mtl", error))
        return false;
    for (const SampleSurface& s : scene.surfaces)
        if (!cv::imwrite(path(QString("truth/textures/%1.png").arg(QString::fromStdString(s.name))), s.texture))
            return fail("cannot write the texture of " + s.name);

    const size_t n = scene.cameras.size();
    scene.controlPoints.resize(n);
    scene.surfaceCoverage.resize(n);
    for (size_t i = 0; i < n; ++i) {
        const SampleCamera& cam = scene.cameras[i];
        report(0.2 + 0.7 * double(i) / double(n), "Photographing " + cam.name);
        SampleView view;
        if (!renderSampleView(scene, cam, view, error))
            return false;
        scene.surfaceCoverage[i] = surfaceCoverage(scene, view);
        scene.controlPoints[i] = chooseControlPoints(scene, cam, view, 12, options.seed * 131u + unsigned(i));
        applyPhotoEffects(view.bgr, cam);
        if (!writePhotoJpeg(path("photos/" + QString::fromStdString(cam.name)), view.bgr, cam, 92, error))
            return false;
        if (!writeControlPoints(path("control_points/" + QString::fromStdString(stem(cam.name)) + ".txt"),
                                scene.controlPoints[i], error))
            return false;
    }

    report(0.9, "Writing the cameras");
    if (!writeColmapText(path("cameras/colmap"), scene.cameras, error) ||
        !writeBundler(path("cameras/bundler"), scene.cameras, error) ||
        !writeProjectionMatrices(path("cameras/matrices"), scene.cameras, error))
        return false;

    QJsonObject root;
    root["kind"] = kindName(scene.kind);
    root["seed"] = double(scene.seed);
    root["units"] = "metre";
    root["up"] = "z";
    root["model"] = "model.obj";
    root["texturedModel"] = "truth/model_textured.obj";
    // What model.obj holds.
    const bool reconstructed = !scene.reconstruction.triangles.empty();
    long modelTriangles = 0;
    for (const SampleSurface& s : scene.surfaces)
        modelTriangles += s.inMesh ? s.triangleCount : 0;
    root["vertices"] = double(reconstructed ? scene.reconstruction.vertices.size() : scene.mesh.vertices.size());
    root["triangles"] = double(reconstructed ? scene.reconstruction.triangleCount() : modelTriangles);
    if (reconstructed) {
        QJsonObject flaws;
        flaws["noise"] = scene.flaws.noise;
        flaws["growth"] = scene.flaws.growth;
        flaws["holeRadius"] = scene.flaws.holeRadius;
        QJsonArray holes;
        for (const XPnt3d& h : scene.flaws.holeCentres)
            holes.append(point(h));
        flaws["holeCentres"] = holes;
        flaws["blobs"] = scene.flaws.blobs;
        flaws["trueTriangles"] = double(modelTriangles);
        root["reconstruction"] = flaws;
    }
    QJsonObject made;
    made["photos"] = options.photos;
    made["triangles"] = double(options.triangles);
    made["photoSize"] = array({double(options.photoWidth), double(options.photoHeight)});
    made["texelsPerMetre"] = options.texelsPerMetre;
    root["options"] = made;
    QJsonObject conventions;
    conventions["camera"] = "x right, y down, z forward; camera = R * world + t; R row-major";
    conventions["pixel"] = "from the picture's top-left corner; pixel (i, j) covers [i, i+1) x [j, j+1)";
    conventions["uv"] = "texture and control-point coordinates: (0, 0) bottom-left, (1, 1) top-right";
    conventions["triangles"] = "counter-clockwise seen from outside; numbered from 0 in model.obj order";
    root["conventions"] = conventions;
    QJsonArray surfaces;
    for (const SampleSurface& s : scene.surfaces) {
        QJsonObject o;
        o["name"] = QString::fromStdString(s.name);
        o["material"] = QString::fromStdString(s.material);
        o["origin"] = point(s.origin);
        o["uAxis"] = point(s.uAxis);
        o["vAxis"] = point(s.vAxis);
        o["firstTriangle"] = double(s.firstTriangle);
        o["triangleCount"] = double(s.triangleCount);
        o["texture"] = QString("truth/textures/%1.png").arg(QString::fromStdString(s.name));
        o["textureSize"] = array({double(s.texture.cols), double(s.texture.rows)});
        o["shade"] = surfaceShade(s);
        o["inMesh"] = s.inMesh;
        if (!s.onlyIn.empty())
            o["onlyIn"] = QString::fromStdString(s.onlyIn);
        surfaces.append(o);
    }
    root["surfaces"] = surfaces;
    QJsonArray photos;
    for (size_t i = 0; i < n; ++i) {
        const SampleCamera& c = scene.cameras[i];
        QJsonObject o;
        const QString name = QString::fromStdString(c.name), base = QString::fromStdString(stem(c.name));
        o["file"] = "photos/" + name;
        o["width"] = c.width;
        o["height"] = c.height;
        o["fx"] = c.fx;
        o["fy"] = c.fy;
        o["cx"] = c.cx;
        o["cy"] = c.cy;
        o["R"] = array({c.R[0], c.R[1], c.R[2], c.R[3], c.R[4], c.R[5], c.R[6], c.R[7], c.R[8]});
        o["t"] = array({c.t[0], c.t[1], c.t[2]});
        o["center"] = point(c.center());
        o["fovY"] = c.fovYDegrees();
        o["focalMm"] = c.focalMm;
        o["sensorMm"] = array({c.sensorWidthMm, c.sensorHeightMm});
        o["exposure"] = c.exposure;
        o["whiteBalance"] = array({c.whiteBalance[0], c.whiteBalance[1], c.whiteBalance[2]});
        o["noiseSigma"] = c.noiseSigma;
        o["vignetting"] = c.vignetting;
        o["blurSigma"] = c.blurSigma;
        o["controlPoints"] = "control_points/" + base + ".txt";
        o["projectionMatrix"] = "cameras/matrices/" + base + ".P.txt";
        QJsonArray sees;
        for (size_t s = 0; s < scene.surfaces.size(); ++s)
            if (scene.surfaceCoverage[i][s] > 0) {
                QJsonObject v;
                v["surface"] = QString::fromStdString(scene.surfaces[s].name);
                v["coverage"] = std::round(scene.surfaceCoverage[i][s] * 1e4) / 1e4;
                sees.append(v);
            }
        o["sees"] = sees;
        photos.append(o);
    }
    root["photos"] = photos;
    QFile json(dir.filePath("scene.json"));
    if (!json.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        json.write(QJsonDocument(root).toJson(QJsonDocument::Indented)) < 0)
        return fail("cannot write " + json.fileName().toStdString());
    report(1.0, "Done");
    if (sceneOut)
        *sceneOut = std::move(scene);
    return true;
}

} // namespace qvsample

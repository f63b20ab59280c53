#include "SampleRender.h"

#include <GL/gl.h>
#include <GL/osmesa.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <memory>

#include "SampleRandom.h"

namespace qvsample {

namespace {

// Per-corner arrays for glDrawArrays, grouped by surface.
struct CornerArrays {
    std::vector<float> positions;   // 9 a triangle
    std::vector<float> uvs;         // 6 a triangle
    std::vector<unsigned char> ids; // 9 a triangle: the triangle number + 1, 24 bits
};

CornerArrays cornerArrays(const SampleMesh& m)
{
    CornerArrays a;
    const long n = m.triangleCount();
    a.positions.resize(size_t(n) * 9);
    a.uvs.resize(size_t(n) * 6);
    a.ids.resize(size_t(n) * 9);
    for (long f = 0; f < n; ++f) {
        const uint32_t id = uint32_t(f + 1);
        for (int k = 0; k < 3; ++k) {
            const XPnt3f& p = m.vertices[m.triangles[size_t(f) * 3 + size_t(k)]];
            float* pos = &a.positions[size_t(f) * 9 + size_t(k) * 3];
            pos[0] = p.x;
            pos[1] = p.y;
            pos[2] = p.z;
            const XPnt2f& uv = m.cornerUVs[size_t(f) * 3 + size_t(k)];
            a.uvs[size_t(f) * 6 + size_t(k) * 2] = uv.x;
            a.uvs[size_t(f) * 6 + size_t(k) * 2 + 1] = uv.y;
            unsigned char* c = &a.ids[size_t(f) * 9 + size_t(k) * 3];
            c[0] = (unsigned char)(id & 0xff);
            c[1] = (unsigned char)((id >> 8) & 0xff);
            c[2] = (unsigned char)((id >> 16) & 0xff);
        }
    }
    return a;
}

// The GL matrices that put every world point on exactly the pixel position
// the pinhole camera gives it, for a picture scale times the camera's size.
void cameraMatrices(const SampleCamera& cam, int scale, double zNear, double zFar, double proj[16], double model[16])
{
    const double W = cam.width * scale, H = cam.height * scale;
    const double fx = cam.fx * scale, fy = cam.fy * scale, cx = cam.cx * scale, cy = cam.cy * scale;
    // GL's eye space has y up and looks down -z: e = diag(1, -1, -1) (R X + t).
    std::fill(model, model + 16, 0.0);
    const double sign[3] = {1, -1, -1};
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            model[c * 4 + r] = sign[r] * cam.R[r * 3 + c];
        model[12 + r] = sign[r] * cam.t[r];
    }
    model[15] = 1;
    // Column-major; clip w = -e.z.
    std::fill(proj, proj + 16, 0.0);
    proj[0] = 2 * fx / W;
    proj[8] = 1 - 2 * cx / W;
    proj[5] = 2 * fy / H;
    proj[9] = 2 * cy / H - 1;
    proj[10] = -(zFar + zNear) / (zFar - zNear);
    proj[14] = -2 * zFar * zNear / (zFar - zNear);
    proj[11] = -1;
}

// OpenGL reached through OSMesa's own entry points: a program that also
// links the system's libGL (the desktop application and its tests) would
// otherwise send these calls to whatever context that library holds, or to
// none, and the photographs would come out black.
struct OsMesaGl {
    decltype(&::glBindTexture) BindTexture = nullptr;
    decltype(&::glClear) Clear = nullptr;
    decltype(&::glClearColor) ClearColor = nullptr;
    decltype(&::glColor3f) Color3f = nullptr;
    decltype(&::glColorPointer) ColorPointer = nullptr;
    decltype(&::glCullFace) CullFace = nullptr;
    decltype(&::glDeleteTextures) DeleteTextures = nullptr;
    decltype(&::glDisable) Disable = nullptr;
    decltype(&::glDisableClientState) DisableClientState = nullptr;
    decltype(&::glDrawArrays) DrawArrays = nullptr;
    decltype(&::glEnable) Enable = nullptr;
    decltype(&::glEnableClientState) EnableClientState = nullptr;
    decltype(&::glFinish) Finish = nullptr;
    decltype(&::glFrontFace) FrontFace = nullptr;
    decltype(&::glGenTextures) GenTextures = nullptr;
    decltype(&::glLoadMatrixd) LoadMatrixd = nullptr;
    decltype(&::glMatrixMode) MatrixMode = nullptr;
    decltype(&::glPixelStorei) PixelStorei = nullptr;
    decltype(&::glShadeModel) ShadeModel = nullptr;
    decltype(&::glTexCoordPointer) TexCoordPointer = nullptr;
    decltype(&::glTexEnvi) TexEnvi = nullptr;
    decltype(&::glTexImage2D) TexImage2D = nullptr;
    decltype(&::glTexParameteri) TexParameteri = nullptr;
    decltype(&::glVertexPointer) VertexPointer = nullptr;
    decltype(&::glViewport) Viewport = nullptr;
    bool ok = false;
};

const OsMesaGl& osMesaGl()
{
    static const OsMesaGl table = [] {
        OsMesaGl g;
        g.BindTexture = reinterpret_cast<decltype(&::glBindTexture)>(OSMesaGetProcAddress("glBindTexture"));
        g.Clear = reinterpret_cast<decltype(&::glClear)>(OSMesaGetProcAddress("glClear"));
        g.ClearColor = reinterpret_cast<decltype(&::glClearColor)>(OSMesaGetProcAddress("glClearColor"));
        g.Color3f = reinterpret_cast<decltype(&::glColor3f)>(OSMesaGetProcAddress("glColor3f"));
        g.ColorPointer = reinterpret_cast<decltype(&::glColorPointer)>(OSMesaGetProcAddress("glColorPointer"));
        g.CullFace = reinterpret_cast<decltype(&::glCullFace)>(OSMesaGetProcAddress("glCullFace"));
        g.DeleteTextures = reinterpret_cast<decltype(&::glDeleteTextures)>(OSMesaGetProcAddress("glDeleteTextures"));
        g.Disable = reinterpret_cast<decltype(&::glDisable)>(OSMesaGetProcAddress("glDisable"));
        g.DisableClientState =
            reinterpret_cast<decltype(&::glDisableClientState)>(OSMesaGetProcAddress("glDisableClientState"));
        g.DrawArrays = reinterpret_cast<decltype(&::glDrawArrays)>(OSMesaGetProcAddress("glDrawArrays"));
        g.Enable = reinterpret_cast<decltype(&::glEnable)>(OSMesaGetProcAddress("glEnable"));
        g.EnableClientState =
            reinterpret_cast<decltype(&::glEnableClientState)>(OSMesaGetProcAddress("glEnableClientState"));
        g.Finish = reinterpret_cast<decltype(&::glFinish)>(OSMesaGetProcAddress("glFinish"));
        g.FrontFace = reinterpret_cast<decltype(&::glFrontFace)>(OSMesaGetProcAddress("glFrontFace"));
        g.GenTextures = reinterpret_cast<decltype(&::glGenTextures)>(OSMesaGetProcAddress("glGenTextures"));
        g.LoadMatrixd = reinterpret_cast<decltype(&::glLoadMatrixd)>(OSMesaGetProcAddress("glLoadMatrixd"));
        g.MatrixMode = reinterpret_cast<decltype(&::glMatrixMode)>(OSMesaGetProcAddress("glMatrixMode"));
        g.PixelStorei = reinterpret_cast<decltype(&::glPixelStorei)>(OSMesaGetProcAddress("glPixelStorei"));
        g.ShadeModel = reinterpret_cast<decltype(&::glShadeModel)>(OSMesaGetProcAddress("glShadeModel"));
        g.TexCoordPointer = reinterpret_cast<decltype(&::glTexCoordPointer)>(OSMesaGetProcAddress("glTexCoordPointer"));
        g.TexEnvi = reinterpret_cast<decltype(&::glTexEnvi)>(OSMesaGetProcAddress("glTexEnvi"));
        g.TexImage2D = reinterpret_cast<decltype(&::glTexImage2D)>(OSMesaGetProcAddress("glTexImage2D"));
        g.TexParameteri = reinterpret_cast<decltype(&::glTexParameteri)>(OSMesaGetProcAddress("glTexParameteri"));
        g.VertexPointer = reinterpret_cast<decltype(&::glVertexPointer)>(OSMesaGetProcAddress("glVertexPointer"));
        g.Viewport = reinterpret_cast<decltype(&::glViewport)>(OSMesaGetProcAddress("glViewport"));
        g.ok = g.BindTexture && g.Clear && g.ClearColor && g.Color3f && g.ColorPointer && g.CullFace &&
               g.DeleteTextures && g.Disable && g.DisableClientState && g.DrawArrays && g.Enable &&
               g.EnableClientState && g.Finish && g.FrontFace && g.GenTextures && g.LoadMatrixd && g.MatrixMode &&
               g.PixelStorei && g.ShadeModel && g.TexCoordPointer && g.TexEnvi && g.TexImage2D && g.TexParameteri &&
               g.VertexPointer && g.Viewport;
        return g;
    }();
    return table;
}

// A passer-by is in one photograph only.
bool inPhotograph(const SampleSurface& s, const SampleCamera& cam)
{
    return s.onlyIn.empty() || s.onlyIn == cam.name;
}

struct Context {
    OSMesaContext ctx = nullptr;
    ~Context()
    {
        if (ctx)
            OSMesaDestroyContext(ctx);
    }
};

void depthRange(const SampleScene& scene, const SampleCamera& cam, double& zNear, double& zFar)
{
    double lo = 1e300, hi = 0;
    for (const XPnt3f& v : scene.mesh.vertices) {
        const double z = cam.R[6] * v.x + cam.R[7] * v.y + cam.R[8] * v.z + cam.t[2];
        lo = std::min(lo, z);
        hi = std::max(hi, z);
    }
    zFar = std::max(1.0, hi * 1.01);
    zNear = std::clamp(lo * 0.99, zFar * 1e-4, zFar * 0.5);
}

} // namespace

double surfaceShade(const SampleSurface& s)
{
    const XPnt3d n(s.uAxis.y * s.vAxis.z - s.uAxis.z * s.vAxis.y, s.uAxis.z * s.vAxis.x - s.uAxis.x * s.vAxis.z,
                   s.uAxis.x * s.vAxis.y - s.uAxis.y * s.vAxis.x);
    const double len = std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z);
    // Afternoon sun from the south-west, high.
    const XPnt3d sun(-0.38, -0.55, 0.74);
    const double d = len > 0 ? (n.x * sun.x + n.y * sun.y + n.z * sun.z) / len : 0;
    return 0.62 + 0.38 * std::max(0.0, d);
}

bool renderSampleView(const SampleScene& scene, const SampleCamera& cam, SampleView& view, std::string* error,
                      int supersample)
{
    auto fail = [&](const std::string& why) {
        if (error)
            *error = why;
        return false;
    };
    supersample = std::max(1, supersample);
    const int W = cam.width * supersample, H = cam.height * supersample;
    const OsMesaGl& gl = osMesaGl();
    if (!gl.ok)
        return fail("this OSMesa lacks an OpenGL function the renderer needs");
    Context context;
    context.ctx = OSMesaCreateContextExt(OSMESA_RGBA, 24, 0, 0, nullptr);
    if (!context.ctx)
        return fail("cannot create an off-screen OpenGL context");
    std::vector<unsigned char> buffer(size_t(W) * size_t(H) * 4);
    if (!OSMesaMakeCurrent(context.ctx, buffer.data(), GL_UNSIGNED_BYTE, W, H))
        return fail("cannot make the off-screen context current (picture too large?)");
    // Rows top-down, as our pictures keep them.
    OSMesaPixelStore(OSMESA_Y_UP, 0);

    double zNear, zFar;
    depthRange(scene, cam, zNear, zFar);
    const CornerArrays arrays = cornerArrays(scene.mesh);

    auto setCamera = [&](int scale) {
        double proj[16], model[16];
        cameraMatrices(cam, scale, zNear, zFar, proj, model);
        gl.MatrixMode(GL_PROJECTION);
        gl.LoadMatrixd(proj);
        gl.MatrixMode(GL_MODELVIEW);
        gl.LoadMatrixd(model);
    };

    // Colour pass: textured surfaces, lit by the sun, at the supersampled size.
    gl.Viewport(0, 0, W, H);
    gl.ClearColor(0.80f, 0.86f, 0.93f, 1.f);
    gl.Clear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    gl.Enable(GL_DEPTH_TEST);
    // Surfaces are one-sided skins: seen from behind they show nothing.
    gl.Enable(GL_CULL_FACE);
    gl.CullFace(GL_BACK);
    gl.FrontFace(GL_CCW);
    gl.Disable(GL_LIGHTING);
    setCamera(supersample);
    gl.Enable(GL_TEXTURE_2D);
    gl.TexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    gl.PixelStorei(GL_UNPACK_ALIGNMENT, 1);
    gl.EnableClientState(GL_VERTEX_ARRAY);
    gl.EnableClientState(GL_TEXTURE_COORD_ARRAY);
    gl.VertexPointer(3, GL_FLOAT, 0, arrays.positions.data());
    gl.TexCoordPointer(2, GL_FLOAT, 0, arrays.uvs.data());
    for (const SampleSurface& s : scene.surfaces) {
        if (s.triangleCount == 0 || s.texture.empty() || !inPhotograph(s, cam))
            continue;
        // GL's first texture row is t = 0, the picture's bottom row.
        cv::Mat flipped;
        cv::flip(s.texture, flipped, 0);
        GLuint tex = 0;
        gl.GenTextures(1, &tex);
        gl.BindTexture(GL_TEXTURE_2D, tex);
        gl.TexParameteri(GL_TEXTURE_2D, GL_GENERATE_MIPMAP, GL_TRUE);
        gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
        gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        gl.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        gl.TexImage2D(GL_TEXTURE_2D, 0, GL_RGB8, flipped.cols, flipped.rows, 0, GL_BGR, GL_UNSIGNED_BYTE,
                      flipped.ptr());
        const float shade = float(surfaceShade(s));
        gl.Color3f(shade, shade, shade);
        gl.DrawArrays(GL_TRIANGLES, GLint(s.firstTriangle * 3), GLsizei(s.triangleCount * 3));
        gl.DeleteTextures(1, &tex);
    }
    gl.DisableClientState(GL_TEXTURE_COORD_ARRAY);
    gl.Disable(GL_TEXTURE_2D);
    gl.Finish();
    {
        cv::Mat rgba(H, W, CV_8UC4, buffer.data());
        cv::Mat bgr;
        cv::cvtColor(rgba, bgr, cv::COLOR_RGBA2BGR);
        if (supersample > 1)
            cv::resize(bgr, view.bgr, cv::Size(cam.width, cam.height), 0, 0, cv::INTER_AREA);
        else
            view.bgr = bgr;
    }

    // Triangle pass: one sample at each pixel centre of the real size, flat
    // colours that spell triangle numbers.
    std::vector<unsigned char> ids(size_t(cam.width) * size_t(cam.height) * 4);
    if (!OSMesaMakeCurrent(context.ctx, ids.data(), GL_UNSIGNED_BYTE, cam.width, cam.height))
        return fail("cannot make the off-screen context current");
    OSMesaPixelStore(OSMESA_Y_UP, 0);
    gl.Viewport(0, 0, cam.width, cam.height);
    gl.ClearColor(0, 0, 0, 0);
    gl.Clear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    gl.Disable(GL_DITHER);
    gl.ShadeModel(GL_FLAT);
    setCamera(1);
    gl.EnableClientState(GL_COLOR_ARRAY);
    gl.ColorPointer(3, GL_UNSIGNED_BYTE, 0, arrays.ids.data());
    for (const SampleSurface& s : scene.surfaces)
        if (s.triangleCount > 0 && inPhotograph(s, cam))
            gl.DrawArrays(GL_TRIANGLES, GLint(s.firstTriangle * 3), GLsizei(s.triangleCount * 3));
    gl.Finish();
    auto readIds = [&](cv::Mat& out) {
        out.create(cam.height, cam.width, CV_32S);
        for (int y = 0; y < cam.height; ++y) {
            const unsigned char* src = ids.data() + size_t(y) * size_t(cam.width) * 4;
            int32_t* dst = out.ptr<int32_t>(y);
            for (int x = 0; x < cam.width; ++x, src += 4)
                dst[x] = int32_t(uint32_t(src[0]) | (uint32_t(src[1]) << 8) | (uint32_t(src[2]) << 16)) - 1;
        }
    };
    readIds(view.triangle);
    view.modelTriangle = view.triangle;
    if (std::any_of(scene.surfaces.begin(), scene.surfaces.end(), [](const SampleSurface& s) { return !s.inMesh; })) {
        gl.Clear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        for (const SampleSurface& s : scene.surfaces)
            if (s.triangleCount > 0 && s.inMesh)
                gl.DrawArrays(GL_TRIANGLES, GLint(s.firstTriangle * 3), GLsizei(s.triangleCount * 3));
        gl.Finish();
        view.modelTriangle = cv::Mat();
        readIds(view.modelTriangle);
    }
    gl.DisableClientState(GL_COLOR_ARRAY);
    gl.DisableClientState(GL_VERTEX_ARRAY);
    OSMesaMakeCurrent(nullptr, nullptr, 0, 0, 0);
    return true;
}

std::vector<double> surfaceCoverage(const SampleScene& scene, const SampleView& view)
{
    const SampleMesh& m = scene.mesh;
    std::vector<char> seen(size_t(m.triangleCount()), 0);
    for (int y = 0; y < view.triangle.rows; ++y) {
        const int32_t* row = view.triangle.ptr<int32_t>(y);
        for (int x = 0; x < view.triangle.cols; ++x)
            if (row[x] >= 0 && row[x] < m.triangleCount())
                seen[size_t(row[x])] = 1;
    }
    std::vector<double> total(scene.surfaces.size(), 0.0), visible(scene.surfaces.size(), 0.0);
    for (long f = 0; f < m.triangleCount(); ++f) {
        const XPnt3f &a = m.vertices[m.triangles[size_t(f) * 3]], &b = m.vertices[m.triangles[size_t(f) * 3 + 1]],
                     &c = m.vertices[m.triangles[size_t(f) * 3 + 2]];
        const XPnt3d u(b.x - a.x, b.y - a.y, b.z - a.z), v(c.x - a.x, c.y - a.y, c.z - a.z);
        const XPnt3d n(u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x);
        const double area = 0.5 * std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z);
        const size_t s = size_t(m.triangleSurface[size_t(f)]);
        total[s] += area;
        if (seen[size_t(f)])
            visible[s] += area;
    }
    std::vector<double> share(scene.surfaces.size(), 0.0);
    for (size_t s = 0; s < share.size(); ++s)
        share[s] = total[s] > 0 ? visible[s] / total[s] : 0.0;
    return share;
}

namespace {

// Where the ray through a pixel position meets the plane of a triangle.
bool hitTriangle(const SampleScene& scene, const SampleCamera& cam, long face, double px, double py, XPnt3d& hit)
{
    const SampleMesh& m = scene.mesh;
    const XPnt3f &a = m.vertices[m.triangles[size_t(face) * 3]], &b = m.vertices[m.triangles[size_t(face) * 3 + 1]],
                 &c = m.vertices[m.triangles[size_t(face) * 3 + 2]];
    // Ray in camera coordinates, turned into the world by R^T.
    const double dc[3] = {(px - cam.cx) / cam.fx, (py - cam.cy) / cam.fy, 1.0};
    const XPnt3d d(cam.R[0] * dc[0] + cam.R[3] * dc[1] + cam.R[6] * dc[2],
                   cam.R[1] * dc[0] + cam.R[4] * dc[1] + cam.R[7] * dc[2],
                   cam.R[2] * dc[0] + cam.R[5] * dc[1] + cam.R[8] * dc[2]);
    const XPnt3d o = cam.center();
    const XPnt3d A(a.x, a.y, a.z), u(b.x - a.x, b.y - a.y, b.z - a.z), v(c.x - a.x, c.y - a.y, c.z - a.z);
    const XPnt3d n(u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x);
    const double denom = n.x * d.x + n.y * d.y + n.z * d.z;
    if (std::abs(denom) < 1e-15)
        return false;
    const double s = (n.x * (A.x - o.x) + n.y * (A.y - o.y) + n.z * (A.z - o.z)) / denom;
    if (!(s > 0))
        return false;
    hit = o + d * s;
    return true;
}

} // namespace

std::vector<SampleControlPoint> chooseControlPoints(const SampleScene& scene, const SampleCamera& cam,
                                                    const SampleView& view, int count, unsigned seed)
{
    std::vector<SampleControlPoint> out;
    const cv::Mat& tri = view.triangle;
    if (tri.empty() || count <= 0)
        return out;
    SampleRandom rng(seed);
    const int margin = 6;
    auto clean = [&](int x, int y) {
        if (x < margin || y < margin || x >= tri.cols - margin || y >= tri.rows - margin)
            return false;
        const int32_t f = tri.at<int32_t>(y, x);
        if (f < 0)
            return false;
        const int32_t s = scene.mesh.triangleSurface[size_t(f)];
        // What the model leaves out cannot hold a control point on it.
        if (!scene.surfaces[size_t(s)].inMesh)
            return false;
        for (int j = -margin; j <= margin; ++j) {
            const int32_t* row = tri.ptr<int32_t>(y + j);
            for (int i = -margin; i <= margin; ++i)
                if (row[x + i] < 0 || scene.mesh.triangleSurface[size_t(row[x + i])] != s)
                    return false;
        }
        return true;
    };
    std::vector<XPnt2d> taken;
    const double minGap = 0.08 * std::min(tri.cols, tri.rows);
    auto tryAt = [&](int x, int y) {
        if (!clean(x, y))
            return false;
        for (const XPnt2d& p : taken)
            if (std::hypot(p.x - x, p.y - y) < minGap)
                return false;
        const double px = x + 0.5, py = y + 0.5;
        XPnt3d world;
        if (!hitTriangle(scene, cam, tri.at<int32_t>(y, x), px, py, world))
            return false;
        SampleControlPoint cp;
        cp.u = px / cam.width;
        cp.v = 1.0 - py / cam.height;
        cp.world = world;
        out.push_back(cp);
        taken.push_back(XPnt2d(x, y));
        return true;
    };
    // First one point in each cell of a grid over the picture, then anywhere.
    const int cols = 4, rows = std::max(1, (count + cols - 1) / cols);
    for (int cy = 0; cy < rows && int(out.size()) < count; ++cy)
        for (int cx = 0; cx < cols && int(out.size()) < count; ++cx)
            for (int attempt = 0; attempt < 400; ++attempt) {
                const int x = int((cx + rng.uniform(0.1, 0.9)) * tri.cols / cols);
                const int y = int((cy + rng.uniform(0.1, 0.9)) * tri.rows / rows);
                if (tryAt(x, y))
                    break;
            }
    for (int attempt = 0; attempt < 20000 && int(out.size()) < count; ++attempt)
        tryAt(int(rng.below(uint32_t(tri.cols))), int(rng.below(uint32_t(tri.rows))));
    return out;
}

} // namespace qvsample

// The scenes' geometry, textures and cameras.

#include <algorithm>
#include <cmath>

#include "SampleRandom.h"
#include "SampleScene.h"
#include "SampleTextures.h"

namespace qvsample {

namespace {

struct Rect {
    const char* name;
    const char* material;
    XPnt3d origin, u, v;
    bool inMesh = true;
};

double length(const XPnt3d& p)
{
    return std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z);
}

// An axis-aligned box as its outward rectangles; skip names the faces left out.
void addBox(std::vector<Rect>& out, const char* prefix, const char* material, XPnt3d lo, XPnt3d hi,
            const std::vector<std::string>& skip, std::vector<std::string>& names, bool inMesh = true)
{
    const double dx = hi.x - lo.x, dy = hi.y - lo.y, dz = hi.z - lo.z;
    struct Face {
        const char* side;
        XPnt3d o, u, v;
    } faces[] = {
        {"south", {lo.x, lo.y, lo.z}, {dx, 0, 0}, {0, 0, dz}},  {"east", {hi.x, lo.y, lo.z}, {0, dy, 0}, {0, 0, dz}},
        {"north", {hi.x, hi.y, lo.z}, {-dx, 0, 0}, {0, 0, dz}}, {"west", {lo.x, hi.y, lo.z}, {0, -dy, 0}, {0, 0, dz}},
        {"top", {lo.x, lo.y, hi.z}, {dx, 0, 0}, {0, dy, 0}},
    };
    for (const Face& f : faces) {
        if (std::find(skip.begin(), skip.end(), f.side) != skip.end())
            continue;
        names.push_back(std::string(prefix) + "_" + f.side);
        out.push_back({nullptr, material, f.o, f.u, f.v, inMesh});
    }
}

std::vector<Rect> layout(SceneKind kind, std::vector<std::string>& names)
{
    std::vector<Rect> rects;
    auto add = [&](const char* name, const char* material, XPnt3d o, XPnt3d u, XPnt3d v) {
        names.push_back(name);
        rects.push_back({nullptr, material, o, u, v});
    };
    switch (kind) {
    case SceneKind::Building:
    case SceneKind::Realistic:
        // Ground 40 m square; a block 12 x 8 x 9 m; a low annex on its east
        // side; a pillar in front of the south facade that hides part of it
        // from the photographs taken from the south-west.
        add("ground", "paving", {-20, -20, 0}, {40, 0, 0}, {0, 40, 0});
        add("facade_south", "brick", {-6, -4, 0}, {12, 0, 0}, {0, 0, 9});
        add("facade_east", "plaster", {6, -4, 0}, {0, 8, 0}, {0, 0, 9});
        add("facade_north", "brick", {6, 4, 0}, {-12, 0, 0}, {0, 0, 9});
        add("facade_west", "plaster", {-6, 4, 0}, {0, -8, 0}, {0, 0, 9});
        add("roof", "tiles", {-6, -4, 9}, {12, 0, 0}, {0, 8, 0});
        addBox(rects, "annex", "plaster", {6, -2.5, 0}, {9.5, 2.5, 3.5}, {"west"}, names);
        addBox(rects, "pillar", "stone", {-3.5, -9, 0}, {-2.5, -8, 7}, {}, names);
        if (kind == SceneKind::Realistic) {
            // In every photograph that looks their way, in no model: a tree
            // before the south-west corner, a lamp post before the east side.
            addBox(rects, "tree_trunk", "bark", {-9.3, -7.3, 0}, {-8.7, -6.7, 3}, {}, names, false);
            addBox(rects, "tree_crown", "foliage", {-10.8, -8.8, 3}, {-7.2, -5.2, 7}, {}, names, false);
            addBox(rects, "lamp_post", "metal", {12.4, 1.4, 0}, {12.6, 1.6, 6}, {}, names, false);
        }
        break;
    case SceneKind::Plane: add("poster_wall", "poster", {-3, 0, 0}, {6, 0, 0}, {0, 0, 4}); break;
    case SceneKind::Wall:
        add("facade", "brick", {-6, 0, 0}, {12, 0, 0}, {0, 0, 8});
        add("ground", "paving", {-8, -8, 0}, {16, 0, 0}, {0, 8, 0});
        break;
    }
    return rects;
}

// A look-at rotation (world to camera, computer-vision axes): the camera at
// eye looks at target with the world's z up in the picture.
void lookAt(const XPnt3d& eye, const XPnt3d& target, double R[9], double t[3])
{
    XPnt3d z = target - eye;
    z = z * (1.0 / length(z));
    XPnt3d up(0, 0, 1);
    // x = z cross up (right), y = z cross x (down)
    XPnt3d x(z.y * up.z - z.z * up.y, z.z * up.x - z.x * up.z, z.x * up.y - z.y * up.x);
    x = x * (1.0 / length(x));
    XPnt3d y(z.y * x.z - z.z * x.y, z.z * x.x - z.x * x.z, z.x * x.y - z.y * x.x);
    const XPnt3d rows[3] = {x, y, z};
    for (int r = 0; r < 3; ++r) {
        R[r * 3 + 0] = rows[r].x;
        R[r * 3 + 1] = rows[r].y;
        R[r * 3 + 2] = rows[r].z;
        t[r] = -(rows[r].x * eye.x + rows[r].y * eye.y + rows[r].z * eye.z);
    }
}

SampleCamera makeCamera(const SampleOptions& o, int index, const XPnt3d& eye, const XPnt3d& target, double focalMm,
                        SampleRandom& rng)
{
    SampleCamera c;
    char name[32];
    std::snprintf(name, sizeof name, "photo_%02d.jpg", index + 1);
    c.name = name;
    c.width = o.photoWidth;
    c.height = o.photoHeight;
    // An APS-C sensor cut to the picture's aspect ratio.
    c.sensorWidthMm = 23.5;
    c.sensorHeightMm = 23.5 * double(o.photoHeight) / double(o.photoWidth);
    c.focalMm = focalMm;
    c.fx = focalMm / c.sensorWidthMm * c.width;
    c.fy = focalMm / c.sensorHeightMm * c.height;
    c.cx = c.width * 0.5;
    c.cy = c.height * 0.5;
    c.make = "Quovara";
    c.model = "Synthetic 24";
    lookAt(eye, target, c.R, c.t);
    c.exposure = rng.uniform(0.85, 1.15);
    for (double& g : c.whiteBalance)
        g = rng.uniform(0.93, 1.07);
    c.noiseSigma = rng.uniform(1.5, 3.5);
    c.noiseSeed = rng.next32();
    return c;
}

std::vector<SampleCamera> makeCameras(const SampleOptions& o, SampleRandom& rng)
{
    std::vector<SampleCamera> cams;
    const int n = std::max(1, o.photos);
    for (int i = 0; i < n; ++i) {
        XPnt3d eye, target;
        double focal = 18;
        switch (o.kind) {
        case SceneKind::Building:
        case SceneKind::Realistic: {
            // Around the block and above it, every side seen at least twice.
            const double az = 2 * M_PI * (i + rng.uniform(-0.15, 0.15)) / n - M_PI / 2;
            const double radius = rng.uniform(24, 30);
            const double height = (i % 3 == 2) ? rng.uniform(14, 20) : rng.uniform(1.6, 6);
            eye = XPnt3d(radius * std::cos(az), radius * std::sin(az), height);
            target = XPnt3d(rng.uniform(-1.5, 1.5), rng.uniform(-1.5, 1.5), rng.uniform(3, 5));
            focal = rng.uniform(16, 20);
            break;
        }
        case SceneKind::Plane: {
            // Oblique views of the wall, 30 to 60 degrees off its normal.
            const double side = (i % 2) ? 1 : -1;
            const double angle = side * rng.uniform(30, 60) * M_PI / 180;
            const double dist = rng.uniform(7, 10);
            eye = XPnt3d(dist * std::sin(angle), -dist * std::cos(angle), rng.uniform(1, 4));
            target = XPnt3d(rng.uniform(-0.5, 0.5), 0, rng.uniform(1.5, 2.5));
            focal = rng.uniform(20, 26);
            break;
        }
        case SceneKind::Wall: {
            // Square on, stepping along the facade.
            const double x = n > 1 ? -4 + 8.0 * i / (n - 1) : 0;
            eye = XPnt3d(x + rng.uniform(-0.3, 0.3), -rng.uniform(11, 13), rng.uniform(3.5, 4.5));
            target = XPnt3d(eye.x, 0, eye.z);
            focal = rng.uniform(14, 16);
            break;
        }
        }
        cams.push_back(makeCamera(o, i, eye, target, focal, rng));
        if (o.kind == SceneKind::Realistic) {
            // A lens that darkens the corners; every fifth photograph a little
            // out of focus or shaken.
            cams.back().vignetting = rng.uniform(0.2, 0.45);
            cams.back().blurSigma = i % 5 == 3 ? rng.uniform(1.0, 2.0) : 0.0;
        }
    }
    return cams;
}

// A grid of square cells over the rectangle origin + [0, 1] u + [0, 1] v, two
// triangles a cell, corners in the rectangle's texture coordinates.
void addGrid(SampleMesh& m, const XPnt3d& origin, const XPnt3d& u, const XPnt3d& v, double cell, int32_t surface)
{
    const double w = length(u), h = length(v);
    const int nu = std::max(1, int(std::lround(w / cell))), nv = std::max(1, int(std::lround(h / cell)));
    const uint32_t base = uint32_t(m.vertices.size());
    for (int j = 0; j <= nv; ++j)
        for (int i = 0; i <= nu; ++i) {
            const XPnt3d p = origin + u * (double(i) / nu) + v * (double(j) / nv);
            m.vertices.push_back(XPnt3f(float(p.x), float(p.y), float(p.z)));
        }
    for (int j = 0; j < nv; ++j)
        for (int i = 0; i < nu; ++i) {
            const uint32_t a = base + uint32_t(j * (nu + 1) + i), b = a + 1, c = a + uint32_t(nu + 1) + 1,
                           d = a + uint32_t(nu + 1);
            const XPnt2f ua(float(i) / nu, float(j) / nv), ub(float(i + 1) / nu, float(j) / nv),
                uc(float(i + 1) / nu, float(j + 1) / nv), ud(float(i) / nu, float(j + 1) / nv);
            // Alternate the diagonal so that no direction is preferred.
            if ((i + j) % 2 == 0) {
                m.triangles.insert(m.triangles.end(), {a, b, c, a, c, d});
                m.cornerUVs.insert(m.cornerUVs.end(), {ua, ub, uc, ua, uc, ud});
            } else {
                m.triangles.insert(m.triangles.end(), {a, b, d, b, c, d});
                m.cornerUVs.insert(m.cornerUVs.end(), {ua, ub, ud, ub, uc, ud});
            }
            m.triangleSurface.insert(m.triangleSurface.end(), {surface, surface});
        }
}

// A standard normal deviate (Box-Muller).
double gaussian(SampleRandom& rng)
{
    const double u1 = std::max(1e-12, rng.uniform(0, 1)), u2 = rng.uniform(0, 1);
    return std::sqrt(-2 * std::log(u1)) * std::cos(2 * M_PI * u2);
}

XPnt3d unit(const XPnt3d& p)
{
    const double l = length(p);
    return l > 0 ? p * (1.0 / l) : p;
}

// What a reconstruction of the scene's model gives: each surface's outline
// grown past its edges, the vertices off the surfaces by noise, a few holes
// where nothing was matched, and blobs hanging in the air where the sky or
// a moving thing fooled the matching.
void makeReconstruction(SampleScene& scene, double cell, SampleRandom& rng)
{
    SampleScene::Flaws& f = scene.flaws;
    f.noise = 0.02;
    f.growth = 0.15;
    f.holeRadius = 0.6;
    f.blobs = 4;
    std::vector<size_t> walls;
    for (size_t s = 0; s < scene.surfaces.size(); ++s) {
        const SampleSurface& surface = scene.surfaces[s];
        if (surface.inMesh && (surface.name.rfind("facade_", 0) == 0 || surface.name == "roof"))
            walls.push_back(s);
    }
    for (int k = 0; k < 3 && !walls.empty(); ++k) {
        const SampleSurface& w = scene.surfaces[walls[rng.below(uint32_t(walls.size()))]];
        f.holeCentres.push_back(w.origin + w.uAxis * rng.uniform(0.2, 0.8) + w.vAxis * rng.uniform(0.2, 0.8));
    }
    SampleMesh& m = scene.reconstruction;
    for (size_t s = 0; s < scene.surfaces.size(); ++s) {
        const SampleSurface& surface = scene.surfaces[s];
        if (!surface.inMesh)
            continue;
        // The ground is cut off at the scene's edge; everything else reaches
        // past its outline.
        const double g = surface.name == "ground" ? 0.0 : f.growth;
        const XPnt3d du = unit(surface.uAxis) * g, dv = unit(surface.vAxis) * g;
        SampleMesh grid;
        addGrid(grid, surface.origin - du - dv, surface.uAxis + du * 2, surface.vAxis + dv * 2, cell, int32_t(s));
        const XPnt3d n = unit(XPnt3d(surface.uAxis.y * surface.vAxis.z - surface.uAxis.z * surface.vAxis.y,
                                     surface.uAxis.z * surface.vAxis.x - surface.uAxis.x * surface.vAxis.z,
                                     surface.uAxis.x * surface.vAxis.y - surface.uAxis.y * surface.vAxis.x));
        const uint32_t base = uint32_t(m.vertices.size());
        for (const XPnt3f& v : grid.vertices) {
            const double d = f.noise * gaussian(rng);
            m.vertices.push_back(XPnt3f(float(v.x + n.x * d), float(v.y + n.y * d), float(v.z + n.z * d)));
        }
        for (long t = 0; t < grid.triangleCount(); ++t) {
            XPnt3d c(0, 0, 0);
            for (int k = 0; k < 3; ++k) {
                const XPnt3f& v = grid.vertices[grid.triangles[size_t(t) * 3 + size_t(k)]];
                c = c + XPnt3d(v.x, v.y, v.z) * (1.0 / 3);
            }
            bool inHole = false;
            for (const XPnt3d& h : f.holeCentres)
                inHole = inHole || length(c - h) < f.holeRadius;
            if (inHole)
                continue;
            for (int k = 0; k < 3; ++k) {
                m.triangles.push_back(base + grid.triangles[size_t(t) * 3 + size_t(k)]);
                m.cornerUVs.push_back(grid.cornerUVs[size_t(t) * 3 + size_t(k)]);
            }
            m.triangleSurface.push_back(int32_t(s));
        }
    }
    // Blobs: small closed boxes above the roof and off the walls.
    for (int b = 0; b < f.blobs; ++b) {
        const double size = rng.uniform(0.3, 0.7);
        const XPnt3d lo = b % 2 == 0
                              ? XPnt3d(rng.uniform(-5, 4), rng.uniform(-3, 2), rng.uniform(9.6, 10.8))
                              : XPnt3d(rng.uniform(-5, 4), -4.0 - rng.uniform(0.6, 1.5) - size, rng.uniform(5.0, 8.0));
        const XPnt3d hi = lo + XPnt3d(size, size, size * 0.7);
        const uint32_t base = uint32_t(m.vertices.size());
        for (int k = 0; k < 8; ++k)
            m.vertices.push_back(
                XPnt3f(float(k & 1 ? hi.x : lo.x), float(k & 2 ? hi.y : lo.y), float(k & 4 ? hi.z : lo.z)));
        // Outward, counter-clockwise seen from outside.
        static const uint32_t quads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                                             {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
        for (const auto& q : quads) {
            m.triangles.insert(m.triangles.end(),
                               {base + q[0], base + q[1], base + q[2], base + q[0], base + q[2], base + q[3]});
            for (int k = 0; k < 6; ++k)
                m.cornerUVs.push_back(XPnt2f(0, 0));
            m.triangleSurface.insert(m.triangleSurface.end(), {-1, -1});
        }
    }
}

} // namespace

SampleScene buildSampleScene(const SampleOptions& options)
{
    SampleScene scene;
    scene.kind = options.kind;
    scene.seed = options.seed;
    SampleRandom rng(options.seed);

    std::vector<std::string> names;
    std::vector<Rect> rects = layout(options.kind, names);
    double area = 0;
    for (const Rect& r : rects)
        if (r.inMesh)
            area += length(r.u) * length(r.v);
    // Square cells of one size everywhere, two triangles a cell.
    const double cell = std::sqrt(2.0 * area / double(std::max(2L, options.triangles)));

    scene.cameras = makeCameras(options, rng);
    size_t passerBy = rects.size(); // its faces, when there is one, are the last
    if (options.kind == SceneKind::Realistic && !scene.cameras.empty()) {
        // A passer-by in the first photograph only (taken from the south),
        // a few metres before the facade it hides part of.
        const XPnt3d c = scene.cameras[0].center();
        const XPnt3d p(0.35 * c.x, 0.35 * c.y, 0);
        addBox(rects, "passer_by", "cloth", p - XPnt3d(0.25, 0.18, 0), p + XPnt3d(0.25, 0.18, 1.75), {}, names, false);
    }

    SampleMesh& m = scene.mesh;
    for (size_t s = 0; s < rects.size(); ++s) {
        const Rect& r = rects[s];
        SampleSurface surface;
        surface.name = names[s];
        surface.material = r.material;
        surface.origin = r.origin;
        surface.uAxis = r.u;
        surface.vAxis = r.v;
        surface.inMesh = r.inMesh;
        if (s >= passerBy)
            surface.onlyIn = scene.cameras[0].name;
        surface.firstTriangle = m.triangleCount();
        addGrid(m, r.origin, r.u, r.v, cell, int32_t(s));
        surface.triangleCount = m.triangleCount() - surface.firstTriangle;
        const double w = length(r.u), h = length(r.v);
        const int tw = std::clamp(int(std::lround(w * options.texelsPerMetre)), 16, 8192);
        const int th = std::clamp(int(std::lround(h * options.texelsPerMetre)), 16, 8192);
        if (options.textures)
            surface.texture = makeSurfaceTexture(r.material, tw, th, options.seed * 7919u + unsigned(s));
        scene.surfaces.push_back(std::move(surface));
    }
    if (options.kind == SceneKind::Realistic)
        makeReconstruction(scene, cell, rng);
    return scene;
}

} // namespace qvsample

// The CPU visibility engine against OpenGL itself (Mesa, off-screen) on the
// same scene and camera: the depth buffers agree but for silhouette pixels,
// where the two rasterisers may round a pixel centre on an edge differently.

#include <GL/gl.h>
#include <GL/osmesa.h>

#include <cmath>
#include <random>
#include <vector>

#include "platform/KvoCameraMath.h"
#include "platform/KvoRasterizer.h"
#include "support/TestSupport.h"

using namespace kvo;

namespace {

struct Scene {
    std::vector<XPnt3f> v;
    std::vector<unsigned> t;
};

// Rolling ground and a few boxes standing on it, closed and wound outward.
Scene makeScene()
{
    Scene s;
    const int n = 60;
    for (int j = 0; j <= n; ++j)
        for (int i = 0; i <= n; ++i) {
            const float x = float(i) / n * 40 - 20, y = float(j) / n * 40 - 20;
            s.v.emplace_back(x, y, float(0.8 * std::sin(x * 0.5) * std::cos(y * 0.4)));
        }
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const unsigned a = unsigned(j * (n + 1) + i), b = a + 1, c = a + unsigned(n) + 2, d = a + unsigned(n) + 1;
            s.t.insert(s.t.end(), {a, b, c, a, c, d});
        }
    std::mt19937 rng(4);
    std::uniform_real_distribution<float> pos(-12, 12), size(1, 4);
    for (int k = 0; k < 8; ++k) {
        const float x0 = pos(rng), y0 = pos(rng), w = size(rng), d = size(rng), h = size(rng) * 2;
        const unsigned b = unsigned(s.v.size());
        for (int c = 0; c < 8; ++c)
            s.v.emplace_back(x0 + ((c & 1) ? w : 0), y0 + ((c & 2) ? d : 0), (c & 4) ? h : -1.f);
        const unsigned faces[12][3] = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                                       {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
        for (auto& f : faces)
            s.t.insert(s.t.end(), {b + f[0], b + f[1], b + f[2]});
    }
    return s;
}

} // namespace

TEST(EngineVsMesa, DepthBuffersAgreeButForSilhouettes)
{
    const Scene s = makeScene();
    const int W = 320, H = 240;
    double mv[16], pr[16];
    lookAtMatrix(XPnt3d(6, -30, 14), XPnt3d(0, 0, 0), XPnt3d(0, 0, 1), mv);
    perspectiveMatrix(45, double(W) / H, 5, 80, pr);

    KvoRasterizer engine;
    engine.setCamera(mv, pr, W, H);
    engine.draw(s.v.data(), long(s.v.size()), s.t.data(), long(s.t.size() / 3), 0, true);

    OSMesaContext ctx = OSMesaCreateContextExt(OSMESA_RGBA, 24, 0, 0, nullptr);
    ASSERT_NE(ctx, nullptr);
    std::vector<unsigned char> colour(size_t(W) * H * 4);
    ASSERT_TRUE(OSMesaMakeCurrent(ctx, colour.data(), GL_UNSIGNED_BYTE, W, H));
    glViewport(0, 0, W, H);
    glClearDepth(1.0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    glEnable(GL_CULL_FACE);
    glCullFace(GL_BACK);
    glMatrixMode(GL_PROJECTION);
    glLoadMatrixd(pr);
    glMatrixMode(GL_MODELVIEW);
    glLoadMatrixd(mv);
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(3, GL_FLOAT, 0, s.v.data());
    glDrawElements(GL_TRIANGLES, GLsizei(s.t.size()), GL_UNSIGNED_INT, s.t.data());
    std::vector<float> gl(size_t(W) * H);
    glReadPixels(0, 0, W, H, GL_DEPTH_COMPONENT, GL_FLOAT, gl.data());
    OSMesaDestroyContext(ctx);

    int same = 0, silhouette = 0, other = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const float mesa = gl[size_t(H - 1 - y) * W + size_t(x)]; // GL rows run bottom-up
            const float ours = engine.depthAt(x, y);
            if (std::abs(mesa - ours) < 1e-5f) {
                ++same;
                continue;
            }
            // A silhouette: the depth jumps within one pixel.
            float lo = 2, hi = -1;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    const float d = engine.depthAt(std::clamp(x + dx, 0, W - 1), std::clamp(y + dy, 0, H - 1));
                    lo = std::min(lo, d);
                    hi = std::max(hi, d);
                }
            if (hi - lo > 1e-3f)
                ++silhouette;
            else {
                ++other;
                ADD_FAILURE() << "pixel " << x << "," << y << ": Mesa " << mesa << ", ours " << ours;
                if (other > 10)
                    return;
            }
        }
    EXPECT_EQ(other, 0);
    EXPECT_GT(same, W * H * 97 / 100) << silhouette << " silhouette pixels differ";
}

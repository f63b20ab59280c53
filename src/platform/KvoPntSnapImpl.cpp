#include <cmath>
#include <cstring>
#include <vector>

#include "platform/KvoCameraMath.h"
#include "scene/KvoPntSnap.h"
#include "scene/ZebViewerMan.h"

namespace kvo {

namespace {

// Window positions of all vertices are worked out once for a camera and
// kept in a grid of cells, so that a search looks at a few cells only.
class CKvoPntSnap : public IKvoPntSnap {
public:
    void setup(const ref_ptr<Pnt3fArray>& vertices) override
    {
        m_vertices = vertices;
        m_valid = false;
        m_active = false;
    }
    bool isActive() const override { return m_active; }
    bool getSnapped(XPnt3d& out) const override
    {
        if (!m_active)
            return false;
        out = m_snapped;
        return true;
    }

    bool findNear(XPnt3d& point, XPnt2d& screen, double x, double y, double radius) override
    {
        m_active = false;
        ref_ptr<IKvoTrackBall> ball = trackBall();
        if (!ball || !m_vertices || m_vertices->getCount() == 0 || !(radius > 0))
            return false;
        refresh(*ball);
        // The surface under the cursor: vertices clearly behind it are hidden.
        double surface = 2.0;
        XPnt3d hit;
        ball->pickPoint(hit, x, y);
        if (hit.isValid()) {
            XPnt3d w;
            ball->projectToWindow(w, hit.x, hit.y, hit.z);
            surface = w.z;
        }
        const double slack = 1e-4;
        const int cx0 = cellOf(x - radius, m_cols), cx1 = cellOf(x + radius, m_cols);
        const int cy0 = cellOf(y - radius, m_rows), cy1 = cellOf(y + radius, m_rows);
        long best = -1;
        double bestD = radius * radius;
        for (int cy = cy0; cy <= cy1; ++cy)
            for (int cx = cx0; cx <= cx1; ++cx) {
                const size_t cell = size_t(cy) * size_t(m_cols) + size_t(cx);
                for (uint32_t k = m_start[cell]; k < m_start[cell + 1]; ++k) {
                    const uint32_t i = m_order[k];
                    const float* w = &m_win[size_t(i) * 3];
                    if (w[2] > surface + slack)
                        continue;
                    const double dx = w[0] - x, dy = w[1] - y, d = dx * dx + dy * dy;
                    if (d <= bestD) {
                        bestD = d;
                        best = long(i);
                    }
                }
            }
        if (best < 0)
            return false;
        const XPnt3f v = m_vertices->getAt(best);
        m_snapped = XPnt3d(v.x, v.y, v.z);
        point = m_snapped;
        screen = XPnt2d(m_win[size_t(best) * 3], m_win[size_t(best) * 3 + 1]);
        m_active = true;
        return true;
    }

private:
    static constexpr int kCell = 16;

    static ref_ptr<IKvoTrackBall> trackBall()
    {
        ref_ptr<IZebViewerMan> vm = zebUI::getVM();
        ref_ptr<IZebViewer> viewer;
        ref_ptr<IKvoTrackBall> ball;
        if (vm && vm->getModelViewer(viewer) && viewer)
            viewer->getTrackBall(ball);
        return ball;
    }

    int cellOf(double v, int count) const { return std::max(0, std::min(count - 1, int(std::floor(v / kCell)))); }

    void refresh(const IKvoTrackBall& ball)
    {
        double mv[16], pr[16];
        int vp[4];
        ball.getModelView(mv);
        ball.getProjection(pr);
        ball.getViewport(vp);
        const long n = m_vertices->getCount();
        if (m_valid && std::memcmp(mv, m_mv, sizeof mv) == 0 && std::memcmp(pr, m_pr, sizeof pr) == 0 &&
            std::memcmp(vp, m_vp, sizeof vp) == 0 && n == m_count && m_vertices->getData() == m_data)
            return;
        std::memcpy(m_mv, mv, sizeof mv);
        std::memcpy(m_pr, pr, sizeof pr);
        std::memcpy(m_vp, vp, sizeof vp);
        m_count = n;
        m_data = m_vertices->getData();
        double m[16];
        multiplyMatrix(pr, mv, m);
        const double W = vp[2], H = vp[3];
        m_cols = std::max(1, (vp[2] + kCell - 1) / kCell);
        m_rows = std::max(1, (vp[3] + kCell - 1) / kCell);
        m_win.assign(size_t(n) * 3, 0.f);
        std::vector<int32_t> cellOfVertex(size_t(n), -1);
        const XPnt3f* v = m_vertices->getData();
#pragma omp parallel for schedule(static)
        for (long i = 0; i < n; ++i) {
            const double x = v[i].x, y = v[i].y, z = v[i].z;
            const double cw = m[3] * x + m[7] * y + m[11] * z + m[15];
            if (!(cw > 0))
                continue;
            const double wx = ((m[0] * x + m[4] * y + m[8] * z + m[12]) / cw + 1) * 0.5 * W;
            const double wy = (1 - (m[1] * x + m[5] * y + m[9] * z + m[13]) / cw) * 0.5 * H;
            const double wz = ((m[2] * x + m[6] * y + m[10] * z + m[14]) / cw + 1) * 0.5;
            if (wx < -kCell || wy < -kCell || wx > W + kCell || wy > H + kCell || wz < 0 || wz > 1)
                continue;
            m_win[size_t(i) * 3] = float(wx);
            m_win[size_t(i) * 3 + 1] = float(wy);
            m_win[size_t(i) * 3 + 2] = float(wz);
            cellOfVertex[size_t(i)] = cellOf(wy, m_rows) * m_cols + cellOf(wx, m_cols);
        }
        // Counting sort of the vertices by cell.
        const size_t cells = size_t(m_cols) * size_t(m_rows);
        m_start.assign(cells + 1, 0);
        for (int32_t c : cellOfVertex)
            if (c >= 0)
                ++m_start[size_t(c) + 1];
        for (size_t c = 0; c < cells; ++c)
            m_start[c + 1] += m_start[c];
        m_order.assign(m_start[cells], 0);
        std::vector<uint32_t> fill(m_start.begin(), m_start.end() - 1);
        for (long i = 0; i < n; ++i)
            if (cellOfVertex[size_t(i)] >= 0)
                m_order[fill[size_t(cellOfVertex[size_t(i)])]++] = uint32_t(i);
        m_valid = true;
    }

    ref_ptr<Pnt3fArray> m_vertices;
    bool m_valid = false, m_active = false;
    XPnt3d m_snapped;
    double m_mv[16] = {0}, m_pr[16] = {0};
    int m_vp[4] = {0, 0, 0, 0};
    long m_count = 0;
    const void* m_data = nullptr;
    int m_cols = 1, m_rows = 1;
    std::vector<float> m_win;
    std::vector<uint32_t> m_start, m_order;
};

} // namespace

ref_ptr<IKvoPntSnap> newKvoPntSnap()
{
    return ref_ptr<IKvoPntSnap>(new CKvoPntSnap());
}

} // namespace kvo

#include "modelio/KvoTextureBake.h"

#include <algorithm>
#include <vector>

namespace kvo {

bool getAffineTransformationMatrix(const XPnt2d from[3], const XPnt2d to[3], KvoAffine2d& out)
{
    // Solve [x y 1] rows for both output coordinates with Cramer's rule.
    const double x0 = from[0].x, y0 = from[0].y, x1 = from[1].x, y1 = from[1].y, x2 = from[2].x, y2 = from[2].y;
    const double det = (x1 - x0) * (y2 - y0) - (x2 - x0) * (y1 - y0);
    const double scale = std::max({std::fabs(x1 - x0), std::fabs(y1 - y0), std::fabs(x2 - x0), std::fabs(y2 - y0)});
    if (!(std::fabs(det) > 1e-12 * scale * scale) || !std::isfinite(det))
        return false;
    for (int r = 0; r < 2; ++r) {
        const double v0 = r ? to[0].y : to[0].x, v1 = r ? to[1].y : to[1].x, v2 = r ? to[2].y : to[2].x;
        // v = a (x - x0) + b (y - y0) + v0
        const double a = ((v1 - v0) * (y2 - y0) - (v2 - v0) * (y1 - y0)) / det;
        const double b = ((x1 - x0) * (v2 - v0) - (x2 - x0) * (v1 - v0)) / det;
        out.m[3 * r] = a;
        out.m[3 * r + 1] = b;
        out.m[3 * r + 2] = v0 - a * x0 - b * y0;
    }
    return true;
}

void growImage(uint8_t* rgba, long w, long h, long stride, uint8_t* mask, int n)
{
    if (n <= 0 || w <= 0 || h <= 0)
        return;
    static const int dx[8] = {-1, 0, 1, -1, 1, -1, 0, 1};
    static const int dy[8] = {-1, -1, -1, 0, 0, 1, 1, 1};
    const uint8_t far = uint8_t(n + 1);
    std::vector<long> frontier, next;
    for (long y = 0; y < h; ++y) {
        for (long x = 0; x < w; ++x) {
            if (mask[y * w + x] == 0)
                continue;
            for (int k = 0; k < 8; ++k) {
                long nx = x + dx[k], ny = y + dy[k];
                if (nx >= 0 && ny >= 0 && nx < w && ny < h && mask[ny * w + nx] == 0) {
                    frontier.push_back(y * w + x);
                    break;
                }
            }
        }
    }
    for (long i : frontier)
        mask[i] = 1;
    for (int r = 0; r < n && !frontier.empty(); ++r) {
        next.clear();
        for (long i : frontier) {
            const long x = i % w, y = i / w;
            unsigned sum[3] = {0, 0, 0};
            unsigned count = 0;
            for (int k = 0; k < 8; ++k) {
                long nx = x + dx[k], ny = y + dy[k];
                if (nx < 0 || ny < 0 || nx >= w || ny >= h)
                    continue;
                uint8_t& m = mask[ny * w + nx];
                if (m <= r) {
                    const uint8_t* p = rgba + ny * stride + nx * 4;
                    sum[0] += p[0];
                    sum[1] += p[1];
                    sum[2] += p[2];
                    ++count;
                } else if (r < n - 1 && m == far) {
                    m = uint8_t(r + 2);
                    next.push_back(ny * w + nx);
                }
            }
            if (count > 0) {
                uint8_t* p = rgba + y * stride + x * 4;
                p[0] = uint8_t(sum[0] / count);
                p[1] = uint8_t(sum[1] / count);
                p[2] = uint8_t(sum[2] / count);
                p[3] = 255;
            }
        }
        std::sort(next.begin(), next.end());
        frontier.swap(next);
    }
}

} // namespace kvo

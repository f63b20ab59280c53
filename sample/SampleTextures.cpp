#include "SampleTextures.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <stdexcept>
#include <utility>
#include <vector>

#include "SampleRandom.h"

// Every random draw is its own statement: the order in which function
// arguments are evaluated is up to the compiler, and a texture must not
// depend on it.

namespace qvsample {
namespace {

const double kPi = 3.14159265358979323846;

// Uniform integer in [lo, hi]; lo when the range is empty.
int irange(SampleRandom& rng, int lo, int hi)
{
    if (hi <= lo)
        return lo;
    return lo + int(rng.below(uint32_t(hi - lo + 1)));
}

// A colour near c: all channels scaled together by up to +-brightness, each
// shifted by up to +-tint.
cv::Scalar vary(const cv::Scalar& c, double brightness, double tint, SampleRandom& rng)
{
    const double k = 1 + rng.uniform(-brightness, brightness);
    cv::Scalar out;
    for (int i = 0; i < 3; ++i) {
        const double shift = rng.uniform(-tint, tint);
        out[i] = std::clamp(c[i] * k + shift, 0.0, 255.0);
    }
    return out;
}

cv::Scalar mix(const cv::Scalar& a, const cv::Scalar& b, double t)
{
    return a * (1 - t) + b * t;
}

cv::Rect bounds(const cv::Mat& img)
{
    return cv::Rect(0, 0, img.cols, img.rows);
}

struct Octave {
    double cellPx, amplitude;
};

float smooth(double t)
{
    return float(t * t * (3 - 2 * t));
}

// Value noise summed over octaves: random values on a grid cellPx apart,
// blended with a smoothstep. Separable, so each octave costs a few operations
// a pixel.
cv::Mat noiseField(int w, int h, SampleRandom& rng, std::initializer_list<Octave> octaves)
{
    cv::Mat field(h, w, CV_32F, cv::Scalar(0));
    std::vector<float> grid, line, tx;
    std::vector<int> ix;
    for (const Octave& o : octaves) {
        const double cell = std::max(1.0, o.cellPx);
        const int gw = int(w / cell) + 2, gh = int(h / cell) + 2;
        grid.resize(size_t(gw) * size_t(gh));
        for (float& v : grid)
            v = float(rng.uniform(-o.amplitude, o.amplitude));
        ix.resize(size_t(w));
        tx.resize(size_t(w));
        for (int x = 0; x < w; ++x) {
            const double f = (x + 0.5) / cell;
            ix[size_t(x)] = int(f);
            tx[size_t(x)] = smooth(f - ix[size_t(x)]);
        }
        line.resize(size_t(gw));
        for (int y = 0; y < h; ++y) {
            const double f = (y + 0.5) / cell;
            const int iy = int(f);
            const float ty = smooth(f - iy);
            const float* g0 = grid.data() + size_t(iy) * size_t(gw);
            const float* g1 = g0 + gw;
            for (int gx = 0; gx < gw; ++gx)
                line[size_t(gx)] = g0[gx] + (g1[gx] - g0[gx]) * ty;
            float* out = field.ptr<float>(y);
            for (int x = 0; x < w; ++x) {
                const int i = ix[size_t(x)];
                const float a = line[size_t(i)];
                out[x] += a + (line[size_t(i) + 1] - a) * tx[size_t(x)];
            }
        }
    }
    return field;
}

// Adds field (CV_32F of img's size, or empty) plus independent grain of up to
// +-grain grey levels to the brightness of every pixel.
void addBrightness(cv::Mat img, const cv::Mat& field, double grain, SampleRandom& rng)
{
    const float g = float(grain / 255.0);
    for (int y = 0; y < img.rows; ++y) {
        uchar* p = img.ptr<uchar>(y);
        const float* f = field.empty() ? nullptr : field.ptr<float>(y);
        uint64_t bits = 0;
        int left = 0;
        for (int x = 0; x < img.cols; ++x, p += 3) {
            float d = f ? f[x] : 0.f;
            if (grain > 0) {
                if (left == 0) {
                    bits = rng.next();
                    left = 4;
                }
                // Triangular: the difference of two uniform bytes.
                d += g * float(int(bits & 0xff) - int((bits >> 8) & 0xff));
                bits >>= 16;
                --left;
            }
            p[0] = cv::saturate_cast<uchar>(p[0] + d);
            p[1] = cv::saturate_cast<uchar>(p[1] + d);
            p[2] = cv::saturate_cast<uchar>(p[2] + d);
        }
    }
}

// Blends colour over img where weight (CV_32F, 0 to 1) says.
void blendColour(cv::Mat& img, const cv::Mat& weight, const cv::Scalar& colour)
{
    const float c[3] = {float(colour[0]), float(colour[1]), float(colour[2])};
    for (int y = 0; y < img.rows; ++y) {
        uchar* p = img.ptr<uchar>(y);
        const float* a = weight.ptr<float>(y);
        for (int x = 0; x < img.cols; ++x, p += 3) {
            if (a[x] <= 0)
                continue;
            const float t = std::min(1.f, a[x]);
            for (int k = 0; k < 3; ++k)
                p[k] = cv::saturate_cast<uchar>(p[k] + (c[k] - p[k]) * t);
        }
    }
}

// Top-to-bottom gradient over r, clipped to the picture.
void fillGradient(cv::Mat& img, const cv::Rect& r, const cv::Scalar& top, const cv::Scalar& bottom)
{
    const cv::Rect clip = r & bounds(img);
    for (int y = clip.y; y < clip.y + clip.height; ++y) {
        const double t = r.height > 1 ? double(y - r.y) / (r.height - 1) : 0;
        const cv::Scalar c = mix(top, bottom, t);
        const uchar b = cv::saturate_cast<uchar>(c[0]), g = cv::saturate_cast<uchar>(c[1]),
                    red = cv::saturate_cast<uchar>(c[2]);
        uchar* p = img.ptr<uchar>(y) + 3 * clip.x;
        for (int x = 0; x < clip.width; ++x, p += 3) {
            p[0] = b;
            p[1] = g;
            p[2] = red;
        }
    }
}

// A made-up letter: two to four strokes between points of a 3 x 4 lattice.
void drawGlyph(cv::Mat& img, const cv::Rect& cell, const cv::Scalar& colour, int thickness, int lineType,
               SampleRandom& rng)
{
    auto point = [&](uint32_t k) {
        return cv::Point(cell.x + int(k % 3) * (cell.width - 1) / 2, cell.y + int(k / 3) * (cell.height - 1) / 3);
    };
    const int strokes = irange(rng, 2, 4);
    for (int s = 0; s < strokes; ++s) {
        const uint32_t a = rng.below(12);
        uint32_t b = rng.below(11);
        if (b >= a)
            ++b;
        cv::line(img, point(a), point(b), colour, thickness, lineType);
    }
}

// Lines of made-up words filling box, letters glyphH tall, ragged on the right.
void drawText(cv::Mat& img, const cv::Rect& box, int glyphH, const cv::Scalar& colour, SampleRandom& rng)
{
    glyphH = std::max(glyphH, 5);
    const int glyphW = std::max(3, glyphH * 2 / 3), gap = std::max(1, glyphH / 4), lineGap = std::max(2, glyphH / 2);
    const int thickness = std::max(1, glyphH / 7);
    const int lineType = glyphH < 10 ? cv::LINE_8 : cv::LINE_AA;
    for (int y = box.y; y + glyphH <= box.y + box.height; y += glyphH + lineGap) {
        const int end = box.x + box.width - irange(rng, 0, box.width / 3);
        int x = box.x;
        while (true) {
            const int letters = std::min(irange(rng, 2, 7), (end - x) / (glyphW + gap));
            if (letters < 1)
                break;
            for (int l = 0; l < letters; ++l) {
                drawGlyph(img, cv::Rect(x, y, glyphW, glyphH), colour, thickness, lineType, rng);
                x += glyphW + gap;
            }
            x += glyphW;
        }
    }
}

// A plate with a border and text on it.
void drawSign(cv::Mat& img, const cv::Rect& r, const cv::Scalar& plate, const cv::Scalar& ink, int glyphH,
              SampleRandom& rng)
{
    cv::rectangle(img, r, plate, cv::FILLED);
    const int border = std::max(1, r.height / 16);
    cv::rectangle(img, r, ink, border);
    const int margin = std::max(border + 2, (r.height - glyphH) / 2);
    const int side = 3 * border + 3;
    drawText(img, cv::Rect(r.x + side, r.y + margin, r.width - 2 * side, r.height - 2 * margin + 1), glyphH, ink, rng);
}

// A glazed window with frame, sill, glazing bars, a reflection and sometimes
// a curtain.
void drawWindow(cv::Mat& img, const cv::Rect& r, const cv::Scalar& frame, SampleRandom& rng)
{
    const int t = std::max(2, r.width / 14);
    cv::rectangle(img, cv::Rect(r.x - t, r.y + r.height, r.width + 2 * t, std::max(3, t)), cv::Scalar(188, 198, 204),
                  cv::FILLED);
    cv::rectangle(img, r, frame, cv::FILLED);
    const cv::Rect glass(r.x + t, r.y + t, r.width - 2 * t, r.height - 2 * t);
    if (glass.width < 3 || glass.height < 3)
        return;
    const cv::Scalar top = vary(cv::Scalar(92, 52, 24), 0.15, 6, rng);
    const cv::Scalar bottom = vary(cv::Scalar(150, 98, 52), 0.15, 6, rng);
    fillGradient(img, glass, top, bottom);

    const cv::Rect clip = glass & bounds(img);
    if (!clip.empty()) {
        cv::Mat roi = img(clip);
        cv::Mat shine = roi.clone();
        const double a = rng.uniform(0.15, 0.5);
        auto at = [&](double u, double v) {
            return cv::Point(glass.x - clip.x + int(u * glass.width), glass.y - clip.y + int(v * glass.height));
        };
        const std::vector<cv::Point> band = {at(a, 0), at(a + 0.22, 0), at(a - 0.12, 1), at(a - 0.34, 1)};
        cv::fillConvexPoly(shine, band, cv::Scalar(235, 218, 205), cv::LINE_AA);
        cv::addWeighted(roi, 0.7, shine, 0.3, 0, roi);
    }
    if (rng.below(3) == 0) {
        const int cw = glass.width * irange(rng, 20, 40) / 100;
        const bool left = rng.below(2) == 0;
        const cv::Scalar cloth = vary(cv::Scalar(200, 215, 225), 0.1, 20, rng);
        const cv::Rect curtain(left ? glass.x : glass.x + glass.width - cw, glass.y, cw, glass.height);
        cv::rectangle(img, curtain, cloth, cv::FILLED);
        for (int x = curtain.x + 3; x < curtain.x + curtain.width; x += 5)
            cv::line(img, cv::Point(x, curtain.y), cv::Point(x, curtain.y + curtain.height - 1), cloth * 0.8, 1);
    }
    const int bar = std::max(1, t / 2);
    cv::rectangle(img, cv::Rect(glass.x + glass.width / 2 - bar / 2, glass.y, bar, glass.height), frame, cv::FILLED);
    cv::rectangle(img, cv::Rect(glass.x, glass.y + glass.height / 3 - bar / 2, glass.width, bar), frame, cv::FILLED);
}

// A panelled door lit from the top-left, with a transom light, handle, step
// and a number plate above.
void drawDoor(cv::Mat& img, const cv::Rect& r, const cv::Scalar& wood, SampleRandom& rng)
{
    const int t = std::max(3, r.width / 12);
    const cv::Scalar dark = wood * 0.55, light = wood * 1.35;
    cv::rectangle(img, cv::Rect(r.x - t, r.y - t, r.width + 2 * t, r.height + t), dark, cv::FILLED);
    cv::rectangle(img, cv::Rect(r.x - 2 * t, r.y + r.height, r.width + 4 * t, t + 2), cv::Scalar(150, 155, 158),
                  cv::FILLED);
    const int transom = r.height / 6, bar = t / 2 + 1;
    fillGradient(img, cv::Rect(r.x, r.y, r.width, transom), cv::Scalar(95, 55, 25), cv::Scalar(140, 95, 50));
    cv::rectangle(img, cv::Rect(r.x, r.y + transom, r.width, bar), dark, cv::FILLED);
    const cv::Rect leaf(r.x, r.y + transom + bar, r.width, r.height - transom - bar);
    cv::rectangle(img, leaf, wood, cv::FILLED);

    const int cols = 2, rows = 3, m = std::max(3, leaf.width / 10);
    const int pw = (leaf.width - (cols + 1) * m) / cols, ph = (leaf.height - (rows + 1) * m) / rows;
    if (pw > 3 && ph > 3)
        for (int j = 0; j < rows; ++j)
            for (int i = 0; i < cols; ++i) {
                const cv::Point a(leaf.x + m + i * (pw + m), leaf.y + m + j * (ph + m));
                const cv::Point b(a.x + pw - 1, a.y + ph - 1);
                cv::rectangle(img, a, b, wood * 0.85, cv::FILLED);
                cv::line(img, a, cv::Point(b.x, a.y), light, 2);
                cv::line(img, a, cv::Point(a.x, b.y), light, 2);
                cv::line(img, cv::Point(a.x, b.y), b, dark, 2);
                cv::line(img, cv::Point(b.x, a.y), b, dark, 2);
            }
    cv::circle(img, cv::Point(leaf.x + leaf.width - 2 * m, leaf.y + leaf.height / 2), std::max(2, leaf.width / 16),
               cv::Scalar(40, 170, 210), cv::FILLED, cv::LINE_AA);
    const cv::Rect plate(r.x + r.width / 2 - 16, r.y - t - 24, 32, 22);
    drawSign(img, plate, cv::Scalar(235, 235, 235), cv::Scalar(140, 60, 20), 10, rng);
}

// A small sign or plaque with text, or painted letters straight on the wall.
void drawMarks(cv::Mat& img, int count, SampleRandom& rng)
{
    for (int i = 0; i < count; ++i) {
        const int bw = irange(rng, 60, 170), bh = irange(rng, 22, 56);
        const int x = irange(rng, 4, img.cols - bw - 4), y = irange(rng, 4, img.rows - bh - 4);
        const int glyphH = irange(rng, 8, 13);
        switch (rng.below(3)) {
        case 0:
            drawSign(img, cv::Rect(x, y, bw, bh), cv::Scalar(60, 150, 200), cv::Scalar(30, 30, 30), glyphH, rng);
            break;
        case 1:
            drawSign(img, cv::Rect(x, y, bw, bh), cv::Scalar(230, 232, 235), cv::Scalar(120, 40, 20), glyphH, rng);
            break;
        default: drawText(img, cv::Rect(x, y, bw, bh), glyphH + 4, cv::Scalar(245, 245, 245), rng); break;
        }
    }
}

// The height of the orientation marks: as large on a narrow texture as it
// can be without filling its width.
int markSize(int w, int h)
{
    return std::clamp(int(std::min(std::min(w, h) / 4.0, std::sqrt(double(w) * h) / 10)), 2, 80);
}

// A yellow block with a red corner near the top-left and a magenta block with
// a white corner near the bottom-right: no flip or half turn leaves them in place.
void drawOrientationMarks(cv::Mat& img)
{
    const int w = img.cols, h = img.rows;
    const int s = markSize(w, h);
    const int off = std::max(1, s / 2);
    const int bw = s + s / 2, frame = std::max(1, s / 10);
    const cv::Rect a(off, off, bw, s);
    cv::rectangle(img, a, cv::Scalar(20, 20, 20), cv::FILLED);
    cv::rectangle(img, cv::Rect(a.x + frame, a.y + frame, a.width - 2 * frame, a.height - 2 * frame),
                  cv::Scalar(0, 225, 255), cv::FILLED);
    cv::rectangle(img, cv::Rect(a.x + frame, a.y + frame, a.width / 2 - frame, a.height / 2 - frame),
                  cv::Scalar(0, 0, 230), cv::FILLED);
    const cv::Rect b(w - off - bw, h - off - s, bw, s);
    cv::rectangle(img, b, cv::Scalar(20, 20, 20), cv::FILLED);
    cv::rectangle(img, cv::Rect(b.x + frame, b.y + frame, b.width - 2 * frame, b.height - 2 * frame),
                  cv::Scalar(210, 40, 220), cv::FILLED);
    cv::rectangle(img, cv::Rect(b.x + b.width / 2, b.y + b.height / 2, b.width / 2 - frame, b.height / 2 - frame),
                  cv::Scalar(255, 255, 255), cv::FILLED);
}

// Details below are in texels for about 96 texels a metre.
const int kFloorHeight = 288;

cv::Mat brickTexture(int w, int h, SampleRandom& rng)
{
    static const cv::Scalar kinds[] = {{48, 66, 150}, {62, 98, 168}, {96, 146, 196}, {58, 62, 120}};
    const cv::Scalar base = kinds[rng.below(4)];
    cv::Mat img(h, w, CV_8UC3, vary(cv::Scalar(165, 175, 184), 0.05, 4, rng));
    const int course = 10, length = 24, joint = 2;
    const int phase = irange(rng, 0, length - 1);
    // Courses are laid from the ground (the bottom row) up.
    for (int r = 0; r * course < h; ++r) {
        const int y = h - (r + 1) * course;
        const int shift = (r % 2) ? length / 2 : 0;
        for (int x = (phase + shift) % length - length; x < w; x += length) {
            cv::Scalar c = vary(base, 0.12, 6, rng);
            const uint32_t pick = rng.below(40);
            if (pick < 3)
                c *= 0.6;
            else if (pick < 5)
                c *= 1.25;
            cv::rectangle(img, cv::Rect(x, y + joint, length - joint, course - joint), c, cv::FILLED);
        }
    }
    addBrightness(img, noiseField(w, h, rng, {{48, 12}, {7, 5}}), 8, rng);

    const cv::Scalar frame = vary(cv::Scalar(225, 228, 230), 0.08, 10, rng);
    const cv::Scalar lintel = vary(cv::Scalar(170, 185, 195), 0.05, 5, rng);
    const int winW = 112, winH = 144, sillGap = 86, spacing = 240;
    const int x0 = irange(rng, 50, 150);
    for (int f = 0;; ++f) {
        const int top = h - f * kFloorHeight - sillGap - winH;
        if (top < 16)
            break;
        for (int x = x0; x + winW + 12 <= w; x += spacing) {
            // Now and then a window was bricked up.
            if (rng.below(7) == 0)
                continue;
            cv::rectangle(img, cv::Rect(x - 8, top - 14, winW + 16, 12), lintel, cv::FILLED);
            drawWindow(img, cv::Rect(x, top, winW, winH), frame, rng);
        }
    }
    if (w >= 120 && h >= 80) {
        const int sw = std::min(w - 40, irange(rng, 220, 420)), sh = 40;
        const int sx = irange(rng, 20, w - sw - 20);
        const int sy = h >= kFloorHeight + 10 ? h - kFloorHeight + 6 : irange(rng, 10, h - sh - 10);
        const cv::Scalar plate = vary(cv::Scalar(40, 70, 30), 0.3, 25, rng);
        drawSign(img, cv::Rect(sx, sy, sw, sh), plate, cv::Scalar(210, 235, 245), 18, rng);
    }
    drawMarks(img, 2 + int(double(w) * h / 400000), rng);
    addBrightness(img, cv::Mat(), 3, rng);
    return img;
}

cv::Mat plasterTexture(int w, int h, SampleRandom& rng)
{
    static const cv::Scalar walls[] = {
        {150, 200, 228}, {140, 170, 222}, {190, 212, 220}, {175, 205, 190}, {120, 190, 215}};
    const cv::Scalar wall = vary(walls[rng.below(5)], 0.04, 5, rng);
    cv::Mat img(h, w, CV_8UC3, wall);
    addBrightness(img, noiseField(w, h, rng, {{160, 10}, {28, 7}, {5, 5}}), 9, rng);

    const int plinth = std::min(36, h / 8);
    if (plinth > 0) {
        const cv::Rect band(0, h - plinth, w, plinth);
        cv::rectangle(img, band, cv::Scalar(120, 125, 128), cv::FILLED);
        addBrightness(img(band), noiseField(w, plinth, rng, {{12, 10}}), 12, rng);
    }
    for (int y = h - kFloorHeight; y > 0; y -= kFloorHeight) {
        cv::rectangle(img, cv::Rect(0, y - 10, w, 10), wall * 1.08, cv::FILLED);
        cv::rectangle(img, cv::Rect(0, y, w, 3), wall * 0.7, cv::FILLED);
    }

    const cv::Scalar frame = vary(cv::Scalar(235, 238, 240), 0.05, 5, rng);
    static const cv::Scalar shutterKinds[] = {{70, 110, 60}, {50, 80, 120}, {120, 110, 95}};
    const cv::Scalar shutter = vary(shutterKinds[rng.below(3)], 0.1, 8, rng);
    const int winW = 100, winH = 150, sillGap = 90, spacing = 220;
    const int x0 = irange(rng, 70, 160);
    const int columns = std::max(1, (w - x0 - winW - 12) / spacing + 1);
    const int doorColumn = irange(rng, 0, columns - 1);
    for (int f = 0;; ++f) {
        const int top = h - f * kFloorHeight - sillGap - winH;
        if (top < 16)
            break;
        int column = 0;
        for (int x = x0; x + winW + 12 <= w; x += spacing, ++column) {
            if (f == 0 && column == doorColumn && h >= 260) {
                const cv::Scalar wood = vary(cv::Scalar(40, 70, 110), 0.2, 10, rng);
                drawDoor(img, cv::Rect(x - 5, h - 8 - 200, 110, 200), wood, rng);
                continue;
            }
            const cv::Rect win(x, top, winW, winH);
            if (rng.below(2) == 0) {
                const int sw = winW / 2 - 2;
                for (const cv::Rect& s : {cv::Rect(x - sw - 4, top, sw, winH), cv::Rect(x + winW + 4, top, sw, winH)}) {
                    cv::rectangle(img, s, shutter, cv::FILLED);
                    for (int y = s.y + 4; y < s.y + s.height - 2; y += 5)
                        cv::line(img, cv::Point(s.x + 2, y), cv::Point(s.x + s.width - 3, y), shutter * 0.65, 1);
                }
            }
            drawWindow(img, win, frame, rng);
        }
    }
    if (w >= 140 && h >= 80) {
        const int sw = std::min(w - 40, irange(rng, 260, 400)), sh = 42;
        const int sx = irange(rng, 20, w - sw - 20);
        const int sy = h >= kFloorHeight + 10 ? h - kFloorHeight + 6 : irange(rng, 10, h - sh - 10);
        static const cv::Scalar paints[] = {{40, 50, 130}, {45, 95, 40}, {120, 60, 30}};
        const cv::Scalar paint = paints[rng.below(3)];
        // Painted on the wall: no plate edge, the letters straight on the colour.
        cv::rectangle(img, cv::Rect(sx, sy, sw, sh), paint, cv::FILLED);
        drawText(img, cv::Rect(sx + 12, sy + 10, sw - 24, sh - 16), 22, cv::Scalar(200, 232, 245), rng);
    }
    // Patches where the plaster has flaked off the brickwork under it.
    const int patches = 1 + int(double(w) * h / 200000);
    for (int i = 0; i < patches; ++i) {
        const int cx = irange(rng, 0, w - 1), cy = irange(rng, 0, h - 1);
        const int r = irange(rng, 25, 60);
        std::vector<cv::Point> outline;
        for (int k = 0; k < 9; ++k) {
            const double a = 2 * kPi * k / 9, rr = r * rng.uniform(0.55, 1.0);
            outline.emplace_back(cx + int(rr * std::cos(a)), cy + int(rr * std::sin(a) * 0.7));
        }
        const cv::Rect box = cv::boundingRect(outline) & bounds(img);
        if (box.empty())
            continue;
        cv::Mat mask(box.size(), CV_8U, cv::Scalar(0));
        std::vector<cv::Point> local;
        for (const cv::Point& q : outline)
            local.push_back(q - box.tl());
        cv::fillPoly(mask, std::vector<std::vector<cv::Point>>{local}, cv::Scalar(255));
        cv::Mat bricks(box.size(), CV_8UC3, cv::Scalar(150, 160, 168));
        for (int y = 0, row = 0; y < box.height; y += 10, ++row)
            for (int x = (row % 2) * 12 - 12; x < box.width; x += 24) {
                const cv::Scalar c = vary(cv::Scalar(55, 75, 150), 0.15, 6, rng);
                cv::rectangle(bricks, cv::Rect(x, y + 2, 22, 8), c, cv::FILLED);
            }
        bricks.copyTo(img(box), mask);
        cv::polylines(img, std::vector<std::vector<cv::Point>>{outline}, true, wall * 1.12, 2, cv::LINE_AA);
    }
    // The eaves: a gutter's shadow and a row of corbels under it.
    if (h >= 60) {
        cv::rectangle(img, cv::Rect(0, 0, w, 12), wall * 0.45, cv::FILLED);
        cv::rectangle(img, cv::Rect(0, 12, w, 6), wall * 1.1, cv::FILLED);
        for (int x = irange(rng, 0, 19); x < w; x += 28)
            cv::rectangle(img, cv::Rect(x, 18, 12, 14), wall * 0.82, cv::FILLED);
    }
    // Air vents with slats.
    const int vents = 1 + int(double(w) * h / 150000);
    for (int i = 0; i < vents; ++i) {
        const int vx = irange(rng, 0, w - 30), vy = irange(rng, 0, h - 20);
        cv::rectangle(img, cv::Rect(vx, vy, 30, 20), cv::Scalar(200, 204, 206), cv::FILLED);
        for (int y = vy + 4; y < vy + 18; y += 4)
            cv::line(img, cv::Point(vx + 3, y), cv::Point(vx + 26, y), cv::Scalar(60, 62, 64), 2);
    }
    // A drainpipe down one corner of the wall, clear of the windows.
    if (w >= 200) {
        const int px = rng.below(2) ? irange(rng, 3, 8) : w - 10 - irange(rng, 3, 8);
        const cv::Scalar metal = vary(cv::Scalar(110, 112, 115), 0.15, 4, rng);
        cv::rectangle(img, cv::Rect(px, 0, 10, h), metal, cv::FILLED);
        cv::line(img, cv::Point(px + 2, 0), cv::Point(px + 2, h - 1), metal * 1.4, 2);
        cv::line(img, cv::Point(px + 9, 0), cv::Point(px + 9, h - 1), metal * 0.6, 1);
        for (int y = irange(rng, 20, 90); y < h; y += 96)
            cv::rectangle(img, cv::Rect(px - 3, y, 16, 6), metal * 0.5, cv::FILLED);
    }
    const int cracks = 2 + int(double(w) * h / 150000);
    for (int c = 0; c < cracks; ++c) {
        const int startX = irange(rng, 0, w - 1);
        const int startY = irange(rng, 0, h - 1);
        cv::Point p(startX, startY);
        const int steps = irange(rng, 6, 14);
        double dir = rng.uniform(0, 2 * kPi);
        for (int s = 0; s < steps; ++s) {
            dir += rng.uniform(-0.7, 0.7);
            const double len = rng.uniform(6, 16);
            const cv::Point q(p.x + int(len * std::cos(dir)), p.y + int(len * std::sin(dir)));
            cv::line(img, p, q, wall * 0.55, 1, cv::LINE_AA);
            p = q;
        }
    }
    drawMarks(img, 1 + int(double(w) * h / 600000), rng);
    addBrightness(img, cv::Mat(), 3, rng);
    return img;
}

cv::Mat tilesTexture(int w, int h, SampleRandom& rng)
{
    static const cv::Scalar kinds[] = {{42, 82, 168}, {50, 64, 130}, {92, 88, 84}};
    const cv::Scalar base = kinds[rng.below(3)];
    const int rowH = 22, tileW = 30;
    const int rows = h / rowH + 2, cols = w / tileW + 3;
    std::vector<cv::Vec3f> colours(size_t(rows) * size_t(cols));
    for (cv::Vec3f& c : colours) {
        cv::Scalar s = vary(base, 0.1, 5, rng);
        // A few replaced tiles of another batch.
        if (rng.below(35) == 0)
            s = vary(base * 0.72, 0.1, 25, rng);
        c = cv::Vec3f(float(s[0]), float(s[1]), float(s[2]));
    }
    // Across a tile: a gap, then a rounded pan; along it: the shadow of the
    // row above, then brighter down to the lower lip.
    std::vector<float> across(static_cast<size_t>(tileW)), along(static_cast<size_t>(rowH));
    for (int k = 0; k < tileW; ++k)
        across[size_t(k)] = k < 2 ? 0.3f : float(0.78 + 0.32 * std::sin(kPi * (k - 2 + 0.5) / (tileW - 2)));
    for (int k = 0; k < rowH; ++k)
        along[size_t(k)] = k < 3 ? float(0.45 + 0.1 * k) : k >= rowH - 2 ? 1.12f : float(0.7 + 0.35 * k / rowH);
    cv::Mat img(h, w, CV_8UC3);
    for (int y = 0; y < h; ++y) {
        const int r = y / rowH;
        const float fy = along[size_t(y % rowH)];
        const int shift = (r % 2) ? tileW / 2 : 0;
        const cv::Vec3f* rowColours = colours.data() + size_t(r) * size_t(cols);
        uchar* p = img.ptr<uchar>(y);
        for (int x = 0; x < w; ++x, p += 3) {
            const int xx = x + shift;
            const cv::Vec3f& c = rowColours[xx / tileW];
            const float f = fy * across[size_t(xx % tileW)];
            p[0] = cv::saturate_cast<uchar>(c[0] * f);
            p[1] = cv::saturate_cast<uchar>(c[1] * f);
            p[2] = cv::saturate_cast<uchar>(c[2] * f);
        }
    }
    cv::Mat moss = noiseField(w, h, rng, {{90, 1}, {20, 0.35}, {4, 0.15}});
    moss -= 0.45;
    moss *= 2.5;
    blendColour(img, moss, cv::Scalar(60, 125, 95));
    addBrightness(img, noiseField(w, h, rng, {{60, 8}}), 8, rng);

    const int skylights = int(double(w) * h / 400000);
    for (int i = 0; i < skylights; ++i) {
        const int x = irange(rng, 20, w - 110), y = irange(rng, 20, h - 140);
        drawWindow(img, cv::Rect(x, y, 90, 120), cv::Scalar(60, 60, 62), rng);
    }
    if (w >= 200 && h >= 200) {
        const int cx = irange(rng, 40, w - 140), cy = irange(rng, 40, h - 160);
        const cv::Rect chimney(cx, cy, 80, 100);
        // Its shadow falls to the right.
        cv::Mat shadow = img(cv::Rect(cx + 80, cy + 10, 30, 100) & bounds(img));
        shadow.convertTo(shadow, -1, 0.55);
        cv::rectangle(img, chimney, cv::Scalar(70, 80, 150), cv::FILLED);
        for (int y = chimney.y + 10; y < chimney.y + chimney.height; y += 10) {
            cv::line(img, cv::Point(chimney.x, y), cv::Point(chimney.x + chimney.width - 1, y),
                     cv::Scalar(160, 170, 180));
            const int off = ((y - chimney.y) / 10) % 2 ? 12 : 0;
            for (int x = chimney.x + off; x < chimney.x + chimney.width; x += 24)
                cv::line(img, cv::Point(x, y - 9), cv::Point(x, y - 1), cv::Scalar(160, 170, 180));
        }
        cv::rectangle(img, cv::Rect(cx - 6, cy - 8, 92, 10), cv::Scalar(110, 115, 120), cv::FILLED);
    }
    return img;
}

cv::Mat pavingTexture(int w, int h, SampleRandom& rng)
{
    static const cv::Scalar kinds[] = {{150, 150, 148}, {150, 170, 182}, {140, 150, 175}};
    const cv::Scalar base = kinds[rng.below(3)];
    cv::Mat img(h, w, CV_8UC3, cv::Scalar(58, 62, 66));
    const int joint = 3;
    for (int y = 0; y < h;) {
        const int rh = irange(rng, 48, 84);
        for (int x = -irange(rng, 0, 60); x < w;) {
            const int sw = irange(rng, 50, 120);
            cv::Scalar c = vary(base, 0.1, 4, rng);
            if (rng.below(12) == 0)
                c = vary(base * 0.75, 0.1, 10, rng);
            cv::rectangle(img, cv::Rect(x, y, sw - joint, rh - joint), c, cv::FILLED);
            x += sw;
        }
        y += rh;
    }
    addBrightness(img, noiseField(w, h, rng, {{70, 10}, {3, 9}}), 16, rng);

    // Markings are painted on a mask of their own, then worn unevenly.
    cv::Mat white(h, w, CV_8U, cv::Scalar(0)), yellow(h, w, CV_8U, cv::Scalar(0));
    const int markings = 1 + int(double(w) * h / 500000);
    for (int m = 0; m < markings; ++m) {
        cv::Mat& layer = rng.below(3) == 0 ? yellow : white;
        const int kind = int(rng.below(4));
        const int cx = irange(rng, 0, w - 1), cy = irange(rng, 0, h - 1);
        const bool vertical = rng.below(2) == 0;
        auto pt = [&](int along, int acrossBy) {
            return vertical ? cv::Point(cx + acrossBy, cy + along) : cv::Point(cx + along, cy + acrossBy);
        };
        if (kind == 0) {
            // Parking bays: a long line with short ones across it.
            const int len = irange(rng, 400, 900);
            cv::line(layer, pt(0, 0), pt(len, 0), cv::Scalar(255), 10);
            for (int a = 0; a <= len; a += 240)
                cv::line(layer, pt(a, 0), pt(a, 240), cv::Scalar(255), 10);
        } else if (kind == 1) {
            // A pedestrian crossing.
            const int stripes = irange(rng, 5, 7);
            for (int s = 0; s < stripes; ++s) {
                const cv::Point a = pt(s * 80, 0), b = pt(s * 80 + 40, 260);
                cv::rectangle(layer, a, b, cv::Scalar(255), cv::FILLED);
            }
        } else if (kind == 2) {
            // An arrow, pointing anywhere.
            const double angle = rng.uniform(0, 2 * kPi), size = rng.uniform(180, 300);
            const double shape[7][2] = {{0, -0.08},  {0.6, -0.08}, {0.6, -0.25}, {1, 0},
                                        {0.6, 0.25}, {0.6, 0.08},  {0, 0.08}};
            std::vector<cv::Point> poly;
            for (const auto& s : shape) {
                const double u = s[0] * size, v = s[1] * size;
                poly.emplace_back(cx + int(u * std::cos(angle) - v * std::sin(angle)),
                                  cy + int(u * std::sin(angle) + v * std::cos(angle)));
            }
            cv::fillPoly(layer, std::vector<std::vector<cv::Point>>{poly}, cv::Scalar(255), cv::LINE_AA);
        } else {
            const int glyphH = irange(rng, 60, 90);
            const int letters = irange(rng, 3, 5);
            drawText(layer, cv::Rect(cx, cy, letters * glyphH, glyphH), glyphH, cv::Scalar(255), rng);
        }
    }
    const cv::Mat wear = noiseField(w, h, rng, {{24, 0.35}, {4, 0.2}});
    auto paint = [&](const cv::Mat& layer, const cv::Scalar& colour) {
        cv::Mat alpha;
        layer.convertTo(alpha, CV_32F, 1.0 / 255);
        alpha = alpha.mul(wear + 0.6);
        blendColour(img, alpha, colour);
    };
    paint(white, cv::Scalar(232, 236, 238));
    paint(yellow, cv::Scalar(40, 200, 235));

    const int grates = 1 + int(double(w) * h / 800000);
    for (int g = 0; g < grates; ++g) {
        const int gx = irange(rng, 0, w - 60), gy = irange(rng, 0, h - 40);
        cv::rectangle(img, cv::Rect(gx, gy, 60, 40), cv::Scalar(55, 58, 60), cv::FILLED);
        for (int x = gx + 6; x < gx + 56; x += 8)
            cv::rectangle(img, cv::Rect(x, gy + 5, 4, 30), cv::Scalar(15, 15, 15), cv::FILLED);
    }
    if (w >= 100 && h >= 100) {
        const int mx = irange(rng, 45, w - 45), my = irange(rng, 45, h - 45);
        cv::circle(img, cv::Point(mx, my), 38, cv::Scalar(70, 74, 78), cv::FILLED, cv::LINE_AA);
        cv::circle(img, cv::Point(mx, my), 38, cv::Scalar(35, 35, 38), 3, cv::LINE_AA);
        for (int d = -30; d <= 30; d += 10) {
            const int half = int(std::sqrt(30.0 * 30 - d * d));
            cv::line(img, cv::Point(mx + d, my - half), cv::Point(mx + d, my + half), cv::Scalar(40, 42, 45), 2);
            cv::line(img, cv::Point(mx - half, my + d), cv::Point(mx + half, my + d), cv::Scalar(40, 42, 45), 2);
        }
        drawText(img, cv::Rect(mx - 20, my - 6, 44, 12), 10, cv::Scalar(150, 150, 150), rng);
    }
    return img;
}

cv::Mat stoneTexture(int w, int h, SampleRandom& rng)
{
    static const cv::Scalar kinds[] = {{120, 162, 196}, {170, 180, 185}, {128, 130, 132}};
    const cv::Scalar base = kinds[rng.below(3)];
    cv::Mat img(h, w, CV_8UC3, cv::Scalar(172, 182, 188));
    const int joint = 3;
    // Courses from the ground (the bottom row) up.
    for (int y = h; y > 0;) {
        const int ch = irange(rng, 44, 76);
        const int y0 = y - ch;
        for (int x = -irange(rng, 0, 120); x < w;) {
            const int len = irange(rng, 80, 180);
            cv::Scalar c = vary(base, 0.08, 6, rng);
            if (rng.below(8) == 0)
                c *= 0.8;
            const cv::Rect block(x, y0 + joint, len - joint, ch - joint);
            cv::rectangle(img, block, c, cv::FILLED);
            // Dressed edges catch the light from the top-left.
            const cv::Point tl = block.tl(), br = block.br() - cv::Point(1, 1);
            cv::line(img, tl, cv::Point(br.x, tl.y), c * 1.18, 2);
            cv::line(img, tl, cv::Point(tl.x, br.y), c * 1.18, 2);
            cv::line(img, cv::Point(tl.x, br.y), br, c * 0.7, 2);
            cv::line(img, cv::Point(br.x, tl.y), br, c * 0.7, 2);
            if (rng.below(7) == 0) {
                // A mason's mark.
                const int mx = irange(rng, block.x + 8, block.x + block.width - 22);
                const int my = irange(rng, block.y + 8, block.y + block.height - 22);
                drawGlyph(img, cv::Rect(mx, my, 10, 14), c * 0.55, 2, cv::LINE_AA, rng);
            }
            x += len;
        }
        y = y0;
    }
    addBrightness(img, noiseField(w, h, rng, {{200, 14}, {40, 9}, {6, 7}}), 12, rng);
    if (w >= 300 && h >= 160) {
        const int pw = 240, ph = 90;
        const int px = irange(rng, 20, w - pw - 20), py = irange(rng, 20, h - ph - 20);
        const cv::Rect plaque(px, py, pw, ph);
        cv::rectangle(img, plaque, base * 1.12, cv::FILLED);
        cv::rectangle(img, plaque, base * 0.6, 3);
        drawText(img, cv::Rect(px + 14, py + 14, pw - 28, ph - 24), 14, base * 0.45, rng);
        addBrightness(img(plaque & bounds(img)), cv::Mat(), 5, rng);
    }
    return img;
}

// Leaves: dark and light green clumps over a shadowed green.
cv::Mat foliageTexture(int w, int h, SampleRandom& rng)
{
    cv::Mat img(h, w, CV_8UC3, vary(cv::Scalar(40, 95, 55), 0.08, 6, rng));
    const int clumps = std::max(1, w * h / 900);
    for (int i = 0; i < clumps; ++i) {
        const cv::Point c(irange(rng, 0, w - 1), irange(rng, 0, h - 1));
        const int r = irange(rng, 4, 14);
        const cv::Scalar leaf =
            vary(rng.below(3) == 0 ? cv::Scalar(70, 170, 120) : cv::Scalar(35, 120, 60), 0.2, 10, rng);
        cv::circle(img, c, r, leaf, cv::FILLED, cv::LINE_AA);
    }
    addBrightness(img, noiseField(w, h, rng, {{60, 25}, {10, 12}}), 14, rng);
    return img;
}

// Bark: dark vertical furrows.
cv::Mat barkTexture(int w, int h, SampleRandom& rng)
{
    cv::Mat img(h, w, CV_8UC3, vary(cv::Scalar(50, 70, 90), 0.08, 6, rng));
    for (int x = 0; x < w;) {
        const int step = irange(rng, 5, 14);
        cv::line(img, cv::Point(x, 0), cv::Point(x + irange(rng, -6, 6), h - 1), cv::Scalar(25, 35, 45),
                 irange(rng, 1, 3));
        x += step;
    }
    addBrightness(img, noiseField(w, h, rng, {{30, 12}, {4, 8}}), 10, rng);
    return img;
}

// Clothes: a red coat over dark trousers (the lower third).
cv::Mat clothTexture(int w, int h, SampleRandom& rng)
{
    cv::Mat img(h, w, CV_8UC3, vary(cv::Scalar(40, 40, 190), 0.1, 8, rng));
    cv::rectangle(img, cv::Rect(0, h - h / 3, w, h / 3), cv::Scalar(60, 45, 40), cv::FILLED);
    addBrightness(img, noiseField(w, h, rng, {{12, 8}}), 6, rng);
    return img;
}

// Painted metal: a grey pole with rust spots.
cv::Mat metalTexture(int w, int h, SampleRandom& rng)
{
    cv::Mat img(h, w, CV_8UC3, vary(cv::Scalar(105, 110, 112), 0.05, 4, rng));
    for (int i = 0; i < std::max(1, w * h / 4000); ++i)
        cv::circle(img, cv::Point(irange(rng, 0, w - 1), irange(rng, 0, h - 1)), irange(rng, 1, 4),
                   cv::Scalar(30, 70, 140), cv::FILLED);
    addBrightness(img, noiseField(w, h, rng, {{40, 6}}), 5, rng);
    return img;
}

cv::Mat posterTexture(int w, int h, SampleRandom& rng)
{
    static const cv::Scalar palette[] = {{40, 40, 220},  {200, 90, 30},  {60, 170, 60},  {30, 140, 250},
                                         {150, 50, 130}, {160, 150, 20}, {40, 210, 240}, {35, 30, 30}};
    auto pick = [&]() { return vary(palette[rng.below(8)], 0.08, 10, rng); };
    const int s = std::min(w, h);
    cv::Mat img(h, w, CV_8UC3, vary(cv::Scalar(225, 235, 240), 0.04, 8, rng));

    const int fields = irange(rng, 6, 9);
    for (int f = 0; f < fields; ++f) {
        const cv::Scalar c = pick();
        const int kind = int(rng.below(3));
        const int cx = irange(rng, 0, w - 1), cy = irange(rng, 0, h - 1);
        const double fw = rng.uniform(0.15, 0.55) * w, fh = rng.uniform(0.15, 0.55) * h;
        if (kind == 0) {
            cv::rectangle(img, cv::Rect(cx - int(fw / 2), cy - int(fh / 2), int(fw), int(fh)), c, cv::FILLED);
        } else if (kind == 1) {
            const float angle = float(rng.uniform(-60, 60));
            cv::Point2f corners[4];
            cv::RotatedRect(cv::Point2f(float(cx), float(cy)), cv::Size2f(float(fw), float(fh) * 0.5f), angle)
                .points(corners);
            std::vector<cv::Point> poly;
            for (const cv::Point2f& p : corners)
                poly.emplace_back(int(std::lround(p.x)), int(std::lround(p.y)));
            cv::fillConvexPoly(img, poly, c, cv::LINE_AA);
        } else {
            cv::circle(img, cv::Point(cx, cy), int(std::min(fw, fh) / 2), c, cv::FILLED, cv::LINE_AA);
        }
    }

    // Confetti all over, so that no part of the poster is plain.
    const int confetti = int(double(w) * h / std::max(64.0, s * s / 100.0));
    for (int i = 0; i < confetti; ++i) {
        const cv::Scalar c = pick();
        const int cx = irange(rng, 0, w - 1), cy = irange(rng, 0, h - 1);
        const int r = irange(rng, std::max(2, s / 100), std::max(3, s / 40));
        const uint32_t kind = rng.below(3);
        if (kind == 0) {
            cv::circle(img, cv::Point(cx, cy), r, c, cv::FILLED, cv::LINE_AA);
        } else if (kind == 1) {
            cv::rectangle(img, cv::Rect(cx - r, cy - r, 2 * r, 2 * r), c, cv::FILLED);
        } else {
            const double a = rng.uniform(0, 2 * kPi);
            std::vector<cv::Point> tri;
            for (int k = 0; k < 3; ++k)
                tri.emplace_back(cx + int(1.3 * r * std::cos(a + k * 2.1)), cy + int(1.3 * r * std::sin(a + k * 2.1)));
            cv::fillConvexPoly(img, tri, c, cv::LINE_AA);
        }
    }

    // Colour bars along the bottom.
    const int barTop = h - std::max(4, h / 10);
    for (int x = 0; x < w;) {
        const int bw = irange(rng, std::max(2, w / 40), std::max(3, w / 12));
        cv::rectangle(img, cv::Rect(x, barTop, bw, h - barTop), pick(), cv::FILLED);
        x += bw;
    }

    // The headline starts right of the orientation mark.
    const int headline = std::max(8, s / 9);
    const int headX = 2 * markSize(w, h) + std::max(2, s / 40);
    drawText(img, cv::Rect(headX, h / 20, w - headX - w / 16, headline + 1), headline, cv::Scalar(25, 25, 25), rng);
    // Text blocks on panels of their own, apart from each other where that
    // can be had in a few tries.
    std::vector<cv::Rect> panels;
    const int blocks = irange(rng, 4, 6);
    for (int b = 0; b < blocks; ++b) {
        cv::Rect panel;
        for (int attempt = 0; attempt < 8; ++attempt) {
            const int bw = int(rng.uniform(0.2, 0.38) * w), bh = int(rng.uniform(0.1, 0.22) * h);
            const int bx = irange(rng, 0, w - bw), by = irange(rng, h / 6, barTop - bh);
            panel = cv::Rect(bx, by, bw, bh);
            if (std::none_of(panels.begin(), panels.end(), [&](const cv::Rect& o) { return !(o & panel).empty(); }))
                break;
        }
        panels.push_back(panel);
        const cv::Scalar colour = rng.below(3) == 0 ? cv::Scalar(245, 245, 245) : pick();
        const double luma = 0.114 * colour[0] + 0.587 * colour[1] + 0.299 * colour[2];
        const cv::Scalar ink = luma > 128 ? cv::Scalar(25, 25, 25) : cv::Scalar(250, 250, 250);
        cv::rectangle(img, panel, colour, cv::FILLED);
        const int glyph = std::max(6, s / 45), pad = glyph / 2 + 1;
        drawText(img, cv::Rect(panel.x + pad, panel.y + pad, panel.width - 2 * pad, panel.height - 2 * pad), glyph, ink,
                 rng);
    }

    // The logo: a ring around a star with a tail going off to the lower left.
    {
        const cv::Point c(w * 72 / 100, h * 30 / 100);
        const int r = std::max(4, s / 7);
        const cv::Scalar colour = pick();
        const double turn = rng.uniform(0, 2 * kPi / 5);
        std::vector<cv::Point> star;
        for (int k = 0; k < 10; ++k) {
            const double a = turn + k * kPi / 5, rr = (k % 2 ? 0.32 : 0.75) * r;
            star.emplace_back(c.x + int(rr * std::sin(a)), c.y - int(rr * std::cos(a)));
        }
        const std::vector<cv::Point> tail = {c + cv::Point(-r * 6 / 10, r * 5 / 10),
                                             c + cv::Point(-r * 19 / 10, r * 14 / 10),
                                             c + cv::Point(-r * 5 / 10, r * 8 / 10)};
        cv::fillConvexPoly(img, tail, colour, cv::LINE_AA);
        cv::circle(img, c, r, cv::Scalar(250, 250, 250), cv::FILLED, cv::LINE_AA);
        cv::circle(img, c, r, colour, std::max(2, r / 6), cv::LINE_AA);
        cv::fillPoly(img, std::vector<std::vector<cv::Point>>{star}, colour * 0.8, cv::LINE_AA);
    }

    // A square code: random cells with finder squares in three corners.
    {
        const int cell = std::max(3, s / 80), n = 21, size = cell * n;
        if (size + 16 < w && size + 16 < h) {
            const int qx = irange(rng, 8, w - size - 8), qy = irange(rng, h / 2, barTop - size - 8);
            cv::rectangle(img, cv::Rect(qx - cell, qy - cell, size + 2 * cell, size + 2 * cell),
                          cv::Scalar(255, 255, 255), cv::FILLED);
            for (int j = 0; j < n; ++j)
                for (int i = 0; i < n; ++i)
                    if (rng.below(2))
                        cv::rectangle(img, cv::Rect(qx + i * cell, qy + j * cell, cell, cell), cv::Scalar(0, 0, 0),
                                      cv::FILLED);
            for (const cv::Point& f : {cv::Point(0, 0), cv::Point(n - 7, 0), cv::Point(0, n - 7)}) {
                const cv::Rect outer(qx + f.x * cell, qy + f.y * cell, 7 * cell, 7 * cell);
                cv::rectangle(img, outer, cv::Scalar(0, 0, 0), cv::FILLED);
                cv::rectangle(img, cv::Rect(outer.x + cell, outer.y + cell, 5 * cell, 5 * cell),
                              cv::Scalar(255, 255, 255), cv::FILLED);
                cv::rectangle(img, cv::Rect(outer.x + 2 * cell, outer.y + 2 * cell, 3 * cell, 3 * cell),
                              cv::Scalar(0, 0, 0), cv::FILLED);
            }
        }
    }
    addBrightness(img, cv::Mat(), 5, rng);
    return img;
}

} // namespace

cv::Mat makeSurfaceTexture(const std::string& material, int widthPx, int heightPx, unsigned seed)
{
    if (widthPx < 1 || heightPx < 1)
        throw std::invalid_argument("texture size must be positive");
    // Each material draws from its own sequence, so that a wall and a floor
    // made with the same seed still look unrelated.
    uint64_t salt = 0;
    for (char c : material)
        salt = salt * 131 + uint8_t(c);
    SampleRandom rng(uint64_t(seed) ^ (salt << 32));
    using Painter = cv::Mat (*)(int, int, SampleRandom&);
    static const std::pair<const char*, Painter> painters[] = {
        {"brick", brickTexture}, {"plaster", plasterTexture}, {"tiles", tilesTexture},     {"paving", pavingTexture},
        {"stone", stoneTexture}, {"poster", posterTexture},   {"foliage", foliageTexture}, {"bark", barkTexture},
        {"cloth", clothTexture}, {"metal", metalTexture},
    };
    cv::Mat img;
    for (const auto& p : painters)
        if (material == p.first)
            img = p.second(widthPx, heightPx, rng);
    if (img.empty())
        throw std::invalid_argument("unknown material \"" + material + "\"");
    drawOrientationMarks(img);
    return img;
}

} // namespace qvsample

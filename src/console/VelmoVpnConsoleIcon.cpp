// The console's icon: a dark rounded tile with a thin rim, carrying an amber
// shield split into a light and a shaded half, with a "V" cut out of it.
//
// Every shape is described by its horizontal spans at a given height (a
// rounded rectangle, the shield's outline, the two arms of the V), so
// coverage is exact across each span and sampled on 16 sub-rows down the
// pixel: edges come out anti-aliased at any size. The measures are rounded to
// whole pixels before drawing, so at 16 and 24 px the tile, the shield's
// straight sides, its top and the V's top land on pixel edges and stay sharp.
// Layers are composited in premultiplied floats and written as straight ARGB.
// A pure function: any thread.
#include "console/VelmoVpnConsoleIcon.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

struct Span {
    double from = 0;
    double to = 0;
};
using Spans = std::vector<Span>;

struct Rgb {
    double r, g, b;
};

Rgb mix(const Rgb& a, const Rgb& b, double t) {
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

constexpr int kSubRows = 16;

// Coverage (0..1) of a shape given by spansAt(y, out), per pixel.
template <class SpansAt>
std::vector<float> rasterize(int size, SpansAt spansAt) {
    std::vector<float> coverage(static_cast<std::size_t>(size) * size, 0.0f);
    Spans spans;
    for (int y = 0; y < size; ++y) {
        float* row = coverage.data() + static_cast<std::size_t>(y) * size;
        for (int s = 0; s < kSubRows; ++s) {
            spans.clear();
            spansAt(y + (s + 0.5) / kSubRows, spans);
            for (const Span& span : spans) {
                const double a = std::max(0.0, span.from);
                const double b = std::min(static_cast<double>(size), span.to);
                if (b <= a) continue;
                for (int x = static_cast<int>(std::floor(a)); x < static_cast<int>(std::ceil(b)); ++x) {
                    const double overlap = std::min(b, x + 1.0) - std::max(a, static_cast<double>(x));
                    if (overlap > 0) row[x] += static_cast<float>(overlap / kSubRows);
                }
            }
        }
    }
    for (float& c : coverage) c = std::min(c, 1.0f);
    return coverage;
}

// The span of a rounded rectangle at height y (none outside it).
void roundedRectSpan(double x0, double y0, double x1, double y1, double radius, double y, Spans& out) {
    if (y < y0 || y > y1) return;
    double inset = 0;
    const double intoCorner = y < y0 + radius ? y0 + radius - y : (y > y1 - radius ? y - (y1 - radius) : 0.0);
    if (intoCorner > 0) inset = radius - std::sqrt(std::max(0.0, radius * radius - intoCorner * intoCorner));
    out.push_back({x0 + inset, x1 - inset});
}

// Premultiplied RGBA canvas.
struct Canvas {
    explicit Canvas(int size) : size(size), px(static_cast<std::size_t>(size) * size * 4, 0.0) {}
    // Paints colour (which may depend on the pixel) over the canvas through coverage.
    template <class ColourAt>
    void paint(const std::vector<float>& coverage, ColourAt colourAt) {
        for (int y = 0; y < size; ++y) {
            for (int x = 0; x < size; ++x) {
                const double a = coverage[static_cast<std::size_t>(y) * size + x];
                if (a <= 0) continue;
                const Rgb c = colourAt(x, y);
                double* p = &px[(static_cast<std::size_t>(y) * size + x) * 4];
                p[0] = c.r * a + p[0] * (1 - a);
                p[1] = c.g * a + p[1] * (1 - a);
                p[2] = c.b * a + p[2] * (1 - a);
                p[3] = a + p[3] * (1 - a);
            }
        }
    }
    int size;
    std::vector<double> px;
};

std::uint32_t toArgb(const double* p) {
    const double a = p[3];
    if (a <= 0.0) return 0;
    const auto channel = [a](double premultiplied) {
        return static_cast<std::uint32_t>(std::clamp(std::lround(premultiplied / a), 0L, 255L));
    };
    const auto alpha = static_cast<std::uint32_t>(std::clamp(std::lround(a * 255.0), 0L, 255L));
    return alpha << 24 | channel(p[0]) << 16 | channel(p[1]) << 8 | channel(p[2]);
}

}  // namespace

KyPlatformIcon velmoVpnConsoleApplicationIcon(int size) {
    KyPlatformIcon icon;
    // Beyond 1024 px a theme has nothing to ask for, and the drawing would only cost memory.
    if (size <= 0 || size > 1024) return icon;
    const double s = size;

    // The tile: full bleed up to 24 px (every pixel counts there), then a
    // margin of 1/32 as icon themes expect.
    const double margin = std::floor(s / 32.0);
    const double tile = s - 2 * margin;
    const double radius = std::max(2.0, tile * 0.22);
    const double rim = std::max(1.0, std::round(s / 64.0));

    // The shield, centred; its half width and heights on whole pixels. Up to
    // 24 px it fills more of the tile and the V keeps two clear pixels of
    // amber under its point, or the mark would close up into a blot.
    const bool small = size <= 24;
    const double cx = s / 2.0;
    const double halfWidth = std::round(tile * (small ? 0.36 : 0.31));
    const double top = margin + std::round(tile * (small ? 0.12 : 0.16));
    const double tip = margin + tile - std::round(tile * (small ? 0.06 : 0.11));
    const double shoulder = top + std::round((tip - top) * 0.40);
    const double topRadius = std::max(1.0, tile * 0.07);

    // The V: its arms' horizontal thickness, its top and its apex.
    const double stroke = std::max(2.0, std::round(tile * (small ? 0.17 : 0.12)));
    const double vTop = top + std::round((tip - top) * (small ? 0.16 : 0.20));
    const double vApex = tip - std::round((tip - top) * (small ? 0.30 : 0.22));
    const double vHalf = halfWidth - std::max(1.0, std::round(tile * 0.09));
    const double vInnerHalf = vHalf - stroke;
    const double vInnerApex = vTop + (vApex - vTop) * (1.0 - stroke / vHalf);

    Canvas canvas(size);
    const Rgb rimColour{47, 72, 82};
    const Rgb tileTop{18, 35, 45};
    const Rgb tileBottom{8, 18, 24};
    const Rgb accentLight{230, 168, 99};
    const Rgb accentShade{204, 139, 70};
    const Rgb cutColour{12, 25, 33};

    canvas.paint(rasterize(size, [&](double y, Spans& out) { roundedRectSpan(margin, margin, s - margin, s - margin, radius, y, out); }),
                 [&](int, int) { return rimColour; });
    canvas.paint(rasterize(size,
                           [&](double y, Spans& out) {
                               roundedRectSpan(margin + rim, margin + rim, s - margin - rim, s - margin - rim,
                                               radius - rim, y, out);
                           }),
                 [&](int, int y) { return mix(tileTop, tileBottom, (y + 0.5 - margin) / tile); });

    const auto shieldSpan = [&](double y, Spans& out) {
        if (y < top || y > tip) return;
        double w = halfWidth;
        if (y < top + topRadius) {
            const double d = top + topRadius - y;
            w -= topRadius - std::sqrt(std::max(0.0, topRadius * topRadius - d * d));
        } else if (y > shoulder) {
            // The sides leave the straight part with no kink and meet in a point.
            const double t = (y - shoulder) / (tip - shoulder);
            w *= 1.0 - t * t;
        }
        out.push_back({cx - w, cx + w});
    };
    // The seam between the halves falls on a pixel edge at even sizes; at odd
    // sizes the middle column takes the mean of both.
    canvas.paint(rasterize(size, shieldSpan), [&](int x, int) {
        const double leftShare = std::clamp(cx - x, 0.0, 1.0);
        return mix(accentShade, accentLight, leftShare);
    });

    const auto vSpans = [&](double y, Spans& out) {
        if (y < vTop || y > vApex) return;
        const double outer = vHalf * (1.0 - (y - vTop) / (vApex - vTop));
        const double inner = y < vInnerApex ? vInnerHalf * (1.0 - (y - vTop) / (vInnerApex - vTop)) : 0.0;
        if (inner <= 0) {
            out.push_back({cx - outer, cx + outer});
        } else {
            out.push_back({cx - outer, cx - inner});
            out.push_back({cx + inner, cx + outer});
        }
    };
    canvas.paint(rasterize(size, vSpans), [&](int, int) { return cutColour; });

    icon.width = size;
    icon.height = size;
    icon.argb.resize(static_cast<std::size_t>(size) * size);
    for (std::size_t i = 0; i < icon.argb.size(); ++i) icon.argb[i] = toArgb(&canvas.px[i * 4]);
    return icon;
}

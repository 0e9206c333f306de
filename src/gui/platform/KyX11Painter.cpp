// KyX11Painter: the shared backbuffers, the painter's life, and each drawing
// operation as core X11 requests.
#include "gui/platform/KyX11Painter.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <map>
#include <mutex>
#include <numbers>
#include <utility>

#include "gui/platform/KyLinuxFontCache.h"
#include "gui/platform/KyPlatformImage.h"
#include "gui/platform/KyX11TextRun.h"

namespace {

constexpr unsigned long kWindowBackground = 0xF9F9F9;

// Bumped whenever any backbuffer pixmap is replaced or released, so a painter
// holding a pixmap can tell, without the mutex, that it is still the current one.
std::atomic<std::uint64_t> gBackbufferEpoch{1};

unsigned long pixelOf(const KyColor& c) { return c.rgb(); }

XRectangle toXRectangle(const KyRect& r) {
    return XRectangle{static_cast<short>(r.x), static_cast<short>(r.y),
                      static_cast<unsigned short>(std::max(0, r.width)), static_cast<unsigned short>(std::max(0, r.height))};
}

// One colour channel of the visual: where it sits and how many bits it has.
struct Channel {
    int shift = 0;
    unsigned long maximum = 0;
    explicit Channel(unsigned long mask) {
        if (!mask) return;
        shift = std::countr_zero(mask);
        maximum = mask >> shift;
    }
    unsigned long encode(unsigned value) const { return ((value * maximum + 127) / 255) << shift; }
    unsigned decode(unsigned long pixel) const {
        return maximum ? static_cast<unsigned>(((pixel >> shift) & maximum) * 255 / maximum) : 0;
    }
};

struct VisualChannels {
    Channel red, green, blue;
    explicit VisualChannels(Visual* v) : red(v->red_mask), green(v->green_mask), blue(v->blue_mask) {}
};

bool hostIsLittleEndian() { return std::endian::native == std::endian::little; }

// Wraps caller-owned 32-bit pixels as a ZPixmap image without copying.
XImage* wrapPixels(Display* display, std::uint32_t* data, int width, int height) {
    const int screen = DefaultScreen(display);
    XImage* image = XCreateImage(display, DefaultVisual(display, screen), static_cast<unsigned>(DefaultDepth(display, screen)),
                                 ZPixmap, 0, reinterpret_cast<char*>(data), static_cast<unsigned>(width),
                                 static_cast<unsigned>(height), 32, width * 4);
    if (image) image->byte_order = hostIsLittleEndian() ? LSBFirst : MSBFirst;
    return image;
}

void releaseWrapped(XImage* image) {
    image->data = nullptr; // the pixels belong to the caller
    XDestroyImage(image);
}

thread_local std::vector<std::uint32_t> tConverted;

} // namespace

// Never destroyed: a painter of another thread may still finish at exit.
std::map<KyX11Painter::BackbufferKey, KyX11Painter::SharedBackbuffer>& KyX11Painter::sharedBackbuffers_() {
    static auto* m = new std::map<BackbufferKey, SharedBackbuffer>;
    return *m;
}

std::mutex& KyX11Painter::sharedBackbufferMutex_() {
    static auto* m = new std::mutex;
    return *m;
}

KyX11Painter::~KyX11Painter() { end(); }

void KyX11Painter::begin(const KyPlatformPaintEvent& event) {
    if (!ended_) end();
    display_ = static_cast<Display*>(event.nativeDisplay);
    drawable_ = event.nativeDrawable ? event.nativeDrawable : event.nativeWindow;
    window_ = event.nativeWindow ? event.nativeWindow : drawable_;
    width_ = std::max(1, event.surfaceSize.width);
    height_ = std::max(1, event.surfaceSize.height);
    ended_ = false;
    presented_ = false;
    presentSuppressed_ = false;
    clipStack_.clear();
    pixmap_ = 0;
    if (ensureDrawable()) XSetClipMask(display_, gc_, None); // the GC is shared: drop the last frame's clip
}

bool KyX11Painter::ensureDrawable() {
    if (!display_ || !drawable_ || width_ <= 0 || height_ <= 0) return false;
    if (pixmap_ && epoch_ == gBackbufferEpoch.load(std::memory_order_acquire)) return true;
    std::lock_guard lock(sharedBackbufferMutex_());
    SharedBackbuffer& entry = sharedBackbuffers_()[{display_, window_}];
    if (entry.pixmap && (entry.width != width_ || entry.height != height_)) {
        XFreePixmap(display_, entry.pixmap);
        entry.pixmap = 0;
        gBackbufferEpoch.fetch_add(1, std::memory_order_acq_rel);
    }
    if (!entry.pixmap) {
        const unsigned depth = static_cast<unsigned>(DefaultDepth(display_, DefaultScreen(display_)));
        entry.pixmap = XCreatePixmap(display_, drawable_, static_cast<unsigned>(width_), static_cast<unsigned>(height_), depth);
        entry.width = width_;
        entry.height = height_;
        GC fill = XCreateGC(display_, entry.pixmap, 0, nullptr);
        XSetForeground(display_, fill, kWindowBackground);
        XFillRectangle(display_, entry.pixmap, fill, 0, 0, static_cast<unsigned>(width_), static_cast<unsigned>(height_));
        XFreeGC(display_, fill);
    }
    // Copies make no GraphicsExpose traffic: the backbuffer is always whole.
    if (!entry.drawGc) {
        entry.drawGc = XCreateGC(display_, entry.pixmap, 0, nullptr);
        XSetGraphicsExposures(display_, entry.drawGc, False);
    }
    if (!entry.copyGc) {
        entry.copyGc = XCreateGC(display_, entry.pixmap, 0, nullptr);
        XSetGraphicsExposures(display_, entry.copyGc, False);
    }
    pixmap_ = entry.pixmap;
    gc_ = entry.drawGc;
    copyGc_ = entry.copyGc;
    epoch_ = gBackbufferEpoch.load(std::memory_order_acquire);
    return true;
}

void KyX11Painter::present_() {
    if (!display_ || !pixmap_ || !copyGc_ || !drawable_) return;
    XCopyArea(display_, pixmap_, drawable_, copyGc_, 0, 0, static_cast<unsigned>(width_), static_cast<unsigned>(height_), 0, 0);
    XFlush(display_);
}

void KyX11Painter::end() {
    ended_ = true;
    if (!presented_) present_();
    reset_();
}

void KyX11Painter::reset_() {
    display_ = nullptr;
    window_ = 0;
    drawable_ = 0;
    gc_ = nullptr;
    copyGc_ = nullptr;
    pixmap_ = 0;
    width_ = height_ = 1;
    presented_ = false;
    presentSuppressed_ = false;
    clipStack_.clear();
}

void KyX11Painter::finalize() {
    ended_ = true;
    if (presentSuppressed_ || presented_) return;
    present_();
    presented_ = true;
}

void KyX11Painter::flush() {
    if (display_) XFlush(display_);
}

void KyX11Painter::releaseSharedBackbuffers(Display* display, Window window) {
    if (!display) return;
    std::lock_guard lock(sharedBackbufferMutex_());
    auto it = sharedBackbuffers_().find({display, window});
    if (it == sharedBackbuffers_().end()) return;
    const SharedBackbuffer& entry = it->second;
    if (entry.drawGc) XFreeGC(display, entry.drawGc);
    if (entry.copyGc) XFreeGC(display, entry.copyGc);
    if (entry.pixmap) XFreePixmap(display, entry.pixmap);
    sharedBackbuffers_().erase(it);
    gBackbufferEpoch.fetch_add(1, std::memory_order_acq_rel);
}

Pixmap KyX11Painter::sharedBackbufferPixmap(Display* display, Window window) {
    std::lock_guard lock(sharedBackbufferMutex_());
    auto it = sharedBackbuffers_().find({display, window});
    return it == sharedBackbuffers_().end() ? 0 : it->second.pixmap;
}

// ---------------------------------------------------------------------------
// Shapes

void KyX11Painter::setSolidLine_(int width, int cap, int join) {
    XSetLineAttributes(display_, gc_, static_cast<unsigned>(std::max(1, width)), LineSolid, cap, join);
}

void KyX11Painter::clear(const KyColor& color) {
    if (!ensureDrawable()) return;
    XSetForeground(display_, gc_, pixelOf(color));
    XFillRectangle(display_, target_(), gc_, 0, 0, static_cast<unsigned>(width_), static_cast<unsigned>(height_));
}

void KyX11Painter::fillRect(const KyRect& rect, const KyColor& fill, const KyColor& border, int borderWidth) {
    if (!ensureDrawable()) return;
    XSetForeground(display_, gc_, pixelOf(fill));
    XFillRectangle(display_, target_(), gc_, rect.x, rect.y, static_cast<unsigned>(std::max(0, rect.width)),
                   static_cast<unsigned>(std::max(0, rect.height)));
    if (borderWidth > 0) drawRect(rect, border, borderWidth);
}

void KyX11Painter::drawRect(const KyRect& rect, const KyColor& color, int width) {
    if (!ensureDrawable()) return;
    XSetForeground(display_, gc_, pixelOf(color));
    setSolidLine_(width, CapButt, JoinMiter);
    XDrawRectangle(display_, target_(), gc_, rect.x, rect.y, static_cast<unsigned>(std::max(0, rect.width)),
                   static_cast<unsigned>(std::max(0, rect.height)));
}

void KyX11Painter::drawDashedRect(const KyRect& rect, const KyColor& color, int width, int dash, int gap) {
    if (!ensureDrawable()) return;
    const char dashes[2] = {static_cast<char>(std::clamp(dash < 1 ? 4 : dash, 1, 255)),
                            static_cast<char>(std::clamp(gap < 1 ? 4 : gap, 1, 255))};
    XSetForeground(display_, gc_, pixelOf(color));
    XSetDashes(display_, gc_, 0, dashes, 2);
    XSetLineAttributes(display_, gc_, static_cast<unsigned>(std::max(1, width)), LineOnOffDash, CapButt, JoinMiter);
    XDrawRectangle(display_, target_(), gc_, rect.x, rect.y, static_cast<unsigned>(std::max(0, rect.width)),
                   static_cast<unsigned>(std::max(0, rect.height)));
    XSetLineAttributes(display_, gc_, 1, LineSolid, CapButt, JoinMiter);
}

void KyX11Painter::drawLine(int x1, int y1, int x2, int y2, const KyColor& color, int width) {
    if (!ensureDrawable()) return;
    XSetForeground(display_, gc_, pixelOf(color));
    setSolidLine_(width, CapRound, JoinRound);
    XDrawLine(display_, target_(), gc_, x1, y1, x2, y2);
}

void KyX11Painter::fillEllipse(const KyRect& rect, const KyColor& fill, const KyColor& border, int borderWidth) {
    if (!ensureDrawable()) return;
    XSetForeground(display_, gc_, pixelOf(fill));
    XFillArc(display_, target_(), gc_, rect.x, rect.y, static_cast<unsigned>(std::max(0, rect.width)),
             static_cast<unsigned>(std::max(0, rect.height)), 0, 0x5A00);
    if (borderWidth > 0) drawEllipse(rect, border, borderWidth);
}

void KyX11Painter::drawEllipse(const KyRect& rect, const KyColor& color, int width) {
    if (!ensureDrawable()) return;
    XSetForeground(display_, gc_, pixelOf(color));
    setSolidLine_(width, CapRound, JoinRound);
    XDrawArc(display_, target_(), gc_, rect.x, rect.y, static_cast<unsigned>(std::max(0, rect.width)),
             static_cast<unsigned>(std::max(0, rect.height)), 0, 0x5A00);
}

void KyX11Painter::fillPolygon(const KyPoint* points, int count, const KyColor& fill, const KyColor& border,
                               int borderWidth) {
    if (!points || count < 3 || !ensureDrawable()) return;
    thread_local std::vector<XPoint> xpoints;
    xpoints.clear();
    for (int i = 0; i < count; ++i)
        xpoints.push_back(XPoint{static_cast<short>(points[i].x), static_cast<short>(points[i].y)});
    XSetForeground(display_, gc_, pixelOf(fill));
    XFillPolygon(display_, target_(), gc_, xpoints.data(), count, Complex, CoordModeOrigin);
    if (borderWidth > 0) {
        xpoints.push_back(xpoints.front());
        XSetForeground(display_, gc_, pixelOf(border));
        setSolidLine_(borderWidth, CapButt, JoinMiter);
        XDrawLines(display_, target_(), gc_, xpoints.data(), count + 1, CoordModeOrigin);
    }
}

void KyX11Painter::fillRoundedRect(const KyRect& rect, int radius, const KyColor& fill, const KyColor& border,
                                   int borderWidth) {
    const int r = std::clamp(radius, 0, std::max(0, std::min(rect.width, rect.height) / 2));
    if (r == 0 || rect.width <= 0 || rect.height <= 0) {
        fillRect(rect, fill, border, borderWidth);
        return;
    }
    const int radii[4] = {r, r, r, r};
    fillRoundedPolygon_(rect, radii, fill, border, borderWidth);
}

void KyX11Painter::fillRoundedRect(const KyRect& rect, int topLeft, int topRight, int bottomRight, int bottomLeft,
                                   const KyColor& fill, const KyColor& border, int borderWidth) {
    if (topLeft == topRight && topRight == bottomRight && bottomRight == bottomLeft) {
        fillRoundedRect(rect, topLeft, fill, border, borderWidth);
        return;
    }
    if (topLeft <= 0 && topRight <= 0 && bottomRight <= 0 && bottomLeft <= 0) {
        fillRect(rect, fill, border, borderWidth);
        return;
    }
    if (rect.width <= 0 || rect.height <= 0) return;
    const int limit = std::max(0, std::min(rect.width, rect.height) / 2);
    const int radii[4] = {std::clamp(topLeft, 0, limit), std::clamp(topRight, 0, limit),
                          std::clamp(bottomRight, 0, limit), std::clamp(bottomLeft, 0, limit)};
    fillRoundedPolygon_(rect, radii, fill, border, borderWidth);
}

// Walks the four corners clockwise from the top-left, each arc from its start
// angle through a quarter turn (y grows downwards), so straight edges join
// the arcs at their tangent points. radii: top-left, top-right, bottom-right,
// bottom-left; a radius of 0 is the corner point itself.
void KyX11Painter::fillRoundedPolygon_(const KyRect& rect, const int radii[4], const KyColor& fill,
                                       const KyColor& border, int borderWidth) {
    if (!ensureDrawable()) return;
    constexpr double pi = std::numbers::pi;
    const double starts[4] = {pi, 1.5 * pi, 0.0, 0.5 * pi};
    const int x = rect.x, y = rect.y, right = rect.x + rect.width, bottom = rect.y + rect.height;
    const int centers[4][2] = {{x + radii[0], y + radii[0]},
                               {right - radii[1], y + radii[1]},
                               {right - radii[2], bottom - radii[2]},
                               {x + radii[3], bottom - radii[3]}};
    thread_local std::vector<XPoint> points;
    points.clear();
    for (int c = 0; c < 4; ++c) {
        const int r = radii[c];
        if (r <= 0) {
            points.push_back(XPoint{static_cast<short>(centers[c][0]), static_cast<short>(centers[c][1])});
            continue;
        }
        const int segments = std::max(12, 3 * r);
        for (int i = 0; i <= segments; ++i) {
            const double angle = starts[c] + (pi / 2) * i / segments;
            points.push_back(XPoint{static_cast<short>(centers[c][0] + std::lround(r * std::cos(angle))),
                                    static_cast<short>(centers[c][1] + std::lround(r * std::sin(angle)))});
        }
    }
    XSetForeground(display_, gc_, pixelOf(fill));
    XFillPolygon(display_, target_(), gc_, points.data(), static_cast<int>(points.size()), Nonconvex, CoordModeOrigin);
    if (borderWidth > 0) {
        points.push_back(points.front());
        XSetForeground(display_, gc_, pixelOf(border));
        setSolidLine_(borderWidth, CapButt, JoinMiter);
        XDrawLines(display_, target_(), gc_, points.data(), static_cast<int>(points.size()), CoordModeOrigin);
    }
}

// ---------------------------------------------------------------------------
// Clipping

void KyX11Painter::applyClip_() {
    if (clipStack_.empty()) XSetClipMask(display_, gc_, None);
    else XSetClipRectangles(display_, gc_, 0, 0, &clipStack_.back(), 1, Unsorted);
}

void KyX11Painter::pushClipRect(const KyRect& rect) {
    if (!ensureDrawable()) return;
    KyRect clip{rect.x, rect.y, std::max(0, rect.width), std::max(0, rect.height)};
    if (!clipStack_.empty()) {
        const XRectangle& top = clipStack_.back();
        const KyRect outer{top.x, top.y, top.width, top.height};
        clip = clip.intersected(outer);
        clip.width = std::max(0, clip.width);
        clip.height = std::max(0, clip.height);
    }
    clipStack_.push_back(toXRectangle(clip));
    applyClip_();
}

void KyX11Painter::popClipRect() {
    if (!clipStack_.empty()) clipStack_.pop_back();
    if (ensureDrawable()) applyClip_();
}

// ---------------------------------------------------------------------------
// Text

void KyX11Painter::drawText(const KyRect& rect, const KyString& text, KyFlagSet<DrawTextFormat> format,
                            const KyColor& color, const KyFont& font) {
    if (text.isEmpty() || !ensureDrawable()) return;
    XSetForeground(display_, gc_, pixelOf(color));
    const KyLinuxFontCache::Resolved resolved = KyLinuxFontCache::resolve(display_, font, text.view());
    const KyX11TextRun run(resolved, text.view());
    int ascent = rect.height, descent = 0, textWidth = static_cast<int>(text.size()) * 8;
    if (resolved.font) {
        XSetFont(display_, gc_, resolved.font->fid);
        textWidth = run.width(&ascent, &descent);
    }
    int x = rect.x;
    if (format.testFlag(DrawTextFormat::AlignHCenter)) x = rect.x + (rect.width - textWidth) / 2;
    else if (format.testFlag(DrawTextFormat::AlignRight)) x = rect.x + rect.width - textWidth;
    int baseline = rect.y + ascent;
    if (format.testFlag(DrawTextFormat::AlignVCenter)) baseline = rect.y + (rect.height - (ascent + descent)) / 2 + ascent;
    else if (format.testFlag(DrawTextFormat::AlignBottom)) baseline = rect.y + rect.height - descent;
    const bool clip = rect.width > 0 && rect.height > 0;
    if (clip) pushClipRect(rect);
    run.draw(display_, target_(), gc_, x, baseline);
    if (clip) popClipRect();
}

// ---------------------------------------------------------------------------
// Images

void KyX11Painter::drawBgra32(const KyRect& rect, const std::uint8_t* pixels, int width, int height, int stride) {
    if (!pixels || width <= 0 || height <= 0 || rect.width <= 0 || rect.height <= 0 || stride < width * 4) return;
    if (!ensureDrawable()) return;
    const VisualChannels channels(DefaultVisual(display_, DefaultScreen(display_)));
    auto& out = tConverted;
    out.resize(static_cast<std::size_t>(rect.width) * static_cast<std::size_t>(rect.height));
    for (int ty = 0; ty < rect.height; ++ty) {
        const int sy = std::min(height - 1, static_cast<int>(static_cast<long long>(ty) * height / rect.height));
        const std::uint8_t* row = pixels + static_cast<std::size_t>(sy) * static_cast<std::size_t>(stride);
        std::uint32_t* dst = out.data() + static_cast<std::size_t>(ty) * static_cast<std::size_t>(rect.width);
        for (int tx = 0; tx < rect.width; ++tx) {
            const int sx = std::min(width - 1, static_cast<int>(static_cast<long long>(tx) * width / rect.width));
            const std::uint8_t* p = row + sx * 4;
            dst[tx] = static_cast<std::uint32_t>(channels.red.encode(p[2]) | channels.green.encode(p[1]) |
                                                 channels.blue.encode(p[0]));
        }
    }
    if (XImage* image = wrapPixels(display_, out.data(), rect.width, rect.height)) {
        XPutImage(display_, target_(), gc_, image, 0, 0, rect.x, rect.y, static_cast<unsigned>(rect.width),
                  static_cast<unsigned>(rect.height));
        releaseWrapped(image);
    }
}

void KyX11Painter::drawImage(const KyRect& rect, const KyPlatformImage& image, const KyRect* sourceRect) {
    const KyPlatformSize size = image.size();
    if (size.width <= 0 || size.height <= 0 || !image.pixels() || rect.width <= 0 || rect.height <= 0) return;
    if (!ensureDrawable()) return;
    KyRect source{0, 0, size.width, size.height};
    if (sourceRect) source = sourceRect->intersected(source);
    if (source.isEmpty()) return;
    // Only what lies on the surface can be read back and blended.
    const KyRect visible = rect.intersected(KyRect{0, 0, width_, height_});
    if (visible.isEmpty()) return;
    XImage* under = XGetImage(display_, target_(), visible.x, visible.y, static_cast<unsigned>(visible.width),
                              static_cast<unsigned>(visible.height), AllPlanes, ZPixmap);
    if (!under) return;
    const VisualChannels channels(DefaultVisual(display_, DefaultScreen(display_)));
    const KyPixelFormat format = image.format();
    const int bpp = (format == KyPixelFormat::Rgb24 || format == KyPixelFormat::Bgr24) ? 3 : 4;
    const bool redFirst = format == KyPixelFormat::Rgb24 || format == KyPixelFormat::Rgba32;
    const std::uint8_t* base = image.pixels();
    for (int vy = 0; vy < visible.height; ++vy) {
        const int ty = visible.y + vy - rect.y;
        const int sy = source.y + std::min(source.height - 1, static_cast<int>(static_cast<long long>(ty) * source.height / rect.height));
        const std::uint8_t* row = base + static_cast<std::size_t>(sy) * static_cast<std::size_t>(image.pitch());
        for (int vx = 0; vx < visible.width; ++vx) {
            const int tx = visible.x + vx - rect.x;
            const int sx = source.x + std::min(source.width - 1, static_cast<int>(static_cast<long long>(tx) * source.width / rect.width));
            const std::uint8_t* p = row + sx * bpp;
            const unsigned r = redFirst ? p[0] : p[2];
            const unsigned g = p[1];
            const unsigned b = redFirst ? p[2] : p[0];
            const unsigned a = bpp == 4 ? p[3] : 255;
            const unsigned long old = XGetPixel(under, vx, vy);
            auto mix = [a](unsigned s, unsigned d) { return (s * a + d * (255 - a) + 127) / 255; };
            const unsigned long pixel = channels.red.encode(mix(r, channels.red.decode(old))) |
                                        channels.green.encode(mix(g, channels.green.decode(old))) |
                                        channels.blue.encode(mix(b, channels.blue.decode(old)));
            XPutPixel(under, vx, vy, pixel);
        }
    }
    XPutImage(display_, target_(), gc_, under, 0, 0, visible.x, visible.y, static_cast<unsigned>(visible.width),
              static_cast<unsigned>(visible.height));
    XDestroyImage(under);
}

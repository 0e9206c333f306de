// KyX11Painter: draws with core X11 requests into a backbuffer pixmap and
// copies the finished frame to the window in one XCopyArea.
//
// Backbuffers are shared: one pixmap (with a drawing GC and a copy GC) per
// (display, window) for the whole process, kept between frames, so a paint of
// only a dirty region composes on the last frame and only the first paint of
// a size pays for allocation. A size change replaces the pixmap; the new one
// starts filled with the window background 0xF9F9F9. The map of backbuffers
// has one mutex (held only to find or replace an entry); painters of one
// window share its GC, so the clip is re-applied at begin.
//
// A painter is used on the GUI thread, one frame at a time: begin, draw,
// finalize or end.
#pragma once

#include <X11/Xlib.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "gui/platform/KyPlatformPainter.h"

/// The X11 painter.
class KyX11Painter : public KyPlatformPainter {
public:
    KyX11Painter() = default;
    /// Presents what was drawn unless finalize already did, like end().
    ~KyX11Painter() override;
    KyX11Painter(const KyX11Painter&) = delete;
    KyX11Painter& operator=(const KyX11Painter&) = delete;

    void begin(const KyPlatformPaintEvent& event) override;
    void end() override;
    void flush() override;
    void finalize() override;

    void clear(const KyColor& color) override;
    void fillRect(const KyRect& rect, const KyColor& fill, const KyColor& border, int borderWidth) override;
    void fillRoundedRect(const KyRect& rect, int radius, const KyColor& fill, const KyColor& border,
                         int borderWidth) override;
    void fillRoundedRect(const KyRect& rect, int topLeft, int topRight, int bottomRight, int bottomLeft,
                         const KyColor& fill, const KyColor& border, int borderWidth) override;
    void drawRect(const KyRect& rect, const KyColor& color, int width) override;
    void drawDashedRect(const KyRect& rect, const KyColor& color, int width, int dash, int gap) override;
    void drawLine(int x1, int y1, int x2, int y2, const KyColor& color, int width) override;
    void fillPolygon(const KyPoint* points, int count, const KyColor& fill, const KyColor& border,
                     int borderWidth) override;
    void pushClipRect(const KyRect& rect) override;
    void popClipRect() override;
    void fillEllipse(const KyRect& rect, const KyColor& fill, const KyColor& border, int borderWidth) override;
    void drawEllipse(const KyRect& rect, const KyColor& color, int width) override;
    void drawImage(const KyRect& rect, const KyPlatformImage& image, const KyRect* sourceRect) override;
    void drawBgra32(const KyRect& rect, const std::uint8_t* pixels, int width, int height, int stride) override;
    void drawNativeVideoFrame(const KyRect&, const KyVideoFrame*) override {}
    void drawText(const KyRect& rect, const KyString& text, KyFlagSet<DrawTextFormat> format, const KyColor& color,
                  const KyFont& font) override;
    void* nativeHandle() const override { return display_; }

    /// While set, finalize does not present (end still does unless presented).
    void setPresentSuppressed(bool suppressed) { presentSuppressed_ = suppressed; }
    /// Frees the backbuffer, both GCs and the map entry of (display, window).
    static void releaseSharedBackbuffers(Display* display, Window window);
    /// The backbuffer pixmap of (display, window), or 0.
    static Pixmap sharedBackbufferPixmap(Display* display, Window window);

private:
    struct SharedBackbuffer {
        Pixmap pixmap = 0;
        GC drawGc = nullptr;
        GC copyGc = nullptr;
        int width = 0;
        int height = 0;
    };

    using BackbufferKey = std::pair<Display*, Window>;
    /// Every backbuffer of the process, and the mutex that guards the map.
    static std::map<BackbufferKey, SharedBackbuffer>& sharedBackbuffers_();
    static std::mutex& sharedBackbufferMutex_();

    bool ensureDrawable();
    void present_();
    void reset_();
    void applyClip_();
    Drawable target_() const { return pixmap_ ? pixmap_ : drawable_; }
    void setSolidLine_(int width, int cap, int join);
    void fillRoundedPolygon_(const KyRect& rect, const int radii[4], const KyColor& fill, const KyColor& border,
                             int borderWidth);

    Display* display_ = nullptr;
    Window window_ = 0;
    Drawable drawable_ = 0;
    GC gc_ = nullptr;
    GC copyGc_ = nullptr;
    Pixmap pixmap_ = 0;
    int width_ = 1;
    int height_ = 1;
    bool ended_ = true;
    bool presented_ = false;
    bool presentSuppressed_ = false;
    /// Backbuffer generation this painter's pixmap belongs to (see ensureDrawable).
    std::uint64_t epoch_ = 0;
    std::vector<XRectangle> clipStack_;
};

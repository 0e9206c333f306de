// The plain values that cross the border between the window system and the
// widgets: sizes, pixel formats, paint requests, mouse and key input, and the
// callbacks a top-level window hands to its native window.
//
// All of them are copied freely between the X pump and the tasks it posts on
// the GUI thread's loop; none holds a lock or owns a native resource. Native
// ids travel as plain integers and the connection as an untyped pointer, so
// code above the platform never sees an X header.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

/// Width and height of a native surface, in pixels.
struct KyPlatformSize {
    std::int32_t width = 0;
    std::int32_t height = 0;

    friend constexpr bool operator==(const KyPlatformSize&, const KyPlatformSize&) noexcept = default;
};

/// Byte layout of a platform image's pixels.
enum class KyPixelFormat : std::int32_t {
    Unknown = 0,
    Rgb24 = 1,
    Bgr24 = 2,
    Bgra32 = 3,
    Rgba32 = 4,
};

/// A native window id (an X window or pixmap id).
using KyNativeWindowId = unsigned long;

/// One request to paint part of a window.
struct KyPlatformPaintEvent {
    /// x, y, width, height in window coordinates.
    std::int32_t dirtyRect[4] = {0, 0, 0, 0};
    KyPlatformSize surfaceSize;
    KyNativeWindowId nativeWindow = 0;
    /// Where finished frames are copied to.
    KyNativeWindowId nativeDrawable = 0;
    /// The connection (an X Display).
    void* nativeDisplay = nullptr;
};

/// A pointer event in window coordinates. button: 0 none (moves), 1 left,
/// 2 right, 3 middle, 4 any other.
struct KyMouseEvent {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t button = 0;
    bool ctrl = false;
    bool shift = false;
    bool alt = false;
    std::int32_t wheelDelta = 0;
    std::int32_t clickCount = 0;
};

/// A key event: keyCode is the X keysym; text holds the typed character when hasText.
struct KyKeyEvent {
    std::int32_t keyCode = 0;
    bool ctrl = false;
    bool shift = false;
    bool alt = false;
    wchar_t text = 0;
    bool hasText = false;
};

/// An icon as the window system takes it: width times height pixels, each
/// 0xAARRGGBB, row by row from the top.
struct KyPlatformIcon {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::vector<std::uint32_t> argb;
    bool isNull() const { return width <= 0 || height <= 0 || argb.size() < static_cast<std::size_t>(width) * height; }
};

/// Creation options of a native window; the X11 backend reads none of them.
struct KyPlatformWindowOptions {
    bool reserved = false;
};

/// The thirteen hooks of a native window. Any may be empty: its event is then
/// dropped. Input hooks are posted on lane 1 of the GUI loop; resized,
/// paintRequested and closeAllowed run directly inside the X pump.
struct KyWindowCallbacks {
    std::function<void(KyPlatformSize)> resized;
    std::function<void(KyMouseEvent)> mousePressed;
    std::function<void(KyMouseEvent)> mouseDoubleClicked;
    std::function<void(KyMouseEvent)> mouseReleased;
    std::function<void(KyMouseEvent)> mouseMoved;
    std::function<void()> mouseLeft;
    std::function<void(KyMouseEvent)> wheelRotated;
    std::function<void(KyKeyEvent)> keyPressed;
    std::function<void(KyKeyEvent)> keyReleased;
    std::function<void()> deleteRequested;
    std::function<void(KyPlatformPaintEvent)> paintRequested;
    /// Never called by the X11 backend; windows still fill it in.
    std::function<KyPlatformSize()> minimumSizeProvider;
    /// Asked before a window-manager close; false keeps the window open.
    std::function<bool()> closeAllowed;
};

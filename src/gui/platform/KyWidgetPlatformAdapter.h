// KyWidgetPlatformAdapter: what widgets ask of the native window system,
// as static helpers over the X connection: window geometry, damage that
// becomes paint, text measuring and key characters.
//
// The expose tracker gathers damage per native window and turns it into one
// synthetic Expose per window per flush, never more than one in flight: the
// event's return through the X server paces painting to the server. Damage
// arriving while an Expose is in flight waits for it and leaves in the next
// flush. invalidateRect may be called from any fiber of the GUI thread or
// from another thread; flushDamage runs once per pass of the GUI loop and
// finishSyntheticExpose in its X pump. The tracker's map has one mutex,
// never held across an X call.
#pragma once

#include <cstddef>

#include "core/types/KyPoint.h"
#include "core/types/KyRect.h"
#include "core/types/KyString.h"
#include "gui/platform/KyFont.h"
#include "gui/platform/KyPlatformTypes.h"

/// The native window a widget paints into: (display, window).
struct KyWidgetPlatformHandle {
    void* display = nullptr;
    KyNativeWindowId window = 0;
    bool isValid() const { return display && window; }
    friend bool operator==(const KyWidgetPlatformHandle&, const KyWidgetPlatformHandle&) = default;
};

/// Static helpers between widgets and the X server.
class KyWidgetPlatformAdapter {
public:
    /// The window's client area at (0, 0); empty when it cannot be read.
    static KyRect clientRect(const KyWidgetPlatformHandle& handle);
    /// Where the client area's origin lies on the screen.
    static KyPoint clientOriginOnScreen(const KyWidgetPlatformHandle& handle);
    /// The client area in screen coordinates.
    static KyRect windowFrameRect(const KyWidgetPlatformHandle& handle);

    /// Adds rect (window coordinates) to the window's pending damage.
    static void invalidateRect(const KyWidgetPlatformHandle& handle, const KyRect& rect);
    /// Sends one synthetic Expose per window with ready damage.
    static void flushDamage();
    /// The Expose for window came back: damage gathered meanwhile becomes ready.
    static void finishSyntheticExpose(KyNativeWindowId window);
    /// True when a flush would send something.
    static bool hasReadyDamage();
    /// Drops the window's entry (the window is going).
    static void forgetWindow(KyNativeWindowId window);

    /// Width of the characters in the first length bytes of text. Without a
    /// connection or font: length / text length * fallbackWidth.
    static int textWidthUntil(const KyWidgetPlatformHandle& handle, const KyString& text, const KyFont& font,
                              std::size_t length, int fallbackWidth);
    /// Byte offset of the character under x (its right edge beyond x), or the
    /// text's length past the end; x below 1 gives 0.
    static std::size_t characterIndexAtPosition(const KyWidgetPlatformHandle& handle, const KyString& text,
                                                const KyFont& font, int x, int fallbackWidth);

    /// True when the server has font's own family (not a stand-in face that
    /// the font cache falls back to) and that face draws every character of
    /// text with a glyph of its own. Core fonts index the Basic Multilingual
    /// Plane only, so text beyond it is never covered. False without a connection.
    static bool fontCoversText(const KyWidgetPlatformHandle& handle, const KyFont& font, const KyString& text);

    /// The character a printable keysym types, with letters in upper case when
    /// exactly one of shift and caps holds. False for keys that type nothing.
    static bool translateCharacter(int key, bool shift, bool caps, wchar_t& out);
    /// True when keysym key is the letter or digit ch, in either case.
    static bool matchesShortcutKey(int key, char ch);
};

// KyWidgetPlatformAdapter: the expose tracker, window geometry queries, the
// two text measurers and key characters.
#include "gui/platform/KyWidgetPlatformAdapter.h"

#include <X11/Xlib.h>
#include <X11/keysym.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <mutex>
#include <set>
#include <unordered_map>
#include <vector>

#include "gui/platform/KyLinuxFontCache.h"
#include "gui/platform/KyX11TextRun.h"

namespace {

struct ExposeEntry {
    Display* display = nullptr;
    std::int16_t x = 0;
    std::int16_t y = 0;
    std::uint16_t width = 1;
    std::uint16_t height = 1;
    bool pending = false;
    bool ready = false;
    bool inFlight = false;
};

struct LinuxExposeTracker {
    std::mutex mutex;
    std::unordered_map<KyNativeWindowId, ExposeEntry> entries;
};

// Never destroyed: a late update from another thread at exit finds it intact.
LinuxExposeTracker& tracker() {
    static auto* t = new LinuxExposeTracker;
    return *t;
}

Display* displayOf(const KyWidgetPlatformHandle& handle) { return static_cast<Display*>(handle.display); }

} // namespace

KyRect KyWidgetPlatformAdapter::clientRect(const KyWidgetPlatformHandle& handle) {
    if (!handle.isValid()) return {};
    XWindowAttributes attributes{};
    if (!XGetWindowAttributes(displayOf(handle), handle.window, &attributes)) return {};
    return {0, 0, attributes.width, attributes.height};
}

KyPoint KyWidgetPlatformAdapter::clientOriginOnScreen(const KyWidgetPlatformHandle& handle) {
    if (!handle.isValid()) return {};
    Display* display = displayOf(handle);
    int x = 0, y = 0;
    Window child = 0;
    if (!XTranslateCoordinates(display, handle.window, DefaultRootWindow(display), 0, 0, &x, &y, &child)) return {};
    return {x, y};
}

KyRect KyWidgetPlatformAdapter::windowFrameRect(const KyWidgetPlatformHandle& handle) {
    const KyRect client = clientRect(handle);
    if (client.isEmpty()) return {};
    const KyPoint origin = clientOriginOnScreen(handle);
    return {origin.x, origin.y, client.width, client.height};
}

// ---------------------------------------------------------------------------
// Expose tracker

void KyWidgetPlatformAdapter::invalidateRect(const KyWidgetPlatformHandle& handle, const KyRect& rect) {
    if (!handle.isValid()) return;
    // Rectangles travel in the 16-bit form of the X protocol; windows stay below that.
    const auto x = static_cast<std::int16_t>(rect.x);
    const auto y = static_cast<std::int16_t>(rect.y);
    const auto w = static_cast<std::uint16_t>(std::max(1, rect.width));
    const auto h = static_cast<std::uint16_t>(std::max(1, rect.height));
    LinuxExposeTracker& t = tracker();
    std::lock_guard lock(t.mutex);
    ExposeEntry& e = t.entries[handle.window];
    e.display = displayOf(handle);
    if (!e.pending) {
        e.x = x, e.y = y, e.width = w, e.height = h;
    } else {
        const int left = std::min<int>(e.x, x);
        const int top = std::min<int>(e.y, y);
        const int right = std::max<int>(e.x + e.width, x + w);
        const int bottom = std::max<int>(e.y + e.height, y + h);
        e.x = static_cast<std::int16_t>(left);
        e.y = static_cast<std::int16_t>(top);
        e.width = static_cast<std::uint16_t>(std::max(1, right - left));
        e.height = static_cast<std::uint16_t>(std::max(1, bottom - top));
    }
    e.pending = true;
    if (!e.inFlight) e.ready = true;
}

void KyWidgetPlatformAdapter::flushDamage() {
    struct Outgoing {
        KyNativeWindowId window;
        ExposeEntry entry;
    };
    // Usually nothing is ready: reuse one buffer per thread instead of allocating each pass.
    thread_local std::vector<Outgoing> outgoing;
    outgoing.clear();
    {
        LinuxExposeTracker& t = tracker();
        std::lock_guard lock(t.mutex);
        for (auto& [window, e] : t.entries) {
            if (!e.ready || !e.pending || !e.display) continue;
            outgoing.push_back({window, e});
            e.inFlight = true;
            e.pending = false;
            e.ready = false;
        }
    }
    if (outgoing.empty()) return;
    // X calls happen outside the tracker's mutex: an invalidation from another
    // thread never waits for the server.
    std::set<Display*> displays;
    for (const Outgoing& o : outgoing) {
        XEvent event{};
        event.xexpose.type = Expose;
        event.xexpose.display = o.entry.display;
        event.xexpose.window = o.window;
        event.xexpose.x = o.entry.x;
        event.xexpose.y = o.entry.y;
        event.xexpose.width = std::max<int>(1, o.entry.width);
        event.xexpose.height = std::max<int>(1, o.entry.height);
        event.xexpose.count = 0;
        XSendEvent(o.entry.display, o.window, True, ExposureMask, &event);
        displays.insert(o.entry.display);
    }
    for (Display* display : displays) XFlush(display);
    outgoing.clear();
}

void KyWidgetPlatformAdapter::finishSyntheticExpose(KyNativeWindowId window) {
    LinuxExposeTracker& t = tracker();
    std::lock_guard lock(t.mutex);
    auto it = t.entries.find(window);
    if (it == t.entries.end()) return;
    ExposeEntry& e = it->second;
    e.inFlight = false;
    if (e.pending) e.ready = true;
    if (!e.pending && !e.ready) t.entries.erase(it);
}

bool KyWidgetPlatformAdapter::hasReadyDamage() {
    LinuxExposeTracker& t = tracker();
    std::lock_guard lock(t.mutex);
    for (const auto& [window, e] : t.entries)
        if (e.ready && e.pending && e.display) return true;
    return false;
}

void KyWidgetPlatformAdapter::forgetWindow(KyNativeWindowId window) {
    LinuxExposeTracker& t = tracker();
    std::lock_guard lock(t.mutex);
    t.entries.erase(window);
}

// ---------------------------------------------------------------------------
// Text measuring: the same runs the painter draws with.

int KyWidgetPlatformAdapter::textWidthUntil(const KyWidgetPlatformHandle& handle, const KyString& text,
                                            const KyFont& font, std::size_t length, int fallbackWidth) {
    if (text.isEmpty()) return 0;
    const KyLinuxFontCache::Resolved resolved =
        handle.display ? KyLinuxFontCache::resolve(displayOf(handle), font, text.view()) : KyLinuxFontCache::Resolved{};
    if (!resolved.font) {
        const double share = static_cast<double>(std::min(length, text.size())) / static_cast<double>(text.size());
        return static_cast<int>(share * fallbackWidth);
    }
    return KyX11TextRun(resolved, text.view()).widthUntil(length);
}

std::size_t KyWidgetPlatformAdapter::characterIndexAtPosition(const KyWidgetPlatformHandle& handle,
                                                              const KyString& text, const KyFont& font, int x,
                                                              int fallbackWidth) {
    const KyLinuxFontCache::Resolved resolved =
        handle.display ? KyLinuxFontCache::resolve(displayOf(handle), font, text.view()) : KyLinuxFontCache::Resolved{};
    if (!resolved.font) {
        const long long length = static_cast<long long>(text.size());
        const long long perChar = std::max<long long>(1, std::max(1, fallbackWidth) / std::max<long long>(1, length));
        return static_cast<std::size_t>(std::clamp<long long>(x / perChar, 0, length));
    }
    return KyX11TextRun(resolved, text.view()).indexAt(x);
}

bool KyWidgetPlatformAdapter::fontCoversText(const KyWidgetPlatformHandle& handle, const KyFont& font,
                                             const KyString& text) {
    Display* display = displayOf(handle);
    if (!display || text.isEmpty()) return false;
    // The cache would hand back a stand-in face for a family the server lacks;
    // asking the server's font list tells the two apart. Font directories
    // spell a family with blanks or with dashes, as the cache tries them.
    std::string family = KyLinuxFontCache::keyFor(font).family;
    int count = 0;
    for (int spelling = 0; spelling < 2 && count == 0; ++spelling) {
        if (spelling == 1) std::replace(family.begin(), family.end(), '-', ' ');
        const std::string pattern = "-*-" + family + "-*";
        if (char** names = XListFonts(display, pattern.c_str(), 1, &count)) XFreeFontNames(names);
    }
    if (count == 0) return false;
    const KyLinuxFontCache::Resolved resolved = KyLinuxFontCache::resolve(display, font, text.view());
    return resolved.font && KyX11TextRun(resolved, text.view()).coversAll();
}

// ---------------------------------------------------------------------------
// Keys

namespace {

// Latin-1 letters come in case pairs 0x20 apart, except the multiplication
// and division signs in the middle of each half.
bool isLatin1Upper(int c) { return (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7); }
bool isLatin1Lower(int c) { return (c >= 'a' && c <= 'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7); }

int keypadCharacter(int key) {
    if (key >= XK_KP_0 && key <= XK_KP_9) return '0' + (key - XK_KP_0);
    switch (key) {
    case XK_KP_Space: return ' ';
    case XK_KP_Multiply: return '*';
    case XK_KP_Add: return '+';
    case XK_KP_Separator: return ',';
    case XK_KP_Subtract: return '-';
    case XK_KP_Decimal: return '.';
    case XK_KP_Divide: return '/';
    case XK_KP_Equal: return '=';
    default: return 0;
    }
}

// The character of a legacy Cyrillic or Greek keysym (the ones Russian,
// Ukrainian, Serbian and Greek layouts use), or 0. Cyrillic letters run in
// KOI8 order from 0x6C0 (lower case) and 0x6E0 (upper case); the Greek
// alphabet from 0x7E1 and 0x7C1 has sigma before final sigma, the other way
// round from Unicode.
int legacyKeysymCharacter(int key) {
    static constexpr char16_t kCyrillicExtra[15] = {0x452, 0x453, 0x451, 0x454, 0x455, 0x456, 0x457, 0x458,
                                                    0x459, 0x45A, 0x45B, 0x45C, 0x491, 0x45E, 0x45F};
    static constexpr char16_t kCyrillicExtraUpper[15] = {0x402, 0x403, 0x401, 0x404, 0x405, 0x406, 0x407, 0x408,
                                                         0x409, 0x40A, 0x40B, 0x40C, 0x490, 0x40E, 0x40F};
    static constexpr char16_t kKoi8Lower[32] = {0x44E, 0x430, 0x431, 0x446, 0x434, 0x435, 0x444, 0x433,
                                                0x445, 0x438, 0x439, 0x43A, 0x43B, 0x43C, 0x43D, 0x43E,
                                                0x43F, 0x44F, 0x440, 0x441, 0x442, 0x443, 0x436, 0x432,
                                                0x44C, 0x44B, 0x437, 0x448, 0x44D, 0x449, 0x447, 0x44A};
    if (key >= 0x6A1 && key <= 0x6AF) return kCyrillicExtra[key - 0x6A1];
    if (key == 0x6B0) return 0x2116; // numero sign
    if (key >= 0x6B1 && key <= 0x6BF) return kCyrillicExtraUpper[key - 0x6B1];
    if (key >= 0x6C0 && key <= 0x6DF) return kKoi8Lower[key - 0x6C0];
    if (key >= 0x6E0 && key <= 0x6FF) return kKoi8Lower[key - 0x6E0] - 0x20;
    auto greek = [](int offset, int base) {
        if (offset == 17) return base + 18; // sigma
        if (offset == 18) return base + 17; // final sigma (lower case only)
        return base + offset;
    };
    if (key >= 0x7E1 && key <= 0x7F9) return greek(key - 0x7E1, 0x3B1);
    if (key >= 0x7C1 && key <= 0x7D9 && key != 0x7D3) return greek(key - 0x7C1, 0x391);
    return 0;
}

} // namespace

bool KyWidgetPlatformAdapter::translateCharacter(int key, bool shift, bool caps, wchar_t& out) {
    const bool upper = shift != caps;
    if ((key >= 0x20 && key <= 0x7E) || (key >= 0xA0 && key <= 0xFF)) {
        int c = key;
        // The keysym may already be shifted; the case comes from shift and caps alone.
        if (isLatin1Upper(c) && !upper) c += 0x20;
        else if (isLatin1Lower(c) && upper) c -= 0x20;
        out = static_cast<wchar_t>(c);
        return true;
    }
    // Keysyms 0x01000000 + code point name any Unicode character directly.
    if (key >= 0x01000100 && key <= 0x0110FFFF) {
        out = static_cast<wchar_t>(key - 0x01000000);
        return true;
    }
    // Layouts beyond Latin-1 send letters already in their case.
    if (const int c = legacyKeysymCharacter(key)) {
        out = static_cast<wchar_t>(c);
        return true;
    }
    if (const int c = keypadCharacter(key)) {
        out = static_cast<wchar_t>(c);
        return true;
    }
    return false;
}

bool KyWidgetPlatformAdapter::matchesShortcutKey(int key, char ch) {
    if (key < 0x20 || key > 0x7E) return false;
    return std::tolower(static_cast<unsigned char>(key)) == std::tolower(static_cast<unsigned char>(ch));
}

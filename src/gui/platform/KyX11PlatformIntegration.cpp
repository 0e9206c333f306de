// KyX11PlatformIntegration: connection, windows and the event pump. The
// clipboard lives in KyX11Clipboard.cpp.
#include "gui/platform/KyX11PlatformIntegration.h"

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include <errno.h>
#include <unistd.h>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyIoDispatcher.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyLinuxFontCache.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/platform/KyX11Painter.h"
#include "gui/platform/KyX11PlatformImage.h"
#include "gui/platform/KyX11PlatformWindow.h"
#include "gui/platform/KyX11TrayIcon.h"

namespace {

constexpr const char* kCategory = "ky.gui.platform.x11";
// KeyPress, KeyRelease, ButtonPress, ButtonRelease, LeaveWindow, PointerMotion,
// Exposure, StructureNotify. EnterWindow is deliberately left out.
constexpr long kWindowEventMask = 0x2806F;
constexpr unsigned long kWindowBackground = 0xF9F9F9;

int logXError(Display* display, XErrorEvent* error) {
    char text[256] = {0};
    XGetErrorText(display, error->error_code, text, sizeof text - 1);
    kyLogWarning(kCategory).nospace() << "X error " << static_cast<int>(error->error_code) << " (" << text
                                      << ") on request " << static_cast<int>(error->request_code) << "."
                                      << static_cast<int>(error->minor_code) << ", resource "
                                      << static_cast<unsigned long>(error->resourceid);
    return 0;
}

// Shift from bit 0, ctrl from bit 2, alt (Mod1) from bit 3.
template <typename E> void readModifiers(unsigned state, E& event) {
    event.shift = (state & ShiftMask) != 0;
    event.ctrl = (state & ControlMask) != 0;
    event.alt = (state & Mod1Mask) != 0;
}

int mapButton(unsigned xButton) {
    switch (xButton) {
    case Button1: return 1;
    case Button2: return 3; // middle
    case Button3: return 2; // right: the lower number, deliberately
    default: return 4;
    }
}

// Runs an input callback on lane 1 of this thread's loop, or at once without one.
template <typename Arg> void postCallback(const std::function<void(Arg)>& callback, const Arg& arg) {
    if (!callback) return;
    if (KyCoreApplication* app = KyCoreApplication::instance(false))
        app->postEventOnLane([callback, arg] { callback(arg); }, KyFiberLaneInput);
    else
        callback(arg);
}

void postCallback(const std::function<void()>& callback) {
    if (!callback) return;
    if (KyCoreApplication* app = KyCoreApplication::instance(false))
        app->postEventOnLane(callback, KyFiberLaneInput);
    else
        callback();
}

// The first character of what XLookupString typed. The bytes are UTF-8 when
// they decode as such; otherwise they are the Latin-1 that XLookupString
// gives for accented keys, one character per byte.
bool firstTypedCharacter(const char* bytes, int count, wchar_t& out) {
    if (count <= 0) return false;
    const KyString typed(bytes, static_cast<std::size_t>(count));
    if (typed.isValidUtf8()) {
        const std::u32string decoded = typed.toUtf32();
        if (decoded.empty()) return false;
        out = static_cast<wchar_t>(decoded.front());
        return true;
    }
    out = static_cast<wchar_t>(static_cast<unsigned char>(bytes[0]));
    return true;
}

} // namespace

KyX11PlatformIntegration::~KyX11PlatformIntegration() { shutdown(); }

void KyX11PlatformIntegration::initialize(KyGuiApplication* application) {
    if (display_) return;
    application_ = application;
    XInitThreads();
    display_ = XOpenDisplay(nullptr);
    if (!display_) throw std::runtime_error("Unable to connect to the X server.");
    XSetErrorHandler(&logXError);
    // A held key repeats as presses alone: without this the server sends a
    // release before every repeated press, and holding Space on a button
    // would click it again and again.
    XkbSetDetectableAutoRepeat(display_, True, nullptr);
    screen_ = DefaultScreen(display_);
    // One round trip for all of them: start-up waits on each one.
    // "WM_PROTOCOLS" rides along so that XSetWMProtocols finds it in Xlib's
    // atom cache.
    char* names[] = {const_cast<char*>("WM_DELETE_WINDOW"), const_cast<char*>("CLIPBOARD"),
                     const_cast<char*>("TARGETS"),          const_cast<char*>("UTF8_STRING"),
                     const_cast<char*>("TEXT"),             const_cast<char*>("KY_INTERNAL_CLIPBOARD"),
                     const_cast<char*>("WM_PROTOCOLS"),     const_cast<char*>("_NET_ACTIVE_WINDOW")};
    Atom atoms[8] = {};
    XInternAtoms(display_, names, 8, False, atoms);
    wmDeleteWindow_ = atoms[0];
    clipboard_ = atoms[1];
    targets_ = atoms[2];
    utf8String_ = atoms[3];
    text_ = atoms[4];
    internalClipboard_ = atoms[5];
    netActiveWindow_ = atoms[7];
    ensureClipboardWindow_();
    if (KyCoreApplication* loop = KyCoreApplication::instance(false)) {
        // The dispatcher's thread only sees readiness; the events are drained
        // on the GUI thread, on lane 0, ahead of everything else.
        watchId_ = loop->ioDispatcher()->watchFd(
            ConnectionNumber(display_), KyIoDispatcher::Readable,
            [loop](std::function<void()> fn) { loop->postEventOnLane(std::move(fn), KyFiberLaneUrgent); },
            [this](int, uint32_t) { processPlatformEvents(); });
        if (watchId_) watchingLoop_ = loop;
    }
}

void KyX11PlatformIntegration::ensureClipboardWindow_() {
    if (!display_ || clipboardWindow_) return;
    clipboardWindow_ = XCreateSimpleWindow(display_, RootWindow(display_, screen_), 0, 0, 1, 1, 0,
                                           BlackPixel(display_, screen_), BlackPixel(display_, screen_));
    XSelectInput(display_, clipboardWindow_, StructureNotifyMask | PropertyChangeMask);
}

void KyX11PlatformIntegration::shutdown() {
    if (watchId_ && watchingLoop_) watchingLoop_->ioDispatcher()->unwatch(watchId_);
    watchId_ = 0;
    watchingLoop_ = nullptr;
    if (!display_) return;
    {
        std::lock_guard lock(windowsMutex_);
        for (auto& [id, window] : windows_) window->destroyNative_();
        windows_.clear();
    }
    if (clipboardWindow_) XDestroyWindow(display_, clipboardWindow_);
    clipboardWindow_ = 0;
    KyLinuxFontCache::forgetDisplay(display_);
    XCloseDisplay(display_);
    display_ = nullptr;
}

std::unique_ptr<KyPlatformWindow> KyX11PlatformIntegration::createWindow(const KyString& title, int width, int height,
                                                                         const KyWindowCallbacks& callbacks,
                                                                         const KyPlatformWindowOptions&) {
    if (!display_) throw std::runtime_error("X11 backend is not initialized.");
    auto window = std::make_unique<KyX11PlatformWindow>(this, display_, callbacks);
    if (!display_) throw std::runtime_error("Cannot create X11 window without a display.");
    const int w = std::max(1, width);
    const int h = std::max(1, height);
    XSetWindowAttributes attributes{};
    attributes.background_pixel = kWindowBackground;
    attributes.border_pixel = BlackPixel(display_, screen_);
    attributes.event_mask = kWindowEventMask;
    const Window id = XCreateWindow(display_, RootWindow(display_, screen_), 0, 0, static_cast<unsigned>(w),
                                    static_cast<unsigned>(h), 0, DefaultDepth(display_, screen_), InputOutput,
                                    DefaultVisual(display_, screen_), CWBackPixel | CWBorderPixel | CWEventMask,
                                    &attributes);
    if (!id) throw std::runtime_error("Failed to create X11 window.");
    XSelectInput(display_, id, kWindowEventMask);
    XSetWMProtocols(display_, id, &wmDeleteWindow_, 1);
    // The window takes the keyboard when the window manager hands it over.
    XWMHints hints{};
    hints.flags = InputHint | StateHint;
    hints.input = True;
    hints.initial_state = NormalState;
    XSetWMHints(display_, id, &hints);
    GC gc = XCreateGC(display_, id, 0, nullptr);
    window->attach_(id, gc, KyPlatformSize{w, h});
    window->setTitle(title);
    setWindowIdentity_(id);
    std::lock_guard lock(windowsMutex_);
    windows_[id] = window.get();
    return window;
}

void KyX11PlatformIntegration::setWindowIdentity_(Window id) {
    // Task bars group windows by WM_CLASS and find their process by
    // _NET_WM_PID, which only counts together with WM_CLIENT_MACHINE.
    const KyString instance = program_invocation_short_name ? program_invocation_short_name : "velmo";
    KyString klass = instance;
    if (!klass.isEmpty() && klass[0] >= 'a' && klass[0] <= 'z') klass[0] = static_cast<char>(klass[0] - 'a' + 'A');
    XClassHint hint;
    hint.res_name = const_cast<char*>(instance.c_str());
    hint.res_class = const_cast<char*>(klass.c_str());
    XSetClassHint(display_, id, &hint);
    char host[256] = {0};
    if (gethostname(host, sizeof host - 1) == 0) {
        XTextProperty property{};
        char* list[] = {host};
        if (XStringListToTextProperty(list, 1, &property)) {
            XSetWMClientMachine(display_, id, &property);
            XFree(property.value);
        }
    }
    const unsigned long pid = static_cast<unsigned long>(getpid());
    XChangeProperty(display_, id, XInternAtom(display_, "_NET_WM_PID", False), XA_CARDINAL, 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(&pid), 1);
}

void KyX11PlatformIntegration::unregisterWindow_(Window window) {
    std::lock_guard lock(windowsMutex_);
    windows_.erase(window);
}

std::unique_ptr<KyPlatformPainter> KyX11PlatformIntegration::createPainter() {
    if (!display_) throw std::runtime_error("X11 backend must be initialized before creating a painter.");
    return std::make_unique<KyX11Painter>();
}

std::unique_ptr<KyPlatformImage> KyX11PlatformIntegration::createImage(KyPlatformSize size, KyPixelFormat format) {
    const int value = static_cast<int>(format);
    if (value < 0 || value > 4) throw std::runtime_error("Unsupported pixel format for X11 images.");
    return std::make_unique<KyX11PlatformImage>(size, format);
}

void KyX11PlatformIntegration::wakeUpGuiThread() {
    if (display_) XFlush(display_);
}

KyList<KyString> KyX11PlatformIntegration::availableScreens() {
    KyList<KyString> screens;
    if (!display_) return screens;
    for (int i = 0; i < ScreenCount(display_); ++i) {
        screens.push_back(KyString("Screen ") + KyString::number(i) + " (" + KyString::number(DisplayWidth(display_, i)) +
                          "x" + KyString::number(DisplayHeight(display_, i)) + ")");
    }
    return screens;
}

bool KyX11PlatformIntegration::findWindowCallbacks_(Window window, KyWindowCallbacks& out, KyPlatformSize* size) {
    std::lock_guard lock(windowsMutex_);
    auto it = windows_.find(window);
    if (it == windows_.end()) return false;
    out = it->second->callbacks();
    if (size) *size = it->second->size();
    return true;
}

// ---------------------------------------------------------------------------
// The pump

void KyX11PlatformIntegration::sync() {
    if (display_) XSync(display_, False);
}

void KyX11PlatformIntegration::processPlatformEvents() {
    if (!display_) return;
    while (display_ && XPending(display_) > 0) {
        XEvent event;
        XNextEvent(display_, &event);
        dispatch_(event);
    }
}

int KyX11PlatformIntegration::addEventFilter(EventFilter filter) {
    const int id = ++nextFilterId_;
    eventFilters_.emplace_back(id, std::move(filter));
    return id;
}

void KyX11PlatformIntegration::removeEventFilter(int id) {
    std::erase_if(eventFilters_, [id](const auto& entry) { return entry.first == id; });
}

std::unique_ptr<KyPlatformTrayIcon> KyX11PlatformIntegration::createTrayIcon(KyPlatformWindow* window) {
    if (!display_ || !window || !window->nativeHandle()) return nullptr;
    return std::make_unique<KyX11TrayIcon>(this, static_cast<Window>(window->nativeHandle()));
}

void KyX11PlatformIntegration::dispatch_(XEvent& event) {
    if (!eventFilters_.empty()) {
        // A copy: a filter may add or remove filters.
        const auto filters = eventFilters_;
        for (const auto& [id, filter] : filters)
            if (filter(event)) return;
    }
    switch (event.type) {
    case KeyPress:
    case KeyRelease:
        handleKey_(event.xkey);
        break;
    case ButtonPress:
    case ButtonRelease:
        handleButton_(event.xbutton);
        break;
    case MotionNotify: {
        KyWindowCallbacks callbacks;
        if (!findWindowCallbacks_(event.xmotion.window, callbacks)) break;
        KyMouseEvent mouse;
        mouse.x = event.xmotion.x;
        mouse.y = event.xmotion.y;
        readModifiers(event.xmotion.state, mouse);
        postCallback(callbacks.mouseMoved, mouse);
        break;
    }
    case LeaveNotify: {
        // Crossings into a child window or caused by grabs are not the pointer leaving.
        if (event.xcrossing.mode != NotifyNormal || event.xcrossing.detail == NotifyInferior) break;
        KyWindowCallbacks callbacks;
        if (findWindowCallbacks_(event.xcrossing.window, callbacks)) postCallback(callbacks.mouseLeft);
        break;
    }
    case Expose:
        handleExpose_(event.xexpose);
        break;
    case ConfigureNotify:
        handleConfigure_(event.xconfigure);
        break;
    case SelectionClear: {
        const Atom selection = event.xselectionclear.selection;
        if (event.xselectionclear.window == clipboardWindow_ && (selection == XA_PRIMARY || selection == clipboard_)) {
            std::lock_guard lock(clipboardMutex_);
            clipboardTextUtf8_.clear();
        }
        break;
    }
    case SelectionRequest:
        handleSelectionRequest_(event.xselectionrequest);
        break;
    case ClientMessage:
        handleClientMessage_(event.xclient);
        break;
    case MappingNotify:
        // A new keyboard layout: key translation must use the new keymap.
        XRefreshKeyboardMapping(&event.xmapping);
        break;
    default:
        break;
    }
}

void KyX11PlatformIntegration::handleKey_(XKeyEvent& event) {
    KyWindowCallbacks callbacks;
    if (!findWindowCallbacks_(event.window, callbacks)) return;
    char bytes[32] = {0};
    KeySym keysym = NoSymbol;
    const int count = XLookupString(&event, bytes, 31, &keysym, nullptr);
    KyKeyEvent key;
    key.keyCode = static_cast<std::int32_t>(keysym);
    readModifiers(event.state, key);
    // With Control or Alt held a key is a command, never text.
    if ((event.state & (ControlMask | Mod1Mask)) == 0) {
        if (count > 0) {
            key.hasText = firstTypedCharacter(bytes, count, key.text);
        } else if (keysym > 0xFF) {
            // Keysyms beyond Latin-1 (a Cyrillic or Greek layout, Unicode
            // keysyms) type nothing through XLookupString: their character
            // comes from the keysym itself, already in its case.
            key.hasText = KyWidgetPlatformAdapter::translateCharacter(static_cast<int>(keysym), false, false, key.text);
        }
    }
    postCallback(event.type == KeyPress ? callbacks.keyPressed : callbacks.keyReleased, key);
}

void KyX11PlatformIntegration::handleButton_(const XButtonEvent& event) {
    KyWindowCallbacks callbacks;
    if (!findWindowCallbacks_(event.window, callbacks)) return;
    const bool press = event.type == ButtonPress;
    KyMouseEvent mouse;
    mouse.x = event.x;
    mouse.y = event.y;
    readModifiers(event.state, mouse);
    if (press && (event.button == Button4 || event.button == Button5)) {
        // A wheel notch is its press alone.
        mouse.wheelDelta = event.button == Button4 ? 120 : -120;
        postCallback(callbacks.wheelRotated, mouse);
        return;
    }
    mouse.button = mapButton(event.button);
    mouse.clickCount = 1;
    if (press) {
        // Time wraps every 49 days; the unsigned difference stays right across it.
        const bool doubleClick = mouse.button == lastPressButton_ &&
                                 static_cast<std::uint32_t>(event.time - lastPressTime_) < 251u &&
                                 std::abs(event.x - lastPressX_) <= 2 && std::abs(event.y - lastPressY_) <= 2;
        lastPressTime_ = event.time;
        lastPressButton_ = mouse.button;
        lastPressX_ = event.x;
        lastPressY_ = event.y;
        if (doubleClick) {
            mouse.clickCount = 2;
            postCallback(callbacks.mouseDoubleClicked, mouse);
        }
        postCallback(callbacks.mousePressed, mouse);
    } else {
        postCallback(callbacks.mouseReleased, mouse);
    }
}

void KyX11PlatformIntegration::handleExpose_(const XExposeEvent& event) {
    // Only the Expose we sent ourselves ends the one in flight; one from the
    // server (a window uncovered meanwhile) must not let a second one leave.
    if (event.window && event.send_event) KyWidgetPlatformAdapter::finishSyntheticExpose(event.window);
    KyWindowCallbacks callbacks;
    KyPlatformSize size;
    if (!findWindowCallbacks_(event.window, callbacks, &size) || !callbacks.paintRequested) return;
    // Every Expose paints, whatever its count: the backbuffer makes a repaint cheap.
    KyPlatformPaintEvent paint;
    paint.dirtyRect[0] = event.x;
    paint.dirtyRect[1] = event.y;
    paint.dirtyRect[2] = event.width;
    paint.dirtyRect[3] = event.height;
    paint.surfaceSize = size;
    paint.nativeWindow = event.window;
    paint.nativeDrawable = event.window;
    paint.nativeDisplay = display_;
    callbacks.paintRequested(paint);
}

void KyX11PlatformIntegration::handleConfigure_(const XConfigureEvent& event) {
    KyWindowCallbacks callbacks;
    const KyPlatformSize size{event.width, event.height};
    {
        std::lock_guard lock(windowsMutex_);
        auto it = windows_.find(event.window);
        if (it == windows_.end()) return;
        it->second->setSize_(size);
        callbacks = it->second->callbacks();
    }
    if (callbacks.resized) callbacks.resized(size);
    KyWidgetPlatformAdapter::flushDamage();
}

void KyX11PlatformIntegration::handleClientMessage_(const XClientMessageEvent& event) {
    // Only the first data word is compared; the message type is not looked at.
    if (static_cast<Atom>(event.data.l[0]) != wmDeleteWindow_) return;
    KyWindowCallbacks callbacks;
    if (!findWindowCallbacks_(event.window, callbacks)) return;
    if (callbacks.closeAllowed && !callbacks.closeAllowed()) return;
    postCallback(callbacks.deleteRequested);
}

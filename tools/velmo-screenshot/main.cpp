// velmo-screenshot: the screenshot tool of `make screenshots`. It talks core
// X11 only (no input extension): it finds windows by title, class and size,
// reads the screen back with XGetImage and writes PNG files with the project's
// own encoder; for the tray menu it moves the pointer onto the tray icon
// (XWarpPointer) and sends it a right click with XSendEvent.
//
//   velmo-screenshot window   --title T [--width W] [--settle MS] [--timeout S] -o FILE
//   velmo-screenshot tray-menu --class C [--settle MS] [--timeout S] -o FILE
//   velmo-screenshot screen   -o FILE
//   velmo-screenshot forget-domain DOMAIN
//
// "window" waits for a viewable window titled T (and W pixels wide, when
// given), lets it settle, and saves it with its window-manager frame.
// "tray-menu" opens the menu of the tray icon of class C and saves the menu
// with the tray around it. "forget-domain" unlinks the shared objects that
// the signal registry of an IPC domain names, and the domain's registries,
// once every process of that domain has ended (a screenshot run's domain is
// never used again). Exit status: 0 done, 1 not found in time or failed, 2
// bad command line.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "VelmoPngWriter.h"
#include "ipc/IpcNames.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::string command, title, windowClass, out, domain;
    int width = 0;
    int settleMs = 1500;
    int timeoutS = 20;
};

struct Box {
    int x = 0, y = 0, w = 0, h = 0;
};

int errorHandler(Display*, XErrorEvent*) { return 0; }  // windows may vanish while we look

std::string titleOf(Display* d, Window w) {
    Atom type;
    int format;
    unsigned long count, after;
    unsigned char* data = nullptr;
    std::string title;
    if (XGetWindowProperty(d, w, XInternAtom(d, "_NET_WM_NAME", False), 0, 1024, False,
                           XInternAtom(d, "UTF8_STRING", False), &type, &format, &count, &after, &data) == Success &&
        data) {
        title.assign(reinterpret_cast<char*>(data), count);
        XFree(data);
        if (!title.empty()) return title;
    }
    char* name = nullptr;
    if (XFetchName(d, w, &name) && name) {
        title = name;
        XFree(name);
    }
    return title;
}

std::string classOf(Display* d, Window w) {
    XClassHint hint{};
    if (!XGetClassHint(d, w, &hint)) return {};
    std::string klass = hint.res_class ? hint.res_class : "";
    if (hint.res_name) XFree(hint.res_name);
    if (hint.res_class) XFree(hint.res_class);
    return klass;
}

void collect(Display* d, Window w, std::vector<Window>& out) {
    Window root, parent, *children = nullptr;
    unsigned int n = 0;
    if (!XQueryTree(d, w, &root, &parent, &children, &n)) return;
    for (unsigned int i = 0; i < n; ++i) {
        out.push_back(children[i]);
        collect(d, children[i], out);
    }
    if (children) XFree(children);
}

Box boxOf(Display* d, Window w) {
    XWindowAttributes a{};
    Box b;
    if (!XGetWindowAttributes(d, w, &a)) return b;
    Window child;
    XTranslateCoordinates(d, w, DefaultRootWindow(d), 0, 0, &b.x, &b.y, &child);
    b.w = a.width;
    b.h = a.height;
    return b;
}

// The window manager's frame around a client: its ancestor just below the root.
Window frameOf(Display* d, Window w) {
    for (;;) {
        Window root, parent, *children = nullptr;
        unsigned int n = 0;
        if (!XQueryTree(d, w, &root, &parent, &children, &n)) return w;
        if (children) XFree(children);
        if (parent == root || parent == 0) return w;
        w = parent;
    }
}

bool viewable(Display* d, Window w, XWindowAttributes& a) {
    return XGetWindowAttributes(d, w, &a) && a.map_state == IsViewable;
}

// Polls every 100 ms until pick() names a window or the time is up.
template <class Pick>
Window waitFor(Display* d, int timeoutS, Pick pick) {
    const auto end = Clock::now() + std::chrono::seconds(timeoutS);
    do {
        std::vector<Window> all;
        collect(d, DefaultRootWindow(d), all);
        if (Window w = pick(all)) return w;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    } while (Clock::now() < end);
    return 0;
}

bool save(Display* d, Box b, const std::string& file) {
    const int sw = DisplayWidth(d, DefaultScreen(d)), sh = DisplayHeight(d, DefaultScreen(d));
    const int x0 = std::max(0, b.x), y0 = std::max(0, b.y);
    const int x1 = std::min(sw, b.x + b.w), y1 = std::min(sh, b.y + b.h);
    if (x1 <= x0 || y1 <= y0) return false;
    XImage* image = XGetImage(d, DefaultRootWindow(d), x0, y0, static_cast<unsigned>(x1 - x0),
                              static_cast<unsigned>(y1 - y0), AllPlanes, ZPixmap);
    if (!image) return false;
    const auto shiftOf = [](unsigned long mask) {
        int s = 0;
        while (mask && !(mask & 1)) mask >>= 1, ++s;
        return s;
    };
    const int rs = shiftOf(image->red_mask), gs = shiftOf(image->green_mask), bs = shiftOf(image->blue_mask);
    std::vector<std::uint32_t> argb(static_cast<std::size_t>(image->width) * image->height);
    for (int y = 0; y < image->height; ++y)
        for (int x = 0; x < image->width; ++x) {
            const unsigned long p = XGetPixel(image, x, y);
            argb[static_cast<std::size_t>(y) * image->width + x] =
                0xFF000000u | ((p & image->red_mask) >> rs & 0xFF) << 16 | ((p & image->green_mask) >> gs & 0xFF) << 8 |
                ((p & image->blue_mask) >> bs & 0xFF);
        }
    std::string error;
    const bool ok = velmo::png::writeArgb(file, image->width, image->height, argb, &error);
    XDestroyImage(image);
    if (!ok) std::fprintf(stderr, "velmo-screenshot: %s\n", error.c_str());
    return ok;
}

void settle(Display* d, int ms) {
    XSync(d, False);
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

int shootWindow(Display* d, const Options& o) {
    const Window w = waitFor(d, o.timeoutS, [&](const std::vector<Window>& all) -> Window {
        for (Window c : all) {
            XWindowAttributes a{};
            if (viewable(d, c, a) && (o.width == 0 || a.width == o.width) && titleOf(d, c) == o.title) return c;
        }
        return 0;
    });
    if (!w) {
        std::fprintf(stderr, "velmo-screenshot: no window \"%s\"%s within %d s\n", o.title.c_str(),
                     o.width ? (" " + std::to_string(o.width) + " px wide").c_str() : "", o.timeoutS);
        return 1;
    }
    settle(d, o.settleMs);
    return save(d, boxOf(d, frameOf(d, w)), o.out) ? 0 : 1;
}

int shootTrayMenu(Display* d, const Options& o) {
    const Window root = DefaultRootWindow(d);
    // The icon: a small window of the class, taken in by the tray (not a child of the root).
    const Window icon = waitFor(d, o.timeoutS, [&](const std::vector<Window>& all) -> Window {
        for (Window c : all) {
            XWindowAttributes a{};
            if (viewable(d, c, a) && a.width <= 64 && a.height <= 64 && frameOf(d, c) != c &&
                classOf(d, c) == o.windowClass)
                return c;
        }
        return 0;
    });
    if (!icon) {
        std::fprintf(stderr, "velmo-screenshot: no tray icon of class %s within %d s\n", o.windowClass.c_str(),
                     o.timeoutS);
        return 1;
    }
    settle(d, 300);
    const Box at = boxOf(d, icon);
    XWarpPointer(d, None, root, 0, 0, 0, 0, at.x + at.w / 2, at.y + at.h / 2);
    for (int type : {ButtonPress, ButtonRelease}) {
        XEvent e{};
        e.xbutton.type = type;
        e.xbutton.display = d;
        e.xbutton.window = icon;
        e.xbutton.root = root;
        e.xbutton.subwindow = None;
        e.xbutton.time = CurrentTime;
        e.xbutton.x = at.w / 2;
        e.xbutton.y = at.h / 2;
        e.xbutton.x_root = at.x + at.w / 2;
        e.xbutton.y_root = at.y + at.h / 2;
        e.xbutton.state = type == ButtonRelease ? Button3Mask : 0;
        e.xbutton.button = Button3;
        e.xbutton.same_screen = True;
        XSendEvent(d, icon, True, type == ButtonPress ? ButtonPressMask : ButtonReleaseMask, &e);
        XFlush(d);
    }
    // The menu: the largest viewable popup (override-redirect) window of the class.
    const Window menu = waitFor(d, 5, [&](const std::vector<Window>& all) -> Window {
        Window best = 0;
        long bestArea = 0;
        for (Window c : all) {
            XWindowAttributes a{};
            if (!viewable(d, c, a) || !a.override_redirect || classOf(d, c) != o.windowClass) continue;
            if (static_cast<long>(a.width) * a.height > bestArea) best = c, bestArea = static_cast<long>(a.width) * a.height;
        }
        return best;
    });
    if (!menu) {
        std::fprintf(stderr, "velmo-screenshot: the tray menu did not open\n");
        return 1;
    }
    settle(d, o.settleMs);
    const Box m = boxOf(d, menu), t = boxOf(d, frameOf(d, icon));
    const int pad = 24;
    Box u;
    u.x = std::min(m.x, t.x) - pad;
    u.y = std::min(m.y, t.y) - pad;
    u.w = std::max(m.x + m.w, t.x + t.w) + pad - u.x;
    u.h = std::max(m.y + m.h, t.y + t.h) + pad - u.y;
    return save(d, u, o.out) ? 0 : 1;
}

// Unlinks what the domain's signal registry names, and the registries.
int forgetDomain(const std::string& domain) {
    const std::string suffix = ky::ipc::detail::sanitizeRegistrySuffix_(domain).toStdString();
    const std::string registry = "/ky_ipc_registry_" + suffix;
    std::set<std::string> names = {registry, "/ky_ipc_subs_" + suffix};
    const int fd = shm_open(registry.c_str(), O_RDONLY, 0);
    struct stat st{};
    if (fd >= 0 && fstat(fd, &st) == 0 && st.st_size >= 56) {
        void* p = mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_SHARED, fd, 0);
        if (p != MAP_FAILED) {
            // Rows of 640 bytes from offset 56, the channel's object name at 32 in each.
            const char* base = static_cast<const char*>(p);
            std::uint32_t count = 0;
            std::memcpy(&count, base + 8, 4);
            for (std::uint32_t i = 0; i < count && 56 + (i + 1) * 640ULL <= static_cast<unsigned long long>(st.st_size); ++i)
                names.insert(std::string(base + 56 + i * 640ULL + 32, strnlen(base + 56 + i * 640ULL + 32, 64)));
            munmap(p, static_cast<size_t>(st.st_size));
        }
    }
    if (fd >= 0) close(fd);
    for (const std::string& n : names)
        if (!n.empty()) shm_unlink(n.c_str());
    return 0;
}

int usage() {
    std::fputs("usage: velmo-screenshot window --title T [--width W] [--settle MS] [--timeout S] -o FILE\n"
               "       velmo-screenshot tray-menu --class C [--settle MS] [--timeout S] -o FILE\n"
               "       velmo-screenshot screen -o FILE\n"
               "       velmo-screenshot forget-domain DOMAIN\n",
               stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage();
    Options o;
    o.command = argv[1];
    if (o.command == "forget-domain") return argc == 3 ? forgetDomain(argv[2]) : usage();
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        if (i + 1 >= argc) return usage();
        const char* v = argv[++i];
        if (a == "--title") o.title = v;
        else if (a == "--class") o.windowClass = v;
        else if (a == "--width") o.width = std::atoi(v);
        else if (a == "--settle") o.settleMs = std::atoi(v);
        else if (a == "--timeout") o.timeoutS = std::atoi(v);
        else if (a == "-o") o.out = v;
        else return usage();
    }
    if (o.out.empty()) return usage();
    Display* d = XOpenDisplay(nullptr);
    if (!d) {
        std::fputs("velmo-screenshot: cannot open the display\n", stderr);
        return 1;
    }
    XSetErrorHandler(errorHandler);
    int status = 2;
    if (o.command == "window" && !o.title.empty()) status = shootWindow(d, o);
    else if (o.command == "tray-menu" && !o.windowClass.empty()) status = shootTrayMenu(d, o);
    else if (o.command == "screen") {
        settle(d, o.settleMs);
        status = save(d, Box{0, 0, DisplayWidth(d, DefaultScreen(d)), DisplayHeight(d, DefaultScreen(d))}, o.out) ? 0 : 1;
    } else status = usage();
    XCloseDisplay(d);
    return status;
}

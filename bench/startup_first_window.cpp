// Process start to first window, for a whole program: the console (or any
// command) is started N times, alternating with a bare Xlib program that maps
// one window, and each start is timed from fork to the first MapNotify of a
// top-level window on the X server, seen by this program's own connection.
// Same run, same server, so the ratio holds on a noisy machine.
//
//   startup_first_window N PROGRAM [ARGS...]     (DISPLAY must be set)
//
// Each start is timed twice: to the map, and to the first frame on screen
// (the window read back until it shows more than its background colour).
// Prints the median of each and their ratio. Nothing here asserts.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// True once the window shows more than one colour: its first frame has
// landed, not just the background the server fills a fresh window with.
bool showsContent(Display* display, Window window) {
    XWindowAttributes a{};
    if (!XGetWindowAttributes(display, window, &a) || a.map_state != IsViewable) return false;
    // The same corner of at most 400x300 for both programs, so that reading
    // back costs the server the same.
    const int w = std::min(a.width, 400), h = std::min(a.height, 300);
    XImage* image = XGetImage(display, window, 0, 0, w, h, AllPlanes, ZPixmap);
    if (!image) return false;
    const unsigned long first = XGetPixel(image, 0, 0);
    bool content = false;
    for (int y = 0; y < h && !content; ++y)
        for (int x = 0; x < w && !content; ++x) content = XGetPixel(image, x, y) != first;
    XDestroyImage(image);
    return content;
}

struct Start {
    double mapped = -1;   // first MapNotify of a top-level window
    double painted = -1;  // that window shows its first frame
};

Start timeToFirstWindow(Display* display, char* const argv[]) {
    XSelectInput(display, DefaultRootWindow(display), SubstructureNotifyMask);
    XSync(display, True);
    const auto start = Clock::now();
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::execv(argv[0], argv);
        ::_exit(127);
    }
    auto since = [start] { return std::chrono::duration<double, std::milli>(Clock::now() - start).count(); };
    Start result;
    Window window = 0;
    const auto deadline = start + std::chrono::seconds(20);
    while (Clock::now() < deadline && result.painted < 0) {
        while (XPending(display)) {
            XEvent e;
            XNextEvent(display, &e);
            if (e.type == MapNotify && result.mapped < 0) {
                result.mapped = since();
                window = e.xmap.window;
            }
        }
        // Reading the window back costs the server a little; every 3 ms is
        // fine enough and the same for both programs.
        if (window && showsContent(display, window)) result.painted = since();
        ::usleep(window ? 3000 : 200);
    }
    ::kill(pid, SIGTERM);
    ::waitpid(pid, nullptr, 0);
    return result;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? -1 : v[v.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: startup_first_window N PROGRAM [ARGS...]\n");
        return 2;
    }
    Display* display = XOpenDisplay(nullptr);
    if (!display) {
        std::fprintf(stderr, "startup_first_window: cannot open the display\n");
        return 1;
    }
    const int n = std::max(1, std::atoi(argv[1]));
    std::string self = argv[0];
    const std::string baseline = self.substr(0, self.find_last_of('/') + 1) + "baseline_xlib_window";
    char* baselineArgv[] = {const_cast<char*>(baseline.c_str()), nullptr};
    std::vector<double> programMapped, programPainted, bareMapped, barePainted;
    for (int i = 0; i < n; ++i) {
        const Start p = timeToFirstWindow(display, argv + 2);
        const Start b = timeToFirstWindow(display, baselineArgv);
        programMapped.push_back(p.mapped), programPainted.push_back(p.painted);
        bareMapped.push_back(b.mapped), barePainted.push_back(b.painted);
    }
    const double pm = median(programMapped), bm = median(bareMapped);
    const double pp = median(programPainted), bp = median(barePainted);
    std::printf("process start to first window mapped, median of %d: %s %.1f ms, bare Xlib %.1f ms, ratio %.2f\n", n,
                argv[2], pm, bm, bm > 0 ? pm / bm : 0.0);
    std::printf("process start to first frame shown,   median of %d: %s %.1f ms, bare Xlib %.1f ms, ratio %.2f\n", n,
                argv[2], pp, bp, bp > 0 ? pp / bp : 0.0);
    XCloseDisplay(display);
    return 0;
}

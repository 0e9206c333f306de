// Process start to first window, for a whole program: the console (or any
// command) is started N times, alternating with a bare Xlib program that maps
// one window, and each start is timed from fork to the first MapNotify of a
// top-level window on the X server, seen by this program's own connection.
// Same run, same server, so the ratio holds on a noisy machine.
//
//   startup_first_window N PROGRAM [ARGS...]     (DISPLAY must be set)
//
// Prints the median of each and their ratio. Nothing here asserts.
#include <X11/Xlib.h>
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

double timeToFirstMap(Display* display, char* const argv[]) {
    XSelectInput(display, DefaultRootWindow(display), SubstructureNotifyMask);
    XSync(display, True);
    const auto start = Clock::now();
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::execv(argv[0], argv);
        ::_exit(127);
    }
    double ms = -1;
    const auto deadline = start + std::chrono::seconds(20);
    while (Clock::now() < deadline) {
        while (XPending(display)) {
            XEvent e;
            XNextEvent(display, &e);
            if (e.type == MapNotify && ms < 0)
                ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        }
        if (ms >= 0) break;
        ::usleep(200);
    }
    ::kill(pid, SIGTERM);
    ::waitpid(pid, nullptr, 0);
    return ms;
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
    std::vector<double> program, bare;
    for (int i = 0; i < n; ++i) {
        program.push_back(timeToFirstMap(display, argv + 2));
        bare.push_back(timeToFirstMap(display, baselineArgv));
    }
    const double p = median(program), b = median(bare);
    std::printf("process start to first window, median of %d: %s %.1f ms, bare Xlib %.1f ms, ratio %.2f\n", n, argv[2],
                p, b, b > 0 ? p / b : 0.0);
    XCloseDisplay(display);
    return 0;
}

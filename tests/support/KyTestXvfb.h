// A private Xvfb for one process (tests and benchmarks), started on first
// use with its own display number (-displayfd) and the DejaVu font directory
// of scripts/x11-fonts.sh on its font path. DISPLAY is pointed at it, so the
// user's display is never touched, and it dies with the process.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#ifndef KY_SOURCE_DIR_DEFAULT
#define KY_SOURCE_DIR_DEFAULT "."
#endif

namespace kytest {

/// The private X server of this test process.
class Xvfb {
public:
    static Xvfb& instance() {
        static Xvfb server;
        return server;
    }
    bool running() const { return pid_ > 0 && !display_.empty(); }
    const std::string& display() const { return display_; }
    const std::string& fontDir() const { return fontDir_; }

    ~Xvfb() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
        }
    }

private:
    Xvfb() {
        fontDir_ = runFontScript();
        int fds[2];
        if (::pipe(fds) != 0) return;
        pid_ = ::fork();
        if (pid_ == 0) {
            ::close(fds[0]);
            ::prctl(PR_SET_PDEATHSIG, SIGTERM); // never outlives the tests
            const std::string fd = std::to_string(fds[1]);
            const std::string fontPath = fontDir_.empty() ? "built-ins" : fontDir_ + ",built-ins";
            const int devnull = ::open("/dev/null", O_WRONLY);
            if (devnull >= 0) ::dup2(devnull, 2);
            ::execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1600x1000x24", "-nolisten", "tcp",
                     "-noreset", "-fp", fontPath.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(fds[1]);
        // The server writes its display number once it accepts connections.
        std::string number;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (number.find('\n') == std::string::npos && std::chrono::steady_clock::now() < end) {
            pollfd p{fds[0], POLLIN, 0};
            if (::poll(&p, 1, 1000) <= 0) continue;
            char buf[32];
            const ssize_t got = ::read(fds[0], buf, sizeof buf);
            if (got <= 0) break;
            number.append(buf, static_cast<std::size_t>(got));
        }
        ::close(fds[0]);
        if (number.find('\n') == std::string::npos) return;
        display_ = ":" + number.substr(0, number.find('\n'));
        ::setenv("DISPLAY", display_.c_str(), 1);
        ::unsetenv("XAUTHORITY");
    }

    static std::string runFontScript() {
        const char* source = std::getenv("KY_SOURCE_DIR");
        const std::string script = std::string(source ? source : KY_SOURCE_DIR_DEFAULT) + "/scripts/x11-fonts.sh";
        FILE* out = ::popen(("bash '" + script + "' 2>/dev/null").c_str(), "r");
        if (!out) return {};
        char line[4096] = {0};
        std::string dir = std::fgets(line, sizeof line, out) ? line : "";
        ::pclose(out);
        while (!dir.empty() && (dir.back() == '\n' || dir.back() == '\r')) dir.pop_back();
        return dir;
    }

    pid_t pid_ = -1;
    std::string display_;
    std::string fontDir_;
};

/// "DISPLAY=:N" of this process's private X server, for a child that opens
/// windows (the console does): every such child draws there, never on the
/// developer's desktop.
inline std::string displayEnvironment() { return "DISPLAY=" + Xvfb::instance().display(); }

} // namespace kytest

// Shared by the tests that run real child processes: a fresh temporary
// directory per test, the path of a helper program, and a child process with
// its stdout and stderr on pipes. Everything here runs on the test's own thread.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/io/KyDir.h"
#include "core/platform/KyStandardPaths.h"
#include "core/types/KyString.h"

namespace kytest {

/// A new empty directory, removed with everything in it when the test ends.
class TempDir {
public:
    TempDir() : path_(KyDir::createTemporary(KyStandardPaths::tempDirectory(), "ky-test-")) {}
    ~TempDir() {
        if (!path_.isEmpty()) KyDir::removeRecursively(path_);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const KyString& path() const { return path_; }
    KyString file(const KyString& name) const { return path_ + "/" + name; }

private:
    KyString path_;
};

inline KyString helperPath(const char* name) {
    const char* dir = std::getenv("KY_TEST_HELPERS_DIR");
    return KyString(dir ? dir : "tests/helpers") + "/" + name;
}

/// A child process with stdout and stderr on pipes. Killed and reaped if still running at destruction,
/// and killed by the kernel if the test process dies first.
class Child {
public:
    using Clock = std::chrono::steady_clock;

    /// env entries are "NAME=value" added to (or replacing in) the parent's environment;
    /// unsetNames are removed from it.
    bool start(const KyString& program, const std::vector<std::string>& args,
               const std::vector<std::string>& env = {}, const std::vector<std::string>& unsetNames = {}) {
        int out[2], err[2], in[2];
        if (::pipe2(out, O_CLOEXEC) != 0) return false;
        if (::pipe2(err, O_CLOEXEC) != 0) return false;
        if (::pipe2(in, O_CLOEXEC) != 0) return false;
        const pid_t parent = ::getpid();
        pid_ = ::fork();
        if (pid_ < 0) return false;
        if (pid_ == 0) {
            // A child never outlives its test: if the test process dies (a
            // crash, a kill, a failed assertion that skips the clean-up), the
            // kernel kills the child too. The parent may have died already.
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != parent) ::_exit(127);
            ::dup2(in[0], 0);
            ::dup2(out[1], 1);
            ::dup2(err[1], 2);
            for (const std::string& name : unsetNames) ::unsetenv(name.c_str());
            for (const std::string& e : env) {
                const std::size_t eq = e.find('=');
                ::setenv(e.substr(0, eq).c_str(), e.substr(eq + 1).c_str(), 1);
            }
            std::vector<char*> argv;
            argv.push_back(const_cast<char*>(program.c_str()));
            for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
            argv.push_back(nullptr);
            ::execv(program.c_str(), argv.data());
            ::_exit(127);
        }
        ::close(out[1]);
        ::close(err[1]);
        ::close(in[0]);
        inFd_ = in[1];
        outFd_ = out[0];
        errFd_ = err[0];
        return true;
    }

    ~Child() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        if (outFd_ >= 0) ::close(outFd_);
        if (errFd_ >= 0) ::close(errFd_);
        closeInput();
    }

    /// Writes text to the child's standard input (a line protocol for helpers).
    bool writeInput(const std::string& text) {
        if (inFd_ < 0) return false;
        // A child that already died must fail the write, not kill the test.
        static const bool sigpipeIgnored = (::signal(SIGPIPE, SIG_IGN), true);
        (void)sigpipeIgnored;
        return ::write(inFd_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }
    /// Closes the child's standard input: it reads end of file.
    void closeInput() {
        if (inFd_ >= 0) ::close(inFd_);
        inFd_ = -1;
    }
    /// Reads stdout until it contains text, end of file, or the deadline.
    bool waitForText(const std::string& text, std::chrono::milliseconds deadline) {
        const auto end = Clock::now() + deadline;
        while (out_.find(text) == std::string::npos) {
            if (!pump_(outFd_, out_, end)) return out_.find(text) != std::string::npos;
        }
        return true;
    }

    pid_t pid() const { return pid_; }
    /// Sends sig to the child while it is ours; false once it was reaped. A
    /// raw kill() with the -1 of a reaped child would signal every process.
    bool sendSignal(int sig) const { return pid_ > 0 && ::kill(pid_, sig) == 0; }
    /// True once finish() reaped the child (false when it was still running at the deadline).
    bool exited() const { return exited_; }
    /// The signal that ended the child, or 0 when it exited by itself.
    int termSignal() const { return signal_; }
    const std::string& out() const { return out_; }
    const std::string& err() const { return err_; }

    /// Reads stdout until it holds at least count bytes, end of file, or the deadline.
    bool waitForOutput(std::size_t count, std::chrono::milliseconds deadline) {
        const auto end = Clock::now() + deadline;
        while (out_.size() < count) {
            if (!pump_(outFd_, out_, end)) return out_.size() >= count;
        }
        return true;
    }

    /// Reads stderr until it contains text, end of file, or the deadline.
    bool waitForError(const std::string& text, std::chrono::milliseconds deadline) {
        const auto end = Clock::now() + deadline;
        while (err_.find(text) == std::string::npos) {
            if (!pump_(errFd_, err_, end)) return err_.find(text) != std::string::npos;
        }
        return true;
    }

    /// Reads both pipes to their end and reaps the child; the exit code, or -1
    /// (killed by a signal, or still running at the deadline).
    int finish(std::chrono::milliseconds deadline = std::chrono::seconds(60)) {
        // A helper that serves until its input ends is told to stop here.
        closeInput();
        const auto end = Clock::now() + deadline;
        while (outFd_ >= 0 || errFd_ >= 0) {
            pollfd fds[2];
            int n = 0;
            if (outFd_ >= 0) fds[n++] = {outFd_, POLLIN, 0};
            if (errFd_ >= 0) fds[n++] = {errFd_, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
            if (left <= 0) break;
            if (::poll(fds, n, static_cast<int>(left)) <= 0) continue;
            for (int i = 0; i < n; ++i) {
                if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
                int& fd = fds[i].fd == outFd_ ? outFd_ : errFd_;
                std::string& sink = fds[i].fd == outFd_ ? out_ : err_;
                char buf[65536];
                const ssize_t got = ::read(fd, buf, sizeof buf);
                if (got > 0) {
                    sink.append(buf, static_cast<std::size_t>(got));
                } else if (got == 0 || errno != EINTR) {
                    ::close(fd);
                    fd = -1;
                }
            }
        }
        return reap_(end);
    }

    /// SIGKILL and reap.
    void kill() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

private:
    // One read with a deadline; false at end of file or past the deadline.
    bool pump_(int fd, std::string& sink, Clock::time_point end) {
        if (fd < 0) return false;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0) return false;
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(left)) <= 0) return true;
        char buf[4096];
        const ssize_t got = ::read(fd, buf, sizeof buf);
        if (got < 0 && errno == EINTR) return true;
        if (got <= 0) return false;
        sink.append(buf, static_cast<std::size_t>(got));
        return true;
    }

    int reap_(Clock::time_point end) {
        if (pid_ <= 0) return -1;
        for (;;) {
            int status = 0;
            const pid_t r = ::waitpid(pid_, &status, WNOHANG);
            if (r == pid_) {
                pid_ = -1;
                exited_ = true;
                signal_ = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            if (Clock::now() >= end) return -1;
            // Pipes are closed, so the child is exiting; poll() on nothing is a short, bounded wait.
            ::poll(nullptr, 0, 5);
        }
    }

    pid_t pid_ = -1;
    bool exited_ = false;
    int signal_ = 0;
    int inFd_ = -1;
    int outFd_ = -1;
    int errFd_ = -1;
    std::string out_;
    std::string err_;
};

} // namespace kytest

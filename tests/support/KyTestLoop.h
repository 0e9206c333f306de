// Shared by the tests that run loops and threads: a log file that counts
// lines, and waiting for a condition under a generous deadline (never a bare
// sleep). Everything here runs on the test's own thread.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "core/io/KyDebug.h"
#include "core/runtime/KyCoreApplication.h"

namespace kytest {

inline constexpr std::chrono::seconds kDeadline{20};

/// Sends the log to a fresh file for the lifetime of the capture.
class LogCapture {
public:
    LogCapture() {
        char name[] = "/tmp/ky_runtime_log_XXXXXX";
        const int fd = ::mkstemp(name);
        if (fd >= 0) ::close(fd);
        path_ = name;
        KyDebug::setLogFile(KyString(path_), "runtime-test");
        KyDebug::setFileLoggingEnabled(true);
    }
    ~LogCapture() {
        KyDebug::setFileLoggingEnabled(false);
        ::unlink(path_.c_str());
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// Lines that contain text.
    int count(const std::string& text) const {
        std::ifstream in(path_);
        int n = 0;
        for (std::string line; std::getline(in, line);)
            if (line.find(text) != std::string::npos) ++n;
        return n;
    }

private:
    std::string path_;
};

/// Polls pred until it holds or the deadline passes; true when it held.
inline bool waitUntil(const std::function<bool()>& pred, std::chrono::milliseconds deadline = kDeadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!pred()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Runs loop steps of app (waiting when it says so) until pred holds or the deadline passes.
inline bool pumpUntil(KyCoreApplication* app, const std::function<bool()>& pred,
                      std::chrono::milliseconds deadline = kDeadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!pred()) {
        if (std::chrono::steady_clock::now() >= end) return false;
        const int r = app->processEvent(false);
        if (r != 0 && !pred()) app->waitForWork_(r < 0 ? 10000 : std::min(r, 10000));
    }
    return true;
}

/// Waits for pred: by running steps of loop when one is given (the caller's own
/// loop must turn for the condition to come true), else by polling.
inline bool eventually(const std::function<bool()>& pred, KyCoreApplication* loop = nullptr) {
    return loop ? pumpUntil(loop, pred) : waitUntil(pred);
}

/// Runs loop steps until the loop has nothing left to do right now.
inline void drain(KyCoreApplication* app) {
    for (int i = 0; i < 100000 && app->processEvent(false) == 0; ++i) {
    }
}

/// A loop on the test's thread, torn down with the test.
struct LoopFixture : ::testing::Test {
    void SetUp() override { app = std::make_unique<KyCoreApplication>(); }
    void TearDown() override { app.reset(); }
    bool pumpUntil(const std::function<bool()>& pred) { return kytest::pumpUntil(app.get(), pred); }
    std::unique_ptr<KyCoreApplication> app;
};

} // namespace kytest

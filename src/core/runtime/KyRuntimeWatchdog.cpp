// KyRuntimeWatchdog: the polling thread. It only reads the published words
// and sends signals; everything the signal causes happens on the loop thread
// (see KyRuntimeProfiler.h).
#include "core/runtime/KyRuntimeWatchdog.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <chrono>

#include "core/io/KyDebug.h"
#include "core/runtime/KyRuntimeProfiler.h"

KyRuntimeWatchdog::~KyRuntimeWatchdog() { stop(); }

bool KyRuntimeWatchdog::start(long long thresholdMicroseconds, long long pollMicroseconds) {
    if (thresholdMicroseconds < 1) return false;
    std::lock_guard<std::mutex> lock(mutex_);
    if (running_.load(std::memory_order_acquire) || thread_.joinable()) return false;
    // Without a handler SIGUSR2 would end the process.
    if (!ky::profiler::installWatchdogPreemptSignalHandler()) return false;
    threshold_ = thresholdMicroseconds;
    poll_ = pollMicroseconds > 0 ? pollMicroseconds : std::max(1000LL, thresholdMicroseconds / 4);
    running_.store(true, std::memory_order_release);
    thread_ = std::thread([this] { run_(); });
    return true;
}

void KyRuntimeWatchdog::stop() {
    if (running_.exchange(false, std::memory_order_acq_rel)) {
        { std::lock_guard<std::mutex> lock(mutex_); }
        wake_.notify_all();
    }
    std::thread thread;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        thread = std::move(thread_);
    }
    // Joined outside the mutex: the thread takes it on every round.
    if (thread.joinable()) {
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();
        else
            thread.join();
    }
}

void KyRuntimeWatchdog::run_() {
    KyDebug::setThreadName("KyRuntimeWatchdog");
    std::unique_lock<std::mutex> lock(mutex_);
    while (running_.load(std::memory_order_acquire)) {
        wake_.wait_for(lock, std::chrono::microseconds(poll_),
                       [this] { return !running_.load(std::memory_order_acquire); });
        if (!running_.load(std::memory_order_acquire)) break;
        lock.unlock();
        const long long now = ky::profiler::nowMicroseconds();
        ky::profiler::detail::forEachFiberWatchWords_([&](ky::profiler::FiberWatchWords& words) {
            if (!words.runningFiber.load(std::memory_order_acquire)) return;
            const long long start = words.startMicroseconds.load(std::memory_order_acquire);
            if (start <= 0 || now - start <= threshold_ || words.lastSignalledStart == start) return;
            words.lastSignalledStart = start;
            if (pthread_kill(words.thread, SIGUSR2) == 0) signalsSent_.fetch_add(1, std::memory_order_relaxed);
        });
        lock.lock();
    }
}

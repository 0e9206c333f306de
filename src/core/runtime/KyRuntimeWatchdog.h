// KyRuntimeWatchdog: an optional thread that asks loop threads to preempt a
// fiber that has run too long.
//
// The watchdog wakes every poll interval and reads the watch words that each
// loop thread publishes (ky::profiler::FiberWatchWords). When a thread's fiber
// has run for more than the threshold, it sends SIGUSR2 to that thread, once
// per dispatch. What the signal does is cooperative: see KyRuntimeProfiler.h.
// start and stop may be called from any thread; the destructor stops.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

/// Thread that signals loop threads whose fiber outruns a threshold.
class KyRuntimeWatchdog {
public:
    KyRuntimeWatchdog() = default;
    ~KyRuntimeWatchdog();
    KyRuntimeWatchdog(const KyRuntimeWatchdog&) = delete;
    KyRuntimeWatchdog& operator=(const KyRuntimeWatchdog&) = delete;

    /// Starts the thread; pollMicroseconds 0 means a quarter of the threshold
    /// (at least 1 ms). Installs the SIGUSR2 handler if none is there. False
    /// for a threshold below 1 or when it runs already.
    bool start(long long thresholdMicroseconds, long long pollMicroseconds = 0);
    /// Clears the run flag by exchange and joins the thread if it ran.
    void stop();
    bool isRunning() const { return running_.load(std::memory_order_acquire); }
    /// Signals sent by this watchdog.
    long long signalsSent() const { return signalsSent_.load(std::memory_order_relaxed); }

private:
    void run_();

    std::atomic<bool> running_{false};
    std::atomic<long long> signalsSent_{0};
    long long threshold_ = 0;
    long long poll_ = 0;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::thread thread_;
};

// KyRuntimeProfilerSession: what one profiling session has collected, and the
// telemetry interface that a loop feeds with its iterations.
//
// A session collects named spans (count, total and longest duration) and the
// loop's iteration snapshots (busy and whole iteration time, microseconds on
// the steady clock). A loop thread records into every session bound to it
// (see KyRuntimeProfiler.h); several threads may record into one session, so
// every member is guarded by the session's own mutex and any thread may read
// it. Recording only happens while the session is attached.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>

#include "core/types/KyList.h"
#include "core/types/KyMap.h"
#include "core/types/KyString.h"

/// Receives a loop's iterations; ends when its application goes away. While a
/// telemetry session exists, the profiler's hooks are active (a profiler
/// session counts only while attached).
class KyRuntimeTelemetrySession {
public:
    KyRuntimeTelemetrySession();
    virtual ~KyRuntimeTelemetrySession();
    KyRuntimeTelemetrySession(const KyRuntimeTelemetrySession&) = delete;
    KyRuntimeTelemetrySession& operator=(const KyRuntimeTelemetrySession&) = delete;
    /// One loop iteration of a thread the session is bound to.
    virtual void recordIteration(long long busyMicroseconds, long long iterationMicroseconds) = 0;
    /// The owning application is being destroyed; no further calls follow from it.
    virtual void endOfLife() = 0;

protected:
    /// For sessions that manage their own activity (countsAsActive false).
    explicit KyRuntimeTelemetrySession(bool countsAsActive);

private:
    const bool countsAsActive_;
};

/// Totals of one named span.
struct KyRuntimeSpanStats {
    long long count = 0;
    long long totalMicroseconds = 0;
    long long maxMicroseconds = 0;
};

/// One loop iteration as the loop published it.
struct KyRuntimeIterationSample {
    long long busyMicroseconds = 0;
    long long iterationMicroseconds = 0;
};

/// A profiling session: spans and iteration snapshots of the threads bound to it.
class KyRuntimeProfilerSession : public KyRuntimeTelemetrySession {
public:
    /// A new session, attached at once. At most maxSamples iterations are kept
    /// (the oldest go first); the totals count every iteration.
    static std::shared_ptr<KyRuntimeProfilerSession> create(const KyString& name, int maxSamples = 4096);

    explicit KyRuntimeProfilerSession(const KyString& name, int maxSamples = 4096);
    ~KyRuntimeProfilerSession() override;
    KyRuntimeProfilerSession(const KyRuntimeProfilerSession&) = delete;
    KyRuntimeProfilerSession& operator=(const KyRuntimeProfilerSession&) = delete;

    KyString name() const { return name_; }

    /// Starts recording; while any session is attached the loop's hooks do work.
    void attach();
    /// Stops recording; bound threads drop the session at their next lookup.
    void detach();
    bool isAttached() const { return attached_.load(std::memory_order_acquire); }

    /// Records the first thread that binds the session; false when one is bound already.
    bool bindThread(std::size_t threadHash, pthread_t thread);
    bool isBound() const;
    std::size_t boundThreadHash() const;

    void recordSpan(const char* name, long long microseconds);
    void recordIteration(long long busyMicroseconds, long long iterationMicroseconds) override;
    /// Detaches and remembers that the owner has gone.
    void endOfLife() override;
    bool hasEnded() const { return ended_.load(std::memory_order_acquire); }

    KyRuntimeSpanStats span(const KyString& name) const;
    KyMap<KyString, KyRuntimeSpanStats> spans() const;
    long long iterationCount() const;
    long long busyMicrosecondsTotal() const;
    long long iterationMicrosecondsTotal() const;
    /// The kept iterations, oldest first.
    KyList<KyRuntimeIterationSample> iterations() const;

    /// One line per fact, JSON objects:
    /// {"session":"n","attached":true,"ended":false,"thread":123}
    /// {"span":"object_event","count":3,"total_us":12,"max_us":7}
    /// {"iterations":10,"busy_us":40,"iteration_us":900}
    KyString report() const;

private:
    const KyString name_;
    const int maxSamples_;
    std::atomic<bool> attached_{false};
    std::atomic<bool> ended_{false};

    mutable std::mutex mutex_;
    bool bound_ = false;
    std::size_t threadHash_ = 0;
    pthread_t thread_{};
    KyMap<KyString, KyRuntimeSpanStats> spans_;
    KyList<KyRuntimeIterationSample> samples_;
    std::size_t sampleHead_ = 0;
    long long iterationCount_ = 0;
    long long busyTotal_ = 0;
    long long iterationTotal_ = 0;
};

// KyRuntimeProfilerSession: recording and reporting. Every member is read and
// written under the session's mutex; the attached flag is also counted in the
// profiler's process-wide word, which is what makes the hooks cheap when idle.
#include "core/runtime/KyRuntimeProfilerSession.h"

#include <algorithm>

#include "core/runtime/KyRuntimeProfiler.h"

KyRuntimeTelemetrySession::KyRuntimeTelemetrySession() : KyRuntimeTelemetrySession(true) {}

KyRuntimeTelemetrySession::KyRuntimeTelemetrySession(bool countsAsActive) : countsAsActive_(countsAsActive) {
    if (countsAsActive_) ky::profiler::detail::gActiveSessions.fetch_add(1, std::memory_order_relaxed);
}

KyRuntimeTelemetrySession::~KyRuntimeTelemetrySession() {
    if (countsAsActive_) ky::profiler::detail::gActiveSessions.fetch_sub(1, std::memory_order_relaxed);
}

std::shared_ptr<KyRuntimeProfilerSession> KyRuntimeProfilerSession::create(const KyString& name, int maxSamples) {
    auto session = std::make_shared<KyRuntimeProfilerSession>(name, maxSamples);
    session->attach();
    return session;
}

KyRuntimeProfilerSession::KyRuntimeProfilerSession(const KyString& name, int maxSamples)
    : KyRuntimeTelemetrySession(false), name_(name), maxSamples_(std::max(1, maxSamples)) {}

KyRuntimeProfilerSession::~KyRuntimeProfilerSession() { detach(); }

void KyRuntimeProfilerSession::attach() {
    if (!attached_.exchange(true, std::memory_order_acq_rel))
        ky::profiler::detail::gActiveSessions.fetch_add(1, std::memory_order_relaxed);
}

void KyRuntimeProfilerSession::detach() {
    if (attached_.exchange(false, std::memory_order_acq_rel))
        ky::profiler::detail::gActiveSessions.fetch_sub(1, std::memory_order_relaxed);
}

bool KyRuntimeProfilerSession::bindThread(std::size_t threadHash, pthread_t thread) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (bound_) return false;
    bound_ = true;
    threadHash_ = threadHash;
    thread_ = thread;
    return true;
}

bool KyRuntimeProfilerSession::isBound() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return bound_;
}

std::size_t KyRuntimeProfilerSession::boundThreadHash() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return threadHash_;
}

void KyRuntimeProfilerSession::recordSpan(const char* name, long long microseconds) {
    if (!isAttached() || !name) return;
    if (microseconds < 0) microseconds = 0;
    std::lock_guard<std::mutex> lock(mutex_);
    KyRuntimeSpanStats& stats = spans_[KyString(name)];
    ++stats.count;
    stats.totalMicroseconds += microseconds;
    stats.maxMicroseconds = std::max(stats.maxMicroseconds, microseconds);
}

void KyRuntimeProfilerSession::recordIteration(long long busyMicroseconds, long long iterationMicroseconds) {
    if (!isAttached()) return;
    std::lock_guard<std::mutex> lock(mutex_);
    ++iterationCount_;
    busyTotal_ += busyMicroseconds;
    iterationTotal_ += iterationMicroseconds;
    const KyRuntimeIterationSample sample{busyMicroseconds, iterationMicroseconds};
    // A ring once full: the oldest sample is overwritten in place.
    if (samples_.size() < static_cast<std::size_t>(maxSamples_)) {
        samples_.push_back(sample);
    } else {
        samples_[sampleHead_] = sample;
        sampleHead_ = (sampleHead_ + 1) % samples_.size();
    }
}

void KyRuntimeProfilerSession::endOfLife() {
    ended_.store(true, std::memory_order_release);
    detach();
}

KyRuntimeSpanStats KyRuntimeProfilerSession::span(const KyString& name) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = spans_.find(name);
    return it == spans_.end() ? KyRuntimeSpanStats{} : it->second;
}

KyMap<KyString, KyRuntimeSpanStats> KyRuntimeProfilerSession::spans() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return spans_;
}

long long KyRuntimeProfilerSession::iterationCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return iterationCount_;
}

long long KyRuntimeProfilerSession::busyMicrosecondsTotal() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return busyTotal_;
}

long long KyRuntimeProfilerSession::iterationMicrosecondsTotal() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return iterationTotal_;
}

KyList<KyRuntimeIterationSample> KyRuntimeProfilerSession::iterations() const {
    std::lock_guard<std::mutex> lock(mutex_);
    KyList<KyRuntimeIterationSample> out;
    out.reserve(samples_.size());
    for (std::size_t i = 0; i < samples_.size(); ++i) out.push_back(samples_[(sampleHead_ + i) % samples_.size()]);
    return out;
}

namespace {
KyString jsonQuoted(const KyString& text) {
    KyString out("\"");
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            out += KyString::format("\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
        } else {
            out += c;
        }
    }
    out += '"';
    return out;
}
}  // namespace

KyString KyRuntimeProfilerSession::report() const {
    std::lock_guard<std::mutex> lock(mutex_);
    KyString out;
    out += "{\"session\":" + jsonQuoted(name_) + ",\"attached\":" + (isAttached() ? "true" : "false") +
           ",\"ended\":" + (hasEnded() ? "true" : "false") + ",\"thread\":" +
           KyString::number(static_cast<unsigned long long>(threadHash_)) + "}\n";
    for (const auto& [name, stats] : spans_) {
        out += "{\"span\":" + jsonQuoted(name) + ",\"count\":" + KyString::number(stats.count) +
               ",\"total_us\":" + KyString::number(stats.totalMicroseconds) +
               ",\"max_us\":" + KyString::number(stats.maxMicroseconds) + "}\n";
    }
    out += "{\"iterations\":" + KyString::number(iterationCount_) + ",\"busy_us\":" + KyString::number(busyTotal_) +
           ",\"iteration_us\":" + KyString::number(iterationTotal_) + "}\n";
    return out;
}

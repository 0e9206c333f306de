// ky::gui::perf: named counters and timers of the widget code, for finding
// where a slow frame goes.
//
// Tracing is on when the environment variable "KY_WIDGET_PERF_TRACE" is set,
// non-empty and not "0"; it is read once, when the library is loaded. With
// tracing off a counter or a timer costs one test of a constant flag. With it
// on, metrics live in one ordered map under one mutex (update() may be reached
// from fibers of the GUI thread while another thread reads the table), and a
// readable table goes to stderr when the process exits.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

namespace ky::gui::perf {

namespace detail {
extern const bool kTraceEnabled;
void addCount(const char* name);
void addTime(const char* name, std::chrono::steady_clock::duration elapsed);
} // namespace detail

/// One metric: how often it was counted or timed, and for timers the time spent.
struct Metric {
    std::uint64_t count = 0;
    double totalMs = 0;
    double maxMs = 0;
};

inline bool enabled() { return detail::kTraceEnabled; }

/// Adds 1 to the named metric.
inline void addCount(const char* name) {
    if (detail::kTraceEnabled) detail::addCount(name);
}

/// Adds one call and the time from construction to destruction to the named metric.
class ScopeTimer {
public:
    explicit ScopeTimer(const char* name) : name_(name) {
        if (detail::kTraceEnabled) start_ = std::chrono::steady_clock::now();
    }
    ~ScopeTimer() {
        if (detail::kTraceEnabled) detail::addTime(name_, std::chrono::steady_clock::now() - start_);
    }
    ScopeTimer(const ScopeTimer&) = delete;
    ScopeTimer& operator=(const ScopeTimer&) = delete;

private:
    const char* name_;
    std::chrono::steady_clock::time_point start_{};
};

/// A copy of every metric so far (empty with tracing off).
std::map<std::string, Metric> snapshot();
/// The metrics as a table, one line per metric in name order.
std::string formatTable();

} // namespace ky::gui::perf

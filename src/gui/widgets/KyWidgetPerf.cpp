// The metric table behind ky::gui::perf and its report at exit.
#include "gui/widgets/KyWidgetPerf.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace ky::gui::perf {

namespace {

struct Table {
    std::mutex mutex;
    std::map<std::string, Metric> metrics;
};

// Never destroyed: the report at exit and late counters from other threads find it intact.
Table& table() {
    static auto* t = new Table;
    return *t;
}

void reportAtExit() {
    const std::string text = formatTable();
    if (!text.empty()) std::fprintf(stderr, "%s", text.c_str());
}

bool readTraceFlag() {
    const char* value = std::getenv("KY_WIDGET_PERF_TRACE");
    const bool on = value && *value && std::strcmp(value, "0") != 0;
    if (on) std::atexit(reportAtExit);
    return on;
}

} // namespace

namespace detail {

const bool kTraceEnabled = readTraceFlag();

void addCount(const char* name) {
    Table& t = table();
    std::lock_guard lock(t.mutex);
    ++t.metrics[name].count;
}

void addTime(const char* name, std::chrono::steady_clock::duration elapsed) {
    const double ms = std::chrono::duration<double, std::milli>(elapsed).count();
    Table& t = table();
    std::lock_guard lock(t.mutex);
    Metric& m = t.metrics[name];
    ++m.count;
    m.totalMs += ms;
    if (ms > m.maxMs) m.maxMs = ms;
}

} // namespace detail

std::map<std::string, Metric> snapshot() {
    Table& t = table();
    std::lock_guard lock(t.mutex);
    return t.metrics;
}

std::string formatTable() {
    const std::map<std::string, Metric> metrics = snapshot();
    if (metrics.empty()) return {};
    std::string out = "widget perf trace\n";
    char line[256];
    std::snprintf(line, sizeof line, "%-40s %12s %12s %10s %10s\n", "metric", "count", "total ms", "avg ms", "max ms");
    out += line;
    for (const auto& [name, m] : metrics) {
        if (m.totalMs > 0 || m.maxMs > 0)
            std::snprintf(line, sizeof line, "%-40s %12llu %12.3f %10.4f %10.3f\n", name.c_str(),
                          static_cast<unsigned long long>(m.count), m.totalMs,
                          m.count ? m.totalMs / static_cast<double>(m.count) : 0.0, m.maxMs);
        else
            std::snprintf(line, sizeof line, "%-40s %12llu\n", name.c_str(), static_cast<unsigned long long>(m.count));
        out += line;
    }
    return out;
}

} // namespace ky::gui::perf

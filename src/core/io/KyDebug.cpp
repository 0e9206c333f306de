// KyDebug implementation. One process-wide state under a mutex; the enabled
// test is answered from a per-thread cache that is dropped whenever the rules
// change (a generation counter), so a disabled debug line costs a hash lookup.
#include "core/io/KyDebug.h"

#include "core/io/KyDir.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace {

struct Rule {
    std::string pattern;
    int level = -1; // -1: every level
    bool enabled = true;
};

struct LogState {
    std::mutex mutex;
    std::vector<Rule> programRules;
    std::vector<Rule> environmentRules;
    std::vector<Rule> debugDefaults;
    bool environmentLoaded = false;
    std::string filePath;
    std::string applicationName;
    int fileFd = -1;
    bool fileEnabled = false;
    bool stderrEnabled = true;
};

LogState& state() {
    // Leaked on purpose: threads and static destructors may still log at exit.
    static LogState* s = new LogState;
    return *s;
}

std::atomic<unsigned> g_generation{1};

thread_local std::string t_threadName;
// Per-thread answers of isEnabled, as bits by level. A thread that logs from
// a later thread-local destructor finds the cache gone and asks the rules directly.
struct EnabledCache {
    std::unordered_map<std::string, unsigned char> bits;
    unsigned generation = 0;
    bool alive = true;
    ~EnabledCache() { alive = false; }
};
thread_local EnabledCache t_cache;

// '*' matches any run of characters, including dots.
bool globMatch(std::string_view pattern, std::string_view text) {
    std::size_t p = 0, t = 0, starP = std::string_view::npos, starT = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            starP = p++;
            starT = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (starP != std::string_view::npos) {
            p = starP + 1;
            t = ++starT;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

void parseRules(const KyString& text, std::vector<Rule>& out) {
    const KyString normalised = text.replaced("\n", ";");
    for (const KyString& raw : normalised.split(';', true)) {
        const KyString entry = raw.trimmed();
        const std::size_t eq = entry.indexOf('=');
        if (entry.isEmpty() || entry.startsWith("#") || eq == KyString::npos) continue;
        Rule r;
        KyString pattern = entry.left(eq).trimmed();
        const KyString value = entry.mid(eq + 1).trimmed().toLower();
        if (value != "true" && value != "false" && value != "1" && value != "0") continue;
        r.enabled = (value == "true" || value == "1");
        static const struct { const char* suffix; int level; } kLevels[] = {
            {".debug", 0}, {".warning", 1}, {".error", 2}};
        for (const auto& l : kLevels) {
            if (pattern.toLower().endsWith(l.suffix)) {
                r.level = l.level;
                pattern = pattern.left(pattern.size() - std::string_view(l.suffix).size());
                break;
            }
        }
        r.pattern = pattern.toStdString();
        out.push_back(std::move(r));
    }
}

void loadEnvironmentLocked(LogState& s) {
    s.environmentRules.clear();
    // KY_DEBUG_RULES first so that KY_LOGGING_RULES, read after it, wins.
    if (const char* d = std::getenv("KY_DEBUG_RULES")) parseRules(d, s.environmentRules);
    if (const char* l = std::getenv("KY_LOGGING_RULES")) parseRules(l, s.environmentRules);
    s.environmentLoaded = true;
}

bool computeEnabled(LogState& s, std::string_view category, int level) {
    bool enabled = level >= static_cast<int>(KyLogLevel::Warning);
    if (level == 0)
        for (const Rule& r : s.debugDefaults)
            if (globMatch(r.pattern, category)) enabled = r.enabled;
    auto apply = [&](const std::vector<Rule>& rules) {
        for (const Rule& r : rules)
            if ((r.level < 0 || r.level == level) && globMatch(r.pattern, category)) enabled = r.enabled;
    };
    apply(s.programRules);
    apply(s.environmentRules);
    return enabled;
}

void rulesChanged() { g_generation.fetch_add(1, std::memory_order_acq_rel); }

std::string currentThreadName() {
    if (!t_threadName.empty()) return t_threadName;
    const long tid = syscall(SYS_gettid);
    if (tid == getpid()) return "MainThread";
    return "Thread-" + std::to_string(tid);
}

std::string formatLine(KyLogLevel level, std::string_view category, std::string_view message) {
    struct timeval tv {};
    gettimeofday(&tv, nullptr);
    struct tm tmv {};
    localtime_r(&tv.tv_sec, &tmv);
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d:%02d:%02d.%03ld", tmv.tm_year + 1900, tmv.tm_mon + 1,
                  tmv.tm_mday, tmv.tm_hour, tmv.tm_min, tmv.tm_sec, static_cast<long>(tv.tv_usec / 1000));
    std::string line;
    line.reserve(64 + category.size() + message.size());
    line += stamp;
    line += ' ';
    line += KyDebug::levelName(level);
    line += " [";
    line += category;
    line += "] (";
    line += currentThreadName();
    line += ") ";
    line += message;
    line += '\n';
    return line;
}

void writeAll(int fd, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return; // a full disk or closed stderr must not stop the program
        done += static_cast<std::size_t>(n);
    }
}

void closeFileLocked(LogState& s) {
    if (s.fileFd >= 0) ::close(s.fileFd);
    s.fileFd = -1;
}

void openFileLocked(LogState& s) {
    closeFileLocked(s);
    if (!s.fileEnabled || s.filePath.empty()) return;
    // The log often lives in a state or crash folder that nobody made yet.
    const std::size_t slash = s.filePath.rfind('/');
    if (slash != std::string::npos && slash > 0) KyDir::createPathTree(s.filePath.substr(0, slash));
    int fd;
    do {
        fd = ::open(s.filePath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        const std::string warning = "cannot open log file " + s.filePath + ": " + std::strerror(errno);
        if (s.stderrEnabled) writeAll(2, formatLine(KyLogLevel::Warning, "ky.core.io.kydebug", warning));
        return;
    }
    s.fileFd = fd;
    writeAll(fd, formatLine(KyLogLevel::Debug, "ky.core.io.kydebug",
                            "log opened for " + (s.applicationName.empty() ? std::string("application") : s.applicationName) +
                                " (pid " + std::to_string(getpid()) + ")"));
}

} // namespace

const char* KyDebug::levelName(KyLogLevel level) {
    switch (level) {
    case KyLogLevel::Debug: return "DEBUG";
    case KyLogLevel::Warning: return "WARNING";
    case KyLogLevel::Error: return "ERROR";
    }
    return "DEBUG";
}

bool KyDebug::isEnabled(std::string_view category, KyLogLevel level) {
    auto compute = [category]() {
        LogState& s = state();
        unsigned char bits = 0;
        std::lock_guard<std::mutex> lock(s.mutex);
        if (!s.environmentLoaded) loadEnvironmentLocked(s);
        for (int l = 0; l < 3; ++l)
            if (computeEnabled(s, category, l)) bits |= static_cast<unsigned char>(1u << l);
        return bits;
    };
    unsigned char bits;
    if (!t_cache.alive) {
        bits = compute();
    } else {
        const unsigned generation = g_generation.load(std::memory_order_acquire);
        if (t_cache.generation != generation) {
            t_cache.bits.clear();
            t_cache.generation = generation;
        }
        auto it = t_cache.bits.find(std::string(category));
        if (it == t_cache.bits.end()) it = t_cache.bits.emplace(std::string(category), compute()).first;
        bits = it->second;
    }
    return (bits >> static_cast<int>(level)) & 1u;
}

void KyDebug::write(KyLogLevel level, std::string_view category, std::string_view message) {
    if (!isEnabled(category, level)) return;
    const std::string line = formatLine(level, category, message);
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.stderrEnabled) writeAll(2, line);
    if (s.fileFd >= 0) writeAll(s.fileFd, line);
}

void KyDebug::setRules(const KyString& rules) {
    LogState& s = state();
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.programRules.clear();
        parseRules(rules, s.programRules);
    }
    rulesChanged();
}

void KyDebug::reloadEnvironmentRules() {
    LogState& s = state();
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        loadEnvironmentLocked(s);
    }
    rulesChanged();
}

void KyDebug::setCategoryDebugDefault(const KyString& pattern, bool enabled) {
    LogState& s = state();
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.debugDefaults.push_back(Rule{pattern.toStdString(), 0, enabled});
    }
    rulesChanged();
}

void KyDebug::setLogFile(const KyString& path, const KyString& applicationName) {
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.filePath = path.toStdString();
    s.applicationName = applicationName.toStdString();
    openFileLocked(s);
}

void KyDebug::setFileLoggingEnabled(bool enabled) {
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.fileEnabled == enabled && (s.fileFd >= 0) == enabled) return;
    s.fileEnabled = enabled;
    openFileLocked(s);
}

KyString KyDebug::logFilePath() {
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return KyString(s.filePath);
}

void KyDebug::setStderrEnabled(bool enabled) {
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.stderrEnabled = enabled;
}

void KyDebug::setThreadName(const KyString& name) { t_threadName = name.toStdString(); }

KyString KyDebug::threadName() { return KyString(currentThreadName()); }

KyLogStream::~KyLogStream() { KyDebug::write(level_, category_, text_); }

KyLogStream& KyLogStream::operator<<(const void* v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%p", v);
    return number_(buf);
}

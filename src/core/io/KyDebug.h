// KyDebug: the logging layer. Categorised, levelled lines to stderr and,
// when turned on, to a log file.
//
// Categories are dotted names ("ky.core.runtime.kyiodispatcher"). Levels are
// DEBUG, WARNING and ERROR; by default warnings and errors are shown and debug
// lines are not. Rules turn categories on and off: "pattern[.level]=true|false",
// separated by ';' or new lines, where the pattern may hold '*' wildcards
// ("ky.ipc.*=false"). Rules are read from KY_DEBUG_RULES and then from
// KY_LOGGING_RULES, and the last rule that matches wins, so KY_LOGGING_RULES
// beats KY_DEBUG_RULES where both name a category; programmatic rules
// (setRules) sit under both. Every call is thread-safe; one line is written
// with one write(2), so lines of different threads never interleave.
#pragma once

#include <sstream>
#include <string>
#include <string_view>

#include "core/types/KyString.h"

enum class KyLogLevel { Debug = 0, Warning = 1, Error = 2 };

/// Process-wide logging configuration and output.
class KyDebug {
public:
    /// True when a line of this level in this category would be written.
    static bool isEnabled(std::string_view category, KyLogLevel level);
    /// Writes one line (time, level, category, thread name, message) if enabled.
    static void write(KyLogLevel level, std::string_view category, std::string_view message);
    static const char* levelName(KyLogLevel level);

    /// Programmatic rules, beneath the environment's. Replaces earlier ones.
    static void setRules(const KyString& rules);
    /// Re-reads KY_DEBUG_RULES and KY_LOGGING_RULES (done once on first use).
    static void reloadEnvironmentRules();
    /// Debug lines of categories matching pattern are shown unless a rule says otherwise.
    static void setCategoryDebugDefault(const KyString& pattern, bool enabled);

    /// Points the file log at path (its folder is created when missing); the
    /// application name heads the first line this process writes there.
    static void setLogFile(const KyString& path, const KyString& applicationName);
    static void setFileLoggingEnabled(bool enabled);
    static KyString logFilePath();
    static void setStderrEnabled(bool enabled);

    /// Name shown for the calling thread ("MainThread" for the process's first thread by default).
    static void setThreadName(const KyString& name);
    static KyString threadName();
};

/// Collects one log line and writes it when destroyed. Use through the kyLog* macros.
class KyLogStream {
public:
    KyLogStream(KyLogLevel level, std::string_view category) : level_(level), category_(category) {}
    KyLogStream(const KyLogStream&) = delete;
    KyLogStream& operator=(const KyLogStream&) = delete;
    ~KyLogStream();

    KyLogStream& operator<<(const KyString& v) { separate_(); text_ += v.toStdString(); return *this; }
    KyLogStream& operator<<(std::string_view v) { separate_(); text_ += v; return *this; }
    KyLogStream& operator<<(const std::string& v) { separate_(); text_ += v; return *this; }
    KyLogStream& operator<<(const char* v) { separate_(); text_ += v ? v : "(null)"; return *this; }
    KyLogStream& operator<<(char v) { separate_(); text_ += v; return *this; }
    KyLogStream& operator<<(bool v) { separate_(); text_ += v ? "true" : "false"; return *this; }
    KyLogStream& operator<<(int v) { return number_(std::to_string(v)); }
    KyLogStream& operator<<(long v) { return number_(std::to_string(v)); }
    KyLogStream& operator<<(long long v) { return number_(std::to_string(v)); }
    KyLogStream& operator<<(unsigned int v) { return number_(std::to_string(v)); }
    KyLogStream& operator<<(unsigned long v) { return number_(std::to_string(v)); }
    KyLogStream& operator<<(unsigned long long v) { return number_(std::to_string(v)); }
    KyLogStream& operator<<(double v) { return number_(KyString::number(v).toStdString()); }
    KyLogStream& operator<<(const void* v);
    /// Pieces are joined by one blank unless nospace() was called.
    KyLogStream& nospace() { spaced_ = false; return *this; }

private:
    void separate_() { if (spaced_ && !text_.empty()) text_ += ' '; }
    KyLogStream& number_(const std::string& s) { separate_(); text_ += s; return *this; }

    KyLogLevel level_;
    std::string_view category_;
    std::string text_;
    bool spaced_ = true;
};

// The stream is only built when the line would be written. The one-pass loop
// (rather than "if (...) {} else") keeps `if (x) kyLogWarning(c) << ...;` free of
// dangling-else warnings in callers.
#define kyLogAt_(level, category) \
    for (bool kyLogOnce_ = KyDebug::isEnabled((category), (level)); kyLogOnce_; kyLogOnce_ = false) \
        KyLogStream((level), (category))
#define kyLogDebug(category) kyLogAt_(KyLogLevel::Debug, category)
#define kyLogWarning(category) kyLogAt_(KyLogLevel::Warning, category)
#define kyLogError(category) kyLogAt_(KyLogLevel::Error, category)

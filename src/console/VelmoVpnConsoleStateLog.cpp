// The session's trail in the runtime log. See the header for the line format.
#include "console/VelmoVpnConsoleStateLog.h"

#include <mutex>

#include "console/VelmoVpnConsoleSession.h"
#include "core/io/KyDebug.h"

VelmoVpnConsoleStateLog::VelmoVpnConsoleStateLog() {
    // Every default is a rule the log layer keeps; one is enough however many
    // consoles a test builds.
    static std::once_flag once;
    std::call_once(once, [] { KyDebug::setCategoryDebugDefault(kCategory, true); });
}

KyString VelmoVpnConsoleStateLog::formatLine(const char* key, const KyString& text) {
    KyString line(key);
    line += ": ";
    line.reserve(line.size() + text.size());
    for (char c : text) {
        switch (c) {
        case '\\': line += "\\\\"; break;
        case '\n': line += "\\n"; break;
        case '\r': line += "\\r"; break;
        case '\t': line += "\\t"; break;
        default: line += c; break;
        }
    }
    return line;
}

KyList<KyString> VelmoVpnConsoleStateLog::record(const Entry& entry) {
    KyList<KyString> lines;
    auto note = [&](const char* key, const KyString& now, const KyString& before) {
        if (hasLast_ && now == before) return;
        lines.append(formatLine(key, now));
    };
    note("auth", entry.auth, last_.auth);
    note("catalog", entry.catalog, last_.catalog);
    note("endpoints", entry.endpoints, last_.endpoints);
    note("status", entry.status, last_.status);
    note("shell", entry.shell, last_.shell);
    last_ = entry;
    hasLast_ = true;
    for (const KyString& line : lines) KyDebug::write(KyLogLevel::Debug, kCategory, line.view());
    return lines;
}

KyList<KyString> VelmoVpnConsoleStateLog::record(const VelmoVpnConsoleSessionView& view, int shell) {
    Entry entry;
    entry.auth = view.authText;
    entry.catalog = view.catalogText;
    entry.endpoints = view.endpointText;
    entry.status = view.statusBarText;
    entry.shell = velmoVpnConsoleShellName(shell);
    return record(entry);
}

void VelmoVpnConsoleStateLog::reset() {
    last_ = Entry();
    hasLast_ = false;
}

// KyStandardPaths implementation over getenv and the password database.
#include "core/platform/KyStandardPaths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace {

KyString absoluteEnv(const char* name) {
    const char* v = std::getenv(name);
    // Relative XDG paths are invalid by the base-directory rules and are ignored.
    if (v && v[0] == '/') return KyString(v);
    return KyString();
}

KyString homeRelative(const char* xdgName, const char* fallback) {
    KyString dir = absoluteEnv(xdgName);
    if (!dir.isEmpty()) return dir;
    return KyStandardPaths::homeDirectory() + "/" + fallback;
}

} // namespace

KyString KyStandardPaths::homeDirectory() {
    KyString home = absoluteEnv("HOME");
    if (!home.isEmpty()) return home;
    std::vector<char> buf(16384);
    struct passwd pw {};
    struct passwd* result = nullptr;
    if (getpwuid_r(getuid(), &pw, buf.data(), buf.size(), &result) == 0 && result && result->pw_dir)
        return KyString(result->pw_dir);
    return KyString("/tmp");
}

KyString KyStandardPaths::configDirectory() { return homeRelative("XDG_CONFIG_HOME", ".config"); }
KyString KyStandardPaths::stateDirectory() { return homeRelative("XDG_STATE_HOME", ".local/state"); }
KyString KyStandardPaths::cacheDirectory() { return homeRelative("XDG_CACHE_HOME", ".cache"); }

KyString KyStandardPaths::runtimeDirectory() {
    KyString dir = absoluteEnv("XDG_RUNTIME_DIR");
    return dir.isEmpty() ? tempDirectory() : dir;
}

KyString KyStandardPaths::tempDirectory() {
    KyString dir = absoluteEnv("TMPDIR");
    return dir.isEmpty() ? KyString("/tmp") : dir;
}

KyString KyStandardPaths::environment(const char* name, const KyString& fallback) {
    const char* v = name ? std::getenv(name) : nullptr;
    return v ? KyString(v) : fallback;
}

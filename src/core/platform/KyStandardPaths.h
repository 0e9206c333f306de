// KyStandardPaths: where the user's configuration, state and cache live, by
// the XDG base-directory rules ($XDG_CONFIG_HOME else ~/.config, and so on).
// Stateless; any thread may call it. Directories are not created here.
#pragma once

#include "core/types/KyString.h"

/// The user's XDG directories and environment lookups.
class KyStandardPaths {
public:
    /// $HOME, else the password database's home, else "/tmp".
    static KyString homeDirectory();
    /// $XDG_CONFIG_HOME when it is an absolute path, else ~/.config.
    static KyString configDirectory();
    /// $XDG_STATE_HOME when absolute, else ~/.local/state.
    static KyString stateDirectory();
    /// $XDG_CACHE_HOME when absolute, else ~/.cache.
    static KyString cacheDirectory();
    /// $XDG_RUNTIME_DIR when absolute, else the temporary directory.
    static KyString runtimeDirectory();
    /// $TMPDIR when absolute, else "/tmp".
    static KyString tempDirectory();
    /// The variable's value, or fallback when it is unset.
    static KyString environment(const char* name, const KyString& fallback = KyString());
};

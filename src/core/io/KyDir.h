// KyDir: directory operations on paths, errors as values.
//
// Stateless: every call is a static function on a path, so any thread may
// call it. Failures return false (or an empty list) and, when the caller
// passes an error pointer, the reason worded as "<what> <path>: <reason>".
#pragma once

#include "core/types/KyList.h"
#include "core/types/KyString.h"

/// Static directory helpers: create a tree, list, remove, and path arithmetic.
class KyDir {
public:
    /// mkdir -p with mode 0755 (less the umask). An existing directory is
    /// success; a file (or anything else that is not a directory) in the way
    /// of any component is a failure.
    static bool createPathTree(const KyString& path, KyString* error = nullptr);
    /// True when path names a directory (following symbolic links).
    static bool exists(const KyString& path);
    /// Removes one empty directory.
    static bool remove(const KyString& path, KyString* error = nullptr);
    /// Removes path and everything below it. Symbolic links are removed, not
    /// followed. A missing path is success.
    static bool removeRecursively(const KyString& path, KyString* error = nullptr);
    /// Names in the directory, without "." and "..", sorted by byte value.
    /// ok (when given) tells an empty directory from an unreadable one.
    static KyList<KyString> entries(const KyString& path, bool* ok = nullptr, KyString* error = nullptr);
    /// The process's working directory, or empty when it cannot be read.
    static KyString currentPath();
    /// A new, empty directory "<parent>/<prefix>XXXXXX" (mkdtemp, mode 0700), or empty on failure.
    static KyString createTemporary(const KyString& parent, const KyString& prefix, KyString* error = nullptr);

    /// The part before the last '/' ("." when there is none, "/" for a top-level name).
    static KyString parentPath(const KyString& path);
    /// The part after the last '/'.
    static KyString fileName(const KyString& path);
};

// KySaveFile: replaces a file in one step, so a crash never leaves half of it.
//
// open() creates a temporary file beside the target, named
// ".<target name>.tmp-<pid>-<random>" (same directory, so the final rename
// stays on one file system; O_CLOEXEC, so no child inherits it). write()
// appends to the temporary; commit() fsyncs it, renames it over the target and
// fsyncs the directory, so after commit() returns the new bytes are what every
// reader and every reboot sees. Until then the target is untouched. Any
// failure, cancel() and destruction without commit() remove the temporary.
//
// The new file keeps the permission bits of the file it replaces; a new target
// gets the permissions passed to open() (less the umask). A target that is a
// symbolic link is resolved, so the link stays and its file is replaced.
//
// Temporaries left by a killed process: open() removes the temporaries of the
// same target whose writer process no longer exists. So at any time there is at
// most one stale temporary per writer killed since the last save, and the next
// save clears them. Temporaries of live processes are never touched.
//
// A KySaveFile belongs to one thread; the static helpers may be called from any.
#pragma once

#include <string_view>

#include "core/io/KyFile.h"
#include "core/types/KyString.h"

/// Writes a whole file through a temporary and an atomic rename.
class KySaveFile {
public:
    explicit KySaveFile(const KyString& path) : target_(path) {}
    ~KySaveFile();
    KySaveFile(const KySaveFile&) = delete;
    KySaveFile& operator=(const KySaveFile&) = delete;

    /// Creates the temporary. The directory of the target must exist.
    bool open(unsigned newFilePermissions = 0644);
    bool isOpen() const { return file_.isOpen(); }
    bool write(std::string_view bytes);
    /// Syncs, renames over the target and syncs the directory. The object is closed afterwards.
    bool commit();
    /// Drops the temporary; the target stays as it was.
    void cancel();

    const KyString& fileName() const { return target_; }
    /// The temporary's path while open; empty otherwise.
    const KyString& temporaryName() const { return temporary_; }
    const KyString& errorString() const { return errorString_; }

    /// open + write + commit in one call.
    static bool writeAtomically(const KyString& path, std::string_view bytes, KyString* error = nullptr,
                                unsigned newFilePermissions = 0644);
    /// True when name (a bare file name) is a temporary of target name.
    static bool isTemporaryOf(const KyString& name, const KyString& targetName);
    /// Removes the temporaries of path whose writer process is gone; returns how many.
    static int removeStaleTemporaries(const KyString& path);

private:
    bool fail_(const KyString& text);

    KyString target_;
    KyString resolved_;
    KyString temporary_;
    KyFile file_;
    KyString errorString_;
};

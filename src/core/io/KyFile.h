// KyFile: one open file descriptor with errors as values.
//
// A KyFile names a path and, once opened, owns one descriptor (always
// O_CLOEXEC). Reads and writes go straight to the descriptor: there is no
// user-space buffer, so flush() has nothing to push and sync() is the call that
// reaches the disk. Every failing call returns false (or -1) and leaves a text
// in errorString() that names the path and the system's reason. Interrupted
// system calls are retried. The descriptor is closed on destruction.
//
// A KyFile belongs to the thread that uses it; it has no locking. It is
// move-only, so a descriptor has exactly one owner. The static helpers are
// stateless and may be called from any thread.
#pragma once

#include <cstddef>
#include <string_view>

#include "core/types/KyString.h"

/// An owned file descriptor with read/write helpers that report failures as values.
class KyFile {
public:
    /// Open modes; combine with '|'. WriteOnly and ReadWrite create a missing file.
    enum OpenModeFlag : unsigned {
        ReadOnly = 0x1,
        WriteOnly = 0x2,
        ReadWrite = ReadOnly | WriteOnly,
        Append = 0x4,   ///< every write goes to the end; implies WriteOnly
        Truncate = 0x8, ///< the file is emptied on open; implies WriteOnly
    };
    using OpenMode = unsigned;

    KyFile() = default;
    explicit KyFile(const KyString& path) : path_(path) {}
    ~KyFile();
    KyFile(KyFile&& other) noexcept;
    KyFile& operator=(KyFile&& other) noexcept;
    KyFile(const KyFile&) = delete;
    KyFile& operator=(const KyFile&) = delete;

    void setFileName(const KyString& path);
    const KyString& fileName() const { return path_; }

    /// Opens the named file. permissions apply only when the file is created
    /// (and are reduced by the process umask as usual).
    bool open(OpenMode mode, unsigned permissions = 0644);
    bool isOpen() const { return fd_ >= 0; }
    OpenMode openMode() const { return mode_; }
    /// Closes the descriptor; false when the kernel reported a deferred write error.
    bool close();

    /// Everything from the current position to the end, appended to out.
    bool readAll(KyString& out);
    /// Up to maxBytes from the current position, appended to out; an empty
    /// result with a true return means end of file.
    bool read(KyString& out, std::size_t maxBytes);
    /// Raw read: bytes read, 0 at end of file, -1 on error.
    long long read(char* buffer, std::size_t maxBytes);
    /// Writes all bytes (short writes are continued).
    bool write(std::string_view bytes);
    /// There is no user-space buffer; true while the file is open.
    bool flush();
    /// fsync: the data and metadata reach the disk before this returns.
    bool sync();

    /// Size in bytes of the open file (or of the named file when closed); -1 on error.
    long long size() const;
    /// Current offset; -1 on error.
    long long pos() const;
    bool seek(long long offset);
    /// Cuts or extends the open file to size bytes.
    bool resize(long long size);

    /// The raw descriptor, -1 when closed. Still owned by this KyFile.
    int handle() const { return fd_; }
    /// errno of the last failure, 0 after a success.
    int error() const { return errno_; }
    /// "<what> <path>: <reason>" of the last failure; empty after a success.
    const KyString& errorString() const { return errorString_; }

    // Whole-file conveniences. error, when given, receives the reason on failure.
    /// Replaces out with the file's bytes.
    static bool readAll(const KyString& path, KyString& out, KyString* error = nullptr);
    /// Creates or truncates path and writes bytes. Not atomic: see writeAtomically.
    static bool writeAll(const KyString& path, std::string_view bytes, KyString* error = nullptr);
    /// Replaces path in one step through KySaveFile: readers see the old or the new bytes, never a mix.
    static bool writeAtomically(const KyString& path, std::string_view bytes, KyString* error = nullptr);
    /// True when something (file, directory, ...) exists at path, following symbolic links.
    static bool exists(const KyString& path);
    /// Unlinks a file; a directory is refused (see KyDir::remove).
    static bool remove(const KyString& path, KyString* error = nullptr);
    /// rename(2): replaces an existing target in one step; both must be on one file system.
    static bool rename(const KyString& from, const KyString& to, KyString* error = nullptr);
    /// The house wording of a failed call: "<what> <path>: <strerror(err)>".
    static KyString describeError(const char* what, const KyString& path, int err);

private:
    bool fail_(const char* what, int err);
    void succeed_() { errno_ = 0; errorString_.clear(); }

    KyString path_;
    int fd_ = -1;
    OpenMode mode_ = 0;
    int errno_ = 0;
    KyString errorString_;
};

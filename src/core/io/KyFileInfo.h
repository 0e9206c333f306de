// KyFileInfo: what stat(2) says about one path, taken once.
//
// The facts are read when the object is built (or on refresh()) and then kept,
// so a series of questions sees one consistent answer. A plain value owned by
// whoever holds it; no locking.
#pragma once

#include <cstdint>

#include "core/types/KyString.h"

/// A snapshot of stat(2) for one path (symbolic links followed, except by isSymLink).
class KyFileInfo {
public:
    KyFileInfo() = default;
    explicit KyFileInfo(const KyString& path) : path_(path) { refresh(); }

    /// Reads the facts again.
    void refresh();

    const KyString& path() const { return path_; }
    bool exists() const { return exists_; }
    /// A regular file (not a directory, device, socket or pipe).
    bool isFile() const { return exists_ && isFile_; }
    bool isDir() const { return exists_ && isDir_; }
    /// The path itself is a symbolic link (even a dangling one).
    bool isSymLink() const { return isSymLink_; }
    /// Size in bytes; 0 when missing.
    long long size() const { return exists_ ? size_ : 0; }
    /// Last modification, nanoseconds since the Unix epoch; 0 when missing.
    std::int64_t lastModifiedNs() const { return exists_ ? mtimeNs_ : 0; }
    /// Permission bits (mode & 07777); 0 when missing.
    unsigned permissions() const { return exists_ ? permissions_ : 0; }
    /// errno of the failed stat, 0 when the path exists.
    int error() const { return error_; }

private:
    KyString path_;
    bool exists_ = false;
    bool isFile_ = false;
    bool isDir_ = false;
    bool isSymLink_ = false;
    long long size_ = 0;
    std::int64_t mtimeNs_ = 0;
    unsigned permissions_ = 0;
    int error_ = 0;
};

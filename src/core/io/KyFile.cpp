// KyFile implementation: thin wrappers over open/read/write/fsync that retry
// EINTR and turn errno into a worded error value.
#include "core/io/KyFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "core/io/KySaveFile.h"

namespace {

void setError(KyString* error, const KyString& text) {
    if (error) *error = text;
}

} // namespace

KyString KyFile::describeError(const char* what, const KyString& path, int err) {
    return KyString(what) + " " + path + ": " + std::strerror(err);
}

KyFile::~KyFile() {
    if (fd_ >= 0) ::close(fd_);
}

KyFile::KyFile(KyFile&& other) noexcept
    : path_(std::move(other.path_)), fd_(std::exchange(other.fd_, -1)), mode_(std::exchange(other.mode_, 0)),
      errno_(other.errno_), errorString_(std::move(other.errorString_)) {}

KyFile& KyFile::operator=(KyFile&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        path_ = std::move(other.path_);
        fd_ = std::exchange(other.fd_, -1);
        mode_ = std::exchange(other.mode_, 0);
        errno_ = other.errno_;
        errorString_ = std::move(other.errorString_);
    }
    return *this;
}

void KyFile::setFileName(const KyString& path) {
    close();
    path_ = path;
}

bool KyFile::fail_(const char* what, int err) {
    errno_ = err;
    errorString_ = describeError(what, path_, err);
    return false;
}

bool KyFile::open(OpenMode mode, unsigned permissions) {
    close();
    if (mode & (Append | Truncate)) mode |= WriteOnly;
    if ((mode & ReadWrite) == 0) return fail_("Cannot open", EINVAL);
    if (path_.isEmpty()) return fail_("Cannot open", ENOENT);
    int flags = O_CLOEXEC;
    if ((mode & ReadWrite) == ReadWrite) flags |= O_RDWR | O_CREAT;
    else if (mode & WriteOnly) flags |= O_WRONLY | O_CREAT;
    else flags |= O_RDONLY;
    if (mode & Append) flags |= O_APPEND;
    if (mode & Truncate) flags |= O_TRUNC;
    int fd;
    do {
        fd = ::open(path_.c_str(), flags, static_cast<mode_t>(permissions));
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return fail_("Cannot open", errno);
    // open(2) happily returns a read-only descriptor for a directory; a file
    // API that later fails every read with EISDIR is harder to diagnose.
    struct stat st {};
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        return fail_("Cannot open", EISDIR);
    }
    fd_ = fd;
    mode_ = mode;
    succeed_();
    return true;
}

bool KyFile::close() {
    if (fd_ < 0) return true;
    const int fd = std::exchange(fd_, -1);
    mode_ = 0;
    // No retry on EINTR: Linux has released the descriptor either way, and a
    // second close could hit a descriptor another thread just opened.
    if (::close(fd) != 0 && errno != EINTR) return fail_("Cannot close", errno);
    succeed_();
    return true;
}

long long KyFile::read(char* buffer, std::size_t maxBytes) {
    if (fd_ < 0) {
        fail_("Cannot read", EBADF);
        return -1;
    }
    ssize_t n;
    do {
        n = ::read(fd_, buffer, maxBytes);
    } while (n < 0 && errno == EINTR);
    if (n < 0) {
        fail_("Cannot read", errno);
        return -1;
    }
    succeed_();
    return n;
}

bool KyFile::read(KyString& out, std::size_t maxBytes) {
    std::string& bytes = out.str();
    const std::size_t start = bytes.size();
    bytes.resize(start + maxBytes);
    std::size_t got = 0;
    // A short read is not the end of the file (pipes, signals); keep going
    // until the request is filled or read(2) says end of file.
    while (got < maxBytes) {
        const long long n = read(bytes.data() + start + got, maxBytes - got);
        if (n < 0) {
            bytes.resize(start + got);
            return false;
        }
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
    }
    bytes.resize(start + got);
    return true;
}

bool KyFile::readAll(KyString& out) {
    std::string& bytes = out.str();
    const std::size_t start = bytes.size();
    struct stat st {};
    std::size_t chunk = 64 * 1024;
    if (fd_ >= 0 && ::fstat(fd_, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0)
        chunk = static_cast<std::size_t>(st.st_size) + 1; // one extra byte to see end of file in one call
    for (;;) {
        const std::size_t used = bytes.size();
        bytes.resize(used + chunk);
        const long long n = read(bytes.data() + used, chunk);
        if (n <= 0) {
            bytes.resize(used);
            if (n < 0) {
                bytes.resize(start);
                return false;
            }
            return true;
        }
        bytes.resize(used + static_cast<std::size_t>(n));
        chunk = 64 * 1024;
    }
}

bool KyFile::write(std::string_view bytes) {
    if (fd_ < 0 || (mode_ & WriteOnly) == 0) return fail_("Cannot write", EBADF);
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fail_("Cannot write", errno);
        if (n == 0) return fail_("Cannot write", EIO);
        done += static_cast<std::size_t>(n);
    }
    succeed_();
    return true;
}

bool KyFile::flush() {
    if (fd_ < 0) return fail_("Cannot flush", EBADF);
    succeed_();
    return true;
}

bool KyFile::sync() {
    if (fd_ < 0) return fail_("Cannot sync", EBADF);
    int rc;
    do {
        rc = ::fsync(fd_);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) return fail_("Cannot sync", errno);
    succeed_();
    return true;
}

long long KyFile::size() const {
    struct stat st {};
    const int rc = fd_ >= 0 ? ::fstat(fd_, &st) : ::stat(path_.c_str(), &st);
    if (rc != 0) return -1;
    return static_cast<long long>(st.st_size);
}

long long KyFile::pos() const {
    if (fd_ < 0) return -1;
    return static_cast<long long>(::lseek(fd_, 0, SEEK_CUR));
}

bool KyFile::seek(long long offset) {
    if (fd_ < 0) return fail_("Cannot seek", EBADF);
    if (::lseek(fd_, static_cast<off_t>(offset), SEEK_SET) < 0) return fail_("Cannot seek", errno);
    succeed_();
    return true;
}

bool KyFile::resize(long long size) {
    if (fd_ < 0) return fail_("Cannot resize", EBADF);
    int rc;
    do {
        rc = ::ftruncate(fd_, static_cast<off_t>(size));
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) return fail_("Cannot resize", errno);
    succeed_();
    return true;
}

bool KyFile::readAll(const KyString& path, KyString& out, KyString* error) {
    out.clear();
    KyFile file(path);
    if (!file.open(ReadOnly) || !file.readAll(out)) {
        setError(error, file.errorString());
        return false;
    }
    return true;
}

bool KyFile::writeAll(const KyString& path, std::string_view bytes, KyString* error) {
    KyFile file(path);
    if (!file.open(WriteOnly | Truncate) || !file.write(bytes) || !file.close()) {
        setError(error, file.errorString());
        return false;
    }
    return true;
}

bool KyFile::writeAtomically(const KyString& path, std::string_view bytes, KyString* error) {
    return KySaveFile::writeAtomically(path, bytes, error);
}

bool KyFile::exists(const KyString& path) {
    struct stat st {};
    return !path.isEmpty() && ::stat(path.c_str(), &st) == 0;
}

bool KyFile::remove(const KyString& path, KyString* error) {
    if (::unlink(path.c_str()) != 0) {
        setError(error, describeError("Cannot remove", path, errno));
        return false;
    }
    return true;
}

bool KyFile::rename(const KyString& from, const KyString& to, KyString* error) {
    if (::rename(from.c_str(), to.c_str()) != 0) {
        setError(error, describeError("Cannot rename", from, errno) + " (to " + to + ")");
        return false;
    }
    return true;
}

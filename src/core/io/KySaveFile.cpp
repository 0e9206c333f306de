// KySaveFile implementation: temporary beside the target, fsync, rename,
// fsync of the directory.
#include "core/io/KySaveFile.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <random>

#include "core/io/KyDebug.h"
#include "core/io/KyDir.h"

namespace {

constexpr const char* kCategory = "ky.core.io.kysavefile";

KyString temporaryPrefix(const KyString& targetName) { return "." + targetName + ".tmp-"; }

// Unique within the process by the counter, across processes by the pid, and
// against leftovers of an earlier process with the same pid by the random part.
KyString makeTemporaryName(const KyString& dir, const KyString& targetName) {
    static std::atomic<unsigned> counter{0};
    thread_local std::mt19937_64 random(std::random_device{}() ^
                                        static_cast<unsigned long long>(
                                            std::chrono::steady_clock::now().time_since_epoch().count()));
    char tail[64];
    std::snprintf(tail, sizeof tail, "%ld-%u%08llx", static_cast<long>(::getpid()), counter.fetch_add(1),
                  static_cast<unsigned long long>(random() & 0xffffffffull));
    return dir + "/" + temporaryPrefix(targetName) + tail;
}

// The pid embedded in a temporary's name, or 0.
long pidOfTemporary(const KyString& name, const KyString& targetName) {
    const KyString rest = name.mid(temporaryPrefix(targetName).size());
    const std::size_t dash = rest.indexOf('-');
    if (dash == KyString::npos || dash == 0) return 0;
    bool ok = false;
    const long long pid = rest.left(dash).toLongLong(&ok);
    // A number no pid_t holds names no temporary of ours: such a file is left
    // alone (as a pid_t it would be negative, and kill(-1) asks every process).
    return ok && pid > 0 && pid <= 0x7FFFFFFF ? static_cast<long>(pid) : 0;
}

void syncDirectory(const KyString& dir) {
    int fd;
    do {
        fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        kyLogWarning(kCategory) << KyFile::describeError("Cannot open directory", dir, errno);
        return;
    }
    // The rename has happened; a file system that cannot sync directories
    // (EINVAL) still shows the new file, so this is worth a line, not a failure.
    int rc;
    do {
        rc = ::fsync(fd);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0 && errno != EINVAL)
        kyLogWarning(kCategory) << KyFile::describeError("Cannot sync directory", dir, errno);
    ::close(fd);
}

} // namespace

KySaveFile::~KySaveFile() { cancel(); }

bool KySaveFile::fail_(const KyString& text) {
    errorString_ = text;
    cancel();
    return false;
}

bool KySaveFile::open(unsigned newFilePermissions) {
    cancel();
    errorString_.clear();
    if (target_.isEmpty()) return fail_(KyFile::describeError("Cannot save", target_, ENOENT));
    resolved_ = target_;
    struct stat link {};
    if (::lstat(target_.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
        char* real = ::realpath(target_.c_str(), nullptr);
        if (real) {
            resolved_ = KyString(real);
            ::free(real);
        }
    }
    const KyString dir = KyDir::parentPath(resolved_);
    const KyString name = KyDir::fileName(resolved_);
    if (name.isEmpty()) return fail_(KyFile::describeError("Cannot save", target_, EISDIR));
    struct stat st {};
    if (::stat(resolved_.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) return fail_(KyFile::describeError("Cannot save", target_, EISDIR));
        newFilePermissions = static_cast<unsigned>(st.st_mode) & 07777u;
    }
    removeStaleTemporaries(resolved_);
    for (int attempt = 0; attempt < 16; ++attempt) {
        temporary_ = makeTemporaryName(dir, name);
        file_.setFileName(temporary_);
        int fd;
        do {
            fd = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                        static_cast<mode_t>(newFilePermissions));
        } while (fd < 0 && errno == EINTR);
        if (fd < 0) {
            const int err = errno;
            if (err == EEXIST) continue;
            temporary_.clear();
            return fail_(KyFile::describeError("Cannot create temporary file for", target_, err));
        }
        ::close(fd);
        // Reopen through KyFile so writes get its retry and error wording; the
        // file exists now, so no mode is applied again.
        if (!file_.open(KyFile::WriteOnly)) return fail_(file_.errorString());
        // A replaced file keeps its exact bits; the umask must not narrow them.
        if (::stat(resolved_.c_str(), &st) == 0) ::fchmod(file_.handle(), st.st_mode & 07777u);
        return true;
    }
    temporary_.clear();
    return fail_(KyFile::describeError("Cannot create temporary file for", target_, EEXIST));
}

bool KySaveFile::write(std::string_view bytes) {
    if (!file_.isOpen()) {
        errorString_ = KyFile::describeError("Cannot write", target_, EBADF);
        return false;
    }
    if (!file_.write(bytes)) return fail_(file_.errorString());
    return true;
}

bool KySaveFile::commit() {
    if (!file_.isOpen()) {
        errorString_ = KyFile::describeError("Cannot save", target_, EBADF);
        return false;
    }
    // Data first, then the name: a rename that reaches the disk before the
    // data would leave an empty or partial file after a power cut.
    if (!file_.sync()) return fail_(file_.errorString());
    if (!file_.close()) return fail_(file_.errorString());
    KyString error;
    if (!KyFile::rename(temporary_, resolved_, &error)) return fail_(error);
    temporary_.clear();
    syncDirectory(KyDir::parentPath(resolved_));
    return true;
}

void KySaveFile::cancel() {
    file_.close();
    if (!temporary_.isEmpty()) {
        ::unlink(temporary_.c_str());
        temporary_.clear();
    }
}

bool KySaveFile::writeAtomically(const KyString& path, std::string_view bytes, KyString* error,
                                 unsigned newFilePermissions) {
    KySaveFile file(path);
    if (file.open(newFilePermissions) && file.write(bytes) && file.commit()) return true;
    if (error) *error = file.errorString();
    return false;
}

bool KySaveFile::isTemporaryOf(const KyString& name, const KyString& targetName) {
    return name.startsWith(temporaryPrefix(targetName).view()) && pidOfTemporary(name, targetName) > 0;
}

int KySaveFile::removeStaleTemporaries(const KyString& path) {
    const KyString dir = KyDir::parentPath(path);
    const KyString name = KyDir::fileName(path);
    int removed = 0;
    for (const KyString& entry : KyDir::entries(dir)) {
        if (!isTemporaryOf(entry, name)) continue;
        const long pid = pidOfTemporary(entry, name);
        // Only a writer that is gone for sure: EPERM means alive under another user.
        if (pid == static_cast<long>(::getpid())) continue;
        if (::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH) continue;
        if (::unlink((dir + "/" + entry).c_str()) == 0) ++removed;
    }
    return removed;
}

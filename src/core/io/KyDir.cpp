// KyDir implementation over mkdir/rmdir/opendir.
#include "core/io/KyDir.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "core/io/KyFile.h"

namespace {

void setError(KyString* error, const KyString& text) {
    if (error) *error = text;
}

bool isDirectory(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool removeTree(const std::string& path, KyString* error) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        if (errno == ENOENT) return true;
        setError(error, KyFile::describeError("Cannot remove", path, errno));
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        bool ok = true;
        const KyList<KyString> names = KyDir::entries(path, &ok, error);
        if (!ok) return false;
        for (const KyString& name : names)
            if (!removeTree(path + "/" + name.toStdString(), error)) return false;
        if (::rmdir(path.c_str()) != 0 && errno != ENOENT) {
            setError(error, KyFile::describeError("Cannot remove", path, errno));
            return false;
        }
        return true;
    }
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        setError(error, KyFile::describeError("Cannot remove", path, errno));
        return false;
    }
    return true;
}

} // namespace

bool KyDir::createPathTree(const KyString& path, KyString* error) {
    if (path.isEmpty()) {
        setError(error, KyFile::describeError("Cannot create directory", path, ENOENT));
        return false;
    }
    const std::string& p = path.toStdString();
    if (isDirectory(p)) return true;
    // Walk the components from the top, so the failure names the first one
    // that could not be made (a file in the way, a missing permission).
    std::size_t pos = 0;
    for (;;) {
        pos = p.find('/', pos + 1);
        const std::string part = p.substr(0, pos);
        if (!part.empty() && part.back() != '/') {
            if (::mkdir(part.c_str(), 0755) != 0) {
                const int err = errno;
                // EEXIST also covers a file in the way; only a directory will do.
                if (err != EEXIST || !isDirectory(part)) {
                    setError(error, KyFile::describeError("Cannot create directory", part,
                                                          err == EEXIST ? ENOTDIR : err));
                    return false;
                }
            }
        }
        if (pos == std::string::npos) break;
    }
    return true;
}

bool KyDir::exists(const KyString& path) { return !path.isEmpty() && isDirectory(path.toStdString()); }

bool KyDir::remove(const KyString& path, KyString* error) {
    if (::rmdir(path.c_str()) != 0) {
        setError(error, KyFile::describeError("Cannot remove directory", path, errno));
        return false;
    }
    return true;
}

bool KyDir::removeRecursively(const KyString& path, KyString* error) {
    if (path.isEmpty()) {
        setError(error, KyFile::describeError("Cannot remove", path, ENOENT));
        return false;
    }
    return removeTree(path.toStdString(), error);
}

KyList<KyString> KyDir::entries(const KyString& path, bool* ok, KyString* error) {
    KyList<KyString> names;
    if (ok) *ok = false;
    DIR* dir = ::opendir(path.c_str());
    if (!dir) {
        setError(error, KyFile::describeError("Cannot list directory", path, errno));
        return names;
    }
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir);
        if (!entry) {
            if (errno != 0) {
                setError(error, KyFile::describeError("Cannot list directory", path, errno));
                ::closedir(dir);
                return {};
            }
            break;
        }
        const std::string_view name(entry->d_name);
        if (name == "." || name == "..") continue;
        names.append(KyString(name));
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    if (ok) *ok = true;
    return names;
}

KyString KyDir::currentPath() {
    char buffer[PATH_MAX];
    if (!::getcwd(buffer, sizeof buffer)) return KyString();
    return KyString(buffer);
}

KyString KyDir::createTemporary(const KyString& parent, const KyString& prefix, KyString* error) {
    std::string pattern = parent.toStdString() + "/" + prefix.toStdString() + "XXXXXX";
    if (!::mkdtemp(pattern.data())) {
        setError(error, KyFile::describeError("Cannot create directory", pattern, errno));
        return KyString();
    }
    return KyString(pattern);
}

KyString KyDir::parentPath(const KyString& path) {
    std::string p = path.toStdString();
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    const std::size_t slash = p.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return KyString(p.substr(0, slash));
}

KyString KyDir::fileName(const KyString& path) {
    const std::size_t slash = path.lastIndexOf('/');
    return slash == KyString::npos ? path : path.mid(slash + 1);
}

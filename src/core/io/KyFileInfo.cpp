// KyFileInfo implementation: one stat and one lstat per refresh.
#include "core/io/KyFileInfo.h"

#include <sys/stat.h>

#include <cerrno>

void KyFileInfo::refresh() {
    exists_ = isFile_ = isDir_ = isSymLink_ = false;
    size_ = 0;
    mtimeNs_ = 0;
    permissions_ = 0;
    error_ = 0;
    if (path_.isEmpty()) {
        error_ = ENOENT;
        return;
    }
    struct stat link {};
    isSymLink_ = ::lstat(path_.c_str(), &link) == 0 && S_ISLNK(link.st_mode);
    struct stat st {};
    if (::stat(path_.c_str(), &st) != 0) {
        error_ = errno;
        return;
    }
    exists_ = true;
    isFile_ = S_ISREG(st.st_mode);
    isDir_ = S_ISDIR(st.st_mode);
    size_ = static_cast<long long>(st.st_size);
    mtimeNs_ = static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    permissions_ = static_cast<unsigned>(st.st_mode) & 07777u;
}

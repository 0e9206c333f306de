// Saving the monitor log: temporary file, fsync, rename, fsync of the directory.
#include "console/VelmoVpnConsoleLogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

std::string homeDirectory() {
    const char* home = std::getenv("HOME");
    return home && *home ? std::string(home) : std::string(".");
}

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool writeAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

} // namespace

KyString velmoVpnConsoleDefaultLogPath() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char name[64];
    std::strftime(name, sizeof name, "VelmoVpnConsole-%Y%m%d-%H%M%S.log", &local);
    return KyString(homeDirectory() + "/" + name);
}

KyString velmoVpnConsoleExpandHome(const KyString& path) {
    const std::string& p = path.toStdString();
    if (p == "~") return KyString(homeDirectory());
    if (p.rfind("~/", 0) == 0) return KyString(homeDirectory() + p.substr(1));
    return path;
}

bool velmoVpnConsoleWriteFileAtomically(const KyString& path, const KyString& text, KyString& error) {
    const std::string target = path.toStdString();
    auto fail = [&](int code) {
        // The name and its folder apart: a message box wraps between words.
        const std::size_t cut = target.find_last_of('/');
        error = cut == std::string::npos
                    ? KyString("Could not save " + target + ": " + std::strerror(code))
                    : KyString("Could not save " + target.substr(cut + 1) + " in " +
                               (cut == 0 ? std::string("/") : target.substr(0, cut)) + ": " + std::strerror(code));
        return false;
    };
    if (target.empty() || target.back() == '/') return fail(EISDIR);
    const std::string directory = directoryOf(target);
    // Hidden, beside the target: the rename stays inside one file system.
    const std::size_t slash = target.find_last_of('/');
    const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
    std::string temp = (directory == "/" ? "" : directory) + "/." + base + ".XXXXXX";
    std::vector<char> name(temp.begin(), temp.end());
    name.push_back('\0');
    // mkstemp makes the file 0600 whatever the umask says.
    const int fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0) return fail(errno);
    temp.assign(name.data());
    const std::string& data = text.toStdString();
    int code = 0;
    if (!writeAll(fd, data.data(), data.size())) code = errno;
    else if (::fsync(fd) != 0) code = errno;
    if (::close(fd) != 0 && code == 0 && errno != EINTR) code = errno;
    if (code == 0 && ::rename(temp.c_str(), target.c_str()) != 0) code = errno;
    if (code != 0) {
        ::unlink(temp.c_str());
        return fail(code);
    }
    // The new name is on the disk only once its directory is.
    const int dir = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return true;
}

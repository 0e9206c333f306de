// KyTestIpc: a unique IPC domain per test and the removal of every shared
// object that the test and its child processes left behind.
//
// The framework never unlinks a shared object (they outlive processes by
// design), so a test suite that did not clean up would fill /dev/shm. The
// cleaner reads the domain's signal registry raw (no cleaning, so rows of
// dead children still name their channels), unlinks every channel it names,
// the domain's two registries, explicitly tracked names, and the dispatch
// tables of the processes it was told about. The machine-wide application
// registry is shared with every other process and is left alone.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <set>
#include <string>

#include "core/types/KyString.h"
#include "ipc/IpcNames.h"

namespace kytest {

class IpcDomain {
public:
    explicit IpcDomain(const char* tag = "t") {
        static std::atomic<int> counter{0};
        name_ = KyString("kytest-") + KyString(tag) + KyString("-") + KyString::number(static_cast<long long>(getpid())) +
                KyString("-") + KyString::number(static_cast<long long>(counter.fetch_add(1)));
        trackPid(static_cast<uint32_t>(getpid()));
    }
    ~IpcDomain() { cleanup(); }
    IpcDomain(const IpcDomain&) = delete;
    IpcDomain& operator=(const IpcDomain&) = delete;

    const KyString& name() const { return name_; }
    /// A channel object to remove at the end (object, signal or queue name).
    void track(const KyString& object, const KyString& signal) {
        names_.insert(ky::ipc::detail::make_shm_name(name_, object, signal).toStdString());
    }
    void trackName(const std::string& shmName) { names_.insert(shmName); }
    /// A process whose dispatch table is to be removed.
    void trackPid(uint32_t pid) { names_.insert("/ky_ipc_dispatch_tbl_v1_" + std::to_string(pid)); }

    void cleanup() {
        const std::string suffix = ky::ipc::detail::sanitizeRegistrySuffix_(name_).toStdString();
        const std::string registry = "/ky_ipc_registry_" + suffix;
        unlinkChannelsNamedIn_(registry);
        names_.insert(registry);
        names_.insert("/ky_ipc_subs_" + suffix);
        for (const std::string& n : names_) shm_unlink(n.c_str());
        names_.clear();
    }

private:
    void unlinkChannelsNamedIn_(const std::string& registry) {
        const int fd = shm_open(registry.c_str(), O_RDONLY, 0);
        if (fd < 0) return;
        struct stat st{};
        if (fstat(fd, &st) != 0 || st.st_size < 56) {
            close(fd);
            return;
        }
        void* p = mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ, MAP_SHARED, fd, 0);
        close(fd);
        if (p == MAP_FAILED) return;
        const auto* base = static_cast<const char*>(p);
        uint32_t count = 0;
        std::memcpy(&count, base + 8, 4);
        // Rows are 640 bytes from offset 56; the channel's name is at 32, 64 bytes wide.
        for (uint32_t i = 0; i < count && 56 + (i + 1) * 640ULL <= static_cast<uint64_t>(st.st_size); ++i) {
            const char* field = base + 56 + i * 640ULL + 32;
            names_.insert(std::string(field, strnlen(field, 64)));
        }
        munmap(p, static_cast<size_t>(st.st_size));
    }

    KyString name_;
    std::set<std::string> names_;
};

}  // namespace kytest

// ProcessObjects: noting, unlinking and sweeping per-pid objects. See
// ProcessObjects.h for the model.
#include "ipc/ProcessObjects.h"

#include <dirent.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "ipc/AppsRegistryTable.h"
#include "ipc/IpcNames.h"
#include "ipc/LoopPoller.h"
#include "ipc/RegistryShared.h"
#include "ipc/RegistryTable.h"

namespace ky::ipc::detail {

namespace {

constexpr std::string_view kReplyPrefix = "__rpc_ret__|";
constexpr std::string_view kDispatchPrefix = "ky_ipc_dispatch_tbl_v1_";
// Directory entries looked at by one sweep: /dev/shm is shared by every
// program of the machine, and a sweep must stay a small, bounded piece of work.
constexpr int kMaxDirectoryEntries = 4096;

// Leaked on purpose: the exit hook runs after static destructors may have.
struct OwnedObjects {
    std::mutex mutex;
    std::set<std::pair<pid_t, KyString>> names;  // (the noting process, object name)
    std::set<KyString> sweptDomains;
    bool dispatchTablesSwept = false;
};

OwnedObjects& owned() {
    static OwnedObjects* objects = new OwnedObjects;
    return *objects;
}

// The pid a text ends in after its last '|', or 0.
uint32_t trailingPid(std::string_view text) {
    const size_t bar = text.rfind('|');
    if (bar == std::string_view::npos || bar + 1 >= text.size() || text.size() - bar - 1 > 10) return 0;
    uint64_t pid = 0;
    for (size_t i = bar + 1; i < text.size(); ++i) {
        const char c = text[i];
        if (c < '0' || c > '9') return 0;
        pid = pid * 10 + static_cast<uint64_t>(c - '0');
    }
    return pid > 0 && pid <= 0x7FFFFFFFu ? static_cast<uint32_t>(pid) : 0;
}

// Dispatch tables of processes that are gone: nothing names them in any
// table, so the directory is the only place to find them.
void sweepDispatchTables() {
    DIR* dir = ::opendir("/dev/shm");
    if (dir == nullptr) return;
    int seen = 0;
    while (const dirent* entry = ::readdir(dir)) {
        if (++seen > kMaxDirectoryEntries) break;
        const std::string_view name(entry->d_name);
        if (name.size() <= kDispatchPrefix.size() || name.substr(0, kDispatchPrefix.size()) != kDispatchPrefix)
            continue;
        const std::string_view digits = name.substr(kDispatchPrefix.size());
        uint64_t pid = 0;
        bool ok = digits.size() <= 10;
        for (char c : digits) {
            if (c < '0' || c > '9') ok = false;
            if (ok) pid = pid * 10 + static_cast<uint64_t>(c - '0');
        }
        if (!ok || pid == 0 || pid > 0x7FFFFFFFu || !processGone_(static_cast<uint32_t>(pid))) continue;
        ::shm_unlink(("/" + std::string(name)).c_str());
    }
    ::closedir(dir);
}

}  // namespace

void ensureProcessExitHook_() {
    static std::once_flag once;
    std::call_once(once, [] { std::atexit(&AppsRegistryTable<64>::ProcessHooks::onExit_); });
}

void noteOwnedObject_(const KyString& shmName) {
    ensureProcessExitHook_();
    OwnedObjects& o = owned();
    std::lock_guard<std::mutex> lock(o.mutex);
    o.names.emplace(::getpid(), shmName);
}

void removeOwnedObjects_() {
    const pid_t self = ::getpid();
    std::set<std::pair<pid_t, KyString>> names;
    {
        OwnedObjects& o = owned();
        std::lock_guard<std::mutex> lock(o.mutex);
        names.swap(o.names);
    }
    for (const auto& [pid, name] : names) {
        if (pid == self) ::shm_unlink(name.c_str());
    }
    LoopPollerDispatchRegistry::release_();
}

uint32_t replyQueueOwnerPid_(const char* signal, size_t cap) {
    const std::string_view text(signal, boundedLength(signal, cap));
    if (text.substr(0, kReplyPrefix.size()) != kReplyPrefix) return 0;
    return trailingPid(text);
}

std::optional<bool> replyQueueRowStale_(const RegistryEntry& row) {
    const uint32_t owner = replyQueueOwnerPid_(row.signal, sizeof(row.signal));
    if (owner == 0) return std::nullopt;
    // A row without stamp or pid is no registration at all.
    if (!processGone_(owner)) return row.lastSeenMs == 0 || row.pid == 0;
    // The row is only a claim; the object is removed when the row's texts
    // hash to the name it gives (a cut text never does).
    const KyString shmName = boundedText(row.shmName, sizeof(row.shmName));
    const KyString expected = make_shm_name(boundedText(row.domain, sizeof(row.domain)),
                                            boundedText(row.object, sizeof(row.object)),
                                            boundedText(row.signal, sizeof(row.signal)));
    if (shmName == expected) ::shm_unlink(shmName.c_str());
    return true;
}

void sweepDeadProcessObjects_(const KyString& domain, bool force) {
    if (domain.isEmpty()) return;
    OwnedObjects& o = owned();
    bool sweepTables = false;
    {
        std::lock_guard<std::mutex> lock(o.mutex);
        if (!force && o.sweptDomains.count(domain) != 0) return;
        sweepTables = force || !o.dispatchTablesSwept;
        o.dispatchTablesSwept = true;
    }
    if (sweepTables) sweepDispatchTables();
    // A busy table is tried again at the next registration in the domain.
    if (!RegistryTable<256>::cleanIfFree_(domain)) return;
    std::lock_guard<std::mutex> lock(o.mutex);
    o.sweptDomains.insert(domain);
}

}  // namespace ky::ipc::detail

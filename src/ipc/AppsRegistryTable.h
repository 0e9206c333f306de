// AppsRegistryTable: the machine-wide list of live domains, one row per
// domain with up to 16 of its processes ("/ky_ipc_registry").
//
// Every process that registers a signal in a domain registers the domain
// here, renews its slot from a heartbeat and takes its slot out at exit
// (without waiting on a busy table: a process must not hang while it ends);
// the same exit hook removes the objects named after the process.
// Dead slots and rows are pruned by whoever passes by. All calls may be made
// from any thread; they never throw, never log and never report failure.
// Only the size 64 is instantiated.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>

#include "core/types/KyJsonValue.h"
#include "core/types/KyList.h"
#include "core/types/KyString.h"
#include "ipc/RegistryShared.h"

namespace ky::ipc {

/// Live domains of the machine and the processes that serve them.
template <size_t Rows>
class AppsRegistryTable {
public:
    using Layout = RegistryLayout<AppEntry, Rows>;

    /// The one mapped table; empty when it could not be opened.
    struct Mapping {
        Layout* layout = nullptr;
        explicit operator bool() const { return layout != nullptr; }
    };

    /// Per-process state: heartbeat flags and the domains this process registered.
    struct ProcessHooks {
        std::mutex mtx_;
        std::map<KyString, std::shared_ptr<std::atomic<bool>>> heartbeats_;
        std::set<KyString> domains_;
        KyString objectName_ = KyString("/ky_ipc_registry");
        static ProcessHooks& instance();
        /// Installed with atexit: takes this process out without blocking and
        /// unlinks the objects named after it (its reply queues and dispatch table).
        static void onExit_();
        /// Removes this process's slot from every domain it registered; with
        /// tryOnly a busy table is skipped. Ends the heartbeats.
        static void cleanup_(bool tryOnly);
    };

    /// Records this process under the domain (at most 16 processes a domain,
    /// 64 domains; beyond that silently absent).
    static void registerDomain(const KyString& domain);

    /// Live rows after cleaning: "domain", "shmName", "lastSeenMs" (double)
    /// and "pids" (array of integers), in that order.
    static KyList<KyJsonValue> snapshotDomains();

    /// Starts the once-a-second renewal of this process's slot of the domain
    /// on the calling thread's loop; does nothing when it already runs.
    static void ensureHeartbeat(const KyString& domain);

    /// "/ky_ipc_registry", unless a test moved the table elsewhere.
    static KyString objectName();

    /// Points this process at another table object, so tests can fill a
    /// table without disturbing the machine's own. Call before any use.
    static void setObjectNameForTesting_(const KyString& name);

private:
    static Mapping openOrCreate_();
    static void heartbeatTick_(const KyString& domain);
    // Adds or renews this process's slot under the domain; caller holds the mutex.
    static void touchRow_locked_(Layout* layout, const KyString& domain, uint32_t pid, uint64_t now);
    // Removes stale slots, then rows without slots, and returns the bounded
    // row count; caller holds the mutex.
    static uint32_t cleanupStale_locked_(Layout* layout, uint64_t now);
};

extern template class AppsRegistryTable<64>;

}  // namespace ky::ipc

// RegistryTable: the signals of one domain, a shared table that says which
// channels exist, under which shared object, with which signature and which
// process keeps them alive.
//
// Channels register themselves when they are built; proxies read the table
// through snapshot() to discover what a peer offers. Each process renews its
// own rows once a second from a heartbeat on the loop of the thread that
// first registered in the domain, and prunes other processes' dead rows when
// it passes by; a cleaning that drops the row of a reply queue whose owner is
// gone also removes that queue's object (see ProcessObjects.h). All calls
// may be made from any thread; they never throw, never log and never report
// failure. Only the size 256 is instantiated.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "core/types/KyJsonValue.h"
#include "core/types/KyList.h"
#include "core/types/KyString.h"
#include "ipc/RegistryShared.h"

namespace ky::ipc {

/// Directory of the signals and queues of a domain ("/ky_ipc_registry_" + suffix).
template <size_t Rows>
class RegistryTable {
public:
    using Layout = RegistryLayout<RegistryEntry, Rows>;

    /// The mapped table of one domain; empty when it could not be opened.
    struct Mapping {
        Layout* layout = nullptr;
        explicit operator bool() const { return layout != nullptr; }
    };

    /// Per-process state: one heartbeat flag per domain.
    struct ProcessHooks {
        std::mutex mtx_;
        std::map<KyString, std::shared_ptr<std::atomic<bool>>> heartbeats_;
        static ProcessHooks& instance();
    };

    /// Records (or renews) a signal of the domain for this process, then
    /// tells the domain's listeners that the directory changed.
    static void registerSignal(const KyString& domain, const KyString& object, const KyString& signal,
                               const KyString& shmName, uint64_t typeId, const KyString& typeName);

    /// One JSON object per live row, with the keys "hash", "typeId", "pid",
    /// "lastSeenMs", "shmName", "domain", "object", "signal", "typeName".
    static KyList<KyJsonValue> snapshot(const KyString& domain);

    /// Starts the once-a-second renewal of this process's rows of the domain
    /// on the calling thread's loop; does nothing when it already runs.
    static void ensureHeartbeat(const KyString& domain);

    /// "/ky_ipc_registry_" + the domain's suffix.
    static KyString objectName(const KyString& domain);

    /// Cleans the table unless another process holds it; false when it was busy.
    static bool cleanIfFree_(const KyString& domain);

private:
    static Mapping openOrCreate_(const KyString& domain);
    static void heartbeatTick_(const KyString& domain);
    // Removes stale rows and returns the bounded row count; the caller holds the table's mutex.
    static uint32_t cleanupStale_locked_(Layout* layout, uint64_t now);
};

extern template class RegistryTable<256>;

}  // namespace ky::ipc

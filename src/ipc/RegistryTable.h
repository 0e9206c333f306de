// RegistryTable: the signals of one domain, a shared table that says which
// channels exist, under which shared object, with which signature and which
// process keeps them alive.
//
// Channels register themselves when they are built; proxies read the table
// through snapshot() to discover what a peer offers. Each process renews its
// own rows once a second from a heartbeat on the loop of the thread that
// first registered in the domain, and prunes other processes' dead rows when
// it passes by. A process remembers what its channels registered: a process
// that stalled past the staleness limit (a debugger, SIGSTOP, a paused
// machine) finds its rows cleaned away by others, and its next heartbeat
// registers them again and announces the change; a cleaning that drops the row of a reply queue whose owner is
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

    /// A signal this process registered and still holds a channel of.
    struct RememberedSignal {
        KyString domain;
        KyString object;
        KyString signal;
        KyString shmName;
        uint64_t typeId = 0;
        KyString typeName;
        int holders = 0;     // channel objects of this process that hold it
        bool owned = false;  // the row carried this process's pid when last seen
    };

    /// Per-process state: one heartbeat flag per domain, and what this
    /// process registered (by row hash), so a heartbeat can put back rows
    /// that others' cleaning removed while this process was stalled.
    struct ProcessHooks {
        std::mutex mtx_;
        std::map<KyString, std::shared_ptr<std::atomic<bool>>> heartbeats_;
        std::map<uint64_t, RememberedSignal> registered_;
        static ProcessHooks& instance();
    };

    /// Records (or renews) a signal of the domain for this process, then
    /// tells the domain's listeners that the directory changed.
    static void registerSignal(const KyString& domain, const KyString& object, const KyString& signal,
                               const KyString& shmName, uint64_t typeId, const KyString& typeName);

    /// Remembers a registration for a channel object of this process (and
    /// registers it): while any such holder lives and the row is this
    /// process's own (not another live process's, such as a server's signal
    /// that a client opened), the heartbeat registers the row again, as a
    /// first registration would, whenever it finds it gone.
    static void holdSignal_(const KyString& domain, const KyString& object, const KyString& signal,
                            const KyString& shmName, uint64_t typeId, const KyString& typeName);
    /// A holder of holdSignal_ has gone; the last one ends the remembering
    /// (the row itself stays until the staleness rule takes it).
    static void releaseSignal_(const KyString& domain, const KyString& object, const KyString& signal);

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
    static uint64_t rowHash_(const KyString& domain, const KyString& object, const KyString& signal);
    // registerSignal; true when the row carries this process's pid afterwards.
    static bool register_(const KyString& domain, const KyString& object, const KyString& signal,
                          const KyString& shmName, uint64_t typeId, const KyString& typeName);
    // Fills a new row as a first registration does; caller holds the mutex.
    static void fillNewRow_(RegistryEntry& row, uint64_t hash, const RememberedSignal& what, uint32_t pid,
                            uint64_t now);
    // Refreshes the five text fields of a row; caller holds the mutex.
    static void fillTexts_(RegistryEntry& row, const RememberedSignal& what);
    // Removes stale rows and returns the bounded row count; the caller holds the table's mutex.
    static uint32_t cleanupStale_locked_(Layout* layout, uint64_t now);
};

extern template class RegistryTable<256>;

}  // namespace ky::ipc

// SubscribersRegistryTable: who listens to which signal of a domain, so that
// a publisher knows which processes to wake after a write.
//
// One row per (signal, listening process, subscriber object), counted: a
// second registration of the same triple raises refCount, an unregistration
// lowers it and removes the row at the last one. Each process renews its own
// rows from a heartbeat and prunes dead ones whenever it passes by (every
// publish lists the table). A process remembers its live subscriptions: when
// its heartbeat finds rows of its own cleaned away (it stood still past the
// staleness limit, and publishers stopped waking it), it registers them
// again, announces the change and runs one pass of its channels, so that
// every signal it follows is read again and what it missed is delivered. All calls may be made from any thread; they never
// throw, never log and never report failure. Only the size 512 is
// instantiated.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "core/types/KyString.h"
#include "ipc/RegistryShared.h"

namespace ky::ipc {

/// Listeners of the signals and queues of a domain ("/ky_ipc_subs_" + suffix).
template <size_t Rows>
class SubscribersRegistryTable {
public:
    using Layout = RegistryLayout<SubscriberEntry, Rows>;

    /// The mapped table of one domain; empty when it could not be opened.
    struct Mapping {
        Layout* layout = nullptr;
        explicit operator bool() const { return layout != nullptr; }
    };

    /// A subscription of this process and how many registrations it holds.
    struct RememberedSubscription {
        KyString domain;
        KyString object;
        KyString signal;
        KyString subObject;
        uint32_t registrations = 0;
    };

    /// Per-process state: one heartbeat flag per domain, and the live
    /// subscriptions of this process (by row hash), so a heartbeat can put
    /// back rows that others' cleaning removed while this process stood still.
    struct ProcessHooks {
        std::mutex mtx_;
        std::map<KyString, std::shared_ptr<std::atomic<bool>>> heartbeats_;
        std::map<uint64_t, RememberedSubscription> subscribed_;
        static ProcessHooks& instance();
    };

    /// Adds a listener, or counts one more registration of the same one.
    static void registerSubscription(const KyString& domain, const KyString& object, const KyString& signal,
                                     uint32_t pid, const KyString& subObject);

    /// Counts one registration less; the row goes with the last one. An
    /// unknown listener is no error.
    static void unregisterSubscription(const KyString& domain, const KyString& object, const KyString& signal,
                                       uint32_t pid, const KyString& subObject);

    /// Replaces out with the pids listening to the signal; may hold a pid
    /// more than once (callers sort and unique).
    static void listSubscriberPids(const KyString& domain, const KyString& object, const KyString& signal,
                                   std::vector<uint32_t>& out);

    /// Starts the once-a-second renewal of this process's rows of the domain
    /// on the calling thread's loop; does nothing when it already runs.
    static void ensureHeartbeat(const KyString& domain);

    /// "/ky_ipc_subs_" + the domain's suffix.
    static KyString objectName(const KyString& domain);

    /// Hash of domain|object|signal|sub|pid, with |subObject|name appended
    /// only for a non-empty subscriber object.
    static uint64_t subscriptionHash_(const KyString& domain, const KyString& object, const KyString& signal,
                                      uint32_t pid, const KyString& subObject);

private:
    static Mapping openOrCreate_(const KyString& domain);
    static void heartbeatTick_(const KyString& domain);
    // Fills a new row as a first registration does; caller holds the mutex.
    static void fillNewRow_(SubscriberEntry& row, uint64_t hash, const RememberedSubscription& what, uint32_t pid,
                            uint32_t refCount, uint64_t now);
    // Writes the signal name and, behind its terminator, the subscriber object.
    static void packSignal_(SubscriberEntry& row, const KyString& signal, const KyString& subObject);
    // Removes stale rows and returns the bounded row count; the caller holds the table's mutex.
    static uint32_t cleanupStale_locked_(Layout* layout, uint64_t now);
};

extern template class SubscribersRegistryTable<512>;

}  // namespace ky::ipc

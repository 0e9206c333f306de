// ProcessObjects: the shared objects that belong to one process alone, and
// their removal.
//
// Most objects of a domain are shared channels (signal blocks, request
// queues, registries): they outlive every user and the next start reuses
// them by name, so they never pile up. A few objects can only ever be used
// by one process, because their names carry its pid: its reply queues
// ("__rpc_ret__|<capacity>|<method>|<pid>") and its dispatch table
// ("/ky_ipc_dispatch_tbl_v1_<pid>"). Left behind, each start of a client
// would add its own set to /dev/shm, which is memory. So:
// - a process notes the per-pid objects it makes and unlinks them when it
//   ends normally, from the same exit hook that takes it out of the
//   application table (a peer that still maps one keeps working: unlinking
//   only takes the name away);
// - what a killed process left behind is swept by the next process that
//   opens the domain, and by every cleaning of the signal table that drops
//   a reply-queue row whose owner is gone (the row of a reply queue lives as
//   long as its owner, even one that stood still past the staleness limit). Only objects whose owner `kill`
//   reports gone are touched, only names a row proves to be a reply queue's
//   (the row's object name must be the hash of its texts), and never by
//   waiting on a table's mutex.
//
// Every function may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "core/types/KyString.h"

namespace ky::ipc {
struct RegistryEntry;
}

namespace ky::ipc::detail {

/// Records a per-pid object of this process, to be unlinked at normal exit.
void noteOwnedObject_(const KyString& shmName);

/// Installs, once per process, the exit hook that takes the process out of
/// the application table and unlinks its per-pid objects.
void ensureProcessExitHook_();

/// Unlinks every per-pid object this process noted (never a parent's, after
/// a fork) and its dispatch table. Run by the exit hook.
void removeOwnedObjects_();

/// The pid at the end of a reply queue's name ("__rpc_ret__|cap|method|pid"
/// in a field of `cap` bytes); 0 when the text is not a reply queue's name.
uint32_t replyQueueOwnerPid_(const char* signal, size_t cap);

/// Whether a cleaning removes a signal-table row of a reply queue: when its
/// owner is gone, and then the queue's object is unlinked as well (if the
/// row's object name is the one its texts hash to). While the owner lives the
/// row stays, however long the owner stood still: it is what finds the queue
/// again should the owner be killed later. Rows of other channels: nullopt.
std::optional<bool> replyQueueRowStale_(const RegistryEntry& row);

/// The sweep of a domain being opened: removes the reply queues (and their
/// rows) of owners that are gone, without waiting for a busy table, and,
/// once per process, the dispatch tables of gone processes. Bounded by the
/// table's rows and a fixed number of directory entries. Runs once per
/// domain and process unless `force` is set (the table was busy last time,
/// or a caller wants a sweep now).
void sweepDeadProcessObjects_(const KyString& domain, bool force = false);

}  // namespace ky::ipc::detail

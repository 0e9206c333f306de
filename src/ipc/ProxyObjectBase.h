// ProxyObjectBase: the client-side stand-in for one remote object, and the
// discovery of remote objects in a domain's signal registry.
//
// A remote object is known only through the rows it keeps in its domain's
// signal table: one "__rpc__|<capacity>|<method>" row per request queue it
// serves, renewed by its heartbeat and pruned when its process dies or stops
// beating for 15 s. discoverRpcTargets reads those rows and names the objects
// that serve a given set of methods; remotePid_ names the process behind one
// object, or 0 when no live process is left.
//
// Clients leave rows of their own under the server's object (their reply
// queues, and request queues they opened before the server came up), so a
// process never counts itself as the server of an object unless it really
// serves that object: servers announce the paths they serve in a small
// process-local set (markObjectServed_).
//
// Threads: every function here may be called from any thread; a proxy's
// strings are fixed at construction. Nothing here throws or logs: the
// registries are best effort and an unreadable table reads as empty.
#pragma once

#include <cstdint>

#include "core/types/KyJsonValue.h"
#include "core/types/KyList.h"
#include "core/types/KyString.h"
#include "ipc/RpcMethodClient.h"

namespace ky::ipc {

/// The sorted target strings (domain + "/" + object) of every object in the
/// domain that serves all methods of `specs` on this process's queue
/// capacity; with requireTypeMatch, also with the same request signature.
/// With no specs, every object that serves any method on that capacity counts.
KyList<KyString> discoverRpcTargets(const KyString& domain, const KyList<RpcRequestSpec>& specs,
                                    bool requireTypeMatch);

/// Base of every generated proxy class: where the remote object lives and who calls it.
class ProxyObjectBase {
public:
    ProxyObjectBase(const KyString& domain, const KyString& object, const KyString& clientInfo);
    virtual ~ProxyObjectBase();
    ProxyObjectBase(const ProxyObjectBase&) = delete;
    ProxyObjectBase& operator=(const ProxyObjectBase&) = delete;

    const KyString& domain() const { return domain_; }
    const KyString& object() const { return object_; }
    const KyString& clientInfo() const { return clientInfo_; }

    /// The pid of a live process that keeps rows under this object: one with
    /// a configuration row first, then one with a request queue, then any.
    /// This process counts only when it serves the object itself. 0 if none.
    uint32_t remotePid_() const;

private:
    KyString domain_;
    KyString object_;
    KyString clientInfo_;
};

namespace detail {

/// remotePid_ for a (domain, object) pair, without a proxy.
uint32_t remotePidOf_(const KyString& domain, const KyString& object);

/// discoverRpcTargets over rows already taken from the domain's snapshot
/// (a browser pass reads the table once for all its steps).
KyList<KyString> discoverRpcTargetsIn_(const KyList<KyJsonValue>& rows, const KyString& domain,
                                       const KyList<RpcRequestSpec>& specs, bool requireTypeMatch);
/// remotePidOf_ over rows already taken from the domain's snapshot.
uint32_t remotePidIn_(const KyList<KyJsonValue>& rows, const KyString& domain, const KyString& object);

/// A registry row's "pid" member in any of the forms a JSON layer may give
/// it (integer, double, bool); 0 when absent or out of range.
uint32_t rowPid_(const KyJsonValue& row);

/// Counts one more (served true) or one less (served false) local server
/// of `path` in `domain`. Remote objects call it from their constructor and
/// destructor, so that remotePid_ accepts this process's own rows for them.
void markObjectServed_(const KyString& domain, const KyString& path, bool served);

/// True while at least one object of this process serves `path` in `domain`.
bool isObjectServedHere_(const KyString& domain, const KyString& path);

}  // namespace detail
}  // namespace ky::ipc

// KyProxyObjectBrowser: keeps one proxy per remote object of a kind, as
// remote objects come and go in a domain.
//
// A browser names a domain, an object filter and a proxy class T. Each pass
// (refreshNow) discovers the objects that serve all of T's mandatory methods,
// builds a KyProxyObjectInstance<T> for each new one whose process is alive
// and announces it with remoteAppeared; an object that is no longer listed,
// or whose rows are all that is left of it, is announced with
// remoteDisappeared and deleted. After subscribeRegistryChanges_ a pass runs
// whenever the domain's registry event signal fires: at every registration
// and about once a second from each process's heartbeat, so a killed peer
// goes at the next pass and a wedged one 15 s after its last heartbeat.
//
// Threads: a browser and its instances belong to the thread that made the
// browser; refreshNow, clear and the subscription's passes run there (the
// subscription must be made on that thread, whose loop then polls it).
// Slots may delete the browser: a pass stops as soon as it finds itself gone.
//
// T derives from ky::ipc::ProxyObjectBase, is constructible from (domain,
// object, clientInfo) and offers
// `static void kyIpcRemoteAppendAllSpecs_(KyList<ky::ipc::RpcRequestSpec>&)`.
#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

#include "core/object/KyObject.h"
#include "core/types/KyList.h"
#include "core/types/KyMap.h"
#include "core/types/KyPointer.h"
#include "core/types/KyString.h"
#include "ipc/ProxyObjectBase.h"
#include "ipc/Registry.h"
#include "ipc/RpcMethodClient.h"
#include "ipc/Signal.h"

/// One discovered remote object: owns its proxy; the object name is the target string.
template <typename T>
class KyProxyObjectInstance : public KyObject {
    KY_OBJECT(KyProxyObjectInstance, KyObject)
public:
    KyProxyObjectInstance(const KyString& target, std::unique_ptr<T> proxy, KyObject* parent = nullptr)
        : KyObject(parent), proxy_(std::move(proxy)) {
        setObjectName(target);
    }

    /// The proxy; never null.
    T* proxy() const { return proxy_.get(); }
    T* operator->() const { return proxy_.get(); }
    /// domain + "/" + object path.
    const KyString& target() const { return getObjectName(); }

private:
    std::unique_ptr<T> proxy_;
};

/// The non-template half of every browser: discovery, filtering, diffing and
/// the registry subscription. The typed half builds and announces instances.
class KyProxyObjectBrowserBase : public KyObject {
    KY_OBJECT(KyProxyObjectBrowserBase, KyObject)
public:
    KyProxyObjectBrowserBase(const KyString& domain, const KyString& objectFilter, const KyString& clientInfo,
                             bool requireTypeMatch, KyObject* parent);
    /// Stops the subscription and deletes the instances without announcing them.
    ~KyProxyObjectBrowserBase() override;

    const KyString& domain() const { return domain_; }
    const KyString& objectFilter() const { return objectFilter_; }
    const KyString& clientInfo() const { return clientInfo_; }
    bool requireTypeMatch() const { return requireTypeMatch_; }
    /// The known target strings, sorted.
    KyList<KyString> targets() const { return instances_.keys(); }
    bool isSubscribed() const { return subscription_.active(); }

    /// One discovery pass: announces new live targets, then the lost ones.
    void refreshNow();
    /// Forgets every instance (announcing each as disappeared) and drops the
    /// registry subscription; a later refreshNow finds them again.
    void clear();
    /// (Re)subscribes to the domain's registry event signal; each event runs
    /// a pass. Call on the browser's thread.
    void subscribeRegistryChanges_();

    /// Trimmed, "\\" as "/", no "//", no leading or trailing "/".
    static KyString normalizePath_(const KyString& path);
    /// "*" matches all; "prefix/*" the paths under prefix; "*/suffix" the
    /// paths ending in "/suffix" (or equal to suffix); any other filter is
    /// compared with the whole path and with its last segment.
    static bool matchesObjectFilter_(const KyString& path, const KyString& filter);
    /// 1 when the process is gone (pid 0, or kill reports ESRCH), else 0.
    static int pidStateBestEffort_(uint32_t pid);

protected:
    virtual void appendSpecs_(KyList<ky::ipc::RpcRequestSpec>& specs) const = 0;
    /// A new instance for the target, or null; may throw (a signature mismatch).
    virtual KyObject* createInstance_(const KyString& domain, const KyString& object, const KyString& target) = 0;
    virtual ky::ipc::ProxyObjectBase* proxyOf_(KyObject* instance) const = 0;
    virtual void announceAppeared_(KyObject* instance) = 0;
    virtual void announceDisappeared_(KyObject* instance) = 0;

    /// The instance of a target, or null.
    KyObject* instanceOf_(const KyString& target) const { return instances_.value(target, nullptr); }

private:
    // One discovery pass; false when a slot deleted the browser meanwhile.
    bool refreshPass_();
    // Announces and deletes one instance; false when a slot deleted the browser.
    bool dropInstance_(const KyString& target);

    KyString domain_;
    KyString objectFilter_;
    KyString clientInfo_;
    bool requireTypeMatch_;
    KyMap<KyString, KyObject*> instances_;
    // Targets whose proxy could not be built, with the pid that served them:
    // not retried until another process serves the object, since building a
    // proxy registers rows, and every registration starts another pass.
    KyMap<KyString, uint32_t> rejected_;
    // The signal keeps a reference to the registry, which must outlive it.
    ky::ipc::Registry eventsRegistry_;
    std::unique_ptr<ky::ipc::Signal<uint64_t>> events_;
    ky::ipc::Signal<uint64_t>::Subscription subscription_;
    bool refreshing_ = false;
    bool refreshAgain_ = false;
};

/// Browses the domain for remote objects served as T and keeps one instance each.
template <typename T>
class KyProxyObjectBrowser : public KyProxyObjectBrowserBase {
    static_assert(std::is_base_of_v<ky::ipc::ProxyObjectBase, T>, "a proxy derives from ky::ipc::ProxyObjectBase");
    KY_OBJECT(KyProxyObjectBrowser, KyProxyObjectBrowserBase)
public:
    using Instance = KyProxyObjectInstance<T>;

    explicit KyProxyObjectBrowser(const KyString& domain, const KyString& objectFilter = KyString("*"),
                                  const KyString& clientInfo = KyString(), bool requireTypeMatch = true,
                                  KyObject* parent = nullptr)
        : KyProxyObjectBrowserBase(domain, objectFilter, clientInfo, requireTypeMatch, parent) {}

    /// The instance of a target, or null.
    Instance* instance(const KyString& target) const { return static_cast<Instance*>(instanceOf_(target)); }

    KY_SIGNAL(remoteAppeared, KyPointer<KyProxyObjectInstance<T>>)
    KY_SIGNAL(remoteDisappeared, KyPointer<KyProxyObjectInstance<T>>)

protected:
    void appendSpecs_(KyList<ky::ipc::RpcRequestSpec>& specs) const override { T::kyIpcRemoteAppendAllSpecs_(specs); }
    KyObject* createInstance_(const KyString& domain, const KyString& object, const KyString& target) override {
        auto proxy = std::make_unique<T>(domain, object, clientInfo());
        return new Instance(target, std::move(proxy), this);
    }
    ky::ipc::ProxyObjectBase* proxyOf_(KyObject* instance) const override {
        return static_cast<Instance*>(instance)->proxy();
    }
    void announceAppeared_(KyObject* instance) override {
        remoteAppeared(KyPointer<Instance>(static_cast<Instance*>(instance)));
    }
    void announceDisappeared_(KyObject* instance) override {
        remoteDisappeared(KyPointer<Instance>(static_cast<Instance*>(instance)));
    }
};

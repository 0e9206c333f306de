// KyRemoteObject: an object with an address on the IPC fabric and a layered
// JSON configuration that every instance of the same object name shares.
//
// The configuration lives in three file layers under the configuration root:
// global (read only), local (written by saveAsFactory) and user (written after
// every change, through an atomic save, so a crash never leaves half a file).
// The merged result is global, then local, then user deep-merged over each
// other. Every change is published as (instanceId, effective JSON) on the
// object's configuration signal "__config__|<objectName>"; the other instances
// turn what they receive into their own user layer (only what differs from
// their global and local layers, plus the paths marked touched), and ignore
// their own echo by instanceId.
//
// Threads: the object belongs to the thread that constructs it. Incoming
// publications and RPC requests are handled on that thread. Every public
// configuration call may be made from any thread: all configuration state is
// behind one KyMutex, which is never held while user code runs (apply
// closures and the signals configLoaded, configChanged and
// remoteConfigReceived run after unlocking, on the thread that made the
// change). The constructor throws std::runtime_error when the configuration
// channel, or the request queue of "system/saveAsFactory" or
// "system/resetFactory", exists with another layout or signature; nothing
// else here throws.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <type_traits>

#include "core/object/KyObject.h"
#include "core/runtime/KyMutex.h"
#include "core/types/KyJsonDocument.h"
#include "core/types/KyList.h"
#include "core/types/KyMap.h"
#include "core/types/KyString.h"
#include "ipc/Registry.h"
#include "ipc/RpcServerEndpoint.h"
#include "ipc/Signal.h"

class KyTimer;

/// A KyObject with an IPC address, exposed methods and a shared, layered configuration.
class KyRemoteObject : public KyObject {
    KY_OBJECT(KyRemoteObject, KyObject)

public:
    /// One value that code depends on: its default, its current value (the
    /// merged one when the configuration holds the path) and the closure that
    /// puts it into effect.
    struct RegisteredConfigEntry {
        KyJsonValue defaultValue;
        KyJsonValue value;
        std::function<void(const KyJsonValue&)> apply;
    };
    using TouchedSet = KyMap<KyString, bool>;

    /// Root key of the metadata ({"v": 1, "touched": [paths]}) in user documents and on the wire.
    static constexpr const char* kMetaKey = "__kyconfig__";
    /// Prefix of the configuration signal's name; the object name follows.
    static constexpr const char* kConfigSignalPrefix = "__config__|";

    /// Loads the three layers, subscribes to the configuration signal, exposes
    /// "system/saveAsFactory" and "system/resetFactory" and publishes the
    /// effective configuration. sysName is the IPC domain.
    KyRemoteObject(const KyString& sysName, const KyString& nameSpace, const KyString& objectName,
                   KyObject* parent = nullptr);
    /// Ends the subscription and the exposed methods, then writes a pending
    /// user save. The shared objects stay.
    ~KyRemoteObject() override;

    /// The root that later constructions use ("systemConfig" unless set; the
    /// environment variable KY_CONFIG_ROOT, when not empty, replaces that default).
    static void setDefaultConfigRoot(const KyString& root);
    static KyString defaultConfigRoot();

    const KyString& sysName() const { return sysName_; }
    const KyString& nameSpace() const { return nameSpace_; }
    const KyString& objectPath() const { return ipcRegistry_.object; }
    const KyString& configRoot() const { return configRoot_; }
    ky::ipc::Registry& ipcRegistry() { return ipcRegistry_; }
    /// Marks this instance as the sender of its publications.
    uint64_t instanceId() const { return instanceId_; }

    KyString userConfigPath() const;
    KyString localConfigPath() const;
    KyString globalConfigPath() const;

    // Snapshots of the configuration state, taken under the lock.
    KyJsonObject mergedConfig() const;
    KyJsonObject userConfig() const;
    KyJsonObject localConfig() const;
    KyList<KyString> touchedPaths() const;
    /// The merged configuration with the registered values and the metadata, as text.
    KyString effectiveConfigJson(KyJsonDocument::Format format = KyJsonDocument::Compact) const;

    /// Adopts a publication of another instance: what differs from global and
    /// local (or is marked touched) becomes the user layer. Malformed text, or
    /// a root that is not an object, is dropped.
    void applyRemoteConfig(uint64_t senderId, const KyString& json);
    /// Writes the merged configuration (no metadata) to the local layer, clears
    /// the user layer, its file and touched. True when the local file was written.
    bool saveAsFactory();
    /// Removes the user file and clears the user layer and touched. True when
    /// no user file is left.
    bool resetFactory();

    /// Registers a value code depends on and returns its current value; apply
    /// runs now and after every later change of the merged configuration.
    KyJsonValue registerConfigEntry(const KyString& path, const KyJsonValue& defaultValue,
                                    std::function<void(const KyJsonValue&)> apply = {});
    /// The merged value at path, else a registered default, else null.
    KyJsonValue configValue(const KyString& path) const;
    /// Sets a user value: marks path touched, saves (after the save delay) and
    /// publishes. The path's segments name object members; whatever is in the
    /// way in the user layer becomes an object. False for an empty path.
    bool setConfigValue(const KyString& path, const KyJsonValue& value);

    /// Delay of the user save, in ms (100); 0 or less writes at once. Call
    /// from the object's thread.
    void setSaveDelayMs(int ms);
    int saveDelayMs() const;
    /// True while a change of the user layer waits for its save.
    bool hasPendingSave() const;

    /// Exposes a member function as the RPC method name; returns the id under
    /// which the subscription is kept. Requests run on this object's thread.
    template <class C, class R, class... P>
    uint64_t ipcExposeRpcT(const KyString& name, C* object, R (C::*fn)(P...), bool fireInitial) {
        return rpc_.expose<R, std::decay_t<P>...>(
            name, [object, fn](const std::decay_t<P>&... args) -> R { return (object->*fn)(args...); },
            fireInitial);
    }
    template <class C, class R, class... P>
    uint64_t ipcExposeRpcT(const KyString& name, C* object, R (C::*fn)(P...) const, bool fireInitial) {
        return rpc_.expose<R, std::decay_t<P>...>(
            name, [object, fn](const std::decay_t<P>&... args) -> R { return (object->*fn)(args...); },
            fireInitial);
    }
    /// Ends one exposed method; false for an unknown id.
    bool ipcStopRpc(uint64_t id) { return rpc_.stop(id); }

    KY_SIGNAL(configLoaded, const KyJsonObject&)
    KY_SIGNAL(configChanged, const KyJsonObject&)
    KY_SIGNAL(remoteConfigReceived, uint64_t, const KyJsonObject&)

    // Pure helpers of the configuration; any thread may call them.
    /// Makes the root an object (an empty one when it is anything else).
    static void ensureObjectRoot(KyJsonDocument& doc);
    /// Objects merge key by key, recursively; anything else (arrays included) replaces.
    static void mergeObjectDeep_(KyJsonObject& dst, const KyJsonObject& src);
    /// Deep equality where an integer and a double with no fraction are equal numbers.
    static bool jsonDeepEqual_(const KyJsonValue& a, const KyJsonValue& b);
    /// Copies the value at a configuration path; false when it is absent.
    static bool tryFindValueNoLog_(const KyJsonValue& root, const KyString& path, KyJsonValue& out);
    /// Adds every leaf path of value (under prefix) to out.
    static void collectLeafConfigPaths_(const KyJsonValue& value, const KyString& prefix, TouchedSet& out);
    /// Adds the "touched" paths of a metadata object to touched.
    static void mergeTouchedPathsFromMeta_(const KyJsonValue& meta, TouchedSet& touched);
    /// Removes the metadata key from an object root, adding its touched paths to touched.
    static void stripTouchedMetaFromDoc_(KyJsonDocument& doc, TouchedSet& touched);
    /// What the user layer must hold to reach value over base; false when nothing.
    static bool buildUserOverrideValue_(const KyJsonValue& value, const KyJsonValue& base, KyJsonValue& out,
                                        const TouchedSet& touched, const KyString& path);
    /// Trimmed, "\\" as "/", no empty segments, no slash at either end.
    static KyString normalizeConfigPath_(const KyString& path);
    /// "/" and "\\" as "_", no "_" or "/" at either end; "root" when empty.
    static KyString sanitizeNsForFile_(const KyString& text);
    /// Bytes other than ASCII letters, digits, "-", "." and "_" as "_".
    static KyString safeFileName_(const KyString& text);
    /// The object path of an object name under a name space.
    static KyString objectPathFor_(const KyString& nameSpace, const KyString& objectName);

private:
    struct ApplyCall_ {
        std::function<void(const KyJsonValue&)> apply;
        KyJsonValue value;
    };

    const KyString& configRootAbsolute_() const { return rootAbsolute_; }
    static KyString absoluteRoot_(const KyString& root);
    bool loopAvailable_() const;
    bool loadDocFromFile_locked(const KyString& path, KyJsonDocument& doc) const;
    bool writeDocToFile_locked(const KyJsonDocument& doc, const KyString& path, bool compact) const;
    void recomputeMerged_locked();
    KyJsonObject baseConfig_locked_() const;
    KyString effectiveConfigJson_locked_(KyJsonDocument::Format format) const;
    void injectTouchedMeta_locked_(KyJsonDocument& doc) const;
    /// Refreshes the registered values from merged and returns the closures to run after unlocking.
    KyList<ApplyCall_> refreshEntries_locked_();
    void scheduleUserDocSave_locked_();
    void cancelUserDocSave_locked_();
    /// Empties the user layer (file, document, touched paths, pending save),
    /// recomputes and publishes; true when the merged result moved from before.
    bool dropUserLayer_locked_(const KyJsonValue& before, KyList<ApplyCall_>& calls, KyJsonObject& merged);
    void flushUserDocSave_locked_();
    void startShmConfigSubscription_locked();
    void publishConfig_(const KyString& effectiveJson);
    static void runApplyCalls_(const KyList<ApplyCall_>& calls);

    KyString sysName_;
    KyString nameSpace_;
    KyString objectName_;
    KyString configRoot_;
    // Taken once, so a later change of the working directory does not move the files.
    KyString rootAbsolute_;
    // Channels keep a reference to the registry: it is declared before them.
    ky::ipc::Registry ipcRegistry_;
    ky::ipc::Signal<uint64_t, KyString> configSignal_;

    mutable KyMutex mutex_;
    KyJsonDocument global_;
    KyJsonDocument local_;
    KyJsonDocument user_;
    KyJsonDocument merged_;
    TouchedSet touched_;
    KyMap<KyString, RegisteredConfigEntry> entries_;
    bool savePending_ = false;
    int saveDelayMs_ = 100;
    KyTimer* saveTimer_ = nullptr;

    uint64_t instanceId_ = 0;
    std::shared_ptr<std::atomic<bool>> alive_;
    ky::ipc::detail::SubscriptionHandle configSubscription_;
    ky::ipc::RpcServerEndpoint rpc_;
};

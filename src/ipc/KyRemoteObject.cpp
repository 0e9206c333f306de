// KyRemoteObject: layers, merging, the configuration signal and the user save.
//
// Lock order: the object's mutex, then the configuration block's mutex (a
// publication goes out under the object's mutex, so two threads changing the
// configuration publish in the order of their changes). Readers of the block
// only try-lock it and call back outside it, so the order never inverts.
#include "ipc/KyRemoteObject.h"

#include "ipc/ProxyObjectBase.h"

#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <mutex>

#include "core/io/KyDebug.h"
#include "core/io/KyDir.h"
#include "core/io/KyFile.h"
#include "core/io/KyFileInfo.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"
#include "core/runtime/KyTimer.h"

namespace {

constexpr const char* kCategory = "ky.ipc.kyremoteobject";
constexpr uint64_t kInstanceMultiplier = 0x9E3779B97F4A7C15ULL;

struct DefaultRoot {
    std::mutex mutex;
    bool set = false;
    KyString root;
};

DefaultRoot& defaultRoot() {
    static DefaultRoot* state = new DefaultRoot;  // outlives objects destroyed by static destructors
    return *state;
}

KyString joinPath(const KyString& prefix, const KyString& key) {
    return prefix.isEmpty() ? key : prefix + "/" + key;
}

// True when some touched path lies strictly below path.
bool hasTouchedBelow(const KyRemoteObject::TouchedSet& touched, const KyString& path) {
    if (path.isEmpty()) return !touched.isEmpty();
    const KyString prefix = path + "/";
    const auto it = touched.lower_bound(prefix);
    return it != touched.end() && it->first.startsWith(prefix);
}

// Sets value at a slash path of object members, turning whatever is in the way into objects.
void setValueAtPath(KyJsonValue& root, const KyString& path, const KyJsonValue& value) {
    const KyList<KyString> segments = path.split('/', true);
    KyJsonValue* node = &root;
    for (const KyString& segment : segments) {
        if (!node->isObject()) *node = KyJsonValue(KyJsonValue::Object);
        node = &(*node->objectPtr())[segment.view()];
    }
    *node = value;
}

// Drops touched paths above and below path: the new value replaces both.
void forgetRelatedTouched(KyRemoteObject::TouchedSet& touched, const KyString& path) {
    for (auto it = touched.begin(); it != touched.end();) {
        const KyString& other = it->first;
        const bool related = other.startsWith(path + "/") || path.startsWith(other + "/");
        it = related ? touched.erase(it) : std::next(it);
    }
}

}  // namespace

// ---- Construction and teardown ----

KyRemoteObject::KyRemoteObject(const KyString& sysName, const KyString& nameSpace, const KyString& objectName,
                               KyObject* parent)
    : KyObject(parent),
      sysName_(sysName),
      nameSpace_(nameSpace),
      objectName_(objectName),
      configRoot_(defaultConfigRoot()),
      rootAbsolute_(absoluteRoot_(configRoot_)),
      ipcRegistry_{sysName, objectPathFor_(nameSpace, objectName)},
      configSignal_(ipcRegistry_, KyString(kConfigSignalPrefix) + objectName),
      alive_(std::make_shared<std::atomic<bool>>(true)),
      rpc_(ipcRegistry_, ipcRegistry_.object, alive_, [this] { return thread(); }) {
    // Rows of this process under this path are the server's own, not a client's.
    ky::ipc::detail::markObjectServed_(ipcRegistry_.domain, ipcRegistry_.object, true);
    setObjectName(objectName);
    instanceId_ = (static_cast<uint64_t>(::getpid()) << 32) ^
                  (static_cast<uint64_t>(reinterpret_cast<uintptr_t>(this)) * kInstanceMultiplier);

    saveTimer_ = new KyTimer(this);
    saveTimer_->setSingleShot(true);
    saveTimer_->setInterval(saveDelayMs_);
    saveTimer_->connectTimeout([this, alive = alive_] {
        if (!alive->load()) return;
        KyMutexLocker lock(mutex_);
        flushUserDocSave_locked_();
    });

    for (const char* layer : {"/global", "/local", "/user"}) {
        KyString error;
        if (!KyDir::createPathTree(rootAbsolute_ + layer, &error))
            kyLogWarning(kCategory) << "cannot create configuration directory:" << error;
    }

    KyList<ApplyCall_> calls;
    KyJsonObject loaded;
    {
        KyMutexLocker lock(mutex_);
        for (KyJsonDocument* doc : {&global_, &local_, &user_, &merged_}) doc->setObject(KyJsonObject());
        loadDocFromFile_locked(globalConfigPath(), global_);
        loadDocFromFile_locked(localConfigPath(), local_);
        loadDocFromFile_locked(userConfigPath(), user_);
        // A layer whose root is not an object contributes nothing to the merge.
        ensureObjectRoot(global_);
        ensureObjectRoot(local_);
        ensureObjectRoot(user_);
        stripTouchedMetaFromDoc_(user_, touched_);
        collectLeafConfigPaths_(user_.root(), KyString(), touched_);
        recomputeMerged_locked();
        calls = refreshEntries_locked_();
        loaded = merged_.object();
    }
    runApplyCalls_(calls);
    configLoaded(loaded);

    {
        KyMutexLocker lock(mutex_);
        if (configSubscription_.id() == 0) startShmConfigSubscription_locked();
    }

    ipcExposeRpcT("system/saveAsFactory", this, &KyRemoteObject::saveAsFactory, true);
    ipcExposeRpcT("system/resetFactory", this, &KyRemoteObject::resetFactory, true);

    KyMutexLocker lock(mutex_);
    publishConfig_(effectiveConfigJson_locked_(KyJsonDocument::Compact));
}

KyRemoteObject::~KyRemoteObject() {
    alive_->store(false);
    ky::ipc::detail::markObjectServed_(ipcRegistry_.domain, ipcRegistry_.object, false);
    configSubscription_.stop();
    rpc_.stopAll();
    {
        KyMutexLocker lock(mutex_);
        flushUserDocSave_locked_();
    }
    delete saveTimer_;
    saveTimer_ = nullptr;
}

void KyRemoteObject::setDefaultConfigRoot(const KyString& root) {
    DefaultRoot& d = defaultRoot();
    std::lock_guard<std::mutex> lock(d.mutex);
    d.set = true;
    d.root = root;
}

KyString KyRemoteObject::defaultConfigRoot() {
    DefaultRoot& d = defaultRoot();
    {
        std::lock_guard<std::mutex> lock(d.mutex);
        if (d.set) return d.root;
    }
    const char* env = std::getenv("KY_CONFIG_ROOT");
    if (env && *env) return KyString(env);
    return KyString("systemConfig");
}

KyString KyRemoteObject::absoluteRoot_(const KyString& root) {
    if (root.startsWith("/") || root.startsWith("\\") || (root.size() >= 2 && root[1] == ':')) return root;
    return KyDir::currentPath() + "/" + root;
}

// ---- Paths ----

KyString KyRemoteObject::userConfigPath() const {
    return rootAbsolute_ + "/user/" + sanitizeNsForFile_(sysName_) + "_" + sanitizeNsForFile_(objectPath()) + ".json";
}

KyString KyRemoteObject::localConfigPath() const {
    return rootAbsolute_ + "/local/" + sanitizeNsForFile_(sysName_) + "_" + sanitizeNsForFile_(objectPath()) +
           ".json";
}

KyString KyRemoteObject::globalConfigPath() const {
    return rootAbsolute_ + "/global/" + safeFileName_(objectName_) + ".json";
}

KyString KyRemoteObject::objectPathFor_(const KyString& nameSpace, const KyString& objectName) {
    KyString ns = nameSpace.replaced("\\", "/");
    std::size_t begin = 0;
    std::size_t end = ns.size();
    while (begin < end && ns[begin] == '/') ++begin;
    while (end > begin && ns[end - 1] == '/') --end;
    ns = ns.mid(begin, end - begin);
    return ns.isEmpty() ? objectName : ns + "/" + objectName;
}

KyString KyRemoteObject::sanitizeNsForFile_(const KyString& text) {
    std::string s = text.toStdString();
    for (char& c : s)
        if (c == '/' || c == '\\') c = '_';
    std::size_t begin = 0;
    std::size_t end = s.size();
    while (begin < end && (s[begin] == '_' || s[begin] == '/')) ++begin;
    while (end > begin && (s[end - 1] == '_' || s[end - 1] == '/')) --end;
    s = s.substr(begin, end - begin);
    return s.empty() ? KyString("root") : KyString(std::move(s));
}

KyString KyRemoteObject::safeFileName_(const KyString& text) {
    std::string s = text.toStdString();
    for (char& c : s) {
        const bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                          c == '.' || c == '_';
        if (!keep) c = '_';
    }
    return KyString(std::move(s));
}

KyString KyRemoteObject::normalizeConfigPath_(const KyString& path) {
    std::string out;
    const KyString trimmed = path.trimmed();
    out.reserve(trimmed.size());
    for (char c : trimmed) {
        if (c == '\\') c = '/';
        if (c == '/' && (out.empty() || out.back() == '/')) continue;
        out.push_back(c);
    }
    if (!out.empty() && out.back() == '/') out.pop_back();
    return KyString(std::move(out));
}

// ---- Pure JSON helpers ----

void KyRemoteObject::ensureObjectRoot(KyJsonDocument& doc) {
    if (!doc.isObject()) doc.setObject(KyJsonObject());
}

void KyRemoteObject::mergeObjectDeep_(KyJsonObject& dst, const KyJsonObject& src) {
    for (const KyJsonObject::Member& member : src) {
        KyJsonValue* target = dst.valuePtr(member.key.view());
        if (target && target->isObject() && member.value.isObject()) {
            mergeObjectDeep_(*target->objectPtr(), member.value.asObject());
        } else {
            dst.insert(member.key, member.value);
        }
    }
}

bool KyRemoteObject::jsonDeepEqual_(const KyJsonValue& a, const KyJsonValue& b) {
    if (a.isNumber() && b.isNumber()) {
        if (a.isInteger() && b.isInteger()) return a.toInt64() == b.toInt64();
        if (a.isDouble() && b.isDouble()) return a.toDouble() == b.toDouble();
        const KyJsonValue& integer = a.isInteger() ? a : b;
        const double d = (a.isDouble() ? a : b).toDouble();
        double whole = 0.0;
        if (!std::isfinite(d) || std::modf(d, &whole) != 0.0) return false;
        // Outside the int64 range no double equals an integer value.
        if (d < -9223372036854775808.0 || d >= 9223372036854775808.0) return false;
        return static_cast<int64_t>(d) == integer.toInt64();
    }
    if (a.type() != b.type()) return false;
    switch (a.type()) {
    case KyJsonValue::Null:
        return true;
    case KyJsonValue::Bool:
        return a.toBool() == b.toBool();
    case KyJsonValue::String:
        return a.asString() == b.asString();
    case KyJsonValue::Array: {
        const KyJsonArray& x = a.asArray();
        const KyJsonArray& y = b.asArray();
        if (x.size() != y.size()) return false;
        for (std::size_t i = 0; i < x.size(); ++i)
            if (!jsonDeepEqual_(x.at(i), y.at(i))) return false;
        return true;
    }
    case KyJsonValue::Object: {
        const KyJsonObject& x = a.asObject();
        const KyJsonObject& y = b.asObject();
        if (x.size() != y.size()) return false;
        for (const KyJsonObject::Member& member : x) {
            const KyJsonValue* other = y.valuePtr(member.key.view());
            if (!other || !jsonDeepEqual_(member.value, *other)) return false;
        }
        return true;
    }
    default:
        return false;
    }
}

bool KyRemoteObject::tryFindValueNoLog_(const KyJsonValue& root, const KyString& path, KyJsonValue& out) {
    const KyString p = normalizeConfigPath_(path);
    if (p.isEmpty()) return false;
    const KyJsonValue* found = root.find(p.view());
    if (!found) return false;
    out = *found;
    return true;
}

void KyRemoteObject::collectLeafConfigPaths_(const KyJsonValue& value, const KyString& prefix, TouchedSet& out) {
    if (value.isObject() && !value.asObject().isEmpty()) {
        for (const KyJsonObject::Member& member : value.asObject())
            collectLeafConfigPaths_(member.value, joinPath(prefix, member.key), out);
        return;
    }
    const KyString path = normalizeConfigPath_(prefix);
    if (!path.isEmpty()) out.insert(path, true);
}

void KyRemoteObject::mergeTouchedPathsFromMeta_(const KyJsonValue& meta, TouchedSet& touched) {
    if (!meta.isObject()) return;
    // Metadata of another version may mean something else by its list.
    const KyJsonValue& version = meta["v"];
    if (!version.isNull() && !jsonDeepEqual_(version, KyJsonValue(1))) return;
    for (const KyJsonValue& item : meta["touched"].asArray()) {
        if (!item.isString()) continue;
        const KyString path = normalizeConfigPath_(item.asString());
        if (!path.isEmpty()) touched.insert(path, true);
    }
}

void KyRemoteObject::stripTouchedMetaFromDoc_(KyJsonDocument& doc, TouchedSet& touched) {
    KyJsonObject* root = doc.root().objectPtr();
    if (!root || !root->contains(kMetaKey)) return;
    mergeTouchedPathsFromMeta_(root->take(kMetaKey), touched);
}

bool KyRemoteObject::buildUserOverrideValue_(const KyJsonValue& value, const KyJsonValue& base, KyJsonValue& out,
                                             const TouchedSet& touched, const KyString& path) {
    const KyString p = normalizeConfigPath_(path);
    if (jsonDeepEqual_(value, base)) {
        if (!p.isEmpty() && touched.contains(p)) {
            out = value;
            return true;
        }
        // An equal object may still hold touched members, which the user owns.
        if (!value.isObject() || !hasTouchedBelow(touched, p)) return false;
    } else if (!value.isObject() || !base.isObject()) {
        out = value;
        return true;
    }
    KyJsonObject kept;
    const KyJsonObject& baseObject = base.asObject();
    for (const KyJsonObject::Member& member : value.asObject()) {
        KyJsonValue sub;
        if (buildUserOverrideValue_(member.value, baseObject[member.key.view()], sub, touched,
                                    joinPath(p, member.key)))
            kept.insert(member.key, std::move(sub));
    }
    // An object that keeps nothing is nothing to keep: the base already has its shape.
    if (kept.isEmpty()) return false;
    out = KyJsonValue(std::move(kept));
    return true;
}

// ---- Layers ----

bool KyRemoteObject::loadDocFromFile_locked(const KyString& path, KyJsonDocument& doc) const {
    // A missing layer is normal: it stays an empty object.
    if (!KyFileInfo(path).isFile()) return false;
    KyString text;
    KyString error;
    if (!KyFile::readAll(path, text, &error)) {
        kyLogWarning(kCategory) << "cannot read configuration layer:" << error;
        return false;
    }
    if (!doc.loadFromJson(text.view())) {
        kyLogWarning(kCategory) << "ignoring malformed configuration layer" << path << ":" << doc.errorString();
        return false;
    }
    return true;
}

bool KyRemoteObject::writeDocToFile_locked(const KyJsonDocument& doc, const KyString& path, bool compact) const {
    KyString error;
    if (!KyDir::createPathTree(KyDir::parentPath(path), &error)) {
        kyLogWarning(kCategory) << "cannot create configuration directory:" << error;
        return false;
    }
    KyString text = doc.generateJson(compact ? KyJsonDocument::Compact : KyJsonDocument::Indented);
    // The tail: every file ends in exactly one line feed.
    if (!text.endsWith("\n")) text += '\n';
    // Through a temporary and a rename, so a crash leaves the old file or the new one.
    if (!KyFile::writeAtomically(path, text.view(), &error)) {
        kyLogWarning(kCategory) << "cannot write configuration file:" << error;
        return false;
    }
    return true;
}

void KyRemoteObject::recomputeMerged_locked() {
    KyJsonObject merged;
    mergeObjectDeep_(merged, global_.root().asObject());
    mergeObjectDeep_(merged, local_.root().asObject());
    mergeObjectDeep_(merged, user_.root().asObject());
    merged_.setObject(std::move(merged));
}

KyJsonObject KyRemoteObject::baseConfig_locked_() const {
    KyJsonObject base;
    mergeObjectDeep_(base, global_.root().asObject());
    mergeObjectDeep_(base, local_.root().asObject());
    return base;
}

void KyRemoteObject::injectTouchedMeta_locked_(KyJsonDocument& doc) const {
    ensureObjectRoot(doc);
    KyJsonArray paths;
    for (const auto& entry : touched_) paths.append(KyJsonValue(entry.first));
    KyJsonObject meta;
    meta.insert("v", KyJsonValue(1));
    meta.insert("touched", KyJsonValue(std::move(paths)));
    doc.root().objectPtr()->insert(kMetaKey, KyJsonValue(std::move(meta)));
}

KyString KyRemoteObject::effectiveConfigJson_locked_(KyJsonDocument::Format format) const {
    KyJsonDocument doc(merged_.root());
    for (const auto& [path, entry] : entries_) {
        if (KyJsonValue* slot = doc.find(path.view(), true)) *slot = entry.value;
    }
    injectTouchedMeta_locked_(doc);
    return doc.generateJson(format);
}

KyList<KyRemoteObject::ApplyCall_> KyRemoteObject::refreshEntries_locked_() {
    KyList<ApplyCall_> calls;
    for (auto& [path, entry] : entries_) {
        KyJsonValue value;
        if (!tryFindValueNoLog_(merged_.root(), path, value)) value = entry.defaultValue;
        entry.value = value;
        if (entry.apply) calls.append(ApplyCall_{entry.apply, std::move(value)});
    }
    return calls;
}

void KyRemoteObject::runApplyCalls_(const KyList<ApplyCall_>& calls) {
    for (const ApplyCall_& call : calls) call.apply(call.value);
}

// ---- Saving ----

bool KyRemoteObject::loopAvailable_() const {
    ky::atomic::Thread* owner = thread();
    if (owner) return ky::atomic::Thread::isLive(owner) && owner->application() != nullptr;
    return KyCoreApplication::instance(false) != nullptr;
}

void KyRemoteObject::scheduleUserDocSave_locked_() {
    savePending_ = true;
    if (saveDelayMs_ > 0 && saveTimer_ && loopAvailable_()) {
        // Restarting the single-shot timer collapses a burst of changes into one write.
        saveTimer_->start();
        return;
    }
    flushUserDocSave_locked_();
}

void KyRemoteObject::cancelUserDocSave_locked_() {
    savePending_ = false;
    if (saveTimer_) saveTimer_->stop();
}

void KyRemoteObject::flushUserDocSave_locked_() {
    if (!savePending_) return;
    savePending_ = false;
    KyJsonDocument copy(user_.root());
    TouchedSet ignored;
    stripTouchedMetaFromDoc_(copy, ignored);
    writeDocToFile_locked(copy, userConfigPath(), false);
}

void KyRemoteObject::setSaveDelayMs(int ms) {
    KyMutexLocker lock(mutex_);
    saveDelayMs_ = ms;
    if (saveTimer_) saveTimer_->setInterval(ms > 0 ? ms : 0);
}

int KyRemoteObject::saveDelayMs() const {
    KyMutexLocker lock(mutex_);
    return saveDelayMs_;
}

bool KyRemoteObject::hasPendingSave() const {
    KyMutexLocker lock(mutex_);
    return savePending_;
}

// ---- The configuration signal ----

void KyRemoteObject::startShmConfigSubscription_locked() {
    configSubscription_.stop();
    // The subscriber row names this object, so the registry tells who listens.
    ky::ipc::detail::ScopedSubscriberObject scope(ipcRegistry_.object);
    KyRemoteObject* self = this;
    configSubscription_ = configSignal_.connect(
        [self, alive = alive_, own = instanceId_](uint64_t sender, const KyString& json) {
            if (sender == own || !alive->load()) return;
            std::function<void()> task = [self, alive, sender, json] {
                if (alive->load()) self->applyRemoteConfig(sender, json);
            };
            ky::atomic::Thread* owner = self->thread();
            if (owner && owner != ky::atomic::Thread::currentThread() &&
                ky::atomic::Thread::postTaskIfLive_(owner, task))
                return;
            task();
        },
        false, 0);
}

void KyRemoteObject::publishConfig_(const KyString& effectiveJson) {
    if (!configSignal_.publish(instanceId_, effectiveJson))
        kyLogDebug(kCategory) << "configuration of" << effectiveJson.size()
                              << "bytes is too large to publish; other instances miss this change";
}

// ---- Configuration changes ----

void KyRemoteObject::applyRemoteConfig(uint64_t senderId, const KyString& json) {
    KyList<ApplyCall_> calls;
    KyJsonObject merged;
    {
        KyMutexLocker lock(mutex_);
        KyJsonDocument incoming;
        if (!incoming.loadFromJson(json.view()) || !incoming.isObject()) {
            kyLogDebug(kCategory) << "dropping a configuration publication that is not a JSON object";
            return;
        }
        TouchedSet touched;
        stripTouchedMetaFromDoc_(incoming, touched);
        const KyJsonValue base(baseConfig_locked_());
        for (const auto& [path, entry] : entries_) {
            if (incoming.find(path.view())) continue;
            if (KyJsonValue* slot = incoming.find(path.view(), true)) *slot = entry.value;
        }
        KyJsonValue newUser;
        if (!buildUserOverrideValue_(incoming.root(), base, newUser, touched, KyString()) || !newUser.isObject())
            newUser = KyJsonValue(KyJsonValue::Object);
        collectLeafConfigPaths_(newUser, KyString(), touched);
        touched_ = std::move(touched);
        if (newUser == user_.root()) return;
        user_.setRoot(std::move(newUser));
        recomputeMerged_locked();
        scheduleUserDocSave_locked_();
        calls = refreshEntries_locked_();
        merged = merged_.object();
    }
    runApplyCalls_(calls);
    configChanged(merged);
    remoteConfigReceived(senderId, merged);
}

bool KyRemoteObject::dropUserLayer_locked_(const KyJsonValue& before, KyList<ApplyCall_>& calls,
                                           KyJsonObject& merged) {
    const KyString userPath = userConfigPath();
    KyString error;
    if (KyFileInfo(userPath).isFile() && !KyFile::remove(userPath, &error))
        kyLogWarning(kCategory) << "cannot remove the user configuration:" << error;
    user_.setObject(KyJsonObject());
    touched_.clear();
    cancelUserDocSave_locked_();
    recomputeMerged_locked();
    const bool changed = merged_.root() != before;
    if (changed) calls = refreshEntries_locked_();
    merged = merged_.object();
    publishConfig_(effectiveConfigJson_locked_(KyJsonDocument::Compact));
    return changed;
}

bool KyRemoteObject::saveAsFactory() {
    KyList<ApplyCall_> calls;
    KyJsonObject merged;
    bool changed = false;
    {
        KyMutexLocker lock(mutex_);
        // merged never holds metadata: it is stripped from every layer as it is loaded.
        const KyJsonDocument factory(merged_.root());
        if (!writeDocToFile_locked(factory, localConfigPath(), false)) return false;
        const KyJsonValue before = merged_.root();
        local_ = factory;
        changed = dropUserLayer_locked_(before, calls, merged);
    }
    if (changed) {
        runApplyCalls_(calls);
        configChanged(merged);
    }
    return true;
}

bool KyRemoteObject::resetFactory() {
    KyList<ApplyCall_> calls;
    KyJsonObject merged;
    bool changed = false;
    bool clean = false;
    {
        KyMutexLocker lock(mutex_);
        const KyJsonValue before = merged_.root();  // a copy: the layer drop recomputes merged_
        changed = dropUserLayer_locked_(before, calls, merged);
        clean = !KyFileInfo(userConfigPath()).isFile();
    }
    if (changed) {
        runApplyCalls_(calls);
        configChanged(merged);
    }
    return clean;
}

// ---- Values ----

KyJsonValue KyRemoteObject::registerConfigEntry(const KyString& path, const KyJsonValue& defaultValue,
                                                std::function<void(const KyJsonValue&)> apply) {
    const KyString p = normalizeConfigPath_(path);
    if (p.isEmpty()) {
        kyLogWarning(kCategory) << "registerConfigEntry: empty configuration path";
        return KyJsonValue();
    }
    KyJsonValue value;
    {
        KyMutexLocker lock(mutex_);
        if (!tryFindValueNoLog_(merged_.root(), p, value)) value = defaultValue;
        entries_.insert(p, RegisteredConfigEntry{defaultValue, value, apply});
    }
    if (apply) apply(value);
    return value;
}

KyJsonValue KyRemoteObject::configValue(const KyString& path) const {
    const KyString p = normalizeConfigPath_(path);
    KyMutexLocker lock(mutex_);
    KyJsonValue value;
    if (tryFindValueNoLog_(merged_.root(), p, value)) return value;
    const auto it = entries_.find(p);
    return it != entries_.end() ? it->second.defaultValue : KyJsonValue();
}

bool KyRemoteObject::setConfigValue(const KyString& path, const KyJsonValue& value) {
    const KyString p = normalizeConfigPath_(path);
    if (p.isEmpty()) {
        kyLogWarning(kCategory) << "setConfigValue: empty configuration path";
        return false;
    }
    KyList<ApplyCall_> calls;
    KyJsonObject merged;
    bool changed = false;
    {
        KyMutexLocker lock(mutex_);
        const KyJsonValue* current = user_.find(p.view());
        if (current && *current == value && touched_.contains(p)) return true;
        ensureObjectRoot(user_);
        setValueAtPath(user_.root(), p, value);
        forgetRelatedTouched(touched_, p);
        touched_.insert(p, true);
        const KyJsonValue before = merged_.root();
        recomputeMerged_locked();
        changed = merged_.root() != before;
        scheduleUserDocSave_locked_();
        if (changed) calls = refreshEntries_locked_();
        merged = merged_.object();
        publishConfig_(effectiveConfigJson_locked_(KyJsonDocument::Compact));
    }
    if (changed) {
        runApplyCalls_(calls);
        configChanged(merged);
    }
    return true;
}

// ---- Snapshots ----

KyJsonObject KyRemoteObject::mergedConfig() const {
    KyMutexLocker lock(mutex_);
    return merged_.object();
}

KyJsonObject KyRemoteObject::userConfig() const {
    KyMutexLocker lock(mutex_);
    return user_.object();
}

KyJsonObject KyRemoteObject::localConfig() const {
    KyMutexLocker lock(mutex_);
    return local_.object();
}

KyList<KyString> KyRemoteObject::touchedPaths() const {
    KyMutexLocker lock(mutex_);
    return touched_.keys();
}

KyString KyRemoteObject::effectiveConfigJson(KyJsonDocument::Format format) const {
    KyMutexLocker lock(mutex_);
    return effectiveConfigJson_locked_(format);
}

// KySettings implementation. Memory is the truth between saves; the file is
// read at construction and on sync(), and written whole through KySaveFile.
#include "core/io/KySettings.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "core/io/KyDebug.h"
#include "core/io/KyDir.h"
#include "core/io/KyFile.h"
#include "core/io/KyFileInfo.h"
#include "core/io/KySaveFile.h"
#include "core/platform/KyStandardPaths.h"

namespace {

constexpr const char* kCategory = "ky.core.io.kysettings";

// Names become path components; a '/' inside one would move the file elsewhere.
KyString pathComponent(const KyString& name) {
    KyString out = name.trimmed().replaced("/", "_");
    if (out == "." || out == "..") out.replace(".", "_");
    return out;
}

KyString timestamp() {
    const std::time_t now = std::time(nullptr);
    std::tm tmv {};
    localtime_r(&now, &tmv);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y%m%d-%H%M%S", &tmv);
    return KyString(buf);
}

} // namespace

KyString KySettings::defaultFileName(const KyString& organisation, const KyString& application) {
    KyString app = pathComponent(application);
    KyString org = pathComponent(organisation);
    if (app.isEmpty()) app = org.isEmpty() ? KyString("ky") : org;
    if (org.isEmpty()) org = app;
    return KyStandardPaths::configDirectory() + "/" + org + "/" + app + ".conf";
}

KySettings::KySettings(const KyString& organisation, const KyString& application)
    : KySettings(defaultFileName(organisation, application)) {}

KySettings::KySettings(const KyString& filePath) : path_(filePath) {
    std::lock_guard<std::mutex> lock(mutex_);
    loadLocked_(values_);
}

KySettings::~KySettings() {
    bool unsaved;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        unsaved = cleared_ || !pending_.isEmpty();
    }
    if (unsaved && !save())
        kyLogWarning(kCategory) << "Unsaved settings lost:" << errorString();
}

KyString KySettings::fileName() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return path_;
}

KySettings::Status KySettings::status() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return status_;
}

KyString KySettings::errorString() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return errorString_;
}

KyString KySettings::keptAsideFileName() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return keptAside_;
}

void KySettings::keepAsideLocked_(const char* suffix, const KyString& reason, Status status) {
    status_ = status;
    errorString_ = reason;
    const KyString base = path_ + suffix + timestamp();
    KyString aside = base;
    // Two bad files within one second must not overwrite each other.
    for (int n = 1; KyFile::exists(aside) && n < 1000; ++n) aside = base + "-" + KyString::number(n);
    KyString error;
    if (!KyFile::exists(aside) && KyFile::rename(path_, aside, &error)) {
        keptAside_ = aside;
        fileProtected_ = false;
        kyLogWarning(kCategory) << "Settings file" << path_ << "cannot be used (" + reason + ");"
                                << "kept as" << aside << "and starting empty";
    } else {
        fileProtected_ = true;
        kyLogWarning(kCategory) << "Settings file" << path_ << "cannot be used (" + reason + ")"
                                << "and cannot be moved aside (" + error + "); it will not be overwritten";
    }
}

bool KySettings::loadLocked_(KySettingsFormat::Entries& out) {
    out.clear();
    fileProtected_ = false;
    const KyFileInfo info(path_);
    if (!info.exists()) {
        if (info.error() != ENOENT && info.error() != 0) {
            // A component that is not a directory, or a permission on the way:
            // nothing is there that a save could destroy, but nothing works either.
            status_ = AccessError;
            errorString_ = KyFile::describeError("Cannot read", path_, info.error());
            return true;
        }
        status_ = NoError;
        errorString_.clear();
        return true;
    }
    if (info.isDir()) {
        status_ = AccessError;
        errorString_ = KyFile::describeError("Cannot read", path_, EISDIR);
        fileProtected_ = true; // a directory is never replaced
        return false;
    }
    KyString text;
    KyString error;
    if (!KyFile::readAll(path_, text, &error)) {
        keepAsideLocked_(".unreadable-", error, AccessError);
        return !fileProtected_;
    }
    if (!KySettingsFormat::parse(text, out, &error)) {
        keepAsideLocked_(".corrupt-", error, FormatError);
        return !fileProtected_;
    }
    status_ = NoError;
    errorString_.clear();
    return true;
}

bool KySettings::writeLocked_() {
    if (fileProtected_) {
        status_ = AccessError;
        errorString_ = "Settings file " + path_ + " was not readable and is kept; not overwriting it";
        return false;
    }
    KyString error;
    const KyString dir = KyDir::parentPath(path_);
    if (!KyDir::createPathTree(dir, &error) ||
        !KySaveFile::writeAtomically(path_, KySettingsFormat::serialize(values_).view(), &error, 0600)) {
        status_ = AccessError;
        errorString_ = error;
        kyLogWarning(kCategory) << "Cannot save settings:" << error;
        return false;
    }
    pending_.clear();
    cleared_ = false;
    status_ = NoError;
    errorString_.clear();
    return true;
}

bool KySettings::save() {
    std::lock_guard<std::mutex> lock(mutex_);
    return writeLocked_();
}

bool KySettings::sync() {
    std::lock_guard<std::mutex> lock(mutex_);
    KySettingsFormat::Entries merged;
    // A file that went bad since the last read is kept aside; what this
    // object holds is then the best copy left, so it stays the base.
    if (!loadLocked_(merged) || status_ != NoError) merged = values_;
    if (cleared_) merged.clear();
    for (const auto& [key, change] : pending_) {
        if (change) merged.insert(key, *change);
        else merged.remove(key);
    }
    values_ = std::move(merged);
    return writeLocked_();
}

void KySettings::beginGroup(const KyString& prefix) {
    std::lock_guard<std::mutex> lock(mutex_);
    groups_.append(KySettingsFormat::normalizeKey(prefix));
}

void KySettings::endGroup() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (groups_.isEmpty()) {
        kyLogWarning(kCategory) << "endGroup() without beginGroup()";
        return;
    }
    groups_.pop_back();
}

KyString KySettings::group() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return fullKey_(KyString());
}

KyString KySettings::fullKey_(const KyString& key) const {
    KyString full;
    for (const KyString& g : groups_) {
        if (g.isEmpty()) continue;
        if (!full.isEmpty()) full += '/';
        full += g;
    }
    const KyString k = KySettingsFormat::normalizeKey(key);
    if (k.isEmpty()) return full;
    return full.isEmpty() ? k : full + "/" + k;
}

std::optional<KyString> KySettings::lookup_(const KyString& key) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = values_.find(fullKey_(key));
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

bool KySettings::contains(const KyString& key) const { return lookup_(key).has_value(); }

KyString KySettings::value(const KyString& key, const KyString& defaultValue) const {
    return lookup_(key).value_or(defaultValue);
}

int KySettings::valueInt(const KyString& key, int defaultValue, bool* ok) const {
    const std::optional<KyString> text = lookup_(key);
    bool good = false;
    int v = text ? text->toInt(&good) : 0;
    if (ok) *ok = good;
    return good ? v : defaultValue;
}

long long KySettings::valueLongLong(const KyString& key, long long defaultValue, bool* ok) const {
    const std::optional<KyString> text = lookup_(key);
    bool good = false;
    long long v = text ? text->toLongLong(&good) : 0;
    if (ok) *ok = good;
    return good ? v : defaultValue;
}

double KySettings::valueDouble(const KyString& key, double defaultValue, bool* ok) const {
    const std::optional<KyString> text = lookup_(key);
    bool good = false;
    double v = text ? text->toDouble(&good) : 0.0;
    if (ok) *ok = good;
    return good ? v : defaultValue;
}

bool KySettings::valueBool(const KyString& key, bool defaultValue, bool* ok) const {
    const std::optional<KyString> text = lookup_(key);
    if (ok) *ok = false;
    if (!text) return defaultValue;
    const KyString t = text->trimmed().toLower();
    if (t == "true" || t == "1" || t == "yes" || t == "on") {
        if (ok) *ok = true;
        return true;
    }
    if (t == "false" || t == "0" || t == "no" || t == "off") {
        if (ok) *ok = true;
        return false;
    }
    return defaultValue;
}

KyList<KyString> KySettings::valueStringList(const KyString& key, const KyList<KyString>& defaultValue) const {
    const std::optional<KyString> text = lookup_(key);
    return text ? KySettingsFormat::decodeStringList(*text) : defaultValue;
}

void KySettings::setRaw_(const KyString& key, const KyString& value) {
    std::lock_guard<std::mutex> lock(mutex_);
    const KyString full = fullKey_(key);
    if (full.isEmpty()) {
        kyLogWarning(kCategory) << "setValue() with an empty key is ignored";
        return;
    }
    values_.insert(full, value);
    pending_.insert(full, value);
}

void KySettings::setValue(const KyString& key, const KyString& value) { setRaw_(key, value); }
void KySettings::setValue(const KyString& key, int value) { setRaw_(key, KyString::number(value)); }
void KySettings::setValue(const KyString& key, long long value) { setRaw_(key, KyString::number(value)); }
void KySettings::setValue(const KyString& key, unsigned long long value) { setRaw_(key, KyString::number(value)); }
void KySettings::setValue(const KyString& key, double value) { setRaw_(key, KyString::number(value)); }
void KySettings::setValue(const KyString& key, bool value) { setRaw_(key, value ? "true" : "false"); }
void KySettings::setValue(const KyString& key, const KyList<KyString>& value) {
    setRaw_(key, KySettingsFormat::encodeStringList(value));
}

void KySettings::remove(const KyString& key) {
    std::lock_guard<std::mutex> lock(mutex_);
    const KyString full = fullKey_(key);
    const KyString prefix = full.isEmpty() ? KyString() : full + "/";
    for (auto it = values_.begin(); it != values_.end();) {
        if (it->first == full || it->first.startsWith(prefix.view())) {
            pending_.insert(it->first, std::nullopt);
            it = values_.erase(it);
        } else {
            ++it;
        }
    }
}

KyList<KyString> KySettings::childKeys() const {
    std::lock_guard<std::mutex> lock(mutex_);
    const KyString g = fullKey_(KyString());
    const KyString prefix = g.isEmpty() ? KyString() : g + "/";
    KyList<KyString> keys;
    for (auto it = values_.lower_bound(prefix); it != values_.end() && it->first.startsWith(prefix.view()); ++it) {
        const KyString rest = it->first.mid(prefix.size());
        if (!rest.contains('/')) keys.append(rest);
    }
    return keys;
}

KyList<KyString> KySettings::childGroups() const {
    std::lock_guard<std::mutex> lock(mutex_);
    const KyString g = fullKey_(KyString());
    const KyString prefix = g.isEmpty() ? KyString() : g + "/";
    KyList<KyString> groups;
    for (auto it = values_.lower_bound(prefix); it != values_.end() && it->first.startsWith(prefix.view()); ++it) {
        const KyString rest = it->first.mid(prefix.size());
        const std::size_t slash = rest.indexOf('/');
        if (slash == KyString::npos) continue;
        const KyString child = rest.left(slash);
        if (!groups.contains(child)) groups.append(child);
    }
    std::sort(groups.begin(), groups.end());
    return groups;
}

KyList<KyString> KySettings::allKeys() const {
    std::lock_guard<std::mutex> lock(mutex_);
    const KyString g = fullKey_(KyString());
    const KyString prefix = g.isEmpty() ? KyString() : g + "/";
    KyList<KyString> keys;
    for (auto it = values_.lower_bound(prefix); it != values_.end() && it->first.startsWith(prefix.view()); ++it)
        keys.append(it->first.mid(prefix.size()));
    return keys;
}

void KySettings::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    values_.clear();
    pending_.clear();
    cleared_ = true;
}

bool KySettings::hasUnsavedChanges() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return cleared_ || !pending_.isEmpty();
}

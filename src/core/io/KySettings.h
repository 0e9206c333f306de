// KySettings: a per-application store of keyed text values in one file.
//
// The store is read from its file when constructed and kept in memory; reads
// and writes work on memory, and save() or sync() write the whole file
// atomically through KySaveFile, so a crash during a save leaves either the old
// or the new file, never a mix. Unsaved changes are also saved when the object
// is destroyed. The text format is KySettingsFormat's ("[group]" sections of
// "key=value" lines).
//
// Where the file lives: KySettings(organisation, application) uses
//   KyStandardPaths::configDirectory() + "/" + organisation + "/" + application + ".conf"
// (e.g. ~/.config/velmo/VelmoVpnConsole.conf); when the organisation is empty
// the application name is used for the directory too. The file-path
// constructor takes any path, for tests and tools.
//
// A file that cannot be parsed, or that exists but cannot be read, reads as an
// empty store: it is renamed aside to "<file>.corrupt-<YYYYmmdd-HHMMSS>" (or
// ".unreadable-..."), with its bytes intact, and a warning is logged under
// "ky.core.io.kysettings". The next save then writes a fresh file. If it could
// not be moved aside, save() refuses to overwrite it.
//
// Keys are paths: "login/lastEmail" is the key "lastEmail" in group "login".
// beginGroup()/endGroup() put a prefix in front of every key the calls take.
//
// Threads: every call takes an internal mutex, so one object may be shared.
// The group prefix is state of the object, though: threads that share one
// object should use full keys and leave the group empty.
#pragma once

#include <mutex>
#include <optional>

#include "core/io/KySettingsFormat.h"
#include "core/types/KyList.h"
#include "core/types/KyMap.h"
#include "core/types/KyString.h"

/// Persistent application settings: groups of typed values, saved atomically.
class KySettings {
public:
    enum Status {
        NoError,     ///< the last load, save or sync went well
        AccessError, ///< the file could not be read or written
        FormatError, ///< the file was corrupt and has been kept aside
    };

    KySettings(const KyString& organisation, const KyString& application);
    explicit KySettings(const KyString& filePath);
    /// Saves unsaved changes.
    ~KySettings();
    KySettings(const KySettings&) = delete;
    KySettings& operator=(const KySettings&) = delete;

    /// The default file of an application (see the rule above).
    static KyString defaultFileName(const KyString& organisation, const KyString& application);

    KyString fileName() const;
    /// The outcome of the most recent load, save or sync; a successful save or sync clears an earlier error.
    Status status() const;
    /// The reason behind a status other than NoError.
    KyString errorString() const;
    /// Where a corrupt or unreadable file was moved; empty when nothing was.
    KyString keptAsideFileName() const;

    /// Nestable: beginGroup("login"); beginGroup("advanced") works in "login/advanced".
    void beginGroup(const KyString& prefix);
    void endGroup();
    /// The current group path ("" at the top).
    KyString group() const;

    bool contains(const KyString& key) const;
    KyString value(const KyString& key, const KyString& defaultValue = KyString()) const;
    /// The stored text as a number, or the default when missing or not a number.
    int valueInt(const KyString& key, int defaultValue = 0, bool* ok = nullptr) const;
    long long valueLongLong(const KyString& key, long long defaultValue = 0, bool* ok = nullptr) const;
    double valueDouble(const KyString& key, double defaultValue = 0.0, bool* ok = nullptr) const;
    /// "true"/"false", "1"/"0", "yes"/"no", "on"/"off" (any case); anything else gives the default.
    bool valueBool(const KyString& key, bool defaultValue = false, bool* ok = nullptr) const;
    /// A list stored by setValue(key, KyList<KyString>); missing gives the default.
    KyList<KyString> valueStringList(const KyString& key, const KyList<KyString>& defaultValue = {}) const;

    void setValue(const KyString& key, const KyString& value);
    void setValue(const KyString& key, const char* value) { setValue(key, KyString(value)); }
    void setValue(const KyString& key, int value);
    void setValue(const KyString& key, long value) { setValue(key, static_cast<long long>(value)); }
    void setValue(const KyString& key, long long value);
    void setValue(const KyString& key, unsigned int value) { setValue(key, static_cast<unsigned long long>(value)); }
    void setValue(const KyString& key, unsigned long value) { setValue(key, static_cast<unsigned long long>(value)); }
    void setValue(const KyString& key, unsigned long long value);
    void setValue(const KyString& key, double value);
    void setValue(const KyString& key, bool value);
    void setValue(const KyString& key, const KyList<KyString>& value);

    /// Removes the key and every key below it; an empty key removes the current group's contents.
    void remove(const KyString& key);
    /// Keys directly in the current group.
    KyList<KyString> childKeys() const;
    /// Groups directly below the current group.
    KyList<KyString> childGroups() const;
    /// Every key below the current group, relative to it.
    KyList<KyString> allKeys() const;
    /// Removes every key of the store, whatever the current group.
    void clear();
    /// True when there are changes that no save or sync has written yet.
    bool hasUnsavedChanges() const;

    /// Writes what this object holds, replacing the file (atomically).
    bool save();
    /// Re-reads the file, puts this object's unsaved changes on top, and
    /// writes the result: changes other processes saved meanwhile survive,
    /// and this object sees them afterwards.
    bool sync();

private:
    KyString fullKey_(const KyString& key) const;
    std::optional<KyString> lookup_(const KyString& key) const;
    void setRaw_(const KyString& key, const KyString& value);
    /// Reads the file into out; a bad file is moved aside. False only when the file had to stay.
    bool loadLocked_(KySettingsFormat::Entries& out);
    void keepAsideLocked_(const char* suffix, const KyString& reason, Status status);
    bool writeLocked_();

    mutable std::mutex mutex_;
    KyString path_;
    KyList<KyString> groups_;
    KySettingsFormat::Entries values_;
    // Changes since the last write: a value, or nullopt for a removal.
    KyMap<KyString, std::optional<KyString>> pending_;
    bool cleared_ = false;
    // The file is there but was neither read nor moved aside: writing would destroy it.
    bool fileProtected_ = false;
    Status status_ = NoError;
    KyString errorString_;
    KyString keptAside_;
};

// The remembered login in the console's settings file. See the header.
#include "console/VelmoVpnConsoleLoginMemory.h"

#include <string_view>

#include "console/VelmoVpnConsoleStatus.h"
#include "core/io/KyDebug.h"
#include "core/io/KySettings.h"

namespace {

constexpr const char* kCategory = "velmo.console.login";
constexpr const char* kGroup = "login";
constexpr const char* kBaseUrlKey = "baseUrl";
constexpr const char* kLastEmailKey = "lastEmail";
constexpr const char* kHistoryKey = "emailHistory";

// Only these four: an address with a form feed in it is not one we made.
KyString trimLineBlanks_(const KyString& text) {
    std::string_view v = text.view();
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t first = v.find_first_not_of(blanks);
    if (first == std::string_view::npos) return KyString();
    const std::size_t last = v.find_last_not_of(blanks);
    return KyString(v.substr(first, last - first + 1));
}

KyString storedValue_(const char* key) {
    const std::unique_ptr<KySettings> settings = VelmoVpnConsoleLoginMemory::makeSettings_();
    settings->beginGroup(kGroup);
    return settings->value(key).trimmed();
}

} // namespace

std::unique_ptr<KySettings> VelmoVpnConsoleLoginMemory::makeSettings_() {
    return std::make_unique<KySettings>("velmo", "VelmoVpnConsole");
}

KyList<KyString> VelmoVpnConsoleLoginMemory::loadHistory_(const KySettings& settings) {
    return settings.value(kHistoryKey).split('\n');
}

KyList<KyString> VelmoVpnConsoleLoginMemory::sanitizedHistory_(const KyList<KyString>& entries) {
    KyList<KyString> kept;
    KyList<KyString> keptLower;
    for (const KyString& entry : entries) {
        if (kept.count() >= kHistoryLimit) break;
        const KyString text = trimLineBlanks_(entry);
        if (text.isEmpty()) continue;
        const KyString lower = text.toLower();
        if (keptLower.contains(lower)) continue;
        kept.append(text);
        keptLower.append(lower);
    }
    return kept;
}

KyString velmoVpnConsoleRememberedBaseUrl() {
    const KyString url = storedValue_(kBaseUrlKey);
    return url.isEmpty() ? velmoVpnConsoleDefaultBaseUrl() : url;
}

KyString velmoVpnConsoleRememberedEmail() { return storedValue_(kLastEmailKey); }

KyList<KyString> velmoVpnConsoleRememberedEmailHistory() {
    const std::unique_ptr<KySettings> settings = VelmoVpnConsoleLoginMemory::makeSettings_();
    settings->beginGroup(kGroup);
    return VelmoVpnConsoleLoginMemory::sanitizedHistory_(VelmoVpnConsoleLoginMemory::loadHistory_(*settings));
}

void velmoVpnConsoleRememberLoginIdentity(const KyString& baseUrl, const KyString& email) {
    const KyString address = email.trimmed();
    if (address.isEmpty()) return;
    const KyString url = baseUrl.trimmed();

    const std::unique_ptr<KySettings> settings = VelmoVpnConsoleLoginMemory::makeSettings_();
    settings->beginGroup(kGroup);
    settings->setValue(kBaseUrlKey, url.isEmpty() ? velmoVpnConsoleDefaultBaseUrl() : url);
    settings->setValue(kLastEmailKey, address);
    KyList<KyString> history = VelmoVpnConsoleLoginMemory::loadHistory_(*settings);
    history.prepend(address);
    settings->setValue(kHistoryKey, KyString::join(VelmoVpnConsoleLoginMemory::sanitizedHistory_(history), "\n"));
    settings->endGroup();
    // sync rather than save: another console may have stored meanwhile, and
    // the keys it wrote that we did not touch should survive.
    if (!settings->sync())
        kyLogWarning(kCategory) << "Could not store the login identity in" << settings->fileName() << ":"
                                << settings->errorString();
}

// The remembered login: the last base URL, the last e-mail and a short history
// of e-mails, so that the login form is ready the next time. The password is
// never stored here.
//
// Storage: the settings file of the console, KySettings("velmo",
// "VelmoVpnConsole"), that is $XDG_CONFIG_HOME/velmo/VelmoVpnConsole.conf
// (~/.config/... without the variable), group "login":
//   baseUrl       last base URL (the default workspace server when never set)
//   lastEmail     last e-mail
//   emailHistory  earlier e-mails, newest first, joined by line feeds; at most
//                 7, one spelling per address whatever its case
// Each read opens the file afresh and each store saves it atomically, so two
// consoles never leave a torn file; the later store wins.
//
// Threads: called on the main thread by the console; the settings functions
// keep no state, so any thread may call them; the three that take a completer
// touch widgets and are for the GUI thread only. Failures to save are logged under
// "velmo.console.login" and otherwise ignored: a forgotten e-mail costs the
// user one retype.
#pragma once

#include <memory>

#include "core/types/KyList.h"
#include "core/types/KyString.h"

class KyCompleter;
class KyLineEdit;
class KySettings;

/// The remembered base URL, trimmed; the default workspace server when none.
KyString velmoVpnConsoleRememberedBaseUrl();
/// The remembered e-mail, trimmed; empty when none.
KyString velmoVpnConsoleRememberedEmail();
/// The remembered e-mails, newest first, sanitised.
KyList<KyString> velmoVpnConsoleRememberedEmailHistory();
/// Remembers a login: the base URL (default server when blank), the e-mail,
/// and the e-mail in front of the history. A blank e-mail stores nothing.
void velmoVpnConsoleRememberLoginIdentity(const KyString& baseUrl, const KyString& email);

/// Remembers a login as velmoVpnConsoleRememberLoginIdentity does, then reads
/// the three remembered values back into the caller's copies (so memory and
/// disk cannot drift apart) and gives the completer the new history. A blank
/// e-mail changes nothing.
void velmoVpnConsoleRememberIdentity(const KyString& baseUrl, const KyString& email, KyString& rememberedBaseUrl,
                                     KyString& rememberedEmail, KyList<KyString>& history, KyCompleter* completer);
/// Gives the completer one suggestion per history entry; null is ignored.
void velmoVpnConsoleRefreshEmailCompleter(KyCompleter* completer, const KyList<KyString>& history);
/// Opens the suggestions under the field, matched against its trimmed text;
/// nothing without a completer, a field or a history.
void velmoVpnConsoleShowEmailSuggestions(KyCompleter* completer, KyLineEdit* field, const KyList<KyString>& history);

/// Internals of the login memory, open to the console's tests.
class VelmoVpnConsoleLoginMemory {
public:
    /// A history is never longer than this.
    static constexpr int kHistoryLimit = 7;

    /// The console's settings store, read from its file.
    static std::unique_ptr<KySettings> makeSettings_();
    /// The history as stored in the group the settings are in, split at line feeds.
    static KyList<KyString> loadHistory_(const KySettings& settings);
    /// Entries trimmed of blanks, tabs, CR and LF; empty ones dropped; an
    /// entry equal to an earlier one apart from ASCII case dropped (the first
    /// spelling stays); at most kHistoryLimit kept.
    static KyList<KyString> sanitizedHistory_(const KyList<KyString>& entries);
};

// The console's failure reporting: crash handling at start, the record of a
// start that failed, the crash test, and the boxes shown at the next start.
//
// Files (all in KyCrashHandler::crashDirectory()): one
// "VelmoVpnConsole_startup_<timestamp>.log" per failed start, the marker
// "last_startup_failure.txt" (one, overwritten), and the runtime log
// "VelmoVpnConsole_runtime.log" written by KyDebug. Crash reports are the
// crash handler's.
//
// Threads: velmoVpnConsolePersistStartupFailure may run on any thread and
// inside a signal handler (it uses the C library's time and file calls, as the
// record must be readable text). The report is collected on the main thread
// before the first window. Nothing here throws.
#pragma once

#include "core/runtime/KyCrashHandler.h"
#include "core/types/KyList.h"
#include "core/types/KyString.h"

class KyWidget;

/// Crash dumps on, crash handler for "VelmoVpnConsole", runtime log in the
/// crash directory, terminate and abort handlers. Called first in main.
void velmoVpnConsoleInstallCrashHandling();
/// Writes the startup log file and the marker; blank stage is "startup", an
/// empty message "Unknown startup failure". Without a crash directory, nothing.
void velmoVpnConsolePersistStartupFailure(const KyString& stage, const KyString& message);
/// Stores zero to address zero, then traps: exercises the crash path for real.
[[noreturn]] void velmoVpnConsoleTriggerCrashTest();
/// True for "-crash_test", "--crash-test" and "--crash-handler-smoke" as a
/// whole argument; null counts as empty.
bool velmoVpnConsoleIsCrashWord(const char* argument);
/// Shows the startup-failure and crash boxes of the previous run, each once,
/// one after the other, each a modal message box (native without a parent,
/// over the parent's window with one). Each box is logged too (warning level,
/// category "velmo.console.failure"); without a GUI application it is only
/// logged.
void velmoVpnConsoleShowLastCrashReport(KyWidget* parent);

struct VelmoVpnConsoleReportBox;
/// The showing half of velmoVpnConsoleShowLastCrashReport, for boxes taken
/// earlier (VelmoVpnConsoleFailure::takeLastReportBoxes).
void velmoVpnConsoleShowReportBoxes(const KyList<VelmoVpnConsoleReportBox>& boxes, KyWidget* parent);

/// One message box to show: title, text and the detail lines.
struct VelmoVpnConsoleReportBox {
    KyString title;
    KyString text;
    KyList<KyString> detailLines;
    /// The detail lines joined by line feeds.
    KyString detailText() const;
};

/// The startup marker's kept values (time, stage, message, log).
struct VelmoVpnConsoleStartupMarker {
    bool hadContent = false;
    KyString time;
    KyString stage;
    KyString message;
    KyString log;
};

/// Internals of the failure path, open to the console's tests.
class VelmoVpnConsoleFailure {
public:
    /// The marker's path in the crash directory; empty without one.
    static KyString startupMarkerPath_();
    /// Path joining: "/" between, unless dir already ends in "/" or "\\".
    static KyString joinPath(const KyString& dir, const KyString& name);
    /// Marker text: lines split at the first "=", key and value trimmed, the
    /// key lower-cased; time, stage, message and log are kept.
    static VelmoVpnConsoleStartupMarker parseStartupMarker(const KyString& text);
    /// Reads and removes the marker; hadContent false when missing or blank.
    static VelmoVpnConsoleStartupMarker takeStartupMarker();
    /// The boxes for a marker and, when hasCrash, a crash report, in the order shown.
    static KyList<VelmoVpnConsoleReportBox> buildReportBoxes(const VelmoVpnConsoleStartupMarker& marker,
                                                            bool hasCrash, const KyCrashReport& crash);
    /// Takes the crash report and the marker and builds the boxes (non-GUI half).
    static KyList<VelmoVpnConsoleReportBox> takeLastReportBoxes();
    /// Height of a report box of the given width: detail lines wrapped at about
    /// 7 px per character, 20 px per wrapped line plus 8 and 86, at least 120.
    static int reportBoxHeight(const VelmoVpnConsoleReportBox& box, int width);

    static void terminateHandler_();
    static void signalAbortHandler_(int signal);
};

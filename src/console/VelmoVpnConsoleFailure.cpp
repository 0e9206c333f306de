// The console's failure reporting. See the header for the files and threads.
//
// The abort path: signalAbortHandler_ replaces the crash handler's own SIGABRT
// handler (it is installed last, so it has the last word). It therefore does
// the crash handler's work too: it first writes the crash report through
// KyCrashHandler::writeReportForSignal (async-signal-safe, so it is on disk
// even if what follows hangs), then records the startup failure, then restores
// the default action and raises the signal again, so an abort always ends the
// process, also one sent with kill. Recording uses localtime and stdio, which
// an abort from inside malloc could block on; an alarm of a few seconds ends
// the process in that case. After terminateHandler_ has recorded the reason
// of a termination, the abort that follows keeps that record instead of
// overwriting it with "Abort signal raised".
#include "console/VelmoVpnConsoleFailure.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>

#include "console/VelmoVpnConsoleStyle.h"
#include "core/io/KyDebug.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyMessageBox.h"
#include "gui/widgets/KyPushButton.h"

namespace {
constexpr const char* kCategory = "velmo.console.failure";
constexpr const char* kMarkerName = "last_startup_failure.txt";
constexpr const char* kRuntimeLogName = "VelmoVpnConsole_runtime.log";

// Set once terminateHandler_ has written its record, so the abort it ends
// with does not replace the reason.
std::atomic<bool> gTerminationRecorded_{false};

bool writeTextFile_(const KyString& path, const KyString& text) {
    FILE* f = fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    return fclose(f) == 0 && ok;
}

void appendDetail_(KyList<KyString>& lines, const char* label, const KyString& value) {
    if (!value.isEmpty()) lines.append(KyString(label) + value);
}
}  // namespace

void velmoVpnConsoleInstallCrashHandling() {
    setenv("KY_CRASH_DUMPS", "1", 1);
    KyCrashHandler::setApplicationName("VelmoVpnConsole");
    KyCrashHandler::install();
    const KyString dir = KyCrashHandler::crashDirectory();
    if (!dir.isEmpty()) {
        const KyString logPath = VelmoVpnConsoleFailure::joinPath(dir, kRuntimeLogName);
        KyDebug::setLogFile(logPath, "VelmoVpnConsole");
        KyDebug::setFileLoggingEnabled(true);
        KyCrashHandler::setLogPath(logPath);
    }
    std::set_terminate(&VelmoVpnConsoleFailure::terminateHandler_);
    signal(SIGABRT, &VelmoVpnConsoleFailure::signalAbortHandler_);
}

void velmoVpnConsolePersistStartupFailure(const KyString& stage, const KyString& message) {
    const time_t now = time(nullptr);
    struct tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    snprintf(stamp, sizeof stamp, "%04d%02d%02d_%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1,
             local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);

    KyString cleanStage = stage.trimmed();
    KyString cleanMessage = message.trimmed();
    if (cleanStage.isEmpty()) cleanStage = "startup";
    if (cleanMessage.isEmpty()) cleanMessage = "Unknown startup failure";

    const KyString dir = KyCrashHandler::crashDirectory();
    if (dir.isEmpty()) return;
    const KyString logPath =
        VelmoVpnConsoleFailure::joinPath(dir, KyString("VelmoVpnConsole_startup_") + stamp + ".log");
    writeTextFile_(logPath, KyString("VelmoVpnConsole startup failure\n") + "time=" + stamp + "\n" +
                                "stage=" + cleanStage + "\n" + "message=" + cleanMessage + "\n");
    writeTextFile_(VelmoVpnConsoleFailure::joinPath(dir, kMarkerName),
                   KyString("time=") + stamp + "\n" + "stage=" + cleanStage + "\n" + "message=" + cleanMessage +
                       "\n" + "log=" + logPath + "\n");
}

// Not instrumented: the sanitizers would report the null store themselves
// instead of letting it fault into the crash handler.
__attribute__((no_sanitize("address", "undefined"))) void velmoVpnConsoleTriggerCrashTest() {
    // Read through a volatile so the compiler can neither see the null nor
    // replace the store with a trap of its own.
    static volatile std::uintptr_t zeroAddress = 0;
    *reinterpret_cast<volatile int*>(zeroAddress) = 0;
    __builtin_trap();
}

bool velmoVpnConsoleIsCrashWord(const char* argument) {
    const KyString word(argument ? argument : "");
    return word == "-crash_test" || word == "--crash-test" || word == "--crash-handler-smoke";
}

namespace {

// The box of a report: the message box sized by the report's height rule once
// it has laid out its texts, and dressed in the console's palette.
class ReportMessageBox_ : public KyMessageBox {
public:
    ReportMessageBox_(const VelmoVpnConsoleReportBox& report, KyWidget* parent)
        : KyMessageBox(parent), report_(report) {
        setObjectName("crashReportBox");
        setStyleSheet(reportCss_());
        setWindowTitle(report.title);
        setIcon(Critical);
        setText(report.text);
        setInformativeText(report.detailText());
        addButton("OK", 1, true)->setObjectName("reportOk");
    }

protected:
    void prepareForExec_() override {
        KyMessageBox::prepareForExec_();
        // Paths have no spaces to wrap at: the box grows sideways (up to a
        // limit) until its longest line fits, then takes the report's height,
        // never less than the box itself needs for its lines.
        // A label is as wide as its text; the content frame clips it.
        int grow = 0;
        for (KyWidget* child : contentWidget()->childWidgets()) {
            if (!dynamic_cast<KyLabel*>(child) || !child->isVisible()) continue;
            const KyRect g = child->geometry();
            grow = std::max(grow, g.x + g.width + kFramePadding - contentWidget()->width());
        }
        grow = std::clamp(grow, 0, kMaxGrow);
        const int textWidth = width() + grow - kTextInset;
        const int wanted = VelmoVpnConsoleFailure::reportBoxHeight(report_, textWidth);
        setDialogSize(width() + grow, std::max(height(), wanted));
        updateLayout();
        update();
    }

private:
    // How far the box may widen for a long path, and the part of its width
    // that is margins, frame padding and the icon column, not text.
    static constexpr int kMaxGrow = 340;
    static constexpr int kFramePadding = 16;
    static constexpr int kTextInset = 2 * 18 + 2 * 16 + 54;

    static KyString reportCss_() {
        return VelmoVpnConsoleStyle::windowCss() +
               "KyMessageBox#crashReportBox { background-color: rgb(10, 22, 30); border-color: rgb(47, 72, 82);"
               " border-width: 1px; border-radius: 12px; }"
               "#DialogContent { background-color: rgb(16, 31, 40); border-color: rgb(47, 72, 82); border-width: 1px;"
               " border-radius: 12px; }"
               "KyLabel#DialogTitle { color: rgb(216, 225, 228); font-size: 16px; font-weight: 600; }"
               "KyLabel#MessageText { color: rgb(216, 225, 228); font-size: 14px; font-weight: 600; }"
               "KyLabel#InformativeText { color: rgb(150, 166, 172); font-size: 13px; }"
               "KyPushButton#reportOk { background-color: rgb(220, 154, 84); border-color: rgb(194, 134, 70);"
               " border-width: 1px; border-radius: 10px; color: rgb(10, 14, 18); font-size: 13px; font-weight: 600; }"
               "KyPushButton#reportOk:hover { background-color: rgb(232, 170, 104); border-color: rgb(194, 134, 70); }"
               "KyPushButton#reportOk:pressed { background-color: rgb(194, 134, 70); color: rgb(10, 14, 18); }"
               "KyPushButton#reportOk:focus { border-color: rgb(250, 236, 214); }";
    }

    VelmoVpnConsoleReportBox report_;
};

} // namespace

void velmoVpnConsoleShowLastCrashReport(KyWidget* parent) {
    velmoVpnConsoleShowReportBoxes(VelmoVpnConsoleFailure::takeLastReportBoxes(), parent);
}

void velmoVpnConsoleShowReportBoxes(const KyList<VelmoVpnConsoleReportBox>& boxes, KyWidget* parent) {
    for (const VelmoVpnConsoleReportBox& box : boxes) {
        // The log keeps the report also when nobody is at the screen.
        kyLogWarning(kCategory) << box.title << "-" << box.text;
        for (const KyString& line : box.detailLines) kyLogWarning(kCategory) << "  " << line;
        if (!KyGuiApplication::instance()) continue;
        ReportMessageBox_ dialog(box, parent);
        dialog.exec();
    }
}

KyString VelmoVpnConsoleReportBox::detailText() const { return KyString::join(detailLines, "\n"); }

KyString VelmoVpnConsoleFailure::startupMarkerPath_() {
    const KyString dir = KyCrashHandler::crashDirectory();
    return dir.isEmpty() ? KyString() : joinPath(dir, kMarkerName);
}

KyString VelmoVpnConsoleFailure::joinPath(const KyString& dir, const KyString& name) {
    if (dir.endsWith("/") || dir.endsWith("\\")) return dir + name;
    return dir + "/" + name;
}

VelmoVpnConsoleStartupMarker VelmoVpnConsoleFailure::parseStartupMarker(const KyString& text) {
    VelmoVpnConsoleStartupMarker marker;
    marker.hadContent = !text.trimmed().isEmpty();
    for (const KyString& line : text.split('\n')) {
        const std::size_t eq = line.indexOf('=');
        if (eq == KyString::npos) continue;
        const KyString key = line.left(eq).trimmed().toLower();
        const KyString value = line.mid(eq + 1).trimmed();
        if (key == "time") marker.time = value;
        else if (key == "stage") marker.stage = value;
        else if (key == "message") marker.message = value;
        else if (key == "log") marker.log = value;
    }
    return marker;
}

VelmoVpnConsoleStartupMarker VelmoVpnConsoleFailure::takeStartupMarker() {
    const KyString path = startupMarkerPath_();
    if (path.isEmpty()) return {};
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return {};
    std::string data;
    char chunk[4096];
    std::size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, f)) > 0) data.append(chunk, n);
    fclose(f);
    unlink(path.c_str());
    return parseStartupMarker(KyString(std::move(data)));
}

KyList<VelmoVpnConsoleReportBox> VelmoVpnConsoleFailure::buildReportBoxes(const VelmoVpnConsoleStartupMarker& marker,
                                                                         bool hasCrash, const KyCrashReport& crash) {
    KyList<VelmoVpnConsoleReportBox> boxes;
    if (marker.hadContent) {
        VelmoVpnConsoleReportBox box;
        box.title = "VELMO VPN Console startup failure";
        box.text = "The previous VELMO VPN Console launch failed during opening.";
        appendDetail_(box.detailLines, "Time: ", marker.time);
        appendDetail_(box.detailLines, "Stage: ", marker.stage);
        appendDetail_(box.detailLines, "Reason: ", marker.message);
        appendDetail_(box.detailLines, "Log: ", marker.log);
        boxes.append(box);
    }
    if (hasCrash) {
        VelmoVpnConsoleReportBox box;
        box.title = "VELMO VPN Console crash report";
        box.text = "The previous VELMO VPN Console session ended unexpectedly.";
        appendDetail_(box.detailLines, "Time: ", crash.time);
        appendDetail_(box.detailLines, "Folder: ", crash.folder);
        appendDetail_(box.detailLines, "Log: ", crash.logPath);
        appendDetail_(box.detailLines, "Dump: ", crash.dumpPath);
        boxes.append(box);
    }
    return boxes;
}

KyList<VelmoVpnConsoleReportBox> VelmoVpnConsoleFailure::takeLastReportBoxes() {
    KyCrashReport crash;
    const bool hasCrash = KyCrashHandler::takeLastCrashReport(crash);
    const VelmoVpnConsoleStartupMarker marker = takeStartupMarker();
    return buildReportBoxes(marker, hasCrash, crash);
}

int VelmoVpnConsoleFailure::reportBoxHeight(const VelmoVpnConsoleReportBox& box, int width) {
    const int charsPerLine = width / 7 > 0 ? width / 7 : 1;
    int wrapped = 0;
    for (const KyString& line : box.detailLines) {
        const int chars = static_cast<int>(line.codePointCount());
        wrapped += chars == 0 ? 1 : (chars + charsPerLine - 1) / charsPerLine;
    }
    const int height = wrapped * 20 + 8 + 86;
    return height < 120 ? 120 : height;
}

void VelmoVpnConsoleFailure::terminateHandler_() {
    KyString message = "Unhandled termination";
    if (std::exception_ptr current = std::current_exception()) {
        try {
            std::rethrow_exception(current);
        } catch (const std::exception& e) {
            message = e.what() ? KyString(e.what()) : KyString();
        } catch (...) {
            message = "Unknown exception";
        }
    }
    velmoVpnConsolePersistStartupFailure("terminate", message);
    gTerminationRecorded_.store(true);
    abort();
}

void VelmoVpnConsoleFailure::signalAbortHandler_(int signal) {
    KyCrashHandler::writeReportForSignal(signal);
    alarm(5);
    if (!gTerminationRecorded_.load()) velmoVpnConsolePersistStartupFailure("abort", "Abort signal raised");
    KyCrashHandler::dieOfSignal(signal);
}

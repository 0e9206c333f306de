// KyCrashHandler: writes a report when the process dies of a fatal signal,
// and hands the report of a previous crash to the next start, once.
//
// Where: crashDirectory() is "<XDG state dir>/<application name>/crashes"
// ($XDG_STATE_HOME, else ~/.local/state), created on demand with mode 0700.
// Each crash gets its own folder "crash_<YYYYMMDD>_<HHMMSS>_<pid>" holding
// "crash_report.txt" (key=value lines, then the backtrace) and, when
// KY_CRASH_DUMPS is "1" at install time, "crash_dump.bin" (layout below).
// takeLastCrashReport marks a report as shown by creating "reported" in its
// folder.
//
// install() catches SIGSEGV, SIGBUS, SIGILL, SIGFPE and SIGABRT on an
// alternate signal stack (SA_ONSTACK). Fiber stacks are plain heap arrays with
// no guard page, so a fiber that overflows its stack faults with no usable
// stack beneath it: only the alternate stack lets the handler run. The stack is
// set up for the thread that installs; other threads that may crash call
// installAlternateStackForCurrentThread. The handler only uses
// async-signal-safe calls: every path is formatted at install time (or when
// the name or log path changes), the time is formatted by hand from
// clock_gettime with the UTC offset taken at install, and backtrace() is
// called once at install so that libgcc is loaded before any crash. After
// writing, the default action is restored and the signal raised again, so the
// process still dies of it.
//
// Dump layout (little-endian, native sizes): "KYDUMP01", then uint32 signal,
// uint32 si_code, uint64 fault address, uint64 pid, uint64 tid, uint64
// stack pointer, uint64 size of the machine context, the raw machine context
// (mcontext_t: general registers first), uint64 count of stack bytes, and up
// to 8 KiB of the stack upwards from the stack pointer (fewer when unmapped).
//
// Threads: the configuration calls are serialised by a mutex and may be made
// from any thread; the handler may run on any thread.
#pragma once

#include "core/types/KyList.h"
#include "core/types/KyString.h"

/// A crash of an earlier run, as read back from its report.
struct KyCrashReport {
    KyString time;         ///< local time "YYYY-MM-DD HH:MM:SS +hhmm"
    KyString folder;       ///< the crash's own folder
    KyString reportPath;   ///< its crash_report.txt
    KyString logPath;      ///< runtime log of the crashed run, or empty
    KyString dumpPath;     ///< crash_dump.bin when one was written, or empty
    int signal = 0;
    KyString signalName;   ///< "SIGSEGV" and so on
    KyString faultAddress; ///< "0x..." as written
    long long pid = 0;
    KyList<KyString> backtrace;
};

/// Process-wide fatal-signal reporting.
class KyCrashHandler {
public:
    /// Sets the name under which crashes are kept and computes the directory
    /// (reading XDG_STATE_HOME now). Without a call, the program's name is used.
    static void setApplicationName(const KyString& name);
    static KyString applicationName();
    /// The crash directory, created (0700) if missing; empty when it can't be.
    static KyString crashDirectory();
    /// Path of the runtime log that later reports name; "" for none.
    static void setLogPath(const KyString& path);

    /// Installs the handlers and this thread's alternate stack. Idempotent;
    /// false (logged) when the directory or a handler can't be set up.
    static bool install();
    static bool isInstalled();
    /// Gives the calling thread an alternate signal stack (kept for the life of
    /// the process). True when the thread has one.
    static bool installAlternateStackForCurrentThread();

    /// The newest report not yet taken: filled into report, marked as taken,
    /// true. False when there is none. Older untaken reports are marked too,
    /// so one start shows at most one crash.
    static bool takeLastCrashReport(KyCrashReport& report);

    /// Writes a report for signal as the handler would, without dying; for
    /// handlers that replace ours on a signal (async-signal-safe).
    static void writeReportForSignal(int signal);
    /// Restores the default action of signal, unblocks it and raises it, so the
    /// process ends by that signal (async-signal-safe).
    [[noreturn]] static void dieOfSignal(int signal);

    /// "SIGSEGV", ..., or "SIG<number>" for others. Static storage.
    static const char* signalName(int signal);
};

// The session's trail in the runtime log, for support staff and tests.
//
// refreshSessionUi hands its computed texts to record() after every refresh;
// each text that differs from the one recorded before becomes one line in
// the log category "velmo.console.state", at debug level, which is shown by
// default (KY_LOGGING_RULES="velmo.console.state=false" silences it). An
// unchanged text writes nothing, so the trail holds transitions only.
//
// Line format, stable (the log layer puts time, level, category and thread in
// front of it):
//
//   auth: <auth status text>
//   catalog: <catalog status text>
//   endpoints: <endpoint status text>
//   status: <status bar text>
//   shell: login|loading|console
//
// written in that order when several change in one refresh. The first record
// writes all five. Inside a text a backslash is written as "\\", and a line
// feed, carriage return and tab as "\n", "\r" and "\t", so that an agent's
// multi-line error still gives one line.
//
// Threads: one object per console, used on the main thread only.
#pragma once

#include "core/types/KyList.h"
#include "core/types/KyString.h"

struct VelmoVpnConsoleSessionView;

/// Writes each change of the session's visible texts to the runtime log.
class VelmoVpnConsoleStateLog {
public:
    /// The log category of the trail.
    static constexpr const char* kCategory = "velmo.console.state";

    /// The texts one refresh showed.
    struct Entry {
        KyString auth;
        KyString catalog;
        KyString endpoints;
        KyString status;
        /// "login", "loading" or "console".
        KyString shell;
    };

    /// Turns the category's debug lines on by default (once per process).
    VelmoVpnConsoleStateLog();

    /// Logs every text of entry that changed since the last record; returns
    /// the lines written, without the log layer's prefix.
    KyList<KyString> record(const Entry& entry);
    /// The same from a refresh's view and the shell that is current.
    KyList<KyString> record(const VelmoVpnConsoleSessionView& view, int shell);
    /// Forgets what was recorded: the next record writes all five lines.
    void reset();

    /// "<key>: <text>" with the escapes above.
    static KyString formatLine(const char* key, const KyString& text);

private:
    Entry last_;
    bool hasLast_ = false;
};

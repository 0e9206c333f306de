// Where a saved monitor log goes and how it gets there.
//
// A saved log is written whole or not at all: the text goes to a temporary
// file beside the target, is flushed to the disk, and only then takes the
// target's name, so a reader of the target never sees half a log and a
// failure leaves the directory as it was. The file is readable by its owner
// only, since the log names the user's VPNs and peers.
//
// Plain functions without state; any thread may call them.
#pragma once

#include "core/types/KyString.h"

/// "$HOME/VelmoVpnConsole-YYYYMMDD-HHMMSS.log" in local time (the current
/// directory when HOME is unset).
KyString velmoVpnConsoleDefaultLogPath();
/// A leading "~" or "~/" becomes $HOME; anything else is returned as it is.
KyString velmoVpnConsoleExpandHome(const KyString& path);
/// Writes text to path atomically with mode 0600. On failure returns false,
/// leaves no file behind and sets error to a sentence naming the path and
/// the system's reason ("Could not save y.log in /x: Permission denied").
bool velmoVpnConsoleWriteFileAtomically(const KyString& path, const KyString& text, KyString& error);

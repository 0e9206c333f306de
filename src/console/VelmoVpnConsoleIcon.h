// The console's application icon, drawn at run time at any size, so windows,
// the tray and the desktop's icon theme show one crisp picture from 16 px up.
#pragma once

#include "gui/platform/KyPlatformTypes.h"

/// The icon at size × size pixels (ARGB, premultiplied alpha not used).
KyPlatformIcon velmoVpnConsoleApplicationIcon(int size);

// Placeholder drawing until the real icon lands: an accent square.
#include "console/VelmoVpnConsoleIcon.h"

KyPlatformIcon velmoVpnConsoleApplicationIcon(int size) {
    KyPlatformIcon icon;
    if (size <= 0) return icon;
    icon.width = size;
    icon.height = size;
    icon.argb.assign(static_cast<std::size_t>(size) * size, 0xFFDC9A54u);
    return icon;
}

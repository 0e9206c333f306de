// KyPlatformPainter: a KyPainter bound to one paint request of a native window.
//
// begin takes the request, end presents what was drawn (unless finalize did)
// and lets go of the surface. Used on the GUI thread, usually through
// KyScopedPlatformPainter.
#pragma once

#include "gui/platform/KyPainter.h"
#include "gui/platform/KyPlatformTypes.h"

/// A painter that draws one frame of a native window.
class KyPlatformPainter : public KyPainter {
public:
    virtual void begin(const KyPlatformPaintEvent& event) = 0;
    virtual void end() = 0;
    /// Sends buffered requests to the window system.
    virtual void flush() = 0;
};

// KyScopedPlatformPainter: a platform painter for the length of one paint
// request. Made on the GUI thread inside a paint callback; its destructor
// ends the frame (presenting it unless finalize did) and deletes the painter.
#pragma once

#include <memory>

#include "gui/platform/KyPlatformPainter.h"

class KyPlatformIntegration;

/// Owns the painter of one paint request; empty without an integration.
class KyScopedPlatformPainter {
public:
    KyScopedPlatformPainter(KyPlatformIntegration* integration, const KyPlatformPaintEvent& paintEvent);
    ~KyScopedPlatformPainter();
    KyScopedPlatformPainter(const KyScopedPlatformPainter&) = delete;
    KyScopedPlatformPainter& operator=(const KyScopedPlatformPainter&) = delete;

    KyPlatformPainter* get() const { return painter_.get(); }
    operator KyPlatformPainter*() const { return painter_.get(); }
    KyPlatformPainter* operator->() const { return painter_.get(); }
    explicit operator bool() const { return painter_ != nullptr; }

private:
    std::unique_ptr<KyPlatformPainter> painter_;
};

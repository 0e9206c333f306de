// KyScopedPlatformPainter: begin at construction, end at destruction.
#include "gui/platform/KyScopedPlatformPainter.h"

#include "gui/platform/KyPlatformIntegration.h"

KyScopedPlatformPainter::KyScopedPlatformPainter(KyPlatformIntegration* integration,
                                                 const KyPlatformPaintEvent& paintEvent) {
    if (!integration) return;
    painter_ = integration->createPainter();
    if (painter_) painter_->begin(paintEvent);
}

KyScopedPlatformPainter::~KyScopedPlatformPainter() {
    if (painter_) painter_->end();
}

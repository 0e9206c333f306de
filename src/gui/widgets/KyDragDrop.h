// KyDragDrop: the one drag in progress in the process, and its overlay.
//
// A widget that starts dragging something calls begin with a short label;
// moves follow the pointer in the source's native window and end (or a
// source that goes away) stops it. While a drag is active, each frame of the
// source's window draws a small tag with the label at the pointer, on top of
// every widget (the top-level window calls paintOverlay after the tree); with
// no drag nothing is drawn. Dropping is the target widget's business: it asks
// isActive and payload on its release. A process-wide singleton used on the
// GUI thread only.
#pragma once

#include "core/types/KyPoint.h"
#include "core/types/KyRect.h"
#include "core/types/KyString.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"

class KyPainter;
class KyWidget;

/// The drag in progress and its overlay.
class KyDragDrop {
public:
    static KyDragDrop* instance();

    /// Starts a drag of payload from source, shown as label, with the pointer
    /// at windowPos (coordinates of the source's native window).
    void begin(KyWidget* source, const KyString& payload, const KyString& label, KyPoint windowPos);
    void moveTo(KyPoint windowPos);
    /// Ends the drag; returns the payload (empty when none was active).
    KyString end();
    bool isActive() const;
    KyWidget* source() const;
    const KyString& payload() const { return payload_; }
    /// The tag's rectangle in window coordinates (empty when inactive).
    KyRect overlayRect() const;
    /// Draws the tag when a drag is active; nothing otherwise.
    void paintOverlay(KyPainter* painter);
    /// The same for a frame of window: only the source's window shows the tag.
    void paintOverlay(KyPainter* painter, KyNativeWindowId window);

private:
    KyDragDrop() = default;
    void damage_() const;

    KyWidget* source_ = nullptr;
    KyWidgetPlatformHandle handle_;
    KyString payload_;
    KyString label_;
    KyPoint pos_;
    bool active_ = false;
};

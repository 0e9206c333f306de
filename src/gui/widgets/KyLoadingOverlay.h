// KyLoadingOverlay: a cover over its parent that says "busy": a turning ring
// with a title and a status line under it.
//
// The overlay follows its parent's size (it watches the parent's resizes)
// and, while active, sits on top of the parent's other children and takes
// their mouse input and the keyboard focus. The ring turns by a KyTimer that
// exists only while the overlay is active and visible, and each step repaints
// the ring's square alone; an inactive overlay is hidden and costs nothing.
// Colours come from its sheet: `background-color` (the cover), `color` (the
// title), `status-color`, `track-color`, `arc-color` and `arc-tail-color`
// (the ring's faint end), `spinner-size` and `spinner-width`. GUI thread only.
#pragma once

#include "gui/widgets/KyWidget.h"

class KyTimer;

/// A busy cover with a spinner, a title and a status text.
class KyLoadingOverlay : public KyWidget {
    KY_OBJECT(KyLoadingOverlay, KyWidget)

public:
    /// Covers parent; starts inactive (hidden).
    explicit KyLoadingOverlay(KyWidget* parent = nullptr);
    ~KyLoadingOverlay() override;

    /// Shows the overlay on top and starts the ring, or hides it and stops it.
    void setActive(bool active);
    bool isActive() const { return active_; }
    void setTitle(const KyString& title);
    KyString title() const { return title_; }
    void setStatusText(const KyString& text);
    KyString statusText() const { return status_; }
    /// The ring's leading angle in degrees (0 to 359), advanced by each step.
    int phase() const { return phase_; }
    /// True while the ring's timer exists and runs.
    bool isAnimating() const;

    KY_SIGNAL(activeChanged, bool)

    bool acceptsTabFocus() const override { return false; }
    bool eventFilter(KyObject* watched, KyEvent* event) override;
    void newParentEvent(KyObject* parent) override;
    void paintEvent(PaintEvent* event) override;
    // The cover takes every pointer event, so nothing under it reacts.
    void mousePressEvent(MouseEvent*) override {}
    void mouseReleaseEvent(MouseEvent*) override {}
    void mouseDoubleClickEvent(MouseEvent*) override {}
    void mouseMoveEvent(MouseEvent*) override {}
    void wheelEvent(WheelEvent*) override {}
    void keyPressEvent(KeyEvent* event) override;
    void showEvent(Event* event) override;
    void hideEvent(Event* event) override;

private:
    void watchParent_();
    void coverParent_();
    void raise_();
    void startTimer_();
    void stopTimer_();
    void step_();
    KyRect spinnerRect_() const;
    int sheetPixels_(const char* name, int fallback) const;
    KyColor sheetColor_(const char* name, const KyColor& fallback) const;

    bool active_ = false;
    KyString title_;
    KyString status_;
    int phase_ = 0;
    KyTimer* timer_ = nullptr;
    KyWidget* watched_ = nullptr;
};

// KyToolTip: the one tool tip of the process.
//
// A widget asks for a tip by setting its ToolTips text. Top-level windows
// report pointer moves here; when the pointer rests over a widget with a tip
// (the nearest visible, enabled ancestor that has one) for the delay, the
// `Popup` appears just below and right of the pointer, inside the part of
// that widget's window that is on the screen. Moving to another target hides it and starts over; a key press or
// the pointer leaving the window hides it. GUI thread only; the singleton
// (`instance_`) is made on first use and never deleted, and its popup lives in
// whichever window shows it, so it is made again after that window went.
#pragma once

#include "core/object/KyObject.h"
#include "gui/widgets/KyWidget.h"

class KyCoreApplication;

/// The process-wide tool tip.
class KyToolTip : public KyObject {
    KY_OBJECT(KyToolTip, KyObject)

public:
    /// The small window-local box a tip is shown in.
    class Popup : public KyWidget {
        KY_OBJECT(Popup, KyWidget)

    public:
        KY_PROPERTY(KyString, Text)
        explicit Popup(KyWidget* parent);
        void paintEvent(PaintEvent* event) override;
        KySize sizeHint() const override;
    };

    static KyToolTip* instance();
    /// A pointer move over root (window coordinates x, y); child is the widget
    /// under the pointer when the caller knows it, else null.
    static void handleMouseMove_(KyWidget* root, KyWidget* child, int x, int y);
    /// Stops the delay and hides the popup.
    static void hide_();
    /// hide_ when the tip belongs to root's window (the pointer left it).
    static void hideFor_(KyWidget* root);
    /// How long the pointer must rest before a tip shows; 600 ms by default.
    static void setDelay(int ms);

    bool isShown() const;
    /// The popup while it exists (it lives in the window that shows it), else null.
    Popup* popup() const;
    KyWidget* target() const { return KyObject::isLive(target_) ? target_ : nullptr; }

private:
    KyToolTip() = default;
    void restartTimer_();
    void stopTimer_();
    void show_();

    static KyToolTip* instance_;
    Popup* popup_ = nullptr;
    KyWidget* target_ = nullptr;
    KyWidget* root_ = nullptr;
    KyPoint pointer_;
    int timerId_ = 0;
    KyCoreApplication* timerApp_ = nullptr;
    unsigned generation_ = 0;
    int delayMs_ = 600;
};

// KyDialog: a modal window with a title, content and a bar of buttons.
//
// A dialog without a parent widget is native: it opens a top-level window of
// its own. A dialog with a parent is embedded: it appears centred in the
// parent's window over a `ModalOverlay` that covers the window, swallows
// presses and passes keys on to the dialog. exec() shows the dialog, puts the
// focus inside, emits shown() and waits in a nested loop, so the rest of the
// application goes on, until done(code) hides it, emits finished(code) and
// then accepted() or rejected() (once per exec) and ends the wait with that
// code. Escape is done(0); a window-manager close of a native dialog too. A
// dialog may be executed again after it is done.
//
// Layout (updateLayout): an outer margin of 18; the title bar at (18, 10),
// 44 high; the content below it (or at 18 without a title bar); the button
// bar, 46 high, along the bottom. GUI thread only.
#pragma once

#include <memory>

#include "gui/platform/KyPlatformTypes.h"
#include "gui/widgets/KyFrame.h"
#include "gui/widgets/KyOwnedWidget.h"
#include "gui/widgets/KyTopLevelWindow.h"

class KyEventLoop;
class KyLabel;
class KyPlatformWindow;

/// A modal dialog, native or embedded in its parent's window.
class KyDialog : public KyFrame {
    KY_OBJECT(KyDialog, KyFrame)

public:
    /// Covers the parent's window under an embedded dialog.
    class ModalOverlay : public KyOwnedWidget<KyDialog> {
        KY_OBJECT(ModalOverlay, KyOwnedWidget<KyDialog>)

    public:
        ModalOverlay(KyDialog* dialog, KyWidget* parent);
        void mousePressEvent(MouseEvent* event) override;
        void mouseDoubleClickEvent(MouseEvent* event) override;
        void keyPressEvent(KeyEvent* event) override;
        void resizeEvent(ResizeEvent* event) override;
    };

    explicit KyDialog(KyWidget* parent = nullptr);
    ~KyDialog() override;

    /// Shows the dialog and waits until done; returns its code.
    int exec();
    /// Ends the dialog with code (1 accepts); a second call in one exec does nothing.
    void done(int code);
    void accept() { done(1); }
    void reject() { done(0); }
    int result() const { return result_; }
    bool isModal() const { return modal_; }
    bool isNative() const { return native_; }

    void setWindowTitle(const KyString& title);
    const KyString& windowTitle() const { return title_; }
    void setTitleBarVisible(bool visible);
    KyLabel* titleBar() const { return titleBar_; }
    /// Where the dialog's own widgets go.
    KyWidget* contentWidget() const { return content_; }
    KyWidget* buttonBar() const { return buttonBar_; }
    /// The dialog's size when it opens.
    void setDialogSize(int width, int height);
    /// Places title bar, content and button bar for the present size.
    virtual void updateLayout();
    /// Makes the overlay of an embedded dialog.
    void ensureOverlay();
    ModalOverlay* overlay() const { return KyObject::isLive(overlay_) ? overlay_ : nullptr; }
    KyPlatformWindow* platformWindow() const;

    void keyPressEvent(KeyEvent* event) override;
    void resizeEvent(ResizeEvent* event) override;
    void paintEvent(PaintEvent* event) override;

    KY_SIGNAL(finished, int)
    KY_SIGNAL(accepted)
    KY_SIGNAL(rejected)
    KY_SIGNAL(shown)

protected:
    void openNativePlatformWindow_();
    /// What the native window's close means for a dialog: ask closeEvent, then done(0).
    KyTopLevelWindow::Hooks nativePlatformCallbacks_();
    /// Runs action on the loop (skipped if the dialog is gone by then), or at once without a loop.
    void postOrRunNativeEvent_(std::function<void()> action);
    /// The widget that takes the focus when the dialog opens.
    virtual KyWidget* initialFocusWidget_();
    /// Called first thing in exec, before the dialog is shown.
    virtual void prepareForExec_() {}

private:
    void centreInParent_();

    KyString title_;
    int result_ = 0;
    bool modal_ = false;
    bool native_ = true;
    bool doneInThisExec_ = true;
    KyWidget* hostParent_ = nullptr;
    std::unique_ptr<KyTopLevelWindow> window_;
    ModalOverlay* overlay_ = nullptr;
    KyLabel* titleBar_ = nullptr;
    KyWidget* content_ = nullptr;
    KyWidget* buttonBar_ = nullptr;
    KyWidget* previousFocus_ = nullptr;
    /// Shared with a waiting exec, which may outlive the dialog.
    struct Wait_ {
        bool waiting = true;
        int result = 0;
        KyEventLoop* loop = nullptr;
    };
    std::shared_ptr<Wait_> wait_;
    KySize dialogSize_{440, 220};
};

// KyDialog: opening natively or over an overlay, the nested wait, done and
// the layout of title, content and buttons.
#include "gui/widgets/KyDialog.h"

#include <algorithm>

#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyEventLoop.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyShortcut.h"

namespace {
constexpr int kMargin = 18;
constexpr int kTitleY = 10;
constexpr int kTitleHeight = 44;
constexpr int kButtonBarHeight = 46;
constexpr int kBottomGap = 10;
constexpr int kKeyEscape = 65307;
} // namespace

// ---------------------------------------------------------------------------
// ModalOverlay

KyDialog::ModalOverlay::ModalOverlay(KyDialog* dialog, KyWidget* parent)
    : KyOwnedWidget(dialog, parent, "ModalOverlay", NoClickFocus,
                    "ModalOverlay { background-color: rgb(241, 245, 249); border-width: 0px; }") {}

void KyDialog::ModalOverlay::mousePressEvent(MouseEvent* event) { event->accept(); }
void KyDialog::ModalOverlay::mouseDoubleClickEvent(MouseEvent* event) { event->accept(); }

void KyDialog::ModalOverlay::keyPressEvent(KeyEvent* event) {
    if (KyDialog* dialog = owner(); dialog && dialog->isModal()) KyCoreApplication::sendEvent(dialog, event);
    else event->ignore();
}

void KyDialog::ModalOverlay::resizeEvent(ResizeEvent* event) {
    KyWidget::resizeEvent(event);
    if (KyDialog* dialog = owner()) dialog->centreInParent_();
}

// ---------------------------------------------------------------------------
// KyDialog

KyDialog::KyDialog(KyWidget* parent) : KyFrame(parent), native_(parent == nullptr), hostParent_(parent) {
    KyShortcut::installHook();
    setFocusPolicy(StrongFocus);
    setDefaultStyleSheet("KyDialog { background-color: rgb(255, 255, 255); border-color: rgb(220, 224, 232); "
                         "border-width: 1px; border-radius: 12px; }");
    titleBar_ = new KyLabel(this);
    titleBar_->setObjectName("DialogTitle");
    titleBar_->setStyleSheet("KyLabel { background-color: rgba(0,0,0,0); border-width: 0px; color: rgb(24, 28, 36); "
                             "font-size: 16px; font-weight: 600; }");
    content_ = new KyWidget(this);
    content_->setObjectName("DialogContent");
    content_->setDefaultStyleSheet("#DialogContent { background-color: rgba(0,0,0,0); border-width: 0px; }");
    buttonBar_ = new KyWidget(this);
    buttonBar_->setObjectName("DialogButtonBar");
    buttonBar_->setDefaultStyleSheet("#DialogButtonBar { background-color: rgba(0,0,0,0); border-width: 0px; }");
    // Hidden until exec: an embedded dialog must not paint over its parent.
    setVisible(false);
    setGeometry(0, 0, dialogSize_.width, dialogSize_.height);
}

KyDialog::~KyDialog() {
    if (wait_ && wait_->waiting) {
        // A dialog deleted while it waits ends the wait with code 0.
        wait_->waiting = false;
        if (wait_->loop) wait_->loop->exit(0);
    }
    // One at a time: a child may take others with it (a menu its overlay).
    while (!children().isEmpty()) delete children().last();
    window_.reset();
    if (KyObject::isLive(overlay_) && overlay_ != parent()) delete overlay_;
}

KyPlatformWindow* KyDialog::platformWindow() const { return window_ ? window_->platformWindow() : nullptr; }

void KyDialog::setWindowTitle(const KyString& title) {
    title_ = title;
    titleBar_->setText(title);
    if (KyPlatformWindow* w = platformWindow()) w->setTitle(title);
}

void KyDialog::setTitleBarVisible(bool visible) {
    titleBar_->setVisible(visible);
    updateLayout();
}

void KyDialog::setDialogSize(int width, int height) {
    dialogSize_ = {std::max(1, width), std::max(1, height)};
    const KyRect g = geometry();
    setGeometry(g.x, g.y, dialogSize_.width, dialogSize_.height);
    if (KyPlatformWindow* w = platformWindow()) w->resize(dialogSize_.width, dialogSize_.height);
    if (!native_) centreInParent_();
}

void KyDialog::updateLayout() {
    const int w = width(), h = height();
    int contentY = kMargin;
    if (titleBar_->isVisible()) {
        titleBar_->setGeometry(kMargin, kTitleY, std::max(0, w - 2 * kMargin), kTitleHeight);
        contentY = kTitleHeight + kTitleY;
    }
    const int barY = std::max(contentY, h - kButtonBarHeight - kBottomGap);
    buttonBar_->setGeometry(kMargin, barY, std::max(0, w - 2 * kMargin), kButtonBarHeight);
    content_->setGeometry(kMargin, contentY, std::max(0, w - 2 * kMargin), std::max(0, barY - contentY));
}

void KyDialog::resizeEvent(ResizeEvent* event) {
    KyFrame::resizeEvent(event);
    updateLayout();
}

void KyDialog::paintEvent(PaintEvent* event) { KyFrame::paintEvent(event); }

void KyDialog::ensureOverlay() {
    if (native_ || overlay() || !KyObject::isLive(hostParent_)) return;
    KyWidget* top = hostParent_->topLevelWidget();
    overlay_ = new ModalOverlay(this, top);
    overlay_->hide();
    setParent(overlay_);
}

void KyDialog::centreInParent_() {
    ModalOverlay* o = overlay();
    if (!o) return;
    const int x = std::max(0, (o->width() - dialogSize_.width) / 2);
    const int y = std::max(0, (o->height() - dialogSize_.height) / 2);
    setGeometry(x, y, dialogSize_.width, dialogSize_.height);
}

KyTopLevelWindow::Hooks KyDialog::nativePlatformCallbacks_() {
    KyTopLevelWindow::Hooks hooks;
    hooks.closeAllowed = [this] {
        CloseEvent event;
        KyCoreApplication::sendEvent(this, &event);
        return event.isAccepted();
    };
    hooks.deleteRequested = [this] { postOrRunNativeEvent_([this] { done(0); }); };
    return hooks;
}

void KyDialog::postOrRunNativeEvent_(std::function<void()> action) {
    if (!action) return;
    KyCoreApplication* app = KyCoreApplication::instance(false);
    if (!app) {
        action();
        return;
    }
    app->postEvent([this, action = std::move(action)] {
        if (KyObject::isLive(this)) action();
    });
}

void KyDialog::openNativePlatformWindow_() {
    if (window_) return;
    window_ = std::make_unique<KyTopLevelWindow>(this, title_.isEmpty() ? KyString("Dialog") : title_,
                                                 dialogSize_.width, dialogSize_.height, nativePlatformCallbacks_());
}

KyWidget* KyDialog::initialFocusWidget_() { return this; }

int KyDialog::exec() {
    if (modal_) return -1;
    KyGuiApplication* app = KyGuiApplication::instance();
    prepareForExec_();
    doneInThisExec_ = false;
    result_ = 0;
    modal_ = true;
    auto wait = std::make_shared<Wait_>();
    wait_ = wait;
    if (native_) {
        openNativePlatformWindow_();
        window_->platformWindow()->resize(dialogSize_.width, dialogSize_.height);
        setGeometry(0, 0, dialogSize_.width, dialogSize_.height);
        window_->setForceRepaint();
        KyWidget::show();
        window_->platformWindow()->show();
    } else {
        ensureOverlay();
        if (ModalOverlay* o = overlay()) {
            KyWidget* top = o->parentWidget();
            previousFocus_ = top->focusWidget();
            // On top of everything else in the window.
            o->setParent(nullptr);
            o->setParent(top);
            o->setGeometry(0, 0, top->width(), top->height());
            o->show();
        }
        centreInParent_();
        KyWidget::show();
    }
    updateLayout();
    update();
    if (KyWidget* focus = initialFocusWidget_()) focus->requestFocus();
    shown();
    if (!wait->waiting) return wait->result;
    if (app && app->fiberPool().isOnPooledFiber()) {
        // The usual case: called from a slot. The fiber waits; the loop goes on.
        KyEventLoop loop;
        wait->loop = &loop;
        loop.exec();
        wait->loop = nullptr;
    } else if (app) {
        // On the main fiber (before the loop runs, or a test): serve the GUI loop's passes here.
        while (wait->waiting && app->isRunning()) app->exec(20000);
    }
    return wait->result;
}

void KyDialog::done(int code) {
    if (doneInThisExec_) return;
    doneInThisExec_ = true;
    result_ = code;
    if (ModalOverlay* o = overlay()) o->hide();
    if (KyPlatformWindow* w = platformWindow()) w->hide();
    KyWidget::hide();
    modal_ = false;
    if (KyObject::isLive(previousFocus_)) previousFocus_->requestFocus();
    previousFocus_ = nullptr;
    std::shared_ptr<Wait_> wait = wait_;
    finished(code);
    if (code == 1) accepted();
    else rejected();
    if (wait && wait->waiting) {
        wait->waiting = false;
        wait->result = code;
        if (wait->loop) wait->loop->exit(code);
    }
}

void KyDialog::keyPressEvent(KeyEvent* event) {
    if (event->keyCode() == kKeyEscape && modal_) {
        event->accept();
        done(0);
        return;
    }
    event->ignore();
}

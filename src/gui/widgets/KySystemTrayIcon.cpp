// KySystemTrayIcon: the icon window, its clicks, its tool tip and docking.
#include "gui/widgets/KySystemTrayIcon.h"

#include <algorithm>

#include "core/runtime/KyCoreApplication.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPainter.h"
#include "gui/platform/KyPlatformImage.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/platform/KyPlatformTrayIcon.h"
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyMenu.h"
#include "gui/widgets/KyToolTip.h"
#include "gui/widgets/KyTrayWindow.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {
// A left click waits this long for a second one before it opens the menu.
constexpr int kDoubleClickWaitMs = 260;
constexpr int kToolTipDelayMs = 600;
constexpr int kDefaultIconSize = 22;
} // namespace

/// The window the tray holds: paints the icon and turns clicks into the menu.
class KySystemTrayIcon::IconWindow_ : public TrayWindow_ {
public:
    explicit IconWindow_(KySystemTrayIcon* owner) : TrayWindow_(L"tray", kDefaultIconSize, kDefaultIconSize), owner_(owner) {
        setFocusPolicy(NoClickFocus);
        setDefaultStyleSheet("IconWindow_ { background-color: rgb(238, 238, 238); border-width: 0px; }");
    }
    KyString className() const override { return "IconWindow_"; }
    KyList<KyString> classHierarchy() const override {
        KyList<KyString> chain = TrayWindow_::classHierarchy();
        chain.prepend("IconWindow_");
        return chain;
    }
    /// Visible for painting; the tray, not us, maps the window.
    void setPainted(bool on) { on ? KyWidget::show() : KyWidget::hide(); }

    void paintEvent(PaintEvent* event) override {
        if (!event || !event->painter()) return;
        KyPainter* p = event->painter();
        paintOwnBox_(p);
        const KyPlatformIcon& icon = owner_->icon_;
        if (icon.isNull()) return;
        if (!image_ || imageSource_ != &icon.argb || imageVersion_ != icon.argb.size() + icon.width) makeImage_(icon);
        if (!image_) return;
        // Square, centred, as large as the tray's cell allows with a pixel to spare.
        const int side = std::max(1, std::min(width(), height()) - 2);
        p->drawImage({(width() - side) / 2, (height() - side) / 2, side, side}, *image_, nullptr);
    }
    void mousePressEvent(MouseEvent* event) override {
        event->accept();
        stopTimers_();
        owner_->hideToolTip_();
        const KyPoint screen = toScreen_(event->x(), event->y());
        if (event->button() == 2) {
            owner_->openMenuAt_(screen.x, screen.y);
        } else if (event->button() == 1) {
            pendingClick_ = screen;
            armTimer_(clickTimer_, kDoubleClickWaitMs, [this] { owner_->openMenuAt_(pendingClick_.x, pendingClick_.y); });
        }
    }
    void mouseDoubleClickEvent(MouseEvent* event) override {
        event->accept();
        if (event->button() != 1) return;
        stopTimers_();
        // The press that follows is part of the double click, not a click of its own.
        swallowNextPress_ = true;
        owner_->doubleClicked();
    }
    bool event(KyEvent* e) override {
        if (e->type() == Event::MouseButtonPress && swallowNextPress_) {
            swallowNextPress_ = false;
            e->accept();
            return true;
        }
        return TrayWindow_::event(e);
    }
    void mouseMoveEvent(MouseEvent* event) override {
        event->accept();
        if (owner_->toolTip_.isEmpty() || clickTimer_) return;
        const KyPoint screen = toScreen_(event->x(), event->y());
        hoverAt_ = screen;
        if (!tipTimer_) armTimer_(tipTimer_, kToolTipDelayMs, [this] { owner_->showToolTipAt_(hoverAt_.x, hoverAt_.y); });
    }
    void on_Hover_changed(const bool& value) override {
        TrayWindow_::on_Hover_changed(value);
        if (!value) {
            cancel_(tipTimer_);
            owner_->hideToolTip_();
        }
    }
    void resizeEvent(ResizeEvent* event) override {
        TrayWindow_::resizeEvent(event);
        setForceRepaint();
        update();
    }
    void stopTimers_() {
        cancel_(clickTimer_);
        cancel_(tipTimer_);
    }
    ~IconWindow_() override { stopTimers_(); }

private:
    KyPoint toScreen_(int x, int y) const { return KyPoint(x, y) + KyWidgetPlatformAdapter::clientOriginOnScreen(nativeHandle()); }
    void cancel_(int& id) {
        if (id)
            if (KyCoreApplication* app = KyCoreApplication::instance(false)) app->removeTimer(id);
        id = 0;
    }
    void armTimer_(int& id, int ms, std::function<void()> fn) {
        cancel_(id);
        KyCoreApplication* app = KyCoreApplication::instance(false);
        if (!app) return;
        int* slot = &id;
        id = app->addTimer(
            [this, slot, fn = std::move(fn)] {
                if (!KyObject::isLive(this)) return;
                *slot = 0;
                fn();
            },
            ms * 1000, true, KyFiberLaneInput);
    }
    void makeImage_(const KyPlatformIcon& icon) {
        image_.reset();
        KyGuiApplication* app = KyGuiApplication::instance();
        if (!app || !app->platformIntegration()) return;
        image_ = app->platformIntegration()->createImage({icon.width, icon.height}, KyPixelFormat::Bgra32);
        std::uint8_t* out = image_->pixels();
        const int pitch = image_->pitch();
        for (int y = 0; y < icon.height; ++y)
            for (int x = 0; x < icon.width; ++x) {
                const std::uint32_t v = icon.argb[static_cast<std::size_t>(y) * icon.width + x];
                std::uint8_t* px = out + y * pitch + x * 4;
                px[0] = v & 0xFF, px[1] = (v >> 8) & 0xFF, px[2] = (v >> 16) & 0xFF, px[3] = (v >> 24) & 0xFF;
            }
        imageSource_ = &icon.argb;
        imageVersion_ = icon.argb.size() + icon.width;
    }

    KySystemTrayIcon* owner_;
    std::unique_ptr<KyPlatformImage> image_;
    const void* imageSource_ = nullptr;
    std::size_t imageVersion_ = 0;
    int clickTimer_ = 0;
    int tipTimer_ = 0;
    bool swallowNextPress_ = false;
    KyPoint pendingClick_;
    KyPoint hoverAt_;
};

KySystemTrayIcon::KySystemTrayIcon(KyObject* parent) : KyObject(parent), menu_(std::make_unique<KyMenu>("tray")) {}

KySystemTrayIcon::~KySystemTrayIcon() {
    hideToolTip_();
    tipWindow_.reset();
    menu_.reset();
    dock_.reset();
    window_.reset();
}

void KySystemTrayIcon::setIcon(const KyPlatformIcon& icon) {
    icon_ = icon;
    if (window_) {
        window_->setWindowIcon(icon);
        window_->setForceRepaint();
        window_->update();
    }
}

KyAction* KySystemTrayIcon::addAction(const KyString& text, std::function<void()> fn) {
    return menu_->addAction(text, std::move(fn));
}

KyMainWindow* KySystemTrayIcon::trayWindow() const { return window_.get(); }

bool KySystemTrayIcon::isDocked() const { return dock_ && dock_->isDocked(); }

void KySystemTrayIcon::show() {
    if (visible_) return;
    visible_ = true;
    if (!window_) {
        window_ = std::make_unique<IconWindow_>(this);
        if (!icon_.isNull()) window_->setWindowIcon(icon_);
    }
    window_->setPainted(true);
    KyGuiApplication* app = KyGuiApplication::instance();
    KyPlatformIntegration* platform = app ? app->platformIntegration() : nullptr;
    if (platform && !dock_) {
        dock_ = platform->createTrayIcon(window_->platformWindow());
        if (dock_)
            dock_->setDockedChangedCallback([this](bool docked) {
                if (window_) {
                    window_->setForceRepaint();
                    window_->update();
                }
                dockedChanged(docked);
            });
    } else if (dock_) {
        dock_->requestDock();
    }
}

void KySystemTrayIcon::hide() {
    if (!visible_) return;
    visible_ = false;
    if (menu_) menu_->hide();
    hideToolTip_();
    // Leaving the tray: the window is destroyed, and the tray forgets it.
    dock_.reset();
    window_.reset();
}

void KySystemTrayIcon::openMenuAt_(int screenX, int screenY) {
    if (!menu_ || menu_->actions().isEmpty()) return;
    menu_->popupOnScreen(screenX, screenY);
}

void KySystemTrayIcon::showToolTipAt_(int screenX, int screenY) {
    if (toolTip_.isEmpty() || (menu_ && menu_->isVisible())) return;
    if (!tipWindow_) {
        tipWindow_ = std::make_unique<KyMainWindow>(L"tooltip", 10, 10);
        tipWindow_->setPopup(true);
        new KyToolTip::Popup(tipWindow_.get());
    }
    auto* popup = static_cast<KyToolTip::Popup*>(tipWindow_->childWidgets().first());
    popup->setText(toolTip_);
    const KySize size = popup->sizeHint();
    popup->setGeometry(0, 0, size.width, size.height);
    tipWindow_->platformWindow()->resize(size.width, size.height);
    // Trays sit at screen edges: above the pointer near the bottom, below it otherwise.
    const int y = screenY > 200 ? screenY - size.height - 8 : screenY + 20;
    tipWindow_->platformWindow()->move(std::max(0, screenX - size.width / 2), std::max(0, y));
    tipWindow_->setGeometry(0, 0, size.width, size.height);
    tipWindow_->show();
}

void KySystemTrayIcon::hideToolTip_() {
    if (tipWindow_ && tipWindow_->isVisible()) tipWindow_->hide();
}

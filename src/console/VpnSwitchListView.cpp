// VpnSwitchListView: clicks, keys and the context-menu request of a row.
#include "console/VpnSwitchListView.h"

#include "console/VpnListRows.h"
#include "core/runtime/KyCoreApplication.h"
#include "gui/platform/KyPainter.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"

namespace {
// X keysyms of the keys the lists answer beyond the item view's.
constexpr int kKeySpace = 0x20;
constexpr int kKeyReturn = 0xff0d;
constexpr int kKeyEnter = 0xff8d;
constexpr int kKeyMenu = 0xff67;
constexpr int kKeyF10 = 0xffc7;
constexpr int kLeftButton = 1;
constexpr int kRightButton = 2;

// The console's card look, so a list shown before the window sheet applies
// (or without it) never flashes the toolkit's light default.
constexpr const char* kDefaultSheet =
    "KyAbstractItemView { background-color: rgb(16, 31, 40); border-width: 0px; color: rgb(216, 225, 228);"
    " font-size: 13px; row-height: 62px; selection-background-color: rgb(16, 31, 40);"
    " selection-color: rgb(216, 225, 228); hover-background-color: rgb(16, 31, 40); accent-color: rgb(220, 154, 84); }"
    " KyAbstractItemView:disabled { color: rgb(96, 112, 118); }";
} // namespace

VpnSwitchListView::VpnSwitchListView(KyWidget* parent) : KyListView(parent) {
    setDefaultStyleSheet(kDefaultSheet);
    // Rows are rebuilt whole on every snapshot: the keyboard's row stays on
    // the same VPN or device instead of falling back to none.
    selectionModel()->setResetKeyRole(kIdRole);
}

KyString VpnSwitchListView::rowId_(int row) const {
    if (!model() || row < 0 || row >= model()->rowCount()) return KyString();
    return model()->index(row, 0).data(kIdRole).toString();
}

void VpnSwitchListView::post_(std::function<void()> fn) {
    if (!fn) return;
    KyCoreApplication* app = KyCoreApplication::instance();
    if (!app || !app->postEvent(fn)) fn();
}

void VpnSwitchListView::setEmptyText(const KyString& title, const KyString& hint) {
    if (title == emptyTitle_ && hint == emptyHint_) return;
    emptyTitle_ = title;
    emptyHint_ = hint;
    update();
}

void VpnSwitchListView::paintEvent(PaintEvent* event) {
    KyListView::paintEvent(event);
    KyPainter* painter = event->painter();
    if (!painter || (model() && model()->rowCount() > 0) || emptyTitle_.isEmpty()) return;
    const KyRect vp = viewportRect();
    if (vp.width < 40 || vp.height < 60) return;
    painter->pushClipRect(event->rect().intersected(vp));
    painter->drawDashedRect({vp.x + 2, vp.y + 2, vp.width - 4, vp.height - 4}, KyColor(40, 62, 72), 1, 6, 4);
    const int y = vp.y + vp.height * 2 / 5;
    const auto centred = DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter;
    painter->drawText({vp.x + 16, y - 22, vp.width - 32, 22}, emptyTitle_, centred, KyColor(170, 184, 189),
                      VpnListRows::font(14, 600));
    painter->drawText({vp.x + 16, y + 4, vp.width - 32, 18}, emptyHint_, centred, KyColor(110, 128, 135),
                      VpnListRows::font(12));
    painter->popClipRect();
}

void VpnSwitchListView::mousePressEvent(MouseEvent* event) {
    pressedRow_ = -1;
    const bool inRows = viewportRect().contains(event->pos()) && !verticalBarRect().contains(event->pos());
    if (inRows && event->button() == kLeftButton) {
        pressedRow_ = rowAt(event->y());
        pressedOnSwitch_ = pressedRow_ >= 0 && VpnListRows::switchHitRect(rowRect(pressedRow_)).contains(event->pos());
    }
    KyListView::mousePressEvent(event);
}

void VpnSwitchListView::mouseReleaseEvent(MouseEvent* event) {
    const int pressed = pressedRow_;
    pressedRow_ = -1;
    const bool inRows = viewportRect().contains(event->pos()) && !verticalBarRect().contains(event->pos());
    const int row = inRows ? rowAt(event->y()) : -1;
    if (row < 0) return KyListView::mouseReleaseEvent(event);
    // The item view still hears the release (its clicked signal, its press state).
    KyListView::mouseReleaseEvent(event);
    event->accept();
    if (event->button() == kRightButton) {
        contextMenu_(row, event->pos());
        return;
    }
    if (event->button() != kLeftButton || row != pressed) return;
    const bool onSwitch = VpnListRows::switchHitRect(rowRect(row)).contains(event->pos());
    // A press that began on the switch and slid off it to the body is no click at all.
    if (onSwitch != pressedOnSwitch_) return;
    rowAction_(row, onSwitch);
}

void VpnSwitchListView::keyPressEvent(KeyEvent* event) {
    const KyModelIndex current = currentIndex();
    const int row = current.isValid() ? current.row() : -1;
    const int key = event->keyCode();
    if (isEnabled() && row >= 0) {
        bool taken = false;
        if ((key == kKeySpace && !event->ctrl()) || key == kKeyReturn || key == kKeyEnter)
            taken = rowAction_(row, key == kKeySpace);
        else if (key == kKeyMenu || (key == kKeyF10 && event->shift())) {
            const KyRect r = rowRect(row);
            taken = contextMenu_(row, {r.x + 24, r.y + r.height - 8});
        } else if (event->ctrl() && KyWidgetPlatformAdapter::matchesShortcutKey(key, 'c'))
            taken = copyRow_(row);
        if (taken) return event->accept();
    }
    KyListView::keyPressEvent(event);
}

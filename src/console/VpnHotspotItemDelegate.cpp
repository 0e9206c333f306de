// VpnHotspotItemDelegate: tile, badge, texts, tags and the join switch.
#include "console/VpnHotspotItemDelegate.h"

#include "console/VelmoVpnConsoleCatalog.h"
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VpnHotspotListModel.h"
#include "console/VpnHotspotListView.h"
#include "console/VpnListRows.h"
#include "gui/platform/KyPainter.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/widgets/KyWidget.h"

namespace {
namespace S = VelmoVpnConsoleStyle;
using H = VpnHotspotListModel;

KyFont emojiFont() {
    KyFont f(L"Segoe UI Emoji", 0);
    f.pixelSize = 18;
    return f;
}

} // namespace

VpnHotspotItemDelegate::VpnHotspotItemDelegate(KyObject* parent) : KyStyledItemDelegate(parent) {}

KySize VpnHotspotItemDelegate::sizeHint(const KyStyleOptionViewItem& option, const KyModelIndex&) const {
    return {option.rect.width, VpnListRows::kRowHeight};
}

bool VpnHotspotItemDelegate::drawsEmojiGlyph(const KyWidget* widget) const {
    if (!widget || !widget->nativeHandle().isValid()) return false;
    const void* display = widget->nativeHandle().display;
    if (display != glyphDisplay_) {
        glyphDisplay_ = display;
        glyphCovered_ = KyWidgetPlatformAdapter::fontCoversText(widget->nativeHandle(), emojiFont(), kGlyph);
    }
    return glyphCovered_;
}

void VpnHotspotItemDelegate::paint(KyPainter* painter, const KyStyleOptionViewItem& option,
                                   const KyModelIndex& index) const {
    if (!painter || !index.isValid()) return;
    using namespace VpnListRows;
    const KyRect row = option.rect;
    const bool selected = boolFromAny_(index.data(H::SelectedRole));
    const bool active = boolFromAny_(index.data(H::ActiveRole));
    const bool pending = !active && boolFromAny_(index.data(H::PendingRole));
    const auto* view = dynamic_cast<const VpnHotspotListView*>(option.widget);
    const int level = pending ? pulseLevel(view ? view->pulsePhase() : 0) : -1;

    paintTile(painter, row, tileStateOf(option, selected));

    // Badge: tinted green for the VPN the client is on.
    const KyRect badge = badgeRect(row);
    const KyColor badgeFill = active ? KyColor(28, 62, 56) : selected ? KyColor(58, 50, 40) : KyColor(27, 48, 58);
    painter->fillRoundedRect(badge, 10, badgeFill, badgeFill, 0);
    const auto centred = DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter;
    if (drawsEmojiGlyph(option.widget))
        painter->drawText(badge, kGlyph, centred, S::kText, emojiFont());
    else
        painter->drawText(badge, initialOf(index.data(H::NameRole).toString()), centred,
                          active ? S::kPositive : S::kAccent, font(16, 700));

    const KyRect sw = switchRect(row);
    paintSwitch(painter, sw, {active, true, level});

    int right = sw.x - 12;
    const int centreY = sw.y + sw.height / 2;
    if (active)
        right = paintTag(painter, option.widget, right, centreY, "CONNECTED", S::kPositive, KyColor(22, 52, 48),
                         KyColor(40, 90, 78)) - 8;
    else if (pending)
        right = paintTag(painter, option.widget, right, centreY, "JOINING", mix(S::kMutedText, S::kAccent, 128 + level / 2),
                         KyColor(44, 40, 36), KyColor(96, 76, 54)) - 8;

    paintTexts(painter, option.widget, textRect(row, right + 12), index.data(H::NameRole).toString(),
               index.data(H::DetailRole).toString(), false);
}

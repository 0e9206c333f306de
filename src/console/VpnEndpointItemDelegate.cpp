// VpnEndpointItemDelegate: tile, badge with the online dot, texts, tag and the access switch.
#include "console/VpnEndpointItemDelegate.h"

#include "console/VelmoVpnConsoleCatalog.h"
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VpnEndpointListModel.h"
#include "console/VpnListRows.h"
#include "gui/platform/KyPainter.h"

namespace {
namespace S = VelmoVpnConsoleStyle;
using E = VpnEndpointListModel;

const KyColor kOfflineDot{84, 104, 112};

} // namespace

VpnEndpointItemDelegate::VpnEndpointItemDelegate(KyObject* parent) : KyStyledItemDelegate(parent) {}

KySize VpnEndpointItemDelegate::sizeHint(const KyStyleOptionViewItem& option, const KyModelIndex&) const {
    return {option.rect.width, VpnListRows::kRowHeight};
}

void VpnEndpointItemDelegate::paint(KyPainter* painter, const KyStyleOptionViewItem& option,
                                    const KyModelIndex& index) const {
    if (!painter || !index.isValid()) return;
    using namespace VpnListRows;
    const KyRect row = option.rect;
    const bool online = boolFromAny_(index.data(E::ControlOnlineRole));
    const bool enabled = boolFromAny_(index.data(E::VpnEnabledRole));
    const bool interactive = boolFromAny_(index.data(E::InteractiveRole));
    const KyString title = index.data(E::TitleRole).toString();

    const TileState state = tileStateOf(option, false);
    paintTile(painter, row, state);

    const KyRect badge = badgeRect(row);
    const KyColor badgeFill{27, 48, 58};
    painter->fillRoundedRect(badge, 10, badgeFill, badgeFill, 0);
    painter->drawText(badge, initialOf(title), DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter,
                      online ? S::kText : S::kMutedText, font(16, 700));
    // The online dot sits on the badge's corner, ringed in the tile's colour
    // so it reads as a separate mark.
    const int d = 12;
    const KyRect dot{badge.x + badge.width - d + 3, badge.y + badge.height - d + 3, d, d};
    painter->fillEllipse(dot, online ? S::kPositive : kOfflineDot, tileFill(state), 2);

    const KyRect sw = switchRect(row);
    paintSwitch(painter, sw, {enabled, interactive, -1});

    const int centreY = sw.y + sw.height / 2;
    const int right = online ? paintTag(painter, option.widget, sw.x - 12, centreY, "ONLINE", S::kPositive,
                                        KyColor(22, 52, 48), KyColor(40, 90, 78))
                             : paintTag(painter, option.widget, sw.x - 12, centreY, "OFFLINE", S::kMutedText,
                                        KyColor(24, 40, 48), KyColor(47, 72, 82));
    paintTexts(painter, option.widget, textRect(row, right - 8 + 12), title, index.data(E::DetailRole).toString(),
               !online);
}

// VpnEndpointItemDelegate: paints one user or device row of the selected VPN.
//
// A tile with a badge carrying the device's initial and its online dot
// (green while the device's control link is up), the device's title over its
// detail line (user, platform, current and reserved address), an "ONLINE" or
// "OFFLINE" tag, and the access switch at the right end, on while the device
// may use the VPN and greyed while the list is not interactive. The keyboard's
// row shows as current. GUI thread only.
#pragma once

#include "gui/modelview/KyStyledItemDelegate.h"

/// The painter of endpoint rows.
class VpnEndpointItemDelegate : public KyStyledItemDelegate {
    KY_OBJECT(VpnEndpointItemDelegate, KyStyledItemDelegate)

public:
    explicit VpnEndpointItemDelegate(KyObject* parent = nullptr);

    void paint(KyPainter* painter, const KyStyleOptionViewItem& option, const KyModelIndex& index) const override;
    KySize sizeHint(const KyStyleOptionViewItem& option, const KyModelIndex& index) const override;
};

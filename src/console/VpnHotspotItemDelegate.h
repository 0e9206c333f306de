// VpnHotspotItemDelegate: paints one row of the VPN catalog.
//
// A tile with a badge, the VPN's name over its detail line, a tag for the
// VPN the local client is on ("CONNECTED") or is joining ("JOINING"), and
// the join switch at the right end, on for the active VPN. The inspected VPN
// is framed in the accent, read from the row's own flag rather than from the
// view's selection. The row being joined pulses with the view's phase.
//
// The badge shows a globe in "Segoe UI Emoji" where the display has that
// face with the glyph; elsewhere it shows the VPN's initial in DejaVu Sans,
// so a missing face never leaves a stand-in box. GUI thread only.
#pragma once

#include "gui/modelview/KyStyledItemDelegate.h"

/// The painter of catalog rows.
class VpnHotspotItemDelegate : public KyStyledItemDelegate {
    KY_OBJECT(VpnHotspotItemDelegate, KyStyledItemDelegate)

public:
    /// The badge's glyph in the emoji face: a globe with meridians.
    static constexpr const char* kGlyph = "\xF0\x9F\x8C\x90";

    explicit VpnHotspotItemDelegate(KyObject* parent = nullptr);

    void paint(KyPainter* painter, const KyStyleOptionViewItem& option, const KyModelIndex& index) const override;
    KySize sizeHint(const KyStyleOptionViewItem& option, const KyModelIndex& index) const override;

    /// Whether the badge draws kGlyph in the emoji face on widget's display
    /// (asked of the server once per display).
    bool drawsEmojiGlyph(const KyWidget* widget) const;

private:
    mutable const void* glyphDisplay_ = nullptr;
    mutable bool glyphCovered_ = false;
};

// KyPopupList: the flat list of texts a drop-down or a completer shows.
//
// It draws a rounded sheet with one row per text, a highlighted row and the
// rows that fit; the highlight follows the pointer and the wheel, and a click
// on a row reports it. It never takes focus, so the field that opened it
// keeps the keyboard and steers the highlight itself. Rows are the font's
// pixel size × 1.4 high. GUI thread only.
#pragma once

#include "core/types/KyList.h"
#include "core/types/KyString.h"
#include "gui/widgets/KyWidget.h"

/// A list of text rows with one highlighted, for popups.
class KyPopupList : public KyWidget {
    KY_OBJECT(KyPopupList, KyWidget)

public:
    /// The highlight moved to a row (by pointer, wheel or moveHighlightBy).
    KY_SIGNAL(rowHighlighted, int)
    /// The user clicked a row.
    KY_SIGNAL(rowClicked, int)

    explicit KyPopupList(KyWidget* parent = nullptr);

    void setItems(const KyList<KyString>& items);
    const KyList<KyString>& items() const { return items_; }
    int count() const { return static_cast<int>(items_.size()); }
    int highlight() const { return highlight_; }
    /// Highlights row (-1 for none), scrolling it into view; emits rowHighlighted on change.
    void setHighlight(int row);
    /// Moves the highlight by delta rows, stopping at the ends.
    void moveHighlightBy(int delta);
    int rowHeight() const;
    void setMaxVisibleRows(int rows) { maxVisibleRows_ = rows < 1 ? 1 : rows; }
    /// The height that shows min(count, maximum) rows.
    int preferredHeight() const;
    int rowAt(int y) const;

    void paintEvent(PaintEvent* event) override;
    void mousePressEvent(MouseEvent* event) override;
    void mouseMoveEvent(MouseEvent* event) override;
    void mouseReleaseEvent(MouseEvent* event) override;
    void wheelEvent(WheelEvent* event) override;

private:
    int borderWidth_() const;
    int visibleRows_() const;
    void scrollToHighlight_();

    KyList<KyString> items_;
    int highlight_ = -1;
    int firstVisible_ = 0;
    int maxVisibleRows_ = 8;
};

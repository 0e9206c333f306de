// KyListView: the shown column; the rest is the item view's.
#include "gui/modelview/KyListView.h"

#include <algorithm>

KyListView::KyListView(KyWidget* parent) : KyAbstractItemView(parent) {}

void KyListView::setModelColumn(int column) {
    column = std::max(0, column);
    if (column == column_) return;
    column_ = column;
    update();
}

void KyListView::paintRows_(KyPainter* painter, const KyRect& clip, int first, int last) {
    if (column_ == 0) return KyAbstractItemView::paintRows_(painter, clip, first, last);
    // A list on another column paints that column's cells in the row's place.
    KyStyleOptionViewItem base;
    initOption_(base);
    const KyModelIndex current = currentIndex();
    for (int row = first; row <= last; ++row) {
        KyStyleOptionViewItem option = base;
        option.rect = rowRect(row);
        option.state |= KyStyleOptionViewItem::FirstColumn;
        if (selectionModel()->isRowSelected(row)) option.state |= KyStyleOptionViewItem::Selected;
        if (current.isValid() && current.row() == row) option.state |= KyStyleOptionViewItem::Current;
        itemDelegate()->paint(painter, option, model()->index(row, column_));
    }
}

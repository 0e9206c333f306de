// KyListView: one column of a flat model as full-width rows.
//
// Everything a list does (rows of one height, the delegate, selection,
// keyboard, incremental repaint) is KyAbstractItemView's; the list adds the
// column it shows and its own sheet name, so "KyListView { ... }" styles
// lists alone. The console's catalog and endpoint lists derive from it and
// own their click logic through rowAt. GUI thread only.
#pragma once

#include "gui/modelview/KyAbstractItemView.h"

/// A scrolling list over column modelColumn() of a model.
class KyListView : public KyAbstractItemView {
    KY_OBJECT(KyListView, KyAbstractItemView)

public:
    explicit KyListView(KyWidget* parent = nullptr);
    /// The model column the rows show (0 by default).
    void setModelColumn(int column);
    int modelColumn() const { return column_; }

protected:
    void paintRows_(KyPainter* painter, const KyRect& clip, int first, int last) override;

private:
    int column_ = 0;
};

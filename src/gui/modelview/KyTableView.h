// KyTableView: the columns of a flat model under a KyHeaderView.
//
// The table is a KyAbstractItemView whose cells take their x and width from
// its header (above the viewport, owned by the table); Left and Right move
// the current cell between columns, a header click sorts the model when
// sorting is enabled, and dragged column edges repaint the rows. Cells are
// separated by a light grid. Editing opens the delegate's editor on a double
// click or F2. GUI thread only.
#pragma once

#include "gui/modelview/KyAbstractItemView.h"
#include "gui/modelview/KyHeaderView.h"

/// A table of rows and columns with a sorting, resizable header.
class KyTableView : public KyAbstractItemView {
    KY_OBJECT(KyTableView, KyAbstractItemView)

public:
    explicit KyTableView(KyWidget* parent = nullptr);

    void setModel(KyAbstractItemModel* model) override;
    KyHeaderView* horizontalHeader() const { return header_; }
    /// A header click sorts the model by that column (through KyAbstractItemModel::sort).
    void setSortingEnabled(bool enabled);
    bool isSortingEnabled() const { return header_->isSortingEnabled(); }
    void sortByColumn(int column, KySortOrder order);
    void setColumnWidth(int column, int width) { header_->resizeSection(column, width); }
    int columnWidth(int column) const { return header_->sectionSize(column); }
    void setShowGrid(bool show);
    /// The column under x (local), -1 for none.
    int columnAt(int x) const { return columnAt_(x); }

    void resizeEvent(ResizeEvent* event) override;

protected:
    int columnCount_() const override;
    int columnX_(int column) const override;
    int columnWidth_(int column) const override;
    int columnAt_(int x) const override;
    int viewportTopMargin_() const override { return kHeaderHeight; }
    void paintRows_(KyPainter* painter, const KyRect& clip, int first, int last) override;

private:
    static constexpr int kHeaderHeight = 32;
    void placeHeader_();

    KyHeaderView* header_;
    bool grid_ = true;
};

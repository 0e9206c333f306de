// KyAbstractItemView: the common body of the list and table views.
//
// A view shows a flat model as rows of one height, scrolled in pixels, and
// paints only the rows that meet the damage: a model of a hundred thousand
// rows costs what its visible rows cost. It follows the model's signals
// incrementally: an insert or removal repaints from the first moved row down
// to the viewport's end (nothing but the bar when the rows lie below it), a
// dataChanged repaints the rows named, a reset or reorder repaints all. The
// selection and current cell live in a KyItemSelectionModel the view owns
// unless given one; mouse and keyboard (arrows, pages, Home, End, Shift and
// Ctrl extensions, Space, F2, Enter) change it. Each cell is drawn by the
// view's delegate, replaceable per view, which also makes the editor that F2
// or a double click opens on an editable cell: Return or the focus leaving
// it writes it back, Escape drops it. GUI thread only.
#pragma once

#include "gui/modelview/KyItemSelectionModel.h"
#include "gui/modelview/KyPersistentModelIndex.h"
#include "gui/modelview/KyStyledItemDelegate.h"
#include "gui/widgets/KyAbstractScrollArea.h"

/// Rows of a flat model, painted by a delegate, with selection and keyboard.
class KyAbstractItemView : public KyAbstractScrollArea {
    KY_OBJECT(KyAbstractItemView, KyAbstractScrollArea)

public:
    enum SelectionMode : int { NoSelection = 0, SingleSelection = 1, ExtendedSelection = 2 };

    explicit KyAbstractItemView(KyWidget* parent = nullptr);
    ~KyAbstractItemView() override;

    /// Shows model (not owned); the selection model is replaced by a fresh one.
    virtual void setModel(KyAbstractItemModel* model);
    KyAbstractItemModel* model() const { return model_; }
    KyItemSelectionModel* selectionModel() const { return selection_; }
    /// Uses selectionModel (not owned) instead of the view's own; it must be over model().
    void setSelectionModel(KyItemSelectionModel* selectionModel);
    /// Paints with delegate (not owned; null: the view's default one).
    void setItemDelegate(KyStyledItemDelegate* delegate);
    KyStyledItemDelegate* itemDelegate() const { return delegate_; }
    void setSelectionMode(SelectionMode mode) { mode_ = mode; }
    SelectionMode selectionMode() const { return mode_; }

    /// From the sheet's `row-height` (default 30).
    int rowHeight() const;
    /// The row under y (local), -1 for none.
    int rowAt(int y) const;
    KyModelIndex indexAt(const KyPoint& point) const;
    /// The row's rectangle across the viewport (local, may lie outside it).
    KyRect rowRect(int row) const;
    /// The cell's rectangle (local).
    KyRect visualRect(const KyModelIndex& index) const;
    int firstVisibleRow() const;
    int lastVisibleRow() const;
    KyModelIndex currentIndex() const;
    /// Makes index current and selects its row alone.
    void setCurrentIndex(const KyModelIndex& index);
    /// Scrolls the least that shows index's row whole.
    void scrollTo(const KyModelIndex& index);
    /// Opens the delegate's editor on index when the model lets it be edited.
    bool edit(const KyModelIndex& index);
    KyWidget* openEditor() const { return editor_; }
    /// Writes the open editor back (commit) and closes it.
    void closeEditor(bool commit = true);

    KY_SIGNAL(pressed, const KyModelIndex&)
    KY_SIGNAL(clicked, const KyModelIndex&)
    KY_SIGNAL(doubleClicked, const KyModelIndex&)
    /// Enter on the current cell, or a double click.
    KY_SIGNAL(activated, const KyModelIndex&)

    void paintEvent(PaintEvent* event) override;
    void keyPressEvent(KeyEvent* event) override;
    void on_Hover_changed(const bool& value) override;
    void on_Focus_changed(const bool& value) override;
    bool eventFilter(KyObject* watched, KyEvent* event) override;

protected:
    void viewportMousePressEvent(MouseEvent* event) override;
    void viewportMouseReleaseEvent(MouseEvent* event) override;
    void viewportMouseMoveEvent(MouseEvent* event) override;
    void viewportMouseDoubleClickEvent(MouseEvent* event) override;
    void scrollContentsBy_(int dy) override;
    int contentRowCount_() const override { return model_ ? model_->rowCount() : 0; }
    int contentRowHeight_() const override { return rowHeight(); }

    // Columns: the list has one across the viewport, the table its header's.
    virtual int columnCount_() const { return 1; }
    virtual int columnX_(int column) const;
    virtual int columnWidth_(int column) const;
    virtual int columnAt_(int x) const;
    /// Makes column visible sideways (the table scrolls its header); the list has nothing to do.
    virtual void scrollToColumn_(int) {}
    /// Fills option from the view's sheet for one paint.
    void initOption_(KyStyleOptionViewItem& option) const;
    /// Paints the cells of rows first..last meeting clip.
    virtual void paintRows_(KyPainter* painter, const KyRect& clip, int first, int last);
    /// Repaints rows first..last, clipped to what shows.
    void updateRows_(int first, int last);

private:
    void connectModel_();
    void wireSelection_(KyItemSelectionModel* selectionModel);
    void moveCurrent_(int row, int column, unsigned modifiers);
    void selectOnPress_(const KyModelIndex& index, bool ctrl, bool shift);
    void setHoverRow_(int row);
    void onRowsInserted_(int first, int last);
    void onRowsRemoved_(int first, int last);

    KyAbstractItemModel* model_ = nullptr;
    KyItemSelectionModel* selection_ = nullptr;
    KyStyledItemDelegate* delegate_ = nullptr;
    KyStyledItemDelegate* defaultDelegate_ = nullptr;
    SelectionMode mode_ = SingleSelection;
    int hoverRow_ = -1;
    int anchorRow_ = -1;
    KyModelIndex pressedIndex_;
    KyPersistentModelIndex doubleClickIndex_; ///< the cell of a double click whose press is still to come
    KyWidget* editor_ = nullptr;
    KyPersistentModelIndex editIndex_;
};

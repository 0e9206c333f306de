// KyHeaderView: the column header of a table: section titles from the
// model's headerData, widths the user drags, and a click that sorts.
//
// Sections are the model's columns; each keeps a width (a default until
// the user or code sets one) and the last one stretches to the header's
// right edge. A press within a few pixels of a section's right edge drags
// that edge (the cursor says so on hover); a click elsewhere emits
// sectionClicked and, with sorting enabled, turns the sort indicator (a new
// column sorts ascending, the same one flips). The table listens and sorts
// the model. GUI thread only.
#pragma once

#include "core/types/KyVector.h"
#include "gui/modelview/KyAbstractItemModel.h"
#include "gui/widgets/KyWidget.h"

/// A horizontal header over the columns of a model.
class KyHeaderView : public KyWidget {
    KY_OBJECT(KyHeaderView, KyWidget)

public:
    explicit KyHeaderView(KyWidget* parent = nullptr);

    void setModel(KyAbstractItemModel* model);
    KyAbstractItemModel* model() const { return model_; }
    int count() const;
    int sectionSize(int section) const;
    void resizeSection(int section, int size);
    /// Where section starts, from the header's left (before the offset).
    int sectionPosition(int section) const;
    /// The section under x (local), -1 for none.
    int logicalIndexAt(int x) const;
    void setDefaultSectionSize(int size);
    void setMinimumSectionSize(int size) { minimumSize_ = size; }
    void setStretchLastSection(bool stretch);
    /// Shifts the sections left by offset pixels (a table scrolled sideways).
    void setOffset(int offset);
    int offset() const { return offset_; }
    int length() const;

    void setSortingEnabled(bool enabled) { sorting_ = enabled; }
    bool isSortingEnabled() const { return sorting_; }
    void setSortIndicator(int section, KySortOrder order);
    int sortIndicatorSection() const { return sortSection_; }
    KySortOrder sortIndicatorOrder() const { return sortOrder_; }

    KY_SIGNAL(sectionClicked, int)
    KY_SIGNAL(sectionResized, int, int, int)
    KY_SIGNAL(sortIndicatorChanged, int, KySortOrder)

    KySize sizeHint() const override;
    void paintEvent(PaintEvent* event) override;
    void mousePressEvent(MouseEvent* event) override;
    void mouseMoveEvent(MouseEvent* event) override;
    void mouseReleaseEvent(MouseEvent* event) override;
    /// A quick second click is a click too: it flips the sort order.
    void mouseDoubleClickEvent(MouseEvent* event) override { mousePressEvent(event); }
    void on_Hover_changed(const bool& value) override;

private:
    /// The section whose right edge lies near x, -1 for none.
    int edgeAt_(int x) const;
    void syncCount_();

    KyAbstractItemModel* model_ = nullptr;
    KyVector<int> sizes_;
    int defaultSize_ = 140;
    int minimumSize_ = 32;
    bool stretchLast_ = true;
    int offset_ = 0;
    bool sorting_ = false;
    int sortSection_ = -1;
    KySortOrder sortOrder_ = KySortOrder::Ascending;
    int resizing_ = -1;
    int resizeStartX_ = 0;
    int resizeStartSize_ = 0;
    int pressed_ = -1;
    int hover_ = -1;
};

// KyBoxLayout: widgets and spacers in one row or one column.
//
// Each entry has an item, a stretch and an optional fixed length on the main
// axis. Room beyond the preferred sizes goes by stretch when any entry has
// one, else to the entries whose policy expands (spacers first, then widgets,
// then those that merely grow); too little room shrinks entries in proportion
// to how far each can shrink. Across the main axis an item that does not
// grow keeps its hinted size and is centred. KyVerticalLayout and
// KyHorizontalLayout only choose the axis. GUI thread only.
#pragma once

#include <memory>

#include <vector>
#include "gui/widgets/KyAbstractLayout.h"
#include "gui/widgets/KyLayoutItem.h"

class KyWidget;

/// A row or column of items.
class KyBoxLayout : public KyAbstractLayout {
    KY_OBJECT(KyBoxLayout, KyAbstractLayout)

public:
    /// 1 vertical, 2 horizontal.
    enum Orientation : int { Vertical = 1, Horizontal = 2 };

    explicit KyBoxLayout(int orientation) : orientation_(orientation) {}
    ~KyBoxLayout() override;

    int primaryOrientation() const { return orientation_; }

    /// Inserts widget before index (a negative or too large index appends).
    /// A null widget or one already here is ignored; the widget moves to the
    /// layout's parent widget.
    void insertWidget(int index, KyWidget* widget, int stretch = 0, int fixedLength = 0);
    void addWidget(KyWidget* widget, int stretch = 0, int fixedLength = 0) { insertWidget(-1, widget, stretch, fixedLength); }
    /// Takes ownership of item.
    void insertItem(int index, KyLayoutItem* item, int stretch = 0, int fixedLength = 0);
    /// Empty room that takes what is left over, weighted by stretch.
    void addStretch(int stretch = 1);
    /// A fixed gap of length on the main axis.
    void addSpacing(int length);
    /// Drops the widget's entry; the widget itself stays with its parent.
    bool removeWidget(KyWidget* widget);
    int count() const { return int(entries_.size()); }
    KyLayoutItem* itemAt(int index) const;
    int stretchAt(int index) const;
    void setStretch(int index, int stretch);

    KySize sizeHint() const override { return layoutSizeHint_(false); }
    KySize minimumSizeHint() const override { return layoutSizeHint_(true); }
    void applyLayout(const KyRect& rect) override { applyBoxLayout_(rect); }
    void forEachManagedWidget(const std::function<void(KyWidget*)>& fn) const override;
    void widgetRemoved_(KyWidget* widget) override { removeWidget(widget); }

protected:
    struct Entry_ {
        std::unique_ptr<KyLayoutItem> item;
        int stretch = 0;
        int fixedLength = 0;
    };

    KySize layoutSizeHint_(bool minimumOnly) const;
    void applyBoxLayout_(const KyRect& rect);

private:
    void changed_();
    /// Drops the entries whose widget went away while the layout was placing.
    void compact_();

    int orientation_;
    bool applying_ = false;
    std::vector<Entry_> entries_;
};

/// Items top to bottom.
class KyVerticalLayout : public KyBoxLayout {
    KY_OBJECT(KyVerticalLayout, KyBoxLayout)

public:
    KyVerticalLayout() : KyBoxLayout(Vertical) {}
};

/// Items left to right.
class KyHorizontalLayout : public KyBoxLayout {
    KY_OBJECT(KyHorizontalLayout, KyBoxLayout)

public:
    KyHorizontalLayout() : KyBoxLayout(Horizontal) {}
};

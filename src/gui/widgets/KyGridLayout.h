// KyGridLayout: widgets in rows and columns, a widget may span several.
//
// Each column is as wide as the widest widget in it wants (rows likewise);
// a spanning widget widens the tracks it covers only as far as it needs.
// Room left over goes to the tracks by their stretch, or evenly when none
// has one; too little room shrinks every track toward its minimum first and
// then in proportion. Inside its cell a widget that does not grow keeps its
// hinted size and is centred. GUI thread only.
#pragma once

#include <memory>
#include <vector>

#include "gui/widgets/KyAbstractLayout.h"
#include "gui/widgets/KyLayoutItem.h"

class KyWidget;

/// A grid of widgets with spans, stretches and minimum track sizes.
class KyGridLayout : public KyAbstractLayout {
    KY_OBJECT(KyGridLayout, KyAbstractLayout)

public:
    /// Where the tracks fall for one rectangle.
    struct GridMetrics {
        std::vector<int> columnWidths, rowHeights, columnStarts, rowStarts;
    };

    KyGridLayout() = default;
    ~KyGridLayout() override;

    /// The most rows or columns a grid holds; cells beyond are ignored.
    static constexpr int kMaximumTracks = 4096;

    /// Places widget at (row, column) over the given spans. A null widget,
    /// one already here, or a row or column outside 0..kMaximumTracks - 1 is
    /// ignored; spans count from 1 and end at the last track.
    void addWidget(KyWidget* widget, int row, int column, int rowSpan = 1, int columnSpan = 1);
    /// Takes ownership of item.
    void addItem(KyLayoutItem* item, int row, int column, int rowSpan = 1, int columnSpan = 1);
    bool removeWidget(KyWidget* widget);
    int rowCount() const;
    int columnCount() const;
    void setRowStretch(int row, int stretch);
    void setColumnStretch(int column, int stretch);
    void setRowMinimumHeight(int row, int height);
    void setColumnMinimumWidth(int column, int width);

    KySize sizeHint() const override { return layoutSizeHint_(false); }
    KySize minimumSizeHint() const override { return layoutSizeHint_(true); }
    void applyLayout(const KyRect& rect) override;
    void forEachManagedWidget(const std::function<void(KyWidget*)>& fn) const override;
    void widgetRemoved_(KyWidget* widget) override { removeWidget(widget); }

    /// The metrics for a rectangle of the given size.
    GridMetrics metricsFor(const KyRect& rect) const { return buildMetrics_(rect); }

    /// Fits count tracks into available. sizes holds the preferred sizes on
    /// entry and the fitted sizes on return; minimums and stretches per track.
    static void distributeSizes_(int available, int* sizes, const int* minimums, const int* stretches, int count);

private:
    struct Cell_ {
        std::unique_ptr<KyLayoutItem> item;
        int row = 0, column = 0, rowSpan = 1, columnSpan = 1;
    };
    /// Per-track minimum and preferred sizes along one axis.
    struct Tracks_ {
        std::vector<int> minimum, preferred, stretch;
    };

    Tracks_ collectTracks_(bool columns) const;
    static void ensureSpanMinimum_(std::vector<int>& tracks, const std::vector<int>& stretch, int first, int span,
                                   int spacing, int need);
    KySize layoutSizeHint_(bool minimumOnly) const;
    GridMetrics buildMetrics_(const KyRect& rect) const;
    static void setTrackValue_(std::vector<int>& values, int index, int value);
    void changed_();

    std::vector<Cell_> cells_;
    bool applying_ = false;
    std::vector<int> rowStretch_, columnStretch_, rowMinimum_, columnMinimum_;
};

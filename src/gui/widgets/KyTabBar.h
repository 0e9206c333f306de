// KyTabBar: a row of tabs, one of them current, for a KyTabWidget.
//
// A click on a tab makes it current; with the focus, Left and Right (and
// Home and End) move the current tab. The tab under the pointer is lit, the
// current one drawn in the strong text colour over an accent underline.
// Reads from its sheet: `background-color`, `border-color` (the base line),
// `color`, `selected-color`, `accent-color`, `tab-hover-background-color`,
// `tab-selected-background-color`, `focus-border-color`, `padding` (around
// each tab's text) and the font. GUI thread only.
#pragma once

#include "core/types/KyVector.h"
#include "gui/widgets/KyWidget.h"

/// The tabs of a tab widget.
class KyTabBar : public KyWidget {
    KY_OBJECT(KyTabBar, KyWidget)

public:
    explicit KyTabBar(KyWidget* parent = nullptr);

    /// Appends a tab; the first one becomes current. Returns its index.
    int addTab(const KyString& text);
    /// Inserts a tab at index (clamped); the current tab stays the same one, and
    /// currentChanged reports its new index when the insert moved it.
    int insertTab(int index, const KyString& text);
    void removeTab(int index);
    int count() const { return static_cast<int>(tabs_.size()); }
    KyString tabText(int index) const;
    void setTabText(int index, const KyString& text);
    int currentIndex() const { return current_; }
    /// Indexes outside the tabs are ignored; emits currentChanged on a change.
    void setCurrentIndex(int index);
    /// The tab's rectangle in the bar; empty for a bad index.
    KyRect tabRect(int index) const;
    /// The tab under (x, y), or -1.
    int tabAt(int x, int y) const;

    KY_SIGNAL(currentChanged, int)

    KySize sizeHint() const override;
    KySize minimumSizeHint() const override { return sizeHint(); }
    void paintEvent(PaintEvent* event) override;
    void mousePressEvent(MouseEvent* event) override;
    void mouseMoveEvent(MouseEvent* event) override;
    void keyPressEvent(KeyEvent* event) override;
    void on_Hover_changed(const bool& hover) override;

private:
    int tabWidth_(int index) const;
    KyColor sheetColor_(const char* name, const KyColor& fallback) const;

    KyVector<KyString> tabs_;
    int current_ = -1;
    int hovered_ = -1;
};

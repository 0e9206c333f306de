// KyMenuBar: the row of menu titles along the top of a main window.
//
// Menus added with addMenu line up from the left, those added with
// addMenuRight from the right edge. The title under the pointer is the
// `HoverIndex` (left menus first, then right ones; -1 for none) and is
// highlighted; a click on a title opens its menu below it and a second click
// closes it; while a menu is open, moving onto another title switches to its
// menu, and Left and Right in an open menu walk along the bar. Title
// rectangles are cached and measured again when the titles, the font or the
// width change. GUI thread only.
#pragma once

#include "gui/widgets/KyWidget.h"

class KyMenu;

/// A menu bar with menus on the left and on the right.
class KyMenuBar : public KyWidget {
    KY_OBJECT(KyMenuBar, KyWidget)

public:
    KY_PROPERTY_INIT(int, HoverIndex, -1)

    explicit KyMenuBar(KyWidget* parent = nullptr);

    KyMenu* addMenu(const KyString& title);
    KyMenu* addMenuRight(const KyString& title);
    /// The menus in index order: left ones, then right ones.
    int menuCount() const;
    KyMenu* menuAt(int index) const;
    /// Opens menu index below its title (closing another open one).
    void openMenu(int index);
    /// The open menu's index, or -1.
    int openIndex() const { return openIndex_; }
    /// The title under (x, y) of the bar, or -1.
    int titleAt(int x, int y) const;
    KyRect titleRect(int index) const;
    /// Measures the titles and places them.
    void updateGeometryCache();

    void paintEvent(PaintEvent* event) override;
    void mousePressEvent(MouseEvent* event) override;
    void mouseMoveEvent(MouseEvent* event) override;
    void resizeEvent(ResizeEvent* event) override;
    void on_Hover_changed(const bool& value) override;
    void on_Font_changed(const KyFont& value) override;
    KySize sizeHint() const override;

private:
    friend class KyMenu;
    KyMenu* addMenu_(const KyString& title, bool right);
    void menuHidden_(KyMenu* menu);
    void openAdjacent_(int step);

    KyVector<KyMenu*> left_;
    KyVector<KyMenu*> right_;
    KyVector<KyRect> titleRects_;
    bool cacheDirty_ = true;
    int openIndex_ = -1;
};

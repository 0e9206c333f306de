// KyMenu: a list of actions that pops up over a window.
//
// A menu is an object, not a widget: popup(x, y) builds its two widgets in
// the host's top-level window, the `PopupOverlay` that covers the window and
// takes every press outside the menus, and the `PopupList` that shows the
// rows, placed at (x, y) and kept inside the window. Sub-menus open beside
// their row on the same overlay, so the open menus form one chain: a press
// outside all of them, Escape or choosing a leaf closes the whole chain. A
// menu without a host widget (the tray's) pops up in a window of its own at a
// screen position and grabs the pointer while open, so that a press anywhere
// else closes it.
//
// Keys in an open menu: Up and Down move the current row, skipping separators
// and disabled rows and wrapping at the ends; Return chooses; Right opens a
// sub-menu and Left closes it (in a menu bar they move to the next menu);
// Escape closes the chain. GUI thread only.
#pragma once

#include <functional>
#include <memory>

#include "core/object/KyObject.h"
#include "gui/widgets/KyAction.h"
#include "gui/widgets/KyOwnedWidget.h"

class KyMainWindow;
class KyMenuBar;

/// A pop-up menu of actions, with sub-menus.
class KyMenu : public KyObject {
    KY_OBJECT(KyMenu, KyObject)

public:
    /// Covers the host window while the menu is open and swallows presses outside the menus.
    class PopupOverlay : public KyOwnedWidget<KyMenu> {
        KY_OBJECT(PopupOverlay, KyOwnedWidget<KyMenu>)

    public:
        PopupOverlay(KyMenu* menu, KyWidget* parent);
        void paintEvent(PaintEvent* event) override;
        void mousePressEvent(MouseEvent* event) override;
        void mouseMoveEvent(MouseEvent* event) override;
        void keyPressEvent(KeyEvent* event) override;
    };

    /// The rows of one open menu.
    class PopupList : public KyOwnedWidget<KyMenu> {
        KY_OBJECT(PopupList, KyOwnedWidget<KyMenu>)

    public:
        PopupList(KyMenu* menu, KyWidget* parent);
        void paintEvent(PaintEvent* event) override;
        void mousePressEvent(MouseEvent* event) override;
        void mouseMoveEvent(MouseEvent* event) override;
        void keyPressEvent(KeyEvent* event) override;
        void on_Hover_changed(const bool& value) override;
    };

    explicit KyMenu(const KyString& title = KyString(), KyObject* parent = nullptr);
    ~KyMenu() override;

    const KyString& title() const { return title_; }
    void setTitle(const KyString& title) { title_ = title; }

    /// Appends a row that runs fn when chosen.
    KyAction* addAction(const KyString& text, std::function<void()> fn = {});
    void addAction(KyAction* action);
    KyAction* addSeparator();
    /// Appends a row that opens a new sub-menu, and returns that menu.
    KyMenu* addMenu(const KyString& title);
    void removeAction(KyAction* action);
    void clear();
    const KyVector<KyAction*>& actions() const { return actions_; }
    /// The open sub-menu's parent, or null for a menu of its own.
    KyMenu* parentMenu() const { return KyObject::isLive(parentMenu_) ? parentMenu_ : nullptr; }

    /// Opens the menu at (x, y) of the host's window, or at screen position
    /// (x, y) in a window of its own when the menu has no host widget.
    void popup(int x, int y);
    /// Opens the menu in a window of its own at screen position (x, y).
    void popupOnScreen(int x, int y);
    /// Closes this menu and its open sub-menus.
    void hide();
    bool isVisible() const { return visible_; }
    /// Builds the overlay and the list if they are missing.
    void ensurePopup();
    /// The style sheet of the window a menu without a host widget (a tray
    /// icon's) opens in, so it can wear its application's look.
    void setPopupWindowStyleSheet(const KyString& sheet);

    /// The current row (-1: none); only enabled, non-separator rows can be current.
    int currentRow() const { return current_; }
    void setCurrentRow(int row);
    /// The row under (x, y) of the list, or -1.
    int rowAt(int x, int y) const;
    /// Row rectangles in the list's coordinates, as last measured.
    const KyVector<KyRect>& rowRects() const { return rowRects_; }
    PopupList* popupList() const { return KyObject::isLive(list_) ? list_ : nullptr; }
    PopupOverlay* popupOverlay() const { return KyObject::isLive(overlay_) ? overlay_ : nullptr; }
    /// Measures the rows from the actions' texts and sizes the list.
    void updateGeometryFromActions();
    /// Hides the chain, flips a checkable action, emits its triggered and the menus' triggered.
    void activateLeafAction_(KyAction* action);
    /// Opens or closes a sub-menu as the pointer rests on row.
    void onPopupHoverChanged_(int row);

    KY_SIGNAL(aboutToShow)
    KY_SIGNAL(aboutToHide)
    KY_SIGNAL(triggered, KyAction*)

private:
    friend class KyMenuBar;
    /// The top of the chain this menu is in.
    KyMenu* rootMenu_();
    KyWidget* hostWidget_() const;
    void moveCurrent_(int step);
    void activateRow_(int row);
    void openSubMenu_(int row, bool focus);
    void closeSubMenu_();
    void placeList_(int x, int y);
    void makeNativeWindow_();

    KyString title_;
    KyVector<KyAction*> actions_;
    KyMenu* parentMenu_ = nullptr;
    KyMenu* openSub_ = nullptr;
    KyMenuBar* menuBar_ = nullptr;
    PopupOverlay* overlay_ = nullptr;
    PopupList* list_ = nullptr;
    std::unique_ptr<KyMainWindow> nativeWindow_;
    KyString popupWindowSheet_;
    KyWidget* previousFocus_ = nullptr;
    KyVector<KyRect> rowRects_;
    int current_ = -1;
    bool visible_ = false;
    bool ownsOverlay_ = false;
};

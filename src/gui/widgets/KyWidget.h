// KyWidget: the base of everything visible.
//
// A top-level window owns one native X11 window; every widget below it is a
// lightweight rectangle in that window, painted by its parent into the shared
// backbuffer. Positions are stored relative to the root of the native window
// (geometry() answers relative to the parent); children live in the object
// child list and later ones paint on top. A widget caches its visibility in
// the hierarchy, its list of child widgets and its resolved style per state;
// every change that can stale a cache drops it.
//
// Input reaches a tree through the root-side entry points (dispatch*FromRoot_),
// which the top-level window calls from its platform callbacks: mouse routing
// with grabs and bubbling, hover paths, keys to the focus widget and up, then
// the shortcut hook. Painting comes back the other way: update() merges the
// widget's rectangle into the window's pending damage, the loop sends one
// synthetic Expose, and paintFromPlatform_ paints the tree into the backbuffer.
//
// Everything here runs on the GUI thread and holds no lock. Overrides of the
// on_*_changed handlers call KyWidget's first: the base ones keep the caches,
// the focus table and the damage right.
#pragma once

#include <functional>
#include <memory>

#include "core/types/KyList.h"
#include "core/types/KyVector.h"
#include "gui/platform/KyPlatformTypes.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/widgets/KyWidgetInterface.h"

class KyAbstractLayout;
class KyPlatformIntegration;

/// The base widget: tree, geometry, painting, input routing, focus and style.
class KyWidget : public KyWidgetInterface {
    KY_OBJECT(KyWidget, KyObject)

public:
    KY_PROPERTY_INIT(int, Alignment, 0)
    KY_PROPERTY_HANDLED(KyString, StyleSheet, KyString())
    KY_PROPERTY_HANDLED(CursorType, Cursor, UnsetCursor)
    KY_PROPERTY_HANDLED(bool, Visible, true)
    KY_PROPERTY_HANDLED(bool, Hover, false)
    KY_PROPERTY_HANDLED(bool, Enable, true)
    KY_PROPERTY_HANDLED(KyString, ToolTips, KyString())
    KY_PROPERTY_HANDLED(FocusPolicyEnum, FocusPolicy, ClickFocus)
    KY_PROPERTY_HANDLED(KyFont, Font, (KyFont(L"Segoe UI", 9)))
    KY_PROPERTY_HANDLED(bool, Focus, false)

public:
    /// Called after the widgets of a window saw a key press they did not accept.
    using KeyShortcutHook = std::function<void(KyWidget* root, KeyEvent* event)>;
    struct ResolvedStyleSnapshot_;
    /// The native window a focus owner is kept for.
    struct FocusScopeKey_;

    explicit KyWidget(KyWidget* parent = nullptr);
    /// Drops its focus entries, its hover and grab references on the scope
    /// root, then leaves its parent (children go after, with the object).
    ~KyWidget() override;

    bool event(KyEvent* event) override;
    void addChild(KyObject* child) override;
    void removeChild(KyObject* child) override;
    void newParentEvent(KyObject* parent) override;

    // Tree.
    KyWidget* parentWidget() const;
    /// The child widgets in paint order (cached between frames).
    const KyVector<KyWidget*>& childWidgets() const;
    /// The top of the widget tree this widget is in.
    KyWidget* topLevelWidget() const;
    bool isAncestorOf(const KyWidget* other) const;

    // Visibility and state.
    virtual void show();
    virtual void hide();
    bool isVisible() const { return getVisible(); }
    bool isVisibleInHierarchy() const override;
    bool isEnabled() const { return getEnable(); }
    bool hasFocus() const { return getFocus(); }
    /// The five base colours: window, hover, pressed, border, text.
    const KyColor& paletteColor(int index) const { return palette_[index < 0 || index > 4 ? 0 : index]; }

    // Geometry. Sizes are clamped between the minimum and the maximum.
    virtual void move(int x, int y);
    virtual void resize(int width, int height);
    void setGeometry(int x, int y, int width, int height) override;
    void setGeometry(const KyRect& rect) override { setGeometry(rect.x, rect.y, rect.width, rect.height); }
    KyRect geometry() const override;
    KyPoint pos() const { return geometry().topLeft(); }
    KySize size() const { return size_; }
    int width() const { return size_.width; }
    int height() const { return size_.height; }
    /// The widget's rectangle in its native window.
    KyRect rootRect() const { return {rootPos_, size_}; }
    KyRect frameGeometry() const override;
    KySize clientSize() const override { return size_; }
    KyRect clientRect() const override { return {0, 0, size_.width, size_.height}; }
    KySize sizeHint() const override;
    KySize minimumSizeHint() const override;
    KySize minimumSize() const override { return minimumSize_; }
    KySize maximumSize() const override { return maximumSize_; }
    void setMinimumSize(int width, int height);
    void setMaximumSize(int width, int height);
    void setFixedSize(int width, int height);
    KyPoint mapToGlobal(KyPoint local) const;
    KyPoint mapFromGlobal(KyPoint global) const;
    /// Takes ownership of layout (replacing and deleting any earlier one) and lays out.
    void setLayout(KyAbstractLayout* layout);
    KyAbstractLayout* layout() const { return layout_; }

    // Painting.
    /// Schedules a repaint of the widget's rectangle; cheap, merges damage.
    virtual void update();
    virtual void invalidateRect();
    virtual void paintEvent(PaintEvent* event);

    // Style.
    void setDefaultStyleSheet(const KyString& text);
    const KyString& defaultStyleSheet() const { return defaultSheetText_; }
    const StyleSheet& getToolSheet() const override;
    /// Any property for this widget in state, through the cascade; empty when unset.
    KyString styleProperty(const KyString& name, std::uint32_t state = CurrentState) const;
    KyString resolveStyleProperty_(const StyleSheet& sheet, const KyString& name, std::uint32_t state) const;
    bool resolveStyledBackground(KyColor& colour, bool& paint, std::uint32_t state = CurrentState) const override;
    bool resolveStyledBorder(KyColor& colour, int& width, std::uint32_t state = CurrentState) const override;
    StyleBox resolveStyledBorderCorners(std::uint32_t state = CurrentState) const override;
    bool resolveStyledTextColor(KyColor& colour, std::uint32_t state = CurrentState) const override;
    StyleBox resolveStyledPadding(std::uint32_t state = CurrentState) const override;
    KyFont resolveStyledFont(std::uint32_t state = CurrentState) const override;
    KyString resolveStyledBoxShadow(std::uint32_t state = CurrentState) const override;
    bool hasExplicitStyledStateProperty(std::uint32_t state, const KyString& name) const override;
    /// The resolved look for state (CurrentState: the widget's own), rebuilt only when flagged.
    const ResolvedStyleSnapshot_& styleSnapshot_(std::uint32_t state = CurrentState) const;
    /// hover 1, pressed 2 ("Pressed"), disabled 4, focus 8, checked 16 ("Checked").
    std::uint32_t styleStateFlags_() const;
    /// The class chain, most derived first.
    const KyList<KyString>& styleSelectors_() const;
    /// Marks the sheets of this widget and its descendants stale and repaints.
    void updateStyleTree_();

    // Native window.
    const KyWidgetPlatformHandle& nativeHandle() const { return handle_; }
    /// Makes this widget the root of a native window and gives its tree the handle.
    void attachNativeWindow(const KyWidgetPlatformHandle& handle);
    bool ownsNativeWindow() const { return nativeWindowOwner_; }
    void setNativeWindowHandleRecursive(const KyWidgetPlatformHandle& handle);

    // Focus, one owner per native window.
    /// Takes the focus unless disabled or NoClickFocus.
    void requestFocus() { requestFocusOwnership_(); }
    void clearFocus();
    /// The focused widget in this widget's window, or null.
    KyWidget* focusWidget() const;
    /// True when Tab may give this widget the focus: it is enabled and visible
    /// in the hierarchy, and it is a keyboard control (StrongFocus, or a class
    /// such as a button, a check box or a text field). Labels and frames are not.
    virtual bool acceptsTabFocus() const;

    // Root-side entry points for top-level windows.
    void dispatchMouseEventFromRoot_(MouseEvent* event);
    /// Sends a wheel turn to the widget under the point, bubbling up.
    void dispatchWheelEventFromRoot_(WheelEvent* event);
    void dispatchKeyEventFromRoot_(KeyEvent* event);
    /// Clears hover on the whole tree (the pointer left the window).
    void clearHoverRecursive_();
    /// Paints one frame for a paint request of the native window this root owns:
    /// follows the client size, paints the dirty part (all of it when
    /// fullRepaint), the drag overlay, and presents it in one copy.
    void paintFromPlatform_(KyPlatformIntegration* integration, KyPlatformPaintEvent request, bool fullRepaint);
    KyWidget* getChildUnderCursor(int x, int y, const KyWidget* skip = nullptr) const;
    /// The widget holding the mouse grab in this widget's window, or null.
    KyWidget* mouseGrabWidget() const;
    static void setKeyShortcutHook(KeyShortcutHook hook);

    // Handlers.
    virtual void mousePressEvent(MouseEvent* event);
    virtual void mouseReleaseEvent(MouseEvent* event);
    virtual void mouseDoubleClickEvent(MouseEvent* event);
    virtual void mouseMoveEvent(MouseEvent* event);
    virtual void keyPressEvent(KeyEvent* event);
    virtual void keyReleaseEvent(KeyEvent* event);
    virtual void wheelEvent(WheelEvent* event);
    virtual void on_FocusPolicy_changed(const FocusPolicyEnum& value);
    virtual void on_ToolTips_changed(const KyString& value);
    virtual void on_Enable_changed(const bool& value);
    virtual void on_Focus_changed(const bool& value);
    virtual void on_Hover_changed(const bool& value);
    virtual void on_Visible_changed(const bool& value);
    virtual void on_Cursor_changed(const CursorType& value);
    virtual void on_Font_changed(const KyFont& value);
    virtual void on_StyleSheet_changed(const KyString& value);
    void on_ObjectName_changed(const KyString& value) override;
    virtual void resizeEvent(ResizeEvent* event);
    virtual void moveEvent(MoveEvent* event);
    virtual void closeEvent(CloseEvent* event);
    virtual void showEvent(Event* event);
    virtual void hideEvent(Event* event);

protected:
    /// Paints rect (local) of the widget's own box from its style.
    void paintOwnBox_(KyPainter* painter);
    /// Paints the visible children that overlap rect (local), later ones on top.
    void paintChildren_(KyPainter* painter, const KyRect& rect);
    void paintChild_(KyWidget* child, KyPainter* painter, const KyRect& rect);
    /// Drops the resolved snapshots of this widget.
    void invalidateStyleCache_();

private:
    struct StyleCache_;

    // Geometry and tree.
    KyWidget* nativeParentWidget_() const;
    void translateAbsolutePosRecursive_(int dx, int dy);
    void invalidateRootRect_(const KyRect& rect);
    bool inResizePass_() const;
    void invalidateVisibilityCache_();
    void invalidateChildList_() { childListDirty_ = true; }
    void invalidateEffectiveStyleCacheRecursive_();

    // Painting.
    bool normalizePaintEvent_(PaintEvent* event, KyRect& localRect, std::unique_ptr<KyPainter>& offsetPainter) const;
    void wakeUpGuiThread_() const;

    // Input.
    KyWidget* mouseGrabScopeRoot_();
    KyVector<KyWidget*> buildHoverPathToPoint_(int x, int y);
    KyWidget* updateHoverStateFromRoot_(int x, int y);
    void forgetPointerReferences_(KyWidget* gone);
    KyPoint translateToWidget_(KyWidget* target, int rootX, int rootY) const;
    void bubbleMouseEvent_(KyWidget* target, MouseEvent* event);
    KyWidget* findFocusedWidgetInHierarchy_();

    // Focus.
    FocusScopeKey_ focusScopeKey_() const;
    void requestFocusOwnership_();
    static KyWidget* validatedFocusOwnerForKey_(const FocusScopeKey_& key);
    void setFocusState_(bool focused);
    void clearFocusInHierarchy_();
    void removeFocusOwnerEntriesForWidget_();

    KyWidgetPlatformHandle handle_;
    bool nativeWindowOwner_ = false;
    KyPoint rootPos_;
    KySize size_{100, 100};
    KySize minimumSize_{0, 0};
    KySize maximumSize_;
    KyColor palette_[5];
    KyAbstractLayout* layout_ = nullptr;
    int resizeDepth_ = 0;
    bool layoutGuard_ = false;
    bool showHideGuard_ = false;
    bool destroying_ = false;

    mutable bool visibleCacheValid_ = false;
    mutable bool visibleCache_ = false;
    mutable bool childListDirty_ = true;
    mutable KyVector<KyWidget*> childWidgets_;

    KyString defaultSheetText_;
    std::unique_ptr<StyleCache_> style_;

    // Kept on the scope root of a native window only.
    KyWidget* mouseGrabWidget_ = nullptr;
    int mouseGrabButtons_ = 0;
    KyVector<KyWidget*> hoverPath_;
};

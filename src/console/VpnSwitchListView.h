// VpnSwitchListView: the common body of the two lists of the "VPNs" tab,
// whose rows each carry a switch at their right end.
//
// The view turns the mouse and the keyboard into row actions: a left click
// released on the row it was pressed on is the row's body or its switch (by
// the switch's rectangle, the one the delegate paints), Return is the body
// and Space the switch of the current row; a right click or the Menu key asks
// for the row's context menu, Ctrl+C for a copy. Subclasses say what each
// action means and post their callbacks through the event loop, so a model
// reset inside a callback cannot pull the row out from under the event
// being handled. The current row follows its id (role 101 of both models)
// through the resets every snapshot causes. An empty list says why in its
// middle instead of showing a bare card.
//
// GUI thread only.
#pragma once

#include <functional>

#include "gui/modelview/KyListView.h"

/// A list whose rows have a body and a switch.
class VpnSwitchListView : public KyListView {
    KY_OBJECT(VpnSwitchListView, KyListView)

public:
    explicit VpnSwitchListView(KyWidget* parent = nullptr);

    /// The role both list models answer a row's id under.
    static constexpr int kIdRole = 101;

    /// What an empty list says in its middle: a title and a hint under it.
    void setEmptyText(const KyString& title, const KyString& hint);

    void paintEvent(PaintEvent* event) override;
    void mousePressEvent(MouseEvent* event) override;
    void mouseReleaseEvent(MouseEvent* event) override;
    void keyPressEvent(KeyEvent* event) override;

protected:
    /// A left click on row's body (onSwitch false) or on its switch, or
    /// Return (body) and Space (switch) on the current row. True when taken.
    virtual bool rowAction_(int row, bool onSwitch) = 0;
    /// The row's context menu at (x, y) of the view; false: none.
    virtual bool contextMenu_(int, KyPoint) { return false; }
    /// Ctrl+C on the current row; false: nothing to copy.
    virtual bool copyRow_(int) { return false; }

    /// The row's id (role 101), empty outside the model.
    KyString rowId_(int row) const;
    /// Runs fn on the next pass of the loop (at once when there is no loop).
    static void post_(std::function<void()> fn);

private:
    KyString emptyTitle_;
    KyString emptyHint_;
    int pressedRow_ = -1;
    bool pressedOnSwitch_ = false;
};

// KyFocusChain: moving the keyboard focus through a window with Tab and
// Shift+Tab.
//
// The chain of a window is every widget in it that takes focus from the
// keyboard (KyWidget::acceptsTabFocus: enabled with all its ancestors,
// visible in the hierarchy, and a control that works from the keyboard), in
// reading order: top to bottom, then left to right, by position in the
// window; widgets at the same spot keep their tree order. Tab steps forward
// and Shift+Tab back, wrapping at both ends. The key routing calls
// handleTabKey for a Tab the focused widget did not take, before shortcuts,
// so every top-level gets it. Pure functions over the tree, GUI thread only.
#pragma once

#include "core/types/KyVector.h"

class KyWidget;
namespace ky::gui {
class KeyEvent;
}

namespace KyFocusChain {

/// X keysyms of Tab and of the Tab that Shift gives on most keymaps.
constexpr int kKeyTab = 0xff09;
constexpr int kKeyBacktab = 0xfe20;

/// The widgets of root's native window that Tab visits, in reading order.
KyVector<KyWidget*> chain(KyWidget* root);
/// Moves the focus of root's window one step along the chain (wrapping);
/// from no focus, to the first (or last) widget. False when the chain is empty.
bool focusNext(KyWidget* root, bool forward);
/// Handles a key press that nobody took: Tab and Shift+Tab (without Ctrl or
/// Alt) move the focus and return true; any other key returns false.
bool handleTabKey(KyWidget* root, const ky::gui::KeyEvent* event);
/// Handles a Return or keypad Enter press that nobody took: the window's
/// enabled, visible default push button is clicked and true returned.
bool handleReturnKey(KyWidget* root, const ky::gui::KeyEvent* event);

} // namespace KyFocusChain

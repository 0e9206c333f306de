// KyShortcut: a key combination that does something anywhere in a window.
//
// A shortcut is a child object of the widget whose window it serves. Keys
// reach it last: only a press that no widget took (from the focus widget up to
// the root) is offered to the shortcuts, from the focus widget's shortcuts up
// to the root's. Ctrl, Shift and Alt must match exactly, so Ctrl+S is not
// Ctrl+Shift+S. GUI thread only.
#pragma once

#include "core/object/KyObject.h"
#include "gui/widgets/KyWidget.h"

/// A keyboard shortcut owned by a widget.
class KyShortcut : public KyObject {
    KY_OBJECT(KyShortcut, KyObject)

public:
    using KeyEvent = ky::gui::KeyEvent;
    using Event = ky::gui::Event;

    /// How the key part compares. 0 matches nothing.
    enum Kind : int {
        NoKey = 0,
        KeyCode = 1,  ///< the X keysym in key, exactly
        Letter = 2,   ///< the letter or digit in key, either case (matchesShortcutKey)
        Return = 3,   ///< Return or keypad Enter
        Escape = 4,
        Tab = 5,
        Backspace = 6,
        Delete = 7,
        Space = 8,
        Up = 9,
        Down = 10,
        Left = 11,
        Right = 12,
    };

    KY_PROPERTY_INIT(bool, Enabled, true)

    /// key is the keysym for KeyCode, the character for Letter, unused otherwise.
    KyShortcut(KyWidget* parent, Kind kind, int key, bool ctrl = false, bool shift = false, bool alt = false);
    /// From text such as "Ctrl+Q", "Ctrl+Shift+N", "F5", "Escape"; an unknown key gives kind NoKey.
    KyShortcut(KyWidget* parent, const KyString& sequence);

    Kind kind() const { return kind_; }
    int key() const { return key_; }
    bool ctrl() const { return ctrl_; }
    bool shift() const { return shift_; }
    bool alt() const { return alt_; }
    /// True when this shortcut's combination is the event's.
    bool matches(const KeyEvent& event) const;

    /// Offers a press no widget accepted to the shortcuts of the focus widget
    /// and its ancestors up to root; the first match accepts it and fires.
    static void dispatch(KyWidget* root, KeyEvent* event);
    /// Hooks dispatch into the widget base's key routing (done by every shortcut).
    static void installHook();

    KY_SIGNAL(activated)

private:
    Kind kind_ = NoKey;
    int key_ = 0;
    bool ctrl_ = false, shift_ = false, alt_ = false;
};

// The widget events: paint, resize, move, keys, mouse, wheel, show, hide and
// close, with their type codes 5 to 17 (2 to 4 are the object events).
//
// Plain records on the GUI thread. A top-level window builds the input events
// from the platform's KyMouseEvent and KyKeyEvent and hands them to the root
// widget's routing; KyWidget::event accepts an input event before it calls the
// handler, and KyWidget's own handlers ignore it again, so an event that no
// override took bubbles to the parent. Every class copies itself with clone().
#pragma once

#include "core/object/KyEvent.h"
#include "core/types/KyPoint.h"
#include "core/types/KyRect.h"
#include "core/types/KySize.h"

class KyPainter;
struct KyMouseEvent;
struct KyKeyEvent;

namespace ky::gui {

/// Base of the widget events.
class Event : public KyEvent {
public:
    enum Type : int {
        Paint = 5,
        Resize = 6,
        Move = 7,
        KeyPress = 8,
        KeyRelease = 9,
        MouseButtonPress = 10,
        MouseButtonDblClick = 11,
        MouseMove = 12,
        MouseButtonRelease = 13,
        Wheel = 14,
        Show = 15,
        Hide = 16,
        Close = 17,
    };
    explicit Event(int type) : KyEvent(type) {}
    KyEvent* clone() const override;
};

/// Asks a widget to paint rect (its own coordinates) with painter.
class PaintEvent : public Event {
public:
    PaintEvent(KyPainter* painter, const KyRect& rect) : Event(Paint), painter_(painter), rect_(rect) {}
    KyPainter* painter() const { return painter_; }
    const KyRect& rect() const { return rect_; }
    KyEvent* clone() const override;

private:
    KyPainter* painter_;
    KyRect rect_;
};

class ResizeEvent : public Event {
public:
    ResizeEvent(KySize size, KySize oldSize) : Event(Resize), size_(size), oldSize_(oldSize) {}
    KySize size() const { return size_; }
    KySize oldSize() const { return oldSize_; }
    KyEvent* clone() const override;

private:
    KySize size_;
    KySize oldSize_;
};

/// Positions relative to the parent.
class MoveEvent : public Event {
public:
    MoveEvent(KyPoint pos, KyPoint oldPos) : Event(Move), pos_(pos), oldPos_(oldPos) {}
    KyPoint pos() const { return pos_; }
    KyPoint oldPos() const { return oldPos_; }
    KyEvent* clone() const override;

private:
    KyPoint pos_;
    KyPoint oldPos_;
};

/// A key press (8) or release (9); keyCode is the X keysym.
class KeyEvent : public Event {
public:
    KeyEvent(int type, int keyCode, bool ctrl, bool shift, bool alt, wchar_t text, bool hasText)
        : Event(type), keyCode_(keyCode), ctrl_(ctrl), shift_(shift), alt_(alt), text_(text), hasText_(hasText) {}
    KeyEvent(int type, const KyKeyEvent& platformEvent);
    int keyCode() const { return keyCode_; }
    bool ctrl() const { return ctrl_; }
    bool shift() const { return shift_; }
    bool alt() const { return alt_; }
    wchar_t text() const { return text_; }
    bool hasText() const { return hasText_; }
    KyEvent* clone() const override;

private:
    int keyCode_;
    bool ctrl_, shift_, alt_;
    wchar_t text_;
    bool hasText_;
};

/// A press (10), double click (11), move (12) or release (13). x and y are in
/// the receiving widget's coordinates; global ones on the screen. button: 0
/// none, 1 left, 2 right, 3 middle, 4 other.
class MouseEvent : public Event {
public:
    MouseEvent(int type, int x, int y, int globalX, int globalY, int button, bool ctrl, bool shift, bool alt,
               int clickCount)
        : Event(type), x_(x), y_(y), globalX_(globalX), globalY_(globalY), button_(button), ctrl_(ctrl),
          shift_(shift), alt_(alt), clickCount_(clickCount) {}
    /// From a platform event in window coordinates (global ones start equal to them).
    MouseEvent(int type, const KyMouseEvent& platformEvent);
    int x() const { return x_; }
    int y() const { return y_; }
    KyPoint pos() const { return {x_, y_}; }
    int globalX() const { return globalX_; }
    int globalY() const { return globalY_; }
    int button() const { return button_; }
    bool ctrl() const { return ctrl_; }
    bool shift() const { return shift_; }
    bool alt() const { return alt_; }
    int clickCount() const { return clickCount_; }
    bool isPress() const { return type() == MouseButtonPress || type() == MouseButtonDblClick; }
    /// The same event at another position (for routing to another widget).
    void setPos(int x, int y) { x_ = x, y_ = y; }
    void setGlobalPos(int x, int y) { globalX_ = x, globalY_ = y; }
    KyEvent* clone() const override;

private:
    int x_, y_, globalX_, globalY_, button_;
    bool ctrl_, shift_, alt_;
    int clickCount_;
};

/// A wheel turn (14): delta is +120 per notch away from the user.
class WheelEvent : public MouseEvent {
public:
    WheelEvent(int x, int y, int globalX, int globalY, int delta, bool ctrl, bool shift, bool alt)
        : MouseEvent(Wheel, x, y, globalX, globalY, 0, ctrl, shift, alt, 0), delta_(delta) {}
    explicit WheelEvent(const KyMouseEvent& platformEvent);
    int delta() const { return delta_; }
    KyEvent* clone() const override;

private:
    int delta_;
};

/// A close request (17); starts accepted, and a widget that refuses ignores it.
class CloseEvent : public Event {
public:
    CloseEvent() : Event(Close) { setAccepted(true); }
    KyEvent* clone() const override;
};

} // namespace ky::gui

// Copies and platform conversions of the widget events.
#include "gui/widgets/KyWidgetEvent.h"

#include "gui/platform/KyPlatformTypes.h"

namespace ky::gui {

KyEvent* Event::clone() const { return new Event(*this); }
KyEvent* PaintEvent::clone() const { return new PaintEvent(*this); }
KyEvent* ResizeEvent::clone() const { return new ResizeEvent(*this); }
KyEvent* MoveEvent::clone() const { return new MoveEvent(*this); }
KyEvent* KeyEvent::clone() const { return new KeyEvent(*this); }
KyEvent* MouseEvent::clone() const { return new MouseEvent(*this); }
KyEvent* WheelEvent::clone() const { return new WheelEvent(*this); }
KyEvent* CloseEvent::clone() const { return new CloseEvent(*this); }

KeyEvent::KeyEvent(int type, const KyKeyEvent& e)
    : KeyEvent(type, e.keyCode, e.ctrl, e.shift, e.alt, e.text, e.hasText) {}

MouseEvent::MouseEvent(int type, const KyMouseEvent& e)
    : MouseEvent(type, e.x, e.y, e.x, e.y, e.button, e.ctrl, e.shift, e.alt, e.clickCount) {}

WheelEvent::WheelEvent(const KyMouseEvent& e) : WheelEvent(e.x, e.y, e.x, e.y, e.wheelDelta, e.ctrl, e.shift, e.alt) {}

} // namespace ky::gui

// KyShortcut: matching a key press to a combination and the search from the
// focus widget up to the window's root.
#include "gui/widgets/KyShortcut.h"

#include <cctype>

#include "gui/platform/KyWidgetPlatformAdapter.h"

namespace {

// The X keysyms of the named keys.
constexpr int XK_Return = 0xFF0D, XK_KP_Enter = 0xFF8D, XK_Escape = 0xFF1B, XK_Tab = 0xFF09,
              XK_ISO_Left_Tab = 0xFE20, XK_BackSpace = 0xFF08, XK_Delete = 0xFFFF, XK_KP_Delete = 0xFF9F,
              XK_space = 0x20, XK_Up = 0xFF52, XK_Down = 0xFF54, XK_Left = 0xFF51, XK_Right = 0xFF53,
              XK_KP_Up = 0xFF97, XK_KP_Down = 0xFF99, XK_KP_Left = 0xFF96, XK_KP_Right = 0xFF98, XK_F1 = 0xFFBE;

struct NamedKey {
    const char* name;
    KyShortcut::Kind kind;
};
constexpr NamedKey kNamedKeys[] = {
    {"return", KyShortcut::Return}, {"enter", KyShortcut::Return},   {"escape", KyShortcut::Escape},
    {"esc", KyShortcut::Escape},    {"tab", KyShortcut::Tab},         {"backspace", KyShortcut::Backspace},
    {"delete", KyShortcut::Delete}, {"del", KyShortcut::Delete},      {"space", KyShortcut::Space},
    {"up", KyShortcut::Up},         {"down", KyShortcut::Down},       {"left", KyShortcut::Left},
    {"right", KyShortcut::Right},
};

bool namedKeyMatches(KyShortcut::Kind kind, int key) {
    switch (kind) {
    case KyShortcut::Return: return key == XK_Return || key == XK_KP_Enter;
    case KyShortcut::Escape: return key == XK_Escape;
    case KyShortcut::Tab: return key == XK_Tab || key == XK_ISO_Left_Tab;
    case KyShortcut::Backspace: return key == XK_BackSpace;
    case KyShortcut::Delete: return key == XK_Delete || key == XK_KP_Delete;
    case KyShortcut::Space: return key == XK_space;
    case KyShortcut::Up: return key == XK_Up || key == XK_KP_Up;
    case KyShortcut::Down: return key == XK_Down || key == XK_KP_Down;
    case KyShortcut::Left: return key == XK_Left || key == XK_KP_Left;
    case KyShortcut::Right: return key == XK_Right || key == XK_KP_Right;
    default: return false;
    }
}

} // namespace

KyShortcut::KyShortcut(KyWidget* parent, Kind kind, int key, bool ctrl, bool shift, bool alt)
    : KyObject(parent), kind_(kind), key_(key), ctrl_(ctrl), shift_(shift), alt_(alt) {
    installHook();
}

KyShortcut::KyShortcut(KyWidget* parent, const KyString& sequence) : KyObject(parent) {
    installHook();
    KyString keyPart;
    for (const KyString& raw : sequence.split('+')) {
        const KyString part = raw.trimmed().toLower();
        if (part == "ctrl" || part == "control") ctrl_ = true;
        else if (part == "shift") shift_ = true;
        else if (part == "alt") alt_ = true;
        else keyPart = part;
    }
    if (keyPart.size() == 1 && std::isalnum(static_cast<unsigned char>(keyPart[0]))) {
        kind_ = Letter;
        key_ = keyPart[0];
        return;
    }
    if (keyPart.size() >= 2 && keyPart[0] == 'f') {
        bool ok = false;
        const int n = keyPart.mid(1).toInt(&ok);
        if (ok && n >= 1 && n <= 35) {
            kind_ = KeyCode;
            key_ = XK_F1 + n - 1;
            return;
        }
    }
    for (const NamedKey& named : kNamedKeys)
        if (keyPart == named.name) {
            kind_ = named.kind;
            return;
        }
}

bool KyShortcut::matches(const KeyEvent& event) const {
    if (event.ctrl() != ctrl_ || event.shift() != shift_ || event.alt() != alt_) return false;
    switch (kind_) {
    case NoKey: return false;
    case KeyCode: return event.keyCode() == key_;
    case Letter: return KyWidgetPlatformAdapter::matchesShortcutKey(event.keyCode(), static_cast<char>(key_));
    default: return namedKeyMatches(kind_, event.keyCode());
    }
}

void KyShortcut::installHook() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    KyWidget::setKeyShortcutHook([](KyWidget* root, KeyEvent* event) { dispatch(root, event); });
}

void KyShortcut::dispatch(KyWidget* root, KeyEvent* event) {
    if (!root || !event || event->isAccepted() || event->type() != Event::KeyPress) return;
    KyWidget* start = root->focusWidget();
    if (!start || !(start == root || root->isAncestorOf(start))) start = root;
    for (KyWidget* w = start; w; w = w == root ? nullptr : w->parentWidget()) {
        // A copy: a shortcut's slot may add or remove children.
        const KyVector<KyObject*> children = w->children();
        for (KyObject* child : children) {
            auto* shortcut = dynamic_cast<KyShortcut*>(child);
            if (!shortcut || !KyObject::isLive(shortcut) || !shortcut->getEnabled() || shortcut->kind_ == NoKey) continue;
            if (!shortcut->matches(*event)) continue;
            event->accept();
            shortcut->activated();
            return;
        }
    }
}

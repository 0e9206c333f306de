// KyOwnedWidget: a widget that does the work of an object other than its
// parent: the overlay and the rows of an open menu, the overlay under an
// embedded dialog.
//
// The owner can go first (a menu deleted while its overlay still sits in a
// window), so the widget reaches it only through owner(), null once it is
// gone. The widget is named after its class, so the owner's default sheet
// and an application's sheet can reach it by name, and it keeps the release
// of every press it took. GUI thread only.
#pragma once

#include "gui/widgets/KyWidget.h"

/// A widget working for owner, reached only while owner lives.
template <class Owner> class KyOwnedWidget : public KyWidget {
public:
    KyOwnedWidget(Owner* owner, KyWidget* parent, const char* name, FocusPolicyEnum focusPolicy,
                  const char* defaultSheet)
        : KyWidget(parent), owner_(owner) {
        setObjectName(name);
        setFocusPolicy(focusPolicy);
        setDefaultStyleSheet(defaultSheet);
    }

    /// The owner, or null once it is gone.
    Owner* owner() const { return KyObject::isLive(owner_) ? owner_ : nullptr; }

    void mouseReleaseEvent(MouseEvent* event) override { event->accept(); }

private:
    Owner* owner_;
};

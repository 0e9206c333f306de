// VpnEndpointListView: a device's access switch and its copy menu.
#include "console/VpnEndpointListView.h"

#include "console/VelmoVpnConsoleCatalog.h"
#include "console/VpnEndpointListModel.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/widgets/KyMenu.h"

namespace {
using E = VpnEndpointListModel;

void copyToClipboard(const KyString& text) {
    if (text.isEmpty()) return;
    KyGuiApplication* app = KyGuiApplication::instance();
    if (KyPlatformIntegration* platform = app ? app->platformIntegration() : nullptr) platform->setClipboardText(text);
}
} // namespace

VpnEndpointListView::VpnEndpointListView(KyWidget* parent) : VpnSwitchListView(parent) {
    menu_ = new KyMenu(KyString(), this);
    const char* texts[] = {"Copy current IP", "Copy reserved IP", "Copy name"};
    for (int i = 0; i < 3; ++i) menu_->addAction(texts[i], [this, i] { copyToClipboard(menuValues_[i]); });
}

VpnEndpointListView::~VpnEndpointListView() = default;

bool VpnEndpointListView::rowAction_(int row, bool onSwitch) {
    // The body of a device row has nothing to open; Return stays the view's.
    if (!onSwitch) return false;
    const KyModelIndex index = model()->index(row, 0);
    // Inert, not refused: the key or click is still the list's, so nothing else acts on it.
    if (!boolFromAny_(index.data(E::InteractiveRole))) return true;
    KyString clientId = index.data(E::ClientIdRole).toString();
    if (clientId.trimmed().isEmpty()) clientId = rowId_(row);
    if (clientId.isEmpty()) return true;
    const bool enabled = boolFromAny_(index.data(E::VpnEnabledRole));
    post_(toggle_ ? [cb = toggle_, clientId, enabled] { cb(clientId, !enabled); } : std::function<void()>());
    return true;
}

bool VpnEndpointListView::contextMenu_(int row, KyPoint at) {
    const KyModelIndex index = model()->index(row, 0);
    // The values are taken now: a snapshot arriving while the menu is open
    // must not change what the user chose to copy.
    menuValues_[0] = index.data(E::CurrentIpRole).toString();
    menuValues_[1] = index.data(E::ReservedIpRole).toString();
    menuValues_[2] = index.data(E::TitleRole).toString();
    const KyVector<KyAction*>& actions = menu_->actions();
    for (int i = 0; i < 3 && i < int(actions.size()); ++i) actions[i]->setEnabled(!menuValues_[i].isEmpty());
    const KyPoint window = rootRect().topLeft() + at;
    menu_->popup(window.x, window.y);
    return true;
}

bool VpnEndpointListView::copyRow_(int row) {
    const KyString ip = model()->index(row, 0).data(E::CurrentIpRole).toString();
    if (ip.isEmpty()) return false;
    copyToClipboard(ip);
    return true;
}

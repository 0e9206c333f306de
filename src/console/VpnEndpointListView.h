// VpnEndpointListView: the users and devices of the selected VPN.
//
// A click on a row's switch (or Space on the keyboard's row) grants or
// revokes that device's access through the toggle callback that
// runVelmoVpnConsole sets, posted to the loop; the switch is inert while the
// list is not interactive (the session is not ready). A right click or the
// Menu key opens the row's menu: "Copy current IP", "Copy reserved IP",
// "Copy name"; Ctrl+C copies the keyboard row's current IP. Copies go to the
// desktop clipboard.
//
// GUI thread only.
#pragma once

#include <functional>

#include "console/VpnSwitchListView.h"

class KyMenu;

/// The endpoint list with its toggle callback and copy menu.
class VpnEndpointListView : public VpnSwitchListView {
    KY_OBJECT(VpnEndpointListView, VpnSwitchListView)

public:
    using ToggleCallback = std::function<void(const KyString& clientId, bool enabled)>;

    explicit VpnEndpointListView(KyWidget* parent = nullptr);
    ~VpnEndpointListView() override;

    /// A row's switch was flipped: the device's client id (its id when it has
    /// none) and the wanted access.
    void setToggleCallback(ToggleCallback callback) { toggle_ = std::move(callback); }
    /// The row menu (built once, filled for the row it opens on).
    KyMenu* contextMenu() const { return menu_; }

protected:
    bool rowAction_(int row, bool onSwitch) override;
    bool contextMenu_(int row, KyPoint at) override;
    bool copyRow_(int row) override;

private:
    ToggleCallback toggle_;
    KyMenu* menu_ = nullptr;
    /// What the open menu's three rows copy: current IP, reserved IP, name.
    KyString menuValues_[3];
};

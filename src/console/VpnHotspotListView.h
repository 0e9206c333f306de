// VpnHotspotListView: the VPN catalog list of the "VPNs" tab.
//
// A click on a row's body (or Return on the keyboard's row) selects that VPN,
// so its users and devices show on the right; a click on the row's switch (or
// Space) joins the local client to it, or leaves it when it is the active
// one. Both go to callbacks that runVelmoVpnConsole sets, posted to the loop.
// While a join waits for the agent the view's pulse timer (100 ms) moves the
// pending row's switch through its pulse; it stops when the agent names an
// active VPN.
//
// GUI thread only.
#pragma once

#include <functional>

#include "console/VpnSwitchListView.h"

class KyTimer;

/// The catalog list with its select and join callbacks and the join pulse.
class VpnHotspotListView : public VpnSwitchListView {
    KY_OBJECT(VpnHotspotListView, VpnSwitchListView)

public:
    using SelectCallback = std::function<void(const KyString& id)>;
    using ToggleCallback = std::function<void(const KyString& id, bool enabled)>;

    explicit VpnHotspotListView(KyWidget* parent = nullptr);
    ~VpnHotspotListView() override;

    /// A row's body was chosen: the VPN's id.
    void setSelectCallback(SelectCallback callback) { select_ = std::move(callback); }
    /// A row's switch was flipped: the VPN's id and the wanted state (join: true).
    void setToggleCallback(ToggleCallback callback) { toggle_ = std::move(callback); }

    /// Unless it runs already: the phase back to 0 and the pulse timer started.
    void startPulse();
    /// Stops the pulse timer and repaints.
    void stopPulse();
    bool isPulseRunning() const;
    /// 0 .. VpnListRows::kPulseFrames - 1, advanced every 100 ms while the pulse runs.
    int pulsePhase() const { return phase_; }
    KyTimer* pulseTimer() const { return pulse_; }

protected:
    bool rowAction_(int row, bool onSwitch) override;

private:
    void tickPulse_();

    SelectCallback select_;
    ToggleCallback toggle_;
    KyTimer* pulse_ = nullptr;
    int phase_ = 0;
};

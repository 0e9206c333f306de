// VpnHotspotListView: select and join from a catalog row, and the join pulse.
#include "console/VpnHotspotListView.h"

#include "console/VelmoVpnConsoleCatalog.h"
#include "console/VpnHotspotListModel.h"
#include "console/VpnListRows.h"
#include "core/runtime/KyTimer.h"

VpnHotspotListView::VpnHotspotListView(KyWidget* parent) : VpnSwitchListView(parent) {
    pulse_ = new KyTimer(this);
    pulse_->setInterval(100);
    pulse_->connectTimeout([this] { tickPulse_(); });
}

VpnHotspotListView::~VpnHotspotListView() = default;

bool VpnHotspotListView::rowAction_(int row, bool onSwitch) {
    const KyString id = rowId_(row);
    // A row without a key cannot be named to the agent.
    if (id.isEmpty()) return false;
    if (onSwitch) {
        const bool active = boolFromAny_(model()->index(row, 0).data(VpnHotspotListModel::ActiveRole));
        post_(toggle_ ? [cb = toggle_, id, active] { cb(id, !active); } : std::function<void()>());
    } else {
        post_(select_ ? [cb = select_, id] { cb(id); } : std::function<void()>());
    }
    return true;
}

void VpnHotspotListView::startPulse() {
    if (pulse_->isActive()) return;
    phase_ = 0;
    pulse_->start();
}

void VpnHotspotListView::stopPulse() {
    pulse_->stop();
    update();
}

bool VpnHotspotListView::isPulseRunning() const { return pulse_->isActive(); }

void VpnHotspotListView::tickPulse_() {
    phase_ = (phase_ + 1) % VpnListRows::kPulseFrames;
    // Only the row being joined moves.
    auto* catalog = dynamic_cast<VpnHotspotListModel*>(model());
    if (!catalog) return update();
    const int row = catalog->rowOf(catalog->pendingHotspotId());
    if (row >= 0) updateRows_(row, row);
}

// Placeholder until the single-instance link lands: every start claims the place.
#include "console/VelmoVpnConsoleInstance.h"

struct VelmoVpnConsoleInstance::Private {
    std::function<void()> handler;
};

VelmoVpnConsoleInstance::VelmoVpnConsoleInstance(const KyString&) : d_(std::make_unique<Private>()) {}
VelmoVpnConsoleInstance::~VelmoVpnConsoleInstance() = default;
bool VelmoVpnConsoleInstance::claim() { return true; }
void VelmoVpnConsoleInstance::setShowRequestHandler(std::function<void()> handler) { d_->handler = std::move(handler); }

// VelmoVpnConsoleClient: the console's own remote object ("gui" under the
// namespace "velnet"). Its rows in the registry are what tell the agent that
// a console is up. Made on the main thread after a successful bind, deleted
// when the agent is lost.
#pragma once

#include "ipc/KyRemoteObject.h"

/// The console as a remote object; adds nothing but its type.
class VelmoVpnConsoleClient : public KyRemoteObject {
    KY_OBJECT(VelmoVpnConsoleClient, KyRemoteObject)
public:
    VelmoVpnConsoleClient(const KyString& domain, const KyString& nameSpace, const KyString& objectName,
                          KyObject* parent = nullptr);
};

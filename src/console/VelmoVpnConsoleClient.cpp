// VelmoVpnConsoleClient: nothing beyond KyRemoteObject.
#include "console/VelmoVpnConsoleClient.h"

VelmoVpnConsoleClient::VelmoVpnConsoleClient(const KyString& domain, const KyString& nameSpace,
                                             const KyString& objectName, KyObject* parent)
    : KyRemoteObject(domain, nameSpace, objectName, parent) {}

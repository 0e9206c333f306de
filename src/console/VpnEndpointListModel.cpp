// VpnEndpointListModel: rows from the endpoint snapshot and the flat-list shape.
#include "console/VpnEndpointListModel.h"

#include "console/VelmoVpnConsoleCatalog.h"
#include "core/types/KyJsonHelpers.h"

VpnEndpointListModel::VpnEndpointListModel(KyObject* parent) : KyAbstractItemModel(parent) {}

VpnEndpointListModel::~VpnEndpointListModel() = default;

VpnEndpointListModel::Entry VpnEndpointListModel::entryFromJson(const KyJsonObject& device) {
    Entry e;
    e.clientId = jsonStringValue(device, "clientId");
    e.id = jsonStringValue(device, "id");
    if (e.id.isEmpty()) e.id = e.clientId;
    e.username = jsonStringValue(device, "username");
    e.title = jsonStringValue(device, "machineName");
    if (e.title.isEmpty()) e.title = e.username;
    if (e.title.isEmpty()) e.title = "Unknown device";
    e.platform = jsonStringValue(device, "platform");
    e.currentIp = jsonStringValue(device, "currentIp");
    e.reservedIp = jsonStringValue(device, "reservedIp");
    e.detail = velmoVpnConsoleJoinDetail({e.username, e.platform, e.currentIp, e.reservedIp});
    e.vpnEnabled = velmoVpnConsoleJsonBool(device, "vpnEnabled");
    e.controlOnline = velmoVpnConsoleJsonBool(device, "controlOnline");
    return e;
}

void VpnEndpointListModel::update(const KyJsonArray& devices, bool interactive) {
    beginResetModel();
    interactive_ = interactive;
    entries_.clear();
    entries_.reserve(devices.size());
    for (const KyJsonValue& item : devices)
        if (const KyJsonObject* object = item.objectPtr()) entries_.push_back(entryFromJson(*object));
    endResetModel();
}

bool VpnEndpointListModel::holds_(const KyModelIndex& index) const {
    return index.isValid() && index.model() == this && index.column() == 0 && index.row() < rowCount();
}

KyModelIndex VpnEndpointListModel::index(int row, int column, const KyModelIndex& parent) const {
    if (parent.isValid() || column != 0 || row < 0 || row >= rowCount()) return KyModelIndex();
    return createIndex(row, column);
}

KyModelIndex VpnEndpointListModel::parent(const KyModelIndex&) const { return KyModelIndex(); }

int VpnEndpointListModel::rowCount(const KyModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(entries_.size());
}

int VpnEndpointListModel::columnCount(const KyModelIndex& parent) const { return parent.isValid() ? 0 : 1; }

KyAny VpnEndpointListModel::data(const KyModelIndex& index, int role) const {
    if (!holds_(index)) return KyAny();
    const Entry& e = entry(index.row());
    switch (role) {
    case KyItemDataRole::Display:
    case TitleRole: return e.title;
    case KyItemDataRole::ToolTip:
    case DetailRole: return e.detail;
    case IdRole: return e.id;
    case ClientIdRole: return e.clientId;
    case UsernameRole: return e.username;
    case PlatformRole: return e.platform;
    case CurrentIpRole: return e.currentIp;
    case ReservedIpRole: return e.reservedIp;
    case VpnEnabledRole: return e.vpnEnabled;
    case ControlOnlineRole: return e.controlOnline;
    case InteractiveRole: return interactive_;
    default: return KyAny();
    }
}

KyItemFlags VpnEndpointListModel::flags(const KyModelIndex& index) const {
    if (!holds_(index)) return KyItemFlag::NoFlags;
    return KyItemFlag::Selectable | KyItemFlag::Enabled | KyItemFlag::NeverHasChildren;
}

// VpnHotspotListModel: rows from the catalog snapshot, the flat-list shape
// and the pending-join mark.
#include "console/VpnHotspotListModel.h"

#include "console/VelmoVpnConsoleCatalog.h"
#include "console/VelmoVpnConsoleSession.h"
#include "core/types/KyJsonHelpers.h"

VpnHotspotListModel::VpnHotspotListModel(KyObject* parent) : KyAbstractItemModel(parent) {}

VpnHotspotListModel::~VpnHotspotListModel() = default;

VpnHotspotListModel::Entry VpnHotspotListModel::entryFromJson(const KyJsonObject& hotspot) {
    Entry e;
    e.id = velmoVpnConsoleHotspotKey(hotspot);
    e.name = jsonStringValue(hotspot, "name");
    if (e.name.isEmpty()) e.name = jsonStringValue(hotspot, "id");
    if (e.name.isEmpty()) e.name = "Unnamed VPN";
    e.subnet = jsonStringValue(hotspot, "subnet");
    e.owner = velmoVpnConsoleHotspotOwner(hotspot);
    e.detail = velmoVpnConsoleJoinDetail({e.subnet, e.owner.isEmpty() ? KyString() : "User " + e.owner});
    return e;
}

void VpnHotspotListModel::update(const KyJsonArray& hotspots, const KyString& inspectedId, const KyString& activeId) {
    // Rebuilt whole on every snapshot: a few hundred rows cost less than
    // working out what changed, and an unchanged list simply repaints.
    beginResetModel();
    entries_.clear();
    entries_.reserve(hotspots.size());
    for (const KyJsonValue& item : hotspots) {
        const KyJsonObject* object = item.objectPtr();
        if (!object) continue;
        Entry e = entryFromJson(*object);
        // An entry with neither id nor name has no key: it can be shown but
        // never be the selected or the joined VPN.
        e.selected = !e.id.isEmpty() && e.id == inspectedId;
        e.active = !e.id.isEmpty() && e.id == activeId;
        entries_.push_back(std::move(e));
    }
    endResetModel();
}

int VpnHotspotListModel::rowOf(const KyString& id) const {
    if (id.isEmpty()) return -1;
    for (std::size_t row = 0; row < entries_.size(); ++row)
        if (entries_[row].id == id) return static_cast<int>(row);
    return -1;
}

void VpnHotspotListModel::setPendingHotspotId(const KyString& id) {
    if (id == pendingHotspotId_) return;
    const KyString previous = pendingHotspotId_;
    pendingHotspotId_ = id;
    for (const KyString& changed : {previous, id}) {
        for (std::size_t row = 0; !changed.isEmpty() && row < entries_.size(); ++row)
            if (entries_[row].id == changed) emitRowsChanged(int(row), int(row), {PendingRole});
    }
}

bool VpnHotspotListModel::holds_(const KyModelIndex& index) const {
    return index.isValid() && index.model() == this && index.column() == 0 && index.row() < rowCount();
}

KyModelIndex VpnHotspotListModel::index(int row, int column, const KyModelIndex& parent) const {
    if (parent.isValid() || column != 0 || row < 0 || row >= rowCount()) return KyModelIndex();
    return createIndex(row, column);
}

KyModelIndex VpnHotspotListModel::parent(const KyModelIndex&) const { return KyModelIndex(); }

int VpnHotspotListModel::rowCount(const KyModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(entries_.size());
}

int VpnHotspotListModel::columnCount(const KyModelIndex& parent) const { return parent.isValid() ? 0 : 1; }

KyAny VpnHotspotListModel::data(const KyModelIndex& index, int role) const {
    if (!holds_(index)) return KyAny();
    const Entry& e = entry(index.row());
    switch (role) {
    case KyItemDataRole::Display:
    case NameRole: return e.name;
    case KyItemDataRole::ToolTip:
    case DetailRole: return e.detail;
    case IdRole: return e.id;
    case SubnetRole: return e.subnet;
    case OwnerRole: return e.owner;
    case SelectedRole: return e.selected;
    case ActiveRole: return e.active;
    case PendingRole: return !e.id.isEmpty() && e.id == pendingHotspotId_;
    default: return KyAny();
    }
}

KyItemFlags VpnHotspotListModel::flags(const KyModelIndex& index) const {
    if (!holds_(index)) return KyItemFlag::NoFlags;
    return KyItemFlag::Selectable | KyItemFlag::Enabled | KyItemFlag::NeverHasChildren;
}

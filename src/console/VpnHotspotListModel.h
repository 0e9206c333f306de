// VpnHotspotListModel: the VPN catalog of the "VPNs" tab as a flat list, one
// row per hotspot object of the agent's catalog snapshot, in the snapshot's
// order.
//
// The model owns a copy of each row's values (Entry), worked out once per
// snapshot by update(), so painting a row reads plain strings and flags.
// Whether a row is the one the user inspects or the one the local client is
// on comes from the entry's own flags, never from a view's selection model:
// the catalog follows the agent, not the mouse. The model also remembers the
// VPN being joined (pendingHotspotId) until the agent confirms it, so the
// view can pulse that row.
//
// Rows are answered under custom roles from KyItemDataRole::User (101)
// upward, listed in Role; Display gives the name and ToolTip the detail line.
// Belongs to the main thread, like every model a view shows.
#pragma once

#include "core/types/KyJsonArray.h"
#include "core/types/KyString.h"
#include "core/types/KyVector.h"
#include "gui/modelview/KyAbstractItemModel.h"

/// The catalog list: one column, one row per hotspot.
class VpnHotspotListModel : public KyAbstractItemModel {
    KY_OBJECT(VpnHotspotListModel, KyAbstractItemModel)

public:
    /// The values a catalog row shows.
    struct Entry {
        /// "id", or "name" where "id" is empty: the key for every call about this VPN.
        KyString id;
        /// "name", or "id" when that is empty, or "Unnamed VPN".
        KyString name;
        KyString subnet;
        /// "ownerLabel", or "owner" when that is empty.
        KyString owner;
        /// "<subnet>  |  User <owner>", either half alone when the other is missing.
        KyString detail;
        /// The row is the VPN whose endpoints are shown.
        bool selected = false;
        /// The local client is on this VPN.
        bool active = false;
    };

    /// data() roles. Every value of an entry has one; PendingRole tells the
    /// row that is being joined (its switch pulses until the agent answers).
    enum Role : int {
        IdRole = KyItemDataRole::User, ///< 101, KyString
        NameRole,                      ///< 102, KyString
        SubnetRole,                    ///< 103, KyString
        OwnerRole,                     ///< 104, KyString
        DetailRole,                    ///< 105, KyString
        SelectedRole,                  ///< 106, bool
        ActiveRole,                    ///< 107, bool
        PendingRole,                   ///< 108, bool: id equals pendingHotspotId()
    };

    explicit VpnHotspotListModel(KyObject* parent = nullptr);
    ~VpnHotspotListModel() override;

    /// Rebuilds every row from a catalog array, as one model reset; entries
    /// that are not objects are skipped. A row is selected when its id equals
    /// inspectedId and active when it equals activeId; an empty id is neither.
    void update(const KyJsonArray& hotspots, const KyString& inspectedId, const KyString& activeId);

    /// The row's values; row must be in range.
    const Entry& entry(int row) const { return entries_[static_cast<std::size_t>(row)]; }
    const KyVector<Entry>& entries() const { return entries_; }
    /// The row whose id is id, or -1 (an empty id finds nothing).
    int rowOf(const KyString& id) const;

    /// The VPN being joined, empty when none.
    const KyString& pendingHotspotId() const { return pendingHotspotId_; }
    /// Marks the VPN being joined (empty: none). The rows that gain or lose
    /// the mark report a change of PendingRole.
    void setPendingHotspotId(const KyString& id);

    /// Builds one row from a catalog entry (selected and active left false).
    static Entry entryFromJson(const KyJsonObject& hotspot);

    KyModelIndex index(int row, int column, const KyModelIndex& parent = KyModelIndex()) const override;
    KyModelIndex parent(const KyModelIndex& child) const override;
    using KyAbstractItemModel::parent;
    int rowCount(const KyModelIndex& parent = KyModelIndex()) const override;
    int columnCount(const KyModelIndex& parent = KyModelIndex()) const override;
    KyAny data(const KyModelIndex& index, int role = KyItemDataRole::Display) const override;
    KyItemFlags flags(const KyModelIndex& index) const override;

private:
    bool holds_(const KyModelIndex& index) const;

    KyVector<Entry> entries_;
    KyString pendingHotspotId_;
};

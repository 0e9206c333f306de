// VpnEndpointListModel: the users and devices (endpoints) of the selected
// VPN as a flat list, one row per device object of the agent's endpoint
// snapshot, in the snapshot's order.
//
// Like the catalog list it keeps one Entry of plain values per row, rebuilt
// whole by update(). It also keeps whether the rows' switches may be used
// (interactive: the session is ready); a delegate greys the switch and the
// view ignores clicks on it when they may not.
//
// Rows are answered under custom roles from KyItemDataRole::User (101)
// upward, listed in Role; Display gives the title and ToolTip the detail line.
// Belongs to the main thread, like every model a view shows.
#pragma once

#include "core/types/KyJsonArray.h"
#include "core/types/KyString.h"
#include "core/types/KyVector.h"
#include "gui/modelview/KyAbstractItemModel.h"

/// The endpoint list: one column, one row per device.
class VpnEndpointListModel : public KyAbstractItemModel {
    KY_OBJECT(VpnEndpointListModel, KyAbstractItemModel)

public:
    /// The values an endpoint row shows.
    struct Entry {
        /// "id", or "clientId" where "id" is empty.
        KyString id;
        /// The key of setEndpointVpnState.
        KyString clientId;
        /// "machineName", or "username", or "Unknown device".
        KyString title;
        KyString username;
        KyString platform;
        KyString currentIp;
        KyString reservedIp;
        /// username, platform, currentIp and reservedIp, the non-empty ones joined by "  |  ".
        KyString detail;
        /// The device may use the VPN: the row's switch.
        bool vpnEnabled = false;
        /// The device's control link is up: the row's online dot.
        bool controlOnline = false;
    };

    /// data() roles, one per value of an entry, then whether the switch works.
    enum Role : int {
        IdRole = KyItemDataRole::User, ///< 101, KyString
        ClientIdRole,                  ///< 102, KyString
        TitleRole,                     ///< 103, KyString
        UsernameRole,                  ///< 104, KyString
        PlatformRole,                  ///< 105, KyString
        CurrentIpRole,                 ///< 106, KyString
        ReservedIpRole,                ///< 107, KyString
        DetailRole,                    ///< 108, KyString
        VpnEnabledRole,                ///< 109, bool
        ControlOnlineRole,             ///< 110, bool
        InteractiveRole,               ///< 111, bool: the switch may be toggled (same for every row)
    };

    explicit VpnEndpointListModel(KyObject* parent = nullptr);
    ~VpnEndpointListModel() override;

    /// Rebuilds every row from a device array, as one model reset; entries
    /// that are not objects are skipped. interactive says whether the rows'
    /// switches may be used.
    void update(const KyJsonArray& devices, bool interactive);

    /// The row's values; row must be in range.
    const Entry& entry(int row) const { return entries_[static_cast<std::size_t>(row)]; }
    const KyVector<Entry>& entries() const { return entries_; }
    bool isInteractive() const { return interactive_; }

    /// Builds one row from a device entry.
    static Entry entryFromJson(const KyJsonObject& device);

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
    bool interactive_ = false;
};

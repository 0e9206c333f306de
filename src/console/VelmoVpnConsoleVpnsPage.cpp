// The "VPNs" tab: the VPN catalog on the left and the users and devices of
// the selected VPN on the right, each in a card with its header lines, and
// the widget halves of refreshCatalogList and refreshEndpointList.
//
// The page owns its models and delegates through the widget tree (each is a
// child object of its view), so they live exactly as long as the lists.
// GUI thread only.
#include "console/VelmoVpnConsoleCatalog.h"
#include "console/VelmoVpnConsolePages.h"
#include "console/VelmoVpnConsoleSession.h"
#include "console/VelmoVpnConsoleStatus.h"
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VelmoVpnConsoleUi.h"
#include "console/VpnEndpointItemDelegate.h"
#include "console/VpnEndpointListModel.h"
#include "console/VpnEndpointListView.h"
#include "console/VpnHotspotItemDelegate.h"
#include "console/VpnHotspotListModel.h"
#include "console/VpnHotspotListView.h"
#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyFrame.h"
#include "gui/widgets/KyLabel.h"

namespace {

constexpr int kCardPadding = 18;
constexpr int kLineHeight = 18;

KyLabel* addLabel(KyVerticalLayout* layout, KyWidget* card, const KyString& text, const char* objectName,
                  int height = 0) {
    auto* label = new KyLabel(text, card);
    if (objectName) label->setObjectName(objectName);
    layout->addWidget(label, 0, height);
    return label;
}

// A card with its overline and title; the caller adds the rest.
KyFrame* makeCard(KyWidget& page, KyVerticalLayout*& layout, const char* overline, const char* title,
                  KyLabel** titleLabel) {
    KyFrame* card = VelmoVpnConsoleStyle::makeCard(&page);
    layout = new KyVerticalLayout;
    layout->setContentsMargins(kCardPadding, kCardPadding - 2, kCardPadding, kCardPadding);
    layout->setSpacing(0);
    addLabel(layout, card, overline, "overline", 16);
    layout->addSpacing(2);
    KyLabel* heading = addLabel(layout, card, title, "cardTitle", 26);
    if (titleLabel) *titleLabel = heading;
    layout->addSpacing(4);
    return card;
}

// The card's list: a view with its own model and delegate (children of the
// view, so they live as long as it), taking the card's remaining height.
template <typename View, typename Model, typename Delegate>
View* addList(KyVerticalLayout* layout, KyWidget* card, Model*& model, Delegate*& delegate, const char* emptyTitle,
              const char* emptyHint) {
    auto* view = new View(card);
    model = new Model(view);
    delegate = new Delegate(view);
    view->setModel(model);
    view->setItemDelegate(delegate);
    view->setEmptyText(emptyTitle, emptyHint);
    layout->addWidget(view, 1);
    return view;
}

} // namespace

void buildVelmoVpnConsoleVpnsPage(KyWidget& page, VelmoVpnConsoleUi& ui) {
    if (page.getObjectName().isEmpty()) page.setObjectName("page");

    // Left: the catalog.
    KyVerticalLayout* left = nullptr;
    KyFrame* catalogCard = makeCard(page, left, "VPN CATALOG", "Visible VPNs", nullptr);
    ui.catalogStatusLabel = addLabel(left, catalogCard, "No VPN catalog loaded", "hint", kLineHeight);
    // The right card has one header line more (the detail line); the same
    // room here keeps both lists starting on one line.
    left->addSpacing(kLineHeight + 4);
    left->addSpacing(10);
    ui.hotspotView = addList<VpnHotspotListView>(left, catalogCard, ui.hotspotModel, ui.hotspotDelegate,
                                                 "No VPNs to show", "The catalog appears here when the agent sends it");
    catalogCard->setLayout(left);

    // Right: the selected VPN's users and devices.
    KyVerticalLayout* right = nullptr;
    KyFrame* endpointCard = makeCard(page, right, "VPN USERS", "Select a VPN", &ui.selectionTitleLabel);
    ui.selectionDetailLabel = addLabel(right, endpointCard, "", "hint", kLineHeight);
    right->addSpacing(4);
    ui.endpointStatusLabel = addLabel(right, endpointCard, "Select a VPN to inspect its users", "hint", kLineHeight);
    right->addSpacing(10);
    ui.endpointView = addList<VpnEndpointListView>(right, endpointCard, ui.endpointModel, ui.endpointDelegate,
                                                   "No VPN selected",
                                                   "Choose a VPN on the left to see its users and devices");
    endpointCard->setLayout(right);

    auto* layout = new KyHorizontalLayout;
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(16);
    // The device lines carry more (user, platform, two addresses): the right card is wider.
    layout->addWidget(catalogCard, 5);
    layout->addWidget(endpointCard, 6);
    page.setLayout(layout);
}

void velmoVpnConsoleRefreshCatalogWidgets(VelmoVpnConsoleUi& ui, const VelmoVpnConsoleSession& session) {
    if (ui.hotspotModel) {
        // The agent named the VPN the client is on: whatever was being joined is settled.
        if (!session.activeHotspotId.isEmpty()) {
            ui.hotspotModel->setPendingHotspotId(KyString());
            if (ui.hotspotView && ui.hotspotView->isPulseRunning()) ui.hotspotView->stopPulse();
        }
        ui.hotspotModel->update(session.hotspotsJson, session.inspectedHotspotId, session.activeHotspotId);
    }
    if (ui.catalogStatusLabel)
        ui.catalogStatusLabel->setText(velmoVpnConsoleCatalogStatusText(session.catalogStatus, session.catalogError));
}

void velmoVpnConsoleRefreshEndpointWidgets(VelmoVpnConsoleUi& ui, const VelmoVpnConsoleSession& session) {
    if (ui.selectionTitleLabel)
        ui.selectionTitleLabel->setText(
            velmoVpnConsoleEndpointHeaderTitle(session.hotspotsJson, session.inspectedHotspotId));
    if (ui.selectionDetailLabel)
        ui.selectionDetailLabel->setText(velmoVpnConsoleEndpointHeaderDetail(
            session.hotspotsJson, session.inspectedHotspotId, session.activeHotspotId));
    if (ui.endpointStatusLabel)
        ui.endpointStatusLabel->setText(velmoVpnConsoleEndpointStatusText(
            session.inspectedHotspotId, session.endpointStatus, session.endpointError));
    if (ui.endpointView) {
        // While a list is on its way the status line says so; the middle stays quiet.
        if (session.inspectedHotspotId.isEmpty())
            ui.endpointView->setEmptyText("No VPN selected", "Choose a VPN on the left to see its users and devices");
        else if (session.endpointStatus == "ready")
            ui.endpointView->setEmptyText("No users or devices", "Nobody is on this VPN yet");
        else
            ui.endpointView->setEmptyText(KyString(), KyString());
    }
    if (ui.endpointModel)
        ui.endpointModel->update(session.endpointsJson,
                                 velmoVpnConsoleIsSessionReady(session.backendConnected, session.authStatus));
}

void velmoVpnConsoleStartJoinPulse(VelmoVpnConsoleUi& ui, const KyString& id) {
    if (ui.hotspotModel) ui.hotspotModel->setPendingHotspotId(id);
    if (ui.hotspotView) ui.hotspotView->startPulse();
}

void velmoVpnConsoleSetListCallbacks(VelmoVpnConsoleUi& ui, std::function<void(const KyString&)> selectHotspot,
                                     std::function<void(const KyString&, bool)> toggleHotspot,
                                     std::function<void(const KyString&, bool)> toggleEndpoint) {
    if (ui.hotspotView) {
        ui.hotspotView->setSelectCallback(std::move(selectHotspot));
        ui.hotspotView->setToggleCallback(std::move(toggleHotspot));
    }
    if (ui.endpointView) ui.endpointView->setToggleCallback(std::move(toggleEndpoint));
}

// Placeholder until the page is built: the tab exists and says what it will hold.
#include "console/VelmoVpnConsoleUi.h"
#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyLabel.h"

void buildVelmoVpnConsoleVpnsPage(KyWidget& page, VelmoVpnConsoleUi& ui) {
    (void)ui;
    auto* layout = new KyVerticalLayout;
    layout->addWidget(new KyLabel("Vpns", &page));
    page.setLayout(layout);
}

#include "console/VelmoVpnConsolePages.h"

void velmoVpnConsoleRefreshCatalogWidgets(VelmoVpnConsoleUi&, const VelmoVpnConsoleSession&) {}
void velmoVpnConsoleRefreshEndpointWidgets(VelmoVpnConsoleUi&, const VelmoVpnConsoleSession&) {}
void velmoVpnConsoleStartJoinPulse(VelmoVpnConsoleUi&, const KyString&) {}
void velmoVpnConsoleSetListCallbacks(VelmoVpnConsoleUi&, std::function<void(const KyString&)>,
                                     std::function<void(const KyString&, bool)>,
                                     std::function<void(const KyString&, bool)>) {}

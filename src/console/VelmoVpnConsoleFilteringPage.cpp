// Placeholder until the page is built: the tab exists and says what it will hold.
#include "console/VelmoVpnConsoleUi.h"
#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyLabel.h"

void buildVelmoVpnConsoleFilteringPage(KyWidget& page, VelmoVpnConsoleUi& ui) {
    (void)ui;
    auto* layout = new KyVerticalLayout;
    layout->addWidget(new KyLabel("Filtering", &page));
    page.setLayout(layout);
}

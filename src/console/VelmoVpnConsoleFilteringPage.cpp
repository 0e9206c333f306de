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

#include "console/VelmoVpnConsolePages.h"

void velmoVpnConsolePushFilterState(VelmoVpnAgentProxy*, bool, bool, KyCheckBox*, KyComboBox*, KyComboBox*,
                                    KyLineEdit*, KyLineEdit*, KySpinBox*, KySpinBox*, KyCheckBox*, KyComboBox*,
                                    KyLineEdit*, KyLineEdit*) {}
void velmoVpnConsoleApplyPassThroughDefaults(KyComboBox*, KyComboBox*, KyLineEdit*, KyLineEdit*, KySpinBox*,
                                             KySpinBox*, KyCheckBox*, KyComboBox*, KyLineEdit*, KyLineEdit*) {}
void velmoVpnConsoleUpdateFilterUiState(bool, bool, KyComboBox*, KyComboBox*, KyLineEdit*, KyLineEdit*, KySpinBox*,
                                        KySpinBox*, KyCheckBox*, KyComboBox*, KyLineEdit*, KyLineEdit*) {}
void velmoVpnConsoleRefreshFilterWidgets(VelmoVpnConsoleUi&, bool) {}
void velmoVpnConsolePushFilterForm(VelmoVpnConsoleUi&, VelmoVpnAgentProxy*, bool, bool) {}
void velmoVpnConsoleApplyPassThroughForm(VelmoVpnConsoleUi&) {}

// Placeholder until the page is built: the tab exists and says what it will hold.
#include "console/VelmoVpnConsoleUi.h"
#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyLabel.h"

void buildVelmoVpnConsoleMonitorPage(KyWidget& page, VelmoVpnConsoleUi& ui) {
    (void)ui;
    auto* layout = new KyVerticalLayout;
    layout->addWidget(new KyLabel("Monitor", &page));
    page.setLayout(layout);
}

#include "console/VelmoVpnConsolePages.h"
#include "gui/text/KyCodeEditor.h"

void velmoVpnConsoleAppendLog(KyCodeEditor* editor, const KyString& line) {
    if (editor) editor->appendPlainText(line);
}
void velmoVpnConsoleRefreshMonitorWidgets(VelmoVpnConsoleUi&, const VelmoVpnConsoleSession&) {}
void velmoVpnConsoleInstallSaveLogAction(VelmoVpnConsoleUi&, KyMainWindow&) {}

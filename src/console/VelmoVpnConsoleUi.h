// VelmoVpnConsoleUi: every widget of the console's three shells, built once at
// start and kept until the process ends. Later code only shows, hides,
// enables and fills what is here; the record owns nothing (each widget
// belongs to its parent in the widget tree).
//
// The build functions fill it in three steps: the console window with its
// tabs ("VPNs", "Filtering", "Monitor"), menu and status bar; the login
// window; the loading window. Each tab page has its own builder, so a page
// can be built and tried alone.
//
// GUI thread only.
#pragma once

class KyCheckBox;
class KyCodeEditor;
class KyComboBox;
class KyCompleter;
class KyDialog;
class KyLabel;
class KyLineEdit;
class KyLoadingOverlay;
class KyMainWindow;
class KyMenu;
class KyPushButton;
class KySpinBox;
class KyStatusLight;
class KyTabWidget;
class KyWidget;
class VelmoVpnLogSyntaxHighlighter;
class VpnEndpointItemDelegate;
class VpnEndpointListModel;
class VpnEndpointListView;
class VpnHotspotItemDelegate;
class VpnHotspotListModel;
class VpnHotspotListView;
class VpnRangeRulesEditor;

struct VelmoVpnConsoleUi {
    // Console window.
    KyTabWidget* tabs = nullptr;
    KyLabel* statusBarLabel = nullptr;
    KyStatusLight* remoteStatusLight = nullptr;
    KyLabel* authStatusLabel = nullptr;
    KyLabel* catalogStatusLabel = nullptr;
    KyLabel* endpointStatusLabel = nullptr;
    KyMenu* sessionMenu = nullptr;

    // "VPNs" tab.
    VpnHotspotListView* hotspotView = nullptr;
    VpnHotspotListModel* hotspotModel = nullptr;
    VpnHotspotItemDelegate* hotspotDelegate = nullptr;
    VpnEndpointListView* endpointView = nullptr;
    VpnEndpointListModel* endpointModel = nullptr;
    VpnEndpointItemDelegate* endpointDelegate = nullptr;
    KyLabel* selectionTitleLabel = nullptr;
    KyLabel* selectionDetailLabel = nullptr;

    // "Filtering" tab.
    KyCheckBox* filterEnabled = nullptr;
    KyComboBox* filterProtocol = nullptr;
    KyComboBox* filterForwardMode = nullptr;
    KyLineEdit* filterSource = nullptr;
    KyLineEdit* filterDestination = nullptr;
    KySpinBox* filterPortMin = nullptr;
    KySpinBox* filterPortMax = nullptr;
    KyCheckBox* filterFullRoute = nullptr;
    KyComboBox* filterRangeMode = nullptr;
    /// Hidden fields that carry the range rules as comma-separated lists.
    KyLineEdit* allowedRanges = nullptr;
    KyLineEdit* blockedRanges = nullptr;
    VpnRangeRulesEditor* rangeRulesEditor = nullptr;

    // "Monitor" tab.
    KyLabel* monitorSummaryLabel = nullptr;
    KyCodeEditor* logEditor = nullptr;
    VelmoVpnLogSyntaxHighlighter* logHighlighter = nullptr;
    KyPushButton* clearLogButton = nullptr;

    // Login window.
    KyLineEdit* emailField = nullptr;
    KyLineEdit* passwordField = nullptr;
    KyLineEdit* baseUrlField = nullptr;
    KyCheckBox* customBaseUrl = nullptr;
    KyPushButton* signInButton = nullptr;
    KyLabel* loginStatusLabel = nullptr;
    KyCompleter* emailCompleter = nullptr;

    // Loading window.
    KyLoadingOverlay* loadingOverlay = nullptr;
    KyLabel* loadingTitleLabel = nullptr;
    KyLabel* loadingStatusLabel = nullptr;
    KyLabel* loadingDetailLabel = nullptr;
};

/// The console window: chrome, the three tabs and their pages.
void buildVelmoVpnConsoleUi(KyMainWindow& window, VelmoVpnConsoleUi& ui);
/// The login window and the loading window, each filled with its surface.
void buildVelmoVpnConsoleLoginWindowUi(KyMainWindow& window, VelmoVpnConsoleUi& ui);
void buildVelmoVpnConsoleLoadingWindowUi(KyMainWindow& window, VelmoVpnConsoleUi& ui);
/// The same surfaces in a dialog titled "VELMO VPN".
void buildVelmoVpnConsoleLoginUi(KyDialog& dialog, VelmoVpnConsoleUi& ui);
void buildVelmoVpnConsoleLoadingUi(KyDialog& dialog, VelmoVpnConsoleUi& ui);
/// Fill a given widget with the login or the loading surface.
void buildVelmoVpnConsoleLoginSurface_(KyWidget& surface, VelmoVpnConsoleUi& ui);
void buildVelmoVpnConsoleLoadingSurface_(KyWidget& surface, VelmoVpnConsoleUi& ui);

/// The tab pages, each filling the given page widget and its fields of ui.
void buildVelmoVpnConsoleVpnsPage(KyWidget& page, VelmoVpnConsoleUi& ui);
void buildVelmoVpnConsoleFilteringPage(KyWidget& page, VelmoVpnConsoleUi& ui);
void buildVelmoVpnConsoleMonitorPage(KyWidget& page, VelmoVpnConsoleUi& ui);

/// Shell changes: hide every other window, hide the completer's popup, and
/// show the target raised unless it is visible already.
void velmoVpnConsoleShowLoadingShell(KyMainWindow& consoleWindow, KyMainWindow* loginWindow,
                                     KyMainWindow* loadingWindow, KyCompleter* completer);
void velmoVpnConsoleShowLoginShell(KyMainWindow& consoleWindow, KyMainWindow* loginWindow,
                                   KyMainWindow* loadingWindow, KyCompleter* completer);
void velmoVpnConsoleShowConsoleShell(KyMainWindow& consoleWindow, KyMainWindow* loginWindow,
                                     KyMainWindow* loadingWindow, KyCompleter* completer);

// Login assistance (placeholders until the login surface lands).
template <typename T>
class KyList;
class KyString;
void velmoVpnConsoleRememberIdentity(const KyString& baseUrl, const KyString& email, KyString& rememberedBaseUrl,
                                     KyString& rememberedEmail, KyList<KyString>& history, KyCompleter* completer);
void velmoVpnConsoleRefreshEmailCompleter(KyCompleter* completer, const KyList<KyString>& history);
/// The e-mail field's four behaviours: suggestions on focus, the popup hidden
/// 120 ms after focus leaves, suggestions refreshed as the text changes, and
/// a chosen suggestion filling the field and moving on to the password.
void velmoVpnConsoleWireEmailAssistance(VelmoVpnConsoleUi& ui, const KyList<KyString>& history);

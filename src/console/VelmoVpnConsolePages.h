// The widget halves of the console's three tab pages, as runVelmoVpnConsole
// calls them. The pure halves (texts, rules, values to push) live with the
// session, catalog, filter and monitor code; these functions put their
// results into the widgets of VelmoVpnConsoleUi and read the widgets back.
//
// GUI thread only. Every function ignores widgets that do not exist.
#pragma once

#include <functional>

#include "core/types/KyString.h"

class KyCheckBox;
class KyCodeEditor;
class KyComboBox;
class KyLineEdit;
class KyMainWindow;
class KySpinBox;
class VelmoVpnAgentProxy;
struct VelmoVpnConsoleSession;
struct VelmoVpnConsoleUi;

// "VPNs" -----------------------------------------------------------------

/// refreshCatalogList: with an active VPN the pending mark and the pulse
/// stop; the model is rebuilt from the session; the catalog status label
/// takes its text.
void velmoVpnConsoleRefreshCatalogWidgets(VelmoVpnConsoleUi& ui, const VelmoVpnConsoleSession& session);
/// refreshEndpointList: the selection's title and detail lines, the endpoint
/// status label, and the model rebuilt (interactive while the session is ready).
void velmoVpnConsoleRefreshEndpointWidgets(VelmoVpnConsoleUi& ui, const VelmoVpnConsoleSession& session);
/// Joining: mark id as pending on the catalog model and start the view's
/// 100 ms pulse unless it runs.
void velmoVpnConsoleStartJoinPulse(VelmoVpnConsoleUi& ui, const KyString& id);
/// The views' callbacks: a row chosen (id), a row's switch flipped (id, wanted state).
void velmoVpnConsoleSetListCallbacks(VelmoVpnConsoleUi& ui, std::function<void(const KyString&)> selectHotspot,
                                     std::function<void(const KyString&, bool)> toggleHotspot,
                                     std::function<void(const KyString&, bool)> toggleEndpoint);

// "Filtering" ------------------------------------------------------------

/// Sends the ten filter values, in order, 2000 ms each; nothing without a
/// proxy, without the link, without the master box or while applyingDefaults.
void velmoVpnConsolePushFilterState(VelmoVpnAgentProxy* proxy, bool connected, bool applyingDefaults,
                                    KyCheckBox* enabled, KyComboBox* protocol, KyComboBox* forwardMode,
                                    KyLineEdit* source, KyLineEdit* destination, KySpinBox* portMin,
                                    KySpinBox* portMax, KyCheckBox* fullRoute, KyComboBox* rangeMode,
                                    KyLineEdit* allowed, KyLineEdit* blocked);
/// Puts the pass-through values into the form (the caller holds applyingDefaults).
void velmoVpnConsoleApplyPassThroughDefaults(KyComboBox* protocol, KyComboBox* forwardMode, KyLineEdit* source,
                                             KyLineEdit* destination, KySpinBox* portMin, KySpinBox* portMax,
                                             KyCheckBox* fullRoute, KyComboBox* rangeMode, KyLineEdit* allowed,
                                             KyLineEdit* blocked);
/// Enables the ten widgets by connected && filteringActive.
void velmoVpnConsoleUpdateFilterUiState(bool connected, bool filteringActive, KyComboBox* protocol,
                                        KyComboBox* forwardMode, KyLineEdit* source, KyLineEdit* destination,
                                        KySpinBox* portMin, KySpinBox* portMax, KyCheckBox* fullRoute,
                                        KyComboBox* rangeMode, KyLineEdit* allowed, KyLineEdit* blocked);
/// refreshFilterUi: the form's enabled state, then the rules editor's
/// (enabled by the link and the master box; an open cell editor is
/// committed and closed when it goes off).
void velmoVpnConsoleRefreshFilterWidgets(VelmoVpnConsoleUi& ui, bool connected);
/// The same ten-value push for the form in ui.
void velmoVpnConsolePushFilterForm(VelmoVpnConsoleUi& ui, VelmoVpnAgentProxy* proxy, bool connected,
                                   bool applyingDefaults);
/// velmoVpnConsoleApplyPassThroughDefaults on the form in ui.
void velmoVpnConsoleApplyPassThroughForm(VelmoVpnConsoleUi& ui);

// "Monitor" --------------------------------------------------------------

/// Appends a line to the log: follows the end unless the reader scrolled up
/// more than 60 lines, and trims above 5100 lines to 5000.
void velmoVpnConsoleAppendLog(KyCodeEditor* editor, const KyString& line);
/// refreshMonitor: the Clear Log button by the link, the summary line, and
/// the status light's state (assigned and repainted only when it changes).
void velmoVpnConsoleRefreshMonitorWidgets(VelmoVpnConsoleUi& ui, const VelmoVpnConsoleSession& session);
/// Adds "Save log…" to the session menu: writes the whole log to a file the
/// user chooses, atomically.
void velmoVpnConsoleInstallSaveLogAction(VelmoVpnConsoleUi& ui, KyMainWindow& window);

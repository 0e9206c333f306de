// The "Filtering" tab: the form of the local agent's traffic filter, the
// range rules under it, and the widget halves runVelmoVpnConsole calls to
// push the form, reset it to pass-through and enable it.
//
// The page keeps no state: the widgets are the form, the two hidden backing
// fields carry the range rules as the agent's comma-separated lists, and
// every push sends all ten values read from the widgets. The only wiring
// made here is inside the page (the rules editor follows the range mode
// combo and the backing fields); the connections that push belong to the
// start order. GUI thread only.
#include <algorithm>
#include <initializer_list>
#include <optional>

#include "console/VelmoVpnAgentProxy.h"
#include "console/VelmoVpnConsoleFilter.h"
#include "console/VelmoVpnConsolePages.h"
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VelmoVpnConsoleUi.h"
#include "console/VpnRangeRulesEditor.h"
#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyCheckBox.h"
#include "gui/widgets/KyComboBox.h"
#include "gui/widgets/KyFrame.h"
#include "gui/widgets/KyGridLayout.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KySpinBox.h"

namespace {

constexpr int kControlHeight = 34;
constexpr int kLabelWidth = 128;
constexpr int kPushTimeoutMs = 2000;

void expandAcross(KyWidget* widget) { widget->setProperty("HorizontalPolicy", KyAny(KyString("Expanding"))); }

KyLabel* label(const char* text, const char* name, KyWidget* parent) {
    auto* l = new KyLabel(text, parent);
    if (name) l->setObjectName(name);
    expandAcross(l);
    return l;
}

// Every input of the form is one height, so the grid's rows line up.
template <typename W>
W* control(W* widget) {
    widget->setMinimumSize(0, kControlHeight);
    widget->setMaximumSize(100000, kControlHeight);
    expandAcross(widget);
    return widget;
}

KyComboBox* combo(KyWidget* parent, std::initializer_list<const char*> items) {
    auto* box = control(new KyComboBox(parent));
    for (const char* item : items) box->addItem(item);
    box->setCurrentIndex(0);
    return box;
}

KySpinBox* port(KyWidget* parent, int value) {
    auto* box = control(new KySpinBox(parent));
    box->setRange(0, 65535);
    box->setValue(value);
    return box;
}

KyLineEdit* address(KyWidget* parent, const char* placeholder) {
    auto* edit = control(new KyLineEdit(parent));
    edit->setPlaceholder(placeholder);
    return edit;
}

// A card's heading: the overline over the title, and a line under it.
KyWidget* heading(KyWidget* parent, const char* overline, const char* title, const char* line) {
    auto* box = new KyWidget(parent);
    auto* layout = new KyVerticalLayout;
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(label(overline, "overline", box));
    layout->addWidget(label(title, "cardTitle", box));
    layout->addWidget(label(line, "hint", box));
    box->setLayout(layout);
    expandAcross(box);
    return box;
}

KyFrame* buildFormCard(KyWidget& page, VelmoVpnConsoleUi& ui) {
    KyFrame* frame = VelmoVpnConsoleStyle::makeCard(&page);

    auto* top = new KyWidget(frame);
    auto* topLayout = new KyHorizontalLayout;
    topLayout->setContentsMargins(0, 0, 0, 0);
    topLayout->setSpacing(16);
    topLayout->addWidget(heading(top, "LOCAL FILTERING", "Traffic filter",
                                 "These rules only affect the local VelmoVpnAgent."), 1);
    ui.filterEnabled = new KyCheckBox("Filtering active", top);
    ui.filterEnabled->setObjectName("filterMasterSwitch");
    topLayout->addWidget(ui.filterEnabled);
    top->setLayout(topLayout);

    // Two label-and-field pairs per row, the pairs apart by a gap column.
    auto* form = new KyWidget(frame);
    auto* grid = new KyGridLayout;
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setSpacing(10);
    ui.filterProtocol = combo(form, {"All", "TCP", "UDP", "ICMP"});
    ui.filterForwardMode = combo(form, {"Bridge", "Log only"});
    ui.filterSource = address(form, "Any source IP");
    ui.filterDestination = address(form, "Any destination IP");
    ui.filterPortMin = port(form, 0);
    ui.filterPortMax = port(form, 65535);
    ui.filterRangeMode = combo(form, {"Allow All", "Allow Only listed", "Block Only listed"});
    ui.filterFullRoute = new KyCheckBox("Route all traffic through TUN", form);
    ui.filterFullRoute->setMinimumSize(0, kControlHeight);
    struct Pair {
        const char* text; // null: the field is its own label
        KyWidget* field;
    };
    const Pair rows[4][2] = {
        {{"Protocol", ui.filterProtocol}, {"Forward mode", ui.filterForwardMode}},
        {{"Source IP", ui.filterSource}, {"Destination IP", ui.filterDestination}},
        {{"Port minimum", ui.filterPortMin}, {"Port maximum", ui.filterPortMax}},
        {{"Range mode", ui.filterRangeMode}, {nullptr, ui.filterFullRoute}},
    };
    for (int row = 0; row < 4; ++row)
        for (int side = 0; side < 2; ++side) {
            const Pair& p = rows[row][side];
            if (p.text) grid->addWidget(label(p.text, nullptr, form), row, side * 3);
            grid->addWidget(p.field, row, side * 3 + 1);
        }
    for (int column : {0, 3}) grid->setColumnMinimumWidth(column, kLabelWidth);
    grid->setColumnMinimumWidth(2, 20);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(4, 1);
    form->setLayout(grid);

    auto* layout = new KyVerticalLayout;
    layout->setContentsMargins(20, 16, 20, 18);
    layout->setSpacing(14);
    layout->addWidget(top);
    layout->addWidget(form);
    frame->setLayout(layout);
    return frame;
}

KyFrame* buildRulesCard(KyWidget& page, VelmoVpnConsoleUi& ui) {
    KyFrame* frame = VelmoVpnConsoleStyle::makeCard(&page);
    ui.rangeRulesEditor = new VpnRangeRulesEditor(frame);
    auto* layout = new KyVerticalLayout;
    layout->setContentsMargins(20, 16, 20, 14);
    layout->addWidget(ui.rangeRulesEditor, 1);
    frame->setLayout(layout);
    return frame;
}

template <typename W, typename F>
auto read(W* widget, F get) -> std::optional<decltype(get(widget))> {
    if (!widget) return std::nullopt;
    return get(widget);
}

} // namespace

void buildVelmoVpnConsoleFilteringPage(KyWidget& page, VelmoVpnConsoleUi& ui) {
    page.setObjectName("page");
    KyFrame* form = buildFormCard(page, ui);
    KyFrame* rules = buildRulesCard(page, ui);

    // The agent's two range lists, as the form pushes them; never shown.
    ui.allowedRanges = new KyLineEdit(&page);
    ui.allowedRanges->setObjectName("allowedRanges");
    ui.blockedRanges = new KyLineEdit(&page);
    ui.blockedRanges->setObjectName("blockedRanges");
    for (KyLineEdit* field : {ui.allowedRanges, ui.blockedRanges}) field->hide();

    VpnRangeRulesEditor* editor = ui.rangeRulesEditor;
    editor->setRangeMode(ui.filterRangeMode->currentIndex());
    KyObject::connect(ui.filterRangeMode, &KyComboBox::currentIndexChanged, editor,
                      [editor](int mode) { editor->setRangeMode(mode); }, KyObject::ConnectionDirect);
    editor->bindBackingFields(ui.allowedRanges, ui.blockedRanges);

    auto* layout = new KyVerticalLayout;
    layout->setContentsMargins(20, 16, 20, 16);
    layout->setSpacing(14);
    layout->addWidget(form);
    layout->addWidget(rules, 1);
    page.setLayout(layout);
}

void velmoVpnConsolePushFilterState(VelmoVpnAgentProxy* proxy, bool connected, bool applyingDefaults,
                                    KyCheckBox* enabled, KyComboBox* protocol, KyComboBox* forwardMode,
                                    KyLineEdit* source, KyLineEdit* destination, KySpinBox* portMin,
                                    KySpinBox* portMax, KyCheckBox* fullRoute, KyComboBox* rangeMode,
                                    KyLineEdit* allowed, KyLineEdit* blocked) {
    if (!proxy || !connected || !enabled || applyingDefaults) return;
    const auto index = [](KyComboBox* c) { return std::max(0, c->currentIndex()); };
    const auto text = [](KyLineEdit* e) { return e->getText(); };
    const auto value = [](KySpinBox* s) { return s->value(); };
    VelmoVpnConsoleFilterForm form;
    form.filteringActive = enabled->isChecked();
    form.protocol = read(protocol, index);
    form.forwardMode = read(forwardMode, index);
    form.sourceIp = read(source, text);
    form.destinationIp = read(destination, text);
    form.portMin = read(portMin, value);
    form.portMax = read(portMax, value);
    form.fullRoute = read(fullRoute, [](KyCheckBox* c) { return c->isChecked(); });
    form.rangeMode = read(rangeMode, index);
    form.allowedRanges = read(allowed, text);
    form.blockedRanges = read(blocked, text);
    // One call per key, in order; a refusal or a timeout of one key does not
    // hold back the others, and the agent's log tells the user about it.
    for (const VelmoVpnConsoleConfigPair& pair : velmoVpnConsoleFilterConfigPairs(form))
        proxy->setRemoteConfig(pair.first, pair.second, kPushTimeoutMs);
}

void velmoVpnConsoleApplyPassThroughDefaults(KyComboBox* protocol, KyComboBox* forwardMode, KyLineEdit* source,
                                             KyLineEdit* destination, KySpinBox* portMin, KySpinBox* portMax,
                                             KyCheckBox* fullRoute, KyComboBox* rangeMode, KyLineEdit* allowed,
                                             KyLineEdit* blocked) {
    const VelmoVpnConsoleFilterForm d = velmoVpnConsolePassThroughForm();
    if (protocol) protocol->setCurrentIndex(*d.protocol);
    if (forwardMode) forwardMode->setCurrentIndex(*d.forwardMode);
    if (source) source->setText(*d.sourceIp);
    if (destination) destination->setText(*d.destinationIp);
    if (portMin) portMin->setValue(*d.portMin);
    if (portMax) portMax->setValue(*d.portMax);
    if (fullRoute) fullRoute->setChecked(*d.fullRoute);
    if (rangeMode) rangeMode->setCurrentIndex(*d.rangeMode);
    if (allowed) allowed->setText(*d.allowedRanges);
    if (blocked) blocked->setText(*d.blockedRanges);
}

void velmoVpnConsoleUpdateFilterUiState(bool connected, bool filteringActive, KyComboBox* protocol,
                                        KyComboBox* forwardMode, KyLineEdit* source, KyLineEdit* destination,
                                        KySpinBox* portMin, KySpinBox* portMax, KyCheckBox* fullRoute,
                                        KyComboBox* rangeMode, KyLineEdit* allowed, KyLineEdit* blocked) {
    const bool on = connected && filteringActive;
    for (KyWidget* w : std::initializer_list<KyWidget*>{protocol, forwardMode, source, destination, portMin, portMax,
                                                        fullRoute, rangeMode, allowed, blocked})
        if (w && w->isEnabled() != on) w->setEnable(on);
}

void velmoVpnConsoleRefreshFilterWidgets(VelmoVpnConsoleUi& ui, bool connected) {
    const bool active = ui.filterEnabled && ui.filterEnabled->isChecked();
    velmoVpnConsoleUpdateFilterUiState(connected, active, ui.filterProtocol, ui.filterForwardMode, ui.filterSource,
                                       ui.filterDestination, ui.filterPortMin, ui.filterPortMax, ui.filterFullRoute,
                                       ui.filterRangeMode, ui.allowedRanges, ui.blockedRanges);
    if (ui.rangeRulesEditor) ui.rangeRulesEditor->setEditingEnabled(connected && active);
}

void velmoVpnConsolePushFilterForm(VelmoVpnConsoleUi& ui, VelmoVpnAgentProxy* proxy, bool connected,
                                   bool applyingDefaults) {
    velmoVpnConsolePushFilterState(proxy, connected, applyingDefaults, ui.filterEnabled, ui.filterProtocol,
                                   ui.filterForwardMode, ui.filterSource, ui.filterDestination, ui.filterPortMin,
                                   ui.filterPortMax, ui.filterFullRoute, ui.filterRangeMode, ui.allowedRanges,
                                   ui.blockedRanges);
}

void velmoVpnConsoleApplyPassThroughForm(VelmoVpnConsoleUi& ui) {
    velmoVpnConsoleApplyPassThroughDefaults(ui.filterProtocol, ui.filterForwardMode, ui.filterSource,
                                            ui.filterDestination, ui.filterPortMin, ui.filterPortMax,
                                            ui.filterFullRoute, ui.filterRangeMode, ui.allowedRanges,
                                            ui.blockedRanges);
}

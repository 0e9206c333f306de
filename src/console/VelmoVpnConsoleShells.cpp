// The console's three shells: the console window (menu, header, tabs, status
// bar), the login surface and the loading surface, their window and dialog
// forms, and the Show functions that swap one shell for another.
//
// Every widget is built once, at start, into VelmoVpnConsoleUi; the record
// keeps plain pointers and the widget tree owns them. The look comes from
// VelmoVpnConsoleStyle::windowCss() on each window root and from object
// names, never from colours set here. A Show function unmaps before it maps,
// so at no moment do two shells share the screen. GUI thread only.
#include <initializer_list>

#include "console/VelmoVpnConsoleStatus.h"
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VelmoVpnConsoleUi.h"
#include "gui/platform/KyPainter.h"
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyCheckBox.h"
#include "gui/widgets/KyCompleter.h"
#include "gui/widgets/KyControlMetrics.h"
#include "gui/widgets/KyDialog.h"
#include "gui/widgets/KyFrame.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyLoadingOverlay.h"
#include "gui/widgets/KyMainWindow.h"
#include "gui/widgets/KyMenuBar.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KyShortcut.h"
#include "gui/widgets/KyStatusBar.h"
#include "gui/widgets/KyStatusLight.h"
#include "gui/widgets/KyTabWidget.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"

namespace {

constexpr int kAlignCenter = 1 | 4;  // horizontal and vertical centre
constexpr int kAlignRight = 2 | 4;

// A label that breaks its text into lines at spaces to fit its width: the
// loading surface's explanations are sentences, longer than its 340 pixels.
class WrappingLabel_ : public KyLabel {
public:
    WrappingLabel_(const KyString& text, int lines, KyWidget* parent) : KyLabel(text, parent), lines_(lines) {}

    KySize sizeHint() const override {
        const int line = KyControlMetrics::lineHeight(KyControlMetrics::pixelFont(resolveStyledFont()));
        return {KyLabel::sizeHint().width, line * lines_};
    }
    KySize minimumSizeHint() const override { return {0, sizeHint().height}; }

    void paintEvent(PaintEvent* event) override {
        if (!event || !event->painter()) return;
        const KyFont font = KyControlMetrics::pixelFont(resolveStyledFont());
        const int line = KyControlMetrics::lineHeight(font);
        const ResolvedStyleSnapshot_& s = styleSnapshot_();
        const KyColor colour = s.hasTextColor ? s.textColor : VelmoVpnConsoleStyle::kText;
        const KyVector<KyString> rows = wrap_(font);
        // The block of lines stands centred in the label's height.
        int y = (height() - line * static_cast<int>(rows.size())) / 2;
        for (const KyString& row : rows) {
            event->painter()->drawText({0, y, width(), line}, row,
                                       DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter, colour, font);
            y += line;
        }
    }

private:
    KyVector<KyString> wrap_(const KyFont& font) const {
        KyVector<KyString> rows;
        auto fits = [&](const KyString& s) {
            return KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), s, font, s.size(),
                                                           7 * static_cast<int>(s.size())) <= width();
        };
        KyString row;
        for (const KyString& word : getText().split(' ', true)) {
            const KyString candidate = row.isEmpty() ? word : row + " " + word;
            if (row.isEmpty() || fits(candidate)) {
                row = candidate;
            } else {
                rows.push_back(row);
                row = word;
            }
        }
        if (!row.isEmpty()) rows.push_back(row);
        return rows;
    }

    int lines_;
};

KyLabel* label_(const KyString& text, const char* objectName, KyWidget* parent, int alignment = 0) {
    auto* label = new KyLabel(text, parent);
    if (objectName) label->setObjectName(objectName);
    if (alignment) label->setAlignment(alignment);
    return label;
}

KyVerticalLayout* column_(int left, int top, int right, int bottom, int spacing) {
    auto* layout = new KyVerticalLayout;
    layout->setContentsMargins(left, top, right, bottom);
    layout->setSpacing(spacing);
    return layout;
}

// A caption over its field, kept close to it and apart from the next pair.
void addField_(KyVerticalLayout* layout, KyWidget* parent, const char* caption, KyWidget* field) {
    auto* pair = new KyWidget(parent);
    pair->setObjectName("fieldPair");
    auto* column = column_(0, 0, 0, 0, 6);
    column->addWidget(label_(caption, "fieldLabel", pair));
    column->addWidget(field, 0, 36);
    pair->setLayout(column);
    layout->addWidget(pair);
}

// The chrome's own light sheets go, so the window's palette reaches the bars.
void darkenChrome_(KyMainWindow& window) {
    if (window.menuBar()) window.menuBar()->setStyleSheet(KyString());
    if (window.statusBar()) window.statusBar()->setStyleSheet(KyString());
    if (window.statusLabel()) window.statusLabel()->setStyleSheet(KyString());
}

void hideShell_(KyMainWindow* window) {
    if (!window) return;
    if (KyPlatformWindow* native = window->platformWindow()) native->hide();
    window->KyWidget::hide();
}

void showShell_(KyMainWindow* window) {
    // The main window's own show maps it in the sheet's page colour and
    // makes the first frame after the map cover the whole window.
    if (window && !window->isVisible()) window->show();
}

void showOnly_(KyMainWindow* target, std::initializer_list<KyMainWindow*> shells, KyCompleter* completer) {
    for (KyMainWindow* shell : shells)
        if (shell != target) hideShell_(shell);
    if (completer) completer->hidePopup();
    showShell_(target);
}

// Dialog forms carry the surface on the console's page colour, with a
// matching title bar.
KyString dialogCss() {
    return VelmoVpnConsoleStyle::windowCss() +
           "KyDialog { background-color: rgb(8, 18, 24); border-color: rgb(47, 72, 82); border-width: 1px;"
           " border-radius: 12px; }"
           "KyLabel#DialogTitle { color: rgb(216, 225, 228); font-size: 15px; font-weight: 600; }";
}

} // namespace

void buildVelmoVpnConsoleUi(KyMainWindow& window, VelmoVpnConsoleUi& ui) {
    window.setObjectName("consoleRoot");
    window.setStyleSheet(VelmoVpnConsoleStyle::windowCss());
    window.ensureChrome();
    darkenChrome_(window);
    ui.sessionMenu = window.menuBar() ? window.menuBar()->addMenu("Session") : nullptr;
    ui.statusBarLabel = window.statusLabel();
    if (ui.statusBarLabel) ui.statusBarLabel->setText("Native console ready");
    if (KyStatusBar* bar = window.statusBar()) {
        ui.remoteStatusLight = new KyStatusLight(bar);
        ui.remoteStatusLight->setObjectName("remoteStatusLight");
        bar->addPermanentWidget(ui.remoteStatusLight);
    }

    auto* layout = column_(20, 14, 20, 16, 12);

    // Header: who this is on the left, where the session stands on the right.
    auto* header = new KyWidget(&window);
    header->setObjectName("consoleHeader");
    auto* headerRow = new KyHorizontalLayout;
    headerRow->setContentsMargins(0, 0, 0, 0);
    headerRow->setSpacing(12);
    auto* titles = new KyWidget(header);
    auto* titleColumn = column_(0, 0, 0, 0, 2);
    titleColumn->addWidget(label_("VELMO VPN", "brand", titles));
    titleColumn->addWidget(label_("Console", "consoleTitle", titles));
    titles->setLayout(titleColumn);
    headerRow->addWidget(titles);
    headerRow->addStretch(1);
    ui.authStatusLabel = label_("Not connected to VelmoVpnAgent", "authStatus", header, kAlignRight);
    ui.authStatusLabel->setStyleSheet(velmoVpnConsoleStatusLabelCss(0, 12));
    headerRow->addWidget(ui.authStatusLabel);
    header->setLayout(headerRow);
    layout->addWidget(header);

    ui.tabs = new KyTabWidget(&window);
    ui.tabs->setObjectName("consoleTabs");
    using PageBuilder = void (*)(KyWidget&, VelmoVpnConsoleUi&);
    const struct {
        const char* title;
        PageBuilder build;
    } pages[] = {{"VPNs", &buildVelmoVpnConsoleVpnsPage},
                 {"Filtering", &buildVelmoVpnConsoleFilteringPage},
                 {"Monitor", &buildVelmoVpnConsoleMonitorPage}};
    for (const auto& entry : pages) {
        auto* page = new KyWidget;
        page->setObjectName("page");
        ui.tabs->addTab(page, entry.title);
        entry.build(*page, ui);
    }
    layout->addWidget(ui.tabs, 1);
    window.setLayout(layout);

    // Ctrl+Tab and Ctrl+Page Down step through the tabs from anywhere in the
    // window (the tab widget takes them itself only with the keyboard in it).
    constexpr int kPageUp = 0xff55, kPageDown = 0xff56;
    const struct {
        KyShortcut::Kind kind;
        int key;
        bool shift;
        int step;
    } steps[] = {{KyShortcut::Tab, 0, false, 1},
                 {KyShortcut::Tab, 0, true, -1},
                 {KyShortcut::KeyCode, kPageDown, false, 1},
                 {KyShortcut::KeyCode, kPageUp, false, -1}};
    for (const auto& entry : steps) {
        auto* shortcut = new KyShortcut(&window, entry.kind, entry.key, true, entry.shift);
        KyTabWidget* tabs = ui.tabs;
        const int step = entry.step;
        KyObject::connect(shortcut, &KyShortcut::activated, [tabs, step] {
            if (tabs->count() > 0 && tabs->isEnabled())
                tabs->setCurrentIndex((tabs->currentIndex() + step + tabs->count()) % tabs->count());
        });
    }
}

void buildVelmoVpnConsoleLoginSurface_(KyWidget& surface, VelmoVpnConsoleUi& ui) {
    auto* layout = column_(30, 24, 30, 22, 0);

    layout->addWidget(label_("VELMO VPN", "brand", &surface));
    layout->addSpacing(2);
    layout->addWidget(label_("Console", "consoleTitle", &surface));
    layout->addSpacing(12);
    layout->addWidget(label_("Sign in", "heading", &surface));
    layout->addSpacing(4);
    layout->addWidget(label_("Connect to your VELMO workspace to manage VPN networks.", "hint", &surface));
    layout->addSpacing(16);

    auto* card = new KyFrame(&surface);
    card->setObjectName("loginCard");
    auto* form = column_(18, 16, 18, 16, 12);

    ui.emailField = new KyLineEdit(card);
    ui.emailField->setObjectName("emailField");
    ui.emailField->setPlaceholder("name@company.com");
    addField_(form, card, "Email", ui.emailField);

    ui.passwordField = new KyLineEdit(card);
    ui.passwordField->setObjectName("passwordField");
    ui.passwordField->setPlaceholder("Password");
    ui.passwordField->setEchoMode(PasswordEcho);
    addField_(form, card, "Password", ui.passwordField);

    ui.customBaseUrl = new KyCheckBox("Custom base URL", card);
    ui.customBaseUrl->setObjectName("customBaseUrl");
    ui.customBaseUrl->setChecked(false);
    form->addWidget(ui.customBaseUrl);

    ui.baseUrlField = new KyLineEdit(card);
    ui.baseUrlField->setObjectName("baseUrlField");
    ui.baseUrlField->setPlaceholder(velmoVpnConsoleDefaultBaseUrl());
    ui.baseUrlField->setText(velmoVpnConsoleDefaultBaseUrl());
    // Off until the user asks for another server with the box above.
    ui.baseUrlField->setReadOnly(true);
    addField_(form, card, "Base URL", ui.baseUrlField);

    // The accent fill is a widget of its own so the button on it stays a plain,
    // transparent KyPushButton: keys, focus and disabling work as anywhere else.
    auto* fill = new KyWidget(card);
    fill->setObjectName("primaryFill");
    auto* fillLayout = column_(0, 0, 0, 0, 0);
    ui.signInButton = new KyPushButton("Sign In", fill);
    ui.signInButton->setObjectName("primaryButton");
    ui.signInButton->setDefault(true);
    fillLayout->addWidget(ui.signInButton, 1);
    fill->setLayout(fillLayout);
    KyObject::connect(ui.signInButton, &KyWidget::EnableChanged, fill,
                      [fill](const bool& enabled) { fill->setEnable(enabled); });
    form->addSpacing(4);
    form->addWidget(fill, 0, 40);

    ui.loginStatusLabel = label_("Sign in with your user account", "loginStatus", card, kAlignCenter);
    ui.loginStatusLabel->setStyleSheet(velmoVpnConsoleStatusLabelCss(0, 12));
    form->addWidget(ui.loginStatusLabel);
    card->setLayout(form);
    layout->addWidget(card);
    layout->addStretch(1);
    surface.setLayout(layout);

    ui.emailCompleter = new KyCompleter(&surface);
    ui.emailCompleter->setObjectName("emailCompleter");
    ui.emailCompleter->setWidget(ui.emailField);
}

void buildVelmoVpnConsoleLoadingSurface_(KyWidget& surface, VelmoVpnConsoleUi& ui) {
    auto* layout = column_(24, 16, 24, 16, 0);

    // The block stands centred in the window, whatever its size.
    layout->addStretch(1);
    layout->addWidget(label_("VELMO VPN", "brand", &surface, kAlignCenter));
    layout->addSpacing(18);

    // The overlay covers this square only, so the ring turns between the
    // brand and the texts instead of hiding them.
    auto* ringHost = new KyWidget(&surface);
    ringHost->setObjectName("loadingRing");
    ui.loadingOverlay = new KyLoadingOverlay(ringHost);
    ui.loadingOverlay->setObjectName("loadingOverlay");
    layout->addWidget(ringHost, 0, 48);
    layout->addSpacing(18);

    ui.loadingTitleLabel = label_("Connecting...", "loadingTitle", &surface, kAlignCenter);
    layout->addWidget(ui.loadingTitleLabel);
    layout->addSpacing(6);
    ui.loadingStatusLabel = label_(velmoVpnConsoleLoadingStatusText(false, "logged_out", 0), "loadingStatus",
                                   &surface, kAlignCenter);
    layout->addWidget(ui.loadingStatusLabel);
    layout->addSpacing(10);
    // Room for the longest explanation at this width.
    ui.loadingDetailLabel = new WrappingLabel_(velmoVpnConsoleLoadingDetailText(false, "logged_out"), 4, &surface);
    ui.loadingDetailLabel->setObjectName("loadingDetail");
    layout->addWidget(ui.loadingDetailLabel);
    layout->addStretch(1);
    surface.setLayout(layout);
}

void buildVelmoVpnConsoleLoginWindowUi(KyMainWindow& window, VelmoVpnConsoleUi& ui) {
    window.setObjectName("loginRoot");
    window.setStyleSheet(VelmoVpnConsoleStyle::windowCss());
    buildVelmoVpnConsoleLoginSurface_(window, ui);
}

void buildVelmoVpnConsoleLoadingWindowUi(KyMainWindow& window, VelmoVpnConsoleUi& ui) {
    window.setObjectName("loadingRoot");
    window.setStyleSheet(VelmoVpnConsoleStyle::windowCss());
    buildVelmoVpnConsoleLoadingSurface_(window, ui);
}

void buildVelmoVpnConsoleLoginUi(KyDialog& dialog, VelmoVpnConsoleUi& ui) {
    dialog.setWindowTitle("VELMO VPN");
    dialog.setStyleSheet(dialogCss());
    buildVelmoVpnConsoleLoginSurface_(*dialog.contentWidget(), ui);
    // The dialog keeps its own margin around the content already.
    if (KyAbstractLayout* layout = dialog.contentWidget()->layout()) layout->setContentsMargins(12, 4, 12, 0);
    dialog.setDialogSize(440, 600);
}

void buildVelmoVpnConsoleLoadingUi(KyDialog& dialog, VelmoVpnConsoleUi& ui) {
    dialog.setWindowTitle("VELMO VPN");
    dialog.setStyleSheet(dialogCss());
    buildVelmoVpnConsoleLoadingSurface_(*dialog.contentWidget(), ui);
    if (KyAbstractLayout* layout = dialog.contentWidget()->layout()) layout->setContentsMargins(6, 0, 6, 0);
    dialog.setDialogSize(340, 380);
}

void velmoVpnConsoleShowLoadingShell(KyMainWindow& consoleWindow, KyMainWindow* loginWindow,
                                     KyMainWindow* loadingWindow, KyCompleter* completer) {
    showOnly_(loadingWindow, {&consoleWindow, loginWindow, loadingWindow}, completer);
}

void velmoVpnConsoleShowLoginShell(KyMainWindow& consoleWindow, KyMainWindow* loginWindow, KyMainWindow* loadingWindow,
                                   KyCompleter* completer) {
    showOnly_(loginWindow, {&consoleWindow, loginWindow, loadingWindow}, completer);
}

void velmoVpnConsoleShowConsoleShell(KyMainWindow& consoleWindow, KyMainWindow* loginWindow,
                                     KyMainWindow* loadingWindow, KyCompleter* completer) {
    showOnly_(&consoleWindow, {&consoleWindow, loginWindow, loadingWindow}, completer);
}

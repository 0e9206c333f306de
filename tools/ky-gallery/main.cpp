// ky-gallery: the toolkit's basic controls in one top-level window.
//
// Shows labels, push buttons (plain, checkable, disabled), check boxes in
// their three states, status lights, scroll bars, frame lines, a tab widget
// a loading overlay and the input controls (line edits, spin boxes, combo
// boxes, a completer), in the light look or, with --dark, under a dark
// sheet set on the root. --tab N opens tab N. The window is a root KyWidget
// on a platform window whose callbacks feed the root's routing; closing the
// window ends the program. Everything runs on the main thread.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyTimer.h"
#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/platform/KyPlatformWindow.h"
#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyCheckBox.h"
#include "gui/widgets/KyComboBox.h"
#include "gui/widgets/KyCompleter.h"
#include "gui/widgets/KyFrame.h"
#include "gui/widgets/KyGridLayout.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyLayoutItem.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyLoadingOverlay.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KyScrollBar.h"
#include "gui/widgets/KySpinBox.h"
#include "gui/widgets/KyStatusLight.h"
#include "gui/widgets/KyTabBar.h"
#include "gui/widgets/KyTabWidget.h"
#include "gui/widgets/KyWidget.h"

namespace {

const char* const kBaseSheet =
    "#caption { color: rgb(96, 96, 96); font-size: 13px; }"
    "#heading { font-size: 20px; font-weight: 600; }";

const char* const kDarkSheet =
    "#galleryRoot { background-color: rgb(32, 33, 36); }"
    "KyLabel { color: rgb(228, 228, 228); }"
    "#caption { color: rgb(150, 154, 160); }"
    "#heading { color: rgb(240, 240, 240); }"
    "KyFrame { border-color: rgb(64, 66, 70); }"
    "KyPushButton { background-color: rgb(52, 54, 58); border-color: rgb(82, 85, 90); color: rgb(235, 235, 235); }"
    "KyPushButton:hover { background-color: rgb(58, 64, 74); border-color: rgb(59, 130, 246); }"
    "KyPushButton:pressed { background-color: rgb(38, 50, 68); border-color: rgb(37, 99, 235); color: rgb(235, 235, 235); }"
    "KyPushButton:checked { background-color: rgb(30, 58, 95); border-color: rgb(59, 130, 246); color: rgb(240, 240, 240); }"
    "KyPushButton:disabled { background-color: rgb(42, 43, 46); border-color: rgb(58, 60, 64); color: rgb(115, 115, 115); }"
    "KyPushButton, KyCheckBox, KyTabBar { focus-border-color: rgb(59, 130, 246); }"
    "KyCheckBox { color: rgb(228, 228, 228); background-color-unchecked: rgb(42, 43, 46);"
    " border-color-unchecked: rgb(112, 114, 120); indicator-color-checked: rgb(59, 130, 246); }"
    "KyCheckBox:hover { border-color-unchecked: rgb(59, 130, 246); }"
    "KyCheckBox:disabled { color: rgb(115, 115, 115); }"
    "KyScrollBar { background-color: rgb(42, 43, 46); thumb-color: rgb(92, 94, 100); thumb-color-hover: rgb(122, 124, 130);"
    " thumb-color-pressed: rgb(150, 152, 158); thumb-color-disabled: rgb(58, 60, 64); background-color-disabled: rgb(38, 39, 42); }"
    "KyTabBar { border-color: rgb(64, 66, 70); color: rgb(165, 168, 174); selected-color: rgb(242, 242, 242);"
    " accent-color: rgb(59, 130, 246); tab-hover-background-color: rgb(48, 50, 55); }"
    "KyLoadingOverlay { background-color: rgb(32, 33, 36); color: rgb(236, 236, 236); status-color: rgb(160, 163, 168);"
    " track-color: rgb(58, 60, 65); arc-color: rgb(59, 130, 246); arc-tail-color: rgb(36, 58, 92); }"
    "KyLineEdit, KySpinBox, KyComboBox { background-color: rgb(42, 43, 46); border-color: rgb(82, 85, 90);"
    " color: rgb(235, 235, 235); selection-background-color: rgb(30, 58, 95); placeholder-color: rgb(130, 133, 140);"
    " divider-color: rgb(64, 66, 70); arrow-color: rgb(170, 173, 180); arrow-hover-background-color: rgb(48, 50, 55); arrow-disabled-color: rgb(84, 86, 92);"
    " popup-background-color: rgb(42, 43, 46); }"
    "KyLineEdit#spinBoxEdit { background-color: rgba(0, 0, 0, 0); }"
    "KyLineEdit:disabled, KySpinBox:disabled, KyComboBox:disabled { background-color: rgb(38, 39, 42);"
    " border-color: rgb(58, 60, 64); color: rgb(115, 115, 115); }"
    "KyPopupList { background-color: rgb(42, 43, 46); border-color: rgb(82, 85, 90); color: rgb(235, 235, 235);"
    " highlight-background-color: rgb(30, 58, 95); highlight-color: rgb(240, 240, 240); }";

KyLabel* caption(const char* text, KyWidget* parent) {
    auto* label = new KyLabel(text, parent);
    label->setObjectName("caption");
    return label;
}

// A row of widgets in a plain container, left to right.
KyWidget* row(KyWidget* parent, std::initializer_list<KyWidget*> widgets, int spacing = 10) {
    auto* box = new KyWidget(parent);
    auto* layout = new KyHorizontalLayout;
    layout->setSpacing(spacing);
    layout->setContentsMargins(0, 0, 0, 0);
    for (KyWidget* w : widgets) {
        w->setParent(box);
        layout->addWidget(w);
    }
    layout->addStretch();
    box->setLayout(layout);
    return box;
}

KyWidget* buildControlsPage() {
    auto* page = new KyWidget;
    auto* grid = new KyGridLayout;
    grid->setSpacing(12);
    grid->setContentsMargins(8, 8, 8, 8);
    int r = 0;

    grid->addWidget(caption("Labels", page), r, 0);
    auto* plain = new KyLabel("Signed in as zoë@example.net");
    auto* disabled = new KyLabel("Disabled label");
    disabled->setEnable(false);
    grid->addWidget(row(page, {plain, disabled}, 24), r++, 1);

    grid->addWidget(caption("Push buttons", page), r, 0);
    auto* connect = new KyPushButton("Connect");
    auto* toggle = new KyPushButton("Auto-connect");
    toggle->setCheckable(true);
    toggle->setChecked(true);
    auto* off = new KyPushButton("Disabled");
    off->setEnable(false);
    auto* status = new KyLabel("Not clicked yet");
    int clicks = 0;
    KyObject::connect(connect, &KyPushButton::clicked, status, [status, clicks]() mutable {
        ++clicks;
        status->setText(KyString("Clicked ") + KyString::number(clicks) + (clicks == 1 ? " time" : " times"));
    });
    grid->addWidget(row(page, {connect, toggle, off, status}), r++, 1);

    grid->addWidget(caption("Check boxes", page), r, 0);
    auto* unchecked = new KyCheckBox("Block local traffic");
    auto* partial = new KyCheckBox("Some endpoints");
    partial->setTristate(true);
    partial->setCheckState(KyCheckBox::PartiallyChecked);
    auto* checked = new KyCheckBox("Start with the desktop");
    checked->setCheckState(KyCheckBox::Checked);
    auto* offBox = new KyCheckBox("Disabled");
    offBox->setCheckState(KyCheckBox::Checked);
    offBox->setEnable(false);
    grid->addWidget(row(page, {unchecked, partial, checked, offBox}, 18), r++, 1);

    auto* line = new KyFrame(page);
    line->setFrameShape(KyStyle::HLine);
    line->setMinimumSize(0, 9);
    line->setMaximumSize(100000, 9);
    line->setProperty("HorizontalPolicy", KyAny(KyString("Expanding")));
    grid->addWidget(line, r++, 0, 1, 2);

    grid->addWidget(caption("Status lights", page), r, 0);
    KyWidget* lights = new KyWidget(page);
    auto* lightsLayout = new KyHorizontalLayout;
    lightsLayout->setSpacing(8);
    const char* names[4] = {"Idle", "Connected", "Connecting", "Failed"};
    const int states[4] = {0, 1, 2, 3};
    for (int i = 0; i < 4; ++i) {
        auto* light = new KyStatusLight(lights);
        light->setDiameter(14);
        light->setState(states[i]);
        lightsLayout->addWidget(light);
        auto* text = new KyLabel(names[i], lights);
        lightsLayout->addWidget(text);
        lightsLayout->addSpacing(10);
    }
    lightsLayout->addStretch();
    lights->setLayout(lightsLayout);
    grid->addWidget(lights, r++, 1);

    grid->addWidget(caption("Scroll bars", page), r, 0);
    auto* bars = new KyWidget(page);
    auto* barsLayout = new KyHorizontalLayout;
    barsLayout->setSpacing(16);
    auto* horizontal = new KyScrollBar(KyScrollBar::Horizontal, bars);
    horizontal->setRange(0, 100);
    horizontal->setPageStep(20);
    horizontal->setValue(30);
    horizontal->setFixedSize(260, 14);
    auto* vertical = new KyScrollBar(KyScrollBar::Vertical, bars);
    vertical->setRange(0, 400);
    vertical->setPageStep(100);
    vertical->setValue(120);
    vertical->setFixedSize(14, 110);
    auto* offBar = new KyScrollBar(KyScrollBar::Vertical, bars);
    offBar->setRange(0, 10);
    offBar->setFixedSize(14, 110);
    offBar->setEnable(false);
    auto* value = new KyLabel("Value 30", bars);
    KyObject::connect(horizontal, &KyScrollBar::valueChanged, value,
                      [value](int v) { value->setText(KyString("Value ") + KyString::number(v)); });
    barsLayout->addWidget(horizontal);
    barsLayout->addWidget(vertical);
    barsLayout->addWidget(offBar);
    barsLayout->addWidget(value);
    barsLayout->addStretch();
    bars->setLayout(barsLayout);
    grid->addWidget(bars, r++, 1);

    grid->addItem(new KySpacerItem(0, 0, KySizePolicy::Minimum, KySizePolicy::Expanding), r, 0, 1, 2);
    page->setLayout(grid);
    return page;
}

KyLineEdit* field(const char* text, int width = 150) {
    auto* edit = new KyLineEdit;
    edit->setText(text);
    edit->setFixedSize(width, 34);
    return edit;
}

KyWidget* buildInputsPage() {
    auto* page = new KyWidget;
    auto* grid = new KyGridLayout;
    grid->setSpacing(12);
    grid->setContentsMargins(8, 8, 8, 8);
    int r = 0;

    grid->addWidget(caption("Line edits", page), r, 0);
    auto* password = field("s\xC3\xA9" "cret");
    password->setEchoMode(PasswordEcho);
    auto* offField = field("");
    offField->setEnable(false);
    grid->addWidget(row(page, {field(""), field("zo\xC3\xAB@example.net"), password, offField}), r++, 1);

    grid->addWidget(caption("Spin boxes", page), r, 0);
    auto* spin = new KySpinBox;
    spin->setRange(0, 65535);
    spin->setValue(51820);
    spin->setFixedSize(120, 34);
    auto* top = new KySpinBox;
    top->setRange(1, 10);
    top->setValue(10);
    top->setFixedSize(90, 34);
    auto* spinValue = new KyLabel("Port 51820");
    KyObject::connect(spin, &KySpinBox::valueChanged, spinValue,
                      [spinValue](int v) { spinValue->setText(KyString("Port ") + KyString::number(v)); });
    grid->addWidget(row(page, {spin, top, spinValue}), r++, 1);

    grid->addWidget(caption("Combo boxes", page), r, 0);
    auto* region = new KyComboBox;
    region->addItems({"Frankfurt", "Amsterdam", "London", "New York", "Singapore", "Tokyo"});
    region->setFixedSize(200, 34);
    auto* protocol = new KyComboBox;
    protocol->addItems({"Automatic", "WireGuard", "IKEv2"});
    protocol->setFixedSize(160, 34);
    auto* offCombo = new KyComboBox;
    offCombo->addItem("Disabled");
    offCombo->setFixedSize(140, 34);
    offCombo->setEnable(false);
    grid->addWidget(row(page, {region, protocol, offCombo}), r++, 1);

    grid->addWidget(caption("Completion", page), r, 0);
    auto* email = field("", 260);
    email->setPlaceholder("E-mail");
    auto* completer = new KyCompleter({"zoe@example.net", "zora@velmo.io", "anna@velmo.io", "anton@example.net"}, page);
    completer->setWidget(email);
    KyObject::connect(email, &KyLineEdit::TextChanged, completer, [completer](const KyString&) { completer->complete(); });
    KyObject::connect(email, &KyWidget::FocusChanged, completer, [completer](const bool& on) {
        if (on) completer->complete();
        else completer->hidePopup();
    });
    // The form's default button: Return in any field of this page sends it.
    auto* send = new KyPushButton("Sign in");
    send->setDefault(true);
    auto* sent = new KyLabel("Type a or z for suggestions; Return signs in");
    KyObject::connect(send, &KyPushButton::clicked, sent, [sent, email] {
        sent->setText(KyString("Signing in as ") + (email->getText().isEmpty() ? KyString("nobody yet") : email->getText()));
    });
    grid->addWidget(row(page, {email, send, sent}), r++, 1);

    grid->addItem(new KySpacerItem(0, 0, KySizePolicy::Minimum, KySizePolicy::Expanding), r, 0, 1, 2);
    page->setLayout(grid);
    return page;
}

KyWidget* buildLoadingPage() {
    auto* page = new KyWidget;
    auto* layout = new KyVerticalLayout;
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(10);
    auto* toggle = new KyPushButton("Stop", page);
    layout->addWidget(row(page, {toggle, new KyLabel("The cover below spins only while it is active.")}));
    auto* area = new KyWidget(page);
    area->setStyleSheet("KyWidget { border-color: rgb(220, 224, 232); border-width: 1px; border-radius: 6px; }");
    area->setProperty("VerticalPolicy", KyAny(KyString("Expanding")));
    area->setProperty("HorizontalPolicy", KyAny(KyString("Expanding")));
    new KyLabel("Catalog", area);
    auto* overlay = new KyLoadingOverlay(area);
    overlay->setTitle("Connecting to VELMO");
    overlay->setStatusText("Waiting for the agent to answer…");
    overlay->setActive(true);
    KyObject::connect(toggle, &KyPushButton::clicked, overlay, [overlay, toggle] {
        overlay->setActive(!overlay->isActive());
        toggle->setText(overlay->isActive() ? "Stop" : "Start");
    });
    layout->addWidget(area, 1);
    page->setLayout(layout);
    return page;
}

} // namespace

int main(int argc, char** argv) {
    bool dark = false;
    int tab = 0;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--dark") == 0) dark = true;
        else if (std::strcmp(argv[i], "--tab") == 0 && i + 1 < argc) tab = std::atoi(argv[++i]);
        else {
            std::fprintf(stderr, "usage: ky-gallery [--dark] [--tab N]\n");
            return 2;
        }
    }

    KyGuiApplication app(argc, argv);
    auto* root = new KyWidget;
    root->setObjectName("galleryRoot");

    KyWindowCallbacks c;
    bool forceRepaint = true;
    c.resized = [&](KyPlatformSize s) {
        forceRepaint = true;
        root->setGeometry(0, 0, s.width, s.height);
    };
    auto mouse = [root](int type) {
        return [root, type](KyMouseEvent e) {
            KyWidget::MouseEvent event(type, e);
            root->dispatchMouseEventFromRoot_(&event);
        };
    };
    c.mousePressed = mouse(KyWidget::Event::MouseButtonPress);
    c.mouseDoubleClicked = mouse(KyWidget::Event::MouseButtonDblClick);
    c.mouseReleased = mouse(KyWidget::Event::MouseButtonRelease);
    c.mouseMoved = mouse(KyWidget::Event::MouseMove);
    c.mouseLeft = [root] { root->clearHoverRecursive_(); };
    c.wheelRotated = [root](KyMouseEvent e) {
        KyWidget::WheelEvent event(e);
        root->dispatchWheelEventFromRoot_(&event);
    };
    auto key = [root](int type) {
        return [root, type](KyKeyEvent e) {
            KyWidget::KeyEvent event(type, e);
            root->dispatchKeyEventFromRoot_(&event);
        };
    };
    c.keyPressed = key(KyWidget::Event::KeyPress);
    c.keyReleased = key(KyWidget::Event::KeyRelease);
    c.deleteRequested = [&app] { app.quit(); };
    c.paintRequested = [&](KyPlatformPaintEvent e) {
        root->paintFromPlatform_(app.platformIntegration(), e, forceRepaint);
        forceRepaint = false;
    };
    auto window = app.platformIntegration()->createWindow("VELMO controls gallery", 860, 560, c, {});
    root->attachNativeWindow({window->nativeDisplay(), window->nativeHandle()});
    root->setGeometry(0, 0, 860, 560);
    root->setStyleSheet(KyString(kBaseSheet) + (dark ? kDarkSheet : ""));

    auto* layout = new KyVerticalLayout;
    layout->setContentsMargins(20, 16, 20, 16);
    layout->setSpacing(10);
    auto* heading = new KyLabel(dark ? "Controls — dark" : "Controls — light", root);
    heading->setObjectName("heading");
    layout->addWidget(heading);
    auto* tabs = new KyTabWidget(root);
    tabs->addTab(buildControlsPage(), "Controls");
    tabs->addTab(buildLoadingPage(), "Loading");
    tabs->addTab(buildInputsPage(), "Inputs");
    tabs->setCurrentIndex(tab);
    layout->addWidget(tabs, 1);
    root->setLayout(layout);

    // The window opens with the keyboard on the tabs: arrows and Ctrl+Tab
    // switch pages, Tab walks into the page.
    tabs->tabBar()->requestFocus();
    root->show();
    window->show();
    const int code = app.exec();
    delete root;
    return code;
}

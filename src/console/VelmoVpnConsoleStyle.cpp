#include "console/VelmoVpnConsoleStyle.h"

#include "gui/widgets/KyFrame.h"

namespace VelmoVpnConsoleStyle {

KyString labelCss(int r, int g, int b, int size) {
    return KyString::format(
        "KyLabel { background-color: rgba(0,0,0,0); border-width: 0px; color: rgb(%d, %d, %d); font-size: %dpx; }", r, g,
        b, size);
}

KyString windowCss() {
    return
        // Pages and cards.
        "#consoleRoot, #loginRoot { background-color: rgb(8, 18, 24); }"
        // The loading surface's cover over the window colour, mixed once, so
        // the ring's cover and the window around it are one colour.
        "#loadingRoot { background-color: rgb(8, 16, 22); }"
        "KyTabWidget, #page { background-color: rgb(10, 22, 30); }"
        "KyFrame#card { background-color: rgb(16, 31, 40); border-color: rgb(47, 72, 82); border-width: 1px;"
        " border-radius: 12px; }"
        "KyFrame#loginCard { background-color: rgb(20, 37, 46); border-color: rgb(52, 81, 92); border-width: 1px;"
        " border-radius: 12px; }"
        // Texts.
        "KyLabel { background-color: rgba(0,0,0,0); border-width: 0px; color: rgb(216, 225, 228); font-size: 13px; }"
        "KyLabel#overline { color: rgb(127, 145, 151); font-size: 11px; font-weight: 600; }"
        "KyLabel#cardTitle { color: rgb(216, 225, 228); font-size: 17px; font-weight: 700; }"
        "KyLabel#heading { color: rgb(216, 225, 228); font-size: 24px; font-weight: 700; }"
        "KyLabel#hint { color: rgb(127, 145, 151); font-size: 12px; }"
        "KyLabel#brand { color: rgb(220, 154, 84); font-size: 12px; font-weight: 600; }"
        // The shells' own texts: the product line under the brand, form
        // captions, and the loading surface's title, status and explanation.
        "KyLabel#consoleTitle { color: rgb(216, 225, 228); font-size: 15px; font-weight: 600; }"
        "KyLabel#fieldLabel { color: rgb(170, 184, 189); font-size: 12px; font-weight: 600; }"
        "KyLabel#loadingTitle { color: rgb(216, 225, 228); font-size: 17px; font-weight: 700; }"
        "KyLabel#loadingStatus { color: rgb(220, 154, 84); font-size: 13px; }"
        "KyLabel#loadingDetail { color: rgb(127, 145, 151); font-size: 12px; }"
        // Inputs.
        "KyLineEdit, KySpinBox, KyComboBox { background-color: rgb(11, 24, 31); border-color: rgb(47, 72, 82);"
        " border-width: 1px; border-radius: 9px; color: rgb(216, 225, 228); selection-background-color: rgb(94, 70, 44);"
        " placeholder-color: rgb(104, 122, 129); divider-color: rgb(47, 72, 82); arrow-color: rgb(160, 175, 180);"
        " arrow-hover-background-color: rgb(22, 40, 49); arrow-disabled-color: rgb(60, 80, 88);"
        " popup-background-color: rgb(16, 31, 40); focus-border-color: rgb(220, 154, 84); }"
        "KyLineEdit:focus, KySpinBox:focus, KyComboBox:focus { border-color: rgb(220, 154, 84); }"
        "KyLineEdit#spinBoxEdit { background-color: rgba(0, 0, 0, 0); border-width: 0px; }"
        "KyLineEdit:disabled, KySpinBox:disabled, KyComboBox:disabled { background-color: rgb(13, 26, 33);"
        " border-color: rgb(33, 52, 60); color: rgb(96, 112, 118); placeholder-color: rgb(68, 86, 93); }"
        "KyPopupList { background-color: rgb(16, 31, 40); border-color: rgb(47, 72, 82); color: rgb(216, 225, 228);"
        " highlight-background-color: rgb(94, 70, 44); highlight-color: rgb(246, 238, 228); }"
        // Menus (the session menu, the lists' row menus).
        "PopupList { background-color: rgb(16, 31, 40); border-color: rgb(56, 84, 94); border-width: 1px;"
        " border-radius: 8px; color: rgb(216, 225, 228); font-size: 13px; highlight-background-color: rgb(94, 70, 44);"
        " highlight-color: rgb(246, 238, 228); disabled-color: rgb(96, 112, 118); separator-color: rgb(47, 72, 82); }"
        // Tool tips (a row's detail, a range rule's hint) are small dark cards
        // like the menus, not the toolkit's white box.
        "Popup { background-color: rgb(22, 40, 49); border-color: rgb(56, 84, 94); border-width: 1px;"
        " border-radius: 6px; color: rgb(216, 225, 228); }"
        // The e-mail suggestions open as a small card under the field.
        "KyPopupList#completerPopup { background-color: rgb(16, 31, 40); border-color: rgb(47, 72, 82); border-width: 1px;"
        " border-radius: 12px; color: rgb(216, 225, 228); font-size: 13px; padding: 6px 12px; }"
        // Buttons: secondary by default, primary and destructive by name.
        "KyPushButton { background-color: rgb(22, 40, 49); border-color: rgb(56, 84, 94); border-width: 1px;"
        " border-radius: 9px; color: rgb(216, 225, 228); font-size: 13px; focus-border-color: rgb(220, 154, 84); }"
        "KyPushButton:hover { background-color: rgb(28, 50, 61); border-color: rgb(76, 108, 120); }"
        "KyPushButton:pressed { background-color: rgb(16, 30, 37); border-color: rgb(56, 84, 94); color: rgb(216, 225, 228); }"
        "KyPushButton:disabled { background-color: rgb(16, 30, 37); border-color: rgb(33, 52, 60); color: rgb(96, 112, 118); }"
        "KyPushButton#destructiveButton { background-color: rgb(124, 57, 57); border-color: rgb(146, 73, 73); }"
        "KyPushButton#destructiveButton:hover { background-color: rgb(140, 66, 66); border-color: rgb(166, 88, 88); }"
        "KyPushButton#destructiveButton:disabled { background-color: rgb(48, 34, 36); border-color: rgb(66, 44, 46);"
        " color: rgb(120, 104, 106); }"
        "KyWidget#primaryFill { background-color: rgb(220, 154, 84); border-color: rgb(194, 134, 70); border-width: 1px;"
        " border-radius: 10px; }"
        "KyWidget#primaryFill:disabled { background-color: rgb(92, 74, 56); border-color: rgb(110, 88, 64); }"
        "KyPushButton#primaryButton { background-color: rgba(0, 0, 0, 0); border-width: 0px; border-radius: 10px;"
        " color: rgb(10, 14, 18); font-size: 13px; font-weight: 600; focus-border-color: rgb(250, 236, 214); }"
        "KyPushButton#primaryButton:hover { background-color: rgba(255, 255, 255, 0.12); }"
        "KyPushButton#primaryButton:pressed { background-color: rgba(0, 0, 0, 0.12); color: rgb(10, 14, 18); }"
        "KyPushButton#primaryButton:disabled { background-color: rgba(0, 0, 0, 0); color: rgb(40, 34, 28); }"
        // Check boxes.
        "KyCheckBox { color: rgb(216, 225, 228); background-color-unchecked: rgb(11, 24, 31);"
        " border-color-unchecked: rgb(76, 104, 114); indicator-color-checked: rgb(220, 154, 84);"
        " focus-border-color: rgb(220, 154, 84); }"
        "KyCheckBox:hover { border-color-unchecked: rgb(220, 154, 84); }"
        "KyCheckBox:disabled { color: rgb(96, 112, 118); }"
        // Tabs, scroll bars, views.
        "KyTabBar { background-color: rgb(12, 24, 31); border-color: rgb(47, 72, 82); color: rgb(150, 166, 172);"
        " selected-color: rgb(236, 241, 242); accent-color: rgb(220, 154, 84); tab-hover-background-color: rgb(18, 34, 43);"
        " focus-border-color: rgb(220, 154, 84); }"
        "KyScrollBar { background-color: rgb(12, 24, 31); thumb-color: rgb(47, 72, 82); thumb-color-hover: rgb(68, 98, 110);"
        " thumb-color-pressed: rgb(90, 124, 136); thumb-color-disabled: rgb(28, 44, 52); background-color-disabled: rgb(12, 24, 31); }"
        "KyListView, KyTableView { background-color: rgb(16, 31, 40); border-width: 0px; color: rgb(216, 225, 228);"
        " selection-background-color: rgb(30, 52, 62); alternate-background-color: rgb(18, 34, 44); }"
        "KyHeaderView { background-color: rgb(15, 29, 37); border-color: rgb(47, 72, 82); color: rgb(150, 166, 172); }"
        "KyTableView { row-height: 34px; selection-color: rgb(236, 241, 242); hover-background-color: rgb(20, 38, 48);"
        " grid-color: rgb(30, 48, 57); accent-color: rgb(220, 154, 84); }"
        "KyTableView:disabled { background-color: rgb(16, 31, 40); color: rgb(96, 112, 118); }"
        "KyHeaderView { font-size: 12px; separator-color: rgb(40, 62, 72); divider-color: rgb(47, 72, 82);"
        " hover-background-color: rgb(20, 38, 48); pressed-background-color: rgb(24, 44, 55);"
        " arrow-color: rgb(220, 154, 84); }"
        "KyLineEdit#cellEditor, KyComboBox#cellEditor { border-radius: 4px; border-color: rgb(220, 154, 84); }"
        "KyCodeEditor, KyPlainTextEdit { background-color: rgb(11, 24, 31); border-color: rgb(47, 72, 82); border-width: 1px;"
        " border-radius: 9px; color: rgb(216, 225, 228); selection-background-color: rgb(94, 70, 44);"
        " gutter-background-color: rgb(13, 27, 35); gutter-color: rgb(84, 104, 112);"
        " current-line-background-color: rgb(16, 32, 41); }"
        // The monitor log: monospace and a quiet gutter edge.
        "KyCodeEditor { font-family: DejaVu Sans Mono; font-size: 12px; caret-color: rgb(220, 154, 84);"
        " gutter-border-color: rgb(33, 52, 60); gutter-current-color: rgb(216, 225, 228); }"
        "KyCodeEditor:focus, KyPlainTextEdit:focus { border-color: rgb(220, 154, 84); }"
        "KyLabel#monitorSummary { color: rgb(216, 225, 228); font-size: 13px; }"
        // Dialogs over a console window.
        "KyDialog, KyMessageBox { background-color: rgb(16, 31, 40); border-color: rgb(47, 72, 82); border-width: 1px;"
        " border-radius: 12px; }"
        // A plain dialog's content has no border, so only a message box's framed text shows this.
        "#DialogContent { background-color: rgb(16, 31, 40); border-color: rgb(47, 72, 82); }"
        "KyLabel#MessageText { color: rgb(216, 225, 228); }"
        "KyLabel#InformativeText { color: rgb(150, 166, 172); }"
        "ModalOverlay { background-color: rgb(6, 14, 19); border-width: 0px; }"
        // Window chrome.
        "KyMenuBar, KyMenuBar#MainMenuBar { background-color: rgb(12, 24, 31); border-color: rgb(33, 52, 60);"
        " border-width: 1px; border-radius: 0px; color: rgb(216, 225, 228); }"
        "KyStatusBar, KyStatusBar#MainStatusBar { background-color: rgb(243, 246, 247); border-color: rgb(214, 221, 224);"
        " border-width: 1px; color: rgb(40, 52, 58); }"
        "KyStatusBar KyLabel, KyLabel#statusBarLabel, KyLabel#MainStatusLabel { background-color: rgba(0,0,0,0);"
        " border-width: 0px; color: rgb(40, 52, 58); font-size: 12px; }"
        // The ring's track and faint tail are the accent at 16 % and 24 % over
        // the cover, mixed here: painted colours carry no alpha.
        "KyLoadingOverlay { background-color: rgba(8, 16, 22, 0.96); color: rgb(216, 225, 228);"
        " status-color: rgb(150, 166, 172); track-color: rgb(42, 38, 32); arc-color: rgb(220, 154, 84);"
        " arc-tail-color: rgb(59, 49, 37); spinner-size: 44px; spinner-width: 4px; }";
}

KyFrame* makeCard(KyWidget* parent) {
    auto* card = new KyFrame(parent);
    card->setObjectName("card");
    return card;
}

} // namespace VelmoVpnConsoleStyle

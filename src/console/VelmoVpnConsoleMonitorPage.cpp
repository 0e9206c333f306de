// The "Monitor" tab: one card with the link and traffic line, the Clear Log
// button and the agent's log, and the widget halves that runVelmoVpnConsole
// calls on it: appending a line, refreshing the summary, the button and the
// status light, and saving the log to a file.
//
// The log is a read-only code editor whose document carries the log's
// highlighter. Lines arrive one at a time from the agent's logLine and from
// the console itself; the document keeps the last 5000 of them. A reader
// who scrolled up keeps the lines in view while lines arrive below and old
// ones are trimmed above; a reader near the end follows it.
//
// GUI thread only, like every widget here.
#include <string>

#include "console/VelmoVpnConsoleLogFile.h"
#include "console/VelmoVpnConsoleMonitor.h"
#include "console/VelmoVpnConsolePages.h"
#include "console/VelmoVpnConsoleSession.h"
#include "console/VelmoVpnConsoleStatus.h"
#include "console/VelmoVpnConsoleStyle.h"
#include "console/VelmoVpnConsoleUi.h"
#include "console/VelmoVpnLogSyntaxHighlighter.h"
#include "gui/text/KyCodeEditor.h"
#include "gui/text/KyTextCursor.h"
#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyDialog.h"
#include "gui/widgets/KyFrame.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyMainWindow.h"
#include "gui/widgets/KyMenu.h"
#include "gui/widgets/KyMessageBox.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KyStatusLight.h"

namespace {

KyLabel* pageLabel(const char* text, const char* name, KyWidget* parent) {
    auto* label = new KyLabel(text, parent);
    label->setObjectName(name);
    return label;
}

/// A transparent widget that holds a row or a column of the card.
KyWidget* box(KyWidget* parent, KyBoxLayout* layout, int spacing) {
    auto* widget = new KyWidget(parent);
    widget->setObjectName("monitorBox");
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(spacing);
    widget->setLayout(layout);
    return widget;
}

} // namespace

void buildVelmoVpnConsoleMonitorPage(KyWidget& page, VelmoVpnConsoleUi& ui) {
    page.setObjectName("page");
    auto* pageLayout = new KyVerticalLayout;
    pageLayout->setContentsMargins(20, 20, 20, 20);
    KyFrame* card = VelmoVpnConsoleStyle::makeCard(&page);
    pageLayout->addWidget(card, 1);
    page.setLayout(pageLayout);

    auto* cardLayout = new KyVerticalLayout;
    cardLayout->setContentsMargins(18, 16, 18, 18);
    cardLayout->setSpacing(12);

    // Header: what the card is and the link line on the left, the one action on the right.
    auto* header = new KyHorizontalLayout;
    KyWidget* headerRow = box(card, header, 12);
    auto* titles = new KyVerticalLayout;
    KyWidget* titleColumn = box(headerRow, titles, 4);
    titles->addWidget(pageLabel("LINK AND TRAFFIC", "overline", titleColumn));
    titles->addWidget(pageLabel("Agent log", "cardTitle", titleColumn));
    ui.monitorSummaryLabel = pageLabel("No local VPN  |  TUN down  |  RX 0  |  TX 0  |  DROP 0", "monitorSummary",
                                       titleColumn);
    titles->addWidget(ui.monitorSummaryLabel);
    header->addWidget(titleColumn, 1);
    // Secondary, not destructive: clearing is routine housekeeping next to a
    // view that is always on screen, and red belongs to the errors in the log.
    ui.clearLogButton = new KyPushButton("Clear Log", headerRow);
    ui.clearLogButton->setObjectName("secondaryButton");
    ui.clearLogButton->setMinimumSize(104, 34);
    ui.clearLogButton->setEnable(false); // until the agent is linked
    header->addWidget(ui.clearLogButton);
    cardLayout->addWidget(headerRow);

    ui.logEditor = new KyCodeEditor(card);
    ui.logEditor->setObjectName("monitorLog");
    ui.logEditor->setReadOnly(true);
    // A log is never undone: no history to grow with every line.
    ui.logEditor->document()->setUndoRedoEnabled(false);
    ui.logHighlighter = new VelmoVpnLogSyntaxHighlighter(ui.logEditor->document());
    ui.logEditor->setHighlighter(ui.logHighlighter);
    cardLayout->addWidget(ui.logEditor, 1);
    card->setLayout(cardLayout);
}

void velmoVpnConsoleAppendLog(KyCodeEditor* editor, const KyString& line) {
    if (!editor) return;
    KyTextDocument& log = *editor->document();
    const int lineHeight = editor->lineHeight();
    const int first = editor->firstVisibleBlock();
    const int intoFirst = editor->verticalValue() - first * lineHeight;
    // A view taller than the follow margin could never follow by the first
    // visible line alone: a reader who sees the last line is at the end too.
    const bool atEnd = editor->verticalValue() >= editor->verticalMaximum();
    // Rides on the reader's first line: the trim pulls it up with the text.
    const KyTextCursor readerLine(log.findBlockByNumber(first));

    const bool follow = velmoVpnConsoleAppendLogLine(log, line, first) || atEnd;
    if (follow) {
        KyTextCursor end(&log);
        end.movePosition(KyTextCursor::End);
        editor->setTextCursor(end);
        editor->ensureCursorVisible();
    } else if (readerLine.blockNumber() != first) {
        // Lines went away above the reader: the view moves up with its text,
        // so what the reader looks at stays where it is on the screen.
        editor->setVerticalValue(readerLine.blockNumber() * lineHeight + intoFirst);
    }
}

void velmoVpnConsoleRefreshMonitorWidgets(VelmoVpnConsoleUi& ui, const VelmoVpnConsoleSession& session) {
    if (ui.clearLogButton) ui.clearLogButton->setEnable(session.backendConnected);
    if (ui.monitorSummaryLabel) {
        ui.monitorSummaryLabel->setText(velmoVpnConsoleMonitorSummary(
            session.backendConnected, session.tunOpen, session.wsState, session.remoteStatusText, session.localVpnId,
            KyString::number(session.rxCount), KyString::number(session.txCount), KyString::number(session.dropCount)));
    }
    if (ui.remoteStatusLight) {
        const int state = velmoVpnConsoleStatusLightState(
            session.localVpnId, session.backendConnected,
            velmoVpnConsoleRemoteReady(session.wsState, session.remoteStatusText), session.tunOpen);
        if (state != ui.remoteStatusLight->state()) {
            ui.remoteStatusLight->setState(state);
            ui.remoteStatusLight->update();
        }
    }
}

namespace {

// The dialog's own title sheet is light; the console's dialogs sit on a dark card.
constexpr const char* kDialogTitleCss = "KyLabel { background-color: rgba(0,0,0,0); border-width: 0px;"
                                        " color: rgb(216, 225, 228); font-size: 16px; font-weight: 600; }";

constexpr const char* kDialogPrimaryButtonCss =
    "KyPushButton { background-color: rgb(220, 154, 84); border-color: rgb(194, 134, 70); border-width: 1px;"
    " border-radius: 10px; color: rgb(10, 14, 18); font-size: 13px; font-weight: 600;"
    " focus-border-color: rgb(250, 236, 214); }"
    " KyPushButton:hover { background-color: rgb(230, 168, 102); }";

/// Asks where the log goes; an empty result is a cancel.
KyString askLogPath(KyMainWindow& window) {
    KyDialog dialog(&window);
    dialog.setStyleSheet(VelmoVpnConsoleStyle::windowCss());
    dialog.setWindowTitle("VELMO VPN");
    dialog.titleBar()->setObjectName("dialogTitle");
    dialog.titleBar()->setStyleSheet(kDialogTitleCss);
    dialog.setDialogSize(560, 200);

    auto* content = new KyVerticalLayout;
    content->setContentsMargins(0, 4, 0, 0);
    content->setSpacing(8);
    content->addWidget(pageLabel("Save the monitor log to this file:", "hint", dialog.contentWidget()));
    auto* path = new KyLineEdit(dialog.contentWidget());
    path->setObjectName("savePath");
    path->setText(velmoVpnConsoleDefaultLogPath());
    content->addWidget(path, 0, 36);
    content->addStretch(1);
    dialog.contentWidget()->setLayout(content);

    auto* buttons = new KyHorizontalLayout;
    buttons->setContentsMargins(0, 6, 0, 0);
    buttons->setSpacing(12);
    buttons->addStretch(1);
    auto* cancel = new KyPushButton("Cancel", dialog.buttonBar());
    cancel->setObjectName("secondaryButton");
    buttons->addWidget(cancel, 0, 96);
    auto* fill = new KyWidget(dialog.buttonBar());
    fill->setObjectName("primaryFill");
    auto* fillLayout = new KyHorizontalLayout;
    fillLayout->setContentsMargins(0, 0, 0, 0);
    auto* save = new KyPushButton("Save", fill);
    save->setObjectName("primaryButton");
    fillLayout->addWidget(save, 1);
    fill->setLayout(fillLayout);
    buttons->addWidget(fill, 0, 96);
    dialog.buttonBar()->setLayout(buttons);

    // Escape is the dialog's own; Return in the field saves like the button.
    KyObject::connect(cancel, &KyPushButton::clicked, &dialog, [&dialog] { dialog.reject(); });
    KyObject::connect(save, &KyPushButton::clicked, &dialog, [&dialog] { dialog.accept(); });
    KyObject::connect(path, &KyLineEdit::returnPressed, &dialog, [&dialog] { dialog.accept(); });
    KyObject::connect(&dialog, &KyDialog::shown, path, [path] {
        path->requestFocus();
        path->selectAll();
    });
    if (dialog.exec() != 1) return KyString();
    return path->getText().trimmed();
}

void saveLog(KyMainWindow& window, KyCodeEditor* log) {
    if (!KyObject::isLive(log)) return;
    const KyString path = askLogPath(window);
    if (path.isEmpty() || !KyObject::isLive(log)) return;
    KyString error;
    const KyString target = velmoVpnConsoleExpandHome(path);
    KyString text = log->toPlainText();
    if (!text.isEmpty()) text += "\n";
    if (velmoVpnConsoleWriteFileAtomically(target, text, error)) {
        velmoVpnConsoleAppendLog(log, "Log saved to " + target);
        return;
    }
    KyMessageBox box(&window);
    box.setStyleSheet(VelmoVpnConsoleStyle::windowCss());
    box.setWindowTitle("VELMO VPN");
    box.titleBar()->setStyleSheet(kDialogTitleCss);
    box.setIcon(KyMessageBox::Critical);
    box.setText("The log could not be saved.");
    box.setInformativeText(error);
    // The box's own button sheet is the light look; this one is the console's accent.
    box.addButton("OK", 1, true)->setStyleSheet(kDialogPrimaryButtonCss);
    box.exec();
}

} // namespace

void velmoVpnConsoleInstallSaveLogAction(VelmoVpnConsoleUi& ui, KyMainWindow& window) {
    if (!ui.sessionMenu) return;
    KyCodeEditor* log = ui.logEditor;
    ui.sessionMenu->addAction("Save log…", [&window, log] { saveLog(window, log); });
}

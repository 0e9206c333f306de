// The "Monitor" page on a private Xvfb, driven through the X server: a reader
// who paged up keeps the same lines on screen while the log is trimmed at
// 5101 lines, the error colour lands on "Disconnected" but not on
// "disconnected", Ctrl+C copies from the read-only log, and Save log writes
// the file whole (or shows why not and leaves nothing behind).
#include <X11/keysym.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>

#include "console/VelmoVpnConsoleMonitor.h"
#include "console/VelmoVpnConsolePages.h"
#include "console/VelmoVpnConsoleSession.h"
#include "gui/text/KyCodeEditor.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyMainWindow.h"
#include "gui/widgets/KyMenu.h"
#include "gui/widgets/KyMenuBar.h"
#include "gui/widgets/KyMessageBox.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KyStatusLight.h"
#include "../support/KyTestConsoleScreen.h"

namespace {

namespace fs = std::filesystem;

template <typename T> T* findWidget(KyObject* in, const char* name = nullptr) {
    for (KyObject* child : in->children()) {
        if (auto* t = dynamic_cast<T*>(child); t && (!name || t->getObjectName() == KyString(name))) return t;
        if (T* found = findWidget<T>(child, name)) return found;
    }
    return nullptr;
}

std::set<fs::path> entries(const fs::path& directory) {
    std::set<fs::path> out;
    for (const fs::directory_entry& e : fs::directory_iterator(directory)) out.insert(e.path());
    return out;
}

void buildPage(KyWidget& host, VelmoVpnConsoleUi& ui) {
    auto* page = new KyWidget(&host);
    buildVelmoVpnConsoleMonitorPage(*page, ui);
    auto* layout = new KyVerticalLayout;
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(page, 1);
    host.setLayout(layout);
}

struct MonitorPage : kytest::ConsolePageFixture {
    void SetUp() override {
        ConsolePageFixture::SetUp();
        showPage(&buildVelmoVpnConsoleMonitorPage, 1260, 700);
        log = ui.logEditor;
    }
    void append(int from, int to, const char* what = "peer ready") {
        for (int i = from; i < to; ++i)
            velmoVpnConsoleAppendLog(log, KyString::format("12:%02d:%02d line %d %s", i / 60 % 60, i % 60, i, what));
    }
    /// Where block's line shows, in window coordinates, right of the gutter.
    KyRect lineRect(int block) const {
        const KyRect vp = log->viewportRect();
        const KyRect at = log->rootRect();
        const int x = at.x + vp.x + log->lineNumberAreaWidth() + 8;
        return {x, at.y + vp.y + block * log->lineHeight() - log->verticalValue(), 600, log->lineHeight()};
    }
    void clickLine(int block) {
        const KyRect r = lineRect(block);
        click(r.x + 2, r.y + r.height / 2);
        ASSERT_TRUE(runUntil([&] { return log->hasFocus(); }));
    }
    void settle() { kytest::settleWindow(*this, *window, page, 6, 6); }

    KyCodeEditor* log = nullptr;
};

TEST_F(MonitorPage, AReaderWhoPagedUpKeepsTheSameLinesOnScreenWhileTheLogIsTrimmed) {
    append(0, 5100);
    ASSERT_EQ(log->document()->blockCount(), 5100);
    EXPECT_GE(log->firstVisibleBlock() + log->visibleLineCount(), 5099) << "the view follows the end";

    clickLine(log->firstVisibleBlock() + 2);
    for (int i = 0; i < 4; ++i) user->tapKey(XK_Page_Up);
    ASSERT_TRUE(runUntil([&] { return log->firstVisibleBlock() < 5100 - 60 - log->visibleLineCount(); }));
    settle();
    const KyString top = log->document()->blockText(log->firstVisibleBlock());
    const KyRect text{lineRect(0).x, log->rootRect().y + 2, 600, log->height() - 4};
    const auto before = user->pixels(window->id(), text);

    append(5100, 5101);
    EXPECT_EQ(log->document()->blockCount(), 5000) << "line 5101 trims the log back to 5000";
    EXPECT_EQ(log->document()->blockText(log->firstVisibleBlock()), top);
    settle();
    EXPECT_TRUE(user->pixels(window->id(), text) == before) << "the lines on screen did not move";

    append(5101, 5140);
    EXPECT_EQ(log->document()->blockText(log->firstVisibleBlock()), top);
}

TEST_F(MonitorPage, AViewTallerThanTheFollowMarginStillFollowsTheEnd) {
    root->setGeometry(0, 0, 1260, 1600);  // past the screen's edge: only the layout counts here
    append(0, 400);
    ASSERT_GT(log->visibleLineCount(), kVelmoVpnConsoleLogFollowMargin);
    EXPECT_GE(log->firstVisibleBlock() + log->visibleLineCount(), 399);
}

TEST_F(MonitorPage, TheLinkEnablesClearLogAndTheStatusLightFollowsTheSession) {
    ui.remoteStatusLight = new KyStatusLight(page);  // the console's status bar holds it
    VelmoVpnConsoleSession session;
    session.localVpnId = "vpn-1";
    session.backendConnected = true;
    velmoVpnConsoleRefreshMonitorWidgets(ui, session);
    EXPECT_TRUE(ui.clearLogButton->isEnabled());
    EXPECT_EQ(ui.remoteStatusLight->state(), kVelmoVpnConsoleLightDisconnected) << "the remote side is not ready";
    session.localVpnId = "";
    velmoVpnConsoleRefreshMonitorWidgets(ui, session);
    EXPECT_EQ(ui.remoteStatusLight->state(), kVelmoVpnConsoleLightNoVpn);
}

TEST_F(MonitorPage, TheErrorColourMarksDisconnectedButNotTheLowerCaseWord) {
    struct Row { const char* name; const char* what; bool coloured; };
    const Row rows[] = {
        {"capitalised word", "Disconnected from CONTROL", true},
        {"part of a lower-case word", "peer disconnected", false},
    };
    for (int i = 0; i < 2; ++i) append(i, i + 1, rows[i].what);
    settle();
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(rows[i].name);
        int error = 0, plain = 0;
        for (std::uint32_t p : user->pixels(window->id(), lineRect(i))) {
            error += p == KyColor(203, 102, 102).rgb();
            plain += p == KyColor(216, 225, 228).rgb();
        }
        EXPECT_EQ(error > 0, rows[i].coloured);
        EXPECT_GT(plain, 0) << "the rest of the line is drawn in the text colour";
    }
}

TEST_F(MonitorPage, BeforeTheLinkTheLogTakesNoTypingNorClearingAndCtrlCCopiesItsSelection) {
    append(0, 3);
    int clears = 0;
    KyObject::connect(ui.clearLogButton, &KyPushButton::clicked, [&] { ++clears; });
    clickOn(ui.clearLogButton);
    clickLine(1);
    const KyString before = log->toPlainText();
    user->typeText("x");
    user->tapKey(XK_Home);
    user->tapKey(XK_End, XK_Shift_L);
    user->tapKey(XK_c, XK_Control_L);
    // Handled in order: once the copy is there, the typing and the click were too.
    EXPECT_TRUE(runUntil([&] { return platform()->clipboardText() == log->document()->blockText(1); }))
        << platform()->clipboardText().toStdString();
    EXPECT_EQ(log->toPlainText(), before) << "typing reached the read-only log";
    EXPECT_EQ(clears, 0) << "Clear Log acted before the agent was linked";
}

using SaveLog = kytest::GuiFixture;

TEST_F(SaveLog, WritesTheWholeLogPrivatelyOrShowsWhyAndLeavesNothing) {
    const fs::path base = fs::temp_directory_path() / ("velmo-save-log-" + std::to_string(::getpid()));
    struct Row { const char* name; const char* file; KeySym key; bool saved; const char* reason; };
    const Row rows[] = {
        {"Return saves", "monitor.log", XK_Return, true, ""},
        {"Escape cancels", "monitor.log", XK_Escape, false, ""},
        {"the target is a directory", "taken.log", XK_Return, false, "Is a directory"},
        {"the directory is missing", "missing/monitor.log", XK_Return, false, "No such file or directory"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(base);
        fs::create_directories(base);
        if (std::string(row.file) == "taken.log") fs::create_directory(base / "taken.log");
        const std::set<fs::path> entriesBefore = entries(base);

        KyMainWindow window(L"VELMO VPN Console", 900, 500);
        window.ensureChrome();
        window.setObjectName("consoleRoot");
        window.setStyleSheet(VelmoVpnConsoleStyle::windowCss());
        VelmoVpnConsoleUi ui;
        ui.sessionMenu = window.menuBar()->addMenu("Session");
        buildPage(window, ui);
        velmoVpnConsoleInstallSaveLogAction(ui, window);
        velmoVpnConsoleAppendLog(ui.logEditor, "12:04:31 Connecting to CONTROL");
        velmoVpnConsoleAppendLog(ui.logEditor, "12:04:32 CONTROL connected");
        const KyString text = ui.logEditor->toPlainText();
        window.show();
        ASSERT_TRUE(runUntil([&] {
            XWindowAttributes a{};
            return XGetWindowAttributes(user->display(), window.platformWindow()->nativeHandle(), &a) &&
                   a.map_state == IsViewable;
        }));
        const KyPoint o = KyWidgetPlatformAdapter::clientOriginOnScreen(window.nativeHandle());
        user->fakeMotion(o.x + 450, o.y + 250);

        // The dialog and the error box wait in nested loops; a timer plays the user meanwhile.
        const std::string target = (base / row.file).string();
        KyString shownReason;
        int stage = 0;
        const int timer = app->addTimer([&] {
            auto* field = findWidget<KyLineEdit>(&window, "savePath");
            if (stage == 0 && field && field->hasFocus()) {
                field->setText(KyString(target));
                user->tapKey(row.key);
                stage = 1;
            } else if (auto* box = findWidget<KyMessageBox>(&window); stage == 1 && box && box->isVisible()) {
                shownReason = box->informativeText();
                user->tapKey(XK_Return);
                stage = 2;
            }
        }, 10000, false, KyFiberLaneDefault);
        ASSERT_EQ(ui.sessionMenu->actions().size(), 1u);
        EXPECT_EQ(ui.sessionMenu->actions()[0]->getText(), KyString("Save log…"));
        ui.sessionMenu->actions()[0]->trigger();
        app->removeTimer(timer);

        EXPECT_GE(stage, 1) << "the dialog came up with the path field focused";
        EXPECT_NE(shownReason.toStdString().find(row.reason), std::string::npos) << shownReason.toStdString();
        EXPECT_EQ(shownReason.isEmpty(), *row.reason == '\0');
        std::set<fs::path> entriesAfter = entries(base);
        if (row.saved) {
            EXPECT_EQ(entriesAfter.erase(target), 1u);
            std::ifstream file(target, std::ios::binary);
            EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), text.toStdString() + "\n");
            struct stat st {};
            ASSERT_EQ(::stat(target.c_str(), &st), 0);
            EXPECT_EQ(st.st_mode & 0777, 0600u);
            EXPECT_EQ(ui.logEditor->document()->lastBlock().text(), KyString("Log saved to " + target));
        }
        EXPECT_EQ(entriesAfter, entriesBefore) << "no temporary or partial file is left";
    }
    fs::remove_all(base);
}

} // namespace

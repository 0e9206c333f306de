// The widget base on a private Xvfb: damage merged into one Expose and paced
// by the one in flight, updates under a hidden ancestor, mouse grabs and
// bubbling with XTEST input, click focus and key routing, hover order, what
// a styled tree paints (pixels read back), the snapshot's refresh and the
// style cascade across a window and a control.
#include <X11/keysym.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "../../support/KyTestWidgetWindow.h"
#include "../../support/KyTestX11.h"
#include "gui/widgets/KyDragDrop.h"
#include "gui/widgets/KyWidget.h"

namespace {

using Log = std::vector<std::string>;

// A widget that logs what reaches it and accepts what it is told to.
class Probe : public KyWidget {
    KY_OBJECT(Probe, KyWidget)

public:
    Probe(KyWidget* parent, const char* name, KyRect g, Log* log) : KyWidget(parent), log_(log) {
        setObjectName(name);
        setGeometry(g);
        KyObject::connect(this, &KyWidget::HoverChanged, [this](const bool& on) { note(on ? "+" : "-"); });
    }
    bool acceptsMouse = false;
    bool acceptsKeys = false;

    void mousePressEvent(MouseEvent* e) override { mouse("press", e); }
    void mouseReleaseEvent(MouseEvent* e) override { mouse("release", e); }
    void keyPressEvent(KeyEvent* e) override {
        note("key");
        if (!acceptsKeys) e->ignore();
    }

private:
    void note(const std::string& what) { log_->push_back(getObjectName().toStdString() + " " + what); }
    void mouse(const char* what, MouseEvent* e) {
        note(std::string(what) + (KyRect(0, 0, width(), height()).contains(e->pos()) ? " inside" : " outside"));
        if (!acceptsMouse) e->ignore();
    }
    Log* log_;
};

struct WidgetWindowTest : kytest::GuiFixture {
    void SetUp() override {
        GuiFixture::SetUp();
        root = new KyWidget;
        root->setObjectName("root");
        host = std::make_unique<kytest::WidgetWindow>(app.get(), root, 320, 200);
        host->show();
        ASSERT_TRUE(runUntil([&] { return host->paints > 0; }));
        settle();
    }
    void TearDown() override {
        KyWidget::setKeyShortcutHook({});
        delete root;
        host.reset();
        GuiFixture::TearDown();
    }
    // Paints until no damage is left (the motion lands on the bare root).
    void settle() { kytest::settleWindow(*this, *host, root, 319, 199); }
    // XTEST: the pointer to (x, y) of the window.
    void pointer(int x, int y) {
        const KyPoint origin = KyWidgetPlatformAdapter::clientOriginOnScreen(root->nativeHandle());
        user->fakeMotion(origin.x + x, origin.y + y);
    }
    bool waitFor(const Log& log, std::size_t n) {
        return runUntil([&] { return log.size() >= n; });
    }
    KyWidget* root = nullptr;
    std::unique_ptr<kytest::WidgetWindow> host;
};

TEST_F(WidgetWindowTest, UpdatesMergeIntoOneExposeAndWaitForTheOneInFlight) {
    auto* a = new KyWidget(root);
    a->setGeometry(10, 10, 20, 20);
    auto* b = new KyWidget(root);
    b->setGeometry(100, 80, 30, 30);
    settle();

    host->clearPaints();
    a->update();
    b->update();
    settle();
    ASSERT_EQ(host->paints, 1);
    EXPECT_EQ(host->paintRects[0], KyRect(10, 10, 120, 100));

    // One Expose in flight: b's damage leaves only after it came back.
    host->clearPaints();
    a->update();
    KyWidgetPlatformAdapter::flushDamage();
    b->update();
    KyWidgetPlatformAdapter::flushDamage();
    ASSERT_TRUE(runUntil([&] { return host->paints == 2; }));
    EXPECT_EQ(host->paintRects[0], KyRect(10, 10, 20, 20));
    EXPECT_EQ(host->paintRects[1], KyRect(100, 80, 30, 30));
}

TEST_F(WidgetWindowTest, AHiddenAncestorSwallowsUpdates) {
    auto* panel = new KyWidget(root);
    auto* inner = new KyWidget(panel);
    panel->hide();
    settle();
    host->clearPaints();
    inner->update();
    EXPECT_FALSE(KyWidgetPlatformAdapter::hasReadyDamage());
    settle();
    EXPECT_EQ(host->paints, 0);
    panel->show();
    inner->update();
    EXPECT_TRUE(KyWidgetPlatformAdapter::hasReadyDamage());
}

struct MouseRow {
    const char* name;
    bool innerAccepts, panelAccepts;
    Log expected;
    const char* grabber; ///< who holds the grab while the button is down
};

TEST_F(WidgetWindowTest, PressesGrabTheWidgetThatTookThemAndBubbleUntilOneDoes) {
    const MouseRow rows[] = {
        {"a release outside the pressed widget still reaches it", true, false,
         {"inner press inside", "inner release outside"}, "inner"},
        {"a press the child ignores bubbles to the parent, which takes the grab", false, true,
         {"inner press inside", "panel press inside", "panel release outside"}, "panel"},
    };
    for (const MouseRow& row : rows) {
        SCOPED_TRACE(row.name);
        Log log;
        auto* panel = new Probe(root, "panel", {20, 20, 200, 120}, &log);
        auto* inner = new Probe(panel, "inner", {10, 10, 50, 30}, &log);
        panel->acceptsMouse = row.panelAccepts;
        inner->acceptsMouse = row.innerAccepts;
        pointer(45, 45);
        settle();
        log.clear();
        user->fakeButton(1, true);
        ASSERT_TRUE(waitFor(log, row.expected.size() - 1));
        ASSERT_NE(root->mouseGrabWidget(), nullptr);
        EXPECT_EQ(root->mouseGrabWidget()->getObjectName(), row.grabber);
        pointer(300, 180);
        user->fakeButton(1, false);
        ASSERT_TRUE(waitFor(log, row.expected.size()));
        settle();
        std::erase_if(log, [](const std::string& s) { return s.back() == '+' || s.back() == '-'; });
        EXPECT_EQ(log, row.expected);
        EXPECT_EQ(root->mouseGrabWidget(), nullptr);
        delete panel;
    }
}

TEST_F(WidgetWindowTest, AClickOnANoClickFocusWidgetLeavesFocusAndKeysClimbFromTheFocusWidget) {
    Log log;
    auto* form = new Probe(root, "form", {0, 0, 300, 180}, &log);
    auto* field = new Probe(form, "field", {10, 10, 100, 30}, &log);
    auto* toolButton = new Probe(form, "tool", {150, 10, 40, 30}, &log);
    toolButton->setFocusPolicy(NoClickFocus);
    int shortcuts = 0;
    KyWidget::setKeyShortcutHook([&](KyWidget* hookRoot, KyWidget::KeyEvent*) { shortcuts += hookRoot == root; });

    pointer(30, 20);
    user->fakeButton(1, true);
    user->fakeButton(1, false);
    ASSERT_TRUE(runUntil([&] { return field->hasFocus(); }));
    pointer(160, 20);
    user->fakeButton(1, true);
    user->fakeButton(1, false);
    settle();
    EXPECT_TRUE(field->hasFocus());
    EXPECT_FALSE(toolButton->hasFocus());
    EXPECT_EQ(root->focusWidget(), field);

    // Nobody takes the key: it climbs from the field to the root, then the shortcut hook sees it.
    log.clear();
    user->sendKey(host->id(), true, XK_a);
    ASSERT_TRUE(runUntil([&] { return shortcuts == 1; }));
    EXPECT_EQ(log, (Log{"field key", "form key"}));
    // The form takes it: the climb stops there and no shortcut runs.
    form->acceptsKeys = true;
    log.clear();
    user->sendKey(host->id(), true, XK_a);
    ASSERT_TRUE(waitFor(log, 2));
    settle();
    EXPECT_EQ(log, (Log{"field key", "form key"}));
    EXPECT_EQ(shortcuts, 1);
}

TEST_F(WidgetWindowTest, HoverTurnsOffDeepestFirstAndOnShallowestFirst) {
    Log log;
    auto* panel = new Probe(root, "panel", {10, 10, 200, 150}, &log);
    new Probe(panel, "leaf", {20, 20, 50, 50}, &log);
    new Probe(root, "side", {250, 20, 40, 40}, &log);
    KyObject::connect(root, &KyWidget::HoverChanged, [&log](const bool& on) { log.push_back(on ? "root +" : "root -"); });
    pointer(5, 190);
    settle();
    log.clear();
    pointer(40, 40);
    ASSERT_TRUE(waitFor(log, 2));
    EXPECT_EQ(log, (Log{"panel +", "leaf +"}));
    log.clear();
    pointer(260, 30);
    ASSERT_TRUE(waitFor(log, 3));
    EXPECT_EQ(log, (Log{"leaf -", "panel -", "side +"}));
    log.clear();
    user->sendLeave(host->id(), NotifyNormal, NotifyAncestor);
    ASSERT_TRUE(waitFor(log, 2));
    EXPECT_EQ(log, (Log{"side -", "root -"}));
}

TEST_F(WidgetWindowTest, ChildrenPaintOverTheirParentInTheColoursOfTheirSheet) {
    root->setStyleSheet("#panel { background-color: rgb(10, 20, 30); }"
                        "#chip { background-color: #c81e1e; border: 1px solid rgb(0, 0, 255); }"
                        "#cover { background: rgb(0, 160, 0); }");
    auto* panel = new KyWidget(root);
    panel->setObjectName("panel");
    panel->setGeometry(20, 20, 200, 120);
    auto* chip = new KyWidget(panel);
    chip->setObjectName("chip");
    chip->setGeometry(30, 30, 40, 20);
    auto* cover = new KyWidget(panel);
    cover->setObjectName("cover");
    cover->setGeometry(60, 40, 30, 30);
    auto* plain = new KyWidget(panel); // no sheet: paints nothing of its own
    plain->setGeometry(120, 10, 30, 30);
    settle();
    const struct {
        const char* name;
        int x, y;
        KyColor colour;
    } rows[] = {
        {"the window's own background", 5, 5, KyColor(249, 249, 249)},
        {"the panel", 25, 25, KyColor(10, 20, 30)},
        {"the chip's fill", 55, 55, KyColor(200, 30, 30)},
        {"the chip's top-left border", 50, 50, KyColor(0, 0, 255)},
        {"the chip's bottom border", 60, 69, KyColor(0, 0, 255)},
        {"just below the chip: no spill", 60, 70, KyColor(10, 20, 30)},
        {"the later sibling on top of the chip", 85, 65, KyColor(0, 160, 0)},
        {"a widget without a sheet shows its parent", 150, 45, KyColor(10, 20, 30)},
    };
    for (const auto& row : rows) EXPECT_EQ(user->pixel(host->id(), row.x, row.y), row.colour) << row.name;

    // A drag draws its tag over everything, and nothing once it ends.
    KyDragDrop::instance()->begin(chip, "payload", "1 endpoint", {100, 100});
    settle();
    const KyRect tag = KyDragDrop::instance()->overlayRect();
    EXPECT_EQ(user->pixel(host->id(), tag.x, tag.y + 10), KyColor(0, 120, 215));
    EXPECT_EQ(KyDragDrop::instance()->end(), "payload");
    settle();
    EXPECT_EQ(user->pixel(host->id(), tag.x, tag.y + 10), KyColor(10, 20, 30));
}

// ---- Style: no window needed ----

struct SnapshotRow {
    const char* name;
    std::function<void(KyWidget&)> change;
    std::function<int(const KyWidget&)> read;
    int before, after;
};

int textBlue(const KyWidget& w) {
    KyColor c;
    return w.resolveStyledTextColor(c) ? c.b : -1;
}

TEST(WidgetStyle, TheSnapshotFollowsStateObjectNameAndFont) {
    const SnapshotRow rows[] = {
        {"hover", [](KyWidget& w) { w.setHover(true); }, textBlue, 1, 2},
        {"pressed, a dynamic property", [](KyWidget& w) { w.setProperty("Pressed", KyAny(true)); }, textBlue, 1, 4},
        {"disabled", [](KyWidget& w) { w.setEnable(false); }, textBlue, 1, 5},
        {"object name", [](KyWidget& w) { w.setObjectName("named"); }, textBlue, 1, 3},
        {"font: a malformed weight keeps the widget's",
         [](KyWidget& w) { w.setFont(KyFont(L"Segoe UI", 9, 700)); },
         [](const KyWidget& w) { return w.resolveStyledFont().weight; }, 400, 700},
    };
    for (const SnapshotRow& row : rows) {
        KyWidget w;
        w.setStyleSheet("KyWidget { color: #000001; font-weight: heavyish } KyWidget:hover { color: #000002 }"
                        "#named { color: #000003 } KyWidget:pressed { color: #000004 }"
                        "KyWidget:disabled { color: #000005 }");
        EXPECT_EQ(row.read(w), row.before) << row.name;
        row.change(w);
        EXPECT_EQ(row.read(w), row.after) << row.name;
    }
}

class TestControl : public KyWidget {
    KY_OBJECT(TestControl, KyWidget)

public:
    explicit TestControl(KyWidget* parent) : KyWidget(parent) {
        setObjectName("ctl");
        setDefaultStyleSheet("TestControl { background-color: #000001; color: #000001; border-color: #000001 }");
    }
};

TEST(WidgetStyle, WindowSheetsReachControlsOnlyThroughSelectorsThatMatchThem) {
    const struct {
        const char* name;
        const char* windowSheet;
        const char* controlSheet;
        const char* property;
        int blue;
    } rows[] = {
        {"a window's user sheet beats a control's default", "TestControl { color: #000002 }", "", "color", 2},
        {"an object name beats any class", "#ctl { color: #000003 } TestControl { color: #000002 }", "", "color", 3},
        {"the deepest user sheet wins a tie", "TestControl { color: #000002 }", "TestControl { color: #000004 }",
         "color", 4},
        {"a more derived class wins over a base one", "KyWidget { color: #000005 }", "", "color", 1},
        {"a rule for the window's class does not reach the control", "#win { border-color: #000006 }", "",
         "border-color", 1},
        {"the Q spelling of a class reaches it", "QWidget { accent-color: #000007 }", "", "accent-color", 7},
    };
    for (const auto& row : rows) {
        KyWidget window;
        window.setObjectName("win");
        auto* frame = new KyWidget(&window);
        auto* control = new TestControl(frame);
        window.setStyleSheet(row.windowSheet);
        control->setStyleSheet(row.controlSheet);
        KyColor c;
        ASSERT_TRUE(ky::gui::StyleSheet::tryParseColor_(control->styleProperty(row.property), c)) << row.name;
        EXPECT_EQ(c.b, row.blue) << row.name;
    }
}

} // namespace

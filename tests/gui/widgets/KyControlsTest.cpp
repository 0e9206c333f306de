// The basic controls on a private Xvfb: button press and release with XTEST,
// the check box's three looks read back as pixels, the scroll bar's range,
// geometry, pages and wheel, Tab and Space from the keyboard, the tab
// widget's switching and the loading overlay's timer.
#include <X11/keysym.h>

#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "../../support/KyTestWidgetWindow.h"
#include "../../support/KyTestX11.h"
#include "gui/widgets/KyCheckBox.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyLoadingOverlay.h"
#include "gui/widgets/KyPushButton.h"
#include "gui/widgets/KyScrollBar.h"
#include "gui/widgets/KyTabBar.h"
#include "gui/widgets/KyTabWidget.h"

namespace {

struct ControlsTest : kytest::GuiFixture {
    void SetUp() override {
        GuiFixture::SetUp();
        root = new KyWidget;
        host = std::make_unique<kytest::WidgetWindow>(app.get(), root, 320, 200);
        host->show();
        ASSERT_TRUE(runUntil([&] { return host->paints > 0; }));
    }
    void TearDown() override {
        delete root;
        host.reset();
        GuiFixture::TearDown();
    }
    // Paints until no damage is left and one more Expose has come back.
    void settle() {
        for (int i = 0; i < 20 && KyWidgetPlatformAdapter::hasReadyDamage(); ++i) app->exec(2000);
        const int before = host->paints;
        root->update();
        ASSERT_TRUE(runUntil([&] { return host->paints > before; }));
    }
    void pointer(int x, int y) {
        const KyPoint origin = KyWidgetPlatformAdapter::clientOriginOnScreen(root->nativeHandle());
        user->fakeMotion(origin.x + x, origin.y + y);
    }
    void click(int x, int y, int& counter) {
        pointer(x, y);
        const int before = counter;
        user->fakeButton(1, true);
        user->fakeButton(1, false);
        ASSERT_TRUE(runUntil([&] { return counter > before; }));
        settle(); // the release has been handled too
    }
    void key(KeySym sym, unsigned state = 0) {
        user->sendKey(host->id(), true, sym, state);
        user->sendKey(host->id(), false, sym, state);
    }
    KyWidget* root = nullptr;
    std::unique_ptr<kytest::WidgetWindow> host;
};

// Counts what happens to the root (presses and releases it bubbled up to).
struct ReleaseCounter : KyObject {
    int releases = 0;
    bool eventFilter(KyObject*, KyEvent* e) override {
        releases += e->type() == KyWidget::Event::MouseButtonRelease;
        return false;
    }
};

TEST_F(ControlsTest, AButtonClicksOnlyOnAReleaseInsideAndACheckableOneToggles) {
    struct Row {
        const char* name;
        bool checkable;
        int releaseX;
        int clicks, toggles;
        bool checked;
    } rows[] = {
        {"release inside clicks", false, 60, 1, 0, false},
        {"release outside emits nothing", false, 250, 0, 0, false},
        {"checkable release inside toggles", true, 60, 1, 1, true},
        {"checkable release outside keeps the state", true, 250, 0, 0, false},
    };
    ReleaseCounter counter;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto* button = new KyPushButton("Connect", root);
        button->setGeometry(20, 20, 120, 36);
        button->setCheckable(row.checkable);
        button->installEventFilter(&counter);
        int clicks = 0, toggles = 0, pressedSignals = 0, releasedSignals = 0;
        KyObject::connect(button, &KyPushButton::clicked, [&] { ++clicks; });
        KyObject::connect(button, &KyPushButton::toggled, [&](bool) { ++toggles; });
        KyObject::connect(button, &KyPushButton::pressed, [&] { ++pressedSignals; });
        KyObject::connect(button, &KyPushButton::released, [&] { ++releasedSignals; });
        settle();
        pointer(60, 30);
        user->fakeButton(1, true);
        ASSERT_TRUE(runUntil([&] { return button->getPressed(); }));
        pointer(row.releaseX, 30);
        const int before = counter.releases;
        user->fakeButton(1, false);
        ASSERT_TRUE(runUntil([&] { return counter.releases > before; }));
        EXPECT_FALSE(button->getPressed());
        EXPECT_EQ(clicks, row.clicks);
        EXPECT_EQ(toggles, row.toggles);
        EXPECT_EQ(button->isChecked(), row.checked);
        // Every press ends in one release signal, clicked or not.
        EXPECT_EQ(pressedSignals, 1);
        EXPECT_EQ(releasedSignals, 1);
        delete button;
    }
}

TEST_F(ControlsTest, TheCheckBoxPaintsEachOfItsThreeStatesDifferently) {
    auto* box = new KyCheckBox("Block local traffic", root);
    box->setGeometry(10, 10, 220, 30);
    std::set<std::vector<std::uint32_t>> looks;
    for (int state : {KyCheckBox::Unchecked, KyCheckBox::PartiallyChecked, KyCheckBox::Checked}) {
        box->setCheckState(state);
        settle();
        const std::vector<std::uint32_t> indicator = user->pixels(host->id(), {10, 16, 18, 18});
        // The indicator is drawn, not left as background.
        EXPECT_GT(std::set<std::uint32_t>(indicator.begin(), indicator.end()).size(), 1u);
        looks.insert(indicator);
    }
    EXPECT_EQ(looks.size(), 3u);
    box->setCheckState(7);
    EXPECT_EQ(box->checkState(), KyCheckBox::Checked);
}

TEST_F(ControlsTest, TheScrollBarKeepsItsValueInRangeAndItsThumbInTheGroove) {
    auto* bar = new KyScrollBar(KyScrollBar::Vertical, root);
    bar->setGeometry(280, 0, 16, 200);
    std::vector<int> values;
    KyObject::connect(bar, &KyScrollBar::valueChanged, [&](int v) { values.push_back(v); });
    bar->setRange(0, 100);
    bar->setValue(150);
    bar->setValue(100);
    bar->setValue(-5);
    EXPECT_EQ(values, (std::vector<int>{100, 0}));

    const KyRect all{0, 0, 16, 200};
    bar->setRange(10, 5);
    EXPECT_EQ(bar->maximum(), 10);
    EXPECT_EQ(bar->thumbRect(all).height, bar->grooveRect(all).height);

    bar->setStyleSheet("KyScrollBar { padding: 40px; }");
    EXPECT_EQ(bar->grooveRect(all), KyRect(0, 16, 16, 168));
    bar->setStyleSheet("KyScrollBar { padding: 0px; }");
    EXPECT_EQ(bar->grooveRect({0, 0, 4, 200}).width, 8);

    // Thumb: 200 * 50 / (100 + 50) = 66 long, at (200 - 66) * 50 / 100.
    bar->setRange(0, 100);
    bar->setPageStep(50);
    bar->setValue(50);
    EXPECT_EQ(bar->thumbRect(all).y, 67);
    EXPECT_EQ(bar->thumbRect(all).height, 66);
}

TEST_F(ControlsTest, PressesBeforeAndAfterTheThumbStepByPages) {
    auto* bar = new KyScrollBar(KyScrollBar::Vertical, root);
    bar->setGeometry(280, 0, 16, 200);
    bar->setRange(0, 1000);
    bar->setPageStep(100);
    bar->setValue(500);
    int changes = 0;
    KyObject::connect(bar, &KyScrollBar::valueChanged, [&](int) { ++changes; });
    settle();
    click(288, 190, changes);
    EXPECT_EQ(bar->value(), 600);
    click(288, 5, changes);
    EXPECT_EQ(bar->value(), 500);

    // Given the focus, the bar steps by keys: arrows a step, pages a page, Home and End the ends.
    bar->setFocusPolicy(StrongFocus);
    bar->setSingleStep(10);
    bar->requestFocus();
    struct Key { const char* name; KeySym sym; int value; };
    for (const Key& k : {Key{"Down", XK_Down, 510}, Key{"Page Up", XK_Page_Up, 410}, Key{"Up", XK_Up, 400},
                         Key{"Page Down", XK_Page_Down, 500}, Key{"End", XK_End, 1000}, Key{"Home", XK_Home, 0}}) {
        key(k.sym);
        EXPECT_TRUE(runUntil([&] { return bar->value() == k.value; })) << k.name << ": " << bar->value();
    }
}

TEST_F(ControlsTest, TheWheelMovesByNotchesAndShiftPicksTheHorizontalBar) {
    struct Row {
        const char* name;
        int orientation;
        int delta;
        bool shift;
        int singleStep, pageStep;
        int expected;
    } rows[] = {
        {"one notch up on a vertical bar", KyScrollBar::Vertical, 120, false, 1, 10, 49},
        {"half a notch still moves one", KyScrollBar::Vertical, 60, false, 1, 10, 49},
        {"three notches down", KyScrollBar::Vertical, -360, false, 1, 10, 53},
        {"a step of two or more multiplies", KyScrollBar::Vertical, -120, false, 3, 10, 53},
        {"a page of 40 steps by 4", KyScrollBar::Vertical, 120, false, 1, 40, 46},
        {"shift leaves a vertical bar alone", KyScrollBar::Vertical, 120, true, 1, 10, 50},
        {"a horizontal bar ignores the plain wheel", KyScrollBar::Horizontal, 120, false, 1, 10, 50},
        {"shift turns a horizontal bar", KyScrollBar::Horizontal, 120, true, 1, 10, 49},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto* bar = new KyScrollBar(row.orientation, root);
        bar->setGeometry(0, 0, 200, 200);
        bar->setRange(0, 100);
        bar->setSingleStep(row.singleStep);
        bar->setPageStep(row.pageStep);
        bar->setValue(50);
        KyWidget::WheelEvent wheel(100, 100, 100, 100, row.delta, false, row.shift, false);
        root->dispatchWheelEventFromRoot_(&wheel);
        EXPECT_EQ(bar->value(), row.expected);
        EXPECT_EQ(wheel.isAccepted(), row.expected != 50);
        delete bar;
    }
}

TEST_F(ControlsTest, TabWalksTheFormInReadingOrderAndWrapsAndSpaceClicks) {
    // Made out of reading order; the label and the disabled button are skipped.
    auto* ok = new KyPushButton("OK", root);
    ok->setGeometry(200, 150, 80, 32);
    auto* remember = new KyCheckBox("Remember me", root);
    remember->setGeometry(20, 100, 150, 28);
    new KyLabel("Account", root);
    auto* cancel = new KyPushButton("Cancel", root);
    cancel->setGeometry(110, 150, 80, 32);
    auto* off = new KyPushButton("Help", root);
    off->setGeometry(20, 150, 80, 32);
    off->setEnable(false);
    auto* first = new KyPushButton("Sign in", root);
    first->setGeometry(20, 40, 120, 32);
    settle();

    const std::vector<KyWidget*> forward{first, remember, cancel, ok, first};
    for (KyWidget* expected : forward) {
        key(XK_Tab);
        ASSERT_TRUE(runUntil([&] { return expected->hasFocus(); })) << expected->className().toStdString();
    }
    key(XK_Tab, ShiftMask);
    ASSERT_TRUE(runUntil([&] { return ok->hasFocus(); }));

    int clicks = 0;
    KyObject::connect(ok, &KyPushButton::clicked, [&] { ++clicks; });
    user->sendKey(host->id(), true, XK_space);
    ASSERT_TRUE(runUntil([&] { return ok->getPressed(); }));
    EXPECT_EQ(clicks, 0);
    user->sendKey(host->id(), false, XK_space);
    ASSERT_TRUE(runUntil([&] { return clicks == 1; }));
    EXPECT_FALSE(ok->getPressed());
    key(XK_Return);
    ASSERT_TRUE(runUntil([&] { return clicks == 2; }));

    // Return from a control that does not take it goes to the default button.
    ok->setDefault(true);
    remember->requestFocus();
    key(XK_Return);
    ASSERT_TRUE(runUntil([&] { return clicks == 3; }));
    EXPECT_TRUE(remember->hasFocus());
}

TEST_F(ControlsTest, ATabWidgetSwitchesByClickAndByCtrlTab) {
    auto* tabs = new KyTabWidget(root);
    tabs->setGeometry(0, 0, 320, 200);
    auto* first = new KyPushButton("First");
    auto* second = new KyPushButton("Second");
    auto* third = new KyWidget;
    tabs->addTab(first, "General");
    tabs->addTab(second, "Network");
    tabs->addTab(third, "Logs");
    std::vector<int> changes;
    KyObject::connect(tabs, &KyTabWidget::currentChanged, [&](int i) { changes.push_back(i); });
    settle();
    EXPECT_TRUE(first->isVisibleInHierarchy());
    EXPECT_FALSE(second->isVisibleInHierarchy());

    const KyRect tab = tabs->tabBar()->tabRect(1);
    int clicks = 0;
    KyObject::connect(tabs, &KyTabWidget::currentChanged, [&](int) { ++clicks; });
    click(tab.x + tab.width / 2, tab.y + tab.height / 2, clicks);
    EXPECT_EQ(tabs->currentIndex(), 1);
    EXPECT_TRUE(second->isVisibleInHierarchy());
    EXPECT_FALSE(first->isVisibleInHierarchy());
    EXPECT_EQ(second->geometry(), tabs->pageRect());

    key(XK_Tab, ControlMask);
    ASSERT_TRUE(runUntil([&] { return tabs->currentIndex() == 2; }));
    key(XK_Tab, ControlMask);
    ASSERT_TRUE(runUntil([&] { return tabs->currentIndex() == 0; }));
    key(XK_Tab, ControlMask | ShiftMask);
    ASSERT_TRUE(runUntil([&] { return tabs->currentIndex() == 2; }));
    key(XK_Left);
    ASSERT_TRUE(runUntil([&] { return tabs->currentIndex() == 1; }));
    EXPECT_EQ(changes, (std::vector<int>{1, 2, 0, 2, 1}));

    delete second;
    EXPECT_EQ(tabs->count(), 2);
    EXPECT_EQ(tabs->tabText(1), "Logs");

    // A tab put or taken before the current one moves its index, and says so.
    changes.clear();
    auto status = std::make_unique<KyWidget>();
    tabs->insertTab(0, status.get(), "Status");
    EXPECT_EQ(tabs->currentIndex(), 2);
    tabs->removeTab(0);
    EXPECT_EQ(changes, (std::vector<int>{2, 1}));
    EXPECT_EQ(tabs->tabText(tabs->currentIndex()), "Logs");
}

TEST_F(ControlsTest, TheOverlayTurnsOnlyWhileActive) {
    auto* overlay = new KyLoadingOverlay(root);
    overlay->setTitle("Connecting");
    EXPECT_FALSE(overlay->isAnimating());
    EXPECT_FALSE(overlay->isVisible());
    overlay->setActive(true);
    EXPECT_EQ(overlay->geometry(), root->clientRect());
    const int start = overlay->phase();
    ASSERT_TRUE(runUntil([&] { return overlay->phase() != start; }));
    EXPECT_TRUE(overlay->isAnimating());

    overlay->setActive(false);
    EXPECT_FALSE(overlay->isAnimating());
    const int stopped = overlay->phase();
    for (int i = 0; i < 5; ++i) app->exec(40000);
    EXPECT_EQ(overlay->phase(), stopped);
    root->setGeometry(0, 0, 300, 180);
    EXPECT_EQ(overlay->geometry(), KyRect(0, 0, 300, 180));
}

} // namespace

// The input controls on a private Xvfb, driven by XTEST keys and pointer:
// line edit editing keys, the clipboard and a password field's refusal to
// use it, a double click on a word; spin box commit and discard; combo box
// popup closing and first-letter cycling; completer acceptance.
#include <X11/keysym.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

#include "../../support/KyTestWidgetWindow.h"
#include "../../support/KyTestX11.h"
#include "gui/widgets/KyComboBox.h"
#include "gui/widgets/KyCompleter.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyPopupList.h"
#include "gui/widgets/KySpinBox.h"

namespace {

// Counts what reaches a widget, before the widget sees it.
struct Counter : KyObject {
    int moves = 0, presses = 0;
    bool eventFilter(KyObject*, KyEvent* e) override {
        moves += e->type() == KyWidget::Event::MouseMove;
        presses += e->type() == KyWidget::Event::MouseButtonPress;
        return false;
    }
};

struct InputControlsTest : kytest::GuiFixture {
    void SetUp() override {
        GuiFixture::SetUp();
        root = new KyWidget;
        host = std::make_unique<kytest::WidgetWindow>(app.get(), root, 420, 300);
        host->show();
        ASSERT_TRUE(runUntil([&] { return host->paints > 0; }));
        root->installEventFilter(&rootCounter);
        XSetInputFocus(user->display(), host->id(), RevertToPointerRoot, CurrentTime);
        XSync(user->display(), False);
    }
    void TearDown() override {
        releaseAll();
        delete root;
        host.reset();
        GuiFixture::TearDown();
    }
    // Waits until every input sent before has been handled: a motion over
    // the bare corner of the root is queued behind it and seen last.
    void sync() {
        const int before = rootCounter.moves;
        user->sendMotion(host->id(), 419, 299);
        ASSERT_TRUE(runUntil([&] { return rootCounter.moves > before; }));
    }
    // One key stroke with modifiers held, as a keyboard would send it.
    void key(KeySym sym, std::initializer_list<KeySym> mods = {}) {
        user->tapKey(sym, mods);
        sync();
    }
    void type(const std::string& keys) {
        for (char c : keys) key(static_cast<KeySym>(c));
    }
    void releaseAll() {
        for (KeySym m : {XK_Shift_L, XK_Control_L}) user->fakeKey(m, false);
    }
    KyPoint screen(const KyWidget* w, int x, int y) {
        const KyPoint origin = KyWidgetPlatformAdapter::clientOriginOnScreen(root->nativeHandle());
        return {origin.x + w->rootRect().x + x, origin.y + w->rootRect().y + y};
    }
    void click(const KyWidget* w, int x, int y, int times = 1) {
        const KyPoint p = screen(w, x, y);
        user->fakeMotion(p.x, p.y);
        for (int i = 0; i < times; ++i) {
            XTestFakeButtonEvent(user->display(), 1, True, CurrentTime);
            XTestFakeButtonEvent(user->display(), 1, False, CurrentTime);
        }
        XSync(user->display(), False);
        sync();
    }
    KyLineEdit* focusedEdit(const char* text, int y = 20) {
        auto* edit = new KyLineEdit(root);
        edit->setGeometry(10, y, 240, 32);
        edit->setText(text);
        edit->requestFocus();
        return edit;
    }
    KyPlatformIntegration* platform() const { return app->platformIntegration(); }

    KyWidget* root = nullptr;
    std::unique_ptr<kytest::WidgetWindow> host;
    Counter rootCounter;
};

// ---------------------------------------------------------------------------
// Line edit

struct EditRow {
    const char* name;
    const char* text;
    std::vector<std::pair<KeySym, bool>> keys; // key, with Shift
    const char* expectText;
    const char* expectSelection;
};

TEST_F(InputControlsTest, EditingKeysWorkOnWholeCharactersAndKeepTheAnchor) {
    const EditRow rows[] = {
        {"BackSpaceRemovesAMultiByteCharacterWhole", "a\xC3\xA9\xE2\x82\xAC", {{XK_BackSpace, false}}, "a\xC3\xA9", ""},
        {"DeleteBeforeAMultiByteCharacter", "\xC3\xA9x", {{XK_Home, false}, {XK_Delete, false}}, "x", ""},
        {"LeftStepsOverAWholeCharacter", "x\xE2\x82\xAC", {{XK_Left, true}}, "x\xE2\x82\xAC", "\xE2\x82\xAC"},
        {"ShiftHomeKeepsTheAnchor", "hello", {{XK_Left, false}, {XK_Left, false}, {XK_Home, true}, {XK_End, true}}, "hello", "lo"},
        {"TypingReplacesTheSelection", "abc", {{XK_Home, true}, {XK_z, false}}, "z", ""},
    };
    for (const EditRow& row : rows) {
        SCOPED_TRACE(row.name);
        KyLineEdit* edit = focusedEdit(row.text);
        for (const auto& [sym, shift] : row.keys) {
            if (shift) key(sym, {XK_Shift_L});
            else key(sym);
        }
        EXPECT_EQ(edit->getText(), row.expectText);
        EXPECT_EQ(edit->selectedText(), row.expectSelection);
        delete edit;
    }
}

TEST_F(InputControlsTest, CopyAndPasteGoThroughTheClipboard) {
    KyLineEdit* source = focusedEdit("copy me");
    KyLineEdit* target = focusedEdit("", 70);
    click(source, 20, 16);
    ASSERT_TRUE(source->hasFocus());
    key(XK_a, {XK_Control_L});
    key(XK_c, {XK_Control_L});
    Display* d = user->display();
    EXPECT_NE(XGetSelectionOwner(d, XInternAtom(d, "CLIPBOARD", False)), static_cast<Window>(None));
    click(target, 20, 16);
    ASSERT_TRUE(target->hasFocus());
    key(XK_v, {XK_Control_L});
    EXPECT_EQ(target->getText(), "copy me");
    key(XK_v, {XK_Control_L});
    EXPECT_EQ(target->getText(), "copy mecopy me");
}

TEST_F(InputControlsTest, APasswordFieldShowsAsterisksAndLeavesTheClipboardAlone) {
    KyLineEdit* edit = focusedEdit("s\xC3\xA9" "cret");
    edit->setEchoMode(PasswordEcho);
    EXPECT_EQ(edit->getDisplayText(), "******");
    platform()->setClipboardText("before");
    key(XK_a, {XK_Control_L});
    key(XK_c, {XK_Control_L});
    key(XK_x, {XK_Control_L});
    EXPECT_EQ(platform()->clipboardText(), "before");
    EXPECT_EQ(edit->getText(), "s\xC3\xA9" "cret");
    edit->clearSecurely();
    EXPECT_EQ(edit->getText(), "");
    EXPECT_EQ(edit->getDisplayText(), "");
}

TEST_F(InputControlsTest, DoubleClickOnTheFirstWordSelectsIt) {
    KyLineEdit* edit = focusedEdit("a_b c");
    click(edit, edit->innerRect().x + 2, 16, 2);
    EXPECT_EQ(edit->selectedText(), "a_b");
}

// ---------------------------------------------------------------------------
// Spin box

struct SpinRow {
    const char* name;
    int start;
    const char* typed;
    KeySym finish;
    int expectValue;
    const char* expectText;
    int expectEmissions;
};

TEST_F(InputControlsTest, SpinBoxCommitsOnReturnDiscardsOnEscapeAndStopsAtTheEnds) {
    const SpinRow rows[] = {
        {"ReturnCommits", 5, "42", XK_Return, 42, "42", 1},
        {"EscapeDiscardsTypedText", 5, "42", XK_Escape, 5, "5", 0},
        {"TextThatIsNoNumberIsUndone", 5, "4-", XK_Return, 5, "5", 0},
        {"ANumberAboveTheMaximumStoresTheMaximum", 5, "500", XK_Return, 99, "99", 1},
        {"UpAtTheMaximumEmitsNothing", 99, "", XK_Up, 99, "99", 0},
        {"DownStepsOnce", 7, "", XK_Down, 6, "6", 1},
    };
    for (const SpinRow& row : rows) {
        SCOPED_TRACE(row.name);
        auto* spin = new KySpinBox(root);
        spin->setGeometry(10, 20, 120, 32);
        spin->setRange(0, 99);
        spin->setValue(row.start);
        int emissions = 0;
        KyObject::connect(spin, &KySpinBox::valueChanged, [&](int) { ++emissions; });
        spin->lineEdit()->requestFocus();
        spin->lineEdit()->selectAll();
        type(row.typed);
        key(row.finish);
        EXPECT_EQ(spin->value(), row.expectValue);
        EXPECT_EQ(spin->lineEdit()->getText(), row.expectText);
        EXPECT_EQ(emissions, row.expectEmissions);
        delete spin;
    }
    KySpinBox spin;
    spin.setRange(0, 10);
    spin.setValue(1000);
    EXPECT_EQ(spin.value(), 10);
    EXPECT_GE(spin.minimumSizeHint().width, 56);
    EXPECT_GE(spin.minimumSizeHint().height, 28);
}

// ---------------------------------------------------------------------------
// Combo box

TEST_F(InputControlsTest, APressOutsideThePopupClosesItAndGoesNoFurther) {
    auto* combo = new KyComboBox(root);
    combo->setGeometry(10, 20, 160, 32);
    combo->addItems({"One", "Two", "Three"});
    auto* below = new KyWidget(root);
    below->setGeometry(250, 150, 100, 60);
    Counter belowCounter;
    below->installEventFilter(&belowCounter);

    click(combo, 20, 16);
    ASSERT_TRUE(combo->isPopupVisible());
    click(below, 20, 20);
    EXPECT_FALSE(combo->isPopupVisible());
    EXPECT_EQ(belowCounter.presses, 0);
    click(below, 20, 20);
    EXPECT_EQ(belowCounter.presses, 1);

    // A click on a row commits it.
    click(combo, 20, 16);
    ASSERT_TRUE(combo->isPopupVisible());
    KyPopupList* list = combo->popupList();
    int activated = -1;
    KyObject::connect(combo, &KyComboBox::activated, [&](int i) { activated = i; });
    const int rowY = 5 + list->rowHeight() * 2 + list->rowHeight() / 2;
    ASSERT_EQ(list->rowAt(rowY), 2);
    click(list, 30, rowY);
    EXPECT_FALSE(combo->isPopupVisible());
    EXPECT_EQ(activated, 2);
    EXPECT_EQ(combo->currentText(), "Three");
}

TEST_F(InputControlsTest, TypingAFirstLetterCyclesThroughItsItemsAndWraps) {
    auto* combo = new KyComboBox(root);
    combo->setGeometry(10, 20, 160, 32);
    combo->addItems({"Alpha", "Beta", "avocado", "Apple"});
    std::vector<KyString> texts;
    KyObject::connect(combo, &KyComboBox::currentTextChanged, [&](const KyString& t) { texts.push_back(t); });
    combo->requestFocus();
    type("aaab");
    EXPECT_EQ(texts, (std::vector<KyString>{"avocado", "Apple", "Alpha", "Beta"}));

    KyComboBox empty(root);
    empty.requestFocus();
    key(XK_Down);
    EXPECT_EQ(empty.currentIndex(), -1);
}

// ---------------------------------------------------------------------------
// Completer

TEST_F(InputControlsTest, CompleterDownAndReturnPutTheTextInTheFieldOnce) {
    KyLineEdit* edit = focusedEdit("");
    KyCompleter completer({"anna@velmo.io", "bob@velmo.io", "Anton@velmo.io"});
    completer.setWidget(edit);
    KyObject::connect(edit, &KyLineEdit::TextChanged, [&](const KyString&) { completer.complete(); });
    std::vector<KyString> activated;
    KyObject::connect(&completer, &KyCompleter::activated, [&](const KyString& t) { activated.push_back(t); });

    type("an");
    ASSERT_TRUE(completer.isPopupVisible());
    EXPECT_EQ(completer.completions(), (KyList<KyString>{"anna@velmo.io", "Anton@velmo.io"}));
    key(XK_Down);
    key(XK_Down);
    key(XK_Return);
    EXPECT_EQ(edit->getText(), "Anton@velmo.io");
    EXPECT_EQ(activated, (std::vector<KyString>{"Anton@velmo.io"}));
    EXPECT_FALSE(completer.isPopupVisible());
}

} // namespace

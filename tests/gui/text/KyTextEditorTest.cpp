// The text editors on a private Xvfb: a read-only log view follows the end
// while the reader is there and stops when the reader scrolls up (wheel by
// XTEST), a drag selection and Ctrl+C reach the clipboard, typed keys edit
// an editable one, and a long line scrolls sideways.
#include <X11/keysym.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "../../support/KyTestWidgetFixture.h"
#include "gui/text/KyCodeEditor.h"

namespace {

struct TextEditorTest : kytest::WidgetFixture {
    void SetUp() override {
        WidgetFixture::SetUp();
        root = new KyWidget;
        edit = new KyCodeEditor(root);
        edit->setGeometry(0, 0, 400, 300);
        showRoot(400, 320);
    }
    void appendLines(int from, int to) {
        for (int i = from; i < to; ++i) edit->appendPlainText(KyString("12:00:0" + std::to_string(i % 10) + " line " + std::to_string(i)));
    }
    KyCodeEditor* edit = nullptr;
};

TEST_F(TextEditorTest, ALogViewFollowsTheEndUntilTheReaderScrollsUpAndAgainWhenBackAtTheEnd) {
    edit->setReadOnly(true);
    edit->requestFocus();
    appendLines(0, 200);
    EXPECT_TRUE(edit->isFollowingEnd());
    EXPECT_EQ(edit->verticalValue(), edit->verticalMaximum());
    EXPECT_GE(edit->firstVisibleBlock() + edit->visibleLineCount(), 199);

    pointer(200, 150);
    user->fakeButton(4, true);
    user->fakeButton(4, false);
    ASSERT_TRUE(runUntil([&] { return edit->verticalValue() < edit->verticalMaximum(); }));
    EXPECT_FALSE(edit->isFollowingEnd());
    const int first = edit->firstVisibleBlock();
    appendLines(200, 260);
    EXPECT_EQ(edit->firstVisibleBlock(), first) << "the reader's place is kept";
    EXPECT_EQ(edit->document()->blockCount(), 260);

    user->tapKey(XK_End, XK_Control_L);
    ASSERT_TRUE(runUntil([&] { return edit->isFollowingEnd(); }));
    appendLines(260, 300);
    EXPECT_EQ(edit->verticalValue(), edit->verticalMaximum());
    EXPECT_GE(edit->firstVisibleBlock() + edit->visibleLineCount(), 299);
}

TEST_F(TextEditorTest, ADragSelectionAndCtrlCPutTheSelectedTextOnTheClipboard) {
    edit->setReadOnly(true);
    edit->setPlainText("alpha beta\ngamma delta\nepsilon");
    ASSERT_TRUE(runUntil([&] { return window->paints > 1; }));
    // From the start of line 1 to the far right of line 2.
    const int x0 = edit->lineNumberAreaWidth() + 1 + 8;
    const int lh = edit->lineHeight();
    pointer(x0 + 1, 1 + lh / 2);
    user->fakeButton(1, true);
    pointer(390 - 20, 1 + lh + lh / 2);
    user->fakeButton(1, false);
    ASSERT_TRUE(runUntil([&] { return edit->textCursor().selectedText() == KyString("alpha beta\ngamma delta"); }))
        << edit->textCursor().selectedText().toStdString();
    user->tapKey(XK_c, XK_Control_L);
    EXPECT_TRUE(runUntil([&] { return platform()->clipboardText() == KyString("alpha beta\ngamma delta"); }));
    // The selection shows in the selection colour behind the text.
    EXPECT_TRUE(runUntil([&] { return user->pixel(window->id(), x0 + 20, 1 + 2) == KyColor(204, 228, 247); }));
}

TEST_F(TextEditorTest, AnEditableEditorTakesTypingAndUndoesIt) {
    edit->setPlainText("ab");
    pointer(200, 150);
    user->fakeButton(1, true);
    user->fakeButton(1, false);
    ASSERT_TRUE(runUntil([&] { return edit->hasFocus(); }));
    user->tapKey(XK_End);
    user->tapKey(XK_x);
    user->tapKey(XK_Return);
    user->tapKey(XK_y);
    ASSERT_TRUE(runUntil([&] { return edit->toPlainText() == KyString("abx\ny"); })) << edit->toPlainText().toStdString();
    user->tapKey(XK_z, XK_Control_L);
    EXPECT_TRUE(runUntil([&] { return edit->toPlainText().size() < 5; }));
}

TEST_F(TextEditorTest, AReadOnlyEditorRefusesTypingPasteAndDeletionButSelectsCopiesAndScrolls) {
    edit->setReadOnly(true);
    appendLines(0, 100);
    const KyString text = edit->toPlainText();
    edit->setVerticalValue(0);
    platform()->setClipboardText("pasted");
    pointer(200, 150);
    user->fakeButton(1, true);
    user->fakeButton(1, false);
    ASSERT_TRUE(runUntil([&] { return edit->hasFocus(); }));
    // With everything selected, each refused key would otherwise replace or delete it all.
    user->tapKey(XK_a, XK_Control_L);
    for (KeySym refused : {XK_x, XK_Delete, XK_BackSpace, XK_Return}) user->tapKey(refused);
    user->tapKey(XK_v, XK_Control_L);
    user->tapKey(XK_c, XK_Control_L);
    // The copy is the last key sent: once it lands, every refused key has been handled.
    ASSERT_TRUE(runUntil([&] { return platform()->clipboardText() == text; }));
    EXPECT_EQ(edit->toPlainText(), text);
    user->tapKey(XK_Page_Down);
    EXPECT_TRUE(runUntil([&] { return edit->verticalValue() > 0; })) << "Page Down scrolls";
}

// A line wider than the view: its far end comes into view by the End key or
// Shift+wheel, and Home brings its start back. An append leaves the reader's
// sideways place alone; new text starts at the line starts again.
TEST_F(TextEditorTest, ALongLineScrollsSidewaysByEndAndByShiftWheel) {
    edit->setReadOnly(true);
    edit->setPlainText(KyString("start" + std::string(150, ' ') + "END"));
    pointer(200, 100);
    user->fakeButton(1, true);
    user->fakeButton(1, false);
    ASSERT_TRUE(runUntil([&] { return edit->hasFocus(); }));
    // Text shows right of the middle only once the line's end is in view
    // (the last pixels of the row keep the line's background).
    auto endShows = [&] {
        for (int y = 4; y < edit->lineHeight(); ++y) {
            const KyColor background = user->pixel(window->id(), 396, y);
            for (int x = 220; x < 390; ++x)
                if (user->pixel(window->id(), x, y) != background) return true;
        }
        return false;
    };
    const struct {
        const char* name;
        std::function<void()> act;
    } ways[] = {
        {"End", [&] { user->tapKey(XK_End); }},
        {"Shift+wheel", [&] {
             user->fakeKey(XK_Shift_L, true);
             for (int i = 0; i < 20; ++i) user->fakeButton(5, true), user->fakeButton(5, false);
             user->fakeKey(XK_Shift_L, false);
         }},
    };
    for (const auto& way : ways) {
        SCOPED_TRACE(way.name);
        user->tapKey(XK_Home);
        ASSERT_TRUE(runUntil([&] { return edit->horizontalOffset() == 0 && window->paints > 1 && !endShows(); }));
        way.act();
        EXPECT_TRUE(runUntil([&] { return edit->horizontalOffset() > 0 && endShows(); }));
    }
    const int offset = edit->horizontalOffset();
    // As the console's log follows its end: the cursor to the new line's end, into view.
    edit->appendPlainText("short");
    KyTextCursor end(edit->document());
    end.movePosition(KyTextCursor::End);
    edit->setTextCursor(end);
    edit->ensureCursorVisible();
    EXPECT_EQ(edit->horizontalOffset(), offset);
    EXPECT_TRUE(runUntil(endShows));
    edit->setPlainText("abc");
    EXPECT_TRUE(runUntil([&] { return edit->horizontalOffset() == 0 && !endShows(); }));
}

} // namespace

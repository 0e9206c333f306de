// KyTextCursor: moves over multi-byte text, words and lines, and the edits an
// editor makes through a cursor.
#include <gtest/gtest.h>

#include "gui/text/KyTextCursor.h"
#include "gui/text/KyTextDocument.h"

namespace {

// Bytes: "h\xc3\xa9llo" 0-5, space 6, "w\xc3\xb6rld" 7-12, "," 13, space 14,
// "foo_bar" 15-21, newline 22, "  second line" 23-35, newline 36, "x" 37.
const char* const kText = "h\xc3\xa9llo w\xc3\xb6rld, foo_bar\n  second line\nx";

TEST(KyTextCursor, MovesByCodePointWordLineAndBlock) {
    using C = KyTextCursor;
    struct Case {
        const char* name;
        int from;
        C::MoveOperation op;
        int n;
        int to;
        bool moved;
    } cases[] = {
        {"right steps over a two-byte letter", 1, C::Right, 1, 3, true},
        {"left steps back over it", 3, C::Left, 1, 1, true},
        {"right from the end fails", 38, C::Right, 1, 38, false},
        {"left from the start fails", 0, C::Left, 1, 0, false},
        {"next word skips the word and the blank", 0, C::NextWord, 1, 7, true},
        {"next word stops at punctuation", 7, C::NextWord, 1, 13, true},
        {"next word crosses the line end", 15, C::NextWord, 1, 25, true},
        {"previous word goes back over the newline", 25, C::PreviousWord, 1, 15, true},
        {"three words on", 0, C::NextWord, 3, 15, true},
        {"start of word from inside a letter's word", 10, C::StartOfWord, 1, 7, true},
        {"end of word", 8, C::EndOfWord, 1, 13, true},
        {"end of line", 3, C::EndOfLine, 1, 22, true},
        {"start of line", 30, C::StartOfLine, 1, 23, true},
        {"down keeps the column", 3, C::Down, 1, 26, true},
        {"down two lines clamps to the short last line", 3, C::Down, 2, 38, true},
        {"down past the last line stops there and says so", 30, C::Down, 5, 38, false},
        {"next block goes to its start", 3, C::NextBlock, 1, 23, true},
        {"previous block from the first fails", 3, C::PreviousBlock, 1, 3, false},
        {"end of document", 4, C::End, 1, 38, true},
    };
    KyTextDocument doc{KyString(kText)};
    for (const Case& c : cases) {
        KyTextCursor cursor(&doc);
        cursor.setPosition(c.from);
        EXPECT_EQ(cursor.movePosition(c.op, C::MoveAnchor, c.n), c.moved) << c.name;
        EXPECT_EQ(cursor.position(), c.to) << c.name;
        EXPECT_FALSE(cursor.hasSelection()) << c.name;
    }
}

TEST(KyTextCursor, VerticalMovesKeepTheirColumnOverAShortLine) {
    KyTextDocument doc{KyString(kText)};
    KyTextCursor cursor(&doc);
    cursor.setPosition(12);
    cursor.movePosition(KyTextCursor::Down);
    EXPECT_EQ(cursor.positionInBlock(), 12);
    cursor.movePosition(KyTextCursor::Down);
    EXPECT_EQ(cursor.position(), 38);
    cursor.movePosition(KyTextCursor::Up, KyTextCursor::KeepAnchor, 2);
    EXPECT_EQ(cursor.position(), 12) << "back on the first line at the column it left";
    EXPECT_EQ(cursor.selectedText().size(), 26u);
}

TEST(KyTextCursor, SelectionsAndEditsWorkOnWholeCodePoints) {
    KyTextDocument doc{KyString(kText)};
    KyTextCursor cursor(&doc);
    cursor.setPosition(9); // inside "w\xc3\xb6rld"
    cursor.select(KyTextCursor::WordUnderCursor);
    EXPECT_EQ(cursor.selectedText(), "w\xc3\xb6rld");
    cursor.insertText("there");
    EXPECT_EQ(doc.blockText(0), "h\xc3\xa9llo there, foo_bar");
    cursor.setPosition(3);
    cursor.deletePreviousChar();
    EXPECT_EQ(doc.blockText(0), "hllo there, foo_bar");
    cursor.setPosition(doc.blockPosition(1));
    cursor.select(KyTextCursor::BlockUnderCursor);
    EXPECT_EQ(cursor.selectedText(), "  second line\n");
    cursor.insertText("a\r\nb\rc\n");
    EXPECT_EQ(doc.toPlainText(), "hllo there, foo_bar\na\nb\nc\nx");
    EXPECT_EQ(cursor.block().text(), "x") << "the cursor ends after what it inserted";
    doc.undo();
    EXPECT_EQ(doc.blockText(1), "  second line") << "replacing a selection is one step";
    cursor.select(KyTextCursor::Document);
    cursor.removeSelectedText();
    EXPECT_TRUE(doc.isEmpty());
    EXPECT_EQ(doc.blockCount(), 1);
}

} // namespace

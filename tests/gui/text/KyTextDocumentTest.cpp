// KyTextDocument: the piece table against a plain string under random edits,
// the line index after edits that cross lines, undo grouping, and the
// console log's append-and-trim cycle.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "gui/text/KyTextCursor.h"
#include "gui/text/KyTextDocument.h"

namespace {

bool continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// The same edit on a plain string: clamped, widened to whole code points.
struct PlainText {
    std::string s;
    std::size_t align(long long pos) const {
        std::size_t p = std::size_t(std::clamp<long long>(pos, 0, (long long)s.size()));
        while (p > 0 && p < s.size() && continuation(s[p])) --p;
        return p;
    }
    void insert(int pos, const std::string& text) { s.insert(align(pos), text); }
    void remove(int pos, int count) {
        const std::size_t a = align(pos);
        std::size_t b = std::size_t(std::clamp<long long>((long long)pos + count, 0, (long long)s.size()));
        while (b < s.size() && continuation(s[b])) ++b;
        if (b > a) s.erase(a, b - a);
    }
};

void expectSameLines(const KyTextDocument& doc, const std::string& want, const std::string& step) {
    ASSERT_EQ(doc.toPlainText().str(), want) << step;
    std::vector<std::size_t> starts{0};
    for (std::size_t i = 0; i < want.size(); ++i)
        if (want[i] == '\n') starts.push_back(i + 1);
    ASSERT_EQ(doc.blockCount(), int(starts.size())) << step;
    for (std::size_t n = 0; n < starts.size(); ++n) {
        const std::size_t end = n + 1 < starts.size() ? starts[n + 1] - 1 : want.size();
        ASSERT_EQ(doc.blockPosition(int(n)), int(starts[n])) << step << " block " << n;
        ASSERT_EQ(doc.blockText(int(n)).str(), want.substr(starts[n], end - starts[n])) << step << " block " << n;
        ASSERT_EQ(doc.blockNumberAt(int(end)), int(n)) << step << " end of block " << n;
    }
}

TEST(KyTextDocument, RandomEditsMatchAPlainStringAndUndoRedoRetraceThem) {
    static const char* const kPieces[] = {"ab", "\n", "x\ny", "\xc3\xa9\xe2\x82\xac", "\xf0\x9f\x98\x80z", "\n\n",
                                          "line one\nline two", "q"};
    std::mt19937 rng(7);
    auto pick = [&](int n) { return int(rng() % unsigned(n)); };
    KyTextDocument doc(KyString("first\nsecond \xc3\xa9\n"));
    PlainText plain{doc.toPlainText().str()};
    std::map<int, std::string> byDepth{{0, plain.s}};
    KyTextCursor typist(&doc);

    for (int step = 0; step < 500; ++step) {
        const int len = doc.length();
        switch (pick(6)) {
        case 0: case 1: {
            std::string text;
            for (int k = 0, n = 1 + pick(3); k < n; ++k) text += kPieces[pick(8)];
            const int pos = pick(len + 4) - 2; // a few outside the text, clamped
            plain.insert(pos, text);
            doc.insert(pos, KyString(text));
            break;
        }
        case 2: case 3: {
            const int pos = pick(len + 2);
            const int count = 1 + pick(12);
            plain.remove(pos, count);
            doc.remove(pos, count);
            break;
        }
        case 4: // typing: keystrokes next to each other join one step
            for (int k = 0, n = 1 + pick(4); k < n; ++k) {
                const char* key = pick(3) ? "k" : "\xc3\xa9";
                plain.insert(typist.position(), key);
                typist.insertText(key);
            }
            break;
        default: { // two edits in one edit block
            KyTextCursor c(&doc);
            c.beginEditBlock();
            c.setPosition(pick(len + 1));
            plain.insert(c.position(), "[");
            c.insertText("[");
            c.setPosition(0);
            plain.insert(0, "]");
            c.insertText("]");
            c.endEditBlock();
        }
        }
        expectSameLines(doc, plain.s, "step " + std::to_string(step));
        byDepth[doc.availableUndoSteps()] = plain.s;
    }
    const std::string final = plain.s;
    while (doc.isUndoAvailable()) {
        doc.undo();
        expectSameLines(doc, byDepth.at(doc.availableUndoSteps()), "undo to " + std::to_string(doc.availableUndoSteps()));
    }
    EXPECT_EQ(doc.toPlainText().str(), byDepth.at(0));
    EXPECT_FALSE(doc.isModified());
    while (doc.isRedoAvailable()) {
        doc.redo();
        expectSameLines(doc, byDepth.at(doc.availableUndoSteps()), "redo to " + std::to_string(doc.availableUndoSteps()));
    }
    EXPECT_EQ(doc.toPlainText().str(), final);
}

TEST(KyTextDocument, EditsAcrossLinesKeepTheLineIndexAndSignalTheChange) {
    struct Case {
        const char* name;
        bool insert;
        int position;
        const char* text; ///< inserted text
        int count;        ///< bytes to remove
        std::vector<const char*> blocks;
        std::vector<int> change; ///< position, removed, added
    } cases[] = {
        {"removal across two newlines", false, 2, "", 7, {"onhree", "four"}, {2, 7, 0}},
        {"insertion of two lines", true, 4, "a\nb\n", 0, {"one", "a", "b", "two", "three", "four"}, {4, 0, 4}},
        {"removal of whole lines", false, 4, "", 10, {"one", "four"}, {4, 10, 0}},
        {"removal of everything", false, 0, "", 99, {""}, {0, 18, 0}},
        {"newline at the end", true, 18, "\n", 0, {"one", "two", "three", "four", ""}, {18, 0, 1}},
        {"cut inside a two-byte letter takes all of it", false, 15, "", 1, {"one", "two", "three", "fur"}, {15, 2, 0}},
        {"insertion inside a letter lands before it", true, 16, "X\n", 0, {"one", "two", "three", "fX", "\xc3\xb6ur"}, {15, 0, 2}},
    };
    for (const Case& c : cases) {
        KyTextDocument doc(KyString(std::string(c.name).find("letter") != std::string::npos ? "one\ntwo\nthree\nf\xc3\xb6ur"
                                                                                               : "one\ntwo\nthree\nfour"));
        std::vector<int> change;
        int counted = -1;
        KyObject::connect(&doc, &KyTextDocument::contentsChange, [&](int p, int r, int a) { change = {p, r, a}; });
        KyObject::connect(&doc, &KyTextDocument::blockCountChanged, [&](int n) { counted = n; });
        if (c.insert) doc.insert(c.position, c.text);
        else doc.remove(c.position, c.count);
        std::string want;
        for (std::size_t i = 0; i < c.blocks.size(); ++i) want += (i ? "\n" : "") + std::string(c.blocks[i]);
        expectSameLines(doc, want, c.name);
        EXPECT_EQ(change, c.change) << c.name;
        EXPECT_EQ(counted, int(c.blocks.size()) == 4 ? -1 : int(c.blocks.size())) << c.name;
    }
}

TEST(KyTextDocument, TypingJoinsOneStepAndEditBlocksGroupTheirEdits) {
    KyTextDocument doc;
    KyTextCursor cursor(&doc);
    for (const char* key : {"a", "b", "c"}) cursor.insertText(key);
    doc.setModified(false);
    cursor.insertText("\n");
    for (const char* key : {"d", "\xc3\xa9"}) cursor.insertText(key);
    cursor.deletePreviousChar();
    cursor.deletePreviousChar();
    cursor.beginEditBlock();
    cursor.insertText("x");
    cursor.setPosition(0);
    cursor.insertText("y");
    cursor.endEditBlock();
    ASSERT_EQ(doc.toPlainText(), "yabc\nx");
    EXPECT_TRUE(doc.isModified());
    const char* const expected[] = {"abc\n", "abc\nd\xc3\xa9", "abc\n", "abc", ""};
    for (const char* text : expected) {
        doc.undo();
        EXPECT_EQ(doc.toPlainText(), text);
        EXPECT_EQ(doc.isModified(), std::string(text) != "abc") << text;
    }
    EXPECT_FALSE(doc.isUndoAvailable());
}

TEST(KyTextDocument, ALogTrimmedFromTheTopKeepsItsLinesCursorsAndASmallFootprint) {
    KyTextDocument doc;
    doc.setUndoRedoEnabled(false);
    int line = 0;
    const auto append = [&] { doc.appendPlainText(KyString::format("12:00:%02d VPN TX line %d", line % 60, line)), ++line; };
    const auto trim = [&] {
        if (doc.blockCount() <= 5100) return;
        KyTextCursor cut(&doc);
        cut.movePosition(KyTextCursor::NextBlock, KyTextCursor::KeepAnchor, doc.blockCount() - 5000);
        cut.removeSelectedText();
    };
    while (line < 5101) append();
    KyTextCursor reader(doc.findBlockByNumber(5000));
    reader.movePosition(KyTextCursor::Right, KyTextCursor::MoveAnchor, 3);
    trim();
    EXPECT_EQ(doc.blockCount(), 5000);
    EXPECT_EQ(doc.firstBlock().text(), "12:00:41 VPN TX line 101");
    EXPECT_EQ(reader.blockNumber(), 4899) << "a cursor stays on its line while lines above it go";
    EXPECT_EQ(reader.positionInBlock(), 3);
    for (int i = 0; i < 30000; ++i) {
        append();
        trim();
    }
    EXPECT_EQ(doc.lastBlock().text(), KyString::format("12:00:%02d VPN TX line %d", (line - 1) % 60, line - 1));
    EXPECT_LE(doc.blockCount(), 5100);
    EXPECT_LE(doc.pieceCount(), 4) << "appends grow the last piece";
    EXPECT_LE(doc.bufferBytes(), 2 * std::size_t(doc.length()) + (std::size_t(1) << 20)) << "dead bytes are compacted";
}

} // namespace

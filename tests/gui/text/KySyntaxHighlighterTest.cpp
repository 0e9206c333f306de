// KySyntaxHighlighter: formats land on the right bytes, later formats win,
// and an edit re-highlights only the blocks it touched and those whose state
// it changed.
#include <gtest/gtest.h>

#include <cctype>
#include <functional>
#include <vector>

#include "gui/text/KySyntaxHighlighter.h"
#include "gui/text/KyTextCursor.h"
#include "gui/text/KyTextDocument.h"

namespace {

const KyColor kStamp(127, 145, 151), kTraffic(220, 154, 84), kError(203, 102, 102), kSuccess(86, 176, 145);

// The monitor log's rules: a leading time, then whole-word keywords.
class LogHighlighter : public KySyntaxHighlighter {
public:
    using KySyntaxHighlighter::KySyntaxHighlighter;
    std::vector<int> highlighted;

protected:
    void highlightBlock(const KyString& text) override {
        highlighted.push_back(currentBlock().blockNumber());
        if (text.size() > 7 && text[2] == ':' && text[5] == ':') setFormat(0, 8, kStamp);
        for (auto [word, color] : {std::pair{"VPN TX", kTraffic}, {"ERROR", kError}, {"Disconnected", kError},
                                   {"connected", kSuccess}, {"ready", kSuccess}}) {
            const std::size_t n = std::strlen(word);
            for (std::size_t at = text.indexOf(word); at != KyString::npos; at = text.indexOf(word, at + n)) {
                const bool before = at > 0 && std::isalnum(static_cast<unsigned char>(text[at - 1]));
                const bool after = at + n < text.size() && std::isalnum(static_cast<unsigned char>(text[at + n]));
                if (!before && !after) setFormat(int(at), int(n), color);
            }
        }
        // "/*" opens a comment that runs over lines until "*/".
        int state = previousBlockState();
        if (text.contains("/*")) state = 1;
        if (text.contains("*/")) state = -1;
        setCurrentBlockState(state);
    }
};

struct Range {
    int start, length;
    KyColor color;
    bool operator==(const Range&) const = default;
};

std::vector<Range> rangesOf(const KySyntaxHighlighter& h, int block) {
    std::vector<Range> out;
    for (const KyTextFormatRange& r : h.formats(block)) out.push_back({r.start, r.length, r.format.foreground()});
    return out;
}

TEST(KySyntaxHighlighter, FormatsLandOnTheBytesTheRulesName) {
    struct Case {
        const char* line;
        std::vector<Range> ranges;
    } cases[] = {
        {"12:00:01 VPN TX 1200 bytes", {{0, 8, kStamp}, {9, 6, kTraffic}}},
        {"disconnected from peer", {}},
        {"Disconnected: ERROR", {{0, 12, kError}, {14, 5, kError}}},
        {"ready, connected", {{0, 5, kSuccess}, {7, 9, kSuccess}}},
        {"VPN TXready", {}},
        {"\xc3\xa9 ready", {{3, 5, kSuccess}}},
    };
    KyTextDocument doc;
    LogHighlighter highlighter(&doc);
    for (const Case& c : cases) {
        doc.setPlainText(c.line);
        EXPECT_EQ(rangesOf(highlighter, 0), c.ranges) << c.line;
    }
}

TEST(KySyntaxHighlighter, ALaterFormatWinsWhereItOverlaps) {
    class Layers : public KySyntaxHighlighter {
    public:
        using KySyntaxHighlighter::KySyntaxHighlighter;

    protected:
        void highlightBlock(const KyString&) override {
            setFormat(0, 10, KyColor(255, 0, 0));
            setFormat(3, 4, KyColor(0, 0, 255));
            setFormat(8, 50, KyColor(0, 255, 0));
            setFormat(2, 2, KyTextCharFormat()); // an empty format clears
        }
    };
    KyTextDocument doc(KyString("0123456789abc"));
    Layers layers(&doc);
    EXPECT_EQ(rangesOf(layers, 0), (std::vector<Range>{{0, 2, {255, 0, 0}}, {4, 3, {0, 0, 255}}, {7, 1, {255, 0, 0}},
                                                       {8, 5, {0, 255, 0}}}));
    EXPECT_EQ(layers.formatAt(0, 5).foreground(), KyColor(0, 0, 255));
    EXPECT_TRUE(layers.formatAt(0, 2).isEmpty());
}

TEST(KySyntaxHighlighter, AnEditHighlightsOnlyTheBlocksItTouchedOrWhoseStateItChanged) {
    KyTextDocument doc;
    for (int i = 0; i < 12; ++i) doc.appendPlainText(i == 2 ? "/* note" : i == 6 ? "end */" : "12:00:00 ready");
    auto* highlighter = new LogHighlighter(&doc); // the document's child
    EXPECT_EQ(highlighter->blockState(4), 1) << "the first question highlights the whole document";
    std::vector<int> signalled;
    KyObject::connect(highlighter, &KySyntaxHighlighter::blocksHighlighted, [&](int first, int last) {
        for (int k = first; k <= last; ++k) signalled.push_back(k);
    });
    using Edit = std::function<void()>;
    struct Case {
        const char* name;
        Edit edit;
        std::vector<int> blocks;
    } cases[] = {
        {"a line appended", [&] { doc.appendPlainText("12:00:01 ERROR"); }, {12}},
        {"a word typed inside a comment", [&] { doc.insert(doc.blockPosition(4) + 2, "x"); }, {4}},
        {"lines trimmed off the top", [&] {
             KyTextCursor c(&doc);
             c.movePosition(KyTextCursor::NextBlock, KyTextCursor::KeepAnchor, 2);
             c.removeSelectedText();
         }, {}},
        {"the comment's end removed", [&] { doc.remove(doc.blockPosition(4), 6); }, {4, 5, 6, 7, 8, 9, 10}},
        {"a line split in two", [&] { doc.insert(doc.blockPosition(8) + 3, "\n"); }, {8, 9}},
        {"the comment's start removed", [&] { doc.remove(doc.blockPosition(0), 7); }, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},
    };
    for (const Case& c : cases) {
        highlighter->highlighted.clear();
        signalled.clear();
        c.edit();
        EXPECT_EQ(highlighter->highlighted, c.blocks) << c.name;
        EXPECT_EQ(signalled, c.blocks) << c.name;
    }
    // Formats stay with their lines: the last line's error is still coloured.
    EXPECT_EQ(rangesOf(*highlighter, doc.blockCount() - 1), (std::vector<Range>{{0, 8, kStamp}, {9, 5, kError}}));
}

} // namespace

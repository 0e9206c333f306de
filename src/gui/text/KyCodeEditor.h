// KyCodeEditor: a plain-text editor with a line-number gutter, a tint on the
// cursor's line and the colours of a KySyntaxHighlighter.
//
// The highlighter is any one attached to the editor's document (set with
// setHighlighter; not owned): the editor paints each visible line from the
// highlighter's stored formats and repaints the lines it reports as
// re-highlighted. The gutter grows with the number of digits of the line
// count. The console's log view is a read-only code editor. GUI thread only.
#pragma once

#include "gui/text/KyPlainTextEdit.h"
#include "gui/text/KySyntaxHighlighter.h"

/// An editor with line numbers and syntax colours.
class KyCodeEditor : public KyPlainTextEdit {
    KY_OBJECT(KyCodeEditor, KyPlainTextEdit)

public:
    explicit KyCodeEditor(KyWidget* parent = nullptr);

    /// Colours the lines from highlighter (on document(); null: no colours).
    void setHighlighter(KySyntaxHighlighter* highlighter);
    KySyntaxHighlighter* highlighter() const { return highlighter_; }
    void setLineNumbersVisible(bool visible);
    bool lineNumbersVisible() const { return numbers_; }
    /// The gutter's width now.
    int lineNumberAreaWidth() const { return gutterWidth_(); }

protected:
    int gutterWidth_() const override;
    void paintGutter_(KyPainter* painter, const KyRect& rect, int first, int last) override;
    KyVector<KyTextFormatRange> blockFormats_(int block) const override;
    void paintLineBackground_(KyPainter* painter, const KyRect& line, int block) override;

private:
    int textWidthUntilDigits_(const KyString& sample) const;

    KySyntaxHighlighter* highlighter_ = nullptr;
    bool numbers_ = true;
    int currentBlock_ = -1;
};

// KyCodeEditor: the gutter, the current-line tint and the highlighter's colours.
#include "gui/text/KyCodeEditor.h"

#include <algorithm>
#include <string>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/StyleSheet.h"

namespace {
constexpr const char* kDefaultSheet =
    "KyCodeEditor { font-family: DejaVu Sans Mono; font-size: 13px; gutter-background-color: rgb(247, 248, 250);"
    " gutter-color: rgb(140, 148, 160); current-line-background-color: rgb(245, 249, 255); }";
constexpr KyColor kGutterLine{226, 229, 234};
constexpr KyColor kCurrentNumber{55, 65, 81};

KyColor sheetColour(const KyWidget* w, const char* name, KyColor fallback) {
    const KyString value = w->styleProperty(name);
    KyColor out = fallback;
    if (!value.isEmpty()) ky::gui::StyleSheet::tryParseColor_(value, out);
    return out;
}
} // namespace

KyCodeEditor::KyCodeEditor(KyWidget* parent) : KyPlainTextEdit(parent) {
    setDefaultStyleSheet(KyString(defaultStyleSheet().toStdString() + " " + kDefaultSheet));
    KyObject::connect(this, &KyPlainTextEdit::cursorPositionChanged, this, [this] {
        const int now = textCursor().blockNumber();
        if (now == currentBlock_) return;
        if (currentBlock_ >= 0) updateBlocks_(currentBlock_, currentBlock_);
        currentBlock_ = now;
        updateBlocks_(now, now);
    });
    // More digits widen the gutter and move every line's text.
    KyObject::connect(document(), &KyTextDocument::blockCountChanged, this, [this](int) { update(); });
}

void KyCodeEditor::setHighlighter(KySyntaxHighlighter* highlighter) {
    if (highlighter_) KyObject::disconnect(highlighter_, this);
    highlighter_ = highlighter && highlighter->document() == document() ? highlighter : nullptr;
    if (highlighter_) {
        KyObject::connect(highlighter_, &KySyntaxHighlighter::blocksHighlighted, this,
                          [this](int first, int last) { updateBlocks_(first, last); }, KyObject::ConnectionDirect);
        KyObject::connect(highlighter_, &KyObject::destroyed, this, [this] { highlighter_ = nullptr; },
                          KyObject::ConnectionDirect);
    }
    update();
}

void KyCodeEditor::setLineNumbersVisible(bool visible) {
    numbers_ = visible;
    update();
}

int KyCodeEditor::gutterWidth_() const {
    if (!numbers_) return 0;
    const int digits = std::max(3, static_cast<int>(std::to_string(document()->blockCount()).size()));
    const KyString sample(std::string(digits, '9'));
    return textWidthUntilDigits_(sample) + 20;
}

int KyCodeEditor::textWidthUntilDigits_(const KyString& sample) const {
    return KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), sample, textFont_(), sample.size(),
                                                   static_cast<int>(sample.size()) * 8);
}

void KyCodeEditor::paintGutter_(KyPainter* painter, const KyRect& rect, int first, int last) {
    const KyColor fill = sheetColour(this, "gutter-background-color", KyColor(247, 248, 250));
    const KyColor text = sheetColour(this, "gutter-color", KyColor(140, 148, 160));
    painter->fillRect(rect, fill, fill, 0);
    const KyColor edge = sheetColour(this, "gutter-border-color", kGutterLine);
    const KyColor currentText = sheetColour(this, "gutter-current-color", kCurrentNumber);
    painter->drawLine(rect.x + rect.width - 1, rect.y, rect.x + rect.width - 1, rect.y + rect.height - 1, edge, 1);
    const int lh = lineHeight();
    const int current = textCursor().blockNumber();
    const KyFont font = textFont_();
    for (int block = first; block <= last; ++block) {
        const KyRect line{rect.x, contentRowTop_(block), rect.width - 10, lh};
        painter->drawText(line, KyString(std::to_string(block + 1)), DrawTextFormat::AlignRight | DrawTextFormat::AlignVCenter,
                          block == current ? currentText : text, font);
    }
}

KyVector<KyTextFormatRange> KyCodeEditor::blockFormats_(int block) const {
    if (!highlighter_) return {};
    return highlighter_->formats(block);
}

void KyCodeEditor::paintLineBackground_(KyPainter* painter, const KyRect& line, int block) {
    if (block != textCursor().blockNumber() || textCursor().hasSelection() || (isReadOnly() && !hasFocus())) return;
    const KyColor tint = sheetColour(this, "current-line-background-color", KyColor(245, 249, 255));
    painter->fillRect(line, tint, tint, 0);
}

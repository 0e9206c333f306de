// KyPlainTextEdit: line geometry, following the end, painting visible lines
// with their formats and the selection, and the editing keys.
#include "gui/text/KyPlainTextEdit.h"

#include <algorithm>
#include <cmath>

#include "gui/platform/KyGuiApplication.h"
#include "gui/platform/KyPainter.h"
#include "gui/platform/KyPlatformIntegration.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"
#include "gui/widgets/StyleSheet.h"

namespace {
enum Key : int {
    kKeyHome = 0xff50, kKeyLeft = 0xff51, kKeyUp = 0xff52, kKeyRight = 0xff53, kKeyDown = 0xff54,
    kKeyPageUp = 0xff55, kKeyPageDown = 0xff56, kKeyEnd = 0xff57, kKeyReturn = 0xff0d, kKeyEnter = 0xff8d,
    kKeyBackSpace = 0xff08, kKeyDelete = 0xffff, kKeyTab = 0xff09,
};
constexpr int kTextMargin = 8;
constexpr int kFallbackCharWidth = 7;
constexpr const char* kDefaultSheet =
    "KyPlainTextEdit { background-color: rgb(255, 255, 255); border-color: rgb(209, 213, 219); border-width: 1px;"
    " color: rgb(30, 30, 30); font-size: 13px; selection-background-color: rgb(204, 228, 247);"
    " selection-color: rgb(18, 18, 18); caret-color: rgb(0, 120, 215); }"
    " KyPlainTextEdit:focus { border-color: rgb(0, 120, 215); }"
    " KyPlainTextEdit:disabled { color: rgb(150, 150, 150); background-color: rgb(248, 248, 248); }";

KyColor sheetColour(const KyWidget* w, const char* name, KyColor fallback) {
    const KyString value = w->styleProperty(name);
    KyColor out = fallback;
    if (!value.isEmpty()) ky::gui::StyleSheet::tryParseColor_(value, out);
    return out;
}
} // namespace

KyPlainTextEdit::KyPlainTextEdit(KyWidget* parent) : KyAbstractScrollArea(parent) {
    setDefaultStyleSheet(kDefaultSheet);
    setFocusPolicy(StrongFocus);
    setCursor(IBeamCursor);
    setDocument(nullptr);
}

KyPlainTextEdit::~KyPlainTextEdit() {
    cursor_ = KyTextCursor();
    if (document_ && document_ != ownDocument_) KyObject::disconnect(document_, this);
}

void KyPlainTextEdit::setDocument(KyTextDocument* document) {
    if (!document) {
        if (!ownDocument_) ownDocument_ = new KyTextDocument(this);
        document = ownDocument_;
    }
    if (document == document_) return;
    if (document_) KyObject::disconnect(document_, this);
    attachDocument_(document);
}

void KyPlainTextEdit::attachDocument_(KyTextDocument* document) {
    document_ = document;
    cursor_ = KyTextCursor(document_);
    xOffset_ = 0;
    using D = KyTextDocument;
    KyObject::connect(document_, &D::contentsChange, this, [this](int p, int r, int a) { onContentsChange_(p, r, a); },
                      KyObject::ConnectionDirect);
    KyObject::connect(document_, &D::destroyed, this, [this] {
        // The editor's own document goes with the editor; a shared one that
        // goes first leaves the editor on a fresh document of its own.
        if (document_ == ownDocument_) {
            ownDocument_ = document_ = nullptr;
            return;
        }
        document_ = nullptr;
        setDocument(nullptr);
    }, KyObject::ConnectionDirect);
    following_ = true;
    setVerticalValue(0);
    updateContentHeight_();
    update();
}

void KyPlainTextEdit::setPlainText(const KyString& text) {
    document_->setPlainText(text);
    following_ = true;
    xOffset_ = 0;
    setVerticalValue(0);
    update();
}

void KyPlainTextEdit::appendPlainText(const KyString& text) {
    // Decided before the append: the reader who is at the end stays there.
    const bool follow = following_ || verticalValue() >= verticalMaximum();
    appending_ = true;
    document_->appendPlainText(text);
    appending_ = false;
    if (follow) {
        following_ = true;
        setVerticalValue(verticalMaximum());
    }
}

void KyPlainTextEdit::setReadOnly(bool readOnly) {
    if (readOnly == readOnly_) return;
    readOnly_ = readOnly;
    setCursor(readOnly ? ArrowCursor : IBeamCursor);
    update();
}

// Geometry.

KyFont KyPlainTextEdit::textFont_() const { return resolveStyledFont(); }

int KyPlainTextEdit::lineHeight() const {
    const KyFont f = textFont_();
    const int px = f.pixelSize > 0 ? f.pixelSize : std::max(6, f.pointSize * 96 / 72);
    return std::max(10, static_cast<int>(std::lround(px * 1.5)));
}

int KyPlainTextEdit::textLeft_() const { return viewportRect().x + gutterWidth_() + kTextMargin - xOffset_; }

int KyPlainTextEdit::textViewWidth_() const {
    return std::max(1, viewportRect().width - gutterWidth_() - 2 * kTextMargin);
}

void KyPlainTextEdit::setHorizontalOffset_(int x) {
    // Only the lines in view bound the scroll: measuring all of a long log
    // on every turn would cost what its visible lines are spared.
    int widest = 0;
    const int first = firstVisibleBlock();
    const int last = std::min(document_->blockCount() - 1, first + visibleLineCount());
    for (int block = first; block <= last; ++block) {
        const KyString text = document_->blockText(block);
        widest = std::max(widest, textWidth_(text, static_cast<int>(text.size())));
    }
    // Room for the caret after the last character.
    x = std::clamp(x, 0, std::max(0, widest + 2 - textViewWidth_()));
    if (x == xOffset_) return;
    xOffset_ = x;
    update();
}

void KyPlainTextEdit::ensureCursorColumnVisible_() {
    // Before the first layout there is no view to scroll.
    if (viewportRect().width <= gutterWidth_() + 2 * kTextMargin) return;
    const int block = cursor_.blockNumber();
    const int caret = textWidth_(document_->blockText(block), cursor_.position() - document_->blockPosition(block));
    const int width = textViewWidth_();
    // A jump leaves a quarter of the view of context on the side it came from.
    if (caret < xOffset_) setHorizontalOffset_(caret - width / 4);
    else if (caret + 2 > xOffset_ + width) setHorizontalOffset_(caret + 2 - width + width / 4);
}

void KyPlainTextEdit::wheelEvent(WheelEvent* event) {
    if (!isEnabled() || !event->shift()) return KyAbstractScrollArea::wheelEvent(event);
    int notches = event->delta() / 120;
    if (notches == 0 && event->delta() != 0) notches = event->delta() > 0 ? 1 : -1;
    const int before = xOffset_;
    setHorizontalOffset_(xOffset_ - notches * 3 * lineHeight());
    if (xOffset_ == before) event->ignore();
    else event->accept();
}

int KyPlainTextEdit::firstVisibleBlock() const { return verticalValue() / lineHeight(); }

int KyPlainTextEdit::visibleLineCount() const { return std::max(1, viewportRect().height / lineHeight()); }

int KyPlainTextEdit::textWidth_(const KyString& text, int bytes) const {
    if (bytes <= 0) return 0;
    return KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), text, textFont_(), static_cast<std::size_t>(bytes),
                                                   static_cast<int>(text.size()) * kFallbackCharWidth);
}

void KyPlainTextEdit::viewportResized_() {
    if (following_) setVerticalValue(verticalMaximum());
    if (xOffset_ > 0) setHorizontalOffset_(xOffset_);
}

void KyPlainTextEdit::scrollContentsBy_(int dy) {
    // Only the reader moves the view away from the end; an append that
    // follows lands on the new maximum again.
    following_ = verticalValue() >= verticalMaximum();
    KyAbstractScrollArea::scrollContentsBy_(dy);
    // Lines scrolled away may have been all that needed the sideways scroll.
    if (xOffset_ > 0) setHorizontalOffset_(xOffset_);
}

int KyPlainTextEdit::positionAt(const KyPoint& point) const {
    const KyRect vp = viewportRect();
    const int y = std::clamp(point.y, vp.y, vp.y + std::max(0, vp.height - 1));
    const int block = std::clamp(contentRowAt_(y), 0, document_->blockCount() - 1);
    const KyString text = document_->blockText(block);
    const std::size_t column = KyWidgetPlatformAdapter::characterIndexAtPosition(
        nativeHandle(), text, textFont_(), point.x - textLeft_(), kFallbackCharWidth);
    return document_->blockPosition(block) + static_cast<int>(std::min(column, text.size()));
}

KyRect KyPlainTextEdit::cursorRect(int position) const {
    const int block = document_->blockNumberAt(position);
    const int column = position - document_->blockPosition(block);
    const int x = textLeft_() + textWidth_(document_->blockText(block), column);
    return {x, contentRowTop_(block) + 2, 1, lineHeight() - 4};
}

void KyPlainTextEdit::updateBlocks_(int first, int last) {
    const KyRect vp = viewportRect();
    const int top = contentRowTop_(first);
    const int bottom = contentRowTop_(last + 1);
    updateRect(KyRect(vp.x, top, vp.width, bottom - top).intersected(vp));
}

// Document changes.

void KyPlainTextEdit::onContentsChange_(int position, int removed, int added) {
    const int oldMax = verticalMaximum();
    const int oldValue = verticalValue();
    updateContentHeight_();
    const int first = document_->blockNumberAt(position);
    const bool linesMoved = document_->text(position, added).toStdString().find('\n') != std::string::npos ||
                            removed > 0;
    if (appending_ && !following_ && oldValue == verticalValue()) {
        // An append behind a reader who scrolled up changes nothing in view
        // unless the last line shows.
        if (first <= firstVisibleBlock() + visibleLineCount()) updateBlocks_(first, first + visibleLineCount() + 1);
    } else if (linesMoved) {
        updateBlocks_(first, firstVisibleBlock() + visibleLineCount() + 1);
    } else {
        updateBlocks_(first, first);
    }
    (void)oldMax;
    if (xOffset_ > 0) setHorizontalOffset_(xOffset_);
    textChanged();
    cursorMoved_(false);
}

void KyPlainTextEdit::cursorMoved_(bool keepVisible) {
    const int position = cursor_.position(), anchor = cursor_.anchor();
    if (position == lastCursorPosition_ && anchor == lastAnchor_) {
        if (keepVisible) ensureCursorVisible(), ensureCursorColumnVisible_();
        return;
    }
    const int was = std::min({lastCursorPosition_, lastAnchor_, position, anchor});
    const int is = std::max({lastCursorPosition_, lastAnchor_, position, anchor});
    const bool selectionMoved = anchor != lastAnchor_ || (lastAnchor_ != lastCursorPosition_) || position != anchor;
    lastCursorPosition_ = position;
    lastAnchor_ = anchor;
    updateBlocks_(document_->blockNumberAt(was), document_->blockNumberAt(is));
    if (keepVisible) ensureCursorVisible(), ensureCursorColumnVisible_();
    cursorPositionChanged();
    if (selectionMoved) selectionChanged();
}

// Cursor and clipboard.

void KyPlainTextEdit::setTextCursor(const KyTextCursor& cursor) {
    if (cursor.document() != document_) return;
    cursor_.setPosition(cursor.anchor());
    cursor_.setPosition(cursor.position(), KyTextCursor::KeepAnchor);
    cursorMoved_(false);
}

void KyPlainTextEdit::moveCursor(KyTextCursor::MoveOperation op, KyTextCursor::MoveMode mode) {
    cursor_.movePosition(op, mode);
    cursorMoved_(true);
}

void KyPlainTextEdit::ensureCursorVisible() { ensureContentRowVisible_(cursor_.blockNumber()); }

void KyPlainTextEdit::selectAll() {
    cursor_.select(KyTextCursor::Document);
    cursorMoved_(false);
}

void KyPlainTextEdit::copy() {
    if (!cursor_.hasSelection()) return;
    if (KyGuiApplication* app = KyGuiApplication::instance())
        if (KyPlatformIntegration* platform = app->platformIntegration())
            platform->setClipboardText(cursor_.selectedText());
}

void KyPlainTextEdit::cut() {
    if (readOnly_ || !cursor_.hasSelection()) return;
    copy();
    cursor_.removeSelectedText();
    cursorMoved_(true);
}

void KyPlainTextEdit::paste() {
    if (readOnly_) return;
    KyGuiApplication* app = KyGuiApplication::instance();
    KyPlatformIntegration* platform = app ? app->platformIntegration() : nullptr;
    if (!platform) return;
    const KyString text = platform->clipboardText();
    if (text.isEmpty()) return;
    cursor_.insertText(text);
    cursorMoved_(true);
}

void KyPlainTextEdit::undo() {
    if (readOnly_) return;
    const int at = document_->undo();
    if (at >= 0) cursor_.setPosition(at), cursorMoved_(true);
}

void KyPlainTextEdit::redo() {
    if (readOnly_) return;
    const int at = document_->redo();
    if (at >= 0) cursor_.setPosition(at), cursorMoved_(true);
}

void KyPlainTextEdit::insertTyped_(const KyString& text) {
    cursor_.insertText(text);
    cursorMoved_(true);
}

// Painting.

void KyPlainTextEdit::paintEvent(PaintEvent* event) {
    KyPainter* painter = event->painter();
    if (!painter || !isVisibleInHierarchy()) return;
    paintOwnBox_(painter);
    const KyRect vp = viewportRect();
    const KyRect clip = event->rect().intersected(vp);
    if (!clip.isEmpty()) {
        const int lh = lineHeight();
        const auto [first, last] = contentRowsIn_(clip);
        painter->pushClipRect(clip);
        if (gutterWidth_() > 0) paintGutter_(painter, {vp.x, vp.y, gutterWidth_(), vp.height}, first, last);
        painter->pushClipRect({vp.x + gutterWidth_(), vp.y, std::max(0, vp.width - gutterWidth_()), vp.height});
        const int selStart = cursor_.selectionStart(), selEnd = cursor_.selectionEnd();
        for (int block = first; block <= last; ++block)
            paintLine_(painter, block, {vp.x + gutterWidth_(), contentRowTop_(block),
                                        vp.width - gutterWidth_(), lh}, selStart, selEnd);
        painter->popClipRect();
        painter->popClipRect();
    }
    paintChildren_(painter, event->rect());
}

void KyPlainTextEdit::paintLine_(KyPainter* painter, int block, const KyRect& line, int selStart, int selEnd) {
    paintLineBackground_(painter, line, block);
    const KyString text = document_->blockText(block);
    const int start = document_->blockPosition(block);
    const int length = static_cast<int>(text.size());
    const int x0 = textLeft_();
    const KyFont font = textFont_();
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    const KyColor base = s.hasTextColor ? s.textColor : KyColor(30, 30, 30);
    // The selection covers its part of the line, and the newline as a
    // little extra width when it runs on to the next line.
    const int a = std::clamp(selStart - start, 0, length + 1), b = std::clamp(selEnd - start, 0, length + 1);
    if (selStart != selEnd && b > a) {
        const KyColor sel = sheetColour(this, "selection-background-color", KyColor(204, 228, 247));
        const int left = x0 + textWidth_(text, a);
        const int right = x0 + textWidth_(text, std::min(b, length)) + (b > length ? 6 : 0);
        painter->fillRect({left, line.y, std::max(1, right - left), line.height}, sel, sel, 0);
    }
    if (length > 0) {
        const KyVector<KyTextFormatRange> formats = blockFormats_(block);
        const KyFlagSet<DrawTextFormat> align = DrawTextFormat::AlignVCenter;
        const int rightEdge = line.x + line.width;
        if (formats.empty()) {
            painter->drawText({x0, line.y, std::max(0, rightEdge - x0), line.height}, text, align, base, font);
        } else {
            // Runs between format edges, each placed where the one before
            // ended in its own font (a bold run is wider than plain text).
            int at = 0;
            int x = x0;
            auto drawRun = [&](int from, int to, const KyTextCharFormat* format) {
                if (to <= from || x >= rightEdge) return;
                KyFont f = font;
                KyColor colour = base;
                if (format) {
                    if (format->hasForeground()) colour = format->foreground();
                    if (format->hasFontWeight()) f.weight = format->fontWeight();
                    if (format->hasFontItalic()) f.italic = format->fontItalic();
                }
                const KyString run(text.toStdString().substr(from, to - from));
                const int w = KyWidgetPlatformAdapter::textWidthUntil(nativeHandle(), run, f, run.size(),
                                                                      static_cast<int>(run.size()) * kFallbackCharWidth);
                if (format && format->hasBackground())
                    painter->fillRect({x, line.y + 1, w, line.height - 2}, format->background(), format->background(), 0);
                painter->drawText({x, line.y, std::max(0, rightEdge - x), line.height}, run, align, colour, f);
                x += w;
            };
            for (const KyTextFormatRange& r : formats) {
                const int from = std::clamp(r.start, 0, length), to = std::clamp(r.end(), 0, length);
                if (from < at) continue;
                drawRun(at, from, nullptr);
                drawRun(from, to, &r.format);
                at = std::max(at, to);
            }
            drawRun(at, length, nullptr);
        }
    }
    const int position = cursor_.position();
    if (!readOnly_ && hasFocus() && position >= start && position <= start + length) {
        const KyColor caret = sheetColour(this, "caret-color", KyColor(0, 120, 215));
        const int x = x0 + textWidth_(text, position - start);
        painter->fillRect({x, line.y + 2, 1, line.height - 4}, caret, caret, 0);
    }
}

// Input.

void KyPlainTextEdit::on_Focus_changed(const bool& value) {
    KyAbstractScrollArea::on_Focus_changed(value);
    updateBlocks_(cursor_.blockNumber(), cursor_.blockNumber());
}

void KyPlainTextEdit::viewportMousePressEvent(MouseEvent* event) {
    requestFocus();
    event->accept();
    if (event->button() != 1) return;
    const int position = positionAt(event->pos());
    cursor_.setPosition(position, event->shift() ? KyTextCursor::KeepAnchor : KyTextCursor::MoveAnchor);
    selecting_ = true;
    cursorMoved_(false);
}

void KyPlainTextEdit::viewportMouseMoveEvent(MouseEvent* event) {
    event->accept();
    if (!selecting_) return;
    // Dragging past the top or the bottom scrolls a line at a time.
    const KyRect vp = viewportRect();
    if (event->y() < vp.y) setVerticalValue(verticalValue() - lineHeight());
    else if (event->y() >= vp.y + vp.height) setVerticalValue(verticalValue() + lineHeight());
    // Past either side the lines move under the pointer, a step per move.
    if (event->x() < vp.x + gutterWidth_()) setHorizontalOffset_(xOffset_ - lineHeight());
    else if (event->x() >= vp.x + vp.width) setHorizontalOffset_(xOffset_ + lineHeight());
    cursor_.setPosition(positionAt(event->pos()), KyTextCursor::KeepAnchor);
    cursorMoved_(false);
}

void KyPlainTextEdit::viewportMouseReleaseEvent(MouseEvent* event) {
    event->accept();
    selecting_ = false;
}

void KyPlainTextEdit::viewportMouseDoubleClickEvent(MouseEvent* event) {
    event->accept();
    cursor_.setPosition(positionAt(event->pos()));
    cursor_.select(KyTextCursor::WordUnderCursor);
    cursorMoved_(false);
}

void KyPlainTextEdit::keyPressEvent(KeyEvent* event) {
    if (!isEnabled()) return event->ignore();
    using C = KyTextCursor;
    const C::MoveMode mode = event->shift() ? C::KeepAnchor : C::MoveAnchor;
    const bool ctrl = event->ctrl();
    const int key = event->keyCode();
    auto move = [&](C::MoveOperation op, int n = 1) {
        cursor_.movePosition(op, mode, n);
        cursorMoved_(true);
    };
    if (ctrl && !event->alt() && key >= 'a' - 32 && key <= 'z') {
        switch (key | 0x20) {
        case 'a': selectAll(); return event->accept();
        case 'c': copy(); return event->accept();
        case 'x': cut(); return event->accept();
        case 'v': paste(); return event->accept();
        case 'z': event->shift() ? redo() : undo(); return event->accept();
        case 'y': redo(); return event->accept();
        default: break;
        }
    }
    switch (key) {
    case kKeyLeft: move(ctrl ? C::PreviousWord : C::Left); return event->accept();
    case kKeyRight: move(ctrl ? C::NextWord : C::Right); return event->accept();
    case kKeyUp:
        if (ctrl) return setVerticalValue(verticalValue() - lineHeight()), event->accept();
        move(C::Up);
        return event->accept();
    case kKeyDown:
        if (ctrl) return setVerticalValue(verticalValue() + lineHeight()), event->accept();
        move(C::Down);
        return event->accept();
    case kKeyHome: move(ctrl ? C::Start : C::StartOfLine); return event->accept();
    case kKeyEnd: move(ctrl ? C::End : C::EndOfLine); return event->accept();
    case kKeyPageUp:
        // Ctrl+Page Up and Down belong to the window (tabs, for one).
        if (ctrl) return event->ignore();
        setVerticalValue(verticalValue() - verticalPageStep());
        move(C::Up, visibleLineCount());
        return event->accept();
    case kKeyPageDown:
        if (ctrl) return event->ignore();
        setVerticalValue(verticalValue() + verticalPageStep());
        move(C::Down, visibleLineCount());
        return event->accept();
    default: break;
    }
    if (readOnly_) return event->ignore();
    switch (key) {
    case kKeyBackSpace: cursor_.deletePreviousChar(); cursorMoved_(true); return event->accept();
    case kKeyDelete: cursor_.deleteChar(); cursorMoved_(true); return event->accept();
    case kKeyReturn:
    case kKeyEnter: insertTyped_(KyString("\n")); return event->accept();
    case kKeyTab: if (ctrl) return event->ignore(); insertTyped_(KyString("\t")); return event->accept();
    default: break;
    }
    if (event->hasText() && !ctrl && event->text() >= 0x20) {
        insertTyped_(KyString::fromWString(std::wstring(1, event->text())));
        return event->accept();
    }
    event->ignore();
}

// KyPlainTextEdit: a scrolling view and editor of a KyTextDocument, one line
// per block, with a cursor, a selection, the clipboard and undo.
//
// The editor paints only the blocks that meet the damage, so a log of many
// thousands of lines costs what its visible lines cost. Used read-only it is
// a log view: appendPlainText follows the end while the reader is at the
// bottom and leaves the view alone once the reader scrolled up, until the
// reader comes back down. A line wider than the view scrolls sideways: the
// view follows the cursor the user moves (End shows a long line's end, a drag
// past a side scrolls), Shift+wheel moves it, and appends leave it. Keyboard: arrows, Home, End, pages (Shift extends,
// Ctrl goes by word or to the document's ends), Ctrl+A, Ctrl+C; when
// editable also typing, Backspace, Delete, Return, Ctrl+X, Ctrl+V, Ctrl+Z,
// Ctrl+Y. Subclasses add a gutter (KyCodeEditor) and per-block formats
// (KyTextEdit, highlighters) through the protected hooks. GUI thread only.
#pragma once

#include "core/types/KyVector.h"
#include "gui/text/KyTextCharFormat.h"
#include "gui/text/KyTextCursor.h"
#include "gui/text/KyTextDocument.h"
#include "gui/widgets/KyAbstractScrollArea.h"

/// A plain-text editor and log view over a text document.
class KyPlainTextEdit : public KyAbstractScrollArea {
    KY_OBJECT(KyPlainTextEdit, KyAbstractScrollArea)

public:
    explicit KyPlainTextEdit(KyWidget* parent = nullptr);
    ~KyPlainTextEdit() override;

    KyTextDocument* document() const { return document_; }
    /// Shows document (not owned; null: a fresh document of the editor's own).
    void setDocument(KyTextDocument* document);
    void setPlainText(const KyString& text);
    KyString toPlainText() const { return document_->toPlainText(); }
    /// Adds text as new last line(s); follows the end when the view is at it.
    void appendPlainText(const KyString& text);
    void clear() { setPlainText(KyString()); }

    void setReadOnly(bool readOnly);
    bool isReadOnly() const { return readOnly_; }

    KyTextCursor textCursor() const { return cursor_; }
    /// Takes cursor's position and selection (on this editor's document).
    void setTextCursor(const KyTextCursor& cursor);
    void moveCursor(KyTextCursor::MoveOperation op, KyTextCursor::MoveMode mode = KyTextCursor::MoveAnchor);
    /// Scrolls up or down the least that shows the cursor's line. The
    /// sideways place is the reader's: only the user's own cursor moves
    /// change it.
    void ensureCursorVisible();
    void selectAll();
    void copy();
    void cut();
    void paste();
    void undo();
    void redo();

    /// The first line the viewport shows.
    int firstVisibleBlock() const;
    /// How many whole lines fit the viewport.
    int visibleLineCount() const;
    /// Whether appends keep the last line in view (the view is at the end).
    bool isFollowingEnd() const { return following_; }
    int lineHeight() const;
    /// The block under y and the byte position in it under x (local).
    int positionAt(const KyPoint& point) const;
    /// The caret's rectangle for position (local).
    KyRect cursorRect(int position) const;
    /// How far the lines are scrolled sideways, in pixels (0: their starts show).
    int horizontalOffset() const { return xOffset_; }

    KY_SIGNAL(textChanged)
    KY_SIGNAL(cursorPositionChanged)
    KY_SIGNAL(selectionChanged)

    void paintEvent(PaintEvent* event) override;
    void keyPressEvent(KeyEvent* event) override;
    void on_Focus_changed(const bool& value) override;
    void wheelEvent(WheelEvent* event) override;

protected:
    void viewportMousePressEvent(MouseEvent* event) override;
    void viewportMouseMoveEvent(MouseEvent* event) override;
    void viewportMouseReleaseEvent(MouseEvent* event) override;
    void viewportMouseDoubleClickEvent(MouseEvent* event) override;
    void viewportResized_() override;
    void scrollContentsBy_(int dy) override;
    int contentRowCount_() const override { return document_->blockCount(); }
    int contentRowHeight_() const override { return lineHeight(); }
    /// A small margin keeps the last line clear of the frame.
    int contentBottomMargin_() const override { return 4; }

    /// Width kept left of the text (line numbers).
    virtual int gutterWidth_() const { return 0; }
    /// Paints the gutter for lines first..last into rect (local).
    virtual void paintGutter_(KyPainter*, const KyRect&, int, int) {}
    /// The formats of block n's text, in order; none by default.
    virtual KyVector<KyTextFormatRange> blockFormats_(int) const { return {}; }
    /// The panel behind line n (the current line of a code editor).
    virtual void paintLineBackground_(KyPainter*, const KyRect&, int) {}
    /// The x (local) where line text starts.
    int textLeft_() const;
    KyFont textFont_() const;
    /// Repaints blocks first..last where they show.
    void updateBlocks_(int first, int last);
    void cursorMoved_(bool keepVisible);

private:
    void attachDocument_(KyTextDocument* document);
    void onContentsChange_(int position, int removed, int added);
    int textWidth_(const KyString& text, int bytes) const;
    void paintLine_(KyPainter* painter, int block, const KyRect& line, int selStart, int selEnd);
    void insertTyped_(const KyString& text);
    /// Width the text has between the gutter and the right margin.
    int textViewWidth_() const;
    /// Scrolls sideways to x, kept between 0 and what the widest line in view needs.
    void setHorizontalOffset_(int x);
    /// Scrolls sideways the least that shows the cursor.
    void ensureCursorColumnVisible_();

    KyTextDocument* document_ = nullptr;
    KyTextDocument* ownDocument_ = nullptr;
    KyTextCursor cursor_;
    bool readOnly_ = false;
    bool following_ = true;
    bool selecting_ = false;
    bool appending_ = false;
    int lastCursorPosition_ = 0;
    int lastAnchor_ = 0;
    int xOffset_ = 0;
};

// KyTextEdit: a plain-text editor whose characters carry formats (colour,
// background, weight, italics, underline).
//
// Formats are kept as runs over document positions, moved with every edit:
// text typed or appended takes the current character format, an edit inside
// a run widens or shrinks it, removed text takes its runs along. A format
// merged onto the selection splits the runs at its edges. The text itself
// stays the document's plain text, so searching, the clipboard and undo
// work as in the plain editor (undo restores the text, not the formats of
// removed characters). GUI thread only.
#pragma once

#include "gui/text/KyPlainTextEdit.h"

/// A text editor with character formats.
class KyTextEdit : public KyPlainTextEdit {
    KY_OBJECT(KyTextEdit, KyPlainTextEdit)

public:
    explicit KyTextEdit(KyWidget* parent = nullptr);

    /// The format typed and appended text takes from now on.
    void setCurrentCharFormat(const KyTextCharFormat& format) { current_ = format; }
    const KyTextCharFormat& currentCharFormat() const { return current_; }
    /// Merges format onto the selected characters (and makes it current).
    void mergeCharFormat(const KyTextCharFormat& format);
    /// Appends text as new line(s) in format, following the end as appendPlainText does.
    void append(const KyString& text, const KyTextCharFormat& format);
    /// The format of the character at position (empty where none is set).
    KyTextCharFormat charFormatAt(int position) const;

protected:
    KyVector<KyTextFormatRange> blockFormats_(int block) const override;

private:
    void onContentsChange_(int position, int removed, int added);
    void applyFormat_(int start, int end, const KyTextCharFormat& format, bool merge);

    /// Sorted, disjoint runs in document positions.
    KyVector<KyTextFormatRange> runs_;
    KyTextCharFormat current_;
};

// KyTextDocument: edits on the piece table, the undo history, and the
// notices to cursors, highlighters and listeners.
#include "gui/text/KyTextDocument.h"

#include <algorithm>
#include <cstdint>

#include "gui/text/KySyntaxHighlighter.h"
#include "gui/text/KyTextCursor.h"

namespace {

constexpr std::size_t kCompactionSlack = std::size_t(1) << 20;

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

std::size_t sequenceLength(char lead) {
    const unsigned char b = static_cast<unsigned char>(lead);
    return b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
}

// Inserted bytes that are not UTF-8 become U+FFFD, so every position the
// document hands out can be aligned by looking at most three bytes back.
std::string cleanUtf8(std::string_view text) {
    if (KyString::isValidUtf8(text)) return std::string(text);
    return KyString::fromUtf32(KyString(text).toUtf32()).toStdString();
}

// One code point, not a newline: a keystroke that may join the one before.
bool isKeystroke(const std::string& text) {
    return !text.empty() && text != "\n" && sequenceLength(text[0]) == text.size();
}

} // namespace

KyTextDocument::HistoryNotice_::HistoryNotice_(KyTextDocument* doc)
    : d(doc), undo(doc->isUndoAvailable()), redo(doc->isRedoAvailable()) {}

KyTextDocument::HistoryNotice_::~HistoryNotice_() {
    d->updateModified_();
    if (undo != d->isUndoAvailable()) d->undoAvailable(d->isUndoAvailable());
    if (redo != d->isRedoAvailable()) d->redoAvailable(d->isRedoAvailable());
}

KyTextDocument::KyTextDocument(KyObject* parent) : KyObject(parent) {}

KyTextDocument::KyTextDocument(const KyString& text, KyObject* parent) : KyObject(parent) {
    table_.reset(cleanUtf8(text.view()));
}

KyTextDocument::~KyTextDocument() {
    for (ky::detail::TextCursorData* c : cursors_) c->document = nullptr;
    cursors_.clear();
    const std::vector<KySyntaxHighlighter*> highlighters = std::move(highlighters_);
    for (KySyntaxHighlighter* h : highlighters) h->documentGone_();
}

// ---- Reading ----

KyString KyTextDocument::toPlainText() const { return KyString(table_.toString()); }

KyString KyTextDocument::text(int position, int count) const {
    if (position < 0) count += position, position = 0;
    if (count <= 0) return KyString();
    return KyString(table_.text(std::size_t(position), std::size_t(count)));
}

char KyTextDocument::byteAt(int position) const {
    return position >= 0 && position < length() ? table_.byteAt(std::size_t(position)) : '\0';
}

int KyTextDocument::blockNumberAt(int position) const {
    position = std::clamp(position, 0, length());
    return static_cast<int>(table_.newlinesBefore(std::size_t(position)));
}

int KyTextDocument::blockPosition(int n) const {
    if (n < 0 || n >= blockCount()) return -1;
    return n == 0 ? 0 : static_cast<int>(table_.newlinePosition(std::size_t(n - 1))) + 1;
}

int KyTextDocument::blockLength(int n) const {
    const int start = blockPosition(n);
    if (start < 0) return 0;
    const int end = n + 1 < blockCount() ? static_cast<int>(table_.newlinePosition(std::size_t(n))) : length();
    return end - start;
}

KyString KyTextDocument::blockText(int n) const {
    const int start = blockPosition(n);
    return start < 0 ? KyString() : text(start, blockLength(n));
}

int KyTextDocument::newlinesIn_(int position, int count) const {
    return static_cast<int>(table_.newlinesBefore(std::size_t(position + count)) -
                            table_.newlinesBefore(std::size_t(position)));
}

int KyTextDocument::alignToCodePoint(int position) const {
    const int len = length();
    position = std::clamp(position, 0, len);
    // The text is valid UTF-8: at most three continuation bytes in a row.
    for (int steps = 0; steps < 3 && position > 0 && position < len && isContinuation(byteAt(position)); ++steps)
        --position;
    return position;
}

int KyTextDocument::nextCodePoint(int position) const {
    position = alignToCodePoint(position);
    const int len = length();
    if (position >= len) return len;
    return std::min(len, position + static_cast<int>(sequenceLength(byteAt(position))));
}

int KyTextDocument::previousCodePoint(int position) const {
    position = alignToCodePoint(position);
    if (position <= 0) return 0;
    return alignToCodePoint(position - 1);
}

// ---- Editing ----

bool KyTextDocument::insert(int position, const KyString& text) {
    HistoryNotice_ notice(this);
    return insert_(position, text.view(), true);
}

bool KyTextDocument::remove(int position, int count) {
    HistoryNotice_ notice(this);
    return remove_(position, count, true);
}

void KyTextDocument::appendPlainText(const KyString& text) {
    HistoryNotice_ notice(this);
    beginEditBlock();
    if (isEmpty()) insert_(0, text.view(), true);
    else insert_(length(), "\n" + text.str(), true);
    endEditBlock();
}

void KyTextDocument::setPlainText(const KyString& text) {
    HistoryNotice_ notice(this);
    std::string clean = cleanUtf8(text.view());
    if (clean.size() > std::size_t(kMaxLength)) clean = KyString(std::move(clean)).truncatedUtf8(kMaxLength).str();
    const int oldLength = length();
    const int oldBlocks = blockCount();
    table_.reset(std::move(clean));
    undo_.clear();
    redo_.clear();
    editStepOpen_ = false;
    for (ky::detail::TextCursorData* c : cursors_) c->position = c->anchor = 0, c->column = -1;
    changed_(0, oldLength, length(), oldBlocks, false);
    cleanStep_ = 0;
    dirty_ = false;
    if (modified_) {
        modified_ = false;
        modificationChanged(false);
    }
}

bool KyTextDocument::insert_(int position, std::string_view text, bool record) {
    if (text.empty()) return true;
    std::string clean = cleanUtf8(text);
    if (clean.size() > std::size_t(kMaxLength - length())) return false;
    position = alignToCodePoint(position);
    const int added = static_cast<int>(clean.size());
    const int oldBlocks = blockCount();
    table_.insert(std::size_t(position), clean);
    for (ky::detail::TextCursorData* c : cursors_) {
        if (c->position >= position) c->position += added;
        if (c->anchor >= position) c->anchor += added;
    }
    if (record) record_(Command_{true, position, std::move(clean)});
    changed_(position, 0, added, oldBlocks, false);
    compactIfWasteful_();
    return true;
}

bool KyTextDocument::remove_(int position, int count, bool record) {
    if (count <= 0) return false;
    const int len = length();
    const int start = alignToCodePoint(position);
    const long long rawEnd = std::clamp<long long>((long long)position + count, 0, len);
    int end = alignToCodePoint(static_cast<int>(rawEnd));
    if (end < rawEnd) end = nextCodePoint(end); // a cut inside a code point takes all of it
    if (end <= start) return false;
    const int removed = end - start;
    const bool wholeLines = (start == 0 || byteAt(start - 1) == '\n') && byteAt(end - 1) == '\n';
    std::string text;
    if (record && undoEnabled_) text = table_.text(std::size_t(start), std::size_t(removed));
    const int oldBlocks = blockCount();
    table_.remove(std::size_t(start), std::size_t(removed));
    for (ky::detail::TextCursorData* c : cursors_) {
        c->position = c->position >= end ? c->position - removed : std::min(c->position, start);
        c->anchor = c->anchor >= end ? c->anchor - removed : std::min(c->anchor, start);
    }
    if (record) record_(Command_{false, start, std::move(text)});
    changed_(start, removed, 0, oldBlocks, wholeLines);
    compactIfWasteful_();
    return true;
}

void KyTextDocument::changed_(int position, int removed, int added, int oldBlockCount, bool removedWholeLines) {
    dirty_ = true;
    // A highlighter may not edit, but it may go away while it runs.
    const std::vector<KySyntaxHighlighter*> highlighters = highlighters_;
    for (KySyntaxHighlighter* h : highlighters)
        if (std::find(highlighters_.begin(), highlighters_.end(), h) != highlighters_.end())
            h->documentChanged_(position, removed, added, oldBlockCount, removedWholeLines);
    contentsChange(position, removed, added);
    if (blockCount() != oldBlockCount) blockCountChanged(blockCount());
    contentsChanged();
}

void KyTextDocument::compactIfWasteful_() {
    if (table_.bufferBytes() > 2 * table_.length() + kCompactionSlack) table_.compact();
}

// ---- Undo ----

void KyTextDocument::record_(Command_ command) {
    if (!undoEnabled_) return;
    if (!redo_.empty()) {
        if (cleanStep_ > long(undo_.size())) cleanStep_ = -1;
        redo_.clear();
    }
    if (editDepth_ > 0) {
        if (!editStepOpen_) {
            undo_.emplace_back();
            editStepOpen_ = true;
        }
        undo_.back().commands.push_back(std::move(command));
        return;
    }
    if (mergeTyping_(command)) return;
    Step_ step;
    step.typing = isKeystroke(command.text);
    step.commands.push_back(std::move(command));
    undo_.push_back(std::move(step));
}

bool KyTextDocument::mergeTyping_(const Command_& command) {
    // The step at the unmodified point stays as it is, so undoing back to it
    // clears the modified flag again.
    if (undo_.empty() || !isKeystroke(command.text) || long(undo_.size()) == cleanStep_) return false;
    Step_& top = undo_.back();
    if (!top.typing || top.commands.size() != 1 || top.commands[0].insert != command.insert) return false;
    Command_& last = top.commands[0];
    const int size = static_cast<int>(command.text.size());
    if (command.insert) {
        if (command.position != last.position + static_cast<int>(last.text.size())) return false;
        last.text += command.text;
    } else if (command.position + size == last.position) { // backspace
        last.text.insert(0, command.text);
        last.position = command.position;
    } else if (command.position == last.position) { // delete
        last.text += command.text;
    } else {
        return false;
    }
    return true;
}

int KyTextDocument::undo() {
    if (editDepth_ > 0 || undo_.empty()) return -1;
    HistoryNotice_ notice(this);
    Step_ step = std::move(undo_.back());
    undo_.pop_back();
    int cursor = -1;
    for (auto it = step.commands.rbegin(); it != step.commands.rend(); ++it) {
        const int size = static_cast<int>(it->text.size());
        if (it->insert) {
            remove_(it->position, size, false);
            cursor = it->position;
        } else {
            insert_(it->position, it->text, false);
            cursor = it->position + size;
        }
    }
    step.typing = false;
    redo_.push_back(std::move(step));
    return cursor;
}

int KyTextDocument::redo() {
    if (editDepth_ > 0 || redo_.empty()) return -1;
    HistoryNotice_ notice(this);
    Step_ step = std::move(redo_.back());
    redo_.pop_back();
    int cursor = -1;
    for (const Command_& c : step.commands) {
        if (c.insert) {
            insert_(c.position, c.text, false);
            cursor = c.position + static_cast<int>(c.text.size());
        } else {
            remove_(c.position, static_cast<int>(c.text.size()), false);
            cursor = c.position;
        }
    }
    undo_.push_back(std::move(step));
    return cursor;
}

void KyTextDocument::beginEditBlock() {
    if (editDepth_++ == 0) editStepOpen_ = false;
}

void KyTextDocument::endEditBlock() {
    if (editDepth_ == 0) return;
    if (--editDepth_ == 0) editStepOpen_ = false;
}

void KyTextDocument::clearUndoRedoStacks() {
    HistoryNotice_ notice(this);
    undo_.clear();
    redo_.clear();
    editStepOpen_ = false;
    cleanStep_ = modified_ ? -1 : 0;
}

void KyTextDocument::setUndoRedoEnabled(bool enabled) {
    if (enabled == undoEnabled_) return;
    clearUndoRedoStacks();
    undoEnabled_ = enabled;
}

void KyTextDocument::setModified(bool modified) {
    cleanStep_ = modified ? -1 : long(undo_.size());
    dirty_ = false;
    if (!undoEnabled_ && modified_ != modified) {
        modified_ = modified;
        modificationChanged(modified);
    }
    updateModified_();
}

void KyTextDocument::updateModified_() {
    const bool modified = undoEnabled_ ? cleanStep_ != long(undo_.size()) : (modified_ || dirty_);
    dirty_ = false;
    if (modified == modified_) return;
    modified_ = modified;
    modificationChanged(modified);
}

// ---- Cursors and highlighters ----

void KyTextDocument::registerCursor_(ky::detail::TextCursorData* cursor) {
    cursor->slot = cursors_.size();
    cursors_.push_back(cursor);
}

void KyTextDocument::unregisterCursor_(ky::detail::TextCursorData* cursor) {
    const std::size_t s = cursor->slot;
    if (s >= cursors_.size() || cursors_[s] != cursor) return;
    cursors_[s] = cursors_.back();
    cursors_[s]->slot = s;
    cursors_.pop_back();
}

void KyTextDocument::attachHighlighter_(KySyntaxHighlighter* highlighter) {
    if (std::find(highlighters_.begin(), highlighters_.end(), highlighter) == highlighters_.end())
        highlighters_.push_back(highlighter);
}

void KyTextDocument::detachHighlighter_(KySyntaxHighlighter* highlighter) {
    highlighters_.erase(std::remove(highlighters_.begin(), highlighters_.end(), highlighter), highlighters_.end());
}

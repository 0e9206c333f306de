// KyCompleter: suggestions for a line edit, from a list of strings.
//
// complete(rect) filters the list against the field's text (case-insensitive,
// by prefix unless told to match anywhere) and shows the matches in a
// KyPopupList under rect, on top of the field's window; no match hides it.
// While the popup is open the field hands every key to handleEditorKeyPress:
// Up and Down move the highlight, Return or Enter accepts it, Escape hides.
// Accepting, by key or by a click on a row, puts the text in the field, hides
// the popup and emits activated once. The popup never takes focus; whoever
// owns the field decides when a lost focus hides it. GUI thread only.
#pragma once

#include "core/object/KyObject.h"
#include "core/types/KyList.h"
#include "core/types/KyRect.h"
#include "core/types/KyString.h"
#include "gui/widgets/KyWidgetEvent.h"

class KyLineEdit;
class KyPopupList;

/// A popup of completions for a KyLineEdit.
class KyCompleter : public KyObject {
    KY_OBJECT(KyCompleter, KyObject)

public:
    enum FilterMode : int { MatchStartsWith = 0, MatchContains = 1 };

    KY_SIGNAL(activated, const KyString&)
    KY_SIGNAL(highlighted, const KyString&)

    explicit KyCompleter(KyObject* parent = nullptr);
    explicit KyCompleter(const KyList<KyString>& list, KyObject* parent = nullptr);
    ~KyCompleter() override;

    void setStringList(const KyList<KyString>& list);
    const KyList<KyString>& stringList() const { return list_; }
    void setFilterMode(FilterMode mode) { filterMode_ = mode; }
    FilterMode filterMode() const { return filterMode_; }
    /// The text matched when no field is attached (a field's own text wins).
    void setCompletionPrefix(const KyString& prefix);
    const KyString& completionPrefix() const { return prefix_; }
    void setMaxVisibleItems(int rows);

    /// Attaches the completer to a field (and the field to it); null detaches.
    void setWidget(KyLineEdit* edit);
    KyLineEdit* widget() const { return edit_; }

    /// Filters and shows the popup below rect (the field's coordinates; an
    /// empty rect means the whole field). No match hides it.
    void complete(const KyRect& rect = KyRect());
    void hidePopup();
    bool isPopupVisible() const;
    KyPopupList* popup() const { return popup_; }
    /// The matches of the last filtering, in list order.
    const KyList<KyString>& completions() const { return filtered_; }
    /// The highlighted match, or empty.
    KyString currentCompletion() const;

    /// A key for the attached field; true when the completer used it.
    bool handleEditorKeyPress(ky::gui::KeyEvent* event);

    void updateFiltering_();
    void ensurePopup_();
    /// Accepts the highlighted match: text into the field, popup hidden, activated.
    void activateCurrent_();

private:
    KyList<KyString> list_;
    KyList<KyString> filtered_;
    KyString prefix_;
    FilterMode filterMode_ = MatchStartsWith;
    int maxVisible_ = 7;
    KyLineEdit* edit_ = nullptr;
    KyPopupList* popup_ = nullptr;
    KyRect lastRect_;
};

// KyComboBox: a drop-down choice among text items.
//
// The closed field shows the current item and a chevron. Opening it puts an
// overlay over the whole top-level widget with the popup list inside, below
// the field by `popup-offset`: a press anywhere outside the list closes the
// popup and goes no further, so the widget underneath never sees it. The
// field keeps focus while the popup is open and steers the highlight from the
// keyboard (Up, Down, Home, End, Return or Enter, Escape); a printable
// character jumps to the next item starting with it, wrapping around. The
// wheel steps the current item over the closed field and the highlight over
// the open list. A combo box without items ignores keys and the wheel.
// GUI thread only.
#pragma once

#include "core/types/KyAny.h"
#include "core/types/KyVector.h"
#include "gui/widgets/KyPopupList.h"
#include "gui/widgets/KyWidget.h"

/// A drop-down list of text items with one current.
class KyComboBox : public KyWidget {
    KY_OBJECT(KyComboBox, KyWidget)

public:
    using PopupList = KyPopupList;

    KY_SIGNAL(currentIndexChanged, int)
    KY_SIGNAL(currentTextChanged, const KyString&)
    /// The user chose an item (from the popup, or by keys on the closed field).
    KY_SIGNAL(activated, int)
    /// The popup's highlight moved to an item.
    KY_SIGNAL(highlighted, int)

    explicit KyComboBox(KyWidget* parent = nullptr);
    ~KyComboBox() override;

    void addItem(const KyString& text, const KyAny& data = KyAny());
    void addItems(const KyList<KyString>& texts);
    void clear();
    int count() const { return static_cast<int>(items_.size()); }
    KyString itemText(int index) const;
    KyAny itemData(int index) const;
    int findText(const KyString& text) const;

    int currentIndex() const { return currentIndex_; }
    KyString currentText() const { return itemText(currentIndex_); }
    /// Clamps to the items (-1 when there are none); emits on change.
    void setCurrentIndex(int index);

    void setPopupVisible(bool visible);
    bool isPopupVisible() const;
    PopupList* popupList() const { return list_; }
    KyWidget* popupOverlay() const;
    void updatePopupGeometry();

    void stepCurrentIndexBy_(int delta);
    void movePopupHighlightBy_(int delta);
    void commitPopupHighlighted_();
    /// The next item after from whose text starts with ch (any case), wrapping; -1 if none.
    int findNextByFirstChar_(wchar_t ch, int from) const;

    KySize sizeHint() const override;
    void paintEvent(PaintEvent* event) override;
    void keyPressEvent(KeyEvent* event) override;
    void mousePressEvent(MouseEvent* event) override;
    void wheelEvent(WheelEvent* event) override;
    void on_Enable_changed(const bool& enabled) override;
    void hideEvent(Event* event) override;

private:
    class Overlay_;
    struct Item_ {
        KyString text;
        KyAny data;
    };

    void ensurePopup_();
    void publishCurrentText_();
    int rowHeight_() const;

    KyVector<Item_> items_;
    int currentIndex_ = -1;
    Overlay_* overlay_ = nullptr;
    PopupList* list_ = nullptr;
};

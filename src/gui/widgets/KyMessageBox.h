// KyMessageBox: a dialog that tells the user something and asks for a choice.
//
// Content: an optional icon (1 information, 2 warning, 3 critical), drawn
// with polygons by its `IconWidget`, the text in a larger face and the
// informative text wrapped under it. Buttons stand in the button bar from the
// right edge leftwards, in the order added, the last one rightmost; a primary
// button is filled with the accent, the others are quiet. Without buttons the
// box offers "Cancel". A button ends the box with its code; Return presses the
// default (the last primary) button and Escape ends with 0. GUI thread only.
#pragma once

#include "gui/widgets/KyDialog.h"

class KyLabel;
class KyPushButton;

/// A message dialog with an icon, texts and buttons.
class KyMessageBox : public KyDialog {
    KY_OBJECT(KyMessageBox, KyDialog)

public:
    enum Icon : int { NoIcon = 0, Information = 1, Warning = 2, Critical = 3 };

    /// The icon, drawn from polygons and discs so it stays crisp at its 40 pixels.
    class IconWidget : public KyWidget {
        KY_OBJECT(IconWidget, KyWidget)

    public:
        explicit IconWidget(KyWidget* parent);
        void setKind(int kind);
        int kind() const { return kind_; }
        void paintEvent(PaintEvent* event) override;

    private:
        void paintInformation(KyPainter* p, const KyRect& r);
        void paintWarning(KyPainter* p, const KyRect& r);
        void paintCritical(KyPainter* p, const KyRect& r);
        int kind_ = 0;
    };

    explicit KyMessageBox(KyWidget* parent = nullptr);

    void setIcon(int kind);
    int icon() const { return iconKind_; }
    void setText(const KyString& text);
    const KyString& text() const { return text_; }
    void setInformativeText(const KyString& text);
    const KyString& informativeText() const { return informative_; }
    /// Adds a button that ends the box with code; primary ones are filled with the accent.
    KyPushButton* addButton(const KyString& text, int code, bool primary = false);
    const KyVector<KyPushButton*>& buttons() const { return buttons_; }
    /// The button Return presses.
    KyPushButton* defaultButton() const;

    /// Adds "Cancel" when the box has no button.
    void createButtons();
    /// Places icon and texts in the content and sizes the box for them.
    void updateContentLayout();
    /// Lines the buttons up from the right edge, gap 8.
    void layoutButtons();
    void updateLayout() override;
    void keyPressEvent(KeyEvent* event) override;

    /// Convenience: an information box with an OK button, run at once.
    static int information(KyWidget* parent, const KyString& title, const KyString& text,
                           const KyString& informative = KyString());
    static int warning(KyWidget* parent, const KyString& title, const KyString& text,
                       const KyString& informative = KyString());
    static int critical(KyWidget* parent, const KyString& title, const KyString& text,
                        const KyString& informative = KyString());

protected:
    void prepareForExec_() override;
    KyWidget* initialFocusWidget_() override;

private:
    KyVector<KyString> wrapInformative_(int width) const;

    int iconKind_ = NoIcon;
    KyString text_;
    KyString informative_;
    KyWidget* frame_ = nullptr;
    IconWidget* iconWidget_ = nullptr;
    KyLabel* textLabel_ = nullptr;
    KyVector<KyLabel*> informativeLines_;
    KyVector<KyPushButton*> buttons_;
    KyVector<int> codes_;
    KyVector<bool> primary_;
};

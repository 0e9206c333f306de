// KyLabel: one line of read-only text, placed by its alignment.
//
// Paints through KyStyle::drawControl from its "Text" and "Alignment"
// properties; its size hint is the text's box in the resolved font. Takes
// no focus. GUI thread only.
#pragma once

#include "gui/widgets/KyFrame.h"

/// A text label.
class KyLabel : public KyFrame {
    KY_OBJECT(KyLabel, KyFrame)

public:
    KY_PROPERTY_HANDLED(KyString, Text, KyString())

public:
    explicit KyLabel(KyWidget* parent = nullptr);
    explicit KyLabel(const KyString& text, KyWidget* parent = nullptr);

    void setText(const char* text) { setText(KyString(text)); }
    KyString text() const { return getText(); }
    int alignment() const { return getAlignment(); }

    KySize sizeHint() const override;
    KySize minimumSizeHint() const override { return sizeHint(); }
    void paintEvent(PaintEvent* event) override;
    virtual void on_Text_changed(const KyString& text);
    void on_Alignment_changed(const int& alignment) override;
};

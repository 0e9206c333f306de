// KyLabel: text painted by the style, measured in the resolved font.
#include "gui/widgets/KyLabel.h"

#include "gui/widgets/KyControlMetrics.h"

namespace {
const char* const kDefaultSheet =
    "KyLabel { background-color: rgba(0,0,0,0); border-width: 0px; color: rgb(30, 30, 30); font-size: 14px; }"
    "KyLabel:disabled { color: rgb(122, 122, 122); }";
} // namespace

KyLabel::KyLabel(KyWidget* parent) : KyFrame(parent) { setDefaultStyleSheet(kDefaultSheet); }

KyLabel::KyLabel(const KyString& text, KyWidget* parent) : KyLabel(parent) { setText(text); }

KySize KyLabel::sizeHint() const { return KyControlMetrics::textBoxHint(this, getText()); }

void KyLabel::paintEvent(PaintEvent* event) {
    if (!event || !event->painter() || !isVisibleInHierarchy()) return;
    KyStyle::drawControl(KyStyle::Label, clientRect(), event->painter(), this, KyStyle::stateOf(this));
    paintChildren(event->painter(), event->rect());
}

void KyLabel::on_Text_changed(const KyString&) { update(); }

void KyLabel::on_Alignment_changed(const int&) { update(); }

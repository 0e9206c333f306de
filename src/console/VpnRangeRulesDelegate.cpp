// VpnRangeRulesDelegate: pills, the draft prompt and the two cell editors.
#include "console/VpnRangeRulesDelegate.h"

#include <algorithm>

#include "console/VelmoVpnConsoleStyle.h"
#include "console/VpnRangeRulesModel.h"
#include "gui/modelview/KyAbstractItemView.h"
#include "gui/platform/KyPainter.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/widgets/KyComboBox.h"
#include "gui/widgets/KyLineEdit.h"

namespace {

namespace S = VelmoVpnConsoleStyle;
using M = VpnRangeRulesModel;

constexpr int kPillHeight = 22;
constexpr int kPillPadding = 10;

// The palette has no alpha: a tint is the tone mixed into what lies under it.
KyColor mix(const KyColor& under, const KyColor& over, double share) {
    const auto channel = [share](int a, int b) { return static_cast<int>(a + (b - a) * share + 0.5); };
    return KyColor(channel(under.red(), over.red()), channel(under.green(), over.green()),
                   channel(under.blue(), over.blue()));
}

KyFont pillFont(const KyFont& base) {
    KyFont font = base;
    font.weight = 600;
    if (font.pixelSize > 0) font.pixelSize = std::max(9, font.pixelSize - 1);
    else if (font.pointSize > 1) font.pointSize -= 1;
    return font;
}

int textWidth(const KyStyleOptionViewItem& option, const KyString& text, const KyFont& font) {
    const int fallback = static_cast<int>(text.toStdString().size()) * 7;
    if (!option.widget) return fallback;
    return KyWidgetPlatformAdapter::textWidthUntil(option.widget->nativeHandle(), text, font,
                                                   text.toStdString().size(), fallback);
}

} // namespace

VpnRangeRulesDelegate::VpnRangeRulesDelegate(KyObject* parent) : KyStyledItemDelegate(parent) {}

KyColor VpnRangeRulesDelegate::pillTone(const KyString& text) {
    if (text == "Allow" || text == "Active") return S::kPositive;
    if (text == "Block") return S::kNegative;
    if (text == "Invalid") return S::kAccent;
    return S::kMutedText; // "Stored", "Draft"
}

void VpnRangeRulesDelegate::paintPill_(KyPainter* painter, const KyStyleOptionViewItem& option, const KyString& text,
                                       const KyColor& tone) {
    if (!painter || text.isEmpty()) return;
    const KyColor base = option.has(KyStyleOptionViewItem::Disabled) ? mix(tone, S::kCardBackground, 0.55) : tone;
    const KyFont font = pillFont(option.font);
    const int width = std::min(textWidth(option, text, font) + 2 * kPillPadding,
                               std::max(0, option.rect.width - 2 * option.padding));
    const int height = std::min(kPillHeight, std::max(0, option.rect.height - 6));
    const KyRect pill{option.rect.x + option.padding, option.rect.y + (option.rect.height - height) / 2, width, height};
    painter->fillRoundedRect(pill, height / 2, mix(S::kCardBackground, base, 0.18), mix(S::kCardBackground, base, 0.6), 1);
    painter->drawText(pill, text, DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter,
                      mix(base, S::kText, 0.25), font);
}

void VpnRangeRulesDelegate::paint(KyPainter* painter, const KyStyleOptionViewItem& option,
                                  const KyModelIndex& index) const {
    if (!painter || !index.isValid()) return;
    paintPanel_(painter, option, index);
    const KyString text = displayText(index.data(KyItemDataRole::Display));
    if (index.column() == M::KindColumn || index.column() == M::StateColumn) {
        paintPill_(painter, option, text, pillTone(text));
        return;
    }
    // The range: what the user typed, an invitation on a draft, the error tone on an invalid one.
    const int state = index.data(M::StateRole).toInt();
    KyColor colour = option.text;
    KyFont font = option.font;
    KyString shown = text;
    if (state == M::Draft) {
        shown = kDraftPrompt;
        colour = S::kMutedText;
        font.italic = true;
    } else if (state == M::Invalid) {
        colour = S::kNegative;
    }
    if (option.has(KyStyleOptionViewItem::Disabled)) colour = mix(colour, S::kCardBackground, 0.45);
    const KyRect content{option.rect.x + option.padding, option.rect.y,
                         std::max(0, option.rect.width - 2 * option.padding), option.rect.height};
    painter->drawText(content, shown, DrawTextFormat::AlignVCenter, colour, font);
}

KySize VpnRangeRulesDelegate::sizeHint(const KyStyleOptionViewItem& option, const KyModelIndex& index) const {
    KySize size = KyStyledItemDelegate::sizeHint(option, index);
    if (index.column() != M::RangeColumn) size.width += 2 * kPillPadding;
    return size;
}

KyWidget* VpnRangeRulesDelegate::createEditor(KyWidget* parent, const KyStyleOptionViewItem&,
                                              const KyModelIndex& index) const {
    if (!parent || !index.isValid()) return nullptr;
    if (index.column() == M::KindColumn) {
        auto* combo = new KyComboBox(parent);
        combo->setObjectName("cellEditor");
        combo->addItem("Allow");
        combo->addItem("Block");
        // A choice from the popup is the end of the edit, as Return is.
        if (auto* view = dynamic_cast<KyAbstractItemView*>(parent))
            KyObject::connect(combo, &KyComboBox::activated, view, [view, combo](int) {
                if (view->openEditor() == combo) view->closeEditor(true);
            });
        return combo;
    }
    if (index.column() == M::RangeColumn) {
        auto* edit = new KyLineEdit(parent);
        edit->setObjectName("cellEditor");
        edit->setPlaceholder(kRangePlaceholder);
        return edit;
    }
    return nullptr;
}

void VpnRangeRulesDelegate::setEditorData(KyWidget* editor, const KyModelIndex& index) const {
    if (auto* combo = dynamic_cast<KyComboBox*>(editor)) {
        combo->setCurrentIndex(index.data(M::AllowRole).toBool() ? 0 : 1);
        return;
    }
    KyStyledItemDelegate::setEditorData(editor, index);
    if (auto* edit = dynamic_cast<KyLineEdit*>(editor)) edit->selectAll();
}

void VpnRangeRulesDelegate::setModelData(KyWidget* editor, KyAbstractItemModel* model,
                                         const KyModelIndex& index) const {
    if (auto* combo = dynamic_cast<KyComboBox*>(editor)) {
        if (model && combo->currentIndex() >= 0) model->setData(index, KyAny(combo->currentText()));
        return;
    }
    KyStyledItemDelegate::setModelData(editor, model, index);
}

void VpnRangeRulesDelegate::updateEditorGeometry(KyWidget* editor, const KyStyleOptionViewItem& option,
                                                 const KyModelIndex&) const {
    // The cell less its grid line, so the editor's frame sits inside the row.
    if (editor) editor->setGeometry(option.rect.x, option.rect.y, option.rect.width, std::max(0, option.rect.height - 1));
}

// KyStyledItemDelegate: the row panel, the decoration and the text of a cell.
#include "gui/modelview/KyStyledItemDelegate.h"

#include <algorithm>

#include "gui/platform/KyPainter.h"
#include "gui/platform/KyWidgetPlatformAdapter.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyWidget.h"

KyStyledItemDelegate::KyStyledItemDelegate(KyObject* parent) : KyObject(parent) {}

KyString KyStyledItemDelegate::displayText(const KyAny& value) const {
    if (value.isEmpty()) return KyString();
    if (value.is<bool>()) return KyString(value.get<bool>() ? "true" : "false");
    return value.toString();
}

void KyStyledItemDelegate::paintPanel_(KyPainter* painter, const KyStyleOptionViewItem& option,
                                       const KyModelIndex& index) const {
    const KyAny background = index.data(KyItemDataRole::Background);
    if (option.has(KyStyleOptionViewItem::Selected))
        painter->fillRect(option.rect, option.selectedBackground, option.selectedBackground, 0);
    else if (option.has(KyStyleOptionViewItem::Hover))
        painter->fillRect(option.rect, option.hoverBackground, option.hoverBackground, 0);
    else if (background.is<KyColor>())
        painter->fillRect(option.rect, background.get<KyColor>(), background.get<KyColor>(), 0);
    // The current row of a focused view carries an accent bar at its start,
    // so the keyboard's place shows even inside a selected block.
    if (option.has(KyStyleOptionViewItem::Current) && option.has(KyStyleOptionViewItem::Focus) &&
        option.has(KyStyleOptionViewItem::FirstColumn))
        painter->fillRect({option.rect.x, option.rect.y + 4, 3, std::max(0, option.rect.height - 8)}, option.accent,
                          option.accent, 0);
}

void KyStyledItemDelegate::paint(KyPainter* painter, const KyStyleOptionViewItem& option,
                                 const KyModelIndex& index) const {
    if (!painter || !index.isValid()) return;
    paintPanel_(painter, option, index);
    KyRect content{option.rect.x + option.padding, option.rect.y,
                   std::max(0, option.rect.width - 2 * option.padding), option.rect.height};
    const KyAny decoration = index.data(KyItemDataRole::Decoration);
    if (decoration.is<KyColor>()) {
        const int d = 8;
        const KyColor c = decoration.get<KyColor>();
        painter->fillEllipse({content.x, content.y + (content.height - d) / 2, d, d}, c, c, 0);
        content.x += d + 8, content.width = std::max(0, content.width - d - 8);
    } else if (!decoration.isEmpty()) {
        const KyString glyph = decoration.toString();
        if (!glyph.isEmpty()) {
            painter->drawText({content.x, content.y, 18, content.height}, glyph,
                              DrawTextFormat::AlignHCenter | DrawTextFormat::AlignVCenter, option.text, option.font);
            content.x += 24, content.width = std::max(0, content.width - 24);
        }
    }
    KyColor colour = option.text;
    const KyAny foreground = index.data(KyItemDataRole::Foreground);
    if (foreground.is<KyColor>()) colour = foreground.get<KyColor>();
    if (option.has(KyStyleOptionViewItem::Selected)) colour = option.selectedText;
    if (option.has(KyStyleOptionViewItem::Disabled)) colour = KyColor(150, 150, 150);
    KyFont font = option.font;
    const KyAny fontRole = index.data(KyItemDataRole::Font);
    if (fontRole.is<KyFont>()) font = fontRole.get<KyFont>();
    KyFlagSet<DrawTextFormat> align = DrawTextFormat::AlignVCenter;
    const KyAny alignment = index.data(KyItemDataRole::TextAlignment);
    if (!alignment.isEmpty()) align = KyFlagSet<DrawTextFormat>::fromInt((alignment.toInt() & 3) | 4);
    painter->drawText(content, displayText(index.data(KyItemDataRole::Display)), align, colour, font);
}

KySize KyStyledItemDelegate::sizeHint(const KyStyleOptionViewItem& option, const KyModelIndex& index) const {
    const KyAny hint = index.data(KyItemDataRole::SizeHint);
    if (hint.is<KySize>()) return hint.get<KySize>();
    const KyString text = displayText(index.data(KyItemDataRole::Display));
    int width = static_cast<int>(text.toStdString().size()) * 7;
    if (option.widget)
        width = KyWidgetPlatformAdapter::textWidthUntil(option.widget->nativeHandle(), text, option.font,
                                                        text.toStdString().size(), width);
    return {width + 2 * option.padding, option.rect.height};
}

KyWidget* KyStyledItemDelegate::createEditor(KyWidget* parent, const KyStyleOptionViewItem&,
                                             const KyModelIndex& index) const {
    if (!parent || !index.isValid()) return nullptr;
    auto* editor = new KyLineEdit(parent);
    editor->setPlaceholder(KyString());
    // Flush with the cell: the cell's own padding, a thin accent border.
    editor->setStyleSheet("KyLineEdit { border-radius: 0px; padding: 0px 9px; border-width: 1px;"
                          " border-color: rgb(0, 120, 215); background-color: rgb(255, 255, 255); }");
    return editor;
}

void KyStyledItemDelegate::setEditorData(KyWidget* editor, const KyModelIndex& index) const {
    if (!editor || !index.isValid()) return;
    KyAny value = index.data(KyItemDataRole::Edit);
    if (value.isEmpty()) value = index.data(KyItemDataRole::Display);
    editor->setProperty("Text", KyAny(displayText(value)));
    // The cell's text opens selected, so typing replaces it and an arrow keeps it.
    if (auto* line = dynamic_cast<KyLineEdit*>(editor)) line->selectAll();
}

void KyStyledItemDelegate::setModelData(KyWidget* editor, KyAbstractItemModel* model, const KyModelIndex& index) const {
    if (!editor || !model || !index.isValid() || !editor->propertyExist("Text")) return;
    model->setData(index, editor->property("Text"), KyItemDataRole::Edit);
}

void KyStyledItemDelegate::updateEditorGeometry(KyWidget* editor, const KyStyleOptionViewItem& option,
                                                const KyModelIndex&) const {
    if (editor) editor->setGeometry(option.rect);
}

// KyAbstractItemView: row geometry, incremental repaint, selection by mouse
// and keyboard, and the editor's life on a cell.
#include "gui/modelview/KyAbstractItemView.h"

#include <algorithm>
#include <cstdlib>

#include "gui/platform/KyPainter.h"
#include "gui/widgets/KyScrollBar.h"
#include "gui/widgets/KyWidgetStyleSnapshot.h"
#include "gui/widgets/StyleSheet.h"

namespace {
// X keysyms of the keys a view answers.
enum Key : int {
    kKeyHome = 0xff50, kKeyLeft = 0xff51, kKeyUp = 0xff52, kKeyRight = 0xff53, kKeyDown = 0xff54,
    kKeyPageUp = 0xff55, kKeyPageDown = 0xff56, kKeyEnd = 0xff57, kKeyReturn = 0xff0d, kKeyEnter = 0xff8d,
    kKeyEscape = 0xff1b, kKeyF2 = 0xffbf, kKeySpace = 0x20, kKeyA = 0x61,
};

constexpr const char* kDefaultSheet =
    "KyAbstractItemView { background-color: rgb(255, 255, 255); border-color: rgb(209, 213, 219);"
    " border-width: 1px; color: rgb(30, 30, 30); font-size: 13px; row-height: 30px;"
    " selection-background-color: rgb(229, 241, 251); selection-color: rgb(0, 120, 215);"
    " hover-background-color: rgb(243, 246, 250); grid-color: rgb(236, 238, 241); }"
    " KyAbstractItemView:focus { border-color: rgb(0, 120, 215); }"
    " KyAbstractItemView:disabled { color: rgb(150, 150, 150); background-color: rgb(248, 248, 248); }";

bool sheetColour(const KyWidget* w, const char* name, KyColor& out) {
    const KyString value = w->styleProperty(name);
    return !value.isEmpty() && ky::gui::StyleSheet::tryParseColor_(value, out);
}
} // namespace

KyAbstractItemView::KyAbstractItemView(KyWidget* parent) : KyAbstractScrollArea(parent) {
    setDefaultStyleSheet(kDefaultSheet);
    setFocusPolicy(StrongFocus);
    defaultDelegate_ = new KyStyledItemDelegate(this);
    delegate_ = defaultDelegate_;
    wireSelection_(new KyItemSelectionModel(nullptr, this));
}

KyAbstractItemView::~KyAbstractItemView() {
    if (editor_ && KyObject::isLive(editor_)) editor_->removeEventFilter(this);
}

int KyAbstractItemView::rowHeight() const {
    const KyString value = styleProperty("row-height");
    const int h = value.isEmpty() ? 30 : std::atoi(value.toStdString().c_str());
    return std::clamp(h, 8, 400);
}

void KyAbstractItemView::setModel(KyAbstractItemModel* model) {
    if (model == model_) return;
    closeEditor(false);
    if (model_) KyObject::disconnect(model_, this);
    model_ = model;
    if (selection_->parent() == this) selection_->setModel(model_);
    else setSelectionModel(new KyItemSelectionModel(model_, this));
    connectModel_();
    hoverRow_ = anchorRow_ = -1;
    setVerticalValue(0);
    updateContentHeight_();
    update();
}

void KyAbstractItemView::setSelectionModel(KyItemSelectionModel* selectionModel) {
    if (!selectionModel || selectionModel == selection_) return;
    KyObject::disconnect(selection_, this);
    if (selection_->parent() == this) selection_->deleteLater();
    wireSelection_(selectionModel);
}

void KyAbstractItemView::wireSelection_(KyItemSelectionModel* selectionModel) {
    selection_ = selectionModel;
    using S = KyItemSelectionModel;
    KyObject::connect(selection_, &S::selectionChanged, this, [this](const KyRowRanges& on, const KyRowRanges& off) {
        // A model being destroyed tells its selection model first, which lets
        // go of it and clears the selection: the rows are not worth asking
        // a half-destroyed model about.
        if (selection_->model() != model_) return;
        for (const KyRowRange& r : on) updateRows_(r.first, r.last);
        for (const KyRowRange& r : off) updateRows_(r.first, r.last);
    }, KyObject::ConnectionDirect);
    KyObject::connect(selection_, &S::currentChanged, this, [this](const KyModelIndex& now, const KyModelIndex& was) {
        if (selection_->model() != model_) return;
        if (was.isValid()) updateRows_(was.row(), was.row());
        if (now.isValid()) updateRows_(now.row(), now.row());
    }, KyObject::ConnectionDirect);
    update();
}

void KyAbstractItemView::connectModel_() {
    if (!model_) return;
    using M = KyAbstractItemModel;
    constexpr auto direct = KyObject::ConnectionDirect;
    KyObject::connect(model_, &M::rowsInserted, this, [this](const KyModelIndex& p, int f, int l) {
        if (!p.isValid()) onRowsInserted_(f, l);
    }, direct);
    KyObject::connect(model_, &M::rowsRemoved, this, [this](const KyModelIndex& p, int f, int l) {
        if (!p.isValid()) onRowsRemoved_(f, l);
    }, direct);
    KyObject::connect(model_, &M::dataChanged, this, [this](const KyModelIndex& tl, const KyModelIndex& br, const KyList<int>&) {
        if (tl.isValid() && br.isValid()) updateRows_(tl.row(), br.row());
    }, direct);
    KyObject::connect(model_, &M::modelAboutToBeReset, this, [this] { closeEditor(false); }, direct);
    KyObject::connect(model_, &M::modelReset, this, [this] {
        hoverRow_ = anchorRow_ = -1;
        updateContentHeight_();
        update();
    }, direct);
    KyObject::connect(model_, &M::layoutChanged, this, [this] { update(); }, direct);
    KyObject::connect(model_, &M::headerDataChanged, this, [this](KyOrientation, int, int) { update(); }, direct);
    KyObject::connect(model_, &M::destroyed, this, [this] {
        model_ = nullptr;
        editor_ = nullptr;
        update();
    }, direct);
}

void KyAbstractItemView::setItemDelegate(KyStyledItemDelegate* delegate) {
    delegate_ = delegate ? delegate : defaultDelegate_;
    update();
}

// Geometry.

KyRect KyAbstractItemView::rowRect(int row) const {
    const KyRect vp = viewportRect();
    return {vp.x, contentRowTop_(row), vp.width, rowHeight()};
}

int KyAbstractItemView::rowAt(int y) const {
    const KyRect vp = viewportRect();
    if (!model_ || y < vp.y || y >= vp.y + vp.height) return -1;
    const int row = contentRowAt_(y);
    return row < model_->rowCount() ? row : -1;
}

int KyAbstractItemView::columnX_(int) const { return viewportRect().x; }
int KyAbstractItemView::columnWidth_(int) const { return viewportRect().width; }
int KyAbstractItemView::columnAt_(int x) const {
    const KyRect vp = viewportRect();
    return x >= vp.x && x < vp.x + vp.width ? 0 : -1;
}

KyModelIndex KyAbstractItemView::indexAt(const KyPoint& point) const {
    const int row = rowAt(point.y);
    const int column = columnAt_(point.x);
    if (row < 0 || column < 0) return {};
    return model_->index(row, column);
}

KyRect KyAbstractItemView::visualRect(const KyModelIndex& index) const {
    if (!index.isValid() || index.model() != model_) return {};
    const KyRect r = rowRect(index.row());
    return {columnX_(index.column()), r.y, columnWidth_(index.column()), r.height};
}

int KyAbstractItemView::firstVisibleRow() const { return model_ ? verticalValue() / rowHeight() : -1; }

int KyAbstractItemView::lastVisibleRow() const {
    if (!model_ || model_->rowCount() == 0) return -1;
    const int bottom = verticalValue() + std::max(0, viewportRect().height - 1);
    return std::min(model_->rowCount() - 1, bottom / rowHeight());
}

void KyAbstractItemView::scrollContentsBy_(int) {
    if (editor_) closeEditor(true);
    update();
}

void KyAbstractItemView::updateRows_(int first, int last) {
    if (!model_ || last < first) return;
    const int top = std::max(first, firstVisibleRow());
    const int bottom = std::min(last, lastVisibleRow());
    if (bottom < top) return;
    const KyRect a = rowRect(top);
    const KyRect b = rowRect(bottom);
    updateRect(KyRect(a.x, a.y, a.width, b.y + b.height - a.y).intersected(viewportRect()));
}

void KyAbstractItemView::onRowsInserted_(int first, int) {
    if (hoverRow_ >= first) hoverRow_ = -1;
    if (anchorRow_ >= first) anchorRow_ = -1;
    const int lastShown = lastVisibleRow();
    updateContentHeight_();
    // Rows from first down move: repaint them to the viewport's end, and
    // nothing when they all lie below what shows.
    if (first <= lastShown + 1) {
        const KyRect vp = viewportRect();
        const int y = std::max(vp.y, rowRect(first).y);
        updateRect({vp.x, y, vp.width, vp.y + vp.height - y});
    }
}

void KyAbstractItemView::onRowsRemoved_(int first, int last) {
    if (editor_ && !editIndex_.isValid()) closeEditor(false);
    if (hoverRow_ >= first) hoverRow_ = -1;
    if (anchorRow_ > last) anchorRow_ -= last - first + 1;
    else if (anchorRow_ >= first) anchorRow_ = -1;
    const int lastShownBefore = lastVisibleRow() + (last - first + 1);
    const int valueBefore = verticalValue();
    updateContentHeight_();
    if (verticalValue() != valueBefore) return; // the clamp repainted everything
    if (first <= lastShownBefore) {
        const KyRect vp = viewportRect();
        const int y = std::max(vp.y, rowRect(first).y);
        updateRect({vp.x, y, vp.width, vp.y + vp.height - y});
    }
}

// Painting.

void KyAbstractItemView::initOption_(KyStyleOptionViewItem& option) const {
    option.widget = this;
    option.font = resolveStyledFont();
    const ResolvedStyleSnapshot_& s = styleSnapshot_();
    if (s.hasTextColor) option.text = s.textColor;
    sheetColour(this, "selection-background-color", option.selectedBackground);
    sheetColour(this, "selection-color", option.selectedText);
    sheetColour(this, "hover-background-color", option.hoverBackground);
    sheetColour(this, "accent-color", option.accent);
    if (hasFocus()) option.state |= KyStyleOptionViewItem::Focus;
    if (!isEnabled()) option.state |= KyStyleOptionViewItem::Disabled;
}

void KyAbstractItemView::paintEvent(PaintEvent* event) {
    KyPainter* painter = event->painter();
    if (!painter || !isVisibleInHierarchy()) return;
    paintOwnBox_(painter);
    const KyRect vp = viewportRect();
    const KyRect clip = event->rect().intersected(vp);
    if (model_ && !clip.isEmpty()) {
        const auto [first, last] = contentRowsIn_(clip);
        painter->pushClipRect(clip);
        if (first <= last) paintRows_(painter, clip, first, last);
        painter->popClipRect();
    }
    paintChildren_(painter, event->rect());
}

void KyAbstractItemView::paintRows_(KyPainter* painter, const KyRect& clip, int first, int last) {
    KyStyleOptionViewItem base;
    initOption_(base);
    const KyModelIndex current = currentIndex();
    const int columns = columnCount_();
    for (int row = first; row <= last; ++row) {
        const KyRect r = rowRect(row);
        unsigned state = base.state;
        if (selection_->isRowSelected(row)) state |= KyStyleOptionViewItem::Selected;
        if (row == hoverRow_ && isEnabled()) state |= KyStyleOptionViewItem::Hover;
        if (current.isValid() && current.row() == row) state |= KyStyleOptionViewItem::Current;
        for (int column = 0; column < columns; ++column) {
            const KyRect cell{columnX_(column), r.y, columnWidth_(column), r.height};
            if (cell.x >= clip.x + clip.width || cell.x + cell.width <= clip.x) continue;
            KyStyleOptionViewItem option = base;
            option.rect = cell;
            option.state = state | (column == 0 ? unsigned(KyStyleOptionViewItem::FirstColumn) : 0u);
            delegate_->paint(painter, option, model_->index(row, column));
        }
    }
}

// Selection and current cell.

KyModelIndex KyAbstractItemView::currentIndex() const { return selection_->currentIndex(); }

void KyAbstractItemView::setCurrentIndex(const KyModelIndex& index) {
    if (index.isValid() && index.model() != model_) return;
    selection_->setCurrentIndex(index, mode_ == NoSelection ? KyItemSelectionModel::NoUpdate
                                                            : KyItemSelectionModel::ClearAndSelect);
    anchorRow_ = index.isValid() ? index.row() : -1;
    if (index.isValid()) scrollTo(index);
}

void KyAbstractItemView::scrollTo(const KyModelIndex& index) {
    if (!index.isValid() || index.model() != model_) return;
    ensureContentRowVisible_(index.row());
    scrollToColumn_(index.column());
}

void KyAbstractItemView::selectOnPress_(const KyModelIndex& index, bool ctrl, bool shift) {
    using S = KyItemSelectionModel;
    if (mode_ == NoSelection) return selection_->setCurrentIndex(index, S::NoUpdate);
    if (mode_ == SingleSelection || (!ctrl && !shift)) {
        selection_->setCurrentIndex(index, S::ClearAndSelect);
        anchorRow_ = index.row();
        return;
    }
    if (shift) {
        const int anchor = anchorRow_ >= 0 ? anchorRow_ : index.row();
        selection_->select(std::min(anchor, index.row()), std::max(anchor, index.row()),
                           ctrl ? S::Select : S::ClearAndSelect);
        selection_->setCurrentIndex(index, S::NoUpdate);
        return;
    }
    selection_->setCurrentIndex(index, S::Toggle);
    anchorRow_ = index.row();
}

void KyAbstractItemView::moveCurrent_(int row, int column, unsigned modifiers) {
    if (!model_ || model_->rowCount() == 0) return;
    row = std::clamp(row, 0, model_->rowCount() - 1);
    column = std::clamp(column, 0, std::max(0, columnCount_() - 1));
    const KyModelIndex index = model_->index(row, column);
    const bool ctrl = modifiers & 1, shift = modifiers & 2;
    using S = KyItemSelectionModel;
    if (mode_ == ExtendedSelection && ctrl && !shift) selection_->setCurrentIndex(index, S::NoUpdate);
    else selectOnPress_(index, false, shift && mode_ == ExtendedSelection);
    scrollTo(index);
}

void KyAbstractItemView::keyPressEvent(KeyEvent* event) {
    if (!model_ || !isEnabled()) return event->ignore();
    const KyModelIndex current = currentIndex();
    const int row = current.isValid() ? current.row() : -1;
    const int column = current.isValid() ? current.column() : 0;
    const int page = std::max(1, viewportRect().height / rowHeight() - 1);
    const unsigned mods = (event->ctrl() ? 1u : 0u) | (event->shift() ? 2u : 0u);
    // Ctrl+Page Up and Down belong to the window (tabs, for one).
    if (event->ctrl() && (event->keyCode() == kKeyPageUp || event->keyCode() == kKeyPageDown)) return event->ignore();
    switch (event->keyCode()) {
    case kKeyUp: moveCurrent_(row < 0 ? 0 : row - 1, column, mods); break;
    case kKeyDown: moveCurrent_(row + 1, column, mods); break;
    case kKeyPageUp: moveCurrent_(row < 0 ? 0 : row - page, column, mods); break;
    case kKeyPageDown: moveCurrent_(std::max(0, row) + page, column, mods); break;
    case kKeyHome: moveCurrent_(0, column, mods); break;
    case kKeyEnd: moveCurrent_(model_->rowCount() - 1, column, mods); break;
    case kKeyLeft:
    case kKeyRight:
        if (columnCount_() < 2) return event->ignore();
        moveCurrent_(std::max(0, row), column + (event->keyCode() == kKeyLeft ? -1 : 1), mods & 1);
        break;
    case kKeySpace:
        if (!current.isValid() || mode_ == NoSelection) return event->ignore();
        selection_->select(current, mode_ == ExtendedSelection && event->ctrl() ? KyItemSelectionModel::Toggle
                                                                                 : KyItemSelectionModel::ClearAndSelect);
        break;
    case kKeyA:
        if (!event->ctrl() || mode_ != ExtendedSelection) return event->ignore();
        selection_->selectAll();
        break;
    case kKeyF2:
        if (!edit(current)) return event->ignore();
        break;
    case kKeyReturn:
    case kKeyEnter:
        if (!current.isValid()) return event->ignore();
        activated(current);
        break;
    default: return event->ignore();
    }
    event->accept();
}

// Mouse.

void KyAbstractItemView::viewportMousePressEvent(MouseEvent* event) {
    if (!isEnabled()) return event->ignore();
    const KyModelIndex index = indexAt(event->pos());
    requestFocus();
    if (editor_) closeEditor(true);
    // A double click reaches the view first as itself, then as the press it
    // was made of; the editor opens on that press, so that the focus the
    // press gives the view does not close it at once.
    const KyModelIndex doubled = doubleClickIndex_;
    doubleClickIndex_ = KyModelIndex();
    if (event->clickCount() > 1 && index.isValid() && index == doubled) {
        pressedIndex_ = index;
        event->accept();
        if (!edit(index)) activated(index);
        return;
    }
    pressedIndex_ = index;
    event->accept();
    if (!index.isValid()) return;
    if (event->button() == 1 || !selection_->isRowSelected(index.row())) selectOnPress_(index, event->ctrl(), event->shift());
    pressed(index);
}

void KyAbstractItemView::viewportMouseReleaseEvent(MouseEvent* event) {
    const KyModelIndex index = indexAt(event->pos());
    event->accept();
    if (index.isValid() && index == pressedIndex_) clicked(index);
    pressedIndex_ = KyModelIndex();
}

void KyAbstractItemView::viewportMouseDoubleClickEvent(MouseEvent* event) {
    const KyModelIndex index = indexAt(event->pos());
    event->accept();
    if (!index.isValid()) return;
    doubleClicked(index);
    doubleClickIndex_ = index;
}

void KyAbstractItemView::viewportMouseMoveEvent(MouseEvent* event) {
    setHoverRow_(rowAt(event->y()));
    event->ignore();
}

void KyAbstractItemView::setHoverRow_(int row) {
    if (row == hoverRow_) return;
    const int was = hoverRow_;
    hoverRow_ = row;
    if (was >= 0) updateRows_(was, was);
    if (row >= 0) updateRows_(row, row);
    // The row's ToolTip role is the view's tip while the pointer is on it.
    const KyModelIndex index = row >= 0 && model_ ? model_->index(row, 0) : KyModelIndex();
    setToolTips(index.isValid() ? index.data(KyItemDataRole::ToolTip).toString() : KyString());
}

void KyAbstractItemView::on_Hover_changed(const bool& value) {
    KyAbstractScrollArea::on_Hover_changed(value);
    if (!value) setHoverRow_(-1);
}

void KyAbstractItemView::on_Focus_changed(const bool& value) {
    KyAbstractScrollArea::on_Focus_changed(value);
    const KyModelIndex current = currentIndex();
    if (current.isValid()) updateRows_(current.row(), current.row());
}

// Editing.

bool KyAbstractItemView::edit(const KyModelIndex& index) {
    if (!model_ || !index.isValid() || index.model() != model_ || !isEnabled()) return false;
    if (!model_->flags(index).testFlag(KyItemFlag::Editable)) return false;
    closeEditor(true);
    scrollTo(index);
    KyStyleOptionViewItem option;
    initOption_(option);
    option.rect = visualRect(index);
    KyWidget* editor = delegate_->createEditor(this, option, index);
    if (!editor) return false;
    editor_ = editor;
    editIndex_ = index;
    delegate_->setEditorData(editor, index);
    delegate_->updateEditorGeometry(editor, option, index);
    editor->installEventFilter(this);
    KyObject::connect(editor, &KyWidget::FocusChanged, this, [this, editor](const bool& focused) {
        // Focus leaving the editor for anything but the view keeps what was typed.
        if (!focused && editor == editor_ && !hasFocus()) closeEditor(true);
    });
    editor->show();
    editor->requestFocus();
    return true;
}

void KyAbstractItemView::closeEditor(bool commit) {
    KyWidget* editor = editor_;
    if (!editor) return;
    editor_ = nullptr;
    if (!KyObject::isLive(editor)) return;
    editor->removeEventFilter(this);
    if (commit && model_ && editIndex_.isValid()) delegate_->setModelData(editor, model_, editIndex_);
    editIndex_ = KyModelIndex();
    // The keyboard comes back to the view only from the editor: when the
    // editor closes because the user clicked another field, that field keeps it.
    const bool hadFocus = editor->hasFocus();
    editor->hide();
    editor->deleteLater();
    if (hadFocus) requestFocus();
    update();
}

bool KyAbstractItemView::eventFilter(KyObject* watched, KyEvent* event) {
    // The pointer on the scroll bar has left the rows.
    if (watched == verticalScrollBar() && event->type() == Event::MouseMove) setHoverRow_(-1);
    if (watched == editor_ && event->type() == Event::KeyPress) {
        const int key = static_cast<KeyEvent*>(event)->keyCode();
        if (key == kKeyReturn || key == kKeyEnter || key == kKeyEscape) {
            closeEditor(key != kKeyEscape);
            return true;
        }
    }
    return KyAbstractScrollArea::eventFilter(watched, event);
}

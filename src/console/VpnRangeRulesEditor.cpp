// VpnRangeRulesEditor: the rule table, its search, its buttons and the two
// backing fields it keeps in step with.
#include "console/VpnRangeRulesEditor.h"

#include <algorithm>

#include "console/VpnRangeRulesDelegate.h"
#include "console/VpnRangeRulesModel.h"
#include "gui/modelview/KySortFilterProxyModel.h"
#include "gui/modelview/KyTableView.h"
#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyGridLayout.h"
#include "gui/widgets/KyLabel.h"
#include "gui/widgets/KyLineEdit.h"
#include "gui/widgets/KyPushButton.h"

namespace {

constexpr int kKeyDelete = 0xffff;
constexpr int kControlHeight = 34;
constexpr int kKindColumnWidth = 130;
constexpr int kStateColumnWidth = 170;

} // namespace

/// The editor's search: the rule model's own match (texts of every column,
/// and addresses inside a rule's range), and drafts always, so a rule the
/// user is adding never vanishes under the search.
class VpnRangeRulesSearchProxy : public KySortFilterProxyModel {
    KY_OBJECT(VpnRangeRulesSearchProxy, KySortFilterProxyModel)

public:
    explicit VpnRangeRulesSearchProxy(VpnRangeRulesModel* rules, KyObject* parent)
        : KySortFilterProxyModel(parent), rules_(rules) {
        setFilterKeyColumn(-1);
        setSortRole(VpnRangeRulesModel::SortKeyRole);
        setSourceModel(rules);
    }
    void setSearch(const KyString& text) {
        if (text == search_) return;
        search_ = text;
        invalidateFilter();
    }

protected:
    bool filterAcceptsRow(int sourceRow, const KyModelIndex&) const override {
        if (sourceRow < 0 || sourceRow >= rules_->rowCount()) return false;
        return rules_->ruleState(sourceRow) == VpnRangeRulesModel::Draft || rules_->matchesSearch(sourceRow, search_);
    }

private:
    VpnRangeRulesModel* rules_;
    KyString search_;
};

VpnRangeRulesEditor::VpnRangeRulesEditor(KyWidget* parent) : KyWidget(parent) {
    setObjectName("rangeRulesEditor");
    model_ = new VpnRangeRulesModel(this);
    auto* proxy = new VpnRangeRulesSearchProxy(model_, this);
    proxy_ = proxy;
    delegate_ = new VpnRangeRulesDelegate(this);

    search_ = new KyLineEdit(this);
    search_->setObjectName("rangeRulesSearch");
    search_->setPlaceholder("Search a CIDR, an IP, or Allow / Block");
    newAllow_ = new KyPushButton("New Allow", this);
    newBlock_ = new KyPushButton("New Block", this);
    delete_ = new KyPushButton("Delete", this);
    delete_->setObjectName("destructiveButton");
    for (KyWidget* w : {static_cast<KyWidget*>(search_), static_cast<KyWidget*>(newAllow_),
                        static_cast<KyWidget*>(newBlock_), static_cast<KyWidget*>(delete_)}) {
        w->setMinimumSize(0, kControlHeight);
        w->setMaximumSize(w == search_ ? 100000 : 160, kControlHeight);
    }
    for (KyPushButton* b : {newAllow_, newBlock_, delete_}) b->setMinimumSize(104, kControlHeight);

    table_ = new KyTableView(this);
    table_->setObjectName("rangeRulesTable");
    table_->setModel(proxy_);
    table_->setItemDelegate(delegate_);
    table_->setSelectionMode(KyTableView::SingleSelection);
    table_->setSortingEnabled(true);
    table_->setColumnWidth(VpnRangeRulesModel::KindColumn, kKindColumnWidth);
    table_->installEventFilter(this);

    summary_ = new KyLabel(this);
    summary_->setObjectName("rangeRulesSummary");
    modeSentence_ = new KyLabel(this);
    modeSentence_->setObjectName("hint");
    hint_ = new KyLabel("Double-click a cell to edit. A single IPv4 is normalized as /32.", this);
    hint_->setObjectName("hint");

    // Rows of the editor sit in plain containers: a layout places widgets only.
    // The heading shares the row with the search and the buttons, which
    // leaves the table the height it needs.
    auto* toolRow = new KyWidget(this);
    auto* tools = new KyHorizontalLayout;
    tools->setContentsMargins(0, 0, 0, 0);
    tools->setSpacing(8);
    auto* heading = new KyWidget(toolRow);
    auto* headingLayout = new KyVerticalLayout;
    headingLayout->setContentsMargins(0, 0, 0, 0);
    headingLayout->setSpacing(2);
    auto* overline = new KyLabel("DESTINATION RANGES", heading);
    overline->setObjectName("overline");
    auto* title = new KyLabel("Range rules", heading);
    title->setObjectName("cardTitle");
    headingLayout->addWidget(overline);
    headingLayout->addWidget(title);
    heading->setLayout(headingLayout);
    tools->addWidget(heading);
    tools->addSpacing(16);
    for (KyWidget* w : {static_cast<KyWidget*>(search_), static_cast<KyWidget*>(newAllow_),
                        static_cast<KyWidget*>(newBlock_), static_cast<KyWidget*>(delete_)}) {
        w->setParent(toolRow);
        tools->addWidget(w, w == search_ ? 1 : 0);
        if (w == search_) tools->addSpacing(4);
    }
    toolRow->setLayout(tools);

    // The summary and the hint share the first line; the mode's sentence
    // runs under the summary.
    auto* footerRow = new KyWidget(this);
    auto* footer = new KyGridLayout;
    footer->setContentsMargins(0, 0, 0, 0);
    footer->setSpacing(4);
    for (KyLabel* label : {summary_, modeSentence_, hint_}) label->setParent(footerRow);
    summary_->setProperty("HorizontalPolicy", KyAny(KyString("Expanding")));
    modeSentence_->setProperty("HorizontalPolicy", KyAny(KyString("Expanding")));
    footer->addWidget(summary_, 0, 0);
    footer->addWidget(hint_, 0, 1);
    footer->addWidget(modeSentence_, 1, 0, 1, 2);
    footer->setColumnStretch(0, 1);
    footerRow->setLayout(footer);

    auto* layout = new KyVerticalLayout;
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(12);
    layout->addWidget(toolRow);
    layout->addWidget(table_, 1);
    layout->addWidget(footerRow);
    setLayout(layout);

    constexpr auto direct = KyObject::ConnectionDirect;
    KyObject::connect(search_, &KyLineEdit::TextChanged, this,
                      [proxy](const KyString& text) { proxy->setSearch(text); }, direct);
    KyObject::connect(newAllow_, &KyPushButton::clicked, this, [this] { addRule(true); });
    KyObject::connect(newBlock_, &KyPushButton::clicked, this, [this] { addRule(false); });
    KyObject::connect(delete_, &KyPushButton::clicked, this, [this] { deleteSelectedRules(); });

    using Model = KyAbstractItemModel;
    KyObject::connect(model_, &Model::dataChanged, this,
                      [this](const KyModelIndex&, const KyModelIndex&, const KyList<int>&) { modelChanged_(); }, direct);
    KyObject::connect(model_, &Model::rowsInserted, this,
                      [this](const KyModelIndex&, int, int) { modelChanged_(); }, direct);
    KyObject::connect(model_, &Model::rowsRemoved, this,
                      [this](const KyModelIndex&, int, int) { modelChanged_(); }, direct);
    KyObject::connect(model_, &Model::modelReset, this, [this] { modelChanged_(); }, direct);
    KyObject::connect(model_, &VpnRangeRulesModel::modeChanged, this, [this](int) { refreshSummary_(); }, direct);
    KyObject::connect(table_->selectionModel(), &KyItemSelectionModel::selectionChanged, this,
                      [this](const KyRowRanges&, const KyRowRanges&) { refreshButtons_(); }, direct);

    refreshSummary_();
    refreshButtons_();
}

VpnRangeRulesEditor::~VpnRangeRulesEditor() = default;

void VpnRangeRulesEditor::bindBackingFields(KyLineEdit* allowed, KyLineEdit* blocked) {
    for (KyLineEdit* field : {allowed_, blocked_})
        if (field && KyObject::isLive(field)) KyObject::disconnect(field, this);
    allowed_ = allowed;
    blocked_ = blocked;
    for (KyLineEdit* field : {allowed_, blocked_}) {
        if (!field) continue;
        KyObject::connect(field, &KyLineEdit::TextChanged, this, [this](const KyString&) { refreshFromBacking_(); },
                          KyObject::ConnectionDirect);
        KyObject::connect(field, &KyObject::destroyed, this, [this, field] {
            if (allowed_ == field) allowed_ = nullptr;
            if (blocked_ == field) blocked_ = nullptr;
        }, KyObject::ConnectionDirect);
    }
    refreshFromBacking_();
}

void VpnRangeRulesEditor::setRangeMode(int mode) { model_->setMode(mode); }

int VpnRangeRulesEditor::rangeMode() const { return model_->mode(); }

void VpnRangeRulesEditor::setEditingEnabled(bool enabled) {
    // What was typed into an open cell is kept: commit first, then lock.
    if (!enabled && table_->openEditor()) table_->closeEditor(true);
    editingEnabled_ = enabled;
    setEnable(enabled);
    table_->setEnable(enabled);
    search_->setEnable(enabled);
    refreshButtons_();
}

void VpnRangeRulesEditor::addRule(bool allow) {
    if (!editingEnabled_) return;
    table_->closeEditor(true);
    const int row = model_->appendDraft(allow);
    const KyModelIndex cell = proxy_->index(proxy_->mapRowFromSource(row), VpnRangeRulesModel::RangeColumn);
    if (!cell.isValid()) return;
    table_->setCurrentIndex(cell);
    table_->edit(cell);
}

void VpnRangeRulesEditor::deleteSelectedRules() {
    if (!editingEnabled_) return;
    table_->closeEditor(false);
    KyVector<int> sourceRows;
    int firstProxyRow = -1;
    for (const KyModelIndex& index : table_->selectionModel()->selectedRows()) {
        const int source = proxy_->mapRowToSource(index.row());
        if (source < 0) continue;
        sourceRows.push_back(source);
        firstProxyRow = firstProxyRow < 0 ? index.row() : std::min(firstProxyRow, index.row());
    }
    if (sourceRows.empty()) return;
    std::sort(sourceRows.begin(), sourceRows.end(), std::greater<int>());
    for (int source : sourceRows) model_->removeRows(source, 1);
    // The next rule moves up into the place: select it, so Delete can go on.
    const int rows = proxy_->rowCount();
    if (rows > 0) table_->setCurrentIndex(proxy_->index(std::min(firstProxyRow, rows - 1), 0));
    refreshButtons_();
}

void VpnRangeRulesEditor::modelChanged_() {
    if (!readingBacking_) writeBacking_();
    refreshSummary_();
    refreshButtons_();
}

void VpnRangeRulesEditor::writeBacking_() {
    if (!allowed_ && !blocked_) return;
    // The fields' TextChanged stays connected: that is what pushes the form
    // to the agent. Only our own echo is held back.
    writingBacking_ = true;
    if (allowed_) allowed_->setText(model_->exportCsv_(true));
    if (blocked_) blocked_->setText(model_->exportCsv_(false));
    writingBacking_ = false;
}

void VpnRangeRulesEditor::refreshFromBacking_() {
    if (writingBacking_ || readingBacking_) return;
    const KyString allowed = allowed_ ? allowed_->getText() : KyString();
    const KyString blocked = blocked_ ? blocked_->getText() : KyString();
    // The fields already say what the table would write: nothing to rebuild,
    // and drafts and mistyped rows (which never reach the fields) stay.
    if (allowed == model_->exportCsv_(true) && blocked == model_->exportCsv_(false)) return;
    table_->closeEditor(false);
    readingBacking_ = true;
    model_->resetFromCsv_(allowed, blocked);
    readingBacking_ = false;
    refreshSummary_();
    refreshButtons_();
}

void VpnRangeRulesEditor::refreshSummary_() {
    const KyString text = model_->summaryText();
    const std::string all = text.toStdString();
    const std::size_t cut = all.find('\n');
    const KyString first(all.substr(0, cut));
    const KyString second(cut == std::string::npos ? std::string() : all.substr(cut + 1));
    if (summary_->text() != first) summary_->setText(first);
    if (modeSentence_->text() != second) modeSentence_->setText(second);
    if (second.isEmpty() == modeSentence_->isVisible()) second.isEmpty() ? modeSentence_->hide() : modeSentence_->show();
    if (layout()) layout()->invalidate(), layout()->updateGeometry();
}

void VpnRangeRulesEditor::refreshButtons_() {
    newAllow_->setEnable(editingEnabled_);
    newBlock_->setEnable(editingEnabled_);
    delete_->setEnable(editingEnabled_ && table_->selectionModel()->hasSelection());
}

bool VpnRangeRulesEditor::eventFilter(KyObject* watched, KyEvent* event) {
    // Delete on the table (not inside a cell editor) removes the selected rule.
    if (watched == table_ && event->type() == Event::KeyPress && !table_->openEditor()) {
        auto* key = static_cast<KeyEvent*>(event);
        if (key->keyCode() == kKeyDelete && !key->ctrl() && !key->shift() && editingEnabled_ &&
            table_->selectionModel()->hasSelection()) {
            deleteSelectedRules();
            return true;
        }
    }
    return KyWidget::eventFilter(watched, event);
}

void VpnRangeRulesEditor::resizeEvent(ResizeEvent* event) {
    KyWidget::resizeEvent(event);
    // The range takes what the kind and the state leave; the state stretches to the edge.
    const int range = std::max(220, table_->width() - kKindColumnWidth - kStateColumnWidth - 2);
    if (table_->columnWidth(VpnRangeRulesModel::RangeColumn) != range)
        table_->setColumnWidth(VpnRangeRulesModel::RangeColumn, range);
}

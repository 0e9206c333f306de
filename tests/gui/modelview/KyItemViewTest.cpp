// The item views on a private Xvfb: only visible rows are painted, model
// changes repaint only the rows they move, mouse and keyboard (XTEST) drive
// the selection model, and a header click sorts a proxy.
#include <X11/keysym.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "../../support/KyTestWidgetFixture.h"
#include "gui/modelview/KyListView.h"
#include "gui/modelview/KySortFilterProxyModel.h"
#include "gui/modelview/KyStandardItemModel.h"
#include "gui/modelview/KyTableView.h"
#include "gui/widgets/KyLineEdit.h"

namespace {

// A flat model of n rows, "Row i" in column 0 and (n - i) in column 1.
class Rows : public KyAbstractItemModel {
public:
    explicit Rows(int n) : n_(n) {}
    KyModelIndex index(int row, int column, const KyModelIndex& = {}) const override {
        return hasIndex(row, column) ? createIndex(row, column) : KyModelIndex();
    }
    KyModelIndex parent(const KyModelIndex&) const override { return {}; }
    int rowCount(const KyModelIndex& p = {}) const override { return p.isValid() ? 0 : n_; }
    int columnCount(const KyModelIndex& = {}) const override { return 2; }
    KyAny data(const KyModelIndex& i, int role) const override {
        if (role != KyItemDataRole::Display) return {};
        return i.column() == 0 ? KyAny(KyString("Row " + std::to_string(i.row()))) : KyAny(n_ - i.row());
    }
    KyAny headerData(int section, KyOrientation, int) const override { return KyAny(KyString(section ? "Count" : "Name")); }
    void insertAt(int row) { beginInsertRows({}, row, row), ++n_, endInsertRows(); }
    void removeAt(int row) { beginRemoveRows({}, row, row), --n_, endRemoveRows(); }
    void touch(int row) { emitRowsChanged(row, row); }

private:
    int n_;
};

// Notes the rows it is asked to paint.
class CountingDelegate : public KyStyledItemDelegate {
public:
    void paint(KyPainter* p, const KyStyleOptionViewItem& o, const KyModelIndex& i) const override {
        rows.insert(i.row());
        KyStyledItemDelegate::paint(p, o, i);
    }
    mutable std::set<int> rows;
};

struct ItemViewTest : kytest::WidgetFixture {
    // The view fills all but a strip at the bottom, where settle() parks the pointer.
    template <typename View> View* host(KyAbstractItemModel* m) {
        root = new KyWidget;
        auto* view = new View(root);
        view->setGeometry(0, 0, 400, 300);
        view->setModel(m);
        view->setItemDelegate(&delegate);
        showRoot(400, 320);
        settle();
        return view;
    }
    // Paints until no damage is left: a motion in the strip comes back after
    // every Expose sent before it.
    void settle() { kytest::settleWindow(*this, *window, root, 395, 315); }
    bool runUntil(const std::function<bool()>& pred, std::chrono::milliseconds d = kytest::kDeadline) {
        return kytest::runGuiUntil(app.get(), pred, d);
    }
    CountingDelegate delegate;
};

TEST_F(ItemViewTest, AListOfFiveThousandRowsPaintsOnlyVisibleRowsAndRepaintsOnlyWhatAChangeMoves) {
    Rows model(5000);
    auto* view = host<KyListView>(&model);
    ASSERT_FALSE(delegate.rows.empty());
    EXPECT_LE(*delegate.rows.rbegin(), view->lastVisibleRow());
    EXPECT_TRUE(view->isVerticalBarVisible());
    // The bar is the toolkit's scroll bar, styled by its sheet keys.
    view->setStyleSheet("KyScrollBar { thumb-color: rgb(200, 0, 0); }");
    settle();
    const KyRect bar = view->verticalBarRect();
    EXPECT_EQ(user->pixel(window->id(), bar.x + bar.width / 2, bar.y + 10), KyColor(200, 0, 0));

    struct Row { const char* name; std::function<void()> change; int firstPainted; int lastPainted; };
    const Row table[] = {
        {"insert below the viewport", [&] { model.insertAt(4000); }, -1, -1},
        {"remove below the viewport", [&] { model.removeAt(4000); }, -1, -1},
        {"insert at row 3", [&] { model.insertAt(3); }, 3, view->lastVisibleRow()},
        {"remove row 5", [&] { model.removeAt(5); }, 5, view->lastVisibleRow()},
        {"data of row 2", [&] { model.touch(2); }, 2, 2},
    };
    for (const Row& row : table) {
        delegate.rows.clear();
        row.change();
        settle();
        if (row.firstPainted < 0) {
            EXPECT_TRUE(delegate.rows.empty()) << row.name;
            continue;
        }
        ASSERT_FALSE(delegate.rows.empty()) << row.name;
        EXPECT_EQ(*delegate.rows.begin(), row.firstPainted) << row.name;
        EXPECT_EQ(*delegate.rows.rbegin(), row.lastPainted) << row.name;
    }
}

TEST_F(ItemViewTest, ClicksAndKeysMoveTheSelectionAndTheAccentFollows) {
    Rows model(5000);
    auto* view = host<KyListView>(&model);
    KyItemSelectionModel* selection = view->selectionModel();
    click(300, 2 * 30 + 15);
    ASSERT_TRUE(runUntil([&] { return selection->isRowSelected(2); }));
    settle();
    EXPECT_EQ(user->pixel(window->id(), 350, 2 * 30 + 15), KyColor(229, 241, 251));
    EXPECT_EQ(user->pixel(window->id(), 350, 1 * 30 + 15), KyColor(255, 255, 255));

    struct Row { const char* name; KeySym sym; int row; };
    const Row keys[] = {{"Down", XK_Down, 3}, {"Up", XK_Up, 2}, {"End", XK_End, 4999}, {"Home", XK_Home, 0},
                        {"Page Down", XK_Page_Down, 8}};
    for (const Row& row : keys) {
        pointer(200, 150);
        user->tapKey(row.sym);
        EXPECT_TRUE(runUntil([&] { return view->currentIndex().row() == row.row; })) << row.name;
        EXPECT_EQ(selection->selectedRowCount(), 1) << row.name;
        EXPECT_TRUE(selection->isRowSelected(row.row)) << row.name;
        EXPECT_GE(row.row, view->firstVisibleRow()) << row.name << ": the current row is scrolled into view";
        EXPECT_LE(row.row, view->lastVisibleRow()) << row.name;
    }
}

TEST_F(ItemViewTest, AHeaderClickSortsTheProxyAndASecondClickReversesIt) {
    Rows model(50);
    KySortFilterProxyModel proxy;
    proxy.setSourceModel(&model);
    auto* table = host<KyTableView>(&proxy);
    table->setSortingEnabled(true);
    const int countX = table->horizontalHeader()->sectionPosition(1) + 30;
    click(countX, 16);
    ASSERT_TRUE(runUntil([&] { return proxy.sortColumn() == 1; }));
    EXPECT_EQ(proxy.index(0, 1).data().toInt(), 1);
    click(countX, 16);
    ASSERT_TRUE(runUntil([&] { return proxy.sortOrder() == KySortOrder::Descending; }));
    EXPECT_EQ(proxy.index(0, 1).data().toInt(), 50);
    // Painted in the new order: the first row under the header is the largest count.
    settle();
    EXPECT_EQ(table->indexAt({countX, 32 + 15}).data().toInt(), 50);
}

TEST_F(ItemViewTest, AnEditorOpensByF2OrDoubleClickCommitsOnReturnOrFocusLossAndEscapeCancels) {
    KyStandardItemModel model(20, 1);
    for (int r = 0; r < 20; ++r) model.setItem(r, 0, KyStandardItem(KyString("Row " + std::to_string(r))));
    auto* view = host<KyListView>(&model);
    auto* elsewhere = new KyLineEdit(root);
    elsewhere->setGeometry(0, 300, 200, 20);
    elsewhere->show();
    const KyModelIndex cell = model.index(2, 0);
    enum Open { F2, DoubleClick };
    enum End { Return, Escape, ClickElsewhere };
    struct Row { const char* name; Open open; End end; const char* expected; };
    const Row table[] = {
        {"F2, then Return", F2, Return, "ok"},
        {"double click, then Return", DoubleClick, Return, "ok"},
        {"F2, then Escape", F2, Escape, "Row 2"},
        {"F2, then a click on another field", F2, ClickElsewhere, "ok"},
    };
    int selectX = 40;
    for (const Row& row : table) {
        model.setData(cell, KyAny(KyString("Row 2")));
        // Each press somewhere new, so no two rows' presses make a double click.
        click(selectX += 40, 2 * 30 + 15);
        ASSERT_TRUE(runUntil([&] { return view->hasFocus() && view->currentIndex() == cell; })) << row.name;
        if (row.open == F2) user->tapKey(XK_F2);
        else click(350, 2 * 30 + 15), click(350, 2 * 30 + 15);
        ASSERT_TRUE(runUntil([&] { return view->openEditor() && view->openEditor()->hasFocus(); })) << row.name;
        // The editor opens with the cell's text selected, so typing replaces it.
        user->tapKey(XK_o);
        user->tapKey(XK_k);
        ASSERT_TRUE(runUntil([&] { return view->openEditor()->property("Text").toString() == KyString("ok"); }))
            << row.name;
        if (row.end == ClickElsewhere) click(100, 310);
        else user->tapKey(row.end == Return ? XK_Return : XK_Escape);
        ASSERT_TRUE(runUntil([&] { return !view->openEditor(); })) << row.name;
        EXPECT_EQ(cell.data().toString(), KyString(row.expected)) << row.name;
        EXPECT_TRUE(runUntil([&] { return (row.end == ClickElsewhere ? elsewhere : static_cast<KyWidget*>(view))->hasFocus(); }))
            << row.name << ": the focus stays where the user put it";
    }
}

} // namespace

// KySortFilterProxyModel over a standard item model that changes under it:
// after every change the proxy must show exactly the rows a fresh filter and
// stable sort of the source would, map both ways, and a listener that only
// follows the proxy's signals must see the same rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "gui/modelview/KyPersistentModelIndex.h"
#include "gui/modelview/KySortFilterProxyModel.h"
#include "gui/modelview/KyStandardItemModel.h"

namespace {

constexpr int kIdRole = KyItemDataRole::User;

KyStandardItemModel::Row makeRow(int id, const KyString& name, int size) {
    KyStandardItem a(name);
    a.setData(KyAny(id), kIdRole);
    KyStandardItem b;
    b.setData(KyAny(size), KyItemDataRole::Display);
    return {a, b};
}

// Rebuilds the proxy's rows from its signals alone, reading new rows as they
// arrive and checking removed ones while they are still readable.
struct SignalMirror {
    explicit SignalMirror(KySortFilterProxyModel& m) : model(m) {
        using M = KyAbstractItemModel;
        KyObject::connect(&model, &M::rowsAboutToBeRemoved, [this](const KyModelIndex&, int f, int l) {
            for (int r = f; r <= l; ++r) EXPECT_EQ(ids[std::size_t(r)], idAt(r)) << "row leaving at " << r;
            ids.erase(ids.begin() + f, ids.begin() + l + 1);
        });
        KyObject::connect(&model, &M::rowsInserted, [this](const KyModelIndex&, int f, int l) {
            for (int r = f; r <= l; ++r) ids.insert(ids.begin() + r, idAt(r));
        });
        KyObject::connect(&model, &M::dataChanged, [this](const KyModelIndex& a, const KyModelIndex& b, const KyList<int>&) {
            for (int r = a.row(); r <= b.row(); ++r) ids[std::size_t(r)] = idAt(r);
        });
        KyObject::connect(&model, &M::modelReset, [this] { reread(); });
        // Across a reorder the mirror moves its rows by persistent indexes only.
        KyObject::connect(&model, &M::layoutAboutToBeChanged, [this] {
            held.clear();
            for (int r = 0; r < model.rowCount(); ++r) held.push_back({model.index(r, 0), ids[std::size_t(r)]});
        });
        KyObject::connect(&model, &M::layoutChanged, [this] {
            std::vector<int> next(ids.size(), -1);
            for (const auto& [p, id] : held) {
                ASSERT_TRUE(p.isValid());
                next[std::size_t(p.row())] = id;
            }
            ids = next;
            held.clear();
        });
        reread();
    }
    int idAt(int row) const { return model.index(row, 0).data(kIdRole).toInt(); }
    void reread() {
        ids.clear();
        for (int r = 0; r < model.rowCount(); ++r) ids.push_back(idAt(r));
    }
    KySortFilterProxyModel& model;
    std::vector<int> ids;
    std::vector<std::pair<KyPersistentModelIndex, int>> held;
};

struct ProxyFixture : ::testing::Test {
    KyStandardItemModel source;
    KySortFilterProxyModel proxy;
    int nextId = 0;

    void SetUp() override { proxy.setSourceModel(&source); }

    // What a fresh filter and stable sort of the source gives, as ids.
    std::vector<int> expectedIds() const {
        std::vector<int> rows;
        const std::string needle = kyFoldCase(proxy.filterFixedString().view());
        for (int r = 0; r < source.rowCount(); ++r) {
            bool hit = needle.empty();
            for (int c = 0; c < source.columnCount() && !hit; ++c) {
                if (proxy.filterKeyColumn() >= 0 && c != proxy.filterKeyColumn()) continue;
                hit = kyFoldCase(source.index(r, c).data().toString().view()).find(needle) != std::string::npos;
            }
            if (hit) rows.push_back(r);
        }
        if (proxy.sortColumn() >= 0) {
            const int c = proxy.sortColumn();
            std::stable_sort(rows.begin(), rows.end(), [&](int a, int b) {
                const int cmp = kyCompareItemData(source.index(a, c).data(), source.index(b, c).data());
                return proxy.sortOrder() == KySortOrder::Ascending ? cmp < 0 : cmp > 0;
            });
        }
        std::vector<int> ids;
        for (int r : rows) ids.push_back(source.index(r, 0).data(kIdRole).toInt());
        return ids;
    }

    void expectConsistent(const SignalMirror& mirror, const std::string& step) {
        const std::vector<int> want = expectedIds();
        ASSERT_EQ(proxy.rowCount(), int(want.size())) << step;
        for (int p = 0; p < proxy.rowCount(); ++p) {
            const KyModelIndex s = proxy.mapToSource(proxy.index(p, 1));
            ASSERT_EQ(s.column(), 1) << step;
            ASSERT_EQ(s.siblingAtColumn(0).data(kIdRole).toInt(), want[std::size_t(p)]) << step << " row " << p;
            ASSERT_EQ(proxy.mapFromSource(s), proxy.index(p, 1)) << step;
        }
        int visible = 0;
        for (int r = 0; r < source.rowCount(); ++r) visible += proxy.mapFromSource(source.index(r, 0)).isValid();
        ASSERT_EQ(visible, proxy.rowCount()) << step;
        ASSERT_EQ(mirror.ids, want) << step;
    }
};

TEST_F(ProxyFixture, FollowsARandomlyChangingSourceAndItsListenersSeeTheSameRows) {
    static const char* const kWords[] = {"alpha", "Beta", "gamma", "ALPHA", "delta", "\xc3\x89mile", "\xc3\xa9mile", "beta"};
    std::mt19937 rng(20240611);
    auto pick = [&](int n) { return int(rng() % unsigned(n)); };
    auto row = [&] { return makeRow(nextId++, KyString(kWords[pick(8)]) + KyString::number(pick(4)), pick(6)); };
    for (int i = 0; i < 40; ++i) source.appendRow(row());
    proxy.setFilterKeyColumn(-1);
    SignalMirror mirror(proxy);
    KyPersistentModelIndex watched;
    int watchedId = -1;

    for (int step = 0; step < 600; ++step) {
        const int rows = source.rowCount();
        std::string what;
        switch (pick(10)) {
        case 0: case 1:
            what = "insert";
            source.insertRow(pick(rows + 1), row());
            break;
        case 2:
            what = "remove";
            if (rows > 0) { const int at = pick(rows); source.removeRows(at, std::min(1 + pick(3), rows - at)); }
            break;
        case 3: case 4:
            what = "setData";
            if (rows > 0) source.setData(source.index(pick(rows), pick(2)), pick(2) ? KyAny(kWords[pick(8)]) : KyAny(pick(6)));
            break;
        case 5: {
            what = "reset";
            KyVector<KyStandardItemModel::Row> all;
            for (int i = 0, n = pick(50); i < n; ++i) all.append(row());
            source.setRows(std::move(all));
            break;
        }
        case 6: {
            what = "filter";
            static const char* const kFilters[] = {"", "a", "ALP", "\xc3\x89MI", "3", "zzz"};
            proxy.setFilterFixedString(kFilters[pick(6)]);
            if (pick(3) == 0) proxy.setFilterKeyColumn(pick(3) - 1);
            break;
        }
        case 7:
            what = "sort";
            proxy.sort(pick(3) - 1, pick(2) ? KySortOrder::Ascending : KySortOrder::Descending);
            break;
        case 8:
            what = "source sort";
            source.sort(pick(2), pick(2) ? KySortOrder::Ascending : KySortOrder::Descending);
            break;
        default:
            if (pick(2)) {
                what = "remove through proxy";
                if (proxy.rowCount() > 1) {
                    ASSERT_TRUE(proxy.removeRows(pick(proxy.rowCount() - 1), 2));
                }
            } else {
                // New rows land in the source before the row the proxy shows there.
                what = "insert through proxy";
                const int at = pick(proxy.rowCount() + 1);
                const int before = at < proxy.rowCount() ? proxy.mapRowToSource(at) : source.rowCount();
                ASSERT_TRUE(proxy.insertRows(at, 2));
                for (int r = before; r < before + 2; ++r) source.setItem(r, 0, row()[0]);
            }
        }
        // A persistent proxy cell keeps naming the same item until the item goes.
        if (watched.isValid()) {
            ASSERT_EQ(watched.data(kIdRole).toInt(), watchedId) << what;
        } else if (proxy.rowCount() > 0) {
            watched = proxy.index(pick(proxy.rowCount()), 0);
            watchedId = watched.data(kIdRole).toInt();
        }
        expectConsistent(mirror, "step " + std::to_string(step) + " " + what);
    }
}

TEST_F(ProxyFixture, FilterIgnoresCaseInTheKeyColumnOrInAnyColumn) {
    source.appendRow(makeRow(0, "Allow 10.44.0.0/24", 1));
    source.appendRow(makeRow(1, "Block 192.168.10.12/32", 24));
    source.appendRow(makeRow(2, "\xc3\x89tat draft", 3));
    struct Case {
        const char* name;
        const char* text;
        int column;
        std::vector<int> ids;
    } cases[] = {
        {"upper case finds lower", "ALLOW", 0, {0}},
        {"substring in the middle", "168.10", 0, {1}},
        {"accented capital finds accented small", "\xc3\xa9TAT", 0, {2}},
        {"other column is not read", "24", 0, {0}},
        {"every column is read", "24", -1, {0, 1}},
        {"empty keeps all", "", 0, {0, 1, 2}},
        {"no hit hides all", "zz", -1, {}},
    };
    for (const Case& c : cases) {
        proxy.setFilterKeyColumn(c.column);
        proxy.setFilterFixedString(c.text);
        std::vector<int> ids;
        for (int r = 0; r < proxy.rowCount(); ++r) ids.push_back(proxy.index(r, 0).data(kIdRole).toInt());
        EXPECT_EQ(ids, c.ids) << c.name;
        EXPECT_FALSE(proxy.index(proxy.rowCount(), 0).isValid()) << c.name;
    }
}

TEST_F(ProxyFixture, AFilterThatScattersRowsBecomesOneReset) {
    KyVector<KyStandardItemModel::Row> rows;
    for (int i = 0; i < 2000; ++i) rows.append(makeRow(i, i % 2 ? "odd" : "even", i % 7));
    source.setRows(std::move(rows));
    proxy.sort(1);
    SignalMirror mirror(proxy);
    int resets = 0;
    KyObject::connect(&proxy, &KyAbstractItemModel::modelReset, [&] { ++resets; });
    for (const char* filter : {"odd", "", "EVEN", "e"}) {
        proxy.setFilterFixedString(filter);
        expectConsistent(mirror, filter);
    }
    EXPECT_EQ(resets, 3) << "a thousand scattered runs each time; \"e\" after \"EVEN\" changes nothing";
}

TEST_F(ProxyFixture, EditsThroughTheProxyReachTheSourceAndResortTheRow) {
    for (int i = 0; i < 5; ++i) source.appendRow(makeRow(i, KyString::format("row %d", i), i));
    proxy.sort(1, KySortOrder::Ascending);
    int layouts = 0;
    KyObject::connect(&proxy, &KyAbstractItemModel::layoutChanged, [&] { ++layouts; });
    KyPersistentModelIndex edited = proxy.index(0, 1);
    EXPECT_TRUE(proxy.setData(edited, KyAny(10), KyItemDataRole::Edit));
    EXPECT_EQ(source.index(0, 1).data().toInt(), 10);
    EXPECT_EQ(layouts, 1);
    EXPECT_EQ(edited.row(), 4) << "the edited row moved to the bottom and its persistent index with it";
    // A change that keeps the order moves nothing.
    proxy.setData(proxy.index(2, 0), KyAny("renamed"));
    EXPECT_EQ(layouts, 1);
}

} // namespace

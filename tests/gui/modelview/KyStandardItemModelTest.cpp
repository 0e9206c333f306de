// KyStandardItemModel: what its listeners are told for each kind of edit,
// and cells that persist through them.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "gui/modelview/KyPersistentModelIndex.h"
#include "gui/modelview/KyStandardItemModel.h"

namespace {

TEST(KyStandardItemModel, EachEditTellsItsListenersExactlyWhatChanged) {
    KyStandardItemModel model(3, 2);
    model.setHorizontalHeaderLabels({"Destination range", "State"});
    std::vector<std::string> heard;
    using M = KyAbstractItemModel;
    const auto rows = [&](const char* what) {
        return [&heard, what](const KyModelIndex&, int f, int l) { heard.push_back(what + std::to_string(f) + "-" + std::to_string(l)); };
    };
    KyObject::connect(&model, &M::rowsInserted, rows("ins "));
    KyObject::connect(&model, &M::rowsRemoved, rows("rem "));
    KyObject::connect(&model, &M::modelReset, [&] { heard.push_back("reset"); });
    KyObject::connect(&model, &M::dataChanged, [&](const KyModelIndex& a, const KyModelIndex& b, const KyList<int>& roles) {
        heard.push_back("data " + std::to_string(a.row()) + "," + std::to_string(a.column()) + "-" +
                        std::to_string(b.row()) + "," + std::to_string(b.column()) + " roles " + std::to_string(roles.count()));
    });
    KyPersistentModelIndex held = model.index(2, 1);
    struct Step {
        std::function<void()> edit;
        std::vector<std::string> heard;
    } steps[] = {
        {[&] { model.setData(model.index(2, 1), KyAny("Active")); }, {"data 2,1-2,1 roles 2"}},
        {[&] { model.setData(model.index(2, 1), KyAny("Active")); }, {}},
        {[&] { model.setData(model.index(2, 1), KyAny(true), KyItemDataRole::User + 1); }, {"data 2,1-2,1 roles 1"}},
        {[&] { model.insertRows(1, 2); }, {"ins 1-2"}},
        {[&] { model.appendRow(KyStandardItem("10.44.0.0/24")); }, {"ins 5-5"}},
        {[&] { model.setItem(7, 0, KyStandardItem("x")); }, {"ins 6-7", "data 7,0-7,0 roles 0"}},
        {[&] { model.removeRows(0, 2); }, {"rem 0-1"}},
        {[&] { model.setColumnCount(3); }, {"reset"}},
    };
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        heard.clear();
        if (i == std::size(steps) - 1) {
            EXPECT_EQ(held.row(), 2) << "the held cell moved with its row";
        }
        steps[i].edit();
        EXPECT_EQ(heard, steps[i].heard) << "step " << i;
    }
    EXPECT_FALSE(held.isValid()) << "a reset ends every held cell";
    EXPECT_EQ(model.index(3, 0).data(KyItemDataRole::Edit).toString(), "10.44.0.0/24") << "edit reads the display value";
    EXPECT_EQ(model.headerData(1, KyOrientation::Horizontal).toString(), "State");
    EXPECT_EQ(model.headerData(2, KyOrientation::Horizontal).toInt(), 3) << "a section without a label shows its number";
    EXPECT_TRUE(model.flags(model.index(0, 0)).testFlag(KyItemFlag::Editable));
    EXPECT_TRUE(model.flags(model.index(99, 0)).isEmpty());
}

} // namespace

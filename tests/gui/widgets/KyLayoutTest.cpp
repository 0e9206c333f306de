// Box and grid layouts placing real widgets: where each one lands for a given
// parent size, hints, minimums, policies and stretches.
#include <gtest/gtest.h>

#include <vector>

#include "gui/widgets/KyBoxLayout.h"
#include "gui/widgets/KyGridLayout.h"
#include "gui/widgets/KyWidget.h"

namespace {

// A widget that asks for a fixed hint, as every real control does.
class HintWidget : public KyWidget {
public:
    HintWidget(KyWidget* parent, KySize hint, KySize minimum = {}) : KyWidget(parent), hint_(hint) {
        setMinimumSize(minimum.width, minimum.height);
    }
    KySize sizeHint() const override { return hint_; }

private:
    KySize hint_;
};

struct Item {
    KySize hint;
    KySize minimum;
    int stretch;
    const char* policy;  // main-axis policy name, or null for the class default
    bool spacer;
};
Item widget(KySize hint, const char* policy = nullptr, int stretch = 0, KySize minimum = {}) {
    return {hint, minimum, stretch, policy, false};
}
Item expandingSpacer() { return {{0, 0}, {}, 0, nullptr, true}; }

struct BoxCase {
    const char* name;
    bool vertical;
    int length;  // the parent's main length; its cross length is 100
    std::vector<Item> items;
    std::vector<int> sizes;  // expected main-axis sizes
};

class BoxLayoutCase : public ::testing::TestWithParam<BoxCase> {};

TEST_P(BoxLayoutCase, GivesEachEntryItsShare) {
    const BoxCase& c = GetParam();
    KyWidget parent;
    parent.resize(c.vertical ? 100 : c.length, c.vertical ? c.length : 100);
    KyBoxLayout* layout = c.vertical ? static_cast<KyBoxLayout*>(new KyVerticalLayout) : new KyHorizontalLayout;
    layout->setSpacing(0);
    layout->setContentsMargins(0, 0, 0, 0);
    std::vector<KyLayoutItem*> items;
    for (const Item& it : c.items) {
        if (it.spacer) {
            const int p = KySizePolicy::Expanding;
            layout->insertItem(-1, new KySpacerItem(it.hint.width, it.hint.height, p, p), it.stretch);
        } else {
            auto* w = new HintWidget(nullptr, it.hint, it.minimum);
            if (it.policy) w->setProperty(c.vertical ? "VerticalPolicy" : "HorizontalPolicy", KyString(it.policy));
            layout->addWidget(w, it.stretch);
        }
        items.push_back(layout->itemAt(layout->count() - 1));
    }
    parent.setLayout(layout);
    // Widgets added before the layout had a parent join it with the layout.
    layout->forEachManagedWidget([&](KyWidget* w) { EXPECT_EQ(w->parentWidget(), &parent); });
    ASSERT_EQ(items.size(), c.sizes.size());
    int position = 0;
    for (size_t i = 0; i < items.size(); ++i) {
        const KyRect g = items[i]->geometry();
        EXPECT_EQ(c.vertical ? g.height : g.width, c.sizes[i]) << "entry " << i;
        EXPECT_EQ(c.vertical ? g.y : g.x, position) << "entry " << i;
        position += c.sizes[i];
    }
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, BoxLayoutCase,
    ::testing::Values(
        BoxCase{"StretchAddsToPreferredAndTheLastTakesTheRest", false, 40,
                {widget({10, 10}, nullptr, 1), widget({10, 10}, nullptr, 1), widget({10, 10}, nullptr, 1)},
                {13, 13, 14}},
        BoxCase{"ExpandingWidgetsShareEvenlyFirstTakeTheRemainder", false, 40,
                {widget({10, 10}, "Expanding"), widget({10, 10}, "Expanding"), widget({10, 10}, "Expanding")},
                {14, 13, 13}},
        BoxCase{"ExpandingSpacerTakesAllBeforeAnExpandingWidget", true, 100,
                {widget({10, 20}, "Expanding"), expandingSpacer()}, {20, 80}},
        BoxCase{"PreferredWidgetsGrowWhenNobodyExpands", false, 41,
                {widget({10, 10}), widget({10, 10}, "Fixed"), widget({10, 10})}, {16, 10, 15}},
        BoxCase{"FixedVerticalPolicyKeepsItsHintedHeight", true, 200, {widget({80, 24}, "Fixed")}, {24}},
        BoxCase{"TooLittleRoomGivesEveryoneItsMinimum", false, 40,
                {widget({50, 10}, nullptr, 0, {30, 10}), widget({50, 10}, nullptr, 0, {30, 10})}, {30, 30}},
        BoxCase{"ShrinkFollowsSlackAndRoundingFallsOnTheLast", false, 60,
                {widget({50, 10}, nullptr, 0, {10, 10}), widget({30, 10}, nullptr, 0, {10, 10})}, {37, 23}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(BoxLayout, HintsAndRefusals) {
    KyWidget parent;
    auto* layout = new KyHorizontalLayout;
    parent.setLayout(layout);
    // An empty layout asks for its margins alone.
    EXPECT_EQ(layout->sizeHint(), KySize(16, 16));

    auto* a = new HintWidget(nullptr, {30, 20}, {10, 5});
    auto* b = new HintWidget(nullptr, {40, 10});
    layout->addWidget(a);
    layout->addWidget(a);  // twice: ignored
    layout->addWidget(nullptr);
    layout->addWidget(b, 0, 25);  // a fixed length overrides the hint
    EXPECT_EQ(layout->count(), 2);
    EXPECT_EQ(a->parentWidget(), &parent);
    EXPECT_EQ(layout->sizeHint(), KySize(8 + 30 + 8 + 25 + 8, 8 + 20 + 8));
    EXPECT_EQ(layout->minimumSizeHint(), KySize(8 + 10 + 8 + 25 + 8, 8 + 5 + 8));

    // Across the main axis a widget that does not grow is centred at its hint.
    b->setProperty("VerticalPolicy", KyString("Fixed"));
    parent.resize(200, 100);
    EXPECT_EQ(b->geometry().height, 10);
    EXPECT_EQ(b->geometry().y, 8 + (84 - 10) / 2);
    EXPECT_EQ(a->geometry().height, 84);  // Preferred grows across

    // A deleted widget leaves the layout.
    delete a;
    EXPECT_EQ(layout->count(), 1);

    // A layout handed to another widget leaves the first one for good.
    KyWidget other;
    other.setLayout(layout);
    EXPECT_EQ(parent.layout(), nullptr);
    parent.resize(300, 120);
    EXPECT_EQ(b->parentWidget(), &other);
}

TEST(GridLayout, SpansStretchesAndMinimums) {
    KyWidget parent;
    auto* grid = new KyGridLayout;
    grid->setSpacing(4);
    grid->setContentsMargins(0, 0, 0, 0);
    auto* label = new HintWidget(nullptr, {60, 20});
    auto* field = new HintWidget(nullptr, {100, 20});
    auto* wide = new HintWidget(nullptr, {300, 30});
    grid->addWidget(label, 0, 0);
    grid->addWidget(field, 0, 1);
    grid->addWidget(wide, 1, 0, 1, 2);
    grid->addWidget(new HintWidget(nullptr, {1, 1}), -1, 0);  // out of range: ignored
    grid->setColumnStretch(1, 1);
    grid->setRowMinimumHeight(2, 15);
    parent.setLayout(grid);
    EXPECT_EQ(grid->rowCount(), 3);
    EXPECT_EQ(grid->columnCount(), 2);
    // The spanning widget widens only the stretched column: 300 = 60 + 4 + 236.
    EXPECT_EQ(grid->sizeHint(), KySize(300, 20 + 4 + 30 + 4 + 15));

    parent.resize(400, 100);
    // Rows without stretch share the spare height evenly: 92 - 65 = 27.
    EXPECT_EQ(label->geometry(), KyRect(0, 0, 60, 29));
    EXPECT_EQ(field->geometry().x, 64);
    EXPECT_EQ(field->geometry().width, 336);  // the stretched column takes the room
    EXPECT_EQ(wide->geometry(), KyRect(0, 33, 400, 39));

    // Tracks fit: minimums scaled together when even they do not fit, the
    // leftover going to the first tracks; with room, stretch decides.
    struct Fit {
        const char* name;
        int available;
        std::vector<int> preferred, minimums, stretches, expected;
    };
    const Fit fits[] = {
        {"MinimumsScaledDown", 10, {10, 10, 10}, {6, 6, 6}, {0, 0, 0}, {4, 3, 3}},
        {"PreferredThenEvenShare", 40, {10, 20, 5}, {5, 5, 5}, {0, 0, 0}, {12, 22, 6}},
        {"PreferredThenStretch", 40, {10, 20, 5}, {5, 5, 5}, {0, 1, 1}, {10, 22, 8}},
        {"NotAllPreferredFits", 20, {10, 20, 5}, {5, 5, 5}, {0, 1, 0}, {6, 9, 5}},
    };
    for (const Fit& f : fits) {
        std::vector<int> sizes = f.preferred;
        KyGridLayout::distributeSizes_(f.available, sizes.data(), f.minimums.data(), f.stretches.data(),
                                       int(sizes.size()));
        EXPECT_EQ(sizes, f.expected) << f.name;
    }
}

}  // namespace

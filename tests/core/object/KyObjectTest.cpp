// The object model: the tree and its events, the order of destruction as a
// `destroyed` receiver sees it, deferred delete, liveness, event filters,
// properties and moving between threads.
#include <gtest/gtest.h>

#include "../../support/KyTestLoop.h"

#include <pthread.h>

#include <atomic>
#include <string>
#include <vector>

#include "core/io/KyDebug.h"
#include "core/object/KyObject.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"
#include "core/types/KyPointer.h"

namespace {

using ky::atomic::Thread;

using kytest::eventually;

// Records what happens to a node of the tree, in order, into a shared journal.
class Node : public KyObject {
    KY_OBJECT(Node, KyObject)
public:
    Node(std::vector<std::string>* journal, const char* name, KyObject* parent = nullptr)
        : KyObject(parent), journal_(journal), name_(name) {}
    ~Node() override {
        journal_->push_back(name_ + " ~Node parent=" + (parent() ? "set" : "null"));
        delete takesAlong;
    }
    void addChildEvent(KyObject* child) override { journal_->push_back(name_ + " addChildEvent " + nameOf_(child)); }
    void removedChildEvent(KyObject* child) override {
        journal_->push_back(name_ + " removedChildEvent " + nameOf_(child));
    }
    void newParentEvent(KyObject* parent) override { journal_->push_back(name_ + " newParentEvent " + nameOf_(parent)); }
    bool eventFilter(KyObject* watched, KyEvent* event) override {
        journal_->push_back(name_ + " filter " + std::to_string(event->type()) + " for " + nameOf_(watched));
        return blocks;
    }

    bool blocks = false;
    KyObject* takesAlong = nullptr; // deleted with this node

private:
    std::string nameOf_(KyObject* o) const {
        if (!o) return "null";
        auto* n = dynamic_cast<Node*>(o);
        return n ? n->name_ : "?";
    }
    std::vector<std::string>* journal_;
    std::string name_;
};

// Deletes out of the compiler's sight, so reading a guarded pointer after it
// is not mistaken for a use after free: the guard exists for exactly that read.
[[gnu::noinline]] void destroyElsewhere(KyObject* object) { delete object; }

class Gadget : public KyObject {
    KY_OBJECT(Gadget, KyObject)
    KY_PROPERTY_HANDLED(int, Count, 0)
    KY_PROPERTY_INIT(KyString, Title, "untitled")
public:
    virtual void on_Count_changed(const int& value) {
        steps.push_back("on_Count_changed " + std::to_string(value) + " dynamic=" +
                        (dynamicPropertyNames().contains(KyString("Count")) ? "yes" : "no"));
    }
    std::vector<std::string> steps;
};

class SpecialGadget : public Gadget {
    KY_OBJECT(SpecialGadget, Gadget)
};

} // namespace

// ---------------------------------------------------------------------------

TEST(KyObjectTree, SetParentRemovesFromOldAddsToNewThenTellsTheChildAndRefusesACycle) {
    std::vector<std::string> j;
    Node a(&j, "a"), b(&j, "b");
    auto* c = new Node(&j, "c", &a);
    std::vector<KyObject*> added, removed;
    KyObject::connect(&a, &KyObject::childRemoved, [&](KyObject* o) { removed.push_back(o); });
    KyObject::connect(&b, &KyObject::childAdded, [&](KyObject* o) { added.push_back(o); });
    EXPECT_EQ(c->parent(), &a);
    ASSERT_EQ(a.children().size(), 1u);
    j.clear();
    c->setParent(&b);
    EXPECT_EQ(j, (std::vector<std::string>{"a removedChildEvent c", "b addChildEvent c", "c newParentEvent b"}));
    EXPECT_EQ(added, std::vector<KyObject*>{c});
    EXPECT_EQ(removed, std::vector<KyObject*>{c});
    EXPECT_TRUE(a.children().empty());
    EXPECT_EQ(b.children().size(), 1u);
    // A cycle is refused.
    b.setParent(c);
    b.setParent(&b);
    EXPECT_EQ(b.parent(), nullptr);
    EXPECT_EQ(c->parent(), &b);
}

TEST(KyObjectTree, ChildEventsGoThroughFiltersNewestFirstOrTheLoopsNotifyAndNeedAChild) {
    std::vector<std::string> j;
    Node a(&j, "a"), older(&j, "older"), newer(&j, "newer");
    a.installEventFilter(&older);
    a.installEventFilter(&newer);
    Node child(&j, "child");
    j.clear();
    a.addChild(&child);
    EXPECT_EQ(j, (std::vector<std::string>{"newer filter 3 for a", "older filter 3 for a", "a addChildEvent child"}));
    j.clear();
    newer.blocks = true;
    a.removeChild(&child);
    EXPECT_EQ(j, std::vector<std::string>{"newer filter 4 for a"});
    a.removeEventFilter(&newer);
    a.removeEventFilter(&older);
    EXPECT_TRUE(a.eventFilters().empty());
    {
        KyCoreApplication app;
        Node watcher(&j, "w");
        app.installEventFilter(&watcher);
        j.clear();
        child.setParent(&a);
        app.removeEventFilter(&watcher);
        EXPECT_EQ(j, (std::vector<std::string>{"w filter 3 for a", "a addChildEvent child", "child newParentEvent a"}));
        child.setParent(nullptr);
    }
    KyChildEvent removed(KyEvent::ChildRemoved, &child);
    removed.setAccepted(false);
    EXPECT_TRUE(a.event(&removed));
    EXPECT_TRUE(removed.isAccepted());
    KyEvent bare(KyEvent::ChildAdded);
    EXPECT_FALSE(a.event(&bare));
    KyEvent other(KyEvent::User);
    EXPECT_FALSE(a.event(&other));
}

TEST(KyObjectDestruction, ChildrenGoFirstCutLooseAndDestroyedSeesNoParentNoChildrenNoThreadNoLiveness) {
    std::vector<std::string> j;
    KyObject root;
    auto* middle = new Node(&j, "middle", &root);
    auto* leaf = new Node(&j, "leaf", middle);
    new Node(&j, "leaf2", middle);
    KyPointer<Node> guardLeaf(leaf);
    KyPointer<KyObject> guardMiddle(middle);
    const void* middleAddress = middle;
    const void* leafAddress = leaf;
    EXPECT_TRUE(KyObject::isLive(leafAddress));
    ASSERT_NE(middle->thread(), nullptr);
    j.clear();
    struct Seen { bool called = false, live = true; KyObject* parent = reinterpret_cast<KyObject*>(1); std::size_t children = 99; Thread* thread = nullptr; } seen;
    seen.thread = middle->thread();
    KyObject::connect(middle, &KyObject::destroyed, [&seen, middle] {
        seen.called = true;
        seen.live = KyObject::isLive(middle);
        seen.parent = middle->parent();
        seen.children = middle->children().size();
        seen.thread = middle->thread();
    });
    std::vector<KyObject*> removedFromRoot;
    int removedFromMiddle = 0;
    KyObject::connect(&root, &KyObject::childRemoved, [&](KyObject* o) { removedFromRoot.push_back(o); });
    KyObject::connect(middle, &KyObject::childRemoved, [&] { ++removedFromMiddle; });
    destroyElsewhere(middle);
    EXPECT_TRUE(seen.called);
    EXPECT_FALSE(seen.live);
    EXPECT_EQ(seen.parent, nullptr);
    EXPECT_EQ(seen.children, 0u);
    EXPECT_EQ(seen.thread, nullptr);
    EXPECT_EQ(removedFromRoot.size(), 1u);
    EXPECT_TRUE(root.children().empty());
    // The leaves went before destroyed(), already cut loose, never calling back into their dying parent.
    EXPECT_EQ(j, (std::vector<std::string>{"middle ~Node parent=set", "leaf ~Node parent=null", "leaf2 ~Node parent=null"}));
    EXPECT_EQ(removedFromMiddle, 0);
    EXPECT_FALSE(KyObject::isLive(middleAddress));
    EXPECT_FALSE(KyObject::isLive(leafAddress));
    EXPECT_FALSE(KyObject::isLive(nullptr));
    EXPECT_TRUE(guardLeaf.isNull());
    EXPECT_EQ(guardMiddle.get(), nullptr);
    // A child that takes its sibling along leaves the dying parent nothing to touch again (ASan sees it).
    j.clear();
    auto* top = new KyObject;
    auto* first = new Node(&j, "first", top);
    first->takesAlong = new Node(&j, "second", top);
    delete top;
    EXPECT_EQ(j, (std::vector<std::string>{"first ~Node parent=null", "second ~Node parent=set"}));
}

// ---------------------------------------------------------------------------

TEST(KyObjectProperties, SettersFollowTheChangeOrderIgnoreEqualValuesRefuseOtherTypesAndDynamicOnesHoldAny) {
    Gadget g;
    std::vector<std::string> emitted;
    KyObject::connect(&g, &Gadget::CountChanged, [&](const int& v) {
        emitted.push_back("CountChanged " + std::to_string(v) + " dynamic=" +
                          (g.dynamicPropertyNames().contains(KyString("Count")) ? "yes" : "no"));
    });
    int titles = 0;
    KyObject::connect(&g, &Gadget::TitleChanged, [&] { ++titles; });
    g.setCount(0);
    g.setCount(7);
    g.setCount(7);
    EXPECT_EQ(g.steps, std::vector<std::string>{"on_Count_changed 7 dynamic=no"});
    EXPECT_EQ(emitted, std::vector<std::string>{"CountChanged 7 dynamic=yes"});
    EXPECT_EQ(g.property(KyString("Count")).get<int>(), 7);
    EXPECT_EQ(g.property(KyString("Title")).get<KyString>(), KyString("untitled"));
    EXPECT_TRUE(g.setProperty(KyString("Title"), KyAny(KyString("set by name"))));
    EXPECT_FALSE(g.setProperty(KyString("Title"), KyAny(3)));
    EXPECT_FALSE(g.setProperty(KyString("Title"), KyAny()));
    EXPECT_EQ(g.getTitle(), KyString("set by name"));
    EXPECT_EQ(titles, 1);

    std::vector<KyString> names;
    KyObject::connect(&g, &KyObject::ObjectNameChanged, [&](const KyString& n) { names.push_back(n); });
    g.setObjectName(KyString("first"));
    g.setObjectName(KyString("first"));
    g.setObjectName(KyString("gadget-1"));
    EXPECT_EQ(names, (std::vector<KyString>{"first", "gadget-1"}));
    EXPECT_EQ(g.property(KyString("ObjectName")).get<KyString>(), KyString("gadget-1"));
    struct Row { const char* name; const char* typeName; };
    const Row rows[] = {{"ObjectName", "KyString"}, {"Count", "int"}, {"Title", "KyString"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(g.propertyExist(KyString(row.name)));
        EXPECT_EQ(g.propertyTypeName(KyString(row.name)), KyString(row.typeName));
    }
    EXPECT_EQ(SpecialGadget().classHierarchy(), (KyList<KyString>{"SpecialGadget", "Gadget", "KyObject"}));

    // Dynamic properties hold any value; a missing one is logged and empty.
    kytest::LogCapture log;
    EXPECT_TRUE(g.setProperty(KyString("speed"), KyAny(12.5)));
    EXPECT_DOUBLE_EQ(g.property(KyString("speed")).get<double>(), 12.5);
    EXPECT_FALSE(g.property(KyString("noSuchProperty")).isValid());
    EXPECT_FALSE(g.propertyExist(KyString("noSuchProperty")));
    EXPECT_EQ(log.count("Property not found: noSuchProperty"), 1);
}

// ---------------------------------------------------------------------------

TEST(KyObjectThreads, DeleteLaterWaitsForTheOwnersLoopAndMoveToThreadTakesTheSubtreeButNoChild) {
    struct Probe : KyObject {
        explicit Probe(std::atomic<pthread_t>* out) : out_(out) {}
        ~Probe() override { out_->store(pthread_self()); }
        std::atomic<pthread_t>* out_;
    };
    KyCoreApplication app;
    Thread worker(KyString("Deleter"));
    worker.start();
    std::atomic<pthread_t> hereDeletedOn{}, thereDeletedOn{};
    auto* here = new Probe(&hereDeletedOn);
    Probe* there = nullptr;
    KyObject::executeBlockingOnThread(&worker, [&] { there = new Probe(&thereDeletedOn); });
    const void* hereAddress = here;
    const void* thereAddress = there;
    here->deleteLater();
    there->deleteLater();
    EXPECT_TRUE(KyObject::isLive(hereAddress)) << "not before this thread's loop turns";
    ASSERT_TRUE(eventually([&] { return !KyObject::isLive(hereAddress) && !KyObject::isLive(thereAddress); }, &app));
    EXPECT_TRUE(pthread_equal(hereDeletedOn.load(), pthread_self()));
    EXPECT_TRUE(pthread_equal(thereDeletedOn.load(), worker.nativeHandle()));

    auto* root = new KyObject;
    auto* kid = new KyObject(root);
    EXPECT_FALSE(kid->moveToThread(&worker));
    EXPECT_TRUE(root->moveToThread(&worker));
    EXPECT_EQ(root->thread(), &worker);
    EXPECT_EQ(kid->thread(), &worker);
    EXPECT_TRUE(worker.hasObject(kid));
    EXPECT_FALSE(Thread::currentThread()->hasObject(root));
    // Now the worker owns it: this thread may no longer move it.
    EXPECT_FALSE(root->moveToThread(Thread::currentThread()));
    KyObject::executeBlockingOnThread(&worker, [root] { delete root; });
    EXPECT_EQ(worker.attachedObjectCount(), 0u);
    worker.quit();
    worker.wait();
}

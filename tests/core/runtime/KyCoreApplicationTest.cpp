// The loop of a real thread: arguments, exec and the wait, the order of one
// step, object event delivery and filters, posting across threads, the
// instance registry, and SIGTERM/SIGINT ending the loops of a child process.
#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "core/object/KyEvent.h"
#include "core/object/KyObject.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"
#include "../../support/KyTestLoop.h"
#include "../../support/KyTestProcess.h"

namespace {

constexpr int kUserEvent = KyEvent::User + 1;

// An event that counts its own destruction.
class CountedEvent : public KyEvent {
public:
    CountedEvent(std::string tag, std::atomic<int>* destroyed)
        : KyEvent(kUserEvent), tag(std::move(tag)), destroyed_(destroyed) {}
    ~CountedEvent() override {
        if (destroyed_) destroyed_->fetch_add(1);
    }
    std::string tag;

private:
    std::atomic<int>* destroyed_;
};

// Records the tags of the events it receives, and where.
class Recorder : public KyObject {
public:
    bool event(KyEvent* e) override {
        if (e->type() != kUserEvent) return KyObject::event(e);
        seen.push_back(static_cast<CountedEvent*>(e)->tag);
        sawInDelivery = e->inDelivery();
        deliveredOn = pthread_self();
        delivered.fetch_add(1);
        return true;
    }
    std::vector<std::string> seen;
    bool sawInDelivery = false;
    pthread_t deliveredOn{};
    std::atomic<int> delivered{0};
};

// A filter that logs its name and stops events when told to.
class NamedFilter : public KyObject {
public:
    NamedFilter(std::string name, std::vector<std::string>* log, bool stop)
        : name_(std::move(name)), log_(log), stop_(stop) {}
    bool eventFilter(KyObject*, KyEvent* e) override {
        if (e->type() == kUserEvent) log_->push_back(name_);
        return stop_;
    }

private:
    std::string name_;
    std::vector<std::string>* log_;
    bool stop_;
};

using kytest::LoopFixture;

using CoreApplicationLoop = LoopFixture;
using CoreApplicationEvents = LoopFixture;
using CoreApplicationThreads = LoopFixture;

struct ArgumentRow { const char* name; std::vector<std::string> argv; const char* key; bool present; const char* value; };

} // namespace

TEST(CoreApplicationArguments, CommandLineWordsBecomeKeys) {
    const ArgumentRow rows[] = {
        {"double dash flag", {"--background"}, "background", true, ""},
        {"dash in key also as underscore", {"--start-hidden"}, "start_hidden", true, ""},
        {"dash in key kept as given", {"--start-hidden"}, "start-hidden", true, ""},
        {"underscore key", {"--start_hidden"}, "start_hidden", true, ""},
        {"underscore key found by its dash spelling", {"--start_hidden"}, "start-hidden", true, ""},
        {"single dash flag", {"-minimized"}, "minimized", true, ""},
        {"key and value", {"--log=debug"}, "log", true, "debug"},
        {"value keeps later equals", {"--rule=a=b"}, "rule", true, "a=b"},
        {"single dash with value", {"-crash_test=1"}, "crash_test", true, "1"},
        {"plain word is no key", {"background"}, "background", false, ""},
        {"bare dashes are no key", {"--", "-"}, "", false, ""},
        {"last of a repeated key wins", {"--mode=a", "--mode=b"}, "mode", true, "b"},
        {"absent key", {"--background"}, "minimized", false, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<std::string> words = row.argv;
        std::vector<char*> argv{const_cast<char*>("velmo")};
        for (auto& w : words) argv.push_back(w.data());
        KyCoreApplication app(static_cast<int>(argv.size()), argv.data());
        EXPECT_EQ(app.hasArgument(row.key), row.present);
        EXPECT_EQ(app.argument(row.key).toStdString(), std::string(row.value));
        EXPECT_EQ(app.argumentList().size(), row.argv.size());
    }
}

TEST_F(CoreApplicationLoop, ExecEndsAtItsTimeLimitOrByExitFromAnotherThreadOrQuitFromInside) {
    EXPECT_EQ(app->exec(30000), 0);
    EXPECT_TRUE(app->isRunning()) << "a time limit does not end the loop for good";
    std::atomic<bool> looping{false};
    app->postEvent([&looping] { looping = true; });
    std::thread other([&] {
        kytest::waitUntil([&looping] { return looping.load(); });
        app->exit(7);
    });
    EXPECT_EQ(app->exec(20'000'000), 7);
    other.join();
    EXPECT_FALSE(app->isRunning());
    // Ended for good: a second exec returns at once with the same code.
    EXPECT_EQ(app->exec(), 7);
    std::thread([] {
        KyCoreApplication fresh;
        fresh.postEvent([&fresh] { fresh.quit(); });
        EXPECT_EQ(fresh.exec(20'000'000), 0);
        EXPECT_FALSE(fresh.isRunning());
    }).join();
}

TEST_F(CoreApplicationLoop, StepAnswersTellWhenToLookAgainAndNestedStepsStartNoFiber) {
    EXPECT_EQ(app->processTimers(), KyCoreApplication::kNoTimerMicroseconds);
    EXPECT_EQ(app->processTimers(), 2147483647);
    EXPECT_EQ(app->processEvent(false), -1);
    const int id = app->addTimer([] {}, 1'000'000, true, 2);
    const int r = app->processEvent(false);
    EXPECT_GT(r, 0);
    EXPECT_LE(r, 1'000'000);
    app->removeTimer(id);
    app->postEvent([] {});
    EXPECT_EQ(app->processEvent(false), 0);
    EXPECT_EQ(app->processEvent(false), -1);

    // Steps taken inside a posted function deliver events but start no fiber.
    Recorder receiver;
    std::vector<std::string> order;
    app->postEvent([&] {
        app->postEvent(&receiver, new CountedEvent("inner", nullptr), 0);
        for (int i = 0; i < 3; ++i) app->processEvent(false);
        order.push_back("caller-done:" + std::to_string(receiver.seen.size()));
    });
    app->postEvent([&order] { order.push_back("other"); });
    kytest::drain(app.get());
    EXPECT_EQ(order, (std::vector<std::string>{"caller-done:1", "other"}));
}

TEST_F(CoreApplicationLoop, WaitOfZeroReturnsAndUnboundedWaitOrWaitIfIdleIsEndedByAPostFromAnotherThread) {
    std::atomic<bool> done{false};
    std::thread waiter([&] {
        app->waitForWork_(0);
        done = true;
    });
    const bool returned = kytest::waitUntil([&done] { return done.load(); });
    if (!returned) app->wakeUp();
    waiter.join();
    EXPECT_TRUE(returned);

    std::thread first([this] { app->postEvent([] {}); });
    app->waitForWork_(-1);
    first.join();
    EXPECT_TRUE(app->fiberPool().hasWork());
    kytest::drain(app.get());

    std::atomic<bool> ran{false};
    std::thread poster([&] { app->postEvent([&ran] { ran = true; }); });
    // Parks on the condition variable until the post arrives, then runs it.
    EXPECT_EQ(app->processEvent(true), 0);
    poster.join();
    EXPECT_TRUE(ran.load());
}

TEST_F(CoreApplicationEvents, OneStepServesLaneZeroThenHighEventsThenTimersThenLanesThenNormalEvents) {
    Recorder receiver;
    std::vector<std::string> order;
    std::atomic<int> destroyed{0};
    // Events go to the recorder; functions write to the same order.
    auto tagFn = [&order](const char* tag) { return [&order, tag] { order.push_back(tag); }; };
    app->postEvent(&receiver, new CountedEvent("normal-a", &destroyed), 0);
    app->postEvent(&receiver, new CountedEvent("high-c", &destroyed), 1);
    app->postEventOnLane(tagFn("lane2"), 2);
    app->postEventOnLane(tagFn("lane0"), 0);
    app->postEvent(&receiver, new CountedEvent("normal-b", &destroyed), 0);
    app->postEvent(&receiver, new CountedEvent("high-d", &destroyed), 5);
    app->postEventOnLane(tagFn("lane1"), 1);
    app->addTimer(tagFn("timer"), 0, true, 0);

    std::vector<std::string> merged;
    std::size_t seenEvents = 0;
    for (int step = 0; step < 8; ++step) {
        const std::size_t before = order.size() + receiver.seen.size();
        ASSERT_EQ(app->processEvent(false), 0) << step;
        // At most one object event or one fiber run per step.
        ASSERT_EQ(order.size() + receiver.seen.size(), before + 1) << step;
        if (receiver.seen.size() > seenEvents) merged.push_back(receiver.seen[seenEvents++]);
        else merged.push_back(order.back());
    }
    EXPECT_EQ(merged, (std::vector<std::string>{"lane0", "high-c", "high-d", "timer", "lane1", "lane2", "normal-a",
                                                "normal-b"}));
    EXPECT_EQ(destroyed.load(), 4);
    EXPECT_EQ(app->processEvent(false), -1);
}

TEST_F(CoreApplicationEvents, EventsForADeadReceiverOrADeadLoopAreDeletedUndelivered) {
    std::atomic<int> destroyed{0};
    auto* receiver = new Recorder;
    app->postEvent(receiver, new CountedEvent("late", &destroyed), 0);
    delete receiver;
    kytest::drain(app.get());
    EXPECT_EQ(destroyed.load(), 1);
    // A null receiver: the event is deleted at once; a null event does nothing.
    app->postEvent(nullptr, new CountedEvent("orphan", &destroyed), 0);
    EXPECT_EQ(destroyed.load(), 2);
    Recorder alive;
    app->postEvent(&alive, nullptr, 0);
    EXPECT_EQ(app->processEvent(false), -1);
    // Undelivered events die with the loop.
    app->postEvent(&alive, new CountedEvent("a", &destroyed), 0);
    app->postEvent(&alive, new CountedEvent("b", &destroyed), 1);
    app.reset();
    EXPECT_EQ(destroyed.load(), 4);
    EXPECT_TRUE(alive.seen.empty());
}

TEST_F(CoreApplicationEvents, FiltersRunApplicationFirstThenReceiverNewestFirstAndAStoppingOneEndsDelivery) {
    Recorder receiver;
    std::vector<std::string> log;
    NamedFilter appOld("app-old", &log, false), appNew("app-new", &log, false);
    NamedFilter own1("own-1", &log, false), own2("own-2", &log, false), stopper("stopper", &log, true);
    app->installEventFilter(&appOld);
    app->installEventFilter(&appNew);
    receiver.installEventFilter(&own1);
    receiver.installEventFilter(&own2);
    CountedEvent e("x", nullptr);
    EXPECT_TRUE(app->notify(&receiver, &e));
    EXPECT_EQ(log, (std::vector<std::string>{"app-new", "app-old", "own-2", "own-1"}));
    EXPECT_EQ(receiver.seen, std::vector<std::string>{"x"});
    EXPECT_TRUE(receiver.sawInDelivery);
    EXPECT_FALSE(e.inDelivery());
    app->removeEventFilter(&appOld);
    app->removeEventFilter(&appNew);

    // A stopping filter accepts the event; nothing behind it sees it.
    log.clear();
    receiver.installEventFilter(&stopper);
    CountedEvent stopped("y", nullptr);
    EXPECT_TRUE(KyCoreApplication::sendEvent(&receiver, &stopped));
    EXPECT_TRUE(stopped.isAccepted());
    EXPECT_EQ(log, std::vector<std::string>{"stopper"});
    EXPECT_EQ(receiver.seen, std::vector<std::string>{"x"});

    // A filter that died is skipped.
    auto* gone = new NamedFilter("gone", &log, true);
    Recorder other;
    other.installEventFilter(gone);
    delete gone;
    CountedEvent f("z", nullptr);
    EXPECT_TRUE(app->notify(&other, &f));
    EXPECT_EQ(other.seen, std::vector<std::string>{"z"});
    EXPECT_FALSE(app->notify(nullptr, &f));
    EXPECT_FALSE(app->notify(&other, nullptr));

    // A thread without a loop: sendEvent applies the receiver's filters itself.
    log.clear();
    bool delivered = false;
    std::thread([&] {
        ASSERT_EQ(KyCoreApplication::instance(false), nullptr);
        Recorder alone;
        NamedFilter watcher("watcher", &log, false);
        alone.installEventFilter(&watcher);
        CountedEvent e("x", nullptr);
        delivered = KyCoreApplication::sendEvent(&alone, &e) && alone.seen.size() == 1;
    }).join();
    EXPECT_TRUE(delivered);
    EXPECT_EQ(log, std::vector<std::string>{"watcher"});
}

TEST_F(CoreApplicationThreads, EventForAReceiverOnAnotherThreadIsDeliveredThere) {
    ky::atomic::Thread worker("EventWorker");
    ASSERT_TRUE(worker.start());
    Recorder* receiver = nullptr;
    KyObject::executeBlockingOnThread(&worker, [&receiver] { receiver = new Recorder; });
    ASSERT_NE(receiver, nullptr);
    std::atomic<int> destroyed{0};
    app->postEvent(receiver, new CountedEvent("remote", &destroyed), 1);
    // Nothing was queued here.
    EXPECT_EQ(app->processEvent(false), -1);
    ASSERT_TRUE(kytest::waitUntil([&] { return receiver->delivered.load() == 1; }));
    EXPECT_TRUE(pthread_equal(receiver->deliveredOn, worker.nativeHandle()));
    EXPECT_TRUE(kytest::waitUntil([&] { return destroyed.load() == 1; }));
    KyObject::executeBlockingOnThread(&worker, [receiver] { delete receiver; });
    worker.quit();
    worker.wait();
}

TEST_F(CoreApplicationThreads, EachThreadHasItsOwnInstanceInTheRegistry) {
    struct Observer : KyCoreApplicationRegistryObserver {
        std::atomic<int> registered{0}, unregistered{0};
        void onRuntimeApplicationRegistered(KyCoreApplication*, const KyString&) override { ++registered; }
        void onRuntimeApplicationUnregistered(KyCoreApplication*, const KyString&) override { ++unregistered; }
    } observer;
    KyCoreApplication::addRegistryObserver(&observer);
    EXPECT_EQ(KyCoreApplication::instance(), app.get());
    KyCoreApplication* other = nullptr;
    bool sawOwn = false;
    std::thread worker([&] {
        KyCoreApplication* mine = KyCoreApplication::instance(true);
        other = mine;
        const auto all = KyCoreApplication::registeredInstances();
        sawOwn = std::find(all.begin(), all.end(), mine) != all.end() &&
                 std::find(all.begin(), all.end(), app.get()) != all.end();
        delete mine;
        sawOwn = sawOwn && KyCoreApplication::instance(false) == nullptr;
    });
    worker.join();
    KyCoreApplication::removeRegistryObserver(&observer);
    EXPECT_TRUE(sawOwn);
    EXPECT_NE(other, app.get());
    EXPECT_EQ(observer.registered.load(), 1);
    EXPECT_EQ(observer.unregistered.load(), 1);
    const auto all = KyCoreApplication::registeredInstances();
    EXPECT_EQ(std::count(all.begin(), all.end(), other), 0);
}

TEST_F(CoreApplicationThreads, PostsFromManyThreadsAllRunOnTheOwner) {
    constexpr int kThreads = 4, kEach = 100;
    std::atomic<int> ran{0};
    std::atomic<int> wrongThread{0};
    const pthread_t owner = pthread_self();
    std::vector<std::thread> posters;
    for (int t = 0; t < kThreads; ++t)
        posters.emplace_back([&] {
            for (int i = 0; i < kEach; ++i)
                app->postEventOnLane(
                    [&] {
                        if (!pthread_equal(pthread_self(), owner)) ++wrongThread;
                        if (++ran == kThreads * kEach) app->quit();
                    },
                    i % 4);
        });
    app->exec(20'000'000);
    for (auto& p : posters) p.join();
    EXPECT_EQ(ran.load(), kThreads * kEach);
    EXPECT_EQ(wrongThread.load(), 0);
}

TEST(CoreApplicationSignals, TerminateSignalEndsTheLoopsOfAllThreads) {
    struct Row { const char* name; const char* mode; int signal; };  // signal: sent by the parent; 0: the child raises it
    const Row rows[] = {{"SIGTERM from another process", "wait", SIGTERM},
                        {"SIGINT from another process", "wait", SIGINT},
                        {"SIGINT raised inside the process", "raise", 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        kytest::Child child;
        ASSERT_TRUE(child.start(kytest::helperPath("runtime_terminate_helper"), {row.mode}));
        const bool ready = child.waitForOutput(6, kytest::kDeadline);
        EXPECT_EQ(child.out(), "ready\n");
        if (ready && row.signal) child.sendSignal(row.signal);
        EXPECT_EQ(child.finish(kytest::kDeadline), 0);
        EXPECT_NE(child.out().find("ended 3 terminate=1"), std::string::npos) << child.out();
    }
}

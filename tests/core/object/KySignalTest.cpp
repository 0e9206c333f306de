// Signals and slots across real threads: the four connection types, the Auto
// rule, snapshots during emission, dead receivers and senders, back-references
// and signals named by text.
#include <gtest/gtest.h>

#include "../../support/KyTestLoop.h"
#include "../../support/KyTestWorker.h"

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "core/object/KyObject.h"
#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"

namespace {

using kytest::eventually;

// Back-references held for an address whose object may be gone already.
// Only the address is used: the table is keyed by it.
int backReferencesFrom(const KyObject& receiver, std::uintptr_t senderAddress) {
    volatile std::uintptr_t address = senderAddress;
    return receiver.backReferenceCount(reinterpret_cast<const KyObject*>(address));
}

class Emitter : public KyObject {
public:
    KY_SIGNAL(valueChanged, int)
    KY_SIGNAL(textChanged, const KyString&)
    KY_SIGNAL(pinged)
};

class Receiver : public KyObject {
public:
    explicit Receiver(std::atomic<int>* external = nullptr) : external_(external) {}

    void onValue(int v) { keep_(values, v); }
    void onText(const KyString& text) { keep_(texts, text); }
    void onPing() { record_(); }
    void onLong(long long v) { keep_(values, static_cast<int>(v)); }

    std::atomic<int> calls{0};
    std::atomic<pthread_t> lastThread{};
    std::atomic<KyObject*> lastSender{this};
    std::mutex mutex;
    std::vector<int> values;
    std::vector<KyString> texts;

private:
    template <typename List, typename Value> void keep_(List& list, const Value& value) {
        {
            std::lock_guard lock(mutex);
            list.push_back(value);
        }
        record_();
    }
    void record_() {
        lastThread.store(pthread_self());
        lastSender.store(sender());
        if (external_) ++*external_;
        ++calls;
    }
    std::atomic<int>* external_;
};

using Worker = kytest::Worker;

} // namespace

// ---------------------------------------------------------------------------

TEST(KySignalDirect, SlotsRunInConnectionOrderOnTheEmittingThreadWithSenderAndConvertedArguments) {
    Emitter e;
    Receiver r;
    std::vector<KyString> order;
    KyObject::connect(&e, &Emitter::valueChanged, [&](int v) { order.push_back("lambda " + KyString::number(v)); });
    KyObject::connect(&e, &Emitter::valueChanged, &r, &Receiver::onLong);
    KyObject::connect(&e, &Emitter::valueChanged, &r, [&] { order.push_back("context, no arguments"); });
    KyObject::connect(&e, &Emitter::valueChanged, &r, &Receiver::onPing);
    ASSERT_TRUE(KyObject::connect(&e, &Emitter::textChanged, &r, &Receiver::onText, KyObject::ConnectionDirect));
    KyObject::connect(&e, &Emitter::pinged, &r, &Receiver::onPing);
    KyObject::connect(&e, &Emitter::pinged, &r, &Receiver::onPing);
    e.valueChanged(5);
    e.textChanged(KyString("h\xc3\xa9llo"));
    EXPECT_EQ(order, (std::vector<KyString>{"lambda 5", "context, no arguments"}));
    EXPECT_EQ(r.values, std::vector<int>{5});
    EXPECT_EQ(r.texts, std::vector<KyString>{KyString("h\xc3\xa9llo")});
    EXPECT_EQ(r.calls.load(), 3);
    EXPECT_EQ(r.lastSender.load(), &e);
    EXPECT_TRUE(pthread_equal(r.lastThread.load(), pthread_self()));
    EXPECT_EQ(e.connectionCount(&Emitter::valueChanged), 4);
    // Connecting twice delivers twice; disconnecting the receiver removes every one of its connections.
    EXPECT_EQ(e.connectionCount(&Emitter::pinged), 2);
    e.pinged();
    EXPECT_EQ(r.calls.load(), 5);
    EXPECT_EQ(r.backReferenceCount(&e), 6);
    EXPECT_EQ(KyObject::disconnect(&e, &r), 6);
    EXPECT_EQ(r.backReferenceCount(&e), 0);
    e.pinged();
    EXPECT_EQ(r.calls.load(), 5);
}

TEST(KySignalDirect, BadConnectionsAreRefusedDisabledSignalsStaySilentAndAnEmptyFunctionSlotRaises) {
    auto* e = new Emitter;
    Receiver r;
    EXPECT_FALSE(KyObject::connect(e, &Emitter::pinged, &r, &Receiver::onPing, static_cast<KyObject::ConnectionType>(7)));
    EXPECT_FALSE(KyObject::connect(e, &Emitter::pinged, static_cast<Receiver*>(nullptr), &Receiver::onPing));
    EXPECT_EQ(e->connectionCount(), 0);
    EXPECT_EQ(r.backReferenceCount(e), 0);
    KyObject::connect(e, &Emitter::pinged, &r, &Receiver::onPing);
    KyObject::connect(e, &KyObject::destroyed, &r, &Receiver::onPing);
    EXPECT_TRUE(e->setSignalsEnabled(false));
    e->pinged();
    EXPECT_EQ(r.calls.load(), 0);
    KyObject::connect(e, &Emitter::valueChanged, std::function<void(int)>());
    EXPECT_NO_THROW(e->valueChanged(1)) << "a disabled signal calls nothing";
    e->setSignalsEnabled(true);
    EXPECT_THROW(e->valueChanged(1), std::bad_function_call);
    e->setSignalsEnabled(false);
    delete e;
    EXPECT_EQ(r.calls.load(), 1) << "destroyed is emitted even when signals are disabled";
}

// ---------------------------------------------------------------------------

TEST(KySignalSnapshot, DisconnectingReplacingOrAddingConnectionsDuringEmissionFinishesTheOldListFirst) {
    Emitter e;
    Receiver b;
    std::vector<KyString> order;
    KyObject::connect(&e, &Emitter::valueChanged, [&](int v) {
        order.push_back("first " + KyString::number(v));
        EXPECT_EQ(KyObject::disconnect(&e, &b), 1);
        KyObject::disconnect(&e, &Emitter::valueChanged);
        KyObject::connect(&e, &Emitter::valueChanged, [&](int w) { order.push_back("new " + KyString::number(w)); });
    });
    KyObject::connect(&e, &Emitter::valueChanged, &b, &Receiver::onValue);
    KyObject::connect(&e, &Emitter::valueChanged, [&](int v) { order.push_back("second " + KyString::number(v)); });
    e.valueChanged(1);
    e.valueChanged(2);
    EXPECT_EQ(order, (std::vector<KyString>{"first 1", "second 1", "new 2"}));
    EXPECT_EQ(b.values, std::vector<int>{1});
    EXPECT_EQ(e.connectionCount(), 1);

    // Nested emissions of one signal each use their own snapshot.
    Emitter nestedEmitter;
    std::vector<int> seen;
    int added = 0;
    KyObject::connect(&nestedEmitter, &Emitter::valueChanged, [&](int depth) {
        seen.push_back(depth);
        if (depth < 3) {
            KyObject::connect(&nestedEmitter, &Emitter::valueChanged, [&](int) { ++added; });
            nestedEmitter.valueChanged(depth + 1);
        }
    });
    nestedEmitter.valueChanged(0);
    // Emission d sees the slots connected by emissions before it: d of them.
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(added, 0 + 1 + 2 + 3);
}

TEST(KySignalSnapshot, ReceiverOrSenderDeletedByAnEarlierSlotIsSkippedOrSeenAsNoSender) {
    auto* e = new Emitter;
    const auto address = reinterpret_cast<std::uintptr_t>(static_cast<KyObject*>(e));
    auto* doomed = new Receiver;
    Receiver survivor;
    int remaining = -1;
    KyObject::connect(e, &Emitter::pinged, &survivor, [&] { delete doomed; }, KyObject::ConnectionDirect);
    KyObject::connect(e, &Emitter::pinged, doomed, &Receiver::onPing, KyObject::ConnectionDirect);
    KyObject::connect(e, &Emitter::pinged, &survivor, &Receiver::onPing, KyObject::ConnectionDirect);
    KyObject::connect(e, &Emitter::pinged, &survivor, [&] {
        remaining = e->connectionCount(&Emitter::pinged);
        delete e;
    });
    KyObject::connect(e, &Emitter::pinged, &survivor, &Receiver::onPing);
    e->pinged(); // ASan reports a call into the deleted receiver.
    EXPECT_EQ(remaining, 4) << "the deleted receiver's connection is gone";
    EXPECT_EQ(survivor.calls.load(), 2);
    EXPECT_EQ(survivor.lastSender.load(), nullptr);
    EXPECT_EQ(backReferencesFrom(survivor, address), 0);
}

// ---------------------------------------------------------------------------

TEST(KySignalThreads, QueuedAndAutoRunOnTheReceiversLoopWithArgumentsCopiedAtEmissionUnlessTheReceiverDied) {
    Worker w;
    Receiver* r = w.make<Receiver>();
    std::atomic<int> doomedCalls{0};
    Receiver* doomed = w.make<Receiver>(&doomedCalls);
    Emitter e;
    ASSERT_TRUE(KyObject::connect(&e, &Emitter::valueChanged, r, &Receiver::onValue, KyObject::ConnectionQueued));
    ASSERT_TRUE(KyObject::connect(&e, &Emitter::textChanged, r, &Receiver::onText, KyObject::ConnectionQueued));
    ASSERT_TRUE(KyObject::connect(&e, &Emitter::pinged, r, &Receiver::onPing));
    ASSERT_TRUE(KyObject::connect(&e, &Emitter::pinged, doomed, &Receiver::onPing, KyObject::ConnectionQueued));
    w.hold();
    e.valueChanged(1);
    e.valueChanged(2);
    {
        KyString text("first");
        e.textChanged(text);
        text = "changed after emission";
    }
    e.pinged();
    EXPECT_EQ(r->calls.load(), 0);
    // The worker is held inside a task, so deleting here races with nothing.
    delete doomed;
    w.release();
    ASSERT_TRUE(eventually([&] { return r->calls.load() == 4; }));
    w.drain();
    EXPECT_EQ(doomedCalls.load(), 0);
    EXPECT_EQ(e.connectionCount(), 3);
    EXPECT_TRUE(w.isWorker(r->lastThread.load()));
    EXPECT_EQ(r->lastSender.load(), &e);
    {
        std::lock_guard lock(r->mutex);
        EXPECT_EQ(r->values, (std::vector<int>{1, 2}));
        EXPECT_EQ(r->texts, std::vector<KyString>{KyString("first")});
    }
    w.destroy(r);
}

TEST(KySignalThreads, BlockingAutoAndContextSlotsRunWhereTheirConnectionSays) {
    Worker w;
    Receiver* onWorker = w.make<Receiver>();
    Emitter* workerEmitter = w.make<Emitter>();
    Emitter e;
    // Blocking: on the receiver's thread, and the emitter waits for it.
    KyObject::connect(&e, &Emitter::valueChanged, onWorker, &Receiver::onValue, KyObject::ConnectionBlocking);
    e.valueChanged(9);
    EXPECT_EQ(onWorker->calls.load(), 1);
    EXPECT_TRUE(w.isWorker(onWorker->lastThread.load()));
    {
        // From a fiber of a running loop the caller yields until the worker wakes it.
        KyCoreApplication app;
        int seen = 0;
        app.postEvent([&] {
            e.valueChanged(10);
            seen = onWorker->calls.load();
        });
        ASSERT_TRUE(eventually([&] { return seen == 2; }, &app));
    }

    // With the worker held, whatever runs now ran inline.
    Receiver own;
    Receiver* threadless = nullptr;
    std::thread([&] { threadless = new Receiver; }).join();
    ASSERT_EQ(threadless->thread(), nullptr);
    KyObject::connect(&e, &Emitter::pinged, &own, &Receiver::onPing, KyObject::ConnectionBlocking);
    KyObject::connect(&e, &Emitter::pinged, threadless, &Receiver::onPing);
    // Auto follows the sender's owning thread, not the emitting one.
    KyObject::connect(workerEmitter, &Emitter::pinged, onWorker, &Receiver::onPing);
    // A function slot always runs at once under Auto, on whichever thread emits.
    std::atomic<pthread_t> functionThread{};
    KyObject::connect(workerEmitter, &Emitter::textChanged, [&](const KyString&) { functionThread = pthread_self(); });
    w.hold();
    e.pinged();
    workerEmitter->pinged();
    pthread_t foreignId{};
    std::thread([&] {
        foreignId = pthread_self();
        workerEmitter->textChanged(KyString("x"));
    }).join();
    for (Receiver* x : {&own, threadless})
        EXPECT_TRUE(x->calls.load() == 1 && pthread_equal(x->lastThread.load(), pthread_self()));
    EXPECT_EQ(onWorker->calls.load(), 3);
    EXPECT_TRUE(pthread_equal(onWorker->lastThread.load(), pthread_self()));
    EXPECT_TRUE(pthread_equal(functionThread.load(), foreignId));
    w.release();

    // A function with a context object is queued to the context's thread.
    std::atomic<pthread_t> contextThread{};
    KyObject::connect(&e, &Emitter::textChanged, onWorker, [&](const KyString&) { contextThread = pthread_self(); });
    e.textChanged(KyString("y"));
    ASSERT_TRUE(eventually([&] { return w.isWorker(contextThread.load()); }));
    delete threadless;
    w.destroy(workerEmitter);
    w.destroy(onWorker);
}

TEST(KySignalThreads, ManyThreadsEmittingWhileConnectionsChangeLoseNoDirectDelivery) {
    Emitter e;
    std::atomic<int> hits{0};
    KyObject::connect(&e, &Emitter::pinged, [&] { ++hits; });
    std::atomic<bool> stop{false};
    std::thread churn([&] {
        Receiver extra;
        while (!stop.load()) {
            KyObject::connect(&e, &Emitter::pinged, &extra, [] {}, KyObject::ConnectionDirect);
            KyObject::disconnect(&e, &extra);
        }
    });
    constexpr int kPerThread = 2000;
    std::vector<std::thread> emitters;
    for (int i = 0; i < 3; ++i)
        emitters.emplace_back([&] {
            for (int n = 0; n < kPerThread; ++n) e.pinged();
        });
    for (auto& t : emitters) t.join();
    stop = true;
    churn.join();
    EXPECT_EQ(hits.load(), 3 * kPerThread);
    EXPECT_EQ(e.connectionCount(), 1);
}

// ---------------------------------------------------------------------------

TEST(KySignalBookkeeping, TheDeathOfEitherEndRemovesItsConnectionsAndASignalItSilencedComesBackWithANewOne) {
    KyCoreApplication app;
    Emitter e;
    auto* r = new Receiver;
    KyObject::connect(&e, &Emitter::pinged, r, &Receiver::onPing);
    KyObject::connect(&e, &Emitter::valueChanged, r, &Receiver::onValue);
    KyObject::connect(&e, &Emitter::textChanged, [](const KyString&) {});
    EXPECT_EQ(e.connectionCount(), 3);
    EXPECT_EQ(r->backReferenceCount(&e), 2);
    delete r;
    EXPECT_EQ(e.connectionCount(), 1);
    e.pinged();
    Receiver kept;
    KyObject::connect(&e, &Emitter::pinged, &kept, &Receiver::onPing);
    e.pinged();
    EXPECT_EQ(kept.calls.load(), 1);
    EXPECT_EQ(KyObject::disconnect(&e, &Emitter::pinged), 1);
    e.pinged();
    int named = 0;
    KyObject::connect(&e, KyString("custom"), [&](int v) { named += v; });
    e.emitSignal(KyString("custom"), 4);
    EXPECT_EQ(kept.calls.load(), 1);
    EXPECT_EQ(named, 4);

    auto* sender = new Emitter;
    KyObject::connect(sender, &Emitter::pinged, &kept, &Receiver::onPing);
    KyObject::connect(sender, &Emitter::valueChanged, &kept, &Receiver::onValue);
    EXPECT_EQ(KyObject::disconnect(sender, &Emitter::valueChanged), 1);
    EXPECT_EQ(kept.backReferenceCount(sender), 1);
    // A queued slot of `destroyed` still runs after the sender is gone, with no sender.
    KyObject::connect(sender, &KyObject::destroyed, &kept, &Receiver::onPing, KyObject::ConnectionQueued);
    const auto address = reinterpret_cast<std::uintptr_t>(static_cast<KyObject*>(sender));
    delete sender;
    EXPECT_EQ(backReferencesFrom(kept, address), 0);
    EXPECT_EQ(kept.calls.load(), 1);
    ASSERT_TRUE(eventually([&] { return kept.calls.load() == 2; }, &app));
    EXPECT_EQ(kept.lastSender.load(), nullptr);
}

TEST(KySignalBookkeeping, SignalsNamedByTextDeliverMatchingArgumentsOnly) {
    Emitter e;
    Receiver context;
    std::vector<KyString> seen;
    KyObject::connect(&e, KyString("progress"), [&](int percent, const KyString& label) {
        seen.push_back(label + ":" + KyString::number(percent));
    });
    KyObject::connect(&e, KyString("progress"), &context, [&](int percent, KyString label) {
        seen.push_back("ctx " + label + ":" + KyString::number(percent));
    });
    e.emitSignal(KyString("progress"), 40, KyString("copy"));
    e.emitSignal(KyString("progress"), KyString("wrong types"));
    e.emitSignal(KyString("unknown"), 1);
    EXPECT_EQ(seen, (std::vector<KyString>{"copy:40", "ctx copy:40"}));
    EXPECT_EQ(context.backReferenceCount(&e), 1);
    EXPECT_EQ(KyObject::disconnect(&e, KyString("progress")), 2);
    EXPECT_EQ(context.backReferenceCount(&e), 0);
    e.emitSignal(KyString("progress"), 50, KyString("gone"));
    EXPECT_EQ(seen.size(), 2u);
}

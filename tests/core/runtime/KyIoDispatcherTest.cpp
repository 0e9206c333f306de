// KyIoDispatcher with real pipes, eventfds and sockets. A real thread with a
// queue stands in for a loop: the dispatcher posts to it, and the tests
// decide when it runs what was posted.
#include "core/runtime/KyIoDispatcher.h"
#include "../../support/KyTestLoop.h"
#include "../../support/KyTestWorker.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using kytest::waitUntil;

// Reads a non-blocking descriptor until it has nothing more.
void drainFd(int fd) {
    char buf[256];
    while (read(fd, buf, sizeof buf) > 0) {
    }
}

struct TestLoop : kytest::Worker {
    KyIoDispatcher::Dispatcher dispatcher() {
        return [this](std::function<void()> fn) { post(std::move(fn)); };
    }
    std::thread::id id() const { return id_; }
    int queued() const { return pending(); }
    // Returns once everything posted so far has run.
    void drain() { ASSERT_TRUE(kytest::waitUntil([this] { return pending() == 0; })); }
    std::thread::id id_ = [this] {
        std::thread::id id;
        KyObject::executeBlockingOnThread(&thread, [&id] { id = std::this_thread::get_id(); });
        return id;
    }();
};

struct Pipe {
    int r = -1, w = -1;
    Pipe() {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) == 0) {
            r = fds[0];
            w = fds[1];
        }
    }
    ~Pipe() {
        if (r >= 0) close(r);
        if (w >= 0) close(w);
    }
    void put(const std::string& s) const { ASSERT_EQ(write(w, s.data(), s.size()), static_cast<ssize_t>(s.size())); }
};

// A loop, a dispatcher posting to it and a pipe, torn down in reverse order.
struct IoFixture : ::testing::Test {
    TestLoop loop;
    KyIoDispatcher dispatcher;
    Pipe p;
};

using KyIoDispatcherReadiness = IoFixture;
using KyIoDispatcherRemoval = IoFixture;
using KyIoDispatcherErrors = IoFixture;
using KyIoDispatcherThreads = IoFixture;

}  // namespace

TEST_F(KyIoDispatcherReadiness, HandlerRunsOnTheOwningLoopAndPartlyReadDataIsReportedAgain) {
    ASSERT_TRUE(dispatcher.startLinuxBackend_());
    std::atomic<bool> offLoop{false};
    std::atomic<uint32_t> bits{0};
    std::string got;
    std::atomic<std::size_t> size{0};
    // One byte per call: the rest must be reported again after re-arming.
    const int id = dispatcher.watchFd(p.r, KyIoDispatcher::Readable, loop.dispatcher(), [&](int fd, uint32_t revents) {
        offLoop = offLoop || std::this_thread::get_id() != loop.id();
        bits = revents;
        char c;
        if (read(fd, &c, 1) == 1) got.push_back(c);
        size = got.size();
    });
    ASSERT_NE(id, 0);
    p.put("abcdefgh");
    ASSERT_TRUE(waitUntil([&] { return size.load() == 8; }));
    loop.drain();
    EXPECT_EQ(got, "abcdefgh");
    EXPECT_FALSE(offLoop.load());
    EXPECT_TRUE(bits.load() & KyIoDispatcher::Readable);
    EXPECT_TRUE(dispatcher.unwatch(id));
}

TEST_F(KyIoDispatcherReadiness, SlowLoopGetsOneOutstandingDispatchPerWatch) {
    Pipe& a = p;
    Pipe b;
    std::atomic<int> aCalls{0}, bCalls{0};
    ASSERT_NE(dispatcher.watchFd(a.r, KyIoDispatcher::Readable, loop.dispatcher(),
                                 [&](int fd, uint32_t) { drainFd(fd); ++aCalls; }),
              0);
    loop.hold();
    a.put("1");
    ASSERT_TRUE(waitUntil([&] { return loop.queued() == 1; }));
    for (int i = 0; i < 20; ++i) a.put("x");
    // A second watch's report proves the epoll thread went past the writes above.
    ASSERT_NE(dispatcher.watchFd(b.r, KyIoDispatcher::Readable, loop.dispatcher(),
                                 [&](int fd, uint32_t) { drainFd(fd); ++bCalls; }),
              0);
    b.put("y");
    ASSERT_TRUE(waitUntil([&] { return loop.queued() == 2; }));
    EXPECT_EQ(dispatcher.dispatchCount(), 2);
    loop.release();
    loop.drain();
    EXPECT_EQ(aCalls.load(), 1);
    EXPECT_EQ(bCalls.load(), 1);
}

TEST_F(KyIoDispatcherReadiness, SocketWritabilityAndThePeersCloseAreReported) {
    // Eventfds are watched like pipes; the many-threads case below uses them.
    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, sv), 0);
    std::atomic<uint32_t> writeBits{0};
    const int wid = dispatcher.watchFd(sv[0], KyIoDispatcher::Writable, loop.dispatcher(),
                                       [&](int, uint32_t revents) { writeBits = revents; });
    ASSERT_NE(wid, 0);
    ASSERT_TRUE(waitUntil([&] { return (writeBits.load() & KyIoDispatcher::Writable) != 0; }));
    ASSERT_TRUE(dispatcher.unwatch(wid));

    // The peer going away shows as readable with end of file and a hang-up bit.
    std::atomic<bool> sawEof{false};
    std::atomic<uint32_t> closeBits{0};
    ASSERT_NE(dispatcher.watchFd(sv[0], KyIoDispatcher::Readable | KyIoDispatcher::PeerClosed, loop.dispatcher(),
                                 [&](int fd, uint32_t revents) {
                                     char c;
                                     if (read(fd, &c, 1) == 0) {
                                         closeBits = revents;
                                         sawEof = true;
                                     }
                                 }),
              0);
    close(sv[1]);
    ASSERT_TRUE(waitUntil([&] { return sawEof.load(); }));
    EXPECT_TRUE(closeBits.load() & (KyIoDispatcher::HangUp | KyIoDispatcher::PeerClosed));
    loop.drain();
    close(sv[0]);
}

TEST_F(KyIoDispatcherRemoval, AReportPostedBeforeUnwatchOrTheDispatchersEndDoesNotRun) {
    struct Row { const char* name; bool endDispatcher; };
    for (const Row& r : {Row{"unwatched", false}, Row{"dispatcher gone", true}}) {
        SCOPED_TRACE(r.name);
        TestLoop held; // a worker is held once
        Pipe pipe;
        std::atomic<int> calls{0};
        auto own = std::make_unique<KyIoDispatcher>();
        KyIoDispatcher& d = r.endDispatcher ? *own : dispatcher;
        const int id = d.watchFd(pipe.r, KyIoDispatcher::Readable, held.dispatcher(), [&](int, uint32_t) { ++calls; });
        ASSERT_NE(id, 0);
        held.hold();
        pipe.put("z");
        ASSERT_TRUE(waitUntil([&] { return held.queued() == 1; }));
        if (r.endDispatcher) {
            own.reset();
        } else {
            EXPECT_TRUE(d.unwatch(id));
            EXPECT_FALSE(d.unwatch(id));
        }
        held.release();
        held.drain();
        EXPECT_EQ(calls.load(), 0);
    }
    EXPECT_EQ(dispatcher.watchCount(), 0);
}

TEST_F(KyIoDispatcherRemoval, HandlerMayUnwatchItself) {
    Pipe probe;
    std::atomic<int> calls{0}, probeCalls{0};
    std::atomic<int> id{0};
    id = dispatcher.watchFd(p.r, KyIoDispatcher::Readable, loop.dispatcher(), [&](int, uint32_t) {
        ++calls;
        dispatcher.unwatch(id.load());
    });
    ASSERT_NE(id.load(), 0);
    p.put("data that is never read");
    ASSERT_TRUE(waitUntil([&] { return calls.load() == 1; }));
    loop.drain();
    // Still readable, but gone: a later report from another watch shows the
    // epoll thread is alive and has nothing for the removed one.
    ASSERT_NE(dispatcher.watchFd(probe.r, KyIoDispatcher::Readable, loop.dispatcher(), [&](int fd, uint32_t) {
        drainFd(fd);
        ++probeCalls;
    }),
              0);
    probe.put("p");
    ASSERT_TRUE(waitUntil([&] { return probeCalls.load() == 1; }));
    loop.drain();
    EXPECT_EQ(calls.load(), 1);
    EXPECT_EQ(dispatcher.watchCount(), 1);
}

TEST_F(KyIoDispatcherRemoval, ADroppedPostOrARestartRearmsTheWatch) {
    std::atomic<int> offered{0}, calls{0};
    // The first function is thrown away, as by a loop that refuses a post.
    const int id = dispatcher.watchFd(p.r, KyIoDispatcher::Readable,
                                      [&](std::function<void()> fn) {
                                          if (offered++ == 0) return;
                                          loop.post(std::move(fn));
                                      },
                                      [&](int fd, uint32_t) {
                                          drainFd(fd);
                                          ++calls;
                                      });
    ASSERT_NE(id, 0);
    p.put("q");
    ASSERT_TRUE(waitUntil([&] { return calls.load() == 1; }));
    EXPECT_EQ(offered.load(), 2);
    // A stopped dispatcher keeps its watches for the restart.
    dispatcher.stopLinuxBackend_();
    EXPECT_FALSE(dispatcher.isRunning());
    p.put("s");
    ASSERT_TRUE(dispatcher.startLinuxBackend_());
    ASSERT_TRUE(waitUntil([&] { return calls.load() == 2; }));
}

TEST_F(KyIoDispatcherErrors, BadRequestsAreRefusedWithZeroAndTheWarningThatNamesWhy) {
    kytest::LogCapture log;
    auto handler = [](int, uint32_t) {};
    EXPECT_EQ(dispatcher.watchFd(-1, KyIoDispatcher::Readable, loop.dispatcher(), handler), 0);
    EXPECT_EQ(dispatcher.watchFd(p.r, KyIoDispatcher::Readable, loop.dispatcher(), nullptr), 0);
    EXPECT_EQ(dispatcher.watchFd(p.r, KyIoDispatcher::Readable, nullptr, handler), 0);
    // A regular file can't be watched by epoll.
    char path[] = "/tmp/kyiodispatcherXXXXXX";
    const int file = mkstemp(path);
    ASSERT_GE(file, 0);
    unlink(path);
    EXPECT_EQ(dispatcher.watchFd(file, KyIoDispatcher::Readable, loop.dispatcher(), handler), 0);
    close(file);
    EXPECT_EQ(log.count("Cannot watch descriptor"), 1);
    const int id = dispatcher.watchFd(p.r, KyIoDispatcher::Readable, loop.dispatcher(), handler);
    EXPECT_NE(id, 0);
    EXPECT_EQ(dispatcher.watchFd(p.r, KyIoDispatcher::Readable, loop.dispatcher(), handler), 0);
    EXPECT_EQ(log.count("is watched already"), 1);
    EXPECT_FALSE(dispatcher.unwatch(id + 1000));
    EXPECT_EQ(dispatcher.watchCount(), 1);
    // A descriptor closed before its unwatch, its number taken again: epoll no
    // longer knows it, which is no reason for a warning.
    auto closed = std::make_unique<Pipe>();
    const int closedId = dispatcher.watchFd(closed->r, KyIoDispatcher::Readable, loop.dispatcher(), handler);
    ASSERT_NE(closedId, 0);
    closed.reset();
    Pipe renumbered;
    EXPECT_TRUE(dispatcher.unwatch(closedId));
    EXPECT_EQ(log.count("Cannot remove descriptor"), 0);
}

TEST_F(KyIoDispatcherThreads, WatchAndUnwatchFromManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 100;
    std::atomic<int> handled{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                const int efd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
                auto done = std::make_shared<std::atomic<bool>>(false);
                const int id = dispatcher.watchFd(efd, KyIoDispatcher::Readable, loop.dispatcher(),
                                                  [done, &handled](int fd, uint32_t) {
                                                      uint64_t v;
                                                      if (read(fd, &v, sizeof v) == sizeof v) {
                                                          ++handled;
                                                          *done = true;
                                                      }
                                                  });
                if (id == 0) {
                    ++failures;
                    close(efd);
                    continue;
                }
                const uint64_t one = 1;
                if (write(efd, &one, sizeof one) != sizeof one) ++failures;
                if (!waitUntil([&] { return done->load(); })) ++failures;
                dispatcher.unwatch(id);
                close(efd);
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(handled.load(), kThreads * kRounds);
    EXPECT_EQ(dispatcher.watchCount(), 0);
}

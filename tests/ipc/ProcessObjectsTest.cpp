// Objects that belong to one process: a reply queue named after its client's
// pid goes when that client is gone, and only then. The clients here are the
// independent C peer (tests/peer), so the sweep is seen to work on objects a
// framework process never made; the sweep is the one a process runs when it
// opens the domain.
#include <signal.h>

#include <gtest/gtest.h>

#include "../support/KyTestIpc.h"
#include "../support/KyTestLoop.h"
#include "../support/KyTestProcess.h"
#include "ipc/IpcNames.h"
#include "ipc/LoopPoller.h"
#include "ipc/RegistryShared.h"
#include "ipc/RegistryTable.h"
#include "ipc/Signal.h"

namespace {

using namespace std::chrono_literals;

enum class Owner { Waiting, StoppedAndAged, Killed };

struct SweepCase { const char* name; Owner owner; bool survives; };

void PrintTo(const SweepCase& c, std::ostream* out) { *out << c.name; }

class ReplyQueueSweep : public ::testing::TestWithParam<SweepCase> {};

TEST_P(ReplyQueueSweep, TakesTheQueuesOfGoneClientsOnly) {
    const SweepCase& c = GetParam();
    kytest::IpcDomain domain{"sweep"};
    const std::string d = domain.name().toStdString();
    kytest::Child caller;
    ASSERT_TRUE(caller.start(kytest::helperPath("ky_c_peer"),
                             {"call", d, "svc", "echo", "s", "hello", "--timeout", "30000"}));
    const KyString replyQueue = KyString("__rpc_ret__|100|echo|") + KyString::number(caller.pid());
    // The caller waits once its queue is listed (and so can be found again).
    ASSERT_TRUE(kytest::waitUntil([&] {
        for (const KyJsonValue& row : ky::ipc::RegistryTable<256>::snapshot(domain.name()))
            if (row["signal"].toString() == replyQueue) return true;
        return false;
    })) << caller.err();
    const std::string reply = ky::ipc::detail::make_shm_name(domain.name(), "svc", replyQueue).toStdString();
    ASSERT_TRUE(kytest::shmObjectExists(reply));
    domain.observe();  // the sweep takes the killed caller's rows along

    if (c.owner == Owner::StoppedAndAged) {
        ASSERT_TRUE(kytest::stopOutsideCriticalSections(caller.pid(), domain));
        ky::ipc::detail::setClockSkewForTesting_(ky::ipc::detail::kRegistryStaleMs + 1000);
    } else if (c.owner == Owner::Killed) {
        // Killed between its critical sections: one killed inside stalls the
        // domain by design, which is not what this case is about.
        ASSERT_TRUE(kytest::stopOutsideCriticalSections(caller.pid(), domain));
        caller.kill();
    }
    {
        // This process opens the domain: its first registration sweeps it.
        ky::ipc::Registry registry{domain.name(), "sweeper"};
        ky::ipc::Signal<uint64_t> opened(registry, "opened");
    }
    ky::ipc::detail::setClockSkewForTesting_(0);
    EXPECT_EQ(kytest::shmObjectExists(reply), c.survives) << reply;
    if (!c.survives) return;

    // The survivor still carries its client's answer.
    if (c.owner == Owner::StoppedAndAged) {
        ASSERT_TRUE(caller.sendSignal(SIGCONT));
    }
    kytest::Child server;
    ASSERT_TRUE(server.start(kytest::helperPath("ky_c_peer"),
                             {"serve", d, "svc", "echo", "s", "--count", "1"}));
    EXPECT_EQ(server.finish(60s), 0) << server.out() << server.err();
    // A client whose rows aged out is deaf to the server's wake-up; any other
    // wake-up makes it look into its queue.
    ky::ipc::detail::LoopPoller::IpcWakeup::notifyPid(static_cast<uint32_t>(caller.pid()));
    EXPECT_EQ(caller.finish(60s), 0) << caller.out() << caller.err();
    EXPECT_NE(caller.out().find("result true"), std::string::npos) << caller.out();
}

INSTANTIATE_TEST_SUITE_P(Owners, ReplyQueueSweep,
                         ::testing::Values(SweepCase{"WaitingClient", Owner::Waiting, true},
                                           SweepCase{"ClientStoppedPastTheStalenessLimit", Owner::StoppedAndAged, true},
                                           SweepCase{"KilledClient", Owner::Killed, false}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace

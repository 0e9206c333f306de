// Child process for the kyipc tool's tests: a peer written with the typed
// channel templates, for the inspector to watch, publish to and call.
//   ky_kyipc_target <domain>
// Under the object "demo/Target" it publishes the signal "status" (int,
// KyString), starting with (7, "ready"); prints "command <text> <n>" for each
// value of the signal "command" (KyString, uint64_t); and serves three RPC
// methods on queues of capacity 100: check(int, KyString) -> bool (true for
// an even number, an error "check: negative value <n>" below zero; each
// request printed as "request <client info> <n> <label>"), ping() -> true,
// and stall(), which takes requests and never answers; and it keeps the
// request queue of a method idle(int) of capacity 10 that nobody drains.
// Standard input: "publish <n> <text>" publishes a status; end of file or
// "quit" ends the process. Prints "ready <pid>" once everything is up. The
// loop runs on the main thread; stdin is read on a second thread, which only
// publishes (safe from any thread) and quits the loop.
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "core/runtime/KyCoreApplication.h"
#include "ipc/Registry.h"
#include "ipc/RingQueue.h"
#include "ipc/Signal.h"

namespace {

using ky::ipc::Registry;
using ky::ipc::RingQueue;
using ky::ipc::Signal;
using ReplyQueue = RingQueue<100, unsigned long, bool, KyString, bool>;

// One reply queue per method and client, made at the first request of that client.
class Replies {
public:
    explicit Replies(Registry& registry) : registry_(registry) {}
    void send(const KyString& method, unsigned int pid, unsigned long id, bool ok, const KyString& error,
              bool value) {
        const KyString name = KyString("__rpc_ret__|100|") + method + "|" + KyString::number(pid);
        auto it = queues_.find(name);
        if (it == queues_.end()) it = queues_.emplace(name, std::make_unique<ReplyQueue>(registry_, name)).first;
        it->second->push(id, ok, error, value);
    }

private:
    Registry& registry_;
    std::map<KyString, std::unique_ptr<ReplyQueue>> queues_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    KyCoreApplication app;
    Registry registry{KyString(argv[1]), KyString("demo/Target")};

    Signal<int, KyString> status(registry, "status");
    status.publish(7, KyString("ready"));

    Signal<KyString, unsigned long> command(registry, "command");
    auto commandSub = command.connect([](const KyString& text, unsigned long n) {
        std::printf("command %s %lu\n", text.c_str(), n);
        std::fflush(stdout);
    });

    Replies replies(registry);
    RingQueue<100, unsigned long, unsigned int, KyString, int, KyString> check(registry, "__rpc__|100|check");
    auto checkSub = check.connect(
        [&replies](unsigned long id, unsigned int pid, const KyString& info, int n, const KyString& label) {
            std::printf("request %s %d %s\n", info.c_str(), n, label.c_str());
            std::fflush(stdout);
            if (n < 0) {
                replies.send("check", pid, id, false, KyString("check: negative value ") + KyString::number(n),
                             false);
            } else {
                replies.send("check", pid, id, true, KyString(), n % 2 == 0);
            }
        },
        true);
    RingQueue<100, unsigned long, unsigned int, KyString> ping(registry, "__rpc__|100|ping");
    auto pingSub = ping.connect(
        [&replies](unsigned long id, unsigned int pid, const KyString&) {
            replies.send("ping", pid, id, true, KyString(), true);
        },
        true);
    RingQueue<100, unsigned long, unsigned int, KyString> stall(registry, "__rpc__|100|stall");
    auto stallSub = stall.connect([](unsigned long, unsigned int, const KyString&) {}, true);
    RingQueue<10, unsigned long, unsigned int, KyString, int> idle(registry, "__rpc__|10|idle");

    std::thread input([&] {
        std::string line;
        while (std::getline(std::cin, line)) {
            if (line == "quit") break;
            if (line.rfind("publish ", 0) == 0) {
                const std::string rest = line.substr(8);
                const size_t blank = rest.find(' ');
                const int n = std::stoi(rest.substr(0, blank));
                status.publish(n, KyString(blank == std::string::npos ? std::string() : rest.substr(blank + 1)));
                std::printf("published %d\n", n);
                std::fflush(stdout);
            }
        }
        app.quit();
    });

    std::printf("ready %d\n", static_cast<int>(::getpid()));
    std::fflush(stdout);
    app.exec();
    input.join();
    return 0;
}

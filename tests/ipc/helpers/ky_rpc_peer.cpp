// ky_rpc_peer: one end of remote calls in its own process, for the RPC tests.
// Reports on stdout, one flushed line each.
//
//   serve DOMAIN OBJECT [CAPACITY]
//       serves the methods below on its main thread's loop, prints "ready",
//       and runs until stdin reaches end of file or SIGTERM:
//         echo(KyString) -> KyString        the text back
//         check(KyString) -> bool           true for a non-empty text
//         add(int, int) -> int              the sum
//         sum64(uint64_t, uint64_t) -> uint64_t
//         pid() -> unsigned int             the server's pid
//         sleep(int ms) -> bool             blocks the server's thread, then true
//         fail(KyString) -> bool            ok false, error "refused: <text>"
//         throw() -> bool                   throws "server exploded"
//   call DOMAIN OBJECT METHOD TEXT TIMEOUT_MS
//       calls METHOD(KyString) -> KyString from a thread without a loop and
//       prints "result=<value>|error=<last error>"
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

#include "core/runtime/KyCoreApplication.h"
#include "core/runtime/KyThread.h"
#include "ipc/RpcMethodClient.h"
#include "ipc/RpcServerEndpoint.h"

namespace {

void say(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

int serve(const KyString& domain, const KyString& object) {
    KyCoreApplication app;
    ky::ipc::Registry registry{domain, object};
    auto alive = std::make_shared<std::atomic<bool>>(true);
    ky::ipc::RpcServerEndpoint endpoint(registry, object, alive, [] { return ky::atomic::Thread::currentThread(); });
    endpoint.expose<KyString, KyString>("echo", [](const KyString& text) { return text; }, true);
    endpoint.expose<bool, KyString>("check", [](const KyString& text) { return !text.isEmpty(); }, true);
    endpoint.expose<int, int, int>("add", [](int a, int b) { return a + b; }, true);
    endpoint.expose<uint64_t, uint64_t, uint64_t>("sum64", [](uint64_t a, uint64_t b) { return a + b; }, true);
    endpoint.expose<unsigned int>("pid", [] { return static_cast<unsigned int>(getpid()); }, true);
    endpoint.expose<bool, int>(
        "sleep",
        [](int ms) {
            std::this_thread::sleep_for(std::chrono::milliseconds(ms));
            return true;
        },
        true);
    endpoint.expose<bool, KyString>(
        "fail", [](const KyString& text) { return ky::ipc::RpcReply<bool>{false, "refused: " + text, true}; }, true);
    endpoint.expose<bool>("throw", []() -> bool { throw std::runtime_error("server exploded"); }, true);
    // Ends the loop when the test closes our stdin.
    std::thread([&app] {
        std::string line;
        while (std::getline(std::cin, line)) {
        }
        app.quit();
    }).detach();
    say("ready");
    app.exec();
    alive->store(false);
    return 0;
}

int call(const KyString& domain, const KyString& object, const KyString& method, const KyString& text,
         int timeoutMs) {
    ky::ipc::RpcMethodClient<KyString, KyString> client(domain, object, method, "ky_rpc_peer");
    say("calling");
    const KyString result = client.call(text, timeoutMs);
    say("result=" + result.toStdString() + "|error=" + client.lastError().toStdString());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: ky_rpc_peer serve|call DOMAIN OBJECT ...\n");
        return 2;
    }
    const std::string command = argv[1];
    try {
        if (command == "serve") {
            if (argc > 4) ky::ipc::rpcQueueCapacityStorage_() = std::stoi(argv[4]);
            return serve(argv[2], argv[3]);
        }
        if (command == "call" && argc == 7) return call(argv[2], argv[3], argv[4], argv[5], std::stoi(argv[6]));
    } catch (const std::exception& e) {
        std::fprintf(stderr, "ky_rpc_peer: %s\n", e.what());
        return 1;
    }
    std::fprintf(stderr, "ky_rpc_peer: unknown command\n");
    return 2;
}

// ky_channel_peer: a child process that uses the typed channels as the tests
// tell it on its command line, and reports on stdout, one flushed line each.
//
//   publish DOMAIN OBJECT SIGNAL VALUE...      Signal<KyString>, one publish per value
//   subscribe DOMAIN OBJECT SIGNAL [--wait-go] [--initial]
//                                              prints "ready", then "value <v>" per callback;
//                                              with --wait-go the loop starts only after
//                                              a line on stdin
//   push DOMAIN OBJECT QUEUE VALUE...          RingQueue<10, KyString>; "pushed"/"full" per value
//   drain DOMAIN OBJECT QUEUE [--wait-go]      prints "ready", then "msg <v>" per message
//   hold-lock DOMAIN OBJECT SIGNAL             takes the block's mutex, prints "locked", stops itself
//
// Subscribers run until stdin reaches end of file or SIGTERM.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <thread>

#include "core/runtime/KyCoreApplication.h"
#include "ipc/RingQueue.h"
#include "ipc/Signal.h"

namespace {

void say(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

bool hasFlag(int argc, char** argv, const char* flag) {
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == flag) return true;
    }
    return false;
}

// Ends the loop when the test closes our stdin.
void quitOnEndOfInput(KyCoreApplication& app) {
    std::thread([&app] {
        std::string line;
        while (std::getline(std::cin, line)) {
        }
        app.quit();
    }).detach();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: ky_channel_peer COMMAND DOMAIN OBJECT NAME ...\n");
        return 2;
    }
    const std::string command = argv[1];
    ky::ipc::Registry registry{KyString(argv[2]), KyString(argv[3])};
    const KyString name(argv[4]);
    try {
        if (command == "publish") {
            ky::ipc::Signal<KyString> signal(registry, name);
            for (int i = 5; i < argc; ++i) signal.publish(KyString(argv[i]));
            say("published");
            return 0;
        }
        if (command == "push") {
            ky::ipc::RingQueue<10, KyString> queue(registry, name);
            for (int i = 5; i < argc; ++i) say(queue.push(KyString(argv[i])) ? "pushed" : "full");
            return 0;
        }
        if (command == "hold-lock") {
            ky::ipc::Signal<KyString> signal(registry, name);
            pthread_mutex_lock(&signal.mapping().layout()->mutex);
            say("locked");
            raise(SIGSTOP);
            return 0;
        }
        KyCoreApplication app;
        ky::ipc::Signal<KyString>::Subscription subscription;
        std::unique_ptr<ky::ipc::Signal<KyString>> signal;
        std::unique_ptr<ky::ipc::RingQueue<10, KyString>> queue;
        if (command == "subscribe") {
            signal = std::make_unique<ky::ipc::Signal<KyString>>(registry, name);
            subscription = signal->connect([](const KyString& v) { say("value " + v.toStdString()); },
                                           hasFlag(argc, argv, "--initial"));
        } else if (command == "drain") {
            queue = std::make_unique<ky::ipc::RingQueue<10, KyString>>(registry, name);
            subscription = queue->connect([](const KyString& v) { say("msg " + v.toStdString()); });
        } else {
            std::fprintf(stderr, "unknown command %s\n", command.c_str());
            return 2;
        }
        say("ready");
        if (hasFlag(argc, argv, "--wait-go")) {
            std::string line;
            std::getline(std::cin, line);
        }
        quitOnEndOfInput(app);
        app.exec();
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "error: %s\n", e.what());
        say(std::string("error ") + e.what());
        return 3;
    }
}

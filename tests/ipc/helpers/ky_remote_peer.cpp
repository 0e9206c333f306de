// ky_remote_peer: a child process holding one KyRemoteObject, driven by lines
// on stdin and reporting on stdout, one flushed line each.
//
//   ky_remote_peer DOMAIN NAMESPACE OBJECTNAME CONFIGROOT
//
// Prints "ready <instanceId> <merged json>" once the object is built, then
// "changed <merged json>" for each configChanged and "remote <sender> <merged
// json>" for each remoteConfigReceived. Commands:
//   set PATH JSON        setConfigValue; prints "set PATH"
//   get PATH             prints "value PATH <json>"
//   register PATH JSON   registerConfigEntry; its apply prints "apply PATH <json>"
//   reset | factory      resetFactory / saveAsFactory; prints "reset 1" or "factory 1" (0 on failure)
//   dump                 prints "merged <json>" and "user <json>"
// Ends on end of input or SIGTERM, printing "bye" after the object is gone
// (its destructor writes a pending save).
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "core/runtime/KyCoreApplication.h"
#include "ipc/KyRemoteObject.h"

namespace {

void say(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

std::string text(const KyJsonValue& value) {
    return KyJsonDocument::generateJson(value, KyJsonDocument::Compact).toStdString();
}

KyJsonValue parseValue(const std::string& json) {
    bool ok = false;
    KyJsonDocument doc = KyJsonDocument::fromJson(json, &ok);
    return ok ? doc.root() : KyJsonValue(KyString(json));
}

// Splits "word rest of line".
std::pair<std::string, std::string> head(const std::string& line) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string::npos) return {line, std::string()};
    return {line.substr(0, blank), line.substr(blank + 1)};
}

void run(KyRemoteObject& object, const std::string& line) {
    const auto [command, rest] = head(line);
    if (command == "set" || command == "register") {
        const auto [path, json] = head(rest);
        if (command == "set") {
            object.setConfigValue(KyString(path), parseValue(json));
            say("set " + path);
        } else {
            object.registerConfigEntry(KyString(path), parseValue(json),
                                       [path](const KyJsonValue& v) { say("apply " + path + " " + text(v)); });
        }
    } else if (command == "get") {
        say("value " + rest + " " + text(object.configValue(KyString(rest))));
    } else if (command == "reset") {
        say(std::string("reset ") + (object.resetFactory() ? "1" : "0"));
    } else if (command == "factory") {
        say(std::string("factory ") + (object.saveAsFactory() ? "1" : "0"));
    } else if (command == "dump") {
        say("merged " + text(object.mergedConfig()));
        say("user " + text(object.userConfig()));
    } else {
        say("unknown " + command);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: ky_remote_peer DOMAIN NAMESPACE OBJECTNAME CONFIGROOT\n");
        return 2;
    }
    try {
        KyCoreApplication app;
        KyRemoteObject::setDefaultConfigRoot(KyString(argv[4]));
        auto object = std::make_unique<KyRemoteObject>(KyString(argv[1]), KyString(argv[2]), KyString(argv[3]));
        KyObject::connect(object.get(), &KyRemoteObject::configChanged,
                          [](const KyJsonObject& merged) { say("changed " + text(merged)); });
        KyObject::connect(object.get(), &KyRemoteObject::remoteConfigReceived,
                          [](uint64_t sender, const KyJsonObject& merged) {
                              say("remote " + std::to_string(sender) + " " + text(merged));
                          });
        say("ready " + std::to_string(object->instanceId()) + " " + text(object->mergedConfig()));

        KyRemoteObject* target = object.get();
        std::thread([&app, target] {
            std::string line;
            while (std::getline(std::cin, line)) app.postEvent([target, line] { run(*target, line); });
            // Posted behind the commands, so every line read is handled first.
            app.postEvent([&app] { app.quit(); });
        }).detach();
        app.exec();
        object.reset();
        say("bye");
        return 0;
    } catch (const std::exception& e) {
        say(std::string("error ") + e.what());
        return 3;
    }
}

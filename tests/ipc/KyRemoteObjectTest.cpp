// KyRemoteObject: the layered configuration in real files, the configuration
// channel in real shared memory, and peers in real child processes that share
// a change, write their own user files and find an override after a restart.
#include <sys/inotify.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "core/io/KyDir.h"
#include "core/io/KyFile.h"
#include "core/io/KyFileInfo.h"
#include "core/runtime/KyThread.h"
#include "core/types/KyJsonDocument.h"
#include "ipc/KyRemoteObject.h"
#include "ipc/RpcMethodClient.h"
#include "ipc/Signal.h"
#include "../support/KyTestIpc.h"
#include "../support/KyTestLoop.h"
#include "../support/KyTestProcess.h"

using namespace std::chrono_literals;

namespace {

KyJsonValue json(const std::string& text) {
    KyJsonDocument doc;
    EXPECT_TRUE(doc.loadFromJson(text)) << text << ": " << doc.errorString().toStdString();
    return doc.root();
}

std::string text(const KyJsonValue& value) {
    return KyJsonDocument::generateJson(value, KyJsonDocument::Compact).toStdString();
}

void writeFile(const KyString& path, const std::string& content) {
    ASSERT_TRUE(KyDir::createPathTree(KyDir::parentPath(path)));
    ASSERT_TRUE(KyFile::writeAll(path, content));
}

// The file's JSON, or null when it is missing or malformed.
KyJsonValue readJsonFile(const KyString& path) {
    KyString content;
    if (!KyFile::readAll(path, content)) return KyJsonValue();
    KyJsonDocument doc;
    return doc.loadFromJson(content.view()) ? doc.root() : KyJsonValue();
}

KyList<KyString> paths(std::initializer_list<const char*> items) {
    KyList<KyString> out;
    for (const char* item : items) out.append(KyString(item));
    return out;
}

}  // namespace

// Failure messages show JSON values as text.
void PrintTo(const KyJsonValue& value, std::ostream* os) { *os << text(value); }

// ---- Names and pure helpers ----

TEST(RemoteConfigNames, ObjectPathDropsOuterSlashesAndTurnsBackslashes) {
    struct Row { const char* nameSpace; const char* objectName; const char* expected; };
    const Row rows[] = {
        {"velnet", "gui", "velnet/gui"},
        {"velnet", "VelmoVpnAgent", "velnet/VelmoVpnAgent"},
        {"/velnet/", "gui", "velnet/gui"},
        {"//a\\b//", "x", "a/b/x"},
        {"\\a\\b\\", "x", "a/b/x"},
        {"", "gui", "gui"},
        {"///", "gui", "gui"},
        {"\\", "gui", "gui"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(KyRemoteObject::objectPathFor_(row.nameSpace, row.objectName), KyString(row.expected))
            << "nameSpace '" << row.nameSpace << "'";
}

TEST(RemoteConfigNames, ConfigPathsAreNormalised) {
    struct Row { const char* input; const char* expected; };
    const Row rows[] = {
        {"vpn/filter/enabled", "vpn/filter/enabled"}, {"  a/b \t", "a/b"}, {"\\a\\\\b\\", "a/b"},
        {"//a///b//", "a/b"}, {"vpn\\filter/enabled", "vpn/filter/enabled"}, {"", ""}, {"/", ""}, {" // ", ""},
    };
    for (const Row& row : rows)
        EXPECT_EQ(KyRemoteObject::normalizeConfigPath_(row.input), KyString(row.expected)) << "'" << row.input << "'";
}

TEST(RemoteConfigNames, FileNamesKeepOnlySafeBytes) {
    struct Row { const char* input; const char* nsForFile; const char* safeName; };
    const Row rows[] = {
        {"velnet/gui", "velnet_gui", "velnet_gui"},
        {"/a\\b/", "a_b", "_a_b_"},
        {"__x__", "x", "__x__"},
        {"Agent-1.x_y", "Agent-1.x_y", "Agent-1.x_y"},
        {"a b", "a b", "a_b"},
        {"\xc3\xa9", "\xc3\xa9", "__"},
        {"", "root", ""},
        {"/_/", "root", "___"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(KyRemoteObject::sanitizeNsForFile_(row.input), KyString(row.nsForFile)) << "'" << row.input << "'";
        EXPECT_EQ(KyRemoteObject::safeFileName_(row.input), KyString(row.safeName)) << "'" << row.input << "'";
    }
    // The ends of each kept range stay; their neighbours do not.
    EXPECT_EQ(KyRemoteObject::safeFileName_("azAZ09`{@[/:"), KyString("azAZ09______"));
}

TEST(RemoteConfigMerge, DeepMergeRecursesIntoObjectsAndReplacesEverythingElse) {
    struct Row { const char* name; const char* dst; const char* src; const char* expected; };
    const Row rows[] = {
        {"adds keys", R"({"a":1})", R"({"b":2})", R"({"a":1,"b":2})"},
        {"replaces scalars", R"({"a":1})", R"({"a":"x"})", R"({"a":"x"})"},
        {"recurses", R"({"n":{"x":1,"y":1}})", R"({"n":{"y":2,"z":3}})", R"({"n":{"x":1,"y":2,"z":3}})"},
        {"arrays replaced whole", R"({"l":[1,2,3]})", R"({"l":[9]})", R"({"l":[9]})"},
        {"object over scalar", R"({"a":1})", R"({"a":{"b":2}})", R"({"a":{"b":2}})"},
        {"scalar over object", R"({"a":{"b":2}})", R"({"a":null})", R"({"a":null})"},
        {"empty source", R"({"a":1})", R"({})", R"({"a":1})"},
    };
    for (const Row& row : rows) {
        KyJsonObject dst = json(row.dst).toObject();
        KyRemoteObject::mergeObjectDeep_(dst, json(row.src).toObject());
        EXPECT_EQ(KyJsonValue(dst), json(row.expected)) << row.name;
    }
}

TEST(RemoteConfigMerge, DeepEqualityComparesNumbersByValue) {
    struct Row { const char* a; const char* b; bool equal; };
    const Row rows[] = {
        {"1", "1.0", true},          {"1", "1.5", false},     {"-3", "-3e0", true},     {"0.5", "0.5", true},
        {"1", "\"1\"", false},       {"true", "1", false},    {"null", "null", true},   {"null", "{}", false},
        {"[1,2]", "[1.0,2]", true},  {"[1,2]", "[2,1]", false}, {"[1]", "[1,1]", false},
        {R"({"a":1,"b":[2]})", R"({"b":[2.0],"a":1})", true}, {R"({"a":1})", R"({"a":1,"b":2})", false},
        {"9223372036854775807", "9.3e18", false}, {"-9223372036854775808", "9223372036854775808.0", false},
        {"-9223372036854775808", "-9223372036854775808.0", true},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(KyRemoteObject::jsonDeepEqual_(json(row.a), json(row.b)), row.equal) << row.a << " vs " << row.b;
        EXPECT_EQ(KyRemoteObject::jsonDeepEqual_(json(row.b), json(row.a)), row.equal) << row.b << " vs " << row.a;
    }
}

TEST(RemoteConfigMerge, UserOverrideKeepsWhatDiffersAndWhatIsTouched) {
    struct Row {
        const char* name;
        const char* value;
        const char* base;
        std::initializer_list<const char*> touched;
        const char* expected;  // nullptr: nothing to keep
    };
    const Row rows[] = {
        {"equal and untouched", R"({"a":1})", R"({"a":1})", {}, nullptr},
        {"equal but touched", R"({"a":1,"b":2})", R"({"a":1,"b":2})", {"a"}, R"({"a":1})"},
        {"touched deep inside an equal object", R"({"n":{"x":1,"y":2}})", R"({"n":{"x":1,"y":2}})", {"n/y"},
         R"({"n":{"y":2}})"},
        {"only the difference", R"({"a":1,"n":{"x":1,"y":3}})", R"({"a":1,"n":{"x":1,"y":2}})", {},
         R"({"n":{"y":3}})"},
        {"new key", R"({"a":1,"c":[1]})", R"({"a":1})", {}, R"({"c":[1]})"},
        {"number of another type", R"({"a":1.0})", R"({"a":1})", {}, nullptr},
        {"empty object over a full one", R"({})", R"({"a":1})", {}, nullptr},
        {"empty object where base has none", R"({"o":{}})", R"({})", {}, R"({"o":{}})"},
        {"scalar", "5", "4", {}, "5"},
    };
    for (const Row& row : rows) {
        KyRemoteObject::TouchedSet touched;
        for (const char* t : row.touched) touched.insert(KyString(t), true);
        KyJsonValue out;
        const bool kept = KyRemoteObject::buildUserOverrideValue_(json(row.value), json(row.base), out, touched, "");
        EXPECT_EQ(kept, row.expected != nullptr) << row.name;
        if (row.expected && kept) {
            EXPECT_EQ(out, json(row.expected)) << row.name;
        }
    }
}

// ---- One instance in this process ----

namespace {

struct RemoteObjectTest : kytest::LoopFixture {
    kytest::IpcDomain domain{"remote"};
    kytest::TempDir dir;
    KyString root;

    void SetUp() override {
        LoopFixture::SetUp();
        root = dir.path() + "/cfg";
        KyRemoteObject::setDefaultConfigRoot(root);
    }
    std::unique_ptr<KyRemoteObject> make(const KyString& name = "gui") {
        domain.track(KyRemoteObject::objectPathFor_("velnet", name), KyString("__config__|") + name);
        return std::make_unique<KyRemoteObject>(domain.name(), "velnet", name);
    }
    KyString globalPath(const KyString& name = "gui") const { return root + "/global/" + name + ".json"; }
    KyString localPath(const KyString& name = "gui") const {
        return root + "/local/" + domain.name() + "_velnet_" + name + ".json";
    }
    KyString userPath(const KyString& name = "gui") const {
        return root + "/user/" + domain.name() + "_velnet_" + name + ".json";
    }
    // Publishes on the configuration channel as another instance would, and
    // runs the loop until a witness subscribed after the object has seen it:
    // a pass runs the closures in the order they subscribed, so by then the
    // object has handled the publication.
    void publishAndSettle(uint64_t sender, const KyString& payload) {
        ky::ipc::Registry registry{domain.name(), "velnet/gui"};
        ky::ipc::Signal<uint64_t, KyString> channel(registry, "__config__|gui");
        bool seen = false;
        auto witness = channel.connect([&](uint64_t s, const KyString& t) { seen = seen || (s == sender && t == payload); });
        channel.publish(sender, payload);
        ASSERT_TRUE(pumpUntil([&] { return seen; })) << payload.toStdString();
    }
    // Waits until the object's own publication has passed its closure.
    template <typename Change> void changeAndSettle(KyRemoteObject& object, Change change) {
        ky::ipc::Registry registry{domain.name(), "velnet/gui"};
        ky::ipc::Signal<uint64_t, KyString> channel(registry, "__config__|gui");
        bool seen = false;
        auto witness = channel.connect([&](uint64_t s, const KyString&) { seen = seen || s == object.instanceId(); });
        change();
        ASSERT_TRUE(pumpUntil([&] { return seen; }));
    }
};

}  // namespace

TEST_F(RemoteObjectTest, ARelativeRootIsTakenFromTheCurrentFolderAndAPendingSaveIsWrittenOnDestruction) {
    const std::string cwd = KyDir::currentPath().toStdString();
    std::string up;  // from the current folder back to "/", then down to the test's root
    for (char c : cwd) up += c == '/' ? "../" : "";
    const KyString relative = KyString(up) + root.mid(1);
    KyRemoteObject::setDefaultConfigRoot(relative);
    auto object = make();
    EXPECT_EQ(object->userConfigPath(), KyDir::currentPath() + "/" + relative + "/user/" + domain.name() + "_velnet_gui.json");
    for (const char* layer : {"/global", "/local", "/user"}) EXPECT_TRUE(KyDir::exists(root + layer)) << layer;
    object->setConfigValue("ui/theme", KyJsonValue("blue"));
    EXPECT_TRUE(object->hasPendingSave());
    EXPECT_FALSE(KyFileInfo(userPath()).exists()) << "the save waits for its delay";
    // A pending save is written when the object is destroyed.
    object.reset();
    EXPECT_EQ(readJsonFile(userPath()), json(R"({"ui":{"theme":"blue"}})"));
}

TEST_F(RemoteObjectTest, LayersMergeUserOverLocalOverGlobal) {
    writeFile(globalPath(), R"({"a":1,"n":{"x":1,"y":1},"list":[1,2,3]})");
    writeFile(localPath(), R"({"n":{"y":2},"list":[9]})");
    writeFile(userPath(), R"({"n":{"z":3},"b":true,"__kyconfig__":{"v":1,"touched":["a"]}})");
    auto object = make();
    EXPECT_EQ(KyJsonValue(object->mergedConfig()), json(R"({"a":1,"n":{"x":1,"y":2,"z":3},"list":[9],"b":true})"));
    EXPECT_EQ(KyJsonValue(object->userConfig()), json(R"({"n":{"z":3},"b":true})")) << "metadata is stripped";
    EXPECT_EQ(object->touchedPaths(), paths({"a", "b", "n/z"}));
    EXPECT_EQ(object->configValue("n/y"), KyJsonValue(2));
    EXPECT_EQ(object->configValue("/n\\x/"), KyJsonValue(1));
    EXPECT_TRUE(object->configValue("missing").isNull());
}

TEST_F(RemoteObjectTest, MalformedOrNonObjectLayersCountAsEmpty) {
    writeFile(globalPath(), R"({"a":1})");
    writeFile(localPath(), "{\"a\": 2,");
    writeFile(userPath(), "[1,2]");
    auto object = make();
    EXPECT_EQ(KyJsonValue(object->mergedConfig()), json(R"({"a":1})"));
    EXPECT_TRUE(object->touchedPaths().isEmpty());
}

TEST_F(RemoteObjectTest, PublicationCarryingItsOwnInstanceIdIsIgnored) {
    auto object = make();
    int received = 0;
    KyObject::connect(object.get(), &KyRemoteObject::remoteConfigReceived, [&](uint64_t, const KyJsonObject&) { ++received; });
    const KyString doc = R"({"vpn":{"mode":"strict"}})";
    publishAndSettle(object->instanceId(), doc);
    EXPECT_EQ(received, 0);
    EXPECT_TRUE(object->configValue("vpn/mode").isNull());

    publishAndSettle(object->instanceId() ^ 1, doc);
    EXPECT_EQ(received, 1);
    EXPECT_EQ(object->configValue("vpn/mode"), KyJsonValue("strict"));
}

TEST_F(RemoteObjectTest, OwnEchoDoesNotUndoALaterChange) {
    auto object = make();
    changeAndSettle(*object, [&] {
        object->setConfigValue("mode", KyJsonValue("first"));
        // Adopted without a publication: the echo of "first" is now stale.
        object->applyRemoteConfig(42, R"({"mode":"second","__kyconfig__":{"v":1,"touched":["mode"]}})");
    });
    EXPECT_EQ(object->configValue("mode"), KyJsonValue("second"));
}

TEST_F(RemoteObjectTest, PublicationsAreHandledOnTheObjectsThread) {
    auto object = make();
    ky::atomic::Thread worker("remote-worker");
    ASSERT_TRUE(worker.start());
    ASSERT_TRUE(object->moveToThread(&worker));
    std::atomic<ky::atomic::Thread*> handledOn{nullptr};
    KyObject::connect(object.get(), &KyRemoteObject::remoteConfigReceived,
                      [&](uint64_t, const KyJsonObject&) { handledOn = ky::atomic::Thread::currentThread(); });
    // This loop polls the channel; the object's work goes to the worker.
    publishAndSettle(5, R"({"k":1})");
    ASSERT_TRUE(kytest::waitUntil([&] { return handledOn.load() != nullptr; }));
    EXPECT_EQ(handledOn.load(), &worker);
    EXPECT_EQ(object->configValue("k"), KyJsonValue(1));
    worker.quit();
    worker.wait();
    object.reset();
    EXPECT_EQ(readJsonFile(userPath()), json(R"({"k":1})"));
}

TEST_F(RemoteObjectTest, MalformedRemoteDocumentIsDropped) {
    writeFile(globalPath(), R"({"a":1})");
    auto object = make();
    int changed = 0;
    KyObject::connect(object.get(), &KyRemoteObject::configChanged, [&](const KyJsonObject&) { ++changed; });
    const char* bad[] = {"not json", "{\"a\":", "{\"a\":2}}", "[1,2]", "\"text\"", "42", "null", ""};
    for (const char* payload : bad) {
        publishAndSettle(7, payload);
        EXPECT_EQ(changed, 0) << "'" << payload << "'";
    }
    EXPECT_EQ(KyJsonValue(object->mergedConfig()), json(R"({"a":1})"));
    // The channel and the object still work after the bad ones.
    publishAndSettle(7, R"({"a":2})");
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(object->configValue("a"), KyJsonValue(2));
}

TEST_F(RemoteObjectTest, RemoteValueEqualToBaseStaysInUserLayerOnlyWhenTouched) {
    writeFile(globalPath(), R"({"a":1,"b":{"c":2,"d":3}})");
    auto object = make();
    KyJsonObject received;
    uint64_t from = 0;
    KyObject::connect(object.get(), &KyRemoteObject::remoteConfigReceived, [&](uint64_t sender, const KyJsonObject& merged) {
        from = sender;
        received = merged;
    });
    publishAndSettle(99, R"({"a":1,"b":{"c":2,"d":4},"e":5,"__kyconfig__":{"v":1,"touched":["a"]}})");
    const KyJsonValue expectedUser = json(R"({"a":1,"b":{"d":4},"e":5})");
    EXPECT_EQ(KyJsonValue(object->userConfig()), expectedUser);
    EXPECT_EQ(object->touchedPaths(), paths({"a", "b/d", "e"}));
    EXPECT_EQ(from, 99u);
    EXPECT_EQ(KyJsonValue(received), json(R"({"a":1,"b":{"c":2,"d":4},"e":5})"));
    ASSERT_TRUE(pumpUntil([&] { return readJsonFile(userPath()) == expectedUser; }));
    KyString content;
    ASSERT_TRUE(KyFile::readAll(userPath(), content));
    EXPECT_FALSE(content.contains("__kyconfig__")) << "metadata never reaches the file";
    EXPECT_TRUE(content.endsWith("}\n")) << content.toStdString();
}

TEST_F(RemoteObjectTest, BurstOfChangesMakesOneWrite) {
    auto object = make();
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(watch, 0);
    ASSERT_GE(inotify_add_watch(watch, (root + "/user").c_str(), IN_MOVED_TO | IN_CLOSE_WRITE | IN_CREATE), 0);
    for (int i = 1; i <= 20; ++i) ASSERT_TRUE(object->setConfigValue("counter", KyJsonValue(i)));
    ASSERT_TRUE(pumpUntil([&] { return !object->hasPendingSave(); }));
    EXPECT_EQ(readJsonFile(userPath()), json(R"({"counter":20})"));

    // Every save ends in one rename onto the user file.
    const std::string target = KyDir::fileName(userPath()).toStdString();
    int renames = 0;
    alignas(inotify_event) char buffer[64 * 1024];
    for (ssize_t got; (got = ::read(watch, buffer, sizeof buffer)) > 0;) {
        for (char* p = buffer; p < buffer + got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(p);
            if ((event->mask & IN_MOVED_TO) && event->len > 0 && target == event->name) ++renames;
            p += sizeof(inotify_event) + event->len;
        }
    }
    ::close(watch);
    EXPECT_EQ(renames, 1);
}

TEST_F(RemoteObjectTest, ResetFactoryRemovesUserFileAndLeavesGlobalPlusLocal) {
    writeFile(globalPath(), R"({"a":1,"n":{"x":1}})");
    writeFile(localPath(), R"({"b":2})");
    writeFile(userPath(), R"({"a":5,"n":{"y":2}})");
    auto object = make();
    KyList<KyJsonObject> changes;
    KyObject::connect(object.get(), &KyRemoteObject::configChanged, [&](const KyJsonObject& m) { changes.append(m); });
    // A change still waiting for its save must not bring the file back.
    object->setConfigValue("c", KyJsonValue(3));

    EXPECT_TRUE(object->resetFactory());
    EXPECT_FALSE(KyFileInfo(userPath()).exists());
    const KyJsonValue factory = json(R"({"a":1,"n":{"x":1},"b":2})");
    EXPECT_EQ(KyJsonValue(object->mergedConfig()), factory);
    EXPECT_TRUE(object->userConfig().isEmpty());
    EXPECT_TRUE(object->touchedPaths().isEmpty());
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(KyJsonValue(changes.back()), factory);
    EXPECT_FALSE(object->hasPendingSave());

    // The destructor writes a pending save: none is left to bring the file back.
    object.reset();
    EXPECT_FALSE(KyFileInfo(userPath()).exists());
    auto restarted = make();
    EXPECT_EQ(KyJsonValue(restarted->mergedConfig()), factory);
}

TEST_F(RemoteObjectTest, SaveAsFactoryMovesTheMergedConfigurationToTheLocalLayer) {
    writeFile(globalPath(), R"({"a":1})");
    writeFile(userPath(), R"({"b":{"c":2}})");
    auto object = make();
    const KyJsonValue merged = json(R"({"a":1,"b":{"c":2}})");
    // A local layer that cannot be written (a folder stands in its place) changes nothing.
    ASSERT_TRUE(KyDir::createPathTree(localPath()));
    EXPECT_FALSE(object->saveAsFactory());
    EXPECT_EQ(KyJsonValue(object->userConfig()), json(R"({"b":{"c":2}})"));
    ASSERT_TRUE(KyDir::removeRecursively(localPath()));
    EXPECT_TRUE(object->saveAsFactory());
    EXPECT_EQ(readJsonFile(localPath()), merged);
    EXPECT_FALSE(KyFileInfo(userPath()).exists());
    EXPECT_EQ(KyJsonValue(object->localConfig()), merged);
    EXPECT_TRUE(object->userConfig().isEmpty());
    EXPECT_TRUE(object->touchedPaths().isEmpty());
    EXPECT_EQ(KyJsonValue(object->mergedConfig()), merged);
    // A reset now falls back to the new factory state.
    EXPECT_TRUE(object->resetFactory());
    EXPECT_EQ(KyJsonValue(object->mergedConfig()), merged);
}

TEST_F(RemoteObjectTest, RegisteredEntriesFollowTheMergedValue) {
    writeFile(globalPath(), R"({"ui":{"theme":"dark"}})");
    auto object = make();
    KyList<KyString> applied;
    auto record = [&](const char* name) {
        return [&applied, name](const KyJsonValue& v) { applied.append(KyString(name) + "=" + KyString(text(v))); };
    };
    EXPECT_EQ(object->registerConfigEntry("ui/theme", KyJsonValue("light"), record("theme")), KyJsonValue("dark"));
    EXPECT_EQ(object->registerConfigEntry("ui/scale", KyJsonValue(2), record("scale")), KyJsonValue(2));
    EXPECT_EQ(applied, paths({"theme=\"dark\"", "scale=2"}));
    EXPECT_EQ(object->configValue("ui/scale"), KyJsonValue(2));

    applied.clear();
    object->setConfigValue("ui/theme", KyJsonValue("blue"));
    EXPECT_EQ(applied, paths({"scale=2", "theme=\"blue\""}));
    // Others learn the default too, with the metadata of what the user owns.
    const KyJsonValue effective = json(object->effectiveConfigJson().toStdString());
    EXPECT_EQ(effective, json(R"({"ui":{"theme":"blue","scale":2},"__kyconfig__":{"v":1,"touched":["ui/theme"]}})"));

    applied.clear();
    object->resetFactory();
    EXPECT_EQ(applied, paths({"scale=2", "theme=\"dark\""}));
}

// ---- Peers in other processes ----

namespace {

const KyString kPeer = kytest::helperPath("ky_remote_peer");

struct RemoteObjectPeers : ::testing::Test {
    kytest::IpcDomain domain{"rpeer"};
    kytest::TempDir dir;

    KyString rootOf(const char* peer) const { return dir.path() + "/" + peer; }
    KyString userFileOf(const char* peer) const {
        return rootOf(peer) + "/user/" + domain.name() + "_velnet_gui.json";
    }
    bool start(kytest::Child& child, const char* peer) {
        domain.track("velnet/gui", "__config__|gui");
        if (!child.start(kPeer, {domain.name().toStdString(), "velnet", "gui", rootOf(peer).toStdString()}))
            return false;
        domain.trackPid(static_cast<uint32_t>(child.pid()));
        return child.waitForText("ready ", 20s) && child.waitForText("\n", 20s);
    }
    // The instance id from the "ready" line.
    static std::string instanceIdOf(const kytest::Child& child) {
        const std::string& out = child.out();
        const std::size_t at = out.find("ready ") + 6;
        return out.substr(at, out.find(' ', at) - at);
    }
    static bool stop(kytest::Child& child) {
        child.closeInput();
        return child.finish(60s) == 0 && child.out().find("bye\n") != std::string::npos;
    }
};

}  // namespace

TEST_F(RemoteObjectPeers, TwoProcessesShareChangesAndEachWritesItsOwnUserFile) {
    kytest::Child a, b;
    ASSERT_TRUE(start(a, "a")) << a.out() << a.err();
    ASSERT_TRUE(start(b, "b")) << b.out() << b.err();

    ASSERT_TRUE(a.writeInput("set vpn/mode \"strict\"\n"));
    ASSERT_TRUE(a.waitForText("set vpn/mode\n", 20s)) << a.out();
    EXPECT_TRUE(b.waitForText("remote " + instanceIdOf(a) + " {\"vpn\":{\"mode\":\"strict\"}}\n", 20s)) << b.out();
    const KyJsonValue expected = json(R"({"vpn":{"mode":"strict"}})");
    EXPECT_TRUE(kytest::waitUntil([&] { return readJsonFile(userFileOf("a")) == expected; }));
    EXPECT_TRUE(kytest::waitUntil([&] { return readJsonFile(userFileOf("b")) == expected; }));

    // A reset travels too: the other side's override goes as well.
    ASSERT_TRUE(a.writeInput("reset\n"));
    ASSERT_TRUE(a.waitForText("reset 1\n", 20s)) << a.out();
    EXPECT_FALSE(KyFileInfo(userFileOf("a")).exists());
    EXPECT_TRUE(b.waitForText("remote " + instanceIdOf(a) + " {}\n", 20s)) << b.out();
    EXPECT_TRUE(kytest::waitUntil([&] { return readJsonFile(userFileOf("b")) == json("{}"); }));

    EXPECT_TRUE(stop(a)) << a.out() << a.err();
    EXPECT_TRUE(stop(b)) << b.out() << b.err();
    EXPECT_EQ(a.out().find("remote " + instanceIdOf(a)), std::string::npos) << "its own echo is ignored";
}

TEST_F(RemoteObjectPeers, UserOverrideSurvivesARestartAndFactoryMethodsAnswerOverRpc) {
    {
        kytest::Child first;
        ASSERT_TRUE(start(first, "a")) << first.out() << first.err();
        ASSERT_TRUE(first.writeInput("set ui/theme \"blue\"\n"));
        ASSERT_TRUE(first.waitForText("set ui/theme\n", 20s)) << first.out();
        ASSERT_TRUE(stop(first)) << first.out() << first.err();
    }
    EXPECT_EQ(readJsonFile(userFileOf("a")), json(R"({"ui":{"theme":"blue"}})"));

    kytest::Child peer;
    ASSERT_TRUE(start(peer, "a")) << peer.out() << peer.err();
    EXPECT_NE(peer.out().find(R"({"ui":{"theme":"blue"}})"), std::string::npos) << peer.out();
    ASSERT_TRUE(peer.writeInput("get ui/theme\n"));
    EXPECT_TRUE(peer.waitForText("value ui/theme \"blue\"\n", 20s)) << peer.out();
    for (const char* method : {"system/saveAsFactory", "system/resetFactory"}) {
        domain.track("velnet/gui", ky::ipc::rpcRequestQueueName(method));
        domain.track("velnet/gui", ky::ipc::rpcResponseQueueName(method, static_cast<uint32_t>(getpid())));
    }

    ky::ipc::RpcMethodClient<bool> saveAsFactory(domain.name(), "velnet/gui", "system/saveAsFactory", "test");
    EXPECT_TRUE(saveAsFactory.call(20000)) << saveAsFactory.lastError().toStdString();
    const KyString local = rootOf("a") + "/local/" + domain.name() + "_velnet_gui.json";
    EXPECT_EQ(readJsonFile(local), json(R"({"ui":{"theme":"blue"}})"));
    EXPECT_FALSE(KyFileInfo(userFileOf("a")).exists());

    ky::ipc::RpcMethodClient<bool> resetFactory(domain.name(), "velnet/gui", "system/resetFactory", "test");
    EXPECT_TRUE(resetFactory.call(20000)) << resetFactory.lastError().toStdString();
    ASSERT_TRUE(peer.writeInput("get ui\n"));
    EXPECT_TRUE(peer.waitForText("value ui {\"theme\":\"blue\"}\n", 20s)) << "the factory state stays" << peer.out();
    EXPECT_TRUE(stop(peer)) << peer.out() << peer.err();
}

// Settings layer: the text format, groups and typed values, what survives a
// reload in a new object, corrupt files, and saves killed half-way by SIGKILL.

#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "IoTestSupport.h"
#include "../../support/KyTestEnv.h"
#include "core/io/KyDebug.h"
#include "core/io/KyDir.h"
#include "core/io/KyFile.h"
#include "core/io/KyFileInfo.h"
#include "core/io/KySaveFile.h"
#include "core/io/KySettings.h"
#include "core/io/KySettingsFormat.h"

using kytest::TempDir;
using Entries = KySettingsFormat::Entries;

namespace {

Entries entriesOf(KySettings& s) {
    Entries out;
    for (const KyString& key : s.allKeys()) out.insert(key, s.value(key));
    return out;
}

} // namespace

TEST(KySettingsFormat, ParsesSectionsKeysCommentsAndEscapes) {
    struct Row { const char* name; const char* text; Entries want; };
    const Row rows[] = {
        {"empty", "", {}}, {"root key", "a=1\n", {{"a", "1"}}},
        {"sections", "top=x\n[login]\nlastEmail=a@b\n[login/adv]\nn=3\n",
         {{"top", "x"}, {"login/lastEmail", "a@b"}, {"login/adv/n", "3"}}},
        {"comments and blanks", "; c\n# c\n\n   \n[g]\n  k = v  \n", {{"g/k", "v"}}},
        {"escaped blanks stay", "k=\\s v \\s\n", {{"k", "  v  "}}},
        {"newlines tabs backslash", "k=a\\nb\\tc\\\\d\\re\\0f\n", {{"k", std::string("a\nb\tc\\d\re\0f", 11)}}},
        {"equals in value", "k=a=b=c\n", {{"k", "a=b=c"}}}, {"escaped equals in key", "a\\=b=c\n", {{"a=b", "c"}}},
        {"hex bytes", "k=\\xff\\x41\\x0A\\x30\n", {{"k", "\xff" "A\n0"}}},
        {"escaped trailing blank", "k=a\\ \n", {{"k", "a "}}}, {"crlf lines", "[g]\r\nk=v\r\n", {{"g/k", "v"}}},
        {"last one wins", "k=1\nk=2\n", {{"k", "2"}}},
        {"slashes normalised", "[/a//b/]\nc=1\nd/e=2\n", {{"a/b/c", "1"}, {"a/b/d/e", "2"}}},
        {"empty section is the top", "[g]\nx=1\n[]\ny=2\n", {{"g/x", "1"}, {"y", "2"}}},
        {"unicode", "[grüße]\nnamé=日本語\n", {{"grüße/namé", "日本語"}}}, {"no final newline", "k=v", {{"k", "v"}}},
        {"empty value", "k=\n", {{"k", ""}}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        Entries got;
        KyString error;
        EXPECT_TRUE(KySettingsFormat::parse(r.text, got, &error)) << error;
        EXPECT_EQ(got, r.want);
    }
}

TEST(KySettingsFormat, RejectsCorruptTextNamingTheLine) {
    struct Row { const char* name; std::string text; const char* where; };
    const Row rows[] = {
        {"line without equals", "a=1\njust words\n", "line 2"}, {"unclosed section", "[login\nk=v\n", "line 1"},
        {"text after section", "[a] b\n", "line 1"}, {"empty key", "=v\n", "line 1"},
        {"dangling backslash", "k=v\\\n", "line 1"}, {"bad hex escape", "k=\\xZZ\n", "line 1"},
        {"NUL byte", std::string("a=1\nb=\0\n", 8), "line 2"}, {"invalid UTF-8", "k=\xc3\x28\n", "UTF-8"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        Entries got{{"stale", "x"}};
        KyString error;
        EXPECT_FALSE(KySettingsFormat::parse(r.text, got, &error));
        EXPECT_TRUE(got.isEmpty());
        EXPECT_TRUE(error.contains(r.where)) << error;
    }
}

TEST(KySettingsFormat, AnyKeysAndValuesSurviveSerializeAndParse) {
    const Entries entries{
        {"plain", "value"}, {" lead/trail ", " both ends "}, {"g/;semi", ";not a comment"}, {"g/#hash", "#also not"},
        {"g/[bracket]", "[not a section]"}, {"g/eq=key", "a=b"}, {"g/back\\slash", "C:\\path\\"},
        {"g/tab\tkey", "\tx\t"}, {"g/multi", "one\ntwo\r\nthree\n"}, {"g/nul", std::string("a\0b", 3)},
        {"g/binary", "\xff\xfe raw"}, {"g/k", "group value"}, {"g/k/z", "deeper"}, {"g/l", "after"},
        {"ünï/cödé", "☃ snow"}, {"g/empty", ""}, {"g/blank", " "},
    };
    const KyString text = KySettingsFormat::serialize(entries);
    Entries back;
    KyString error;
    ASSERT_TRUE(KySettingsFormat::parse(text, back, &error)) << error << "\n" << text;
    EXPECT_EQ(back, entries) << text;
    EXPECT_TRUE(text.isValidUtf8());
}

TEST(KySettingsFormat, StringListsKeepCommasBackslashesAndEmptyItems) {
    struct Row { const char* name; KyList<KyString> items; };
    const Row rows[] = {
        {"empty list", {}}, {"one empty item", {""}}, {"plain", {"a", "b", "c"}}, {"commas", {"a,b", ",", "c,"}},
        {"backslashes", {"\\", "a\\,b", "\\\\"}}, {"newlines and unicode", {"line\nbreak", "ß€😀", " spaced "}},
        {"empty inside", {"a", "", "b", ""}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(KySettingsFormat::decodeStringList(KySettingsFormat::encodeStringList(r.items)), r.items);
    }
    EXPECT_EQ(KySettingsFormat::decodeStringList("a,b"), (KyList<KyString>{"a", "b"})) << "hand-written lists";
    EXPECT_EQ(KySettingsFormat::decodeStringList("a,\\,"), (KyList<KyString>{"a", ","})) << "an escape ends an item";
}

TEST(KySettings, GroupsNestAndListTheirKeysAndChildren) {
    TempDir dir;
    KySettings s(dir.file("app.conf"));
    s.setValue("top", "t");
    s.beginGroup("login");
    EXPECT_EQ(s.group(), "login");
    s.setValue("baseUrl", "https://vpn.example.org");
    s.setValue("lastEmail", "ann@example.org");
    s.beginGroup("advanced");
    EXPECT_EQ(s.group(), "login/advanced");
    s.setValue("retries", 3);
    s.endGroup();
    s.setValue("window/width", 640);
    EXPECT_EQ(s.childKeys(), (KyList<KyString>{"baseUrl", "lastEmail"}));
    EXPECT_EQ(s.childGroups(), (KyList<KyString>{"advanced", "window"}));
    EXPECT_EQ(s.allKeys(), (KyList<KyString>{"advanced/retries", "baseUrl", "lastEmail", "window/width"}));
    s.endGroup();
    s.endGroup(); // one too many is harmless
    EXPECT_EQ(s.group(), "");
    EXPECT_EQ(s.value("login/advanced/retries"), "3");
    EXPECT_EQ(s.childKeys(), (KyList<KyString>{"top"}));
    EXPECT_EQ(s.childGroups(), (KyList<KyString>{"login"}));

    s.beginGroup("login");
    s.remove("advanced");
    EXPECT_FALSE(s.contains("advanced/retries"));
    EXPECT_TRUE(s.contains("baseUrl"));
    s.remove("");
    s.endGroup();
    EXPECT_EQ(s.allKeys(), (KyList<KyString>{"top"})) << "an empty key removes the current group's contents";
}

TEST(KySettings, TypedValuesReadBackOrFallBackToDefaults) {
    TempDir dir;
    KySettings s(dir.file("typed.conf"));
    s.setValue("int", -42);
    s.setValue("big", 1LL << 40);
    s.setValue("size", std::size_t{7});
    s.setValue("double", 0.1);
    s.setValue("no", false);
    s.setValue("text", "not a number");
    s.setValue("word", "On");
    bool ok = false;
    EXPECT_EQ(s.valueInt("int", 7, &ok), -42);
    EXPECT_TRUE(ok);
    EXPECT_EQ(s.valueLongLong("big"), 1LL << 40);
    EXPECT_EQ(s.valueInt("big", -1), -1) << "out of range for int";
    EXPECT_EQ(s.valueInt("size"), 7);
    EXPECT_EQ(s.valueDouble("double"), 0.1) << "doubles round-trip exactly";
    EXPECT_FALSE(s.valueBool("no", true));
    EXPECT_TRUE(s.valueBool("word"));
    EXPECT_EQ(s.valueInt("text", 7, &ok), 7);
    EXPECT_FALSE(ok);
    EXPECT_EQ(s.valueDouble("text", 2.5), 2.5);
    EXPECT_TRUE(s.valueBool("text", true));
    EXPECT_FALSE(s.valueBool("missing"));
    EXPECT_EQ(s.value("missing", "fallback"), "fallback");
    EXPECT_EQ(s.valueStringList("missing", {"x"}), (KyList<KyString>{"x"}));
    ok = true;
    EXPECT_TRUE(s.valueBool("missing", true, &ok));
    EXPECT_FALSE(ok) << "a missing key is no answer";
    const std::pair<const char*, bool> words[] = {{"true", true},  {"1", true},  {"yes", true}, {" On ", true},
                                                  {"false", false}, {"0", false}, {"no", false}, {"OFF", false}};
    for (const auto& [word, value] : words) {
        s.setValue("word", word);
        EXPECT_EQ(s.valueBool("word", !value, &ok), value) << word;
        EXPECT_TRUE(ok) << word;
    }
}

TEST(KySettings, EverythingRoundTripsThroughSaveOrDestructionAndNothingIsWrittenUnasked) {
    TempDir dir;
    const KyString path = dir.file("sub/dir/round.conf");
    const KyList<KyString> history{"ann@example.org", "bob, jr@example.org", "line\nbreak", "ünïcödé@例え.jp", ""};
    {
        KySettings reader(path);
        EXPECT_EQ(reader.value("k", "none"), "none");
    }
    EXPECT_FALSE(KyFile::exists(path)) << "reading alone creates no file";
    {
        KySettings s(path);
        s.beginGroup("login");
        s.setValue("emailHistory", history);
        s.setValue("lastEmail", "  padded  ");
        s.setValue("odd = key [x] ;#", "value=with;all#the[chars]\\");
        s.setValue("multi", "first\nsecond\n");
        s.endGroup();
        s.setValue("ratio", 3.25);
        EXPECT_TRUE(s.hasUnsavedChanges());
        ASSERT_TRUE(s.save()) << s.errorString();
        EXPECT_FALSE(s.hasUnsavedChanges());
        EXPECT_EQ(s.status(), KySettings::NoError);
        s.setValue("flag", true); // unsaved: written when the object goes
    }
    KySettings again(path);
    EXPECT_EQ(again.status(), KySettings::NoError);
    again.beginGroup("login");
    EXPECT_EQ(again.valueStringList("emailHistory"), history);
    EXPECT_EQ(again.value("lastEmail"), "  padded  ");
    EXPECT_EQ(again.value("odd = key [x] ;#"), "value=with;all#the[chars]\\");
    EXPECT_EQ(again.value("multi"), "first\nsecond\n");
    again.endGroup();
    EXPECT_EQ(again.valueDouble("ratio"), 3.25);
    EXPECT_TRUE(again.valueBool("flag"));
    EXPECT_EQ(KyFileInfo(path).permissions(), 0600u) << "a new settings file is private to the user";
}

TEST(KySettings, SyncKeepsWhatAnotherWriterSavedMeanwhile) {
    TempDir dir;
    const KyString path = dir.file("shared.conf");
    KySettings a(path);
    KySettings b(path);
    a.setValue("fromA", "1");
    ASSERT_TRUE(a.sync());
    b.setValue("fromB", "2");
    ASSERT_TRUE(b.sync());
    EXPECT_EQ(b.value("fromA"), "1") << "sync shows the other writer's keys";
    a.remove("fromA");
    ASSERT_TRUE(a.sync());
    KySettings c(path);
    EXPECT_EQ(entriesOf(c), (Entries{{"fromB", "2"}}));

    // save(), by contrast, writes exactly what the object holds.
    a.setValue("only", "a");
    ASSERT_TRUE(a.save());
    KySettings d(path);
    EXPECT_EQ(entriesOf(d), (Entries{{"fromB", "2"}, {"only", "a"}}));
    // A file that went bad in between is kept aside, and this object's copy is written back.
    ASSERT_TRUE(KyFile::writeAll(path, "not settings\n"));
    a.setValue("later", "x");
    ASSERT_TRUE(a.sync());
    EXPECT_FALSE(a.keptAsideFileName().isEmpty());
    KySettings afterBad(path);
    EXPECT_EQ(entriesOf(afterBad), (Entries{{"fromB", "2"}, {"later", "x"}, {"only", "a"}}));

    a.clear();
    ASSERT_TRUE(a.sync());
    KySettings e(path);
    EXPECT_TRUE(e.allKeys().isEmpty());
}

TEST(KySettings, ACorruptFileReadsEmptyIsKeptAsideIntactAndReplacedOnSave) {
    TempDir dir;
    const KyString path = dir.file("broken.conf");
    const std::string bytes = std::string("[login]\nlastEmail=ann@example.org\ngarbage line\n") + '\0' + "\xff";
    ASSERT_TRUE(KyFile::writeAll(path, bytes));
    const KyString log = dir.file("log.txt");
    KyDebug::setLogFile(log, "KySettingsTest");
    KyDebug::setFileLoggingEnabled(true);

    KySettings s(path);
    KyDebug::setFileLoggingEnabled(false);
    EXPECT_EQ(s.status(), KySettings::FormatError);
    EXPECT_TRUE(s.errorString().contains("line 3") || s.errorString().contains("NUL")) << s.errorString();
    EXPECT_TRUE(s.allKeys().isEmpty());
    EXPECT_FALSE(KyFile::exists(path));
    const KyString aside = s.keptAsideFileName();
    ASSERT_FALSE(aside.isEmpty());
    EXPECT_TRUE(aside.startsWith((path + ".corrupt-").view())) << aside;
    KyString kept;
    ASSERT_TRUE(KyFile::readAll(aside, kept));
    EXPECT_EQ(kept.str(), bytes) << "the bad file's bytes are kept as they were";

    KyString logText;
    ASSERT_TRUE(KyFile::readAll(log, logText));
    EXPECT_TRUE(logText.contains("WARNING [ky.core.io.kysettings]")) << logText;
    EXPECT_TRUE(logText.contains(aside.view())) << logText;

    s.setValue("login/lastEmail", "fresh@example.org");
    ASSERT_TRUE(s.save()) << s.errorString();
    EXPECT_EQ(s.status(), KySettings::NoError);
    KySettings again(path);
    EXPECT_EQ(again.status(), KySettings::NoError);
    EXPECT_EQ(entriesOf(again), (Entries{{"login/lastEmail", "fresh@example.org"}}));
    ASSERT_TRUE(KyFile::readAll(aside, kept));
    EXPECT_EQ(kept.str(), bytes);

    // A second bad file in the same second gets its own name.
    ASSERT_TRUE(KyFile::writeAll(path, "also bad\n"));
    KySettings second(path);
    EXPECT_EQ(second.status(), KySettings::FormatError);
    EXPECT_NE(second.keptAsideFileName(), aside);
    EXPECT_TRUE(KyFile::exists(aside));
    EXPECT_TRUE(KyFile::exists(second.keptAsideFileName()));
}

TEST(KySettings, AFileThatCannotBeReadIsNeverOverwritten) {
    TempDir dir;
    // A directory where the file should be is not ours to replace; below a regular file nothing can be saved.
    ASSERT_TRUE(KyDir::createPathTree(dir.file("taken.conf")));
    ASSERT_TRUE(KyFile::writeAll(dir.file("taken.conf/inside"), "x"));
    ASSERT_TRUE(KyFile::writeAll(dir.file("plain"), "x"));
    for (const auto& [path, why] : {std::pair{dir.file("taken.conf"), "not overwriting it"},
                                    std::pair{dir.file("plain/app.conf"), "Not a directory"}}) {
        SCOPED_TRACE(why);
        KySettings s(path);
        EXPECT_EQ(s.status(), KySettings::AccessError);
        s.setValue("k", "v");
        EXPECT_FALSE(s.save());
        EXPECT_EQ(s.status(), KySettings::AccessError);
        EXPECT_TRUE(s.errorString().contains(why)) << s.errorString();
    }
    EXPECT_TRUE(KyFileInfo(dir.file("taken.conf/inside")).isFile());
}

TEST(KySettings, DefaultLocationFollowsTheConfigDirectoryOrganisationAndApplication) {
    TempDir dir;
    const kytest::ScopedEnv env{{"XDG_CONFIG_HOME", dir.path().c_str()}};
    EXPECT_EQ(KySettings::defaultFileName("velmo", "VelmoVpnConsole"), dir.path() + "/velmo/VelmoVpnConsole.conf");
    EXPECT_EQ(KySettings::defaultFileName("", "Tool"), dir.path() + "/Tool/Tool.conf");
    EXPECT_EQ(KySettings::defaultFileName("a/b", "c/d"), dir.path() + "/a_b/c_d.conf");
    EXPECT_EQ(KySettings::defaultFileName("velmo.net", ".."), dir.path() + "/velmo.net/__.conf");
    // The console's login memory tests write and read that file for real.
    EXPECT_EQ(KySettings("velmo", "VelmoVpnConsole").fileName(), dir.path() + "/velmo/VelmoVpnConsole.conf");
}

TEST(KySettings, ManyThreadsWritingFullKeysLoseNothing) {
    TempDir dir;
    const KyString path = dir.file("threads.conf");
    {
        KySettings s(path);
        std::vector<std::thread> threads;
        for (int t = 0; t < 6; ++t) {
            threads.emplace_back([&s, t] {
                for (int i = 0; i < 200; ++i) {
                    s.setValue("t" + KyString::number(t) + "/k" + KyString::number(i), i);
                    if (i % 50 == 0) s.sync();
                    (void)s.value("t0/k0");
                }
            });
        }
        for (std::thread& th : threads) th.join();
        ASSERT_TRUE(s.save());
    }
    KySettings back(path);
    EXPECT_EQ(back.allKeys().size(), 6u * 200u);
    EXPECT_EQ(back.valueInt("t5/k199"), 199);
}

TEST(KySettings, AKillDuringSaveLeavesOneCompleteContentAndNoPileOfTemporaries) {
    TempDir dir;
    const KyString path = dir.file("killed.conf");
    const Entries contents[2] = {kytest::alternatingContent(0), kytest::alternatingContent(1)};
    std::mt19937 random(12345);
    int seen[2] = {0, 0};
    int midSave = 0; // kills that found a temporary being filled: the case that matters
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    int rounds = 0;
    for (; rounds < 50 && std::chrono::steady_clock::now() < deadline; ++rounds) {
        kytest::Child writer;
        ASSERT_TRUE(writer.start(kytest::helperPath("settings_writer"), {path.toStdString()}));
        // Let it finish a random number of saves, then strike at whatever it is doing.
        const std::size_t saves = 1 + random() % 4;
        ASSERT_TRUE(writer.waitForOutput(saves, std::chrono::seconds(30))) << "writer made no progress: " << writer.err();
        for (unsigned spin = random() % 20000; spin > 0; --spin) std::this_thread::yield();
        writer.kill();

        KySettings check(path);
        ASSERT_EQ(check.status(), KySettings::NoError) << "round " << rounds << ": " << check.errorString();
        const Entries got = entriesOf(check);
        const bool isA = got == contents[0];
        const bool isB = got == contents[1];
        ASSERT_TRUE(isA || isB) << "round " << rounds << ": a mix of " << got.size() << " keys";
        ++seen[isA ? 0 : 1];

        int temporaries = 0;
        for (const KyString& entry : KyDir::entries(dir.path()))
            if (KySaveFile::isTemporaryOf(entry, "killed.conf")) ++temporaries;
        // At most the one the killed writer was filling; earlier ones were cleared by its saves.
        ASSERT_LE(temporaries, 1) << "round " << rounds;
        midSave += temporaries;
    }
    EXPECT_GE(rounds, 10) << "too few rounds before the deadline to mean anything";
    EXPECT_GT(seen[0] + seen[1], 0);
    RecordProperty("KillsDuringASave", midSave);
    RecordProperty("Rounds", rounds);
    // Whatever the last kill left is cleared by the next save.
    ASSERT_TRUE(KySaveFile::writeAtomically(path, "k=v\n"));
    for (const KyString& entry : KyDir::entries(dir.path()))
        EXPECT_FALSE(KySaveFile::isTemporaryOf(entry, "killed.conf")) << entry;
}

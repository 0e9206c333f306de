// The remembered login on disk: every test gets its own HOME and
// XDG_CONFIG_HOME, so the settings file it reads and writes is real and is
// nobody else's.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../support/KyTestEnv.h"
#include "../support/KyTestProcess.h"
#include "console/VelmoVpnConsoleLoginMemory.h"
#include "console/VelmoVpnConsoleSession.h"
#include "core/io/KyDir.h"
#include "core/io/KyFile.h"
#include "core/io/KySettings.h"

namespace {

class VelmoVpnConsoleLoginMemoryFile : public ::testing::Test {
protected:
    KyString settingsPath() const { return config_.path() + "/velmo/VelmoVpnConsole.conf"; }
    KyString fileText() const {
        KyString text;
        EXPECT_TRUE(KyFile::readAll(settingsPath(), text));
        return text;
    }
    void writeFile(const std::string& text) const {
        ASSERT_TRUE(KyDir::createPathTree(config_.path() + "/velmo"));
        ASSERT_TRUE(KyFile::writeAll(settingsPath(), text));
    }
    static KyList<KyString> list(std::initializer_list<const char*> items) {
        KyList<KyString> out;
        for (const char* item : items) out.append(item);
        return out;
    }

    kytest::TempDir home_;
    kytest::TempDir config_;
    const kytest::ScopedEnv env_{{"HOME", home_.path().c_str()}, {"XDG_CONFIG_HOME", config_.path().c_str()}};
};

TEST_F(VelmoVpnConsoleLoginMemoryFile, DefaultsApplyUntilALoginIsStoredTrimmedAndBlanksStoreNothingOrTheDefault) {
    VelmoVpnConsoleSession s = velmoVpnConsoleSessionAtStart();
    EXPECT_EQ(velmoVpnConsoleRememberedBaseUrl(), "https://workspace.velmo.net");
    EXPECT_EQ(s.baseUrl, "https://workspace.velmo.net");
    EXPECT_EQ(velmoVpnConsoleRememberedEmail() + s.rememberedEmail, "");
    EXPECT_TRUE(velmoVpnConsoleRememberedEmailHistory().isEmpty() && s.emailHistory.isEmpty());
    EXPECT_EQ(s.authStatus, "logged_out");
    velmoVpnConsoleRememberLoginIdentity("https://vpn.example.org", " \t\r\n");
    EXPECT_FALSE(KyFile::exists(settingsPath())) << "a blank e-mail stores nothing";

    velmoVpnConsoleRememberLoginIdentity("  https://vpn.example.org \n", " ann@example.org\t");
    const KyString text = fileText();
    for (const char* line : {"[login]", "baseUrl=https://vpn.example.org\n", "lastEmail=ann@example.org\n",
                             "emailHistory=ann@example.org\n"})
        EXPECT_NE(text.indexOf(line), KyString::npos) << line << text;
    EXPECT_EQ(velmoVpnConsoleRememberedEmailHistory(), list({"ann@example.org"}));
    s = velmoVpnConsoleSessionAtStart();
    EXPECT_EQ(s.baseUrl, "https://vpn.example.org");
    EXPECT_EQ(s.rememberedEmail, "ann@example.org");

    velmoVpnConsoleRememberLoginIdentity("https://second.example.org", "");
    EXPECT_EQ(velmoVpnConsoleRememberedBaseUrl(), "https://vpn.example.org");
    EXPECT_EQ(velmoVpnConsoleRememberedEmail(), "ann@example.org");
    velmoVpnConsoleRememberLoginIdentity("   ", "ann@example.org");
    EXPECT_NE(fileText().indexOf("baseUrl=https://workspace.velmo.net\n"), KyString::npos) << "a blank URL stores the default";
}

TEST_F(VelmoVpnConsoleLoginMemoryFile, HistoryIsNewestFirstOneEntryPerAddressAndAtMostSeven) {
    velmoVpnConsoleRememberLoginIdentity("", "Ann@Example.org");
    velmoVpnConsoleRememberLoginIdentity("", "bob@example.org");
    velmoVpnConsoleRememberLoginIdentity("", "ann@example.org");
    // The newer spelling comes first in the walk, so it is the one kept.
    EXPECT_EQ(velmoVpnConsoleRememberedEmailHistory(), list({"ann@example.org", "bob@example.org"}));
    EXPECT_EQ(velmoVpnConsoleRememberedEmail(), "ann@example.org");

    for (int i = 1; i <= 6; ++i) velmoVpnConsoleRememberLoginIdentity("", "user" + std::to_string(i) + "@example.org");
    // Eight addresses: the oldest, bob, is pushed out.
    EXPECT_EQ(velmoVpnConsoleRememberedEmailHistory(),
              list({"user6@example.org", "user5@example.org", "user4@example.org", "user3@example.org",
                    "user2@example.org", "user1@example.org", "ann@example.org"}));

    // On disk the entries are one text joined by line feeds.
    KySettings raw(settingsPath());
    EXPECT_EQ(raw.value("login/emailHistory"),
              "user6@example.org\nuser5@example.org\nuser4@example.org\nuser3@example.org\nuser2@example.org\n"
              "user1@example.org\nann@example.org");
}

TEST_F(VelmoVpnConsoleLoginMemoryFile, AHandEditedFileIsReadSanitisedAndItsOtherKeysSurviveAStore) {
    writeFile("[filter]\nenabled=true\n"
              "[login]\n"
              "baseUrl =   https://hand.example.org   \n"
              "lastEmail=\\s\\scy@example.org\\t\n"
              "emailHistory=\\s cy@example.org\\n\\nCY@example.org\\n\\tdee@example.org\\r\\nextra\n");
    EXPECT_EQ(velmoVpnConsoleRememberedBaseUrl(), "https://hand.example.org");
    EXPECT_EQ(velmoVpnConsoleRememberedEmail(), "cy@example.org");
    EXPECT_EQ(velmoVpnConsoleRememberedEmailHistory(), list({"cy@example.org", "dee@example.org", "extra"}));

    velmoVpnConsoleRememberLoginIdentity("https://hand.example.org", "eve@example.org");
    KySettings raw(settingsPath());
    EXPECT_EQ(raw.value("filter/enabled"), "true");
    EXPECT_EQ(raw.value("login/emailHistory"), "eve@example.org\ncy@example.org\ndee@example.org\nextra");
}

TEST_F(VelmoVpnConsoleLoginMemoryFile, ACorruptFileReadsAsEmptyAndIsReplacedByTheNextStore) {
    writeFile("this line is neither a section nor a key\n");
    EXPECT_EQ(velmoVpnConsoleRememberedBaseUrl(), "https://workspace.velmo.net");
    EXPECT_TRUE(velmoVpnConsoleRememberedEmailHistory().isEmpty());

    velmoVpnConsoleRememberLoginIdentity("", "ann@example.org");
    EXPECT_EQ(velmoVpnConsoleRememberedEmail(), "ann@example.org");
    bool keptAside = false;
    for (const KyString& name : KyDir::entries(config_.path() + "/velmo"))
        if (name.indexOf(".corrupt-") != KyString::npos) keptAside = true;
    EXPECT_TRUE(keptAside) << "the unreadable file is kept for inspection";
}

TEST(VelmoVpnConsoleLoginMemory, SanitisingTrimsDropsBlanksAndCaseTwinsAndStopsAtSeven) {
    struct Row { const char* name; std::vector<const char*> in; std::vector<const char*> out; };
    const Row rows[] = {
        {"empty", {}, {}},
        {"trims blanks, tabs, CR and LF", {" a@x \t", "\r\nb@x\n"}, {"a@x", "b@x"}},
        {"inner blanks stay", {"a b@x"}, {"a b@x"}},
        {"a form feed is not a blank", {"\fa@x"}, {"\fa@x"}},
        {"empty and blank entries go", {"", "  ", "\t\r\n", "a@x"}, {"a@x"}},
        {"first spelling stays", {"Ann@X.org", "ann@x.org", "ANN@X.ORG"}, {"Ann@X.org"}},
        {"twins after trimming", {"ann@x", " ANN@x "}, {"ann@x"}},
        {"seven at most", {"1", "2", "3", "4", "5", "6", "7", "8", "9"}, {"1", "2", "3", "4", "5", "6", "7"}},
        {"dropped entries do not count", {"1", "1", "", "2", "3", "4", "5", "6", "7", "8"},
         {"1", "2", "3", "4", "5", "6", "7"}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        KyList<KyString> in, out;
        for (const char* s : r.in) in.append(s);
        for (const char* s : r.out) out.append(s);
        EXPECT_EQ(VelmoVpnConsoleLoginMemory::sanitizedHistory_(in), out);
    }
}

} // namespace

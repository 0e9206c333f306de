// Atomic replacement: a reader sees the old or the new file, never a mix, and
// a failed or abandoned save leaves the old file and no temporary behind.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "IoTestSupport.h"
#include "core/io/KyDir.h"
#include "core/io/KyFile.h"
#include "core/io/KyFileInfo.h"
#include "core/io/KySaveFile.h"

using kytest::TempDir;

namespace {

int temporariesOf(const TempDir& dir, const KyString& name) {
    int n = 0;
    for (const KyString& entry : KyDir::entries(dir.path()))
        if (KySaveFile::isTemporaryOf(entry, name)) ++n;
    return n;
}

} // namespace

TEST(KySaveFile, CommitReplacesTheTargetAndLeavesNoTemporary) {
    TempDir dir;
    const KyString target = dir.file("config.json");
    ASSERT_TRUE(KyFile::writeAll(target, "old"));

    KySaveFile save(target);
    ASSERT_TRUE(save.open()) << save.errorString();
    EXPECT_EQ(KyDir::parentPath(save.temporaryName()), dir.path()) << "the temporary lives beside the target";
    EXPECT_TRUE(save.write("new "));
    EXPECT_TRUE(save.write("content"));
    KyString during;
    ASSERT_TRUE(KyFile::readAll(target, during));
    EXPECT_EQ(during, "old") << "nothing reaches the target before commit";
    ASSERT_TRUE(save.commit()) << save.errorString();

    KyString after;
    ASSERT_TRUE(KyFile::readAll(target, after));
    EXPECT_EQ(after, "new content");
    EXPECT_EQ(temporariesOf(dir, "config.json"), 0);
}

TEST(KySaveFile, CancelAndDestructionKeepTheOldFile) {
    TempDir dir;
    const KyString target = dir.file("keep.conf");
    ASSERT_TRUE(KyFile::writeAll(target, "original"));
    {
        KySaveFile abandoned(target);
        ASSERT_TRUE(abandoned.open());
        ASSERT_TRUE(abandoned.write("half"));
    }
    KySaveFile cancelled(target);
    ASSERT_TRUE(cancelled.open());
    ASSERT_TRUE(cancelled.write("half"));
    cancelled.cancel();
    EXPECT_FALSE(cancelled.commit());

    KyString content;
    ASSERT_TRUE(KyFile::readAll(target, content));
    EXPECT_EQ(content, "original");
    EXPECT_EQ(KyDir::entries(dir.path()), (KyList<KyString>{"keep.conf"}));
}

TEST(KySaveFile, FailuresAreReportedAndTouchNothing) {
    TempDir dir;
    KyString error;
    EXPECT_FALSE(KySaveFile::writeAtomically(dir.file("no/such/dir/f"), "x", &error));
    EXPECT_TRUE(error.contains(dir.file("no/such/dir/f").view())) << error;

    ASSERT_TRUE(KyFile::writeAll(dir.file("plain"), "x"));
    EXPECT_FALSE(KySaveFile::writeAtomically(dir.file("plain/f"), "x", &error));
    EXPECT_TRUE(error.contains("Not a directory")) << error;

    ASSERT_TRUE(KyDir::createPathTree(dir.file("adir")));
    ASSERT_TRUE(KyFile::writeAll(dir.file("adir/inner"), "kept"));
    EXPECT_FALSE(KySaveFile::writeAtomically(dir.file("adir"), "x", &error)) << "a directory is never replaced";
    EXPECT_TRUE(KyFileInfo(dir.file("adir/inner")).isFile());
    EXPECT_EQ(KyDir::entries(dir.path()), (KyList<KyString>{"adir", "plain"}));
}

TEST(KySaveFile, PermissionsOfTheReplacedFileAreKept) {
    TempDir dir;
    // 0664: the umask must not narrow a replaced file.
    for (const mode_t mode : {0600, 0664}) {
        const KyString path = dir.file("file-" + KyString::number(static_cast<int>(mode)));
        ASSERT_TRUE(KyFile::writeAll(path, "a"));
        ASSERT_EQ(::chmod(path.c_str(), mode), 0);
        ASSERT_TRUE(KySaveFile::writeAtomically(path, "b"));
        EXPECT_EQ(KyFileInfo(path).permissions(), static_cast<unsigned>(mode)) << std::oct << mode;
    }

    const mode_t old = ::umask(022);
    ASSERT_TRUE(KySaveFile::writeAtomically(dir.file("fresh"), "c", nullptr, 0640));
    ::umask(old);
    EXPECT_EQ(KyFileInfo(dir.file("fresh")).permissions(), 0640u);
}

TEST(KySaveFile, ASymbolicLinkKeepsPointingAtTheReplacedFile) {
    TempDir dir;
    ASSERT_TRUE(KyDir::createPathTree(dir.file("real")));
    ASSERT_TRUE(KyFile::writeAll(dir.file("real/app.conf"), "old"));
    ASSERT_EQ(::symlink(dir.file("real/app.conf").c_str(), dir.file("app.conf").c_str()), 0);
    ASSERT_TRUE(KySaveFile::writeAtomically(dir.file("app.conf"), "new"));
    EXPECT_TRUE(KyFileInfo(dir.file("app.conf")).isSymLink());
    KyString content;
    ASSERT_TRUE(KyFile::readAll(dir.file("real/app.conf"), content));
    EXPECT_EQ(content, "new");
}

TEST(KySaveFile, StaleTemporariesOfDeadWritersAreClearedByTheNextSave) {
    TempDir dir;
    const KyString target = dir.file("state.conf");

    // A writer that is gone: a child that exits at once leaves its pid unused.
    kytest::Child child;
    ASSERT_TRUE(child.start("/bin/true", {}));
    const pid_t dead = child.pid();
    ASSERT_EQ(child.finish(), 0);
    const KyString stale = dir.file(".state.conf.tmp-" + KyString::number(static_cast<long>(dead)) + "-0abc");
    ASSERT_TRUE(KyFile::writeAll(stale, "half"));
    // A writer that is alive (init) must keep its temporary.
    const KyString live = dir.file(".state.conf.tmp-1-0abc");
    ASSERT_TRUE(KyFile::writeAll(live, "in progress"));
    // Temporaries of other files are not ours to judge.
    const KyString other = dir.file(".other.conf.tmp-" + KyString::number(static_cast<long>(dead)) + "-0abc");
    ASSERT_TRUE(KyFile::writeAll(other, "x"));

    ASSERT_TRUE(KySaveFile::writeAtomically(target, "done"));
    EXPECT_FALSE(KyFile::exists(stale));
    EXPECT_TRUE(KyFile::exists(live));
    EXPECT_TRUE(KyFile::exists(other));
}

TEST(KySaveFile, ConcurrentReadersSeeOnlyWholeContents) {
    TempDir dir;
    const KyString target = dir.file("swap");
    const std::string a(100000, 'a');
    const std::string b(70000, 'b');
    ASSERT_TRUE(KyFile::writeAll(target, a));
    std::atomic<bool> stop{false};
    std::atomic<int> torn{0};
    std::atomic<int> reads{0};
    std::thread reader([&] {
        while (!stop.load()) {
            KyString seen;
            if (!KyFile::readAll(target, seen)) {
                ++torn; // the name must always resolve to a file
                continue;
            }
            if (seen.str() != a && seen.str() != b) ++torn;
            ++reads;
        }
    });
    for (int i = 0; i < 200; ++i) ASSERT_TRUE(KySaveFile::writeAtomically(target, i % 2 ? a : b));
    // The reader must have looked at least once before we judge it.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (reads.load() == 0 && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    stop = true;
    reader.join();
    EXPECT_GT(reads.load(), 0);
    EXPECT_EQ(torn.load(), 0);
    EXPECT_EQ(temporariesOf(dir, "swap"), 0);
}

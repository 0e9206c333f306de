// File layer: KyFile, KyDir and KyFileInfo against a real temporary directory.
// Failures must come back as values whose text names the path and the reason.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "IoTestSupport.h"
#include "core/io/KyDir.h"
#include "core/io/KyFile.h"
#include "core/io/KyFileInfo.h"

using kytest::TempDir;

TEST(KyFile, OpenModesWriteAppendTruncateAndReadBinaryBytes) {
    TempDir dir;
    const KyString path = dir.file("data.txt");
    KyFile file(path);
    ASSERT_TRUE(file.open(KyFile::WriteOnly)) << file.errorString();
    EXPECT_TRUE(file.write("hello ") && file.write("world") && file.flush());
    EXPECT_EQ(file.size(), 11);
    EXPECT_TRUE(file.close());
    ASSERT_TRUE(file.open(KyFile::Append));
    EXPECT_TRUE(file.write("!\n"));
    file.close();
    ASSERT_TRUE(file.open(KyFile::ReadOnly));
    KyString piece, rest, atEnd;
    EXPECT_TRUE(file.read(piece, 5));
    EXPECT_EQ(piece, "hello");
    EXPECT_EQ(file.pos(), 5);
    EXPECT_TRUE(file.readAll(rest));
    EXPECT_EQ(rest, " world!\n");
    EXPECT_TRUE(file.read(atEnd, 10));
    EXPECT_TRUE(atEnd.isEmpty());
    EXPECT_FALSE(file.write("x")) << "a read-only file must refuse writes";
    file.close();
    ASSERT_TRUE(file.open(KyFile::WriteOnly | KyFile::Truncate));
    file.close();
    EXPECT_EQ(KyFileInfo(path).size(), 0);

    std::string bytes;
    for (int i = 0; i < 300000; ++i) bytes += static_cast<char>(i * 7 % 256);
    KyString error, back;
    ASSERT_TRUE(KyFile::writeAll(dir.file("blob"), bytes, &error)) << error;
    ASSERT_TRUE(KyFile::readAll(dir.file("blob"), back, &error)) << error;
    EXPECT_EQ(back.str(), bytes);
}

TEST(KyFile, FailuresAreValuesNamingPathAndReasonAndRemoveTakesFilesOnly) {
    TempDir dir;
    const KyString missing = dir.file("missing.txt");
    KyFile file(missing);
    EXPECT_FALSE(file.open(KyFile::ReadOnly));
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(file.error(), ENOENT);
    EXPECT_TRUE(file.errorString().contains(missing.view())) << file.errorString();
    EXPECT_TRUE(file.errorString().contains("No such file or directory")) << file.errorString();

    KyString error;
    KyString out;
    EXPECT_FALSE(KyFile::readAll(missing, out, &error));
    EXPECT_TRUE(error.contains(missing.view()));

    // A path below a regular file fails with ENOTDIR, even for root.
    ASSERT_TRUE(KyFile::writeAll(dir.file("plain"), "x"));
    const KyString below = dir.file("plain/inside.txt");
    EXPECT_FALSE(KyFile::writeAll(below, "data", &error));
    EXPECT_TRUE(error.contains("Not a directory")) << error;
    EXPECT_TRUE(error.contains(below.view())) << error;

    KyFile onDir(dir.path());
    EXPECT_FALSE(onDir.open(KyFile::ReadOnly)) << "a directory is not a file";
    EXPECT_EQ(onDir.error(), EISDIR);

    EXPECT_FALSE(KyFile::remove(missing, &error));
    EXPECT_TRUE(error.contains(missing.view()));
    EXPECT_FALSE(KyFile::rename(missing, dir.file("other"), &error));
    EXPECT_FALSE(KyFile(KyString()).open(KyFile::ReadOnly));

    KyFile closed(dir.file("plain"));
    KyString none;
    EXPECT_FALSE(closed.read(none, 1));
    EXPECT_FALSE(closed.write("x"));
    EXPECT_FALSE(closed.sync());
    // Remove takes files only; a rename over a file is what every save's commit does.
    EXPECT_FALSE(KyFile::remove(dir.path())) << "remove() must not take directories";
    EXPECT_TRUE(KyFile::remove(dir.file("plain")));
    EXPECT_FALSE(KyFile::exists(dir.file("plain")));
}

TEST(KyFile, DescriptorIsCloseOnExecAndOwnedByOneObject) {
    TempDir dir;
    KyFile a(dir.file("f"));
    ASSERT_TRUE(a.open(KyFile::ReadWrite));
    const int fd = a.handle();
    EXPECT_TRUE(::fcntl(fd, F_GETFD) & FD_CLOEXEC);

    KyFile b(std::move(a));
    EXPECT_FALSE(a.isOpen());
    EXPECT_EQ(b.handle(), fd);
    EXPECT_TRUE(b.write("moved"));

    KyFile c;
    c = std::move(b);
    EXPECT_EQ(c.handle(), fd);
    {
        KyFile scoped = std::move(c);
    }
    // The last owner closed it on destruction.
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
    KyString back;
    ASSERT_TRUE(KyFile::readAll(dir.file("f"), back));
    EXPECT_EQ(back, "moved");
}

TEST(KyDir, CreatePathTreeMakesEveryLevelAndRefusesAFileInTheWay) {
    TempDir dir;
    const KyString deep = dir.file("one/two//three/");
    KyString error;
    ASSERT_TRUE(KyDir::createPathTree(deep, &error)) << error;
    EXPECT_TRUE(KyDir::exists(dir.file("one/two/three")));
    EXPECT_TRUE(KyDir::createPathTree(deep)) << "an existing directory is success";

    ASSERT_TRUE(KyFile::writeAll(dir.file("one/blocker"), "x"));
    EXPECT_FALSE(KyDir::createPathTree(dir.file("one/blocker/sub"), &error));
    EXPECT_TRUE(error.contains(dir.file("one/blocker").view())) << error;
    EXPECT_TRUE(error.contains("Not a directory")) << error;
    EXPECT_FALSE(KyDir::createPathTree(dir.file("one/blocker"), &error)) << "the file itself is in the way";
    EXPECT_TRUE(KyFileInfo(dir.file("one/blocker")).isFile()) << "the file in the way is left alone";
    EXPECT_FALSE(KyDir::createPathTree(""));

    // Relative paths work from the current directory.
    const KyString cwd = KyDir::currentPath();
    ASSERT_EQ(::chdir(dir.path().c_str()), 0);
    EXPECT_TRUE(KyDir::createPathTree("rel/a/b"));
    ASSERT_EQ(::chdir(cwd.c_str()), 0);
    EXPECT_TRUE(KyDir::exists(dir.file("rel/a/b")));
}

TEST(KyDir, EntriesAreSortedAndRemovalIsEmptyOnlyOrRecursive) {
    TempDir dir;
    for (const char* name : {"b", "a", "C", ".hidden"}) ASSERT_TRUE(KyFile::writeAll(dir.file(name), name));
    ASSERT_TRUE(KyDir::createPathTree(dir.file("sub/deeper")));
    ASSERT_TRUE(KyFile::writeAll(dir.file("sub/deeper/f"), "x"));
    ASSERT_EQ(::symlink(dir.file("a").c_str(), dir.file("sub/link").c_str()), 0);

    bool ok = false;
    const KyList<KyString> names = KyDir::entries(dir.path(), &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(names, (KyList<KyString>{".hidden", "C", "a", "b", "sub"}));

    KyString error;
    EXPECT_FALSE(KyDir::remove(dir.file("sub"), &error)) << "a non-empty directory stays";
    EXPECT_TRUE(error.contains(dir.file("sub").view()));
    EXPECT_TRUE(KyDir::removeRecursively(dir.file("sub"), &error)) << error;
    EXPECT_FALSE(KyDir::exists(dir.file("sub")));
    EXPECT_TRUE(KyFileInfo(dir.file("a")).isFile()) << "a symbolic link's target survives the removal of the link";
    EXPECT_TRUE(KyDir::removeRecursively(dir.file("sub"))) << "a missing path is already removed";

    KyDir::entries(dir.file("nothing"), &ok, &error);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(error.contains("nothing"));
}

TEST(KyDir, PathPiecesSplitAtTheLastSlash) {
    struct Row { const char* path; const char* parent; const char* name; };
    const Row rows[] = {
        {"/a/b/c.conf", "/a/b", "c.conf"}, {"c.conf", ".", "c.conf"}, {"/top", "/", "top"}, {"rel/x", "rel", "x"},
        {"/a/b/", "/a", ""},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.path);
        EXPECT_EQ(KyDir::parentPath(r.path), r.parent);
        EXPECT_EQ(KyDir::fileName(r.path), r.name);
    }
}

TEST(KyFileInfo, TellsFilesDirectoriesLinksSizesAndModes) {
    TempDir dir;
    const KyString file = dir.file("f");
    ASSERT_TRUE(KyFile::writeAll(file, "12345"));
    ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
    ASSERT_EQ(::symlink(file.c_str(), dir.file("link").c_str()), 0);
    ASSERT_EQ(::symlink(dir.file("gone").c_str(), dir.file("dangling").c_str()), 0);
    ASSERT_EQ(::mkfifo(dir.file("fifo").c_str(), 0600), 0);

    const KyFileInfo f(file);
    EXPECT_TRUE(f.isFile() && !f.isDir() && !f.isSymLink());
    EXPECT_EQ(f.size(), 5);
    EXPECT_EQ(f.permissions(), 0640u);
    EXPECT_GT(f.lastModifiedNs(), 0);
    EXPECT_TRUE(KyFileInfo(dir.path()).isDir() && !KyFileInfo(dir.path()).isFile());
    const KyFileInfo link(dir.file("link"));
    EXPECT_TRUE(link.isSymLink() && link.isFile());
    EXPECT_EQ(link.size(), 5);

    const KyFileInfo dangling(dir.file("dangling"));
    EXPECT_TRUE(dangling.isSymLink());
    EXPECT_FALSE(dangling.exists());
    EXPECT_EQ(dangling.error(), ENOENT);

    EXPECT_FALSE(KyFileInfo(dir.file("fifo")).isFile()) << "a pipe is not a regular file";
    EXPECT_FALSE(KyFileInfo(dir.file("missing")).exists());
    EXPECT_EQ(KyFileInfo(dir.file("f/below")).error(), ENOTDIR);

    KyFileInfo later(file);
    ASSERT_TRUE(KyFile::writeAll(file, "1234567890"));
    EXPECT_EQ(later.size(), 5) << "a snapshot keeps its facts";
    later.refresh();
    EXPECT_EQ(later.size(), 10);
}

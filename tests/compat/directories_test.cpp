#include <gtest/gtest.h>
#include <unistd.h>

#include <set>

#include "compat/file_finder.h"
#include "compat/file_system.h"
#include "compat/shell.h"
#include "compat/text.h"
#include "support/test_support.h"

using namespace testsupport;

namespace {

std::u16string w(const std::string& s) { return widen_lib(s); }

TEST(DirectoriesTest, PathsReachTheShellLiterally) {
  TempDir dir;
  // Anything the shell would expand or end the quotes with.
  const std::string hostile[] = {"q\"uote",     "$(touch INJECTED)",     "`touch INJECTED`",
                                 "back\\slash", "sp ace;touch INJECTED", "Каталог 'x'"};
  std::set<std::string> expected;
  for (const std::string& name : hostile) {
    std::string path = dir / name;
    ASSERT_EQ(FileSystem::CreateDirectory(w(path + "/sub")), 0u) << name;
    EXPECT_TRUE(exists(path + "/sub")) << name;
    write_file(path + "/f", "1");
    EXPECT_EQ(FileSystem::MoveFile(w(path + "/f"), w(path + "/g")), 0u) << name;
    EXPECT_TRUE(exists(path + "/g")) << name;
    EXPECT_EQ(FileSystem::DeleteFile(w(path + "/g")), 0u);
    EXPECT_FALSE(exists(path + "/g")) << name;
    EXPECT_EQ(FileSystem::RemoveDirectory(w(path + "/sub")), 0u);
    EXPECT_FALSE(exists(path + "/sub")) << name;
    expected.insert(name);
  }
  // A missing file, and a move into a directory.
  write_file(dir / "plain", "x");
  EXPECT_EQ(FileSystem::MoveFile(w(dir / "missing"), w(dir / "x")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(FileSystem::MoveFile(w(dir / "plain"), w(dir / hostile[0])), 0u);
  EXPECT_EQ(read_file(dir / hostile[0] + "/plain"), "x");
  EXPECT_EQ(FileSystem::RemoveDirectory(w(dir / "missing")), 0u);
  expected.insert(hostile[0] + "/plain");
  // Nothing else appeared anywhere: no INJECTED file, no stray directory.
  std::set<std::string> found;
  for (const auto& entry : snapshot(dir.path())) found.insert(entry.first);
  EXPECT_EQ(found, expected);
  EXPECT_FALSE(exists("INJECTED"));
}

// The program asks the finder only whether a path names an entry.
TEST(DirectoriesTest, FinderFindsWhatAPathNames) {
  TempDir dir;
  write_file(dir / "sub/a[1]", "5");
  EXPECT_TRUE(FileFinder().reset(w(dir / "sub")));
  // The name is only ever a pattern: a[1] names a1, not the entry spelled a[1].
  EXPECT_FALSE(FileFinder().reset(w(dir / "sub/a[1]")));
  write_file(dir / "sub/a1", "4");
  EXPECT_TRUE(FileFinder().reset(w(dir / "sub/a[1]")));
  // A link to nothing has no status to read: not found.
  ASSERT_EQ(symlink("nowhere", (dir / "sub/dangling").c_str()), 0);
  EXPECT_FALSE(FileFinder().reset(w(dir / "sub/dangling")));
  EXPECT_FALSE(FileFinder().reset(w(dir / "nowhere/*")));
  // "/name" has the empty directory in front of its only "/", which cannot be
  // opened, even when the root holds that name.
  for (const char16_t* rooted : {u"/tmp", u"/*", u"/"})
    EXPECT_FALSE(FileFinder().reset(rooted)) << narrow_lib(rooted);
}

TEST(DirectoriesTest, TemporaryPathAndFiles) {
  TempDir dir;
  std::u16string path;
  {
    ScopedEnv tmp("TMPDIR", dir.path());
    EXPECT_EQ(FileSystem::GetTempPath(path), 0u);
    EXPECT_EQ(path, w(dir.path() + "/"));

    // The probe file goes where GetTempFileName puts it, TMPDIR first,
    // whatever directory is asked about, and is gone afterwards.
    const testsupport::Snapshot before = testsupport::snapshot(dir.path());
    const unsigned long commands = shell_command_count();
    EXPECT_TRUE(isWritePermitted(w(dir / "no/such/folder")));
    EXPECT_EQ(shell_command_count(), commands + 2);  // touch, then rm -f
    EXPECT_TRUE(testsupport::snapshot(dir.path()) == before);
  }
  {
    write_file(dir / "file", "");
    ScopedEnv tmp("TMPDIR", dir / "file");  // not a directory
    EXPECT_EQ(FileSystem::GetTempPath(path), 0u);
    EXPECT_EQ(path, u"/tmp/");
  }
}

}  // namespace
